// tqkit demo, strings: the string helpers at work on sample text.
#include <cstdio>
#include <string>

#include "cli.h"
#include "tq/foundation/string_code_paths.h"
#include "tq/foundation/string_extensions.h"
#include "tq/platform/base/exception.h"
#include "tq/platform/base/string_encoding.h"

namespace {

// Shows text with its control characters visible, between single quotes.
std::string shown(const tq::String& s) {
  if (s.isNil()) return "nil";
  std::string out = "'";
  for (char c : s.UTF8String()) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default: out += c;
    }
  }
  return out + "'";
}

void line(const char* call, const tq::String& in, const tq::String& out) {
  std::printf("  %-40s %-26s -> %s%s\n", call, shown(in).c_str(), shown(out).c_str(),
              !in.isNil() && out.isIdenticalTo(in) ? "  (the receiver itself)" : "");
}

void run() {
  using namespace tq;
  std::printf("  code path: %s\n", stringCodePathName(currentStringCodePath()));
  String messy(u"  Wi-Fi \t ready\u00A0 now  ");
  line("stringByReducingWhitespaces", messy, stringByReducingWhitespaces(messy));
  line("stringByRemovingSurroundingWhitespace", messy, stringByRemovingSurroundingWhitespace(messy));
  String lines(u"first\r\nsecond\nthird");
  line("stringByRemovingLineBreaks", lines, stringByRemovingLineBreaks(lines));
  line("stringByRemovingFirstLine", lines, stringByRemovingFirstLine(lines));
  line("stringByRemovingLastLine", lines, stringByRemovingLastLine(lines));
  line("stringByRemovingNumberOfLines...(2)", lines, stringByRemovingNumberOfLinesFromBeginning(lines, 2));
  String field(u"say \"hi\"");
  line("quoteQuotes", field, quoteQuotes(field));
  String plain(u"a,b");
  line("quoteQuotes", plain, quoteQuotes(plain));
  String path(u"en0|eth0\tlo");
  line("stringWithSubstitute(\"_\", \"|\\t\")", path,
       stringWithSubstitute(path, u"_", CharacterSet::characterSetWithCharactersInString(u"|\t")));
  std::printf("  stringWithInteger(255, 16) = %s, (5, 2) = %s, (2147483647, 10) = %s\n",
              stringWithInteger(255, 16).UTF8String().c_str(), stringWithInteger(5, 2).UTF8String().c_str(),
              stringWithInteger(2147483647, 10).UTF8String().c_str());
  MutableString m(String(u"item-"));
  appendInteger(m, 42, 8);
  std::printf("  appendInteger(\"item-\", 42, 8) = %s\n", m.copy().UTF8String().c_str());
  std::printf("  smallLetterStringWithInteger 0, 25, 26, 27, 676 = %s %s %s %s %s; (1, minLength 3) = %s\n",
              smallLetterStringWithInteger(0, 0).UTF8String().c_str(), smallLetterStringWithInteger(25, 0).UTF8String().c_str(),
              smallLetterStringWithInteger(26, 0).UTF8String().c_str(), smallLetterStringWithInteger(27, 0).UTF8String().c_str(),
              smallLetterStringWithInteger(676, 0).UTF8String().c_str(), smallLetterStringWithInteger(1, 3).UTF8String().c_str());
  std::printf("  bigLetterStringWithInteger (1, minLength 3) = %s\n", bigLetterStringWithInteger(1, 3).UTF8String().c_str());
  std::printf("  stringFrom4ByteCode(0x54455854) = %s\n", stringFrom4ByteCode(0x54455854).UTF8String().c_str());
  std::printf("  uniqueString() = %s\n", uniqueString().UTF8String().c_str());
  Data roman = Data{0x43, 0x61, 0x66, 0x8E};  // "Caf\xe9" in Mac Roman
  std::printf("  stringWithData(43 61 66 8E, Mac Roman) = %s; as UTF-8 = %s\n",
              shown(stringWithData(roman, MacOSRomanStringEncoding)).c_str(),
              shown(stringWithData(roman, UTF8StringEncoding)).c_str());
  try {
    (void)stringWithInteger(7, 1);
  } catch (const Exception& e) {
    std::printf("  stringWithInteger(7, 1) raises: %s\n", e.reason().UTF8String().c_str());
  }
}

tq::cli::DemoRegistration strings({10, "String helpers", run});

}  // namespace
