// The shared font map, context and per-thread layouts.
#include "text_system.h"

#include <map>

#include "tq/platform/ui/drawing/font.h"

namespace tq::detail {

namespace {

// Releases a thread's layout when the thread ends.
struct ThreadLayout {
  PangoLayout* layout = nullptr;
  ~ThreadLayout() {
    if (!layout) return;
    auto guard = TextSystem::shared().lock();
    g_object_unref(layout);
  }
};

thread_local ThreadLayout threadLayoutHolder;

struct ThreadBuffer {
  hb_buffer_t* buffer = nullptr;
  ~ThreadBuffer() { hb_buffer_destroy(buffer); }
};

thread_local ThreadBuffer threadBufferHolder;

}  // namespace

TextSystem& TextSystem::shared() {
  // Never destroyed: layouts of threads that end late still find it.
  static TextSystem* system = new TextSystem();
  return *system;
}

TextSystem::TextSystem() {
  fontMap_ = pango_cairo_font_map_new();
  pango_cairo_font_map_set_resolution(PANGO_CAIRO_FONT_MAP(fontMap_), 72.0);
  context_ = pango_font_map_create_context(fontMap_);
  pango_cairo_context_set_resolution(context_, 72.0);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  pango_cairo_context_set_font_options(context_, options);
  cairo_font_options_destroy(options);
  pango_context_set_round_glyph_positions(context_, FALSE);
}

PangoLayout* TextSystem::threadLayout() {
  if (!threadLayoutHolder.layout) threadLayoutHolder.layout = pango_layout_new(context_);
  return threadLayoutHolder.layout;
}

hb_buffer_t* TextSystem::threadBuffer() {
  if (!threadBufferHolder.buffer) threadBufferHolder.buffer = hb_buffer_create();
  return threadBufferHolder.buffer;
}

namespace {
std::map<const Font*, ShapingFont>& shapingFonts() {
  static auto* fonts = new std::map<const Font*, ShapingFont>();
  return *fonts;
}
}  // namespace

void TextSystem::forgetShapedWidths() {
  for (auto& [font, shaping] : shapingFonts()) shaping.widths.clear();
}

const ShapingFont& TextSystem::shapingFont(const Font& font) {
  auto [it, added] = shapingFonts().try_emplace(&font);
  if (added) {
    ShapingFont& f = it->second;
    f.font = pango_font_map_load_font(fontMap_, context_, font.pangoFontDescription());
    if (f.font) {
      f.hb = pango_font_get_hb_font(f.font);
      f.scaled = pango_cairo_font_get_scaled_font(PANGO_CAIRO_FONT(f.font));
    }
  }
  return it->second;
}

void appendUTF8(std::u16string_view text, std::string& out) { String::appendUTF8(text, out); }

}  // namespace tq::detail
