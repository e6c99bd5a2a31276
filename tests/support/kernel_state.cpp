#include "support/kernel_state.h"

#include <arpa/inet.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <sstream>
#include <vector>

namespace tq::test {

namespace {

// Sends one request of `type` (`body`: the family header and any attributes) and calls `each` for
// every answer until the kernel's last word (the end of a dump, or its acknowledgement).
void ask(uint16_t type, uint16_t flags, const std::vector<uint8_t>& body,
         const std::function<void(const nlmsghdr*)>& each) {
  int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (fd < 0) return;
  std::vector<uint8_t> req(NLMSG_HDRLEN + NLMSG_ALIGN(body.size()));
  auto* h = reinterpret_cast<nlmsghdr*>(req.data());
  h->nlmsg_len = static_cast<uint32_t>(req.size());
  h->nlmsg_type = type;
  h->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
  h->nlmsg_seq = 1;
  std::memcpy(NLMSG_DATA(h), body.data(), body.size());
  if (::send(fd, req.data(), req.size(), 0) < 0) {
    ::close(fd);
    return;
  }
  std::vector<uint8_t> buf(1 << 16);
  for (bool done = false; !done;) {
    ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
    if (n <= 0) break;
    int len = static_cast<int>(n);
    for (auto* m = reinterpret_cast<nlmsghdr*>(buf.data()); NLMSG_OK(m, len); m = NLMSG_NEXT(m, len)) {
      if (m->nlmsg_type == NLMSG_DONE || m->nlmsg_type == NLMSG_ERROR) {
        done = true;
        break;
      }
      each(m);
    }
  }
  ::close(fd);
}

template <class Family>
void dump(uint16_t type, const Family& family, const std::function<void(const nlmsghdr*)>& each) {
  auto* bytes = reinterpret_cast<const uint8_t*>(&family);
  ask(type, NLM_F_DUMP, std::vector<uint8_t>(bytes, bytes + sizeof family), each);
}

// The attributes of a message after its family header, by type (the last of a type wins).
std::map<int, std::string> attributes(const nlmsghdr* m, std::size_t familySize) {
  std::map<int, std::string> out;
  int len = static_cast<int>(m->nlmsg_len) - static_cast<int>(NLMSG_SPACE(familySize));
  auto* a = reinterpret_cast<const rtattr*>(reinterpret_cast<const uint8_t*>(NLMSG_DATA(m)) + NLMSG_ALIGN(familySize));
  for (; RTA_OK(a, len); a = RTA_NEXT(a, len))
    out[a->rta_type & NLA_TYPE_MASK] = std::string(static_cast<const char*>(RTA_DATA(a)), RTA_PAYLOAD(a));
  return out;
}

uint32_t u32(const std::string& s) {
  uint32_t v = 0;
  if (s.size() >= 4) std::memcpy(&v, s.data(), 4);
  return v;
}

std::string dotted(uint32_t networkOrder) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr a{networkOrder};
  inet_ntop(AF_INET, &a, text, sizeof text);
  return text;
}

std::string maskText(int prefix) {
  uint32_t host = prefix == 0 ? 0 : prefix >= 32 ? 0xFFFFFFFFu : ~((1u << (32 - prefix)) - 1);
  return dotted(htonl(host));
}

String S(const std::string& s) { return String::fromUTF8(s); }

struct Link {
  std::string name;
  unsigned flags = 0;
  bool carrier = false;
  uint16_t type = 0;
  std::string kind;
};

struct Addr {
  uint32_t local = 0;
  int prefix = 0;
  bool hasBroadcast = false;
  uint32_t broadcast = 0;
};

// A byte string is UTF-8 when Python's strict decoder would take it: shortest forms, no surrogates.
std::size_t utf8Length(const std::string& s, std::size_t i) {
  auto c = static_cast<uint8_t>(s[i]);
  std::size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
  if (len == 0 || i + len > s.size()) return 0;
  uint32_t cp = len == 1 ? c : c & (0xFF >> (len + 1));
  for (std::size_t k = 1; k < len; ++k) {
    auto b = static_cast<uint8_t>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 0;
    cp = cp << 6 | (b & 0x3F);
  }
  static const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < least[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}

// The source address the kernel gives a packet to an outside address sent through link `oif`, as
// `ip route get 198.51.100.1 oif DEV` shows it (0 when it gives none).
uint32_t kernelSourceThrough(int oif) {
  rtmsg r{};
  r.rtm_family = AF_INET;
  r.rtm_dst_len = 32;
  std::vector<uint8_t> body(reinterpret_cast<uint8_t*>(&r), reinterpret_cast<uint8_t*>(&r) + sizeof r);
  in_addr outside{};
  inet_pton(AF_INET, "198.51.100.1", &outside);
  for (auto [type, value] : {std::pair<uint16_t, uint32_t>{RTA_DST, outside.s_addr}, {RTA_OIF, static_cast<uint32_t>(oif)}}) {
    rtattr a{static_cast<unsigned short>(RTA_LENGTH(4)), type};
    body.insert(body.end(), reinterpret_cast<uint8_t*>(&a), reinterpret_cast<uint8_t*>(&a) + sizeof a);
    body.insert(body.end(), reinterpret_cast<uint8_t*>(&value), reinterpret_cast<uint8_t*>(&value) + 4);
  }
  uint32_t source = 0;
  ask(RTM_GETROUTE, NLM_F_ACK, body, [&](const nlmsghdr* m) {
    if (m->nlmsg_type == RTM_NEWROUTE) source = u32(attributes(m, sizeof(rtmsg))[RTA_PREFSRC]);
  });
  return source;
}

}  // namespace

std::string escapedInterfaceName(const std::string& raw) {
  std::string out;
  for (std::size_t i = 0; i < raw.size();) {
    if (raw[i] == '\\') {
      out += "\\\\";
      ++i;
    } else if (std::size_t n = utf8Length(raw, i)) {
      out += raw.substr(i, n);
      i += n;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<uint8_t>(raw[i]));
      out += hex;
      ++i;
    }
  }
  return out;
}

std::map<std::string, Value> expectedStoreFromKernel() {
  std::map<int, Link> links;
  ifinfomsg ifi{};
  dump(RTM_GETLINK, ifi, [&](const nlmsghdr* m) {
    if (m->nlmsg_type != RTM_NEWLINK) return;
    auto* i = static_cast<const ifinfomsg*>(NLMSG_DATA(m));
    auto at = attributes(m, sizeof(ifinfomsg));
    Link l;
    l.name = at[IFLA_IFNAME].c_str();
    l.flags = i->ifi_flags;
    l.type = i->ifi_type;
    l.carrier = at.count(IFLA_CARRIER) ? at[IFLA_CARRIER][0] != 0 : (i->ifi_flags & IFF_LOWER_UP) != 0;
    if (at.count(IFLA_LINKINFO)) {
      const std::string& nest = at[IFLA_LINKINFO];
      int len = static_cast<int>(nest.size());
      for (auto* a = reinterpret_cast<const rtattr*>(nest.data()); RTA_OK(a, len); a = RTA_NEXT(a, len))
        if (a->rta_type == IFLA_INFO_KIND) l.kind = static_cast<const char*>(RTA_DATA(a));
    }
    links[i->ifi_index] = l;
  });

  std::map<int, std::vector<Addr>> addresses;
  ifaddrmsg ifa{};
  ifa.ifa_family = AF_INET;
  dump(RTM_GETADDR, ifa, [&](const nlmsghdr* m) {
    auto* a = static_cast<const ifaddrmsg*>(NLMSG_DATA(m));
    if (m->nlmsg_type != RTM_NEWADDR || a->ifa_family != AF_INET) return;
    auto at = attributes(m, sizeof(ifaddrmsg));
    Addr x;
    x.local = u32(at.count(IFA_LOCAL) ? at[IFA_LOCAL] : at[IFA_ADDRESS]);
    x.prefix = a->ifa_prefixlen;
    if (at.count(IFA_BROADCAST)) {
      x.hasBroadcast = true;
      x.broadcast = u32(at[IFA_BROADCAST]);
    }
    addresses[static_cast<int>(a->ifa_index)].push_back(x);
  });

  auto active = [&](int index) {
    auto l = links.find(index);
    return l != links.end() && (l->second.flags & IFF_UP) && l->second.carrier;
  };
  // The primary: the first usable hop, in the kernel's order, of the lowest-metric unicast default
  // routes of the main table.
  bool found = false;
  uint32_t bestMetric = 0, bestGateway = 0;
  int bestOif = 0;
  rtmsg rt{};
  rt.rtm_family = AF_INET;
  dump(RTM_GETROUTE, rt, [&](const nlmsghdr* m) {
    auto* r = static_cast<const rtmsg*>(NLMSG_DATA(m));
    if (m->nlmsg_type != RTM_NEWROUTE || r->rtm_family != AF_INET || r->rtm_dst_len != 0 ||
        r->rtm_type != RTN_UNICAST)
      return;
    auto at = attributes(m, sizeof(rtmsg));
    uint32_t table = at.count(RTA_TABLE) ? u32(at[RTA_TABLE]) : r->rtm_table;
    if (table != RT_TABLE_MAIN) return;
    uint32_t metric = u32(at[RTA_PRIORITY]);
    std::vector<std::pair<int, uint32_t>> hops;
    if (at.count(RTA_MULTIPATH)) {
      const std::string& mp = at[RTA_MULTIPATH];
      std::size_t off = 0;
      while (off + sizeof(rtnexthop) <= mp.size()) {
        auto* nh = reinterpret_cast<const rtnexthop*>(mp.data() + off);
        if (nh->rtnh_len < sizeof(rtnexthop)) break;
        uint32_t gw = 0;
        int len = nh->rtnh_len - static_cast<int>(RTNH_ALIGN(sizeof(rtnexthop)));
        for (auto* a = reinterpret_cast<const rtattr*>(RTNH_DATA(nh)); RTA_OK(a, len); a = RTA_NEXT(a, len))
          if (a->rta_type == RTA_GATEWAY && RTA_PAYLOAD(a) == 4) std::memcpy(&gw, RTA_DATA(a), 4);
        hops.emplace_back(nh->rtnh_ifindex, gw);
        off += RTNH_ALIGN(nh->rtnh_len);
      }
    } else if (at.count(RTA_OIF)) {
      hops.emplace_back(static_cast<int>(u32(at[RTA_OIF])), at.count(RTA_GATEWAY) ? u32(at[RTA_GATEWAY]) : 0);
    }
    for (auto [oif, gw] : hops) {
      if (found && metric >= bestMetric) continue;
      if (!active(oif) || addresses[oif].empty()) continue;
      found = true;
      bestMetric = metric;
      bestOif = oif;
      bestGateway = gw;
    }
  });

  std::map<std::string, Value> out;
  MutableArray names;
  for (auto& [index, l] : links) {
    std::string name = escapedInterfaceName(l.name);
    names.addObject(S(name));
    const char* type = l.kind == "bridge" ? "Bridge"
                       : l.kind == "bond" ? "Bond"
                       : l.kind == "vlan" ? "VLAN"
                       : l.type == ARPHRD_ETHER ? "Ethernet"
                       : l.type == ARPHRD_LOOPBACK ? "Loopback"
                                                    : "Other";
    out["Setup:/Network/Service/" + name + "/Interface"] =
        Dictionary{{u"DeviceName", S(name)}, {u"Type", S(type)}};
    out["State:/Network/Interface/" + name + "/Link"] = Dictionary{{u"Active", Value(active(index))}};
    auto& list = addresses[index];
    if (found && index == bestOif) {
      // The primary interface names first the address the kernel sends from.
      uint32_t source = kernelSourceThrough(bestOif);
      auto it = std::find_if(list.begin(), list.end(), [&](const Addr& x) { return x.local == source; });
      if (it != list.end()) std::rotate(list.begin(), it, it + 1);
    }
    if (!list.empty()) {
      MutableArray a, masks, broadcasts;
      bool all = true;
      for (auto& x : list) {
        a.addObject(S(dotted(x.local)));
        masks.addObject(S(maskText(x.prefix)));
        if (x.hasBroadcast) broadcasts.addObject(S(dotted(x.broadcast)));
        all &= x.hasBroadcast;
      }
      MutableDictionary d;
      d.setObject(a.copy(), u"Addresses");
      d.setObject(masks.copy(), u"SubnetMasks");
      if (all) d.setObject(broadcasts.copy(), u"BroadcastAddresses");
      out["State:/Network/Interface/" + name + "/IPv4"] = d.copy();
    }
  }
  out["State:/Network/Interface"] = Dictionary{{u"Interfaces", names.copy()}};
  if (found) {
    String name = S(escapedInterfaceName(links[bestOif].name));
    MutableDictionary g;
    g.setObject(name, u"PrimaryInterface");
    if (bestGateway) g.setObject(S(dotted(bestGateway)), u"Router");
    g.setObject(name, u"PrimaryService");
    out["State:/Network/Global/IPv4"] = g.copy();
  }
  return out;
}

std::string describeDifference(const std::map<std::string, Value>& expected, const std::map<std::string, Value>& actual,
                               const char* expectedName, const char* actualName) {
  std::ostringstream o;
  for (auto& [k, v] : expected) {
    auto it = actual.find(k);
    if (it == actual.end())
      o << "  " << k << ": " << actualName << " lacks it; " << expectedName << " has " << v.description().UTF8String() << "\n";
    else if (it->second != v)
      o << "  " << k << ": " << expectedName << " " << v.description().UTF8String() << ", " << actualName << " "
        << it->second.description().UTF8String() << "\n";
  }
  for (auto& [k, v] : actual)
    if (!expected.count(k))
      o << "  " << k << ": only " << actualName << " has it: " << v.description().UTF8String() << "\n";
  return o.str();
}

}  // namespace tq::test
