// GenericObject: an archived object of a class the model does not describe in detail (controllers,
// formatters, host classes without a registered factory). It keeps its class name and its archived
// attributes.
#pragma once

#include "tq/platform/base/value.h"
#include "tq/platform/ui/capabilities.h"
#include "tq/platform/ui/interface_object.h"

namespace tq {

class GenericObject : public InterfaceObject, public NibConnectable {
 public:
  explicit GenericObject(String className = u"NSObject") { setClassName(std::move(className)); }

  // The element's XML attributes as archived (e.g. "objectClassName" of an array controller).
  const Dictionary& attributes() const { return attributes_; }
  void setAttributes(Dictionary attributes) { attributes_ = std::move(attributes); }
  // Outlets connected from this object, by property name, in connection order (destinations not
  // owned).
  const std::vector<std::pair<String, std::weak_ptr<Object>>>& outlets() const { return outlets_; }
  void setOutlet(const String& property, const std::shared_ptr<Object>& destination) override;
  // The outlet's destination, or nullptr.
  std::shared_ptr<Object> outlet(const String& property) const;

 private:
  Dictionary attributes_ = Dictionary::empty();
  std::vector<std::pair<String, std::weak_ptr<Object>>> outlets_;
};

}  // namespace tq
