// Generic archived objects: outlets kept by name.
#include "tq/platform/ui/generic_object.h"

namespace tq {

void GenericObject::setOutlet(const String& property, const std::shared_ptr<Object>& destination) {
  for (auto& [name, target] : outlets_) {
    if (name == property) {
      target = destination;
      return;
    }
  }
  outlets_.emplace_back(property, destination);
}

std::shared_ptr<Object> GenericObject::outlet(const String& property) const {
  for (const auto& [name, target] : outlets_) {
    if (name == property) return target.lock();
  }
  return nullptr;
}

}  // namespace tq
