// tqkit localize as a localization engineer runs it: the key forms of generated tables, unused keys,
// overflow, one identifier per object, and the whole-bundle report with its page.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"

namespace {

namespace fs = std::filesystem;
using tq::test::sh;

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

std::string readAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The keys of a strings table, read from its text with a pattern of its own.
std::set<std::string> keysOf(const fs::path& table) {
  std::set<std::string> keys;
  const std::string text = readAll(table);
  const std::regex entry("^\"([^\"]+)\" *=", std::regex::multiline);
  for (auto it = std::sregex_iterator(text.begin(), text.end(), entry); it != std::sregex_iterator(); ++it) {
    keys.insert((*it)[1]);
  }
  return keys;
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// A small interface: a window with a check box near the right edge of a box, a segmented control
// with two labels and a tool tip, and a label.
const char* kXib = R"(<?xml version="1.0" encoding="UTF-8"?>
<document type="com.apple.InterfaceBuilder3.Cocoa.XIB" version="3.0">
  <objects>
    <window title="Options" id="W1-aa-001">
      <rect key="contentRect" x="0" y="0" width="300" height="120"/>
      <view key="contentView" id="V1-aa-001">
        <rect key="frame" x="0" y="0" width="300" height="120"/>
        <subviews>
          <button id="B1-aa-001">
            <rect key="frame" x="180" y="80" width="80" height="18"/>
            <buttonCell key="cell" type="check" title="Fast" id="C1-aa-001"><font key="font" metaFont="system"/></buttonCell>
          </button>
          <segmentedControl id="S1-aa-001">
            <rect key="frame" x="10" y="40" width="200" height="24"/>
            <segmentedCell key="cell" id="SC-aa-001">
              <font key="font" metaFont="system"/>
              <segments>
                <segment label="Left" toolTip="Go left"/>
                <segment label="Right"/>
              </segments>
            </segmentedCell>
          </segmentedControl>
          <textField id="T1-aa-001">
            <rect key="frame" x="10" y="10" width="60" height="17"/>
            <textFieldCell key="cell" title="Name:" id="TC-aa-001"><font key="font" metaFont="system"/></textFieldCell>
          </textField>
        </subviews>
      </view>
    </window>
  </objects>
</document>
)";

TEST(LocalizeCommand, GeneratedTablesAreReadInEveryKeyFormTheyHold) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path bundle = tq::test::corpusDir() / "handbrake/macosx";
  const auto keys = keysOf(bundle / "fr.lproj/HBTitleSelection.strings");
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

TEST(LocalizeCommand, AllWritesOneSummaryAndAPageWithPicturesOrNothing) {
  TQ_SKIP_WITHOUT_CORPUS();
  const fs::path corpus = tq::test::corpusDir() / "handbrake/macosx";
  tq::test::TempDir dir;
  // A bundle laid out from the corpus's files: Base interfaces, a French and an English folder.
  const fs::path resources = dir.path() / "HandBrake.app/Contents/Resources";
  for (const char* folder : {"Base.lproj", "fr.lproj", "en.lproj"}) {
    fs::create_directories(resources / folder);
    for (const auto& e : fs::directory_iterator(corpus / folder)) fs::create_symlink(e.path(), resources / folder / e.path().filename());
  }
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
  const std::size_t keys = keysOf(corpus / "fr.lproj/HBTitleSelection.strings").size();
  EXPECT_NE(r.out.find("\"interface\":\"HBTitleSelection\""), std::string::npos);
  EXPECT_NE(r.out.find("\"table\":\"HBTitleSelection\",\"translated\":" + std::to_string(keys) + ",\"missingCount\":0"),
            std::string::npos);

  const std::string html = readAll(page / "index.html");
  ASSERT_FALSE(html.empty());
  const std::regex image("<img src=\"([^\"]+)\"");
  std::size_t pictures = 0;
  for (auto it = std::sregex_iterator(html.begin(), html.end(), image); it != std::sregex_iterator(); ++it, ++pictures) {
    const fs::path png = page / (*it)[1].str();
    EXPECT_EQ(readAll(png).substr(0, 8), "\x89PNG\r\n\x1a\n") << png;
  }
  EXPECT_GE(pictures, 2 * interfaces) << "before and after for each interface";
  EXPECT_NE(html.find("HBTitleSelection-fr-window-F0z-JX-Cv5-after.png"), std::string::npos);

  // A page that cannot be written leaves nothing behind.
  write(dir.path() / "file", "x");
  r = sh("$T localize '" + bundle + "' --all --html '" + (dir.path() / "file/report").string() + "' 2>&1");
  EXPECT_EQ(r.status, 1) << r.out;
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 3) << "HandBrake.app, report, file";
  EXPECT_EQ(sh("$T localize '" + bundle + "' --all --by-id 2>/dev/null").status, 2);
  EXPECT_EQ(sh("$T localize '" + bundle + "' Audio --html x 2>/dev/null").status, 2);
}

}  // namespace
