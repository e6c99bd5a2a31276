// The keyed-object graph shared by the three interface archive containers.
#include "keyed_archive.h"

#include <array>
#include <cstring>

namespace tq::archive {

// Eight bytes at a time, multiplied and folded: names are short, and the table only needs the
// hashes of one archive's names to differ. The last bytes are read as one word that may overlap
// the words before, so that no copy of a variable length is made.
namespace {

// The hash, inlined where names are interned and looked up (hashName gives it to other units).
[[gnu::always_inline]] inline uint64_t hashOf(std::string_view name) {
  constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
  const auto* p = reinterpret_cast<const unsigned char*>(name.data());
  const std::size_t n = name.size();
  auto load64 = [](const unsigned char* at) {
    uint64_t word;
    std::memcpy(&word, at, 8);
    return word;
  };
  auto load32 = [](const unsigned char* at) {
    uint32_t word;
    std::memcpy(&word, at, 4);
    return uint64_t{word};
  };
  uint64_t h = n * kMultiplier;
  if (n >= 8) {
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      h = (h ^ load64(p + i)) * kMultiplier;
      h ^= h >> 29;
    }
    if (i < n) h = (h ^ load64(p + n - 8)) * kMultiplier;
  } else if (n >= 4) {
    h = (h ^ (load32(p) | load32(p + n - 4) << 32)) * kMultiplier;
  } else if (n > 0) {
    h = (h ^ (uint64_t{p[0]} | uint64_t{p[n / 2]} << 8 | uint64_t{p[n - 1]} << 16)) * kMultiplier;
  }
  return h ^ (h >> 32);
}

}  // namespace

uint64_t KeyedArchive::hashName(std::string_view name) { return hashOf(name); }

[[gnu::always_inline]] inline uint32_t KeyedArchive::lookup(std::string_view name, uint64_t hash) const {
  if (slots_.empty()) return kNoName;
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    const uint32_t entry = slots_[slot];
    if (entry == 0) return kNoName;
    const Name& n = names_[entry - 1];
    if (n.hash == hash && n.length == name.size() &&
        std::memcmp(n.at ? n.at : namePool_.data() + n.offset, name.data(), n.length) == 0) {
      return entry - 1;
    }
  }
}

void KeyedArchive::growSlots(std::size_t names) {
  std::size_t size = 16;
  while (size < 2 * names) size *= 2;
  if (size <= slots_.size()) return;
  slots_.assign(size, 0);
  const std::size_t mask = size - 1;
  for (uint32_t i = 0; i < names_.size(); ++i) {
    std::size_t slot = names_[i].hash & mask;
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = i + 1;
  }
}

// One walk of the table finds the name or the empty slot it goes into (the table grows first, so
// that the slot found stays the one to fill).
uint32_t KeyedArchive::intern(std::string_view name, bool inPlace) {
  const uint64_t hash = hashOf(name);
  if (2 * (names_.size() + 1) > slots_.size()) growSlots(names_.size() + 1);
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = hash & mask;
  for (;; slot = (slot + 1) & mask) {
    const uint32_t entry = slots_[slot];
    if (entry == 0) break;
    const Name& n = names_[entry - 1];
    if (n.hash == hash && n.length == name.size() &&
        std::memcmp(n.at ? n.at : namePool_.data() + n.offset, name.data(), n.length) == 0) {
      return entry - 1;
    }
  }
  const auto index = static_cast<uint32_t>(names_.size());
  if (inPlace) {
    names_.push_back({0, static_cast<uint32_t>(name.size()), hash, name.data()});
  } else {
    names_.push_back({static_cast<uint32_t>(namePool_.size()), static_cast<uint32_t>(name.size()), hash, nullptr});
    namePool_.append(name);
  }
  slots_[slot] = index + 1;
  namesBytes_ += 2 * (name.size() + 64);
  return index;
}

uint8_t KeyedArchive::flagsOf(std::string_view name) {
  return (name.find("String") != std::string_view::npos ? kStringClass : 0) |
         (name.find("Number") != std::string_view::npos ? kNumberClass : 0);
}

void KeyedArchive::prepareLookups() {
  nameFlags_.assign(names_.size(), kUnknownFlags);
  const char* strings[] = {"NS.bytes", "NS.string", "NSString", "NSDev"};
  for (int i = 0; i < 4; ++i) stringKeys_[i] = nameIndex(strings[i]);
  const char* numbers[] = {"NS.intval", "NS.dblval", "NS.fltval", "NS.boolval", "NS.int64val"};
  for (int i = 0; i < 5; ++i) numberKeys_[i] = nameIndex(numbers[i]);
}

uint32_t KeyedArchive::nameIndex(std::string_view name) const {
  if (name.empty()) return kNoName;  // the unkeyed name is never looked up as a key
  return lookup(name, hashOf(name));
}

uint32_t KeyedArchive::addObject(uint32_t classNameIndex) {
  ArchiveObject o;
  o.className = classNameIndex;
  o.firstEntry = static_cast<uint32_t>(entries_.size());
  objects_.push_back(o);
  return static_cast<uint32_t>(objects_.size() - 1);
}

void KeyedArchive::beginEntries(uint32_t object) {
  objects_[object].firstEntry = static_cast<uint32_t>(entries_.size());
  objects_[object].entryCount = 0;
}

void KeyedArchive::endEntries(uint32_t object) {
  objects_[object].entryCount = static_cast<uint32_t>(entries_.size() - objects_[object].firstEntry);
}

std::string KeyedArchive::addPropertyListEntries(uint32_t object,
                                                 const std::vector<std::pair<uint32_t, ArchiveValue>>& entries,
                                                 const std::vector<ArchiveValue>* keys,
                                                 const std::vector<ArchiveValue>& members) {
  if (keys && keys->size() != members.size()) {
    return "a dictionary with " + std::to_string(keys->size()) + " keys and " + std::to_string(members.size()) +
           " values";
  }
  beginEntries(object);
  for (const auto& [k, v] : entries) addEntry(k, v);
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (keys) addEntry(0, (*keys)[i]);
    addEntry(0, members[i]);
  }
  endEntries(object);
  return "";
}

ArchiveValue KeyedArchive::addText(std::string_view text, ArchiveValue::Kind kind) {
  ArchiveValue v;
  v.kind = kind;
  v.index = static_cast<uint32_t>(pool_.size());
  v.length = static_cast<uint32_t>(text.size());
  pool_.append(text);
  return v;
}

ArchiveValue KeyedArchive::addBase64(std::string_view text, ArchiveValue::Kind kind) {
  ArchiveValue v;
  v.kind = kind;
  v.index = static_cast<uint32_t>(pool_.size());
  decodeBase64Into(text, pool_);
  v.length = static_cast<uint32_t>(pool_.size() - v.index);
  return v;
}

void KeyedArchive::reserve(std::size_t objects, std::size_t entries, std::size_t names, std::size_t text) {
  objects_.reserve(objects);
  entries_.reserve(entries);
  names_.reserve(names);
  namePool_.reserve(names * 24);
  growSlots(names);
  pool_.reserve(text);
}

std::vector<ArchiveValue> KeyedArchive::members(uint32_t object) const {
  std::vector<ArchiveValue> out;
  out.reserve(objects_[object].entryCount);
  for (const ArchiveEntry* e = begin(object), *last = end(object); e != last; ++e) {
    if (e->key == 0) out.push_back(e->value);
  }
  return out;
}

bool KeyedArchive::stringOf(const ArchiveValue& value, std::string& out) const {
  std::string_view text;
  if (!textOf(value, text)) return false;
  out.assign(text);
  return true;
}

bool KeyedArchive::textOfObject(const ArchiveValue& value, std::string_view& out) const {
  ArchiveValue v = value;
  // An attributed string holds its text under NSString; a localizable one under NS.string.
  for (int hop = 0; hop < 4; ++hop) {
    if (v.kind == ArchiveValue::Kind::String || v.kind == ArchiveValue::Kind::Data) {
      out = text(v);
      return true;
    }
    if (!v.isObject()) return false;
    const uint32_t o = v.index;
    if (!isStringClass(o)) return false;
    ArchiveValue next = find(o, stringKeys_[0]);
    if (next.kind == ArchiveValue::Kind::Nil) next = find(o, stringKeys_[1]);
    if (next.kind == ArchiveValue::Kind::Nil) next = find(o, stringKeys_[2]);
    if (next.kind == ArchiveValue::Kind::Nil) next = find(o, stringKeys_[3]);
    if (next.kind == ArchiveValue::Kind::Nil) {
      // An empty string object, an attributed string without text, a localizable string whose
      // development text is empty.
      out = {};
      using namespace std::literals;
      const std::string_view cls = className(o);
      return cls == "NSString"sv || cls == "NSMutableString"sv || cls == "NSLocalizableString"sv;
    }
    v = next;
  }
  return false;
}

bool KeyedArchive::localizableKeyOf(const ArchiveValue& v, std::string& out) const {
  using namespace std::literals;
  if (!v.isObject() || className(v.index) != "NSLocalizableString"sv) return false;
  const ArchiveValue key = find(v.index, "NSKey");
  return !key.isObject() || className(key.index) != "NSLocalizableString"sv ? stringOf(key, out) && !out.empty() : false;
}

bool KeyedArchive::numberOfObject(uint32_t object, double& out) const {
  if (!isNumberClass(object)) return false;
  for (uint32_t key : numberKeys_) {
    ArchiveValue n = find(object, key);
    if (n.isNumber()) {
      out = n.number();
      return true;
    }
  }
  return false;
}

std::size_t KeyedArchive::memoryUsed() const {
  return objects_.capacity() * sizeof(ArchiveObject) + entries_.capacity() * sizeof(ArchiveEntry) + pool_.capacity() +
         namesBytes_;
}

void decodeBase64Into(std::string_view text, std::string& into) {
  // The value of each base64 character; -1 for everything else, which is skipped ('=' included).
  static constexpr auto kValues = [] {
    std::array<int8_t, 256> values{};
    values.fill(-1);
    for (int i = 0; i < 26; ++i) values['A' + i] = static_cast<int8_t>(i), values['a' + i] = static_cast<int8_t>(26 + i);
    for (int i = 0; i < 10; ++i) values['0' + i] = static_cast<int8_t>(52 + i);
    values['+'] = 62;
    values['/'] = 63;
    return values;
  }();
  // Every 4 characters kept make 3 bytes, so a quarter of the text is room to spare.
  const std::size_t start = into.size();
  into.resize(start + text.size() / 4 * 3 + 3);
  char* const first = into.data() + start;
  char* o = first;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  unsigned buffer = 0;
  int bits = 0;
  while (p < end) {
    // Four characters in a row, on a byte boundary: the common case between line breaks, taken in
    // a loop of its own until a character that is not base64 (a line break, '=') or the end.
    if (bits == 0) {
      while (end - p >= 4) {
        const int a = kValues[p[0]], b = kValues[p[1]], c = kValues[p[2]], d = kValues[p[3]];
        if ((a | b | c | d) < 0) break;
        const unsigned v = static_cast<unsigned>(a) << 18 | static_cast<unsigned>(b) << 12 |
                           static_cast<unsigned>(c) << 6 | static_cast<unsigned>(d);
        o[0] = static_cast<char>(v >> 16);
        o[1] = static_cast<char>(v >> 8);
        o[2] = static_cast<char>(v);
        o += 3;
        p += 4;
      }
      if (p == end) break;
    }
    const int v = kValues[*p++];
    if (v < 0) continue;
    buffer = (buffer << 6) | static_cast<unsigned>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      *o++ = static_cast<char>((buffer >> bits) & 0xFF);
    }
  }
  into.resize(start + static_cast<std::size_t>(o - first));
}

std::string decodeBase64(std::string_view text) {
  std::string out;
  decodeBase64Into(text, out);
  return out;
}

}  // namespace tq::archive
