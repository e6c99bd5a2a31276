// Menus as GMenu models whose items send their actions: the main menu as a menu bar with the key
// equivalents as shortcuts of the window, pull-down menus, and the window's toolbar.
#include <string>

#include "frame_box.h"
#include "presenter_impl.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/toolbar.h"

namespace tq {

namespace {

// The platform's modifier masks of key equivalents.
constexpr unsigned long kShift = 1ul << 17, kControl = 1ul << 18, kOption = 1ul << 19, kCommand = 1ul << 20;

// The keyval of a key equivalent's character: the platform's function-key characters, control
// characters by name, others as themselves.
guint keyvalOf(char16_t c) {
  switch (c) {
    case u'\r': case 3: return GDK_KEY_Return;
    case 0x1b: return GDK_KEY_Escape;
    case u'\t': return GDK_KEY_Tab;
    case 0x7f: case 8: return GDK_KEY_BackSpace;
    case u' ': return GDK_KEY_space;
    case 0xF700: return GDK_KEY_Up;
    case 0xF701: return GDK_KEY_Down;
    case 0xF702: return GDK_KEY_Left;
    case 0xF703: return GDK_KEY_Right;
    case 0xF728: return GDK_KEY_Delete;
    case 0xF729: return GDK_KEY_Home;
    case 0xF72B: return GDK_KEY_End;
    case 0xF72C: return GDK_KEY_Page_Up;
    case 0xF72D: return GDK_KEY_Page_Down;
    default: break;
  }
  if (c >= 0xF704 && c <= 0xF726) return GDK_KEY_F1 + (c - 0xF704);
  return gdk_unicode_to_keyval(c);
}

// A menu item's key equivalent as a GTK accelerator ("<Control>q"): command and control as Control,
// option as Alt, shift (or an upper-case letter) as Shift. Empty for none.
std::string acceleratorOf(const MenuItem& item) {
  const String& key = item.keyEquivalent();
  if (key.isNil() || key.length() != 1) return {};
  char16_t c = key.characterAtIndex(0);
  const unsigned long mask = item.keyEquivalentModifierMask();
  GdkModifierType modifiers = static_cast<GdkModifierType>(0);
  if (mask & (kCommand | kControl)) modifiers = static_cast<GdkModifierType>(modifiers | GDK_CONTROL_MASK);
  if (mask & kOption) modifiers = static_cast<GdkModifierType>(modifiers | GDK_ALT_MASK);
  if (mask & kShift) modifiers = static_cast<GdkModifierType>(modifiers | GDK_SHIFT_MASK);
  if (c >= u'A' && c <= u'Z') {
    modifiers = static_cast<GdkModifierType>(modifiers | GDK_SHIFT_MASK);
    c = static_cast<char16_t>(c - u'A' + u'a');
  }
  const guint keyval = keyvalOf(c);
  if (!keyval) return {};
  char* name = gtk_accelerator_name(keyval, modifiers);
  std::string accel = name ? name : "";
  g_free(name);
  return accel;
}

struct ItemLink {
  GtkPresenter::Impl* impl;
  MenuItem* item;
  GSimpleActionGroup* group;  // not owned; its widget is where the group is inserted
};

}  // namespace

GMenuModel* GtkPresenter::Impl::menuModel(Menu& menu, GSimpleActionGroup* group, GtkShortcutController* shortcuts,
                                          long skip) {
  GMenu* result = g_menu_new();
  GMenu* section = g_menu_new();
  auto flush = [&] {
    if (g_menu_model_get_n_items(G_MENU_MODEL(section)) > 0) g_menu_append_section(result, nullptr, G_MENU_MODEL(section));
    g_object_unref(section);
    section = g_menu_new();
  };
  for (long i = skip; i < menu.numberOfItems(); ++i) {
    auto item = menu.itemAtIndex(i);
    if (!item || item->isHidden()) continue;
    if (item->isSeparatorItem()) {
      flush();
      continue;
    }
    const std::string title = utf8(item->title());
    if (const auto& submenu = item->submenu()) {
      GMenuModel* sub = menuModel(*submenu, group, shortcuts);
      g_menu_append_submenu(section, title.c_str(), sub);
      g_object_unref(sub);
      continue;
    }
    const std::string name = "item" + std::to_string(++menuActionCount);
    GSimpleAction* action = item->state() != 0
                                ? g_simple_action_new_stateful(name.c_str(), nullptr, g_variant_new_boolean(item->state() == 1))
                                : g_simple_action_new(name.c_str(), nullptr);
    g_simple_action_set_enabled(action, item->isEnabled());
    auto* l = new ItemLink{this, item.get(), group};
    g_object_set_data_full(G_OBJECT(action), "tq-item", l, [](gpointer p) { delete static_cast<ItemLink*>(p); });
    g_signal_connect(action, "activate", G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
                       auto* il = static_cast<ItemLink*>(data);
                       auto* anchor = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(il->group), "tq-anchor"));
                       GtkWindow* window = anchor ? GTK_WINDOW(gtk_widget_get_root(anchor)) : nullptr;
                       // A pull-down's chosen item becomes its selected one.
                       if (Menu* m = il->item->menu()) {
                         if (MenuItem* parent = m->parentItem(); !parent) {
                           for (const auto& [object, widget] : il->impl->widgets) {
                             auto* popup = dynamic_cast<const PopUpButton*>(object);
                             if (popup && popup->menu().get() == m && popup->popUpCell()) {
                               for (long k = 0; k < m->numberOfItems(); ++k) {
                                 if (m->itemAtIndex(k).get() == il->item) popup->popUpCell()->selectItemAtIndex(k);
                               }
                               if (il->item->action().isNil()) {
                                 il->impl->controlActed(*const_cast<PopUpButton*>(popup));
                                 return;
                               }
                             }
                           }
                         }
                       }
                       il->impl->send(il->item->action(), il->item->target(), il->item->shared_from_this(), window);
                     }),
                     l);
    g_action_map_add_action(G_ACTION_MAP(group), G_ACTION(action));
    g_object_unref(action);
    const std::string detailed = "tq." + name;
    GMenuItem* entry = g_menu_item_new(title.c_str(), detailed.c_str());
    const std::string accel = acceleratorOf(*item);
    if (!accel.empty()) {
      g_menu_item_set_attribute(entry, "accel", "s", accel.c_str());
      if (shortcuts) {
        if (GtkShortcutTrigger* trigger = gtk_shortcut_trigger_parse_string(accel.c_str())) {
          gtk_shortcut_controller_add_shortcut(shortcuts, gtk_shortcut_new(trigger, gtk_named_action_new(detailed.c_str())));
        }
      }
    }
    g_menu_append_item(section, entry);
    g_object_unref(entry);
  }
  flush();
  g_object_unref(section);
  return G_MENU_MODEL(result);
}

GtkWidget* GtkPresenter::Impl::buildMenuBar(Menu& menu, GtkWindow* window) {
  GSimpleActionGroup* group = g_simple_action_group_new();
  GtkEventController* shortcuts = gtk_shortcut_controller_new();
  gtk_shortcut_controller_set_scope(GTK_SHORTCUT_CONTROLLER(shortcuts), GTK_SHORTCUT_SCOPE_GLOBAL);
  GMenuModel* model = menuModel(menu, group, GTK_SHORTCUT_CONTROLLER(shortcuts));
  GtkWidget* bar = gtk_popover_menu_bar_new_from_model(model);
  g_object_unref(model);
  gtk_widget_insert_action_group(GTK_WIDGET(window), "tq", G_ACTION_GROUP(group));
  g_object_set_data(G_OBJECT(group), "tq-anchor", window);
  g_object_unref(group);
  gtk_widget_add_controller(GTK_WIDGET(window), shortcuts);
  gtk_widget_add_css_class(bar, "tq-menubar");
  remember(bar, &menu);
  return bar;
}

GtkWidget* GtkPresenter::Impl::buildToolbar(Toolbar& toolbar) {
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  gtk_widget_add_css_class(row, "tq-toolbar");
  const auto& items = toolbar.defaultItems().empty() ? toolbar.allowedItems() : toolbar.defaultItems();
  const bool labels = toolbar.displayMode() != Toolbar::DisplayMode::IconOnly;
  const bool icons = toolbar.displayMode() != Toolbar::DisplayMode::LabelOnly;
  const double side = toolbar.sizeMode() == Toolbar::SizeMode::Small ? 24 : 32;
  for (const auto& item : items) {
    const String id = item->itemIdentifier();
    if (id == String(u"NSToolbarFlexibleSpaceItem")) {
      GtkWidget* space = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
      gtk_widget_set_hexpand(space, TRUE);
      gtk_box_append(GTK_BOX(row), space);
      continue;
    }
    if (id == String(u"NSToolbarSpaceItem")) {
      GtkWidget* space = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
      gtk_widget_set_size_request(space, 32, -1);
      gtk_box_append(GTK_BOX(row), space);
      continue;
    }
    if (id == String(u"NSToolbarSeparatorItem")) {
      gtk_box_append(GTK_BOX(row), gtk_separator_new(GTK_ORIENTATION_VERTICAL));
      continue;
    }
    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    GtkWidget* face = nullptr;
    if (const auto& view = item->view()) {
      face = build(*view);
      if (face) {
        gtk_widget_set_size_request(face, static_cast<int>(view->frame().w), static_cast<int>(view->frame().h));
        gtk_box_append(GTK_BOX(content), face);
      }
    } else if (icons && !item->imageName().isNil()) {
      gtk_box_append(GTK_BOX(content), imageWidget(item->imageName(), {side, side}));
    }
    if (labels && item->label().length() > 0) {
      GtkWidget* label = gtk_label_new(utf8(item->label()).c_str());
      applyFont(label, FontDescriptor::systemFont(11));
      gtk_box_append(GTK_BOX(content), label);
    }
    GtkWidget* widget = content;
    if (!item->view()) {
      widget = gtk_button_new();
      gtk_widget_add_css_class(widget, "flat");
      gtk_button_set_child(GTK_BUTTON(widget), content);
      gtk_widget_set_sensitive(widget, item->isEnabled());
      auto* l = new ItemLink{this, nullptr, nullptr};
      g_object_set_data_full(G_OBJECT(widget), "tq-toolbar-item", l, [](gpointer p) { delete static_cast<ItemLink*>(p); });
      ToolbarItem* model = item.get();
      g_object_set_data(G_OBJECT(widget), "tq-toolbar-model", model);
      g_signal_connect(widget, "clicked", G_CALLBACK(+[](GtkWidget* w, gpointer data) {
                         auto* il = static_cast<ItemLink*>(data);
                         auto* m = static_cast<ToolbarItem*>(g_object_get_data(G_OBJECT(w), "tq-toolbar-model"));
                         if (il->impl->pushing || !m) return;
                         il->impl->send(m->action(), m->target().lock(), m->shared_from_this(),
                                        GTK_WINDOW(gtk_widget_get_root(w)));
                       }),
                       l);
    }
    if (!item->toolTip().isNil()) gtk_widget_set_tooltip_text(widget, utf8(item->toolTip()).c_str());
    remember(widget, item.get());
    gtk_box_append(GTK_BOX(row), widget);
  }
  remember(row, &toolbar);
  return row;
}

}  // namespace tq
