// Whole processes timed beside each other: tqkit's command line and a peer's, started alternately as
// new processes (fork and exec, standard streams on /dev/null), each measured by the CPU time the
// kernel counts for it (user + system, from wait4): what it cost from exec to exit, start-up
// included, which other work on a shared machine disturbs less than the wall clock does.
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

namespace tqbench {

// The tqkit program: TQKIT_TOOL from the environment, else the one the build made.
inline std::string tqkit() {
  const char* env = std::getenv("TQKIT_TOOL");
  return env && *env ? env : TQKIT_TOOL;
}

// The program's path found in PATH (or as given when it has a slash), or empty.
inline std::string which(const std::string& program) {
  if (program.find('/') != std::string::npos) return ::access(program.c_str(), X_OK) == 0 ? program : "";
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  for (std::size_t at = 0; at <= dirs.size();) {
    std::size_t end = dirs.find(':', at);
    if (end == std::string::npos) end = dirs.size();
    std::string candidate = dirs.substr(at, end - at) + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    at = end + 1;
  }
  return "";
}

struct Run {
  double cpuUs;
  double wallUs;
  int status;
};

// One process: argv[0] is the program's path; standard input from /dev/null, output to /dev/null.
inline Run spawn(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  auto start = std::chrono::steady_clock::now();
  pid_t pid = ::fork();
  if (pid == 0) {
    int null = ::open("/dev/null", O_RDWR);
    ::dup2(null, 0);
    ::dup2(null, 1);
    ::dup2(null, 2);
    ::execv(args[0], args.data());
    ::_exit(127);
  }
  int status = 0;
  struct rusage usage {};
  ::wait4(pid, &status, 0, &usage);
  double wall = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
  double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e6 +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  return {cpu, wall, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

inline double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Runs tqkit's command line and the peer's alternately; each iteration is one pair. The manual time
// of an iteration is tqkit's CPU time.
inline void comparePair(benchmark::State& state, const std::vector<std::string>& ours, std::vector<std::string> peer,
                 const std::string& peerPackage, const std::string& skipReason = "") {
  if (!skipReason.empty()) return state.SkipWithError(("skipped: " + skipReason).c_str());
  std::string tool = tqkit();
  if (tool.empty()) return state.SkipWithError("skipped: the tqkit program was not built (TQ_BUILD_TOOLS=OFF)");
  if (::access(tool.c_str(), X_OK) != 0) return state.SkipWithError(("skipped: no tqkit program at " + tool).c_str());
  std::string peerPath = which(peer[0]);
  if (peerPath.empty()) {
    return state.SkipWithError(("skipped: " + peer[0] + " is not installed (Debian package " + peerPackage + ")").c_str());
  }
  peer[0] = peerPath;
  std::vector<std::string> mine{tool};
  mine.insert(mine.end(), ours.begin(), ours.end());
  // Once each beforehand: both find the file in the page cache, and a broken case shows here.
  Run a = spawn(mine), b = spawn(peer);
  if (a.status != 0 || b.status != 0) {
    return state.SkipWithError(("exit status " + std::to_string(a.status) + " (tqkit) and " + std::to_string(b.status) +
                                " (" + peer[0] + ")").c_str());
  }
  std::vector<double> oursCpu, peerCpu, oursWall, peerWall;
  for (auto _ : state) {
    Run x = spawn(mine), y = spawn(peer);
    if (x.status != 0 || y.status != 0) return state.SkipWithError("a run failed");
    oursCpu.push_back(x.cpuUs);
    peerCpu.push_back(y.cpuUs);
    oursWall.push_back(x.wallUs);
    peerWall.push_back(y.wallUs);
    state.SetIterationTime(x.cpuUs / 1e6);
  }
  double t = median(oursCpu), p = median(peerCpu);
  state.counters["tqkit_us"] = t;
  state.counters["peer_us"] = p;
  state.counters["ratio"] = p > 0 ? t / p : 0;
  state.counters["tqkit_best_wall_us"] = *std::min_element(oursWall.begin(), oursWall.end());
  state.counters["peer_best_wall_us"] = *std::min_element(peerWall.begin(), peerWall.end());
}

}  // namespace tqbench
