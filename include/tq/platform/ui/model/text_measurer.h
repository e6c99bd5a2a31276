// TextMeasurer: the one question the model asks of the text system, the natural size of a
// string in a font, plus a font's default line height.
//
// The model (Cell::cellSize, Control::sizeToFit) measures through TextMeasurer::current(): the real
// text system (PangoTextMeasurer, which measures what drawing draws) unless another measurer was
// registered with setCurrent(). EstimatingTextMeasurer answers from average glyph advances, for
// hosts and tests that want sizes independent of the installed fonts.
//
// Threads: measuring runs on the interface (main) thread; setCurrent() is not synchronised with
// measuring and is meant to be called once at start-up.
#pragma once

#include <memory>

#include "tq/platform/base/string.h"
#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

class TextMeasurer {
 public:
  virtual ~TextMeasurer();

  // The size of the string laid out on one line (explicit line breaks start new lines) in the font:
  // width of the widest line, height of all lines. Nil and empty strings give width 0 and the height
  // of one line.
  virtual Size sizeOfString(const String& string, const FontDescriptor& font) const = 0;
  // The size of the string laid out in lines at most maxWidth wide, broken at word boundaries (and
  // inside words longer than a line). The default estimates from sizeOfString: as many lines as the
  // single-line width needs widths, each defaultLineHeight high. Real text systems override it.
  virtual Size sizeOfString(const String& string, const FontDescriptor& font, double maxWidth) const;
  // The distance from one baseline to the next for the font.
  virtual double defaultLineHeight(const FontDescriptor& font) const = 0;

  // The measurer in use: the registered one, else the text system (PangoTextMeasurer).
  static const TextMeasurer& current();
  // Registers the measurer the model uses from now on; nullptr brings the text system back.
  static void setCurrent(std::shared_ptr<const TextMeasurer> measurer);
  // The text system's measurer (a PangoTextMeasurer), defined with the drawing.
  static const TextMeasurer& textSystem();
};

// The fallback: each UTF-16 unit advances by 0.55 x the font size (0.6 for bold), a space by
// 0.28 x, wide (CJK) characters by 1.0 x; a line is 1.2 x the font size high (rounded up).
class EstimatingTextMeasurer : public TextMeasurer {
 public:
  using TextMeasurer::sizeOfString;
  Size sizeOfString(const String& string, const FontDescriptor& font) const override;
  double defaultLineHeight(const FontDescriptor& font) const override;
};

}  // namespace tq
