// tqkit: the command-line face of the library. `tqkit --help` lists the commands.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "tq/platform/base/exception.h"

namespace {

// A standard stream the caller closed is held by /dev/null opened the wrong way round: a file the
// command opens later cannot take its number (and be read or written in its place), and reading or
// writing it fails with "Bad file descriptor", which the command reports.
void holdClosedStandardStreams() {
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

void printHelp(std::FILE* out) {
  std::fprintf(out,
               "usage: tqkit COMMAND [ARGS...]\n"
               "       tqkit COMMAND --help\n\n"
               "commands:\n");
  for (const auto& c : tq::cli::commands()) std::fprintf(out, "  %-18s %s\n", c.name.c_str(), c.summary.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  holdClosedStandardStreams();
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    printHelp(stderr);
    return 2;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    printHelp(stdout);
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
    std::fprintf(stderr, "tqkit: unknown command '%s'\n", args[0].c_str());
    printHelp(stderr);
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
