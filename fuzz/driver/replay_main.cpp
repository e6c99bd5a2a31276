// Replays saved fuzz inputs through a fuzz target when the build has no libFuzzer: each argument is a
// file (or a folder of files) whose bytes are handed to LLVMFuzzerTestOneInput once.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path p(argv[i]);
    if (std::filesystem::is_directory(p)) {
      for (const auto& entry : std::filesystem::directory_iterator(p)) {
        if (entry.is_regular_file()) { replay(entry.path()); ++count; }
      }
    } else {
      replay(p);
      ++count;
    }
  }
  std::printf("replayed %d inputs\n", count);
  return 0;
}
