// tqkit net watch: every change of the kernel's network state as it happens, and the notifications
// the observers post, until interrupted.
#include <glib-unix.h>
#include <glib.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>

#include "net_support.h"
#include "tq/network/airport_observer.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/ipv4_observer.h"
#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"

namespace {

using namespace tq;
using namespace tq::cli;

std::string now() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  tm local;
  localtime_r(&ts.tv_sec, &local);
  char buf[48];
  std::size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &local);
  std::snprintf(buf + n, sizeof buf - n, ".%03ld", ts.tv_nsec / 1000000);
  return buf;
}

int runWatch(const std::vector<std::string>& argv) {
  Args args(argv, {}, {"json"});
  args.expectPositionals(0, 0);
  bool asJson = args.has("json");
  RunLoop loop = RunLoop::current();
  // Output that cannot be written ends the watch: the loop stops, and the error is reported after.
  std::string lost;
  auto report = [&loop, &lost](const std::function<void()>& print) {
    if (!lost.empty()) return;
    try {
      print();
      if (std::fflush(stdout) != 0) throw tq::cli::Failure(std::string("cannot write the output: ") + std::strerror(errno));
    } catch (const tq::cli::Failure& e) {
      lost = e.what();
      loop.stop();
    }
  };

  // Every key, as the store reports it.
  auto keys = net::openStore([asJson, report](StoreConnection& store, const Array& changed) {
    report([&] {
      for (const String& k : changed.strings()) {
        Value v = store.copyValue(k);
        if (asJson) {
          Json json;
          json.beginObject().key("time").string(now()).key("key").string(k.UTF8String()).key("value");
          net::writeJson(json, v);
          json.endObject();
          json.newline();
        } else {
          std::printf("%s %s: %s\n", now().c_str(), k.UTF8String().c_str(),
                      v.isNil() ? "(removed)" : net::text(v).c_str());
        }
      }
    });
  });
  keys->setNotificationKeys(Array(), Array{Value(String(u".*"))});
  loop.addSource(keys->runLoopSource());

  // The observers, on a wrapper of their own: Ethernet for every Ethernet service, AirPort for every
  // wireless interface, IPv4 for the primary address.
  auto store = std::make_shared<SCDynamicStore>(LinuxNetworkStore::factory());
  auto ipv4 = IPv4Observer::initWithStore(store);
  for (const String& k : store->keysForPattern(u"Setup:/Network/Service/[^/]+/Interface").strings()) {
    Dictionary setup = store->valueForKey(k).dictionaryValue();
    String type = setup.objectForKey(u"Type").stringValue();
    String name = setup.objectForKey(u"DeviceName").stringValue();
    if (type == String(u"Ethernet")) EthernetObserver::initWithService(name, store, systemMediaSource());
    if (type == String(u"IEEE80211")) AirportObserver::initWithService(name, store);
  }
  auto print = [asJson, report](const Notification& n) {
    report([&] {
      if (asJson) {
        Json json;
        json.beginObject().key("time").string(now()).key("notification").string(n.name().UTF8String()).key("userInfo");
        net::writeJson(json, n.userInfo().isNil() ? Value(Dictionary::empty()) : Value(n.userInfo()));
        json.endObject();
        json.newline();
      } else {
        std::printf("%s %s %s\n", now().c_str(), n.name().UTF8String().c_str(), net::text(n.userInfo()).c_str());
      }
    });
  };
  std::vector<NotificationToken> tokens;
  for (const char16_t* name : {u"EthernetActivatedNotification", u"EthernetDeactivatedNotification",
                               u"AirportConnectedNotification", u"AirportDisconnectedNotification"})
    tokens.push_back(NotificationCenter::defaultCenter().addObserverForName(name, nullptr, print));
  // The primary address, whenever the global IPv4 state changes.
  struct PrimaryReporter : Object {
    std::shared_ptr<IPv4Observer> ipv4;
    bool asJson = false;
    String last;
    std::function<void(const std::function<void()>&)> report;
    void changed(const String&) {
      String ip = ipv4->getPrimaryIP();
      if (ip == last) return;
      last = ip;
      report([&] {
        if (asJson) {
          Json json;
          json.beginObject().key("time").string(now()).key("primaryIP");
          if (ip) json.string(ip.UTF8String());
          else json.null();
          json.endObject();
          json.newline();
        } else {
          std::printf("%s primary IP %s\n", now().c_str(), ip ? ip.UTF8String().c_str() : "(none)");
        }
      });
    }
  };
  auto reporter = std::make_shared<PrimaryReporter>();
  reporter->ipv4 = ipv4;
  reporter->asJson = asJson;
  reporter->report = report;
  reporter->last = ipv4->getPrimaryIP();
  store->addObserver(reporter, &PrimaryReporter::changed, String(u"State:/Network/Global/IPv4"));

  if (!asJson) {
    report([&] {
        std::printf("%s watching; primary IP %s (Ctrl-C to stop)\n", now().c_str(),
                    reporter->last ? reporter->last.UTF8String().c_str() : "(none)");
    });
  }
  auto stop = [](gpointer data) -> gboolean {
    static_cast<RunLoop*>(data)->stop();
    return G_SOURCE_CONTINUE;
  };
  guint sigint = g_unix_signal_add(SIGINT, stop, &loop);
  guint sigterm = g_unix_signal_add(SIGTERM, stop, &loop);
  if (lost.empty()) loop.run();
  g_source_remove(sigint);
  g_source_remove(sigterm);
  loop.removeSource(keys->runLoopSource());
  if (store->connection()) loop.removeSource(store->connection()->runLoopSource());
  for (auto& t : tokens) NotificationCenter::defaultCenter().removeObserver(t);
  if (!lost.empty()) throw tq::cli::Failure(lost);
  return 0;
}

Registration watch({"net watch", "print network changes as they happen, until interrupted",
                    "usage: tqkit net watch [--json]\n\n"
                    "Prints every change of the kernel's network state as it happens: one line per\n"
                    "changed key with its new value, one per notification the observers post\n"
                    "(Ethernet link up and down, wireless joins and departures) and one per change\n"
                    "of the primary IPv4 address. --json prints one JSON object per line instead:\n"
                    "{\"time\", \"key\", \"value\"} for a key (value null when the key is gone),\n"
                    "{\"time\", \"notification\", \"userInfo\"} and {\"time\", \"primaryIP\"}.\n"
                    "Interface names that are not UTF-8 show each such byte as \\xHH and each\n"
                    "backslash doubled.\n"
                    "Runs until interrupted (Ctrl-C or SIGTERM).\n",
                    runWatch});

}  // namespace
