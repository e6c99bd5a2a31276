// Interfaces in their compiled and archived forms, where the corpus cannot reach: damaged and
// hostile archives of each container, connections, layout and sharing rules, toolbars and stack
// views, the nib as a bundle resource, and the memory bound. The strings each form holds are
// compared with the files' own bytes by nib_forms_corpus_test.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "sanitized_build.h"
#include "support/test_paths.h"
#include "tq/platform/bundle/binary_plist.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/bindings.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

// A read refused with a reason that holds `part`.
::testing::AssertionResult refused(const NibReadResult& r, const std::string& part) {
  if (r) return ::testing::AssertionFailure() << "read, where a refusal naming \"" << part << "\" was due";
  if (r.error().reason.find(part) == std::string::npos) return ::testing::AssertionFailure() << r.error().reason;
  return ::testing::AssertionSuccess();
}

std::string toBinary(plist_t p) {
  char* bin = nullptr;
  uint32_t length = 0;
  plist_to_bin(p, &bin, &length);
  std::string out(bin, length);
  free(bin);
  return out;
}

// --- binary property lists: every kind is compared with libplist by property_list_test ----------

TEST(BinaryPlist, RefusesTrailersAndObjectsThatDoNotFit) {
  plist_t array = plist_new_array();
  plist_array_append_item(array, plist_new_string("abc"));
  const std::string bytes = toBinary(array);
  plist_free(array);
  std::string error;
  ASSERT_TRUE(BinaryPlist::open(bytes, &error));
  const std::size_t trailer = bytes.size() - 32;
  auto patched = [&](std::size_t at, unsigned char value) {
    std::string b = bytes;
    b[at] = static_cast<char>(value);
    return b;
  };
  // Offset table beyond the end, reference size 0, top object and object count out of range, cut.
  for (const std::string& bad : {patched(trailer + 31, 0xF0), patched(trailer + 7, 0), patched(trailer + 23, 9),
                                 patched(trailer + 15, 0xFF), bytes.substr(0, 20)}) {
    EXPECT_FALSE(BinaryPlist::open(bad, &error));
    EXPECT_FALSE(error.empty());
  }
  // The array claims 14 members where the bytes hold one: the item is refused, not read past.
  const unsigned offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
  const std::size_t tableAt = static_cast<unsigned char>(bytes[trailer + 31]);
  const std::size_t topIndex = static_cast<unsigned char>(bytes[trailer + 23]);
  std::size_t arrayAt = 0;
  for (unsigned i = 0; i < offsetSize; ++i) arrayAt = arrayAt << 8 | static_cast<unsigned char>(bytes[tableAt + topIndex * offsetSize + i]);
  ASSERT_EQ(static_cast<unsigned char>(bytes[arrayAt]), 0xA1);
  auto list = BinaryPlist::open(bytes, &error);
  BinaryPlist::Item top;
  uint64_t ref = 0;
  ASSERT_TRUE(list->item(list->topObject(), top, &error)) << error;
  EXPECT_FALSE(list->reference(top, 1, ref, &error)) << "past the array's count";
  const std::string claimsMore = patched(arrayAt, 0xAE);
  list = BinaryPlist::open(claimsMore, &error);
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->item(list->topObject(), top, &error));
  EXPECT_NE(error.find("run past"), std::string::npos) << error;
}

// --- compiled keyed archives built in the test ------------------------------------------------------

using Refs = std::vector<std::pair<const char*, uint64_t>>;

// A keyed archive written the way the archiver writes one: $objects with class descriptions, and
// object data naming the owner, the top-level objects and the connectors.
class KeyedArchiveWriter {
 public:
  KeyedArchiveWriter() : objects_(plist_new_array()) {
    plist_array_append_item(objects_, plist_new_string("$null"));
    owner_ = object("NSCustomObject", {{"NSClassName", string("Controller")}});
  }
  ~KeyedArchiveWriter() { plist_free(objects_); }
  uint64_t owner() const { return owner_; }
  uint64_t object(const std::string& cls, const Refs& refs = {}) {
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "$class", plist_new_uid(classIndex(cls)));
    plist_array_append_item(objects_, d);
    const uint64_t o = plist_array_get_size(objects_) - 1;
    for (const auto& [key, target] : refs) ref(o, key, target);
    return o;
  }
  uint64_t string(const std::string& s) {
    plist_array_append_item(objects_, plist_new_string(s.c_str()));
    return plist_array_get_size(objects_) - 1;
  }
  void set(uint64_t o, const char* key, plist_t value) {
    plist_dict_set_item(plist_array_get_item(objects_, static_cast<uint32_t>(o)), key, value);
  }
  void ref(uint64_t o, const char* key, uint64_t target) { set(o, key, plist_new_uid(target)); }
  uint64_t array(const std::vector<uint64_t>& members) {
    const uint64_t a = object("NSMutableArray");
    plist_t list = plist_new_array();
    for (uint64_t m : members) plist_array_append_item(list, plist_new_uid(m));
    set(a, "NS.objects", list);
    return a;
  }
  std::string finish(const std::vector<uint64_t>& topLevel, const std::vector<uint64_t>& connectors = {}) {
    const std::vector<uint64_t> parents(topLevel.size(), owner_);
    const uint64_t data = object("NSIBObjectData", {{"NSRoot", owner_}, {"NSObjectsKeys", array(topLevel)},
                                                    {"NSObjectsValues", array(parents)}, {"NSConnections", array(connectors)}});
    plist_t root = plist_new_dict(), top = plist_new_dict();
    plist_dict_set_item(root, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(root, "$version", plist_new_uint(100000));
    plist_dict_set_item(top, "IB.objectdata", plist_new_uid(data));
    plist_dict_set_item(root, "$top", top);
    plist_dict_set_item(root, "$objects", plist_copy(objects_));
    std::string out = toBinary(root);
    plist_free(root);
    return out;
  }

 private:
  uint64_t classIndex(const std::string& cls) {
    if (auto it = classes_.find(cls); it != classes_.end()) return it->second;
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "$classname", plist_new_string(cls.c_str()));
    plist_array_append_item(objects_, d);
    return classes_[cls] = plist_array_get_size(objects_) - 1;
  }
  plist_t objects_;
  uint64_t owner_ = 0;
  std::map<std::string, uint64_t> classes_;
};

TEST(CompiledNib, BuildsPanelsControlsAndConnectionsToTheOwner) {
  KeyedArchiveWriter w;
  const uint64_t cell = w.object("NSButtonCell", {{"NSContents", w.string("Apply")}});
  w.set(cell, "NSAuxButtonType", plist_new_uint(3));
  const uint64_t button = w.object("NSButton", {{"NSFrame", w.string("{{20, 10}, {120, 32}}")}, {"NSCell", cell}});
  const uint64_t stepper = w.object("NSStepper", {{"NSFrameSize", w.string("{19, 28}")}, {"NSCell", w.object("NSStepperCell")}});
  const uint64_t content = w.object("NSView", {{"NSSubviews", w.array({button, stepper})}});
  const uint64_t window = w.object("NSWindowTemplate", {{"NSWindowRect", w.string("{{100, 200}, {300, 150}}")},
                                                        {"NSWindowClass", w.string("NSPanel")}, {"NSWindowView", content}});
  const uint64_t action = w.object("NSNibControlConnector", {{"NSSource", button}, {"NSDestination", w.owner()}, {"NSLabel", w.string("apply:")}});
  const uint64_t outlet = w.object("NSNibOutletConnector", {{"NSSource", w.owner()}, {"NSDestination", button}, {"NSLabel", w.string("applyButton")}});
  const uint64_t help = w.object("NSIBHelpConnector", {{"NSDestination", button}, {"NSFile", w.string("NSToolTipHelpKey")},
                                                       {"NSMarker", w.string("Applies the settings")}});
  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(w.finish({window}, {action, outlet, help}), options);
  ASSERT_TRUE(r) << r.error().reason;
  ASSERT_EQ(r.nib().topLevelObjects().size(), 1u) << "the owner is not a top-level object";
  auto panel = std::dynamic_pointer_cast<Panel>(r.nib().topLevelObjects()[0]);
  ASSERT_TRUE(panel) << "NSWindowClass NSPanel makes a panel";
  EXPECT_EQ(panel->contentRect().w, 300);
  ASSERT_EQ(panel->contentView()->subviews().size(), 2u);
  auto apply = std::dynamic_pointer_cast<Button>(panel->contentView()->subviews()[0]);
  ASSERT_TRUE(apply);
  EXPECT_EQ(apply->frame().x, 20);
  EXPECT_EQ(apply->buttonCell()->buttonType(), ButtonType::Switch);
  EXPECT_EQ(apply->toolTip(), String(u"Applies the settings")) << "tool tips come as help connectors";
  // A control the model has no class for: the same fallback the document reader makes.
  auto other = std::dynamic_pointer_cast<Control>(panel->contentView()->subviews()[1]);
  ASSERT_TRUE(other);
  EXPECT_EQ(other->className(), String(u"NSStepper"));
  EXPECT_EQ(other->cell()->className(), String(u"NSStepperCell"));
  EXPECT_EQ(other->frame().h, 28);
  EXPECT_EQ(apply->action(), String(u"apply:"));
  EXPECT_EQ(apply->target(), owner);
  EXPECT_EQ(owner->outlet(u"applyButton"), apply);
  ASSERT_EQ(r.nib().connections().size(), 2u);
  EXPECT_EQ(r.nib().connections()[0].destinationIdentifier, String(u"-2"));
}

// A text view's text sits in its storage behind its container and layout manager; the container
// points back at its view.
TEST(CompiledNib, TextViewsCarryTheTextOfTheirStorage) {
  KeyedArchiveWriter w;
  const uint64_t text = w.object("NSTextView", {{"NSFrameSize", w.string("{200, 80}")}});
  const uint64_t contents = w.object("NSMutableString", {{"NS.string", w.string("Release notes\nsecond line")}});
  const uint64_t manager = w.object("NSLayoutManager", {{"NSTextStorage", w.object("NSTextStorage", {{"NSString", contents}})}});
  w.ref(text, "NSTextContainer", w.object("NSTextContainer", {{"NSLayoutManager", manager}, {"NSTextView", text}}));
  NibReadResult r = readNibData(w.finish({text}));
  ASSERT_TRUE(r) << r.error().reason;
  auto view = std::dynamic_pointer_cast<TextView>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(view);
  EXPECT_EQ(view->string(), String(u"Release notes\nsecond line"));
  EXPECT_TRUE(view->isFlipped());
}

// A subview pinned to the four edges of a window's content view: the window grows to hold it when
// its frame is larger, with the margins the constraints give; constraints that are not required
// equalities pin nothing.
TEST(CompiledNib, AWindowGrowsToHoldASubviewPinnedToItsEdges) {
  for (const bool required : {true, false}) {
    KeyedArchiveWriter w;
    const uint64_t stack = w.object("NSStackView", {{"NSFrame", w.string("{{0, 0}, {260, 120}}")}});
    const uint64_t content = w.object("NSView", {{"NSFrameSize", w.string("{200, 100}")}, {"NSSubviews", w.array({stack})}});
    const uint64_t window = w.object("NSWindowTemplate", {{"NSWindowRect", w.string("{{100, 200}, {200, 100}}")}, {"NSWindowView", content}});
    // (first item, attribute, second item, constant): leading 20, trailing 20, top 10, bottom 10.
    const struct { uint64_t first; int attribute; uint64_t second; double constant; } pins[] = {
        {stack, 5, content, 20}, {content, 6, stack, 20}, {stack, 3, content, 10}, {content, 4, stack, 10}};
    std::vector<uint64_t> constraints;
    for (const auto& p : pins) {
      const uint64_t c = w.object("NSLayoutConstraint", {{"NSFirstItem", p.first}, {"NSSecondItem", p.second}});
      w.set(c, "NSFirstAttribute", plist_new_uint(p.attribute));
      w.set(c, "NSSecondAttribute", plist_new_uint(p.attribute));
      w.set(c, "NSConstant", plist_new_real(p.constant));
      if (!required) w.set(c, "NSPriority", plist_new_uint(750));
      constraints.push_back(c);
    }
    w.ref(content, "NSViewConstraints", w.array(constraints));
    NibReadResult r = readNibData(w.finish({window}));
    ASSERT_TRUE(r) << r.error().reason;
    auto win = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
    ASSERT_TRUE(win);
    const Rect sub = win->contentView()->subviews().at(0)->frame();
    if (required) {
      EXPECT_EQ(win->contentRect(), (Rect{100, 160, 300, 140})) << "top left corner kept (y runs up)";
      EXPECT_EQ(win->contentView()->frame().w, 300);
      EXPECT_EQ(sub, (Rect{20, 10, 260, 120}));
    } else {
      EXPECT_EQ(win->contentRect(), (Rect{100, 200, 200, 100}));
      EXPECT_EQ(sub, (Rect{0, 0, 260, 120}));
    }
  }
}

// A cell shared by a field and a column stays one object; its back reference to the field and the
// view's reference to itself are not followed. Two views naming one subviews list: the first keeps
// them and the second is told about.
TEST(CompiledNib, SharedObjectsStaySharedAndBackReferencesAreNotFollowed) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView"), field = w.object("NSTextField");
  const uint64_t cell = w.object("NSTextFieldCell", {{"NSContents", w.string("Name:")}, {"NSControlView", field}});
  w.ref(field, "NSCell", cell);
  w.ref(field, "NSSuperview", view);
  w.ref(view, "NSSubviews", w.array({field}));
  w.ref(view, "NSNextResponder", view);
  const uint64_t column = w.object("NSTableColumn", {{"NSDataCell", cell}});
  const uint64_t list = w.array({w.object("NSView")});
  const uint64_t a = w.object("NSView", {{"NSSubviews", list}}), b = w.object("NSView", {{"NSSubviews", list}});
  NibReadResult r = readNibData(w.finish({view, column, a, b}));
  ASSERT_TRUE(r) << r.error().reason;
  const auto& top = r.nib().topLevelObjects();
  auto v = std::dynamic_pointer_cast<View>(top[0]);
  auto c = std::dynamic_pointer_cast<TableColumn>(top[1]);
  ASSERT_TRUE(v && c);
  EXPECT_EQ(std::dynamic_pointer_cast<Control>(v->subviews()[0])->cell(), c->dataCell());
  EXPECT_EQ(std::dynamic_pointer_cast<View>(top[2])->subviews().size(), 1u);
  EXPECT_TRUE(std::dynamic_pointer_cast<View>(top[3])->subviews().empty());
  ASSERT_EQ(r.nib().warnings().size(), 1u);
  EXPECT_NE(r.nib().warnings()[0].find("subview of two views"), std::string::npos);
}

// Archives that cannot be an interface, each refused with one clear reason.
TEST(CompiledNib, DamagedAndHostileArchivesAreRefused) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView", {{"NSFrame", w.string("{{0, 0}, {10, 10}}")}});
  const std::string good = w.finish({view});
  ASSERT_TRUE(readNibData(good));
  for (std::size_t cut = 0; cut < good.size(); cut += 7) {
    NibReadResult r = readNibData(good.substr(0, cut));
    EXPECT_TRUE(!r && !r.error().reason.empty()) << "cut at " << cut;
  }
  // A UID that names no object.
  plist_t root = nullptr;
  plist_from_bin(good.data(), static_cast<uint32_t>(good.size()), &root);
  plist_dict_set_item(plist_array_get_item(plist_dict_get_item(root, "$objects"), static_cast<uint32_t>(view)),
                      "NSNextResponder", plist_new_uid(90000));
  EXPECT_TRUE(refused(readNibData(toBinary(root)), "reference to object 90000"));
  plist_free(root);
  // Not an interface: a keyed archive without IB.objectdata.
  plist_t plain = plist_new_dict();
  plist_dict_set_item(plain, "$top", plist_new_dict());
  plist_dict_set_item(plain, "$objects", plist_new_array());
  EXPECT_TRUE(refused(readNibData(toBinary(plain)), "IB.objectdata"));
  plist_free(plain);
  // Objects that contain themselves, through subviews and through a submenu.
  KeyedArchiveWriter c;
  const uint64_t outer = c.object("NSView"), inner = c.object("NSView", {{"NSSubviews", c.array({outer})}});
  c.ref(outer, "NSSubviews", c.array({inner}));
  EXPECT_TRUE(refused(readNibData(c.finish({outer})), "contains itself (through NSSubviews)"));
  KeyedArchiveWriter m;
  const uint64_t menu = m.object("NSMenu");
  m.ref(menu, "NSMenuItems", m.array({m.object("NSMenuItem", {{"NSSubmenu", menu}})}));
  EXPECT_TRUE(refused(readNibData(m.finish({menu})), "NSSubmenu"));
  // 1,500 views all naming one array of 1,500 views as their subviews: a small file whose naive
  // reading would visit 2,250,000 members and move each leaf 1,500 times.
  KeyedArchiveWriter s;
  std::vector<uint64_t> leaves, views;
  for (int i = 0; i < 1500; ++i) leaves.push_back(s.object("NSView"));
  const uint64_t shared = s.array(leaves);
  for (int i = 0; i < 1500; ++i) views.push_back(s.object("NSView", {{"NSSubviews", shared}}));
  EXPECT_TRUE(refused(readNibData(s.finish(views)), "share their collections"));
}

// --- NIBArchive built in the test --------------------------------------------------------------

class NIBArchiveWriter {
 public:
  struct Value {
    std::string key;
    int type;
    std::string payload;
  };
  uint32_t object(const std::string& cls, std::vector<Value> values) {
    objects_.push_back({cls, std::move(values)});
    return static_cast<uint32_t>(objects_.size() - 1);
  }
  static Value ref(const std::string& key, uint32_t o) { return {key, 10, std::string(reinterpret_cast<char*>(&o), 4)}; }
  static Value byte(const std::string& key, int v) { return {key, 0, std::string(1, static_cast<char>(v))}; }
  uint32_t string(const std::string& s) { return object("NSString", {{"NS.bytes", 8, s}}); }
  void patch(uint32_t o, std::size_t i, Value v) { objects_[o].second[i] = std::move(v); }

  std::string bytes() const {
    std::vector<std::string> keys, classes;
    auto index = [](std::vector<std::string>& table, const std::string& s) {
      const auto at = static_cast<std::size_t>(std::find(table.begin(), table.end(), s) - table.begin());
      if (at == table.size()) table.push_back(s);
      return static_cast<uint32_t>(at);
    };
    auto varint = [](std::string& out, uint32_t v) {
      for (; v >= 0x80; v >>= 7) out.push_back(static_cast<char>(v & 0x7F));
      out.push_back(static_cast<char>(v | 0x80));
    };
    std::string objects, values, keyTable, classTable;
    uint32_t valueCount = 0;
    for (const auto& [cls, vals] : objects_) {
      varint(objects, index(classes, cls));
      varint(objects, valueCount);
      varint(objects, static_cast<uint32_t>(vals.size()));
      for (const auto& v : vals) {
        varint(values, index(keys, v.key));
        values.push_back(static_cast<char>(v.type));
        if (v.type == 8) varint(values, static_cast<uint32_t>(v.payload.size()));
        values += v.payload;
        ++valueCount;
      }
    }
    for (const auto& k : keys) varint(keyTable, static_cast<uint32_t>(k.size())), keyTable += k;
    for (const auto& c : classes) {
      varint(classTable, static_cast<uint32_t>(c.size() + 1));
      varint(classTable, 0);
      classTable += c + '\0';
    }
    // Header: format 1, coder 10, then (count, offset) of the objects, keys, values and classes.
    const uint32_t start = 50;
    const uint32_t header[] = {1, 10, static_cast<uint32_t>(objects_.size()), start, static_cast<uint32_t>(keys.size()),
                               start + static_cast<uint32_t>(objects.size()), valueCount,
                               start + static_cast<uint32_t>(objects.size() + keyTable.size()), static_cast<uint32_t>(classes.size()),
                               start + static_cast<uint32_t>(objects.size() + keyTable.size() + values.size())};
    return "NIBArchive" + std::string(reinterpret_cast<const char*>(header), sizeof header) + objects + keyTable + values + classTable;
  }

 private:
  std::vector<std::pair<std::string, std::vector<Value>>> objects_;
};

using NW = NIBArchiveWriter;

// An archive whose first object names the object data, which names the owner and the top level.
struct NIBArchiveBuilder {
  NW w;
  uint32_t root = w.object("NSObject", {NW::ref("IB.objectdata", 0)});
  uint32_t owner = w.object("NSCustomObject", {NW::ref("NSClassName", w.string("Controller"))});

  std::string finish(const std::vector<uint32_t>& topLevel, const std::vector<uint32_t>& connectors = {}) {
    std::vector<NW::Value> keys{NW::byte("NSInlinedValue", 0)}, parents = keys, links = keys;
    for (uint32_t t : topLevel) keys.push_back(NW::ref("UINibEncoderEmptyKey", t)), parents.push_back(NW::ref("UINibEncoderEmptyKey", owner));
    for (uint32_t c : connectors) links.push_back(NW::ref("UINibEncoderEmptyKey", c));
    const uint32_t k = w.object("NSArray", keys), p = w.object("NSArray", parents), c = w.object("NSArray", links);
    const uint32_t data = w.object("NSIBObjectData", {NW::ref("NSRoot", owner), NW::ref("NSObjectsKeys", k),
                                                      NW::ref("NSObjectsValues", p), NW::ref("NSConnections", c)});
    w.patch(root, 0, NW::ref("IB.objectdata", data));
    return w.bytes();
  }
};

// What the tables hold (strings, frames, dictionaries of binding options) is compared with the
// corpus files' own bytes; here the tables' own bounds.
TEST(NIBArchiveForm, CountsOffsetsAndReferencesAreChecked) {
  NIBArchiveBuilder b;
  const std::string good = b.finish({b.w.object("NSView", {NW::ref("NSFrame", b.w.string("{{0, 0}, {5, 5}}"))})});
  NibReadResult r = readNibData(good);
  ASSERT_TRUE(r) << r.error().reason;
  EXPECT_EQ(r.nib().documentType(), String(u"NIBArchive"));
  for (std::size_t cut = 10; cut < good.size(); cut += 5) EXPECT_FALSE(readNibData(good.substr(0, cut))) << "cut at " << cut;
  auto patched = [&](std::size_t at, uint32_t v) {
    std::string bytes = good;
    std::memcpy(bytes.data() + at, &v, 4);
    return readNibData(bytes);
  };
  EXPECT_TRUE(refused(patched(18, 0x40000000), "objects table"));
  EXPECT_FALSE(patched(38, 0xFFFFFF00)) << "values table offset past the end";
  NIBArchiveBuilder d;
  EXPECT_TRUE(refused(readNibData(d.finish({d.w.object("NSView", {NW::ref("NSSubviews", 5000)})})), "refers to object 5000"));
}

// --- the older XML archive -------------------------------------------------------------------------

std::string xmlArchive(const std::string& rootObjects, const std::string& more = "") {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<archive type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="7.02"><data>
<object class="NSMutableArray" key="IBDocument.RootObjects" id="1000">
  <bool key="EncodedWithXMLCoder">YES</bool>
  <object class="NSCustomObject" id="1"><string key="NSClassName">Controller</string></object>
  <object class="NSCustomObject" id="2"><string key="NSClassName">FirstResponder</string></object>
  <object class="NSCustomObject" id="3"><string key="NSClassName">NSApplication</string></object>
)" + rootObjects + R"(
</object>
<object class="IBObjectContainer" key="IBDocument.Objects">)" + more + R"(</object>
</data></archive>)";
}

// Custom classes, object identifiers and launch visibility come from the flattened properties; the
// action's target is the record's source; a reference resolves to the one shared object.
TEST(XMLArchiveForm, ResolvesReferencesAndTheDocumentsParts) {
  const std::string doc = xmlArchive(R"(
  <object class="NSView" id="10">
    <object class="NSMutableArray" key="NSSubviews">
      <bool key="EncodedWithXMLCoder">YES</bool>
      <object class="NSButton" id="11">
        <object class="NSButtonCell" key="NSCell" id="12">
          <object class="NSButtonImageSource" key="NSAlternateImage"><string key="NSImageName">NSSwitch</string></object>
        </object>
      </object>
      <object class="NSTextField" id="13"><reference key="NSCell" ref="14"/></object>
    </object>
  </object>
  <object class="NSTextFieldCell" id="14"><string key="NSContents">Shared</string></object>
  <object class="NSWindowTemplate" id="20"/><object class="NSWindowTemplate" id="21"/>)",
                                     R"(
  <object class="NSMutableArray" key="connectionRecords">
    <object class="IBConnectionRecord"><object class="IBActionConnection" key="connection">
      <string key="label">toggle:</string><reference key="source" ref="1"/><reference key="destination" ref="11"/>
    </object></object>
  </object>
  <object class="IBMutableOrderedSet" key="objectRecords"><object class="NSArray" key="orderedObjects">
    <object class="IBObjectRecord"><int key="objectID">42</int><reference key="object" ref="11"/></object>
    <object class="IBObjectRecord"><int key="objectID">5</int><reference key="object" ref="20"/></object>
    <object class="IBObjectRecord"><int key="objectID">6</int><reference key="object" ref="21"/></object>
  </object></object>
  <object class="NSMutableDictionary" key="flattenedProperties">
    <object class="NSMutableArray" key="dict.sortedKeys"><string>42.CustomClassName</string><string>6.NSWindowTemplate.visibleAtLaunch</string></object>
    <object class="NSMutableArray" key="dict.values"><string>FancyButton</string><integer value="0"/></object>
  </object>)");
  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(doc, options);
  ASSERT_TRUE(r) << r.error().reason;
  const auto& top = r.nib().topLevelObjects();
  ASSERT_EQ(top.size(), 4u) << "owner, First Responder and Application are placeholders";
  auto view = std::dynamic_pointer_cast<View>(top[0]);
  ASSERT_TRUE(view);
  auto button = std::dynamic_pointer_cast<Button>(view->subviews().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->customClassName(), String(u"FancyButton"));
  EXPECT_EQ(button->archiveIdentifier(), String(u"42"));
  EXPECT_EQ(button->buttonCell()->buttonType(), ButtonType::Switch);
  EXPECT_EQ(button->action(), String(u"toggle:"));
  EXPECT_EQ(button->target(), owner);
  EXPECT_EQ(std::dynamic_pointer_cast<Control>(view->subviews().at(1))->cell(), top[1]);
  auto shown = std::dynamic_pointer_cast<Window>(top[2]), hidden = std::dynamic_pointer_cast<Window>(top[3]);
  ASSERT_TRUE(shown && hidden);
  EXPECT_TRUE(shown->isVisibleAtLaunch());
  EXPECT_FALSE(hidden->isVisibleAtLaunch());
}

TEST(XMLArchiveForm, DanglingReferencesAndCyclesAreRefused) {
  EXPECT_TRUE(refused(readNibData(xmlArchive(R"(<object class="NSView" id="10"><reference key="NSNextResponder" ref="77"/></object>)")), "id 77"));
  EXPECT_TRUE(refused(readNibData(xmlArchive(R"(
  <object class="NSView" id="10"><object class="NSMutableArray" key="NSSubviews"><reference ref="10"/></object></object>)")),
                      "contains itself"));
}

// --- toolbars and stack views in current documents ------------------------------------------------

constexpr const char* kToolbarDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<window title="Main" id="w1"><rect key="contentRect" x="0" y="0" width="480" height="300"/>
  <view key="contentView" id="v1"><rect key="frame" x="0" y="0" width="480" height="300"/><subviews>
    <stackView orientation="vertical" alignment="leading" spacing="6" id="s1"><rect key="frame" x="0" y="0" width="200" height="100"/>
      <beforeGravityViews><button id="b1"><rect key="frame" x="0" y="0" width="50" height="20"/><buttonCell key="cell" type="push" title="First" id="bc1"/></button></beforeGravityViews>
      <afterGravityViews><textField id="t3"><rect key="frame" x="0" y="50" width="50" height="20"/><textFieldCell key="cell" title="Third" id="tc3"/></textField></afterGravityViews>
      <centerGravityViews><textField id="t2"><rect key="frame" x="0" y="25" width="50" height="20"/><textFieldCell key="cell" title="Second" id="tc2"/></textField></centerGravityViews>
    </stackView></subviews></view>
  <toolbar key="toolbar" implicitIdentifier="T-1" displayMode="iconAndLabel" sizeMode="regular" id="tb"><allowedToolbarItems>
    <toolbarItem implicitItemIdentifier="I-1" label="Pause All" paletteLabel="Pause All Transfers" toolTip="Pause every transfer" image="Pause" id="i1">
      <connections><action selector="pauseAll:" target="-1" id="x1"/></connections></toolbarItem>
    <toolbarItem implicitItemIdentifier="I-2" label="Filter" paletteLabel="Filter" id="i2"><string key="toolTip">Show only matching transfers</string>
      <popUpButton key="view" id="p1"><rect key="frame" x="0" y="0" width="100" height="25"/><popUpButtonCell key="cell" type="push" id="pc1">
        <menu key="menu" id="m1"><items><menuItem title="All" state="on" id="a1"/><menuItem title="Active" id="a2"/></items></menu>
      </popUpButtonCell></popUpButton></toolbarItem>
    <toolbarItem implicitItemIdentifier="NSToolbarFlexibleSpaceItem" id="fs"/></allowedToolbarItems>
    <defaultToolbarItems><toolbarItem reference="i2"/><toolbarItem reference="fs"/><toolbarItem reference="i1"/></defaultToolbarItems>
  </toolbar>
</window>
</objects></document>)";

TEST(CurrentDocuments, ToolbarsAndStackViewsKeepTheirItemsInOrder) {
  NibReadResult r = readNibData(kToolbarDocument);
  ASSERT_TRUE(r) << r.error().reason;
  auto window = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
  auto toolbar = std::dynamic_pointer_cast<Toolbar>(window->toolbar());
  ASSERT_TRUE(toolbar);
  EXPECT_EQ(toolbar->identifier(), String(u"T-1"));
  EXPECT_EQ(toolbar->displayMode(), Toolbar::DisplayMode::IconAndLabel);
  ASSERT_EQ(toolbar->allowedItems().size(), 3u);
  auto pause = toolbar->itemWithIdentifier(u"I-1"), filter = toolbar->itemWithIdentifier(u"I-2");
  ASSERT_TRUE(pause && filter);
  EXPECT_EQ(pause->label(), String(u"Pause All"));
  EXPECT_EQ(pause->paletteLabel(), String(u"Pause All Transfers"));
  EXPECT_EQ(pause->toolTip(), String(u"Pause every transfer"));
  EXPECT_EQ(filter->toolTip(), String(u"Show only matching transfers"));
  EXPECT_EQ(pause->imageName(), String(u"Pause"));
  EXPECT_EQ(pause->action(), String(u"pauseAll:")) << "sent to First Responder";
  auto popUp = std::dynamic_pointer_cast<PopUpButton>(filter->view());
  ASSERT_TRUE(popUp);
  EXPECT_EQ(popUp->menu()->itemAtIndex(1)->title(), String(u"Active"));
  ASSERT_EQ(toolbar->defaultItems().size(), 3u);
  EXPECT_EQ(toolbar->defaultItems()[0], filter);
  EXPECT_EQ(toolbar->defaultItems()[1]->itemIdentifier(), String(u"NSToolbarFlexibleSpaceItem"));
  EXPECT_EQ(toolbar->defaultItems()[2], pause);

  auto stack = std::dynamic_pointer_cast<StackView>(window->contentView()->subviews().at(0));
  ASSERT_TRUE(stack);
  EXPECT_EQ(stack->orientation(), UserInterfaceLayoutOrientation::Vertical);
  EXPECT_EQ(stack->spacing(), 6);
  // The document lists the trailing area before the centre one; subviews follow the areas.
  std::vector<std::u16string> titles;
  for (const auto& v : stack->subviews()) titles.push_back(std::dynamic_pointer_cast<Control>(v)->cell()->title().u16string());
  EXPECT_EQ(titles, (std::vector<std::u16string>{u"First", u"Second", u"Third"}));
  EXPECT_EQ(stack->gravityOf(stack->subviews()[2].get()), StackViewGravity::Trailing);
  EXPECT_EQ(stack->viewsInGravity(StackViewGravity::Center).size(), 1u);
}

// --- bounds -------------------------------------------------------------------------------------------

std::string matrixDocument(int columns, int tallColumnRows) {
  std::string doc = R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<matrix id="m"><rect key="frame" x="0" y="0" width="100" height="100"/><cells>)";
  for (int c = 0; c < columns; ++c) {
    doc += "<column>";
    for (int r = 0; r < (c == 0 ? tallColumnRows : 1); ++r) doc += "<buttonCell type=\"radio\" title=\"x\"/>";
    doc += "</column>";
  }
  return doc + "</cells></matrix></objects></document>";
}

TEST(NibBounds, AMatrixDeclaringMillionsOfCellsItDoesNotHoldIsRefused) {
  const std::string doc = matrixDocument(2000, 2000);
  EXPECT_TRUE(refused(readNibData(doc), "memory")) << "4,000,000 grid places from " << doc.size() << " bytes";
  // A small ragged grid is still padded, with one shared empty cell.
  NibReadResult small = readNibData(matrixDocument(3, 2));
  ASSERT_TRUE(small) << small.error().reason;
  auto matrix = std::dynamic_pointer_cast<Matrix>(small.nib().topLevelObjects().at(0));
  ASSERT_EQ(matrix->numberOfRows(), 2);
  ASSERT_EQ(matrix->numberOfColumns(), 3);
  EXPECT_EQ(matrix->cellAtRow(1, 1), matrix->cellAtRow(1, 2));
  EXPECT_NE(matrix->cellAtRow(1, 0), matrix->cellAtRow(1, 1));
}

long highWaterKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}


// The peak memory of reading `doc`, measured by the kernel in a child process; -1 when it did not read.
long peakGrowthKiB(const std::string& doc) {
  int pipefd[2];
  if (::pipe(pipefd) != 0) return -2;
  const pid_t child = ::fork();
  if (child < 0) return -2;
  if (child == 0) {
    const long before = highWaterKiB();
    NibReadResult r = readNibData(doc);
    long grew = r ? highWaterKiB() - before : -1;
    ::_exit(::write(pipefd[1], &grew, sizeof grew) == sizeof grew ? 0 : 2);
  }
  long grew = -2;
  if (::read(pipefd[0], &grew, sizeof grew) != static_cast<ssize_t>(sizeof grew)) grew = -2;
  ::close(pipefd[0]);
  ::close(pipefd[1]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return grew;
}

TEST(NibBounds, ReadingStaysWithinTheStatedBound) {
  if (test::kSanitizedBuild) GTEST_SKIP() << "peak memory is the sanitizer's, not the reader's";
  // A document of 8 MiB of buttons.
  std::string doc = R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<customView id="root"><rect key="frame" x="0" y="0" width="480" height="272"/><subviews>)";
  for (int i = 0; doc.size() < (8u << 20); ++i) {
    const std::string n = std::to_string(i);
    doc += "<button id=\"b" + n + "\"><rect key=\"frame\" x=\"1\" y=\"2\" width=\"3\" height=\"4\"/><buttonCell key=\"cell\" "
           "type=\"push\" title=\"B" + n + "\" id=\"c" + n + "\"><font key=\"font\" metaFont=\"system\"/></buttonCell>"
           "<constraints><constraint firstAttribute=\"width\" constant=\"98\" id=\"k" + n + "\"/></constraints></button>";
  }
  doc += "</subviews></customView></objects></document>";
  // A compiled nib of 10,000 small controls in one view: about 30 model objects per kilobyte.
  NIBArchiveBuilder b;
  NW& w = b.w;
  const uint32_t frame = w.string("{{1, 2}, {30, 40}}"), title = w.string("Label");
  std::vector<NW::Value> subviews{NW::byte("NSInlinedValue", 0)};
  for (int i = 0; i < 10000; ++i) {
    const uint32_t cell = w.object("NSTextFieldCell", {NW::ref("NSContents", title)});
    subviews.push_back(NW::ref("UINibEncoderEmptyKey", w.object("NSTextField", {NW::ref("NSFrame", frame), NW::ref("NSCell", cell)})));
  }
  const std::string compiled = b.finish({w.object("NSView", {NW::ref("NSSubviews", w.object("NSMutableArray", subviews))})});
  for (const std::string* d : {&std::as_const(doc), &compiled}) {
    const long grew = peakGrowthKiB(*d);
    const long bound = static_cast<long>(nibMemoryBound(d->size()) / 1024);
    ASSERT_GE(grew, 0) << "did not read";
    EXPECT_LT(grew, bound) << "peak grew " << grew << " KiB reading " << d->size() / 1024 << " KiB";
    std::printf("reading %zu KiB took %ld KiB at peak (bound %ld KiB)\n", d->size() / 1024, grew, bound);
  }
}

// --- the nib as a bundle resource -------------------------------------------------------------------

struct ScopedLanguage {
  explicit ScopedLanguage(const char* language) {
    if (const char* old = std::getenv("LANGUAGE")) saved = old, had = true;
    ::setenv("LANGUAGE", language, 1);
  }
  ~ScopedLanguage() { had ? ::setenv("LANGUAGE", saved.c_str(), 1) : ::unsetenv("LANGUAGE"); }
  std::string saved;
  bool had = false;
};

std::string windowTitleOf(const std::string& path) {
  NibReadResult r = readNibFile(path);
  EXPECT_TRUE(r) << r.error().reason;
  if (!r) return {};
  for (const auto& o : r.nib().topLevelObjects()) {
    if (auto w = std::dynamic_pointer_cast<Window>(o)) return w->title().UTF8String();
  }
  return {};
}

TEST(NibResources, NibFoldersPreferTheNewestCompiledVersion) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path sparkle = test::corpusDir() / "transmission-sparkle/macosx/Sparkle.framework/Versions/B/Resources";
  const fs::path tiger = test::corpusDir() / "transmission-2007/macosx/English.lproj";
  test::TempDir dir;
  const fs::path nib = dir.path() / "Resources" / "Alert.nib";
  fs::create_directories(nib);
  // Versions by number: the highest wins whatever the order on disk.
  fs::create_symlink(sparkle / "SUStatus.nib", nib / "keyedobjects-110000.nib");
  fs::create_symlink(sparkle / "SUUpdateAlert.nib", nib / "keyedobjects-90000.nib");
  fs::create_symlink(test::corpusDir() / "transmission/macosx/InfoWindow.xib", nib / "designable.nib");
  EXPECT_EQ(nibDocumentPath(nib.string()), (nib / "keyedobjects-110000.nib").string());
  EXPECT_EQ(windowTitleOf(nib.string()), "Set in Code") << "SUStatus's window";
  // The plain keyedobjects.nib is for systems older than every version: read only without one;
  // designable.nib only when nothing compiled is there.
  fs::create_symlink(tiger / "MessageWindow.nib/keyedobjects.nib", nib / "keyedobjects.nib");
  EXPECT_EQ(windowTitleOf(nib.string()), "Set in Code");
  for (const char* f : {"keyedobjects-110000.nib", "keyedobjects-90000.nib"}) fs::remove(nib / f);
  EXPECT_EQ(windowTitleOf(nib.string()), "Transmission Message Log");
  fs::remove(nib / "keyedobjects.nib");
  EXPECT_EQ(nibDocumentPath(nib.string()), (nib / "designable.nib").string());
  NibReadResult source = readNibFile(nib.string());
  ASSERT_TRUE(source) << source.error().reason;
  EXPECT_EQ(source.nib().documentType(), String(u"com.apple.InterfaceBuilder3.Cocoa.XIB"));
  EXPECT_EQ(source.nib().resourceFolder(), String::fromUTF8(nib.string()));
  fs::remove(nib / "designable.nib");
  // Images beside the interface are found by name in the nib folder.
  fs::create_symlink(tiger / "PrefsWindow.nib/ActionButton.tiff", nib / "ActionButton.tiff");
  InterfaceImageSource images(source.nib().resourceFolder());
  EXPECT_EQ(images.pathForImageNamed(u"ActionButton").UTF8String(), (nib / "ActionButton.tiff").string());
  EXPECT_TRUE(images.pathForImageNamed(u"NoSuchImage").isNil());
  fs::remove(nib / "ActionButton.tiff");
  EXPECT_TRUE(refused(readNibFile(nib.string()), "nib folder without"));
}

// Which copy a bundle names; that each copy reads is the corpus test's part.
TEST(NibResources, LocalizedCopiesFollowTheUsersLanguage) {
  // Bundles are kept by path, so one folder each time.
  auto makeBundle = [](test::TempDir& dir) {
    for (const char* file : {"English.lproj/Prefs.xib", "fr.lproj/Prefs.xib", "fr.lproj/Alert.nib", "fr.lproj/Alert.xib", "English.lproj/Alert.xib"}) {
      fs::create_directories((dir.path() / "Resources" / file).parent_path());
      std::ofstream(dir.path() / "Resources" / file) << "<document/>";
    }
    return Bundle::bundleWithPath(String::fromUTF8(dir.str()));
  };
  const struct {
    const char* language;
    const char16_t* name;
    const char* expected;  // below Resources, "" for none
  } rows[] = {{"fr_FR", u"Prefs", "fr.lproj/Prefs.xib"}, {"en_GB", u"Prefs", "English.lproj/Prefs.xib"},
              {"fr", u"Alert", "fr.lproj/Alert.nib"},    {"en", u"Alert", "English.lproj/Alert.xib"},
              {"fr", u"Missing", ""},                   {"fr", u"Unlocalized", "Unlocalized.nib"}};
  for (const auto& row : rows) {
    ScopedLanguage language(row.language);
    test::TempDir dir;
    auto bundle = makeBundle(dir);
    // An unlocalized nib is found before the localized copies.
    for (const char* file : {"Unlocalized.nib", "fr.lproj/Unlocalized.xib"}) std::ofstream(dir.path() / "Resources" / file) << "x";
    const String path = bundle->pathForNibResource(row.name);
    EXPECT_EQ(path.UTF8String(), *row.expected ? (dir.path() / "Resources" / row.expected).string() : "") << row.language;
  }
}

}  // namespace
}  // namespace tq
