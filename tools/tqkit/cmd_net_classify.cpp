// tqkit net classify ADDRESS: the kind of an IPv4 address, as the IPv4 observer tells it.
#include <cstdio>

#include "cli.h"
#include "tq/network/ipv4_observer.h"

namespace {

using namespace tq;
using namespace tq::cli;

int runClassify(const std::vector<std::string>& argv) {
  Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  const std::string& text = args.positional(0, "ADDRESS");
  if (!parseIPv4Address(text)) throw UsageError("not a dotted-quad IPv4 address: " + text);
  auto observer = IPv4Observer::initWithStore(nullptr);
  std::string type = observer->typeOfIP(String::fromUTF8(text)).UTF8String();
  if (args.has("json")) {
    Json json;
    json.beginObject().key("address").string(text).key("type").string(type).endObject();
    json.newline();
  } else {
    std::printf("%s\n", type.c_str());
  }
  return 0;
}

Registration classify({"net classify", "tell the kind of an IPv4 address",
                       "usage: tqkit net classify [--json] ADDRESS\n\n"
                       "Prints the kind the IPv4 observer gives ADDRESS: Private, Loopback, Link-local,\n"
                       "Test, 6to4 relay, Benchmark, Reserved or Public. The table is matched on the\n"
                       "address bytes read as one native integer, as the observer always has: on\n"
                       "little-endian machines (x86-64, ARM) the last octet decides.\n",
                       runClassify});

}  // namespace
