#include "tq/platform/store/nl80211_decoder.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "support/genl_message.h"

using namespace tq;
using namespace tq::nl80211;
using Builder = tq::test::GenlMessage;

namespace {

const std::vector<uint8_t> kBssid = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

std::vector<uint8_t> ies(const std::string& ssid) {
  std::vector<uint8_t> v = {1, 2, 0x82, 0x84, 0, static_cast<uint8_t>(ssid.size())};  // supported rates first
  v.insert(v.end(), ssid.begin(), ssid.end());
  v.insert(v.end(), {3, 1, 6});  // DS parameter set
  return v;
}

}  // namespace

TEST(Nl80211Decoder, InterfaceAndAssociatedBss) {
  Builder i(0x1c, NL80211_CMD_NEW_INTERFACE);
  i.u32(NL80211_ATTR_IFINDEX, 3).u32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_STATION).bytes(NL80211_ATTR_SSID, {'H', 'o', 'm', 'e'});
  InterfaceInfo info;
  ASSERT_TRUE(decodeInterface(i.done(), info));
  EXPECT_EQ(info.ifindex, 3);
  EXPECT_EQ(info.iftype, static_cast<uint32_t>(NL80211_IFTYPE_STATION));
  EXPECT_EQ(info.ssid, Data::withString("Home"));

  Builder noSsid(0x1c, NL80211_CMD_NEW_INTERFACE);
  noSsid.u32(NL80211_ATTR_IFINDEX, 4);
  ASSERT_TRUE(decodeInterface(noSsid.done(), info));
  EXPECT_TRUE(info.ssid.isNil()) << "not joined";

  Builder bss(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  bss.u32(NL80211_ATTR_IFINDEX, 3).begin(NL80211_ATTR_BSS);
  bss.bytes(NL80211_BSS_BSSID, kBssid).bytes(NL80211_BSS_INFORMATION_ELEMENTS, ies("Caf\xc3\xa9"));
  bss.u32(NL80211_BSS_STATUS, NL80211_BSS_STATUS_ASSOCIATED).end();
  BssInfo b;
  ASSERT_TRUE(decodeBss(bss.done(), b));
  EXPECT_EQ(b.ifindex, 3);
  EXPECT_EQ(b.bssid, Data::withVector(kBssid));
  EXPECT_EQ(b.ssid, Data::withString("Caf\xc3\xa9"));
  EXPECT_TRUE(b.associated);

  Builder seen(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  seen.u32(NL80211_ATTR_IFINDEX, 3).begin(NL80211_ATTR_BSS).bytes(NL80211_BSS_BSSID, kBssid).end();
  ASSERT_TRUE(decodeBss(seen.done(), b));
  EXPECT_FALSE(b.associated) << "a BSS merely seen in a scan";
  EXPECT_TRUE(b.ssid.isNil());
  Builder authenticated(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  authenticated.begin(NL80211_ATTR_BSS).bytes(NL80211_BSS_BSSID, kBssid);
  authenticated.u32(NL80211_BSS_STATUS, NL80211_BSS_STATUS_AUTHENTICATED).end();
  ASSERT_TRUE(decodeBss(authenticated.done(), b));
  EXPECT_FALSE(b.associated) << "authenticated is not yet joined";

  Builder shortBssid(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  shortBssid.begin(NL80211_ATTR_BSS).bytes(NL80211_BSS_BSSID, {1, 2, 3}).end();
  EXPECT_FALSE(decodeBss(shortBssid.done(), b));
}

TEST(Nl80211Decoder, WhatConnectRoamAndDisconnectEventsSayOfTheAssociation) {
  std::vector<uint8_t> request = ies("tq-home");  // the station's association request
  struct Case {
    const char* name;
    uint8_t cmd;
    int status;  // -1: no status attribute
    bool timedOut, byAp;
    bool connected, byAccessPoint;
    const char* ssid;  // nullptr: nil
    bool changes = true;  // whether the event changes the association
  };
  const Case cases[] = {
      {"connect", NL80211_CMD_CONNECT, 0, false, false, true, false, "tq-home"},
      {"connect refused", NL80211_CMD_CONNECT, 17, false, false, false, false, "tq-home"},
      {"connect timed out", NL80211_CMD_CONNECT, 0, true, false, false, false, "tq-home"},
      {"connect without status", NL80211_CMD_CONNECT, -1, false, false, false, false, "tq-home"},
      {"roam", NL80211_CMD_ROAM, -1, false, false, true, false, "tq-home"},
      {"left by the station", NL80211_CMD_DISCONNECT, -1, false, false, false, false, nullptr},
      {"left by the access point", NL80211_CMD_DISCONNECT, -1, false, true, false, true, nullptr},
      {"interface gone", NL80211_CMD_DEL_INTERFACE, -1, false, false, false, false, nullptr},
      {"scan results", NL80211_CMD_NEW_SCAN_RESULTS, -1, false, false, false, false, nullptr, false},
      {"scan started", NL80211_CMD_TRIGGER_SCAN, -1, false, false, false, false, nullptr, false},
  };
  for (const Case& c : cases) {
    Builder e(0x1c, c.cmd);
    e.u32(NL80211_ATTR_IFINDEX, 2).bytes(NL80211_ATTR_MAC, kBssid);
    if (c.cmd == NL80211_CMD_CONNECT || c.cmd == NL80211_CMD_ROAM) e.bytes(NL80211_ATTR_REQ_IE, request);
    if (c.status >= 0) e.u16(NL80211_ATTR_STATUS_CODE, static_cast<uint16_t>(c.status));
    if (c.timedOut) e.put(NL80211_ATTR_TIMED_OUT, nullptr, 0);
    if (c.byAp) e.put(NL80211_ATTR_DISCONNECTED_BY_AP, nullptr, 0);
    Event ev;
    ASSERT_TRUE(decodeEvent(e.done(), 0x1c, ev)) << c.name;
    EXPECT_EQ(ev.command, c.cmd);
    EXPECT_EQ(ev.ifindex, 2);
    EXPECT_EQ(ev.changesState, c.changes) << c.name;
    EXPECT_EQ(ev.bssid, Data::withVector(kBssid)) << c.name;
    EXPECT_EQ(ev.connected, c.connected) << c.name;
    EXPECT_EQ(ev.byAccessPoint, c.byAccessPoint) << c.name;
    EXPECT_EQ(ev.ssid, c.ssid ? Data::withString(c.ssid) : Data()) << c.name;
  }
  Event other;
  EXPECT_FALSE(decodeEvent(Builder(0x1d, NL80211_CMD_CONNECT).done(), 0x1c, other)) << "another family's message";
}

TEST(Nl80211Decoder, InformationElementsAndMalformedInput) {
  EXPECT_EQ(ssidFromInformationElements(ies("net")), Data::withString("net"));
  EXPECT_EQ(ssidFromInformationElements(std::vector<uint8_t>{0, 0}), Data::empty()) << "a hidden network's empty SSID";
  EXPECT_TRUE(ssidFromInformationElements(std::vector<uint8_t>{1, 2, 0x82, 0x84, 0, 9, 'a', 'b'}).isNil()) << "truncated";
  EXPECT_TRUE(ssidFromInformationElements(std::vector<uint8_t>{1, 1, 0x82}).isNil()) << "no SSID element";

  Builder i(0x1c, NL80211_CMD_NEW_INTERFACE);
  i.u32(NL80211_ATTR_IFINDEX, 3).bytes(NL80211_ATTR_SSID, {'a', 'b', 'c'});
  auto whole = i.done();
  std::vector<uint32_t> copy((whole.size() + 3) / 4);
  InterfaceInfo info;
  for (std::size_t len = 0; len < whole.size(); ++len) {
    std::memcpy(copy.data(), whole.data(), len);
    EXPECT_FALSE(decodeInterface({reinterpret_cast<const uint8_t*>(copy.data()), len}, info)) << len;
  }
  // An attribute whose length runs past the message.
  std::memcpy(copy.data(), whole.data(), whole.size());
  auto* bytes = reinterpret_cast<uint8_t*>(copy.data());
  reinterpret_cast<nlattr*>(bytes + NLMSG_HDRLEN + GENL_HDRLEN)->nla_len = 200;
  EXPECT_FALSE(decodeInterface({bytes, whole.size()}, info));
  Builder wrongSize(0x1c, NL80211_CMD_NEW_INTERFACE);
  wrongSize.put(NL80211_ATTR_IFINDEX, "ab", 2);
  EXPECT_FALSE(decodeInterface(wrongSize.done(), info));
}
