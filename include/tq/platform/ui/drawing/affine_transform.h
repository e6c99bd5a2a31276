// AffineTransform: a 2-D affine transform that can be built step by step and applied to the current
// graphics context.
//
// The matrix maps a point (x, y) to (m11 x + m21 y + tX, m12 x + m22 y + tY). Building steps
// (translateXBy, scaleXBy, rotateByDegrees) act first on the points, before what the transform already
// did: a transform made with translate(tx, ty) then scale(sx, sy) scales a point, then translates it.
// concat() does the same to the current context's transformation: the transform is applied to points
// before the context's existing transformation.
//
// AffineTransform is a plain value; copying copies it.
#pragma once

#include "tq/platform/ui/model/geometry.h"

namespace tq {

struct AffineTransformStruct {
  double m11 = 1, m12 = 0, m21 = 0, m22 = 1, tX = 0, tY = 0;
  friend bool operator==(const AffineTransformStruct&, const AffineTransformStruct&) = default;
};

class AffineTransform {
 public:
  // The identity.
  AffineTransform() = default;
  explicit AffineTransform(const AffineTransformStruct& m) : m_(m) {}
  // A new identity transform.
  static AffineTransform transform() { return AffineTransform(); }

  const AffineTransformStruct& transformStruct() const { return m_; }
  void setTransformStruct(const AffineTransformStruct& m) { m_ = m; }

  void translateXBy(double tx, double ty);
  void scaleXBy(double sx, double sy);
  void scaleBy(double s) { scaleXBy(s, s); }
  void rotateByDegrees(double degrees);
  // This transform followed by `other` (points go through this one first).
  void appendTransform(const AffineTransform& other);
  // `other` followed by this transform.
  void prependTransform(const AffineTransform& other);
  // Replaces the transform by its inverse; a singular transform is left unchanged.
  void invert();

  Point transformPoint(Point p) const;
  // Transforms a size as a vector (no translation).
  Size transformSize(Size s) const;

  // Applies this transform to the current graphics context (before its existing transformation).
  // Does nothing without a current context.
  void concat() const;
  // Replaces the current context's transformation by this one, expressed relative to the context's
  // base (the transformation the context was created with). Does nothing without a current context.
  void set() const;

  friend bool operator==(const AffineTransform& a, const AffineTransform& b) { return a.m_ == b.m_; }

 private:
  AffineTransformStruct m_;
};

}  // namespace tq
