// Window and Panel.
//
// A window owns its content view; the content view's window() points back. Frames are in screen
// coordinates with the origin at the bottom left, as archived.
#pragma once

#include <memory>

#include "tq/platform/ui/model/view.h"

namespace tq {

// The platform's style mask bits.
enum WindowStyleMask : unsigned {
  NSWindowStyleMaskBorderless = 0,
  NSWindowStyleMaskTitled = 1u << 0,
  NSWindowStyleMaskClosable = 1u << 1,
  NSWindowStyleMaskMiniaturizable = 1u << 2,
  NSWindowStyleMaskResizable = 1u << 3,
  NSWindowStyleMaskUtilityWindow = 1u << 4,
  NSWindowStyleMaskDocModalWindow = 1u << 6,
  NSWindowStyleMaskNonactivatingPanel = 1u << 7,
  NSWindowStyleMaskTexturedBackground = 1u << 8,
  NSWindowStyleMaskUnifiedTitleAndToolbar = 1u << 12,
  NSWindowStyleMaskHUDWindow = 1u << 13,
  NSWindowStyleMaskFullSizeContentView = 1u << 15
};

class Window : public InterfaceObject {
 public:
  // A titled window with an empty content view of the content rectangle's size.
  Window();
  explicit Window(const Rect& contentRect);
  ~Window() override;
  String className() const override { return classNameOr(u"NSWindow"); }

  // "" for a new window.
  const String& title() const { return title_; }
  void setTitle(String title) { title_ = std::move(title); }

  // The content view (owned), or nullptr after setContentView(nullptr).
  const std::shared_ptr<View>& contentView() const { return contentView_; }
  void setContentView(std::shared_ptr<View> view);

  // The content area on the screen (origin bottom left).
  const Rect& contentRect() const { return contentRect_; }
  void setContentRect(const Rect& rect) { contentRect_ = rect; }
  unsigned styleMask() const { return styleMask_; }
  void setStyleMask(unsigned mask) { styleMask_ = mask; }
  const Size& minSize() const { return minSize_; }
  void setMinSize(const Size& size) { minSize_ = size; }
  const Size& maxSize() const { return maxSize_; }
  void setMaxSize(const Size& size) { maxSize_ = size; }
  bool isVisibleAtLaunch() const { return visibleAtLaunch_; }
  void setVisibleAtLaunch(bool visible) { visibleAtLaunch_ = visible; }
  bool isReleasedWhenClosed() const { return releasedWhenClosed_; }
  void setReleasedWhenClosed(bool released) { releasedWhenClosed_ = released; }
  const String& frameAutosaveName() const { return frameAutosaveName_; }
  void setFrameAutosaveName(String name) { frameAutosaveName_ = std::move(name); }
  // The toolbar object of the archive (owned), or nullptr.
  const std::shared_ptr<InterfaceObject>& toolbar() const { return toolbar_; }
  void setToolbar(std::shared_ptr<InterfaceObject> toolbar) { toolbar_ = std::move(toolbar); }

 private:
  String title_ = String::empty();
  std::shared_ptr<View> contentView_;
  Rect contentRect_{0, 0, 480, 270};
  unsigned styleMask_ = NSWindowStyleMaskTitled;
  Size minSize_;
  Size maxSize_{1e6, 1e6};
  bool visibleAtLaunch_ = true;
  bool releasedWhenClosed_ = true;
  String frameAutosaveName_;
  std::shared_ptr<InterfaceObject> toolbar_;
};

// A panel: an auxiliary window (inspectors, palettes).
class Panel : public Window {
 public:
  Panel() = default;
  explicit Panel(const Rect& contentRect) : Window(contentRect) {}
  String className() const override { return classNameOr(u"NSPanel"); }
  bool isFloatingPanel() const { return floating_; }
  void setFloatingPanel(bool floating) { floating_ = floating; }
  bool becomesKeyOnlyIfNeeded() const { return becomesKeyOnlyIfNeeded_; }
  void setBecomesKeyOnlyIfNeeded(bool flag) { becomesKeyOnlyIfNeeded_ = flag; }

 private:
  bool floating_ = false;
  bool becomesKeyOnlyIfNeeded_ = false;
};

}  // namespace tq
