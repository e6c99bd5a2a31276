// Where the tests find their fixtures and the shared corpus of real application files.
#pragma once
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tq::test {

// tests/data in the source tree.
std::filesystem::path dataDir();
// The shared corpus folder beside the checkout; may not exist (tests then skip).
std::filesystem::path corpusDir();
bool haveCorpus();

// A file's bytes, whole ("" when it cannot be read).
inline std::string readAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Writes `bytes` as the whole file, making its folder first.
inline void write(const std::filesystem::path& path, const std::string& bytes) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

// A fresh, empty temporary folder, removed with everything in it when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string str() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace tq::test

#define TQ_SKIP_WITHOUT_CORPUS()                                            \
  do {                                                                      \
    if (!::tq::test::haveCorpus()) GTEST_SKIP() << "shared corpus absent";  \
  } while (0)
