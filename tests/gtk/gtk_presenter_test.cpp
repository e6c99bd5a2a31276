// Live windows of the shared corpus and of a fixture, on a real X server: widgets where the model's
// frames put them, every visible string shown, clicks and typing reaching the model and the host's
// handlers, model changes reaching the widgets, table cells drawn by the library's cells.
#include <cairo.h>

#include <cmath>
#include <filesystem>
#include <set>

#include "gtk_support.h"
#include "support/test_paths.h"
#include "tq/gtk/action_handling.h"
#include "tq/gtk/gtk_presenter.h"
#include "tq/interface/tq_image_and_text_cell.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

// Every interface file, storyboard and compiled nib folder of the corpus.
std::vector<fs::path> corpusInterfaces() {
  std::vector<fs::path> found;
  for (auto it = fs::recursive_directory_iterator(test::corpusDir()); it != fs::recursive_directory_iterator(); ++it) {
    const fs::path& p = it->path();
    if (p.extension() == ".xib" || p.extension() == ".storyboard" || (p.extension() == ".nib" && it->is_directory())) {
      found.push_back(p);
      if (it->is_directory()) it.disable_recursion_pending();
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

// --- the platform's geometry, as a literal model ---------------------------------------------------

// Whether a view's subviews count y from its top (flipped views, and scroll, split and table header
// views whatever their flag), else from its bottom.
bool countsFromTop(const View& v) {
  return v.isFlipped() || dynamic_cast<const ScrollView*>(&v) || v.className() == String(u"NSSplitView") ||
         v.className() == String(u"NSTableHeaderView");
}

bool unshown(const View& v) {
  const String c = v.className();
  return c == String(u"NSScroller") || c == String(u"NSTableHeaderView") || dynamic_cast<const ClipView*>(&v);
}

struct Placement {
  const std::map<std::string, WidgetRecord>& records;
  std::vector<std::string> misplaced, missing;

  // Checks each visible subview of `view` against its widget: its frame, taken into top-down
  // coordinates level by level, offset by the widget of its nearest placed ancestor (`anchor`).
  void subviews(const View& view, const WidgetRecord& anchor, double ox, double oy) {
    for (const auto& sub : view.subviews()) {
      if (!sub || sub->isHidden() || unshown(*sub)) continue;
      const Rect f = sub->frame();
      const double x = ox + f.x, y = oy + (countsFromTop(view) ? f.y : view.frame().h - f.y - f.h);
      const std::string id = sub->archiveIdentifier().UTF8String();
      auto it = records.find(id);
      if (it == records.end()) {
        if (!id.empty()) missing.push_back(id + " " + sub->className().UTF8String());
        subviews(*sub, anchor, x, y);
        continue;
      }
      compare(*sub, it->second, anchor.x + x, anchor.y + y);
      inside(*sub, it->second);
    }
  }

  // What GTK lays out itself: a scroll view's document, a tab view's page.
  void inside(const View& view, const WidgetRecord& record) {
    if (auto* scroll = dynamic_cast<const ScrollView*>(&view)) {
      if (auto doc = scroll->documentView()) {
        auto it = records.find(doc->archiveIdentifier().UTF8String());
        if (it != records.end()) subviews(*doc, it->second, 0, 0);
      }
    } else if (auto* tabs = dynamic_cast<const TabView*>(&view)) {
      if (auto item = tabs->selectedTabViewItem(); item && item->view()) {
        auto it = records.find(item->view()->archiveIdentifier().UTF8String());
        if (it != records.end()) subviews(*item->view(), it->second, 0, 0);
      }
    } else {
      subviews(view, record, 0, 0);
    }
  }

  void compare(const View& v, const WidgetRecord& r, double x, double y) {
    constexpr double kSlack = 3;
    const Rect f = v.frame();
    // Thin indicators draw at their own height, centred in their frame.
    const bool centred = r.type == "GtkSeparator" || r.type == "GtkProgressBar" || r.type == "GtkLevelBar";
    bool ok = std::abs(r.x + r.width / 2.0 - (x + f.w / 2)) <= kSlack && std::abs(r.y + r.height / 2.0 - (y + f.h / 2)) <= kSlack;
    if (!centred) ok = ok && std::abs(r.width - f.w) <= kSlack && std::abs(r.height - f.h) <= kSlack;
    if (!ok) {
      misplaced.push_back(r.identifier + " " + r.type + ": at " + std::to_string(r.x) + "," + std::to_string(r.y) + " " +
                          std::to_string(r.width) + "x" + std::to_string(r.height) + ", frame puts it at " +
                          std::to_string(std::lround(x)) + "," + std::to_string(std::lround(y)) + " " +
                          std::to_string(std::lround(f.w)) + "x" + std::to_string(std::lround(f.h)));
    }
  }
};

// --- the strings a user sees -----------------------------------------------------------------------

void visibleStrings(const View& v, std::vector<std::string>& out) {
  auto add = [&](const String& s) {
    if (s.isNil()) return;
    const std::string u = s.UTF8String();
    if (u.find_first_not_of(" \t\r\n") != std::string::npos) out.push_back(u);
  };
  if (auto* popup = dynamic_cast<const PopUpButton*>(&v)) {
    if (!popup->popUpCell() || popup->popUpCell()->imagePosition() != CellImagePosition::ImageOnly) add(popup->title());
  } else if (auto* b = dynamic_cast<const Button*>(&v)) {
    if (b->imagePosition() != CellImagePosition::ImageOnly) add(b->title());
  } else if (auto* f = dynamic_cast<const TextField*>(&v)) {
    add(f->stringValue().length() ? f->stringValue() : f->placeholderString());
  } else if (auto* box = dynamic_cast<const Box*>(&v)) {
    if (box->titlePosition() != TitlePosition::NoTitle && !box->isTransparent() && box->boxType() != BoxType::Separator) add(box->title());
  } else if (auto* tabs = dynamic_cast<const TabView*>(&v)) {
    for (const auto& item : tabs->tabViewItems()) add(item->label());
    if (auto item = tabs->selectedTabViewItem(); item && item->view() && !item->view()->isHidden()) visibleStrings(*item->view(), out);
    return;
  } else if (auto* table = dynamic_cast<const TableView*>(&v)) {
    for (const auto& c : table->tableColumns()) {
      if (!c->isHidden()) add(c->title());
    }
  } else if (auto* seg = dynamic_cast<const SegmentedControl*>(&v)) {
    for (long i = 0; i < seg->segmentCount(); ++i) add(seg->labelForSegment(i));
  } else if (auto* matrix = dynamic_cast<const Matrix*>(&v)) {
    for (const auto& c : matrix->cells()) add(c->title());
  } else if (auto* text = dynamic_cast<const TextView*>(&v)) {
    add(text->string());
  }
  for (const auto& sub : v.subviews()) {
    if (sub && !sub->isHidden()) visibleStrings(*sub, out);
  }
}

// --- the corpus ------------------------------------------------------------------------------------

TEST(GtkPresenterCorpus, EveryWindowShowsItsWidgetsWhereItsFramesPutThemAndEveryVisibleString) {
  TQ_SKIP_WITHOUT_CORPUS();
  TQ_NEED_GTK();
  int windows = 0;
  for (const fs::path& file : corpusInterfaces()) {
    NibReadResult read = readNibFile(file.string());
    if (!read) continue;  // forms the readers do not take yet
    auto images = std::make_shared<InterfaceImageSource>(String::fromUTF8(file.string()));
    GtkPresenterOptions options;
    options.images = images;
    auto presenter = std::make_shared<GtkPresenter>(read.nib().topLevelObjects(), options);
    const auto shown = presenter->presentableObjects();
    for (std::size_t i = 0; i < shown.size(); ++i) {
      SCOPED_TRACE(file.string() + " window " + std::to_string(i));
      auto& object = dynamic_cast<InterfaceObject&>(*shown[i]);
      GtkWindow* window = presenter->showWindow(object);
      ASSERT_TRUE(window);
      ASSERT_TRUE(test::waitForFrame(window));
      const auto records = inspectWindow(window);
      const auto byId = test::byIdentifier(records);
      ++windows;
      std::string name = fs::relative(file, test::corpusDir()).string();
      std::replace(name.begin(), name.end(), '/', '_');
      EXPECT_TRUE(saveScreenshot(window, test::artefact(name + "-" + std::to_string(i) + ".png")));

      auto* w = dynamic_cast<Window*>(&object);
      const View* root = w ? w->contentView().get() : dynamic_cast<View*>(&object);
      ASSERT_TRUE(root);
      auto anchor = byId.find(root->archiveIdentifier().UTF8String());
      ASSERT_NE(anchor, byId.end()) << "no widget for the content view";
      Placement placement{byId, {}, {}};
      placement.inside(*root, anchor->second);
      EXPECT_TRUE(placement.misplaced.empty()) << ::testing::PrintToString(placement.misplaced);
      EXPECT_TRUE(placement.missing.empty()) << "views without a widget: " << ::testing::PrintToString(placement.missing);

      std::vector<std::string> strings;
      if (w) strings.push_back(w->title().UTF8String());
      visibleStrings(*root, strings);
      std::set<std::string> texts;
      for (const auto& r : records) texts.insert(r.text);
      for (const auto& s : strings) {
        if (!s.empty()) {
          EXPECT_TRUE(texts.count(s)) << "no widget shows \"" << s << "\"";
        }
      }
      gtk_widget_set_visible(GTK_WIDGET(window), FALSE);
    }
  }
  EXPECT_GE(windows, 40);
}

// --- a window of every common control ---------------------------------------------------------------

// A File's Owner that records the actions it receives.
class Owner : public Object, public ActionHandling {
 public:
  std::vector<std::pair<std::string, ObjectRef>> received;
  void handle(const char16_t* selector) {
    setActionHandler(selector, [this, selector](const ObjectRef& sender) {
      received.emplace_back(String(selector).UTF8String(), sender);
    });
  }
};

class ControlsWindow : public ::testing::Test {
 protected:
  void SetUp() override {
    TQ_NEED_GTK();
    if (!test::haveProgram("xdotool")) GTEST_SKIP() << "needs xdotool (scripts/install-deps.sh installs it)";
    owner = std::make_shared<Owner>();
    application = std::make_shared<Owner>();
    NibLoadOptions load;
    load.owner = owner;
    read = std::make_unique<NibReadResult>(readNibFile((test::dataDir() / "gtk" / "Controls.xib").string(), load));
    ASSERT_TRUE(*read) << read->error().reason;
    GtkPresenterOptions options;
    options.owner = owner;
    options.application = application;
    presenter = std::make_shared<GtkPresenter>(read->nib().topLevelObjects(), options);
    model = std::dynamic_pointer_cast<Window>(presenter->presentableObjects().at(0));
    window = presenter->showWindow(*model);
    ASSERT_TRUE(test::waitForFrame(window));
  }
  void TearDown() override { presenter.reset(); }

  template <class T>
  T& object(const char* id) {
    return dynamic_cast<T&>(*read->nib().objectWithIdentifier(String::fromUTF8(id)));
  }
  WidgetRecord record(const char* id) {
    auto found = test::byIdentifier(inspectWindow(window));
    EXPECT_TRUE(found.count(id)) << id;
    return found[id];
  }

  std::shared_ptr<Owner> owner, application;
  std::unique_ptr<NibReadResult> read;
  std::shared_ptr<GtkPresenter> presenter;
  std::shared_ptr<Window> model;
  GtkWindow* window = nullptr;
};

TEST_F(ControlsWindow, ClicksAndTypingReachTheModelAndTheOwnersHandlers) {
  owner->handle(u"press:");
  owner->handle(u"remember:");
  std::vector<std::string> observed;
  presenter->setActionObserver([&](const String& selector, const ObjectRef&, const ObjectRef& handler) {
    observed.push_back(selector.UTF8String() + (handler == owner ? " owner" : " other"));
  });

  ASSERT_EQ(test::clickAt(window, record("btn-press")), 0);
  ASSERT_TRUE(test::runUntil([&] { return !owner->received.empty(); }));
  EXPECT_EQ(owner->received[0].first, "press:");
  EXPECT_EQ(owner->received[0].second.get(), &object<Button>("btn-press"));

  auto& box = object<Button>("chk-remember");
  EXPECT_EQ(box.state(), 0);
  ASSERT_EQ(test::clickAt(window, record("chk-remember")), 0);
  ASSERT_TRUE(test::runUntil([&] { return box.state() == 1; }));
  EXPECT_EQ(owner->received.back().first, "remember:");

  auto& field = object<TextField>("fld-name");
  ASSERT_EQ(test::clickAt(window, record("fld-name")), 0);
  ASSERT_EQ(test::xdotool("type --delay 20 'Ada L'"), 0);
  ASSERT_TRUE(test::runUntil([&] { return field.stringValue() == String(u"Ada L"); })) << field.stringValue();

  // The radio matrix: the second cell chosen, the first let go.
  auto& matrix = object<Matrix>("mtx-choice");
  WidgetRecord two;
  for (const auto& r : inspectWindow(window)) {
    if (r.text == "Two" && r.type == "GtkCheckButton") two = r;
  }
  ASSERT_EQ(test::clickAt(window, two), 0);
  ASSERT_TRUE(test::runUntil([&] { return matrix.cellAtRow(1, 0)->state() == 1; }));
  EXPECT_EQ(matrix.cellAtRow(0, 0)->state(), 0);

  EXPECT_EQ(observed, (std::vector<std::string>{"press: owner", "remember: owner"}));
}

TEST_F(ControlsWindow, FirstResponderActionsGoToTheFirstObjectAlongTheChainThatHandlesThem) {
  // "copy:" names no target: the owner does not handle it, the application does.
  application->handle(u"copy:");
  ASSERT_EQ(test::clickAt(window, record("btn-copy")), 0);
  ASSERT_TRUE(test::runUntil([&] { return !application->received.empty(); }));
  EXPECT_EQ(application->received[0].first, "copy:");
  // Once the owner handles it too, the owner comes first.
  owner->handle(u"copy:");
  ASSERT_EQ(test::clickAt(window, record("btn-copy")), 0);
  ASSERT_TRUE(test::runUntil([&] { return !owner->received.empty(); }));
  EXPECT_EQ(application->received.size(), 1u);
  // The main menu's key equivalent (command-R, Ctrl+R here) sends its item's action.
  application->handle(u"refresh:");
  ASSERT_EQ(test::xdotool("key --window " + std::to_string(test::xidOf(window)) + " ctrl+r"), 0);
  ASSERT_TRUE(test::runUntil([&] { return application->received.size() == 2; }));
  EXPECT_EQ(application->received[1].first, "refresh:");
  EXPECT_EQ(application->received[1].second->className(), String(u"NSMenuItem"));
}

TEST_F(ControlsWindow, ValuesSetOnTheModelShowInTheWidgets) {
  object<TextField>("lbl-info").setStringValue(u"Changed");
  object<Button>("chk-remember").setState(1);
  object<Button>("btn-press").setTitle(u"Push me");
  object<Button>("btn-copy").setHidden(true);
  object<TextField>("fld-name").setEnabled(false);
  object<PopUpButton>("pop-size").popUpCell()->selectItemAtIndex(2);
  object<Control>("sld-level").cell()->setDoubleValue(9);
  object<TextField>("cmb-speed").setStringValue(u"Slow");
  model->setTitle(u"Renamed");
  EXPECT_EQ(test::byIdentifier(inspectWindow(window)).count("lbl-later"), 0u) << "hidden at load";
  object<TextField>("lbl-later").setHidden(false);
  ASSERT_TRUE(test::waitForFrame(window));

  const auto records = inspectWindow(window);
  const auto found = test::byIdentifier(records);
  EXPECT_EQ((std::vector<std::string>{records.front().text, found.at("lbl-info").text, found.at("btn-press").text, found.at("pop-size").text}),
            (std::vector<std::string>{"Renamed", "Changed", "Push me", "Large"}));
  GtkWidget* combo = presenter->widgetFor(object<TextField>("cmb-speed"));
  ASSERT_TRUE(GTK_IS_COMBO_BOX(combo));
  EXPECT_STREQ(gtk_editable_get_text(GTK_EDITABLE(gtk_combo_box_get_child(GTK_COMBO_BOX(combo)))), "Slow");
  EXPECT_FALSE(found.at("fld-name").sensitive);
  EXPECT_EQ(found.count("btn-copy"), 0u) << "a hidden view's widget is not on screen";
  // A view hidden at load, shown: at its frame (290 from the content's left, 250 + 17 from its bottom).
  ASSERT_EQ(found.count("lbl-later"), 1u);
  EXPECT_EQ(found.at("lbl-later").text, "Later");
  EXPECT_EQ(found.at("lbl-later").x - found.at("cnt-01").x, 290);
  EXPECT_EQ(found.at("lbl-later").y - found.at("cnt-01").y, 360 - 250 - 17);
  auto* check = GTK_CHECK_BUTTON(presenter->widgetFor(object<Button>("chk-remember")));
  EXPECT_TRUE(gtk_check_button_get_active(check));
  EXPECT_DOUBLE_EQ(gtk_range_get_value(GTK_RANGE(presenter->widgetFor(object<Control>("sld-level")))), 9);
  // Pushing values sends no action.
  EXPECT_TRUE(owner->received.empty());
}

TEST_F(ControlsWindow, ResizingTheWindowMovesAndSizesViewsByTheirAutoresizingMasks) {
  auto& field = object<TextField>("fld-name");  // width sizable, bottom margin flexible
  auto& copy = object<Button>("btn-copy");      // left and bottom margins flexible
  const Rect fieldBefore = field.frame(), copyBefore = copy.frame();
  const WidgetRecord fieldWidget = record("fld-name"), copyWidget = record("btn-copy"), content = record("cnt-01");
  const int width = gtk_widget_get_width(GTK_WIDGET(window)), height = gtk_widget_get_height(GTK_WIDGET(window));
  const unsigned long xid = test::xidOf(window);
  const WidgetRecord surface = inspectWindow(window).front();  // the window's area starts at x, y of its surface
  ASSERT_EQ(test::xdotool("windowsize --sync " + std::to_string(xid) + " " + std::to_string(width + 2 * surface.x + 100) +
                          " " + std::to_string(height + 2 * surface.y + 40)),
            0);
  ASSERT_TRUE(test::runUntil([&] { return !(field.frame() == fieldBefore); }));
  ASSERT_TRUE(test::waitForFrame(window));
  ASSERT_EQ(record("cnt-01").width, content.width + 100);
  ASSERT_EQ(record("cnt-01").height, content.height + 40);
  // The content grew by 100 x 40: the field's width takes the width, its bottom margin the height.
  EXPECT_NEAR(field.frame().w, fieldBefore.w + 100, 0.01);
  EXPECT_NEAR(field.frame().x, fieldBefore.x, 0.01);
  EXPECT_NEAR(field.frame().y, fieldBefore.y + 40, 0.01);
  EXPECT_NEAR(copy.frame().x, copyBefore.x + 100, 0.01);
  EXPECT_NEAR(copy.frame().y, copyBefore.y + 40, 0.01);
  // On screen: the field 100 wider at the same place, the button 100 further right, both where
  // they were from the top.
  const WidgetRecord fieldAfter = record("fld-name"), copyAfter = record("btn-copy");
  EXPECT_NEAR(fieldAfter.width, fieldWidget.width + 100, 1);
  EXPECT_NEAR(fieldAfter.x, fieldWidget.x, 1);
  EXPECT_NEAR(copyAfter.x, copyWidget.x + 100, 1);
  EXPECT_NEAR(copyAfter.y, copyWidget.y, 1);
}

// --- table cells ---------------------------------------------------------------------------------------

struct Rows : TableDataSource {
  ImageRef icon;
  long numberOfRowsInTableView(TableView&) override { return 4; }
  Value objectValueForTableColumn(TableView&, TableColumn& column, long row) override {
    if (row == 2) return String::empty();
    return String::fromUTF8((column.identifier() == String(u"name") ? "item " : "value ") + std::to_string(row));
  }
  void willDisplayCell(TableView&, Cell& cell, TableColumn& column, long row) override {
    auto& text = dynamic_cast<TQTextFieldCell&>(cell);
    text.setIsSpace(row == 2);
    if (auto* image = dynamic_cast<TQImageAndTextCell*>(&cell)) image->setImage(row == 2 ? nullptr : icon);
    // The value column of row 1 draws its own green background.
    if (column.identifier() == String(u"value") && row == 1) {
      text.setDrawsBackground(true);
      text.setBackgroundColor(ColorDescriptor::rgb(0, 1, 0));
    }
  }
};

struct Png {
  cairo_surface_t* surface;
  explicit Png(const std::string& path) : surface(cairo_image_surface_create_from_png(path.c_str())) {}
  ~Png() { cairo_surface_destroy(surface); }
  // 0xRRGGBB at a pixel.
  unsigned rgb(int x, int y) const {
    cairo_surface_flush(surface);
    const auto* row = cairo_image_surface_get_data(surface) + static_cast<std::size_t>(y) * cairo_image_surface_get_stride(surface);
    return reinterpret_cast<const uint32_t*>(row)[x] & 0xFFFFFF;
  }
};

TEST_F(ControlsWindow, TableCellsAreDrawnByTheirCellsWithTheirHighlightAndSeparatorRows) {
  auto rows = std::make_shared<Rows>();
  rows->icon = Image::imageWithSize({16, 16});
  {
    auto context = rows->icon->graphicsContext();
    context->setFillColor(Color::redColor());
    context->fillRect({0, 0, 16, 16}, NSCompositeCopy);
  }
  auto& table = object<TableView>("tbl-01");
  presenter->setDataSource(table, rows);
  presenter->selectRow(table, 1);
  ASSERT_TRUE(test::waitForFrame(window));

  std::map<std::string, WidgetRecord> cells;  // by "row column"
  for (const auto& r : inspectWindow(window)) {
    if (r.row >= 0) cells[std::to_string(r.row) + " " + r.column] = r;
  }
  ASSERT_EQ(cells.size(), 8u);
  EXPECT_EQ(cells["0 name"].text, "item 0");
  EXPECT_EQ(cells["3 value"].text, "value 3");
  EXPECT_TRUE(cells["2 name"].space);
  EXPECT_TRUE(cells["1 value"].selected);
  // Each row as high as the row height and the intercell spacing.
  EXPECT_EQ(cells["1 name"].y - cells["0 name"].y, 18 + 2);

  const std::string png = test::artefact("table-cells.png");
  ASSERT_TRUE(saveScreenshot(window, png));
  Png shot(png);
  // The picture is of the window's area, which starts at x, y of its surface.
  const WidgetRecord surface = inspectWindow(window).front();
  for (auto& [key, r] : cells) r.x -= surface.x, r.y -= surface.y;
  const WidgetRecord name1 = cells["1 name"], value1 = cells["1 value"], value0 = cells["0 value"];
  const WidgetRecord space = cells["2 value"];
  // The image 3 points from the cell's left edge (the cell frame starts half the spacing in).
  EXPECT_EQ(shot.rgb(name1.x + 2 + 3 + 8, name1.y + name1.height / 2), 0xFF0000u);
  EXPECT_NE(shot.rgb(name1.x + 2 + 1, name1.y + name1.height / 2), 0xFF0000u);
  // A selected row: the cell's background colour where the cell draws one, the selection colour
  // where it does not (sampled right of the text).
  auto right = [](const WidgetRecord& r) { return r.x + r.width - 12; };
  EXPECT_EQ(shot.rgb(right(value1), value1.y + value1.height / 2), 0x00FF00u);
  EXPECT_EQ(shot.rgb(right(name1), name1.y + name1.height / 2), 0xB5D5FFu);
  EXPECT_EQ(shot.rgb(right(value0), value0.y + value0.height / 2), 0xFFFFFFu);
  // A separator row: a light grey rule across the middle of the cell frame (y = floor(h / 2)), and
  // nothing else.
  const int rule = space.y + 1 + 18 / 2;
  unsigned darkest = 0xFF;
  for (int y = rule - 2; y <= rule + 2; ++y) darkest = std::min(darkest, shot.rgb(right(space), y) & 0xFF);
  EXPECT_LT(darkest, 0xD0u);
  EXPECT_EQ(shot.rgb(right(space), rule - 4), 0xFFFFFFu);
  EXPECT_EQ(shot.rgb(right(space), rule + 4), 0xFFFFFFu);
}

}  // namespace
}  // namespace tq
