// What a presented window shows, for scripts and tests: its widgets with their text and where they
// are, and pictures of it.
//
//   tq::afterNextFrame(window, [&] {
//     tq::writeWidgetDump(window, stdout);
//     tq::saveScreenshot(window, "window.png");
//   });
//
// Threads: GTK's thread.
#pragma once

#include <gtk/gtk.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace tq {

// One widget as the user sees it.
struct WidgetRecord {
  std::string type;  // the GTK class ("GtkButton", "TqCellView")
  std::string text;  // the text it shows: a label's, a field's, a button's title, a window's title
  // The widget's bounds relative to the top left corner of its toplevel's surface, in pixels: the
  // coordinates `xdotool mousemove --window` takes.
  int x = 0, y = 0, width = 0, height = 0;
  bool sensitive = true;
  // For a widget made for a model object (by a GtkPresenter): the object's class ("NSButton"), its
  // archive identifier (empty when it has none), and its model values: a button's state, a
  // control's string value.
  std::string modelClass, identifier;
  bool hasState = false;
  int state = 0;
  bool hasValue = false;
  std::string value;
  std::string placeholder;
  // For a table cell: its row, its column's identifier (or its index when it has none), whether
  // the row is selected and whether the cell draws a separator.
  long row = -1;
  std::string column;
  bool selected = false;
  bool space = false;
  // For the window: its X11 window id (0 on other display servers).
  unsigned long xid = 0;
};

// The window itself, then every mapped widget inside it that a presenter made for a model object
// or that shows text, in depth-first order (parents before children).
std::vector<WidgetRecord> inspectWindow(GtkWindow* window);
// One record as a line of JSON (no newline): "type", "text", "x", "y", "width", "height", then the
// other fields that apply ("class", "id", "state", "value", "placeholder", "row", "column",
// "selected", "space", "sensitive" when false, "xid").
std::string widgetRecordJSON(const WidgetRecord& record);
// inspectWindow() as JSON lines; the window's line also carries "count", the number of lines of
// the dump (itself included), so that a reader knows where a dump ends. Flushes `out`.
void writeWidgetDump(GtkWindow* window, std::FILE* out);

// Draws the window as it is now into a PNG file (the whole window, client-side title bar
// included; its pixel (0, 0) is at the window record's x, y in the surface, past the room the
// surface keeps for shadows). Written beside the destination and renamed over it. False, with the
// reason in `error` when given, when it cannot.
bool saveScreenshot(GtkWindow* window, const std::string& path, std::string* error = nullptr);

// Runs `then` once, from the main loop, after the window's next frame has been drawn (its first,
// when it is not shown yet: it runs once the window is mapped and painted).
void afterNextFrame(GtkWindow* window, std::function<void()> then);

}  // namespace tq
