// tqkit sha1: SHA-1 digests of files, in sha1sum's format.
#include <memory>

#include "byte_stream.h"
#include "cli.h"
#include "tq/foundation/hex_codec.h"
#include "tq/foundation/sha1_digest.h"

namespace {

std::string digestOf(const std::string& path) {
  tq::cli::InputStream in(path);
  auto block = std::make_unique_for_overwrite<uint8_t[]>(tq::cli::kStreamBlock);
  tq::Sha1Digest sha1;
  while (std::size_t n = in.read(block.get(), tq::cli::kStreamBlock)) sha1.update(block.get(), n);
  auto digest = sha1.finish();
  std::string text(2 * digest.size(), '\0');
  tq::hexEncode(digest.data(), digest.size(), text.data());
  return text;
}

// Like sha1sum, a file that cannot be read is reported and the others are still digested; the exit
// status is then 1. The JSON array is written whole at the end, with an "error" in place of the
// digest of each file that could not be read.
int runSha1(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  std::vector<std::string> files = args.positionals();
  if (files.empty()) files.push_back("-");
  bool json = args.has("json");
  tq::cli::Json out;
  if (json) out.beginArray();
  int status = 0;
  for (const auto& f : files) {
    std::string digest;
    try {
      digest = digestOf(f);
    } catch (const tq::cli::Failure& e) {
      std::fprintf(stderr, "tqkit sha1: %s\n", e.what());
      status = 1;
      if (json) out.beginObject().key("file").string(f).key("error").string(e.what()).endObject();
      continue;
    }
    if (json) {
      out.beginObject().key("file").string(f).key("sha1").string(digest).endObject();
    } else {
      std::string line = digest + "  " + f + "\n";
      tq::cli::writeAll(stdout, line.data(), line.size());
    }
  }
  if (json) out.endArray().newline();
  return status;
}

tq::cli::Registration sha1({"sha1", "print SHA-1 digests of files",
                            "usage: tqkit sha1 [--json] [FILE|-]...\n\n"
                            "Prints the SHA-1 digest of each FILE (standard input when none is named, or for\n"
                            "-) as 40 lower-case hexadecimal digits, two spaces and the name, one line per\n"
                            "file: the format of `sha1sum`. Files stream through in constant memory.\n\n"
                            "  --json   print [{\"file\": NAME, \"sha1\": DIGEST}, ...] instead\n\n"
                            "A file that cannot be read is reported on standard error (in JSON as\n"
                            "{\"file\": NAME, \"error\": MESSAGE}) and the others are still digested; the\n"
                            "exit status is then 1.\n",
                            runSha1});

}  // namespace
