// The icon-and-text cell: layout of the image and text rectangles, drawing and editing.
#include "tq/interface/tq_image_and_text_cell.h"

#include <cmath>

#include "tq/interface/image_extensions.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/model/class_registry.h"

namespace tq {

namespace {

// Archives name the cell by class: make it readable without the host registering anything.
[[maybe_unused]] const bool registered = [] {
  ClassRegistry::shared().registerClass<TQImageAndTextCell>(u"TQImageAndTextCell");
  return true;
}();

}  // namespace

void TQImageAndTextCell::setup() {
  TQTextFieldCell::setup();
  yOffset_ = 1.0;
}

Rect TQImageAndTextCell::imageFrameWithCellFrame(const Rect& frame) const {
  const Size size = image_ ? image_->size() : Size{};
  double w = size.width, h = size.height;
  if (scaleImage_) {
    const double side = frame.h - 2 * verticalImagePadding();
    const double aspect = size.width / size.height;
    if (side * aspect < side) {
      w = side * aspect;
      h = side;
    } else {
      w = side;
      h = side / aspect;
    }
  }
  Rect r;
  r.x = frame.x + horizontalSpaceBetweenLeftEdgeAndImage();
  r.y = centersVertically() ? frame.y + std::floor((frame.h - h) * 0.5) : frame.y + verticalImagePadding();
  r.w = w;
  r.h = h;
  return r;
}

Rect TQImageAndTextCell::textFrameWithCellFrame(const Rect& frame) const {
  const Rect r = imageFrameWithCellFrame(frame);
  const double gap = horizontalSpaceBetweenImageAndText();
  return {r.x + r.w + gap, frame.y, (frame.x + frame.w) - (r.x + r.w) - gap, frame.h};
}

Size TQImageAndTextCell::cellSize() const {
  Size size = TQTextFieldCell::cellSize();
  if (image_) {
    const Rect r = imageFrameWithCellFrame({0, 0, size.width, size.height});
    size.width += r.w + horizontalSpaceBetweenImageAndText() + horizontalSpaceBetweenLeftEdgeAndImage();
  }
  return size;
}

void TQImageAndTextCell::drawInteriorWithFrame(const Rect& cellFrame, View* controlView) {
  Rect frame = cellFrame;
  if (!centersVertically()) {
    frame.y += yOffset_;
    frame.h -= yOffset_;
  }
  if (!image_) {
    TQTextFieldCell::drawInteriorWithFrame(frame, controlView);
    return;
  }
  const Rect imageRect = imageFrameWithCellFrame(frame);
  const Rect textRect = textFrameWithCellFrame(frame);

  GraphicsContextRef context = GraphicsContext::currentContext();
  const ImageInterpolation saved = context ? context->imageInterpolation() : NSImageInterpolationDefault;
  if (context) context->setImageInterpolation(NSImageInterpolationHigh);
  // Tables are flipped: drawn plainly, the image would show upside down. A scaled image without
  // height has no proportions, an empty one nothing to show: neither is drawn.
  if (!imageRect.isEmpty() && std::isfinite(imageRect.w) && std::isfinite(imageRect.h)) {
    drawFlippedInRect(*image_, imageRect, NSCompositeSourceOver, 1.0);
  }
  if (context) context->setImageInterpolation(saved);

  TQTextFieldCell::drawInteriorWithFrame(textRect, controlView);
}

void TQImageAndTextCell::editWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                                       std::weak_ptr<Object> delegate, const Object* event) {
  const Rect r = image_ ? textFrameWithCellFrame(frame) : frame;
  TQTextFieldCell::editWithFrame(r, controlView, editor, std::move(delegate), event);
}

void TQImageAndTextCell::selectWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                                         std::weak_ptr<Object> delegate, long start, long length) {
  const Rect r = image_ ? textFrameWithCellFrame(frame) : frame;
  TQTextFieldCell::selectWithFrame(r, controlView, editor, std::move(delegate), start, length);
}

std::shared_ptr<Cell> TQImageAndTextCell::copyWithZone() const {
  // The platform's copy (as this class) carries the image reference over; the copy then gets an
  // image of its own.
  auto copy = std::static_pointer_cast<TQImageAndTextCell>(copyOf(*this));
  copy->image_ = image_ ? image_->copyWithZone() : nullptr;
  return copy;
}

}  // namespace tq
