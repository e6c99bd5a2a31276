// tqkit demo, data helpers: hexadecimal text both ways, SHA-1 and byte search on sample bytes.
#include <cstdio>

#include "cli.h"
#include "tq/foundation/data_extensions.h"
#include "tq/foundation/instruction_set.h"
#include "tq/platform/base/exception.h"

namespace {

void show(const char* call, const tq::String& result) {
  std::printf("  %-52s -> \"%s\"\n", call, result.UTF8String().c_str());
}

void showParse(const char* label, const tq::String& text) {
  try {
    tq::Data d = tq::dataWithHexadecimalRepresentation(text);
    std::printf("  %-52s -> %zu bytes, %s\n", label, static_cast<std::size_t>(d.length()),
                tq::hexadecimalRepresentation(d).UTF8String().c_str());
  } catch (const tq::Exception& e) {
    std::printf("  %-52s -> raises %s: %s\n", label, e.name().UTF8String().c_str(),
                e.reason().UTF8String().c_str());
  }
}

void showIndex(const char* label, tq::UInteger at) {
  if (at == tq::NotFound) {
    std::printf("  %-52s -> NotFound\n", label);
  } else {
    std::printf("  %-52s -> %zu\n", label, static_cast<std::size_t>(at));
  }
}

void runDataDemo() {
  std::printf("  (kernels: %s)\n", tq::instructionSetName(tq::bestInstructionSet()));
  show("hexadecimalRepresentation({00 ab ff})", tq::hexadecimalRepresentation(tq::Data{0x00, 0xAB, 0xFF}));
  showParse("dataWithHexadecimalRepresentation(\"DE ad\\n be EF\")", u"DE ad\n be EF");
  showParse("dataWithHexadecimalRepresentation(\"a b\")", u"a b");
  showParse("dataWithHexadecimalRepresentation(\"abc\")", u"abc");
  showParse("dataWithHexadecimalRepresentation(\"0x12\")", u"0x12");
  show("hexadecimalRepresentation(sha1(\"\"))", tq::hexadecimalRepresentation(tq::sha1(tq::Data::empty())));
  show("hexadecimalRepresentation(sha1(\"abc\"))",
       tq::hexadecimalRepresentation(tq::sha1(tq::Data::withString("abc"))));
  tq::Data abcbc = tq::Data::withString("abcbc");
  showIndex("indexOfBytes(\"abcbc\", \"bc\", 2)", tq::indexOfBytes(abcbc, "bc", 2));
  showIndex("indexOfBytes(\"abcbc\", \"abcbcd\", 6)", tq::indexOfBytes(abcbc, "abcbcd", 6));
  showIndex("indexOfBytes(\"abcbc\", \"\", 0)", tq::indexOfBytes(abcbc, "", 0));
  tq::Range r = tq::rangeOfData(abcbc, tq::Data::withString("cbc"));
  std::printf("  %-52s -> (%zu, %zu)\n", "rangeOfData(\"abcbc\", \"cbc\")", static_cast<std::size_t>(r.location),
              static_cast<std::size_t>(r.length));
}

tq::cli::DemoRegistration dataDemo({20, "Data helpers: hexadecimal text, SHA-1, byte search", runDataDemo});

}  // namespace
