#include "tq/network/airport_observer.h"

#include "tq/platform/base/notification_center.h"

namespace tq {

std::shared_ptr<AirportObserver> AirportObserver::initWithService(const String& interfaceName,
                                                                  std::shared_ptr<SCDynamicStore> store) {
  auto observer = std::make_shared<AirportObserver>();
  observer->dynStore_ = std::move(store);
  SCDynamicStore* s = observer->dynStore_.get();
  if (!s) return observer;
  String key = String(u"State:/Network/Interface/")
                   .stringByAppendingString(interfaceName.isNil() ? String(u"(null)") : interfaceName)
                   .stringByAppendingString(u"/AirPort");
  observer->currentStatus_ = s->valueForKey(key).dictionaryValue();
  s->addObserver(observer, &AirportObserver::airportStatusChange, key);
  return observer;
}

void AirportObserver::airportStatusChange(const String& key) {
  Dictionary newStatus = dynStore_ ? dynStore_->valueForKey(key).dictionaryValue() : Dictionary();
  const int64_t linkStatus = newStatus.objectForKey(u"Link Status").integerValue();
  const Value& oldBSSID = currentStatus_.objectForKey(u"BSSID");
  const Value& newBSSID = newStatus.objectForKey(u"BSSID");

  // Not joined while nothing is known: nothing to report, nothing to keep.
  if (linkStatus == 1 && currentStatus_.isNil()) return;
  // The same access point as before: ignored before the status is looked at again.
  if (!oldBSSID.isNil() && oldBSSID == newBSSID) return;

  if (linkStatus == 1) {
    Value ssid = currentStatus_.objectForKey(u"SSID");
    if (!ssid.isNil())
      NotificationCenter::defaultCenter().postNotificationName(u"AirportDisconnectedNotification", nullptr,
                                                               Dictionary{{u"SSID", ssid}});
  } else {
    Value ssid = newStatus.objectForKey(u"SSID");
    if (!ssid.isNil())
      NotificationCenter::defaultCenter().postNotificationName(u"AirportConnectedNotification", nullptr,
                                                               Dictionary{{u"SSID", ssid}});
  }
  currentStatus_ = newStatus;
}

void AirportObserver::sleep() { currentStatus_ = Dictionary(); }

}  // namespace tq
