// Drawing the interface model: a window or a view tree drawn into a graphics context in the look
// of a classic light desktop, so that an interface file can be seen without the platform that made
// it: frames, titles, labels, text fields, push buttons, check boxes and radio buttons, pop-ups,
// segmented controls, boxes, tab views, tables (header, columns and row grid), scroll views,
// sliders (linear and circular), steppers, level and progress indicators, date pickers, colour
// wells, text views and image views; token fields show each token as a rounded label; combo boxes
// their arrow button; split views their dividers. Grid and stack views show the controls they hold
// (their subviews); controls of plug-in classes are drawn as the class the reader took them for.
//
// Pop-up buttons show the blue badge with two arrows; pull-down buttons one small arrow of their
// own, right of their title or of their image (a gear menu's gear). Spinning progress indicators
// are spokes round their centre; an indeterminate indicator that is not displayed while stopped is
// not drawn (as at rest on screen). A scroller shows a knob only when its document is longer than
// the clip view (at the document's start); scrollers of a scroll view that hides them until needed
// are not drawn. Split views, their plug-in subclasses included (classes named "...SplitView"),
// lay their panes out from the top.
//
// Named images come from ViewDrawingOptions::images (the document's own folder, its bundle); names
// no source has draw as stand-ins: own vector shapes for the platform's common template images
// ("NSAddTemplate", "NSActionTemplate", status lights...), drawn at the size of the platform's
// images (only made smaller to fit, never enlarged to their button), a grey placeholder with the
// name's first letter for the rest. Heads-up (dark) panels draw light text and dark control faces.
//
// Text field cells of classes outside the platform's own (the library's TQTextFieldCell and
// TQImageAndTextCell, a host's subclass) draw with their own drawWithFrame, which may change their
// line breaking as drawing on screen does; the platform's cell classes draw in the look above.
// Tables show their header, columns and rows but no data (nor the prototype rows of view-based
// tables); text views show the text they hold from their top left; custom views that show nothing
// else (no visible subview) are a dashed outline, with their class name where no other view shares
// their place: the stand-in never covers real content.
//
// Threads: the thread that owns the model; drawing goes to that thread's current context.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "tq/platform/ui/drawing/drawing_recorder.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

struct ViewDrawingOptions {
  // Where named images come from; nil: stand-ins and placeholders only.
  std::shared_ptr<const NamedImageSource> images;
  // Draw as in a dark (heads-up) panel: light text, dark control faces.
  bool dark = false;
  // Called for each view drawn, before its content, with its bounds in the context's own
  // coordinates (the bounding box, through the transformations in force).
  std::function<void(const View&, Rect)> drawnView;
};

// Draws a view and its visible subviews into the current graphics context. The view's frame is taken
// in the current user space, whose y runs downwards when `inFlippedSpace` is true (as the view's
// superview's coordinates would). The context's graphics state is the same afterwards.
void drawViewHierarchy(const View& view, bool inFlippedSpace, const ViewDrawingOptions& options = {});

struct WindowRenderOptions {
  // Pixels per point of the image.
  double scale = 1.0;
  // Draw a title bar above the content (for titled windows).
  bool titleBar = true;
  // When set, receives a record of every drawing call.
  std::shared_ptr<DrawingRecorder> recorder;
  // Where named images come from; nil: stand-ins and placeholders only.
  std::shared_ptr<const NamedImageSource> images;
  // As ViewDrawingOptions::drawnView.
  std::function<void(const View&, Rect)> drawnView;
};

// The largest picture renderWindow and renderView make, and a presenter of live windows shows: at
// most kMaxRenderSide pixels a side and kMaxRenderPixels in all (8192 x 8192, 256 MiB of pixels).
// Larger ones are not drawn at all (nil), so that a document naming a window of 30000 x 30000
// points costs nothing to refuse.
inline constexpr double kMaxRenderSide = 16384;
inline constexpr double kMaxRenderPixels = 8192.0 * 8192.0;
// Whether a picture of `size` points at `scale` pixels per point is within those limits (and not
// empty).
bool renderedSizeFits(Size size, double scale);
// The size in points of renderWindow's picture of the window: the content rectangle's width; its
// height with the toolbar's and, when `titleBar` is set and the window is titled, the title bar's.
Size renderedWindowSize(const Window& window, bool titleBar = true);

// A new image of the window: its title bar (when titled) and its toolbar (when it has a visible
// one) above its content view drawn at the content rectangle's size. Heads-up windows draw dark. Nil when the window's content is empty or
// the picture would be larger than the limits above.
GraphicsContextRef renderWindow(const Window& window, const WindowRenderOptions& options = {});
// Whether renderWindow makes a picture of the window with these options (its content is not empty
// and the picture within the limits above at the scale), and renderView one
// of the view at the scale. A tool offering windows and views to draw offers those.
bool canRenderWindow(const Window& window, const WindowRenderOptions& options = {});
bool canRenderView(const View& view, double scale = 1.0);
// The toolbar renderWindow draws for a window whose toolbar is visible: a strip under the title bar
// with the toolbar's default items (its allowed items when it lists no defaults) from the left, each
// an image or its view above its label as the display and size modes say; flexible spaces share
// the width left over. toolbarHeight is the strip's height (0 without a visible toolbar); the
// picture is that much taller than the content. Each placement is an item with its area in points
// from the picture's top left corner at scale 1, below the title bar when `titleBar` is set (as
// WindowRenderOptions::titleBar).
struct ToolbarItemPlacement {
  std::shared_ptr<ToolbarItem> item;
  Rect frame;
};
double toolbarHeight(const Window& window);
std::vector<ToolbarItemPlacement> toolbarItemPlacements(const Window& window, bool titleBar = true);

// A new image of a view tree on a window-coloured background, the size of the view's frame (nil
// when empty or larger than the limits above). The view itself is drawn even when it is hidden (a
// top-level view that its application shows later); its hidden subviews are not.
// `drawnView` as ViewDrawingOptions::drawnView.
GraphicsContextRef renderView(const View& view, double scale = 1.0,
                              std::shared_ptr<DrawingRecorder> recorder = nullptr,
                              std::shared_ptr<const NamedImageSource> images = nullptr,
                              std::function<void(const View&, Rect)> drawnView = {});

}  // namespace tq
