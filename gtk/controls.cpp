// Controls as the native widgets a GTK user expects: buttons, check boxes and radio buttons, labels
// and fields, pop-up and pull-down buttons, segmented controls, sliders, steppers, level and
// progress indicators, image views and text views; each with its values kept in step both ways.
#include <algorithm>
#include <cmath>

#include "frame_box.h"
#include "presenter_impl.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/model/text_measurer.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/image_view.h"
#include "tq/platform/ui/model/progress_indicator.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"

namespace tq {

namespace {

// Signal handlers get the presenter's inside and the model object through a small record that
// lives as long as the widget.
struct Link {
  GtkPresenter::Impl* impl;
  View* view;
  long index = 0;  // a segment, a matrix cell
};

Link* link(GtkWidget* widget, GtkPresenter::Impl* impl, View* view, long index = 0) {
  auto* l = new Link{impl, view, index};
  g_object_set_data_full(G_OBJECT(widget), "tq-link", l, [](gpointer p) { delete static_cast<Link*>(p); });
  return l;
}

float xAlignment(TextAlignment alignment) {
  switch (alignment) {
    case TextAlignment::Right: return 1.0f;
    case TextAlignment::Center: return 0.5f;
    default: return 0.0f;
  }
}

// A key equivalent of a button as a GTK trigger: "\r" Return, "\x1b" Escape, other single characters
// as keys of their own; nullptr for none.
GtkShortcutTrigger* triggerOf(const String& key) {
  if (key.isNil() || key.length() != 1) return nullptr;
  const char16_t c = key.characterAtIndex(0);
  guint keyval = c == u'\r' ? GDK_KEY_Return : c == 0x1b ? GDK_KEY_Escape : gdk_unicode_to_keyval(c);
  if (keyval == 0) return nullptr;
  return gtk_keyval_trigger_new(keyval, static_cast<GdkModifierType>(0));
}

}  // namespace

GtkWidget* GtkPresenter::Impl::imageWidget(const String& name, Size size) {
  ImageRef image = options.images && !name.isNil() ? options.images->imageNamed(name) : nullptr;
  GtkWidget* widget;
  if (image) {
    GdkTexture* texture = textureOfImage(*image);
    widget = gtk_picture_new_for_paintable(GDK_PAINTABLE(texture));
    g_object_unref(texture);
    gtk_picture_set_can_shrink(GTK_PICTURE(widget), TRUE);
    gtk_picture_set_content_fit(GTK_PICTURE(widget), GTK_CONTENT_FIT_CONTAIN);
  } else {
    // The drawing's stand-in (template images) or placeholder, through an image view of its own.
    auto view = std::make_shared<ImageView>();
    view->setImageName(name);
    view->setFrame({0, 0, size.width, size.height});
    keepAlive.push_back(view);
    ImageView* v = view.get();
    auto images = options.images;
    widget = drawingWidget([v, images](cairo_t* cr, int width, int height) {
      v->setFrame({0, 0, static_cast<double>(width), static_cast<double>(height)});
      drawViewInto(cr, *v, images);
    });
  }
  gtk_widget_set_size_request(widget, static_cast<int>(size.width), static_cast<int>(size.height));
  gtk_widget_set_halign(widget, GTK_ALIGN_CENTER);
  gtk_widget_set_valign(widget, GTK_ALIGN_CENTER);
  return widget;
}

namespace {

// --- buttons ----------------------------------------------------------------------------------------

void setButtonContent(GtkPresenter::Impl& impl, GtkWidget* button, Button& model) {
  auto cell = model.buttonCell();
  const CellImagePosition position = cell ? cell->imagePosition() : CellImagePosition::NoImage;
  const String image = cell ? cell->imageName() : String();
  const String title = model.title();
  const Rect f = model.frame();
  if (image.isNil() || position == CellImagePosition::NoImage) {
    gtk_button_set_label(GTK_BUTTON(button), utf8(title).c_str());
    if (cell) applyFont(button, cell->font());
    return;
  }
  gtk_widget_add_css_class(button, "tq-image");
  if (position == CellImagePosition::ImageOnly || title.length() == 0 || position == CellImagePosition::ImageOverlaps) {
    const double side = std::max(1.0, std::min(f.w, f.h) - 4);
    gtk_button_set_child(GTK_BUTTON(button), impl.imageWidget(image, {side, side}));
    return;
  }
  const bool vertical = position == CellImagePosition::ImageAbove || position == CellImagePosition::ImageBelow;
  GtkWidget* box = gtk_box_new(vertical ? GTK_ORIENTATION_VERTICAL : GTK_ORIENTATION_HORIZONTAL, 3);
  gtk_widget_set_halign(box, GTK_ALIGN_CENTER);
  GtkWidget* picture = impl.imageWidget(image, {16, 16});
  GtkWidget* label = gtk_label_new(utf8(title).c_str());
  if (cell) applyFont(label, cell->font());
  const bool imageFirst = position == CellImagePosition::ImageLeft || position == CellImagePosition::ImageAbove ||
                          position == CellImagePosition::ImageLeading;
  gtk_box_append(GTK_BOX(box), imageFirst ? picture : label);
  gtk_box_append(GTK_BOX(box), imageFirst ? label : picture);
  gtk_button_set_child(GTK_BUTTON(button), box);
}

void labelSet(GtkWidget* button, const String& title) {
  if (GTK_IS_CHECK_BUTTON(button)) {
    gtk_check_button_set_label(GTK_CHECK_BUTTON(button), utf8(title).c_str());
  } else if (GtkWidget* label = buttonLabel(button)) {
    gtk_label_set_text(GTK_LABEL(label), utf8(title).c_str());
  } else if (GtkWidget* child = gtk_button_get_child(GTK_BUTTON(button)); child && GTK_IS_BOX(child)) {
    for (GtkWidget* c = gtk_widget_get_first_child(child); c; c = gtk_widget_get_next_sibling(c)) {
      if (GTK_IS_LABEL(c)) gtk_label_set_text(GTK_LABEL(c), utf8(title).c_str());
    }
  }
}

void onToggled(GtkWidget* widget, gpointer) {
  auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(widget), "tq-link"));
  if (!l || l->impl->pushing) return;
  auto* button = static_cast<Button*>(l->view);
  const bool active = GTK_IS_CHECK_BUTTON(widget) ? gtk_check_button_get_active(GTK_CHECK_BUTTON(widget))
                                                  : gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(widget));
  button->setState(active ? 1 : 0);
  if (GTK_IS_CHECK_BUTTON(widget)) gtk_check_button_set_inconsistent(GTK_CHECK_BUTTON(widget), FALSE);
  auto cell = button->buttonCell();
  // A radio button sends its action when it is chosen, not when its neighbour takes over.
  if (cell && cell->buttonType() == ButtonType::Radio && !active) return;
  l->impl->controlActed(*button);
}

void onClicked(GtkWidget* widget, gpointer) {
  auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(widget), "tq-link"));
  if (l) l->impl->controlActed(*static_cast<Control*>(l->view));
}

GtkWidget* buildButton(GtkPresenter::Impl& impl, Button& model) {
  auto cell = model.buttonCell();
  const ButtonType type = cell ? cell->buttonType() : ButtonType::MomentaryPushIn;
  GtkWidget* widget;
  if (type == ButtonType::Switch || type == ButtonType::Radio) {
    widget = gtk_check_button_new_with_label(utf8(model.title()).c_str());
    if (cell) applyFont(widget, cell->font());
    gtk_check_button_set_active(GTK_CHECK_BUTTON(widget), model.state() == 1);
    gtk_check_button_set_inconsistent(GTK_CHECK_BUTTON(widget), model.state() == -1);
    if (type == ButtonType::Radio && model.superview()) {
      // Radio buttons of one superview with one action form a group, as the platform groups them.
      for (const auto& sibling : model.superview()->subviews()) {
        if (sibling.get() == &model) break;
        auto* other = dynamic_cast<Button*>(sibling.get());
        auto otherCell = other ? other->buttonCell() : nullptr;
        if (!otherCell || otherCell->buttonType() != ButtonType::Radio || !(other->action() == model.action())) continue;
        auto it = impl.widgets.find(other);
        if (it != impl.widgets.end() && GTK_IS_CHECK_BUTTON(it->second)) {
          gtk_check_button_set_group(GTK_CHECK_BUTTON(widget), GTK_CHECK_BUTTON(it->second));
          break;
        }
      }
    }
    g_signal_connect(widget, "toggled", G_CALLBACK(onToggled), nullptr);
  } else if (type == ButtonType::PushOnPushOff || type == ButtonType::Toggle || type == ButtonType::OnOff) {
    widget = gtk_toggle_button_new();
    setButtonContent(impl, widget, model);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget), model.state() == 1);
    g_signal_connect(widget, "toggled", G_CALLBACK(onToggled), nullptr);
  } else {
    widget = gtk_button_new();
    setButtonContent(impl, widget, model);
    g_signal_connect(widget, "clicked", G_CALLBACK(onClicked), nullptr);
  }
  link(widget, &impl, &model);
  if (cell) {
    if (const String bezel = cell->bezelStyle(); bezel.isNil() || !cell->isBordered()) {
      if (!cell->isBordered() && !GTK_IS_CHECK_BUTTON(widget)) gtk_widget_add_css_class(widget, "flat");
    }
    if (GtkShortcutTrigger* trigger = triggerOf(cell->keyEquivalent())) {
      impl.addKeyEquivalent(trigger, widget);
      if (cell->keyEquivalent() == String(u"\r")) gtk_widget_add_css_class(widget, "suggested-action");
    }
  }
  struct Shown {
    String title;
    int state;
  };
  Shown shown{model.title(), model.state()};
  Button* b = &model;
  impl.addSyncer([b, widget, shown]() mutable {
    bool changed = false;
    if (!(b->title() == shown.title)) {
      shown.title = b->title();
      labelSet(widget, shown.title);
      changed = true;
    }
    if (b->state() != shown.state) {
      shown.state = b->state();
      if (GTK_IS_CHECK_BUTTON(widget)) {
        gtk_check_button_set_active(GTK_CHECK_BUTTON(widget), shown.state == 1);
        gtk_check_button_set_inconsistent(GTK_CHECK_BUTTON(widget), shown.state == -1);
      } else if (GTK_IS_TOGGLE_BUTTON(widget)) {
        gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget), shown.state == 1);
      }
      changed = true;
    }
    return changed;
  });
  return widget;
}

// --- pop-up and pull-down buttons ---------------------------------------------------------------------

// The items a pop-up lists: visible, not separators; their indexes in the menu.
std::vector<long> listedItems(const PopUpButton& popup) {
  std::vector<long> indexes;
  if (auto menu = popup.menu()) {
    for (long i = 0; i < menu->numberOfItems(); ++i) {
      auto item = menu->itemAtIndex(i);
      if (item && !item->isHidden() && !item->isSeparatorItem()) indexes.push_back(i);
    }
  }
  return indexes;
}

std::vector<String> titlesOf(const PopUpButton& popup, const std::vector<long>& indexes) {
  std::vector<String> titles;
  for (long i : indexes) titles.push_back(popup.menu()->itemAtIndex(i)->title());
  return titles;
}

struct PopUpLink {
  GtkPresenter::Impl* impl;
  PopUpButton* popup;
  std::vector<long> indexes;
};

void fillList(GtkStringList* list, const std::vector<String>& titles) {
  std::vector<std::string> bytes;
  for (const auto& t : titles) bytes.push_back(utf8(t));
  std::vector<const char*> strings;
  for (const auto& b : bytes) strings.push_back(b.c_str());
  strings.push_back(nullptr);
  gtk_string_list_splice(list, 0, g_list_model_get_n_items(G_LIST_MODEL(list)), strings.data());
}

// The item chosen sends its own action when it has one, else the pop-up's.
void popUpChose(GtkPresenter::Impl& impl, PopUpButton& popup, long index) {
  popup.popUpCell() ? popup.popUpCell()->selectItemAtIndex(index) : void();
  auto item = popup.menu() ? popup.menu()->itemAtIndex(index) : nullptr;
  if (impl.pushing) return;
  if (item && !item->action().isNil()) {
    GtkWidget* w = impl.widgets.count(&popup) ? impl.widgets[&popup] : nullptr;
    impl.send(item->action(), item->target(), item, w ? GTK_WINDOW(gtk_widget_get_root(w)) : nullptr);
  } else {
    impl.controlActed(popup);
  }
}

GtkWidget* buildPopUp(GtkPresenter::Impl& impl, PopUpButton& popup) {
  if (popup.pullsDown()) {
    GtkWidget* button = gtk_menu_button_new();
    gtk_menu_button_set_label(GTK_MENU_BUTTON(button), utf8(popup.title()).c_str());
    if (popup.menu()) {
      // The menu is made when the button is first opened.
      auto* l = link(button, &impl, &popup);
      gtk_menu_button_set_create_popup_func(
          GTK_MENU_BUTTON(button),
          [](GtkMenuButton* menuButton, gpointer data) {
            auto* pl = static_cast<Link*>(data);
            auto* p = static_cast<PopUpButton*>(pl->view);
            if (!p->menu()) return;
            GSimpleActionGroup* group = g_simple_action_group_new();
            GMenuModel* model = pl->impl->menuModel(*p->menu(), group, nullptr, 1);
            gtk_widget_insert_action_group(GTK_WIDGET(menuButton), "tq", G_ACTION_GROUP(group));
            g_object_set_data(G_OBJECT(group), "tq-anchor", menuButton);
            g_object_unref(group);
            gtk_menu_button_set_menu_model(menuButton, model);
            g_object_unref(model);
          },
          l, nullptr);
    }
    auto cell = popup.popUpCell();
    if (cell && cell->imagePosition() == CellImagePosition::ImageOnly) {
      // An image-only pull-down (an action menu): its first item's image, or the cell's.
      String image = cell->imageName();
      if (image.isNil() && popup.menu() && popup.menu()->itemAtIndex(0)) image = popup.menu()->itemAtIndex(0)->imageName();
      if (!image.isNil()) {
        gtk_menu_button_set_child(GTK_MENU_BUTTON(button), impl.imageWidget(image, {16, 16}));
      }
    }
    PopUpButton* p = &popup;
    String shown = popup.title();
    impl.addSyncer([p, button, shown]() mutable {
      if (p->title() == shown) return false;
      shown = p->title();
      if (GtkWidget* child = gtk_menu_button_get_child(GTK_MENU_BUTTON(button)); !child || GTK_IS_LABEL(child) ||
                                                                                   GTK_IS_BOX(child)) {
        gtk_menu_button_set_label(GTK_MENU_BUTTON(button), utf8(shown).c_str());
      }
      return true;
    });
    return button;
  }

  auto* l = new PopUpLink{&impl, &popup, listedItems(popup)};
  GtkStringList* list = gtk_string_list_new(nullptr);
  fillList(list, titlesOf(popup, l->indexes));
  GtkWidget* dropDown = gtk_drop_down_new(G_LIST_MODEL(list), nullptr);
  g_object_set_data_full(G_OBJECT(dropDown), "tq-popup", l, [](gpointer p) { delete static_cast<PopUpLink*>(p); });
  auto select = [](GtkWidget* dd, PopUpLink* pl) {
    const long selected = pl->popup->indexOfSelectedItem();
    const auto it = std::find(pl->indexes.begin(), pl->indexes.end(), selected);
    gtk_drop_down_set_selected(GTK_DROP_DOWN(dd), it == pl->indexes.end()
                                                      ? GTK_INVALID_LIST_POSITION
                                                      : static_cast<guint>(it - pl->indexes.begin()));
  };
  select(dropDown, l);
  g_signal_connect(dropDown, "notify::selected", G_CALLBACK(+[](GtkWidget* dd, GParamSpec*, gpointer data) {
                     auto* pl = static_cast<PopUpLink*>(data);
                     const guint selected = gtk_drop_down_get_selected(GTK_DROP_DOWN(dd));
                     if (pl->impl->pushing || selected == GTK_INVALID_LIST_POSITION || selected >= pl->indexes.size()) return;
                     popUpChose(*pl->impl, *pl->popup, pl->indexes[selected]);
                   }),
                   l);
  struct Shown {
    std::vector<String> titles;
    long selected;
  };
  Shown shown{titlesOf(popup, l->indexes), popup.indexOfSelectedItem()};
  impl.addSyncer([dropDown, l, list, shown, select]() mutable {
    bool changed = false;
    std::vector<long> indexes = listedItems(*l->popup);
    std::vector<String> titles = titlesOf(*l->popup, indexes);
    if (titles != shown.titles) {
      l->indexes = indexes;
      shown.titles = titles;
      fillList(list, titles);
      select(dropDown, l);
      changed = true;
    }
    if (l->popup->indexOfSelectedItem() != shown.selected) {
      shown.selected = l->popup->indexOfSelectedItem();
      select(dropDown, l);
      changed = true;
    }
    return changed;
  });
  return dropDown;
}

// --- text fields --------------------------------------------------------------------------------------

void onEdited(GtkEditable* editable, gpointer) {
  auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(editable), "tq-link"));
  if (!l || l->impl->pushing) return;
  static_cast<Control*>(l->view)->setStringValue(String::fromUTF8(gtk_editable_get_text(editable)));
}

// A combo box: GTK's combo box with an entry, its items from the model, the entry's text the
// field's string value.
GtkWidget* buildComboBox(GtkPresenter::Impl& impl, ComboBox& combo) {
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  GtkWidget* widget = gtk_combo_box_text_new_with_entry();
  for (const String& item : combo.objectValues()) gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(widget), utf8(item).c_str());
  G_GNUC_END_IGNORE_DEPRECATIONS
  GtkWidget* entry = gtk_combo_box_get_child(GTK_COMBO_BOX(widget));
  gtk_editable_set_text(GTK_EDITABLE(entry), utf8(combo.stringValue()).c_str());
  if (!combo.placeholderString().isNil()) gtk_entry_set_placeholder_text(GTK_ENTRY(entry), utf8(combo.placeholderString()).c_str());
  link(entry, &impl, &combo);
  link(widget, &impl, &combo);
  g_signal_connect(entry, "changed", G_CALLBACK(onEdited), nullptr);
  g_signal_connect(entry, "activate", G_CALLBACK(onClicked), nullptr);
  // An item chosen from the list (its text is in the entry already) sends the action.
  g_signal_connect(widget, "changed", G_CALLBACK(+[](GtkComboBox* box, gpointer) {
                     if (gtk_combo_box_get_active(box) >= 0) onClicked(GTK_WIDGET(box), nullptr);
                   }),
                   nullptr);
  ComboBox* c = &combo;
  String shown = combo.stringValue();
  impl.addSyncer([c, entry, shown]() mutable {
    if (c->stringValue() == shown) return false;
    shown = c->stringValue();
    if (String::fromUTF8(gtk_editable_get_text(GTK_EDITABLE(entry))) == shown) return false;
    gtk_editable_set_text(GTK_EDITABLE(entry), utf8(shown).c_str());
    return true;
  });
  return widget;
}

GtkWidget* buildTextField(GtkPresenter::Impl& impl, TextField& field) {
  auto cell = field.textFieldCell();
  const String name = field.className();
  const bool search = dynamic_cast<SearchField*>(&field) != nullptr;
  const bool secure = name == String(u"NSSecureTextField");
  const bool entry = search || secure || name == String(u"NSComboBox") || name == String(u"NSTokenField") ||
                     (field.cell() && field.cell()->isEditable());
  TextField* f = &field;
  if (!entry) {
    // An empty label shows its placeholder, dimmed.
    auto shownText = [](const TextField& f) {
      return f.stringValue().length() == 0 && f.placeholderString().length() > 0 ? f.placeholderString() : f.stringValue();
    };
    GtkWidget* label = gtk_label_new(utf8(shownText(field)).c_str());
    if (field.stringValue().length() == 0 && field.placeholderString().length() > 0) gtk_widget_add_css_class(label, "dim-label");
    const TextAlignment alignment = field.alignment();
    gtk_label_set_xalign(GTK_LABEL(label), xAlignment(alignment));
    gtk_label_set_justify(GTK_LABEL(label), alignment == TextAlignment::Right    ? GTK_JUSTIFY_RIGHT
                                            : alignment == TextAlignment::Center ? GTK_JUSTIFY_CENTER
                                                                                 : GTK_JUSTIFY_LEFT);
    const double line = TextMeasurer::current().defaultLineHeight(field.font());
    const bool multiline = field.cell() && field.cell()->wraps() && field.frame().h >= 2 * line;
    if (multiline) {
      gtk_label_set_wrap(GTK_LABEL(label), TRUE);
      gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
      gtk_label_set_yalign(GTK_LABEL(label), 0.0f);
    } else {
      gtk_label_set_yalign(GTK_LABEL(label), 0.5f);
      if (field.cell() && field.cell()->lineBreakMode() != LineBreakMode::ByClipping &&
          field.cell()->lineBreakMode() != LineBreakMode::ByWordWrapping) {
        gtk_label_set_ellipsize(GTK_LABEL(label), field.cell()->lineBreakMode() == LineBreakMode::ByTruncatingHead
                                                      ? PANGO_ELLIPSIZE_START
                                                  : field.cell()->lineBreakMode() == LineBreakMode::ByTruncatingMiddle
                                                      ? PANGO_ELLIPSIZE_MIDDLE
                                                      : PANGO_ELLIPSIZE_END);
      }
    }
    gtk_label_set_selectable(GTK_LABEL(label), field.cell() && field.cell()->isSelectable());
    gtk_widget_set_overflow(label, GTK_OVERFLOW_HIDDEN);
    if (field.cell()) {
      const bool coloured = cell && cell->textColor() && !cell->textColor()->isNamed();
      if (coloured) {
        PangoAttrList* shared = fontAttributes(field.font());
        PangoAttrList* attrs = pango_attr_list_copy(shared);
        pango_attr_list_unref(shared);
        const auto& c = *cell->textColor();
        pango_attr_list_insert(attrs, pango_attr_foreground_new(static_cast<guint16>(c.red * 65535),
                                                                static_cast<guint16>(c.green * 65535),
                                                                static_cast<guint16>(c.blue * 65535)));
        gtk_label_set_attributes(GTK_LABEL(label), attrs);
        pango_attr_list_unref(attrs);
      } else {
        applyFont(label, field.font());
      }
    }
    String shown = shownText(field);
    impl.addSyncer([f, label, shown, shownText]() mutable {
      const String now = shownText(*f);
      if (now == shown) return false;
      shown = now;
      gtk_label_set_text(GTK_LABEL(label), utf8(shown).c_str());
      if (f->stringValue().length() == 0 && f->placeholderString().length() > 0) gtk_widget_add_css_class(label, "dim-label");
      else gtk_widget_remove_css_class(label, "dim-label");
      return true;
    });
    return label;
  }

  if (auto* combo = dynamic_cast<ComboBox*>(&field)) return buildComboBox(impl, *combo);
  GtkWidget* widget = secure ? gtk_password_entry_new() : search ? gtk_search_entry_new() : gtk_entry_new();
  gtk_editable_set_text(GTK_EDITABLE(widget), utf8(field.stringValue()).c_str());
  gtk_editable_set_alignment(GTK_EDITABLE(widget), xAlignment(field.alignment()));
  if (!field.placeholderString().isNil()) {
    g_object_set(widget, "placeholder-text", utf8(field.placeholderString()).c_str(), nullptr);
  }
  if (GTK_IS_ENTRY(widget) && !isDefaultFont(field.font())) {
    PangoAttrList* attrs = fontAttributes(field.font());
    gtk_entry_set_attributes(GTK_ENTRY(widget), attrs);
    pango_attr_list_unref(attrs);
  }
  link(widget, &impl, &field);
  g_signal_connect(widget, "changed", G_CALLBACK(onEdited), nullptr);
  g_signal_connect(widget, "activate", G_CALLBACK(onClicked), nullptr);
  struct Shown {
    String value, placeholder;
  };
  Shown shown{field.stringValue(), field.placeholderString()};
  impl.addSyncer([f, widget, shown]() mutable {
    bool changed = false;
    if (!(f->stringValue() == shown.value)) {
      shown.value = f->stringValue();
      // What the user typed is already the model's value: only a value set elsewhere is shown.
      if (String::fromUTF8(gtk_editable_get_text(GTK_EDITABLE(widget))) != shown.value) {
        gtk_editable_set_text(GTK_EDITABLE(widget), utf8(shown.value).c_str());
        changed = true;
      }
    }
    if (!(f->placeholderString() == shown.placeholder) &&
        !(f->placeholderString().isNil() && shown.placeholder.isNil())) {
      shown.placeholder = f->placeholderString();
      g_object_set(widget, "placeholder-text", utf8(shown.placeholder).c_str(), nullptr);
      changed = true;
    }
    return changed;
  });
  return widget;
}

// --- segmented controls -------------------------------------------------------------------------------

GtkWidget* buildSegmented(GtkPresenter::Impl& impl, SegmentedControl& control) {
  auto cell = control.segmentedCell();
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_widget_add_css_class(box, "linked");
  if (!cell) return box;
  const String mode = cell->trackingMode();
  const bool momentary = mode == String(u"momentary");
  const bool any = mode == String(u"selectAny");
  GtkWidget* first = nullptr;
  std::vector<GtkWidget*> buttons;
  for (long i = 0; i < cell->segmentCount(); ++i) {
    const Segment& s = cell->segments()[static_cast<std::size_t>(i)];
    GtkWidget* b = momentary ? gtk_button_new() : gtk_toggle_button_new();
    if (!s.imageName.isNil()) {
      GtkWidget* content = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 3);
      gtk_widget_set_halign(content, GTK_ALIGN_CENTER);
      gtk_box_append(GTK_BOX(content), impl.imageWidget(s.imageName, {16, 16}));
      if (s.label.length() > 0) gtk_box_append(GTK_BOX(content), gtk_label_new(utf8(s.label).c_str()));
      gtk_button_set_child(GTK_BUTTON(b), content);
      gtk_widget_add_css_class(b, "tq-image");
    } else {
      gtk_button_set_label(GTK_BUTTON(b), utf8(s.label).c_str());
      applyFont(b, cell->font());
    }
    if (!s.toolTip.isNil()) gtk_widget_set_tooltip_text(b, utf8(s.toolTip).c_str());
    gtk_widget_set_sensitive(b, s.enabled);
    if (s.width > 0) {
      gtk_widget_set_size_request(b, static_cast<int>(s.width), -1);
    } else {
      gtk_widget_set_hexpand(b, TRUE);
    }
    if (!momentary) {
      if (any) g_object_set_data(G_OBJECT(b), "tq-any", b);
      if (!any) {
        if (first) gtk_toggle_button_set_group(GTK_TOGGLE_BUTTON(b), GTK_TOGGLE_BUTTON(first));
        else first = b;
      }
      gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(b), s.selected);
      g_signal_connect(b, "toggled", G_CALLBACK(+[](GtkWidget* w, gpointer) {
                         auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(w), "tq-link"));
                         if (!l || l->impl->pushing) return;
                         auto* c = static_cast<SegmentedControl*>(l->view);
                         const bool active = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(w));
                         if (auto sc = c->segmentedCell(); sc && l->index < sc->segmentCount()) {
                           sc->segments()[static_cast<std::size_t>(l->index)].selected = active;
                         }
                         const bool any = g_object_get_data(G_OBJECT(w), "tq-any") != nullptr;
                         if (active || any) {
                           l->impl->controlActed(*c);
                         }
                       }),
                       nullptr);
    } else {
      g_signal_connect(b, "clicked", G_CALLBACK(onClicked), nullptr);
    }
    link(b, &impl, &control, i);
    gtk_box_append(GTK_BOX(box), b);
    buttons.push_back(b);
  }
  SegmentedControl* c = &control;
  std::vector<Segment> shown = cell->segments();
  impl.addSyncer([c, buttons, shown]() mutable {
    auto sc = c->segmentedCell();
    if (!sc) return false;
    bool changed = false;
    const auto& now = sc->segments();
    for (std::size_t i = 0; i < buttons.size() && i < now.size() && i < shown.size(); ++i) {
      if (!(now[i].label == shown[i].label)) {
        labelSet(buttons[i], now[i].label);
        changed = true;
      }
      if (now[i].selected != shown[i].selected && GTK_IS_TOGGLE_BUTTON(buttons[i])) {
        gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(buttons[i]), now[i].selected);
        changed = true;
      }
      if (now[i].enabled != shown[i].enabled) {
        gtk_widget_set_sensitive(buttons[i], now[i].enabled);
        changed = true;
      }
    }
    shown = now;
    return changed;
  });
  return box;
}

// --- sliders, steppers and indicators -----------------------------------------------------------------

double clampTo(double v, double lo, double hi) { return hi > lo ? std::clamp(v, lo, hi) : v; }

GtkWidget* buildSlider(GtkPresenter::Impl& impl, Control& control) {
  const Cell& cell = *control.cell();
  const Rect f = control.frame();
  const bool horizontal = f.w >= f.h;
  const double lo = cell.minValue(), hi = cell.maxValue() > cell.minValue() ? cell.maxValue() : cell.minValue() + 1;
  GtkWidget* scale = gtk_scale_new_with_range(horizontal ? GTK_ORIENTATION_HORIZONTAL : GTK_ORIENTATION_VERTICAL, lo,
                                              hi, (hi - lo) / 100);
  gtk_scale_set_draw_value(GTK_SCALE(scale), FALSE);
  if (!horizontal) gtk_range_set_inverted(GTK_RANGE(scale), TRUE);
  gtk_range_set_value(GTK_RANGE(scale), cell.doubleValue());
  for (long i = 0; i < cell.numberOfTickMarks() && cell.numberOfTickMarks() > 1; ++i) {
    gtk_scale_add_mark(GTK_SCALE(scale), lo + (hi - lo) * i / (cell.numberOfTickMarks() - 1),
                       horizontal ? GTK_POS_BOTTOM : GTK_POS_RIGHT, nullptr);
  }
  link(scale, &impl, &control);
  g_signal_connect(scale, "value-changed", G_CALLBACK(+[](GtkRange* range, gpointer) {
                     auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(range), "tq-link"));
                     if (!l || l->impl->pushing) return;
                     auto* c = static_cast<Control*>(l->view);
                     c->cell()->setDoubleValue(gtk_range_get_value(range));
                     l->impl->controlActed(*c);
                   }),
                   nullptr);
  Control* c = &control;
  double shown = cell.doubleValue();
  impl.addSyncer([c, scale, shown]() mutable {
    if (!c->cell() || c->cell()->doubleValue() == shown) return false;
    shown = c->cell()->doubleValue();
    gtk_range_set_value(GTK_RANGE(scale), shown);
    return true;
  });
  return scale;
}

GtkWidget* buildStepper(GtkPresenter::Impl& impl, Control& control) {
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_box_set_homogeneous(GTK_BOX(box), TRUE);
  gtk_widget_add_css_class(box, "linked");
  for (int step : {+1, -1}) {
    GtkWidget* b = gtk_button_new_from_icon_name(step > 0 ? "pan-up-symbolic" : "pan-down-symbolic");
    gtk_widget_add_css_class(b, "tq-stepper");
    link(b, &impl, &control, step);
    g_signal_connect(b, "clicked", G_CALLBACK(+[](GtkWidget* w, gpointer) {
                       auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(w), "tq-link"));
                       if (!l) return;
                       auto* c = static_cast<Control*>(l->view);
                       Cell& cell = *c->cell();
                       cell.setDoubleValue(clampTo(cell.doubleValue() + static_cast<double>(l->index), cell.minValue(),
                                                   cell.maxValue()));
                       l->impl->controlActed(*c);
                     }),
                     nullptr);
    gtk_box_append(GTK_BOX(box), b);
  }
  return box;
}

GtkWidget* buildLevel(GtkPresenter::Impl& impl, Control& control) {
  const Cell& cell = *control.cell();
  GtkWidget* bar = gtk_level_bar_new_for_interval(cell.minValue(), std::max(cell.maxValue(), cell.minValue() + 1));
  if (cell.controlStyle() == String(u"discreteCapacity")) gtk_level_bar_set_mode(GTK_LEVEL_BAR(bar), GTK_LEVEL_BAR_MODE_DISCRETE);
  gtk_level_bar_set_value(GTK_LEVEL_BAR(bar), clampTo(cell.doubleValue(), cell.minValue(), cell.maxValue()));
  gtk_widget_set_valign(bar, GTK_ALIGN_CENTER);
  Control* c = &control;
  double shown = cell.doubleValue();
  impl.addSyncer([c, bar, shown]() mutable {
    if (c->cell()->doubleValue() == shown) return false;
    shown = c->cell()->doubleValue();
    gtk_level_bar_set_value(GTK_LEVEL_BAR(bar), clampTo(shown, c->cell()->minValue(), c->cell()->maxValue()));
    return true;
  });
  return bar;
}

GtkWidget* buildProgress(GtkPresenter::Impl& impl, ProgressIndicator& indicator) {
  if (indicator.style() == ProgressIndicator::Style::Spinning) {
    GtkWidget* spinner = gtk_spinner_new();
    gtk_widget_set_opacity(spinner, indicator.isDisplayedWhenStopped() ? 1.0 : 0.0);
    return spinner;
  }
  GtkWidget* bar = gtk_progress_bar_new();
  gtk_widget_set_valign(bar, GTK_ALIGN_CENTER);
  auto fraction = [](const ProgressIndicator& p) {
    const double span = p.maxValue() - p.minValue();
    return span > 0 ? std::clamp((p.doubleValue() - p.minValue()) / span, 0.0, 1.0) : 0.0;
  };
  if (indicator.isIndeterminate()) {
    gtk_progress_bar_pulse(GTK_PROGRESS_BAR(bar));
  } else {
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(bar), fraction(indicator));
  }
  ProgressIndicator* p = &indicator;
  double shown = indicator.doubleValue();
  impl.addSyncer([p, bar, shown, fraction]() mutable {
    if (p->doubleValue() == shown || p->isIndeterminate()) return false;
    shown = p->doubleValue();
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(bar), fraction(*p));
    return true;
  });
  return bar;
}

// --- text views ---------------------------------------------------------------------------------------

GtkWidget* buildTextView(GtkPresenter::Impl& impl, TextView& view) {
  GtkWidget* text = gtk_text_view_new();
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(text));
  gtk_text_buffer_set_text(buffer, utf8(view.string()).c_str(), -1);
  gtk_text_view_set_editable(GTK_TEXT_VIEW(text), view.isEditable());
  gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(text), GTK_WRAP_WORD_CHAR);
  link(text, &impl, &view);
  g_signal_connect(buffer, "changed", G_CALLBACK(+[](GtkTextBuffer* b, gpointer data) {
                     auto* l = static_cast<Link*>(g_object_get_data(G_OBJECT(data), "tq-link"));
                     if (!l || l->impl->pushing) return;
                     GtkTextIter start;
                     GtkTextIter end;
                     gtk_text_buffer_get_bounds(b, &start, &end);
                     char* all = gtk_text_buffer_get_text(b, &start, &end, FALSE);
                     static_cast<TextView*>(l->view)->setString(String::fromUTF8(all));
                     g_free(all);
                   }),
                   text);
  TextView* v = &view;
  String shown = view.string();
  impl.addSyncer([v, buffer, shown]() mutable {
    if (v->string() == shown) return false;
    shown = v->string();
    gtk_text_buffer_set_text(buffer, utf8(shown).c_str(), -1);
    return true;
  });
  return text;
}

}  // namespace

GtkWidget* GtkPresenter::Impl::buildControl(View& view) {
  if (auto* popup = dynamic_cast<PopUpButton*>(&view)) return buildPopUp(*this, *popup);
  if (auto* button = dynamic_cast<Button*>(&view)) return buildButton(*this, *button);
  if (auto* field = dynamic_cast<TextField*>(&view)) return buildTextField(*this, *field);
  if (auto* segmented = dynamic_cast<SegmentedControl*>(&view)) return buildSegmented(*this, *segmented);
  if (auto* progress = dynamic_cast<ProgressIndicator*>(&view)) return buildProgress(*this, *progress);
  if (auto* text = dynamic_cast<TextView*>(&view)) return buildTextView(*this, *text);
  if (auto* image = dynamic_cast<ImageView*>(&view)) {
    if (image->imageName().isNil()) return gtk_picture_new();
    GtkWidget* w = imageWidget(image->imageName(), image->frame().size());
    gtk_widget_set_halign(w, GTK_ALIGN_FILL);
    gtk_widget_set_valign(w, GTK_ALIGN_FILL);
    return w;
  }
  auto* control = dynamic_cast<Control*>(&view);
  if (!control || !control->cell()) return nullptr;
  const String name = view.className();
  const String style = control->cell()->controlStyle();
  if (name == String(u"NSSlider") && style != String(u"circular")) return buildSlider(*this, *control);
  if (name == String(u"NSStepper")) return buildStepper(*this, *control);
  if (name == String(u"NSLevelIndicator") &&
      (style.isNil() || style == String(u"continuousCapacity") || style == String(u"discreteCapacity"))) {
    return buildLevel(*this, *control);
  }
  if (name == String(u"NSDatePicker") && style == String(u"clockAndCalendar")) return gtk_calendar_new();
  return nullptr;
}

}  // namespace tq
