// TqFrameBox: a container widget that places each child at the frame of the model view it shows,
// as the view's superview lays it out: y converted from the superview's coordinates (bottom-up
// unless the superview lays out from the top) to GTK's top-down ones, and the children's frames
// changed by their autoresizing masks when the container's size changes after its first layout.
#pragma once

#include <gtk/gtk.h>

#include "tq/platform/ui/model/geometry.h"

G_DECLARE_FINAL_TYPE(TqFrameBox, tq_frame_box, TQ, FRAME_BOX, GtkWidget)

namespace tq {

class View;

// A box for the subviews of `view` (not owned; it must outlive the box). `view` may be null for a
// box whose children all have explicit rectangles.
GtkWidget* frameBoxNew(View* view);

// How the box measures itself. By default it asks for nothing (0 x 0 minimum) and offers its view's
// frame size as natural size: its parent places it. A window's content box keeps a minimum; a
// document in a scrolling viewport asks for its whole frame.
void frameBoxSetMinimumSize(GtkWidget* box, Size minimum);
void frameBoxSetNaturalSize(GtkWidget* box, Size natural);
// Whether a change of the box's size changes its view's frame and, by their masks, the frames of
// the views it places (true by default).
void frameBoxSetAutoresizes(GtkWidget* box, bool autoresizes);

// Adds a child placed at the frame of `view` (a subview of the box's view), read at each layout.
void frameBoxAddView(GtkWidget* box, GtkWidget* child, View* view);
// The same for a view shown later: the child goes among the others in the order of the views in
// their superview, so that it draws over the views before it and under those after it.
void frameBoxInsertView(GtkWidget* box, GtkWidget* child, View* view);
// Adds a child at a fixed rectangle in top-down coordinates of the box's view.
void frameBoxAddAt(GtkWidget* box, GtkWidget* child, Rect topDown);
// Adds a child that fills the whole box (a decoration drawn behind the later children).
void frameBoxAddFilling(GtkWidget* box, GtkWidget* child);

// Whether subviews of `view` have their y running downwards: flipped views, and the views that
// lay their subviews out from the top whatever the model says (scroll, split and table header views).
bool laysOutFromTop(const View& view);
// The frame changed by the autoresizing mask for a superview that went from `before` to `after`
// (in the superview's own coordinates, so the y margins follow its flip). Flexible parts share
// the change in proportion to their sizes, equally when all are empty.
Rect autoresizedFrame(const Rect& frame, unsigned mask, Size before, Size after);

}  // namespace tq
