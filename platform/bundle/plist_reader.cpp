#include "plist_reader.h"

#include <plist/plist.h>

#include <cstdlib>
#include <cstring>

namespace tq::detail {
namespace {

uint64_t readBigEndian(const uint8_t* p, unsigned size) {
  uint64_t value = 0;
  for (unsigned i = 0; i < size; ++i) value = value << 8 | p[i];
  return value;
}

// True unless a UTF-16 string object of the binary list holds a zero unit. Malformed structure is
// left to libplist, which refuses it.
bool binaryStringsAreSafe(std::span<const uint8_t> bytes) {
  const std::size_t n = bytes.size();
  if (n < 8 + 32) return true;
  const uint8_t* trailer = bytes.data() + n - 32;
  unsigned offsetSize = trailer[6];
  uint64_t objects = readBigEndian(trailer + 8, 8);
  uint64_t tableOffset = readBigEndian(trailer + 24, 8);
  if (offsetSize == 0 || offsetSize > 8 || tableOffset >= n || objects > (n - tableOffset) / offsetSize) return true;
  for (uint64_t i = 0; i < objects; ++i) {
    uint64_t offset = readBigEndian(bytes.data() + tableOffset + i * offsetSize, offsetSize);
    if (offset >= n) continue;
    uint8_t marker = bytes[offset];
    if ((marker & 0xF0) != 0x60) continue;
    uint64_t units = marker & 0x0F;
    uint64_t start = offset + 1;
    if (units == 0x0F) {  // the length follows as an integer object
      if (start >= n || (bytes[start] & 0xF0) != 0x10) continue;
      unsigned size = 1u << (bytes[start] & 0x0F);
      if (size > 8 || start + 1 + size > n) continue;
      units = readBigEndian(bytes.data() + start + 1, size);
      start += 1 + size;
    }
    if (start > n || units > (n - start) / 2) units = (n - start) / 2;
    for (uint64_t u = 0; u < units; ++u) {
      if (bytes[start + 2 * u] == 0 && bytes[start + 2 * u + 1] == 0) return false;
    }
  }
  return true;
}

String stringOf(plist_t node) {
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text ? String::fromUTF8(std::string_view(text, length)) : String::empty();
}

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

Value readPropertyList(std::span<const uint8_t> bytes) {
  if (bytes.size() > UINT32_MAX) return {};
  bool binary = bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0;
  if (binary && !binaryStringsAreSafe(bytes)) return {};
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()), &root);
  if (!root) return {};
  Value value = convert(root);
  plist_free(root);
  return value;
}

}  // namespace tq::detail
