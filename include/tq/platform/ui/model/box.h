// Box: a titled frame around a content view, or a separator line.
#pragma once

#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

// The platform's values.
enum class TitlePosition { NoTitle = 0, AboveTop = 1, AtTop = 2, BelowTop = 3, AboveBottom = 4, AtBottom = 5, BelowBottom = 6 };
enum class BoxType { Primary = 0, Secondary = 1, Separator = 2, OldStyle = 3, Custom = 4 };
enum class BorderType { NoBorder = 0, LineBorder = 1, BezelBorder = 2, GrooveBorder = 3 };

class Box : public View {
 public:
  // A box with an empty content view as its one subview.
  Box();
  String className() const override { return classNameOr(u"NSBox"); }

  // The title ("Title" for a new box). Stored and answered also when titlePosition() is NoTitle.
  const String& title() const { return title_; }
  void setTitle(String title) { title_ = std::move(title); }
  TitlePosition titlePosition() const { return titlePosition_; }
  void setTitlePosition(TitlePosition position) { titlePosition_ = position; }
  const FontDescriptor& titleFont() const { return titleFont_; }
  void setTitleFont(FontDescriptor font) { titleFont_ = std::move(font); }
  BoxType boxType() const { return boxType_; }
  void setBoxType(BoxType type) { boxType_ = type; }
  BorderType borderType() const { return borderType_; }
  void setBorderType(BorderType type) { borderType_ = type; }
  // A transparent box draws neither border nor title; only its content view shows.
  bool isTransparent() const { return transparent_; }
  void setTransparent(bool transparent) { transparent_ = transparent; }

  // The content view: the box's subview that holds what the box frames (owned through subviews()).
  std::shared_ptr<View> contentView() const { return contentView_.lock(); }
  // Replaces the content view (the old one leaves the subviews); nullptr removes it.
  void setContentView(std::shared_ptr<View> view);

 private:
  String title_ = u"Title";
  TitlePosition titlePosition_ = TitlePosition::AtTop;
  FontDescriptor titleFont_ = FontDescriptor::fromMetaFont(u"smallSystem");
  BoxType boxType_ = BoxType::Primary;
  BorderType borderType_ = BorderType::BezelBorder;
  bool transparent_ = false;
  std::weak_ptr<View> contentView_;
};

}  // namespace tq
