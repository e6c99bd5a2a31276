// Text measuring and drawing on the shared Pango context with the calling thread's reused layout.
#include "tq/platform/ui/drawing/string_drawing.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <vector>

#include "text_system.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/graphics_context.h"

namespace tq {

namespace {

// Pango widths are ints in 1/1024 points; wider bounds than this count as unbounded.
constexpr double kMaxWidth = 1.0e6;
// Texts longer than this are measured in part (see measure()).
constexpr std::size_t kLongestMeasuredText = 8192;

bool wraps(LineBreakMode mode) {
  return mode == LineBreakMode::ByWordWrapping || mode == LineBreakMode::ByCharWrapping;
}

PangoEllipsizeMode ellipsizeFor(LineBreakMode mode) {
  switch (mode) {
    case LineBreakMode::ByTruncatingHead: return PANGO_ELLIPSIZE_START;
    case LineBreakMode::ByTruncatingTail: return PANGO_ELLIPSIZE_END;
    case LineBreakMode::ByTruncatingMiddle: return PANGO_ELLIPSIZE_MIDDLE;
    default: return PANGO_ELLIPSIZE_NONE;
  }
}

PangoAlignment pangoAlignmentFor(TextAlignment alignment) {
  switch (alignment) {
    case TextAlignment::Right: return PANGO_ALIGN_RIGHT;
    case TextAlignment::Center: return PANGO_ALIGN_CENTER;
    default: return PANGO_ALIGN_LEFT;
  }
}

// The length of the first line of UTF-8 text (up to CR, LF, U+2028 or U+2029).
std::size_t firstLineLength(const std::string& s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    const char c = s[i];
    if (c == '\n' || c == '\r') return i;
    if (c == '\xE2' && i + 2 < s.size() && s[i + 1] == '\x80' && (s[i + 2] == '\xA8' || s[i + 2] == '\xA9')) {
      return i;
    }
  }
  return s.size();
}

double usableWidth(double width) { return width > 0 && width < kMaxWidth ? width : 0; }

// The end of the first line of UTF-16 text (the same breaks as firstLineLength).
std::size_t firstLineEnd(std::u16string_view s) {
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == u'\n' || s[i] == u'\r' || s[i] == 0x2028 || s[i] == 0x2029) return i;
  }
  return s.size();
}

// A cut that does not split a surrogate pair.
std::size_t pairSafe(std::u16string_view s, std::size_t at) {
  return at > 0 && at < s.size() && isLowSurrogate(s[at]) && isHighSurrogate(s[at - 1]) ? at - 1 : at;
}

// The part of a text that can show in an area `width` points wide and `height` high (one line for
// the one-line modes), so that a text of millions of characters is never shaped whole. No character
// that shows advances less than an eighth of the font's size; a line holds twice as many code units
// as such characters (marks, surrogate pairs) and some more. The one-line modes keep the first
// line: its start, its end for a head truncation, or both for a middle one.
String visiblePart(const String& text, const Font& font, LineBreakMode mode, double width, double height) {
  const std::u16string_view v = text.view();
  const double w = usableWidth(width);
  if (w <= 0) return text;
  const double perLine = 2 * std::ceil(w / std::max(font.pointSize() / 8, 0.25)) + 64;
  const double lines = wraps(mode) ? std::ceil(std::max(height, 0.0) / font.defaultLineHeight()) + 1 : 1;
  if (!(lines * perLine < static_cast<double>(v.size()))) return text;
  const auto keep = static_cast<std::size_t>(lines * perLine);
  if (wraps(mode)) return String(v.substr(0, pairSafe(v, keep)));
  const std::u16string_view line = v.substr(0, firstLineEnd(v));
  if (line.size() <= keep) return String(line);
  const std::size_t tail = pairSafe(line, line.size() - keep);
  switch (mode) {
    case LineBreakMode::ByTruncatingHead: return String(line.substr(tail));
    case LineBreakMode::ByTruncatingMiddle: {
      if (line.size() <= 2 * keep) return String(line);
      std::u16string both(line.substr(0, pairSafe(line, keep)));
      both += line.substr(tail);
      return String(both);
    }
    default: return String(line.substr(0, pairSafe(line, keep)));
  }
}

// Sets the thread's layout up for a text; the caller holds the text system's lock. The text is only
// handed to Pango again when it changed, so measuring then drawing one text lays it out once.
PangoLayout* prepareLayout(const String& text, const Font& font, LineBreakMode mode, TextAlignment alignment,
                           double width) {
  thread_local std::string current;
  thread_local std::string scratch;
  thread_local bool hasText = false;

  PangoLayout* layout = detail::TextSystem::shared().threadLayout();
  scratch.clear();
  detail::appendUTF8(text.view(), scratch);
  if (!wraps(mode)) scratch.resize(firstLineLength(scratch));
  if (!hasText || scratch != current) {
    pango_layout_set_text(layout, scratch.data(), static_cast<int>(scratch.size()));
    current.swap(scratch);
    hasText = true;
  }
  pango_layout_set_font_description(layout, font.pangoFontDescription());

  const double w = usableWidth(width);
  const bool bounded = w > 0 && (wraps(mode) || ellipsizeFor(mode) != PANGO_ELLIPSIZE_NONE);
  pango_layout_set_width(layout, bounded ? static_cast<int>(std::floor(w * PANGO_SCALE)) : -1);
  pango_layout_set_wrap(layout, mode == LineBreakMode::ByCharWrapping ? PANGO_WRAP_CHAR : PANGO_WRAP_WORD_CHAR);
  pango_layout_set_ellipsize(layout, bounded ? ellipsizeFor(mode) : PANGO_ELLIPSIZE_NONE);
  pango_layout_set_alignment(layout, pangoAlignmentFor(alignment));
  pango_layout_set_justify(layout, alignment == TextAlignment::Justified);
  return layout;
}

double lineWidth(PangoLayoutLine* line) {
  PangoRectangle logical;
  pango_layout_line_get_extents(line, nullptr, &logical);
  return logical.width / double(PANGO_SCALE);
}

// Text that Pango lays out as a single run of one font: printable Latin without controls, tabs, line
// breaks or soft hyphens. Such text is shaped directly, skipping the layout machinery.
bool isSimpleText(std::u16string_view text) {
  for (char16_t c : text) {
    if (c < 0x20 || (c > 0x7E && c < 0xA0) || c == 0xAD || c > 0x24F) return false;
  }
  return true;
}

// Shapes simple text with the font's HarfBuzz font the way Pango shapes one item, into the thread's
// buffer; `units` is the advance in Pango units. False when the font lacks a character (Pango would
// fall back to another font) or the text is not simple. Caller holds the lock.
bool shapeSimpleText(std::u16string_view text, const detail::ShapingFont& font, hb_buffer_t* buffer,
                     int64_t& units) {
  if (!font.hb || !font.scaled || !isSimpleText(text)) return false;
  for (char16_t c : text) {
    hb_codepoint_t glyph;
    if (!hb_font_get_nominal_glyph(font.hb, c, &glyph)) return false;
  }
  static const hb_language_t language = hb_language_from_string(
      pango_language_to_string(pango_context_get_language(detail::TextSystem::shared().context())), -1);
  hb_buffer_clear_contents(buffer);
  hb_buffer_add_utf16(buffer, reinterpret_cast<const uint16_t*>(text.data()), static_cast<int>(text.size()), 0,
                      static_cast<int>(text.size()));
  hb_buffer_set_direction(buffer, HB_DIRECTION_LTR);
  hb_buffer_set_script(buffer, HB_SCRIPT_LATIN);
  hb_buffer_set_language(buffer, language);
  hb_buffer_set_flags(buffer, hb_buffer_flags_t(HB_BUFFER_FLAG_BOT | HB_BUFFER_FLAG_EOT));
  hb_shape(font.hb, buffer, nullptr, 0);
  unsigned count = 0;
  const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer, &count);
  units = 0;
  for (unsigned i = 0; i < count; ++i) units += positions[i].x_advance;
  return true;
}

// Does a line `units` wide stay on one line, unshortened, in bounds of `width` points (Pango's own
// test: wider than the layout width breaks or ellipsizes)?
bool fitsOneLine(int64_t units, double width) {
  const double w = usableWidth(width);
  return w <= 0 || units <= static_cast<int64_t>(std::floor(w * PANGO_SCALE));
}

FontRef fontOrSystem(const FontRef& font) { return font ? font : Font::systemFontOfSize(0); }

// --- characters no font covers ----------------------------------------------------------------

std::mutex handlerMutex;
std::function<void(const UncoveredCharacters&)> uncoveredHandler;  // guarded by handlerMutex
std::atomic<bool> hasUncoveredHandler{false};

// The characters a laid-out layout shows as boxes: Pango marks a glyph of a character no font has
// with the unknown flag, the character's code in the rest of the glyph. Caller holds the lock.
std::vector<UncoveredCharacters> collectUncovered(PangoLayout* layout, const String& text, const Font& font) {
  std::vector<UncoveredCharacters> found;
  if (pango_layout_get_unknown_glyphs_count(layout) == 0) return found;
  std::vector<std::u32string> characters;
  PangoLayoutIter* iter = pango_layout_get_iter(layout);
  do {
    PangoLayoutRun* run = pango_layout_iter_get_run_readonly(iter);
    for (int i = 0; run && i < run->glyphs->num_glyphs; ++i) {
      const PangoGlyph glyph = run->glyphs->glyphs[i].glyph;
      if (!(glyph & PANGO_GLYPH_UNKNOWN_FLAG)) continue;
      const gunichar c = glyph & ~PANGO_GLYPH_UNKNOWN_FLAG;
      const uint32_t tag = g_unicode_script_to_iso15924(g_unichar_get_script(c));
      const char code[4] = {char(tag >> 24), char(tag >> 16), char(tag >> 8), char(tag)};
      const String script = String::fromUTF8(std::string_view(code, 4));
      auto it = std::find_if(found.begin(), found.end(), [&](const auto& f) { return f.script == script; });
      if (it == found.end()) {
        found.push_back({font.fontName(), font.pointSize(), script, String(), text});
        characters.emplace_back();
        it = found.end() - 1;
      }
      std::u32string& seen = characters[static_cast<std::size_t>(it - found.begin())];
      if (seen.find(c) == std::u32string::npos) seen.push_back(c);
    }
  } while (pango_layout_iter_next_run(iter));
  pango_layout_iter_free(iter);
  for (std::size_t i = 0; i < found.size(); ++i) {
    std::string utf8;
    for (char32_t c : characters[i]) {
      char buffer[6];
      utf8.append(buffer, static_cast<std::size_t>(g_unichar_to_utf8(c, buffer)));
    }
    found[i].characters = String::fromUTF8(utf8);
  }
  return found;
}

// Tells the handler, if any, of what collectUncovered found; called without the text system's lock.
void reportUncovered(const std::vector<UncoveredCharacters>& found) {
  if (found.empty()) return;
  std::function<void(const UncoveredCharacters&)> handler;
  {
    std::lock_guard<std::mutex> guard(handlerMutex);
    handler = uncoveredHandler;
  }
  if (!handler) return;
  for (const auto& f : found) handler(f);
}

struct Measured {
  double width = 0;
  UInteger lines = 1;
};

Measured measureText(const String& text, const Font& font, LineBreakMode mode, double boundsWidth);

// The explicit lines of a text (as Pango breaks paragraphs: CR LF, LF, CR, U+2028, U+2029): their
// number and the longest one's length in code units.
std::pair<UInteger, std::size_t> explicitLines(std::u16string_view v) {
  UInteger lines = 1;
  std::size_t longest = 0, start = 0;
  for (std::size_t i = 0; i < v.size(); ++i) {
    const char16_t c = v[i];
    if (c != u'\n' && c != u'\r' && c != 0x2028 && c != 0x2029) continue;
    longest = std::max(longest, i - start);
    if (c == u'\r' && i + 1 < v.size() && v[i + 1] == u'\n') ++i;
    start = i + 1;
    ++lines;
  }
  return {lines, std::max(longest, v.size() - start)};
}

// A text of more than kLongestMeasuredText code units is measured on that many: the text system
// takes time growing with the square of a long word's length to break it into lines, and lengths
// past a million points are beyond it. The rest is taken in proportion: the lines of a wrapping
// text to its length, widths to the length of the longest line.
Measured measure(const String& whole, const Font& font, LineBreakMode mode, double boundsWidth) {
  // One line in a bounded width measures at most that width: what cannot show need not be shaped.
  const String text = wraps(mode) ? whole : visiblePart(whole, font, mode, boundsWidth, 0);
  const std::u16string_view v = text.view();
  if (v.size() <= kLongestMeasuredText) return measureText(text, font, mode, boundsWidth);
  const std::size_t part = pairSafe(v, kLongestMeasuredText);
  const std::u16string_view head = v.substr(0, part);
  Measured m = measureText(String(head), font, mode, boundsWidth);
  const double w = usableWidth(boundsWidth);
  if (wraps(mode) && w > 0) {
    m.lines = static_cast<UInteger>(std::ceil(static_cast<double>(m.lines) * static_cast<double>(v.size()) / part));
    return m;
  }
  const auto [lines, longest] = explicitLines(wraps(mode) ? v : v.substr(0, firstLineEnd(v)));
  const std::size_t headLongest = explicitLines(wraps(mode) ? head : head.substr(0, firstLineEnd(head))).second;
  if (wraps(mode)) m.lines = lines;
  if (longest > headLongest && headLongest > 0) {
    m.width = std::ceil(m.width * static_cast<double>(longest) / static_cast<double>(headLongest));
    if (w > 0) m.width = std::min(m.width, std::ceil(w - 1e-6));
  }
  return m;
}

Measured measureText(const String& text, const Font& font, LineBreakMode mode, double boundsWidth) {
  Measured m;
  if (text.length() == 0) return m;
  auto& system = detail::TextSystem::shared();
  auto guard = system.lock();
  const double w = usableWidth(boundsWidth);
  int64_t units = 0;
  const detail::ShapingFont& shaping = system.shapingFont(font);
  bool simple = shaping.widths.find(text.view(), units);
  if (!simple && shapeSimpleText(text.view(), shaping, system.threadBuffer(), units)) {
    shaping.widths.add(text.view(), units);
    simple = true;
  }
  if (simple && (fitsOneLine(units, boundsWidth) || mode == LineBreakMode::ByClipping)) {
    m.width = std::ceil(units / double(PANGO_SCALE) - 1e-6);
    if (w > 0) m.width = std::min(m.width, std::ceil(w - 1e-6));
    return m;
  }
  PangoLayout* layout = prepareLayout(text, font, mode, TextAlignment::Left, boundsWidth);
  std::vector<UncoveredCharacters> uncovered;
  if (hasUncoveredHandler) uncovered = collectUncovered(layout, text, font);
  if (wraps(mode)) {
    m.lines = std::max(1, pango_layout_get_line_count(layout));
    for (GSList* l = pango_layout_get_lines_readonly(layout); l; l = l->next) {
      m.width = std::max(m.width, lineWidth(static_cast<PangoLayoutLine*>(l->data)));
    }
  } else {
    m.width = lineWidth(pango_layout_get_line_readonly(layout, 0));
  }
  // Rounded up to whole points; a hair of float noise does not cost a point.
  m.width = std::ceil(m.width - 1e-6);
  if (w > 0) m.width = std::min(m.width, std::ceil(w - 1e-6));
  guard.unlock();
  reportUncovered(uncovered);
  return m;
}

}  // namespace

Size sizeOfText(const String& text, const TextAttributes& attributes, Size bounds) {
  const FontRef font = fontOrSystem(attributes.font);
  const Measured m = measure(text, *font, attributes.lineBreakMode, bounds.width);
  return {m.width, static_cast<double>(m.lines) * font->defaultLineHeight()};
}

Size sizeOfText(const String& text, const FontRef& font) {
  TextAttributes attributes;
  attributes.font = font;
  return sizeOfText(text, attributes, {0, 0});
}

UInteger numberOfLinesOfText(const String& text, const TextAttributes& attributes, Size bounds) {
  return measure(text, *fontOrSystem(attributes.font), attributes.lineBreakMode, bounds.width).lines;
}

void drawText(const String& text, Rect rect, const TextAttributes& attributes) {
  auto context = GraphicsContext::currentContext();
  if (!context) return;
  const FontRef font = fontOrSystem(attributes.font);
  const ColorRef color = attributes.color ? attributes.color : Color::blackColor();
  if (auto recorder = context->recorder()) {
    DrawingRecord r;
    r.kind = DrawingRecord::Kind::DrawText;
    r.rect = rect;
    r.text = text;
    r.fontName = font->fontName();
    r.fontSize = font->pointSize();
    r.lineBreakMode = static_cast<UInteger>(attributes.lineBreakMode);
    r.alignment = static_cast<UInteger>(attributes.alignment);
    r.color = color;
    r.operation = NSCompositeSourceOver;
    r.transform = context->currentTransform();
    recorder->add(std::move(r));
  }
  if (text.length() == 0 || rect.isEmpty()) return;
  const String shown = visiblePart(text, *font, attributes.lineBreakMode, rect.w, rect.h);

  cairo_t* cr = context->cairo();
  const bool flipped = context->userSpaceIsFlipped();
  const double lineHeight = font->defaultLineHeight();
  const double baseline = font->baselineOffset();
  const LineBreakMode mode = attributes.lineBreakMode;

  auto& system = detail::TextSystem::shared();
  auto guard = system.lock();
  cairo_save(cr);
  context->clipToRect(rect);
  // A local space with its origin at the rectangle's top left and y downwards, so the text is upright.
  if (flipped) {
    cairo_translate(cr, rect.x, rect.y);
  } else {
    cairo_translate(cr, rect.x, rect.maxY());
    cairo_scale(cr, 1, -1);
  }
  cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
  context->setSourceColor(*color);

  auto alignedX = [&](double lineWidth) {
    const double slack = rect.w - lineWidth;
    if (attributes.alignment == TextAlignment::Center) return slack / 2;
    if (attributes.alignment == TextAlignment::Right) return slack;
    return 0.0;
  };

  const detail::ShapingFont& shaping = system.shapingFont(*font);
  hb_buffer_t* buffer = system.threadBuffer();
  int64_t units = 0;
  if (shapeSimpleText(shown.view(), shaping, buffer, units) &&
      (fitsOneLine(units, rect.w) || mode == LineBreakMode::ByClipping)) {
    // One line of one font: draw the shaped glyphs as they are.
    thread_local std::vector<cairo_glyph_t> glyphs;
    unsigned count = 0;
    const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer, &count);
    const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer, &count);
    glyphs.resize(count);
    double pen = alignedX(units / double(PANGO_SCALE));
    for (unsigned i = 0; i < count; ++i) {
      glyphs[i].index = infos[i].codepoint;
      glyphs[i].x = pen + positions[i].x_offset / double(PANGO_SCALE);
      glyphs[i].y = baseline - positions[i].y_offset / double(PANGO_SCALE);
      pen += positions[i].x_advance / double(PANGO_SCALE);
    }
    cairo_set_scaled_font(cr, shaping.scaled);
    cairo_show_glyphs(cr, glyphs.data(), static_cast<int>(count));
    cairo_restore(cr);
    return;
  }

  PangoLayout* layout = prepareLayout(shown, *font, mode, attributes.alignment, rect.w);
  std::vector<UncoveredCharacters> uncovered;
  if (hasUncoveredHandler) uncovered = collectUncovered(layout, shown, *font);
  const bool bounded = pango_layout_get_width(layout) >= 0;
  PangoLayoutIter* iter = pango_layout_get_iter(layout);
  int index = 0;
  do {
    const double top = index * lineHeight;
    if (top >= rect.h) break;
    PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iter);
    PangoRectangle logical;
    pango_layout_iter_get_line_extents(iter, nullptr, &logical);
    double x = logical.x / double(PANGO_SCALE);
    // Unwrapped lines are aligned here: Pango has no width to align them in.
    if (!bounded) x = alignedX(logical.width / double(PANGO_SCALE));
    cairo_move_to(cr, x, top + baseline);
    pango_cairo_show_layout_line(cr, line);
    ++index;
    if (!wraps(mode)) break;
  } while (pango_layout_iter_next_line(iter));
  pango_layout_iter_free(iter);
  cairo_restore(cr);
  guard.unlock();
  reportUncovered(uncovered);
}

std::vector<UncoveredCharacters> uncoveredCharacters(const String& text, const FontRef& font) {
  if (text.length() == 0) return {};
  const FontRef f = fontOrSystem(font);
  auto guard = detail::TextSystem::shared().lock();
  return collectUncovered(prepareLayout(text, *f, LineBreakMode::ByWordWrapping, TextAlignment::Left, 0), text, *f);
}

void setUncoveredCharactersHandler(std::function<void(const UncoveredCharacters&)> handler) {
  std::lock_guard<std::mutex> guard(handlerMutex);
  hasUncoveredHandler = static_cast<bool>(handler);
  uncoveredHandler = std::move(handler);
}

}  // namespace tq
