// Byte search: a vector filter on the first and last pattern byte, with Two-Way as the linear
// fallback.
//
// The filter compares 32 or 64 offsets at a time: an offset is a candidate when the haystack holds
// the pattern's first byte there and its last byte m - 1 further on. Candidates are verified with
// memcmp. On ordinary data they are rare and the scan runs at memory speed; on periodic data every
// offset may be a candidate that fails late, so verification work is metered against the distance
// scanned, and once it outgrows a small multiple of it the rest of the haystack goes to Two-Way.
#include "tq/foundation/byte_search.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define TQ_SEARCH_X86 1
#endif

namespace tq {

namespace {

// Verification budget: bytes of candidate checks allowed after scanning `scanned` offsets.
inline bool overBudget(UInteger work, UInteger scanned) noexcept { return work > 4 * scanned + 8192; }

UInteger twoWay(const uint8_t* h, UInteger hl, const uint8_t* n, UInteger l) noexcept {
  // Shift table of the last byte (Horspool): shift[c] = 1 + last index of c in the pattern.
  uint64_t byteset[4] = {0, 0, 0, 0};
  UInteger shift[256];
  for (UInteger i = 0; i < l; ++i) {
    byteset[n[i] >> 6] |= uint64_t{1} << (n[i] & 63);
    shift[n[i]] = i + 1;
  }

  // Critical factorisation: the larger of the maximal suffixes under both byte orders.
  auto maximalSuffix = [&](bool reversed, UInteger& period) {
    UInteger ip = static_cast<UInteger>(-1), jp = 0, k = 1, p = 1;
    while (jp + k < l) {
      uint8_t a = n[ip + k], b = n[jp + k];
      if (a == b) {
        if (k == p) {
          jp += p;
          k = 1;
        } else {
          ++k;
        }
      } else if (reversed ? a < b : a > b) {
        jp += k;
        k = 1;
        p = jp - ip;
      } else {
        ip = jp++;
        k = p = 1;
      }
    }
    period = p;
    return ip;
  };
  UInteger p0, p1;
  UInteger ms = maximalSuffix(false, p0);
  UInteger ms1 = maximalSuffix(true, p1);
  UInteger p;
  if (ms1 + 1 > ms + 1) {
    ms = ms1;
    p = p1;
  } else {
    p = p0;
  }

  // A periodic pattern keeps what it knows of the left part across a shift by its period.
  UInteger mem0;
  if (std::memcmp(n, n + p, ms + 1) != 0) {
    mem0 = 0;
    p = (ms > l - ms - 1 ? ms : l - ms - 1) + 1;
  } else {
    mem0 = l - p;
  }
  UInteger mem = 0;

  const uint8_t* const start = h;
  const uint8_t* const end = h + hl;
  for (;;) {
    if (static_cast<UInteger>(end - h) < l) return NotFound;
    uint8_t tail = h[l - 1];
    if (byteset[tail >> 6] & (uint64_t{1} << (tail & 63))) {
      UInteger k = l - shift[tail];
      if (k) {
        if (k < mem) k = mem;
        h += k;
        mem = 0;
        continue;
      }
    } else {
      h += l;
      mem = 0;
      continue;
    }
    UInteger k = ms + 1 > mem ? ms + 1 : mem;
    while (k < l && n[k] == h[k]) ++k;
    if (k < l) {
      h += k - ms;
      mem = 0;
      continue;
    }
    for (k = ms + 1; k > mem && n[k - 1] == h[k - 1]; --k) {
    }
    if (k <= mem) return static_cast<UInteger>(h - start);
    h += p;
    mem = mem0;
  }
}

// Two-Way from offset `from` on, as an offset of the whole haystack.
UInteger twoWayFrom(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m, UInteger from) noexcept {
  UInteger r = twoWay(h + from, n - from, p, m);
  return r == NotFound ? NotFound : from + r;
}

// Candidates of a filter block; returns the match, NotFound to go on, or the offset to hand to
// Two-Way through `fallbackFrom`.
template <class Mask>
inline bool verifyMask(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m, UInteger base, Mask mask,
                       UInteger& work, UInteger& result) noexcept {
  while (mask) {
    unsigned bit = static_cast<unsigned>(__builtin_ctzll(static_cast<unsigned long long>(mask)));
    UInteger at = base + bit;
    if (std::memcmp(h + at + 1, p + 1, m - 2) == 0) {
      result = at;
      return true;
    }
    work += m;
    if (overBudget(work, at)) {
      result = twoWayFrom(h, n, p, m, at + 1);
      return true;
    }
    mask &= mask - 1;
  }
  return false;
}

// Offsets [from, n - m] one by one (fewer than a vector's worth remain).
UInteger filterTail(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m, UInteger from) noexcept {
  const uint8_t first = p[0], last = p[m - 1];
  for (UInteger at = from; at + m <= n; ++at) {
    if (h[at] == first && h[at + m - 1] == last && std::memcmp(h + at + 1, p + 1, m - 2) == 0) return at;
  }
  return NotFound;
}

// Portable: memchr finds first-byte candidates; each stop is metered, so dense candidates switch to
// Two-Way early.
UInteger searchScalar(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m) noexcept {
  const uint8_t first = p[0], last = p[m - 1];
  const UInteger lastStart = n - m;
  UInteger work = 0;
  UInteger at = 0;
  while (at <= lastStart) {
    const void* hit = std::memchr(h + at, first, lastStart - at + 1);
    if (!hit) return NotFound;
    at = static_cast<UInteger>(static_cast<const uint8_t*>(hit) - h);
    if (h[at + m - 1] == last) {
      if (std::memcmp(h + at + 1, p + 1, m - 2) == 0) return at;
      work += m;
    }
    work += 16;
    if (overBudget(work, at)) return twoWayFrom(h, n, p, m, at + 1);
    ++at;
  }
  return NotFound;
}

#ifdef TQ_SEARCH_X86

__attribute__((target("sse2"))) UInteger searchSSE2(const uint8_t* h, UInteger n, const uint8_t* p,
                                                     UInteger m) noexcept {
  const __m128i first = _mm_set1_epi8(static_cast<char>(p[0]));
  const __m128i last = _mm_set1_epi8(static_cast<char>(p[m - 1]));
  const UInteger starts = n - m + 1;  // offsets to try
  UInteger work = 0, result = NotFound, i = 0;
  for (; i + 32 <= starts; i += 32) {
    const uint8_t* a = h + i;
    const uint8_t* b = h + i + m - 1;
    __m128i e0 = _mm_and_si128(_mm_cmpeq_epi8(first, _mm_loadu_si128(reinterpret_cast<const __m128i*>(a))),
                               _mm_cmpeq_epi8(last, _mm_loadu_si128(reinterpret_cast<const __m128i*>(b))));
    __m128i e1 = _mm_and_si128(_mm_cmpeq_epi8(first, _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + 16))),
                               _mm_cmpeq_epi8(last, _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + 16))));
    uint32_t mask = static_cast<uint32_t>(_mm_movemask_epi8(e0)) |
                    (static_cast<uint32_t>(_mm_movemask_epi8(e1)) << 16);
    if (mask && verifyMask(h, n, p, m, i, mask, work, result)) return result;
  }
  return filterTail(h, n, p, m, i);
}

__attribute__((target("avx2"))) UInteger searchAVX2(const uint8_t* h, UInteger n, const uint8_t* p,
                                                     UInteger m) noexcept {
  const __m256i first = _mm256_set1_epi8(static_cast<char>(p[0]));
  const __m256i last = _mm256_set1_epi8(static_cast<char>(p[m - 1]));
  const UInteger starts = n - m + 1;
  UInteger work = 0, result = NotFound, i = 0;
  for (; i + 64 <= starts; i += 64) {
    const uint8_t* a = h + i;
    const uint8_t* b = h + i + m - 1;
    __m256i e0 = _mm256_and_si256(
        _mm256_cmpeq_epi8(first, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a))),
        _mm256_cmpeq_epi8(last, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b))));
    __m256i e1 = _mm256_and_si256(
        _mm256_cmpeq_epi8(first, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + 32))),
        _mm256_cmpeq_epi8(last, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + 32))));
    if (_mm256_testz_si256(_mm256_or_si256(e0, e1), _mm256_or_si256(e0, e1))) continue;
    uint64_t mask = static_cast<uint32_t>(_mm256_movemask_epi8(e0)) |
                    (static_cast<uint64_t>(static_cast<uint32_t>(_mm256_movemask_epi8(e1))) << 32);
    if (verifyMask(h, n, p, m, i, mask, work, result)) return result;
  }
  if (i >= starts) return NotFound;
  UInteger rest = searchSSE2(h + i, n - i, p, m);
  return rest == NotFound ? NotFound : i + rest;
}

#endif  // TQ_SEARCH_X86

using SearchFn = UInteger (*)(const uint8_t*, UInteger, const uint8_t*, UInteger) noexcept;

SearchFn kernelFor(InstructionSet isa) noexcept {
#ifdef TQ_SEARCH_X86
  switch (isa) {
    case InstructionSet::AVX512:  // no 512-bit version: the scan is bound by memory already
    case InstructionSet::AVX2: return searchAVX2;
    case InstructionSet::SSSE3: return searchSSE2;
    default: break;
  }
#else
  (void)isa;
#endif
  return searchScalar;
}

// The cases every kernel shares; answers true with `result` set when they decide.
inline bool trivial(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m, UInteger& result) noexcept {
  if (m == 0) {
    result = 0;
    return true;
  }
  if (m > n) {
    result = NotFound;
    return true;
  }
  if (m == 1) {
    const void* hit = std::memchr(h, p[0], n);
    result = hit ? static_cast<UInteger>(static_cast<const uint8_t*>(hit) - h) : NotFound;
    return true;
  }
  return false;
}

}  // namespace

UInteger findBytes(const void* haystack, UInteger length, const void* pattern, UInteger patternLength) noexcept {
  static const SearchFn best = kernelFor(bestInstructionSet());
  auto* h = static_cast<const uint8_t*>(haystack);
  auto* p = static_cast<const uint8_t*>(pattern);
  UInteger r;
  if (trivial(h, length, p, patternLength, r)) return r;
  return best(h, length, p, patternLength);
}

UInteger findBytes(const void* haystack, UInteger length, const void* pattern, UInteger patternLength,
                   InstructionSet isa) noexcept {
  auto* h = static_cast<const uint8_t*>(haystack);
  auto* p = static_cast<const uint8_t*>(pattern);
  UInteger r;
  if (trivial(h, length, p, patternLength, r)) return r;
  return kernelFor(isa)(h, length, p, patternLength);
}

UInteger findBytesTwoWay(const void* haystack, UInteger length, const void* pattern, UInteger patternLength) noexcept {
  auto* h = static_cast<const uint8_t*>(haystack);
  auto* p = static_cast<const uint8_t*>(pattern);
  if (patternLength == 0) return 0;
  if (patternLength > length) return NotFound;
  return twoWay(h, length, p, patternLength);
}

}  // namespace tq
