// Drawing of the controls with values, named images, dark panels, tables and cells of other
// classes: what lands where, read back from the recording context and the pixels.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ui/drawing/drawn.h"
#include "platform/ui/pixels.h"
#include "support/test_paths.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"

using namespace tq;
using Kind = DrawingRecord::Kind;
using test::Drawn;

namespace {

// A control known by class name only, as every reader form makes one.
std::shared_ptr<Control> namedControl(const char16_t* name, Rect frame, double min, double max, double value,
                                      const char16_t* style = nullptr) {
  auto control = std::make_shared<Control>(frame);
  control->setClassName(name);
  auto cell = std::make_shared<ActionCell>();
  cell->setClassName(String(std::u16string(name) + u"Cell"));
  cell->setMinValue(min);
  cell->setMaxValue(max);
  cell->setDoubleValue(value);
  if (style) cell->setControlStyle(style);
  control->setCell(cell);
  return control;
}

// `control` drawn alone in a view of 240 x 80.
Drawn drawnAlone(std::shared_ptr<View> control) {
  View root({0, 0, 240, 80});
  root.addSubview(std::move(control));
  return Drawn(root);
}

// The knob of a slider: the last filled shape.
double knobCentre(double value) {
  const Drawn drawn = drawnAlone(namedControl(u"NSSlider", {20, 20, 200, 24}, 0, 10, value));
  const auto fills = drawn.of(Kind::FillPath);
  EXPECT_FALSE(fills.empty());
  const Rect knob = fills.back().contextRect();
  EXPECT_TRUE(knob.x >= 20 && knob.maxX() <= 220) << "inside the slider's frame";
  return test::midX(knob);
}

void writePNG(const std::filesystem::path& path, double r, double g, double b) {
  std::filesystem::create_directories(path.parent_path());
  auto c = GraphicsContext::imageContext({8, 8}, false);
  c->setFillColor(Color::colorWithRed(r, g, b, 1));
  c->fillRect({0, 0, 8, 8}, NSCompositeCopy);
  ASSERT_TRUE(c->writeToPNG(String::fromUTF8(path.string())));
}

}  // namespace

TEST(ControlDrawing, ASliderKnobSitsAtItsValueAlongTheTrack) {
  const double quarter = knobCentre(2.5), threeQuarters = knobCentre(7.5);
  EXPECT_LT(quarter, threeQuarters);
  // Symmetric about the slider's middle (x 120), and a value past the range stops at its end.
  EXPECT_NEAR(quarter + threeQuarters, 240, 0.5);
  EXPECT_NEAR(knobCentre(25), knobCentre(10), 1e-9);
  EXPECT_NEAR(knobCentre(-3) + knobCentre(10), 240, 0.5);
}

TEST(ControlDrawing, LevelAndProgressFillTheirShareOfTheTrack) {
  const auto fillWidth = [](std::shared_ptr<View> control) {
    const auto fills = drawnAlone(std::move(control)).of(Kind::FillPath);
    EXPECT_GE(fills.size(), 2u);
    return std::pair{fills.front().contextRect().w, fills.back().contextRect().w};
  };
  const auto third = fillWidth(namedControl(u"NSLevelIndicator", {20, 20, 200, 16}, 0, 9, 3, u"continuousCapacity"));
  const auto twoThirds = fillWidth(namedControl(u"NSLevelIndicator", {20, 20, 200, 16}, 0, 9, 6, u"continuousCapacity"));
  // The fills (inset one point each side) grow with the value: 2/3 of the face against 1/3.
  EXPECT_NEAR(twoThirds.second + 2, 2 * (third.second + 2), 1.0);
  EXPECT_NEAR(third.second + 2, third.first / 3, 1.0);

  auto bar = std::make_shared<ProgressIndicator>(Rect{20, 20, 200, 12});
  bar->setMaxValue(1);
  bar->setDoubleValue(0.25);
  const auto quarter = fillWidth(bar);
  EXPECT_NEAR(quarter.second, quarter.first / 4, 0.5) << "a quarter of the track";
  auto hidden = std::make_shared<ProgressIndicator>(Rect{20, 20, 200, 12});
  hidden->setIndeterminate(true);
  hidden->setDisplayedWhenStopped(false);
  EXPECT_TRUE(drawnAlone(hidden).recorder->records().empty()) << "stopped and not displayed when stopped";
}

TEST(ControlDrawing, AStepperShowsTwoArrowsInItsFrame) {
  const auto fills = drawnAlone(namedControl(u"NSStepper", {100, 20, 19, 28}, 0, 59, 4)).of(Kind::FillPath);
  ASSERT_EQ(fills.size(), 3u) << "the body and two arrows";
  for (const auto& f : fills) {
    const Rect r = f.contextRect();
    EXPECT_TRUE(r.x >= 100 && r.maxX() <= 119 && r.y >= 20 && r.maxY() <= 48);
  }
  EXPECT_GT(fills[1].contextRect().y, fills[2].contextRect().y) << "the up arrow above the down arrow";
}

TEST(ControlDrawing, ADatePickerShowsItsDateInItsFields) {
  // 678949666 seconds after 2001-01-01 UTC is 2022-07-08 05:07:46 UTC.
  auto picker = namedControl(u"NSDatePicker", {10, 20, 140, 28}, 0, 0, 678949666.07);
  EXPECT_NE(drawnAlone(picker).text(u"2022-07-08"), nullptr);
  picker->cell()->setDateElements(Cell::DateElementHourMinute);
  const Drawn timeOnly = drawnAlone(picker);
  ASSERT_NE(timeOnly.text(u"05:07"), nullptr);
  EXPECT_LE(timeOnly.text(u"05:07")->contextRect().maxX(), 150);
  picker->cell()->setDateElements(Cell::DateElementYearMonthDay | Cell::DateElementSecond);
  EXPECT_NE(drawnAlone(picker).text(u"2022-07-08 05:07:46"), nullptr);
}

TEST(ControlDrawing, NamedImagesComeFromTheDocumentFoldersElseStandInsElsePlaceholders) {
  test::TempDir dir;
  writePNG(dir.path() / "fr.lproj" / "Local.png", 1, 0, 0);  // beside the document
  writePNG(dir.path() / "Shared.tiff.png", 0, 0, 1);         // not a name with an extension tried
  writePNG(dir.path() / "Shared.png", 0, 0, 1);              // the resources above the .lproj
  auto images = std::make_shared<InterfaceImageSource>(String::fromUTF8((dir.path() / "fr.lproj" / "Doc.xib").string()));
  EXPECT_FALSE(images->imageNamed(u"../Shared").get()) << "names stay inside their folders";
  EXPECT_EQ(images->imageNamed(u"Local").get(), images->imageNamed(u"Local").get()) << "read once";

  View root({0, 0, 240, 80});
  const auto view = [&](Rect frame, const char16_t* name) {
    auto v = std::make_shared<ImageView>();
    v->setFrame(frame);
    v->setImageName(name);
    root.addSubview(v);
  };
  view({0, 0, 40, 40}, u"Local");
  view({40, 0, 40, 40}, u"Shared");
  view({80, 0, 40, 40}, u"NSAddTemplate");
  view({120, 0, 40, 40}, u"Nothing");
  const Drawn drawn(root, {images, false, {}});
  const auto drawnImages = drawn.of(Kind::DrawImage);
  ASSERT_EQ(drawnImages.size(), 2u);
  // 8 x 8 images are not enlarged: centred in their 40 x 40 views.
  EXPECT_EQ(drawnImages[0].contextRect(), (Rect{16, 16, 8, 8}));
  EXPECT_GT(test::pixelAt(*drawn.context, 20, 80 - 20).r, 200);
  EXPECT_GT(test::pixelAt(*drawn.context, 60, 80 - 20).b, 200);
  // The plus: two strokes inside its view; the unknown name: a placeholder with its initial.
  const auto strokes = drawn.of(Kind::StrokePath);
  ASSERT_FALSE(strokes.empty());
  EXPECT_GE(strokes[0].contextRect().x, 80);
  EXPECT_LE(strokes[0].contextRect().maxX(), 120);
  EXPECT_NE(drawn.text(u"N"), nullptr);
  EXPECT_EQ(drawn.text(u"+"), nullptr);
}

TEST(ControlDrawing, ADarkPanelDrawsLightTitles) {
  const auto titleWhite = [](unsigned mask) {
    Window window({0, 0, 200, 60});
    window.setStyleMask(mask);
    auto check = std::make_shared<Button>(Rect{10, 10, 150, 18});
    check->setButtonType(ButtonType::Switch);
    check->setTitle(u"Keep Aspect Ratio");
    window.contentView()->addSubview(check);
    WindowRenderOptions options;
    options.recorder = std::make_shared<DrawingRecorder>();
    EXPECT_TRUE(renderWindow(window, options));
    const DrawingRecord* title = test::drawnText(*options.recorder, u"Keep Aspect Ratio");
    EXPECT_NE(title, nullptr);
    return title ? title->color->whiteComponent() : -1.0;
  };
  EXPECT_GT(titleWhite(NSWindowStyleMaskTitled | NSWindowStyleMaskHUDWindow), 0.8);
  EXPECT_LT(titleWhite(NSWindowStyleMaskTitled), 0.3);
  // A label in the system's highlight colour is light, as on the platform: light on dark in a panel.
  EXPECT_GT(Color::colorWithDescriptor(ColorDescriptor::named(u"highlightColor"))->whiteComponent(), 0.95);
}

TEST(ControlDrawing, TablesDrawTheirRowsFromTheTop) {
  auto table = std::make_shared<TableView>();
  table->setFrame({0, 0, 200, 80});
  table->setRowHeight(17);
  table->setIntercellSpacing({3, 2});
  std::vector<double> rows;
  for (const auto& r : drawnAlone(table).of(Kind::StrokeLine)) {
    if (r.contextFrom().y == r.contextTo().y) rows.push_back(r.contextFrom().y);
  }
  ASSERT_GE(rows.size(), 4u);
  // Each row is 19 high, counted down from the table's top edge (y 80 in this unflipped picture).
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(rows[i], 80 - 19.0 * (i + 1), 0.5 + 1e-9) << i;
}
