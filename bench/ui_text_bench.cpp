// Text measuring and drawing: tqkit's shared text system (one font map and context, a reused layout
// per thread) beside a plain Pango loop that makes a new layout for every text, on the same 10,000
// short texts.
#include <benchmark/benchmark.h>
#include <pango/pangocairo.h>

#include <string>
#include <vector>

#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/string_drawing.h"

namespace {

constexpr int kTexts = 10000;

struct Texts {
  std::vector<tq::String> strings;
  std::vector<std::string> utf8;
  Texts() {
    static const char* const words[] = {"Name", "Size", "Kind", "Date Modified", "Folder", "Title",
                                        "Chapter", "Audio", "Subtitles", "Preset", "Queue", "Encode"};
    for (int i = 0; i < kTexts; ++i) {
      std::string s = words[i % 12];
      s += ' ';
      s += std::to_string(i * 7919 % 100000);
      s += ' ';
      s += words[(i / 12) % 12];
      utf8.push_back(s);
      strings.push_back(tq::String::fromUTF8(s));
    }
  }
};

const Texts& texts() {
  static const Texts t;
  return t;
}

void setItems(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kTexts);
}

// Arg: the wrapping width. 200 fits every text on one line; 60 makes each wrap (the layout path).
void BM_Measure_tqkit(benchmark::State& state) {
  const auto& t = texts();
  const double width = static_cast<double>(state.range(0));
  tq::TextAttributes attributes;
  attributes.font = tq::Font::systemFontOfSize(13);
  attributes.lineBreakMode = tq::LineBreakMode::ByWordWrapping;
  for (auto _ : state) {
    double total = 0;
    for (const auto& s : t.strings) total += tq::sizeOfText(s, attributes, {width, 0}).height;
    benchmark::DoNotOptimize(total);
  }
  setItems(state);
}
BENCHMARK(BM_Measure_tqkit)->Arg(200)->Arg(60)->Unit(benchmark::kMillisecond);

void BM_Measure_PangoNewLayoutPerText(benchmark::State& state) {
  const int width = static_cast<int>(state.range(0));
  const auto& t = texts();
  PangoFontMap* map = pango_cairo_font_map_new();
  PangoContext* context = pango_font_map_create_context(map);
  PangoFontDescription* desc = pango_font_description_from_string("DejaVu Sans Condensed 13");
  for (auto _ : state) {
    double total = 0;
    for (const auto& s : t.utf8) {
      PangoLayout* layout = pango_layout_new(context);
      pango_layout_set_font_description(layout, desc);
      pango_layout_set_width(layout, width * PANGO_SCALE);
      pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
      pango_layout_set_text(layout, s.data(), static_cast<int>(s.size()));
      int w = 0, h = 0;
      pango_layout_get_pixel_size(layout, &w, &h);
      total += h;
      g_object_unref(layout);
    }
    benchmark::DoNotOptimize(total);
  }
  setItems(state);
  pango_font_description_free(desc);
  g_object_unref(context);
  g_object_unref(map);
}
BENCHMARK(BM_Measure_PangoNewLayoutPerText)->Arg(200)->Arg(60)->Unit(benchmark::kMillisecond);

void BM_Draw_tqkit(benchmark::State& state) {
  const auto& t = texts();
  auto context = tq::GraphicsContext::imageContext({300, 24}, true);
  tq::GraphicsContext::setCurrentContext(context);
  tq::TextAttributes attributes;
  attributes.font = tq::Font::systemFontOfSize(13);
  attributes.lineBreakMode = tq::LineBreakMode::ByTruncatingTail;
  for (auto _ : state) {
    for (const auto& s : t.strings) tq::drawText(s, {0, 2, 300, 20}, attributes);
  }
  context->flushGraphics();
  tq::GraphicsContext::setCurrentContext(nullptr);
  setItems(state);
}
BENCHMARK(BM_Draw_tqkit)->Unit(benchmark::kMillisecond);

void BM_Draw_PangoNewLayoutPerText(benchmark::State& state) {
  const auto& t = texts();
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 300, 24);
  cairo_t* cr = cairo_create(surface);
  PangoFontDescription* desc = pango_font_description_from_string("DejaVu Sans Condensed 13px");
  for (auto _ : state) {
    for (const auto& s : t.utf8) {
      PangoLayout* layout = pango_cairo_create_layout(cr);
      pango_layout_set_font_description(layout, desc);
      pango_layout_set_width(layout, 300 * PANGO_SCALE);
      pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_END);
      pango_layout_set_text(layout, s.data(), static_cast<int>(s.size()));
      cairo_move_to(cr, 0, 2);
      pango_cairo_show_layout(cr, layout);
      g_object_unref(layout);
    }
  }
  cairo_surface_flush(surface);
  pango_font_description_free(desc);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
  setItems(state);
}
BENCHMARK(BM_Draw_PangoNewLayoutPerText)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
