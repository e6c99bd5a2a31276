// Bundles from outside, read the way a host reads them. Each input becomes a fresh bundle folder:
//
//   byte 0   bits 0-1  layout: Contents/Resources, Resources, Versions/Current/Resources, flat
//            bit 2     Info.plist beside the resource folder (else inside it)
//            bits 3-5  first localization's folder name, bits 6-7 the second's (see kLanguages)
//   then sections separated by "\n##\n":
//     1 Info.plist (XML, binary or anything)
//     2 FIRST.lproj/Localizable.strings     3 SECOND.lproj/Localizable.strings
//     4 Base.lproj/Other.strings            5 Localizable.strings beside the .lproj folders
//     6 the raw bytes of a file name created in FIRST.lproj ("/" and NUL become "_")
//
// The folder is opened uncached, so the bundle registry does not grow from run to run. Beyond not
// crashing, hanging or leaking, the answers must agree with what was written: the localizations are
// the folders made, every key of a table that parses is looked up in the documented order, and every
// resource listed names a file that exists.
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tq/foundation/bundle_extensions.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/bundle/strings_table.h"
#include "tq/platform/fs/file_manager.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kLayouts[] = {"Contents/Resources", "Resources", "Versions/Current/Resources", ""};
constexpr const char* kLanguages[] = {"fr", "de_DE", "German", "en", "English", "pt-BR", "Base", "zh_Hans"};
constexpr std::size_t kMaxKeysChecked = 64;

void check(bool condition) {
  if (!condition) std::abort();
}

void writeFile(const fs::path& path, std::string_view bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string_view> sections(std::string_view input) {
  std::vector<std::string_view> parts;
  constexpr std::string_view kSeparator = "\n##\n";
  while (parts.size() < 5) {
    auto at = input.find(kSeparator);
    if (at == std::string_view::npos) break;
    parts.push_back(input.substr(0, at));
    input.remove_prefix(at + kSeparator.size());
  }
  parts.push_back(input);
  return parts;
}

// The parsed entries of a table as the bundle should see them; nil when it does not parse.
tq::Dictionary parsed(std::string_view bytes) {
  return tq::dictionaryFromStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

// The folder the bundles are made in: made once, removed when the process exits.
const fs::path& scratch() {
  static const fs::path* folder = [] {
    // Fixed languages, so that the preferred localizations depend on the input alone.
    setenv("LANGUAGE", "de:fr", 1);
    std::string pattern = (fs::temp_directory_path() / "tq-bundle-fuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data())) std::abort();
    auto* made = new fs::path(pattern);  // never destroyed: the exit handler still needs it
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(*folder, ignored);
    });
    return made;
  }();
  return *folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const uint8_t control = data[0];
  std::vector<std::string_view> part = sections(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
  part.resize(6);

  const fs::path root = scratch() / "Fuzz.app";
  fs::remove_all(root);
  const fs::path resources = (control & 3) == 3 ? root : root / kLayouts[control & 3];
  const std::string first = kLanguages[(control >> 3) & 7], second = kLanguages[(control >> 6) & 3];
  fs::create_directories(resources);
  writeFile((control & 4 ? resources.parent_path() : resources) / "Info.plist", part[0]);
  writeFile(resources / (first + ".lproj") / "Localizable.strings", part[1]);
  if (second != first) writeFile(resources / (second + ".lproj") / "Localizable.strings", part[2]);
  writeFile(resources / "Base.lproj" / "Other.strings", part[3]);
  writeFile(resources / "Localizable.strings", part[4]);
  std::string oddName(part[5].substr(0, 64));
  for (char& c : oddName) {
    if (c == '/' || c == '\0') c = '_';
  }
  // Not ".", "..", or the table beside it.
  if (oddName.empty() || oddName == "." || oddName == ".." || oddName == "Localizable.strings") oddName += "x";
  writeFile(resources / (first + ".lproj") / oddName, "");

  auto bundle = tq::Bundle::uncachedBundleWithPath(tq::FileManager::stringWithFileSystemRepresentation(root.string()));
  check(bundle != nullptr);
  (void)bundle->bundleIdentifier();
  (void)bundle->developmentLocalization();
  (void)tq::Value(bundle->infoDictionary()).description();

  // The localizations are exactly the folders made.
  std::set<std::string> made{first, second, "Base"};
  std::vector<std::string> listed;
  for (const tq::String& l : bundle->localizations()) listed.push_back(l.UTF8String());
  check(listed == std::vector<std::string>(made.begin(), made.end()));

  // Every key of a table that parses answers from the first table in search order that holds it.
  std::vector<tq::String> search = bundle->preferredLocalizations();
  search.push_back(u"Base");
  struct Table {
    std::string folder;  // empty: beside the .lproj folders
    tq::String name;
    std::string_view bytes;
  };
  const Table tables[] = {{first, u"Localizable", part[1]},
                          {second, u"Localizable", second != first ? part[2] : part[1]},
                          {"Base", u"Other", part[3]},
                          {"", u"Localizable", part[4]}};
  auto tableFor = [&](const std::string& folder, const tq::String& name) -> tq::Dictionary {
    for (const Table& t : tables) {
      if (t.folder == folder && t.name == name) return parsed(t.bytes);
    }
    return {};
  };
  for (const Table& t : tables) {
    tq::Dictionary entries = parsed(t.bytes);
    std::size_t checked = 0;
    for (const tq::String& key : entries.allKeys()) {
      if (++checked > kMaxKeysChecked) break;
      tq::Value expected;
      for (const tq::String& l : search) {
        expected = tableFor(l.UTF8String(), t.name).objectForKey(key);
        if (!expected.isNil()) break;
      }
      if (expected.isNil()) expected = tableFor("", t.name).objectForKey(key);
      // A table of a localization that is not searched answers nothing: the key stands for itself.
      tq::String answer = expected.isNil() ? key : expected.stringValue();
      check(bundle->localizedStringForKey(key, tq::String(), t.name) == answer);
    }
  }

  // Every listed resource exists, the odd file name among them, and names the same file again.
  tq::String firstName = tq::String::fromUTF8(first);
  std::set<tq::String> all = tq::allResourcesForLocalization(*bundle, firstName);
  tq::String odd = tq::FileManager::stringWithFileSystemRepresentation(oddName);
  tq::String oddEntry = firstName.stringByAppendingPathExtension(u"lproj").stringByAppendingPathComponent(odd);
  check(all.count(oddEntry) == 1);
  for (const tq::String& entry : all) {
    check(tq::FileManager::defaultManager().fileExistsAtPath(bundle->resourcePath().stringByAppendingPathComponent(entry)));
  }
  check(!bundle->pathForResource(odd, tq::String(), tq::String(), firstName).isNil());
  return 0;
}
