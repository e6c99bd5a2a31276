// tqkit strings: the entries of one strings table, in file order.
#include <cstdio>

#include "byte_stream.h"
#include "cli.h"
#include "tq/platform/bundle/strings_table.h"

namespace {

// A quoted strings-table literal, so that the output reads back as a table.
std::string quote(const tq::String& s) {
  std::string out = "\"";
  for (char c : s.UTF8String()) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {  // NUL and the other controls, as octal escapes
          char octal[8];
          std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(c));
          out += octal;
        } else {
          out += c;
        }
    }
  }
  return out + "\"";
}

int runStrings(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  const std::string& file = args.positional(0, "FILE");
  std::string bytes = tq::cli::readFile(file, tq::kStringsTableMaxBytes);
  auto result = tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
  if (!result.ok) throw tq::cli::Failure(file + ": " + result.error.description());
  if (args.has("json")) {
    tq::cli::Json json;
    json.beginArray();
    for (const auto& e : result.entries) {
      json.beginObject();
      json.key("key").string(e.key.UTF8String());
      json.key("value").string(e.value.UTF8String());
      json.endObject();
    }
    json.endArray();
    json.newline();
    return 0;
  }
  std::string text;
  for (const auto& e : result.entries) {
    text = quote(e.key) + " = " + quote(e.value) + ";\n";
    tq::cli::writeAll(stdout, text.data(), text.size());
  }
  return 0;
}

tq::cli::Registration strings({"strings", "the entries of a strings table, in file order",
                               "usage: tqkit strings FILE [--json]\n\n"
                               "Reads a strings table (text in UTF-8 or UTF-16, or an XML or binary\n"
                               "property list; FILE '-' is standard input) and prints its entries in file\n"
                               "order as \"key\" = \"value\"; lines (control characters such as NUL written as\n"
                               "octal escapes, \\000). A table that does not parse, or is larger than 64 MiB,\n"
                               "is reported with its line and column, exit status 1.\n"
                               "  --json  a JSON array of {\"key\": ..., \"value\": ...}\n",
                               runStrings});

}  // namespace
