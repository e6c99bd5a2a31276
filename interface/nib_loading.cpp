// Nib loading from the bundle of the owner's code.
#include "tq/interface/nib_loading.h"

#include <sys/stat.h>

#include <typeinfo>

#include "tq/platform/bundle/bundle.h"
#include "tq/platform/fs/file_manager.h"
#include "tq/platform/ui/nib_reader.h"

namespace tq {

namespace {

// The interface document for a located nib: a nib folder carries its XML as designable.nib.
std::string documentPath(const String& path) {
  std::string file = FileManager::fileSystemRepresentation(path);
  struct stat st {};
  if (::stat(file.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return file + "/designable.nib";
  return file;
}

}  // namespace

std::vector<std::shared_ptr<Object>> loadNibWithName(const String& name, const std::shared_ptr<Object>& owner) {
  std::vector<std::shared_ptr<Object>> topLevelObjects;
  if (!owner) return topLevelObjects;
  const Object& ownerObject = *owner;
  std::shared_ptr<Bundle> bundle = Bundle::bundleForClass(typeid(ownerObject));
  if (!bundle || name.length() == 0) return topLevelObjects;
  String path = bundle->pathForResource(name, u"nib");
  if (path.isNil()) path = bundle->pathForResource(name, u"xib");
  if (path.isNil()) return topLevelObjects;

  NibLoadOptions options;
  options.owner = owner;
  NibReadResult result = readNibFile(documentPath(path), options);
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
