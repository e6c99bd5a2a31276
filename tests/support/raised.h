// Runs a call that must raise a tq::Exception with a given name, and hands back its reason.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tq/platform/base/exception.h"

namespace tq::test {

template <class F>
std::string raisedReason(F&& f, const char16_t* name) {
  try {
    f();
  } catch (const Exception& e) {
    EXPECT_EQ(e.name(), String(name));
    return e.reason().UTF8String();
  }
  ADD_FAILURE() << "no exception";
  return {};
}

}  // namespace tq::test
