// The XML interface document reader.
//
// One pass over the document builds the objects depth first, in document order, keeping every
// object alive in a table by identifier while the pass runs; connections, cross references
// (header views, selected items) and awakeFromNib follow once the whole tree exists. Only then are
// the top-level objects handed out, and the table is dropped, so that they alone own the result.
#include "tq/platform/ui/archive/nib_reader.h"

#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <dirent.h>
#include <sys/stat.h>

#include "keyed_archive.h"
#include "keyed_object_decoder.h"
#include "remembered_casts.h"
#include "storyboard_scenes.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/base/arena.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/fs/regular_file.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/capabilities.h"
#include "tq/platform/ui/model/class_registry.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/grid_view.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/rule_editor.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/token_field.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window.h"
#include "tq/platform/ui/model/window_controller.h"

namespace tq {

namespace {

// A hash of `length` bytes taken eight at a time (the texts hashed here are a dozen bytes or so, so
// a loop over single bytes would cost several times as much). Little-endian words, also when
// worked out at compile time.
[[gnu::always_inline]] constexpr uint64_t bytesHash(const char* p, std::size_t length) {
  constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
  // N bytes at `at` as a little-endian number (N of 4 or 8: fixed-size loads).
  const auto load = [](const char* at, auto n) {
    uint64_t w = 0;
    if (std::is_constant_evaluated()) {
      for (std::size_t i = 0; i < n; ++i) w |= uint64_t{static_cast<unsigned char>(at[i])} << (8 * i);
    } else if constexpr (n == 8) {
      std::memcpy(&w, at, 8);
    } else {
      uint32_t half = 0;
      std::memcpy(&half, at, 4);
      w = half;
    }
    return w;
  };
  uint64_t h = length * kMultiplier;
  if (length >= 8) {
    // Whole words, then the last eight bytes (which may overlap the words before).
    for (std::size_t i = 0; i + 8 < length; i += 8) h = ((h ^ load(p + i, std::integral_constant<std::size_t, 8>())) * kMultiplier);
    h = (h ^ load(p + length - 8, std::integral_constant<std::size_t, 8>())) * kMultiplier;
  } else if (length >= 4) {
    const uint64_t w = load(p, std::integral_constant<std::size_t, 4>()) |
                       load(p + length - 4, std::integral_constant<std::size_t, 4>()) << 32;
    h = (h ^ w) * kMultiplier;
  } else {
    uint64_t w = 0;
    for (std::size_t i = 0; i < length; ++i) w |= uint64_t{static_cast<unsigned char>(p[i])} << (8 * i);
    h = (h ^ w) * kMultiplier;
  }
  return h ^ (h >> 29);
}

// Whether the `length` bytes at `a` and at `b` are the same, for the short texts the reader compares
// (names, identifiers): a word or two compared in place of a call. Reads no byte outside the two.
inline bool sameBytes(const char* a, const char* b, std::size_t length) {
  const auto word = [](const char* at, auto n) {
    uint64_t w = 0;
    std::memcpy(&w, at, n);
    return w;
  };
  if (length >= 8) {
    for (std::size_t i = 0; i + 8 < length; i += 8) {
      if (word(a + i, std::integral_constant<std::size_t, 8>()) != word(b + i, std::integral_constant<std::size_t, 8>())) return false;
    }
    return word(a + length - 8, std::integral_constant<std::size_t, 8>()) ==
           word(b + length - 8, std::integral_constant<std::size_t, 8>());
  }
  if (length >= 4) {
    return word(a, std::integral_constant<std::size_t, 4>()) == word(b, std::integral_constant<std::size_t, 4>()) &&
           word(a + length - 4, std::integral_constant<std::size_t, 4>()) ==
               word(b + length - 4, std::integral_constant<std::size_t, 4>());
  }
  for (std::size_t i = 0; i < length; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

// The hash of an archive identifier, for the tables that find objects by identifier.
uint64_t identifierHash(std::u16string_view id) {
  return bytesHash(reinterpret_cast<const char*>(id.data()), id.size() * sizeof(char16_t));
}

}  // namespace

std::shared_ptr<Object> Nib::objectWithIdentifier(const String& identifier) const {
  if (slots_.empty()) return nullptr;
  const std::u16string_view wanted = identifier.view();
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t at = identifierHash(wanted) & mask;; at = (at + 1) & mask) {
    const uint32_t slot = slots_[at];
    if (!slot) return nullptr;
    const IdentifiedObject& e = objects_[slot - 1];
    if (e.first.view() == wanted) return e.second.lock();
  }
}

std::size_t Nib::addWarning(std::string message) {
  if (warnings_.size() >= kMaxNibWarnings) {
    ++unlistedWarnings_;
    return 0;
  }
  const std::size_t kept = sizeof(std::string) + message.capacity();
  warnings_.push_back(std::move(message));
  return kept;
}

void Nib::closeWarnings() {
  if (unlistedWarnings_) warnings_.push_back("and " + std::to_string(unlistedWarnings_) + " more warnings");
}

void Nib::indexObjects(std::vector<IdentifiedObject> objects) {
  std::vector<uint64_t> hashes;
  hashes.reserve(objects.size());
  for (const auto& object : objects) hashes.push_back(identifierHash(object.first.view()));
  indexObjects(std::move(objects), std::move(hashes));
}

void Nib::indexObjects(std::vector<IdentifiedObject> objects, std::vector<uint64_t> hashes) {
  // An open table of positions (plus one) in the kept list, at most half full. An identifier met
  // again keeps its place and takes the later object. Identifiers are compared only where their
  // hashes agree, so that most placings read no identifier's text.
  std::size_t size = 16;
  while (size < objects.size() * 2) size *= 2;
  std::vector<uint32_t> slots(size, 0);
  const std::size_t mask = size - 1;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < objects.size(); ++i) {
    const uint64_t hash = hashes[i];
    for (std::size_t at = hash & mask;; at = (at + 1) & mask) {
      const uint32_t slot = slots[at];
      if (!slot) {
        if (kept != i) {
          objects[kept] = std::move(objects[i]);
          hashes[kept] = hash;
        }
        slots[at] = static_cast<uint32_t>(++kept);
        break;
      }
      if (hashes[slot - 1] == hash && objects[slot - 1].first.view() == objects[i].first.view()) {
        objects[slot - 1].second = std::move(objects[i].second);
        break;
      }
    }
  }
  objects.resize(kept);
  objects_ = std::move(objects);
  slots_ = std::move(slots);
}

const Nib& NibReadResult::nib() const {
  if (!nib_) {
    AssertionHandler::currentHandler().handleFailureInMethod(u"nib", String(u"NibReadResult"),
                                                             String::fromUTF8(detail::sourceFileName(__FILE__)),
                                                             __LINE__, u"the read failed: " + String::fromUTF8(error_.reason).u16string());
  }
  return *nib_;
}

Nib& NibReadResult::nib() { return const_cast<Nib&>(static_cast<const NibReadResult*>(this)->nib()); }

namespace {

// A failure that aborts the whole read.
struct ReadFailure {
  std::string reason;
};

constexpr int kMaxDepth = 200;
// What one model object may cost, for the memory bound: controls with their cells measure about
// 800 bytes each, so 1 KiB keeps the bound on the safe side.
constexpr std::size_t kObjectCost = 1024;
using archive::kParsedXMLFactor;

// --- attribute helpers ---------------------------------------------------------------------------

// The element names the reader tells apart. An element's name is looked up here once, when it is
// listed, so that asking whether an element is a "window" compares two small numbers; the literal
// names in the reader find their numbers when it is compiled.
constexpr std::string_view kElementNames[] = {
    "", "action", "application", "binding", "bool", "box", "button", "buttonCell", "clipView", "color", "comboBox",
    "comboBoxCell", "constraint", "containerView", "customObject", "customView", "font", "gridView", "imageCell",
    "imageView", "integer", "matrix", "menu", "menuItem", "nil", "outlet", "outletCollection", "outlineView",
    "pagecontroller", "panel", "placeholder", "popUpButton", "popUpButtonCell", "popUpMenus", "predicateEditor",
    "progressIndicator", "real", "rect", "ruleEditor", "scrollView", "searchField", "searchFieldCell",
    "secureTextField", "secureTextFieldCell", "segmentedCell", "segmentedControl", "segue", "size",
    "splitViewController", "splitViewItem", "stackView", "string", "tabView", "tabViewController", "tabViewItem",
    "tableColumn", "tableHeaderCell", "tableView", "textField", "textFieldCell", "textView", "tokenField",
    "tokenFieldCell", "toolbar", "toolbarItem", "value", "view", "viewController", "window", "windowController"};
constexpr std::size_t kElementNameCount = std::size(kElementNames);
static_assert(kElementNameCount < 256);

// An open table of the names above by hash: the slot holds the name's number, 0 when empty.
constexpr std::size_t kElementSlots = 256;
constexpr auto kElementTable = [] {
  std::array<uint8_t, kElementSlots> table{};
  for (std::size_t i = 1; i < kElementNameCount; ++i) {
    std::size_t at = bytesHash(kElementNames[i].data(), kElementNames[i].size()) & (kElementSlots - 1);
    while (table[at]) at = (at + 1) & (kElementSlots - 1);
    table[at] = static_cast<uint8_t>(i);
  }
  return table;
}();

consteval uint8_t elementNumberOf(std::string_view literal) {
  for (std::size_t i = 1; i < kElementNameCount; ++i) {
    if (kElementNames[i] == literal) return static_cast<uint8_t>(i);
  }
  return 0;
}

// The number of an element's name (0 for names not listed) and its length, in one walk of it.
uint8_t elementNumber(const char* name, std::size_t& length) {
  length = std::strlen(name);
  for (std::size_t at = bytesHash(name, length) & (kElementSlots - 1);; at = (at + 1) & (kElementSlots - 1)) {
    const uint8_t number = kElementTable[at];
    if (!number) return 0;
    const std::string_view known = kElementNames[number];
    if (known.size() == length && sameBytes(known.data(), name, length)) return number;
  }
}

// A name the reader asks an element about (an attribute, a child's key or name, the element's own
// name), with its first two bytes, which tell most names apart before any other byte is compared,
// and its number among the element names (0 if it is none). Literals are measured when the reader
// is compiled.
struct Name {
  template <std::size_t N>
  consteval Name(const char (&literal)[N])  // NOLINT: literals convert
      : text(literal),
        head(headOf(literal)),
        element(elementNumberOf(std::string_view(literal, N - 1))),
        common(commonNumberOf(std::string_view(literal, N - 1))),
        connections(std::string_view(literal, N - 1) == "connections") {}
  explicit Name(const char* runtime) : text(runtime), head(headOf(runtime)) {}

  // The first byte, and the second when there is one.
  static constexpr uint16_t headOf(const char* s) {
    const auto first = static_cast<unsigned char>(s[0]);
    return static_cast<uint16_t>(first | (first ? static_cast<unsigned char>(s[1]) << 8 : 0));
  }
  // Whether `other` (a NUL-terminated text) is this name; compared byte by byte, stopping at the
  // first difference, so no byte past either end is read.
  bool equals(const char* other) const {
    for (std::size_t i = 0;; ++i) {
      if (text[i] != other[i]) return false;
      if (!text[i]) return true;
    }
  }
  // The same for a text whose head is this name's head: the bytes after the first two.
  bool equalsPastHead(const char* other) const {
    if (!text[0] || !text[1]) return true;  // the head held the whole name and its end
    for (std::size_t i = 2;; ++i) {
      if (text[i] != other[i]) return false;
      if (!text[i]) return true;
    }
  }
  // One of 64 bits for a head: most names asked for are absent, and most of those find their bit
  // clear in an element's mask of the heads it has.
  constexpr uint64_t bit() const { return uint64_t{1} << bucket(); }
  // The bit's number.
  constexpr unsigned bucket() const { return bucketOf(head); }
  static constexpr unsigned bucketOf(uint16_t head) { return static_cast<unsigned>(uint64_t{head} * 0x9E3779B97F4A7C15ull >> 58); }

  // Attributes every object is asked about, which an element notes as it lists its attributes:
  // their numbers (from 1) in kCommon.
  static constexpr std::string_view kCommon[] = {"id", "customClass", "userLabel"};
  static constexpr uint8_t kId = 1, kCustomClass = 2, kUserLabel = 3;
  static consteval uint8_t commonNumberOf(std::string_view literal) {
    for (std::size_t i = 0; i < std::size(kCommon); ++i) {
      if (kCommon[i] == literal) return static_cast<uint8_t>(i + 1);
    }
    return 0;
  }

  const char* text;
  uint16_t head;
  uint8_t element = 0;
  uint8_t common = 0;  // the number in kCommon, 0 for other names
  bool connections = false;  // the child every object is asked about, which an element notes too
};

// No node, made once: the parser's node constructors are calls into it, copies are not.
const pugi::xml_node kNoNode;
static_assert(std::is_trivially_copyable_v<pugi::xml_node>);

// A node kept as its bytes, so that a table of them is made without a constructor call each.
struct KeptNode {
  alignas(pugi::xml_node) unsigned char bytes[sizeof(pugi::xml_node)];
  void set(const pugi::xml_node& node) { std::memcpy(bytes, &node, sizeof node); }
  pugi::xml_node get() const {
    pugi::xml_node node = kNoNode;
    std::memcpy(&node, bytes, sizeof node);
    return node;
  }
};

// Walks over attributes and children end on what the parser gives past the last: an attribute
// whose name is empty (every parsed attribute has a name) and a node of type node_null. That is one
// call into the parser fewer per attribute or child than asking first whether it exists.

// The value of the attribute `key` of a node ("" when it has none), found without the parser's
// own comparison of every name: "key" is most often the first attribute.
const char* keyOf(pugi::xml_node node) {
  for (pugi::xml_attribute a = node.first_attribute();; a = a.next_attribute()) {
    const char* name = a.name();
    if (!name[0]) break;  // past the last attribute
    if (name[0] == 'k' && name[1] == 'e' && name[2] == 'y' && name[3] == '\0') return a.value();
  }
  return "";
}

// An element as the reader asks about it: its attributes and child elements are listed once, each
// with the head of its name (or of a child's key), so that a lookup compares two bytes per entry
// and whole names only where those agree; a mask of the heads present turns most absent names
// away at once. Past the first kAttributes attributes or kChildren children, lookups go the
// parser's way.
class Element {
 public:
  Element() = default;
  Element(pugi::xml_node node) : node_(node), connections_(kNoNode) {  // NOLINT: every node can be asked about
    name_ = node.name();
    if (!name_[0]) return;  // no element
    element_ = elementNumber(name_, nameLength_);
    for (pugi::xml_attribute a = node.first_attribute();; a = a.next_attribute()) {
      const char* name = a.name();
      if (!name[0]) break;  // past the last attribute
      if (attributeCount_ == kAttributes) {
        allAttributes_ = false;
        break;
      }
      Attribute& entry = attributes_[attributeCount_++];
      entry.name = name;
      entry.value = a.value();
      entry.head = Name::headOf(entry.name);
      // The first attribute of each head's bucket is found at once; a bucket that two share is
      // searched from there.
      const unsigned bucket = Name::bucketOf(entry.head);
      if (heads_ & uint64_t{1} << bucket) {
        shared_ |= uint64_t{1} << bucket;
      } else {
        heads_ |= uint64_t{1} << bucket;
        firstInBucket_[bucket] = static_cast<uint8_t>(attributeCount_ - 1);
      }
      // The first of each common name; the heads tell them apart from every other name asked for
      // before a whole comparison.
      if (entry.head == Name::headOf("id")) {
        if (!entry.name[2] && !common_[Name::kId]) common_[Name::kId] = entry.value;
      } else if (entry.head == Name::headOf("cu")) {
        if (!common_[Name::kCustomClass] && Name("customClass").equalsPastHead(entry.name)) common_[Name::kCustomClass] = entry.value;
      } else if (entry.head == Name::headOf("us")) {
        if (!common_[Name::kUserLabel] && Name("userLabel").equalsPastHead(entry.name)) common_[Name::kUserLabel] = entry.value;
      }
    }
    for (pugi::xml_node c = node.first_child();; c = c.next_sibling()) {
      const pugi::xml_node_type type = c.type();
      if (type == pugi::node_null) break;  // past the last child
      if (type != pugi::node_element) continue;
      if (childCount_ == kChildren) {
        allChildren_ = false;
        break;
      }
      Child& entry = children_[childCount_++];
      entry.name = c.name();
      entry.key = keyOf(c);
      entry.keyHead = Name::headOf(entry.key);
      entry.node.set(c);
      if (!hasConnections_ && entry.name[0] == 'c' && Name("connections").equals(entry.name)) {
        connections_ = c;
        hasConnections_ = true;
      }
    }
  }

  // The attribute's value; nullptr when the element has no such attribute.
  const char* value(Name name) const {
    if (name.common) {
      if (const char* v = common_[name.common]) return v;
      return allAttributes_ ? nullptr : slowValue(name);
    }
    if (!(heads_ & name.bit())) return allAttributes_ ? nullptr : slowValue(name);
    const unsigned first = firstInBucket_[name.bucket()];
    if (attributes_[first].head == name.head && name.equalsPastHead(attributes_[first].name)) return attributes_[first].value;
    if (!(shared_ & name.bit())) return allAttributes_ ? nullptr : slowValue(name);
    for (unsigned i = first + 1; i < attributeCount_; ++i) {
      if (attributes_[i].head == name.head && name.equalsPastHead(attributes_[i].name)) return attributes_[i].value;
    }
    return allAttributes_ ? nullptr : slowValue(name);
  }
  // The attribute's value, "" when there is none.
  const char* text(Name name) const {
    const char* v = value(name);
    return v ? v : "";
  }
  // The attributes in document order, as (name, value).
  template <class Visit>
  void eachAttribute(Visit visit) const {
    if (!allAttributes_) {
      for (pugi::xml_attribute a = node_.first_attribute(); a; a = a.next_attribute()) visit(a.name(), a.value());
      return;
    }
    for (unsigned i = 0; i < attributeCount_; ++i) visit(attributes_[i].name, attributes_[i].value);
  }

  // The first child element with key="KEY".
  pugi::xml_node keyed(Name key) const {
    for (unsigned i = 0; i < childCount_; ++i) {
      if (children_[i].keyHead == key.head && key.equalsPastHead(children_[i].key)) return children_[i].node.get();
    }
    if (allChildren_) return kNoNode;
    for (pugi::xml_node c = node_.first_child(); c; c = c.next_sibling()) {
      if (c.type() == pugi::node_element && key.equals(keyOf(c))) return c;
    }
    return kNoNode;
  }
  // The first child element named NAME.
  pugi::xml_node child(Name name) const {
    if (name.connections && (hasConnections_ || allChildren_)) return connections_;
    for (unsigned i = 0; i < childCount_; ++i) {
      if (children_[i].name[0] == name.text[0] && name.equals(children_[i].name)) return children_[i].node.get();
    }
    return allChildren_ ? kNoNode : node_.child(name.text);
  }
  bool is(Name name) const {
    return name.element ? element_ == name.element : name_[0] == name.text[0] && name.equals(name_);
  }
  // Whether the element's name ends with `suffix`.
  template <std::size_t N>
  bool nameEndsWith(const char (&suffix)[N]) const {
    return nameLength_ >= N - 1 && std::memcmp(name_ + nameLength_ - (N - 1), suffix, N - 1) == 0;
  }

  // Whether the element has any child element.
  bool hasChildElements() const { return childCount_ != 0; }
  operator pugi::xml_node() const { return node_; }  // NOLINT
  explicit operator bool() const { return static_cast<bool>(node_); }
  const char* name() const { return name_; }
  pugi::xml_node first_child() const { return node_.first_child(); }
  const char* childValue() const { return node_.child_value(); }

 private:
  static constexpr unsigned kAttributes = 32;
  static constexpr unsigned kChildren = 16;
  struct Attribute {
    const char* name;
    const char* value;
    uint16_t head;
  };
  struct Child {
    const char* name;
    const char* key;
    KeptNode node;
    uint16_t keyHead;
  };
  [[gnu::noinline]] const char* slowValue(Name name) const {
    for (pugi::xml_attribute a = node_.first_attribute(); a; a = a.next_attribute()) {
      if (name.equals(a.name())) return a.value();
    }
    return nullptr;
  }

  pugi::xml_node node_;
  const char* name_ = "";
  std::size_t nameLength_ = 0;
  uint8_t element_ = 0;  // the name's number among kElementNames
  bool allAttributes_ = true;
  bool allChildren_ = true;
  unsigned attributeCount_ = 0;
  unsigned childCount_ = 0;
  uint64_t heads_ = 0;  // Name::bit() of every listed attribute
  uint64_t shared_ = 0;  // the bits of more than one listed attribute
  uint8_t firstInBucket_[64];  // by bit number, the first listed attribute with that bit (where heads_ has it)
  const char* common_[std::size(Name::kCommon) + 1] = {};  // values of common names by number (from 1)
  pugi::xml_node connections_;  // the first listed <connections>, when hasConnections_
  bool hasConnections_ = false;
  // Left unset past their counts.
  Attribute attributes_[kAttributes];
  Child children_[kChildren];
};

bool hasAttr(const Element& n, Name name) { return n.value(name) != nullptr; }

bool boolAttr(const Element& n, Name name, bool fallback) {
  const char* v = n.value(name);
  if (!v) return fallback;
  return v[0] == 'Y' && v[1] == 'E' && v[2] == 'S' && v[3] == '\0';
}

// Decimal text as strtod reads it. Plain numbers of up to 15 digits with at most 22 after the point
// (nearly every number a document holds) are worked out directly: the digits and the power of ten
// are both exact doubles, so one division rounds exactly as strtod does. Anything else (exponents,
// more digits, a trailing text) goes to strtod.
double parseNumber(const char* text, bool& parsed) {
  const char* p = text;
  const bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  uint64_t digits = 0;
  int count = 0, fraction = 0;
  const char* start = p;
  while (*p >= '0' && *p <= '9') digits = digits * 10 + static_cast<unsigned>(*p++ - '0'), ++count;
  const bool hadInteger = p != start;
  if (*p == '.') {
    ++p;
    const char* f = p;
    while (*p >= '0' && *p <= '9') digits = digits * 10 + static_cast<unsigned>(*p++ - '0'), ++count, ++fraction;
    if (!hadInteger && p == f) count = -1;
  }
  if (*p == '\0' && count > 0 && count <= 15 && fraction <= 22 && (hadInteger || fraction > 0)) {
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                         1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const double v = static_cast<double>(digits) / kPowers[fraction];
    parsed = true;
    return negative ? -v : v;
  }
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  parsed = end != text;
  return v;
}

double numberAttr(const Element& n, Name name, double fallback) {
  const char* v = n.value(name);
  if (!v) return fallback;
  bool parsed = false;
  const double number = parseNumber(v, parsed);
  return parsed ? number : fallback;
}

// Element names are told apart by their first byte before the whole name is compared.
bool is(const Element& n, Name name) { return n.is(name); }
bool is(pugi::xml_node n, Name name) { return name.equals(n.name()); }

// The first child element with key="KEY".
pugi::xml_node keyed(const Element& n, Name key) { return n.keyed(key); }

bool startsLikeImageFile(std::string_view b) {
  return b.substr(0, 4) == std::string_view("MM\0*", 4) || b.substr(0, 4) == std::string_view("II*\0", 4) ||
         b.substr(0, 8) == "\x89PNG\r\n\x1a\n";
}

// The image file inside an archived image: the bytes themselves when they are one, else the first
// data object of a binary property list (a keyed archive of the image and its representations)
// that holds a TIFF or PNG file. Binary property lists mark a long data object 0x4F, then an
// integer 0x1k of 2^k big-endian bytes giving the length.
std::string_view imageFileInArchive(std::string_view b) {
  if (startsLikeImageFile(b)) return b;
  if (b.substr(0, 8) != "bplist00") return {};
  for (std::size_t i = 8; i + 2 < b.size(); ++i) {
    if (static_cast<unsigned char>(b[i]) != 0x4F) continue;
    const unsigned marker = static_cast<unsigned char>(b[i + 1]);
    if ((marker & 0xF0) != 0x10 || (marker & 0x0F) > 3) continue;
    const std::size_t width = std::size_t{1} << (marker & 0x0F);
    if (i + 2 + width > b.size()) continue;
    std::size_t length = 0;
    for (std::size_t k = 0; k < width; ++k) length = (length << 8) | static_cast<unsigned char>(b[i + 2 + k]);
    const std::size_t start = i + 2 + width;
    if (length > b.size() - start) continue;
    std::string_view candidate = b.substr(start, length);
    if (startsLikeImageFile(candidate)) return candidate;
  }
  return {};
}

// The values of the attributes `names` of a leaf element (rect, size, color, font), each nullptr
// when absent, the first of a name given twice: one pass over its attributes, where an Element
// would list them (and its children) before each name is looked up.
template <std::size_t N>
std::array<const char*, N> leafAttributes(pugi::xml_node node, const Name (&names)[N]) {
  std::array<const char*, N> values{};
  for (pugi::xml_attribute a = node.first_attribute();; a = a.next_attribute()) {
    const char* name = a.name();
    if (!name[0]) break;  // past the last attribute
    const uint16_t head = Name::headOf(name);
    for (std::size_t i = 0; i < N; ++i) {
      if (names[i].head == head && !values[i] && names[i].equalsPastHead(name)) {
        values[i] = a.value();
        break;
      }
    }
  }
  return values;
}

// A number attribute's value as numberAttr reads it.
double numberOr(const char* text, double fallback) {
  if (!text) return fallback;
  bool parsed = false;
  const double number = parseNumber(text, parsed);
  return parsed ? number : fallback;
}

std::optional<Rect> rectChild(const Element& n, Name key) {
  const pugi::xml_node r = keyed(n, key);
  if (!r || !is(r, "rect")) return std::nullopt;
  static constexpr Name kNames[] = {"x", "y", "width", "height"};
  const auto v = leafAttributes(r, kNames);
  return Rect{numberOr(v[0], 0), numberOr(v[1], 0), numberOr(v[2], 0), numberOr(v[3], 0)};
}

std::optional<Size> sizeChild(const Element& n, Name key) {
  const pugi::xml_node s = keyed(n, key);
  if (!s || !(is(s, "size") || is(s, "value"))) return std::nullopt;
  static constexpr Name kNames[] = {"width", "height"};
  const auto v = leafAttributes(s, kNames);
  return Size{numberOr(v[0], 0), numberOr(v[1], 0)};
}

// Texts that recur through a document (font and colour names, catalogs, colour spaces, outlet and
// action names, key paths), made once per read and shared by every object that names them. Keys
// point into the parsed document, which outlives the read. An open table hashed eight bytes at a
// time: most texts looked up are a dozen bytes, and found.
class RecurringStrings {
 public:
  explicit RecurringStrings(Arena& arena) : arena_(arena) {}
  String operator()(const char* value) {
    if (!value) return String();
    const std::size_t length = std::strlen(value);
    const uint64_t hash = bytesHash(value, length);
    if ((count_ + 1) * 2 > slots_.size()) grow();
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
      Slot& slot = slots_[i];
      if (!slot.text) {
        slot = {value, length, hash, String::fromUTF8(std::string_view(value, length), arena_)};
        ++count_;
        return slot.string;
      }
      if (slot.hash == hash && slot.length == length && sameBytes(slot.text, value, length)) return slot.string;
    }
  }

 private:
  struct Slot {
    const char* text = nullptr;
    std::size_t length = 0;
    uint64_t hash = 0;
    String string;
  };
  void grow() {
    std::vector<Slot> old(std::max<std::size_t>(64, slots_.size() * 2));
    old.swap(slots_);
    const std::size_t mask = slots_.size() - 1;
    for (Slot& slot : old) {
      if (!slot.text) continue;
      std::size_t i = slot.hash & mask;
      while (slots_[i].text) i = (i + 1) & mask;
      slots_[i] = std::move(slot);
    }
  }
  Arena& arena_;
  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

// Scratch room that only grows over a read, filled through a pointer: room is asked for once per
// piece written, not per byte.
class PackingBuffer {
 public:
  char* data() { return bytes_.get(); }
  // `at` (a position in the buffer) with at least `bytes` of room after it; the buffer grows when
  // needed, keeping what was written before `at`, and the position returned is in the new buffer.
  char* room(char* at, std::size_t bytes) {
    const auto used = static_cast<std::size_t>(at - bytes_.get());
    return capacity_ - used >= bytes ? at : grow(used, bytes);
  }

 private:
  [[gnu::noinline]] char* grow(std::size_t used, std::size_t bytes) {
    const std::size_t capacity = std::max<std::size_t>(512, 2 * (used + bytes));
    std::unique_ptr<char[]> bigger(new char[capacity]);
    if (used) std::memcpy(bigger.get(), bytes_.get(), used);
    bytes_ = std::move(bigger);
    capacity_ = capacity;
    return bytes_.get() + used;
  }
  std::unique_ptr<char[]> bytes_;
  std::size_t capacity_ = 0;
};

template <class E, std::size_t N>
E enumAttr(const Element& n, Name name, const char* const (&names)[N], E fallback) {
  const char* v = n.value(name);
  if (!v) return fallback;
  // The first byte tells most names apart before a whole comparison.
  for (std::size_t i = 0; i < N; ++i) {
    if (names[i][0] == v[0] && std::strcmp(v, names[i]) == 0) return static_cast<E>(i);
  }
  return fallback;
}

constexpr const char* kAlignments[] = {"left", "right", "center", "justified", "natural"};
constexpr const char* kLineBreaks[] = {"wordWrapping", "charWrapping", "clipping", "truncatingHead", "truncatingTail",
                                       "truncatingMiddle"};
constexpr const char* kControlSizes[] = {"regular", "small", "mini", "large"};
constexpr const char* kImagePositions[] = {"noImage", "only", "left", "right", "below", "above", "overlaps",
                                           "leading", "trailing"};
constexpr const char* kTitlePositions[] = {"noTitle", "aboveTop", "atTop", "belowTop", "aboveBottom", "atBottom",
                                           "belowBottom"};
constexpr const char* kBoxTypes[] = {"primary", "secondary", "separator", "oldStyle", "custom"};
constexpr const char* kBorderTypes[] = {"none", "line", "bezel", "groove"};
constexpr const char* kMatrixModes[] = {"radio", "highlight", "list", "track"};
constexpr const char* kTabTypes[] = {"topTabsBezelBorder", "leftTabsBezelBorder", "bottomTabsBezelBorder",
                                     "rightTabsBezelBorder", "noTabsBezelBorder", "noTabsLineBorder",
                                     "noTabsNoBorder"};

int stateAttr(const Element& n) {
  const char* s = n.text("state");
  if (std::strcmp(s, "on") == 0) return 1;
  if (std::strcmp(s, "mixed") == 0) return -1;
  return 0;
}


// Whether `s` ends with `suffix`.
bool endsWith(const char* s, std::string_view suffix) {
  const std::size_t length = std::strlen(s);
  return length >= suffix.size() && std::memcmp(s + length - suffix.size(), suffix.data(), suffix.size()) == 0;
}

}  // namespace

// Builds one archive's objects. Friend of Nib.
class NibBuilder {
 public:
  // `documentSize` sizes the arena's first chunk.
  NibBuilder(const NibLoadOptions& options, std::size_t budget, std::size_t documentSize)
      : options_(options),
        registry_(options.registry ? *options.registry : ClassRegistry::shared()),
        budget_(budget),
        arena_(documentSize),
        recurring_(arena_) {
    // Documents hold about one object per 300 bytes: the lists start near their final size instead
    // of growing (and copying their owners) step by step.
    const std::size_t expected = std::min<std::size_t>(documentSize / 300, std::size_t{1} << 16);
    made_.reserve(expected);
    byId_.reserve(expected);
    idTexts_.reserve(expected);
    idHashes_.reserve(expected);
    std::size_t slots = 64;
    while (slots < expected * 2) slots *= 2;
    idSlots_.assign(slots, 0);
  }

  // Reads a document's objects; with `scenes`, the objects of a storyboard's scenes instead.
  Nib build(const pugi::xml_document& doc, archive::DecodedScenes* scenes = nullptr) {
    scenes_ = scenes;
    pugi::xml_node root = doc.document_element();
    if (!root || !is(root, "document")) {
      throw ReadFailure{std::string("not an interface document (root element <") + (root ? root.name() : "") + ">)"};
    }
    const std::string type = root.attribute("type").value();
    if (!type.empty() && type.find(".Cocoa.") == std::string::npos) {
      throw ReadFailure{"not a Cocoa interface document (type " + type + ")"};
    }
    nib_.documentType_ = str(root.attribute("type").value());
    pugi::xml_node objects = root.child("objects");
    if (scenes_) {
      decodeScenes(root);
    } else if (!objects) {
      throw ReadFailure{"the document has no objects element"};
    }

    for (pugi::xml_node n = objects.first_child(); n; n = n.next_sibling()) {
      if (n.type() != pugi::node_element) continue;
      if (std::shared_ptr<Object> placeholder = placeholderFor(n)) {
        // The owner and the application take part in connections but are not top-level objects.
        if (pugi::xml_node c = n.child("connections")) pending_.push_back({c, placeholder, attr(n, "id")});
        continue;
      }
      if (isPlaceholderNode(n)) continue;
      if (auto object = decode(n, 0)) nib_.topLevelObjects_.push_back(object);
    }
    readImageResources(root.child("resources"));
    resolveReferences();
    connect();
    for (const auto& object : made_) object->awakeFromNib();
    if (auto owner = as<InterfaceObject>(options_.owner)) owner->awakeFromNib();

    nib_.closeWarnings();
    nib_.objectCount_ = made_.size();
    std::vector<Nib::IdentifiedObject> identified;
    identified.reserve(byId_.size() + 2);
    // In the order made, the placeholders last: they hold their identifiers over any object.
    for (auto& [id, made] : byId_) identified.emplace_back(std::move(id), made_[made]);
    for (const auto& [id, object] : {std::pair{u"-2", options_.owner}, std::pair{u"-3", options_.application}}) {
      if (object) {
        identified.emplace_back(String(id), object);
        idHashes_.push_back(identifierHash(identified.back().first.view()));
      }
    }
    nib_.indexObjects(std::move(identified), std::move(idHashes_));
    return std::move(nib_);
  }

 private:
  // dynamic_cast (of a pointer or a shared pointer), remembered for the read.
  template <class To, class Pointer>
  auto as(Pointer&& p) const -> decltype(std::declval<RememberedCasts&>().as<To>(std::forward<Pointer>(p))) {
    return casts_.as<To>(std::forward<Pointer>(p));
  }

  // --- the interface's memory ----------------------------------------------------------------------

  // Every object and string the read makes is taken from one arena, held by what is made in it: the
  // objects handed out alone keep the interface (and its memory) alive, and the read's own
  // allocations are a pointer moved along a chunk instead of one heap block each.
  template <class T, class... Args>
  std::shared_ptr<T> create(Args&&... args) {
    return arena_.make<T>(std::forward<Args>(args)...);
  }
  String str(const char* utf8) { return String::fromUTF8(utf8, arena_); }
  String attr(const Element& n, Name name) {
    const char* v = n.value(name);
    return v ? str(v) : String();
  }
  // The text of a <string> element, base64-UTF8 decoded when marked so.
  String stringElementText(const Element& n) {
    const char* text = n.childValue();
    if (boolAttr(n, "base64-UTF8", false)) return String::fromUTF8(archive::decodeBase64(text), arena_);
    return str(text);
  }
  // The text of a <string> element, or the fragments of an <attributedString> joined.
  String textOf(const Element& n) {
    if (is(n, "string")) return stringElementText(n);
    std::string joined;
    for (pugi::xml_node f : pugi::xml_node(n).children("fragment")) {
      if (pugi::xml_attribute content = f.attribute("content")) {
        joined += content.value();
      } else if (pugi::xml_node c = keyed(f, "content")) {
        joined += stringElementText(c).UTF8String();
      }
    }
    return String::fromUTF8(joined, arena_);
  }
  // A string property: the attribute NAME, else a <string key="NAME"> child; nil when neither.
  String stringProp(const Element& n, Name name) {
    if (const char* v = n.value(name)) return str(v);
    if (pugi::xml_node c = keyed(n, name); c && is(c, "string")) return stringElementText(c);
    return String();
  }
  // "NS" + the element name with its first letter capitalised: stepper -> NSStepper.
  String platformName(const char* element) {
    std::string name = "NS";
    name += element;
    if (name.size() > 2 && name[2] >= 'a' && name[2] <= 'z') name[2] = static_cast<char>(name[2] - 'a' + 'A');
    return String::fromUTF8(name, arena_);
  }
  std::optional<FontDescriptor> fontChild(const Element& n, Name key) {
    const pugi::xml_node f = keyed(n, key);
    if (!f || !is(f, "font")) return std::nullopt;
    static constexpr Name kNames[] = {"size", "metaFont", "name"};
    const auto v = leafAttributes(f, kNames);
    const double size = numberOr(v[0], 0);
    if (const char* meta = v[1]) return FontDescriptor::fromMetaFont(recurring_(meta), size);
    FontDescriptor font;
    const char* name = v[2];
    if (name) font.name = recurring_(name);
    font.size = size > 0 ? size : 13;
    font.bold = name && std::strstr(name, "Bold") != nullptr;
    return font;
  }
  std::optional<ColorDescriptor> colorChild(const Element& n, Name key) {
    static const String system = u"System";
    const pugi::xml_node c = keyed(n, key);
    if (!c || !is(c, "color")) return std::nullopt;
    static constexpr Name kNames[] = {"colorSpace", "name", "catalog", "systemColor", "white",
                                      "red",        "green", "blue",   "alpha"};
    const auto [colorSpace, name, catalog, systemColor, white, red, green, blue, alpha] = leafAttributes(c, kNames);
    ColorDescriptor color;
    color.colorSpace = recurring_(colorSpace);
    if (name) {
      color.name = recurring_(name);
      color.catalog = catalog ? recurring_(catalog) : system;
    } else if (systemColor) {
      color.name = recurring_(systemColor);
      color.catalog = system;
    } else if (white) {
      color.red = color.green = color.blue = numberOr(white, 0);
    } else {
      color.red = numberOr(red, 0);
      color.green = numberOr(green, 0);
      color.blue = numberOr(blue, 0);
    }
    color.alpha = numberOr(alpha, 1);
    return color;
  }
  // A value of an options dictionary; nil for what is not a property-list scalar.
  Value optionValue(const Element& n, bool& understood) {
    understood = true;
    if (is(n, "string")) return Value(stringElementText(n));
    if (is(n, "integer")) return Value(static_cast<long long>(std::strtoll(n.text("value"), nullptr, 10)));
    if (is(n, "real")) return Value(numberAttr(n, "value", 0));
    if (is(n, "bool")) return Value(boolAttr(n, "value", false));
    if (is(n, "nil")) return Value();
    understood = false;
    return Value();
  }

  struct Pending {
    pugi::xml_node connections;
    std::shared_ptr<Object> source;
    String sourceId;
  };

  // --- storyboards ---------------------------------------------------------------------------------

  // Every scene's objects in document order. A scene's First Responder and Exit placeholders stand
  // for the responder chain (their ids act as -1 does); its application is the Application
  // placeholder, whose main menu is a top-level object.
  void decodeScenes(pugi::xml_node root) {
    scenes_->initialController = attr(root, "initialViewController");
    for (pugi::xml_node scene = root.child("scenes").child("scene"); scene; scene = scene.next_sibling("scene")) {
      archive::DecodedScene decoded;
      decoded.sceneIdentifier = attr(scene, "sceneID");
      for (pugi::xml_node n = scene.child("objects").first_child(); n; n = n.next_sibling()) {
        if (n.type() != pugi::node_element) continue;
        const char* member = n.attribute("sceneMemberID").value();
        if (std::strcmp(member, "firstResponder") == 0 || std::strcmp(member, "exit") == 0 ||
            std::strcmp(n.attribute("customClass").value(), "FirstResponder") == 0) {
          if (pugi::xml_attribute id = n.attribute("id")) responderChainIds_.push_back(id.value());
          continue;
        }
        if (is(n, "application")) {
          if (pugi::xml_attribute id = n.attribute("id")) applicationIds_.push_back(id.value());
          if (pugi::xml_node c = n.child("connections")) pending_.push_back({c, options_.application, attr(n, "id")});
          if (pugi::xml_node menu = keyed(n, "mainMenu")) {
            auto object = decodeMenu(menu, 1);
            decoded.objects.push_back(object);
            nib_.topLevelObjects_.push_back(object);
          }
          continue;
        }
        if (std::shared_ptr<Object> placeholder = placeholderFor(n)) {
          if (pugi::xml_node c = n.child("connections")) pending_.push_back({c, placeholder, attr(n, "id")});
          continue;
        }
        if (isPlaceholderNode(n)) continue;
        auto object = decode(n, 0);
        if (!object) continue;
        decoded.objects.push_back(object);
        nib_.topLevelObjects_.push_back(object);
        if (!decoded.controller && (as<ViewController>(object.get()) || as<WindowController>(object.get()))) {
          decoded.controller = object;
          decoded.storyboardIdentifier = attr(n, "storyboardIdentifier");
        }
      }
      scenes_->scenes.push_back(std::move(decoded));
    }
  }

  // A segue: recorded with its ends for the storyboard reader, which makes the relationships.
  void recordSegue(const Pending& p, const Element& c) {
    if (!scenes_) return warn("a segue outside a storyboard skipped");
    archive::DecodedSegue segue;
    segue.archiveIdentifier = attr(c, "id");
    segue.identifier = attr(c, "identifier");
    segue.kind = recurring_(c.value("kind"));
    segue.relationship = recurring_(c.value("relationship"));
    segue.sourceIdentifier = p.sourceId;
    segue.position = static_cast<pugi::xml_node>(c).offset_debug();
    bool found = false;
    segue.source = p.source;
    segue.destination = resolve(c.value("destination"), found, segue.destinationIdentifier);
    if (!found) warn("segue " + segue.archiveIdentifier.UTF8String() + ": no object " + segue.destinationIdentifier.UTF8String());
    scenes_->segues.push_back(std::move(segue));
  }

  static bool isPlaceholderNode(pugi::xml_node n) {
    const char* id = n.attribute("id").value();
    return is(n, "placeholder") || std::strcmp(id, "-1") == 0 || std::strcmp(id, "-2") == 0 ||
           std::strcmp(id, "-3") == 0 || std::strcmp(n.attribute("customClass").value(), "FirstResponder") == 0;
  }

  std::shared_ptr<Object> placeholderFor(pugi::xml_node n) const {
    const char* id = n.attribute("id").value();
    if (std::strcmp(id, "-2") == 0) return options_.owner;
    if (std::strcmp(id, "-3") == 0) return options_.application;
    return nullptr;
  }

  void warn(std::string message) { charge(nib_.addWarning(std::move(message))); }

  // <resources><image name="..."><mutableData key="keyedArchiveRepresentation">: images the
  // document holds itself.
  void readImageResources(pugi::xml_node resources) {
    for (pugi::xml_node image = resources.child("image"); image; image = image.next_sibling("image")) {
      pugi::xml_node data = keyed(image, "keyedArchiveRepresentation");
      if (!data || !hasAttr(image, "name")) continue;
      const std::string bytes = archive::decodeBase64(data.child_value());
      const std::string_view file = imageFileInArchive(bytes);
      if (file.empty()) {
        warn(std::string("image ") + image.attribute("name").value() + ": no TIFF or PNG in its archive");
        continue;
      }
      nib_.embeddedImages_[attr(image, "name")] = Data::withString(file);
    }
  }

  // Makes the object for an element of base class Base: the registered custom class when it is a
  // Base, else `fallback`.
  template <class Base, class Fallback>
  std::shared_ptr<Base> make(const Element& n, const Fallback& fallback) {
    std::shared_ptr<Base> object;
    const String custom = attr(n, "customClass");
    if (!custom.isNil()) {
      object = as<Base>(registry_.makeObject(custom));
      if (!object) {
        if constexpr (std::is_base_of_v<Window, Base>) {
          if (custom.view() == u"NSPanel") object = create<Panel>();
        }
      }
    }
    if (!object) {
      object = fallback();
      if (!custom.isNil() && !(custom == String(object->className()))) object->setCustomClassName(custom);
    }
    return object;
  }

  void charge(std::size_t bytes) {
    used_ += bytes;
    if (used_ > budget_) {
      throw ReadFailure{"the interface needs more than " + std::to_string(budget_ / (1024 * 1024)) +
                        " MB of memory, over what a document of this size may take"};
    }
  }

  void remember(const Element& n, const std::shared_ptr<InterfaceObject>& object) {
    charge(kObjectCost);
    made_.push_back(object);
    String id;
    if (const char* text = n.value("id")) {
      const std::string_view archived(text);
      id = String::fromUTF8(archived, arena_);
      object->setArchiveIdentifier(id);
      addIdentified(archived, id);
    }
    if (const char* label = n.value("userLabel")) object->setUserLabel(str(label));
    if (pugi::xml_node note = keyed(n, "userComments")) object->setUserComments(textOf(note));
    if (pugi::xml_node c = n.child("connections")) pending_.push_back({c, object, id});
  }

  // --- dispatch ----------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decode(pugi::xml_node node, int depth) {
    if (depth > kMaxDepth) throw ReadFailure{"the objects are nested too deeply"};
    if (!node.first_child() && Name("constraint").equals(node.name())) {
      if (auto constraint = decodeLeafConstraint(node)) return constraint;
    }
    const Element n = Element(node);
    const char* e = n.name();
    if (is(n, "window") || is(n, "panel")) return decodeWindow(n, depth);
    if (is(n, "windowController")) return decodeWindowController(n, depth);
    if (is(n, "viewController") || is(n, "tabViewController") || is(n, "splitViewController") ||
        is(n, "pagecontroller")) {
      return decodeViewController(n, depth);
    }
    if (is(n, "splitViewItem")) return decodeSplitViewItem(n, depth);
    if (is(n, "menu")) return decodeMenu(n, depth);
    if (is(n, "menuItem")) return decodeMenuItem(n, depth);
    if (is(n, "tabViewItem")) return decodeTabViewItem(n, depth);
    if (is(n, "tableColumn")) return decodeTableColumn(n, depth);
    if (is(n, "toolbar")) return decodeToolbar(n, depth);
    if (n.nameEndsWith("oolbarItem")) return decodeToolbarItem(n, depth);
    if (n.nameEndsWith("Cell")) return decodeCell(n, depth);
    // A constraint is never a view, and with no child element cannot pass for one (most of a
    // document's objects are such constraints).
    const bool leafConstraint = is(n, "constraint") && !n.hasChildElements();
    if (!leafConstraint) {
      if (std::shared_ptr<View> view = decodeViewElement(n, depth)) return view;
    }
    // Controllers, formatters, constraints, host objects.
    auto object = make<InterfaceObject>(n, [&] {
      static const String object = u"NSObject", constraint = u"NSLayoutConstraint";
      auto g = create<GenericObject>(is(n, "customObject") ? object
                                               : is(n, "constraint") ? constraint
                                                                     : platformName(e));
      // Kept as archived until asked for: most are constraints nobody reads. Each name and value
      // with its terminating zero, measured once into the read's scratch string, then copied into the
      // interface's arena.
      char* out = packing_.data();
      n.eachAttribute([&](const char* name, const char* value) {
        out = pack(out, name, std::strlen(name), value, std::strlen(value));
      });
      g->setArchivedAttributes(std::string_view(packing_.data(), static_cast<std::size_t>(out - packing_.data())), arena_);
      return std::static_pointer_cast<InterfaceObject>(g);
    });
    remember(n, object);
    return object;
  }

  // Appends an attribute's name and value, each with its terminating zero, to the packing at `out`;
  // gives where the packing now ends.
  char* pack(char* out, const char* name, std::size_t nameLength, const char* value, std::size_t valueLength) {
    out = packing_.room(out, nameLength + valueLength + 2);
    std::memcpy(out, name, nameLength + 1);
    out += nameLength + 1;
    std::memcpy(out, value, valueLength + 1);
    return out + valueLength + 1;
  }

  // A constraint with nothing inside (most of a document's objects): the generic object the
  // general path makes for it, from one walk over its attributes that packs them and picks out its
  // identifier and label on the way. nullptr for one with a custom class, which takes that path.
  std::shared_ptr<InterfaceObject> decodeLeafConstraint(pugi::xml_node node) {
    static const String constraint = u"NSLayoutConstraint";
    const char* id = nullptr;
    std::size_t idLength = 0;
    const char* label = nullptr;
    char* out = packing_.data();
    for (pugi::xml_attribute a = node.first_attribute();; a = a.next_attribute()) {
      const char* name = a.name();
      if (!name[0]) break;  // past the last attribute
      const char* value = a.value();
      const std::size_t nameLength = std::strlen(name), valueLength = std::strlen(value);
      if (name[0] == 'i' && name[1] == 'd' && !name[2]) {
        if (!id) id = value, idLength = valueLength;
      } else if (name[0] == 'u' && !label && Name("userLabel").equals(name)) {
        label = value;
      } else if (name[0] == 'c' && Name("customClass").equals(name)) {
        return nullptr;
      }
      out = pack(out, name, nameLength, value, valueLength);
    }
    auto g = create<GenericObject>(constraint);
    g->setArchivedAttributes(std::string_view(packing_.data(), static_cast<std::size_t>(out - packing_.data())), arena_);
    charge(kObjectCost);
    made_.push_back(g);
    if (id) {
      const std::string_view archived(id, idLength);
      String identifier = String::fromUTF8(archived, arena_);
      addIdentified(archived, identifier);
      g->setArchiveIdentifier(std::move(identifier));
    }
    if (label) g->setUserLabel(str(label));
    return g;
  }

  // --- views ---------------------------------------------------------------------------------------

  // A control the model gives a cell of its own, made without it when the element's cell (decoded
  // right after, always into a cell) replaces it.
  template <class T>
  std::shared_ptr<T> createControl(bool cellFollows) {
    return cellFollows ? create<T>(NoDefaultCell{}) : create<T>();
  }

  std::shared_ptr<View> decodeViewElement(const Element& n, int depth) {
    const char* e = n.name();
    std::shared_ptr<View> view;
    const pugi::xml_node cellElement = keyed(n, "cell");
    const bool cellFollows = cellElement && endsWith(cellElement.name(), "Cell");
    if (is(n, "button")) {
      view = make<View>(n, [&] { return createControl<Button>(cellFollows); });
    } else if (is(n, "popUpButton")) {
      view = make<View>(n, [&] { return createControl<PopUpButton>(cellFollows); });
    } else if (is(n, "comboBox")) {
      view = make<View>(n, [&] { return createControl<ComboBox>(cellFollows); });
    } else if (is(n, "tokenField")) {
      view = make<View>(n, [&] { return createControl<TokenField>(cellFollows); });
    } else if (is(n, "textField") || is(n, "secureTextField")) {
      view = make<View>(n, [&] {
        auto f = createControl<TextField>(cellFollows);
        if (!is(n, "textField")) f->setClassName(platformName(e));
        return f;
      });
    } else if (is(n, "searchField")) {
      view = make<View>(n, [&] { return createControl<SearchField>(cellFollows); });
    } else if (is(n, "box")) {
      view = make<View>(n, [this] { return create<Box>(); });
    } else if (is(n, "matrix")) {
      view = make<View>(n, [this] { return create<Matrix>(); });
    } else if (is(n, "tabView")) {
      view = make<View>(n, [this] { return create<TabView>(); });
    } else if (is(n, "tableView")) {
      view = make<View>(n, [this] { return create<TableView>(); });
    } else if (is(n, "outlineView")) {
      view = make<View>(n, [this] { return create<OutlineView>(); });
    } else if (is(n, "scrollView")) {
      view = make<View>(n, [this] { return create<ScrollView>(); });
    } else if (is(n, "clipView")) {
      view = make<View>(n, [this] { return create<ClipView>(); });
    } else if (is(n, "segmentedControl")) {
      view = make<View>(n, [&] { return createControl<SegmentedControl>(cellFollows); });
    } else if (is(n, "progressIndicator")) {
      view = make<View>(n, [this] { return create<ProgressIndicator>(); });
    } else if (is(n, "imageView")) {
      view = make<View>(n, [&] { return createControl<ImageView>(cellFollows); });
    } else if (is(n, "stackView")) {
      view = make<View>(n, [this] { return create<StackView>(); });
    } else if (is(n, "gridView")) {
      view = make<View>(n, [this] { return create<GridView>(); });
    } else if (is(n, "predicateEditor") || is(n, "ruleEditor")) {
      view = make<View>(n, [&] {
        auto r = create<RuleEditor>();
        if (is(n, "predicateEditor")) r->setClassName(u"NSPredicateEditor");
        return r;
      });
    } else if (is(n, "textView")) {
      view = make<View>(n, [this] { return create<TextView>(); });
    } else if (is(n, "view") || is(n, "customView") || is(n, "containerView")) {
      view = make<View>(n, [this] { return create<View>(); });
    } else if (cellElement) {
      // Controls the model has no class for (steppers, sliders, date pickers...).
      view = make<View>(n, [&] {
        auto c = create<Control>();
        c->setClassName(platformName(e));
        return c;
      });
    } else if (keyed(n, "frame") || n.child("subviews")) {
      view = make<View>(n, [&] {
        auto v = create<View>();
        v->setClassName(platformName(e));
        if (is(n, "textView")) v->setFlipped(true);
        return v;
      });
    } else {
      return nullptr;
    }
    remember(n, view);
    decodeView(n, *view, depth);
    return view;
  }

  void decodeView(const Element& n, View& view, int depth) {
    if (auto frame = rectChild(n, "frame")) view.setFrame(*frame);
    view.setHidden(boolAttr(n, "hidden", false));
    if (String tip = stringProp(n, "toolTip"); !tip.isNil()) view.setToolTip(tip);
    view.setTag(static_cast<long>(numberAttr(n, "tag", 0)));
    if (hasAttr(n, "identifier")) view.setIdentifier(attr(n, "identifier"));
    if (const Element mask = keyed(n, "autoresizingMask")) {
      static constexpr Name kFlags[] = {"flexibleMinX", "widthSizable", "flexibleMaxX",
                                        "flexibleMinY", "heightSizable", "flexibleMaxY"};
      unsigned bits = 0;
      for (unsigned i = 0; i < 6; ++i) {
        if (boolAttr(mask, kFlags[i], false)) bits |= 1u << i;
      }
      view.setAutoresizingMask(bits);
    }
    if (pugi::xml_node menu = keyed(n, "menu"); menu && is(menu, "menu") && !as<PopUpButton>(&view)) {
      view.setContextMenu(decodeMenu(menu, depth + 1));
    }

    if (auto* control = as<Control>(&view)) {
      if (pugi::xml_node c = keyed(n, "cell")) {
        if (auto cell = as<Cell>(decode(c, depth + 1))) {
          control->setCell(cell);
        } else {
          warn(std::string("the cell of ") + n.name() + " is not a cell");
        }
      }
      if (hasAttr(n, "enabled") && control->cell()) control->cell()->setEnabled(boolAttr(n, "enabled", true));
    }

    // Class-specific parts before the generic subviews, so that e.g. a box's content view exists.
    if (auto* box = as<Box>(&view)) decodeBox(n, *box, depth);
    if (auto* matrix = as<Matrix>(&view)) decodeMatrix(n, *matrix, depth);
    if (auto* tabs = as<TabView>(&view)) decodeTabView(n, *tabs, depth);
    if (auto* table = as<TableView>(&view)) decodeTableView(n, *table, depth);
    if (auto* scroll = as<ScrollView>(&view)) decodeScrollView(n, *scroll, depth);
    if (auto* clip = as<ClipView>(&view)) clip->setDrawsBackground(boolAttr(n, "drawsBackground", true));
    if (auto* progress = as<ProgressIndicator>(&view)) {
      progress->setMinValue(numberAttr(n, "minValue", progress->minValue()));
      progress->setMaxValue(numberAttr(n, "maxValue", progress->maxValue()));
      progress->setDoubleValue(numberAttr(n, "doubleValue", progress->doubleValue()));
      progress->setIndeterminate(boolAttr(n, "indeterminate", false));
      progress->setDisplayedWhenStopped(boolAttr(n, "displayedWhenStopped", true));
      progress->setStyle(std::strcmp(n.text("style"), "spinning") == 0 ? ProgressIndicator::Style::Spinning
                                                                                   : ProgressIndicator::Style::Bar);
    }
    if (auto* stack = as<StackView>(&view)) decodeStackView(n, *stack, depth);
    if (auto* text = as<TextView>(&view)) decodeTextView(n, *text);
    if (auto* grid = as<GridView>(&view)) decodeGridView(n, *grid, depth);
    if (auto* rules = as<RuleEditor>(&view)) decodeRuleEditor(n, *rules, depth);

    for (pugi::xml_node c = n.child("constraints").first_child();; c = c.next_sibling()) {
      const pugi::xml_node_type type = c.type();
      if (type == pugi::node_null) break;  // past the last child
      if (type == pugi::node_element) view.addConstraint(decode(c, depth + 1));
    }

    if (pugi::xml_node subviews = n.child("subviews")) {
      for (pugi::xml_node s = subviews.first_child(); s; s = s.next_sibling()) {
        if (s.type() != pugi::node_element) continue;
        auto sub = as<View>(decode(s, depth + 1));
        if (sub) {
          view.addSubview(sub);
        } else {
          warn(std::string("<") + s.name() + "> in subviews is not a view");
        }
      }
    }
  }

  // The text a text view holds: a <string key="string">, or the fragments of its text storage.
  void decodeTextView(const Element& n, TextView& text) {
    if (String s = stringProp(n, "string"); !s.isNil()) {
      text.setString(s);
    } else if (pugi::xml_node storage = keyed(n, "textStorage")) {
      text.setString(textOf(storage));
    }
    text.setFont(fontChild(n, "font"));
    text.setTextColor(colorChild(n, "textColor"));
    text.setBackgroundColor(colorChild(n, "backgroundColor"));
    text.setDrawsBackground(boolAttr(n, "drawsBackground", true));
    text.setEditable(boolAttr(n, "editable", true));
  }

  void decodeBox(const Element& n, Box& box, int depth) {
    if (String title = stringProp(n, "title"); !title.isNil()) box.setTitle(title);
    box.setTitlePosition(enumAttr(n, "titlePosition", kTitlePositions, TitlePosition::AtTop));
    box.setBoxType(enumAttr(n, "boxType", kBoxTypes, BoxType::Primary));
    box.setBorderType(enumAttr(n, "borderType", kBorderTypes, BorderType::BezelBorder));
    box.setTransparent(boolAttr(n, "transparent", false));
    if (auto font = fontChild(n, "titleFont")) box.setTitleFont(*font);
    if (pugi::xml_node c = keyed(n, "contentView")) {
      box.setContentView(as<View>(decode(c, depth + 1)));
    } else {
      box.setContentView(nullptr);
    }
  }

  void decodeMatrix(const Element& n, Matrix& matrix, int depth) {
    if (auto s = sizeChild(n, "cellSize")) matrix.setCellSize(*s);
    if (auto s = sizeChild(n, "intercellSpacing")) matrix.setIntercellSpacing(*s);
    matrix.setMode(enumAttr(n, "mode", kMatrixModes, MatrixMode::Radio));
    if (pugi::xml_node p = keyed(n, "prototype")) matrix.setPrototype(as<Cell>(decode(p, depth + 1)));
    // Archived column by column; the matrix keeps them row by row.
    std::vector<std::vector<std::shared_ptr<Cell>>> columns;
    std::size_t rows = 0;
    for (pugi::xml_node col = n.child("cells").child("column"); col; col = col.next_sibling("column")) {
      std::vector<std::shared_ptr<Cell>> column;
      for (pugi::xml_node c = col.first_child(); c; c = c.next_sibling()) {
        if (c.type() != pugi::node_element) continue;
        if (auto cell = as<Cell>(decode(c, depth + 1))) column.push_back(cell);
      }
      rows = std::max(rows, column.size());
      columns.push_back(std::move(column));
    }
    // A short column is filled up with one shared empty cell, which keeps the grid whole; the grid
    // counts against the memory bound, so a document cannot declare more grid than it may hold.
    charge(rows * columns.size() * sizeof(std::shared_ptr<Cell>));
    std::vector<std::shared_ptr<Cell>> cells;
    cells.reserve(rows * columns.size());
    std::shared_ptr<Cell> empty;
    for (std::size_t r = 0; r < rows; ++r) {
      for (auto& column : columns) {
        if (r < column.size()) {
          cells.push_back(column[r]);
        } else {
          if (!empty) empty = create<Cell>();
          cells.push_back(empty);
        }
      }
    }
    matrix.setCells(std::move(cells), static_cast<long>(rows), static_cast<long>(rows ? columns.size() : 0));
  }

  void decodeTabView(const Element& n, TabView& tabs, int depth) {
    tabs.setTabViewType(enumAttr(n, "type", kTabTypes, TabViewType::TopTabsBezelBorder));
    if (auto font = fontChild(n, "font")) tabs.setFont(*font);
    for (pugi::xml_node i = n.child("tabViewItems").first_child(); i; i = i.next_sibling()) {
      if (i.type() != pugi::node_element) continue;
      if (auto item = as<TabViewItem>(decode(i, depth + 1))) tabs.addTabViewItem(item);
    }
    if (hasAttr(n, "initialItem")) initialItems_.push_back({&tabs, attr(n, "initialItem")});
  }

  std::shared_ptr<InterfaceObject> decodeTabViewItem(const Element& n, int depth) {
    auto item = make<TabViewItem>(n, [this] { return create<TabViewItem>(); });
    remember(n, item);
    if (String label = stringProp(n, "label"); !label.isNil()) item->setLabel(label);
    if (hasAttr(n, "identifier")) item->setIdentifier(attr(n, "identifier"));
    if (String tip = stringProp(n, "toolTip"); !tip.isNil()) item->setToolTip(tip);
    if (pugi::xml_node v = keyed(n, "view")) item->setView(as<View>(decode(v, depth + 1)));
    return item;
  }

  void decodeTableView(const Element& n, TableView& table, int depth) {
    table.setRowHeight(numberAttr(n, "rowHeight", table.rowHeight()));
    table.setViewBased(boolAttr(n, "viewBased", false));
    table.setUsesAlternatingRowBackgroundColors(boolAttr(n, "alternatingRowBackgroundColors", false));
    if (auto s = sizeChild(n, "intercellSpacing")) table.setIntercellSpacing(*s);
    for (pugi::xml_node c = n.child("tableColumns").first_child(); c; c = c.next_sibling()) {
      if (c.type() != pugi::node_element) continue;
      if (auto column = as<TableColumn>(decode(c, depth + 1))) table.addTableColumn(column);
    }
    if (const char* header = n.value("headerView")) headerViews_.push_back({&table, header});
    if (auto* outline = as<OutlineView>(&table)) {
      outline->setIndentationPerLevel(numberAttr(n, "indentationPerLevel", outline->indentationPerLevel()));
      if (const char* column = n.value("outlineTableColumn")) outlineColumns_.push_back({outline, column});
    }
  }

  std::shared_ptr<InterfaceObject> decodeTableColumn(const Element& n, int depth) {
    auto column = make<TableColumn>(n, [this] { return create<TableColumn>(); });
    remember(n, column);
    if (hasAttr(n, "identifier")) column->setIdentifier(attr(n, "identifier"));
    column->setWidth(numberAttr(n, "width", column->width()));
    column->setMinWidth(numberAttr(n, "minWidth", column->minWidth()));
    column->setMaxWidth(numberAttr(n, "maxWidth", column->maxWidth()));
    column->setHidden(boolAttr(n, "hidden", false));
    column->setEditable(boolAttr(n, "editable", true));
    if (String tip = stringProp(n, "headerToolTip"); !tip.isNil()) column->setHeaderToolTip(tip);
    if (pugi::xml_node h = keyed(n, "headerCell")) column->setHeaderCell(as<Cell>(decode(h, depth + 1)));
    if (pugi::xml_node d = keyed(n, "dataCell")) column->setDataCell(as<Cell>(decode(d, depth + 1)));
    for (pugi::xml_node p = n.child("prototypeCellViews").first_child(); p; p = p.next_sibling()) {
      if (p.type() != pugi::node_element) continue;
      if (auto v = as<View>(decode(p, depth + 1))) column->addPrototypeCellView(v);
    }
    return column;
  }

  void decodeScrollView(const Element& n, ScrollView& scroll, int depth) {
    scroll.setHasVerticalScroller(boolAttr(n, "hasVerticalScroller", true));
    scroll.setHasHorizontalScroller(boolAttr(n, "hasHorizontalScroller", true));
    scroll.setAutohidesScrollers(boolAttr(n, "autohidesScrollers", false));
    if (hasAttr(n, "borderType")) scroll.setBorderType(attr(n, "borderType"));
    if (pugi::xml_node c = keyed(n, "contentView")) {
      if (auto clip = as<ClipView>(decode(c, depth + 1))) scroll.setContentView(clip);
    }
    if (pugi::xml_node s = keyed(n, "verticalScroller")) {
      scroll.setVerticalScroller(as<View>(decode(s, depth + 1)));
    }
    if (pugi::xml_node s = keyed(n, "horizontalScroller")) {
      scroll.setHorizontalScroller(as<View>(decode(s, depth + 1)));
    }
    if (pugi::xml_node h = keyed(n, "headerView")) {
      if (auto header = as<View>(decode(h, depth + 1))) scroll.setHeaderView(header);
    }
  }

  // --- windows -------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeWindow(const Element& n, int depth) {
    auto window = make<Window>(n, [&]() -> std::shared_ptr<Window> {
      if (is(n, "panel")) return create<Panel>();
      return create<Window>();
    });
    remember(n, window);
    if (String title = stringProp(n, "title"); !title.isNil()) window->setTitle(title);
    if (auto r = rectChild(n, "contentRect")) window->setContentRect(*r);
    if (const Element m = keyed(n, "styleMask")) {
      struct Flag {
        Name name;
        unsigned bit;
      };
      static constexpr Flag kFlags[] = {{"titled", NSWindowStyleMaskTitled},
                                        {"closable", NSWindowStyleMaskClosable},
                                        {"miniaturizable", NSWindowStyleMaskMiniaturizable},
                                        {"resizable", NSWindowStyleMaskResizable},
                                        {"utility", NSWindowStyleMaskUtilityWindow},
                                        {"docModal", NSWindowStyleMaskDocModalWindow},
                                        {"nonactivatingPanel", NSWindowStyleMaskNonactivatingPanel},
                                        {"texturedBackground", NSWindowStyleMaskTexturedBackground},
                                        {"unifiedTitleAndToolbar", NSWindowStyleMaskUnifiedTitleAndToolbar},
                                        {"HUD", NSWindowStyleMaskHUDWindow},
                                        {"fullSizeContentView", NSWindowStyleMaskFullSizeContentView}};
      unsigned mask = 0;
      for (const Flag& f : kFlags) {
        if (boolAttr(m, f.name, false)) mask |= f.bit;
      }
      window->setStyleMask(mask);
    }
    if (auto s = sizeChild(n, "minSize")) window->setMinSize(*s);
    if (auto s = sizeChild(n, "maxSize")) window->setMaxSize(*s);
    window->setVisibleAtLaunch(boolAttr(n, "visibleAtLaunch", true));
    window->setReleasedWhenClosed(boolAttr(n, "releasedWhenClosed", true));
    if (hasAttr(n, "frameAutosaveName")) window->setFrameAutosaveName(attr(n, "frameAutosaveName"));
    if (auto* panel = as<Panel>(window.get())) {
      panel->setFloatingPanel(boolAttr(n, "floatingPanel", false) || std::strcmp(n.text("level"), "floating") == 0);
      panel->setBecomesKeyOnlyIfNeeded(boolAttr(n, "becomesKeyOnlyIfNeeded", false));
    }
    if (pugi::xml_node c = keyed(n, "contentView")) {
      window->setContentView(as<View>(decode(c, depth + 1)));
    }
    if (pugi::xml_node t = n.child("toolbar")) window->setToolbar(decode(t, depth + 1));
    return window;
  }

  // --- controllers ----------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeWindowController(const Element& n, int depth) {
    auto controller = make<WindowController>(n, [this] { return create<WindowController>(); });
    remember(n, controller);
    if (pugi::xml_node w = keyed(n, "window")) controller->setWindow(as<Window>(decode(w, depth + 1)));
    return controller;
  }

  // View controllers with their view; tab and split view controllers with their tab or split view
  // and items. In a storyboard the items wait for the controllers their relationships name; in a
  // document without scenes a tab view controller's items go to its tab view as they are.
  std::shared_ptr<InterfaceObject> decodeViewController(const Element& n, int depth) {
    auto controller = make<ViewController>(n, [&]() -> std::shared_ptr<ViewController> {
      if (is(n, "tabViewController")) return create<TabViewController>();
      if (is(n, "splitViewController")) return create<SplitViewController>();
      auto c = create<ViewController>();
      if (is(n, "pagecontroller")) c->setClassName(u"NSPageController");
      return c;
    });
    remember(n, controller);
    if (String title = stringProp(n, "title"); !title.isNil()) controller->setTitle(title);
    if (hasAttr(n, "nibName")) controller->setNibName(attr(n, "nibName"));
    if (pugi::xml_node v = keyed(n, "view")) controller->setView(as<View>(decode(v, depth + 1)));
    archive::PendingItems pending;
    pending.controller = controller;
    if (auto* tabs = as<TabViewController>(controller.get())) {
      if (hasAttr(n, "tabStyle")) tabs->setTabStyle(attr(n, "tabStyle"));
      if (pugi::xml_node t = keyed(n, "tabView")) {
        auto tabView = as<TabView>(decode(t, depth + 1));
        tabs->setTabView(tabView);
        if (tabView && !tabs->view()) tabs->setView(tabView);
      }
      for (pugi::xml_node i = n.child("tabViewItems").first_child(); i; i = i.next_sibling()) {
        if (i.type() != pugi::node_element) continue;
        auto item = as<TabViewItem>(decode(i, depth + 1));
        if (!item) continue;
        if (hasAttr(i, "image")) item->setImageName(attr(i, "image"));
        if (scenes_) {
          pending.items.push_back(item);
        } else if (auto tabView = tabs->tabView()) {
          tabView->addTabViewItem(item);
        }
      }
    }
    if (auto* split = as<SplitViewController>(controller.get())) {
      if (pugi::xml_node v = keyed(n, "splitView")) {
        auto splitView = as<View>(decode(v, depth + 1));
        split->setSplitView(splitView);
        if (splitView && !split->view()) split->setView(splitView);
        split->setVertical(boolAttr(v, "vertical", true));
      }
      for (pugi::xml_node i = n.child("splitViewItems").first_child(); i; i = i.next_sibling()) {
        if (i.type() != pugi::node_element) continue;
        auto item = as<SplitViewItem>(decode(i, depth + 1));
        if (!item) continue;
        if (scenes_) {
          pending.items.push_back(item);
        } else {
          split->addSplitViewItem(item);
        }
      }
    }
    if (scenes_ && !pending.items.empty()) scenes_->pendingItems.push_back(std::move(pending));
    return controller;
  }

  std::shared_ptr<InterfaceObject> decodeSplitViewItem(const Element& n, int) {
    auto item = make<SplitViewItem>(n, [this] { return create<SplitViewItem>(); });
    remember(n, item);
    item->setCanCollapse(boolAttr(n, "canCollapse", false));
    item->setCollapsed(boolAttr(n, "collapsed", false));
    if (hasAttr(n, "behavior")) item->setBehavior(attr(n, "behavior"));
    return item;
  }

  // --- grid views and rule editors -----------------------------------------------------------------

  // Rows and columns by identifier; each cell names its row and column, and holds its content view.
  void decodeGridView(const Element& n, GridView& grid, int depth) {
    grid.setRowSpacing(numberAttr(n, "rowSpacing", grid.rowSpacing()));
    grid.setColumnSpacing(numberAttr(n, "columnSpacing", grid.columnSpacing()));
    if (hasAttr(n, "xPlacement")) grid.setXPlacement(recurring_(n.value("xPlacement")));
    if (hasAttr(n, "yPlacement")) grid.setYPlacement(recurring_(n.value("yPlacement")));
    if (hasAttr(n, "rowAlignment")) grid.setRowAlignment(recurring_(n.value("rowAlignment")));
    std::vector<String> rowIds, columnIds;
    for (pugi::xml_node r = n.child("rows").child("gridRow"); r; r = r.next_sibling("gridRow")) {
      const Element e = Element(r);
      auto row = make<GridRow>(e, [this] { return create<GridRow>(); });
      remember(e, row);
      row->setHeight(numberAttr(e, "height", 0));
      row->setTopPadding(numberAttr(e, "topPadding", 0));
      row->setBottomPadding(numberAttr(e, "bottomPadding", 0));
      if (hasAttr(e, "yPlacement")) row->setYPlacement(recurring_(e.value("yPlacement")));
      if (hasAttr(e, "rowAlignment")) row->setRowAlignment(recurring_(e.value("rowAlignment")));
      row->setHidden(boolAttr(e, "hidden", false));
      grid.addRow(row);
      rowIds.push_back(attr(e, "id"));
    }
    for (pugi::xml_node c = n.child("columns").child("gridColumn"); c; c = c.next_sibling("gridColumn")) {
      const Element e = Element(c);
      auto column = make<GridColumn>(e, [this] { return create<GridColumn>(); });
      remember(e, column);
      column->setWidth(numberAttr(e, "width", 0));
      column->setLeadingPadding(numberAttr(e, "leadingPadding", 0));
      column->setTrailingPadding(numberAttr(e, "trailingPadding", 0));
      if (hasAttr(e, "xPlacement")) column->setXPlacement(recurring_(e.value("xPlacement")));
      column->setHidden(boolAttr(e, "hidden", false));
      grid.addColumn(column);
      columnIds.push_back(attr(e, "id"));
    }
    const auto indexOf = [](const std::vector<String>& ids, const String& id) -> long {
      for (std::size_t i = 0; i < ids.size(); ++i) {
        if (ids[i] == id) return static_cast<long>(i);
      }
      return -1;
    };
    for (pugi::xml_node c = n.child("gridCells").child("gridCell"); c; c = c.next_sibling("gridCell")) {
      const Element e = Element(c);
      auto cell = make<GridCell>(e, [this] { return create<GridCell>(); });
      remember(e, cell);
      if (hasAttr(e, "xPlacement")) cell->setXPlacement(recurring_(e.value("xPlacement")));
      if (hasAttr(e, "yPlacement")) cell->setYPlacement(recurring_(e.value("yPlacement")));
      if (hasAttr(e, "rowAlignment")) cell->setRowAlignment(recurring_(e.value("rowAlignment")));
      std::shared_ptr<View> content;
      if (pugi::xml_node v = keyed(e, "contentView")) content = as<View>(decode(v, depth + 1));
      if (!grid.addCell(cell, indexOf(rowIds, attr(e, "row")), indexOf(columnIds, attr(e, "column")), content)) {
        warn("grid cell " + attr(e, "id").UTF8String() + " names no row or column of its grid");
      }
    }
  }

  // Row templates: each template's pop-up menus become pop-up buttons, and its view elements views.
  void decodeRuleEditor(const Element& n, RuleEditor& rules, int depth) {
    rules.setRowHeight(numberAttr(n, "rowHeight", rules.rowHeight()));
    for (pugi::xml_node t = n.child("rowTemplates").first_child(); t; t = t.next_sibling()) {
      if (t.type() != pugi::node_element) continue;
      const Element e = Element(t);
      auto row = make<RuleEditorRowTemplate>(e, [&] {
        auto r = create<RuleEditorRowTemplate>();
        r->setClassName(platformName(e.name()));
        return r;
      });
      remember(e, row);
      for (pugi::xml_node child = t.first_child(); child; child = child.next_sibling()) {
        if (child.type() != pugi::node_element) continue;
        if (is(child, "popUpMenus")) {
          for (pugi::xml_node m = child.child("menu"); m; m = m.next_sibling("menu")) {
            auto popUp = create<PopUpButton>();
            popUp->setMenu(decodeMenu(m, depth + 2));
            if (popUp->menu() && popUp->menu()->numberOfItems() > 0) popUp->popUpCell()->selectItemAtIndex(0);
            row->addTemplateView(popUp);
          }
        } else if (auto view = decodeViewElement(Element(child), depth + 1)) {
          row->addTemplateView(view);
        }
      }
      rules.addRowTemplate(row);
    }
  }

  // --- toolbars and stack views ------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeToolbar(const Element& n, int depth) {
    auto toolbar = make<Toolbar>(n, [this] { return create<Toolbar>(); });
    remember(n, toolbar);
    toolbar->setIdentifier(hasAttr(n, "identifier") ? attr(n, "identifier") : attr(n, "implicitIdentifier"));
    static constexpr const char* kDisplayModes[] = {"default", "iconAndLabel", "iconOnly", "labelOnly"};
    static constexpr const char* kSizeModes[] = {"default", "regular", "small"};
    toolbar->setDisplayMode(enumAttr(n, "displayMode", kDisplayModes, Toolbar::DisplayMode::Default));
    toolbar->setSizeMode(enumAttr(n, "sizeMode", kSizeModes, Toolbar::SizeMode::Default));
    toolbar->setAllowsUserCustomization(boolAttr(n, "allowsUserCustomization", true));
    toolbar->setAutosavesConfiguration(boolAttr(n, "autosavesConfiguration", true));
    toolbar->setVisible(boolAttr(n, "visible", true));
    for (pugi::xml_node i = n.child("allowedToolbarItems").first_child(); i; i = i.next_sibling()) {
      if (i.type() != pugi::node_element) continue;
      if (auto item = as<ToolbarItem>(decode(i, depth + 1))) toolbar->addAllowedItem(item);
    }
    // Default items refer to allowed ones, or are standard items written in place.
    for (pugi::xml_node i = n.child("defaultToolbarItems").first_child(); i; i = i.next_sibling()) {
      if (i.type() != pugi::node_element) continue;
      std::shared_ptr<ToolbarItem> item;
      if (hasAttr(i, "reference")) {
        item = as<ToolbarItem>(lookUp(i.attribute("reference").value()));
      } else {
        item = as<ToolbarItem>(decode(i, depth + 1));
      }
      if (item) toolbar->addDefaultItem(item);
    }
    return toolbar;
  }

  std::shared_ptr<InterfaceObject> decodeToolbarItem(const Element& n, int depth) {
    auto item = make<ToolbarItem>(n, [&] {
      auto i = create<ToolbarItem>();
      if (!is(n, "toolbarItem")) i->setClassName(platformName(n.name()));
      return i;
    });
    remember(n, item);
    item->setItemIdentifier(hasAttr(n, "identifier") ? attr(n, "identifier") : attr(n, "implicitItemIdentifier"));
    if (String s = stringProp(n, "label"); !s.isNil()) item->setLabel(s);
    if (String s = stringProp(n, "paletteLabel"); !s.isNil()) item->setPaletteLabel(s);
    if (String s = stringProp(n, "toolTip"); !s.isNil()) item->setToolTip(s);
    if (hasAttr(n, "image")) item->setImageName(attr(n, "image"));
    item->setTag(static_cast<long>(numberAttr(n, "tag", 0)));
    item->setEnabled(boolAttr(n, "enabled", true));
    if (auto s = sizeChild(n, "minSize")) item->setMinSize(*s);
    if (auto s = sizeChild(n, "maxSize")) item->setMaxSize(*s);
    if (pugi::xml_node v = keyed(n, "view")) item->setView(as<View>(decode(v, depth + 1)));
    if (pugi::xml_node m = keyed(n, "menuFormRepresentation")) {
      item->setMenuFormRepresentation(as<MenuItem>(decode(m, depth + 1)));
    }
    return item;
  }

  // Stack views list their views in <subviews> (current documents) or per gravity area.
  void decodeStackView(const Element& n, StackView& stack, int depth) {
    stack.setOrientation(std::strcmp(n.text("orientation"), "vertical") == 0
                             ? UserInterfaceLayoutOrientation::Vertical
                             : UserInterfaceLayoutOrientation::Horizontal);
    stack.setSpacing(numberAttr(n, "spacing", 8));
    if (hasAttr(n, "alignment")) stack.setAlignment(attr(n, "alignment"));
    if (hasAttr(n, "distribution")) stack.setDistribution(attr(n, "distribution"));
    struct Area {
      Name element;
      StackViewGravity gravity;
    };
    static constexpr Area kAreas[] = {{"beginningViews", StackViewGravity::Leading},
                                      {"middleViews", StackViewGravity::Center},
                                      {"endViews", StackViewGravity::Trailing},
                                      {"beforeGravityViews", StackViewGravity::Leading},
                                      {"centerGravityViews", StackViewGravity::Center},
                                      {"afterGravityViews", StackViewGravity::Trailing},
                                      {"views", StackViewGravity::Leading}};
    for (const Area& area : kAreas) {
      for (pugi::xml_node v = n.child(area.element).first_child(); v; v = v.next_sibling()) {
        if (v.type() != pugi::node_element) continue;
        auto view = as<View>(decode(v, depth + 1));
        if (view) {
          stack.addView(view, area.gravity);
        } else {
          warn(std::string("<") + v.name() + "> in a stack view is not a view");
        }
      }
    }
  }

  // --- menus ---------------------------------------------------------------------------------------

  std::shared_ptr<Menu> decodeMenu(const Element& n, int depth) {
    if (depth > kMaxDepth) throw ReadFailure{"the objects are nested too deeply"};
    auto menu = make<Menu>(n, [this] { return create<Menu>(); });
    remember(n, menu);
    if (String title = stringProp(n, "title"); !title.isNil()) menu->setTitle(title);
    if (hasAttr(n, "systemMenu")) menu->setSystemMenu(attr(n, "systemMenu"));
    menu->setAutoenablesItems(boolAttr(n, "autoenablesItems", true));
    for (pugi::xml_node i = n.child("items").first_child(); i; i = i.next_sibling()) {
      if (i.type() != pugi::node_element) continue;
      if (auto item = as<MenuItem>(decode(i, depth + 1))) menu->addItem(item);
    }
    return menu;
  }

  std::shared_ptr<InterfaceObject> decodeMenuItem(const Element& n, int depth) {
    auto item = make<MenuItem>(n, [this] { return create<MenuItem>(); });
    remember(n, item);
    item->setSeparatorItem(boolAttr(n, "isSeparatorItem", false));
    if (String title = stringProp(n, "title"); !title.isNil()) item->setTitle(title);
    if (String key = stringProp(n, "keyEquivalent"); !key.isNil()) item->setKeyEquivalent(key);
    // Without a mask element a key equivalent takes the command key.
    unsigned long mask = 1ul << 20;
    if (const Element m = keyed(n, "keyEquivalentModifierMask")) {
      mask = 0;
      if (boolAttr(m, "shift", false)) mask |= 1ul << 17;
      if (boolAttr(m, "control", false)) mask |= 1ul << 18;
      if (boolAttr(m, "option", false)) mask |= 1ul << 19;
      if (boolAttr(m, "command", false)) mask |= 1ul << 20;
    }
    item->setKeyEquivalentModifierMask(mask);
    item->setTag(static_cast<long>(numberAttr(n, "tag", 0)));
    item->setState(stateAttr(n));
    item->setHidden(boolAttr(n, "hidden", false));
    item->setEnabled(boolAttr(n, "enabled", !item->isSeparatorItem()));
    if (hasAttr(n, "image")) item->setImageName(attr(n, "image"));
    if (String tip = stringProp(n, "toolTip"); !tip.isNil()) item->setToolTip(tip);
    if (pugi::xml_node s = keyed(n, "submenu")) item->setSubmenu(decodeMenu(s, depth + 1));
    return item;
  }

  // --- cells ---------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeCell(const Element& n, int depth) {
    const char* e = n.name();
    std::shared_ptr<Cell> cell;
    if (is(n, "buttonCell")) {
      cell = make<Cell>(n, [this] { return create<ButtonCell>(); });
    } else if (is(n, "popUpButtonCell")) {
      cell = make<Cell>(n, [this] { return create<PopUpButtonCell>(); });
    } else if (is(n, "comboBoxCell")) {
      cell = make<Cell>(n, [this] { return create<ComboBoxCell>(); });
    } else if (is(n, "tokenFieldCell")) {
      cell = make<Cell>(n, [this] { return create<TokenFieldCell>(); });
    } else if (is(n, "textFieldCell") || is(n, "secureTextFieldCell")) {
      cell = make<Cell>(n, [&] {
        auto c = create<TextFieldCell>();
        if (!is(n, "textFieldCell")) c->setClassName(platformName(e));
        return c;
      });
    } else if (is(n, "searchFieldCell")) {
      cell = make<Cell>(n, [this] { return create<SearchFieldCell>(); });
    } else if (is(n, "tableHeaderCell")) {
      cell = make<Cell>(n, [this] { return create<TableHeaderCell>(); });
    } else if (is(n, "imageCell")) {
      cell = make<Cell>(n, [this] { return create<ImageCell>(); });
    } else if (is(n, "segmentedCell")) {
      cell = make<Cell>(n, [this] { return create<SegmentedCell>(); });
    } else {
      cell = make<Cell>(n, [&] {
        auto c = create<ActionCell>();
        c->setClassName(platformName(e));
        return c;
      });
    }
    remember(n, cell);

    if (auto font = fontChild(n, "font")) cell->setFont(*font);
    cell->setAlignment(enumAttr(n, "alignment", kAlignments, TextAlignment::Natural));
    cell->setControlSize(enumAttr(n, "controlSize", kControlSizes, ControlSize::Regular));
    const LineBreakMode mode = enumAttr(n, "lineBreakMode", kLineBreaks, LineBreakMode::ByWordWrapping);
    cell->setLineBreakMode(mode);
    const bool scrollable = boolAttr(n, "scrollable", false);
    cell->setScrollable(scrollable);
    if (!scrollable && as<TextFieldCell>(cell.get())) {
      cell->setWraps(mode == LineBreakMode::ByWordWrapping || mode == LineBreakMode::ByCharWrapping);
    }
    cell->setTruncatesLastVisibleLine(boolAttr(n, "truncatesLastVisibleLine", false));
    cell->setEnabled(boolAttr(n, "enabled", true));
    cell->setEditable(boolAttr(n, "editable", false));
    cell->setSelectable(boolAttr(n, "selectable", false) || cell->isEditable());
    cell->setState(stateAttr(n));
    cell->setTag(static_cast<long>(numberAttr(n, "tag", 0)));
    const char* border = n.text("borderStyle");
    cell->setBordered(std::strncmp(border, "border", 6) == 0 || boolAttr(n, "bordered", false));
    cell->setBezeled(std::strcmp(border, "bezel") == 0 || std::strcmp(border, "borderAndBezel") == 0 ||
                     boolAttr(n, "bezeled", false));
    if (hasAttr(n, "image")) cell->setImageName(recurring_(n.value("image")));
    // Values of sliders, steppers, level indicators and date pickers.
    cell->setMinValue(numberAttr(n, "minValue", cell->minValue()));
    cell->setMaxValue(numberAttr(n, "maxValue", cell->maxValue()));
    cell->setDoubleValue(numberAttr(n, "doubleValue", cell->doubleValue()));
    cell->setNumberOfTickMarks(static_cast<long>(numberAttr(n, "numberOfTickMarks", 0)));
    static constexpr Name kStyles[] = {"sliderType", "levelIndicatorStyle", "datePickerStyle"};
    for (const Name& style : kStyles) {
      if (hasAttr(n, style)) cell->setControlStyle(recurring_(n.value(style)));
    }
    // A path control's URL is its value.
    if (pugi::xml_node url = keyed(n, "url"); url && hasAttr(url, "string")) cell->setStringValue(attr(url, "string"));
    if (pugi::xml_node date = keyed(n, "date")) {
      cell->setDoubleValue(numberAttr(date, "timeIntervalSinceReferenceDate", 0));
    }
    if (const Element elements = keyed(n, "datePickerElements")) {
      unsigned bits = 0;
      if (boolAttr(elements, "year", false) || boolAttr(elements, "month", false) || boolAttr(elements, "day", false)) {
        bits |= Cell::DateElementYearMonthDay;
      }
      if (boolAttr(elements, "hour", false) || boolAttr(elements, "minute", false)) bits |= Cell::DateElementHourMinute;
      if (boolAttr(elements, "second", false)) bits |= Cell::DateElementSecond;
      cell->setDateElements(bits);
    }
    if (pugi::xml_node f = keyed(n, "formatter")) cell->setFormatter(decode(f, depth + 1));

    if (auto* button = as<ButtonCell>(cell.get())) decodeButtonCell(n, *button);
    if (auto* popUp = as<PopUpButtonCell>(cell.get())) {
      popUp->setPullsDown(boolAttr(n, "pullsDown", false));
      if (pugi::xml_node m = keyed(n, "menu")) popUp->setMenu(decodeMenu(m, depth + 1));
      if (hasAttr(n, "selectedItem")) selectedItems_.push_back({popUp, attr(n, "selectedItem")});
    }
    if (auto* field = as<TextFieldCell>(cell.get())) {
      if (String p = stringProp(n, "placeholderString"); !p.isNil()) field->setPlaceholderString(p);
      field->setDrawsBackground(boolAttr(n, "drawsBackground", false));
      field->setBackgroundColor(colorChild(n, "backgroundColor"));
      field->setTextColor(colorChild(n, "textColor"));
    }
    if (auto* image = as<ImageCell>(cell.get())) {
      if (hasAttr(n, "imageScaling")) image->setImageScaling(recurring_(n.value("imageScaling")));
    }
    if (auto* combo = as<ComboBoxCell>(cell.get())) {
      // The items: <objectValues> of strings (other values in their text).
      std::vector<String> items;
      for (pugi::xml_node v = n.child("objectValues").first_child(); v; v = v.next_sibling()) {
        if (v.type() != pugi::node_element) continue;
        items.push_back(is(v, "string") ? stringElementText(v) : attr(v, "value"));
      }
      combo->setObjectValues(std::move(items));
      combo->setNumberOfVisibleItems(static_cast<long>(numberAttr(n, "numberOfVisibleItems", 5)));
      combo->setUsesDataSource(boolAttr(n, "usesDataSource", false));
    }
    if (auto* segmented = as<SegmentedCell>(cell.get())) {
      if (hasAttr(n, "trackingMode")) segmented->setTrackingMode(attr(n, "trackingMode"));
      for (pugi::xml_node s = n.child("segments").child("segment"); s; s = s.next_sibling("segment")) {
        Segment segment;
        if (String label = stringProp(s, "label"); !label.isNil()) segment.label = label;
        if (hasAttr(s, "image")) segment.imageName = attr(s, "image");
        if (String tip = stringProp(s, "toolTip"); !tip.isNil()) segment.toolTip = tip;
        segment.width = numberAttr(s, "width", 0);
        segment.tag = static_cast<long>(numberAttr(s, "tag", 0));
        segment.enabled = boolAttr(s, "enabled", true);
        segment.selected = boolAttr(s, "selected", false);
        segmented->addSegment(std::move(segment));
      }
    }
    // The title last: a pop-up cell's title selects among the items decoded above.
    if (!as<PopUpButtonCell>(cell.get())) {
      if (String title = stringProp(n, "title"); !title.isNil()) cell->setTitle(title);
    }
    return cell;
  }

  void decodeButtonCell(const Element& n, ButtonCell& cell) {
    const char* type = n.text("type");
    cell.setButtonType(buttonType(type, keyed(n, "behavior")));
    // Check boxes and radio buttons show their indicator at the left unless the archive says else.
    const bool toggle = std::strcmp(type, "check") == 0 || std::strcmp(type, "radio") == 0;
    cell.setImagePosition(enumAttr(n, "imagePosition", kImagePositions,
                                   toggle ? CellImagePosition::ImageLeft : CellImagePosition::NoImage));
    if (String t = stringProp(n, "alternateTitle"); !t.isNil()) cell.setAlternateTitle(t);
    if (hasAttr(n, "bezelStyle")) cell.setBezelStyle(recurring_(n.value("bezelStyle")));
    if (hasAttr(n, "alternateImage")) cell.setAlternateImageName(attr(n, "alternateImage"));
    if (String k = stringProp(n, "keyEquivalent"); !k.isNil()) cell.setKeyEquivalent(k);
  }

  // The button type from the archived kind and highlight/show-state behaviour.
  static ButtonType buttonType(const char* type, pugi::xml_node behavior) {
    if (std::strcmp(type, "check") == 0) return ButtonType::Switch;
    if (std::strcmp(type, "radio") == 0) return ButtonType::Radio;
    static constexpr Name kNames[] = {"pushIn", "lightByContents", "changeContents", "changeBackground", "changeGray"};
    const auto v = leafAttributes(behavior, kNames);
    const auto yes = [](const char* value) {
      return value && value[0] == 'Y' && value[1] == 'E' && value[2] == 'S' && value[3] == '\0';
    };
    const bool pushIn = yes(v[0]);
    const bool lightByContents = yes(v[1]);
    const bool changeContents = yes(v[2]);
    const bool changeBackground = yes(v[3]) || yes(v[4]);
    if (changeContents) return ButtonType::Toggle;
    if (changeBackground) return pushIn ? ButtonType::PushOnPushOff : ButtonType::OnOff;
    if (lightByContents) return ButtonType::MomentaryChange;
    if (pushIn) return ButtonType::MomentaryPushIn;
    return ButtonType::MomentaryLight;
  }

  // --- cross references and connections ------------------------------------------------------------

  // Adds the object made last, its identifier as archived (`text`) and as made; where the archive
  // gives an identifier twice, the later object holds it. The table is keyed by the archived
  // text, so that connections find their ends without making strings first.
  void addIdentified(std::string_view text, const String& id) {
    byId_.emplace_back(id, static_cast<uint32_t>(made_.size() - 1));
    idHashes_.push_back(identifierHash(id.view()));
    idTexts_.push_back(text);
    if ((byId_.size() + 1) * 2 > idSlots_.size()) {
      // Twice as many slots, every identifier placed again.
      std::vector<uint32_t> slots(std::max<std::size_t>(64, idSlots_.size() * 2), 0);
      idSlots_.swap(slots);
      const std::size_t mask = idSlots_.size() - 1;
      for (uint32_t slot : slots) {
        if (!slot) continue;
        const std::string_view t = idTexts_[slot - 1];
        std::size_t at = bytesHash(t.data(), t.size()) & mask;
        while (idSlots_[at]) at = (at + 1) & mask;
        idSlots_[at] = slot;
      }
    }
    const std::size_t mask = idSlots_.size() - 1;
    for (std::size_t at = bytesHash(text.data(), text.size()) & mask;; at = (at + 1) & mask) {
      uint32_t& slot = idSlots_[at];
      if (!slot || (idTexts_[slot - 1].size() == text.size() && sameBytes(idTexts_[slot - 1].data(), text.data(), text.size()))) {
        slot = static_cast<uint32_t>(byId_.size());
        return;
      }
    }
  }

  // The position plus one in byId_ of the object made with the identifier (where the archive gives
  // one twice, the later); 0 when there is none.
  uint32_t find(std::string_view text) const {
    if (idSlots_.empty()) return 0;
    const std::size_t mask = idSlots_.size() - 1;
    for (std::size_t at = bytesHash(text.data(), text.size()) & mask;; at = (at + 1) & mask) {
      const uint32_t slot = idSlots_[at];
      if (!slot || (idTexts_[slot - 1].size() == text.size() && sameBytes(idTexts_[slot - 1].data(), text.data(), text.size()))) return slot;
    }
  }
  // The object made with the archived identifier `text` (nullptr: none given).
  std::shared_ptr<Object> lookUp(const char* text) const {
    const uint32_t at = find(text ? text : "");
    return at ? std::shared_ptr<Object>(made_[byId_[at - 1].second]) : nullptr;
  }

  void resolveReferences() {
    for (auto& [table, id] : headerViews_) {
      auto header = as<View>(lookUp(id));
      // A header view that contains the table would own its owner.
      if (header && !table->isDescendantOf(header.get())) {
        table->setHeaderView(header);
      } else {
        warn(std::string("table header view ") + id + " not found");
      }
    }
    for (auto& [outline, id] : outlineColumns_) {
      auto column = as<TableColumn>(lookUp(id));
      if (column) outline->setOutlineTableColumn(column);
    }
    for (auto& [tabs, id] : initialItems_) {
      for (long i = 0; i < tabs->numberOfTabViewItems(); ++i) {
        if (tabs->tabViewItemAtIndex(i)->archiveIdentifier() == id) tabs->selectTabViewItemAtIndex(i);
      }
    }
    for (auto& [popUp, id] : selectedItems_) {
      auto menu = popUp->menu();
      for (long i = 0; menu && i < menu->numberOfItems(); ++i) {
        if (menu->itemAtIndex(i)->archiveIdentifier() == id) popUp->selectItemAtIndex(i);
      }
    }
  }

  // Resolves a connection end given as archived (`text`, nullptr when absent): placeholders, then
  // the archive's objects. `found` is false for an unknown identifier; First Responder resolves to
  // nullptr with found true. `id` is set to the identifier (nil when absent).
  std::shared_ptr<Object> resolve(const char* text, bool& found, String& id) {
    found = true;
    const std::string_view v = text ? std::string_view(text) : std::string_view();
    if (const uint32_t at = isPlaceholderId(v) ? 0 : find(v)) {
      id = text ? byId_[at - 1].first : String();
      return made_[byId_[at - 1].second];
    }
    id = recurring_(text);
    if (v == "-1") return nullptr;
    if (v == "-2") return options_.owner;
    if (v == "-3") return options_.application;
    // A storyboard scene's own First Responder and Application placeholders.
    for (std::string_view r : responderChainIds_) {
      if (r == v) return nullptr;
    }
    for (std::string_view a : applicationIds_) {
      if (a == v) return options_.application;
    }
    found = false;
    return nullptr;
  }
  // Whether the identifier names a placeholder rather than an object of the archive.
  bool isPlaceholderId(std::string_view v) const {
    if (v == "-1" || v == "-2" || v == "-3") return true;
    for (std::string_view r : responderChainIds_) {
      if (r == v) return true;
    }
    for (std::string_view a : applicationIds_) {
      if (a == v) return true;
    }
    return false;
  }

  bool involvesMissingPlaceholder(const char* text, const std::shared_ptr<Object>& resolved) const {
    if (resolved) return false;
    const std::string_view v = text ? std::string_view(text) : std::string_view();
    if (v == "-2" || v == "-3") return true;
    for (std::string_view a : applicationIds_) {
      if (a == v) return true;
    }
    return false;
  }

  void connect() {
    for (const Pending& p : pending_) {
      for (pugi::xml_node node = p.connections.first_child(); node; node = node.next_sibling()) {
        if (node.type() != pugi::node_element) continue;
        // Outlets and actions (most connections) are read in one pass over their attributes.
        const char* kind = node.name();
        const bool outlet = kind[0] == 'o' && (Name("outlet").equals(kind) || Name("outletCollection").equals(kind));
        if (outlet || (kind[0] == 'a' && Name("action").equals(kind))) {
          static constexpr Name kNames[] = {"property", "destination", "selector", "target", "id"};
          const auto [property, destination, selector, target, id] = leafAttributes(node, kNames);
          if (outlet) {
            connectOutlet(p, property, destination, id);
          } else {
            connectAction(p, selector, target, id);
          }
          continue;
        }
        const Element c = Element(node);
        if (is(c, "binding")) {
          connectBinding(p, c);
        } else if (is(c, "segue")) {
          recordSegue(p, c);
        }
      }
    }
  }

  void connectOutlet(const Pending& p, const char* propertyText, const char* destText, const char* idText) {
    const String property = recurring_(propertyText);
    String destId;
    bool found = false;
    auto destination = resolve(destText, found, destId);
    if (!found) return warn("outlet " + property.UTF8String() + ": no object " + destId.UTF8String());
    if (!p.source || involvesMissingPlaceholder(destText, destination)) return;
    if (auto* receiver = as<NibConnectable>(p.source.get())) receiver->setOutlet(property, destination);
    nib_.connections_.push_back(
        {NibConnection::Kind::Outlet, property, p.sourceId, destId, String(), p.source, destination, idText ? str(idText) : String()});
  }

  void connectAction(const Pending& p, const char* selectorText, const char* targetText, const char* idText) {
    const String selector = recurring_(selectorText);
    String targetId;
    bool found = false;
    auto target = resolve(targetText, found, targetId);
    if (!found) return warn("action " + selector.UTF8String() + ": no object " + targetId.UTF8String());
    if (!p.source || involvesMissingPlaceholder(targetText, target)) return;
    Object* sender = p.source.get();
    if (auto* control = as<Control>(sender)) {
      control->setTarget(target);
      control->setAction(selector);
    } else if (auto* cell = as<ActionCell>(sender)) {
      cell->setTarget(target);
      cell->setAction(selector);
    } else if (auto* item = as<MenuItem>(sender)) {
      item->setTarget(target);
      item->setAction(selector);
    } else if (auto* toolbarItem = as<ToolbarItem>(sender)) {
      toolbarItem->setTarget(target);
      toolbarItem->setAction(selector);
    }
    if (auto* receiver = as<NibConnectable>(target.get())) receiver->connectAction(selector, p.source);
    nib_.connections_.push_back(
        {NibConnection::Kind::Action, selector, p.sourceId, targetId, String(), p.source, target, idText ? str(idText) : String()});
  }

  void connectBinding(const Pending& p, const Element& c) {
    const String name = recurring_(c.value("name"));
    const String keyPath = recurring_(c.value("keyPath"));
    String destId;
    bool found = false;
    auto destination = resolve(c.value("destination"), found, destId);
    if (!found) warn("binding " + name.UTF8String() + ": no object " + destId.UTF8String());
    auto* bindable = as<Bindable>(p.source.get());
    if (!bindable) return;
    std::vector<Dictionary::Entry> options;
    for (pugi::xml_node option = keyed(c, "options").first_child(); option; option = option.next_sibling()) {
      if (option.type() != pugi::node_element) continue;
      const Element o(option);
      bool understood = false;
      Value v = optionValue(o, understood);
      if (!understood) {
        warn("binding " + name.UTF8String() + ": option " + o.text("key") + " of kind <" + o.name() +
             "> skipped");
        continue;
      }
      if (!v.isNil()) options.emplace_back(recurring_(o.value("key")), std::move(v));
    }
    bindable->bind(name, destination, keyPath, Dictionary(std::move(options)), arena_);
    nib_.connections_.push_back(
        {NibConnection::Kind::Binding, name, p.sourceId, destId, keyPath, p.source, destination, attr(c, "id")});
  }

  const NibLoadOptions& options_;
  const ClassRegistry& registry_;
  std::size_t budget_;
  std::size_t used_ = 0;
  Arena arena_;
  Nib nib_;
  RecurringStrings recurring_;
  mutable RememberedCasts casts_;
  std::vector<std::shared_ptr<InterfaceObject>> made_;
  // Every identified object in the order made (by its position in made_, which holds every object
  // while the read runs), and an open table of their positions (plus one) by identifier hash, at
  // most half full.
  std::vector<std::pair<String, uint32_t>> byId_;
  std::vector<std::string_view> idTexts_;
  std::vector<uint64_t> idHashes_;  // identifierHash of each in byId_, for the interface's table
  std::vector<uint32_t> idSlots_;
  std::vector<Pending> pending_;
  // Where a generic object's attributes are packed before they are copied out at their size.
  PackingBuffer packing_;
  // Identifiers as archived (texts of the parsed document, which outlives the read).
  std::vector<std::pair<TableView*, const char*>> headerViews_;
  std::vector<std::pair<OutlineView*, const char*>> outlineColumns_;
  std::vector<std::pair<TabView*, String>> initialItems_;
  std::vector<std::pair<PopUpButtonCell*, String>> selectedItems_;
  // Storyboards: where the scenes go, and the ids of each scene's placeholders.
  archive::DecodedScenes* scenes_ = nullptr;
  std::vector<std::string_view> responderChainIds_;
  std::vector<std::string_view> applicationIds_;
};

std::size_t nibMemoryBound(std::size_t documentSize) { return kNibMemoryBase + kNibMemoryFactor * documentSize; }

namespace archive {

NibReadResult readDocumentScenes(const pugi::xml_document& doc, const NibLoadOptions& options, std::size_t budget,
                                 DecodedScenes& scenes) {
  try {
    NibBuilder builder(options, budget, std::size_t{64} << 10);
    return NibReadResult(builder.build(doc, &scenes));
  } catch (const ReadFailure& failure) {
    return NibReadResult(NibReadError{failure.reason, -1});
  } catch (const Exception& e) {
    return NibReadResult(NibReadError{std::string("inconsistent document: ") + e.what(), -1});
  }
}

}  // namespace archive

namespace {

NibReadResult failed(std::string reason) { return NibReadResult(NibReadError{std::move(reason), -1}); }

// An XML property list (a keyed archive saved as XML): its DOCTYPE or <plist> root comes before
// any other element.
bool startsLikeXMLPropertyList(std::string_view document) {
  std::size_t at = 0;
  for (int steps = 0; steps < 16 && at < document.size(); ++steps) {
    at = document.find('<', at);
    if (at == std::string_view::npos) return false;
    const std::string_view rest = document.substr(at);
    if (rest.substr(0, 6) == "<plist" || rest.substr(0, 15) == "<!DOCTYPE plist") return true;
    if (rest.substr(0, 2) == "<?" || rest.substr(0, 4) == "<!--" || rest.substr(0, 9) == "<!DOCTYPE") {
      const std::size_t end = document.find('>', at);
      if (end == std::string_view::npos) return false;
      at = end + 1;
      continue;
    }
    return false;
  }
  return false;
}

// Decodes the keyed-object graph a container produced; contract failures of the model become errors.
NibReadResult decodeArchive(const archive::KeyedArchive& graph, const NibLoadOptions& options, const char* type,
                            std::size_t budget) {
  try {
    return NibReadResult(
        decodeKeyedArchive(graph, options, String::fromUTF8(type), budget - std::min(budget, graph.memoryUsed())));
  } catch (const NibDecodeFailure& failure) {
    return failed(failure.reason);
  } catch (const Exception& e) {
    return failed(std::string("inconsistent archive: ") + e.what());
  }
}

}  // namespace

namespace {

NibReadResult readDocument(std::string_view document, const NibLoadOptions& options) {
  if (document.size() > kMaxNibDocumentSize) {
    return failed("the document is " + std::to_string(document.size() >> 20) + " MB; interface documents over " +
                  std::to_string(kMaxNibDocumentSize >> 20) + " MB are not read");
  }
  const std::size_t budget = nibMemoryBound(document.size());
  const bool plist = document.substr(0, 7) == "bplist0";
  if (plist || document.substr(0, 10) == "NIBArchive") {
    archive::KeyedArchive graph;
    archive::ArchiveError error;
    const bool read = plist ? archive::readKeyedPlistArchive(document, budget, graph, error)
                            : archive::readNIBArchive(document, budget, graph, error);
    if (!read) return failed((plist ? "damaged compiled interface: " : "damaged NIBArchive: ") + error.reason);
    return decodeArchive(graph, options, plist ? "NSKeyedArchiver" : "NIBArchive", budget);
  }
  if (startsLikeXMLPropertyList(document)) {
    archive::KeyedArchive graph;
    archive::ArchiveError error;
    if (!archive::readKeyedXMLPlistArchive(document, budget, graph, error)) {
      return failed("damaged compiled interface (XML property list): " + error.reason);
    }
    return decodeArchive(graph, options, "NSKeyedArchiver", budget);
  }
  pugi::xml_document doc;
  pugi::xml_parse_result parsed = doc.load_buffer(document.data(), document.size(), pugi::parse_default);
  if (!parsed) {
    return NibReadResult(NibReadError{std::string("not well-formed XML at offset ") + std::to_string(parsed.offset) + ": " +
                                          parsed.description(),
                                      static_cast<long long>(parsed.offset)});
  }
  pugi::xml_node root = doc.document_element();
  if (root && is(root, "archive")) {
    const std::string type = root.attribute("type").value();
    if (!type.empty() && type.find(".Cocoa.") == std::string::npos) {
      return failed("not a Cocoa interface archive (type " + type + ")");
    }
    archive::KeyedArchive graph;
    archive::ArchiveError error;
    const std::size_t parsed = kParsedXMLFactor * document.size();
    if (!archive::readXMLArchive(root, budget - std::min(budget, parsed), graph, error)) {
      return failed("damaged XML archive: " + error.reason);
    }
    doc.reset();  // the graph holds everything the decoder needs
    return decodeArchive(graph, options, type.empty() ? "com.apple.InterfaceBuilder3.Cocoa.XIB" : type.c_str(),
                         budget);
  }
  if (root && is(root, "document") && root.child("scenes")) {
    return archive::assembleStoryboardDocument(doc, options, budget - std::min(budget, kParsedXMLFactor * document.size()));
  }
  try {
    NibBuilder builder(options, budget - std::min(budget, kParsedXMLFactor * document.size()), document.size());
    return NibReadResult(builder.build(doc));
  } catch (const ReadFailure& failure) {
    return failed(failure.reason);
  } catch (const Exception& e) {
    // A contract of the model broken by the document's contents (a view inside itself...).
    return failed(std::string("inconsistent document: ") + e.what());
  }
}

}  // namespace

NibReadResult readNibData(std::string_view document, const NibLoadOptions& options) {
  try {
    return readDocument(document, options);
  } catch (const std::bad_alloc&) {
    // The bound keeps a read well within what a machine has; a process short of memory all the
    // same gets an answer, not an exception.
    return failed("not enough memory to read the interface");
  } catch (const std::length_error&) {
    return failed("not enough memory to read the interface");
  }
}

std::string nibDocumentPath(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return path;
  const std::string folder = path + "/";
  // Versions for different system releases: keyedobjects-NNNNNN.nib, the highest number wins over
  // the others and over the plain keyedobjects.nib, which is for systems older than all of them.
  std::string best;
  unsigned long bestVersion = 0;
  if (DIR* dir = ::opendir(path.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.size() <= 17 || name.rfind("keyedobjects-", 0) != 0 || name.substr(name.size() - 4) != ".nib") continue;
      const std::string digits = name.substr(13, name.size() - 17);
      if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 12) continue;
      const unsigned long version = std::stoul(digits);
      if (best.empty() || version > bestVersion) best = name, bestVersion = version;
    }
    ::closedir(dir);
  }
  if (!best.empty()) return folder + best;
  if (::stat((folder + "keyedobjects.nib").c_str(), &st) == 0 && S_ISREG(st.st_mode)) return folder + "keyedobjects.nib";
  if (::stat((folder + "designable.nib").c_str(), &st) == 0 && S_ISREG(st.st_mode)) return folder + "designable.nib";
  return folder + "keyedobjects.nib";
}

NibReadResult readNibFile(const std::string& path, const NibLoadOptions& options) {
  // Opened first and checked after (a name switched to a FIFO between a look and the open must not
  // make the read wait); a folder is then read through the file it holds.
  RegularFileRead read = readRegularFile(path, kMaxNibDocumentSize);
  std::string file = path;
  if (!read && read.error == EISDIR && isStoryboardPath(path)) {
    StoryboardReadResult storyboard = readStoryboardFile(path, options);
    return storyboard ? storyboard.storyboard().nibResult() : NibReadResult(storyboard.error());
  }
  if (!read && read.error == EISDIR) {
    file = nibDocumentPath(path);
    read = readRegularFile(file, kMaxNibDocumentSize);
    if (!read && read.error == ENOENT) {
      return failed(path + ": a nib folder without keyedobjects.nib, keyedobjects-NNNNNN.nib or designable.nib");
    }
  }
  if (!read) {
    if (read.error == EFBIG) {
      return failed(file + ": interface documents over " + std::to_string(kMaxNibDocumentSize >> 20) +
                    " MB are not read");
    }
    return failed(file + ": " + read.reason);
  }
  const std::string bytes = std::move(read.bytes);
  NibReadResult result = readNibData(bytes, options);
  if (!result) {
    NibReadError error = result.error();
    error.reason = file + ": " + error.reason;
    return NibReadResult(std::move(error));
  }
  if (file != path) result.nib().setResourceFolder(String::fromUTF8(path));
  return result;
}

}  // namespace tq
