// Hexadecimal encode and decode kernels: scalar, SSSE3 and AVX2, chosen once per process.
//
// Encoding maps each nibble to its digit with a byte shuffle over the 16-entry alphabet and
// interleaves high and low digits. Decoding classifies a block of characters at once (digit, white
// space, other); a block of digits only is paired straight into bytes, a block with white space has
// its digits squeezed together first (a shuffle per 8 characters, from a table of the 256 keep
// masks) into a small queue of nibbles that is paired 16 at a time. Any other character ends the
// decode, so that case needs no fast path. UTF-16 text is narrowed to bytes in slices first;
// narrowing saturates, so every code unit above 127 lands on a byte that is invalid too.
#include "tq/foundation/hex_codec.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
// GCC 12 warns inside its own AVX-512 headers (a self-initialised "undefined" vector).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
#define TQ_HEX_X86 1
#endif

namespace tq {

namespace {

// Digit pairs of every byte value, for the scalar encoders.
struct EncodeTables {
  std::array<uint16_t, 256> ascii{};    // two chars, first digit in the low byte (memory order)
  std::array<uint32_t, 256> utf16{};    // two UTF-16 units, first digit in the low half
  constexpr EncodeTables() {
    for (unsigned b = 0; b < 256; ++b) {
      unsigned hi = static_cast<unsigned char>(HexDigitAlphabet[b >> 4]);
      unsigned lo = static_cast<unsigned char>(HexDigitAlphabet[b & 15]);
      ascii[b] = static_cast<uint16_t>(hi | (lo << 8));
      utf16[b] = hi | (lo << 16);
    }
  }
};
constexpr EncodeTables kEncode;

// Character classes for the scalar decoder: 0-15 a digit's value, kSkip white space, kBad invalid.
constexpr int8_t kSkip = -1;
constexpr int8_t kBad = -2;
struct DecodeTable {
  std::array<int8_t, 256> v{};
  constexpr DecodeTable() {
    for (int c = 0; c < 256; ++c) {
      int8_t x = kBad;
      if (c >= '0' && c <= '9') x = static_cast<int8_t>(c - '0');
      if (c >= 'a' && c <= 'f') x = static_cast<int8_t>(c - 'a' + 10);
      if (c >= 'A' && c <= 'F') x = static_cast<int8_t>(c - 'A' + 10);
      if (c == ' ' || (c >= '\t' && c <= '\r')) x = kSkip;
      v[c] = x;
    }
  }
};
constexpr DecodeTable kDecode;

// Requires little-endian memory order for the table stores (every x86 and ARM Linux host).
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "hex tables assume little-endian order");

void encodeScalar(const uint8_t* in, UInteger n, char* out) noexcept {
  for (UInteger i = 0; i < n; ++i) std::memcpy(out + 2 * i, &kEncode.ascii[in[i]], 2);
}

void encodeUTF16Scalar(const uint8_t* in, UInteger n, char16_t* out) noexcept {
  for (UInteger i = 0; i < n; ++i) std::memcpy(out + 2 * i, &kEncode.utf16[in[i]], 4);
}

// The per-character step shared by every decoder for its edges. Returns false on an invalid char.
inline bool decodeScalarStep(uint8_t c, uint8_t*& out, HexDecodeState& st) noexcept {
  int8_t v = kDecode.v[c];
  if (v >= 0) {
    if (st.pending) {
      *out++ = static_cast<uint8_t>((st.high << 4) | v);
      st.pending = false;
    } else {
      st.high = static_cast<uint8_t>(v);
      st.pending = true;
    }
    return true;
  }
  return v == kSkip;
}

bool decodeScalar(const uint8_t* in, UInteger n, uint8_t*& out, HexDecodeState& st) noexcept {
  for (UInteger i = 0; i < n; ++i) {
    if (!decodeScalarStep(in[i], out, st)) return false;
  }
  return true;
}

bool decodeUTF16Scalar(const char16_t* in, UInteger n, uint8_t*& out, HexDecodeState& st) noexcept {
  for (UInteger i = 0; i < n; ++i) {
    char16_t c = in[i];
    if (!decodeScalarStep(c < 128 ? static_cast<uint8_t>(c) : uint8_t{0xFF}, out, st)) return false;
  }
  return true;
}

#ifdef TQ_HEX_X86

// For each 8-bit keep mask, the shuffle that moves the kept bytes of an 8-byte group to its front.
struct CompressTable {
  alignas(16) std::array<uint64_t, 256> shuffle{};
  std::array<uint8_t, 256> count{};
  constexpr CompressTable() {
    for (unsigned m = 0; m < 256; ++m) {
      uint64_t s = 0;
      unsigned k = 0;
      for (unsigned bit = 0; bit < 8; ++bit) {
        if (m & (1u << bit)) s |= uint64_t{bit} << (8 * k++);
      }
      for (unsigned j = k; j < 8; ++j) s |= uint64_t{0x80} << (8 * j);
      shuffle[m] = s;
      count[m] = static_cast<uint8_t>(k);
    }
  }
};
constexpr CompressTable kCompress;

// Nibble values waiting to be paired, between blocks of a vector decoder. Fewer than 16 remain
// after every flush; the slack lets blocks store whole vectors past the live count.
struct NibbleQueue {
  alignas(32) uint8_t v[96];
  unsigned count = 0;
};

__attribute__((target("ssse3"))) void encodeSSSE3(const uint8_t* in, UInteger n, char* out) noexcept {
  const __m128i lut = _mm_loadu_si128(reinterpret_cast<const __m128i*>(HexDigitAlphabet));
  const __m128i low4 = _mm_set1_epi8(0x0F);
  UInteger i = 0;
  for (; i + 16 <= n; i += 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    __m128i hc = _mm_shuffle_epi8(lut, _mm_and_si128(_mm_srli_epi16(x, 4), low4));
    __m128i lc = _mm_shuffle_epi8(lut, _mm_and_si128(x, low4));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i), _mm_unpacklo_epi8(hc, lc));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * i + 16), _mm_unpackhi_epi8(hc, lc));
  }
  encodeScalar(in + i, n - i, out + 2 * i);
}

__attribute__((target("ssse3"))) void encodeUTF16SSSE3(const uint8_t* in, UInteger n, char16_t* out) noexcept {
  const __m128i lut = _mm_loadu_si128(reinterpret_cast<const __m128i*>(HexDigitAlphabet));
  const __m128i low4 = _mm_set1_epi8(0x0F);
  const __m128i zero = _mm_setzero_si128();
  UInteger i = 0;
  for (; i + 16 <= n; i += 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    __m128i hc = _mm_shuffle_epi8(lut, _mm_and_si128(_mm_srli_epi16(x, 4), low4));
    __m128i lc = _mm_shuffle_epi8(lut, _mm_and_si128(x, low4));
    __m128i a = _mm_unpacklo_epi8(hc, lc), b = _mm_unpackhi_epi8(hc, lc);
    auto* o = reinterpret_cast<__m128i*>(out + 2 * i);
    _mm_storeu_si128(o + 0, _mm_unpacklo_epi8(a, zero));
    _mm_storeu_si128(o + 1, _mm_unpackhi_epi8(a, zero));
    _mm_storeu_si128(o + 2, _mm_unpacklo_epi8(b, zero));
    _mm_storeu_si128(o + 3, _mm_unpackhi_epi8(b, zero));
  }
  encodeUTF16Scalar(in + i, n - i, out + 2 * i);
}

// Digits of 32 bytes in order: a holds those of bytes 0-15, b those of bytes 16-31.
__attribute__((target("avx2"))) inline void encodeBlockAVX2(const uint8_t* in, __m256i& a, __m256i& b) noexcept {
  const __m256i lut = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(HexDigitAlphabet)));
  const __m256i low4 = _mm256_set1_epi8(0x0F);
  // Quadwords 0,2 | 1,3 so that the in-lane interleaves below come out in memory order.
  __m256i x = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in)), 0xD8);
  __m256i hc = _mm256_shuffle_epi8(lut, _mm256_and_si256(_mm256_srli_epi16(x, 4), low4));
  __m256i lc = _mm256_shuffle_epi8(lut, _mm256_and_si256(x, low4));
  a = _mm256_unpacklo_epi8(hc, lc);
  b = _mm256_unpackhi_epi8(hc, lc);
}

__attribute__((target("avx2"))) void encodeAVX2(const uint8_t* in, UInteger n, char* out) noexcept {
  UInteger i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a, b;
    encodeBlockAVX2(in + i, a, b);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i), a);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i + 32), b);
  }
  encodeSSSE3(in + i, n - i, out + 2 * i);
}

__attribute__((target("avx2"))) void encodeUTF16AVX2(const uint8_t* in, UInteger n, char16_t* out) noexcept {
  UInteger i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a, b;
    encodeBlockAVX2(in + i, a, b);
    auto* o = reinterpret_cast<__m256i*>(out + 2 * i);
    _mm256_storeu_si256(o + 0, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(a)));
    _mm256_storeu_si256(o + 1, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(a, 1)));
    _mm256_storeu_si256(o + 2, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(b)));
    _mm256_storeu_si256(o + 3, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(b, 1)));
  }
  encodeUTF16SSSE3(in + i, n - i, out + 2 * i);
}

// 64 bytes at a time; the interleave works within 128-bit lanes, so the quadwords are first dealt
// out so that each lane's low half holds the next 8 bytes in order.
__attribute__((target("avx512f,avx512bw"))) inline void encodeBlockAVX512(const uint8_t* in, __m512i& a,
                                                                        __m512i& b) noexcept {
  const __m512i lut = _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(HexDigitAlphabet)));
  const __m512i low4 = _mm512_set1_epi8(0x0F);
  const __m512i deal = _mm512_set_epi64(7, 3, 6, 2, 5, 1, 4, 0);
  __m512i x = _mm512_permutexvar_epi64(deal, _mm512_loadu_si512(in));
  __m512i hc = _mm512_shuffle_epi8(lut, _mm512_and_si512(_mm512_srli_epi16(x, 4), low4));
  __m512i lc = _mm512_shuffle_epi8(lut, _mm512_and_si512(x, low4));
  a = _mm512_unpacklo_epi8(hc, lc);  // digits of bytes 0-31
  b = _mm512_unpackhi_epi8(hc, lc);  // digits of bytes 32-63
}

__attribute__((target("avx512f,avx512bw"))) void encodeAVX512(const uint8_t* in, UInteger n, char* out) noexcept {
  UInteger i = 0;
  for (; i + 64 <= n; i += 64) {
    __m512i a, b;
    encodeBlockAVX512(in + i, a, b);
    _mm512_storeu_si512(out + 2 * i, a);
    _mm512_storeu_si512(out + 2 * i + 64, b);
  }
  encodeAVX2(in + i, n - i, out + 2 * i);
}

__attribute__((target("avx512f,avx512bw"))) void encodeUTF16AVX512(const uint8_t* in, UInteger n,
                                                                   char16_t* out) noexcept {
  UInteger i = 0;
  for (; i + 64 <= n; i += 64) {
    __m512i a, b;
    encodeBlockAVX512(in + i, a, b);
    char16_t* o = out + 2 * i;
    _mm512_storeu_si512(o, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(a)));
    _mm512_storeu_si512(o + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(a, 1)));
    _mm512_storeu_si512(o + 64, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(b)));
    _mm512_storeu_si512(o + 96, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(b, 1)));
  }
  encodeUTF16AVX2(in + i, n - i, out + 2 * i);
}

// Classifies 16 characters: the nibble value of each digit (garbage elsewhere), and masks of the
// digits and of the white space.
struct Classified16 {
  __m128i value;
  unsigned digits;
  unsigned space;
};

__attribute__((target("ssse3"))) inline Classified16 classify16(__m128i x) noexcept {
  const __m128i d = _mm_sub_epi8(x, _mm_set1_epi8('0'));
  const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(d, _mm_set1_epi8(9)), d);
  const __m128i l = _mm_sub_epi8(_mm_or_si128(x, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
  const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(l, _mm_set1_epi8(5)), l);
  const __m128i w = _mm_sub_epi8(x, _mm_set1_epi8('\t'));
  const __m128i isSpace =
      _mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(_mm_min_epu8(w, _mm_set1_epi8(4)), w));
  const __m128i value =
      _mm_or_si128(_mm_and_si128(isDigit, d), _mm_and_si128(isLetter, _mm_add_epi8(l, _mm_set1_epi8(10))));
  return {value, static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isDigit, isLetter))),
          static_cast<unsigned>(_mm_movemask_epi8(isSpace))};
}

// 16 nibble values -> 8 bytes.
__attribute__((target("ssse3"))) inline __m128i pairNibbles16(__m128i v) noexcept {
  __m128i words = _mm_maddubs_epi16(v, _mm_set1_epi16(0x0110));  // 16 * even + odd
  return _mm_packus_epi16(words, words);
}

// Appends the digits of a classified 16-character block (white space dropped) to the queue.
__attribute__((target("ssse3"))) inline void squeeze16(const Classified16& c, NibbleQueue& q) noexcept {
  unsigned keep = c.digits;
  if (keep == 0xFFFF) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q.v + q.count), c.value);
    q.count += 16;
    return;
  }
  unsigned k0 = keep & 0xFF, k1 = keep >> 8;
  __m128i s0 = _mm_shuffle_epi8(c.value, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&kCompress.shuffle[k0])));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(q.v + q.count), s0);
  q.count += kCompress.count[k0];
  __m128i s1 = _mm_shuffle_epi8(_mm_unpackhi_epi64(c.value, c.value),
                                _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&kCompress.shuffle[k1])));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(q.v + q.count), s1);
  q.count += kCompress.count[k1];
}

// Pairs every complete group of 16 queued nibbles into out; leaves fewer than 16 queued.
__attribute__((target("ssse3"))) inline void flushQueue(NibbleQueue& q, uint8_t*& out) noexcept {
  unsigned j = 0;
  for (; j + 16 <= q.count; j += 16) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out),
                     pairNibbles16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(q.v + j))));
    out += 8;
  }
  if (j) {
    __m128i rest = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q.v + j));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q.v), rest);
    q.count -= j;
  }
}

// Hands the queue's nibbles back to the scalar state (pairs them one by one).
inline void drainQueue(NibbleQueue& q, uint8_t*& out, HexDecodeState& st) noexcept {
  for (unsigned j = 0; j < q.count; ++j) {
    if (st.pending) {
      *out++ = static_cast<uint8_t>((st.high << 4) | q.v[j]);
      st.pending = false;
    } else {
      st.high = q.v[j];
      st.pending = true;
    }
  }
  q.count = 0;
}

inline void seedQueue(NibbleQueue& q, HexDecodeState& st) noexcept {
  q.count = 0;
  if (st.pending) {
    q.v[q.count++] = st.high;
    st.pending = false;
  }
}

__attribute__((target("ssse3"))) bool decodeSSSE3(const uint8_t* in, UInteger n, uint8_t*& out,
                                                   HexDecodeState& st) noexcept {
  NibbleQueue q;
  seedQueue(q, st);
  UInteger i = 0;
  for (; i + 16 <= n; i += 16) {
    Classified16 c = classify16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)));
    if ((c.digits | c.space) != 0xFFFF) return false;
    if (c.digits == 0xFFFF && q.count == 0) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(out), pairNibbles16(c.value));
      out += 8;
      continue;
    }
    squeeze16(c, q);
    flushQueue(q, out);
  }
  drainQueue(q, out, st);
  return decodeScalar(in + i, n - i, out, st);
}

__attribute__((target("avx2"))) bool decodeAVX2(const uint8_t* in, UInteger n, uint8_t*& out,
                                                 HexDecodeState& st) noexcept {
  NibbleQueue q;
  seedQueue(q, st);
  const __m256i c0 = _mm256_set1_epi8('0'), c9 = _mm256_set1_epi8(9), c20 = _mm256_set1_epi8(0x20);
  const __m256i ca = _mm256_set1_epi8('a'), c5 = _mm256_set1_epi8(5), c10 = _mm256_set1_epi8(10);
  const __m256i ctab = _mm256_set1_epi8('\t'), c4 = _mm256_set1_epi8(4), pairMul = _mm256_set1_epi16(0x0110);
  UInteger i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const __m256i d = _mm256_sub_epi8(x, c0);
    const __m256i isDigit = _mm256_cmpeq_epi8(_mm256_min_epu8(d, c9), d);
    const __m256i l = _mm256_sub_epi8(_mm256_or_si256(x, c20), ca);
    const __m256i isLetter = _mm256_cmpeq_epi8(_mm256_min_epu8(l, c5), l);
    const __m256i isHex = _mm256_or_si256(isDigit, isLetter);
    const __m256i value = _mm256_or_si256(_mm256_and_si256(isDigit, d), _mm256_and_si256(isLetter, _mm256_add_epi8(l, c10)));
    const uint32_t digits = static_cast<uint32_t>(_mm256_movemask_epi8(isHex));
    if (digits == 0xFFFFFFFFu) {
      if (q.count == 0) {
        // Dense fast path: 32 digits straight into 16 bytes.
        __m256i words = _mm256_maddubs_epi16(value, pairMul);
        __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
        out += 16;
      } else {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(q.v + q.count), value);
        q.count += 32;
        flushQueue(q, out);
      }
      continue;
    }
    const __m256i w = _mm256_sub_epi8(x, ctab);
    const __m256i isSpace = _mm256_or_si256(_mm256_cmpeq_epi8(x, c20), _mm256_cmpeq_epi8(_mm256_min_epu8(w, c4), w));
    const uint32_t space = static_cast<uint32_t>(_mm256_movemask_epi8(isSpace));
    if ((digits | space) != 0xFFFFFFFFu) return false;
    squeeze16({_mm256_castsi256_si128(value), digits & 0xFFFF, space & 0xFFFF}, q);
    squeeze16({_mm256_extracti128_si256(value, 1), digits >> 16, space >> 16}, q);
    flushQueue(q, out);
  }
  drainQueue(q, out, st);
  return decodeSSSE3(in + i, n - i, out, st);
}

// UTF-16 -> bytes with saturation (units >= 0x100 become 0x00 or 0xFF, both invalid).
__attribute__((target("ssse3"))) void narrowSSSE3(const char16_t* in, UInteger n, uint8_t* out) noexcept {
  UInteger i = 0;
  for (; i + 16 <= n; i += 16) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i + 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(a, b));
  }
  for (; i < n; ++i) out[i] = in[i] < 128 ? static_cast<uint8_t>(in[i]) : uint8_t{0xFF};
}

__attribute__((target("avx2"))) void narrowAVX2(const char16_t* in, UInteger n, uint8_t* out) noexcept {
  UInteger i = 0;
  for (; i + 32 <= n; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 16));
    __m256i p = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), p);
  }
  narrowSSSE3(in + i, n - i, out + i);
}

template <void (*Narrow)(const char16_t*, UInteger, uint8_t*) noexcept,
          bool (*Decode)(const uint8_t*, UInteger, uint8_t*&, HexDecodeState&) noexcept>
bool decodeUTF16Sliced(const char16_t* in, UInteger n, uint8_t*& out, HexDecodeState& st) noexcept {
  constexpr UInteger kSlice = 4096;
  alignas(32) uint8_t narrow[kSlice];
  for (UInteger i = 0; i < n; i += kSlice) {
    UInteger len = n - i < kSlice ? n - i : kSlice;
    Narrow(in + i, len, narrow);
    if (!Decode(narrow, len, out, st)) return false;
  }
  return true;
}

#endif  // TQ_HEX_X86

using EncodeFn = void (*)(const uint8_t*, UInteger, char*) noexcept;
using EncodeUTF16Fn = void (*)(const uint8_t*, UInteger, char16_t*) noexcept;
using DecodeFn = bool (*)(const uint8_t*, UInteger, uint8_t*&, HexDecodeState&) noexcept;
using DecodeUTF16Fn = bool (*)(const char16_t*, UInteger, uint8_t*&, HexDecodeState&) noexcept;

struct Kernels {
  EncodeFn encode;
  EncodeUTF16Fn encodeUTF16;
  DecodeFn decode;
  DecodeUTF16Fn decodeUTF16;
};

const Kernels& kernelsFor(InstructionSet isa) noexcept {
  static const Kernels scalar{encodeScalar, encodeUTF16Scalar, decodeScalar, decodeUTF16Scalar};
#ifdef TQ_HEX_X86
  static const Kernels ssse3{encodeSSSE3, encodeUTF16SSSE3, decodeSSSE3,
                             decodeUTF16Sliced<narrowSSSE3, decodeSSSE3>};
  static const Kernels avx2{encodeAVX2, encodeUTF16AVX2, decodeAVX2, decodeUTF16Sliced<narrowAVX2, decodeAVX2>};
  static const Kernels avx512{encodeAVX512, encodeUTF16AVX512, decodeAVX2,
                              decodeUTF16Sliced<narrowAVX2, decodeAVX2>};
  switch (isa) {
    case InstructionSet::AVX512: return avx512;
    case InstructionSet::AVX2: return avx2;
    case InstructionSet::SSSE3: return ssse3;
    default: break;
  }
#else
  (void)isa;
#endif
  return scalar;
}

const Kernels& best() noexcept {
  static const Kernels& k = kernelsFor(bestInstructionSet());
  return k;
}

}  // namespace

void hexEncode(const uint8_t* bytes, UInteger length, char* out) noexcept { best().encode(bytes, length, out); }
void hexEncode(const uint8_t* bytes, UInteger length, char* out, InstructionSet isa) noexcept {
  kernelsFor(isa).encode(bytes, length, out);
}
void hexEncodeUTF16(const uint8_t* bytes, UInteger length, char16_t* out) noexcept {
  best().encodeUTF16(bytes, length, out);
}
void hexEncodeUTF16(const uint8_t* bytes, UInteger length, char16_t* out, InstructionSet isa) noexcept {
  kernelsFor(isa).encodeUTF16(bytes, length, out);
}

bool hexDecode(const char* text, UInteger length, uint8_t* out, UInteger* produced, HexDecodeState& state) noexcept {
  uint8_t* o = out;
  bool ok = best().decode(reinterpret_cast<const uint8_t*>(text), length, o, state);
  *produced = static_cast<UInteger>(o - out);
  return ok;
}
bool hexDecode(const char* text, UInteger length, uint8_t* out, UInteger* produced, HexDecodeState& state,
               InstructionSet isa) noexcept {
  uint8_t* o = out;
  bool ok = kernelsFor(isa).decode(reinterpret_cast<const uint8_t*>(text), length, o, state);
  *produced = static_cast<UInteger>(o - out);
  return ok;
}
bool hexDecodeUTF16(const char16_t* text, UInteger length, uint8_t* out, UInteger* produced,
                    HexDecodeState& state) noexcept {
  uint8_t* o = out;
  bool ok = best().decodeUTF16(text, length, o, state);
  *produced = static_cast<UInteger>(o - out);
  return ok;
}
bool hexDecodeUTF16(const char16_t* text, UInteger length, uint8_t* out, UInteger* produced, HexDecodeState& state,
                    InstructionSet isa) noexcept {
  uint8_t* o = out;
  bool ok = kernelsFor(isa).decodeUTF16(text, length, o, state);
  *produced = static_cast<UInteger>(o - out);
  return ok;
}

}  // namespace tq
