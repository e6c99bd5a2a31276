// ActionHandling: how a host's own objects receive the actions of a presented interface.
//
// A control, menu item or toolbar item of an interface names an action (a selector such as
// "refresh:") and a target. When the user activates it, GtkPresenter sends the action:
//   - to the target the interface connected (the File's Owner, or any object of the nib), when
//     that object handles the selector;
//   - when the interface named no target (First Responder), along the responder chain, to the
//     first object that handles it (see GtkPresenter for the chain).
// An object handles a selector when it is an ActionHandling that answers respondsToAction() with
// true. A host makes its object one by deriving from it and registering a handler per selector:
//
//   class Controller : public tq::Object, public tq::NibConnectable, public tq::ActionHandling {
//    public:
//     Controller() {
//       setActionHandler(u"refresh:", [this](const tq::ObjectRef& sender) { reload(); });
//     }
//   };
//
// Interface objects that the host made through the class registry (a custom view class) can
// derive from it the same way, and then take part in the responder chain.
//
// Threads: the interface (main) thread, like the presenter that calls the handlers.
#pragma once

#include <functional>
#include <map>
#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

class ActionHandling {
 public:
  // Called with the sender: the control (a Button, a Matrix, a TableView...), the MenuItem or the
  // ToolbarItem that was activated. Its values (state, string value, selected item) already show
  // what the user did when the handler runs.
  using Handler = std::function<void(const ObjectRef& sender)>;

  virtual ~ActionHandling() = default;

  // Registers (or replaces; an empty handler removes) the handler of a selector. The selector is
  // compared as the interface spells it, colon included ("add:").
  void setActionHandler(const String& selector, Handler handler);

  // Whether the object handles the selector: by default, whether a handler is registered for it.
  // An object that handles every action (a logger) overrides this and performAction().
  virtual bool respondsToAction(const String& selector) const;
  // Runs the selector's handler with the sender; false when there is none.
  virtual bool performAction(const String& selector, const ObjectRef& sender);

 private:
  std::map<String, Handler> handlers_;
};

}  // namespace tq
