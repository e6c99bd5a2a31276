// The three observers on the kernel's own state: a store wrapper on LinuxNetworkStore in a network
// namespace of the test's own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "support/fake_wireless.h"
#include "support/kernel_state.h"
#include "support/net_namespace.h"
#include "tq/network/airport_observer.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/ipv4_observer.h"
#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/store/linux_network_store.h"

using namespace tq;
using namespace std::chrono_literals;

namespace {

struct Posted {
  std::string name;
  Dictionary userInfo;
};

using test::FakeWireless;

class LinuxStoreObservers : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!ns_.ok()) GTEST_SKIP() << "needs a fresh network namespace: " << ns_.reason();
    auto& centre = NotificationCenter::defaultCenter();
    for (const char16_t* name : {u"EthernetActivatedNotification", u"EthernetDeactivatedNotification",
                                 u"AirportConnectedNotification", u"AirportDisconnectedNotification"})
      tokens_.push_back(centre.addObserverForName(name, nullptr, [this](const Notification& n) {
        posted.push_back({n.name().UTF8String(), n.userInfo()});
      }));
  }
  void TearDown() override {
    for (auto& t : tokens_) NotificationCenter::defaultCenter().removeObserver(t);
    // The wrapper lives on with its observers (by design); take its source out of this loop so that
    // later tests do not read a namespace that is gone.
    if (store && store->connection()) RunLoop::current().removeSource(store->connection()->runLoopSource());
  }

  void openStore(std::shared_ptr<WirelessSource> wireless = nullptr,
                 std::chrono::milliseconds window = LinuxNetworkStore::Options{}.coalescingWindow) {
    LinuxNetworkStore::Options options;
    options.coalescingWindow = window;
    options.useSystemWireless = false;
    options.wireless = std::move(wireless);
    store = std::make_shared<SCDynamicStore>(LinuxNetworkStore::factory(options));
    ASSERT_TRUE(store->connection());
  }

  template <class F>
  bool runUntil(F done) {
    auto deadline = std::chrono::steady_clock::now() + 2s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      RunLoop::current().runFor(5ms);
    }
    return true;
  }

  test::NetNamespace ns_;
  test::NetlinkRequests nl;
  std::shared_ptr<SCDynamicStore> store;
  std::vector<Posted> posted;
  std::vector<NotificationToken> tokens_;
};

std::string infoString(const Posted& p, const char16_t* key) {
  return p.userInfo.objectForKey(key).stringValue().UTF8String();
}

}  // namespace

TEST_F(LinuxStoreObservers, AirportObserverPostsJoinsAndDepartures) {
  ASSERT_EQ(nl.createVeth("wl0", "wl1"), 0);
  auto wireless = std::make_shared<FakeWireless>();
  const int wl0 = static_cast<int>(test::linkIndex("wl0"));
  wireless->states[wl0] = {};
  openStore(wireless);
  auto airport = AirportObserver::initWithService(u"wl0", store);

  Data home{1, 2, 3, 4, 5, 6};
  Data other{1, 2, 3, 4, 5, 7};
  wireless->set(wl0, {true, home, Data::withString("Home")});
  ASSERT_TRUE(runUntil([&] { return posted.size() == 1; }));
  EXPECT_EQ(posted[0].name, "AirportConnectedNotification");
  EXPECT_EQ(infoString(posted[0], u"SSID"), "Home");

  wireless->set(wl0, {true, other, Data::withString("Home")});  // roaming within the network
  ASSERT_TRUE(runUntil([&] { return posted.size() == 2; }));
  EXPECT_EQ(posted[1].name, "AirportConnectedNotification");

  wireless->set(wl0, {});  // left: the store gives {"Link Status": 1} with no BSSID
  ASSERT_TRUE(runUntil([&] { return posted.size() == 3; }));
  EXPECT_EQ(posted[2].name, "AirportDisconnectedNotification");
  EXPECT_EQ(infoString(posted[2], u"SSID"), "Home");
}

// Randomized carrier, link, address and route changes, each let settle: every change of a link's
// activity (as the kernel's own dump shows it) posts exactly one notification for that link, and every
// change of the primary interface or its first address reaches statusChange: with the new address.
TEST_F(LinuxStoreObservers, EveryActivityChangePostsOnceAndEveryPrimaryChangeIsCalled) {
  const std::vector<std::string> names = {"va", "vb", "vc"};
  for (auto& n : names) {
    ASSERT_EQ(nl.createVeth(n, "p" + n), 0);
    ASSERT_EQ(nl.setUp("p" + n, true), 0);
    ASSERT_EQ(nl.setUp(n, true), 0);
  }
  openStore(nullptr, 15ms);  // a window wide enough for the test to act inside it
  for (auto& n : names) EthernetObserver::initWithService(String::fromUTF8(n), store, systemMediaSource());
  auto ipv4 = IPv4Observer::initWithStore(store);
  struct Recorder : Object {
    std::shared_ptr<IPv4Observer> ipv4;
    std::vector<std::string> seen;  // getPrimaryIP() at each call
    void changed(const String&) { seen.push_back(ipv4->getPrimaryIP().UTF8String()); }
  };
  auto recorder = std::make_shared<Recorder>();
  recorder->ipv4 = ipv4;
  store->addObserver(recorder, &Recorder::changed, String(u"State:/Network/Global/IPv4"));

  // What the kernel says: each link's activity, and the primary's name and first address.
  struct Truth {
    std::map<std::string, bool> active;
    std::string primary, address;
  };
  auto truth = [&] {
    auto k = test::expectedStoreFromKernel();
    Truth t;
    for (auto& n : names)
      t.active[n] = k["State:/Network/Interface/" + n + "/Link"].dictionaryValue().objectForKey(u"Active").boolValue();
    t.primary = k["State:/Network/Global/IPv4"].dictionaryValue().objectForKey(u"PrimaryInterface").stringValue().UTF8String();
    if (!t.primary.empty())
      t.address = k["State:/Network/Interface/" + t.primary + "/IPv4"]
                      .dictionaryValue().objectForKey(u"Addresses").arrayValue().strings()[0].UTF8String();
    return t;
  };
  auto storeAgrees = [&](const Truth& t) {
    for (auto& n : names)
      if (store->valueForKey(String::fromUTF8("State:/Network/Interface/" + n + "/Link")).dictionaryValue()
              .objectForKey(u"Active").boolValue() != t.active.at(n))
        return false;
    return ipv4->getPrimaryIP().UTF8String() == t.address;
  };

  // TQ_STORE_DIFF_STEPS and TQ_STORE_DIFF_SEED, as for the store's differential test.
  const char* stepsEnv = std::getenv("TQ_STORE_DIFF_STEPS");
  const char* seedEnv = std::getenv("TQ_STORE_DIFF_SEED");
  int steps = stepsEnv ? std::atoi(stepsEnv) : 200;
  std::mt19937 rng(seedEnv ? static_cast<unsigned>(std::strtoul(seedEnv, nullptr, 10)) : 7u);
  auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  Truth before = truth();
  int activityChanges = 0, primaryChanges = 0;
  std::map<std::string, bool> nearUp = {{"va", true}, {"vb", true}, {"vc", true}};
  for (int step = 0; step < steps; ++step) {
    const std::string& n = names[static_cast<std::size_t>(pick(3))];
    std::string slot = std::to_string(&n - names.data() + 1);
    std::size_t mark = posted.size(), calls = recorder->seen.size();
    auto address = [&] { return "10." + slot + ".0." + std::to_string(1 + pick(4)); };
    int kind = pick(11);
    switch (kind) {
      case 9:
      case 10: {
        // Through one coalescing window: a report goes out (another link goes up or down), this
        // link goes up or down while the window runs, and is touched again before it ends.
        const std::string& other = names[(static_cast<std::size_t>(&n - names.data()) + 1 + static_cast<std::size_t>(pick(2))) % 3];
        if (nl.setUp(other, !nearUp[other]) == 0) nearUp[other] = !nearUp[other];
        RunLoop::current().runFor(1ms);
        bool up = !nearUp[n];
        if (nl.setUp(n, up) == 0) nearUp[n] = up;
        String link = String::fromUTF8("State:/Network/Interface/" + n + "/Link");
        bool want = truth().active[n];
        for (int i = 0; i < 5 && store->valueForKey(link).dictionaryValue().objectForKey(u"Active").boolValue() != want; ++i)
          RunLoop::current().runUntil(std::chrono::steady_clock::now() + std::chrono::microseconds(300));
        if (pick(2)) nl.addAddress(n, address(), 24); else nl.deleteAddress(n, address(), 24);
        break;
      }
      case 0:
      case 1: nl.setUp("p" + n, pick(2) == 0); break;
      case 2: {
        bool up = pick(3) != 0;
        if (nl.setUp(n, up) == 0) nearUp[n] = up;
        break;
      }
      case 3:
      case 4: nl.addAddress(n, address(), 24); break;
      case 5: nl.deleteAddress(n, address(), 24); break;
      default: {
        test::NetlinkRequests::Route r;
        r.hops = {{n, kind < 8 && pick(2) ? "10." + slot + ".0.254" : ""}};
        r.metric = static_cast<uint32_t>(10 * pick(3));
        nl.defaultRoute(kind < 8 ? test::NetlinkRequests::Verb::Add : test::NetlinkRequests::Verb::Delete, r);
        break;
      }
    }
    // Settled: the store agrees with the kernel, and both stay so past the window (the kernel
    // applies carrier changes later, through its link watcher).
    Truth now;
    bool settled = false;
    for (auto deadline = std::chrono::steady_clock::now() + 3s; !settled && std::chrono::steady_clock::now() < deadline;) {
      now = truth();
      if (!storeAgrees(now)) {
        RunLoop::current().runFor(5ms);
        continue;
      }
      RunLoop::current().runFor(25ms);  // the batch goes out at the end of the window
      Truth later = truth();
      settled = later.active == now.active && later.primary == now.primary && later.address == now.address &&
                storeAgrees(later);
    }
    ASSERT_TRUE(settled) << "step " << step;

    std::multiset<std::string> expected, got;
    for (auto& m : names)
      if (now.active[m] != before.active[m])
        expected.insert(std::string(now.active[m] ? "EthernetActivatedNotification " : "EthernetDeactivatedNotification ") + m);
    for (std::size_t i = mark; i < posted.size(); ++i) got.insert(posted[i].name + " " + infoString(posted[i], u"interface"));
    ASSERT_EQ(got, expected) << "step " << step;
    activityChanges += static_cast<int>(expected.size());
    if (now.primary != before.primary || now.address != before.address) {
      ++primaryChanges;
      ASSERT_GT(recorder->seen.size(), calls) << "step " << step << ": primary " << before.primary << " "
                                              << before.address << " -> " << now.primary << " " << now.address;
      EXPECT_EQ(recorder->seen.back(), now.address) << "step " << step;
    }
    before = now;
  }
  // The run must have exercised both.
  EXPECT_GT(activityChanges, steps / 12);
  EXPECT_GT(primaryChanges, steps / 40);
  std::printf("%d activity changes, %d primary changes in %d steps\n", activityChanges, primaryChanges, steps);
}
