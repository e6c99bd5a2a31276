// KeyTable: the keys a store holds, their values, and the changes it owes its watchers.
//
// Each key lives in a Slot whose address stays the same for as long as the table holds the key, so
// that the owner of a key (a link, the store's own keys) keeps a pointer to it and changes its value
// without hashing the key again.
//
// Rounds. A round runs from one batch to the next. Setting a slot's value to one equal to what it
// holds does nothing. Otherwise the slot becomes owed (the first time in the round it also keeps the
// value it had when the round began, `before`) and takes the new value. owed() lists the owed slots
// in the order they first became owed; the owner compares each one's value with `before` to decide
// what the batch names, then calls endRound(). A value that changed and changed back inside a round is
// owed but compares equal.
//
// Values made when asked for. A slot may be marked lazy instead of being given a value: its value is
// then made by the owner when someone asks for it (materialize in the owner), and until then the slot
// reads as nil. A lazy slot is owed like a changed one.
//
// Watching. The watched keys and patterns are set as a whole; whether a slot is watched is worked out
// once per slot and kept until the watched set changes again.
//
// Slots that no owner points to and that hold no value are dropped at the end of a round (they are
// kept until then, because the batch still has to compare their value with `before`).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tq/platform/base/value.h"
#include "tq/platform/store/key_pattern.h"

namespace tq::store {

struct Slot {
  String key;            // the key, as handed to watchers
  Value value;           // nil: the key has no value now
  Value before;          // the value when the round began; meaningful while owed
  int lazyLink = 0;      // non-zero: the value is still to be made, from this link's state
  bool owed = false;     // in owed()
  bool attached = false; // an owner points to this slot
  bool mayGo = false;    // on the list of slots looked at when the round ends
  uint32_t watchedRound = 0;  // the watched set this answer belongs to (0: not worked out)
  bool watched = false;

  bool hasValue() const { return lazyLink != 0 || !value.isNil(); }
};

class KeyTable {
 public:
  KeyTable() = default;
  KeyTable(const KeyTable&) = delete;
  KeyTable& operator=(const KeyTable&) = delete;

  // The slot of `key`, or null.
  Slot* find(std::u16string_view key);
  // The slot of `key`, made (with no value) when the table has none. The slot is marked attached.
  Slot& attach(std::u16string_view key);
  // The owner lets go of a slot: its value becomes nil (owed like any change) and the slot goes at
  // the end of the round unless it is attached again before then.
  void detach(Slot& slot);

  // Gives the slot a value (nil removes it). Does nothing when the slot holds an equal value.
  void set(Slot& slot, Value value);
  // Marks the slot's value as to be made from `link` when asked for (0: the key has no value).
  void setLazy(Slot& slot, int link);

  const std::vector<Slot*>& owed() const { return owed_; }
  // Clears the owed list and the kept values, and drops the slots nobody holds.
  void endRound();

  // Replaces the watched keys and patterns.
  void watch(std::vector<std::u16string> keys, std::vector<std::unique_ptr<KeyPattern>> patterns);
  bool watched(Slot& slot);
  bool watchesPatterns() const { return !patterns_.empty(); }

  // Calls f(slot) for every slot that has a value now (lazy ones included).
  template <class F>
  void forEachHeld(F f) {
    for (auto& [k, slot] : slots_)
      if (slot.hasValue()) f(slot);
  }
  std::size_t heldCount() const;
  // Makes room for this many keys in all.
  void reserve(std::size_t keys) {
    if (keys > slots_.size()) slots_.reserve(keys);
  }

 private:
  void owe(Slot& slot);

  struct ViewHash {
    std::size_t operator()(std::u16string_view v) const noexcept { return std::hash<std::u16string_view>()(v); }
  };
  // Keyed by a view of the slot's own key text, which lives as long as the slot (a node's element
  // keeps its address).
  std::unordered_map<std::u16string_view, Slot, ViewHash> slots_;
  std::vector<Slot*> owed_;
  std::vector<Slot*> detached_;  // may be dropped at the end of the round
  std::unordered_set<std::u16string_view, ViewHash> watchedKeys_;
  std::vector<std::u16string> watchedKeyTexts_;
  std::vector<std::unique_ptr<KeyPattern>> patterns_;
  uint32_t watchedRound_ = 1;
};

}  // namespace tq::store
