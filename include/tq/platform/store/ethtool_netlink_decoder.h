// Decoding of the ethtool generic netlink replies that the media source reads in one dump each for
// every interface, kept apart from any socket so that it can be checked on messages built in memory.
//
// Each decoder takes one whole netlink message (header, generic netlink header, attributes) as
// bytes, checks every length before reading, and answers false for anything else or anything
// malformed. Bit sets are read in their compact form (ETHTOOL_FLAG_COMPACT_BITSETS), which the
// reader asks for.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "tq/platform/store/ethtool_media_source.h"

namespace tq::ethtool_netlink {

// One reply of a link-modes, link-info, pause or features dump (ETHTOOL_MSG_LINKMODES_GET_REPLY,
// _LINKINFO_GET_REPLY, _PAUSE_GET_REPLY, _FEATURES_GET_REPLY): the device it is about (from its
// header nest) and, in `facts`, the fields that kind of reply carries:
//   link modes  speed, duplex, autoneg, supported (the mask of our modes), advertising (their
//               value), lpAdvertising (the peer's modes);
//   link info   port;
//   pause       havePause (true), pauseAutoneg, rxPause, txPause;
//   features    loopback: the active bit `loopbackBit` (false when that is negative).
struct Reply {
  uint8_t command = 0;  // the ETHTOOL_MSG_*_GET_REPLY value
  int ifindex = 0;
  std::string name;
  EthtoolMediaFacts facts;
};
bool decodeReply(std::span<const uint8_t> message, int loopbackBit, Reply& reply);

// Copies into `facts` the fields that the reply's kind carries, leaving the others as they are.
void takeInto(const Reply& reply, EthtoolMediaFacts& facts);

// The index of the string `name` in the ETH_SS_FEATURES set of a string-set reply
// (ETHTOOL_MSG_STRSET_GET_REPLY); -1 when the reply does not hold it.
int decodeFeatureIndex(std::span<const uint8_t> message, std::string_view name);

}  // namespace tq::ethtool_netlink
