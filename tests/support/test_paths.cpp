#include "support/test_paths.h"

#include <stdlib.h>

#include <stdexcept>

namespace tq::test {

std::filesystem::path dataDir() { return TQ_TEST_DATA_DIR; }
std::filesystem::path corpusDir() { return TQ_CORPUS_DIR; }
bool haveCorpus() { return std::filesystem::is_directory(corpusDir()); }

TempDir::TempDir() {
  std::string templ = (std::filesystem::temp_directory_path() / "tqkit-test-XXXXXX").string();
  if (!mkdtemp(templ.data())) throw std::runtime_error("mkdtemp failed");
  path_ = templ;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

}  // namespace tq::test
