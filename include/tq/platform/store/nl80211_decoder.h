// Decoding of the nl80211 (generic netlink) messages that the wireless source reads, kept apart
// from any socket so that it can be checked on messages built in memory.
//
// Each decoder takes one whole netlink message (header, generic netlink header, attributes) as
// bytes, checks every length before reading, and answers false for anything else or anything
// malformed. Nothing here allocates more than the decoded values.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "tq/platform/base/data.h"

namespace tq::nl80211 {

// The generic netlink controller's answer about a family (CTRL_CMD_NEWFAMILY).
struct FamilyInfo {
  uint16_t id = 0;
  std::string name;
  std::map<std::string, uint32_t> multicastGroups;  // group name -> group id
};
bool decodeFamily(std::span<const uint8_t> message, FamilyInfo& family);

// An interface (NL80211_CMD_NEW_INTERFACE, a reply to GET_INTERFACE or an event). ssid is nil unless
// the kernel names the network the interface is on (a station joined, an access point's own).
struct InterfaceInfo {
  int ifindex = 0;
  uint32_t iftype = 0;  // NL80211_IFTYPE_*
  Data ssid;
};
bool decodeInterface(std::span<const uint8_t> message, InterfaceInfo& info);

// One scan result (NL80211_CMD_NEW_SCAN_RESULTS, a reply to GET_SCAN). `associated` is true when its
// status says the interface is associated with (or has joined, for IBSS) this BSS.
struct BssInfo {
  int ifindex = 0;
  Data bssid;  // 6 bytes
  Data ssid;   // from the information elements; nil when absent
  bool associated = false;
};
bool decodeBss(std::span<const uint8_t> message, BssInfo& bss);

// An event of the "mlme" or "config" groups. `command` is the NL80211_CMD_* value. `changesState`
// is true for the commands after which the interface's association may differ (connect,
// disconnect, roam, associate, deauthenticate, disassociate, new or deleted interface, IBSS join).
//
// What a connect, roam or disconnect event says of the association itself:
//   bssid          the access point (NL80211_ATTR_MAC, 6 bytes); nil when absent.
//   ssid           connect and roam: the SSID the station asked for, from the SSID element of its
//                  association request (NL80211_ATTR_REQ_IE); nil when absent. The kernel's
//                  interface answers carry no SSID when a user-space supplicant manages the link,
//                  and a hidden network's beacons carry none either; this one is always there.
//   connected      connect: the association was made (status code 0, no time-out); roam: true.
//   byAccessPoint  disconnect: the access point ended the association
//                  (NL80211_ATTR_DISCONNECTED_BY_AP); false when the station left.
struct Event {
  uint8_t command = 0;
  int ifindex = 0;
  bool changesState = false;
  Data bssid;
  Data ssid;
  bool connected = false;
  bool byAccessPoint = false;
};
bool decodeEvent(std::span<const uint8_t> message, uint16_t familyId, Event& event);

// The SSID element (id 0) of a run of 802.11 information elements; nil when absent or truncated.
Data ssidFromInformationElements(std::span<const uint8_t> elements);

}  // namespace tq::nl80211
