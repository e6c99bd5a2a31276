// Bounded binary property list reading: every position is checked before it is read.
#include "tq/platform/bundle/binary_plist.h"

#include <cstring>

#include "tq/platform/base/string.h"

namespace tq {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

uint64_t readBigEndian(const unsigned char* p, unsigned size) {
  uint64_t v = 0;
  for (unsigned i = 0; i < size; ++i) v = (v << 8) | p[i];
  return v;
}

bool fail(std::string* error, std::string message) {
  if (error) *error = std::move(message);
  return false;
}

}  // namespace

std::optional<BinaryPlist> BinaryPlist::open(std::string_view bytes, std::string* error) {
  if (bytes.size() < kHeaderSize + kTrailerSize || std::memcmp(bytes.data(), "bplist0", 7) != 0) {
    fail(error, "not a binary property list (no bplist0 header and trailer)");
    return std::nullopt;
  }
  const auto* trailer = reinterpret_cast<const unsigned char*>(bytes.data() + bytes.size() - kTrailerSize);
  BinaryPlist list;
  list.bytes_ = bytes;
  list.offsetSize_ = trailer[6];
  list.refSize_ = trailer[7];
  list.objectCount_ = readBigEndian(trailer + 8, 8);
  list.topObject_ = readBigEndian(trailer + 16, 8);
  list.tableOffset_ = readBigEndian(trailer + 24, 8);
  const uint64_t tableLimit = bytes.size() - kTrailerSize;
  if (list.offsetSize_ < 1 || list.offsetSize_ > 8 || list.refSize_ < 1 || list.refSize_ > 8) {
    fail(error, "the trailer gives offset size " + std::to_string(list.offsetSize_) + " and reference size " +
                    std::to_string(list.refSize_) + " (1 to 8 allowed)");
    return std::nullopt;
  }
  if (list.objectCount_ == 0 || list.tableOffset_ < kHeaderSize || list.tableOffset_ > tableLimit ||
      list.objectCount_ > (tableLimit - list.tableOffset_) / list.offsetSize_) {
    fail(error, "the offset table (" + std::to_string(list.objectCount_) + " entries at " +
                    std::to_string(list.tableOffset_) + ") does not fit the " + std::to_string(bytes.size()) +
                    " bytes");
    return std::nullopt;
  }
  if (list.topObject_ >= list.objectCount_) {
    fail(error, "the top object " + std::to_string(list.topObject_) + " is not among the " +
                    std::to_string(list.objectCount_) + " objects");
    return std::nullopt;
  }
  return list;
}

bool BinaryPlist::offsetOf(uint64_t ref, uint64_t& out, std::string* error) const {
  if (ref >= objectCount_) {
    return fail(error, "reference " + std::to_string(ref) + " is not among the " + std::to_string(objectCount_) +
                           " objects");
  }
  const auto* entry = reinterpret_cast<const unsigned char*>(bytes_.data() + tableOffset_ + ref * offsetSize_);
  out = readBigEndian(entry, offsetSize_);
  if (out < kHeaderSize || out >= tableOffset_) {
    return fail(error, "object " + std::to_string(ref) + ": offset " + std::to_string(out) +
                           " lies outside the object area");
  }
  return true;
}

bool BinaryPlist::item(uint64_t ref, Item& out, std::string* error) const {
  uint64_t offset = 0;
  if (!offsetOf(ref, offset, error)) return false;
  const auto* base = reinterpret_cast<const unsigned char*>(bytes_.data());
  const uint64_t end = tableOffset_;  // objects lie between the header and the offset table
  auto tooShort = [&](const char* what) {
    return fail(error, "object " + std::to_string(ref) + ": its " + what + " runs past the object area");
  };
  const unsigned char marker = base[offset];
  const unsigned high = marker >> 4, low = marker & 0x0F;
  uint64_t p = offset + 1;
  out = Item{};

  // The length of variable-size objects: the low nibble, or an integer object after the marker.
  auto length = [&](uint64_t& n) {
    if (low != 0x0F) {
      n = low;
      return true;
    }
    if (p >= end) return tooShort("length");
    const unsigned char lm = base[p];
    if ((lm >> 4) != 0x1 || (lm & 0x0F) > 3) {
      return fail(error, "object " + std::to_string(ref) + ": its length is not an integer");
    }
    const unsigned size = 1u << (lm & 0x0F);
    if (end - p - 1 < size) return tooShort("length");
    n = readBigEndian(base + p + 1, size);
    p += 1 + size;
    return true;
  };

  switch (high) {
    case 0x0:
      if (marker == 0x00) {
        out.kind = Kind::Null;
      } else if (marker == 0x08 || marker == 0x09) {
        out.kind = Kind::Bool;
        out.boolean = marker == 0x09;
      } else if (marker == 0x0F) {
        out.kind = Kind::Null;  // fill byte
      } else {
        return fail(error, "object " + std::to_string(ref) + ": unknown marker " + std::to_string(marker));
      }
      return true;
    case 0x1: {
      if (low > 4) return fail(error, "object " + std::to_string(ref) + ": integer of 2^" + std::to_string(low) + " bytes");
      const unsigned size = 1u << low;
      if (end - p < size) return tooShort("integer");
      out.kind = Kind::Integer;
      // 16-byte integers keep their low half; 8-byte ones are signed, smaller ones unsigned.
      out.integer = static_cast<int64_t>(readBigEndian(base + p + (size == 16 ? 8 : 0), size == 16 ? 8 : size));
      return true;
    }
    case 0x2:
    case 0x3: {
      const unsigned size = high == 0x3 ? 8 : (1u << low);
      if (high == 0x2 && low != 2 && low != 3) return fail(error, "object " + std::to_string(ref) + ": real of odd size");
      if (high == 0x3 && low != 3) return fail(error, "object " + std::to_string(ref) + ": date of odd size");
      if (end - p < size) return tooShort("number");
      const uint64_t bits = readBigEndian(base + p, size);
      if (size == 4) {
        float f;
        const auto b32 = static_cast<uint32_t>(bits);
        std::memcpy(&f, &b32, 4);
        out.real = f;
      } else {
        std::memcpy(&out.real, &bits, 8);
      }
      out.kind = high == 0x3 ? Kind::Date : Kind::Real;
      return true;
    }
    case 0x4:
    case 0x5:
    case 0x6: {
      uint64_t n = 0;
      if (!length(n)) return false;
      const uint64_t unit = high == 0x6 ? 2 : 1;
      if (n > (end - p) / unit) return tooShort(high == 0x4 ? "data" : "string");
      out.kind = high == 0x4 ? Kind::Data : high == 0x5 ? Kind::AsciiString : Kind::Utf16String;
      out.offset = p;
      out.count = n;
      return true;
    }
    case 0x8: {
      const unsigned size = low + 1;
      if (size > 8) return fail(error, "object " + std::to_string(ref) + ": UID of " + std::to_string(size) + " bytes");
      if (end - p < size) return tooShort("UID");
      out.kind = Kind::Uid;
      out.integer = static_cast<int64_t>(readBigEndian(base + p, size));
      return true;
    }
    case 0xA:
    case 0xC:
    case 0xD: {
      uint64_t n = 0;
      if (!length(n)) return false;
      const uint64_t refs = high == 0xD ? 2 : 1;
      if (n > (end - p) / refSize_ / refs) {
        return fail(error, "object " + std::to_string(ref) + ": its " + std::to_string(n * refs) +
                               " references run past the object area");
      }
      out.kind = high == 0xA ? Kind::Array : high == 0xC ? Kind::Set : Kind::Dictionary;
      out.offset = p;
      out.count = n;
      return true;
    }
    default:
      return fail(error, "object " + std::to_string(ref) + ": unknown marker " + std::to_string(marker));
  }
}

bool BinaryPlist::reference(const Item& container, uint64_t i, uint64_t& out, std::string* error) const {
  const uint64_t total = container.kind == Kind::Dictionary ? container.count * 2 : container.count;
  if ((container.kind != Kind::Array && container.kind != Kind::Set && container.kind != Kind::Dictionary) ||
      i >= total) {
    return fail(error, "reference " + std::to_string(i) + " asked of an object that has " +
                           (total ? std::to_string(total) : std::string("none")));
  }
  out = readBigEndian(reinterpret_cast<const unsigned char*>(bytes_.data()) + container.offset + i * refSize_, refSize_);
  if (out >= objectCount_) {
    return fail(error, "reference " + std::to_string(out) + " is not among the " + std::to_string(objectCount_) +
                           " objects");
  }
  return true;
}

std::string BinaryPlist::text(const Item& string) const {
  if (string.kind == Kind::AsciiString) return std::string(bytes_.substr(string.offset, string.count));
  if (string.kind != Kind::Utf16String) return {};
  std::u16string units(string.count, u'\0');
  const auto* p = reinterpret_cast<const unsigned char*>(bytes_.data()) + string.offset;
  for (uint64_t i = 0; i < string.count; ++i) units[i] = static_cast<char16_t>((p[2 * i] << 8) | p[2 * i + 1]);
  std::string out;
  String::appendUTF8(units, out);
  return out;
}

}  // namespace tq
