#include "tq/platform/store/ethtool_media_source.h"

#include <gtest/gtest.h>
#include <linux/ethtool.h>

using namespace tq;

namespace {

EthtoolMediaFacts facts(uint32_t speed, uint8_t port, uint8_t duplex = DUPLEX_UNKNOWN) {
  EthtoolMediaFacts f;
  f.speed = speed;
  f.port = port;
  f.duplex = duplex;
  return f;
}

struct SubtypeCase {
  uint32_t speed;
  uint8_t port;
  uint32_t subtype;
};

}  // namespace

// The subtypes the ethtool command can give a tap are compared with its own words by
// ethtool_media_of_each_test; here, the ports no subtype of the speed takes.
TEST(EthtoolMediaWord, SubtypeFollowsSpeedAndPort) {
  const SubtypeCase cases[] = {
      {10, PORT_FIBRE, 0}, {100, PORT_BNC, 0}, {1000, PORT_OTHER, 0}, {10000, PORT_TP, 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(mediaWordFromEthtool(facts(c.speed, c.port)), c.subtype)
        << "speed " << c.speed << " port " << int(c.port);
}

TEST(EthtoolMediaWord, LinkModesAndModulesTellTheMedium) {
  auto f = facts(100, PORT_TP);
  EthtoolMediaFacts::set(f.supported, ETHTOOL_LINK_MODE_100baseFX_Full_BIT);
  EXPECT_EQ(mediaWordFromEthtool(f), 7u) << "only fibre modes at 100 Mb/s";
  EthtoolMediaFacts::set(f.supported, ETHTOOL_LINK_MODE_100baseT_Full_BIT);
  EXPECT_EQ(mediaWordFromEthtool(f), 6u) << "copper modes too: twisted pair";

  auto sr = facts(10000, PORT_OTHER);
  EthtoolMediaFacts::set(sr.supported, ETHTOOL_LINK_MODE_10000baseSR_Full_BIT);
  EXPECT_EQ(mediaWordFromEthtool(sr), 18u);
  auto lr = facts(10000, PORT_FIBRE);
  EthtoolMediaFacts::set(lr.supported, ETHTOOL_LINK_MODE_10000baseLR_Full_BIT);
  EXPECT_EQ(mediaWordFromEthtool(lr), 19u);
  EthtoolMediaFacts::set(lr.supported, ETHTOOL_LINK_MODE_10000baseSR_Full_BIT);
  EXPECT_EQ(mediaWordFromEthtool(lr), 18u) << "both supported: a fibre port says short reach";

  // SFP EEPROM: byte 3 carries the 10G codes, byte 6 the 1G codes.
  auto module = [](uint8_t byte3, uint8_t byte6, uint32_t speed, uint8_t port) {
    uint8_t eeprom[16] = {0x03, 0x04, 0x07};
    eeprom[3] = byte3;
    eeprom[6] = byte6;
    auto f = facts(speed, port);
    readSfpCompliance(eeprom, f);
    return mediaWordFromEthtool(f);
  };
  EXPECT_EQ(module(0, 0x01, 1000, PORT_FIBRE), 11u);
  EXPECT_EQ(module(0, 0x02, 1000, PORT_FIBRE), 14u);
  EXPECT_EQ(module(0, 0x04, 1000, PORT_DA), 15u);
  EXPECT_EQ(module(0x10, 0, 10000, PORT_FIBRE), 18u);
  EXPECT_EQ(module(0x20, 0, 10000, PORT_FIBRE), 19u);
  EXPECT_EQ(module(0x80, 0, 10000, PORT_FIBRE), 0u) << "10GBASE-ER has no subtype";
  EXPECT_EQ(module(0x2F, 0, 10000, PORT_FIBRE), 19u) << "low nibble (InfiniBand codes) ignored";

  auto shortImage = facts(1000, PORT_FIBRE);
  uint8_t tiny[5] = {0, 0, 0, 0x20, 0};
  readSfpCompliance(tiny, shortImage);
  EXPECT_EQ(shortImage.sfp10GCodes, 0u);
  EXPECT_EQ(mediaWordFromEthtool(shortImage), 11u);
}

TEST(EthtoolMediaWord, OptionBits) {
  EXPECT_EQ(mediaWordFromEthtool(facts(1000, PORT_TP, DUPLEX_UNKNOWN)), 0x00000010u);

  auto f = facts(100, PORT_TP, DUPLEX_FULL);
  f.havePause = true;
  f.rxPause = true;
  EXPECT_EQ(mediaWordFromEthtool(f), 0x00500006u);
  f.rxPause = false;
  f.txPause = true;
  EXPECT_EQ(mediaWordFromEthtool(f), 0x00500006u);
  f.havePause = false;
  EXPECT_EQ(mediaWordFromEthtool(f), 0x00100006u) << "no pause parameters: no flow control";

  auto loop = facts(EthtoolMediaFacts::kSpeedUnknown, PORT_TP);
  loop.loopback = true;
  EXPECT_EQ(mediaWordFromEthtool(loop), 0x08000000u);
}

TEST(EthtoolMediaWord, NegotiatedPauseIsResolvedAgainstThePartner) {
  auto make = [](bool localPause, bool localAsym, bool partnerPause, bool partnerAsym) {
    auto f = facts(1000, PORT_TP, DUPLEX_FULL);
    f.autoneg = true;
    f.havePause = f.pauseAutoneg = f.rxPause = f.txPause = true;
    EthtoolMediaFacts::set(f.lpAdvertising, ETHTOOL_LINK_MODE_1000baseT_Full_BIT);
    if (localPause) EthtoolMediaFacts::set(f.advertising, ETHTOOL_LINK_MODE_Pause_BIT);
    if (localAsym) EthtoolMediaFacts::set(f.advertising, ETHTOOL_LINK_MODE_Asym_Pause_BIT);
    if (partnerPause) EthtoolMediaFacts::set(f.lpAdvertising, ETHTOOL_LINK_MODE_Pause_BIT);
    if (partnerAsym) EthtoolMediaFacts::set(f.lpAdvertising, ETHTOOL_LINK_MODE_Asym_Pause_BIT);
    return (mediaWordFromEthtool(f) & 0x00400000u) != 0;
  };
  EXPECT_TRUE(make(true, false, true, false));
  EXPECT_FALSE(make(true, false, false, false)) << "partner without pause";
  EXPECT_TRUE(make(true, true, false, true)) << "asymmetric: we receive pause frames";
  EXPECT_TRUE(make(false, true, true, true)) << "asymmetric: we send pause frames";
  EXPECT_FALSE(make(false, true, false, true));
  EXPECT_FALSE(make(false, false, true, true));
}
