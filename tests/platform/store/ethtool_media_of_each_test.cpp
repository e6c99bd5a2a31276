// The media of every interface at once, checked against what the ethtool command itself says of
// each link (speed, duplex, port, pause, the loopback feature), mapped to the media text by a
// literal model of the documented table: over ethtool netlink, over the ioctl, and over the ioctl
// that a process gets when generic netlink is refused it.
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/seccomp.h>
#include <net/if.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "support/net_namespace.h"
#include "support/shell.h"
#include "tq/network/ethernet_observer.h"
#include "tq/platform/store/ethtool_media_source.h"
#include "tq/platform/store/ethtool_netlink_decoder.h"

using namespace tq;

namespace {

// What a command prints on standard output, its errors dropped.
std::string run(const std::string& command) { return test::sh(command + " 2>/dev/null").out; }

std::string field(const std::string& text, const std::string& name) {
  std::smatch m;
  std::regex re("\\n\\s*" + name + ": ([^\\n]*)");
  return std::regex_search(text, m, re) ? m[1].str() : "";
}

// The media text for a link as the ethtool command shows it; "" for a link without link settings.
std::string expectedMedia(const std::string& link) {
  std::string settings = run("ethtool " + link);
  std::string speed = field(settings, "Speed"), port = field(settings, "Port"), duplex = field(settings, "Duplex");
  if (speed.empty()) return "";
  bool copper = port == "Twisted Pair" || port == "MII";
  std::string subtype = "Unknown";
  if (speed == "10Mb/s") subtype = port == "BNC" ? "10base2/BNC" : port == "AUI" ? "10base5/AUI" : copper ? "10baseT/UTP" : subtype;
  if (speed == "100Mb/s") subtype = port == "FIBRE" ? "100baseFX" : copper ? "100baseTX" : subtype;
  if (speed == "1000Mb/s")
    subtype = port == "Direct Attach Copper" ? "1000baseCX" : port == "FIBRE" ? "1000baseSX" : copper ? "1000baseT" : subtype;
  if (speed == "10000Mb/s" && port == "FIBRE") subtype = "10GbaseSR";
  std::vector<std::string> options;
  if (duplex == "Full") options.push_back("full-duplex");
  if (duplex == "Half") options.push_back("half-duplex");
  const test::Shell pause = test::sh("ethtool -a " + link + " 2>/dev/null");
  if (pause.status == 0 && (field(pause.out, "RX") == "on" || field(pause.out, "TX") == "on")) options.push_back("flow-control");
  if (run("ethtool -k " + link).find("\nloopback: on") != std::string::npos) options.push_back("hw-loopback");
  std::string text = subtype;
  for (std::size_t i = 0; i < options.size(); ++i) text += (i ? "," : " <") + options[i];
  return options.empty() ? text : text + ">";
}

std::vector<String> linkNames() {
  std::vector<String> names;
  if (struct if_nameindex* all = if_nameindex()) {
    for (struct if_nameindex* n = all; n->if_index != 0; ++n) names.push_back(String::fromUTF8(n->if_name));
    if_freenameindex(all);
  }
  return names;
}

std::map<std::string, std::string> mediaTexts(MediaSource& source, const std::vector<String>& names) {
  std::map<std::string, std::string> out;
  auto results = source.queryMediaOfEach(names);
  for (std::size_t i = 0; i < names.size(); ++i)
    out[names[i].UTF8String()] =
        results[i].status == MediaSource::Status::Ok ? EthernetObserver::mediaDescription(results[i].word).UTF8String() : "";
  return out;
}

// Makes the links: veth, a macvlan on it, a bridge, an ifb or dummy (no link settings), and taps set up
// by the ethtool command with every port and speed the table names.
bool makeLinks() {
  const char* setup =
      "set -e; ip link add va type veth peer name vb; ip link add link va name mv0 type macvlan || true; "
      "ip link add br0 type bridge; ip link add nosettings type ifb || ip link add nosettings type dummy || true; "
      "tap() { ip tuntap add \"$1\" mode tap; shift; ethtool -s \"$@\"; }; "
      "tap t10bnc t10bnc speed 10 duplex half port bnc; tap t10aui t10aui speed 10 duplex full port aui; "
      "tap t10mii t10mii speed 10 duplex full port mii; tap t100 t100 speed 100 duplex full port tp; "
      "tap t100fx t100fx speed 100 duplex half port fibre; tap t1g t1g speed 1000 duplex full port tp autoneg on; "
      "tap t1gsx t1gsx speed 1000 duplex full port fibre; tap t1gda t1gda speed 1000 duplex full port da; "
      "tap t10g t10g speed 10000 duplex full port fibre; tap t2500 t2500 speed 2500 duplex full port tp";
  return test::sh("{ " + std::string(setup) + "; } 2>/dev/null").status == 0;
}

}  // namespace

// A fresh namespace with those links, and the media text of each as the ethtool command shows it.
class EthtoolMediaOfEach : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!ns_.ok()) GTEST_SKIP() << "needs a fresh network namespace: " << ns_.reason();
    if (test::sh("ethtool --version >/dev/null 2>&1").status != 0) GTEST_SKIP() << "needs the ethtool command (Debian package ethtool)";
    if (!makeLinks()) GTEST_SKIP() << "the links could not be made (ip, ethtool, tap devices)";
    names = linkNames();
    for (const String& n : names) expected[n.UTF8String()] = expectedMedia(n.UTF8String());
  }
  test::NetNamespace ns_;
  std::vector<String> names;
  std::map<std::string, std::string> expected;
};

TEST_F(EthtoolMediaOfEach, EveryLinkAsTheEthtoolCommandShowsIt) {
  for (const String& none : {String(u"nosuch0"), String()}) {
    names.push_back(none);
    expected[none.UTF8String()] = "";
  }
  ASSERT_GE(expected.size(), 17u);
  EXPECT_EQ(expected["t1gsx"], "1000baseSX <full-duplex>") << "the model reads ethtool's words";
  EXPECT_EQ(expected["lo"], "");

  EXPECT_GE(EthtoolMediaSource::featureIndex("loopback"), 0) << "the feature that makes the hw-loopback option";
  EXPECT_EQ(EthtoolMediaSource::featureIndex("no-such-feature"), -1);

  EthtoolMediaSource netlink(EthtoolMediaSource::Transport::Netlink), ioctl(EthtoolMediaSource::Transport::Ioctl);
  EXPECT_EQ(mediaTexts(netlink, names), expected) << "over ethtool netlink";
  EXPECT_EQ(mediaTexts(ioctl, names), expected) << "over the ioctl";
  for (const String& n : names) {
    auto one = netlink.queryMedia(n);
    EXPECT_EQ(one.status == MediaSource::Status::Ok ? EthernetObserver::mediaDescription(one.word).UTF8String() : "",
              expected[n.UTF8String()])
        << "one query, " << n.UTF8String();
  }

  std::map<int, EthtoolMediaSource::NamedFacts> overNetlink, overIoctl;
  EthtoolMediaSource::Transport used{};
  ASSERT_EQ(netlink.queryAllFacts(overNetlink, &used), MediaSource::Status::Ok);
  EXPECT_EQ(used, EthtoolMediaSource::Transport::Netlink) << "this kernel has ethtool netlink";
  ASSERT_EQ(ioctl.queryAllFacts(overIoctl, &used), MediaSource::Status::Ok);
  EXPECT_EQ(used, EthtoolMediaSource::Transport::Ioctl);
  ASSERT_EQ(overNetlink.size(), overIoctl.size());
  for (auto& [index, a] : overNetlink) {
    const auto& b = overIoctl[index];
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(std::tie(a.facts.speed, a.facts.duplex, a.facts.port, a.facts.autoneg, a.facts.supported,
                       a.facts.advertising, a.facts.havePause, a.facts.loopback),
              std::tie(b.facts.speed, b.facts.duplex, b.facts.port, b.facts.autoneg, b.facts.supported,
                       b.facts.advertising, b.facts.havePause, b.facts.loopback))
        << a.name;
  }
}

// A process that may not open generic netlink sockets (as on a kernel without them) reads every
// link over the ioctl, with the same answers.
TEST_F(EthtoolMediaOfEach, FallsBackToTheIoctlWithoutGenericNetlink) {
  pid_t child = ::fork();
  if (child == 0) {
    // socket(AF_NETLINK, *, NETLINK_GENERIC) fails with EPROTONOSUPPORT; everything else is allowed.
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_socket, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, NETLINK_GENERIC, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPROTONOSUPPORT),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
      ::_exit(3);
    if (::socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC) >= 0) ::_exit(4);
    EthtoolMediaSource source;
    std::map<int, EthtoolMediaSource::NamedFacts> all;
    EthtoolMediaSource::Transport used{};
    if (source.queryAllFacts(all, &used) != MediaSource::Status::Ok || used != EthtoolMediaSource::Transport::Ioctl)
      ::_exit(1);
    ::_exit(mediaTexts(source, names) == expected ? 0 : 2);
  }
  int childStatus = 0;
  ASSERT_EQ(::waitpid(child, &childStatus, 0), child);
  ASSERT_TRUE(WIFEXITED(childStatus));
  if (WEXITSTATUS(childStatus) == 3) GTEST_SKIP() << "seccomp filters are not allowed here";
  EXPECT_EQ(WEXITSTATUS(childStatus), 0) << "1: not read over the ioctl, 2: other answers, 4: the filter let it through";
}
