// Fuzz target: the compiled storyboard reader. The input is a folder packed into one file: parts
// separated by a line "@@NIB@@", the first the folder's Info.plist, the others nibs N1.nib, N2.nib...
// (the Info.plist names them). The folder is written afresh for each input. The reader must report or
// build, never crash, leak, hang or allocate beyond its bound.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "nib_fuzz_walk.h"
#include "tq/platform/ui/archive/storyboard_reader.h"

namespace {

// One folder for the run, removed at exit (kept to the end, past the static objects' teardown).
const std::filesystem::path& folder() {
  static const std::filesystem::path* path = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "tq-fuzz-XXXXXX").string();
    const char* made = ::mkdtemp(pattern.data());
    auto* p = new std::filesystem::path(std::filesystem::path(made ? made : pattern) / "Fuzz.storyboardc");
    std::atexit([] {
      std::error_code ec;
      std::filesystem::remove_all(folder().parent_path(), ec);
    });
    return p;
  }();
  return *path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::filesystem::path& dir = folder();
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  std::filesystem::create_directories(dir, ec);
  constexpr std::string_view kSeparator = "\n@@NIB@@\n";
  std::size_t start = 0;
  for (int part = 0; part < 16; ++part) {
    const std::size_t end = std::min(bytes.find(kSeparator, start), bytes.size());
    const auto name = part == 0 ? std::string("Info.plist") : "N" + std::to_string(part) + ".nib";
    std::ofstream(dir / name, std::ios::binary).write(bytes.data() + start, static_cast<std::streamsize>(end - start));
    if (end == bytes.size()) break;
    start = end + kSeparator.size();
  }
  tq::StoryboardReadResult result = tq::readStoryboardFile(dir.string());
  if (!result) return 0;
  std::size_t n = 0;
  for (const auto& scene : result.storyboard().scenes()) {
    n += tq::fuzz::walk(scene.window().get()) + tq::fuzz::walk(scene.view().get());
  }
  (void)n;
  return 0;
}
