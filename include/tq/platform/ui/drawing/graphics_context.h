// GraphicsContext: a drawing destination over a Cairo surface, with the interface's graphics state
// (transformation, clip, fill and stroke colours, compositing operation), a save/restore stack, image
// interpolation quality, and a per-thread "current context" that drawing calls draw into.
//
// Coordinates. A context's own coordinate system is in points, origin at a corner of the surface. An
// unflipped context (the usual case for a window) has its origin at the bottom left with y growing
// upwards; a flipped context has its origin at the top left with y growing downwards, as a flipped view
// does. Drawing calls take user coordinates: the context's own coordinates through the current
// transformation (currentTransform(), changed by AffineTransform::concat and friends).
//
// Current context. Each thread has a current context (none at first) and a stack of saved ones:
// setCurrentContext() replaces it; the class functions saveGraphicsState() and restoreGraphicsState()
// save the current context's graphics state and push the context, then pop the context, make it current
// again and restore its state. saveState()/restoreState() act on one context without the stack.
//
// The graphics state that save/restore brings back: the transformation, the clip, the fill and stroke
// colours, the compositing operation, antialiasing. Image interpolation is a setting of the context,
// not of the graphics state: restoreState() leaves it as it is (callers restore it themselves).
//
// Recording. A context can carry a DrawingRecorder: every drawing call (rectangle fills, line strokes,
// image and text drawing) then appends a record of what it drew and where, which tests and tools read.
//
// Threads: a context is used by one thread at a time; the current-context stack is per thread.
#pragma once

#include <cairo.h>

#include <memory>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/ui/drawing/affine_transform.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

// Compositing operations, with the platform's values.
using CompositingOperation = UInteger;
inline constexpr CompositingOperation NSCompositeClear = 0;
inline constexpr CompositingOperation NSCompositeCopy = 1;
inline constexpr CompositingOperation NSCompositeSourceOver = 2;
inline constexpr CompositingOperation NSCompositeSourceIn = 3;
inline constexpr CompositingOperation NSCompositeSourceOut = 4;
inline constexpr CompositingOperation NSCompositeSourceAtop = 5;
inline constexpr CompositingOperation NSCompositeDestinationOver = 6;
inline constexpr CompositingOperation NSCompositeDestinationIn = 7;
inline constexpr CompositingOperation NSCompositeDestinationOut = 8;
inline constexpr CompositingOperation NSCompositeDestinationAtop = 9;
inline constexpr CompositingOperation NSCompositeXOR = 10;
inline constexpr CompositingOperation NSCompositePlusDarker = 11;
inline constexpr CompositingOperation NSCompositeHighlight = 12;  // drawn as SourceOver
inline constexpr CompositingOperation NSCompositePlusLighter = 13;
inline constexpr CompositingOperation NSCompositeMultiply = 14;
inline constexpr CompositingOperation NSCompositeScreen = 15;
inline constexpr CompositingOperation NSCompositeOverlay = 16;
inline constexpr CompositingOperation NSCompositeDarken = 17;
inline constexpr CompositingOperation NSCompositeLighten = 18;
inline constexpr CompositingOperation NSCompositeColorDodge = 19;
inline constexpr CompositingOperation NSCompositeColorBurn = 20;
inline constexpr CompositingOperation NSCompositeSoftLight = 21;
inline constexpr CompositingOperation NSCompositeHardLight = 22;
inline constexpr CompositingOperation NSCompositeDifference = 23;
inline constexpr CompositingOperation NSCompositeExclusion = 24;
inline constexpr CompositingOperation NSCompositeHue = 25;
inline constexpr CompositingOperation NSCompositeSaturation = 26;
inline constexpr CompositingOperation NSCompositeColor = 27;
inline constexpr CompositingOperation NSCompositeLuminosity = 28;

// The Cairo operator that draws an operation. PlusDarker has no Cairo counterpart and is drawn as
// Darken; Highlight and unknown values are drawn as SourceOver; PlusLighter is Cairo's ADD.
cairo_operator_t cairoOperatorForCompositingOperation(CompositingOperation op);

// Image interpolation quality, with the platform's values.
using ImageInterpolation = UInteger;
inline constexpr ImageInterpolation NSImageInterpolationDefault = 0;
inline constexpr ImageInterpolation NSImageInterpolationNone = 1;
inline constexpr ImageInterpolation NSImageInterpolationLow = 2;
inline constexpr ImageInterpolation NSImageInterpolationHigh = 3;
inline constexpr ImageInterpolation NSImageInterpolationMedium = 4;

// The Cairo filter that scales images at a quality: None NEAREST, Low BILINEAR, Medium GOOD,
// High BEST, Default (and unknown values) GOOD, Cairo's own default.
cairo_filter_t cairoFilterForImageInterpolation(ImageInterpolation interpolation);

class DrawingRecorder;
class GraphicsContext;
using GraphicsContextRef = std::shared_ptr<GraphicsContext>;

class GraphicsContext : public Object {
 public:
  // A context drawing into `cr` (referenced while the context lives). `height` is the height, in
  // points, of the area whose bottom edge is the origin of an unflipped context; it is not used when
  // `flipped` is true. The context's coordinates are cr's user space when created (so a caller may
  // set up a scale or an offset first).
  static GraphicsContextRef graphicsContextWithCairo(cairo_t* cr, double height, bool flipped);
  // A context drawing into a surface (referenced while the context lives). Its coordinates are the
  // surface's device units; an unflipped context takes its height from an image surface's height
  // (other surface kinds: pass their height through graphicsContextWithCairo).
  static GraphicsContextRef graphicsContextWithSurface(cairo_surface_t* surface, bool flipped);
  // A new transparent ARGB32 image of size (in points) times scale pixels, with a context over it
  // whose coordinates are points. Sizes are rounded up to whole pixels; nil for an empty or huge size
  // (more than 32767 pixels a side).
  static GraphicsContextRef imageContext(Size size, bool flipped, double scale = 1.0);
  // Whether imageContext makes an image of that size and scale (the size is not empty, the scale
  // positive, and no side more than 32767 pixels); the image may still fail for want of memory.
  static bool canMakeImage(Size size, double scale = 1.0);

  ~GraphicsContext() override;

  // --- the current context (per thread) ---------------------------------------------------------
  static GraphicsContextRef currentContext();
  // Replaces the calling thread's current context (nil: none). The saved stack is not touched.
  static void setCurrentContext(GraphicsContextRef context);
  // Saves the current context's graphics state and pushes the context on the thread's stack. Does
  // nothing without a current context.
  static void saveGraphicsState();
  // Pops the context saved last, makes it current and restores its graphics state. Does nothing when
  // the stack is empty.
  static void restoreGraphicsState();

  // --- one context's state ----------------------------------------------------------------------
  // Saves / restores this context's graphics state. An unbalanced restoreState() does nothing.
  void saveState();
  void restoreState();
  // How many states are saved.
  UInteger savedStateCount() const { return saved_.size(); }

  bool isFlipped() const { return flipped_; }
  cairo_t* cairo() const { return cr_; }
  cairo_surface_t* surface() const { return cairo_get_target(cr_); }

  ImageInterpolation imageInterpolation() const { return interpolation_; }
  void setImageInterpolation(ImageInterpolation interpolation) { interpolation_ = interpolation; }
  cairo_filter_t imageFilter() const { return cairoFilterForImageInterpolation(interpolation_); }

  CompositingOperation compositingOperation() const { return state_.operation; }
  void setCompositingOperation(CompositingOperation op) { state_.operation = op; }
  bool shouldAntialias() const { return state_.antialias; }
  void setShouldAntialias(bool antialias);

  // The current transformation: user coordinates to the context's own coordinates.
  AffineTransform currentTransform() const;
  void setCurrentTransform(const AffineTransform& transform);
  // Applies `transform` to user coordinates before the current transformation.
  void concatTransform(const AffineTransform& transform);
  // Does user space have y growing downwards on the output (a flipped context, or an unflipped one
  // under a transformation that flips)? Text and images drawn upright test this.
  bool userSpaceIsFlipped() const;

  // Narrows the clip to a rectangle in user coordinates.
  void clipToRect(Rect rect);
  // The clip's bounding box in user coordinates (the whole surface when unclipped).
  Rect clipBoundingBox() const;

  // Fill and stroke colours; nil colours draw nothing. Both start black.
  ColorRef fillColor() const { return state_.fill; }
  ColorRef strokeColor() const { return state_.stroke; }
  void setFillColor(ColorRef color) { state_.fill = std::move(color); }
  void setStrokeColor(ColorRef color) { state_.stroke = std::move(color); }

  // --- drawing ----------------------------------------------------------------------------------
  // Fills a user-space rectangle with the fill colour and an operation.
  void fillRect(Rect rect, CompositingOperation op);
  // Strokes the outline of a rectangle, the line centred on its edges.
  void strokeRect(Rect rect, double lineWidth);
  // Strokes one straight segment with the stroke colour, butt caps, SourceOver.
  void strokeLine(Point from, Point to, double lineWidth);

  // Fills, or strokes, the path built on cairo() (user coordinates) with `color`, SourceOver, and
  // clears the path. Recorded as FillPath / StrokePath with the path's bounding box as rect. For
  // drawing units that shape with Cairo; a nil colour draws nothing (and clears the path).
  void fillPath(const ColorRef& color);
  void strokePath(const ColorRef& color, double lineWidth);

  // Completes pending drawing on the surface.
  void flushGraphics();
  // Writes the surface as PNG (image surfaces). False when it cannot be written.
  bool writeToPNG(const String& path) const;

  // Recording of drawing calls; nil stops recording.
  std::shared_ptr<DrawingRecorder> recorder() const { return recorder_; }
  void setRecorder(std::shared_ptr<DrawingRecorder> recorder) { recorder_ = std::move(recorder); }

  // Makes `color` Cairo's source on cr (for drawing units that draw with Cairo directly).
  void setSourceColor(const Color& color);

  // Use the factories above; public for std::make_shared.
  GraphicsContext(cairo_t* cr, double height, bool flipped);

 private:
  void paintPath(const ColorRef& color, bool stroke, double lineWidth);
  // A record of drawing about to be done in the current transform (the caller adds its geometry).
  DrawingRecord recordOf(DrawingRecord::Kind kind, const ColorRef& color, CompositingOperation op,
                         double lineWidth = 0) const;
  // Saves the state and sets up a stroke with the stroke colour; the caller strokes and restores.
  void beginStroke(double lineWidth);
  struct State {
    ColorRef fill;
    ColorRef stroke;
    CompositingOperation operation = NSCompositeSourceOver;
    bool antialias = true;
  };
  cairo_t* cr_;
  bool flipped_;
  cairo_matrix_t base_;  // the context's own coordinates to cr's device space
  ImageInterpolation interpolation_ = NSImageInterpolationDefault;
  State state_;
  std::vector<State> saved_;
  std::shared_ptr<DrawingRecorder> recorder_;
};

// Fills a rectangle of the current context with its fill colour, replacing what was there
// (NSCompositeCopy). Does nothing without a current context.
void rectFill(Rect rect);
// The same with another operation.
void rectFillUsingOperation(Rect rect, CompositingOperation op);
// Draws a frame one point wide just inside a rectangle with the fill colour, replacing what was
// there (NSCompositeCopy), as four edge fills.
void frameRect(Rect rect);

// The platform's path drawing shortcuts that act on the current context.
class BezierPath {
 public:
  // The line width of strokes drawn by the class functions: 1.0 unless set (process-wide).
  static double defaultLineWidth();
  static void setDefaultLineWidth(double width);
  // Strokes the segment from one point to the other with the current stroke colour and the default
  // line width. Does nothing without a current context.
  static void strokeLineFromPoint(Point from, Point to);
  static void strokeRect(Rect rect);
  static void fillRect(Rect rect);
};

}  // namespace tq
