// A display server for tests of live windows: Xvfb, started once per test program on the first
// display number no other server holds (test programs running at once never share one), stopped
// when the program ends. DISPLAY names it from then on (so GTK and xdotool find it); accessibility
// and the session bus are left out, which a headless server has not, and GTK draws with Cairo (no
// GPU).
#pragma once

#include <string>

namespace tq::test {

class XDisplay {
 public:
  // Starts the server on first use. ok() is false, with reason(), when Xvfb is missing or fails.
  static XDisplay& shared();
  bool ok() const { return ok_; }
  const std::string& reason() const { return reason_; }
  // ":N".
  const std::string& name() const { return name_; }
  ~XDisplay();

 private:
  XDisplay();
  bool ok_ = false;
  std::string reason_;
  std::string name_;
  int pid_ = -1;
};

// Whether a program is on PATH.
bool haveProgram(const std::string& name);

// Runs xdotool with the arguments (each passed as is); its exit status, -1 when it cannot run.
int xdotool(const std::string& arguments);

}  // namespace tq::test

#define TQ_NEED_DISPLAY()                                                                      \
  do {                                                                                         \
    const auto& display_ = ::tq::test::XDisplay::shared();                                     \
    if (!display_.ok()) GTEST_SKIP() << "needs a display server (Xvfb): " << display_.reason(); \
  } while (0)
