#include "tq/network/sc_dynamic_store.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "network/store_fixture.h"
#include "support/test_paths.h"
#include "tq/platform/bundle/bundle.h"

using namespace tq;
using tq::test::StoreFixture;

namespace {

// A target that records each call as "TAG:KEY".
struct Recorder {
  std::vector<std::string>* log;
  std::string tag;
  void changed(const String& key) { log->push_back(tag + ":" + key.UTF8String()); }
};

// This program's main bundle: a folder whose Info.plist names it, set before any wrapper is made.
class MainBundleEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    ASSERT_TRUE(Bundle::setMainBundlePath(String::fromUTF8((tq::test::dataDir() / "network/Store").string())));
  }
};
const auto* const mainBundleEnvironment = ::testing::AddGlobalTestEnvironment(new MainBundleEnvironment);

}  // namespace

class Dispatch : public StoreFixture {
 protected:
  std::vector<std::string> log;
  std::shared_ptr<Recorder> recorder(std::string tag) { return std::make_shared<Recorder>(Recorder{&log, tag}); }
};

TEST_F(Dispatch, ThreeKeysInOneBatchGoKeyByKeyThenInRegistrationOrderDuplicatesTwice) {
  auto wrapper = makeWrapper();
  auto a = recorder("a"), b = recorder("b"), c = recorder("c");
  wrapper->addObserver(a, &Recorder::changed, u"K2");
  wrapper->addObserver(b, &Recorder::changed, u"K1");
  wrapper->addObserver(c, &Recorder::changed, u"K2");
  wrapper->addObserver(a, &Recorder::changed, u"K3");
  wrapper->addObserver(b, &Recorder::changed, u"K2");
  wrapper->addObserver(a, &Recorder::changed, u"K3");  // registered twice: called twice

  // First changes in the order K1, K3, K2; K1 changes twice but is reported once.
  store->setValue(u"K1", Dictionary{{u"v", 1}});
  store->setValue(u"K3", Dictionary{{u"v", 1}});
  store->setValue(u"K1", Dictionary{{u"v", 2}});
  store->setValue(u"K2", Dictionary{{u"v", 1}});
  store->setValue(u"Unwatched", Dictionary{{u"v", 1}});
  EXPECT_TRUE(log.empty()) << "nothing is delivered before the loop runs";
  deliver();
  EXPECT_EQ(log, (std::vector<std::string>{"b:K1", "a:K3", "a:K3", "a:K2", "c:K2", "b:K2"}));
  EXPECT_EQ(wrapper->watchedKeys(), (std::vector<String>{u"K2", u"K1", u"K3"}));

  // Called directly, or through the store's callout: keys without registrations are ignored.
  log.clear();
  wrapper->notificationOfChangedKeys(Array{String(u"X"), String(u"K1"), String(u"K1")});
  scCallback(*wrapper->connection(), Array{String(u"K1")}, wrapper.get());
  EXPECT_EQ(log, (std::vector<std::string>{"b:K1", "b:K1", "b:K1"}));
}

TEST_F(Dispatch, TargetRegisteringDuringDispatchIsCalledFromTheNextChange) {
  auto wrapper = makeWrapper();
  struct Adder {
    SCDynamicStore* wrapper;
    std::shared_ptr<Recorder> late;
    void changed(const String& key) {
      if (late) wrapper->addObserver(std::exchange(late, nullptr), &Recorder::changed, key);
    }
  };
  auto adder = std::make_shared<Adder>(Adder{wrapper.get(), recorder("late")});
  wrapper->addObserver(adder, &Adder::changed, u"K");
  store->setValue(u"K", 1);
  deliver();
  EXPECT_TRUE(log.empty());
  store->setValue(u"K", 2);
  deliver();
  EXPECT_EQ(log, std::vector<std::string>{"late:K"});
}

class Registration : public Dispatch {};

TEST_F(Registration, PatternIsExpandedOnceAtRegistrationAndKeysAppearingLaterAreNotWatched) {
  auto wrapper = makeWrapper();
  store->setValue(u"State:/Network/Interface/eth1/Link", Dictionary{{u"Active", false}});
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", false}});
  store->setValue(u"State:/Network/Interface/eth0/IPv4", Dictionary::empty());
  auto a = recorder("a");
  wrapper->addObserverForKeyPattern(a, &Recorder::changed, u"State:/.*/AirPort");
  EXPECT_TRUE(wrapper->watchedKeys().empty()) << "a pattern matching nothing registers nothing";
  wrapper->addObserverForKeyPattern(a, &Recorder::changed, u"State:/Network/Interface/[^/]+/Link");
  // One key per match, in the store's order.
  EXPECT_EQ(wrapper->watchedKeys(),
            (std::vector<String>{u"State:/Network/Interface/eth0/Link", u"State:/Network/Interface/eth1/Link"}));

  // A key that appears later and would match is not watched.
  store->setValue(u"State:/Network/Interface/eth2/Link", Dictionary{{u"Active", true}});
  store->setValue(u"State:/Network/Interface/eth1/Link", Dictionary{{u"Active", true}});
  store->setValue(u"State:/Network/Interface/wlan0/AirPort", Dictionary{{u"Link Status", 4}});
  deliver();
  EXPECT_EQ(log, std::vector<std::string>{"a:State:/Network/Interface/eth1/Link"});
}

TEST_F(Registration, WithoutConnectionEverythingReportsNothingAndTheConnectionIsNamedAfterTheMainBundle) {
  String name;
  auto named = std::make_shared<SCDynamicStore>([&](const String& n, StoreConnection::Callout callout) {
    name = n;
    return store->createConnection(n, std::move(callout));
  });
  EXPECT_EQ(name, String(u"org.tqkit.tests.store"));
  auto wrapper = std::make_shared<SCDynamicStore>(StoreConnectionFactory());
  wrapper->addObserver(recorder("a"), &Recorder::changed, u"K");
  EXPECT_TRUE(wrapper->valueForKey(u"K").isNil());
  EXPECT_TRUE(wrapper->keysForPattern(u".*").isNil());
  EXPECT_EQ(wrapper->connection(), nullptr);
}

TEST_F(Registration, DefaultWrapperReadsTheKernelsNetworkState) {
  auto wrapper = std::make_shared<SCDynamicStore>();
  // Every network namespace has the loopback interface.
  Array names = wrapper->valueForKey(u"State:/Network/Interface").dictionaryValue().objectForKey(u"Interfaces").arrayValue();
  EXPECT_TRUE(names.containsObject(Value(u"lo"))) << "the default wrapper is not on the kernel store";
}

class Lifetime : public Dispatch {};

// The record holds the target; an observer holding its wrapper would close the cycle. Here the
// target holds nothing, so the host's last wrapper reference takes the wrapper, the record and the
// target; the source leaves the loop with the connection, torn down on its own loop or another.
TEST_F(Lifetime, TheHostsLastReferenceTearsDownTheWrapper) {
  for (bool elsewhere : {false, true}) {
    SCOPED_TRACE(elsewhere ? "on another loop" : "on its own loop");
    auto wrapper = makeWrapper();
    auto kept = recorder("kept");
    wrapper->addObserver(kept, &Recorder::changed, u"K");
    std::weak_ptr<Recorder> target = std::exchange(kept, nullptr);
    std::weak_ptr<StoreConnection> connection = wrapper->connection();
    auto source = wrapper->connection()->runLoopSource();
    EXPECT_EQ(g_source_get_context(source->gsource()), RunLoop::current().context());
    const SCDynamicStore* raw = wrapper.get();
    GMainContext* other = g_main_context_new();
    if (elsewhere) g_main_context_push_thread_default(other);
    wrapper.reset();
    if (elsewhere) g_main_context_pop_thread_default(other);
    g_main_context_unref(other);
    EXPECT_TRUE(connection.expired());
    EXPECT_TRUE(target.expired());
    EXPECT_FALSE(source->isScheduled());
    auto live = SCDynamicStore::liveWrappers();
    EXPECT_EQ(std::find(live.begin(), live.end(), raw), live.end());
  }
}

TEST(SimpleObserverRecord, InvokeWithObjectReturnsWhatTheTargetsMethodReturns) {
  struct Target {
    int calls = 0;
    String echo(const String& key) { return ++calls, key.stringByAppendingString(u"!"); }
    bool yes(const String&) { return true; }
    void nothing(const String&) { ++calls; }
  };
  auto target = std::make_shared<Target>();
  EXPECT_EQ(SimpleObserver::observer(target, &Target::echo)->invokeWithObject(u"k"), Value(String(u"k!")));
  EXPECT_EQ(SimpleObserver::observer(target, &Target::yes)->invokeWithObject(u"k"), Value(true));
  EXPECT_TRUE(SimpleObserver::observer(target, &Target::nothing)->invokeWithObject(u"k").isNil());
  EXPECT_EQ(target->calls, 2);
  EXPECT_TRUE(SimpleObserver::observer(std::shared_ptr<Target>(), &Target::echo)->invokeWithObject(u"k").isNil());
}
