// String storage, UTF-8 conversion, searches and path rules.
#include "tq/platform/base/string.h"

#include "tq/platform/base/arena.h"

#include <algorithm>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>
#include <ostream>
#include <utility>

#include "tq/platform/base/character_set.h"
#include "tq/platform/base/exception.h"

namespace tq {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kLargeBuffer = 4 * kHugePage;
constexpr std::size_t kMostKept = std::size_t{1} << 30;

// The one large buffer kept for reuse.
struct SpareBuffer {
  std::mutex lock;
  void* units = nullptr;
  std::size_t bytes = 0;
};

SpareBuffer& spare() {
  static SpareBuffer* s = new SpareBuffer;  // never destroyed: buffers may be released at exit
  return *s;
}

// Gives a large buffer back: it becomes the spare, and the previous spare is released.
void releaseLarge(void* units, std::size_t bytes) noexcept {
  void* release = units;
  if (bytes >= kLargeBuffer && bytes <= kMostKept) {
    SpareBuffer& s = spare();
    std::lock_guard<std::mutex> hold(s.lock);
    release = s.units;
    s.units = units;
    s.bytes = bytes;
  }
  std::free(release);
}

// A large buffer of at least `bytes`, rounded to 2 MiB, so that the spare (the last large buffer
// released) fits the next string of about the same size. They are not offered for transparent huge
// pages: where the kernel compacts memory to find a huge page on the first touch, or the memory is
// new to a virtual machine's host, a new buffer stalls for hundreds of milliseconds, far more than
// the 4 KiB faults it would save.
void* allocateLarge(std::size_t bytes, std::size_t& got) {
  const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  {
    SpareBuffer& s = spare();
    std::lock_guard<std::mutex> hold(s.lock);
    if (s.units && s.bytes >= rounded && s.bytes / 2 <= rounded) {
      void* reused = s.units;
      got = s.bytes;
      s.units = nullptr;
      s.bytes = 0;
      return reused;
    }
  }
  void* p = nullptr;
  if (posix_memalign(&p, kHugePage, rounded) != 0) throw std::bad_alloc();
  got = rounded;
  return p;
}

using Block = detail::StringStorage;

unichar* tail(Block* b) noexcept { return reinterpret_cast<unichar*>(b + 1); }

// A block with room for `count` code units and a count of one: the units follow the header, or
// for large sizes live in a buffer of their own.
Block* allocateBlock(UInteger count) {
  if (count > std::numeric_limits<UInteger>::max() / (2 * sizeof(unichar)) - sizeof(Block)) throw std::bad_alloc();
  const UInteger bytes = count * sizeof(unichar);
  if (bytes < kLargeBuffer) {
    auto* b = static_cast<Block*>(std::malloc(sizeof(Block) + bytes));
    if (!b) throw std::bad_alloc();
    return new (b) Block{{1}, 0, tail(b), 0};
  }
  auto* b = static_cast<Block*>(std::malloc(sizeof(Block)));
  if (!b) throw std::bad_alloc();
  std::size_t got = 0;
  void* units;
  try {
    units = allocateLarge(bytes, got);
  } catch (...) {
    std::free(b);
    throw;
  }
  return new (b) Block{{1}, 0, static_cast<unichar*>(units), got};
}

void freeBlock(const Block* b) noexcept {
  if (b->largeBytes) releaseLarge(const_cast<unichar*>(b->units), b->largeBytes);
  b->~Block();
  std::free(const_cast<Block*>(b));
}

// The empty string: one block for the whole process, never freed (its count starts far above
// anything the references could take it down by).
constinit Block gEmpty{{std::size_t{1} << 62}, 0, u"", 0};

[[noreturn]] void raiseRange(const char* what, UInteger location, UInteger length, UInteger size) {
  std::string reason = std::string(what) + ": range {" + std::to_string(location) + ", " +
                       std::to_string(length) + "} out of bounds; string length " + std::to_string(size);
  Exception::raise(NSRangeException, String::fromUTF8(reason));
}

void checkRange(const char* what, Range r, UInteger size) {
  if (r.location > size || r.length > size - r.location) raiseRange(what, r.location, r.length, size);
}

const Block* makeStorage(const unichar* units, UInteger length) {
  if (length == 0) {
    gEmpty.refs.fetch_add(1, std::memory_order_relaxed);
    return &gEmpty;
  }
  Block* b = allocateBlock(length);
  std::memcpy(const_cast<unichar*>(b->units), units, length * sizeof(unichar));
  b->length = length;
  return b;
}

// Seals a block that was filled with `length` of its `capacity` units. Much unused room (a UTF-8
// decode of wide text reserves a unit per byte) is given back: a shrinking realloc splits the block
// where it stands, so no unit is copied.
const Block* finishBlock(Block* b, UInteger length, UInteger capacity) noexcept {
  if (length == 0) {
    freeBlock(b);
    gEmpty.refs.fetch_add(1, std::memory_order_relaxed);
    return &gEmpty;
  }
  b->length = length;
  const UInteger slack = capacity - length;
  if (!b->largeBytes && slack >= 32 && slack > capacity / 4) {
    if (void* p = std::realloc(b, sizeof(Block) + length * sizeof(unichar))) {
      b = static_cast<Block*>(p);
      b->units = tail(b);
    }
  }
  return b;
}

}  // namespace

void detail::destroyStringStorage(const StringStorage* storage) noexcept {
  if (storage->largeBytes == kArenaBlock) {
    // The block stays in its arena; the string's hold on the arena goes.
    (*(reinterpret_cast<ArenaState* const*>(storage) - 1))->release();
    return;
  }
  if (storage != &gEmpty) freeBlock(storage);
}

String::String(const char16_t* literal) {
  if (!literal) return;
  storage_ = makeStorage(literal, std::char_traits<char16_t>::length(literal));
}

String::String(std::u16string_view units) : storage_(makeStorage(units.data(), units.size())) {}

String String::withCharacters(const unichar* units, UInteger length) {
  return String(std::u16string_view(units, length));
}

String String::empty() { return String(makeStorage(nullptr, 0)); }

String String::newEmpty() { return String(static_cast<const Block*>(allocateBlock(0))); }

String String::fromASCII(std::string_view ascii) {
  if (ascii.empty()) return empty();
  Block* b = allocateBlock(ascii.size());
  auto* u = const_cast<unichar*>(b->units);
  for (UInteger i = 0; i < ascii.size(); ++i) {
    const auto c = static_cast<unsigned char>(ascii[i]);
    u[i] = c < 0x80 ? c : 0xFFFD;
  }
  b->length = ascii.size();
  return String(static_cast<const Block*>(b));
}

String String::fromUTF8(std::string_view in) { return decodeUTF8(in, false); }

namespace {

// Decodes `size` bytes of UTF-8 into `out` (room for `size` units: never more units than bytes)
// and gives the number of units, or -1 when `strict` and the bytes are not well-formed.
long long decodeUTF8Into(unichar* out, const unsigned char* s, UInteger size, bool strict, bool escape) noexcept {
  UInteger n = 0;
  // Most text handed over is ASCII (identifiers, keys, titles): its run is checked eight bytes at a
  // time and widened as it is checked (one pass over the bytes, not a check and then a copy).
  UInteger i = 0;
  for (uint64_t word; i + 8 <= size; i += 8) {
    std::memcpy(&word, s + i, 8);
    if (word & 0x8080808080808080ull) break;
    for (int k = 0; k < 8; ++k) out[i + k] = s[i + k];
  }
  while (i < size && s[i] < 0x80) out[i] = s[i], ++i;
  n = i;
  while (i < size) {
    unsigned char c = s[i];
    if (c < 0x80) {
      out[n++] = c;
      ++i;
      continue;
    }
    // Decode one sequence; on a flaw either give up (strict) or emit U+FFFD for the maximal
    // ill-formed prefix (the Unicode "substitution of maximal subparts" practice).
    uint32_t cp = 0;
    int need = 0;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      need = 1;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      need = 2;
      cp = c & 0x0F;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;  // no encoded surrogates
    } else if (c >= 0xF0 && c <= 0xF4) {
      need = 3;
      cp = c & 0x07;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      if (strict) return -1;
      out[n++] = escape ? static_cast<unichar>(0xDC00 + c) : 0xFFFD;
      ++i;
      continue;
    }
    UInteger j = i + 1;
    bool ok = true;
    for (int k = 0; k < need; ++k, ++j) {
      if (j >= size) {
        ok = false;
        break;
      }
      unsigned char cc = s[j];
      unsigned char l = k == 0 ? lo : 0x80, h = k == 0 ? hi : 0xBF;
      if (cc < l || cc > h) {
        ok = false;
        break;
      }
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok) {
      if (strict) return -1;
      if (escape) {
        while (i < j) out[n++] = static_cast<unichar>(0xDC00 + s[i++]);  // one unit per byte: size >= n
      } else {
        out[n++] = 0xFFFD;
      }
      i = j;  // resume at the byte that broke the sequence
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out[n++] = static_cast<unichar>(0xD800 + (cp >> 10));
      out[n++] = static_cast<unichar>(0xDC00 + (cp & 0x3FF));
    } else {
      out[n++] = static_cast<unichar>(cp);
    }
    i = j;
  }
  return static_cast<long long>(n);
}

}  // namespace

String String::decodeUTF8(std::string_view in, InvalidUTF8 invalid) {
  const UInteger size = in.size();
  if (size == 0) return empty();
  // Never more units than bytes: the block is made once at that size and decoded into in place.
  Block* block = allocateBlock(size);
  const long long n = decodeUTF8Into(const_cast<unichar*>(block->units), reinterpret_cast<const unsigned char*>(in.data()),
                                     size, invalid == InvalidUTF8::Fail, invalid == InvalidUTF8::EscapeBytes);
  if (n < 0) {
    freeBlock(block);
    return {};
  }
  return String(finishBlock(block, static_cast<UInteger>(n), size));
}

String String::fromUTF8(std::string_view in, Arena& arena) {
  const UInteger size = in.size();
  if (size == 0) return empty();
  // The arena just before the header, the units right after it; the room a wide text leaves
  // unused (a unit per byte is reserved) is given back to the arena at once.
  if (size > (std::numeric_limits<std::size_t>::max() - 64) / sizeof(unichar)) throw std::bad_alloc();
  detail::ArenaState* state = arena.state();
  const std::size_t room = sizeof(detail::ArenaState*) + sizeof(Block) + size * sizeof(unichar);
  void* memory = state->allocate(room, alignof(Block));
  auto* header = static_cast<detail::ArenaState**>(memory);
  auto* b = reinterpret_cast<Block*>(header + 1);
  new (b) Block{{1}, 0, tail(b), detail::kArenaBlock};
  const long long n = decodeUTF8Into(const_cast<unichar*>(b->units), reinterpret_cast<const unsigned char*>(in.data()),
                                     size, false, false);
  state->shrinkLast(memory, room, room - (size - static_cast<UInteger>(n)) * sizeof(unichar));
  b->length = static_cast<UInteger>(n);
  *header = state;
  state->retain();
  return String(static_cast<const Block*>(b));
}

unichar String::characterAtIndex(UInteger index) const {
  if (index >= length()) raiseRange("characterAtIndex:", index, 0, length());
  return storage_->units[index];
}

std::string String::UTF8String() const {
  std::string out;
  appendUTF8(view(), out);
  return out;
}

void String::appendUTF8(std::u16string_view v, std::string& out, bool unescapeBytes) {
  out.reserve(out.size() + v.size());
  for (UInteger i = 0; i < v.size(); ++i) {
    uint32_t c = v[i];
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < v.size() && v[i + 1] >= 0xDC00 && v[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (v[i + 1] - 0xDC00);
      ++i;
    } else if (unescapeBytes && c >= 0xDC80 && c <= 0xDCFF) {
      out.push_back(static_cast<char>(c & 0xFF));
      continue;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
}

bool operator==(const String& a, const String& b) noexcept {
  if (a.storage_ == b.storage_) return true;
  if (!a.storage_ || !b.storage_) return false;
  return a.view() == b.view();
}

bool operator<(const String& a, const String& b) noexcept {
  if (!a.storage_ || !b.storage_) return !a.storage_ && b.storage_;
  return a.view() < b.view();
}

bool String::hasPrefix(const String& prefix) const noexcept {
  if (!storage_ || prefix.length() == 0) return false;
  return view().substr(0, prefix.length()) == prefix.view();
}

bool String::hasSuffix(const String& suffix) const noexcept {
  if (!storage_ || suffix.length() == 0 || suffix.length() > length()) return false;
  return view().substr(length() - suffix.length()) == suffix.view();
}

Range String::rangeOfString(const String& needle) const {
  return rangeOfString(needle, 0, Range{0, length()});
}

Range String::rangeOfString(const String& needle, unsigned options) const {
  return rangeOfString(needle, options, Range{0, length()});
}

Range String::rangeOfString(const String& needle, unsigned options, Range range) const {
  if (!storage_) return Range::notFound();
  checkRange("rangeOfString:options:range:", range, length());
  std::u16string_view hay = view().substr(range.location, range.length);
  std::u16string_view pat = needle.view();
  if (pat.empty() || pat.size() > hay.size()) return Range::notFound();
  if (options & CaseInsensitiveSearch) {
    auto fold = [](unichar c) -> unichar { return (c >= u'A' && c <= u'Z') ? c + 32 : c; };
    auto eq = [&](unichar a, unichar b) { return fold(a) == fold(b); };
    if (options & BackwardsSearch) {
      auto it = std::find_end(hay.begin(), hay.end(), pat.begin(), pat.end(), eq);
      if (it == hay.end()) return Range::notFound();
      UInteger at = static_cast<UInteger>(it - hay.begin());
      if ((options & AnchoredSearch) && at + pat.size() != hay.size()) return Range::notFound();
      return {range.location + at, pat.size()};
    }
    auto it = std::search(hay.begin(), hay.end(), pat.begin(), pat.end(), eq);
    if (it == hay.end()) return Range::notFound();
    UInteger at = static_cast<UInteger>(it - hay.begin());
    if ((options & AnchoredSearch) && at != 0) return Range::notFound();
    return {range.location + at, pat.size()};
  }
  if (options & AnchoredSearch) {
    if (options & BackwardsSearch) {
      if (hay.substr(hay.size() - pat.size()) == pat) return {range.max() - pat.size(), pat.size()};
      return Range::notFound();
    }
    if (hay.substr(0, pat.size()) == pat) return {range.location, pat.size()};
    return Range::notFound();
  }
  UInteger at = (options & BackwardsSearch) ? hay.rfind(pat) : hay.find(pat);
  if (at == std::u16string_view::npos) return Range::notFound();
  return {range.location + at, pat.size()};
}

Range String::rangeOfCharacterFromSet(const CharacterSet& set) const {
  return rangeOfCharacterFromSet(set, 0, Range{0, length()});
}

Range String::rangeOfCharacterFromSet(const CharacterSet& set, unsigned options) const {
  return rangeOfCharacterFromSet(set, options, Range{0, length()});
}

Range String::rangeOfCharacterFromSet(const CharacterSet& set, unsigned options, Range range) const {
  if (!storage_) return Range::notFound();
  checkRange("rangeOfCharacterFromSet:options:range:", range, length());
  const unichar* u = storage_->units;
  // By characters: a surrogate pair inside the range is one character of two units.
  if (options & BackwardsSearch) {
    for (UInteger i = range.max(); i > range.location;) {
      UInteger width = (isLowSurrogate(u[i - 1]) && i - 1 > range.location && isHighSurrogate(u[i - 2])) ? 2 : 1;
      i -= width;
      bool member = width == 2 ? set.longCharacterIsMember(characterOfSurrogatePair(u[i], u[i + 1]))
                               : set.characterIsMember(u[i]);
      if (member) return {i, width};
      if (options & AnchoredSearch) break;
    }
  } else {
    for (UInteger i = range.location; i < range.max();) {
      UInteger width = (isHighSurrogate(u[i]) && i + 1 < range.max() && isLowSurrogate(u[i + 1])) ? 2 : 1;
      bool member = width == 2 ? set.longCharacterIsMember(characterOfSurrogatePair(u[i], u[i + 1]))
                               : set.characterIsMember(u[i]);
      if (member) return {i, width};
      if (options & AnchoredSearch) break;
      i += width;
    }
  }
  return Range::notFound();
}

String String::substringWithRange(Range range) const {
  if (!storage_) return {};
  checkRange("substringWithRange:", range, length());
  if (range.location == 0 && range.length == length()) return *this;
  return String(view().substr(range.location, range.length));
}

String String::substringFromIndex(UInteger index) const {
  if (!storage_) return {};
  if (index > length()) raiseRange("substringFromIndex:", index, 0, length());
  return substringWithRange({index, length() - index});
}

String String::substringToIndex(UInteger index) const {
  if (!storage_) return {};
  if (index > length()) raiseRange("substringToIndex:", index, 0, length());
  return substringWithRange({0, index});
}

String String::stringByAppendingString(const String& tail) const {
  if (!storage_) return {};
  MutableString m(*this);
  m.appendString(tail);
  return std::move(m).take();
}

String String::stringByReplacingOccurrencesOfString(const String& target, const String& replacement) const {
  if (!storage_) return {};
  if (target.length() == 0 || view().find(target.view()) == std::u16string_view::npos) return *this;
  MutableString m(*this);
  m.replaceOccurrencesOfString(target, replacement, LiteralSearch, Range{0, m.length()});
  return std::move(m).take();
}

String String::stringByTrimmingCharactersInSet(const CharacterSet& set) const {
  if (!storage_) return {};
  std::u16string_view v = view();
  UInteger b = 0, e = v.size();
  // By characters, as the searches go: a surrogate pair is trimmed whole or kept whole.
  while (b < e) {
    Range r = rangeOfCharacterFromSet(set, AnchoredSearch, Range{b, e - b});
    if (!r.found()) break;
    b = r.max();
  }
  while (e > b) {
    Range r = rangeOfCharacterFromSet(set, AnchoredSearch | BackwardsSearch, Range{b, e - b});
    if (!r.found()) break;
    e = r.location;
  }
  return substringWithRange({b, e - b});
}

// --- paths -----------------------------------------------------------------------------------

namespace {

// The path without trailing separators (the root stays "/").
std::u16string_view stripTrailingSlashes(std::u16string_view p) {
  while (p.size() > 1 && p.back() == u'/') p.remove_suffix(1);
  return p;
}

// Index of the extension's dot in the last component of a stripped path, or npos.
UInteger extensionDot(std::u16string_view p) {
  UInteger slash = p.rfind(u'/');
  UInteger start = slash == std::u16string_view::npos ? 0 : slash + 1;
  UInteger dot = p.rfind(u'.');
  if (dot == std::u16string_view::npos || dot <= start) return std::u16string_view::npos;
  if (dot + 1 == p.size()) return std::u16string_view::npos;  // "name." has no extension
  return dot;
}

}  // namespace

std::vector<String> String::pathComponents() const {
  std::vector<String> out;
  std::u16string_view p = view();
  if (!storage_ || p.empty()) return out;
  UInteger i = 0;
  if (p[0] == u'/') {
    out.emplace_back(u"/");
    while (i < p.size() && p[i] == u'/') ++i;
  }
  while (i < p.size()) {
    UInteger j = p.find(u'/', i);
    if (j == std::u16string_view::npos) j = p.size();
    out.emplace_back(p.substr(i, j - i));
    i = j;
    bool trailing = false;
    while (i < p.size() && p[i] == u'/') {
      ++i;
      trailing = true;
    }
    if (trailing && i == p.size()) out.emplace_back(u"/");
  }
  return out;
}

String String::pathWithComponents(const std::vector<String>& components) {
  std::u16string out;
  for (UInteger k = 0; k < components.size(); ++k) {
    std::u16string_view c = components[k].view();
    if (c.empty()) continue;
    if (c == u"/") {
      if (out.empty() || out.back() != u'/') out += u'/';
      continue;
    }
    if (!out.empty() && out.back() != u'/') out += u'/';
    out += c;
  }
  return String(out);
}

String String::lastPathComponent() const {
  if (!storage_) return {};
  std::u16string_view p = stripTrailingSlashes(view());
  if (p == u"/") return String(u"/");
  UInteger slash = p.rfind(u'/');
  if (slash == std::u16string_view::npos) {
    if (p.size() == length()) return *this;
    return String(p);
  }
  return String(p.substr(slash + 1));
}

String String::pathExtension() const {
  if (!storage_) return {};
  std::u16string_view p = stripTrailingSlashes(view());
  UInteger dot = extensionDot(p);
  if (dot == std::u16string_view::npos) return String::empty();
  return String(p.substr(dot + 1));
}

String String::stringByDeletingLastPathComponent() const {
  if (!storage_) return {};
  std::u16string_view p = stripTrailingSlashes(view());
  if (p == u"/") return String(u"/");
  UInteger slash = p.rfind(u'/');
  if (slash == std::u16string_view::npos) return String::empty();
  std::u16string_view head = p.substr(0, slash);
  while (head.size() > 1 && head.back() == u'/') head.remove_suffix(1);
  if (head.empty()) return String(u"/");
  return String(head);
}

String String::stringByDeletingPathExtension() const {
  if (!storage_) return {};
  std::u16string_view p = stripTrailingSlashes(view());
  UInteger dot = extensionDot(p);
  if (dot == std::u16string_view::npos) {
    if (p.size() == length()) return *this;
    return String(p);
  }
  return String(p.substr(0, dot));
}

String String::stringByAppendingPathComponent(const String& component) const {
  if (!storage_) return {};
  std::u16string out(stripTrailingSlashes(view()));
  std::u16string_view c = component.view();
  while (!c.empty() && c.front() == u'/') c.remove_prefix(1);
  c = stripTrailingSlashes(c);
  if (c == u"/") c = {};
  if (!c.empty()) {
    if (!out.empty() && out.back() != u'/') out += u'/';
    out += c;
  }
  return String(out);
}

String String::stringByAppendingPathExtension(const String& extension) const {
  if (!storage_) return {};
  std::u16string out(stripTrailingSlashes(view()));
  if (out.empty() || out == u"/") return String(out);
  out += u'.';
  out += extension.view();
  return String(out);
}

std::ostream& operator<<(std::ostream& out, const String& s) {
  return s.isNil() ? out << "(null)" : out << s.UTF8String();
}

std::size_t String::hash() const noexcept { return std::hash<std::u16string_view>()(view()); }

// --- MutableString -----------------------------------------------------------------------------

MutableString::MutableString(const String& initial) { appendString(initial); }

MutableString::MutableString(const MutableString& other) { appendCharacters(other.mutableUnits(), other.length_); }

MutableString& MutableString::operator=(const MutableString& other) {
  if (this != &other) {
    length_ = 0;
    appendCharacters(other.mutableUnits(), other.length_);
  }
  return *this;
}

MutableString::MutableString(MutableString&& other) noexcept
    : block_(std::exchange(other.block_, nullptr)),
      length_(std::exchange(other.length_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

MutableString& MutableString::operator=(MutableString&& other) noexcept {
  if (this != &other) {
    if (block_) freeBlock(block_);
    block_ = std::exchange(other.block_, nullptr);
    length_ = std::exchange(other.length_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
  }
  return *this;
}

MutableString::~MutableString() {
  if (block_) freeBlock(block_);
}

unichar MutableString::characterAtIndex(UInteger index) const {
  if (index >= length_) raiseRange("characterAtIndex:", index, 0, length_);
  return block_->units[index];
}

void MutableString::grow(UInteger needed) {
  if (needed <= capacity_) return;
  const UInteger cap = std::max<UInteger>(needed, capacity_ + capacity_ / 2 + 16);
  if (block_ && !block_->largeBytes && cap < kLargeBuffer / sizeof(unichar)) {
    // Both sizes are one block: the allocator extends it in place when it can.
    void* p = std::realloc(block_, sizeof(Block) + cap * sizeof(unichar));
    if (!p) throw std::bad_alloc();
    block_ = static_cast<Block*>(p);
    block_->units = tail(block_);
  } else {
    Block* fresh = allocateBlock(cap);
    if (length_) std::memcpy(const_cast<unichar*>(fresh->units), block_->units, length_ * sizeof(unichar));
    if (block_) freeBlock(block_);
    block_ = fresh;
  }
  capacity_ = block_->largeBytes ? block_->largeBytes / sizeof(unichar) : cap;
}

void MutableString::reserve(UInteger capacity) { grow(capacity); }

void MutableString::setLength(UInteger length) {
  if (length > capacity_) raiseRange("setLength:", length, 0, capacity_);
  length_ = length;
}

void MutableString::appendCharacters(const unichar* units, UInteger count) {
  if (!count) return;
  grow(length_ + count);
  std::memcpy(mutableUnits() + length_, units, count * sizeof(unichar));
  length_ += count;
}

void MutableString::appendString(const String& s) { appendCharacters(s.data(), s.length()); }

void MutableString::appendCharacter(unichar c) {
  grow(length_ + 1);
  mutableUnits()[length_++] = c;
}

void MutableString::appendASCII(std::string_view ascii) {
  grow(length_ + ascii.size());
  unichar* u = mutableUnits();
  for (char ch : ascii) {
    auto b = static_cast<unsigned char>(ch);
    u[length_++] = b < 0x80 ? b : 0xFFFD;
  }
}

void MutableString::replaceCharactersInRange(Range range, const String& replacement) {
  checkRange("replaceCharactersInRange:withString:", range, length_);
  UInteger rl = replacement.length();
  UInteger newLength = length_ - range.length + rl;
  if (rl > range.length) grow(newLength);
  if (!block_) return;  // nothing replaced by nothing in an empty builder
  unichar* u = mutableUnits();
  std::memmove(u + range.location + rl, u + range.max(), (length_ - range.max()) * sizeof(unichar));
  if (rl) std::memcpy(u + range.location, replacement.data(), rl * sizeof(unichar));
  length_ = newLength;
}

UInteger MutableString::replaceOccurrencesOfString(const String& target, const String& replacement,
                                                   unsigned options, Range range) {
  checkRange("replaceOccurrencesOfString:withString:options:range:", range, length_);
  std::u16string_view pat = target.view();
  if (pat.empty()) return 0;
  std::u16string_view whole = view();
  std::u16string_view hay = whole.substr(range.location, range.length);
  std::vector<UInteger> hits;
  for (UInteger at = hay.find(pat); at != std::u16string_view::npos; at = hay.find(pat, at + pat.size())) {
    hits.push_back(range.location + at);
  }
  (void)options;  // searches are literal; backwards gives the same non-overlapping set here
  if (hits.empty()) return 0;
  std::u16string_view rep = replacement.view();
  MutableString out;
  out.reserve(length_ - hits.size() * pat.size() + hits.size() * rep.size());
  const unichar* u = mutableUnits();
  UInteger from = 0;
  for (UInteger h : hits) {
    out.appendCharacters(u + from, h - from);
    out.appendCharacters(rep.data(), rep.size());
    from = h + pat.size();
  }
  out.appendCharacters(u + from, length_ - from);
  *this = std::move(out);
  return hits.size();
}

void MutableString::setString(const String& s) {
  length_ = 0;
  appendString(s);
}

String MutableString::copy() const { return String(std::u16string_view(mutableUnits(), length_)); }

String MutableString::take() && {
  if (!block_ || length_ == 0) {
    *this = MutableString();
    return String::empty();
  }
  Block* b = std::exchange(block_, nullptr);
  const Block* sealed = finishBlock(b, length_, capacity_);
  length_ = capacity_ = 0;
  return String(sealed);
}

}  // namespace tq
