#include "tq/platform/store/linux_network_store.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <set>

#include "support/fake_wireless.h"
#include "support/net_namespace.h"

using namespace tq;
using namespace std::chrono_literals;

namespace {

String S(const std::string& s) { return String::fromUTF8(s); }
String linkKey(const std::string& n) { return S("State:/Network/Interface/" + n + "/Link"); }
String ipv4Key(const std::string& n) { return S("State:/Network/Interface/" + n + "/IPv4"); }
String setupKey(const std::string& n) { return S("Setup:/Network/Service/" + n + "/Interface"); }
String airportKey(const std::string& n) { return S("State:/Network/Interface/" + n + "/AirPort"); }
// A veth pair whose far end ("p" + name) is up, so that the near end has carrier when up.
int makeLink(test::NetlinkRequests& nl, const std::string& name) {
  int rc = nl.createVeth(name, "p" + name);
  return rc ? rc : nl.setUp("p" + name, true);
}

const String kGlobal = u"State:/Network/Global/IPv4";
const String kList = u"State:/Network/Interface";

std::vector<std::string> strings(const Array& a) {
  std::vector<std::string> out;
  for (const String& s : a.strings()) out.push_back(s.UTF8String());
  return out;
}

using test::FakeWireless;

class LinuxNetworkStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!ns_.ok()) GTEST_SKIP() << "needs a fresh network namespace: " << ns_.reason();
  }
  void TearDown() override {
    if (store) loop.removeSource(store->runLoopSource());
  }

  void open(LinuxNetworkStore::Options options = defaultOptions()) {
    store = LinuxNetworkStore::create(u"test", [this](StoreConnection&, const Array& keys) {
      batches.push_back(strings(keys));
    }, options);
    ASSERT_TRUE(store);
    loop.addSource(store->runLoopSource());
    store->setNotificationKeys(Array(), Array{Value(String(u".*"))});
  }
  static LinuxNetworkStore::Options defaultOptions() {
    LinuxNetworkStore::Options o;
    o.useSystemWireless = false;
    return o;
  }

  // Runs the loop until `done` holds or two seconds pass.
  template <class F>
  bool runUntil(F done) {
    auto deadline = std::chrono::steady_clock::now() + 2s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      loop.runFor(5ms);
    }
    return true;
  }
  // Runs the loop until nothing new is delivered for a while.
  void settle() {
    std::size_t seen;
    do {
      seen = batches.size();
      loop.runFor(30ms);
    } while (batches.size() != seen);
  }
  bool active(const std::string& n) { return store->copyValue(linkKey(n)).dictionaryValue().objectForKey(u"Active").boolValue(); }
  std::set<std::string> allChanged() const {
    std::set<std::string> out;
    for (auto& b : batches) out.insert(b.begin(), b.end());
    return out;
  }
  String primary() {
    return store->copyValue(kGlobal).dictionaryValue().objectForKey(u"PrimaryInterface").stringValue();
  }

  test::NetNamespace ns_;
  test::NetlinkRequests nl;
  RunLoop loop = RunLoop::current();
  std::shared_ptr<LinuxNetworkStore> store;
  std::vector<std::vector<std::string>> batches;
};

}  // namespace

TEST_F(LinuxNetworkStoreTest, StartsFromTheNamespacesState) {
  open();
  EXPECT_EQ(strings(store->copyValue(kList).dictionaryValue().objectForKey(u"Interfaces").arrayValue()),
            std::vector<std::string>{"lo"});
  auto setup = store->copyValue(setupKey("lo")).dictionaryValue();
  EXPECT_EQ(setup.objectForKey(u"DeviceName").stringValue().UTF8String(), "lo");
  EXPECT_EQ(setup.objectForKey(u"Type").stringValue().UTF8String(), "Loopback");
  EXPECT_FALSE(store->copyValue(linkKey("lo")).isNil());
  EXPECT_FALSE(active("lo")) << "lo starts down in a new namespace";
  EXPECT_TRUE(store->copyValue(ipv4Key("lo")).isNil()) << "no address yet";
  EXPECT_TRUE(store->copyValue(kGlobal).isNil());
  EXPECT_TRUE(store->copyValue(airportKey("lo")).isNil());
  EXPECT_TRUE(store->copyValue(String()).isNil());

  EXPECT_EQ(strings(store->copyKeyList(u".*")),
            (std::vector<std::string>{"Setup:/Network/Service/lo/Interface", "State:/Network/Interface",
                                      "State:/Network/Interface/lo/Link"}));
  EXPECT_EQ(strings(store->copyKeyList(u"State:/Network/Interface/[^/]+/Link")),
            std::vector<std::string>{"State:/Network/Interface/lo/Link"});
  EXPECT_TRUE(store->copyKeyList(u"Link").strings().empty()) << "patterns match whole keys";
  EXPECT_TRUE(store->copyKeyList(u"(").isNil()) << "a pattern that does not compile";
  EXPECT_FALSE(store->setNotificationKeys(Array(), Array{Value(String(u"["))}));

  ASSERT_EQ(nl.setUp("lo", true), 0);
  ASSERT_TRUE(runUntil([&] { return active("lo"); }));
  ASSERT_TRUE(runUntil([&] { return !store->copyValue(ipv4Key("lo")).isNil(); })) << "the kernel gives lo 127.0.0.1";
  EXPECT_EQ(strings(store->copyValue(ipv4Key("lo")).dictionaryValue().objectForKey(u"Addresses").arrayValue()),
            std::vector<std::string>{"127.0.0.1"});
}

TEST_F(LinuxNetworkStoreTest, CarrierFollowsTheVethPeer) {
  ASSERT_EQ(nl.createVeth("va", "vb"), 0);
  open();
  EXPECT_EQ(store->copyValue(setupKey("va")).dictionaryValue().objectForKey(u"Type").stringValue().UTF8String(),
            "Ethernet");
  EXPECT_FALSE(active("va"));

  ASSERT_EQ(nl.setUp("va", true), 0);
  settle();
  EXPECT_FALSE(active("va")) << "up without carrier: the peer is down";
  batches.clear();

  ASSERT_EQ(nl.setUp("vb", true), 0);
  ASSERT_TRUE(runUntil([&] { return active("va") && active("vb"); }));
  settle();  // values change before their batch, which may wait for the window
  EXPECT_TRUE(allChanged().count("State:/Network/Interface/va/Link"));
  EXPECT_TRUE(allChanged().count("State:/Network/Interface/vb/Link"));
  EXPECT_FALSE(allChanged().count("Setup:/Network/Service/va/Interface")) << "only keys whose values changed";

  batches.clear();
  ASSERT_EQ(nl.setUp("vb", false), 0);
  ASSERT_TRUE(runUntil([&] { return !active("va"); })) << "the peer going down drops the carrier";
  settle();
  EXPECT_FALSE(active("vb"));
  EXPECT_TRUE(allChanged().count("State:/Network/Interface/va/Link"));
}

TEST_F(LinuxNetworkStoreTest, AddressesInKernelOrderAndPrimaryFromDefaultRoute) {
  ASSERT_EQ(nl.createVeth("va", "vb"), 0);
  ASSERT_EQ(nl.createVeth("wa", "wb"), 0);
  for (auto n : {"va", "vb", "wa", "wb"}) ASSERT_EQ(nl.setUp(n, true), 0);
  open();
  ASSERT_TRUE(runUntil([&] { return active("va") && active("wa"); }));

  ASSERT_EQ(nl.addAddress("va", "10.0.0.2", 24, "10.0.0.255"), 0);
  ASSERT_EQ(nl.addAddress("va", "10.0.0.3", 24, "10.0.0.255"), 0);  // a secondary of the first
  ASSERT_EQ(nl.addAddress("va", "192.168.7.9", 16, "192.168.255.255"), 0);
  ASSERT_TRUE(runUntil([&] {
    return store->copyValue(ipv4Key("va")).dictionaryValue().objectForKey(u"Addresses").arrayValue().count() == 3;
  }));
  auto ipv4 = store->copyValue(ipv4Key("va")).dictionaryValue();
  EXPECT_EQ(strings(ipv4.objectForKey(u"Addresses").arrayValue()),
            (std::vector<std::string>{"10.0.0.2", "192.168.7.9", "10.0.0.3"})) << "primaries first";
  EXPECT_EQ(strings(ipv4.objectForKey(u"SubnetMasks").arrayValue()),
            (std::vector<std::string>{"255.255.255.0", "255.255.0.0", "255.255.255.0"}));
  EXPECT_EQ(strings(ipv4.objectForKey(u"BroadcastAddresses").arrayValue()),
            (std::vector<std::string>{"10.0.0.255", "192.168.255.255", "10.0.0.255"}));

  ASSERT_EQ(nl.addAddress("wa", "10.1.0.2", 24), 0);  // no broadcast address
  ASSERT_TRUE(runUntil([&] { return !store->copyValue(ipv4Key("wa")).isNil(); }));
  EXPECT_TRUE(store->copyValue(ipv4Key("wa")).dictionaryValue().objectForKey(u"BroadcastAddresses").isNil());

  // Deleting the primary promotes the secondary, and the store keeps the kernel's new order.
  ASSERT_TRUE(test::setSysctl("net/ipv4/conf/va/promote_secondaries", "1"));
  ASSERT_EQ(nl.deleteAddress("va", "10.0.0.2", 24), 0);
  ASSERT_TRUE(runUntil([&] {
    return store->copyValue(ipv4Key("va")).dictionaryValue().objectForKey(u"Addresses").arrayValue().count() == 2;
  }));
  auto fresh = LinuxNetworkStore::create(u"fresh", nullptr, defaultOptions());
  EXPECT_EQ(store->copyValue(ipv4Key("va")), fresh->copyValue(ipv4Key("va")));

  batches.clear();
  ASSERT_EQ(nl.addDefaultRoute("va", "10.0.0.1", 200), 0);
  ASSERT_TRUE(runUntil([&] { return primary().UTF8String() == "va"; }));
  auto global = store->copyValue(kGlobal).dictionaryValue();
  EXPECT_EQ(global.objectForKey(u"Router").stringValue().UTF8String(), "10.0.0.1");
  EXPECT_EQ(global.objectForKey(u"PrimaryService").stringValue().UTF8String(), "va");
  settle();
  EXPECT_TRUE(allChanged().count("State:/Network/Global/IPv4"));

  ASSERT_EQ(nl.addDefaultRoute("wa", "", 100), 0);  // a device route of lower metric
  ASSERT_TRUE(runUntil([&] { return primary().UTF8String() == "wa"; }));
  EXPECT_TRUE(store->copyValue(kGlobal).dictionaryValue().objectForKey(u"Router").isNil());

  ASSERT_EQ(nl.setUp("wb", false), 0);  // carrier gone on wa: its route no longer qualifies
  ASSERT_TRUE(runUntil([&] { return primary().UTF8String() == "va"; }));
  ASSERT_EQ(nl.setUp("wb", true), 0);
  ASSERT_TRUE(runUntil([&] { return primary().UTF8String() == "wa"; }));

  ASSERT_EQ(nl.setUp("wa", false), 0);  // the kernel drops wa's routes without a word
  ASSERT_TRUE(runUntil([&] { return primary().UTF8String() == "va"; }));
  ASSERT_EQ(nl.setUp("wa", true), 0);
  settle();
  EXPECT_EQ(primary().UTF8String(), "va") << "the dropped route does not come back";

  ASSERT_EQ(nl.deleteAddress("va", "192.168.7.9", 16), 0);
  ASSERT_EQ(nl.deleteAddress("va", "10.0.0.3", 24), 0);  // the gateway's subnet goes, and the route
  ASSERT_TRUE(runUntil([&] { return store->copyValue(kGlobal).isNil(); }));
  EXPECT_TRUE(store->copyValue(ipv4Key("va")).isNil());
}

TEST_F(LinuxNetworkStoreTest, FollowsRenamesRemovalsAndRecreations) {
  ASSERT_EQ(nl.createVeth("va", "vb"), 0);
  open();
  unsigned first = test::linkIndex("va");
  batches.clear();

  ASSERT_EQ(nl.rename("va", "wan0"), 0);
  ASSERT_TRUE(runUntil([&] { return !store->copyValue(linkKey("wan0")).isNil(); }));
  EXPECT_TRUE(store->copyValue(linkKey("va")).isNil());
  EXPECT_TRUE(store->copyValue(setupKey("va")).isNil());
  settle();
  EXPECT_EQ(store->copyValue(setupKey("wan0")).dictionaryValue().objectForKey(u"DeviceName").stringValue().UTF8String(),
            "wan0");
  auto changed = allChanged();
  for (auto k : {"State:/Network/Interface/va/Link", "Setup:/Network/Service/va/Interface",
                 "State:/Network/Interface/wan0/Link", "Setup:/Network/Service/wan0/Interface",
                 "State:/Network/Interface"})
    EXPECT_TRUE(changed.count(k)) << k;
  EXPECT_EQ(strings(store->copyValue(kList).dictionaryValue().objectForKey(u"Interfaces").arrayValue()),
            (std::vector<std::string>{"lo", "vb", "wan0"}))
      << "index order (a veth's peer is made first)";

  ASSERT_EQ(nl.deleteLink("wan0"), 0);  // takes vb with it
  ASSERT_TRUE(runUntil([&] { return store->copyValue(linkKey("wan0")).isNil() && store->copyValue(linkKey("vb")).isNil(); }));
  EXPECT_EQ(strings(store->copyValue(kList).dictionaryValue().objectForKey(u"Interfaces").arrayValue()),
            std::vector<std::string>{"lo"});

  ASSERT_EQ(nl.createVeth("vb", "va"), 0);  // the same names again, new indexes, roles swapped
  ASSERT_NE(test::linkIndex("va"), first);
  ASSERT_EQ(nl.setUp("va", true), 0);
  ASSERT_EQ(nl.setUp("vb", true), 0);
  ASSERT_TRUE(runUntil([&] { return active("va") && active("vb"); }));
}

TEST_F(LinuxNetworkStoreTest, OneBatchForMessagesReadTogether) {
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(makeLink(nl, "d" + std::to_string(i)), 0);
    ASSERT_EQ(nl.setUp("d" + std::to_string(i), true), 0);
  }
  open();
  ASSERT_TRUE(runUntil([&] { return active("d19"); }));
  settle();
  // Watch the near ends only: the far ends lose carrier later, when the kernel's link watcher runs.
  ASSERT_TRUE(store->setNotificationKeys(
      Array(), Array{Value(String(u"(State:/Network/Interface|Setup:/Network/Service)/[dx][0-9]+/(Link|Interface)"))}));
  batches.clear();
  for (int i = 0; i < 20; ++i) ASSERT_EQ(nl.setUpNoWait("d" + std::to_string(i), false), 0);
  ASSERT_EQ(nl.drain(), 0);
  ASSERT_EQ(nl.rename("d1", "x1"), 0);  // there and back: no net change for these keys
  ASSERT_EQ(nl.rename("x1", "d1"), 0);
  ASSERT_TRUE(runUntil([&] { return !batches.empty(); }));
  settle();
  ASSERT_EQ(batches.size(), 1u);
  std::set<std::string> keys(batches[0].begin(), batches[0].end());
  EXPECT_EQ(keys.size(), batches[0].size()) << "each key once";
  EXPECT_EQ(keys.size(), 20u);
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(keys.count("State:/Network/Interface/d" + std::to_string(i) + "/Link"));
}

TEST_F(LinuxNetworkStoreTest, OnlyWatchedKeysAreDelivered) {
  ASSERT_EQ(makeLink(nl, "d0"), 0);
  ASSERT_EQ(makeLink(nl, "d1"), 0);
  open();
  ASSERT_TRUE(store->setNotificationKeys(Array{Value(linkKey("d1"))}, Array{Value(String(u"Setup:.*"))}));
  ASSERT_EQ(nl.setUp("d0", true), 0);
  ASSERT_EQ(nl.setUp("d1", true), 0);
  ASSERT_EQ(nl.rename("d0", "e0"), 0);
  ASSERT_TRUE(runUntil([&] { return !store->copyValue(setupKey("e0")).isNil(); }));
  ASSERT_EQ(nl.setUp("pd0", false), 0);  // unwatched
  settle();
  auto changed = allChanged();
  EXPECT_EQ(changed, (std::set<std::string>{"State:/Network/Interface/d1/Link", "Setup:/Network/Service/d0/Interface",
                                            "Setup:/Network/Service/e0/Interface"}));
}

TEST_F(LinuxNetworkStoreTest, WirelessStateFromTheSuppliedSource) {
  ASSERT_EQ(makeLink(nl, "wl0"), 0);
  auto wireless = std::make_shared<FakeWireless>();
  int index = static_cast<int>(test::linkIndex("wl0"));
  wireless->states[index] = {};
  auto options = defaultOptions();
  options.wireless = wireless;
  open(options);
  EXPECT_EQ(store->copyValue(setupKey("wl0")).dictionaryValue().objectForKey(u"Type").stringValue().UTF8String(),
            "IEEE80211");
  EXPECT_EQ(store->copyValue(airportKey("wl0")), Value(Dictionary{{u"Link Status", Value(1)}}));

  Data bssid{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  wireless->states[index] = {true, bssid, Data::withString("Caf\xc3\xa9")};
  wireless->announce(index);
  ASSERT_TRUE(runUntil([&] { return store->copyValue(airportKey("wl0")).dictionaryValue().count() == 3; }));
  auto airport = store->copyValue(airportKey("wl0")).dictionaryValue();
  EXPECT_EQ(airport.objectForKey(u"Link Status").integerValue(), 4);
  EXPECT_EQ(airport.objectForKey(u"BSSID").dataValue(), bssid);
  EXPECT_EQ(airport.objectForKey(u"SSID").stringValue(), String(u"Caf\u00e9"));
  settle();
  EXPECT_TRUE(allChanged().count("State:/Network/Interface/wl0/AirPort"));

  Data raw = Data::withString("\xff\xfe-net");
  wireless->states[index] = {true, bssid, raw};
  wireless->announce(index);
  ASSERT_TRUE(runUntil([&] { return !store->copyValue(airportKey("wl0")).dictionaryValue().objectForKey(u"SSID").dataValue().isNil(); }));
  EXPECT_EQ(store->copyValue(airportKey("wl0")).dictionaryValue().objectForKey(u"SSID").dataValue(), raw)
      << "bytes that are not UTF-8 stay bytes";

  batches.clear();
  wireless->announce(index);  // nothing changed
  loop.runFor(30ms);
  EXPECT_TRUE(batches.empty());

  wireless->states.erase(index);  // no longer wireless (the interface changed type)
  wireless->announce(index);
  ASSERT_TRUE(runUntil([&] { return store->copyValue(airportKey("wl0")).isNil(); }));
  EXPECT_EQ(store->copyValue(setupKey("wl0")).dictionaryValue().objectForKey(u"Type").stringValue().UTF8String(),
            "Ethernet");
}

// The kernel disconnects a wireless interface before it removes it, and the store reads both at
// once: watchers still see the departure (a batch of its own, read as not joined) before the removal.
TEST_F(LinuxNetworkStoreTest, AWirelessLinkThatGoesWhileJoinedLeavesItsNetworkFirst) {
  auto text = [](const Value& v) { return v.isNil() ? std::string("nil") : v.description().UTF8String(); };
  const Value notJoined = Dictionary{{u"Link Status", Value(1)}};
  struct Case {
    const char* name;
    bool joined;
    std::vector<Value> expected;  // the AirPort value read in each batch that names the key
  };
  const Case cases[] = {{"joined", true, {notJoined, Value()}}, {"not joined", false, {Value()}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(makeLink(nl, "wl0"), 0);
    int index = static_cast<int>(test::linkIndex("wl0"));
    auto wireless = std::make_shared<FakeWireless>();
    wireless->states[index] = {c.joined, Data{0, 0x11, 0x22, 0x33, 0x44, 0x55}, Data::withString("home")};
    auto options = defaultOptions();
    options.wireless = wireless;
    std::vector<std::string> seen;
    String key = airportKey("wl0");
    auto watcher = LinuxNetworkStore::create(u"test", [&](StoreConnection& s, const Array& keys) {
      for (const String& k : keys.strings())
        if (k == key) seen.push_back(text(s.copyValue(k)));
    }, options);
    ASSERT_TRUE(watcher);
    loop.addSource(watcher->runLoopSource());
    watcher->setNotificationKeys(Array{Value(key)}, Array());
    wireless->states.erase(index);
    ASSERT_EQ(nl.deleteLink("wl0"), 0);
    ASSERT_TRUE(runUntil([&] { return !seen.empty() && seen.back() == "nil"; }));
    loop.runFor(30ms);
    std::vector<std::string> expected;
    for (const Value& v : c.expected) expected.push_back(text(v));
    EXPECT_EQ(seen, expected);
    loop.removeSource(watcher->runLoopSource());
  }
}

TEST(LinuxNetworkStoreLifetime, SourceOutlivesTheStoreSafely) {
  TQ_ENTER_FRESH_NETNS(ns);
  test::NetlinkRequests nl;
  auto options = LinuxNetworkStore::Options{};
  options.useSystemWireless = false;
  auto store = LinuxNetworkStore::create(u"t", [](StoreConnection&, const Array&) {}, options);
  ASSERT_TRUE(store);
  auto source = store->runLoopSource();
  EXPECT_EQ(source, store->runLoopSource());
  RunLoop loop = RunLoop::current();
  loop.addSource(source);
  EXPECT_TRUE(source->isScheduled());
  store.reset();
  EXPECT_FALSE(source->isScheduled()) << "the store takes its source out of the loop";
  ASSERT_EQ(makeLink(nl, "d0"), 0);
  loop.runFor(20ms);  // nothing may touch the destroyed store
}
