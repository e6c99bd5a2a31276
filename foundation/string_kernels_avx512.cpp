// The AVX-512 code path: 32 code units per step, with mask registers, the byte permutes of VBMI
// and the 16-bit compress of VBMI2. Compiled for those instructions function by function; only
// chosen when the CPU has them.
#include <immintrin.h>

#include <algorithm>

#include "string_kernels.h"

#define TQ_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,popcnt,bmi,bmi2")))

namespace tq::detail {

namespace {

TQ_AVX512 inline __m512i load(const char16_t* p) { return _mm512_loadu_si512(p); }
TQ_AVX512 inline void store(char16_t* p, __m512i v) { _mm512_storeu_si512(p, v); }

TQ_AVX512 inline __mmask32 lineBreaks(__m512i v) {
  return _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x0A)) | _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x0D));
}

TQ_AVX512 inline __mmask32 whitespace(__m512i v) {
  __mmask32 m = _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x20)) | _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x09));
  m |= _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0xA0));
  m |= _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x1680));
  m |= _mm512_cmple_epu16_mask(_mm512_sub_epi16(v, _mm512_set1_epi16(0x2000)), _mm512_set1_epi16(0x0A));
  m |= _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x202F));
  m |= _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x205F));
  m |= _mm512_cmpeq_epi16_mask(v, _mm512_set1_epi16(0x3000));
  return m;
}

TQ_AVX512 std::size_t avx512FindLineBreak(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  for (; i + 64 <= n; i += 64) {
    uint64_t bits = lineBreaks(load(in + i)) | uint64_t{lineBreaks(load(in + i + 32))} << 32;
    if (bits) return i + static_cast<std::size_t>(__builtin_ctzll(bits));
  }
  for (; i < n; i += 32) {
    __mmask32 valid = n - i >= 32 ? ~__mmask32{0} : static_cast<__mmask32>((1u << (n - i)) - 1);
    __m512i v = _mm512_maskz_loadu_epi16(valid, in + i);
    if (__mmask32 bits = lineBreaks(v) & valid) return i + static_cast<std::size_t>(__builtin_ctz(bits));
  }
  return n;
}

TQ_AVX512 void avx512ReplaceLineBreaks(const char16_t* in, std::size_t n, char16_t* out) {
  const __m512i space = _mm512_set1_epi16(0x20);
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512i v = load(in + i);
    store(out + i, _mm512_mask_blend_epi16(lineBreaks(v), v, space));
  }
  if (i < n) {
    __mmask32 valid = static_cast<__mmask32>((1u << (n - i)) - 1);
    __m512i v = _mm512_maskz_loadu_epi16(valid, in + i);
    _mm512_mask_storeu_epi16(out + i, valid, _mm512_mask_blend_epi16(lineBreaks(v), v, space));
  }
}

TQ_AVX512 std::size_t avx512ReduceWhitespace(const char16_t* in, std::size_t n, char16_t* out) {
  const __m512i space = _mm512_set1_epi16(0x20);
  char16_t* o = out;
  uint32_t carry = 0;  // 1 when the unit before the block was whitespace
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m512i v = load(in + i);
    uint32_t w = whitespace(v);
    __m512i replaced = _mm512_mask_blend_epi16(w, v, space);
    uint32_t drop = w & ((w << 1) | carry);
    carry = w >> 31;
    if (!drop) {
      store(o, replaced);
      o += 32;
      continue;
    }
    uint32_t keep = ~drop;
    store(o, _mm512_maskz_compress_epi16(keep, replaced));
    o += _mm_popcnt_u32(keep);
  }
  if (i < n) {
    __mmask32 valid = static_cast<__mmask32>((1u << (n - i)) - 1);
    __m512i v = _mm512_maskz_loadu_epi16(valid, in + i);
    uint32_t w = whitespace(v) & valid;
    uint32_t keep = ~(w & ((w << 1) | carry)) & valid;
    store(o, _mm512_maskz_compress_epi16(keep, _mm512_mask_blend_epi16(w, v, space)));
    o += _mm_popcnt_u32(keep);
  }
  return static_cast<std::size_t>(o - out);
}

TQ_AVX512 std::size_t avx512FirstNonWhitespace(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    if (uint32_t other = ~whitespace(load(in + i))) return i + static_cast<std::size_t>(__builtin_ctz(other));
  }
  if (i < n) {
    __mmask32 valid = static_cast<__mmask32>((1u << (n - i)) - 1);
    if (uint32_t other = ~whitespace(_mm512_maskz_loadu_epi16(valid, in + i)) & valid) {
      return i + static_cast<std::size_t>(__builtin_ctz(other));
    }
  }
  return n;
}

TQ_AVX512 std::size_t avx512EndOfNonWhitespace(const char16_t* in, std::size_t n) {
  while (n >= 32) {
    uint32_t other = ~whitespace(load(in + n - 32));
    if (other) return n - 32 + 32 - static_cast<std::size_t>(__builtin_clz(other));
    n -= 32;
  }
  if (n == 0) return 0;
  __mmask32 valid = static_cast<__mmask32>((1u << n) - 1);
  uint32_t other = ~whitespace(_mm512_maskz_loadu_epi16(valid, in)) & valid;
  return other ? 32 - static_cast<std::size_t>(__builtin_clz(other)) : 0;
}

// Membership works on bytes, 64 units at a time: the low bytes and the block bytes (high bytes)
// of two vectors are gathered into one vector each, in unit order.

struct PackedUnits {
  __m512i low, block;
};

TQ_AVX512 inline PackedUnits pack(__m512i a, __m512i b) {
  alignas(64) static constexpr uint8_t kEven[64] = {
      0,  2,  4,  6,  8,  10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30, 32, 34, 36, 38, 40, 42,
      44, 46, 48, 50, 52, 54, 56, 58, 60, 62, 64, 66, 68, 70, 72, 74, 76, 78, 80, 82, 84, 86,
      88, 90, 92, 94, 96, 98, 100, 102, 104, 106, 108, 110, 112, 114, 116, 118, 120, 122, 124, 126};
  const __m512i even = _mm512_load_si512(kEven);
  const __m512i odd = _mm512_add_epi8(even, _mm512_set1_epi8(1));
  return {_mm512_permutex2var_epi8(a, even, b), _mm512_permutex2var_epi8(a, odd, b)};
}

// The bytes x whose bit is set in the table (plain layout: bit x & 7 of byte x >> 3).
TQ_AVX512 inline __mmask64 lookup(__m512i x, const SetMatcher::BitTable& t) {
  const __m512i table = _mm512_maskz_broadcast_i64x4(0xFF, _mm256_load_si256(reinterpret_cast<const __m256i*>(t.plain)));
  const __m512i bitOf = _mm512_set1_epi64(0x8040201008040201LL);
  __m512i row = _mm512_maskz_permutexvar_epi8(~__mmask64{0}, _mm512_and_si512(_mm512_srli_epi16(x, 3), _mm512_set1_epi8(0x1F)), table);
  __m512i bit = _mm512_maskz_permutexvar_epi8(~__mmask64{0}, _mm512_and_si512(x, _mm512_set1_epi8(7)), bitOf);
  return _mm512_test_epi8_mask(row, bit);
}

// Members the tables settle, and the candidates left for the one-by-one check.
TQ_AVX512 inline __mmask64 tableMembers(const PackedUnits& u, const SetMatcher& set, __mmask64& candidates) {
  __mmask64 hit = set.anyFull ? lookup(u.block, set.full) : 0;
  for (int k = 0; k < set.listed; ++k) {
    __mmask64 inBlock = _mm512_cmpeq_epi8_mask(u.block, _mm512_set1_epi8(static_cast<char>(set.listedBlock[k])));
    hit |= inBlock & lookup(u.low, set.low[k]);
  }
  candidates = set.overflow ? lookup(u.block, set.unlisted) : 0;
  if (set.surrogates) {
    candidates |= _mm512_cmpeq_epi8_mask(_mm512_and_si512(u.block, _mm512_set1_epi8(static_cast<char>(0xF8))),
                                         _mm512_set1_epi8(static_cast<char>(0xD8)));
  }
  return hit;
}

// Loads the units from..n (at most 64) as two vectors; lanes past n read as U+0000.
TQ_AVX512 inline uint64_t loadTail(const char16_t* in, std::size_t count, __m512i& a, __m512i& b) {
  uint64_t valid = count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
  a = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(valid), in);
  b = _mm512_maskz_loadu_epi16(static_cast<__mmask32>(valid >> 32), in + 32);
  return valid;
}

// The 64 units at in + i into a and b: whole when the text has them, else its tail (see loadTail).
// Returns the valid units as bits.
TQ_AVX512 inline uint64_t loadBlock(const char16_t* in, std::size_t i, std::size_t n, __m512i& a, __m512i& b) {
  if (i + 64 <= n) {
    a = load(in + i);
    b = load(in + i + 32);
    return ~uint64_t{0};
  }
  return loadTail(in + i, n - i, a, b);
}

// The member characters starting in the 64 units at in + i (fewer at the end of the text), as
// bits. Candidates are settled one by one; with `firstOnly`, only up to the first member.
TQ_AVX512 inline uint64_t blockMembers(const char16_t* in, std::size_t i, std::size_t n, const SetMatcher& set,
                                       bool firstOnly) {
  __m512i a, b;
  const uint64_t valid = loadBlock(in, i, n, a, b);
  __mmask64 candidates;
  uint64_t hits = tableMembers(pack(a, b), set, candidates);
  if (set.pairs) {
    // The units one place further on, to see a listed surrogate pair as one character.
    __m512i a1, b1;
    if (i + 65 <= n) {
      a1 = load(in + i + 1);
      b1 = load(in + i + 33);
    } else {
      loadTail(in + i + 1, n - i - 1, a1, b1);
    }
    for (int k = 0; k < set.pairs; ++k) {
      const __m512i high = _mm512_set1_epi16(static_cast<short>(set.pairHigh[k]));
      const __m512i low = _mm512_set1_epi16(static_cast<short>(set.pairLow[k]));
      uint64_t ha = _mm512_cmpeq_epi16_mask(a, high) & _mm512_cmpeq_epi16_mask(a1, low);
      uint64_t hb = _mm512_cmpeq_epi16_mask(b, high) & _mm512_cmpeq_epi16_mask(b1, low);
      hits |= ha | hb << 32;
    }
  }
  hits &= valid;
  if (uint64_t c = candidates & valid) {
    if (firstOnly && hits) c &= (hits & (0 - hits)) - 1;  // only those before the first sure member
    for (; c; c &= c - 1) {
      unsigned k = static_cast<unsigned>(__builtin_ctzll(c));
      if (set.isMemberAt(in, i + k, n)) {
        hits |= uint64_t{1} << k;
        if (firstOnly) break;
      }
    }
  }
  return hits;
}

TQ_AVX512 std::size_t avx512FindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  for (std::size_t i = 0; i < n; i += 64) {
    if (uint64_t hits = blockMembers(in, i, n, set, true)) return i + static_cast<std::size_t>(__builtin_ctzll(hits));
  }
  return n;
}

TQ_AVX512 std::size_t avx512FindMembers(const char16_t* in, std::size_t from, std::size_t n, const SetMatcher& set,
                                        std::size_t* at, std::size_t cap, std::size_t* next) {
  std::size_t count = 0;
  std::size_t i = from;
  for (; i < n && count + 64 <= cap; i += 64) {
    for (uint64_t hits = blockMembers(in, i, n, set, false); hits; hits &= hits - 1) {
      at[count++] = i + static_cast<std::size_t>(__builtin_ctzll(hits));
    }
  }
  *next = std::min(i, n);
  return count;
}

TQ_AVX512 void avx512ReplaceMembers(const char16_t* in, std::size_t n, char16_t* out, const SetMatcher& set,
                                    char16_t unit) {
  const __m512i with = _mm512_set1_epi16(static_cast<short>(unit));
  for (std::size_t i = 0; i < n; i += 64) {
    __m512i a, b;
    const uint64_t valid = loadBlock(in, i, n, a, b);
    __mmask64 candidates;
    uint64_t hits = tableMembers(pack(a, b), set, candidates);
    __m512i outA = _mm512_mask_blend_epi16(static_cast<__mmask32>(hits), a, with);
    __m512i outB = _mm512_mask_blend_epi16(static_cast<__mmask32>(hits >> 32), b, with);
    if (~valid == 0) {
      // Masked stores are slow on some CPUs: whole blocks take plain ones.
      store(out + i, outA);
      store(out + i + 32, outB);
    } else {
      _mm512_mask_storeu_epi16(out + i, static_cast<__mmask32>(valid), outA);
      _mm512_mask_storeu_epi16(out + i + 32, static_cast<__mmask32>(valid >> 32), outB);
    }
    for (uint64_t c = candidates & valid; c; c &= c - 1) {
      std::size_t at = i + static_cast<std::size_t>(__builtin_ctzll(c));
      if (set.isMemberAt(in, at, n)) out[at] = unit;
    }
  }
}

}  // namespace

const StringKernels kAVX512Kernels = {StringCodePath::AVX512,     avx512FindLineBreak,      avx512ReplaceLineBreaks,
                                      avx512ReduceWhitespace,     avx512FirstNonWhitespace, avx512EndOfNonWhitespace,
                                      avx512FindMember,           avx512FindMembers,
                                      avx512ReplaceMembers};

}  // namespace tq::detail
