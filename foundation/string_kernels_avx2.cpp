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

// The membership of 32 units at a time works on bytes: the low bytes and the block bytes (high
// bytes) of two vectors are packed into one vector each, in the order a0-7 b0-7 | a8-15 b8-15.

struct PackedUnits {
  __m256i low, block;
};

TQ_AVX2 inline PackedUnits pack(__m256i a, __m256i b) {
  const __m256i lowByte = _mm256_set1_epi16(0x00FF);
  return {_mm256_packus_epi16(_mm256_and_si256(a, lowByte), _mm256_and_si256(b, lowByte)),
          _mm256_packus_epi16(_mm256_srli_epi16(a, 8), _mm256_srli_epi16(b, 8))};
}

// 0xFF in the bytes x whose bit is set in the table (nibble layout, see SetMatcher).
TQ_AVX2 inline __m256i lookup(__m256i x, const SetMatcher::BitTable& t) {
  const __m256i lo = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(t.nibble)));
  const __m256i hi = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(t.nibble + 16)));
  const __m256i bitOf = _mm256_setr_epi8(1, 2, 4, 8, 16, 32, 64, static_cast<char>(128), 0, 0, 0, 0, 0, 0, 0, 0, 1, 2,
                                         4, 8, 16, 32, 64, static_cast<char>(128), 0, 0, 0, 0, 0, 0, 0, 0);
  __m256i j = _mm256_and_si256(x, _mm256_set1_epi8(0x0F));
  // pshufb reads entries 0-15 for indexes 0-15; bit 7 of x picks the upper half of the table.
  __m256i row = _mm256_blendv_epi8(_mm256_shuffle_epi8(lo, j), _mm256_shuffle_epi8(hi, j), x);
  __m256i bit = _mm256_shuffle_epi8(bitOf, _mm256_and_si256(_mm256_srli_epi16(x, 4), _mm256_set1_epi8(0x07)));
  return _mm256_cmpeq_epi8(_mm256_and_si256(row, bit), bit);
}

// Bits of the 32 units in order, from a packed byte mask.
TQ_AVX2 inline uint32_t unitBits(__m256i packedMask) {
  return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_permute4x64_epi64(packedMask, 0xD8)));
}

// Members the tables settle (packed order), and the candidates left for the one-by-one check.
TQ_AVX2 inline __m256i tableMembers(const PackedUnits& u, const SetMatcher& set, __m256i& candidates) {
  __m256i hit = set.anyFull ? lookup(u.block, set.full) : _mm256_setzero_si256();
  for (int k = 0; k < set.listed; ++k) {
    __m256i inBlock = _mm256_cmpeq_epi8(u.block, _mm256_set1_epi8(static_cast<char>(set.listedBlock[k])));
    hit = _mm256_or_si256(hit, _mm256_and_si256(inBlock, lookup(u.low, set.low[k])));
  }
  candidates = _mm256_setzero_si256();
  if (set.overflow) candidates = lookup(u.block, set.unlisted);
  if (set.surrogates) {
    __m256i sur = _mm256_cmpeq_epi8(_mm256_and_si256(u.block, _mm256_set1_epi8(static_cast<char>(0xF8))),
                                    _mm256_set1_epi8(static_cast<char>(0xD8)));
    candidates = _mm256_or_si256(candidates, sur);
  }
  return hit;
}

// Lanes (packed order) that start one of the set's listed surrogate pairs; a1 and b1 are the units
// one place further on.
TQ_AVX2 inline __m256i pairMembers(__m256i a, __m256i b, __m256i a1, __m256i b1, const SetMatcher& set) {
  __m256i ma = _mm256_setzero_si256(), mb = _mm256_setzero_si256();
  for (int k = 0; k < set.pairs; ++k) {
    const __m256i high = _mm256_set1_epi16(static_cast<short>(set.pairHigh[k]));
    const __m256i low = _mm256_set1_epi16(static_cast<short>(set.pairLow[k]));
    ma = _mm256_or_si256(ma, _mm256_and_si256(_mm256_cmpeq_epi16(a, high), _mm256_cmpeq_epi16(a1, low)));
    mb = _mm256_or_si256(mb, _mm256_and_si256(_mm256_cmpeq_epi16(b, high), _mm256_cmpeq_epi16(b1, low)));
  }
  return _mm256_packs_epi16(ma, mb);
}

// The sure members among the 32 units at `in` (a listed surrogate pair seen through the unit after
// them, which must be readable when the set has pairs), one 16-bit lane each; units the tables
// cannot settle are set in `candidates`.
TQ_AVX2 inline __m256i blockMembers(const char16_t* in, const SetMatcher& set, __m256i& candidates) {
  const __m256i a = load(in), b = load(in + 16);
  __m256i found = tableMembers(pack(a, b), set, candidates);
  if (set.pairs) found = _mm256_or_si256(found, pairMembers(a, b, load(in + 1), load(in + 17), set));
  return found;
}

TQ_AVX2 std::size_t avx2FindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  std::size_t i = 0;
  // With pairs to compare, each block also reads the unit after it.
  const std::size_t reach = set.pairs ? 33 : 32;
  for (; i + reach <= n; i += 32) {
    __m256i candidates;
    const __m256i found = blockMembers(in + i, set, candidates);
    uint32_t hits = unitBits(found);
    if (!_mm256_testz_si256(candidates, candidates)) {
      uint32_t c = unitBits(candidates);
      if (hits) c &= (hits & (0u - hits)) - 1;  // only those before the first sure member
      for (; c; c &= c - 1) {
        std::size_t at = i + static_cast<std::size_t>(__builtin_ctz(c));
        if (set.isMemberAt(in, at, n)) return at;
      }
    }
    if (hits) return i + static_cast<std::size_t>(__builtin_ctz(hits));
  }
  for (; i < n; ++i) {
    if (set.isMemberAt(in, i, n)) return i;
  }
  return n;
}

TQ_AVX2 std::size_t avx2FindMembers(const char16_t* in, std::size_t from, std::size_t n, const SetMatcher& set,
                                    std::size_t* at, std::size_t cap, std::size_t* next) {
  std::size_t count = 0;
  std::size_t i = from;
  const std::size_t reach = set.pairs ? 33 : 32;
  for (; i + reach <= n && count + 32 <= cap; i += 32) {
    __m256i candidates;
    const __m256i found = blockMembers(in + i, set, candidates);
    uint32_t hits = unitBits(found);
    if (!_mm256_testz_si256(candidates, candidates)) {
      for (uint32_t c = unitBits(candidates); c; c &= c - 1) {
        unsigned k = static_cast<unsigned>(__builtin_ctz(c));
        if (set.isMemberAt(in, i + k, n)) hits |= 1u << k;
      }
    }
    for (; hits; hits &= hits - 1) at[count++] = i + static_cast<std::size_t>(__builtin_ctz(hits));
  }
  if (i + reach > n) {
    // The tail, one unit at a time.
    for (; i < n && count < cap; ++i) {
      if (set.isMemberAt(in, i, n)) {
        at[count++] = i;
        i += isHighSurrogate(in[i]) && i + 1 < n && isLowSurrogate(in[i + 1]);
      }
    }
  }
  *next = i;
  return count;
}

TQ_AVX2 void avx2ReplaceMembers(const char16_t* in, std::size_t n, char16_t* out, const SetMatcher& set,
                                char16_t unit) {
  const __m256i with = _mm256_set1_epi16(static_cast<short>(unit));
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a = load(in + i), b = load(in + i + 16);
    __m256i candidates;
    __m256i hit = tableMembers(pack(a, b), set, candidates);
    // Doubling the packed bytes gives each vector's 16-bit lane mask in order.
    store(out + i, _mm256_blendv_epi8(a, with, _mm256_unpacklo_epi8(hit, hit)));
    store(out + i + 16, _mm256_blendv_epi8(b, with, _mm256_unpackhi_epi8(hit, hit)));
    if (!_mm256_testz_si256(candidates, candidates)) {
      for (uint32_t c = unitBits(candidates); c; c &= c - 1) {
        std::size_t at = i + static_cast<std::size_t>(__builtin_ctz(c));
        if (set.isMemberAt(in, at, n)) out[at] = unit;
      }
    }
  }
  for (; i < n; ++i) out[i] = set.isMemberAt(in, i, n) ? unit : in[i];
}

// Whitespace among 32 packed units (see pack()), without branches: prose mixes ASCII and other
// blocks too irregularly for a branch on "all ASCII" to be predicted.
TQ_AVX2 inline __m256i eq(__m256i x, int c) { return _mm256_cmpeq_epi8(x, _mm256_set1_epi8(static_cast<char>(c))); }

TQ_AVX2 inline __m256i whitespaceBytes(const PackedUnits& u) {
  const __m256i l = u.low, h = u.block;
  __m256i latin = _mm256_or_si256(_mm256_or_si256(eq(l, 0x20), eq(l, 0x09)), eq(l, 0xA0));
  __m256i general = _mm256_or_si256(_mm256_or_si256(eq(l, 0x2F), eq(l, 0x5F)),
                                    _mm256_cmpeq_epi8(_mm256_min_epu8(l, _mm256_set1_epi8(0x0A)), l));
  __m256i m = _mm256_and_si256(eq(h, 0x00), latin);                         // U+0009, U+0020, U+00A0
  m = _mm256_or_si256(m, _mm256_and_si256(eq(h, 0x20), general));          // U+2000-200A, 202F, 205F
  m = _mm256_or_si256(m, _mm256_and_si256(eq(h, 0x16), eq(l, 0x80)));      // U+1680
  return _mm256_or_si256(m, _mm256_and_si256(eq(h, 0x30), eq(l, 0x00)));  // U+3000
}

// Stores the 16-bit lanes of v whose bit is set in keep (16 bits), packed, at o; advances o.
TQ_AVX2 inline void compressStore(__m256i v, unsigned keep, char16_t*& o) {
  unsigned lo = keep & 0xFF, hi = keep >> 8;
  __m128i shufLo = _mm_load_si128(reinterpret_cast<const __m128i*>(kCompress.shuffle[lo].data()));
  __m128i shufHi = _mm_load_si128(reinterpret_cast<const __m128i*>(kCompress.shuffle[hi].data()));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(_mm256_castsi256_si128(v), shufLo));
  o += _mm_popcnt_u32(lo);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(_mm256_extracti128_si256(v, 1), shufHi));
  o += _mm_popcnt_u32(hi);
}

TQ_AVX2 std::size_t avx2ReduceWhitespace(const char16_t* in, std::size_t n, char16_t* out) {
  const __m256i space = _mm256_set1_epi16(0x20);
  char16_t* o = out;
  uint32_t carry = 0;  // 1 when the unit before the block was whitespace
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a = load(in + i), b = load(in + i + 16);
    __m256i ws = whitespaceBytes(pack(a, b));
    // Doubling the packed bytes gives each vector's 16-bit lane mask in order.
    __m256i ra = _mm256_blendv_epi8(a, space, _mm256_unpacklo_epi8(ws, ws));
    __m256i rb = _mm256_blendv_epi8(b, space, _mm256_unpackhi_epi8(ws, ws));
    uint32_t w = unitBits(ws);
    uint32_t drop = w & ((w << 1) | carry);
    carry = w >> 31;
    if (!drop) {
      store(o, ra);
      store(o + 16, rb);
      o += 32;
      continue;
    }
    uint32_t keep = ~drop;
    compressStore(ra, keep & 0xFFFF, o);
    compressStore(rb, keep >> 16, o);
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

}  // namespace

const StringKernels kAVX2Kernels = {StringCodePath::AVX2,      avx2FindLineBreak,      avx2ReplaceLineBreaks,
                                    avx2ReduceWhitespace,      avx2FirstNonWhitespace, avx2EndOfNonWhitespace,
                                    avx2FindMember,            avx2FindMembers,
                                    avx2ReplaceMembers};

}  // namespace tq::detail
