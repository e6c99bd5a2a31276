// Where the tests find their fixtures and the shared corpus of real application files.
#pragma once
#include <filesystem>
#include <string>

namespace tq::test {

// tests/data in the source tree.
std::filesystem::path dataDir();
// The shared corpus folder beside the checkout; may not exist (tests then skip).
std::filesystem::path corpusDir();
bool haveCorpus();

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
