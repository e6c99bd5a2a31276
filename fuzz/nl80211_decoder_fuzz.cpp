// The nl80211 decoders read kernel messages: any bytes must be refused or decoded without reading
// outside them, and what is decoded must respect the sizes the decoders promise.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tq/platform/store/nl80211_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Netlink messages arrive 4-byte aligned; give the decoders the same, in a buffer of exact size.
  std::vector<uint32_t> words((size + 3) / 4);
  if (size) std::memcpy(words.data(), data, size);
  std::span<const uint8_t> message(reinterpret_cast<const uint8_t*>(words.data()), size);

  tq::nl80211::FamilyInfo family;
  tq::nl80211::decodeFamily(message, family);
  tq::nl80211::InterfaceInfo info;
  if (tq::nl80211::decodeInterface(message, info) && (info.ifindex <= 0 || info.ssid.length() > 32)) std::abort();
  tq::nl80211::BssInfo bss;
  if (tq::nl80211::decodeBss(message, bss) && (bss.bssid.length() != 6 || bss.ssid.length() > 32)) std::abort();
  tq::nl80211::Event event;
  if (tq::nl80211::decodeEvent(message, 0x1c, event) &&
      ((event.bssid && event.bssid.length() != 6) || event.ssid.length() > 32))
    std::abort();
  if (tq::nl80211::ssidFromInformationElements({data, size}).length() > 32) std::abort();
  return 0;
}
