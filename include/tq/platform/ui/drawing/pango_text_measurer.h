// PangoTextMeasurer: the interface model's TextMeasurer answered by the real text system, so that
// cellSize and sizeToFit measure what drawing draws.
//
// It is the model's measurer by default; install() makes it current again after another measurer
// was registered.
#pragma once

#include "tq/platform/ui/model/text_measurer.h"

namespace tq {

class PangoTextMeasurer : public TextMeasurer {
 public:
  // The natural size of the string in the font (sizeOfText without wrapping).
  Size sizeOfString(const String& string, const FontDescriptor& font) const override;
  // The size wrapped by words to maxWidth, as sizeOfText with ByWordWrapping lays it out (a
  // maxWidth of 0 or less does not wrap).
  Size sizeOfString(const String& string, const FontDescriptor& font, double maxWidth) const override;
  // Font::defaultLineHeight() of the font.
  double defaultLineHeight(const FontDescriptor& font) const override;

  // Makes a PangoTextMeasurer the model's current measurer.
  static void install();
};

}  // namespace tq
