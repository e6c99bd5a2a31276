// AssociationTracker: what the wireless source shows of each station interface, made from what the
// kernel answers when asked and from the events it sent on the way.
//
// The kernel's answers alone mislead in two ways, and the events put them right:
//   - SSID: with a user-space supplicant managing the link the interface answer carries no SSID,
//     and the access point's entry may carry none either (a hidden network). The SSID of the last
//     connect or roam event is used when the interface answer has none and the event was about the
//     same access point, else the entry's when it is not empty.
//   - Roaming: a move between access points arrives as a departure the station made itself (a
//     disconnect without "by AP") and, moments later, a connect; in between the kernel answers
//     "not joined". Such a departure is held back for `roamWindow`: if a connect follows in time the
//     change shows as a new access point with the link joined throughout; if not, the departure
//     shows when the window ends (the owner is told through expired()). A departure by the access
//     point, or a connect that failed, shows at once.
//
// Times are passed in, so that the rules can be followed without a clock. Not thread-safe: one
// owner, one thread.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <vector>

#include "tq/platform/store/nl80211_decoder.h"
#include "tq/platform/store/wireless_source.h"

namespace tq::store {

class AssociationTracker {
 public:
  using Clock = std::chrono::steady_clock;

  // What the kernel answered for one interface: whether it is joined and to which access point, the
  // SSID of the interface answer and that of the access point's entry (each nil when absent).
  struct Reading {
    bool joined = false;
    Data bssid;
    Data interfaceSsid;
    Data bssSsid;
  };

  // A window of zero shows every departure at once.
  explicit AssociationTracker(std::chrono::milliseconds roamWindow) : roamWindow_(roamWindow) {}

  // Takes note of an event (of any command; those that say nothing of an association are ignored).
  void event(const nl80211::Event& event);
  // The state to show for the interface, given what the kernel answers now.
  WirelessSource::State present(int ifindex, const Reading& reading, Clock::time_point now);
  // The interfaces whose held departure is due by `now`: read them again, and present() shows it.
  std::vector<int> expired(Clock::time_point now) const;
  // When the next held departure is due, if one is held.
  std::optional<Clock::time_point> nextDeadline() const;
  // Forgets the interface (it went).
  void forget(int ifindex) { entries_.erase(ifindex); }

 private:
  struct Entry {
    WirelessSource::State shown;
    Data connectBssid, connectSsid;  // from the last connect or roam event
    bool mayHold = false;            // a departure now would be held back
    bool holding = false;
    Clock::time_point holdUntil{};
  };
  std::chrono::milliseconds roamWindow_;
  std::map<int, Entry> entries_;
};

}  // namespace tq::store
