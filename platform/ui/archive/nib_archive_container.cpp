// The NIBArchive form of a compiled interface: a header of eight counts and offsets, then four
// tables (objects, keys, values, class names). Numbers inside the tables are variable-length
// integers of 7-bit groups, least significant first, whose last byte carries the high bit.
//
// An object names its class and a run of the values table; a value names its key and carries a
// typed payload, of which type 10 refers to another object. Collections hold their members as
// values under "UINibEncoderEmptyKey" (dictionaries alternate key and value), which become the
// graph's unkeyed members ("NSInlinedValue", which marks that form, stays an ordinary key). Every
// count, offset, index and run is checked against the bytes before it is used. The values table
// becomes the graph's entries as it stands: each object names its run of it, so runs that overlap
// in a hostile file share entries instead of copying them.
#include <cstring>
#include <string>

#include "keyed_archive.h"
#include "nib_object_data.h"

namespace tq::archive {

namespace {

constexpr std::size_t kHeaderSize = 50;  // "NIBArchive", two versions, four (count, offset) pairs

uint32_t le32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

// A number of more than two bytes (or a fault) read out of line: where the reading stopped, the
// value, and what went wrong if anything did.
struct LongVarint {
  enum Fault : uint8_t { None, Truncated, TooLarge };
  const unsigned char* next;
  uint32_t value;
  Fault fault;
};

[[gnu::noinline]] LongVarint longVarint(const unsigned char* p, const unsigned char* end) {
  uint64_t v = 0;
  for (int shift = 0; shift < 35; shift += 7) {
    if (p >= end) return {p, 0, LongVarint::Truncated};
    const unsigned char byte = *p++;
    v |= static_cast<uint64_t>(byte & 0x7F) << shift;
    if (byte & 0x80) {
      if (v > UINT32_MAX) break;
      return {p, static_cast<uint32_t>(v), LongVarint::None};
    }
  }
  return {p, 0, LongVarint::TooLarge};
}

[[gnu::noinline, gnu::cold]] bool tableFault(const char* table, bool tooLarge, std::size_t offset, std::string& reason) {
  reason = std::string("the ") + table + (tooLarge ? " table holds a number too large at offset " + std::to_string(offset)
                                                   : std::string(" table runs past the end of the file"));
  return false;
}

// A walk of one table through raw pointers, checked against the end of the file. The walk's state
// never leaves it (faults are worked out from copies), so that it stays in registers.
class Cursor {
 public:
  Cursor(std::string_view bytes, std::size_t pos, const char* table)
      : start_(reinterpret_cast<const unsigned char*>(bytes.data())),
        p_(start_ + pos),
        end_(start_ + bytes.size()),
        table_(table) {}

  [[gnu::always_inline]] bool varint(uint32_t& out, std::string& reason) {
    if (p_ < end_ && (*p_ & 0x80)) {
      out = *p_++ & 0x7F;
      return true;
    }
    if (end_ - p_ >= 2 && (p_[1] & 0x80)) {
      out = static_cast<uint32_t>(p_[0]) | static_cast<uint32_t>(p_[1] & 0x7F) << 7;
      p_ += 2;
      return true;
    }
    const LongVarint v = longVarint(p_, end_);
    if (v.fault != LongVarint::None) {
      return tableFault(table_, v.fault == LongVarint::TooLarge, static_cast<std::size_t>(v.next - start_), reason);
    }
    p_ = v.next;
    out = v.value;
    return true;
  }
  // The next n bytes where the file has that many, else nullptr (nothing is taken either way).
  [[gnu::always_inline]] const unsigned char* ahead(std::size_t n) const {
    return n <= static_cast<std::size_t>(end_ - p_) ? p_ : nullptr;
  }
  [[gnu::always_inline]] void skip(std::size_t n) { p_ += n; }
  // The next n bytes, or nullptr (reason set) when the table would run past the file.
  [[gnu::always_inline]] const unsigned char* take(std::size_t n, std::string& reason) {
    if (n > static_cast<std::size_t>(end_ - p_)) return tableFault(table_, false, 0, reason), nullptr;
    const unsigned char* at = p_;
    p_ += n;
    return at;
  }

 private:
  const unsigned char* start_;
  const unsigned char* p_;
  const unsigned char* end_;
  const char* table_;
};

// What is wrong with a value, in words: "value 7 names key 40 of 12" (`of` < 0 for no count).
[[gnu::noinline, gnu::cold]] std::string valueFault(uint32_t value, const char* what, uint32_t named, int64_t of) {
  return "value " + std::to_string(value) + " " + what + " " + std::to_string(named) +
         (of >= 0 ? " of " + std::to_string(of) : std::string());
}

struct Table {
  uint32_t count = 0;
  uint32_t offset = 0;
};

}  // namespace

bool readNIBArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error) {
  auto fail = [&](std::string reason) {
    error.reason = std::move(reason);
    return false;
  };
  if (bytes.size() < kHeaderSize || std::memcmp(bytes.data(), "NIBArchive", 10) != 0) {
    return fail("not a NIBArchive (header missing or short)");
  }
  // Offsets into the file are kept in 32 bits, as the file's own are.
  if (bytes.size() > UINT32_MAX) return fail("the file is over 4 GB");
  const auto* h = reinterpret_cast<const unsigned char*>(bytes.data()) + 10;
  Table objects{le32(h + 8), le32(h + 12)}, keys{le32(h + 16), le32(h + 20)}, values{le32(h + 24), le32(h + 28)},
      classes{le32(h + 32), le32(h + 36)};
  // Each table entry takes at least `minimum` bytes, so a count larger than the bytes allow is a lie.
  auto check = [&](const Table& t, const char* name, std::size_t minimum) {
    if (t.offset < kHeaderSize || t.offset > bytes.size() || t.count > (bytes.size() - t.offset) / minimum) {
      return fail(std::string("the ") + name + " table (" + std::to_string(t.count) + " entries at offset " +
                  std::to_string(t.offset) + ") does not fit the " + std::to_string(bytes.size()) + " bytes");
    }
    return true;
  };
  if (!check(objects, "objects", 3) || !check(keys, "keys", 1) || !check(values, "values", 2) ||
      !check(classes, "classes", 2)) {
    return false;
  }
  if (objects.count == 0) return fail("the archive holds no objects");
  std::string reason;
  // Names and byte values stay in the file: the graph is read while the caller holds the bytes.
  out.reserve(objects.count, 0, 0, 0);
  out.reserveNamesInPlace(std::size_t{keys.count} + classes.count + 1);
  out.keepTextsIn(bytes);

  // Keys: the empty-key marker becomes the unkeyed member name (0).
  std::vector<uint32_t> keyIds(keys.count);
  {
    Cursor c(bytes, keys.offset, "keys");
    for (uint32_t i = 0; i < keys.count; ++i) {
      uint32_t length = 0;
      const unsigned char* at = nullptr;
      if (!c.varint(length, reason) || !(at = c.take(length, reason))) return fail(reason);
      const std::string_view name(reinterpret_cast<const char*>(at), length);
      keyIds[i] = name == "UINibEncoderEmptyKey" ? 0 : out.internInPlace(name);
    }
  }
  std::vector<uint32_t> classIds(classes.count);
  {
    Cursor c(bytes, classes.offset, "classes");
    for (uint32_t i = 0; i < classes.count; ++i) {
      uint32_t length = 0, extras = 0;
      const unsigned char* at = nullptr;
      if (!c.varint(length, reason) || !c.varint(extras, reason)) return fail(reason);
      if (extras > 64) return fail("class " + std::to_string(i) + " declares " + std::to_string(extras) + " extra values");
      if (!c.take(std::size_t{extras} * 4, reason) || !(at = c.take(length, reason))) return fail(reason);
      std::string_view name(reinterpret_cast<const char*>(at), length);
      while (!name.empty() && name.back() == '\0') name.remove_suffix(1);
      if (name.empty()) return fail("class " + std::to_string(i) + " has no name");
      classIds[i] = out.internInPlace(name);
    }
  }

  // Objects: class and run of values.
  std::size_t shared = 0;
  {
    Cursor c(bytes, objects.offset, "objects");
    for (uint32_t i = 0; i < objects.count; ++i) {
      uint32_t cls = 0, first = 0, count = 0;
      if (!c.varint(cls, reason) || !c.varint(first, reason) || !c.varint(count, reason)) return fail(reason);
      if (cls >= classes.count) return fail("object " + std::to_string(i) + " names class " + std::to_string(cls) + " of " + std::to_string(classes.count));
      if (first > values.count || count > values.count - first) {
        return fail("object " + std::to_string(i) + " claims values " + std::to_string(first) + " to " +
                    std::to_string(uint64_t{first} + count) + " of " + std::to_string(values.count));
      }
      out.addObject(classIds[cls], first, count);
      // Runs may overlap in a hostile file; what objects hold in all is bounded all the same, since
      // every lookup walks an object's run.
      shared += count;
      if (shared * sizeof(ArchiveEntry) > byteBudget) {
        return fail("the archive's objects share values beyond what its size allows");
      }
    }
  }

  // Values, read once in table order into the entry table the objects' runs index.
  std::vector<ArchiveEntry>& table = out.mutableEntries();
  table.assign(values.count, ArchiveEntry{});
  {
    Cursor c(bytes, values.offset, "values");
    // Payload sizes of the fixed-size types (0 to 10); 8 (bytes) has a length of its own.
    static constexpr uint8_t kFixed[] = {1, 2, 4, 8, 0, 0, 4, 8, 0, 0, 4};
    constexpr std::size_t kLongest = 1 + 8;  // the type byte and the longest fixed payload
    ArchiveEntry* entry = table.data();
    for (uint32_t i = 0; i < values.count; ++i, ++entry) {
      uint32_t key = 0;
      if (!c.varint(key, reason)) return fail(reason);
      // The type byte and its payload are checked against the file at once where the file holds the
      // longest of them; only near its end is each taken with a check of its own.
      const unsigned char* typeByte = c.ahead(kLongest);
      const bool roomy = typeByte != nullptr;
      if (!roomy && !(typeByte = c.take(1, reason))) return fail(reason);
      const unsigned type = *typeByte;
      if (key >= keys.count) [[unlikely]] return fail(valueFault(i, "names key", key, keys.count));
      if (type > 10) [[unlikely]] return fail(valueFault(i, "has unknown type", type, -1));
      const unsigned char* pu = typeByte + 1;
      if (roomy) {
        c.skip(1 + kFixed[type]);
      } else if (kFixed[type] != 0 && !(pu = c.take(kFixed[type], reason))) {
        return fail(reason);
      }
      entry->key = keyIds[key];
      ArchiveValue& v = entry->value;
      switch (type) {
        case 0: v = KeyedArchive::integer(static_cast<int8_t>(pu[0])); break;
        case 1: v = KeyedArchive::integer(static_cast<int16_t>(pu[0] | pu[1] << 8)); break;
        case 2: v = KeyedArchive::integer(static_cast<int32_t>(le32(pu))); break;
        case 3: v = KeyedArchive::integer(static_cast<int64_t>(le32(pu) | static_cast<uint64_t>(le32(pu + 4)) << 32)); break;
        case 4: v = KeyedArchive::boolean(true); break;
        case 5: v = KeyedArchive::boolean(false); break;
        case 6: {
          float f;
          const uint32_t bits = le32(pu);
          std::memcpy(&f, &bits, 4);
          v = KeyedArchive::real(f);
          break;
        }
        case 7: {
          const uint64_t bits = le32(pu) | static_cast<uint64_t>(le32(pu + 4)) << 32;
          double d;
          std::memcpy(&d, &bits, 8);
          v = KeyedArchive::real(d);
          break;
        }
        case 8: {
          uint32_t length = 0;
          const unsigned char* at = nullptr;
          if (!c.varint(length, reason) || !(at = c.take(length, reason))) return fail(reason);
          v = out.addTextAt(static_cast<uint32_t>(at - reinterpret_cast<const unsigned char*>(bytes.data())), length,
                            ArchiveValue::Kind::Data);
          break;
        }
        case 9: break;  // nil: the entry's value as made
        case 10: {
          const uint32_t ref = le32(pu);
          if (ref >= objects.count) [[unlikely]] return fail(valueFault(i, "refers to object", ref, objects.count));
          v = KeyedArchive::object(ref);
          break;
        }
      }
    }
  }
  if (out.memoryUsed() > byteBudget) return fail("the archive needs more memory than its size allows");
  out.prepareLookups();

  ArchiveValue root = out.find(0, "IB.objectdata");
  if (!root.isObject()) return fail("not an interface archive (its first object has no IB.objectdata)");
  if (!layoutFromObjectData(out, root.index, reason)) return fail(reason);
  return true;
}

}  // namespace tq::archive
