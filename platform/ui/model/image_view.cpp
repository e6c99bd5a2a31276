// Image views.
#include "tq/platform/ui/model/image_view.h"

namespace tq {

ImageView::ImageView() { setCell(std::make_shared<ImageCell>()); }

}  // namespace tq
