#include "tq/network/airport_observer.h"

#include <gtest/gtest.h>

#include <optional>

#include "network/store_fixture.h"
#include "tq/network/ethernet_observer.h"

using namespace tq;
using tq::test::StoreFixture;

namespace {

const String kKey = u"State:/Network/Interface/wlan0/AirPort";
const Data A{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const Data B{0x00, 0x11, 0x22, 0x33, 0x44, 0x66};
const Data C{0x00, 0x11, 0x22, 0x33, 0x44, 0x77};
const Data kRaw{0xC3, 0x28, 0xFF};  // an SSID that is not UTF-8
const Dictionary kNil;

// One step of a script: a report of the AirPort key's value (nil: the key removed), or the
// observer put to sleep; then the notifications it must post ("name:SSID") and, where given, the
// state it must hold.
struct Step {
  Dictionary report;
  std::vector<std::string> posts = {};
  std::optional<Dictionary> status = std::nullopt;
  bool sleep = false;
};
Step sleep(std::optional<Dictionary> status = std::nullopt) { return {kNil, {}, status, true}; }

struct Script {
  const char* name;
  Dictionary before;  // the key's value when the observer is made
  std::vector<Step> steps;
};

}  // namespace

class AirportObserverTest : public StoreFixture {
 protected:
  // name:SSID of each notification since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> out;
    for (const auto& p : posted) {
      EXPECT_FALSE(p.hasSender);
      EXPECT_EQ(p.userInfo.count(), 1u);
      Value ssid = p.userInfo.objectForKey(u"SSID");
      out.push_back(p.name + ":" + (ssid == Value(kRaw) ? "raw" : ssid.stringValue().UTF8String()));
    }
    posted.clear();
    return out;
  }
};

TEST_F(AirportObserverTest, ScriptsOfReports) {
  const Dictionary homeA{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}};
  const std::string connected = "AirportConnectedNotification:", disconnected = "AirportDisconnectedNotification:";
  const Script scripts[] = {
      {"join, leave, and a state without SSID accepted",
       kNil,
       {{homeA, {connected + "Home"}},
        {Dictionary{{u"Link Status", 1}, {u"BSSID", B}}, {disconnected + "Home"}},  // names the network left
        {Dictionary{{u"Link Status", 1}}, {}, Dictionary{{u"Link Status", 1}}}}},
      // The BSSID is compared before the status is looked at; equal bytes in a new buffer are the
      // same access point.
      {"the same BSSID is ignored",
       kNil,
       {{homeA, {connected + "Home"}},
        {Dictionary{{u"Link Status", 1}, {u"BSSID", A}, {u"SSID", u"Home"}}, {}, homeA},
        {Dictionary{{u"Link Status", 4}, {u"BSSID", Data::withVector({0x00, 0x11, 0x22, 0x33, 0x44, 0x55})},
                    {u"SSID", u"Renamed"}},
         {},
         homeA}}},
      {"not joined while nothing is known is swallowed, after sleep too",
       kNil,
       {{Dictionary{{u"Link Status", 1}, {u"BSSID", A}, {u"SSID", u"Home"}}, {}, kNil},
        {homeA, {connected + "Home"}},
        sleep(kNil),
        {Dictionary{{u"Link Status", 1}, {u"BSSID", B}, {u"SSID", u"Home"}}, {}, kNil}}},
      {"after sleep the same access point posts connected",
       kNil,
       {{homeA, {connected + "Home"}},
        sleep(),
        {Dictionary{{u"Link Status", 4}, {u"BSSID", A}, {u"SSID", u"Home"}, {u"Seq", 2}}, {connected + "Home"}}}},
      // The state is read at creation, which posts nothing; a removed key forgets it silently.
      {"a missing status counts as joined",
       homeA,
       {{Dictionary{{u"BSSID", B}, {u"SSID", u"Cafe"}}, {connected + "Cafe"}}, {kNil, {}, kNil}}},
      // Joined without SSID: accepted, nothing posted, and leaving it names nothing either. An SSID
      // of raw bytes is passed on as the stored object, both ways.
      {"joined without SSID, and an SSID that is not text",
       kNil,
       {{Dictionary{{u"Link Status", 4}, {u"BSSID", A}}, {}, Dictionary{{u"Link Status", 4}, {u"BSSID", A}}},
        {Dictionary{{u"Link Status", 1}, {u"BSSID", B}}, {}},
        {Dictionary{{u"Link Status", 4}, {u"BSSID", C}, {u"SSID", kRaw}}, {connected + "raw"}},
        {Dictionary{{u"Link Status", 1}, {u"BSSID", A}}, {disconnected + "raw"}}}},
  };
  // Each script on an interface of its own: observers outlive the host's references.
  int n = 0;
  for (const Script& script : scripts) {
    SCOPED_TRACE(script.name);
    const String name = String::fromUTF8("wlan" + std::to_string(n++));
    const String key = String::fromUTF8("State:/Network/Interface/" + name.UTF8String() + "/AirPort");
    if (!script.before.isNil()) store->setValue(key, script.before);
    auto observer = AirportObserver::initWithService(name, makeWrapper());
    EXPECT_EQ(observer->dynStore()->watchedKeys(), std::vector<String>{key});
    EXPECT_TRUE(observer->interface().isNil());
    EXPECT_EQ(observer->currentStatus(), script.before);
    for (std::size_t i = 0; i < script.steps.size(); ++i) {
      const Step& step = script.steps[i];
      SCOPED_TRACE("step " + std::to_string(i));
      if (step.sleep) {
        observer->sleep();
      } else {
        if (step.report.isNil()) store->removeValue(key);
        else store->setValue(key, step.report);
        deliver();
      }
      EXPECT_EQ(take(), step.posts);
      if (step.status) {
        EXPECT_EQ(observer->currentStatus(), *step.status);
      }
    }
  }
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
