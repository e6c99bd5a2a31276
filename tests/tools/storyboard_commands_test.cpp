// The interface commands on a storyboard, run as a user runs them: its scenes listed and drawn one
// by one, its object tree with text view contents, and its localization in every language.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"

namespace {

using tq::test::sh;
namespace fs = std::filesystem;

const fs::path kUI = "monitorcontrol/MonitorControl/UI";

std::string quoted(const fs::path& p) { return "'" + p.string() + "'"; }

TEST(StoryboardCommands, ScenesAreListedDrawnAndShown) {
  TQ_SKIP_WITHOUT_CORPUS();
  const std::string storyboard = quoted(tq::test::corpusDir() / kUI / "Base.lproj/Main.storyboard");
  // One line per scene that shows something, each drawable.
  auto list = sh("$T render " + storyboard + " --list");
  ASSERT_EQ(list.status, 0) << list.out;
  const int scenes = static_cast<int>(tq::test::count(list.out, " scene "));
  EXPECT_EQ(scenes, 7) << list.out;
  EXPECT_NE(list.out.find("MainPrefsViewController scene zAg-r8-WQ5 (MainPrefsVC)"), std::string::npos) << list.out;
  tq::test::TempDir dir;
  for (int i = 0; i < scenes; ++i) {
    const std::string png = quoted(dir.path() / ("scene" + std::to_string(i) + ".png"));
    EXPECT_EQ(sh("$T render " + storyboard + " --window " + std::to_string(i) + " --png " + png).status, 0) << i;
  }
  auto tree = sh("$T nib --json " + storyboard);
  ASSERT_EQ(tree.status, 0);
  EXPECT_NE(tree.out.find("\"scenes\":[{\"id\":\"zAg-r8-WQ5\",\"storyboardIdentifier\":\"MainPrefsVC\""), std::string::npos);
  EXPECT_NE(tree.out.find("\"relationship\":\"window.shadowedContentViewController\""), std::string::npos);
  EXPECT_NE(tree.out.find("\"General options:\""), std::string::npos);
}

TEST(StoryboardCommands, TextViewContentsAreVisibleStrings) {
  const fs::path xib = tq::test::dataDir() / "tools/Notes.xib";
  auto tree = sh("$T nib --json " + quoted(xib));
  ASSERT_EQ(tree.status, 0) << tree.out;
  EXPECT_NE(tree.out.find("\"visibleStrings\":[\"Release notes\"]"), std::string::npos) << tree.out;
}

TEST(StoryboardCommands, EveryLanguageOfABundlesStoryboardIsLocalized) {
  TQ_SKIP_WITHOUT_CORPUS();
  tq::test::TempDir dir;
  const fs::path resources = dir.path() / "Resources";
  fs::create_directories(resources / "Base.lproj");
  fs::create_symlink(tq::test::corpusDir() / kUI / "Base.lproj/Main.storyboard", resources / "Base.lproj/Main.storyboard");
  for (const char* language : {"en", "de", "fr", "ja"}) {
    fs::create_directories(resources / (std::string(language) + ".lproj"));
    fs::create_symlink(tq::test::corpusDir() / kUI / (std::string(language) + ".lproj/Main.strings"),
                       resources / (std::string(language) + ".lproj/Main.strings"));
  }
  auto all = sh("$T localize " + quoted(dir.path()) + " --all");
  ASSERT_EQ(all.status, 0) << all.out;
  for (const char* language : {"de", "fr", "ja"}) {
    EXPECT_NE(all.out.find(std::string("Main                         ") + language), std::string::npos) << all.out;
  }
  EXPECT_NE(all.out.find("0 unreadable"), std::string::npos) << all.out;
  auto one = sh("LANGUAGE=de $T localize " + quoted(dir.path()) + " Main --by-id");
  ASSERT_EQ(one.status, 0) << one.out;
  EXPECT_NE(one.out.find("W58-ch-j69.title: General options: -> Allgemeine Optionen:"), std::string::npos) << one.out;
}

}  // namespace
