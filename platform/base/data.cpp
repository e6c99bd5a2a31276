#include "tq/platform/base/data.h"

#include <cstring>
#include <functional>
#include <string>

#include "tq/platform/base/exception.h"

namespace tq {

std::shared_ptr<Data::Storage> Data::allocate(UInteger length) {
  auto s = std::make_shared<Storage>();
  s->bytes.reset(new uint8_t[length ? length : 1]);  // deliberately not zeroed
  s->length = length;
  return s;
}

Data::Data(std::initializer_list<uint8_t> bytes) : Data(withBytes(bytes.begin(), bytes.size())) {}

Data Data::withBytes(const void* bytes, UInteger length) {
  auto s = allocate(length);
  if (length) std::memcpy(s->bytes.get(), bytes, length);
  return Data(std::move(s));
}

Data Data::withVector(std::vector<uint8_t> bytes) { return withBytes(bytes.data(), bytes.size()); }

Data Data::empty() {
  static const Data e = withBytes(nullptr, 0);
  return e;
}

UInteger Data::length() const noexcept { return storage_ ? storage_->length : 0; }

const uint8_t* Data::bytes() const noexcept { return storage_ ? storage_->bytes.get() : nullptr; }

Data Data::subdataWithRange(Range range) const {
  if (!storage_) return {};
  if (range.location > length() || range.length > length() - range.location) {
    Exception::raise(NSRangeException,
                     String::fromUTF8("subdataWithRange: range {" + std::to_string(range.location) + ", " +
                                      std::to_string(range.length) + "} out of bounds; data length " +
                                      std::to_string(length())));
  }
  if (range.location == 0 && range.length == length()) return *this;
  return withBytes(bytes() + range.location, range.length);
}

bool operator==(const Data& a, const Data& b) noexcept {
  if (a.storage_ == b.storage_) return true;
  if (!a.storage_ || !b.storage_) return false;
  return a.length() == b.length() && (a.length() == 0 || std::memcmp(a.bytes(), b.bytes(), a.length()) == 0);
}

std::size_t Data::hash() const noexcept { return std::hash<std::string_view>()(stringView()); }

MutableData::MutableData(const Data& initial) : bytes_(initial.bytes(), initial.bytes() + initial.length()) {}

void MutableData::appendBytes(const void* bytes, UInteger length) {
  const auto* b = static_cast<const uint8_t*>(bytes);
  bytes_.insert(bytes_.end(), b, b + length);
}

void MutableData::appendData(const Data& data) { appendBytes(data.bytes(), data.length()); }

void MutableData::setLength(UInteger length) { bytes_.resize(length, 0); }

Data MutableData::copy() const { return Data::withBytes(bytes_.data(), bytes_.size()); }

}  // namespace tq
