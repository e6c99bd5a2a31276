#include "tq/network/airport_observer.h"

#include <gtest/gtest.h>

#include "network/store_fixture.h"
#include "tq/network/ethernet_observer.h"

using namespace tq;
using tq::test::StoreFixture;

namespace {

const String kKey = u"State:/Network/Interface/wlan0/AirPort";
const Data A{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const Data B{0x00, 0x11, 0x22, 0x33, 0x44, 0x66};
const Data C{0x00, 0x11, 0x22, 0x33, 0x44, 0x77};

}  // namespace

class AirportObserverTest : public StoreFixture {
 protected:
  std::shared_ptr<AirportObserver> start() { return AirportObserver::initWithService(u"wlan0", makeWrapper()); }
  void report(Dictionary state) {
    store->setValue(kKey, state);
    deliver();
  }
  // name + SSID of each notification since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> out;
    for (const auto& p : posted) {
      EXPECT_FALSE(p.hasSender);
      EXPECT_EQ(p.userInfo.count(), 1u);
      out.push_back(p.name + ":" + p.userInfo.objectForKey(u"SSID").stringValue().UTF8String());
    }
    posted.clear();
    return out;
  }
};

TEST_F(AirportObserverTest, JoinLeaveAndAcceptWithoutSsid) {
  auto observer = start();
  EXPECT_EQ(observer->dynStore()->watchedKeys(), std::vector<String>{kKey});
  EXPECT_TRUE(observer->currentStatus().isNil());
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}});
  EXPECT_EQ(take(), std::vector<std::string>{"AirportConnectedNotification:Home"});
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", B}});
  EXPECT_EQ(take(), std::vector<std::string>{"AirportDisconnectedNotification:Home"}) << "names the network left";
  report(Dictionary{{u"Link Status", 1}});
  EXPECT_TRUE(take().empty()) << "the old state had no SSID";
  EXPECT_EQ(observer->currentStatus(), (Dictionary{{u"Link Status", 1}})) << "accepted nonetheless";
  EXPECT_TRUE(observer->interface().isNil());
}

TEST_F(AirportObserverTest, SameBssidIsIgnoredBeforeTheStatusIsLookedAt) {
  auto observer = start();
  Dictionary joined{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}};
  report(joined);
  take();
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", A}, {u"SSID", u"Home"}});
  EXPECT_TRUE(take().empty());
  EXPECT_EQ(observer->currentStatus(), joined) << "not replaced";
  // A BSSID of equal bytes in a new buffer is the same access point.
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", Data::withVector({0x00, 0x11, 0x22, 0x33, 0x44, 0x55})},
                    {u"SSID", u"Renamed"}});
  EXPECT_TRUE(take().empty());
  EXPECT_EQ(observer->currentStatus(), joined);
}

TEST_F(AirportObserverTest, RoamingWithinOneNetworkPostsConnectedAgain) {
  auto observer = start();
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Office"}});
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", C}, {u"SSID", u"Office"}});
  EXPECT_EQ(take(), (std::vector<std::string>{"AirportConnectedNotification:Office",
                                              "AirportConnectedNotification:Office"}));
}

TEST_F(AirportObserverTest, NotJoinedWhileNothingIsKnownIsSwallowed) {
  auto observer = start();
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", A}, {u"SSID", u"Home"}});
  EXPECT_TRUE(take().empty());
  EXPECT_TRUE(observer->currentStatus().isNil());

  report(Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}});
  EXPECT_EQ(take(), std::vector<std::string>{"AirportConnectedNotification:Home"});
  observer->sleep();
  EXPECT_TRUE(observer->currentStatus().isNil());
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", B}, {u"SSID", u"Home"}});
  EXPECT_TRUE(take().empty()) << "after sleep a not-joined report is swallowed";
  EXPECT_TRUE(observer->currentStatus().isNil());
}

TEST_F(AirportObserverTest, AfterSleepTheSameAccessPointPostsConnected) {
  auto observer = start();
  Dictionary joined{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}};
  report(joined);
  take();
  observer->sleep();
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}, {u"Seq", 2}});
  EXPECT_EQ(take(), std::vector<std::string>{"AirportConnectedNotification:Home"});
}

TEST_F(AirportObserverTest, MissingStatusCountsAsJoinedAndARemovedKeyForgetsTheState) {
  store->setValue(kKey, Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}});
  auto observer = start();
  EXPECT_FALSE(observer->currentStatus().isNil()) << "state read at creation";
  EXPECT_TRUE(posted.empty()) << "creation posts nothing";
  report(Dictionary{{u"BSSID", B}, {u"SSID", u"Cafe"}});
  EXPECT_EQ(take(), std::vector<std::string>{"AirportConnectedNotification:Cafe"});
  store->removeValue(kKey);
  deliver();
  EXPECT_TRUE(take().empty());
  EXPECT_TRUE(observer->currentStatus().isNil());
}

TEST_F(AirportObserverTest, ObserversOfOneBatchPostInTheOrderOfTheKeysFirstChange) {
  store->setValue(u"Setup:/Network/Service/eth0/Interface", Dictionary{{u"DeviceName", u"eth0"}});
  auto wrapper = makeWrapper();
  auto airport = AirportObserver::initWithService(u"wlan0", wrapper);
  auto ethernet = EthernetObserver::initWithService(u"eth0", wrapper, nullptr);
  store->setValue(kKey, Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}});
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", true}});
  deliver();
  EXPECT_EQ(takeNames(), (std::vector<std::string>{"AirportConnectedNotification", "EthernetActivatedNotification"}));
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", false}});
  store->setValue(kKey, Dictionary{{u"Link Status", 1}, {u"BSSID", B}});
  deliver();
  EXPECT_EQ(takeNames(),
            (std::vector<std::string>{"EthernetDeactivatedNotification", "AirportDisconnectedNotification"}));
}

TEST_F(AirportObserverTest, JoinedWithoutSsidAndAnSsidThatIsNotText) {
  auto observer = start();
  // Joined, but no SSID: accepted, nothing posted; leaving it then names nothing either.
  Dictionary hidden{{u"Link Status", 4}, {u"BSSID", A}};
  report(hidden);
  EXPECT_TRUE(posted.empty());
  EXPECT_EQ(observer->currentStatus(), hidden);
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", B}});
  EXPECT_TRUE(posted.empty());
  // An SSID of raw bytes (not UTF-8) is passed on as the stored object, both ways.
  const Data raw{0xC3, 0x28, 0xFF};
  report(Dictionary{{u"Link Status", 4}, {u"BSSID", C}, {u"SSID", raw}});
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].name, "AirportConnectedNotification");
  EXPECT_EQ(posted[0].userInfo.objectForKey(u"SSID"), Value(raw));
  posted.clear();
  report(Dictionary{{u"Link Status", 1}, {u"BSSID", A}});
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].name, "AirportDisconnectedNotification");
  EXPECT_EQ(posted[0].userInfo.objectForKey(u"SSID"), Value(raw));
}
