// The keyed-object graph shared by the three interface archive containers.
#include "keyed_archive.h"

namespace tq::archive {

uint32_t KeyedArchive::intern(std::string_view name) {
  auto it = nameIndex_.find(std::string(name));
  if (it != nameIndex_.end()) return it->second;
  const auto index = static_cast<uint32_t>(names_.size());
  names_.emplace_back(name);
  nameIndex_.emplace(names_.back(), index);
  namesBytes_ += 2 * (name.size() + 64);
  return index;
}

uint32_t KeyedArchive::addObject(std::string_view className) {
  ArchiveObject o;
  o.className = intern(className);
  o.firstEntry = static_cast<uint32_t>(entries_.size());
  objects_.push_back(o);
  return static_cast<uint32_t>(objects_.size() - 1);
}

void KeyedArchive::beginEntries(uint32_t object) {
  objects_[object].firstEntry = static_cast<uint32_t>(entries_.size());
  objects_[object].entryCount = 0;
}

void KeyedArchive::addEntry(uint32_t key, const ArchiveValue& value) { entries_.push_back({key, value}); }

void KeyedArchive::endEntries(uint32_t object) {
  objects_[object].entryCount = static_cast<uint32_t>(entries_.size() - objects_[object].firstEntry);
}

ArchiveValue KeyedArchive::addText(std::string_view text, ArchiveValue::Kind kind) {
  ArchiveValue v;
  v.kind = kind;
  v.index = static_cast<uint32_t>(pool_.size());
  v.length = static_cast<uint32_t>(text.size());
  pool_.append(text);
  return v;
}

void KeyedArchive::reserve(std::size_t objects, std::size_t entries) {
  objects_.reserve(objects);
  entries_.reserve(entries);
}

ArchiveValue KeyedArchive::find(uint32_t object, std::string_view key) const {
  for (const ArchiveEntry* e = begin(object); e != end(object); ++e) {
    if (e->key != 0 && names_[e->key] == key) return e->value;
  }
  return {};
}

bool KeyedArchive::has(uint32_t object, std::string_view key) const {
  for (const ArchiveEntry* e = begin(object); e != end(object); ++e) {
    if (e->key != 0 && names_[e->key] == key) return true;
  }
  return false;
}

std::vector<ArchiveValue> KeyedArchive::members(uint32_t object) const {
  std::vector<ArchiveValue> out;
  for (const ArchiveEntry* e = begin(object); e != end(object); ++e) {
    if (e->key == 0) out.push_back(e->value);
  }
  return out;
}

bool KeyedArchive::stringOf(const ArchiveValue& value, std::string& out) const {
  ArchiveValue v = value;
  // An attributed string holds its text under NSString; a localizable one under NS.string.
  for (int hop = 0; hop < 4; ++hop) {
    if (v.kind == ArchiveValue::Kind::String || v.kind == ArchiveValue::Kind::Data) {
      out.assign(text(v));
      return true;
    }
    if (!v.isObject()) return false;
    const uint32_t o = v.index;
    const std::string& cls = className(o);
    if (cls.find("String") == std::string::npos) return false;
    ArchiveValue next = find(o, "NS.bytes");
    if (next.kind == ArchiveValue::Kind::Nil) next = find(o, "NS.string");
    if (next.kind == ArchiveValue::Kind::Nil) next = find(o, "NSString");
    if (next.kind == ArchiveValue::Kind::Nil) {
      // An empty string object, or an attributed string without text.
      out.clear();
      return cls == "NSString" || cls == "NSMutableString";
    }
    v = next;
  }
  return false;
}

bool KeyedArchive::numberOf(const ArchiveValue& v, double& out) const {
  if (v.isNumber()) {
    out = v.number();
    return true;
  }
  if (!v.isObject() || className(v.index).find("Number") == std::string::npos) return false;
  for (const char* key : {"NS.intval", "NS.dblval", "NS.fltval", "NS.boolval", "NS.int64val"}) {
    ArchiveValue n = find(v.index, key);
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

}  // namespace tq::archive
