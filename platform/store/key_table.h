// KeyTable: the keys the kernel store holds, their values, and the changes it owes its watchers.
//
// Keys. Each interface name has a Group of four slots, one per key made from it:
//   "Setup:/Network/Service/NAME/Interface", "State:/Network/Interface/NAME/Link",
//   "State:/Network/Interface/NAME/IPv4", "State:/Network/Interface/NAME/AirPort";
// the store's other keys are fixed slots. A slot keeps its address for as long as the table holds
// it, so the owner of a name (a link) keeps a pointer to its group and changes values without
// looking keys up; a key's text is made only when it is needed (a report, a key list).
//
// Rounds. A round runs from one batch to the next. Setting a slot's value to one equal to what it
// holds does nothing. Otherwise the slot becomes owed (the first time in the round it also keeps the
// value it had when the round began, `before`) and takes the new value. owed() lists the owed slots
// in the order they first became owed; the owner compares each one's value with `before` to decide
// what the batch names, then calls endRound(). A value that changed and changed back inside a round
// is owed but compares equal.
//
// Values made when asked for. A slot may be marked lazy instead of being given a value: its value is
// then made by the owner when it is needed, and until then the slot reads as nil. A lazy slot is
// owed like a changed one.
//
// Watching. The watched keys and patterns are set as a whole; whether a slot is watched is worked out
// once per slot and kept until the watched set changes again.
//
// A group that no owner holds and whose slots hold no value is dropped at the end of a round (it is
// kept until then, because the batch still has to compare its values with `before`).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tq/platform/base/value.h"
#include "tq/platform/store/key_pattern.h"

namespace tq::store {

// The keys made from an interface name, in the order of a group's slots.
enum class Part : uint8_t { Setup, Link, IPv4, AirPort };
inline constexpr std::size_t kParts = 4;

struct Group;

struct Slot {
  Value value;           // nil: the key has no value now
  Value before;          // the value when the round began; meaningful while owed
  int lazyLink = 0;      // non-zero: the value is still to be made, from this link's state
  bool owed = false;     // in owed()
  bool watched = false;
  uint32_t watchedRound = 0;  // the watched set this answer belongs to (0: not worked out)
  Group* group = nullptr;     // null for a fixed key
  Part part = Part::Setup;
  String key;            // the key's text, once made (fixed keys: always)

  bool hasValue() const { return lazyLink != 0 || !value.isNil(); }
};

struct Group {
  std::u16string_view name;  // the table's own copy
  std::array<Slot, kParts> slots;
  bool attached = false;  // an owner holds the group
  bool mayGo = false;     // on the list of groups looked at when the round ends
  Slot& operator[](Part p) { return slots[static_cast<std::size_t>(p)]; }
};

class KeyTable {
 public:
  KeyTable() = default;
  KeyTable(const KeyTable&) = delete;
  KeyTable& operator=(const KeyTable&) = delete;

  // A fixed key's slot, made the first time it is asked for.
  Slot& fixed(std::u16string_view key);
  // The group of an interface name, made (with no values) when the table has none; marked held.
  Group& attach(std::u16string_view name);
  // The owner lets go of a group: its values become nil (owed like any change), and the group goes
  // at the end of the round unless it is attached again before then.
  void detach(Group& group);

  // The slot of a key's text, or null.
  Slot* find(std::u16string_view key);
  // The key's text, kept in the slot once made (for the keys a batch names).
  const String& keyOf(Slot& slot);
  // The key's text, valid until the table is next used.
  std::u16string_view text(const Slot& slot);

  // Gives the slot a value (nil removes it). Does nothing when the slot holds an equal value.
  void set(Slot& slot, Value value);
  // Marks the slot's value as to be made from `link` when needed (0: the key has no value).
  void setLazy(Slot& slot, int link);

  const std::vector<Slot*>& owed() const { return owed_; }
  // Clears the owed list and the kept values, and drops the groups nobody holds.
  void endRound();

  // Replaces the watched keys and patterns.
  void watch(std::vector<std::u16string> keys, std::vector<std::unique_ptr<KeyPattern>> patterns);
  bool watched(Slot& slot);

  // Calls f(slot) for every slot that has a value now (lazy ones included).
  template <class F>
  void forEachHeld(F f) {
    for (auto& s : fixed_)
      if (s->hasValue()) f(*s);
    for (auto& [name, group] : groups_)
      for (Slot& s : group.slots)
        if (s.hasValue()) f(s);
  }
  std::size_t heldCount();
  // Makes room for this many names in all.
  void reserve(std::size_t names) {
    if (names > groups_.size()) groups_.reserve(names);
  }

 private:
  void owe(Slot& slot);
  // The key's text into `out`.
  static void compose(const Slot& slot, std::u16string& out);

  struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::u16string_view v) const noexcept { return std::hash<std::u16string_view>()(v); }
  };
  std::unordered_map<std::u16string, Group, NameHash, std::equal_to<>> groups_;
  std::vector<std::unique_ptr<Slot>> fixed_;
  std::vector<Slot*> owed_;
  std::vector<Group*> detached_;  // may be dropped at the end of the round
  std::unordered_set<std::u16string, NameHash, std::equal_to<>> watchedKeys_;
  std::vector<std::unique_ptr<KeyPattern>> patterns_;
  uint32_t watchedRound_ = 1;
  std::u16string scratch_;
};

}  // namespace tq::store
