// Network Monitor: a GTK 4 host of tqkit. Its window comes from Monitor.xib in its own bundle
// (NetworkMonitor.app), translated into the user's language from the bundle's strings tables; a
// table lists every network interface, an icon by kind beside its name (TQImageAndTextCell), its
// state, address, media and Wi-Fi network (TQTextFieldCell), kinds apart by separator rows. The
// observers report changes through the GLib main loop GTK runs, and the window's buttons and menu
// reach the controller's handlers.
//
//   network_monitor                    the window, until it is closed (or Ctrl+Q)
//   network_monitor --dump-widgets     also the widgets as JSON lines on standard output, after the
//                                      first frame and after each change the window shows
//   network_monitor --screenshot PNG   also a picture of the window after its first frame (and, with
//                                      --dump-widgets, after each change, with each dump)
//   network_monitor --quit-after MS    close after MS milliseconds
#include <gtk/gtk.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tq/gtk/action_handling.h>
#include <tq/gtk/gtk_presenter.h>
#include <tq/gtk/table_data_source.h>
#include <tq/gtk/widget_inspection.h>
#include <tq/interface/image_extensions.h>
#include <tq/interface/nib_loading.h>
#include <tq/interface/tq_image_and_text_cell.h>
#include <tq/interface/tq_localizer.h>
#include <tq/network/airport_observer.h>
#include <tq/network/ethernet_observer.h>
#include <tq/network/ipv4_observer.h>
#include <tq/network/sc_dynamic_store.h>
#include <tq/platform/base/notification_center.h>
#include <tq/platform/bundle/bundle.h>
#include <tq/platform/store/linux_network_store.h>
#include <tq/platform/ui/model/button.h>
#include <tq/platform/ui/model/capabilities.h>
#include <tq/platform/ui/model/text_field.h>

namespace {

using tq::String;

// The kinds the table groups interfaces by, in its order, and their icons.
struct Kind {
  const char* type;  // the store's "Type"
  const char* icon;
};
constexpr Kind kKinds[] = {{"Ethernet", "ethernet"}, {"IEEE80211", "wifi"}, {"Loopback", "loopback"}, {nullptr, "other"}};

int kindIndex(const std::string& type) {
  for (int i = 0; kKinds[i].type; ++i) {
    if (type == kKinds[i].type) return i;
  }
  return 3;
}

class MonitorController : public tq::Object,
                          public tq::NibConnectable,
                          public tq::ActionHandling,
                          public tq::TableDataSource {
 public:
  MonitorController() {
    setActionHandler(u"refresh:", [this](const tq::ObjectRef&) { reload(); });
    setActionHandler(u"toggleInactive:", [this](const tq::ObjectRef&) { reload(); });
    setActionHandler(u"copyAddress:", [this](const tq::ObjectRef&) { copyAddress(); });
    setActionHandler(u"showInterface:", [this](const tq::ObjectRef&) { showSelected(); });
  }

  // --- the interface ------------------------------------------------------------------------------
  void setOutlet(const String& property, const std::shared_ptr<tq::Object>& destination) override {
    if (property == String(u"window")) window_ = std::dynamic_pointer_cast<tq::Window>(destination);
    if (property == String(u"tableView")) table_ = std::dynamic_pointer_cast<tq::TableView>(destination);
    if (property == String(u"primaryField")) primary_ = std::dynamic_pointer_cast<tq::TextField>(destination);
    if (property == String(u"statusField")) status_ = std::dynamic_pointer_cast<tq::TextField>(destination);
    if (property == String(u"inactiveBox")) inactive_ = std::dynamic_pointer_cast<tq::Button>(destination);
  }

  // Loads, translates and shows the window; starts watching the network.
  bool start(bool dump, std::string screenshot) {
    screenshot_ = std::move(screenshot);
    bundle_ = tq::Bundle::bundleForClass(typeid(*this));
    objects_ = tq::loadNibWithName(u"Monitor", self());
    if (objects_.empty() || !window_.lock() || !table_.lock()) {
      std::fprintf(stderr, "network_monitor: Monitor.xib is missing from %s\n",
                   bundle_ ? bundle_->bundlePath().UTF8String().c_str() : "the bundle");
      return false;
    }
    tq::TQLocalizer::localizeObjects(objects_, u"Monitor", bundle_);
    for (int i = 0; i < 4; ++i) icons_[i] = tq::imageNamedFromBundle(String::fromUTF8(kKinds[i].icon), bundle_);

    tq::GtkPresenterOptions options;
    options.owner = self();
    options.application = application_;
    presenter_ = std::make_shared<tq::GtkPresenter>(objects_, options);
    dump_ = dump;
    gtkWindow_ = presenter_->showWindow(*window_.lock());
    presenter_->setDataSource(*table_.lock(), std::dynamic_pointer_cast<tq::TableDataSource>(self()));

    store_ = std::make_shared<tq::SCDynamicStore>(tq::LinuxNetworkStore::factory());
    if (!store_->connection()) {
      std::fprintf(stderr, "network_monitor: cannot read the kernel's network state\n");
      return false;
    }
    ipv4_ = tq::IPv4Observer::initWithStore(store_);
    auto me = self<MonitorController>();
    store_->addObserver(me, &MonitorController::primaryChanged, u"State:/Network/Global/IPv4");
    store_->addObserver(me, &MonitorController::interfacesChanged, u"State:/Network/Interface");
    auto& centre = tq::NotificationCenter::defaultCenter();
    std::weak_ptr<MonitorController> weak = me;
    // The notification names the link's new state (the observer records it after posting).
    auto linkPost = [weak](bool up) {
      return [weak, up](const tq::Notification& n) {
        const String name = n.userInfo().objectForKey(u"interface").stringValue();
        if (auto c = weak.lock()) {
          c->up_[name.UTF8String()] = up;
          c->linkChanged(name, up ? "%@ is up" : "%@ is down");
        }
      };
    };
    centre.addObserverForName(u"EthernetActivatedNotification", nullptr, linkPost(true));
    centre.addObserverForName(u"EthernetDeactivatedNotification", nullptr, linkPost(false));
    auto wifiPost = [weak](const char* format) {
      return [weak, format](const tq::Notification& n) {
        const tq::Value ssid = n.userInfo().objectForKey(u"SSID");
        if (auto c = weak.lock()) c->linkChanged(ssid.type() == tq::Value::Type::String ? ssid.stringValue() : ssid.description(), format);
      };
    };
    centre.addObserverForName(u"AirportConnectedNotification", nullptr, wifiPost("Joined %@"));
    centre.addObserverForName(u"AirportDisconnectedNotification", nullptr, wifiPost("Left %@"));
    interfacesChanged(String());
    primaryChanged(String());
    return true;
  }

  std::shared_ptr<tq::GtkPresenter> presenter() const { return presenter_; }
  GtkWindow* gtkWindow() const { return gtkWindow_; }
  void setApplication(tq::ObjectRef application) { application_ = std::move(application); }

  // --- the table's rows -----------------------------------------------------------------------------
  long numberOfRowsInTableView(tq::TableView&) override { return static_cast<long>(rows_.size()); }

  tq::Value objectValueForTableColumn(tq::TableView&, tq::TableColumn& column, long row) override {
    const Row& r = rows_.at(static_cast<std::size_t>(row));
    if (r.separator) return String::empty();
    const String id = column.identifier();
    if (id == String(u"name")) return String::fromUTF8(r.name);
    if (id == String(u"status")) return text(r.up ? "up" : "down");
    if (id == String(u"address")) return r.address;
    if (id == String(u"media")) return r.media;
    if (id == String(u"ssid")) return r.ssid;
    return String::empty();
  }

  void willDisplayCell(tq::TableView&, tq::Cell& cell, tq::TableColumn&, long row) override {
    const Row& r = rows_.at(static_cast<std::size_t>(row));
    if (auto* text = dynamic_cast<tq::TQTextFieldCell*>(&cell)) text->setIsSpace(r.separator);
    if (auto* image = dynamic_cast<tq::TQImageAndTextCell*>(&cell)) image->setImage(r.separator ? nullptr : icons_[r.kind]);
  }

 private:
  struct Row {
    bool separator = false;
    int kind = 3;
    std::string name;
    bool up = false;
    String address, media, ssid;
  };

  // A text of the strings table, with %@ replaced by the argument.
  String text(const char* key, const String& argument = String()) const {
    std::string s = tq::TQLocalizer::localize(String::fromUTF8(key), u"Monitor", bundle_).UTF8String();
    if (const auto at = s.find("%@"); at != std::string::npos) s.replace(at, 2, argument.UTF8String());
    return String::fromUTF8(s);
  }

  void interfacesChanged(const String&) {
    const tq::Value list = store_->valueForKey(u"State:/Network/Interface").dictionaryValue().objectForKey(u"Interfaces");
    names_.clear();
    auto me = self<MonitorController>();
    for (const String& name : list.arrayValue().strings()) {
      names_.push_back(name.UTF8String());
      if (watched_.count(name.UTF8String())) continue;
      watched_[name.UTF8String()] = true;
      const String type = typeOf(name);
      // Observers live as long as the store: one per interface, made when it first appears.
      if (type == String(u"IEEE80211")) {
        tq::AirportObserver::initWithService(name, store_);
      } else {
        auto ether = tq::EthernetObserver::initWithService(name, store_, tq::systemMediaSource());
        ethernet_[name.UTF8String()] = ether;
        up_[name.UTF8String()] = ether->currentActive();
      }
      store_->addObserver(me, &MonitorController::addressChanged, String::fromUTF8("State:/Network/Interface/" + name.UTF8String() + "/IPv4"));
    }
    reload();
  }

  String typeOf(const String& name) const {
    return store_->valueForKey(String::fromUTF8("Setup:/Network/Service/" + name.UTF8String() + "/Interface"))
        .dictionaryValue()
        .objectForKey(u"Type")
        .stringValue();
  }

  void addressChanged(const String&) { reload(); }

  void primaryChanged(const String&) {
    const String ip = ipv4_->getPrimaryIP();
    if (auto field = primary_.lock()) {
      field->setStringValue(ip.isNil() ? text("none") : String::fromUTF8(ip.UTF8String() + " (" + ipv4_->typeOfIP(ip).UTF8String() + ")"));
    }
    afterChange();
  }

  void linkChanged(const String& what, const char* format) {
    if (auto field = status_.lock()) field->setStringValue(text(format, what));
    reload();
  }

  void reload() {
    std::vector<Row> all;
    const bool showDown = !inactive_.lock() || inactive_.lock()->state() == 1;
    for (const std::string& name : names_) {
      Row r;
      r.name = name;
      const String key = String::fromUTF8(name);
      const std::string type = typeOf(key).UTF8String();
      r.kind = kindIndex(type);
      auto ether = ethernet_.find(name);
      const tq::Dictionary link = store_->valueForKey(String::fromUTF8("State:/Network/Interface/" + name + "/Link")).dictionaryValue();
      // An Ethernet link's state is what its observer last reported.
      r.up = up_.count(name) ? up_[name] : link.objectForKey(u"Active").boolValue();
      const tq::Dictionary v4 = store_->valueForKey(String::fromUTF8("State:/Network/Interface/" + name + "/IPv4")).dictionaryValue();
      r.address = v4.objectForKey(u"Addresses").arrayValue().firstObject().stringValue();
      if (r.address.isNil()) r.address = String::empty();
      r.media = ether != ethernet_.end() && type == "Ethernet" ? ether->second->media() : String();
      if (r.media.isNil()) r.media = String::empty();
      const tq::Dictionary air = store_->valueForKey(String::fromUTF8("State:/Network/Interface/" + name + "/AirPort")).dictionaryValue();
      const tq::Value ssid = air.objectForKey(u"SSID");
      r.ssid = ssid.isNil() ? String::empty() : ssid.type() == tq::Value::Type::String ? ssid.stringValue() : ssid.description();
      if (r.up || showDown) all.push_back(r);
    }
    std::stable_sort(all.begin(), all.end(), [](const Row& a, const Row& b) {
      return a.kind != b.kind ? a.kind < b.kind : a.name < b.name;
    });
    rows_.clear();
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (i > 0 && all[i].kind != all[i - 1].kind) {
        Row separator;
        separator.separator = true;
        rows_.push_back(separator);
      }
      rows_.push_back(all[i]);
    }
    if (presenter_ && table_.lock()) presenter_->reloadData(*table_.lock());
    afterChange();
  }

  void copyAddress() {
    const String ip = ipv4_->getPrimaryIP();
    if (ip.isNil()) return;
    gdk_clipboard_set_text(gdk_display_get_clipboard(gdk_display_get_default()), ip.UTF8String().c_str());
    if (auto field = status_.lock()) field->setStringValue(text("Copied %@", ip));
    afterChange();
  }

  void showSelected() {
    const long row = presenter_->selectedRow(*table_.lock());
    if (row < 0 || static_cast<std::size_t>(row) >= rows_.size() || rows_[static_cast<std::size_t>(row)].separator) return;
    const Row& r = rows_[static_cast<std::size_t>(row)];
    if (auto field = status_.lock()) {
      field->setStringValue(String::fromUTF8(r.name + ": " + text(r.up ? "up" : "down").UTF8String() +
                                             (r.address.length() ? ", " + r.address.UTF8String() : std::string())));
    }
  }

  // What the window shows changed: with --dump-widgets, the widgets once it is drawn.
  void afterChange() {
    if (!dump_ || !gtkWindow_ || pendingDump_) return;
    pendingDump_ = true;
    auto me = self<MonitorController>();
    tq::afterNextFrame(gtkWindow_, [me] {
      me->pendingDump_ = false;
      tq::writeWidgetDump(me->gtkWindow_, stdout);
      if (!me->screenshot_.empty()) tq::saveScreenshot(me->gtkWindow_, me->screenshot_);
    });
  }

  std::shared_ptr<tq::Bundle> bundle_;
  std::vector<tq::ObjectRef> objects_;
  std::weak_ptr<tq::Window> window_;
  std::weak_ptr<tq::TableView> table_;
  std::weak_ptr<tq::TextField> primary_, status_;
  std::weak_ptr<tq::Button> inactive_;
  std::shared_ptr<tq::GtkPresenter> presenter_;
  tq::ObjectRef application_;
  GtkWindow* gtkWindow_ = nullptr;
  std::shared_ptr<tq::SCDynamicStore> store_;
  std::shared_ptr<tq::IPv4Observer> ipv4_;
  std::map<std::string, std::shared_ptr<tq::EthernetObserver>> ethernet_;
  std::map<std::string, bool> watched_;
  std::map<std::string, bool> up_;  // Ethernet links, as their observers reported them
  std::vector<std::string> names_;
  std::vector<Row> rows_;
  tq::ImageRef icons_[4];
  bool dump_ = false;
  bool pendingDump_ = false;
  std::string screenshot_;
};

// The application object: the end of the responder chain, where Quit arrives.
class Application : public tq::Object, public tq::ActionHandling {
 public:
  bool done = false;
  Application() {
    setActionHandler(u"terminate:", [this](const tq::ObjectRef&) { done = true; });
  }
};

}  // namespace

int main(int argc, char** argv) {
  bool dump = false;
  long quitAfter = -1;
  std::string screenshot;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--dump-widgets") == 0) {
      dump = true;
    } else if (std::strcmp(argv[i], "--screenshot") == 0 && i + 1 < argc) {
      screenshot = argv[++i];
    } else if (std::strcmp(argv[i], "--quit-after") == 0 && i + 1 < argc) {
      quitAfter = std::strtol(argv[++i], nullptr, 10);
    } else {
      std::fprintf(stderr, "usage: network_monitor [--dump-widgets] [--screenshot PNG] [--quit-after MS]\n");
      return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
    }
  }
  if (!gtk_init_check()) {
    std::fprintf(stderr, "network_monitor: cannot open a display\n");
    return 1;
  }
  auto application = std::make_shared<Application>();
  auto controller = std::make_shared<MonitorController>();
  controller->setApplication(application);
  if (!controller->start(dump, screenshot)) return 1;
  controller->presenter()->setWindowClosedHandler([&](const tq::InterfaceObject&) { application->done = true; });
  if (!screenshot.empty()) {
    tq::afterNextFrame(controller->gtkWindow(), [&] {
      if (!tq::saveScreenshot(controller->gtkWindow(), screenshot)) std::fprintf(stderr, "network_monitor: cannot write %s\n", screenshot.c_str());
    });
  }
  if (quitAfter >= 0) {
    g_timeout_add(static_cast<guint>(quitAfter), +[](gpointer data) -> gboolean {
      static_cast<Application*>(data)->done = true;
      return G_SOURCE_REMOVE;
    }, application.get());
  }
  while (!application->done) g_main_context_iteration(nullptr, TRUE);
  return 0;
}
