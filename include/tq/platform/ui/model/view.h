// View: a rectangle of a window with ordered subviews.
//
// A view owns its subviews (std::shared_ptr); superview() is a non-owning pointer that the
// superview clears when it lets the subview go. The frame is in the superview's coordinates; a
// flipped view's own coordinates have y growing downwards from its top edge.
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/geometry.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class Menu;
class Window;

class View : public InterfaceObject {
 public:
  View() = default;
  explicit View(const Rect& frame) : frame_(frame) {}
  ~View() override;
  String className() const override { return classNameOr(u"NSView"); }

  const Rect& frame() const { return frame_; }
  virtual void setFrame(const Rect& frame) { frame_ = frame; }
  void setFrameSize(const Size& size) { setFrame({frame_.x, frame_.y, size.width, size.height}); }
  void setFrameOrigin(const Point& origin) { setFrame({origin.x, origin.y, frame_.w, frame_.h}); }
  // The view's own rectangle: origin (0, 0), the frame's size.
  Rect bounds() const { return {0, 0, frame_.w, frame_.h}; }

  // Whether y grows downwards in this view. Plain views are not flipped; table views, matrices and
  // text views are; setFlipped() lets a custom view (or the archive) decide.
  virtual bool isFlipped() const { return flipped_; }
  void setFlipped(bool flipped) { flipped_ = flipped; }

  // The subviews, back to front (owned).
  const std::vector<std::shared_ptr<View>>& subviews() const { return subviews_; }
  // Appends a subview (taking it from its former superview first). Adding a view to itself or to
  // one of its own subviews breaks the tree and raises NSInvalidArgumentException.
  void addSubview(std::shared_ptr<View> view);
  void insertSubview(std::shared_ptr<View> view, std::size_t index);
  void removeFromSuperview();
  // Removes every subview.
  void removeAllSubviews();
  View* superview() const { return superview_; }
  // The window whose content view this view is or lies in (not owned), or nullptr.
  Window* window() const;
  bool isDescendantOf(const View* view) const;

  // Converts a rectangle of this view's coordinates into another view's (which must share the
  // window's tree), or into the window's coordinates (origin bottom left) when toView is nullptr.
  Rect convertRect(const Rect& rect, const View* toView) const;

  bool isHidden() const { return hidden_; }
  void setHidden(bool hidden) { hidden_ = hidden; }
  const String& toolTip() const { return toolTip_; }
  void setToolTip(String tip) { toolTip_ = std::move(tip); }
  long tag() const { return tag_; }
  void setTag(long tag) { tag_ = tag; }
  // The first view with the tag in this view's tree (itself included, depth first), or nullptr.
  View* viewWithTag(long tag);
  const String& identifier() const { return identifier_; }
  void setIdentifier(String identifier) { identifier_ = std::move(identifier); }
  // The platform's autoresizing flags (min-x margin 1, width 2, max-x margin 4, min-y margin 8,
  // height 16, max-y margin 32).
  unsigned autoresizingMask() const { return autoresizingMask_; }
  void setAutoresizingMask(unsigned mask) { autoresizingMask_ = mask; }
  // The view's context menu (owned), or nullptr.
  const std::shared_ptr<Menu>& contextMenu() const { return contextMenu_; }
  void setContextMenu(std::shared_ptr<Menu> menu);

  // The layout constraints the view holds (owned; archived objects of class NSLayoutConstraint with
  // their attributes; the model does not solve them).
  const std::vector<std::shared_ptr<InterfaceObject>>& constraints() const { return constraints_; }
  void addConstraint(std::shared_ptr<InterfaceObject> constraint) { constraints_.push_back(std::move(constraint)); }
  // Room for `count` more constraints or subviews, made at once by a reader that knows how many
  // follow; what the view holds is unchanged.
  void reserveConstraints(std::size_t count) { constraints_.reserve(constraints_.size() + count); }
  void reserveSubviews(std::size_t count) { subviews_.reserve(subviews_.size() + count); }

  // Called when the view became (or stopped being, with nullptr) the content view of a window.
  void setContentViewOfWindow(Window* window) { window_ = window; }

 private:
  Rect frame_;
  bool flipped_ = false;
  std::vector<std::shared_ptr<View>> subviews_;
  View* superview_ = nullptr;
  Window* window_ = nullptr;  // set on a window's content view only
  bool hidden_ = false;
  String toolTip_;
  long tag_ = 0;
  String identifier_;
  unsigned autoresizingMask_ = 0;
  std::shared_ptr<Menu> contextMenu_;
  std::vector<std::shared_ptr<InterfaceObject>> constraints_;
};

}  // namespace tq
