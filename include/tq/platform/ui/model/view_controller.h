// ViewController, TabViewController, SplitViewController and SplitViewItem: the controllers of an
// interface (a storyboard's scenes, a document's view controllers), each managing one view.
//
// A view controller owns its view and its child controllers (the controllers of a tab view's items,
// of a split view's panes, of an embedded container); a child's parentViewController() points back
// without owning. Objects of the controller's scene that nothing else holds (object controllers,
// custom objects) are kept by the controller in sceneObjects(), so that they live as long as it
// does. The archive connects the controller's "view" outlet to its view; other outlets are kept by
// name (destinations not owned).
//
// A tab view controller shows its tab view (its view, or a view within it); each tab item (a
// TabViewItem) owns the controller whose view is its page. A split view controller shows its split
// view likewise; each SplitViewItem owns the controller of one pane, whose view is a subview of the
// split view.
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tq/platform/ui/model/scene_controller.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

class ViewController : public SceneController {
 public:
  ~ViewController() override;
  String className() const override { return classNameOr(u"NSViewController"); }

  // The view (owned), or nullptr.
  const std::shared_ptr<View>& view() const { return view_; }
  virtual void setView(std::shared_ptr<View> view) { view_ = std::move(view); }
  // The title (nil when none was archived).
  const String& title() const { return title_; }
  void setTitle(String title) { title_ = std::move(title); }
  // The nib that holds the view where the archive keeps it apart (compiled storyboards), else nil.
  const String& nibName() const { return nibName_; }
  void setNibName(String name) { nibName_ = std::move(name); }

  // Child controllers (owned), in the order added.
  const std::vector<std::shared_ptr<ViewController>>& childViewControllers() const { return children_; }
  // Adds a child (taking it from its former parent first). Making a controller its own ancestor is a
  // broken contract (the assertion handler raises).
  void addChildViewController(std::shared_ptr<ViewController> child);
  ViewController* parentViewController() const { return parent_; }

  // "view" sets the view (when the destination is a view); every outlet is also listed.
  void setOutlet(const String& property, const std::shared_ptr<Object>& destination) override;

 private:
  std::shared_ptr<View> view_;
  String title_;
  String nibName_;
  std::vector<std::shared_ptr<ViewController>> children_;
  ViewController* parent_ = nullptr;
};

class TabViewController : public ViewController {
 public:
  String className() const override { return classNameOr(u"NSTabViewController"); }

  // The tab view: the one set, else the view when it is one, else nullptr.
  std::shared_ptr<TabView> tabView() const { return tabView_ ? tabView_ : std::dynamic_pointer_cast<TabView>(view()); }
  // Sets the tab view (owned) where the archive keeps it apart from the view.
  void setTabView(std::shared_ptr<TabView> tabView) { tabView_ = std::move(tabView); }
  // The items of the tab view, in order (empty without a tab view).
  std::vector<std::shared_ptr<TabViewItem>> tabViewItems() const;
  // Adds an item to the tab view, with its controller (a child of this one) and that controller's
  // view as its page. Without a tab view nothing happens.
  void addTabViewItem(std::shared_ptr<TabViewItem> item, std::shared_ptr<ViewController> controller);
  // The archived tab style ("toolbar", "segmentedControlOnTop", "unspecified"...), nil when none.
  const String& tabStyle() const { return tabStyle_; }
  void setTabStyle(String style) { tabStyle_ = std::move(style); }

 private:
  String tabStyle_;
  std::shared_ptr<TabView> tabView_;
};

// One pane of a split view controller.
class SplitViewItem : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSSplitViewItem"); }
  // The pane's controller (owned), or nullptr.
  const std::shared_ptr<ViewController>& viewController() const { return viewController_; }
  void setViewController(std::shared_ptr<ViewController> controller) { viewController_ = std::move(controller); }
  bool canCollapse() const { return canCollapse_; }
  void setCanCollapse(bool flag) { canCollapse_ = flag; }
  bool isCollapsed() const { return collapsed_; }
  void setCollapsed(bool flag) { collapsed_ = flag; }
  // The archived behaviour ("sidebar", "contentList", "default"), nil when none.
  const String& behavior() const { return behavior_; }
  void setBehavior(String behavior) { behavior_ = std::move(behavior); }

 private:
  friend class SplitViewController;
  std::shared_ptr<ViewController> viewController_;
  double extent_ = -1;  // the pane's archived width (height), taken when it is added
  bool canCollapse_ = false;
  bool collapsed_ = false;
  String behavior_;
};

class SplitViewController : public ViewController {
 public:
  String className() const override { return classNameOr(u"NSSplitViewController"); }

  // The panes, in order (owned).
  const std::vector<std::shared_ptr<SplitViewItem>>& splitViewItems() const { return items_; }
  // The split view: the one set, else the view.
  std::shared_ptr<View> splitView() const { return splitView_ ? splitView_ : view(); }
  void setSplitView(std::shared_ptr<View> splitView) { splitView_ = std::move(splitView); }
  // Adds a pane: its controller becomes a child, and that controller's view a subview of the split
  // view, placed after the panes before it across a vertical split (side by side) or
  // below them across a horizontal one. Each pane keeps its archived width (height) where the split
  // view has room; the last pane takes what is left. A collapsed pane takes no room.
  void addSplitViewItem(std::shared_ptr<SplitViewItem> item);
  // Whether the dividers are vertical (panes side by side), as archived; the default.
  bool isVertical() const { return vertical_; }
  void setVertical(bool vertical) { vertical_ = vertical; }

 private:
  void layOutPanes();
  std::vector<std::shared_ptr<SplitViewItem>> items_;
  std::shared_ptr<View> splitView_;
  bool vertical_ = true;
};

}  // namespace tq
