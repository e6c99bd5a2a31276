#include "tq/platform/store/nl80211_decoder.h"

#include <libmnl/libmnl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <cstring>

namespace tq::nl80211 {

namespace {

// The generic netlink message in `message`, or nullptr when the bytes are not one whole message of
// the expected type with room for its generic header.
const nlmsghdr* genlMessage(std::span<const uint8_t> message, uint16_t type) {
  if (message.size() < sizeof(nlmsghdr) + sizeof(genlmsghdr)) return nullptr;
  // The bytes may come unaligned from a fuzzer or a test; netlink messages are 4-byte aligned.
  if (reinterpret_cast<uintptr_t>(message.data()) % alignof(nlmsghdr) != 0) return nullptr;
  auto* nlh = reinterpret_cast<const nlmsghdr*>(message.data());
  // mnl_nlmsg_ok compares the length as a signed int, which lets a length of 2 GiB or more through:
  // check it against the bytes we have first.
  if (nlh->nlmsg_len > message.size()) return nullptr;
  if (!mnl_nlmsg_ok(nlh, static_cast<int>(message.size()))) return nullptr;
  if (nlh->nlmsg_len < MNL_NLMSG_HDRLEN + MNL_ALIGN(sizeof(genlmsghdr))) return nullptr;
  if (type != 0 && nlh->nlmsg_type != type) return nullptr;
  return nlh;
}

const genlmsghdr* genlHeader(const nlmsghdr* nlh) {
  return static_cast<const genlmsghdr*>(mnl_nlmsg_get_payload(nlh));
}

// Attributes of one level, by type (the last of a repeated type wins), validated for length only.
template <std::size_t N>
struct Attributes {
  const nlattr* at[N] = {};
  const nlattr* operator[](unsigned type) const { return type < N ? at[type] : nullptr; }
};

template <std::size_t N>
int collect(const nlattr* attr, void* data) {
  auto* table = static_cast<Attributes<N>*>(data);
  uint16_t type = mnl_attr_get_type(attr);
  if (type < N) table->at[type] = attr;
  return MNL_CB_OK;
}

template <std::size_t N>
bool parseTop(const nlmsghdr* nlh, Attributes<N>& table) {
  return mnl_attr_parse(nlh, sizeof(genlmsghdr), collect<N>, &table) >= MNL_CB_STOP;
}

template <std::size_t N>
bool parseNested(const nlattr* nest, Attributes<N>& table) {
  if (mnl_attr_validate(nest, MNL_TYPE_NESTED) < 0) return false;
  return mnl_attr_parse_nested(nest, collect<N>, &table) >= MNL_CB_STOP;
}

bool u32(const nlattr* attr, uint32_t& value) {
  if (!attr || mnl_attr_validate(attr, MNL_TYPE_U32) < 0) return false;
  value = mnl_attr_get_u32(attr);
  return true;
}

Data bytes(const nlattr* attr) {
  if (!attr) return Data();
  return Data::withBytes(mnl_attr_get_payload(attr), mnl_attr_get_payload_len(attr));
}

constexpr std::size_t kMaxAttr = NL80211_ATTR_MAX + 1;

}  // namespace

bool decodeFamily(std::span<const uint8_t> message, FamilyInfo& family) {
  const nlmsghdr* nlh = genlMessage(message, GENL_ID_CTRL);
  if (!nlh || genlHeader(nlh)->cmd != CTRL_CMD_NEWFAMILY) return false;
  Attributes<CTRL_ATTR_MAX + 1> top;
  if (!parseTop(nlh, top)) return false;
  const nlattr* id = top[CTRL_ATTR_FAMILY_ID];
  if (!id || mnl_attr_validate(id, MNL_TYPE_U16) < 0) return false;
  FamilyInfo out;
  out.id = mnl_attr_get_u16(id);
  if (const nlattr* name = top[CTRL_ATTR_FAMILY_NAME]; name && mnl_attr_validate(name, MNL_TYPE_NUL_STRING) >= 0)
    out.name = mnl_attr_get_str(name);
  if (const nlattr* groups = top[CTRL_ATTR_MCAST_GROUPS]) {
    if (mnl_attr_validate(groups, MNL_TYPE_NESTED) < 0) return false;
    const auto* end = reinterpret_cast<const uint8_t*>(groups) + groups->nla_len;
    for (auto* group = static_cast<const nlattr*>(mnl_attr_get_payload(groups));
         mnl_attr_ok(group, static_cast<int>(end - reinterpret_cast<const uint8_t*>(group)));
         group = mnl_attr_next(group)) {
      Attributes<CTRL_ATTR_MCAST_GRP_MAX + 1> g;
      if (!parseNested(group, g)) return false;
      uint32_t groupId;
      const nlattr* groupName = g[CTRL_ATTR_MCAST_GRP_NAME];
      if (!u32(g[CTRL_ATTR_MCAST_GRP_ID], groupId) || !groupName ||
          mnl_attr_validate(groupName, MNL_TYPE_NUL_STRING) < 0)
        continue;
      out.multicastGroups[mnl_attr_get_str(groupName)] = groupId;
    }
  }
  family = std::move(out);
  return true;
}

bool decodeInterface(std::span<const uint8_t> message, InterfaceInfo& info) {
  const nlmsghdr* nlh = genlMessage(message, 0);
  if (!nlh || nlh->nlmsg_type < NLMSG_MIN_TYPE || genlHeader(nlh)->cmd != NL80211_CMD_NEW_INTERFACE) return false;
  Attributes<kMaxAttr> top;
  if (!parseTop(nlh, top)) return false;
  InterfaceInfo out;
  uint32_t ifindex;
  if (!u32(top[NL80211_ATTR_IFINDEX], ifindex) || ifindex == 0 || ifindex > 0x7FFFFFFF) return false;
  out.ifindex = static_cast<int>(ifindex);
  u32(top[NL80211_ATTR_IFTYPE], out.iftype);
  if (const nlattr* ssid = top[NL80211_ATTR_SSID]; ssid && mnl_attr_get_payload_len(ssid) <= 32)
    out.ssid = bytes(ssid);
  info = std::move(out);
  return true;
}

bool decodeBss(std::span<const uint8_t> message, BssInfo& bss) {
  const nlmsghdr* nlh = genlMessage(message, 0);
  if (!nlh || nlh->nlmsg_type < NLMSG_MIN_TYPE || genlHeader(nlh)->cmd != NL80211_CMD_NEW_SCAN_RESULTS) return false;
  Attributes<kMaxAttr> top;
  if (!parseTop(nlh, top)) return false;
  const nlattr* nest = top[NL80211_ATTR_BSS];
  if (!nest) return false;
  Attributes<NL80211_BSS_MAX + 1> b;
  if (!parseNested(nest, b)) return false;
  const nlattr* bssid = b[NL80211_BSS_BSSID];
  if (!bssid || mnl_attr_get_payload_len(bssid) != 6) return false;
  BssInfo out;
  uint32_t ifindex = 0;
  if (u32(top[NL80211_ATTR_IFINDEX], ifindex) && ifindex <= 0x7FFFFFFF) out.ifindex = static_cast<int>(ifindex);
  out.bssid = bytes(bssid);
  uint32_t status;
  if (u32(b[NL80211_BSS_STATUS], status))
    out.associated = status == NL80211_BSS_STATUS_ASSOCIATED || status == NL80211_BSS_STATUS_IBSS_JOINED;
  const nlattr* ies = b[NL80211_BSS_INFORMATION_ELEMENTS];
  if (!ies) ies = b[NL80211_BSS_BEACON_IES];
  if (ies) {
    auto* p = static_cast<const uint8_t*>(mnl_attr_get_payload(ies));
    out.ssid = ssidFromInformationElements({p, mnl_attr_get_payload_len(ies)});
  }
  bss = std::move(out);
  return true;
}

bool decodeEvent(std::span<const uint8_t> message, uint16_t familyId, Event& event) {
  const nlmsghdr* nlh = genlMessage(message, familyId);
  if (!nlh || familyId == 0) return false;
  Attributes<kMaxAttr> top;
  if (!parseTop(nlh, top)) return false;
  Event out;
  out.command = genlHeader(nlh)->cmd;
  uint32_t ifindex = 0;
  if (u32(top[NL80211_ATTR_IFINDEX], ifindex) && ifindex <= 0x7FFFFFFF) out.ifindex = static_cast<int>(ifindex);
  if (const nlattr* mac = top[NL80211_ATTR_MAC]; mac && mnl_attr_get_payload_len(mac) == 6) out.bssid = bytes(mac);
  if (out.command == NL80211_CMD_CONNECT || out.command == NL80211_CMD_ROAM) {
    if (const nlattr* ies = top[NL80211_ATTR_REQ_IE])
      out.ssid = ssidFromInformationElements(
          {static_cast<const uint8_t*>(mnl_attr_get_payload(ies)), mnl_attr_get_payload_len(ies)});
    const nlattr* status = top[NL80211_ATTR_STATUS_CODE];
    bool succeeded = status && mnl_attr_validate(status, MNL_TYPE_U16) >= 0 && mnl_attr_get_u16(status) == 0;
    out.connected = out.command == NL80211_CMD_ROAM || (succeeded && !top[NL80211_ATTR_TIMED_OUT]);
  }
  out.byAccessPoint = out.command == NL80211_CMD_DISCONNECT && top[NL80211_ATTR_DISCONNECTED_BY_AP];
  switch (out.command) {
    case NL80211_CMD_CONNECT:
    case NL80211_CMD_DISCONNECT:
    case NL80211_CMD_ROAM:
    case NL80211_CMD_ASSOCIATE:
    case NL80211_CMD_DEAUTHENTICATE:
    case NL80211_CMD_DISASSOCIATE:
    case NL80211_CMD_NEW_INTERFACE:
    case NL80211_CMD_DEL_INTERFACE:
    case NL80211_CMD_SET_INTERFACE:
    case NL80211_CMD_JOIN_IBSS:
    case NL80211_CMD_LEAVE_IBSS:
    case NL80211_CMD_PORT_AUTHORIZED:
      out.changesState = true;
      break;
    default:
      break;
  }
  event = std::move(out);
  return true;
}

Data ssidFromInformationElements(std::span<const uint8_t> elements) {
  std::size_t i = 0;
  while (i + 2 <= elements.size()) {
    uint8_t id = elements[i];
    std::size_t len = elements[i + 1];
    if (i + 2 + len > elements.size()) return Data();
    if (id == 0) return len <= 32 ? Data::withBytes(elements.data() + i + 2, len) : Data();
    i += 2 + len;
  }
  return Data();
}

}  // namespace tq::nl80211
