#include "tq/platform/store/linux_network_store.h"

#include <gtest/gtest.h>

#include <set>

#include "support/fake_wireless.h"
#include "support/net_namespace.h"

using namespace tq;
using namespace std::chrono_literals;

namespace {

String S(const std::string& s) { return String::fromUTF8(s); }
String linkKey(const std::string& n) { return S("State:/Network/Interface/" + n + "/Link"); }
String setupKey(const std::string& n) { return S("Setup:/Network/Service/" + n + "/Interface"); }
String airportKey(const std::string& n) { return S("State:/Network/Interface/" + n + "/AirPort"); }
// A veth pair whose far end ("p" + name) is up, so that the near end has carrier when up.
int makeLink(test::NetlinkRequests& nl, const std::string& name) {
  int rc = nl.createVeth(name, "p" + name);
  return rc ? rc : nl.setUp("p" + name, true);
}


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

  test::NetNamespace ns_;
  test::NetlinkRequests nl;
  RunLoop loop = RunLoop::current();
  std::shared_ptr<LinuxNetworkStore> store;
  std::vector<std::vector<std::string>> batches;
};

}  // namespace

// The keys and values themselves are checked against the kernel's dumps by the differential test;
// here, what is asked of a store that has no answer.
TEST_F(LinuxNetworkStoreTest, KeysNoStoreHoldsAndPatterns) {
  open();
  EXPECT_TRUE(store->copyValue(airportKey("lo")).isNil());
  EXPECT_TRUE(store->copyValue(String()).isNil());
  EXPECT_EQ(strings(store->copyKeyList(u"State:/Network/Interface/[^/]+/Link")),
            std::vector<std::string>{"State:/Network/Interface/lo/Link"});
  EXPECT_TRUE(store->copyKeyList(u"Link").strings().empty()) << "patterns match whole keys";
  EXPECT_TRUE(store->copyKeyList(u"(").isNil()) << "a pattern that does not compile";
  EXPECT_FALSE(store->setNotificationKeys(Array(), Array{Value(String(u"["))}));
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
  nl.setWaiting(false);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(nl.setUp("d" + std::to_string(i), false), 0);
  ASSERT_EQ(nl.drain(), 0);
  nl.setWaiting(true);
  ASSERT_EQ(nl.rename("d1", "x1"), 0);  // there and back: no net change for these keys
  ASSERT_EQ(nl.rename("x1", "d1"), 0);
  ASSERT_TRUE(runUntil([&] { return !batches.empty(); }));
  settle();
  // Each key once, in the order each first changed.
  std::vector<std::string> expected;
  for (int i = 0; i < 20; ++i) expected.push_back("State:/Network/Interface/d" + std::to_string(i) + "/Link");
  EXPECT_EQ(batches, std::vector<std::vector<std::string>>{expected});
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

// Joins, roams and departures of a real station are the Wi-Fi scenario's; here, the SSIDs and type
// changes it never meets.
TEST_F(LinuxNetworkStoreTest, WirelessStateFromTheSuppliedSource) {
  ASSERT_EQ(makeLink(nl, "wl0"), 0);
  auto wireless = std::make_shared<FakeWireless>();
  int index = static_cast<int>(test::linkIndex("wl0"));
  Data bssid{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}, raw = Data::withString("\xff\xfe-net");
  wireless->states[index] = {true, bssid, raw};
  auto options = defaultOptions();
  options.wireless = wireless;
  open(options);
  auto ssid = [&] { return store->copyValue(airportKey("wl0")).dictionaryValue().objectForKey(u"SSID"); };
  EXPECT_EQ(ssid().dataValue(), raw) << "bytes that are not UTF-8 stay bytes";

  wireless->states[index] = {true, bssid, Data::withString("Caf\xc3\xa9")};
  wireless->announce(index);
  ASSERT_TRUE(runUntil([&] { return ssid().stringValue() == String(u"Caf\u00e9"); }));
  settle();
  EXPECT_TRUE(allChanged().count("State:/Network/Interface/wl0/AirPort"));

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
