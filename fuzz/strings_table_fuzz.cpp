// Fuzz target for the strings-table reader. Beyond not crashing: a table that parses is written back
// in the quoted text form (every non-ASCII or control unit as \UXXXX) and must read back to the same
// entries; a table that does not parse must name a position.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tq/platform/bundle/strings_table.h"

namespace {

void appendQuoted(std::string& out, const tq::String& s) {
  out += '"';
  for (char16_t c : s.view()) {
    if (c == u'"' || c == u'\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c >= 0x20 && c < 0x7F) {
      out += static_cast<char>(c);
    } else {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\U%04X", static_cast<unsigned>(c));
      out += buffer;
    }
  }
  out += '"';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto result = tq::parseStringsTable(std::span(data, size));
  if (!result.ok) {
    if (result.error.line == 0 || result.error.column == 0 || result.error.message.empty()) std::abort();
    return 0;
  }
  std::string text;
  for (const auto& e : result.entries) {
    appendQuoted(text, e.key);
    text += " = ";
    appendQuoted(text, e.value);
    text += ";\n";
  }
  auto again = tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  if (!again.ok || again.entries.size() != result.entries.size()) std::abort();
  for (std::size_t i = 0; i < again.entries.size(); ++i) {
    if (again.entries[i].key != result.entries[i].key || again.entries[i].value != result.entries[i].value) std::abort();
  }
  return 0;
}
