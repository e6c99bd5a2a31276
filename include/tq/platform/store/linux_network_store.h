// LinuxNetworkStore: a StoreConnection whose keys and values are made from the Linux kernel's
// network state, read over rtnetlink (links, IPv4 addresses, IPv4 routes) and nl80211 (wireless).
//
// Keys and values (a service identifier is the interface name; NAME is a kernel interface name):
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
//                                             kernel's order (primary addresses first); the three
//                                             arrays are parallel, and "BroadcastAddresses" is
//                                             left out unless every address has a broadcast address.
//   "State:/Network/Interface/NAME/AirPort"   wireless links only: {"Link Status": 4} with "BSSID"
//                                             (6 bytes of Data) and "SSID" (a String when the bytes
//                                             are UTF-8, else the raw Data) while joined to a
//                                             network; {"Link Status": 1} when not joined.
//   "State:/Network/Global/IPv4"              {"PrimaryInterface": NAME, "PrimaryService": NAME,
//                                             "Router": GATEWAY (only for a route with a gateway)},
//                                             from the default route (destination 0.0.0.0/0, main
//                                             table, unicast) of lowest metric whose link is active
//                                             and has an IPv4 address; ties go to the route the
//                                             kernel lists first. Absent when no route qualifies.
//
// copyKeyList matches over exactly these keys. Renamed, removed and re-created links are followed:
// the keys under an old name disappear (reported as changed, with no value) and the new ones appear.
//
// Change delivery. Kernel messages are read when the run loop finds a socket readable (the
// connection's RunLoopSource watches its descriptors; nothing polls and no thread is started). The
// values touched by them are made again and compared with the last values made; the watched keys
// whose values differ are handed to the callout as one batch. A batch goes out as soon as the
// socket has been read dry, unless the previous batch went out less than the coalescing window ago:
// then the changes gather until that window ends (a timer in the loop), so a burst of kernel events
// costs at most one batch per window while a lone event is reported at once.
//
// Consistency. When the kernel drops messages for this socket (ENOBUFS on a full receive buffer),
// or a dump is interrupted, the whole state is read again and only what differs is reported, so the
// store never drifts from the kernel. Addresses of a link are read again from the kernel after every
// address event, which keeps the kernel's order (promotions of secondaries included); routes are read
// again after a link goes down or away and after an address goes, since the kernel drops routes then
// without telling.
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
