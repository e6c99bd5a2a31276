// TextView: a view of editable, scrolling text (NSTextView), as interface archives describe one:
// the text it holds at load, its colours, its font and whether it can be edited. It usually sits
// in a scroll view's clip view and is taller than what shows; it draws its text from its top left,
// wrapped to its width, on its background.
// Thread: the interface (main) thread.
#pragma once

#include <optional>

#include "tq/platform/ui/model/color_descriptor.h"
#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

class TextView : public View {
 public:
  // A text view's coordinates run downwards from its top.
  TextView() { setFlipped(true); }
  String className() const override { return classNameOr(u"NSTextView"); }

  // The text the view holds (never nil: empty when there is none).
  const String& string() const { return string_; }
  void setString(String text) { string_ = text.isNil() ? String(u"") : std::move(text); }
  // The font and colour of the text; nil: the user font at 12 points, the text colour.
  const std::optional<FontDescriptor>& font() const { return font_; }
  void setFont(std::optional<FontDescriptor> font) { font_ = std::move(font); }
  const std::optional<ColorDescriptor>& textColor() const { return textColor_; }
  void setTextColor(std::optional<ColorDescriptor> color) { textColor_ = std::move(color); }
  // The background, drawn when drawsBackground() (the default); nil: the text background colour.
  const std::optional<ColorDescriptor>& backgroundColor() const { return backgroundColor_; }
  void setBackgroundColor(std::optional<ColorDescriptor> color) { backgroundColor_ = std::move(color); }
  bool drawsBackground() const { return drawsBackground_; }
  void setDrawsBackground(bool draws) { drawsBackground_ = draws; }
  bool isEditable() const { return editable_; }
  void setEditable(bool editable) { editable_ = editable; }

 private:
  String string_ = u"";
  std::optional<FontDescriptor> font_;
  std::optional<ColorDescriptor> textColor_, backgroundColor_;
  bool drawsBackground_ = true;
  bool editable_ = true;
};

}  // namespace tq
