// Cell: the part of a control that holds and lays out its content (text, image, state), with
// ActionCell (a cell that sends an action) and ImageCell.
//
// A cell belongs to a control (its controlView(), not owned), to a matrix, to a table column, or
// stands alone. Sizes come from TextMeasurer::current().
// Threads: the interface (main) thread.
#pragma once

#include <memory>

#include "tq/platform/base/value.h"
#include "tq/platform/ui/model/color_descriptor.h"
#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/geometry.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class Image;

class View;

// The platform's values.
enum class TextAlignment { Left = 0, Right = 1, Center = 2, Justified = 3, Natural = 4 };
enum class LineBreakMode {
  ByWordWrapping = 0,
  ByCharWrapping = 1,
  ByClipping = 2,
  ByTruncatingHead = 3,
  ByTruncatingTail = 4,
  ByTruncatingMiddle = 5
};
inline constexpr LineBreakMode NSLineBreakByWordWrapping = LineBreakMode::ByWordWrapping;
inline constexpr LineBreakMode NSLineBreakByTruncatingTail = LineBreakMode::ByTruncatingTail;
enum class ControlSize { Regular = 0, Small = 1, Mini = 2, Large = 3 };
enum class CellImagePosition {
  NoImage = 0,
  ImageOnly = 1,
  ImageLeft = 2,
  ImageRight = 3,
  ImageBelow = 4,
  ImageAbove = 5,
  ImageOverlaps = 6,
  ImageLeading = 7,
  ImageTrailing = 8
};
inline constexpr CellImagePosition NSImageOnly = CellImagePosition::ImageOnly;

class Cell : public InterfaceObject {
 public:
  Cell() = default;
  // A text cell with the string as its value (initTextCell:).
  explicit Cell(String text) : stringValue_(std::move(text)) {}
  String className() const override { return classNameOr(u"NSCell"); }

  // The cell's value as text; "" for a new cell.
  virtual String stringValue() const { return stringValue_; }
  virtual void setStringValue(String value) { stringValue_ = std::move(value); }
  // The value as an object (numbers, dates); for text cells the string value as a Value.
  virtual Value objectValue() const { return Value(stringValue()); }
  virtual void setObjectValue(const Value& value);
  // The title: for text cells the same as the string value; button cells keep a title of their own.
  virtual String title() const { return stringValue(); }
  virtual void setTitle(String title) { setStringValue(std::move(title)); }

  const FontDescriptor& font() const { return font_; }
  void setFont(FontDescriptor font) { font_ = std::move(font); }
  TextAlignment alignment() const { return alignment_; }
  void setAlignment(TextAlignment alignment) { alignment_ = alignment; }
  LineBreakMode lineBreakMode() const { return lineBreakMode_; }
  void setLineBreakMode(LineBreakMode mode) { lineBreakMode_ = mode; }
  // Wrapping and scrolling exclude each other: turning one on turns the other off.
  bool wraps() const { return wraps_; }
  void setWraps(bool wraps);
  bool isScrollable() const { return scrollable_; }
  void setScrollable(bool scrollable);
  bool truncatesLastVisibleLine() const { return truncatesLastVisibleLine_; }
  void setTruncatesLastVisibleLine(bool truncates) { truncatesLastVisibleLine_ = truncates; }

  bool isEnabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  bool isEditable() const { return editable_; }
  void setEditable(bool editable) { editable_ = editable; }
  bool isSelectable() const { return selectable_; }
  void setSelectable(bool selectable) { selectable_ = selectable; }
  bool isBordered() const { return bordered_; }
  void setBordered(bool bordered) { bordered_ = bordered; }
  bool isBezeled() const { return bezeled_; }
  void setBezeled(bool bezeled) { bezeled_ = bezeled; }
  // 0 off, 1 on, -1 mixed.
  int state() const { return state_; }
  void setState(int state) { state_ = state; }
  long tag() const { return tag_; }
  void setTag(long tag) { tag_ = tag; }
  ControlSize controlSize() const { return controlSize_; }
  void setControlSize(ControlSize size) { controlSize_ = size; }
  // The name of the cell's image (resolved by the drawing side), nil for none.
  const String& imageName() const { return imageName_; }
  void setImageName(String name) { imageName_ = std::move(name); }
  // The cell's image object (an image cell's content, as initImageCell: sets it), shared; nullptr for
  // none. Copies of the cell share it.
  virtual const std::shared_ptr<Image>& image() const { return image_; }
  virtual void setImage(std::shared_ptr<Image> image) { image_ = std::move(image); }
  // Numeric controls (sliders, steppers, level indicators, date pickers): the value and the range
  // it moves in; 0 in 0 to 1 unless set. A date picker's value is its date in seconds since
  // 2001-01-01 00:00 UTC.
  double doubleValue() const { return doubleValue_; }
  void setDoubleValue(double value) { doubleValue_ = value; }
  double minValue() const { return minValue_; }
  void setMinValue(double value) { minValue_ = value; }
  double maxValue() const { return maxValue_; }
  void setMaxValue(double value) { maxValue_ = value; }
  // Tick marks of a slider or level indicator; 0 for none.
  long numberOfTickMarks() const { return tickMarks_; }
  void setNumberOfTickMarks(long count) { tickMarks_ = count; }
  // The archived look of a control that has several: a slider's type ("linear", "circular"), a
  // level indicator's style ("continuousCapacity", "discreteCapacity", "relevancy", "rating"), a date
  // picker's style ("textFieldAndStepper", "clockAndCalendar", "textField"); nil for the default.
  const String& controlStyle() const { return controlStyle_; }
  void setControlStyle(String style) { controlStyle_ = std::move(style); }
  // A date picker's fields: DateElementYearMonthDay | DateElementHourMinute | DateElementSecond.
  enum DateElements : unsigned { DateElementYearMonthDay = 1, DateElementHourMinute = 2, DateElementSecond = 4 };
  unsigned dateElements() const { return dateElements_; }
  void setDateElements(unsigned elements) { dateElements_ = elements; }
  // A formatter object of the archive (number or date formatter), owned; nullptr for none.
  const std::shared_ptr<Object>& formatter() const { return formatter_; }
  void setFormatter(std::shared_ptr<Object> formatter) { formatter_ = std::move(formatter); }

  // The view the cell draws in (not owned), or nullptr.
  View* controlView() const { return controlView_; }
  void setControlView(View* view) { controlView_ = view; }

  // The natural size of the content: the string measured in the cell's font, plus textRoom()
  // (bezels, borders, insets); subclasses with other content (indicators, icons) add theirs.
  virtual Size cellSize() const;
  // The size of the text within bounds, plus textRoom(): a wrapping cell lays its text out in the
  // bounds' width less that room (TextMeasurer::sizeOfString with a width), a non-wrapping one is
  // one line high. Width is at most the bounds' width. It does not go through cellSize(), so a
  // subclass that widens cellSize() for other content (an icon) measures its text all the same.
  virtual Size cellSizeForBounds(const Rect& bounds) const;
  // The room the cell keeps around its text (width, height); none for a plain cell.
  virtual Size textRoom() const { return {}; }

  // A copy of the cell, as the platform's cell copying makes it: the same values and flags (a
  // formatter is shared), no bindings, in no view (controlView() nullptr). Every cell class
  // overrides it to copy as itself; subclasses outside the library do the same with copyOf().
  virtual std::shared_ptr<Cell> copy() const { return copyOf(*this); }

 protected:
  template <class T>
  static std::shared_ptr<Cell> copyOf(const T& cell) {
    auto c = std::make_shared<T>(cell);
    c->setControlView(nullptr);
    return c;
  }

 private:
  String stringValue_ = String::empty();
  FontDescriptor font_;
  TextAlignment alignment_ = TextAlignment::Natural;
  LineBreakMode lineBreakMode_ = LineBreakMode::ByWordWrapping;
  bool wraps_ = false;
  bool scrollable_ = false;
  bool truncatesLastVisibleLine_ = false;
  bool enabled_ = true;
  bool editable_ = false;
  bool selectable_ = false;
  bool bordered_ = false;
  bool bezeled_ = false;
  int state_ = 0;
  long tag_ = 0;
  ControlSize controlSize_ = ControlSize::Regular;
  String imageName_;
  double doubleValue_ = 0;
  double minValue_ = 0;
  double maxValue_ = 1;
  long tickMarks_ = 0;
  String controlStyle_;
  unsigned dateElements_ = DateElementYearMonthDay;
  std::shared_ptr<Image> image_;
  std::shared_ptr<Object> formatter_;
  View* controlView_ = nullptr;
};

// A cell that sends an action to a target.
class ActionCell : public Cell {
 public:
  using Cell::Cell;
  String className() const override { return classNameOr(u"NSActionCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  std::shared_ptr<Object> target() const { return target_.lock(); }
  void setTarget(std::weak_ptr<Object> target) { target_ = std::move(target); }
  const String& action() const { return action_; }
  void setAction(String action) { action_ = std::move(action); }

 private:
  std::weak_ptr<Object> target_;
  String action_;
};

// A cell showing an image (image views, image columns).
class ImageCell : public Cell {
 public:
  ImageCell() = default;
  String className() const override { return classNameOr(u"NSImageCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }
  // The archived scaling ("proportionallyDown", "axesIndependently", "none", ...); nil by default.
  const String& imageScaling() const { return imageScaling_; }
  void setImageScaling(String scaling) { imageScaling_ = std::move(scaling); }

 private:
  String imageScaling_;
};

}  // namespace tq
