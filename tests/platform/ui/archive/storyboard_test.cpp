// Storyboards: scenes, relationships, embedded controllers, identifiers and ownership in the XML
// form; the compiled folder; the host's loading by name; damaged storyboards.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "support/keyed_archive_writer.h"
#include "support/test_paths.h"
#include "tq/interface/storyboard_loading.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/grid_view.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/token_field.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window_controller.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

// A window controller whose content is a tab view controller with two panes; the first pane holds a
// grid (one row hidden) and a container embedding a third controller; the second a stack view, a
// combo box and a token field. The application scene holds the main menu.
const char* const kStoryboard = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB" version="3.0" initialViewController="WC1">
<scenes>
 <scene sceneID="S-app"><objects>
  <application id="APP" sceneMemberID="viewController">
   <menu key="mainMenu" title="Main Menu" systemMenu="main" id="MM"><items>
    <menuItem title="File" id="MI1"><menu key="submenu" title="File" id="FM"><items>
     <menuItem title="Close" keyEquivalent="w" id="MI2"><connections><action selector="performClose:" target="FR1" id="A1"/></connections></menuItem>
    </items></menu></menuItem>
   </items></menu>
   <connections><outlet property="delegate" destination="DEL" id="O1"/></connections>
  </application>
  <customObject id="DEL" customClass="AppDelegate"/>
  <customObject id="FR1" userLabel="First Responder" customClass="NSResponder" sceneMemberID="firstResponder"/>
 </objects></scene>
 <scene sceneID="S-win"><objects>
  <windowController storyboardIdentifier="Main" id="WC1" sceneMemberID="viewController">
   <window key="window" title="Settings" id="W1"><windowStyleMask key="styleMask" titled="YES"/>
    <rect key="contentRect" x="100" y="500" width="300" height="200"/>
    <view key="contentView" id="WCV"><rect key="frame" x="0" y="0" width="300" height="200"/></view>
   </window>
   <connections><segue destination="TVC" kind="relationship" relationship="window.shadowedContentViewController" id="R1"/></connections>
  </windowController>
  <customObject id="FR2" sceneMemberID="firstResponder"/>
 </objects></scene>
 <scene sceneID="S-tabs"><objects>
  <tabViewController storyboardIdentifier="Tabs" tabStyle="toolbar" id="TVC" sceneMemberID="viewController">
   <tabViewItems>
    <tabViewItem label="General" identifier="g" image="NSPreferencesGeneral" id="TI1"/>
    <tabViewItem label="Advanced" identifier="a" id="TI2"/>
   </tabViewItems>
   <tabView key="tabView" type="noTabsNoBorder" id="TV"><rect key="frame" x="0" y="0" width="450" height="300"/></tabView>
   <connections>
    <outlet property="tabView" destination="TV" id="O2"/>
    <segue destination="VC1" kind="relationship" relationship="tabItems" id="R2"/>
    <segue destination="VC2" kind="relationship" relationship="tabItems" id="R3"/>
   </connections>
  </tabViewController>
 </objects></scene>
 <scene sceneID="S-general"><objects>
  <viewController title="General" id="VC1" customClass="GeneralController" sceneMemberID="viewController">
   <view key="view" id="V1"><rect key="frame" x="0" y="0" width="450" height="300"/><subviews>
    <gridView rowSpacing="4" id="G1"><rect key="frame" x="10" y="100" width="400" height="150"/>
     <rows><gridRow id="GR1"/><gridRow hidden="YES" id="GR2"/></rows>
     <columns><gridColumn width="100" id="GC1"/><gridColumn id="GC2"/></columns>
     <gridCells>
      <gridCell row="GR1" column="GC1" xPlacement="trailing" id="C11"><textField key="contentView" id="T1"><rect key="frame" x="0" y="120" width="100" height="16"/><textFieldCell key="cell" title="Name:" id="T1c"/></textField></gridCell>
      <gridCell row="GR1" column="GC2" id="C12"><button key="contentView" id="B1"><rect key="frame" x="104" y="118" width="200" height="18"/><buttonCell key="cell" type="check" title="Remember" id="B1c"/></button></gridCell>
      <gridCell row="GR2" column="GC1" id="C21"><textField key="contentView" id="T2"><rect key="frame" x="0" y="90" width="100" height="16"/><textFieldCell key="cell" title="Hidden row" id="T2c"/></textField></gridCell>
      <gridCell row="GR2" column="GC2" id="C22"/>
     </gridCells>
    </gridView>
    <containerView id="CV"><rect key="frame" x="10" y="10" width="200" height="60"/>
     <connections><segue destination="VC3" kind="embed" id="E1"/></connections>
    </containerView>
   </subviews></view>
   <connections><segue destination="VC2" kind="show" identifier="more" id="S1"/></connections>
  </viewController>
  <objectController id="OC"/>
 </objects></scene>
 <scene sceneID="S-advanced"><objects>
  <viewController storyboardIdentifier="Advanced" id="VC2" sceneMemberID="viewController">
   <view key="view" id="V2"><rect key="frame" x="0" y="0" width="450" height="200"/><subviews>
    <stackView orientation="vertical" spacing="6" id="SV"><rect key="frame" x="10" y="10" width="200" height="120"/>
     <beginningViews><button id="B2"><rect key="frame" x="0" y="90" width="100" height="20"/><buttonCell key="cell" title="First" id="B2c"/></button></beginningViews>
     <endViews><button id="B3"><rect key="frame" x="0" y="0" width="100" height="20"/><buttonCell key="cell" title="Last" id="B3c"/></button></endViews>
    </stackView>
    <comboBox id="CB"><rect key="frame" x="220" y="150" width="120" height="24"/>
     <comboBoxCell key="cell" title="Medium" numberOfVisibleItems="3" id="CBc"><objectValues><string>Low</string><string>Medium</string><string>High</string></objectValues></comboBoxCell>
    </comboBox>
    <tokenField id="TF"><rect key="frame" x="220" y="110" width="200" height="22"/><tokenFieldCell key="cell" title="red, green,blue" id="TFc"/></tokenField>
   </subviews></view>
  </viewController>
 </objects></scene>
 <scene sceneID="S-embedded"><objects>
  <viewController id="VC3" sceneMemberID="viewController">
   <view key="view" id="V3"><rect key="frame" x="0" y="0" width="180" height="40"/><subviews>
    <textField id="T3"><rect key="frame" x="4" y="4" width="150" height="16"/><textFieldCell key="cell" title="Embedded" id="T3c"/></textField>
   </subviews></view>
  </viewController>
 </objects></scene>
</scenes></document>)";

// Every view reached from the top-level objects the way localizers and pictures walk: windows'
// content, views' subviews, the items of tab views.
void walk(const View* v, std::multiset<std::string>& ids) {
  if (!v) return;
  ids.insert(v->archiveIdentifier().UTF8String());
  for (const auto& sub : v->subviews()) walk(sub.get(), ids);
  if (auto* tabs = dynamic_cast<const TabView*>(v)) {
    for (const auto& item : tabs->tabViewItems()) {
      if (item->view() && item->view()->superview() != tabs) walk(item->view().get(), ids);
    }
  }
}

TEST(StoryboardDocument, ScenesJoinedByTheirRelationships) {
  StoryboardReadResult r = readStoryboardData(kStoryboard);
  ASSERT_TRUE(r) << r.error().reason;
  const Storyboard& sb = r.storyboard();
  EXPECT_TRUE(sb.nib().warnings().empty()) << sb.nib().warnings().front();
  ASSERT_EQ(sb.scenes().size(), 6u);
  EXPECT_EQ(sb.scenes()[3].identifier, String(u"S-general"));
  EXPECT_EQ(sb.nib().documentType(), String(u"com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB"));

  auto wc = std::dynamic_pointer_cast<WindowController>(sb.initialController());
  ASSERT_TRUE(wc);
  EXPECT_EQ(sb.controllerWithIdentifier(u"Main"), wc);
  auto tabs = std::dynamic_pointer_cast<TabViewController>(sb.controllerWithIdentifier(u"Tabs"));
  ASSERT_TRUE(tabs);
  EXPECT_EQ(wc->contentViewController(), tabs);
  // The window shows the tab view at its size, its top left corner kept (500 + 200 = 400 + 300).
  EXPECT_EQ(wc->window()->contentView(), tabs->view());
  EXPECT_EQ(wc->window()->contentRect(), (Rect{100, 400, 450, 300}));

  ASSERT_EQ(tabs->tabViewItems().size(), 2u);
  auto general = std::dynamic_pointer_cast<ViewController>(tabs->tabViewItems()[0]->viewController());
  auto advanced = std::dynamic_pointer_cast<ViewController>(tabs->tabViewItems()[1]->viewController());
  ASSERT_TRUE(general && advanced);
  EXPECT_EQ(general->customClassName(), String(u"GeneralController"));
  EXPECT_EQ(tabs->tabViewItems()[0]->imageName(), String(u"NSPreferencesGeneral"));
  EXPECT_EQ(tabs->tabView()->subviews().at(0), general->view()) << "the selected item's page shows";
  EXPECT_EQ(general->parentViewController(), tabs.get());
  EXPECT_EQ(sb.controllerWithIdentifier(u"Advanced"), advanced);

  // The grid: cells at their row and column, their views the grid's subviews, a hidden row's hidden.
  auto grid = std::dynamic_pointer_cast<GridView>(general->view()->subviews().at(0));
  ASSERT_TRUE(grid);
  ASSERT_EQ(grid->numberOfRows(), 2);
  ASSERT_EQ(grid->numberOfColumns(), 2);
  EXPECT_EQ(grid->rowSpacing(), 4);
  EXPECT_EQ(grid->columns()[0]->width(), 100);
  auto remember = std::dynamic_pointer_cast<Button>(grid->cellAt(0, 1)->contentView());
  ASSERT_TRUE(remember);
  EXPECT_EQ(remember->title(), String(u"Remember"));
  EXPECT_EQ(grid->cellAt(0, 0)->xPlacement(), String(u"trailing"));
  EXPECT_TRUE(grid->cellAt(1, 0)->contentView()->isHidden());
  EXPECT_EQ(grid->cellAt(1, 1)->contentView(), nullptr);
  EXPECT_EQ(grid->subviews().size(), 3u);

  // The embedded controller's view fills the container; the controller is the pane's child.
  const auto& container = general->view()->subviews().at(1);
  ASSERT_EQ(container->subviews().size(), 1u);
  EXPECT_EQ(container->subviews()[0]->frame(), (Rect{0, 0, 200, 60}));
  ASSERT_EQ(general->childViewControllers().size(), 1u);
  EXPECT_EQ(general->childViewControllers()[0]->view(), container->subviews()[0]);

  // The second pane: gravity areas in order, the combo box's items, the token field's tokens.
  auto stack = std::dynamic_pointer_cast<StackView>(advanced->view()->subviews().at(0));
  ASSERT_TRUE(stack);
  ASSERT_EQ(stack->subviews().size(), 2u);
  EXPECT_EQ(stack->gravityOf(stack->subviews()[1].get()), StackViewGravity::Trailing);
  auto combo = std::dynamic_pointer_cast<ComboBox>(advanced->view()->subviews().at(1));
  ASSERT_TRUE(combo);
  EXPECT_EQ(combo->objectValues(), (std::vector<String>{u"Low", u"Medium", u"High"}));
  EXPECT_EQ(combo->comboBoxCell()->numberOfVisibleItems(), 3);
  EXPECT_EQ(combo->stringValue(), String(u"Medium"));
  auto tokens = std::dynamic_pointer_cast<TokenField>(advanced->view()->subviews().at(2));
  ASSERT_TRUE(tokens);
  EXPECT_EQ(tokens->tokens(), (std::vector<String>{u"red", u"green", u"blue"}));

  // Segues are listed in document order; only relationships and embeds are made.
  std::vector<std::pair<std::u16string, std::u16string>> segues;
  for (const auto& s : sb.segues()) segues.emplace_back(s.kind.u16string(), s.destinationIdentifier.u16string());
  EXPECT_EQ(segues, (std::vector<std::pair<std::u16string, std::u16string>>{
                        {u"relationship", u"TVC"}, {u"relationship", u"VC1"}, {u"relationship", u"VC2"},
                        {u"embed", u"VC3"}, {u"show", u"VC2"}}));
  EXPECT_EQ(sb.segues()[4].identifier, String(u"more"));

  // The application scene: the main menu is top-level; its item's action goes up the responder chain.
  auto menu = std::dynamic_pointer_cast<Menu>(sb.nib().topLevelObjects().at(0));
  ASSERT_TRUE(menu);
  auto close = menu->itemAtIndex(0)->submenu()->itemAtIndex(0);
  EXPECT_EQ(close->action(), String(u"performClose:"));
  EXPECT_EQ(close->target(), nullptr);

  // Walking the top-level windows and views reaches every control of the document once.
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(kStoryboard));
  std::multiset<std::string> expected, reached;
  for (auto x : doc.select_nodes("//*[self::textField or self::button or self::comboBox or self::tokenField]")) {
    expected.insert(x.node().attribute("id").value());
  }
  for (const auto& o : sb.nib().topLevelObjects()) {
    if (auto* w = dynamic_cast<const Window*>(o.get())) walk(w->contentView().get(), reached);
    if (auto* v = dynamic_cast<const View*>(o.get())) walk(v, reached);
  }
  std::multiset<std::string> controls;
  for (const auto& id : reached) {
    if (expected.count(id)) controls.insert(id);
  }
  EXPECT_EQ(controls, expected);
}

// The controller a host keeps owns its scene and the controllers its relationships name; the rest of
// the storyboard goes with the read.
TEST(StoryboardDocument, AControllerAloneOwnsWhatItsScenesMade) {
  std::weak_ptr<Object> embeddedField, objectController, advancedPane, menu;
  std::shared_ptr<InterfaceObject> kept;
  {
    StoryboardReadResult r = readStoryboardData(kStoryboard);
    ASSERT_TRUE(r) << r.error().reason;
    kept = r.storyboard().initialController();
    const Nib& nib = r.storyboard().nib();
    embeddedField = nib.objectWithIdentifier(u"T3");
    objectController = nib.objectWithIdentifier(u"OC");
    advancedPane = nib.objectWithIdentifier(u"V2");
    menu = nib.objectWithIdentifier(u"MM");
    ASSERT_FALSE(embeddedField.expired() || objectController.expired() || menu.expired());
  }
  EXPECT_FALSE(embeddedField.expired()) << "embedded in a pane of the window's content";
  EXPECT_FALSE(objectController.expired()) << "kept by its scene's controller";
  EXPECT_FALSE(advancedPane.expired()) << "the tab view's second item";
  EXPECT_TRUE(menu.expired()) << "the application scene is not the window controller's";
  kept.reset();
  EXPECT_TRUE(embeddedField.expired());
  EXPECT_TRUE(objectController.expired());
  EXPECT_TRUE(advancedPane.expired());
}

// Panes side by side in item order, each keeping its width where the split view has room, the last
// taking the rest; a collapsed pane takes none.
TEST(StoryboardDocument, SplitViewControllersLayOutTheirPanes) {
  const auto pane = [](const char* id, int width, const char* title) {
    return std::string(R"(<scene sceneID="s-)") + id + R"("><objects><viewController id=")" + id +
           R"(" sceneMemberID="viewController"><view key="view" id="v-)" + id + R"("><rect key="frame" x="0" y="0" width=")" +
           std::to_string(width) + R"(" height="100"/><subviews><textField id="t-)" + id +
           R"("><rect key="frame" x="0" y="0" width="80" height="17"/><textFieldCell key="cell" title=")" + title +
           R"(" id="c-)" + id + R"("/></textField></subviews></view></viewController></objects></scene>)";
  };
  const std::string doc = std::string(R"(<document type="com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB" initialViewController="SVC"><scenes>
   <scene sceneID="s"><objects><splitViewController id="SVC" sceneMemberID="viewController">
    <splitViewItems><splitViewItem canCollapse="YES" behavior="sidebar" id="i1"/><splitViewItem collapsed="YES" id="i2"/><splitViewItem id="i3"/></splitViewItems>
    <splitView key="splitView" vertical="YES" id="sv"><rect key="frame" x="0" y="0" width="600" height="300"/></splitView>
    <connections><segue destination="A" kind="relationship" relationship="splitItems" id="r1"/>
     <segue destination="B" kind="relationship" relationship="splitItems" id="r2"/>
     <segue destination="C" kind="relationship" relationship="splitItems" id="r3"/></connections>
   </splitViewController></objects></scene>)") +
                          pane("A", 150, "Sidebar") + pane("B", 200, "Hidden") + pane("C", 100, "Content") + "</scenes></document>";
  StoryboardReadResult r = readStoryboardData(doc);
  ASSERT_TRUE(r) << r.error().reason;
  auto split = std::dynamic_pointer_cast<SplitViewController>(r.storyboard().initialController());
  ASSERT_TRUE(split);
  ASSERT_EQ(split->splitViewItems().size(), 3u);
  EXPECT_EQ(split->splitViewItems()[0]->behavior(), String(u"sidebar"));
  std::vector<Rect> frames;
  std::vector<bool> hidden;
  for (const auto& item : split->splitViewItems()) {
    ASSERT_TRUE(item->viewController());
    frames.push_back(item->viewController()->view()->frame());
    hidden.push_back(item->viewController()->view()->isHidden());
    EXPECT_EQ(item->viewController()->view()->superview(), split->splitView().get());
  }
  EXPECT_EQ(frames[0], (Rect{0, 0, 150, 300}));
  EXPECT_TRUE(hidden[1]);
  EXPECT_EQ(frames[2], (Rect{151, 0, 449, 300})) << "after the divider, to the right edge";
  // Every pane's label is reached once from the top-level objects.
  int labels = 0;
  for (const auto& o : r.storyboard().nib().topLevelObjects()) {
    std::multiset<std::string> ids;
    if (auto* v = dynamic_cast<const View*>(o.get())) walk(v, ids);
    labels += static_cast<int>(ids.count("t-A") + ids.count("t-B") + ids.count("t-C"));
  }
  EXPECT_EQ(labels, 3);
}

TEST(StoryboardDocument, DamagedStoryboardsGiveOneClearError) {
  const std::string head = R"(<document type="com.apple.InterfaceBuilder3.Cocoa.Storyboard.XIB"><scenes><scene sceneID="s"><objects>)";
  const std::string tail = "</objects></scene></scenes></document>";
  std::string deep;
  for (int i = 0; i < 300; ++i) deep += "<view><subviews>";
  for (int i = 0; i < 300; ++i) deep += "</subviews></view>";
  struct Case {
    std::string bytes;
    const char* reason;
  };
  const Case cases[] = {
      {head + R"(<viewController id="a"><view key="view" id="b"></objects>)" + tail, "not well-formed XML at offset"},
      {head + R"(<viewController id="a"><view key="view"><subviews>)" + deep + "</subviews></view></viewController>" + tail,
       "nested too deeply"},
      {R"(<document type="com.apple.InterfaceBuilder3.Cocoa.XIB"><objects/></document>)", "no scenes element"},
      {R"(<plist/>)", "not a storyboard"},
      {R"(<document type="com.apple.InterfaceBuilder3.CocoaTouch.Storyboard.XIB"><scenes/></document>)", "not a Cocoa"},
  };
  for (const Case& c : cases) {
    StoryboardReadResult r = readStoryboardData(c.bytes);
    ASSERT_FALSE(r) << c.bytes.substr(0, 120);
    EXPECT_NE(r.error().reason.find(c.reason), std::string::npos) << r.error().reason;
    EXPECT_THROW(r.storyboard(), Exception);
  }
  // Faults between scenes are skipped and said: a segue to nothing, a tab item showing its own tab view.
  const std::string odd = head + R"(
    <tabViewController id="T" sceneMemberID="viewController"><tabViewItems><tabViewItem label="x" id="i"/></tabViewItems>
     <tabView key="tabView" id="tv"><rect key="frame" x="0" y="0" width="10" height="10"/></tabView>
     <connections><segue destination="T" kind="relationship" relationship="tabItems" id="r"/>
      <segue destination="nowhere" kind="show" id="s2"/></connections></tabViewController>)" + tail;
  StoryboardReadResult r = readStoryboardData(odd);
  ASSERT_TRUE(r) << r.error().reason;
  std::string warnings;
  for (const auto& w : r.storyboard().nib().warnings()) warnings += w + "\n";
  EXPECT_NE(warnings.find("s2: no object nowhere"), std::string::npos) << warnings;
  EXPECT_NE(warnings.find("holds its own tab view"), std::string::npos) << warnings;
  // A file is named in its error.
  StoryboardReadResult missing = readStoryboardFile("/nonexistent/Main.storyboard");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().reason.rfind("/nonexistent/Main.storyboard: ", 0), 0u) << missing.error().reason;
}

// --- the compiled folder --------------------------------------------------------------------------

// Main.storyboardc: a window controller whose segue template names the view controller as its
// content, the view controller whose view is in a nib of its own, and the main menu.
void writeCompiledStoryboard(const fs::path& folder) {
  fs::create_directories(folder);
  {
    plist_t info = plist_new_dict();
    plist_dict_set_item(info, "NSStoryboardMainEntry", plist_new_string("WC"));
    plist_dict_set_item(info, "NSStoryboardMainMenu", plist_new_string("MainMenu"));
    plist_t map = plist_new_dict();
    plist_dict_set_item(map, "WC", plist_new_string("NSWindowController-WC"));
    plist_dict_set_item(map, "Prefs", plist_new_string("NSViewController-Prefs"));
    plist_dict_set_item(info, "NSViewControllerIdentifiersToNibNames", map);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(info, &xml, &length);
    std::ofstream(folder / "Info.plist", std::ios::binary).write(xml, length);
    free(xml);
    plist_free(info);
  }
  {
    test::KeyedArchiveWriter w;
    const uint64_t wc = w.object("NSWindowController");
    const uint64_t window = w.object("NSWindowTemplate");
    w.ref(window, "NSWindowTitle", w.string("Compiled"));
    w.ref(window, "NSWindowRect", w.string("{{10, 300}, {200, 100}}"));
    w.ref(wc, "NSWindowTemplate", window);
    const uint64_t segue = w.object("NSStoryboardSegueTemplate");
    w.ref(segue, "NSDestinationControllerIdentifier", w.string("Prefs"));
    w.ref(segue, "NSRelationship", w.string("window.shadowedContentViewController"));
    w.ref(wc, "NSStoryboardSegueTemplates", w.array({segue}));
    w.write(folder / "NSWindowController-WC.nib", {wc});
  }
  {
    test::KeyedArchiveWriter w;
    const uint64_t vc = w.object("NSViewController");
    w.ref(vc, "NSNibName", w.string("Prefs-view-V"));
    w.write(folder / "NSViewController-Prefs.nib", {vc});
  }
  {
    test::KeyedArchiveWriter w;
    const uint64_t view = w.object("NSView");
    w.ref(view, "NSFrameSize", w.string("{320, 240}"));
    const uint64_t field = w.object("NSTextField");
    w.ref(field, "NSFrame", w.string("{{20, 20}, {200, 22}}"));
    const uint64_t cell = w.object("NSTextFieldCell");
    const uint64_t localized = w.object("NSLocalizableString");
    w.ref(localized, "NSKey", w.string("Abc-12-xyz.title"));
    w.ref(localized, "NSDev", w.string("Download folder:"));
    w.ref(cell, "NSContents", localized);
    w.ref(field, "NSCell", cell);
    w.ref(view, "NSSubviews", w.array({field}));
    const uint64_t outlet = w.object("NSNibOutletConnector");
    w.ref(outlet, "NSSource", w.owner());
    w.ref(outlet, "NSDestination", view);
    w.ref(outlet, "NSLabel", w.string("view"));
    w.write(folder / "Prefs-view-V.nib", {view}, {outlet});
  }
  {
    test::KeyedArchiveWriter w;
    const uint64_t menu = w.object("NSMenu");
    w.ref(menu, "NSTitle", w.string("Main Menu"));
    w.write(folder / "MainMenu.nib", {menu});
  }
}

TEST(CompiledStoryboard, NibsJoinedThroughTheirInfoPlist) {
  test::TempDir dir;
  const fs::path folder = dir.path() / "Main.storyboardc";
  writeCompiledStoryboard(folder);
  StoryboardReadResult r = readStoryboardFile(folder.string());
  ASSERT_TRUE(r) << r.error().reason;
  const Storyboard& sb = r.storyboard();
  ASSERT_EQ(sb.scenes().size(), 3u);
  EXPECT_TRUE(std::dynamic_pointer_cast<Menu>(sb.scenes()[0].objects.at(0)));
  auto wc = std::dynamic_pointer_cast<WindowController>(sb.initialController());
  ASSERT_TRUE(wc && wc->window());
  EXPECT_EQ(wc->window()->title(), String(u"Compiled"));
  auto prefs = std::dynamic_pointer_cast<ViewController>(sb.controllerWithIdentifier(u"Prefs"));
  ASSERT_TRUE(prefs && prefs->view()) << "the view comes from the nib the controller names";
  EXPECT_EQ(wc->contentViewController(), prefs);
  EXPECT_EQ(wc->window()->contentView(), prefs->view());
  auto field = std::dynamic_pointer_cast<TextField>(prefs->view()->subviews().at(0));
  ASSERT_TRUE(field);
  EXPECT_EQ(field->stringValue(), String(u"Download folder:"));
  EXPECT_EQ(field->cell()->localizableKeyFor(u"title"), String(u"Abc-12-xyz.title"));
  // readNibFile gives the same, for the tools: the window with its content, and the menu.
  NibReadResult nib = readNibFile(folder.string());
  ASSERT_TRUE(nib) << nib.error().reason;
  int windows = 0;
  for (const auto& o : nib.nib().topLevelObjects()) windows += dynamic_cast<Window*>(o.get()) != nullptr;
  EXPECT_EQ(windows, 1);
  // A damaged nib of the folder is named in the error.
  std::ofstream(folder / "NSViewController-Prefs.nib", std::ios::binary) << "bplist00 not really";
  StoryboardReadResult damaged = readStoryboardFile(folder.string());
  ASSERT_FALSE(damaged);
  EXPECT_NE(damaged.error().reason.find("NSViewController-Prefs.nib: damaged compiled interface"), std::string::npos)
      << damaged.error().reason;
}

// --- loading by name from a bundle ----------------------------------------------------------------

TEST(StoryboardLoading, ControllersByNameFromABundle) {
  test::TempDir dir;
  fs::create_directories(dir.path() / "Resources/Base.lproj");
  std::ofstream(dir.path() / "Resources/Base.lproj/Main.storyboard") << kStoryboard;
  writeCompiledStoryboard(dir.path() / "Resources/Built.storyboardc");
  auto bundle = Bundle::bundleWithPath(String::fromUTF8(dir.str()));
  ASSERT_TRUE(bundle);
  auto first = std::dynamic_pointer_cast<WindowController>(instantiateInitialController(u"Main", bundle));
  ASSERT_TRUE(first);
  EXPECT_EQ(first->window()->title(), String(u"Settings"));
  auto second = instantiateInitialController(u"Main", bundle);
  EXPECT_NE(second, first) << "every load makes new objects";
  auto advanced = std::dynamic_pointer_cast<ViewController>(instantiateControllerWithIdentifier(u"Main", u"Advanced", bundle));
  ASSERT_TRUE(advanced && advanced->view());
  EXPECT_EQ(advanced->view()->subviews().size(), 3u);
  auto built = std::dynamic_pointer_cast<WindowController>(instantiateInitialController(u"Built", bundle));
  ASSERT_TRUE(built);
  EXPECT_EQ(built->window()->title(), String(u"Compiled"));
  EXPECT_EQ(instantiateControllerWithIdentifier(u"Main", u"NoSuch", bundle), nullptr);
  EXPECT_EQ(instantiateInitialController(u"Missing", bundle), nullptr);
}

}  // namespace
}  // namespace tq
