// tqkit show: a window of an interface file live on screen, through tqkit-gtk. The interface is
// read and localized here; the GTK library is loaded only when the window is shown, so that no
// other command of the tool loads it.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "tq/gtk/show_interface.h"
#include "tq/interface/tq_localizer.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "tq/platform/ui/archive/storyboard_reader.h"
#include "tq/platform/ui/drawing/image.h"
#include "tq/platform/ui/drawing/named_images.h"
#include "tq/platform/ui/model/box.h"
#include "tq/platform/ui/model/button.h"
#include "tq/platform/ui/model/matrix.h"
#include "tq/platform/ui/model/segmented_control.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/table_view.h"
#include "tq/platform/ui/model/text_field.h"
#include "tq/platform/ui/model/toolbar.h"
#include "tq/platform/ui/model/window.h"

namespace {

namespace fs = std::filesystem;
using tq::String;

long number(const tq::cli::Args& args, const char* flag, long fallback) {
  auto v = args.value(flag);
  if (!v) return fallback;
  char* end = nullptr;
  const long n = std::strtol(v->c_str(), &end, 10);
  if (v->empty() || *end != '\0' || n < 0) throw tq::cli::UsageError(std::string("--") + flag + " takes a number from 0");
  return n;
}

// --- a table keyed by object identifier and property ("ID.title"), as generated beside a Base
// interface: applied to the properties such tables name.

class ByIdentifier {
 public:
  explicit ByIdentifier(tq::Dictionary table) : table_(std::move(table)) {}

  void objects(const std::vector<tq::ObjectRef>& objects) {
    for (const auto& o : objects) {
      if (auto* w = dynamic_cast<tq::Window*>(o.get())) {
        apply(w, "title", [w](String s) { w->setTitle(std::move(s)); });
        if (w->contentView()) view(*w->contentView());
        if (auto toolbar = std::dynamic_pointer_cast<tq::Toolbar>(w->toolbar())) {
          for (const auto& item : toolbar->allowedItems()) {
            apply(item.get(), "label", [i = item.get()](String s) { i->setLabel(std::move(s)); });
            if (item->view()) view(*item->view());
          }
        }
      } else if (auto* v = dynamic_cast<tq::View*>(o.get())) {
        view(*v);
      } else if (auto* m = dynamic_cast<tq::Menu*>(o.get())) {
        menu(*m);
      }
    }
  }

 private:
  template <class Set>
  void apply(const tq::InterfaceObject* object, const std::string& property, Set set) {
    if (!object || object->archiveIdentifier().isNil()) return;
    const tq::Value found = table_.objectForKey(String::fromUTF8(object->archiveIdentifier().UTF8String() + "." + property));
    if (found.type() == tq::Value::Type::String) set(found.stringValue());
  }

  void menu(tq::Menu& m) {
    apply(&m, "title", [&m](String s) { m.setTitle(std::move(s)); });
    for (const auto& item : m.itemArray()) {
      apply(item.get(), "title", [i = item.get()](String s) { i->setTitle(std::move(s)); });
      if (item->submenu()) menu(*item->submenu());
    }
  }

  void view(tq::View& v) {
    if (auto* popup = dynamic_cast<tq::PopUpButton*>(&v)) {
      if (popup->menu()) menu(*popup->menu());
    } else if (auto* b = dynamic_cast<tq::Button*>(&v)) {
      apply(b->cell().get(), "title", [b](String s) { b->setTitle(std::move(s)); });
      apply(b->cell().get(), "alternateTitle", [b](String s) { b->setAlternateTitle(std::move(s)); });
    } else if (auto* box = dynamic_cast<tq::Box*>(&v)) {
      apply(box, "title", [box](String s) { box->setTitle(std::move(s)); });
    } else if (auto* matrix = dynamic_cast<tq::Matrix*>(&v)) {
      for (const auto& cell : matrix->cells()) apply(cell.get(), "title", [c = cell.get()](String s) { c->setTitle(std::move(s)); });
    } else if (auto* tabs = dynamic_cast<tq::TabView*>(&v)) {
      for (const auto& item : tabs->tabViewItems()) {
        apply(item.get(), "label", [i = item.get()](String s) { i->setLabel(std::move(s)); });
        if (item->view()) view(*item->view());
      }
      return;
    } else if (auto* field = dynamic_cast<tq::TextField*>(&v)) {
      apply(field->cell().get(), "title", [field](String s) { field->setStringValue(std::move(s)); });
      apply(field->cell().get(), "placeholderString", [field](String s) { field->setPlaceholderString(std::move(s)); });
    } else if (auto* table = dynamic_cast<tq::TableView*>(&v)) {
      for (const auto& c : table->tableColumns()) {
        apply(c.get(), "headerCell.title", [col = c.get()](String s) { col->setTitle(std::move(s)); });
      }
    } else if (auto* segments = dynamic_cast<tq::SegmentedControl*>(&v)) {
      for (long i = 0; i < segments->segmentCount(); ++i) {
        apply(segments->cell().get(), "ibShadowedLabels[" + std::to_string(i) + "]",
              [segments, i](String s) { segments->setLabel(std::move(s), i); });
      }
    }
    for (const auto& sub : v.subviews()) {
      if (sub) view(*sub);
    }
  }

  tq::Dictionary table_;
};

// The folder of resources around an interface file: the parent of its .lproj folder, else its own.
fs::path resourcesOf(const fs::path& file) {
  const fs::path dir = file.parent_path();
  return dir.extension() == ".lproj" ? dir.parent_path() : dir;
}

// Translates the objects into `language`: the interface's strings table of that language, by the
// interface's texts (TQLocalizer) and by object identifier.
void localize(const std::vector<tq::ObjectRef>& objects, const fs::path& file, const std::string& language) {
  const fs::path resources = resourcesOf(file);
  auto bundle = tq::Bundle::uncachedBundleWithPath(String::fromUTF8(resources.string()));
  if (!bundle) return;
  const String table = String::fromUTF8(file.stem().string());
  tq::TQLocalizer::localizeObjects(objects, table, bundle);
  ByIdentifier(bundle->stringsTable(table, String::fromUTF8(language))).objects(objects);
}

// The tqkit-gtk library: named by TQKIT_GTK_LIBRARY, else installed beside the tool's own
// libraries, else where the build made it.
struct GtkLibrary {
  void (*makeOwner)(bool, tq::ObjectRef*) = nullptr;
  int (*show)(const tq::GtkShowRequest*, std::string*) = nullptr;
};

GtkLibrary loadGtkLibrary() {
  GtkLibrary found;
#ifdef TQKIT_GTK_LINKED
  found.makeOwner = &tqkit_gtk_make_show_owner;
  found.show = &tqkit_gtk_show;
#elif defined(TQKIT_GTK_SONAME)
  std::vector<std::string> candidates;
  if (const char* named = std::getenv("TQKIT_GTK_LIBRARY"); named && *named) candidates.push_back(named);
  char self[PATH_MAX];
  const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  if (n > 0) {
    self[n] = '\0';
    candidates.push_back((fs::path(self).parent_path() / TQKIT_GTK_LIBDIR_FROM_BIN / TQKIT_GTK_SONAME).string());
  }
  candidates.push_back(TQKIT_GTK_BUILD_PATH);
  candidates.push_back(TQKIT_GTK_SONAME);
  std::string why;
  for (const auto& path : candidates) {
    if (path.find('/') != std::string::npos && !fs::exists(path)) continue;
    if (void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
      found.makeOwner = reinterpret_cast<decltype(found.makeOwner)>(::dlsym(library, "tqkit_gtk_make_show_owner"));
      found.show = reinterpret_cast<decltype(found.show)>(::dlsym(library, "tqkit_gtk_show"));
      if (found.makeOwner && found.show) return found;
      throw tq::cli::Failure(path + ": not a tqkit-gtk library of this version");
    }
    why = ::dlerror();
  }
  throw tq::cli::Failure(why.empty() ? "tqkit-gtk is not installed" : why);
#else
  throw tq::cli::Failure("this tqkit was built without GTK 4 (libgtk-4-dev), so it cannot show windows");
#endif
  return found;
}

int runShow(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {"window", "language", "screenshot", "quit-after"}, {"dump-widgets", "log-actions"});
  args.expectPositionals(1, 1);
  const std::string& path = args.positional(0, "FILE");
  const long index = number(args, "window", 0);
  const long quitAfter = args.value("quit-after") ? number(args, "quit-after", 0) : -1;
  const std::string language = args.value("language").value_or("");
  // The user's language decides which localization bundles choose; it must be set before they do.
  if (!language.empty()) ::setenv("LANGUAGE", language.c_str(), 1);

  // A localized copy of the interface in the language's own folder comes first.
  fs::path file(path);
  if (!language.empty() && file.parent_path().extension() == ".lproj") {
    const fs::path copy = file.parent_path().parent_path() / (language + ".lproj") / file.filename();
    if (fs::exists(copy)) file = copy;
  }
  // The library is loaded first: it makes the File's Owner the interface is read with.
  const GtkLibrary gtk = loadGtkLibrary();
  tq::ObjectRef owner;
  gtk.makeOwner(args.has("log-actions"), &owner);
  tq::NibLoadOptions load;
  load.owner = owner;
  load.application = owner;
  // A storyboard is shown scene by scene, as `tqkit render` lists them.
  std::optional<tq::StoryboardReadResult> storyboard;
  if (tq::isStoryboardPath(file.string())) storyboard = tq::readStoryboardFile(file.string(), load);
  tq::NibReadResult result = storyboard ? (*storyboard ? storyboard->storyboard().nibResult()
                                                       : tq::NibReadResult(storyboard->error()))
                                        : tq::readNibFile(file.string(), load);
  if (!result) {
    const std::string& reason = result.error().reason;
    throw tq::cli::Failure(reason.find(file.string()) == std::string::npos ? file.string() + ": " + reason : reason);
  }
  std::vector<tq::ObjectRef> objects = result.nib().topLevelObjects();
  std::vector<tq::ObjectRef> shown;
  if (storyboard) {
    for (const auto& scene : storyboard->storyboard().scenes()) {
      tq::ObjectRef o = scene.window() ? tq::ObjectRef(scene.window()) : tq::ObjectRef(scene.view());
      if (!o) continue;
      shown.push_back(o);
      // A scene's view that sits in another scene's window is shown in a window of its own.
      if (std::find(objects.begin(), objects.end(), o) == objects.end()) objects.push_back(o);
    }
  } else {
    for (const auto& o : objects) {
      if (dynamic_cast<tq::Window*>(o.get()) || dynamic_cast<tq::View*>(o.get())) shown.push_back(o);
    }
  }
  if (shown.empty()) throw tq::cli::Failure(path + ": no window or top-level view to show");
  if (static_cast<std::size_t>(index) >= shown.size()) {
    throw tq::cli::UsageError("--window " + std::to_string(index) + ": the document has " +
                              std::to_string(shown.size()) + " windows and views (0 to " +
                              std::to_string(shown.size() - 1) + "; see tqkit render --list)");
  }
  if (!language.empty() && file == fs::path(path)) localize(objects, file, language);

  tq::GtkShowRequest request;
  request.objects = objects;
  request.shown = shown[static_cast<std::size_t>(index)];
  auto images = std::make_shared<tq::InterfaceImageSource>(String::fromUTF8(file.string()));
  for (const auto& [name, bytes] : result.nib().embeddedImages()) images->addImage(name, tq::Image::imageWithData(bytes));
  request.images = images;
  request.screenshot = args.value("screenshot").value_or("");
  request.dumpWidgets = args.has("dump-widgets");
  request.logActions = args.has("log-actions");
  request.quitAfterMs = quitAfter;
  request.owner = owner;

  std::string error;
  const int status = gtk.show(&request, &error);
  if (status != 0) throw tq::cli::Failure(error.empty() ? "the window could not be shown" : error);
  return 0;
}

tq::cli::Registration showCommand(
    {"show", "open a window of an interface file live (GTK 4)",
     "usage: tqkit show FILE [--window N] [--language L] [--screenshot PNG] [--dump-widgets]\n"
     "                  [--log-actions] [--quit-after MS]\n\n"
     "Reads the interface FILE in any form the readers take (.xib, the older XML archive, a compiled\n"
     ".nib file or folder, a storyboard scene by scene) and shows one of its windows, or a top-level\n"
     "view in a window of its own, as real GTK 4 widgets: buttons, check boxes, fields, pop-ups,\n"
     "tables, tab views... (see the tqkit-gtk documentation). The window stays until it is closed.\n\n"
     "  --window N        which window or top-level view, counting from 0 in document order, as\n"
     "                    `tqkit render --list` numbers them (default 0)\n"
     "  --language L      translated into L: the copy of FILE in L.lproj beside FILE's .lproj folder\n"
     "                    when there is one, else FILE with the strings table of its name in\n"
     "                    L.lproj (keyed by text, and by object identifier as generated tables are)\n"
     "  --screenshot PNG  write a picture of the window once its first frame is drawn\n"
     "  --dump-widgets    once the first frame is drawn, one JSON object per line per widget on\n"
     "                    standard output: type (the GTK class), text, x, y, width, height relative\n"
     "                    to the window's surface (for `xdotool mousemove --window`), and the model\n"
     "                    object's class, id and value; the first line is the window's, with xid and\n"
     "                    count (the number of lines). SIGUSR1 asks for another dump.\n"
     "  --log-actions     one JSON line per action sent: action (the selector), sender (its class),\n"
     "                    title (the sender's title), id\n"
     "  --quit-after MS   close the window MS milliseconds after its first frame\n\n"
     "Needs a display (DISPLAY). Exit status: 0 closed, 1 the file cannot be read, there is no\n"
     "display or the screenshot cannot be written, 2 usage error.\n",
     runShow});

}  // namespace
