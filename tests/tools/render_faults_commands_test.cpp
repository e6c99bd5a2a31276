// tqkit render as a user meets it: --list offers exactly what render draws.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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

std::string view(const char* id, int w, int h, const std::string& subviews = "") {
  return std::string("<customView id=\"") + id + "\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"" + std::to_string(w) +
         "\" height=\"" + std::to_string(h) + "\"/><subviews>" + subviews + "</subviews></customView>";
}

std::string document(const std::string& objects) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<document type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" "
         "version=\"3.0\"><objects>" + objects + "</objects></document>";
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1), ++n) {}
  return n;
}

}  // namespace

TEST(RenderFaults, ListOffersWhatRenderDrawsAndNumbersAsRenderCounts) {
  tq::test::TempDir dir;
  const std::string file = dir.str() + "/views.xib";
  // A view with nothing to draw (no height) between two that have.
  write(file, document(view("1", 100, 50) + view("2", 100, 0) + view("3", 80, 40)));
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
