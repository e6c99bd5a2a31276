#include "tq/network/ipv4_observer.h"

#include <cstring>

#include "tq/platform/base/exception.h"

namespace tq {

namespace {

const String kGlobalIPv4Key = u"State:/Network/Global/IPv4";

// The classification table; the order is the search order. The end marker has no network.
struct TypeRow {
  const char* network;
  int prefix;
  const char16_t* label;
};
constexpr TypeRow types[] = {
    {"10.0.0.0", 8, u"Private"},     {"172.16.0.0", 12, u"Private"},   {"192.168.0.0", 16, u"Private"},
    {"127.0.0.0", 8, u"Loopback"},   {"169.254.0.0", 16, u"Link-local"}, {"192.0.2.0", 24, u"Test"},
    {"192.88.99.0", 24, u"6to4 relay"}, {"198.18.0.0", 15, u"Benchmark"}, {"240.0.0.0", 4, u"Reserved"},
    {nullptr, 0, nullptr},
};

// The address bytes exactly as they lie in memory, read as one native integer.
uint32_t asNativeWord(const std::array<uint8_t, 4>& bytes) {
  uint32_t word;
  std::memcpy(&word, bytes.data(), sizeof word);
  return word;
}

}  // namespace

std::optional<std::array<uint8_t, 4>> parseIPv4Address(std::string_view text) {
  std::array<uint8_t, 4> out{};
  unsigned current = 0;
  int octets = 0;
  bool sawDigit = false;
  for (char ch : text) {
    if (ch == '\0') break;  // the text of a C string ends here
    if (ch >= '0' && ch <= '9') {
      if (sawDigit && current == 0) return std::nullopt;  // leading zero
      current = current * 10 + static_cast<unsigned>(ch - '0');
      if (current > 255) return std::nullopt;
      if (!sawDigit) {
        if (++octets > 4) return std::nullopt;
        sawDigit = true;
      }
      out[static_cast<std::size_t>(octets - 1)] = static_cast<uint8_t>(current);
    } else if (ch == '.' && sawDigit) {
      if (octets == 4) return std::nullopt;
      current = 0;
      sawDigit = false;
    } else {
      return std::nullopt;
    }
  }
  if (octets < 4) return std::nullopt;
  return out;
}

std::optional<std::array<uint8_t, 4>> parseIPv4Address(const String& text) {
  return parseIPv4Address(std::string_view(text.UTF8String()));
}

std::shared_ptr<IPv4Observer> IPv4Observer::initWithStore(std::shared_ptr<SCDynamicStore> store) {
  auto observer = std::make_shared<IPv4Observer>();
  observer->dynStore_ = std::move(store);
  if (observer->dynStore_) observer->dynStore_->addObserver(observer, &IPv4Observer::statusChange, kGlobalIPv4Key);
  return observer;
}

String IPv4Observer::getPrimaryIP() const {
  if (!dynStore_) return String();
  Value global = dynStore_->valueForKey(kGlobalIPv4Key);
  if (global.isNil()) return String();
  String primary = global.dictionaryValue().objectForKey(u"PrimaryInterface").stringValue();
  String key = String(u"State:/Network/Interface/")
                   .stringByAppendingString(primary.isNil() ? String(u"(null)") : primary)
                   .stringByAppendingString(u"/IPv4");
  Array addresses = dynStore_->valueForKey(key).dictionaryValue().objectForKey(u"Addresses").arrayValue();
  if (addresses.count() == 0) return String();
  return addresses.objectAtIndex(0).stringValue();
}

String IPv4Observer::statusChange(const String&) { return getPrimaryIP(); }

String IPv4Observer::typeOfIP(const String& address) const {
  auto parsed = parseIPv4Address(address);
  TQ_ASSERT_METHOD(parsed.has_value(), "typeOfIP:", u"Unable to parse given IP address.");
  const uint32_t ip = asNativeWord(*parsed);
  for (const TypeRow* row = types;; ++row) {
    if (!row->network) return u"Public";
    auto network = parseIPv4Address(std::string_view(row->network));
    TQ_ASSERT_METHOD(network.has_value(), "typeOfIP:", u"Unable to parse network IP address.");
    // Built as a native integer with the high bits set, the shift count taken modulo 32.
    const uint32_t mask = 0xFFFFFFFFu << ((32 - row->prefix) % 32);
    if ((mask & ip) == (mask & asNativeWord(*network))) return row->label;
  }
}

void IPv4Observer::sleep() {}

}  // namespace tq
