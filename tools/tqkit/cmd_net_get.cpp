// tqkit net get KEY / tqkit net keys PATTERN: one key's value, and the keys matching a pattern.
#include <cstdio>

#include "net_support.h"
#include "tq/platform/store/key_pattern.h"

namespace {

using namespace tq;
using namespace tq::cli;

int runGet(const std::vector<std::string>& argv) {
  Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  auto store = net::openStore();
  Value value = store->copyValue(String::fromUTF8(args.positional(0, "KEY")));
  if (value.isNil()) throw Failure("no value for key " + args.positional(0, "KEY"));
  if (args.has("json")) {
    Json json;
    net::writeJson(json, value);
    json.newline();
  } else {
    std::printf("%s\n", value.description().UTF8String().c_str());
  }
  return 0;
}

int runKeys(const std::vector<std::string>& argv) {
  Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  auto store = net::openStore();
  String pattern = String::fromUTF8(args.positional(0, "PATTERN"));
  Array keys = store->copyKeyList(pattern);
  if (keys.isNil()) {
    std::string why = "not a valid extended regular expression";
    KeyPattern::compile(pattern, &why);
    throw Failure("the pattern is " + why);
  }
  if (args.has("json")) {
    Json json;
    json.beginArray();
    for (const String& k : keys.strings()) json.string(k.UTF8String());
    json.endArray();
    json.newline();
  } else {
    for (const String& k : keys.strings()) std::printf("%s\n", k.UTF8String().c_str());
  }
  return 0;
}

Registration get({"net get", "print one network-state key's value",
                  "usage: tqkit net get [--json] KEY\n\n"
                  "Prints the value of KEY in the kernel's network state, for example\n"
                  "  tqkit net get State:/Network/Interface/eth0/Link\n"
                  "Exits 1 when the key has no value. --json prints it as JSON (bytes as hex).\n\n"
                  "Interface names that are not UTF-8 stand in keys with each such byte as \\xHH\n"
                  "and each backslash doubled, as net keys and net watch show them:\n"
                  "  tqkit net get 'State:/Network/Interface/n\\xff/Link'\n",
                  runGet});
Registration keys({"net keys", "list the network-state keys matching a pattern",
                   "usage: tqkit net keys [--json] PATTERN\n\n"
                   "Lists the keys whose whole text matches PATTERN, a POSIX extended regular\n"
                   "expression, for example\n"
                   "  tqkit net keys 'State:/Network/Interface/.*/Link'\n"
                   "  tqkit net keys '.*'\n",
                   runKeys});

}  // namespace
