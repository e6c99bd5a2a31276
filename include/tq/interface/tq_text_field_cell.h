// TQTextFieldCell: a text cell for table and outline views and forms that centres its text
// vertically, chooses by itself between word wrapping and one tail-truncated line from its height,
// can draw as a separator rule ("space"), and keeps its own background colour when highlighted.
//
//   auto cell = tq::TQTextFieldCell::initTextCell(u"Name");
//   column->setDataCell(cell);
//
// Set-up: initTextCell(), initImageCell() and awakeFromNib() (for cells read from an interface archive: the class
// registers itself as "TQTextFieldCell" in ClassRegistry::shared() when its unit is loaded, which a
// static build does once the program uses the class) send setup(), which sets centersVertically, then scrollable, then wrapping
// off and on again: the cell ends wrapping and not scrollable. A cell made with the plain
// constructor has not been set up (as an archived cell before awakeFromNib).
//
// Wrapping: each interior drawing re-decides: a frame strictly higher than twice lineHeight() wraps
// by words, unless truncatesWhenOneLineHigh(); every other frame draws one line truncated at the tail.
// Line heights come from one layout manager shared by every cell, made on first use and kept.
//
// Drawing goes into the current graphics context (GraphicsContext::currentContext()).
// Threads: the interface (main) thread.
#pragma once

#include <memory>

#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/text_field_cell.h"

namespace tq {

class TQTextFieldCell : public TextFieldCell {
 public:
  TQTextFieldCell() = default;
  explicit TQTextFieldCell(String text) : TextFieldCell(std::move(text)) {}
  String className() const override { return classNameOr(u"TQTextFieldCell"); }

  // A new cell of class T (this class or a subclass) with the text, set up.
  template <class T = TQTextFieldCell>
  static std::shared_ptr<T> initTextCell(String text) {
    auto cell = std::make_shared<T>(std::move(text));
    cell->setup();
    return cell;
  }
  // A new cell of class T with the image as its content (setImage, which a subclass may take for its
  // own), set up.
  template <class T = TQTextFieldCell>
  static std::shared_ptr<T> initImageCell(std::shared_ptr<Image> image) {
    auto cell = std::make_shared<T>();
    cell->setImage(std::move(image));
    cell->setup();
    return cell;
  }
  // Runs setup() (and not the superclass's awakeFromNib): whatever the archive held for centring and
  // wrapping, the cell ends centring and wrapping.
  void awakeFromNib() override { setup(); }
  // The defaults; subclasses call this first.
  virtual void setup();

  // The default line height of the cell's font, measured by the shared layout manager.
  double lineHeight() const;
  // Word wrapping when the frame is more than two lines high and truncatesWhenOneLineHigh() is
  // false; otherwise no wrapping and tail truncation.
  void adjustLineBreakModeForCellFrame(const Rect& frame);

  // Fills the frame with the background colour (a nil colour leaves the current one).
  virtual void drawBackgroundWithFrame(const Rect& frame, View* controlView);
  // The background when drawsBackground(); then a separator's light grey rule across the middle
  // (y = frame.y + floor(0.5 x height), from the left edge to the right), or the whole text field
  // cell drawing.
  void drawWithFrame(const Rect& frame, View* controlView) override;
  // Adjusts the line break mode, then, when centring and the frame is higher than the text
  // (cellSizeForBounds), draws into a frame moved down by floor(half the difference) and as high as
  // the text.
  void drawInteriorWithFrame(const Rect& frame, View* controlView) override;
  // The background colour when the cell draws one and has one, else the text field cell's.
  ColorRef highlightColorWithFrame(const Rect& frame, View* controlView) const override;

  // The platform's cell copy, as this class: the same settings and the three flags.
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  // Plain accessors; the setters request no redisplay.
  bool centersVertically() const { return centersVertically_; }
  void setCentersVertically(bool centers) { centersVertically_ = centers; }
  bool truncatesWhenOneLineHigh() const { return truncatesWhenOneLineHigh_; }
  void setTruncatesWhenOneLineHigh(bool truncates) { truncatesWhenOneLineHigh_ = truncates; }
  bool isSpace() const { return isSpace_; }
  void setIsSpace(bool space) { isSpace_ = space; }

 private:
  bool centersVertically_ = false;
  bool truncatesWhenOneLineHigh_ = false;
  bool isSpace_ = false;
};

}  // namespace tq
