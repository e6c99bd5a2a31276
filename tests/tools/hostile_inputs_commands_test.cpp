// Every command on hostile input, run as a user runs it but under a time limit (timeout) and, in
// builds without AddressSanitizer, an address-space limit (prlimit): deep, wide, duplicated and
// huge tables, bundles holding them, output to /dev/full, unwritable destinations and planted links.
// Each must end within its limit with exit 1 and one line on standard error, or with the documented
// empty result, and leave no partial file behind. Inputs are generated here in well under a second.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "sanitized_build.h"
#include "support/shell.h"
#include "support/test_paths.h"

namespace fs = std::filesystem;
using tq::test::sh;
using tq::test::Shell;

namespace {


// The limits every run gets: 10 s, and 1 GiB of address space where the build allows measuring it.
std::string limited(const std::string& command) {
#ifdef TQ_UNDER_ASAN
  // Sanitized builds run several times slower and print their suppression counts on exit.
  return "LSAN_OPTIONS=\"$LSAN_OPTIONS:print_suppressions=0\" timeout -s KILL 120 " + command;
#else
  return "timeout -s KILL 10 prlimit --as=1073741824 -- " + command;
#endif
}

const char* kXmlHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";

const char* kXib =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<document type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" version=\"3.0\"><objects>\n"
    "<customObject id=\"-2\" userLabel=\"File's Owner\" customClass=\"C\"/>\n"
    "<window title=\"W\" id=\"../../escape\"><rect key=\"contentRect\" x=\"0\" y=\"0\" width=\"100\" height=\"50\"/>"
    "<view key=\"contentView\" id=\"v\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"100\" height=\"50\"/>"
    "<subviews><button id=\"b\"><rect key=\"frame\" x=\"1\" y=\"2\" width=\"30\" height=\"18\"/>"
    "<buttonCell key=\"cell\" type=\"check\" title=\"On\" id=\"bc\"/></button></subviews></view></window>\n"
    "</objects></document>\n";

class HostileInputs : public ::testing::Test {
 protected:
  // Every run gets a temporary folder of its own (the demo keeps a picture there).
  void SetUp() override {
    dir_ = tmp_.str();
    fs::create_directories(path("tmp"));
  }

  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  void write(const std::string& name, const std::string& bytes) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
  }

  struct Run {
    int status;
    std::string out;
    std::vector<std::string> errLines;
  };
  // Runs `$T ARGS` (stdout to `out`, which may be a redirection target) under the limits.
  Run run(const std::string& args, const std::string& out = "") const {
    std::string redirect = out.empty() ? "" : " > '" + out + "'";
    Shell r = sh("TMPDIR='" + path("tmp") + "' " + limited("$T " + args) + redirect + " 2>'" + path("stderr") + "'");
    Run result{r.status, r.out, {}};
    std::ifstream err(path("stderr"));
    for (std::string line; std::getline(err, line);) result.errLines.push_back(line);
    return result;
  }
  void expectOneLineFailure(const Run& r, const std::string& what, const std::string& fragment = "") const {
    EXPECT_EQ(r.status, 1) << what << (r.errLines.empty() ? "" : ": " + r.errLines[0]);
    ASSERT_EQ(r.errLines.size(), 1u) << what;
    EXPECT_NE(r.errLines[0].find(fragment), std::string::npos) << what << ": " << r.errLines[0];
  }

  tq::test::TempDir tmp_;
  std::string dir_;
};

// A binary list that is a chain of one-element arrays, `levels` deep (four-byte references).
std::string deepBinary(uint32_t levels) {
  std::string b = "bplist00";
  std::vector<uint32_t> offsets;
  auto be32 = [&](uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) b += static_cast<char>(v >> s);
  };
  for (uint32_t i = 0; i < levels; ++i) {
    offsets.push_back(static_cast<uint32_t>(b.size()));
    b += static_cast<char>(0xA1);
    be32(i + 1);
  }
  offsets.push_back(static_cast<uint32_t>(b.size()));
  b += static_cast<char>(0x08);
  const uint32_t table = static_cast<uint32_t>(b.size());
  for (uint32_t o : offsets) be32(o);
  // Trailer: offset and reference size 4, the object count, top object 0, the table's offset.
  b += std::string(6, '\0') + "\x04\x04" + std::string(4, '\0');
  be32(static_cast<uint32_t>(offsets.size()));
  b += std::string(12, '\0');
  be32(table);
  return b;
}

}  // namespace

TEST_F(HostileInputs, StringsTablesThatAreDeepWideDuplicatedOrHuge) {
  std::string deep = kXmlHead;
  for (int i = 0; i < 200'000; ++i) deep += "<array>";
  write("deep.strings", deep);
  expectOneLineFailure(run("strings '" + path("deep.strings") + "'"), "deep XML", "nested deeper than 512 levels");

  // 200,000 keys each given twice: read in linear time, each key once with its last value.
  std::string dup = std::string(kXmlHead) + "<dict>\n";
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 200'000; ++i) dup += "<key>k" + std::to_string(i) + "</key><string>v" + std::to_string(round) + "</string>\n";
  }
  write("dup.strings", dup + "</dict></plist>\n");
  Run r = run("strings '" + path("dup.strings") + "' | wc -l");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "200000\n");
  EXPECT_TRUE(r.errLines.empty());

  // A text table one entry over the limit.
  std::string wide;
  wide.reserve(4'200'000);
  for (int i = 0; i <= 1'000'000; ++i) wide += "a=b;";
  write("wide.strings", wide);
  expectOneLineFailure(run("strings '" + path("wide.strings") + "' --json"), "wide", "more than 1000000 entries");

  // Over the size limit: refused before it is read (a sparse file, so it costs no disk).
  write("huge.strings", "");
  fs::resize_file(path("huge.strings"), (std::uintmax_t{64} << 20) + 1);
  expectOneLineFailure(run("strings - < '" + path("huge.strings") + "'"), "huge on standard input", "larger than the 64 MiB");
}

TEST_F(HostileInputs, BundlesHoldingHostileListsReadAsEmpty) {
  std::string deep = kXmlHead;
  for (int i = 0; i < 200'000; ++i) deep += "<dict><key>k</key>";
  write("App/Contents/Info.plist", deep);
  write("App/Contents/Resources/en.lproj/Localizable.strings", deepBinary(100'000));
  write("App/Contents/Resources/en.lproj/Main.xib", kXib);
  Run info = run("bundle info '" + path("App") + "' --json");
  EXPECT_EQ(info.status, 0) << "an unreadable Info.plist reads as an empty one";
  EXPECT_NE(info.out.find("\"identifier\":null"), std::string::npos) << info.out;
  Run localize = run("localize '" + path("App") + "' Main --language en --json");
  EXPECT_EQ(localize.status, 0) << (localize.errLines.empty() ? "" : localize.errLines[0]);
  // A planted link to a device is not read.
  fs::create_directories(path("Zero"));
  fs::create_symlink("/dev/zero", path("Zero/Info.plist"));
  EXPECT_EQ(run("bundle info '" + path("Zero") + "'").status, 0);
}

TEST_F(HostileInputs, OutputThatCannotBeWrittenFailsWithOneLine) {
  write("t.strings", "\"a\" = \"b\";\n");
  write("w.xib", kXib);
  write("f.txt", "x");
  write("B/en.lproj/Localizable.strings", "\"a\" = \"b\";\n");
  const std::vector<std::string> commands = {
      "strings '" + path("t.strings") + "'",
      "strings '" + path("t.strings") + "' --json",
      "render '" + path("w.xib") + "' --list",
      "nib '" + path("w.xib") + "'",
      "bundle info '" + path("B") + "'",
      "bundle resources '" + path("B") + "' en",
      "unique-names '" + dir_ + "' f.txt",
      "net classify 10.1.2.3",
      "sha1 --json '" + path("f.txt") + "'",
      "hex '" + path("f.txt") + "'",
      "demo",
  };
  for (const auto& c : commands) expectOneLineFailure(run(c, "/dev/full"), c, "cannot write the output");
}

TEST_F(HostileInputs, Sha1JsonIsWholeWithAMissingFileInTheMiddle) {
  write("a", "abc");
  Run r = run("sha1 --json '" + path("a") + "' '" + path("missing") + "' '" + path("a") + "'");
  expectOneLineFailure(r, "sha1", "No such file or directory");
  // The whole array, the missing file in its place; the digest of "abc" is the published one.
  const std::string a = "{\"file\":\"" + path("a") + "\",\"sha1\":\"a9993e364706816aba3e25717850c26c9cd0d89d\"}";
  EXPECT_EQ(r.out, "[" + a + ",{\"file\":\"" + path("missing") + "\",\"error\":\"" + path("missing") +
                       ": No such file or directory\"}," + a + "]\n");
}

TEST_F(HostileInputs, StringsPrintsValuesHoldingNulWhole) {
  write("nul.strings", "\"k\" = \"x\\000y\";\n\"n\" = \"a\\nb\";\n");
  Run r = run("strings '" + path("nul.strings") + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "\"k\" = \"x\\000y\";\n\"n\" = \"a\\nb\";\n");
  // What it prints reads back as the same table.
  write("again.strings", r.out);
  EXPECT_EQ(run("strings '" + path("again.strings") + "'").out, r.out);
}

TEST_F(HostileInputs, PngsAreWrittenWholeOrNotAtAll) {
  write("w.xib", kXib);
  // A folder that does not exist: nothing is made.
  expectOneLineFailure(run("render '" + path("w.xib") + "' --png '" + path("no/such/out.png") + "'"), "render");
  EXPECT_FALSE(fs::exists(path("no")));
  Run ok = run("render '" + path("w.xib") + "' --png '" + path("out.png") + "'");
  ASSERT_EQ(ok.status, 0) << (ok.errLines.empty() ? "" : ok.errLines[0]);
  std::ifstream png(path("out.png"), std::ios::binary);
  char magic[8] = {};
  png.read(magic, 8);
  EXPECT_EQ(std::string(magic, 8), "\x89PNG\r\n\x1A\n");
  // Nothing but the PNG in the folder: no temporary file left behind.
  int entries = 0;
  for (const auto& e : fs::directory_iterator(dir_)) entries += e.path().filename().string().starts_with(".") ? 100 : 1;
  EXPECT_LT(entries, 100);

  // localize --png into a file system that fills up: no PNG, no folder, one line.
  write("App/Contents/Resources/en.lproj/Main.xib", kXib);
  fs::create_directories(path("small"));
  std::string inner = "mount -t tmpfs -o size=4k tqkit-test '" + path("small") + "' && " +
                      limited("$T localize '" + path("App") + "' Main --language en --png '" + path("small/pngs") + "'") +
                      " 2>'" + path("stderr") + "'; echo status \\$?; ls -A '" + path("small") + "'";
  Shell full = sh("unshare -m sh -c \"" + inner + "\"");
  if (full.out.find("status") == std::string::npos) GTEST_SKIP() << "no mount namespace here: " << full.out;
  EXPECT_EQ(full.out, "status 1\n") << "the folder made for the PNGs is gone again";
}

TEST_F(HostileInputs, DemoFollowsNoPlantedLinkAndPatternsStayBounded) {
  write("victim", "keep");
  fs::create_symlink(path("victim"), path("tmp/tqkit-demo-cells.png"));
  EXPECT_EQ(run("demo").status, 0);
  std::ifstream victim(path("victim"));
  std::string text;
  victim >> text;
  EXPECT_EQ(text, "keep");
  for (const auto& e : fs::directory_iterator(path("tmp"))) {
    if (e.is_symlink()) continue;
    struct stat st;
    ASSERT_EQ(::stat(e.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 077, 0u) << e.path() << " is private";
  }
  // Counted repetitions that the C library would write out ten million times: refused at once.
  Run keys = run("net keys 'a{1000}{1000}{10}'");
  EXPECT_EQ(keys.status, 1);
  ASSERT_EQ(keys.errLines.size(), 1u);
  EXPECT_EQ(keys.errLines.at(0),
            "tqkit net keys: the pattern is too large: its counted repetitions written out exceed 10000 characters");
  Run unbalanced = run("net keys 'x)|(.*'");
  EXPECT_EQ(unbalanced.status, 1);
  EXPECT_EQ(unbalanced.errLines.at(0).rfind("tqkit net keys: the pattern is not a valid extended regular expression (", 0), 0u)
      << unbalanced.errLines[0];
}
