// Interface documents: building the model from the largest corpus document, beside a bare pugixml
// parse of the same bytes (the floor any DOM-based reader stands on).
#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tq/platform/ui/nib_reader.h"

namespace {

namespace fs = std::filesystem;

// The largest .xib below the shared corpus beside the checkout (or TQ_CORPUS_DIR).
const std::string& largestDocument() {
  static const std::string bytes = [] {
    const char* env = std::getenv("TQ_CORPUS_DIR");
    const fs::path root = env ? fs::path(env) : fs::path(TQ_CORPUS_DIR);
    fs::path best;
    std::uintmax_t bestSize = 0;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
      if (it->is_regular_file() && it->path().extension() == ".xib" && it->file_size() > bestSize) {
        best = it->path();
        bestSize = it->file_size();
      }
    }
    if (best.empty()) return std::string();
    std::ifstream in(best, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  }();
  return bytes;
}

void BM_PugixmlParse(benchmark::State& state) {
  const std::string& doc = largestDocument();
  if (doc.empty()) return state.SkipWithError("no corpus interface document");
  for (auto _ : state) {
    pugi::xml_document d;
    benchmark::DoNotOptimize(d.load_buffer(doc.data(), doc.size(), pugi::parse_default));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_PugixmlParse)->Unit(benchmark::kMicrosecond);

void BM_NibRead(benchmark::State& state) {
  const std::string& doc = largestDocument();
  if (doc.empty()) return state.SkipWithError("no corpus interface document");
  std::size_t objects = 0;
  for (auto _ : state) {
    tq::NibReadResult r = tq::readNibData(doc);
    if (!r) return state.SkipWithError(r.error().reason.c_str());
    objects = r.nib().objectCount();
    benchmark::DoNotOptimize(r);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
  state.counters["objects"] = static_cast<double>(objects);
}
BENCHMARK(BM_NibRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
