// Fuzz target: the interface document reader must report or build, never crash, leak or hang, for
// any bytes. Built documents are walked to touch what was made.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace {

std::size_t walk(const tq::View* view) {
  if (!view) return 0;
  std::size_t n = 1;
  for (const auto& sub : view->subviews()) n += walk(sub.get());
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tq::NibLoadOptions options;
  auto owner = std::make_shared<tq::GenericObject>();
  options.owner = owner;
  tq::NibReadResult result =
      tq::readNibData(std::string_view(reinterpret_cast<const char*>(data), size), options);
  if (!result) return 0;
  std::size_t views = 0;
  for (const auto& object : result.nib().topLevelObjects()) {
    if (auto* window = dynamic_cast<tq::Window*>(object.get())) views += walk(window->contentView().get());
    if (auto* view = dynamic_cast<tq::View*>(object.get())) views += walk(view);
    if (auto* bound = dynamic_cast<tq::InterfaceObject*>(object.get())) {
      for (const auto& binder : bound->binders()) views += binder->bindingInfos().size();
    }
  }
  return views > 0 ? 0 : 0;
}
