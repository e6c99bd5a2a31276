// Runs the built tqkit tool as a user runs it: through bash, with $T naming the tool. For the
// *_commands_test programs, which the build gives TQKIT_TOOL.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace tq::test {

struct Shell {
  int status;       // exit status, -1 when the command did not exit normally
  std::string out;  // standard output
};

// Runs a bash command line with $T set (and exported) to the tool and pipefail on.
inline Shell sh(const std::string& command) {
  std::string line = "export T='" TQKIT_TOOL "'; set -o pipefail; " + command;
  std::string quoted = "bash -c '";
  for (char c : line) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  quoted += "'";
  Shell r{0, ""};
  std::FILE* p = ::popen(quoted.c_str(), "r");
  if (!p) return {-1, ""};
  char buf[4096];
  while (std::size_t n = std::fread(buf, 1, sizeof buf, p)) r.out.append(buf, n);
  int st = ::pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

}  // namespace tq::test
