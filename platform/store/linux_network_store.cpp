#include "tq/platform/store/linux_network_store.h"

#include "address_list.h"
#include "default_route_table.h"

#include <arpa/inet.h>
#include <glib.h>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <regex.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
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
  std::string name;   // the kernel's bytes
  std::u16string key; // the name as it stands in keys and values (see escapedName)
  unsigned flags = 0;
  bool carrier = false;
  uint16_t type = 0;
  std::string kind;
};

std::string dotted(uint32_t networkOrder) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr a{networkOrder};
  inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
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

// Interface names are bytes. Valid UTF-8 stands as it is, except that a backslash is doubled; each
// byte that is not part of a valid UTF-8 sequence becomes \xHH (two lower-case hex digits). So
// distinct names give distinct keys, and every key is text.
std::u16string escapedName(const std::string& raw) {
  std::u16string out;
  const auto* p = reinterpret_cast<const uint8_t*>(raw.data());
  std::size_t n = raw.size(), i = 0;
  static const char16_t digits[] = u"0123456789abcdef";
  while (i < n) {
    uint8_t c = p[i];
    if (c == '\\') {
      out += u"\\\\";
      ++i;
      continue;
    }
    if (c < 0x80) {
      out.push_back(c);
      ++i;
      continue;
    }
    std::size_t len = (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
    if (len && i + len <= n && validUTF8(p + i, len)) {
      uint32_t cp = c & (len == 2 ? 0x1F : len == 3 ? 0x0F : 0x07);
      for (std::size_t k = 1; k < len; ++k) cp = (cp << 6) | (p[i + k] & 0x3F);
      if (cp >= 0x10000) {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
      } else {
        out.push_back(static_cast<char16_t>(cp));
      }
      i += len;
      continue;
    }
    out += u"\\x";
    out.push_back(digits[c >> 4]);
    out.push_back(digits[c & 15]);
    ++i;
  }
  return out;
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
  std::map<int, store::AddressList> addresses;
  store::DefaultRouteTable routes;
  std::map<int, WirelessSource::State> wirelessStates;

  // The values made from it, and the (escaped) name each link's keys were last made under. The
  // IPv4 value of a link that nobody watches is made only when asked for (`lazy`: key to link),
  // so that a flood of addresses on one link costs each batch nothing.
  std::unordered_map<std::u16string, Value> values;
  std::unordered_map<std::u16string, int> lazy;
  std::map<int, std::u16string> publishedNames;

  // Work owed: links whose keys are to be made again, and whether the list and global keys are.
  std::vector<int> dirtyOrder;
  std::set<int> dirty;
  bool listDirty = false;
  bool globalDirty = false;
  bool pending = false;  // the state differs from the values
  bool needFullRead = false;

  // During a full read: the dump in progress, and the events that came meanwhile, applied once the
  // dumps are in (they may be older or newer than what the dumps show; each is applied so that
  // applying it again changes nothing).
  uint32_t dumpSeq = 0;
  bool inDump = false;
  bool dumpInterrupted = false;
  int dumpError = 0;
  bool overrunDuringDump = false;
  std::vector<std::vector<uint8_t>> deferred;

  // Delivery: the keys touched since the last batch, in the order of their first touch, with the
  // value each had when that batch went out. A key stays owed until a batch goes out.
  std::set<std::u16string> watchedKeys;
  std::vector<std::unique_ptr<Regex>> watchedPatterns;
  std::unordered_map<std::u16string, bool> matched;
  Clock::time_point lastBatch{};
  std::vector<std::u16string> owed;
  std::unordered_map<std::u16string, Value> before;
  std::u16string primaryIPv4Key;  // the IPv4 key of the primary interface, always made

  GSource* source = nullptr;
  std::shared_ptr<RunLoopSource> runLoopSource;
  Statistics stats;

  ~Impl() {
    if (source) detachSource();
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

  // Delivers a batch when one is due (now, when `force`), or sets the timer for the window's end.
  // Values are made again only when a batch goes out or a value is asked for, so a flood of events
  // between two batches costs each event its own update and no more.
  void settle(bool force) {
    if (needFullRead) fullRead();
    if (source && needFullRead) g_source_set_ready_time(source, g_get_monotonic_time() + 1000);
    if (!pending && owed.empty()) return;
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
    // Lets the route dump be limited to the main table (older kernels ignore it; answers are
    // filtered here too).
    mnl_socket_setsockopt(nl, NETLINK_GET_STRICT_CHK, &one, sizeof one);
    if (mnl_socket_bind(nl, RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE, MNL_SOCKET_AUTOPID) < 0)
      return false;
    int group = RTNLGRP_NEXTHOP;  // kernels without nexthop objects refuse it, and have none to tell
    mnl_socket_setsockopt(nl, NETLINK_ADD_MEMBERSHIP, &group, sizeof group);
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
    if (inDump) overrunDuringDump = true;
  }

  // Handles one datagram; answers true when it ended the dump in progress.
  bool handleBuffer(int len) {
    bool ended = false;
    for (auto* nlh = reinterpret_cast<const nlmsghdr*>(buffer.data()); mnl_nlmsg_ok(nlh, len);
         nlh = mnl_nlmsg_next(nlh, &len)) {
      bool fromDump = inDump && nlh->nlmsg_pid == portid && nlh->nlmsg_seq == dumpSeq;
      if (fromDump) {
        if (nlh->nlmsg_flags & NLM_F_DUMP_INTR) dumpInterrupted = true;
        if (nlh->nlmsg_type == NLMSG_DONE || nlh->nlmsg_type == NLMSG_ERROR) {
          if (nlh->nlmsg_type == NLMSG_ERROR && mnl_nlmsg_get_payload_len(nlh) >= sizeof(nlmsgerr))
            dumpError = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(nlh))->error;
          ended = true;
          continue;
        }
      } else if (inDump) {
        auto* p = reinterpret_cast<const uint8_t*>(nlh);
        deferred.emplace_back(p, p + nlh->nlmsg_len);
        continue;
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

  void markGlobal() {
    globalDirty = true;
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
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP:
        if (routes.apply(nlh, fromDump)) markGlobal();
        break;
      default:
        break;
    }
  }

  static bool lowerUp(unsigned flags) { return (flags & (IFF_RUNNING | IFF_LOWER_UP)) != 0; }

  void handleLink(const nlmsghdr* nlh, bool removed) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifinfomsg)) return;
    auto* ifi = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifi->ifi_family != AF_UNSPEC || ifi->ifi_index <= 0) return;  // bridge-port messages and the like
    int index = ifi->ifi_index;
    if (removed) {
      if (!links.erase(index)) return;
      if (auto a = addresses.find(index); a != addresses.end()) {
        std::vector<uint32_t> locals;
        for (const store::Address& x : a->second.addresses()) locals.push_back(x.local);
        addresses.erase(a);
        for (uint32_t l : locals) localAddressMayBeGone(l);
      }
      wirelessStates.erase(index);
      routes.linkRemoved(index);
      markDirty(index);
      listDirty = true;
      markGlobal();
      return;
    }
    Attrs<IFLA_MAX + 1> tb;
    if (mnl_attr_parse(nlh, sizeof(ifinfomsg), collect<IFLA_MAX + 1>, &tb) < 0) return;
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
    if (it != links.end()) {
      LinkInfo& old = it->second;
      if (info.name.empty()) info.name = old.name;
      info.key = escapedName(info.name);
      if (info.kind.empty() && !tb[IFLA_LINKINFO]) info.kind = old.kind;
      bool same = old.name == info.name && old.flags == info.flags && old.carrier == info.carrier &&
                  old.type == info.type && old.kind == info.kind;
      // What the kernel does to routes and nexthop objects on the way, without a message of its own.
      bool wasUp = old.flags & IFF_UP, isUp = info.flags & IFF_UP;
      bool changed = false;
      if (wasUp && !isUp) changed |= routes.linkDown(index);
      if (!wasUp && isUp) changed |= routes.linkUp(index);
      if (lowerUp(old.flags) && !lowerUp(info.flags)) changed |= routes.carrierLost(index);
      if (changed) markGlobal();
      if (old.name != info.name) listDirty = true;
      old = std::move(info);
      if (same) return;
    } else {
      if (info.name.empty()) return;
      info.key = escapedName(info.name);
      links[index] = std::move(info);
      listDirty = true;
      if (wireless && !inDump) {
        WirelessSource::State state;
        if (wireless->read(index, state)) wirelessStates[index] = state;
      }
    }
    markDirty(index);
    markGlobal();
  }

  // A local address left a link: when no link holds it any more, routes preferring it as their
  // source go.
  void localAddressMayBeGone(uint32_t local) {
    bool used = false;
    for (const store::DefaultRoute& r : routes.routes()) used |= r.prefsrc == local;
    if (!used) return;
    for (auto& [i, list] : addresses)
      if (list.hasLocal(local)) return;
    if (routes.localAddressGone(local)) markGlobal();
  }

  void handleAddress(const nlmsghdr* nlh, bool removed, bool fromDump) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifaddrmsg)) return;
    auto* ifa = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifa->ifa_family != AF_INET) return;
    int index = static_cast<int>(ifa->ifa_index);
    Attrs<IFA_MAX + 1> tb;
    if (mnl_attr_parse(nlh, sizeof(ifaddrmsg), collect<IFA_MAX + 1>, &tb) < 0) return;
    const nlattr* local = tb[IFA_LOCAL] ? tb[IFA_LOCAL] : tb[IFA_ADDRESS];
    if (!local || mnl_attr_get_payload_len(local) != 4) return;
    store::Address a;
    a.local = mnl_attr_get_u32(local);
    a.address = a.local;
    if (tb[IFA_ADDRESS] && mnl_attr_get_payload_len(tb[IFA_ADDRESS]) == 4) a.address = mnl_attr_get_u32(tb[IFA_ADDRESS]);
    a.prefix = ifa->ifa_prefixlen;
    a.scope = ifa->ifa_scope;
    uint32_t flags = ifa->ifa_flags;
    getU32(tb[IFA_FLAGS], flags);
    a.secondary = (flags & IFA_F_SECONDARY) != 0;
    if (tb[IFA_BROADCAST] && mnl_attr_get_payload_len(tb[IFA_BROADCAST]) == 4) {
      a.hasBroadcast = true;
      a.broadcast = mnl_attr_get_u32(tb[IFA_BROADCAST]);
    }
    if (removed) {
      auto it = addresses.find(index);
      if (it == addresses.end() || !it->second.remove(a)) return;
      bool last = it->second.empty();
      if (last) addresses.erase(it);
      // The kernel drops routes then without a word: those preferring the address as their source
      // when it is nowhere local any more, and every route through the link when it was its last.
      localAddressMayBeGone(a.local);
      if (last && routes.lastAddressGone(index)) markGlobal();
    } else if (!addresses[index].add(std::move(a), fromDump)) {
      return;
    }
    markDirty(index);
    markGlobal();
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

  // Sends one dump request and handles its answers until the dump ends; events that come in
  // between are kept for later. False when the dump failed or was interrupted.
  bool dump(uint16_t type) {
    std::vector<uint8_t> req(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* nlh = mnl_nlmsg_put_header(req.data());
    nlh->nlmsg_type = type;
    nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    nlh->nlmsg_seq = ++seq;
    if (type == RTM_GETLINK) {
      auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
      ifi->ifi_family = AF_UNSPEC;
    } else if (type == RTM_GETADDR) {
      auto* ifa = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifaddrmsg)));
      ifa->ifa_family = AF_INET;
    } else if (type == RTM_GETROUTE) {
      auto* rtm = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(rtmsg)));
      rtm->rtm_family = AF_INET;
      rtm->rtm_table = RT_TABLE_MAIN;
    } else {
      auto* nhm = static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(nhmsg)));
      nhm->nh_family = AF_UNSPEC;
    }
    if (mnl_socket_sendto(nl, nlh, nlh->nlmsg_len) < 0) return false;
    dumpSeq = nlh->nlmsg_seq;
    inDump = true;
    dumpInterrupted = false;
    dumpError = 0;
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
    inDump = false;
    // Kernels without nexthop objects refuse their dump: there are none.
    if (type == RTM_GETNEXTHOP && dumpError != 0) return done;
    return done && !dumpInterrupted && dumpError == 0;
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
      deferred.clear();
      bool ok = dump(RTM_GETLINK) && dump(RTM_GETADDR) && dump(RTM_GETNEXTHOP) && dump(RTM_GETROUTE);
      if (!ok || overrunDuringDump || needFullRead) {
        needFullRead = true;
        continue;
      }
      needFullRead = false;
      if (wireless) {
        auto all = wireless->readAll();
        for (auto& [i, s] : wirelessStates) markDirty(i);
        wirelessStates = std::move(all);
        for (auto& [i, s] : wirelessStates) markDirty(i);
      }
      std::vector<std::vector<uint8_t>> later;
      later.swap(deferred);
      for (auto& m : later) {
        ++stats.messages;
        handleMessage(reinterpret_cast<const nlmsghdr*>(m.data()), false);
      }
      for (auto& [i, l] : links) markDirty(i);
      listDirty = true;
      markGlobal();
      return;
    }
    needFullRead = true;  // still failing: try again on the next wake-up
  }

  // --- values ---------------------------------------------------------------------------------------

  static std::u16string key(const char* a, const std::u16string& name, const char* b) {
    std::u16string k;
    for (const char* p = a; *p; ++p) k.push_back(static_cast<char16_t>(*p));
    k += name;
    for (const char* p = b; *p; ++p) k.push_back(static_cast<char16_t>(*p));
    return k;
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

  // Records that a key is about to be made again: the first time since the last batch, its value
  // as of that batch is kept to compare with when the next one goes out.
  void touch(const std::u16string& k) { touch(k, values.find(k)); }
  void touch(const std::u16string& k, std::unordered_map<std::u16string, Value>::iterator it) {
    if (before.try_emplace(k, it == values.end() ? Value() : it->second).second) owed.push_back(k);
  }

  // Makes a value left to be made when asked for.
  void materialize(const std::u16string& k) {
    auto it = lazy.find(k);
    if (it == lazy.end()) return;
    int index = it->second;
    lazy.erase(it);
    if (Value v = ipv4Value(index); !v.isNil()) values[k] = std::move(v);
  }

  void put(const std::u16string& k, Value v) {
    auto it = values.find(k);
    touch(k, it);
    if (!lazy.empty()) lazy.erase(k);
    if (v.isNil()) {
      if (it != values.end()) values.erase(it);
    } else if (it != values.end()) {
      it->second = std::move(v);
    } else {
      values.emplace(k, std::move(v));
    }
  }

  static std::array<std::u16string, 4> keysFor(const std::u16string& name) {
    return {key("Setup:/Network/Service/", name, "/Interface"), key("State:/Network/Interface/", name, "/Link"),
            key("State:/Network/Interface/", name, "/IPv4"), key("State:/Network/Interface/", name, "/AirPort")};
  }

  Value ipv4Value(int index) const {
    auto it = addresses.find(index);
    if (it == addresses.end() || it->second.empty()) return Value();
    std::vector<String> addrs, masks, broadcasts;
    std::size_t n = it->second.size();
    addrs.reserve(n);
    masks.reserve(n);
    bool allBroadcast = true;
    for (const store::Address& a : it->second.addresses()) {
      addrs.push_back(a.localText());
      masks.push_back(a.maskText());
      if (a.hasBroadcast)
        broadcasts.push_back(a.broadcastText());
      else
        allBroadcast = false;
    }
    MutableDictionary d;
    d.setObject(Array::withStrings(addrs), u"Addresses");
    d.setObject(Array::withStrings(masks), u"SubnetMasks");
    if (allBroadcast) d.setObject(Array::withStrings(broadcasts), u"BroadcastAddresses");
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

  static bool linkActive(const LinkInfo& l) { return (l.flags & IFF_UP) && l.carrier; }

  Value globalValue() const {
    bool found = false;
    uint32_t bestMetric = 0;
    int bestOif = 0;
    uint32_t bestGateway = 0;
    routes.forEachHop([&](uint32_t metric, int oif, uint32_t gateway) {
      if (found && metric >= bestMetric) return;
      auto link = links.find(oif);
      if (link == links.end() || !linkActive(link->second)) return;
      auto a = addresses.find(oif);
      if (a == addresses.end() || a->second.empty()) return;
      found = true;
      bestMetric = metric;
      bestOif = oif;
      bestGateway = gateway;
    });
    if (!found) return Value();
    String name(links.at(bestOif).key);
    MutableDictionary d;
    d.setObject(name, u"PrimaryInterface");
    if (bestGateway) d.setObject(str(dotted(bestGateway)), u"Router");
    d.setObject(name, u"PrimaryService");
    return d.copy();
  }

  // Makes the values touched since the last time again.
  void remake() {
    if (!pending) return;
    pending = false;
    for (int index : dirtyOrder) {
      auto old = publishedNames.find(index);
      auto link = links.find(index);
      if (old != publishedNames.end() && (link == links.end() || link->second.key != old->second)) {
        for (auto& k : keysFor(old->second)) put(k, Value());
        publishedNames.erase(old);
      }
    }
    for (int index : dirtyOrder) {
      auto link = links.find(index);
      if (link == links.end()) continue;
      const LinkInfo& l = link->second;
      auto keys = keysFor(l.key);
      auto ws = wirelessStates.find(index);
      bool isWireless = ws != wirelessStates.end();
      put(keys[0], Dictionary{{u"DeviceName", String(l.key)}, {u"Type", str(typeOf(l, isWireless))}});
      put(keys[1], Dictionary{{u"Active", Value(linkActive(l))}});
      if (watched(keys[2]) || keys[2] == primaryIPv4Key) {
        put(keys[2], ipv4Value(index));
      } else {
        // Owed like any key (unwatched keys are not reported), made when asked for.
        touch(keys[2]);
        values.erase(keys[2]);
        auto a = addresses.find(index);
        if (a != addresses.end() && !a->second.empty())
          lazy[keys[2]] = index;
        else
          lazy.erase(keys[2]);
      }
      put(keys[3], isWireless ? airportValue(ws->second) : Value());
      publishedNames[index] = l.key;
    }
    dirtyOrder.clear();
    dirty.clear();
    if (listDirty) {
      listDirty = false;
      std::vector<String> names;
      for (auto& [i, l] : links) names.push_back(String(l.key));
      put(kInterfaceList, Dictionary{{u"Interfaces", Array::withStrings(names)}});
    }
    if (globalDirty) {
      globalDirty = false;
      put(kGlobalIPv4, globalValue());
      auto p = primaryOf(current(kGlobalIPv4));
      primaryIPv4Key = p.empty() ? std::u16string() : key("State:/Network/Interface/", p, "/IPv4");
      materialize(primaryIPv4Key);
    }
  }

  // Whether a key is watched; pattern matches are remembered until the watched set changes.
  bool watched(const std::u16string& k) {
    if (watchedKeys.count(k)) return true;
    if (watchedPatterns.empty()) return false;
    auto known = matched.find(k);
    if (known != matched.end()) return known->second;
    std::string utf8 = String(k).UTF8String();
    bool any = false;
    for (auto& re : watchedPatterns) any = any || matchesWhole(re->re, utf8);
    if (matched.size() > 100000) matched.clear();  // names come and go; keep it bounded
    matched.emplace(k, any);
    return any;
  }

  Value current(const std::u16string& k) {
    materialize(k);
    auto it = values.find(k);
    return it == values.end() ? Value() : it->second;
  }

  static std::u16string primaryOf(const Value& global) {
    String name = global.dictionaryValue().objectForKey(u"PrimaryInterface").stringValue();
    return name.isNil() ? std::u16string() : std::u16string(name.view());
  }

  // Hands the watched keys whose values differ from those of the last batch to the callout. The
  // global key goes with any change of the primary interface's addresses, even when its own value
  // stays the same: its watchers learn of the primary address that way.
  void deliver() {
    remake();
    std::vector<std::u16string> keys;
    keys.swap(owed);
    std::unordered_map<std::u16string, Value> was;
    was.swap(before);
    std::vector<String> out;
    bool globalOut = false;
    for (auto& k : keys) {
      if (!watched(k) || current(k) == was[k]) continue;
      out.push_back(String(k));
      globalOut |= k == kGlobalIPv4;
    }
    if (!globalOut && watched(kGlobalIPv4)) {
      std::set<std::u16string> primaries;
      Value now = current(kGlobalIPv4);
      auto old = was.find(kGlobalIPv4);
      for (const Value* g : {&now, old == was.end() ? &now : &old->second})
        if (auto p = primaryOf(*g); !p.empty()) primaries.insert(key("State:/Network/Interface/", p, "/IPv4"));
      for (auto& k : keys)
        if (primaries.count(k) && current(k) != was[k]) {
          out.push_back(String(kGlobalIPv4));
          break;
        }
    }
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
  impl->owed.clear();
  impl->before.clear();
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
  impl_->remake();
  return impl_->current(std::u16string(key.view()));
}

Array LinuxNetworkStore::copyKeyList(const String& pattern) {
  if (pattern.isNil()) return Array();
  Regex re(pattern.UTF8String());
  if (!re.ok) return Array();
  impl_->remake();
  std::vector<String> keys;
  auto consider = [&](const std::u16string& k) {
    String s(k);
    if (matchesWhole(re.re, s.UTF8String())) keys.push_back(s);
  };
  for (auto& [k, v] : impl_->values) consider(k);
  for (auto& [k, i] : impl_->lazy) consider(k);
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
  impl_->matched.clear();
  for (const String& k : keys.strings()) impl_->watchedKeys.insert(std::u16string(k.view()));
  impl_->watchedPatterns = std::move(compiled);
  // Values left to be made for keys watched from now on are made now; reports start from them.
  impl_->remake();
  std::vector<std::u16string> nowWatched;
  for (auto& [k, i] : impl_->lazy)
    if (impl_->watched(k)) nowWatched.push_back(k);
  for (auto& k : nowWatched) {
    impl_->materialize(k);
    if (auto b = impl_->before.find(k); b != impl_->before.end()) b->second = impl_->current(k);
  }
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

std::size_t LinuxNetworkStore::keyCount() const {
  impl_->remake();
  return impl_->values.size() + impl_->lazy.size();
}

}  // namespace tq
