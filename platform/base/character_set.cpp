#include "tq/platform/base/character_set.h"

#include <algorithm>

namespace tq {

namespace {

using Bits = std::array<uint64_t, 1024>;

void set(Bits& b, unsigned c) { b[c >> 6] |= uint64_t{1} << (c & 63); }

void addWhitespace(Bits& b) {
  // Unicode general category Zs, plus the horizontal tab.
  static const unsigned zs[] = {0x0020, 0x00A0, 0x1680, 0x202F, 0x205F, 0x3000};
  for (unsigned c : zs) set(b, c);
  for (unsigned c = 0x2000; c <= 0x200A; ++c) set(b, c);
  set(b, 0x0009);
}

void addNewlines(Bits& b) {
  for (unsigned c = 0x000A; c <= 0x000D; ++c) set(b, c);
  set(b, 0x0085);
  set(b, 0x2028);
  set(b, 0x2029);
}

using Ranges = std::vector<std::pair<char32_t, char32_t>>;

// Sorts the ranges and merges those that overlap or touch.
Ranges normalized(Ranges r) {
  std::sort(r.begin(), r.end());
  Ranges out;
  for (const auto& x : r) {
    if (!out.empty() && x.first <= out.back().second + 1) {
      out.back().second = std::max(out.back().second, x.second);
    } else {
      out.push_back(x);
    }
  }
  return out;
}

}  // namespace

bool CharacterSet::longCharacterIsMember(char32_t c) const noexcept {
  if (c <= 0xFFFF) return characterIsMember(static_cast<unichar>(c));
  const Ranges& r = bits_->above;
  // The first range that ends at or after c.
  auto it = std::lower_bound(r.begin(), r.end(), c, [](const auto& x, char32_t v) { return x.second < v; });
  return it != r.end() && it->first <= c;
}

CharacterSet::CharacterSet() {
  // Every empty set shares one bitmap.
  static const std::shared_ptr<const Bits> emptyBits = std::make_shared<const Bits>();
  bits_ = emptyBits;
}

const CharacterSet& CharacterSet::whitespaceCharacterSet() {
  static const CharacterSet set = [] {
    auto b = std::make_shared<Bits>();
    addWhitespace(b->words);
    return CharacterSet(b);
  }();
  return set;
}

const CharacterSet& CharacterSet::whitespaceAndNewlineCharacterSet() {
  static const CharacterSet set = [] {
    auto b = std::make_shared<Bits>();
    addWhitespace(b->words);
    addNewlines(b->words);
    return CharacterSet(b);
  }();
  return set;
}

const CharacterSet& CharacterSet::newlineCharacterSet() {
  static const CharacterSet set = [] {
    auto b = std::make_shared<Bits>();
    addNewlines(b->words);
    return CharacterSet(b);
  }();
  return set;
}

CharacterSet CharacterSet::characterSetWithCharactersInString(const String& characters) {
  auto b = std::make_shared<Bits>();
  std::u16string_view v = characters.view();
  Ranges above;
  for (std::size_t i = 0; i < v.size(); ++i) {
    if (isHighSurrogate(v[i]) && i + 1 < v.size() && isLowSurrogate(v[i + 1])) {
      char32_t c = characterOfSurrogatePair(v[i], v[i + 1]);
      above.emplace_back(c, c);
      ++i;
    } else {
      set(b->words, v[i]);
    }
  }
  b->above = normalized(std::move(above));
  return CharacterSet(b);
}

CharacterSet CharacterSet::characterSetWithRange(Range range) {
  auto b = std::make_shared<Bits>();
  // Clipped to the code space first, so that a huge length cannot wrap round.
  constexpr UInteger kLast = 0x10FFFF;
  if (range.length == 0 || range.location > kLast) return CharacterSet(b);
  const UInteger last = range.location + std::min<UInteger>(range.length - 1, kLast - range.location);
  for (UInteger c = range.location; c <= last && c <= 0xFFFF; ++c) set(b->words, static_cast<unsigned>(c));
  if (last > 0xFFFF) {
    b->above.emplace_back(static_cast<char32_t>(std::max<UInteger>(range.location, 0x10000)), static_cast<char32_t>(last));
  }
  return CharacterSet(b);
}

CharacterSet CharacterSet::invertedSet() const {
  auto b = std::make_shared<Bits>();
  for (std::size_t i = 0; i < b->words.size(); ++i) b->words[i] = ~bits_->words[i];
  // The gaps between the ranges above the plane, within U+10000-U+10FFFF.
  char32_t next = 0x10000;
  for (const auto& [first, last] : bits_->above) {
    if (first > next) b->above.emplace_back(next, first - 1);
    next = last + 1;
  }
  if (next <= 0x10FFFF) b->above.emplace_back(next, 0x10FFFF);
  return CharacterSet(b);
}

}  // namespace tq
