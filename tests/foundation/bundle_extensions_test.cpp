// allResourcesForLocalization on a resource directory built in a temporary folder and on the corpus.
#include "tq/foundation/bundle_extensions.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/test_paths.h"

namespace fs = std::filesystem;
using tq::String;

namespace {

void touch(const fs::path& p) {
  fs::create_directories(p.parent_path());
  std::ofstream(p) << "x";
}

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

TEST(AllResourcesForLocalization, CorpusFolder) {
  TQ_SKIP_WITHOUT_CORPUS();
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8((tq::test::corpusDir() / "handbrake/macosx").string()));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, u"fr")),
            (std::set<std::string>{"fr.lproj/HBTitleSelection.strings", "fr.lproj/Localizable.strings"}));
}

TEST(AllResourcesForLocalization, EmptyNameAndNamesThatAreNotUtf8) {
  tq::test::TempDir tmp;
  fs::path res = tmp.path() / "Flat";
  touch(res / "plain.txt");
  touch(res / "French.lproj/a.strings");
  touch(res / "German.lproj/b.strings");
  touch(res / "French.lproj/caf\xE9.txt");  // Latin-1 bytes: no String names this file
  touch(res / "bad\xFF");
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(res.string()));
  ASSERT_TRUE(bundle);
  // An empty name is no localization: the other localizations' folders stay out.
  EXPECT_EQ(utf8(tq::allResourcesForLocalization(*bundle, String::empty())), (std::set<std::string>{"plain.txt"}));
  // Every name handed back opens the file it names.
  auto french = tq::allResourcesForLocalization(*bundle, u"French");
  EXPECT_EQ(utf8(french), (std::set<std::string>{"plain.txt", "French.lproj/a.strings"}));
  for (const String& name : french) EXPECT_TRUE(fs::exists(res / name.UTF8String())) << name;
}
