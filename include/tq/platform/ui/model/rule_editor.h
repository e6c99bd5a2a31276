// RuleEditor and RuleEditorRowTemplate: an editor of rules or predicates made of rows (NSRuleEditor,
// NSPredicateEditor), with the row templates the archive holds.
//
// The editor owns its templates; each template owns the views a row made from it shows (pop-up
// buttons with their menus, text fields), in order. The templates' views are not subviews: rows are
// made from them at run time. The editor's own subviews (the rows archived with it) are kept as for
// any view. className() gives "NSRuleEditor" or, as archived, "NSPredicateEditor".
// Thread: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/ui/model/control.h"

namespace tq {

class RuleEditorRowTemplate : public InterfaceObject {
 public:
  String className() const override { return classNameOr(u"NSPredicateEditorRowTemplate"); }
  const std::vector<std::shared_ptr<View>>& templateViews() const { return views_; }
  void addTemplateView(std::shared_ptr<View> view) {
    if (view) views_.push_back(std::move(view));
  }

 private:
  std::vector<std::shared_ptr<View>> views_;
};

class RuleEditor : public Control {
 public:
  String className() const override { return classNameOr(u"NSRuleEditor"); }
  const std::vector<std::shared_ptr<RuleEditorRowTemplate>>& rowTemplates() const { return templates_; }
  void addRowTemplate(std::shared_ptr<RuleEditorRowTemplate> row) {
    if (row) templates_.push_back(std::move(row));
  }
  double rowHeight() const { return rowHeight_; }
  void setRowHeight(double height) { rowHeight_ = height; }

 private:
  std::vector<std::shared_ptr<RuleEditorRowTemplate>> templates_;
  double rowHeight_ = 25;
};

}  // namespace tq
