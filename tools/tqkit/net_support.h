// Shared pieces of the `tqkit net` commands: opening the kernel's store, and printing store values
// as text or JSON.
#pragma once

#include <memory>
#include <string>

#include "cli.h"
#include "tq/platform/base/value.h"
#include "tq/platform/store/linux_network_store.h"

namespace tq::cli::net {

// The kernel's store with nl80211 wireless state; a Failure when rtnetlink cannot be opened.
std::shared_ptr<LinuxNetworkStore> openStore(StoreConnection::Callout callout = nullptr);

// A value as JSON: strings as strings, numbers and booleans as such, data as lower-case hex text,
// arrays and dictionaries as arrays and objects, nil as null.
void writeJson(Json& json, const Value& value);
// A value on one line in the property-list style ({Active = 1; }).
std::string text(const Value& value);

}  // namespace tq::cli::net
