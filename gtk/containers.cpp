// Views that hold other views: boxes, tab views, scroll views, split views and matrices of cells.
#include <algorithm>

#include "frame_box.h"
#include "presenter_impl.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_view.h"

namespace tq {

namespace {

// --- boxes --------------------------------------------------------------------------------------------

GtkWidget* buildBox(GtkPresenter::Impl& impl, Box& box) {
  const Rect f = box.frame();
  if (box.boxType() == BoxType::Separator) {
    // A line across the middle of its frame.
    const bool horizontal = f.w >= f.h;
    GtkWidget* line = gtk_separator_new(horizontal ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL);
    if (horizontal) gtk_widget_set_valign(line, GTK_ALIGN_CENTER);
    else gtk_widget_set_halign(line, GTK_ALIGN_CENTER);
    return line;
  }
  // The frame with its title draws behind the content view, which keeps its own frame.
  GtkWidget* container = frameBoxNew(&box);
  const bool titled = box.titlePosition() != TitlePosition::NoTitle;
  const bool bordered = box.boxType() != BoxType::Custom && box.borderType() != BorderType::NoBorder;
  if (!box.isTransparent() && (titled || bordered)) {
    GtkWidget* frame = gtk_frame_new(nullptr);
    if (!bordered) gtk_widget_add_css_class(frame, "tq-borderless");
    if (titled) {
      GtkWidget* title = gtk_label_new(utf8(box.title()).c_str());
      applyFont(title, box.titleFont());
      gtk_frame_set_label_widget(GTK_FRAME(frame), title);
      Box* b = &box;
      String shown = box.title();
      impl.addSyncer([b, title, shown]() mutable {
        if (b->title() == shown) return false;
        shown = b->title();
        gtk_label_set_text(GTK_LABEL(title), utf8(shown).c_str());
        return true;
      });
    }
    frameBoxAddFilling(container, frame);
  }
  impl.buildSubviews(box, container);
  return container;
}

// --- tab views ----------------------------------------------------------------------------------------

struct TabsLink {
  GtkPresenter::Impl* impl;
  TabView* tabs;
};

GtkWidget* buildTabView(GtkPresenter::Impl& impl, TabView& tabs) {
  GtkWidget* notebook = gtk_notebook_new();
  const TabViewType type = tabs.tabViewType();
  gtk_notebook_set_show_tabs(GTK_NOTEBOOK(notebook), type == TabViewType::TopTabsBezelBorder ||
                                                         type == TabViewType::LeftTabsBezelBorder ||
                                                         type == TabViewType::BottomTabsBezelBorder ||
                                                         type == TabViewType::RightTabsBezelBorder);
  gtk_notebook_set_show_border(GTK_NOTEBOOK(notebook), type != TabViewType::NoTabsNoBorder);
  gtk_notebook_set_tab_pos(GTK_NOTEBOOK(notebook), type == TabViewType::LeftTabsBezelBorder     ? GTK_POS_LEFT
                                                   : type == TabViewType::BottomTabsBezelBorder ? GTK_POS_BOTTOM
                                                   : type == TabViewType::RightTabsBezelBorder  ? GTK_POS_RIGHT
                                                                                                : GTK_POS_TOP);
  std::vector<GtkWidget*> labels;
  for (const auto& item : tabs.tabViewItems()) {
    GtkWidget* page;
    if (const auto& view = item->view()) {
      page = impl.build(*view);
    } else {
      page = frameBoxNew(nullptr);
    }
    if (!page) page = frameBoxNew(nullptr);
    GtkWidget* label = gtk_label_new(utf8(item->label()).c_str());
    applyFont(label, tabs.font());
    if (!item->toolTip().isNil()) gtk_widget_set_tooltip_text(label, utf8(item->toolTip()).c_str());
    impl.remember(label, item.get());
    gtk_notebook_append_page(GTK_NOTEBOOK(notebook), page, label);
    labels.push_back(label);
  }
  if (tabs.indexOfSelectedTabViewItem() > 0) {
    // A notebook switches pages (and moves the focus) only once it is in a window.
    g_signal_connect_data(notebook, "realize", G_CALLBACK(+[](GtkWidget* w, gpointer data) {
                            auto* t = static_cast<TabView*>(data);
                            g_signal_handlers_disconnect_by_data(w, data);
                            if (t->indexOfSelectedTabViewItem() >= 0) {
                              gtk_notebook_set_current_page(GTK_NOTEBOOK(w), static_cast<int>(t->indexOfSelectedTabViewItem()));
                            }
                          }),
                          &tabs, nullptr, static_cast<GConnectFlags>(0));
  }
  auto* l = new TabsLink{&impl, &tabs};
  g_object_set_data_full(G_OBJECT(notebook), "tq-tabs", l, [](gpointer p) { delete static_cast<TabsLink*>(p); });
  g_signal_connect(notebook, "switch-page", G_CALLBACK(+[](GtkNotebook*, GtkWidget*, guint page, gpointer data) {
                     auto* tl = static_cast<TabsLink*>(data);
                     if (tl->impl->pushing) return;
                     tl->tabs->selectTabViewItemAtIndex(static_cast<long>(page));
                   }),
                   l);
  struct Shown {
    long selected;
    std::vector<String> labels;
  };
  auto labelsOf = [](const TabView& t) {
    std::vector<String> all;
    for (const auto& item : t.tabViewItems()) all.push_back(item->label());
    return all;
  };
  Shown shown{tabs.indexOfSelectedTabViewItem(), labelsOf(tabs)};
  TabView* t = &tabs;
  impl.addSyncer([t, notebook, labels, shown, labelsOf]() mutable {
    bool changed = false;
    if (t->indexOfSelectedTabViewItem() != shown.selected) {
      shown.selected = t->indexOfSelectedTabViewItem();
      if (shown.selected >= 0) gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook), static_cast<int>(shown.selected));
      changed = true;
    }
    std::vector<String> now = labelsOf(*t);
    for (std::size_t i = 0; i < now.size() && i < labels.size() && i < shown.labels.size(); ++i) {
      if (!(now[i] == shown.labels[i])) {
        gtk_label_set_text(GTK_LABEL(labels[i]), utf8(now[i]).c_str());
        changed = true;
      }
    }
    shown.labels = now;
    return changed;
  });
  return notebook;
}

// --- scroll views -------------------------------------------------------------------------------------

GtkWidget* buildScrollView(GtkPresenter::Impl& impl, ScrollView& scroll) {
  GtkWidget* scrolled = gtk_scrolled_window_new();
  gtk_scrolled_window_set_has_frame(GTK_SCROLLED_WINDOW(scrolled), scroll.borderType() != String(u"none"));
  auto policy = [&](bool has) {
    return !has ? GTK_POLICY_NEVER : scroll.autohidesScrollers() ? GTK_POLICY_AUTOMATIC : GTK_POLICY_ALWAYS;
  };
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), policy(scroll.hasHorizontalScroller()),
                                 policy(scroll.hasVerticalScroller()));
  gtk_scrolled_window_set_overlay_scrolling(GTK_SCROLLED_WINDOW(scrolled), scroll.autohidesScrollers());
  auto document = scroll.documentView();
  if (!document) return scrolled;
  GtkWidget* child = impl.build(*document);
  if (!child) return scrolled;
  if (GTK_IS_SCROLLABLE(child)) {
    // Tables and text views scroll themselves.
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), child);
  } else {
    // Any other document asks for its whole frame, so that the viewport scrolls over it.
    if (TQ_IS_FRAME_BOX(child)) {
      frameBoxSetMinimumSize(child, document->frame().size());
      frameBoxSetAutoresizes(child, (document->autoresizingMask() & (2u | 16u)) != 0);
    } else {
      gtk_widget_set_size_request(child, static_cast<int>(document->frame().w), static_cast<int>(document->frame().h));
    }
    GtkWidget* viewport = gtk_viewport_new(nullptr, nullptr);
    gtk_viewport_set_child(GTK_VIEWPORT(viewport), child);
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), viewport);
  }
  return scrolled;
}

// --- split views --------------------------------------------------------------------------------------

GtkWidget* buildSplitView(GtkPresenter::Impl& impl, View& split) {
  std::vector<std::pair<View*, GtkWidget*>> panes;
  for (const auto& sub : split.subviews()) {
    if (!sub) continue;
    if (GtkWidget* w = impl.build(*sub)) panes.emplace_back(sub.get(), w);
  }
  if (panes.empty()) return frameBoxNew(&split);
  // Panes side by side split vertically (a vertical divider), stacked ones horizontally.
  const bool sideBySide = panes.size() > 1 && panes[1].first->frame().x > panes[0].first->frame().x;
  const GtkOrientation orientation = sideBySide ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL;
  // Right-nested panes: the first pane, then the rest.
  GtkWidget* rest = panes.back().second;
  for (std::size_t i = panes.size() - 1; i-- > 0;) {
    GtkWidget* paned = gtk_paned_new(orientation);
    gtk_paned_set_start_child(GTK_PANED(paned), panes[i].second);
    gtk_paned_set_end_child(GTK_PANED(paned), rest);
    gtk_paned_set_shrink_start_child(GTK_PANED(paned), TRUE);
    gtk_paned_set_shrink_end_child(GTK_PANED(paned), TRUE);
    const Rect f = panes[i].first->frame();
    gtk_paned_set_position(GTK_PANED(paned), static_cast<int>(sideBySide ? f.w : f.h));
    rest = paned;
  }
  return rest;
}

}  // namespace

// --- matrices -------------------------------------------------------------------------------------------

namespace {

struct CellLink {
  GtkPresenter::Impl* impl;
  Matrix* matrix;
  Cell* cell;
};

}  // namespace

GtkWidget* GtkPresenter::Impl::buildMatrix(Matrix& matrix) {
  GtkWidget* box = frameBoxNew(&matrix);
  GtkWidget* group = nullptr;
  for (long r = 0; r < matrix.numberOfRows(); ++r) {
    for (long c = 0; c < matrix.numberOfColumns(); ++c) {
      auto cell = matrix.cellAtRow(r, c);
      if (!cell) continue;
      auto* button = dynamic_cast<ButtonCell*>(cell.get());
      GtkWidget* w;
      if (button && (button->buttonType() == ButtonType::Radio || button->buttonType() == ButtonType::Switch)) {
        w = gtk_check_button_new_with_label(utf8(button->title()).c_str());
        gtk_check_button_set_active(GTK_CHECK_BUTTON(w), button->state() == 1);
        // A matrix in radio mode lets one of its cells be on.
        if (button->buttonType() == ButtonType::Radio && matrix.mode() == MatrixMode::Radio) {
          if (group) gtk_check_button_set_group(GTK_CHECK_BUTTON(w), GTK_CHECK_BUTTON(group));
          else group = w;
        }
      } else if (button) {
        w = gtk_button_new_with_label(utf8(button->title()).c_str());
      } else {
        w = gtk_label_new(utf8(cell->stringValue()).c_str());
        gtk_label_set_xalign(GTK_LABEL(w), 0);
      }
      applyFont(w, cell->font());
      gtk_widget_set_sensitive(w, cell->isEnabled());
      auto* l = new CellLink{this, &matrix, cell.get()};
      g_object_set_data_full(G_OBJECT(w), "tq-cell", l, [](gpointer p) { delete static_cast<CellLink*>(p); });
      auto acted = +[](GtkWidget* widget, gpointer data) {
        auto* cl = static_cast<CellLink*>(data);
        if (cl->impl->pushing) return;
        if (GTK_IS_CHECK_BUTTON(widget)) {
          const bool active = gtk_check_button_get_active(GTK_CHECK_BUTTON(widget));
          cl->cell->setState(active ? 1 : 0);
          auto* b = dynamic_cast<ButtonCell*>(cl->cell);
          if (b && b->buttonType() == ButtonType::Radio && !active) return;
        }
        // The cell's own action when it has one, else the matrix's.
        auto* action = dynamic_cast<ActionCell*>(cl->cell);
        if (action && !action->action().isNil()) {
          cl->impl->send(action->action(), action->target(), cl->matrix->shared_from_this(),
                         GTK_WINDOW(gtk_widget_get_root(widget)));
        } else {
          cl->impl->controlActed(*cl->matrix);
        }
      };
      g_signal_connect(w, GTK_IS_CHECK_BUTTON(w) ? "toggled" : "clicked", G_CALLBACK(acted), l);
      frameBoxAddAt(box, w, matrix.cellFrameAtRow(r, c));
      remember(w, cell.get());
      Cell* modelCell = cell.get();
      struct Shown {
        String title;
        int state;
      };
      Shown shown{modelCell->title(), modelCell->state()};
      addSyncer([modelCell, w, shown]() mutable {
        bool changed = false;
        if (!(modelCell->title() == shown.title)) {
          shown.title = modelCell->title();
          if (GTK_IS_CHECK_BUTTON(w)) gtk_check_button_set_label(GTK_CHECK_BUTTON(w), utf8(shown.title).c_str());
          else if (GTK_IS_BUTTON(w)) gtk_button_set_label(GTK_BUTTON(w), utf8(shown.title).c_str());
          else gtk_label_set_text(GTK_LABEL(w), utf8(shown.title).c_str());
          changed = true;
        }
        if (modelCell->state() != shown.state && GTK_IS_CHECK_BUTTON(w)) {
          shown.state = modelCell->state();
          gtk_check_button_set_active(GTK_CHECK_BUTTON(w), shown.state == 1);
          changed = true;
        }
        return changed;
      });
    }
  }
  return box;
}

GtkWidget* GtkPresenter::Impl::buildContainer(View& view) {
  if (auto* box = dynamic_cast<Box*>(&view)) return buildBox(*this, *box);
  if (auto* tabs = dynamic_cast<TabView*>(&view)) return buildTabView(*this, *tabs);
  if (auto* scroll = dynamic_cast<ScrollView*>(&view)) return buildScrollView(*this, *scroll);
  if (view.className() == String(u"NSSplitView") && !view.subviews().empty()) return buildSplitView(*this, view);
  return nullptr;
}

}  // namespace tq
