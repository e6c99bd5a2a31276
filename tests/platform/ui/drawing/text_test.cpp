// Fonts, line heights, text measuring and text drawing with the shared Pango text system.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include <pango/pangocairo.h>

#include "platform/ui/pixels.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/layout_manager.h"
#include "tq/platform/ui/drawing/string_drawing.h"

using namespace tq;

namespace {

TextAttributes attributes(LineBreakMode mode, FontRef font = Font::systemFontOfSize(13)) {
  TextAttributes a;
  a.font = std::move(font);
  a.lineBreakMode = mode;
  return a;
}

const String kSentence = u"The quick brown fox jumps over the lazy dog near the river bank";

}  // namespace

TEST(Font, SystemFontAndNamesResolve) {
  const FontRef system = Font::systemFontOfSize(0);
  EXPECT_EQ(system->pointSize(), 13.0);
  EXPECT_EQ(system->familyName(), Font::systemFontFamily());
  EXPECT_EQ(Font::systemFontOfSize(13), system) << "fonts are shared";
  EXPECT_EQ(Font::labelFontOfSize(0)->pointSize(), 10.0);

  const FontRef bold = Font::fontWithName(u"Helvetica-Bold", 12);
  EXPECT_TRUE(bold->isBold());
  EXPECT_EQ(bold->familyName(), String(u"Helvetica"));
  EXPECT_TRUE(Font::fontWithName(u"Menlo-Regular", 11)->isFixedPitch());
  EXPECT_EQ(Font::fontWithName(String(), 12), nullptr);
  EXPECT_EQ(Font::fontWithDescriptor(FontDescriptor{u"System", 11, false, u"smallSystem"})->pointSize(), 11.0);
  EXPECT_EQ(Font::fontWithDescriptor(FontDescriptor::systemFont(13)), system);
}

TEST(Font, DefaultLineHeightIsRoundedMetricsAndGrowsWithSize) {
  LayoutManager manager;
  for (double size : {9.0, 11.0, 13.0, 24.0}) {
    const FontRef font = Font::systemFontOfSize(size);
    const double h = manager.defaultLineHeightForFont(font);
    EXPECT_EQ(h, std::round(font->ascender()) + std::round(-font->descender()) + std::round(font->leading()));
    EXPECT_EQ(h, std::floor(h)) << "whole points";
    EXPECT_GE(h, size) << size;
    EXPECT_LE(h, size * 1.6) << size;
    EXPECT_GT(font->ascender(), 0);
    EXPECT_LT(font->descender(), 0);
  }
  EXPECT_LT(manager.defaultLineHeightForFont(Font::systemFontOfSize(11)),
            manager.defaultLineHeightForFont(Font::systemFontOfSize(13)));
  EXPECT_EQ(manager.defaultLineHeightForFont(nullptr), Font::systemFontOfSize(13)->defaultLineHeight());
}

TEST(TextMeasuring, WrappingGrowsHeightAsBoundsNarrow) {
  const auto wrap = attributes(LineBreakMode::ByWordWrapping);
  const double line = Font::systemFontOfSize(13)->defaultLineHeight();
  const Size natural = sizeOfText(kSentence, Font::systemFontOfSize(13));
  EXPECT_EQ(natural.height, line);
  EXPECT_GT(natural.width, 200);

  double previous = 0;
  for (double width : {1000.0, 300.0, 150.0, 80.0}) {
    const Size s = sizeOfText(kSentence, wrap, {width, 10});
    EXPECT_LE(s.width, width);
    EXPECT_GE(s.height, previous) << width;
    EXPECT_EQ(std::fmod(s.height, line), 0) << "a whole number of lines";
    EXPECT_EQ(s.height / line, double(numberOfLinesOfText(kSentence, wrap, {width, 10})));
    previous = s.height;
  }
  EXPECT_EQ(sizeOfText(kSentence, wrap, {1000, 10}), natural);
  EXPECT_GE(sizeOfText(kSentence, wrap, {80, 10}).height, 4 * line);

  // Explicit line breaks start lines; a word wider than the bounds breaks between characters.
  EXPECT_EQ(sizeOfText(u"one\ntwo\nthree", wrap, {500, 0}).height, 3 * line);
  const Size longWord = sizeOfText(u"Supercalifragilisticexpialidocious", wrap, {60, 0});
  EXPECT_LE(longWord.width, 60);
  EXPECT_GT(longWord.height, line);
}

TEST(TextMeasuring, TruncationAndClippingKeepOneLineWithinBounds) {
  const double line = Font::systemFontOfSize(13)->defaultLineHeight();
  const double natural = sizeOfText(kSentence, Font::systemFontOfSize(13)).width;
  for (LineBreakMode mode : {LineBreakMode::ByTruncatingTail, LineBreakMode::ByTruncatingHead,
                             LineBreakMode::ByTruncatingMiddle, LineBreakMode::ByClipping}) {
    const Size s = sizeOfText(kSentence, attributes(mode), {120, 100});
    EXPECT_EQ(s.height, line) << int(mode);
    EXPECT_LE(s.width, 120) << int(mode);
    EXPECT_GT(s.width, 60) << int(mode);
    EXPECT_EQ(sizeOfText(u"first\nsecond line that is long", attributes(mode), {500, 100}),
              sizeOfText(u"first", Font::systemFontOfSize(13)))
        << "one-line modes show the first line";
  }
  EXPECT_EQ(sizeOfText(kSentence, attributes(LineBreakMode::ByTruncatingTail), {1000, 10}).width, natural);
}

TEST(TextMeasuring, EmptyTextIsOneLineHighAndSizesFollowTheFont) {
  const auto wrap = attributes(LineBreakMode::ByWordWrapping);
  const double line = Font::systemFontOfSize(13)->defaultLineHeight();
  EXPECT_EQ(sizeOfText(String(), wrap, {100, 100}), (Size{0, line}));
  EXPECT_EQ(sizeOfText(String::empty(), wrap, {100, 100}), (Size{0, line}));
  EXPECT_LT(sizeOfText(u"Hello", Font::systemFontOfSize(11)).width, sizeOfText(u"Hello", Font::systemFontOfSize(13)).width);
  EXPECT_GT(sizeOfText(u"Hello", Font::boldSystemFontOfSize(13)).width, sizeOfText(u"Hello", Font::systemFontOfSize(13)).width);
  // Non-Latin text and unpaired surrogates measure without harm.
  EXPECT_GT(sizeOfText(u"Grüße — 日本 \xD800x", Font::systemFontOfSize(13)).width, 0);
}

TEST(TextMeasuring, ThreadsMeasureAlike) {
  const auto wrap = attributes(LineBreakMode::ByWordWrapping);
  const Size here = sizeOfText(kSentence, wrap, {150, 0});
  Size there;
  std::thread([&] { there = sizeOfText(kSentence, wrap, {150, 0}); }).join();
  EXPECT_EQ(here, there);
}

TEST(TextDrawing, InkStaysInTheRectangleAndStartsAtItsTop) {
  for (bool flipped : {true, false}) {
    auto context = GraphicsContext::imageContext({200, 100}, flipped);
    GraphicsContext::setCurrentContext(context);
    const double line = Font::systemFontOfSize(13)->defaultLineHeight();
    // A rectangle 20..180 across and, in device rows, 30..70.
    const Rect rect{20, 30, 160, 40};  // rows 30..70 either way: the surface is 100 high
    drawText(kSentence, rect, attributes(LineBreakMode::ByWordWrapping));
    GraphicsContext::setCurrentContext(nullptr);
    EXPECT_EQ(test::inkedPixels(*context, 0, 0, 200, 100), test::inkedPixels(*context, 20, 30, 180, 70)) << flipped;
    EXPECT_GT(test::inkedPixels(*context, 20, 30, 180, 30 + int(line)), 100) << "first line at the top";
    EXPECT_GT(test::inkedPixels(*context, 20, 30 + int(line), 180, 70), 100) << "wrapped second line";
  }
}

TEST(TextDrawing, TruncatedTextDrawsOneLineWithinWidth) {
  auto context = GraphicsContext::imageContext({300, 60}, true);
  GraphicsContext::setCurrentContext(context);
  auto recorder = std::make_shared<DrawingRecorder>();
  context->setRecorder(recorder);
  const double line = Font::systemFontOfSize(13)->defaultLineHeight();
  auto tail = attributes(LineBreakMode::ByTruncatingTail);
  tail.color = Color::redColor();
  drawText(kSentence, {0, 0, 100, 50}, tail);
  GraphicsContext::setCurrentContext(nullptr);
  EXPECT_GT(test::inkedPixels(*context, 0, 0, 100, int(line)), 50);
  EXPECT_EQ(test::inkedPixels(*context, 0, int(line) + 1, 300, 60), 0) << "one line only";
  EXPECT_EQ(test::inkedPixels(*context, 100, 0, 300, 60), 0);
  ASSERT_EQ(recorder->records().size(), 1u);
  const auto& r = recorder->records()[0];
  EXPECT_EQ(r.kind, DrawingRecord::Kind::DrawText);
  EXPECT_EQ(r.rect, (Rect{0, 0, 100, 50}));
  EXPECT_EQ(r.text, kSentence);
  EXPECT_EQ(r.lineBreakMode, UInteger(LineBreakMode::ByTruncatingTail));
  EXPECT_TRUE(r.color->isEqual(*Color::redColor()));
}

TEST(TextDrawing, AlignmentMovesTheInk) {
  auto inkColumns = [](TextAlignment alignment, LineBreakMode mode) {
    auto context = GraphicsContext::imageContext({300, 20}, true);
    GraphicsContext::setCurrentContext(context);
    auto a = attributes(mode);
    a.alignment = alignment;
    drawText(u"Hi", {0, 0, 300, 20}, a);
    GraphicsContext::setCurrentContext(nullptr);
    std::pair<int, int> extent{-1, -1};  // first and last inked column
    for (int x = 0; x < 300; ++x) {
      if (test::inkedPixels(*context, x, 0, x + 1, 20) == 0) continue;
      if (extent.first < 0) extent.first = x;
      extent.second = x;
    }
    return extent;
  };
  for (LineBreakMode mode : {LineBreakMode::ByWordWrapping, LineBreakMode::ByClipping}) {
    const auto left = inkColumns(TextAlignment::Left, mode);
    const auto center = inkColumns(TextAlignment::Center, mode);
    const auto right = inkColumns(TextAlignment::Right, mode);
    EXPECT_LT(left.first, 5) << int(mode);
    EXPECT_NEAR((center.first + center.second) / 2.0, 150, 4) << int(mode);
    EXPECT_GT(right.second, 294) << int(mode);
  }
}

namespace {

// An independent Pango set-up like the text system's: 72 dpi, unhinted metrics, unrounded positions.
struct PlainPango {
  PangoFontMap* map = pango_cairo_font_map_new();
  PangoContext* context = nullptr;
  PlainPango() {
    pango_cairo_font_map_set_resolution(PANGO_CAIRO_FONT_MAP(map), 72);
    context = pango_font_map_create_context(map);
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(context, FALSE);
  }
  ~PlainPango() {
    g_object_unref(context);
    g_object_unref(map);
  }
  PangoLayout* layout(const std::string& text, const Font& font) const {
    PangoLayout* layout = pango_layout_new(context);
    pango_layout_set_font_description(layout, font.pangoFontDescription());
    pango_layout_set_text(layout, text.data(), static_cast<int>(text.size()));
    return layout;
  }
};

}  // namespace

TEST(TextDrawing, SimpleTextDrawsTheGlyphsPangoDraws) {
  PlainPango pango;
  const FontRef font = Font::systemFontOfSize(13);
  for (const char* text : {"Hello, World", "office affluent AVATAR"}) {
    auto ours = GraphicsContext::imageContext({220, 20}, true);
    GraphicsContext::setCurrentContext(ours);
    drawText(String::fromUTF8(text), {0, 0, 220, 20}, attributes(LineBreakMode::ByTruncatingTail));
    GraphicsContext::setCurrentContext(nullptr);

    auto theirs = GraphicsContext::imageContext({220, 20}, true);
    PangoLayout* layout = pango.layout(text, *font);
    cairo_move_to(theirs->cairo(), 0, font->baselineOffset());
    pango_cairo_show_layout_line(theirs->cairo(), pango_layout_get_line_readonly(layout, 0));
    g_object_unref(layout);

    int differing = 0, inked = 0;
    for (int y = 0; y < 20; ++y) {
      for (int x = 0; x < 220; ++x) {
        const auto a = test::pixelAt(*ours, x, y), b = test::pixelAt(*theirs, x, y);
        differing += std::abs(a.a - b.a) > 8;
        inked += a.a > 0;
      }
    }
    EXPECT_GT(inked, 100) << text;
    EXPECT_EQ(differing, 0) << text;
  }
}

// Widths agree with a fresh Pango layout: kerning, ligatures, other scripts and tabs; and texts
// measured again (widths are remembered per font), in the same font or another, after thousands of
// other texts.
TEST(TextMeasuring, AgreesWithAPlainPangoLayoutAlsoWhenMeasuredAgain) {
  PlainPango pango;
  auto pangoWidth = [&](const std::string& text, const Font& font) {
    PangoLayout* layout = pango.layout(text, font);
    int w = 0, h = 0;
    pango_layout_get_size(layout, &w, &h);
    g_object_unref(layout);
    return std::ceil(w / double(PANGO_SCALE) - 1e-6);
  };
  const FontRef font = Font::systemFontOfSize(13), small = Font::systemFontOfSize(11), large = Font::boldSystemFontOfSize(20);
  for (const char* text : {"Hello, World", "AVATAR Wave To", "office affluent", "Grüße, Ångström", "日本語 text", "tab\tstop"}) {
    EXPECT_EQ(sizeOfText(String::fromUTF8(text), font).width, pangoWidth(text, *font)) << text;
  }
  std::vector<std::string> texts;
  for (int i = 0; i < 5000; ++i) texts.push_back("Item " + std::to_string(i * 7919 % 100000) + (i % 3 ? " AV" : " To"));
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < texts.size(); ++i) {
      const String text = String::fromUTF8(texts[i]);
      const double a = sizeOfText(text, small).width, b = sizeOfText(text, large).width;
      if (i % 97 == 0) {
        ASSERT_EQ(a, pangoWidth(texts[i], *small)) << texts[i] << " round " << round;
        ASSERT_EQ(b, pangoWidth(texts[i], *large)) << texts[i] << " round " << round;
      }
    }
  }
}
