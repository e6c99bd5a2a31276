// Network test support: a fresh network namespace for the calling thread, and the kernel requests
// that tests make in it (links, addresses, routes) through rtnetlink.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tq::test {

// Moves the calling thread into a new, empty network namespace (only a down "lo" in it) and back to
// its old one when destroyed. Sockets made in between stay in the new namespace. ok() is false
// (and reason() says why) when the process may not make namespaces (not root, or forbidden by a
// sandbox); tests then skip.
class NetNamespace {
 public:
  NetNamespace();
  ~NetNamespace();
  NetNamespace(const NetNamespace&) = delete;
  NetNamespace& operator=(const NetNamespace&) = delete;

  bool ok() const { return ok_; }
  const std::string& reason() const { return reason_; }

 private:
  int oldNamespace_ = -1;
  bool ok_ = false;
  std::string reason_;
};

// Synchronous rtnetlink requests in the calling thread's namespace. Each returns 0 or a negative
// errno (the kernel's answer).
class NetlinkRequests {
 public:
  NetlinkRequests();
  ~NetlinkRequests();
  NetlinkRequests(const NetlinkRequests&) = delete;
  NetlinkRequests& operator=(const NetlinkRequests&) = delete;

  int createVeth(const std::string& name, const std::string& peer);
  int deleteLink(const std::string& name);
  int setUp(const std::string& name, bool up);
  int rename(const std::string& name, const std::string& newName);
  int addAddress(const std::string& name, const std::string& address, int prefix,
                 const std::string& broadcast = "");
  int deleteAddress(const std::string& name, const std::string& address, int prefix);
  // Default routes of the main table in every form the kernel keeps: one nexthop (a gateway, or
  // none for a device route), several (multipath), or a nexthop object by id.
  struct Hop {
    std::string dev;
    std::string gateway;  // empty: a device route
  };
  struct Route {
    uint32_t metric = 0;
    std::vector<Hop> hops;
    uint32_t nhid = 0;
    std::string prefsrc;  // empty: none
  };
  // The request flags of `ip route add` (create, exclusive), `prepend` (create), `append` (create,
  // append), `replace` (create, replace), `change` (replace) and `del`.
  enum class Verb { Add, Prepend, Append, Replace, Change, Delete };
  int defaultRoute(Verb verb, const Route& route);
  // Nexthop objects: one nexthop on `dev` (through `gateway` when not empty), or a group of other
  // objects.
  struct Nexthop {
    uint32_t id = 0;
    std::string dev;
    std::string gateway;
    std::vector<uint32_t> group;
  };
  int addNexthop(const Nexthop& nexthop, bool replace);
  int deleteNexthop(uint32_t id);

  // While false, every request is sent without waiting for its answer, to make many changes
  // quickly; drain() reads the answers owed and returns the first error.
  void setWaiting(bool wait) { waiting_ = wait; }
  int drain();

 private:
  int request(void* nlh);
  int fd_ = -1;
  bool waiting_ = true;
  uint32_t seq_ = 1;
  int owed_ = 0;
};

// Writes a value under /proc/sys/ (for the calling thread's namespace where the file is per
// namespace), e.g. setSysctl("net/ipv4/conf/eth0/promote_secondaries", "1").
bool setSysctl(const std::string& path, const std::string& value);

// The kernel's ifindex of a link, 0 when absent.
unsigned linkIndex(const std::string& name);

}  // namespace tq::test

#define TQ_ENTER_FRESH_NETNS(ns)                                                   \
  ::tq::test::NetNamespace ns;                                                     \
  if (!ns.ok()) GTEST_SKIP() << "needs a fresh network namespace: " << ns.reason()
