// Fuzz target for property lists as bundles read them (XML and binary, through the strings-table
// entry point that Info.plist shares). Beyond not crashing or hanging: the first input byte picks a
// form, so short inputs still reach both readers; an accepted table keeps within the entry limit,
// and a refusal always says why.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tq/platform/bundle/strings_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string bytes;
  switch (data[0] % 3) {
    case 0:  // as given (a whole binary or XML list from the seeds)
      bytes.assign(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
    case 1:  // an XML list body
      bytes = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
      bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
    default:  // a binary list: header, then the fuzzer's objects, offset table and trailer
      bytes = "bplist00";
      bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
  }
  auto result = tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  if (result.ok && result.entries.size() > tq::kStringsTableMaxEntries) std::abort();
  if (!result.ok && result.error.message.empty()) std::abort();
  return 0;
}
