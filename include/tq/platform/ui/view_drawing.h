// Drawing the interface model: a window or a view tree drawn into a graphics context in the look
// of a classic light desktop (frames, titles, labels, text fields, buttons, check boxes, boxes, tab
// views, tables, scroll views), so that an interface file can be seen without the platform that made
// it.
//
// The drawing is a picture of the model, not a live interface: images named by the archive are
// shown as placeholders, tables have no rows of data, and custom views show their class name in a
// dashed outline.
//
// Threads: the thread that owns the model; drawing goes to that thread's current context.
#pragma once

#include <memory>

#include "tq/platform/ui/drawing_recorder.h"
#include "tq/platform/ui/graphics_context.h"
#include "tq/platform/ui/view.h"
#include "tq/platform/ui/window.h"

namespace tq {

// Draws a view and its visible subviews into the current graphics context. The view's frame is taken
// in the current user space, whose y runs downwards when `inFlippedSpace` is true (as the view's
// superview's coordinates would). The context's graphics state is the same afterwards.
void drawViewHierarchy(const View& view, bool inFlippedSpace);

struct WindowRenderOptions {
  // Pixels per point of the image.
  double scale = 1.0;
  // Draw a title bar above the content (for titled windows).
  bool titleBar = true;
  // When set, receives a record of every drawing call.
  std::shared_ptr<DrawingRecorder> recorder;
};

// A new image of the window: its title bar (when titled) above its content view drawn at the
// content rectangle's size. Nil when the window's content is empty or too large for an image.
GraphicsContextRef renderWindow(const Window& window, const WindowRenderOptions& options = {});
// A new image of a view tree on a window-coloured background, the size of the view's frame.
GraphicsContextRef renderView(const View& view, double scale = 1.0,
                              std::shared_ptr<DrawingRecorder> recorder = nullptr);

}  // namespace tq
