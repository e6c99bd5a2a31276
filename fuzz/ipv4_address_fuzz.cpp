// The dotted-quad parser must accept exactly what inet_pton(AF_INET) accepts, with the same bytes,
// and every address it accepts must classify without raising.
#include <arpa/inet.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tq/network/ipv4_observer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  unsigned char expected[4] = {};
  const bool ok = inet_pton(AF_INET, text.c_str(), expected) == 1;  // stops at the first NUL
  auto parsed = tq::parseIPv4Address(std::string_view(text));
  if (parsed.has_value() != ok) std::abort();
  if (ok && std::memcmp(parsed->data(), expected, 4) != 0) std::abort();
  if (ok) {
    static auto observer = tq::IPv4Observer::initWithStore(nullptr);
    tq::String label = observer->typeOfIP(tq::String::fromUTF8(text.substr(0, text.find('\0'))));
    if (label.isNil()) std::abort();
  }
  return 0;
}
