// Interfaces in their compiled forms, built here where the corpus cannot reach: keyed archives
// (binary and XML property lists) and NIBArchive files with connections, layout, sharing, plug-in
// classes, localizable strings and element content; damaged and hostile archives of each
// container; the memory bound; the nib as a bundle resource. The strings each form holds are
// compared with the files' own bytes by nib_forms_corpus_test.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "sanitized_build.h"
#include "support/keyed_archive_writer.h"
#include "support/test_paths.h"
#include "tq/platform/bundle/binary_plist.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/rule_editor.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/token_field.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

namespace fs = std::filesystem;
using test::KeyedArchiveWriter;

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

template <class T>
std::shared_ptr<T> topLevel(const NibReadResult& r, std::size_t i) {
  return r ? std::dynamic_pointer_cast<T>(r.nib().topLevelObjects().at(i)) : nullptr;
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
  const std::string claimsMore = patched(arrayAt, 0xAE);  // the list reads the bytes in place
  list = BinaryPlist::open(claimsMore, &error);
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->item(list->topObject(), top, &error));
  EXPECT_NE(error.find("run past"), std::string::npos) << error;
}

// --- compiled keyed archives built in the test ------------------------------------------------------

TEST(CompiledNib, BuildsPanelsControlsAndConnectionsToTheOwner) {
  KeyedArchiveWriter w;
  const uint64_t cell = w.make("NSButtonCell", {{"NSContents", w.string("Apply")}});
  w.set(cell, "NSAuxButtonType", plist_new_uint(3));
  const uint64_t button = w.make("NSButton", {{"NSFrame", w.string("{{20, 10}, {120, 32}}")}, {"NSCell", cell}});
  w.setObjectId(button, 25);
  const uint64_t stepper = w.make("NSStepper", {{"NSFrameSize", w.string("{19, 28}")}, {"NSCell", w.object("NSStepperCell")}});
  const uint64_t content = w.make("NSView", {{"NSSubviews", w.array({button, stepper})}});
  const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowRect", w.string("{{100, 200}, {300, 150}}")},
                                                      {"NSWindowClass", w.string("NSPanel")}, {"NSWindowView", content}});
  const uint64_t action = w.make("NSNibControlConnector", {{"NSSource", button}, {"NSDestination", w.owner()}, {"NSLabel", w.string("apply:")}});
  const uint64_t outlet = w.make("NSNibOutletConnector", {{"NSSource", w.owner()}, {"NSDestination", button}, {"NSLabel", w.string("applyButton")}});
  const uint64_t help = w.make("NSIBHelpConnector", {{"NSDestination", button}, {"NSFile", w.string("NSToolTipHelpKey")},
                                                     {"NSMarker", w.string("Applies the settings")}});
  NibLoadOptions options;
  auto owner = std::make_shared<GenericObject>();
  options.owner = owner;
  NibReadResult r = readNibData(w.binary({window}, {action, outlet, help}), options);
  ASSERT_TRUE(r) << r.error().reason;
  ASSERT_EQ(r.nib().topLevelObjects().size(), 1u) << "the owner is not a top-level object";
  auto panel = topLevel<Panel>(r, 0);
  ASSERT_TRUE(panel) << "NSWindowClass NSPanel makes a panel";
  EXPECT_EQ(panel->contentRect().w, 300);
  ASSERT_EQ(panel->contentView()->subviews().size(), 2u);
  auto apply = std::dynamic_pointer_cast<Button>(panel->contentView()->subviews()[0]);
  ASSERT_TRUE(apply);
  EXPECT_EQ(apply->frame().x, 20);
  EXPECT_EQ(apply->archiveIdentifier(), String(u"25")) << "the designer's object ID";
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

// A subview pinned to the four edges of a window's content view: the window grows to hold it when
// its frame is larger, with the margins the constraints give; constraints that are not required
// equalities pin nothing.
TEST(CompiledNib, AWindowGrowsToHoldASubviewPinnedToItsEdges) {
  for (const bool required : {true, false}) {
    KeyedArchiveWriter w;
    const uint64_t stack = w.make("NSStackView", {{"NSFrame", w.string("{{0, 0}, {260, 120}}")}});
    const uint64_t content = w.make("NSView", {{"NSFrameSize", w.string("{200, 100}")}, {"NSSubviews", w.array({stack})}});
    const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowRect", w.string("{{100, 200}, {200, 100}}")}, {"NSWindowView", content}});
    // (first item, attribute, second item, constant): leading 20, trailing 20, top 10, bottom 10.
    const struct { uint64_t first; int attribute; uint64_t second; double constant; } pins[] = {
        {stack, 5, content, 20}, {content, 6, stack, 20}, {stack, 3, content, 10}, {content, 4, stack, 10}};
    std::vector<uint64_t> constraints;
    for (const auto& p : pins) {
      const uint64_t c = w.make("NSLayoutConstraint", {{"NSFirstItem", p.first}, {"NSSecondItem", p.second}});
      w.set(c, "NSFirstAttribute", plist_new_uint(p.attribute));
      w.set(c, "NSSecondAttribute", plist_new_uint(p.attribute));
      w.set(c, "NSConstant", plist_new_real(p.constant));
      if (!required) w.set(c, "NSPriority", plist_new_uint(750));
      constraints.push_back(c);
    }
    w.ref(content, "NSViewConstraints", w.array(constraints));
    NibReadResult r = readNibData(w.binary({window}));
    ASSERT_TRUE(r) << r.error().reason;
    auto win = topLevel<Window>(r, 0);
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

// An object the model has no type for keeps its texts and numbers as attributes, in order: an empty
// string object (no bytes at all) as an empty text, beside a text and a number.
TEST(CompiledNib, AGenericObjectKeepsEmptyTextsTextsAndNumbers) {
  KeyedArchiveWriter w;
  const uint64_t f = w.make("NSByteCountFormatter", {{"NSUnitsTitle", w.object("NSMutableString")}, {"NSText", w.string("KB")}});
  w.set(f, "NSCount", plist_new_uint(3));
  NibReadResult r = readNibData(w.binary({f}));
  ASSERT_TRUE(r) << r.error().reason;
  auto g = topLevel<GenericObject>(r, 0);
  ASSERT_TRUE(g);
  const auto& entries = g->attributes().entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].first, String(u"NSUnitsTitle"));
  EXPECT_EQ(entries[0].second.stringValue(), String(u""));
  EXPECT_EQ(entries[1].first, String(u"NSText"));
  EXPECT_EQ(entries[1].second.stringValue(), String(u"KB"));
  EXPECT_EQ(entries[2].first, String(u"NSCount"));
  EXPECT_FALSE(entries[2].second.isNil());
}

// A cell shared by a field and a column stays one object; its back reference to the field and the
// view's reference to itself are not followed. Two views naming one subviews list: the first keeps
// them and the second is told about.
TEST(CompiledNib, SharedObjectsStaySharedAndBackReferencesAreNotFollowed) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView"), field = w.object("NSTextField");
  const uint64_t cell = w.make("NSTextFieldCell", {{"NSContents", w.string("Name:")}, {"NSControlView", field}});
  w.ref(field, "NSCell", cell);
  w.ref(field, "NSSuperview", view);
  w.ref(view, "NSSubviews", w.array({field}));
  w.ref(view, "NSNextResponder", view);
  const uint64_t column = w.make("NSTableColumn", {{"NSDataCell", cell}});
  const uint64_t list = w.array({w.object("NSView")});
  const uint64_t a = w.make("NSView", {{"NSSubviews", list}}), b = w.make("NSView", {{"NSSubviews", list}});
  NibReadResult r = readNibData(w.binary({view, column, a, b}));
  ASSERT_TRUE(r) << r.error().reason;
  auto v = topLevel<View>(r, 0);
  auto c = topLevel<TableColumn>(r, 1);
  ASSERT_TRUE(v && c);
  EXPECT_EQ(std::dynamic_pointer_cast<Control>(v->subviews()[0])->cell(), c->dataCell());
  EXPECT_EQ(topLevel<View>(r, 2)->subviews().size(), 1u);
  EXPECT_TRUE(topLevel<View>(r, 3)->subviews().empty());
  ASSERT_EQ(r.nib().warnings().size(), 1u);
  EXPECT_NE(r.nib().warnings()[0].find("subview of two views"), std::string::npos);
}

// A window whose title and button hold text, saved as an XML property list.
std::string windowArchive(const std::string& title) {
  KeyedArchiveWriter w;
  const uint64_t button = w.make("NSButton", {{"NSFrame", w.string("{{20, 20}, {100, 30}}")},
                                              {"NSCell", w.make("NSButtonCell", {{"NSContents", w.string(title)}})}});
  const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowTitle", w.string("Réglages")}, {"NSWindowRect", w.string("{{10, 20}, {300, 200}}")},
                                                      {"NSWindowView", w.make("NSView", {{"NSSubviews", w.array({button})}})}});
  return w.xml({window});
}

TEST(CompiledNib, XMLPropertyListsReadAsTheBinaryFormWithRawControlCharacters) {
  // libplist escapes nothing but markup; the characters are written raw where it leaves them.
  std::string xml = windowArchive("Tab@here");
  const auto at = xml.find("Tab@here");
  ASSERT_NE(at, std::string::npos);
  xml.replace(at + 3, 1, "\x01\t\x1b");
  NibReadResult r = readNibData(xml);
  ASSERT_TRUE(r) << r.error().reason;
  EXPECT_EQ(r.nib().documentType(), String(u"NSKeyedArchiver"));
  auto window = topLevel<Window>(r, 0);
  ASSERT_TRUE(window);
  EXPECT_EQ(window->title(), String(u"Réglages"));
  auto button = std::dynamic_pointer_cast<Button>(window->contentView()->subviews().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->title(), String(u"Tab\x01\t\x1bhere"));
}

// A plug-in class reads as the nearest known class of the chain its description declares; a chain
// that reaches nothing known keeps the fallback by shape.
TEST(CompiledNib, PlugInClassesReadAsTheNearestKnownClassOfTheirChain) {
  KeyedArchiveWriter w;
  const uint64_t popUp = w.object("HBPopUpButton", {"NSPopUpButton", "NSButton", "NSControl", "NSView", "NSResponder"});
  w.ref(popUp, "NSFrame", w.string("{{0, 0}, {120, 26}}"));
  w.ref(popUp, "NSCell", w.object("HBPopUpButtonCell", {"NSPopUpButtonCell", "NSMenuItemCell", "NSButtonCell", "NSActionCell", "NSCell"}));
  const uint64_t other = w.object("HBThing", {"HBBase"});
  w.ref(other, "NSFrame", w.string("{{0, 0}, {10, 10}}"));
  NibReadResult r = readNibData(w.binary({popUp, other}));
  ASSERT_TRUE(r) << r.error().reason;
  auto button = topLevel<PopUpButton>(r, 0);
  ASSERT_TRUE(button) << r.nib().topLevelObjects().at(0)->className().UTF8String();
  EXPECT_EQ(button->customClassName(), String(u"HBPopUpButton"));
  EXPECT_EQ(button->cell()->customClassName(), String(u"HBPopUpButtonCell"));
  auto thing = topLevel<View>(r, 1);
  ASSERT_TRUE(thing);
  EXPECT_EQ(thing->className(), String(u"HBThing"));
}

TEST(CompiledNib, LocalizableStringsGiveTheirTextAndKeepTheirKeysOnTheirObjects) {
  KeyedArchiveWriter w;
  const auto localized = [&](const std::string& key, const std::string& text) {
    return w.make("NSLocalizableString", {{"NSKey", w.string(key)}, {"NSDev", w.string(text)}});
  };
  const uint64_t box = w.make("NSBox", {{"NSFrame", w.string("{{0, 0}, {200, 100}}")},
                                        {"NSTitleCell", w.make("NSTextFieldCell", {{"NSContents", localized("Box-1.title", "Network")}})}});
  const uint64_t cell = w.make("NSButtonCell", {{"NSContents", localized("170.title", "Apply")},
                                                {"NSAlternateContents", localized("170.alternateTitle", "Applied")}});
  const uint64_t button = w.make("NSButton", {{"NSFrame", w.string("{{0, 0}, {80, 30}}")}, {"NSCell", cell}});
  const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowTitle", localized("F0z-JX-Cv5.title", "Preferences")},
                                                      {"NSWindowView", w.make("NSView", {{"NSSubviews", w.array({box, button})}})}});
  const uint64_t menu = w.make("NSMenu", {{"NSMenuItems", w.array({w.make("NSMenuItem", {{"NSTitle", localized("m-1.title", "Quit")}})})}});
  // A tool tip given beside its view, and a binding's placeholder: the connector has no identifier
  // of its own, the tables name it by the one in the placeholder's key.
  const uint64_t tip = w.make("NSIBHelpConnector", {{"NSDestination", button}, {"NSFile", w.string("NSToolTipHelpKey")},
                                                    {"NSMarker", localized("169.toolTip", "Applies the settings")}});
  const uint64_t options = w.object("NSDictionary");
  plist_t optionKeys = plist_new_array(), optionValues = plist_new_array();
  plist_array_append_item(optionKeys, plist_new_uid(w.string("NSNullPlaceholder")));
  plist_array_append_item(optionValues, plist_new_uid(localized("Bnd-1.ibShadowedNullPlaceholder", "No name")));
  w.set(options, "NS.keys", optionKeys);
  w.set(options, "NS.objects", optionValues);
  const uint64_t binding = w.make("NSNibBindingConnector", {{"NSSource", button}, {"NSDestination", window},
                                                            {"NSBinding", w.string("title")}, {"NSKeyPath", w.string("name")},
                                                            {"NSOptions", options}});
  NibReadResult r = readNibData(w.binary({window, menu}, {tip, binding}));
  ASSERT_TRUE(r) << r.error().reason;
  auto win = topLevel<Window>(r, 0);
  ASSERT_TRUE(win);
  auto b = std::dynamic_pointer_cast<Button>(win->contentView()->subviews().at(1));
  auto boxView = std::dynamic_pointer_cast<Box>(win->contentView()->subviews().at(0));
  auto quit = topLevel<Menu>(r, 1)->itemAtIndex(0);
  ASSERT_TRUE(b && boxView && quit);
  const struct {
    String shown;
    const char16_t* text;
    const InterfaceObject* object;
    const char16_t* property;
    const char16_t* key;
  } rows[] = {{win->title(), u"Preferences", win.get(), u"title", u"F0z-JX-Cv5.title"},
              {boxView->title(), u"Network", boxView.get(), u"title", u"Box-1.title"},
              {b->title(), u"Apply", b->cell().get(), u"title", u"170.title"},
              {b->alternateTitle(), u"Applied", b->cell().get(), u"alternateTitle", u"170.alternateTitle"},
              {quit->title(), u"Quit", quit.get(), u"title", u"m-1.title"}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.shown, String(row.text));
    EXPECT_EQ(row.object->localizableKeyFor(row.property), String(row.key)) << String(row.key).UTF8String();
  }
  EXPECT_EQ(b->cell()->localizableKeys().size(), 2u);
  EXPECT_EQ(b->toolTip(), String(u"Applies the settings"));
  EXPECT_EQ(b->localizableKeyFor(u"toolTip"), String(u"169.toolTip"));
  ASSERT_EQ(r.nib().connections().size(), 1u);
  EXPECT_EQ(r.nib().connections()[0].identifier, String(u"Bnd-1"));
}

// Combo items, tokens, segments, rule templates and the text of text views (held by the view, or
// in the storage behind its container and layout manager, the container pointing back at it).
TEST(CompiledNib, ElementContent) {
  KeyedArchiveWriter w;
  const uint64_t combo = w.make("NSComboBox", {{"NSFrame", w.string("{{0, 0}, {100, 24}}")},
                                               {"NSCell", w.make("NSComboBoxCell", {{"NSPopUpListData", w.array({w.string("One"), w.string("Two")})}})}});
  const uint64_t tokens = w.make("NSTokenField", {{"NSFrame", w.string("{{0, 30}, {200, 22}}")},
                                                  {"NSCell", w.make("NSTokenFieldCell", {{"NSContents", w.array({w.string("alpha"), w.string("beta")}, "NSArray")}})}});
  const uint64_t segment = w.make("NSSegmentItem", {{"NSSegmentItemToolTip", w.string("Adds a preset")}});
  const uint64_t segmented = w.make("NSSegmentedControl", {{"NSFrame", w.string("{{0, 60}, {100, 24}}")},
                                                           {"NSCell", w.make("NSSegmentedCell", {{"NSSegmentImages", w.array({segment})}})}});
  const uint64_t popUp = w.make("NSPopUpButton", {{"NSFrame", w.string("{{0, 0}, {80, 20}}")}});
  const uint64_t row = w.make("NSPredicateEditorRowTemplate", {{"NSPredicateTemplateViews", w.array({popUp})}});
  const uint64_t editor = w.make("NSPredicateEditor", {{"NSFrame", w.string("{{0, 100}, {300, 50}}")}, {"NSPredicateTemplates", w.array({row})}});
  const uint64_t held = w.make("NSTextView", {{"NSFrame", w.string("{{0, 160}, {300, 60}}")},
                                              {"NSTextViewTextStorage", w.make("NSTextStorage", {{"NSString", w.string("Notes held by the view")}})}});
  const uint64_t stored = w.make("NSTextView", {{"NSFrameSize", w.string("{200, 80}")}});
  const uint64_t contents = w.make("NSMutableString", {{"NS.string", w.string("Release notes\nsecond line")}});
  const uint64_t manager = w.make("NSLayoutManager", {{"NSTextStorage", w.make("NSTextStorage", {{"NSString", contents}})}});
  w.ref(stored, "NSTextContainer", w.make("NSTextContainer", {{"NSLayoutManager", manager}, {"NSTextView", stored}}));
  const uint64_t view = w.make("NSView", {{"NSFrameSize", w.string("{400, 300}")},
                                          {"NSSubviews", w.array({combo, tokens, segmented, editor, held, stored})}});
  NibReadResult r = readNibData(w.binary({view}));
  ASSERT_TRUE(r) << r.error().reason;
  const auto& subviews = topLevel<View>(r, 0)->subviews();
  ASSERT_EQ(subviews.size(), 6u);
  auto c = std::dynamic_pointer_cast<ComboBox>(subviews[0]);
  ASSERT_TRUE(c);
  EXPECT_EQ(c->objectValues(), (std::vector<String>{u"One", u"Two"}));
  auto t = std::dynamic_pointer_cast<TokenField>(subviews[1]);
  ASSERT_TRUE(t);
  EXPECT_EQ(t->tokens(), (std::vector<String>{u"alpha", u"beta"}));
  auto s = std::dynamic_pointer_cast<SegmentedControl>(subviews[2]);
  ASSERT_TRUE(s);
  EXPECT_EQ(s->segmentedCell()->segments().at(0).toolTip, String(u"Adds a preset"));
  auto e = std::dynamic_pointer_cast<RuleEditor>(subviews[3]);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->className(), String(u"NSPredicateEditor"));
  ASSERT_EQ(e->rowTemplates().size(), 1u);
  ASSERT_EQ(e->rowTemplates()[0]->templateViews().size(), 1u);
  EXPECT_TRUE(std::dynamic_pointer_cast<PopUpButton>(e->rowTemplates()[0]->templateViews()[0]));
  for (const auto& [i, text] : {std::pair{4, u"Notes held by the view"}, std::pair{5, u"Release notes\nsecond line"}}) {
    auto tv = std::dynamic_pointer_cast<TextView>(subviews[i]);
    ASSERT_TRUE(tv);
    EXPECT_EQ(tv->string(), String(text));
    EXPECT_TRUE(tv->isFlipped());
  }
}

// Every cell class reads what it and each of its model bases read, the bases taken from the model's
// class tree: pop-up cells their button's bezel, combo, search, token and header cells their field's
// placeholder; image and segmented cells their own scaling and tracking.
TEST(CompiledNib, CellsReadWhatTheirClassAndItsBasesHold) {
  struct Case {
    const char* cls;
    bool button, field, image, segmented;
  };
  const Case cases[] = {{"NSButtonCell", true, false, false, false},      {"NSPopUpButtonCell", true, false, false, false},
                        {"NSTextFieldCell", false, true, false, false},   {"NSSecureTextFieldCell", false, true, false, false},
                        {"NSComboBoxCell", false, true, false, false},    {"NSSearchFieldCell", false, true, false, false},
                        {"NSTokenFieldCell", false, true, false, false},  {"NSTableHeaderCell", false, true, false, false},
                        {"NSImageCell", false, false, true, false},       {"NSSegmentedCell", false, false, false, true},
                        {"NSSliderCell", false, false, false, false}};
  KeyedArchiveWriter w;
  std::vector<uint64_t> controls;
  for (const Case& c : cases) {
    const uint64_t cell = w.make(c.cls, {{"NSPlaceholderString", w.string("hint")}});
    w.set(cell, "NSBezelStyle", plist_new_uint(2));
    w.set(cell, "NSScale", plist_new_uint(2));
    w.set(cell, "NSTrackingMode", plist_new_uint(1));
    controls.push_back(w.make("NSControl", {{"NSFrameSize", w.string("{40, 20}")}, {"NSCell", cell}}));
  }
  NibReadResult r = readNibData(w.binary({w.make("NSView", {{"NSSubviews", w.array(controls)}})}));
  ASSERT_TRUE(r) << r.error().reason;
  const auto& subviews = topLevel<View>(r, 0)->subviews();
  ASSERT_EQ(subviews.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].cls);
    auto control = std::dynamic_pointer_cast<Control>(subviews[i]);
    ASSERT_TRUE(control && control->cell());
    Cell* cell = control->cell().get();
    auto* button = dynamic_cast<ButtonCell*>(cell);
    auto* field = dynamic_cast<TextFieldCell*>(cell);
    auto* image = dynamic_cast<ImageCell*>(cell);
    auto* segmented = dynamic_cast<SegmentedCell*>(cell);
    ASSERT_EQ(button != nullptr, cases[i].button);
    ASSERT_EQ(field != nullptr, cases[i].field);
    ASSERT_EQ(image != nullptr, cases[i].image);
    ASSERT_EQ(segmented != nullptr, cases[i].segmented);
    if (button) {
      EXPECT_EQ(button->bezelStyle(), String(u"regularSquare"));
    }
    if (field) {
      EXPECT_EQ(field->placeholderString(), String(u"hint"));
    }
    if (image) {
      EXPECT_EQ(image->imageScaling(), String(u"none"));
    }
    if (segmented) {
      EXPECT_EQ(segmented->trackingMode(), String(u"selectAny"));
    }
  }
}

// Archives that cannot be an interface, each refused with one clear reason.
TEST(CompiledNib, DamagedAndHostileArchivesAreRefused) {
  KeyedArchiveWriter w;
  const uint64_t view = w.make("NSView", {{"NSFrame", w.string("{{0, 0}, {10, 10}}")}});
  const std::string good = w.binary({view});
  ASSERT_TRUE(readNibData(good));
  for (std::size_t cut = 0; cut < good.size(); cut += 7) {
    NibReadResult r = readNibData(good.substr(0, cut));
    EXPECT_TRUE(!r && !r.error().reason.empty()) << "cut at " << cut;
  }
  // A UID that names no object.
  w.set(view, "NSNextResponder", plist_new_uid(90000));
  EXPECT_TRUE(refused(readNibData(w.binary({view})), "reference to object 90000"));
  // Not an interface: a keyed archive without IB.objectdata.
  plist_t plain = plist_new_dict();
  plist_dict_set_item(plain, "$top", plist_new_dict());
  plist_dict_set_item(plain, "$objects", plist_new_array());
  EXPECT_TRUE(refused(readNibData(toBinary(plain)), "IB.objectdata"));
  plist_free(plain);
  // Objects that contain themselves, through subviews and through a submenu.
  KeyedArchiveWriter c;
  const uint64_t outer = c.object("NSView"), inner = c.make("NSView", {{"NSSubviews", c.array({outer})}});
  c.ref(outer, "NSSubviews", c.array({inner}));
  EXPECT_TRUE(refused(readNibData(c.binary({outer})), "contains itself (through NSSubviews)"));
  KeyedArchiveWriter m;
  const uint64_t menu = m.object("NSMenu");
  m.ref(menu, "NSMenuItems", m.array({m.make("NSMenuItem", {{"NSSubmenu", menu}})}));
  EXPECT_TRUE(refused(readNibData(m.binary({menu})), "NSSubmenu"));
  // 1,500 views all naming one array of 1,500 views as their subviews: a small file whose naive
  // reading would visit 2,250,000 members and move each leaf 1,500 times.
  KeyedArchiveWriter s;
  std::vector<uint64_t> leaves, views;
  for (int i = 0; i < 1500; ++i) leaves.push_back(s.object("NSView"));
  const uint64_t shared = s.array(leaves);
  for (int i = 0; i < 1500; ++i) views.push_back(s.make("NSView", {{"NSSubviews", shared}}));
  EXPECT_TRUE(refused(readNibData(s.binary(views)), "share their collections"));

  // The same archive saved as XML, damaged at its keys and references.
  const std::string xml = windowArchive("OK");
  const auto replaced = [&](const std::string& from, const std::string& to, const std::string& after = "") {
    std::string text = xml;
    const auto at = text.find(from, text.find(after));
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
  };
  const struct {
    std::string bytes;
    const char* reason;
  } cases[] = {
      {xml.substr(0, xml.size() / 2), "not a readable property list at offset"},
      {replaced("<key>$objects</key>", "<key>$things</key>"), "no $objects array"},
      {replaced("<key>IB.objectdata</key>", "<key>IB.other</key>"), "no IB.objectdata"},
      {replaced("<key>CF$UID</key>\n\t\t\t\t<integer>2</integer>", "<key>CF$UID</key><integer>99999</integer>"),
       "reference to object 99999"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>"), "IB.objectdata is not an object reference"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>", "<key>NSWindowView</key>"), "dictionary written inside an object"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>", "<key>$class</key>"), "$class is not a reference"},
      {"<?xml version=\"1.0\"?><!DOCTYPE plist><plist version=\"1.0\"><array/></plist>", "not a dictionary"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(refused(readNibData(c.bytes), "damaged compiled interface (XML property list)")) << c.reason;
    EXPECT_TRUE(refused(readNibData(c.bytes), c.reason));
  }
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

  std::string finish(const std::vector<uint32_t>& topLevel) {
    std::vector<NW::Value> keys{NW::byte("NSInlinedValue", 0)}, parents = keys, links = keys;
    for (uint32_t t : topLevel) keys.push_back(NW::ref("UINibEncoderEmptyKey", t)), parents.push_back(NW::ref("UINibEncoderEmptyKey", owner));
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
  // Object data whose lists of objects and of their parents differ in length, either way.
  for (const bool moreObjects : {true, false}) {
    NIBArchiveBuilder m;
    const std::vector<NW::Value> one{NW::ref("UINibEncoderEmptyKey", m.w.object("NSView", {}))};
    std::vector<NW::Value> two = one;
    two.push_back(NW::ref("UINibEncoderEmptyKey", m.owner));
    const uint32_t k = m.w.object("NSArray", moreObjects ? two : one), p = m.w.object("NSArray", moreObjects ? one : two);
    m.w.patch(m.root, 0, NW::ref("IB.objectdata", m.w.object("NSIBObjectData", {NW::ref("NSRoot", m.owner), NW::ref("NSObjectsKeys", k),
                                                                                NW::ref("NSObjectsValues", p)})));
    EXPECT_TRUE(refused(readNibData(m.w.bytes()), moreObjects ? "lists 2 objects but 1 parents" : "lists 1 objects but 2 parents"));
  }
}

// --- bounds -------------------------------------------------------------------------------------------

TEST(NibBounds, AMatrixDeclaringMillionsOfCellsItDoesNotHoldIsRefused) {
  const auto matrixDocument = [](int columns, int tallColumnRows) {
    std::string doc = R"(<?xml version="1.0"?><document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
<matrix id="m"><rect key="frame" x="0" y="0" width="100" height="100"/><cells>)";
    for (int c = 0; c < columns; ++c) {
      doc += "<column>";
      for (int r = 0; r < (c == 0 ? tallColumnRows : 1); ++r) doc += "<buttonCell type=\"radio\" title=\"x\"/>";
      doc += "</column>";
    }
    return doc + "</cells></matrix></objects></document>";
  };
  const std::string doc = matrixDocument(2000, 2000);
  EXPECT_TRUE(refused(readNibData(doc), "memory")) << "4,000,000 grid places from " << doc.size() << " bytes";
  // A small ragged grid is still padded, with one shared empty cell.
  NibReadResult small = readNibData(matrixDocument(3, 2));
  ASSERT_TRUE(small) << small.error().reason;
  auto matrix = topLevel<Matrix>(small, 0);
  ASSERT_EQ(matrix->numberOfRows(), 2);
  ASSERT_EQ(matrix->numberOfColumns(), 3);
  EXPECT_EQ(matrix->cellAtRow(1, 1), matrix->cellAtRow(1, 2));
  EXPECT_NE(matrix->cellAtRow(1, 0), matrix->cellAtRow(1, 1));
}

// The peak memory of reading `doc`, measured by the kernel in a child process; -1 when it did not read.
long peakGrowthKiB(const std::string& doc) {
  const auto highWater = [] {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1L;
  };
  int pipefd[2];
  if (::pipe(pipefd) != 0) return -2;
  const pid_t child = ::fork();
  if (child == 0) {
    const long before = highWater();
    NibReadResult r = readNibData(doc);
    const long grew = r ? highWater() - before : -1;
    ::_exit(::write(pipefd[1], &grew, sizeof grew) == sizeof grew ? 0 : 2);
  }
  long grew = -2;
  if (child < 0 || ::read(pipefd[0], &grew, sizeof grew) != static_cast<ssize_t>(sizeof grew)) grew = -2;
  ::close(pipefd[0]);
  ::close(pipefd[1]);
  if (child > 0) ::waitpid(child, nullptr, 0);
  return grew;
}

// A NIBArchive and an XML property list of thousands of small controls (the document form's bound
// is checked on the nib command).
TEST(NibBounds, ReadingEveryFormStaysWithinTheStatedBound) {
  if (test::kSanitizedBuild) GTEST_SKIP() << "peak memory is the sanitizer's, not the reader's";
  NIBArchiveBuilder b;
  NW& n = b.w;
  const uint32_t frame = n.string("{{1, 2}, {30, 40}}"), title = n.string("Label");
  std::vector<NW::Value> subviews{NW::byte("NSInlinedValue", 0)};
  for (int i = 0; i < 10000; ++i) {
    const uint32_t cell = n.object("NSTextFieldCell", {NW::ref("NSContents", title)});
    subviews.push_back(NW::ref("UINibEncoderEmptyKey", n.object("NSTextField", {NW::ref("NSFrame", frame), NW::ref("NSCell", cell)})));
  }
  const std::string compiled = b.finish({n.object("NSView", {NW::ref("NSSubviews", n.object("NSMutableArray", subviews))})});
  KeyedArchiveWriter w;
  const uint64_t keyedFrame = w.string("{{1, 2}, {30, 40}}");
  std::vector<uint64_t> fields;
  for (int i = 0; i < 8000; ++i) {
    const uint64_t cell = w.make("NSTextFieldCell", {{"NSContents", w.string("Label " + std::to_string(i))}});
    fields.push_back(w.make("NSTextField", {{"NSFrame", keyedFrame}, {"NSCell", cell}}));
  }
  const std::string xml = w.xml({w.make("NSView", {{"NSSubviews", w.array(fields)}})});
  for (const std::string* d : {&compiled, &xml}) {
    const long grew = peakGrowthKiB(*d);
    const long bound = static_cast<long>(nibMemoryBound(d->size()) / 1024);
    ASSERT_GE(grew, 0) << "did not read: " << readNibData(*d).error().reason;
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
  const struct {
    const char* language;
    const char16_t* name;
    const char* expected;  // below Resources, "" for none
  } rows[] = {{"fr_FR", u"Prefs", "fr.lproj/Prefs.xib"}, {"en_GB", u"Prefs", "English.lproj/Prefs.xib"},
              {"fr", u"Alert", "fr.lproj/Alert.nib"},    {"en", u"Alert", "English.lproj/Alert.xib"},
              {"fr", u"Missing", ""},                   {"fr", u"Unlocalized", "Unlocalized.nib"}};
  for (const auto& row : rows) {
    ScopedLanguage language(row.language);
    // Bundles are kept by path, so one folder each time. An unlocalized nib is found before the
    // localized copies.
    test::TempDir dir;
    for (const char* file : {"English.lproj/Prefs.xib", "fr.lproj/Prefs.xib", "fr.lproj/Alert.nib", "fr.lproj/Alert.xib",
                             "English.lproj/Alert.xib", "Unlocalized.nib", "fr.lproj/Unlocalized.xib"}) {
      fs::create_directories((dir.path() / "Resources" / file).parent_path());
      std::ofstream(dir.path() / "Resources" / file) << "<document/>";
    }
    const String path = Bundle::bundleWithPath(String::fromUTF8(dir.str()))->pathForNibResource(row.name);
    EXPECT_EQ(path.UTF8String(), *row.expected ? (dir.path() / "Resources" / row.expected).string() : "") << row.language;
  }
}

}  // namespace
}  // namespace tq
