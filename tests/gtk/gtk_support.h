// Shared pieces of the tests of live windows: GTK on the tests' own X server, the main loop run
// until something happens, presented windows inspected and photographed.
#pragma once

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/x_display.h"
#include "tq/gtk/widget_inspection.h"

namespace tq::test {

// GTK on the shared Xvfb; false when it cannot start (the caller skips).
inline bool startGtk(std::string& why) {
  const auto& display = XDisplay::shared();
  if (!display.ok()) {
    why = "needs a display server (Xvfb): " + display.reason();
    return false;
  }
  static const bool started = gtk_init_check();
  if (!started) why = "GTK cannot open the display " + display.name();
  return started;
}

#define TQ_NEED_GTK()                                         \
  do {                                                        \
    std::string why_;                                         \
    if (!::tq::test::startGtk(why_)) GTEST_SKIP() << why_;    \
  } while (0)

// Iterates the main loop until `done` answers true or `ms` milliseconds pass; answers `done()`. The
// default is generous: a loaded machine (the suite runs in parallel) can take seconds to deliver.
inline bool runUntil(const std::function<bool()>& done, int ms = 20000) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done() && std::chrono::steady_clock::now() < end) {
    while (g_main_context_iteration(nullptr, FALSE)) {
      if (done()) return true;
    }
    g_usleep(2000);
  }
  return done();
}

// Runs the loop until the window's next frame has been drawn.
inline bool waitForFrame(GtkWindow* window) {
  bool drawn = false;
  afterNextFrame(window, [&] { drawn = true; });
  return runUntil([&] { return drawn; });
}

// The records of a window by model identifier (the last one of each).
inline std::map<std::string, WidgetRecord> byIdentifier(const std::vector<WidgetRecord>& records) {
  std::map<std::string, WidgetRecord> found;
  for (const auto& r : records) {
    if (!r.identifier.empty()) found[r.identifier] = r;
  }
  return found;
}

// Where the tests keep their screenshots (made when needed): build/tests/artefacts/gtk.
inline std::string artefact(const std::string& name) {
  std::filesystem::create_directories(TQ_TEST_ARTEFACTS_DIR);
  return std::string(TQ_TEST_ARTEFACTS_DIR) + "/" + name;
}

// The X11 window of a presented window.
inline unsigned long xidOf(GtkWindow* window) { return inspectWindow(window).front().xid; }

// A click with the first button at the centre of a record, through the X server.
inline int clickAt(GtkWindow* window, const WidgetRecord& r) {
  const std::string xid = std::to_string(xidOf(window));
  return xdotool("mousemove --window " + xid + " " + std::to_string(r.x + r.width / 2) + " " +
                 std::to_string(r.y + r.height / 2) + " click 1");
}

}  // namespace tq::test
