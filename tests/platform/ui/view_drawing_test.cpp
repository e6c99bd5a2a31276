// Drawing the interface model: where views, cells and their texts land, through the recording
// context, and whole windows of the corpus.
#include "tq/platform/ui/view_drawing.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ui/pixels.h"
#include "support/test_paths.h"
#include "tq/platform/ui/box.h"
#include "tq/platform/ui/button.h"
#include "tq/platform/ui/image_view.h"
#include "tq/platform/ui/progress_indicator.h"
#include "tq/platform/ui/nib_reader.h"
#include "tq/platform/ui/pango_text_measurer.h"
#include "tq/platform/ui/string_drawing.h"
#include "tq/platform/ui/text_field.h"

using namespace tq;

namespace {

std::shared_ptr<TextField> label(Rect frame, const char16_t* text) {
  auto field = std::make_shared<TextField>(frame);
  field->setStringValue(text);
  return field;
}

// The recorded text drawings, by text.
const DrawingRecord* textRecord(const DrawingRecorder& recorder, const String& text) {
  for (const auto& r : recorder.records()) {
    if (r.kind == DrawingRecord::Kind::DrawText && r.text == text) return &r;
  }
  return nullptr;
}

bool within(Rect inner, Rect outer) {
  const double e = 1e-9;
  return inner.x >= outer.x - e && inner.y >= outer.y - e && inner.maxX() <= outer.maxX() + e &&
         inner.maxY() <= outer.maxY() + e;
}

struct Drawn {
  GraphicsContextRef context = GraphicsContext::imageContext({200, 100}, false);
  std::shared_ptr<DrawingRecorder> recorder = std::make_shared<DrawingRecorder>();
  explicit Drawn(const View& root) {
    context->setRecorder(recorder);
    GraphicsContext::setCurrentContext(context);
    drawViewHierarchy(root, false);
    GraphicsContext::setCurrentContext(nullptr);
  }
};

}  // namespace

TEST(ViewDrawing, TextsLandInTheirViewsFramesThroughFlippedAndUnflippedParents) {
  View root({0, 0, 200, 100});
  root.addSubview(label({10, 60, 100, 17}, u"Name:"));
  auto flipped = std::make_shared<View>(Rect{100, 0, 100, 50});
  flipped->setFlipped(true);
  flipped->addSubview(label({10, 5, 80, 17}, u"Top"));  // 5 from the top of a 50-high view
  root.addSubview(flipped);
  auto hidden = label({0, 0, 50, 17}, u"Hidden");
  hidden->setHidden(true);
  root.addSubview(hidden);

  Drawn drawn(root);
  const DrawingRecord* name = textRecord(*drawn.recorder, u"Name:");
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(within(name->contextRect(), {10, 60, 100, 17}));
  EXPECT_GE(name->contextRect().w, 90);

  const DrawingRecord* top = textRecord(*drawn.recorder, u"Top");
  ASSERT_NE(top, nullptr);
  // In the unflipped context the subview spans y = 50 - 5 - 17 = 28 to 45, x = 110 to 190.
  EXPECT_TRUE(within(top->contextRect(), {110, 28, 80, 17})) << top->contextRect().y;
  EXPECT_EQ(textRecord(*drawn.recorder, u"Hidden"), nullptr);
  EXPECT_EQ(drawn.context->savedStateCount(), 0u);
  EXPECT_EQ(drawn.context->currentTransform(), AffineTransform());
}

TEST(ViewDrawing, CheckBoxTitleFollowsItsBoxAndPushTitleIsCentred) {
  View root({0, 0, 200, 100});
  auto check = std::make_shared<Button>(Rect{10, 10, 150, 18});
  check->setButtonType(ButtonType::Switch);
  check->setTitle(u"Remember me");
  check->setState(1);
  auto push = std::make_shared<Button>(Rect{10, 50, 100, 32});
  push->setTitle(u"OK");
  root.addSubview(check);
  root.addSubview(push);

  Drawn drawn(root);
  const DrawingRecord* title = textRecord(*drawn.recorder, u"Remember me");
  ASSERT_NE(title, nullptr);
  EXPECT_GE(title->contextRect().x, 30) << "after the 14-point box";
  EXPECT_TRUE(within(title->contextRect(), {10, 10, 150, 18}));
  // The box is drawn blue when on: a pixel in its middle (x 17, y 19 from the bottom).
  const auto p = test::pixelAt(*drawn.context, 17, 100 - 19);
  EXPECT_GT(p.b, p.r + 50);

  const DrawingRecord* ok = textRecord(*drawn.recorder, u"OK");
  ASSERT_NE(ok, nullptr);
  EXPECT_EQ(ok->alignment, UInteger(TextAlignment::Center));
  const Rect r = ok->contextRect();
  EXPECT_NEAR(r.x + r.w / 2, 60, 0.5);
  EXPECT_NEAR(r.y + r.h / 2, 66, 0.5);
}

TEST(ViewDrawing, BoxTitleSitsAboveItsBorder) {
  View root({0, 0, 200, 100});
  auto box = std::make_shared<Box>();
  box->setFrame({20, 10, 160, 80});
  box->setTitle(u"Options");
  root.addSubview(box);
  Drawn drawn(root);
  const DrawingRecord* title = textRecord(*drawn.recorder, u"Options");
  ASSERT_NE(title, nullptr);
  EXPECT_GT(title->contextRect().y, 70);
  EXPECT_TRUE(within(title->contextRect(), {20, 10, 160, 80}));
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
  const DrawingRecord* title = textRecord(*options.recorder, u"Settings");
  ASSERT_NE(title, nullptr);
  EXPECT_GE(title->contextRect().y, 120) << "the title bar is above the content";
  const DrawingRecord* hello = textRecord(*options.recorder, u"Hello");
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

// Whether a control has anything to show: an empty borderless label or a bare button shows nothing
// on the platform either.
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
    if (extension != ".xib" && extension != ".nib") continue;
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
        EXPECT_NE(pixelsOf(*without), reference)
            << name << ": " << control->className().UTF8String() << " #"
            << control->archiveIdentifier().UTF8String() << " draws nothing";
        ++controls;
      }
      ++windows;
    }
  }
  for (const auto& s : skipped) std::printf("skipped, not read by this reader: %s\n", s.c_str());
  if (windows == 0) GTEST_SKIP() << "no corpus interface could be read";
  EXPECT_GE(controls, 200) << "the corpus windows are full of controls";
}

TEST(ViewDrawing, HandBrakeMainWindowShowsItsLabelsAndTabs) {
  TQ_SKIP_WITHOUT_CORPUS();
  const auto path = test::corpusDir() / "handbrake/macosx/Base.lproj/MainWindow.xib";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << "no HandBrake main window in the corpus";
  NibReadResult result = readNibFile(path.string());
  ASSERT_TRUE(result);
  std::shared_ptr<Window> window;
  for (const auto& object : result.nib().topLevelObjects()) {
    if (!window) window = std::dynamic_pointer_cast<Window>(object);
  }
  ASSERT_NE(window, nullptr);
  WindowRenderOptions options;
  options.recorder = std::make_shared<DrawingRecorder>();
  ASSERT_NE(renderWindow(*window, options), nullptr);
  const double height = window->contentRect().h;
  for (const char16_t* text : {u"HandBrake", u"Source:", u"Preset:", u"Summary", u"Chapters", u"Save As:"}) {
    const DrawingRecord* r = textRecord(*options.recorder, text);
    ASSERT_NE(r, nullptr) << String(text).UTF8String();
    EXPECT_TRUE(within(r->contextRect(), {0, 0, window->contentRect().w, height + 22}))
        << String(text).UTF8String();
  }
  EXPECT_GT(textRecord(*options.recorder, u"Source:")->contextRect().y,
            textRecord(*options.recorder, u"Save As:")->contextRect().y)
      << "Source is near the top, Save As near the bottom";
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
  const DrawingRecord* header = textRecord(*recorder, u"Track");
  ASSERT_NE(header, nullptr);
  // The scroll view spans y 20 to 142 of the view (origin bottom left); its header is its top 23.
  EXPECT_GT(header->contextRect().y, 142 - 23 - 1);
  EXPECT_LE(header->contextRect().maxY(), 142 + 1e-9);
}
