// The string helpers. Bulk loops live in the kernels (string_kernels*.cpp), chosen by CPU; the
// rest follows the documented algorithms step by step, including their length-for-position
// comparisons.
#include "tq/foundation/string_extensions.h"

#include <algorithm>
#include <string>
#include <vector>

#include "string_kernels.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/base/string_encoding.h"
#include "tq/platform/base/uuid.h"

namespace tq {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

[[noreturn]] void outOfDomain(const char16_t* className, const char16_t* method, int line, const std::string& what) {
  AssertionHandler::currentHandler().handleFailureInMethod(
      String(method), String(className), String::fromUTF8(detail::sourceFileName(__FILE__)), line,
      String::fromUTF8(what));
}

// A builder with room for `n` code units plus the kernels' slack.
MutableString builderFor(UInteger n) {
  MutableString m;
  m.reserve(n + detail::kOutputSlack);
  return m;
}

// The digits of value in base, most significant first, into the end of a 32-byte area; returns the
// index of the first digit. The area's last byte stays the terminator.
int writeDigits(char (&area)[32], int value, int base, const char* alphabet) {
  int p = 30;
  do {
    int q = value / base;
    int r = value % base;
    area[p--] = alphabet[r];
    value = q;
  } while (value != 0);
  return p + 1;
}

void checkIntegerDomain(const char16_t* className, const char16_t* method, int line, int value, int base) {
  if (base < 2 || base > 16) {
    outOfDomain(className, method, line, "base " + std::to_string(base) + " is outside 2-16");
  }
  if (value < 0) outOfDomain(className, method, line, "value " + std::to_string(value) + " is negative");
}

String letterString(int value, int minLength, const char* alphabet, const char16_t* method, int line) {
  if (value < 0) outOfDomain(u"String", method, line, "value " + std::to_string(value) + " is negative");
  char area[32] = {};  // per call rather than per process: safe on any number of threads
  int first = writeDigits(area, value, 26, alphabet);
  int letters = 31 - first;
  int m = minLength >= 31 ? 30 : minLength;
  while (letters < m) {
    area[--first] = alphabet[0];
    ++letters;
  }
  return String::fromASCII(std::string_view(area + first, static_cast<std::size_t>(letters)));
}

}  // namespace

String quoteQuotes(const String& self) {
  if (self.isNil()) return {};
  if (!self.rangeOfString(u"\"").found() && !self.rangeOfString(u"\n").found() &&
      !self.rangeOfString(u"\r").found()) {
    return self;
  }
  std::u16string_view v = self.view();
  MutableString m;
  m.reserve(v.size() + 2 + v.size() / 8);
  m.appendCharacter(u'"');
  UInteger from = 0;
  for (UInteger at = v.find(u'"'); at != std::u16string_view::npos; at = v.find(u'"', at + 1)) {
    m.appendCharacters(v.data() + from, at + 1 - from);
    m.appendCharacter(u'"');
    from = at + 1;
  }
  m.appendCharacters(v.data() + from, v.size() - from);
  m.appendCharacter(u'"');
  return std::move(m).take();
}

namespace {

// What is written of a substituted text: a MutableString filled up to `written` (its length is set
// at the end), grown when long substitutes outrun the input.
struct SubstitutionOutput {
  MutableString& m;
  UInteger written;
  void put(const unichar* units, UInteger count) {
    if (written + count > m.capacity()) {
      m.setLength(written);
      m.reserve(std::max(m.capacity() * 2, written + count + detail::kOutputSlack));
    }
    std::char_traits<char16_t>::copy(m.mutableData() + written, units, count);
    written += count;
  }
  void put(unichar unit) { put(&unit, 1); }
  // A lone high surrogate at the end, which a low surrogate coming next would join.
  bool endsWithHighSurrogate() const { return written && isHighSurrogate(m.mutableData()[written - 1]); }
  unichar last() const { return m.mutableData()[written - 1]; }
  void dropLast() { --written; }
};

// The substitution loop where a replacement makes surrogates meet: the text is searched again from
// its start after each replacement, so a high surrogate left before the replaced character and a
// low one after it (the substitute's first unit, or the next unit of the text) are one character
// now, matched as that character, and a low surrogate so joined is never matched alone. The text
// already written holds no member (the substitute holds none), so the search needs to look only
// at where the written text meets what comes next. Runs until the rest of the text is back at one
// of its own character boundaries with nothing to join; returns that index.
class JoinedSurrogates {
 public:
  JoinedSurrogates(std::u16string_view text, std::u16string_view substitute, const CharacterSet& set,
                   MutableString& m, UInteger written)
      : v_(text), sub_(substitute), set_(set), out_{m, written} {}

  UInteger written() const { return out_.written; }
  // Replaces the member character that ended at `after` and goes on as the restarting search would.
  UInteger replaceAndSettle(UInteger after) {
    i_ = after;
    pushSubstitute();
    while (true) {
      const int u = peek(0);
      if (u < 0) return v_.size();
      if (out_.endsWithHighSurrogate() && isLowSurrogate(static_cast<unichar>(u))) {
        // The written high surrogate and this low one are one character now.
        const char32_t c = characterOfSurrogatePair(out_.last(), static_cast<unichar>(u));
        consume(1);
        if (set_.longCharacterIsMember(c)) {
          out_.dropLast();
          pushSubstitute();
        } else {
          out_.put(static_cast<unichar>(u));
        }
        continue;
      }
      if (segments_.empty()) return i_;  // the text again, at one of its own boundaries
      Segment& top = segments_.back();
      if (top.at + 1 < top.end) {
        // The substitute holds no member and its characters fall where they do alone: all but its
        // last unit, which may join what follows, go out as they are.
        out_.put(sub_.data() + top.at, top.end - 1 - top.at);
        top.at = top.end - 1;
        continue;
      }
      const int next = peek(1);
      const bool pair = isHighSurrogate(static_cast<unichar>(u)) && next >= 0 && isLowSurrogate(static_cast<unichar>(next));
      const bool member = pair ? set_.longCharacterIsMember(characterOfSurrogatePair(static_cast<unichar>(u),
                                                                                      static_cast<unichar>(next)))
                               : set_.characterIsMember(static_cast<unichar>(u));
      const UInteger width = pair ? 2 : 1;
      if (!member) {
        out_.put(static_cast<unichar>(u));
        if (pair) out_.put(static_cast<unichar>(next));
      }
      consume(width);
      if (member) pushSubstitute();
    }
  }

 private:
  // What is left of one placed substitute, in front of the rest of the text.
  struct Segment {
    UInteger at, end;
  };

  void pushSubstitute() {
    if (!sub_.empty()) segments_.push_back({0, sub_.size()});
  }
  // The unit `k` places ahead (0 or 1), or -1 past the end.
  int peek(UInteger k) const {
    for (auto s = segments_.rbegin(); s != segments_.rend(); ++s) {
      const UInteger left = s->end - s->at;
      if (k < left) return sub_[s->at + k];
      k -= left;
    }
    return i_ + k < v_.size() ? v_[i_ + k] : -1;
  }
  void consume(UInteger count) {
    while (count--) {
      if (segments_.empty()) {
        ++i_;
        continue;
      }
      if (++segments_.back().at == segments_.back().end) segments_.pop_back();
    }
  }

  std::u16string_view v_, sub_;
  const CharacterSet& set_;
  SubstitutionOutput out_;
  std::vector<Segment> segments_;
  UInteger i_ = 0;
};

// Runs JoinedSurrogates from the member that ended at `after`; returns where the text goes on and
// how much is written then. Kept out of line, so that the common loop keeps its state in registers.
[[gnu::noinline]] std::pair<UInteger, UInteger> settleJoins(std::u16string_view text, std::u16string_view substitute,
                                                            const CharacterSet& set, MutableString& m,
                                                            UInteger written, UInteger after) {
  JoinedSurrogates joined(text, substitute, set, m, written);
  const UInteger at = joined.replaceAndSettle(after);
  return {at, joined.written()};
}

}  // namespace

String stringWithSubstitute(const String& self, const String& substitute, const CharacterSet& set) {
  if (self.isNil()) return {};
  const auto& k = detail::stringKernels();
  detail::SetMatcher matcher(set);
  std::u16string_view v = self.view();
  UInteger at = k.findMember(v.data(), v.size(), matcher);
  if (at == v.size()) return self;
  // Replacing and searching again from the start only terminates when the substitute brings no
  // member in; with that given, one left-to-right pass yields the same text, except where a
  // replacement makes two surrogates meet (below).
  std::u16string_view sub = substitute.view();
  if (k.findMember(sub.data(), sub.size(), matcher) != sub.size()) {
    outOfDomain(u"String", u"stringWithSubstitute:forCharactersFromSet:", __LINE__,
                "the substitute contains a member of the character set, so substituting would never end");
  }
  // Surrogates can meet at a replacement only when the substitute is empty or has a surrogate at
  // an end.
  const bool mayJoin = sub.empty() || std::any_of(sub.begin(), sub.end(), [](unichar u) { return u >= 0xD800 && u <= 0xDFFF; });
  if (sub.size() == 1 && !mayJoin && !set.hasMembersAboveBMP()) {
    // Every match is one unit wide: copy and replace in one pass.
    MutableString m = builderFor(v.size());
    unichar* out = m.mutableData();
    std::char_traits<char16_t>::copy(out, v.data(), at);
    k.replaceMembers(v.data() + at, v.size() - at, out + at, matcher, sub[0]);
    m.setLength(v.size());
    return std::move(m).take();
  }
  // Written straight into the result, which grows when long substitutes outrun the input.
  MutableString m = builderFor(v.size());
  unichar* out = m.mutableData();
  UInteger written = 0;
  auto put = [&](const unichar* units, UInteger count) {
    if (written + count > m.capacity()) {
      m.setLength(written);
      m.reserve(std::max(m.capacity() * 2, written + count + (v.size() - at)));
      out = m.mutableData();
    }
    std::char_traits<char16_t>::copy(out + written, units, count);
    written += count;
  };
  // Where surrogates can meet: after a unit written last that is a high surrogate, before the
  // substitute's first unit or (for a deletion) the text's next one when that is a low surrogate;
  // after a substitute that ends in a high surrogate, before such a unit of the text.
  const bool subStartsLow = !sub.empty() && isLowSurrogate(sub.front());
  const bool subEndsHigh = !sub.empty() && isHighSurrogate(sub.back());
  unichar last = 0;  // the unit written last (0: none, or one that joins nothing)
  // The members are found a batch at a time, from the first one on.
  UInteger from = 0;
  UInteger found[256];
  for (UInteger scan = at; scan < v.size();) {
    const UInteger count = k.findMembers(v.data(), scan, v.size(), matcher, found, std::size(found), &scan);
    for (UInteger j = 0; j < count; ++j) {
      at = found[j];
      // A member above U+FFFF is matched, and replaced, as its whole surrogate pair.
      const UInteger width = isHighSurrogate(v[at]) && at + 1 < v.size() && isLowSurrogate(v[at + 1]) ? 2 : 1;
      put(v.data() + from, at - from);
      if (mayJoin && at > from) last = v[at - 1];
      from = at + width;
      if (mayJoin && (isHighSurrogate(last) || subEndsHigh)) {
        const bool lowNext = from < v.size() && isLowSurrogate(v[from]);
        if ((isHighSurrogate(last) && (sub.empty() ? lowNext : subStartsLow)) || (subEndsHigh && lowNext)) {
          // The text from here on is no longer divided into characters as the batch found it.
          const auto [resume, total] = settleJoins(v, sub, set, m, written, from);
          written = total;
          out = m.mutableData();
          last = written ? out[written - 1] : 0;
          from = scan = resume;
          break;
        }
      }
      if (mayJoin && !sub.empty()) last = sub.back();
      put(sub.data(), sub.size());
    }
  }
  put(v.data() + from, v.size() - from);
  m.setLength(written);
  return std::move(m).take();
}

String stringByRemovingLineBreaks(const String& self) {
  if (self.isNil()) return {};
  const auto& k = detail::stringKernels();
  std::u16string_view v = self.view();
  UInteger at = k.findLineBreak(v.data(), v.size());
  if (at == v.size()) return self;
  MutableString m = builderFor(v.size());
  unichar* out = m.mutableData();
  std::char_traits<char16_t>::copy(out, v.data(), at);
  k.replaceLineBreaks(v.data() + at, v.size() - at, out + at);
  m.setLength(v.size());
  return std::move(m).take();
}

String stringByReducingWhitespaces(const String& self) {
  if (self.isNil()) return {};
  std::u16string_view v = self.view();
  if (v.empty()) return String::newEmpty();  // a new string even then
  MutableString m = builderFor(v.size());
  m.setLength(detail::stringKernels().reduceWhitespace(v.data(), v.size(), m.mutableData()));
  return std::move(m).take();
}

String stringByRemovingSurroundingWhitespace(const String& self) {
  if (self.isNil()) return {};
  const auto& k = detail::stringKernels();
  std::u16string_view v = self.view();
  UInteger first = k.firstNonWhitespace(v.data(), v.size());
  if (first == v.size()) return String::empty();
  UInteger end = first + k.endOfNonWhitespace(v.data() + first, v.size() - first);
  if (first == 0 && end == v.size()) return self;
  return self.substringWithRange({first, end - first});
}

String stringByRemovingFirstLine(const String& self) {
  if (self.isNil()) return {};
  Range r = self.rangeOfString(u"\n");
  if (r.length == 0) return self;
  if (r.length >= self.length() - 1) return self;  // the match's length, not its position
  return self.substringWithRange({r.location + 1, self.length() - r.location - 1});
}

String stringByRemovingLastLine(const String& self) {
  if (self.isNil()) return {};
  // For an empty receiver the length - 1 wraps round and the range check raises.
  Range r = self.rangeOfString(u"\n", BackwardsSearch, Range{0, self.length() - 1});
  if (!r.found()) return self;
  if (r.length >= self.length() - 1) return self;  // the match's length, not its position
  return self.substringWithRange({0, r.location + 1});
}

String stringByRemovingNumberOfLinesFromBeginning(const String& self, int count) {
  if (self.isNil()) return {};
  // The same steps as applying stringByRemovingFirstLine count times, on positions instead of
  // intermediate strings.
  std::u16string_view v = self.view();
  UInteger start = 0;
  for (int i = 0; i < count; ++i) {
    std::u16string_view rest = v.substr(start);
    UInteger at = rest.find(u'\n');
    if (at == std::u16string_view::npos || 1 >= rest.size() - 1) break;  // unchanged from here on
    start += at + 1;
  }
  if (start == 0) return self;
  return self.substringWithRange({start, v.size() - start});
}

String stringFrom4ByteCode(uint32_t code) {
  const unichar units[4] = {static_cast<unichar>(code >> 24 & 0xFF), static_cast<unichar>(code >> 16 & 0xFF),
                            static_cast<unichar>(code >> 8 & 0xFF), static_cast<unichar>(code & 0xFF)};
  return String::withCharacters(units, 4);
}

String uniqueString() { return uuidString(); }

String stringWithData(const Data& data, uint32_t encoding) { return stringWithDataEncoding(data, encoding); }

String bigLetterStringWithInteger(int value, int minLength) {
  return letterString(value, minLength, "ABCDEFGHIJKLMNOPQRSTUVWXYZ", u"bigLetterStringWithInteger:minLength:",
                      __LINE__);
}

String smallLetterStringWithInteger(int value, int minLength) {
  return letterString(value, minLength, "abcdefghijklmnopqrstuvwxyz", u"smallLetterStringWithInteger:minLength:",
                      __LINE__);
}

String stringWithInteger(int value, int base) {
  checkIntegerDomain(u"String", u"stringWithInteger:base:", __LINE__, value, base);
  char area[32] = {};
  int first = writeDigits(area, value, base, kDigits);
  return String::fromASCII(std::string_view(area + first, static_cast<std::size_t>(31 - first)));
}

void appendInteger(MutableString& self, int value, int base) {
  checkIntegerDomain(u"MutableString", u"appendInteger:base:", __LINE__, value, base);
  char area[32] = {};
  int first = writeDigits(area, value, base, kDigits);
  self.appendASCII(std::string_view(area + first, static_cast<std::size_t>(31 - first)));
}

}  // namespace tq
