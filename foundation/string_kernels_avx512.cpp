// The AVX-512 code path: 32 code units per step, with mask registers and the 16-bit compress of
// VBMI2. Compiled for those instructions function by function; only chosen when the CPU has them.
#include <immintrin.h>

#include "string_kernels.h"

#define TQ_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,popcnt,bmi,bmi2")))

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

// Members below 512: bit (c & 15) of word (c >> 4) of the 32-word table, one permute and a shift.
// Lanes at or above U+0200 go to the bitmap, when the set has members there at all.
TQ_AVX512 inline uint32_t members(__m512i v, const char16_t* at, __m512i table, const SetMatcher& set) {
  __m512i word = _mm512_permutexvar_epi16(_mm512_srli_epi16(v, 4), table);
  __m512i bit = _mm512_srlv_epi16(word, _mm512_and_si512(v, _mm512_set1_epi16(15)));
  __mmask32 lowLanes = _mm512_testn_epi16_mask(v, _mm512_set1_epi16(static_cast<short>(0xFE00)));
  uint32_t hits = _mm512_mask_test_epi16_mask(lowLanes, bit, _mm512_set1_epi16(1));
  if (set.anyFrom512) {
    uint32_t rest = ~lowLanes;
    while (rest) {
      unsigned k = static_cast<unsigned>(__builtin_ctz(rest));
      rest &= rest - 1;
      if (set.isMember(at[k])) hits |= 1u << k;
    }
  }
  return hits;
}

TQ_AVX512 std::size_t avx512FindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  const __m512i table = _mm512_load_si512(set.low512);
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    if (uint32_t hits = members(load(in + i), in + i, table, set)) return i + static_cast<std::size_t>(__builtin_ctz(hits));
  }
  if (i < n) {
    __mmask32 valid = static_cast<__mmask32>((1u << (n - i)) - 1);
    // Lanes past the end read as U+0000; they are masked off before anything looks at them.
    uint32_t hits = members(_mm512_maskz_loadu_epi16(valid, in + i), in + i, table, set) & valid;
    if (hits) return i + static_cast<std::size_t>(__builtin_ctz(hits));
  }
  return n;
}

}  // namespace

const StringKernels kAVX512Kernels = {StringCodePath::AVX512,     avx512FindLineBreak,      avx512ReplaceLineBreaks,
                                      avx512ReduceWhitespace,     avx512FirstNonWhitespace, avx512EndOfNonWhitespace,
                                      avx512FindMember};

}  // namespace tq::detail
