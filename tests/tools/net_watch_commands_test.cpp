// `tqkit net watch --json` as a script reads it, in a fresh network namespace (unshare -n, as root):
// one JSON object per report, parsed here by Python's json module rather than by the tool's writer.
#include <gtest/gtest.h>

#include <string>

#include "support/shell.h"

namespace {

using tq::test::sh;

bool haveNamespaces() { return sh("unshare -n true 2>/dev/null").status == 0; }
bool havePython() { return sh("python3 -c 1 2>/dev/null").status == 0; }

TEST(NetWatchCommand, EveryReportIsOneJsonObjectAndNamesThatAreNotUTF8AreEscaped) {
  if (!haveNamespaces()) GTEST_SKIP() << "needs network namespaces (root)";
  if (!havePython()) GTEST_SKIP() << "needs python3 to read the JSON";
  // A link whose name is the bytes n, 0xff; it comes up, gets an address, and goes.
  auto r = sh("unshare -n bash -c '"
              "ip link add $(printf \"n\\xff\") type veth peer name pb && ip link set pb up && "
              "out=$(mktemp) && ($T net watch --json > $out & echo $! > $out.pid) && sleep 0.5 && "
              "ip link set $(printf \"n\\xff\") up && sleep 0.2 && "
              "ip addr add 10.7.0.2/24 dev $(printf \"n\\xff\") && sleep 0.2 && "
              "$T net get \"State:/Network/Interface/n\\\\xff/IPv4\" > $out.get && "
              "ip link del pb && sleep 0.3 && kill $(cat $out.pid) && sleep 0.1 && "
              "python3 -c \"import json,sys\n"
              "for line in open(sys.argv[1]):\n"
              "  o = json.loads(line)\n"
              "  if \\\"key\\\" in o: print(o[\\\"key\\\"], json.dumps(o[\\\"value\\\"], sort_keys=True))\n"
              "\" $out && echo --- && cat $out.get'");
  ASSERT_EQ(r.status, 0) << r.out;
  const std::string& out = r.out;
  auto has = [&](const std::string& line) { return out.find(line + "\n") != std::string::npos; };
  EXPECT_TRUE(has(R"(State:/Network/Interface/n\xff/Link {"Active": true})")) << out;
  EXPECT_TRUE(has(R"(State:/Network/Interface/n\xff/IPv4 {"Addresses": ["10.7.0.2"], "SubnetMasks": ["255.255.255.0"]})"))
      << out;
  EXPECT_TRUE(has(R"(State:/Network/Interface/n\xff/Link null)")) << "removal as null\n" << out;
  EXPECT_TRUE(has(R"(Setup:/Network/Service/n\xff/Interface null)")) << out;
  EXPECT_NE(out.find("---\n"), std::string::npos);
  EXPECT_NE(out.substr(out.find("---\n")).find("10.7.0.2"), std::string::npos) << "net get takes the escaped key\n"
                                                                                 << out;
}

}  // namespace
