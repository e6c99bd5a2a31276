// The interface commands on compiled and archived forms, run as a user runs them.
#include <gtest/gtest.h>

#include <string>

#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"

namespace {

using tq::test::sh;

std::string corpus(const char* relative) { return "'" + (tq::test::corpusDir() / relative).string() + "'"; }

const char* kSparkleResources = "transmission-sparkle/macosx/Sparkle.framework/Versions/B/Resources";

TEST(NibCommand, ReadsEveryFormAndListsTheVisibleStrings) {
  TQ_SKIP_WITHOUT_CORPUS();
  // A nib folder of 2007, a NIBArchive file, a folder of versioned NIBArchives, an older XML archive.
  auto folder = sh("$T nib --json " + corpus("transmission-2007/macosx/English.lproj/MessageWindow.nib"));
  ASSERT_EQ(folder.status, 0) << folder.out;
  EXPECT_NE(folder.out.find("\"format\":\"NSKeyedArchiver\""), std::string::npos);
  EXPECT_NE(folder.out.find("\"visibleStrings\":[\"Transmission Message Log\",\"Clear\""), std::string::npos) << folder.out;
  auto single = sh("$T nib --json " + corpus(kSparkleResources) + "/SUUpdateAlert.nib");
  ASSERT_EQ(single.status, 0);
  EXPECT_NE(single.out.find("\"Skip This Version\""), std::string::npos);
  auto versions = sh("$T nib " + corpus(kSparkleResources) + "/SUUpdatePermissionPrompt.nib");
  ASSERT_EQ(versions.status, 0);
  EXPECT_NE(versions.out.find("title=Check Automatically"), std::string::npos) << versions.out;
  auto older = sh("$T nib " + corpus("transmission-2008/macosx/fr.lproj/PrefsWindow.xib"));
  ASSERT_EQ(older.status, 0);
  EXPECT_NE(older.out.find("NSWindow (PrefsWindow) #23 (85, 529, 539, 107) title=Préférences\n"), std::string::npos)
      << older.out;
}

TEST(NibCommand, ADamagedArchiveIsOneLineOnStandardErrorAndExitOne) {
  TQ_SKIP_WITHOUT_CORPUS();
  tq::test::TempDir dir;
  const std::string cut = dir.str() + "/cut.nib";
  for (const std::string& source : {corpus("transmission-2007/macosx/English.lproj/InfoWindow.nib/keyedobjects.nib"),
                                    corpus(kSparkleResources) + "/SUStatus.nib"}) {
    ASSERT_EQ(sh("head -c 5000 " + source + " > '" + cut + "'").status, 0);
    auto r = sh("$T nib '" + cut + "' 2>&1 >/dev/null; echo \"exit=$?\"");
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out;
    EXPECT_EQ(r.out.rfind("tqkit nib: " + cut + ": damaged ", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("exit=1"), std::string::npos) << r.out;
    EXPECT_EQ(sh("$T nib '" + cut + "' 2>/dev/null").out, "") << "nothing half-read is printed";
  }
}

TEST(RenderCommand, DrawsAWindowOfACompiledNib) {
  TQ_SKIP_WITHOUT_CORPUS();
  tq::test::TempDir dir;
  const std::string png = dir.str() + "/info.png";
  auto r = sh("$T render " + corpus("transmission-2007/macosx/English.lproj/InfoWindow.nib") + " --png '" + png + "'");
  ASSERT_EQ(r.status, 0) << r.out;
  // The inspector panel's content is 350 points wide in the archive.
  EXPECT_EQ(tq::test::pngSize(png).substr(0, 4), "350x");
  EXPECT_GT(tq::test::readAll(png).size(), 5000u) << "a drawn window, not a blank one";
}

}  // namespace
