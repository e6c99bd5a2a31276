// EthernetObserver: the link state and media of one wired network interface.
//
// Given a network service identifier (on Linux: the interface name) and an SCDynamicStore, the
// observer reads the service's interface name from "Setup:/Network/Service/SERVICE/Interface"
// ("DeviceName"), records whether "State:/Network/Interface/NAME/Link" is "Active", and registers
// for changes of that link key. Each time the link turns active or inactive it posts, to
// NotificationCenter::defaultCenter(), with no sender:
//   "EthernetActivatedNotification"    userInfo {"interface": NAME}
//   "EthernetDeactivatedNotification"  userInfo {"interface": NAME}
// Nothing is posted at creation, and a report that leaves the flag as it was posts nothing.
// A service without an interface name leaves interface() nil; its link key then names "(null)" and
// the observer never posts.
//
// media() describes the interface's current medium, from the media word of a MediaSource: the
// subtype ("100baseTX", "1000baseT", ..., "Unknown") followed, when option bits are set, by a blank
// and the options joined by commas between angle brackets: "100baseTX <full-duplex,flow-control>".
//
// Lifetime: once created, the observer is kept alive by its registration with the store.
// Threads: the store's thread.
#pragma once

#include <cstdint>
#include <memory>

#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/store/media_source.h"

namespace tq {

class EthernetObserver : public Object {
 public:
  // A new observer for `service` on `store` (kept with a strong reference). `mediaSource` answers
  // media(); pass systemMediaSource() for the kernel's answer. With a nil media source media()
  // answers nil. A nil store gives an observer that reads nothing and never posts.
  static std::shared_ptr<EthernetObserver> initWithService(const String& service,
                                                           std::shared_ptr<SCDynamicStore> store,
                                                           std::shared_ptr<MediaSource> mediaSource);

  // The store's callback for the link key: re-reads "Active" (absent counts as false), posts when it
  // differs from the last state, and records it.
  void linkStatusChange(const String& key);
  // The media text, or nil when the interface's media cannot be read. An interface name longer than
  // 15 bytes of UTF-8 raises "Interface name too long"; a source without a socket raises "Can't open
  // datagram socket" (both through the assertion handler).
  String media() const;
  // Marks the link inactive (no notification), so that the first active report after a wake posts
  // "EthernetActivatedNotification" again.
  void sleep();

  // The text for a media word: the subtype of its low five bits, then its option bits.
  static String mediaDescription(uint32_t mediaWord);

  const String& interface() const noexcept { return interface_; }
  bool currentActive() const noexcept { return currentActive_; }
  const std::shared_ptr<SCDynamicStore>& dynStore() const noexcept { return dynStore_; }
  // An icon slot for the host; never set by the observer.
  const std::shared_ptr<Object>& ipIcon() const noexcept { return ipIcon_; }
  void setIpIcon(std::shared_ptr<Object> icon) { ipIcon_ = std::move(icon); }
  // A delegate slot (not owned); the observer never calls it.
  std::shared_ptr<Object> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<Object>& delegate) { delegate_ = delegate; }

  // Use initWithService().
  EthernetObserver() = default;

 private:
  std::shared_ptr<SCDynamicStore> dynStore_;
  String interface_;
  std::shared_ptr<Object> ipIcon_;
  bool currentActive_ = false;
  std::weak_ptr<Object> delegate_;
  std::shared_ptr<MediaSource> mediaSource_;
};

}  // namespace tq
