// The model's text measurer on Pango.
#include "tq/platform/ui/pango_text_measurer.h"

#include "tq/platform/ui/string_drawing.h"

namespace tq {

Size PangoTextMeasurer::sizeOfString(const String& string, const FontDescriptor& font) const {
  return sizeOfText(string, Font::fontWithDescriptor(font));
}

double PangoTextMeasurer::defaultLineHeight(const FontDescriptor& font) const {
  return Font::fontWithDescriptor(font)->defaultLineHeight();
}

void PangoTextMeasurer::install() { TextMeasurer::setCurrent(std::make_shared<PangoTextMeasurer>()); }

}  // namespace tq
