#include "plist_reader.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "tq/platform/bundle/binary_plist.h"
#include "xml_plist_parser.h"

namespace tq::detail {
namespace {

// Builds Values from a binary list, following every reference: a shared object becomes one Value
// per reference, so the walk counts each visit and the bytes it copies, and stops a list whose
// sharing would expand it beyond its own size. Depth is bounded by the limits.
class BinaryConverter {
 public:
  BinaryConverter(const BinaryPlist& plist, std::size_t inputSize, const PropertyListLimits& limits)
      : plist_(plist),
        limits_(limits),
        maxVisits_(std::min<uint64_t>(limits.maxValues, inputSize)),
        maxPayload_(8 * static_cast<uint64_t>(inputSize) + (uint64_t{1} << 20)) {}

  bool convert(uint64_t ref, std::size_t depth, Value& out) {
    if (++visits_ > maxVisits_) {
      return fail(visits_ > limits_.maxValues ? "more than " + std::to_string(limits_.maxValues) + " values"
                                              : "shared objects would expand beyond the size of the list");
    }
    BinaryPlist::Item item;
    std::string reason;
    if (!plist_.item(ref, item, &reason)) return fail("damaged binary property list (" + reason + ")");
    offset_ = item.offset;
    using Kind = BinaryPlist::Kind;
    switch (item.kind) {
      case Kind::Null:
      case Kind::Uid:
        out = Value();
        return true;
      case Kind::Bool:
        out = Value(item.boolean);
        return true;
      case Kind::Integer:
        out = Value(static_cast<long long>(item.integer));
        return true;
      case Kind::Real:
        out = Value(item.real);
        return true;
      case Kind::Date:
        out = Value(Date{item.real});
        return true;
      case Kind::Data:
        if (!spend(item.count)) return false;
        out = Value(Data::withBytes(plist_.bytes(item).data(), item.count));
        return true;
      case Kind::AsciiString:
      case Kind::Utf16String: {
        String text;
        if (!string(item, text)) return false;
        out = Value(std::move(text));
        return true;
      }
      case Kind::Array:
      case Kind::Set:
      case Kind::Dictionary:
        break;
    }
    if (depth >= limits_.maxDepth) return fail("nested deeper than " + std::to_string(limits_.maxDepth) + " levels");
    if (item.kind != Kind::Dictionary) {
      std::vector<Value> items;
      items.reserve(static_cast<std::size_t>(std::min<uint64_t>(item.count, maxVisits_)));
      for (uint64_t i = 0; i < item.count; ++i) {
        uint64_t child = 0;
        items.emplace_back();
        if (!reference(item, i, child) || !convert(child, depth + 1, items.back())) return false;
      }
      out = Value(Array(std::move(items)));
      return true;
    }
    std::vector<Dictionary::Entry> entries;
    entries.reserve(static_cast<std::size_t>(std::min<uint64_t>(item.count, maxVisits_)));
    for (uint64_t i = 0; i < item.count; ++i) {
      uint64_t keyRef = 0, valueRef = 0;
      if (!reference(item, i, keyRef) || !reference(item, item.count + i, valueRef)) return false;
      BinaryPlist::Item key;
      if (++visits_ > maxVisits_) return fail("shared objects would expand beyond the size of the list");
      if (!plist_.item(keyRef, key, &reason)) return fail("damaged binary property list (" + reason + ")");
      if (key.kind != Kind::AsciiString && key.kind != Kind::Utf16String) return fail("a dictionary key is not a string");
      entries.emplace_back();
      if (!string(key, entries.back().first) || !convert(valueRef, depth + 1, entries.back().second)) return false;
    }
    out = Value(Dictionary(std::move(entries)));
    return true;
  }

  std::string error() const { return error_; }
  std::size_t offset() const { return offset_; }

 private:
  bool fail(std::string reason) {
    error_ = std::move(reason);
    return false;
  }
  bool spend(uint64_t bytes) {
    payload_ += bytes;
    return payload_ <= maxPayload_ || fail("shared objects would expand beyond the size of the list");
  }
  bool reference(const BinaryPlist::Item& container, uint64_t i, uint64_t& out) {
    std::string reason;
    return plist_.reference(container, i, out, &reason) || fail("damaged binary property list (" + reason + ")");
  }
  // ASCII strings are read as UTF-8 (a stray byte becomes U+FFFD); UTF-16 strings unit for unit.
  bool string(const BinaryPlist::Item& item, String& out) {
    if (item.kind == BinaryPlist::Kind::AsciiString) {
      if (!spend(item.count)) return false;
      out = String::fromUTF8(plist_.bytes(item));
      return true;
    }
    if (!spend(2 * item.count)) return false;
    const std::string_view raw = plist_.bytes({BinaryPlist::Kind::Data, false, 0, 0, item.offset, 2 * item.count});
    std::u16string units(static_cast<std::size_t>(item.count), u'\0');
    for (std::size_t u = 0; u < units.size(); ++u) {
      units[u] = static_cast<char16_t>(static_cast<uint8_t>(raw[2 * u]) << 8 | static_cast<uint8_t>(raw[2 * u + 1]));
    }
    out = String(units);
    return true;
  }

  const BinaryPlist& plist_;
  const PropertyListLimits& limits_;
  const uint64_t maxVisits_;
  const uint64_t maxPayload_;
  uint64_t visits_ = 0;
  uint64_t payload_ = 0;
  std::size_t offset_ = 0;
  std::string error_;
};

}  // namespace

PropertyListResult readPropertyList(std::span<const uint8_t> bytes, const PropertyListLimits& limits) {
  PropertyListResult result;
  if (bytes.size() > limits.maxBytes || bytes.size() > UINT32_MAX) {
    result.error = "larger than " + std::to_string(limits.maxBytes >> 20) + " MiB";
    return result;
  }
  bool binary = bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0;
  if (!binary) return parseXMLPropertyList(bytes, limits);
  const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::string reason;
  std::optional<BinaryPlist> plist = BinaryPlist::open(view, &reason);
  if (!plist) {
    result.error = "damaged binary property list (" + reason + ")";
    return result;
  }
  BinaryConverter converter(*plist, bytes.size(), limits);
  Value value;
  if (!converter.convert(plist->topObject(), 0, value)) {
    result.error = converter.error();
    result.offset = converter.offset();
    return result;
  }
  result.value = std::move(value);
  return result;
}

void lineAndColumn(std::span<const uint8_t> bytes, std::size_t offset, std::size_t& line, std::size_t& column) {
  line = 1;
  column = 1;
  for (std::size_t i = 0; i < offset && i < bytes.size(); ++i) {
    uint8_t c = bytes[i];
    if (c == '\n' || (c == '\r' && !(i + 1 < bytes.size() && bytes[i + 1] == '\n'))) {
      ++line;
      column = 1;
    } else if (c != '\r' && (c & 0xC0) != 0x80) {
      ++column;
    }
  }
}

}  // namespace tq::detail
