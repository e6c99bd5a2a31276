// The ethtool netlink decoders read kernel messages: any bytes must be refused or decoded without
// reading outside them, and what is decoded must name a device.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tq/platform/store/ethtool_netlink_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Netlink messages arrive 4-byte aligned; give the decoders the same, in a buffer of exact size.
  std::vector<uint32_t> words((size + 3) / 4);
  if (size) std::memcpy(words.data(), data, size);
  std::span<const uint8_t> message(reinterpret_cast<const uint8_t*>(words.data()), size);

  tq::ethtool_netlink::Reply reply;
  int loopback = size ? data[0] : -1;
  if (tq::ethtool_netlink::decodeReply(message, loopback, reply) && reply.ifindex <= 0) std::abort();
  tq::EthtoolMediaFacts facts;
  tq::ethtool_netlink::takeInto(reply, facts);
  tq::mediaWordFromEthtool(facts);
  if (tq::ethtool_netlink::decodeFeatureIndex(message, "loopback") >= 0x10000) std::abort();
  return 0;
}
