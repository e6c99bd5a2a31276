#include "association_tracker.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include <string>
#include <vector>

using namespace tq;
using namespace tq::store;
using namespace std::chrono_literals;

namespace {

const Data kA{2, 0, 0, 0, 1, 0}, kB{2, 0, 0, 0, 2, 0};

// One step of a station's life at a time (in ms): an event, or a reading of the kernel's answer with
// what must be shown then ("-" for not joined, else "last BSSID byte/SSID"); and, before it, which
// interfaces are due to be read again.
struct Step {
  enum Kind { Connect, ConnectFailed, LeftByStation, LeftByAp, Read } kind;
  int ms = 0;
  Data bssid;
  const char* ssid = nullptr;  // the event's, or for a reading the access point entry's
  const char* shown = nullptr;
  std::vector<int> due = {};
};

std::string text(const WirelessSource::State& s) {
  if (!s.joined) return "-";
  return std::to_string(s.bssid.span()[4]) + "/" + (s.ssid ? std::string(s.ssid.stringView()) : "nil");
}

void play(std::chrono::milliseconds window, const std::vector<Step>& steps) {
  AssociationTracker tracker(window);
  AssociationTracker::Clock::time_point t0{};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& s = steps[i];
    SCOPED_TRACE("step " + std::to_string(i));
    EXPECT_EQ(tracker.expired(t0 + std::chrono::milliseconds(s.ms)), s.due);
    nl80211::Event e;
    e.ifindex = 2;
    e.bssid = s.bssid;
    if (s.ssid) e.ssid = Data::withString(s.ssid);
    switch (s.kind) {
      case Step::Connect: e.command = NL80211_CMD_CONNECT, e.connected = true; break;
      case Step::ConnectFailed: e.command = NL80211_CMD_CONNECT; break;
      case Step::LeftByStation: e.command = NL80211_CMD_DISCONNECT; break;
      case Step::LeftByAp: e.command = NL80211_CMD_DISCONNECT, e.byAccessPoint = true; break;
      case Step::Read: {
        AssociationTracker::Reading r;
        r.joined = bool(s.bssid);
        r.bssid = s.bssid;
        if (s.ssid) r.bssSsid = Data::withString(s.ssid);
        EXPECT_EQ(text(tracker.present(2, r, t0 + std::chrono::milliseconds(s.ms))), s.shown);
        break;
      }
    }
    if (s.kind != Step::Read) tracker.event(e);
  }
}

}  // namespace

TEST(AssociationTracker, DeparturesShowWhenTheyAreCertain) {
  // Left by the station with no connect in time: shown when the window ends.
  play(1000ms, {{Step::Read, 0, kA, "home", "1/home"},
                {Step::LeftByStation, 10, kA},
                {Step::Read, 10, {}, nullptr, "1/home"},
                {Step::Read, 999, {}, nullptr, "1/home", {}},
                {Step::Read, 1010, {}, nullptr, "-", {2}},
                {Step::Read, 1100, {}, nullptr, "-", {}}});
  // Left by the access point: at once.
  play(1000ms, {{Step::Read, 0, kA, "home", "1/home"}, {Step::LeftByAp, 10, kA}, {Step::Read, 10, {}, nullptr, "-"}});
  // The access point's word comes after a reading already held the departure back.
  play(1000ms, {{Step::Read, 0, kA, "home", "1/home"},
                {Step::Read, 10, {}, nullptr, "1/home"},
                {Step::LeftByAp, 10, kA},
                {Step::Read, 11, {}, nullptr, "-"}});
  // The reconnection failed: at once, and no second hold.
  play(1000ms, {{Step::Read, 0, kA, "home", "1/home"},
                {Step::Read, 10, {}, nullptr, "1/home"},
                {Step::ConnectFailed, 50, kB},
                {Step::Read, 50, {}, nullptr, "-"},
                {Step::Read, 60, {}, nullptr, "-"}});
  // No window: at once.
  play(0ms, {{Step::Read, 0, kA, "home", "1/home"}, {Step::Read, 10, {}, nullptr, "-"}});
}

TEST(AssociationTracker, TheSsidComesFromWhereverItIs) {
  struct Case {
    const char* name;
    const char* interfaceSsid;
    const char* eventSsid;
    const Data* eventBssid;
    const char* bssSsid;
    const char* shown;
  };
  const Case cases[] = {
      {"the interface answer first", "iface", "event", &kA, "entry", "1/iface"},
      {"then the connect event, for the same access point", nullptr, "event", &kA, "entry", "1/event"},
      {"not an event about another access point", nullptr, "event", &kB, "entry", "1/entry"},
      {"a hidden network's empty entry", nullptr, nullptr, nullptr, "", "1/nil"},
      {"a hidden network through the event", nullptr, "event", &kA, "", "1/event"},
  };
  for (const Case& c : cases) {
    AssociationTracker tracker(1000ms);
    if (c.eventBssid) {
      nl80211::Event e;
      e.command = NL80211_CMD_CONNECT;
      e.ifindex = 2;
      e.connected = true;
      e.bssid = *c.eventBssid;
      e.ssid = Data::withString(c.eventSsid);
      tracker.event(e);
    }
    AssociationTracker::Reading r;
    r.joined = true;
    r.bssid = kA;
    if (c.interfaceSsid) r.interfaceSsid = Data::withString(c.interfaceSsid);
    r.bssSsid = Data::withString(c.bssSsid);
    EXPECT_EQ(text(tracker.present(2, r, {})), c.shown) << c.name;
  }
}
