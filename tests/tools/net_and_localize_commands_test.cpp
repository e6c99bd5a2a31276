// The network commands of the tqkit tool, run as a user runs them. The network
// commands read a fresh network namespace (unshare -n, as root) so that what they print is known.
#include <gtest/gtest.h>

#include <string>

#include "support/shell.h"

namespace {

using tq::test::sh;

bool haveNamespaces() { return sh("unshare -n true 2>/dev/null").status == 0; }

TEST(NetCommands, ClassifyGivesTheObserversAnswerAndRefusesNonsense) {
  EXPECT_EQ(sh("$T net classify 10.0.0.0").out, "Private\n");
  EXPECT_EQ(sh("$T net classify 192.168.1.5").out, "Reserved\n") << "the last octet decides on this host";
  EXPECT_EQ(sh("$T net classify 1.2.3.200").out, "Public\n");
  EXPECT_EQ(sh("$T net classify 1.2.3 2>/dev/null").status, 2);
}

TEST(NetCommands, GetKeysAndStatusReadTheKernelsState) {
  if (!haveNamespaces()) GTEST_SKIP() << "needs network namespaces (root)";
  auto r = sh("unshare -n bash -c 'ip link set lo up && ip link add va type veth peer name vb && "
              "ip link set va up && ip link set vb up && ip addr add 10.9.0.2/24 dev va && "
              "ip route add default via 10.9.0.1 dev va && "
              "$T net get State:/Network/Global/IPv4 && echo --- && "
              "$T net keys \"State:/Network/Interface/v./Link\" && echo --- && $T net status --json'");
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("PrimaryInterface = va;"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Router = 10.9.0.1;"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("State:/Network/Interface/va/Link\nState:/Network/Interface/vb/Link\n"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\"name\":\"va\""), std::string::npos) << r.out;
  EXPECT_EQ(sh("unshare -n $T net get State:/Network/Interface/nothere/Link").status, 1)
      << "a key without a value is a failure for scripts";
}

}  // namespace
