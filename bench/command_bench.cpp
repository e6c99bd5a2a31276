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

namespace {

namespace fs = std::filesystem;

std::string tqkit() {
  const char* env = std::getenv("TQKIT_TOOL");
  return env && *env ? env : TQKIT_TOOL;
}

// The program's path found in PATH (or as given when it has a slash), or empty.
std::string which(const std::string& program) {
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
Run spawn(const std::vector<std::string>& argv) {
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

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Runs tqkit's command line and the peer's alternately; each iteration is one pair. The manual time
// of an iteration is tqkit's CPU time.
void comparePair(benchmark::State& state, const std::vector<std::string>& ours, std::vector<std::string> peer,
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
