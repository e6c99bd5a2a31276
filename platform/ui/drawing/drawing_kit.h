// Shared by the drawing units of the interface model: shapes on the current context, text, colours
// of the look, and the settings of the drawing in progress (named images, dark panels).
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/cell.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

class ButtonCell;
class View;
class Window;
struct ViewDrawingOptions;

namespace drawing {

// The settings of the drawing in progress on this thread; set by Session for one drawing.
struct Settings {
  const NamedImageSource* images = nullptr;
  bool dark = false;
  const std::function<void(const View&, Rect)>* drawnView = nullptr;
};
const Settings& settings();

// Makes settings current for its lifetime (nested sessions restore the outer one).
class Session {
 public:
  explicit Session(Settings settings);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

 private:
  Settings previous_;
};

GraphicsContext& ctx();

inline ColorRef gray(double white, double alpha = 1) { return Color::colorWithWhite(white, alpha); }
inline ColorRef rgb(double r, double g, double b, double a = 1) { return Color::colorWithRed(r, g, b, a); }
const ColorRef& accent();
// Text of controls and labels: dark on light windows, light in dark panels.
ColorRef labelColor(bool enabled = true);
// Faces of controls (push buttons, fields): white, or a dark grey in dark panels.
ColorRef faceColor();
ColorRef edgeColor();

inline Rect inset(Rect r, double dx, double dy) { return {r.x + dx, r.y + dy, r.w - 2 * dx, r.h - 2 * dy}; }
// A rectangle of height h centred vertically in r.
inline Rect centredVertically(Rect r, double h) { return {r.x, r.y + (r.h - h) / 2, r.w, h}; }
// "Up on the screen" in the current user space: -1 when y runs downwards, +1 otherwise.
double up();

// Fills and/or strokes a rounded rectangle (nil colours skip that part); the stroke lies inside.
void rounded(Rect r, double radius, const ColorRef& fill, const ColorRef& stroke, double lineWidth = 1);
void circle(Point centre, double radius, const ColorRef& fill, const ColorRef& stroke);
void line(Point a, Point b, const ColorRef& color, double width = 1);
void fill(Rect r, const ColorRef& color);
// A small triangle pointing up (towards the top of the screen) or down, centred on c.
void triangle(Point c, double size, bool up, const ColorRef& color);

// One line (or a wrapped block) of text, centred vertically in r when `centre` is set.
void text(const String& s, Rect r, const FontDescriptor& font, const ColorRef& color,
          TextAlignment alignment = TextAlignment::Natural, LineBreakMode mode = LineBreakMode::ByTruncatingTail,
          bool centre = true);

ColorRef colorOf(const std::optional<ColorDescriptor>& d, const ColorRef& fallback);

// A named image in r: the settings' image (scaled down to fit, centred, upright), else a stand-in
// for a known template image, else a placeholder box with the name's first letter (a grey fill
// where r is too thin for a box). `tint` colours template stand-ins (nil: labelColor()).
void namedImage(const String& name, Rect r, const ColorRef& tint = nullptr);
// Draws the stand-in of a platform template image ("NSAddTemplate", ...), centred in r at most at
// the platform image's own size; false when the name has none (nothing drawn).
bool templateStandIn(const String& name, Rect r, const ColorRef& tint);
void imagePlaceholder(const String& name, Rect r);

// Cells and views of the families drawn by their own units.
void drawButtonCell(const ButtonCell& cell, Rect r);
void drawSegmentedCell(const Cell& cell, Rect r);
// Sliders, steppers, level indicators, date pickers, colour wells, by class name (any model
// form); false when the class is not one of them.
bool drawValueControl(const String& className, const Cell* cell, const View* view, Rect r);
// The toolbar strip of a window, in a y-up context (see toolbarItemPlacements).
void drawToolbar(const Window& window, Rect strip, const ViewDrawingOptions& options);

}  // namespace drawing
}  // namespace tq
