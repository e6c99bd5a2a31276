// The localization report's page.
#include "localize_page.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "cli.h"
#include "tq/platform/ui/drawing/view_drawing.h"

namespace tq::cli::localizing {

namespace fs = std::filesystem;

namespace {

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

std::string beforeFile(const std::string& interface, const std::string& picture) {
  return fileSafe(interface + "-" + picture) + "-before.png";
}
std::string afterFile(const std::string& interface, const std::string& localization, const std::string& picture) {
  return fileSafe(interface + "-" + localization + "-" + picture) + "-after.png";
}

// A text that may be long (an error), shown in one line and unfolded on demand.
std::string folded(const std::string& text, const char* cls = "bad") {
  constexpr std::size_t kShown = 90;
  if (text.size() <= kShown) return "<span class=\"" + std::string(cls) + "\">" + html(text) + "</span>";
  std::size_t cut = kShown;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;  // whole characters
  return "<details class=\"" + std::string(cls) + "\"><summary>" + html(text.substr(0, cut)) + "&hellip;</summary>" +
         html(text) + "</details>";
}

std::string count(std::size_t n, bool bad) {
  return std::string("<td") + (n && bad ? " class=\"bad\"" : "") + ">" + std::to_string(n) + "</td>";
}

std::string percent(double fraction) {
  return std::to_string(static_cast<int>(std::floor(fraction * 100.0))) + "%";
}

std::string seconds(double s) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.2f", s);
  return buffer;
}

std::string rowAnchor(const std::string& interface, const std::string& localization) {
  return "r-" + fileSafe(interface) + "-" + fileSafe(localization);
}

const char* kHead =
    "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Localization report</title>\n<style>"
    "body{font:14px sans-serif;margin:2em;color:#222}table{border-collapse:collapse;margin:1em 0}"
    "td,th{border:1px solid #ccc;padding:3px 8px;text-align:right;vertical-align:top}"
    "td:first-child,th:first-child,td.l{text-align:left}.bad{color:#b00;font-weight:bold}"
    ".note{color:#666}.pair{display:flex;gap:16px;flex-wrap:wrap;align-items:flex-start;margin:.5em 0}"
    "figure{margin:0}figcaption{color:#666;font-size:12px}img{border:1px solid #ddd;max-width:100%}"
    "section{margin-top:2.5em;border-top:2px solid #eee}article{margin-left:1em}"
    "details summary{cursor:pointer}code{background:#f4f4f4;padding:0 3px}"
    ".bar{display:inline-block;width:80px;height:8px;background:#eee;margin-left:6px}"
    ".bar i{display:block;height:8px;background:#4a4}"
    "</style></head><body>\n<h1>Localization report</h1>\n";

}  // namespace

std::string undrawnReason() {
  return "the window is empty or larger than " + std::to_string(static_cast<long>(kMaxRenderSide)) +
         " pixels a side or " + std::to_string(static_cast<long>(kMaxRenderPixels)) + " pixels in all";
}

Page::Page(std::string folder) : folder_(std::move(folder)), sections_(std::tmpfile()) {
  if (!sections_) throw Failure(std::string("cannot make a scratch file for the page: ") + std::strerror(errno));
}

Page::~Page() {
  if (sections_) std::fclose(sections_);
}

void Page::writePicture(const std::string& name, const GraphicsContextRef& image) {
  const std::string path = (fs::path(folder_) / name).string();
  if (!image) {
    if (undrawn_.insert(name).second) {
      std::fprintf(stderr, "tqkit localize: %s: not drawn: %s; the page says so in its place\n", path.c_str(),
                   undrawnReason().c_str());
    }
    return;
  }
  out_.write(folder_, path, pngBytes(image->surface()));
}

std::string Page::figure(const std::string& file, const char* alt, const std::string& caption) const {
  if (undrawn_.count(file)) {
    return "<figure><p class=\"note\">not drawn: " + html(undrawnReason()) + "</p><figcaption>" + caption +
           "</figcaption></figure>";
  }
  return "<figure><img src=\"" + html(file) + "\" alt=\"" + alt + "\"><figcaption>" + caption + "</figcaption></figure>";
}

void Page::spool(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), sections_) != text.size()) {
    throw Failure(std::string("cannot write the page's scratch file: ") + std::strerror(errno));
  }
}

PictureSink Page::beforePictures(const std::string& interface) {
  return [this, interface](const std::string& name, const char*, const GraphicsContextRef& image) {
    writePicture(beforeFile(interface, name), image);
  };
}

PictureSink Page::afterPictures(const std::string& interface, const std::string& localization) {
  return [this, interface, localization](const std::string& name, const char* when, const GraphicsContextRef& image) {
    writePicture(std::string(when) == "after" ? afterFile(interface, localization, name) : beforeFile(interface, name),
                 image);
  };
}

void Page::beginInterface(const InterfacePlan& interface, std::vector<std::string> beforeNames,
                          const std::string& error) {
  if (!interface_.empty()) spool("</section>\n");
  interface_ = interface.name;
  before_ = std::move(beforeNames);
  std::string text = "<section id=\"i-" + fileSafe(interface.name) + "\"><h2>" + html(interface.name) +
                     "</h2>\n<p class=\"note\">development language: " + html(interface.developmentFile) + "</p>\n";
  if (!error.empty()) text += "<p>" + folded("cannot be drawn: " + error) + "</p>\n";
  spool(text);
}

void Page::addRow(const Report& r) {
  ++rows_;
  std::string text = "<article id=\"" + rowAnchor(r.interfaceName, r.localization) + "\"><h3>" +
                     html(r.interfaceName) + " &mdash; " + html(r.localization) + "</h3>\n<p class=\"note\">" +
                     modeName(r.mode);
  if (r.mode != Mode::Absent) text += ": " + html(r.interfacePath);
  if (!r.table.empty()) text += ", table " + html(r.table);
  text += "</p>\n";
  if (!r.error.empty()) {
    spool(text + "<p>" + folded(r.error) + "</p></article>\n");
    return;
  }
  // A language without the interface shows the development language's.
  if (r.mode == Mode::Absent) {
    for (const auto& b : before_) {
      text += "<div class=\"pair\">" +
              figure(beforeFile(r.interfaceName, b), "before",
                     html(b) + ", shown in " + html(r.localization) + " as in the development language") +
              "</div>\n";
    }
  }
  // Each picture of the language beside the development language's: by name, else by place.
  for (std::size_t i = 0; i < r.pictures.size(); ++i) {
    const std::string& name = r.pictures[i];
    std::string before;
    for (const auto& b : before_) {
      if (b == name) before = b;
    }
    if (before.empty() && i < before_.size()) before = before_[i];
    text += "<div class=\"pair\">";
    if (!before.empty()) {
      text += figure(beforeFile(r.interfaceName, before), "before", html(before) + ", development language");
    }
    if (r.picturesUnchanged && !before.empty()) {
      text += figure(beforeFile(r.interfaceName, before), "after", html(name) + ", " + html(r.localization) + ": unchanged") +
              "</div>\n";
      continue;
    }
    text += figure(afterFile(r.interfaceName, r.localization, name), "after", html(name) + ", " + html(r.localization)) +
            "</div>\n";
  }
  const auto list = [&](const std::string& title, const std::vector<std::string>& items) {
    if (items.empty()) return;
    text += "<h4>" + title + " (" + std::to_string(items.size()) + ")</h4><ul>";
    for (const auto& item : items) text += "<li>" + item + "</li>";
    text += "</ul>\n";
  };
  std::vector<std::string> overflows;
  for (const auto& o : r.overflows) {
    overflows.push_back(o.kind == "text" ? html(o.cls + " #" + o.id + "." + o.property + " \"" + o.text + "\" needs " +
                                                std::to_string(static_cast<int>(o.needed)) + ", has " +
                                                std::to_string(static_cast<int>(o.width)))
                                         : html(o.cls + " #" + o.id + " \"" + o.text + "\" reaches past its superview"));
  }
  list("Overflowing (outlined in red)", overflows);
  std::vector<std::string> missing;
  for (const auto& m : r.missing) missing.push_back("<code>" + html(m.key) + "</code> " + html(m.text));
  // A language without the interface, or without its table, is said so once; the strings it leaves
  // in the development language are folded below.
  std::string whole;
  if (r.mode == Mode::Absent) {
    whole = html(r.localization) + " has no " + html(r.interfaceName) + ": it shows in the development language";
  } else if (!r.tableFound) {
    whole = "no table " + html(r.table) + ".strings in " + html(r.localization) +
            ": every string shows in the development language";
  }
  if (!whole.empty()) {
    text += "<p class=\"bad\">" + whole + "</p>";
    if (!missing.empty()) {
      text += "<details><summary>its " + std::to_string(missing.size()) + " strings</summary><ul>";
      for (const auto& m : missing) text += "<li>" + m + "</li>";
      text += "</ul></details>\n";
    }
  } else {
    list("Missing", missing);
  }
  std::vector<std::string> unused;
  for (const auto& u : r.unused) unused.push_back("<code>" + html(u) + "</code>");
  list("Unused keys", unused);
  spool(text + "</article>\n");
}

void Page::finish(const std::string& bundlePath, const BundlePlan& plan, const std::vector<RowSummary>& rows,
                  double elapsed) {
  if (!interface_.empty()) spool("</section>\n");
  std::string top = kHead;
  const auto counted = [](std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
  };
  top += "<p>" + html(bundlePath) + " &mdash; " + counted(plan.languages.size(), "language", "languages") +
         (plan.development.empty() ? "" : " besides the development language, " + html(plan.development)) + "; " +
         counted(plan.interfaces.size(), "interface", "interfaces") + "; " +
         counted(rows.size(), "interface and language pair", "interface and language pairs") + " in " +
         seconds(elapsed) + " s</p>\n";

  top += "<h2>Languages</h2>\n<table><tr><th>language</th><th>complete</th><th>translated</th><th>missing</th>"
         "<th>unused</th><th>overflowing</th><th>interfaces</th><th>absent</th><th>without table</th>"
         "<th>unreadable</th></tr>\n";
  for (const auto& t : languageTotals(plan, rows)) {
    std::string name = html(t.localization);
    for (const auto& a : t.aliases) name += " <span class=\"note\">(also " + html(a) + ")</span>";
    const double c = t.completeness();
    top += "<tr><td>" + name + "</td><td>" + percent(c) + "<span class=\"bar\"><i style=\"width:" + percent(c) +
           "\"></i></span></td><td>" + std::to_string(t.translated) + "</td>" + count(t.missing, true) +
           count(t.unused, true) + count(t.overflowing, true) + "<td>" + std::to_string(t.interfaces) + "</td>" +
           count(t.absent, true) + count(t.noTable, true) + count(t.unreadable, true) + "</tr>\n";
  }
  top += "</table>\n";
  for (const auto& a : plan.aliases) {
    top += "<p class=\"note\">" + html(a.localization) + ".lproj is a link to " + html(a.sameAs) +
           ".lproj: reported once, as " + html(a.sameAs) + ".</p>\n";
  }

  top += "<h2>Interfaces</h2>\n<table><tr><th>interface</th><th>language</th><th>mode</th><th>translated</th>"
         "<th>missing</th><th>unused</th><th>overflowing</th></tr>\n";
  for (const auto& r : rows) {
    top += "<tr><td><a href=\"#" + rowAnchor(r.interface, r.localization) + "\">" + html(r.interface) +
           "</a></td><td class=\"l\">" + html(r.localization) + "</td><td class=\"l\">" + modeName(r.mode) + "</td>";
    if (!r.error.empty()) {
      top += "<td colspan=\"4\" class=\"l\">" + folded(r.error) + "</td></tr>\n";
      continue;
    }
    top += "<td>" + std::to_string(r.translated) + "</td>" + count(r.missing, true) + count(r.unused, true) +
           count(r.overflowing, true);
    top += "</tr>\n";
  }
  top += "</table>\n";

  std::rewind(sections_);
  int stage = 0;
  out_.write(folder_, (fs::path(folder_) / "index.html").string(), [&](std::string& piece) {
    if (stage == 0) {
      piece = std::move(top);
      stage = 1;
      return true;
    }
    if (stage == 1) {
      piece.resize(1 << 16);
      const std::size_t n = std::fread(piece.data(), 1, piece.size(), sections_);
      if (n > 0) {
        piece.resize(n);
        return true;
      }
      if (std::ferror(sections_)) throw Failure("cannot read the page's scratch file");
      stage = 2;
      piece = "</body></html>\n";
      return true;
    }
    return false;
  });
}

void Page::commit() { out_.commit(folder_); }

}  // namespace tq::cli::localizing
