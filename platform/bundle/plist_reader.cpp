#include "plist_reader.h"

#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "xml_plist_parser.h"

namespace tq::detail {
namespace {

uint64_t readBigEndian(const uint8_t* p, unsigned size) {
  uint64_t value = 0;
  for (unsigned i = 0; i < size; ++i) value = value << 8 | p[i];
  return value;
}

// Walks a binary list from its top object the way libplist's reader will, without allocating per
// object: every reference is followed (libplist copies a shared object once per reference), so the
// count, depth and copied bytes are those libplist would reach. Returns the reason to refuse the
// list, or an empty string.
class BinaryCheck {
 public:
  BinaryCheck(std::span<const uint8_t> bytes, const PropertyListLimits& limits) : b_(bytes), limits_(limits) {}

  std::string run(std::size_t& offset) {
    const std::size_t n = b_.size();
    if (n < 8 + 32) return "damaged binary property list (too short)";
    const uint8_t* trailer = b_.data() + n - 32;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    objects_ = readBigEndian(trailer + 8, 8);
    uint64_t top = readBigEndian(trailer + 16, 8);
    tableOffset_ = readBigEndian(trailer + 24, 8);
    if (offsetSize_ == 0 || offsetSize_ > 8 || refSize_ == 0 || refSize_ > 8 || objects_ == 0 || top >= objects_ ||
        tableOffset_ < 8 || tableOffset_ > n - 32 || objects_ > (n - 32 - tableOffset_) / offsetSize_) {
      return "damaged binary property list (bad trailer)";
    }
    // The copies libplist makes: one node per reference plus the bytes of strings and data.
    const uint64_t maxVisits = std::min<uint64_t>(limits_.maxValues, n);
    const uint64_t maxPayload = 8 * static_cast<uint64_t>(n) + (uint64_t{1} << 20);

    struct Frame {
      uint64_t refs;       // offset of the next reference
      uint64_t remaining;  // references still to follow
    };
    std::vector<Frame> stack;
    uint64_t visits = 0, payload = 0;
    uint64_t next = top;
    while (true) {
      if (++visits > maxVisits) {
        return visits > limits_.maxValues ? "more than " + std::to_string(limits_.maxValues) + " values"
                                          : "shared objects would expand beyond the size of the list";
      }
      uint64_t at = readBigEndian(b_.data() + tableOffset_ + next * offsetSize_, offsetSize_);
      offset = at;
      if (at < 8 || at >= tableOffset_) return "damaged binary property list (object outside the list)";
      uint8_t marker = b_[at];
      unsigned kind = marker >> 4;
      uint64_t count = marker & 0x0F;
      uint64_t start = at + 1;
      bool counted = kind == 0x4 || kind == 0x5 || kind == 0x6 || kind == 0xA || kind == 0xC || kind == 0xD;
      if (counted && count == 0x0F) {
        if (start >= tableOffset_ || (b_[start] & 0xF0) != 0x10) return "damaged binary property list (bad count)";
        unsigned size = 1u << (b_[start] & 0x0F);
        if (size > 8 || start + 1 + size > tableOffset_) return "damaged binary property list (bad count)";
        count = readBigEndian(b_.data() + start + 1, size);
        start += 1 + size;
      }
      const uint64_t room = tableOffset_ - start;
      if (kind == 0x4 || kind == 0x5 || kind == 0x6) {
        uint64_t unitSize = kind == 0x6 ? 2 : 1;
        if (count > room / unitSize) return "damaged binary property list (string or data past the end)";
        if (kind == 0x6) {
          for (uint64_t u = 0; u < count; ++u) {
            if (b_[start + 2 * u] == 0 && b_[start + 2 * u + 1] == 0) return "a string holds a NUL character";
          }
        }
        payload += count * (kind == 0x6 ? 3 : 1) / unitSize;
        if (payload > maxPayload) return "shared objects would expand beyond the size of the list";
      } else if (kind == 0xA || kind == 0xC || kind == 0xD) {
        uint64_t refs = kind == 0xD ? 2 * count : count;
        if (count > room / refSize_ / (kind == 0xD ? 2 : 1)) {
          return "damaged binary property list (container past the end)";
        }
        if (stack.size() >= limits_.maxDepth) {
          return "nested deeper than " + std::to_string(limits_.maxDepth) + " levels";
        }
        if (refs > 0) stack.push_back({start, refs});
      }
      // The next reference to follow, leaving finished containers.
      while (!stack.empty() && stack.back().remaining == 0) stack.pop_back();
      if (stack.empty()) break;
      Frame& f = stack.back();
      next = readBigEndian(b_.data() + f.refs, refSize_);
      f.refs += refSize_;
      --f.remaining;
      if (next >= objects_) return "damaged binary property list (reference past the object table)";
    }
    offset = 0;
    return {};
  }

 private:
  std::span<const uint8_t> b_;
  const PropertyListLimits& limits_;
  unsigned offsetSize_ = 0, refSize_ = 0;
  uint64_t objects_ = 0, tableOffset_ = 0;
};

String stringOf(plist_t node) {
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text ? String::fromUTF8(std::string_view(text, length)) : String::empty();
}

// Recursion is bounded: the check above proved the depth.
Value convert(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<unsigned long long>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING:
      return Value(stringOf(node));
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* bytes = plist_get_data_ptr(node, &length);
      return Value(Data::withBytes(bytes, bytes ? length : 0));
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date{sec + usec / 1e6});
    }
    case PLIST_ARRAY: {
      std::vector<Value> items;
      uint32_t count = plist_array_get_size(node);
      items.reserve(count);
      for (uint32_t i = 0; i < count; ++i) items.push_back(convert(plist_array_get_item(node, i)));
      return Value(Array(std::move(items)));
    }
    case PLIST_DICT: {
      std::vector<Dictionary::Entry> entries;
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      while (it) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, it, &key, &value);
        if (!key) break;
        entries.emplace_back(String::fromUTF8(key), value ? convert(value) : Value());
        std::free(key);
      }
      std::free(it);
      return Value(Dictionary(std::move(entries)));
    }
    default:
      return Value();
  }
}

}  // namespace

PropertyListResult readPropertyList(std::span<const uint8_t> bytes, const PropertyListLimits& limits) {
  PropertyListResult result;
  if (bytes.size() > limits.maxBytes || bytes.size() > UINT32_MAX) {
    result.error = "larger than " + std::to_string(limits.maxBytes >> 20) + " MiB";
    return result;
  }
  bool binary = bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0;
  if (!binary) return parseXMLPropertyList(bytes, limits);
  result.error = BinaryCheck(bytes, limits).run(result.offset);
  if (!result.ok()) return result;
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()), &root);
  if (!root) {
    result.error = "damaged binary property list";
    return result;
  }
  result.value = convert(root);
  plist_free(root);
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
