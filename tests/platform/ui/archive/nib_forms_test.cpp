// Interfaces in their compiled and archived forms: the binary plist reader against libplist's
// writer, damaged and hostile archives of each container, toolbars and stack views, the nib as a
// bundle resource, and the memory bound.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_field_cell.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/window.h"
#include <map>
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

// --- binary property lists, written by libplist ---------------------------------------------------

std::string toBinary(plist_t p) {
  char* bin = nullptr;
  uint32_t length = 0;
  plist_to_bin(p, &bin, &length);
  std::string out(bin, length);
  free(bin);
  return out;
}

TEST(BinaryPlist, ReadsWhatLibplistWrites) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "ascii", plist_new_string("Preferences"));
  plist_dict_set_item(dict, "utf16", plist_new_string("Préférences…"));
  plist_dict_set_item(dict, "int", plist_new_uint(1886913536));
  plist_dict_set_item(dict, "real", plist_new_real(13.5));
  plist_dict_set_item(dict, "yes", plist_new_bool(1));
  plist_dict_set_item(dict, "data", plist_new_data("\x00\x01\x02", 3));
  plist_dict_set_item(dict, "uid", plist_new_uid(300));
  plist_t array = plist_new_array();
  for (int i = 0; i < 20; ++i) plist_array_append_item(array, plist_new_uint(static_cast<uint64_t>(i * 1000)));
  plist_dict_set_item(dict, "array", array);
  const std::string bytes = toBinary(dict);
  plist_free(dict);

  std::string error;
  auto list = BinaryPlist::open(bytes, &error);
  ASSERT_TRUE(list) << error;
  BinaryPlist::Item top;
  ASSERT_TRUE(list->item(list->topObject(), top, &error)) << error;
  ASSERT_EQ(top.kind, BinaryPlist::Kind::Dictionary);
  ASSERT_EQ(top.count, 8u);
  std::map<std::string, BinaryPlist::Item> byKey;
  for (uint64_t i = 0; i < top.count; ++i) {
    uint64_t k = 0, v = 0;
    ASSERT_TRUE(list->reference(top, i, k, &error) && list->reference(top, top.count + i, v, &error)) << error;
    BinaryPlist::Item key, value;
    ASSERT_TRUE(list->item(k, key, &error) && list->item(v, value, &error)) << error;
    byKey[list->text(key)] = value;
  }
  EXPECT_EQ(list->text(byKey["ascii"]), "Preferences");
  EXPECT_EQ(byKey["utf16"].kind, BinaryPlist::Kind::Utf16String);
  EXPECT_EQ(list->text(byKey["utf16"]), "Préférences…");
  EXPECT_EQ(byKey["int"].integer, 1886913536);
  EXPECT_EQ(byKey["real"].real, 13.5);
  EXPECT_TRUE(byKey["yes"].boolean);
  EXPECT_EQ(list->bytes(byKey["data"]), std::string("\x00\x01\x02", 3));
  EXPECT_EQ(byKey["uid"].kind, BinaryPlist::Kind::Uid);
  EXPECT_EQ(byKey["uid"].integer, 300);
  const auto& a = byKey["array"];
  ASSERT_EQ(a.count, 20u);
  uint64_t ref = 0;
  BinaryPlist::Item last;
  ASSERT_TRUE(list->reference(a, 19, ref, &error) && list->item(ref, last, &error));
  EXPECT_EQ(last.integer, 19000);
  EXPECT_FALSE(list->reference(a, 20, ref, &error)) << "past the array's count";
}

TEST(BinaryPlist, RefusesTrailersAndObjectsThatDoNotFit) {
  plist_t array = plist_new_array();
  plist_array_append_item(array, plist_new_string("abc"));
  std::string bytes = toBinary(array);
  plist_free(array);
  std::string error;
  ASSERT_TRUE(BinaryPlist::open(bytes, &error));
  const std::size_t trailer = bytes.size() - 32;
  auto patched = [&](std::size_t at, unsigned char value) {
    std::string b = bytes;
    b[at] = static_cast<char>(value);
    return b;
  };
  // Offset table beyond the end, reference size 0, top object beyond the objects.
  for (const std::string& bad : {patched(trailer + 31, 0xF0), patched(trailer + 7, 0), patched(trailer + 23, 9),
                                 patched(trailer + 15, 0xFF), bytes.substr(0, 20)}) {
    EXPECT_FALSE(BinaryPlist::open(bad, &error));
    EXPECT_FALSE(error.empty());
  }
  // The array claims 15 members where the bytes hold one: the item is refused, not read past.
  const unsigned offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
  const auto tableAt = static_cast<unsigned char>(bytes[trailer + 31]);
  const auto topIndex = static_cast<unsigned char>(bytes[trailer + 23]);
  std::size_t arrayAt = 0;
  for (unsigned i = 0; i < offsetSize; ++i) arrayAt = arrayAt << 8 | static_cast<unsigned char>(bytes[tableAt + topIndex * offsetSize + i]);
  ASSERT_EQ(static_cast<unsigned char>(bytes[arrayAt]), 0xA1);
  std::string b = bytes;
  b[arrayAt] = static_cast<char>(0xAE);
  auto list = BinaryPlist::open(b, &error);
  ASSERT_TRUE(list);
  BinaryPlist::Item top;
  EXPECT_FALSE(list->item(list->topObject(), top, &error));
  EXPECT_NE(error.find("run past"), std::string::npos) << error;
}

// --- compiled keyed archives built in the test ------------------------------------------------------

// A keyed archive written the way the archiver writes one: $objects with class descriptions, and
// object data naming the owner, the top-level objects and the connectors.
class KeyedArchiveWriter {
 public:
  KeyedArchiveWriter() {
    objects_ = plist_new_array();
    plist_array_append_item(objects_, plist_new_string("$null"));
    owner_ = object("NSCustomObject");
    ref(owner_, "NSClassName", string("Controller"));
  }
  ~KeyedArchiveWriter() { plist_free(objects_); }
  uint64_t owner() const { return owner_; }
  uint64_t object(const std::string& cls) {
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "$class", plist_new_uid(classIndex(cls)));
    plist_array_append_item(objects_, d);
    return plist_array_get_size(objects_) - 1;
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
    const uint64_t data = object("NSIBObjectData");
    ref(data, "NSRoot", owner_);
    std::vector<uint64_t> keys = topLevel, parents(topLevel.size(), owner_);
    ref(data, "NSObjectsKeys", array(keys));
    ref(data, "NSObjectsValues", array(parents));
    ref(data, "NSConnections", array(connectors));
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(root, "$version", plist_new_uint(100000));
    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "IB.objectdata", plist_new_uid(data));
    plist_dict_set_item(root, "$top", top);
    plist_dict_set_item(root, "$objects", plist_copy(objects_));
    std::string out = toBinary(root);
    plist_free(root);
    return out;
  }

 private:
  uint64_t classIndex(const std::string& cls) {
    auto it = classes_.find(cls);
    if (it != classes_.end()) return it->second;
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "$classname", plist_new_string(cls.c_str()));
    plist_array_append_item(objects_, d);
    return classes_[cls] = plist_array_get_size(objects_) - 1;
  }
  plist_t objects_;
  uint64_t owner_ = 0;
  std::map<std::string, uint64_t> classes_;
};

TEST(CompiledNib, BuildsWindowsControlsMenusAndConnections) {
  KeyedArchiveWriter w;
  const uint64_t window = w.object("NSWindowTemplate");
  w.ref(window, "NSWindowTitle", w.string("Réglages"));
  w.ref(window, "NSWindowRect", w.string("{{100, 200}, {300, 150}}"));
  w.ref(window, "NSWindowClass", w.string("NSPanel"));
  const uint64_t content = w.object("NSView");
  w.ref(window, "NSWindowView", content);
  const uint64_t button = w.object("NSButton");
  w.ref(button, "NSFrame", w.string("{{20, 10}, {120, 32}}"));
  const uint64_t cell = w.object("NSButtonCell");
  w.ref(cell, "NSContents", w.string("Apply"));
  w.set(cell, "NSAuxButtonType", plist_new_uint(3));
  w.ref(button, "NSCell", cell);
  const uint64_t stepper = w.object("NSStepper");
  w.ref(stepper, "NSFrameSize", w.string("{19, 28}"));
  const uint64_t stepperCell = w.object("NSStepperCell");
  w.ref(stepper, "NSCell", stepperCell);
  w.ref(content, "NSSubviews", w.array({button, stepper}));
  const uint64_t menu = w.object("NSMenu");
  w.ref(menu, "NSTitle", w.string("Edit"));
  const uint64_t item = w.object("NSMenuItem");
  w.ref(item, "NSTitle", w.string("Copy"));
  w.ref(menu, "NSMenuItems", w.array({item}));
  const uint64_t action = w.object("NSNibControlConnector");
  w.ref(action, "NSSource", button);
  w.ref(action, "NSDestination", w.owner());
  w.ref(action, "NSLabel", w.string("apply:"));
  const uint64_t outlet = w.object("NSNibOutletConnector");
  w.ref(outlet, "NSSource", w.owner());
  w.ref(outlet, "NSDestination", button);
  w.ref(outlet, "NSLabel", w.string("applyButton"));
  const uint64_t help = w.object("NSIBHelpConnector");
  w.ref(help, "NSDestination", button);
  w.ref(help, "NSFile", w.string("NSToolTipHelpKey"));
  w.ref(help, "NSMarker", w.string("Applies the settings"));
  const std::string bytes = w.finish({window, menu}, {action, outlet, help});

  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(bytes, options);
  ASSERT_TRUE(r) << r.error().reason;
  const auto& top = r.nib().topLevelObjects();
  ASSERT_EQ(top.size(), 2u) << "the owner is not a top-level object";
  auto panel = std::dynamic_pointer_cast<Panel>(top[0]);
  ASSERT_TRUE(panel) << "NSWindowClass NSPanel makes a panel";
  EXPECT_EQ(panel->title(), String(u"Réglages"));
  EXPECT_EQ(panel->contentRect().w, 300);
  ASSERT_EQ(panel->contentView()->subviews().size(), 2u);
  auto apply = std::dynamic_pointer_cast<Button>(panel->contentView()->subviews()[0]);
  ASSERT_TRUE(apply);
  EXPECT_EQ(apply->title(), String(u"Apply"));
  EXPECT_EQ(apply->frame().x, 20);
  EXPECT_EQ(apply->toolTip(), String(u"Applies the settings")) << "tool tips come as help connectors";
  auto* buttonCell = dynamic_cast<ButtonCell*>(apply->cell().get());
  ASSERT_TRUE(buttonCell);
  EXPECT_EQ(buttonCell->buttonType(), ButtonType::Switch);
  // A control the model has no class for: the same fallback the document reader makes.
  auto other = std::dynamic_pointer_cast<Control>(panel->contentView()->subviews()[1]);
  ASSERT_TRUE(other);
  EXPECT_EQ(other->className(), String(u"NSStepper"));
  EXPECT_EQ(other->cell()->className(), String(u"NSStepperCell"));
  EXPECT_EQ(other->frame().h, 28);
  auto edit = std::dynamic_pointer_cast<Menu>(top[1]);
  ASSERT_TRUE(edit);
  EXPECT_EQ(edit->itemAtIndex(0)->title(), String(u"Copy"));
  // Connections, both to the owner.
  EXPECT_EQ(apply->action(), String(u"apply:"));
  EXPECT_EQ(apply->target(), owner);
  EXPECT_EQ(owner->outlet(u"applyButton"), apply);
  ASSERT_EQ(r.nib().connections().size(), 2u);
  EXPECT_EQ(r.nib().connections()[0].destinationIdentifier, String(u"-2"));
}

// A text view's text sits in its storage behind its container and layout manager.
TEST(CompiledNib, TextViewsCarryTheTextOfTheirStorage) {
  KeyedArchiveWriter w;
  const uint64_t text = w.object("NSTextView");
  w.ref(text, "NSFrameSize", w.string("{200, 80}"));
  const uint64_t container = w.object("NSTextContainer");
  const uint64_t manager = w.object("NSLayoutManager");
  const uint64_t storage = w.object("NSTextStorage");
  const uint64_t contents = w.object("NSMutableString");
  w.ref(contents, "NS.string", w.string("Release notes\nsecond line"));
  w.ref(storage, "NSString", contents);
  w.ref(manager, "NSTextStorage", storage);
  w.ref(container, "NSLayoutManager", manager);
  w.ref(container, "NSTextView", text);  // the container points back at its view
  w.ref(text, "NSTextContainer", container);
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
    const uint64_t window = w.object("NSWindowTemplate");
    w.ref(window, "NSWindowRect", w.string("{{100, 200}, {200, 100}}"));
    const uint64_t content = w.object("NSView");
    w.ref(content, "NSFrameSize", w.string("{200, 100}"));
    w.ref(window, "NSWindowView", content);
    const uint64_t stack = w.object("NSStackView");
    w.ref(stack, "NSFrame", w.string("{{0, 0}, {260, 120}}"));
    w.ref(content, "NSSubviews", w.array({stack}));
    // (first item, attribute, second item, constant): leading 20, trailing 20, top 10, bottom 10.
    const struct { uint64_t first; int attribute; uint64_t second; double constant; } pins[] = {
        {stack, 5, content, 20}, {content, 6, stack, 20}, {stack, 3, content, 10}, {content, 4, stack, 10}};
    std::vector<uint64_t> constraints;
    for (const auto& p : pins) {
      const uint64_t c = w.object("NSLayoutConstraint");
      w.ref(c, "NSFirstItem", p.first);
      w.set(c, "NSFirstAttribute", plist_new_uint(p.attribute));
      w.ref(c, "NSSecondItem", p.second);
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
    const Rect rect = win->contentRect();
    const Rect sub = win->contentView()->subviews().at(0)->frame();
    if (required) {
      EXPECT_EQ(rect, (Rect{100, 160, 300, 140})) << "top left corner kept (y runs up)";
      EXPECT_EQ(win->contentView()->frame().w, 300);
      EXPECT_EQ(sub, (Rect{20, 10, 260, 120}));
    } else {
      EXPECT_EQ(rect, (Rect{100, 200, 200, 100}));
      EXPECT_EQ(sub, (Rect{0, 0, 260, 120}));
    }
  }
}

TEST(CompiledNib, ObjectsThatContainThemselvesAreRefused) {
  KeyedArchiveWriter w;
  const uint64_t outer = w.object("NSView");
  const uint64_t inner = w.object("NSView");
  w.ref(inner, "NSSubviews", w.array({outer}));
  w.ref(outer, "NSSubviews", w.array({inner}));
  NibReadResult r = readNibData(w.finish({outer}));
  ASSERT_FALSE(r);
  EXPECT_NE(r.error().reason.find("contains itself (through NSSubviews)"), std::string::npos) << r.error().reason;

  KeyedArchiveWriter m;
  const uint64_t menu = m.object("NSMenu");
  const uint64_t item = m.object("NSMenuItem");
  m.ref(item, "NSSubmenu", menu);
  m.ref(menu, "NSMenuItems", m.array({item}));
  NibReadResult r2 = readNibData(m.finish({menu}));
  ASSERT_FALSE(r2);
  EXPECT_NE(r2.error().reason.find("NSSubmenu"), std::string::npos) << r2.error().reason;
}

TEST(CompiledNib, SharedObjectsStaySharedAndBackReferencesAreNotFollowed) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView");
  const uint64_t field = w.object("NSTextField");
  const uint64_t cell = w.object("NSTextFieldCell");
  w.ref(cell, "NSContents", w.string("Name:"));
  w.ref(cell, "NSControlView", field);  // a back reference
  w.ref(field, "NSCell", cell);
  w.ref(field, "NSSuperview", view);
  w.ref(view, "NSSubviews", w.array({field}));
  const uint64_t column = w.object("NSTableColumn");
  w.ref(column, "NSDataCell", cell);  // the same cell, shared
  w.ref(view, "NSNextResponder", view);
  NibReadResult r = readNibData(w.finish({view, column}));
  ASSERT_TRUE(r) << r.error().reason;
  auto v = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects()[0]);
  auto c = std::dynamic_pointer_cast<TableColumn>(r.nib().topLevelObjects()[1]);
  ASSERT_TRUE(v && c);
  EXPECT_EQ(std::dynamic_pointer_cast<Control>(v->subviews()[0])->cell(), c->dataCell());
}

TEST(CompiledNib, CollectionsSharedWithoutEndAreRefused) {
  // 1,500 views all naming one array of 1,500 views as their subviews: a small file whose naive
  // reading would visit 2,250,000 members and move each leaf 1,500 times.
  KeyedArchiveWriter w;
  std::vector<uint64_t> leaves, views;
  for (int i = 0; i < 1500; ++i) leaves.push_back(w.object("NSView"));
  const uint64_t shared = w.array(leaves);
  for (int i = 0; i < 1500; ++i) {
    views.push_back(w.object("NSView"));
    w.ref(views.back(), "NSSubviews", shared);
  }
  NibReadResult r = readNibData(w.finish(views));
  ASSERT_FALSE(r);
  EXPECT_NE(r.error().reason.find("share their collections"), std::string::npos) << r.error().reason;
  // Two views sharing a few subviews: the first keeps them, the second is told about.
  KeyedArchiveWriter few;
  const uint64_t leaf = few.object("NSView");
  const uint64_t list = few.array({leaf});
  const uint64_t a = few.object("NSView"), b = few.object("NSView");
  few.ref(a, "NSSubviews", list);
  few.ref(b, "NSSubviews", list);
  NibReadResult r2 = readNibData(few.finish({a, b}));
  ASSERT_TRUE(r2) << r2.error().reason;
  EXPECT_EQ(std::dynamic_pointer_cast<View>(r2.nib().topLevelObjects()[0])->subviews().size(), 1u);
  EXPECT_TRUE(std::dynamic_pointer_cast<View>(r2.nib().topLevelObjects()[1])->subviews().empty());
  ASSERT_EQ(r2.nib().warnings().size(), 1u);
  EXPECT_NE(r2.nib().warnings()[0].find("subview of two views"), std::string::npos);
}

TEST(CompiledNib, DamagedArchivesGiveOneClearError) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView");
  w.ref(view, "NSFrame", w.string("{{0, 0}, {10, 10}}"));
  const std::string good = w.finish({view});
  ASSERT_TRUE(readNibData(good));
  // Every truncation is refused with a reason, never read past.
  for (std::size_t cut = 0; cut < good.size(); cut += 7) {
    NibReadResult r = readNibData(good.substr(0, cut));
    EXPECT_FALSE(r) << "cut at " << cut;
    if (!r) {
      EXPECT_FALSE(r.error().reason.empty());
    }
  }
  // A UID that names no object.
  plist_t root = nullptr;
  plist_from_bin(good.data(), static_cast<uint32_t>(good.size()), &root);
  plist_t objects = plist_dict_get_item(root, "$objects");
  plist_dict_set_item(plist_array_get_item(objects, static_cast<uint32_t>(view)), "NSNextResponder", plist_new_uid(90000));
  const std::string dangling = toBinary(root);
  plist_free(root);
  NibReadResult r = readNibData(dangling);
  ASSERT_FALSE(r);
  EXPECT_NE(r.error().reason.find("reference to object 90000"), std::string::npos) << r.error().reason;
  // Not an interface: a keyed archive without IB.objectdata.
  plist_t plain = plist_new_dict();
  plist_dict_set_item(plain, "$top", plist_new_dict());
  plist_dict_set_item(plain, "$objects", plist_new_array());
  NibReadResult r2 = readNibData(toBinary(plain));
  plist_free(plain);
  ASSERT_FALSE(r2);
  EXPECT_NE(r2.error().reason.find("IB.objectdata"), std::string::npos) << r2.error().reason;
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
  static Value bytes(const std::string& key, const std::string& b) { return {key, 8, b}; }
  static Value byte(const std::string& key, int v) { return {key, 0, std::string(1, static_cast<char>(v))}; }
  uint32_t string(const std::string& s) { return object("NSString", {bytes("NS.bytes", s)}); }
  void patch(uint32_t o, std::size_t i, Value v) { objects_[o].second[i] = std::move(v); }

  std::string bytes() const {
    std::vector<std::string> keys, classes;
    auto index = [](std::vector<std::string>& table, const std::string& s) {
      for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i] == s) return static_cast<uint32_t>(i);
      }
      table.push_back(s);
      return static_cast<uint32_t>(table.size() - 1);
    };
    auto varint = [](std::string& out, uint32_t v) {
      while (v >= 0x80) {
        out.push_back(static_cast<char>(v & 0x7F));
        v >>= 7;
      }
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
    for (const auto& k : keys) {
      varint(keyTable, static_cast<uint32_t>(k.size()));
      keyTable += k;
    }
    for (const auto& c : classes) {
      varint(classTable, static_cast<uint32_t>(c.size() + 1));
      varint(classTable, 0);
      classTable += c;
      classTable.push_back('\0');
    }
    std::string out = "NIBArchive";
    auto u32 = [&](uint32_t v) { out.append(reinterpret_cast<const char*>(&v), 4); };
    const uint32_t start = 50;
    u32(1);
    u32(10);
    u32(static_cast<uint32_t>(objects_.size()));
    u32(start);
    u32(static_cast<uint32_t>(keys.size()));
    u32(start + static_cast<uint32_t>(objects.size()));
    u32(valueCount);
    u32(start + static_cast<uint32_t>(objects.size() + keyTable.size()));
    u32(static_cast<uint32_t>(classes.size()));
    u32(start + static_cast<uint32_t>(objects.size() + keyTable.size() + values.size()));
    return out + objects + keyTable + values + classTable;
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
    for (uint32_t t : topLevel) {
      keys.push_back(NW::ref("UINibEncoderEmptyKey", t));
      parents.push_back(NW::ref("UINibEncoderEmptyKey", owner));
    }
    for (uint32_t c : connectors) links.push_back(NW::ref("UINibEncoderEmptyKey", c));
    const uint32_t k = w.object("NSArray", keys), p = w.object("NSArray", parents), c = w.object("NSArray", links);
    const uint32_t data = w.object("NSIBObjectData", {NW::ref("NSRoot", owner), NW::ref("NSObjectsKeys", k),
                                                      NW::ref("NSObjectsValues", p), NW::ref("NSConnections", c)});
    w.patch(root, 0, NW::ref("IB.objectdata", data));
    return w.bytes();
  }
};

TEST(NIBArchiveForm, ReadsTablesIntoTheSameModel) {
  NIBArchiveBuilder b;
  NW& w = b.w;
  const uint32_t cell = w.object("NSTextFieldCell", {NW::ref("NSContents", w.string("Größe:")), NW::ref("NSPlaceholderString", w.string("none"))});
  const uint32_t field = w.object("NSTextField", {NW::ref("NSFrame", w.string("{{1, 2}, {30, 40}}")), NW::ref("NSCell", cell)});
  const uint32_t subviews = w.object("NSMutableArray", {NW::byte("NSInlinedValue", 0), NW::ref("UINibEncoderEmptyKey", field)});
  const uint32_t view = w.object("NSView", {NW::ref("NSSubviews", subviews)});
  const uint32_t options = w.object("NSDictionary", {NW::ref("UINibEncoderEmptyKey", w.string("NSNullPlaceholder")),
                                                     NW::ref("UINibEncoderEmptyKey", w.string("Nothing"))});
  const uint32_t binding = w.object("NSNibBindingConnector", {NW::ref("NSSource", field), NW::ref("NSDestination", b.owner),
                                                              NW::ref("NSBinding", w.string("value")),
                                                              NW::ref("NSKeyPath", w.string("size")), NW::ref("NSOptions", options)});
  NibLoadOptions opts;
  auto owner = std::make_shared<GenericObject>();
  opts.owner = owner;
  NibReadResult r = readNibData(b.finish({view}, {binding}), opts);
  ASSERT_TRUE(r) << r.error().reason;
  EXPECT_EQ(r.nib().documentType(), String(u"NIBArchive"));
  auto v = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(v);
  auto f = std::dynamic_pointer_cast<TextField>(v->subviews().at(0));
  ASSERT_TRUE(f);
  EXPECT_EQ(f->stringValue(), String(u"Größe:"));
  EXPECT_EQ(f->frame().h, 40);
  EXPECT_EQ(std::dynamic_pointer_cast<TextFieldCell>(f->cell())->placeholderString(), String(u"none"));
  ASSERT_EQ(f->binders().size(), 1u);
  const auto& info = f->binders()[0]->bindingInfos().at(0);
  EXPECT_EQ(info->keyPath(), String(u"size"));
  EXPECT_EQ(info->placeholderForMarker(BindingMarker::Null).stringValue(), String(u"Nothing"));
}

TEST(NIBArchiveForm, CountsOffsetsAndReferencesAreChecked) {
  NIBArchiveBuilder b;
  const uint32_t view = b.w.object("NSView", {NW::ref("NSFrame", b.w.string("{{0, 0}, {5, 5}}"))});
  const std::string good = b.finish({view});
  ASSERT_TRUE(readNibData(good));
  for (std::size_t cut = 10; cut < good.size(); cut += 5) {
    EXPECT_FALSE(readNibData(good.substr(0, cut))) << "cut at " << cut;
  }
  auto patched = [&](std::size_t at, uint32_t v) {
    std::string bytes = good;
    std::memcpy(bytes.data() + at, &v, 4);
    return readNibData(bytes);
  };
  NibReadResult hugeCount = patched(18, 0x40000000);  // objects
  ASSERT_FALSE(hugeCount);
  EXPECT_NE(hugeCount.error().reason.find("objects table"), std::string::npos) << hugeCount.error().reason;
  EXPECT_FALSE(patched(38, 0xFFFFFF00)) << "values table offset past the end";

  NIBArchiveBuilder d;
  const uint32_t bad = d.w.object("NSView", {NW::ref("NSSubviews", 5000)});
  NibReadResult dangling = readNibData(d.finish({bad}));
  ASSERT_FALSE(dangling);
  EXPECT_NE(dangling.error().reason.find("refers to object 5000"), std::string::npos) << dangling.error().reason;
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
<object class="IBObjectContainer" key="IBDocument.Objects">)" +
         more + R"(</object>
</data></archive>)";
}

TEST(XMLArchiveForm, ResolvesReferencesAndTheDocumentsParts) {
  const std::string doc = xmlArchive(R"(
  <object class="NSView" id="10">
    <object class="NSMutableArray" key="NSSubviews">
      <bool key="EncodedWithXMLCoder">YES</bool>
      <object class="NSButton" id="11">
        <string key="NSFrame">{{5, 6}, {70, 18}}</string>
        <object class="NSButtonCell" key="NSCell" id="12">
          <string type="base64-UTF8" key="NSContents">RsOpcm9zIOKApg</string>
          <object class="NSButtonImageSource" key="NSAlternateImage"><string key="NSImageName">NSSwitch</string></object>
        </object>
      </object>
      <object class="NSTextField" id="13">
        <reference key="NSCell" ref="14"/>
      </object>
    </object>
  </object>
  <object class="NSTextFieldCell" id="14"><string key="NSContents">Shared</string></object>)",
                                     R"(
  <object class="NSMutableArray" key="connectionRecords">
    <object class="IBConnectionRecord"><object class="IBActionConnection" key="connection">
      <string key="label">toggle:</string><reference key="source" ref="1"/><reference key="destination" ref="11"/>
    </object></object>
  </object>
  <object class="IBMutableOrderedSet" key="objectRecords"><object class="NSArray" key="orderedObjects">
    <object class="IBObjectRecord"><int key="objectID">42</int><reference key="object" ref="11"/></object>
  </object></object>
  <object class="NSMutableDictionary" key="flattenedProperties">
    <object class="NSMutableArray" key="dict.sortedKeys"><string>42.CustomClassName</string></object>
    <object class="NSMutableArray" key="dict.values"><string>FancyButton</string></object>
  </object>)");
  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(doc, options);
  ASSERT_TRUE(r) << r.error().reason;
  ASSERT_EQ(r.nib().topLevelObjects().size(), 2u) << "owner, First Responder and Application are placeholders";
  auto view = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects()[0]);
  ASSERT_TRUE(view);
  auto button = std::dynamic_pointer_cast<Button>(view->subviews().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->title(), String(u"Féros …"));
  EXPECT_EQ(button->customClassName(), String(u"FancyButton"));
  EXPECT_EQ(button->archiveIdentifier(), String(u"42"));
  EXPECT_EQ(std::dynamic_pointer_cast<ButtonCell>(button->cell())->buttonType(), ButtonType::Switch);
  // The action's target is the record's source in this form.
  EXPECT_EQ(button->action(), String(u"toggle:"));
  EXPECT_EQ(button->target(), owner);
  // A reference resolves to the one shared object, also a top-level one.
  auto field = std::dynamic_pointer_cast<Control>(view->subviews().at(1));
  EXPECT_EQ(field->cell(), r.nib().topLevelObjects()[1]);
}

// Windows are visible at launch unless their flattened properties say 0.
TEST(XMLArchiveForm, WindowsHiddenAtLaunchByTheirProperties) {
  const std::string doc = xmlArchive(R"(
  <object class="NSWindowTemplate" id="20"><string key="NSWindowTitle">Shown</string></object>
  <object class="NSWindowTemplate" id="21"><string key="NSWindowTitle">Hidden</string></object>)",
                                     R"(
  <object class="IBMutableOrderedSet" key="objectRecords"><object class="NSArray" key="orderedObjects">
    <object class="IBObjectRecord"><int key="objectID">5</int><reference key="object" ref="20"/></object>
    <object class="IBObjectRecord"><int key="objectID">6</int><reference key="object" ref="21"/></object>
  </object></object>
  <object class="NSMutableDictionary" key="flattenedProperties">
    <object class="NSMutableArray" key="dict.sortedKeys"><string>6.NSWindowTemplate.visibleAtLaunch</string></object>
    <object class="NSMutableArray" key="dict.values"><integer value="0"/></object>
  </object>)");
  NibReadResult r = readNibData(doc);
  ASSERT_TRUE(r) << r.error().reason;
  ASSERT_EQ(r.nib().topLevelObjects().size(), 2u);
  auto shown = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects()[0]);
  auto hidden = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects()[1]);
  ASSERT_TRUE(shown && hidden);
  EXPECT_EQ(hidden->title(), String(u"Hidden"));
  EXPECT_TRUE(shown->isVisibleAtLaunch());
  EXPECT_FALSE(hidden->isVisibleAtLaunch());
}

TEST(XMLArchiveForm, DanglingReferencesAndCyclesAreRefused) {
  NibReadResult dangling = readNibData(xmlArchive(R"(<object class="NSView" id="10"><reference key="NSNextResponder" ref="77"/></object>)"));
  ASSERT_FALSE(dangling);
  EXPECT_NE(dangling.error().reason.find("id 77"), std::string::npos) << dangling.error().reason;
  NibReadResult cycle = readNibData(xmlArchive(R"(
  <object class="NSView" id="10"><object class="NSMutableArray" key="NSSubviews"><reference ref="10"/></object></object>)"));
  ASSERT_FALSE(cycle);
  EXPECT_NE(cycle.error().reason.find("contains itself"), std::string::npos) << cycle.error().reason;
}

// --- toolbars and stack views in current documents ------------------------------------------------

constexpr const char* kToolbarDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<window title="Main" id="w1">
  <rect key="contentRect" x="0" y="0" width="480" height="300"/>
  <view key="contentView" id="v1">
    <rect key="frame" x="0" y="0" width="480" height="300"/>
    <subviews>
      <stackView orientation="vertical" alignment="leading" spacing="6" id="s1">
        <rect key="frame" x="0" y="0" width="200" height="100"/>
        <beforeGravityViews>
          <button id="b1"><rect key="frame" x="0" y="0" width="50" height="20"/><buttonCell key="cell" type="push" title="First" id="bc1"/></button>
        </beforeGravityViews>
        <afterGravityViews>
          <textField id="t3"><rect key="frame" x="0" y="50" width="50" height="20"/><textFieldCell key="cell" title="Third" id="tc3"/></textField>
        </afterGravityViews>
        <centerGravityViews>
          <textField id="t2"><rect key="frame" x="0" y="25" width="50" height="20"/><textFieldCell key="cell" title="Second" id="tc2"/></textField>
        </centerGravityViews>
      </stackView>
    </subviews>
  </view>
  <toolbar key="toolbar" implicitIdentifier="T-1" displayMode="iconAndLabel" sizeMode="regular" id="tb">
    <allowedToolbarItems>
      <toolbarItem implicitItemIdentifier="I-1" label="Pause All" paletteLabel="Pause All Transfers" toolTip="Pause every transfer" image="Pause" id="i1">
        <connections><action selector="pauseAll:" target="-1" id="x1"/></connections>
      </toolbarItem>
      <toolbarItem implicitItemIdentifier="I-2" label="Filter" paletteLabel="Filter" id="i2">
        <string key="toolTip">Show only matching transfers</string>
        <popUpButton key="view" id="p1">
          <rect key="frame" x="0" y="0" width="100" height="25"/>
          <popUpButtonCell key="cell" type="push" id="pc1">
            <menu key="menu" id="m1"><items><menuItem title="All" state="on" id="a1"/><menuItem title="Active" id="a2"/></items></menu>
          </popUpButtonCell>
        </popUpButton>
      </toolbarItem>
      <toolbarItem implicitItemIdentifier="NSToolbarFlexibleSpaceItem" id="fs"/>
    </allowedToolbarItems>
    <defaultToolbarItems>
      <toolbarItem reference="i2"/>
      <toolbarItem reference="fs"/>
      <toolbarItem reference="i1"/>
    </defaultToolbarItems>
  </toolbar>
</window>
</objects></document>)";

TEST(CurrentDocuments, ToolbarsKeepEveryLabelViewAndMenu) {
  NibReadResult r = readNibData(kToolbarDocument);
  ASSERT_TRUE(r) << r.error().reason;
  auto window = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
  auto toolbar = std::dynamic_pointer_cast<Toolbar>(window->toolbar());
  ASSERT_TRUE(toolbar);
  EXPECT_EQ(toolbar->identifier(), String(u"T-1"));
  EXPECT_EQ(toolbar->displayMode(), Toolbar::DisplayMode::IconAndLabel);
  ASSERT_EQ(toolbar->allowedItems().size(), 3u);
  auto pause = toolbar->itemWithIdentifier(u"I-1");
  ASSERT_TRUE(pause);
  EXPECT_EQ(pause->label(), String(u"Pause All"));
  EXPECT_EQ(pause->paletteLabel(), String(u"Pause All Transfers"));
  EXPECT_EQ(pause->toolTip(), String(u"Pause every transfer"));
  EXPECT_EQ(pause->imageName(), String(u"Pause"));
  EXPECT_EQ(pause->action(), String(u"pauseAll:")) << "sent to First Responder";
  auto filter = toolbar->itemWithIdentifier(u"I-2");
  EXPECT_EQ(filter->toolTip(), String(u"Show only matching transfers"));
  auto popUp = std::dynamic_pointer_cast<PopUpButton>(filter->view());
  ASSERT_TRUE(popUp);
  EXPECT_EQ(popUp->menu()->itemAtIndex(1)->title(), String(u"Active"));
  ASSERT_EQ(toolbar->defaultItems().size(), 3u);
  EXPECT_EQ(toolbar->defaultItems()[0], filter);
  EXPECT_EQ(toolbar->defaultItems()[1]->itemIdentifier(), String(u"NSToolbarFlexibleSpaceItem"));
  EXPECT_EQ(toolbar->defaultItems()[2], pause);
}

TEST(CurrentDocuments, StackViewGravityAreasBecomeSubviewsInAreaOrder) {
  NibReadResult r = readNibData(kToolbarDocument);
  ASSERT_TRUE(r) << r.error().reason;
  auto window = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
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
    const int rows = c == 0 ? tallColumnRows : 1;
    for (int r = 0; r < rows; ++r) doc += "<buttonCell type=\"radio\" title=\"x\"/>";
    doc += "</column>";
  }
  return doc + "</cells></matrix></objects></document>";
}

TEST(NibBounds, AMatrixDeclaringMillionsOfCellsItDoesNotHoldIsRefused) {
  const std::string doc = matrixDocument(2000, 2000);
  NibReadResult r = readNibData(doc);
  ASSERT_FALSE(r) << "4,000,000 grid places from " << doc.size() << " bytes";
  EXPECT_NE(r.error().reason.find("memory"), std::string::npos) << r.error().reason;
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
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

// Address sanitizing pads and quarantines every allocation, so peaks say nothing about the reader.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAllocatorIsInstrumented = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAllocatorIsInstrumented = true;
#else
constexpr bool kAllocatorIsInstrumented = false;
#endif
#else
constexpr bool kAllocatorIsInstrumented = false;
#endif

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
    if (::write(pipefd[1], &grew, sizeof grew) != sizeof grew) ::_exit(2);
    ::_exit(0);
  }
  long grew = -2;
  if (::read(pipefd[0], &grew, sizeof grew) != static_cast<ssize_t>(sizeof grew)) grew = -2;
  ::close(pipefd[0]);
  ::close(pipefd[1]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return grew;
}

TEST(NibBounds, ReadingADocumentStaysWithinTheStatedBound) {
  if (kAllocatorIsInstrumented) GTEST_SKIP() << "peak memory is the sanitizer's, not the reader's";
  std::string doc = R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<customView id="root"><rect key="frame" x="0" y="0" width="480" height="272"/><subviews>)";
  for (int i = 0; doc.size() < (8u << 20); ++i) {
    const std::string n = std::to_string(i);
    doc += "<button id=\"b" + n + "\"><rect key=\"frame\" x=\"1\" y=\"2\" width=\"3\" height=\"4\"/><buttonCell key=\"cell\" "
           "type=\"push\" title=\"B" + n + "\" id=\"c" + n + "\"><font key=\"font\" metaFont=\"system\"/></buttonCell>"
           "<constraints><constraint firstAttribute=\"width\" constant=\"98\" id=\"k" + n + "\"/></constraints></button>";
  }
  doc += "</subviews></customView></objects></document>";
  const long grew = peakGrowthKiB(doc);
  ASSERT_GE(grew, 0) << "the document did not read";
  const long bound = static_cast<long>(nibMemoryBound(doc.size()) / 1024);
  EXPECT_LT(grew, bound) << "peak grew " << grew << " KiB reading " << doc.size() / 1024 << " KiB";
  std::printf("document: reading %zu KiB took %ld KiB at peak (bound %ld KiB)\n", doc.size() / 1024, grew, bound);
}

TEST(NibBounds, ReadingACompiledNibStaysWithinTheStatedBound) {
  if (kAllocatorIsInstrumented) GTEST_SKIP() << "peak memory is the sanitizer's, not the reader's";
  // 10,000 small controls in one view: about 30 model objects per kilobyte of archive.
  NIBArchiveBuilder b;
  NW& w = b.w;
  const uint32_t frame = w.string("{{1, 2}, {30, 40}}");
  const uint32_t title = w.string("Label");
  std::vector<NW::Value> subviews{NW::byte("NSInlinedValue", 0)};
  for (int i = 0; i < 10000; ++i) {
    const uint32_t cell = w.object("NSTextFieldCell", {NW::ref("NSContents", title)});
    subviews.push_back(NW::ref("UINibEncoderEmptyKey", w.object("NSTextField", {NW::ref("NSFrame", frame), NW::ref("NSCell", cell)})));
  }
  const uint32_t list = w.object("NSMutableArray", subviews);
  const uint32_t view = w.object("NSView", {NW::ref("NSSubviews", list)});
  const std::string doc = b.finish({view});
  const long grew = peakGrowthKiB(doc);
  const long bound = static_cast<long>(nibMemoryBound(doc.size()) / 1024);
  ASSERT_GE(grew, 0) << readNibData(doc).error().reason;
  EXPECT_LT(grew, bound) << "peak grew " << grew << " KiB reading " << doc.size() / 1024 << " KiB";
  std::printf("compiled: reading %zu KiB took %ld KiB at peak (bound %ld KiB)\n", doc.size() / 1024, grew, bound);
}

// --- the nib as a bundle resource -------------------------------------------------------------------

struct ScopedLanguage {
  explicit ScopedLanguage(const char* language) {
    if (const char* old = std::getenv("LANGUAGE")) saved = old, had = true;
    ::setenv("LANGUAGE", language, 1);
  }
  ~ScopedLanguage() {
    if (had) ::setenv("LANGUAGE", saved.c_str(), 1);
    else ::unsetenv("LANGUAGE");
  }
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
  NibReadResult empty = readNibFile(nib.string());
  ASSERT_FALSE(empty);
  EXPECT_NE(empty.error().reason.find("nib folder without"), std::string::npos) << empty.error().reason;
}

TEST(NibResources, LocalizedCopiesFollowTheUsersLanguage) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path leopard = test::corpusDir() / "transmission-2008/macosx";
  // A bundle with an English and a French copy; bundles are kept by path, so one folder each time.
  auto makeBundle = [&](test::TempDir& dir) {
    fs::create_directories(dir.path() / "Resources/English.lproj");
    fs::create_directories(dir.path() / "Resources/fr.lproj");
    fs::create_symlink(leopard / "English.lproj/PrefsWindow.xib", dir.path() / "Resources/English.lproj/PrefsWindow.xib");
    fs::create_symlink(leopard / "fr.lproj/PrefsWindow.xib", dir.path() / "Resources/fr.lproj/PrefsWindow.xib");
    return Bundle::bundleWithPath(String::fromUTF8(dir.str()));
  };
  {
    ScopedLanguage french("fr_FR");
    test::TempDir dir;
    const String path = makeBundle(dir)->pathForNibResource(u"PrefsWindow");
    EXPECT_NE(path.UTF8String().find("fr.lproj"), std::string::npos) << path.UTF8String();
    EXPECT_EQ(windowTitleOf(path.UTF8String()), "Préférences");
  }
  {
    ScopedLanguage english("en_GB");
    test::TempDir dir;
    auto bundle = makeBundle(dir);
    EXPECT_EQ(windowTitleOf(bundle->pathForNibResource(u"PrefsWindow").UTF8String()), "Preferences");
    EXPECT_TRUE(bundle->pathForNibResource(u"Missing").isNil());
  }
  // An unlocalized nib is found before the localized copies.
  ScopedLanguage french("fr");
  test::TempDir dir;
  fs::create_directories(dir.path() / "Resources");
  fs::create_symlink(leopard / "English.lproj/PrefsWindow.xib", dir.path() / "Resources/PrefsWindow.nib");
  auto bundle = makeBundle(dir);
  EXPECT_EQ(bundle->pathForNibResource(u"PrefsWindow").UTF8String(), (dir.path() / "Resources/PrefsWindow.nib").string());
}

}  // namespace
}  // namespace tq
