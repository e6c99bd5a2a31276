// First calls in a fresh process, for the benchmark programs.
//
// A steady-state loop hides what one call costs a user: the first call pays for page faults on a
// new result buffer, for caches and for lazy set-up. A first-call benchmark runs the operation once
// in a new process (this same program, started again with TQ_BENCH_FRESH naming the case), so
// nothing earlier in the run (warm buffers, a kept spare, faulted-in heap) helps it. Each iteration
// is one process; the reported time is the timed call alone, and the counter best_ms is the
// fastest of the processes.
//
// Use: register the cases with registerFirstCall() before benchmark::Initialize(), and call
// runFirstCallIfAsked() first thing in main() (it returns true in the child, which then exits).
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>

namespace tqbench {

// Prepares the inputs (not timed), then returns the seconds of the one timed call.
using FirstCall = std::function<double()>;

inline std::map<std::string, FirstCall>& firstCalls() {
  static std::map<std::string, FirstCall> cases;
  return cases;
}

// Seconds taken by `op`, for use inside a FirstCall.
template <class Op>
double timeOnce(Op&& op) {
  auto start = std::chrono::steady_clock::now();
  op();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// In the child: runs the case named by TQ_BENCH_FRESH, prints its seconds and returns true.
inline bool runFirstCallIfAsked() {
  const char* name = std::getenv("TQ_BENCH_FRESH");
  if (!name) return false;
  auto it = firstCalls().find(name);
  std::printf("%.9f\n", it == firstCalls().end() ? -1.0 : it->second());
  return true;
}

// In the parent: the seconds of one first call, in a new process whose TQ_ISA is `isa` (empty:
// inherited); negative on failure.
inline double firstCallSeconds(const std::string& name, const std::string& isa = "") {
  char self[4096];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return -1;
  self[n] = 0;
  // Names are the program's own benchmark names: letters, digits, '/', '_' and '-'.
  std::string command = (isa.empty() ? "" : "TQ_ISA='" + isa + "' ") + "TQ_BENCH_FRESH='" + name + "' '" + self + "'";
  FILE* child = popen(command.c_str(), "r");
  if (!child) return -1;
  double seconds = -1;
  if (std::fscanf(child, "%lf", &seconds) != 1) seconds = -1;
  if (pclose(child) != 0) seconds = -1;
  return seconds;
}

// Registers `name` as a benchmark of `runs` fresh processes, each timing one call of `call`, with
// TQ_ISA set to `isa` in the new processes when it is not empty.
inline void registerFirstCall(const std::string& name, FirstCall call, const std::string& isa = "", int runs = 5) {
  firstCalls()[name] = std::move(call);
  benchmark::RegisterBenchmark(name.c_str(),
                               [name, isa](benchmark::State& state) {
                                 double best = 1e30;
                                 for (auto _ : state) {
                                   double s = firstCallSeconds(name, isa);
                                   if (s < 0) {
                                     state.SkipWithError("the fresh process failed");
                                     break;
                                   }
                                   state.SetIterationTime(s);
                                   best = std::min(best, s);
                                 }
                                 state.counters["best_ms"] = best * 1e3;
                               })
      ->UseManualTime()
      ->Iterations(runs)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace tqbench
