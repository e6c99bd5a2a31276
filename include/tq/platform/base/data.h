// Data: an immutable, reference-counted byte buffer. MutableData: a growable one.
//
// A default Data is nil, distinct from an empty buffer; nil answers 0 and nullptr and never crashes.
// Copies share their bytes, so copying is cheap; isIdenticalTo() tells whether two Data share the
// same bytes. Threads: a Data may be read from any number of threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "tq/platform/base/range.h"

namespace tq {

class Data {
 public:
  // nil.
  Data() noexcept = default;
  // A copy of the bytes (never nil, possibly empty).
  Data(std::initializer_list<uint8_t> bytes);
  static Data withBytes(const void* bytes, UInteger length);
  static Data withString(std::string_view bytes) { return withBytes(bytes.data(), bytes.size()); }
  static Data withVector(std::vector<uint8_t> bytes);
  // The empty (non-nil) buffer.
  static Data empty();
  // A buffer of `length` uninitialised bytes that `fill` writes before anyone else sees them.
  // fill(uint8_t* bytes) must write every byte. The allocation is not zeroed first.
  template <class Fill>
  static Data withUninitializedLength(UInteger length, Fill&& fill) {
    auto storage = allocate(length);
    fill(storage->bytes.get());
    return Data(std::move(storage));
  }

  bool isNil() const noexcept { return !storage_; }
  explicit operator bool() const noexcept { return static_cast<bool>(storage_); }
  UInteger length() const noexcept;
  // The bytes; nullptr for nil (and possibly for the empty buffer).
  const uint8_t* bytes() const noexcept;
  std::span<const uint8_t> span() const noexcept { return {bytes(), length()}; }
  std::string_view stringView() const noexcept {
    return {reinterpret_cast<const char*>(bytes()), length()};
  }

  // The bytes of the range (NSRangeException outside the buffer).
  Data subdataWithRange(Range range) const;

  // Equality of contents; two nils are equal, nil differs from empty. isEqual() answers false for
  // a nil receiver.
  friend bool operator==(const Data& a, const Data& b) noexcept;
  bool isEqual(const Data& other) const noexcept { return !isNil() && *this == other; }
  bool isIdenticalTo(const Data& other) const noexcept { return storage_ && storage_ == other.storage_; }
  std::size_t hash() const noexcept;

 private:
  friend class MutableData;
  struct Storage {
    std::unique_ptr<uint8_t[]> bytes;
    UInteger length = 0;
  };
  static std::shared_ptr<Storage> allocate(UInteger length);
  explicit Data(std::shared_ptr<const Storage> storage) noexcept : storage_(std::move(storage)) {}
  std::shared_ptr<const Storage> storage_;
};

class MutableData {
 public:
  MutableData() = default;
  explicit MutableData(const Data& initial);

  UInteger length() const noexcept { return bytes_.size(); }
  const uint8_t* bytes() const noexcept { return bytes_.data(); }
  uint8_t* mutableBytes() noexcept { return bytes_.data(); }
  void appendBytes(const void* bytes, UInteger length);
  void appendData(const Data& data);
  void setLength(UInteger length);  // new bytes are zero

  Data copy() const;

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace tq

template <>
struct std::hash<tq::Data> {
  std::size_t operator()(const tq::Data& d) const noexcept { return d.hash(); }
};
