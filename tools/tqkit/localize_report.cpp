// Localizing one interface and reporting what happened to each visible string.
#include "localize_report.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>

#include "tq/interface/button_extensions.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/base/character_set.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
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
#include "tq/platform/ui/model/view.h"
#include "tq/platform/ui/model/window.h"

namespace tq::cli::localizing {

namespace fs = std::filesystem;

const char* modeName(Mode mode) {
  switch (mode) {
    case Mode::Localizer: return "localizer";
    case Mode::ById: return "by-id";
    case Mode::Copy: return "copy";
    case Mode::Absent: return "absent";
  }
  return "";
}

std::size_t Report::translated() const {
  return static_cast<std::size_t>(
      std::count_if(strings.begin(), strings.end(), [](const StringEntry& s) { return s.status == "translated"; }));
}

std::size_t Catalog::visible() const {
  return static_cast<std::size_t>(
      std::count_if(entries.begin(), entries.end(), [](const CatalogEntry& e) { return !e.text.empty(); }));
}

namespace {

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

// One visible string of the interface: where it is, how to read and write it, how it is looked up.
struct Probe {
  std::string cls, id, property;
  std::string anchor, position;  // as in CatalogEntry
  const Object* object = nullptr;     // the object that shows it
  const Object* keyObject = nullptr;  // the object the tables name it by (a control's cell)
  std::function<String()> get;
  std::function<void(String)> set;
  bool classLookup = false;           // menu titles: untrimmed, table "default" when none is named
  bool localizerVisits = true;        // TQLocalizer translates it (tool tips it does not)
  const Control* control = nullptr;   // the control that shows it, for the fit test
  // False for a string the interface never shows (a box's title where the box shows none).
  bool shown = true;
  // Shown and not marked by the designer as not to be translated (see marksIgnored).
  bool localizable = true;
  String before, after;
  // For tables keyed by identifier: the key a compiled interface keeps with the string, else the
  // identifier and the property; empty when the object has no identifier.
  std::string key;
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

std::string idOf(const Object* o) {
  const auto* io = dynamic_cast<const InterfaceObject*>(o);
  return io ? u8(io->archiveIdentifier()) : std::string();
}

// Walks an interface as the localizer does and lists every visible string with the place it has
// in the object tree, so that two copies of one interface can be compared string by string.
class Collector {
 public:
  std::vector<Probe> probes;

  void objects(const Nib& nib) {
    std::map<std::string, int> seen;
    for (const auto& o : nib.topLevelObjects()) {
      Scope top(*this, o.get(), indexed(seen, o.get()));
      if (auto* m = dynamic_cast<Menu*>(o.get())) {
        menu(m);
      } else if (auto* w = dynamic_cast<Window*>(o.get())) {
        add(w, w, "title", [w] { return w->title(); }, [w](String x) { w->setTitle(std::move(x)); });
        Scope content(*this, w->contentView().get(), "content");
        if (auto* tabs = dynamic_cast<TabView*>(w->contentView().get())) {
          // A tab view controller's tab view is the window's content itself. Its labels and the
          // panes it does not show are in the tables, though the localizer, which walks only the
          // content's subviews, does not reach them.
          tabItems(tabs, false);
        } else {
          view(w->contentView().get());
        }
      } else if (auto* v = dynamic_cast<View*>(o.get())) {
        view(v);
      }
    }
    bindings(nib);
  }

 private:
  // One step of the path from the top: an object and its name among its parent's parts.
  struct Step {
    const Object* object;
    std::string name;
  };
  struct Scope {
    Scope(Collector& c, const Object* o, std::string name) : c_(c) {
      c_.path_.push_back({o, std::move(name)});
      if (o) c_.places_.emplace(o, c_.placeOf(""));
    }
    ~Scope() { c_.path_.pop_back(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    Collector& c_;
  };

  static std::string classOf(const Object* o) { return o ? u8(o->className()) : std::string("nil"); }
  // "NSButton[2]": the class and how many siblings of that class came before.
  static std::string indexed(std::map<std::string, int>& seen, const Object* o) {
    const std::string cls = classOf(o);
    return cls + "[" + std::to_string(seen[cls]++) + "]";
  }

  // The anchor and position of the path as it stands, with `property` appended.
  std::pair<std::string, std::string> placeOf(const std::string& property) const {
    std::string position;
    for (const Step& s : path_) position += (position.empty() ? "" : "/") + s.name;
    std::string anchor;
    for (std::size_t i = path_.size(); i-- > 0;) {
      const std::string id = idOf(path_[i].object);
      if (id.empty()) continue;
      anchor = id;
      for (std::size_t j = i + 1; j < path_.size(); ++j) anchor += "/" + path_[j].name;
      break;
    }
    if (!property.empty()) {
      position += "." + property;
      if (!anchor.empty()) anchor += "." + property;
    }
    return {anchor, position};
  }

  // `keyHolder`: the object a compiled interface keeps the string's table key on, when not
  // `keyObject` (a column's header cell).
  Probe& add(const InterfaceObject* o, const InterfaceObject* keyObject, std::string property,
             std::function<String()> get, std::function<void(String)> set,
             const InterfaceObject* keyHolder = nullptr) {
    Probe p;
    p.cls = u8(o->className());
    p.id = idOf(keyObject);
    p.object = o;
    p.keyObject = keyObject;
    // A control's strings belong to its cell, which is a step of its own below the control.
    const bool cellStep = keyObject && keyObject != o && (path_.empty() || path_.back().object != keyObject);
    if (cellStep) path_.push_back({keyObject, "cell"});
    std::tie(p.anchor, p.position) = placeOf(property);
    if (cellStep) path_.pop_back();
    p.property = std::move(property);
    p.get = std::move(get);
    p.set = std::move(set);
    p.localizerVisits = !inPrototype_ && !outsideLocalizer_;
    // A compiled interface keeps the tables' key with the string; the key names the object, and
    // finds the same string in another compilation of the interface wherever it was placed.
    if (!keyHolder) keyHolder = keyObject;
    if (const String key = keyHolder ? keyHolder->localizableKeyFor(String::fromUTF8(p.property)) : String();
        !key.isNil()) {
      p.key = u8(key);
      p.id = p.key.substr(0, p.key.find('.'));
      p.anchor = p.key;
    } else if (!p.id.empty()) {
      p.key = p.id + "." + p.property;
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
    int index = 0;
    for (const auto& item : m->itemArray()) {
      MenuItem* i = item.get();
      Scope s(*this, i, "item[" + std::to_string(index++) + "]");
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); }).classLookup = true;
      Scope sub(*this, i->submenu().get(), "submenu");
      menu(i->submenu().get());
    }
  }

  void menuItems(Menu* m) {
    if (!m) return;
    Scope s(*this, m, "menu");
    int index = 0;
    for (const auto& item : m->itemArray()) {
      MenuItem* i = item.get();
      Scope at(*this, i, "item[" + std::to_string(index++) + "]");
      if (i->isSeparatorItem()) continue;
      add(i, i, "title", [i] { return i->title(); }, [i](String s) { i->setTitle(std::move(s)); });
    }
  }

  // Every item of a tab view, the hidden ones too: its label, tool tip and view. `localizerWalks`:
  // the localizer walks the tab view's items; else only what is a subview of the tab view.
  void tabItems(TabView* tabs, bool localizerWalks) {
    const bool outer = outsideLocalizer_;
    int index = 0;
    for (const auto& item : tabs->tabViewItems()) {
      TabViewItem* t = item.get();
      Scope at(*this, t, "tab[" + std::to_string(index++) + "]");
      outsideLocalizer_ = outer || !localizerWalks;
      add(t, t, "label", [t] { return t->label(); }, [t](String x) { t->setLabel(std::move(x)); });
      if (t->toolTip().length() > 0) {
        add(t, t, "toolTip", [t] { return t->toolTip(); }, [t](String x) { t->setToolTip(std::move(x)); })
            .localizerVisits = false;
      }
      outsideLocalizer_ = outer || (!localizerWalks && !(t->view() && t->view()->superview() == tabs));
      Scope content(*this, t->view().get(), "view");
      view(t->view().get());
    }
    outsideLocalizer_ = outer;
  }

  void view(View* v) {
    if (!v) return;
    std::map<std::string, int> seen;
    for (const auto& sub : v->subviews()) {
      View* s = sub.get();
      Scope here(*this, s, indexed(seen, s));
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
        // A separator, or a box placed with no title, keeps a title it never shows.
        add(box, box, "title", [box] { return box->title(); }, [box](String x) { box->setTitle(std::move(x)); }).shown =
            box->boxType() != BoxType::Separator && box->titlePosition() != TitlePosition::NoTitle;
      } else if (auto* matrix = dynamic_cast<Matrix*>(s)) {
        int index = 0;
        for (const auto& c : matrix->cells()) {
          Cell* cell = c.get();
          Scope at(*this, cell, "cell[" + std::to_string(index++) + "]");
          add(cell, cell, "title", [cell] { return cell->title(); }, [cell](String x) { cell->setTitle(std::move(x)); });
        }
      } else if (auto* tabs = dynamic_cast<TabView*>(s)) {
        tabItems(tabs, true);
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
        int index = 0;
        for (const auto& column : table->tableColumns()) {
          TableColumn* c = column.get();
          Scope at(*this, c, "column[" + std::to_string(index++) + "]");
          add(c, c, "headerCell.title", [c] { return c->title(); }, [c](String x) { c->setTitle(std::move(x)); },
              c->headerCell().get());
          if (c->headerToolTip().length() > 0) {
            add(c, c, "headerToolTip", [c] { return c->headerToolTip(); },
                [c](String x) { c->setHeaderToolTip(std::move(x)); })
                .localizerVisits = false;
          }
          Cell* data = c->dataCell().get();
          if (auto* withMenu = dynamic_cast<HasMenu*>(data)) {
            Scope cell(*this, data, "dataCell");
            menuItems(withMenu->menu().get());
          } else if (data && data->title().length() > 0 && data->imageName().isNil()) {
            // The data cell's own text: a sample the tables carry, which the localizer leaves.
            Scope cell(*this, data, "dataCell");
            add(data, data, "title", [data] { return data->title(); }, [data](String x) { data->setTitle(std::move(x)); })
                .localizerVisits = false;
          }
          // The rows of a view-based table are copies of its prototypes: their strings are in the
          // document's tables, though the localizer does not visit them.
          const bool outer = inPrototype_;
          inPrototype_ = true;
          int prototypeIndex = 0;
          for (const auto& prototype : c->prototypeCellViews()) {
            Scope p(*this, prototype.get(), "prototype[" + std::to_string(prototypeIndex++) + "]");
            view(prototype.get());
          }
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

  // Display patterns and string placeholders of bindings, named by the binding's identifier and
  // found again by the bound object's place and the binding's name.
  void bindings(const Nib& nib) {
    int index = 0;
    for (const auto& c : nib.connections()) {
      if (c.kind != NibConnection::Kind::Binding) continue;
      auto source = std::dynamic_pointer_cast<InterfaceObject>(c.source.lock());
      if (!source) continue;
      std::shared_ptr<Binder> binder = source->binderForBinding(c.label);
      if (!binder) continue;
      const std::string bindingId = u8(c.identifier);
      // Tables name a binding's strings by the binding's identifier only.
      const bool nameable = !bindingId.empty();
      const auto place = places_.find(source.get());
      const std::string where = "@" + u8(c.label);
      std::string anchor = nameable ? bindingId : (place != places_.end() && !place->second.first.empty()
                                                       ? place->second.first + where
                                                       : std::string());
      const std::string position =
          (place != places_.end() ? place->second.second : "binding[" + std::to_string(index) + "]") + where;
      ++index;
      const auto probe = [&](const char* property) -> Probe& {
        Probe p;
        p.cls = "CocoaBindingsConnection";
        p.id = bindingId;
        p.property = property;
        p.object = source.get();
        p.anchor = anchor.empty() ? std::string() : anchor + "." + property;
        p.position = position + "." + property;
        if (nameable) p.key = bindingId + "." + property;
        probes.push_back(std::move(p));
        return probes.back();
      };
      Binder* b = binder.get();
      if (b->className().isEqual(u"NSDisplayPatternBinder") && isFirstOfGroup(c.label) &&
          b->displayPattern().length() > 0) {
        Probe& p = probe("ibShadowedDisplayPattern");
        p.get = [b] { return b->valueForKey(u"displayPattern").stringValue(); };
        p.set = [b](String x) { b->setValue(Value(std::move(x)), u"displayPattern"); };
      }
      std::shared_ptr<BindingInfo> info = b->bindingInfoForBinding(c.label);
      if (!info) continue;
      for (const MarkerName& m : kMarkers) {
        const Value placeholder = info->placeholderForMarker(m.marker);
        if (placeholder.isNil() || placeholder.type() != Value::Type::String) continue;
        Probe& p = probe(m.property);
        BindingInfo* i = info.get();
        const BindingMarker marker = m.marker;
        p.get = [i, marker] { return i->placeholderForMarker(marker).stringValue(); };
        p.set = [i, marker](String x) { i->setPlaceholder(Value(std::move(x)), marker, false); };
      }
    }
  }

  bool inPrototype_ = false;
  bool outsideLocalizer_ = false;  // below a place the localizer's walk does not reach
  std::vector<Step> path_;
  // Every object walked: its anchor and position (bindings are placed by their bound object).
  std::unordered_map<const Object*, std::pair<std::string, std::string>> places_;

  // A display pattern belongs to the group's first value binding ("displayPatternValue1").
  static bool isFirstOfGroup(const String& binding) { return u8(binding).ends_with("1"); }
};

// For each development string, the index of the same string in the language's copy, or -1. The
// files' identifiers decide where both have them, unless they disagree with the object tree for
// most strings (two files whose identifiers were made apart); then, and for strings without
// identifiers, the place in the tree decides. A copy's string is matched at most once, and only
// to a string of the same class.
std::vector<long> matchCopy(const std::vector<CatalogEntry>& development, const std::vector<Probe>& copy) {
  std::unordered_map<std::string, std::size_t> byAnchor, byPosition;
  for (std::size_t i = 0; i < copy.size(); ++i) {
    if (!copy[i].anchor.empty()) byAnchor.emplace(copy[i].anchor, i);
    byPosition.emplace(copy[i].position, i);
  }
  std::size_t both = 0, agreeing = 0;
  for (const auto& e : development) {
    if (e.anchor.empty()) continue;
    auto it = byAnchor.find(e.anchor);
    if (it == byAnchor.end() || copy[it->second].cls != e.cls) continue;
    ++both;
    agreeing += copy[it->second].position == e.position;
  }
  const bool identifiersHold = agreeing * 2 >= both;
  std::vector<long> match(development.size(), -1);
  std::vector<bool> taken(copy.size(), false);
  const auto take = [&](std::size_t i, const std::unordered_map<std::string, std::size_t>& index, const std::string& at) {
    auto it = index.find(at);
    if (at.empty() || it == index.end() || taken[it->second] || copy[it->second].cls != development[i].cls) return;
    match[i] = static_cast<long>(it->second);
    taken[it->second] = true;
  };
  if (identifiersHold) {
    for (std::size_t i = 0; i < development.size(); ++i) take(i, byAnchor, development[i].anchor);
  }
  for (std::size_t i = 0; i < development.size(); ++i) {
    if (match[i] < 0) take(i, byPosition, development[i].position);
  }
  return match;
}

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

// An interface as read; a storyboard keeps its scenes beside the nib.
struct ReadInterface {
  std::optional<StoryboardReadResult> storyboard;
  NibReadResult read{NibReadError{}};
};
ReadInterface readInterface(const std::string& file) {
  ReadInterface r;
  const std::string path = documentIn(file);
  if (isStoryboardPath(path)) {
    r.storyboard.emplace(readStoryboardFile(path));
    r.read = *r.storyboard ? r.storyboard->storyboard().nibResult() : NibReadResult(r.storyboard->error());
  } else {
    r.read = readNibFile(path);
  }
  return r;
}

// What the pictures show, each with its name: the windows and top-level views of a nib (the panes
// many interfaces keep beside their window); of a storyboard, each scene's window or view, as
// `tqkit render` offers them, named by the scene. Empty ones are left out.
std::vector<std::pair<std::string, std::shared_ptr<Object>>> drawables(const ReadInterface& in) {
  std::vector<std::pair<std::string, std::shared_ptr<Object>>> found;
  std::set<std::string> names;
  const auto add = [&](bool window, std::string id, std::shared_ptr<Object> o) {
    if (id.empty()) id = std::to_string(found.size());
    for (char& c : id) {
      if (c == '/' || c == '\0') c = '_';  // the identifier comes from the file: it names no other folder
    }
    std::string name = (window ? "window-" : "view-") + id;
    for (int n = 2; !names.insert(name).second; ++n) name = (window ? "window-" : "view-") + id + "-" + std::to_string(n);
    found.emplace_back(std::move(name), std::move(o));
  };
  const auto drawable = [](const Window* window, const View* view) {
    const View* root = window ? window->contentView().get() : view;
    return root && !root->bounds().isEmpty() && !(window && window->contentRect().isEmpty());
  };
  if (in.storyboard) {
    for (const auto& scene : in.storyboard->storyboard().scenes()) {
      const auto window = scene.window();
      const auto view = window ? nullptr : scene.view();
      if (!drawable(window.get(), view.get())) continue;
      add(window != nullptr, u8(scene.identifier), window ? std::shared_ptr<Object>(window) : view);
    }
    return found;
  }
  for (const auto& o : in.read.nib().topLevelObjects()) {
    const auto* window = dynamic_cast<const Window*>(o.get());
    if (!drawable(window, window ? nullptr : dynamic_cast<const View*>(o.get()))) continue;
    add(window != nullptr, idOf(o.get()), o);
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

// The designer's mark on a string, or on the note to translators, that it is not to be translated
// (the strings tools leave such strings out of the tables they keep).
bool marksIgnored(const String& s) { return !s.isNil() && s.u16string().find(u"#bc-ignore!") != std::u16string::npos; }
bool marksIgnored(const Object* o) {
  const auto* io = dynamic_cast<const InterfaceObject*>(o);
  return io && marksIgnored(io->userComments());
}

// The strings of a read interface, each with its text as it stands.
std::vector<Probe> probesOf(const Nib& nib) {
  Collector collector;
  collector.objects(nib);
  for (auto& p : collector.probes) {
    p.before = p.get();
    p.localizable = p.shown && !marksIgnored(p.before) && !marksIgnored(p.keyObject) && !marksIgnored(p.object);
  }
  return std::move(collector.probes);
}

// Every string of the development interface left untranslated: what a language shows that has
// no copy of it.
void reportAbsent(const Catalog& development, Report& report) {
  for (const auto& d : development.entries) {
    StringEntry e;
    e.cls = d.cls, e.id = d.id, e.property = d.property, e.key = d.key, e.before = d.text;
    e.afterIsNil = true;
    e.status = d.text.empty() ? "empty" : !d.localizable ? "ignored" : "untranslated";
    if (e.status == "untranslated") report.missing.push_back({d.key, d.text});
    report.strings.push_back(std::move(e));
  }
}

}  // namespace

Catalog catalogOf(const std::string& file) {
  Catalog catalog;
  catalog.path = file;
  const ReadInterface in = readInterface(file);
  const NibReadResult& read = in.read;
  if (!read) {
    catalog.error = read.error().reason;
    return catalog;
  }
  for (const Probe& p : probesOf(read.nib())) {
    CatalogEntry e;
    e.cls = p.cls, e.id = p.id, e.property = p.property, e.text = u8(p.before);
    e.localizable = p.localizable;
    // Named as tables name it where the object has an identifier, else by its place.
    e.key = !p.key.empty() ? p.key : !p.anchor.empty() ? p.anchor : p.position;
    e.anchor = p.anchor, e.position = p.position;
    catalog.entries.push_back(std::move(e));
  }
  return catalog;
}

std::vector<std::string> drawInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file,
                                       const PictureSink& sink, std::string& error) {
  std::vector<std::string> names;
  const ReadInterface in = readInterface(file);
  if (!in.read) {
    error = in.read.error().reason;
    return names;
  }
  const auto images = imagesOf(in.read.nib(), file, bundle);
  for (const auto& [name, o] : drawables(in)) {
    sink(name, "before", picture(o, images, {}));
    names.push_back(name);
  }
  return names;
}

Report localizeInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file, const Options& options) {
  Report report;
  report.mode = options.mode;
  report.interfacePath = file;
  report.interfaceName = fs::path(file).stem().string();
  report.localization = options.localization;
  if (report.localization.empty() && bundle && !bundle->preferredLocalizations().empty()) {
    report.localization = u8(bundle->preferredLocalizations().front());
  }
  const bool copy = options.mode == Mode::Copy;
  if (copy || options.mode == Mode::Absent) {
    if (!options.development) {
      report.error = "no development copy to compare with";
      return report;
    }
    if (!options.development->error.empty()) {
      report.error = "the development copy cannot be read: " + options.development->error;
      return report;
    }
    if (!copy) {
      reportAbsent(*options.development, report);
      return report;
    }
  }
  const String table = !options.table.isNil()                ? options.table
                       : options.mode == Mode::ById          ? String::fromUTF8(report.interfaceName)
                       : options.mode == Mode::Localizer     ? String(u"Localizable")
                                                             : String();
  report.table = u8(table);

  const ReadInterface in = readInterface(file);
  const NibReadResult& read = in.read;
  if (!read) {
    report.error = read.error().reason;
    return report;
  }
  const Nib& nib = read.nib();
  const auto& objects = nib.topLevelObjects();
  const auto images = imagesOf(nib, file, bundle);

  std::vector<Probe> probes = probesOf(nib);
  std::vector<std::pair<Button*, Rect>> boxes;
  for (const auto& o : objects) {
    if (auto* w = dynamic_cast<Window*>(o.get())) checkBoxes(w->contentView().get(), boxes);
    if (auto* v = dynamic_cast<View*>(o.get())) checkBoxes(v, boxes);
  }
  const auto shown = drawables(in);
  if (options.pictures == Pictures::BeforeAndAfter && options.onPicture) {
    for (const auto& [name, o] : shown) options.onPicture(name, "before", picture(o, images, {}));
  }

  const String localization = String::fromUTF8(report.localization);
  const Dictionary strings = bundle && !table.isNil() ? bundle->stringsTable(table, localization) : Dictionary();
  report.tableFound = copy || static_cast<bool>(strings);
  std::set<std::string> used;
  const auto inTable = [&](const std::string& key) { return !strings.objectForKey(String::fromUTF8(key)).isNil(); };

  if (options.mode == Mode::ById) {
    for (auto& p : probes) {
      if (p.key.empty()) continue;
      const Value found = strings.objectForKey(String::fromUTF8(p.key));
      if (!found.isNil() && found.type() == Value::Type::String) p.set(found.stringValue());
    }
  } else if (options.mode == Mode::Localizer) {
    TQLocalizer::localizeObjects(objects, options.table, bundle);
  }
  for (auto& p : probes) p.after = p.get();

  std::vector<const View*> outline;
  const auto measure = [&](const Probe& p, const String& text) {
    // Texts that no longer fit their control (translated ones only: the others are as designed).
    if (!p.control) return;
    const Fit f = fitOf(*p.control, text);
    if (!f.overflows) return;
    report.overflows.push_back({p.cls, p.id, p.property, u8(text), "text", f.width, f.needed});
    outline.push_back(p.control);
  };

  if (copy) {
    // The development copy's strings, each with what the language's copy shows in its place.
    const auto& development = options.development->entries;
    const std::vector<long> match = matchCopy(development, probes);
    for (std::size_t i = 0; i < development.size(); ++i) {
      const CatalogEntry& d = development[i];
      StringEntry e;
      e.cls = d.cls, e.id = d.id, e.property = d.property, e.key = d.key, e.before = d.text;
      const Probe* there = match[i] >= 0 ? &probes[static_cast<std::size_t>(match[i])] : nullptr;
      e.afterIsNil = !there || there->after.isNil();
      e.after = there ? u8(there->after) : std::string();
      const bool found = there && there->after.length() > 0;
      e.status = d.text.empty() ? "empty" : !d.localizable ? "ignored" : found ? "translated" : "untranslated";
      if (e.status == "untranslated") report.missing.push_back({e.key, e.before});
      if (!d.text.empty() && found) measure(*there, there->after);
      report.strings.push_back(std::move(e));
    }
  } else {
    for (auto& p : probes) {
      if (options.mode == Mode::Localizer && !p.localizerVisits) continue;  // the localizer leaves these
      StringEntry e;
      e.cls = p.cls, e.id = p.id, e.property = p.property;
      e.before = u8(p.before);
      e.after = u8(p.after);
      e.afterIsNil = p.after.isNil();
      if (p.before.length() == 0) {
        e.status = "empty";
        report.strings.push_back(std::move(e));
        continue;
      }
      bool found = false;
      if (options.mode == Mode::ById) {
        e.key = p.key;
        found = !e.key.empty() && inTable(e.key);
      } else if (p.classLookup) {
        // Menu titles come from table "default" when none is named, untrimmed.
        e.key = u8(p.before);
        const String menuTable = options.table.isNil() ? String(u"default") : options.table;
        found = bundle && !bundle->stringsTable(menuTable, localization).objectForKey(p.before).isNil();
      } else {
        e.key = u8(trimmed(p.before));
        found = inTable(e.key);
      }
      used.insert(e.key);
      if (!p.localizable) {
        // Neither translated nor missing; a key the table has for it is still not unused.
        e.status = "ignored";
        report.strings.push_back(std::move(e));
        continue;
      }
      e.status = found ? "translated" : "untranslated";
      if (!found) report.missing.push_back({e.key.empty() ? e.before : e.key, e.before});
      if (found) measure(p, p.after);
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
                                    std::ceil(f.maxX())});
        outline.push_back(b);
      }
    }
  }

  // An interface the language leaves as it was looks as it did: the pictures before show it.
  report.picturesUnchanged =
      options.unchangedIsBefore && !copy && outline.empty() && report.resized.empty() &&
      std::all_of(probes.begin(), probes.end(), [](const Probe& p) {
        return p.after.isNil() == p.before.isNil() && (p.after.isNil() || p.after == p.before);
      });
  for (const auto& [name, o] : shown) {
    report.pictures.push_back(name);
    if (options.pictures != Pictures::None && options.onPicture && !report.picturesUnchanged) {
      options.onPicture(name, "after", picture(o, images, outline));
    }
  }
  return report;
}

}  // namespace tq::cli::localizing
