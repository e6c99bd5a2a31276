// Runs commands as a user runs them: through bash; in the *_commands_test programs, which the
// build gives TQKIT_TOOL, with $T naming the built tqkit tool.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace tq::test {

struct Shell {
  int status;       // exit status, -1 when the command did not exit normally
  std::string out;  // standard output
};

// Runs a bash command line with pipefail on and, in the command tests, $T set (and exported) to
// the tool.
inline Shell sh(const std::string& command) {
#ifdef TQKIT_TOOL
  std::string line = "export T='" TQKIT_TOOL "'; set -o pipefail; " + command;
#else
  std::string line = "set -o pipefail; " + command;
#endif
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
