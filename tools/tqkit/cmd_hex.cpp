// tqkit hex: a file's bytes as lower-case hexadecimal text, streamed.
#include <cerrno>
#include <cstring>
#include <memory>

#include "byte_stream.h"
#include "cli.h"
#include "tq/foundation/hex_codec.h"

namespace {

int runHex(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {});
  args.expectPositionals(0, 1);
  tq::cli::InputStream in(args.positionals().empty() ? "-" : args.positionals()[0]);
  auto bytes = std::make_unique_for_overwrite<uint8_t[]>(tq::cli::kStreamBlock);
  auto text = std::make_unique_for_overwrite<char[]>(2 * tq::cli::kStreamBlock);
  while (std::size_t n = in.read(bytes.get(), tq::cli::kStreamBlock)) {
    tq::hexEncode(bytes.get(), n, text.get());
    tq::cli::writeAll(stdout, text.get(), 2 * n);
  }
  if (std::fflush(stdout) != 0) throw tq::cli::Failure(std::string("cannot write the output: ") + std::strerror(errno));
  return 0;
}

tq::cli::Registration hex({"hex", "print a file's bytes as hexadecimal text",
                           "usage: tqkit hex [FILE|-]\n\n"
                           "Writes two lower-case hexadecimal digits per byte of FILE (standard input when\n"
                           "FILE is absent or -), with no separators and no final line break: the same\n"
                           "bytes as `xxd -p FILE | tr -d '\\n'`. Reads in blocks, so files of any size\n"
                           "stream through in constant memory.\n",
                           runHex});

}  // namespace
