// The cost of the small handles every other unit is made of, beside the floor of the same job:
//   short strings   String::fromUTF8 of 1,000 attribute-sized texts (4-40 bytes, ASCII), kept
//                   and dropped  vs  one malloc, widening loop and free per text (what any handle
//                   that owns its units must at least do)
//   string copies   copying a String into 1,000 slots and dropping them  vs  the same with
//                   std::shared_ptr<const std::u16string> (an atomic count each way)
//   dictionaries    a Dictionary of 4 string entries built, looked up once per key and dropped
//                   vs  std::unordered_map<std::u16string, std::u16string> doing the same
// Every allocation of the program is counted (operator new and the C allocator), and each row
// reports allocs_per_item.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"
#include "allocation_counter.h"


namespace {

constexpr int kItems = 1000;

// Attribute-sized ASCII texts with a fixed seed: identifiers, titles, key paths.
const std::vector<std::string>& texts() {
  static const std::vector<std::string> t = [] {
    std::mt19937 rng(16);
    std::uniform_int_distribution<int> length(4, 40), letter('a', 'z');
    std::vector<std::string> out(kItems);
    for (auto& s : out) {
      s.resize(static_cast<std::size_t>(length(rng)));
      for (auto& c : s) c = static_cast<char>(letter(rng));
    }
    return out;
  }();
  return t;
}

void report(benchmark::State& state, long long allocs, int perIteration) {
  state.counters["allocs_per_item"] =
      static_cast<double>(allocs) / static_cast<double>(state.iterations() * perIteration);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * perIteration));
}

void BM_ShortStrings_tqkit(benchmark::State& state) {
  const auto& in = texts();
  std::vector<tq::String> kept(kItems);
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    for (int i = 0; i < kItems; ++i) kept[i] = tq::String::fromUTF8(in[i]);
    benchmark::DoNotOptimize(kept.data());
    for (auto& s : kept) s = tq::String();
  }
  report(state, tqbench::heapBlocks.load() - before, kItems);
}
BENCHMARK(BM_ShortStrings_tqkit)->Unit(benchmark::kMicrosecond);

void BM_ShortStrings_floor(benchmark::State& state) {
  const auto& in = texts();
  std::vector<char16_t*> kept(kItems);
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    for (int i = 0; i < kItems; ++i) {
      const std::string& s = in[i];
      auto* units = static_cast<char16_t*>(std::malloc(s.size() * sizeof(char16_t)));
      for (std::size_t k = 0; k < s.size(); ++k) units[k] = static_cast<unsigned char>(s[k]);
      kept[i] = units;
    }
    benchmark::DoNotOptimize(kept.data());
    for (auto* p : kept) std::free(p);
  }
  report(state, tqbench::heapBlocks.load() - before, kItems);
}
BENCHMARK(BM_ShortStrings_floor)->Unit(benchmark::kMicrosecond);

void BM_StringCopies_tqkit(benchmark::State& state) {
  const tq::String source = tq::String::fromUTF8(texts()[0]);
  std::vector<tq::String> slots(kItems);
  for (auto _ : state) {
    for (auto& s : slots) s = source;
    benchmark::DoNotOptimize(slots.data());
    for (auto& s : slots) s = tq::String();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kItems));
}
BENCHMARK(BM_StringCopies_tqkit)->Unit(benchmark::kMicrosecond);

void BM_StringCopies_sharedPtr(benchmark::State& state) {
  const auto source = std::make_shared<const std::u16string>(u"a shared text");
  std::vector<std::shared_ptr<const std::u16string>> slots(kItems);
  for (auto _ : state) {
    for (auto& s : slots) s = source;
    benchmark::DoNotOptimize(slots.data());
    for (auto& s : slots) s.reset();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kItems));
}
BENCHMARK(BM_StringCopies_sharedPtr)->Unit(benchmark::kMicrosecond);

const char* const kKeys[] = {"NSAllowsEditingMultipleValuesSelection", "NSNullPlaceholder", "NSRaisesForNotApplicableKeys",
                             "NSValueTransformerName"};
const char* const kValues[] = {"YES", "No Selection", "NO", "NSNegateBoolean"};

void BM_Dictionary_tqkit(benchmark::State& state) {
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    std::vector<std::pair<tq::String, tq::Value>> entries;
    entries.reserve(4);
    for (int i = 0; i < 4; ++i) entries.emplace_back(tq::String::fromUTF8(kKeys[i]), tq::Value(tq::String::fromUTF8(kValues[i])));
    tq::Dictionary d(std::move(entries));
    for (int i = 0; i < 4; ++i) benchmark::DoNotOptimize(d.objectForKey(tq::String::fromASCII(kKeys[i])));
  }
  report(state, tqbench::heapBlocks.load() - before, 1);
}
BENCHMARK(BM_Dictionary_tqkit)->Unit(benchmark::kNanosecond);

void BM_Dictionary_unorderedMap(benchmark::State& state) {
  auto widen = [](const char* s) {
    std::u16string out;
    for (; *s; ++s) out.push_back(static_cast<unsigned char>(*s));
    return out;
  };
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    std::unordered_map<std::u16string, std::u16string> d;
    for (int i = 0; i < 4; ++i) d.emplace(widen(kKeys[i]), widen(kValues[i]));
    for (int i = 0; i < 4; ++i) benchmark::DoNotOptimize(d.find(widen(kKeys[i])));
  }
  report(state, tqbench::heapBlocks.load() - before, 1);
}
BENCHMARK(BM_Dictionary_unorderedMap)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
