// The kernel's wireless state through nl80211: one socket for queries (interfaces, scan results)
// and one joined to the "mlme" and "config" groups for events. What the queries answer is shown as
// the AssociationTracker corrects it with the events; its held departures end on a timer, which is
// waited for together with the event socket through one epoll descriptor.
#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "association_tracker.h"
#include "tq/platform/store/nl80211_decoder.h"
#include "tq/platform/store/wireless_source.h"

namespace tq {

namespace {

struct Socket {
  mnl_socket* nl = nullptr;
  Socket() = default;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (nl) mnl_socket_close(nl);
  }
  bool open(bool nonblocking) {
    nl = mnl_socket_open2(NETLINK_GENERIC, SOCK_CLOEXEC | (nonblocking ? SOCK_NONBLOCK : 0));
    if (!nl) return false;
    return mnl_socket_bind(nl, 0, MNL_SOCKET_AUTOPID) == 0;
  }
};

struct Descriptor {
  int fd = -1;
  Descriptor() = default;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
};

class Nl80211WirelessSource : public WirelessSource {
 public:
  explicit Nl80211WirelessSource(std::chrono::milliseconds roamWindow) : tracker_(roamWindow) {}

  bool open() {
    if (!query_.open(false) || !events_.open(true)) return false;
    epoll_.fd = epoll_create1(EPOLL_CLOEXEC);
    timer_.fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (epoll_.fd < 0 || timer_.fd < 0) return false;
    for (int fd : {mnl_socket_get_fd(events_.nl), timer_.fd}) {
      epoll_event ev{};
      ev.events = EPOLLIN;
      ev.data.fd = fd;
      if (epoll_ctl(epoll_.fd, EPOLL_CTL_ADD, fd, &ev) != 0) return false;
    }
    // Generic netlink answers come back at once; a bounded wait keeps a wedged kernel from hanging
    // the loop.
    timeval tv{1, 0};
    setsockopt(mnl_socket_get_fd(query_.nl), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    nl80211::FamilyInfo family;
    bool found = false;
    request(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, 0, 0, [&](nlmsghdr* nlh) {
      found = nl80211::decodeFamily({reinterpret_cast<uint8_t*>(nlh), nlh->nlmsg_len}, family) || found;
    }, "nl80211");
    if (!found || family.id == 0) return false;
    familyId_ = family.id;
    for (const char* group : {"mlme", "config"}) {
      auto it = family.multicastGroups.find(group);
      if (it == family.multicastGroups.end()) continue;
      int id = static_cast<int>(it->second);
      mnl_socket_setsockopt(events_.nl, NETLINK_ADD_MEMBERSHIP, &id, sizeof id);
    }
    return true;
  }

  std::map<int, State> readAll() override {
    std::map<int, State> all;
    std::vector<nl80211::InterfaceInfo> interfaces;
    request(familyId_, NL80211_CMD_GET_INTERFACE, NLM_F_DUMP, 0, [&](nlmsghdr* nlh) {
      nl80211::InterfaceInfo info;
      if (nl80211::decodeInterface({reinterpret_cast<uint8_t*>(nlh), nlh->nlmsg_len}, info))
        interfaces.push_back(info);
    });
    for (const auto& info : interfaces)
      if (info.ifindex > 0) all[info.ifindex] = stateOf(info);
    armTimer();
    return all;
  }

  bool read(int interfaceIndex, State& state) override {
    bool wireless = false;
    nl80211::InterfaceInfo found;
    request(familyId_, NL80211_CMD_GET_INTERFACE, 0, interfaceIndex, [&](nlmsghdr* nlh) {
      wireless = nl80211::decodeInterface({reinterpret_cast<uint8_t*>(nlh), nlh->nlmsg_len}, found) || wireless;
    });
    if (!wireless || found.ifindex != interfaceIndex) {
      tracker_.forget(interfaceIndex);
      return false;
    }
    state = stateOf(found);
    armTimer();
    return true;
  }

  int eventDescriptor() const override { return epoll_.fd; }

  Changes readEvents() override {
    Changes changes;
    std::vector<uint8_t> buf(MNL_SOCKET_BUFFER_SIZE * 4);
    for (;;) {
      ssize_t n = mnl_socket_recvfrom(events_.nl, buf.data(), buf.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        if (errno == ENOBUFS) changes.all = true;
        if (errno == ENOBUFS) continue;
        break;
      }
      int len = static_cast<int>(n);
      for (auto* nlh = reinterpret_cast<nlmsghdr*>(buf.data()); mnl_nlmsg_ok(nlh, len); nlh = mnl_nlmsg_next(nlh, &len)) {
        nl80211::Event event;
        if (!nl80211::decodeEvent({reinterpret_cast<uint8_t*>(nlh), nlh->nlmsg_len}, familyId_, event)) continue;
        tracker_.event(event);
        if (event.changesState && event.ifindex > 0) changes.interfaces.push_back(event.ifindex);
      }
    }
    // Held departures that are due: their interfaces are read again and now show them.
    uint64_t ticks;
    while (::read(timer_.fd, &ticks, sizeof ticks) > 0) {
    }
    for (int index : tracker_.expired(store::AssociationTracker::Clock::now())) changes.interfaces.push_back(index);
    armTimer();
    return changes;
  }

 private:
  State stateOf(const nl80211::InterfaceInfo& info) {
    store::AssociationTracker::Reading reading;
    request(familyId_, NL80211_CMD_GET_SCAN, NLM_F_DUMP, info.ifindex, [&](nlmsghdr* nlh) {
      nl80211::BssInfo bss;
      if (reading.joined || !nl80211::decodeBss({reinterpret_cast<uint8_t*>(nlh), nlh->nlmsg_len}, bss)) return;
      if (!bss.associated) return;
      reading.joined = true;
      reading.bssid = bss.bssid;
      reading.bssSsid = bss.ssid;
    });
    reading.interfaceSsid = info.ssid;
    return tracker_.present(info.ifindex, reading, store::AssociationTracker::Clock::now());
  }

  // Sets the timer for the next held departure, or stops it.
  void armTimer() {
    itimerspec when{};
    if (auto next = tracker_.nextDeadline()) {
      auto wait = std::chrono::duration_cast<std::chrono::nanoseconds>(*next - store::AssociationTracker::Clock::now());
      if (wait.count() < 1) wait = std::chrono::nanoseconds(1);  // zero would stop the timer
      when.it_value.tv_sec = static_cast<time_t>(wait.count() / 1000000000);
      when.it_value.tv_nsec = static_cast<long>(wait.count() % 1000000000);
    }
    timerfd_settime(timer_.fd, 0, &when, nullptr);
  }

  // Sends one request on the query socket and hands every answer message to `each`.
  void request(uint16_t type, uint8_t cmd, uint16_t flags, int ifindex, const std::function<void(nlmsghdr*)>& each,
               const char* familyName = nullptr) {
    std::vector<uint8_t> buf(MNL_SOCKET_BUFFER_SIZE * 4);
    nlmsghdr* nlh = mnl_nlmsg_put_header(buf.data());
    nlh->nlmsg_type = type;
    nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | flags;
    nlh->nlmsg_seq = ++seq_;
    auto* genl = static_cast<genlmsghdr*>(mnl_nlmsg_put_extra_header(nlh, sizeof(genlmsghdr)));
    genl->cmd = cmd;
    genl->version = 1;
    if (familyName) mnl_attr_put_strz(nlh, CTRL_ATTR_FAMILY_NAME, familyName);
    if (ifindex > 0) mnl_attr_put_u32(nlh, NL80211_ATTR_IFINDEX, static_cast<uint32_t>(ifindex));
    if (mnl_socket_sendto(query_.nl, nlh, nlh->nlmsg_len) < 0) return;
    unsigned portid = mnl_socket_get_portid(query_.nl);
    for (;;) {
      ssize_t n = mnl_socket_recvfrom(query_.nl, buf.data(), buf.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        return;
      }
      int len = static_cast<int>(n);
      for (auto* m = reinterpret_cast<nlmsghdr*>(buf.data()); mnl_nlmsg_ok(m, len); m = mnl_nlmsg_next(m, &len)) {
        if (m->nlmsg_seq != seq_ || m->nlmsg_pid != portid) continue;
        if (m->nlmsg_type == NLMSG_DONE || m->nlmsg_type == NLMSG_ERROR) return;
        each(m);
      }
    }
  }

  Socket query_;
  Socket events_;
  Descriptor epoll_;
  Descriptor timer_;
  uint16_t familyId_ = 0;
  uint32_t seq_ = 0;
  store::AssociationTracker tracker_;
};

}  // namespace

std::unique_ptr<WirelessSource> makeNl80211WirelessSource(std::chrono::milliseconds roamWindow) {
  auto source = std::make_unique<Nl80211WirelessSource>(roamWindow);
  if (!source->open()) return nullptr;
  return source;
}

}  // namespace tq
