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

class Cursor {
 public:
  Cursor(std::string_view bytes, std::size_t pos, const char* table) : bytes_(bytes), pos_(pos), table_(table) {}

  // A number of one byte (the usual case) is read here; longer ones, and every fault, out of line,
  // so that the usual case is inlined where the tables are walked.
  [[gnu::always_inline]] bool varint(uint32_t& out, std::string& reason) {
    if (pos_ < bytes_.size() && (static_cast<unsigned char>(bytes_[pos_]) & 0x80)) {
      out = static_cast<unsigned char>(bytes_[pos_++]) & 0x7F;
      return true;
    }
    return longVarint(out, reason);
  }
  [[gnu::always_inline]] bool take(std::size_t n, std::string_view& out, std::string& reason) {
    if (n > bytes_.size() - pos_) return truncated(reason);
    out = bytes_.substr(pos_, n);
    pos_ += n;
    return true;
  }
  std::size_t position() const { return pos_; }

 private:
  [[gnu::noinline]] bool longVarint(uint32_t& out, std::string& reason) {
    uint64_t v = 0;
    for (int shift = 0; shift < 35; shift += 7) {
      if (pos_ >= bytes_.size()) return truncated(reason);
      const auto byte = static_cast<unsigned char>(bytes_[pos_++]);
      v |= static_cast<uint64_t>(byte & 0x7F) << shift;
      if (byte & 0x80) {
        if (v > UINT32_MAX) break;
        out = static_cast<uint32_t>(v);
        return true;
      }
    }
    reason = std::string("the ") + table_ + " table holds a number too large at offset " + std::to_string(pos_);
    return false;
  }
  [[gnu::noinline, gnu::cold]] bool truncated(std::string& reason) {
    reason = std::string("the ") + table_ + " table runs past the end of the file";
    return false;
  }
  std::string_view bytes_;
  std::size_t pos_;
  const char* table_;
};

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
  out.reserve(objects.count, values.count, std::size_t{keys.count} + classes.count + 1, bytes.size() - values.offset);

  // Keys: the empty-key marker becomes the unkeyed member name (0).
  std::vector<uint32_t> keyIds(keys.count);
  {
    Cursor c(bytes, keys.offset, "keys");
    for (uint32_t i = 0; i < keys.count; ++i) {
      uint32_t length = 0;
      std::string_view name;
      if (!c.varint(length, reason) || !c.take(length, name, reason)) return fail(reason);
      keyIds[i] = name == "UINibEncoderEmptyKey" ? 0 : out.intern(name);
    }
  }
  std::vector<uint32_t> classIds(classes.count);
  {
    Cursor c(bytes, classes.offset, "classes");
    for (uint32_t i = 0; i < classes.count; ++i) {
      uint32_t length = 0, extras = 0;
      std::string_view skipped, name;
      if (!c.varint(length, reason) || !c.varint(extras, reason)) return fail(reason);
      if (extras > 64) return fail("class " + std::to_string(i) + " declares " + std::to_string(extras) + " extra values");
      if (!c.take(std::size_t{extras} * 4, skipped, reason) || !c.take(length, name, reason)) return fail(reason);
      while (!name.empty() && name.back() == '\0') name.remove_suffix(1);
      if (name.empty()) return fail("class " + std::to_string(i) + " has no name");
      classIds[i] = out.intern(name);
    }
  }

  // Objects: class and run of values.
  std::vector<std::pair<uint32_t, uint32_t>> runs(objects.count);
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
      out.addObject(classIds[cls]);
      runs[i] = {first, count};
      // Runs may overlap in a hostile file; what objects hold in all is bounded all the same, since
      // every lookup walks an object's run.
      shared += count;
      if (shared * sizeof(ArchiveEntry) > byteBudget) {
        return fail("the archive's objects share values beyond what its size allows");
      }
    }
  }

  // Values, read once in table order; each object's run is then copied out in order.
  std::vector<ArchiveEntry> table(values.count);
  {
    Cursor c(bytes, values.offset, "values");
    for (uint32_t i = 0; i < values.count; ++i) {
      uint32_t key = 0;
      std::string_view typeByte, payload;
      if (!c.varint(key, reason) || !c.take(1, typeByte, reason)) return fail(reason);
      if (key >= keys.count) return fail("value " + std::to_string(i) + " names key " + std::to_string(key) + " of " + std::to_string(keys.count));
      ArchiveValue v;
      const auto type = static_cast<unsigned char>(typeByte[0]);
      auto fixed = [&](std::size_t n) { return c.take(n, payload, reason); };
      auto pu = [&] { return reinterpret_cast<const unsigned char*>(payload.data()); };
      switch (type) {
        case 0:
          if (!fixed(1)) return fail(reason);
          v = KeyedArchive::integer(static_cast<int8_t>(pu()[0]));
          break;
        case 1:
          if (!fixed(2)) return fail(reason);
          v = KeyedArchive::integer(static_cast<int16_t>(pu()[0] | pu()[1] << 8));
          break;
        case 2:
          if (!fixed(4)) return fail(reason);
          v = KeyedArchive::integer(static_cast<int32_t>(le32(pu())));
          break;
        case 3:
          if (!fixed(8)) return fail(reason);
          v = KeyedArchive::integer(static_cast<int64_t>(le32(pu()) | static_cast<uint64_t>(le32(pu() + 4)) << 32));
          break;
        case 4: v = KeyedArchive::boolean(true); break;
        case 5: v = KeyedArchive::boolean(false); break;
        case 6: {
          if (!fixed(4)) return fail(reason);
          float f;
          const uint32_t bits = le32(pu());
          std::memcpy(&f, &bits, 4);
          v = KeyedArchive::real(f);
          break;
        }
        case 7: {
          if (!fixed(8)) return fail(reason);
          const uint64_t bits = le32(pu()) | static_cast<uint64_t>(le32(pu() + 4)) << 32;
          double d;
          std::memcpy(&d, &bits, 8);
          v = KeyedArchive::real(d);
          break;
        }
        case 8: {
          uint32_t length = 0;
          if (!c.varint(length, reason) || !c.take(length, payload, reason)) return fail(reason);
          v = out.addText(payload, ArchiveValue::Kind::Data);
          break;
        }
        case 9: break;  // nil
        case 10: {
          if (!fixed(4)) return fail(reason);
          const uint32_t ref = le32(pu());
          if (ref >= objects.count) {
            return fail("value " + std::to_string(i) + " refers to object " + std::to_string(ref) + " of " +
                        std::to_string(objects.count));
          }
          v = KeyedArchive::object(ref);
          break;
        }
        default:
          return fail("value " + std::to_string(i) + " has unknown type " + std::to_string(type));
      }
      table[i] = {keyIds[key], v};
    }
  }
  out.adoptEntries(std::move(table), runs);
  if (out.memoryUsed() > byteBudget) return fail("the archive needs more memory than its size allows");
  out.prepareLookups();

  ArchiveValue root = out.find(0, "IB.objectdata");
  if (!root.isObject()) return fail("not an interface archive (its first object has no IB.objectdata)");
  if (!layoutFromObjectData(out, root.index, reason)) return fail(reason);
  return true;
}

}  // namespace tq::archive
