// AirportObserver: joins and departures of one wireless interface.
//
// The observer watches "State:/Network/Interface/NAME/AirPort" and posts, to
// NotificationCenter::defaultCenter() with no sender:
//   "AirportConnectedNotification"     userInfo {"SSID": the new network's SSID}
//   "AirportDisconnectedNotification"  userInfo {"SSID": the SSID of the network that was left}
//
// On each change of the key the new state dictionary is compared with the last accepted one, in
// this order:
//   1. "Link Status" 1 (not joined) while nothing is known: ignored, nothing kept;
//   2. same "BSSID" (byte for byte) as the last accepted state: ignored, not kept, whatever the
//      link status says; a missing old BSSID never matches;
//   3. status 1: "AirportDisconnectedNotification" with the old state's SSID, if it had one;
//      any other status (absence reads as 0): "AirportConnectedNotification" with the new SSID, if
//      there is one;
//   4. the new state is kept (a removed key keeps nil).
// So a move to another access point of the same network posts "AirportConnectedNotification"
// again, and a status change at the same access point posts nothing.
//
// Lifetime: once created, the observer is kept alive by its registration with the store.
// Threads: the store's thread.
#pragma once

#include <memory>

#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class AirportObserver : public Object {
 public:
  // A new observer for the wireless interface `interfaceName` (a device name such as wlan0, used
  // as it is) on `store` (kept with a strong reference). Reads the current state; posts nothing.
  static std::shared_ptr<AirportObserver> initWithService(const String& interfaceName,
                                                          std::shared_ptr<SCDynamicStore> store);

  // The store's callback for the AirPort key (see above).
  void airportStatusChange(const String& key);
  // Forgets the last state: after a wake the first joined report posts
  // "AirportConnectedNotification", and a not-joined one is ignored.
  void sleep();

  // The last accepted state, or nil.
  const Dictionary& currentStatus() const noexcept { return currentStatus_; }
  // An interface-name slot that the observer never sets (nil).
  const String& interface() const noexcept { return interface_; }
  const std::shared_ptr<SCDynamicStore>& dynStore() const noexcept { return dynStore_; }

  // Use initWithService().
  AirportObserver() = default;

 private:
  String interface_;
  std::shared_ptr<SCDynamicStore> dynStore_;
  Dictionary currentStatus_;
};

}  // namespace tq
