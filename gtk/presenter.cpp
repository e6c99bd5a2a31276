// The presenter: windows, the dispatch of each view to the widget of its family, the model
// comparisons run as the main loop iterates, and the sending of actions.
#include <algorithm>
#include <utility>

#include "frame_box.h"
#include "presenter_impl.h"
#include "tables.h"
#include "tq/gtk/action_handling.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/grid_view.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/stack_view.h"
#include "tq/platform/ui/model/toolbar.h"

namespace tq {

// --- the model comparisons, run each time the main context iterates -------------------------------

namespace {

struct SyncSource {
  GSource source;
  GtkPresenter::Impl* impl;
};

// Runs before the loop polls: when a comparison changed a widget, the source reports itself ready
// so that the loop does not sleep before GTK has handled the change.
gboolean syncPrepare(GSource* source, gint* timeout) {
  *timeout = -1;
  auto* impl = reinterpret_cast<SyncSource*>(source)->impl;
  return impl && !impl->dying && impl->synchronize();
}

gboolean syncCheck(GSource*) { return FALSE; }

gboolean syncDispatch(GSource*, GSourceFunc, gpointer) { return G_SOURCE_CONTINUE; }

GSourceFuncs syncFuncs = {syncPrepare, syncCheck, syncDispatch, nullptr, nullptr, nullptr};

}  // namespace

bool GtkPresenter::Impl::synchronize() {
  if (pushing) return false;
  Pushing guard(*this);
  bool changed = false;
  // Syncers may be added while running (a widget made for a view that appeared): index, not iterate.
  for (std::size_t i = 0; i < syncers.size(); ++i) changed = syncers[i]() || changed;
  return changed;
}

// --- objects and widgets ----------------------------------------------------------------------------

GtkPresenter::Impl* presenterOfWidget(GtkWidget* widget) {
  for (GtkWidget* w = widget; w; w = gtk_widget_get_parent(w)) {
    if (auto* impl = static_cast<GtkPresenter::Impl*>(g_object_get_data(G_OBJECT(w), kPresenterKey))) return impl;
  }
  return nullptr;
}

void GtkPresenter::Impl::remember(GtkWidget* widget, InterfaceObject* object) {
  widgets[object] = widget;
  g_object_set_data(G_OBJECT(widget), kModelObjectKey, object);
  g_object_set_data(G_OBJECT(widget), kPresenterKey, this);
}

void GtkPresenter::Impl::watchView(View& view, GtkWidget* widget) {
  gtk_widget_set_visible(widget, !view.isHidden());
  if (!view.toolTip().isNil()) gtk_widget_set_tooltip_text(widget, utf8(view.toolTip()).c_str());
  auto* control = dynamic_cast<Control*>(&view);
  if (control && control->cell()) gtk_widget_set_sensitive(widget, control->isEnabled());
  struct Shown {
    bool hidden;
    String tip;
    Rect frame;
    bool enabled;
  };
  Shown shown{view.isHidden(), view.toolTip(), view.frame(), control ? control->isEnabled() : true};
  View* v = &view;
  addSyncer([v, widget, control, shown]() mutable {
    bool changed = false;
    if (v->isHidden() != shown.hidden) {
      shown.hidden = v->isHidden();
      gtk_widget_set_visible(widget, !shown.hidden);
      changed = true;
    }
    if (!(v->toolTip() == shown.tip) && !(v->toolTip().isNil() && shown.tip.isNil())) {
      shown.tip = v->toolTip();
      gtk_widget_set_tooltip_text(widget, shown.tip.isNil() ? nullptr : utf8(shown.tip).c_str());
      changed = true;
    }
    if (!(v->frame() == shown.frame)) {
      shown.frame = v->frame();
      if (GtkWidget* parent = gtk_widget_get_parent(widget)) gtk_widget_queue_allocate(parent);
      changed = true;
    }
    if (control && control->cell() && control->isEnabled() != shown.enabled) {
      shown.enabled = control->isEnabled();
      gtk_widget_set_sensitive(widget, shown.enabled);
      changed = true;
    }
    return changed;
  });
}

void GtkPresenter::Impl::addKeyEquivalent(GtkShortcutTrigger* trigger, GtkWidget* widget) {
  GtkShortcutAction* activate = gtk_callback_action_new(
      [](GtkWidget*, GVariant*, gpointer target) -> gboolean { return gtk_widget_activate(GTK_WIDGET(target)); }, widget,
      nullptr);
  if (!keyEquivalents) {
    // A widget built outside a window (a view handed to the host) keeps its own.
    GtkEventController* own = gtk_shortcut_controller_new();
    gtk_shortcut_controller_set_scope(GTK_SHORTCUT_CONTROLLER(own), GTK_SHORTCUT_SCOPE_GLOBAL);
    gtk_shortcut_controller_add_shortcut(GTK_SHORTCUT_CONTROLLER(own), gtk_shortcut_new(trigger, activate));
    gtk_widget_add_controller(widget, own);
    return;
  }
  gtk_shortcut_controller_add_shortcut(keyEquivalents, gtk_shortcut_new(trigger, activate));
}

std::shared_ptr<bool> GtkPresenter::Impl::aliveWhile(GtkWidget* root) {
  auto alive = std::make_shared<bool>(true);
  g_signal_connect_data(root, "destroy", G_CALLBACK(+[](GtkWidget*, gpointer data) {
                          *static_cast<std::shared_ptr<bool>*>(data)->get() = false;
                        }),
                        new std::shared_ptr<bool>(alive),
                        [](gpointer data, GClosure*) { delete static_cast<std::shared_ptr<bool>*>(data); },
                        static_cast<GConnectFlags>(0));
  return alive;
}

void GtkPresenter::Impl::buildSubviews(View& parent, GtkWidget* box) {
  for (const auto& sub : parent.subviews()) {
    if (!sub) continue;
    if (!sub->isHidden()) {
      if (GtkWidget* w = build(*sub)) frameBoxAddView(box, w, sub.get());
      continue;
    }
    // A hidden view costs nothing until it is shown: its widgets are made then.
    View* later = sub.get();
    bool built = false;
    std::shared_ptr<bool> tree = building;
    addSyncer([this, later, box, built, tree]() mutable {
      if (built || later->isHidden()) return false;
      built = true;
      std::shared_ptr<bool> outer = std::exchange(building, tree);
      if (GtkWidget* w = build(*later)) frameBoxInsertView(box, w, later);
      building = outer;
      return true;
    });
  }
}

GtkWidget* GtkPresenter::Impl::build(View& view) {
  const String name = view.className();
  // Scrollers and table headers belong to the scroll views and tables GTK draws itself.
  if (name == String(u"NSScroller") || name == String(u"NSTableHeaderView")) return nullptr;
  GtkWidget* widget = nullptr;
  if (auto* table = dynamic_cast<TableView*>(&view)) {
    widget = buildTable(*table);
  } else if (auto* matrix = dynamic_cast<Matrix*>(&view)) {
    widget = buildMatrix(*matrix);
  } else {
    widget = buildControl(view);
    if (!widget) widget = buildContainer(view);
  }
  if (!widget) {
    // A custom view (or one known only by class name) without subviews is drawn; one with
    // subviews is a container for them.
    const bool leaf = view.subviews().empty();
    const bool plain = (name == String(u"NSView") && view.customClassName().isNil()) ||
                       dynamic_cast<StackView*>(&view) || dynamic_cast<GridView*>(&view);
    if (leaf && !plain) {
      widget = buildFallback(view);
    } else {
      widget = frameBoxNew(&view);
      buildSubviews(view, widget);
    }
  }
  remember(widget, &view);
  watchView(view, widget);
  return widget;
}

GtkWindow* GtkPresenter::Impl::buildWindow(const InterfaceObject& object) {
  auto* window = dynamic_cast<const Window*>(&object);
  auto* topView = dynamic_cast<const View*>(&object);
  if (!window && !topView) return nullptr;
  // The values a new widget starts with are the model's own: setting them sends no action.
  Pushing guard(*this);
  installPresenterStyles();
  GtkWidget* gwin = gtk_window_new();
  building = aliveWhile(gwin);
  gtk_widget_add_css_class(gwin, "tq-presented");
  g_object_set_data(G_OBJECT(gwin), kPresenterKey, this);
  auto* w = GTK_WINDOW(gwin);
  const String title = window ? window->title() : String::empty();
  gtk_window_set_title(w, utf8(title).c_str());
  const unsigned style = window ? window->styleMask() : NSWindowStyleMaskTitled | NSWindowStyleMaskClosable |
                                                            NSWindowStyleMaskResizable;
  gtk_window_set_resizable(w, (style & NSWindowStyleMaskResizable) != 0);
  gtk_window_set_deletable(w, (style & NSWindowStyleMaskClosable) != 0);
  if (options.headerBar && (style & NSWindowStyleMaskTitled)) {
    GtkWidget* bar = gtk_header_bar_new();
    gtk_window_set_titlebar(w, bar);
  } else if (!(style & NSWindowStyleMaskTitled)) {
    gtk_window_set_decorated(w, FALSE);
  }
  if (style & NSWindowStyleMaskHUDWindow) gtk_widget_add_css_class(gwin, "tq-hud");

  GtkWidget* root = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_window_set_child(w, root);
  GtkEventController* keys = gtk_shortcut_controller_new();
  gtk_shortcut_controller_set_scope(GTK_SHORTCUT_CONTROLLER(keys), GTK_SHORTCUT_SCOPE_GLOBAL);
  gtk_widget_add_controller(gwin, keys);
  keyEquivalents = GTK_SHORTCUT_CONTROLLER(keys);
  if (window && mainMenu) gtk_box_append(GTK_BOX(root), buildMenuBar(*mainMenu, w));
  if (window) {
    if (auto toolbar = std::dynamic_pointer_cast<Toolbar>(window->toolbar()); toolbar && toolbar->isVisible()) {
      gtk_box_append(GTK_BOX(root), buildToolbar(*toolbar));
    }
  }

  View* content = window ? window->contentView().get() : const_cast<View*>(topView);
  GtkWidget* box = nullptr;
  if (window) {
    box = content ? frameBoxNew(content) : frameBoxNew(nullptr);
    if (content) buildSubviews(*content, box);
    const Rect rect = window->contentRect();
    frameBoxSetNaturalSize(box, rect.size());
    const bool resizable = style & NSWindowStyleMaskResizable;
    frameBoxSetMinimumSize(box, resizable ? window->minSize() : rect.size());
    if (content) remember(box, content);
  } else {
    // A top-level view is its own content: it fills the window.
    GtkWidget* view = build(*content);
    // A view archived hidden is one its application shows later: shown on its own, it is shown.
    gtk_widget_set_visible(view, TRUE);
    box = frameBoxNew(nullptr);
    frameBoxAddFilling(box, view);
    frameBoxSetNaturalSize(box, content->frame().size());
  }
  gtk_widget_add_css_class(box, "tq-content");
  gtk_widget_set_vexpand(box, TRUE);
  gtk_widget_set_hexpand(box, TRUE);
  gtk_box_append(GTK_BOX(root), box);

  if (window) {
    widgets[window] = gwin;
    g_object_set_data(G_OBJECT(gwin), kModelObjectKey, const_cast<Window*>(window));
    auto* model = const_cast<Window*>(window);
    String shownTitle = title;
    addSyncer([model, w, shownTitle]() mutable {
      if (model->title() == shownTitle) return false;
      shownTitle = model->title();
      gtk_window_set_title(w, utf8(shownTitle).c_str());
      return true;
    });
  }
  g_signal_connect(gwin, "close-request", G_CALLBACK(+[](GtkWindow* closing, gpointer data) -> gboolean {
                     auto* impl = static_cast<Impl*>(data);
                     gtk_widget_set_visible(GTK_WIDGET(closing), FALSE);
                     if (impl->windowClosed) {
                       for (const auto& [object, gw] : impl->windows) {
                         if (gw == closing) impl->windowClosed(*object);
                       }
                     }
                     return TRUE;
                   }),
                   this);
  keyEquivalents = nullptr;
  building = nullptr;
  windows[&object] = w;
  windowOrder.push_back(w);
  return w;
}

// --- actions ----------------------------------------------------------------------------------------

void GtkPresenter::Impl::controlActed(Control& control) {
  if (pushing || dying || control.action().isNil()) return;
  GtkWidget* widget = widgets.count(&control) ? widgets[&control] : nullptr;
  GtkWindow* window = widget ? GTK_WINDOW(gtk_widget_get_root(widget)) : nullptr;
  send(control.action(), control.target(), control.shared_from_this(), window);
}

namespace {

ActionHandling* handlerOf(const ObjectRef& object) { return dynamic_cast<ActionHandling*>(object.get()); }

}  // namespace

bool GtkPresenter::Impl::send(const String& selector, const ObjectRef& target, const ObjectRef& sender,
                              GtkWindow* window) {
  if (selector.isNil() || selector.length() == 0) return false;
  auto deliver = [&](const ObjectRef& candidate) {
    ActionHandling* h = handlerOf(candidate);
    if (!h || !h->respondsToAction(selector)) return false;
    // The handler may drop the presenter's last reference: keep what is used after the call.
    ObjectRef keep = candidate;
    ActionObserver observer = actionObserver;
    h->performAction(selector, sender);
    if (observer) observer(selector, sender, keep);
    return true;
  };
  if (target) return deliver(target);

  std::vector<ObjectRef> chain;
  if (window) {
    // The focused view and its superviews, then the window.
    for (GtkWidget* w = gtk_root_get_focus(GTK_ROOT(window)); w; w = gtk_widget_get_parent(w)) {
      auto* object = static_cast<InterfaceObject*>(g_object_get_data(G_OBJECT(w), kModelObjectKey));
      if (!object || g_object_get_data(G_OBJECT(w), kPresenterKey) != this) continue;
      if (auto* view = dynamic_cast<View*>(object)) {
        for (View* v = view; v; v = v->superview()) chain.push_back(v->shared_from_this());
      }
      break;
    }
    for (const auto& [object, gw] : windows) {
      if (gw == window) chain.push_back(const_cast<InterfaceObject*>(object)->shared_from_this());
    }
  }
  if (options.owner) chain.push_back(options.owner);
  if (options.application) chain.push_back(options.application);
  chain.insert(chain.end(), responders.begin(), responders.end());
  for (const auto& candidate : chain) {
    if (deliver(candidate)) return true;
  }
  return false;
}

GtkPresenter::Impl::~Impl() {
  dying = true;
  // Widgets that change as they are taken apart (radio groups, selections) write nothing back and
  // send no action.
  ++pushing;
  if (syncSource) {
    g_source_destroy(syncSource);
    g_source_unref(syncSource);
  }
  for (GtkWindow* w : windowOrder) gtk_window_destroy(w);
  for (GtkWidget* w : detached) g_object_unref(w);
  tables.clear();
}

// --- the public face ----------------------------------------------------------------------------------

GtkPresenter::GtkPresenter(std::vector<ObjectRef> topLevelObjects, GtkPresenterOptions options)
    : impl_(std::make_unique<Impl>()) {
  impl_->owner = this;
  impl_->objects = std::move(topLevelObjects);
  impl_->options = std::move(options);
  impl_->mainMenu = impl_->options.mainMenu;
  if (!impl_->mainMenu) {
    for (const auto& object : impl_->objects) {
      auto menu = std::dynamic_pointer_cast<Menu>(object);
      if (menu && menu->systemMenu() == String(u"main")) {
        impl_->mainMenu = menu;
        break;
      }
    }
  }
  impl_->syncSource = g_source_new(&syncFuncs, sizeof(SyncSource));
  reinterpret_cast<SyncSource*>(impl_->syncSource)->impl = impl_.get();
  g_source_set_priority(impl_->syncSource, G_PRIORITY_HIGH);
  g_source_set_name(impl_->syncSource, "tqkit-gtk model");
  GMainContext* context = g_main_context_ref_thread_default();
  g_source_attach(impl_->syncSource, context);
  g_main_context_unref(context);
}

GtkPresenter::~GtkPresenter() = default;

const std::vector<ObjectRef>& GtkPresenter::topLevelObjects() const { return impl_->objects; }

std::vector<ObjectRef> GtkPresenter::presentableObjects() const {
  std::vector<ObjectRef> found;
  for (const auto& object : impl_->objects) {
    if (dynamic_cast<Window*>(object.get()) || dynamic_cast<View*>(object.get())) found.push_back(object);
  }
  return found;
}

namespace {

bool isTopLevel(const std::vector<ObjectRef>& objects, const InterfaceObject& object) {
  return std::any_of(objects.begin(), objects.end(), [&](const ObjectRef& o) { return o.get() == &object; });
}

}  // namespace

GtkWindow* GtkPresenter::gtkWindow(const InterfaceObject& object) {
  if (auto it = impl_->windows.find(&object); it != impl_->windows.end()) return it->second;
  if (!isTopLevel(impl_->objects, object)) return nullptr;
  return impl_->buildWindow(object);
}

GtkWindow* GtkPresenter::showWindow(const InterfaceObject& object) {
  GtkWindow* window = gtkWindow(object);
  if (window) gtk_window_present(window);
  return window;
}

GtkWidget* GtkPresenter::widgetForView(const View& view) {
  if (auto it = impl_->widgets.find(&view); it != impl_->widgets.end()) return it->second;
  if (!isTopLevel(impl_->objects, view) || impl_->windows.count(&view)) return nullptr;
  installPresenterStyles();
  Impl::Pushing guard(*impl_);
  // The tree's comparisons stop when the host destroys it; its flag is set once the root exists.
  auto alive = std::make_shared<bool>(true);
  impl_->building = alive;
  GtkWidget* widget = impl_->build(const_cast<View&>(view));
  impl_->building = nullptr;
  if (widget) {
    impl_->detached.push_back(GTK_WIDGET(g_object_ref_sink(widget)));
    g_signal_connect_data(widget, "destroy", G_CALLBACK(+[](GtkWidget*, gpointer data) {
                            *static_cast<std::shared_ptr<bool>*>(data)->get() = false;
                          }),
                          new std::shared_ptr<bool>(alive),
                          [](gpointer data, GClosure*) { delete static_cast<std::shared_ptr<bool>*>(data); },
                          static_cast<GConnectFlags>(0));
  }
  return widget;
}

GtkWidget* GtkPresenter::widgetFor(const InterfaceObject& object) const {
  auto it = impl_->widgets.find(&object);
  return it == impl_->widgets.end() ? nullptr : it->second;
}

InterfaceObject* GtkPresenter::objectForWidget(GtkWidget* widget) const {
  if (!widget || g_object_get_data(G_OBJECT(widget), kPresenterKey) != impl_.get()) return nullptr;
  return static_cast<InterfaceObject*>(g_object_get_data(G_OBJECT(widget), kModelObjectKey));
}

bool GtkPresenter::sendAction(const String& selector, const ObjectRef& target, const ObjectRef& sender) {
  GtkWindow* window = nullptr;
  if (auto* object = dynamic_cast<InterfaceObject*>(sender.get())) {
    if (GtkWidget* w = widgetFor(*object)) window = GTK_WINDOW(gtk_widget_get_root(w));
  }
  return impl_->send(selector, target, sender, window);
}

void GtkPresenter::addResponder(ObjectRef responder) { impl_->responders.push_back(std::move(responder)); }

void GtkPresenter::setActionObserver(ActionObserver observer) { impl_->actionObserver = std::move(observer); }

void GtkPresenter::synchronize() { impl_->synchronize(); }

std::vector<String> GtkPresenter::fallbackClassNames() const { return impl_->fallbacks; }

void GtkPresenter::setWindowClosedHandler(std::function<void(const InterfaceObject&)> handler) {
  impl_->windowClosed = std::move(handler);
}

}  // namespace tq
