// The custom class registry.
#include "tq/platform/ui/model/class_registry.h"

namespace tq {

ClassRegistry& ClassRegistry::shared() {
  static ClassRegistry registry;
  return registry;
}

void ClassRegistry::registerClass(const String& className, Factory factory) {
  factories_[className] = std::move(factory);
}

void ClassRegistry::unregisterClass(const String& className) { factories_.erase(className); }

std::shared_ptr<InterfaceObject> ClassRegistry::makeObject(const String& className) const {
  auto it = factories_.find(className);
  if (it == factories_.end() || !it->second) return nullptr;
  return it->second();
}

}  // namespace tq
