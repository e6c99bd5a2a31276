// The older XML archive form of an interface document: <archive> holding <data>, whose elements
// are keyed values: <object class="NSButton" key="..." id="..."> with keyed children, scalars
// (<string>, <characters>, <int>, <integer value>, <bool>, <double>, <real value>, <bytes> in
// base64, <nil>), and <reference ref="..."> to any element that carries an id. Unkeyed children
// of an object are the members of a collection. The document's parts are:
//   IBDocument.RootObjects          the File's Owner, First Responder, Application, then the
//                                   top-level objects;
//   IBDocument.Objects              connectionRecords (outlets, actions, bindings),
//                                   objectRecords (the designer's object IDs), and
//                                   flattenedProperties ("N.CustomClassName", attribute
//                                   placeholders such as tool tips,
//                                   "N.NSWindowTemplate.visibleAtLaunch").
// References are resolved after the whole walk, so they may point forward.
#include <pugixml.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "keyed_archive.h"

namespace tq::archive {

namespace {

constexpr int kMaxDepth = 256;

// What an element of the archive holds, told by its name.
enum class Kind { Reference, Object, Collection, Dictionary, Text, Integer, Boolean, Real, Bytes, Nil, Other };

struct ElementKind {
  const char* name;
  Kind kind;
  const char* className;  // the class a collection element stands for without a class attribute
};

constexpr ElementKind kElementKinds[] = {
    {"object", Kind::Object, nullptr},
    {"reference", Kind::Reference, nullptr},
    {"string", Kind::Text, nullptr},
    {"int", Kind::Integer, nullptr},
    {"bool", Kind::Boolean, nullptr},
    {"array", Kind::Collection, "NSArray"},
    {"mutableArray", Kind::Collection, "NSMutableArray"},
    {"set", Kind::Collection, "NSSet"},
    {"mutableSet", Kind::Collection, "NSMutableSet"},
    {"dictionary", Kind::Dictionary, "NSDictionary"},
    {"mutableDictionary", Kind::Dictionary, "NSMutableDictionary"},
    {"mutableString", Kind::Collection, "NSMutableString"},
    {"characters", Kind::Text, nullptr},
    {"integer", Kind::Integer, nullptr},
    {"long", Kind::Integer, nullptr},
    {"boolean", Kind::Boolean, nullptr},
    {"double", Kind::Real, nullptr},
    {"float", Kind::Real, nullptr},
    {"real", Kind::Real, nullptr},
    {"bytes", Kind::Bytes, nullptr},
    {"nil", Kind::Nil, nullptr},
};

// Whether a NUL-ended name is the literal: compared in place, byte by byte up to the literal's NUL,
// never reading past the name's own end.
template <std::size_t N>
[[gnu::always_inline]] inline bool same(const char* name, const char (&literal)[N]) {
  for (std::size_t i = 0; i < N; ++i) {
    if (name[i] != literal[i]) return false;
  }
  return true;
}

// The entry for an element's name; the usual names are told in place, the rest by the table.
const ElementKind& kindOf(const char* name) {
  static constexpr ElementKind other{"", Kind::Other, nullptr};
  if (same(name, "object")) return kElementKinds[0];
  if (same(name, "reference")) return kElementKinds[1];
  if (same(name, "string")) return kElementKinds[2];
  if (same(name, "int")) return kElementKinds[3];
  if (same(name, "bool")) return kElementKinds[4];
  for (const ElementKind& k : kElementKinds) {
    if (k.name[0] == name[0] && std::strcmp(k.name, name) == 0) return k;
  }
  return other;
}

// The attributes the reader asks an element about, found in one walk of its attributes (the first
// of a name counts, as a lookup by name would find it); nullptr where the element has none.
struct Attributes {
  const char* key = nullptr;
  const char* id = nullptr;
  const char* cls = nullptr;
  const char* type = nullptr;
  const char* value = nullptr;
  const char* ref = nullptr;

  explicit Attributes(pugi::xml_node n) {
    for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute()) {
      const char* name = a.name();
      const char** slot = nullptr;
      switch (name[0]) {
        case 'k': slot = same(name, "key") ? &key : nullptr; break;
        case 'i': slot = same(name, "id") ? &id : nullptr; break;
        case 'c': slot = same(name, "class") ? &cls : nullptr; break;
        case 't': slot = same(name, "type") ? &type : nullptr; break;
        case 'v': slot = same(name, "value") ? &value : nullptr; break;
        case 'r': slot = same(name, "ref") ? &ref : nullptr; break;
        default: break;
      }
      if (slot && !*slot) *slot = a.value();
    }
  }
};

// The values of the elements that carry an id, by id (views into the parsed document): an
// open-addressed table kept at most half full, a later element of an id replacing the earlier.
class IdTable {
 public:
  void set(std::string_view id, const ArchiveValue& v) {
    if (2 * (count_ + 1) > slots_.size()) grow();
    Slot& slot = slots_[slotOf(id)];
    if (!slot.used) ++count_;
    slot = {id, v, true};
  }
  const ArchiveValue* get(std::string_view id) const {
    if (slots_.empty()) return nullptr;
    const Slot& slot = slots_[slotOf(id)];
    return slot.used ? &slot.value : nullptr;
  }

 private:
  struct Slot {
    std::string_view id;
    ArchiveValue value;
    bool used = false;
  };
  static uint64_t hash(std::string_view id) { return KeyedArchive::hashName(id); }
  // The slot holding id, or the empty one where it would go.
  std::size_t slotOf(std::string_view id) const {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash(id) & mask;; i = (i + 1) & mask) {
      if (!slots_[i].used || slots_[i].id == id) return i;
    }
  }
  void grow() {
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(std::max<std::size_t>(64, old.size() * 2), Slot{});
    for (const Slot& s : old) {
      if (s.used) slots_[slotOf(s.id)] = s;
    }
  }
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

class XMLArchiveReader {
 public:
  XMLArchiveReader(std::size_t budget, KeyedArchive& out, ArchiveError& error) : budget_(budget), out_(out), error_(error) {}

  bool read(pugi::xml_node root) {
    pugi::xml_node data = root.child("data");
    if (!data) return fail("the archive has no data element");
    const uint32_t document = out_.addObject("IBDocument");
    if (!fillObject(document, data, false, 0)) return false;
    // References, now that every id is known.
    auto& entries = out_.mutableEntries();
    for (const auto& [entry, id] : pending_) {
      const ArchiveValue* value = ids_.get(id);
      if (!value) return fail("a reference names id " + std::string(id) + ", which no element carries");
      entries[entry].value = *value;
    }
    out_.prepareLookups();
    return layout(document);
  }

 private:
  bool fail(std::string reason) {
    error_.reason = std::move(reason);
    return false;
  }

  // The value of one element; `pendingId` is set for a reference to resolve later.
  bool convert(pugi::xml_node n, const ElementKind& kind, const Attributes& at, int depth, ArchiveValue& v,
               std::string_view& pendingId) {
    if (depth > kMaxDepth) return fail("the archive's objects are nested too deeply");
    v = {};
    const char* text = nullptr;
    switch (kind.kind) {
      case Kind::Reference:
        if (at.ref) pendingId = at.ref;
        return true;  // without ref: nil
      case Kind::Object:
      case Kind::Collection:
      case Kind::Dictionary: {
        const char* cls = at.cls && *at.cls ? at.cls : kind.className;
        const uint32_t object = out_.addObject(cls ? cls : "NSObject");
        v = KeyedArchive::object(object);
        remember(at, v);
        return fillObject(object, n, kind.kind == Kind::Dictionary, depth + 1);
      }
      case Kind::Text:
        text = n.child_value();
        v = at.type && same(at.type, "base64-UTF8") ? out_.addBase64(text) : out_.addText(text);
        break;
      case Kind::Integer:
        v = KeyedArchive::integer(std::strtoll(at.value ? at.value : n.child_value(), nullptr, 10));
        break;
      case Kind::Boolean: {
        const char* s = at.value ? at.value : n.child_value();
        v = KeyedArchive::boolean(same(s, "YES") || same(s, "true"));
        break;
      }
      case Kind::Real:
        v = KeyedArchive::real(std::strtod(at.value ? at.value : n.child_value(), nullptr));
        break;
      case Kind::Bytes:
        v = out_.addBase64(n.child_value(), ArchiveValue::Kind::Data);
        break;
      case Kind::Nil:
        break;
      case Kind::Other: {
        // An element of a kind this reader does not know: kept as an object of that name, so that
        // its keyed children stay reachable.
        const uint32_t object = out_.addObject(n.name());
        v = KeyedArchive::object(object);
        remember(at, v);
        return fillObject(object, n, false, depth + 1);
      }
    }
    remember(at, v);
    return true;
  }

  // Ids are kept as views into the parsed document, which outlives the read.
  void remember(const Attributes& at, const ArchiveValue& v) {
    if (at.id) ids_.set(at.id, v);
  }

  bool fillObject(uint32_t object, pugi::xml_node n, bool keyedDictionary, int depth) {
    // This object's children go on one stack shared by every level: the levels below push theirs
    // and take them off again before this level pushes the next.
    const std::size_t base = children_.size();
    for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
      if (c.type() != pugi::node_element) continue;
      const Attributes at(c);
      const char* key = at.key ? at.key : "";
      if (same(key, "EncodedWithXMLCoder")) continue;
      Child child;
      if (!convert(c, kindOf(c.name()), at, depth, child.value, child.pending)) return false;
      if (keyedDictionary && *key) {
        // A dictionary written with keyed children: members alternate key and value.
        children_.push_back({0, out_.addText(key), {}});
        child.key = 0;
      } else {
        child.key = *key ? out_.intern(key) : 0;
      }
      children_.push_back(child);
    }
    out_.beginEntries(object);
    for (std::size_t i = base; i < children_.size(); ++i) {
      const Child& child = children_[i];
      if (!child.pending.empty()) pending_.emplace_back(out_.mutableEntries().size(), child.pending);
      out_.addEntry(child.key, child.value);
    }
    children_.resize(base);
    out_.endEntries(object);
    if (out_.memoryUsed() + pending_.size() * 48 > budget_) return fail("the archive needs more memory than its size allows");
    return true;
  }

  // --- the document's parts ---

  ArchiveValue keyed(uint32_t object, const char* key) const { return out_.find(object, key); }

  std::vector<uint32_t> memberObjects(const ArchiveValue& v) const {
    std::vector<uint32_t> out;
    if (!v.isObject()) return out;
    for (const ArchiveValue& m : out_.members(v.index)) {
      if (m.isObject()) out.push_back(m.index);
    }
    return out;
  }

  bool layout(uint32_t document) {
    ArchiveLayout& layout = out_.layout();
    const ArchiveValue rootObjects = keyed(document, "IBDocument.RootObjects");
    if (!rootObjects.isObject()) return fail("the archive has no IBDocument.RootObjects");
    const std::vector<uint32_t> roots = memberObjects(rootObjects);
    const ArchiveValue container = keyed(document, "IBDocument.Objects");

    // Designer object IDs, and the placeholders among them (-1 First Responder, -3 Application).
    std::unordered_map<std::string, uint32_t> byObjectID;
    if (container.isObject()) {
      const ArchiveValue records = keyed(container.index, "objectRecords");
      const ArchiveValue ordered = records.isObject() ? keyed(records.index, "orderedObjects") : ArchiveValue{};
      for (uint32_t record : memberObjects(ordered)) {
        const ArchiveValue object = keyed(record, "object");
        double id = 0;
        if (!object.isObject() || !out_.numberOf(keyed(record, "objectID"), id) || !(std::fabs(id) < 9e15)) continue;
        const std::string text = std::to_string(static_cast<long long>(id));
        layout.setIdentifier(object.index, static_cast<int64_t>(id), out_.objectCount());
        byObjectID.emplace(text, object.index);
        if (text == "-1" || text == "-3") layout.placeholders.push_back(object.index);
      }
    }
    for (uint32_t object : roots) {
      if (out_.className(object) != "NSCustomObject") continue;
      std::string name;
      out_.stringOf(keyed(object, "NSClassName"), name);
      if (name == "FirstResponder" || name == "NSApplication") layout.placeholders.push_back(object);
    }
    classDescriptions(keyed(document, "IBDocument.Classes"));
    if (!roots.empty()) layout.owner = roots.front();
    for (std::size_t i = 1; i < roots.size(); ++i) layout.topLevel.push_back(roots[i]);

    if (!container.isObject()) return true;
    for (uint32_t record : memberObjects(keyed(container.index, "connectionRecords"))) {
      const ArchiveValue connection = keyed(record, "connection");
      if (connection.isObject()) layout.connectors.push_back(connection.index);
    }
    // Flattened properties: "ID.CustomClassName" and attribute placeholders (tool tips...).
    const ArchiveValue flattened = keyed(container.index, "flattenedProperties");
    if (flattened.isObject()) dictionaryProperties(flattened.index, byObjectID);
    // Windows are visible at launch unless their properties say otherwise.
    if (!hiddenAtLaunch_.empty()) {
      layout.visibleWindowsKnown = true;
      for (uint32_t object : layout.topLevel) {
        if (out_.className(object) == "NSWindowTemplate" && !hiddenAtLaunch_.count(object)) layout.visibleWindows.push_back(object);
      }
    }
    return true;
  }

  // IBDocument.Classes: the class descriptions the document carries, each naming a class and its
  // superclass; the first description of a class that names a superclass counts.
  void classDescriptions(const ArchiveValue& describer) {
    if (!describer.isObject()) return;
    auto& superclasses = out_.layout().superclasses;
    for (uint32_t d : memberObjects(keyed(describer.index, "referencedPartialClassDescriptions"))) {
      std::string name, superclass;
      if (!out_.stringOf(keyed(d, "className"), name) || !out_.stringOf(keyed(d, "superclassName"), superclass)) continue;
      if (name.empty() || superclass.empty() || name == superclass) continue;
      if (superclasses.size() < ArchiveLayout::kMaxDescribedClasses) superclasses.emplace(name, superclass);
    }
  }

  void dictionaryProperties(uint32_t dict, const std::unordered_map<std::string, uint32_t>& byObjectID) {
    std::vector<ArchiveValue> keys, values;
    const std::vector<ArchiveValue> members = out_.members(dict);
    if (!members.empty()) {
      for (std::size_t i = 0; i + 1 < members.size(); i += 2) {
        keys.push_back(members[i]);
        values.push_back(members[i + 1]);
      }
    } else {
      const ArchiveValue k = keyed(dict, "dict.sortedKeys"), v = keyed(dict, "dict.values");
      if (k.isObject()) keys = out_.members(k.index);
      if (v.isObject()) values = out_.members(v.index);
    }
    ArchiveLayout& layout = out_.layout();
    for (std::size_t i = 0; i < keys.size() && i < values.size(); ++i) {
      std::string key;
      if (!out_.stringOf(keys[i], key)) continue;
      const auto dot = key.find('.');
      if (dot == std::string::npos) continue;
      const std::string property = key.substr(dot + 1);
      if (property == "CustomClassName") {
        auto it = byObjectID.find(key.substr(0, dot));
        std::string name;
        if (it != byObjectID.end() && out_.stringOf(values[i], name) && !name.empty()) layout.customClasses[it->second] = name;
      } else if (property == "NSWindowTemplate.visibleAtLaunch") {
        auto it = byObjectID.find(key.substr(0, dot));
        double visible = 1;
        if (it != byObjectID.end() && out_.numberOf(values[i], visible) && visible == 0) hiddenAtLaunch_.insert(it->second);
      } else if (property == "IBAttributePlaceholdersKey" && values[i].isObject()) {
        // Attribute objects (tool tips, initial tab items) become connectors of their own kind.
        for (const ArchiveEntry* e = out_.begin(values[i].index); e != out_.end(values[i].index); ++e) {
          if (e->value.isObject() && out_.className(e->value.index).find("Attribute") != std::string::npos) {
            layout.connectors.push_back(e->value.index);
          }
        }
      }
    }
  }

  std::size_t budget_;
  KeyedArchive& out_;
  ArchiveError& error_;
  struct Child {
    uint32_t key;
    ArchiveValue value;
    std::string_view pending;
  };
  std::vector<Child> children_;
  IdTable ids_;
  std::vector<std::pair<std::size_t, std::string_view>> pending_;
  std::unordered_set<uint32_t> hiddenAtLaunch_;
};

}  // namespace

bool readXMLArchive(const pugi::xml_node& root, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error) {
  XMLArchiveReader reader(byteBudget, out, error);
  return reader.read(root);
}

}  // namespace tq::archive
