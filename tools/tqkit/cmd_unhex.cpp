// tqkit unhex: hexadecimal text back to bytes, all or nothing.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "byte_stream.h"
#include "cli.h"
#include "tq/foundation/data_extensions.h"
#include "tq/foundation/hex_codec.h"

namespace {

using tq::cli::kStreamBlock;

// Decodes the whole input into `sink` (nullptr: validate only). Returns false on bad text.
bool decodeStream(tq::cli::InputStream& in, std::FILE* sink) {
  auto text = std::make_unique_for_overwrite<char[]>(kStreamBlock);
  auto bytes = std::make_unique_for_overwrite<uint8_t[]>(kStreamBlock / 2 + 1);
  tq::HexDecodeState state;  // carries a digit pair split across two blocks
  while (std::size_t n = in.read(text.get(), kStreamBlock)) {
    tq::UInteger produced = 0;
    if (!tq::hexDecode(text.get(), n, bytes.get(), &produced, state)) return false;
    if (sink) tq::cli::writeAll(sink, bytes.get(), produced);
  }
  return !state.pending;
}

[[noreturn]] void failBadText() {
  throw tq::cli::Failure(tq::String(tq::HexadecimalParseFailureReason).UTF8String());
}

int runUnhex(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {});
  args.expectPositionals(0, 1);
  tq::cli::InputStream in(args.positionals().empty() ? "-" : args.positionals()[0]);
  if (in.rewind()) {
    // A regular file: check it all first, then decode it again straight to the output.
    if (!decodeStream(in, nullptr)) failBadText();
    // (Only a file rewritten between the two passes can fail here.)
    if (!in.rewind() || !decodeStream(in, stdout)) failBadText();
  } else {
    // A pipe cannot be read twice: the bytes wait in an unnamed temporary file until the text has
    // proved good.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> spool(std::tmpfile(), std::fclose);
    if (!spool) throw tq::cli::Failure("cannot create a temporary file");
    if (!decodeStream(in, spool.get())) failBadText();
    if (std::fflush(spool.get()) != 0) throw tq::cli::Failure("write error on the temporary file");
    std::rewind(spool.get());
    auto block = std::make_unique_for_overwrite<char[]>(kStreamBlock);
    while (std::size_t n = std::fread(block.get(), 1, kStreamBlock, spool.get())) {
      tq::cli::writeAll(stdout, block.get(), n);
    }
    if (std::ferror(spool.get())) throw tq::cli::Failure("read error on the temporary file");
  }
  if (std::fflush(stdout) != 0) throw tq::cli::Failure(std::string("cannot write the output: ") + std::strerror(errno));
  return 0;
}

tq::cli::Registration unhex({"unhex", "turn hexadecimal text back into bytes",
                             "usage: tqkit unhex [FILE|-]\n\n"
                             "Reads hexadecimal text from FILE (standard input when FILE is absent or -) and\n"
                             "writes the bytes it spells. Digits may be upper or lower case; white space\n"
                             "(space, tab, line feed, vertical tab, form feed, carriage return) may stand\n"
                             "anywhere, even between the two digits of one byte, so `xxd -p` output is read\n"
                             "as it is. Text without any digit gives no bytes (so `tqkit hex F | tqkit unhex`\n"
                             "gives F back for every file, the empty one included).\n\n"
                             "Any other character, or an odd number of digits, is an error: the command\n"
                             "prints \"initWithHexadecimalRepresentation:: invalid hexadeciaml string data\"\n"
                             "and exits 1 without writing a single byte.\n",
                             runUnhex});

}  // namespace
