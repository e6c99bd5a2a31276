// The frame box: children at their views' frames, and autoresizing when the box's size changes.
#include "frame_box.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/view.h"

namespace {

struct FrameChild {
  GtkWidget* widget;
  tq::View* view;  // nullptr: placed at `rect`, or filling when `fills`
  tq::Rect rect;
  bool fills;
};

}  // namespace

struct _TqFrameBox {
  GtkWidget parent_instance;
  tq::View* view;
  std::vector<FrameChild>* children;
  tq::Size minimum;
  tq::Size natural;
  bool hasNatural;
  bool autoresizes;
  // The allocation and the view's frame size at the last layout; none before the first.
  bool laidOut;
  int allocatedWidth, allocatedHeight;
  tq::Size modelSize;
};

G_DEFINE_FINAL_TYPE(TqFrameBox, tq_frame_box, GTK_TYPE_WIDGET)

namespace tq {

bool laysOutFromTop(const View& view) {
  if (view.isFlipped() || dynamic_cast<const ScrollView*>(&view)) return true;
  const String name = view.className();
  return name == String(u"NSSplitView") || name == String(u"NSTableHeaderView");
}

namespace {

// One axis: the leading margin, the size and the trailing margin share the superview's change.
void resizeAxis(double& origin, double& size, double before, double after, bool flexLead, bool flexSize,
                bool flexTrail) {
  const double delta = after - before;
  if (delta == 0 || !(flexLead || flexSize || flexTrail)) return;
  const double parts[3] = {std::max(origin, 0.0), std::max(size, 0.0), std::max(before - origin - size, 0.0)};
  const bool flexible[3] = {flexLead, flexSize, flexTrail};
  double total = 0;
  int count = 0;
  for (int i = 0; i < 3; ++i) {
    if (flexible[i]) total += parts[i], ++count;
  }
  double grow[3] = {0, 0, 0};
  for (int i = 0; i < 3; ++i) {
    if (flexible[i]) grow[i] = total > 0 ? delta * parts[i] / total : delta / count;
  }
  origin += grow[0];
  size = std::max(0.0, size + grow[1]);
}

}  // namespace

Rect autoresizedFrame(const Rect& frame, unsigned mask, Size before, Size after) {
  Rect r = frame;
  resizeAxis(r.x, r.w, before.width, after.width, mask & 1, mask & 2, mask & 4);
  resizeAxis(r.y, r.h, before.height, after.height, mask & 8, mask & 16, mask & 32);
  return r;
}

GtkWidget* frameBoxNew(View* view) {
  auto* box = TQ_FRAME_BOX(g_object_new(tq_frame_box_get_type(), nullptr));
  box->view = view;
  if (view) box->modelSize = view->frame().size();
  return GTK_WIDGET(box);
}

void frameBoxSetMinimumSize(GtkWidget* widget, Size minimum) {
  TQ_FRAME_BOX(widget)->minimum = minimum;
  gtk_widget_queue_resize(widget);
}

void frameBoxSetNaturalSize(GtkWidget* widget, Size natural) {
  auto* box = TQ_FRAME_BOX(widget);
  box->natural = natural;
  box->hasNatural = true;
  gtk_widget_queue_resize(widget);
}

void frameBoxSetAutoresizes(GtkWidget* widget, bool autoresizes) { TQ_FRAME_BOX(widget)->autoresizes = autoresizes; }

namespace {

void add(GtkWidget* widget, FrameChild child) {
  auto* box = TQ_FRAME_BOX(widget);
  box->children->push_back(child);
  gtk_widget_set_parent(child.widget, widget);
}

}  // namespace

void frameBoxAddView(GtkWidget* box, GtkWidget* child, View* view) { add(box, {child, view, {}, false}); }

void frameBoxInsertView(GtkWidget* widget, GtkWidget* child, View* view) {
  auto* box = TQ_FRAME_BOX(widget);
  // Before the first child that shows a later subview of the same superview.
  const View* parent = view->superview();
  auto position = [&](const View* v) -> long {
    if (!parent || !v) return -1;
    const auto& subs = parent->subviews();
    for (std::size_t i = 0; i < subs.size(); ++i) {
      if (subs[i].get() == v) return static_cast<long>(i);
    }
    return -1;
  };
  const long mine = position(view);
  auto it = box->children->begin();
  while (it != box->children->end() && !(it->view && position(it->view) > mine)) ++it;
  GtkWidget* next = it == box->children->end() ? nullptr : it->widget;
  box->children->insert(it, {child, view, {}, false});
  gtk_widget_insert_before(child, widget, next);
}
void frameBoxAddAt(GtkWidget* box, GtkWidget* child, Rect topDown) { add(box, {child, nullptr, topDown, false}); }
void frameBoxAddFilling(GtkWidget* box, GtkWidget* child) { add(box, {child, nullptr, {}, true}); }

}  // namespace tq

namespace {

void frameBoxMeasure(GtkWidget* widget, GtkOrientation orientation, int, int* minimum, int* natural, int*, int*) {
  auto* box = TQ_FRAME_BOX(widget);
  const bool horizontal = orientation == GTK_ORIENTATION_HORIZONTAL;
  tq::Size size = box->hasNatural ? box->natural : box->view ? box->view->frame().size() : tq::Size{};
  const double min = horizontal ? box->minimum.width : box->minimum.height;
  const double nat = horizontal ? size.width : size.height;
  *minimum = static_cast<int>(std::ceil(std::max(0.0, min)));
  *natural = std::max(*minimum, static_cast<int>(std::lround(std::max(0.0, nat))));
  // Children are measured too: GTK expects every widget it allocates to have been measured.
  for (const FrameChild& c : *box->children) {
    int m = 0, n = 0;
    gtk_widget_measure(c.widget, orientation, -1, &m, &n, nullptr, nullptr);
  }
}

void frameBoxAllocate(GtkWidget* widget, int width, int height, int) {
  auto* box = TQ_FRAME_BOX(widget);
  tq::View* view = box->view;
  if (!box->laidOut) {
    box->laidOut = true;
  } else if (box->autoresizes && view && (width != box->allocatedWidth || height != box->allocatedHeight)) {
    // The box grew or shrank by as much as its view does: the subviews follow their masks.
    const tq::Size before = box->modelSize;
    const tq::Size after{before.width + (width - box->allocatedWidth), before.height + (height - box->allocatedHeight)};
    if (!(view->frame().size() == after)) view->setFrameSize(after);
    for (const auto& sub : view->subviews()) {
      if (sub && sub->autoresizingMask()) {
        sub->setFrame(tq::autoresizedFrame(sub->frame(), sub->autoresizingMask(), before, after));
      }
    }
  }
  box->allocatedWidth = width;
  box->allocatedHeight = height;
  if (view) box->modelSize = view->frame().size();

  const bool fromTop = !view || tq::laysOutFromTop(*view);
  const double boundsHeight = view ? view->frame().h : height;
  for (const FrameChild& c : *box->children) {
    tq::Rect r = c.fills ? tq::Rect{0, 0, static_cast<double>(width), static_cast<double>(height)} : c.rect;
    if (c.view) {
      r = c.view->frame();
      if (!fromTop) r.y = boundsHeight - r.y - r.h;
    }
    GtkAllocation a{static_cast<int>(std::lround(r.x)), static_cast<int>(std::lround(r.y)),
                    std::max(0, static_cast<int>(std::lround(r.x + r.w)) - static_cast<int>(std::lround(r.x))),
                    std::max(0, static_cast<int>(std::lround(r.y + r.h)) - static_cast<int>(std::lround(r.y)))};
    gtk_widget_size_allocate(c.widget, &a, -1);
  }
}

GtkSizeRequestMode frameBoxRequestMode(GtkWidget*) { return GTK_SIZE_REQUEST_CONSTANT_SIZE; }

void frameBoxDispose(GObject* object) {
  auto* box = TQ_FRAME_BOX(object);
  if (box->children) {
    for (const FrameChild& c : *box->children) gtk_widget_unparent(c.widget);
    box->children->clear();
  }
  G_OBJECT_CLASS(tq_frame_box_parent_class)->dispose(object);
}

void frameBoxFinalize(GObject* object) {
  delete TQ_FRAME_BOX(object)->children;
  G_OBJECT_CLASS(tq_frame_box_parent_class)->finalize(object);
}

}  // namespace

static void tq_frame_box_class_init(TqFrameBoxClass* klass) {
  GObjectClass* object = G_OBJECT_CLASS(klass);
  object->dispose = frameBoxDispose;
  object->finalize = frameBoxFinalize;
  GtkWidgetClass* widget = GTK_WIDGET_CLASS(klass);
  widget->measure = frameBoxMeasure;
  widget->size_allocate = frameBoxAllocate;
  widget->get_request_mode = frameBoxRequestMode;
}

static void tq_frame_box_init(TqFrameBox* box) {
  box->children = new std::vector<FrameChild>();
  box->autoresizes = true;
}
