// Points, sizes and rectangles of the interface model, in points (double precision).
//
// A Rect is origin x, origin y, width, height. Whether y grows upwards or downwards depends on the
// view the rectangle belongs to (see View::isFlipped).
#pragma once

namespace tq {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double w = 0;
  double h = 0;

  Point origin() const { return {x, y}; }
  Size size() const { return {w, h}; }
  double maxX() const { return x + w; }
  double maxY() const { return y + h; }
  bool isEmpty() const { return !(w > 0) || !(h > 0); }
  friend bool operator==(const Rect&, const Rect&) = default;
};

inline Rect makeRect(double x, double y, double w, double h) { return Rect{x, y, w, h}; }

}  // namespace tq
