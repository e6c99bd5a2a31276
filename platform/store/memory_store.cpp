#include "tq/platform/store/memory_store.h"

#include <glib.h>

#include <unordered_set>

#include "tq/platform/store/key_pattern.h"

namespace tq {

class MemoryStoreConnection;

// The part of a connection that the store and the connection's GSource share. Watch settings are
// guarded by the store's mutex (they are read while a change is noted); the pending batch by the
// core's own mutex (the loop thread takes it while other threads may add to it).
struct MemoryStore::ConnectionCore {
  // Watch settings (store mutex).
  std::unordered_set<String> watchedKeys;
  std::vector<std::unique_ptr<KeyPattern>> watchedPatterns;
  GSource* source = nullptr;  // alive while the core is attached to the store

  // Pending batch (core mutex).
  std::mutex mutex;
  std::vector<String> pending;
  std::unordered_set<String> pendingSet;
  StoreConnection::Callout callout;
  std::weak_ptr<MemoryStoreConnection> owner;

  bool watches(const String& key) const {
    if (watchedKeys.count(key)) return true;
    for (const auto& p : watchedPatterns) {
      if (p->matches(key)) return true;
    }
    return false;
  }
  bool hasPending() {
    std::lock_guard<std::mutex> lock(mutex);
    return !pending.empty();
  }
};

namespace {

struct CoreSource {
  GSource base;
  std::shared_ptr<MemoryStore::ConnectionCore>* core;
};

gboolean coreSourcePrepare(GSource* source, gint* timeout) {
  *timeout = -1;
  return (*reinterpret_cast<CoreSource*>(source)->core)->hasPending();
}

gboolean coreSourceCheck(GSource* source) { return (*reinterpret_cast<CoreSource*>(source)->core)->hasPending(); }

gboolean coreSourceDispatch(GSource* source, GSourceFunc, gpointer);

void coreSourceFinalize(GSource* source) {
  auto* s = reinterpret_cast<CoreSource*>(source);
  delete s->core;
  s->core = nullptr;
}

GSourceFuncs coreSourceFuncs = {coreSourcePrepare, coreSourceCheck, coreSourceDispatch, coreSourceFinalize,
                                nullptr, nullptr};

}  // namespace

class MemoryStoreConnection : public StoreConnection {
 public:
  MemoryStoreConnection(std::shared_ptr<MemoryStore> store, String name,
                        std::shared_ptr<MemoryStore::ConnectionCore> core, std::shared_ptr<RunLoopSource> source)
      : store_(std::move(store)), name_(std::move(name)), core_(std::move(core)), source_(std::move(source)) {}

  ~MemoryStoreConnection() override {
    // Stop the store from touching the core (and its GSource) before the source goes away.
    store_->detach(core_.get());
    {
      std::lock_guard<std::mutex> lock(core_->mutex);
      core_->callout = nullptr;
    }
    // A connection's events end with it, whoever still holds its source.
    if (source_->isScheduled()) g_source_destroy(source_->gsource());
  }

  String className() const override { return u"MemoryStoreConnection"; }
  String description() const override {
    return String(u"<MemoryStoreConnection: ").stringByAppendingString(name_).stringByAppendingString(u">");
  }

  Value copyValue(const String& key) override { return store_->valueForKey(key); }

  Array copyKeyList(const String& pattern) override {
    auto compiled = KeyPattern::compile(pattern);
    if (!compiled) return Array();
    std::vector<String> keys;
    for (const String& key : store_->allKeys()) {
      if (compiled->matches(key)) keys.push_back(key);
    }
    return Array::withStrings(keys);
  }

  bool setNotificationKeys(const Array& keys, const Array& patterns) override {
    std::vector<std::unique_ptr<KeyPattern>> compiled;
    for (const String& p : patterns.strings()) {
      auto c = KeyPattern::compile(p);
      if (!c) return false;
      compiled.push_back(std::move(c));
    }
    std::unordered_set<String> exact;
    for (const String& k : keys.strings()) exact.insert(k);
    std::lock_guard<std::mutex> lock(store_->mutex_);
    core_->watchedKeys = std::move(exact);
    core_->watchedPatterns = std::move(compiled);
    return true;
  }

  std::shared_ptr<RunLoopSource> runLoopSource() override { return source_; }

 private:
  std::shared_ptr<MemoryStore> store_;
  String name_;
  std::shared_ptr<MemoryStore::ConnectionCore> core_;
  std::shared_ptr<RunLoopSource> source_;
};

namespace {

gboolean coreSourceDispatch(GSource* source, GSourceFunc, gpointer) {
  // Re-arm first: a change noted from here on sets the ready time again and is not lost.
  g_source_set_ready_time(source, -1);
  auto core = *reinterpret_cast<CoreSource*>(source)->core;
  std::vector<String> batch;
  StoreConnection::Callout callout;
  std::shared_ptr<MemoryStoreConnection> owner;
  {
    std::lock_guard<std::mutex> lock(core->mutex);
    batch.swap(core->pending);
    core->pendingSet.clear();
    callout = core->callout;
    owner = core->owner.lock();
  }
  if (!batch.empty() && callout && owner) callout(*owner, Array::withStrings(batch));
  return G_SOURCE_CONTINUE;
}

}  // namespace

std::shared_ptr<MemoryStore> MemoryStore::create() { return std::shared_ptr<MemoryStore>(new MemoryStore); }

std::shared_ptr<MemoryStore> MemoryStore::sharedStore() {
  static auto* shared = new std::shared_ptr<MemoryStore>(create());
  return *shared;
}

void MemoryStore::noteChangeLocked(const String& key) {
  for (const auto& core : cores_) {
    if (!core->watches(key)) continue;
    bool first = false;
    {
      std::lock_guard<std::mutex> lock(core->mutex);
      if (core->pendingSet.insert(key).second) {
        core->pending.push_back(key);
        first = core->pending.size() == 1;
      }
    }
    // Thread-safe, and wakes the source's context when it is blocked in another thread.
    if (first) g_source_set_ready_time(core->source, 0);
  }
}

void MemoryStore::setValues(const std::vector<std::pair<String, Value>>& changes) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& [key, value] : changes) {
    if (key.isNil()) continue;
    auto it = values_.find(key);
    if (value.isNil()) {
      if (it == values_.end()) continue;
      values_.erase(it);
    } else if (it == values_.end()) {
      values_.emplace(key, value);
    } else {
      if (it->second == value) continue;
      it->second = value;
    }
    noteChangeLocked(key);
  }
}

void MemoryStore::setValue(const String& key, const Value& value) { setValues({{key, value}}); }

void MemoryStore::removeValue(const String& key) { setValues({{key, Value()}}); }

void MemoryStore::removeAllValues() {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<String> keys;
  for (const auto& entry : values_) keys.push_back(entry.first);
  values_.clear();
  for (const auto& key : keys) noteChangeLocked(key);
}

Value MemoryStore::valueForKey(const String& key) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = values_.find(key);
  return it == values_.end() ? Value() : it->second;
}

std::vector<String> MemoryStore::allKeys() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<String> keys;
  keys.reserve(values_.size());
  for (const auto& entry : values_) keys.push_back(entry.first);
  return keys;
}

std::shared_ptr<StoreConnection> MemoryStore::createConnection(const String& name, StoreConnection::Callout callout) {
  auto core = std::make_shared<ConnectionCore>();
  core->callout = std::move(callout);
  GSource* gsource = g_source_new(&coreSourceFuncs, sizeof(CoreSource));
  reinterpret_cast<CoreSource*>(gsource)->core = new std::shared_ptr<ConnectionCore>(core);
  g_source_set_name(gsource, "tq MemoryStore connection");
  core->source = gsource;
  auto source = std::make_shared<RunLoopSource>(gsource);
  auto connection = std::make_shared<MemoryStoreConnection>(shared_from_this(), name, core, source);
  core->owner = connection;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    cores_.push_back(core);
  }
  return connection;
}

StoreConnectionFactory MemoryStore::connectionFactory() {
  auto self = shared_from_this();
  return [self](const String& name, StoreConnection::Callout callout) {
    return self->createConnection(name, std::move(callout));
  };
}

void MemoryStore::detach(const ConnectionCore* core) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::erase_if(cores_, [core](const std::shared_ptr<ConnectionCore>& c) { return c.get() == core; });
}

}  // namespace tq
