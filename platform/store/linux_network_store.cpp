#include "tq/platform/store/linux_network_store.h"

#include "address_list.h"
#include "default_route_table.h"
#include "key_table.h"

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
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tq/platform/store/key_pattern.h"

namespace tq {

namespace {

using Clock = std::chrono::steady_clock;

struct LinkInfo {
  std::string name;   // the kernel's bytes
  String key;         // the name as it stands in keys and values (see escapedName)
  unsigned flags = 0;
  bool carrier = false;
  uint16_t type = 0;
  std::string kind;
};

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

// Calls f(attribute) for each attribute of a message after its family header, or for each
// attribute nested in `nest`, as far as they are whole (a malformed attribute ends the walk).
template <class F>
void forEachAttribute(const uint8_t* p, const uint8_t* end, F f) {
  while (end - p >= static_cast<std::ptrdiff_t>(sizeof(nlattr))) {
    const auto* a = reinterpret_cast<const nlattr*>(p);
    if (a->nla_len < sizeof(nlattr) || a->nla_len > end - p) return;
    f(a, static_cast<uint16_t>(a->nla_type & NLA_TYPE_MASK));
    p += MNL_ALIGN(a->nla_len);
  }
}
template <class F>
void forEachAttribute(const nlmsghdr* nlh, std::size_t familyHeader, F f) {
  const auto* start = reinterpret_cast<const uint8_t*>(nlh);
  forEachAttribute(start + NLMSG_HDRLEN + MNL_ALIGN(familyHeader), start + nlh->nlmsg_len, f);
}
template <class F>
void forEachNested(const nlattr* nest, F f) {
  const auto* start = reinterpret_cast<const uint8_t*>(nest);
  forEachAttribute(start + MNL_ATTR_HDRLEN, start + nest->nla_len, f);
}

std::size_t payloadLength(const nlattr* a) { return a->nla_len - MNL_ATTR_HDRLEN; }

// A string attribute (its payload up to the first NUL); empty when it has no payload.
std::string attributeString(const nlattr* a) {
  std::size_t n = payloadLength(a);
  if (n == 0) return {};
  const char* s = static_cast<const char*>(mnl_attr_get_payload(a));
  return std::string(s, strnlen(s, n));
}

// The texts values are made of, made once.
struct Words {
  String active{u"Active"}, deviceName{u"DeviceName"}, type{u"Type"}, addresses{u"Addresses"},
      subnetMasks{u"SubnetMasks"}, broadcastAddresses{u"BroadcastAddresses"}, interfaces{u"Interfaces"},
      primaryInterface{u"PrimaryInterface"}, primaryService{u"PrimaryService"}, router{u"Router"},
      linkStatus{u"Link Status"}, bssid{u"BSSID"}, ssid{u"SSID"};
  Dictionary activeTrue{{active, Value(true)}}, activeFalse{{active, Value(false)}};
};
const Words& words() {
  static const Words w;
  return w;
}

const std::u16string_view kGlobalIPv4 = u"State:/Network/Global/IPv4";
const std::u16string_view kInterfaceList = u"State:/Network/Interface";

// The parts of one link's state its keys are made of.
enum : uint8_t { kSetup = 1, kActive = 2, kIPv4 = 4, kAirPort = 8, kAll = 15 };

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

  // The keys and values made from it: each link's group of keys (under the name they were made
  // with), the interface list and the global key. An IPv4 value may be left to be made when needed
  // (a lazy slot; see keepIPv4Before), so that a flood of addresses on an unwatched link costs each
  // batch nothing.
  store::KeyTable table;
  std::unordered_map<int, store::Group*> published;
  store::Slot* listSlot = nullptr;
  store::Slot* globalSlot = nullptr;
  int primaryIndex = 0;  // the link named by the global value; its IPv4 value is always made
  uint32_t primarySource = 0;  // the address the kernel sends from through it, when one of its own

  // Work owed: which parts of which links are to be made again, and whether the list and global
  // keys are.
  std::vector<int> dirtyOrder;
  std::unordered_map<int, uint8_t> dirty;
  bool listDirty = false;
  bool globalDirty = false;
  bool pending = false;  // the state differs from the values
  bool needFullRead = false;

  // During a full read: the dump in progress, what it gave, and the events that came meanwhile,
  // applied once the dumps are in (they may be older or newer than what the dumps show; each is
  // applied so that applying it again changes nothing).
  uint32_t dumpSeq = 0;
  bool inDump = false;
  bool dumpInterrupted = false;
  int dumpError = 0;
  bool overrunDuringDump = false;
  std::vector<std::pair<int, LinkInfo>> dumpLinks;
  std::vector<std::pair<int, store::Address>> dumpAddresses;
  store::DefaultRouteTable dumpRoutes;
  std::vector<std::vector<uint8_t>> deferred;
  // For each kind of message (links, addresses, nexthop objects, routes), how many of `deferred`
  // were read before the dump of that kind was asked for.
  std::array<std::size_t, 4> staleBefore{};

  Clock::time_point lastBatch{};
  GSource* source = nullptr;
  std::shared_ptr<RunLoopSource> runLoopSource;
  Statistics stats;

  Impl() {
    listSlot = &table.fixed(kInterfaceList);
    globalSlot = &table.fixed(kGlobalIPv4);
  }

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
    if (!pending && table.owed().empty()) return;
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
        ++stats.messages;
        handleDumpMessage(nlh);
        continue;
      }
      if (inDump) {
        auto* p = reinterpret_cast<const uint8_t*>(nlh);
        deferred.emplace_back(p, p + nlh->nlmsg_len);
        continue;
      }
      ++stats.messages;
      handleMessage(nlh);
    }
    return ended;
  }

  void markDirty(int index, uint8_t parts) {
    auto [it, fresh] = dirty.try_emplace(index, 0);
    if (fresh) dirtyOrder.push_back(index);
    it->second |= parts;
    pending = true;
  }

  void markGlobal() {
    globalDirty = true;
    pending = true;
  }

  void handleMessage(const nlmsghdr* nlh) {
    switch (nlh->nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
        handleLink(nlh, nlh->nlmsg_type == RTM_DELLINK);
        break;
      case RTM_NEWADDR:
      case RTM_DELADDR:
        handleAddress(nlh, nlh->nlmsg_type == RTM_DELADDR);
        break;
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP:
        if (routes.apply(nlh, false)) {
          settleShownMarks();
          markGlobal();
        }
        break;
      default:
        break;
    }
  }

  // A dump's answers are gathered as they are and compared with what is known once the dumps are in.
  void handleDumpMessage(const nlmsghdr* nlh) {
    switch (nlh->nlmsg_type) {
      case RTM_NEWLINK: {
        int index;
        LinkInfo info;
        bool hasLinkInfo;
        if (parseLink(nlh, index, info, hasLinkInfo) && !info.name.empty())
          dumpLinks.emplace_back(index, std::move(info));
        break;
      }
      case RTM_NEWADDR: {
        int index;
        store::Address a;
        if (parseAddress(nlh, index, a)) dumpAddresses.emplace_back(index, a);
        break;
      }
      case RTM_NEWROUTE:
      case RTM_NEWNEXTHOP:
        dumpRoutes.apply(nlh, true);
        break;
      default:
        break;
    }
  }

  static bool lowerUp(unsigned flags) { return (flags & (IFF_RUNNING | IFF_LOWER_UP)) != 0; }

  // Hops the kernel shows dead may only want carrier: read against their links as they stand now.
  void settleShownMarks() {
    struct LinkState {
      bool known = false, up = false, hasIPv4 = false;
    };
    routes.settleShownMarks([this](int index) {
      LinkState state;
      auto link = links.find(index);
      if (link == links.end()) return state;
      state.known = true;
      state.up = link->second.flags & IFF_UP;
      auto a = addresses.find(index);
      state.hasIPv4 = a != addresses.end() && !a->second.empty();
      return state;
    });
  }

  // After a link went down or lost its last address: when a route's fate hangs on hops whose state
  // the kernel's marks could not tell, its dumps tell whether the route is still there.
  void readAgainWhenUnknownAtStake() {
    if (routes.takeUnknownAtStake()) needFullRead = true;
  }

  // Reads a link message of the kind the store follows (not bridge-port messages and the like).
  static bool parseLink(const nlmsghdr* nlh, int& index, LinkInfo& info, bool& hasLinkInfo) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifinfomsg)) return false;
    auto* ifi = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifi->ifi_family != AF_UNSPEC || ifi->ifi_index <= 0) return false;
    index = ifi->ifi_index;
    info.flags = ifi->ifi_flags;
    info.type = ifi->ifi_type;
    info.carrier = (ifi->ifi_flags & IFF_LOWER_UP) != 0;
    hasLinkInfo = false;
    forEachAttribute(nlh, sizeof(ifinfomsg), [&](const nlattr* a, uint16_t type) {
      if (type == IFLA_IFNAME) {
        info.name = attributeString(a);
      } else if (type == IFLA_CARRIER) {
        if (payloadLength(a) >= 1) info.carrier = mnl_attr_get_u8(a) != 0;
      } else if (type == IFLA_LINKINFO) {
        hasLinkInfo = true;
        std::size_t n = payloadLength(a);
        if (n != 0 && n < sizeof(nlattr)) return;  // not a nest
        forEachNested(a, [&](const nlattr* li, uint16_t liType) {
          if (liType == IFLA_INFO_KIND) info.kind = attributeString(li);
        });
      }
    });
    return true;
  }

  // What of a link's keys differs between two states of it.
  static uint8_t partsChanged(const LinkInfo& old, const LinkInfo& now) {
    if (old.name != now.name) return kAll;
    uint8_t parts = 0;
    if (old.type != now.type || old.kind != now.kind) parts |= kSetup;
    if (old.flags != now.flags || old.carrier != now.carrier) parts |= kActive;
    return parts;
  }

  // A link went: its state, its addresses and the routes through it.
  void linkGone(int index) {
    links.erase(index);
    if (auto a = addresses.find(index); a != addresses.end()) {
      keepIPv4Before(index);
      std::vector<uint32_t> locals;
      for (const store::ListedAddress& x : a->second.addresses()) locals.push_back(x.local);
      addresses.erase(a);
      for (uint32_t l : locals) localAddressMayBeGone(l);
    }
    wirelessStates.erase(index);
    routes.linkRemoved(index);
    markDirty(index, kAll);
    listDirty = true;
    markGlobal();
  }

  void handleLink(const nlmsghdr* nlh, bool removed) {
    if (removed) {
      if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifinfomsg)) return;
      auto* ifi = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(nlh));
      if (ifi->ifi_family != AF_UNSPEC || ifi->ifi_index <= 0) return;
      if (links.count(ifi->ifi_index)) linkGone(ifi->ifi_index);
      return;
    }
    int index;
    LinkInfo info;
    bool hasLinkInfo;
    if (!parseLink(nlh, index, info, hasLinkInfo)) return;
    auto it = links.find(index);
    if (it != links.end()) {
      LinkInfo& old = it->second;
      if (info.name.empty()) info.name = old.name;
      if (info.kind.empty() && !hasLinkInfo) info.kind = old.kind;
      uint8_t parts = partsChanged(old, info);
      // What the kernel does to routes and nexthop objects on the way, without a message of its own.
      bool wasUp = old.flags & IFF_UP, isUp = info.flags & IFF_UP;
      bool changed = false;
      if (wasUp && !isUp) {
        changed |= routes.linkDown(index);
        readAgainWhenUnknownAtStake();
      }
      if (!wasUp && isUp) changed |= routes.reviveHops(index);
      if (lowerUp(old.flags) && !lowerUp(info.flags)) changed |= routes.carrierLost(index);
      if (changed) markGlobal();
      if (parts == 0) return;
      info.key = old.name == info.name ? old.key : String(escapedName(info.name));
      if (old.name != info.name) listDirty = true;
      old = std::move(info);
      markDirty(index, parts);
    } else {
      if (info.name.empty()) return;
      info.key = String(escapedName(info.name));
      links[index] = std::move(info);
      listDirty = true;
      if (wireless && !inDump) {
        WirelessSource::State state;
        if (wireless->read(index, state)) wirelessStates[index] = state;
      }
      markDirty(index, kAll);
    }
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

  static bool parseAddress(const nlmsghdr* nlh, int& index, store::Address& a) {
    if (mnl_nlmsg_get_payload_len(nlh) < sizeof(ifaddrmsg)) return false;
    auto* ifa = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(nlh));
    if (ifa->ifa_family != AF_INET) return false;
    index = static_cast<int>(ifa->ifa_index);
    const nlattr* local = nullptr;
    const nlattr* peer = nullptr;
    const nlattr* broadcast = nullptr;
    uint32_t flags = ifa->ifa_flags;
    forEachAttribute(nlh, sizeof(ifaddrmsg), [&](const nlattr* attr, uint16_t type) {
      if (type == IFA_LOCAL) local = attr;
      else if (type == IFA_ADDRESS) peer = attr;
      else if (type == IFA_BROADCAST) broadcast = attr;
      else if (type == IFA_FLAGS && payloadLength(attr) >= 4) flags = mnl_attr_get_u32(attr);
    });
    if (!local) local = peer;
    if (!local || payloadLength(local) != 4) return false;
    a.local = mnl_attr_get_u32(local);
    a.address = peer && payloadLength(peer) == 4 ? mnl_attr_get_u32(peer) : a.local;
    a.prefix = ifa->ifa_prefixlen;
    a.scope = ifa->ifa_scope;
    a.secondary = (flags & IFA_F_SECONDARY) != 0;
    if (broadcast && payloadLength(broadcast) == 4) {
      a.hasBroadcast = true;
      a.broadcast = mnl_attr_get_u32(broadcast);
    }
    return true;
  }

  void handleAddress(const nlmsghdr* nlh, bool removed) {
    int index;
    store::Address a;
    if (!parseAddress(nlh, index, a)) return;
    keepIPv4Before(index);
    if (removed) {
      auto it = addresses.find(index);
      if (it == addresses.end() || !it->second.remove(a)) return;
      bool last = it->second.empty();
      if (last) addresses.erase(it);
      // The kernel drops routes then without a word: those preferring the address as their source
      // when it is nowhere local any more, and every route through the link when it was its last.
      localAddressMayBeGone(a.local);
      if (last && routes.lastAddressGone(index)) markGlobal();
      if (last) readAgainWhenUnknownAtStake();
    } else {
      if (!addresses[index].add(a, false)) return;
      // An address given to a link that is up revives the hops through it that the kernel marked
      // dead when its last address went. (The kernel does so for a new or promoted address; a link
      // that is up and has addresses has no dead hops, so other address messages find none.)
      auto link = links.find(index);
      if (link != links.end() && (link->second.flags & IFF_UP)) routes.reviveHops(index);
    }
    markDirty(index, kIPv4);
    markGlobal();
  }

  // Takes the wireless state of every link, marking the links whose state differs.
  void replaceWirelessStates(std::map<int, WirelessSource::State> all) {
    auto a = all.begin();
    auto b = wirelessStates.begin();
    while (a != all.end() || b != wirelessStates.end()) {
      if (b == wirelessStates.end() || (a != all.end() && a->first < b->first)) {
        markDirty((a++)->first, kSetup | kAirPort);
      } else if (a == all.end() || b->first < a->first) {
        markDirty((b++)->first, kSetup | kAirPort);
      } else {
        if (!(a->second == b->second)) markDirty(a->first, kAirPort);
        ++a;
        ++b;
      }
    }
    wirelessStates = std::move(all);
  }

  void readWireless() {
    if (!wireless || wireless->eventDescriptor() < 0) return;
    WirelessSource::Changes changes = wireless->readEvents();
    if (changes.all) {
      replaceWirelessStates(wireless->readAll());
      return;
    }
    for (int index : changes.interfaces) {
      WirelessSource::State state;
      bool isWireless = wireless->read(index, state);
      auto old = wirelessStates.find(index);
      if (!isWireless) {
        if (old != wirelessStates.end()) {
          wirelessStates.erase(old);
          markDirty(index, kSetup | kAirPort);
        }
      } else if (old == wirelessStates.end()) {
        wirelessStates[index] = state;
        markDirty(index, kSetup | kAirPort);
      } else if (!(old->second == state)) {
        old->second = state;
        markDirty(index, kAirPort);
      }
    }
  }

  // The kind of a message or dump request, as an index of staleBefore (4: none the store follows).
  static std::size_t kindOf(uint16_t type) {
    switch (type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
      case RTM_GETLINK:
        return 0;
      case RTM_NEWADDR:
      case RTM_DELADDR:
      case RTM_GETADDR:
        return 1;
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP:
      case RTM_GETNEXTHOP:
        return 2;
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
      case RTM_GETROUTE:
        return 3;
      default:
        return 4;
    }
  }

  // Sends one dump request and handles its answers until the dump ends; events that come in
  // between are kept for later. What waits on the socket before the request is read first, so
  // that the events older than the dump are known. False when the dump failed or was interrupted.
  bool dump(uint16_t type) {
    inDump = true;
    dumpSeq = 0;  // no dump's: every message read now is kept for later
    for (;;) {
      ssize_t n = recv(mnl_socket_get_fd(nl), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == ENOBUFS) {
        overrun();
        continue;
      }
      if (n < 0) break;
      handleBuffer(static_cast<int>(n));
    }
    staleBefore[kindOf(type)] = deferred.size();
    std::array<uint8_t, 128> req{};
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

  // Reads the whole state again. What the dumps show is compared with what is known, link by link,
  // so that only what differs is made again (and reported): a read that finds nothing new costs the
  // dumps and the comparison, and the texts of unchanged addresses are kept.
  void fullRead() {
    for (int attempt = 0; attempt < 8; ++attempt) {
      needFullRead = false;
      overrunDuringDump = false;
      ++stats.fullReads;
      dumpLinks.clear();
      dumpAddresses.clear();
      dumpRoutes.clear();
      deferred.clear();
      bool ok = dump(RTM_GETLINK) && dump(RTM_GETADDR) && dump(RTM_GETNEXTHOP) && dump(RTM_GETROUTE);
      if (!ok || overrunDuringDump || needFullRead) {
        needFullRead = true;
        continue;
      }
      takeDumpedLinks();
      takeDumpedAddresses();
      routes = std::move(dumpRoutes);
      dumpRoutes = store::DefaultRouteTable();
      settleShownMarks();
      // What the dumps gave is not kept between reads.
      std::vector<std::pair<int, LinkInfo>>().swap(dumpLinks);
      std::vector<std::pair<int, store::Address>>().swap(dumpAddresses);
      if (wireless) replaceWirelessStates(wireless->readAll());
      // The events that came during the dumps, in order. Those older than the dump of their kind
      // are left out: the dumps show their effects and those of the silent changes after them,
      // which they could undo (a route message bringing back a route the kernel dropped since).
      std::vector<std::vector<uint8_t>> later;
      later.swap(deferred);
      for (std::size_t i = 0; i < later.size(); ++i) {
        auto* m = reinterpret_cast<const nlmsghdr*>(later[i].data());
        std::size_t kind = kindOf(m->nlmsg_type);
        if (kind == 4 || i < staleBefore[kind]) continue;
        ++stats.messages;
        handleMessage(m);
      }
      markGlobal();
      return;
    }
    needFullRead = true;  // still failing: try again on the next wake-up
  }

  template <class T>
  static void sortByIndex(std::vector<std::pair<int, T>>& v) {
    auto byIndex = [](const auto& a, const auto& b) { return a.first < b.first; };
    if (!std::is_sorted(v.begin(), v.end(), byIndex)) std::stable_sort(v.begin(), v.end(), byIndex);
  }

  void takeDumpedLinks() {
    sortByIndex(dumpLinks);
    table.reserve(dumpLinks.size());
    auto old = links.begin();
    for (std::size_t i = 0; i < dumpLinks.size(); ++i) {
      auto& [index, info] = dumpLinks[i];
      if (i + 1 < dumpLinks.size() && dumpLinks[i + 1].first == index) continue;  // the later one holds
      while (old != links.end() && old->first < index) {
        int gone = old->first;
        ++old;
        links.erase(gone);
        markDirty(gone, kAll);
        listDirty = true;
      }
      if (old != links.end() && old->first == index) {
        uint8_t parts = partsChanged(old->second, info);
        if (parts) {
          info.key = old->second.name == info.name ? old->second.key : String(escapedName(info.name));
          if (parts == kAll) listDirty = true;
          old->second = std::move(info);
          markDirty(index, parts);
        }
        ++old;
      } else {
        info.key = String(escapedName(info.name));
        old = std::next(links.emplace_hint(old, index, std::move(info)));
        markDirty(index, kAll);
        listDirty = true;
      }
    }
    while (old != links.end()) {
      int gone = old->first;
      ++old;
      links.erase(gone);
      markDirty(gone, kAll);
      listDirty = true;
    }
  }

  void takeDumpedAddresses() {
    sortByIndex(dumpAddresses);
    std::vector<store::Address> run;
    auto old = addresses.begin();
    auto dropUpTo = [&](int index) {
      while (old != addresses.end() && old->first < index) {
        keepIPv4Before(old->first);
        markDirty(old->first, kIPv4);
        old = addresses.erase(old);
      }
    };
    for (std::size_t i = 0; i < dumpAddresses.size();) {
      int index = dumpAddresses[i].first;
      std::size_t end = i;
      while (end < dumpAddresses.size() && dumpAddresses[end].first == index) ++end;
      run.clear();
      for (std::size_t k = i; k < end; ++k) run.push_back(dumpAddresses[k].second);
      i = end;
      dropUpTo(index);
      if (old != addresses.end() && old->first == index && old->second.sameAs(run.data(), run.size())) {
        old->second.forgetPendingPromotion();
        ++old;
        continue;
      }
      keepIPv4Before(index);
      if (old == addresses.end() || old->first != index) old = addresses.try_emplace(old, index);
      old->second.assign(run.data(), run.size());
      markDirty(index, kIPv4);
      ++old;
    }
    while (old != addresses.end()) {
      keepIPv4Before(old->first);
      markDirty(old->first, kIPv4);
      old = addresses.erase(old);
    }
  }

  // --- values ---------------------------------------------------------------------------------------

  static const String& typeOf(const LinkInfo& link, bool isWireless) {
    static const String ieee80211(u"IEEE80211"), bridge(u"Bridge"), bond(u"Bond"), vlan(u"VLAN"),
        ethernet(u"Ethernet"), loopback(u"Loopback"), ppp(u"PPP"), firewire(u"FireWire"), ipip(u"IPIP"),
        sixToFour(u"6to4"), tunnel(u"Tunnel"), other(u"Other");
    if (isWireless) return ieee80211;
    if (link.kind == "bridge") return bridge;
    if (link.kind == "bond") return bond;
    if (link.kind == "vlan") return vlan;
    switch (link.type) {
      case ARPHRD_ETHER: return ethernet;
      case ARPHRD_LOOPBACK: return loopback;
      case ARPHRD_PPP: return ppp;
      case ARPHRD_IEEE1394: return firewire;
      case ARPHRD_TUNNEL: return ipip;
      case ARPHRD_SIT: return sixToFour;
      case ARPHRD_NONE:
      case ARPHRD_IPGRE:
      case ARPHRD_TUNNEL6: return tunnel;
      default: return other;
    }
  }

  Value ipv4Value(int index) const {
    auto it = addresses.find(index);
    if (it == addresses.end() || it->second.empty()) return Value();
    const Words& w = words();
    std::vector<Value> addrs, masks, broadcasts;
    std::size_t n = it->second.size();
    addrs.reserve(n);
    masks.reserve(n);
    bool allBroadcast = true;
    // The primary interface names first the address the kernel sends from, the others in order.
    const auto& list = it->second.addresses();
    auto lead = list.end();
    if (index == primaryIndex && primarySource)
      lead = std::find_if(list.begin(), list.end(), [&](const store::ListedAddress& a) { return a.local == primarySource; });
    auto take = [&](const store::ListedAddress& a) {
      addrs.emplace_back(a.localText());
      masks.emplace_back(a.maskText());
      if (!allBroadcast) return;
      if (a.hasBroadcast)
        broadcasts.emplace_back(a.broadcastText());
      else
        allBroadcast = false;
    };
    if (lead != list.end()) take(*lead);
    for (auto a = list.begin(); a != list.end(); ++a)
      if (a != lead) take(*a);
    std::vector<Dictionary::Entry> entries;
    entries.reserve(3);
    entries.emplace_back(w.addresses, Array(std::move(addrs)));
    entries.emplace_back(w.subnetMasks, Array(std::move(masks)));
    if (allBroadcast) entries.emplace_back(w.broadcastAddresses, Array(std::move(broadcasts)));
    return Dictionary(std::move(entries));
  }

  static Value airportValue(const WirelessSource::State& s) {
    const Words& w = words();
    std::vector<Dictionary::Entry> entries;
    if (!s.joined) {
      entries.emplace_back(w.linkStatus, Value(1));
      return Dictionary(std::move(entries));
    }
    entries.emplace_back(w.linkStatus, Value(4));
    if (s.bssid) entries.emplace_back(w.bssid, s.bssid);
    if (s.ssid) {
      if (validUTF8(s.ssid.bytes(), s.ssid.length()))
        entries.emplace_back(w.ssid, String::fromUTF8(s.ssid.stringView()));
      else
        entries.emplace_back(w.ssid, s.ssid);
    }
    return Dictionary(std::move(entries));
  }

  static bool linkActive(const LinkInfo& l) { return (l.flags & IFF_UP) && l.carrier; }

  // The address the kernel sends from through one hop of a route: the route's preferred source;
  // else, among the link's primary addresses (not secondaries) of a scope at least as wide as the
  // route's, in the kernel's order, the first whose subnet holds the IPv4 gateway, or the first of
  // all when none does or the hop has no IPv4 gateway. 0 when the link has none: the kernel then
  // takes an address of another link.
  uint32_t sourceThrough(const store::DefaultRoute& r, int oif, uint32_t gateway) const {
    if (r.prefsrc) return r.prefsrc;
    auto a = addresses.find(oif);
    if (a == addresses.end()) return 0;
    uint32_t first = 0;
    for (const store::ListedAddress& x : a->second.addresses()) {
      if (x.secondary || std::min<uint8_t>(x.scope, RT_SCOPE_HOST) > r.scope) continue;
      uint32_t mask = x.prefix == 0 ? 0 : htonl(~0u << (32 - std::min<uint8_t>(x.prefix, 32)));
      if (!gateway || ((x.address ^ gateway) & mask) == 0) return x.local;
      if (!first) first = x.local;
    }
    return first;
  }

  // The global value, the index of the primary interface (0 when none) and the address the kernel
  // sends from through it.
  Value globalValue(int& primary, uint32_t& source) const {
    const store::DefaultRoute* bestRoute = nullptr;
    uint32_t bestMetric = 0;
    int bestOif = 0;
    uint32_t bestGateway = 0;
    routes.forEachHop([&](const store::DefaultRoute& r, int oif, uint32_t gateway) {
      if (bestRoute && r.metric >= bestMetric) return;
      auto link = links.find(oif);
      if (link == links.end() || !linkActive(link->second)) return;
      auto a = addresses.find(oif);
      if (a == addresses.end() || a->second.empty()) return;
      bestRoute = &r;
      bestMetric = r.metric;
      bestOif = oif;
      bestGateway = gateway;
    });
    primary = bestRoute ? bestOif : 0;
    source = bestRoute ? sourceThrough(*bestRoute, bestOif, bestGateway) : 0;
    if (!bestRoute) return Value();
    const Words& w = words();
    const String& name = links.at(bestOif).key;
    std::vector<Dictionary::Entry> entries;
    entries.emplace_back(w.primaryInterface, name);
    if (bestGateway) entries.emplace_back(w.router, store::dottedQuad(bestGateway));
    entries.emplace_back(w.primaryService, name);
    return Dictionary(std::move(entries));
  }

  // Makes a value left to be made when asked for. The value does not change by being made.
  void materialize(store::Slot& slot) {
    if (slot.lazyLink == 0) return;
    int index = slot.lazyLink;
    slot.lazyLink = 0;
    slot.value = ipv4Value(index);
  }

  // A link's addresses are about to change. A watched IPv4 value not made yet is made now, from
  // the addresses as they were at the last batch, so that the next batch compares the new value
  // with the right one. (A watched value is otherwise made only when asked for or when its
  // addresses change, so a store that starts watching every key makes no IPv4 value up front.)
  void keepIPv4Before(int index) {
    auto p = published.find(index);
    if (p == published.end()) return;
    store::Slot& s = (*p->second)[store::Part::IPv4];
    if (s.lazyLink != 0 && !s.owed && table.watched(s)) materialize(s);
  }

  void remakeLink(int index, uint8_t parts) {
    const LinkInfo& l = links.at(index);
    auto [it, fresh] = published.try_emplace(index);
    if (fresh) {
      it->second = &table.attach(l.key.view());
      parts = kAll;
    }
    store::Group& g = *it->second;
    auto ws = wirelessStates.find(index);
    bool isWireless = ws != wirelessStates.end();
    if (parts & kSetup) {
      const Words& w = words();
      table.set(g[store::Part::Setup], Dictionary{{w.deviceName, l.key}, {w.type, typeOf(l, isWireless)}});
    }
    if (parts & kActive) table.set(g[store::Part::Link], linkActive(l) ? words().activeTrue : words().activeFalse);
    if (parts & kIPv4) {
      store::Slot& ipv4 = g[store::Part::IPv4];
      if (index == primaryIndex || table.watched(ipv4)) {
        table.set(ipv4, ipv4Value(index));
      } else {
        // Owed like any key (unwatched keys are not reported), made when asked for.
        auto a = addresses.find(index);
        table.setLazy(ipv4, a != addresses.end() && !a->second.empty() ? index : 0);
      }
    }
    if (parts & kAirPort) table.set(g[store::Part::AirPort], isWireless ? airportValue(ws->second) : Value());
  }

  // Makes the values touched since the last time again: first the keys of links that went or
  // changed their name let go (so that another link may take the name in the same round), then the
  // parts of each link that changed, the interface list and the global key.
  void remake() {
    if (!pending) return;
    Value global;
    if (globalDirty) {
      // First, since the primary interface's IPv4 value depends on it: when the primary or its
      // source changes, so do the values of the old and the new primary.
      int primary = 0;
      uint32_t source = 0;
      global = globalValue(primary, source);
      if (primary != primaryIndex || source != primarySource) {
        for (int index : {primaryIndex, primary})
          if (index && links.count(index)) markDirty(index, kIPv4);
        primaryIndex = primary;
        primarySource = source;
      }
    }
    pending = false;
    for (int index : dirtyOrder) {
      auto p = published.find(index);
      if (p == published.end()) continue;
      auto link = links.find(index);
      if (link != links.end() && link->second.key.view() == p->second->name) continue;
      materialize((*p->second)[store::Part::IPv4]);  // what the watchers compare the removal with
      table.detach(*p->second);
      published.erase(p);
    }
    for (int index : dirtyOrder)
      if (links.count(index)) remakeLink(index, dirty[index]);
    dirtyOrder.clear();
    dirty.clear();
    if (listDirty) {
      listDirty = false;
      std::vector<Value> names;
      names.reserve(links.size());
      for (auto& [i, l] : links) names.emplace_back(l.key);
      table.set(*listSlot, Dictionary{{words().interfaces, Array(std::move(names))}});
    }
    if (globalDirty) {
      globalDirty = false;
      table.set(*globalSlot, std::move(global));
      if (auto p = published.find(primaryIndex); p != published.end()) materialize((*p->second)[store::Part::IPv4]);
    }
  }

  Value current(std::u16string_view key) {
    store::Slot* s = table.find(key);
    if (!s) return Value();
    materialize(*s);
    return s->value;
  }

  static std::u16string primaryIPv4Key(const Value& global) {
    String name = global.dictionaryValue().objectForKey(words().primaryInterface).stringValue();
    if (name.isNil()) return {};
    return u"State:/Network/Interface/" + std::u16string(name.view()) + u"/IPv4";
  }

  // Hands the watched keys whose values differ from those of the last batch to the callout. The
  // global key goes with any change of the primary interface's addresses, even when its own value
  // stays the same: its watchers learn of the primary address that way.
  void deliver() {
    remake();
    auto keep = owner->shared_from_this();  // the callout may drop the host's last reference
    reportDepartures();
    std::vector<String> out;
    bool globalOut = false;
    for (store::Slot* s : table.owed()) {
      if (!table.watched(*s)) continue;
      materialize(*s);
      if (s->value == s->before) continue;
      out.push_back(table.keyOf(*s));
      globalOut |= s == globalSlot;
    }
    if (!globalOut && table.watched(*globalSlot)) {
      const Value& now = globalSlot->value;
      const Value& was = globalSlot->owed ? globalSlot->before : now;
      for (const Value* g : {&now, &was}) {
        store::Slot* s = table.find(primaryIPv4Key(*g));
        if (!s || !s->owed) continue;
        materialize(*s);
        if (s->value != s->before) {
          out.push_back(globalSlot->key);
          break;
        }
      }
    }
    table.endRound();
    if (out.empty() || !callout) return;
    lastBatch = Clock::now();  // the window spaces the callouts, not the reading
    ++stats.batches;
    callout(*owner, Array::withStrings(out));
  }

  // A wireless link that goes (or stops being wireless) while its last report showed it joined
  // leaves its network first: its AirPort key is reported as not joined, in a batch of its own, and
  // then removed by the batch that follows. (The kernel too disconnects an interface before it
  // removes it; the two are usually read together.)
  void reportDepartures() {
    std::vector<String> left;
    for (store::Slot* s : table.owed()) {
      if (!s->group || s->part != store::Part::AirPort || !s->value.isNil() || !table.watched(*s)) continue;
      Value status = s->before.dictionaryValue().objectForKey(words().linkStatus);
      if (!status.isNil() && status.integerValue() != 1) left.push_back(table.keyOf(*s));
    }
    if (left.empty() || !callout) return;
    departed = left;
    ++stats.batches;
    callout(*owner, Array::withStrings(left));
    departed.clear();
  }

  // The AirPort keys being reported as left (see reportDepartures), read as not joined meanwhile.
  std::vector<String> departed;
  Value departedValue(const String& key) const {
    for (const String& k : departed)
      if (k == key) return Dictionary{{words().linkStatus, Value(1)}};
    return Value();
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
  impl->table.endRound();
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
  if (!impl_->departed.empty())
    if (Value left = impl_->departedValue(key); !left.isNil()) return left;
  impl_->remake();
  return impl_->current(key.view());
}

Array LinuxNetworkStore::copyKeyList(const String& pattern) {
  auto compiled = KeyPattern::compile(pattern);
  if (!compiled) return Array();
  impl_->remake();
  std::vector<String> keys;
  impl_->table.forEachHeld([&](store::Slot& s) {
    std::u16string_view key = impl_->table.text(s);
    if (compiled->matches(key)) keys.emplace_back(key);
  });
  std::sort(keys.begin(), keys.end(), [](const String& a, const String& b) { return a.view() < b.view(); });
  return Array::withStrings(keys);
}

bool LinuxNetworkStore::setNotificationKeys(const Array& keys, const Array& patterns) {
  std::vector<std::unique_ptr<KeyPattern>> compiled;
  for (const String& p : patterns.strings()) {
    auto c = KeyPattern::compile(p);
    if (!c) return false;
    compiled.push_back(std::move(c));
  }
  std::vector<std::u16string> exact;
  for (const String& k : keys.strings()) exact.emplace_back(k.view());
  impl_->remake();
  impl_->table.watch(std::move(exact), std::move(compiled));
  // Reports start from the values as they are now: a value changed since the last batch but left to
  // be made is made now, for keys watched from now on.
  impl_->table.forEachHeld([&](store::Slot& s) {
    if (s.lazyLink == 0 || !s.owed || !impl_->table.watched(s)) return;
    impl_->materialize(s);
    s.before = s.value;
  });
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
  return impl_->table.heldCount();
}

}  // namespace tq
