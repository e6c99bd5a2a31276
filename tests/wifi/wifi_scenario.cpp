// The Wi-Fi scenario, run as the first program of a small virtual machine (see scripts/test-wifi.sh)
// whose kernel simulates three radios (mac80211_hwsim): wlan0 is a station driven by wpa_supplicant,
// wlan1 and wlan2 are access points driven by hostapd. A wired link (a dummy interface, eth0) stands
// beside them.
//
// The observers run on the kernel-backed store as a host runs them; every notification is printed
// and checked in order, step by step, against what `iw` printed before and after the step. The
// primary address is checked against the routes `ip` lists, and the stream of `tqkit net watch --json`,
// replayed key by key, against the links, addresses, routes and associations `ip` and `iw` print.
//
// Prints one line per notification and check, then "wifi-scenario: PASS" or the failures, and
// exits 0 only when everything held.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tq/network/airport_observer.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/ipv4_observer.h"
#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/base/run_loop.h"
#include "tq/platform/store/linux_network_store.h"

using namespace tq;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

const char* kWatchFile = "/tmp/watch.jsonl";
std::vector<std::string> failures;
Clock::time_point started = Clock::now();

double seconds() { return std::chrono::duration<double>(Clock::now() - started).count(); }

void say(const std::string& what) {
  std::printf("%7.3f %s\n", seconds(), what.c_str());
  std::fflush(stdout);
}

void fail(const std::string& what) {
  say("FAIL " + what);
  failures.push_back(what);
}

// --- commands ----------------------------------------------------------------------------------

// Runs a shell command and returns what it printed on stdout. The guest's shell (busybox) runs its
// own applets before any program on the PATH, so iproute2's ip is named by its path.
std::string sh(const std::string& command) {
  std::string out;
  FILE* p = popen((command + " 2>/dev/null").c_str(), "r");
  if (!p) return out;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  pclose(p);
  return out;
}

bool contains(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

std::vector<std::string> lines(const std::string& s) {
  std::vector<std::string> out;
  std::istringstream in(s);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

std::vector<std::string> words(const std::string& s) {
  std::istringstream in(s);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// The word after `key` among `w`; "" when there is none.
std::string after(const std::vector<std::string>& w, const std::string& key) {
  auto at = std::find(w.begin(), w.end(), key);
  return at != w.end() && at + 1 != w.end() ? *(at + 1) : "";
}

// Starts a program in the background with its standard output in a file.
pid_t spawn(const std::vector<std::string>& argv, const char* output) {
  pid_t pid = fork();
  if (pid == 0) {
    int fd = open(output, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execvp(args[0], args.data());
    _exit(127);
  }
  return pid;
}

std::string readFile(const char* path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// --- what iw and ip print ----------------------------------------------------------------------

// The association `iw dev NAME link` prints: "Connected to BSSID (on NAME)" with "SSID: ...", or
// "Not connected.". bssid is empty when not connected.
struct IwLink {
  std::string bssid, ssid;
};
IwLink iwLink(const std::string& dev) {
  IwLink link;
  for (const std::string& l : lines(sh("/usr/sbin/iw dev " + dev + " link"))) {
    if (l.starts_with("Connected to ")) link.bssid = words(l)[2];
    auto at = l.find("SSID: ");
    if (at != std::string::npos) link.ssid = l.substr(at + 6);
  }
  return link;
}

// The interfaces with a network device that `iw dev` lists (a P2P device has none).
std::vector<std::string> iwNetdevs() {
  std::vector<std::string> out;
  for (const std::string& l : lines(sh("/usr/sbin/iw dev"))) {
    auto w = words(l);
    if (w.size() == 2 && w[0] == "Interface") out.push_back(w[1]);
  }
  return out;
}

// One line of `ip -o link`: name and flags.
struct IpLink {
  std::string name;
  bool up = false, lowerUp = false;
};
std::vector<IpLink> ipLinks() {
  std::vector<IpLink> out;
  for (const std::string& l : lines(sh("/usr/sbin/ip -o link"))) {
    auto w = words(l);
    if (w.size() < 3) continue;
    IpLink link;
    link.name = w[1].substr(0, w[1].size() - 1);
    if (auto at = link.name.find('@'); at != std::string::npos) link.name.resize(at);
    std::string flags = "," + w[2].substr(1, w[2].size() - 2) + ",";
    link.up = contains(flags, ",UP,");
    link.lowerUp = contains(flags, ",LOWER_UP,");
    out.push_back(link);
  }
  return out;
}

// The primary interface and address as ip shows them: among the default routes `ip route` lists,
// in its order, the first of lowest metric that the kernel does not flag dead or linkdown (its link
// is down or has no carrier) and whose link has an IPv4 address; the address is the source
// `ip route get` gives through that link. Both empty when no route qualifies.
std::pair<std::string, std::string> ipPrimary() {
  std::string dev;
  long best = -1;
  for (const std::string& line : lines(sh("/usr/sbin/ip -o route show default"))) {
    auto w = words(line);
    std::string d = after(w, "dev"), metricText = after(w, "metric");
    long metric = metricText.empty() ? 0 : std::stol(metricText);
    bool usable = std::find(w.begin(), w.end(), "dead") == w.end() && std::find(w.begin(), w.end(), "linkdown") == w.end();
    if (!usable || d.empty() || sh("/usr/sbin/ip -o -4 addr show dev " + d).empty()) continue;
    if (best < 0 || metric < best) best = metric, dev = d;
  }
  if (dev.empty()) return {};
  return {dev, after(words(sh("/usr/sbin/ip -o route get 192.0.2.1 oif " + dev)), "src")};
}

// The AirPort value (as JSON) that matches what `iw dev NAME link` printed.
std::string airportJson(const IwLink& link) {
  if (link.bssid.empty()) return "{\"Link Status\":1}";
  std::string bssid = link.bssid;
  std::erase(bssid, ':');
  return "{\"BSSID\":\"" + bssid + "\",\"Link Status\":4,\"SSID\":\"" + link.ssid + "\"}";
}

std::string maskOf(int prefix) {
  uint32_t m = prefix == 0 ? 0 : ~uint32_t(0) << (32 - prefix);
  return std::to_string(m >> 24) + "." + std::to_string((m >> 16) & 255) + "." + std::to_string((m >> 8) & 255) +
         "." + std::to_string(m & 255);
}

// --- JSON, as much as the watch stream needs ---------------------------------------------------

// The canonical form of the JSON value at t[i...], for comparing: object members in key order,
// numbers as %.15g, strings as written (the writer escapes only quotes, backslashes and control
// characters). An object's members go into `members` too when it is given. Sets ok to false on
// malformed input.
std::string canon(const std::string& t, std::size_t& i, bool& ok, std::map<std::string, std::string>* members = nullptr) {
  auto eat = [&](char c) {
    while (i < t.size() && std::isspace(static_cast<unsigned char>(t[i]))) ++i;
    return i < t.size() && t[i] == c ? (++i, true) : false;
  };
  if (eat('"')) {
    std::size_t start = i - 1;
    while (i < t.size() && t[i] != '"') i += t[i] == '\\' ? 2 : 1;
    if (i >= t.size()) return ok = false, "";
    return t.substr(start, ++i - start);
  }
  bool object = eat('{');
  if (object || eat('[')) {
    std::map<std::string, std::string> m;
    std::string out;
    for (bool first = true; ok && !eat(object ? '}' : ']'); first = false) {
      if (!first && !eat(',')) return ok = false, "";
      std::string item = canon(t, i, ok);
      if (object && !eat(':')) return ok = false, "";
      if (object) m[item] = canon(t, i, ok);
      else out += (first ? "" : ",") + item;
    }
    for (auto& [k, v] : m) out += (out.empty() ? "" : ",") + k + ":" + v;
    if (members) *members = m;
    return object ? "{" + out + "}" : "[" + out + "]";
  }
  std::string word = t.substr(i, t.find_first_of(",]} \t\r\n", i) - i);
  i += word.size();
  if (word == "null" || word == "true" || word == "false") return word;
  char* stop = nullptr;
  double number = std::strtod(word.c_str(), &stop);
  if (word.empty() || *stop) return ok = false, "";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.15g", number);
  return buf;
}

std::string canonicalText(const std::string& json, std::map<std::string, std::string>* members = nullptr) {
  std::size_t i = 0;
  bool ok = true;
  std::string out = canon(json, i, ok, members);
  return ok && json.find_first_not_of(" \t\r\n", i) == std::string::npos ? out : "unparsable: " + json;
}

std::string quoted(const std::string& s) { return "\"" + s + "\""; }

// One item a line, for failure messages.
std::string listed(const std::vector<std::string>& items) {
  std::string out;
  for (const auto& item : items) out += "\n    " + item;
  return out.empty() ? " (none)" : out;
}

// --- the observers -----------------------------------------------------------------------------

// Registered on each AirPort key before the interface's AirportObserver, so that it runs first and
// a notification can be told apart by interface and given the BSSID of the state it is about.
struct AirportMark : Object {
  std::string interface;
  std::shared_ptr<AirportObserver> observer;
  static inline AirportMark* current = nullptr;
  void changed(const String&) { current = this; }
};

std::string bssidOf(const Value& state) {
  Data d = state.dictionaryValue().objectForKey(u"BSSID").dataValue();
  std::string out;
  char buf[4];
  for (uint8_t b : d.span()) {
    std::snprintf(buf, sizeof buf, out.empty() ? "%02x" : ":%02x", b);
    out += buf;
  }
  return out;
}

std::string airportKey(const std::string& name) { return "State:/Network/Interface/" + name + "/AirPort"; }

class Scenario {
 public:
  int run();

 private:
  struct Step {
    std::string name;
    std::function<bool()> act;                     // false: the step could not be carried out
    std::function<std::vector<std::string>()> expected;  // asked once the step is done
  };

  void runFor(std::chrono::milliseconds d) { loop_.runFor(d); }
  bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout, const char* what);
  void observe();
  void checkPrimary(const std::string& step);
  void checkReplay(const std::string& when);
  bool startWatch();
  void ap(const std::string& name, const std::string& dev, const std::string& ssid, int channel, bool hidden = false);

  RunLoop loop_ = RunLoop::current();
  std::shared_ptr<SCDynamicStore> store_;
  std::shared_ptr<IPv4Observer> ipv4_;
  std::vector<std::shared_ptr<AirportMark>> marks_;
  std::vector<std::shared_ptr<EthernetObserver>> ethernet_;
  std::vector<std::string> posted_;  // "NAME interface=... SSID=... BSSID=..."
  NotificationToken token_;
  pid_t watch_ = -1;
};

bool Scenario::waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout, const char* what) {
  auto deadline = Clock::now() + timeout;
  while (!done()) {
    if (Clock::now() >= deadline) {
      fail(std::string("timed out waiting for ") + what);
      return false;
    }
    runFor(50ms);
  }
  return true;
}

// The watch, started before the radios and the wired link exist, so that its stream alone must
// bring every key of theirs into being. It is ready once it reports a change of the loopback link.
bool Scenario::startWatch() {
  watch_ = spawn({"tqkit", "net", "watch", "--json"}, kWatchFile);
  for (int i = 0; i < 100; ++i) {
    sh("/usr/sbin/ip link set lo down; /usr/sbin/ip link set lo up");
    usleep(100000);
    if (contains(readFile(kWatchFile), "State:/Network/Interface/lo/Link")) return true;
  }
  fail("tqkit net watch reported nothing: " + readFile(kWatchFile));
  return false;
}

// The observers a host makes: IPv4, one AirPort observer per wireless interface, one Ethernet
// observer per Ethernet service.
void Scenario::observe() {
  store_ = std::make_shared<SCDynamicStore>(LinuxNetworkStore::factory());
  ipv4_ = IPv4Observer::initWithStore(store_);
  for (const String& k : store_->keysForPattern(u"Setup:/Network/Service/[^/]+/Interface").strings()) {
    Dictionary setup = store_->valueForKey(k).dictionaryValue();
    String type = setup.objectForKey(u"Type").stringValue();
    String name = setup.objectForKey(u"DeviceName").stringValue();
    if (type == String(u"Ethernet")) ethernet_.push_back(EthernetObserver::initWithService(name, store_));
    if (type == String(u"IEEE80211")) {
      auto t = std::make_shared<AirportMark>();
      t->interface = name.UTF8String();
      store_->addObserver(t, &AirportMark::changed, String::fromUTF8(airportKey(t->interface)));
      t->observer = AirportObserver::initWithService(name, store_);
      marks_.push_back(t);
    }
  }
  token_ = NotificationCenter::defaultCenter().addObserverForName(String(), nullptr, [this](const Notification& n) {
    std::string name = n.name().UTF8String();
    std::string text = name;
    if (name.starts_with("Ethernet")) {
      text += " interface=" + n.userInfo().objectForKey(u"interface").stringValue().UTF8String();
    } else if (name.starts_with("Airport")) {
      AirportMark* t = AirportMark::current;
      text += " interface=" + (t ? t->interface : std::string("?"));
      text += " SSID=" + n.userInfo().objectForKey(u"SSID").stringValue().UTF8String();
      // A join is about the new state, a departure about the state left (still the observer's).
      if (t && name == "AirportConnectedNotification")
        text += " BSSID=" + bssidOf(store_->valueForKey(String::fromUTF8(airportKey(t->interface))));
      if (t && name == "AirportDisconnectedNotification") text += " BSSID=" + bssidOf(Value(t->observer->currentStatus()));
    } else {
      return;
    }
    say("notification " + text);
    posted_.push_back(text);
  });
}

void Scenario::checkPrimary(const std::string& step) {
  std::string kernel;
  bool same = waitFor(
      [&] {
        kernel = ipPrimary().second;
        return ipv4_->getPrimaryIP().UTF8String() == kernel;
      },
      3s, "the primary address");
  std::string ours = ipv4_->getPrimaryIP().UTF8String();
  say("primary address " + (ours.empty() ? "(none)" : ours) + ", by ip: " + (kernel.empty() ? "(none)" : kernel));
  if (!same) fail(step + ": primary address " + ours + ", ip shows " + kernel);
}

// Replays the watch stream (each key's last value; null removes it) and compares it with the state
// ip and iw print: the interface list, every link's keys but the loopback's (which existed before
// the watch began), and the primary interface.
void Scenario::checkReplay(const std::string& when) {
  std::map<std::string, std::string> expected;
  std::string names;
  std::vector<std::string> wireless = iwNetdevs();
  for (const IpLink& l : ipLinks()) {
    names += (names.empty() ? "\"" : ",\"") + l.name + "\"";
    if (l.name == "lo") continue;
    std::string base = "State:/Network/Interface/" + l.name;
    bool isWireless = std::find(wireless.begin(), wireless.end(), l.name) != wireless.end();
    expected[base + "/Link"] = std::string("{\"Active\":") + (l.up && l.lowerUp ? "true" : "false") + "}";
    if (isWireless) expected[airportKey(l.name)] = airportJson(iwLink(l.name));
    std::string addrs, masks, brds;
    bool allBroadcast = true;
    for (const std::string& line : lines(sh("/usr/sbin/ip -o -4 addr show dev " + l.name))) {
      auto w = words(line);
      std::string inet = after(w, "inet"), brd = after(w, "brd");
      if (inet.empty()) continue;
      std::string local = inet.substr(0, inet.find('/'));
      int prefix = std::stoi(inet.substr(inet.find('/') + 1));
      addrs += (addrs.empty() ? "\"" : ",\"") + local + "\"";
      masks += (masks.empty() ? "\"" : ",\"") + maskOf(prefix) + "\"";
      brds += (brds.empty() ? "\"" : ",\"") + brd + "\"";
      allBroadcast &= !brd.empty();
    }
    if (!addrs.empty())
      expected[base + "/IPv4"] = "{\"Addresses\":[" + addrs + "],\"SubnetMasks\":[" + masks + "]" +
                                 (allBroadcast ? ",\"BroadcastAddresses\":[" + brds + "]" : "") + "}";
    // The setup key: its name, and whether iw knows the link as wireless.
    expected["Setup:/Network/Service/" + l.name + "/Interface"] = isWireless ? "IEEE80211" : "not IEEE80211";
  }
  expected["State:/Network/Interface"] = "{\"Interfaces\":[" + names + "]}";
  std::string dev = ipPrimary().first;
  expected["State:/Network/Global/IPv4 PrimaryInterface"] = dev.empty() ? "(none)" : dev;
  for (auto& [k, v] : expected)
    if (v.starts_with("{")) v = canonicalText(v);

  std::map<std::string, std::string> replayed;
  auto replay = [&] {
    std::map<std::string, std::string> state;  // each key's last value
    for (const std::string& line : lines(readFile(kWatchFile))) {
      std::map<std::string, std::string> o;
      if (canonicalText(line, &o).starts_with("unparsable") || !o.count("\"key\"")) continue;
      std::string k = o["\"key\""].substr(1, o["\"key\""].size() - 2);
      if (o["\"value\""] == "null") state.erase(k);
      else state[k] = o["\"value\""];
    }
    replayed.clear();
    replayed["State:/Network/Global/IPv4 PrimaryInterface"] = "(none)";
    for (auto& [k, v] : state) {
      if (k.starts_with("State:/Network/Interface/lo/") || k.starts_with("Setup:/Network/Service/lo/")) continue;
      std::map<std::string, std::string> m;
      canonicalText(v, &m);
      if (k.starts_with("Setup:/Network/Service/")) {
        replayed[k] = m["\"Type\""] == quoted("IEEE80211") ? "IEEE80211" : "not IEEE80211";
        if (m["\"DeviceName\""] != quoted(k.substr(23, k.size() - 23 - 10))) replayed[k] += " named otherwise";
      } else if (k == "State:/Network/Global/IPv4") {
        std::string p = m["\"PrimaryInterface\""];
        if (p.size() > 2) replayed[k + " PrimaryInterface"] = p.substr(1, p.size() - 2);
      } else {
        replayed[k] = v;
      }
    }
    return replayed == expected;
  };
  // The watch is another process with a store of its own: give it time to catch up.
  bool same = waitFor(replay, 5s, "the watch stream to replay to what ip and iw show");
  say("watch stream replayed (" + when + "): " + std::to_string(replayed.size()) + " keys" +
      (same ? ", as ip and iw show them" : ""));
  if (same) return;
  for (const auto& [k, v] : expected) {
    auto r = replayed.find(k);
    if (r == replayed.end()) fail(when + ": replay lacks " + k + " = " + v);
    else if (r->second != v) fail(when + ": replay has " + k + " = " + r->second + ", ip/iw show " + v);
  }
  for (const auto& [k, v] : replayed)
    if (!expected.count(k)) fail(when + ": replay has " + k + " = " + v + ", which ip/iw do not show");
}

// Starts hostapd on `dev` for an open network (one whose beacons leave the SSID out when `hidden`)
// and waits until it beacons.
void Scenario::ap(const std::string& name, const std::string& dev, const std::string& ssid, int channel, bool hidden) {
  std::string conf = "/tmp/" + name + ".conf", pid = "/tmp/" + name + ".pid";
  std::ofstream(conf) << "interface=" << dev << "\ndriver=nl80211\nssid=" << ssid << "\nhw_mode=g\nchannel=" << channel
                      << "\nctrl_interface=/run/hostapd\nignore_broadcast_ssid=" << (hidden ? 1 : 0) << "\n";
  sh("hostapd -B -P " + pid + " " + conf);
  waitFor([&] { return contains(sh("hostapd_cli -p /run/hostapd -i " + dev + " status"), "state=ENABLED"); }, 10s,
          "hostapd to start");
}

int Scenario::run() {
  // The station's and the access points' addresses; hwsim gives radio N the address 02:00:00:00:0N:00.
  const std::string wpa = "wpa_cli -p /run/wpa -i wlan0 ";
  if (!startWatch()) return 1;
  sh("insmod /lib/modules/mac80211_hwsim.ko radios=3 && insmod /lib/modules/dummy.ko numdummies=0 && "
     "/usr/sbin/ip link add eth0 type dummy");
  if (!waitFor([] { return iwNetdevs().size() == 3; }, 10s, "three radios")) return 1;
  runFor(200ms);
  observe();
  say("observers: IPv4, AirPort on " + std::to_string(marks_.size()) + " wireless interfaces, Ethernet on " +
      std::to_string(ethernet_.size()) + " Ethernet services");

  IwLink before;
  std::vector<std::string> airportValues = {airportJson(IwLink())};  // as the stream must show them
  // What a step must post: a join of the network iw shows now, or a departure from the one it showed.
  auto joined = [&] {
    IwLink now = iwLink("wlan0");
    return std::vector<std::string>{"AirportConnectedNotification interface=wlan0 SSID=" + now.ssid + " BSSID=" + now.bssid};
  };
  auto left = [&] {
    return std::vector<std::string>{"AirportDisconnectedNotification interface=wlan0 SSID=" + before.ssid +
                                    " BSSID=" + before.bssid};
  };
  std::vector<Step> steps = {
      {"the wired link comes up",
       [&] {
         sh("/usr/sbin/ip link set eth0 up && /usr/sbin/ip addr add 192.168.7.2/24 brd + dev eth0 && "
            "/usr/sbin/ip route add default via 192.168.7.1 dev eth0 metric 200");
         return true;
       },
       [&] { return std::vector<std::string>{"EthernetActivatedNotification interface=eth0"}; }},
      {"join tq-home",
       [&] {
         ap("ap1", "wlan1", "tq-home", 1);
         std::ofstream("/tmp/sta.conf") << "ctrl_interface=/run/wpa\nfreq_list=2412 2437\n"
                                           "network={\n ssid=\"tq-home\"\n key_mgmt=NONE\n}\n"
                                           "network={\n ssid=\"tq-office\"\n key_mgmt=NONE\n scan_ssid=1\n}\n";
         sh("wpa_supplicant -B -i wlan0 -c /tmp/sta.conf -P /tmp/sta.pid");
         waitFor([] { return contains(sh("/usr/sbin/ip -o link show wlan0"), ",UP"); }, 10s, "wpa_supplicant to bring wlan0 up");
         sh("/usr/sbin/ip addr add 10.0.0.2/24 dev wlan0 && /usr/sbin/ip route add default via 10.0.0.1 dev wlan0 metric 100");
         return waitFor([] { return !iwLink("wlan0").bssid.empty(); }, 20s, "the station to join");
       },
       joined},
      {"roam to a second access point of tq-home",
       [&] {
         ap("ap2", "wlan2", "tq-home", 6);
         std::string other = "02:00:00:00:02:00";
         waitFor(
             [&] {
               sh(wpa + "scan");
               runFor(500ms);
               return contains(sh(wpa + "scan_results"), other);
             },
             20s, "the station to see the second access point");
         sh(wpa + "roam " + other);
         return waitFor([&] { return iwLink("wlan0").bssid == other; }, 20s, "the station to roam");
       },
       joined},
      {"the access point leaves",
       [&] {
         sh("kill $(cat /tmp/ap1.pid)");
         waitFor([] { return !contains(sh("/usr/sbin/iw dev wlan1 info"), "type AP"); }, 10s, "the first access point to stop");
         sh("kill $(cat /tmp/ap2.pid)");
         return waitFor([] { return iwLink("wlan0").bssid.empty(); }, 20s, "the station to be left");
       },
       left},
      {"join tq-office, a network that hides its name",
       [&] {
         ap("ap3", "wlan1", "tq-office", 1, true);
         sh(wpa + "scan");  // rather than wait for the station's next scan
         return waitFor([] { return !iwLink("wlan0").bssid.empty(); }, 30s, "the station to join tq-office");
       },
       joined},
      {"the station's interface goes away",
       [&] {
         sh("/usr/sbin/iw dev wlan0 del");
         return waitFor([] { return sh("/usr/sbin/ip -o link show wlan0").empty(); }, 10s, "wlan0 to go");
       },
       left},
  };

  for (const Step& step : steps) {
    say("step: " + step.name);
    before = iwLink("wlan0");
    posted_.clear();
    if (!step.act()) {
      fail(step.name + ": could not be carried out");
      break;
    }
    std::vector<std::string> expected = step.expected();
    // The notifications due, then a while longer for any that should not come.
    waitFor([&] { return posted_.size() >= expected.size(); }, 5s, "the step's notifications");
    runFor(300ms);
    const std::vector<std::string>& got = posted_;
    if (got != expected) fail(step.name + ": notifications" + listed(got) + "\n  expected" + listed(expected));
    checkPrimary(step.name);
    if (step.name.starts_with("join tq-office")) checkReplay("joined tq-office");
    // Each change of the station's association iw shows is one value of its AirPort key in the
    // watch stream; an interface that goes while joined leaves its network first.
    IwLink after = iwLink("wlan0");
    if (sh("/usr/sbin/ip -o link show wlan0").empty()) {
      if (!before.bssid.empty()) airportValues.push_back(airportJson(IwLink()));
      airportValues.push_back("null");
    } else if (after.bssid != before.bssid || after.ssid != before.ssid) {
      airportValues.push_back(airportJson(after));
    }
  }
  // Nothing more may come, even once a departure held back for a roam would have been shown.
  std::size_t seen = posted_.size();
  runFor(1500ms);
  for (std::size_t i = seen; i < posted_.size(); ++i) fail("a notification after the last step: " + posted_[i]);
  checkReplay("at the end");

  kill(watch_, SIGTERM);
  waitpid(watch_, nullptr, 0);
  std::vector<std::string> streamed;
  for (const std::string& line : lines(readFile(kWatchFile))) {
    std::map<std::string, std::string> o;
    canonicalText(line, &o);
    if (o["\"key\""] == quoted(airportKey("wlan0"))) streamed.push_back(o["\"value\""]);
  }
  for (auto& v : airportValues) v = canonicalText(v);
  if (streamed != airportValues) {
    fail("wlan0's AirPort values in the watch stream:" + listed(streamed) + "\n  as iw showed them:" + listed(airportValues));
  } else {
    say("the watch stream shows wlan0's association as iw did, change by change");
  }
  std::printf("--- tqkit net watch --json ---\n%s--- end of watch stream ---\n", readFile(kWatchFile).c_str());
  return failures.empty() ? 0 : 1;
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  int rc = Scenario().run();
  if (rc == 0) {
    std::printf("wifi-scenario: PASS (%.1f s)\n", seconds());
  } else {
    std::printf("wifi-scenario: FAIL, %zu failures (%.1f s)\n", failures.size(), seconds());
    for (const auto& f : failures) std::printf("  %s\n", f.c_str());
  }
  return rc;
}
