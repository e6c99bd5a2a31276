// Drawing the interface model: where views, cells and their texts land, through the recording
// context; windows with their title bars and toolbars; whole windows of the corpus.
#include "tq/platform/ui/drawing/view_drawing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/ui/drawing/drawn.h"
#include "platform/ui/pixels.h"
#include "support/test_paths.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/text_field.h"

using namespace tq;
using test::Drawn;
using test::within;

namespace {

std::shared_ptr<TextField> label(Rect frame, const char16_t* text) {
  auto field = std::make_shared<TextField>(frame);
  field->setStringValue(text);
  return field;
}

}  // namespace

// Texts land in their views' frames through flipped and unflipped parents; a check box's title
// follows its box, a push button's is centred, a box's title sits above its border.
TEST(ViewDrawing, TextsLandInTheirViewsFrames) {
  View root({0, 0, 200, 100});
  root.addSubview(label({10, 60, 100, 17}, u"Name:"));
  auto flipped = std::make_shared<View>(Rect{100, 0, 100, 50});
  flipped->setFlipped(true);
  flipped->addSubview(label({10, 5, 80, 17}, u"Top"));  // 5 from the top of a 50-high view
  root.addSubview(flipped);
  auto hidden = label({0, 0, 50, 17}, u"Hidden");
  hidden->setHidden(true);
  root.addSubview(hidden);
  auto check = std::make_shared<Button>(Rect{10, 10, 150, 18});
  check->setButtonType(ButtonType::Switch);
  check->setTitle(u"Remember me");
  check->setState(1);
  auto push = std::make_shared<Button>(Rect{10, 50, 100, 32});
  push->setTitle(u"OK");
  auto box = std::make_shared<Box>();
  box->setFrame({20, 10, 160, 80});
  box->setTitle(u"Options");
  for (const auto& v : {std::shared_ptr<View>(box), std::shared_ptr<View>(check), std::shared_ptr<View>(push)}) root.addSubview(v);

  Drawn drawn(root);
  const auto drawnText = [&](const char16_t* text) { return drawn.textRect(text); };
  EXPECT_TRUE(within(drawnText(u"Name:"), {10, 60, 100, 17}));
  EXPECT_GE(drawnText(u"Name:").w, 90);
  // In the unflipped context the subview spans y = 50 - 5 - 17 = 28 to 45, x = 110 to 190.
  EXPECT_TRUE(within(drawnText(u"Top"), {110, 28, 80, 17})) << drawnText(u"Top").y;
  EXPECT_EQ(drawn.text(u"Hidden"), nullptr);
  EXPECT_EQ(drawn.context->savedStateCount(), 0u);
  EXPECT_EQ(drawn.context->currentTransform(), AffineTransform());

  EXPECT_GE(drawnText(u"Remember me").x, 30) << "after the 14-point box";
  EXPECT_TRUE(within(drawnText(u"Remember me"), {10, 10, 150, 18}));
  // The box is drawn blue when on: a pixel in its middle (x 17, y 19 from the bottom).
  const auto p = test::pixelAt(*drawn.context, 17, 100 - 19);
  EXPECT_GT(p.b, p.r + 50);
  ASSERT_NE(drawn.text(u"OK"), nullptr);
  EXPECT_EQ(drawn.text(u"OK")->alignment, UInteger(TextAlignment::Center));
  const Rect ok = drawnText(u"OK");
  EXPECT_NEAR(ok.x + ok.w / 2, 60, 0.5);
  EXPECT_NEAR(ok.y + ok.h / 2, 66, 0.5);
  EXPECT_GT(drawnText(u"Options").y, 70);
  EXPECT_TRUE(within(drawnText(u"Options"), {20, 10, 160, 80}));
}

TEST(ViewDrawing, RenderedWindowHasTitleBarAndContent) {
  Window window({0, 0, 240, 120});
  window.setTitle(u"Settings");
  window.contentView()->addSubview(label({20, 80, 120, 17}, u"Hello"));
  WindowRenderOptions options;
  options.scale = 2;
  options.recorder = std::make_shared<DrawingRecorder>();
  auto image = renderWindow(window, options);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(cairo_image_surface_get_width(image->surface()), 480);
  EXPECT_EQ(cairo_image_surface_get_height(image->surface()), 2 * (120 + 22));
  const DrawingRecord* title = test::drawnText(*options.recorder, u"Settings");
  ASSERT_NE(title, nullptr);
  EXPECT_GE(title->contextRect().y, 120) << "the title bar is above the content";
  const DrawingRecord* hello = test::drawnText(*options.recorder, u"Hello");
  ASSERT_NE(hello, nullptr);
  EXPECT_TRUE(within(hello->contextRect(), {20, 80, 120, 17}));
  EXPECT_EQ(test::pixelAt(*image, 5, 5).a, 255) << "opaque picture";
  EXPECT_EQ(GraphicsContext::currentContext(), nullptr);
}

TEST(PangoTextMeasurer, TheModelMeasuresWithTheTextSystem) {
  PangoTextMeasurer::install();
  const FontDescriptor font = FontDescriptor::systemFont(13);
  EXPECT_EQ(TextMeasurer::current().sizeOfString(u"Hello, World", font),
            sizeOfText(u"Hello, World", Font::systemFontOfSize(13)));
  EXPECT_EQ(TextMeasurer::current().defaultLineHeight(font), Font::systemFontOfSize(13)->defaultLineHeight());
  // Wrapping goes through the real layout: word breaks, not an estimate from the one-line width.
  TextAttributes wrap;
  wrap.font = Font::systemFontOfSize(13);
  const String sentence = u"The quick brown fox jumps over the lazy dog";
  EXPECT_EQ(TextMeasurer::current().sizeOfString(sentence, font, 100), sizeOfText(sentence, wrap, {100, 0}));
  EXPECT_GT(TextMeasurer::current().sizeOfString(sentence, font, 100).height,
            TextMeasurer::current().sizeOfString(sentence, font).height);
  TextMeasurer::setCurrent(std::make_shared<EstimatingTextMeasurer>());
  EXPECT_EQ(dynamic_cast<const PangoTextMeasurer*>(&TextMeasurer::current()), nullptr);
  TextMeasurer::setCurrent(nullptr);
  EXPECT_NE(dynamic_cast<const PangoTextMeasurer*>(&TextMeasurer::current()), nullptr)
      << "with nothing registered the model measures with the text system";
}

// Whether a control has anything to show, decided by the model's own state: a text field with no
// text, placeholder, border, bezel or background, a button with no border, bezel, title or image
// that is not a check box or radio, and an image view with no image show nothing on the platform
// either. Every other control must draw.
bool showsSomething(const Control& control) {
  const auto& cell = control.cell();
  if (auto field = std::dynamic_pointer_cast<TextFieldCell>(cell)) {
    return field->stringValue().length() > 0 || field->placeholderString().length() > 0 || field->isBezeled() ||
           field->isBordered() || (field->drawsBackground() && field->backgroundColor());
  }
  if (auto button = std::dynamic_pointer_cast<ButtonCell>(cell)) {
    return button->isBordered() || !button->bezelStyle().isNil() || button->title().length() > 0 ||
           !button->imageName().isNil() || button->buttonType() == ButtonType::Switch ||
           button->buttonType() == ButtonType::Radio;
  }
  if (auto image = dynamic_cast<const ImageView*>(&control)) return !image->imageName().isNil();
  return true;
}

// The visible controls of a tree with their frames inside every ancestor's bounds (what the
// window shows of them), depth first.
void visibleControls(View& view, View& root, std::vector<View*>& out) {
  for (const auto& sub : view.subviews()) {
    if (!sub || sub->isHidden() || sub->frame().isEmpty()) continue;
    bool inside = true;
    for (View* v = sub.get(); v != &root && v->superview(); v = v->superview()) {
      const Rect f = v->frame(), b = v->superview()->bounds();
      if (!(f.x < b.maxX() && f.maxX() > b.x && f.y < b.maxY() && f.maxY() > b.y)) inside = false;
    }
    if (!inside) continue;
    auto* control = dynamic_cast<Control*>(sub.get());
    auto* progress = dynamic_cast<ProgressIndicator*>(sub.get());
    // A stopped indicator that hides when stopped is not shown.
    if ((control && showsSomething(*control)) || (progress && progress->isDisplayedWhenStopped())) {
      out.push_back(sub.get());
    }
    visibleControls(*sub, root, out);
  }
}

std::vector<unsigned char> pixelsOf(const GraphicsContext& image) {
  cairo_surface_t* s = image.surface();
  cairo_surface_flush(s);
  const unsigned char* data = cairo_image_surface_get_data(s);
  return {data, data + static_cast<std::size_t>(cairo_image_surface_get_stride(s)) * cairo_image_surface_get_height(s)};
}

// Each shown toolbar item with a label, an image or a view has ink of its own in its area: pixels
// that differ from the strip's background, sampled just under the title bar at the strip's right
// end (past the last item). Returns the number of items checked.
int expectToolbarItemsDrawn(const Window& window, const GraphicsContext& picture, const std::string& name) {
  const auto placements = toolbarItemPlacements(window);
  if (placements.empty()) return 0;
  const int right = int(window.contentRect().w) - 2, top = 24;
  const test::Pixel background = test::pixelAt(picture, right, top);
  int checked = 0;
  for (const auto& [item, f] : placements) {
    if (item->label().length() == 0 && item->imageName().isNil() && !item->view()) continue;
    int differing = 0;
    for (int y = int(f.y) + 1; y < int(f.maxY()) - 1; ++y) {
      for (int x = int(f.x) + 1; x < int(f.maxX()) - 1; ++x) {
        const test::Pixel p = test::pixelAt(picture, x, y);
        differing += p.r != background.r || p.g != background.g || p.b != background.b;
      }
    }
    EXPECT_GT(differing, 20) << name << ": toolbar item " << item->itemIdentifier().UTF8String() << " ("
                             << f.x << ", " << f.y << ", " << f.w << ", " << f.h << ") draws nothing";
    ++checked;
  }
  return checked;
}

// Every control a corpus window or view holds draws something of its own: drawn without it, the
// picture differs. An interface whose form the reader does not read is skipped and named.
TEST(ViewDrawing, EveryControlOfEveryCorpusWindowDraws) {
  TQ_SKIP_WITHOUT_CORPUS();
  PangoTextMeasurer::install();
  int windows = 0, controls = 0;
  std::vector<std::string> skipped;
  for (auto it = std::filesystem::recursive_directory_iterator(test::corpusDir());
       it != std::filesystem::recursive_directory_iterator(); ++it) {
    const auto& entry = *it;
    const auto extension = entry.path().extension();
    if (extension != ".xib" && extension != ".nib" && extension != ".storyboard") continue;
    if (entry.is_directory()) it.disable_recursion_pending();  // a compiled nib folder is one interface
    NibReadResult result = readNibFile(entry.path().string());
    const std::string name = std::filesystem::relative(entry.path(), test::corpusDir()).string();
    if (!result) {
      skipped.push_back(name + ": " + result.error().reason.substr(0, 70));
      continue;
    }
    for (const auto& object : result.nib().topLevelObjects()) {
      auto window = std::dynamic_pointer_cast<Window>(object);
      auto root = window ? window->contentView() : std::dynamic_pointer_cast<View>(object);
      if (!root || root->frame().isEmpty()) continue;
      const auto draw = [&] { return window ? renderWindow(*window) : renderView(*root); };
      const auto whole = draw();
      ASSERT_NE(whole, nullptr) << entry.path();
      const auto reference = pixelsOf(*whole);
      std::vector<View*> list;
      visibleControls(*root, *root, list);
      for (View* control : list) {
        control->setHidden(true);
        const auto without = draw();
        control->setHidden(false);
        const Rect f = control->frame();
        EXPECT_TRUE(pixelsOf(*without) != reference)
            << name << ": " << control->className().UTF8String() << " #" << control->archiveIdentifier().UTF8String()
            << " (" << f.x << ", " << f.y << ", " << f.w << ", " << f.h << ") draws nothing";
        ++controls;
      }
      if (window) controls += expectToolbarItemsDrawn(*window, *whole, name);
      ++windows;
    }
  }
  for (const auto& s : skipped) std::printf("skipped, not read by this reader: %s\n", s.c_str());
  if (windows == 0) GTEST_SKIP() << "no corpus interface could be read";
  EXPECT_GE(controls, 200) << "the corpus windows are full of controls";
}

TEST(ViewDrawing, TableHeadersSitAtTheTopOfTheirScrollViews) {
  TQ_SKIP_WITHOUT_CORPUS();
  const auto path = test::corpusDir() / "handbrake/macosx/Base.lproj/Audio.xib";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << "no HandBrake audio view in the corpus";
  NibReadResult result = readNibFile(path.string());
  ASSERT_TRUE(result);
  std::shared_ptr<View> view;
  for (const auto& object : result.nib().topLevelObjects()) {
    if (!view) view = std::dynamic_pointer_cast<View>(object);
  }
  ASSERT_NE(view, nullptr);
  auto recorder = std::make_shared<DrawingRecorder>();
  ASSERT_NE(renderView(*view, 1.0, recorder), nullptr);
  const DrawingRecord* header = test::drawnText(*recorder, u"Track");
  ASSERT_NE(header, nullptr);
  // The scroll view spans y 20 to 142 of the view (origin bottom left); its header is its top 23.
  EXPECT_GT(header->contextRect().y, 142 - 23 - 1);
  EXPECT_LE(header->contextRect().maxY(), 142 + 1e-9);
}

TEST(ViewDrawing, AToolbarStripUnderTheTitleBarShowsEachItemInItsAreaAndAHiddenOneTakesNoRoom) {
  PangoTextMeasurer::install();
  // The windows of the drawing fixture (tests/data/drawing/Views.xib).
  NibReadResult r = readNibFile((test::dataDir() / "drawing" / "Views.xib").string());
  ASSERT_TRUE(r) << r.error().reason;
  auto hiddenBar = std::dynamic_pointer_cast<Window>(r.nib().objectWithIdentifier(u"toolbar-hidden"));
  ASSERT_TRUE(hiddenBar);
  EXPECT_EQ(toolbarHeight(*hiddenBar), 0);
  EXPECT_TRUE(toolbarItemPlacements(*hiddenBar).empty());
  EXPECT_EQ(cairo_image_surface_get_height(renderWindow(*hiddenBar)->surface()), 120 + 22);

  auto window = std::dynamic_pointer_cast<Window>(r.nib().objectWithIdentifier(u"toolbar"));
  ASSERT_TRUE(window);
  WindowRenderOptions options;
  options.recorder = std::make_shared<DrawingRecorder>();
  std::vector<std::pair<String, Rect>> views;
  options.drawnView = [&](const View& v, Rect r) { views.emplace_back(v.className(), r); };
  auto picture = renderWindow(*window, options);
  ASSERT_NE(picture, nullptr);
  const double strip = toolbarHeight(*window);
  EXPECT_GT(strip, 40) << "icons and labels";
  const double height = 120 + 22 + strip;
  EXPECT_EQ(cairo_image_surface_get_height(picture->surface()), int(height));

  const auto placed = toolbarItemPlacements(*window);
  ASSERT_EQ(placed.size(), 4u);
  std::vector<std::u16string> order;
  for (const auto& p : placed) order.push_back(p.item->itemIdentifier().u16string());
  EXPECT_EQ(order, (std::vector<std::u16string>{u"I-1", u"I-2", u"NSToolbarFlexibleSpaceItem", u"I-3"}));
  for (const auto& p : placed) {
    EXPECT_NEAR(p.frame.y, 22, 1e-9) << "under the title bar";
    EXPECT_NEAR(p.frame.h, strip, 1e-9);
  }
  EXPECT_LT(placed[1].frame.maxX(), 250) << "items from the left";
  EXPECT_GT(placed[3].frame.x, 330) << "the flexible space pushes the last item to the right end";
  EXPECT_LE(placed[3].frame.maxX(), 420);

  // Labels and the search field land in their items' areas (the recorder's rectangles are y-up).
  const auto inArea = [&](Rect drawn, Rect area) { return within({drawn.x, height - drawn.maxY(), drawn.w, drawn.h}, area); };
  const auto textAt = [&](const String& s) {
    const DrawingRecord* r = test::drawnText(*options.recorder, s);
    EXPECT_NE(r, nullptr) << s.UTF8String();
    return r ? r->contextRect() : Rect{-1000, -1000, 0, 0};
  };
  for (std::size_t i : {0u, 1u, 3u}) EXPECT_TRUE(inArea(textAt(placed[i].item->label()), placed[i].frame)) << i;
  const auto search = std::find_if(views.begin(), views.end(), [](auto& v) { return v.first == String(u"NSSearchField"); });
  ASSERT_NE(search, views.end());
  EXPECT_TRUE(inArea(search->second, placed[1].frame));
  EXPECT_NEAR(search->second.w, 150, 1e-9);
  EXPECT_EQ(expectToolbarItemsDrawn(*window, *picture, "toolbar window"), 3);
  // The content keeps its place: the label is 80 + 17 from the bottom of the picture as before.
  EXPECT_TRUE(within(textAt(u"Content label"), {20, 80, 200, 17}));
}
