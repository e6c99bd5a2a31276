// The commands on hostile inputs, run as a user runs them: deep, wide, duplicated and huge tables,
// objects shared thousands of times, windows and texts too large to draw, images that are FIFOs or
// devices, names switched under the reader, endless standard input, back-references, bundles of many
// languages, closed or full standard streams, planted links. Each run has 10 s and (in builds without
// AddressSanitizer) 1 GiB of address space; each must end with exit 1 and one line on standard error,
// or succeed, leave no partial file behind, and keep its peak memory (the kernel's count for the
// process and its children) within what the headers promise.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "sanitized_build.h"
#include "support/binary_plist.h"
#include "support/shell.h"
#include "support/test_paths.h"
#include "tools/tool_files.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/image.h"

namespace fs = std::filesystem;

namespace {

#ifdef TQ_UNDER_ASAN
constexpr bool kMeasured = false;  // sanitized builds run slower and take shadow memory
const char* const kLimits = "LSAN_OPTIONS=\"$LSAN_OPTIONS:print_suppressions=0\" timeout -s KILL 120 ";
#else
constexpr bool kMeasured = true;
const char* const kLimits = "timeout -s KILL 10 prlimit --as=1073741824 -- ";
#endif

struct Outcome {
  int status = -1;  // -1: killed (by the time limit)
  std::vector<std::string> errLines;
  std::string out;
  long peakKiB = 0;
};

class Hostile : public ::testing::Test {
 protected:
  // Every run gets a temporary folder of its own (the demo keeps a picture there).
  void SetUp() override { fs::create_directories(path("tmp")); }
  std::string path(const std::string& name) const { return (dir_.path() / name).string(); }
  void write(const std::string& name, const std::string& bytes) const { tq::test::write(path(name), bytes); }
  // Runs `$T ARGS` under the limits through bash (standard streams redirected as `redirect`
  // says, else standard output kept); the peak memory is the kernel's count for the whole run.
  Outcome run(const std::string& args, const std::string& redirect = "") const {
    const std::string line = "set -o pipefail; export T='" TQKIT_TOOL "' TMPDIR='" + path("tmp") + "'; " + kLimits + "$T " + args + " " +
                             (redirect.empty() ? "> '" + path("out") + "'" : redirect) + " 2> '" + path("err") + "'";
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::execl("/bin/bash", "bash", "-c", line.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    int st = 0;
    struct rusage usage {};
    ::wait4(pid, &st, 0, &usage);
    Outcome r;
    r.status = WIFEXITED(st) && WEXITSTATUS(st) != 137 ? WEXITSTATUS(st) : -1;
    r.peakKiB = usage.ru_maxrss;
    r.out = tq::test::readAll(path("out"));
    std::ifstream err(path("err"));
    for (std::string l; std::getline(err, l);) r.errLines.push_back(l);
    return r;
  }
  void expectOneLine(const Outcome& r, int status, const std::string& fragment, const std::string& what) const {
    EXPECT_EQ(r.status, status) << what << (r.errLines.empty() ? "" : ": " + r.errLines[0]);
    ASSERT_EQ(r.errLines.size(), 1u) << what;
    EXPECT_NE(r.errLines[0].find(fragment), std::string::npos) << what << ": " << r.errLines[0];
  }
  void expectPeakBelow(const Outcome& r, double mib, const std::string& what) const {
    if (kMeasured) {
      EXPECT_LT(r.peakKiB / 1024.0, mib) << what;
    }
  }
  // What the command takes for a document of no size: the program, its libraries, the text system.
  double baselineMiB() {
    write("small.xib", window(200, 100, "t", ""));
    return run("render '" + path("small.xib") + "' --png '" + path("small.png") + "'").peakKiB / 1024.0;
  }

  static std::string window(double w, double h, const std::string& title, const std::string& subviews) {
    const std::string W = std::to_string(w), H = std::to_string(h);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<document type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" version=\"3.0\"><objects>\n"
           "<window title=\"" + title + "\" id=\"w\"><rect key=\"contentRect\" x=\"0\" y=\"0\" width=\"" + W +
           "\" height=\"" + H + "\"/><view key=\"contentView\" id=\"v\"><rect key=\"frame\" x=\"0\" y=\"0\" width=\"" +
           W + "\" height=\"" + H + "\"/><subviews>" + subviews + "</subviews></view></window>\n</objects></document>\n";
  }
  static std::string field(const std::string& id, const std::string& title, const std::string& height = "22",
                           const std::string& cellAttributes = "") {
    return "<textField id=\"" + id + "\"><rect key=\"frame\" x=\"10\" y=\"10\" width=\"180\" height=\"" + height +
           "\"/><textFieldCell key=\"cell\" " + cellAttributes + " title=\"" + title + "\" id=\"" + id + "c\"/></textField>";
  }
  static std::string imageView(const std::string& image) {
    return "<imageView id=\"i\"><rect key=\"frame\" x=\"1\" y=\"2\" width=\"64\" height=\"64\"/>"
           "<imageCell key=\"cell\" image=\"" + image + "\" id=\"ic\"/></imageView>";
  }

  tq::test::TempDir dir_;
};

// The older XML archive form (read through the same decoder as compiled nibs): `views` views that
// share one subviews array holding one view of a class named with `nameLength` letters `refs`
// times.
std::string sharedSubviews(std::size_t nameLength, int refs, int views) {
  const std::string frame = "<string key=\"NSFrame\">{{0, 0}, {50, 50}}</string>";
  std::string objects = "<object class=\"NSView\" id=\"10\">" + frame +
                        "<object class=\"NSMutableArray\" key=\"NSSubviews\" id=\"60\"><object class=\"" +
                        std::string(nameLength, 'V') + "\" id=\"50\">" + frame + "</object>";
  for (int i = 1; i < refs; ++i) objects += "<reference ref=\"50\"/>";
  objects += "</object></object>";
  for (int i = 1; i < views; ++i) {
    objects += "<object class=\"NSView\" id=\"" + std::to_string(100 + i) + "\">" + frame +
               "<reference key=\"NSSubviews\" ref=\"60\"/></object>";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<archive type=\"com.apple.InterfaceBuilder3.Cocoa.XIB\" "
         "version=\"7.02\"><data><object class=\"NSMutableArray\" key=\"IBDocument.RootObjects\" id=\"1000\">"
         "<object class=\"NSCustomObject\" id=\"1\"><string key=\"NSClassName\">C</string></object>" +
         objects + "</object></data></archive>\n";
}

const char* kXmlHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";

// A window whose id would climb out of a folder, with one check box.
const std::string kXib = tq::test::readAll(tq::test::dataDir() / "tools/Check.xib");

// A binary list that is a chain of one-element arrays, `levels` deep (four-byte references).
std::string deepBinary(uint32_t levels) {
  std::vector<std::string> objects;
  for (uint32_t i = 0; i < levels; ++i) objects.push_back("\xA1" + tq::test::bigEndian(i + 1, 4));
  objects.push_back("\x08");
  return tq::test::binaryPropertyList(objects, 4);
}

}  // namespace

TEST_F(Hostile, SharedObjectsAreReadWithinTheDocumentsBound) {
  const double base = baselineMiB();
  struct Case {
    std::size_t name;
    int refs, views;
    int status;  // 1: refused as over the bound; 0: read, warnings capped
  } cases[] = {{1000, 10000, 100, 1}, {30000, 10000, 100, 1}, {10, 10000, 100, 1}, {30000, 100, 100, 0}};
  for (const Case& c : cases) {
    const std::string what = std::to_string(c.name) + "-letter class, " + std::to_string(c.refs) + " x " +
                             std::to_string(c.views);
    const std::string doc = sharedSubviews(c.name, c.refs, c.views);
    write("shared.xib", doc);
    const Outcome r = run("nib '" + path("shared.xib") + "'");
    const double bound = tq::nibMemoryBound(doc.size()) / 1048576.0;
    expectPeakBelow(r, base + bound, what);
    if (c.status == 1) {
      expectOneLine(r, 1, "the archive's objects share their collections more than its size allows", what);
      continue;
    }
    EXPECT_EQ(r.status, 0) << what;
    // The warnings: the first thousand, then their count.
    EXPECT_EQ(tq::test::count(r.out, "warning: object"), tq::kMaxNibWarnings) << what;
    EXPECT_NE(r.out.find("warning: and " + std::to_string(c.refs * c.views - c.refs - tq::kMaxNibWarnings) +
                         " more warnings\n"),
              std::string::npos)
        << what;
  }
}

TEST_F(Hostile, DrawingIsBoundedInCanvasAndText) {
  write("huge.xib", window(30000, 30000, "W", field("t", "x")));
  expectOneLine(run("render '" + path("huge.xib") + "' --png '" + path("huge.png") + "'"), 1,
                "no window or top-level view to draw (the document's are empty, or larger than 16384 pixels a side or "
                "67108864 pixels in all)",
                "huge window");
  write("App/Contents/Resources/en.lproj/Main.xib", window(30000, 30000, "W", field("t", "x")));
  expectOneLine(run("localize '" + path("App") + "' Main --language en --png '" + path("pngs") + "'"), 1,
                "cannot be drawn: the window is empty or larger than 16384 pixels a side", "localize --png");
  EXPECT_FALSE(fs::exists(path("pngs")));
  // The whole bundle's page goes on without that picture, and says so where it would be.
  write("App/Contents/Resources/de.lproj/Main.strings", "\"t.title\" = \"y\";\n");
  const Outcome page = run("localize '" + path("App") + "' --all --html '" + path("page") + "'");
  EXPECT_EQ(page.status, 0);
  ASSERT_EQ(page.errLines.size(), 1u);
  EXPECT_NE(page.errLines[0].find("-before.png: not drawn: the window is empty or larger than 16384"), std::string::npos);
  EXPECT_NE(tq::test::readAll(path("page") + "/index.html").find("not drawn: the window is empty"), std::string::npos);
  // Titles of millions of characters, as one word or two scripts, on one line or wrapped (the
  // library's own cell measures the wrapped text to centre it).
  const std::string word(3'000'000, 'x');
  std::string mixed;
  for (int i = 0; i < 1'000'000; ++i) mixed += "\xC3\xA9\xD0\xB6";
  for (const std::string& title : {word, mixed}) {
    write("long.xib", window(400, 300, "W",
                             field("a", title) + field("b", title, "22", "lineBreakMode=\"truncatingHead\"") +
                                 field("c", title, "200", "lineBreakMode=\"wordWrapping\" customClass=\"TQTextFieldCell\"")));
    const Outcome r = run("render '" + path("long.xib") + "' --png '" + path("long.png") + "'");
    EXPECT_EQ(r.status, 0) << (r.errLines.empty() ? "" : r.errLines[0]);
  }
}

TEST_F(Hostile, ImagesThatAreNotRegularFilesReadAsNone) {
  // In a bundle's resources, where the interface finds its images by name.
  const std::string resources = path("App/Contents/Resources/");
  fs::create_directories(resources + "en.lproj");
  ASSERT_EQ(::mkfifo((resources + "fifo.png").c_str(), 0600), 0);
  fs::create_symlink("/dev/zero", resources + "zero.png");
  fs::create_directories(resources + "folder.png");
  write("App/Contents/Resources/huge.png", "");
  fs::resize_file(resources + "huge.png", std::uintmax_t{3} << 30);  // sparse
  for (const char* name : {"fifo", "zero", "folder", "huge"}) {
    write("App/Contents/Resources/en.lproj/Main.xib", window(200, 100, "W", imageView(name)));
    const Outcome r = run("localize '" + path("App") + "' Main --language en --png '" + path(std::string("p-") + name) + "'");
    EXPECT_EQ(r.status, 0) << name << (r.errLines.empty() ? "" : ": " + r.errLines[0]);
    EXPECT_EQ(tq::Image::imageWithContentsOfFile(tq::String::fromUTF8(resources + name + ".png")), nullptr) << name;
  }
  // Standard input is read within the same cap as a file.
  const Outcome zero = run("nib - < /dev/zero");
  expectOneLine(zero, 1, "-: larger than the 256 MiB this command reads", "nib - < /dev/zero");
  expectPeakBelow(zero, 256 + 64, "nib - < /dev/zero");
}

TEST_F(Hostile, ANameSwitchedToAFifoNeverMakesTheReaderWait) {
  write("doc.xib", window(100, 50, "W", ""));
  // The name is a document or a FIFO at every moment (renames are atomic), and switches as fast as
  // the system lets it.
  const std::string name = path("x.xib"), fifo = path("f.tmp"), link = path("d.tmp"), doc = path("doc.xib");
  std::atomic<bool> stop{false};
  std::thread switcher([&] {
    while (!stop) {
      ::mkfifo(fifo.c_str(), 0600);
      ::rename(fifo.c_str(), name.c_str());
      ::link(doc.c_str(), link.c_str());
      ::rename(link.c_str(), name.c_str());
    }
  });
  int hung = 0, read = 0;
  for (int i = 0; i < 64; ++i) {
    const Outcome r = run("nib '" + name + "'");
    hung += r.status == -1;
    read += r.status == 0;
  }
  stop = true;
  switcher.join();
  EXPECT_EQ(hung, 0);
  EXPECT_GT(read, 0);
}

TEST_F(Hostile, BackReferencesAreRefusedAtOnce) {
  const Outcome r = run("net keys '(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\9\\8\\7\\6\\5\\4\\3\\2\\1X'");
  EXPECT_EQ(r.status, 1);
  ASSERT_EQ(r.errLines.size(), 1u);
  EXPECT_EQ(r.errLines[0], "tqkit net keys: the pattern is not supported: back-references such as \\9 cannot be "
                           "matched in time linear in the key");
}

TEST_F(Hostile, LocalizingEveryLanguageTakesMemoryFlatInTheirNumber) {
  // An interface of 60 labels among 2,000 views, and languages with one-line tables.
  std::string subviews;
  for (int i = 0; i < 60; ++i) {
    subviews += field("t" + std::to_string(i), "Label " + std::to_string(i));
  }
  for (int i = 0; i < 2000; ++i) {
    subviews += "<customView id=\"v" + std::to_string(i) + "\"><rect key=\"frame\" x=\"" + std::to_string(i % 100 * 5) +
                "\" y=\"" + std::to_string(100 + i / 100 * 5) + "\" width=\"4\" height=\"4\"/></customView>";
  }
  auto bundle = [&](const std::string& name, int languages) {
    write(name + "/Contents/Resources/Main.xib", window(540, 520, "Main", subviews));
    write(name + "/Contents/Resources/en.lproj/Localizable.strings", "\"Main\" = \"Main\";\n");
    for (int l = 0; l < languages; ++l) {
      write(name + "/Contents/Resources/l" + std::to_string(l) + ".lproj/Localizable.strings",
            "\"Label 1\" = \"Etiquette " + std::to_string(l) + "\";\n");
    }
  };
  bundle("Few", 2);
  bundle("Many", 12);
  for (const std::string mode : {"", "--json", "--html"}) {
    auto args = [&](const std::string& b) {
      return "localize '" + path(b) + "' --all " + (mode == "--html" ? "--html '" + path(b + ".html") + "'" : mode);
    };
    const Outcome few = run(args("Few"));
    const Outcome many = run(args("Many"));
    ASSERT_EQ(few.status, 0) << mode << (few.errLines.empty() ? "" : ": " + few.errLines[0]);
    ASSERT_EQ(many.status, 0) << mode << (many.errLines.empty() ? "" : ": " + many.errLines[0]);
    // Ten more languages add their lists of strings, not their interfaces and pictures.
    if (kMeasured) {
      EXPECT_LT((many.peakKiB - few.peakKiB) / 1024.0, 3) << mode;
    }
  }
  EXPECT_TRUE(fs::exists(path("Many.html/index.html")));
}

TEST_F(Hostile, WriteErrorsAndClosedStreamsAreReported) {
  write("t.xib", window(100, 50, "W", ""));
  write("t.strings", "\"a\" = \"b\";\n");
  write("App/Contents/Resources/Main.xib", window(100, 50, "W", ""));
  write("App/Contents/Resources/en.lproj/Localizable.strings", "\"W\" = \"W\";\n");
  write("App/Contents/Resources/fr.lproj/Localizable.strings", "\"W\" = \"F\";\n");
  // Every command's output ends in one routine of the program and of each module, or in a JSON
  // writer; the rows take each way once, and the commands that flush or write files of their own.
  struct Case {
    std::string args, redirect, fragment;
  } cases[] = {
      {"--help", "> /dev/full", "tqkit: cannot write the output: No space left on device"},
      {"hex --help", "> /dev/full", "tqkit hex: cannot write the output"},
      {"net watch", "> /dev/full", "tqkit net watch: cannot write the output: No space left on device"},
      {"--help", ">&-", "tqkit: cannot write the output: Bad file descriptor"},
      {"unhex", "<&- > '" + path("out") + "'", "tqkit unhex: -: Bad file descriptor"},
      {"hex", "<&- > '" + path("out") + "'", "tqkit hex: -: Bad file descriptor"},
      {"nib -", "<&- > '" + path("out") + "'", "tqkit nib: -: Bad file descriptor"},
      {"strings '" + path("t.strings") + "'", "> /dev/full", "cannot write the output"},
      {"strings '" + path("t.strings") + "' --json", "> /dev/full", "cannot write the output"},
      {"nib '" + path("t.xib") + "'", "> /dev/full", "cannot write the output"},
      // Files written with a report: the report first, and no file when it cannot be written.
      {"render '" + path("t.xib") + "' --png '" + path("O.png") + "' --json", "> /dev/full", "cannot write the output"},
      {"localize '" + path("App") + "' Main --language fr --png '" + path("D") + "' --json", "> /dev/full",
       "cannot write the output"},
      {"localize '" + path("App") + "' --all --html '" + path("H") + "' --json", "> /dev/full",
       "cannot write the output"},
  };
  for (const Case& c : cases) expectOneLine(run(c.args, c.redirect), 1, c.fragment, c.args + " " + c.redirect);
  // Nothing left behind: no PNG, no folder, no temporary file or folder.
  std::vector<std::string> left;
  for (const auto& e : fs::directory_iterator(dir_.path())) left.push_back(e.path().filename().string());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"App", "err", "out", "t.strings", "t.xib", "tmp"}));
}

TEST_F(Hostile, StringsTablesThatAreDeepWideDuplicatedOrHuge) {
  std::string deep = kXmlHead;
  for (int i = 0; i < 200'000; ++i) deep += "<array>";
  write("deep.strings", deep);
  expectOneLine(run("strings '" + path("deep.strings") + "'"), 1, "nested deeper than 512 levels", "deep XML");

  // 200,000 keys each given twice, the second time in reverse order: read in linear time, each key
  // once, in the place it first had, with its last value.
  std::string dup = std::string(kXmlHead) + "<dict>\n";
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 200'000; ++i) {
      dup += "<key>k" + std::to_string(round ? 199'999 - i : i) + "</key><string>v" + std::to_string(round) + "</string>\n";
    }
  }
  write("dup.strings", dup + "</dict></plist>\n");
  Outcome r = run("strings '" + path("dup.strings") + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "\"k0\" = \"v1\";");
  EXPECT_EQ(tq::test::count(r.out, "\n"), 200'000u);
  EXPECT_EQ(tq::test::count(r.out, "\"v0\""), 0u);
  EXPECT_TRUE(r.errLines.empty());

  // A text table one entry over the limit.
  std::string wide;
  wide.reserve(4'200'000);
  for (int i = 0; i <= 1'000'000; ++i) wide += "a=b;";
  write("wide.strings", wide);
  expectOneLine(run("strings '" + path("wide.strings") + "' --json"), 1, "more than 1000000 entries", "wide");

  // Over the size limit: refused before it is read (a sparse file, so it costs no disk).
  write("huge.strings", "");
  fs::resize_file(path("huge.strings"), (std::uintmax_t{64} << 20) + 1);
  expectOneLine(run("strings - < '" + path("huge.strings") + "'"), 1, "larger than the 64 MiB", "huge on standard input");
}

TEST_F(Hostile, BundlesHoldingHostileListsReadAsEmpty) {
  std::string deep = kXmlHead;
  for (int i = 0; i < 200'000; ++i) deep += "<dict><key>k</key>";
  write("App/Contents/Info.plist", deep);
  write("App/Contents/Resources/en.lproj/Localizable.strings", deepBinary(100'000));
  write("App/Contents/Resources/en.lproj/Main.xib", kXib);
  Outcome info = run("bundle info '" + path("App") + "' --json");
  EXPECT_EQ(info.status, 0) << "an unreadable Info.plist reads as an empty one";
  EXPECT_NE(info.out.find("\"identifier\":null"), std::string::npos) << info.out;
  Outcome localize = run("localize '" + path("App") + "' Main --language en --json");
  EXPECT_EQ(localize.status, 0) << (localize.errLines.empty() ? "" : localize.errLines[0]);
  // A planted link to a device is not read.
  fs::create_directories(path("Zero"));
  fs::create_symlink("/dev/zero", path("Zero/Info.plist"));
  EXPECT_EQ(run("bundle info '" + path("Zero") + "'").status, 0);
}

TEST_F(Hostile, Sha1JsonIsWholeWithAMissingFileInTheMiddle) {
  write("a", "abc");
  Outcome r = run("sha1 --json '" + path("a") + "' '" + path("missing") + "' '" + path("a") + "'");
  expectOneLine(r, 1, "No such file or directory", "sha1");
  // The whole array, the missing file in its place; the digest of "abc" is the published one.
  const std::string a = "{\"file\":\"" + path("a") + "\",\"sha1\":\"a9993e364706816aba3e25717850c26c9cd0d89d\"}";
  EXPECT_EQ(r.out, "[" + a + ",{\"file\":\"" + path("missing") + "\",\"error\":\"" + path("missing") +
                       ": No such file or directory\"}," + a + "]\n");
}

TEST_F(Hostile, StringsPrintsValuesHoldingNulWhole) {
  write("nul.strings", "\"k\" = \"x\\000y\";\n\"n\" = \"a\\nb\";\n");
  Outcome r = run("strings '" + path("nul.strings") + "'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "\"k\" = \"x\\000y\";\n\"n\" = \"a\\nb\";\n");
  // What it prints reads back as the same table.
  write("again.strings", r.out);
  EXPECT_EQ(run("strings '" + path("again.strings") + "'").out, r.out);
}

TEST_F(Hostile, PngsAreWrittenWholeOrNotAtAll) {
  write("w.xib", kXib);
  // A folder that does not exist: nothing is made.
  expectOneLine(run("render '" + path("w.xib") + "' --png '" + path("no/such/out.png") + "'"), 1, "", "render");
  EXPECT_FALSE(fs::exists(path("no")));
  Outcome ok = run("render '" + path("w.xib") + "' --png '" + path("out.png") + "'");
  ASSERT_EQ(ok.status, 0) << (ok.errLines.empty() ? "" : ok.errLines[0]);
  EXPECT_NE(tq::test::pngSize(path("out.png")), "");
  // Nothing but the PNG in the folder: no temporary file left behind.
  int entries = 0;
  for (const auto& e : fs::directory_iterator(dir_.path())) entries += e.path().filename().string().starts_with(".") ? 100 : 1;
  EXPECT_LT(entries, 100);

  // localize --png into a file system that fills up: no PNG, no folder, one line.
  write("App/Contents/Resources/en.lproj/Main.xib", kXib);
  fs::create_directories(path("small"));
  std::string inner = "mount -t tmpfs -o size=4k tqkit-test '" + path("small") + "' && " +
                      kLimits + "$T localize '" + path("App") + "' Main --language en --png '" + path("small/pngs") + "'" +
                      " 2>'" + path("stderr") + "'; echo status \\$?; ls -A '" + path("small") + "'";
  tq::test::Shell full = tq::test::sh("unshare -m sh -c \"" + inner + "\"");
  if (full.out.find("status") == std::string::npos) GTEST_SKIP() << "no mount namespace here: " << full.out;
  EXPECT_EQ(full.out, "status 1\n") << "the folder made for the PNGs is gone again";
}

TEST_F(Hostile, DemoFollowsNoPlantedLinkAndPatternsStayBounded) {
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
  Outcome keys = run("net keys 'a{1000}{1000}{10}'");
  EXPECT_EQ(keys.status, 1);
  ASSERT_EQ(keys.errLines.size(), 1u);
  EXPECT_EQ(keys.errLines.at(0),
            "tqkit net keys: the pattern is too large: its counted repetitions written out exceed 10000 characters");
  Outcome unbalanced = run("net keys 'x)|(.*'");
  EXPECT_EQ(unbalanced.status, 1);
  EXPECT_EQ(unbalanced.errLines.at(0).rfind("tqkit net keys: the pattern is not a valid extended regular expression (", 0), 0u)
      << unbalanced.errLines[0];
}
