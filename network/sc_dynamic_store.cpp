#include "tq/network/sc_dynamic_store.h"

#include <cerrno>
#include <mutex>
#include <unordered_set>

#include "tq/platform/bundle/bundle.h"
#include "tq/platform/store/linux_network_store.h"
#include "tq/platform/store/memory_store.h"

namespace tq {

namespace {

// Live wrappers, by address. Not owning: the list changes no lifetime. It keeps the wrappers that
// live on in their intended ownership cycle with their observers reachable from a global, so that
// a leak checker counts them as in use.
std::mutex gLiveMutex;
std::unordered_set<const SCDynamicStore*>& liveSet() {
  static auto* set = new std::unordered_set<const SCDynamicStore*>;
  return *set;
}

}  // namespace

StoreConnectionFactory defaultStoreConnectionFactory() {
  // The kernel's state; where netlink cannot be opened (a sandbox without it), the process-wide
  // in-memory store, so that a wrapper always has a connection.
  return [](const String& name, StoreConnection::Callout callout) -> std::shared_ptr<StoreConnection> {
    if (auto kernel = LinuxNetworkStore::factory()(name, callout)) return kernel;
    return MemoryStore::sharedStore()->connectionFactory()(name, std::move(callout));
  };
}

String storeConnectionName() {
  if (auto bundle = Bundle::mainBundle()) {
    String identifier = bundle->bundleIdentifier();
    if (!identifier.isNil() && identifier.length() > 0) return identifier;
  }
  // A program without a bundle identifier (most command-line hosts) goes by its name.
  const char* program = program_invocation_short_name;
  if (program && *program) return String::fromUTF8(program);
  return u"tqkit";
}

SCDynamicStore::SCDynamicStore() : SCDynamicStore(defaultStoreConnectionFactory()) {}

SCDynamicStore::SCDynamicStore(const StoreConnectionFactory& factory) {
  open(factory);
  std::lock_guard<std::mutex> lock(gLiveMutex);
  liveSet().insert(this);
}

void SCDynamicStore::open(const StoreConnectionFactory& factory) {
  if (!factory) return;
  // The connection refers to this wrapper without owning it.
  void* info = this;
  dynStore_ = factory(storeConnectionName(), [info](StoreConnection& connection, const Array& changedKeys) {
    scCallback(connection, changedKeys, info);
  });
  if (!dynStore_) return;
  rlSrc_ = dynStore_->runLoopSource();
  if (rlSrc_) RunLoop::current().addSource(rlSrc_);
}

SCDynamicStore::~SCDynamicStore() {
  if (rlSrc_) RunLoop::current().removeSource(rlSrc_);
  rlSrc_.reset();
  dynStore_.reset();
  watchedKeysDict_.clear();
  std::lock_guard<std::mutex> lock(gLiveMutex);
  liveSet().erase(this);
}

Value SCDynamicStore::valueForKey(const String& key) const {
  if (!dynStore_) return Value();
  return dynStore_->copyValue(key);
}

Array SCDynamicStore::keysForPattern(const String& pattern) const {
  if (!dynStore_) return Array();
  return dynStore_->copyKeyList(pattern);
}

SCDynamicStore::Watch* SCDynamicStore::find(const String& key) {
  for (auto& w : watchedKeysDict_) {
    if (w.key == key) return &w;
  }
  return nullptr;
}

void SCDynamicStore::addObserver(const std::shared_ptr<SimpleObserver>& observer, const String& key) {
  if (key.isNil() || !observer) return;
  Watch* watch = find(key);
  if (!watch) {
    watchedKeysDict_.push_back(Watch{key, {}});
    watch = &watchedKeysDict_.back();
  }
  watch->observers.push_back(observer);
  // The store's list is replaced as a whole on every addition; patterns are never handed over.
  if (dynStore_) dynStore_->setNotificationKeys(Array::withStrings(watchedKeys()), Array());
}

void SCDynamicStore::notificationOfChangedKeys(const Array& changedKeys) {
  for (const String& key : changedKeys.strings()) {
    Watch* watch = find(key);
    if (!watch) continue;
    // A copy: a target may register more observers while it runs.
    auto observers = watch->observers;
    for (const auto& o : observers) o->invokeWithObject(key);
  }
}

std::vector<String> SCDynamicStore::watchedKeys() const {
  std::vector<String> keys;
  keys.reserve(watchedKeysDict_.size());
  for (const auto& w : watchedKeysDict_) keys.push_back(w.key);
  return keys;
}

std::vector<const SCDynamicStore*> SCDynamicStore::liveWrappers() {
  std::lock_guard<std::mutex> lock(gLiveMutex);
  return {liveSet().begin(), liveSet().end()};
}

void scCallback(StoreConnection&, const Array& changedKeys, void* info) {
  static_cast<SCDynamicStore*>(info)->notificationOfChangedKeys(changedKeys);
}

}  // namespace tq
