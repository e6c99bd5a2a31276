// Scroll views: the clip view, the scrollers and the header clip view as subviews.
#include "tq/platform/ui/model/scroll_view.h"

namespace tq {

void ClipView::setDocumentView(std::shared_ptr<View> view) {
  removeAllSubviews();
  if (view) addSubview(std::move(view));
}

bool ClipView::isFlipped() const {
  auto doc = documentView();
  return doc ? doc->isFlipped() : View::isFlipped();
}

ScrollView::ScrollView() { setContentView(std::make_shared<ClipView>()); }

void ScrollView::replaceSubview(std::weak_ptr<View>& slot, std::shared_ptr<View> view) {
  if (auto old = slot.lock()) {
    if (old->superview() == this) old->removeFromSuperview();
  }
  slot = view;
  if (view) addSubview(std::move(view));
}

void ScrollView::setContentView(std::shared_ptr<ClipView> clipView) {
  if (auto old = contentView_.lock()) {
    if (old->superview() == this) old->removeFromSuperview();
  }
  contentView_ = clipView;
  if (clipView) insertSubview(std::move(clipView), 0);
}

std::shared_ptr<View> ScrollView::documentView() const {
  auto clip = contentView();
  return clip ? clip->documentView() : nullptr;
}

void ScrollView::setDocumentView(std::shared_ptr<View> view) {
  auto clip = contentView();
  if (!clip) {
    setContentView(std::make_shared<ClipView>());
    clip = contentView();
  }
  clip->setDocumentView(std::move(view));
}

void ScrollView::setVerticalScroller(std::shared_ptr<View> scroller) { replaceSubview(vertical_, std::move(scroller)); }

void ScrollView::setHorizontalScroller(std::shared_ptr<View> scroller) {
  replaceSubview(horizontal_, std::move(scroller));
}

void ScrollView::setHeaderView(std::shared_ptr<View> headerView) {
  if (!headerView) {
    replaceSubview(headerClip_, nullptr);
    return;
  }
  auto clip = std::make_shared<ClipView>();
  clip->setClassName(u"NSClipView");
  const Rect h = headerView->frame();
  clip->setFrame({0, 0, h.w, h.h});
  clip->setDocumentView(std::move(headerView));
  replaceSubview(headerClip_, std::move(clip));
}

std::shared_ptr<View> ScrollView::headerView() const {
  auto clip = headerClip_.lock();
  return clip && !clip->subviews().empty() ? clip->subviews().front() : nullptr;
}

}  // namespace tq
