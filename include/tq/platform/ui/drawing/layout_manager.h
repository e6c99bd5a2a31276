// LayoutManager: the text system's answer to "how high is a line of this font".
//
// Making one is cheap and allocates no text system of its own: every layout manager measures with
// the process's shared font map and context.
#pragma once

#include "tq/platform/base/object.h"
#include "tq/platform/ui/drawing/font.h"

namespace tq {

class LayoutManager : public Object {
 public:
  // The default line height of a font: Font::defaultLineHeight(), i.e. the font's ascender,
  // descender and line gap as Pango reports them, each rounded to whole points, summed. A nil font
  // answers for the system font.
  double defaultLineHeightForFont(const FontRef& font) const;
};

}  // namespace tq
