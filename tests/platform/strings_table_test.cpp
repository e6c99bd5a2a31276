// The strings-table reader: text forms and encodings, plist forms, errors with positions, and the
// real tables of the shared corpus.
#include "tq/platform/bundle/strings_table.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <filesystem>

#include "support/test_paths.h"

using tq::String;
using tq::StringsTableResult;
using tq::test::readAll;

namespace {

StringsTableResult parse(std::string_view bytes) {
  return tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

std::vector<std::pair<std::string, std::string>> pairs(const StringsTableResult& r) {
  std::vector<std::pair<std::string, std::string>> out;
  for (const auto& e : r.entries) out.emplace_back(e.key.UTF8String(), e.value.UTF8String());
  return out;
}

std::string utf16(const std::u16string& text, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t c : text) out += bigEndian ? std::string{char(c >> 8), char(c & 0xFF)} : std::string{char(c & 0xFF), char(c >> 8)};
  return out;
}

}  // namespace

TEST(StringsTableText, EntriesInFileOrderWithCommentsEscapesAndUnquotedWords) {
  auto r = parse(
      "/* block\n comment */ \"b\" = \"second\";\n"
      "// line comment = \"no\";\n"
      "\"a\"=\"q\\\"uote\\\\back\\nnl\\ttab\\rcr\";\n"
      "Key_1.x-y:z/$ = value$1;\n"
      "\"same\";\n"
      "\"uni\" = \"\\U00e9\\u20AC\\101\";\n"
      "\"b\" = \"again\";");
  ASSERT_TRUE(r.ok) << r.error.description();
  EXPECT_EQ(pairs(r), (std::vector<std::pair<std::string, std::string>>{
                          {"b", "second"},
                          {"a", "q\"uote\\back\nnl\ttab\rcr"},
                          {"Key_1.x-y:z/$", "value$1"},
                          {"same", "same"},
                          {"uni", "\xC3\xA9\xE2\x82\xAC" "A"},
                          {"b", "again"}}));
  // The dictionary form keeps the last duplicate.
  std::string_view dup = "\"k\" = \"1\"; \"k\" = \"2\";";
  auto d = tq::dictionaryFromStringsTable(std::span(reinterpret_cast<const uint8_t*>(dup.data()), dup.size()));
  EXPECT_EQ(d.count(), 1u);
  EXPECT_EQ(d.objectForKey(u"k").stringValue(), String(u"2"));
}

TEST(StringsTableText, EncodingsGiveTheSameEntries) {
  std::u16string text = u"/* \u00fc */\n\"Gr\u00fc\u00dfe\" = \"\u3053\u3093\u306b\u3061\u306f \U0001F600\";\n";
  std::string utf8 = String(text).UTF8String();
  for (const std::string& bytes : {utf8, "\xEF\xBB\xBF" + utf8, utf16(text, false), utf16(text, true),
                                   utf16(text, false).substr(2), utf16(text, true).substr(2)}) {
    auto r = parse(bytes);
    ASSERT_TRUE(r.ok) << r.error.description();
    ASSERT_EQ(r.entries.size(), 1u);
    EXPECT_EQ(r.entries[0].key, String(u"Gr\u00fc\u00dfe"));
    EXPECT_EQ(r.entries[0].value, String(u"\u3053\u3093\u306b\u3061\u306f \U0001F600"));
  }
  auto empty = parse("");
  EXPECT_TRUE(empty.ok);
  EXPECT_TRUE(empty.entries.empty());
}

TEST(StringsTableText, ErrorsCarryLineAndColumn) {
  struct Case {
    const char* text;
    std::size_t line, column;
  } cases[] = {
      {"\"a\" = \"b\";\n\"c\" = \"d\"\n\"e\" = \"f\";", 3, 1},  // missing ';' seen at the next key
      {"\"a\" = \"b\";\n  \"c\" = ;", 2, 9},                    // no value
      {"\"a\" = \"b\";\n/* open", 2, 1},                        // unterminated comment
      {"\"a\" = \"b\";\n\"c\" = \"never closed;\n", 2, 7},      // unterminated string
      {"\"k\" = \"v\"", 1, 10},                                 // end before ';'
      {"\xC3\xA9\xC3\xA9 = x;", 1, 1},                          // non-ASCII unquoted word
      {"\"\xC3\xA9\xC3\xA9\" # ;", 1, 6},                       // columns count characters
      {"\"a\" = \"\\U\";", 1, 8},                               // \U without digits
  };
  for (const auto& c : cases) {
    auto r = parse(c.text);
    EXPECT_FALSE(r.ok) << c.text;
    EXPECT_TRUE(r.entries.empty());
    EXPECT_EQ(r.error.line, c.line) << c.text << ": " << r.error.description();
    EXPECT_EQ(r.error.column, c.column) << c.text << ": " << r.error.description();
    EXPECT_FALSE(r.error.message.empty());
  }
}

TEST(StringsTablePlist, XmlAndBinaryDictionariesInOrder) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "zeta", plist_new_string("last letter"));
  plist_dict_set_item(dict, "alpha", plist_new_string("first \xC3\xA9"));
  plist_dict_set_item(dict, "number", plist_new_uint(3));
  char *xml = nullptr, *bin = nullptr;
  uint32_t xmlLength = 0, binLength = 0;
  plist_to_xml(dict, &xml, &xmlLength);
  plist_to_bin(dict, &bin, &binLength);
  plist_free(dict);
  for (std::string bytes : {std::string(xml, xmlLength), std::string(bin, binLength)}) {
    auto r = parse(bytes);
    ASSERT_TRUE(r.ok) << r.error.description();
    EXPECT_EQ(pairs(r), (std::vector<std::pair<std::string, std::string>>{{"zeta", "last letter"},
                                                                         {"alpha", "first \xC3\xA9"}}));
  }
  std::free(xml);
  std::free(bin);
  EXPECT_FALSE(parse("<?xml version=\"1.0\"?><plist><array><string>x</string></array></plist>").ok);
  EXPECT_FALSE(parse("bplist00garbage").ok);
}

// libplist aborts on a key holding NUL; such a binary list (a UTF-16 key with a zero unit) must be
// refused, not end the process. A NUL inside an XML value (which libplist cuts short) is harmless.
// A NUL unit is an ordinary character of a key or a value, in either form of list.
TEST(StringsTablePlist, NulCharactersAreKeptWhole) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "k\xC3\xA9Qx", plist_new_string("v"));
  char* bin = nullptr;
  uint32_t length = 0;
  plist_to_bin(dict, &bin, &length);
  plist_free(dict);
  std::string bytes(bin, length);
  std::free(bin);
  auto q = bytes.find(std::string("\0Q", 2));
  ASSERT_NE(q, std::string::npos);
  bytes[q + 1] = '\0';
  auto r = parse(bytes);
  ASSERT_TRUE(r.ok);
  ASSERT_EQ(r.entries.size(), 1u);
  EXPECT_EQ(r.entries[0].key, String(std::u16string_view(u"k\u00e9\0x", 4)));
  EXPECT_EQ(r.entries[0].value, String(u"v"));

  auto x = parse(std::string("<plist><dict><key>k</key><string>a\0b</string></dict></plist>", 60));
  ASSERT_TRUE(x.ok);
  ASSERT_EQ(x.entries.size(), 1u);
  EXPECT_TRUE(x.entries[0].value.hasPrefix(u"a"));
}

// Entry counts read off the files by hand: one per "key" = "value"; line, none for entries that
// sit inside comments (the Japanese table has three such commented-out entries), none for a file
// that holds only a comment.
TEST(StringsTableCorpus, EveryTableParsesWithTheCountsTheFilesHold) {
  TQ_SKIP_WITHOUT_CORPUS();
  const std::map<std::string, std::size_t> expected = {
      {"transmission/macosx/de.lproj/Localizable.strings", 354},
      {"transmission/macosx/ja.lproj/Localizable.strings", 351},
      {"transmission/macosx/en.lproj/InfoPlist.strings", 2},
      {"handbrake/macosx/fr.lproj/Localizable.strings", 203},
      {"handbrake/macosx/en.lproj/InfoPlist.strings", 0},
  };
  std::size_t seen = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(tq::test::corpusDir())) {
    if (entry.path().extension() != ".strings") continue;
    ++seen;
    auto r = parse(readAll(entry.path()));
    EXPECT_TRUE(r.ok) << entry.path() << ": " << r.error.description();
    auto relative = std::filesystem::relative(entry.path(), tq::test::corpusDir()).string();
    if (auto it = expected.find(relative); it != expected.end()) EXPECT_EQ(r.entries.size(), it->second) << relative;
  }
  EXPECT_GE(seen, expected.size());

  auto info = parse(readAll(tq::test::corpusDir() / "transmission/macosx/en.lproj/InfoPlist.strings"));
  ASSERT_EQ(info.entries.size(), 2u);
  EXPECT_EQ(info.entries[0].key, String(u"NSHumanReadableCopyright"));
  EXPECT_EQ(info.entries[1].value, String(u"torrent,torrents,magnet,magnets,tor,bt,bit"));
}
