// Drawing the model's views: dispatch to the drawing of each family, boxes, tab views, tables,
// scroll views, text and image views, and whole windows.
#include "tq/platform/ui/drawing/view_drawing.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <typeinfo>

#include "drawing_kit.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/token_field.h"

namespace tq {

namespace {

constexpr double kTitleBarHeight = 22;

using namespace drawing;

// --- cells ------------------------------------------------------------------------------------

// Text that asks for the standard label colours follows the panel's appearance.
ColorRef textColorOf(const TextFieldCell& cell) {
  const auto& c = cell.textColor();
  if (!c || (c->isNamed() && (c->name == String(u"controlTextColor") || c->name == String(u"labelColor") ||
                              c->name == String(u"textColor")))) {
    return labelColor(cell.isEnabled());
  }
  return cell.isEnabled() ? Color::colorWithDescriptor(*c) : labelColor(false);
}

// A field's face: its own colour, except that the standard backgrounds follow the panel.
ColorRef fieldBackground(const TextFieldCell& cell) {
  const auto& c = cell.backgroundColor();
  if (!c || (settings().dark && c->isNamed() && c->catalog == String(u"System"))) return faceColor();
  return Color::colorWithDescriptor(*c);
}

void drawTextFieldCell(const TextFieldCell& cell, Rect r, bool search) {
  Rect content = r;
  if (search) {
    rounded(r, std::min(r.h / 2, 6.0), faceColor(), edgeColor());
    circle({r.x + 10, r.y + r.h / 2}, 4, nullptr, gray(0.5));
    content = inset({r.x + 16, r.y, r.w - 16, r.h}, 3, 2);
  } else if (cell.isBezeled()) {
    fill(r, fieldBackground(cell));
    rounded(r, 0, nullptr, settings().dark ? edgeColor() : gray(0.68));
    content = inset(r, 3, 2);
  } else if (cell.isBordered()) {
    fill(r, fieldBackground(cell));
    rounded(r, 0, nullptr, settings().dark ? edgeColor() : Color::blackColor());
    content = inset(r, 3, 2);
  } else {
    if (cell.drawsBackground() && cell.backgroundColor()) fill(r, Color::colorWithDescriptor(*cell.backgroundColor()));
    content = inset(r, 2, 0);
  }
  String value = cell.stringValue();
  ColorRef color = textColorOf(cell);
  if (value.length() == 0) {
    value = cell.placeholderString();
    color = gray(0.6);
  }
  const LineBreakMode mode = cell.wraps() ? LineBreakMode::ByWordWrapping : cell.lineBreakMode();
  // Field text starts at the top of the field; one-line labels centre in their frame.
  const bool oneLine = !cell.wraps() || content.h < 2 * Font::fontWithDescriptor(cell.font())->defaultLineHeight();
  if (oneLine) {
    text(value, content, cell.font(), color, cell.alignment(),
         mode == LineBreakMode::ByWordWrapping ? LineBreakMode::ByClipping : mode, true);
  } else {
    text(value, content, cell.font(), color, cell.alignment(), mode, false);
  }
}

// A combo box: its field, with the button that opens the list at its right end (a down arrow on a
// control face), as tall as the field.
void drawComboBoxCell(const TextFieldCell& cell, Rect r) {
  const Rect body = centredVertically(r, std::min(r.h, 23.0));
  const double side = std::min(body.w / 2, std::max(15.0, std::min(body.h, 20.0)));
  drawTextFieldCell(cell, {body.x, body.y, body.w - side + 1, body.h}, false);
  const Rect button{body.maxX() - side, body.y, side, body.h};
  rounded(button, std::min(4.0, side / 4), faceColor(), edgeColor());
  triangle({button.x + button.w / 2, button.y + button.h / 2}, std::min(3.5, side / 5), false, labelColor(cell.isEnabled()));
}

// A token field: its face as a field's, then each token a rounded label from the left, as many as
// the field's width holds. Without tokens it is an empty field (with its placeholder).
void drawTokenFieldCell(const TokenFieldCell& cell, Rect r) {
  const std::vector<String> tokens = cell.tokens();
  if (tokens.empty()) return drawTextFieldCell(cell, r, false);
  if (cell.isBezeled() || cell.isBordered()) {
    fill(r, fieldBackground(cell));
    rounded(r, 0, nullptr, settings().dark ? edgeColor() : gray(0.68));
  }
  const FontRef font = Font::fontWithDescriptor(cell.font());
  TextAttributes a;
  a.font = font;
  const double h = std::min(r.h - 4, std::ceil(font->defaultLineHeight()) + 2);
  const ColorRef face = settings().dark ? rgb(0.25, 0.35, 0.55) : rgb(0.86, 0.91, 1.0);
  const ColorRef edge = settings().dark ? rgb(0.4, 0.5, 0.75) : rgb(0.62, 0.73, 0.95);
  double x = r.x + 3;
  for (const String& token : tokens) {
    const double w = std::min(sizeOfText(token, a, {0, 0}).width + 10, r.maxX() - 3 - x);
    if (w < 12) break;
    const Rect t{x, r.y + (r.h - h) / 2, w, h};
    rounded(t, std::min(4.0, h / 2), face, edge);
    text(token, inset(t, 5, 0), cell.font(), textColorOf(cell), TextAlignment::Natural, LineBreakMode::ByTruncatingTail);
    x += w + 3;
  }
}

// A cell of a class the platform does not define (the library's cells, a host's subclass) may
// draw differently: it draws itself.
bool isPlatformTextFieldCell(const TextFieldCell& cell) {
  const std::type_info& type = typeid(cell);
  return type == typeid(TextFieldCell) || type == typeid(SearchFieldCell) || type == typeid(TableHeaderCell) ||
         type == typeid(ComboBoxCell) || type == typeid(TokenFieldCell);
}

// Draws any cell in a frame of the current user space.
void drawCell(const Cell& cell, Rect r, const View* controlView) {
  if (auto button = dynamic_cast<const ButtonCell*>(&cell)) return drawButtonCell(*button, r);
  if (auto tokens = dynamic_cast<const TokenFieldCell*>(&cell); tokens && typeid(cell) == typeid(TokenFieldCell)) {
    return drawTokenFieldCell(*tokens, r);
  }
  if (auto field = dynamic_cast<const TextFieldCell*>(&cell)) {
    if (!isPlatformTextFieldCell(*field)) {
      // Drawing adjusts the cell's own line breaking, as it does on screen.
      const_cast<TextFieldCell*>(field)->drawWithFrame(r, const_cast<View*>(controlView));
      return;
    }
    if (cell.className() == String(u"NSComboBoxCell") ||
        (controlView && controlView->className() == String(u"NSComboBox"))) {
      return drawComboBoxCell(*field, r);
    }
    return drawTextFieldCell(*field, r, dynamic_cast<const SearchFieldCell*>(&cell) != nullptr);
  }
  if (dynamic_cast<const SegmentedCell*>(&cell)) return drawSegmentedCell(cell, r);
  const String name = cell.className();
  if (drawValueControl(controlView ? controlView->className() : name, &cell, controlView, r)) return;
  if (drawValueControl(name, &cell, controlView, r)) return;
  if (!cell.imageName().isNil()) return namedImage(cell.imageName(), r);
  text(cell.stringValue(), r, cell.font(), labelColor(cell.isEnabled()));
}

// --- views ------------------------------------------------------------------------------------

const TableView* tableOfHeader(const View& header) {
  for (const View* v = header.superview(); v; v = v->superview()) {
    if (auto scroll = dynamic_cast<const ScrollView*>(v)) {
      return dynamic_cast<const TableView*>(scroll->documentView().get());
    }
  }
  return nullptr;
}

void drawTableHeader(const TableView& table, Rect bounds) {
  fill(bounds, settings().dark ? gray(0.22) : gray(0.98));
  const bool flipped = ctx().userSpaceIsFlipped();
  const double bottom = flipped ? bounds.maxY() - 0.5 : bounds.y + 0.5;
  line({bounds.x, bottom}, {bounds.maxX(), bottom}, gray(0.78));
  double x = 0;
  for (const auto& column : table.tableColumns()) {
    if (column->isHidden()) continue;
    const double w = column->width() + table.intercellSpacing().width;
    const Rect cellRect{x, bounds.y, w, bounds.h};
    if (const auto& header = column->headerCell()) {
      text(header->stringValue(), inset(cellRect, 5, 0), header->font(),
           settings().dark ? labelColor() : Color::headerTextColor(), header->alignment());
    }
    x += w;
    line({x - 0.5, bounds.y + 3}, {x - 0.5, bounds.maxY() - 3}, gray(0.85));
  }
}

void drawTable(const TableView& table, Rect bounds) {
  fill(bounds, settings().dark ? gray(0.18) : Color::controlBackgroundColor());
  const double row = table.rowHeight() + table.intercellSpacing().height;
  const bool flipped = ctx().userSpaceIsFlipped();
  if (row > 1) {
    // Rows from the top: stripes when the table alternates, else a faint rule under each row.
    for (int i = 0; i * row < bounds.h; ++i) {
      const double top = flipped ? bounds.y + i * row : bounds.maxY() - i * row;
      const double bottom = flipped ? top + row : top - row;
      if (table.usesAlternatingRowBackgroundColors()) {
        if (i % 2) fill({bounds.x, std::min(top, bottom), bounds.w, row}, settings().dark ? gray(0.22) : gray(0.96));
      } else {
        const double y = bottom + (flipped ? -0.5 : 0.5);
        line({bounds.x, y}, {bounds.maxX(), y}, settings().dark ? gray(0.26) : gray(0.93));
      }
    }
  }
  double x = 0;
  for (const auto& column : table.tableColumns()) {
    if (column->isHidden()) continue;
    x += column->width() + table.intercellSpacing().width;
    line({x - 0.5, bounds.y}, {x - 0.5, bounds.maxY()}, settings().dark ? gray(0.3) : gray(0.9));
  }
}

// Text from the top left, inside the line padding, wrapped to the width; the view is flipped.
void drawTextView(const TextView& view, Rect bounds) {
  const bool dark = settings().dark;
  if (view.drawsBackground()) fill(bounds, colorOf(view.backgroundColor(), dark ? gray(0.18) : Color::whiteColor()));
  const ColorRef color = dark && !view.textColor() ? labelColor() : colorOf(view.textColor(), Color::textColor());
  text(view.string(), inset(bounds, 5, 0), view.font().value_or(FontDescriptor::systemFont(12)), color,
       TextAlignment::Natural, LineBreakMode::ByWordWrapping, false);
}

void drawBox(const Box& box, Rect bounds) {
  if (box.isTransparent()) return;
  if (box.boxType() == BoxType::Separator) {
    if (bounds.w >= bounds.h) {
      line({bounds.x, bounds.y + bounds.h / 2}, {bounds.maxX(), bounds.y + bounds.h / 2}, gray(0.75));
    } else {
      line({bounds.x + bounds.w / 2, bounds.y}, {bounds.x + bounds.w / 2, bounds.maxY()}, gray(0.75));
    }
    return;
  }
  const bool titled = box.titlePosition() != TitlePosition::NoTitle && box.title().length() > 0;
  const double titleHeight = titled ? Font::fontWithDescriptor(box.titleFont())->defaultLineHeight() + 2 : 0;
  const bool flipped = ctx().userSpaceIsFlipped();
  Rect border = bounds;
  border.h -= titleHeight;
  if (flipped) border.y += titleHeight;
  if (box.borderType() != BorderType::NoBorder) {
    rounded(border, box.boxType() == BoxType::Custom ? 0 : 5, gray(settings().dark ? 1 : 0, 0.045),
            gray(settings().dark ? 1 : 0, 0.16));
  }
  if (titled) {
    const Rect titleRect{bounds.x + 4, flipped ? bounds.y : bounds.maxY() - titleHeight, bounds.w - 8, titleHeight};
    text(box.title(), titleRect, box.titleFont(), labelColor());
  }
}

void drawTabView(const TabView& tabs, Rect bounds) {
  const bool flipped = ctx().userSpaceIsFlipped();
  const bool hasTabs = tabs.tabViewType() == TabViewType::TopTabsBezelBorder;
  // Tabs are as tall as their font needs (small and mini tab views have smaller fonts), and
  // straddle the border's top edge.
  const double h = std::round(Font::fontWithDescriptor(tabs.font())->defaultLineHeight() + 6);
  Rect border = bounds;
  if (hasTabs) {
    border.h -= std::floor(h / 2) + 1;
    if (flipped) border.y += std::floor(h / 2) + 1;
  }
  if (tabs.tabViewType() != TabViewType::NoTabsNoBorder) rounded(border, 5, gray(0, 0.045), gray(0, 0.16));
  if (!hasTabs || tabs.tabViewItems().empty()) return;

  TextAttributes a;
  a.font = Font::fontWithDescriptor(tabs.font());
  double total = 0;
  std::vector<double> widths;
  for (const auto& item : tabs.tabViewItems()) {
    widths.push_back(sizeOfText(item->label(), a, {0, 0}).width + 20);
    total += widths.back();
  }
  const double top = flipped ? border.y : border.maxY();
  Rect strip{bounds.x + (bounds.w - total) / 2, top - h / 2, total, h};
  rounded(strip, 5, faceColor(), edgeColor());
  double x = strip.x;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const Rect tab{x, strip.y, widths[i], h};
    const bool selected = static_cast<long>(i) == tabs.indexOfSelectedTabViewItem();
    if (selected) rounded(inset(tab, 1, 1), 4, accent(), nullptr);
    if (i > 0 && !selected) line({x, strip.y + 4}, {x, strip.maxY() - 4}, gray(0.8));
    text(tabs.tabViewItems()[i]->label(), tab, tabs.font(), selected ? Color::whiteColor() : labelColor(),
         TextAlignment::Center);
    x += widths[i];
  }
}

// Split views: the platform's, and those of plug-ins read under their own class name (a split view
// subclass keeps the name's ending). Their panes are laid out from the top, in subview order.
bool isSplitView(const View& view) { return view.className().hasSuffix(u"SplitView"); }

// The dividers of a split view: the gaps between consecutive visible panes, side by side or one
// under the other, in the split view's own (flipped) coordinates. A thin divider is a line; a thick
// one a light bar with a dimple in its middle.
void drawSplitDividers(const View& split) {
  const View* previous = nullptr;
  for (const auto& pane : split.subviews()) {
    if (!pane || pane->isHidden()) continue;
    if (previous) {
      const Rect a = previous->frame(), f = pane->frame();
      Rect gap{};
      if (f.x >= a.maxX() - 0.5 && f.x > a.x) {
        gap = {a.maxX(), std::min(a.y, f.y), f.x - a.maxX(), std::max(a.maxY(), f.maxY()) - std::min(a.y, f.y)};
      } else if (f.y >= a.maxY() - 0.5 && f.y > a.y) {
        gap = {std::min(a.x, f.x), a.maxY(), std::max(a.maxX(), f.maxX()) - std::min(a.x, f.x), f.y - a.maxY()};
      }
      const bool vertical = gap.w < gap.h;
      const double thickness = vertical ? gap.w : gap.h;
      if (thickness > 0 && thickness <= 2) {
        fill(gap, settings().dark ? gray(0.1) : gray(0.78));
      } else if (thickness > 2) {
        fill(gap, settings().dark ? gray(0.2) : gray(0.9));
        circle({gap.x + gap.w / 2, gap.y + gap.h / 2}, std::min(2.5, thickness / 3), gray(0.6), nullptr);
      }
    }
    previous = pane.get();
  }
}

bool isVisible(const View* v) { return v && !v->isHidden() && !v->frame().isEmpty(); }

bool showsSubviews(const View& view) {
  return std::any_of(view.subviews().begin(), view.subviews().end(), [](const auto& s) { return isVisible(s.get()); });
}

// Whether another visible view of the same superview covers part of this view's frame.
bool overlapsVisibleSibling(const View& view) {
  const View* parent = view.superview();
  if (!parent) return false;
  const Rect f = view.frame();
  for (const auto& s : parent->subviews()) {
    if (s.get() == &view || !isVisible(s.get())) continue;
    const Rect o = s->frame();
    if (std::min(f.maxX(), o.maxX()) - std::max(f.x, o.x) > 0.5 && std::min(f.maxY(), o.maxY()) - std::max(f.y, o.y) > 0.5) {
      return true;
    }
  }
  return false;
}

// A scroller of a scroll view: hidden when the scroll view hides its scrollers until they are needed
// or does not have that one; otherwise its track, with a knob as long as the share of the document
// the clip view shows, at the document's start (its top, its left). A document that fits has
// nothing to scroll: no knob.
void drawScroller(const View& scroller, Rect b) {
  const auto* scroll = dynamic_cast<const ScrollView*>(scroller.superview());
  bool vertical = b.h >= b.w;
  double shown = 1;
  if (scroll) {
    if (scroll->autohidesScrollers()) return;
    if (scroll->verticalScroller().get() == &scroller) vertical = true;
    if (scroll->horizontalScroller().get() == &scroller) vertical = false;
    if (vertical ? !scroll->hasVerticalScroller() : !scroll->hasHorizontalScroller()) return;
    const auto clip = scroll->contentView();
    const auto document = scroll->documentView();
    if (clip && document) {
      const double visible = vertical ? clip->frame().h : clip->frame().w;
      const double length = vertical ? document->frame().h : document->frame().w;
      shown = length > visible + 0.5 && visible > 0 ? visible / length : 1;
    }
  }
  fill(b, settings().dark ? gray(0.2) : gray(0.98));
  line(vertical ? Point{b.x + 0.5, b.y} : Point{b.x, b.y + 0.5}, vertical ? Point{b.x + 0.5, b.maxY()} : Point{b.maxX(), b.y + 0.5},
       settings().dark ? gray(0.3) : gray(0.9));
  if (shown >= 1) return;
  const double track = (vertical ? b.h : b.w) - 4;
  const double length = std::max(std::min(18.0, track), track * shown);
  Rect knob;
  if (vertical) {
    const double top = up() > 0 ? b.maxY() - 2 - length : b.y + 2;
    knob = {b.x + 3, top, b.w - 6, length};
  } else {
    knob = {b.x + 2, b.y + 3, length, b.h - 6};
  }
  rounded(knob, std::min(knob.w, knob.h) / 2, gray(settings().dark ? 0.55 : 0.5, 0.55), nullptr);
}

// Views the model knows only by their platform class name.
void drawByClassName(const View& view, Rect b) {
  const String name = view.className();
  if (drawValueControl(name, nullptr, &view, b)) return;
  if (isSplitView(view)) {
    drawSplitDividers(view);
  } else if (name == String(u"NSScroller")) {
    drawScroller(view, b);
  } else if (name == String(u"NSTextView") || name == String(u"NSOutlineView")) {
    fill(b, settings().dark ? gray(0.18) : Color::whiteColor());
  } else if (name == String(u"NSTableHeaderView")) {
    if (const TableView* table = tableOfHeader(view)) drawTableHeader(*table, b);
  } else if (!view.customClassName().isNil() && !showsSubviews(view)) {
    // A custom view that shows nothing of its own: its outline, and its class name where no other
    // view shares its place, as an interface editor shows it. Real content always wins.
    const bool alone = !overlapsVisibleSibling(view);
    cairo_t* cr = ctx().cairo();
    cairo_save(cr);
    const double dash[] = {4, 3};
    cairo_set_dash(cr, dash, 2, 0);
    rounded(inset(b, 0.5, 0.5), 0, alone ? gray(0, 0.03) : nullptr, gray(0, 0.3));
    cairo_restore(cr);
    if (alone) {
      text(view.customClassName(), inset(b, 4, 2), FontDescriptor::systemFont(11), gray(0.45), TextAlignment::Center);
    }
  }
}

void drawViewContent(const View& view, Rect b) {
  if (auto table = dynamic_cast<const TableView*>(&view)) return drawTable(*table, b);
  if (auto box = dynamic_cast<const Box*>(&view)) return drawBox(*box, b);
  if (auto tabs = dynamic_cast<const TabView*>(&view)) return drawTabView(*tabs, b);
  if (auto scroll = dynamic_cast<const ScrollView*>(&view)) {
    if (scroll->borderType() != String(u"none")) rounded(b, 0, nullptr, edgeColor());
    return;
  }
  if (auto clip = dynamic_cast<const ClipView*>(&view)) {
    if (clip->drawsBackground()) fill(b, settings().dark ? gray(0.18) : Color::controlBackgroundColor());
    return;
  }
  if (auto matrix = dynamic_cast<const Matrix*>(&view)) {
    for (long r = 0; r < matrix->numberOfRows(); ++r) {
      for (long c = 0; c < matrix->numberOfColumns(); ++c) {
        if (auto cell = matrix->cellAtRow(r, c)) drawCell(*cell, matrix->cellFrameAtRow(r, c), &view);
      }
    }
    return;
  }
  if (auto image = dynamic_cast<const ImageView*>(&view)) {
    if (!image->imageName().isNil()) namedImage(image->imageName(), b);
    return;
  }
  if (auto textView = dynamic_cast<const TextView*>(&view)) return drawTextView(*textView, b);
  if (auto control = dynamic_cast<const Control*>(&view)) {
    if (control->cell()) {
      drawCell(*control->cell(), b, &view);
      return;
    }
  }
  drawByClassName(view, b);
}

// Whether a view's own coordinates run downwards. Scroll views, split views and table header views
// lay their subviews out from the top on the platform whatever the model says.
bool flippedForDrawing(const View& view) {
  if (view.isFlipped() || dynamic_cast<const ScrollView*>(&view)) return true;
  return isSplitView(view) || view.className() == String(u"NSTableHeaderView");
}

void drawTree(const View& view, bool inFlippedSpace, bool evenIfHidden = false) {
  auto context = GraphicsContext::currentContext();
  if (!context || (view.isHidden() && !evenIfHidden)) return;
  const Rect frame = view.frame();
  if (!(frame.w > 0) || !(frame.h > 0)) return;
  GraphicsContext::saveGraphicsState();
  AffineTransform t;
  t.translateXBy(frame.x, frame.y);
  const bool flipped = flippedForDrawing(view);
  if (flipped != inFlippedSpace) {
    t.translateXBy(0, frame.h);
    t.scaleXBy(1, -1);
  }
  t.concat();
  const Rect bounds = view.bounds();
  if (const auto* report = settings().drawnView) {
    const AffineTransform m = context->currentTransform();
    const Point corners[] = {m.transformPoint({bounds.x, bounds.y}), m.transformPoint({bounds.maxX(), bounds.y}),
                             m.transformPoint({bounds.x, bounds.maxY()}), m.transformPoint({bounds.maxX(), bounds.maxY()})};
    double x0 = corners[0].x, x1 = x0, y0 = corners[0].y, y1 = y0;
    for (const Point& p : corners) {
      x0 = std::min(x0, p.x), x1 = std::max(x1, p.x), y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    (*report)(view, Rect{x0, y0, x1 - x0, y1 - y0});
  }
  context->clipToRect(bounds);
  drawViewContent(view, bounds);
  for (const auto& subview : view.subviews()) {
    if (subview) drawTree(*subview, flipped);
  }
  GraphicsContext::restoreGraphicsState();
}

}  // namespace

bool renderedSizeFits(Size size, double scale) {
  const double w = std::ceil(size.width * scale), h = std::ceil(size.height * scale);
  return w > 0 && h > 0 && w <= kMaxRenderSide && h <= kMaxRenderSide && w * h <= kMaxRenderPixels;
}

Size renderedWindowSize(const Window& window, bool titleBar) {
  const Rect content = window.contentRect();
  const bool bar = titleBar && (window.styleMask() & NSWindowStyleMaskTitled);
  return {content.w, content.h + toolbarHeight(window) + (bar ? kTitleBarHeight : 0)};
}

void drawViewHierarchy(const View& view, bool inFlippedSpace, const ViewDrawingOptions& options) {
  const Session session({options.images.get(), options.dark, options.drawnView ? &options.drawnView : nullptr});
  drawTree(view, inFlippedSpace);
}

namespace {

GraphicsContextRef renderInto(Size size, double scale, const ColorRef& background,
                              std::shared_ptr<DrawingRecorder> recorder, const std::function<void()>& draw) {
  if (!renderedSizeFits(size, scale)) return nullptr;
  auto context = GraphicsContext::imageContext(size, false, scale);
  if (!context) return nullptr;
  context->setRecorder(std::move(recorder));
  auto previous = GraphicsContext::currentContext();
  GraphicsContext::setCurrentContext(context);
  fill({0, 0, size.width, size.height}, background);
  draw();
  GraphicsContext::setCurrentContext(previous);
  context->setRecorder(nullptr);
  context->flushGraphics();
  return context;
}

}  // namespace

bool canRenderWindow(const Window& window, const WindowRenderOptions& options) {
  return !window.contentRect().isEmpty() && renderedSizeFits(renderedWindowSize(window, options.titleBar), options.scale);
}

bool canRenderView(const View& view, double scale) {
  const Rect f = view.frame();
  return renderedSizeFits({f.w, f.h}, scale);
}

GraphicsContextRef renderWindow(const Window& window, const WindowRenderOptions& options) {
  if (!canRenderWindow(window, options)) return nullptr;
  const Rect content = window.contentRect();
  const bool titleBar = options.titleBar && (window.styleMask() & NSWindowStyleMaskTitled);
  const double barHeight = titleBar ? kTitleBarHeight : 0;
  // Heads-up panels are dark, their labels light.
  const bool hud = window.styleMask() & NSWindowStyleMaskHUDWindow;
  const ColorRef background = hud ? gray(0.16) : Color::windowBackgroundColor();
  const double toolbar = toolbarHeight(window);
  return renderInto({content.w, content.h + toolbar + barHeight}, options.scale, background, options.recorder, [&] {
    if (toolbar > 0) {
      const Session session({options.images.get(), hud, nullptr});
      drawToolbar(window, {0, content.h, content.w, toolbar}, {options.images, hud, options.drawnView});
    }
    if (titleBar) {
      const Rect bar{0, content.h + toolbar, content.w, barHeight};
      cairo_t* cr = ctx().cairo();
      cairo_pattern_t* gradient = cairo_pattern_create_linear(0, bar.maxY(), 0, bar.y);
      const double top = hud ? 0.25 : 0.93, bottom = hud ? 0.2 : 0.84;
      cairo_pattern_add_color_stop_rgb(gradient, 0, top, top, top);
      cairo_pattern_add_color_stop_rgb(gradient, 1, bottom, bottom, bottom);
      cairo_rectangle(cr, bar.x, bar.y, bar.w, bar.h);
      cairo_set_source(cr, gradient);
      cairo_fill(cr);
      cairo_pattern_destroy(gradient);
      line({0, bar.y + 0.5}, {bar.w, bar.y + 0.5}, gray(0.7));
      const ColorRef lights[] = {rgb(1, 0.37, 0.34), rgb(1, 0.74, 0.18), rgb(0.16, 0.78, 0.25)};
      const unsigned buttons[] = {NSWindowStyleMaskClosable, NSWindowStyleMaskMiniaturizable, NSWindowStyleMaskResizable};
      for (int i = 0; i < 3; ++i) {
        const bool active = window.styleMask() & buttons[i];
        circle({13.0 + 20 * i, bar.y + bar.h / 2}, 6, active ? lights[i] : gray(0.8), gray(0, 0.15));
      }
      text(window.title(), inset(bar, 70, 0), FontDescriptor::systemFont(13), gray(hud ? 0.9 : 0.25),
           TextAlignment::Center);
    }
    if (const auto& view = window.contentView()) {
      GraphicsContext::saveGraphicsState();
      ctx().clipToRect({0, 0, content.w, content.h});
      // The content view fills the content area whatever its archived origin.
      AffineTransform t;
      t.translateXBy(-view->frame().x, -view->frame().y);
      t.concat();
      drawViewHierarchy(*view, false, {options.images, hud, options.drawnView});
      GraphicsContext::restoreGraphicsState();
    }
  });
}

GraphicsContextRef renderView(const View& view, double scale, std::shared_ptr<DrawingRecorder> recorder,
                              std::shared_ptr<const NamedImageSource> images,
                              std::function<void(const View&, Rect)> drawnView) {
  const Rect f = view.frame();
  return renderInto({f.w, f.h}, scale, Color::windowBackgroundColor(), std::move(recorder), [&] {
    AffineTransform t;
    t.translateXBy(-f.x, -f.y);
    t.concat();
    // A view archived hidden is one the application shows later: the picture asked for is the view.
    const Session session({images.get(), false, drawnView ? &drawnView : nullptr});
    drawTree(view, false, true);
  });
}

}  // namespace tq
