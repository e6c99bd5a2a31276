#include "tq/platform/store/nl80211_decoder.h"

#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <cstring>
#include <string>
#include <vector>

using namespace tq;
using namespace tq::nl80211;

namespace {

// Builds one generic netlink message: header, genl header, attributes (nests by start/end).
class Builder {
 public:
  Builder(uint16_t type, uint8_t cmd) {
    bytes_.resize(NLMSG_HDRLEN + GENL_HDRLEN);
    header()->nlmsg_type = type;
    auto* g = reinterpret_cast<genlmsghdr*>(bytes_.data() + NLMSG_HDRLEN);
    g->cmd = cmd;
    g->version = 1;
  }
  Builder& put(uint16_t type, const void* data, std::size_t size) {
    std::size_t at = bytes_.size();
    bytes_.resize(at + NLA_ALIGN(NLA_HDRLEN + size));
    auto* a = reinterpret_cast<nlattr*>(bytes_.data() + at);
    a->nla_type = type;
    a->nla_len = static_cast<uint16_t>(NLA_HDRLEN + size);
    if (size) std::memcpy(bytes_.data() + at + NLA_HDRLEN, data, size);
    return *this;
  }
  Builder& u32(uint16_t type, uint32_t v) { return put(type, &v, 4); }
  Builder& u16(uint16_t type, uint16_t v) { return put(type, &v, 2); }
  Builder& str(uint16_t type, const std::string& s) { return put(type, s.c_str(), s.size() + 1); }
  Builder& bytes(uint16_t type, const std::vector<uint8_t>& b) { return put(type, b.data(), b.size()); }
  Builder& begin(uint16_t type) {
    nests_.push_back(bytes_.size());
    return put(type | NLA_F_NESTED, nullptr, 0);
  }
  Builder& end() {
    std::size_t at = nests_.back();
    nests_.pop_back();
    reinterpret_cast<nlattr*>(bytes_.data() + at)->nla_len = static_cast<uint16_t>(bytes_.size() - at);
    return *this;
  }
  // The finished message, in 4-byte aligned storage.
  std::span<const uint8_t> done() {
    header()->nlmsg_len = static_cast<uint32_t>(bytes_.size());
    aligned_.assign((bytes_.size() + 3) / 4, 0);
    std::memcpy(aligned_.data(), bytes_.data(), bytes_.size());
    return {reinterpret_cast<const uint8_t*>(aligned_.data()), bytes_.size()};
  }

 private:
  nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(bytes_.data()); }
  std::vector<uint8_t> bytes_;
  std::vector<std::size_t> nests_;
  std::vector<uint32_t> aligned_;
};

const std::vector<uint8_t> kBssid = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

std::vector<uint8_t> ies(const std::string& ssid) {
  std::vector<uint8_t> v = {1, 2, 0x82, 0x84};  // supported rates first
  v.push_back(0);
  v.push_back(static_cast<uint8_t>(ssid.size()));
  v.insert(v.end(), ssid.begin(), ssid.end());
  v.insert(v.end(), {3, 1, 6});  // DS parameter set
  return v;
}

}  // namespace

TEST(Nl80211Decoder, FamilyWithItsGroups) {
  Builder b(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY);
  b.u16(CTRL_ATTR_FAMILY_ID, 0x1c).str(CTRL_ATTR_FAMILY_NAME, "nl80211");
  b.begin(CTRL_ATTR_MCAST_GROUPS);
  b.begin(1).u32(CTRL_ATTR_MCAST_GRP_ID, 5).str(CTRL_ATTR_MCAST_GRP_NAME, "config").end();
  b.begin(2).u32(CTRL_ATTR_MCAST_GRP_ID, 7).str(CTRL_ATTR_MCAST_GRP_NAME, "mlme").end();
  b.begin(3).str(CTRL_ATTR_MCAST_GRP_NAME, "no-id").end();
  b.end();
  FamilyInfo f;
  ASSERT_TRUE(decodeFamily(b.done(), f));
  EXPECT_EQ(f.id, 0x1c);
  EXPECT_EQ(f.name, "nl80211");
  EXPECT_EQ(f.multicastGroups, (std::map<std::string, uint32_t>{{"config", 5}, {"mlme", 7}}));

  Builder noId(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY);
  noId.str(CTRL_ATTR_FAMILY_NAME, "nl80211");
  EXPECT_FALSE(decodeFamily(noId.done(), f));
  Builder otherCmd(GENL_ID_CTRL, CTRL_CMD_GETFAMILY);
  otherCmd.u16(CTRL_ATTR_FAMILY_ID, 3);
  EXPECT_FALSE(decodeFamily(otherCmd.done(), f));
}

TEST(Nl80211Decoder, InterfaceAndAssociatedBss) {
  Builder i(0x1c, NL80211_CMD_NEW_INTERFACE);
  i.u32(NL80211_ATTR_IFINDEX, 3).u32(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_STATION).bytes(NL80211_ATTR_SSID, {'H', 'o', 'm', 'e'});
  InterfaceInfo info;
  ASSERT_TRUE(decodeInterface(i.done(), info));
  EXPECT_EQ(info.ifindex, 3);
  EXPECT_EQ(info.iftype, static_cast<uint32_t>(NL80211_IFTYPE_STATION));
  EXPECT_EQ(info.ssid, Data::withString("Home"));

  Builder noSsid(0x1c, NL80211_CMD_NEW_INTERFACE);
  noSsid.u32(NL80211_ATTR_IFINDEX, 4);
  ASSERT_TRUE(decodeInterface(noSsid.done(), info));
  EXPECT_TRUE(info.ssid.isNil()) << "not joined";

  Builder bss(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  bss.u32(NL80211_ATTR_IFINDEX, 3).begin(NL80211_ATTR_BSS);
  bss.bytes(NL80211_BSS_BSSID, kBssid).bytes(NL80211_BSS_INFORMATION_ELEMENTS, ies("Caf\xc3\xa9"));
  bss.u32(NL80211_BSS_STATUS, NL80211_BSS_STATUS_ASSOCIATED).end();
  BssInfo b;
  ASSERT_TRUE(decodeBss(bss.done(), b));
  EXPECT_EQ(b.ifindex, 3);
  EXPECT_EQ(b.bssid, Data::withVector(kBssid));
  EXPECT_EQ(b.ssid, Data::withString("Caf\xc3\xa9"));
  EXPECT_TRUE(b.associated);

  Builder seen(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  seen.u32(NL80211_ATTR_IFINDEX, 3).begin(NL80211_ATTR_BSS).bytes(NL80211_BSS_BSSID, kBssid).end();
  ASSERT_TRUE(decodeBss(seen.done(), b));
  EXPECT_FALSE(b.associated) << "a BSS merely seen in a scan";
  EXPECT_TRUE(b.ssid.isNil());

  Builder shortBssid(0x1c, NL80211_CMD_NEW_SCAN_RESULTS);
  shortBssid.begin(NL80211_ATTR_BSS).bytes(NL80211_BSS_BSSID, {1, 2, 3}).end();
  EXPECT_FALSE(decodeBss(shortBssid.done(), b));
}

TEST(Nl80211Decoder, EventsThatChangeTheAssociation) {
  struct Case {
    uint8_t cmd;
    bool changes;
  };
  for (Case c : {Case{NL80211_CMD_CONNECT, true}, Case{NL80211_CMD_DISCONNECT, true}, Case{NL80211_CMD_ROAM, true},
                 Case{NL80211_CMD_DEL_INTERFACE, true}, Case{NL80211_CMD_NEW_SCAN_RESULTS, false},
                 Case{NL80211_CMD_TRIGGER_SCAN, false}}) {
    Builder e(0x1c, c.cmd);
    e.u32(NL80211_ATTR_IFINDEX, 9).bytes(NL80211_ATTR_MAC, kBssid);
    Event ev;
    ASSERT_TRUE(decodeEvent(e.done(), 0x1c, ev)) << int(c.cmd);
    EXPECT_EQ(ev.command, c.cmd);
    EXPECT_EQ(ev.ifindex, 9);
    EXPECT_EQ(ev.changesState, c.changes) << int(c.cmd);
  }
  Builder other(0x1d, NL80211_CMD_CONNECT);
  Event ev;
  EXPECT_FALSE(decodeEvent(other.done(), 0x1c, ev)) << "another family's message";
}

TEST(Nl80211Decoder, WhatConnectRoamAndDisconnectEventsSayOfTheAssociation) {
  std::vector<uint8_t> request = ies("tq-home");  // the station's association request
  struct Case {
    const char* name;
    uint8_t cmd;
    int status;  // -1: no status attribute
    bool timedOut, byAp;
    bool connected, byAccessPoint;
    const char* ssid;  // nullptr: nil
  };
  const Case cases[] = {
      {"connect", NL80211_CMD_CONNECT, 0, false, false, true, false, "tq-home"},
      {"connect refused", NL80211_CMD_CONNECT, 17, false, false, false, false, "tq-home"},
      {"connect timed out", NL80211_CMD_CONNECT, 0, true, false, false, false, "tq-home"},
      {"connect without status", NL80211_CMD_CONNECT, -1, false, false, false, false, "tq-home"},
      {"roam", NL80211_CMD_ROAM, -1, false, false, true, false, "tq-home"},
      {"left by the station", NL80211_CMD_DISCONNECT, -1, false, false, false, false, nullptr},
      {"left by the access point", NL80211_CMD_DISCONNECT, -1, false, true, false, true, nullptr},
  };
  for (const Case& c : cases) {
    Builder e(0x1c, c.cmd);
    e.u32(NL80211_ATTR_IFINDEX, 2).bytes(NL80211_ATTR_MAC, kBssid);
    if (c.cmd != NL80211_CMD_DISCONNECT) e.bytes(NL80211_ATTR_REQ_IE, request);
    if (c.status >= 0) e.u16(NL80211_ATTR_STATUS_CODE, static_cast<uint16_t>(c.status));
    if (c.timedOut) e.put(NL80211_ATTR_TIMED_OUT, nullptr, 0);
    if (c.byAp) e.put(NL80211_ATTR_DISCONNECTED_BY_AP, nullptr, 0);
    Event ev;
    ASSERT_TRUE(decodeEvent(e.done(), 0x1c, ev)) << c.name;
    EXPECT_EQ(ev.bssid, Data::withVector(kBssid)) << c.name;
    EXPECT_EQ(ev.connected, c.connected) << c.name;
    EXPECT_EQ(ev.byAccessPoint, c.byAccessPoint) << c.name;
    EXPECT_EQ(ev.ssid, c.ssid ? Data::withString(c.ssid) : Data()) << c.name;
  }
}

TEST(Nl80211Decoder, InformationElementsAndMalformedInput) {
  EXPECT_EQ(ssidFromInformationElements(ies("net")), Data::withString("net"));
  std::vector<uint8_t> hidden = {0, 0};
  EXPECT_EQ(ssidFromInformationElements(hidden), Data::empty()) << "a hidden network's empty SSID";
  std::vector<uint8_t> truncated = {1, 2, 0x82, 0x84, 0, 9, 'a', 'b'};
  EXPECT_TRUE(ssidFromInformationElements(truncated).isNil());
  std::vector<uint8_t> none = {1, 1, 0x82};
  EXPECT_TRUE(ssidFromInformationElements(none).isNil());

  Builder i(0x1c, NL80211_CMD_NEW_INTERFACE);
  i.u32(NL80211_ATTR_IFINDEX, 3).bytes(NL80211_ATTR_SSID, {'a', 'b', 'c'});
  auto whole = i.done();
  std::vector<uint32_t> copy((whole.size() + 3) / 4);
  InterfaceInfo info;
  for (std::size_t len = 0; len < whole.size(); ++len) {
    std::memcpy(copy.data(), whole.data(), len);
    EXPECT_FALSE(decodeInterface({reinterpret_cast<const uint8_t*>(copy.data()), len}, info)) << len;
  }
  // An attribute whose length runs past the message.
  std::memcpy(copy.data(), whole.data(), whole.size());
  auto* bytes = reinterpret_cast<uint8_t*>(copy.data());
  reinterpret_cast<nlattr*>(bytes + NLMSG_HDRLEN + GENL_HDRLEN)->nla_len = 200;
  EXPECT_FALSE(decodeInterface({bytes, whole.size()}, info));
  Builder wrongSize(0x1c, NL80211_CMD_NEW_INTERFACE);
  wrongSize.put(NL80211_ATTR_IFINDEX, "ab", 2);
  EXPECT_FALSE(decodeInterface(wrongSize.done(), info));
}
