// The root of the interface model, and the default connection calls.
#include "tq/platform/ui/model/interface_object.h"

#include "tq/platform/ui/model/capabilities.h"

namespace tq {

InterfaceObject::~InterfaceObject() = default;

String InterfaceObject::className() const { return classNameOr(u"NSObject"); }

String InterfaceObject::localizableKeyFor(const String& property) const {
  for (const auto& [p, key] : localizableKeys_) {
    if (p == property) return key;
  }
  return String();
}

void InterfaceObject::addLocalizableKey(const String& key) {
  const std::u16string_view k = key.view();
  const std::size_t dot = k.find(u'.');
  if (k.empty() || dot == std::u16string_view::npos || dot + 1 == k.size()) return;
  String property(k.substr(dot + 1));
  for (auto& [p, existing] : localizableKeys_) {
    if (p == property) {
      existing = key;
      return;
    }
  }
  localizableKeys_.emplace_back(std::move(property), key);
}

void NibConnectable::setOutlet(const String&, const std::shared_ptr<Object>&) {}
void NibConnectable::connectAction(const String&, const std::shared_ptr<Object>&) {}

}  // namespace tq
