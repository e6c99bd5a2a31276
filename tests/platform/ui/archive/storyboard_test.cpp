// Storyboards: scenes, relationships, embedded controllers, split panes, identifiers and ownership
// in the XML form (tests/data/archive/Main.storyboard); the compiled folder; the host's loading by
// name. Damaged storyboards are among the damaged documents of nib_reader_test.
#include <gtest/gtest.h>

#include <pugixml.hpp>

#include <filesystem>
#include <fstream>
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
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window_controller.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

// The fixture: scenes joined by relationships, embeds, a split view controller (see its comment).
std::string storyboardPath() { return (test::dataDir() / "archive" / "Main.storyboard").string(); }

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
  StoryboardReadResult r = readStoryboardFile(storyboardPath());
  ASSERT_TRUE(r) << r.error().reason;
  const Storyboard& sb = r.storyboard();
  EXPECT_TRUE(sb.nib().warnings().empty()) << sb.nib().warnings().front();
  ASSERT_EQ(sb.scenes().size(), 10u);
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
  // (Which control each cell shows is seen in DocumentDrawing.GridStackAndEmbeddedControlsOfStoryboardPanes.)
  auto grid = std::dynamic_pointer_cast<GridView>(general->view()->subviews().at(0));
  ASSERT_TRUE(grid);
  ASSERT_EQ(grid->numberOfRows(), 2);
  ASSERT_EQ(grid->numberOfColumns(), 2);
  EXPECT_EQ(grid->rowSpacing(), 4);
  EXPECT_EQ(grid->columns()[0]->width(), 100);
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

  // The second pane: the combo box's items. (Its stack's gravity areas are read as the document
  // fixture's, checked by NibReader.GridsTabsTablesToolbarsStacksAndRuleEditors; its tokens are
  // drawn one by one in DocumentDrawing.TokenFieldsShowEachTokenOnItsOwn.)
  auto combo = std::dynamic_pointer_cast<ComboBox>(advanced->view()->subviews().at(1));
  ASSERT_TRUE(combo);
  EXPECT_EQ(combo->objectValues(), (std::vector<String>{u"Low", u"Medium", u"High"}));
  EXPECT_EQ(combo->comboBoxCell()->numberOfVisibleItems(), 3);
  EXPECT_EQ(combo->stringValue(), String(u"Medium"));

  // Segues are listed in document order; only relationships and embeds are made.
  std::vector<std::pair<std::u16string, std::u16string>> segues;
  for (const auto& s : sb.segues()) segues.emplace_back(s.kind.u16string(), s.destinationIdentifier.u16string());
  EXPECT_EQ(segues, (std::vector<std::pair<std::u16string, std::u16string>>{
                        {u"relationship", u"TVC"}, {u"relationship", u"VC1"}, {u"relationship", u"VC2"},
                        {u"embed", u"VC3"}, {u"show", u"VC2"},
                        {u"relationship", u"A"}, {u"relationship", u"B"}, {u"relationship", u"C"}}));
  EXPECT_EQ(sb.segues()[4].identifier, String(u"more"));

  // The application scene: the main menu is top-level; its item's action goes up the responder chain.
  auto menu = std::dynamic_pointer_cast<Menu>(sb.nib().topLevelObjects().at(0));
  ASSERT_TRUE(menu);
  auto close = menu->itemAtIndex(0)->submenu()->itemAtIndex(0);
  EXPECT_EQ(close->action(), String(u"performClose:"));
  EXPECT_EQ(close->target(), nullptr);

  // Walking the top-level windows and views reaches every control of the document once.
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_file(storyboardPath().c_str()));
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
    StoryboardReadResult r = readStoryboardFile(storyboardPath());
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
// taking the rest; a collapsed pane takes none. (That each pane's label is reached once from the
// top-level objects is checked by the walk above.)
TEST(StoryboardDocument, SplitViewControllersLayOutTheirPanes) {
  StoryboardReadResult r = readStoryboardFile(storyboardPath());
  ASSERT_TRUE(r) << r.error().reason;
  auto split = std::dynamic_pointer_cast<SplitViewController>(r.storyboard().controllerWithIdentifier(u"Split"));
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
}

// Faults between scenes are skipped and said: a segue to nothing, a tab item showing its own tab view.
TEST(StoryboardDocument, FaultsBetweenScenesAreSkippedAndSaid) {
  StoryboardReadResult r = readStoryboardFile((test::dataDir() / "archive" / "Faults.storyboard").string());
  ASSERT_TRUE(r) << r.error().reason;
  std::string warnings;
  for (const auto& w : r.storyboard().nib().warnings()) warnings += w + "\n";
  EXPECT_NE(warnings.find("s2: no object nowhere"), std::string::npos) << warnings;
  EXPECT_NE(warnings.find("holds its own tab view"), std::string::npos) << warnings;
}

// --- the compiled folder --------------------------------------------------------------------------

// A compiled storyboard folder: a window controller whose segue template names the view controller as its
// content, the view controller whose view is in a nib of its own, and the main menu.
void writeCompiledStoryboard(const fs::path& folder) {
  fs::create_directories(folder);
  fs::copy_file(test::dataDir() / "archive" / "Compiled.storyboardc" / "Info.plist", folder / "Info.plist");
  {
    test::KeyedArchiveWriter w;
    const uint64_t window = w.make("NSWindowTemplate", {{"NSWindowTitle", w.string("Compiled")}, {"NSWindowRect", w.string("{{10, 300}, {200, 100}}")}});
    const uint64_t segue = w.make("NSStoryboardSegueTemplate", {{"NSDestinationControllerIdentifier", w.string("Prefs")},
                                                                {"NSRelationship", w.string("window.shadowedContentViewController")}});
    w.write(folder / "NSWindowController-WC.nib",
            {w.make("NSWindowController", {{"NSWindowTemplate", window}, {"NSStoryboardSegueTemplates", w.array({segue})}})});
  }
  {
    test::KeyedArchiveWriter w;
    w.write(folder / "NSViewController-Prefs.nib", {w.make("NSViewController", {{"NSNibName", w.string("Prefs-view-V")}})});
  }
  {
    test::KeyedArchiveWriter w;
    const uint64_t localized = w.make("NSLocalizableString", {{"NSKey", w.string("Abc-12-xyz.title")}, {"NSDev", w.string("Download folder:")}});
    const uint64_t field = w.make("NSTextField", {{"NSFrame", w.string("{{20, 20}, {200, 22}}")},
                                                  {"NSCell", w.make("NSTextFieldCell", {{"NSContents", localized}})}});
    const uint64_t view = w.make("NSView", {{"NSFrameSize", w.string("{320, 240}")}, {"NSSubviews", w.array({field})}});
    const uint64_t outlet = w.make("NSNibOutletConnector", {{"NSSource", w.owner()}, {"NSDestination", view}, {"NSLabel", w.string("view")}});
    w.write(folder / "Prefs-view-V.nib", {view}, {outlet});
  }
  {
    test::KeyedArchiveWriter w;
    w.write(folder / "MainMenu.nib", {w.make("NSMenu", {{"NSTitle", w.string("Main Menu")}})});
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
  fs::copy_file(storyboardPath(), dir.path() / "Resources/Base.lproj/Main.storyboard");
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
