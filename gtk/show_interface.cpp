// `tqkit show`'s live window: a presenter, the first frame's screenshot and dump, logged actions.
#include "tq/gtk/show_interface.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdio>

#include "presenter_impl.h"
#include "tq/gtk/action_handling.h"
#include "tq/gtk/gtk_presenter.h"
#include "tq/gtk/widget_inspection.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/toolbar.h"

namespace tq {

namespace {

// Stands for the File's Owner and the application: takes every action and, when asked, logs it.
class LoggingResponder : public Object, public ActionHandling {
 public:
  explicit LoggingResponder(bool log) : log_(log) {}
  bool respondsToAction(const String&) const override { return true; }
  bool performAction(const String& selector, const ObjectRef& sender) override {
    if (!log_) return true;
    String title;
    if (auto* button = dynamic_cast<Button*>(sender.get())) title = button->title();
    else if (auto* item = dynamic_cast<MenuItem*>(sender.get())) title = item->title();
    else if (auto* tool = dynamic_cast<ToolbarItem*>(sender.get())) title = tool->label();
    else if (auto* control = dynamic_cast<Control*>(sender.get())) title = control->stringValue();
    std::string line = "{\"action\":\"" + jsonEscape(utf8(selector)) + "\",\"sender\":\"" +
                       jsonEscape(sender ? utf8(sender->className()) : "") + "\",\"title\":\"" + jsonEscape(utf8(title)) + "\"";
    if (auto* object = dynamic_cast<InterfaceObject*>(sender.get()); object && !object->archiveIdentifier().isNil()) {
      line += ",\"id\":\"" + jsonEscape(utf8(object->archiveIdentifier())) + "\"";
    }
    std::printf("%s}\n", line.c_str());
    std::fflush(stdout);
    return true;
  }

 private:
  bool log_;
};

struct ShowState {
  bool done = false;
  int status = 0;
  std::string error;
  GtkWindow* window = nullptr;
  bool dumping = false;
};

}  // namespace

ObjectRef makeShowOwner(bool logActions) { return std::make_shared<LoggingResponder>(logActions); }

int showInterface(const GtkShowRequest& request, std::string& error) {
  if (!gtk_init_check()) {
    error = "cannot open a display: DISPLAY is not set, or its display server refuses the connection";
    return 1;
  }
  auto* shownObject = dynamic_cast<InterfaceObject*>(request.shown.get());
  if (!shownObject) {
    error = "nothing to show";
    return 1;
  }
  ObjectRef responder = request.owner ? request.owner : makeShowOwner(request.logActions);
  GtkPresenterOptions options;
  options.owner = responder;
  options.application = responder;
  options.images = request.images;
  auto presenter = std::make_shared<GtkPresenter>(request.objects, options);
  ShowState state;
  state.window = presenter->gtkWindow(*shownObject);
  if (!state.window) {
    error = "the object is not a window or view of the interface";
    return 1;
  }
  state.dumping = request.dumpWidgets;
  presenter->setWindowClosedHandler([&](const InterfaceObject&) { state.done = true; });
  if (!dynamic_cast<Window*>(shownObject)) {
    g_signal_connect(state.window, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer data) -> gboolean {
                       static_cast<ShowState*>(data)->done = true;
                       return FALSE;
                     }),
                     &state);
  }
  gtk_window_present(state.window);

  afterNextFrame(state.window, [&] {
    if (!request.screenshot.empty()) {
      std::string why;
      if (!saveScreenshot(state.window, request.screenshot, &why)) {
        state.error = why;
        state.status = 1;
        state.done = true;
        return;
      }
    }
    if (request.dumpWidgets) writeWidgetDump(state.window, stdout);
    if (request.quitAfterMs >= 0) {
      g_timeout_add(static_cast<guint>(request.quitAfterMs), +[](gpointer data) -> gboolean {
        static_cast<ShowState*>(data)->done = true;
        return G_SOURCE_REMOVE;
      }, &state);
    }
  });
  auto quit = +[](gpointer data) -> gboolean {
    static_cast<ShowState*>(data)->done = true;
    return G_SOURCE_CONTINUE;
  };
  const guint sigint = g_unix_signal_add(SIGINT, quit, &state);
  const guint sigterm = g_unix_signal_add(SIGTERM, quit, &state);
  const guint sigusr1 = g_unix_signal_add(SIGUSR1, +[](gpointer data) -> gboolean {
    auto* s = static_cast<ShowState*>(data);
    if (s->dumping) afterNextFrame(s->window, [s] { writeWidgetDump(s->window, stdout); });
    return G_SOURCE_CONTINUE;
  }, &state);

  while (!state.done) g_main_context_iteration(nullptr, TRUE);

  g_source_remove(sigint);
  g_source_remove(sigterm);
  g_source_remove(sigusr1);
  presenter.reset();
  // Let GTK finish with the destroyed window before the process goes on.
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  error = state.error;
  return state.status;
}

}  // namespace tq

extern "C" void tqkit_gtk_make_show_owner(bool logActions, tq::ObjectRef* owner) {
  *owner = tq::makeShowOwner(logActions);
}

extern "C" int tqkit_gtk_show(const tq::GtkShowRequest* request, std::string* error) {
  std::string ignored;
  return tq::showInterface(*request, error ? *error : ignored);
}
