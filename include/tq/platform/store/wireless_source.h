// WirelessSource: where LinuxNetworkStore reads the state of wireless interfaces.
//
// The system's source asks the kernel through nl80211 (generic netlink): which interfaces are
// wireless, the SSID and BSSID of their current association, and join and leave events from the
// "mlme" and "config" multicast groups. Tests and hosts may supply their own source.
//
// Threads: a source is used on the thread of the store that owns it.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <vector>

#include "tq/platform/base/data.h"

namespace tq {

class WirelessSource {
 public:
  // One wireless interface. bssid (6 bytes) and ssid (raw bytes) are nil when not joined.
  struct State {
    bool joined = false;
    Data bssid;
    Data ssid;
    friend bool operator==(const State&, const State&) = default;
  };
  // What readEvents() found: the interfaces whose state must be read again, or `all` when events
  // may have been lost (everything is then read again).
  struct Changes {
    std::vector<int> interfaces;
    bool all = false;
  };

  virtual ~WirelessSource() = default;

  // Every wireless interface now, by kernel interface index.
  virtual std::map<int, State> readAll() = 0;
  // One interface: its state, and whether it is wireless at all (false: `state` is left alone).
  virtual bool read(int interfaceIndex, State& state) = 0;
  // A file descriptor that becomes readable when events wait, or -1 when the source has none.
  virtual int eventDescriptor() const = 0;
  // Reads the waiting events without blocking.
  virtual Changes readEvents() = 0;
};

// The kernel's wireless state through nl80211; nullptr when the kernel has no nl80211 family
// (no cfg80211) or generic netlink cannot be reached.
//
// What it shows of a station, beyond what the kernel answers when asked:
//   - the SSID whenever joined: from the interface answer, else from the connect event (what the
//     station asked for; a supplicant-managed link and a hidden network leave the others without
//     one), else from the access point's entry;
//   - a roam as one change: a move between access points arrives as a departure made by the
//     station followed by a connect, with the kernel answering "not joined" in between. A departure
//     the station made is shown only once `roamWindow` has passed without a new association (so a
//     roam shows as a new BSSID, joined throughout); a departure by the access point, or a
//     reconnection that failed, is shown at once. A window of zero shows every departure at once.
//   - interfaces with a network device only (the P2P device a supplicant adds has none).
// The event descriptor also becomes readable when a held departure is due.
std::unique_ptr<WirelessSource> makeNl80211WirelessSource(
    std::chrono::milliseconds roamWindow = std::chrono::milliseconds(1000));

}  // namespace tq
