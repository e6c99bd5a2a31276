// tqkit render and localize as a user meets them: --list offers exactly what render draws, and text
// that no installed font can show is named on standard error, once per font and script.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"

namespace {

namespace fs = std::filesystem;
using namespace tq::test;

// Whether fontconfig knows a font that has the character.
bool someFontHas(unsigned c) {
  return sh("fc-list ':charset=" + [&] { char b[16]; std::snprintf(b, sizeof b, "%x", c); return std::string(b); }() +
            "' family | grep -q .").status == 0;
}

}  // namespace

TEST(RenderFaults, ListOffersWhatRenderDrawsAndNumbersAsRenderCounts) {
  tq::test::TempDir dir;
  // A view with nothing to draw (no height) between two that have.
  const std::string file = (dataDir() / "tools/Views.xib").string();
  auto list = sh("$T render '" + file + "' --list 2>&1");
  ASSERT_EQ(list.status, 0) << list.out;
  EXPECT_EQ(list.out, "0  NSView  100x50  \n1  NSView  80x40  \ntqkit render: " + file +
                          ": 1 window or view with an empty or too large frame not listed\n");
  auto json = sh("$T render '" + file + "' --list --json 2>/dev/null");
  EXPECT_EQ(count(json.out, "\"index\""), 2u) << json.out;
  // Every listed index draws, the one listed second at its size.
  for (int i : {0, 1}) {
    const std::string png = dir.str() + "/" + std::to_string(i) + ".png";
    auto r = sh("$T render '" + file + "' --window " + std::to_string(i) + " --png '" + png + "' --json");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find(i == 0 ? "\"width\":100,\"height\":50" : "\"width\":80,\"height\":40"), std::string::npos) << r.out;
  }
  auto past = sh("$T render '" + file + "' --window 2 --png '" + dir.str() + "/2.png' 2>&1");
  EXPECT_EQ(past.status, 2) << past.out;
  EXPECT_NE(past.out.find("the document has 2 windows and views (0 to 1; see --list)"), std::string::npos) << past.out;
}

TEST(RenderFaults, TextNoFontCoversIsNamedOncePerFontAndScript) {
  if (sh("command -v fc-list >/dev/null").status != 0) GTEST_SKIP() << "no fc-list to ask";
  tq::test::TempDir dir;
  // Two labels in Linear B (no usual font has it) and one in Chinese, in the same font.
  const std::string file = (dataDir() / "tools/Scripts.xib").string();
  const bool linearB = !someFontHas(0x10000), han = !someFontHas(0x8BBE);
  auto r = sh("$T render '" + file + "' --png '" + dir.str() + "/t.png' 2>&1 >/dev/null");
  ASSERT_EQ(r.status, 0) << r.out;
  // One line of the command's own per font and script (other programs' warnings aside).
  EXPECT_EQ(count(r.out, "tqkit render: "), std::size_t(linearB) + std::size_t(han)) << r.out;
  if (linearB) {
    EXPECT_NE(r.out.find("tqkit render: no installed font has [Linb] characters, such as \xF0\x90\x80\x80\xF0\x90\x80\x81 in "
                         "\"Linear B \xF0\x90\x80\x80\xF0\x90\x80\x81\" (font "),
              std::string::npos)
        << r.out;
  }
  if (han) {
    EXPECT_NE(r.out.find("Han (Chinese characters, kanji, hanja) [Hani]"), std::string::npos) << r.out;
  }

  // localize measures the translations in the same text system, and says the same.
  const fs::path resources = dir.path() / "T.app/Contents/Resources";
  write(resources / "Base.lproj/Texts.xib", readAll(dataDir() / "tools/Hello.xib"));
  write(resources / "el.lproj/Texts.strings", "\"ac.title\" = \"\xF0\x90\x80\x83\";\n");
  auto l = sh("$T localize '" + (dir.path() / "T.app").string() + "' Texts --language el --by-id 2>&1 >/dev/null");
  ASSERT_EQ(l.status, 0) << l.out;
  EXPECT_EQ(count(l.out, "tqkit localize: no installed font has [Linb] characters, such as \xF0\x90\x80\x83 in "),
            linearB ? 1u : 0u)
      << l.out;
}
