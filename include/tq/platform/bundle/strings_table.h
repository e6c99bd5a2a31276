// Strings tables: the key-to-translation files of a bundle's localizations (NAME.strings).
//
// Three forms are read:
//  - Text: UTF-8 (with or without byte-order mark) or UTF-16 little or big endian with its mark
//    (UTF-16 without a mark is recognised too, by a zero byte beside the first character).
//    A sequence of entries  "key" = "value";  separated by white space and comments (/* ... */ and
//    // to the end of the line). Keys and values are quoted strings, or unquoted words made of ASCII
//    letters, digits and _ . - : / $. An entry written  "key";  maps the key to itself. Inside quotes
//    the escapes \" \\ \' \n \t \r \a \b \f \v, \UXXXX and \uXXXX (four hex digits, UTF-16 units) and
//    \NNN (octal, up to three digits) are understood; any other escaped character stands for itself.
//  - XML property list and binary property list ("bplist00"): a dictionary of strings to strings.
//    Entries whose value is not a string are left out.
// Entries come back in file order. In the text form a key written twice appears twice (lookups take
// the last one); a property list keeps it once, at its first position with its last value.
//
// Hostile input: every form is read in one pass without recursion, so a table cannot crash the
// process, hang it or make it wait on a quadratic cost (a key repeated a million times costs what a
// million keys cost). A table larger than kStringsTableMaxBytes, with more than
// kStringsTableMaxEntries entries, or (property lists) nested deeper than 512 levels or holding more
// than 2,000,000 values is refused with an error; nothing is cut short. Memory while parsing: the
// text form takes about 2 bytes per byte of input (the decoded UTF-16 text) plus about 200 bytes per
// entry; a property list about 150 bytes per value it holds (so at most about 300 MB whatever the
// input). Typical tables (entries of 40 bytes or more) need 5 to 7 times their size.
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

// A table file larger than this is refused before it is parsed.
inline constexpr std::size_t kStringsTableMaxBytes = std::size_t{64} << 20;
// A table with more entries than this is refused.
inline constexpr std::size_t kStringsTableMaxEntries = 1'000'000;

struct StringsTableEntry {
  String key;
  String value;
};

// Why a table did not parse. line and column are 1-based; the column counts characters (code
// points) of the decoded text. For XML property-list tables it is the position in the file of what
// was refused; for binary ones (and refusals of the whole file, such as its size) line 1, column 1.
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
