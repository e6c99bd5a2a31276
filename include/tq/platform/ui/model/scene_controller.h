// SceneController: what window and view controllers share as the controllers of a scene (a
// storyboard's scene, a document's controller): the scene's objects that nothing else holds, kept
// alive with the controller (owned, in document order), and the outlets the archive connects, kept
// by name (destinations not owned). Subclasses give outlets their meaning in setOutlet and then
// call recordOutlet.
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tq/platform/ui/model/capabilities.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class SceneController : public InterfaceObject, public NibConnectable {
 public:
  // Objects of the controller's scene kept alive with it (owned), in document order.
  const std::vector<std::shared_ptr<Object>>& sceneObjects() const { return sceneObjects_; }
  void addSceneObject(std::shared_ptr<Object> object) { sceneObjects_.push_back(std::move(object)); }

  // Every outlet connected, in order.
  const std::vector<std::pair<String, std::weak_ptr<Object>>>& outlets() const { return outlets_; }
  // The outlet's destination (the first connected under that name), or nullptr.
  std::shared_ptr<Object> outlet(const String& property) const;

 protected:
  void recordOutlet(const String& property, const std::shared_ptr<Object>& destination) {
    outlets_.emplace_back(property, destination);
  }

 private:
  std::vector<std::shared_ptr<Object>> sceneObjects_;
  std::vector<std::pair<String, std::weak_ptr<Object>>> outlets_;
};

}  // namespace tq
