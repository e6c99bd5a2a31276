// The kernel store as a diff stream: a watcher that replays every report it receives (the value read
// at the report, removal as nil) must end, once the coalescing window has passed, with exactly the
// state the kernel's own dumps give (read without the store, mapped by a literal model of the key
// mapping, the primary address as the kernel's own route query gives it) and a fresh store's full
// read. Scripted cases check the reports themselves and each silent route change of the kernel's; a
// randomized run drives links, addresses, routes, nexthop objects, renames, re-creations, bursts,
// floods and ignore_routes_with_linkdown.
//
// The randomized run takes TQ_STORE_DIFF_STEPS steps (default 900) from each of the seeds 8, 10 and
// 15, or from seed TQ_STORE_DIFF_SEED alone; for a long run: TQ_STORE_DIFF_STEPS=10000
// TQ_STORE_DIFF_SEED=$RANDOM.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <regex>
#include <set>

#include "support/kernel_state.h"
#include "support/net_namespace.h"
#include "tq/platform/store/linux_network_store.h"

using namespace tq;
using namespace std::chrono_literals;
using Verb = test::NetlinkRequests::Verb;
using Route = test::NetlinkRequests::Route;
using Hop = test::NetlinkRequests::Hop;

namespace {

String S(const std::string& s) { return String::fromUTF8(s); }

using State = std::map<std::string, Value>;
using Report = std::vector<std::pair<std::string, Value>>;

// A store and what its reports add up to.
struct Watcher {
  std::string label;
  std::string pattern = ".*";  // the keys it watches
  std::shared_ptr<LinuxNetworkStore> store;
  State replay;
  std::vector<Report> batches;
};

class StoreDiff : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!ns_.ok()) GTEST_SKIP() << "needs a fresh network namespace: " << ns_.reason();
  }
  void TearDown() override {
    for (auto& w : watchers) loop.removeSource(w->store->runLoopSource());
  }

  // A store watching `pattern`, its replay starting from its own values; with readFirst false, from
  // another store's values, so that the watched store is asked for nothing before it reports.
  Watcher& watch(const std::string& label, LinuxNetworkStore::Options options = {}, const std::string& pattern = ".*",
                 bool readFirst = true) {
    options.useSystemWireless = false;
    auto w = std::make_unique<Watcher>();
    Watcher* raw = w.get();
    raw->label = label;
    raw->pattern = pattern;
    raw->store = LinuxNetworkStore::create(u"diff", [raw](StoreConnection& c, const Array& keys) {
      Report batch;
      for (const String& k : keys.strings()) {
        Value v = c.copyValue(k);
        batch.emplace_back(k.UTF8String(), v);
        if (v.isNil())
          raw->replay.erase(k.UTF8String());
        else
          raw->replay[k.UTF8String()] = v;
      }
      raw->batches.push_back(std::move(batch));
    }, options);
    EXPECT_TRUE(raw->store);
    raw->replay = only(dumpOf(readFirst ? *raw->store : *LinuxNetworkStore::create(u"other", nullptr, options)), pattern);
    loop.addSource(raw->store->runLoopSource());
    raw->store->setNotificationKeys(Array(), Array{Value(S(pattern))});
    watchers.push_back(std::move(w));
    return *raw;
  }

  static State only(const State& all, const std::string& pattern) {
    std::regex re(pattern, std::regex::extended);
    State s;
    for (auto& [k, v] : all)
      if (std::regex_match(k, re)) s[k] = v;
    return s;
  }
  static State dumpOf(LinuxNetworkStore& store) {
    State s;
    for (const String& k : store.copyKeyList(u".*").strings()) s[k.UTF8String()] = store.copyValue(k);
    return s;
  }
  static State freshRead() {
    LinuxNetworkStore::Options o;
    o.useSystemWireless = false;
    return dumpOf(*LinuxNetworkStore::create(u"fresh", nullptr, o));
  }

  // Runs the loop until every watcher's replay equals the kernel's state and a fresh store's read;
  // the kernel may still be settling (carrier follows a peer through the link watcher), so this
  // waits a while before it reports the difference.
  std::string converge() {
    std::string out;
    for (int attempt = 0; attempt < 300; ++attempt) {
      loop.runFor(attempt == 0 ? 6ms : 10ms);
      State expected = test::expectedStoreFromKernel();
      out.clear();
      for (auto& w : watchers) {
        out += test::describeDifference(only(expected, w->pattern), w->replay, "kernel", w->label.c_str());
        // Values are read the same whether watched or not (some are made only when asked for).
        if (w->pattern != ".*")
          out += test::describeDifference(expected, dumpOf(*w->store), "kernel", (w->label + ", read").c_str());
      }
      out += test::describeDifference(expected, freshRead(), "kernel", "a fresh store");
      if (out.empty()) return out;
    }
    return out;
  }

  // The keys of every batch since `from`, in order.
  static std::vector<std::string> reported(const Watcher& w, std::size_t from = 0) {
    std::vector<std::string> keys;
    for (std::size_t i = from; i < w.batches.size(); ++i)
      for (auto& [k, v] : w.batches[i]) keys.push_back(k);
    return keys;
  }
  static std::string primary(const Watcher& w) {
    auto it = w.replay.find("State:/Network/Global/IPv4");
    if (it == w.replay.end()) return "";
    return it->second.dictionaryValue().objectForKey(u"PrimaryInterface").stringValue().UTF8String();
  }

  // A veth pair whose peer ("p" + name) is up, the near end up too.
  void pair(const std::string& name, const std::string& peer) {
    ASSERT_EQ(nl.createVeth(name, peer), 0);
    ASSERT_EQ(nl.setUp(peer, true), 0);
    ASSERT_EQ(nl.setUp(name, true), 0);
  }

  test::NetNamespace ns_;
  test::NetlinkRequests nl;
  RunLoop loop = RunLoop::current();
  std::vector<std::unique_ptr<Watcher>> watchers;
};

int count(const std::vector<std::string>& keys, const std::string& k) {
  return static_cast<int>(std::count(keys.begin(), keys.end(), k));
}

}  // namespace

// A change waiting in the coalescing window is still reported when its key is touched again
// without changing before the window ends.
TEST_F(StoreDiff, AChangeOwedFromAnEarlierRoundIsReported) {
  pair("va", "pa");
  LinuxNetworkStore::Options options;
  options.coalescingWindow = 300ms;  // wide enough to act inside it for sure
  Watcher& w = watch("store", options);
  ASSERT_EQ(converge(), "");

  ASSERT_EQ(nl.addAddress("va", "10.1.0.2", 24), 0);  // goes out at once: the window starts
  loop.runFor(30ms);
  std::size_t mark = w.batches.size();
  ASSERT_EQ(nl.setUp("pa", false), 0);  // va loses carrier: its link key now waits for the window
  loop.runFor(30ms);
  ASSERT_EQ(nl.addAddress("va", "10.1.0.3", 24), 0);  // va touched again, its link key unchanged
  loop.runFor(30ms);
  ASSERT_EQ(converge(), "");
  auto keys = reported(w, mark);
  EXPECT_EQ(count(keys, "State:/Network/Interface/va/Link"), 1) << "the carrier change of va";
  EXPECT_EQ(count(keys, "State:/Network/Interface/va/IPv4"), 1);
}

// The global key goes out whenever the primary interface's addresses change, its own value equal.
TEST_F(StoreDiff, GlobalKeyReportedWhenThePrimarysAddressIsReplaced) {
  pair("va", "pa");
  ASSERT_TRUE(test::setSysctl("net/ipv4/conf/va/promote_secondaries", "1"));
  ASSERT_EQ(nl.addAddress("va", "10.1.0.2", 24), 0);
  ASSERT_EQ(nl.defaultRoute(Verb::Add, Route{0, {{"va", ""}}}), 0);
  Watcher& w = watch("store");
  ASSERT_EQ(converge(), "");
  Value global = w.replay["State:/Network/Global/IPv4"];
  for (const char* next : {"10.1.0.3", "10.1.0.4"}) {
    std::size_t mark = w.batches.size();
    ASSERT_EQ(nl.addAddress("va", next, 24), 0);
    ASSERT_EQ(converge(), "");
    std::size_t middle = w.batches.size();
    ASSERT_EQ(nl.deleteAddress("va", next == std::string("10.1.0.3") ? "10.1.0.2" : "10.1.0.3", 24), 0);
    ASSERT_EQ(converge(), "");
    EXPECT_EQ(w.replay["State:/Network/Global/IPv4"], global) << "the same route, the same value";
    EXPECT_EQ(count(reported(w, mark), "State:/Network/Global/IPv4"), 2) << next;
    EXPECT_EQ(count(reported(w, middle), "State:/Network/Global/IPv4"), 1) << next;
  }
  EXPECT_EQ(w.replay["State:/Network/Interface/va/IPv4"].dictionaryValue().objectForKey(u"Addresses").arrayValue(),
            Array::withStrings({u"10.1.0.4"}));
}

// A watcher that reads no value before it starts is told of every change all the same, the values
// it never read included: a value that changes, one that goes, keys under a new name, keys of a link
// that goes.
TEST_F(StoreDiff, AWatcherThatReadsNothingFirstIsToldOfEveryChange) {
  for (const char* n : {"va", "vb", "vc", "vd"}) pair(n, std::string("p") + n);
  for (auto [link, address] : {std::pair{"va", "10.1.0.2"}, {"va", "10.1.0.3"}, {"vb", "10.2.0.2"}, {"vc", "10.3.0.2"},
                               {"vd", "10.4.0.2"}})
    ASSERT_EQ(nl.addAddress(link, address, 24), 0);
  Watcher& w = watch("store that read nothing first", {}, ".*", false);
  ASSERT_EQ(converge(), "");
  std::size_t mark = w.batches.size();
  ASSERT_EQ(nl.deleteAddress("va", "10.1.0.3", 24), 0);
  ASSERT_EQ(nl.deleteAddress("vb", "10.2.0.2", 24), 0);
  ASSERT_EQ(nl.setUp("vc", false), 0);
  ASSERT_EQ(nl.rename("vc", "ve"), 0);
  ASSERT_EQ(nl.deleteLink("vd"), 0);
  ASSERT_EQ(converge(), "");
  auto keys = reported(w, mark);
  for (const char* name : {"va", "vb", "vc", "ve", "vd"})
    EXPECT_EQ(count(keys, "State:/Network/Interface/" + std::string(name) + "/IPv4"), 1) << name;
  EXPECT_EQ(w.replay.count("State:/Network/Interface/vb/IPv4"), 0u);
}

// Events still unread when the store reads everything again are older than its dumps, which show
// their effects and those of the silent changes after them: replayed, the route message below would
// bring back the route the kernel dropped without a word.
TEST_F(StoreDiff, EventsOlderThanAFullReadAreNotReplayed) {
  pair("va", "pa");
  pair("vb", "pb");
  ASSERT_EQ(nl.addAddress("va", "10.1.0.2", 24), 0);
  ASSERT_EQ(nl.addAddress("vb", "10.2.0.2", 24), 0);
  Watcher& w = watch("store");
  ASSERT_EQ(converge(), "");
  ASSERT_EQ(nl.defaultRoute(Verb::Add, Route{0, {{"va", "10.1.0.1"}, {"vb", "10.2.0.1"}}}), 0);
  ASSERT_EQ(nl.deleteAddress("va", "10.1.0.2", 24), 0);  // the hop through va dies
  ASSERT_EQ(nl.setUp("vb", false), 0);                    // and the one through vb: the route goes
  w.store->resynchronize();
  ASSERT_EQ(nl.addAddress("va", "10.1.0.2", 24), 0);
  ASSERT_EQ(converge(), "");
  EXPECT_EQ(primary(w), "");
}

namespace {

// What the kernel does to routes without a message of its own, and the address it sends from, one
// row each: `ip` commands run in a fresh namespace, where links va, vb and vc (peers pva, pvb, pvc) are
// up with carrier; after each line the reports must add up to the kernel's own state, the primary
// interface's addresses led by the kernel's source.
struct KernelRule {
  const char* name;
  std::vector<const char*> steps;
  std::size_t beforeStores = 0;  // the first lines run before the stores are made
};
const KernelRule kKernelRules[] = {
    // A replaced nexthop object takes its routes along; a deleted one, or one that goes with its
    // link's carrier, takes them without a message of their own; a group's routes stay while a
    // member is left. The last address of a link takes the link's routes; a route's preferred
    // source takes it too.
    {"NexthopObjectsAndWhatTheKernelDropsSilently",
     {"ip addr add 10.1.0.2/24 dev va; ip addr add 10.2.0.2/24 dev vb",
      "ip nexthop add id 1 via 10.1.0.1 dev va; ip nexthop add id 2 via 10.2.0.1 dev vb; "
      "ip route add default nhid 1 metric 10; ip route add default via 10.2.0.1 dev vb metric 20",
      "ip nexthop replace id 1 via 10.1.0.5 dev va", "ip nexthop del id 1",
      "ip nexthop add id 1 via 10.1.0.1 dev va; ip nexthop add id 5 group 1/2; ip route add default nhid 5 metric 5",
      "ip link set pva down", "ip link set pva up", "ip link set vb down; ip link set vb up",
      "ip route add default via 10.1.0.1 dev va metric 30; ip addr add 10.2.0.3/24 dev vb; "
      "ip route add default via 10.2.0.1 dev vb metric 20 src 10.2.0.3",
      "ip addr del 10.2.0.3/24 dev vb", "ip addr del 10.1.0.2/24 dev va"}},
    // Address events cost one update each: a link with many addresses keeps the kernel's order
    // through secondaries, promotions and deletions.
    {"AddressOrderThroughPromotions",
     {"sysctl -qw net.ipv4.conf.va.promote_secondaries=1", "ip addr add 10.1.0.2/24 dev va",
      "ip addr add 10.1.0.3/24 dev va", "ip addr add 10.2.0.2/16 dev va", "ip addr add 10.1.0.4/24 dev va",
      "ip addr add 10.3.0.1/32 dev va", "ip addr add 10.2.0.3/16 dev va", "ip addr del 10.1.0.2/24 dev va",
      "ip addr add 10.1.0.2/24 dev va", "ip addr del 10.2.0.2/16 dev va", "ip addr del 10.1.0.3/24 dev va",
      "ip addr add 10.4.0.1/8 dev va", "ip addr del 10.3.0.1/32 dev va",
      // without promotion, deleting a primary takes its secondaries with it
      "sysctl -qw net.ipv4.conf.va.promote_secondaries=0; ip addr del 10.1.0.4/24 dev va"}},
    {"AHostScopeRouteOutlivesItsLinkGoingDown",
     {"ip addr add 10.1.0.2/24 dev va", "ip route add default dev va scope host", "ip link set va down",
      "ip link set va up", "ip addr del 10.1.0.2/24 dev va"}},
    {"ABlackholeNexthopObjectHidesItsRoutesOwnTypeUntilReplaced",
     {"ip link set lo up; ip addr add 10.1.0.2/24 dev va; ip nexthop add id 9 blackhole",
      "ip route add default via 10.1.0.7 dev va metric 5; ip route append default nhid 9 metric 5",
      "ip nexthop replace id 9 via 10.1.0.3 dev va", "ip route del default via 10.1.0.7 dev va metric 5",
      "ip route del default nhid 9 metric 5; ip route add default nhid 9 metric 2; "
      "ip route append blackhole default nhid 9 metric 2",
      "ip nexthop replace id 9 blackhole", "ip nexthop replace id 9 via 10.1.0.9 dev va",
      "ip route del default nhid 9 metric 2"}},
    {"IPv6NextHopsCountInBothSpellings",
     {"ip addr add 10.1.0.2/24 dev va", "ip -4 route add default via inet6 fe80::1 dev va", "ip route del default",
      "ip nexthop add id 1 via fe80::1 dev va; ip route add default nhid 1", "ip nexthop add id 2 via fe80::2 dev vb",
      "ip addr add 10.2.0.2/24 dev vb; ip nexthop add id 3 group 2/1; ip route prepend default nhid 3"}},
    {"TheSourceIsTheAddressWhoseSubnetHoldsTheGateway",
     {"ip addr add 10.0.0.10/24 dev va; ip addr add 192.168.77.2/24 dev va; ip addr add 172.16.0.2/16 dev va",
      "ip route add default via 192.168.77.1 dev va", "ip route change default via 172.16.8.1 dev va",
      "ip addr add 192.168.77.3/24 dev va; ip addr del 172.16.0.2/16 dev va"}},
    {"TheSourceSkipsAddressesOfNarrowerScopeThanTheRoute",
     {"ip addr add 10.1.0.2/24 dev va; ip addr add 10.7.0.1/24 dev va scope link",
      "ip route add default via 10.1.0.1 dev va metric 10", "ip route add default dev va metric 5",
      "ip addr add 10.1.0.3/24 dev vb; ip route add default via 10.1.0.1 dev vb metric 1"}},
    // With ignore_routes_with_linkdown the kernel shows hops through links without carrier as dead;
    // a hop that died with its link's last address and one only without carrier look alike then
    // (the first three lines run before the stores read the kernel): when the other hops die, the
    // first route goes and the second stays.
    {"AHopShownDeadThroughALinkWithoutAddressOrCarrierIsSettledByItsRoutesFate",
     {"sysctl -qw net.ipv4.conf.va.ignore_routes_with_linkdown=1; ip addr add 10.1.0.2/24 dev va; "
      "ip addr add 10.3.0.2/24 dev vc; "
      "ip route add default metric 5 nexthop via 10.1.0.1 dev va nexthop via 10.3.0.1 dev vc",
      "ip addr del 10.1.0.2/24 dev va; ip link set pva down",
      "ip route add default metric 7 nexthop via 10.1.0.9 dev va onlink nexthop via 10.3.0.1 dev vc",
      "ip route add default metric 9 nexthop via 10.1.0.8 dev va onlink nexthop via 10.3.0.1 dev vc",
      "ip link set vc down", "ip link set pva up; ip addr add 10.1.0.2/24 dev va",
      "ip addr del 10.1.0.2/24 dev va; ip link set vc up"},
     3},
};

void PrintTo(const KernelRule& rule, std::ostream* out) { *out << rule.name; }

class StoreRules : public StoreDiff, public ::testing::WithParamInterface<KernelRule> {};

TEST_P(StoreRules, ReportsFollowTheKernel) {
  for (const char* n : {"va", "vb", "vc"}) pair(n, std::string("p") + n);
  const KernelRule& rule = GetParam();
  for (std::size_t i = 0; i < rule.steps.size(); ++i) {
    if (i == rule.beforeStores) {
      watch("store");
      watch("store watching links and the global key", {}, "State:/Network/(Interface/[^/]+/Link|Global/IPv4)");
      ASSERT_EQ(converge(), "");
    }
    ASSERT_EQ(std::system((std::string("set -e; ") + rule.steps[i]).c_str()), 0) << rule.steps[i];
    if (i >= rule.beforeStores) {
      ASSERT_EQ(converge(), "") << "after " << rule.steps[i];
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kernel, StoreRules, ::testing::ValuesIn(kKernelRules),
                         [](const auto& info) { return std::string(info.param.name); });

// The world the randomized run plays in: four veth pairs whose near ends take names from a pool
// (some not UTF-8), addresses from small per-pair pools (so that many are secondaries), default
// routes of a few metrics in every form, and nexthop objects 1 to 5.
struct World {
  std::mt19937 rng;
  std::vector<std::string> names = {"eth0", "wan", "n\xff", "n\xfe", "n\\xff", "lan\xc3\xa9", "x1", "x2"};
  std::string near[4];
  explicit World(unsigned seed) : rng(seed) {}
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }
  bool chance(int percent) { return pick(100) < percent; }
  std::string peer(int slot) const { return "q" + std::to_string(slot); }
  std::string freeName() {
    for (;;) {
      std::string n = names[pick(static_cast<int>(names.size()))];
      if (std::find(std::begin(near), std::end(near), n) == std::end(near)) return n;
    }
  }
  std::string address(int slot) {
    static const char* hosts[] = {"0.1", "0.2", "0.3", "0.4", "1.1", "1.2", "2.5"};
    return "10." + std::to_string(slot) + "." + hosts[pick(7)];
  }
  int prefix(const std::string& a) { return a.ends_with("2.5") ? 32 : a.find(".1.") != std::string::npos ? 16 : 24; }
  std::string gateway(int slot) { return "10." + std::to_string(slot) + ".0." + std::to_string(250 + pick(3)); }
};

}  // namespace

// The seeds of the randomized run: TQ_STORE_DIFF_SEED alone when set, else three whose runs depend,
// within the default number of steps, on the kernel reviving dead hops when a link is given an
// address (at steps 675, 784 and 675).
std::vector<unsigned> randomizedSeeds() {
  if (const char* seed = std::getenv("TQ_STORE_DIFF_SEED")) return {static_cast<unsigned>(std::strtoul(seed, nullptr, 10))};
  return {8, 10, 15};
}

class StoreRandomized : public StoreDiff, public ::testing::WithParamInterface<unsigned> {};

TEST_P(StoreRandomized, SequencesMatchTheKernel) {
  const char* stepsEnv = std::getenv("TQ_STORE_DIFF_STEPS");
  int steps = stepsEnv ? std::atoi(stepsEnv) : 900;
  unsigned seed = GetParam();
  World world(seed);
  for (int s = 0; s < 4; ++s) {
    world.near[s] = world.freeName();
    pair(world.near[s], world.peer(s));
  }
  watch("store", {}, ".*", false);
  LinuxNetworkStore::Options tiny;
  tiny.receiveBufferBytes = 2048;  // overruns at the first burst, and reads everything again
  Watcher& small = watch("store with a tiny buffer", tiny);
  watch("store watching links and the global key", {}, "State:/Network/(Interface/[^/]+/Link|Global/IPv4)");

  std::vector<std::string> log;
  int taken = 0;  // requests the kernel took
  auto took = [&](int rc) {
    taken += rc == 0;
    return rc;
  };
  int withPrimary = 0;
  auto one = [&](bool inBurst) {
    int s = world.pick(4);
    const std::string& n = world.near[s];
    std::string what;
    int kind = world.pick(inBurst ? 8 : 11);
    switch (kind) {
      case 0:
      case 1: {
        bool up = world.chance(60);
        took(nl.setUp(kind == 0 ? n : world.peer(s), up));
        what = (kind == 0 ? "near " : "peer ") + std::to_string(s) + (up ? " up" : " down");
        break;
      }
      case 2: {
        std::string a = world.address(s);
        took(nl.addAddress(n, a, world.prefix(a), world.chance(50) ? "10." + std::to_string(s) + ".255.255" : ""));
        what = "add " + a + " on " + std::to_string(s);
        break;
      }
      case 3: {
        std::string a = world.address(s);
        took(nl.deleteAddress(n, a, world.prefix(a)));
        what = "delete " + a + " on " + std::to_string(s);
        break;
      }
      case 4:
      case 5: {
        static const Verb verbs[] = {Verb::Add, Verb::Prepend, Verb::Append, Verb::Replace, Verb::Change, Verb::Delete};
        Verb verb = verbs[world.pick(6)];
        Route r;
        r.metric = static_cast<uint32_t>(10 * world.pick(3));
        int form = world.pick(5);
        if (form == 0) {
          r.hops = {Hop{n, world.gateway(s)}};
        } else if (form == 1) {
          r.hops = {Hop{n, ""}};
        } else if (form == 2) {
          int t = (s + 1 + world.pick(3)) % 4;
          r.hops = {Hop{n, world.gateway(s)}, Hop{world.near[t], world.gateway(t)}};
        } else if (form == 3) {
          r.nhid = static_cast<uint32_t>(1 + world.pick(5));
        } else {
          r.hops = {Hop{n, world.gateway(s)}};
          r.prefsrc = world.address(s);
        }
        took(nl.defaultRoute(verb, r));
        what = "route verb " + std::to_string(static_cast<int>(verb)) + " form " + std::to_string(form) + " metric " +
               std::to_string(r.metric) + " slot " + std::to_string(s);
        break;
      }
      case 6: {
        uint32_t id = static_cast<uint32_t>(1 + world.pick(5));
        if (world.chance(25)) {
          took(nl.deleteNexthop(id));
          what = "delete nexthop " + std::to_string(id);
        } else if (id == 5) {
          std::vector<uint32_t> members = {static_cast<uint32_t>(1 + world.pick(2))};
          if (world.chance(50)) members.push_back(3 + static_cast<uint32_t>(world.pick(2)));
          took(nl.addNexthop({5, "", "", members}, world.chance(50)));
          what = "group nexthop 5";
        } else {
          took(nl.addNexthop({id, n, world.chance(70) ? world.gateway(s) : ""}, world.chance(50)));
          what = "nexthop " + std::to_string(id) + " on " + std::to_string(s);
        }
        break;
      }
      case 7: {
        std::string to = world.freeName();
        nl.setUp(n, false);
        if (took(nl.rename(n, to)) == 0 || inBurst) world.near[s] = to;
        nl.setUp(world.near[s], true);
        what = "rename " + std::to_string(s);
        break;
      }
      case 8: {
        nl.deleteLink(n);
        world.near[s] = world.freeName();
        nl.createVeth(world.near[s], world.peer(s));
        nl.setUp(world.peer(s), true);
        if (world.chance(70)) nl.setUp(world.near[s], true);
        what = "re-create " + std::to_string(s);
        break;
      }
      case 9: {
        test::setSysctl("net/ipv4/conf/" + n + "/promote_secondaries", world.chance(50) ? "1" : "0");
        what = "promote " + std::to_string(s);
        break;
      }
      default:
        what = "nothing";
        break;
    }
    return what;
  };

  // ignore_routes_with_linkdown, for all links or one, turned on and off from a stream of its own, so
  // that the seeds' sequences stay what they were without it.
  std::mt19937 linkdownRng(seed ^ 0x5eedu);
  for (int step = 0; step < steps; ++step) {
    std::string what;
    if (linkdownRng() % 100 < 4) {
      unsigned slot = linkdownRng() % 5;
      std::string value = linkdownRng() % 2 ? "1" : "0";
      std::string where = slot == 4 ? "all" : world.near[slot];
      test::setSysctl("net/ipv4/conf/" + where + "/ignore_routes_with_linkdown", value);
      what = "ignore_routes_with_linkdown " + (slot == 4 ? where : std::to_string(slot)) + " " + value + "; ";
    }
    int kind = world.pick(20);
    if (kind == 0) {
      // A burst inside one window, requests sent without waiting for their answers.
      nl.setWaiting(false);
      int n = 5 + world.pick(15);
      for (int i = 0; i < n; ++i) what += one(true) + "; ";
      nl.drain();
      nl.setWaiting(true);
    } else if (kind == 1) {
      // A flood: far more messages than the small store's buffer holds.
      nl.setWaiting(false);
      for (int i = 0; i < 200; ++i) nl.setUp(world.peer(world.pick(4)), i % 2 == 0);
      nl.drain();
      nl.setWaiting(true);
      for (int s = 0; s < 4; ++s) nl.setUp(world.peer(s), world.chance(70));
      what += "flood";
    } else {
      what += one(false);
    }
    log.push_back(what);
    std::string diff = converge();
    withPrimary += !primary(*watchers[0]).empty();
    if (!diff.empty()) {
      std::string recent;
      for (std::size_t i = log.size() > 8 ? log.size() - 8 : 0; i < log.size(); ++i) recent += "  " + log[i] + "\n";
      FAIL() << "seed " << seed << ", step " << step << " differs from the kernel:\n" << diff << "last steps:\n" << recent;
    }
  }
  // Not a run of refused requests and empty states.
  std::printf("%d requests taken, %d of %d steps with a primary\n", taken, withPrimary, steps);
  EXPECT_GT(taken, steps / 2);
  EXPECT_GT(withPrimary, steps / 8);
  EXPECT_GT(small.store->statistics().overruns, 0u) << "the floods should overrun the small buffer";
}

INSTANTIATE_TEST_SUITE_P(Randomized, StoreRandomized, ::testing::ValuesIn(randomizedSeeds()),
                         [](const auto& info) { return "seed" + std::to_string(info.param); });
