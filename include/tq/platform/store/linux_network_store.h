// LinuxNetworkStore: a StoreConnection whose keys and values are made from the Linux kernel's
// network state, read over rtnetlink (links, IPv4 addresses, IPv4 routes, nexthop objects) and
// nl80211 (wireless).
//
// Keys and values (a service identifier is the interface name; NAME is the interface name as
// described under "Names" below):
//
//   "State:/Network/Interface"                {"Interfaces": [NAME, ...]}, every link, in kernel
//                                             interface-index order.
//   "Setup:/Network/Service/NAME/Interface"   {"DeviceName": NAME, "Type": TYPE}, every link. TYPE is
//                                             "IEEE80211" for wireless links, else by link kind and
//                                             hardware type: "Bridge", "Bond", "VLAN", "Ethernet"
//                                             (any other Ethernet-framed link: veth, tap, dummy, NICs),
//                                             "Loopback", "PPP", "FireWire", "IPIP", "6to4",
//                                             "Tunnel" (other layer-3 tunnels, tun devices), or
//                                             "Other".
//   "State:/Network/Interface/NAME/Link"      {"Active": BOOL}, every link: true when the link is
//                                             administratively up (IFF_UP) and has carrier.
//   "State:/Network/Interface/NAME/IPv4"      {"Addresses": [A, ...], "SubnetMasks": [M, ...],
//                                             "BroadcastAddresses": [B, ...]}, only for links with at
//                                             least one IPv4 address: dotted-quad strings in the
//                                             kernel's order (primary addresses first), except that
//                                             the primary interface's list starts with the address
//                                             the kernel sends from (see "Primary address"); the
//                                             three arrays are parallel, and "BroadcastAddresses" is
//                                             left out unless every address has a broadcast address.
//   "State:/Network/Interface/NAME/AirPort"   wireless links only: {"Link Status": 4} with "BSSID"
//                                             (6 bytes of Data) and "SSID" (a String when the bytes
//                                             are UTF-8, else the raw Data) while joined to a
//                                             network; {"Link Status": 1} when not joined. As the
//                                             wireless source shows it: with nl80211, a roam between
//                                             access points is a new BSSID with the link joined
//                                             throughout (see makeNl80211WirelessSource). A link
//                                             that goes while joined is first reported not joined,
//                                             in a batch of its own, then removed.
//   "State:/Network/Global/IPv4"              {"PrimaryInterface": NAME, "PrimaryService": NAME,
//                                             "Router": GATEWAY (only for a hop with a gateway)},
//                                             from the unicast default routes (0.0.0.0/0) of the main
//                                             table: the first hop, in the kernel's own order of
//                                             routes and of the hops of a multipath route, among
//                                             those of lowest metric whose link is active and has an
//                                             IPv4 address. A route that names a nexthop object (or
//                                             group) takes its hops from the object. A hop through
//                                             an IPv6 gateway counts alike whether the route names it
//                                             ("via inet6") or its nexthop object does; it gives no
//                                             "Router". Absent when no hop qualifies.
//
// Primary address. The first address of the primary interface's IPv4 value is the one the kernel
// gives as the source of what it sends through the primary hop (what `ip route get` to an outside
// address through that interface shows), so that the first address a reader takes is the machine's
// address as others see it: the route's preferred source ("src") when it has one; otherwise the
// first of the interface's primary addresses (not secondaries, in the kernel's order) of a scope at
// least as wide as the route's whose subnet holds the route's IPv4 gateway, or the first of those
// when none does or the hop has no IPv4 gateway (a device route, an IPv6 gateway). When that address
// is not one of the interface's own (a preferred source on another link, or no address of a wide
// enough scope, when the kernel takes one from another link), the list keeps the kernel's order.
//
// copyKeyList matches over exactly these keys. Renamed, removed and re-created links are followed:
// the keys under an old name disappear (reported as changed, with no value) and the new ones appear.
//
// Names. Interface names are bytes to the kernel. In keys and values a name stands as its text when
// it is valid UTF-8, except that each backslash is doubled; every byte that is not part of a valid
// UTF-8 sequence is written \xHH (a backslash, x, two lower-case hex digits). So the names "n" 0xFF
// and "n" 0xFE are "n\xff" and "n\xfe", the name n\xff (with a real backslash) is "n\\xff", and
// distinct names never share keys.
//
// Reports. A batch names the watched keys whose values differ from what they were when the previous
// batch went out, in the order of their first change; read with copyValue, they give the state the
// kernel is in. So a watcher that replays every batch (the value of each key, nil for a removed key)
// holds exactly what a fresh read gives once the coalescing window has passed. A key that changed
// and changed back between two batches may be left out; a key whose change is owed is never dropped.
// The global key is also reported whenever the primary interface's IPv4 value changes, even when
// its own value stays the same, so that its watchers learn of a new primary address.
//
// Kernel events followed: RTM_NEWLINK/RTM_DELLINK (flags, carrier, name, kind), RTM_NEWADDR/
// RTM_DELADDR (IPv4; each message updates one address, keeping the kernel's order through
// secondaries and promotions), RTM_NEWROUTE/RTM_DELROUTE (IPv4 default routes of the main table,
// placed as the kernel places them: add and prepend first among routes of equal metric, append
// last, replace and change in place of the first), RTM_NEWNEXTHOP/RTM_DELNEXTHOP (nexthop objects
// and groups). What the kernel changes without a message is followed too:
//   - a link goes down: the hops through it die (the hop of a host-scope route aside), routes left
//     without a live hop go, and so do the nexthop objects on it (blackholes aside);
//   - a link comes up, or is given an IPv4 address while it is up: its dead hops revive;
//   - a link loses carrier: the nexthop objects on it go (blackholes aside); the hops through it live
//     on, though with net.ipv4.conf.*.ignore_routes_with_linkdown the kernel shows them dead (a hop
//     so shown is dead when its link is down, alive when its link is up with an IPv4 address or is
//     its route's only hop; through a link up with neither carrier nor address it may have died with
//     the link's last address, and when a route's fate hangs on such hops the state is read again);
//   - a link's last IPv4 address goes: every hop through it dies, and routes left without a live
//     hop go;
//   - a link goes away: every route with a hop through it goes, and every nexthop object on it;
//   - an address stops being local to any link: the routes preferring it as their source go;
//   - a nexthop object goes: the routes using it go, and it leaves its groups (a group left empty
//     goes, with its routes).
//
// Change delivery. Kernel messages are read when the run loop finds a socket readable (the
// connection's RunLoopSource watches its descriptors; nothing polls and no thread is started). Each
// message updates the state it is about; values are made again only when a batch goes out or a
// value is asked for, and only the parts of a link that changed. An IPv4 value is made when it is
// asked for, when it is watched and its addresses change, or when its link is the primary
// interface: so an address flood on an unwatched link delays nothing else, and a store that starts
// by watching every key makes no IPv4 value until one is needed. A batch goes out as soon
// as the socket has been read dry, unless the previous batch went out less than the coalescing
// window ago: then the changes gather until that window ends (a timer in the loop), so a burst of
// kernel events costs at most one batch per window while a lone event is reported at once.
//
// Consistency. When the kernel drops messages for this socket (ENOBUFS on a full receive buffer),
// or a dump is interrupted, the whole state is read again and compared with what the store holds,
// link by link: only what differs is made again and reported, so the store never drifts from the
// kernel and a read that finds little changed costs little more than the kernel's dumps. Events
// that come during the read are applied after it, except those older than the dump of their kind
// (which shows their effects already, and those of the silent changes that followed them).
//
// Threads: create, use and destroy a store on one thread; its source is to be added to that thread's
// loop. The callout runs on that loop.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>

#include "tq/platform/store/store_connection.h"
#include "tq/platform/store/wireless_source.h"

namespace tq {

class LinuxNetworkStore : public StoreConnection {
 public:
  struct Options {
    // Changes arriving within this time of the previous batch wait for its end (see above).
    std::chrono::milliseconds coalescingWindow{4};
    // Receive buffer of the rtnetlink socket, in bytes (SO_RCVBUFFORCE when permitted, otherwise
    // SO_RCVBUF, which the kernel caps); 0 keeps the system's default.
    int receiveBufferBytes = 4 << 20;
    // Wireless state: the given source, or, when null and useSystemWireless is true, nl80211.
    std::shared_ptr<WirelessSource> wireless;
    bool useSystemWireless = true;
  };
  struct Statistics {
    uint64_t messages = 0;   // kernel messages handled
    uint64_t overruns = 0;   // times the kernel dropped messages for this socket
    uint64_t fullReads = 0;  // times the whole state was read (the first read included)
    uint64_t batches = 0;    // batches handed to the callout
  };

  // Opens the sockets, reads the whole state and makes the source. nullptr when rtnetlink cannot be
  // opened. The callout is called with this store and the changed watched keys.
  static std::shared_ptr<LinuxNetworkStore> create(const String& name, Callout callout);
  static std::shared_ptr<LinuxNetworkStore> create(const String& name, Callout callout, Options options);
  // A factory for SCDynamicStore-style users.
  static StoreConnectionFactory factory();
  static StoreConnectionFactory factory(Options options);

  ~LinuxNetworkStore() override;

  Value copyValue(const String& key) override;
  Array copyKeyList(const String& pattern) override;
  bool setNotificationKeys(const Array& keys, const Array& patterns) override;
  std::shared_ptr<RunLoopSource> runLoopSource() override;
  String className() const override { return String(u"LinuxNetworkStore"); }

  // Reads the whole state again now; differences are delivered as a batch like any change.
  void resynchronize();
  // Handles whatever the sockets hold now, without the loop, and delivers the batch at once when
  // there is one (ignoring the coalescing window). For hosts that drive the store themselves.
  void processPendingMessages();
  Statistics statistics() const;
  // The number of keys held now.
  std::size_t keyCount() const;

  struct Impl;

 private:
  explicit LinuxNetworkStore(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace tq
