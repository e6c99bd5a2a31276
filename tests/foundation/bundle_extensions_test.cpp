// allResourcesForLocalization on resource directories built in a temporary folder (the corpus folders
// are read as bundles by bundle_test).
#include "tq/foundation/bundle_extensions.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/test_paths.h"

namespace fs = std::filesystem;
using tq::String;

namespace {

// A file holding "x", its folders made first.
void touch(const fs::path& p) { tq::test::write(p, "x"); }

std::set<std::string> utf8(const std::set<String>& set) {
  std::set<std::string> out;
  for (const auto& s : set) out.insert(s.UTF8String());
  return out;
}

}  // namespace

TEST(AllResourcesForLocalization, TopLevelPlusTheOneLocalizationFolder) {
  tq::test::TempDir tmp;
  fs::path res = tmp.path() / "App.app/Contents/Resources";
  touch(res / "plain.txt");
  touch(res / ".hidden");
  touch(res / "Window.nib/keyedobjects.nib");  // a folder counts as one entry
  touch(res / "Odd.LPROJ/inside.txt");         // not "lproj": an ordinary entry
  touch(res / "English.lproj/Localizable.strings");
  touch(res / "French.lproj/Localizable.strings");
  touch(res / "French.lproj/Help/index.html");
  touch(res / "French.lproj/.DS_Store");
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8((tmp.path() / "App.app").string()));
  ASSERT_TRUE(bundle);

  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, u"French")),
            (std::set<std::string>{"plain.txt", ".hidden", "Window.nib", "Odd.LPROJ", "French.lproj/Localizable.strings",
                                   "French.lproj/Help", "French.lproj/.DS_Store"}));
  // A localization without a folder: only the unlocalized entries.
  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, u"German")),
            (std::set<std::string>{"plain.txt", ".hidden", "Window.nib", "Odd.LPROJ"}));
  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, String())),
            (std::set<std::string>{"plain.txt", ".hidden", "Window.nib", "Odd.LPROJ"}));

  // No resource directory at all (a bundle whose folder went away): nothing.
  fs::path gone = tmp.path() / "Gone";
  fs::create_directory(gone);
  auto vanished = tq::Bundle::bundleWithPath(String::fromUTF8(gone.string()));
  fs::remove(gone);
  EXPECT_TRUE(tq::allResourcesForLocalization(*vanished, u"French").empty());
}

TEST(AllResourcesForLocalization, EmptyNameAndANameThatIsNotUtf8) {
  tq::test::TempDir tmp;
  fs::path res = tmp.path() / "Flat";
  touch(res / "plain.txt");
  touch(res / "French.lproj/a.strings");
  touch(res / "German.lproj/b.strings");
  touch(res / "French.lproj/caf\xE9.txt");  // Latin-1 bytes
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(res.string()));
  ASSERT_TRUE(bundle);
  // An empty name is no localization: the other localizations' folders stay out.
  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, String::empty())), std::set<std::string>{"plain.txt"});
  // How names that are not UTF-8 are listed is checked on `tqkit bundle resources` against ls; the
  // bundle finds such a resource by its listed name.
  EXPECT_EQ(bundle->pathForResource(String(u"caf\xDCE9"), u"txt", String(), u"French"),
            bundle->resourcePath().stringByAppendingPathComponent(String(u"French.lproj/caf\xDCE9.txt")));
}
