// A host application on a GLib main loop: it watches the machine's network through tqkit's three
// observers, on the kernel's own state, and prints what they report until interrupted.
//
//   network_host            every Ethernet interface and every wireless interface
//   network_host eth0 wlan0 just these (Ethernet or wireless, as the store says)
#include <glib-unix.h>
#include <glib.h>

#include <csignal>
#include <cstdio>
#include <algorithm>
#include <string>
#include <vector>

#include <tq/network/airport_observer.h>
#include <tq/network/ethernet_observer.h>
#include <tq/network/ipv4_observer.h>
#include <tq/network/sc_dynamic_store.h>
#include <tq/platform/base/notification_center.h>
#include <tq/platform/store/linux_network_store.h>

namespace {

// Called by the store whenever the global IPv4 state changes.
struct PrimaryPrinter : tq::Object {
  std::shared_ptr<tq::IPv4Observer> ipv4;
  void changed(const tq::String&) {
    tq::String ip = ipv4->getPrimaryIP();
    std::printf("primary address: %s%s\n", ip ? ip.UTF8String().c_str() : "(none)",
                ip ? (" (" + ipv4->typeOfIP(ip).UTF8String() + ")").c_str() : "");
    std::fflush(stdout);
  }
};

}  // namespace

int main(int argc, char** argv) {
  GMainLoop* mainLoop = g_main_loop_new(nullptr, FALSE);

  // The wrapper attaches the store's source to this thread's context: GLib's default one, which
  // g_main_loop_run() below iterates.
  auto store = std::make_shared<tq::SCDynamicStore>(tq::LinuxNetworkStore::factory());
  if (!store->connection()) {
    std::fprintf(stderr, "network_host: cannot read the kernel's network state\n");
    return 1;
  }

  auto ipv4 = tq::IPv4Observer::initWithStore(store);
  auto printer = std::make_shared<PrimaryPrinter>();
  printer->ipv4 = ipv4;
  store->addObserver(printer, &PrimaryPrinter::changed, tq::String(u"State:/Network/Global/IPv4"));
  printer->changed(tq::String());

  std::vector<std::string> wanted(argv + 1, argv + argc);
  for (const tq::String& key : store->keysForPattern(u"Setup:/Network/Service/[^/]+/Interface").strings()) {
    tq::Dictionary setup = store->valueForKey(key).dictionaryValue();
    tq::String name = setup.objectForKey(u"DeviceName").stringValue();
    std::string type = setup.objectForKey(u"Type").stringValue().UTF8String();
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), name.UTF8String()) == wanted.end()) continue;
    if (type == "Ethernet") {
      auto ether = tq::EthernetObserver::initWithService(name, store, tq::systemMediaSource());
      std::printf("watching Ethernet %s (%s)\n", name.UTF8String().c_str(),
                  ether->media() ? ether->media().UTF8String().c_str() : "no media");
    } else if (type == "IEEE80211") {
      tq::AirportObserver::initWithService(name, store);
      std::printf("watching wireless %s\n", name.UTF8String().c_str());
    }
  }

  auto& centre = tq::NotificationCenter::defaultCenter();
  for (const char16_t* name : {u"EthernetActivatedNotification", u"EthernetDeactivatedNotification",
                               u"AirportConnectedNotification", u"AirportDisconnectedNotification"}) {
    centre.addObserverForName(name, nullptr, [](const tq::Notification& n) {
      std::printf("%s %s\n", n.name().UTF8String().c_str(), n.userInfo() ? tq::Value(n.userInfo()).description().UTF8String().c_str() : "");
      std::fflush(stdout);
    });
  }

  auto quit = [](gpointer loop) -> gboolean {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  };
  g_unix_signal_add(SIGINT, quit, mainLoop);
  g_unix_signal_add(SIGTERM, quit, mainLoop);
  std::fflush(stdout);
  g_main_loop_run(mainLoop);
  g_main_loop_unref(mainLoop);
  return 0;
}
