// FontDescriptor: a font as an interface archive names it (a family name and a point size, or one
// of the platform's "meta" fonts such as the small system font). It is only a description: the text
// system (TextMeasurer and the drawing side) turns it into a real font.
#pragma once

#include "tq/platform/base/string.h"

namespace tq {

struct FontDescriptor {
  // Family or PostScript name as archived ("Helvetica", "Menlo-Regular"); "System" for the
  // system font families.
  String name = systemFamilyName();
  double size = 13.0;
  bool bold = false;
  // The archived meta font ("system", "smallSystem", "miniSystem", "menu", ...); nil when the
  // archive named a font directly.
  String metaFont;

  // The regular system font of the given size.
  static FontDescriptor systemFont(double size);
  // "System", shared (every descriptor made without a name holds the same string).
  static String systemFamilyName();
  // The font for a meta font name, with the platform's sizes (system 13, smallSystem 11,
  // miniSystem 9, label 10, menu 14, toolTip 11, message 13, titleBar 13 bold, palette 11, user 12,
  // userFixedPitch 10; "...Bold" variants bold). A size above 0 overrides the standard one. Unknown
  // names give the system font of 13 points (or the given size).
  static FontDescriptor fromMetaFont(const String& metaFont, double size = 0);

  friend bool operator==(const FontDescriptor&, const FontDescriptor&) = default;
};

}  // namespace tq
