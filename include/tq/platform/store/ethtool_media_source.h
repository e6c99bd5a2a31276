// EthtoolMediaSource: the media word of a Linux network interface, from the kernel's ethtool
// interface: the SIOCETHTOOL ioctl on an IPv4 datagram socket for one interface, ethtool netlink
// dumps for many (queryMediaOfEach).
//
// What is read, per interface:
//   - link settings: ETHTOOL_GLINKSETTINGS, or ETHTOOL_GSET on kernels and drivers without it:
//     speed, duplex, port, autonegotiation and the supported / advertised / partner link modes;
//   - pause parameters: ETHTOOL_GPAUSEPARAM (drivers without it report no flow control);
//   - the "loopback" device feature (ETHTOOL_GFEATURES, named through the ETH_SS_FEATURES strings):
//     the NIC's internal loopback mode, which is what hardware loopback means for a media word;
//   - for fibre and direct-attach ports at 1 Gb/s and 10 Gb/s only, the compliance bytes of an
//     SFP module (ETHTOOL_GMODULEINFO / ETHTOOL_GMODULEEEPROM), to tell SX from LX and SR from LR.
// The interface's IFF_LOOPBACK flag is deliberately not used: it marks a loopback *interface* (lo),
// which has no media at all, not a NIC looping its own frames.
//
// The answer: Failed when the interface is unknown or its driver has no link settings; NoSocket
// when the datagram socket cannot be opened; otherwise Ok with the word of mediaWordFromEthtool().
// A link that is down (speed and duplex unknown) therefore answers Ok with subtype 0.
//
// Many interfaces at once (queryMediaOfEach, queryAllFacts): one generic netlink socket, and one
// dump each of the ethtool netlink link modes (speed, duplex, autonegotiation, link modes), link
// info (port), pause parameters and features (with the "loopback" feature's index read once from
// the kernel's feature names) for every interface, so that the number of system calls does not
// grow with the number of interfaces; only the SFP modules of fibre and direct-attach ports at
// 1 Gb/s and 10 Gb/s are read one by one (by ioctl). Where the kernel lacks ethtool netlink (before
// Linux 5.6, or without CONFIG_ETHTOOL_NETLINK) or refuses one of these dumps, every interface is
// read by ioctl instead, on one datagram socket. Either way the facts are those the ioctl gives.
// Threads: queries may be made from any thread; each opens and closes its own sockets.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "tq/platform/store/media_source.h"

namespace tq {

// The facts of one interface that the media word is made from, in the kernel's own terms
// (<linux/ethtool.h>: SPEED_*, DUPLEX_*, PORT_*, ETHTOOL_LINK_MODE_*_BIT).
struct EthtoolMediaFacts {
  static constexpr uint32_t kSpeedUnknown = 0xFFFFFFFFu;
  // Link modes as a bit set indexed by ETHTOOL_LINK_MODE_*_BIT (the first 128 modes are kept).
  using LinkModes = std::array<uint32_t, 4>;

  uint32_t speed = kSpeedUnknown;  // Mb/s
  uint8_t duplex = 0xFF;           // DUPLEX_HALF, DUPLEX_FULL, DUPLEX_UNKNOWN
  uint8_t port = 0xFF;             // PORT_TP, PORT_AUI, PORT_MII, PORT_FIBRE, PORT_BNC, PORT_DA, ...
  bool autoneg = false;
  LinkModes supported{};
  LinkModes advertising{};
  LinkModes lpAdvertising{};  // the link partner's modes; all zero when unknown

  bool havePause = false;  // whether the driver answered ETHTOOL_GPAUSEPARAM
  bool pauseAutoneg = false;
  bool rxPause = false;
  bool txPause = false;

  bool loopback = false;  // the "loopback" feature is active

  // SFP compliance codes (SFF-8472 byte 3, the 10G Ethernet codes, and byte 6, the 1G Ethernet
  // codes); zero when no module was read.
  uint8_t sfp10GCodes = 0;
  uint8_t sfp1GCodes = 0;

  static bool has(const LinkModes& modes, unsigned bit) noexcept {
    return bit < 128 && (modes[bit / 32] >> (bit % 32)) & 1u;
  }
  static void set(LinkModes& modes, unsigned bit) noexcept {
    if (bit < 128) modes[bit / 32] |= 1u << (bit % 32);
  }
};

// The media word for the facts (a pure function).
//
// Subtype (low five bits), from the speed and the medium:
//   10 Mb/s:    BNC port 4 (10base2/BNC), AUI port 5 (10base5/AUI), twisted pair or MII 3 (10baseT/UTP);
//   100 Mb/s:   fibre port 7 (100baseFX); twisted pair or MII 6 (100baseTX), or 7 when the only
//               100 Mb/s modes supported are 100baseFX ones;
//   1000 Mb/s:  a module saying 1000BASE-LX 14 (1000baseLX), 1000BASE-CX or a direct-attach port 15
//               (1000baseCX), 1000BASE-SX or any other fibre port 11 (1000baseSX: when nothing tells,
//               the common multimode fibre), twisted pair or MII 16 (1000baseT), anything else 0;
//   10000 Mb/s: 10GBASE-SR by the module, else by the link modes, 18 (10GbaseSR); 10GBASE-LR likewise
//               19 (10GbaseLR); a fibre port with nothing to tell 18; anything else at that speed
//               (10GBASE-T, CR, KR, ER, LRM, ...) 0;
//   any other port at these speeds, any other speed, or an unknown one (link down): 0.
// Options: 0x00100000 full duplex, 0x00200000 half duplex (none when unknown); 0x00400000 flow
// control when pause is on in either direction, resolved against the partner's advertised pause
// modes when both pause and link autonegotiation are on and the partner's modes are known;
// 0x08000000 when the "loopback" feature is active.
uint32_t mediaWordFromEthtool(const EthtoolMediaFacts& facts) noexcept;

// Reads the SFP compliance bytes out of a module EEPROM image of the SFF-8079/8472 layout: byte 3
// into sfp10GCodes and byte 6 into sfp1GCodes. Shorter images leave the facts unchanged.
void readSfpCompliance(std::span<const uint8_t> eeprom, EthtoolMediaFacts& facts) noexcept;

class EthtoolMediaSource : public MediaSource {
 public:
  // How many interfaces are read at once.
  enum class Transport {
    Netlink,  // ethtool netlink dumps, falling back to the ioctl where the kernel lacks them
    Ioctl,    // the ioctl alone, as on kernels without ethtool netlink
  };
  EthtoolMediaSource() = default;
  explicit EthtoolMediaSource(Transport transport) : transport_(transport) {}

  Result queryMedia(const String& interfaceName) override;
  // From one read of every interface (see above); a name the kernel does not know, or one whose
  // driver has no link settings, answers Failed.
  std::vector<Result> queryMediaOfEach(std::span<const String> interfaceNames) override;
  // The facts themselves, for tools that show more than the word; status as for queryMedia.
  Status queryFacts(const String& interfaceName, EthtoolMediaFacts& facts);

  // The facts of every interface whose driver has link settings, by interface index, with the
  // kernel's name of each (its bytes). NoSocket when no socket can be opened. `used`, when given,
  // is set to the way the kernel was read.
  struct NamedFacts {
    std::string name;
    EthtoolMediaFacts facts;
  };
  Status queryAllFacts(std::map<int, NamedFacts>& all, Transport* used = nullptr);

  // The index of a device feature among the kernel's feature names (ETH_SS_FEATURES) over ethtool
  // netlink, as the features dump is read with it: -1 when the kernel lacks ethtool netlink or has
  // no feature of that name.
  static int featureIndex(std::string_view name);

 private:
  Transport transport_ = Transport::Netlink;
};

}  // namespace tq
