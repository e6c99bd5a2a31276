// Fuzz target for property lists as bundles read them (XML and binary, through the strings-table
// entry point that Info.plist shares). Beyond not crashing or hanging: the first input byte picks a
// form, so short inputs still reach both readers; an accepted table keeps within the entry limit,
// and a refusal always says why. One form repeats a fragment, so that a short input still makes a
// list far deeper or wider than the fuzzer's input length limit.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "tq/platform/bundle/strings_table.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::string bytes;
  switch (data[0] % 4) {
    case 0:  // as given (a whole binary or XML list from the seeds)
      bytes.assign(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
    case 1:  // an XML list body
      bytes = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
      bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
    case 2:  // a binary list: header, then the fuzzer's objects, offset table and trailer
      bytes = "bplist00";
      bytes.append(reinterpret_cast<const char*>(data + 1), size - 1);
      break;
    default: {  // an XML list PREFIX|UNIT|SUFFIX with UNIT repeated COUNT times (two bytes after the form)
      if (size < 3) return 0;
      std::size_t count = data[1] | std::size_t{data[2]} << 8;
      std::string_view rest(reinterpret_cast<const char*>(data + 3), size - 3);
      std::size_t a = rest.find('|'), b = a == rest.npos ? a : rest.find('|', a + 1);
      if (b == rest.npos) return 0;
      std::string_view unit = rest.substr(a + 1, b - a - 1);
      if (unit.size() * count > (std::size_t{4} << 20)) count = (std::size_t{4} << 20) / std::max<std::size_t>(unit.size(), 1);
      bytes = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
      bytes.append(rest.substr(0, a));
      bytes.reserve(bytes.size() + unit.size() * count + rest.size());
      for (std::size_t i = 0; i < count; ++i) bytes.append(unit);
      bytes.append(rest.substr(b + 1));
      break;
    }
  }
  auto result = tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  if (result.ok && result.entries.size() > tq::kStringsTableMaxEntries) std::abort();
  if (!result.ok && result.error.message.empty()) std::abort();
  return 0;
}
