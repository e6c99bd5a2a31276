// Controllers loaded from a bundle's storyboards.
#include "tq/interface/storyboard_loading.h"

#include <optional>

#include "tq/platform/fs/file_manager.h"
#include "tq/platform/ui/archive/storyboard_reader.h"

namespace tq {

String pathForStoryboardResource(const String& name, const std::shared_ptr<Bundle>& bundle) {
  const std::shared_ptr<Bundle> b = bundle ? bundle : Bundle::mainBundle();
  if (!b || name.length() == 0) return String();
  String path = b->pathForResource(name, u"storyboardc");
  if (path.isNil()) path = b->pathForResource(name, u"storyboard");
  return path;
}

namespace {

// The read storyboard, or nothing; the caller keeps what it takes and lets the rest go.
std::optional<StoryboardReadResult> read(const String& name, const std::shared_ptr<Bundle>& bundle) {
  const String path = pathForStoryboardResource(name, bundle);
  if (path.isNil()) return std::nullopt;
  StoryboardReadResult result = readStoryboardFile(FileManager::fileSystemRepresentation(path));
  if (!result) return std::nullopt;
  return result;
}

}  // namespace

std::shared_ptr<InterfaceObject> instantiateInitialController(const String& name, const std::shared_ptr<Bundle>& bundle) {
  auto storyboard = read(name, bundle);
  return storyboard ? storyboard->storyboard().initialController() : nullptr;
}

std::shared_ptr<InterfaceObject> instantiateControllerWithIdentifier(const String& name, const String& identifier,
                                                                     const std::shared_ptr<Bundle>& bundle) {
  auto storyboard = read(name, bundle);
  return storyboard ? storyboard->storyboard().controllerWithIdentifier(identifier) : nullptr;
}

}  // namespace tq
