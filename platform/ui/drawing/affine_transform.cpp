// Affine transforms: composition in the platform's order, and applying one to the current context.
#include "tq/platform/ui/drawing/affine_transform.h"

#include <cmath>
#include <numbers>

#include "tq/platform/ui/drawing/graphics_context.h"

namespace tq {

namespace {

// The transform that applies `first`, then `second`.
AffineTransformStruct compose(const AffineTransformStruct& first, const AffineTransformStruct& second) {
  AffineTransformStruct r;
  r.m11 = second.m11 * first.m11 + second.m21 * first.m12;
  r.m12 = second.m12 * first.m11 + second.m22 * first.m12;
  r.m21 = second.m11 * first.m21 + second.m21 * first.m22;
  r.m22 = second.m12 * first.m21 + second.m22 * first.m22;
  r.tX = second.m11 * first.tX + second.m21 * first.tY + second.tX;
  r.tY = second.m12 * first.tX + second.m22 * first.tY + second.tY;
  return r;
}

}  // namespace

void AffineTransform::translateXBy(double tx, double ty) {
  AffineTransformStruct t;
  t.tX = tx;
  t.tY = ty;
  m_ = compose(t, m_);
}

void AffineTransform::scaleXBy(double sx, double sy) {
  AffineTransformStruct s;
  s.m11 = sx;
  s.m22 = sy;
  m_ = compose(s, m_);
}

void AffineTransform::rotateByDegrees(double degrees) {
  const double radians = degrees * std::numbers::pi / 180.0;
  AffineTransformStruct r;
  r.m11 = std::cos(radians);
  r.m12 = std::sin(radians);
  r.m21 = -r.m12;
  r.m22 = r.m11;
  m_ = compose(r, m_);
}

void AffineTransform::appendTransform(const AffineTransform& other) { m_ = compose(m_, other.m_); }

void AffineTransform::prependTransform(const AffineTransform& other) { m_ = compose(other.m_, m_); }

void AffineTransform::invert() {
  const double det = m_.m11 * m_.m22 - m_.m12 * m_.m21;
  if (det == 0 || !std::isfinite(det)) return;
  AffineTransformStruct r;
  r.m11 = m_.m22 / det;
  r.m12 = -m_.m12 / det;
  r.m21 = -m_.m21 / det;
  r.m22 = m_.m11 / det;
  r.tX = -(r.m11 * m_.tX + r.m21 * m_.tY);
  r.tY = -(r.m12 * m_.tX + r.m22 * m_.tY);
  m_ = r;
}

Point AffineTransform::transformPoint(Point p) const {
  return {m_.m11 * p.x + m_.m21 * p.y + m_.tX, m_.m12 * p.x + m_.m22 * p.y + m_.tY};
}

Size AffineTransform::transformSize(Size s) const {
  return {m_.m11 * s.width + m_.m21 * s.height, m_.m12 * s.width + m_.m22 * s.height};
}

void AffineTransform::concat() const {
  if (auto context = GraphicsContext::currentContext()) context->concatTransform(*this);
}

void AffineTransform::set() const {
  if (auto context = GraphicsContext::currentContext()) context->setCurrentTransform(*this);
}

}  // namespace tq
