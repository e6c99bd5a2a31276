// The drawing side of a colour: making it the current fill or stroke colour of the graphics context.
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/model/color.h"

namespace tq {

void Color::set() const {
  if (auto context = GraphicsContext::currentContext()) {
    auto self = selfRef();
    context->setFillColor(self);
    context->setStrokeColor(self);
  }
}

void Color::setFill() const {
  if (auto context = GraphicsContext::currentContext()) {
    context->setFillColor(selfRef());
  }
}

void Color::setStroke() const {
  if (auto context = GraphicsContext::currentContext()) {
    context->setStrokeColor(selfRef());
  }
}

}  // namespace tq
