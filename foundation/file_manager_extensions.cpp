#include "tq/foundation/file_manager_extensions.h"

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace tq {
namespace {

// base + " " + number of at least two ASCII digits + ("." + extension when there is one).
String numberedName(const String& base, const String& extension, unsigned long long number) {
  MutableString out(base);
  out.appendCharacter(u' ');
  std::string digits = std::to_string(number);
  if (digits.size() < 2) digits.insert(0, 1, '0');
  out.appendASCII(digits);
  if (extension.length() > 0) {
    out.appendCharacter(u'.');
    out.appendString(extension);
  }
  return std::move(out).take();
}

}  // namespace

bool createDirectoriesAtPath(FileManager& manager, const String& path, const Dictionary& attributes) {
  std::vector<String> components = path.pathComponents();
  std::vector<String> prefix;
  prefix.reserve(components.size());
  for (const String& component : components) {
    prefix.push_back(component);
    String level = String::pathWithComponents(prefix);
    if (!manager.fileExistsAtPath(level)) {
      if (!manager.createDirectoryAtPath(level, attributes)) return false;
    }
  }
  return true;
}

String uniqueNameForFile(FileManager& manager, const String& path) {
  String base = path.stringByDeletingPathExtension();
  String extension = path.pathExtension();
  String candidate = path;
  unsigned long long number = 2;
  while (manager.fileExistsAtPath(candidate)) candidate = numberedName(base, extension, number++);
  return candidate;
}

Array uniqueNamesForFileNames(FileManager& manager, const Array& names, const String& folder) {
  struct PairHash {
    std::size_t operator()(const std::pair<String, String>& p) const noexcept {
      return p.first.hash() * 31u ^ p.second.hash();
    }
  };
  std::vector<Value> result;
  result.reserve(names.count());
  std::unordered_set<String> taken;
  taken.reserve(names.count());
  // Per base and extension: the lowest number not yet rejected in this call. Rejections only
  // accumulate (the result grows), so a rejected number stays rejected.
  std::unordered_map<std::pair<String, String>, unsigned long long, PairHash> nextNumber;

  auto isFree = [&](const String& candidate) {
    if (taken.count(candidate)) return false;
    return !manager.fileExistsAtPath(folder.stringByAppendingPathComponent(candidate));
  };

  for (const Value& value : names) {
    String name = value.stringValue();
    if (name.isNil()) name = String::empty();
    String candidate = name;
    if (!isFree(candidate)) {
      String base = name.stringByDeletingPathExtension();
      String extension = name.pathExtension();
      unsigned long long& number = nextNumber.try_emplace({base, extension}, 2).first->second;
      do {
        candidate = numberedName(base, extension, number++);
      } while (!isFree(candidate));
    }
    taken.insert(candidate);
    result.emplace_back(candidate);
  }
  return Array(std::move(result));
}

// The receiver is not used: the flag is read and written through the default manager.
void hideFileExtension(FileManager& /*receiver*/, bool hide, const String& path) {
  FileManager& manager = FileManager::defaultManager();
  MutableDictionary attributes(manager.fileAttributesAtPath(path, false));
  attributes.setObject(Value(hide), NSFileExtensionHidden);
  manager.changeFileAttributes(attributes.copy(), path);
}

// The receiver is not used: the folder is listed through the default manager.
Array filesStartingWithPath(FileManager& /*receiver*/, const String& prefix) {
  String folder = prefix.stringByDeletingLastPathComponent();
  Array entries = FileManager::defaultManager().directoryContentsAtPath(folder);
  std::vector<Value> kept;
  for (const Value& entry : entries) {
    String full = folder.stringByAppendingPathComponent(entry.stringValue());
    if (full.hasPrefix(prefix)) kept.emplace_back(full);
  }
  return Array(std::move(kept));
}

}  // namespace tq
