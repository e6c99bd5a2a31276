#include "key_table.h"

#include <algorithm>

namespace tq::store {

Slot* KeyTable::find(std::u16string_view key) {
  auto it = slots_.find(key);
  return it == slots_.end() ? nullptr : &it->second;
}

Slot& KeyTable::attach(std::u16string_view key) {
  auto it = slots_.find(key);
  if (it == slots_.end()) {
    String own(key);
    it = slots_.try_emplace(own.view()).first;
    it->second.key = std::move(own);
  }
  it->second.attached = true;
  return it->second;
}

void KeyTable::detach(Slot& slot) {
  set(slot, Value());
  slot.attached = false;
  if (!slot.mayGo) {
    slot.mayGo = true;
    detached_.push_back(&slot);
  }
}

void KeyTable::owe(Slot& slot) {
  if (slot.owed) return;
  slot.owed = true;
  slot.before = slot.value;
  owed_.push_back(&slot);
}

void KeyTable::set(Slot& slot, Value value) {
  if (slot.lazyLink == 0 && slot.value == value) return;
  owe(slot);
  slot.lazyLink = 0;
  slot.value = std::move(value);
}

void KeyTable::setLazy(Slot& slot, int link) {
  owe(slot);
  slot.lazyLink = link;
  slot.value = Value();
}

void KeyTable::endRound() {
  for (Slot* s : owed_) {
    s->owed = false;
    s->before = Value();
  }
  owed_.clear();
  if (detached_.empty()) return;
  std::vector<Slot*> gone;
  gone.swap(detached_);
  for (Slot* s : gone) {
    if (s->attached) {  // taken up again by a new owner
      s->mayGo = false;
    } else if (s->hasValue()) {
      detached_.push_back(s);
    } else {
      slots_.erase(s->key.view());
    }
  }
}

void KeyTable::watch(std::vector<std::u16string> keys, std::vector<std::unique_ptr<KeyPattern>> patterns) {
  watchedKeys_.clear();
  watchedKeyTexts_ = std::move(keys);
  for (const std::u16string& k : watchedKeyTexts_) watchedKeys_.insert(k);
  patterns_ = std::move(patterns);
  if (++watchedRound_ == 0) watchedRound_ = 1;
}

bool KeyTable::watched(Slot& slot) {
  if (slot.watchedRound == watchedRound_) return slot.watched;
  std::u16string_view k = slot.key.view();
  bool any = watchedKeys_.count(k) != 0;
  for (std::size_t i = 0; !any && i < patterns_.size(); ++i) any = patterns_[i]->matches(k);
  slot.watched = any;
  slot.watchedRound = watchedRound_;
  return any;
}

std::size_t KeyTable::heldCount() const {
  return static_cast<std::size_t>(
      std::count_if(slots_.begin(), slots_.end(), [](const auto& e) { return e.second.hasValue(); }));
}

}  // namespace tq::store
