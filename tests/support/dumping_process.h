// A program run as a child whose standard output carries widget dumps (tqkit show, the network
// monitor): read dump by dump, or line by line. Each dump starts with the window's line, whose
// "count" says how many lines the dump has.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace tq::test {

// A field of a JSON line: the string's escaped text, or a number or literal as it stands; "" when
// the line has no such field.
inline std::string jsonField(const std::string& line, const std::string& name) {
  std::smatch m;
  const std::regex string("\"" + name + "\":\"((?:[^\"\\\\]|\\\\.)*)\"");
  if (std::regex_search(line, m, string)) return m[1];
  const std::regex number("\"" + name + "\":([-0-9a-z.]+)");
  return std::regex_search(line, m, number) ? std::string(m[1]) : std::string();
}

class DumpingProcess {
 public:
  using Clock = std::chrono::steady_clock;
  // Starts `argv` (argv[0] a path) with `language` as LANGUAGE when not empty.
  explicit DumpingProcess(std::vector<std::string> argv, const std::string& language = "en") {
    int fds[2];
    if (::pipe(fds) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(fds[1], 1);
      ::close(fds[0]);
      ::close(fds[1]);
      if (!language.empty()) ::setenv("LANGUAGE", language.c_str(), 1);
      std::vector<char*> args;
      for (auto& a : argv) args.push_back(a.data());
      args.push_back(nullptr);
      ::execv(args[0], args.data());
      ::_exit(127);
    }
    ::close(fds[1]);
    fd_ = fds[0];
  }
  ~DumpingProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      int status;
      ::waitpid(pid_, &status, 0);
    }
    if (fd_ >= 0) ::close(fd_);
  }
  DumpingProcess(const DumpingProcess&) = delete;
  DumpingProcess& operator=(const DumpingProcess&) = delete;

  pid_t pid() const { return pid_; }

  bool nextLine(std::string& line, Clock::time_point end) {
    while (true) {
      if (auto nl = buffer_.find('\n'); nl != std::string::npos) {
        line = buffer_.substr(0, nl);
        buffer_.erase(0, nl + 1);
        return true;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
      pollfd p{fd_, POLLIN, 0};
      if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0) return false;
      char chunk[8192];
      const ssize_t n = ::read(fd_, chunk, sizeof chunk);
      if (n <= 0) return false;
      buffer_.append(chunk, static_cast<std::size_t>(n));
    }
  }

  // The next whole dump; lines before it that are not part of a dump are skipped.
  bool nextDump(std::vector<std::string>& dump, Clock::time_point end) {
    dump.clear();
    std::string line;
    do {
      if (!nextLine(line, end)) return false;
    } while (jsonField(line, "count").empty());
    const long count = std::stol(jsonField(line, "count"));
    dump.push_back(line);
    while (static_cast<long>(dump.size()) < count) {
      if (!nextLine(line, end)) return false;
      dump.push_back(line);
    }
    return true;
  }

 private:
  pid_t pid_ = -1;
  int fd_ = -1;
  std::string buffer_;
};

}  // namespace tq::test
