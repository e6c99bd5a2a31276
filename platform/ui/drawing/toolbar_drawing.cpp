// Drawing a window's toolbar: the strip under the title bar with each shown item's image or view
// above its label, laid out from the left as the platform lays out a toolbar.
#include <algorithm>

#include "drawing_kit.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/toolbar.h"

namespace tq {

namespace {

using namespace drawing;

constexpr double kItemGap = 8;       // between items and at the strip's ends
constexpr double kLabelPadding = 6;  // on each side of a label wider than its icon
constexpr double kFixedSpace = 32;   // NSToolbarSpaceItem

struct Metrics {
  bool icons = true, labels = true;
  double icon = 32, labelHeight = 14, labelFont = 11;
};

Metrics metricsOf(const Toolbar& toolbar) {
  Metrics m;
  if (toolbar.sizeMode() == Toolbar::SizeMode::Small) m.icon = 24, m.labelFont = 10, m.labelHeight = 13;
  m.icons = toolbar.displayMode() != Toolbar::DisplayMode::LabelOnly;
  m.labels = toolbar.displayMode() != Toolbar::DisplayMode::IconOnly;
  return m;
}

bool isFlexibleSpace(const ToolbarItem& item) { return item.itemIdentifier() == String(u"NSToolbarFlexibleSpaceItem"); }
bool isSpace(const ToolbarItem& item) { return item.itemIdentifier() == String(u"NSToolbarSpaceItem"); }
bool isSeparator(const ToolbarItem& item) { return item.itemIdentifier() == String(u"NSToolbarSeparatorItem"); }

// A view item shows its view at the view's own size.
Size viewSize(const ToolbarItem& item) {
  const Rect f = item.view()->frame();
  return {f.w, f.h};
}

std::shared_ptr<Toolbar> visibleToolbar(const Window& window) {
  auto toolbar = std::dynamic_pointer_cast<Toolbar>(window.toolbar());
  return toolbar && toolbar->isVisible() ? toolbar : nullptr;
}

std::vector<std::shared_ptr<ToolbarItem>> shownItems(const Toolbar& toolbar) {
  return toolbar.defaultItems().empty() ? toolbar.allowedItems() : toolbar.defaultItems();
}

// The height of the image-or-view row: the icon size, or the tallest view when taller.
double iconRowHeight(const Toolbar& toolbar, const Metrics& m) {
  if (!m.icons) return 0;
  double h = m.icon;
  for (const auto& item : shownItems(toolbar)) {
    if (item && item->view()) h = std::max(h, viewSize(*item).height);
  }
  return h;
}

double labelWidth(const String& label, const Metrics& m) {
  if (!m.labels || label.length() == 0) return 0;
  return sizeOfText(label, Font::systemFontOfSize(m.labelFont)).width + 2 * kLabelPadding;
}

}  // namespace

double toolbarHeight(const Window& window) {
  auto toolbar = visibleToolbar(window);
  if (!toolbar) return 0;
  const Metrics m = metricsOf(*toolbar);
  return 4 + iconRowHeight(*toolbar, m) + (m.icons && m.labels ? 2 : 0) + (m.labels ? m.labelHeight : 0) + 5;
}

std::vector<ToolbarItemPlacement> toolbarItemPlacements(const Window& window, bool titleBar) {
  std::vector<ToolbarItemPlacement> out;
  auto toolbar = visibleToolbar(window);
  if (!toolbar) return out;
  const Metrics m = metricsOf(*toolbar);
  const double width = window.contentRect().w;
  const double top = titleBar && (window.styleMask() & NSWindowStyleMaskTitled) ? 22 : 0;
  const double height = toolbarHeight(window);
  // Widths first; flexible spaces share what is left.
  std::vector<double> widths;
  double used = kItemGap, flexible = 0;
  for (const auto& item : shownItems(*toolbar)) {
    if (!item) continue;
    double w = 0;
    if (isFlexibleSpace(*item)) {
      ++flexible;
    } else if (isSpace(*item)) {
      w = kFixedSpace;
    } else if (isSeparator(*item)) {
      w = 12;
    } else {
      const double content = item->view() ? viewSize(*item).width : (m.icons ? m.icon : 0);
      w = std::max(content, labelWidth(item->label(), m));
    }
    widths.push_back(w);
    used += w + kItemGap;
  }
  const double share = flexible > 0 ? std::max(0.0, width - used) / flexible : 0;
  double x = kItemGap;
  std::size_t i = 0;
  for (const auto& item : shownItems(*toolbar)) {
    if (!item) continue;
    const double w = isFlexibleSpace(*item) ? share : widths[i];
    out.push_back({item, {x, top, w, height}});
    x += w + kItemGap;
    ++i;
  }
  return out;
}

namespace drawing {

// Draws the toolbar of `window` in `strip` (the context's y runs up; the strip's top is its maxY).
void drawToolbar(const Window& window, Rect strip, const ViewDrawingOptions& options) {
  auto toolbar = visibleToolbar(window);
  if (!toolbar) return;
  const Metrics m = metricsOf(*toolbar);
  line({strip.x, strip.y + 0.5}, {strip.maxX(), strip.y + 0.5}, gray(settings().dark ? 0.35 : 0.75));
  const double iconRow = iconRowHeight(*toolbar, m);
  const double iconTop = strip.maxY() - 4;
  const double labelBottom = strip.y + 5;
  for (const auto& [item, placed] : toolbarItemPlacements(window, false)) {
    const Rect area{placed.x, strip.y, placed.w, strip.h};
    if (isFlexibleSpace(*item) || isSpace(*item)) continue;
    if (isSeparator(*item)) {
      line({area.x + area.w / 2, area.y + 6}, {area.x + area.w / 2, area.maxY() - 6}, edgeColor());
      continue;
    }
    if (m.icons) {
      if (const auto& view = item->view()) {
        const Size s = viewSize(*item);
        const Rect target{area.x + (area.w - s.width) / 2, iconTop - iconRow + (iconRow - s.height) / 2, s.width, s.height};
        // The view is drawn where the item stands, whatever its archived origin.
        GraphicsContext::saveGraphicsState();
        AffineTransform t;
        t.translateXBy(target.x - view->frame().x, target.y - view->frame().y);
        t.concat();
        drawViewHierarchy(*view, false, options);
        GraphicsContext::restoreGraphicsState();
      } else if (!item->imageName().isNil()) {
        const Rect icon{area.x + (area.w - m.icon) / 2, iconTop - iconRow + (iconRow - m.icon) / 2, m.icon, m.icon};
        namedImage(item->imageName(), icon);
      }
    }
    if (m.labels && item->label().length() > 0) {
      text(item->label(), {area.x, labelBottom, area.w, m.labelHeight}, FontDescriptor::systemFont(m.labelFont),
           labelColor(item->isEnabled()), TextAlignment::Center, LineBreakMode::ByTruncatingTail);
    }
  }
}

}  // namespace drawing

}  // namespace tq
