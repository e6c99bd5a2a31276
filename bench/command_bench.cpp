// The tqkit command beside the tools a user would run instead, as whole processes: each case starts
// tqkit and its peer alternately as new processes (fork and exec, standard output to /dev/null) in
// the same run, and takes each process's CPU time (user + system, from wait4): what the process cost
// from exec to exit, start-up included, which other work on a shared machine disturbs less than
// the wall clock does. Counters: tqkit_us and peer_us are the medians of the runs, ratio their
// quotient (below 1: tqkit is faster); the fastest wall times are kept beside them.
//
//   start-up     an empty file: tqkit hex vs xxd -p and basenc --base16 -w0, tqkit sha1 vs sha1sum
//   1 MiB        tqkit hex vs basenc --base16 -w0, tqkit sha1 vs sha1sum, tqkit find vs
//                grep -F -a -b -m1 (random bytes, the pattern at the end)
//   64 MiB       tqkit find vs grep -F -a -b -m1, in text and in random bytes, the pattern at the end
//
// Every process runs in the C locale (grep's fastest). A peer that is not installed skips its case with a note. The tqkit program is the one the build made, or
// TQKIT_TOOL.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "process_pair.h"

namespace {

namespace fs = std::filesystem;
using tqbench::comparePair;

// --- inputs ----------------------------------------------------------------------------------------

struct Inputs {
  fs::path dir;
  std::string empty, random1M, needle1M, text64M, binary64M;
  std::string textNeedle = "tqkit-bench: the needle at the very end 0123456789";
  // No NUL and no line feed: grep takes its pattern as an argument, one line.
  std::string binaryNeedle = "\x01\xfe\x7f\x80 needle \xff\x10\x02\xfd";

  Inputs() {
    char tmpl[] = "/tmp/tqkit-command-bench-XXXXXX";
    dir = ::mkdtemp(tmpl) ? fs::path(tmpl) : fs::temp_directory_path();
    std::mt19937_64 rng(29);
    auto randomBytes = [&](std::size_t n) {
      std::string s(n, '\0');
      for (std::size_t i = 0; i + 8 <= n; i += 8) {
        uint64_t v = rng();
        std::memcpy(&s[i], &v, 8);
      }
      return s;
    };
    empty = write("empty", "");
    std::string r = randomBytes(1u << 20);
    random1M = write("random-1MiB", r);
    needle1M = write("needle-1MiB", r.substr(0, r.size() - binaryNeedle.size()) + binaryNeedle);
    std::string b = randomBytes(64u << 20);
    b.replace(b.size() - binaryNeedle.size(), binaryNeedle.size(), binaryNeedle);
    binary64M = write("binary-64MiB", b);
    // Lines of words, as a log or a source file; the needle's line ends the file.
    static const char* words[] = {"the", "interface", "address", "network", "value", "of", "and", "route",
                                  "bundle", "string", "table", "window", "a", "to", "link", "state"};
    std::string t;
    t.reserve(64u << 20);
    while (t.size() < (64u << 20) - textNeedle.size() - 128) {
      int n = 4 + static_cast<int>(rng() % 10);
      for (int i = 0; i < n; ++i) {
        t += words[rng() % std::size(words)];
        t += i + 1 < n ? ' ' : '\n';
      }
    }
    t += textNeedle + "\n";
    text64M = write("text-64MiB", t);
  }
  ~Inputs() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
  std::string write(const std::string& name, const std::string& bytes) {
    fs::path p = dir / name;
    std::ofstream(p, std::ios::binary) << bytes;
    return p.string();
  }
};

Inputs& inputs() {
  static Inputs in;
  return in;
}

std::string hexOf(const std::string& bytes) {
  std::string s;
  for (unsigned char c : bytes) s += "0123456789abcdef"[c >> 4], s += "0123456789abcdef"[c & 15];
  return s;
}

// --- cases -----------------------------------------------------------------------------------------

void registerCases() {
  auto add = [](const std::string& name, std::function<void(benchmark::State&)> body, int runs) {
    benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& st) { body(st); })
        ->UseManualTime()
        ->Iterations(runs)
        ->Unit(benchmark::kMicrosecond);
  };
  const int quick = 200, slow = 30;
  add("start/hex_empty/vs_xxd", [](benchmark::State& st) {
    comparePair(st, {"hex", inputs().empty}, {"xxd", "-p", inputs().empty}, "xxd");
  }, quick);
  add("start/hex_empty/vs_basenc", [](benchmark::State& st) {
    comparePair(st, {"hex", inputs().empty}, {"basenc", "--base16", "-w0", inputs().empty}, "coreutils");
  }, quick);
  add("start/sha1_empty/vs_sha1sum", [](benchmark::State& st) {
    comparePair(st, {"sha1", inputs().empty}, {"sha1sum", inputs().empty}, "coreutils");
  }, quick);
  add("1MiB/hex/vs_basenc", [](benchmark::State& st) {
    comparePair(st, {"hex", inputs().random1M}, {"basenc", "--base16", "-w0", inputs().random1M}, "coreutils");
  }, quick);
  add("1MiB/sha1/vs_sha1sum", [](benchmark::State& st) {
    comparePair(st, {"sha1", inputs().random1M}, {"sha1sum", inputs().random1M}, "coreutils");
  }, quick);
  add("1MiB/find/vs_grep", [](benchmark::State& st) {
    const auto& in = inputs();
    comparePair(st, {"find", hexOf(in.binaryNeedle), in.needle1M},
                {"grep", "-F", "-a", "-b", "-m1", in.binaryNeedle, in.needle1M}, "grep");
  }, quick);
  add("64MiB/find_text/vs_grep", [](benchmark::State& st) {
    const auto& in = inputs();
    comparePair(st, {"find", hexOf(in.textNeedle), in.text64M},
                {"grep", "-F", "-a", "-b", "-m1", in.textNeedle, in.text64M}, "grep");
  }, slow);
  add("64MiB/find_binary/vs_grep", [](benchmark::State& st) {
    const auto& in = inputs();
    comparePair(st, {"find", hexOf(in.binaryNeedle), in.binary64M},
                {"grep", "-F", "-a", "-b", "-m1", in.binaryNeedle, in.binary64M}, "grep");
  }, slow);
}

}  // namespace

int main(int argc, char** argv) {
  // Every process in the C locale: grep then compares bytes, its fastest way.
  ::setenv("LC_ALL", "C", 1);
  registerCases();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
