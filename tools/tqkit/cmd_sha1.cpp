// tqkit sha1: SHA-1 digests of files, in sha1sum's format.
#include <memory>

#include "byte_stream.h"
#include "cli.h"
#include "tq/foundation/hex_codec.h"
#include "tq/foundation/sha1_digest.h"

namespace {

std::string digestOf(const std::string& path) {
  tq::cli::InputStream in(path);
  auto block = std::make_unique<uint8_t[]>(tq::cli::kStreamBlock);
  tq::Sha1Digest sha1;
  while (std::size_t n = in.read(block.get(), tq::cli::kStreamBlock)) sha1.update(block.get(), n);
  auto digest = sha1.finish();
  std::string text(2 * digest.size(), '\0');
  tq::hexEncode(digest.data(), digest.size(), text.data());
  return text;
}

int runSha1(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  std::vector<std::string> files = args.positionals();
  if (files.empty()) files.push_back("-");
  bool json = args.has("json");
  tq::cli::Json out;
  if (json) out.beginArray();
  for (const auto& f : files) {
    std::string digest = digestOf(f);
    if (json) {
      out.beginObject().key("file").string(f).key("sha1").string(digest).endObject();
    } else {
      std::printf("%s  %s\n", digest.c_str(), f.c_str());
    }
  }
  if (json) out.endArray().newline();
  if (std::fflush(stdout) != 0) throw tq::cli::Failure("write error");
  return 0;
}

tq::cli::Registration sha1({"sha1", "print SHA-1 digests of files",
                            "usage: tqkit sha1 [--json] [FILE|-]...\n\n"
                            "Prints the SHA-1 digest of each FILE (standard input when none is named, or for\n"
                            "-) as 40 lower-case hexadecimal digits, two spaces and the name, one line per\n"
                            "file: the format of `sha1sum`. Files stream through in constant memory.\n\n"
                            "  --json   print [{\"file\": NAME, \"sha1\": DIGEST}, ...] instead\n",
                            runSha1});

}  // namespace
