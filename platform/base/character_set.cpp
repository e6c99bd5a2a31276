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

}  // namespace

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
  for (unichar c : characters.view()) set(b->words, c);
  return CharacterSet(b);
}

CharacterSet CharacterSet::characterSetWithRange(Range range) {
  auto b = std::make_shared<Bits>();
  // Clipped to the code-unit space first, so that a huge length cannot wrap round.
  UInteger end = range.location > 0xFFFF ? range.location : range.location + std::min<UInteger>(range.length, 0x10000);
  for (UInteger c = range.location; c < end && c <= 0xFFFF; ++c) {
    set(b->words, static_cast<unsigned>(c));
  }
  return CharacterSet(b);
}

CharacterSet CharacterSet::invertedSet() const {
  auto b = std::make_shared<Bits>();
  for (std::size_t i = 0; i < b->words.size(); ++i) b->words[i] = ~bits_->words[i];
  return CharacterSet(b);
}

}  // namespace tq
