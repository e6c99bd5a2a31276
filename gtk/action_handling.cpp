// Handlers per selector on a host's own objects.
#include "tq/gtk/action_handling.h"

namespace tq {

void ActionHandling::setActionHandler(const String& selector, Handler handler) {
  if (handler) {
    handlers_[selector] = std::move(handler);
  } else {
    handlers_.erase(selector);
  }
}

bool ActionHandling::respondsToAction(const String& selector) const { return handlers_.count(selector) != 0; }

bool ActionHandling::performAction(const String& selector, const ObjectRef& sender) {
  auto it = handlers_.find(selector);
  if (it == handlers_.end()) return false;
  // A copy: the handler may replace itself.
  Handler handler = it->second;
  handler(sender);
  return true;
}

}  // namespace tq
