// Xvfb for the tests of live windows.
#include "support/x_display.h"

#include <poll.h>
#include <sys/prctl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace tq::test {

bool haveProgram(const std::string& name) {
  const std::string command = "command -v " + name + " > /dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

XDisplay& XDisplay::shared() {
  static XDisplay display;
  return display;
}

XDisplay::XDisplay() {
  if (!haveProgram("Xvfb")) {
    reason_ = "Xvfb is not installed (package xvfb; scripts/install-deps.sh installs it)";
    return;
  }
  int fds[2];
  if (::pipe(fds) != 0) {
    reason_ = std::strerror(errno);
    return;
  }
  const pid_t pid = ::fork();
  if (pid == 0) {
    // The server goes with the test program, however that ends.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::close(fds[0]);
    // Xvfb picks a free display number and writes it to the descriptor.
    const std::string fd = std::to_string(fds[1]);
    ::execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1600x1200x24", "-nolisten", "tcp",
             "-nolisten", "local", "-noreset", static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(fds[1]);
  if (pid < 0) {
    reason_ = std::strerror(errno);
    ::close(fds[0]);
    return;
  }
  pid_ = pid;
  std::string number;
  pollfd p{fds[0], POLLIN, 0};
  char c;
  while (::poll(&p, 1, 10000) > 0 && ::read(fds[0], &c, 1) == 1 && c != '\n') number += c;
  ::close(fds[0]);
  if (number.empty()) {
    reason_ = "Xvfb did not start";
    return;
  }
  name_ = ":" + number;
  ::setenv("DISPLAY", name_.c_str(), 1);
  ::unsetenv("WAYLAND_DISPLAY");
  ::setenv("GDK_BACKEND", "x11", 1);
  ::setenv("GTK_A11Y", "none", 1);
  ::setenv("NO_AT_BRIDGE", "1", 1);
  // A virtual display has no GPU: GTK draws with Cairo rather than OpenGL in software.
  ::setenv("GSK_RENDERER", "cairo", 0);
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  ok_ = true;
}

XDisplay::~XDisplay() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    int status;
    ::waitpid(pid_, &status, 0);
  }
}

int xdotool(const std::string& arguments) {
  const std::string command = "xdotool " + arguments + " > /dev/null 2>&1";
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tq::test
