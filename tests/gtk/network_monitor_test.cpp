// The network monitor example, run in a network namespace of its own on the tests' X server: a
// veth pair made by the test appears in its table, goes down and comes back, and each change of
// link shows in the dumped widgets as the Ethernet observer's notifications report it.
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "gtk_support.h"
#include "support/dumping_process.h"
#include "support/net_namespace.h"
#include "support/x_display.h"

namespace tq {
namespace {

// One dump of the monitor's window: the table's rows (name, status) in order, separators as "-",
// and the status line.
struct Shown {
  std::vector<std::pair<std::string, std::string>> rows;
  std::string status;
};

using test::jsonField;

Shown parse(const std::vector<std::string>& lines) {
  Shown shown;
  std::map<long, std::pair<std::string, std::string>> rows;
  for (const auto& line : lines) {
    if (jsonField(line, "id") == "lbl-03") shown.status = jsonField(line, "text");
    const std::string row = jsonField(line, "row");
    if (row.empty()) continue;
    auto& r = rows[std::stol(row)];
    if (jsonField(line, "space") == "true") r = {"-", "-"};
    else if (jsonField(line, "column") == "name") r.first = jsonField(line, "text");
    else if (jsonField(line, "column") == "status") r.second = jsonField(line, "text");
  }
  for (const auto& [index, r] : rows) shown.rows.push_back(r);
  return shown;
}

// The monitor, read dump by dump.
class Monitor {
 public:
  Monitor() : process_({TQ_NETWORK_MONITOR, "--dump-widgets", "--screenshot", test::artefact("network-monitor.png")}) {}

  // Reads dumps until one satisfies `want` (within 10 s); that one, or the last read.
  Shown waitFor(const std::function<bool(const Shown&)>& want) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    Shown last;
    std::vector<std::string> dump;
    while (process_.nextDump(dump, end)) {
      last = parse(dump);
      history.push_back(last);
      if (want(last)) return last;
    }
    return last;
  }

  std::vector<Shown> history;

 private:
  test::DumpingProcess process_;
};

using Rows = std::vector<std::pair<std::string, std::string>>;

TEST(NetworkMonitor, ShowsAVethPairAppearGoDownAndComeBackAsItsObserversReport) {
  TQ_NEED_DISPLAY();
  TQ_ENTER_FRESH_NETNS(ns);
  Monitor monitor;
  // A fresh namespace holds its loopback alone, down.
  Shown shown = monitor.waitFor([](const Shown& s) { return s.rows == Rows{{"lo", "down"}}; });
  ASSERT_EQ(shown.rows, (Rows{{"lo", "down"}})) << "the monitor did not show the namespace's loopback";
  EXPECT_EQ(shown.status, "Watching the network");

  test::NetlinkRequests kernel;
  ASSERT_EQ(kernel.createVeth("tqveth0", "tqveth1"), 0);
  // Ethernet first, a separator row, then loopback.
  const Rows appeared{{"tqveth0", "down"}, {"tqveth1", "down"}, {"-", "-"}, {"lo", "down"}};
  shown = monitor.waitFor([&](const Shown& s) { return s.rows == appeared; });
  ASSERT_EQ(shown.rows, appeared);

  ASSERT_EQ(kernel.setUp("tqveth0", true), 0);
  ASSERT_EQ(kernel.setUp("tqveth1", true), 0);
  const Rows up{{"tqveth0", "up"}, {"tqveth1", "up"}, {"-", "-"}, {"lo", "down"}};
  shown = monitor.waitFor([&](const Shown& s) { return s.rows == up && s.status.find(" is up") != std::string::npos; });
  ASSERT_EQ(shown.rows, up);
  EXPECT_TRUE(shown.status == "tqveth0 is up" || shown.status == "tqveth1 is up") << shown.status;

  // One end down: both lose their carrier.
  ASSERT_EQ(kernel.setUp("tqveth1", false), 0);
  const Rows down{{"tqveth0", "down"}, {"tqveth1", "down"}, {"-", "-"}, {"lo", "down"}};
  shown = monitor.waitFor([&](const Shown& s) { return s.rows == down && s.status.find(" is down") != std::string::npos; });
  ASSERT_EQ(shown.rows, down);

  ASSERT_EQ(kernel.setUp("tqveth1", true), 0);
  shown = monitor.waitFor([&](const Shown& s) { return s.rows == up && s.status.find(" is up") != std::string::npos; });
  ASSERT_EQ(shown.rows, up);

  // Every status the table went through came with the status line of a notification, in order:
  // appeared down (no notification), up, down, up again.
  std::vector<std::string> statuses;
  for (const auto& s : monitor.history) {
    if (s.rows.size() == 4 && (statuses.empty() || statuses.back() != s.rows[0].second)) statuses.push_back(s.rows[0].second);
  }
  EXPECT_EQ(statuses, (std::vector<std::string>{"down", "up", "down", "up"}));
}

}  // namespace
}  // namespace tq
