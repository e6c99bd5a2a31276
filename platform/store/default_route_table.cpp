#include "default_route_table.h"

#include <libmnl/libmnl.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace tq::store {

namespace {

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

bool u32(const nlattr* a, uint32_t& v) {
  if (!a || mnl_attr_validate(a, MNL_TYPE_U32) < 0) return false;
  v = mnl_attr_get_u32(a);
  return true;
}

bool ipv4(const nlattr* a, uint32_t& v) {
  if (!a || mnl_attr_get_payload_len(a) != 4) return false;
  v = mnl_attr_get_u32(a);
  return true;
}

// A gateway given as RTA_VIA (another family's address, or IPv4 written that way).
void via(const nlattr* a, RouteHop& hop) {
  std::size_t n = mnl_attr_get_payload_len(a);
  auto* v = static_cast<const rtvia*>(mnl_attr_get_payload(a));
  if (n < sizeof(rtvia)) return;
  n -= sizeof(rtvia);
  if (v->rtvia_family == AF_INET6 && n >= 16)
    std::copy_n(v->rtvia_addr, 16, hop.gateway6.begin());
  else if (v->rtvia_family == AF_INET && n >= 4)
    std::memcpy(&hop.gateway, v->rtvia_addr, 4);
}

// The kernel shows a hop dead when it is, and also, with ignore_routes_with_linkdown, when it has
// the linkdown mark; a hop it killed has that mark too unless its carrier came back since.
HopLife shownLife(unsigned flags) {
  if (!(flags & RTNH_F_DEAD)) return HopLife::Alive;
  return flags & RTNH_F_LINKDOWN ? HopLife::Shown : HopLife::Dead;
}

}  // namespace

bool DefaultRoute::sameRoute(const DefaultRoute& o, bool shown) const {
  if (tos != o.tos || metric != o.metric || scope != o.scope || protocol != o.protocol || prefsrc != o.prefsrc ||
      nhid != o.nhid)
    return false;
  // The object decides the hops; a type shown for a blackhole object says nothing of the route's own.
  if (nhid) return type == o.type || (shown && (typeOfObject || o.typeOfObject));
  if (type != o.type || hops.size() != o.hops.size()) return false;
  for (std::size_t i = 0; i < hops.size(); ++i)
    if (!hops[i].sameAs(o.hops[i])) return false;
  return true;
}

bool DefaultRouteTable::apply(const nlmsghdr* nlh, bool fromDump) {
  switch (nlh->nlmsg_type) {
    case RTM_NEWROUTE: return applyRoute(nlh, false, fromDump);
    case RTM_DELROUTE: return applyRoute(nlh, true, fromDump);
    case RTM_NEWNEXTHOP: return applyNexthop(nlh, false, fromDump);
    case RTM_DELNEXTHOP: return applyNexthop(nlh, true, fromDump);
    default: return false;
  }
}

bool DefaultRouteTable::applyRoute(const nlmsghdr* nlh, bool removed, bool fromDump) {
  if (mnl_nlmsg_get_payload_len(nlh) < sizeof(rtmsg)) return false;
  auto* rtm = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(nlh));
  if (rtm->rtm_family != AF_INET || rtm->rtm_dst_len != 0) return false;
  Attrs<RTA_MAX + 1> tb;
  if (mnl_attr_parse(nlh, sizeof(rtmsg), collect<RTA_MAX + 1>, &tb) < 0) return false;
  uint32_t table = rtm->rtm_table;
  u32(tb[RTA_TABLE], table);
  if (table != RT_TABLE_MAIN) return false;

  DefaultRoute r;
  r.tos = rtm->rtm_tos;
  r.type = rtm->rtm_type;
  r.scope = rtm->rtm_scope;
  r.protocol = rtm->rtm_protocol;
  u32(tb[RTA_PRIORITY], r.metric);
  ipv4(tb[RTA_PREFSRC], r.prefsrc);
  u32(tb[RTA_NH_ID], r.nhid);
  if (r.nhid && r.type == RTN_BLACKHOLE) {
    auto object = nexthops_.find(r.nhid);
    r.typeOfObject = object != nexthops_.end() && object->second.blackhole;
  }
  if (const nlattr* mp = tb[RTA_MULTIPATH]) {
    auto* p = static_cast<const uint8_t*>(mnl_attr_get_payload(mp));
    std::size_t left = mnl_attr_get_payload_len(mp);
    while (left >= sizeof(rtnexthop)) {
      auto* nh = reinterpret_cast<const rtnexthop*>(p);
      if (nh->rtnh_len < sizeof(rtnexthop) || nh->rtnh_len > left) break;
      RouteHop hop;
      hop.oif = nh->rtnh_ifindex;
      hop.weight = nh->rtnh_hops;
      hop.life = shownLife(nh->rtnh_flags);
      int attrLen = static_cast<int>(nh->rtnh_len) - static_cast<int>(RTNH_ALIGN(sizeof(rtnexthop)));
      auto* attr = reinterpret_cast<const nlattr*>(p + RTNH_ALIGN(sizeof(rtnexthop)));
      while (attrLen > 0 && mnl_attr_ok(attr, attrLen)) {
        if (mnl_attr_get_type(attr) == RTA_GATEWAY) ipv4(attr, hop.gateway);
        if (mnl_attr_get_type(attr) == RTA_VIA) via(attr, hop);
        attrLen -= static_cast<int>(MNL_ALIGN(attr->nla_len));
        attr = mnl_attr_next(attr);
      }
      r.hops.push_back(hop);
      std::size_t step = RTNH_ALIGN(nh->rtnh_len);
      if (step >= left) break;
      p += step;
      left -= step;
    }
  } else {
    uint32_t oif = 0;
    RouteHop hop;
    if (u32(tb[RTA_OIF], oif)) {
      hop.oif = static_cast<int>(oif);
      ipv4(tb[RTA_GATEWAY], hop.gateway);
      if (tb[RTA_VIA]) via(tb[RTA_VIA], hop);
      hop.life = shownLife(rtm->rtm_flags);
      r.hops.push_back(hop);
    }
  }

  // A message that adds a route names its own type, unless it is older than the dump that holds it.
  bool adds = !removed && (nlh->nlmsg_flags & NLM_F_CREATE);
  auto same = [&](const DefaultRoute& o) { return o.sameRoute(r, !adds); };
  if (removed) {
    auto it = std::find_if(routes_.begin(), routes_.end(), same);
    if (it == routes_.end()) return false;
    routes_.erase(it);
    return true;
  }
  if (fromDump) {
    routes_.push_back(std::move(r));
    return true;
  }
  // The first route of the new route's group, or the route the new group goes before.
  std::size_t pos = 0;
  while (pos < routes_.size() && !(routes_[pos].tos < r.tos ||
                                   (routes_[pos].tos == r.tos && routes_[pos].metric >= r.metric)))
    ++pos;
  std::size_t end = pos;
  while (end < routes_.size() && routes_[end].tos == r.tos && routes_[end].metric == r.metric) ++end;
  auto first = routes_.begin() + static_cast<std::ptrdiff_t>(pos);
  auto last = routes_.begin() + static_cast<std::ptrdiff_t>(end);
  auto existing = std::find_if(first, last, same);
  if (existing != last) {
    // The kernel refuses exact duplicates, so this is the route itself: announced again because its
    // nexthop object changed (which may change the type shown), or a message older than the dump
    // that already holds it (whose dead marks may be out of date: the table's stand).
    if (!existing->nhid || (existing->type == r.type && existing->typeOfObject == r.typeOfObject)) return false;
    existing->type = r.type;
    existing->typeOfObject = r.typeOfObject;
    return true;
  }
  if ((nlh->nlmsg_flags & NLM_F_REPLACE) && pos < end) {
    *first = std::move(r);
  } else if (nlh->nlmsg_flags & NLM_F_APPEND) {
    routes_.insert(last, std::move(r));
  } else {
    routes_.insert(first, std::move(r));
  }
  return true;
}

bool DefaultRouteTable::applyNexthop(const nlmsghdr* nlh, bool removed, bool) {
  if (mnl_nlmsg_get_payload_len(nlh) < sizeof(nhmsg)) return false;
  Attrs<NHA_MAX + 1> tb;
  if (mnl_attr_parse(nlh, sizeof(nhmsg), collect<NHA_MAX + 1>, &tb) < 0) return false;
  NexthopObject nh;
  if (!u32(tb[NHA_ID], nh.id) || nh.id == 0) return false;
  if (removed) return removeNexthop(nh.id);
  nh.blackhole = tb[NHA_BLACKHOLE] != nullptr;
  uint32_t oif = 0;
  if (u32(tb[NHA_OIF], oif)) nh.oif = static_cast<int>(oif);
  ipv4(tb[NHA_GATEWAY], nh.gateway);  // an IPv6 gateway leaves it 0
  if (const nlattr* g = tb[NHA_GROUP]) {
    auto* entries = static_cast<const nexthop_grp*>(mnl_attr_get_payload(g));
    std::size_t n = mnl_attr_get_payload_len(g) / sizeof(nexthop_grp);
    for (std::size_t i = 0; i < n; ++i) nh.group.push_back(entries[i].id);
  }
  nexthops_[nh.id] = std::move(nh);
  return true;
}

bool DefaultRouteTable::dropRoutesUsing(uint32_t nhid) {
  return std::erase_if(routes_, [&](const DefaultRoute& r) { return r.nhid == nhid; }) > 0;
}

bool DefaultRouteTable::removeNexthop(uint32_t id) {
  if (!nexthops_.erase(id)) return false;
  dropRoutesUsing(id);
  // Groups lose the member; a group left empty goes with it.
  std::vector<uint32_t> emptied;
  for (auto& [gid, g] : nexthops_) {
    if (g.group.empty()) continue;
    std::erase(g.group, id);
    if (g.group.empty()) emptied.push_back(gid);
  }
  for (uint32_t gid : emptied) removeNexthop(gid);
  return true;
}

bool DefaultRouteTable::flushNexthopsOn(int index, bool keepBlackholes) {
  std::vector<uint32_t> gone;
  for (auto& [id, nh] : nexthops_)
    if (nh.group.empty() && nh.oif == index && !(keepBlackholes && nh.blackhole)) gone.push_back(id);
  bool changed = false;
  for (uint32_t id : gone) changed |= removeNexthop(id);
  return changed;
}

void DefaultRouteTable::settleByExistence(DefaultRoute& r) {
  RouteHop* candidate = nullptr;
  for (RouteHop& h : r.hops) {
    if (h.life == HopLife::Dead) continue;
    if (h.life != HopLife::Unknown || candidate) return;
    candidate = &h;
  }
  if (candidate) candidate->life = HopLife::Alive;
}

bool DefaultRouteTable::killHops(int index, bool force) {
  bool changed = false;
  std::erase_if(routes_, [&](DefaultRoute& r) {
    if (r.nhid) return false;
    bool through = false, unknown = false, alive = false;
    for (RouteHop& h : r.hops) {
      if (h.oif == index) {
        through = true;
        if (h.life != HopLife::Dead && (force || r.scope != RT_SCOPE_HOST)) {
          h.life = HopLife::Dead;
          changed = true;
        }
      }
      unknown |= h.life == HopLife::Unknown;
      alive |= h.life == HopLife::Alive || h.life == HopLife::Shown;
    }
    if (!through || alive || r.hops.empty()) return false;
    if (unknown) {
      unknownAtStake_ = true;
      return false;
    }
    changed = true;
    return true;
  });
  return changed;
}

bool DefaultRouteTable::linkDown(int index) {
  bool changed = killHops(index, false);
  changed |= flushNexthopsOn(index, true);
  return changed;
}

bool DefaultRouteTable::reviveHops(int index) {
  bool changed = false;
  for (DefaultRoute& r : routes_)
    for (RouteHop& h : r.hops)
      if (h.oif == index && h.life != HopLife::Alive) {
        h.life = HopLife::Alive;
        changed = true;
      }
  return changed;
}

bool DefaultRouteTable::carrierLost(int index) { return flushNexthopsOn(index, true); }

bool DefaultRouteTable::linkRemoved(int index) {
  bool changed = std::erase_if(routes_, [&](const DefaultRoute& r) {
                   return r.nhid == 0 &&
                          std::any_of(r.hops.begin(), r.hops.end(), [&](const RouteHop& h) { return h.oif == index; });
                 }) > 0;
  changed |= flushNexthopsOn(index, false);
  return changed;
}

bool DefaultRouteTable::lastAddressGone(int index) { return killHops(index, true); }

bool DefaultRouteTable::localAddressGone(uint32_t address) {
  return std::erase_if(routes_, [&](const DefaultRoute& r) { return r.prefsrc == address; }) > 0;
}

void DefaultRouteTable::clear() {
  routes_.clear();
  nexthops_.clear();
  unknownAtStake_ = false;
}

}  // namespace tq::store
