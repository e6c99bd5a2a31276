// tqkit nib: prints the object tree of an interface document.
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/combo_box.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/grid_view.h"
#include "tq/platform/ui/model/rule_editor.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/scroll_view.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/text_view.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window.h"
#include "tq/platform/ui/model/window_controller.h"

namespace {

using tq::String;

struct BindingOut {
  std::string name, binder, destination, keyPath, pattern;
  std::vector<std::pair<std::string, std::string>> placeholders;
};

// One object of the tree, as printed.
struct Node {
  std::string role;  // how the parent holds it ("cell", "contentView", "item"...); empty for subviews
  std::string cls, custom, id;
  std::optional<tq::Rect> frame;
  std::vector<std::pair<std::string, std::string>> strings;  // visible texts
  std::vector<std::pair<std::string, std::string>> facts;    // kinds and flags worth seeing
  std::vector<BindingOut> bindings;
  std::vector<Node> children;
};

std::string u8(const String& s) { return s.UTF8String(); }

void addString(Node& n, const char* key, const String& value) {
  if (!value.isNil() && value.length() > 0) n.strings.emplace_back(key, u8(value));
}

const char* buttonTypeName(tq::ButtonType t) {
  static const char* names[] = {"momentaryLight", "pushOnPushOff", "toggle", "switch", "radio",
                                "momentaryChange", "onOff", "momentaryPushIn", "accelerator", "multiLevelAccelerator"};
  const int i = static_cast<int>(t);
  return i >= 0 && i < 10 ? names[i] : "?";
}

Node describe(const tq::Object* object, std::string role);

void describeBindings(Node& n, const tq::InterfaceObject& o) {
  for (const auto& binder : o.binders()) {
    for (const auto& info : binder->bindingInfos()) {
      BindingOut b;
      b.name = u8(info->binding());
      b.binder = u8(binder->className());
      if (auto dest = std::dynamic_pointer_cast<tq::InterfaceObject>(info->observedObject())) {
        b.destination = u8(dest->archiveIdentifier());
      } else if (info->observedObject()) {
        b.destination = "owner";
      }
      b.keyPath = u8(info->keyPath());
      b.pattern = u8(binder->displayPattern());
      for (int m = 0; m < 4; ++m) {
        const auto marker = static_cast<tq::BindingMarker>(m);
        const tq::Value& v = info->placeholderForMarker(marker);
        if (v.isNil()) continue;
        b.placeholders.emplace_back(u8(tq::placeholderOptionKey(marker)),
                                    v.type() == tq::Value::Type::String ? u8(v.stringValue()) : u8(v.description()));
      }
      n.bindings.push_back(std::move(b));
    }
  }
}

void describeCell(Node& n, const tq::Cell& cell) {
  if (auto* b = dynamic_cast<const tq::ButtonCell*>(&cell)) {
    if (!dynamic_cast<const tq::PopUpButtonCell*>(&cell)) addString(n, "title", b->title());
    addString(n, "alternateTitle", b->alternateTitle());
    n.facts.emplace_back("buttonType", buttonTypeName(b->buttonType()));
    if (b->imagePosition() == tq::CellImagePosition::ImageOnly) n.facts.emplace_back("imagePosition", "imageOnly");
  } else if (auto* s = dynamic_cast<const tq::SegmentedCell*>(&cell)) {
    for (long i = 0; i < s->segmentCount(); ++i) {
      addString(n, ("segment" + std::to_string(i)).c_str(), s->labelForSegment(i));
      addString(n, ("segment" + std::to_string(i) + ".toolTip").c_str(), s->segments()[static_cast<std::size_t>(i)].toolTip);
    }
  } else {
    addString(n, "stringValue", cell.stringValue());
  }
  if (auto* t = dynamic_cast<const tq::TextFieldCell*>(&cell)) addString(n, "placeholder", t->placeholderString());
  if (auto* c = dynamic_cast<const tq::ComboBoxCell*>(&cell)) {
    for (long i = 0; i < c->numberOfItems(); ++i) addString(n, ("item" + std::to_string(i)).c_str(), c->itemObjectValueAtIndex(i));
  }
  if (!cell.imageName().isNil()) n.facts.emplace_back("image", u8(cell.imageName()));
  if (auto* m = dynamic_cast<const tq::HasMenu*>(&cell)) {
    if (auto menu = m->menu()) n.children.push_back(describe(menu.get(), "menu"));
  }
}

void describeView(Node& n, const tq::View& view) {
  n.frame = view.frame();
  addString(n, "toolTip", view.toolTip());
  if (view.isHidden()) n.facts.emplace_back("hidden", "YES");
  if (auto* control = dynamic_cast<const tq::Control*>(&view)) {
    if (control->cell()) n.children.push_back(describe(control->cell().get(), "cell"));
  }
  if (auto* box = dynamic_cast<const tq::Box*>(&view)) {
    addString(n, "title", box->title());
    if (box->titlePosition() == tq::TitlePosition::NoTitle) n.facts.emplace_back("titlePosition", "noTitle");
  }
  if (auto* matrix = dynamic_cast<const tq::Matrix*>(&view)) {
    for (long r = 0; r < matrix->numberOfRows(); ++r) {
      for (long c = 0; c < matrix->numberOfColumns(); ++c) {
        n.children.push_back(describe(matrix->cellAtRow(r, c).get(), "cells[" + std::to_string(r) + "," + std::to_string(c) + "]"));
      }
    }
  }
  if (auto* table = dynamic_cast<const tq::TableView*>(&view)) {
    for (const auto& column : table->tableColumns()) n.children.push_back(describe(column.get(), "column"));
  }
  if (auto* text = dynamic_cast<const tq::TextView*>(&view)) addString(n, "string", text->string());
  if (auto* grid = dynamic_cast<const tq::GridView*>(&view)) {
    n.facts.emplace_back("rows", std::to_string(grid->numberOfRows()));
    n.facts.emplace_back("columns", std::to_string(grid->numberOfColumns()));
  }
  if (auto* rules = dynamic_cast<const tq::RuleEditor*>(&view)) {
    for (const auto& row : rules->rowTemplates()) {
      Node t = describe(row.get(), "template");
      for (const auto& v : row->templateViews()) t.children.push_back(describe(v.get(), ""));
      n.children.push_back(std::move(t));
    }
  }
  if (view.contextMenu()) n.children.push_back(describe(view.contextMenu().get(), "menu"));
  if (auto* tabs = dynamic_cast<const tq::TabView*>(&view)) {
    // The selected item's view is also the tab view's subview: show it once, under its item.
    for (const auto& item : tabs->tabViewItems()) n.children.push_back(describe(item.get(), "item"));
    return;
  }
  for (const auto& sub : view.subviews()) n.children.push_back(describe(sub.get(), ""));
}

Node describe(const tq::Object* object, std::string role) {
  Node n;
  n.role = std::move(role);
  if (!object) {
    n.cls = "nil";
    return n;
  }
  n.cls = u8(object->className());
  auto* o = dynamic_cast<const tq::InterfaceObject*>(object);
  if (!o) return n;
  n.custom = u8(o->customClassName());
  n.id = u8(o->archiveIdentifier());
  if (auto* w = dynamic_cast<const tq::Window*>(o)) {
    n.frame = w->contentRect();
    addString(n, "title", w->title());
    if (w->toolbar()) n.children.push_back(describe(w->toolbar().get(), "toolbar"));
    if (w->contentView()) n.children.push_back(describe(w->contentView().get(), "contentView"));
  } else if (auto* v = dynamic_cast<const tq::View*>(o)) {
    describeView(n, *v);
  } else if (auto* c = dynamic_cast<const tq::Cell*>(o)) {
    describeCell(n, *c);
  } else if (auto* m = dynamic_cast<const tq::Menu*>(o)) {
    addString(n, "title", m->title());
    for (const auto& item : m->itemArray()) n.children.push_back(describe(item.get(), "item"));
  } else if (auto* i = dynamic_cast<const tq::MenuItem*>(o)) {
    if (i->isSeparatorItem()) n.facts.emplace_back("separator", "YES");
    addString(n, "title", i->title());
    addString(n, "keyEquivalent", i->keyEquivalent());
    addString(n, "toolTip", i->toolTip());
    if (i->submenu()) n.children.push_back(describe(i->submenu().get(), "submenu"));
  } else if (auto* wc = dynamic_cast<const tq::WindowController*>(o)) {
    // Its window and content are top-level objects (or inside one) and shown there.
    if (wc->window()) n.facts.emplace_back("window", "#" + u8(wc->window()->archiveIdentifier()));
    if (wc->contentViewController()) {
      n.facts.emplace_back("contentViewController", "#" + u8(wc->contentViewController()->archiveIdentifier()));
    }
  } else if (auto* vc = dynamic_cast<const tq::ViewController*>(o)) {
    addString(n, "title", vc->title());
    if (vc->view()) n.facts.emplace_back("view", "#" + u8(vc->view()->archiveIdentifier()));
    for (const auto& child : vc->childViewControllers()) n.facts.emplace_back("child", "#" + u8(child->archiveIdentifier()));
  } else if (auto* t = dynamic_cast<const tq::TabViewItem*>(o)) {
    addString(n, "label", t->label());
    addString(n, "toolTip", t->toolTip());
    if (t->viewController()) n.facts.emplace_back("viewController", "#" + u8(t->viewController()->archiveIdentifier()));
    if (t->view()) n.children.push_back(describe(t->view().get(), "view"));
  } else if (auto* col = dynamic_cast<const tq::TableColumn*>(o)) {
    addString(n, "identifier", col->identifier());
    if (col->headerCell()) n.children.push_back(describe(col->headerCell().get(), "headerCell"));
    if (col->dataCell()) n.children.push_back(describe(col->dataCell().get(), "dataCell"));
    for (const auto& p : col->prototypeCellViews()) n.children.push_back(describe(p.get(), "prototype"));
  } else if (auto* bar = dynamic_cast<const tq::Toolbar*>(o)) {
    addString(n, "identifier", bar->identifier());
    for (const auto& item : bar->allowedItems()) n.children.push_back(describe(item.get(), "item"));
  } else if (auto* ti = dynamic_cast<const tq::ToolbarItem*>(o)) {
    addString(n, "identifier", ti->itemIdentifier());
    addString(n, "label", ti->label());
    addString(n, "paletteLabel", ti->paletteLabel());
    addString(n, "toolTip", ti->toolTip());
    if (!ti->imageName().isNil()) n.facts.emplace_back("image", u8(ti->imageName()));
    if (ti->view()) n.children.push_back(describe(ti->view().get(), "view"));
    if (ti->menuFormRepresentation()) n.children.push_back(describe(ti->menuFormRepresentation().get(), "menuForm"));
  }
  describeBindings(n, *o);
  return n;
}

std::string number(double d) {
  char buf[32];
  if (d == std::floor(d) && std::fabs(d) < 1e15) {
    std::snprintf(buf, sizeof buf, "%.0f", d);
  } else {
    std::snprintf(buf, sizeof buf, "%g", d);
  }
  return buf;
}

std::string quoted(const std::string& s) { return tq::cli::Json::escape(s); }

void printText(const Node& n, int depth) {
  std::string line(static_cast<std::size_t>(depth) * 2, ' ');
  if (!n.role.empty()) line += n.role + ": ";
  line += n.cls;
  if (!n.custom.empty()) line += " (" + n.custom + ")";
  if (!n.id.empty()) line += " #" + n.id;
  if (n.frame) {
    line += " (" + number(n.frame->x) + ", " + number(n.frame->y) + ", " + number(n.frame->w) + ", " +
            number(n.frame->h) + ")";
  }
  for (const auto& [k, v] : n.facts) line += " " + k + "=" + v;
  for (const auto& [k, v] : n.strings) line += " " + k + "=" + quoted(v);
  std::printf("%s\n", line.c_str());
  for (const auto& b : n.bindings) {
    std::string l(static_cast<std::size_t>(depth) * 2 + 2, ' ');
    l += "@" + b.name + " -> " + (b.destination.empty() ? "nil" : "#" + b.destination) + " " + b.keyPath + " [" + b.binder;
    if (!b.pattern.empty()) l += " pattern=" + quoted(b.pattern);
    l += "]";
    for (const auto& [k, v] : b.placeholders) l += " " + k + "=" + quoted(v);
    std::printf("%s\n", l.c_str());
  }
  for (const auto& c : n.children) printText(c, depth + 1);
}

void printJson(tq::cli::Json& j, const Node& n) {
  j.beginObject();
  if (!n.role.empty()) j.key("role").string(n.role);
  j.key("class").string(n.cls);
  if (!n.custom.empty()) j.key("customClass").string(n.custom);
  if (!n.id.empty()) j.key("id").string(n.id);
  if (n.frame) {
    j.key("frame").beginArray().number(n.frame->x).number(n.frame->y).number(n.frame->w).number(n.frame->h).endArray();
  }
  for (const auto& [k, v] : n.facts) j.key(k).string(v);
  if (!n.strings.empty()) {
    j.key("strings").beginObject();
    for (const auto& [k, v] : n.strings) j.key(k).string(v);
    j.endObject();
  }
  if (!n.bindings.empty()) {
    j.key("bindings").beginArray();
    for (const auto& b : n.bindings) {
      j.beginObject().key("name").string(b.name).key("binder").string(b.binder);
      if (!b.destination.empty()) j.key("destination").string(b.destination);
      j.key("keyPath").string(b.keyPath);
      if (!b.pattern.empty()) j.key("displayPattern").string(b.pattern);
      if (!b.placeholders.empty()) {
        j.key("placeholders").beginObject();
        for (const auto& [k, v] : b.placeholders) j.key(k).string(v);
        j.endObject();
      }
      j.endObject();
    }
    j.endArray();
  }
  if (!n.children.empty()) {
    j.key("children").beginArray();
    for (const auto& c : n.children) printJson(j, c);
    j.endArray();
  }
  j.endObject();
}

int runNib(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  const std::string& path = args.positional(0, "FILE");
  // A stand-in File's Owner, so that connections to it are made and shown (as #-2).
  tq::NibLoadOptions options;
  auto owner = std::make_shared<tq::GenericObject>(u"NSObject");
  owner->setArchiveIdentifier(u"-2");
  options.owner = owner;
  // Files and nib folders are read in place (errors name the file read); "-" is standard input.
  // Storyboards are read as such, for their scenes.
  std::optional<tq::StoryboardReadResult> storyboard;
  if (path != "-" && tq::isStoryboardPath(path)) storyboard = tq::readStoryboardFile(path, options);
  tq::NibReadResult result = storyboard ? (*storyboard ? storyboard->storyboard().nibResult() : tq::NibReadResult(storyboard->error()))
                             : path == "-" ? tq::readNibData(tq::cli::readFile(path, tq::kMaxNibDocumentSize), options)
                                           : tq::readNibFile(path, options);
  if (!result) {
    throw tq::cli::Failure(path == "-" ? "-: " + result.error().reason : result.error().reason);
  }
  const tq::Nib& nib = result.nib();
  std::vector<Node> roots;
  for (const auto& object : nib.topLevelObjects()) roots.push_back(describe(object.get(), ""));
  if (args.has("json")) {
    tq::cli::Json j;
    j.beginObject().key("file").string(path).key("format").string(u8(nib.documentType()));
    j.key("objectCount").number(static_cast<long long>(nib.objectCount()));
    // Every visible string of the tree, depth first, for scripts that only want the texts.
    j.key("visibleStrings").beginArray();
    std::vector<const Node*> stack;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) stack.push_back(&*it);
    while (!stack.empty()) {
      const Node* node = stack.back();
      stack.pop_back();
      for (const auto& [k, v] : node->strings) {
        if (k != "identifier" && k != "keyEquivalent") j.string(v);
      }
      for (auto it = node->children.rbegin(); it != node->children.rend(); ++it) stack.push_back(&*it);
    }
    j.endArray();
    if (storyboard) {
      const tq::Storyboard& sb = storyboard->storyboard();
      j.key("scenes").beginArray();
      for (const auto& scene : sb.scenes()) {
        j.beginObject().key("id").string(u8(scene.identifier));
        if (!scene.storyboardIdentifier.isNil()) j.key("storyboardIdentifier").string(u8(scene.storyboardIdentifier));
        if (scene.controller) {
          j.key("controller").string(u8(scene.controller->archiveIdentifier()));
          j.key("initial").boolean(scene.controller == sb.initialController());
        }
        j.endObject();
      }
      j.endArray();
      j.key("segues").beginArray();
      for (const auto& segue : sb.segues()) {
        j.beginObject().key("kind").string(u8(segue.kind));
        if (!segue.relationship.isNil()) j.key("relationship").string(u8(segue.relationship));
        if (!segue.identifier.isNil()) j.key("identifier").string(u8(segue.identifier));
        j.key("source").string(u8(segue.sourceIdentifier)).key("destination").string(u8(segue.destinationIdentifier));
        j.endObject();
      }
      j.endArray();
    }
    j.key("topLevelObjects").beginArray();
    for (const auto& r : roots) printJson(j, r);
    j.endArray();
    j.key("warnings").beginArray();
    for (const auto& w : nib.warnings()) j.string(w);
    j.endArray();
    j.endObject();
    j.newline();
  } else {
    std::printf("%s: %zu top-level objects, %zu objects\n", path.c_str(), roots.size(), nib.objectCount());
    if (storyboard) {
      const tq::Storyboard& sb = storyboard->storyboard();
      for (const auto& scene : sb.scenes()) {
        std::string line = "scene " + u8(scene.identifier);
        if (!scene.storyboardIdentifier.isNil()) line += " (" + u8(scene.storyboardIdentifier) + ")";
        if (scene.controller) line += " controller #" + u8(scene.controller->archiveIdentifier());
        if (scene.controller && scene.controller == sb.initialController()) line += " initial";
        std::printf("%s\n", line.c_str());
      }
      for (const auto& segue : sb.segues()) {
        std::printf("segue %s%s%s #%s -> #%s\n", u8(segue.kind).c_str(), segue.relationship.isNil() ? "" : " ",
                    u8(segue.relationship).c_str(), u8(segue.sourceIdentifier).c_str(), u8(segue.destinationIdentifier).c_str());
      }
    }
    for (const auto& r : roots) printText(r, 0);
    for (const auto& w : nib.warnings()) std::printf("warning: %s\n", w.c_str());
  }
  std::fflush(stdout);
  return 0;
}

tq::cli::Registration nib({"nib", "print the object tree of an interface (.xib, .nib file or folder)",
                           "usage: tqkit nib FILE [--json]\n\n"
                           "Reads the interface FILE in any form a Mac bundle or project holds: an XML interface\n"
                           "document (.xib), the older XML archive, a compiled nib (keyed archive, binary or XML,\n"
                           "or NIBArchive), a nib folder (NAME.nib/ with keyedobjects-NNNNNN.nib, keyedobjects.nib\n"
                           "or designable.nib), or a storyboard (.storyboard, compiled .storyboardc/), whose scenes\n"
                           "and segues are listed first; \"-\" reads standard input. It prints the top-level\n"
                           "objects and everything inside them, one object a line, indented by depth: the class\n"
                           "(with the custom class in parentheses), the archive id after #, the frame (x, y,\n"
                           "width, height), the visible strings (titles, labels, values, placeholders), and each\n"
                           "binding on a line of its own starting with @ (binding name, observed object, key path,\n"
                           "binder class, display pattern, placeholders).\n\n"
                           "  --json   print the same tree as one JSON document, with \"format\" and a flat\n"
                           "           \"visibleStrings\" array (titles, labels, contents, placeholders, tool tips)\n\n"
                           "Exit status: 0 on success, 1 when the file cannot be read or is not an interface\n"
                           "document (one line on standard error naming the file and what is wrong), 2 on a\n"
                           "usage error.\n",
                           runNib});

}  // namespace
