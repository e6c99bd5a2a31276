// Property lists as bundles read them (Info.plist, strings tables): the values compared with what
// libplist makes of the same bytes, and hostile lists (deep, wide, duplicated, expanding, huge)
// refused or read within their bounds.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/binary_plist.h"
#include "support/test_paths.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/bundle/strings_table.h"

namespace fs = std::filesystem;
using namespace tq;
using tq::test::readAll;

namespace {

// libplist's tree as a Value, written here independently of the library's reader.
Value oracle(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return Value(b != 0);
    }
    case PLIST_UINT: {
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      return Value(static_cast<long long>(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return Value(d);
    }
    case PLIST_STRING: {
      char* s = nullptr;
      plist_get_string_val(node, &s);
      Value v(String::fromUTF8(s ? s : ""));
      std::free(s);
      return v;
    }
    case PLIST_DATA: {
      char* d = nullptr;
      uint64_t n = 0;
      plist_get_data_val(node, &d, &n);
      Value v(Data::withBytes(d, n));
      std::free(d);
      return v;
    }
    case PLIST_DATE: {
      int32_t sec = 0, usec = 0;
      plist_get_date_val(node, &sec, &usec);
      return Value(Date{sec + usec / 1e6});
    }
    case PLIST_ARRAY: {
      std::vector<Value> items;
      for (uint32_t i = 0; i < plist_array_get_size(node); ++i) items.push_back(oracle(plist_array_get_item(node, i)));
      return Value(Array(std::move(items)));
    }
    case PLIST_DICT: {
      std::vector<Dictionary::Entry> entries;
      plist_dict_iter it = nullptr;
      plist_dict_new_iter(node, &it);
      for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, it, &key, &value);
        if (!key) break;
        entries.emplace_back(String::fromUTF8(key), oracle(value));
        std::free(key);
      }
      std::free(it);
      return Value(Dictionary(std::move(entries)));
    }
    default:
      return Value();
  }
}

Value oracle(const std::string& bytes) {
  plist_t root = nullptr;
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
  if (!root) return Value();
  Value v = oracle(root);
  plist_free(root);
  return v;
}

std::string toBinary(const std::string& xml) {
  plist_t root = nullptr;
  plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
  char* out = nullptr;
  uint32_t n = 0;
  plist_to_bin(root, &out, &n);
  std::string bin(out, n);
  std::free(out);
  plist_free(root);
  return bin;
}

// Info.plist as a bundle in a fresh folder reads it.
Dictionary infoOf(const tq::test::TempDir& tmp, const std::string& name, const std::string& bytes) {
  fs::path dir = tmp.path() / name;
  fs::create_directories(dir);
  std::ofstream(dir / "Info.plist", std::ios::binary) << bytes;
  auto bundle = Bundle::bundleWithPath(String::fromUTF8(dir.string()));
  return bundle ? bundle->infoDictionary() : Dictionary();
}

StringsTableResult table(const std::string& bytes) {
  return parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
}

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                          "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";

std::string nested(const char* open, const char* close, int depth, const char* inner = "") {
  std::string s = kHead;
  for (int i = 0; i < depth; ++i) s += open;
  s += inner;
  for (int i = 0; i < depth; ++i) s += close;
  return s + "</plist>\n";
}

}  // namespace

TEST(PropertyList, EveryKindReadsAsLibplistReadsIt) {
  tq::test::TempDir tmp;
  // Every kind of value, with comments, entities and character references.
  const std::string xml = readAll(tq::test::dataDir() / "plist/Every.plist");
  Value expected = oracle(xml);
  ASSERT_EQ(expected.type(), Value::Type::Dictionary);
  EXPECT_EQ(Value(infoOf(tmp, "xml", xml)), expected);
  EXPECT_EQ(Value(infoOf(tmp, "binary", toBinary(xml))), expected);
  // Spot checks against the text itself, so a shared mistake of both readers shows too.
  Dictionary info = infoOf(tmp, "xml", xml);
  EXPECT_EQ(info.objectForKey(u"CFBundleIdentifier").stringValue(), String(u"org.example.<odd> & AB\u00E9\u20AC\U0001F600"));
  EXPECT_EQ(info.objectForKey(u"Blob").dataValue(), (Data{0x00, 0x01, 0x02, 0xFF}));
  EXPECT_EQ(info.objectForKey(u"When"), Value(Date{99750645.0}));  // 2004-02-29T12:30:45Z since 2001
}

TEST(PropertyList, CorpusListsReadAsLibplistReadsThem) {
  if (!fs::exists(tq::test::corpusDir())) GTEST_SKIP() << "no corpus at " << tq::test::corpusDir();
  int compared = 0;
  for (const auto& e : fs::recursive_directory_iterator(tq::test::corpusDir())) {
    if (!e.is_regular_file()) continue;
    std::string ext = e.path().extension().string();
    if (ext != ".plist" && ext != ".strings") continue;
    std::string bytes = readAll(e.path());
    bool isList = bytes.starts_with("bplist00") || bytes.find("<plist") != std::string::npos;
    if (!isList) continue;
    Value expected = oracle(bytes);
    if (expected.type() != Value::Type::Dictionary) continue;
    tq::test::TempDir tmp;
    EXPECT_EQ(Value(infoOf(tmp, "b", bytes)), expected) << e.path();
    ++compared;
  }
  EXPECT_GT(compared, 0);
}

TEST(PropertyList, CharacterDataForms) {
  auto r = table(kHead + "<dict><key>a</key><string><![CDATA[<x> & y]]> z<!-- c --></string>"
                         "<key>b</key><string>line\r\nnext</string></dict></plist>");
  ASSERT_TRUE(r.ok) << r.error.description();
  ASSERT_EQ(r.entries.size(), 2u);
  EXPECT_EQ(r.entries[0].value, String(u"<x> & y z"));
  EXPECT_EQ(r.entries[1].value, String(u"line\r\nnext"));
}

TEST(PropertyList, MalformedXmlIsRefusedWithThePlaceOfTheFault) {
  struct Case {
    std::string body;
    const char* message;
  };
  const Case cases[] = {
      {"<dict><key>a</key></dict>", "<key> without a value"},
      {"<dict><string>v</string></dict>", "a value without a <key> in <dict>"},
      {"<dict><key>a</key><string>v</dict>", "expected </string>"},
      {"<array><integer>12x</integer></array>", "invalid <integer> '12x'"},
      {"<array><date>yesterday</date></array>", "invalid <date> 'yesterday'"},
      {"<array><data>@@@@</data></array>", "invalid base64 in <data>"},
      {"<array><string>&bogus;</string></array>", "unknown entity &bogus;"},
      {"<array><widget/></array>", "unknown element <widget>"},
      {"<array>", "unterminated <array>"},
      {"<string>a</string><string>b</string>", "a second value at the top level"},
  };
  for (const auto& c : cases) {
    auto r = table(kHead + "\n" + c.body + "</plist>");
    EXPECT_FALSE(r.ok) << c.body;
    EXPECT_EQ(r.error.message, std::string("not a readable property list: ") + c.message) << c.body;
    EXPECT_EQ(r.error.line, 5u) << c.body;  // the line after the header and a blank one
  }
}

// The command's test refuses a deep XML table; here the bound itself, in both forms.
TEST(PropertyList, DepthIsBoundedInBothForms) {
  tq::test::TempDir tmp;
  const std::string ok = nested("<dict><key>k</key>", "</dict>", 512, "<true/>");
  const std::string deep = nested("<dict><key>k</key>", "</dict>", 513, "<true/>");
  EXPECT_EQ(Value(infoOf(tmp, "xml", ok)), oracle(ok));
  EXPECT_EQ(Value(infoOf(tmp, "binary", toBinary(ok))), oracle(ok));
  for (const std::string& bytes : {deep, toBinary(deep)}) {
    EXPECT_EQ(table(bytes).error.message, "not a readable property list: nested deeper than 512 levels");
  }
  // A million levels: refused, no stack exhausted on the way.
  EXPECT_EQ(infoOf(tmp, "huge", nested("<array>", "</array>", 1'000'000)).count(), 0u);
}

// A binary list whose arrays each reference the next one twice: 40 levels expand to 2^40 values in
// a reader that copies per reference.
TEST(PropertyList, SharedObjectsThatWouldExpandAreRefused) {
  std::vector<std::string> objects;
  for (int i = 0; i < 40; ++i) objects.push_back("\xA2" + std::string(2, static_cast<char>(i + 1)));  // [next, next]
  objects.push_back("\x09");  // true
  const std::string b = tq::test::binaryPropertyList(objects, 1);
  auto r = ::table(b);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.error.message, "not a readable property list: shared objects would expand beyond the size of the list");
}

TEST(PropertyList, SizeIsCheckedBeforeAnythingIsRead) {
  std::string big(kStringsTableMaxBytes + 1, ' ');
  auto r = table(big);
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.error.message, "larger than 64 MiB");
  // The bundle does not even read such a file, nor a device behind a planted link.
  tq::test::TempDir tmp;
  fs::create_directories(tmp.path() / "B");
  { std::ofstream(tmp.path() / "B/Info.plist"); }
  fs::resize_file(tmp.path() / "B/Info.plist", kStringsTableMaxBytes + 1);
  auto bundle = Bundle::bundleWithPath(String::fromUTF8((tmp.path() / "B").string()));
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->infoDictionary().count(), 0u);
  fs::create_directories(tmp.path() / "Z/en.lproj");
  fs::create_symlink("/dev/zero", tmp.path() / "Z/Info.plist");
  fs::create_symlink("/dev/zero", tmp.path() / "Z/en.lproj/Localizable.strings");
  auto zero = Bundle::bundleWithPath(String::fromUTF8((tmp.path() / "Z").string()));
  ASSERT_TRUE(zero);
  EXPECT_EQ(zero->infoDictionary().count(), 0u);
  EXPECT_EQ(zero->stringsTable(u"Localizable", u"en").count(), 0u);
}
