#include "address_list.h"

#include <arpa/inet.h>

#include <array>

namespace tq::store {

String dottedQuad(uint32_t networkOrder) {
  char16_t text[15];
  std::size_t n = 0;
  const auto* b = reinterpret_cast<const uint8_t*>(&networkOrder);
  for (int i = 0; i < 4; ++i) {
    unsigned v = b[i];
    if (i) text[n++] = u'.';
    if (v >= 100) text[n++] = static_cast<char16_t>(u'0' + v / 100);
    if (v >= 10) text[n++] = static_cast<char16_t>(u'0' + v / 10 % 10);
    text[n++] = static_cast<char16_t>(u'0' + v % 10);
  }
  return String(std::u16string_view(text, n));
}

const String& subnetMaskText(uint8_t prefix) {
  static const std::array<String, 33> masks = [] {
    std::array<String, 33> m;
    for (unsigned p = 0; p <= 32; ++p) m[p] = dottedQuad(htonl(p == 0 ? 0 : ~0u << (32 - p)));
    return m;
  }();
  return masks[prefix > 32 ? 32 : prefix];
}

const String& ListedAddress::localText() const {
  if (localText_.isNil()) localText_ = dottedQuad(local);
  return localText_;
}

const String& ListedAddress::broadcastText() const {
  if (hasBroadcast && broadcastText_.isNil()) broadcastText_ = dottedQuad(broadcast);
  return broadcastText_;
}

bool AddressList::sameAs(const Address* first, std::size_t count) const {
  if (count != list_.size()) return false;
  for (const ListedAddress& a : list_)
    if (!a.sameAs(*first++)) return false;
  return true;
}

bool AddressList::hasLocal(uint32_t local) const {
  for (const ListedAddress& a : list_)
    if (a.local == local) return true;
  return false;
}

void AddressList::assign(const Address* first, std::size_t count) {
  clear();
  index_.reserve(count);
  for (std::size_t i = 0; i < count; ++i) add(first[i], true);
}

void AddressList::insertPrimary(Iterator at) {
  // After the last primary whose scope is at least as wide (scope numbers grow as scopes narrow).
  auto end = secondaries_;
  auto it = end;
  Iterator dest = list_.begin();
  while (it != list_.begin()) {
    --it;
    if (it == at) continue;
    if (it->scope >= at->scope) {
      dest = std::next(it);
      break;
    }
  }
  if (dest != at) list_.splice(dest, list_, at);
}

std::size_t AddressList::Index::home(const Key& key) const {
  uint64_t x = (static_cast<uint64_t>(key.local) << 32 | key.address) ^ (static_cast<uint64_t>(key.prefix) << 13);
  x ^= x >> 31;
  return static_cast<std::size_t>((x * 0x9E3779B97F4A7C15ull) >> shift_);
}

void AddressList::Index::resize(std::size_t slots) {
  std::vector<Iterator> old(slots, none_);
  old.swap(slots_);
  shift_ = 64 - static_cast<unsigned>(__builtin_ctzll(slots));
  count_ = 0;
  for (Iterator it : old)
    if (it != none_) insert(it);
}

void AddressList::Index::reserve(std::size_t count) {
  std::size_t slots = 16;
  while (slots < 2 * count) slots *= 2;
  if (slots > slots_.size()) resize(slots);
}

AddressList::Iterator* AddressList::Index::find(const Key& key) {
  if (slots_.empty()) return nullptr;
  std::size_t mask = slots_.size() - 1;
  for (std::size_t i = home(key);; i = (i + 1) & mask) {
    if (slots_[i] == none_) return nullptr;
    if (keyOf(*slots_[i]) == key) return &slots_[i];
  }
}

void AddressList::Index::insert(Iterator it) {
  if (2 * (count_ + 1) > slots_.size()) resize(slots_.empty() ? 16 : 2 * slots_.size());
  std::size_t mask = slots_.size() - 1;
  std::size_t i = home(keyOf(*it));
  while (slots_[i] != none_) i = (i + 1) & mask;
  slots_[i] = it;
  ++count_;
}

void AddressList::Index::erase(Iterator it) {
  std::size_t mask = slots_.size() - 1;
  std::size_t i = home(keyOf(*it));
  while (slots_[i] != it) i = (i + 1) & mask;
  slots_[i] = none_;
  for (std::size_t j = (i + 1) & mask; slots_[j] != none_; j = (j + 1) & mask) {
    // An entry stays when its home lies cyclically in (i, j]; otherwise it moves into the hole.
    std::size_t k = home(keyOf(*slots_[j]));
    bool stays = i <= j ? (i < k && k <= j) : (i < k || k <= j);
    if (stays) continue;
    slots_[i] = slots_[j];
    slots_[j] = none_;
    i = j;
  }
  --count_;
}

void AddressList::Index::clear() {
  slots_.clear();
  count_ = 0;
  shift_ = 64;
}

bool AddressList::add(const Address& a, bool fromDump) {
  Key key = keyOf(a);
  Iterator* found = index_.find(key);
  if (!found) {
    hole_ = false;
    bool secondary = a.secondary;
    Iterator it;
    if (fromDump || secondary) {
      it = list_.emplace(list_.end(), a);
      if (secondary) {
        if (secondaries_ == list_.end()) secondaries_ = it;
      } else {
        ++primaries_;  // a dump lists the primaries first
      }
    } else {
      it = list_.emplace(secondaries_, a);
      insertPrimary(it);
      ++primaries_;
    }
    index_.insert(it);
    return true;
  }
  Iterator it = *found;
  bool changed = it->hasBroadcast != a.hasBroadcast || it->broadcast != a.broadcast || it->scope != a.scope;
  it->hasBroadcast = a.hasBroadcast;
  it->broadcast = a.broadcast;
  it->scope = a.scope;
  if (changed) it->forgetTexts();
  if (it->secondary && !a.secondary) {
    // Promoted: its subnet's primary went just before.
    if (secondaries_ == it) secondaries_ = std::next(it);
    it->secondary = false;
    if (hole_) {
      if (holeNext_ == it) holeNext_ = std::next(it);
      Iterator dest = holeNext_;
      for (auto p = holeNext_; p != secondaries_; ++p)
        if (p != it && p->scope >= holeScope_) dest = std::next(p);
      if (dest != it) list_.splice(dest, list_, it);
      ++primaries_;
    } else {
      list_.splice(secondaries_, list_, it);
      insertPrimary(it);
      ++primaries_;
    }
    changed = true;
  }
  hole_ = false;
  return changed;
}

bool AddressList::remove(const Address& a) {
  Iterator* found = index_.find(keyOf(a));
  if (!found) {
    hole_ = false;
    return false;
  }
  Iterator it = *found;
  index_.erase(it);
  hole_ = !it->secondary;
  if (it->secondary) {
    if (secondaries_ == it) secondaries_ = std::next(it);
  } else {
    --primaries_;
    holeNext_ = std::next(it);
    holeScope_ = it->scope;
  }
  list_.erase(it);
  return true;
}

void AddressList::clear() {
  index_.clear();
  list_.clear();
  primaries_ = 0;
  secondaries_ = list_.end();
  hole_ = false;
}

}  // namespace tq::store
