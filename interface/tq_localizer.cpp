// The localizer's walk over windows, view trees, controls, binding placeholders and menus.
#include "tq/interface/tq_localizer.h"

#include "tq/interface/button_extensions.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/box.h"
#include "tq/platform/ui/button.h"
#include "tq/platform/ui/matrix.h"
#include "tq/platform/ui/segmented_control.h"
#include "tq/platform/ui/tab_view.h"
#include "tq/platform/ui/table_view.h"
#include "tq/platform/ui/text_field.h"

namespace tq {

TQLocalizer::TQLocalizer(String table, std::shared_ptr<Bundle> bundle, const Class& ofClass)
    : _table(std::move(table)), _bundle(std::move(bundle)), class_(&ofClass) {}

const TQLocalizer::Class& TQLocalizer::classObject() {
  static const Class object;
  return object;
}

std::shared_ptr<TQLocalizer> TQLocalizer::Class::makeInstance(String table, std::shared_ptr<Bundle> bundle) const {
  return std::make_shared<TQLocalizer>(std::move(table), std::move(bundle), *this);
}

// --- lookups --------------------------------------------------------------------------------------

String TQLocalizer::Class::localize(const String& key, const String& table, const std::shared_ptr<Bundle>& bundle) const {
  if (!bundle) return String();
  return bundle->localizedStringForKey(key, String::empty(), table.isNil() ? String(u"default") : table);
}

// Both shorter forms go through the receiving class object, so that a subclass's lookup applies.
String TQLocalizer::Class::localize(const String& key, const String& table) const {
  return localize(key, table, Bundle::mainBundle());
}

String TQLocalizer::Class::localize(const String& key) const { return localize(key, String()); }

String TQLocalizer::localizedString(const String& string) const {
  // Empty strings are not keys: they come back as they are, nil included.
  if (string.length() == 0) return string;
  String key = string.stringByTrimmingCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet());
  if (!_bundle) return String();
  return _bundle->localizedStringForKey(key, String::empty(), _table);
}

// --- class entry points ---------------------------------------------------------------------------

void TQLocalizer::Class::localizeObjects(const std::vector<std::shared_ptr<Object>>& objects, const String& table,
                                         const std::shared_ptr<Bundle>& bundle) const {
  const auto localizer = makeInstance(table, bundle);
  for (const auto& object : objects) {
    if (auto* menu = dynamic_cast<Menu*>(object.get())) {
      localizer->recursiveLocalizer(menu, table, bundle);
    } else if (auto* window = dynamic_cast<Window*>(object.get())) {
      localizer->localizeWindow(window);
    } else if (auto* view = dynamic_cast<View*>(object.get())) {
      localizer->localizeView(view);
    }
  }
}

void TQLocalizer::Class::localizeWindow(Window* window, const String& table, const std::shared_ptr<Bundle>& bundle) const {
  makeInstance(table, bundle)->localizeWindow(window);
}

void TQLocalizer::Class::localizeView(View* view, const String& table, const std::shared_ptr<Bundle>& bundle) const {
  makeInstance(table, bundle)->localizeView(view);
}

void TQLocalizer::Class::localizeMenu(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) const {
  const String menuTable = table.isNil() ? String(u"LocalizableMenus") : table;
  makeInstance(menuTable, bundle)->recursiveLocalizer(menu, menuTable, bundle);
}

// --- the walk -------------------------------------------------------------------------------------

void TQLocalizer::localizeWindow(Window* window) const {
  if (!window) return;
  String title = localizedString(window->title());
  if (!title.isNil()) window->setTitle(title);
  localizeView(window->contentView().get());
}

bool TQLocalizer::localizePlaceholdersForObject(InterfaceObject* object, const String& binding) const {
  if (!object) return false;
  std::shared_ptr<Binder> binder = object->binderForBinding(binding);
  if (!binder) return false;
  if (binder->className().isEqual(u"NSDisplayPatternBinder")) {
    // The pattern is one key, value tokens and all.
    const String pattern = binder->valueForKey(u"displayPattern").stringValue();
    binder->setValue(Value(localizedString(pattern)), u"displayPattern");
  }
  static constexpr BindingMarker markers[] = {NSMultipleValuesMarker, NSNullMarker, NSNoSelectionMarker,
                                              NSNotApplicableMarker};
  for (const auto& info : binder->bindingInfos()) {
    for (BindingMarker marker : markers) {
      const Value placeholder = info->placeholderForMarker(marker);
      // Only strings are translated; numbers, images and other values stay.
      if (placeholder.isNil() || placeholder.type() != Value::Type::String) continue;
      info->setPlaceholder(Value(localizedString(placeholder.stringValue())), marker, false);
    }
  }
  return true;
}

void TQLocalizer::localizeView(View* view) const {
  if (!view) return;
  // The subviews as they are now: what the walk changes does not change what it visits.
  const std::vector<std::shared_ptr<View>> subviews = view->subviews();
  const std::size_t count = subviews.size();
  for (std::size_t i = 0; i < count; ++i) {
    View* subview = subviews[i].get();
    if (!subview) continue;

    if (auto* control = dynamic_cast<Control*>(subview)) {
      if (!localizePlaceholdersForObject(control, u"value")) {
        localizePlaceholdersForObject(control, u"content");
        localizePlaceholdersForObject(control, u"contentValues");
        if (localizePlaceholdersForObject(control, u"displayPatternValue1")) {
          localizePlaceholdersForObject(control, u"displayPatternValue2");
        }
      }
    }

    bool descend = true;
    if (auto* button = dynamic_cast<Button*>(subview)) {
      if (auto* popUp = dynamic_cast<PopUpButton*>(button)) {
        if (auto menu = popUp->menu()) {
          for (const auto& item : menu->itemArray()) item->setTitle(localizedString(item->title()));
        }
      } else if (button->imagePosition() != NSImageOnly) {
        button->setTitle(localizedString(button->title()));
        button->setAlternateTitle(localizedString(button->alternateTitle()));
        // Check boxes grow or shrink to their new title; other buttons keep their frames.
        if (isSwitchButton(button)) button->sizeToFit();
      }
    } else if (auto* box = dynamic_cast<Box*>(subview)) {
      box->setTitle(localizedString(box->title()));
    } else if (auto* matrix = dynamic_cast<Matrix*>(subview)) {
      for (const auto& cell : matrix->cells()) {
        if (!cell) continue;
        cell->setTitle(localizedString(cell->title()));
        if (auto* buttonCell = dynamic_cast<ButtonCell*>(cell.get())) {
          buttonCell->setAlternateTitle(localizedString(buttonCell->alternateTitle()));
        }
      }
      // The titles changed: let the matrix work its cell size out again.
      matrix->setValidateSize(false);
    } else if (auto* tabView = dynamic_cast<TabView*>(subview)) {
      for (const auto& item : tabView->tabViewItems()) {
        if (!item) continue;
        item->setLabel(localizedString(item->label()));
        localizeView(item->view().get());
      }
      // The selected item's view is also a subview: it has been walked through its item.
      descend = false;
    } else if (auto* textField = dynamic_cast<TextField*>(subview)) {
      textField->setStringValue(localizedString(textField->stringValue()));
      if (auto cell = textField->textFieldCell()) {
        cell->setPlaceholderString(localizedString(cell->placeholderString()));
      }
    } else if (auto* tableView = dynamic_cast<TableView*>(subview)) {
      for (const auto& column : tableView->tableColumns()) {
        if (!column) continue;
        if (const auto& header = column->headerCell()) header->setStringValue(localizedString(header->stringValue()));
        if (auto* withMenu = dynamic_cast<HasMenu*>(column->dataCell().get())) {
          if (auto menu = withMenu->menu()) {
            for (const auto& item : menu->itemArray()) item->setTitle(localizedString(item->title()));
          }
        }
      }
    } else if (auto* segmented = dynamic_cast<SegmentedControl*>(subview)) {
      const long segments = segmented->segmentCount();
      for (long s = 0; s < segments; ++s) segmented->setLabel(localizedString(segmented->labelForSegment(s)), s);
    }

    if (descend && !subview->subviews().empty()) localizeView(subview);
  }
}

void TQLocalizer::recursiveLocalizer(Menu* menu, const String& table, const std::shared_ptr<Bundle>& bundle) const {
  if (!menu) return;
  const std::vector<std::shared_ptr<MenuItem>> items = menu->itemArray();
  const std::size_t count = items.size();
  // One change report for the whole pass instead of one per title.
  const bool suspended = menu->menuChangedMessagesEnabled();
  if (suspended) menu->setMenuChangedMessagesEnabled(false);

  menu->setTitle(class_->localize(menu->title(), table, bundle));
  for (std::size_t i = 0; i < count; ++i) {
    MenuItem* item = items[i].get();
    if (!item) continue;
    localizePlaceholdersForObject(item, u"title");
    item->setTitle(class_->localize(item->title(), table, bundle));
    if (const auto& submenu = item->submenu()) recursiveLocalizer(submenu.get(), table, bundle);
  }

  if (suspended) menu->setMenuChangedMessagesEnabled(true);
}

}  // namespace tq
