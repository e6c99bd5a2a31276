// DrawingRecorder: a log of what was drawn into a graphics context and where, for tests and tools
// that check geometry without reading pixels.
//
// Attach one with GraphicsContext::setRecorder(). Each drawing call then appends a DrawingRecord
// with its arguments in user coordinates, the transformation in force (user coordinates to the
// context's own coordinates) and the state that shaped it (colour, operation, interpolation). The
// drawing itself still happens.
#pragma once

#include <vector>

#include "tq/platform/ui/drawing/affine_transform.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

struct DrawingRecord {
  enum class Kind {
    FillRect,    // rect, color, operation
    StrokeRect,  // rect, color, lineWidth
    StrokeLine,  // from, to, color, lineWidth
    DrawImage,   // rect (destination), sourceRect (image points), operation, fraction, interpolation
    DrawText,    // rect, text, fontName, fontSize, lineBreakMode, alignment, color
    FillPath,    // rect (the path's bounding box), color
    StrokePath,  // rect (the stroked area's bounding box), color, lineWidth
  };
  Kind kind = Kind::FillRect;
  Rect rect{};
  Rect sourceRect{};
  Point from{};
  Point to{};
  ColorRef color;
  UInteger operation = 0;
  double fraction = 1.0;
  UInteger interpolation = 0;
  double lineWidth = 0;
  String text;
  String fontName;
  double fontSize = 0;
  UInteger lineBreakMode = 0;
  UInteger alignment = 0;
  AffineTransform transform;

  // The bounding box of `rect` in the context's own coordinates.
  Rect contextRect() const;
  // `from` and `to` in the context's own coordinates.
  Point contextFrom() const { return transform.transformPoint(from); }
  Point contextTo() const { return transform.transformPoint(to); }
};

class DrawingRecorder {
 public:
  const std::vector<DrawingRecord>& records() const { return records_; }
  void add(DrawingRecord record) { records_.push_back(std::move(record)); }
  void clear() { records_.clear(); }
  // The records of one kind, in drawing order.
  std::vector<DrawingRecord> recordsOfKind(DrawingRecord::Kind kind) const;

 private:
  std::vector<DrawingRecord> records_;
};

}  // namespace tq
