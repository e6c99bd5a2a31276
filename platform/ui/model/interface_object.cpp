// The root of the interface model, and the default connection calls.
#include "tq/platform/ui/model/interface_object.h"

#include "tq/platform/ui/model/capabilities.h"

namespace tq {

InterfaceObject::~InterfaceObject() = default;

String InterfaceObject::className() const { return classNameOr(u"NSObject"); }

void NibConnectable::setOutlet(const String&, const std::shared_ptr<Object>&) {}
void NibConnectable::connectAction(const String&, const std::shared_ptr<Object>&) {}

}  // namespace tq
