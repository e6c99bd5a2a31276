// The storyboard reader: the document's scenes joined by their relationships, or a compiled
// storyboard's nibs joined by the identifiers of its Info.plist.
#include "tq/platform/ui/archive/storyboard_reader.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <span>
#include <unordered_set>
#include <dirent.h>
#include <sys/stat.h>

#include "../../bundle/plist_reader.h"
#include "storyboard_scenes.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/fs/regular_file.h"
#include "tq/platform/ui/model/generic_object.h"
#include "tq/platform/ui/model/tab_view.h"
#include "tq/platform/ui/model/view_controller.h"
#include "tq/platform/ui/model/window_controller.h"

namespace tq {

std::shared_ptr<Window> StoryboardScene::window() const {
  auto controller = std::dynamic_pointer_cast<WindowController>(this->controller);
  return controller ? controller->window() : nullptr;
}

std::shared_ptr<View> StoryboardScene::view() const {
  auto controller = std::dynamic_pointer_cast<ViewController>(this->controller);
  return controller ? controller->view() : nullptr;
}

std::shared_ptr<InterfaceObject> Storyboard::controllerWithIdentifier(const String& identifier) const {
  if (identifier.isNil()) return nullptr;
  for (const auto& scene : scenes_) {
    if (scene.storyboardIdentifier == identifier) return scene.controller;
  }
  return nullptr;
}

const Storyboard& StoryboardReadResult::storyboard() const {
  if (!storyboard_) {
    AssertionHandler::currentHandler().handleFailureInMethod(u"storyboard", String(u"StoryboardReadResult"),
                                                             String::fromUTF8(detail::sourceFileName(__FILE__)),
                                                             __LINE__, u"the read failed: " + String::fromUTF8(error_.reason).u16string());
  }
  return *storyboard_;
}

bool isStoryboardPath(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  const auto ends = [&](const char* suffix) {
    const std::size_t n = std::strlen(suffix);
    return p.size() > n && p.compare(p.size() - n, n, suffix) == 0;
  };
  return ends(".storyboard") || ends(".storyboardc");
}

namespace {

constexpr const char16_t* kWindowContent = u"window.shadowedContentViewController";

template <class T>
std::shared_ptr<T> as(const std::shared_ptr<Object>& o) {
  return std::dynamic_pointer_cast<T>(o);
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

std::vector<std::string> folderEntries(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace

// Joins scenes into a storyboard. Friend of Nib and Storyboard.
class StoryboardBuilder {
 public:
  explicit StoryboardBuilder(NibReadResult read) { storyboard_.read_ = std::move(read); }

  Nib& nib() { return storyboard_.read_.nib(); }
  void warn(std::string message) { nib().warnings_.push_back(std::move(message)); }

  // --- the XML document ---------------------------------------------------------------------------

  Storyboard assemble(archive::DecodedScenes& decoded) {
    // Connections are made object by object; segues are listed in document order.
    std::stable_sort(decoded.segues.begin(), decoded.segues.end(),
                     [](const auto& a, const auto& b) { return a.position < b.position; });
    for (auto& segue : decoded.segues) {
      if (segue.kind == String(u"relationship")) {
        relate(segue);
      } else if (segue.kind == String(u"embed")) {
        embed(segue, decoded.scenes);
      }
    }
    for (auto& pending : decoded.pendingItems) giveItemsTheirControllers(pending, decoded.segues);
    for (auto& scene : decoded.scenes) {
      StoryboardScene out;
      out.identifier = scene.sceneIdentifier;
      out.storyboardIdentifier = scene.storyboardIdentifier;
      out.controller = scene.controller;
      out.objects = std::move(scene.objects);
      storyboard_.scenes_.push_back(std::move(out));
    }
    for (auto& segue : decoded.segues) {
      storyboard_.segues_.push_back({segue.archiveIdentifier, segue.identifier, segue.kind, segue.relationship,
                                     segue.sourceIdentifier, segue.destinationIdentifier, segue.source,
                                     segue.destination});
    }
    if (!decoded.initialController.isNil()) {
      storyboard_.initial_ = as<InterfaceObject>(nib().objectWithIdentifier(decoded.initialController));
      if (!storyboard_.initial_) warn("the initial controller " + decoded.initialController.UTF8String() + " is not in the storyboard");
    }
    finish();
    return std::move(storyboard_);
  }

  // --- the compiled folder ------------------------------------------------------------------------

  // Adds a nib's objects as one scene; `controller` as found in it (or nullptr).
  void addScene(const String& identifier, const NibReadResult& read, const std::shared_ptr<InterfaceObject>& controller) {
    StoryboardScene scene;
    scene.identifier = identifier;
    scene.storyboardIdentifier = controller ? identifier : String();
    scene.controller = controller;
    scene.objects = read.nib().topLevelObjects();
    mergeNib(read.nib());
    storyboard_.scenes_.push_back(std::move(scene));
  }

  void mergeNib(const Nib& part) {
    Nib& whole = nib();
    whole.connections_.insert(whole.connections_.end(), part.connections_.begin(), part.connections_.end());
    whole.warnings_.insert(whole.warnings_.end(), part.warnings_.begin(), part.warnings_.end());
    whole.objectCount_ += part.objectCount_;
    if (whole.documentType_.isNil()) whole.documentType_ = part.documentType_;
    for (const auto& [name, bytes] : part.embeddedImages_) whole.embeddedImages_.emplace(name, bytes);
    identified_.insert(identified_.end(), part.objects_.begin(), part.objects_.end());
  }

  // Segue templates kept by the compiled controllers: a template names its destination by the
  // destination's identifier; window content and tab items are made as in the document.
  void relateCompiled(const std::vector<String>& identifiers) {
    std::set<std::u16string> known;
    for (const auto& id : identifiers) known.insert(id.u16string());
    for (const auto& scene : storyboard_.scenes_) {
      std::vector<std::shared_ptr<Object>> owned;
      if (auto vc = as<ViewController>(scene.controller)) owned = vc->sceneObjects();
      if (auto wc = as<WindowController>(scene.controller)) owned = wc->sceneObjects();
      for (const auto& o : owned) {
        auto segue = as<GenericObject>(o);
        if (!segue || segue->className().UTF8String().find("Segue") == std::string::npos) continue;
        archive::DecodedSegue s;
        s.source = scene.controller;
        s.sourceIdentifier = scene.identifier;
        s.kind = u"relationship";
        for (const auto& [key, value] : segue->attributes().entries()) {
          if (value.type() != Value::Type::String) continue;
          const String text = value.stringValue();
          if (known.count(text.u16string()) && !(text == scene.identifier) && s.destinationIdentifier.isNil()) {
            s.destinationIdentifier = text;
          } else if (text == String(kWindowContent) || text == String(u"tabItems") || text == String(u"splitItems")) {
            s.relationship = text;
          } else if (key == String(u"NSIdentifier")) {
            s.identifier = text;
          }
        }
        if (s.destinationIdentifier.isNil()) continue;
        s.destination = storyboard_.controllerWithIdentifier(s.destinationIdentifier);
        if (s.relationship.isNil()) {
          s.kind = u"show";
        } else {
          relate(s);
        }
        storyboard_.segues_.push_back({s.archiveIdentifier, s.identifier, s.kind, s.relationship, s.sourceIdentifier,
                                       s.destinationIdentifier, s.source, s.destination});
      }
    }
    // Tab items in the order their relationships come.
    for (const auto& scene : storyboard_.scenes_) {
      auto tabs = as<TabViewController>(scene.controller);
      if (!tabs) continue;
      std::size_t index = 0;
      for (const auto& segue : storyboard_.segues_) {
        if (segue.source.lock() != scene.controller || !(segue.relationship == String(u"tabItems"))) continue;
        auto items = tabs->tabViewItems();
        auto vc = as<ViewController>(segue.destination.lock());
        if (index < items.size() && vc) attachToTab(*tabs, items[index], vc);
        ++index;
      }
    }
  }

  void setInitial(const String& identifier) {
    storyboard_.initial_ = storyboard_.controllerWithIdentifier(identifier);
    if (!identifier.isNil() && !storyboard_.initial_) {
      warn("the initial controller " + identifier.UTF8String() + " is not in the storyboard");
    }
  }

  Storyboard finishCompiled(const std::string& folder) {
    Nib& whole = nib();
    whole.resourceFolder_ = String::fromUTF8(folder);
    whole.indexObjects(std::move(identified_));
    finish();
    return std::move(storyboard_);
  }

 private:
  // A relationship segue whose two ends are known.
  void relate(const archive::DecodedSegue& segue) {
    auto destination = as<ViewController>(segue.destination);
    if (segue.relationship == String(kWindowContent)) {
      auto window = as<WindowController>(segue.source);
      if (!window || !destination) return warn("relationship " + segue.archiveIdentifier.UTF8String() + " joins no window and view controller");
      try {
        window->setContentViewController(destination);
        placed_.insert(destination->view().get());
      } catch (const Exception& e) {
        warn("relationship " + segue.archiveIdentifier.UTF8String() + " skipped: " + e.what());
      }
    } else if (!(segue.relationship == String(u"tabItems")) && !(segue.relationship == String(u"splitItems"))) {
      warn("relationship " + segue.relationship.UTF8String() + " not made");
    }
  }

  void embed(const archive::DecodedSegue& segue, const std::vector<archive::DecodedScene>& scenes) {
    auto container = as<View>(segue.source);
    auto destination = as<ViewController>(segue.destination);
    const auto& view = destination ? destination->view() : nullptr;
    if (!container || !view) return warn("embed segue " + segue.archiveIdentifier.UTF8String() + " joins no container and view controller");
    try {
      container->addSubview(view);
      view->setFrame(container->bounds());
      placed_.insert(view.get());
      // The container's own controller: the one whose view holds it.
      for (const auto& scene : scenes) {
        auto owner = as<ViewController>(scene.controller);
        if (owner && owner != destination && owner->view() && container->isDescendantOf(owner->view().get())) {
          owner->addChildViewController(destination);
          break;
        }
      }
    } catch (const Exception& e) {
      warn("embed segue " + segue.archiveIdentifier.UTF8String() + " skipped: " + e.what());
    }
  }

  void attachToTab(TabViewController& tabs, const std::shared_ptr<TabViewItem>& item, const std::shared_ptr<ViewController>& vc) {
    const auto tabView = tabs.tabView();
    if (vc->view() && tabView && (vc->view() == tabView || tabView->isDescendantOf(vc->view().get()))) {
      return warn("a tab item's controller holds its own tab view; skipped");
    }
    tabs.addChildViewController(vc);
    item->setViewController(vc);
    item->setView(vc->view());
    placed_.insert(vc->view().get());
  }

  // The items of a tab or split view controller, each with the controller of the relationship in
  // the same place.
  void giveItemsTheirControllers(archive::PendingItems& pending, const std::vector<archive::DecodedSegue>& segues) {
    std::vector<std::shared_ptr<ViewController>> controllers;
    for (const auto& segue : segues) {
      if (segue.source == pending.controller && segue.kind == String(u"relationship") &&
          (segue.relationship == String(u"tabItems") || segue.relationship == String(u"splitItems"))) {
        controllers.push_back(as<ViewController>(segue.destination));
      }
    }
    for (std::size_t i = 0; i < pending.items.size(); ++i) {
      const auto vc = i < controllers.size() ? controllers[i] : nullptr;
      try {
        if (auto tabs = as<TabViewController>(std::static_pointer_cast<Object>(pending.controller))) {
          auto item = as<TabViewItem>(std::static_pointer_cast<Object>(pending.items[i]));
          if (!item || !tabs->tabView()) continue;
          tabs->tabView()->addTabViewItem(item);
          if (vc) attachToTab(*tabs, item, vc);
        } else if (auto split = as<SplitViewController>(std::static_pointer_cast<Object>(pending.controller))) {
          auto item = as<SplitViewItem>(std::static_pointer_cast<Object>(pending.items[i]));
          if (!item) continue;
          const auto splitView = split->splitView();
          if (vc && vc->view() && splitView && (vc->view() == splitView || splitView->isDescendantOf(vc->view().get()))) {
            warn("a split item's controller holds its own split view; skipped");
            continue;
          }
          item->setViewController(vc);
          split->addSplitViewItem(item);
          if (vc) placed_.insert(vc->view().get());
        }
      } catch (const Exception& e) {
        warn(std::string("an item of a tab or split view controller skipped: ") + e.what());
      }
    }
  }

  // Each controller keeps its scene's other objects; the top-level objects are the scenes' objects
  // with each controller's window or view after it, unless another scene shows that view.
  void finish() {
    std::vector<std::shared_ptr<Object>> top;
    std::unordered_set<const Object*> listed;
    const auto list = [&](const std::shared_ptr<Object>& o) {
      if (o && listed.insert(o.get()).second) top.push_back(o);
    };
    for (const auto& scene : storyboard_.scenes_) {
      auto vc = as<ViewController>(scene.controller);
      auto wc = as<WindowController>(scene.controller);
      for (const auto& o : scene.objects) {
        if (o != scene.controller) {
          const auto& kept = vc ? vc->sceneObjects() : wc ? wc->sceneObjects() : std::vector<std::shared_ptr<Object>>{};
          if ((vc || wc) && std::find(kept.begin(), kept.end(), o) == kept.end()) {
            if (vc) vc->addSceneObject(o);
            if (wc) wc->addSceneObject(o);
          }
        }
        list(o);
        if (o != scene.controller) continue;
        if (wc) list(wc->window());
        if (vc && vc->view() && !placed_.count(vc->view().get()) && !vc->view()->superview() && !vc->view()->window()) {
          list(vc->view());
        }
      }
    }
    nib().topLevelObjects_ = std::move(top);
  }

  Storyboard storyboard_;
  std::unordered_set<const View*> placed_;
  std::vector<Nib::IdentifiedObject> identified_;
};

namespace archive {

// Reads a parsed storyboard document.
StoryboardReadResult readStoryboardDocument(const pugi::xml_document& doc, const NibLoadOptions& options,
                                            std::size_t budget) {
  DecodedScenes decoded;
  NibReadResult read = readDocumentScenes(doc, options, budget, decoded);
  if (!read) return StoryboardReadResult(read.error());
  StoryboardBuilder builder(std::move(read));
  return StoryboardReadResult(builder.assemble(decoded));
}

NibReadResult assembleStoryboardDocument(const pugi::xml_document& doc, const NibLoadOptions& options,
                                         std::size_t budget) {
  StoryboardReadResult r = readStoryboardDocument(doc, options, budget);
  return r ? r.storyboard().nibResult() : NibReadResult(r.error());
}

}  // namespace archive

StoryboardReadResult readStoryboardData(std::string_view document, const NibLoadOptions& options) {
  if (document.size() > kMaxNibDocumentSize) {
    return StoryboardReadResult(NibReadError{"the document is " + std::to_string(document.size() >> 20) +
                                                 " MB; interface documents over " +
                                                 std::to_string(kMaxNibDocumentSize >> 20) + " MB are not read",
                                             -1});
  }
  pugi::xml_document doc;
  pugi::xml_parse_result parsed = doc.load_buffer(document.data(), document.size(), pugi::parse_default);
  if (!parsed) {
    return StoryboardReadResult(NibReadError{std::string("not well-formed XML at offset ") + std::to_string(parsed.offset) +
                                                 ": " + parsed.description(),
                                             static_cast<long long>(parsed.offset)});
  }
  pugi::xml_node root = doc.document_element();
  if (!root || std::strcmp(root.name(), "document") != 0) {
    return StoryboardReadResult(NibReadError{std::string("not a storyboard (root element <") + root.name() + ">)", -1});
  }
  if (!root.child("scenes")) return StoryboardReadResult(NibReadError{"not a storyboard (the document has no scenes element)", -1});
  const std::size_t budget = nibMemoryBound(document.size());
  return archive::readStoryboardDocument(doc, options, budget - std::min(budget, archive::kParsedXMLFactor * document.size()));
}

namespace {

StoryboardReadResult fail(std::string reason) { return StoryboardReadResult(NibReadError{std::move(reason), -1}); }

std::string stripSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// A nib name the folder may hold: a plain file name, so that no name leads out of the folder.
bool isPlainName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// The nib file of a compiled storyboard named without its extension.
std::string nibPathIn(const std::string& folder, const std::string& name) {
  const std::string withExtension = folder + "/" + name + ".nib";
  return exists(withExtension) ? withExtension : folder + "/" + name;
}

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

StoryboardReadResult readCompiledStoryboard(const std::string& given, const NibLoadOptions& options) {
  const std::string folder = stripSlashes(given);
  // Info.plist: identifiers to nib names, the initial controller and the main menu's nib.
  std::vector<std::pair<String, String>> nibs;
  String initial, mainMenu;
  const std::string infoPath = folder + "/Info.plist";
  if (exists(infoPath)) {
    const RegularFileRead info = readRegularFile(infoPath, kStringsTableMaxBytes);
    if (!info) return fail(infoPath + ": " + (info.error == EFBIG ? std::string("too large for an Info.plist") : info.reason));
    const std::string& bytes = info.bytes;
    const auto parsed = detail::readPropertyList(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
    if (!parsed.ok()) return fail(infoPath + ": not a readable property list (" + parsed.error + ")");
    if (parsed.value.type() != Value::Type::Dictionary) return fail(infoPath + ": not a dictionary");
    std::set<std::u16string> seen;
    for (const auto& [key, value] : parsed.value.dictionaryValue().entries()) {
      const std::string k = u8(key);
      if (k.ends_with("IdentifiersToNibNames") && value.type() == Value::Type::Dictionary) {
        for (const auto& [id, nib] : value.dictionaryValue().entries()) {
          if (nib.type() == Value::Type::String && seen.insert(id.u16string()).second) nibs.emplace_back(id, nib.stringValue());
        }
      } else if ((k == "NSStoryboardMainEntry" || k.ends_with("DesignatedEntryPointIdentifier")) &&
                 value.type() == Value::Type::String) {
        initial = value.stringValue();
      } else if (k == "NSStoryboardMainMenu" && value.type() == Value::Type::String) {
        mainMenu = value.stringValue();
      }
    }
  }
  // Without a map, every nib of the folder but the views' is a controller's.
  if (nibs.empty()) {
    for (const std::string& name : folderEntries(folder)) {
      if (!name.ends_with(".nib") || name.find("-view-") != std::string::npos) continue;
      const String base = String::fromUTF8(name.substr(0, name.size() - 4));
      if (base == mainMenu) continue;
      nibs.emplace_back(base, base);
    }
  }
  if (nibs.empty() && mainMenu.isNil()) return fail(folder + ": a compiled storyboard without controllers (no nibs, no Info.plist naming them)");
  for (const auto& [id, nibName] : nibs) {
    if (!isPlainName(u8(nibName))) return fail(infoPath + ": the nib name \"" + u8(nibName) + "\" is not a file of the folder");
  }
  if (!mainMenu.isNil() && !isPlainName(u8(mainMenu))) {
    return fail(infoPath + ": the nib name \"" + u8(mainMenu) + "\" is not a file of the folder");
  }

  auto builder = std::make_unique<StoryboardBuilder>(NibReadResult(Nib()));
  if (!mainMenu.isNil()) {
    NibReadResult menu = readNibFile(nibPathIn(folder, u8(mainMenu)), options);
    if (!menu) return StoryboardReadResult(menu.error());
    builder->addScene(mainMenu, menu, nullptr);
  }
  std::vector<String> identifiers;
  for (const auto& [id, nibName] : nibs) identifiers.push_back(id);
  const std::vector<std::string> entries = folderEntries(folder);
  for (const auto& [id, nibName] : nibs) {
    NibReadResult read = readNibFile(nibPathIn(folder, u8(nibName)), options);
    if (!read) return StoryboardReadResult(read.error());
    std::shared_ptr<InterfaceObject> controller;
    for (const auto& o : read.nib().topLevelObjects()) {
      if (as<ViewController>(o) || as<WindowController>(o)) {
        controller = as<InterfaceObject>(o);
        break;
      }
    }
    if (auto wc = as<WindowController>(controller); wc && !wc->window()) {
      for (const auto& o : read.nib().topLevelObjects()) {
        if (auto w = as<Window>(o)) {
          wc->setWindow(w);
          break;
        }
      }
    }
    builder->addScene(id, read, controller);
    // A view controller's view in a nib of its own, loaded with the controller as File's Owner.
    auto vc = as<ViewController>(controller);
    if (!vc || vc->view()) continue;
    std::string viewNib;
    if (!vc->nibName().isNil()) {
      if (!isPlainName(u8(vc->nibName()))) return fail(nibPathIn(folder, u8(nibName)) + ": the view's nib name \"" + u8(vc->nibName()) + "\" is not a file of the folder");
      viewNib = nibPathIn(folder, u8(vc->nibName()));
    } else {
      const std::string prefix = u8(id) + "-view-";
      for (const std::string& name : entries) {
        if (name.rfind(prefix, 0) == 0) {
          viewNib = folder + "/" + name;
          break;
        }
      }
    }
    if (viewNib.empty() || !exists(viewNib)) continue;
    NibLoadOptions viewOptions = options;
    viewOptions.owner = vc;
    NibReadResult view = readNibFile(viewNib, viewOptions);
    if (!view) return StoryboardReadResult(view.error());
    for (const auto& o : view.nib().topLevelObjects()) {
      auto v = as<View>(o);
      if (v && !vc->view()) {
        vc->setView(v);
      } else {
        vc->addSceneObject(o);
      }
    }
    builder->mergeNib(view.nib());
  }
  builder->relateCompiled(identifiers);
  builder->setInitial(initial);
  return StoryboardReadResult(builder->finishCompiled(folder));
}

}  // namespace

StoryboardReadResult readStoryboardFile(const std::string& path, const NibLoadOptions& options) {
  // Opened first and checked after, as every interface file is; a folder is a compiled storyboard.
  RegularFileRead read = readRegularFile(path, kMaxNibDocumentSize);
  if (!read && read.error == EISDIR) return readCompiledStoryboard(path, options);
  if (!read && read.error == EFBIG) {
    return fail(path + ": interface documents over " + std::to_string(kMaxNibDocumentSize >> 20) + " MB are not read");
  }
  if (!read) return fail(path + ": " + read.reason);
  const std::string bytes = std::move(read.bytes);
  StoryboardReadResult result = readStoryboardData(bytes, options);
  if (!result) {
    NibReadError error = result.error();
    error.reason = path + ": " + error.reason;
    return StoryboardReadResult(std::move(error));
  }
  return result;
}

}  // namespace tq
