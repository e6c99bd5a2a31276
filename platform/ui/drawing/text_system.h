// The process's one text system: a Pango font map and context shared by every measurement and
// drawing, a lock that serialises the work on them, and one reusable layout per thread.
//
// Pango's font map and context are not safe for concurrent use, so every caller takes lock() for the
// whole of its work with them (layouts included). The context lays out at 72 dpi with unhinted
// metrics, so sizes do not depend on the surface a text is later drawn on.
#pragma once

#include <pango/pangocairo.h>

#include <hb.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tq/platform/base/string.h"

namespace tq {
class Font;
}

namespace tq::detail {

// Shaped widths of texts, by text: shaping is deterministic for a font, so a width once found
// stands. Bounded: when full it starts again empty, so memory stays small whatever is measured.
class ShapedWidths {
 public:
  static constexpr std::size_t kCapacity = 4096;
  // Texts longer than this are not kept: their shaping dwarfs the lookup anyway.
  static constexpr std::size_t kLongestText = 256;

  bool find(std::u16string_view text, int64_t& units) const {
    auto it = widths_.find(text);
    if (it == widths_.end()) return false;
    units = it->second;
    return true;
  }
  void add(std::u16string_view text, int64_t units) {
    if (text.size() > kLongestText) return;
    if (widths_.size() >= kCapacity) widths_.clear();
    widths_.emplace(std::u16string(text), units);
  }
  void clear() { widths_.clear(); }
  std::size_t size() const { return widths_.size(); }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::u16string_view s) const noexcept { return std::hash<std::u16string_view>()(s); }
  };
  std::unordered_map<std::u16string, int64_t, Hash, std::equal_to<>> widths_;
};

// A font as shaped and drawn directly, bypassing layouts for simple one-line text: the Pango font the
// font map resolves, its HarfBuzz font (positions in Pango units, as Pango itself uses them), its
// Cairo font, and the widths of the texts measured in it so far.
struct ShapingFont {
  PangoFont* font = nullptr;
  hb_font_t* hb = nullptr;
  cairo_scaled_font_t* scaled = nullptr;
  mutable ShapedWidths widths;  // guarded by the text system's lock
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
  // Forgets every shaped width, so the next measurement of each text shapes it again (what a
  // process's first measurement costs). Caller holds lock().
  void forgetShapedWidths();

 private:
  TextSystem();
  std::mutex mutex_;
  PangoFontMap* fontMap_;
  PangoContext* context_;
};

// UTF-16 to UTF-8 into a reused buffer (unpaired surrogates become U+FFFD).
void appendUTF8(std::u16string_view text, std::string& out);

}  // namespace tq::detail
