// NotificationCenter: process-wide broadcast of named notifications.
//
// A poster calls postNotificationName(name, object, userInfo); every observer registered for that
// name (or for all names) and for that sender (or for any sender) is called, synchronously, on the
// posting thread, in the order of registration, before the post returns.
//
// Observers come in two forms:
//  - block: addObserverForName(name, sender, block) returns a token; the centre keeps the block
//    (and whatever it captures) until removeObserver(token).
//  - target: addObserver(target, &T::method, name, sender) calls target->method(notification). The
//    target is NOT kept alive by the centre (it is held weakly); once it is destroyed it is skipped,
//    and its entries are dropped at the next post. removeObserver(target) removes all of its entries.
//
// A nil name means "every name"; a nil sender means "any sender". Senders are matched by identity
// and are not kept alive either: a registration for a sender that has since been destroyed matches
// nothing.
//
// Observers may add or remove observers (themselves included) while a notification is being
// delivered: an observer removed during a post is not called afterwards in that post, one added
// during a post is called from the next post on.
//
// Threads: registration, removal and posting may happen on any thread; a notification is delivered
// on the thread that posts it. No lock is held while an observer runs.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class Notification {
 public:
  Notification(String name, std::shared_ptr<Object> object, Dictionary userInfo)
      : name_(std::move(name)), object_(std::move(object)), userInfo_(std::move(userInfo)) {}

  const String& name() const noexcept { return name_; }
  // The sender; may be nil.
  const std::shared_ptr<Object>& object() const noexcept { return object_; }
  // May be nil.
  const Dictionary& userInfo() const noexcept { return userInfo_; }

 private:
  String name_;
  std::shared_ptr<Object> object_;
  Dictionary userInfo_;
};

// What addObserverForName() hands back: pass it to removeObserver() to stop the block.
class NotificationObserverToken : public Object {};
using NotificationToken = std::shared_ptr<NotificationObserverToken>;

class NotificationCenter {
 public:
  using Block = std::function<void(const Notification&)>;

  NotificationCenter() = default;
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  // The process's centre, where tqkit's observers post. Lives to the end of the process.
  static NotificationCenter& defaultCenter();

  // Calls `block` for every notification named `name` (nil: any) from `sender` (nil: any).
  NotificationToken addObserverForName(const String& name, const std::shared_ptr<Object>& sender, Block block);

  // Calls target->method(notification) for every notification named `name` (nil: any) from
  // `sender` (nil: any). The target is held weakly.
  template <class T>
  void addObserver(const std::shared_ptr<T>& target, void (T::*method)(const Notification&), const String& name,
                   const std::shared_ptr<Object>& sender = nullptr) {
    std::weak_ptr<T> weak = target;
    addEntry(target.get(), std::weak_ptr<const void>(target), name, sender,
             [weak, method](const Notification& n) {
               if (auto strong = weak.lock()) ((*strong).*method)(n);
             });
  }

  // Removes the block registered under the token. Unknown or nil tokens are ignored.
  void removeObserver(const NotificationToken& token);
  // Removes every registration of the target (any name, any sender).
  void removeObserver(const void* target);
  template <class T>
  void removeObserver(const std::shared_ptr<T>& target) {
    removeObserver(static_cast<const void*>(target.get()));
  }
  // Removes the target's registrations for that name (nil: any name) and sender (nil: any sender).
  void removeObserver(const void* target, const String& name, const std::shared_ptr<Object>& sender);

  // Posts synchronously on the calling thread. object: the sender, may be nil; userInfo may be nil.
  void postNotificationName(const String& name, const std::shared_ptr<Object>& object,
                            const Dictionary& userInfo = {});
  void postNotification(const Notification& notification);

 private:
  struct Entry;
  void addEntry(const void* target, std::weak_ptr<const void> targetLife, const String& name,
                const std::shared_ptr<Object>& sender, Block block);

  using EntryList = std::vector<std::shared_ptr<Entry>>;
  // Rebuilds the list without the entries for which `drop` is true (marking them removed).
  template <class Drop>
  void dropEntries(Drop drop);

  // The registrations, copied on every change and never modified in place, so that a post reads
  // the list it took under the lock without holding it.
  std::mutex mutex_;
  std::shared_ptr<const EntryList> entries_ = std::make_shared<const EntryList>();
};

}  // namespace tq
