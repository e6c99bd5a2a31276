// StoreConnection: a connection to a key-value store of network state.
//
// Keys are path-like strings ("State:/Network/Interface/eth0/Link"); values are property-list
// values (dictionaries, in practice). A connection reads one key's value, lists the keys that match
// a pattern, is told which keys to watch, and reports changes of watched keys: the changed keys of
// one batch are handed, as one Array, to the callout given at creation. Delivery happens on the run
// loop that the connection's run-loop source has been added to, never on another thread and never
// from inside the call that made the change.
//
// Implementations: MemoryStore (in process, driven by the host or a test) and LinuxNetworkStore
// (the kernel's state, through netlink).
//
// Threads: a connection is used on one thread, the thread whose run loop holds its source.
#pragma once

#include <functional>
#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/base/run_loop.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class StoreConnection : public Object {
 public:
  // Called with the connection and the keys that changed, in the order of their first change.
  using Callout = std::function<void(StoreConnection& connection, const Array& changedKeys)>;

  ~StoreConnection() override = default;

  // The key's current value, or nil when the key has none.
  virtual Value copyValue(const String& key) = 0;
  // The keys present now whose whole text matches the POSIX extended regular expression `pattern`
  // (the match is anchored at both ends). nil when the pattern does not compile; an empty array
  // when nothing matches.
  virtual Array copyKeyList(const String& pattern) = 0;
  // Replaces the set of watched keys (exact keys) and watched patterns (regular expressions as for
  // copyKeyList). Only changes of watched keys are reported. Returns false when a pattern does not
  // compile (nothing is changed then).
  virtual bool setNotificationKeys(const Array& keys, const Array& patterns) = 0;
  // The source through which this connection's changes reach a run loop. The same source is
  // returned every time; the host adds it to the loop that is to deliver changes (RunLoop::addSource).
  virtual std::shared_ptr<RunLoopSource> runLoopSource() = 0;
};

// Makes a connection with the given name (for diagnostics) and callout; nullptr when the store
// cannot be reached.
using StoreConnectionFactory =
    std::function<std::shared_ptr<StoreConnection>(const String& name, StoreConnection::Callout callout)>;

}  // namespace tq
