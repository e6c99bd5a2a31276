// SCDynamicStore: the one object that talks to the network-state store, and the dispatch of its
// changes to registered targets.
//
// A host makes one wrapper on the thread whose run loop is to deliver changes (normally the main
// thread), then creates observers on it (IPv4Observer, EthernetObserver, AirportObserver) and listens
// for their notifications:
//
//   auto store = std::make_shared<tq::SCDynamicStore>();          // attaches to RunLoop::current()
//   auto ether = tq::EthernetObserver::initWithService(u"eth0", store);
//
// At creation the wrapper opens a store connection (through the factory it is given, by default
// defaultStoreConnectionFactory()) and adds the connection's run-loop source to the calling thread's
// loop (RunLoop::current()). A GLib or GTK application then receives changes from its own main loop;
// a host without a loop iterates RunLoop itself. When the store reports changed keys, the loop calls
// scCallback, which hands them to notificationOfChangedKeys(): for each changed key, in the batch's
// order, every target registered for that key is called, in registration order, with the key.
//
// Registrations are permanent: there is no way to unregister. Each registration keeps its target
// alive (SimpleObserver holds it strongly), and observers keep their wrapper alive, so wrapper,
// records and observers form an ownership cycle that lasts to the end of the process once any
// observer is registered, whatever references the host drops. Such wrappers stay reachable from a
// process-wide list of live wrappers, so leak checkers see them as in use rather than lost. A
// wrapper with no registration is destroyed with the host's last reference.
//
// Threads: create, use and destroy a wrapper on one thread, the one whose loop delivers its changes.
// No lock is taken.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tq/network/simple_observer.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/run_loop.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"
#include "tq/platform/store/store_connection.h"

namespace tq {

// The store that wrappers made with the default constructor connect to: the kernel's network state
// (LinuxNetworkStore), or, where netlink cannot be opened, the process-wide MemoryStore
// (MemoryStore::sharedStore()).
StoreConnectionFactory defaultStoreConnectionFactory();

// The name given to a wrapper's store connection: the main bundle's identifier
// (Bundle::mainBundle()->bundleIdentifier()) when there is one, else the program's short name
// (program_invocation_short_name, e.g. "myapp"), else "tqkit".
String storeConnectionName();

class SCDynamicStore : public Object {
 public:
  // Opens a connection with defaultStoreConnectionFactory() and attaches it to the calling thread's
  // loop. Watches no key yet.
  SCDynamicStore();
  // The same on a connection made by `factory`. A nil factory, or a factory that returns nullptr,
  // leaves the wrapper without a connection: every later call then reports nothing (no value, no
  // keys, no changes).
  explicit SCDynamicStore(const StoreConnectionFactory& factory);
  // Removes the source from the CURRENT thread's loop (which is the loop it was added to only when
  // the wrapper is destroyed on the thread that made it), then releases the source, the connection
  // and the registrations, in that order. (A MemoryStore connection takes its source out of any
  // loop when it is released, so a wrapper destroyed on another thread leaves no live source behind.)
  ~SCDynamicStore() override;

  SCDynamicStore(const SCDynamicStore&) = delete;
  SCDynamicStore& operator=(const SCDynamicStore&) = delete;

  // The key's current value (a dictionary, in practice), or nil.
  Value valueForKey(const String& key) const;
  // The keys that match the POSIX extended regular expression `pattern` (anchored) now; nil or an
  // empty array when there are none or the pattern is not valid.
  Array keysForPattern(const String& pattern) const;

  // Registers target->method for one exact key and hands the store the full list of watched keys.
  // The same target, method and key may be registered several times; the method then runs once per
  // registration. The target is kept alive by the registration.
  template <class T, class R>
  void addObserver(std::shared_ptr<T> target, R (T::*method)(const String&), const String& key) {
    addObserver(SimpleObserver::observer(std::move(target), method), key);
  }
  // The same with a ready-made record. A nil key or record registers nothing.
  void addObserver(const std::shared_ptr<SimpleObserver>& observer, const String& key);

  // Registers target->method for every key that matches `pattern` at this moment, in the order the
  // store lists them (one registration per key). The pattern itself is not remembered: keys that
  // appear later are not watched, and a pattern that matches nothing registers nothing.
  template <class T, class R>
  void addObserverForKeyPattern(std::shared_ptr<T> target, R (T::*method)(const String&), const String& pattern) {
    for (const String& key : keysForPattern(pattern).strings()) addObserver(target, method, key);
  }

  // Calls the targets of each key, key by key in the array's order and, within a key, in order of
  // registration, each with the key string. Keys without registrations are ignored. Called by
  // scCallback; the registrations of a key are those present when the key's turn comes.
  void notificationOfChangedKeys(const Array& changedKeys);

  // The keys registered so far, in order of first registration (the list last handed to the store).
  std::vector<String> watchedKeys() const;
  // The store connection (nil if none could be made).
  const std::shared_ptr<StoreConnection>& connection() const noexcept { return dynStore_; }

  // The wrappers alive now (a process-wide list; the entries are not owned).
  static std::vector<const SCDynamicStore*> liveWrappers();

 private:
  struct Watch {
    String key;
    std::vector<std::shared_ptr<SimpleObserver>> observers;
  };
  void open(const StoreConnectionFactory& factory);
  Watch* find(const String& key);

  std::shared_ptr<StoreConnection> dynStore_;
  std::shared_ptr<RunLoopSource> rlSrc_;
  std::vector<Watch> watchedKeysDict_;  // in order of first registration; never an empty entry
};

// The store's callout: hands the changed keys to the SCDynamicStore in `info` (the wrapper that
// opened the connection). The connection is passed on to nobody.
void scCallback(StoreConnection& store, const Array& changedKeys, void* info);

}  // namespace tq
