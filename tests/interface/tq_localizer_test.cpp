// The localizer: the two lookups, the walk over windows, views, controls, bindings and menus in its
// order, the menu change messages, the nil bundle.
#include "tq/interface/tq_localizer.h"

#include <gtest/gtest.h>

#include "support/test_paths.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"

using namespace tq;

namespace {

// A bundle whose unlocalized resource folder holds four tables (tests/data/localizer).
class LocalizerTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bundle_); }

  std::shared_ptr<Bundle> bundle_ = Bundle::bundleWithPath(String::fromUTF8((test::dataDir() / "localizer").string()));
};

std::shared_ptr<Button> makeButton(const char16_t* title, ButtonType type, Rect frame = {0, 0, 30, 18}) {
  auto b = std::make_shared<Button>(frame);
  b->setTitle(title);
  b->setButtonType(type);
  return b;
}

std::shared_ptr<TextField> field(const char16_t* value) {
  auto f = std::make_shared<TextField>();
  f->setStringValue(value);
  return f;
}

std::shared_ptr<Box> box(const char16_t* title, const std::shared_ptr<View>& inside = nullptr) {
  auto b = std::make_shared<Box>();
  b->setTitle(title);
  if (inside) b->contentView()->addSubview(inside);
  return b;
}

void add(View& parent, std::initializer_list<std::shared_ptr<View>> views) {
  for (const auto& v : views) parent.addSubview(v);
}

String nullPlaceholder(const InterfaceObject& o, const char16_t* binding) {
  return o.binderForBinding(binding)->bindingInfoForBinding(binding)->placeholderForMarker(NSNullMarker).stringValue();
}

}  // namespace

// --- lookups --------------------------------------------------------------------------------------

// The class lookup: table "default" for nil, no trimming, the key back when absent, nil without a
// bundle. The instance lookup: trimmed, table "Localizable" for nil, empty strings kept as they are.
TEST_F(LocalizerTest, ClassAndInstanceLookups) {
  const String nil, empty = String::empty();
  TQLocalizer plain(nil, bundle_), custom(u"Custom", bundle_), noBundle(nil, nullptr);
  const struct {
    String got;
    String expected;
  } rows[] = {
      {TQLocalizer::localize(u"File", nil, bundle_), u"Fichier"},
      {TQLocalizer::localize(u"File", u"Custom", bundle_), u"Fichier (custom)"},
      {TQLocalizer::localize(u"  File  ", nil, bundle_), u"  File  "},
      {TQLocalizer::localize(u"", nil, bundle_), u"EMPTY"},
      {TQLocalizer::localize(u"Absent", nil, bundle_), u"Absent"},
      {TQLocalizer::localize(u"File", nil, nullptr), nil},
      // The main bundle of this program has no table "default": the key comes back.
      {TQLocalizer::localize(u"Absent key"), u"Absent key"},
      {TQLocalizer::localize(u"Absent key", u"Nothing"), u"Absent key"},
      {plain.localizedString(u"  Cancel \n"), u"Annuler"},
      {plain.localizedString(u"\t Untranslated  words  "), u"Untranslated  words"},
      {plain.localizedString(nil), nil},
      {plain.localizedString(u"File"), u"File"},  // not in Localizable
      {custom.localizedString(u" Name "), u"Nom (custom)"},
      {noBundle.localizedString(u"Name"), nil},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.got.isNil(), row.expected.isNil()) << row.expected.UTF8String();
    EXPECT_EQ(row.got, row.expected);
  }
  EXPECT_TRUE(plain.localizedString(empty).isIdenticalTo(empty));
  EXPECT_TRUE(noBundle.localizedString(empty).isIdenticalTo(empty));
}

// A subclass whose class lookups are recorded and marked, and whose instance lookup is marked.
class MarkingLocalizer : public TQLocalizer {
 public:
  using TQLocalizer::TQLocalizer;
  struct Class : TQLocalizer::Class {
    using TQLocalizer::Class::localize;
    mutable std::vector<std::string> asked;  // "key|table|bundle?" in call order
    String localize(const String& key, const String& table, const std::shared_ptr<Bundle>& bundle) const override {
      asked.push_back(key.UTF8String() + "|" + (table.isNil() ? "nil" : table.UTF8String()) + "|" + (bundle ? "bundle" : "none"));
      const String found = TQLocalizer::Class::localize(key, table, bundle);
      return found.isNil() ? found : String::fromUTF8("[" + found.UTF8String() + "]");
    }
    std::shared_ptr<TQLocalizer> makeInstance(String table, std::shared_ptr<Bundle> bundle) const override {
      return std::make_shared<MarkingLocalizer>(std::move(table), std::move(bundle), *this);
    }
  };
  static const Class& classObject() {
    static const Class c;
    return c;
  }
  String localizedString(const String& string) const override {
    const String found = TQLocalizer::localizedString(string);
    return found.length() == 0 ? found : String::fromUTF8("<" + found.UTF8String() + ">");
  }
};

TEST_F(LocalizerTest, LookupsAndWalksOfASubclassGoThroughItsClassAndInstance) {
  const auto& cls = MarkingLocalizer::classObject();
  cls.asked.clear();
  // localize(key) -> localize(key, nil) -> localize(key, nil, main bundle), each through the subclass.
  EXPECT_EQ(cls.localize(u"Absent key"), String(u"[Absent key]"));
  EXPECT_EQ(cls.localize(u"Absent key", u"Nothing"), String(u"[Absent key]"));
  EXPECT_EQ(cls.asked, (std::vector<std::string>{"Absent key|nil|bundle", "Absent key|Nothing|bundle"}));
  EXPECT_EQ(TQLocalizer::localize(u"Absent key"), String(u"Absent key")) << "TQLocalizer's own class is untouched";
  EXPECT_EQ(cls.asked.size(), 2u);

  auto menu = std::make_shared<Menu>(u"File");
  auto item = std::make_shared<MenuItem>(u"Open");
  menu->addItem(item);
  Window window({0, 0, 100, 100});
  window.setTitle(u"Window");
  auto name = std::make_shared<TextField>(Rect{0, 0, 50, 17});
  name->setStringValue(u"Name");
  window.contentView()->addSubview(name);
  cls.asked.clear();
  cls.localizeObjects({menu, std::make_shared<Window>(), std::shared_ptr<Object>()}, String(), bundle_);
  cls.localizeWindow(&window, String(), bundle_);
  // Menu titles: the class lookup of the subclass (table "default"); views: its instance lookup.
  EXPECT_EQ(menu->title(), String(u"[Fichier]"));
  EXPECT_EQ(item->title(), String(u"[Ouvrir]"));
  EXPECT_EQ(cls.asked, (std::vector<std::string>{"File|nil|bundle", "Open|nil|bundle"}));
  EXPECT_EQ(window.title(), String(u"<Fenêtre>"));
  EXPECT_EQ(name->stringValue(), String(u"<Nom>"));
  // localizeMenu through the subclass: "LocalizableMenus" for both lookups.
  auto again = std::make_shared<Menu>(u"File");
  cls.localizeMenu(again.get(), String(), bundle_);
  EXPECT_EQ(again->title(), String(u"[Fichier (menus)]"));
  EXPECT_EQ(cls.asked.back(), "File|LocalizableMenus|bundle");
}

// --- views ----------------------------------------------------------------------------------------

TEST_F(LocalizerTest, ButtonsTranslateTitlesAndOnlyCheckBoxesResize) {
  View root({0, 0, 400, 300});
  auto push = makeButton(u"  Push  ", ButtonType::MomentaryPushIn, {10, 10, 30, 20});
  push->setAlternateTitle(u"Alt");
  auto check = makeButton(u"Check me", ButtonType::Switch, {10, 70, 30, 18});
  auto imageOnly = makeButton(u"Cancel", ButtonType::MomentaryPushIn);
  imageOnly->setAlternateTitle(u"Alt");
  imageOnly->setImagePosition(NSImageOnly);
  auto child = field(u"Name");
  imageOnly->addSubview(child);
  add(root, {push, check, imageOnly});
  TQLocalizer::localizeView(&root, String(), bundle_);
  EXPECT_EQ(push->title(), String(u"Bouton traduit et long"));
  EXPECT_EQ(push->alternateTitle(), String(u"Alternatif"));
  EXPECT_EQ(push->frame(), (Rect{10, 10, 30, 20}));
  EXPECT_EQ(check->title(), String(u"Cochez-moi, avec un titre bien plus long"));
  EXPECT_EQ(check->frame().origin(), (Point{10, 70}));
  EXPECT_EQ(check->frame().size(), check->cell()->cellSize());
  EXPECT_GT(check->frame().w, 100);
  // Image-only: title and alternate title stay, its subviews are still walked.
  EXPECT_EQ(imageOnly->title(), String(u"Cancel"));
  EXPECT_EQ(imageOnly->alternateTitle(), String(u"Alt"));
  EXPECT_EQ(child->stringValue(), String(u"Nom"));
}

TEST_F(LocalizerTest, PopUpItemsMatricesFieldsTablesAndSegments) {
  View root({0, 0, 400, 300});
  auto popUp = std::make_shared<PopUpButton>();
  popUp->menu()->addItemWithTitle(u" Item ");
  auto sub = std::make_shared<Menu>(u"Inner");
  sub->addItemWithTitle(u"Item");
  popUp->menu()->itemArray()[0]->setSubmenu(sub);
  auto matrix = std::make_shared<Matrix>();
  auto radioCell = std::make_shared<ButtonCell>(u"Radio");
  radioCell->setAlternateTitle(u"Alt");
  matrix->setCells({radioCell}, 1, 1);
  ASSERT_TRUE(matrix->validateSize());
  auto named = field(u" Name");
  named->setPlaceholderString(u"Filter");
  auto table = std::make_shared<TableView>();
  auto column = std::make_shared<TableColumn>(u"c1");
  column->setTitle(u"Header");
  auto popUpCell = std::make_shared<PopUpButtonCell>();
  popUpCell->menu()->addItemWithTitle(u"Item");
  column->setDataCell(popUpCell);
  table->addTableColumn(column);
  auto segments = std::make_shared<SegmentedControl>();
  segments->setSegmentCount(1);
  segments->setLabel(u"Segment", 0);
  add(root, {popUp, matrix, named, table, segments});
  TQLocalizer::localizeView(&root, String(), bundle_);
  // The pop-up's submenu is not descended into.
  EXPECT_EQ((std::vector<String>{popUp->menu()->itemArray()[0]->title(), sub->itemArray()[0]->title(), sub->title(),
                                 radioCell->title(), radioCell->alternateTitle(), named->stringValue(), named->placeholderString(),
                                 column->title(), popUpCell->menu()->itemArray()[0]->title(), segments->labelForSegment(0)}),
            (std::vector<String>{u"Élément", u"Item", u"Inner", u"Radio traduit et long", u"Alternatif", u"Nom", u"Filtrer",
                                 u"En-tête", u"Élément", u"Section"}));
  EXPECT_FALSE(matrix->validateSize());
}

TEST_F(LocalizerTest, TabViewItemsAllTranslatedAndWalkedOnce) {
  Window window({0, 0, 300, 200});
  window.setTitle(u" Window ");
  auto tabs = std::make_shared<TabView>();
  for (const char16_t* label : {u"Tab A", u"Tab B"}) {
    auto item = std::make_shared<TabViewItem>(label);
    item->setView(std::make_shared<View>());
    item->view()->addSubview(field(u"Inner"));
    tabs->addTabViewItem(item);
  }
  ASSERT_EQ(tabs->subviews().size(), 1u);  // the selected page only
  window.contentView()->addSubview(tabs);
  TQLocalizer::localizeWindow(&window, String(), bundle_);
  EXPECT_EQ(window.title(), String(u"Fenêtre"));
  for (long i = 0; i < 2; ++i) {
    auto item = tabs->tabViewItemAtIndex(i);
    EXPECT_EQ(item->label(), String(i == 0 ? u"Onglet A" : u"Onglet B"));
    // "Intérieur" would become "TWICE" if the shown page were walked again.
    EXPECT_EQ(std::dynamic_pointer_cast<TextField>(item->view()->subviews()[0])->stringValue(), String(u"Intérieur"));
  }
  TQLocalizer::localizeWindow(nullptr, String(), bundle_);
}

// --- bindings -------------------------------------------------------------------------------------

TEST_F(LocalizerTest, BindingNamesAreTriedInOrder) {
  auto observed = std::make_shared<GenericObject>();
  auto bind = [&](const std::shared_ptr<View>& v, const char16_t* binding, const char16_t* null, const char16_t* pattern = nullptr) {
    Dictionary options = pattern ? Dictionary({{u"NSDisplayPattern", Value(pattern)}, {u"NSNullPlaceholder", Value(null)}})
                                 : Dictionary({{u"NSNullPlaceholder", Value(null)}});
    v->bind(binding, observed, u"k", options);
  };
  const char16_t* pattern = u"%{value1}@ of %{value2}@";
  auto withValue = std::make_shared<TextField>(), withoutValue = std::make_shared<TextField>(), onlySecond = std::make_shared<TextField>();
  auto notAControl = std::make_shared<View>();
  bind(withValue, u"value", u"None");
  bind(withValue, u"content", u"None");
  bind(withoutValue, u"content", u"None");
  bind(withoutValue, u"contentValues", u"N/A");
  bind(withoutValue, u"displayPatternValue1", u"None", pattern);
  bind(withoutValue, u"displayPatternValue2", u"N/A");
  bind(onlySecond, u"displayPatternValue2", u"None", pattern);
  bind(notAControl, u"value", u"None");
  View root;
  add(root, {withValue, withoutValue, onlySecond, notAControl});
  TQLocalizer::localizeView(&root, String(), bundle_);
  const struct {
    std::shared_ptr<View> view;
    const char16_t* binding;
    const char16_t* placeholder;
  } rows[] = {
      {withValue, u"value", u"Aucun"},
      {withValue, u"content", u"None"},
      {withoutValue, u"content", u"Aucun"},
      {withoutValue, u"contentValues", u"S.O."},
      {withoutValue, u"displayPatternValue1", u"Aucun"},
      {withoutValue, u"displayPatternValue2", u"S.O."},
      {onlySecond, u"displayPatternValue2", u"None"},  // without displayPatternValue1 it is never visited
      {notAControl, u"value", u"None"},
  };
  for (const auto& row : rows) EXPECT_EQ(nullPlaceholder(*row.view, row.binding), String(row.placeholder)) << String(row.binding).UTF8String();
  EXPECT_EQ(withoutValue->binderForBinding(u"displayPatternValue1")->displayPattern(), String(u"%{value1}@ sur %{value2}@"));
  EXPECT_EQ(onlySecond->binderForBinding(u"displayPatternValue2")->displayPattern(), String(pattern));
}

TEST_F(LocalizerTest, PlaceholdersOfEveryMarkerButOnlyStrings) {
  auto field = std::make_shared<TextField>();
  auto info = field->bind(u"value", nullptr, u"x",
                          Dictionary({{u"NSMultipleValuesPlaceholder", Value(u"Multiple")}, {u"NSNullPlaceholder", Value(u"  None ")},
                                        {u"NSNoSelectionPlaceholder", Value(u"No selection")},
                                        {u"NSNotApplicablePlaceholder", Value(static_cast<long long>(-1))}}));
  TQLocalizer localizer(String(), bundle_);
  EXPECT_FALSE(localizer.localizePlaceholdersForObject(field.get(), u"content"));
  EXPECT_TRUE(localizer.localizePlaceholdersForObject(field.get(), u"value"));
  EXPECT_EQ((std::vector<String>{info->placeholderForMarker(NSMultipleValuesMarker).stringValue(),
                                 info->placeholderForMarker(NSNullMarker).stringValue(), info->placeholderForMarker(NSNoSelectionMarker).stringValue()}),
            (std::vector<String>{u"Plusieurs", u"Aucun", u"Pas de sélection"}));
  EXPECT_FALSE(info->placeholderIsDefault(NSNullMarker));
  EXPECT_EQ(info->placeholderForMarker(NSNotApplicableMarker).type(), Value::Type::Integer);
  EXPECT_FALSE(localizer.localizePlaceholdersForObject(nullptr, u"value"));
}

// --- menus ----------------------------------------------------------------------------------------

TEST_F(LocalizerTest, MenusUseTheUntrimmedClassLookupAndRestoreChangeMessages) {
  auto menu = std::make_shared<Menu>(u"File");
  auto open = menu->addItemWithTitle(u"Open");
  auto padded = menu->addItemWithTitle(u"  Open  ");
  menu->addItem(MenuItem::separatorItem());
  auto bound = menu->addItemWithTitle(u"Sub");
  bound->bind(u"title", nullptr, u"t", Dictionary({{u"NSNullPlaceholder", Value(u"  Item ")}}));
  auto submenu = std::make_shared<Menu>(u"Sub");
  submenu->addItemWithTitle(u"File");
  submenu->setMenuChangedMessagesEnabled(false);
  bound->setSubmenu(submenu);
  TQLocalizer::localizeObjects({menu}, String(), bundle_);
  // A separator's empty title is looked up ("EMPTY"); item placeholders go through the instance
  // lookup: trimmed, the default table "Localizable".
  EXPECT_EQ((std::vector<String>{menu->title(), open->title(), padded->title(), menu->itemArray()[2]->title(), bound->title(),
                                 nullPlaceholder(*bound, u"title"), submenu->title(), submenu->itemArray()[0]->title()}),
            (std::vector<String>{u"Fichier", u"Ouvrir", u"  Open  ", u"EMPTY", u"Sous-menu", u"Élément", u"Sous-menu", u"Fichier"}));
  EXPECT_TRUE(menu->menuChangedMessagesEnabled());
  EXPECT_FALSE(submenu->menuChangedMessagesEnabled());

  // localizeMenu: table "LocalizableMenus" by default, for titles and placeholders alike.
  auto again = std::make_shared<Menu>(u"File");
  auto item = again->addItemWithTitle(u"Open");
  item->bind(u"title", nullptr, u"t", Dictionary({{u"NSNullPlaceholder", Value(u"Item")}}));
  TQLocalizer::localizeMenu(again.get(), String(), bundle_);
  EXPECT_EQ((std::vector<String>{again->title(), item->title(), nullPlaceholder(*item, u"title")}),
            (std::vector<String>{u"Fichier (menus)", u"Ouvrir (menus)", u"Élément (menus)"}));
  auto custom = std::make_shared<Menu>(u"File");
  TQLocalizer::localizeMenu(custom.get(), u"Custom", bundle_);
  EXPECT_EQ(custom->title(), String(u"Fichier (custom)"));
  TQLocalizer::localizeMenu(nullptr, String(), bundle_);
}

// --- dispatch and the nil bundle ------------------------------------------------------------------

// Windows, views and menus are walked, other objects skipped; a view given alone or at the top
// level keeps its own strings and only its subtree changes.
TEST_F(LocalizerTest, ObjectsAreDispatchedByKindAndOthersSkipped) {
  auto window = std::make_shared<Panel>();
  window->setTitle(u"Window");
  auto inWindow = field(u"  Name"), inView = field(u"Name"), loose = field(u"Name");
  window->contentView()->addSubview(inWindow);
  auto view = std::make_shared<View>();
  view->addSubview(inView);
  auto menu = std::make_shared<Menu>(u"File");
  auto controller = std::make_shared<GenericObject>(u"NSArrayController");
  auto cell = std::make_shared<TextFieldCell>(u"Name");
  TQLocalizer::localizeObjects({controller, window, view, loose, menu, cell, nullptr}, u"Custom", bundle_);
  // "Window" is not in table Custom.
  EXPECT_EQ((std::vector<String>{window->title(), inWindow->stringValue(), inView->stringValue(), loose->stringValue(), menu->title(),
                                 cell->stringValue()}),
            (std::vector<String>{u"Window", u"Nom (custom)", u"Nom (custom)", u"Name", u"Fichier (custom)", u"Name"}));

  auto deep = field(u"Deep");
  auto inner = box(u"Box", deep), outer = box(u"Box", inner);
  TQLocalizer::localizeView(outer.get(), String(), bundle_);
  EXPECT_EQ((std::vector<String>{outer->title(), inner->title(), deep->stringValue()}), (std::vector<String>{u"Box", u"Boîte", u"Profond"}));
  auto alone = makeButton(u"Cancel", ButtonType::MomentaryPushIn);
  TQLocalizer::localizeView(alone.get(), String(), bundle_);
  EXPECT_EQ(alone->title(), String(u"Cancel"));
  TQLocalizer::localizeView(nullptr, String(), bundle_);  // nothing to do
}

TEST_F(LocalizerTest, ANilBundleWritesNilBackButKeepsWindowTitlesAndEmptyStrings) {
  Window window;
  window.setTitle(u"Window");
  auto button = makeButton(u"Cancel", ButtonType::MomentaryPushIn);
  auto empty = std::make_shared<TextField>();  // "" value, nil placeholder
  add(*window.contentView(), {button, empty});
  auto menu = std::make_shared<Menu>(u"File");
  auto item = menu->addItemWithTitle(u"");
  TQLocalizer::localizeWindow(&window, String(), nullptr);
  TQLocalizer::localizeMenu(menu.get(), String(), nullptr);
  EXPECT_EQ(window.title(), String(u"Window"));
  EXPECT_TRUE(button->title().isNil());
  EXPECT_EQ(button->alternateTitle(), String(u""));
  EXPECT_EQ(empty->stringValue(), String(u""));
  EXPECT_TRUE(menu->title().isNil());
  EXPECT_TRUE(item->title().isNil());
}
