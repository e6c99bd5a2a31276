// The commands on inputs built to exhaust them: objects shared thousands of times, windows and texts
// too large to draw, images that are FIFOs or devices, names switched under the reader, endless
// standard input, back-references, bundles of many languages, closed or full standard streams.
// Each run has 10 s and (in builds without AddressSanitizer) 1 GiB of address space; each must end
// with exit 1 and one line, or succeed, and its peak memory (the kernel's count for the process
// and its children) must stay within what the headers promise.
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

#include "support/test_paths.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/image.h"

namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__)
#define TQ_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TQ_UNDER_ASAN 1
#endif
#endif

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

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class HostileBounds : public ::testing::Test {
 protected:
  std::string path(const std::string& name) const { return (dir_.path() / name).string(); }
  void write(const std::string& name, const std::string& bytes) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  // Runs `$T ARGS` under the limits through bash (standard streams redirected as `redirect`
  // says, else standard output kept); the peak memory is the kernel's count for the whole run.
  Outcome run(const std::string& args, const std::string& redirect = "") const {
    const std::string line = "export T='" TQKIT_TOOL "' TMPDIR='" + path("") + "'; " + kLimits + "$T " + args + " " +
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
    r.out = slurp(path("out"));
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

}  // namespace

TEST_F(HostileBounds, SharedObjectsAreReadWithinTheDocumentsBound) {
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
    std::size_t listed = 0;
    for (std::size_t at = 0; (at = r.out.find("warning: object", at)) != std::string::npos; ++at) ++listed;
    EXPECT_EQ(listed, tq::kMaxNibWarnings) << what;
    EXPECT_NE(r.out.find("warning: and " + std::to_string(c.refs * c.views - c.refs - tq::kMaxNibWarnings) +
                         " more warnings\n"),
              std::string::npos)
        << what;
  }
}

TEST_F(HostileBounds, DrawingIsBoundedInCanvasAndText) {
  write("huge.xib", window(30000, 30000, "W", field("t", "x")));
  expectOneLine(run("render '" + path("huge.xib") + "' --png '" + path("huge.png") + "'"), 1,
                "no window or top-level view to draw (the document's are empty, or larger than 16384 pixels a side or "
                "67108864 pixels in all)",
                "huge window");
  write("App/Contents/Resources/en.lproj/Main.xib", window(30000, 30000, "W", field("t", "x")));
  expectOneLine(run("localize '" + path("App") + "' Main --language en --png '" + path("pngs") + "'"), 1,
                "cannot be drawn: the window is empty or larger than 16384 pixels a side", "localize --png");
  EXPECT_FALSE(fs::exists(path("pngs")));
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

TEST_F(HostileBounds, ImagesThatAreNotRegularFilesReadAsNone) {
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

TEST_F(HostileBounds, ANameSwitchedToAFifoNeverMakesTheReaderWait) {
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

TEST_F(HostileBounds, BackReferencesAreRefusedAtOnce) {
  const Outcome r = run("net keys '(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\9\\8\\7\\6\\5\\4\\3\\2\\1X'");
  EXPECT_EQ(r.status, 1);
  ASSERT_EQ(r.errLines.size(), 1u);
  EXPECT_EQ(r.errLines[0], "tqkit net keys: the pattern is not supported: back-references such as \\9 cannot be "
                           "matched in time linear in the key");
}

TEST_F(HostileBounds, LocalizingEveryLanguageTakesMemoryFlatInTheirNumber) {
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

TEST_F(HostileBounds, WriteErrorsAndClosedStreamsAreReported) {
  write("t.xib", window(100, 50, "W", ""));
  write("App/Contents/Resources/Main.xib", window(100, 50, "W", ""));
  write("App/Contents/Resources/en.lproj/Localizable.strings", "\"W\" = \"W\";\n");
  write("App/Contents/Resources/fr.lproj/Localizable.strings", "\"W\" = \"F\";\n");
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
  EXPECT_EQ(left, (std::vector<std::string>{"App", "err", "out", "t.xib"}));
}
