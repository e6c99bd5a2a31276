// Drawing the model's views and cells in a plain light look.
#include "tq/platform/ui/view_drawing.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

#include "tq/platform/ui/box.h"
#include "tq/platform/ui/button.h"
#include "tq/platform/ui/color.h"
#include "tq/platform/ui/image_view.h"
#include "tq/platform/ui/matrix.h"
#include "tq/platform/ui/scroll_view.h"
#include "tq/platform/ui/segmented_control.h"
#include "tq/platform/ui/string_drawing.h"
#include "tq/platform/ui/tab_view.h"
#include "tq/platform/ui/table_view.h"
#include "tq/platform/ui/text_field.h"

namespace tq {

namespace {

constexpr double kTitleBarHeight = 22;

// --- primitives on the current context ----------------------------------------------------------

GraphicsContext& ctx() { return *GraphicsContext::currentContext(); }

ColorRef gray(double white, double alpha = 1) { return Color::colorWithWhite(white, alpha); }
ColorRef rgb(double r, double g, double b, double a = 1) { return Color::colorWithRed(r, g, b, a); }

void pathRounded(Rect r, double radius) {
  cairo_t* cr = ctx().cairo();
  radius = std::max(0.0, std::min({radius, r.w / 2, r.h / 2}));
  cairo_new_sub_path(cr);
  cairo_arc(cr, r.maxX() - radius, r.y + radius, radius, -std::numbers::pi / 2, 0);
  cairo_arc(cr, r.maxX() - radius, r.maxY() - radius, radius, 0, std::numbers::pi / 2);
  cairo_arc(cr, r.x + radius, r.maxY() - radius, radius, std::numbers::pi / 2, std::numbers::pi);
  cairo_arc(cr, r.x + radius, r.y + radius, radius, std::numbers::pi, 3 * std::numbers::pi / 2);
  cairo_close_path(cr);
}

// Fills and/or strokes a rounded rectangle (nil colours skip that part); the stroke lies inside.
void rounded(Rect r, double radius, const ColorRef& fill, const ColorRef& stroke, double lineWidth = 1) {
  if (r.isEmpty()) return;
  cairo_t* cr = ctx().cairo();
  cairo_save(cr);
  if (fill) {
    pathRounded(r, radius);
    ctx().setSourceColor(*fill);
    cairo_fill(cr);
  }
  if (stroke) {
    const double h = lineWidth / 2;
    pathRounded({r.x + h, r.y + h, r.w - lineWidth, r.h - lineWidth}, radius - h);
    ctx().setSourceColor(*stroke);
    cairo_set_line_width(cr, lineWidth);
    cairo_stroke(cr);
  }
  cairo_restore(cr);
}

void circle(Point centre, double radius, const ColorRef& fill, const ColorRef& stroke) {
  rounded({centre.x - radius, centre.y - radius, 2 * radius, 2 * radius}, radius, fill, stroke);
}

void line(Point a, Point b, const ColorRef& color, double width = 1) {
  ctx().setStrokeColor(color);
  ctx().strokeLine(a, b, width);
}

void fill(Rect r, const ColorRef& color) {
  ctx().setFillColor(color);
  ctx().fillRect(r, NSCompositeSourceOver);
}

// A small triangle pointing up (towards the top of the screen) or down, centred on c.
void triangle(Point c, double size, bool up, const ColorRef& color) {
  cairo_t* cr = ctx().cairo();
  // "Up" on the screen is +y in unflipped space, -y in flipped space.
  const double dir = (up ? 1 : -1) * (ctx().userSpaceIsFlipped() ? -1 : 1);
  cairo_save(cr);
  cairo_move_to(cr, c.x - size, c.y - dir * size / 2);
  cairo_line_to(cr, c.x + size, c.y - dir * size / 2);
  cairo_line_to(cr, c.x, c.y + dir * size / 2);
  cairo_close_path(cr);
  ctx().setSourceColor(*color);
  cairo_fill(cr);
  cairo_restore(cr);
}

Rect inset(Rect r, double dx, double dy) { return {r.x + dx, r.y + dy, r.w - 2 * dx, r.h - 2 * dy}; }

// A rectangle of height h centred vertically in r.
Rect centredVertically(Rect r, double h) { return {r.x, r.y + (r.h - h) / 2, r.w, h}; }

// One line (or a wrapped block) of text, centred vertically in r when `centre` is set.
void text(const String& s, Rect r, const FontDescriptor& font, const ColorRef& color,
          TextAlignment alignment = TextAlignment::Natural, LineBreakMode mode = LineBreakMode::ByTruncatingTail,
          bool centre = true) {
  if (s.length() == 0 || r.w <= 0) return;
  TextAttributes a;
  a.font = Font::fontWithDescriptor(font);
  a.color = color;
  a.alignment = alignment;
  a.lineBreakMode = mode;
  Rect target = r;
  if (centre) {
    const double h = sizeOfText(s, a, {r.w, 0}).height;
    target = centredVertically(r, h);
  }
  drawText(s, target, a);
}

ColorRef colorOf(const std::optional<ColorDescriptor>& d, const ColorRef& fallback) {
  return d ? Color::colorWithDescriptor(*d) : fallback;
}

// --- cells ------------------------------------------------------------------------------------

const ColorRef& accent() {
  static const ColorRef c = rgb(0.2, 0.47, 0.96);
  return c;
}

void drawImagePlaceholder(const String& name, Rect r) {
  const double side = std::min({r.w, r.h, 32.0});
  if (side < 4) return;
  const Rect box{r.x + (r.w - side) / 2, r.y + (r.h - side) / 2, side, side};
  rounded(box, side / 5, gray(0.8), gray(0.6));
  if (name.length() > 0 && side >= 10) {
    text(name.substringToIndex(1), box, FontDescriptor::systemFont(side * 0.55), gray(0.35),
         TextAlignment::Center, LineBreakMode::ByClipping);
  }
}

void drawCheckBox(const ButtonCell& cell, Rect r, bool radio) {
  const ColorRef textColor = cell.isEnabled() ? Color::controlTextColor() : Color::disabledControlTextColor();
  const double side = 14;
  const Rect box{r.x + 2, r.y + (r.h - side) / 2, side, side};
  const bool on = cell.state() != 0;
  if (radio) {
    const Point c{box.x + side / 2, box.y + side / 2};
    circle(c, side / 2, on ? accent() : Color::whiteColor(), on ? nullptr : gray(0.6));
    if (on) circle(c, 3, Color::whiteColor(), nullptr);
  } else {
    rounded(box, 3, on ? accent() : Color::whiteColor(), on ? nullptr : gray(0.6));
    if (on) {
      cairo_t* cr = ctx().cairo();
      const double mid = box.y + side / 2, dir = ctx().userSpaceIsFlipped() ? 1 : -1;
      cairo_save(cr);
      cairo_move_to(cr, box.x + 3.5, mid);
      cairo_line_to(cr, box.x + 6, mid + dir * 3);
      cairo_line_to(cr, box.x + 10.5, mid - dir * 4);
      ctx().setSourceColor(*Color::whiteColor());
      cairo_set_line_width(cr, 2);
      cairo_stroke(cr);
      cairo_restore(cr);
    }
  }
  if (cell.imagePosition() != CellImagePosition::ImageOnly) {
    text(cell.title(), {r.x + 20, r.y, r.w - 20, r.h}, cell.font(), textColor);
  }
}

void drawPopUp(const PopUpButtonCell& cell, Rect r) {
  const Rect body = centredVertically(inset(r, 3, 0), std::min(r.h, 21.0));
  rounded(body, 5, Color::whiteColor(), gray(0.7));
  const Rect arrows{body.maxX() - 19, body.y + 2, 16, body.h - 4};
  rounded(arrows, 4, accent(), nullptr);
  const Point c{arrows.x + arrows.w / 2, arrows.y + arrows.h / 2};
  if (cell.pullsDown()) {
    triangle(c, 3.5, false, Color::whiteColor());
  } else {
    const double off = ctx().userSpaceIsFlipped() ? -3 : 3;
    triangle({c.x, c.y + off}, 3, true, Color::whiteColor());
    triangle({c.x, c.y - off}, 3, false, Color::whiteColor());
  }
  String title = cell.title();
  if (cell.pullsDown() && cell.menu() && !cell.menu()->itemArray().empty()) title = cell.menu()->itemArray().front()->title();
  text(title, {body.x + 8, body.y, body.w - 30, body.h}, cell.font(),
       cell.isEnabled() ? Color::controlTextColor() : Color::disabledControlTextColor());
}

void drawButton(const ButtonCell& cell, Rect r) {
  if (auto popUp = dynamic_cast<const PopUpButtonCell*>(&cell)) return drawPopUp(*popUp, r);
  const ButtonType type = cell.buttonType();
  if (type == ButtonType::Switch) return drawCheckBox(cell, r, false);
  if (type == ButtonType::Radio) return drawCheckBox(cell, r, true);

  const String& style = cell.bezelStyle();
  const ColorRef textColor = cell.isEnabled() ? Color::controlTextColor() : Color::disabledControlTextColor();
  const bool imageOnly = cell.imagePosition() == CellImagePosition::ImageOnly;
  if (style == String(u"helpButton")) {
    const double radius = std::min({r.w, r.h, 21.0}) / 2;
    circle({r.x + r.w / 2, r.y + r.h / 2}, radius, Color::whiteColor(), gray(0.65));
    text(u"?", r, FontDescriptor::systemFont(13), textColor, TextAlignment::Center, LineBreakMode::ByClipping);
    return;
  }
  if (style == String(u"disclosure") || style == String(u"roundedDisclosure")) {
    rounded(centredVertically(inset(r, 2, 0), std::min(r.h, 18.0)), 4, Color::whiteColor(), gray(0.7));
    triangle({r.x + r.w / 2, r.y + r.h / 2}, 3.5, cell.state() != 0, gray(0.3));
    return;
  }

  Rect body = r;
  bool primary = false;
  if (cell.isBordered() || !style.isNil()) {
    if (style.isNil() || style == String(u"rounded")) {
      // Push buttons keep room around the bezel for their shadow.
      body = centredVertically(inset(r, std::min(6.0, r.w / 4), 0), std::min(r.h, 21.0));
      primary = cell.keyEquivalent() == String(u"\r");
      rounded(body, 5, primary ? accent() : Color::whiteColor(), primary ? nullptr : gray(0.7));
    } else if (style == String(u"inline") || style == String(u"recessed") || style == String(u"roundRect") ||
               style == String(u"texturedRounded") || style == String(u"round")) {
      rounded(body, std::min(body.h / 2, 6.0), gray(0.96), gray(0.7));
    } else {
      rounded(body, 2, gray(0.97), gray(0.7));
    }
  }
  if (imageOnly || (cell.title().length() == 0 && !cell.imageName().isNil())) {
    drawImagePlaceholder(cell.imageName(), inset(body, 2, 2));
    return;
  }
  const String title = cell.state() != 0 && cell.alternateTitle().length() > 0 ? cell.alternateTitle() : cell.title();
  text(title, inset(body, 4, 0), cell.font(), primary ? Color::whiteColor() : textColor, TextAlignment::Center);
}

void drawTextFieldCell(const TextFieldCell& cell, Rect r, bool search) {
  Rect content = r;
  if (search) {
    rounded(r, std::min(r.h / 2, 6.0), Color::whiteColor(), gray(0.7));
    circle({r.x + 10, r.y + r.h / 2}, 4, nullptr, gray(0.5));
    content = inset({r.x + 16, r.y, r.w - 16, r.h}, 3, 2);
  } else if (cell.isBezeled()) {
    fill(r, colorOf(cell.backgroundColor(), Color::whiteColor()));
    rounded(r, 0, nullptr, gray(0.68));
    content = inset(r, 3, 2);
  } else if (cell.isBordered()) {
    fill(r, colorOf(cell.backgroundColor(), Color::whiteColor()));
    rounded(r, 0, nullptr, Color::blackColor());
    content = inset(r, 3, 2);
  } else {
    if (cell.drawsBackground() && cell.backgroundColor()) fill(r, Color::colorWithDescriptor(*cell.backgroundColor()));
    content = inset(r, 2, 0);
  }
  String value = cell.stringValue();
  ColorRef color = cell.isEnabled() ? colorOf(cell.textColor(), Color::controlTextColor())
                                    : Color::disabledControlTextColor();
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

// Draws any cell in a frame of the current user space.
void drawCell(const Cell& cell, Rect r) {
  if (auto button = dynamic_cast<const ButtonCell*>(&cell)) return drawButton(*button, r);
  if (auto field = dynamic_cast<const TextFieldCell*>(&cell)) {
    return drawTextFieldCell(*field, r, dynamic_cast<const SearchFieldCell*>(&cell) != nullptr);
  }
  if (auto segmented = dynamic_cast<const SegmentedCell*>(&cell)) {
    const auto& segments = segmented->segments();
    if (segments.empty()) return;
    const Rect body = centredVertically(r, std::min(r.h, 22.0));
    rounded(body, 5, Color::whiteColor(), gray(0.7));
    double fixed = 0;
    int flexible = 0;
    for (const auto& s : segments) s.width > 0 ? fixed += s.width : ++flexible;
    const double each = flexible ? std::max(0.0, body.w - fixed) / flexible : 0;
    double x = body.x;
    for (std::size_t i = 0; i < segments.size(); ++i) {
      const auto& s = segments[i];
      const double w = s.width > 0 ? s.width : each;
      const Rect seg{x, body.y, w, body.h};
      if (s.selected) rounded(inset(seg, 1, 1), 4, gray(0.85), nullptr);
      if (i > 0) line({x, body.y + 3}, {x, body.maxY() - 3}, gray(0.75));
      if (s.label.length() > 0) {
        text(s.label, inset(seg, 3, 0), cell.font(), Color::controlTextColor(), TextAlignment::Center);
      } else if (!s.imageName.isNil()) {
        drawImagePlaceholder(s.imageName, inset(seg, 3, 3));
      }
      x += w;
    }
    return;
  }
  if (!cell.imageName().isNil()) return drawImagePlaceholder(cell.imageName(), r);
  text(cell.stringValue(), r, cell.font(), Color::controlTextColor());
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
  fill(bounds, gray(0.98));
  const bool flipped = ctx().userSpaceIsFlipped();
  const double bottom = flipped ? bounds.maxY() - 0.5 : bounds.y + 0.5;
  line({bounds.x, bottom}, {bounds.maxX(), bottom}, gray(0.78));
  double x = 0;
  for (const auto& column : table.tableColumns()) {
    if (column->isHidden()) continue;
    const double w = column->width() + table.intercellSpacing().width;
    const Rect cellRect{x, bounds.y, w, bounds.h};
    if (const auto& header = column->headerCell()) {
      text(header->stringValue(), inset(cellRect, 5, 0), header->font(), Color::headerTextColor(),
           header->alignment());
    }
    x += w;
    line({x - 0.5, bounds.y + 3}, {x - 0.5, bounds.maxY() - 3}, gray(0.85));
  }
}

void drawTable(const TableView& table, Rect bounds) {
  fill(bounds, Color::controlBackgroundColor());
  const double row = table.rowHeight() + table.intercellSpacing().height;
  if (table.usesAlternatingRowBackgroundColors() && row > 1) {
    const bool flipped = ctx().userSpaceIsFlipped();
    for (int i = 1; i * row < bounds.h; i += 2) {
      const double y = flipped ? i * row : bounds.h - (i + 1) * row;
      fill({bounds.x, y, bounds.w, row}, gray(0.96));
    }
  }
  double x = 0;
  for (const auto& column : table.tableColumns()) {
    if (column->isHidden()) continue;
    x += column->width() + table.intercellSpacing().width;
    line({x - 0.5, bounds.y}, {x - 0.5, bounds.maxY()}, gray(0.93));
  }
}

void drawBox(const Box& box, Rect bounds) {
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
    rounded(border, box.boxType() == BoxType::Custom ? 0 : 5, gray(0, 0.045), gray(0, 0.16));
  }
  if (titled) {
    const Rect titleRect{bounds.x + 4, flipped ? bounds.y : bounds.maxY() - titleHeight, bounds.w - 8, titleHeight};
    text(box.title(), titleRect, box.titleFont(), Color::controlTextColor());
  }
}

void drawTabView(const TabView& tabs, Rect bounds) {
  const bool flipped = ctx().userSpaceIsFlipped();
  const bool hasTabs = tabs.tabViewType() == TabViewType::TopTabsBezelBorder;
  Rect border = bounds;
  if (hasTabs) {
    border.h -= 12;
    if (flipped) border.y += 12;
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
  const double h = 22;
  const double top = flipped ? border.y : border.maxY();
  Rect strip{bounds.x + (bounds.w - total) / 2, top - h / 2, total, h};
  rounded(strip, 5, Color::whiteColor(), gray(0.7));
  double x = strip.x;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    const Rect tab{x, strip.y, widths[i], h};
    const bool selected = static_cast<long>(i) == tabs.indexOfSelectedTabViewItem();
    if (selected) rounded(inset(tab, 1, 1), 4, accent(), nullptr);
    if (i > 0 && !selected) line({x, strip.y + 4}, {x, strip.maxY() - 4}, gray(0.8));
    text(tabs.tabViewItems()[i]->label(), tab, tabs.font(), selected ? Color::whiteColor() : Color::controlTextColor(),
         TextAlignment::Center);
    x += widths[i];
  }
}

// Views the model knows only by their platform class name.
void drawByClassName(const View& view, Rect b) {
  const String name = view.className();
  if (name == String(u"NSScroller")) {
    const auto* scroll = dynamic_cast<const ScrollView*>(view.superview());
    if (scroll && scroll->autohidesScrollers()) return;
    fill(b, gray(0.98));
    const bool vertical = b.h >= b.w;
    const Rect knob = vertical ? Rect{b.x + 3, b.y + b.h * 0.4, b.w - 6, b.h * 0.55}
                               : Rect{b.x + 3, b.y + 3, b.w * 0.5, b.h - 6};
    rounded(knob, 4, gray(0.75), nullptr);
  } else if (name == String(u"NSProgressIndicator")) {
    if (std::abs(b.w - b.h) < 4) {
      circle({b.x + b.w / 2, b.y + b.h / 2}, std::min(b.w, b.h) / 2 - 1, nullptr, gray(0.6));
    } else {
      rounded(centredVertically(b, std::min(b.h, 6.0)), 3, gray(0.88), gray(0.75));
    }
  } else if (name == String(u"NSSlider")) {
    const bool vertical = b.h > b.w;
    if (vertical) {
      rounded({b.x + b.w / 2 - 2, b.y + 2, 4, b.h - 4}, 2, gray(0.8), nullptr);
      circle({b.x + b.w / 2, b.y + b.h * 0.3}, std::min(b.w / 2 - 1, 10.0), Color::whiteColor(), gray(0.6));
    } else {
      rounded({b.x + 2, b.y + b.h / 2 - 2, b.w - 4, 4}, 2, gray(0.8), nullptr);
      circle({b.x + b.w * 0.3, b.y + b.h / 2}, std::min(b.h / 2 - 1, 10.0), Color::whiteColor(), gray(0.6));
    }
  } else if (name == String(u"NSStepper")) {
    const Rect body = inset(b, std::max(0.0, (b.w - 13) / 2), 1);
    rounded(body, 4, Color::whiteColor(), gray(0.7));
    const double off = (ctx().userSpaceIsFlipped() ? -1 : 1) * body.h / 4;
    triangle({body.x + body.w / 2, body.y + body.h / 2 + off}, 2.5, true, gray(0.3));
    triangle({body.x + body.w / 2, body.y + body.h / 2 - off}, 2.5, false, gray(0.3));
  } else if (name == String(u"NSColorWell")) {
    rounded(b, 2, Color::whiteColor(), gray(0.6));
    fill(inset(b, 4, 4), gray(0.5));
  } else if (name == String(u"NSLevelIndicator")) {
    rounded(centredVertically(b, std::min(b.h, 10.0)), 2, Color::whiteColor(), gray(0.7));
  } else if (name == String(u"NSTextView") || name == String(u"NSOutlineView") || name == String(u"NSDatePicker")) {
    fill(b, Color::whiteColor());
    if (name == String(u"NSDatePicker")) rounded(b, 0, nullptr, gray(0.68));
  } else if (name == String(u"NSTableHeaderView")) {
    if (const TableView* table = tableOfHeader(view)) drawTableHeader(*table, b);
  } else if (!view.customClassName().isNil() && view.subviews().empty()) {
    // A custom view: its outline and class name, as an interface editor shows it.
    cairo_t* cr = ctx().cairo();
    cairo_save(cr);
    const double dash[] = {4, 3};
    cairo_set_dash(cr, dash, 2, 0);
    rounded(inset(b, 0.5, 0.5), 0, gray(0, 0.03), gray(0, 0.3));
    cairo_restore(cr);
    text(view.customClassName(), inset(b, 4, 2), FontDescriptor::systemFont(11), gray(0.45), TextAlignment::Center);
  }
}

void drawViewContent(const View& view, Rect b) {
  if (auto table = dynamic_cast<const TableView*>(&view)) return drawTable(*table, b);
  if (auto box = dynamic_cast<const Box*>(&view)) return drawBox(*box, b);
  if (auto tabs = dynamic_cast<const TabView*>(&view)) return drawTabView(*tabs, b);
  if (auto scroll = dynamic_cast<const ScrollView*>(&view)) {
    if (scroll->borderType() != String(u"none")) rounded(b, 0, nullptr, gray(0.7));
    return;
  }
  if (auto clip = dynamic_cast<const ClipView*>(&view)) {
    if (clip->drawsBackground()) fill(b, Color::controlBackgroundColor());
    return;
  }
  if (auto matrix = dynamic_cast<const Matrix*>(&view)) {
    for (long r = 0; r < matrix->numberOfRows(); ++r) {
      for (long c = 0; c < matrix->numberOfColumns(); ++c) {
        if (auto cell = matrix->cellAtRow(r, c)) drawCell(*cell, matrix->cellFrameAtRow(r, c));
      }
    }
    return;
  }
  if (auto image = dynamic_cast<const ImageView*>(&view)) {
    if (!image->imageName().isNil()) drawImagePlaceholder(image->imageName(), b);
    return;
  }
  if (auto control = dynamic_cast<const Control*>(&view)) {
    if (control->cell()) {
      drawCell(*control->cell(), b);
      return;
    }
  }
  drawByClassName(view, b);
}

}  // namespace

void drawViewHierarchy(const View& view, bool inFlippedSpace) {
  auto context = GraphicsContext::currentContext();
  if (!context || view.isHidden()) return;
  const Rect frame = view.frame();
  if (!(frame.w > 0) || !(frame.h > 0)) return;
  GraphicsContext::saveGraphicsState();
  AffineTransform t;
  t.translateXBy(frame.x, frame.y);
  if (view.isFlipped() != inFlippedSpace) {
    t.translateXBy(0, frame.h);
    t.scaleXBy(1, -1);
  }
  t.concat();
  const Rect bounds = view.bounds();
  context->clipToRect(bounds);
  drawViewContent(view, bounds);
  for (const auto& subview : view.subviews()) {
    if (subview) drawViewHierarchy(*subview, view.isFlipped());
  }
  GraphicsContext::restoreGraphicsState();
}

namespace {

GraphicsContextRef renderInto(Size size, double scale, const ColorRef& background,
                              std::shared_ptr<DrawingRecorder> recorder, const std::function<void()>& draw) {
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

GraphicsContextRef renderWindow(const Window& window, const WindowRenderOptions& options) {
  const Rect content = window.contentRect();
  const bool titleBar = options.titleBar && (window.styleMask() & NSWindowStyleMaskTitled);
  const double barHeight = titleBar ? kTitleBarHeight : 0;
  // Heads-up panels are dark, their labels light.
  const bool hud = window.styleMask() & NSWindowStyleMaskHUDWindow;
  const ColorRef background = hud ? gray(0.16) : Color::windowBackgroundColor();
  return renderInto({content.w, content.h + barHeight}, options.scale, background, options.recorder, [&] {
    if (titleBar) {
      const Rect bar{0, content.h, content.w, barHeight};
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
      drawViewHierarchy(*view, false);
      GraphicsContext::restoreGraphicsState();
    }
  });
}

GraphicsContextRef renderView(const View& view, double scale, std::shared_ptr<DrawingRecorder> recorder) {
  const Rect f = view.frame();
  return renderInto({f.w, f.h}, scale, Color::windowBackgroundColor(), std::move(recorder), [&] {
    AffineTransform t;
    t.translateXBy(-f.x, -f.y);
    t.concat();
    drawViewHierarchy(view, false);
  });
}

}  // namespace tq
