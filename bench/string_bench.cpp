// Throughput of the bulk string helpers on 64 MiB of UTF-16 text, beside a plain per-code-unit
// loop doing the same job into a preallocated buffer and beside memcpy of the same bytes. Each
// tqkit operation runs once per code path the CPU offers (".../tqkit/plain", ".../avx2",
// ".../avx512"). Read bytes_per_second (input bytes).
//
// Substitution runs with several sets: ASCII only, Latin-1, punctuation from two blocks on prose,
// CJK punctuation on CJK-rich text, and a set holding an emoji (above U+FFFF) on text with emoji.
// Whitespace reduction is also timed as the first call of a fresh process (".../first_call/..."),
// where the new 64 MiB result is faulted in page by page.
//
// The plain loops are kept one code unit at a time (the compiler is told not to vectorize them),
// since that is the baseline they stand for.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "first_call.h"
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

// CJK and Greek words with ideographic punctuation and spaces, a few ASCII words and emoji.
const String& richText() {
  static const String text = [] {
    static const char16_t* words[] = {u"東京",   u"の",     u"天気",  u"は",    u"晴れ", u"です",  u"日本語",
                                      u"文字列", u"処理",   u"Ελλάδα", u"και",   u"τον",  u"κόσμο", u"ネットワーク",
                                      u"設定",   u"window", u"😀",     u"👍🏽",   u"인터페이스", u"주소"};
    static const char16_t* gaps[] = {u"、", u"。", u"\u3000", u" ", u"「", u"」", u"・", u"\n"};
    std::mt19937 rng(11);
    std::u16string s;
    s.reserve(kUnits + 64);
    while (s.size() < kUnits) {
      s += words[rng() % std::size(words)];
      if (rng() % 3 == 0) s += gaps[rng() % std::size(gaps)];
    }
    s.resize(kUnits);
    if (s.size() && s.back() >= 0xD800 && s.back() <= 0xDBFF) s.back() = u'.';  // no half pair at the end
    return String(s);
  }();
  return text;
}

struct SubstitutionCase {
  const char* name;
  const String& (*text)();
  const char16_t* members;
};

const SubstitutionCase kSubstitutions[] = {
    {"ascii", prose, u"|\t"},
    {"latin1", prose, u"\t\u00A0|"},
    {"punctuation", prose, u"\u2014\u201C\u201D\u2026\u00E9\u00FC"},
    {"cjk", richText, u"、。「」\u3000"},
    {"emoji", richText, u"😀|"},
};

const CharacterSet& setOf(const SubstitutionCase& c) {
  static std::vector<CharacterSet> sets;
  std::size_t i = static_cast<std::size_t>(&c - kSubstitutions);
  if (sets.empty()) {
    for (const auto& k : kSubstitutions) sets.push_back(CharacterSet::characterSetWithCharactersInString(k.members));
  }
  return sets[i];
}

const char* pathSlug(StringCodePath path) {
  switch (path) {
    case StringCodePath::Plain: return "plain";
    case StringCodePath::AVX2: return "avx2";
    case StringCodePath::AVX512: return "avx512";
  }
  return "?";
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

// Character by character, as a careful loop would: a surrogate pair is looked up as one character.
TQ_PLAIN std::size_t plainSubstitute(const char16_t* in, std::size_t n, char16_t* out, const CharacterSet& set,
                                     std::u16string_view sub) {
  std::size_t k = 0;
  for (std::size_t i = 0; i < n; ++i) {
    bool pair = in[i] >= 0xD800 && in[i] <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 && in[i + 1] <= 0xDFFF;
    bool member = pair ? set.longCharacterIsMember(characterOfSurrogatePair(in[i], in[i + 1]))
                       : set.characterIsMember(in[i]);
    if (member) {
      for (char16_t c : sub) out[k++] = c;
    } else {
      out[k++] = in[i];
      if (pair) out[k++] = in[i + 1];
    }
    i += pair;
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

// Fresh processes: the loop writes into a new buffer, as a user's loop would.
// Each result is released after the clock stops: the call is what is timed, not the release.
double firstCallPlainReduce() {
  const String& in = prose();
  const CharacterSet& ws = CharacterSet::whitespaceCharacterSet();
  std::unique_ptr<char16_t[]> out;
  return tqbench::timeOnce([&] {
    out.reset(new char16_t[in.length()]);
    benchmark::DoNotOptimize(plainReduce(in.data(), in.length(), out.get(), ws));
    benchmark::DoNotOptimize(out.get());
  });
}

double firstCallTqReduce() {
  const String& in = prose();
  String result;
  return tqbench::timeOnce([&] { benchmark::DoNotOptimize(result = stringByReducingWhitespaces(in)); });
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
void registerAll() {
  // First: the fresh processes run while this one still holds little memory.
  tqbench::registerFirstCall("stringByReducingWhitespaces/first_call/plain_loop", firstCallPlainReduce);
  for (StringCodePath path : availableStringCodePaths()) {
    tqbench::registerFirstCall(std::string("stringByReducingWhitespaces/first_call/tqkit/") + pathSlug(path),
                               firstCallTqReduce, pathSlug(path));
  }
  benchmark::RegisterBenchmark("memcpy", Memcpy)->Unit(benchmark::kMillisecond);
  struct Pair {
    const char* name;
    void (*plain)(benchmark::State&);
    void (*tq)(benchmark::State&);
  } pairs[] = {{"stringByReducingWhitespaces", PlainReduce, TqReduce},
               {"stringByRemovingLineBreaks", PlainLineBreaks, TqLineBreaks},
               {"stringByRemovingSurroundingWhitespace", PlainSurroundingWhitespace, TqSurroundingWhitespace}};
  for (const Pair& p : pairs) {
    benchmark::RegisterBenchmark((std::string(p.name) + "/plain_loop").c_str(), p.plain)->Unit(benchmark::kMillisecond);
    for (StringCodePath path : availableStringCodePaths()) {
      benchmark::RegisterBenchmark((std::string(p.name) + "/tqkit/" + pathSlug(path)).c_str(), p.tq)
          ->Arg(static_cast<int>(path))
          ->Unit(benchmark::kMillisecond);
    }
  }
  for (const SubstitutionCase& c : kSubstitutions) {
    const std::string base = std::string("stringWithSubstitute/") + c.name;
    benchmark::RegisterBenchmark((base + "/plain_loop").c_str(), [&c](benchmark::State& state) {
      const String& in = c.text();
      auto& out = scratch();
      for (auto _ : state) benchmark::DoNotOptimize(plainSubstitute(in.data(), in.length(), out.data(), setOf(c), u" "));
      setBytes(state, in);
    })->Unit(benchmark::kMillisecond);
    for (StringCodePath path : availableStringCodePaths()) {
      benchmark::RegisterBenchmark((base + "/tqkit/" + pathSlug(path)).c_str(), [&c, path](benchmark::State& state) {
        setStringCodePath(path);
        state.SetLabel(stringCodePathName(path));
        const String& in = c.text();
        for (auto _ : state) benchmark::DoNotOptimize(stringWithSubstitute(in, u" ", setOf(c)));
        setBytes(state, in);
      })->Unit(benchmark::kMillisecond);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  if (tqbench::runFirstCallIfAsked()) return 0;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
