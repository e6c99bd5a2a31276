// tqkit localize: translates an interface of a bundle (or every interface of a bundle in every
// localization it holds) and reports what was translated, what the table lacks, which keys of the
// table matched nothing, and what no longer fits; with pictures before and after.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli.h"
#include "font_coverage.h"
#include "output_file.h"
#include "localize_report.h"
#include "tq/platform/ui/drawing/pango_text_measurer.h"

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

// Files bound for one folder, written whole or not at all when committed.
class FolderOutput {
 public:
  explicit FolderOutput(std::string folder) : folder_(std::move(folder)) {}
  void add(const std::string& name, std::string bytes) { files_.add(finalPath(name), std::move(bytes)); }
  void addPNG(const std::string& name, const tq::GraphicsContextRef& image) {
    if (!image) throw tq::cli::Failure(finalPath(name) + ": cannot be drawn");
    add(name, tq::cli::pngBytes(image->surface()));
  }
  // The file's name in the finished folder.
  std::string finalPath(const std::string& name) const { return (fs::path(folder_) / name).string(); }
  void commit() { files_.commit(folder_); }

 private:
  std::string folder_;
  tq::cli::OutputFiles files_;
};

// --- one interface ------------------------------------------------------------------------------

std::string locate(const tq::Bundle& bundle, const std::string& nib) {
  if (isFile(nib) || (isFolder(nib) && fs::path(nib).extension() == ".nib")) return nib;
  const String name = String::fromUTF8(fs::path(nib).extension() == ".xib" || fs::path(nib).extension() == ".nib"
                                           ? fs::path(nib).stem().string()
                                           : nib);
  const String path = bundle.pathForNibResource(name);
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
  for (const auto& m : r.missing) j.string(m);
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
  options.pictures = args.value("png").has_value();
  const std::string file = locate(*bundle, nib);
  loc::Report report = loc::localizeInterface(bundle, file, options);
  if (!report.error.empty()) throw tq::cli::Failure(report.error);

  std::vector<std::string> pngs;
  if (auto dir = args.value("png")) {
    FolderOutput out(*dir);
    for (const auto& p : report.pictures) {
      for (const auto& [suffix, image] : {std::pair{"before", p.before}, std::pair{"after", p.after}}) {
        const std::string name = p.name + "-" + suffix + ".png";
        out.addPNG(name, image);
        pngs.push_back(out.finalPath(name));
      }
    }
    out.commit();
  }

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
    return 0;
  }

  for (const auto& s : report.strings) {
    if (s.status == "empty") continue;
    std::printf("%-10s %s%s%s.%s: %s -> %s\n", s.status == "translated" ? "ok" : "MISSING", s.cls.c_str(),
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
  return 0;
}

// --- every interface of a bundle ----------------------------------------------------------------

struct Job {
  std::string file;         // the interface
  std::string localization; // the language reported
  loc::Mode mode;
  std::string developmentCopy;
  std::string table;  // for the localizer: a table the program shares, when not the default one
};

// The names of the strings tables the bundle's localizations hold ("Localizable", "Sparkle"...).
std::set<std::string> tablesOf(const fs::path& resources, const std::vector<std::string>& languages) {
  std::set<std::string> names;
  for (const auto& l : languages) {
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(resources / (l + ".lproj"), ec)) {
      if (e.path().extension() == ".strings") names.insert(e.path().stem().string());
    }
  }
  return names;
}

bool isInterface(const fs::path& p) { return p.extension() == ".xib" || p.extension() == ".nib"; }

// The interfaces of a bundle and how each is localized: a Base interface by the identifier-keyed
// table of each language, an unlocalized one by the localizer with each language's table, a
// language's own copy against the development language's copy.
std::vector<Job> jobsOf(const tq::Bundle& bundle) {
  const fs::path resources = u8(bundle.resourcePath());
  std::vector<std::string> languages;
  for (const auto& l : bundle.localizations()) {
    if (u8(l) != "Base") languages.push_back(u8(l));
  }
  // The development language: the bundle's region, else English by either name.
  std::string development = u8(bundle.developmentLocalization());
  if (development.empty() || std::find(languages.begin(), languages.end(), development) == languages.end()) {
    for (const char* english : {"en", "English"}) {
      if (std::find(languages.begin(), languages.end(), english) != languages.end()) development = english;
    }
  }
  // Interfaces outside the language folders are in the development language and translated by the
  // localizer from the default table; a bundle without one (a framework that names its table after
  // itself) is translated from the one table its languages hold, or the one named for the bundle.
  std::string sharedTable;
  const std::set<std::string> tables = tablesOf(resources, languages);
  if (!tables.count("Localizable")) {
    const std::string own = fs::path(u8(bundle.bundlePath())).stem().string();
    if (tables.size() == 1) {
      sharedTable = *tables.begin();
    } else if (tables.count(own)) {
      sharedTable = own;
    }
  }
  std::map<std::string, std::vector<std::string>> copies;  // interface name -> languages holding a copy
  std::vector<Job> jobs;
  std::vector<fs::path> entries;
  for (const auto& e : fs::directory_iterator(resources)) entries.push_back(e.path());
  std::sort(entries.begin(), entries.end());
  for (const auto& p : entries) {
    if (isInterface(p)) {
      for (const auto& l : languages) {
        if (l != development) jobs.push_back({p.string(), l, loc::Mode::Localizer, {}, sharedTable});
      }
    }
  }
  for (const auto& l : bundle.localizations()) {
    const fs::path folder = resources / (u8(l) + ".lproj");
    std::vector<fs::path> inside;
    for (const auto& e : fs::directory_iterator(folder)) {
      if (isInterface(e.path())) inside.push_back(e.path());
    }
    std::sort(inside.begin(), inside.end());
    for (const auto& p : inside) {
      if (u8(l) == "Base") {
        // The Base interface is in the development language, which needs no table.
        for (const auto& other : languages) {
          if (other != development) jobs.push_back({p.string(), other, loc::Mode::ById, {}, {}});
        }
      } else {
        copies[p.filename().string()].push_back(u8(l));
      }
    }
  }
  // The development language's copy is the original; the others are its translations.
  for (const auto& [name, holders] : copies) {
    const bool held = std::find(holders.begin(), holders.end(), development) != holders.end();
    const std::string original = (resources / ((held ? development : holders.front()) + ".lproj") / name).string();
    for (const auto& l : holders) {
      if (l == (held ? development : holders.front())) continue;
      jobs.push_back({(resources / (l + ".lproj") / name).string(), l, loc::Mode::Copy, original, {}});
    }
  }
  return jobs;
}

std::string html(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string fileSafe(const std::string& s) {
  std::string out;
  for (char c : s) out += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' ? c : '_';
  return out;
}

// The page a localization engineer opens: the summary, then per interface and language the
// pictures before and after side by side with overflowing controls outlined, and the lists.
void writePage(FolderOutput& out, const std::string& bundlePath, const std::vector<loc::Report>& reports,
               double seconds) {
  std::string page =
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Localization report</title>\n<style>"
      "body{font:14px sans-serif;margin:2em;color:#222}table{border-collapse:collapse}"
      "td,th{border:1px solid #ccc;padding:3px 8px;text-align:right}td:first-child,th:first-child,"
      "td:nth-child(2){text-align:left}.bad{color:#b00;font-weight:bold}.pair{display:flex;gap:16px;"
      "flex-wrap:wrap;align-items:flex-start}figure{margin:0}figcaption{color:#666;font-size:12px}"
      "img{border:1px solid #ddd;max-width:100%}section{margin-top:2.5em;border-top:2px solid #eee}"
      "</style></head><body>\n<h1>Localization report</h1>\n<p>" +
      html(bundlePath) + " &mdash; " + std::to_string(reports.size()) + " interface and language pairs in " +
      std::to_string(seconds).substr(0, std::to_string(seconds).find('.') + 3) + " s</p>\n";
  page += "<table><tr><th>interface</th><th>language</th><th>mode</th><th>translated</th><th>missing</th>"
          "<th>unused</th><th>overflowing</th></tr>\n";
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const auto& r = reports[i];
    const auto cell = [](std::size_t n) {
      return std::string("<td") + (n ? " class=\"bad\"" : "") + ">" + std::to_string(n) + "</td>";
    };
    page += "<tr><td><a href=\"#r" + std::to_string(i) + "\">" + html(r.interfaceName) + "</a></td><td>" +
            html(r.localization) + "</td><td>" + loc::modeName(r.mode) + "</td>";
    if (!r.error.empty()) {
      page += "<td colspan=\"4\" class=\"bad\">" + html(r.error) + "</td></tr>\n";
      continue;
    }
    page += "<td>" + std::to_string(r.translated()) + "</td>" + cell(r.missing.size()) + cell(r.unused.size()) +
            cell(r.overflows.size()) + "</tr>\n";
  }
  page += "</table>\n";
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const auto& r = reports[i];
    page += "<section id=\"r" + std::to_string(i) + "\"><h2>" + html(r.interfaceName) + " &mdash; " +
            html(r.localization) + "</h2>\n<p>" + html(r.interfacePath) + " (" + loc::modeName(r.mode) +
            (r.table.empty() ? "" : ", table " + html(r.table)) + ")</p>\n";
    if (!r.error.empty()) {
      page += "<p class=\"bad\">" + html(r.error) + "</p></section>\n";
      continue;
    }
    for (const auto& p : r.pictures) {
      const std::string base = fileSafe(r.interfaceName + "-" + r.localization + "-" + p.name);
      page += "<div class=\"pair\">";
      for (const auto& [suffix, image] : {std::pair{"before", p.before}, std::pair{"after", p.after}}) {
        if (!image) continue;
        const std::string name = base + "-" + suffix + ".png";
        out.addPNG(name, image);
        page += "<figure><img src=\"" + html(name) + "\" alt=\"" + suffix + "\"><figcaption>" + html(p.name) + ", " +
                suffix + "</figcaption></figure>";
      }
      page += "</div>\n";
    }
    const auto list = [&](const char* title, const std::vector<std::string>& items) {
      if (items.empty()) return;
      page += "<h3>" + std::string(title) + " (" + std::to_string(items.size()) + ")</h3><ul>";
      for (const auto& item : items) page += "<li>" + html(item) + "</li>";
      page += "</ul>\n";
    };
    std::vector<std::string> overflows;
    for (const auto& o : r.overflows) {
      overflows.push_back(o.kind == "text" ? o.cls + " #" + o.id + "." + o.property + " \"" + o.text + "\" needs " +
                                                 std::to_string(static_cast<int>(o.needed)) + ", has " +
                                                 std::to_string(static_cast<int>(o.width))
                                           : o.cls + " #" + o.id + " \"" + o.text + "\" reaches past its superview");
    }
    list("Overflowing (outlined in red)", overflows);
    list("Missing", r.missing);
    list("Unused keys", r.unused);
    page += "</section>\n";
  }
  page += "</body></html>\n";
  out.add("index.html", std::move(page));
}

int runAll(const tq::cli::Args& args, const std::string& bundlePath) {
  const auto started = std::chrono::steady_clock::now();
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(bundlePath));
  if (!bundle) throw tq::cli::Failure(bundlePath + ": not a folder");
  const auto htmlDir = args.value("html");
  const bool json = args.has("json");
  std::vector<loc::Report> reports;
  const auto jobs = jobsOf(*bundle);
  if (jobs.empty()) {
    // Interfaces in one language only leave nothing to compare; say which.
    std::size_t interfaces = 0;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(u8(bundle->resourcePath()), ec)) {
      if (isInterface(e.path())) ++interfaces;
      if (e.path().extension() != ".lproj") continue;
      for (const auto& inside : fs::directory_iterator(e.path(), ec)) interfaces += isInterface(inside.path());
    }
    if (interfaces == 0) throw tq::cli::Failure(bundlePath + ": no interfaces in any localization");
    throw tq::cli::Failure(bundlePath + ": " + std::to_string(interfaces) +
                           " interfaces, all in one language and with no other language's table to compare");
  }
  std::size_t done = 0;
  for (const Job& job : jobs) {
    // A bundle of its own per language: the preferred localization is read on first use.
    ::setenv("LANGUAGE", job.localization.c_str(), 1);
    auto localized = std::make_shared<tq::Bundle>(String::fromUTF8(bundlePath));
    loc::Options options;
    options.mode = job.mode;
    options.localization = job.localization;
    options.developmentCopy = job.developmentCopy;
    options.pictures = htmlDir.has_value();
    if (auto t = args.value("table")) {
      options.table = String::fromUTF8(*t);
    } else if (!job.table.empty()) {
      options.table = String::fromUTF8(job.table);
      options.sharedTable = true;
    }
    reports.push_back(loc::localizeInterface(localized, job.file, options));
    if (!json && ::isatty(2)) {
      std::fprintf(stderr, "\r%zu/%zu %s %s\033[K", ++done, jobs.size(), fs::path(job.file).filename().c_str(),
                   job.localization.c_str());
    }
  }
  if (!json && ::isatty(2)) std::fprintf(stderr, "\r\033[K");
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  if (htmlDir) {
    FolderOutput out(*htmlDir);
    writePage(out, bundlePath, reports, seconds);
    out.commit();
  }

  std::size_t translated = 0, missing = 0, unused = 0, overflowing = 0, failed = 0;
  for (const auto& r : reports) {
    translated += r.translated(), missing += r.missing.size(), unused += r.unused.size();
    overflowing += r.overflows.size(), failed += !r.error.empty();
  }
  if (json) {
    tq::cli::Json j;
    j.beginObject().key("bundle").string(bundlePath).key("seconds").number(seconds);
    j.key("interfaces").beginArray();
    for (const auto& r : reports) {
      j.beginObject();
      j.key("interface").string(r.interfaceName).key("path").string(r.interfacePath);
      j.key("localization").string(r.localization).key("mode").string(loc::modeName(r.mode));
      j.key("table").string(r.table);
      if (!r.error.empty()) j.key("error").string(r.error);
      j.key("translated").number(static_cast<long long>(r.translated()));
      j.key("missingCount").number(static_cast<long long>(r.missing.size()));
      j.key("unusedCount").number(static_cast<long long>(r.unused.size()));
      j.key("overflowing").number(static_cast<long long>(r.overflows.size()));
      writeStringsJson(j, r);
      j.endObject();
    }
    j.endArray();
    j.key("totals").beginObject();
    j.key("translated").number(static_cast<long long>(translated)).key("missing").number(static_cast<long long>(missing));
    j.key("unused").number(static_cast<long long>(unused)).key("overflowing").number(static_cast<long long>(overflowing));
    j.key("unreadable").number(static_cast<long long>(failed));
    j.endObject();
    if (htmlDir) j.key("html").string((fs::path(*htmlDir) / "index.html").string());
    j.endObject();
    j.newline();
    return 0;
  }
  std::printf("%-28s %-10s %-9s %10s %8s %7s %11s\n", "interface", "language", "mode", "translated", "missing",
              "unused", "overflowing");
  for (const auto& r : reports) {
    if (!r.error.empty()) {
      std::printf("%-28s %-10s %-9s unreadable: %s\n", r.interfaceName.c_str(), r.localization.c_str(),
                  loc::modeName(r.mode), r.error.c_str());
      continue;
    }
    std::printf("%-28s %-10s %-9s %10zu %8zu %7zu %11zu\n", r.interfaceName.c_str(), r.localization.c_str(),
                loc::modeName(r.mode), r.translated(), r.missing.size(), r.unused.size(), r.overflows.size());
  }
  std::printf("\ntotal: %zu translated, %zu missing, %zu unused, %zu overflowing, %zu unreadable (%.2f s)\n",
              translated, missing, unused, overflowing, failed, seconds);
  if (htmlDir) std::printf("wrote %s\n", (fs::path(*htmlDir) / "index.html").c_str());
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
     "Loads the interface NIB (a name looked up as a nib or xib resource of the bundle folder BUNDLE,\n"
     "or a file path), translates it as TQLocalizer does with the strings table T (default: the\n"
     "bundle's default table; menu titles use table \"default\"), and lists every visible string\n"
     "before and after with the object that holds it (controls by their cell's identifier, as the\n"
     "tables name them). Then it reports the strings the table lacks, the keys of the table that\n"
     "matched nothing (for a table of the interface's own: --by-id or --table), each translated text that no longer fits its control (measured with the\n"
     "control's font), each resized check box and those that now reach past their superview.\n"
     "Text in a script no installed font covers is measured (and drawn) as boxes, so its fit is\n"
     "unknown; each such font and script is named once on standard error.\n\n"
     "  --language L  the user's language for choosing the bundle's localization (as LANGUAGE)\n"
     "  --table T     the strings table name (without .strings)\n"
     "  --by-id       apply instead a table keyed by object identifier and property, as generated\n"
     "                beside a Base interface (\"ID.title\", \"ID.headerCell.title\",\n"
     "                \"ID.ibShadowedLabels[0]\", \"ID.ibShadowedToolTips[0]\", \"ID.toolTip\",\n"
     "                \"ID.ibShadowedDisplayPattern\", \"ID.ibShadowedNullPlaceholder\", ...); the table\n"
     "                defaults to the NIB's name\n"
     "  --png DIR     draw each window before and after into DIR (overflowing controls outlined)\n"
     "  --all         every interface of the bundle in every localization it holds: Base interfaces\n"
     "                with each language's identifier-keyed table, unlocalized ones (compiled\n"
     "                nibs of a built framework too) with the localizer and each language's\n"
     "                table (Localizable, else the one table the languages hold, else the one\n"
     "                named for the bundle; such a shared table reports no unused keys), a\n"
     "                language's own copy against the development language's copy object by\n"
     "                object (an object the copy lacks is missing); one summary (translated,\n"
     "                missing, unused, overflowing per interface and language)\n"
     "  --html DIR    with --all: a page DIR/index.html with the summary and, per interface and\n"
     "                language, the pictures before and after side by side (PNG files beside it)\n"
     "  --json        one JSON object: strings (status translated, untranslated or empty),\n"
     "                overflows, resized, missing, unused, png; with --all the summary with each\n"
     "                interface's lists and the totals\n\n"
     "Files are written whole or not at all. Exit status: 0 on success, 1 when the bundle or\n"
     "interface cannot be read or a file written, 2 on a usage error.\n",
     runLocalize});

}  // namespace
