// Throughput of the bulk string helpers on 64 MiB of UTF-16 prose, beside a plain per-code-unit
// loop doing the same job into a preallocated buffer and beside memcpy of the same bytes. Each
// tqkit operation runs once per code path the CPU offers. Read bytes_per_second (input bytes).
//
// The plain loops are kept one code unit at a time (the compiler is told not to vectorize them),
// since that is the baseline they stand for.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tq/foundation/string_code_paths.h"
#include "tq/foundation/string_extensions.h"
#include "tq/platform/base/character_set.h"

using namespace tq;

namespace {

constexpr std::size_t kUnits = 32u << 20;  // 64 MiB of UTF-16

// Prose with single spaces, some double spaces and tabs, line breaks (some CR LF) and a few
// non-ASCII words and spaces.
const String& prose() {
  static const String text = [] {
    static const char16_t* words[] = {u"the",  u"of",     u"and",  u"a",     u"to",      u"in",    u"is",
                                      u"you",  u"that",   u"it",   u"he",    u"was",     u"for",   u"on",
                                      u"are",  u"as",     u"with", u"his",   u"they",    u"I",     u"at",
                                      u"be",   u"this",   u"have", u"from",  u"or",      u"one",   u"had",
                                      u"by",   u"word",   u"but",  u"not",   u"what",    u"all",   u"were",
                                      u"café", u"naïve",  u"Zürich", u"—",   u"garçon",  u"Ελλάδα", u"東京",
                                      u"window", u"configuration", u"interface", u"address", u"network"};
    std::mt19937 rng(7);
    std::u16string s;
    s.reserve(kUnits + 64);
    std::size_t lineLength = 0;
    while (s.size() < kUnits) {
      s += words[rng() % std::size(words)];
      unsigned r = rng() % 100;
      lineLength += 6;
      if (lineLength > 72) {
        s += (r < 20) ? u".\r\n" : u".\n";
        lineLength = 0;
      } else if (r < 4) {
        s += u"  ";
      } else if (r < 6) {
        s += u"\t";
      } else if (r < 7) {
        s += u"\u00A0";
      } else if (r < 12) {
        s += u", ";
      } else {
        s += u' ';
      }
    }
    s.resize(kUnits);
    return String(s);
  }();
  return text;
}

// Whitespace on both sides of a short sentence: the surrounding-whitespace scan runs over 64 MiB.
const String& padded() {
  static const String text = [] {
    std::u16string pad;
    const char16_t cycle[] = {u' ', u' ', u'\t', u' ', u'\u3000', u' ', u'\u00A0', u' '};
    for (std::size_t i = 0; i < kUnits / 2; ++i) pad += cycle[i % std::size(cycle)];
    return String(pad + u"a sentence in the middle" + pad);
  }();
  return text;
}

const CharacterSet& substitutionSet() {
  static const CharacterSet set = CharacterSet::characterSetWithCharactersInString(u"\t\u00A0|");
  return set;
}

void setBytes(benchmark::State& state, const String& in) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.length() * 2));
}

// --- baselines ---------------------------------------------------------------------------------

#define TQ_PLAIN __attribute__((noinline, optimize("no-tree-vectorize")))

TQ_PLAIN std::size_t plainReduce(const char16_t* in, std::size_t n, char16_t* out, const CharacterSet& ws) {
  std::size_t k = 0;
  bool inRun = false;
  for (std::size_t i = 0; i < n; ++i) {
    if (ws.characterIsMember(in[i])) {
      if (!inRun) out[k++] = u' ';
      inRun = true;
    } else {
      out[k++] = in[i];
      inRun = false;
    }
  }
  return k;
}

TQ_PLAIN void plainLineBreaks(const char16_t* in, std::size_t n, char16_t* out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = (in[i] == u'\n' || in[i] == u'\r') ? u' ' : in[i];
}

TQ_PLAIN std::size_t plainTrim(const char16_t* in, std::size_t n, const CharacterSet& ws) {
  std::size_t b = 0, e = n;
  while (b < e && ws.characterIsMember(in[b])) ++b;
  while (e > b && ws.characterIsMember(in[e - 1])) --e;
  return e - b;
}

TQ_PLAIN std::size_t plainSubstitute(const char16_t* in, std::size_t n, char16_t* out, const CharacterSet& set,
                                     std::u16string_view sub) {
  std::size_t k = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (set.characterIsMember(in[i])) {
      for (char16_t c : sub) out[k++] = c;
    } else {
      out[k++] = in[i];
    }
  }
  return k;
}

std::vector<char16_t>& scratch() {
  static std::vector<char16_t> buffer(kUnits * 2 + 64, u'x');  // preallocated and touched
  return buffer;
}

void Memcpy(benchmark::State& state) {
  const String& in = prose();
  auto& out = scratch();
  for (auto _ : state) {
    std::memcpy(out.data(), in.data(), in.length() * 2);
    benchmark::ClobberMemory();
  }
  setBytes(state, in);
}

void PlainReduce(benchmark::State& state) {
  const String& in = prose();
  auto& out = scratch();
  for (auto _ : state) benchmark::DoNotOptimize(plainReduce(in.data(), in.length(), out.data(), CharacterSet::whitespaceCharacterSet()));
  setBytes(state, in);
}

void PlainLineBreaks(benchmark::State& state) {
  const String& in = prose();
  auto& out = scratch();
  for (auto _ : state) {
    plainLineBreaks(in.data(), in.length(), out.data());
    benchmark::ClobberMemory();
  }
  setBytes(state, in);
}

void PlainSurroundingWhitespace(benchmark::State& state) {
  const String& in = padded();
  for (auto _ : state) benchmark::DoNotOptimize(plainTrim(in.data(), in.length(), CharacterSet::whitespaceCharacterSet()));
  setBytes(state, in);
}

void PlainSubstitute(benchmark::State& state) {
  const String& in = prose();
  auto& out = scratch();
  for (auto _ : state) benchmark::DoNotOptimize(plainSubstitute(in.data(), in.length(), out.data(), substitutionSet(), u" "));
  setBytes(state, in);
}

// --- tqkit ---------------------------------------------------------------------------------------

template <class Op>
void runTq(benchmark::State& state, const String& in, Op op) {
  auto path = static_cast<StringCodePath>(state.range(0));
  setStringCodePath(path);
  state.SetLabel(stringCodePathName(path));
  for (auto _ : state) benchmark::DoNotOptimize(op(in));
  setBytes(state, in);
}

void TqReduce(benchmark::State& state) { runTq(state, prose(), [](const String& s) { return stringByReducingWhitespaces(s); }); }
void TqLineBreaks(benchmark::State& state) { runTq(state, prose(), [](const String& s) { return stringByRemovingLineBreaks(s); }); }
void TqSurroundingWhitespace(benchmark::State& state) {
  runTq(state, padded(), [](const String& s) { return stringByRemovingSurroundingWhitespace(s); });
}
void TqSubstitute(benchmark::State& state) {
  runTq(state, prose(), [](const String& s) { return stringWithSubstitute(s, u" ", substitutionSet()); });
}

void registerAll() {
  benchmark::RegisterBenchmark("memcpy", Memcpy)->Unit(benchmark::kMillisecond);
  struct Pair {
    const char* name;
    void (*plain)(benchmark::State&);
    void (*tq)(benchmark::State&);
  } pairs[] = {{"stringByReducingWhitespaces", PlainReduce, TqReduce},
               {"stringByRemovingLineBreaks", PlainLineBreaks, TqLineBreaks},
               {"stringByRemovingSurroundingWhitespace", PlainSurroundingWhitespace, TqSurroundingWhitespace},
               {"stringWithSubstitute", PlainSubstitute, TqSubstitute}};
  for (const Pair& p : pairs) {
    benchmark::RegisterBenchmark((std::string(p.name) + "/plain_loop").c_str(), p.plain)->Unit(benchmark::kMillisecond);
    auto* b = benchmark::RegisterBenchmark((std::string(p.name) + "/tqkit").c_str(), p.tq)->Unit(benchmark::kMillisecond);
    for (StringCodePath path : availableStringCodePaths()) b->Arg(static_cast<int>(path));
  }
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
