// tqkit: the command-line face of the library. `tqkit --help` lists the commands.
//
// Choosing and running a command, in the program and in each command module (command_modules.h);
// the program's main() is at the end.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli.h"
#include "command_modules.h"
#include "tq/platform/base/exception.h"

namespace {

// A standard stream the caller closed is held by /dev/null opened the wrong way round: a file the
// command opens later cannot take its number (and be read or written in its place), and reading or
// writing it fails with "Bad file descriptor", which the command reports.
[[maybe_unused]] void holdClosedStandardStreams() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    const int held = ::open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
    if (held >= 0 && held != fd) {
      ::dup2(held, fd);
      ::close(held);
    }
  }
}

// Help goes to standard output, which must take it: a lost line is an error like any other.
int finishHelp(const char* name) {
  try {
    tq::cli::finishStandardOutput();
  } catch (const tq::cli::Failure& e) {
    std::fprintf(stderr, "%s: %s\n", name, e.what());
    return 1;
  }
  return 0;
}

// elsewhere: the commands kept in modules, "NAME\tSUMMARY\n" lines.
void printHelp(std::FILE* out, const std::string& elsewhere) {
  std::fprintf(out,
               "usage: tqkit COMMAND [ARGS...]\n"
               "       tqkit COMMAND --help\n\n"
               "commands:\n");
  std::vector<std::pair<std::string, std::string>> all;
  for (const auto& c : tq::cli::commands()) all.emplace_back(c.name, c.summary);
  for (std::size_t at = 0, end; (end = elsewhere.find('\n', at)) != std::string::npos; at = end + 1) {
    std::size_t tab = elsewhere.find('\t', at);
    if (tab < end) all.emplace_back(elsewhere.substr(at, tab - at), elsewhere.substr(tab + 1, end - tab - 1));
  }
  std::sort(all.begin(), all.end());
  for (const auto& [name, summary] : all) std::fprintf(out, "  %-18s %s\n", name.c_str(), summary.c_str());
}

}  // namespace

std::string tq::cli::commandListing() {
  std::string out;
  for (const auto& c : commands()) out += c.name + "\t" + c.summary + "\n";
  return out;
}

int tq::cli::runCommandLine(const std::vector<std::string>& args, const std::string& elsewhere, bool onlyMine) {
  if (args.empty()) {
    printHelp(stderr, elsewhere);
    return 2;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    printHelp(stdout, elsewhere);
    return finishHelp("tqkit");
  }
  // The longest registered name that the arguments start with ("net status" before "net").
  const tq::cli::Command* chosen = nullptr;
  std::size_t words = 0;
  for (const auto& c : tq::cli::commands()) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t sp; (sp = c.name.find(' ', start)) != std::string::npos; start = sp + 1) {
      parts.push_back(c.name.substr(start, sp - start));
    }
    parts.push_back(c.name.substr(start));
    if (parts.size() > args.size() || parts.size() <= words) continue;
    bool match = true;
    for (std::size_t i = 0; i < parts.size(); ++i) match = match && parts[i] == args[i];
    if (match) {
      chosen = &c;
      words = parts.size();
    }
  }
  if (!chosen) {
    if (onlyMine) return kNotRegisteredHere;
    std::fprintf(stderr, "tqkit: unknown command '%s'\n", args[0].c_str());
    printHelp(stderr, elsewhere);
    return 2;
  }
  std::vector<std::string> rest(args.begin() + static_cast<long>(words), args.end());
  for (const auto& a : rest) {
    if (a == "--") break;
    if (a == "--help" || a == "-h") {
      std::fputs(chosen->usage.c_str(), stdout);
      return finishHelp(("tqkit " + chosen->name).c_str());
    }
  }
  try {
    int status = chosen->run(rest);
    try {
      tq::cli::finishStandardOutput();
    } catch (const tq::cli::Failure& e) {
      if (status != 0) return status;  // the command has said what went wrong already
      throw;
    }
    return status;
  } catch (const tq::cli::UsageError& e) {
    std::fprintf(stderr, "tqkit %s: %s\n\n%s", chosen->name.c_str(), e.what(), chosen->usage.c_str());
    return 2;
  } catch (const tq::cli::Failure& e) {
    std::fprintf(stderr, "tqkit %s: %s\n", chosen->name.c_str(), e.what());
    return 1;
  } catch (const tq::Exception& e) {
    std::fprintf(stderr, "tqkit %s: %s\n", chosen->name.c_str(), e.reason().UTF8String().c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tqkit %s: %s\n", chosen->name.c_str(), e.what());
    return 1;
  }
}

#ifndef TQKIT_COMMAND_MODULE
// The program holds the commands that start at once; the others are in command modules, loaded
// when one of their commands is asked for.
int main(int argc, char** argv) {
  holdClosedStandardStreams();
  std::vector<std::string> args(argv + 1, argv + argc);
  bool help = args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help";
  if (!help) {
    int status = tq::cli::runCommandLine(args, "", true);
    if (status != tq::cli::kNotRegisteredHere) return status;
    if (std::optional<int> inModule = tq::cli::runInModule(argc, argv)) return *inModule;
  }
  // Help, or a command found nowhere: both list every command, the modules' included.
  return tq::cli::runCommandLine(args, tq::cli::moduleListing(), false);
}
#endif
