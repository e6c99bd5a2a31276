// What the command tests share: occurrences counted, the keys of a strings table and the row of a
// --json report, each read with a pattern of the test's own, and the size a PNG's header gives.
#pragma once

#include <regex>
#include <set>
#include <string>

#include "support/test_paths.h"

namespace tq::test {

inline std::size_t count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The keys of a strings table's text: one per `"key" =` at the start of a line.
inline std::set<std::string> keysOf(const std::string& table) {
  std::set<std::string> keys;
  const std::regex entry("^\"([^\"]+)\" *=", std::regex::multiline);
  for (auto it = std::sregex_iterator(table.begin(), table.end(), entry); it != std::sregex_iterator(); ++it) {
    keys.insert((*it)[1]);
  }
  return keys;
}

// The row of a `localize --all --json` report for one interface and language: the text from its
// "interface" key to the next row's ("" when there is none).
inline std::string rowOf(const std::string& json, const std::string& interface, const std::string& language) {
  const std::string head = "{\"interface\":\"" + interface + "\"";
  for (auto at = json.find(head); at != std::string::npos; at = json.find(head, at + 1)) {
    const auto next = json.find("{\"interface\":", at + 1);
    std::string row = json.substr(at, next == std::string::npos ? std::string::npos : next - at);
    if (row.find("\"localization\":\"" + language + "\"") != std::string::npos) return row;
  }
  return {};
}

// The width and height in a PNG file's header, as "WxH" ("" when the file is no PNG).
inline std::string pngSize(const std::filesystem::path& png) {
  const std::string b = readAll(png);
  if (b.size() < 24 || b.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0) return {};
  const auto be32 = [&](std::size_t at) {
    return (static_cast<unsigned char>(b[at]) << 24) | (static_cast<unsigned char>(b[at + 1]) << 16) |
           (static_cast<unsigned char>(b[at + 2]) << 8) | static_cast<unsigned char>(b[at + 3]);
  };
  return std::to_string(be32(16)) + "x" + std::to_string(be32(20));
}

}  // namespace tq::test
