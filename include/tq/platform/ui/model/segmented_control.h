// SegmentedControl and its SegmentedCell: a row of segments, each with a label and/or an image.
// The segments live in the cell; the control's calls forward to it.
#pragma once

#include <vector>

#include "tq/platform/ui/model/control.h"

namespace tq {

struct Segment {
  String label = String::empty();
  String imageName;  // nil for none
  String toolTip;    // nil for none
  double width = 0;  // 0: sized to fit
  long tag = 0;
  bool enabled = true;
  bool selected = false;
};

class SegmentedCell : public ActionCell {
 public:
  SegmentedCell() = default;
  String className() const override { return classNameOr(u"NSSegmentedCell"); }
  std::shared_ptr<Cell> copy() const override { return copyOf(*this); }

  long segmentCount() const { return static_cast<long>(segments_.size()); }
  // Grows (with empty segments) or shrinks the row.
  void setSegmentCount(long count);
  // The label of a segment; nil outside the row.
  String labelForSegment(long segment) const;
  // Does nothing outside the row.
  void setLabel(String label, long segment);
  const std::vector<Segment>& segments() const { return segments_; }
  std::vector<Segment>& segments() { return segments_; }
  void addSegment(Segment segment) { segments_.push_back(std::move(segment)); }
  // "selectOne", "selectAny", "momentary"; nil when not archived.
  const String& trackingMode() const { return trackingMode_; }
  void setTrackingMode(String mode) { trackingMode_ = std::move(mode); }

  // Sum of the segments' widths; a segment of width 0 is its label's width plus 16 points.
  Size cellSize() const override;

 private:
  std::vector<Segment> segments_;
  String trackingMode_;
};

class SegmentedControl : public Control {
 public:
  // A control with a fresh SegmentedCell.
  SegmentedControl();
  explicit SegmentedControl(NoDefaultCell) {}
  String className() const override { return classNameOr(u"NSSegmentedControl"); }

  std::shared_ptr<SegmentedCell> segmentedCell() const { return cellAs<SegmentedCell>(); }
  // 0 when the cell is not a segmented cell.
  long segmentCount() const;
  void setSegmentCount(long count);
  String labelForSegment(long segment) const;
  void setLabel(String label, long segment);
};

}  // namespace tq
