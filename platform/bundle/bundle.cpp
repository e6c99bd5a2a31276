// Bundle: layout, Info.plist, the bundle registry, localizations, resource search and strings tables.
#include "tq/platform/bundle/bundle.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <string>
#include <unordered_map>

#include "tq/platform/bundle/strings_table.h"
#include "tq/platform/fs/file_manager.h"
#include "tq/platform/fs/regular_file.h"
#include "plist_reader.h"

namespace tq {
namespace {

// Paths cross to and from the system through the file manager's byte-exact conversion.
std::string systemPath(const String& path) { return FileManager::fileSystemRepresentation(path); }
String pathString(const std::string& bytes) { return FileManager::stringWithFileSystemRepresentation(bytes); }

bool isDirectory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

std::string realPath(const std::string& path) {
  char buffer[PATH_MAX];
  if (::realpath(path.c_str(), buffer)) return buffer;
  return path;
}

std::string absolutePath(const std::string& path) {
  if (path.empty() || path[0] == '/') return path;
  char cwd[PATH_MAX];
  if (!::getcwd(cwd, sizeof cwd)) return path;
  return std::string(cwd) + "/" + path;
}

std::string parentOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string executablePath() { return realPath("/proc/self/exe"); }

// Reads a regular file of at most kStringsTableMaxBytes. A FIFO, a device or a larger file (a link
// planted in a bundle can name /dev/zero) reads as missing: no wait, no unbounded read.
bool readFile(const std::string& path, std::string& out) {
  RegularFileRead read = readRegularFile(path, kStringsTableMaxBytes);
  if (read) out = std::move(read.bytes);
  return read.ok;
}

Dictionary readInfoPlist(const std::string& path) {
  std::string bytes;
  if (!readFile(path, bytes)) return Dictionary::empty();
  Dictionary info =
      detail::readPropertyList(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())).value.dictionaryValue();
  return info ? info : Dictionary::empty();
}

// --- language matching ---------------------------------------------------------------------------

struct LegacyName {
  const char* name;
  const char* code;
};
constexpr LegacyName kLegacyNames[] = {
    {"english", "en"},  {"french", "fr"},    {"german", "de"},     {"japanese", "ja"},  {"spanish", "es"},
    {"italian", "it"},  {"dutch", "nl"},     {"swedish", "sv"},    {"danish", "da"},    {"norwegian", "nb"},
    {"finnish", "fi"},  {"portuguese", "pt"}, {"russian", "ru"},   {"korean", "ko"},    {"chinese", "zh"},
    {"polish", "pl"},   {"czech", "cs"},     {"hungarian", "hu"},  {"turkish", "tr"},   {"greek", "el"},
    {"arabic", "ar"},   {"hebrew", "he"},
};

// Lower case, "-" as "_", encoding (".UTF-8") and modifier ("@euro") removed.
std::string normalizeLanguage(const String& name) {
  std::string s = name.UTF8String();
  auto cut = s.find_first_of(".@");
  if (cut != std::string::npos) s.resize(cut);
  for (char& c : s) {
    if (c == '-') c = '_';
    else if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return s;
}

// The normalized names a language matches, best first.
std::vector<std::string> matchNames(const std::string& language) {
  std::vector<std::string> names;
  auto add = [&](const std::string& n) {
    if (!n.empty() && std::find(names.begin(), names.end(), n) == names.end()) names.push_back(n);
  };
  add(language);
  std::string code = language;
  for (const auto& legacy : kLegacyNames) {
    if (language == legacy.name) code = legacy.code;
  }
  add(code);
  if (code == "zh_cn" || code == "zh_sg") add("zh_hans");
  if (code == "zh_tw" || code == "zh_hk" || code == "zh_mo") add("zh_hant");
  auto underscore = code.find('_');
  std::string base = underscore == std::string::npos ? code : code.substr(0, underscore);
  add(base);
  if (base == "nb" || base == "no") {
    add("nb");
    add("no");
  }
  for (const auto& legacy : kLegacyNames) {
    if (base == legacy.code) add(legacy.name);
  }
  if (base == "no") add("norwegian");
  return names;
}

// The extensions of every image format gdk-pixbuf reads, the usual ones first. The library is
// opened here, at the first image lookup, rather than linked: it brings GObject, GIO and the image
// codecs, which a process that never looks for an image should not load at its start. Without it
// the usual extensions alone are tried.
const std::vector<String>& imageTypes() {
  static const std::vector<String> types = [] {
    static constexpr const char* kUsual[] = {"png", "tiff", "tif", "jpg", "jpeg", "gif", "bmp", "ico"};
    std::vector<std::string> found;
    if (void* pixbuf = ::dlopen("libgdk_pixbuf-2.0.so.0", RTLD_LAZY | RTLD_LOCAL)) {
      using Formats = void* (*)();                // GSList* gdk_pixbuf_get_formats(void)
      using Extensions = char** (*)(void*);       // gchar** gdk_pixbuf_format_get_extensions(GdkPixbufFormat*)
      using FreeStrings = void (*)(char**);       // g_strfreev
      using FreeList = void (*)(void*);           // g_slist_free
      struct List {                               // GSList
        void* data;
        List* next;
      };
      auto formats = reinterpret_cast<Formats>(::dlsym(pixbuf, "gdk_pixbuf_get_formats"));
      auto extensions = reinterpret_cast<Extensions>(::dlsym(pixbuf, "gdk_pixbuf_format_get_extensions"));
      auto freeStrings = reinterpret_cast<FreeStrings>(::dlsym(pixbuf, "g_strfreev"));
      auto freeList = reinterpret_cast<FreeList>(::dlsym(pixbuf, "g_slist_free"));
      if (formats && extensions && freeStrings && freeList) {
        auto* list = static_cast<List*>(formats());
        for (List* f = list; f; f = f->next) {
          char** names = extensions(f->data);
          for (char** e = names; e && *e; ++e) found.emplace_back(*e);
          freeStrings(names);
        }
        freeList(list);
      }
    }
    if (found.empty()) found.assign(std::begin(kUsual), std::end(kUsual));
    std::vector<String> ordered;
    for (const char* preferred : kUsual) {
      if (std::find(found.begin(), found.end(), preferred) != found.end()) ordered.push_back(String::fromUTF8(preferred));
    }
    for (const auto& e : found) {
      String s = String::fromUTF8(e);
      if (std::find(ordered.begin(), ordered.end(), s) == ordered.end()) ordered.push_back(s);
    }
    return ordered;
  }();
  return types;
}

// --- registry ---------------------------------------------------------------------------------------

struct Registry {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<Bundle>> byPath;  // real path -> bundle
  std::map<std::string, std::string> libraries;          // real library path -> bundle folder
  std::shared_ptr<Bundle> main;
  std::string mainPath;  // named by the host
};

Registry& registry() {
  static Registry* r = new Registry;  // lives to the end of the process, with every bundle in it
  return *r;
}

std::shared_ptr<Bundle> openLocked(Registry& r, const std::string& path) {
  std::string absolute = absolutePath(path);
  if (!isDirectory(absolute)) return nullptr;
  std::string key = realPath(absolute);
  auto it = r.byPath.find(key);
  if (it != r.byPath.end()) return it->second;
  auto bundle = std::make_shared<Bundle>(pathString(absolute));
  r.byPath.emplace(key, bundle);
  return bundle;
}

std::string defaultMainPath() {
  std::string folder = parentOf(executablePath());
  if (nameOf(folder) == "MacOS" && nameOf(parentOf(folder)) == "Contents") return parentOf(parentOf(folder));
  return folder;
}

std::shared_ptr<Bundle> mainLocked(Registry& r) {
  if (!r.main) {
    std::string path = r.mainPath.empty() ? defaultMainPath() : r.mainPath;
    r.main = openLocked(r, path);
    if (!r.main) r.main = openLocked(r, defaultMainPath());
  }
  return r.main;
}

}  // namespace

// --- the cache of computed values --------------------------------------------------------------------

struct Bundle::Cache {
  std::once_flag localizationsOnce;
  std::vector<String> localizations;
  std::once_flag preferredOnce;
  std::vector<String> preferred;
  std::vector<String> search;  // preferred + Base
  std::shared_mutex tablesMutex;
  std::unordered_map<std::u16string, Dictionary> tables;  // "table\0localization" -> table or nil
};

Bundle::Bundle(const String& path) : cache_(std::make_unique<Cache>()) {
  std::string root = absolutePath(systemPath(path));
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  bundlePath_ = pathString(root);
  std::string resources = root;
  for (const char* candidate : {"/Contents/Resources", "/Versions/Current/Resources", "/Resources"}) {
    if (isDirectory(root + candidate)) {
      resources = root + candidate;
      break;
    }
  }
  if (resources == root && isDirectory(root + "/Versions")) {
    // A framework copied without its Current link: the highest version that has resources.
    std::vector<std::string> versions;
    for (const Value& entry : FileManager::defaultManager().directoryContentsAtPath(pathString(root + "/Versions"))) {
      const std::string version = FileManager::fileSystemRepresentation(entry.stringValue());
      if (isDirectory(root + "/Versions/" + version + "/Resources")) versions.push_back(version);
    }
    if (!versions.empty()) resources = root + "/Versions/" + *std::max_element(versions.begin(), versions.end()) + "/Resources";
  }
  resourcePath_ = pathString(resources);
  info_ = Dictionary::empty();
  for (const std::string& candidate : {root + "/Contents/Info.plist", root + "/Info.plist", resources + "/Info.plist"}) {
    if (exists(candidate)) {
      info_ = readInfoPlist(candidate);
      break;
    }
  }
}

Bundle::~Bundle() = default;

std::shared_ptr<Bundle> Bundle::mainBundle() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return mainLocked(r);
}

bool Bundle::setMainBundlePath(const String& path) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (r.main || path.isNil()) return false;
  r.mainPath = absolutePath(systemPath(path));
  return true;
}

std::shared_ptr<Bundle> Bundle::bundleWithPath(const String& path) {
  if (path.isNil() || path.length() == 0) return nullptr;
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return openLocked(r, systemPath(path));
}

std::shared_ptr<Bundle> Bundle::uncachedBundleWithPath(const String& path) {
  if (path.isNil() || path.length() == 0) return nullptr;
  std::string absolute = absolutePath(systemPath(path));
  if (!isDirectory(absolute)) return nullptr;
  return std::make_shared<Bundle>(pathString(absolute));
}

std::shared_ptr<Bundle> Bundle::bundleWithIdentifier(const String& identifier) {
  if (identifier.isNil()) return nullptr;
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  mainLocked(r);
  for (const auto& [path, bundle] : r.byPath) {
    if (bundle->bundleIdentifier() == identifier) return bundle;
  }
  return nullptr;
}

String Bundle::codePathForClass(const std::type_info& type) {
  Dl_info info{};
  if (::dladdr(static_cast<const void*>(&type), &info) == 0 || !info.dli_fname) return {};
  std::string file = info.dli_fname;
  // The executable may be reported by the name it was started with.
  if (file.empty() || file.find('/') == std::string::npos) file = executablePath();
  return pathString(realPath(file));
}

void Bundle::registerBundlePathForLibrary(const String& libraryPath, const String& bundlePath) {
  if (libraryPath.isNil() || bundlePath.isNil()) return;
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.libraries[realPath(absolutePath(systemPath(libraryPath)))] = absolutePath(systemPath(bundlePath));
}

std::shared_ptr<Bundle> Bundle::bundleForClass(const std::type_info& type) {
  String code = codePathForClass(type);
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  if (code.isNil()) return mainLocked(r);
  std::string file = systemPath(code);
  if (file == executablePath()) return mainLocked(r);
  auto registered = r.libraries.find(file);
  if (registered != r.libraries.end()) {
    if (auto bundle = openLocked(r, registered->second)) return bundle;
  }
  for (std::string folder = parentOf(file); folder != "/" && folder != "."; folder = parentOf(folder)) {
    std::string name = nameOf(folder);
    for (const char* extension : {".app", ".framework", ".bundle", ".plugin"}) {
      if (name.size() > std::strlen(extension) && name.ends_with(extension)) return openLocked(r, folder);
    }
  }
  return mainLocked(r);
}

String Bundle::bundleIdentifier() const { return info_.objectForKey(u"CFBundleIdentifier").stringValue(); }

String Bundle::developmentLocalization() const {
  return info_.objectForKey(u"CFBundleDevelopmentRegion").stringValue();
}

std::vector<String> Bundle::localizations() const {
  std::call_once(cache_->localizationsOnce, [this] {
    std::vector<String> found;
    for (const Value& entry : FileManager::defaultManager().directoryContentsAtPath(resourcePath_)) {
      String name = entry.stringValue();
      if (name.pathExtension() == String(u"lproj") &&
          isDirectory(systemPath(resourcePath_.stringByAppendingPathComponent(name)))) {
        found.push_back(name.stringByDeletingPathExtension());
      }
    }
    std::sort(found.begin(), found.end());
    cache_->localizations = std::move(found);
  });
  return cache_->localizations;
}

std::vector<String> Bundle::userLanguages() {
  std::vector<String> languages;
  for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (!value || !*value) continue;
    std::string text = value;
    std::size_t start = 0;
    while (start <= text.size()) {
      std::size_t end = text.find(':', start);
      if (end == std::string::npos) end = text.size();
      std::string item = text.substr(start, end - start);
      std::string normalized = normalizeLanguage(String::fromUTF8(item));
      if (!item.empty() && normalized != "c" && normalized != "posix") languages.push_back(String::fromUTF8(item));
      start = end + 1;
    }
    // The first variable that is set decides, even when it names no language ("C").
    break;
  }
  return languages;
}

std::vector<String> Bundle::preferredLocalizationsFromArray(const std::vector<String>& localizations,
                                                            const std::vector<String>& languages) {
  std::vector<String> result;
  std::vector<std::string> normalized;
  for (const String& l : localizations) normalized.push_back(normalizeLanguage(l));
  for (const String& language : languages) {
    for (const std::string& name : matchNames(normalizeLanguage(language))) {
      for (std::size_t i = 0; i < localizations.size(); ++i) {
        if (normalized[i] == name && std::find(result.begin(), result.end(), localizations[i]) == result.end()) {
          result.push_back(localizations[i]);
        }
      }
    }
  }
  return result;
}

const std::vector<String>& Bundle::searchLocalizations() const {
  std::call_once(cache_->preferredOnce, [this] {
    std::vector<String> all = localizations();
    bool hasBase = false;
    std::vector<String> candidates;
    for (const String& l : all) {
      if (l == String(u"Base")) hasBase = true;
      else candidates.push_back(l);
    }
    std::vector<String> preferred = preferredLocalizationsFromArray(candidates, userLanguages());
    String development = developmentLocalization();
    if (development.isNil()) development = u"en";
    for (const String& l : preferredLocalizationsFromArray(candidates, {development})) {
      if (std::find(preferred.begin(), preferred.end(), l) == preferred.end()) preferred.push_back(l);
    }
    if (preferred.empty() && !candidates.empty()) preferred.push_back(candidates.front());
    cache_->preferred = preferred;
    cache_->search = preferred;
    if (hasBase) cache_->search.push_back(u"Base");
  });
  return cache_->search;
}

std::vector<String> Bundle::preferredLocalizations() const {
  searchLocalizations();
  return cache_->preferred;
}

String Bundle::findResource(const String& file, const String& directory,
                            const std::vector<String>& localizations) const {
  auto inside = [&](String folder) {
    if (directory.length() > 0) folder = folder.stringByAppendingPathComponent(directory);
    return folder.stringByAppendingPathComponent(file);
  };
  String path = inside(resourcePath_);
  if (exists(systemPath(path))) return path;
  for (const String& l : localizations) {
    path = inside(resourcePath_.stringByAppendingPathComponent(l.stringByAppendingPathExtension(u"lproj")));
    if (exists(systemPath(path))) return path;
  }
  return {};
}

namespace {
String resourceFileName(const String& name, const String& type) {
  if (type.length() == 0) return name;
  return name.stringByAppendingPathExtension(type);
}
}  // namespace

String Bundle::pathForResource(const String& name, const String& type) const {
  return pathForResource(name, type, String());
}

String Bundle::pathForResource(const String& name, const String& type, const String& directory) const {
  if (name.length() == 0) return {};
  return findResource(resourceFileName(name, type), directory, searchLocalizations());
}

String Bundle::pathForResource(const String& name, const String& type, const String& directory,
                               const String& localization) const {
  if (name.length() == 0) return {};
  std::vector<String> only;
  if (localization.length() > 0) only.push_back(localization);
  return findResource(resourceFileName(name, type), directory, only);
}

String Bundle::pathForNibResource(const String& name) const {
  if (name.length() == 0) return {};
  // Place by place, the compiled nib before the document, so that a localized copy of either form
  // wins over an unlocalized one only where the search order says so.
  const String nib = resourceFileName(name, u"nib"), xib = resourceFileName(name, u"xib");
  String path = resourcePath_.stringByAppendingPathComponent(nib);
  if (exists(FileManager::fileSystemRepresentation(path))) return path;
  path = resourcePath_.stringByAppendingPathComponent(xib);
  if (exists(FileManager::fileSystemRepresentation(path))) return path;
  for (const String& l : searchLocalizations()) {
    const String folder = resourcePath_.stringByAppendingPathComponent(l.stringByAppendingPathExtension(u"lproj"));
    for (const String& file : {nib, xib}) {
      path = folder.stringByAppendingPathComponent(file);
      if (exists(FileManager::fileSystemRepresentation(path))) return path;
    }
  }
  return {};
}

String Bundle::pathForImageResource(const String& name) const {
  if (name.length() == 0) return {};
  const auto& types = imageTypes();
  String extension = name.pathExtension();
  for (const String& t : types) {
    if (extension.length() > 0 && normalizeLanguage(extension) == normalizeLanguage(t)) {
      return pathForResource(name, String());
    }
  }
  for (const String& t : types) {
    String path = pathForResource(name, t);
    if (path) return path;
  }
  return {};
}

Dictionary Bundle::stringsTable(const String& table, const String& localization) const {
  String name = table.isNil() ? String(u"Localizable") : table;
  std::u16string key = name.u16string();
  key += u'\0';
  key += localization.view();
  {
    std::shared_lock lock(cache_->tablesMutex);
    auto it = cache_->tables.find(key);
    if (it != cache_->tables.end()) return it->second;
  }
  String folder = resourcePath_;
  if (localization.length() > 0) folder = folder.stringByAppendingPathComponent(localization.stringByAppendingPathExtension(u"lproj"));
  String path = folder.stringByAppendingPathComponent(name.stringByAppendingPathExtension(u"strings"));
  Dictionary parsed;
  std::string bytes;
  if (readFile(systemPath(path), bytes)) {
    parsed = dictionaryFromStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  }
  std::unique_lock lock(cache_->tablesMutex);
  return cache_->tables.try_emplace(std::move(key), parsed).first->second;
}

String Bundle::localizedStringForKey(const String& key, const String& value, const String& table) const {
  if (key.isNil()) return value.length() > 0 ? value : String::empty();
  for (const String& l : searchLocalizations()) {
    const Value& found = stringsTable(table, l).objectForKey(key);
    if (!found.isNil()) return found.stringValue();
  }
  const Value& found = stringsTable(table, String()).objectForKey(key);
  if (!found.isNil()) return found.stringValue();
  return value.length() > 0 ? value : key;
}

String Bundle::description() const {
  return String::fromUTF8("<Bundle: " + bundlePath_.UTF8String() + ">");
}

}  // namespace tq
