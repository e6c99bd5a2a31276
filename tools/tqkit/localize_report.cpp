// Localizing one interface and reporting what happened to each visible string.
#include "localize_report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <set>
#include <unordered_map>

#include "tq/interface/button_extensions.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/drawing/string_drawing.h"
#include "tq/platform/ui/drawing/view_drawing.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_measurer.h"
#include "tq/platform/ui/model/window.h"

namespace tq::cli::localizing {

namespace fs = std::filesystem;

const char* modeName(Mode mode) {
  switch (mode) {
    case Mode::Localizer: return "localizer";
    case Mode::ById: return "by-id";
    case Mode::Copy: return "copy";
  }
  return "";
}

std::size_t Report::translated() const {
  return static_cast<std::size_t>(
      std::count_if(strings.begin(), strings.end(), [](const StringEntry& s) { return s.status == "translated"; }));
}

namespace {

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

// One visible string of the interface: where it is, how to read and write it, how it is looked up.
struct Probe {
  std::string cls, id, property;
  std::function<String()> get;
  std::function<void(String)> set;
  bool classLookup = false;           // menu titles: untrimmed, table "default" when none is named
  bool localizerVisits = true;        // TQLocalizer translates it (tool tips it does not)
  const Control* control = nullptr;   // the control that shows it, for the fit test
  String before, after;
};

// The markers of binding placeholders and the properties the document tools name them by.
struct MarkerName {
  BindingMarker marker;
  const char* property;
};
constexpr MarkerName kMarkers[] = {{NSMultipleValuesMarker, "ibShadowedMultipleValuesPlaceholder"},
                                   {NSNullMarker, "ibShadowedNullPlaceholder"},
                                   {NSNoSelectionMarker, "ibShadowedNoSelectionPlaceholder"},
                                   {NSNotApplicableMarker, "ibShadowedNotApplicablePlaceholder"}};

class Collector {
 public:
  std::vector<Probe> probes;

  void objects(const Nib& nib) {
    for (const auto& o : nib.topLevelObjects()) {
      if (auto* m = dynamic_cast<Menu*>(o.get())) {
        menu(m);
      } else if (auto* w = dynamic_cast<Window*>(o.get())) {
        add(w, w, "title", [w] { return w->title(); }, [w](String x) { w->setTitle(std::move(x)); });
        view(w->contentView().get());
      } else if (auto* v = dynamic_cast<View*>(o.get())) {
        view(v);
      }
    }
    bindings(nib);
  }

 private:
  static std::string idOf(const InterfaceObject* o) { return o ? u8(o->archiveIdentifier()) : std::string(); }

  Probe& add(const InterfaceObject* o, const InterfaceObject* keyObject, std::string property,
             std::function<String()> get, std::function<void(String)> set) {
    Probe p;
    p.cls = u8(o->className());
    p.id = idOf(keyObject);
    p.property = std::move(property);
    p.get = std::move(get);
    p.set = std::move(set);
    p.localizerVisits = !inPrototype_;
    // A compiled interface keeps the tables' key with the string; the key names the object.
    if (const String key = keyObject ? keyObject->localizableKeyFor(String::fromUTF8(p.property)) : String(); !key.isNil()) {
      p.id = u8(key).substr(0, u8(key).find('.'));
    }
    probes.push_back(std::move(p));
    return probes.back();
  }

  void toolTip(View* v) {
    if (v->toolTip().length() == 0) return;
    add(v, v, "toolTip", [v] { return v->toolTip(); }, [v](String x) { v->setToolTip(std::move(x)); })
        .localizerVisits = false;
  }

  void menu(Menu* m) {
    if (!m) return;
    add(m, m, "title", [m] { return m->title(); }, [m](String s) { m->setTitle(std::move(s)); }).classLookup = true;
    for (const auto& item : m->itemArray()) {
      MenuItem* i = item.get();
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); }).classLookup = true;
      menu(i->submenu().get());
    }
  }

  void menuItems(Menu* m) {
    if (!m) return;
    for (const auto& item : m->itemArray()) {
      MenuItem* i = item.get();
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); });
    }
  }

  void view(View* v) {
    if (!v) return;
    for (const auto& sub : v->subviews()) {
      View* s = sub.get();
      bool descend = true;
      toolTip(s);
      if (auto* popUp = dynamic_cast<PopUpButton*>(s)) {
        menuItems(popUp->menu().get());
      } else if (auto* b = dynamic_cast<Button*>(s)) {
        if (b->imagePosition() != NSImageOnly) {
          auto* cell = b->cell().get();
          add(b, cell, "title", [b] { return b->title(); }, [b](String x) { b->setTitle(std::move(x)); }).control = b;
          if (b->alternateTitle().length() > 0) {
            add(b, cell, "alternateTitle", [b] { return b->alternateTitle(); },
                [b](String x) { b->setAlternateTitle(std::move(x)); });
          }
        }
      } else if (auto* box = dynamic_cast<Box*>(s)) {
        add(box, box, "title", [box] { return box->title(); }, [box](String x) { box->setTitle(std::move(x)); });
      } else if (auto* matrix = dynamic_cast<Matrix*>(s)) {
        for (const auto& c : matrix->cells()) {
          Cell* cell = c.get();
          add(cell, cell, "title", [cell] { return cell->title(); }, [cell](String x) { cell->setTitle(std::move(x)); });
        }
      } else if (auto* tabs = dynamic_cast<TabView*>(s)) {
        for (const auto& item : tabs->tabViewItems()) {
          TabViewItem* t = item.get();
          add(t, t, "label", [t] { return t->label(); }, [t](String x) { t->setLabel(std::move(x)); });
          if (t->toolTip().length() > 0) {
            add(t, t, "toolTip", [t] { return t->toolTip(); }, [t](String x) { t->setToolTip(std::move(x)); })
                .localizerVisits = false;
          }
          view(t->view().get());
        }
        descend = false;
      } else if (auto* field = dynamic_cast<TextField*>(s)) {
        auto* cell = field->cell().get();
        add(field, cell, "title", [field] { return field->stringValue(); },
            [field](String x) { field->setStringValue(std::move(x)); })
            .control = field;
        if (field->placeholderString().length() > 0) {
          add(field, cell, "placeholderString", [field] { return field->placeholderString(); },
              [field](String x) { field->setPlaceholderString(std::move(x)); });
        }
      } else if (auto* table = dynamic_cast<TableView*>(s)) {
        for (const auto& column : table->tableColumns()) {
          TableColumn* c = column.get();
          add(c, c, "headerCell.title", [c] { return c->title(); }, [c](String x) { c->setTitle(std::move(x)); });
          if (c->headerToolTip().length() > 0) {
            add(c, c, "headerToolTip", [c] { return c->headerToolTip(); },
                [c](String x) { c->setHeaderToolTip(std::move(x)); })
                .localizerVisits = false;
          }
          Cell* data = c->dataCell().get();
          if (auto* withMenu = dynamic_cast<HasMenu*>(data)) {
            menuItems(withMenu->menu().get());
          } else if (data && data->title().length() > 0 && data->imageName().isNil()) {
            // The data cell's own text: a sample the tables carry, which the localizer leaves.
            add(data, data, "title", [data] { return data->title(); }, [data](String x) { data->setTitle(std::move(x)); })
                .localizerVisits = false;
          }
          // The rows of a view-based table are copies of its prototypes: their strings are in the
          // document's tables, though the localizer does not visit them.
          const bool outer = inPrototype_;
          inPrototype_ = true;
          for (const auto& prototype : c->prototypeCellViews()) view(prototype.get());
          inPrototype_ = outer;
        }
      } else if (auto* seg = dynamic_cast<SegmentedControl*>(s)) {
        // The document tools name segment strings by the cell and a shadowed list property.
        auto* cell = seg->segmentedCell().get();
        for (long i = 0; i < seg->segmentCount(); ++i) {
          const std::string index = "[" + std::to_string(i) + "]";
          if (seg->labelForSegment(i).length() > 0) {
            add(seg, cell, "ibShadowedLabels" + index, [seg, i] { return seg->labelForSegment(i); },
                [seg, i](String x) { seg->setLabel(std::move(x), i); });
          }
          if (cell && cell->segments()[static_cast<std::size_t>(i)].toolTip.length() > 0) {
            add(seg, cell, "ibShadowedToolTips" + index,
                [cell, i] { return cell->segments()[static_cast<std::size_t>(i)].toolTip; },
                [cell, i](String x) { cell->segments()[static_cast<std::size_t>(i)].toolTip = std::move(x); })
                .localizerVisits = false;
          }
        }
      }
      if (descend) view(s);
    }
  }

  // Display patterns and string placeholders of bindings, named by the binding's identifier.
  void bindings(const Nib& nib) {
    for (const auto& c : nib.connections()) {
      if (c.kind != NibConnection::Kind::Binding || c.identifier.isNil()) continue;
      auto source = std::dynamic_pointer_cast<InterfaceObject>(c.source.lock());
      if (!source) continue;
      std::shared_ptr<Binder> binder = source->binderForBinding(c.label);
      if (!binder) continue;
      const std::string cls = "CocoaBindingsConnection";
      Binder* b = binder.get();
      if (b->className().isEqual(u"NSDisplayPatternBinder") && isFirstOfGroup(c.label) &&
          b->displayPattern().length() > 0) {
        Probe p;
        p.cls = cls;
        p.id = u8(c.identifier);
        p.property = "ibShadowedDisplayPattern";
        p.get = [b] { return b->valueForKey(u"displayPattern").stringValue(); };
        p.set = [b](String x) { b->setValue(Value(std::move(x)), u"displayPattern"); };
        probes.push_back(std::move(p));
      }
      std::shared_ptr<BindingInfo> info = b->bindingInfoForBinding(c.label);
      if (!info) continue;
      for (const MarkerName& m : kMarkers) {
        const Value placeholder = info->placeholderForMarker(m.marker);
        if (placeholder.isNil() || placeholder.type() != Value::Type::String) continue;
        Probe p;
        p.cls = cls;
        p.id = u8(c.identifier);
        p.property = m.property;
        BindingInfo* i = info.get();
        const BindingMarker marker = m.marker;
        p.get = [i, marker] { return i->placeholderForMarker(marker).stringValue(); };
        p.set = [i, marker](String x) { i->setPlaceholder(Value(std::move(x)), marker, false); };
        probes.push_back(std::move(p));
      }
    }
  }

  bool inPrototype_ = false;

  // A display pattern belongs to the group's first value binding ("displayPatternValue1").
  static bool isFirstOfGroup(const String& binding) { return u8(binding).ends_with("1"); }
};

// The check boxes and their frames, to report the ones the localizer resized.
void checkBoxes(View* v, std::vector<std::pair<Button*, Rect>>& out) {
  if (!v) return;
  for (const auto& sub : v->subviews()) {
    if (auto* b = dynamic_cast<Button*>(sub.get()); b && isSwitchButton(b)) out.emplace_back(b, b->frame());
    checkBoxes(sub.get(), out);
  }
  if (auto* tabs = dynamic_cast<TabView*>(v)) {
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
Fit fitOf(const Control& control, const String& text) {
  Fit f;
  const auto& cell = control.cell();
  if (!cell || text.length() == 0) return f;
  const FontDescriptor descriptor = cell->font();
  const FontRef font = Font::fontWithDescriptor(descriptor);
  // A field more than one line high wraps its text: it does not overflow sideways.
  if (control.frame().h >= 2 * font->defaultLineHeight()) return f;
  const double measured = TextMeasurer::current().sizeOfString(cell->title(), descriptor).width;
  const double room = std::max(cell->cellSize().width - measured, 0.0);
  f.needed = std::ceil(sizeOfText(text, font).width + room);
  f.width = control.frame().w;
  f.overflows = f.needed > f.width + 0.5;
  return f;
}

// The interface file to read: a compiled nib folder's editable document when it keeps one.
std::string documentIn(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    const std::string designable = path + "/designable.nib";
    if (::stat(designable.c_str(), &st) == 0) return designable;
  }
  return path;
}

std::shared_ptr<InterfaceImageSource> imagesOf(const Nib& nib, const std::string& path,
                                               const std::shared_ptr<Bundle>& bundle) {
  auto images = std::make_shared<InterfaceImageSource>(String::fromUTF8(path), bundle);
  for (const auto& [name, bytes] : nib.embeddedImages()) images->addImage(name, Image::imageWithData(bytes));
  return images;
}

// Windows and top-level views (the panes many interfaces keep beside their window).
std::vector<std::pair<std::string, std::shared_ptr<Object>>> drawables(const Nib& nib) {
  std::vector<std::pair<std::string, std::shared_ptr<Object>>> found;
  int index = 0;
  for (const auto& o : nib.topLevelObjects()) {
    const auto* window = dynamic_cast<const Window*>(o.get());
    const auto* view = dynamic_cast<const View*>(o.get());
    const View* root = window ? window->contentView().get() : view;
    if (!root || root->bounds().isEmpty()) continue;
    const auto* io = dynamic_cast<const InterfaceObject*>(o.get());
    std::string id = io ? u8(io->archiveIdentifier()) : std::string();
    if (id.empty()) id = std::to_string(index);
    for (char& c : id) {
      if (c == '/' || c == '\0') c = '_';  // the identifier comes from the file: it names no other folder
    }
    ++index;
    found.emplace_back((window ? "window-" : "view-") + id, o);
  }
  return found;
}

GraphicsContextRef picture(const std::shared_ptr<Object>& o, const std::shared_ptr<const NamedImageSource>& images,
                           const std::vector<const View*>& outline) {
  WindowRenderOptions options;
  options.images = images;
  std::vector<Rect> rects;
  options.drawnView = [&](const View& v, Rect r) {
    if (std::find(outline.begin(), outline.end(), &v) != outline.end()) rects.push_back(r);
  };
  GraphicsContextRef image;
  if (auto* window = dynamic_cast<Window*>(o.get())) {
    image = renderWindow(*window, options);
  } else if (auto* view = dynamic_cast<View*>(o.get())) {
    image = renderView(*view, 1.0, nullptr, images, options.drawnView);
  }
  if (!image) return nullptr;
  // Each overflowing control outlined in red.
  image->setStrokeColor(Color::colorWithRed(0.9, 0.1, 0.1, 1));
  for (const Rect& r : rects) image->strokeRect({r.x - 1, r.y - 1, r.w + 2, r.h + 2}, 2);
  image->flushGraphics();
  return image;
}

String trimmed(const String& s) { return s.stringByTrimmingCharactersInSet(CharacterSet::whitespaceAndNewlineCharacterSet()); }

}  // namespace

Report localizeInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file, const Options& options) {
  Report report;
  report.mode = options.mode;
  report.interfacePath = file;
  report.interfaceName = fs::path(file).stem().string();
  report.localization = options.localization;
  if (report.localization.empty() && bundle && !bundle->preferredLocalizations().empty()) {
    report.localization = u8(bundle->preferredLocalizations().front());
  }
  const String table = !options.table.isNil()                ? options.table
                       : options.mode == Mode::ById          ? String::fromUTF8(report.interfaceName)
                       : options.mode == Mode::Localizer     ? String(u"Localizable")
                                                             : String();
  report.table = u8(table);

  auto read = std::make_shared<NibReadResult>(readNibFile(documentIn(file)));
  if (!*read) {
    report.error = read->error().reason;
    return report;
  }
  report.objects = read;
  const Nib& nib = read->nib();
  const auto& objects = nib.topLevelObjects();
  const auto images = imagesOf(nib, file, bundle);

  Collector collector;
  collector.objects(nib);
  auto& probes = collector.probes;
  for (auto& p : probes) p.before = p.get();
  std::vector<std::pair<Button*, Rect>> boxes;
  std::vector<std::pair<View*, Rect>> frames;
  for (const auto& o : objects) {
    if (auto* w = dynamic_cast<Window*>(o.get())) checkBoxes(w->contentView().get(), boxes);
    if (auto* v = dynamic_cast<View*>(o.get())) checkBoxes(v, boxes);
  }
  const auto shown = drawables(nib);
  if (options.pictures) {
    for (const auto& [name, o] : shown) report.pictures.push_back({name, picture(o, images, {}), nullptr});
  }

  const String localization = String::fromUTF8(report.localization);
  const Dictionary strings = bundle && !table.isNil() ? bundle->stringsTable(table, localization) : Dictionary();
  std::set<std::string> used;
  const auto inTable = [&](const std::string& key) { return !strings.objectForKey(String::fromUTF8(key)).isNil(); };

  if (options.mode == Mode::ById) {
    for (auto& p : probes) {
      if (p.id.empty()) continue;
      const Value found = strings.objectForKey(String::fromUTF8(p.id + "." + p.property));
      if (!found.isNil() && found.type() == Value::Type::String) p.set(found.stringValue());
    }
  } else if (options.mode == Mode::Localizer) {
    TQLocalizer::localizeObjects(objects, options.table, bundle);
  }

  // The development copy's strings, by object and property, for a localized copy.
  std::unordered_map<std::string, String> development;
  std::vector<std::pair<std::string, std::string>> developmentOrder;  // key, class
  if (options.mode == Mode::Copy) {
    NibReadResult dev = readNibFile(documentIn(options.developmentCopy));
    if (dev) {
      Collector other;
      other.objects(dev.nib());
      for (auto& p : other.probes) {
        if (p.id.empty()) continue;
        const std::string key = p.id + "." + p.property;
        if (development.emplace(key, p.get()).second) developmentOrder.emplace_back(key, p.cls);
      }
    }
  }

  for (auto& p : probes) {
    StringEntry e;
    e.cls = p.cls, e.id = p.id, e.property = p.property;
    p.after = p.get();
    if (options.mode == Mode::Copy) {
      const auto it = development.find(p.id + "." + p.property);
      p.before = it != development.end() ? it->second : String();
    }
    e.before = u8(p.before);
    e.after = u8(p.after);
    e.afterIsNil = p.after.isNil();
    bool nameable = true;
    if (options.mode == Mode::Localizer && !p.localizerVisits) continue;  // the localizer leaves these
    if (p.before.length() == 0) {
      e.status = "empty";
      report.strings.push_back(std::move(e));
      continue;
    }
    bool found = false;
    switch (options.mode) {
      case Mode::ById:
        nameable = !p.id.empty();
        e.key = nameable ? p.id + "." + p.property : std::string();
        found = nameable && inTable(e.key);
        break;
      case Mode::Localizer:
        if (p.classLookup) {
          // Menu titles come from table "default" when none is named, untrimmed.
          e.key = u8(p.before);
          const String menuTable = options.table.isNil() ? String(u"default") : options.table;
          found = bundle && !bundle->stringsTable(menuTable, localization).objectForKey(p.before).isNil();
          if (menuTable == table) used.insert(e.key);
        } else {
          e.key = u8(trimmed(p.before));
          found = inTable(e.key);
        }
        break;
      case Mode::Copy:
        e.key = p.id + "." + p.property;
        found = p.after.length() > 0 && !(p.after == p.before);
        break;
    }
    if (!e.key.empty()) used.insert(e.key);
    e.status = found ? "translated" : "untranslated";
    if (!found) report.missing.push_back(nameable ? e.key : e.before);
    report.strings.push_back(std::move(e));

    // Texts that no longer fit their control (translated ones only: the others are as designed).
    if (found && p.control) {
      const Fit f = fitOf(*p.control, p.after);
      if (f.overflows) report.overflows.push_back({p.cls, p.id, p.property, u8(p.after), "text", f.width, f.needed, p.control});
    }
  }

  // A string of the development copy whose object or property the translated copy lacks is missing
  // too: the copy shows nothing in its place.
  if (options.mode == Mode::Copy) {
    std::set<std::string> inCopy;
    for (const auto& p : probes) {
      if (!p.id.empty()) inCopy.insert(p.id + "." + p.property);
    }
    for (const auto& [key, cls] : developmentOrder) {
      const String& text = development[key];
      if (text.length() == 0 || inCopy.count(key)) continue;
      StringEntry e;
      e.cls = cls;
      e.key = key;
      e.id = key.substr(0, key.find('.'));
      e.property = key.substr(key.find('.') + 1);
      e.before = u8(text);
      e.afterIsNil = true;
      e.status = "untranslated";
      report.missing.push_back(key);
      report.strings.push_back(std::move(e));
    }
  }

  // Unused keys tell of a table that belongs to the interface: one keyed by identifier, or one named
  // for it. The default table is shared with the program's own code, whose keys no object uses.
  const bool ownTable = options.mode == Mode::ById ||
                        (options.mode == Mode::Localizer && !options.table.isNil() && !options.sharedTable);
  if (strings && ownTable) {
    for (const String& key : strings.allKeys()) {
      if (!used.count(u8(key))) report.unused.push_back(u8(key));
    }
    std::sort(report.unused.begin(), report.unused.end());
  }

  // Check boxes resized to their new titles, and those that now reach past their superview.
  for (const auto& [b, frame] : boxes) {
    if (b->frame() == frame) continue;
    const std::string id = u8(b->cell() ? b->cell()->archiveIdentifier() : b->archiveIdentifier());
    report.resized.push_back({id, u8(b->title()), frame.w, b->frame().w});
    if (const View* super = b->superview()) {
      const Rect f = b->frame(), bounds = super->bounds();
      if (f.maxX() > bounds.maxX() + 0.5 || f.x < bounds.x - 0.5) {
        report.overflows.push_back({u8(b->className()), id, "frame", u8(b->title()), "superview", bounds.w,
                                    std::ceil(f.maxX()), b});
      }
    }
  }

  if (options.pictures) {
    std::vector<const View*> outline;
    for (const auto& o : report.overflows) outline.push_back(o.view);
    for (std::size_t i = 0; i < shown.size(); ++i) report.pictures[i].after = picture(shown[i].second, images, outline);
  }
  return report;
}

}  // namespace tq::cli::localizing
