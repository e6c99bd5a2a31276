// The graphics context over Cairo: coordinates, state stack, current context per thread, and the
// primitive fills and strokes.
#include "tq/platform/ui/drawing/graphics_context.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "tq/platform/fs/file_manager.h"
#include "tq/platform/ui/drawing/drawing_recorder.h"

namespace tq {

namespace {

struct ThreadContexts {
  GraphicsContextRef current;
  std::vector<GraphicsContextRef> saved;
};

ThreadContexts& threadContexts() {
  thread_local ThreadContexts contexts;
  return contexts;
}

AffineTransform fromCairo(const cairo_matrix_t& m) {
  return AffineTransform(AffineTransformStruct{m.xx, m.yx, m.xy, m.yy, m.x0, m.y0});
}

cairo_matrix_t toCairo(const AffineTransform& t) {
  const auto& s = t.transformStruct();
  cairo_matrix_t m;
  cairo_matrix_init(&m, s.m11, s.m12, s.m21, s.m22, s.tX, s.tY);
  return m;
}

constexpr int kMaxImageSide = 32767;

}  // namespace

cairo_operator_t cairoOperatorForCompositingOperation(CompositingOperation op) {
  switch (op) {
    case NSCompositeClear: return CAIRO_OPERATOR_CLEAR;
    case NSCompositeCopy: return CAIRO_OPERATOR_SOURCE;
    case NSCompositeSourceOver: return CAIRO_OPERATOR_OVER;
    case NSCompositeSourceIn: return CAIRO_OPERATOR_IN;
    case NSCompositeSourceOut: return CAIRO_OPERATOR_OUT;
    case NSCompositeSourceAtop: return CAIRO_OPERATOR_ATOP;
    case NSCompositeDestinationOver: return CAIRO_OPERATOR_DEST_OVER;
    case NSCompositeDestinationIn: return CAIRO_OPERATOR_DEST_IN;
    case NSCompositeDestinationOut: return CAIRO_OPERATOR_DEST_OUT;
    case NSCompositeDestinationAtop: return CAIRO_OPERATOR_DEST_ATOP;
    case NSCompositeXOR: return CAIRO_OPERATOR_XOR;
    case NSCompositePlusDarker: return CAIRO_OPERATOR_DARKEN;
    case NSCompositePlusLighter: return CAIRO_OPERATOR_ADD;
    case NSCompositeMultiply: return CAIRO_OPERATOR_MULTIPLY;
    case NSCompositeScreen: return CAIRO_OPERATOR_SCREEN;
    case NSCompositeOverlay: return CAIRO_OPERATOR_OVERLAY;
    case NSCompositeDarken: return CAIRO_OPERATOR_DARKEN;
    case NSCompositeLighten: return CAIRO_OPERATOR_LIGHTEN;
    case NSCompositeColorDodge: return CAIRO_OPERATOR_COLOR_DODGE;
    case NSCompositeColorBurn: return CAIRO_OPERATOR_COLOR_BURN;
    case NSCompositeSoftLight: return CAIRO_OPERATOR_SOFT_LIGHT;
    case NSCompositeHardLight: return CAIRO_OPERATOR_HARD_LIGHT;
    case NSCompositeDifference: return CAIRO_OPERATOR_DIFFERENCE;
    case NSCompositeExclusion: return CAIRO_OPERATOR_EXCLUSION;
    case NSCompositeHue: return CAIRO_OPERATOR_HSL_HUE;
    case NSCompositeSaturation: return CAIRO_OPERATOR_HSL_SATURATION;
    case NSCompositeColor: return CAIRO_OPERATOR_HSL_COLOR;
    case NSCompositeLuminosity: return CAIRO_OPERATOR_HSL_LUMINOSITY;
    default: return CAIRO_OPERATOR_OVER;
  }
}

cairo_filter_t cairoFilterForImageInterpolation(ImageInterpolation interpolation) {
  switch (interpolation) {
    case NSImageInterpolationNone: return CAIRO_FILTER_NEAREST;
    case NSImageInterpolationLow: return CAIRO_FILTER_BILINEAR;
    case NSImageInterpolationMedium: return CAIRO_FILTER_GOOD;
    case NSImageInterpolationHigh: return CAIRO_FILTER_BEST;
    default: return CAIRO_FILTER_GOOD;
  }
}

GraphicsContext::GraphicsContext(cairo_t* cr, double height, bool flipped)
    : cr_(cairo_reference(cr)), flipped_(flipped) {
  if (!flipped) {
    // Origin at the bottom left, y upwards.
    cairo_translate(cr_, 0, height);
    cairo_scale(cr_, 1, -1);
  }
  cairo_get_matrix(cr_, &base_);
  state_.fill = Color::blackColor();
  state_.stroke = Color::blackColor();
}

GraphicsContext::~GraphicsContext() { cairo_destroy(cr_); }

GraphicsContextRef GraphicsContext::graphicsContextWithCairo(cairo_t* cr, double height, bool flipped) {
  if (!cr || cairo_status(cr) != CAIRO_STATUS_SUCCESS) return nullptr;
  return std::make_shared<GraphicsContext>(cr, height, flipped);
}

GraphicsContextRef GraphicsContext::graphicsContextWithSurface(cairo_surface_t* surface, bool flipped) {
  if (!surface || cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) return nullptr;
  double height = 0;
  if (cairo_surface_get_type(surface) == CAIRO_SURFACE_TYPE_IMAGE) {
    double sx = 1, sy = 1;
    cairo_surface_get_device_scale(surface, &sx, &sy);
    height = cairo_image_surface_get_height(surface) / sy;
  }
  cairo_t* cr = cairo_create(surface);
  auto context = graphicsContextWithCairo(cr, height, flipped);
  cairo_destroy(cr);
  return context;
}

bool GraphicsContext::canMakeImage(Size size, double scale) {
  if (!(scale > 0) || !(size.width > 0) || !(size.height > 0)) return false;
  return std::ceil(size.width * scale) <= kMaxImageSide && std::ceil(size.height * scale) <= kMaxImageSide;
}

GraphicsContextRef GraphicsContext::imageContext(Size size, bool flipped, double scale) {
  if (!canMakeImage(size, scale)) return nullptr;
  const double pw = std::ceil(size.width * scale), ph = std::ceil(size.height * scale);
  cairo_surface_t* surface =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(pw), static_cast<int>(ph));
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  cairo_surface_set_device_scale(surface, scale, scale);
  cairo_t* cr = cairo_create(surface);
  cairo_surface_destroy(surface);  // cr holds it
  auto context = graphicsContextWithCairo(cr, size.height, flipped);
  cairo_destroy(cr);
  return context;
}

// --- the current context ----------------------------------------------------------------------

GraphicsContextRef GraphicsContext::currentContext() { return threadContexts().current; }

void GraphicsContext::setCurrentContext(GraphicsContextRef context) {
  threadContexts().current = std::move(context);
}

void GraphicsContext::saveGraphicsState() {
  auto& contexts = threadContexts();
  if (!contexts.current) return;
  contexts.current->saveState();
  contexts.saved.push_back(contexts.current);
}

void GraphicsContext::restoreGraphicsState() {
  auto& contexts = threadContexts();
  if (contexts.saved.empty()) return;
  GraphicsContextRef context = std::move(contexts.saved.back());
  contexts.saved.pop_back();
  contexts.current = context;
  context->restoreState();
}

// --- state ------------------------------------------------------------------------------------

void GraphicsContext::saveState() {
  cairo_save(cr_);
  saved_.push_back(state_);
}

void GraphicsContext::restoreState() {
  if (saved_.empty()) return;  // cairo_restore without a save would break the cairo_t for good
  cairo_restore(cr_);
  state_ = std::move(saved_.back());
  saved_.pop_back();
}

void GraphicsContext::setShouldAntialias(bool antialias) {
  state_.antialias = antialias;
  cairo_set_antialias(cr_, antialias ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
}

AffineTransform GraphicsContext::currentTransform() const {
  cairo_matrix_t ctm, baseInverse = base_, relative;
  cairo_get_matrix(cr_, &ctm);
  if (cairo_matrix_invert(&baseInverse) != CAIRO_STATUS_SUCCESS) return fromCairo(ctm);
  cairo_matrix_multiply(&relative, &ctm, &baseInverse);
  return fromCairo(relative);
}

void GraphicsContext::setCurrentTransform(const AffineTransform& transform) {
  cairo_matrix_t m = toCairo(transform), full;
  cairo_matrix_multiply(&full, &m, &base_);
  cairo_set_matrix(cr_, &full);
}

void GraphicsContext::concatTransform(const AffineTransform& transform) {
  cairo_matrix_t m = toCairo(transform);
  cairo_transform(cr_, &m);
}

bool GraphicsContext::userSpaceIsFlipped() const {
  cairo_matrix_t ctm;
  cairo_get_matrix(cr_, &ctm);
  // Device space has y downwards: user space is "flipped" when it keeps the device's orientation.
  return ctm.xx * ctm.yy - ctm.xy * ctm.yx > 0;
}

void GraphicsContext::clipToRect(Rect rect) {
  cairo_rectangle(cr_, rect.x, rect.y, rect.w, rect.h);
  cairo_clip(cr_);
}

Rect GraphicsContext::clipBoundingBox() const {
  double x1, y1, x2, y2;
  cairo_clip_extents(cr_, &x1, &y1, &x2, &y2);
  return {x1, y1, x2 - x1, y2 - y1};
}

void GraphicsContext::setSourceColor(const Color& color) {
  cairo_set_source_rgba(cr_, color.redComponent(), color.greenComponent(), color.blueComponent(),
                        color.alphaComponent());
}

// --- drawing ----------------------------------------------------------------------------------

DrawingRecord GraphicsContext::recordOf(DrawingRecord::Kind kind, const ColorRef& color, CompositingOperation op,
                                        double lineWidth) const {
  DrawingRecord r;
  r.kind = kind;
  r.color = color;
  r.operation = op;
  r.lineWidth = lineWidth;
  r.transform = currentTransform();
  return r;
}

void GraphicsContext::beginStroke(double lineWidth) {
  cairo_save(cr_);
  cairo_set_operator(cr_, cairoOperatorForCompositingOperation(state_.operation));
  setSourceColor(*state_.stroke);
  cairo_set_line_width(cr_, lineWidth);
}

void GraphicsContext::fillRect(Rect rect, CompositingOperation op) {
  if (!state_.fill && op != NSCompositeClear) return;
  if (recorder_) {
    DrawingRecord r = recordOf(DrawingRecord::Kind::FillRect, state_.fill, op);
    r.rect = rect;
    recorder_->add(std::move(r));
  }
  cairo_save(cr_);
  cairo_set_operator(cr_, cairoOperatorForCompositingOperation(op));
  if (state_.fill) setSourceColor(*state_.fill);
  cairo_rectangle(cr_, rect.x, rect.y, rect.w, rect.h);
  cairo_fill(cr_);
  cairo_restore(cr_);
}

void GraphicsContext::strokeRect(Rect rect, double lineWidth) {
  if (!state_.stroke) return;
  if (recorder_) {
    DrawingRecord r = recordOf(DrawingRecord::Kind::StrokeRect, state_.stroke, state_.operation, lineWidth);
    r.rect = rect;
    recorder_->add(std::move(r));
  }
  beginStroke(lineWidth);
  cairo_rectangle(cr_, rect.x, rect.y, rect.w, rect.h);
  cairo_stroke(cr_);
  cairo_restore(cr_);
}

void GraphicsContext::strokeLine(Point from, Point to, double lineWidth) {
  if (!state_.stroke) return;
  if (recorder_) {
    DrawingRecord r = recordOf(DrawingRecord::Kind::StrokeLine, state_.stroke, state_.operation, lineWidth);
    r.from = from;
    r.to = to;
    recorder_->add(std::move(r));
  }
  beginStroke(lineWidth);
  cairo_set_line_cap(cr_, CAIRO_LINE_CAP_BUTT);
  cairo_move_to(cr_, from.x, from.y);
  cairo_line_to(cr_, to.x, to.y);
  cairo_stroke(cr_);
  cairo_restore(cr_);
}

void GraphicsContext::fillPath(const ColorRef& color) { paintPath(color, false, 0); }

void GraphicsContext::strokePath(const ColorRef& color, double lineWidth) { paintPath(color, true, lineWidth); }

void GraphicsContext::paintPath(const ColorRef& color, bool stroke, double lineWidth) {
  if (!color) {
    cairo_new_path(cr_);
    return;
  }
  cairo_save(cr_);
  cairo_set_line_width(cr_, lineWidth);
  if (recorder_) {
    double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    if (stroke) {
      cairo_stroke_extents(cr_, &x0, &y0, &x1, &y1);
    } else {
      cairo_path_extents(cr_, &x0, &y0, &x1, &y1);
    }
    DrawingRecord r = recordOf(stroke ? DrawingRecord::Kind::StrokePath : DrawingRecord::Kind::FillPath, color,
                               NSCompositeSourceOver, lineWidth);
    r.rect = {x0, y0, x1 - x0, y1 - y0};
    recorder_->add(std::move(r));
  }
  cairo_set_operator(cr_, CAIRO_OPERATOR_OVER);
  setSourceColor(*color);
  if (stroke) {
    cairo_stroke(cr_);
  } else {
    cairo_fill(cr_);
  }
  cairo_restore(cr_);
}

void GraphicsContext::flushGraphics() { cairo_surface_flush(cairo_get_target(cr_)); }

bool GraphicsContext::writeToPNG(const String& path) const {
  cairo_surface_t* surface = cairo_get_target(cr_);
  if (cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE || path.length() == 0) return false;
  cairo_surface_flush(surface);
  return cairo_surface_write_to_png(surface, FileManager::fileSystemRepresentation(path).c_str()) == CAIRO_STATUS_SUCCESS;
}

// --- the platform's shortcuts -----------------------------------------------------------------

void rectFill(Rect rect) { rectFillUsingOperation(rect, NSCompositeCopy); }

void rectFillUsingOperation(Rect rect, CompositingOperation op) {
  if (auto context = GraphicsContext::currentContext()) context->fillRect(rect, op);
}

void frameRect(Rect rect) {
  auto context = GraphicsContext::currentContext();
  if (!context || rect.isEmpty()) return;
  const double t = std::min({1.0, rect.w / 2, rect.h / 2});
  context->fillRect({rect.x, rect.y, rect.w, t}, NSCompositeCopy);
  context->fillRect({rect.x, rect.maxY() - t, rect.w, t}, NSCompositeCopy);
  context->fillRect({rect.x, rect.y + t, t, rect.h - 2 * t}, NSCompositeCopy);
  context->fillRect({rect.maxX() - t, rect.y + t, t, rect.h - 2 * t}, NSCompositeCopy);
}

namespace {
std::atomic<double> defaultLineWidthValue{1.0};
}

double BezierPath::defaultLineWidth() { return defaultLineWidthValue.load(std::memory_order_relaxed); }

void BezierPath::setDefaultLineWidth(double width) {
  defaultLineWidthValue.store(width, std::memory_order_relaxed);
}

void BezierPath::strokeLineFromPoint(Point from, Point to) {
  if (auto context = GraphicsContext::currentContext()) context->strokeLine(from, to, defaultLineWidth());
}

void BezierPath::strokeRect(Rect rect) {
  if (auto context = GraphicsContext::currentContext()) context->strokeRect(rect, defaultLineWidth());
}

void BezierPath::fillRect(Rect rect) {
  if (auto context = GraphicsContext::currentContext()) context->fillRect(rect, context->compositingOperation());
}

// --- recording --------------------------------------------------------------------------------

Rect DrawingRecord::contextRect() const {
  const Point corners[4] = {transform.transformPoint({rect.x, rect.y}),
                            transform.transformPoint({rect.maxX(), rect.y}),
                            transform.transformPoint({rect.x, rect.maxY()}),
                            transform.transformPoint({rect.maxX(), rect.maxY()})};
  double x1 = corners[0].x, x2 = x1, y1 = corners[0].y, y2 = y1;
  for (const Point& p : corners) {
    x1 = std::min(x1, p.x), x2 = std::max(x2, p.x);
    y1 = std::min(y1, p.y), y2 = std::max(y2, p.y);
  }
  return {x1, y1, x2 - x1, y2 - y1};
}

std::vector<DrawingRecord> DrawingRecorder::recordsOfKind(DrawingRecord::Kind kind) const {
  std::vector<DrawingRecord> found;
  for (const auto& r : records_) {
    if (r.kind == kind) found.push_back(r);
  }
  return found;
}

}  // namespace tq
