#include "tq/network/ethernet_observer.h"

#include "tq/platform/base/exception.h"
#include "tq/platform/base/notification_center.h"

namespace tq {

namespace {

struct SubtypeRow {
  uint32_t value;
  const char16_t* text;
};
// Ethernet media subtypes (the low five bits of the media word); the first match wins.
constexpr SubtypeRow ifm_subtype_ethernet_descriptions[] = {
    {3, u"10baseT/UTP"}, {4, u"10base2/BNC"}, {5, u"10base5/AUI"}, {6, u"100baseTX"},  {7, u"100baseFX"},
    {8, u"100baseT4"},   {9, u"100baseVG"},   {10, u"100baseT2"},  {11, u"1000baseSX"}, {12, u"10baseSTP"},
    {13, u"10baseFL"},   {14, u"1000baseLX"}, {15, u"1000baseCX"}, {16, u"1000baseT"},  {17, u"HomePNA1"},
    {18, u"10GbaseSR"},  {19, u"10GbaseLR"},
};

struct OptionRow {
  uint32_t mask;
  const char16_t* text;
};
// Shared media options, listed in this order when their bit is set.
constexpr OptionRow ifm_shared_option_descriptions[] = {
    {0x00100000, u"full-duplex"}, {0x00200000, u"half-duplex"}, {0x00400000, u"flow-control"},
    {0x01000000, u"flag0"},       {0x02000000, u"flag1"},       {0x04000000, u"flag2"},
    {0x08000000, u"hw-loopback"},
};

String withName(const char16_t* format, const String& name) {
  // "%@" of a nil object reads "(null)".
  String text(format);
  return text.stringByReplacingOccurrencesOfString(u"%@", name.isNil() ? String(u"(null)") : name);
}

}  // namespace

std::shared_ptr<EthernetObserver> EthernetObserver::initWithService(const String& service,
                                                                    std::shared_ptr<SCDynamicStore> store,
                                                                    std::shared_ptr<MediaSource> mediaSource) {
  auto observer = std::make_shared<EthernetObserver>();
  observer->dynStore_ = std::move(store);
  observer->mediaSource_ = std::move(mediaSource);
  SCDynamicStore* s = observer->dynStore_.get();
  if (!s) return observer;
  Value setup = s->valueForKey(withName(u"Setup:/Network/Service/%@/Interface", service));
  observer->interface_ = setup.dictionaryValue().objectForKey(u"DeviceName").stringValue();
  String linkKey = withName(u"State:/Network/Interface/%@/Link", observer->interface_);
  observer->currentActive_ = s->valueForKey(linkKey).dictionaryValue().objectForKey(u"Active").boolValue();
  s->addObserver(observer, &EthernetObserver::linkStatusChange, linkKey);
  return observer;
}

void EthernetObserver::linkStatusChange(const String& key) {
  const bool active =
      dynStore_ && dynStore_->valueForKey(key).dictionaryValue().objectForKey(u"Active").boolValue();
  if (active != currentActive_) {
    NotificationCenter::defaultCenter().postNotificationName(
        active ? u"EthernetActivatedNotification" : u"EthernetDeactivatedNotification", nullptr,
        Dictionary{{u"interface", interface_}});
  }
  currentActive_ = active;
}

String EthernetObserver::media() const {
  // The kernel's interface-name field holds 16 bytes with its terminator.
  TQ_ASSERT_METHOD(interface_.UTF8String().size() <= 15, "media", u"Interface name too long");
  if (!mediaSource_) return String();
  MediaSource::Result result = mediaSource_->queryMedia(interface_);
  TQ_ASSERT_METHOD(result.status != MediaSource::Status::NoSocket, "media", u"Can't open datagram socket");
  if (result.status != MediaSource::Status::Ok) return String();
  return mediaDescription(result.word);
}

String EthernetObserver::mediaDescription(uint32_t word) {
  String subtype = u"Unknown";
  for (const auto& row : ifm_subtype_ethernet_descriptions) {
    if (row.value == (word & 0x1f)) {
      subtype = row.text;
      break;
    }
  }
  String options;
  for (const auto& row : ifm_shared_option_descriptions) {
    if (!(word & row.mask)) continue;
    // The first option alone, each later one after a comma with no blank.
    options = options.isNil() ? String(row.text)
                              : options.stringByAppendingString(u",").stringByAppendingString(row.text);
  }
  if (options.isNil()) return subtype;
  return subtype.stringByAppendingString(u" <").stringByAppendingString(options).stringByAppendingString(u">");
}

void EthernetObserver::sleep() { currentActive_ = false; }

}  // namespace tq
