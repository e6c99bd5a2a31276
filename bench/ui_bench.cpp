// Interface documents, each form beside the bare parse of the same bytes in the same run:
//   current document (.xib)      readNibData  vs  pugixml parse               (largest such file)
//   older XML archive            readNibData  vs  pugixml parse               (largest such file)
//   compiled keyed archive       readNibData  vs  libplist plist_from_bin     (largest such file)
//   NIBArchive                   readNibData  vs  a bare walk of its tables   (largest such file)
// The bare parses are the floors: any reader of the form has to do at least that much. Each also
// shows its first call in the process (first_call_us: cold caches, one-time set-up) beside the
// steady state, and the size of its document (objects made, bytes). The compiled forms are also measured up to the checked keyed-object graph alone (the
// container, before the model is built). Every read reports allocs_per_read, and the .xib and
// NIBArchive reads' own allocations (every size, in order) are replayed alone: what the allocator
// costs for the model as it is built today, a floor under the read whatever its parsing does. For
// the .xib, floors of a reader on this parser are measured too: the parse, then one walk of the
// parsed tree, the read's allocations, or both.
#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <pugixml.hpp>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "../platform/ui/archive/keyed_archive.h"
#include "tq/platform/ui/archive/nib_reader.h"
#include "allocation_counter.h"
#include "corpus.h"

namespace {

using tqbench::currentDocument;
using tqbench::keyedArchive;
using tqbench::nibArchive;
using tqbench::xmlArchive;

// How long `work` took the first time this program ran it on these bytes, in microseconds (timed on
// the first call, remembered for the later runs of the same benchmark).
template <class Work>
double firstCallMicros(const std::string& doc, int kind, Work work) {
  static std::map<std::pair<const std::string*, int>, double> times;
  auto [it, added] = times.try_emplace({&doc, kind}, 0.0);
  if (added) {
    const auto start = std::chrono::steady_clock::now();
    work();
    it->second = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
  }
  return it->second;
}

// The interface objects one read of the document makes, counted once per program and document.
std::size_t objectsIn(const std::string& doc) {
  static std::map<const std::string*, std::size_t> counts;
  auto [it, added] = counts.try_emplace(&doc, 0);
  if (added) {
    tq::NibReadResult r = tq::readNibData(doc);
    it->second = r ? r.nib().objectCount() : 0;
  }
  return it->second;
}

// Every parse and read reports the size of its document, in interface objects (`objects`) and in
// bytes (`bytes`), so that forms can be compared per object and per byte.
void countSize(benchmark::State& state, const std::string& doc) {
  state.counters["objects"] = static_cast<double>(objectsIn(doc));
  state.counters["bytes"] = static_cast<double>(doc.size());
}

void parseXML(benchmark::State& state, const std::string& doc) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  countSize(state, doc);
  const double first = firstCallMicros(doc, 0, [&] {
    pugi::xml_document d;
    benchmark::DoNotOptimize(d.load_buffer(doc.data(), doc.size(), pugi::parse_default));
  });
  state.counters["first_call_us"] = first;
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    pugi::xml_document d;
    benchmark::DoNotOptimize(d.load_buffer(doc.data(), doc.size(), pugi::parse_default));
  }
  state.counters["allocs_per_read"] =
      static_cast<double>(tqbench::heapBlocks.load() - before) / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}

void readNib(benchmark::State& state, const std::string& doc) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  const double first = firstCallMicros(doc, 1, [&] { benchmark::DoNotOptimize(tq::readNibData(doc)); });
  state.counters["first_call_us"] = first;
  std::size_t objects = 0;
  const long long before = tqbench::heapBlocks.load();
  for (auto _ : state) {
    tq::NibReadResult r = tq::readNibData(doc);
    if (!r) return state.SkipWithError(r.error().reason.c_str());
    objects = r.nib().objectCount();
    benchmark::DoNotOptimize(r);
  }
  state.counters["allocs_per_read"] =
      static_cast<double>(tqbench::heapBlocks.load() - before) / static_cast<double>(state.iterations());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
  state.counters["objects"] = static_cast<double>(objects);
  state.counters["bytes"] = static_cast<double>(doc.size());
}

// Every size one read of the document asks the allocator for, in order.
std::vector<std::size_t> readAllocationSizes(const std::string& doc) {
  std::vector<std::size_t> sizes;
  sizes.reserve(1 << 20);
  tqbench::recordedSizes = &sizes;
  { benchmark::DoNotOptimize(tq::readNibData(doc)); }
  tqbench::recordedSizes = nullptr;
  return sizes;
}

// Every block of `sizes` allocated and written once, then all freed.
void replay(const std::vector<std::size_t>& sizes, std::vector<void*>& blocks) {
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    blocks[i] = __libc_malloc(sizes[i] ? sizes[i] : 1);
    *static_cast<volatile char*>(blocks[i]) = 1;
  }
  benchmark::DoNotOptimize(blocks.data());
  for (void* b : blocks) std::free(b);
}

// The allocations one read makes (every size asked for, in order), replayed alone. This is what the
// read costs in the allocator as the model is built today, whatever the reading around it does.
void replayReadAllocations(benchmark::State& state, const std::string& doc) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  const std::vector<std::size_t> sizes = readAllocationSizes(doc);
  std::vector<void*> blocks(sizes.size());
  for (auto _ : state) replay(sizes, blocks);
  state.counters["allocs_per_read"] = static_cast<double>(sizes.size());
}

// One visit of every node of the parsed tree through the parser's interface, in document order,
// reading the first byte of each element's name and of each attribute's name and value: the least
// any reader of the tree does, since it must find out what each element holds.
unsigned walkTree(pugi::xml_node root) {
  unsigned seen = 0;
  for (pugi::xml_node n = root.first_child(); n;) {
    seen += static_cast<unsigned char>(n.name()[0]);
    for (pugi::xml_attribute a = n.first_attribute(); a; a = a.next_attribute()) {
      seen += static_cast<unsigned char>(a.name()[0]) + static_cast<unsigned char>(a.value()[0]);
    }
    if (pugi::xml_node child = n.first_child()) {
      n = child;
      continue;
    }
    while (!n.next_sibling()) {
      n = n.parent();
      if (n == root) return seen;
    }
    n = n.next_sibling();
  }
  return seen;
}

// Floors of the .xib read, each repetition doing the parse and then, as asked, one walk of the
// parsed tree and the read's own allocations: what a reader of today's model on this parser costs
// that did nothing else (no lookups, no conversions, no setters).
void nibReadFloor(benchmark::State& state, bool walk, bool allocate) {
  const std::string& doc = currentDocument();
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  const std::vector<std::size_t> sizes = readAllocationSizes(doc);
  std::vector<void*> blocks(sizes.size());
  for (auto _ : state) {
    pugi::xml_document d;
    benchmark::DoNotOptimize(d.load_buffer(doc.data(), doc.size(), pugi::parse_default));
    if (walk) benchmark::DoNotOptimize(walkTree(d));
    if (allocate) replay(sizes, blocks);
  }
}

void BM_PugixmlParse(benchmark::State& state) { parseXML(state, currentDocument()); }
BENCHMARK(BM_PugixmlParse)->Unit(benchmark::kMicrosecond);
void BM_NibRead(benchmark::State& state) { readNib(state, currentDocument()); }
BENCHMARK(BM_NibRead)->Unit(benchmark::kMicrosecond);

void BM_NibReadAllocations(benchmark::State& state) { replayReadAllocations(state, currentDocument()); }
BENCHMARK(BM_NibReadAllocations)->Unit(benchmark::kMicrosecond);

void BM_NibReadFloor(benchmark::State& state) { nibReadFloor(state, false, true); }
BENCHMARK(BM_NibReadFloor)->Unit(benchmark::kMicrosecond);
void BM_NibReadWalkFloor(benchmark::State& state) { nibReadFloor(state, true, false); }
BENCHMARK(BM_NibReadWalkFloor)->Unit(benchmark::kMicrosecond);
void BM_NibReadWalkAndAllocationsFloor(benchmark::State& state) { nibReadFloor(state, true, true); }
BENCHMARK(BM_NibReadWalkAndAllocationsFloor)->Unit(benchmark::kMicrosecond);

void BM_PugixmlParseXMLArchive(benchmark::State& state) { parseXML(state, xmlArchive()); }
BENCHMARK(BM_PugixmlParseXMLArchive)->Unit(benchmark::kMicrosecond);
void BM_XMLArchiveRead(benchmark::State& state) { readNib(state, xmlArchive()); }
BENCHMARK(BM_XMLArchiveRead)->Unit(benchmark::kMicrosecond);

void BM_LibplistParse(benchmark::State& state) {
  const std::string& doc = keyedArchive();
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no compiled keyed archive in the corpus"));
  const double first = firstCallMicros(doc, 0, [&] {
    plist_t root = nullptr;
    plist_from_bin(doc.data(), static_cast<uint32_t>(doc.size()), &root);
    plist_free(root);
  });
  state.counters["first_call_us"] = first;
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_bin(doc.data(), static_cast<uint32_t>(doc.size()), &root);
    benchmark::DoNotOptimize(root);
    plist_free(root);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_LibplistParse)->Unit(benchmark::kMicrosecond);
void BM_KeyedArchiveRead(benchmark::State& state) { readNib(state, keyedArchive()); }
BENCHMARK(BM_KeyedArchiveRead)->Unit(benchmark::kMicrosecond);

// The containers alone: bytes to the checked keyed-object graph, before any model is built.
void containerRead(benchmark::State& state, const std::string& doc,
                   bool (*read)(std::string_view, std::size_t, tq::archive::KeyedArchive&, tq::archive::ArchiveError&)) {
  if (doc.empty()) return state.SkipWithError(tqbench::corpusLacks("no such corpus file"));
  for (auto _ : state) {
    tq::archive::KeyedArchive graph;
    tq::archive::ArchiveError error;
    if (!read(doc, tq::nibMemoryBound(doc.size()), graph, error)) return state.SkipWithError(error.reason.c_str());
    benchmark::DoNotOptimize(graph);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
void BM_KeyedArchiveContainer(benchmark::State& state) {
  containerRead(state, keyedArchive(), tq::archive::readKeyedPlistArchive);
}
BENCHMARK(BM_KeyedArchiveContainer)->Unit(benchmark::kMicrosecond);
void BM_NIBArchiveContainer(benchmark::State& state) { containerRead(state, nibArchive(), tq::archive::readNIBArchive); }

// The floor for NIBArchive: every table read into vectors (keys and class names as strings, values
// with their payloads), with no checks and no model.
void BM_NIBArchiveTables(benchmark::State& state) {
  const std::string& b = nibArchive();
  if (b.empty()) return state.SkipWithError(tqbench::corpusLacks("no NIBArchive in the corpus"));
  struct Value {
    uint32_t key;
    uint8_t type;
    std::string_view payload;
  };
  struct Object {
    uint32_t cls, first, count;
  };
  for (auto _ : state) {
    std::size_t p = 0;
    auto u32 = [&](std::size_t at) {
      uint32_t v;
      std::memcpy(&v, b.data() + at, 4);
      return v;
    };
    auto varint = [&] {
      uint32_t v = 0;
      for (int shift = 0;; shift += 7) {
        const auto c = static_cast<unsigned char>(b[p++]);
        v |= static_cast<uint32_t>(c & 0x7F) << shift;
        if (c & 0x80) return v;
      }
    };
    std::vector<std::string> keys(u32(26)), classes(u32(42));
    std::vector<Value> values(u32(34));
    std::vector<Object> objects(u32(18));
    p = u32(30);
    for (auto& k : keys) {
      const uint32_t n = varint();
      k.assign(b.data() + p, n);
      p += n;
    }
    p = u32(46);
    for (auto& c : classes) {
      const uint32_t n = varint(), extras = varint();
      p += 4 * extras;
      c.assign(b.data() + p, n);
      p += n;
    }
    p = u32(38);
    static const int sizes[] = {1, 2, 4, 8, 0, 0, 4, 8, 0, 0, 4};
    for (auto& v : values) {
      v.key = varint();
      v.type = static_cast<uint8_t>(b[p++]);
      const std::size_t n = v.type == 8 ? varint() : v.type <= 10 ? static_cast<std::size_t>(sizes[v.type]) : 0;
      v.payload = std::string_view(b).substr(p, n);
      p += n;
    }
    p = u32(22);
    for (auto& o : objects) o = {varint(), varint(), varint()};
    benchmark::DoNotOptimize(objects.data());
    benchmark::DoNotOptimize(values.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}
BENCHMARK(BM_NIBArchiveTables)->Unit(benchmark::kMicrosecond);
void BM_NIBArchiveReadAllocations(benchmark::State& state) { replayReadAllocations(state, nibArchive()); }
BENCHMARK(BM_NIBArchiveReadAllocations)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NIBArchiveContainer)->Unit(benchmark::kMicrosecond);
void BM_NIBArchiveRead(benchmark::State& state) { readNib(state, nibArchive()); }
BENCHMARK(BM_NIBArchiveRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
