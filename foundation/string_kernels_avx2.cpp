// The AVX2 code path: 16 code units per step. Compiled for AVX2 function by function, so the
// library still runs on CPUs without it; the path is only chosen when the CPU reports AVX2.
#include <immintrin.h>

#include <array>

#include "string_kernels.h"

#define TQ_AVX2 __attribute__((target("avx2,popcnt")))

namespace tq::detail {

namespace {

// pshufb controls that pack the 16-bit lanes of one 128-bit half whose bit is set in the 8-bit
// mask to the front, in order.
struct CompressTable {
  alignas(16) std::array<std::array<uint8_t, 16>, 256> shuffle{};
  constexpr CompressTable() {
    for (unsigned mask = 0; mask < 256; ++mask) {
      unsigned k = 0;
      for (unsigned lane = 0; lane < 8; ++lane) {
        if (mask & (1u << lane)) {
          shuffle[mask][2 * k] = static_cast<uint8_t>(2 * lane);
          shuffle[mask][2 * k + 1] = static_cast<uint8_t>(2 * lane + 1);
          ++k;
        }
      }
      for (unsigned b = 2 * k; b < 16; ++b) shuffle[mask][b] = 0x80;
    }
  }
};
constexpr CompressTable kCompress;

TQ_AVX2 inline __m256i load(const char16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
TQ_AVX2 inline void store(char16_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

// One bit per lane (16 bits) from a lane mask of 0xFFFF / 0.
TQ_AVX2 inline unsigned laneBits(__m256i m) {
  __m128i packed = _mm_packs_epi16(_mm256_castsi256_si128(m), _mm256_extracti128_si256(m, 1));
  return static_cast<unsigned>(_mm_movemask_epi8(packed));
}

TQ_AVX2 inline __m256i lineBreakMask(__m256i v) {
  return _mm256_or_si256(_mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x0A)), _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x0D)));
}

// 0xFFFF in the lanes that hold whitespace.
TQ_AVX2 inline __m256i whitespaceMask(__m256i v) {
  __m256i m = _mm256_or_si256(_mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x20)), _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x09)));
  if (_mm256_testz_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80)))) return m;  // all ASCII
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0xA0)));
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x1680)));
  __m256i t = _mm256_sub_epi16(v, _mm256_set1_epi16(0x2000));
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(_mm256_min_epu16(t, _mm256_set1_epi16(0x0A)), t));
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x202F)));
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x205F)));
  m = _mm256_or_si256(m, _mm256_cmpeq_epi16(v, _mm256_set1_epi16(0x3000)));
  return m;
}

TQ_AVX2 std::size_t avx2FindLineBreak(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a = lineBreakMask(load(in + i)), b = lineBreakMask(load(in + i + 16));
    if (!_mm256_testz_si256(_mm256_or_si256(a, b), _mm256_or_si256(a, b))) {
      unsigned bits = laneBits(a) | laneBits(b) << 16;
      return i + static_cast<std::size_t>(__builtin_ctz(bits));
    }
  }
  for (; i + 16 <= n; i += 16) {
    if (unsigned bits = laneBits(lineBreakMask(load(in + i)))) return i + static_cast<std::size_t>(__builtin_ctz(bits));
  }
  for (; i < n; ++i) {
    if (in[i] == u'\n' || in[i] == u'\r') return i;
  }
  return n;
}

TQ_AVX2 void avx2ReplaceLineBreaks(const char16_t* in, std::size_t n, char16_t* out) {
  const __m256i space = _mm256_set1_epi16(0x20);
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256i v = load(in + i);
    store(out + i, _mm256_blendv_epi8(v, space, lineBreakMask(v)));
  }
  for (; i < n; ++i) out[i] = (in[i] == u'\n' || in[i] == u'\r') ? u' ' : in[i];
}

TQ_AVX2 std::size_t avx2ReduceWhitespace(const char16_t* in, std::size_t n, char16_t* out) {
  const __m256i space = _mm256_set1_epi16(0x20);
  char16_t* o = out;
  unsigned carry = 0;  // 1 when the unit before the block was whitespace
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256i v = load(in + i);
    __m256i ws = whitespaceMask(v);
    __m256i replaced = _mm256_blendv_epi8(v, space, ws);
    unsigned w = laneBits(ws);
    unsigned drop = w & ((w << 1) | carry);
    carry = w >> 15;
    if (!drop) {
      store(o, replaced);
      o += 16;
      continue;
    }
    unsigned keep = ~drop & 0xFFFF;
    unsigned lo = keep & 0xFF, hi = keep >> 8;
    __m128i shufLo = _mm_load_si128(reinterpret_cast<const __m128i*>(kCompress.shuffle[lo].data()));
    __m128i shufHi = _mm_load_si128(reinterpret_cast<const __m128i*>(kCompress.shuffle[hi].data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(_mm256_castsi256_si128(replaced), shufLo));
    o += _mm_popcnt_u32(lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(_mm256_extracti128_si256(replaced, 1), shufHi));
    o += _mm_popcnt_u32(hi);
  }
  bool inRun = carry != 0;
  for (; i < n; ++i) {
    if (isWhitespaceUnit(in[i])) {
      if (!inRun) *o++ = u' ';
      inRun = true;
    } else {
      *o++ = in[i];
      inRun = false;
    }
  }
  return static_cast<std::size_t>(o - out);
}

TQ_AVX2 std::size_t avx2FirstNonWhitespace(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    unsigned other = ~laneBits(whitespaceMask(load(in + i))) & 0xFFFF;
    if (other) return i + static_cast<std::size_t>(__builtin_ctz(other));
  }
  while (i < n && isWhitespaceUnit(in[i])) ++i;
  return i;
}

TQ_AVX2 std::size_t avx2EndOfNonWhitespace(const char16_t* in, std::size_t n) {
  while (n >= 16) {
    unsigned other = ~laneBits(whitespaceMask(load(in + n - 16))) & 0xFFFF;
    if (other) return n - 16 + 32 - static_cast<std::size_t>(__builtin_clz(other));
    n -= 16;
  }
  while (n > 0 && isWhitespaceUnit(in[n - 1])) --n;
  return n;
}

// Lanes holding an ASCII member, by the nibble method: entry (c & 15) of the table has bit (c >> 4).
TQ_AVX2 inline unsigned asciiMembers(__m256i v, __m256i table) {
  const __m256i highByteZero = _mm256_set1_epi16(static_cast<short>(0x8000));  // pshufb gives 0 there
  __m256i lowNibble = _mm256_or_si256(_mm256_and_si256(v, _mm256_set1_epi16(0x0F)), highByteZero);
  __m256i highNibble = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(v, 4), _mm256_set1_epi16(0x07)), highByteZero);
  const __m256i bitOf = _mm256_setr_epi8(1, 2, 4, 8, 16, 32, 64, static_cast<char>(128), 0, 0, 0, 0, 0, 0, 0, 0, 1, 2,
                                         4, 8, 16, 32, 64, static_cast<char>(128), 0, 0, 0, 0, 0, 0, 0, 0);
  __m256i hit = _mm256_and_si256(_mm256_shuffle_epi8(table, lowNibble), _mm256_shuffle_epi8(bitOf, highNibble));
  __m256i ascii = _mm256_cmpeq_epi16(_mm256_and_si256(v, _mm256_set1_epi16(static_cast<short>(0xFF80))), _mm256_setzero_si256());
  __m256i member = _mm256_andnot_si256(_mm256_cmpeq_epi16(hit, _mm256_setzero_si256()), ascii);
  return laneBits(member);
}

TQ_AVX2 std::size_t avx2FindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  __m128i t = _mm_load_si128(reinterpret_cast<const __m128i*>(set.asciiByLowNibble));
  __m256i table = _mm256_broadcastsi128_si256(t);
  const __m256i nonAscii = _mm256_set1_epi16(static_cast<short>(0xFF80));
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    __m256i v = load(in + i);
    unsigned hits = asciiMembers(v, table);
    if (set.anyFrom128 && !_mm256_testz_si256(v, nonAscii)) {
      // Only the lanes at or above U+0080 need the bitmap.
      unsigned rest = laneBits(_mm256_cmpeq_epi16(_mm256_and_si256(v, nonAscii), _mm256_setzero_si256())) ^ 0xFFFF;
      while (rest) {
        unsigned k = static_cast<unsigned>(__builtin_ctz(rest));
        rest &= rest - 1;
        if (set.isMember(in[i + k])) hits |= 1u << k;
      }
    }
    if (hits) return i + static_cast<std::size_t>(__builtin_ctz(hits));
  }
  for (; i < n; ++i) {
    if (set.isMember(in[i])) return i;
  }
  return n;
}

}  // namespace

const StringKernels kAVX2Kernels = {StringCodePath::AVX2,      avx2FindLineBreak,      avx2ReplaceLineBreaks,
                                    avx2ReduceWhitespace,      avx2FirstNonWhitespace, avx2EndOfNonWhitespace,
                                    avx2FindMember};

}  // namespace tq::detail
