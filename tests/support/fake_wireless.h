// A wireless source a test drives: states by interface index, change events through an eventfd.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <map>
#include <vector>

#include "tq/platform/store/wireless_source.h"

namespace tq::test {

class FakeWireless : public WirelessSource {
 public:
  FakeWireless() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
  ~FakeWireless() override { close(fd_); }
  FakeWireless(const FakeWireless&) = delete;
  FakeWireless& operator=(const FakeWireless&) = delete;

  std::map<int, State> readAll() override { return states; }
  bool read(int index, State& state) override {
    auto it = states.find(index);
    if (it == states.end()) return false;
    state = it->second;
    return true;
  }
  int eventDescriptor() const override { return fd_; }
  Changes readEvents() override {
    uint64_t n;
    while (::read(fd_, &n, sizeof n) > 0) {
    }
    Changes c;
    c.interfaces.swap(changed);
    return c;
  }

  // Reports the interface as changed (whether or not its state did).
  void announce(int index) {
    changed.push_back(index);
    uint64_t one = 1;
    (void)!::write(fd_, &one, sizeof one);
  }
  // Sets the interface's state and reports it.
  void set(int index, State state) {
    states[index] = std::move(state);
    announce(index);
  }

  std::map<int, State> states;
  std::vector<int> changed;

 private:
  int fd_;
};

}  // namespace tq::test
