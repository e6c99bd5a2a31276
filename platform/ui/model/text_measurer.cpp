// The registered text measurer (the text system by default) and the estimating measurer. The text
// system's own measurer comes with the drawing (drawing/pango_text_measurer.cpp).
#include "tq/platform/ui/model/text_measurer.h"


#include <algorithm>
#include <cmath>

namespace tq {

namespace {

std::shared_ptr<const TextMeasurer>& registered() {
  static std::shared_ptr<const TextMeasurer> measurer;
  return measurer;
}

bool isWide(char16_t c) {
  return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF) || (c >= 0xAC00 && c <= 0xD7A3) ||
         (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
         (c >= 0xFFE0 && c <= 0xFFE6);
}

}  // namespace

TextMeasurer::~TextMeasurer() = default;

const TextMeasurer& TextMeasurer::current() {
  // The real text system unless a host or a test registered another measurer.
  const auto& m = registered();
  return m ? *m : textSystem();
}

void TextMeasurer::setCurrent(std::shared_ptr<const TextMeasurer> measurer) { registered() = std::move(measurer); }

Size TextMeasurer::sizeOfString(const String& string, const FontDescriptor& font, double maxWidth) const {
  const Size line = sizeOfString(string, font);
  if (!(maxWidth > 0) || line.width <= maxWidth) return line;
  const double lines = std::ceil(line.width / maxWidth);
  return {maxWidth, std::max(line.height, lines * defaultLineHeight(font))};
}

double EstimatingTextMeasurer::defaultLineHeight(const FontDescriptor& font) const {
  return std::ceil(font.size * 1.2);
}

Size EstimatingTextMeasurer::sizeOfString(const String& string, const FontDescriptor& font) const {
  const double advance = font.size * (font.bold ? 0.6 : 0.55);
  double widest = 0, line = 0;
  int lines = 1;
  for (char16_t c : string.view()) {
    if (c == u'\n' || c == u'\r' || c == 0x2028 || c == 0x2029) {
      widest = std::max(widest, line);
      line = 0;
      ++lines;
      continue;
    }
    if (c >= 0xDC00 && c <= 0xDFFF) continue;  // the second half of a pair adds nothing
    if (c == u' ' || c == u'\t') {
      line += font.size * 0.28;
    } else if (isWide(c)) {
      line += font.size;
    } else {
      line += advance;
    }
  }
  widest = std::max(widest, line);
  return {std::ceil(widest), defaultLineHeight(font) * lines};
}

}  // namespace tq
