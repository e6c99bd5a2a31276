#include "tq/platform/store/memory_store.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <thread>

using namespace tq;

namespace {

class MemoryStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    context_ = g_main_context_new();
    store = MemoryStore::create();
  }
  void TearDown() override { g_main_context_unref(context_); }

  // A connection whose batches are appended to `batches`, its source in this test's loop.
  std::shared_ptr<StoreConnection> connect(bool attach = true) {
    auto c = store->createConnection(u"test", [this](StoreConnection&, const Array& keys) {
      std::vector<std::string> batch;
      for (const String& k : keys.strings()) batch.push_back(k.UTF8String());
      batches.push_back(batch);
      if (stopOnDelivery) loop().stop();
    });
    if (attach) loop().addSource(c->runLoopSource());
    return c;
  }
  RunLoop loop() { return RunLoop(context_); }
  void deliver() {
    while (loop().runOnce(false)) {
    }
  }

  std::shared_ptr<MemoryStore> store;
  std::vector<std::vector<std::string>> batches;
  bool stopOnDelivery = false;

 private:
  GMainContext* context_ = nullptr;
};

using Batch = std::vector<std::string>;

}  // namespace

TEST_F(MemoryStoreTest, ValuesAndAnchoredKeyPatterns) {
  auto c = connect();
  store->setValue(u"State:/Network/Interface/eth0/Link", Dictionary{{u"Active", true}});
  store->setValue(u"State:/Network/Interface/eth0/IPv4", Dictionary::empty());
  store->setValue(u"Setup:/Network/Service/eth0/Interface", Dictionary{{u"DeviceName", u"eth0"}});
  EXPECT_EQ(c->copyValue(u"State:/Network/Interface/eth0/Link").dictionaryValue().objectForKey(u"Active"),
            Value(true));
  EXPECT_TRUE(c->copyValue(u"State:/Nothing").isNil());
  EXPECT_EQ(c->copyKeyList(u"State:/Network/Interface/[^/]+/(Link|IPv4)").strings(),
            (std::vector<String>{u"State:/Network/Interface/eth0/IPv4", u"State:/Network/Interface/eth0/Link"}));
  EXPECT_TRUE(c->copyKeyList(u"(unclosed").isNil());
  EXPECT_FALSE(c->setNotificationKeys(Array{}, Array{String(u"[bad")}));
}

TEST_F(MemoryStoreTest, ChangesBeforeTheLoopRunsArriveAsOneBatchInOrderOfFirstChange) {
  auto c = connect();
  c->setNotificationKeys(Array{String(u"A"), String(u"B"), String(u"C")}, Array());
  store->setValue(u"C", 1);
  store->setValue(u"A", 1);
  store->setValue(u"C", 2);
  store->setValue(u"B", 1);
  EXPECT_TRUE(batches.empty()) << "never delivered inside the call that changes the store";
  deliver();
  EXPECT_EQ(batches, std::vector<Batch>{(Batch{"C", "A", "B"})});
  store->setValue(u"A", 2);
  deliver();
  EXPECT_EQ(batches.back(), Batch{"A"});
  EXPECT_EQ(batches.size(), 2u);
}

TEST_F(MemoryStoreTest, OnlyRealChangesOfWatchedKeysAreReported) {
  auto c = connect();
  store->setValue(u"A", Dictionary{{u"x", 1}});
  store->setValue(u"Gone", 1);
  c->setNotificationKeys(Array{String(u"A"), String(u"Gone"), String(u"Absent")}, Array{String(u"P/[0-9]+")});
  store->setValue(u"A", Dictionary{{u"x", 1}});  // equal value
  store->setValue(u"A", Dictionary{{u"x", 1.0}});  // equal by number
  store->removeValue(u"Absent");                   // nothing to remove
  store->setValue(u"Other", 1);                    // not watched
  store->setValue(u"P/x", 1);                      // pattern does not match
  deliver();
  EXPECT_TRUE(batches.empty());
  store->removeValue(u"Gone");
  store->setValue(u"P/12", 1);
  store->setValue(u"A", Dictionary{{u"x", 2}});
  deliver();
  EXPECT_EQ(batches, std::vector<Batch>{(Batch{"Gone", "P/12", "A"})});
}

TEST_F(MemoryStoreTest, SetValuesAndRemoveAllReportEachChangedKey) {
  auto c = connect();
  c->setNotificationKeys(Array(), Array{String(u".*")});
  store->setValues({{u"B", 1}, {u"A", 1}, {u"B", Value()}});
  store->removeAllValues();
  deliver();
  EXPECT_EQ(batches, std::vector<Batch>{(Batch{"B", "A"})});
  EXPECT_TRUE(store->allKeys().empty());
}

TEST_F(MemoryStoreTest, ConnectionNotInALoopKeepsCollectingUntilAdded) {
  auto c = connect(false);
  c->setNotificationKeys(Array{String(u"A")}, Array());
  store->setValue(u"A", 1);
  deliver();
  EXPECT_TRUE(batches.empty());
  EXPECT_EQ(c->runLoopSource(), c->runLoopSource()) << "one source per connection";
  loop().addSource(c->runLoopSource());
  deliver();
  EXPECT_EQ(batches, std::vector<Batch>{Batch{"A"}});
}

TEST_F(MemoryStoreTest, ChangeFromAnotherThreadWakesTheLoop) {
  auto c = connect();
  c->setNotificationKeys(Array{String(u"A")}, Array());
  stopOnDelivery = true;
  std::thread writer([this] { store->setValue(u"A", 1); });
  // Stops as soon as the batch arrives; the deadline only guards against a hang.
  bool stopped = loop().runUntil(std::chrono::steady_clock::now() + std::chrono::seconds(20));
  writer.join();
  EXPECT_TRUE(stopped);
  EXPECT_EQ(batches, std::vector<Batch>{Batch{"A"}});
}

TEST_F(MemoryStoreTest, DestroyedConnectionDeliversNothing) {
  auto c = connect();
  c->setNotificationKeys(Array{String(u"A")}, Array());
  store->setValue(u"A", 1);
  auto source = c->runLoopSource();
  c.reset();
  store->setValue(u"A", 2);
  deliver();
  EXPECT_TRUE(batches.empty());
  EXPECT_FALSE(source->isScheduled());
}

TEST(MemoryStoreLoop, ConnectionOutlivingItsLoopIsReleasedQuietly) {
  static int criticals = 0;
  guint handler = g_log_set_handler("GLib", static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING),
                                    [](const gchar*, GLogLevelFlags, const gchar*, gpointer) { ++criticals; }, nullptr);
  auto store = MemoryStore::create();
  GMainContext* context = g_main_context_new();
  auto c = store->createConnection(u"orphan", [](StoreConnection&, const Array&) {});
  c->setNotificationKeys(Array{String(u"A")}, Array());
  RunLoop(context).addSource(c->runLoopSource());
  auto source = c->runLoopSource();
  g_main_context_unref(context);  // the loop goes first
  store->setValue(u"A", 1);
  EXPECT_FALSE(source->isScheduled());
  RunLoop::current().removeSource(source);
  c.reset();
  source.reset();
  g_log_remove_handler("GLib", handler);
  EXPECT_EQ(criticals, 0);
}

// What a pattern matches is compared with the C library's own matching by key_pattern_test, and the
// refusal of a pattern too large is checked on `tqkit net keys`; here the size at the bound is taken.
TEST(MemoryStorePatterns, APatternAtTheSizeBoundIsTaken) {
  auto c = MemoryStore::create()->createConnection(u"test", [](StoreConnection&, const Array&) {});
  EXPECT_FALSE(c->copyKeyList(u"a{100}{100}").isNil());
}
