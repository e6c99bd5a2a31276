// Strings tables: the key-to-translation files of a bundle's localizations (NAME.strings).
//
// Three forms are read:
//  - Text: UTF-8 (with or without byte-order mark) or UTF-16 little or big endian with its mark.
//    A sequence of entries  "key" = "value";  separated by white space and comments (/* ... */ and
//    // to the end of the line). Keys and values are quoted strings, or unquoted words made of ASCII
//    letters, digits and _ . - : / $. An entry written  "key";  maps the key to itself. Inside quotes
//    the escapes \" \\ \' \n \t \r \a \b \f \v, \UXXXX and \uXXXX (four hex digits, UTF-16 units) and
//    \NNN (octal, up to three digits) are understood; any other escaped character stands for itself.
//  - XML property list and binary property list ("bplist00"): a dictionary of strings to strings.
//    Entries whose value is not a string are left out.
// Entries come back in file order; a key written twice appears twice (lookups take the last one).
//
// Threads: the functions are pure; call them from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tq/platform/base/data.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

struct StringsTableEntry {
  String key;
  String value;
};

// Why a table did not parse. line and column are 1-based; the column counts characters (code
// points) of the decoded text. For property-list tables the position is line 1, column 1.
struct StringsTableError {
  std::string message;
  std::size_t line = 0;
  std::size_t column = 0;
  // "line L, column C: message"
  std::string description() const;
};

struct StringsTableResult {
  bool ok = false;
  std::vector<StringsTableEntry> entries;  // file order; empty when !ok
  StringsTableError error;                 // set when !ok
};

// Parses a strings table in any of the three forms.
StringsTableResult parseStringsTable(std::span<const uint8_t> bytes);
inline StringsTableResult parseStringsTable(const Data& data) { return parseStringsTable(data.span()); }

// The table as a Dictionary (later duplicates replace earlier ones); nil when it does not parse.
Dictionary dictionaryFromStringsTable(std::span<const uint8_t> bytes);

}  // namespace tq
