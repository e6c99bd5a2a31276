// BinaryPlist: a bounded reader of binary property lists ("bplist00"), for input from outside.
//
//   std::string error;
//   auto plist = tq::BinaryPlist::open(bytes, &error);     // checks the header and trailer
//   if (!plist) { report(error); return; }
//   tq::BinaryPlist::Item top;
//   if (!plist->item(plist->topObject(), top, &error)) ...
//   for (std::size_t i = 0; i < top.count; ++i) { uint64_t ref; plist->reference(top, i, ref, &error); ... }
//
// Nothing is copied or decoded up front: the reader keeps a view of the bytes and reads one object
// at a time. Every count, offset and object reference is checked against the bytes at hand, so a
// damaged or hostile list yields an error message ("object 12: its 40 references run past the
// object table"), never a read outside the buffer or an allocation larger than the input. The
// reader does not follow references itself; callers that walk the object graph bound their own
// depth and detect their own cycles. UIDs (the references of keyed archives) are read as their own
// kind.
//
// Thread: an opened list is immutable; any thread may read it. The bytes must outlive the reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tq {

class BinaryPlist {
 public:
  enum class Kind : uint8_t { Null, Bool, Integer, Real, Date, Data, AsciiString, Utf16String, Uid, Array, Set, Dictionary };

  // One object as stored. For Data and strings `offset` locates the payload (`count` bytes, or
  // `count` UTF-16 code units, big-endian); for arrays, sets and dictionaries `offset` locates the
  // references (a dictionary holds `count` key references, then `count` value references).
  struct Item {
    Kind kind = Kind::Null;
    bool boolean = false;
    int64_t integer = 0;    // Integer (128-bit values keep their low 64 bits), Uid
    double real = 0;        // Real, Date
    std::size_t offset = 0;
    uint64_t count = 0;
  };

  // Checks the header, the trailer and the extent of the offset table; nullopt with *error set
  // when they do not fit the bytes.
  static std::optional<BinaryPlist> open(std::string_view bytes, std::string* error);

  uint64_t objectCount() const { return objectCount_; }
  uint64_t topObject() const { return topObject_; }

  // Reads object `ref`. False with *error set when the reference, the object's offset, its marker
  // or its payload do not fit.
  bool item(uint64_t ref, Item& out, std::string* error) const;
  // The i-th reference of an array, set or dictionary (keys first, then values), checked to name
  // an object of the list.
  bool reference(const Item& container, uint64_t i, uint64_t& out, std::string* error) const;
  // The text of an ASCII or UTF-16 string as UTF-8 (unpaired surrogates become U+FFFD).
  std::string text(const Item& string) const;
  // The payload bytes of Data (and of ASCII strings).
  std::string_view bytes(const Item& data) const { return bytes_.substr(data.offset, data.count); }

 private:
  BinaryPlist() = default;
  bool offsetOf(uint64_t ref, uint64_t& out, std::string* error) const;

  std::string_view bytes_;
  unsigned offsetSize_ = 0;
  unsigned refSize_ = 0;
  uint64_t objectCount_ = 0;
  uint64_t topObject_ = 0;
  uint64_t tableOffset_ = 0;
};

}  // namespace tq
