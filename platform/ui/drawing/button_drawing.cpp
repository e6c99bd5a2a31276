// Drawing buttons: push buttons of the bezel styles, check boxes, radio buttons, pop-ups, help and
// disclosure buttons, image buttons; and segmented controls.
#include <algorithm>

#include "drawing_kit.h"
#include "tq/platform/ui/model/button_cell.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/segmented_control.h"

namespace tq::drawing {

namespace {

void checkBox(const ButtonCell& cell, Rect r, bool radio) {
  const double side = 14;
  const Rect box{r.x + 2, r.y + (r.h - side) / 2, side, side};
  const bool on = cell.state() != 0;
  if (radio) {
    const Point c{box.x + side / 2, box.y + side / 2};
    circle(c, side / 2, on ? accent() : faceColor(), on ? nullptr : edgeColor());
    if (on) circle(c, 3, Color::whiteColor(), nullptr);
  } else {
    rounded(box, 3, on ? accent() : faceColor(), on ? nullptr : edgeColor());
    if (on) {
      cairo_t* cr = ctx().cairo();
      const double mid = box.y + side / 2, dir = -up();
      cairo_move_to(cr, box.x + 3.5, mid);
      cairo_line_to(cr, box.x + 6, mid + dir * 3);
      cairo_line_to(cr, box.x + 10.5, mid - dir * 4);
      ctx().strokePath(Color::whiteColor(), 2);
    }
  }
  if (cell.imagePosition() != CellImagePosition::ImageOnly) {
    text(cell.title(), {r.x + 20, r.y, r.w - 20, r.h}, cell.font(), labelColor(cell.isEnabled()));
  }
}

// A small down-pointing chevron centred on c, as pull-down buttons show.
void downChevron(Point c, double half, const ColorRef& color) {
  cairo_t* cr = ctx().cairo();
  const double top = c.y + up() * half / 2, bottom = c.y - up() * half / 2;
  cairo_save(cr);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  cairo_new_path(cr);
  cairo_move_to(cr, c.x - half, top);
  cairo_line_to(cr, c.x, bottom);
  cairo_line_to(cr, c.x + half, top);
  ctx().strokePath(color, 1.5);
  cairo_restore(cr);
}

void popUp(const PopUpButtonCell& cell, Rect r) {
  const bool imageOnly = cell.imagePosition() == CellImagePosition::ImageOnly;
  const Rect body = centredVertically(inset(r, 3, 0), std::min(r.h, 21.0));
  if (cell.isBordered() || !imageOnly) rounded(body, 5, faceColor(), edgeColor());
  String title = cell.title();
  String image = cell.imageName();
  if (cell.pullsDown() && cell.menu() && !cell.menu()->itemArray().empty()) {
    const auto& first = cell.menu()->itemArray().front();
    title = first->title();
    if (image.isNil()) image = first->imageName();
  }
  const ColorRef ink = labelColor(cell.isEnabled());
  if (cell.pullsDown()) {
    // A pull-down draws its own single arrow on its face, right of its title or image (a gear
    // menu's gear); image-only ones keep the two together in the middle.
    const bool showsImage = imageOnly || (title.length() == 0 && !image.isNil());
    if (showsImage) {
      const double side = std::min({body.h - 4, 18.0, std::max(0.0, body.w - 18)});
      const double x = body.x + (body.w - side - 11) / 2;
      namedImage(image, {x, body.y + (body.h - side) / 2, side, side}, ink);
      downChevron({x + side + 6, body.y + body.h / 2}, 2.5, ink);
      return;
    }
    downChevron({body.maxX() - 9, body.y + body.h / 2}, 3, ink);
    // A title with no room but for an ellipsis is left out.
    if (body.w - 24 >= 12) text(title, {body.x + 8, body.y, body.w - 24, body.h}, cell.font(), ink);
    return;
  }
  const Rect arrows{body.maxX() - 19, body.y + 2, 16, body.h - 4};
  rounded(arrows, 4, accent(), nullptr);
  const Point c{arrows.x + arrows.w / 2, arrows.y + arrows.h / 2};
  const double off = 3 * up();
  triangle({c.x, c.y + off}, 3, true, Color::whiteColor());
  triangle({c.x, c.y - off}, 3, false, Color::whiteColor());
  const Rect content{body.x + 6, body.y, body.w - 28, body.h};
  if (imageOnly || (title.length() == 0 && !image.isNil())) {
    namedImage(image, inset(content, 0, 2), ink);
    return;
  }
  text(title, {content.x + 2, content.y, content.w - 2, content.h}, cell.font(), ink);
}

}  // namespace

void drawButtonCell(const ButtonCell& cell, Rect r) {
  if (auto pop = dynamic_cast<const PopUpButtonCell*>(&cell)) return popUp(*pop, r);
  const ButtonType type = cell.buttonType();
  if (type == ButtonType::Switch) return checkBox(cell, r, false);
  if (type == ButtonType::Radio) return checkBox(cell, r, true);

  const String& style = cell.bezelStyle();
  const ColorRef textColor = labelColor(cell.isEnabled());
  const bool imageOnly = cell.imagePosition() == CellImagePosition::ImageOnly;
  if (style == String(u"helpButton")) {
    const double radius = std::min({r.w, r.h, 21.0}) / 2;
    circle({r.x + r.w / 2, r.y + r.h / 2}, radius, faceColor(), edgeColor());
    text(u"?", r, FontDescriptor::systemFont(13), textColor, TextAlignment::Center, LineBreakMode::ByClipping);
    return;
  }
  if (style == String(u"disclosure") || style == String(u"roundedDisclosure")) {
    rounded(centredVertically(inset(r, 2, 0), std::min(r.h, 18.0)), 4, faceColor(), edgeColor());
    triangle({r.x + r.w / 2, r.y + r.h / 2}, 3.5, cell.state() != 0, labelColor());
    return;
  }

  Rect body = r;
  bool primary = false;
  if (cell.isBordered() || !style.isNil()) {
    if (style.isNil() || style == String(u"rounded")) {
      // Push buttons keep room around the bezel for their shadow.
      body = centredVertically(inset(r, std::min(6.0, r.w / 4), 0), std::min(r.h, 21.0));
      primary = cell.keyEquivalent() == String(u"\r");
      rounded(body, 5, primary ? accent() : faceColor(), primary ? nullptr : edgeColor());
    } else if (style == String(u"inline") || style == String(u"recessed") || style == String(u"roundRect") ||
               style == String(u"texturedRounded") || style == String(u"round") ||
               style == String(u"texturedSquare")) {
      rounded(body, std::min(body.h / 2, 6.0), settings().dark ? gray(0.3) : gray(0.96), edgeColor());
    } else {
      rounded(body, 2, settings().dark ? gray(0.3) : gray(0.97), edgeColor());
    }
  }
  const String image = cell.state() != 0 && !cell.alternateImageName().isNil() ? cell.alternateImageName()
                                                                               : cell.imageName();
  const String title = cell.state() != 0 && cell.alternateTitle().length() > 0 ? cell.alternateTitle() : cell.title();
  if (imageOnly || (title.length() == 0 && !image.isNil())) {
    namedImage(image, inset(body, 2, 2), textColor);
    return;
  }
  Rect titleRect = inset(body, 4, 0);
  if (!image.isNil() && cell.imagePosition() == CellImagePosition::ImageLeft) {
    // Image at the left of the title.
    const double side = std::min(body.h - 4, 18.0);
    namedImage(image, {titleRect.x, body.y + (body.h - side) / 2, side, side}, textColor);
    titleRect.x += side + 3;
    titleRect.w -= side + 3;
  }
  text(title, titleRect, cell.font(), primary ? Color::whiteColor() : textColor, TextAlignment::Center);
}

void drawSegmentedCell(const Cell& cell, Rect r) {
  const auto* segmented = dynamic_cast<const SegmentedCell*>(&cell);
  if (!segmented || segmented->segments().empty()) return;
  const auto& segments = segmented->segments();
  const Rect body = centredVertically(r, std::min(r.h, 22.0));
  rounded(body, 5, faceColor(), edgeColor());
  double fixed = 0;
  int flexible = 0;
  for (const auto& s : segments) s.width > 0 ? fixed += s.width : ++flexible;
  const double each = flexible ? std::max(0.0, body.w - fixed) / flexible : 0;
  double x = body.x;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    const auto& s = segments[i];
    const double w = s.width > 0 ? s.width : each;
    const Rect seg{x, body.y, w, body.h};
    if (s.selected) rounded(inset(seg, 1, 1), 4, settings().dark ? gray(0.45) : gray(0.85), nullptr);
    if (i > 0) line({x, body.y + 3}, {x, body.maxY() - 3}, edgeColor());
    if (s.label.length() > 0) {
      text(s.label, inset(seg, 3, 0), cell.font(), labelColor(s.enabled), TextAlignment::Center);
    } else if (!s.imageName.isNil()) {
      namedImage(s.imageName, inset(seg, 3, 3), labelColor(s.enabled));
    }
    x += w;
  }
}

}  // namespace tq::drawing
