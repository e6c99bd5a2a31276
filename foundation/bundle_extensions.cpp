#include "tq/foundation/bundle_extensions.h"

#include "tq/platform/fs/file_manager.h"

namespace tq {

std::set<String> allResourcesForLocalization(const Bundle& bundle, const String& localization) {
  std::set<String> resources;
  FileManager& manager = FileManager::defaultManager();
  String resourcePath = bundle.resourcePath();
  const String lproj = u"lproj";
  for (const Value& entry : manager.directoryContentsAtPath(resourcePath)) {
    String name = entry.stringValue();
    if (!name.pathExtension().isEqual(lproj)) resources.insert(name);
  }
  // A nil or empty localization names no folder (and must not fall back to listing the resource
  // directory again, which would add the other localizations' folders).
  if (localization.length() == 0) return resources;
  String folder = localization.stringByAppendingPathExtension(lproj);
  for (const Value& entry : manager.directoryContentsAtPath(resourcePath.stringByAppendingPathComponent(folder))) {
    resources.insert(folder.stringByAppendingPathComponent(entry.stringValue()));
  }
  return resources;
}

}  // namespace tq
