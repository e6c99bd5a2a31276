// The process's one text system: a Pango font map and context shared by every measurement and
// drawing, a lock that serialises the work on them, and one reusable layout per thread.
//
// Pango's font map and context are not safe for concurrent use, so every caller takes lock() for the
// whole of its work with them (layouts included). The context lays out at 72 dpi with unhinted
// metrics, so sizes do not depend on the surface a text is later drawn on.
#pragma once

#include <pango/pangocairo.h>

#include <hb.h>

#include <mutex>
#include <string>

#include "tq/platform/base/string.h"

namespace tq {
class Font;
}

namespace tq::detail {

// A font as shaped and drawn directly, bypassing layouts for simple one-line text: the Pango font the
// font map resolves, its HarfBuzz font (positions in Pango units, as Pango itself uses them) and its
// Cairo font.
struct ShapingFont {
  PangoFont* font = nullptr;
  hb_font_t* hb = nullptr;
  cairo_scaled_font_t* scaled = nullptr;
};

class TextSystem {
 public:
  static TextSystem& shared();

  std::unique_lock<std::mutex> lock() { return std::unique_lock<std::mutex>(mutex_); }
  PangoContext* context() const { return context_; }
  // The calling thread's layout, made from the shared context on first use. Caller holds lock().
  PangoLayout* threadLayout();
  // The shaping font of a font (fonts live for the whole process, so the cache keys on them).
  // Caller holds lock().
  const ShapingFont& shapingFont(const Font& font);
  // The calling thread's reusable HarfBuzz buffer. Caller holds lock().
  hb_buffer_t* threadBuffer();

 private:
  TextSystem();
  std::mutex mutex_;
  PangoFontMap* fontMap_;
  PangoContext* context_;
};

// UTF-16 to UTF-8 into a reused buffer (unpaired surrogates become U+FFFD).
void appendUTF8(std::u16string_view text, std::string& out);

}  // namespace tq::detail
