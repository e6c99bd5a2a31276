// Drawing the controls that show a value in a range: sliders, steppers, level and progress
// indicators, date pickers, colour wells. They are found by class name, so that every form of the
// model (a class of its own, or a plain control named "NSSlider") draws the same.
#include <algorithm>
#include <cmath>
#include <ctime>
#include <numbers>

#include "drawing_kit.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/view.h"

namespace tq::drawing {

namespace {

constexpr double kPi = std::numbers::pi;

// The value's place in its range, 0 to 1.
double fraction(double value, double min, double max) {
  if (!(max > min)) return 0;
  return std::clamp((value - min) / (max - min), 0.0, 1.0);
}

double fractionOf(const Cell* cell) {
  return cell ? fraction(cell->doubleValue(), cell->minValue(), cell->maxValue()) : 0;
}

// A point `f` of the way along the screen's horizontal, or from the bottom of the screen upwards.
double alongUp(Rect r, double f) { return up() > 0 ? r.y + f * r.h : r.maxY() - f * r.h; }

void slider(const Cell* cell, Rect b) {
  const double f = fractionOf(cell);
  const long ticks = cell ? cell->numberOfTickMarks() : 0;
  if (cell && cell->controlStyle() == String(u"circular")) {
    const double radius = std::max(2.0, std::min(b.w, b.h) / 2 - 2);
    const Point o{b.x + b.w / 2, b.y + b.h / 2};
    circle(o, radius, faceColor(), edgeColor());
    // Zero at the top of the screen, clockwise.
    const double a = 2 * kPi * f;
    const Point dot{o.x + std::sin(a) * radius * 0.6, o.y + up() * std::cos(a) * radius * 0.6};
    circle(dot, std::max(1.5, radius / 6), labelColor(), nullptr);
    return;
  }
  const bool vertical = b.h > b.w;
  const double knob = std::min({vertical ? b.w / 2 - 1 : b.h / 2 - 1, 8.0});
  if (vertical) {
    const Rect track{b.x + b.w / 2 - 2, b.y + knob, 4, std::max(0.0, b.h - 2 * knob)};
    rounded(track, 2, settings().dark ? gray(0.4) : gray(0.8), nullptr);
    for (long i = 0; i < ticks && ticks > 1; ++i) {
      const double y = alongUp(track, double(i) / double(ticks - 1));
      line({b.x + b.w / 2 + 5, y}, {b.x + b.w / 2 + 9, y}, edgeColor());
    }
    circle({b.x + b.w / 2, alongUp(track, f)}, knob, faceColor(), edgeColor());
  } else {
    const Rect track{b.x + knob, b.y + b.h / 2 - 2, std::max(0.0, b.w - 2 * knob), 4};
    rounded(track, 2, settings().dark ? gray(0.4) : gray(0.8), nullptr);
    if (f > 0) rounded({track.x, track.y, track.w * f, track.h}, 2, accent(), nullptr);
    for (long i = 0; i < ticks && ticks > 1; ++i) {
      const double x = track.x + track.w * double(i) / double(ticks - 1);
      const double y = b.y + b.h / 2 - up() * 6;
      line({x, y}, {x, y - up() * 3}, edgeColor());
    }
    circle({track.x + track.w * f, b.y + b.h / 2}, knob, faceColor(), edgeColor());
  }
}

void stepper(Rect b) {
  const Rect body = inset(b, std::max(0.0, (b.w - 13) / 2), std::max(1.0, (b.h - 22) / 2));
  rounded(body, 4, faceColor(), edgeColor());
  const double quarter = up() * body.h / 4;
  const Point c{body.x + body.w / 2, body.y + body.h / 2};
  line({body.x + 2, c.y}, {body.maxX() - 2, c.y}, edgeColor(), 0.5);
  triangle({c.x, c.y + quarter}, 2.5, true, labelColor());
  triangle({c.x, c.y - quarter}, 2.5, false, labelColor());
}

void levelIndicator(const Cell* cell, Rect b) {
  const String style = cell ? cell->controlStyle() : String();
  const double f = fractionOf(cell);
  const Rect body = centredVertically(b, std::min(b.h, 16.0));
  if (style == String(u"rating")) {
    // Stars: as many as the range, the value's first ones filled.
    const long stars = cell ? std::max(1L, std::lround(cell->maxValue() - cell->minValue())) : 5;
    const double side = std::min(body.h, b.w / double(stars));
    for (long i = 0; i < stars; ++i) {
      const Point o{body.x + side * (i + 0.5), body.y + body.h / 2};
      cairo_t* cr = ctx().cairo();
      for (int k = 0; k < 10; ++k) {
        const double a = -kPi / 2 + k * kPi / 5;
        const double radius = k % 2 ? side * 0.2 : side * 0.45;
        const Point p{o.x + radius * std::cos(a), o.y + up() * radius * std::sin(-a)};
        k == 0 ? cairo_move_to(cr, p.x, p.y) : cairo_line_to(cr, p.x, p.y);
      }
      cairo_close_path(cr);
      const bool filled = (i + 0.5) <= f * double(stars);
      if (filled) {
        ctx().fillPath(labelColor());
      } else {
        ctx().strokePath(edgeColor(), 1);
      }
    }
    return;
  }
  if (style == String(u"relevancy")) {
    const int bars = std::max(1, int(b.w / 3));
    for (int i = 0; i < int(bars * f); ++i) line({b.x + i * 3 + 1, body.y + 2}, {b.x + i * 3 + 1, body.maxY() - 2}, gray(0.45), 2);
    return;
  }
  const ColorRef level = f > 0.9 ? rgb(0.95, 0.25, 0.22) : f > 0.75 ? rgb(0.98, 0.78, 0.1) : rgb(0.2, 0.78, 0.3);
  rounded(body, 2, faceColor(), edgeColor());
  if (style == String(u"discreteCapacity") && cell && cell->maxValue() > cell->minValue()) {
    const long cells = std::max(1L, std::lround(cell->maxValue() - cell->minValue()));
    const double w = body.w / double(cells);
    for (long i = 0; i < cells; ++i) {
      const Rect c = inset({body.x + i * w, body.y, w, body.h}, 1, 2);
      if ((i + 1) <= std::lround(f * double(cells))) rounded(c, 1, level, nullptr);
    }
    return;
  }
  if (f > 0) rounded(inset({body.x, body.y, body.w * f, body.h}, 1, 1), 1, level, nullptr);
}

void progress(const View* view, Rect b) {
  const auto* p = dynamic_cast<const ProgressIndicator*>(view);
  if (p && p->isIndeterminate() && !p->isDisplayedWhenStopped()) return;  // stopped: not shown
  const bool spinning = p ? p->style() == ProgressIndicator::Style::Spinning : std::abs(b.w - b.h) < 4;
  if (spinning) {
    const Point o{b.x + b.w / 2, b.y + b.h / 2};
    const double radius = std::min(b.w, b.h) / 2 - 1;
    for (int i = 0; i < 12; ++i) {
      const double a = i * kPi / 6;
      line({o.x + std::cos(a) * radius * 0.45, o.y + std::sin(a) * radius * 0.45},
           {o.x + std::cos(a) * radius, o.y + std::sin(a) * radius}, gray(settings().dark ? 0.9 : 0.3, 0.25 + i / 16.0),
           std::max(1.0, radius / 5));
    }
    return;
  }
  const Rect track = centredVertically(b, std::min(b.h, 6.0));
  rounded(track, 3, settings().dark ? gray(0.35) : gray(0.88), edgeColor());
  if (p && p->isIndeterminate()) {
    // Stripes: activity without a value.
    for (double x = track.x + 2; x + 6 < track.maxX(); x += 12) rounded({x, track.y + 1, 6, track.h - 2}, 2, accent(), nullptr);
    return;
  }
  const double f = p ? fraction(p->doubleValue(), p->minValue(), p->maxValue()) : 0.3;
  if (f > 0) rounded({track.x, track.y, track.w * f, track.h}, 3, accent(), nullptr);
}

// The date as the user's clock shows it, in the fields the picker has.
String dateText(const Cell* cell) {
  const double seconds = cell ? cell->doubleValue() : 0;
  const unsigned elements = cell ? cell->dateElements() : Cell::DateElementYearMonthDay;
  // Seconds since 2001-01-01 00:00 UTC, shown in UTC so that pictures do not depend on the machine.
  const std::time_t t = static_cast<std::time_t>(std::floor(seconds)) + 978307200;
  std::tm tm{};
  gmtime_r(&t, &tm);
  std::string format;
  if (elements & Cell::DateElementYearMonthDay) format += "%Y-%m-%d";
  if (elements & (Cell::DateElementHourMinute | Cell::DateElementSecond)) {
    if (!format.empty()) format += ' ';
    format += elements & Cell::DateElementSecond ? "%H:%M:%S" : "%H:%M";
  }
  char buffer[64] = {};
  if (format.empty() || std::strftime(buffer, sizeof buffer, format.c_str(), &tm) == 0) return String::empty();
  return String::fromUTF8(buffer);
}

void datePicker(const Cell* cell, Rect b) {
  if (cell && cell->controlStyle() == String(u"clockAndCalendar")) {
    rounded(b, 3, faceColor(), edgeColor());
    text(dateText(cell), inset(b, 4, 2), cell->font(), labelColor(cell->isEnabled()), TextAlignment::Center);
    return;
  }
  const bool withStepper = !cell || cell->controlStyle().isNil() || cell->controlStyle() == String(u"textFieldAndStepper");
  const Rect field = withStepper ? Rect{b.x, b.y, std::max(0.0, b.w - 16), b.h} : b;
  const Rect box = centredVertically(field, std::min(field.h, 22.0));
  fill(box, faceColor());
  rounded(box, 0, nullptr, edgeColor());
  text(dateText(cell), inset(box, 4, 1), cell ? cell->font() : FontDescriptor::systemFont(13),
       labelColor(!cell || cell->isEnabled()));
  if (withStepper) stepper({field.maxX() + 2, b.y, 14, b.h});
}

// A path control: the folder names of its URL after a folder mark, separated by chevrons.
void pathControl(const Cell* cell, Rect b) {
  std::string url = cell ? cell->stringValue().UTF8String() : std::string();
  if (const auto scheme = url.find("://"); scheme != std::string::npos) {
    url = url.substr(scheme + 3);
    url = url.substr(std::min(url.find('/'), url.size()));  // drop the host
  }
  std::string shown;
  for (std::size_t start = 0; start < url.size();) {
    std::size_t end = url.find('/', start);
    if (end == std::string::npos) end = url.size();
    if (end > start) shown += (shown.empty() ? "" : "  \u203A  ") + url.substr(start, end - start);
    start = end + 1;
  }
  const double side = std::min(b.h - 4, 14.0);
  templateStandIn(u"NSFolder", {b.x + 2, b.y + (b.h - side) / 2, side, side}, labelColor());
  text(String::fromUTF8(shown.empty() ? "/" : shown), {b.x + side + 6, b.y, b.w - side - 6, b.h},
       cell ? cell->font() : FontDescriptor::systemFont(11), labelColor(!cell || cell->isEnabled()));
}

void colorWell(Rect b) {
  rounded(b, 2, faceColor(), edgeColor());
  fill(inset(b, 4, 4), gray(0.5));
}

}  // namespace

bool drawValueControl(const String& name, const Cell* cell, const View* view, Rect r) {
  if (name == String(u"NSSlider") || name == String(u"NSSliderCell")) {
    slider(cell, r);
  } else if (name == String(u"NSStepper") || name == String(u"NSStepperCell")) {
    stepper(r);
  } else if (name == String(u"NSLevelIndicator") || name == String(u"NSLevelIndicatorCell")) {
    levelIndicator(cell, r);
  } else if (name == String(u"NSProgressIndicator")) {
    progress(view, r);
  } else if (name == String(u"NSDatePicker") || name == String(u"NSDatePickerCell")) {
    datePicker(cell, r);
  } else if (name == String(u"NSPathControl") || name == String(u"NSPathCell")) {
    pathControl(cell, r);
  } else if (name == String(u"NSColorWell")) {
    colorWell(r);
  } else {
    return false;
  }
  return true;
}

}  // namespace tq::drawing
