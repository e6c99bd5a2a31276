#include "tq/platform/store/ethtool_netlink_decoder.h"

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstring>

namespace tq::ethtool_netlink {

namespace {

using Bytes = std::span<const uint8_t>;

// Calls f(type, payload) for each attribute of `bytes`, as far as they are whole; false when one is
// malformed (the walk stops there).
template <class F>
bool forEach(Bytes bytes, F f) {
  while (bytes.size() >= NLA_HDRLEN) {
    uint16_t length, type;
    std::memcpy(&length, bytes.data(), 2);
    std::memcpy(&type, bytes.data() + 2, 2);
    if (length < NLA_HDRLEN || length > bytes.size()) return false;
    f(static_cast<uint16_t>(type & NLA_TYPE_MASK), bytes.subspan(NLA_HDRLEN, length - NLA_HDRLEN));
    std::size_t step = NLA_ALIGN(length);
    if (step >= bytes.size()) break;
    bytes = bytes.subspan(step);
  }
  return true;
}

bool u8(Bytes p, uint8_t& v) {
  if (p.empty()) return false;
  v = p[0];
  return true;
}

bool u32(Bytes p, uint32_t& v) {
  if (p.size() < 4) return false;
  std::memcpy(&v, p.data(), 4);
  return true;
}

std::string text(Bytes p) {
  const char* s = reinterpret_cast<const char*>(p.data());
  return std::string(s, strnlen(s, p.size()));
}

// The generic netlink message's command and attributes; false when it is not a whole one.
bool genericMessage(Bytes message, uint8_t& command, Bytes& attributes) {
  if (message.size() < NLMSG_HDRLEN + GENL_HDRLEN) return false;
  uint32_t length;
  std::memcpy(&length, message.data(), 4);
  if (length < NLMSG_HDRLEN + GENL_HDRLEN || length > message.size()) return false;
  command = message[NLMSG_HDRLEN];
  attributes = message.subspan(NLMSG_HDRLEN + GENL_HDRLEN, length - NLMSG_HDRLEN - GENL_HDRLEN);
  return true;
}

// A compact bit set: its value words and, unless it has none, its mask words.
struct BitSet {
  Bytes value, mask;
};
bool bitSet(Bytes nest, BitSet& set) {
  bool compact = false;
  bool whole = forEach(nest, [&](uint16_t type, Bytes p) {
    if (type == ETHTOOL_A_BITSET_VALUE) {
      set.value = p;
      compact = true;
    } else if (type == ETHTOOL_A_BITSET_MASK) {
      set.mask = p;
    }
  });
  return whole && compact;
}

void copyWords(Bytes words, EthtoolMediaFacts::LinkModes& modes) {
  modes = {};
  for (std::size_t i = 0; i < modes.size() && (i + 1) * 4 <= words.size(); ++i)
    std::memcpy(&modes[i], words.data() + i * 4, 4);
}

bool bitOf(Bytes words, int bit) {
  if (bit < 0 || static_cast<std::size_t>(bit / 32 + 1) * 4 > words.size()) return false;
  uint32_t word;
  std::memcpy(&word, words.data() + (bit / 32) * 4, 4);
  return (word >> (bit % 32)) & 1u;
}

}  // namespace

bool decodeReply(std::span<const uint8_t> message, int loopbackBit, Reply& reply) {
  Bytes attributes;
  uint8_t command;
  if (!genericMessage(message, command, attributes)) return false;
  if (command != ETHTOOL_MSG_LINKMODES_GET_REPLY && command != ETHTOOL_MSG_LINKINFO_GET_REPLY &&
      command != ETHTOOL_MSG_PAUSE_GET_REPLY && command != ETHTOOL_MSG_FEATURES_GET_REPLY)
    return false;
  reply = Reply{};
  reply.command = command;
  EthtoolMediaFacts& f = reply.facts;
  bool ok = true;
  bool whole = forEach(attributes, [&](uint16_t type, Bytes p) {
    // Every kind of reply has its header first, as attribute 1.
    if (type == ETHTOOL_A_LINKMODES_HEADER) {
      ok &= forEach(p, [&](uint16_t t, Bytes h) {
        uint32_t index;
        if (t == ETHTOOL_A_HEADER_DEV_INDEX && u32(h, index)) reply.ifindex = static_cast<int>(index);
        if (t == ETHTOOL_A_HEADER_DEV_NAME) reply.name = text(h);
      });
      return;
    }
    uint8_t byte;
    uint32_t word;
    BitSet set;
    switch (command) {
      case ETHTOOL_MSG_LINKMODES_GET_REPLY:
        if (type == ETHTOOL_A_LINKMODES_AUTONEG && u8(p, byte)) f.autoneg = byte == AUTONEG_ENABLE;
        if (type == ETHTOOL_A_LINKMODES_SPEED && u32(p, word)) f.speed = word;
        if (type == ETHTOOL_A_LINKMODES_DUPLEX && u8(p, byte)) f.duplex = byte;
        if (type == ETHTOOL_A_LINKMODES_OURS && (ok &= bitSet(p, set))) {
          copyWords(set.value, f.advertising);
          copyWords(set.mask, f.supported);
        }
        if (type == ETHTOOL_A_LINKMODES_PEER && (ok &= bitSet(p, set))) copyWords(set.value, f.lpAdvertising);
        break;
      case ETHTOOL_MSG_LINKINFO_GET_REPLY:
        if (type == ETHTOOL_A_LINKINFO_PORT && u8(p, byte)) f.port = byte;
        break;
      case ETHTOOL_MSG_PAUSE_GET_REPLY:
        if (type == ETHTOOL_A_PAUSE_AUTONEG && u8(p, byte)) f.pauseAutoneg = byte != 0;
        if (type == ETHTOOL_A_PAUSE_RX && u8(p, byte)) f.rxPause = byte != 0;
        if (type == ETHTOOL_A_PAUSE_TX && u8(p, byte)) f.txPause = byte != 0;
        break;
      default:
        if (type == ETHTOOL_A_FEATURES_ACTIVE && (ok &= bitSet(p, set))) f.loopback = bitOf(set.value, loopbackBit);
        break;
    }
  });
  f.havePause = command == ETHTOOL_MSG_PAUSE_GET_REPLY;
  return whole && ok && reply.ifindex > 0;
}

void takeInto(const Reply& reply, EthtoolMediaFacts& facts) {
  const EthtoolMediaFacts& f = reply.facts;
  switch (reply.command) {
    case ETHTOOL_MSG_LINKMODES_GET_REPLY:
      facts.speed = f.speed;
      facts.duplex = f.duplex;
      facts.autoneg = f.autoneg;
      facts.supported = f.supported;
      facts.advertising = f.advertising;
      facts.lpAdvertising = f.lpAdvertising;
      break;
    case ETHTOOL_MSG_LINKINFO_GET_REPLY:
      facts.port = f.port;
      break;
    case ETHTOOL_MSG_PAUSE_GET_REPLY:
      facts.havePause = true;
      facts.pauseAutoneg = f.pauseAutoneg;
      facts.rxPause = f.rxPause;
      facts.txPause = f.txPause;
      break;
    case ETHTOOL_MSG_FEATURES_GET_REPLY:
      facts.loopback = f.loopback;
      break;
    default:
      break;
  }
}

int decodeFeatureIndex(std::span<const uint8_t> message, std::string_view name) {
  Bytes attributes;
  uint8_t command;
  if (!genericMessage(message, command, attributes) || command != ETHTOOL_MSG_STRSET_GET_REPLY) return -1;
  int found = -1;
  forEach(attributes, [&](uint16_t type, Bytes sets) {
    if (type != ETHTOOL_A_STRSET_STRINGSETS) return;
    forEach(sets, [&](uint16_t setType, Bytes set) {
      if (setType != ETHTOOL_A_STRINGSETS_STRINGSET) return;
      uint32_t id = ~0u;
      Bytes strings;
      forEach(set, [&](uint16_t t, Bytes p) {
        if (t == ETHTOOL_A_STRINGSET_ID) u32(p, id);
        if (t == ETHTOOL_A_STRINGSET_STRINGS) strings = p;
      });
      if (id != ETH_SS_FEATURES) return;
      forEach(strings, [&](uint16_t stringType, Bytes entry) {
        if (stringType != ETHTOOL_A_STRINGS_STRING || found >= 0) return;
        uint32_t index = ~0u;
        bool named = false;
        forEach(entry, [&](uint16_t t, Bytes p) {
          if (t == ETHTOOL_A_STRING_INDEX) u32(p, index);
          if (t == ETHTOOL_A_STRING_VALUE) named = text(p) == name;
        });
        if (named && index < 0x10000) found = static_cast<int>(index);
      });
    });
  });
  return found;
}

}  // namespace tq::ethtool_netlink
