// Colours: component storage and the named colours. Making a colour current is drawing's part
// (drawing/color_drawing.cpp).
#include "tq/platform/ui/model/color.h"

#include <algorithm>
#include <cstdio>

namespace tq {

namespace {

double clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

// One shared instance per named colour, made on first use.
#define TQ_NAMED_COLOR(name, r, g, b, a)                              \
  ColorRef Color::name() {                                            \
    static const ColorRef color = std::make_shared<Color>(r, g, b, a); \
    return color;                                                     \
  }

}  // namespace

Color::Color(double red, double green, double blue, double alpha)
    : red_(clamp01(red)), green_(clamp01(green)), blue_(clamp01(blue)), alpha_(clamp01(alpha)) {}

ColorRef Color::colorWithWhite(double white, double alpha) {
  return std::make_shared<Color>(white, white, white, alpha);
}

ColorRef Color::colorWithRed(double red, double green, double blue, double alpha) {
  return std::make_shared<Color>(red, green, blue, alpha);
}

TQ_NAMED_COLOR(blackColor, 0, 0, 0, 1)
TQ_NAMED_COLOR(darkGrayColor, 1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0, 1)
TQ_NAMED_COLOR(grayColor, 0.5, 0.5, 0.5, 1)
TQ_NAMED_COLOR(lightGrayColor, 2.0 / 3.0, 2.0 / 3.0, 2.0 / 3.0, 1)
TQ_NAMED_COLOR(whiteColor, 1, 1, 1, 1)
TQ_NAMED_COLOR(clearColor, 0, 0, 0, 0)
TQ_NAMED_COLOR(redColor, 1, 0, 0, 1)
TQ_NAMED_COLOR(greenColor, 0, 1, 0, 1)
TQ_NAMED_COLOR(blueColor, 0, 0, 1, 1)
TQ_NAMED_COLOR(cyanColor, 0, 1, 1, 1)
TQ_NAMED_COLOR(yellowColor, 1, 1, 0, 1)
TQ_NAMED_COLOR(magentaColor, 1, 0, 1, 1)
TQ_NAMED_COLOR(orangeColor, 1, 0.5, 0, 1)
TQ_NAMED_COLOR(purpleColor, 0.5, 0, 0.5, 1)
TQ_NAMED_COLOR(brownColor, 0.6, 0.4, 0.2, 1)

TQ_NAMED_COLOR(selectedControlColor, 0.71, 0.835, 1.0, 1)
TQ_NAMED_COLOR(alternateSelectedControlColor, 0.22, 0.459, 0.843, 1)
ColorRef Color::selectedTextBackgroundColor() { return selectedControlColor(); }
TQ_NAMED_COLOR(controlColor, 0.929, 0.929, 0.929, 1)
ColorRef Color::windowBackgroundColor() { return controlColor(); }
ColorRef Color::controlBackgroundColor() { return whiteColor(); }
ColorRef Color::textColor() { return blackColor(); }
ColorRef Color::controlTextColor() { return blackColor(); }
ColorRef Color::selectedTextColor() { return blackColor(); }
ColorRef Color::selectedControlTextColor() { return blackColor(); }
ColorRef Color::alternateSelectedControlTextColor() { return whiteColor(); }
ColorRef Color::disabledControlTextColor() { return grayColor(); }
TQ_NAMED_COLOR(gridColor, 0.8, 0.8, 0.8, 1)
ColorRef Color::headerColor() { return whiteColor(); }
ColorRef Color::headerTextColor() { return blackColor(); }
ColorRef Color::controlShadowColor() { return grayColor(); }
TQ_NAMED_COLOR(controlHighlightColor, 0.85, 0.85, 0.85, 1)
ColorRef Color::highlightColor() { return whiteColor(); }
ColorRef Color::shadowColor() { return blackColor(); }
TQ_NAMED_COLOR(keyboardFocusIndicatorColor, 0.3, 0.55, 0.85, 0.8)

ColorRef Color::colorWithAlphaComponent(double alpha) const {
  return std::make_shared<Color>(red_, green_, blue_, alpha);
}

ColorRef Color::blendedColorWithFraction(double fraction, const ColorRef& other) const {
  if (!other) return nullptr;
  const double f = clamp01(fraction);
  auto mix = [f](double a, double b) { return a + (b - a) * f; };
  return std::make_shared<Color>(mix(red_, other->red_), mix(green_, other->green_),
                                 mix(blue_, other->blue_), mix(alpha_, other->alpha_));
}

ColorRef Color::selfRef() const {
  // A colour made outside a shared_ptr is copied into one.
  if (auto self = weak_from_this().lock()) return std::static_pointer_cast<const Color>(self);
  return std::make_shared<Color>(*this);
}

ColorRef Color::colorWithDescriptor(const ColorDescriptor& descriptor) {
  if (!descriptor.isNamed()) {
    return colorWithRed(descriptor.red, descriptor.green, descriptor.blue, descriptor.alpha);
  }
  using Maker = ColorRef (*)();
  static const std::pair<const char16_t*, Maker> table[] = {
      {u"blackColor", &Color::blackColor},
      {u"darkGrayColor", &Color::darkGrayColor},
      {u"grayColor", &Color::grayColor},
      {u"lightGrayColor", &Color::lightGrayColor},
      {u"whiteColor", &Color::whiteColor},
      {u"clearColor", &Color::clearColor},
      {u"redColor", &Color::redColor},
      {u"greenColor", &Color::greenColor},
      {u"blueColor", &Color::blueColor},
      {u"cyanColor", &Color::cyanColor},
      {u"yellowColor", &Color::yellowColor},
      {u"magentaColor", &Color::magentaColor},
      {u"orangeColor", &Color::orangeColor},
      {u"purpleColor", &Color::purpleColor},
      {u"brownColor", &Color::brownColor},
      {u"selectedControlColor", &Color::selectedControlColor},
      {u"alternateSelectedControlColor", &Color::alternateSelectedControlColor},
      {u"selectedTextBackgroundColor", &Color::selectedTextBackgroundColor},
      {u"controlColor", &Color::controlColor},
      {u"windowBackgroundColor", &Color::windowBackgroundColor},
      {u"controlBackgroundColor", &Color::controlBackgroundColor},
      {u"textBackgroundColor", &Color::controlBackgroundColor},
      {u"textColor", &Color::textColor},
      {u"labelColor", &Color::textColor},
      {u"controlTextColor", &Color::controlTextColor},
      {u"selectedTextColor", &Color::selectedTextColor},
      {u"selectedControlTextColor", &Color::selectedControlTextColor},
      {u"alternateSelectedControlTextColor", &Color::alternateSelectedControlTextColor},
      {u"disabledControlTextColor", &Color::disabledControlTextColor},
      {u"secondaryLabelColor", &Color::disabledControlTextColor},
      {u"gridColor", &Color::gridColor},
      {u"headerColor", &Color::headerColor},
      {u"headerTextColor", &Color::headerTextColor},
      {u"controlShadowColor", &Color::controlShadowColor},
      {u"controlHighlightColor", &Color::controlHighlightColor},
      {u"highlightColor", &Color::highlightColor},
      {u"shadowColor", &Color::shadowColor},
      {u"keyboardFocusIndicatorColor", &Color::keyboardFocusIndicatorColor},
  };
  for (const auto& [name, make] : table) {
    if (descriptor.name == String(name)) return make();
  }
  // An unknown catalog colour: the components archived beside the name, if any, else black.
  return colorWithRed(descriptor.red, descriptor.green, descriptor.blue, descriptor.alpha);
}

bool Color::isEqual(const Object& other) const {
  const auto* c = dynamic_cast<const Color*>(&other);
  return c && c->red_ == red_ && c->green_ == green_ && c->blue_ == blue_ && c->alpha_ == alpha_;
}

String Color::description() const {
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "Color(%.4g, %.4g, %.4g, %.4g)", red_, green_, blue_, alpha_);
  return String::fromUTF8(buffer);
}

}  // namespace tq
