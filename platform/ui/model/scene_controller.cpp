// What window and view controllers share.
#include "tq/platform/ui/model/scene_controller.h"

namespace tq {

std::shared_ptr<Object> SceneController::outlet(const String& property) const {
  for (const auto& [name, destination] : outlets_) {
    if (name == property) return destination.lock();
  }
  return nullptr;
}

}  // namespace tq
