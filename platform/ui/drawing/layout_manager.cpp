// Line heights for the cells, from the shared text system.
#include "tq/platform/ui/drawing/layout_manager.h"

namespace tq {

double LayoutManager::defaultLineHeightForFont(const FontRef& font) const {
  return (font ? font : Font::systemFontOfSize(0))->defaultLineHeight();
}

}  // namespace tq
