// The interface model: ownership, the view tree, cells, menus, bindings, sizes.
#include <gtest/gtest.h>

#include "tq/platform/base/exception.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_measurer.h"
#include "tq/platform/ui/model/token_field.h"
#include "tq/platform/ui/model/window.h"

namespace tq {
namespace {

// Every character 7 points wide, every line 14 high: sizes become exact.
class FixedMeasurer : public TextMeasurer {
 public:
  Size sizeOfString(const String& s, const FontDescriptor&) const override {
    return {7.0 * static_cast<double>(s.length()), 14};
  }
  double defaultLineHeight(const FontDescriptor&) const override { return 14; }
};

class WithFixedMeasurer : public ::testing::Test {
 protected:
  void SetUp() override { TextMeasurer::setCurrent(std::make_shared<FixedMeasurer>()); }
  void TearDown() override { TextMeasurer::setCurrent(nullptr); }
};

TEST(ViewTree, ParentsOwnChildrenMovesOrderAndCyclesAreRefused) {
  auto a = std::make_shared<View>(Rect{0, 0, 100, 100}), b = std::make_shared<View>();
  auto x = std::make_shared<View>(Rect{10, 10, 20, 20}), y = std::make_shared<View>();
  std::weak_ptr<View> weakX = x;
  a->addSubview(x);
  a->addSubview(y);
  EXPECT_EQ(x->superview(), a.get());
  b->addSubview(x);  // moves
  EXPECT_EQ(a->subviews(), std::vector<std::shared_ptr<View>>{y});
  EXPECT_EQ(x->superview(), b.get());
  a->insertSubview(x, 0);
  EXPECT_EQ(a->subviews()[0], x);
  EXPECT_TRUE(b->subviews().empty());
  a->addSubview(x);  // re-adding moves to the front-most place
  EXPECT_EQ(a->subviews(), (std::vector<std::shared_ptr<View>>{y, x}));
  EXPECT_THROW(x->addSubview(a), Exception);
  EXPECT_THROW(a->addSubview(a), Exception);
  EXPECT_TRUE(x->subviews().empty());
  y->removeFromSuperview();
  EXPECT_EQ(y->superview(), nullptr);
  EXPECT_EQ(a->subviews().size(), 1u);
  x.reset();
  ASSERT_FALSE(weakX.expired()) << "the superview keeps its subview";
  auto kept = weakX.lock();
  a.reset();
  EXPECT_EQ(kept->superview(), nullptr) << "a freed superview clears the back pointer";
  kept.reset();
  EXPECT_TRUE(weakX.expired());
}

TEST(ViewTree, WindowAndTags) {
  Window window(Rect{100, 100, 300, 200});
  ASSERT_TRUE(window.contentView());
  EXPECT_EQ(window.contentView()->frame(), (Rect{0, 0, 300, 200}));
  auto inner = std::make_shared<View>();
  inner->setTag(7);
  auto box = std::make_shared<Box>();
  box->contentView()->addSubview(inner);
  window.contentView()->addSubview(box);
  EXPECT_EQ(inner->window(), &window);
  EXPECT_EQ(window.contentView()->viewWithTag(7), inner.get());
  EXPECT_EQ(window.contentView()->viewWithTag(8), nullptr);
  window.setContentView(nullptr);
  EXPECT_EQ(inner->window(), nullptr);
}

TEST(ViewTree, ConvertsThroughFlippedAndUnflippedViews) {
  auto root = std::make_shared<View>(Rect{0, 0, 200, 100});
  auto flipped = std::make_shared<View>(Rect{10, 20, 100, 50});
  flipped->setFlipped(true);
  auto leaf = std::make_shared<View>(Rect{5, 5, 30, 10});
  root->addSubview(flipped);
  flipped->addSubview(leaf);
  // leaf's frame (5, 5, 30, 10) is measured from flipped's top: bottom edge at 50 - 15 = 35 from its
  // bottom, so in root coordinates y = 20 + 35.
  EXPECT_EQ(leaf->convertRect(leaf->bounds(), nullptr), (Rect{15, 55, 30, 10}));
  EXPECT_EQ(flipped->convertRect(Rect{0, 0, 10, 10}, nullptr), (Rect{10, 60, 10, 10}));
  // And back: the window rectangle lands where it came from.
  EXPECT_EQ(root->convertRect(Rect{15, 55, 30, 10}, leaf.get()), (Rect{0, 0, 30, 10}));
  EXPECT_EQ(root->convertRect(Rect{10, 60, 10, 10}, flipped.get()), (Rect{0, 0, 10, 10}));
}

TEST(Cells, WrappingAndScrollingExcludeEachOtherAndButtonsKeepTitleApartFromValue) {
  TextFieldCell text(u"x");
  text.setScrollable(true);
  text.setWraps(true);
  EXPECT_TRUE(text.wraps());
  EXPECT_FALSE(text.isScrollable());
  text.setScrollable(true);
  EXPECT_FALSE(text.wraps());
  text.setTitle(u"Other");
  EXPECT_EQ(text.stringValue(), String(u"Other")) << "a text cell's title is its value";
  ButtonCell cell(u"OK");
  EXPECT_EQ(cell.title(), String(u"OK"));
  EXPECT_EQ(cell.stringValue(), String(u"0"));
  cell.setStringValue(u"1");
  EXPECT_EQ(cell.state(), 1);
  EXPECT_EQ(cell.title(), String(u"OK"));
}

TEST(Cells, PopUpTitleSelectsOrAddsItems) {
  PopUpButtonCell cell;
  cell.menu()->addItemWithTitle(u"One");
  cell.menu()->addItemWithTitle(u"Two");
  EXPECT_EQ(cell.title(), String::empty()) << "nothing selected yet";
  cell.setTitle(u"Two");
  EXPECT_EQ(cell.indexOfSelectedItem(), 1);
  cell.setTitle(u"Three");
  EXPECT_EQ(cell.menu()->numberOfItems(), 3);
  EXPECT_EQ(cell.title(), String(u"Three"));
  cell.setPullsDown(true);
  EXPECT_EQ(cell.title(), String(u"One")) << "a pull-down shows its first item";
}

TEST_F(WithFixedMeasurer, SizeToFitUsesTheMeasurer) {
  Button check(Rect{20, 30, 200, 40});
  check.setButtonType(ButtonType::Switch);
  check.setTitle(u"Remember");  // 8 characters: 56 points
  check.sizeToFit();
  EXPECT_EQ(check.frame(), (Rect{20, 30, 18 + 4 + 56, 18}));
  check.cell()->setControlSize(ControlSize::Small);
  check.sizeToFit();
  EXPECT_EQ(check.frame().w, 16 + 4 + 56);

  TextField label;
  label.setStringValue(u"abc");
  label.sizeToFit();
  EXPECT_EQ(label.frame().size(), (Size{21 + 4, 14}));

  Control bare;  // no cell: nothing to fit
  bare.setFrame({1, 2, 3, 4});
  bare.sizeToFit();
  EXPECT_EQ(bare.frame(), (Rect{1, 2, 3, 4}));
}

TEST_F(WithFixedMeasurer, CellSizeForBoundsWrapsByLines) {
  TextFieldCell cell(u"0123456789");  // 70 points on one line, 74 with the insets
  cell.setWraps(true);
  EXPECT_EQ(cell.cellSizeForBounds({0, 0, 30, 100}), (Size{30, 42}));
  cell.setWraps(false);
  EXPECT_EQ(cell.cellSizeForBounds({0, 0, 30, 100}), (Size{30, 14}));
  EXPECT_EQ(cell.cellSizeForBounds({0, 0, 300, 100}), (Size{74, 14}));
}

TEST(EstimatingMeasurer, GrowsWithTextAndFont) {
  EstimatingTextMeasurer m;
  const FontDescriptor small = FontDescriptor::fromMetaFont(u"smallSystem");
  const FontDescriptor big = FontDescriptor::systemFont(20);
  EXPECT_EQ(small.size, 11);
  EXPECT_LT(m.sizeOfString(u"abc", small).width, m.sizeOfString(u"abcdef", small).width);
  EXPECT_LT(m.sizeOfString(u"abc", small).width, m.sizeOfString(u"abc", big).width);
  EXPECT_EQ(m.sizeOfString(String(), small).width, 0);
  EXPECT_EQ(m.sizeOfString(u"a\nb", small).height, 2 * m.defaultLineHeight(small));
}

// (That submenus know their item and tab views show the selected item's view is checked on the
// documents that make them.)
TEST(Menus, AddingAnItemOfAnotherMenuMovesIt) {
  auto menu = std::make_shared<Menu>(u"Main"), other = std::make_shared<Menu>();
  auto file = menu->addItemWithTitle(u"File");
  other->addItem(file);
  EXPECT_EQ(menu->numberOfItems(), 0);
  EXPECT_EQ(file->menu(), other.get());
  EXPECT_EQ(menu->itemAtIndex(0), nullptr);
}

TEST_F(WithFixedMeasurer, MatrixCellsAreRowMajorAndRevalidate) {
  Matrix matrix;
  std::vector<std::shared_ptr<Cell>> cells;
  for (const char16_t* t : {u"a", u"bb", u"ccc", u"dddd", u"e", u"f"}) {
    auto c = std::make_shared<ButtonCell>(t);
    c->setButtonType(ButtonType::Radio);
    cells.push_back(c);
  }
  matrix.setCells(cells, 2, 3);
  EXPECT_EQ(matrix.cellAtRow(1, 0)->title(), String(u"dddd"));
  EXPECT_EQ(matrix.cellAtRow(1, 0)->controlView(), &matrix);
  EXPECT_EQ(matrix.cellAtRow(2, 0), nullptr);
  EXPECT_THROW(matrix.setCells(cells, 4, 2), Exception);
  EXPECT_TRUE(matrix.isFlipped());

  const Size before = matrix.cellSize();
  EXPECT_EQ(matrix.validatedCellSize(), before) << "a valid size is kept";
  matrix.setValidateSize(false);
  EXPECT_EQ(matrix.validatedCellSize(), (Size{18 + 4 + 28, 18}));
  EXPECT_TRUE(matrix.validateSize());
}

// Columns are found by identifier and let go of their table when removed; a scroll view's clip
// view holds the document and follows its flipping.
TEST(Tables, ColumnsByIdentifierInAClipViewFlippedAsItsDocument) {
  auto outline = std::make_shared<OutlineView>();
  auto column = std::make_shared<TableColumn>(u"name");
  outline->addTableColumn(column);
  EXPECT_EQ(outline->tableColumnWithIdentifier(u"name"), column);
  EXPECT_EQ(outline->tableColumnWithIdentifier(u"other"), nullptr);
  ScrollView scroll;
  scroll.setDocumentView(outline);
  EXPECT_EQ(outline->superview(), scroll.contentView().get());
  EXPECT_TRUE(scroll.contentView()->isFlipped());
  scroll.setDocumentView(std::make_shared<View>());
  EXPECT_FALSE(scroll.contentView()->isFlipped());
  outline->removeTableColumn(column);
  EXPECT_EQ(column->tableView(), nullptr);
  EXPECT_EQ(outline->numberOfColumns(), 0);
}

TEST(Controls, SegmentsBoxesAndFields) {
  SegmentedControl segments;
  segments.setSegmentCount(2);
  segments.setLabel(u"ignored", 2);
  EXPECT_EQ(segments.labelForSegment(1), String::empty());
  EXPECT_TRUE(segments.labelForSegment(2).isNil());

  Box box;
  EXPECT_EQ(box.title(), String(u"Title"));
  auto content = box.contentView();
  box.setContentView(std::make_shared<View>());
  EXPECT_EQ(content->superview(), nullptr);
  EXPECT_EQ(box.subviews().size(), 1u);

  SearchField search;
  search.setPlaceholderString(u"Filter");
  EXPECT_EQ(search.textFieldCell()->placeholderString(), String(u"Filter"));
  EXPECT_EQ(search.cell()->className(), String(u"NSSearchFieldCell"));
  search.setCell(std::make_shared<ButtonCell>());
  EXPECT_TRUE(search.placeholderString().isNil()) << "a field whose cell is no text cell has none";
}

// The binder's class, pattern, placeholders and observed object as documents make them are checked
// by the reader's tests; here the grouping and what counts as a plain option.
TEST(Bindings, BindersGroupNumberedVariants) {
  TextField field;
  EXPECT_EQ(field.binderForBinding(u"value"), nullptr);
  auto owner = std::make_shared<Menu>();
  field.bind(u"displayPatternValue1", owner, u"self.a",
             Dictionary{{u"NSDisplayPattern", Value(String(u"%{value1}@ of %{value2}@"))},
                        {u"NSNullPlaceholder", Value(String(u"None"))},
                        {u"NSValueTransformerName", Value(String(u"NSNegateBoolean"))}});
  field.bind(u"displayPatternValue2", owner, u"self.b", Dictionary::empty());
  field.bind(u"enabled", owner, u"self.c", Dictionary{{u"NSNoSelectionPlaceholder", Value(3)}});

  auto binder = field.binderForBinding(u"displayPatternValue1");
  ASSERT_NE(binder, nullptr);
  EXPECT_EQ(binder, field.binderForBinding(u"displayPatternValue2"));
  EXPECT_EQ(binder->bindingInfos().size(), 2u);
  EXPECT_EQ(binder->valueForKey(u"displayPattern").stringValue(), String(u"%{value1}@ of %{value2}@"));
  EXPECT_TRUE(binder->valueForKey(u"other").isNil());

  auto info = binder->bindingInfos()[0];
  EXPECT_TRUE(info->placeholderForMarker(NSNoSelectionMarker).isNil());
  EXPECT_EQ(info->options().count(), 1u) << "placeholders and the pattern are not plain options";

  auto enabled = field.binderForBinding(u"enabled");
  EXPECT_EQ(enabled->className(), String(u"NSEnabledBinder"));
  EXPECT_EQ(enabled->bindingInfos()[0]->placeholderForMarker(NSNoSelectionMarker).intValue(), 3);
  EXPECT_EQ(field.binders().size(), 2u);
  EXPECT_EQ(field.boundBindingNames(), (std::vector<String>{u"displayPatternValue1", u"displayPatternValue2", u"enabled"}));
  EXPECT_EQ(binderClassNameForBinding(u"contentValues"), String(u"NSContentValuesBinder"));
  EXPECT_EQ(bindingGroupName(u"hidden2"), String(u"hidden"));
}

TEST(Bindings, BindersMadeInAnArenaHoldItWhileTheyLive) {
  Arena arena;
  auto field = std::make_shared<TextField>();
  const std::size_t before = arena.state()->holds();
  auto info = field->bind(u"value", nullptr, u"self.a", Dictionary::empty(), arena);
  EXPECT_EQ(arena.state()->holds(), before + 4) << "the object's binder list, the binder, its class name and the info";
  EXPECT_EQ(field->binderForBinding(u"value")->className(), String(u"NSValueBinder"));
  EXPECT_EQ(field->binderForBinding(u"value")->bindingInfos().front(), info);
  EXPECT_EQ(info->keyPath(), String(u"self.a"));
  info->setOptions(Dictionary());
  EXPECT_FALSE(info->options().isNil()) << "options are never nil";
  EXPECT_EQ(info->options().count(), 0u);
  // Options with nothing the binder takes for itself are kept as given, entries shared.
  const Dictionary options{{u"NSValueTransformerName", Value(String(u"NSNegateBoolean"))}};
  EXPECT_TRUE(field->bind(u"hidden", nullptr, u"self.b", options, arena)->options().isIdenticalTo(options));
  // Names in binding order, not binder by binder; an info added to a binder by hand is no binding.
  field->bind(u"value2", nullptr, u"self.c", Dictionary::empty(), arena);
  field->binderForBinding(u"value")->addBindingInfo(std::make_shared<BindingInfo>(String(u"value3"), std::weak_ptr<Object>(), String(u"x")));
  EXPECT_EQ(field->boundBindingNames(), (std::vector<String>{u"value", u"hidden", u"value2"}));
  info.reset();
  field.reset();
  EXPECT_EQ(arena.state()->holds(), before);
}

TEST(Controls, MadeWithoutDefaultCellHaveNoneAndOtherwiseTheirOwn) {
  const std::pair<std::shared_ptr<Control>, std::shared_ptr<Control>> controls[] = {
      {std::make_shared<Button>(NoDefaultCell{}), std::make_shared<Button>()},
      {std::make_shared<PopUpButton>(NoDefaultCell{}), std::make_shared<PopUpButton>()},
      {std::make_shared<TextField>(NoDefaultCell{}), std::make_shared<TextField>()},
      {std::make_shared<SearchField>(NoDefaultCell{}), std::make_shared<SearchField>()},
      {std::make_shared<ComboBox>(NoDefaultCell{}), std::make_shared<ComboBox>()},
      {std::make_shared<TokenField>(NoDefaultCell{}), std::make_shared<TokenField>()},
      {std::make_shared<ImageView>(NoDefaultCell{}), std::make_shared<ImageView>()},
      {std::make_shared<SegmentedControl>(NoDefaultCell{}), std::make_shared<SegmentedControl>()}};
  const String cellClasses[] = {u"NSButtonCell",   u"NSPopUpButtonCell", u"NSTextFieldCell", u"NSSearchFieldCell",
                                u"NSComboBoxCell", u"NSTokenFieldCell",  u"NSImageCell",     u"NSSegmentedCell"};
  for (std::size_t i = 0; i < std::size(controls); ++i) {
    EXPECT_EQ(controls[i].first->cell(), nullptr) << i;
    ASSERT_NE(controls[i].second->cell(), nullptr) << i;
    EXPECT_EQ(controls[i].second->cell()->className(), cellClasses[i]) << i;
    EXPECT_EQ(controls[i].second->cell()->controlView(), controls[i].second.get()) << i;
  }
}

TEST(Cells, CopiesKeepValuesButNotViewsBindingsOrMenus) {
  TextField field;
  auto cell = field.textFieldCell();
  cell->setStringValue(u"Name");
  cell->setPlaceholderString(u"Type here");
  cell->setDrawsBackground(true);
  cell->bind(u"value", nullptr, u"self.name", Dictionary::empty());
  auto copy = std::dynamic_pointer_cast<TextFieldCell>(cell->copy());
  ASSERT_TRUE(copy);
  EXPECT_NE(copy, cell);
  EXPECT_EQ(copy->stringValue(), String(u"Name"));
  EXPECT_EQ(copy->placeholderString(), String(u"Type here"));
  EXPECT_TRUE(copy->drawsBackground());
  EXPECT_EQ(copy->controlView(), nullptr);
  EXPECT_EQ(cell->controlView(), &field);
  EXPECT_TRUE(copy->binders().empty());

  PopUpButtonCell popUp;
  auto item = popUp.menu()->addItemWithTitle(u"One");
  item->setSubmenu(std::make_shared<Menu>(u"Sub"));
  auto popUpCopy = std::dynamic_pointer_cast<PopUpButtonCell>(popUp.copy());
  ASSERT_TRUE(popUpCopy);
  ASSERT_NE(popUpCopy->menu(), popUp.menu());
  EXPECT_EQ(popUpCopy->menu()->itemAtIndex(0)->title(), String(u"One"));
  EXPECT_NE(popUpCopy->menu()->itemAtIndex(0)->submenu(), item->submenu());
  EXPECT_EQ(popUpCopy->menu()->itemAtIndex(0)->submenu()->supermenu(), popUpCopy->menu().get());
}

}  // namespace
}  // namespace tq
