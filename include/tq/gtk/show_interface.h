// The live window of `tqkit show`: one window or top-level view of an interface, already read and
// localized, shown by a GtkPresenter until it is closed, with what scripts and tests ask for.
//
// The tool reaches this through dlopen() (symbols "tqkit_gtk_make_show_owner" and
// "tqkit_gtk_show"), so that its other commands never load GTK.
// Threads: the calling thread becomes GTK's; it runs GTK's main loop until the window closes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/ui/drawing/named_images.h"

namespace tq {

struct GtkShowRequest {
  // The interface's top-level objects, and the window or view among them to show.
  std::vector<ObjectRef> objects;
  ObjectRef shown;
  // Where its named images come from.
  std::shared_ptr<const NamedImageSource> images;
  // After the first frame: a PNG of the window, and the widget dump (writeWidgetDump) on stdout.
  // While dumping, SIGUSR1 asks for another dump after the next frame.
  std::string screenshot;
  bool dumpWidgets = false;
  // The File's Owner the interface was read with (NibLoadOptions::owner), made by
  // makeShowOwner(): it takes the actions connected to the owner, and those sent along the
  // responder chain, as the application. Nil: the actions connected to the owner were not made.
  ObjectRef owner;
  // Each action sent, as a JSON line on stdout: {"action": selector, "sender": class, "title":
  // the sender's title, "id": its archive identifier}.
  bool logActions = false;
  // Milliseconds after the first frame after which the window closes; negative: when the user (or
  // SIGINT, SIGTERM) closes it.
  long quitAfterMs = -1;
};

// An object to read the interface with as its File's Owner: it handles every action, and writes
// each as a JSON line on standard output when `logActions` is true.
ObjectRef makeShowOwner(bool logActions);

// Shows the window and runs GTK's main loop until it closes. Answers the exit status: 0, or 1 with
// the reason in `error` (no display, a screenshot that could not be written).
int showInterface(const GtkShowRequest& request, std::string& error);

}  // namespace tq

// The entry points the tool looks up: makeShowOwner() and showInterface() with C linkage.
extern "C" void tqkit_gtk_make_show_owner(bool logActions, tq::ObjectRef* owner);
extern "C" int tqkit_gtk_show(const tq::GtkShowRequest* request, std::string* error);
