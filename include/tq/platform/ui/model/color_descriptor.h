// ColorDescriptor: a colour as an interface archive stores it: either a named catalog colour
// ("controlColor" of catalog "System") whose value the drawing side knows, or components.
#pragma once

#include "tq/platform/base/string.h"

namespace tq {

struct ColorDescriptor {
  // Catalog colours: the colour's name and catalog. Nil name for a component colour.
  String name;
  String catalog;
  // Component colours (also filled for a white colour: red = green = blue = white).
  double red = 0, green = 0, blue = 0, alpha = 1;
  // The archived colour space ("catalog", "calibratedWhite", "calibratedRGB", "sRGB", ...).
  String colorSpace;

  bool isNamed() const { return !name.isNil(); }
  static ColorDescriptor named(const String& name, const String& catalog = u"System") {
    ColorDescriptor c;
    c.name = name;
    c.catalog = catalog;
    c.colorSpace = u"catalog";
    return c;
  }
  static ColorDescriptor rgb(double r, double g, double b, double a = 1) {
    ColorDescriptor c;
    c.red = r, c.green = g, c.blue = b, c.alpha = a;
    c.colorSpace = u"sRGB";
    return c;
  }
  friend bool operator==(const ColorDescriptor&, const ColorDescriptor&) = default;
};

}  // namespace tq
