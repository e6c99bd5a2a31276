#include "association_tracker.h"

#include <linux/nl80211.h>

namespace tq::store {

void AssociationTracker::event(const nl80211::Event& event) {
  if (event.ifindex <= 0) return;
  switch (event.command) {
    case NL80211_CMD_CONNECT:
    case NL80211_CMD_ROAM: {
      Entry& e = entries_[event.ifindex];
      if (event.connected) {
        e.connectBssid = event.bssid;
        e.connectSsid = event.ssid;
      } else {
        // The station tried and failed: what it left is gone for good.
        e.holding = false;
        e.mayHold = false;
      }
      break;
    }
    case NL80211_CMD_DISCONNECT:
      if (event.byAccessPoint) {
        auto it = entries_.find(event.ifindex);
        if (it != entries_.end()) it->second.holding = it->second.mayHold = false;
      }
      break;
    case NL80211_CMD_DEL_INTERFACE:
      forget(event.ifindex);
      break;
    default:
      break;
  }
}

WirelessSource::State AssociationTracker::present(int ifindex, const Reading& reading, Clock::time_point now) {
  Entry& e = entries_[ifindex];
  WirelessSource::State fresh;
  if (reading.joined) {
    fresh.joined = true;
    fresh.bssid = reading.bssid;
    if (reading.interfaceSsid) fresh.ssid = reading.interfaceSsid;
    else if (e.connectSsid && e.connectBssid == reading.bssid) fresh.ssid = e.connectSsid;
    else if (reading.bssSsid && reading.bssSsid.length() > 0) fresh.ssid = reading.bssSsid;
    e.holding = false;
    e.mayHold = roamWindow_.count() > 0;
    e.shown = fresh;
    return fresh;
  }
  if (e.holding && now < e.holdUntil) return e.shown;
  if (!e.holding && e.mayHold && e.shown.joined) {
    e.holding = true;
    e.mayHold = false;
    e.holdUntil = now + roamWindow_;
    return e.shown;
  }
  e.holding = false;
  e.mayHold = false;
  e.shown = fresh;
  return fresh;
}

std::vector<int> AssociationTracker::expired(Clock::time_point now) const {
  std::vector<int> due;
  for (const auto& [index, e] : entries_)
    if (e.holding && e.holdUntil <= now) due.push_back(index);
  return due;
}

std::optional<AssociationTracker::Clock::time_point> AssociationTracker::nextDeadline() const {
  std::optional<Clock::time_point> next;
  for (const auto& [index, e] : entries_)
    if (e.holding && (!next || e.holdUntil < *next)) next = e.holdUntil;
  return next;
}

}  // namespace tq::store
