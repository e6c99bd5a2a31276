// Where the benchmark programs find the shared corpus of real interface files: TQ_CORPUS_DIR when
// it is set (scripts/bench.sh sets it), else the folder beside the checkout the program was built
// from. Benchmarks that need a corpus file and find none skip with kCorpusAbsent, which the table
// prints as one line.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace tqbench {

inline constexpr const char* kCorpusAbsent = "corpus absent";

inline std::filesystem::path corpusRoot() {
  const char* env = std::getenv("TQ_CORPUS_DIR");
  return env && *env ? std::filesystem::path(env) : std::filesystem::path(TQ_CORPUS_DIR);
}

// The reason to skip for a file the corpus lacks: kCorpusAbsent when there is no corpus at all.
inline const char* corpusLacks(const char* what) {
  std::error_code ec;
  return std::filesystem::is_directory(corpusRoot(), ec) ? what : kCorpusAbsent;
}

// The bytes of the largest interface file (.xib or .nib) below the corpus that pass `accept`; empty
// when there is none.
inline std::string largestCorpusFile(const std::function<bool(const std::string&)>& accept) {
  namespace fs = std::filesystem;
  std::string best;
  std::error_code ec;
  for (fs::recursive_directory_iterator it(corpusRoot(), ec), end; !ec && it != end; it.increment(ec)) {
    const auto ext = it->path().extension();
    if (!it->is_regular_file() || (ext != ".xib" && ext != ".nib")) continue;
    std::ifstream in(it->path(), std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() > best.size() && accept(bytes)) best = std::move(bytes);
  }
  return best;
}

// The interface forms, each the largest such file of the corpus.
inline bool isXMLArchive(const std::string& b) {
  return b.find("<archive ") != std::string::npos && b.find("<archive ") < 200;
}
inline const std::string& currentDocument() {
  static const std::string d =
      largestCorpusFile([](const std::string& b) { return b.find("<document") < 200 && !isXMLArchive(b); });
  return d;
}
inline const std::string& xmlArchive() {
  static const std::string d = largestCorpusFile(isXMLArchive);
  return d;
}
inline const std::string& keyedArchive() {
  static const std::string d = largestCorpusFile([](const std::string& b) { return b.rfind("bplist00", 0) == 0; });
  return d;
}
inline const std::string& nibArchive() {
  static const std::string d = largestCorpusFile([](const std::string& b) { return b.rfind("NIBArchive", 0) == 0; });
  return d;
}

}  // namespace tqbench
