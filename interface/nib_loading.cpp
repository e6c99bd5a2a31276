// Nib loading from the bundle of the owner's code.
#include "tq/interface/nib_loading.h"

#include <typeinfo>

#include "tq/platform/bundle/bundle.h"
#include "tq/platform/fs/file_manager.h"
#include "tq/platform/ui/archive/nib_reader.h"

namespace tq {

std::vector<std::shared_ptr<Object>> loadNibWithName(const String& name, const std::shared_ptr<Object>& owner) {
  std::vector<std::shared_ptr<Object>> topLevelObjects;
  if (!owner) return topLevelObjects;
  const Object& ownerObject = *owner;
  std::shared_ptr<Bundle> bundle = Bundle::bundleForClass(typeid(ownerObject));
  if (!bundle || name.length() == 0) return topLevelObjects;
  // NAME.nib (file or folder) or NAME.xib, localized copies by the user's languages.
  const String path = bundle->pathForNibResource(name);
  if (path.isNil()) return topLevelObjects;

  NibLoadOptions options;
  options.owner = owner;
  NibReadResult result = readNibFile(FileManager::fileSystemRepresentation(path), options);
  if (!result) return topLevelObjects;
  // The read result keeps no other hold on the objects: once it goes, the array alone owns them.
  topLevelObjects = result.nib().topLevelObjects();
  return topLevelObjects;
}

void loadNibWithName(const String& name, const std::shared_ptr<Object>& owner,
                     std::vector<std::shared_ptr<Object>>& array) {
  std::vector<std::shared_ptr<Object>> loaded = loadNibWithName(name, owner);
  array.insert(array.end(), loaded.begin(), loaded.end());
}

}  // namespace tq
