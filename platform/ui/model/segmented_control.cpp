// Segmented controls: segments live in the cell.
#include "tq/platform/ui/model/segmented_control.h"

#include "tq/platform/ui/model/text_measurer.h"

namespace tq {

void SegmentedCell::setSegmentCount(long count) {
  if (count < 0) count = 0;
  segments_.resize(static_cast<std::size_t>(count));
}

String SegmentedCell::labelForSegment(long segment) const {
  if (segment < 0 || segment >= segmentCount()) return String();
  return segments_[static_cast<std::size_t>(segment)].label;
}

void SegmentedCell::setLabel(String label, long segment) {
  if (segment < 0 || segment >= segmentCount()) return;
  segments_[static_cast<std::size_t>(segment)].label = std::move(label);
}

Size SegmentedCell::cellSize() const {
  const TextMeasurer& measurer = TextMeasurer::current();
  double width = 0;
  for (const Segment& s : segments_) {
    width += s.width > 0 ? s.width : measurer.sizeOfString(s.label, font()).width + 16;
  }
  return {width, measurer.defaultLineHeight(font()) + 6};
}

SegmentedControl::SegmentedControl() { setCell(std::make_shared<SegmentedCell>()); }

long SegmentedControl::segmentCount() const {
  auto c = segmentedCell();
  return c ? c->segmentCount() : 0;
}

void SegmentedControl::setSegmentCount(long count) {
  if (auto c = segmentedCell()) c->setSegmentCount(count);
}

String SegmentedControl::labelForSegment(long segment) const {
  auto c = segmentedCell();
  return c ? c->labelForSegment(segment) : String();
}

void SegmentedControl::setLabel(String label, long segment) {
  if (auto c = segmentedCell()) c->setLabel(std::move(label), segment);
}

}  // namespace tq
