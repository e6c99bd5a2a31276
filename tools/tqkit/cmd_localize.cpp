// tqkit localize: translates an interface of a bundle (or every interface of a bundle in every
// localization it holds) and reports what was translated, what the table lacks, which keys of the
// table matched nothing, and what no longer fits; with pictures before and after.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "font_coverage.h"
#include "localize_bundle.h"
#include "localize_page.h"
#include "localize_report.h"
#include "output_file.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"
#include "tq/platform/ui/drawing/view_drawing.h"

namespace {

using tq::String;
namespace fs = std::filesystem;
namespace loc = tq::cli::localizing;

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

bool isFolder(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// --- output written whole or not at all ---------------------------------------------------------

// Files bound for one folder, written whole or not at all when committed, after the report.
class FolderOutput {
 public:
  explicit FolderOutput(std::string folder) : folder_(std::move(folder)) {}
  // Written at once into the folder's private copy.
  void add(const std::string& name, const std::string& bytes) { files_.write(folder_, finalPath(name), bytes); }
  void addPNG(const std::string& name, const tq::GraphicsContextRef& image) {
    if (!image) {
      throw tq::cli::Failure(finalPath(name) + ": cannot be drawn: " + loc::undrawnReason());
    }
    add(name, tq::cli::pngBytes(image->surface()));
  }
  // The file's name in the finished folder.
  std::string finalPath(const std::string& name) const { return (fs::path(folder_) / name).string(); }
  void commit() {
    tq::cli::flushStandardOutput();
    files_.commit(folder_);
  }

 private:
  std::string folder_;
  tq::cli::OutputFiles files_;
};

// --- one interface ------------------------------------------------------------------------------

std::string locate(const tq::Bundle& bundle, const std::string& nib) {
  const auto extension = fs::path(nib).extension();
  if (isFile(nib) || (isFolder(nib) && (extension == ".nib" || extension == ".storyboardc"))) return nib;
  const bool named = extension == ".xib" || extension == ".nib" || extension == ".storyboard" || extension == ".storyboardc";
  const String name = String::fromUTF8(named ? fs::path(nib).stem().string() : nib);
  String path = bundle.pathForNibResource(name);
  if (path.isNil()) path = bundle.pathForResource(name, u"storyboardc");
  if (path.isNil()) path = bundle.pathForResource(name, u"storyboard");
  if (path.isNil()) throw tq::cli::Failure(nib + ": no such interface in " + u8(bundle.bundlePath()));
  // A nib folder is read in place: its compiled interface, or its designable.nib.
  return path.UTF8String();
}

void writeStringsJson(tq::cli::Json& j, const loc::Report& r) {
  j.key("strings").beginArray();
  for (const auto& s : r.strings) {
    j.beginObject();
    j.key("class").string(s.cls).key("id").string(s.id).key("property").string(s.property).key("key").string(s.key);
    j.key("before").string(s.before).key("after");
    if (s.afterIsNil) {
      j.null();
    } else {
      j.string(s.after);
    }
    j.key("status").string(s.status);
    j.endObject();
  }
  j.endArray();
  j.key("overflows").beginArray();
  for (const auto& o : r.overflows) {
    j.beginObject();
    j.key("kind").string(o.kind).key("class").string(o.cls).key("id").string(o.id).key("property").string(o.property);
    j.key("text").string(o.text).key("width").number(o.width).key("needed").number(o.needed);
    j.endObject();
  }
  j.endArray();
  j.key("resized").beginArray();
  for (const auto& z : r.resized) {
    j.beginObject();
    j.key("id").string(z.id).key("title").string(z.title);
    j.key("widthBefore").number(z.widthBefore).key("widthAfter").number(z.widthAfter);
    j.endObject();
  }
  j.endArray();
  j.key("missing").beginArray();
  for (const auto& m : r.missing) j.string(m.key);
  j.endArray();
  j.key("unused").beginArray();
  for (const auto& u : r.unused) j.string(u);
  j.endArray();
}

int runOne(const tq::cli::Args& args, const std::shared_ptr<tq::Bundle>& bundle, const std::string& nib) {
  const bool json = args.has("json");
  loc::Options options;
  options.mode = args.has("by-id") ? loc::Mode::ById : loc::Mode::Localizer;
  if (auto t = args.value("table")) options.table = String::fromUTF8(*t);
  std::vector<std::string> pngs;
  std::optional<FolderOutput> out;
  if (auto dir = args.value("png")) {
    out.emplace(*dir);
    options.pictures = loc::Pictures::BeforeAndAfter;
    options.onPicture = [&](const std::string& picture, const char* when, const tq::GraphicsContextRef& image) {
      const std::string name = picture + "-" + when + ".png";
      out->addPNG(name, image);
      pngs.push_back(out->finalPath(name));
    };
  }
  const std::string file = locate(*bundle, nib);
  loc::Report report = loc::localizeInterface(bundle, file, options);
  if (!report.error.empty()) throw tq::cli::Failure(report.error);
  // Listed as before and after of each picture in turn.
  std::stable_sort(pngs.begin(), pngs.end(), [](const std::string& a, const std::string& b) {
    return a.substr(0, a.rfind('-')) < b.substr(0, b.rfind('-'));
  });

  if (json) {
    tq::cli::Json j;
    j.beginObject();
    j.key("bundle").string(u8(bundle->bundlePath()));
    j.key("interface").string(file);
    j.key("mode").string(loc::modeName(report.mode));
    j.key("table");
    if (options.mode == loc::Mode::Localizer && options.table.isNil()) {
      j.null();
    } else {
      j.string(report.table);
    }
    j.key("localization").string(report.localization);
    j.key("localizations").beginArray();
    for (const auto& l : bundle->preferredLocalizations()) j.string(u8(l));
    j.endArray();
    writeStringsJson(j, report);
    j.key("png").beginArray();
    for (const auto& p : pngs) j.string(p);
    j.endArray();
    j.endObject();
    j.newline();
    if (out) out->commit();  // the pictures are in place once the report about them is out
    return 0;
  }

  for (const auto& s : report.strings) {
    if (s.status == "empty") continue;
    const char* label = s.status == "translated" ? "ok" : s.status == "ignored" ? "ignored" : "MISSING";
    std::printf("%-10s %s%s%s.%s: %s -> %s\n", label, s.cls.c_str(),
                s.id.empty() ? "" : " #", s.id.c_str(), s.property.c_str(), tq::cli::Json::escape(s.before).c_str(),
                s.afterIsNil ? "nil" : tq::cli::Json::escape(s.after).c_str());
  }
  std::printf("\n%zu strings translated, %zu missing, %zu unused keys in table %s\n", report.translated(),
              report.missing.size(), report.unused.size(), report.table.c_str());
  for (const auto& u : report.unused) std::printf("unused: %s\n", tq::cli::Json::escape(u).c_str());
  for (const auto& o : report.overflows) {
    if (o.kind == "text") {
      std::printf("overflow: %s #%s.%s %s needs %.0f, has %.0f\n", o.cls.c_str(), o.id.c_str(), o.property.c_str(),
                  tq::cli::Json::escape(o.text).c_str(), o.needed, o.width);
    } else {
      std::printf("overflow: %s #%s %s reaches x %.0f past its superview's width %.0f\n", o.cls.c_str(), o.id.c_str(),
                  tq::cli::Json::escape(o.text).c_str(), o.needed, o.width);
    }
  }
  for (const auto& z : report.resized) {
    std::printf("resized check box #%s %s: width %.0f -> %.0f\n", z.id.c_str(), tq::cli::Json::escape(z.title).c_str(),
                z.widthBefore, z.widthAfter);
  }
  for (const auto& p : pngs) std::printf("wrote %s\n", p.c_str());
  if (out) out->commit();
  return 0;
}

// --- every interface of a bundle ----------------------------------------------------------------

// Text kept out of memory until the end: the rows of the --json summary, written in order to a
// scratch file and copied out whole.
class Spool {
 public:
  Spool() : file_(std::tmpfile()) {
    if (!file_) throw tq::cli::Failure(std::string("cannot make a scratch file: ") + std::strerror(errno));
  }
  ~Spool() { std::fclose(file_); }
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;
  std::FILE* file() { return file_; }
  // Copies everything written to `out` but the first `skip` bytes, each line's newline replaced
  // by `separator` (none after the last).
  void copyLines(std::FILE* out, char separator, long skip = 0) {
    std::fseek(file_, skip, SEEK_SET);
    bool pending = false;
    for (int c; (c = std::getc(file_)) != EOF;) {
      if (pending) std::putc(separator, out), pending = false;
      if (c == '\n') {
        pending = true;
      } else {
        std::putc(c, out);
      }
    }
    if (std::ferror(file_)) throw tq::cli::Failure("cannot read the scratch file back");
  }

 private:
  std::FILE* file_;
};

void writeRowJson(std::FILE* out, const loc::Report& r) {
  tq::cli::Json j(out);
  j.beginObject();
  j.key("interface").string(r.interfaceName);
  j.key("localization").string(r.localization).key("mode").string(loc::modeName(r.mode));
  j.key("table");
  if (r.table.empty()) {
    j.null();
  } else {
    j.string(r.table);
  }
  j.key("translated").number(static_cast<long long>(r.translated()));
  j.key("missingCount").number(static_cast<long long>(r.missing.size()));
  j.key("unusedCount").number(static_cast<long long>(r.unused.size()));
  j.key("overflowing").number(static_cast<long long>(r.overflows.size()));
  j.key("path").string(r.interfacePath);
  j.key("tableFound").boolean(r.tableFound);
  if (!r.error.empty()) j.key("error").string(r.error);
  writeStringsJson(j, r);
  j.endObject();
  j.newline();
}

// The progress line on a terminal: how far, and which interface and language.
class Progress {
 public:
  explicit Progress(std::size_t total) : total_(total), shown_(::isatty(2) != 0) {}
  ~Progress() { finish(); }
  // Clears the line, before anything else is printed.
  void finish() {
    if (shown_ && done_ > 0) std::fprintf(stderr, "\r\033[K");
    shown_ = false;
  }
  void step(const std::string& interface, const std::string& localization) {
    ++done_;
    if (shown_) std::fprintf(stderr, "\r%zu/%zu %s %s\033[K", done_, total_, interface.c_str(), localization.c_str());
  }

 private:
  std::size_t total_, done_ = 0;
  bool shown_;
};

// The development language's bundle for the pictures before, a language's for its row: each
// reads the user's language once, on first use.
std::shared_ptr<tq::Bundle> bundleIn(const std::string& bundlePath, const std::string& localization) {
  if (localization.empty()) {
    ::unsetenv("LANGUAGE");
  } else {
    ::setenv("LANGUAGE", localization.c_str(), 1);
  }
  return std::make_shared<tq::Bundle>(String::fromUTF8(bundlePath));
}

int runAll(const tq::cli::Args& args, const std::string& bundlePath) {
  const auto started = std::chrono::steady_clock::now();
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(bundlePath));
  if (!bundle) throw tq::cli::Failure(bundlePath + ": not a folder");
  const auto htmlDir = args.value("html");
  const bool json = args.has("json");
  const loc::BundlePlan plan = loc::planBundle(*bundle);
  std::size_t total = 0;
  for (const auto& i : plan.interfaces) total += i.rows.size();
  if (plan.interfaces.empty()) throw tq::cli::Failure(bundlePath + ": no interfaces in any localization");
  if (total == 0) {
    // Interfaces in one language only leave nothing to compare; say which.
    throw tq::cli::Failure(bundlePath + ": " + std::to_string(plan.interfaceFiles) +
                           " interfaces, all in one language and with no other language's table to compare");
  }

  std::optional<loc::Page> page;
  if (htmlDir) page.emplace(*htmlDir);
  std::optional<Spool> rowsJson;
  if (json) rowsJson.emplace();
  std::vector<loc::RowSummary> rows;
  Progress progress(total);
  for (const auto& interface : plan.interfaces) {
    // The development language's strings, for the copies compared with them and the languages
    // that lack the interface; and its pictures, the "before" of every language.
    loc::Catalog development;
    const bool compared = std::any_of(interface.rows.begin(), interface.rows.end(), [](const loc::Row& r) {
      return r.mode == loc::Mode::Copy || r.mode == loc::Mode::Absent;
    });
    if (compared) development = loc::catalogOf(interface.developmentFile);
    if (page) {
      std::string error;
      auto names = loc::drawInterface(bundleIn(bundlePath, plan.development), interface.developmentFile,
                                      page->beforePictures(interface.name), error);
      page->beginInterface(interface, std::move(names), error);
    }
    for (const auto& row : interface.rows) {
      loc::Options options;
      options.mode = row.mode;
      options.localization = row.localization;
      options.development = &development;
      if (page) {
        options.pictures = loc::Pictures::After;
        options.onPicture = page->afterPictures(interface.name, row.localization);
        options.unchangedIsBefore = row.file == interface.developmentFile;
      }
      if (auto t = args.value("table")) {
        options.table = String::fromUTF8(*t);
      } else if (!row.sharedTable.empty()) {
        options.table = String::fromUTF8(row.sharedTable);
        options.sharedTable = true;
      }
      const std::string file = row.mode == loc::Mode::Absent ? interface.developmentFile : row.file;
      const loc::Report report = loc::localizeInterface(bundleIn(bundlePath, row.localization), file, options);
      rows.push_back(loc::summaryOf(report));
      if (page) page->addRow(report);
      if (rowsJson) writeRowJson(rowsJson->file(), report);
      progress.step(interface.name, row.localization);
    }
  }
  progress.finish();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  if (page) page->finish(bundlePath, plan, rows, seconds);
  // The page's folder is put in place once the summary is out.
  const auto commitPage = [&] {
    if (!page) return;
    tq::cli::flushStandardOutput();
    page->commit();
  };

  std::size_t translated = 0, missing = 0, unused = 0, overflowing = 0, failed = 0;
  for (const auto& r : rows) {
    translated += r.translated, missing += r.missing, unused += r.unused;
    overflowing += r.overflowing, failed += !r.error.empty();
  }
  const auto totals = loc::languageTotals(plan, rows);
  if (json) {
    using tq::cli::Json;
    std::printf("{\"bundle\":\"%s\",\"development\":\"%s\",\"interfaces\":[", Json::escape(bundlePath).c_str(),
                Json::escape(plan.development).c_str());
    rowsJson->copyLines(stdout, ',');
    std::optional<Spool> tail;
    tail.emplace();
    Json j(tail->file());
    j.beginObject();
    j.key("languages").beginArray();
    for (const auto& t : totals) {
      j.beginObject();
      j.key("localization").string(t.localization);
      j.key("aliases").beginArray();
      for (const auto& a : t.aliases) j.string(a);
      j.endArray();
      j.key("interfaces").number(static_cast<long long>(t.interfaces));
      j.key("absent").number(static_cast<long long>(t.absent));
      j.key("withoutTable").number(static_cast<long long>(t.noTable));
      j.key("unreadable").number(static_cast<long long>(t.unreadable));
      j.key("translated").number(static_cast<long long>(t.translated));
      j.key("missingCount").number(static_cast<long long>(t.missing));
      j.key("unusedCount").number(static_cast<long long>(t.unused));
      j.key("overflowing").number(static_cast<long long>(t.overflowing));
      j.key("completeness").number(std::round(t.completeness() * 10000) / 10000);
      j.endObject();
    }
    j.endArray();
    j.key("aliases").beginArray();
    for (const auto& a : plan.aliases) j.beginObject().key("localization").string(a.localization).key("sameAs").string(a.sameAs).endObject();
    j.endArray();
    j.key("totals").beginObject();
    j.key("translated").number(static_cast<long long>(translated)).key("missing").number(static_cast<long long>(missing));
    j.key("unused").number(static_cast<long long>(unused)).key("overflowing").number(static_cast<long long>(overflowing));
    j.key("unreadable").number(static_cast<long long>(failed));
    j.endObject();
    j.key("seconds").number(seconds);
    if (htmlDir) j.key("html").string((fs::path(*htmlDir) / "index.html").string());
    j.endObject();
    j.newline();
    // The one document: the rows, then the rest of the object above (without its opening brace).
    std::fputs("],", stdout);
    tail->copyLines(stdout, '\n', 1);
    std::fputs("\n", stdout);
    commitPage();
    return 0;
  }
  std::printf("%-28s %-10s %-9s %10s %8s %7s %11s\n", "interface", "language", "mode", "translated", "missing",
              "unused", "overflowing");
  for (const auto& r : rows) {
    if (!r.error.empty()) {
      std::printf("%-28s %-10s %-9s unreadable: %s\n", r.interface.c_str(), r.localization.c_str(),
                  loc::modeName(r.mode), r.error.c_str());
      continue;
    }
    std::printf("%-28s %-10s %-9s %10zu %8zu %7zu %11zu%s\n", r.interface.c_str(), r.localization.c_str(),
                loc::modeName(r.mode), r.translated, r.missing, r.unused, r.overflowing,
                r.mode != loc::Mode::Absent && !r.tableFound ? ("  (no table " + r.table + ")").c_str() : "");
  }
  std::printf("\n%-10s %8s %10s %8s %7s %11s %10s %6s\n", "language", "complete", "translated", "missing", "unused",
              "overflowing", "interfaces", "absent");
  for (const auto& t : totals) {
    std::string name = t.localization;
    for (const auto& a : t.aliases) name += " (also " + a + ")";
    std::printf("%-10s %7.0f%% %10zu %8zu %7zu %11zu %10zu %6zu\n", name.c_str(), std::floor(t.completeness() * 100),
                t.translated, t.missing, t.unused, t.overflowing, t.interfaces, t.absent);
  }
  std::printf("\ntotal: %zu translated, %zu missing, %zu unused, %zu overflowing, %zu unreadable (%.2f s)\n",
              translated, missing, unused, overflowing, failed, seconds);
  if (htmlDir) std::printf("wrote %s\n", (fs::path(*htmlDir) / "index.html").c_str());
  commitPage();
  return 0;
}

int runLocalize(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {"language", "table", "png", "html"}, {"json", "by-id", "all"});
  const bool all = args.has("all");
  args.expectPositionals(all ? 1 : 2, all ? 1 : 2);
  const std::string bundlePath = args.positional(0, "BUNDLE");
  if (all && (args.has("by-id") || args.value("png") || args.value("language"))) {
    throw tq::cli::UsageError("--all chooses the way and the languages itself (no --by-id, --png or --language)");
  }
  if (!all && args.value("html")) throw tq::cli::UsageError("--html DIR goes with --all");
  // Sizes (check boxes fitted to their titles, the fit test) measured by the text system that draws.
  tq::PangoTextMeasurer::install();
  tq::cli::warnOfUncoveredCharacters("localize");
  if (all) return runAll(args, bundlePath);

  if (const auto language = args.value("language")) ::setenv("LANGUAGE", language->c_str(), 1);
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(bundlePath));
  if (!bundle) throw tq::cli::Failure(bundlePath + ": not a folder");
  return runOne(args, bundle, args.positional(1, "NIB"));
}

tq::cli::Registration localize(
    {"localize", "translate interfaces with a bundle's strings tables and report the result",
     "usage: tqkit localize BUNDLE NIB [--language L] [--table T] [--by-id] [--json] [--png DIR]\n"
     "       tqkit localize BUNDLE --all [--table T] [--json] [--html DIR]\n\n"
     "Loads the interface NIB (a name looked up as a nib, xib or storyboard resource of the bundle\n"
     "folder BUNDLE, or a file path), translates it as TQLocalizer does with the strings table T (default: the\n"
     "bundle's default table; menu titles use table \"default\"), and lists every visible string\n"
     "before and after with the object that holds it (controls by their cell's identifier, as the\n"
     "tables name them). Then it reports the strings the table lacks, the keys of the table that\n"
     "matched nothing (for a table of the interface's own: --by-id or --table), each translated\n"
     "text that no longer fits its control (measured with the control's font), each resized check\n"
     "box and those that now reach past their superview. A string counts as translated when the\n"
     "table holds its key, also when the translation is the same text. Strings the interface does\n"
     "not show (the title of a separator, or of a box placed with no title) and strings marked\n"
     "\"#bc-ignore!\" in their text or their note to translators are ignored: neither translated\n"
     "nor missing (a key the table holds for one is not unused). Text in a script no installed\n"
     "font covers is measured (and drawn) as boxes, so its fit is unknown; each such font and\n"
     "script is named once on standard error.\n\n"
     "  --language L  the user's language for choosing the bundle's localization (as LANGUAGE)\n"
     "  --table T     the strings table name (without .strings)\n"
     "  --by-id       apply instead a table keyed by object identifier and property, as generated\n"
     "                beside a Base interface (\"ID.title\", \"ID.headerCell.title\",\n"
     "                \"ID.ibShadowedLabels[0]\", \"ID.ibShadowedToolTips[0]\", \"ID.toolTip\",\n"
     "                \"ID.ibShadowedDisplayPattern\", \"ID.ibShadowedNullPlaceholder\", ...); strings of\n"
     "                a compiled nib by the keys it keeps (\"170.title\"); the table defaults to the\n"
     "                NIB's name\n"
     "  --png DIR     draw each window and top-level view (of a storyboard, each scene's window or\n"
     "                view) before and after into DIR (overflowing controls outlined)\n"
     "  --all         every interface of the bundle in every language, one row per interface and\n"
     "                language, in the one way that language gets the interface:\n"
     "                  copy       its own copy (LANG.lproj/NAME.nib, .xib, .storyboard or\n"
     "                             .storyboardc), compared with the development language's\n"
     "                             object by object: by the identifiers or table keys the files\n"
     "                             give, else by the place in the object tree; a string\n"
     "                             counts as translated when the copy has it;\n"
     "                  by-id      the Base interface with the language's table named after it;\n"
     "                  localizer  the unlocalized interface (compiled nibs of a built framework\n"
     "                             too) with the table the languages hold (Localizable, else the\n"
     "                             one table they hold, else the one named for the bundle; such a\n"
     "                             shared table reports no unused keys);\n"
     "                  absent     none of these: the interface shows in the development language\n"
     "                             and each of its strings is missing.\n"
     "                The development language (the bundle's region, else en or English) gets no\n"
     "                rows; a language folder that is a link to another is reported once, as an\n"
     "                alias. Then each language's totals and completeness (translated out of\n"
     "                translated and missing). A progress line goes to standard error when it is a\n"
     "                terminal.\n"
     "  --html DIR    with --all: a page DIR/index.html: the languages' totals, the table of rows,\n"
     "                then per interface the development language's pictures beside each\n"
     "                language's, and what is missing with the development language's text beside\n"
     "                its key (PNG files beside it, written as they are drawn)\n"
     "  --json        one JSON object. For one interface: strings (status translated,\n"
     "                untranslated, empty or ignored), overflows, resized, missing, unused, png.\n"
     "                With --all:\n"
     "                  \"bundle\", \"development\",\n"
     "                  \"interfaces\": one object per row, in this order: \"interface\",\n"
     "                    \"localization\", \"mode\" (\"copy\", \"by-id\", \"localizer\" or \"absent\"),\n"
     "                    \"table\" (null without one), \"translated\", \"missingCount\",\n"
     "                    \"unusedCount\", \"overflowing\", then \"path\" (the file the language\n"
     "                    shows), \"tableFound\", \"error\" (only when unreadable), and the lists\n"
     "                    \"strings\", \"overflows\", \"resized\", \"missing\" (keys), \"unused\";\n"
     "                  \"languages\": per language \"localization\", \"aliases\", \"interfaces\",\n"
     "                    \"absent\", \"withoutTable\", \"unreadable\", \"translated\",\n"
     "                    \"missingCount\", \"unusedCount\", \"overflowing\", \"completeness\" (0 to 1);\n"
     "                  \"aliases\": {\"localization\", \"sameAs\"} per linked folder;\n"
     "                  \"totals\", \"seconds\", and \"html\" with --html.\n\n"
     "Files are written whole or not at all. Exit status: 0 on success (also when some interfaces\n"
     "cannot be read: their rows say why), 1 when the bundle or interface cannot be read or a file\n"
     "written, 2 on a usage error.\n",
     runLocalize});

}  // namespace
