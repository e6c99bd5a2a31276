// Shared by the interface fuzz targets: reads bytes as an interface and walks what was built, so
// that every object made is touched (views, cells, menus, toolbars, bindings).
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/control.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/menu.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace tq::fuzz {

inline std::size_t walk(const Object* o, int depth = 0) {
  if (!o || depth > 400) return 0;
  std::size_t n = 1;
  if (auto* w = dynamic_cast<const Window*>(o)) n += walk(w->contentView().get(), depth + 1) + walk(w->toolbar().get(), depth + 1);
  if (auto* v = dynamic_cast<const View*>(o)) {
    for (const auto& sub : v->subviews()) n += walk(sub.get(), depth + 1);
  }
  if (auto* c = dynamic_cast<const Control*>(o)) n += walk(c->cell().get(), depth + 1) + c->stringValue().length();
  if (auto* m = dynamic_cast<const Menu*>(o)) {
    for (const auto& item : m->itemArray()) n += walk(item.get(), depth + 1);
  }
  if (auto* i = dynamic_cast<const MenuItem*>(o)) n += walk(i->submenu().get(), depth + 1) + i->title().length();
  if (auto* t = dynamic_cast<const Toolbar*>(o)) {
    for (const auto& item : t->allowedItems()) n += walk(item->view().get(), depth + 1) + item->label().length();
  }
  if (auto* b = dynamic_cast<const InterfaceObject*>(o)) {
    for (const auto& binder : b->binders()) n += binder->bindingInfos().size();
  }
  return n;
}

inline std::size_t readAndWalk(std::string_view bytes) {
  NibLoadOptions options;
  options.owner = std::make_shared<GenericObject>();
  NibReadResult result = readNibData(bytes, options);
  if (!result) return result.error().reason.size();
  std::size_t n = 0;
  for (const auto& object : result.nib().topLevelObjects()) n += walk(object.get());
  for (const auto& c : result.nib().connections()) n += c.label.length();
  return n;
}

}  // namespace tq::fuzz
