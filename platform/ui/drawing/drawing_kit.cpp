// Shapes, text and colours of the interface model's look, and the settings of one drawing.
#include "drawing_kit.h"

#include <algorithm>
#include <numbers>

#include "tq/platform/ui/drawing/string_drawing.h"

namespace tq::drawing {

namespace {
thread_local Settings current;
}  // namespace

const Settings& settings() { return current; }

Session::Session(Settings settings) : previous_(current) { current = settings; }
Session::~Session() { current = previous_; }

GraphicsContext& ctx() { return *GraphicsContext::currentContext(); }

const ColorRef& accent() {
  static const ColorRef c = rgb(0.2, 0.47, 0.96);
  return c;
}

ColorRef labelColor(bool enabled) {
  if (current.dark) return enabled ? gray(0.92) : gray(0.55);
  return enabled ? Color::controlTextColor() : Color::disabledControlTextColor();
}

ColorRef faceColor() { return current.dark ? gray(0.3) : Color::whiteColor(); }
ColorRef edgeColor() { return current.dark ? gray(0.5) : gray(0.7); }

double up() { return ctx().userSpaceIsFlipped() ? -1 : 1; }

namespace {

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

}  // namespace

void rounded(Rect r, double radius, const ColorRef& fillColor, const ColorRef& stroke, double lineWidth) {
  if (r.isEmpty()) return;
  if (fillColor) {
    pathRounded(r, radius);
    ctx().fillPath(fillColor);
  }
  if (stroke) {
    const double h = lineWidth / 2;
    pathRounded({r.x + h, r.y + h, r.w - lineWidth, r.h - lineWidth}, radius - h);
    ctx().strokePath(stroke, lineWidth);
  }
}

void circle(Point centre, double radius, const ColorRef& fillColor, const ColorRef& stroke) {
  rounded({centre.x - radius, centre.y - radius, 2 * radius, 2 * radius}, radius, fillColor, stroke);
}

void line(Point a, Point b, const ColorRef& color, double width) {
  ctx().setStrokeColor(color);
  ctx().strokeLine(a, b, width);
}

void fill(Rect r, const ColorRef& color) {
  ctx().setFillColor(color);
  ctx().fillRect(r, NSCompositeSourceOver);
}

void triangle(Point c, double size, bool pointsUp, const ColorRef& color) {
  cairo_t* cr = ctx().cairo();
  const double dir = (pointsUp ? 1 : -1) * up();
  cairo_move_to(cr, c.x - size, c.y - dir * size / 2);
  cairo_line_to(cr, c.x + size, c.y - dir * size / 2);
  cairo_line_to(cr, c.x, c.y + dir * size / 2);
  cairo_close_path(cr);
  ctx().fillPath(color);
}

void text(const String& s, Rect r, const FontDescriptor& font, const ColorRef& color, TextAlignment alignment,
          LineBreakMode mode, bool centre) {
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

void imagePlaceholder(const String& name, Rect r) {
  const double side = std::min({r.w, r.h, 32.0});
  if (side < 4) {
    // Too thin for a box: the area itself in the placeholder grey (such images are mostly rules).
    fill(r, gray(0.6));
    return;
  }
  const Rect box{r.x + (r.w - side) / 2, r.y + (r.h - side) / 2, side, side};
  rounded(box, side / 5, gray(0.8), gray(0.6));
  if (name.length() > 0 && side >= 10) {
    text(name.substringToIndex(1), box, FontDescriptor::systemFont(side * 0.55), gray(0.35), TextAlignment::Center,
         LineBreakMode::ByClipping);
  }
}

void namedImage(const String& name, Rect r, const ColorRef& tint) {
  if (name.length() == 0 || r.isEmpty()) return;
  if (current.images) {
    if (ImageRef image = current.images->imageNamed(name)) {
      const Size size = image->size();
      if (size.width > 0 && size.height > 0) {
        // Proportionally down into r, centred; never enlarged beyond its own size.
        const double k = std::min({1.0, r.w / size.width, r.h / size.height});
        const double w = size.width * k, h = size.height * k;
        const Rect target{r.x + (r.w - w) / 2, r.y + (r.h - h) / 2, w, h};
        const ImageInterpolation interpolation = ctx().imageInterpolation();
        GraphicsContext::saveGraphicsState();
        if (ctx().userSpaceIsFlipped()) {
          // Images draw their top row at the maximum y: turn them upright in a flipped space.
          AffineTransform flip;
          flip.translateXBy(0, 2 * target.y + target.h);
          flip.scaleXBy(1, -1);
          flip.concat();
        }
        ctx().setImageInterpolation(NSImageInterpolationHigh);
        image->drawInRect(target, {}, NSCompositeSourceOver, 1.0);
        GraphicsContext::restoreGraphicsState();
        ctx().setImageInterpolation(interpolation);
        return;
      }
    }
  }
  if (templateStandIn(name, r, tint ? tint : labelColor())) return;
  imagePlaceholder(name, r);
}

}  // namespace tq::drawing
