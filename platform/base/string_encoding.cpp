// Strict decoders for the Unicode forms and Latin 1, written here; glibc's iconv for the legacy
// tables. Every decoder either yields the whole text or nil: there is no partial result.
#include "tq/platform/base/string_encoding.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace tq {

namespace {

const char* iconvName(StringEncoding e) {
  switch (e) {
    case JapaneseEUCStringEncoding: return "EUC-JP";
    case ShiftJISStringEncoding: return "SHIFT_JIS";
    case ISOLatin2StringEncoding: return "ISO-8859-2";
    case WindowsCP1251StringEncoding: return "CP1251";
    case WindowsCP1252StringEncoding: return "CP1252";
    case WindowsCP1253StringEncoding: return "CP1253";
    case WindowsCP1254StringEncoding: return "CP1254";
    case WindowsCP1250StringEncoding: return "CP1250";
    case ISO2022JPStringEncoding: return "ISO-2022-JP";
    default: return nullptr;
  }
}

// Mac OS Roman, bytes 0x80-0xFF, as the platform maps them: 0xC6 is U+2206 INCREMENT and 0xF0 the
// Apple logo U+F8FF (glibc's MACINTOSH table has U+0394 and U+E01E there). Bytes below 0x80 are ASCII.
constexpr unichar kMacRomanHigh[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1,
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF,
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211,
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA,
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

String decodeMacRoman(const uint8_t* b, UInteger n) {
  MutableString m;
  m.reserve(n);
  unichar* u = m.mutableData();
  for (UInteger i = 0; i < n; ++i) u[i] = b[i] < 0x80 ? b[i] : kMacRomanHigh[b[i] - 0x80];
  m.setLength(n);
  return std::move(m).take();
}

// nil when a character has no Mac Roman byte (lossy: "?" in its place; a surrogate pair is one
// character).
Data encodeMacRoman(std::u16string_view v, bool lossy) {
  static const auto reverse = [] {
    std::array<uint8_t, 65536> r{};
    for (unsigned i = 0; i < 128; ++i) r[kMacRomanHigh[i]] = static_cast<uint8_t>(0x80 + i);
    return r;
  }();
  std::vector<uint8_t> out;
  out.reserve(v.size());
  for (UInteger i = 0; i < v.size(); ++i) {
    unichar u = v[i];
    if (u < 0x80) {
      out.push_back(static_cast<uint8_t>(u));
    } else if (reverse[u]) {
      out.push_back(reverse[u]);
    } else {
      if (!lossy) return {};
      if (u >= 0xD800 && u <= 0xDBFF && i + 1 < v.size() && v[i + 1] >= 0xDC00 && v[i + 1] <= 0xDFFF) ++i;
      out.push_back('?');
    }
  }
  return Data::withVector(std::move(out));
}

bool isHigh(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// Conversion descriptors, opened once per thread and direction (opening one loads tables, which
// costs far more than a short conversion) and closed when the thread ends. Each use starts from the
// initial shift state.
class Iconv {
 public:
  Iconv(const char* to, const char* from) {
    static thread_local Cache cache;
    for (Entry& e : cache.entries) {
      if (std::strcmp(e.to, to) == 0 && std::strcmp(e.from, from) == 0) {
        cd_ = e.cd;
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        return;
      }
    }
    cd_ = iconv_open(to, from);
    if (ok()) cache.entries.push_back({to, from, cd_});
  }
  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return cd_; }

 private:
  struct Entry {
    const char* to;  // string literals: iconvName() and "UTF-16LE"
    const char* from;
    iconv_t cd;
  };
  struct Cache {
    std::vector<Entry> entries;
    ~Cache() {
      for (Entry& e : entries) iconv_close(e.cd);
    }
  };
  iconv_t cd_ = reinterpret_cast<iconv_t>(-1);
};

String decodeASCII(const uint8_t* b, UInteger n) {
  MutableString m;
  m.reserve(n);
  unichar* out = m.mutableData();
  for (UInteger i = 0; i < n; ++i) {
    if (b[i] > 0x7F) return {};
    out[i] = b[i];
  }
  m.setLength(n);
  return std::move(m).take();
}

String decodeLatin1(const uint8_t* b, UInteger n) {
  MutableString m;
  m.reserve(n);
  unichar* out = m.mutableData();
  for (UInteger i = 0; i < n; ++i) out[i] = b[i];
  m.setLength(n);
  return std::move(m).take();
}

String decodeUTF8(const uint8_t* s, UInteger size) {
  if (size >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) {
    s += 3;
    size -= 3;
  }
  return String::decodeUTF8(std::string_view(reinterpret_cast<const char*>(s), size), true);
}

// bom: whether a leading byte-order mark decides the order (and is dropped).
String decodeUTF16(const uint8_t* b, UInteger n, bool bigEndian, bool bom) {
  if (n % 2) return {};
  if (bom && n >= 2) {
    if (b[0] == 0xFE && b[1] == 0xFF) {
      bigEndian = true;
      b += 2;
      n -= 2;
    } else if (b[0] == 0xFF && b[1] == 0xFE) {
      bigEndian = false;
      b += 2;
      n -= 2;
    }
  }
  UInteger count = n / 2;
  MutableString m;
  m.reserve(count);
  unichar* out = m.mutableData();
  for (UInteger i = 0; i < count; ++i) {
    out[i] = bigEndian ? static_cast<unichar>(b[2 * i] << 8 | b[2 * i + 1])
                       : static_cast<unichar>(b[2 * i + 1] << 8 | b[2 * i]);
  }
  for (UInteger i = 0; i < count; ++i) {
    if (isHigh(out[i]) && i + 1 < count && isLow(out[i + 1])) {
      ++i;
    } else if (isHigh(out[i]) || isLow(out[i])) {
      return {};
    }
  }
  m.setLength(count);
  return std::move(m).take();
}

String decodeUTF32(const uint8_t* b, UInteger n, bool bigEndian, bool bom) {
  if (n % 4) return {};
  if (bom && n >= 4) {
    if (b[0] == 0 && b[1] == 0 && b[2] == 0xFE && b[3] == 0xFF) {
      bigEndian = true;
      b += 4;
      n -= 4;
    } else if (b[0] == 0xFF && b[1] == 0xFE && b[2] == 0 && b[3] == 0) {
      bigEndian = false;
      b += 4;
      n -= 4;
    }
  }
  MutableString m;
  m.reserve(n / 2);
  unichar* out = m.mutableData();
  UInteger k = 0;
  for (UInteger i = 0; i < n; i += 4) {
    uint32_t cp = bigEndian ? uint32_t(b[i]) << 24 | uint32_t(b[i + 1]) << 16 | uint32_t(b[i + 2]) << 8 | b[i + 3]
                            : uint32_t(b[i + 3]) << 24 | uint32_t(b[i + 2]) << 16 | uint32_t(b[i + 1]) << 8 | b[i];
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return {};
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out[k++] = static_cast<unichar>(0xD800 + (cp >> 10));
      out[k++] = static_cast<unichar>(0xDC00 + (cp & 0x3FF));
    } else {
      out[k++] = static_cast<unichar>(cp);
    }
  }
  m.setLength(k);
  return std::move(m).take();
}

String decodeIconv(const char* name, const uint8_t* b, UInteger n) {
  Iconv cd("UTF-16LE", name);
  if (!cd.ok()) return {};
  std::vector<char> out(2 * n + 16);
  char* in = const_cast<char*>(reinterpret_cast<const char*>(b));
  size_t inLeft = n;
  size_t used = 0;
  for (;;) {
    char* o = out.data() + used;
    size_t oLeft = out.size() - used;
    size_t r = in ? iconv(cd.get(), &in, &inLeft, &o, &oLeft) : iconv(cd.get(), nullptr, nullptr, &o, &oLeft);
    used = out.size() - oLeft;
    if (r == static_cast<size_t>(-1)) {
      if (errno != E2BIG) return {};  // EILSEQ or a truncated sequence (EINVAL)
      out.resize(out.size() * 2);
      continue;
    }
    if (!in) break;  // the shift state is flushed
    in = nullptr;
  }
  MutableString m;
  UInteger count = used / 2;
  m.reserve(count);
  unichar* u = m.mutableData();
  const auto* o = reinterpret_cast<const uint8_t*>(out.data());
  for (UInteger i = 0; i < count; ++i) u[i] = static_cast<unichar>(o[2 * i + 1] << 8 | o[2 * i]);
  m.setLength(count);
  return std::move(m).take();
}

// --- encoding --------------------------------------------------------------------------------

// Appends the code points of the view to `emit`; unpaired surrogates come as `bad` (or abort).
template <class Emit>
bool forEachCodePoint(std::u16string_view v, bool allowLossy, uint32_t substitute, Emit&& emit) {
  for (UInteger i = 0; i < v.size(); ++i) {
    uint32_t c = v[i];
    if (isHigh(c) && i + 1 < v.size() && isLow(v[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (v[i + 1] - 0xDC00);
      ++i;
    } else if (isHigh(c) || isLow(c)) {
      if (!allowLossy) return false;
      c = substitute;
    }
    emit(c);
  }
  return true;
}

Data encodeUTF8(std::u16string_view v, bool lossy) {
  // Without loss allowed, an unpaired surrogate makes the text unencodable.
  if (!lossy && !forEachCodePoint(v, false, 0xFFFD, [](uint32_t) {})) return Data();
  std::string out;
  String::appendUTF8(v, out);
  return Data::withString(out);
}

Data encodeSingleByte(std::u16string_view v, unsigned limit) {
  return Data::withUninitializedLength(v.size(), [&](uint8_t* out) {
    for (UInteger i = 0; i < v.size(); ++i) out[i] = v[i] <= limit ? static_cast<uint8_t>(v[i]) : '?';
  });
}

Data encodeUTF16(std::u16string_view v, bool bigEndian, bool bom, bool lossy) {
  std::vector<uint8_t> out;
  out.reserve(2 * v.size() + 2);
  auto put = [&](unichar u) {
    if (bigEndian) {
      out.push_back(static_cast<uint8_t>(u >> 8));
      out.push_back(static_cast<uint8_t>(u));
    } else {
      out.push_back(static_cast<uint8_t>(u));
      out.push_back(static_cast<uint8_t>(u >> 8));
    }
  };
  if (bom) put(0xFEFF);
  bool ok = forEachCodePoint(v, lossy, 0xFFFD, [&](uint32_t c) {
    if (c >= 0x10000) {
      put(static_cast<unichar>(0xD800 + ((c - 0x10000) >> 10)));
      put(static_cast<unichar>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      put(static_cast<unichar>(c));
    }
  });
  return ok ? Data::withVector(std::move(out)) : Data();
}

Data encodeUTF32(std::u16string_view v, bool bigEndian, bool bom, bool lossy) {
  std::vector<uint8_t> out;
  out.reserve(4 * v.size() + 4);
  auto put = [&](uint32_t c) {
    for (int k = 0; k < 4; ++k) out.push_back(static_cast<uint8_t>(c >> (bigEndian ? 24 - 8 * k : 8 * k)));
  };
  if (bom) put(0xFEFF);
  bool ok = forEachCodePoint(v, lossy, 0xFFFD, put);
  return ok ? Data::withVector(std::move(out)) : Data();
}

Data encodeIconv(const char* name, std::u16string_view v, bool lossy) {
  Iconv cd(name, "UTF-16LE");
  if (!cd.ok()) return {};
  std::vector<char> in(2 * v.size());
  for (UInteger i = 0; i < v.size(); ++i) {
    unichar u = v[i];
    in[2 * i] = static_cast<char>(u & 0xFF);
    in[2 * i + 1] = static_cast<char>(u >> 8);
  }
  std::vector<char> out(4 * v.size() + 16);
  size_t used = 0;
  // Runs iconv over [*p, *p + *left), growing the output as needed; false on an input it rejects.
  auto run = [&](char** p, size_t* left) {
    for (;;) {
      char* o = out.data() + used;
      size_t oLeft = out.size() - used;
      size_t r = iconv(cd.get(), p, left, &o, &oLeft);
      used = out.size() - oLeft;
      if (r != static_cast<size_t>(-1)) return true;
      if (errno != E2BIG) return false;
      out.resize(out.size() * 2 + 16);
    }
  };
  char* p = in.data();
  size_t left = in.size();
  while (!run(&p, &left)) {
    if (!lossy) return {};
    // Skip the unrepresentable character (a pair counts as one) and write "?" in its place.
    size_t skip = 2;
    uint32_t u = static_cast<uint8_t>(p[0]) | static_cast<uint8_t>(p[1]) << 8;
    if (isHigh(u) && left >= 4) {
      uint32_t u2 = static_cast<uint8_t>(p[2]) | static_cast<uint8_t>(p[3]) << 8;
      if (isLow(u2)) skip = 4;
    }
    p += skip;
    left -= skip;
    char q[2] = {'?', 0};
    char* qp = q;
    size_t qLeft = 2;
    if (!run(&qp, &qLeft)) return {};
  }
  if (!run(nullptr, nullptr)) return {};  // back to the initial shift state
  return Data::withBytes(out.data(), used);
}

}  // namespace

bool isKnownStringEncoding(StringEncoding e) noexcept {
  switch (e) {
    case ASCIIStringEncoding:
    case UTF8StringEncoding:
    case ISOLatin1StringEncoding:
    case UnicodeStringEncoding:
    case UTF16BigEndianStringEncoding:
    case UTF16LittleEndianStringEncoding:
    case UTF32StringEncoding:
    case UTF32BigEndianStringEncoding:
    case UTF32LittleEndianStringEncoding:
    case MacOSRomanStringEncoding:
      return true;
    default:
      return iconvName(e) != nullptr;
  }
}

String stringWithDataEncoding(const Data& data, StringEncoding encoding) {
  if (data.isNil()) return {};
  const uint8_t* b = data.bytes();
  UInteger n = data.length();
  switch (encoding) {
    case ASCIIStringEncoding: return decodeASCII(b, n);
    case UTF8StringEncoding: return decodeUTF8(b, n);
    case ISOLatin1StringEncoding: return decodeLatin1(b, n);
    case UnicodeStringEncoding: return decodeUTF16(b, n, true, true);
    case UTF16BigEndianStringEncoding: return decodeUTF16(b, n, true, false);
    case UTF16LittleEndianStringEncoding: return decodeUTF16(b, n, false, false);
    case UTF32StringEncoding: return decodeUTF32(b, n, true, true);
    case UTF32BigEndianStringEncoding: return decodeUTF32(b, n, true, false);
    case UTF32LittleEndianStringEncoding: return decodeUTF32(b, n, false, false);
    case MacOSRomanStringEncoding: return decodeMacRoman(b, n);
    default: break;
  }
  const char* name = iconvName(encoding);
  if (!name) return {};
  if (n == 0) return String::empty();
  return decodeIconv(name, b, n);
}

Data dataUsingEncoding(const String& string, StringEncoding encoding, bool allowLossy) {
  if (string.isNil()) return {};
  std::u16string_view v = string.view();
  switch (encoding) {
    case ASCIIStringEncoding:
    case ISOLatin1StringEncoding: {
      unsigned limit = encoding == ASCIIStringEncoding ? 0x7F : 0xFF;
      if (!allowLossy) {
        for (unichar u : v) {
          if (u > limit) return {};
        }
      }
      return encodeSingleByte(v, limit);
    }
    case UTF8StringEncoding: return encodeUTF8(v, allowLossy);
    case UnicodeStringEncoding: return encodeUTF16(v, false, true, allowLossy);
    case UTF16BigEndianStringEncoding: return encodeUTF16(v, true, false, allowLossy);
    case UTF16LittleEndianStringEncoding: return encodeUTF16(v, false, false, allowLossy);
    case UTF32StringEncoding: return encodeUTF32(v, false, true, allowLossy);
    case UTF32BigEndianStringEncoding: return encodeUTF32(v, true, false, allowLossy);
    case UTF32LittleEndianStringEncoding: return encodeUTF32(v, false, false, allowLossy);
    case MacOSRomanStringEncoding: return encodeMacRoman(v, allowLossy);
    default: break;
  }
  const char* name = iconvName(encoding);
  if (!name) return {};
  if (v.empty()) return Data::empty();
  return encodeIconv(name, v, allowLossy);
}

}  // namespace tq
