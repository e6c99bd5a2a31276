// tqkit localize as a localization engineer runs it: the key forms of generated tables, unused keys,
// overflow, one identifier per object, and the whole-bundle report with its page.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"

namespace {

namespace fs = std::filesystem;
using namespace tq::test;

// Symlinks in `to` to every entry of `from` (folders linked whole).
void linkEntries(const fs::path& from, const fs::path& to) {
  fs::create_directories(to);
  for (const auto& e : fs::directory_iterator(from)) fs::create_symlink(e.path(), to / e.path().filename());
}

// A small interface: a window with a check box near the right edge of a box, a segmented control
// with two labels and a tool tip, and a label.
const std::string kXib = readAll(tq::test::dataDir() / "tools/Options.xib");
TEST(LocalizeCommand, GeneratedTablesAreReadInEveryKeyFormTheyHold) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path bundle = tq::test::corpusDir() / "handbrake/macosx";
  const auto keys = keysOf(readAll(bundle / "fr.lproj/HBTitleSelection.strings"));
  ASSERT_EQ(keys.size(), 19u);
  auto r = sh("$T localize '" + bundle.string() + "' HBTitleSelection --language fr --by-id --json");
  ASSERT_EQ(r.status, 0) << r.out;
  // Every key of the table names an object of the interface (the display pattern's binding, the
  // sample cells of the columns and of the prototype rows included): none unused, none missing.
  for (const auto& key : keys) EXPECT_EQ(count(r.out, "\"key\":\"" + key + "\""), 1u) << key;
  EXPECT_NE(r.out.find("\"unused\":[]"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"missing\":[]"), std::string::npos);
  EXPECT_NE(r.out.find("\"property\":\"ibShadowedDisplayPattern\",\"key\":\"xTt-zi-wf0.ibShadowedDisplayPattern\","
                       "\"before\":\"%{value1}@\",\"after\":\"%{value1}@\",\"status\":\"translated\""),
            std::string::npos);
  EXPECT_NE(r.out.find("\"before\":\"Cancel\",\"after\":\"Annuler\",\"status\":\"translated\""), std::string::npos);
  EXPECT_EQ(sh("$T localize '" + bundle.string() + "' NoSuchInterface 2>/dev/null").status, 1);
  EXPECT_EQ(sh("$T localize 2>/dev/null").status, 2);
}

TEST(LocalizeCommand, ReportsUnusedKeysShadowedLabelsAndOverflowPastTheSuperview) {
  tq::test::TempDir dir;
  const fs::path resources = dir.path() / "Test.app/Contents/Resources";
  write(resources / "Base.lproj/Prefs.xib", kXib);
  write(resources / "fr.lproj/Prefs.strings",
        "\"W1-aa-001.title\" = \"Réglages\";\n"
        "\"C1-aa-001.title\" = \"Rapide, avec un titre bien plus long\";\n"
        "\"SC-aa-001.ibShadowedLabels[0]\" = \"Gauche\";\n"
        "\"SC-aa-001.ibShadowedToolTips[0]\" = \"Aller à gauche\";\n"
        "\"ZZ-zz-999.title\" = \"Plus là\";\n");
  const std::string bundle = (dir.path() / "Test.app").string();
  auto r = sh("$T localize '" + bundle + "' Prefs --language fr --by-id --json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("\"key\":\"SC-aa-001.ibShadowedLabels[0]\",\"before\":\"Left\",\"after\":\"Gauche\""),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\"key\":\"SC-aa-001.ibShadowedToolTips[0]\",\"before\":\"Go left\",\"after\":\"Aller à gauche\""),
            std::string::npos);
  EXPECT_NE(r.out.find("\"missing\":[\"SC-aa-001.ibShadowedLabels[1]\",\"TC-aa-001.title\"]"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\"unused\":[\"ZZ-zz-999.title\"]"), std::string::npos) << r.out;
  // The long title no longer fits the 80-point check box.
  EXPECT_NE(r.out.find("\"kind\":\"text\",\"class\":\"NSButton\",\"id\":\"C1-aa-001\""), std::string::npos) << r.out;

  // Through the localizer (a text-keyed table named for the interface), the check box grows to its
  // title and reaches past its 300-point superview; every list names it by its cell.
  write(resources / "fr.lproj/Texts.strings", "\"Fast\" = \"Rapide, avec un titre bien plus long\";\n\"Stale\" = \"x\";\n");
  r = sh("$T localize '" + bundle + "' Prefs --language fr --table Texts --json");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("\"kind\":\"superview\",\"class\":\"NSButton\",\"id\":\"C1-aa-001\""), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\"resized\":[{\"id\":\"C1-aa-001\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"class\":\"NSButton\",\"id\":\"C1-aa-001\",\"property\":\"title\""), std::string::npos);
  EXPECT_NE(r.out.find("\"unused\":[\"Stale\"]"), std::string::npos) << r.out;
}

TEST(LocalizeCommand, AllWritesOneSummaryAndAPageOrNothing) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path corpus = tq::test::corpusDir() / "handbrake/macosx";
  tq::test::TempDir dir;
  // A bundle laid out from the corpus's files: Base interfaces, a French and an English folder.
  const fs::path resources = dir.path() / "HandBrake.app/Contents/Resources";
  for (const char* folder : {"Base.lproj", "fr.lproj", "en.lproj"}) linkEntries(corpus / folder, resources / folder);
  const std::string bundle = (dir.path() / "HandBrake.app").string();
  const fs::path page = dir.path() / "report";
  auto r = sh("$T localize '" + bundle + "' --all --html '" + page.string() + "' --json");
  ASSERT_EQ(r.status, 0) << r.out;
  // One entry per Base interface in French (English is the interfaces' own language).
  std::size_t interfaces = 0;
  for (const auto& e : fs::directory_iterator(corpus / "Base.lproj")) interfaces += e.path().extension() == ".xib";
  EXPECT_EQ(count(r.out, "\"localization\":\"fr\",\"mode\":\"by-id\""), interfaces) << r.out.substr(0, 400);
  EXPECT_EQ(count(r.out, "\"localization\":\"en\""), 0u);
  // The French title selection translates every key of its table.
  const std::size_t keys = keysOf(readAll(corpus / "fr.lproj/HBTitleSelection.strings")).size();
  EXPECT_NE(r.out.find("\"interface\":\"HBTitleSelection\""), std::string::npos);
  EXPECT_NE(r.out.find("\"table\":\"HBTitleSelection\",\"translated\":" + std::to_string(keys) + ",\"missingCount\":0"),
            std::string::npos);

  // The pictures on the page are checked by LocalizeLayouts.ThePageLeadsWithTheLanguagesAndShowsTheDevelopmentText.
  EXPECT_FALSE(readAll(page / "index.html").empty());

  // A page that cannot be written leaves nothing behind.
  write(dir.path() / "file", "x");
  r = sh("$T localize '" + bundle + "' --all --html '" + (dir.path() / "file/report").string() + "' 2>&1");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 3) << "HandBrake.app, report, file";
  EXPECT_EQ(sh("$T localize '" + bundle + "' --all --by-id 2>/dev/null").status, 2);
  EXPECT_EQ(sh("$T localize '" + bundle + "' Audio --html x 2>/dev/null").status, 2);
}


// A framework as a current toolchain builds it: compiled nibs in its resources (the development
// language) and one binary strings table per language, named after the framework, which its code
// and its nibs share. Each nib is translated by the localizer from that table.
TEST(LocalizeCommand, AllOnABuiltFrameworkTranslatesItsNibsFromTheTableItsLanguagesHold) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path built = tq::test::corpusDir() / "transmission-sparkle/macosx/Sparkle.framework/Versions/B/Resources";
  if (!fs::exists(built)) GTEST_SKIP() << "no built framework in the corpus";
  tq::test::TempDir dir;
  const fs::path framework = dir.path() / "Sparkle.framework";
  linkEntries(built, framework / "Versions/B/Resources");
  fs::create_directory_symlink("B", framework / "Versions/Current");
  fs::create_directory_symlink("Versions/Current/Resources", framework / "Resources");
  auto r = sh("$T localize '" + framework.string() + "' --all --json");
  ASSERT_EQ(r.status, 0) << r.out;
  // Three nibs in each of de, fr and ja; Base holds no interface and is no language of its own.
  EXPECT_EQ(count(r.out, "\"mode\":\"localizer\",\"table\":\"Sparkle\""), 9u) << r.out.substr(0, 600);
  EXPECT_EQ(count(r.out, "\"localization\":\"Base\""), 0u);
  // Texts as the tables hold them (fr: "Install Update" = "Installer"; de: "Installieren").
  const std::string alert = rowOf(r.out, "SUUpdateAlert", "fr");
  EXPECT_NE(alert.find("\"key\":\"Install Update\",\"before\":\"Install Update\",\"after\":\"Installer\",\"status\":\"translated\""),
            std::string::npos) << alert.substr(0, 800);
  EXPECT_NE(alert.find("\"key\":\"Remind Me Later\",\"before\":\"Remind Me Later\",\"after\":\"Pas maintenant\""),
            std::string::npos);
  EXPECT_NE(rowOf(r.out, "SUUpdateAlert", "de").find("\"after\":\"Installieren\""), std::string::npos);
  // Texts the code sets are in no table; the table shared with the code has no unused keys here.
  EXPECT_NE(alert.find("\"missing\":[\"Question\",\"Version title\",\"Box\"]"), std::string::npos) << alert;
  EXPECT_NE(alert.find("\"unusedCount\":0"), std::string::npos);
  for (const char* language : {"de", "fr", "ja"}) {
    const std::string prompt = rowOf(r.out, "SUUpdatePermissionPrompt", language);
    EXPECT_NE(prompt.find("\"missing\":[\"DO NOT LOCALIZE\"]"), std::string::npos) << language << prompt.substr(0, 400);
    EXPECT_NE(prompt.find("\"key\":\"Check Automatically\",\"before\":\"Check Automatically\",\"after\":\""),
              std::string::npos);
    EXPECT_EQ(prompt.find("\"key\":\"Check Automatically\",\"before\":\"Check Automatically\",\"after\":\"Check Automatically\""),
              std::string::npos) << language;
  }
}

}  // namespace
