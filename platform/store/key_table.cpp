#include "key_table.h"

namespace tq::store {

namespace {

struct Shape {
  std::u16string_view before, after;
};
constexpr std::array<Shape, kParts> kShapes = {{
    {u"Setup:/Network/Service/", u"/Interface"},
    {u"State:/Network/Interface/", u"/Link"},
    {u"State:/Network/Interface/", u"/IPv4"},
    {u"State:/Network/Interface/", u"/AirPort"},
}};

}  // namespace

Slot& KeyTable::fixed(std::u16string_view key) {
  for (auto& s : fixed_)
    if (s->key.view() == key) return *s;
  fixed_.push_back(std::make_unique<Slot>());
  fixed_.back()->key = String(key);
  return *fixed_.back();
}

Group& KeyTable::attach(std::u16string_view name) {
  auto it = groups_.find(name);
  if (it == groups_.end()) {
    it = groups_.try_emplace(std::u16string(name)).first;
    Group& g = it->second;
    g.name = it->first;
    for (std::size_t p = 0; p < kParts; ++p) {
      g.slots[p].group = &g;
      g.slots[p].part = static_cast<Part>(p);
    }
  }
  it->second.attached = true;
  return it->second;
}

void KeyTable::detach(Group& group) {
  for (Slot& s : group.slots) set(s, Value());
  group.attached = false;
  if (!group.mayGo) {
    group.mayGo = true;
    detached_.push_back(&group);
  }
}

Slot* KeyTable::find(std::u16string_view key) {
  for (auto& s : fixed_)
    if (s->key.view() == key) return s.get();
  for (std::size_t p = 0; p < kParts; ++p) {
    const Shape& shape = kShapes[p];
    if (key.size() <= shape.before.size() + shape.after.size() || !key.starts_with(shape.before) ||
        !key.ends_with(shape.after))
      continue;
    std::u16string_view name = key.substr(shape.before.size(), key.size() - shape.before.size() - shape.after.size());
    auto it = groups_.find(name);
    return it == groups_.end() ? nullptr : &it->second.slots[p];
  }
  return nullptr;
}

void KeyTable::compose(const Slot& slot, std::u16string& out) {
  const Shape& shape = kShapes[static_cast<std::size_t>(slot.part)];
  out.assign(shape.before).append(slot.group->name).append(shape.after);
}

const String& KeyTable::keyOf(Slot& slot) {
  if (slot.key.isNil()) {
    compose(slot, scratch_);
    slot.key = String(scratch_);
  }
  return slot.key;
}

std::u16string_view KeyTable::text(const Slot& slot) {
  if (!slot.key.isNil()) return slot.key.view();
  compose(slot, scratch_);
  return scratch_;
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
  std::vector<Group*> looked;
  looked.swap(detached_);
  for (Group* g : looked) {
    bool held = false;
    for (const Slot& s : g->slots) held |= s.hasValue();
    if (g->attached) {  // taken up again by a new owner
      g->mayGo = false;
    } else if (held) {
      detached_.push_back(g);
    } else {
      groups_.erase(groups_.find(g->name));
    }
  }
}

void KeyTable::watch(std::vector<std::u16string> keys, std::vector<std::unique_ptr<KeyPattern>> patterns) {
  watchedKeys_.clear();
  for (std::u16string& k : keys) watchedKeys_.insert(std::move(k));
  patterns_ = std::move(patterns);
  if (++watchedRound_ == 0) watchedRound_ = 1;
}

bool KeyTable::watched(Slot& slot) {
  if (slot.watchedRound == watchedRound_) return slot.watched;
  std::u16string_view k = text(slot);
  bool any = watchedKeys_.find(k) != watchedKeys_.end();
  for (std::size_t i = 0; !any && i < patterns_.size(); ++i) any = patterns_[i]->matches(k);
  slot.watched = any;
  slot.watchedRound = watchedRound_;
  return any;
}

std::size_t KeyTable::heldCount() {
  std::size_t n = 0;
  forEachHeld([&](const Slot&) { ++n; });
  return n;
}

}  // namespace tq::store
