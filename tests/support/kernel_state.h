// The store's keys and values as they should be now, made straight from the kernel's own dumps
// (links, IPv4 addresses, IPv4 routes of every table) with a literal model of the key mapping the
// store's header documents. It shares no code with the store: tests compare the store's reports
// with it.
#pragma once

#include <map>
#include <string>

#include "tq/platform/base/value.h"

namespace tq::test {

// Key (UTF-8) to value, for every key the store should hold in the calling thread's namespace.
// Wireless keys are not modelled (the namespace has no wireless links). The primary interface's
// addresses start with the one the kernel itself gives as the source through that interface (its
// answer to a route query for an outside address), the others in the kernel's order.
std::map<std::string, Value> expectedStoreFromKernel();

// The escaping of interface names written out again: UTF-8 stays, a backslash doubles, any other
// byte becomes \xHH.
std::string escapedInterfaceName(const std::string& raw);

// A readable difference of two key-value maps ("" when equal), for failure messages.
std::string describeDifference(const std::map<std::string, Value>& expected,
                               const std::map<std::string, Value>& actual, const char* expectedName,
                               const char* actualName);

}  // namespace tq::test
