// tqkit localize: loads an interface from a bundle, translates it with the bundle's strings table and
// lists every visible string before and after, with what did not translate, what no longer fits and
// the check boxes that were resized.
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "cli.h"
#include "output_file.h"
#include "tq/interface/button_extensions.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/box.h"
#include "tq/platform/ui/button.h"
#include "tq/platform/ui/font.h"
#include "tq/platform/ui/graphics_context.h"
#include "tq/platform/ui/matrix.h"
#include "tq/platform/ui/nib_reader.h"
#include "tq/platform/ui/pango_text_measurer.h"
#include "tq/platform/ui/segmented_control.h"
#include "tq/platform/ui/string_drawing.h"
#include "tq/platform/ui/tab_view.h"
#include "tq/platform/ui/table_view.h"
#include "tq/platform/ui/text_field.h"
#include "tq/platform/ui/text_measurer.h"
#include "tq/platform/ui/view_drawing.h"
#include "tq/platform/ui/window.h"

namespace {

using tq::String;
namespace fs = std::filesystem;

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

// One visible string of the interface: where it is, how to read and write it, and how it is looked up.
struct Probe {
  std::string cls, id, property;
  std::function<String()> get;
  std::function<void(String)> set;
  bool classLookup = false;              // menu titles: untrimmed, table "default" when none is named
  const tq::Control* control = nullptr;  // the control that shows it, for the fit test
  String before, after;
  std::string status;
};

struct Collector {
  std::vector<Probe> probes;

  static std::string idOf(const tq::InterfaceObject* o) { return o ? u8(o->archiveIdentifier()) : std::string(); }

  void add(const tq::InterfaceObject* o, const tq::InterfaceObject* keyObject, std::string property,
           std::function<String()> get, std::function<void(String)> set, bool classLookup = false,
           const tq::Control* control = nullptr) {
    Probe p;
    p.cls = u8(o->className());
    p.id = idOf(keyObject);
    p.property = std::move(property);
    p.get = std::move(get);
    p.set = std::move(set);
    p.classLookup = classLookup;
    p.control = control;
    probes.push_back(std::move(p));
  }

  void menu(tq::Menu* m, bool classLookup) {
    if (!m) return;
    add(m, m, "title", [m] { return m->title(); }, [m](String s) { m->setTitle(std::move(s)); }, classLookup);
    for (const auto& item : m->itemArray()) {
      tq::MenuItem* i = item.get();
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); }, classLookup);
      if (classLookup) menu(i->submenu().get(), true);
    }
  }

  void menuItems(tq::Menu* m) {
    if (!m) return;
    for (const auto& item : m->itemArray()) {
      tq::MenuItem* i = item.get();
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); });
    }
  }

  void view(tq::View* v) {
    if (!v) return;
    for (const auto& sub : v->subviews()) {
      tq::View* s = sub.get();
      bool descend = true;
      if (auto* popUp = dynamic_cast<tq::PopUpButton*>(s)) {
        menuItems(popUp->menu().get());
      } else if (auto* b = dynamic_cast<tq::Button*>(s)) {
        if (b->imagePosition() != tq::NSImageOnly) {
          auto* cell = b->cell().get();
          add(b, cell, "title", [b] { return b->title(); }, [b](String x) { b->setTitle(std::move(x)); }, false, b);
          if (b->alternateTitle().length() > 0) {
            add(b, cell, "alternateTitle", [b] { return b->alternateTitle(); },
                [b](String x) { b->setAlternateTitle(std::move(x)); });
          }
        }
      } else if (auto* box = dynamic_cast<tq::Box*>(s)) {
        add(box, box, "title", [box] { return box->title(); }, [box](String x) { box->setTitle(std::move(x)); });
      } else if (auto* matrix = dynamic_cast<tq::Matrix*>(s)) {
        for (const auto& c : matrix->cells()) {
          tq::Cell* cell = c.get();
          add(cell, cell, "title", [cell] { return cell->title(); }, [cell](String x) { cell->setTitle(std::move(x)); });
        }
      } else if (auto* tabs = dynamic_cast<tq::TabView*>(s)) {
        for (const auto& item : tabs->tabViewItems()) {
          tq::TabViewItem* t = item.get();
          add(t, t, "label", [t] { return t->label(); }, [t](String x) { t->setLabel(std::move(x)); });
          view(t->view().get());
        }
        descend = false;
      } else if (auto* field = dynamic_cast<tq::TextField*>(s)) {
        auto* cell = field->cell().get();
        add(field, cell, "title", [field] { return field->stringValue(); },
            [field](String x) { field->setStringValue(std::move(x)); }, false, field);
        if (field->placeholderString().length() > 0) {
          add(field, cell, "placeholderString", [field] { return field->placeholderString(); },
              [field](String x) { field->setPlaceholderString(std::move(x)); });
        }
      } else if (auto* table = dynamic_cast<tq::TableView*>(s)) {
        for (const auto& column : table->tableColumns()) {
          tq::TableColumn* c = column.get();
          add(c, c, "headerCell.title", [c] { return c->title(); }, [c](String x) { c->setTitle(std::move(x)); });
          if (auto* withMenu = dynamic_cast<tq::HasMenu*>(c->dataCell().get())) menuItems(withMenu->menu().get());
        }
      } else if (auto* seg = dynamic_cast<tq::SegmentedControl*>(s)) {
        for (long i = 0; i < seg->segmentCount(); ++i) {
          if (seg->labelForSegment(i).length() == 0) continue;
          add(seg, seg->cell().get(), "label[" + std::to_string(i) + "]", [seg, i] { return seg->labelForSegment(i); },
              [seg, i](String x) { seg->setLabel(std::move(x), i); });
        }
      }
      if (descend) view(s);
    }
  }

  void objects(const std::vector<std::shared_ptr<tq::Object>>& list) {
    for (const auto& o : list) {
      if (auto* m = dynamic_cast<tq::Menu*>(o.get())) {
        menu(m, true);
      } else if (auto* w = dynamic_cast<tq::Window*>(o.get())) {
        add(w, w, "title", [w] { return w->title(); }, [w](String x) { w->setTitle(std::move(x)); });
        view(w->contentView().get());
      } else if (auto* v = dynamic_cast<tq::View*>(o.get())) {
        view(v);
      }
    }
  }
};

// The check boxes and their frames, to report the ones the localizer resized.
void checkBoxes(tq::View* v, std::vector<std::pair<tq::Button*, tq::Rect>>& out) {
  if (!v) return;
  for (const auto& sub : v->subviews()) {
    if (auto* b = dynamic_cast<tq::Button*>(sub.get()); b && tq::isSwitchButton(b)) out.emplace_back(b, b->frame());
    checkBoxes(sub.get(), out);
  }
  if (auto* tabs = dynamic_cast<tq::TabView*>(v)) {
    for (const auto& item : tabs->tabViewItems()) {
      if (item->view() && !item->view()->superview()) checkBoxes(item->view().get(), out);
    }
  }
}

// The width a control needs for its text, measured with the control's font: the text's width plus
// the room the cell keeps around it.
struct Fit {
  double needed = 0, width = 0;
  bool overflows = false;
};
Fit fitOf(const tq::Control& control, const String& text) {
  Fit f;
  const auto& cell = control.cell();
  if (!cell || text.length() == 0) return f;
  const tq::FontDescriptor descriptor = cell->font();
  const tq::FontRef font = tq::Font::fontWithDescriptor(descriptor);
  // A field more than one line high wraps its text: it does not overflow sideways.
  if (control.frame().h >= 2 * font->defaultLineHeight()) return f;
  const double estimated = tq::TextMeasurer::current().sizeOfString(cell->title(), descriptor).width;
  const double room = std::max(cell->cellSize().width - estimated, 0.0);
  f.needed = std::ceil(tq::sizeOfText(text, font).width + room);
  f.width = control.frame().w;
  f.overflows = f.needed > f.width + 0.5;
  return f;
}

// Windows and top-level views (the panes many interfaces keep beside their window).
std::vector<std::string> renderAll(const std::vector<std::shared_ptr<tq::Object>>& objects, const std::string& dir,
                                   const char* suffix, tq::cli::OutputFiles& files) {
  std::vector<std::string> written;
  int index = 0;
  for (const auto& o : objects) {
    tq::View* root = nullptr;
    std::string kind;
    if (auto* w = dynamic_cast<tq::Window*>(o.get())) {
      root = w->contentView().get();
      kind = "window";
    } else if (auto* v = dynamic_cast<tq::View*>(o.get())) {
      root = v;
      kind = "view";
    }
    if (!root || root->bounds().isEmpty()) continue;
    auto* io = dynamic_cast<tq::InterfaceObject*>(o.get());
    std::string id = io ? u8(io->archiveIdentifier()) : std::string();
    if (id.empty()) id = std::to_string(index);
    for (char& c : id) {
      if (c == '/' || c == '\0') c = '_';  // the identifier comes from the file: it names no other folder
    }
    ++index;
    const std::string path = (fs::path(dir) / (kind + "-" + id + "-" + suffix + ".png")).string();
    auto* window = dynamic_cast<tq::Window*>(o.get());
    tq::GraphicsContextRef image = window ? tq::renderWindow(*window) : tq::renderView(*root);
    if (!image) throw tq::cli::Failure(path + ": cannot be drawn");
    files.add(path, tq::cli::pngBytes(image->surface()));
    written.push_back(path);
  }
  return written;
}

// --- the command --------------------------------------------------------------------------------

std::string locate(const tq::Bundle& bundle, const std::string& nib) {
  struct stat st {};
  if (::stat(nib.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return nib;
  const String name = String::fromUTF8(fs::path(nib).extension() == ".xib" || fs::path(nib).extension() == ".nib"
                                           ? fs::path(nib).stem().string()
                                           : nib);
  String path = bundle.pathForResource(name, u"nib");
  if (path.isNil()) path = bundle.pathForResource(name, u"xib");
  if (path.isNil()) throw tq::cli::Failure(nib + ": no such interface in " + u8(bundle.bundlePath()));
  std::string file = path.UTF8String();
  if (::stat(file.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) file += "/designable.nib";
  return file;
}

int runLocalize(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {"language", "table", "png"}, {"json", "by-id"});
  args.expectPositionals(2, 2);
  const std::string bundlePath = args.positional(0, "BUNDLE");
  const std::string nib = args.positional(1, "NIB");
  const auto language = args.value("language");
  if (language) ::setenv("LANGUAGE", language->c_str(), 1);  // read when the bundle first localizes
  const String table = args.value("table") ? String::fromUTF8(*args.value("table")) : String();
  const bool byId = args.has("by-id");
  const bool json = args.has("json");

  // Sizes (check boxes fitted to their titles, the fit test) measured by the text system that draws.
  tq::PangoTextMeasurer::install();
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(bundlePath));
  if (!bundle) throw tq::cli::Failure(bundlePath + ": not a folder");
  const std::string file = locate(*bundle, nib);
  tq::NibReadResult read = tq::readNibFile(file);
  if (!read) throw tq::cli::Failure(read.error().reason);
  const auto& objects = read.nib().topLevelObjects();
  // With --by-id the table is named after the interface unless one is given.
  const String byIdTable = table.isNil() ? String::fromUTF8(fs::path(file).stem().string()) : table;

  Collector collector;
  collector.objects(objects);
  for (auto& p : collector.probes) p.before = p.get();
  std::vector<std::pair<tq::Button*, tq::Rect>> boxes;
  for (const auto& o : objects) {
    if (auto* w = dynamic_cast<tq::Window*>(o.get())) checkBoxes(w->contentView().get(), boxes);
    if (auto* v = dynamic_cast<tq::View*>(o.get())) checkBoxes(v, boxes);
  }
  std::vector<std::string> pngs;
  tq::cli::OutputFiles pngFiles;
  const auto pngDir = args.value("png");
  if (pngDir) pngs = renderAll(objects, *pngDir, "before", pngFiles);

  // A value no table holds tells a missing key from a key translated as itself.
  const String absent = String::fromUTF8("\x01tqkit-absent\x01");
  if (byId) {
    for (auto& p : collector.probes) {
      if (p.id.empty()) continue;
      const String found =
          bundle->localizedStringForKey(String::fromUTF8(p.id + "." + p.property), absent, byIdTable);
      if (found != absent) p.set(found);
    }
  } else {
    tq::TQLocalizer::localizeObjects(objects, table, bundle);
  }

  std::vector<std::string> missing;
  for (auto& p : collector.probes) {
    p.after = p.get();
    if (p.before.length() == 0) {
      p.status = "empty";
      continue;
    }
    String key;
    String lookupTable = table;
    if (byId) {
      key = String::fromUTF8(p.id + "." + p.property);
      lookupTable = byIdTable;
    } else if (p.classLookup) {
      key = p.before;
      if (lookupTable.isNil()) lookupTable = u"default";
    } else {
      key = p.before.stringByTrimmingCharactersInSet(tq::CharacterSet::whitespaceAndNewlineCharacterSet());
    }
    // An object without an identifier cannot be named by an ID-keyed table.
    const bool nameable = !byId || !p.id.empty();
    const bool found = nameable && bundle->localizedStringForKey(key, absent, lookupTable) != absent;
    p.status = found ? "translated" : "untranslated";
    if (!found) missing.push_back(nameable ? u8(key) : u8(p.before));
  }

  struct Overflow {
    const Probe* probe;
    Fit fit;
  };
  std::vector<Overflow> overflows;
  for (const auto& p : collector.probes) {
    // Only translated texts: untranslated ones are the interface's own business.
    if (!p.control || p.status != "translated") continue;
    Fit f = fitOf(*p.control, p.after);
    if (f.overflows) overflows.push_back({&p, f});
  }
  std::vector<std::pair<tq::Button*, std::pair<tq::Rect, tq::Rect>>> resized;
  for (const auto& [b, frame] : boxes) {
    if (!(b->frame() == frame)) resized.push_back({b, {frame, b->frame()}});
  }
  if (pngDir) {
    auto after = renderAll(objects, *pngDir, "after", pngFiles);
    pngs.insert(pngs.end(), after.begin(), after.end());
    pngFiles.commit(*pngDir);
  }

  if (json) {
    tq::cli::Json j;
    j.beginObject();
    j.key("bundle").string(u8(bundle->bundlePath()));
    j.key("interface").string(file);
    j.key("mode").string(byId ? "by-id" : "localizer");
    j.key("table");
    if (byId) {
      j.string(u8(byIdTable));
    } else if (table.isNil()) {
      j.null();
    } else {
      j.string(u8(table));
    }
    j.key("localizations").beginArray();
    for (const auto& l : bundle->preferredLocalizations()) j.string(u8(l));
    j.endArray();
    j.key("strings").beginArray();
    for (const auto& p : collector.probes) {
      j.beginObject();
      j.key("class").string(p.cls);
      j.key("id").string(p.id);
      j.key("property").string(p.property);
      j.key("before").string(u8(p.before));
      j.key("after");
      if (p.after.isNil()) {
        j.null();
      } else {
        j.string(u8(p.after));
      }
      j.key("status").string(p.status);
      j.endObject();
    }
    j.endArray();
    j.key("overflows").beginArray();
    for (const auto& o : overflows) {
      j.beginObject();
      j.key("class").string(o.probe->cls).key("id").string(o.probe->id).key("property").string(o.probe->property);
      j.key("text").string(u8(o.probe->after)).key("width").number(o.fit.width).key("needed").number(o.fit.needed);
      j.endObject();
    }
    j.endArray();
    j.key("resized").beginArray();
    for (const auto& [b, frames] : resized) {
      j.beginObject();
      j.key("id").string(u8(b->archiveIdentifier())).key("title").string(u8(b->title()));
      j.key("widthBefore").number(frames.first.w).key("widthAfter").number(frames.second.w);
      j.endObject();
    }
    j.endArray();
    j.key("missing").beginArray();
    for (const auto& m : missing) j.string(m);
    j.endArray();
    j.key("png").beginArray();
    for (const auto& p : pngs) j.string(p);
    j.endArray();
    j.endObject();
    j.newline();
    return 0;
  }

  std::size_t translated = 0;
  for (const auto& p : collector.probes) {
    if (p.status == "empty") continue;
    translated += p.status == "translated";
    std::printf("%-10s %s%s%s.%s: %s -> %s\n", p.status == "translated" ? "ok" : "MISSING", p.cls.c_str(),
                p.id.empty() ? "" : " #", p.id.c_str(), p.property.c_str(),
                tq::cli::Json::escape(u8(p.before)).c_str(),
                p.after.isNil() ? "nil" : tq::cli::Json::escape(u8(p.after)).c_str());
  }
  std::printf("\n%zu strings translated, %zu missing\n", translated, missing.size());
  for (const auto& o : overflows) {
    std::printf("overflow: %s #%s.%s %s needs %.0f, has %.0f\n", o.probe->cls.c_str(), o.probe->id.c_str(),
                o.probe->property.c_str(), tq::cli::Json::escape(u8(o.probe->after)).c_str(), o.fit.needed,
                o.fit.width);
  }
  for (const auto& [b, frames] : resized) {
    std::printf("resized check box #%s %s: width %.0f -> %.0f\n", u8(b->archiveIdentifier()).c_str(),
                tq::cli::Json::escape(u8(b->title())).c_str(), frames.first.w, frames.second.w);
  }
  for (const auto& p : pngs) std::printf("wrote %s\n", p.c_str());
  return 0;
}

tq::cli::Registration localize(
    {"localize", "translate an interface with a bundle's strings table and report the result",
     "usage: tqkit localize BUNDLE NIB [--language L] [--table T] [--json] [--png DIR] [--by-id]\n\n"
     "Loads the interface NIB (a name looked up as a nib or xib resource of the bundle folder BUNDLE,\n"
     "or a file path), translates it as TQLocalizer does with the strings table T (default: the\n"
     "bundle's default table; menu titles use table \"default\"), and lists every visible string\n"
     "before and after with the object that holds it. Then it reports each translated text that no\n"
     "longer fits its control (measured with the control's font), the check boxes that were resized,\n"
     "and the strings the table lacks.\n\n"
     "  --language L  the user's language for choosing the bundle's localization (as LANGUAGE)\n"
     "  --table T     the strings table name (without .strings)\n"
     "  --by-id       apply instead a table keyed by object identifier and property (\"ID.title\"),\n"
     "                as generated beside a Base interface; the table defaults to the NIB's name\n"
     "  --png DIR     render each window before and after into DIR\n"
     "  --json        one JSON object: strings (with status translated, untranslated or empty),\n"
     "                overflows, resized, missing, png\n\n"
     "Exit status: 0 on success, 1 when the bundle or interface cannot be read, 2 on a usage error.\n",
     runLocalize});

}  // namespace
