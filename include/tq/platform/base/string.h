// String: an immutable, reference-counted sequence of UTF-16 code units.
//
// A default-constructed String is nil, distinct from the empty string. Asking nil anything answers
// nil, 0, false or an empty view, and never crashes or throws: code may rely on that rule as code
// relied on messages to nil. Copies share their storage, so copying is cheap, and an operation that
// "returns the receiver itself" returns a String with the very same storage: isIdenticalTo() tells.
//
// Every index, length and Range counts UTF-16 code units. Operations that take an index or a range
// check it and raise NSRangeException (a tq::Exception) when it lies outside the string.
//
// Literals: String s = u"text"; is the usual way to write a constant.
//
// Threads: a String may be read from any number of threads at once.
//
// Memory: buffers of 8 MiB or more are aligned for the kernel's huge pages, and the most recently
// released one (one only, at most 1 GiB) is kept for the next large string, so that producing large
// strings over and over does not pay for fresh pages every time.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define TQ_STRING_KNOWS_SINGLE_THREADED 1
#endif

#include "tq/platform/base/range.h"

namespace tq {

using unichar = char16_t;
class Arena;
class CharacterSet;
class MutableString;

namespace detail {
// The shared code units of a String: one heap block, this header followed by the units. Buffers of
// 8 MiB or more live in a huge-page-aligned allocation of their own, and `units` points there.
// A block in an arena says so in largeBytes (kArenaBlock), with its arena just before the header.
// Opaque outside the library; laid out here only so that copying a String stays inline.
struct StringStorage {
  mutable std::atomic<std::size_t> refs;  // Strings sharing this block; the empty string's never reaches 0
  UInteger length;
  const unichar* units;     // the block's own tail, or the large buffer
  std::size_t largeBytes;   // size of the large buffer; 0 when the units follow the header
};
inline constexpr std::size_t kArenaBlock = ~std::size_t{0};
// Frees a block whose last reference went away.
void destroyStringStorage(const StringStorage* storage) noexcept;
}  // namespace detail

class String {
 public:
  // nil.
  String() noexcept = default;
  String(std::nullptr_t) noexcept {}
  String(const String& other) noexcept : storage_(other.storage_) { retain(storage_); }
  String(String&& other) noexcept : storage_(other.storage_) { other.storage_ = nullptr; }
  String& operator=(const String& other) noexcept {
    retain(other.storage_);
    release(storage_);
    storage_ = other.storage_;
    return *this;
  }
  String& operator=(String&& other) noexcept {
    if (this != &other) {
      release(storage_);
      storage_ = other.storage_;
      other.storage_ = nullptr;
    }
    return *this;
  }
  ~String() { release(storage_); }
  // A copy of a NUL-terminated UTF-16 literal; a null pointer gives nil.
  String(const char16_t* literal);
  // A copy of the code units (never nil, possibly empty).
  String(std::u16string_view units);
  String(const std::u16string& units) : String(std::u16string_view(units)) {}
  // Narrow C strings are deliberately not convertible: say fromUTF8() or fromASCII().
  String(const char*) = delete;

  // What a UTF-8 decoder makes of bytes that are not part of a well-formed sequence (a stray
  // continuation byte, a truncated sequence, an overlong form, an encoded surrogate, a byte above F4).
  enum class InvalidUTF8 {
    Replace,      // each maximal ill-formed subsequence becomes one U+FFFD REPLACEMENT CHARACTER
    Fail,         // the result is nil
    EscapeBytes,  // each such byte B (80-FF) becomes the lone low surrogate U+DC00 + B (U+DC80-U+DCFF),
                  // which appendUTF8(..., true) turns back into B: any bytes round-trip exactly
  };

  // Decodes UTF-8. Never fails and never crashes: each maximal ill-formed subsequence (and every
  // encoded surrogate or overlong form) becomes one U+FFFD REPLACEMENT CHARACTER.
  static String fromUTF8(std::string_view utf8);
  // The same text with its code units kept in `arena` (see arena.h): no heap block of its own, and
  // the string (with every copy) holds the arena's memory until the last copy goes. For the many
  // strings of one piece of work that are given up together (an interface read from a file).
  static String fromUTF8(std::string_view utf8, Arena& arena);
  // Decodes UTF-8; with strict, any ill-formed sequence gives nil instead of U+FFFD.
  static String decodeUTF8(std::string_view utf8, bool strict) {
    return decodeUTF8(utf8, strict ? InvalidUTF8::Fail : InvalidUTF8::Replace);
  }
  static String decodeUTF8(std::string_view utf8, InvalidUTF8 invalid);
  // Bytes 0-127 as themselves; any other byte becomes U+FFFD.
  static String fromASCII(std::string_view ascii);
  static String withCharacters(const unichar* units, UInteger length);
  // The empty (non-nil) string.
  static String empty();
  // An empty string with storage of its own: equal to every empty string, identical to none (for
  // operations that promise a new string even when it is empty).
  static String newEmpty();

  bool isNil() const noexcept { return !storage_; }
  // True for any non-nil string, the empty one included.
  explicit operator bool() const noexcept { return storage_ != nullptr; }

  UInteger length() const noexcept { return storage_ ? storage_->length : 0; }
  // The code unit at index; raises NSRangeException when index >= length (also for nil).
  unichar characterAtIndex(UInteger index) const;
  // The code units; empty for nil. Valid as long as this String (or a copy) lives.
  std::u16string_view view() const noexcept {
    return storage_ ? std::u16string_view(storage_->units, storage_->length) : std::u16string_view();
  }
  const unichar* data() const noexcept { return view().data(); }
  std::u16string u16string() const { return std::u16string(view()); }

  // UTF-8. Unpaired surrogates become U+FFFD; nil gives "".
  std::string UTF8String() const;
  // Appends the UTF-8 form of the code units to `out` (unpaired surrogates become U+FFFD), for
  // callers that reuse one buffer across many conversions. With unescapeBytes, an unpaired
  // U+DC80-U+DCFF becomes the single byte 80-FF it stands for (see InvalidUTF8::EscapeBytes).
  static void appendUTF8(std::u16string_view units, std::string& out, bool unescapeBytes = false);

  // Equality of contents. operator== treats two nils as equal and nil as unequal to "";
  // isEqual() follows the message-to-nil rule: a nil receiver answers false.
  bool isEqual(const String& other) const noexcept { return !isNil() && *this == other; }
  friend bool operator==(const String& a, const String& b) noexcept;
  friend bool operator!=(const String& a, const String& b) noexcept { return !(a == b); }
  // Code-unit order (nil sorts first).
  friend bool operator<(const String& a, const String& b) noexcept;
  // Same storage: true only when one String is a copy of the other (nil is identical to nothing).
  bool isIdenticalTo(const String& other) const noexcept {
    return storage_ && storage_ == other.storage_;
  }

  bool hasPrefix(const String& prefix) const noexcept;
  bool hasSuffix(const String& suffix) const noexcept;

  // Searches. Searches are literal (code unit by code unit). An empty needle is never found.
  // With BackwardsSearch the last occurrence inside the range is found. The range must lie inside
  // the string (NSRangeException otherwise).
  Range rangeOfString(const String& needle) const;
  Range rangeOfString(const String& needle, unsigned options) const;
  Range rangeOfString(const String& needle, unsigned options, Range range) const;
  // The first (last, with BackwardsSearch) character of the range that belongs to the set. A
  // surrogate pair inside the range is one character: its range has length 2.
  Range rangeOfCharacterFromSet(const CharacterSet& set) const;
  Range rangeOfCharacterFromSet(const CharacterSet& set, unsigned options) const;
  Range rangeOfCharacterFromSet(const CharacterSet& set, unsigned options, Range range) const;

  // Substrings (NSRangeException outside the string). The whole range returns the receiver itself.
  String substringWithRange(Range range) const;
  String substringFromIndex(UInteger index) const;
  String substringToIndex(UInteger index) const;

  String stringByAppendingString(const String& tail) const;
  // Literal replacement of every non-overlapping occurrence, left to right. Returns the receiver
  // itself when the target does not occur.
  String stringByReplacingOccurrencesOfString(const String& target, const String& replacement) const;
  // Removes members of the set from both ends; the receiver itself when nothing is removed.
  String stringByTrimmingCharactersInSet(const CharacterSet& set) const;

  // Paths, with "/" as the separator and the platform's rules: trailing separators are ignored
  // (except for the root "/"), the extension is the text after the last "." of the last component
  // unless that dot is the component's first character.
  std::vector<String> pathComponents() const;  // "/a/b" -> ("/", "a", "b"); "a/b/" -> ("a", "b", "/")
  static String pathWithComponents(const std::vector<String>& components);
  String lastPathComponent() const;
  String pathExtension() const;
  String stringByDeletingLastPathComponent() const;
  String stringByDeletingPathExtension() const;
  String stringByAppendingPathComponent(const String& component) const;
  String stringByAppendingPathExtension(const String& extension) const;

  std::size_t hash() const noexcept;

  // Memory: a string below 8 MiB is one heap block (the count, the length and the code units
  // together), or a block of an arena (fromUTF8 with an arena); the empty string is one shared
  // block that is never freed. Counting is atomic, so copies may be made and dropped on any thread.
  using Storage = detail::StringStorage;

 private:
  friend class MutableString;
  // Adopts a block whose count already includes this reference.
  explicit String(const Storage* adopted) noexcept : storage_(adopted) {}
  // While the process has one thread (as the C library tells), counts change without locked
  // instructions, as std::shared_ptr's do.
  static bool singleThreaded() noexcept {
#ifdef TQ_STRING_KNOWS_SINGLE_THREADED
    return __libc_single_threaded;
#else
    return false;
#endif
  }
  static void retain(const Storage* s) noexcept {
    if (!s) return;
    if (singleThreaded()) {
      s->refs.store(s->refs.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      s->refs.fetch_add(1, std::memory_order_relaxed);
    }
  }
  static void release(const Storage* s) noexcept {
    if (!s) return;
    // A count of one is this handle's own: nobody else can add to it, so no atomic write is needed.
    const std::size_t n = s->refs.load(std::memory_order_acquire);
    if (n == 1) {
      detail::destroyStringStorage(s);
    } else if (singleThreaded()) {
      s->refs.store(n - 1, std::memory_order_relaxed);
    } else if (s->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      detail::destroyStringStorage(s);
    }
  }
  const Storage* storage_ = nullptr;
};

// A growable string for building text. Not shared: copying a MutableString copies its contents.
// copy() (or std::move into a String) makes the immutable result; moving hands the buffer over
// without copying a code unit.
class MutableString {
 public:
  MutableString() = default;
  explicit MutableString(const String& initial);
  MutableString(const MutableString& other);
  MutableString& operator=(const MutableString& other);
  MutableString(MutableString&& other) noexcept;
  MutableString& operator=(MutableString&& other) noexcept;
  ~MutableString();

  UInteger length() const noexcept { return length_; }
  std::u16string_view view() const noexcept { return {mutableUnits(), length_}; }
  unichar characterAtIndex(UInteger index) const;

  void appendString(const String& s);
  void appendCharacters(const unichar* units, UInteger count);
  void appendCharacter(unichar c);
  // ASCII bytes as code units (bytes above 127 become U+FFFD).
  void appendASCII(std::string_view ascii);
  // Replaces the range (NSRangeException outside the string).
  void replaceCharactersInRange(Range range, const String& replacement);
  // Literal replacement of every occurrence inside range; returns the count replaced.
  UInteger replaceOccurrencesOfString(const String& target, const String& replacement, unsigned options,
                                      Range range);
  void setString(const String& s);

  // Capacity management for code that writes code units directly: reserve() guarantees room,
  // mutableData() exposes it, setLength() declares how much of it is now text (<= capacity).
  void reserve(UInteger capacity);
  UInteger capacity() const noexcept { return capacity_; }
  unichar* mutableData() noexcept { return mutableUnits(); }
  void setLength(UInteger length);

  // The contents as an immutable String (a copy; the builder keeps its text).
  String copy() const;
  // The contents as an immutable String without copying; the builder is left empty.
  String take() &&;
  operator String() && { return std::move(*this).take(); }

 private:
  void grow(UInteger needed);
  unichar* mutableUnits() const noexcept { return block_ ? const_cast<unichar*>(block_->units) : nullptr; }
  // The block the String will adopt (its count is one), or null before the first character.
  detail::StringStorage* block_ = nullptr;
  UInteger length_ = 0;
  UInteger capacity_ = 0;
};

// Writes the text as UTF-8, nil as "(null)" (for diagnostics and test output).
std::ostream& operator<<(std::ostream& out, const String& s);

}  // namespace tq

template <>
struct std::hash<tq::String> {
  std::size_t operator()(const tq::String& s) const noexcept { return s.hash(); }
};
