// Interface forms and elements beside storyboards: keyed archives saved as XML property lists,
// plug-in classes read as the nearest class their declared chain reaches, localizable strings with
// their table keys, and the content of combo boxes, token fields, segments, rule editors and text
// views in every form.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "sanitized_build.h"
#include "support/keyed_archive_writer.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/rule_editor.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/token_field.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

using test::KeyedArchiveWriter;

// A window holding a labelled button whose title carries raw control characters.
std::string windowArchive(bool xml, const std::string& title) {
  KeyedArchiveWriter w;
  const uint64_t window = w.object("NSWindowTemplate");
  w.ref(window, "NSWindowTitle", w.string("Réglages"));
  w.ref(window, "NSWindowRect", w.string("{{10, 20}, {300, 200}}"));
  const uint64_t content = w.object("NSView");
  w.ref(window, "NSWindowView", content);
  const uint64_t button = w.object("NSButton");
  w.ref(button, "NSFrame", w.string("{{20, 20}, {100, 30}}"));
  const uint64_t cell = w.object("NSButtonCell");
  w.ref(cell, "NSContents", w.string(title));
  w.ref(button, "NSCell", cell);
  w.ref(content, "NSSubviews", w.array({button}));
  return xml ? w.xml({window}) : w.binary({window});
}

TEST(XMLPropertyListArchive, ReadsAsTheBinaryFormWithRawControlCharacters) {
  // libplist escapes nothing but markup; the characters are written raw where it leaves them.
  std::string xml = windowArchive(true, "Tab@here");
  const auto at = xml.find("Tab@here");
  ASSERT_NE(at, std::string::npos);
  xml.replace(at + 3, 1, "\x01\t\x1b");
  NibReadResult r = readNibData(xml);
  ASSERT_TRUE(r) << r.error().reason;
  EXPECT_EQ(r.nib().documentType(), String(u"NSKeyedArchiver"));
  auto window = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(window);
  EXPECT_EQ(window->title(), String(u"Réglages"));
  auto button = std::dynamic_pointer_cast<Button>(window->contentView()->subviews().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->title(), String(u"Tab\x01\t\x1bhere"));
  NibReadResult binary = readNibData(windowArchive(false, "Tab@here"));
  ASSERT_TRUE(binary);
  EXPECT_EQ(binary.nib().objectCount(), r.nib().objectCount());
}

TEST(XMLPropertyListArchive, DamagedListsGiveOneClearError) {
  const std::string good = windowArchive(true, "OK");
  // The first `from` after `after`.
  const auto replaced = [&](const std::string& from, const std::string& to, const std::string& after = "") {
    std::string s = good;
    const auto at = s.find(from, s.find(after));
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) s.replace(at, from.size(), to);
    return s;
  };
  struct Case {
    std::string bytes;
    const char* reason;
  };
  const Case cases[] = {
      {good.substr(0, good.size() / 2), "not a readable property list at offset"},
      {replaced("<key>$objects</key>", "<key>$things</key>"), "no $objects array"},
      {replaced("<key>IB.objectdata</key>", "<key>IB.other</key>"), "no IB.objectdata"},
      {replaced("<key>CF$UID</key>\n\t\t\t\t<integer>2</integer>", "<key>CF$UID</key><integer>99999</integer>"),
       "reference to object 99999"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>"), "IB.objectdata is not an object reference"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>", "<key>NSWindowView</key>"), "dictionary written inside an object"},
      {replaced("<key>CF$UID</key>", "<key>NotAUID</key>", "<key>$class</key>"), "$class is not a reference"},
      {"<?xml version=\"1.0\"?><!DOCTYPE plist><plist version=\"1.0\"><array/></plist>", "not a dictionary"},
  };
  for (const Case& c : cases) {
    NibReadResult r = readNibData(c.bytes);
    ASSERT_FALSE(r) << c.reason;
    EXPECT_NE(r.error().reason.find("damaged compiled interface (XML property list)"), std::string::npos)
        << r.error().reason;
    EXPECT_NE(r.error().reason.find(c.reason), std::string::npos) << r.error().reason;
  }
}

// The peak memory of reading `doc`, measured by the kernel in a child process; -1 when it did not read.
long peakGrowthKiB(const std::string& doc) {
  const auto highWater = [] {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
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

TEST(XMLPropertyListArchive, ReadingStaysWithinTheStatedBound) {
  if (test::kSanitizedBuild) GTEST_SKIP() << "peak memory is the sanitizer's, not the reader's";
  KeyedArchiveWriter w;
  const uint64_t frame = w.string("{{1, 2}, {30, 40}}");
  std::vector<uint64_t> fields;
  for (int i = 0; i < 8000; ++i) {
    const uint64_t cell = w.object("NSTextFieldCell");
    w.ref(cell, "NSContents", w.string("Label " + std::to_string(i)));
    fields.push_back(w.object("NSTextField"));
    w.ref(fields.back(), "NSFrame", frame);
    w.ref(fields.back(), "NSCell", cell);
  }
  const uint64_t view = w.object("NSView");
  w.ref(view, "NSSubviews", w.array(fields));
  const std::string doc = w.xml({view});
  const long grew = peakGrowthKiB(doc);
  ASSERT_GE(grew, 0) << readNibData(doc).error().reason;
  const long bound = static_cast<long>(nibMemoryBound(doc.size()) / 1024);
  EXPECT_LT(grew, bound) << "peak grew " << grew << " KiB reading " << doc.size() / 1024 << " KiB";
  std::printf("XML property list: reading %zu KiB took %ld KiB at peak (bound %ld KiB)\n", doc.size() / 1024, grew, bound);
}

// --- plug-in classes --------------------------------------------------------------------------------

TEST(PlugInClasses, KeyedArchivesReadThemAsTheNearestKnownClassOfTheirChain) {
  KeyedArchiveWriter w;
  const uint64_t popUp = w.object("HBPopUpButton", {"NSPopUpButton", "NSButton", "NSControl", "NSView", "NSResponder"});
  w.ref(popUp, "NSFrame", w.string("{{0, 0}, {120, 26}}"));
  const uint64_t cell = w.object("HBPopUpButtonCell", {"NSPopUpButtonCell", "NSMenuItemCell", "NSButtonCell", "NSActionCell", "NSCell"});
  const uint64_t menu = w.object("NSMenu");
  std::vector<uint64_t> items;
  for (const char* title : {"Fast", "Slow"}) {
    items.push_back(w.object("NSMenuItem"));
    w.ref(items.back(), "NSTitle", w.string(title));
  }
  w.ref(menu, "NSMenuItems", w.array(items));
  w.ref(cell, "NSMenu", menu);
  w.ref(popUp, "NSCell", cell);
  // A class whose chain reaches nothing known keeps the fallback by shape.
  const uint64_t other = w.object("HBThing", {"HBBase"});
  w.ref(other, "NSFrame", w.string("{{0, 0}, {10, 10}}"));
  NibReadResult r = readNibData(w.binary({popUp, other}));
  ASSERT_TRUE(r) << r.error().reason;
  auto button = std::dynamic_pointer_cast<PopUpButton>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(button) << r.nib().topLevelObjects().at(0)->className().UTF8String();
  EXPECT_EQ(button->customClassName(), String(u"HBPopUpButton"));
  EXPECT_EQ(button->cell()->customClassName(), String(u"HBPopUpButtonCell"));
  ASSERT_EQ(button->itemArray().size(), 2u);
  EXPECT_EQ(button->itemArray()[1]->title(), String(u"Slow"));
  auto thing = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(1));
  ASSERT_TRUE(thing);
  EXPECT_EQ(thing->className(), String(u"HBThing"));
}

// The older XML archive declares each class's superclass beside the objects.
TEST(PlugInClasses, OlderXMLArchivesReadThemThroughTheirClassDescriptions) {
  const std::string doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<archive type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="7.10"><data>
 <object class="NSMutableArray" key="IBDocument.RootObjects">
  <object class="NSCustomObject" id="1"><string key="NSClassName">Owner</string></object>
  <object class="PlugInPopUp" id="2">
   <string key="NSFrame">{{10, 10}, {150, 26}}</string>
   <object class="PlugInPopUpCell" key="NSCell">
    <object class="NSMenu" key="NSMenu"><string key="NSTitle">Speeds</string>
     <object class="NSMutableArray" key="NSMenuItems">
      <object class="NSMenuItem"><string key="NSTitle">Unlimited</string></object>
      <object class="NSMenuItem"><string key="NSTitle">10 KB/s</string></object>
     </object>
    </object>
   </object>
  </object>
 </object>
 <object class="IBClassDescriber" key="IBDocument.Classes">
  <object class="NSMutableArray" key="referencedPartialClassDescriptions">
   <object class="IBPartialClassDescription"><string key="className">PlugInPopUp</string><string key="superclassName">NSPopUpButton</string></object>
   <object class="IBPartialClassDescription"><string key="className">PlugInPopUpCell</string><string key="superclassName">PlugInCellBase</string></object>
   <object class="IBPartialClassDescription"><string key="className">PlugInCellBase</string><string key="superclassName">NSPopUpButtonCell</string></object>
  </object>
 </object>
</data></archive>)";
  NibReadResult r = readNibData(doc);
  ASSERT_TRUE(r) << r.error().reason;
  auto button = std::dynamic_pointer_cast<PopUpButton>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(button);
  EXPECT_EQ(button->customClassName(), String(u"PlugInPopUp"));
  ASSERT_EQ(button->itemArray().size(), 2u);
  EXPECT_EQ(button->itemArray()[0]->title(), String(u"Unlimited"));
}

// --- localizable strings ------------------------------------------------------------------------------

TEST(LocalizableStrings, DevelopmentTextReadAndTableKeysKeptOnTheirObjects) {
  KeyedArchiveWriter w;
  const auto localized = [&](const std::string& key, const std::string& text) {
    const uint64_t s = w.object("NSLocalizableString");
    w.ref(s, "NSKey", w.string(key));
    w.ref(s, "NSDev", w.string(text));
    return s;
  };
  const uint64_t window = w.object("NSWindowTemplate");
  w.ref(window, "NSWindowTitle", localized("F0z-JX-Cv5.title", "Preferences"));
  const uint64_t content = w.object("NSView");
  w.ref(window, "NSWindowView", content);
  const uint64_t box = w.object("NSBox");
  w.ref(box, "NSFrame", w.string("{{0, 0}, {200, 100}}"));
  const uint64_t titleCell = w.object("NSTextFieldCell");
  w.ref(titleCell, "NSContents", localized("Box-1.title", "Network"));
  w.ref(box, "NSTitleCell", titleCell);
  const uint64_t button = w.object("NSButton");
  w.ref(button, "NSFrame", w.string("{{0, 0}, {80, 30}}"));
  const uint64_t cell = w.object("NSButtonCell");
  w.ref(cell, "NSContents", localized("170.title", "Apply"));
  w.ref(cell, "NSAlternateContents", localized("170.alternateTitle", "Applied"));
  w.ref(button, "NSCell", cell);
  w.ref(content, "NSSubviews", w.array({box, button}));
  const uint64_t menu = w.object("NSMenu");
  const uint64_t item = w.object("NSMenuItem");
  w.ref(item, "NSTitle", localized("m-1.title", "Quit"));
  w.ref(menu, "NSMenuItems", w.array({item}));
  // A tool tip given beside its view, and a binding's placeholder: the connector has no identifier
  // of its own, the tables name it by the one in the placeholder's key.
  const uint64_t tip = w.object("NSIBHelpConnector");
  w.ref(tip, "NSDestination", button);
  w.ref(tip, "NSFile", w.string("NSToolTipHelpKey"));
  w.ref(tip, "NSMarker", localized("169.toolTip", "Applies the settings"));
  const uint64_t binding = w.object("NSNibBindingConnector");
  w.ref(binding, "NSSource", button);
  w.ref(binding, "NSDestination", window);
  w.ref(binding, "NSBinding", w.string("title"));
  w.ref(binding, "NSKeyPath", w.string("name"));
  const uint64_t options = w.object("NSDictionary");
  plist_t optionKeys = plist_new_array(), optionValues = plist_new_array();
  plist_array_append_item(optionKeys, plist_new_uid(w.string("NSNullPlaceholder")));
  plist_array_append_item(optionValues, plist_new_uid(localized("Bnd-1.ibShadowedNullPlaceholder", "No name")));
  w.set(options, "NS.keys", optionKeys);
  w.set(options, "NS.objects", optionValues);
  w.ref(binding, "NSOptions", options);
  NibReadResult r = readNibData(w.binary({window, menu}, {tip, binding}));
  ASSERT_TRUE(r) << r.error().reason;
  auto win = std::dynamic_pointer_cast<Window>(r.nib().topLevelObjects().at(0));
  ASSERT_TRUE(win);
  auto b = std::dynamic_pointer_cast<Button>(win->contentView()->subviews().at(1));
  auto boxView = std::dynamic_pointer_cast<Box>(win->contentView()->subviews().at(0));
  auto quit = std::dynamic_pointer_cast<Menu>(r.nib().topLevelObjects().at(1))->itemAtIndex(0);
  ASSERT_TRUE(b && boxView && quit);
  // (text, key, property, object)
  const std::vector<std::tuple<String, String, const char16_t*, const InterfaceObject*>> expected = {
      {win->title(), u"F0z-JX-Cv5.title", u"title", win.get()},
      {boxView->title(), u"Box-1.title", u"title", boxView.get()},
      {b->title(), u"170.title", u"title", b->cell().get()},
      {b->alternateTitle(), u"170.alternateTitle", u"alternateTitle", b->cell().get()},
      {quit->title(), u"m-1.title", u"title", quit.get()},
  };
  const std::vector<std::u16string> texts = {u"Preferences", u"Network", u"Apply", u"Applied", u"Quit"};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const auto& [text, key, property, object] = expected[i];
    EXPECT_EQ(text, String(texts[i]));
    EXPECT_EQ(object->localizableKeyFor(property), key) << key.UTF8String();
  }
  EXPECT_EQ(b->cell()->localizableKeys().size(), 2u);
  EXPECT_EQ(b->toolTip(), String(u"Applies the settings"));
  EXPECT_EQ(b->localizableKeyFor(u"toolTip"), String(u"169.toolTip"));
  ASSERT_EQ(r.nib().connections().size(), 1u);
  EXPECT_EQ(r.nib().connections()[0].identifier, String(u"Bnd-1"));
}

// --- element content in every form --------------------------------------------------------------------

TEST(ElementContent, CombosTokensSegmentsRulesAndTextInCompiledArchives) {
  KeyedArchiveWriter w;
  const uint64_t view = w.object("NSView");
  w.ref(view, "NSFrameSize", w.string("{400, 300}"));
  const uint64_t combo = w.object("NSComboBox");
  w.ref(combo, "NSFrame", w.string("{{0, 0}, {100, 24}}"));
  const uint64_t comboCell = w.object("NSComboBoxCell");
  w.ref(comboCell, "NSPopUpListData", w.array({w.string("One"), w.string("Two")}));
  w.ref(combo, "NSCell", comboCell);
  const uint64_t tokens = w.object("NSTokenField");
  w.ref(tokens, "NSFrame", w.string("{{0, 30}, {200, 22}}"));
  const uint64_t tokenCell = w.object("NSTokenFieldCell");
  w.ref(tokenCell, "NSContents", w.array({w.string("alpha"), w.string("beta")}, "NSArray"));
  w.ref(tokens, "NSCell", tokenCell);
  const uint64_t segmented = w.object("NSSegmentedControl");
  w.ref(segmented, "NSFrame", w.string("{{0, 60}, {100, 24}}"));
  const uint64_t segCell = w.object("NSSegmentedCell");
  const uint64_t segment = w.object("NSSegmentItem");
  w.ref(segment, "NSSegmentItemToolTip", w.string("Adds a preset"));
  w.ref(segCell, "NSSegmentImages", w.array({segment}));
  w.ref(segmented, "NSCell", segCell);
  const uint64_t editor = w.object("NSPredicateEditor");
  w.ref(editor, "NSFrame", w.string("{{0, 100}, {300, 50}}"));
  const uint64_t row = w.object("NSPredicateEditorRowTemplate");
  const uint64_t popUp = w.object("NSPopUpButton");
  w.ref(popUp, "NSFrame", w.string("{{0, 0}, {80, 20}}"));
  w.ref(row, "NSPredicateTemplateViews", w.array({popUp}));
  w.ref(editor, "NSPredicateTemplates", w.array({row}));
  const uint64_t text = w.object("NSTextView");
  w.ref(text, "NSFrame", w.string("{{0, 160}, {300, 60}}"));
  const uint64_t storage = w.object("NSTextStorage");
  w.ref(storage, "NSString", w.string("Notes held by the view"));
  w.ref(text, "NSTextViewTextStorage", storage);
  w.ref(view, "NSSubviews", w.array({combo, tokens, segmented, editor, text}));
  NibReadResult r = readNibData(w.binary({view}));
  ASSERT_TRUE(r) << r.error().reason;
  const auto& subviews = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(0))->subviews();
  ASSERT_EQ(subviews.size(), 5u);
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
  auto tv = std::dynamic_pointer_cast<TextView>(subviews[4]);
  ASSERT_TRUE(tv);
  EXPECT_EQ(tv->string(), String(u"Notes held by the view"));
}

TEST(ElementContent, RuleEditorsAndStackViewsInDocuments) {
  const std::string doc = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0"><objects>
 <customView id="root"><rect key="frame" x="0" y="0" width="400" height="200"/><subviews>
  <predicateEditor rowHeight="25" id="pe"><rect key="frame" x="0" y="0" width="400" height="80"/>
   <rowTemplates>
    <predicateEditorRowTemplate rowType="compound" id="rt"><popUpMenus>
     <menu id="m1"><items><menuItem title="Any" state="on" id="i1"/><menuItem title="All" id="i2"/></items></menu>
     <menu id="m2"><items><menuItem title="of the following are true" id="i3"/></items></menu>
    </popUpMenus></predicateEditorRowTemplate>
   </rowTemplates>
  </predicateEditor>
  <stackView orientation="horizontal" id="sv"><rect key="frame" x="0" y="100" width="400" height="30"/>
   <beginningViews><button id="b1"><rect key="frame" x="0" y="0" width="60" height="30"/><buttonCell key="cell" title="Left" id="c1"/></button></beginningViews>
   <middleViews><button id="b2"><rect key="frame" x="170" y="0" width="60" height="30"/><buttonCell key="cell" title="Middle" id="c2"/></button></middleViews>
   <endViews><button id="b3"><rect key="frame" x="340" y="0" width="60" height="30"/><buttonCell key="cell" title="Right" id="c3"/></button></endViews>
  </stackView>
 </subviews></customView>
</objects></document>)";
  NibReadResult r = readNibData(doc);
  ASSERT_TRUE(r) << r.error().reason;
  auto root = std::dynamic_pointer_cast<View>(r.nib().topLevelObjects().at(0));
  auto editor = std::dynamic_pointer_cast<RuleEditor>(root->subviews().at(0));
  ASSERT_TRUE(editor);
  ASSERT_EQ(editor->rowTemplates().size(), 1u);
  const auto& views = editor->rowTemplates()[0]->templateViews();
  ASSERT_EQ(views.size(), 2u);
  auto first = std::dynamic_pointer_cast<PopUpButton>(views[0]);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->itemArray().at(1)->title(), String(u"All"));
  EXPECT_EQ(first->title(), String(u"Any")) << "a template's pop-up shows its first item";
  auto stack = std::dynamic_pointer_cast<StackView>(root->subviews().at(1));
  ASSERT_TRUE(stack);
  std::vector<StackViewGravity> gravities;
  for (const auto& v : stack->subviews()) gravities.push_back(stack->gravityOf(v.get()));
  EXPECT_EQ(gravities, (std::vector<StackViewGravity>{StackViewGravity::Leading, StackViewGravity::Center,
                                                      StackViewGravity::Trailing}));
}

}  // namespace
}  // namespace tq
