// PangoTextMeasurer: the interface model's TextMeasurer answered by the real text system, so that
// cellSize and sizeToFit measure what drawing draws.
//
// Call PangoTextMeasurer::install() once at start-up (tools and tests that draw do); the model then
// measures through it.
#pragma once

#include "tq/platform/ui/text_measurer.h"

namespace tq {

class PangoTextMeasurer : public TextMeasurer {
 public:
  // The natural size of the string in the font (sizeOfText without wrapping).
  Size sizeOfString(const String& string, const FontDescriptor& font) const override;
  // Font::defaultLineHeight() of the font.
  double defaultLineHeight(const FontDescriptor& font) const override;

  // Makes a PangoTextMeasurer the model's current measurer.
  static void install();
};

}  // namespace tq
