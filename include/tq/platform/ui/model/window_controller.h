// WindowController: the controller of a window (a storyboard's window scene, a document's window
// controller).
//
// It owns its window and its content view controller; setting the content view controller makes
// that controller's view the window's content view and gives the window's content rectangle the
// view's size, its top left corner kept, as a window does when it takes a controller's view.
// Objects of the controller's scene that nothing else holds are kept in sceneObjects(). The archive
// connects the "window" outlet to the window; other outlets are kept by name (not owned).
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tq/platform/ui/model/scene_controller.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window.h"

namespace tq {

class WindowController : public SceneController {
 public:
  String className() const override { return classNameOr(u"NSWindowController"); }

  // The window (owned), or nullptr.
  const std::shared_ptr<Window>& window() const { return window_; }
  void setWindow(std::shared_ptr<Window> window);
  // The controller whose view fills the window (owned), or nullptr.
  const std::shared_ptr<ViewController>& contentViewController() const { return contentViewController_; }
  void setContentViewController(std::shared_ptr<ViewController> controller);

  // "window" sets the window (when the destination is one); every outlet is also listed.
  void setOutlet(const String& property, const std::shared_ptr<Object>& destination) override;

 private:
  void placeContent();
  std::shared_ptr<Window> window_;
  std::shared_ptr<ViewController> contentViewController_;
};

}  // namespace tq
