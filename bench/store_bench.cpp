// LinuxNetworkStore beside a bare rtnetlink socket, in a network namespace of its own (run as root).
//
//  - Toggle: a veth end is set up or down by a netlink request; measured is the time from the request
//    to the EthernetObserver's notification in the loop, and, in the same iteration, to a bare
//    netlink socket (joined to the link group) receiving the kernel's message. Toggles are spaced
//    beyond the coalescing window so each is a lone event. Counters: p50/p99 of both, in µs.
//  - FullRead: the whole state read again (resynchronize) with 1,000 interfaces and 10,000 IPv4
//    addresses (/0: no key watched, /1: every key watched), the steady state of a running store;
//    held_bytes is the heap the store holds then (mallinfo2 before and after its creation), and
//    held_bytes_all_read once every value has been read (values are made when first needed).
//    FullRead_FirstCall: the same state read by a new store, which makes every value (/1: and every
//    key watched, as `tqkit net watch` does); first_ms is the first one made in the process.
//    FullRead_BareDumps, the baseline of both: the store's own dump requests (links, IPv4 addresses,
//    nexthop objects, IPv4 routes of the main table) read into a buffer that is thrown away.
//  - MediaOfEach: the media words of the same 1,001 links, from one read (/0: ethtool netlink dumps
//    on one socket; /1: the ioctl, one socket for all), beside MediaOfEach_PerLink, the baseline:
//    queryMedia for each name (a socket and its ioctls per link).
//  - NetStatusProcess: in the same state, `tqkit net status --json` (the store's full read, every
//    value, every link's media and JSON out) and `ip -j addr` as whole processes, run alternately
//    (fork and exec, output to /dev/null). Counters: tqkit_us and ip_us, the medians of each
//    process's CPU time (user + system, from wait4: start-up included, and less disturbed by other
//    work on a shared machine than the wall clock), ratio their quotient; the best wall times beside.
//    The tqkit program is the one the build made, or TQKIT_TOOL.
//  - CarrierDuringFlood: while another thread adds 20,000 IPv4 addresses to one link (requests sent
//    as fast as the kernel takes them), the peer of another link is set down or up every few
//    milliseconds; measured is the time from that request to the EthernetObserver's notification
//    of the carrier change, and, in a second round under the same flood, to a bare netlink socket
//    (joined to the store's groups, so it reads the same flood) receiving the link's message. Both
//    readers sleep until their socket is readable, as a host's loop does (a reader that spins
//    takes one of the machine's cores from the flood and the kernel).
//    kernel_p50/p99: in the store's round, the time from the request to the kernel's message about
//    the link, seen by a thread on a socket that hears link messages only; store_after_kernel_p99:
//    the store's own part, from that message to the notification.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <malloc.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "process_pair.h"
#include "tq/network/ethernet_observer.h"
#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/store/ethtool_media_source.h"
#include "tq/platform/store/linux_network_store.h"

using namespace tq;
using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned kLowerUp = 1u << 16;  // IFF_LOWER_UP (linux/if.h, which clashes with net/if.h)

// Minimal rtnetlink requests.
class Rtnl {
 public:
  explicit Rtnl(unsigned groups = 0) : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    sockaddr_nl sa{};
    sa.nl_family = AF_NETLINK;
    sa.nl_groups = groups;
    bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
    int big = 8 << 20;
    setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &big, sizeof big);
  }
  ~Rtnl() { close(fd_); }
  int fd() const { return fd_; }

  struct Msg {
    std::vector<uint8_t> b;
    Msg(uint16_t type, uint16_t flags, const void* fam, size_t n) {
      b.reserve(256);
      b.resize(NLMSG_SPACE(n));
      hdr()->nlmsg_type = type;
      hdr()->nlmsg_flags = flags | NLM_F_REQUEST;
      memcpy(b.data() + NLMSG_HDRLEN, fam, n);
    }
    nlmsghdr* hdr() { return reinterpret_cast<nlmsghdr*>(b.data()); }
    size_t put(uint16_t t, const void* d, size_t n) {
      size_t at = b.size();
      b.resize(at + RTA_SPACE(n));
      auto* a = reinterpret_cast<rtattr*>(b.data() + at);
      a->rta_type = t;
      a->rta_len = RTA_LENGTH(n);
      if (n) memcpy(RTA_DATA(a), d, n);
      return at;
    }
    void end(size_t at) { reinterpret_cast<rtattr*>(b.data() + at)->rta_len = b.size() - at; }
    void raw(const void* d, size_t n) {
      size_t at = b.size();
      b.resize(at + NLMSG_ALIGN(n));
      memcpy(b.data() + at, d, n);
    }
  };

  // Sends; waits for the acknowledgement when ack is true.
  void send(Msg& m, bool ack) {
    m.hdr()->nlmsg_len = m.b.size();
    if (ack) m.hdr()->nlmsg_flags |= NLM_F_ACK;
    m.hdr()->nlmsg_seq = ++seq_;
    ::send(fd_, m.b.data(), m.b.size(), 0);
    if (!ack) return;
    std::vector<uint8_t> buf(1 << 16);
    for (;;) {
      ssize_t n = recv(fd_, buf.data(), buf.size(), 0);
      if (n <= 0) return;
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(h, n); h = NLMSG_NEXT(h, n))
        if (h->nlmsg_type == NLMSG_ERROR && h->nlmsg_seq == seq_) return;
    }
  }

  void veth(const std::string& a, const std::string& b) {
    ifinfomsg ifi{};
    Msg m(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, &ifi, sizeof ifi);
    m.put(IFLA_IFNAME, a.c_str(), a.size() + 1);
    auto li = m.put(IFLA_LINKINFO, nullptr, 0);
    m.put(IFLA_INFO_KIND, "veth", 5);
    auto data = m.put(IFLA_INFO_DATA, nullptr, 0);
    auto peer = m.put(VETH_INFO_PEER, nullptr, 0);
    m.raw(&ifi, sizeof ifi);
    m.put(IFLA_IFNAME, b.c_str(), b.size() + 1);
    m.end(peer);
    m.end(data);
    m.end(li);
    send(m, true);
  }
  void setUp(int index, bool up, bool ack = true) {
    ifinfomsg ifi{};
    ifi.ifi_index = index;
    ifi.ifi_change = IFF_UP;
    ifi.ifi_flags = up ? IFF_UP : 0;
    Msg m(RTM_NEWLINK, 0, &ifi, sizeof ifi);
    send(m, ack);
  }
  void address(int index, uint32_t hostOrder, bool ack, uint8_t prefix = 24) {
    ifaddrmsg ifa{};
    ifa.ifa_family = AF_INET;
    ifa.ifa_prefixlen = prefix;
    ifa.ifa_index = index;
    Msg m(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, &ifa, sizeof ifa);
    uint32_t a = htonl(hostOrder);
    m.put(IFA_LOCAL, &a, 4);
    m.put(IFA_ADDRESS, &a, 4);
    send(m, ack);
  }
  void remove(const std::string& n) {
    ifinfomsg ifi{};
    Msg m(RTM_DELLINK, 0, &ifi, sizeof ifi);
    m.put(IFLA_IFNAME, n.c_str(), n.size() + 1);
    send(m, true);
  }
  // Reads what is waiting, without blocking; true when a link message for `index` had the lower
  // layer (carrier) as given.
  bool drainFor(int index, bool lowerUp) {
    std::vector<uint8_t> buf(1 << 16);
    bool seen = false;
    for (;;) {
      ssize_t n = recv(fd_, buf.data(), buf.size(), MSG_DONTWAIT);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return seen;
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(h, n); h = NLMSG_NEXT(h, n)) {
        if (h->nlmsg_type != RTM_NEWLINK) continue;
        auto* ifi = static_cast<ifinfomsg*>(NLMSG_DATA(h));
        if (ifi->ifi_index == index && ((ifi->ifi_flags & kLowerUp) != 0) == lowerUp) seen = true;
      }
    }
  }
  // Sleeps until something can be read or the deadline passes, then reads what is waiting; as
  // drainFor.
  bool waitFor(int index, bool lowerUp, Clock::time_point deadline) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd p{fd_, POLLIN, 0};
    if (left > 0) poll(&p, 1, static_cast<int>(left));
    return drainFor(index, lowerUp);
  }
  // A dump whose answers are read and dropped; returns the bytes read. The requests are the store's
  // own: links, IPv4 addresses, nexthop objects, and the IPv4 routes of the main table (with strict
  // checking, so that the kernel leaves the other tables out).
  size_t dump(uint16_t type) {
    int one = 1;
    setsockopt(fd_, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &one, sizeof one);
    std::unique_ptr<Msg> m;
    if (type == RTM_GETLINK) {
      ifinfomsg ifi{};
      m = std::make_unique<Msg>(type, NLM_F_DUMP, &ifi, sizeof ifi);
    } else if (type == RTM_GETADDR) {
      ifaddrmsg ifa{};
      ifa.ifa_family = AF_INET;
      m = std::make_unique<Msg>(type, NLM_F_DUMP, &ifa, sizeof ifa);
    } else if (type == RTM_GETROUTE) {
      rtmsg rtm{};
      rtm.rtm_family = AF_INET;
      rtm.rtm_table = RT_TABLE_MAIN;
      m = std::make_unique<Msg>(type, NLM_F_DUMP, &rtm, sizeof rtm);
    } else {
      nhmsg nhm{};
      m = std::make_unique<Msg>(type, NLM_F_DUMP, &nhm, sizeof nhm);
    }
    send(*m, false);
    std::vector<uint8_t> buf(1 << 16);
    size_t total = 0;
    for (;;) {
      ssize_t n = recv(fd_, buf.data(), buf.size(), 0);
      if (n <= 0) return total;
      total += n;
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(h, n); h = NLMSG_NEXT(h, n))
        if (h->nlmsg_type == NLMSG_DONE || h->nlmsg_type == NLMSG_ERROR) return total;
    }
  }
  // Waits for a link message for `index` with IFF_UP as given; answers the time it was read.
  Clock::time_point awaitLink(int index, bool up) {
    std::vector<uint8_t> buf(1 << 16);
    for (;;) {
      ssize_t n = recv(fd_, buf.data(), buf.size(), 0);
      if (n <= 0) return Clock::now();
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(h, n); h = NLMSG_NEXT(h, n)) {
        if (h->nlmsg_type != RTM_NEWLINK) continue;
        auto* ifi = static_cast<ifinfomsg*>(NLMSG_DATA(h));
        if (ifi->ifi_index == index && ((ifi->ifi_flags & IFF_UP) != 0) == up) return Clock::now();
      }
    }
  }

 private:
  int fd_;
  uint32_t seq_ = 0;
};

double percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, static_cast<size_t>(p * (v.size() - 1) + 0.5))];
}

void BM_ToggleToNotification(benchmark::State& state) {
  Rtnl control;
  control.veth("ta", "tb");
  int ta = if_nametoindex("ta"), tb = if_nametoindex("tb");
  control.setUp(tb, true);
  Rtnl bare(RTMGRP_LINK);

  auto store = std::make_shared<SCDynamicStore>(LinuxNetworkStore::factory());
  auto ether = EthernetObserver::initWithService(u"ta", store, nullptr);
  int posted = 0;
  auto token = NotificationCenter::defaultCenter().addObserverForName(String(), nullptr, [&](const Notification&) { ++posted; });
  RunLoop loop = RunLoop::current();

  std::vector<double> storeUs, bareUs;
  int missed = 0;
  bool up = true;
  for (auto _ : state) {
    int before = posted;
    auto t0 = Clock::now();
    control.setUp(ta, up, false);
    auto tBare = bare.awaitLink(ta, up);
    auto giveUp = t0 + std::chrono::seconds(1);
    bool woke = false;
    unsigned timer = loop.addTimer(std::chrono::milliseconds(1000), [&] { woke = true; });
    while (posted == before && !woke && Clock::now() < giveUp) loop.runOnce(true);
    if (!woke) g_source_remove(timer);
    if (posted == before) ++missed;  // no notification within a second
    auto tStore = Clock::now();
    state.SetIterationTime(std::chrono::duration<double>(tStore - t0).count());
    storeUs.push_back(std::chrono::duration<double, std::micro>(tStore - t0).count());
    bareUs.push_back(std::chrono::duration<double, std::micro>(tBare - t0).count());
    up = !up;
    // Let the coalescing window pass and the acknowledgement go, outside the measured time.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    while (loop.runOnce(false)) {
    }
  }
  NotificationCenter::defaultCenter().removeObserver(token);
  state.counters["store_p50_us"] = percentile(storeUs, 0.5);
  state.counters["store_p99_us"] = percentile(storeUs, 0.99);
  state.counters["bare_p50_us"] = percentile(bareUs, 0.5);
  state.counters["bare_p99_us"] = percentile(bareUs, 0.99);
  state.counters["missed"] = missed;
  state.counters["p50_ratio"] = percentile(storeUs, 0.5) / std::max(1e-3, percentile(bareUs, 0.5));
  if (store->connection()) loop.removeSource(store->connection()->runLoopSource());
}
BENCHMARK(BM_ToggleToNotification)->Iterations(1000)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Adds `count` addresses of one /16 (a primary and its secondaries) to `link` from a thread of its
// own; `done` turns true when the kernel has taken them all.
std::thread flood(const std::string& link, int count, std::atomic<bool>& done) {
  return std::thread([link, count, &done] {
    Rtnl f;
    int index = if_nametoindex(link.c_str());
    for (int i = 0; i < count; ++i) f.address(index, (172u << 24) | (16u << 16) | static_cast<uint32_t>(i + 1), false, 16);
    done = true;
  });
}

// Runs the loop as a host does, asleep until something is ready, until done() or the deadline.
template <class Done>
void waitInLoop(RunLoop& loop, Clock::time_point deadline, Done done) {
  auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  if (left.count() <= 0) return;
  bool woke = false;
  unsigned timer = loop.addTimer(left, [&] { woke = true; });
  while (!done() && !woke) loop.runOnce(true);
  if (!woke) g_source_remove(timer);
}

// Notes when the kernel announces a link's carrier changes, from a thread of its own, on a socket
// that hears link messages only: no flood queues ahead of them, so the times are those at which the
// kernel sent them (plus this thread's wake-up).
class Witness {
 public:
  explicit Witness(int index) : index_(index), socket_(RTMGRP_LINK) {
    timeval tick{0, 50000};
    setsockopt(socket_.fd(), SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
    thread_ = std::thread([this] { run(); });
  }
  ~Witness() {
    stop_ = true;
    thread_.join();
  }
  // The first announcement at or after t0 with the carrier as given, if any.
  std::optional<Clock::time_point> firstAfter(Clock::time_point t0, bool lowerUp) {
    std::lock_guard<std::mutex> hold(lock_);
    for (auto& [t, l] : seen_)
      if (t >= t0 && l == lowerUp) return t;
    return std::nullopt;
  }

 private:
  void run() {
    std::vector<uint8_t> buf(1 << 16);
    while (!stop_) {
      ssize_t n = recv(socket_.fd(), buf.data(), buf.size(), 0);
      auto now = Clock::now();
      if (n <= 0) continue;
      for (auto* h = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(h, n); h = NLMSG_NEXT(h, n)) {
        if (h->nlmsg_type != RTM_NEWLINK) continue;
        auto* ifi = static_cast<ifinfomsg*>(NLMSG_DATA(h));
        if (ifi->ifi_index != index_) continue;
        std::lock_guard<std::mutex> hold(lock_);
        seen_.emplace_back(now, (ifi->ifi_flags & kLowerUp) != 0);
      }
    }
  }
  int index_;
  Rtnl socket_;
  std::atomic<bool> stop_{false};
  std::mutex lock_;
  std::vector<std::pair<Clock::time_point, bool>> seen_;
  std::thread thread_;
};

void BM_CarrierDuringFlood(benchmark::State& state) {
  const int kAddresses = 20000;
  Rtnl control;
  control.veth("ca", "cb");
  int ca = if_nametoindex("ca"), cb = if_nametoindex("cb");
  control.setUp(ca, true);
  control.setUp(cb, true);

  auto store = std::make_shared<SCDynamicStore>(LinuxNetworkStore::factory());
  auto ether = EthernetObserver::initWithService(u"ca", store, nullptr);
  int posted = 0;
  auto token = NotificationCenter::defaultCenter().addObserverForName(String(), nullptr, [&](const Notification&) { ++posted; });
  RunLoop loop = RunLoop::current();
  auto settle = [&](std::chrono::milliseconds d) {
    auto end = Clock::now() + d;
    while (Clock::now() < end) loop.runOnce(false);
  };
  settle(std::chrono::milliseconds(50));

  std::vector<double> storeUs, bareUs, kernelUs, storeOverKernelUs;
  int missed = 0, toggles = 0;
  bool up = false;
  Witness witness(ca);
  for (auto _ : state) {
    for (int round = 0; round < 2; ++round) {
      control.veth("fa", "fb");
      control.setUp(if_nametoindex("fa"), true);
      std::unique_ptr<Rtnl> bare;
      if (round == 1) bare = std::make_unique<Rtnl>(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE);
      settle(std::chrono::milliseconds(20));
      std::atomic<bool> done{false};
      std::thread t = flood("fa", kAddresses, done);
      while (!done) {
        int before = posted;
        auto t0 = Clock::now();
        control.setUp(cb, up, false);
        bool seen = false;
        auto giveUp = t0 + std::chrono::seconds(1);
        if (round == 0) {
          waitInLoop(loop, giveUp, [&] { return posted != before; });
          seen = posted != before;
        } else {
          while (!seen && Clock::now() < giveUp) seen = bare->waitFor(ca, up, giveUp);
        }
        auto t1 = Clock::now();
        if (!seen) {
          ++missed;
          auto sent = witness.firstAfter(t0, up);
          std::fprintf(stderr, "CarrierDuringFlood: no %s report within a second of toggle %d (%s); the kernel %s\n",
                       round == 0 ? "store" : "bare socket", toggles, up ? "up" : "down",
                       sent ? ("announced it after " +
                               std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(*sent - t0).count()) + " us")
                                  .c_str()
                            : "did not announce it");
        }
        (round == 0 ? storeUs : bareUs).push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
        if (auto sent = witness.firstAfter(t0, up); round == 0 && seen && sent) {
          kernelUs.push_back(std::chrono::duration<double, std::micro>(*sent - t0).count());
          storeOverKernelUs.push_back(std::chrono::duration<double, std::micro>(t1 - *sent).count());
        }
        ++toggles;
        up = !up;
        // Spaced beyond the coalescing window; the loop (or the bare socket) keeps reading meanwhile.
        auto next = Clock::now() + std::chrono::milliseconds(6);
        if (round == 0) {
          waitInLoop(loop, next, [] { return false; });
        } else {
          while (Clock::now() < next) bare->waitFor(ca, true, next);
        }
      }
      t.join();
      control.remove("fa");
      settle(std::chrono::milliseconds(50));
    }
  }
  NotificationCenter::defaultCenter().removeObserver(token);
  state.counters["store_p50_us"] = percentile(storeUs, 0.5);
  state.counters["store_p99_us"] = percentile(storeUs, 0.99);
  state.counters["bare_p50_us"] = percentile(bareUs, 0.5);
  state.counters["bare_p99_us"] = percentile(bareUs, 0.99);
  state.counters["kernel_p50_us"] = percentile(kernelUs, 0.5);
  state.counters["kernel_p99_us"] = percentile(kernelUs, 0.99);
  state.counters["store_after_kernel_p99_us"] = percentile(storeOverKernelUs, 0.99);
  state.counters["toggles"] = toggles;
  state.counters["missed"] = missed;
  if (store->connection()) loop.removeSource(store->connection()->runLoopSource());
}
BENCHMARK(BM_CarrierDuringFlood)->Iterations(1)->Unit(benchmark::kMillisecond);

std::string name(char prefix, int i) {
  std::string s(1, prefix);
  s += std::to_string(i);
  return s;
}

struct BigState {
  BigState() {
    Rtnl control;
    for (int i = 0; i < 500; ++i) control.veth(name('a', i), name('b', i));
    uint32_t addr = (10u << 24);
    for (int i = 0; i < 500; ++i) {
      for (const std::string& n : {name('a', i), name('b', i)}) {
        int index = if_nametoindex(n.c_str());
        for (int k = 0; k < 10; ++k) control.address(index, addr += 256, k == 9);
      }
    }
  }
};

void makeBigState() { static BigState big; }

void BM_FullRead(benchmark::State& state) {
  makeBigState();
  size_t heapBefore = mallinfo2().uordblks;
  auto store = LinuxNetworkStore::create(u"bench", [](StoreConnection&, const Array&) {});
  // Arg 1: every key watched, so every value is made (otherwise IPv4 values wait to be asked for).
  if (state.range(0)) store->setNotificationKeys(Array(), Array{Value(String(u".*"))});
  size_t heapAfter = mallinfo2().uordblks;
  for (auto _ : state) store->resynchronize();
  state.counters["keys"] = store->keyCount();
  state.counters["held_bytes"] = static_cast<double>(heapAfter - heapBefore);
  // Values are made when first needed: what the store holds once every one has been read.
  for (const String& k : store->copyKeyList(u".*").strings()) benchmark::DoNotOptimize(store->copyValue(k));
  state.counters["held_bytes_all_read"] = static_cast<double>(mallinfo2().uordblks - heapBefore);
}
BENCHMARK(BM_FullRead)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(1.0);

void BM_FullRead_FirstCall(benchmark::State& state) {
  makeBigState();
  double first = -1;
  for (auto _ : state) {
    auto t0 = Clock::now();
    auto store = LinuxNetworkStore::create(u"bench", [](StoreConnection&, const Array&) {});
    if (state.range(0)) store->setNotificationKeys(Array(), Array{Value(String(u".*"))});
    if (first < 0) first = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    state.PauseTiming();
    store.reset();  // outside the measured time
    state.ResumeTiming();
  }
  state.counters["first_ms"] = first;
}
BENCHMARK(BM_FullRead_FirstCall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(1.0);

void BM_FullRead_BareDumps(benchmark::State& state) {
  makeBigState();
  Rtnl bare;
  size_t bytes = 0;
  for (auto _ : state)
    bytes += bare.dump(RTM_GETLINK) + bare.dump(RTM_GETADDR) + bare.dump(RTM_GETNEXTHOP) + bare.dump(RTM_GETROUTE);
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_FullRead_BareDumps)->Unit(benchmark::kMillisecond)->MinTime(1.0);

std::vector<String> linkNames() {
  std::vector<String> names;
  if (struct if_nameindex* all = if_nameindex()) {
    for (struct if_nameindex* n = all; n->if_index != 0; ++n) names.push_back(String::fromUTF8(n->if_name));
    if_freenameindex(all);
  }
  return names;
}

void BM_MediaOfEach(benchmark::State& state) {
  makeBigState();
  std::vector<String> names = linkNames();
  EthtoolMediaSource source(state.range(0) ? EthtoolMediaSource::Transport::Ioctl : EthtoolMediaSource::Transport::Netlink);
  std::size_t ok = 0;
  for (auto _ : state) {
    auto results = source.queryMediaOfEach(names);
    ok = std::count_if(results.begin(), results.end(), [](const auto& r) { return r.status == MediaSource::Status::Ok; });
  }
  state.counters["links"] = static_cast<double>(names.size());
  state.counters["with_media"] = static_cast<double>(ok);
}
BENCHMARK(BM_MediaOfEach)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(1.0);

void BM_MediaOfEach_PerLink(benchmark::State& state) {
  makeBigState();
  std::vector<String> names = linkNames();
  EthtoolMediaSource source;
  for (auto _ : state)
    for (const String& n : names) benchmark::DoNotOptimize(source.queryMedia(n));
}
BENCHMARK(BM_MediaOfEach_PerLink)->Unit(benchmark::kMillisecond)->MinTime(1.0);

void BM_NetStatusProcess(benchmark::State& state) {
  makeBigState();
  tqbench::comparePair(state, {"net", "status", "--json"}, {"ip", "-j", "addr"}, "iproute2");
}
BENCHMARK(BM_NetStatusProcess)->Iterations(40)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  if (unshare(CLONE_NEWNET) != 0) {
    std::fprintf(stderr, "store_bench: needs its own network namespace (run as root): %s\n", std::strerror(errno));
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
