// Text field cells: drawing into the current graphics context and editing through the field editor.
#include <algorithm>

#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/model/field_editor.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

Rect TextFieldCell::textRectForFrame(const Rect& frame) const {
  double dx = 2, dy = 0;
  if (isBezeled()) {
    dx = 3, dy = 2;
  } else if (isBordered()) {
    dx = 1, dy = 1;
  }
  return {frame.x + dx, frame.y + dy, std::max(frame.w - 2 * dx, 0.0), std::max(frame.h - 2 * dy, 0.0)};
}

void TextFieldCell::drawWithFrame(const Rect& frame, View* controlView) {
  GraphicsContextRef context = GraphicsContext::currentContext();
  if (!context) return;
  if (drawsBackground()) {
    ColorRef background = backgroundColor() ? Color::colorWithDescriptor(*backgroundColor())
                                            : Color::controlBackgroundColor();
    background->set();
    rectFill(frame);
  }
  if (isBezeled()) {
    Color::grayColor()->set();
    frameRect(frame);
  } else if (isBordered()) {
    Color::blackColor()->set();
    frameRect(frame);
  }
  drawInteriorWithFrame(frame, controlView);
}

void TextFieldCell::drawInteriorWithFrame(const Rect& frame, View*) {
  String text = stringValue();
  TextAttributes attributes;
  attributes.font = Font::fontWithDescriptor(font());
  attributes.color = textColor() ? Color::colorWithDescriptor(*textColor()) : Color::blackColor();
  if (text.length() == 0 && placeholderString().length() > 0) {
    text = placeholderString();
    attributes.color = Color::disabledControlTextColor();
  }
  attributes.alignment = alignment();
  attributes.lineBreakMode = lineBreakMode();
  if (!wraps() && (attributes.lineBreakMode == LineBreakMode::ByWordWrapping ||
                   attributes.lineBreakMode == LineBreakMode::ByCharWrapping)) {
    attributes.lineBreakMode = LineBreakMode::ByClipping;
  }
  drawText(text, textRectForFrame(frame), attributes);
}

ColorRef TextFieldCell::highlightColorWithFrame(const Rect&, View*) const { return Color::selectedControlColor(); }

void TextFieldCell::editWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                                  std::weak_ptr<Object> delegate, const Object*) {
  if (!editor) return;
  const String text = stringValue();
  editor->beginEditing(this, controlView, textRectForFrame(frame), text, Range{text.length(), 0}, std::move(delegate));
}

void TextFieldCell::selectWithFrame(const Rect& frame, View* controlView, FieldEditor* editor,
                                    std::weak_ptr<Object> delegate, long start, long length) {
  if (!editor) return;
  const Range selection{static_cast<UInteger>(std::max(start, 0L)), static_cast<UInteger>(std::max(length, 0L))};
  editor->beginEditing(this, controlView, textRectForFrame(frame), stringValue(), selection, std::move(delegate));
}

}  // namespace tq
