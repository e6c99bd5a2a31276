// tqkit find: the offset of the first occurrence of a byte pattern in a file, streamed.
#include <cstring>
#include <vector>

#include "byte_stream.h"
#include "cli.h"
#include "tq/foundation/byte_search.h"
#include "tq/foundation/data_extensions.h"
#include "tq/platform/base/exception.h"

namespace {

std::vector<uint8_t> parsePattern(const std::string& hex) {
  try {
    tq::Data d = tq::dataWithHexadecimalRepresentation(tq::String::fromUTF8(hex));
    return {d.bytes(), d.bytes() + d.length()};
  } catch (const tq::Exception& e) {
    throw tq::cli::UsageError("PATTERN-HEX '" + hex + "': " + e.reason().UTF8String());
  }
}

// First offset of pattern in the stream, or NotFound. Memory: one block plus the pattern.
tq::UInteger findInStream(tq::cli::InputStream& in, const std::vector<uint8_t>& pattern) {
  const std::size_t m = pattern.size();
  // The window holds the last m - 1 bytes of what came before (a match may straddle two blocks)
  // followed by the next block.
  std::vector<uint8_t> window(m + tq::cli::kStreamBlock);
  std::size_t kept = 0;     // bytes carried over at the window's start
  tq::UInteger base = 0;    // stream offset of window[0]
  for (;;) {
    std::size_t n = in.read(window.data() + kept, tq::cli::kStreamBlock);
    if (n == 0) return tq::NotFound;
    std::size_t size = kept + n;
    tq::UInteger at = tq::findBytes(window.data(), size, pattern.data(), m);
    if (at != tq::NotFound) return base + at;
    std::size_t carry = std::min(size, m - 1);
    std::memmove(window.data(), window.data() + size - carry, carry);
    base += size - carry;
    kept = carry;
  }
}

int runFind(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  args.expectPositionals(1, 2);
  std::vector<uint8_t> pattern = parsePattern(args.positional(0, "PATTERN-HEX"));
  tq::cli::InputStream in(args.positionals().size() > 1 ? args.positionals()[1] : "-");
  tq::UInteger at = findInStream(in, pattern);
  if (args.has("json")) {
    tq::cli::Json out;
    out.beginObject().key("file").string(in.name()).key("found").boolean(at != tq::NotFound).key("offset");
    if (at != tq::NotFound) {
      out.number(static_cast<long long>(at));
    } else {
      out.null();
    }
    out.endObject().newline();
  } else if (at != tq::NotFound) {
    std::printf("%llu\n", static_cast<unsigned long long>(at));
  }
  if (std::fflush(stdout) != 0) throw tq::cli::Failure(std::string("cannot write the output: ") + std::strerror(errno));
  return at != tq::NotFound ? 0 : 1;
}

tq::cli::Registration find({"find", "find the first occurrence of a byte pattern in a file",
                            "usage: tqkit find [--json] PATTERN-HEX [FILE|-]\n\n"
                            "Prints the byte offset (from 0) of the first occurrence of the bytes spelled by\n"
                            "PATTERN-HEX (hexadecimal digits, white space allowed, e.g. 'cafe babe') in FILE\n"
                            "(standard input when absent or -). Files stream through in constant memory.\n\n"
                            "Exit status, as with grep: 0 found, 1 not found (nothing printed), 2 usage\n"
                            "error (a PATTERN-HEX that is not hexadecimal text, empty included), and 1 with\n"
                            "a message on a read error.\n\n"
                            "  --json   print {\"file\": NAME, \"found\": BOOL, \"offset\": N or null}\n",
                            runFind});

}  // namespace
