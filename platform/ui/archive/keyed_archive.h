// Internal: the keyed-object graph that every compiled or archived interface form is read into.
//
// The compiled keyed archive (a binary property list), the NIBArchive form and the older XML
// archive all store the same thing: objects of named classes, each a list of keyed values, whose
// values are scalars, strings, bytes or references to other objects. The three container readers
// turn their bytes into one KeyedArchive; one decoder (keyed_object_decoder.cpp) turns that into
// the interface model. The containers normalise their differences:
//   - collections (arrays, sets) hold their members as unkeyed entries, in order; dictionaries
//     hold unkeyed entries alternating key, value;
//   - a string may be a String value or a reference to a string object (NSString with NS.bytes,
//     NSMutableString with NS.string); the decoder reads both;
//   - every reference names an object of the archive (checked by the container).
// Memory: the graph is a few flat vectors; each entry costs 24 bytes and each object 12, so the
// graph stays within a small multiple of the file's own size.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace pugi {
class xml_node;
}

namespace tq::archive {

struct ArchiveValue {
  enum class Kind : uint8_t { Nil, Bool, Integer, Real, String, Data, Object };
  Kind kind = Kind::Nil;
  uint32_t index = 0;  // String, Data: offset in the text pool; Object: object index
  union {
    int64_t integer = 0;  // Bool (0/1), Integer
    double real;          // Real
    uint32_t length;      // String, Data: byte length
  };

  bool isObject() const { return kind == Kind::Object; }
  bool isNumber() const { return kind == Kind::Bool || kind == Kind::Integer || kind == Kind::Real; }
  double number() const { return kind == Kind::Real ? real : static_cast<double>(integer); }
};

struct ArchiveEntry {
  uint32_t key = 0;  // index into names; 0 is the unkeyed (member) name ""
  ArchiveValue value;
};

struct ArchiveObject {
  uint32_t className = 0;  // index into names
  uint32_t firstEntry = 0;
  uint32_t entryCount = 0;
};

// Where the interface's parts are, as the container found them.
struct ArchiveLayout {
  // The File's Owner placeholder object, or -1.
  int64_t owner = -1;
  // Objects that stand for First Responder and Application (left out of the top level).
  std::vector<uint32_t> placeholders;
  // Candidate top-level objects in archive order (placeholders and the owner are filtered out by
  // the decoder).
  std::vector<uint32_t> topLevel;
  // Connector objects (outlets, actions, bindings, help) in archive order.
  std::vector<uint32_t> connectors;
  // Designer object identifiers where the archive gives them (25, -3), indexed by object;
  // kNoIdentifier where it gives none.
  static constexpr int64_t kNoIdentifier = INT64_MIN;
  std::vector<int64_t> identifiers;
  void setIdentifier(uint32_t object, int64_t id, std::size_t objectCount) {
    if (identifiers.size() < objectCount) identifiers.resize(objectCount, kNoIdentifier);
    if (object < identifiers.size()) identifiers[object] = id;
  }
  // The windows shown at load, when the archive lists them (else every window is).
  bool visibleWindowsKnown = false;
  std::vector<uint32_t> visibleWindows;
  // Custom class names given beside the objects rather than in them (older XML archives).
  std::unordered_map<uint32_t, std::string> customClasses;
  // The superclass of each class the archive describes, by name (a keyed archive's $classes
  // chains, the older XML archive's class descriptions), for classes the reader does not know;
  // at most kMaxDescribedClasses of them.
  static constexpr std::size_t kMaxDescribedClasses = 4096;
  std::unordered_map<std::string, std::string> superclasses;
};

class KeyedArchive {
 public:
  KeyedArchive() { intern(""); }

  // --- building (containers) ---
  uint32_t intern(std::string_view name) { return intern(name, false); }
  // The same for a name whose bytes outlive the graph (a run of the file being read): kept where it
  // is, not copied.
  uint32_t internInPlace(std::string_view name) { return intern(name, true); }
  // Room for `names` names kept in place.
  void reserveNamesInPlace(std::size_t names) {
    names_.reserve(names);
    growSlots(names);
  }
  uint32_t addObject(std::string_view className) { return addObject(intern(className)); }
  uint32_t addObject(uint32_t classNameIndex);
  // An object whose entries are the run (first, count) of the entry table, which the container
  // fills in place (mutableEntries) and has checked the run to lie within. Runs may overlap.
  void addObject(uint32_t classNameIndex, uint32_t first, uint32_t count) { objects_.push_back({classNameIndex, first, count}); }
  // Entries of one object must be added together, right after beginEntries(object).
  void beginEntries(uint32_t object);
  void addEntry(uint32_t key, const ArchiveValue& value) { entries_.push_back({key, value}); }
  void endEntries(uint32_t object);
  // One object's entries as a keyed archive in a property list holds them: its keyed `entries`, then
  // a dictionary's keys and values alternating (`keys`, from NS.keys, beside `members`, from
  // NS.objects) or a collection's `members` unkeyed. Empty when added; else what is wrong.
  std::string addPropertyListEntries(uint32_t object, const std::vector<std::pair<uint32_t, ArchiveValue>>& entries,
                                     const std::vector<ArchiveValue>* keys, const std::vector<ArchiveValue>& members);
  ArchiveValue addText(std::string_view text, ArchiveValue::Kind kind = ArchiveValue::Kind::String);
  // Texts kept where they already are: every text of the graph is then `bytes.substr(offset, length)`
  // (addTextAt), and `bytes` must outlive the graph. For a container whose texts are runs of its file.
  void keepTextsIn(std::string_view bytes) { texts_ = bytes; }
  ArchiveValue addTextAt(uint32_t offset, uint32_t length, ArchiveValue::Kind kind) {
    ArchiveValue v;
    v.kind = kind;
    v.index = offset;
    v.length = length;
    return v;
  }
  // The bytes of base64 text (decoded as decodeBase64 does), added to the pool without a copy between.
  ArchiveValue addBase64(std::string_view text, ArchiveValue::Kind kind = ArchiveValue::Kind::String);
  static ArchiveValue integer(int64_t v) { ArchiveValue a; a.kind = ArchiveValue::Kind::Integer; a.integer = v; return a; }
  static ArchiveValue boolean(bool v) { ArchiveValue a; a.kind = ArchiveValue::Kind::Bool; a.integer = v; return a; }
  static ArchiveValue real(double v) { ArchiveValue a; a.kind = ArchiveValue::Kind::Real; a.real = v; return a; }
  static ArchiveValue object(uint32_t i) { ArchiveValue a; a.kind = ArchiveValue::Kind::Object; a.index = i; return a; }
  // Entry storage for containers that fill entries in place (references resolved later).
  std::vector<ArchiveEntry>& mutableEntries() { return entries_; }
  ArchiveLayout& layout() { return layout_; }
  void reserve(std::size_t objects, std::size_t entries, std::size_t names = 0, std::size_t text = 0);

  // Called by a container once every name is interned, before anything is read.
  void prepareLookups();

  // --- reading (decoder) ---
  std::size_t objectCount() const { return objects_.size(); }
  // Views of the names stay valid until the next name is interned.
  std::string_view className(uint32_t object) const { return name(objects_[object].className); }
  uint32_t classNameIndex(uint32_t object) const { return objects_[object].className; }
  std::string_view name(uint32_t index) const {
    const Name& n = names_[index];
    return std::string_view(n.at ? n.at : namePool_.data() + n.offset, n.length);
  }
  std::size_t nameCount() const { return names_.size(); }
  const ArchiveEntry* begin(uint32_t object) const { return entries_.data() + objects_[object].firstEntry; }
  const ArchiveEntry* end(uint32_t object) const { return begin(object) + objects_[object].entryCount; }
  // The hash the graph files a name under: a multiplication or two per eight bytes.
  static uint64_t hashName(std::string_view name);
  // The index of a name, or kNoName when the archive never uses it (lookups intern nothing).
  static constexpr uint32_t kNoName = UINT32_MAX;
  uint32_t nameIndex(std::string_view name) const;
  // The first value under key (Nil when absent).
  ArchiveValue find(uint32_t object, std::string_view key) const { return find(object, nameIndex(key)); }
  ArchiveValue find(uint32_t object, uint32_t key) const {
    if (key == kNoName) return {};
    for (const ArchiveEntry* e = begin(object), *last = end(object); e != last; ++e) {
      if (e->key == key) return e->value;
    }
    return {};
  }
  bool has(uint32_t object, std::string_view key) const { return has(object, nameIndex(key)); }
  bool has(uint32_t object, uint32_t key) const {
    if (key == kNoName) return false;
    for (const ArchiveEntry* e = begin(object), *last = end(object); e != last; ++e) {
      if (e->key == key) return true;
    }
    return false;
  }
  // Whether an object's class names a string ("NSString", "NSMutableString", "NSAttributedString"...)
  // or a number ("NSNumber"), by the words in its name.
  bool isStringClass(uint32_t object) const { return classFlags(object) & kStringClass; }
  bool isNumberClass(uint32_t object) const { return classFlags(object) & kNumberClass; }
  // The unkeyed member values of a collection object, in order.
  std::vector<ArchiveValue> members(uint32_t object) const;
  // The text of a string value: a String, or an object of a string class (NS.bytes, NS.string, the
  // NSString of an attributed string, or the development text NSDev of a localizable string).
  // False for anything else.
  bool stringOf(const ArchiveValue& v, std::string& out) const;
  // The same text as a view of the graph's own pool, without a copy.
  bool textOf(const ArchiveValue& v, std::string_view& out) const {
    if (v.kind == ArchiveValue::Kind::String || v.kind == ArchiveValue::Kind::Data) {
      out = text(v);
      return true;
    }
    return v.isObject() && textOfObject(v, out);
  }
  // The table key a localizable string carries (NSKey, "170.title"); false for other values.
  bool localizableKeyOf(const ArchiveValue& v, std::string& out) const;
  // A number: Bool, Integer, Real, or an NSNumber object (NS.intval, NS.dblval...).
  bool numberOf(const ArchiveValue& v, double& out) const {
    if (v.isNumber()) {
      out = v.number();
      return true;
    }
    return v.isObject() && numberOfObject(v.index, out);
  }
  std::string_view text(const ArchiveValue& v) const {
    return (texts_.data() ? texts_ : std::string_view(pool_)).substr(v.index, v.length);
  }
  const ArchiveLayout& layout() const { return layout_; }
  // Approximate bytes held by the graph.
  std::size_t memoryUsed() const;

 private:
  // Names (class names and keys) are interned into one pool; an open-addressed table of their
  // indexes (plus one, 0 for an empty slot) finds them by hash, kept at most half full.
  struct Name {
    uint32_t offset;
    uint32_t length;
    uint64_t hash;
    const char* at;  // the bytes of a name kept in place, else nullptr (in the pool at offset)
  };
  uint32_t intern(std::string_view name, bool inPlace);
  static constexpr uint8_t kStringClass = 1, kNumberClass = 2;
  static uint8_t flagsOf(std::string_view name);
  // Worked out on the first question about each name (so one graph is read by one thread at a time).
  uint8_t classFlags(uint32_t object) const {
    const uint32_t n = objects_[object].className;
    if (n >= nameFlags_.size()) return flagsOf(name(n));
    if (nameFlags_[n] == kUnknownFlags) nameFlags_[n] = flagsOf(name(n));
    return nameFlags_[n];
  }
  static constexpr uint8_t kUnknownFlags = 0xFF;
  mutable std::vector<uint8_t> nameFlags_;  // by name, sized by prepareLookups
  uint32_t lookup(std::string_view name, uint64_t hash) const;
  // textOf and numberOf for a value that refers to an object.
  bool textOfObject(const ArchiveValue& v, std::string_view& out) const;
  bool numberOfObject(uint32_t object, double& out) const;
  void growSlots(std::size_t names);
  std::string namePool_;
  std::vector<Name> names_;
  std::vector<uint32_t> slots_;
  std::vector<ArchiveObject> objects_;
  std::vector<ArchiveEntry> entries_;
  std::string pool_;
  std::string_view texts_;  // where the texts are when not in pool_ (keepTextsIn)
  std::size_t namesBytes_ = 0;
  uint32_t stringKeys_[4] = {kNoName, kNoName, kNoName, kNoName};
  uint32_t numberKeys_[5] = {kNoName, kNoName, kNoName, kNoName, kNoName};
  ArchiveLayout layout_;
};

// A container that cannot be read: what is wrong, in words.
struct ArchiveError {
  std::string reason;
};

// Each reader returns false with `error` set when the bytes are not a readable archive of its
// kind. `byteBudget` caps the memory the graph may take; exceeding it is an error.
bool readKeyedPlistArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error);
// The same archive saved as an XML property list.
bool readKeyedXMLPlistArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error);
// The graph's names and byte values are views of `bytes`, which must outlive it.
bool readNIBArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error);
// `root` is the XML root element "archive"; the caller has parsed the XML.
bool readXMLArchive(const pugi::xml_node& root, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error);

// Base64 as the XML forms write it, decoded leniently: white space and other foreign characters are
// skipped, padding is optional.
std::string decodeBase64(std::string_view text);
// The same, appended to `into`.
void decodeBase64Into(std::string_view text, std::string& into);

}  // namespace tq::archive
