// ScrollView and ClipView: a scrolling frame around a document view.
//
// The scroll view's subviews are its clip view (content view, always first), its scrollers and the
// clip view holding a table's header view, the last two in the order they were set (an archive sets
// the scrollers first). The clip view's one subview is the document view.
#pragma once

#include <memory>

#include "tq/platform/ui/model/view.h"

namespace tq {

class ClipView : public View {
 public:
  ClipView() = default;
  String className() const override { return classNameOr(u"NSClipView"); }
  // The document view (its first subview), or nullptr.
  std::shared_ptr<View> documentView() const { return subviews().empty() ? nullptr : subviews().front(); }
  // Replaces the subviews by the view (nullptr: none).
  void setDocumentView(std::shared_ptr<View> view);
  // A clip view is flipped when its document view is.
  bool isFlipped() const override;
  bool drawsBackground() const { return drawsBackground_; }
  void setDrawsBackground(bool draws) { drawsBackground_ = draws; }

 private:
  bool drawsBackground_ = true;
};

class ScrollView : public View {
 public:
  // A scroll view with an empty clip view.
  ScrollView();
  String className() const override { return classNameOr(u"NSScrollView"); }

  // The clip view (owned through subviews()).
  std::shared_ptr<ClipView> contentView() const { return contentView_.lock(); }
  void setContentView(std::shared_ptr<ClipView> clipView);
  std::shared_ptr<View> documentView() const;
  void setDocumentView(std::shared_ptr<View> view);
  // Scrollers (owned through subviews()), or nullptr.
  std::shared_ptr<View> verticalScroller() const { return vertical_.lock(); }
  std::shared_ptr<View> horizontalScroller() const { return horizontal_.lock(); }
  void setVerticalScroller(std::shared_ptr<View> scroller);
  void setHorizontalScroller(std::shared_ptr<View> scroller);
  // Shows a header view (a table's) in a clip view of its own above the content; nullptr removes it.
  void setHeaderView(std::shared_ptr<View> headerView);
  std::shared_ptr<View> headerView() const;

  bool hasVerticalScroller() const { return hasVertical_; }
  void setHasVerticalScroller(bool has) { hasVertical_ = has; }
  bool hasHorizontalScroller() const { return hasHorizontal_; }
  void setHasHorizontalScroller(bool has) { hasHorizontal_ = has; }
  bool autohidesScrollers() const { return autohides_; }
  void setAutohidesScrollers(bool autohides) { autohides_ = autohides; }
  // The archived border ("none", "line", "bezel", "groove"); "bezel" by default.
  const String& borderType() const { return borderType_; }
  void setBorderType(String type) { borderType_ = std::move(type); }

 private:
  void replaceSubview(std::weak_ptr<View>& slot, std::shared_ptr<View> view);
  std::weak_ptr<ClipView> contentView_;
  std::weak_ptr<View> vertical_;
  std::weak_ptr<View> horizontal_;
  std::weak_ptr<View> headerClip_;
  bool hasVertical_ = true;
  bool hasHorizontal_ = false;
  bool autohides_ = false;
  String borderType_ = u"bezel";
};

}  // namespace tq
