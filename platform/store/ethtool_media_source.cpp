#include "tq/platform/store/ethtool_media_source.h"

#include <libmnl/libmnl.h>
#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tq/platform/store/ethtool_netlink_decoder.h"
#include "tq/platform/store/nl80211_decoder.h"

namespace tq {

namespace {

constexpr uint32_t kFullDuplex = 0x00100000;
constexpr uint32_t kHalfDuplex = 0x00200000;
constexpr uint32_t kFlowControl = 0x00400000;
constexpr uint32_t kHwLoopback = 0x08000000;

using Facts = EthtoolMediaFacts;

bool twistedPair(uint8_t port) { return port == PORT_TP || port == PORT_MII; }

uint32_t subtype10(const Facts& f) {
  if (f.port == PORT_BNC) return 4;
  if (f.port == PORT_AUI) return 5;
  return twistedPair(f.port) ? 3 : 0;
}

uint32_t subtype100(const Facts& f) {
  if (f.port == PORT_FIBRE) return 7;
  if (!twistedPair(f.port)) return 0;
  bool fx = Facts::has(f.supported, ETHTOOL_LINK_MODE_100baseFX_Half_BIT) ||
            Facts::has(f.supported, ETHTOOL_LINK_MODE_100baseFX_Full_BIT);
  bool copper = Facts::has(f.supported, ETHTOOL_LINK_MODE_100baseT_Half_BIT) ||
                Facts::has(f.supported, ETHTOOL_LINK_MODE_100baseT_Full_BIT) ||
                Facts::has(f.supported, ETHTOOL_LINK_MODE_100baseT1_Full_BIT);
  return fx && !copper ? 7 : 6;
}

uint32_t subtype1000(const Facts& f) {
  // SFF-8472 byte 6: bit 0 1000BASE-SX, bit 1 1000BASE-LX, bit 2 1000BASE-CX, bit 3 1000BASE-T.
  if (f.sfp1GCodes & 0x02) return 14;
  if (f.sfp1GCodes & 0x01) return 11;
  if (f.sfp1GCodes & 0x04) return 15;
  if (f.sfp1GCodes & 0x08) return 16;
  if (f.port == PORT_DA) return 15;
  if (f.port == PORT_FIBRE) return 11;
  return twistedPair(f.port) ? 16 : 0;
}

uint32_t subtype10000(const Facts& f) {
  // SFF-8472 byte 3, high nibble: bit 4 10GBASE-SR, bit 5 LR, bit 6 LRM, bit 7 ER.
  if (f.sfp10GCodes & 0x10) return 18;
  if (f.sfp10GCodes & 0x20) return 19;
  if (f.sfp10GCodes & 0xF0) return 0;
  bool sr = Facts::has(f.supported, ETHTOOL_LINK_MODE_10000baseSR_Full_BIT);
  bool lr = Facts::has(f.supported, ETHTOOL_LINK_MODE_10000baseLR_Full_BIT);
  if (sr && !lr) return 18;
  if (lr && !sr) return 19;
  return f.port == PORT_FIBRE ? 18 : 0;
}

bool anyBit(const Facts::LinkModes& modes) {
  for (uint32_t w : modes)
    if (w) return true;
  return false;
}

// Flow control as the link resolved it (IEEE 802.3 annex 28B) when that can be known, else as
// configured.
bool flowControl(const Facts& f) {
  if (!f.havePause) return false;
  if (f.pauseAutoneg && f.autoneg && anyBit(f.lpAdvertising)) {
    bool lp = Facts::has(f.advertising, ETHTOOL_LINK_MODE_Pause_BIT);
    bool la = Facts::has(f.advertising, ETHTOOL_LINK_MODE_Asym_Pause_BIT);
    bool pp = Facts::has(f.lpAdvertising, ETHTOOL_LINK_MODE_Pause_BIT);
    bool pa = Facts::has(f.lpAdvertising, ETHTOOL_LINK_MODE_Asym_Pause_BIT);
    return (lp && pp) || (lp && la && !pp && pa) || (!lp && la && pp && pa);
  }
  return f.rxPause || f.txPause;
}

// An owned file descriptor.
struct Fd {
  int fd;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

int ethtool(int fd, const std::string& name, void* data) {
  ifreq ifr{};
  std::memcpy(ifr.ifr_name, name.data(), name.size());
  ifr.ifr_data = static_cast<char*>(data);
  return ::ioctl(fd, SIOCETHTOOL, &ifr) < 0 ? errno : 0;
}

void copyModes(const uint32_t* words, int nwords, Facts::LinkModes& modes) {
  for (int i = 0; i < nwords && i < 4; ++i) modes[i] = words[i];
}

// ETHTOOL_GLINKSETTINGS: a first call with no mode words makes the kernel say how many it has.
bool readLinkSettings(int fd, const std::string& name, Facts& f) {
  // The mode words follow the fixed part: supported, advertising and partner, nwords each.
  alignas(ethtool_link_settings) uint8_t buf[sizeof(ethtool_link_settings) + 3 * 127 * sizeof(uint32_t)] = {};
  auto* base = reinterpret_cast<ethtool_link_settings*>(buf);
  base->cmd = ETHTOOL_GLINKSETTINGS;
  if (ethtool(fd, name, buf) != 0 || base->link_mode_masks_nwords >= 0) return false;
  int nwords = -base->link_mode_masks_nwords;
  std::memset(buf, 0, sizeof buf);
  base->cmd = ETHTOOL_GLINKSETTINGS;
  base->link_mode_masks_nwords = static_cast<int8_t>(nwords);
  if (ethtool(fd, name, buf) != 0 || base->link_mode_masks_nwords != nwords) return false;
  f.speed = base->speed;
  f.duplex = base->duplex;
  f.port = base->port;
  f.autoneg = base->autoneg == AUTONEG_ENABLE;
  uint32_t words[3 * 127];
  std::memcpy(words, buf + sizeof(ethtool_link_settings), sizeof words);
  copyModes(words, nwords, f.supported);
  copyModes(words + nwords, nwords, f.advertising);
  copyModes(words + 2 * nwords, nwords, f.lpAdvertising);
  return true;
}

bool readLegacySettings(int fd, const std::string& name, Facts& f) {
  ethtool_cmd cmd{};
  cmd.cmd = ETHTOOL_GSET;
  if (ethtool(fd, name, &cmd) != 0) return false;
  f.speed = ethtool_cmd_speed(&cmd);
  f.duplex = cmd.duplex;
  f.port = cmd.port;
  f.autoneg = cmd.autoneg == AUTONEG_ENABLE;
  f.supported[0] = cmd.supported;
  f.advertising[0] = cmd.advertising;
  f.lpAdvertising[0] = cmd.lp_advertising;
  return true;
}

void readPause(int fd, const std::string& name, Facts& f) {
  ethtool_pauseparam pause{};
  pause.cmd = ETHTOOL_GPAUSEPARAM;
  if (ethtool(fd, name, &pause) != 0) return;
  f.havePause = true;
  f.pauseAutoneg = pause.autoneg != 0;
  f.rxPause = pause.rx_pause != 0;
  f.txPause = pause.tx_pause != 0;
}

// Finds the "loopback" feature among the ETH_SS_FEATURES strings and reads whether it is active.
void readLoopbackFeature(int fd, const std::string& name, Facts& f) {
  alignas(ethtool_sset_info) uint8_t sset[sizeof(ethtool_sset_info) + sizeof(uint32_t)] = {};
  auto* info = reinterpret_cast<ethtool_sset_info*>(sset);
  info->cmd = ETHTOOL_GSSET_INFO;
  info->sset_mask = 1ull << ETH_SS_FEATURES;
  if (ethtool(fd, name, sset) != 0 || !(info->sset_mask & (1ull << ETH_SS_FEATURES))) return;
  uint32_t count;
  std::memcpy(&count, sset + sizeof(ethtool_sset_info), sizeof count);
  if (count == 0 || count > 4096) return;

  std::vector<uint8_t> strings(sizeof(ethtool_gstrings) + std::size_t(count) * ETH_GSTRING_LEN);
  auto* gs = reinterpret_cast<ethtool_gstrings*>(strings.data());
  gs->cmd = ETHTOOL_GSTRINGS;
  gs->string_set = ETH_SS_FEATURES;
  gs->len = count;
  if (ethtool(fd, name, gs) != 0) return;
  uint32_t index = count;
  const char* names = reinterpret_cast<const char*>(strings.data() + sizeof(ethtool_gstrings));
  for (uint32_t i = 0; i < gs->len && i < count; ++i) {
    if (strncmp(names + std::size_t(i) * ETH_GSTRING_LEN, "loopback", ETH_GSTRING_LEN) == 0) {
      index = i;
      break;
    }
  }
  if (index == count) return;

  uint32_t blocks = (count + 31) / 32;
  std::vector<uint8_t> buffer(sizeof(ethtool_gfeatures) + blocks * sizeof(ethtool_get_features_block));
  auto* gf = reinterpret_cast<ethtool_gfeatures*>(buffer.data());
  gf->cmd = ETHTOOL_GFEATURES;
  gf->size = blocks;
  if (ethtool(fd, name, gf) != 0) return;
  auto* block = reinterpret_cast<const ethtool_get_features_block*>(buffer.data() + sizeof(ethtool_gfeatures));
  f.loopback = (block[index / 32].active >> (index % 32)) & 1u;
}

// SFP modules only (SFF-8079 / SFF-8472); QSFP layouts carry their codes elsewhere and are left out.
void readModule(int fd, const std::string& name, Facts& f) {
  ethtool_modinfo info{};
  info.cmd = ETHTOOL_GMODULEINFO;
  if (ethtool(fd, name, &info) != 0) return;
  if (info.type != ETH_MODULE_SFF_8079 && info.type != ETH_MODULE_SFF_8472) return;
  constexpr std::size_t kBytes = 8;
  alignas(ethtool_eeprom) uint8_t req[sizeof(ethtool_eeprom) + kBytes] = {};
  auto* eeprom = reinterpret_cast<ethtool_eeprom*>(req);
  eeprom->cmd = ETHTOOL_GMODULEEEPROM;
  eeprom->offset = 0;
  eeprom->len = kBytes;
  if (ethtool(fd, name, req) != 0) return;
  readSfpCompliance(std::span<const uint8_t>(req + sizeof(ethtool_eeprom), kBytes), f);
}

bool needsModule(const Facts& f) {
  return (f.port == PORT_FIBRE || f.port == PORT_DA) && (f.speed == 1000 || f.speed == 10000);
}

// Everything the ioctl tells of one interface; false when its driver has no link settings.
bool readOverIoctl(int fd, const std::string& name, Facts& facts) {
  facts = Facts{};
  if (!readLinkSettings(fd, name, facts) && !readLegacySettings(fd, name, facts)) return false;
  readPause(fd, name, facts);
  readLoopbackFeature(fd, name, facts);
  if (needsModule(facts)) readModule(fd, name, facts);
  return true;
}

int datagramSocket() { return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

// The ethtool generic netlink family on one socket: a dump of each kind of reply the media word
// needs, for every interface at once.
class EthtoolNetlink {
 public:
  EthtoolNetlink() : buffer_(32768) {}
  EthtoolNetlink(const EthtoolNetlink&) = delete;
  EthtoolNetlink& operator=(const EthtoolNetlink&) = delete;
  ~EthtoolNetlink() {
    if (nl_) mnl_socket_close(nl_);
  }

  // Opens the socket and finds the family; false when either fails.
  bool open() {
    nl_ = mnl_socket_open2(NETLINK_GENERIC, SOCK_CLOEXEC);
    if (!nl_ || mnl_socket_bind(nl_, 0, MNL_SOCKET_AUTOPID) < 0) return false;
    // The kernel answers at once; a bounded wait keeps a wedged one from hanging the caller.
    timeval tv{1, 0};
    setsockopt(mnl_socket_get_fd(nl_), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    portid_ = mnl_socket_get_portid(nl_);
    nl80211::FamilyInfo family;
    bool found = request(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, false, [&](nlmsghdr* nlh) {
      mnl_attr_put_strz(nlh, CTRL_ATTR_FAMILY_NAME, ETHTOOL_GENL_NAME);
    }, [&](std::span<const uint8_t> m) { nl80211::decodeFamily(m, family); });
    family_ = family.id;
    return found && family_ != 0;
  }

  // The index of a feature among the kernel's feature names (a set of no one device); -1 when the
  // kernel does not name it.
  int featureIndex(std::string_view name) {
    int found = -1;
    request(family_, ETHTOOL_MSG_STRSET_GET, false, [](nlmsghdr* nlh) {
      // An empty request header: the kernel wants one, naming no device.
      mnl_attr_nest_end(nlh, mnl_attr_nest_start(nlh, ETHTOOL_A_STRSET_HEADER));
      nlattr* sets = mnl_attr_nest_start(nlh, ETHTOOL_A_STRSET_STRINGSETS);
      nlattr* set = mnl_attr_nest_start(nlh, ETHTOOL_A_STRINGSETS_STRINGSET);
      mnl_attr_put_u32(nlh, ETHTOOL_A_STRINGSET_ID, ETH_SS_FEATURES);
      mnl_attr_nest_end(nlh, set);
      mnl_attr_nest_end(nlh, sets);
    }, [&](std::span<const uint8_t> m) {
      if (int index = ethtool_netlink::decodeFeatureIndex(m, name); index >= 0) found = index;
    });
    return found;
  }

  // The facts of every interface with link settings; false when a dump is refused or breaks off.
  bool readAll(std::map<int, EthtoolMediaSource::NamedFacts>& all) {
    int loopback = featureIndex("loopback");
    // The link modes name the interfaces that have link settings; the other dumps add to them.
    for (uint8_t command : {ETHTOOL_MSG_LINKMODES_GET, ETHTOOL_MSG_LINKINFO_GET, ETHTOOL_MSG_PAUSE_GET,
                            ETHTOOL_MSG_FEATURES_GET}) {
      ethtool_netlink::Reply reply;
      bool ok = request(family_, command, true, [](nlmsghdr* nlh) {
        // Attribute 1 is the request header in every kind of request.
        nlattr* header = mnl_attr_nest_start(nlh, ETHTOOL_A_LINKMODES_HEADER);
        mnl_attr_put_u32(nlh, ETHTOOL_A_HEADER_FLAGS, ETHTOOL_FLAG_COMPACT_BITSETS);
        mnl_attr_nest_end(nlh, header);
      }, [&](std::span<const uint8_t> m) {
        if (!ethtool_netlink::decodeReply(m, loopback, reply)) return;
        if (command == ETHTOOL_MSG_LINKMODES_GET) {
          auto& entry = all[reply.ifindex];
          entry.name = reply.name;
          ethtool_netlink::takeInto(reply, entry.facts);
        } else if (auto it = all.find(reply.ifindex); it != all.end()) {
          ethtool_netlink::takeInto(reply, it->second.facts);
        }
      });
      if (!ok) return false;
    }
    return true;
  }

 private:
  // Sends one request (`fill` adds its attributes) and hands each answer to `each`; false when the
  // kernel answers with an error or the answers break off.
  template <class Fill, class Each>
  bool request(uint16_t type, uint8_t command, bool dump, Fill fill, Each each) {
    alignas(nlmsghdr) uint8_t out[256];
    nlmsghdr* nlh = mnl_nlmsg_put_header(out);
    nlh->nlmsg_type = type;
    nlh->nlmsg_flags = NLM_F_REQUEST | (dump ? NLM_F_DUMP : NLM_F_ACK);
    nlh->nlmsg_seq = ++seq_;
    auto* genl = static_cast<genlmsghdr*>(mnl_nlmsg_put_extra_header(nlh, sizeof(genlmsghdr)));
    genl->cmd = command;
    genl->version = type == GENL_ID_CTRL ? 1 : ETHTOOL_GENL_VERSION;
    fill(nlh);
    if (mnl_socket_sendto(nl_, nlh, nlh->nlmsg_len) < 0) return false;
    // An interrupted dump is read to its end all the same, so that the next one may start.
    bool interrupted = false;
    for (;;) {
      ssize_t n = mnl_socket_recvfrom(nl_, buffer_.data(), buffer_.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      int len = static_cast<int>(n);
      for (auto* m = reinterpret_cast<nlmsghdr*>(buffer_.data()); mnl_nlmsg_ok(m, len); m = mnl_nlmsg_next(m, &len)) {
        if (m->nlmsg_seq != seq_ || m->nlmsg_pid != portid_) continue;
        if (m->nlmsg_type == NLMSG_ERROR || m->nlmsg_type == NLMSG_DONE) {
          // Both end the answer; their first word is 0 or the negated error.
          int error = 0;
          if (mnl_nlmsg_get_payload_len(m) >= sizeof(int)) std::memcpy(&error, mnl_nlmsg_get_payload(m), sizeof error);
          return error == 0 && !interrupted && !(m->nlmsg_flags & NLM_F_DUMP_INTR);
        }
        interrupted |= (m->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        each(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(m), m->nlmsg_len));
      }
    }
  }

  mnl_socket* nl_ = nullptr;
  unsigned portid_ = 0;
  uint16_t family_ = 0;
  uint32_t seq_ = 0;
  std::vector<uint8_t> buffer_;
};

// Every interface's facts over ethtool netlink; false when the kernel lacks it or a dump fails
// (a dump that links coming and going interrupt is read again, twice at most).
bool readAllOverNetlink(std::map<int, EthtoolMediaSource::NamedFacts>& all) {
  EthtoolNetlink netlink;
  if (!netlink.open()) return false;
  bool read = false;
  for (int attempt = 0; attempt < 3 && !read; ++attempt) {
    all.clear();
    read = netlink.readAll(all);
  }
  if (!read) return false;
  // SFP modules have no dump: the few ports that need theirs read it by ioctl.
  Fd sock{-1};
  for (auto& [index, entry] : all) {
    if (!needsModule(entry.facts)) continue;
    if (sock.fd < 0) sock.fd = datagramSocket();
    if (sock.fd >= 0) readModule(sock.fd, entry.name, entry.facts);
  }
  return true;
}

}  // namespace

uint32_t mediaWordFromEthtool(const EthtoolMediaFacts& f) noexcept {
  uint32_t word = 0;
  switch (f.speed) {
    case 10: word = subtype10(f); break;
    case 100: word = subtype100(f); break;
    case 1000: word = subtype1000(f); break;
    case 10000: word = subtype10000(f); break;
    default: break;
  }
  if (f.duplex == DUPLEX_FULL) word |= kFullDuplex;
  if (f.duplex == DUPLEX_HALF) word |= kHalfDuplex;
  if (flowControl(f)) word |= kFlowControl;
  if (f.loopback) word |= kHwLoopback;
  return word;
}

void readSfpCompliance(std::span<const uint8_t> eeprom, EthtoolMediaFacts& facts) noexcept {
  if (eeprom.size() < 7) return;
  facts.sfp10GCodes = eeprom[3] & 0xF0;
  facts.sfp1GCodes = eeprom[6];
}

MediaSource::Status EthtoolMediaSource::queryFacts(const String& interfaceName, EthtoolMediaFacts& facts) {
  std::string name = interfaceName.UTF8String();
  if (name.empty() || name.size() >= IFNAMSIZ) return Status::Failed;
  Fd sock{datagramSocket()};
  if (sock.fd < 0) return Status::NoSocket;
  return readOverIoctl(sock.fd, name, facts) ? Status::Ok : Status::Failed;
}

MediaSource::Status EthtoolMediaSource::queryAllFacts(std::map<int, NamedFacts>& all, Transport* used) {
  if (used) *used = Transport::Netlink;
  if (transport_ == Transport::Netlink && readAllOverNetlink(all)) return Status::Ok;
  all.clear();
  if (used) *used = Transport::Ioctl;
  Fd sock{datagramSocket()};
  if (sock.fd < 0) return Status::NoSocket;
  if (struct if_nameindex* names = if_nameindex()) {
    for (struct if_nameindex* n = names; n->if_index != 0; ++n) {
      NamedFacts entry;
      entry.name = n->if_name;
      if (readOverIoctl(sock.fd, entry.name, entry.facts)) all[static_cast<int>(n->if_index)] = std::move(entry);
    }
    if_freenameindex(names);
  }
  return Status::Ok;
}

std::vector<MediaSource::Result> EthtoolMediaSource::queryMediaOfEach(std::span<const String> interfaceNames) {
  std::vector<Result> results(interfaceNames.size());
  std::map<int, NamedFacts> all;
  if (transport_ == Transport::Netlink && readAllOverNetlink(all)) {
    std::unordered_map<std::string, const EthtoolMediaFacts*> byName;
    byName.reserve(all.size());
    for (const auto& [index, entry] : all) byName.emplace(entry.name, &entry.facts);
    for (std::size_t i = 0; i < interfaceNames.size(); ++i) {
      auto it = byName.find(interfaceNames[i].UTF8String());
      if (it == byName.end()) continue;
      results[i].status = Status::Ok;
      results[i].word = mediaWordFromEthtool(*it->second);
    }
    return results;
  }
  // Over ioctl only the names asked for are read, on one socket.
  Fd sock{datagramSocket()};
  for (std::size_t i = 0; i < interfaceNames.size(); ++i) {
    std::string name = interfaceNames[i].UTF8String();
    EthtoolMediaFacts facts;
    if (sock.fd < 0) {
      results[i].status = Status::NoSocket;
    } else if (!name.empty() && name.size() < IFNAMSIZ && readOverIoctl(sock.fd, name, facts)) {
      results[i].status = Status::Ok;
      results[i].word = mediaWordFromEthtool(facts);
    }
  }
  return results;
}

MediaSource::Result EthtoolMediaSource::queryMedia(const String& interfaceName) {
  EthtoolMediaFacts facts;
  Result result;
  result.status = queryFacts(interfaceName, facts);
  if (result.status == Status::Ok) result.word = mediaWordFromEthtool(facts);
  return result;
}

int EthtoolMediaSource::featureIndex(std::string_view name) {
  EthtoolNetlink netlink;
  return netlink.open() ? netlink.featureIndex(name) : -1;
}

std::shared_ptr<MediaSource> systemMediaSource() {
  static const std::shared_ptr<MediaSource> source = std::make_shared<EthtoolMediaSource>();
  return source;
}

}  // namespace tq
