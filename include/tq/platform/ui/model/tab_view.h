// TabView and TabViewItem: pages with labels, one shown at a time.
//
// The tab view owns its items; each item owns its view. Only the selected item's view is a subview
// of the tab view (as on the platform); the others are reached through tabViewItems().
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/font_descriptor.h"
#include "tq/platform/ui/model/view.h"

namespace tq {

class TabView;
class ViewController;

class TabViewItem : public InterfaceObject {
 public:
  TabViewItem() = default;
  explicit TabViewItem(String label) : label_(std::move(label)) {}
  String className() const override { return classNameOr(u"NSTabViewItem"); }

  const String& label() const { return label_; }
  void setLabel(String label) { label_ = std::move(label); }
  const String& identifier() const { return identifier_; }
  void setIdentifier(String identifier) { identifier_ = std::move(identifier); }
  const String& toolTip() const { return toolTip_; }
  void setToolTip(String tip) { toolTip_ = std::move(tip); }

  // The page's view (owned), or nullptr.
  const std::shared_ptr<View>& view() const { return view_; }
  void setView(std::shared_ptr<View> view);
  // The controller whose view is the page (owned), or nullptr: the items of a tab view controller
  // have one.
  const std::shared_ptr<ViewController>& viewController() const { return viewController_; }
  void setViewController(std::shared_ptr<ViewController> controller) { viewController_ = std::move(controller); }
  // The name of the item's image (tab view controllers in toolbar style show it), nil when none.
  const String& imageName() const { return imageName_; }
  void setImageName(String name) { imageName_ = std::move(name); }
  // The tab view holding the item (not owned), or nullptr.
  TabView* tabView() const { return tabView_; }

 private:
  friend class TabView;
  String label_ = String::empty();
  String identifier_;
  String toolTip_;
  std::shared_ptr<View> view_;
  std::shared_ptr<ViewController> viewController_;
  String imageName_;
  TabView* tabView_ = nullptr;
};

enum class TabViewType { TopTabsBezelBorder = 0, LeftTabsBezelBorder = 1, BottomTabsBezelBorder = 2, RightTabsBezelBorder = 3, NoTabsBezelBorder = 4, NoTabsLineBorder = 5, NoTabsNoBorder = 6 };

class TabView : public View {
 public:
  TabView() = default;
  ~TabView() override;
  String className() const override { return classNameOr(u"NSTabView"); }

  // Every item in order, shown or not (owned).
  const std::vector<std::shared_ptr<TabViewItem>>& tabViewItems() const { return items_; }
  long numberOfTabViewItems() const { return static_cast<long>(items_.size()); }
  std::shared_ptr<TabViewItem> tabViewItemAtIndex(long index) const;
  // Adds an item; the first item added becomes the selected one.
  void addTabViewItem(std::shared_ptr<TabViewItem> item);
  // Selects the item at index (its view becomes the tab view's one subview); outside the items
  // nothing changes.
  void selectTabViewItemAtIndex(long index);
  // -1 when there are no items.
  long indexOfSelectedTabViewItem() const { return selected_; }
  std::shared_ptr<TabViewItem> selectedTabViewItem() const { return tabViewItemAtIndex(selected_); }

  TabViewType tabViewType() const { return type_; }
  void setTabViewType(TabViewType type) { type_ = type; }
  const FontDescriptor& font() const { return font_; }
  void setFont(FontDescriptor font) { font_ = std::move(font); }

  // Called by an item whose view changed.
  void itemViewChanged(TabViewItem* item);

 private:
  std::vector<std::shared_ptr<TabViewItem>> items_;
  long selected_ = -1;
  TabViewType type_ = TabViewType::TopTabsBezelBorder;
  FontDescriptor font_;
};

}  // namespace tq
