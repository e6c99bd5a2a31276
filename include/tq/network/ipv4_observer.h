// IPv4Observer: the machine's primary IPv4 address, and the kind of any IPv4 address.
//
// The observer registers with its SCDynamicStore for "State:/Network/Global/IPv4" so that it is
// called whenever the primary interface or its addresses change; it keeps no state and posts
// nothing. Hosts ask getPrimaryIP() when they need the address.
//
// typeOfIP() classifies a dotted-quad address against a fixed table (private ranges, loopback,
// link-local, test, 6to4 relay, benchmark, reserved; anything else is "Public"). The comparison is
// made on the address bytes as they lie in memory, in network order, read as one native 32-bit
// integer, against a mask built as a native integer with its high bits set. On a big-endian host
// that is an ordinary prefix match; on a little-endian host (x86-64, ARM Linux) the outcome depends
// on the last octet alone: 0 gives "Private", 1 to 15 "Reserved", 16 and above "Public". This is the
// behaviour hosts have always seen on such machines and it is kept.
//
// Lifetime: once created, the observer is kept alive by its registration with the store (see
// sc_dynamic_store.h). Threads: the store's thread; typeOfIP() may be called from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

// The name of the dial-up connection application, for hosts that offer to open it.
inline constexpr const char16_t* IP_APP_NAME = u"Internet Connect.app";

// The 4 bytes of a dotted-quad IPv4 address, in network order, parsed exactly as inet_pton(AF_INET)
// does: four decimal parts 0 to 255 separated by single dots, no leading zero in a part of more
// than one digit, no sign, blank, hexadecimal or octal form, nothing before or after. As with
// inet_pton on a C string, the text ends at its first NUL code unit. nullopt when it does not parse.
std::optional<std::array<uint8_t, 4>> parseIPv4Address(const String& text);
std::optional<std::array<uint8_t, 4>> parseIPv4Address(std::string_view utf8);

class IPv4Observer : public Object {
 public:
  // A new observer on `store` (kept with a strong reference), registered for
  // "State:/Network/Global/IPv4". A nil store gives an observer that answers nil.
  static std::shared_ptr<IPv4Observer> initWithStore(std::shared_ptr<SCDynamicStore> store);

  // The first address of the primary interface ("State:/Network/Global/IPv4" -> "PrimaryInterface"
  // -> "State:/Network/Interface/NAME/IPv4" -> "Addresses"), or nil when any step finds nothing.
  String getPrimaryIP() const;
  // The store's callback for the global key: answers getPrimaryIP() and does nothing else.
  String statusChange(const String& key);
  // "Private", "Loopback", "Link-local", "Test", "6to4 relay", "Benchmark", "Reserved" or
  // "Public" (see above). An argument that is not a dotted-quad address is a broken contract: the
  // assertion handler raises "Unable to parse given IP address.".
  String typeOfIP(const String& address) const;
  // Does nothing; every observer answers it.
  void sleep();

  const std::shared_ptr<SCDynamicStore>& dynStore() const noexcept { return dynStore_; }

  // Use initWithStore().
  IPv4Observer() = default;

 private:
  std::shared_ptr<SCDynamicStore> dynStore_;
};

}  // namespace tq
