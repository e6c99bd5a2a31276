// tqkit net status: the primary address and every interface's link, addresses, media and wireless
// state, from the kernel.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "net_support.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/ipv4_observer.h"
#include "tq/platform/store/media_source.h"

namespace {

using namespace tq;
using namespace tq::cli;

String key(std::u16string_view a, const String& name, std::u16string_view b) {
  std::u16string k;
  k.reserve(a.size() + name.view().size() + b.size());
  k.append(a).append(name.view()).append(b);
  return String(k);
}

std::string hexColons(const Data& d) {
  std::string out;
  char buf[4];
  for (uint8_t b : d.span()) {
    std::snprintf(buf, sizeof buf, out.empty() ? "%02x" : ":%02x", b);
    out += buf;
  }
  return out;
}

std::string ssidText(const Value& ssid) {
  if (ssid.type() == Value::Type::String) return ssid.stringValue().UTF8String();
  return "<" + std::string(ssid.dataValue().stringView().size() ? "bytes " : "") + hexColons(ssid.dataValue()) + ">";
}

int runStatus(const std::vector<std::string>& argv) {
  Args args(argv, {}, {"json"});
  args.expectPositionals(0, 0);
  bool asJson = args.has("json");
  auto store = net::openStore();
  // The store is left to the end of the process: freeing its values one by one would cost the
  // command a good part of its time, and the process ends with the command.
  static auto* kept = new std::shared_ptr<LinuxNetworkStore>();
  *kept = store;
  auto media = systemMediaSource();

  Dictionary global = store->copyValue(u"State:/Network/Global/IPv4").dictionaryValue();
  String primaryName = global.objectForKey(u"PrimaryInterface").stringValue();
  String primaryAddress = store->copyValue(key(u"State:/Network/Interface/", primaryName, u"/IPv4"))
                              .dictionaryValue().objectForKey(u"Addresses").arrayValue().firstObject().stringValue();
  auto classifier = IPv4Observer::initWithStore(nullptr);
  std::string primaryType = primaryAddress ? classifier->typeOfIP(primaryAddress).UTF8String() : "";

  Json json;
  if (asJson) {
    json.beginObject().key("primary");
    if (primaryAddress) {
      json.beginObject().key("interface").string(primaryName.UTF8String()).key("address").string(primaryAddress.UTF8String());
      json.key("type").string(primaryType).key("router");
      if (String router = global.objectForKey(u"Router").stringValue()) json.string(router.UTF8String());
      else json.null();
      json.endObject();
    } else {
      json.null();
    }
    json.key("interfaces").beginArray();
  } else if (primaryAddress) {
    std::printf("primary: %s on %s (%s)", primaryAddress.UTF8String().c_str(), primaryName.UTF8String().c_str(),
                primaryType.c_str());
    if (String router = global.objectForKey(u"Router").stringValue()) std::printf(", router %s", router.UTF8String().c_str());
    std::printf("\n");
  } else {
    std::printf("primary: none\n");
  }

  Array names = store->copyValue(u"State:/Network/Interface").dictionaryValue().objectForKey(u"Interfaces").arrayValue();
  // Every interface's media from one read of the kernel.
  std::vector<String> nameList;
  for (const String& name : names.strings()) nameList.push_back(name);
  std::vector<MediaSource::Result> mediaWords = media->queryMediaOfEach(nameList);
  std::size_t position = 0;
  // Most interfaces share a few media words: each is described once.
  std::map<uint32_t, std::string> mediaTexts;
  for (const String& name : names.strings()) {
    const MediaSource::Result& r = mediaWords[position++];
    Dictionary setup = store->copyValue(key(u"Setup:/Network/Service/", name, u"/Interface")).dictionaryValue();
    bool active = store->copyValue(key(u"State:/Network/Interface/", name, u"/Link")).dictionaryValue()
                      .objectForKey(u"Active").boolValue();
    Array addresses = store->copyValue(key(u"State:/Network/Interface/", name, u"/IPv4")).dictionaryValue()
                          .objectForKey(u"Addresses").arrayValue();
    Value airport = store->copyValue(key(u"State:/Network/Interface/", name, u"/AirPort"));
    const std::string* mediaText = nullptr;
    if (r.status == MediaSource::Status::Ok) {
      auto [it, fresh] = mediaTexts.try_emplace(r.word);
      if (fresh) it->second = EthernetObserver::mediaDescription(r.word).UTF8String();
      mediaText = &it->second;
    }
    std::string type = setup.objectForKey(u"Type").stringValue().UTF8String();
    Dictionary wl = airport.dictionaryValue();
    bool joined = wl && wl.objectForKey(u"Link Status").integerValue() != 1;
    if (asJson) {
      json.beginObject().key("name").string(name.UTF8String()).key("type").string(type).key("active").boolean(active);
      json.key("addresses").beginArray();
      for (const String& a : addresses.strings()) json.string(a.UTF8String());
      json.endArray().key("media");
      if (mediaText) json.string(*mediaText);
      else json.null();
      if (wl) {
        json.key("wireless").beginObject().key("joined").boolean(joined);
        if (joined) {
          json.key("ssid");
          net::writeJson(json, wl.objectForKey(u"SSID"));
          json.key("bssid").string(hexColons(wl.objectForKey(u"BSSID").dataValue()));
        }
        json.endObject();
      }
      json.endObject();
    } else {
      std::printf("%-16s %-10s %-8s", name.UTF8String().c_str(), type.c_str(), active ? "active" : "inactive");
      for (const String& a : addresses.strings()) std::printf(" %s", a.UTF8String().c_str());
      if (mediaText) std::printf("  media %s", mediaText->c_str());
      if (wl) {
        if (joined)
          std::printf("  joined \"%s\" (%s)", ssidText(wl.objectForKey(u"SSID")).c_str(),
                      hexColons(wl.objectForKey(u"BSSID").dataValue()).c_str());
        else
          std::printf("  not joined");
      }
      std::printf("\n");
    }
  }
  if (asJson) {
    json.endArray().endObject();
    json.newline();
  }
  return 0;
}

Registration status({"net status", "show the primary address and every interface's state",
                     "usage: tqkit net status [--json]\n\n"
                     "Reads the kernel's network state and prints the primary IPv4 address (the\n"
                     "lowest-metric default route's interface) with its kind, then each interface:\n"
                     "its type, whether its link is active, its IPv4 addresses, its media (from\n"
                     "ethtool) and, for wireless interfaces, the network it has joined.\n",
                     runStatus});

}  // namespace
