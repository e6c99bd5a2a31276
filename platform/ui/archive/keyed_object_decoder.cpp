// The one decoder of keyed interface objects: from the graph of any container to the model.
//
// Objects are decoded by class and key, depth first from the top-level objects, each archive
// object at most once: a second reference gets the object already made (shared references stay
// shared), and a reference back to an object still being decoded through an owning key (a view
// among its own subviews, a menu that is its own submenu) is an error, since the model would own
// itself. Back references (superviews, next responders, control views, parent menus) are never
// followed. Connections, cross references (selected items, header views) and awakeFromNib follow
// once the whole tree exists, as in the XML document reader.
//
// Classes the model has no type for become the nearest base by what they hold: a Control when
// they hold a cell, a View when they have a frame or subviews, an ActionCell for cells, else a
// GenericObject; className() keeps the archived name ("NSStepper").
#include "keyed_object_decoder.h"
#include "remembered_casts.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <type_traits>
#include <utility>

#include "tq/platform/base/arena.h"
#include "tq/platform/base/exception.h"
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

using archive::ArchiveValue;
using archive::KeyedArchive;

namespace {

constexpr int kMaxDepth = 200;
// What one model object may cost, for the memory bound: controls with their cells measure about
// 800 bytes each with the archive's share, so 1 KiB keeps the bound on the safe side.
constexpr std::size_t kObjectCost = 1024;
// A member of a collection kept in a list (a reference, with the list's room to grow), and a
// connection with its bookkeeping (its texts are counted as well).
constexpr std::size_t kMemberCost = 2 * sizeof(std::shared_ptr<Object>);
constexpr std::size_t kConnectionCost = 2 * sizeof(NibConnection);

// A class or key name against a literal, compared in place: the length first, then the bytes as
// a memcmp of a constant size.
template <std::size_t N>
[[gnu::always_inline]] inline bool is(std::string_view s, const char (&literal)[N]) {
  return s.size() == N - 1 && std::memcmp(s.data(), literal, N - 1) == 0;
}

template <std::size_t N>
[[gnu::always_inline]] inline bool endsWith(std::string_view s, const char (&suffix)[N]) {
  return s.size() >= N - 1 && std::memcmp(s.data() + s.size() - (N - 1), suffix, N - 1) == 0;
}

// Up to four numbers of a text: "{{x, y}, {w, h}}", "{w, h}" and "{x, y}" as written by the
// archivers (a colour's components too).
struct Numbers {
  double value[4] = {0, 0, 0, 0};
  std::size_t count = 0;
  std::size_t size() const { return count; }
  bool empty() const { return count == 0; }
  double operator[](std::size_t i) const { return value[i]; }
};

Numbers numbersIn(std::string_view text) {
  Numbers out;
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p < end && *p) {
    if ((*p >= '0' && *p <= '9') || *p == '-' || *p == '.') {
      // Most are whole numbers ("{{20, 20}, {480, 270}}"): read here when the digits end the
      // number and are few enough to be exact, else by from_chars.
      {
        const bool negative = *p == '-';
        const char* q = p + negative;
        uint64_t whole = 0;
        const char* const digits = q;
        while (q < end && *q >= '0' && *q <= '9' && q - digits < 15) whole = whole * 10 + static_cast<uint64_t>(*q++ - '0');
        if (q > digits && (q == end || ((*q < '0' || *q > '9') && *q != '.' && *q != 'e' && *q != 'E'))) {
          const double v = static_cast<double>(whole);
          out.value[out.count++] = negative ? -v : v;
          p = q;
          if (out.count == 4) break;
          continue;
        }
      }
      double v = 0;
      const auto [stop, fault] = std::from_chars(p, end, v);
      if (stop == p) {
        ++p;
        continue;
      }
      // Out of range (a number too large or too small to hold) reads as 0.
      out.value[out.count++] = fault == std::errc() && std::isfinite(v) ? v : 0;
      p = stop;
      if (out.count == 4) break;
    } else {
      ++p;  // also a sign '+', which a number may not begin with here
    }
  }
  return out;
}

// The classes this decoder reads by name, and those the drawing knows by name: a class outside them
// is read as the first of them its declared superclasses reach.
bool isKnownClass(std::string_view cls) {
  static const std::unordered_set<std::string_view> known = {
      "NSWindowTemplate", "NSMenu", "NSMenuItem", "NSTabViewItem", "NSTableColumn", "NSToolbar", "NSToolbarItem",
      "NSCustomObject", "NSCustomView", "NSClassSwapper",
      "NSCell", "NSActionCell", "NSButtonCell", "NSPopUpButtonCell", "NSTextFieldCell", "NSSecureTextFieldCell",
      "NSComboBoxCell", "NSTokenFieldCell", "NSSearchFieldCell", "NSTableHeaderCell", "NSImageCell",
      "NSSegmentedCell", "NSSliderCell", "NSStepperCell", "NSLevelIndicatorCell", "NSDatePickerCell", "NSPathCell",
      "NSView", "NSControl", "NSButton", "NSPopUpButton", "NSTextField", "NSSecureTextField", "NSComboBox",
      "NSTokenField", "NSSearchField", "NSBox", "NSMatrix", "NSTabView", "NSTableView", "NSOutlineView",
      "NSScrollView", "NSClipView", "NSSegmentedControl", "NSImageView", "NSStackView", "NSTextView",
      "NSProgressIndicator", "NSGridView", "NSRuleEditor", "NSPredicateEditor", "NSSlider", "NSStepper",
      "NSLevelIndicator", "NSDatePicker", "NSPathControl", "NSColorWell", "NSSplitView", "NSScroller",
      "NSTableHeaderView", "NSViewController", "NSWindowController", "NSTabViewController",
      "NSSplitViewController", "NSPageController", "NSSplitViewItem", "NSGridRow", "NSGridColumn", "NSGridCell",
      "NSPredicateEditorRowTemplate"};
  return known.count(cls) != 0;
}

bool isViewControllerClass(std::string_view cls) {
  return is(cls, "NSViewController") || is(cls, "NSTabViewController") || is(cls, "NSSplitViewController") ||
         is(cls, "NSPageController");
}

}  // namespace

// Hidden from the library's interface, so that its many small helpers are called directly rather
// than through the dynamic linker's table.
class [[gnu::visibility("hidden")]] KeyedNibDecoder {
 public:
  KeyedNibDecoder(const KeyedArchive& archive, const NibLoadOptions& options, std::size_t budget)
      : a_(archive),
        layout_(archive.layout()),
        options_(options),
        registry_(options.registry ? *options.registry : ClassRegistry::shared()),
        budget_(budget),
        visitBudget_(4 * archive.objectCount() + (std::size_t{1} << 20)),
        memo_(archive.objectCount()),
        state_(archive.objectCount(), 0) {}

  // Texts made by the read live in the same arena as its objects.
  String utf8(std::string_view s) const { return String::fromUTF8(s, arena_); }
  // A class name as a text: the archive's own name of object o is made once per read and shared
  // (texts are immutable), any other name each time.
  String classText(uint32_t o, std::string_view cls) const {
    const std::string_view own = a_.className(o);
    if (cls.data() != own.data() || cls.size() != own.size()) return utf8(cls);
    const uint32_t n = a_.classNameIndex(o);
    if (classTexts_.empty()) classTexts_.resize(a_.nameCount());
    if (classTexts_[n].isNil()) classTexts_[n] = utf8(cls);
    return classTexts_[n];
  }

  Nib build(const String& documentType) {
    nib_.documentType_ = documentType;
    for (uint32_t p : layout_.placeholders) {
      if (p < state_.size()) state_[p] |= kPlaceholder;
    }
    // Windows visible at launch are listed by the object data; without that list all are.
    for (uint32_t w : layout_.visibleWindows) {
      if (w < state_.size()) state_[w] |= kVisibleWindow;
    }
    nib_.topLevelObjects_.reserve(layout_.topLevel.size());
    memberStack_.reserve(64);
    for (uint32_t object : layout_.topLevel) {
      if ((state_[object] & kPlaceholder) || static_cast<int64_t>(object) == layout_.owner) continue;
      if (auto made = decode(object, 0, "the top level")) nib_.topLevelObjects_.push_back(std::move(made));
    }
    resolveReferences();
    nib_.connections_.reserve(layout_.connectors.size());
    for (uint32_t c : layout_.connectors) connect(c);
    // The identifiers as the objects were made with them, listed before any object wakes.
    std::vector<Nib::IdentifiedObject> identified;
    identified.reserve(made_.size() + 2);
    for (const auto& object : memo_) {
      if (object && !object->archiveIdentifier().isNil()) identified.emplace_back(object->archiveIdentifier(), object);
    }
    for (InterfaceObject* object : made_) object->awakeFromNib();
    if (auto owner = as<InterfaceObject>(options_.owner)) owner->awakeFromNib();

    nib_.closeWarnings();
    nib_.objectCount_ = made_.size();
    if (options_.owner) identified.emplace_back(ownerIdentifier(), options_.owner);
    if (options_.application) identified.emplace_back(applicationIdentifier(), options_.application);
    nib_.indexObjects(std::move(identified));
    return std::move(nib_);
  }

 private:
  // --- reading values ------------------------------------------------------------------------------

  // Key names are literals; their archive indexes are looked up once each.
  // A literal's index is kept in a slot chosen by the literal's address; another literal landing
  // in the same slot only costs a fresh look-up.
  [[gnu::always_inline]] uint32_t key(const char* name) const {
    const std::size_t at = (reinterpret_cast<std::uintptr_t>(name) * 0x9E3779B97F4A7C15ull) >> (64 - kKeySlotBits);
    if (keySlots_[at].name != name) [[unlikely]] return lookUpKey(at, name);
    return keySlots_[at].index;
  }
  [[gnu::noinline]] uint32_t lookUpKey(std::size_t at, const char* name) const {
    keySlots_[at] = {name, a_.nameIndex(name)};
    return keySlots_[at].index;
  }
  // Most questions are about the object being read: its entries are indexed by key once (the first
  // of a key counts, as a walk would find it), so that each question is one look-up.
  // The question itself stays small enough to be inlined where it is asked; the indexing, done
  // once per object read (and again when a child's reading came between), is out of line.
  [[gnu::always_inline]] const archive::ArchiveEntry* entry(uint32_t o, const char* name) const {
    const uint32_t k = key(name);
    if (k == KeyedArchive::kNoName) return nullptr;
    if (o != indexed_) indexEntries(o);
    const KeyEntry& e = keyEntries_[k];
    return e.stamp == stamp_ ? a_.begin(o) + e.entry : nullptr;
  }
  [[gnu::noinline]] void indexEntries(uint32_t o) const {
    if (keyEntries_.empty()) keyEntries_.resize(a_.nameCount());
    if (++stamp_ == 0) {
      std::fill(keyEntries_.begin(), keyEntries_.end(), KeyEntry{});
      stamp_ = 1;
    }
    indexed_ = o;
    // Through locals: the stores into the index could otherwise be the stamp's own memory, which
    // would be read again for every entry.
    const archive::ArchiveEntry* first = a_.begin(o);
    KeyEntry* const index = keyEntries_.data();
    const uint32_t stamp = stamp_;
    for (auto i = static_cast<uint32_t>(a_.end(o) - first); i-- > 0;) index[first[i].key] = {stamp, i};
  }
  [[gnu::always_inline]] ArchiveValue get(uint32_t o, const char* name) const {
    const archive::ArchiveEntry* e = entry(o, name);
    return e ? e->value : ArchiveValue{};
  }
  [[gnu::always_inline]] bool has(uint32_t o, const char* name) const { return entry(o, name) != nullptr; }

  // A string value; the table key of a localizable string is recorded on the object being read.
  String string(uint32_t o, const char* key) const { return stringValue(get(o, key), true); }
  // A string value; `recordKey`: as string() does, the table key of a localizable string is
  // recorded on the object being read.
  String stringValue(const ArchiveValue& v, bool recordKey = false) const {
    std::string_view s;
    if (!a_.textOf(v, s)) return String();
    String text = utf8(s);
    if (recordKey) recordLocalizableKey(v);
    return text;
  }
  // The table key of a localizable string value, recorded on the object being read.
  void recordLocalizableKey(const ArchiveValue& v) const {
    if (std::string k; current_ && a_.localizableKeyOf(v, k)) current_->addLocalizableKey(utf8(k));
  }
  double number(uint32_t o, const char* key, double fallback) const {
    double v = 0;
    return a_.numberOf(get(o, key), v) && std::isfinite(v) ? v : fallback;
  }
  long integer(uint32_t o, const char* key, long fallback = 0) const {
    const double v = number(o, key, static_cast<double>(fallback));
    if (v > 9.2e18 || v < -9.2e18) return fallback;
    return static_cast<long>(v);
  }
  bool boolean(uint32_t o, const char* key, bool fallback) const {
    double v = 0;
    return a_.numberOf(get(o, key), v) ? v != 0 : fallback;
  }
  // An object reference under key, or -1.
  [[gnu::always_inline]] int64_t ref(uint32_t o, const char* key) const {
    ArchiveValue v = get(o, key);
    return v.isObject() ? static_cast<int64_t>(v.index) : -1;
  }
  // Collections may be shared by many objects; every member visited counts against a bound
  // proportional to the archive, so that sharing cannot multiply the work without end, and against
  // the memory bound as the reference the visiting object may keep.
  void visit(std::size_t members) {
    visits_ += members;
    if (visits_ > visitBudget_ || members * kMemberCost > budget_ - std::min(budget_, used_)) {
      failure("the archive's objects share their collections more than its size allows");
    }
    used_ += members * kMemberCost;
  }
  // The objects among a collection's members, in order: a run on top of one stack the read shares,
  // given back when the list goes (lists are used while their members are read, so inner ones go
  // first). No heap block per collection.
  class MemberList {
   public:
    MemberList(std::vector<uint32_t>& stack, std::size_t from) : stack_(stack), from_(from), to_(stack.size()) {}
    MemberList(const MemberList&) = delete;
    MemberList& operator=(const MemberList&) = delete;
    ~MemberList() { stack_.resize(from_); }
    // By position, since reading a member may grow the stack (and move it).
    struct Iterator {
      const std::vector<uint32_t>* stack;
      std::size_t at;
      uint32_t operator*() const { return (*stack)[at]; }
      Iterator& operator++() { return ++at, *this; }
      bool operator!=(const Iterator& other) const { return at != other.at; }
    };
    Iterator begin() const { return {&stack_, from_}; }
    Iterator end() const { return {&stack_, to_}; }
    bool empty() const { return from_ == to_; }
    std::size_t size() const { return to_ - from_; }
    uint32_t front() const { return stack_[from_]; }

   private:
    std::vector<uint32_t>& stack_;
    std::size_t from_, to_;
  };
  MemberList memberObjects(int64_t collection) {
    const std::size_t from = memberStack_.size();
    if (collection >= 0) {
      const auto c = static_cast<uint32_t>(collection);
      std::size_t members = 0;
      for (const archive::ArchiveEntry *e = a_.begin(c), *last = a_.end(c); e != last; ++e) {
        if (e->key != 0) continue;
        ++members;
        if (e->value.isObject()) memberStack_.push_back(e->value.index);
      }
      // A failure here ends the read, stack and all.
      visit(members);
    }
    return MemberList(memberStack_, from);
  }
  // Every member value of a collection (strings and numbers too), counted as memberObjects counts.
  std::vector<ArchiveValue> memberValues(int64_t collection) {
    if (collection < 0) return {};
    std::vector<ArchiveValue> members = a_.members(static_cast<uint32_t>(collection));
    visits_ += members.size();
    if (visits_ > visitBudget_) failure("the archive's objects share their collections more than its size allows");
    return members;
  }
  // Key-value pairs of a dictionary object: alternating members, or dict.sortedKeys/dict.values,
  // or NS.key.N/NS.object.N entries.
  std::vector<std::pair<ArchiveValue, ArchiveValue>> dictionary(int64_t dict) {
    std::vector<std::pair<ArchiveValue, ArchiveValue>> out;
    if (dict < 0) return out;
    const auto d = static_cast<uint32_t>(dict);
    visit(a_.end(d) - a_.begin(d));
    out.reserve(static_cast<std::size_t>(a_.end(d) - a_.begin(d)) / 2);
    // Members alternating key and value, paired as they are walked.
    bool members = false;
    const archive::ArchiveEntry* pendingKey = nullptr;
    for (const archive::ArchiveEntry *e = a_.begin(d), *last = a_.end(d); e != last; ++e) {
      if (e->key != 0) continue;
      members = true;
      if (!pendingKey) {
        pendingKey = e;
      } else {
        out.emplace_back(pendingKey->value, e->value);
        pendingKey = nullptr;
      }
    }
    if (members) return out;
    const int64_t keys = ref(d, "dict.sortedKeys"), values = ref(d, "dict.values");
    if (keys >= 0 && values >= 0) {
      auto k = a_.members(static_cast<uint32_t>(keys)), v = a_.members(static_cast<uint32_t>(values));
      for (std::size_t i = 0; i < k.size() && i < v.size(); ++i) out.emplace_back(k[i], v[i]);
      return out;
    }
    // Keyed form: NS.key.N and NS.object.N, gathered in one pass over the entries.
    std::map<unsigned long, std::pair<ArchiveValue, ArchiveValue>> numbered;
    for (const archive::ArchiveEntry *e = a_.begin(d), *last = a_.end(d); e != last; ++e) {
      if (e->key == 0) continue;
      const std::string_view name = a_.name(e->key);
      const bool isKey = name.rfind("NS.key.", 0) == 0, isObject = name.rfind("NS.object.", 0) == 0;
      if (!isKey && !isObject) continue;
      const std::string digits(name.substr(isKey ? 7 : 10));
      if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) continue;
      auto& slot = numbered[std::stoul(digits)];
      (isKey ? slot.first : slot.second) = e->value;
    }
    for (const auto& [n, pair] : numbered) out.push_back(pair);
    return out;
  }

  std::optional<Rect> rect(uint32_t o, const char* key) const {
    std::string_view s;
    if (!a_.textOf(get(o, key), s)) return std::nullopt;
    const Numbers n = numbersIn(s);
    if (n.size() == 4) return Rect{n[0], n[1], n[2], n[3]};
    if (n.size() == 2) return Rect{0, 0, n[0], n[1]};
    return std::nullopt;
  }
  std::optional<Size> size(uint32_t o, const char* key) const {
    std::string_view s;
    if (!a_.textOf(get(o, key), s)) return std::nullopt;
    const Numbers n = numbersIn(s);
    if (n.size() < 2) return std::nullopt;
    return Size{n[0], n[1]};
  }

  // The name of an image value: a named resource, an image source, or an image with a name.
  String imageName(const ArchiveValue& v) const {
    if (!v.isObject()) return String();
    const uint32_t o = v.index;
    for (const char* key : {"NSResourceName", "NSImageName", "NSName"}) {
      String name = string(o, key);
      if (!name.isNil() && name.length() > 0) return name;
    }
    return String();
  }

  std::optional<FontDescriptor> font(const ArchiveValue& v) const {
    if (!v.isObject() || !is(a_.className(v.index), "NSFont")) return std::nullopt;
    FontDescriptor font;
    // The name is told by its archived bytes; a text is made of it only for a font other than the
    // system's (what is looked for is ASCII, which a conversion keeps as it is).
    const ArchiveValue nameValue = get(v.index, "NSName");
    std::string_view n;
    if (a_.textOf(nameValue, n)) recordLocalizableKey(nameValue);
    const double size = number(v.index, "NSSize", 13);
    if (n.empty() || n[0] == '.' || n.rfind("LucidaGrande", 0) == 0 || n.rfind("Helvetica", 0) == 0) {
      // The system font under its private or historical names.
      font = FontDescriptor::systemFont(size > 0 ? size : 13);
      font.bold = n.find("Bold") != std::string::npos;
      static const String kSystemBold = u"systemBold";
      if (font.bold) font.metaFont = kSystemBold;
      return font;
    }
    font.name = utf8(n);
    font.size = size > 0 ? size : 13;
    font.bold = n.find("Bold") != std::string::npos;
    return font;
  }

  std::optional<ColorDescriptor> color(const ArchiveValue& v, int hop = 0) const {
    if (!v.isObject() || !is(a_.className(v.index), "NSColor") || hop > 4) return std::nullopt;
    const uint32_t o = v.index;
    ColorDescriptor c;
    const long space = integer(o, "NSColorSpace", 0);
    if (space == 6) {
      c.name = string(o, "NSColorName");
      c.catalog = string(o, "NSCatalogName");
      static const String kSystem = u"System";
      if (c.catalog.isNil()) c.catalog = kSystem;
      return c;
    }
    std::string_view text;
    if ((space == 1 || space == 2) && a_.textOf(get(o, "NSRGB"), text)) {
      auto n = numbersIn(text);
      c.red = n.size() > 0 ? n[0] : 0;
      c.green = n.size() > 1 ? n[1] : 0;
      c.blue = n.size() > 2 ? n[2] : 0;
      c.alpha = n.size() > 3 ? n[3] : 1;
      static const String kSpaces[] = {u"calibratedRGB", u"deviceRGB"};
      c.colorSpace = kSpaces[space - 1];
      return c;
    }
    if ((space == 3 || space == 4) && a_.textOf(get(o, "NSWhite"), text)) {
      auto n = numbersIn(text);
      c.red = c.green = c.blue = n.empty() ? 0 : n[0];
      c.alpha = n.size() > 1 ? n[1] : 1;
      static const String kSpaces[] = {u"calibratedWhite", u"deviceWhite"};
      c.colorSpace = kSpaces[space - 3];
      return c;
    }
    return std::nullopt;
  }

  // --- object bookkeeping --------------------------------------------------------------------------

  // The identifier the archive itself gives the object (the owner's is "-2"), nil when it gives
  // none: a made-up one (the object's index, say) would differ between two compilations of the same
  // interface, and tools that match objects across files go by identifier.
  // The identifiers of the owner and the application placeholder, made once and shared.
  static const String& ownerIdentifier() {
    static const String id = u"-2";
    return id;
  }
  static const String& applicationIdentifier() {
    static const String id = u"-3";
    return id;
  }
  String identifierOf(uint32_t o) const {
    if (static_cast<int64_t>(o) == layout_.owner) return ownerIdentifier();
    return designerIdentifierOf(o);
  }

  // The designer's identifier of an archived object, nil when the archive gives none.
  String designerIdentifierOf(uint32_t o) const {
    if (o < layout_.identifiers.size() && layout_.identifiers[o] != archive::ArchiveLayout::kNoIdentifier) {
      char digits[24];
      const auto written = std::to_chars(digits, digits + sizeof digits, layout_.identifiers[o]);
      return utf8(std::string_view(digits, static_cast<std::size_t>(written.ptr - digits)));
    }
    return String();
  }

  void warn(std::string message) { charge(nib_.addWarning(std::move(message))); }

  [[noreturn]] void failure(const std::string& reason) const { throw NibDecodeFailure{reason}; }

  // A class name as messages show it: cut to 100 characters, since a name repeats in every message
  // about its objects.
  std::string shownClass(uint32_t o) const {
    const std::string_view name = a_.className(o);
    return name.size() <= 100 ? std::string(name) : std::string(name.substr(0, 100)) + "...";
  }
  std::string describe(uint32_t o) const { return "object " + std::to_string(o) + " (" + shownClass(o) + ")"; }

  void charge(std::size_t bytes) {
    used_ += bytes;
    if (used_ > budget_) {
      failure("the interface needs more than " + std::to_string(budget_ / (1024 * 1024)) +
              " MB of memory, over what a document of this size may take");
    }
  }

  template <class Base, class Factory>
  std::shared_ptr<Base> make(const String& custom, const Factory& fallback) {
    std::shared_ptr<Base> object;
    if (!custom.isNil() && custom.length() > 0) {
      object = as<Base>(registry_.makeObject(custom));
      if constexpr (std::is_base_of_v<Window, Base>) {
        if (!object && custom.view() == u"NSPanel") object = arena_.make<Panel>();
      }
    }
    if (!object) {
      object = std::shared_ptr<Base>(fallback());
      if (!custom.isNil() && custom.length() > 0 && !(custom == String(object->className()))) {
        object->setCustomClassName(custom);
      }
    }
    return object;
  }

  // --- dispatch ------------------------------------------------------------------------------------

  // Decodes object o reached through `via` (for messages). Returns the object already made for a
  // shared reference; fails on a reference to an object still being decoded.
  std::shared_ptr<InterfaceObject> decode(uint32_t o, int depth, const char* via) {
    if (depth > kMaxDepth) failure("the objects are nested more than " + std::to_string(kMaxDepth) + " deep");
    if ((state_[o] & kProgress) == kDone) return memo_[o];
    if ((state_[o] & kProgress) == kBeingDecoded) failure(describe(o) + " contains itself (through " + via + ")");
    if ((state_[o] & kPlaceholder) || static_cast<int64_t>(o) == layout_.owner) return nullptr;
    state_[o] |= kBeingDecoded;
    // Class names are compared as views: no copy per object, and each comparison with a name
    // written here checks the length before any byte.
    std::string_view cls = a_.className(o);
    std::string original;
    String custom;
    if (!layout_.customClasses.empty()) {  // only the older XML archive gives them
      auto swapped = layout_.customClasses.find(o);
      if (swapped != layout_.customClasses.end()) custom = utf8(swapped->second);
    }
    if (is(cls, "NSClassSwapper")) {
      custom = string(o, "NSClassName");
      a_.stringOf(get(o, "NSOriginalClassName"), original);
      cls = original.empty() ? std::string_view("NSObject") : std::string_view(original);
    }
    // A class of a plug-in or of the host: read as the nearest class the archive's chain reaches
    // (platform classes, private ones included, keep their own reading).
    if (!cls.starts_with("NS") && !cls.starts_with("_NS") && !isKnownClass(cls)) {
      std::string_view up = cls;
      for (int step = 0; step < 64; ++step) {
        auto next = layout_.superclasses.find(std::string(up));
        if (next == layout_.superclasses.end()) break;
        up = next->second;
        if (isKnownClass(up)) {
          if (custom.isNil()) custom = classText(o, cls);
          cls = up;
          break;
        }
      }
    }
    InterfaceObject* const outer = current_;
    std::shared_ptr<InterfaceObject> made = decodeAs(o, cls, custom, depth);
    current_ = outer;
    state_[o] = static_cast<uint8_t>((state_[o] & ~kProgress) | kDone);
    return made;
  }

  // Records an object before its parts are decoded, so that shared references resolve to it.
  // The list of objects made holds plain pointers: each object is held by memo_ (or, in a damaged
  // archive that makes a second object for the same archive object, by replaced_).
  void remember(uint32_t o, const std::shared_ptr<InterfaceObject>& object) {
    charge(kObjectCost);
    if (memo_[o]) [[unlikely]] replaced_.push_back(std::move(memo_[o]));
    memo_[o] = object;
    current_ = object.get();
    if (made_.empty()) made_.reserve(a_.objectCount());
    made_.push_back(object.get());
    object->setArchiveIdentifier(identifierOf(o));
  }

  template <class T>
  std::shared_ptr<T> child(uint32_t o, const char* key, int depth) {
    const int64_t r = ref(o, key);
    if (r < 0) return nullptr;
    auto object = decode(static_cast<uint32_t>(r), depth + 1, key);
    if (!object) return nullptr;
    if (T* typed = as<T>(object.get())) return std::shared_ptr<T>(std::move(object), typed);
    warn(describe(o) + ": " + key + " holds a " + shownClass(static_cast<uint32_t>(r)) + ", skipped");
    return nullptr;
  }

  std::shared_ptr<InterfaceObject> decodeAs(uint32_t o, std::string_view cls, const String& custom, int depth) {
    if (is(cls, "NSWindowTemplate")) return decodeWindow(o, custom, depth);
    if (is(cls, "NSMenu") || (endsWith(cls, "Menu") && has(o, "NSMenuItems"))) return decodeMenu(o, custom, depth);
    if (is(cls, "NSMenuItem") || (endsWith(cls, "MenuItem") && has(o, "NSTitle"))) return decodeMenuItem(o, custom, depth);
    if (is(cls, "NSTabViewItem")) return decodeTabViewItem(o, custom, depth);
    if (is(cls, "NSTableColumn")) return decodeTableColumn(o, custom, depth);
    if (is(cls, "NSToolbar")) return decodeToolbar(o, custom, depth);
    if (isViewControllerClass(cls)) return decodeViewController(o, cls, custom, depth);
    if (is(cls, "NSWindowController")) return decodeWindowController(o, custom, depth);
    if (is(cls, "NSSplitViewItem")) {
      auto item = make<SplitViewItem>(custom, [this] { return arena_.make<SplitViewItem>(); });
      remember(o, item);
      item->setCanCollapse(boolean(o, "NSCanCollapse", false));
      item->setCollapsed(boolean(o, "NSCollapsed", false));
      if (auto vc = controllerIn(o, depth)) item->setViewController(std::move(vc));
      return item;
    }
    if (endsWith(cls, "ToolbarItem") || has(o, "NSToolbarItemIdentifier")) return decodeToolbarItem(o, cls, custom, depth);
    if (is(cls, "NSCustomObject")) {
      const String name = string(o, "NSClassName");
      auto object = make<InterfaceObject>(name, [this] { return arena_.make<GenericObject>(u"NSObject"); });
      remember(o, object);
      return object;
    }
    if (endsWith(cls, "Cell") || has(o, "NSCellFlags")) return decodeCell(o, cls, custom, depth);
    if (std::shared_ptr<View> view = decodeViewObject(o, cls, custom, depth)) return view;
    return decodeGeneric(o, cls, custom);
  }

  // Controllers, formatters, constraints and other objects: kept with their class name and their
  // scalar values as attributes.
  std::shared_ptr<InterfaceObject> decodeGeneric(uint32_t o, std::string_view cls, const String& custom) {
    auto object = make<InterfaceObject>(custom, [&] {
      auto g = arena_.make<GenericObject>(classText(o, cls));
      // Kept packed until someone asks: most such objects (constraints, formatters) are never asked.
      // Written through a pointer into a buffer that only grows over the read (one check per entry).
      std::size_t packedLength = 0;
      auto room = [&](std::size_t n) {
        if (packed_.size() < packedLength + n) packed_.resize(std::max(packedLength + n, 2 * packed_.size()));
        return packed_.data() + packedLength;
      };
      auto counted = [](char* at, std::string_view text) {
        const auto length = static_cast<uint32_t>(text.size());
        std::memcpy(at, &length, sizeof length);
        if (!text.empty()) std::memcpy(at + sizeof length, text.data(), text.size());  // an empty text may have no bytes at all
        return at + sizeof length + text.size();
      };
      for (const archive::ArchiveEntry *e = a_.begin(o), *last = a_.end(o); e != last; ++e) {
        if (e->key == 0) continue;
        std::string_view text;
        if (e->value.kind == ArchiveValue::Kind::String) {
          text = a_.text(e->value);
        } else if (e->value.isNumber()) {
          const double number = e->value.number();
          const std::string_view name = a_.name(e->key);
          char* at = counted(room(4 + name.size() + 1 + sizeof number), name);
          *at++ = 'n';
          std::memcpy(at, &number, sizeof number);
          packedLength = static_cast<std::size_t>(at + sizeof number - packed_.data());
          continue;
        } else if (!e->value.isObject() || !a_.isStringClass(e->value.index) || !a_.textOf(e->value, text)) {
          continue;
        }
        const std::string_view name = a_.name(e->key);
        char* at = counted(room(4 + name.size() + 1 + 4 + text.size()), name);
        *at++ = 's';
        packedLength = static_cast<std::size_t>(counted(at, text) - packed_.data());
      }
      g->setArchivedTypedAttributes(std::string_view(packed_.data(), packedLength), arena_);
      return std::static_pointer_cast<InterfaceObject>(g);
    });
    remember(o, object);
    return object;
  }

  // --- views ---------------------------------------------------------------------------------------

  std::shared_ptr<View> decodeViewObject(uint32_t o, std::string_view cls, String custom, int depth) {
    std::shared_ptr<View> view;
    // What the view is, known from its factory unless a class of the host's made it.
    unsigned kinds = kAskKinds;
    auto named = [&](auto factory) {
      view = make<View>(custom, factory);
      if (custom.isNil() || custom.length() == 0) kinds = viewKinds<std::remove_cvref_t<decltype(*factory())>>();
    };
    if (is(cls, "NSButton")) {
      named([this] { return arena_.make<Button>(); });
    } else if (is(cls, "NSPopUpButton")) {
      named([this] { return arena_.make<PopUpButton>(); });
    } else if (is(cls, "NSComboBox")) {
      named([this] { return arena_.make<ComboBox>(); });
    } else if (is(cls, "NSTokenField")) {
      named([this] { return arena_.make<TokenField>(); });
    } else if (is(cls, "NSTextField") || is(cls, "NSSecureTextField")) {
      named([&] {
        auto f = arena_.make<TextField>();
        if (!is(cls, "NSTextField")) f->setClassName(classText(o, cls));
        return f;
      });
    } else if (is(cls, "NSSearchField")) {
      named([this] { return arena_.make<SearchField>(); });
    } else if (is(cls, "NSBox")) {
      named([this] { return arena_.make<Box>(); });
    } else if (is(cls, "NSMatrix")) {
      named([this] { return arena_.make<Matrix>(); });
    } else if (is(cls, "NSTabView")) {
      named([this] { return arena_.make<TabView>(); });
    } else if (is(cls, "NSTableView")) {
      named([this] { return arena_.make<TableView>(); });
    } else if (is(cls, "NSOutlineView")) {
      named([this] { return arena_.make<OutlineView>(); });
    } else if (is(cls, "NSScrollView")) {
      named([this] { return arena_.make<ScrollView>(); });
    } else if (is(cls, "NSClipView")) {
      named([this] { return arena_.make<ClipView>(); });
    } else if (is(cls, "NSSegmentedControl")) {
      named([this] { return arena_.make<SegmentedControl>(); });
    } else if (is(cls, "NSImageView")) {
      named([this] { return arena_.make<ImageView>(); });
    } else if (is(cls, "NSStackView")) {
      named([this] { return arena_.make<StackView>(); });
    } else if (is(cls, "NSGridView")) {
      named([this] { return arena_.make<GridView>(); });
    } else if (is(cls, "NSRuleEditor") || is(cls, "NSPredicateEditor")) {
      named([&] {
        auto r = arena_.make<RuleEditor>();
        if (!is(cls, "NSRuleEditor")) r->setClassName(classText(o, cls));
        return r;
      });
    } else if (is(cls, "NSTextView")) {
      named([this] { return arena_.make<TextView>(); });
    } else if (is(cls, "NSProgressIndicator")) {
      named([this] { return arena_.make<ProgressIndicator>(); });
    } else if (is(cls, "NSView") || is(cls, "NSCustomView")) {
      if (is(cls, "NSCustomView")) {
        String name = string(o, "NSClassName");
        if (!name.isNil() && name.view() != u"NSView") custom = name;
      }
      named([this] { return arena_.make<View>(); });
    } else if (has(o, "NSCell")) {
      named([&] {
        auto c = arena_.make<Control>();
        c->setClassName(classText(o, cls));
        return c;
      });
    } else if (has(o, "NSFrame") || has(o, "NSFrameSize") || has(o, "NSSubviews") || has(o, "NSvFlags")) {
      named([&] {
        auto v = arena_.make<View>();
        v->setClassName(classText(o, cls));
        if (is(cls, "NSTextView")) v->setFlipped(true);
        return v;
      });
    } else {
      return nullptr;
    }
    remember(o, view);
    decodeView(o, *view, depth, kinds);
    return view;
  }

  // The model's classes the reading of a view or cell tells apart, as bits (a class's place in the
  // list): an object made by this reader's own factories has them from its type; one made by the
  // host's registry (kAskKinds) is asked at run time.
  static constexpr unsigned kAskKinds = ~0u;
  template <class... Classes>
  struct Kinds {
    // The bit of T, which must be one of the list.
    template <class T>
    static constexpr unsigned of() {
      unsigned bit = 1, found = 0;
      ((found |= std::is_same_v<T, Classes> ? bit : 0u, bit <<= 1), ...);
      return found;
    }
    // The bits of every listed class an object made as `Made` is.
    template <class Made>
    static constexpr unsigned madeAs() {
      unsigned bit = 1, found = 0;
      ((found |= std::is_base_of_v<Classes, Made> ? bit : 0u, bit <<= 1), ...);
      return found;
    }
    // The object as T: from its kinds, or asked when they are not known.
    template <class T, class Base, class Ask>
    static T* as(Base& object, unsigned kinds, Ask ask) {
      static_assert(of<T>() != 0);
      if (kinds == kAskKinds) return ask(&object);
      return (kinds & of<T>()) ? static_cast<T*>(&object) : nullptr;
    }
  };
  using ViewKinds = Kinds<PopUpButton, Control, Box, Matrix, TabView, TableView, ScrollView, ClipView, StackView,
                          TextView, GridView, RuleEditor, ProgressIndicator>;
  using CellKinds =
      Kinds<ImageCell, ButtonCell, PopUpButtonCell, TextFieldCell, SegmentedCell, ComboBoxCell, TokenFieldCell>;
  template <class Made>
  static constexpr unsigned viewKinds() {
    return ViewKinds::madeAs<Made>();
  }
  template <class Made>
  static constexpr unsigned cellKinds() {
    return CellKinds::madeAs<Made>();
  }
  template <class T>
  T* viewAs(View& view, unsigned kinds) const {
    return ViewKinds::as<T>(view, kinds, [this](View* v) { return as<T>(v); });
  }
  template <class T>
  T* cellAs(Cell& cell, unsigned kinds) const {
    return CellKinds::as<T>(cell, kinds, [this](Cell* c) { return as<T>(c); });
  }

  // Values of sliders, steppers, level indicators and date pickers.
  void decodeValues(uint32_t o, Cell& cell) {
    cell.setMinValue(number(o, "NSMinValue", cell.minValue()));
    cell.setMaxValue(number(o, "NSMaxValue", cell.maxValue()));
    cell.setDoubleValue(number(o, "NSValue", cell.doubleValue()));
    cell.setNumberOfTickMarks(integer(o, "NSNumberOfTickMarks", 0));
    if (has(o, "NSIndicatorStyle")) {
      static const String kLevelStyles[] = {u"relevancy", u"continuousCapacity", u"discreteCapacity",
                                                         u"rating"};
      const long style = integer(o, "NSIndicatorStyle", 0);
      if (style >= 0 && style < 4) cell.setControlStyle(kLevelStyles[style]);
    }
    if (has(o, "NSDatePickerElements")) {
      // The archived element flags: hour and minute 0x0c, seconds 0x02 more, year-month-day 0xe0.
      const auto flags = static_cast<unsigned long>(integer(o, "NSDatePickerElements", 0));
      unsigned bits = 0;
      if (flags & 0xe0ul) bits |= Cell::DateElementYearMonthDay;
      if (flags & 0x0cul) bits |= Cell::DateElementHourMinute;
      if ((flags & 0x0eul) == 0x0eul) bits |= Cell::DateElementSecond;
      cell.setDateElements(bits);
      const int64_t date = ref(o, "NSContents");
      if (date >= 0 && has(static_cast<uint32_t>(date), "NS.time")) {
        cell.setDoubleValue(number(static_cast<uint32_t>(date), "NS.time", 0));
      }
    }
  }

  void decodeView(uint32_t o, View& view, int depth, unsigned kinds) {
    // Asked first, while the view's entries are at hand: its cell and menu are read in between.
    const int64_t constraintList = ref(o, "NSViewConstraints"), subviewList = ref(o, "NSSubviews");
    if (auto frame = rect(o, "NSFrame")) {
      view.setFrame(*frame);
    } else if (auto s = size(o, "NSFrameSize")) {
      view.setFrame({0, 0, s->width, s->height});
    }
    const auto flags = static_cast<unsigned long>(integer(o, "NSvFlags", 0));
    view.setHidden((flags & 0x80000000ul) != 0);
    view.setAutoresizingMask(static_cast<unsigned>(flags & 0x3F));
    if (String tip = string(o, "NSToolTip"); !tip.isNil()) view.setToolTip(tip);
    if (has(o, "NSTag")) view.setTag(integer(o, "NSTag"));
    if (String id = string(o, "NSUserInterfaceItemIdentifier"); !id.isNil()) view.setIdentifier(id);
    if (!viewAs<PopUpButton>(view, kinds)) {
      if (auto menu = child<Menu>(o, "NSMenu", depth)) view.setContextMenu(std::move(menu));
    }

    if (auto* control = viewAs<Control>(view, kinds)) {
      if (has(o, "NSCell")) {
        if (auto cell = child<Cell>(o, "NSCell", depth)) control->setCell(std::move(cell));
      }
    }

    bool ownSubviews = true;
    if (auto* box = viewAs<Box>(view, kinds)) decodeBox(o, *box, depth), ownSubviews = false;
    if (auto* matrix = viewAs<Matrix>(view, kinds)) decodeMatrix(o, *matrix, depth);
    if (auto* tabs = viewAs<TabView>(view, kinds)) decodeTabView(o, *tabs, depth), ownSubviews = false;
    if (auto* table = viewAs<TableView>(view, kinds)) decodeTableView(o, *table, depth);
    if (auto* scroll = viewAs<ScrollView>(view, kinds)) decodeScrollView(o, *scroll, depth), ownSubviews = false;
    if (auto* clip = viewAs<ClipView>(view, kinds)) {
      clip->setDrawsBackground((integer(o, "NScvFlags", 4) & 4) != 0);
      if (auto doc = child<View>(o, "NSDocView", depth)) clip->setDocumentView(std::move(doc));
      ownSubviews = false;
    }
    if (auto* stack = viewAs<StackView>(view, kinds)) decodeStackView(o, *stack, depth), ownSubviews = false;
    if (auto* text = viewAs<TextView>(view, kinds)) decodeTextView(o, *text);
    if (auto* grid = viewAs<GridView>(view, kinds)) decodeGridView(o, *grid, depth);
    if (auto* rules = viewAs<RuleEditor>(view, kinds)) decodeRuleEditor(o, *rules, depth);
    if (auto* progress = viewAs<ProgressIndicator>(view, kinds)) {
      progress->setMinValue(number(o, "NSMinValue", progress->minValue()));
      progress->setMaxValue(number(o, "NSMaxValue", progress->maxValue()));
      progress->setDoubleValue(number(o, "NSValue", progress->doubleValue()));
      // The indicator's flags: indeterminate 0x2, spinning 0x1000, hidden while stopped 0x2000.
      const auto flags = static_cast<unsigned long>(integer(o, "NSpiFlags", 0));
      progress->setIndeterminate((flags & 0x2) != 0);
      progress->setStyle((flags & 0x1000) ? ProgressIndicator::Style::Spinning : ProgressIndicator::Style::Bar);
      progress->setDisplayedWhenStopped((flags & 0x2000) == 0);
    }

    {
      const MemberList constraints = memberObjects(constraintList);
      view.reserveConstraints(constraints.size());
      for (uint32_t c : constraints) {
        if (auto constraint = decode(c, depth + 1, "NSViewConstraints")) view.addConstraint(std::move(constraint));
      }
    }
    if (!ownSubviews) return;
    const MemberList subviews = memberObjects(subviewList);
    view.reserveSubviews(subviews.size());
    for (uint32_t s : subviews) {
      auto sub = as<View>(decode(s, depth + 1, "NSSubviews"));
      if (sub && sub->superview() && sub->superview() != &view) {
        warn(describe(s) + " is a subview of two views; kept in the first");
      } else if (sub) {
        view.addSubview(std::move(sub));
      } else {
        warn(describe(s) + " among the subviews of " + describe(o) + " is not a view");
      }
    }
  }

  // A text view's text is in its text storage, reached through its container and layout manager;
  // its background in the data its text views share. The storage's first attributes give the font
  // and colour.
  void decodeTextView(uint32_t o, TextView& text) {
    const int64_t shared = ref(o, "NSSharedData");
    if (shared >= 0) text.setBackgroundColor(color(get(static_cast<uint32_t>(shared), "NSBackgroundColor")));
    const int64_t container = ref(o, "NSTextContainer");
    const int64_t manager = container >= 0 ? ref(static_cast<uint32_t>(container), "NSLayoutManager") : -1;
    int64_t storage = manager >= 0 ? ref(static_cast<uint32_t>(manager), "NSTextStorage") : -1;
    // Without the container chain: a text storage the view holds itself.
    for (const archive::ArchiveEntry* e = a_.begin(o); storage < 0 && e != a_.end(o); ++e) {
      if (e->key != 0 && e->value.isObject() && is(a_.className(e->value.index), "NSTextStorage")) storage = e->value.index;
    }
    if (storage < 0) return;
    const auto s = static_cast<uint32_t>(storage);
    if (String value = string(s, "NSString"); !value.isNil()) text.setString(value);
    int64_t attributes = ref(s, "NSAttributes");
    // Several runs: an array of dictionaries, the first run's first.
    if (attributes >= 0 && a_.className(static_cast<uint32_t>(attributes)).find("Array") != std::string::npos) {
      const auto runs = memberObjects(attributes);
      attributes = runs.empty() ? -1 : static_cast<int64_t>(runs.front());
    }
    if (attributes < 0) return;
    for (const auto& [k, v] : dictionary(attributes)) {
      const String name = stringValue(k);
      if (!name.isNil() && name.view() == u"NSFont") text.setFont(font(v));
      if (!name.isNil() && name.view() == u"NSColor") text.setTextColor(color(v));
    }
  }

  void decodeBox(uint32_t o, Box& box, int depth) {
    const int64_t titleCell = ref(o, "NSTitleCell");
    if (titleCell >= 0) {
      if (String title = string(static_cast<uint32_t>(titleCell), "NSContents"); !title.isNil()) box.setTitle(title);
      if (auto f = font(get(static_cast<uint32_t>(titleCell), "NSSupport"))) box.setTitleFont(*f);
    }
    box.setTitlePosition(static_cast<TitlePosition>(std::clamp(integer(o, "NSTitlePosition", 2), 0L, 6L)));
    box.setBoxType(static_cast<BoxType>(std::clamp(integer(o, "NSBoxType", 0), 0L, 4L)));
    box.setBorderType(static_cast<BorderType>(std::clamp(integer(o, "NSBorderType", 2), 0L, 3L)));
    box.setTransparent(boolean(o, "NSTransparent", false));
    box.setContentView(child<View>(o, "NSContentView", depth));
  }

  void decodeMatrix(uint32_t o, Matrix& matrix, int depth) {
    if (auto s = size(o, "NSCellSize")) matrix.setCellSize(*s);
    if (auto s = size(o, "NSIntercellSpacing")) matrix.setIntercellSpacing(*s);
    const auto flags = static_cast<unsigned long>(integer(o, "NSMatrixFlags", 0));
    matrix.setMode((flags & 0x40000000ul)   ? MatrixMode::Radio
                   : (flags & 0x20000000ul) ? MatrixMode::List
                   : (flags & 0x10000000ul) ? MatrixMode::Highlight
                                            : MatrixMode::Track);
    if (auto p = child<Cell>(o, "NSCellPrototype", depth)) matrix.setPrototype(std::move(p));
    std::vector<std::shared_ptr<Cell>> cells;
    for (uint32_t c : memberObjects(ref(o, "NSCells"))) {
      if (auto cell = as<Cell>(decode(c, depth + 1, "NSCells"))) cells.push_back(std::move(cell));
    }
    // Cells are stored row by row. A grid the cells do not fill is cut to the rows they reach, so
    // the grid never outgrows what the archive holds.
    long columns = std::max(1L, integer(o, "NSNumCols", 1));
    if (columns > static_cast<long>(cells.size())) columns = std::max<long>(1, static_cast<long>(cells.size()));
    const long rows = cells.empty() ? 0 : static_cast<long>((cells.size() + columns - 1) / columns);
    charge(static_cast<std::size_t>(rows * columns) * sizeof(std::shared_ptr<Cell>));
    auto empty = arena_.make<Cell>();
    while (static_cast<long>(cells.size()) < rows * columns) cells.push_back(empty);
    matrix.setCells(std::move(cells), rows, cells.empty() ? 0 : columns);
    const int64_t selected = ref(o, "NSSelectedCell");
    if (selected >= 0) (void)selected;  // the selection follows the cells' own states
  }

  void decodeTabView(uint32_t o, TabView& tabs, int depth) {
    const long type = integer(o, "NSTvFlags", 0) & 7;
    tabs.setTabViewType(static_cast<TabViewType>(std::min(type, 6L)));
    if (auto f = font(get(o, "NSFont"))) tabs.setFont(*f);
    for (uint32_t i : memberObjects(ref(o, "NSTabViewItems"))) {
      if (auto item = as<TabViewItem>(decode(i, depth + 1, "NSTabViewItems"))) tabs.addTabViewItem(std::move(item));
    }
    const int64_t selected = ref(o, "NSSelectedTabViewItem");
    if (selected >= 0) selectedTabs_.push_back({&tabs, static_cast<uint32_t>(selected)});
  }

  std::shared_ptr<InterfaceObject> decodeTabViewItem(uint32_t o, const String& custom, int depth) {
    auto item = make<TabViewItem>(custom, [this] { return arena_.make<TabViewItem>(); });
    remember(o, item);
    if (String label = string(o, "NSLabel"); !label.isNil()) item->setLabel(label);
    if (String id = string(o, "NSIdentifier"); !id.isNil()) item->setIdentifier(id);
    if (String tip = string(o, "NSToolTip"); !tip.isNil()) item->setToolTip(tip);
    if (auto view = child<View>(o, "NSView", depth)) item->setView(std::move(view));
    return item;
  }

  void decodeTableView(uint32_t o, TableView& table, int depth) {
    table.setRowHeight(number(o, "NSRowHeight", table.rowHeight()));
    if (has(o, "NSIntercellSpacingWidth")) {
      table.setIntercellSpacing({number(o, "NSIntercellSpacingWidth", 3), number(o, "NSIntercellSpacingHeight", 2)});
    }
    table.setViewBased(has(o, "NSTableViewArchivedReusableViewsKey"));
    for (uint32_t c : memberObjects(ref(o, "NSTableColumns"))) {
      if (auto column = as<TableColumn>(decode(c, depth + 1, "NSTableColumns"))) table.addTableColumn(std::move(column));
    }
    const int64_t header = ref(o, "NSHeaderView");
    if (header >= 0) headerViews_.push_back({&table, static_cast<uint32_t>(header)});
    if (auto* outline = as<OutlineView>(&table)) {
      outline->setIndentationPerLevel(number(o, "NSOutlineViewIndentationPerLevelKey", outline->indentationPerLevel()));
      const int64_t column = ref(o, "NSOutlineViewOutlineTableColumnKey");
      if (column >= 0) outlineColumns_.push_back({outline, static_cast<uint32_t>(column)});
    }
  }

  std::shared_ptr<InterfaceObject> decodeTableColumn(uint32_t o, const String& custom, int depth) {
    auto column = make<TableColumn>(custom, [this] { return arena_.make<TableColumn>(); });
    remember(o, column);
    if (String id = string(o, "NSIdentifier"); !id.isNil()) column->setIdentifier(id);
    column->setWidth(number(o, "NSWidth", column->width()));
    column->setMinWidth(number(o, "NSMinWidth", column->minWidth()));
    column->setMaxWidth(number(o, "NSMaxWidth", column->maxWidth()));
    column->setHidden(boolean(o, "NSHidden", false));
    column->setEditable(boolean(o, "NSIsEditable", true));
    if (String tip = string(o, "NSHeaderToolTip"); !tip.isNil()) column->setHeaderToolTip(tip);
    if (auto h = child<Cell>(o, "NSHeaderCell", depth)) column->setHeaderCell(std::move(h));
    if (auto d = child<Cell>(o, "NSDataCell", depth)) column->setDataCell(std::move(d));
    return column;
  }

  void decodeScrollView(uint32_t o, ScrollView& scroll, int depth) {
    const auto flags = static_cast<unsigned long>(integer(o, "NSsFlags", 0x30));
    scroll.setHasVerticalScroller((flags & 0x10) != 0);
    scroll.setHasHorizontalScroller((flags & 0x20) != 0);
    scroll.setAutohidesScrollers((flags & 0x200) != 0);
    static const String kBorders[] = {u"none", u"line", u"bezel", u"groove"};
    scroll.setBorderType(kBorders[flags & 3]);
    if (auto clip = child<ClipView>(o, "NSContentView", depth)) scroll.setContentView(std::move(clip));
    if (auto s = child<View>(o, "NSVScroller", depth)) scroll.setVerticalScroller(std::move(s));
    if (auto s = child<View>(o, "NSHScroller", depth)) scroll.setHorizontalScroller(std::move(s));
    // The header sits in a clip view of its own; the model keeps the header view itself.
    if (auto headerClip = child<View>(o, "NSHeaderClipView", depth)) {
      auto* clip = as<ClipView>(headerClip.get());
      auto header = clip ? clip->documentView() : headerClip;
      if (header) {
        header->removeFromSuperview();
        scroll.setHeaderView(header);
      }
    }
  }

  void decodeStackView(uint32_t o, StackView& stack, int depth) {
    stack.setOrientation(integer(o, "NSStackViewOrientation", 0) == 1 ? UserInterfaceLayoutOrientation::Vertical
                                                                       : UserInterfaceLayoutOrientation::Horizontal);
    stack.setSpacing(number(o, "NSStackViewSpacing", 8));
    // Gravity areas; views already placed by an earlier area are not placed twice.
    std::unordered_set<const View*> placed;
    struct Area {
      const char* key;
      StackViewGravity gravity;
    };
    static constexpr Area kAreas[] = {{"NSStackViewBeginningContainer", StackViewGravity::Leading},
                                      {"NSStackViewMiddleContainer", StackViewGravity::Center},
                                      {"NSStackViewEndContainer", StackViewGravity::Trailing}};
    for (const Area& area : kAreas) {
      const int64_t container = ref(o, area.key);
      if (container < 0) continue;
      const auto c = static_cast<uint32_t>(container);
      int64_t views = ref(c, "NSStackViewContainerNonDroppedViews");
      if (views < 0) views = ref(c, "NSStackViewContainerViews");
      for (uint32_t v : memberObjects(views)) {
        auto view = as<View>(decode(v, depth + 1, area.key));
        if (view && placed.insert(view.get()).second) stack.addView(view, area.gravity);
      }
    }
    for (uint32_t s : memberObjects(ref(o, "NSSubviews"))) {
      auto view = as<View>(decode(s, depth + 1, "NSSubviews"));
      if (view && placed.insert(view.get()).second) stack.addSubview(view);
    }
  }

  // --- windows -------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeWindow(uint32_t o, String custom, int depth) {
    const String windowClass = string(o, "NSWindowClass");
    if (custom.isNil() && !windowClass.isNil() && windowClass.view() != u"NSWindow") custom = windowClass;
    auto window = make<Window>(custom, [this] { return arena_.make<Window>(); });
    remember(o, window);
    if (String title = string(o, "NSWindowTitle"); !title.isNil()) window->setTitle(title);
    if (auto r = rect(o, "NSWindowRect")) window->setContentRect(*r);
    window->setStyleMask(static_cast<unsigned>(integer(o, "NSWindowStyleMask", 0)));
    if (auto s = size(o, "NSMinSize")) window->setMinSize(*s);
    if (auto s = size(o, "NSWindowContentMinSize")) window->setMinSize(*s);
    if (auto s = size(o, "NSMaxSize")) window->setMaxSize(*s);
    if (auto s = size(o, "NSWindowContentMaxSize")) window->setMaxSize(*s);
    if (String name = string(o, "NSFrameAutosaveName"); !name.isNil()) window->setFrameAutosaveName(name);
    window->setVisibleAtLaunch(!layout_.visibleWindowsKnown || (state_[o] & kVisibleWindow));
    if (auto content = child<View>(o, "NSWindowView", depth)) {
      window->setContentView(content);
      fitContentToPinnedSubview(static_cast<uint32_t>(ref(o, "NSWindowView")), *window);
    }
    // The toolbar: whichever key of the template holds one.
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key != 0 && e->value.isObject() && is(a_.className(e->value.index), "NSToolbar")) {
        if (auto toolbar = decode(e->value.index, depth + 1, "the toolbar")) window->setToolbar(std::move(toolbar));
        break;
      }
    }
    return window;
  }

  // A subview pinned to the four edges of the content view by required equalities gets the content's
  // size less the margins on the platform, and the window grows when that subview needs more. The
  // archive's frames are the editor's last layout (constraints are not solved here), so when the
  // pinned subview's archived frame is larger than the window's content rectangle the window grows
  // to hold it, its top left corner kept; it never shrinks.
  void fitContentToPinnedSubview(uint32_t contentObject, Window& window) {
    const auto& content = window.contentView();
    if (!content) return;
    struct Pins {
      double margin[4] = {0, 0, 0, 0};  // left, right, top, bottom
      unsigned pinned = 0;
    };
    std::unordered_map<const View*, Pins> pins;
    for (uint32_t c : memberObjects(ref(contentObject, "NSViewConstraints"))) {
      if (!is(a_.className(c), "NSLayoutConstraint")) continue;
      if (integer(c, "NSRelation", 0) != 0 || number(c, "NSPriority", 1000) < 1000) continue;
      const long first = integer(c, "NSFirstAttribute", 0), second = integer(c, "NSSecondAttribute", 0);
      const int64_t a = ref(c, "NSFirstItem"), b = ref(c, "NSSecondItem");
      if (a < 0 || b < 0 || first != second) continue;
      // Leading/trailing (5, 6) count as left/right (1, 2); top 3, bottom 4.
      const int edge = first == 1 || first == 5 ? 0 : first == 2 || first == 6 ? 1 : first == 3 ? 2 : first == 4 ? 3 : -1;
      if (edge < 0) continue;
      const bool contentFirst = static_cast<uint32_t>(a) == contentObject;
      const int64_t other = contentFirst ? b : a;
      if (!contentFirst && static_cast<uint32_t>(b) != contentObject) continue;
      auto sub = as<View>(memo_[static_cast<std::size_t>(other)]);
      if (!sub || sub->superview() != content.get()) continue;
      // Positive constants point right and down: the margin is the distance inwards from the edge.
      const double constant = number(c, "NSConstant", 0);
      const bool farEdge = edge == 1 || edge == 3;
      Pins& p = pins[sub.get()];
      p.margin[edge] = (farEdge == contentFirst) ? constant : -constant;
      p.pinned |= 1u << edge;
    }
    Rect rect = window.contentRect();
    for (const auto& [view, p] : pins) {
      if (p.pinned != 0xF) continue;
      const Rect f = view->frame();
      const double w = p.margin[0] + f.w + p.margin[1], h = p.margin[2] + f.h + p.margin[3];
      if (!(w > rect.w) && !(h > rect.h)) continue;
      const double top = rect.maxY();
      rect.w = std::max(rect.w, w);
      rect.h = std::max(rect.h, h);
      rect.y = top - rect.h;
      window.setContentRect(rect);
      content->setFrame({content->frame().x, content->frame().y, rect.w, rect.h});
      const_cast<View*>(view)->setFrame({p.margin[0], p.margin[3], f.w, f.h});
    }
  }

  // --- controllers ----------------------------------------------------------------------------------

  // The first entry of o holding an object of a class `wanted` accepts, or -1.
  template <class Accept>
  int64_t entryOfClass(uint32_t o, const Accept& wanted) const {
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key != 0 && e->value.isObject() && wanted(std::string_view(a_.className(e->value.index)))) {
        return e->value.index;
      }
    }
    return -1;
  }

  // The view controller an object names (a split item's, a segue's), decoded.
  std::shared_ptr<ViewController> controllerIn(uint32_t o, int depth) {
    const int64_t c = entryOfClass(o, [](std::string_view cls) { return isViewControllerClass(cls) || is(cls, "NSClassSwapper"); });
    return c < 0 ? nullptr : as<ViewController>(decode(static_cast<uint32_t>(c), depth + 1, "a controller"));
  }

  // A view controller with its view (NSView), title (NSTitle) and the nib holding its view
  // (NSNibName); the segue templates it keeps are kept with it; a tab view controller's tab view and
  // a split view controller's split view and items are found by their classes.
  std::shared_ptr<InterfaceObject> decodeViewController(uint32_t o, std::string_view cls, const String& custom, int depth) {
    auto controller = make<ViewController>(custom, [&]() -> std::shared_ptr<ViewController> {
      if (is(cls, "NSTabViewController")) return arena_.make<TabViewController>();
      if (is(cls, "NSSplitViewController")) return arena_.make<SplitViewController>();
      auto c = arena_.make<ViewController>();
      if (!is(cls, "NSViewController")) c->setClassName(classText(o, cls));
      return c;
    });
    remember(o, controller);
    if (String title = string(o, "NSTitle"); !title.isNil()) controller->setTitle(title);
    if (String nib = string(o, "NSNibName"); !nib.isNil()) controller->setNibName(nib);
    if (auto view = child<View>(o, "NSView", depth)) controller->setView(std::move(view));
    if (auto* tabs = as<TabViewController>(controller.get())) {
      const int64_t t = entryOfClass(o, [](std::string_view c) { return is(c, "NSTabView"); });
      if (t >= 0) tabs->setTabView(as<TabView>(decode(static_cast<uint32_t>(t), depth + 1, "the tab view")));
      if (!tabs->view()) tabs->setView(tabs->tabView());
    }
    if (auto* split = as<SplitViewController>(controller.get())) {
      const int64_t v = entryOfClass(o, [](std::string_view c) { return is(c, "NSSplitView"); });
      if (v >= 0) split->setSplitView(as<View>(decode(static_cast<uint32_t>(v), depth + 1, "the split view")));
      if (!split->view()) split->setView(split->splitView());
      for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
        if (e->key == 0 || !e->value.isObject()) continue;
        for (uint32_t m : memberObjects(static_cast<int64_t>(e->value.index))) {
          if (!is(a_.className(m), "NSSplitViewItem")) continue;
          if (auto item = as<SplitViewItem>(decode(m, depth + 1, "the split view items"))) split->addSplitViewItem(std::move(item));
        }
      }
    }
    // Storyboard segue templates: kept with the controller, for the storyboard to match.
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key == 0 || !e->value.isObject()) continue;
      if (a_.className(e->value.index).find("Array") == std::string::npos) continue;
      for (uint32_t m : memberObjects(static_cast<int64_t>(e->value.index))) {
        if (a_.className(m).find("SegueTemplate") == std::string::npos) continue;
        if (auto segue = decode(m, depth + 1, "the segue templates")) controller->addSceneObject(std::move(segue));
      }
    }
    return controller;
  }

  std::shared_ptr<InterfaceObject> decodeWindowController(uint32_t o, const String& custom, int depth) {
    auto controller = make<WindowController>(custom, [this] { return arena_.make<WindowController>(); });
    remember(o, controller);
    const int64_t w = entryOfClass(o, [](std::string_view c) { return is(c, "NSWindowTemplate"); });
    if (w >= 0) controller->setWindow(as<Window>(decode(static_cast<uint32_t>(w), depth + 1, "the window")));
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key == 0 || !e->value.isObject()) continue;
      if (a_.className(e->value.index).find("Array") == std::string::npos) continue;
      for (uint32_t m : memberObjects(static_cast<int64_t>(e->value.index))) {
        if (a_.className(m).find("SegueTemplate") == std::string::npos) continue;
        if (auto segue = decode(m, depth + 1, "the segue templates")) controller->addSceneObject(std::move(segue));
      }
    }
    return controller;
  }

  // --- grid views and rule editors -----------------------------------------------------------------

  // Rows, columns and cells are found by their classes; a cell names its row and column and holds
  // its content view.
  void decodeGridView(uint32_t o, GridView& grid, int depth) {
    grid.setRowSpacing(number(o, "NSGrid_rowSpacing", grid.rowSpacing()));
    grid.setColumnSpacing(number(o, "NSGrid_columnSpacing", grid.columnSpacing()));
    std::vector<uint32_t> rows, columns, cells;
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key == 0 || !e->value.isObject() || a_.className(e->value.index).find("Array") == std::string::npos) continue;
      for (uint32_t m : memberObjects(static_cast<int64_t>(e->value.index))) {
        const std::string_view c = a_.className(m);
        if (is(c, "NSGridRow")) rows.push_back(m);
        if (is(c, "NSGridColumn")) columns.push_back(m);
        if (is(c, "NSGridCell")) cells.push_back(m);
      }
    }
    for (uint32_t r : rows) {
      auto row = make<GridRow>(String(), [this] { return arena_.make<GridRow>(); });
      remember(r, row);
      row->setHidden(boolean(r, "NSGrid_hidden", false));
      grid.addRow(row);
      current_ = &grid;
    }
    for (uint32_t c : columns) {
      auto column = make<GridColumn>(String(), [this] { return arena_.make<GridColumn>(); });
      remember(c, column);
      column->setHidden(boolean(c, "NSGrid_hidden", false));
      grid.addColumn(column);
      current_ = &grid;
    }
    const auto indexIn = [](const std::vector<uint32_t>& list, int64_t o) -> long {
      for (std::size_t i = 0; i < list.size(); ++i) {
        if (static_cast<int64_t>(list[i]) == o) return static_cast<long>(i);
      }
      return -1;
    };
    for (uint32_t c : cells) {
      auto cell = make<GridCell>(String(), [this] { return arena_.make<GridCell>(); });
      remember(c, cell);
      const long row = indexIn(rows, entryOfClass(c, [](std::string_view k) { return is(k, "NSGridRow"); }));
      const long column = indexIn(columns, entryOfClass(c, [](std::string_view k) { return is(k, "NSGridColumn"); }));
      std::shared_ptr<View> content;
      for (const archive::ArchiveEntry* e = a_.begin(c); !content && e != a_.end(c); ++e) {
        if (e->key == 0 || !e->value.isObject()) continue;
        const std::string_view k = a_.className(e->value.index);
        if (is(k, "NSGridRow") || is(k, "NSGridColumn") || is(k, "NSGridView")) continue;
        auto made = decode(e->value.index, depth + 1, "a grid cell");
        content = as<View>(made);
      }
      if (!grid.addCell(cell, row, column, content)) warn(describe(c) + " names no row or column of its grid");
      current_ = &grid;
    }
  }

  // Row templates are found by class; each template's views are the views among its collections.
  void decodeRuleEditor(uint32_t o, RuleEditor& rules, int depth) {
    rules.setRowHeight(number(o, "NSRuleEditorRowHeight", rules.rowHeight()));
    for (const archive::ArchiveEntry* e = a_.begin(o); e != a_.end(o); ++e) {
      if (e->key == 0 || !e->value.isObject() || a_.className(e->value.index).find("Array") == std::string::npos) continue;
      for (uint32_t t : memberObjects(static_cast<int64_t>(e->value.index))) {
        if (!endsWith(a_.className(t), "RowTemplate")) continue;
        auto row = make<RuleEditorRowTemplate>(String(), [&] {
          auto r = arena_.make<RuleEditorRowTemplate>();
          r->setClassName(utf8(a_.className(t)));
          return r;
        });
        remember(t, row);
        for (const archive::ArchiveEntry* te = a_.begin(t); te != a_.end(t); ++te) {
          if (te->key == 0 || !te->value.isObject()) continue;
          for (uint32_t v : memberObjects(static_cast<int64_t>(te->value.index))) {
            if (!has(v, "NSFrame") && !has(v, "NSFrameSize") && !has(v, "NSCell")) continue;
            if (auto view = as<View>(decode(v, depth + 2, "a row template's views"))) row->addTemplateView(std::move(view));
          }
        }
        rules.addRowTemplate(row);
        current_ = &rules;
      }
    }
  }

  // --- toolbars ------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeToolbar(uint32_t o, const String& custom, int depth) {
    auto toolbar = make<Toolbar>(custom, [this] { return arena_.make<Toolbar>(); });
    remember(o, toolbar);
    if (String id = string(o, "NSToolbarIdentifier"); !id.isNil()) toolbar->setIdentifier(id);
    toolbar->setDisplayMode(static_cast<Toolbar::DisplayMode>(std::clamp(integer(o, "NSToolbarDisplayMode", 0), 0L, 3L)));
    toolbar->setSizeMode(static_cast<Toolbar::SizeMode>(std::clamp(integer(o, "NSToolbarSizeMode", 0), 0L, 2L)));
    toolbar->setAllowsUserCustomization(boolean(o, "NSToolbarAllowsUserCustomization", false));
    toolbar->setAutosavesConfiguration(boolean(o, "NSToolbarAutosavesConfiguration", false));
    toolbar->setVisible(boolean(o, "NSToolbarPrefersToBeShown", true));
    auto item = [&](const ArchiveValue& v, const char* key) -> std::shared_ptr<ToolbarItem> {
      if (!v.isObject()) return nullptr;
      return as<ToolbarItem>(decode(v.index, depth + 1, key));
    };
    for (const char* key : {"NSToolbarIBAllowedItems", "NSToolbarIBIdentifiedItems"}) {
      for (const auto& [k, v] : dictionary(ref(o, key))) {
        if (auto i = item(v, key)) toolbar->addAllowedItem(i);
      }
    }
    for (uint32_t v : memberObjects(ref(o, "NSToolbarIBDefaultItems"))) {
      if (auto i = item(KeyedArchive::object(v), "NSToolbarIBDefaultItems")) {
        toolbar->addAllowedItem(i);
        toolbar->addDefaultItem(i);
      }
    }
    return toolbar;
  }

  std::shared_ptr<InterfaceObject> decodeToolbarItem(uint32_t o, std::string_view cls, const String& custom, int depth) {
    auto item = make<ToolbarItem>(custom, [&] {
      auto i = arena_.make<ToolbarItem>();
      if (!is(cls, "NSToolbarItem")) i->setClassName(classText(o, cls));
      return i;
    });
    remember(o, item);
    if (String id = string(o, "NSToolbarItemIdentifier"); !id.isNil()) item->setItemIdentifier(id);
    if (String s = string(o, "NSToolbarItemLabel"); !s.isNil()) item->setLabel(s);
    if (String s = string(o, "NSToolbarItemPaletteLabel"); !s.isNil()) item->setPaletteLabel(s);
    if (String s = string(o, "NSToolbarItemToolTip"); !s.isNil()) item->setToolTip(s);
    if (String s = imageName(get(o, "NSToolbarItemImage")); !s.isNil()) item->setImageName(s);
    if (String s = string(o, "NSToolbarItemImageName"); !s.isNil()) item->setImageName(s);
    if (String s = string(o, "NSToolbarItemAction"); !s.isNil()) item->setAction(s);
    item->setTag(integer(o, "NSToolbarItemTag", 0));
    item->setEnabled(boolean(o, "NSToolbarItemEnabled", true));
    if (auto s = size(o, "NSToolbarItemMinSize")) item->setMinSize(*s);
    if (auto s = size(o, "NSToolbarItemMaxSize")) item->setMaxSize(*s);
    if (auto view = child<View>(o, "NSToolbarItemView", depth)) item->setView(std::move(view));
    if (auto menu = child<MenuItem>(o, "NSToolbarItemMenuFormRepresentation", depth)) item->setMenuFormRepresentation(std::move(menu));
    return item;
  }

  // --- menus ---------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeMenu(uint32_t o, const String& custom, int depth) {
    auto menu = make<Menu>(custom, [this] { return arena_.make<Menu>(); });
    remember(o, menu);
    if (String title = string(o, "NSTitle"); !title.isNil()) menu->setTitle(title);
    // The private names of the application's special menus, as the document format names them.
    static constexpr std::pair<const char*, const char16_t*> kRoles[] = {
        {"_NSMainMenu", u"main"},         {"_NSAppleMenu", u"apple"}, {"_NSWindowsMenu", u"window"},
        {"_NSServicesMenu", u"services"}, {"_NSHelpMenu", u"help"},   {"_NSFontMenu", u"font"},
        {"_NSRecentDocumentsMenu", u"recentDocuments"}};
    const std::string name = string(o, "NSName").UTF8String();
    for (const auto& [archived, role] : kRoles) {
      if (name == archived) menu->setSystemMenu(role);
    }
    menu->setAutoenablesItems(!boolean(o, "NSNoAutoenable", false));
    for (uint32_t i : memberObjects(ref(o, "NSMenuItems"))) {
      if (auto item = as<MenuItem>(decode(i, depth + 1, "NSMenuItems"))) menu->addItem(std::move(item));
    }
    return menu;
  }

  std::shared_ptr<InterfaceObject> decodeMenuItem(uint32_t o, const String& custom, int depth) {
    auto item = make<MenuItem>(custom, [this] { return arena_.make<MenuItem>(); });
    remember(o, item);
    item->setSeparatorItem(boolean(o, "NSIsSeparator", false));
    if (String title = string(o, "NSTitle"); !title.isNil()) item->setTitle(title);
    if (String key = string(o, "NSKeyEquiv"); !key.isNil()) item->setKeyEquivalent(key);
    item->setKeyEquivalentModifierMask(static_cast<unsigned long>(integer(o, "NSKeyEquivModMask", 1L << 20)));
    item->setTag(integer(o, "NSTag", 0));
    item->setState(static_cast<int>(integer(o, "NSState", 0)));
    item->setHidden(boolean(o, "NSIsHidden", false));
    item->setEnabled(!boolean(o, "NSIsDisabled", false) && !item->isSeparatorItem());
    if (String image = imageName(get(o, "NSImage")); !image.isNil()) item->setImageName(image);
    if (String tip = string(o, "NSToolTip"); !tip.isNil()) item->setToolTip(tip);
    if (auto submenu = child<Menu>(o, "NSSubmenu", depth)) item->setSubmenu(std::move(submenu));
    return item;
  }

  // --- cells ---------------------------------------------------------------------------------------

  std::shared_ptr<InterfaceObject> decodeCell(uint32_t o, std::string_view cls, const String& custom, int depth) {
    std::shared_ptr<Cell> cell;
    // What the cell is, known from its factory unless a class of the host's made it (as for views).
    unsigned kinds = kAskKinds;
    auto named = [&](auto factory) {
      cell = make<Cell>(custom, factory);
      if (custom.isNil() || custom.length() == 0) kinds = cellKinds<std::remove_cvref_t<decltype(*factory())>>();
    };
    if (is(cls, "NSButtonCell")) {
      named([this] { return arena_.make<ButtonCell>(); });
    } else if (is(cls, "NSPopUpButtonCell")) {
      named([this] { return arena_.make<PopUpButtonCell>(); });
    } else if (is(cls, "NSComboBoxCell")) {
      named([this] { return arena_.make<ComboBoxCell>(); });
    } else if (is(cls, "NSTokenFieldCell")) {
      named([this] { return arena_.make<TokenFieldCell>(); });
    } else if (is(cls, "NSTextFieldCell") || is(cls, "NSSecureTextFieldCell")) {
      named([&] {
        auto c = arena_.make<TextFieldCell>();
        if (!is(cls, "NSTextFieldCell")) c->setClassName(classText(o, cls));
        return c;
      });
    } else if (is(cls, "NSSearchFieldCell")) {
      named([this] { return arena_.make<SearchFieldCell>(); });
    } else if (is(cls, "NSTableHeaderCell")) {
      named([this] { return arena_.make<TableHeaderCell>(); });
    } else if (is(cls, "NSImageCell")) {
      named([this] { return arena_.make<ImageCell>(); });
    } else if (is(cls, "NSSegmentedCell")) {
      named([this] { return arena_.make<SegmentedCell>(); });
    } else {
      named([&] {
        auto c = arena_.make<ActionCell>();
        c->setClassName(classText(o, cls));
        return c;
      });
    }
    remember(o, cell);

    const auto flags = static_cast<unsigned long>(integer(o, "NSCellFlags", 0));
    const auto flags2 = static_cast<unsigned long>(integer(o, "NSCellFlags2", 0));
    const ArchiveValue support = get(o, "NSSupport");
    // Asked before the font is read, while the cell's entries are indexed.
    const bool tagged = has(o, "NSTag");
    const long tag = tagged ? integer(o, "NSTag") : 0;
    if (auto f = font(support)) cell->setFont(*f);
    cell->setAlignment(static_cast<TextAlignment>(std::min((flags2 >> 26) & 7ul, 4ul)));
    cell->setControlSize(static_cast<ControlSize>(std::min((flags2 >> 17) & 7ul, 3ul)));
    const auto mode = static_cast<LineBreakMode>(std::min((flags2 >> 9) & 7ul, 5ul));
    cell->setLineBreakMode(mode);
    const bool scrollable = (flags & 0x100000ul) != 0;
    cell->setScrollable(scrollable);
    if (!scrollable && cellAs<TextFieldCell>(*cell, kinds)) {
      // The wraps bit is stored inverted.
      cell->setWraps((flags & 0x40ul) == 0 &&
                     (mode == LineBreakMode::ByWordWrapping || mode == LineBreakMode::ByCharWrapping));
    }
    cell->setEnabled((flags & 0x20000000ul) == 0);
    cell->setEditable((flags & 0x10000000ul) != 0);
    cell->setSelectable((flags & 0x200000ul) != 0 || cell->isEditable());
    cell->setBordered((flags & 0x800000ul) != 0);
    cell->setBezeled((flags & 0x400000ul) != 0);
    cell->setState((flags & 0x80000000ul) ? 1 : 0);
    if (tagged) cell->setTag(tag);
    if (auto formatter = child<InterfaceObject>(o, "NSFormatter", depth)) cell->setFormatter(std::move(formatter));
    decodeValues(o, *cell);

    const ArchiveValue contents = get(o, "NSContents");
    if (auto* image = cellAs<ImageCell>(*cell, kinds)) {
      if (String name = imageName(contents); !name.isNil()) image->setImageName(name);
      static const String kScaling[] = {u"proportionallyDown", u"axesIndependently", u"none",
                                                     u"proportionallyUpOrDown"};
      const long scale = integer(o, "NSScale", 0);
      if (scale >= 0 && scale < 4) image->setImageScaling(kScaling[scale]);
    }
    if (auto* button = cellAs<ButtonCell>(*cell, kinds)) decodeButtonCell(o, *button);
    if (auto* popUp = cellAs<PopUpButtonCell>(*cell, kinds)) {
      popUp->setPullsDown(boolean(o, "NSPullDown", false));
      if (auto menu = child<Menu>(o, "NSMenu", depth)) popUp->setMenu(std::move(menu));
      const int64_t selected = ref(o, "NSMenuItem");
      if (selected >= 0) selectedItems_.push_back({popUp, static_cast<uint32_t>(selected)});
    }
    if (auto* field = cellAs<TextFieldCell>(*cell, kinds)) {
      if (String p = string(o, "NSPlaceholderString"); !p.isNil()) field->setPlaceholderString(p);
      field->setDrawsBackground(boolean(o, "NSDrawsBackground", false));
      const ArchiveValue background = get(o, "NSBackgroundColor"), text = get(o, "NSTextColor");
      field->setBackgroundColor(color(background));
      field->setTextColor(color(text));
    }
    if (auto* segmented = cellAs<SegmentedCell>(*cell, kinds)) {
      static const String kTracking[] = {u"selectOne", u"selectAny", u"momentary"};
      const long tracking = integer(o, "NSTrackingMode", 0);
      if (tracking >= 0 && tracking < 3) segmented->setTrackingMode(kTracking[tracking]);
      const long selectedSegment = integer(o, "NSSelectedSegment", -1);
      long index = 0;
      for (uint32_t s : memberObjects(ref(o, "NSSegmentImages"))) {
        Segment segment;
        if (String label = string(s, "NSSegmentItemLabel"); !label.isNil()) segment.label = label;
        if (String image = imageName(get(s, "NSSegmentItemImage")); !image.isNil()) segment.imageName = image;
        if (String tip = string(s, "NSSegmentItemTooltip"); !tip.isNil()) segment.toolTip = tip;
        if (String tip = string(s, "NSSegmentItemToolTip"); !tip.isNil()) segment.toolTip = tip;
        segment.width = number(s, "NSSegmentItemWidth", 0);
        segment.tag = integer(s, "NSSegmentItemTag", 0);
        segment.enabled = !boolean(s, "NSSegmentItemDisabled", false);
        segment.selected = boolean(s, "NSSegmentItemSelected", index == selectedSegment);
        segmented->addSegment(std::move(segment));
        ++index;
      }
    }
    if (auto* combo = cellAs<ComboBoxCell>(*cell, kinds)) {
      std::vector<String> items;
      for (const char* key : {"NSPopUpListData", "NSObjectValues"}) {
        for (const ArchiveValue& v : memberValues(ref(o, key))) {
          if (String item = stringValue(v); !item.isNil()) items.push_back(item);
        }
        if (!items.empty()) break;
      }
      combo->setObjectValues(std::move(items));
      combo->setUsesDataSource(boolean(o, "NSUsesDataSource", false));
      if (has(o, "NSVisibleItemCount")) combo->setNumberOfVisibleItems(integer(o, "NSVisibleItemCount", 5));
    }
    if (auto* tokens = cellAs<TokenFieldCell>(*cell, kinds)) {
      // A token field's value is the list of its tokens.
      if (contents.isObject() && a_.className(contents.index).find("Array") != std::string::npos) {
        std::vector<String> list;
        for (const ArchiveValue& v : memberValues(contents.index)) {
          if (String token = stringValue(v); !token.isNil()) list.push_back(token);
        }
        tokens->setTokens(std::move(list));
      } else if (String text = stringValue(contents, true); !text.isNil()) {
        tokens->setTitle(text);
      }
    }
    // The title last, as in the document reader: a pop-up takes its title from the selected item.
    if (!cellAs<PopUpButtonCell>(*cell, kinds) && !cellAs<ImageCell>(*cell, kinds) && !cellAs<TokenFieldCell>(*cell, kinds)) {
      if (String title = stringValue(contents, true); !title.isNil()) cell->setTitle(title);
    }
    return cell;
  }

  void decodeButtonCell(uint32_t o, ButtonCell& cell) {
    const ArchiveValue normalImage = get(o, "NSNormalImage"), alternateImage = get(o, "NSAlternateImage");
    const String normal = imageName(normalImage);
    const String alternate = imageName(alternateImage);
    auto names = [&](std::u16string_view name) {
      return (!normal.isNil() && normal.view() == name) || (!alternate.isNil() && alternate.view() == name);
    };
    ButtonType type = ButtonType::MomentaryPushIn;
    if (has(o, "NSAuxButtonType")) {
      type = static_cast<ButtonType>(std::clamp(integer(o, "NSAuxButtonType", 7), 0L, 7L));
    } else if (names(u"NSSwitch")) {
      type = ButtonType::Switch;
    } else if (names(u"NSRadioButton")) {
      type = ButtonType::Radio;
    }
    cell.setButtonType(type);
    const bool toggle = type == ButtonType::Switch || type == ButtonType::Radio;
    std::string title;
    const bool hasTitle = a_.stringOf(get(o, "NSContents"), title) && !title.empty();
    cell.setImagePosition(toggle ? CellImagePosition::ImageLeft
                          : (!normal.isNil() && !hasTitle) ? CellImagePosition::ImageOnly
                          : !normal.isNil()                ? CellImagePosition::ImageLeft
                                                           : CellImagePosition::NoImage);
    if (!toggle && !normal.isNil()) cell.setImageName(normal);
    if (!toggle && !alternate.isNil()) cell.setAlternateImageName(alternate);
    if (String t = string(o, "NSAlternateContents"); !t.isNil() && t.length() > 0) cell.setAlternateTitle(t);
    if (String k = string(o, "NSKeyEquivalent"); !k.isNil()) cell.setKeyEquivalent(k);
    const unsigned long flags2 = static_cast<unsigned long>(integer(o, "NSButtonFlags2", 0));
    const long bezel = has(o, "NSBezelStyle") ? integer(o, "NSBezelStyle", 0)
                                              : static_cast<long>((flags2 & 7) | ((flags2 & 0x20) >> 2));
    static const String kBezels[] = {String(),              u"rounded",         u"regularSquare",
                                                  u"thick",        u"thicker",         u"disclosure",
                                                  u"shadowlessSquare", u"circular",    u"texturedSquare",
                                                  u"helpButton",   u"smallSquare",     u"texturedRounded",
                                                  u"roundRect",    u"recessed",        u"roundedDisclosure",
                                                  u"inline"};
    if (bezel > 0 && bezel < 16) cell.setBezelStyle(kBezels[bezel]);
  }

  // --- cross references and connections ------------------------------------------------------------

  std::shared_ptr<Object> made(uint32_t o) const { return o < memo_.size() ? memo_[o] : nullptr; }

  void resolveReferences() {
    for (auto& [table, o] : headerViews_) {
      auto header = as<View>(made(o));
      if (header && !table->isDescendantOf(header.get())) table->setHeaderView(header);
    }
    for (auto& [outline, o] : outlineColumns_) {
      if (auto column = as<TableColumn>(made(o))) outline->setOutlineTableColumn(std::move(column));
    }
    for (auto& [tabs, o] : selectedTabs_) {
      for (long i = 0; i < tabs->numberOfTabViewItems(); ++i) {
        if (tabs->tabViewItemAtIndex(i) == made(o)) tabs->selectTabViewItemAtIndex(i);
      }
    }
    for (auto& [popUp, o] : selectedItems_) {
      auto menu = popUp->menu();
      for (long i = 0; menu && i < menu->numberOfItems(); ++i) {
        if (menu->itemAtIndex(i) == made(o)) popUp->selectItemAtIndex(i);
      }
    }
  }

  // A connection end: the owner, a placeholder, or an object made. `found` is false for an object
  // that is not part of the interface's tree.
  std::shared_ptr<Object> resolve(int64_t o, bool& found, String& id) {
    found = true;
    if (o < 0) {
      id = String();
      return nullptr;
    }
    const auto index = static_cast<uint32_t>(o);
    if (o == layout_.owner) {
      id = ownerIdentifier();
      return options_.owner;
    }
    if (state_[index] & kPlaceholder) {
      std::string_view name;
      if (a_.textOf(get(index, "NSClassName"), name) && name == "NSApplication") {
        id = applicationIdentifier();
        return options_.application;
      }
      static const String kFirstResponder = u"-1";
      id = kFirstResponder;
      return nullptr;
    }
    auto object = made(index);
    if (!object && (state_[index] & kProgress) == kNotReached) {
      // Reached only through a connection (a formatter or controller outside the tree): made now,
      // owned by nothing but the connection's destination.
      object = decode(index, 0, "a connection");
    }
    // An object made has its identifier already (the same text, shared).
    id = object && memo_[index] ? memo_[index]->archiveIdentifier() : designerIdentifierOf(index);
    found = object != nullptr;
    return object;
  }

  // What a connector class makes, by the words of its name, worked out once per class name.
  static constexpr uint8_t kBindingConnector = 1, kHelpConnector = 2, kActionConnector = 4, kOutletConnector = 8,
                           kSwappedEnds = 16, kConnectorKnown = 128;
  uint8_t connectorKind(uint32_t c) {
    const uint32_t n = a_.classNameIndex(c);
    if (connectorKinds_.empty()) connectorKinds_.resize(a_.nameCount());
    uint8_t& kind = connectorKinds_[n];
    if (!(kind & kConnectorKnown)) {
      const std::string_view cls = a_.className(c);
      const auto has = [&](const char* word) { return cls.find(word) != std::string_view::npos; };
      kind = kConnectorKnown | (has("Binding") ? kBindingConnector : 0) |
             (has("ToolTip") || is(cls, "NSIBHelpConnector") ? kHelpConnector : 0) |
             (has("Control") || has("Action") ? kActionConnector : 0) | (has("Outlet") ? kOutletConnector : 0) |
             (is(cls, "IBActionConnection") ? kSwappedEnds : 0);
    }
    return kind;
  }

  void connect(uint32_t c) {
    auto end = [&](const char* modern, const char* older) {
      const int64_t r = ref(c, modern);
      return r >= 0 ? r : ref(c, older);
    };
    const uint8_t connector = connectorKind(c);
    const bool binding = connector & kBindingConnector;
    if (connector & (kBindingConnector | kHelpConnector)) {
      // These connectors make no use of a label; only its table key is recorded, as for any string read.
      std::string_view text;
      if (const ArchiveValue v = get(c, "NSLabel"); a_.textOf(v, text)) {
        recordLocalizableKey(v);
      } else if (const ArchiveValue older = get(c, "label"); a_.textOf(older, text)) {
        recordLocalizableKey(older);
      }
    }
    if (binding) {
      // The older XML form wraps the binding connector.
      const int64_t inner = ref(c, "connector");
      connectBinding(inner >= 0 ? static_cast<uint32_t>(inner) : c);
      return;
    }
    if (connector & kHelpConnector) {
      connectHelp(c);
      return;
    }
    String label = string(c, "NSLabel");
    if (label.isNil()) label = string(c, "label");
    int64_t source = end("NSSource", "source"), destination = end("NSDestination", "destination");
    const bool action = connector & kActionConnector;
    const bool outlet = connector & kOutletConnector;
    if (!action && !outlet) return;
    // The older XML form names an action's target as its source.
    if (connector & kSwappedEnds) std::swap(source, destination);
    bool sourceFound = false, destinationFound = false;
    String sourceId, destinationId;
    auto from = resolve(source, sourceFound, sourceId);
    auto to = resolve(destination, destinationFound, destinationId);
    const char* kind = action ? "action " : "outlet ";
    if (!sourceFound || !destinationFound) {
      return warn(kind + label.UTF8String() + ": an end is not part of the interface");
    }
    auto placeholderId = [](const String& id) { return !id.isNil() && (id.view() == u"-2" || id.view() == u"-3"); };
    if (placeholderId(sourceId) && !from) return;
    if (placeholderId(destinationId) && !to) return;
    // A connector listed many times makes as many connections, each with its own texts.
    charge(kConnectionCost + 2 * sizeof(unichar) * (label.length() + sourceId.length() + destinationId.length()));
    if (outlet) {
      if (!from) return;
      if (auto* receiver = as<NibConnectable>(from.get())) receiver->setOutlet(label, to);
      nib_.connections_.push_back(
          {NibConnection::Kind::Outlet, std::move(label), std::move(sourceId), std::move(destinationId), String(), from, to,
           designerIdentifierOf(c)});
      return;
    }
    if (!from) return;
    Object* sender = from.get();
    if (auto* control = as<Control>(sender)) {
      control->setTarget(to);
      control->setAction(label);
    } else if (auto* cell = as<ActionCell>(sender)) {
      cell->setTarget(to);
      cell->setAction(label);
    } else if (auto* item = as<MenuItem>(sender)) {
      item->setTarget(to);
      item->setAction(label);
    } else if (auto* toolbarItem = as<ToolbarItem>(sender)) {
      toolbarItem->setTarget(to);
      toolbarItem->setAction(label);
    }
    if (auto* receiver = as<NibConnectable>(to.get())) receiver->connectAction(label, from);
    nib_.connections_.push_back(
        {NibConnection::Kind::Action, std::move(label), std::move(sourceId), std::move(destinationId), String(), from, to,
         designerIdentifierOf(c)});
  }

  void connectBinding(uint32_t c) {
    const String name = string(c, "NSBinding");
    const String keyPath = string(c, "NSKeyPath");
    bool sourceFound = false, destinationFound = false;
    String sourceId, destinationId;
    auto source = resolve(ref(c, "NSSource"), sourceFound, sourceId);
    auto destination = resolve(ref(c, "NSDestination"), destinationFound, destinationId);
    if (!destinationFound) warn("binding " + name.UTF8String() + ": the destination is not part of the interface");
    auto* bindable = as<Bindable>(source.get());
    if (!bindable || name.isNil()) return;
    charge(kConnectionCost +
           2 * sizeof(unichar) * (name.length() + keyPath.length() + sourceId.length() + destinationId.length()));
    std::vector<Dictionary::Entry> options;
    // The tables name a binding's strings by the binding's identifier ("12.ibShadowedNullPlaceholder"):
    // where the archive gives the connector none, the keys its localizable strings keep give it.
    String identifier = designerIdentifierOf(c);
    const auto pairs = dictionary(ref(c, "NSOptions"));
    options.reserve(pairs.size());
    for (const auto& [k, v] : pairs) {
      const String key = stringValue(k);
      if (key.isNil()) continue;
      if (std::string named; identifier.isNil() && a_.localizableKeyOf(v, named) && named.find('.') != std::string::npos) {
        identifier = utf8(named.substr(0, named.find('.')));
      }
      std::string text;
      double n = 0;
      if (v.kind == ArchiveValue::Kind::Bool) {
        options.emplace_back(key, Value(v.integer != 0));
      } else if (v.kind == ArchiveValue::Kind::Integer) {
        options.emplace_back(key, Value(static_cast<long long>(v.integer)));
      } else if (String value = stringValue(v); !value.isNil()) {
        charge(2 * value.length() * sizeof(unichar));  // a text of its own for each binding, however many share it
        options.emplace_back(key, Value(value));
      } else if (a_.numberOf(v, n)) {
        if (n == std::floor(n) && std::fabs(n) < 9e15) {
          options.emplace_back(key, Value(static_cast<long long>(n)));
        } else {
          options.emplace_back(key, Value(n));
        }
      } else if (v.kind != ArchiveValue::Kind::Nil) {
        warn("binding " + name.UTF8String() + ": option " + key.UTF8String() + " of kind " +
             (v.isObject() ? shownClass(v.index) : std::string("data")) + " skipped");
      }
    }
    bindable->bind(name, destination, keyPath, Dictionary(std::move(options)), arena_);
    nib_.connections_.push_back(
        {NibConnection::Kind::Binding, name, std::move(sourceId), std::move(destinationId), keyPath, source, destination,
         std::move(identifier)});
  }

  // Tool tips given beside the objects: help connectors and tool-tip attributes.
  void connectHelp(uint32_t c) {
    String file = string(c, "NSFile");
    if (!file.isNil() && file.view() != u"NSToolTipHelpKey") return;
    int64_t target = ref(c, "NSDestination");
    if (target < 0) target = ref(c, "object");
    bool found = false;
    String id;
    auto object = resolve(target, found, id);
    // The tip's table key belongs to the object it is shown for.
    InterfaceObject* const outer = current_;
    current_ = as<InterfaceObject>(object.get());
    String tip = string(c, "NSMarker");
    if (tip.isNil()) tip = string(c, "toolTip");
    current_ = outer;
    if (!object || tip.isNil()) return;
    if (auto* view = as<View>(object.get())) view->setToolTip(tip);
    else if (auto* item = as<MenuItem>(object.get())) item->setToolTip(tip);
    else if (auto* tab = as<TabViewItem>(object.get())) tab->setToolTip(tip);
    else if (auto* toolbarItem = as<ToolbarItem>(object.get())) toolbarItem->setToolTip(tip);
    else if (auto* column = as<TableColumn>(object.get())) column->setHeaderToolTip(tip);
  }

  // dynamic_cast (of a pointer or a shared pointer), remembered for the read.
  template <class To, class Pointer>
  auto as(Pointer&& p) const -> decltype(std::declval<RememberedCasts&>().as<To>(std::forward<Pointer>(p))) {
    return casts_.as<To>(std::forward<Pointer>(p));
  }

  // Every object the read makes is taken from one arena, held by what is made in it: the objects
  // handed out alone keep the interface (and its memory) alive, and each is a pointer moved along
  // a chunk instead of one heap block.
  mutable Arena arena_{std::size_t{64} << 10};
  mutable RememberedCasts casts_;
  std::string packed_;  // a generic object's attributes being packed
  std::vector<uint32_t> memberStack_;  // the member lists being read, innermost last
  mutable std::vector<String> classTexts_;  // by name, made on first use
  std::vector<uint8_t> connectorKinds_;     // by name, worked out on first use
  const KeyedArchive& a_;
  const archive::ArchiveLayout& layout_;
  const NibLoadOptions& options_;
  const ClassRegistry& registry_;
  std::size_t budget_;
  std::size_t used_ = 0;
  std::size_t visitBudget_;
  std::size_t visits_ = 0;
  Nib nib_;
  std::vector<std::shared_ptr<InterfaceObject>> memo_;
  // By object: how far its reading is, and what the object data says of it.
  static constexpr uint8_t kNotReached = 0, kBeingDecoded = 1, kDone = 2, kProgress = 3, kPlaceholder = 4,
                           kVisibleWindow = 8;
  std::vector<uint8_t> state_;
  std::vector<InterfaceObject*> made_;
  std::vector<std::shared_ptr<InterfaceObject>> replaced_;
  static constexpr unsigned kKeySlotBits = 9;
  struct KeySlot {
    const char* name = nullptr;
    uint32_t index = 0;
  };
  mutable KeySlot keySlots_[std::size_t{1} << kKeySlotBits];
  // Where each key is among the entries of object indexed_, valid where stamped with stamp_.
  struct KeyEntry {
    uint32_t stamp = 0;
    uint32_t entry = 0;
  };
  mutable std::vector<KeyEntry> keyEntries_;
  mutable uint32_t stamp_ = 0;
  mutable uint32_t indexed_ = UINT32_MAX;
  std::vector<std::pair<TableView*, uint32_t>> headerViews_;
  std::vector<std::pair<OutlineView*, uint32_t>> outlineColumns_;
  std::vector<std::pair<TabView*, uint32_t>> selectedTabs_;
  std::vector<std::pair<PopUpButtonCell*, uint32_t>> selectedItems_;
  // The object whose strings are being read: the table keys of its localizable strings go to it.
  mutable InterfaceObject* current_ = nullptr;
};

Nib decodeKeyedArchive(const KeyedArchive& archive, const NibLoadOptions& options, const String& documentType,
                       std::size_t byteBudget) {
  KeyedNibDecoder decoder(archive, options, byteBudget);
  return decoder.build(documentType);
}

}  // namespace tq
