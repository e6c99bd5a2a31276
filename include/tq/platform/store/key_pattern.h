// Key patterns: POSIX extended regular expressions (regcomp's REG_EXTENDED) that select store keys.
//
// A pattern matches a key when it matches the whole key, as if anchored at both ends. The pattern is
// compiled as written, never wrapped in other text, so an unbalanced pattern such as "x)|(.*" is
// refused instead of turning into one that matches every key.
//
// Bounded cost: the C library compiles a counted repetition by writing its operand out that many
// times, so "a{1000}{1000}{10}" would take gigabytes. A pattern whose written-out size exceeds
// kKeyPatternMaxSize atoms is refused before it is compiled. Back-references (\1 to \9), which
// the C library matches by trying the ways to split the key (seconds for one key of a hundred
// characters), are refused too; every other pattern is matched in one pass over the key, in time
// linear in its length (times a factor bounded by the pattern's size).
//
// Matching is cheap for the common shapes: ".*" accepts every key without running the expression
// (a key holding U+0000 excepted, as the C library sees such a key end there), a pattern with no
// special character compares the key with its text, and any other pattern first checks the literal
// text the whole match must begin with. The answers are those of the expression itself.
//
// Threads: a KeyPattern may be used from several threads at once once compiled.
#pragma once

#include <regex.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "tq/platform/base/string.h"

namespace tq {

inline constexpr std::size_t kKeyPatternMaxSize = 10000;

// The size of the pattern with every counted repetition written out, in atoms (a character, an
// escape or a bracket expression each count one); kKeyPatternMaxSize + 1 when it is larger.
std::size_t keyPatternExpandedSize(std::string_view pattern);

class KeyPattern {
 public:
  // nil (a null pointer) for a nil, invalid or too large pattern. When whyRefused is given and the
  // pattern is refused, it receives the reason as a phrase that completes "the pattern is ...":
  //   "too large: its counted repetitions written out exceed 10000 characters"
  //   "not a valid extended regular expression (Unmatched ( or \()"   (the C library's own words)
  //   "not supported: back-references such as \1 cannot be matched in time linear in the key"
  //   "nil"
  static std::unique_ptr<KeyPattern> compile(const String& pattern, std::string* whyRefused = nullptr);
  ~KeyPattern();
  KeyPattern(const KeyPattern&) = delete;
  KeyPattern& operator=(const KeyPattern&) = delete;

  // True when the pattern matches the whole key.
  bool matches(const String& key) const;
  bool matches(std::u16string_view key) const;
  bool matches(const std::string& utf8Key) const;

 private:
  KeyPattern() = default;
  bool regexMatches(const std::string& utf8Key) const;
  regex_t re_{};
  bool compiled_ = false;
  bool everything_ = false;  // ".*"
  bool literal_ = false;     // no special character: the key must equal prefix_
  std::string prefix_;       // ASCII text every matching key begins with
};

}  // namespace tq
