// Color: an immutable RGBA colour, the named colours of the interface, and making a colour current
// for filling and stroking in the current graphics context.
//
// Components are device-independent values from 0.0 to 1.0 (not premultiplied). Colours are shared,
// immutable objects: the named colours are created once and every call returns the same object.
// A nil colour (an empty shared_ptr) is "no colour"; code that asks a nil colour anything gets nil or
// does nothing.
//
// Threads: a Color may be read from any thread. set(), setFill() and setStroke() act on the calling
// thread's current graphics context.
#pragma once

#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/ui/model/color_descriptor.h"

namespace tq {

class Color;
using ColorRef = std::shared_ptr<const Color>;

class Color : public Object {
 public:
  Color(double red, double green, double blue, double alpha);

  // A grey of the given white level (0 black, 1 white) and alpha.
  static ColorRef colorWithWhite(double white, double alpha);
  // Components are clamped to 0..1.
  static ColorRef colorWithRed(double red, double green, double blue, double alpha);

  // The colour an interface archive describes: a named colour of the tables here ("controlColor",
  // "labelColor" as textColor, "secondaryLabelColor" as disabledControlTextColor,
  // "textBackgroundColor" as controlBackgroundColor), or the archived components. A name not known
  // here gives the components archived with it (black by default).
  static ColorRef colorWithDescriptor(const ColorDescriptor& descriptor);

  // The named colours, with the platform's values. Greys: black 0, darkGray 1/3, gray 0.5,
  // lightGray 2/3, white 1; clear is black with alpha 0. Pure colours: red (1,0,0), green (0,1,0),
  // blue (0,0,1), cyan (0,1,1), yellow (1,1,0), magenta (1,0,1), orange (1,0.5,0),
  // purple (0.5,0,0.5), brown (0.6,0.4,0.2).
  static ColorRef blackColor();
  static ColorRef darkGrayColor();
  static ColorRef grayColor();
  static ColorRef lightGrayColor();
  static ColorRef whiteColor();
  static ColorRef clearColor();
  static ColorRef redColor();
  static ColorRef greenColor();
  static ColorRef blueColor();
  static ColorRef cyanColor();
  static ColorRef yellowColor();
  static ColorRef magentaColor();
  static ColorRef orangeColor();
  static ColorRef purpleColor();
  static ColorRef brownColor();

  // The interface's system colours, in the classic light appearance:
  // selectedControlColor: the light blue of a selected row or text (0.71, 0.835, 1.0);
  // alternateSelectedControlColor: the strong blue of a selected row in a focused table
  // (0.22, 0.459, 0.843); selectedTextBackgroundColor equals selectedControlColor;
  // controlColor and windowBackgroundColor: light grey 0.929; controlBackgroundColor: white;
  // textColor, controlTextColor, selectedTextColor, selectedControlTextColor: black;
  // alternateSelectedControlTextColor: white; disabledControlTextColor: grey 0.5;
  // gridColor: grey 0.8; headerColor: white; headerTextColor: black; controlShadowColor: grey 0.5;
  // controlHighlightColor: grey 0.85; keyboardFocusIndicatorColor: (0.3, 0.55, 0.85, 0.8);
  // highlightColor: white (the light edge of a raised surface, light in every appearance);
  // shadowColor: black.
  static ColorRef selectedControlColor();
  static ColorRef alternateSelectedControlColor();
  static ColorRef selectedTextBackgroundColor();
  static ColorRef controlColor();
  static ColorRef windowBackgroundColor();
  static ColorRef controlBackgroundColor();
  static ColorRef textColor();
  static ColorRef controlTextColor();
  static ColorRef selectedTextColor();
  static ColorRef selectedControlTextColor();
  static ColorRef alternateSelectedControlTextColor();
  static ColorRef disabledControlTextColor();
  static ColorRef gridColor();
  static ColorRef headerColor();
  static ColorRef headerTextColor();
  static ColorRef controlShadowColor();
  static ColorRef controlHighlightColor();
  static ColorRef highlightColor();
  static ColorRef shadowColor();
  static ColorRef keyboardFocusIndicatorColor();

  double redComponent() const { return red_; }
  double greenComponent() const { return green_; }
  double blueComponent() const { return blue_; }
  double alphaComponent() const { return alpha_; }
  // The mean of red, green and blue (exact for greys).
  double whiteComponent() const { return (red_ + green_ + blue_) / 3.0; }

  // The same colour with another alpha.
  ColorRef colorWithAlphaComponent(double alpha) const;
  // A colour fraction of the way from this one to `other` (nil other gives nil).
  ColorRef blendedColorWithFraction(double fraction, const ColorRef& other) const;

  // Makes this colour the current fill and stroke colour of the current graphics context
  // (does nothing without a current context). setFill and setStroke set one of the two. These are
  // the drawing side of a colour and come with the drawing (graphics_context.h).
  void set() const;
  void setFill() const;
  void setStroke() const;

  // Equal components.
  bool isEqual(const Object& other) const override;
  // e.g. "Color(0.6667, 0.6667, 0.6667, 1)".
  String description() const override;

 private:
  ColorRef selfRef() const;
  double red_, green_, blue_, alpha_;
};

}  // namespace tq
