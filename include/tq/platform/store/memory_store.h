// MemoryStore: an in-process network-state store that tests and hosts fill themselves.
//
// The store is a sorted map from key to value. setValue() and removeValue() change it; every
// connection made on the store (a StoreConnection) then reports the change, if it watches the key,
// through its run-loop source:
//  - a key counts as changed when its value becomes different: added, removed, or set to an unequal
//    value (deep equality). Setting a key to an equal value, or removing an absent key, reports
//    nothing;
//  - whether a connection watches a key is decided at the moment of the change, from the exact keys
//    and patterns last given to setNotificationKeys();
//  - changes made before the connection's loop runs are collected and delivered as one batch: each
//    key once, in the order of its first change since the last delivery;
//  - delivery happens when the loop that holds the connection's source iterates, never inside the
//    call that made the change. A change made on another thread wakes that loop.
// A connection whose source is in no loop keeps collecting until the source is added to one. When
// a connection is destroyed its source leaves its loop, even if someone still holds the source.
//
// Threads: the store's data may be read and changed from any thread. Each connection is used on the
// thread whose loop holds its source (its callout runs there).
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "tq/platform/store/store_connection.h"

namespace tq {

class MemoryStore : public std::enable_shared_from_this<MemoryStore> {
 public:
  // A new, empty store. Use create(): connections keep their store alive through shared ownership.
  static std::shared_ptr<MemoryStore> create();
  // The process-wide store that the default store connections use; created empty on first use and
  // kept to the end of the process.
  static std::shared_ptr<MemoryStore> sharedStore();

  MemoryStore(const MemoryStore&) = delete;
  MemoryStore& operator=(const MemoryStore&) = delete;

  // Sets the key's value; a nil value removes the key.
  void setValue(const String& key, const Value& value);
  void removeValue(const String& key);
  // Several changes at once, applied in order under one lock (so that no delivery can split them).
  // Each entry's nil value removes its key.
  void setValues(const std::vector<std::pair<String, Value>>& changes);
  // Removes every key (each present key counts as changed).
  void removeAllValues();

  // The key's value, or nil.
  Value valueForKey(const String& key) const;
  // All keys, sorted by code unit.
  std::vector<String> allKeys() const;

  // A new connection on this store. `name` is kept for diagnostics; `callout` receives each batch of
  // changed keys. The connection watches nothing until setNotificationKeys().
  std::shared_ptr<StoreConnection> createConnection(const String& name, StoreConnection::Callout callout);
  // A factory that makes connections on this store (it keeps the store alive).
  StoreConnectionFactory connectionFactory();

  // Internal: the pending-change queue of one connection.
  struct ConnectionCore;

 private:
  MemoryStore() = default;
  friend class MemoryStoreConnection;
  void detach(const ConnectionCore* core);
  // Notes the change of `key` on every connection that watches it. Called with mutex_ held.
  void noteChangeLocked(const String& key);

  mutable std::mutex mutex_;
  std::map<String, Value> values_;
  std::vector<std::shared_ptr<ConnectionCore>> cores_;
};

}  // namespace tq
