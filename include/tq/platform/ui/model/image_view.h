// ImageView: a view showing one image through an ImageCell.
#pragma once

#include "tq/platform/ui/model/control.h"

namespace tq {

class ImageView : public Control {
 public:
  // An image view with a fresh ImageCell.
  ImageView();
  explicit ImageView(NoDefaultCell) {}
  String className() const override { return classNameOr(u"NSImageView"); }
  // The cell's image name, nil for none.
  String imageName() const { return cell() ? cell()->imageName() : String(); }
  void setImageName(String name) {
    if (cell()) cell()->setImageName(std::move(name));
  }
};

}  // namespace tq
