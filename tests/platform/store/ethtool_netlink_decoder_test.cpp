#include "tq/platform/store/ethtool_netlink_decoder.h"

#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>

#include <cstring>

#include "support/genl_message.h"

using namespace tq;
using namespace tq::ethtool_netlink;

namespace {

// A reply about one device (index and name in the header nest).
test::GenlMessage Message(uint8_t command, int index = 0, const std::string& name = "") {
  test::GenlMessage m(0x1d, command);
  if (!name.empty()) m.begin(1).u32(ETHTOOL_A_HEADER_DEV_INDEX, index).str(ETHTOOL_A_HEADER_DEV_NAME, name).end();
  return m;
}

}  // namespace

TEST(EthtoolNetlinkDecoder, EachKindOfReplyGivesItsOwnFields) {
  auto linkModes = Message(ETHTOOL_MSG_LINKMODES_GET_REPLY, 7, "eth7")
                       .u8(ETHTOOL_A_LINKMODES_AUTONEG, AUTONEG_ENABLE)
                       .begin(ETHTOOL_A_LINKMODES_OURS)
                       .u32(ETHTOOL_A_BITSET_SIZE, 40)
                       .words(ETHTOOL_A_BITSET_VALUE, {0x00002020, 0x80})
                       .words(ETHTOOL_A_BITSET_MASK, {0x0000602F, 0x81})
                       .end()
                       .begin(ETHTOOL_A_LINKMODES_PEER)
                       .u32(ETHTOOL_A_BITSET_SIZE, 40)
                       .put(ETHTOOL_A_BITSET_NOMASK, nullptr, 0)
                       .words(ETHTOOL_A_BITSET_VALUE, {0x00002000, 0})
                       .end()
                       .u32(ETHTOOL_A_LINKMODES_SPEED, 1000)
                       .u8(ETHTOOL_A_LINKMODES_DUPLEX, DUPLEX_FULL)
                       .done();
  auto linkInfo = Message(ETHTOOL_MSG_LINKINFO_GET_REPLY, 7, "eth7").u8(ETHTOOL_A_LINKINFO_PORT, PORT_FIBRE).done();
  auto pause = Message(ETHTOOL_MSG_PAUSE_GET_REPLY, 7, "eth7")
                   .u8(ETHTOOL_A_PAUSE_AUTONEG, 0)
                   .u8(ETHTOOL_A_PAUSE_RX, 1)
                   .u8(ETHTOOL_A_PAUSE_TX, 0)
                   .done();
  auto features = Message(ETHTOOL_MSG_FEATURES_GET_REPLY, 7, "eth7")
                      .begin(ETHTOOL_A_FEATURES_HW)
                      .u32(ETHTOOL_A_BITSET_SIZE, 64)
                      .words(ETHTOOL_A_BITSET_VALUE, {~0u, ~0u})
                      .words(ETHTOOL_A_BITSET_MASK, {~0u, ~0u})
                      .end()
                      .begin(ETHTOOL_A_FEATURES_ACTIVE)
                      .u32(ETHTOOL_A_BITSET_SIZE, 64)
                      .words(ETHTOOL_A_BITSET_VALUE, {0, 1u << 8})
                      .end()
                      .done();

  EthtoolMediaFacts f;
  f.speed = 10;
  for (const auto* m : {&linkModes, &linkInfo, &pause, &features}) {
    Reply r;
    ASSERT_TRUE(decodeReply(*m, 40, r)) << "reply " << int((*m)[NLMSG_HDRLEN]);
    EXPECT_EQ(r.ifindex, 7);
    EXPECT_EQ(r.name, "eth7");
    takeInto(r, f);
  }
  EXPECT_EQ(f.speed, 1000u);
  EXPECT_EQ(f.duplex, DUPLEX_FULL);
  EXPECT_TRUE(f.autoneg);
  EXPECT_EQ(f.port, PORT_FIBRE);
  EXPECT_EQ(f.advertising, (EthtoolMediaFacts::LinkModes{0x2020, 0x80, 0, 0})) << "our modes: the value";
  EXPECT_EQ(f.supported, (EthtoolMediaFacts::LinkModes{0x602F, 0x81, 0, 0})) << "and the mask";
  EXPECT_EQ(f.lpAdvertising, (EthtoolMediaFacts::LinkModes{0x2000, 0, 0, 0}));
  EXPECT_TRUE(f.havePause && f.rxPause && !f.txPause && !f.pauseAutoneg);
  EXPECT_TRUE(f.loopback) << "the active bit 40, not the hardware's";
  EXPECT_EQ(mediaWordFromEthtool(f), 0x08500000u | 11) << "1000baseSX, full duplex, flow control, loopback";

  Reply r;
  ASSERT_TRUE(decodeReply(features, 39, r));
  EXPECT_FALSE(r.facts.loopback);
  ASSERT_TRUE(decodeReply(features, -1, r));
  EXPECT_FALSE(r.facts.loopback) << "no loopback feature known";

  // Only whole messages of these kinds decode; cutting one anywhere never reads past the cut.
  EXPECT_FALSE(decodeReply(Message(ETHTOOL_MSG_STRSET_GET_REPLY, 7, "eth7").done(), 40, r));
  EXPECT_FALSE(decodeReply(Message(ETHTOOL_MSG_LINKINFO_GET_REPLY).u8(ETHTOOL_A_LINKINFO_PORT, 1).done(), 40, r))
      << "no device";
  auto verbose = Message(ETHTOOL_MSG_FEATURES_GET_REPLY, 7, "eth7")
                     .begin(ETHTOOL_A_FEATURES_ACTIVE)
                     .begin(ETHTOOL_A_BITSET_BITS)
                     .end()
                     .end()
                     .done();
  EXPECT_FALSE(decodeReply(verbose, 40, r)) << "a bit set that is not compact";
  for (std::size_t n = 0; n < linkModes.size(); ++n) {
    std::vector<uint8_t> cut(linkModes.begin(), linkModes.begin() + static_cast<long>(n));
    EXPECT_FALSE(decodeReply(cut, 40, r)) << n;
    if (n >= 4) {
      uint32_t length = static_cast<uint32_t>(n);
      std::memcpy(cut.data(), &length, 4);
      decodeReply(cut, 40, r);  // a shorter message: whatever it says, read within its bytes
    }
  }
}

TEST(EthtoolNetlinkDecoder, FeatureIndexFromTheFeaturesStringSet) {
  auto strings = [](uint32_t set, std::vector<std::string> names) {
    auto m = Message(ETHTOOL_MSG_STRSET_GET_REPLY);
    m.begin(ETHTOOL_A_STRSET_STRINGSETS).begin(ETHTOOL_A_STRINGSETS_STRINGSET).u32(ETHTOOL_A_STRINGSET_ID, set);
    m.u32(ETHTOOL_A_STRINGSET_COUNT, static_cast<uint32_t>(names.size())).begin(ETHTOOL_A_STRINGSET_STRINGS);
    for (uint32_t i = 0; i < names.size(); ++i)
      m.begin(ETHTOOL_A_STRINGS_STRING).u32(ETHTOOL_A_STRING_INDEX, i).str(ETHTOOL_A_STRING_VALUE, names[i]).end();
    return m.end().end().end().done();
  };
  EXPECT_EQ(decodeFeatureIndex(strings(ETH_SS_FEATURES, {"tx-checksum-ipv4", "rx-gro", "loopback", "rx-fcs"}),
                               "loopback"),
            2);
  EXPECT_EQ(decodeFeatureIndex(strings(ETH_SS_TEST, {"loopback"}), "loopback"), -1) << "another string set";
  EXPECT_EQ(decodeFeatureIndex(strings(ETH_SS_FEATURES, {"loopbacks", "rx-gro"}), "loopback"), -1);
}
