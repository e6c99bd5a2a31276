// Xvfb for the tests of live windows.
#include "support/x_display.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace tq::test {

bool haveProgram(const std::string& name) {
  const std::string command = "command -v " + name + " > /dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

// Whether the server `pid` holds `display` (its lock file names it) and accepts connections there
// within 10 s; false once it exits.
static bool serverTakesClients(pid_t pid, int display) {
  const std::string lockPath = "/tmp/.X" + std::to_string(display) + "-lock";
  const std::string socketPath = "/tmp/.X11-unix/X" + std::to_string(display);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socketPath.c_str());
  for (int tries = 0; tries < 500; ++tries) {
    if (::waitpid(pid, nullptr, WNOHANG) == pid) return false;
    long holder = 0;
    std::ifstream(lockPath) >> holder;
    if (holder != pid) {
      ::usleep(20000);
      continue;
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (fd >= 0) ::close(fd);
    if (connected) return true;
    ::usleep(20000);
  }
  return false;
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
  // Left to choose a display itself (-displayfd), the server makes no lock file and takes over the
  // socket of a display another server holds, and a test's clients then reach the other test's
  // server. So the display is chosen here: the first without a lock file, given to the server by
  // number (it makes the lock file, or exits if the display is taken after all), one start at a
  // time among the tests, each until its server takes clients.
  const int startLock = ::open("/tmp/tq-xvfb-start.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (startLock >= 0) ::flock(startLock, LOCK_EX);
  struct Unlock {
    int fd;
    ~Unlock() {
      if (fd >= 0) ::close(fd);
    }
  } unlock{startLock};
  std::string number;
  for (int display = 20; display < 120 && number.empty(); ++display) {
    const std::string name = ":" + std::to_string(display);
    if (::access(("/tmp/.X" + std::to_string(display) + "-lock").c_str(), F_OK) == 0) continue;
    const pid_t pid = ::fork();
    if (pid == 0) {
      // The server goes with the test program, however that ends.
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      ::execlp("Xvfb", "Xvfb", name.c_str(), "-screen", "0", "1600x1200x24", "-nolisten", "tcp", "-nolisten",
               "local", "-noreset", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    if (pid < 0) {
      reason_ = std::strerror(errno);
      return;
    }
    if (serverTakesClients(pid, display)) {
      pid_ = pid;
      number = std::to_string(display);
    } else {
      ::kill(pid, SIGTERM);
      ::waitpid(pid, nullptr, 0);
    }
  }
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
  // What xdotool says goes to the test's log only when it fails.
  char said[] = "/tmp/tq-xdotool-XXXXXX";
  const int fd = ::mkstemp(said);
  if (fd >= 0) ::close(fd);
  const std::string command = "xdotool " + arguments + " > '" + said + "' 2>&1";
  const int status = std::system(command.c_str());
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (code != 0) {
    std::ifstream in(said);
    std::fprintf(stderr, "xdotool %s: exit %d: %s\n", arguments.c_str(), code,
                 std::string(std::istreambuf_iterator<char>(in), {}).c_str());
  }
  ::unlink(said);
  return code;
}

}  // namespace tq::test
