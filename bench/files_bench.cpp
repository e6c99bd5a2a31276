// Free names for large batches, strings-table parsing and translation lookups, each beside a baseline:
//  - UniqueNames/N: uniqueNamesForFileNames for N copies of one name into an empty folder (real
//    file system); per_name is seconds per name and must stay flat as N grows. DirectTranscription/N
//    is the algorithm written literally (restart at 2 for every name, linear search of the result);
//    its 10,000 point runs only with TQ_BENCH_SLOW=1. UniqueNamesWithoutFileSystem: the algorithm's
//    own cost, with a file manager that answers without a system call.
//  - ParseStringsTable: the text reader on a ~5 MB table; LibplistXml: libplist reading the same
//    entries as an XML property list. items_per_second counts entries, bytes_per_second own input.
//  - BundleLookup: localizedStringForKey on a loaded table; DictionaryLookup: the bare hash lookup.
//  - PathToBytes / BytesToPath: a path to the system's bytes and back (stray bytes kept), beside
//    PathToUTF8 / UTF8ToString, the plain UTF-8 conversions of the same path.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "tq/foundation/file_manager_extensions.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/bundle/strings_table.h"

namespace fs = std::filesystem;
using tq::String;

namespace {

struct TempFolder {
  fs::path path;
  TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "tq-files-bench-XXXXXX").string();
    path = ::mkdtemp(pattern.data());
  }
  ~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

TempFolder& folder() {
  static TempFolder f;
  return f;
}

tq::Array copies(int n) { return tq::Array(std::vector<tq::Value>(n, tq::Value(u"Holiday photo.jpg"))); }

void UniqueNames(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  tq::Array names = copies(n);
  String dir = String::fromUTF8(folder().path.string());
  for (auto _ : state) benchmark::DoNotOptimize(tq::uniqueNamesForFileNames(tq::FileManager::defaultManager(), names, dir));
  state.SetItemsProcessed(state.iterations() * n);
  state.counters["per_name"] =
      benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(UniqueNames)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same with an empty folder that answers without a system call: the algorithm's own cost,
// apart from the kernel's (whose name cache grows with every name looked up).
struct EmptyFolderManager : tq::FileManager {
  bool fileExistsAtPath(const String&) override { return false; }
};

void UniqueNamesWithoutFileSystem(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  tq::Array names = copies(n);
  EmptyFolderManager manager;
  for (auto _ : state) benchmark::DoNotOptimize(tq::uniqueNamesForFileNames(manager, names, u"/nowhere"));
  state.SetItemsProcessed(state.iterations() * n);
  state.counters["per_name"] =
      benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(UniqueNamesWithoutFileSystem)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The algorithm as written: every name restarts at 2; "free" asks the file system, then searches the
// result array from the start.
tq::Array directTranscription(tq::FileManager& fm, const tq::Array& names, const String& dir) {
  tq::MutableArray result;
  for (const tq::Value& v : names) {
    String name = v.stringValue();
    String base = name.stringByDeletingPathExtension();
    String extension = name.pathExtension();
    String candidate = name;
    int number = 2;
    while (fm.fileExistsAtPath(dir.stringByAppendingPathComponent(candidate)) || result.containsObject(candidate)) {
      char label[24];
      std::snprintf(label, sizeof label, " %02d", number++);  // at least two digits
      candidate = base.stringByAppendingString(String::fromUTF8(label));
      if (extension.length() > 0) candidate = candidate.stringByAppendingPathExtension(extension);
    }
    result.addObject(candidate);
  }
  return result.copy();
}

void DirectTranscription(benchmark::State& state) {
  int n = static_cast<int>(state.range(0));
  // Its cost grows with the cube of the batch (every name rescans every earlier number and the
  // result): 1,000 copies take seconds, 10,000 take hours.
  if (n > 2000 && !std::getenv("TQ_BENCH_SLOW")) {
    state.SkipWithError("hours at this size; set TQ_BENCH_SLOW=1 to run it");
    for (auto _ : state) {
    }
    return;
  }
  tq::Array names = copies(n);
  String dir = String::fromUTF8(folder().path.string());
  for (auto _ : state) benchmark::DoNotOptimize(directTranscription(tq::FileManager::defaultManager(), names, dir));
  state.SetItemsProcessed(state.iterations() * n);
  state.counters["per_name"] =
      benchmark::Counter(n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(DirectTranscription)->Arg(1000)->Arg(2000)->Arg(10000)->Unit(benchmark::kMillisecond)->Iterations(1);

// ~5 MB of entries in the shape of real tables: a comment, a sentence key, a translated value.
struct Table {
  std::string text;
  std::string xml;
  std::vector<String> keys;
  std::size_t entries = 0;
};

const Table& table() {
  static const Table t = [] {
    Table t;
    plist_t dict = plist_new_dict();
    for (int i = 0; t.text.size() < 5 * 1000 * 1000; ++i) {
      std::string key = "Transfer " + std::to_string(i) + " of %@ finished; open the folder?";
      std::string value = "\xC3\x9C" "bertragung " + std::to_string(i) + " von %@ beendet \xE2\x80\x93 Ordner \xC3\xB6" "ffnen?";
      t.text += "/* Status window -> transfer " + std::to_string(i) + " */\n\"" + key + "\" = \"" + value + "\";\n\n";
      plist_dict_set_item(dict, key.c_str(), plist_new_string(value.c_str()));
      t.keys.push_back(String::fromUTF8(key));
      ++t.entries;
    }
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(dict, &xml, &length);
    t.xml.assign(xml, length);
    std::free(xml);
    plist_free(dict);
    return t;
  }();
  return t;
}

void ParseStringsTable(benchmark::State& state) {
  const Table& t = table();
  for (auto _ : state) {
    auto r = tq::parseStringsTable(std::span(reinterpret_cast<const uint8_t*>(t.text.data()), t.text.size()));
    if (!r.ok || r.entries.size() != t.entries) state.SkipWithError("table did not parse");
    benchmark::DoNotOptimize(r);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.text.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(t.entries));
}
BENCHMARK(ParseStringsTable)->Unit(benchmark::kMillisecond);

void LibplistXml(benchmark::State& state) {
  const Table& t = table();
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_xml(t.xml.data(), static_cast<uint32_t>(t.xml.size()), &root);
    if (!root || plist_dict_get_size(root) != t.entries) state.SkipWithError("plist did not parse");
    plist_free(root);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(t.xml.size()));
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(t.entries));
}
BENCHMARK(LibplistXml)->Unit(benchmark::kMillisecond);

std::shared_ptr<tq::Bundle> lookupBundle() {
  static std::shared_ptr<tq::Bundle> bundle = [] {
    fs::path app = folder().path / "Lookup.app";
    fs::create_directories(app / "Contents/Resources/de.lproj");
    fs::create_directories(app / "Contents/Resources/English.lproj");
    std::ofstream(app / "Contents/Info.plist")
        << "<?xml version=\"1.0\"?><plist><dict><key>CFBundleDevelopmentRegion</key><string>English</string>"
           "</dict></plist>";
    std::ofstream(app / "Contents/Resources/de.lproj/Localizable.strings", std::ios::binary) << table().text;
    setenv("LANGUAGE", "de", 1);
    return tq::Bundle::bundleWithPath(String::fromUTF8(app.string()));
  }();
  return bundle;
}

void BundleLookup(benchmark::State& state) {
  auto bundle = lookupBundle();
  const auto& keys = table().keys;
  bundle->localizedStringForKey(keys[0], String(), String());  // load the table once
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(bundle->localizedStringForKey(keys[i], String(), String()));
    i = (i + 7919) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BundleLookup);

void DictionaryLookup(benchmark::State& state) {
  auto dict = lookupBundle()->stringsTable(u"Localizable", u"de");
  const auto& keys = table().keys;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dict.objectForKey(keys[i]));
    i = (i + 7919) % keys.size();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DictionaryLookup);

// A typical path, one non-ASCII name in it.
const String& samplePath() {
  static const String path = String::fromUTF8("/home/user/Pictures/2024 Caf\xC3\xA9 trip/Holiday photo 02.jpg");
  return path;
}

void PathToBytes(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(tq::FileManager::fileSystemRepresentation(samplePath()));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(samplePath().length()));
}
BENCHMARK(PathToBytes);

void PathToUTF8(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(samplePath().UTF8String());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(samplePath().length()));
}
BENCHMARK(PathToUTF8);

void BytesToPath(benchmark::State& state) {
  const std::string bytes = samplePath().UTF8String();
  for (auto _ : state) benchmark::DoNotOptimize(tq::FileManager::stringWithFileSystemRepresentation(bytes));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BytesToPath);

void UTF8ToString(benchmark::State& state) {
  const std::string bytes = samplePath().UTF8String();
  for (auto _ : state) benchmark::DoNotOptimize(String::fromUTF8(bytes));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(UTF8ToString);

}  // namespace

BENCHMARK_MAIN();
