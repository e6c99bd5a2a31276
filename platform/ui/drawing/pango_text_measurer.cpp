// The model's text measurer on Pango.
#include "tq/platform/ui/drawing/pango_text_measurer.h"

#include "tq/platform/ui/drawing/string_drawing.h"

namespace tq {

const TextMeasurer& TextMeasurer::textSystem() {
  static const PangoTextMeasurer measurer;
  return measurer;
}

Size PangoTextMeasurer::sizeOfString(const String& string, const FontDescriptor& font) const {
  return sizeOfText(string, Font::fontWithDescriptor(font));
}

Size PangoTextMeasurer::sizeOfString(const String& string, const FontDescriptor& font, double maxWidth) const {
  TextAttributes attributes;
  attributes.font = Font::fontWithDescriptor(font);
  attributes.lineBreakMode = LineBreakMode::ByWordWrapping;
  return sizeOfText(string, attributes, {maxWidth, 0});
}

double PangoTextMeasurer::defaultLineHeight(const FontDescriptor& font) const {
  return Font::fontWithDescriptor(font)->defaultLineHeight();
}

void PangoTextMeasurer::install() { TextMeasurer::setCurrent(std::make_shared<PangoTextMeasurer>()); }

}  // namespace tq
