// Small capability interfaces: questions that some classes of the model answer and others do not.
// Ask with dynamic_cast: `if (auto* m = dynamic_cast<const HasMenu*>(cell.get())) ...`.
#pragma once

#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

class Menu;

// An object with a menu of its own (pop-up button cells, and any cell or view class that adds one).
class HasMenu {
 public:
  virtual ~HasMenu() = default;
  // The menu, or nullptr.
  virtual std::shared_ptr<Menu> menu() const = 0;
  virtual void setMenu(std::shared_ptr<Menu> menu) = 0;
};

// An object that takes part in the connections of an interface archive: the file's owner, and any
// object of the archive whose class implements it. Both calls have empty defaults.
class NibConnectable {
 public:
  virtual ~NibConnectable() = default;
  // An outlet of this object named `property` ("window", "tableView") is connected to destination.
  virtual void setOutlet(const String& property, const std::shared_ptr<Object>& destination);
  // The archive connected sender's action `selector` ("add:") to this object. The reader has already
  // set the sender's target and action where the sender has them (controls, cells, menu items).
  virtual void connectAction(const String& selector, const std::shared_ptr<Object>& sender);
};

}  // namespace tq
