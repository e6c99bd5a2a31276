// Bundle: a folder of code and resources, with its Info.plist, localizations and strings tables.
//
// Layouts, tried in this order for the resource directory (resourcePath()):
//   PATH/Contents/Resources                   an application bundle copied from a Mac
//   PATH/Versions/Current/Resources           a framework (X.framework)
//   PATH/Resources
//   PATH itself                               a flat folder
// Info.plist (XML or binary) is read from PATH/Contents/Info.plist, PATH/Info.plist or the resource
// directory, the first that exists. Localized resources live in LANG.lproj folders of the resource
// directory ("de.lproj", "de_DE.lproj", "pt-BR.lproj", "German.lproj", "Base.lproj").
//
// Files of the bundle are outside input. Info.plist and strings tables are read only when they are
// regular files of at most kStringsTableMaxBytes (a link to a device or a FIFO is not followed into
// a read), with the limits of strings_table.h; one that is refused reads as missing: an empty
// infoDictionary(), a table without entries. Nothing the files hold can crash or hang the host.
//
// Bundles are shared: one object per folder (by its real path), created on first use and kept to
// the end of the process, so bundleWithIdentifier() finds every bundle opened so far.
//
// Threads: every method may be called from any thread. Info.plist is read when the bundle is made;
// the localizations, the preferred localizations and each strings table are computed once, on first
// use, and kept.
#pragma once

#include <memory>
#include <typeinfo>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class Bundle : public Object {
 public:
  // The application's bundle: the folder named by setMainBundlePath() if the host named one before
  // the first call, else the folder around the running executable (/proc/self/exe): the
  // executable's folder, or, for an executable in X.app/Contents/MacOS, X.app.
  static std::shared_ptr<Bundle> mainBundle();
  // Names the main bundle's folder. Only takes effect before the first mainBundle() call; answers
  // whether it did.
  static bool setMainBundlePath(const String& path);

  // The bundle of the folder at path; nil when path is not a folder.
  static std::shared_ptr<Bundle> bundleWithPath(const String& path);
  // A bundle of the folder at path as it is now, made afresh and kept nowhere: not the shared object
  // bundleWithPath() answers, not found by bundleWithIdentifier(), freed with the last reference.
  // For tools that inspect a folder that changes, or many folders in turn. nil when path is not a
  // folder.
  static std::shared_ptr<Bundle> uncachedBundleWithPath(const String& path);
  // A bundle already opened (main, by path or by class) whose identifier is id; nil otherwise.
  static std::shared_ptr<Bundle> bundleWithIdentifier(const String& identifier);

  // The bundle that holds the code of a class: the shared object or executable holding the class's
  // type information (dladdr) leads to
  //   - the folder registered for that file with registerBundlePathForLibrary(), else
  //   - the nearest enclosing folder named *.app, *.framework, *.bundle or *.plugin, else
  //   - the main bundle (the executable itself, and libraries installed outside any bundle).
  // For a class without virtual functions the compiler may copy the type information into every
  // object using it; give such a class a virtual destructor or register its library.
  static std::shared_ptr<Bundle> bundleForClass(const std::type_info& type);
  template <class T>
  static std::shared_ptr<Bundle> bundleForClass() {
    return bundleForClass(typeid(T));
  }
  // The real path of the shared object or executable that holds the type information; nil when
  // the system cannot tell.
  static String codePathForClass(const std::type_info& type);
  // Declares that the code in the shared object at libraryPath belongs to the bundle at bundlePath
  // (for libraries installed outside their resource folder). Later registrations replace earlier.
  static void registerBundlePathForLibrary(const String& libraryPath, const String& bundlePath);

  // The bundle's folder (as given, made absolute; symbolic links kept).
  String bundlePath() const { return bundlePath_; }
  // The resource directory (see the layouts above).
  String resourcePath() const { return resourcePath_; }
  // CFBundleIdentifier of Info.plist; nil when absent.
  String bundleIdentifier() const;
  // Info.plist as a Dictionary; an empty Dictionary when the bundle has none or it does not parse.
  Dictionary infoDictionary() const { return info_; }
  // A value of Info.plist.
  Value objectForInfoDictionaryKey(const String& key) const { return info_.objectForKey(key); }
  // CFBundleDevelopmentRegion of Info.plist; nil when absent.
  String developmentLocalization() const;

  // The names of the LANG.lproj folders of the resource directory, without extension, sorted.
  std::vector<String> localizations() const;
  // The bundle's localizations that match the user's languages (userLanguages()), best first,
  // followed by the development localization when the bundle has it (or an equivalent name, such as
  // "en" for "English"). When nothing matches: the first localization. "Base" is never listed (it is
  // searched after these for resources). Computed on first use.
  std::vector<String> preferredLocalizations() const;

  // The user's languages, best first, from the first of LANGUAGE (a colon-separated list), LC_ALL,
  // LC_MESSAGES and LANG that is set and not empty; "C" and "POSIX" name no language.
  static std::vector<String> userLanguages();
  // The subset of localizations that the languages prefer, in their order. A language such as
  // "de_DE.UTF-8@euro" matches "de_DE", "de-DE", "de" and the legacy name "German" (also the reverse:
  // "German" matches "de"); names compare case-insensitively with "_" and "-" alike.
  static std::vector<String> preferredLocalizationsFromArray(const std::vector<String>& localizations,
                                                             const std::vector<String>& languages);

  // The path of resource "name.type" (type nil or empty: "name" as given), or nil. Searched in
  // order: the resource directory (inside subdirectory directory when given), then
  // LANG.lproj/directory for each preferred localization and Base. Files and folders both count.
  String pathForResource(const String& name, const String& type) const;
  String pathForResource(const String& name, const String& type, const String& directory) const;
  // The same, but of the localized folders only localization.lproj is searched.
  String pathForResource(const String& name, const String& type, const String& directory,
                         const String& localization) const;
  // The interface resource `name` (without extension): NAME.nib (a compiled file, or a nib folder
  // holding keyedobjects.nib, keyedobjects-NNNNNN.nib or designable.nib) or NAME.xib, searched in
  // the resource directory and then in LANG.lproj of each preferred localization and Base; in each
  // place the nib before the xib. Nil when there is none. The interface reader opens nib folders.
  String pathForNibResource(const String& name) const;
  // An image resource: name as given when it has an extension that gdk-pixbuf reads, else name with
  // each such extension in turn (png, tiff, tif, jpg, jpeg, gif, bmp, ico first, then the others).
  // gdk-pixbuf is loaded at the first such lookup; where it is not installed, the eight extensions
  // named above are the ones tried.
  String pathForImageResource(const String& name) const;

  // The translation of key from strings table "table.strings" (nil table: "Localizable"). The table
  // is looked for in LANG.lproj of each preferred localization in turn, then Base.lproj, then the
  // resource directory; the first table holding the key answers. A table that does not parse counts
  // as absent. An absent key yields value, or the key itself when value is nil or empty; a nil key
  // yields value, or the empty string.
  String localizedStringForKey(const String& key, const String& value, const String& table) const;

  // Parsed tables are kept per table and localization; this reads a table file directly (nil when
  // absent or unparsable) through the same cache.
  Dictionary stringsTable(const String& table, const String& localization) const;

  String description() const override;

  explicit Bundle(const String& path);  // use bundleWithPath()
  ~Bundle() override;

 private:
  struct Cache;
  String bundlePath_;
  String resourcePath_;
  Dictionary info_;
  std::unique_ptr<Cache> cache_;
  const std::vector<String>& searchLocalizations() const;
  String findResource(const String& file, const String& directory, const std::vector<String>& localizations) const;
};

}  // namespace tq
