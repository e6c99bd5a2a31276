// What each tqkit command loads: the byte and file commands nothing but the C library, the network
// commands not the drawing libraries, and the commands that draw their module with Cairo and Pango.
// Seen through the dynamic loader's own report of every object it maps (LD_DEBUG=files).
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"
#include "tq/foundation/instruction_set.h"

namespace {

using tq::test::Shell;
using tq::test::sh;

// The file names of the shared objects the command line maps, as the loader reports them.
std::set<std::string> loaded(const std::string& command) {
  Shell r = sh("LD_DEBUG=files " + command +
               " 2>&1 >/dev/null | sed -n 's|.*file=\\([^ ]*\\) .*generating link map.*|\\1|p; "
               "s|.*file=\\([^ ]*\\) .*dynamically loaded by.*|\\1|p' | sed 's|.*/||'");
  std::set<std::string> names;
  for (std::size_t at = 0, end; (end = r.out.find('\n', at)) != std::string::npos; at = end + 1) {
    names.insert(r.out.substr(at, end - at));
  }
  return names;
}

bool anyMatches(const std::set<std::string>& names, std::initializer_list<const char*> parts) {
  return std::any_of(names.begin(), names.end(), [&](const std::string& n) {
    return std::any_of(parts.begin(), parts.end(), [&](const char* p) { return n.find(p) != std::string::npos; });
  });
}

const std::initializer_list<const char*> kDrawing = {"cairo", "pango", "pixbuf", "harfbuzz", "fontconfig",
                                                     "freetype", "tq_platform_ui", "tq_interface", "gtk"};

// Whether the libraries were built shared (as this program finds them); with static ones there are
// no command modules.
bool sharedLibraries() {
  Dl_info info{};
  return ::dladdr(reinterpret_cast<void*>(&tq::cpuSupports), &info) && info.dli_fname &&
         std::string(info.dli_fname).find(".so") != std::string::npos;
}

class Startup : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!sharedLibraries()) GTEST_SKIP() << "a build of static libraries: one program holds every command";
    sh("mkdir -p '" + dir_ + "/B/en.lproj' && printf '\"a\" = \"b\";' > '" + dir_ + "/B/en.lproj/L.strings'");
  }
  tq::test::TempDir tmp_;
  std::string dir_ = tmp_.str();
};

}  // namespace

TEST_F(Startup, ByteAndFileCommandsLoadNothingButTheCLibrary) {
  const std::string b = "'" + dir_ + "/B'";
  for (const std::string& command : std::initializer_list<std::string>{
           "$T hex /dev/null", "$T unhex /dev/null", "$T sha1 /dev/null", "$T find 00 /dev/null",
        "$T strings " + b + "/en.lproj/L.strings", "$T bundle info " + b, "$T unique-names " + b + " x"}) {
    std::set<std::string> names = loaded(command);
    EXPECT_FALSE(names.empty()) << command << ": the loader reported nothing";
    for (const auto& n : names) {
      EXPECT_TRUE(n == "libc.so.6" || n == "libm.so.6" || n.rfind("libcrypto.so", 0) == 0) << command << " loads " << n;
    }
  }
}

TEST_F(Startup, NetworkCommandsLoadTheirModuleButNoDrawing) {
  std::set<std::string> names = loaded("$T net classify 10.0.0.1");
  EXPECT_TRUE(names.count("tqkit-network.so"));
  EXPECT_TRUE(names.count("libtq_platform_store.so.0"));
  EXPECT_FALSE(anyMatches(names, kDrawing));
}

TEST_F(Startup, DrawingCommandsLoadTheirModuleWithCairoAndPango) {
  // Also the check that the loader's report shows what the commands open with dlopen.
  std::set<std::string> names = loaded("$T nib --help");
  EXPECT_TRUE(names.count("tqkit-interface.so"));
  EXPECT_TRUE(anyMatches(names, {"libcairo"}));
  EXPECT_TRUE(anyMatches(names, {"libpango"}));
  EXPECT_FALSE(names.count("tqkit-network.so")) << "a drawing command is looked for in its own module first";
}

TEST_F(Startup, HelpListsTheCommandsOfEveryPart) {
  std::string help = sh("$T --help").out;
  for (const char* line : {"\n  hex ", "\n  net status ", "\n  render ", "\n  demo "}) {
    EXPECT_NE(help.find(line), std::string::npos) << line;
  }
}

TEST_F(Startup, WithoutItsModulesTheProgramRunsItsOwnCommandsAndNamesWhatIsMissing) {
  sh("cp \"$T\" '" + dir_ + "/tqkit'");
  const std::string alone = "'" + dir_ + "/tqkit'";
  EXPECT_EQ(sh("printf 'ab' | " + alone + " hex").out, "6162");
  Shell r = sh(alone + " nib x 2>&1");
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("tqkit-interface.so: not found"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("unknown command 'nib'"), std::string::npos) << r.out;
}
