// The portable code path, one code unit at a time, and the choice of path at run time.
#include <algorithm>
#include <atomic>

#include "cpu_features.h"
#include "string_kernels.h"
#include "tq/foundation/instruction_set.h"
#include "tq/platform/base/exception.h"

namespace tq::detail {

namespace {

void setBit(SetMatcher::BitTable& t, unsigned x) {
  t.plain[x >> 3] |= static_cast<uint8_t>(1u << (x & 7));
  t.nibble[(x & 15) + 16 * (x >> 7)] |= static_cast<uint8_t>(1u << ((x >> 4) & 7));
}

}  // namespace

SetMatcher::SetMatcher(const CharacterSet& s)
    : set(&s), bitmap(s.bitmap().data()), surrogates(false), pairs(0), pairHigh{}, pairLow{}, anyFull(false),
      overflow(false), listed(0), listedBlock{}, full{}, unlisted{}, low{} {
  for (unsigned w = 0xD800 / 64; w < 0xE000 / 64; ++w) surrogates |= bitmap[w] != 0;
  UInteger above = 0;
  for (const auto& [first, last] : s.rangesAboveBMP()) above += last - first + 1;
  if (above > static_cast<UInteger>(kMaxPairs)) {
    surrogates = true;
  } else {
    for (const auto& [first, last] : s.rangesAboveBMP()) {
      for (char32_t c = first; c <= last; ++c) {
        pairHigh[pairs] = static_cast<uint16_t>(0xD800 + ((c - 0x10000) >> 10));
        pairLow[pairs] = static_cast<uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        ++pairs;
      }
    }
  }
  for (unsigned block = 0; block < 256; ++block) {
    if (block >= 0xD8 && block <= 0xDF) continue;  // surrogates: decided one by one
    const uint64_t* w = bitmap + 4 * block;
    if ((w[0] & w[1] & w[2] & w[3]) == ~uint64_t{0}) {
      setBit(full, block);
      anyFull = true;
    } else if (w[0] | w[1] | w[2] | w[3]) {
      if (listed == kMaxListed) {
        setBit(unlisted, block);
        overflow = true;
        continue;
      }
      listedBlock[listed] = static_cast<uint8_t>(block);
      for (unsigned x = 0; x < 256; ++x) {
        if ((w[x >> 6] >> (x & 63)) & 1u) setBit(low[listed], x);
      }
      ++listed;
    }
  }
}

namespace {

std::size_t plainFindLineBreak(const char16_t* in, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (in[i] == u'\n' || in[i] == u'\r') return i;
  }
  return n;
}

void plainReplaceLineBreaks(const char16_t* in, std::size_t n, char16_t* out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = (in[i] == u'\n' || in[i] == u'\r') ? u' ' : in[i];
}

std::size_t plainReduceWhitespace(const char16_t* in, std::size_t n, char16_t* out) {
  std::size_t k = 0;
  bool inRun = false;
  for (std::size_t i = 0; i < n; ++i) {
    if (isWhitespaceUnit(in[i])) {
      if (!inRun) out[k++] = u' ';
      inRun = true;
    } else {
      out[k++] = in[i];
      inRun = false;
    }
  }
  return k;
}

std::size_t plainFirstNonWhitespace(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  while (i < n && isWhitespaceUnit(in[i])) ++i;
  return i;
}

std::size_t plainEndOfNonWhitespace(const char16_t* in, std::size_t n) {
  while (n > 0 && isWhitespaceUnit(in[n - 1])) --n;
  return n;
}

// Is the pair high, low one of the few members above U+FFFF the matcher lists?
bool isListedPair(const SetMatcher& set, char16_t high, char16_t low) {
  for (int p = 0; p < set.pairs; ++p) {
    if (set.pairHigh[p] == high && set.pairLow[p] == low) return true;
  }
  return false;
}

std::size_t plainFindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  if (!set.surrogates && set.pairs) {
    for (std::size_t i = 0; i < n; ++i) {
      const char16_t c = in[i];
      if (c < 0xD800 || c > 0xDFFF) {
        if (set.isMember(c)) return i;
      } else if (isHighSurrogate(c) && i + 1 < n && isLowSurrogate(in[i + 1])) {
        if (isListedPair(set, c, in[i + 1])) return i;
        ++i;
      }
    }
    return n;
  }
  if (set.surrogates || set.pairs) {
    for (std::size_t i = 0; i < n; ++i) {
      if (set.isMemberAt(in, i, n)) return i;
    }
    return n;
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (set.isMember(in[i])) return i;
  }
  return n;
}

std::size_t plainFindMembers(const char16_t* in, std::size_t from, std::size_t n, const SetMatcher& set,
                             std::size_t* at, std::size_t cap, std::size_t* next) {
  std::size_t count = 0;
  std::size_t i = from;
  if (!set.surrogates) {
    // No surrogate is a member on its own, and the members above U+FFFF are listed as pairs: each
    // unit is settled here, without asking the set. The tables are read into locals, since the
    // stores to `at` could otherwise alias them.
    const uint64_t* const bitmap = set.bitmap;
    const SetMatcher pairsOnly = set;
    auto memberBit = [bitmap](char16_t c) -> unsigned { return (bitmap[c >> 6] >> (c & 63)) & 1u; };
    auto surrogateBit = [](char16_t c) -> unsigned { return static_cast<char16_t>(c - 0xD800) < 0x800; };
    for (;;) {
      // Four units at a time without a branch each, while none is a member or a surrogate (most
      // text); the four that hold one are settled one by one below.
      while (i + 4 <= n && !(memberBit(in[i]) | memberBit(in[i + 1]) | memberBit(in[i + 2]) | memberBit(in[i + 3]) |
                             surrogateBit(in[i]) | surrogateBit(in[i + 1]) | surrogateBit(in[i + 2]) |
                             surrogateBit(in[i + 3]))) {
        i += 4;
      }
      const std::size_t stop = std::min(n, i + 4);
      if (i >= stop || count + 4 > cap) break;
      for (; i < stop; ++i) {
        const char16_t c = in[i];
        if (!surrogateBit(c)) {
          at[count] = i;
          count += memberBit(c);
        } else if (isHighSurrogate(c) && i + 1 < n && isLowSurrogate(in[i + 1])) {
          if (isListedPair(pairsOnly, c, in[i + 1])) at[count++] = i;
          ++i;  // a pair is one character, member or not
        }
      }
    }
    // What is left when the room in `at` runs short: one unit at a time.
    for (; i < n && count < cap; ++i) {
      const char16_t c = in[i];
      if (static_cast<char16_t>(c - 0xD800) >= 0x800) {
        at[count] = i;
        count += (bitmap[c >> 6] >> (c & 63)) & 1u;
      } else if (isHighSurrogate(c) && i + 1 < n && isLowSurrogate(in[i + 1])) {
        if (isListedPair(pairsOnly, c, in[i + 1])) at[count++] = i;
        ++i;  // a pair is one character, member or not
      }
    }
    *next = i;
    return count;
  }
  for (; i < n && count < cap; ++i) {
    if (set.isMemberAt(in, i, n)) {
      at[count++] = i;
      i += isHighSurrogate(in[i]) && i + 1 < n && isLowSurrogate(in[i + 1]);  // a pair is one character
    }
  }
  *next = i;
  return count;
}

void plainReplaceMembers(const char16_t* in, std::size_t n, char16_t* out, const SetMatcher& set, char16_t unit) {
  if (set.surrogates || set.pairs) {
    for (std::size_t i = 0; i < n; ++i) out[i] = set.isMemberAt(in, i, n) ? unit : in[i];
    return;
  }
  const uint64_t* const bitmap = set.bitmap;  // in a local: the stores to `out` could alias it
  for (std::size_t i = 0; i < n; ++i) out[i] = (bitmap[in[i] >> 6] >> (in[i] & 63)) & 1u ? unit : in[i];
}

// The widest path the CPU runs, within the limit TQ_ISA sets.
const StringKernels* best() {
  const InstructionSet cap = instructionSetLimit();
  if (cap >= InstructionSet::AVX512 && cpuHasAVX512VBMI2()) return &kAVX512Kernels;
  if (cap >= InstructionSet::AVX2 && cpuHasAVX2()) return &kAVX2Kernels;
  return &kPlainKernels;
}

std::atomic<const StringKernels*>& current() {
  static std::atomic<const StringKernels*> table{best()};
  return table;
}

}  // namespace

const StringKernels kPlainKernels = {StringCodePath::Plain,     plainFindLineBreak,      plainReplaceLineBreaks,
                                     plainReduceWhitespace,     plainFirstNonWhitespace, plainEndOfNonWhitespace,
                                     plainFindMember,           plainFindMembers,
                                     plainReplaceMembers};

const StringKernels& stringKernels() { return *current().load(std::memory_order_relaxed); }

}  // namespace tq::detail

namespace tq {

std::vector<StringCodePath> availableStringCodePaths() {
  std::vector<StringCodePath> paths{StringCodePath::Plain};
  if (detail::cpuHasAVX2()) paths.push_back(StringCodePath::AVX2);
  if (detail::cpuHasAVX512VBMI2()) paths.push_back(StringCodePath::AVX512);
  return paths;
}

StringCodePath currentStringCodePath() { return detail::stringKernels().path; }

void setStringCodePath(StringCodePath path) {
  const detail::StringKernels* table = &detail::kPlainKernels;
  bool ok = true;
  if (path == StringCodePath::AVX2) {
    table = &detail::kAVX2Kernels;
    ok = detail::cpuHasAVX2();
  } else if (path == StringCodePath::AVX512) {
    table = &detail::kAVX512Kernels;
    ok = detail::cpuHasAVX512VBMI2();
  }
  if (!ok) {
    Exception::raise(NSInvalidArgumentException,
                     String::fromUTF8(std::string("setStringCodePath: this CPU cannot run the ") +
                                      stringCodePathName(path) + " path"));
  }
  detail::current().store(table, std::memory_order_relaxed);
}

const char* stringCodePathName(StringCodePath path) {
  switch (path) {
    case StringCodePath::Plain: return "plain";
    case StringCodePath::AVX2: return "AVX2";
    case StringCodePath::AVX512: return "AVX-512";
  }
  return "?";
}

}  // namespace tq
