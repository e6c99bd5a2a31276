// Stand-ins for the platform's common named images: simple vector shapes of the same meaning (a
// gear for the action menu, plus and minus, the share box, status lights...), drawn in a square
// centred in the rectangle and tinted like template images.
#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <string_view>
#include <unordered_map>

#include "drawing_kit.h"

namespace tq::drawing {

namespace {

constexpr double kPi = std::numbers::pi;

// The square the shapes are drawn in, with "top" and "down" meaning the screen's.
struct Square {
  double x, y, side;  // top-left corner on the screen, whatever the space's direction
  double dir;         // +1 when y runs downwards in user space
  Point at(double u, double v) const { return {x + u * side, y + dir * v * side}; }  // u, v in 0..1 from the top left
  double len(double f) const { return f * side; }
};

// The square centred in r, at most `most` points on a side.
Square squareIn(Rect r, double most) {
  const double side = std::max(0.0, std::min({r.w, r.h, most}));
  const double flippedDir = ctx().userSpaceIsFlipped() ? 1 : -1;
  const double left = r.x + (r.w - side) / 2;
  const double top = flippedDir > 0 ? r.y + (r.h - side) / 2 : r.maxY() - (r.h - side) / 2;
  return {left, top, side, flippedDir};
}

cairo_t* cr() { return ctx().cairo(); }
void moveTo(Point p) { cairo_move_to(cr(), p.x, p.y); }
void lineTo(Point p) { cairo_line_to(cr(), p.x, p.y); }

void stroke(const ColorRef& c, double width) { ctx().strokePath(c, width); }

void gear(const Square& s, const ColorRef& c) {
  const Point o = s.at(0.5, 0.5);
  const int teeth = 8;
  const double outer = s.len(0.48), inner = s.len(0.36);
  for (int i = 0; i < teeth * 2; ++i) {
    const double a0 = i * kPi / teeth, a1 = (i + 1) * kPi / teeth;
    const double r = i % 2 ? inner : outer;
    const Point p0{o.x + r * std::cos(a0), o.y + r * std::sin(a0)};
    if (i == 0) moveTo(p0); else lineTo(p0);
    lineTo({o.x + r * std::cos(a1), o.y + r * std::sin(a1)});
  }
  cairo_close_path(cr());
  cairo_new_sub_path(cr());
  cairo_arc_negative(cr(), o.x, o.y, s.len(0.15), 0, -2 * kPi);
  cairo_set_fill_rule(cr(), CAIRO_FILL_RULE_EVEN_ODD);
  ctx().fillPath(c);
  cairo_set_fill_rule(cr(), CAIRO_FILL_RULE_WINDING);
}

void plus(const Square& s, const ColorRef& c) {
  const double w = std::max(1.0, s.len(0.14));
  moveTo(s.at(0.5, 0.12)); lineTo(s.at(0.5, 0.88));
  moveTo(s.at(0.12, 0.5)); lineTo(s.at(0.88, 0.5));
  stroke(c, w);
}

void minus(const Square& s, const ColorRef& c) {
  moveTo(s.at(0.12, 0.5)); lineTo(s.at(0.88, 0.5));
  stroke(c, std::max(1.0, s.len(0.14)));
}

void cross(const Square& s, const ColorRef& c) {
  moveTo(s.at(0.2, 0.2)); lineTo(s.at(0.8, 0.8));
  moveTo(s.at(0.8, 0.2)); lineTo(s.at(0.2, 0.8));
  stroke(c, std::max(1.0, s.len(0.12)));
}

void chevron(const Square& s, const ColorRef& c, bool right) {
  const double a = right ? 0.35 : 0.65, b = right ? 0.65 : 0.35;
  moveTo(s.at(a, 0.15)); lineTo(s.at(b, 0.5)); lineTo(s.at(a, 0.85));
  stroke(c, std::max(1.0, s.len(0.12)));
}

void share(const Square& s, const ColorRef& c) {
  const double w = std::max(1.0, s.len(0.08));
  moveTo(s.at(0.35, 0.4)); lineTo(s.at(0.2, 0.4)); lineTo(s.at(0.2, 0.95));
  lineTo(s.at(0.8, 0.95)); lineTo(s.at(0.8, 0.4)); lineTo(s.at(0.65, 0.4));
  moveTo(s.at(0.5, 0.05)); lineTo(s.at(0.5, 0.62));
  moveTo(s.at(0.32, 0.22)); lineTo(s.at(0.5, 0.05)); lineTo(s.at(0.68, 0.22));
  stroke(c, w);
}

void refresh(const Square& s, const ColorRef& c) {
  const Point o = s.at(0.5, 0.5);
  cairo_new_sub_path(cr());
  cairo_arc(cr(), o.x, o.y, s.len(0.34), 0.3, 2 * kPi - 0.5);
  stroke(c, std::max(1.0, s.len(0.1)));
  const double a = 2 * kPi - 0.5;
  const Point tip{o.x + s.len(0.34) * std::cos(a), o.y + s.len(0.34) * std::sin(a)};
  moveTo({tip.x - s.len(0.18), tip.y}); lineTo({tip.x + s.len(0.06), tip.y - s.len(0.2)});
  lineTo({tip.x + s.len(0.1), tip.y + s.len(0.12)});
  cairo_close_path(cr());
  ctx().fillPath(c);
}

void padlock(const Square& s, const ColorRef& c, bool locked) {
  rounded({s.x + s.len(0.18), std::min(s.at(0, 0.45).y, s.at(0, 0.95).y), s.len(0.64), s.len(0.5)}, s.len(0.08), c, nullptr);
  const Point o = s.at(locked ? 0.5 : 0.7, 0.3);
  const double r = s.len(0.2);
  moveTo({o.x - r, s.at(0, 0.45).y});
  lineTo({o.x - r, o.y});
  // Over the top of the screen, whichever way y runs.
  if (s.dir > 0) {
    cairo_arc(cr(), o.x, o.y, r, kPi, 2 * kPi);
  } else {
    cairo_arc_negative(cr(), o.x, o.y, r, kPi, 0);
  }
  lineTo({o.x + r, s.at(0, 0.45).y});
  stroke(c, std::max(1.0, s.len(0.1)));
}

void eye(const Square& s, const ColorRef& c) {
  moveTo(s.at(0.05, 0.5));
  cairo_curve_to(cr(), s.at(0.3, 0.15).x, s.at(0.3, 0.15).y, s.at(0.7, 0.15).x, s.at(0.7, 0.15).y, s.at(0.95, 0.5).x,
                 s.at(0.95, 0.5).y);
  cairo_curve_to(cr(), s.at(0.7, 0.85).x, s.at(0.7, 0.85).y, s.at(0.3, 0.85).x, s.at(0.3, 0.85).y, s.at(0.05, 0.5).x,
                 s.at(0.05, 0.5).y);
  stroke(c, std::max(1.0, s.len(0.08)));
  circle(s.at(0.5, 0.5), s.len(0.14), c, nullptr);
}

void arrowCircle(const Square& s, const ColorRef& c) {
  circle(s.at(0.5, 0.5), s.len(0.46), gray(0.6), nullptr);
  moveTo(s.at(0.3, 0.5)); lineTo(s.at(0.68, 0.5));
  moveTo(s.at(0.52, 0.32)); lineTo(s.at(0.7, 0.5)); lineTo(s.at(0.52, 0.68));
  stroke(Color::whiteColor(), std::max(1.0, s.len(0.1)));
  (void)c;
}

void lines(const Square& s, const ColorRef& c) {
  for (double v : {0.22, 0.5, 0.78}) {
    moveTo(s.at(0.1, v)); lineTo(s.at(0.9, v));
  }
  stroke(c, std::max(1.0, s.len(0.1)));
}

void grid(const Square& s, const ColorRef& c) {
  for (double u : {0.08, 0.55}) {
    for (double v : {0.08, 0.55}) {
      const Point p = s.at(u, v);
      rounded({p.x, s.dir > 0 ? p.y : p.y - s.len(0.37), s.len(0.37), s.len(0.37)}, 1, c, nullptr);
    }
  }
}

void check(const Square& s, const ColorRef& c) {
  moveTo(s.at(0.15, 0.55)); lineTo(s.at(0.4, 0.8)); lineTo(s.at(0.85, 0.2));
  stroke(c, std::max(1.0, s.len(0.13)));
}

void magnifier(const Square& s, const ColorRef& c) {
  const Point o = s.at(0.42, 0.42);
  cairo_new_sub_path(cr());
  cairo_arc(cr(), o.x, o.y, s.len(0.28), 0, 2 * kPi);
  moveTo(s.at(0.62, 0.62)); lineTo(s.at(0.9, 0.9));
  stroke(c, std::max(1.0, s.len(0.1)));
}

void light(const Square& s, const ColorRef& c) {
  circle(s.at(0.5, 0.5), s.len(0.36), c, gray(0, 0.25));
}

void badge(const Square& s, const ColorRef& c, const char16_t* letter) {
  circle(s.at(0.5, 0.5), s.len(0.46), c, nullptr);
  text(letter, {s.x, std::min(s.y, s.y + s.dir * s.side), s.side, s.side}, FontDescriptor::systemFont(s.len(0.6)),
       Color::whiteColor(), TextAlignment::Center, LineBreakMode::ByClipping);
}

void caution(const Square& s) {
  moveTo(s.at(0.5, 0.05)); lineTo(s.at(0.95, 0.92)); lineTo(s.at(0.05, 0.92));
  cairo_close_path(cr());
  ctx().fillPath(rgb(0.98, 0.75, 0.1));
  moveTo(s.at(0.5, 0.35)); lineTo(s.at(0.5, 0.65));
  moveTo(s.at(0.5, 0.72)); lineTo(s.at(0.5, 0.8));
  stroke(Color::blackColor(), std::max(1.0, s.len(0.09)));
}

void appIcon(const Square& s) {
  const Rect r{s.x + s.len(0.06), std::min(s.at(0, 0.06).y, s.at(0, 0.94).y), s.len(0.88), s.len(0.88)};
  rounded(r, s.len(0.2), rgb(0.3, 0.55, 0.95), gray(0, 0.2));
  circle(s.at(0.5, 0.5), s.len(0.24), Color::whiteColor(), nullptr);
}

void folder(const Square& s) {
  const Rect body{s.x + s.len(0.05), std::min(s.at(0, 0.3).y, s.at(0, 0.88).y), s.len(0.9), s.len(0.58)};
  const Rect tab{s.x + s.len(0.05), std::min(s.at(0, 0.2).y, s.at(0, 0.36).y), s.len(0.38), s.len(0.16)};
  rounded(tab, s.len(0.05), rgb(0.35, 0.65, 0.95), nullptr);
  rounded(body, s.len(0.06), rgb(0.45, 0.72, 0.98), nullptr);
}

void person(const Square& s, const ColorRef& c) {
  circle(s.at(0.5, 0.3), s.len(0.18), c, nullptr);
  moveTo(s.at(0.15, 0.95));
  const Point a = s.at(0.15, 0.55), b = s.at(0.85, 0.55), e = s.at(0.85, 0.95);
  cairo_curve_to(cr(), a.x, a.y, b.x, b.y, e.x, e.y);
  cairo_close_path(cr());
  ctx().fillPath(c);
}

using Shape = std::function<void(const Square&, const ColorRef&)>;

const std::unordered_map<std::u16string_view, Shape>& shapes() {
  static const std::unordered_map<std::u16string_view, Shape> table = {
      {u"NSActionTemplate", gear},
      {u"NSAdvanced", gear},
      {u"NSSmartBadgeTemplate", gear},
      {u"NSAddTemplate", plus},
      {u"NSTouchBarAddTemplate", plus},
      {u"NSRemoveTemplate", minus},
      {u"NSTouchBarRemoveTemplate", minus},
      {u"NSMenuMixedStateTemplate", minus},
      {u"NSStopProgressTemplate", cross},
      {u"NSStopProgressFreestandingTemplate", cross},
      {u"NSGoLeftTemplate", [](const Square& s, const ColorRef& c) { chevron(s, c, false); }},
      {u"NSGoBackTemplate", [](const Square& s, const ColorRef& c) { chevron(s, c, false); }},
      {u"NSGoRightTemplate", [](const Square& s, const ColorRef& c) { chevron(s, c, true); }},
      {u"NSGoForwardTemplate", [](const Square& s, const ColorRef& c) { chevron(s, c, true); }},
      {u"NSShareTemplate", share},
      {u"NSRefreshTemplate", refresh},
      {u"NSRefreshFreestandingTemplate", refresh},
      {u"NSSynchronize", refresh},
      {u"NSLockLockedTemplate", [](const Square& s, const ColorRef& c) { padlock(s, c, true); }},
      {u"NSLockUnlockedTemplate", [](const Square& s, const ColorRef& c) { padlock(s, c, false); }},
      {u"NSQuickLookTemplate", eye},
      {u"NSRevealFreestandingTemplate", magnifier},
      {u"NSFollowLinkFreestandingTemplate", arrowCircle},
      {u"NSListViewTemplate", lines},
      {u"NSIconViewTemplate", grid},
      {u"NSMenuOnStateTemplate", check},
      {u"NSUser", person},
      {u"NSUserGuest", person},
      {u"NSEveryone", person},
      {u"NSStatusAvailable", [](const Square& s, const ColorRef&) { light(s, rgb(0.2, 0.78, 0.3)); }},
      {u"NSStatusPartiallyAvailable", [](const Square& s, const ColorRef&) { light(s, rgb(0.98, 0.78, 0.1)); }},
      {u"NSStatusUnavailable", [](const Square& s, const ColorRef&) { light(s, rgb(0.95, 0.25, 0.22)); }},
      {u"NSStatusNone", [](const Square& s, const ColorRef&) { light(s, gray(0.75)); }},
      {u"NSInfo", [](const Square& s, const ColorRef&) { badge(s, rgb(0.2, 0.47, 0.96), u"i"); }},
      {u"NSInvalidDataFreestandingTemplate", [](const Square& s, const ColorRef&) { badge(s, rgb(0.95, 0.25, 0.22), u"!"); }},
      {u"NSCaution", [](const Square& s, const ColorRef&) { caution(s); }},
      {u"NSApplicationIcon", [](const Square& s, const ColorRef&) { appIcon(s); }},
      {u"NSFolder", [](const Square& s, const ColorRef&) { folder(s); }},
  };
  return table;
}

// The side of the square a stand-in is drawn in at most: template images and status lights are
// small glyphs of a fixed size, drawn at that size (never enlarged to their button) and only made
// smaller to fit; the other images are icons that scale to their place. The sizes are those of the
// glyphs inside the platform's images (the add image is 14 x 13 points round a plus of about 10).
double naturalSide(std::u16string_view name) {
  static const std::unordered_map<std::u16string_view, double> sides = {
      {u"NSAddTemplate", 12},          {u"NSRemoveTemplate", 12},       {u"NSMenuMixedStateTemplate", 10},
      {u"NSMenuOnStateTemplate", 10},  {u"NSStopProgressTemplate", 11}, {u"NSGoLeftTemplate", 12},
      {u"NSGoRightTemplate", 12},      {u"NSGoBackTemplate", 12},       {u"NSGoForwardTemplate", 12},
      {u"NSActionTemplate", 14},       {u"NSShareTemplate", 16},        {u"NSQuickLookTemplate", 16},
      {u"NSTouchBarAddTemplate", 16},  {u"NSTouchBarRemoveTemplate", 16},
  };
  if (auto it = sides.find(name); it != sides.end()) return it->second;
  constexpr std::u16string_view kTemplate = u"Template", kStatus = u"NSStatus";
  if (name.size() >= kTemplate.size() && name.substr(name.size() - kTemplate.size()) == kTemplate) return 14;
  if (name.substr(0, kStatus.size()) == kStatus) return 16;
  return 1e9;
}

}  // namespace

bool templateStandIn(const String& name, Rect r, const ColorRef& tint) {
  if (name.length() == 0) return false;
  const auto& table = shapes();
  const auto it = table.find(name.view());
  if (it == table.end()) return false;
  const Square s = squareIn(r, naturalSide(name.view()));
  if (s.side < 3) return true;
  cairo_save(cr());
  cairo_new_path(cr());
  cairo_set_line_cap(cr(), CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr(), CAIRO_LINE_JOIN_ROUND);
  it->second(s, tint);
  cairo_new_path(cr());
  cairo_restore(cr());
  return true;
}

}  // namespace tq::drawing
