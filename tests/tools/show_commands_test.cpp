// tqkit show: a window of an interface file live, with its widgets dumped, a screenshot, its
// actions logged, in the language asked for.
#include <gtest/gtest.h>

#include <chrono>

#include "support/dumping_process.h"
#include "support/shell.h"
#include "support/test_paths.h"
#include "support/x_display.h"
#include "tools/tool_files.h"

namespace tq {
namespace {

using test::jsonField;
using test::sh;

const std::string kTitles = "/handbrake/macosx/Base.lproj/HBTitleSelection.xib";

// Skips when the tool cannot show windows here (no GTK in this build).
#define TQ_NEED_SHOW()                                                                                   \
  do {                                                                                                   \
    TQ_NEED_DISPLAY();                                                                                   \
    const auto probe_ = sh("$T show /nonexistent.xib 2>&1");                                             \
    if (probe_.out.find("without GTK") != std::string::npos) GTEST_SKIP() << "tqkit built without GTK 4"; \
  } while (0)

TEST(ShowCommand, HelpAndErrorsNeedNoDisplay) {
  const auto help = sh("DISPLAY= $T show --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("--dump-widgets"), std::string::npos);
  EXPECT_EQ(sh("$T show 2>&1").status, 2);
  const auto missing = sh("$T show /nonexistent.xib 2>&1");
  EXPECT_EQ(missing.status, 1);
  EXPECT_NE(missing.out.find("/nonexistent.xib"), std::string::npos) << missing.out;
  TQ_SKIP_WITHOUT_CORPUS();
  const std::string file = test::corpusDir().string() + kTitles;
  const auto noDisplay = sh("DISPLAY= WAYLAND_DISPLAY= $T show '" + file + "' 2>&1");
  EXPECT_EQ(noDisplay.status, 1);
  EXPECT_TRUE(noDisplay.out.find("cannot open a display") != std::string::npos ||
              noDisplay.out.find("without GTK") != std::string::npos)
      << noDisplay.out;
  EXPECT_EQ(sh("$T show '" + file + "' --window 7 2>&1").status, 2);
}

TEST(ShowCommand, DumpsTheWidgetsAndTakesAScreenshotAfterTheFirstFrame) {
  TQ_SKIP_WITHOUT_CORPUS();
  TQ_NEED_SHOW();
  test::TempDir dir;
  const std::string png = dir.str() + "/window.png";
  const auto r = sh("$T show '" + test::corpusDir().string() + kTitles + "' --dump-widgets --screenshot '" + png +
                    "' --quit-after 0");
  ASSERT_EQ(r.status, 0) << r.out;
  std::vector<std::string> lines;
  for (std::size_t start = 0, nl; (nl = r.out.find('\n', start)) != std::string::npos; start = nl + 1) {
    lines.push_back(r.out.substr(start, nl - start));
  }
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(jsonField(lines[0], "type"), "GtkWindow");
  EXPECT_EQ(jsonField(lines[0], "text"), "Window");
  EXPECT_EQ(std::to_string(lines.size()), jsonField(lines[0], "count"));
  int buttons = 0;
  for (const auto& line : lines) {
    if (jsonField(line, "type") == "GtkButton" && jsonField(line, "class") == "NSButton") ++buttons;
  }
  EXPECT_EQ(buttons, 2);  // Add and Cancel
  // The picture is as large as the window.
  EXPECT_EQ(test::pngSize(png), jsonField(lines[0], "width") + "x" + jsonField(lines[0], "height"));
}

TEST(ShowCommand, ShowsTheInterfaceInTheLanguageAskedFor) {
  TQ_SKIP_WITHOUT_CORPUS();
  TQ_NEED_SHOW();
  // A table keyed by object identifier, beside a Base interface.
  const auto byId = sh("$T show '" + test::corpusDir().string() + kTitles + "' --language fr --dump-widgets --quit-after 0");
  ASSERT_EQ(byId.status, 0);
  EXPECT_NE(byId.out.find("\"text\":\"Fenêtre\""), std::string::npos);
  EXPECT_NE(byId.out.find("\"text\":\"Ajouter\""), std::string::npos);
  // A translated copy of the interface in the language's folder.
  const auto copy = sh("$T show '" + test::corpusDir().string() +
                       "/transmission-2008/macosx/English.lproj/PrefsWindow.xib' --language fr --dump-widgets --quit-after 0");
  ASSERT_EQ(copy.status, 0);
  EXPECT_EQ(jsonField(copy.out.substr(0, copy.out.find('\n')), "text"), "Préférences");
}

TEST(ShowCommand, LogsTheActionOfAButtonClickedOnScreen) {
  TQ_SKIP_WITHOUT_CORPUS();
  TQ_NEED_SHOW();
  if (!test::haveProgram("xdotool")) GTEST_SKIP() << "needs xdotool";
  test::DumpingProcess show({TQKIT_TOOL, "show", test::corpusDir().string() + kTitles, "--dump-widgets", "--log-actions"});
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  std::vector<std::string> dump;
  ASSERT_TRUE(show.nextDump(dump, end));
  std::string add;
  for (const auto& line : dump) {
    if (jsonField(line, "id") == "TFh-c7-W2w") add = line;
  }
  ASSERT_FALSE(add.empty()) << "no widget for the Add button";
  const int x = std::stoi(jsonField(add, "x")) + std::stoi(jsonField(add, "width")) / 2;
  const int y = std::stoi(jsonField(add, "y")) + std::stoi(jsonField(add, "height")) / 2;
  ASSERT_EQ(test::xdotool("mousemove --window " + jsonField(dump[0], "xid") + " " + std::to_string(x) + " " +
                          std::to_string(y) + " click 1"),
            0);
  std::string line;
  ASSERT_TRUE(show.nextLine(line, end));
  EXPECT_EQ(jsonField(line, "action"), "add:");
  EXPECT_EQ(jsonField(line, "sender"), "NSButton");
  EXPECT_EQ(jsonField(line, "title"), "Add");
  EXPECT_EQ(jsonField(line, "id"), "TFh-c7-W2w");
}

}  // namespace
}  // namespace tq
