// DefaultRouteTable: the IPv4 default routes of the kernel's main table, in the kernel's own order,
// and the nexthop objects they may name, kept up to date from rtnetlink messages.
//
// The kernel keeps the routes of one prefix in a list sorted by TOS (descending) and metric
// (ascending); routes of equal TOS and metric form a group in which `ip route add`/`prepend` puts a
// new route first, `append` puts it last, and `replace`/`change` (NLM_F_REPLACE) takes the place of
// the group's first route. Its notifications carry those flags, so the list is followed without
// reading it again.
//
// The kernel also drops routes without a word (no RTM_DELROUTE): when a link goes down or away, when
// the last IPv4 address of a link goes, when the preferred source address of a route stops being a
// local address, and when a nexthop object goes (nexthop objects go silently too, when their link
// goes down, loses carrier or goes away). The store tells the table of those events and the table
// drops what the kernel drops.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <map>
#include <vector>

namespace tq::store {

struct RouteHop {
  int oif = 0;
  uint32_t gateway = 0;  // network byte order; 0 for a device route
  uint8_t weight = 0;
  bool dead = false;  // the kernel marked it dead (its link went down)
  bool sameAs(const RouteHop& o) const { return oif == o.oif && gateway == o.gateway && weight == o.weight; }
};

struct DefaultRoute {
  uint8_t tos = 0;
  uint8_t type = 0;
  uint8_t scope = 0;
  uint8_t protocol = 0;
  uint32_t metric = 0;
  uint32_t prefsrc = 0;
  uint32_t nhid = 0;             // nexthop object, 0 when the route carries its own nexthops
  std::vector<RouteHop> hops;    // as the message gives them (expanded from the object when it names one)
  // Whether the kernel would take the two for the same route (the same route information).
  bool sameRoute(const DefaultRoute& o) const;
};

struct NexthopObject {
  uint32_t id = 0;
  int oif = 0;
  uint32_t gateway = 0;  // IPv4 gateway, network byte order
  bool blackhole = false;
  bool ipv4 = true;
  std::vector<uint32_t> group;  // member ids, for a group
};

class DefaultRouteTable {
 public:
  // A route or nexthop message (RTM_NEWROUTE, RTM_DELROUTE, RTM_NEWNEXTHOP, RTM_DELNEXTHOP). Messages
  // of a dump are added at the end in the order given. Returns true when the table changed.
  bool apply(const nlmsghdr* message, bool fromDump);

  // What the kernel does silently. Each returns true when the table changed.
  bool linkDown(int index);       // IFF_UP cleared
  bool linkUp(int index);         // IFF_UP set: dead nexthops on it revive
  bool carrierLost(int index);    // lower layer down while up
  bool linkRemoved(int index);
  bool lastAddressGone(int index);
  bool localAddressGone(uint32_t address);

  void clear();

  // Calls f(metric, oif, gateway) for every usable hop of every unicast default route, in the
  // kernel's order; hops of a route that names a nexthop object come from that object.
  template <class F>
  void forEachHop(F f) const {
    for (const DefaultRoute& r : routes_) {
      if (r.type != 1 /* RTN_UNICAST */) continue;
      if (r.nhid) {
        auto it = nexthops_.find(r.nhid);
        if (it != nexthops_.end()) {
          const NexthopObject& nh = it->second;
          if (nh.group.empty()) {
            if (!nh.blackhole && nh.ipv4) f(r.metric, nh.oif, nh.gateway);
          } else {
            for (uint32_t member : nh.group) {
              auto m = nexthops_.find(member);
              if (m != nexthops_.end() && !m->second.blackhole && m->second.ipv4 && m->second.group.empty())
                f(r.metric, m->second.oif, m->second.gateway);
            }
          }
          continue;
        }
      }
      for (const RouteHop& h : r.hops) f(r.metric, h.oif, h.gateway);
    }
  }

  const std::vector<DefaultRoute>& routes() const { return routes_; }
  std::size_t nexthopCount() const { return nexthops_.size(); }

 private:
  bool applyRoute(const nlmsghdr* nlh, bool removed, bool fromDump);
  bool applyNexthop(const nlmsghdr* nlh, bool removed, bool fromDump);
  bool removeNexthop(uint32_t id);
  bool flushNexthopsOn(int index, bool keepBlackholes);
  bool dropRoutesUsing(uint32_t nhid);
  // Marks the hops of routes (not those by nexthop object) through link `index` dead.
  bool markHopsDead(int index);
  bool dropDeadRoutes();

  std::vector<DefaultRoute> routes_;
  std::map<uint32_t, NexthopObject> nexthops_;
};

}  // namespace tq::store
