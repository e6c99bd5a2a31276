// A view drawn with a recorder, and where its texts landed: what the drawing tests read back.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/view_drawing.h"

namespace tq::test {

// The first recorded drawing of `text`, or null.
inline const DrawingRecord* drawnText(const DrawingRecorder& recorder, const String& text) {
  for (const auto& r : recorder.records()) {
    if (r.kind == DrawingRecord::Kind::DrawText && r.text == text) return &r;
  }
  return nullptr;
}

inline bool within(Rect inner, Rect outer) {
  const double e = 1e-9;
  return inner.x >= outer.x - e && inner.y >= outer.y - e && inner.maxX() <= outer.maxX() + e &&
         inner.maxY() <= outer.maxY() + e;
}

inline double midX(const Rect& r) { return r.x + r.w / 2; }
inline double midY(const Rect& r) { return r.y + r.h / 2; }

// A view given by reference is drawn by drawViewHierarchy into an unflipped picture of its bounds;
// one given by pointer as renderView renders it, its texts measured by the text system.
struct Drawn {
  std::shared_ptr<DrawingRecorder> recorder = std::make_shared<DrawingRecorder>();
  GraphicsContextRef context;

  explicit Drawn(const View& root, ViewDrawingOptions options = {})
      : context(GraphicsContext::imageContext(root.bounds().size(), false)) {
    context->setRecorder(recorder);
    GraphicsContext::setCurrentContext(context);
    drawViewHierarchy(root, false, options);
    GraphicsContext::setCurrentContext(nullptr);
  }
  explicit Drawn(const std::shared_ptr<View>& root) {
    PangoTextMeasurer::install();
    EXPECT_TRUE(root);
    if (root) context = renderView(*root, 1.0, recorder);
  }

  std::vector<DrawingRecord> of(DrawingRecord::Kind kind) const { return recorder->recordsOfKind(kind); }
  // The drawings of a kind that lie within `area` (context coordinates, half a point of slack).
  std::vector<DrawingRecord> inside(DrawingRecord::Kind kind, Rect area) const {
    std::vector<DrawingRecord> found;
    for (const auto& r : recorder->recordsOfKind(kind)) {
      if (within(r.contextRect(), {area.x - 0.5, area.y - 0.5, area.w + 1, area.h + 1})) found.push_back(r);
    }
    return found;
  }
  const DrawingRecord* text(const String& s) const { return drawnText(*recorder, s); }
  // Where a text was drawn; an empty rectangle far off when it was not.
  Rect textRect(const String& s) const {
    const DrawingRecord* r = text(s);
    EXPECT_NE(r, nullptr) << s.UTF8String();
    return r ? r->contextRect() : Rect{-1000, -1000, 0, 0};
  }
};

}  // namespace tq::test
