// The localizer's walk over windows, view trees, controls, binding placeholders and menus.
#include "tq/interface/tq_localizer.h"

#include <typeinfo>
#include <utility>
#include <vector>

#include "tq/interface/button_extensions.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"

namespace tq {

namespace {

// The binding names and table names the walk asks for, made once.
const String& bindingName(int which) {
  static const String names[] = {u"value", u"content", u"contentValues", u"displayPatternValue1",
                                 u"displayPatternValue2", u"title"};
  return names[which];
}
enum BindingNames { kValue, kContent, kContentValues, kDisplayPatternValue1, kDisplayPatternValue2, kTitle };

const String& defaultTable() {
  static const String name = u"default";
  return name;
}

// The branch of the walk a subview takes: the first of these kinds it is, and whether it is a
// control (binding placeholders).
enum class Kind : unsigned char { PopUpButton, Button, Box, Matrix, TabView, TextField, TableView, SegmentedControl, Other };
struct Branch {
  Kind kind = Kind::Other;
  bool control = false;
};

Branch branchOf(View* view) {
  Branch b;
  b.control = dynamic_cast<Control*>(view) != nullptr;
  if (auto* button = dynamic_cast<Button*>(view)) {
    b.kind = dynamic_cast<PopUpButton*>(button) ? Kind::PopUpButton : Kind::Button;
  } else if (dynamic_cast<Box*>(view)) {
    b.kind = Kind::Box;
  } else if (dynamic_cast<Matrix*>(view)) {
    b.kind = Kind::Matrix;
  } else if (dynamic_cast<TabView*>(view)) {
    b.kind = Kind::TabView;
  } else if (dynamic_cast<TextField*>(view)) {
    b.kind = Kind::TextField;
  } else if (dynamic_cast<TableView*>(view)) {
    b.kind = Kind::TableView;
  } else if (dynamic_cast<SegmentedControl*>(view)) {
    b.kind = Kind::SegmentedControl;
  }
  return b;
}

// The branch depends on the dynamic class alone, so it is worked out once per class: an interface
// has a few dozen classes and hundreds of views. Walks run on the interface thread; the table is
// per thread all the same, so walks on other threads stay safe.
Branch cachedBranchOf(View* view) {
  thread_local std::vector<std::pair<const std::type_info*, Branch>> known;
  const std::type_info* type = &typeid(*view);
  for (const auto& [t, b] : known) {
    if (t == type) return b;
  }
  const Branch b = branchOf(view);
  known.emplace_back(type, b);
  return b;
}

}  // namespace

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
  return bundle->localizedStringForKey(key, String::empty(), table.isNil() ? defaultTable() : table);
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
  if (binder->className().view() == u"NSDisplayPatternBinder") {
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

    const Branch branch = cachedBranchOf(subview);
    if (branch.control) {
      auto* control = static_cast<Control*>(subview);
      if (!localizePlaceholdersForObject(control, bindingName(kValue))) {
        localizePlaceholdersForObject(control, bindingName(kContent));
        localizePlaceholdersForObject(control, bindingName(kContentValues));
        if (localizePlaceholdersForObject(control, bindingName(kDisplayPatternValue1))) {
          localizePlaceholdersForObject(control, bindingName(kDisplayPatternValue2));
        }
      }
    }

    // Each kind was found by dynamic_cast on this very class, so the downcasts below are exact.
    bool descend = true;
    switch (branch.kind) {
      case Kind::PopUpButton:
        if (auto menu = static_cast<PopUpButton*>(subview)->menu()) {
          for (const auto& item : menu->itemArray()) item->setTitle(localizedString(item->title()));
        }
        break;
      case Kind::Button: {
        auto* button = static_cast<Button*>(subview);
        if (button->imagePosition() != NSImageOnly) {
          button->setTitle(localizedString(button->title()));
          button->setAlternateTitle(localizedString(button->alternateTitle()));
          // Check boxes grow or shrink to their new title; other buttons keep their frames.
          if (isSwitchButton(button)) button->sizeToFit();
        }
        break;
      }
      case Kind::Box: {
        auto* box = static_cast<Box*>(subview);
        box->setTitle(localizedString(box->title()));
        break;
      }
      case Kind::Matrix: {
        auto* matrix = static_cast<Matrix*>(subview);
        for (const auto& cell : matrix->cells()) {
          if (!cell) continue;
          cell->setTitle(localizedString(cell->title()));
          if (auto* buttonCell = dynamic_cast<ButtonCell*>(cell.get())) {
            buttonCell->setAlternateTitle(localizedString(buttonCell->alternateTitle()));
          }
        }
        // The titles changed: let the matrix work its cell size out again.
        matrix->setValidateSize(false);
        break;
      }
      case Kind::TabView:
        for (const auto& item : static_cast<TabView*>(subview)->tabViewItems()) {
          if (!item) continue;
          item->setLabel(localizedString(item->label()));
          localizeView(item->view().get());
        }
        // The selected item's view is also a subview: it has been walked through its item.
        descend = false;
        break;
      case Kind::TextField: {
        auto* textField = static_cast<TextField*>(subview);
        textField->setStringValue(localizedString(textField->stringValue()));
        if (auto cell = textField->textFieldCell()) {
          cell->setPlaceholderString(localizedString(cell->placeholderString()));
        }
        break;
      }
      case Kind::TableView:
        for (const auto& column : static_cast<TableView*>(subview)->tableColumns()) {
          if (!column) continue;
          if (const auto& header = column->headerCell()) header->setStringValue(localizedString(header->stringValue()));
          if (auto* withMenu = dynamic_cast<HasMenu*>(column->dataCell().get())) {
            if (auto menu = withMenu->menu()) {
              for (const auto& item : menu->itemArray()) item->setTitle(localizedString(item->title()));
            }
          }
        }
        break;
      case Kind::SegmentedControl: {
        auto* segmented = static_cast<SegmentedControl*>(subview);
        const long segments = segmented->segmentCount();
        for (long s = 0; s < segments; ++s) segmented->setLabel(localizedString(segmented->labelForSegment(s)), s);
        break;
      }
      case Kind::Other:
        break;
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
    localizePlaceholdersForObject(item, bindingName(kTitle));
    item->setTitle(class_->localize(item->title(), table, bundle));
    if (const auto& submenu = item->submenu()) recursiveLocalizer(submenu.get(), table, bundle);
  }

  if (suspended) menu->setMenuChangedMessagesEnabled(true);
}

}  // namespace tq
