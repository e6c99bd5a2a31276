// The byte commands of the tqkit tool, run as a user runs them: through a shell, on real files,
// against the system's xxd and sha1sum.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>

#include "support/shell.h"
#include "support/test_paths.h"

namespace {

using tq::test::Shell;
using tq::test::sh;

class DataCommands : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    tq::test::write(dir_ + "/" + name, bytes);
    return dir_ + "/" + name;
  }
  static std::string randomBytes(std::size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::string s(n, '\0');
    for (auto& c : s) c = static_cast<char>(rng());
    return s;
  }

  tq::test::TempDir tmp_;
  std::string dir_ = tmp_.str();
};

}  // namespace

TEST_F(DataCommands, HexUnhexAndSha1AgreeWithXxdAndSha1sum) {
  // Sizes around the tool's 1 MiB block, so digit pairs and reads straddle block edges.
  const std::size_t sizes[] = {0, 1, 4095, (1u << 20) + 3};
  for (std::size_t n : sizes) {
    std::string f = write("f" + std::to_string(n), randomBytes(n, static_cast<unsigned>(n)));
    std::string q = "'" + f + "'";
    EXPECT_EQ(sh("$T hex " + q + " | $T unhex | cmp - " + q).status, 0) << n << " via pipe";
    EXPECT_EQ(sh("$T hex " + q + " > " + q + ".hex && $T unhex " + q + ".hex | cmp - " + q).status, 0) << n;
    EXPECT_EQ(sh("cmp <($T hex " + q + ") <(xxd -p " + q + " | tr -d '\\n')").status, 0) << n << " vs xxd";
    EXPECT_EQ(sh("xxd -p " + q + " | $T unhex | cmp - " + q).status, 0) << n << " xxd line breaks";
    Shell ours = sh("$T sha1 " + q), theirs = sh("sha1sum " + q);
    EXPECT_EQ(ours.status, 0);
    EXPECT_EQ(ours.out, theirs.out) << n;
    EXPECT_EQ(sh("$T sha1 < " + q).out, sh("sha1sum < " + q).out) << n << " from standard input";
  }
}

TEST_F(DataCommands, UnhexOfBadTextWritesNothingAndExitsOne) {
  // The fault sits after more than a block of good text, so a streaming decoder has already made
  // bytes it must not let out.
  std::string good((1u << 20) + 16, 'a');
  for (const std::string& bad : {good + "x", good + "a", good + "\xc3\xa9", std::string("0g")}) {
    std::string f = write("bad.hex", bad);
    for (const std::string& how : {"$T unhex '" + f + "'", "cat '" + f + "' | $T unhex"}) {
      Shell r = sh(how + " 2>'" + dir_ + "/err'");
      EXPECT_EQ(r.status, 1) << how;
      EXPECT_EQ(r.out.size(), 0u) << how;
      EXPECT_EQ(sh("cat '" + dir_ + "/err'").out,
                "tqkit unhex: initWithHexadecimalRepresentation:: invalid hexadeciaml string data\n");
    }
  }
}

TEST_F(DataCommands, FindReportsFirstOffsetAcrossBlockEdges) {
  std::string bytes = randomBytes(3u << 19, 99);
  std::size_t at = (1u << 20) - 3;  // straddles the first block edge
  std::string pattern = bytes.substr(at, 8);
  bytes.replace((1u << 20) + 4097, 8, pattern);  // a later copy must not win
  std::string f = write("hay", bytes);
  std::string hex;
  for (unsigned char c : pattern) hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
  Shell r = sh("$T find " + hex + " '" + f + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, std::to_string(at) + "\n");
  EXPECT_EQ(sh("cat '" + f + "' | $T find --json '" + hex + "'").out,
            "{\"file\":\"-\",\"found\":true,\"offset\":" + std::to_string(at) + "}\n");
  Shell missing = sh("$T find 'de ad be ef ca fe f0 0d 12' '" + f + "'");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(sh("$T find xyz '" + f + "' 2>/dev/null").status, 2);
}

// File names are bytes: the file commands print them as ls does, stray bytes included, and take
// them as arguments.
TEST_F(DataCommands, NamesThatAreNotUtf8ComeOutAsTheFileSystemSpellsThem) {
  write("B/caf\xE9.txt", "x");
  write("B/\xFF", "x");
  write("B/plain", "x");
  write("B/en.lproj/\xFE\xFF.strings", "x");
  std::string b = "'" + dir_ + "/B'";
  EXPECT_EQ(sh("$T bundle resources " + b + " en | LC_ALL=C sort").out,
            sh("(cd " + b + " && ls -A | grep -av lproj; ls -A en.lproj | sed 's|^|en.lproj/|') | LC_ALL=C sort").out);
  EXPECT_EQ(sh("$T unique-names " + b + " $'\\xff' $'caf\\xe9.txt' new").out, "\xFF 02\ncaf\xE9 02.txt\nnew\n");
}
