// tqkit demo, network observation: a scripted evening on an in-memory store, with every notification
// printed as the observers post it.
#include <cstdio>
#include <string>

#include "cli.h"
#include "tq/network/airport_observer.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/ipv4_observer.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/base/run_loop.h"
#include "tq/platform/store/memory_store.h"

namespace {

using namespace tq;

// Media as a gigabit full-duplex driver would report it.
class ScriptedMedia : public MediaSource {
 public:
  Result queryMedia(const String&) override { return {Status::Ok, 0x00100000 | 16}; }
};

// Prints the primary address whenever the global IPv4 state changes.
struct AddressPrinter {
  std::shared_ptr<IPv4Observer> ipv4;
  void changed(const String&) {
    String ip = ipv4->getPrimaryIP();
    if (ip.isNil()) {
      std::printf("  primary IPv4 address: none\n");
    } else {
      std::printf("  primary IPv4 address: %s (%s)\n", ip.UTF8String().c_str(), ipv4->typeOfIP(ip).UTF8String().c_str());
    }
  }
};

String linkKey(const char16_t* name) {
  return String(u"State:/Network/Interface/").stringByAppendingString(name).stringByAppendingString(u"/Link");
}

void runNetworkDemo() {
  auto data = MemoryStore::create();
  data->setValue(u"Setup:/Network/Service/eth0/Interface", Dictionary{{u"DeviceName", u"eth0"}});
  data->setValue(linkKey(u"eth0"), Dictionary{{u"Active", false}});

  RunLoop loop = RunLoop::current();
  auto deliver = [&] {
    while (loop.runOnce(false)) {
    }
  };

  auto store = std::make_shared<SCDynamicStore>(data->connectionFactory());
  auto ipv4 = IPv4Observer::initWithStore(store);
  auto ethernet = EthernetObserver::initWithService(u"eth0", store, std::make_shared<ScriptedMedia>());
  auto airport = AirportObserver::initWithService(u"wlan0", store);
  store->addObserver(std::make_shared<AddressPrinter>(AddressPrinter{ipv4}), &AddressPrinter::changed,
                     u"State:/Network/Global/IPv4");

  auto& center = NotificationCenter::defaultCenter();
  NotificationToken token = center.addObserverForName(String(), nullptr, [&](const Notification& n) {
    std::string name = n.name().UTF8String();
    if (!name.starts_with("Ethernet") && !name.starts_with("Airport")) return;
    std::string info;
    for (const auto& [key, value] : n.userInfo().entries())
      info += (info.empty() ? "" : ", ") + key.UTF8String() + " = " + value.description().UTF8String();
    std::printf("  posted %s {%s}\n", name.c_str(), info.c_str());
  });

  auto step = [&](const char* what, auto&& change) {
    std::printf("%s\n", what);
    change();
    deliver();
  };

  step("eth0 cable plugged in", [&] { data->setValue(linkKey(u"eth0"), Dictionary{{u"Active", true}}); });
  std::printf("  eth0 media: %s\n", ethernet->media().UTF8String().c_str());
  step("eth0 gets an address and becomes primary", [&] {
    data->setValues({{u"State:/Network/Interface/eth0/IPv4", Dictionary{{u"Addresses", Array{String(u"192.168.1.20")}}}},
                     {u"State:/Network/Global/IPv4", Dictionary{{u"PrimaryInterface", u"eth0"}}}});
  });
  step("wlan0 joins \"Home\"", [&] {
    data->setValue(u"State:/Network/Interface/wlan0/AirPort",
                   Dictionary{{u"Link Status", 4}, {u"BSSID", Data{0x00, 0x1b, 0x63, 0x01, 0x02, 0x03}}, {u"SSID", u"Home"}});
  });
  step("wlan0 becomes primary", [&] {
    data->setValues({{u"State:/Network/Interface/wlan0/IPv4", Dictionary{{u"Addresses", Array{String(u"10.0.1.0")}}}},
                     {u"State:/Network/Global/IPv4", Dictionary{{u"PrimaryInterface", u"wlan0"}}}});
  });
  step("wlan0 roams to another access point of \"Home\"", [&] {
    data->setValue(u"State:/Network/Interface/wlan0/AirPort",
                   Dictionary{{u"Link Status", 4}, {u"BSSID", Data{0x00, 0x1b, 0x63, 0x0a, 0x0b, 0x0c}}, {u"SSID", u"Home"}});
  });
  step("the machine sleeps; on waking both links are reported again", [&] {
    ipv4->sleep();
    ethernet->sleep();
    airport->sleep();
    data->setValue(linkKey(u"eth0"), Dictionary{{u"Active", true}, {u"Woken", true}});
    data->setValue(u"State:/Network/Interface/wlan0/AirPort",
                   Dictionary{{u"Link Status", 4}, {u"BSSID", Data{0x00, 0x1b, 0x63, 0x0a, 0x0b, 0x0c}}, {u"SSID", u"Home"},
                              {u"Woken", true}});
  });
  step("wlan0 leaves \"Home\" and eth0 is unplugged", [&] {
    data->setValue(u"State:/Network/Interface/wlan0/AirPort", Dictionary{{u"Link Status", 1}});
    data->setValue(linkKey(u"eth0"), Dictionary{{u"Active", false}});
    data->setValue(u"State:/Network/Global/IPv4", Value());
  });
  center.removeObserver(token);
}

tq::cli::DemoRegistration networkDemo({40, "Network observation", runNetworkDemo});

}  // namespace
