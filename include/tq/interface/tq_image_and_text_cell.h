// TQImageAndTextCell: the TQTextFieldCell with a small image at its left edge, the text following:
// the cell of a table or outline column whose rows show an icon and a name.
//
//   auto cell = tq::TQTextFieldCell::initTextCell<tq::TQImageAndTextCell>(u"Documents");
//   cell->setImage(folderIcon);
//
// Layout, for a cell frame F and an image of size (iw, ih):
//   image rectangle R: x = F.x + horizontalSpaceBetweenLeftEdgeAndImage(); y = F.y +
//     floor((F.h - h) / 2) when centring, else F.y + verticalImagePadding(); (w, h) the image's size,
//     or, with scaleImage(), the image fitted (keeping its proportions, enlarged or reduced) into a
//     square of side F.h - 2 x verticalImagePadding(). An unscaled image is not clipped to the frame.
//   text rectangle T: from R's right edge plus horizontalSpaceBetweenImageAndText() to F's right
//     edge, the full height of F.
// Drawing: a cell that does not centre first moves the frame down by yOffset() and shortens it by
// as much; the image is drawn flipped (upright in the flipped views tables are) into R with high
// interpolation (the context's setting is restored after), then the text into T. Editing and
// selecting place the field editor over T, without the yOffset shift. A scaled image whose size has
// no height has no proportions: it is not drawn (nor is any image whose rectangle is empty).
// Without an image the cell draws and edits as a TQTextFieldCell (the yOffset shift excepted).
//
// Ownership: the cell owns its image; copies own a copy of it. Threads: the interface thread.
#pragma once

#include "tq/interface/tq_text_field_cell.h"
#include "tq/platform/ui/drawing/image.h"

namespace tq {

class TQImageAndTextCell : public TQTextFieldCell {
 public:
  TQImageAndTextCell() = default;
  explicit TQImageAndTextCell(String text) : TQTextFieldCell(std::move(text)) {}
  String className() const override { return classNameOr(u"TQImageAndTextCell"); }

  // TQTextFieldCell's set-up, then yOffset 1.0.
  void setup() override;

  // The image (owned), or nil.
  const ImageRef& image() const override { return image_; }
  void setImage(ImageRef image) override { image_ = std::move(image); }
  bool scaleImage() const { return scaleImage_; }
  void setScaleImage(bool scale) { scaleImage_ = scale; }
  double yOffset() const { return yOffset_; }
  void setYOffset(double offset) { yOffset_ = offset; }

  // Layout constants; subclasses may change them. 3, 3 and 1.
  virtual double horizontalSpaceBetweenLeftEdgeAndImage() const { return 3.0; }
  virtual double horizontalSpaceBetweenImageAndText() const { return 3.0; }
  virtual double verticalImagePadding() const { return 1.0; }

  Rect imageFrameWithCellFrame(const Rect& frame) const;
  Rect textFrameWithCellFrame(const Rect& frame) const;
  // The text field cell's natural size, widened by the image's width and both gaps when there is an
  // image; never higher.
  Size cellSize() const override;

  void drawInteriorWithFrame(const Rect& frame, View* controlView) override;
  void editWithFrame(const Rect& frame, View* controlView, FieldEditor* editor, std::weak_ptr<Object> delegate,
                     const Object* event) override;
  void selectWithFrame(const Rect& frame, View* controlView, FieldEditor* editor, std::weak_ptr<Object> delegate,
                       long start, long length) override;

  // The text field cell's copy (settings, flags, scaleImage, yOffset) with a copy of the image (a
  // distinct image, equal in content) that the copy owns; nil stays nil.
  std::shared_ptr<Cell> copyWithZone() const;
  std::shared_ptr<Cell> copy() const override { return copyWithZone(); }

 private:
  bool scaleImage_ = false;
  double yOffset_ = 0;
  ImageRef image_;
};

}  // namespace tq
