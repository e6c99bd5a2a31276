#include "tq/platform/store/linux_network_store.h"

#include <arpa/inet.h>
#include <glib.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <regex.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tq/platform/store/key_pattern.h"

namespace tq {

namespace {

using Clock = std::chrono::steady_clock;

struct LinkInfo {
  std::string name;
  unsigned flags = 0;
  bool carrier = false;
  uint16_t type = 0;
  std::string kind;
};

struct AddressInfo {
  uint32_t local = 0;  // network byte order
  uint8_t prefix = 0;
  bool hasBroadcast = false;
  uint32_t broadcast = 0;
};

struct RouteInfo {
  int oif = 0;
  uint32_t gateway = 0;
  uint32_t metric = 0;
  uint8_t tos = 0;
  friend bool operator==(const RouteInfo&, const RouteInfo&) = default;
};

std::string dotted(uint32_t networkOrder) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr a{networkOrder};
  inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
}

uint32_t maskOf(uint8_t prefix) {
  uint32_t host = prefix == 0 ? 0 : prefix >= 32 ? 0xFFFFFFFFu : ~((1u << (32 - prefix)) - 1);
  return htonl(host);
}

bool validUTF8(const uint8_t* p, std::size_t n) {
  std::size_t i = 0;
  while (i < n) {
    uint8_t c = p[i];
    std::size_t len;
    uint32_t cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      len = 2;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      len = 3;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      len = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + len > n) return false;
    for (std::size_t k = 1; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (p[i + k] & 0x3F);
    }
    if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
        (cp >= 0xD800 && cp <= 0xDFFF))
      return false;
    i += len;
  }
  return true;
}

String str(const std::string& s) { return String::fromUTF8(s); }

// Whole-string match of a compiled POSIX extended expression. Leftmost-longest matching means that
// when any match covers the whole key, the match found from its start does.
bool matchesWhole(const regex_t& re, const std::string& key) {
  regmatch_t m;
  return regexec(&re, key.c_str(), 1, &m, 0) == 0 && m.rm_so == 0 && static_cast<std::size_t>(m.rm_eo) == key.size();
}

struct Regex {
  regex_t re{};
  bool ok = false;
  explicit Regex(const std::string& pattern) {
    ok = keyPatternExpandedSize(pattern) <= kKeyPatternMaxSize && regcomp(&re, pattern.c_str(), REG_EXTENDED) == 0;
  }
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;
  ~Regex() {
    if (ok) regfree(&re);
  }
};

template <std::size_t N>
struct Attrs {
  const nlattr* at[N] = {};
  const nlattr* operator[](unsigned t) const { return t < N ? at[t] : nullptr; }
};

template <std::size_t N>
int collect(const nlattr* attr, void* data) {
  auto* t = static_cast<Attrs<N>*>(data);
  uint16_t type = mnl_attr_get_type(attr);
  if (type < N) t->at[type] = attr;
  return MNL_CB_OK;
}

bool getU32(const nlattr* a, uint32_t& v) {
  if (!a || mnl_attr_validate(a, MNL_TYPE_U32) < 0) return false;
  v = mnl_attr_get_u32(a);
  return true;
}

std::string getString(const nlattr* a) {
  if (!a || mnl_attr_validate(a, MNL_TYPE_STRING) < 0) return {};
  const char* s = static_cast<const char*>(mnl_attr_get_payload(a));
  return std::string(s, strnlen(s, mnl_attr_get_payload_len(a)));
}

const std::u16string kGlobalIPv4 = u"State:/Network/Global/IPv4";
const std::u16string kInterfaceList = u"State:/Network/Interface";

}  // namespace

struct LinuxNetworkStore::Impl {
  LinuxNetworkStore* owner = nullptr;
  Callout callout;
  Options options;

  mnl_socket* nl = nullptr;
  unsigned portid = 0;
  uint32_t seq = 0;
  std::vector<uint8_t> buffer = std::vector<uint8_t>(1 << 16);
  std::shared_ptr<WirelessSource> wireless;

  // The kernel's state as last read.
  std::map<int, LinkInfo> links;
  std::map<int, std::vector<AddressInfo>> addresses;
  std::vector<RouteInfo> routes;  // default routes of the main table, in the kernel's order
  std::map<int, WirelessSource::State> wirelessStates;

  // The values made from it, and the name each link's keys were last made under.
  std::unordered_map<std::u16string, Value> values;
  std::map<int, std::string> publishedNames;

  // Work owed.
  std::vector<int> dirtyOrder;
  std::set<int> dirty;
  std::set<int> addressesToRead;
  std::set<int> addressFilter;  // the links an address dump in progress is for
  bool routesToRead = false;
  bool listDirty = false;
  bool needFullRead = false;
  bool pending = false;  // values may differ from the last batch

  // During a dump: its sequence number and what its answers are for.
  enum class DumpKind { None, Links, AllAddresses, SomeAddresses, Routes };
  uint32_t dumpSeq = 0;
  DumpKind dumpKind = DumpKind::None;
  bool dumpInterrupted = false;
  bool overrunDuringDump = false;

  // Delivery.
  std::set<std::u16string> watchedKeys;
  std::vector<std::unique_ptr<Regex>> watchedPatterns;
  Clock::time_point lastBatch{};
  std::vector<std::u16string> changedKeys;  // gathered, not yet delivered
  std::set<std::u16string> changedSet;

  GSource* source = nullptr;
  std::shared_ptr<RunLoopSource> runLoopSource;
  Statistics stats;

  ~Impl() {
    if (source) {
      detachSource();
    }
    if (nl) mnl_socket_close(nl);
  }

  // --- the run-loop source ---------------------------------------------------------------------

  struct Source {
    GSource base;
    Impl* impl;
  };

  static gboolean dispatch(GSource* s, GSourceFunc, gpointer) {
    Impl* impl = reinterpret_cast<Source*>(s)->impl;
    if (impl) impl->onDispatch();
    return G_SOURCE_CONTINUE;
  }

  static GSourceFuncs& sourceFuncs() {
    static GSourceFuncs funcs = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
    return funcs;
  }

  void makeSource() {
    source = g_source_new(&sourceFuncs(), sizeof(Source));
    reinterpret_cast<Source*>(source)->impl = this;
    g_source_set_name(source, "tq LinuxNetworkStore");
    g_source_add_unix_fd(source, mnl_socket_get_fd(nl), static_cast<GIOCondition>(G_IO_IN | G_IO_ERR));
    if (wireless && wireless->eventDescriptor() >= 0)
      g_source_add_unix_fd(source, wireless->eventDescriptor(), static_cast<GIOCondition>(G_IO_IN | G_IO_ERR));
    g_source_ref(source);
    runLoopSource = std::make_shared<RunLoopSource>(source);
  }

  void detachSource() {
    reinterpret_cast<Source*>(source)->impl = nullptr;
    if (!g_source_is_destroyed(source) && g_source_get_context(source)) g_source_destroy(source);
    g_source_unref(source);
    source = nullptr;
  }

  void onDispatch() {
    readKernel();
    readWireless();
    g_source_set_ready_time(source, -1);
    settle(false);
  }

  // Brings values up to date and delivers a batch when due (or now, when `force`).
  void settle(bool force) {
    if (needFullRead) fullRead();
    for (int round = 0; round < 4 && (!addressesToRead.empty() || routesToRead); ++round) refreshDirty();
    if (pending) remake();
    if (source && (needFullRead || routesToRead || !addressesToRead.empty()))
      g_source_set_ready_time(source, g_get_monotonic_time() + 1000);  // more owed: come back soon
    if (changedKeys.empty()) return;
    auto now = Clock::now();
    auto due = lastBatch + options.coalescingWindow;
    if (force || now >= due) {
      deliver();
    } else if (source) {
      auto wait = std::chrono::duration_cast<std::chrono::microseconds>(due - now).count();
      g_source_set_ready_time(source, g_get_monotonic_time() + wait);
    }
  }

  // --- reading the kernel ------------------------------------------------------------------------

  bool open() {
    nl = mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (!nl) return false;
    if (options.receiveBufferBytes > 0) {
      int size = options.receiveBufferBytes;
      if (setsockopt(mnl_socket_get_fd(nl), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0)
        setsockopt(mnl_socket_get_fd(nl), SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    }
    int one = 1;
    // Lets address dumps be filtered by interface (older kernels ignore it; answers are filtered here too).
    mnl_socket_setsockopt(nl, NETLINK_GET_STRICT_CHK, &one, sizeof one);
    if (mnl_socket_bind(nl, RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE, MNL_SOCKET_AUTOPID) < 0)
      return false;
    portid = mnl_socket_get_portid(nl);
    if (options.wireless) {
      wireless = options.wireless;
    } else if (options.useSystemWireless) {
      wireless = makeNl80211WirelessSource();
    }
    return true;
  }

  // Reads every message waiting on the socket.
  void readKernel() {
    for (;;) {
      ssize_t n = recv(mnl_socket_get_fd(nl), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == ENOBUFS) {
          overrun();
          continue;
        }
        return;
      }
      handleBuffer(static_cast<int>(n));
    }
  }

  void overrun() {
    ++stats.overruns;
    needFullRead = true;
    if (dumpKind != DumpKind::None) overrunDuringDump = true;
  }

  // Handles one datagram; answers true when it ended the dump in progress.
  bool handleBuffer(int len) {
    bool ended = false;
    for (auto* nlh = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(nlh, len);
         nlh = mnl_nlmsg_next(nlh, &len)) {
      bool fromDump = dumpKind != DumpKind::None && nlh->nlmsg_pid == portid && nlh->nlmsg_seq == dumpSeq;
      if (fromDump) {
        if (nlh->nlmsg_flags & NLM_F_DUMP_INTR) dumpInterrupted = true;
        if (nlh->nlmsg_type == NLMSG_DONE || nlh->nlmsg_type == NLMSG_ERROR) {
          ended = true;
          continue;
        }
      }
      ++stats.messages;
      handleMessage(nlh, fromDump);
    }
    return ended;
  }

  void markDirty(int index) {
    if (dirty.insert(index).second) dirtyOrder.push_back(index);
    pending = true;
  }

  void handleMessage(const nlmsghdr* nlh, bool fromDump) {
    switch (nlh->nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
        handleLink(nlh, nlh->nlmsg_type == RTM_DELLINK);
        break;
      case RTM_NEWADDR:
      case RTM_DELADDR:
        handleAddress(nlh, nlh->nlmsg_type == RTM_DELADDR, fromDump);
        break;
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
        handleRoute(nlh, nlh->nlmsg_type == RTM_DELROUTE);
        break;
      default:
        break;
    }
  }

  void handleLink(const nlmsghdr* nlh, bool removed) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifinfomsg)) return;
    auto* ifi = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifi->ifi_family != AF_UNSPEC || ifi->ifi_index <= 0) return;  // bridge-port messages and the like
    int index = ifi->ifi_index;
    if (removed) {
      if (links.erase(index)) {
        addresses.erase(index);
        wirelessStates.erase(index);
        std::erase_if(routes, [&](const RouteInfo& r) { return r.oif == index; });
        markDirty(index);
        listDirty = true;
        routesToRead = true;
      }
      return;
    }
    Attrs<IFLA_MAX + 1> tb;
    mnl_attr_parse(nlh, sizeof(ifinfomsg), collect<IFLA_MAX + 1>, &tb);
    LinkInfo info;
    info.name = getString(tb[IFLA_IFNAME]);
    info.flags = ifi->ifi_flags;
    info.type = ifi->ifi_type;
    if (tb[IFLA_CARRIER] && mnl_attr_validate(tb[IFLA_CARRIER], MNL_TYPE_U8) >= 0)
      info.carrier = mnl_attr_get_u8(tb[IFLA_CARRIER]) != 0;
    else
      info.carrier = (ifi->ifi_flags & IFF_LOWER_UP) != 0;
    if (const nlattr* linkinfo = tb[IFLA_LINKINFO]; linkinfo && mnl_attr_validate(linkinfo, MNL_TYPE_NESTED) >= 0) {
      Attrs<IFLA_INFO_MAX + 1> li;
      mnl_attr_parse_nested(linkinfo, collect<IFLA_INFO_MAX + 1>, &li);
      info.kind = getString(li[IFLA_INFO_KIND]);
    }
    auto it = links.find(index);
    bool isNew = it == links.end();
    if (!isNew) {
      LinkInfo& old = it->second;
      if (info.name.empty()) info.name = old.name;
      if (info.kind.empty() && !tb[IFLA_LINKINFO]) info.kind = old.kind;
      bool same = old.name == info.name && old.flags == info.flags && old.carrier == info.carrier &&
                  old.type == info.type && old.kind == info.kind;
      if ((old.flags & IFF_UP) && !(info.flags & IFF_UP)) routesToRead = true;
      if (old.name != info.name) listDirty = true;
      old = info;
      if (same) return;
    } else {
      if (info.name.empty()) return;
      links[index] = info;
      listDirty = true;
      if (wireless && dumpKind != DumpKind::Links) {
        WirelessSource::State state;
        if (wireless->read(index, state)) wirelessStates[index] = state;
      }
    }
    markDirty(index);
  }

  void handleAddress(const nlmsghdr* nlh, bool removed, bool fromDump) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifaddrmsg)) return;
    auto* ifa = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifa->ifa_family != AF_INET) return;
    int index = static_cast<int>(ifa->ifa_index);
    if (!fromDump) {
      // Re-read the link's addresses from the kernel rather than guess where this one goes.
      addressesToRead.insert(index);
      if (removed) routesToRead = true;
      pending = true;
      return;
    }
    if (dumpKind == DumpKind::SomeAddresses && !addressFilter.count(index)) return;
    Attrs<IFA_MAX + 1> tb;
    mnl_attr_parse(nlh, sizeof(ifaddrmsg), collect<IFA_MAX + 1>, &tb);
    const nlattr* local = tb[IFA_LOCAL] ? tb[IFA_LOCAL] : tb[IFA_ADDRESS];
    if (!local || mnl_attr_get_payload_len(local) != 4) return;
    AddressInfo a;
    a.local = mnl_attr_get_u32(local);
    a.prefix = ifa->ifa_prefixlen;
    if (tb[IFA_BROADCAST] && mnl_attr_get_payload_len(tb[IFA_BROADCAST]) == 4) {
      a.hasBroadcast = true;
      a.broadcast = mnl_attr_get_u32(tb[IFA_BROADCAST]);
    }
    addresses[index].push_back(a);
  }

  void handleRoute(const nlmsghdr* nlh, bool removed) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(rtmsg)) return;
    auto* rtm = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(nlh));
    if (rtm->rtm_family != AF_INET || rtm->rtm_dst_len != 0 || rtm->rtm_type != RTN_UNICAST) return;
    Attrs<RTA_MAX + 1> tb;
    mnl_attr_parse(nlh, sizeof(rtmsg), collect<RTA_MAX + 1>, &tb);
    uint32_t table = rtm->rtm_table;
    getU32(tb[RTA_TABLE], table);
    if (table != RT_TABLE_MAIN) return;
    RouteInfo base;
    base.tos = rtm->rtm_tos;
    getU32(tb[RTA_PRIORITY], base.metric);
    std::vector<RouteInfo> hops;
    if (const nlattr* mp = tb[RTA_MULTIPATH]) {
      auto* p = static_cast<const uint8_t*>(mnl_attr_get_payload(mp));
      std::size_t left = mnl_attr_get_payload_len(mp);
      while (left >= sizeof(rtnexthop)) {
        auto* nh = reinterpret_cast<const rtnexthop*>(p);
        if (nh->rtnh_len < sizeof(rtnexthop) || nh->rtnh_len > left) break;
        RouteInfo hop = base;
        hop.oif = nh->rtnh_ifindex;
        auto* attr = reinterpret_cast<const nlattr*>(p + RTNH_ALIGN(sizeof(rtnexthop)));
        int attrLen = static_cast<int>(nh->rtnh_len) - static_cast<int>(RTNH_ALIGN(sizeof(rtnexthop)));
        while (attrLen > 0 && mnl_attr_ok(attr, attrLen)) {
          if (mnl_attr_get_type(attr) == RTA_GATEWAY && mnl_attr_get_payload_len(attr) == 4)
            hop.gateway = mnl_attr_get_u32(attr);
          attrLen -= static_cast<int>(MNL_ALIGN(attr->nla_len));
          attr = mnl_attr_next(attr);
        }
        hops.push_back(hop);
        std::size_t step = RTNH_ALIGN(nh->rtnh_len);
        if (step > left) break;
        p += step;
        left -= step;
      }
    } else {
      uint32_t oif = 0;
      getU32(tb[RTA_OIF], oif);
      base.oif = static_cast<int>(oif);
      if (tb[RTA_GATEWAY] && mnl_attr_get_payload_len(tb[RTA_GATEWAY]) == 4) base.gateway = mnl_attr_get_u32(tb[RTA_GATEWAY]);
      hops.push_back(base);
    }
    for (const RouteInfo& hop : hops) {
      auto it = std::find(routes.begin(), routes.end(), hop);
      if (removed) {
        if (it != routes.end()) routes.erase(it);
      } else if (it == routes.end()) {
        routes.push_back(hop);
      }
    }
    pending = true;
  }

  void readWireless() {
    if (!wireless || wireless->eventDescriptor() < 0) return;
    WirelessSource::Changes changes = wireless->readEvents();
    if (changes.all) {
      auto all = wireless->readAll();
      std::set<int> indexes;
      for (auto& [i, s] : all) indexes.insert(i);
      for (auto& [i, s] : wirelessStates) indexes.insert(i);
      for (int i : indexes) {
        auto now = all.find(i);
        auto old = wirelessStates.find(i);
        bool same = (now == all.end()) == (old == wirelessStates.end()) &&
                    (now == all.end() || now->second == old->second);
        if (!same) markDirty(i);
      }
      wirelessStates = std::move(all);
      return;
    }
    for (int index : changes.interfaces) {
      WirelessSource::State state;
      bool isWireless = wireless->read(index, state);
      auto old = wirelessStates.find(index);
      if (!isWireless) {
        if (old != wirelessStates.end()) {
          wirelessStates.erase(old);
          markDirty(index);
        }
      } else if (old == wirelessStates.end() || !(old->second == state)) {
        wirelessStates[index] = state;
        markDirty(index);
      }
    }
  }

  // Sends one dump request and handles everything the socket brings until the dump ends (events
  // that come in between included, in their order). False when the dump failed.
  bool dump(uint16_t type, uint8_t family, int ifindex, DumpKind kind) {
    std::vector<uint8_t> req(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* nlh = mnl_nlmsg_put_header(req.data());
    nlh->nlmsg_type = type;
    nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    nlh->nlmsg_seq = ++seq;
    if (type == RTM_GETLINK) {
      auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
      ifi->ifi_family = family;
    } else if (type == RTM_GETADDR) {
      auto* ifa = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifaddrmsg)));
      ifa->ifa_family = family;
      ifa->ifa_index = static_cast<uint32_t>(ifindex);
    } else {
      auto* rtm = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(rtmsg)));
      rtm->rtm_family = family;
    }
    if (mnl_socket_sendto(nl, nlh, nlh->nlmsg_len) < 0) return false;
    dumpSeq = nlh->nlmsg_seq;
    dumpKind = kind;
    dumpInterrupted = false;
    bool done = false;
    int fd = mnl_socket_get_fd(nl);
    while (!done) {
      ssize_t n = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == ENOBUFS) {
          overrun();
          continue;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
          pollfd p{fd, POLLIN, 0};
          if (poll(&p, 1, 1000) <= 0) break;  // the kernel answers dumps at once; give up if not
          continue;
        }
        break;
      }
      done = handleBuffer(static_cast<int>(n));
    }
    dumpKind = DumpKind::None;
    return done && !dumpInterrupted;
  }

  void fullRead() {
    for (int attempt = 0; attempt < 8; ++attempt) {
      needFullRead = false;
      overrunDuringDump = false;
      ++stats.fullReads;
      for (auto& [i, l] : links) markDirty(i);
      for (auto& [i, n] : publishedNames) markDirty(i);
      links.clear();
      addresses.clear();
      routes.clear();
      // Requests made by events that come during the dumps stay, for refreshDirty.
      addressesToRead.clear();
      routesToRead = false;
      bool ok = dump(RTM_GETLINK, AF_UNSPEC, 0, DumpKind::Links);
      ok = ok && dump(RTM_GETADDR, AF_INET, 0, DumpKind::AllAddresses);
      ok = ok && dump(RTM_GETROUTE, AF_INET, 0, DumpKind::Routes);
      if (wireless) {
        auto all = wireless->readAll();
        for (auto& [i, s] : wirelessStates) markDirty(i);
        wirelessStates = std::move(all);
        for (auto& [i, s] : wirelessStates) markDirty(i);
      }
      for (auto& [i, l] : links) markDirty(i);
      listDirty = true;
      pending = true;
      if (ok && !overrunDuringDump && !needFullRead) return;
    }
    needFullRead = true;  // still failing: try again on the next wake-up
  }

  // Re-reads the addresses of the links that had address events, and the routes when owed.
  void refreshDirty() {
    if (!addressesToRead.empty()) {
      std::set<int> todo;
      todo.swap(addressesToRead);  // events during the dumps ask afresh
      addressFilter = todo;
      for (int i : todo) {
        addresses.erase(i);
        markDirty(i);
      }
      bool ok = true;
      if (todo.size() <= 8) {
        for (int i : todo) ok = dump(RTM_GETADDR, AF_INET, i, DumpKind::SomeAddresses) && ok;
      } else {
        ok = dump(RTM_GETADDR, AF_INET, 0, DumpKind::SomeAddresses);
      }
      addressFilter.clear();
      if (!ok) needFullRead = true;
    }
    if (routesToRead) {
      routesToRead = false;
      routes.clear();
      if (!dump(RTM_GETROUTE, AF_INET, 0, DumpKind::Routes)) needFullRead = true;
      pending = true;
    }
    if (needFullRead) fullRead();
  }

  // --- values ---------------------------------------------------------------------------------------

  static std::u16string key(const std::string& a, const std::string& name, const std::string& b) {
    return std::u16string(str(a + name + b).view());
  }

  static const char* typeOf(const LinkInfo& link, bool isWireless) {
    if (isWireless) return "IEEE80211";
    if (link.kind == "bridge") return "Bridge";
    if (link.kind == "bond") return "Bond";
    if (link.kind == "vlan") return "VLAN";
    switch (link.type) {
      case ARPHRD_ETHER: return "Ethernet";
      case ARPHRD_LOOPBACK: return "Loopback";
      case ARPHRD_PPP: return "PPP";
      case ARPHRD_IEEE1394: return "FireWire";
      case ARPHRD_TUNNEL: return "IPIP";
      case ARPHRD_SIT: return "6to4";
      case ARPHRD_NONE:
      case ARPHRD_IPGRE:
      case ARPHRD_TUNNEL6: return "Tunnel";
      default: return "Other";
    }
  }

  void touch(const std::u16string& k, std::map<std::u16string, Value>& before) {
    if (before.count(k)) return;
    auto it = values.find(k);
    before[k] = it == values.end() ? Value() : it->second;
    if (changedSet.insert(k).second) changedKeys.push_back(k);
  }

  void put(const std::u16string& k, Value v) {
    if (v.isNil())
      values.erase(k);
    else
      values[k] = std::move(v);
  }

  static std::vector<std::u16string> keysFor(const std::string& name) {
    return {key("Setup:/Network/Service/", name, "/Interface"), key("State:/Network/Interface/", name, "/Link"),
            key("State:/Network/Interface/", name, "/IPv4"), key("State:/Network/Interface/", name, "/AirPort")};
  }

  Value ipv4Value(int index) const {
    auto it = addresses.find(index);
    if (it == addresses.end() || it->second.empty()) return Value();
    MutableArray addrs, masks, broadcasts;
    bool allBroadcast = true;
    for (const AddressInfo& a : it->second) {
      addrs.addObject(str(dotted(a.local)));
      masks.addObject(str(dotted(maskOf(a.prefix))));
      if (a.hasBroadcast)
        broadcasts.addObject(str(dotted(a.broadcast)));
      else
        allBroadcast = false;
    }
    MutableDictionary d;
    d.setObject(addrs.copy(), u"Addresses");
    d.setObject(masks.copy(), u"SubnetMasks");
    if (allBroadcast) d.setObject(broadcasts.copy(), u"BroadcastAddresses");
    return d.copy();
  }

  static Value airportValue(const WirelessSource::State& s) {
    MutableDictionary d;
    if (!s.joined) {
      d.setObject(Value(1), u"Link Status");
      return d.copy();
    }
    d.setObject(Value(4), u"Link Status");
    if (s.bssid) d.setObject(s.bssid, u"BSSID");
    if (s.ssid) {
      if (validUTF8(s.ssid.bytes(), s.ssid.length()))
        d.setObject(str(std::string(s.ssid.stringView())), u"SSID");
      else
        d.setObject(s.ssid, u"SSID");
    }
    return d.copy();
  }

  bool linkActive(const LinkInfo& l) const { return (l.flags & IFF_UP) && l.carrier; }

  Value globalValue() const {
    const RouteInfo* best = nullptr;
    for (const RouteInfo& r : routes) {
      auto link = links.find(r.oif);
      if (link == links.end() || !linkActive(link->second)) continue;
      auto a = addresses.find(r.oif);
      if (a == addresses.end() || a->second.empty()) continue;
      if (!best || r.metric < best->metric) best = &r;
    }
    if (!best) return Value();
    const std::string& name = links.at(best->oif).name;
    MutableDictionary d;
    d.setObject(str(name), u"PrimaryInterface");
    if (best->gateway) d.setObject(str(dotted(best->gateway)), u"Router");
    d.setObject(str(name), u"PrimaryService");
    return d.copy();
  }

  // Makes the values touched since the last time again and gathers the keys whose values differ.
  void remake() {
    pending = false;
    std::map<std::u16string, Value> before;
    for (int index : dirtyOrder) {
      auto old = publishedNames.find(index);
      if (old != publishedNames.end()) {
        for (auto& k : keysFor(old->second)) {
          touch(k, before);
          values.erase(k);
        }
        publishedNames.erase(old);
      }
    }
    for (int index : dirtyOrder) {
      auto link = links.find(index);
      if (link == links.end()) continue;
      const LinkInfo& l = link->second;
      auto keys = keysFor(l.name);
      for (auto& k : keys) touch(k, before);
      auto ws = wirelessStates.find(index);
      bool isWireless = ws != wirelessStates.end();
      put(keys[0], Dictionary{{u"DeviceName", str(l.name)}, {u"Type", str(typeOf(l, isWireless))}});
      put(keys[1], Dictionary{{u"Active", Value(linkActive(l))}});
      put(keys[2], ipv4Value(index));
      put(keys[3], isWireless ? airportValue(ws->second) : Value());
      publishedNames[index] = l.name;
    }
    dirtyOrder.clear();
    dirty.clear();
    if (listDirty) {
      listDirty = false;
      touch(kInterfaceList, before);
      std::vector<String> names;
      for (auto& [i, l] : links) names.push_back(str(l.name));
      put(kInterfaceList, Dictionary{{u"Interfaces", Array::withStrings(names)}});
    }
    touch(kGlobalIPv4, before);
    put(kGlobalIPv4, globalValue());
    // Keep only the keys that really differ.
    std::vector<std::u16string> kept;
    for (auto& k : changedKeys) {
      auto b = before.find(k);
      if (b == before.end()) {
        kept.push_back(k);  // gathered by an earlier round, still owed
        continue;
      }
      auto it = values.find(k);
      Value now = it == values.end() ? Value() : it->second;
      if (now != b->second)
        kept.push_back(k);
      else
        changedSet.erase(k);
    }
    changedKeys.swap(kept);
  }

  bool watched(const std::u16string& k) const {
    if (watchedKeys.count(k)) return true;
    if (watchedPatterns.empty()) return false;
    std::string utf8 = String(k).UTF8String();
    for (auto& re : watchedPatterns)
      if (matchesWhole(re->re, utf8)) return true;
    return false;
  }

  void deliver() {
    std::vector<std::u16string> keys;
    keys.swap(changedKeys);
    changedSet.clear();
    std::vector<String> out;
    for (auto& k : keys)
      if (watched(k)) out.push_back(String(k));
    if (out.empty() || !callout) return;
    lastBatch = Clock::now();  // the window spaces the callouts, not the reading
    ++stats.batches;
    auto keep = owner->shared_from_this();  // the callout may drop the host's last reference
    callout(*owner, Array::withStrings(out));
  }
};

LinuxNetworkStore::LinuxNetworkStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { impl_->owner = this; }

LinuxNetworkStore::~LinuxNetworkStore() = default;

std::shared_ptr<LinuxNetworkStore> LinuxNetworkStore::create(const String& name, Callout callout) {
  return create(name, std::move(callout), Options{});
}

std::shared_ptr<LinuxNetworkStore> LinuxNetworkStore::create(const String&, Callout callout, Options options) {
  auto impl = std::make_unique<Impl>();
  impl->callout = std::move(callout);
  impl->options = std::move(options);
  if (!impl->open()) return nullptr;
  impl->fullRead();
  impl->remake();
  impl->changedKeys.clear();
  impl->changedSet.clear();
  impl->makeSource();
  return std::shared_ptr<LinuxNetworkStore>(new LinuxNetworkStore(std::move(impl)));
}

StoreConnectionFactory LinuxNetworkStore::factory() { return factory(Options{}); }

StoreConnectionFactory LinuxNetworkStore::factory(Options options) {
  return [options](const String& name, Callout callout) -> std::shared_ptr<StoreConnection> {
    return create(name, std::move(callout), options);
  };
}

Value LinuxNetworkStore::copyValue(const String& key) {
  if (key.isNil()) return Value();
  auto it = impl_->values.find(std::u16string(key.view()));
  return it == impl_->values.end() ? Value() : it->second;
}

Array LinuxNetworkStore::copyKeyList(const String& pattern) {
  if (pattern.isNil()) return Array();
  Regex re(pattern.UTF8String());
  if (!re.ok) return Array();
  std::vector<String> keys;
  for (auto& [k, v] : impl_->values) {
    String s(k);
    if (matchesWhole(re.re, s.UTF8String())) keys.push_back(s);
  }
  std::sort(keys.begin(), keys.end(), [](const String& a, const String& b) { return a.view() < b.view(); });
  return Array::withStrings(keys);
}

bool LinuxNetworkStore::setNotificationKeys(const Array& keys, const Array& patterns) {
  std::vector<std::unique_ptr<Regex>> compiled;
  for (const String& p : patterns.strings()) {
    auto re = std::make_unique<Regex>(p.UTF8String());
    if (!re->ok) return false;
    compiled.push_back(std::move(re));
  }
  impl_->watchedKeys.clear();
  for (const String& k : keys.strings()) impl_->watchedKeys.insert(std::u16string(k.view()));
  impl_->watchedPatterns = std::move(compiled);
  return true;
}

std::shared_ptr<RunLoopSource> LinuxNetworkStore::runLoopSource() { return impl_->runLoopSource; }

void LinuxNetworkStore::resynchronize() {
  impl_->needFullRead = true;
  impl_->settle(false);
}

void LinuxNetworkStore::processPendingMessages() {
  impl_->readKernel();
  impl_->readWireless();
  impl_->settle(true);
}

LinuxNetworkStore::Statistics LinuxNetworkStore::statistics() const { return impl_->stats; }

std::size_t LinuxNetworkStore::keyCount() const { return impl_->values.size(); }

}  // namespace tq
