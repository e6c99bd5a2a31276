// Views without a native counterpart, drawn by the library's own view drawing in a drawing area.
#include "presenter_impl.h"

namespace tq {

GtkWidget* GtkPresenter::Impl::buildFallback(View& view) {
  fallbacks.push_back(view.className());
  View* v = &view;
  auto images = options.images;
  GtkWidget* area = drawingWidget([v, images](cairo_t* cr, int, int) { drawViewInto(cr, *v, images); });
  gtk_widget_add_css_class(area, "tq-drawn");
  return area;
}

}  // namespace tq
