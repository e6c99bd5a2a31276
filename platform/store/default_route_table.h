// DefaultRouteTable: the IPv4 default routes of the kernel's main table, in the kernel's own order,
// and the nexthop objects they may name, kept up to date from rtnetlink messages.
//
// The kernel keeps the routes of one prefix in a list sorted by TOS (descending) and metric
// (ascending); routes of equal TOS and metric form a group in which `ip route add`/`prepend` puts a
// new route first, `append` puts it last, and `replace`/`change` (NLM_F_REPLACE) takes the place of
// the group's first route. Its notifications carry those flags, so the list is followed without
// reading it again.
//
// The kernel also changes routes without a word (no route message), and the store tells the table
// of the events that make it do so:
//  - a link goes down: the hops through it die, except the one hop of a host-scope route; a route
//    left with no live hop goes; the nexthop objects on the link go, blackholes aside;
//  - a link comes up, or is given an IPv4 address while it is up: the dead hops through it revive;
//  - a link loses carrier: the nexthop objects on it go, blackholes aside;
//  - a link's last IPv4 address goes: every hop through it dies, and routes left with no live hop go;
//  - a link goes away: every route with a hop through it goes, and every nexthop object on it;
//  - an address stops being local to any link: the routes preferring it as their source go;
//  - a nexthop object goes: the routes using it go, groups lose it, and a group left empty goes too.
// Only a link going down or losing its last IPv4 address kills a hop. A link without carrier does
// not, but with ignore_routes_with_linkdown the kernel shows its hops dead all the same (with the
// linkdown mark beside): such a mark is read against the link's state when the message comes (a hop through a
// link that is down is dead; through one that is up with an IPv4 address, alive; the one hop of a
// route, alive, or the kernel would have dropped the route). Through a link that is up with neither
// carrier nor address the mark cannot tell (the hop may have died with the link's last address), and
// the hop's state is unknown until the link goes down, comes up or is given an address; when the
// fate of a route hangs on it, the table says so (takeUnknownAtStake) and the kernel's own dump tells.
// A route by nexthop object has no hops of its own: the object decides them, and while the object is
// a blackhole the kernel shows the route as one, whatever its own type.
#pragma once

#include <linux/netlink.h>

#include <array>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace tq::store {

// Whether the kernel counts a hop dead (RTNH_F_DEAD), which is not always what it shows.
enum class HopLife : uint8_t {
  Alive,
  Dead,
  Shown,    // shown dead and linkdown, not yet read against its link's state (see settleShownMarks)
  Unknown,  // shown so through a link that is up with neither carrier nor IPv4 address
};

struct RouteHop {
  int oif = 0;
  uint32_t gateway = 0;                // IPv4 gateway, network byte order; 0 for none or an IPv6 one
  std::array<uint8_t, 16> gateway6{};  // an IPv6 gateway ("via inet6"), else zero
  uint8_t weight = 0;
  HopLife life = HopLife::Alive;
  bool sameAs(const RouteHop& o) const {
    return oif == o.oif && gateway == o.gateway && gateway6 == o.gateway6 && weight == o.weight;
  }
};

struct DefaultRoute {
  uint8_t tos = 0;
  uint8_t type = 0;   // as the kernel reports it: a route by a blackhole nexthop object reads blackhole
  bool typeOfObject = false;  // `type` is the object's blackhole, not the route's own type
  uint8_t scope = 0;
  uint8_t protocol = 0;
  uint32_t metric = 0;
  uint32_t prefsrc = 0;
  uint32_t nhid = 0;             // nexthop object, 0 when the route carries its own nexthops
  std::vector<RouteHop> hops;    // as the message gives them (expanded from the object when it names one)
  // Whether the kernel would take the two for the same route (the same route information). `shown`:
  // the type either one reads may be its blackhole object's rather than its own (a message about a
  // route that exists already: an update or a removal).
  bool sameRoute(const DefaultRoute& o, bool shown) const;
};

struct NexthopObject {
  uint32_t id = 0;
  int oif = 0;
  uint32_t gateway = 0;  // IPv4 gateway, network byte order; 0 for none or an IPv6 one
  bool blackhole = false;
  std::vector<uint32_t> group;  // member ids, for a group
};

class DefaultRouteTable {
 public:
  // A route or nexthop message (RTM_NEWROUTE, RTM_DELROUTE, RTM_NEWNEXTHOP, RTM_DELNEXTHOP). Messages
  // of a dump are added at the end in the order given. Returns true when the table changed.
  bool apply(const nlmsghdr* message, bool fromDump);

  // What the kernel does silently. Each returns true when the table changed.
  bool linkDown(int index);       // IFF_UP cleared
  bool reviveHops(int index);     // IFF_UP set, or an IPv4 address added while up
  bool carrierLost(int index);    // lower layer down while up
  bool linkRemoved(int index);
  bool lastAddressGone(int index);
  bool localAddressGone(uint32_t address);

  // Reads the marks of hops shown dead and linkdown against their links' state: `link(index)`
  // answers a struct with `known`, `up` (IFF_UP) and `hasIPv4` (the link has an IPv4 address).
  // Called once the state of the links is that of the messages' time.
  template <class LinkState>
  void settleShownMarks(LinkState link) {
    for (DefaultRoute& r : routes_) {
      bool shown = false;
      for (RouteHop& h : r.hops) {
        if (h.life != HopLife::Shown) continue;
        shown = true;
        auto state = link(h.oif);
        if (r.hops.size() == 1) h.life = HopLife::Alive;
        else if (!state.known) h.life = HopLife::Unknown;
        else if (!state.up) h.life = HopLife::Dead;
        else h.life = state.hasIPv4 ? HopLife::Alive : HopLife::Unknown;
      }
      if (shown) settleByExistence(r);
    }
  }
  // True once when a link going down or losing its last address left a route whose fate hangs on
  // hops of unknown state: the kernel's dump is to be read.
  bool takeUnknownAtStake() { return std::exchange(unknownAtStake_, false); }

  void clear();

  // Calls f(route, oif, gateway) for every hop of every unicast default route, in the kernel's
  // order; the hops of a route that names a nexthop object come from that object. `gateway` is the
  // IPv4 gateway, 0 for a device hop or an IPv6 gateway.
  template <class F>
  void forEachHop(F f) const {
    for (const DefaultRoute& r : routes_) {
      if (r.type != 1 /* RTN_UNICAST */) continue;
      if (r.nhid) {
        auto it = nexthops_.find(r.nhid);
        if (it != nexthops_.end()) {
          const NexthopObject& nh = it->second;
          if (nh.group.empty()) {
            if (!nh.blackhole) f(r, nh.oif, nh.gateway);
          } else {
            for (uint32_t member : nh.group) {
              auto m = nexthops_.find(member);
              if (m != nexthops_.end() && !m->second.blackhole && m->second.group.empty())
                f(r, m->second.oif, m->second.gateway);
            }
          }
          continue;
        }
      }
      for (const RouteHop& h : r.hops) f(r, h.oif, h.gateway);
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
  // Marks the hops of routes (not those by nexthop object) through link `index` dead; unless
  // `force`, not the hop of a host-scope route. Of the routes through the link, those left with no
  // live hop go.
  bool killHops(int index, bool force);
  // A route exists, so one of its hops lives: when that can only be one hop of unknown state, it is.
  static void settleByExistence(DefaultRoute& r);

  std::vector<DefaultRoute> routes_;
  std::map<uint32_t, NexthopObject> nexthops_;
  bool unknownAtStake_ = false;
};

}  // namespace tq::store
