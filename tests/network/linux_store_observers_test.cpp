// The three observers on the kernel's own state: a store wrapper on LinuxNetworkStore in a network
// namespace of the test's own.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "support/fake_wireless.h"
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

  void openStore(std::shared_ptr<WirelessSource> wireless = nullptr) {
    LinuxNetworkStore::Options options;
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
  void settle() { RunLoop::current().runFor(50ms); }

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

TEST_F(LinuxStoreObservers, EthernetObserverPostsOnCarrier) {
  ASSERT_EQ(nl.createVeth("va", "vb"), 0);
  ASSERT_EQ(nl.setUp("va", true), 0);
  openStore();
  auto ether = EthernetObserver::initWithService(u"va", store, systemMediaSource());
  EXPECT_EQ(ether->interface().UTF8String(), "va");
  EXPECT_FALSE(ether->currentActive());

  ASSERT_EQ(nl.setUp("vb", true), 0);  // plugging in: the peer brings the carrier
  ASSERT_TRUE(runUntil([&] { return !posted.empty(); }));
  settle();
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].name, "EthernetActivatedNotification");
  EXPECT_EQ(posted[0].userInfo.count(), 1u);
  EXPECT_EQ(infoString(posted[0], u"interface"), "va");
  EXPECT_EQ(ether->media().UTF8String().rfind("<full-duplex>"), ether->media().UTF8String().size() - 13)
      << ether->media().UTF8String();

  ASSERT_EQ(nl.setUp("vb", false), 0);  // unplugged
  ASSERT_TRUE(runUntil([&] { return posted.size() == 2; }));
  EXPECT_EQ(posted[1].name, "EthernetDeactivatedNotification");
  EXPECT_EQ(infoString(posted[1], u"interface"), "va");

  ASSERT_EQ(nl.setUp("va", false), 0);  // already inactive: nothing more
  ASSERT_EQ(nl.addAddress("va", "10.0.0.2", 24), 0);
  settle();
  EXPECT_EQ(posted.size(), 2u);

  ether->sleep();
  ASSERT_EQ(nl.setUp("va", true), 0);
  ASSERT_EQ(nl.setUp("vb", true), 0);
  ASSERT_TRUE(runUntil([&] { return posted.size() == 3; }));
  EXPECT_EQ(posted[2].name, "EthernetActivatedNotification");
}

TEST_F(LinuxStoreObservers, PrimaryAddressFollowsTheDefaultRoute) {
  ASSERT_EQ(nl.createVeth("va", "vb"), 0);
  ASSERT_EQ(nl.createVeth("wa", "wb"), 0);
  for (auto n : {"va", "vb", "wa", "wb"}) ASSERT_EQ(nl.setUp(n, true), 0);
  openStore();
  auto ipv4 = IPv4Observer::initWithStore(store);
  EXPECT_TRUE(ipv4->getPrimaryIP().isNil()) << "no default route";

  ASSERT_EQ(nl.addAddress("va", "10.0.0.2", 24, "10.0.0.255"), 0);
  ASSERT_EQ(nl.addAddress("wa", "192.168.5.7", 24, "192.168.5.255"), 0);
  ASSERT_EQ(nl.addDefaultRoute("va", "10.0.0.1", 100), 0);
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().UTF8String() == "10.0.0.2"; }));

  ASSERT_EQ(nl.addDefaultRoute("wa", "192.168.5.1", 50), 0);
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().UTF8String() == "192.168.5.7"; }));

  ASSERT_EQ(nl.addAddress("wa", "172.16.0.9", 16), 0);  // a second address: the first stays primary
  settle();
  EXPECT_EQ(ipv4->getPrimaryIP().UTF8String(), "192.168.5.7");

  ASSERT_EQ(nl.deleteAddress("wa", "192.168.5.7", 24), 0);  // the route stays: the next address answers
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().UTF8String() == "172.16.0.9"; }));
  ASSERT_EQ(nl.deleteAddress("wa", "172.16.0.9", 16), 0);  // the last address: the kernel drops the route
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().UTF8String() == "10.0.0.2"; }));

  ASSERT_EQ(nl.setUp("vb", false), 0);  // carrier lost on va
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().isNil(); }));
  ASSERT_EQ(nl.setUp("vb", true), 0);
  ASSERT_TRUE(runUntil([&] { return ipv4->getPrimaryIP().UTF8String() == "10.0.0.2"; }));
  EXPECT_EQ(ipv4->typeOfIP(ipv4->getPrimaryIP()).UTF8String(), "Reserved") << "last octet 2 on this host";
}

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
