// Shared set-up for the network tests: a private GLib context pushed as the thread's loop, a fresh
// MemoryStore, wrappers on it, and a recorder of the notifications posted to the default centre.
#pragma once

#include <glib.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/base/run_loop.h"
#include "tq/platform/store/memory_store.h"

namespace tq::test {

struct Posted {
  std::string name;
  Dictionary userInfo;
  bool hasSender;
};

class StoreFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    store = MemoryStore::create();
    token_ = NotificationCenter::defaultCenter().addObserverForName(String(), nullptr, [this](const Notification& n) {
      std::string name = n.name().UTF8String();
      if (name.starts_with("Ethernet") || name.starts_with("Airport"))
        posted.push_back({name, n.userInfo(), n.object() != nullptr});
    });
  }
  void TearDown() override {
    NotificationCenter::defaultCenter().removeObserver(token_);
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }

  std::shared_ptr<SCDynamicStore> makeWrapper() { return std::make_shared<SCDynamicStore>(store->connectionFactory()); }

  // Lets the thread's loop deliver whatever is ready, as a host's loop would.
  void deliver() {
    RunLoop loop = RunLoop::current();
    while (loop.runOnce(false)) {
    }
  }

  // The names posted since the last call, then forgets them.
  std::vector<std::string> takeNames() {
    std::vector<std::string> names;
    for (const auto& p : posted) names.push_back(p.name);
    posted.clear();
    return names;
  }

  std::shared_ptr<MemoryStore> store;
  std::vector<Posted> posted;

 private:
  GMainContext* context_ = nullptr;
  NotificationToken token_;
};

}  // namespace tq::test
