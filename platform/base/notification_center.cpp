#include "tq/platform/base/notification_center.h"

#include <atomic>

namespace tq {

// One registration. `removed` is set under the centre's lock and read without it by a post that
// took a snapshot, so that an entry removed mid-post is not called afterwards.
struct NotificationCenter::Entry {
  const void* target = nullptr;           // identity for removal (the token for blocks)
  std::weak_ptr<const void> targetLife;   // expires with a target-form target
  bool weakTarget = false;
  NotificationToken token;                // block form: kept with the block
  String name;                            // nil: any
  const void* sender = nullptr;           // nil: any
  std::weak_ptr<Object> senderLife;
  Block block;
  std::atomic<bool> removed{false};

  bool expired() const { return weakTarget && targetLife.expired(); }
  bool matches(const Notification& n) const {
    if (!name.isNil() && name != n.name()) return false;
    if (sender) {
      if (n.object().get() != sender || senderLife.expired()) return false;
    }
    return true;
  }
};

NotificationCenter& NotificationCenter::defaultCenter() {
  static NotificationCenter* center = new NotificationCenter;
  return *center;
}

void NotificationCenter::addEntry(const void* target, std::weak_ptr<const void> targetLife, const String& name,
                                  const std::shared_ptr<Object>& sender, Block block) {
  auto entry = std::make_shared<Entry>();
  entry->target = target;
  entry->targetLife = std::move(targetLife);
  entry->weakTarget = true;
  entry->name = name;
  entry->sender = sender.get();
  entry->senderLife = sender;
  entry->block = std::move(block);
  std::lock_guard<std::mutex> lock(mutex_);
  auto list = std::make_shared<EntryList>(*entries_);
  list->push_back(std::move(entry));
  entries_ = std::move(list);
}

NotificationToken NotificationCenter::addObserverForName(const String& name, const std::shared_ptr<Object>& sender,
                                                         Block block) {
  auto token = std::make_shared<NotificationObserverToken>();
  auto entry = std::make_shared<Entry>();
  entry->target = token.get();
  entry->token = token;
  entry->name = name;
  entry->sender = sender.get();
  entry->senderLife = sender;
  entry->block = std::move(block);
  std::lock_guard<std::mutex> lock(mutex_);
  auto list = std::make_shared<EntryList>(*entries_);
  list->push_back(std::move(entry));
  entries_ = std::move(list);
  return token;
}

template <class Drop>
void NotificationCenter::dropEntries(Drop drop) {
  std::shared_ptr<const EntryList> old;  // blocks are destroyed outside the lock
  std::lock_guard<std::mutex> lock(mutex_);
  auto list = std::make_shared<EntryList>();
  list->reserve(entries_->size());
  for (const auto& e : *entries_) {
    if (drop(*e)) {
      e->removed = true;
    } else {
      list->push_back(e);
    }
  }
  if (list->size() == entries_->size()) return;
  old = std::move(entries_);
  entries_ = std::move(list);
}

void NotificationCenter::removeObserver(const NotificationToken& token) {
  if (token) removeObserver(static_cast<const void*>(token.get()));
}

void NotificationCenter::removeObserver(const void* target) {
  if (!target) return;
  dropEntries([&](const Entry& e) { return e.target == target; });
}

void NotificationCenter::removeObserver(const void* target, const String& name,
                                        const std::shared_ptr<Object>& sender) {
  if (!target) return;
  dropEntries([&](const Entry& e) {
    if (e.target != target) return false;
    if (!name.isNil() && e.name != name) return false;
    if (sender && e.sender != sender.get()) return false;
    return true;
  });
}

void NotificationCenter::postNotificationName(const String& name, const std::shared_ptr<Object>& object,
                                              const Dictionary& userInfo) {
  postNotification(Notification(name, object, userInfo));
}

void NotificationCenter::postNotification(const Notification& notification) {
  // The list as it stands now; registrations made during the post go to a new list and are not
  // called by this post.
  std::shared_ptr<const EntryList> list;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    list = entries_;
  }
  bool expired = false;
  for (const auto& e : *list) {
    if (e->expired()) {
      expired = true;
      continue;
    }
    if (e->removed.load(std::memory_order_acquire) || !e->matches(notification)) continue;
    e->block(notification);
  }
  // Targets that are gone take their entries with them.
  if (expired) dropEntries([](const Entry& e) { return e.expired(); });
}

}  // namespace tq
