#include "support/net_namespace.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <linux/nexthop.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace tq::test {

NetNamespace::NetNamespace() {
  oldNamespace_ = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (oldNamespace_ < 0) {
    reason_ = std::string("cannot open the current namespace: ") + std::strerror(errno);
    return;
  }
  if (::unshare(CLONE_NEWNET) != 0) {
    reason_ = std::string("unshare(CLONE_NEWNET) failed: ") + std::strerror(errno) +
              (geteuid() != 0 ? " (not root)" : "");
    ::close(oldNamespace_);
    oldNamespace_ = -1;
    return;
  }
  ok_ = true;
}

NetNamespace::~NetNamespace() {
  if (oldNamespace_ >= 0) {
    if (ok_) ::setns(oldNamespace_, CLONE_NEWNET);
    ::close(oldNamespace_);
  }
}

namespace {

// A netlink request under construction: header, family header, attributes.
class Message {
 public:
  Message(uint16_t type, uint16_t flags, const void* family, std::size_t familySize) {
    buf_.resize(NLMSG_SPACE(familySize));
    auto* h = header();
    h->nlmsg_len = static_cast<uint32_t>(buf_.size());
    h->nlmsg_type = type;
    h->nlmsg_flags = static_cast<uint16_t>(flags | NLM_F_REQUEST | NLM_F_ACK);
    std::memcpy(buf_.data() + NLMSG_HDRLEN, family, familySize);
  }
  nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(buf_.data()); }
  void put(uint16_t type, const void* data, std::size_t size) {
    std::size_t at = buf_.size();
    buf_.resize(at + RTA_SPACE(size));
    auto* rta = reinterpret_cast<rtattr*>(buf_.data() + at);
    rta->rta_type = type;
    rta->rta_len = static_cast<uint16_t>(RTA_LENGTH(size));
    if (size) std::memcpy(RTA_DATA(rta), data, size);
    header()->nlmsg_len = static_cast<uint32_t>(buf_.size());
  }
  void putString(uint16_t type, const std::string& s) { put(type, s.c_str(), s.size() + 1); }
  void putU32(uint16_t type, uint32_t v) { put(type, &v, sizeof v); }
  std::size_t nestStart(uint16_t type) {
    std::size_t at = buf_.size();
    put(type, nullptr, 0);
    return at;
  }
  void nestEnd(std::size_t at) {
    reinterpret_cast<rtattr*>(buf_.data() + at)->rta_len = static_cast<uint16_t>(buf_.size() - at);
  }
  // Appends raw bytes inside the current nest (used for the veth peer's ifinfomsg).
  void putRaw(const void* data, std::size_t size) {
    std::size_t at = buf_.size();
    buf_.resize(at + NLMSG_ALIGN(size));
    std::memcpy(buf_.data() + at, data, size);
    header()->nlmsg_len = static_cast<uint32_t>(buf_.size());
  }

 private:
  std::vector<uint8_t> buf_;
};

in_addr parse(const std::string& text) {
  in_addr a{};
  ::inet_pton(AF_INET, text.c_str(), &a);
  return a;
}

}  // namespace

NetlinkRequests::NetlinkRequests() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
  if (fd_ < 0) return;
  sockaddr_nl sa{};
  sa.nl_family = AF_NETLINK;
  ::bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
  int big = 4 << 20;
  ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &big, sizeof big);
}

NetlinkRequests::~NetlinkRequests() {
  if (fd_ >= 0) ::close(fd_);
}

int NetlinkRequests::request(void* msg) {
  auto* h = static_cast<nlmsghdr*>(msg);
  h->nlmsg_seq = seq_++;
  if (fd_ < 0) return -EBADF;
  if (::send(fd_, h, h->nlmsg_len, 0) < 0) return -errno;
  ++owed_;
  if (!waiting_) return 0;
  return drain();
}

int NetlinkRequests::drain() {
  int first = 0;
  std::vector<uint8_t> buf(1 << 16);
  while (owed_ > 0) {
    ssize_t n = ::recv(fd_, buf.data(), buf.size(), 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -errno;
    }
    auto* h = reinterpret_cast<nlmsghdr*>(buf.data());
    for (int len = static_cast<int>(n); NLMSG_OK(h, len); h = NLMSG_NEXT(h, len)) {
      if (h->nlmsg_type == NLMSG_ERROR) {
        auto* err = static_cast<nlmsgerr*>(NLMSG_DATA(h));
        if (err->error != 0 && first == 0) first = err->error;
        --owed_;
      }
    }
  }
  return first;
}

int NetlinkRequests::createVeth(const std::string& name, const std::string& peer) {
  ifinfomsg ifi{};
  Message m(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, &ifi, sizeof ifi);
  m.putString(IFLA_IFNAME, name);
  auto info = m.nestStart(IFLA_LINKINFO);
  m.putString(IFLA_INFO_KIND, "veth");
  auto data = m.nestStart(IFLA_INFO_DATA);
  auto peerNest = m.nestStart(VETH_INFO_PEER);
  m.putRaw(&ifi, sizeof ifi);
  m.putString(IFLA_IFNAME, peer);
  m.nestEnd(peerNest);
  m.nestEnd(data);
  m.nestEnd(info);
  return request(m.header());
}

int NetlinkRequests::deleteLink(const std::string& name) {
  ifinfomsg ifi{};
  Message m(RTM_DELLINK, 0, &ifi, sizeof ifi);
  m.putString(IFLA_IFNAME, name);
  return request(m.header());
}

int NetlinkRequests::setUp(const std::string& name, bool up) {
  ifinfomsg ifi{};
  ifi.ifi_change = IFF_UP;
  ifi.ifi_flags = up ? IFF_UP : 0;
  Message m(RTM_NEWLINK, 0, &ifi, sizeof ifi);
  m.putString(IFLA_IFNAME, name);
  return request(m.header());
}

int NetlinkRequests::rename(const std::string& name, const std::string& newName) {
  ifinfomsg ifi{};
  ifi.ifi_index = static_cast<int>(linkIndex(name));
  if (ifi.ifi_index == 0) return -ENODEV;
  Message m(RTM_NEWLINK, 0, &ifi, sizeof ifi);
  m.putString(IFLA_IFNAME, newName);
  return request(m.header());
}

namespace {
Message addressMessage(uint16_t type, uint16_t flags, const std::string& name, const std::string& address,
                       int prefix) {
  ifaddrmsg ifa{};
  ifa.ifa_family = AF_INET;
  ifa.ifa_prefixlen = static_cast<uint8_t>(prefix);
  ifa.ifa_index = linkIndex(name);
  Message m(type, flags, &ifa, sizeof ifa);
  in_addr a = parse(address);
  m.put(IFA_LOCAL, &a, sizeof a);
  m.put(IFA_ADDRESS, &a, sizeof a);
  return m;
}
}  // namespace

int NetlinkRequests::addAddress(const std::string& name, const std::string& address, int prefix,
                                const std::string& broadcast) {
  if (linkIndex(name) == 0) return -ENODEV;
  Message m = addressMessage(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, name, address, prefix);
  if (!broadcast.empty()) {
    in_addr b = parse(broadcast);
    m.put(IFA_BROADCAST, &b, sizeof b);
  }
  return request(m.header());
}

int NetlinkRequests::deleteAddress(const std::string& name, const std::string& address, int prefix) {
  if (linkIndex(name) == 0) return -ENODEV;
  Message m = addressMessage(RTM_DELADDR, 0, name, address, prefix);
  return request(m.header());
}

int NetlinkRequests::defaultRoute(Verb verb, const Route& route) {
  static const uint16_t flags[] = {NLM_F_CREATE | NLM_F_EXCL, NLM_F_CREATE, NLM_F_CREATE | NLM_F_APPEND,
                                   NLM_F_CREATE | NLM_F_REPLACE, NLM_F_REPLACE, 0};
  rtmsg rt{};
  rt.rtm_family = AF_INET;
  rt.rtm_table = RT_TABLE_MAIN;
  rt.rtm_protocol = RTPROT_STATIC;
  bool gateways = route.nhid != 0;
  for (auto& h : route.hops) gateways |= !h.gateway.empty();
  rt.rtm_scope = gateways ? RT_SCOPE_UNIVERSE : RT_SCOPE_LINK;
  rt.rtm_type = RTN_UNICAST;
  if (verb == Verb::Delete) rt.rtm_scope = RT_SCOPE_NOWHERE;  // any scope
  Message m(verb == Verb::Delete ? RTM_DELROUTE : RTM_NEWROUTE, flags[static_cast<int>(verb)], &rt, sizeof rt);
  m.putU32(RTA_PRIORITY, route.metric);
  if (!route.prefsrc.empty()) {
    in_addr a = parse(route.prefsrc);
    m.put(RTA_PREFSRC, &a, sizeof a);
  }
  if (route.nhid) {
    m.putU32(RTA_NH_ID, route.nhid);
  } else if (route.hops.size() == 1) {
    unsigned index = linkIndex(route.hops[0].dev);
    if (index == 0) return -ENODEV;
    m.putU32(RTA_OIF, index);
    if (!route.hops[0].gateway.empty()) {
      in_addr g = parse(route.hops[0].gateway);
      m.put(RTA_GATEWAY, &g, sizeof g);
    }
  } else if (!route.hops.empty()) {
    std::vector<uint8_t> hops;
    for (auto& h : route.hops) {
      unsigned index = linkIndex(h.dev);
      if (index == 0) return -ENODEV;
      std::size_t at = hops.size();
      hops.resize(at + RTNH_ALIGN(sizeof(rtnexthop)));
      if (!h.gateway.empty()) {
        std::size_t ga = hops.size();
        hops.resize(ga + RTA_SPACE(4));
        auto* rta = reinterpret_cast<rtattr*>(hops.data() + ga);
        rta->rta_type = RTA_GATEWAY;
        rta->rta_len = RTA_LENGTH(4);
        in_addr g = parse(h.gateway);
        std::memcpy(RTA_DATA(rta), &g, 4);
      }
      auto* nh = reinterpret_cast<rtnexthop*>(hops.data() + at);
      nh->rtnh_len = static_cast<unsigned short>(hops.size() - at);
      nh->rtnh_ifindex = static_cast<int>(index);
    }
    m.put(RTA_MULTIPATH, hops.data(), hops.size());
  }
  return request(m.header());
}

int NetlinkRequests::addNexthop(const Nexthop& n, bool replace) {
  nhmsg nh{};
  nh.nh_family = n.group.empty() ? AF_INET : AF_UNSPEC;
  Message m(RTM_NEWNEXTHOP, NLM_F_CREATE | (replace ? NLM_F_REPLACE : NLM_F_EXCL), &nh, sizeof nh);
  m.putU32(NHA_ID, n.id);
  if (!n.group.empty()) {
    std::vector<nexthop_grp> g(n.group.size());
    for (std::size_t i = 0; i < g.size(); ++i) g[i].id = n.group[i];
    m.put(NHA_GROUP, g.data(), g.size() * sizeof(nexthop_grp));
  } else {
    unsigned index = linkIndex(n.dev);
    if (index == 0) return -ENODEV;
    m.putU32(NHA_OIF, index);
    if (!n.gateway.empty()) {
      in_addr g = parse(n.gateway);
      m.put(NHA_GATEWAY, &g, sizeof g);
    }
  }
  return request(m.header());
}

int NetlinkRequests::deleteNexthop(uint32_t id) {
  nhmsg nh{};
  Message m(RTM_DELNEXTHOP, 0, &nh, sizeof nh);
  m.putU32(NHA_ID, id);
  return request(m.header());
}

bool setSysctl(const std::string& path, const std::string& value) {
  int fd = ::open(("/proc/sys/" + path).c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool ok = ::write(fd, value.data(), value.size()) == static_cast<ssize_t>(value.size());
  ::close(fd);
  return ok;
}

unsigned linkIndex(const std::string& name) { return ::if_nametoindex(name.c_str()); }

}  // namespace tq::test
