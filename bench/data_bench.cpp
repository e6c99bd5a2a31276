// Data helpers beside their baselines, in one run: hexadecimal encode and decode, SHA-1, byte search.
//
// Every row reports bytes_per_second over the same quantity for tqkit and its baselines (the input
// bytes of the encoder and of SHA-1, the text characters of the decoder, the haystack bytes of the
// search), so ratios compare like with like; at the end the program prints each group's ratios.
//   encode   64 B .. 64 MiB: hexadecimalRepresentation (a new String), the plain per-byte loop into a
//            String, memcpy of the output size (4 bytes per input byte: two UTF-16 units), and the
//            bare UTF-16 kernel into a reused buffer, once per instruction set the CPU has
//            ("kernel_avx2"...); 64 MiB also as the first call of a fresh process
//            ("encode/64MiB/first_call/tqkit" beside the plain loop into a new buffer)
//   decode   dense and white-spaced text: dataWithHexadecimalRepresentation, the plain per-character
//            loop of the parse (into a scratch area, then a new Data)
//   sha1     64 B .. 1 MiB: sha1() (a new Data), OpenSSL's one-shot SHA1()
//   search   16 MiB, pattern lengths 2, 8, 32, 256, random text (the pattern occurs once, at the end)
//            adversarial text (a^(m-1) b in a^n) and periodic text (a^k b a^k' in a^n, which defeats
//            the byte filter): indexOfBytes, the plain forward scan, memmem
#include <benchmark/benchmark.h>
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "first_call.h"
#include "tq/foundation/byte_search.h"
#include "tq/foundation/data_extensions.h"
#include "tq/foundation/hex_codec.h"
#include "tq/foundation/instruction_set.h"

namespace {

using tq::UInteger;

std::vector<uint8_t> randomBytes(std::size_t n, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::vector<uint8_t> v(n);
  for (std::size_t i = 0; i < n; i += 8) {
    uint64_t r = rng();
    std::memcpy(v.data() + i, &r, std::min<std::size_t>(8, n - i));
  }
  return v;
}

std::string sizeName(std::size_t n) {
  if (n >= (1u << 20)) return std::to_string(n >> 20) + "MiB";
  if (n >= 1024) return std::to_string(n >> 10) + "KiB";
  return std::to_string(n) + "B";
}

// --- encode ---------------------------------------------------------------------------------------

tq::String plainEncode(const tq::Data& d) {
  static const char alphabet[] = "0123456789abcdef";
  tq::MutableString out;
  out.reserve(2 * d.length());
  char16_t* o = out.mutableData();
  const uint8_t* b = d.bytes();
  for (UInteger i = 0; i < d.length(); ++i) {
    o[2 * i] = static_cast<char16_t>(alphabet[b[i] >> 4]);
    o[2 * i + 1] = static_cast<char16_t>(alphabet[b[i] & 0x0F]);
  }
  out.setLength(2 * d.length());
  return std::move(out).take();
}

// The per-byte loop into a buffer of the caller's, kept one byte at a time (the compiler is told
// not to vectorize it), since that is the baseline it stands for.
__attribute__((noinline, optimize("no-tree-vectorize"))) void plainEncodeInto(const uint8_t* in, std::size_t n,
                                                                              char16_t* out) {
  static const char alphabet[] = "0123456789abcdef";
  for (std::size_t i = 0; i < n; ++i) {
    out[2 * i] = static_cast<char16_t>(alphabet[in[i] >> 4]);
    out[2 * i + 1] = static_cast<char16_t>(alphabet[in[i] & 0x0F]);
  }
}

void registerEncode(std::size_t n) {
  auto data = std::make_shared<tq::Data>(tq::Data::withVector(randomBytes(n, 1)));
  const std::string s = sizeName(n);
  benchmark::RegisterBenchmark(("encode/" + s + "/tqkit").c_str(), [data](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(tq::hexadecimalRepresentation(*data));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
  benchmark::RegisterBenchmark(("encode/" + s + "/kernel").c_str(), [data](benchmark::State& st) {
    std::vector<char16_t> out(2 * data->length());
    for (auto _ : st) {
      tq::hexEncodeUTF16(data->bytes(), data->length(), out.data());
      benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
  for (tq::InstructionSet isa : tq::supportedInstructionSets()) {
    benchmark::RegisterBenchmark(("encode/" + s + "/kernel_" + tq::instructionSetName(isa)).c_str(),
                                 [data, isa](benchmark::State& st) {
                                   std::vector<char16_t> out(2 * data->length());
                                   for (auto _ : st) {
                                     tq::hexEncodeUTF16(data->bytes(), data->length(), out.data(), isa);
                                     benchmark::ClobberMemory();
                                   }
                                   st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
                                 });
  }
  benchmark::RegisterBenchmark(("encode/" + s + "/plain").c_str(), [data](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(plainEncode(*data));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
  benchmark::RegisterBenchmark(("encode/" + s + "/memcpy").c_str(), [data](benchmark::State& st) {
    std::vector<char16_t> src(2 * data->length(), u'0'), dst(2 * data->length());
    for (auto _ : st) {
      std::memcpy(dst.data(), src.data(), src.size() * sizeof(char16_t));
      benchmark::ClobberMemory();
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
}

// The first call of a fresh process: the result is new memory. fault_floor is what the new memory
// costs when it is faulted in as it is written, one trap per page: one byte written to each 4 KiB
// page of a new buffer of the result's size, on one thread. Asking the kernel for the pages ahead,
// from two threads, undercuts it.
void registerFirstCallEncode(std::size_t n) {
  // Each result is released after the clock stops: the call is what is timed, not the release.
  const std::string base = "encode/" + sizeName(n) + "/first_call/";
  tqbench::registerFirstCall(base + "fault_floor", [n] {
    std::unique_ptr<char[]> out;
    return tqbench::timeOnce([&] {
      out.reset(new char[4 * n]);
      for (std::size_t at = 0; at < 4 * n; at += 4096) out[at] = '0';
      benchmark::DoNotOptimize(out.get());
    });
  });
  tqbench::registerFirstCall(base + "tqkit", [n] {
    tq::Data data = tq::Data::withVector(randomBytes(n, 1));
    tq::String result;
    return tqbench::timeOnce([&] { benchmark::DoNotOptimize(result = tq::hexadecimalRepresentation(data)); });
  });
  tqbench::registerFirstCall(base + "plain", [n] {
    std::vector<uint8_t> data = randomBytes(n, 1);
    std::unique_ptr<char16_t[]> out;
    return tqbench::timeOnce([&] {
      out.reset(new char16_t[2 * n]);
      plainEncodeInto(data.data(), n, out.get());
      benchmark::DoNotOptimize(out.get());
    });
  });
}

// --- decode ---------------------------------------------------------------------------------------

// The parse as a plain per-character loop: scratch area, white space skipped, then a copy.
tq::Data plainDecode(const tq::String& text) {
  std::u16string_view u = text.view();
  std::unique_ptr<uint8_t[]> scratch(new uint8_t[u.size() / 2 + 1]);
  UInteger count = 0;
  bool pending = false;
  unsigned acc = 0;
  for (char16_t c : u) {
    unsigned v;
    if (c == ' ' || (c >= '\t' && c <= '\r')) continue;
    if (c >= '0' && c <= '9') v = c - '0';
    else if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    else {
      count = 0;
      break;
    }
    if (!pending) {
      acc = v << 4;
      pending = true;
    } else {
      scratch[count++] = static_cast<uint8_t>(acc | v);
      pending = false;
    }
  }
  if (count == 0 || pending) throw std::runtime_error("bad text");
  return tq::Data::withBytes(scratch.get(), count);
}

void registerDecode(std::size_t bytes, bool spaced) {
  std::vector<uint8_t> raw = randomBytes(bytes, 2);
  std::u16string text;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    text.push_back(static_cast<char16_t>(tq::HexDigitAlphabet[raw[i] >> 4]));
    text.push_back(static_cast<char16_t>(tq::HexDigitAlphabet[raw[i] & 15]));
    // Spaced: "de ad be ef" with a line break every 32 bytes, as hex dumps print.
    if (spaced) text.push_back(i % 32 == 31 ? u'\n' : u' ');
  }
  auto str = std::make_shared<tq::String>(std::u16string_view(text));
  const std::string name = std::string("decode/") + (spaced ? "spaced/" : "dense/") + sizeName(bytes);
  benchmark::RegisterBenchmark((name + "/tqkit").c_str(), [str](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(tq::dataWithHexadecimalRepresentation(*str));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * str->length()));
  });
  for (tq::InstructionSet isa : tq::supportedInstructionSets()) {
    benchmark::RegisterBenchmark((name + "/kernel_" + tq::instructionSetName(isa)).c_str(),
                                 [str, isa](benchmark::State& st) {
                                   std::vector<uint8_t> out(str->length() / 2 + 1);
                                   for (auto _ : st) {
                                     tq::HexDecodeState state;
                                     UInteger produced = 0;
                                     benchmark::DoNotOptimize(tq::hexDecodeUTF16(str->data(), str->length(), out.data(),
                                                                                 &produced, state, isa));
                                     benchmark::DoNotOptimize(produced);
                                   }
                                   st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * str->length()));
                                 });
  }
  benchmark::RegisterBenchmark((name + "/plain").c_str(), [str](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(plainDecode(*str));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * str->length()));
  });
}

// --- sha1 -----------------------------------------------------------------------------------------

void registerSha1(std::size_t n) {
  auto data = std::make_shared<tq::Data>(tq::Data::withVector(randomBytes(n, 3)));
  const std::string s = sizeName(n);
  benchmark::RegisterBenchmark(("sha1/" + s + "/tqkit").c_str(), [data](benchmark::State& st) {
    for (auto _ : st) benchmark::DoNotOptimize(tq::sha1(*data));
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
  benchmark::RegisterBenchmark(("sha1/" + s + "/SHA1").c_str(), [data](benchmark::State& st) {
    unsigned char md[SHA_DIGEST_LENGTH];
    for (auto _ : st) {
      SHA1(data->bytes(), data->length(), md);
      benchmark::DoNotOptimize(md);
    }
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * data->length()));
  });
}

// --- search ---------------------------------------------------------------------------------------

UInteger naiveSearch(const uint8_t* h, UInteger n, const uint8_t* p, UInteger m) {
  if (m == 0) return 0;
  if (m > n) return tq::NotFound;
  for (UInteger at = 0; at + m <= n; ++at) {
    UInteger j = 0;
    while (j < m && h[at + j] == p[j]) ++j;
    if (j == m) return at;
  }
  return tq::NotFound;
}

struct SearchCase {
  tq::Data hay;
  std::vector<uint8_t> pattern;
  UInteger expected;
};

enum class Text { Random, Adversarial, Periodic };

std::shared_ptr<SearchCase> makeSearchCase(std::size_t n, std::size_t m, Text kind) {
  auto c = std::make_shared<SearchCase>();
  std::vector<uint8_t> hay;
  if (kind == Text::Adversarial) {
    hay.assign(n, 'a');
    c->pattern.assign(m - 1, 'a');
    c->pattern.push_back('b');
    c->expected = tq::NotFound;
  } else if (kind == Text::Periodic) {
    // Every offset passes the first/last-byte filter and fails half way: the linear fallback's case.
    hay.assign(n, 'a');
    c->pattern.assign(m, 'a');
    c->pattern[m / 2] = 'b';
    c->expected = tq::NotFound;
  } else {
    hay = randomBytes(n, 4);
    c->pattern = randomBytes(m, 5 + static_cast<unsigned>(m));
    // The pattern occurs once, at the very end: every search scans the whole haystack.
    std::memcpy(hay.data() + n - m, c->pattern.data(), m);
    for (;;) {
      UInteger at = tq::findBytesTwoWay(hay.data(), n - 1, c->pattern.data(), m);
      if (at == tq::NotFound) break;
      hay[at] ^= 1;
    }
    c->expected = n - m;
  }
  c->hay = tq::Data::withVector(std::move(hay));
  return c;
}

void registerSearch(std::size_t m, Text kind) {
  const std::size_t n = 16u << 20;
  auto c = makeSearchCase(n, m, kind);
  const char* kindName = kind == Text::Random ? "random" : kind == Text::Adversarial ? "adversarial" : "periodic";
  const std::string name = std::string("search/") + kindName + "/m=" + std::to_string(m);
  auto check = [c](benchmark::State& st, UInteger got) {
    if (got != c->expected) st.SkipWithError("wrong answer");
  };
  benchmark::RegisterBenchmark((name + "/tqkit").c_str(), [c, check](benchmark::State& st) {
    UInteger got = 0;
    for (auto _ : st) benchmark::DoNotOptimize(got = tq::indexOfBytes(c->hay, c->pattern.data(), c->pattern.size()));
    check(st, got);
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->hay.length()));
  });
  for (tq::InstructionSet isa : tq::supportedInstructionSets()) {
    if (kind != Text::Random) break;
    benchmark::RegisterBenchmark((name + "/kernel_" + tq::instructionSetName(isa)).c_str(),
                                 [c, check, isa](benchmark::State& st) {
                                   UInteger got = 0;
                                   for (auto _ : st) {
                                     benchmark::DoNotOptimize(got = tq::findBytes(c->hay.bytes(), c->hay.length(),
                                                                                  c->pattern.data(), c->pattern.size(), isa));
                                   }
                                   check(st, got);
                                   st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->hay.length()));
                                 });
  }
  auto* naive = benchmark::RegisterBenchmark((name + "/naive").c_str(), [c, check](benchmark::State& st) {
    UInteger got = 0;
    for (auto _ : st) {
      benchmark::DoNotOptimize(got = naiveSearch(c->hay.bytes(), c->hay.length(), c->pattern.data(), c->pattern.size()));
    }
    check(st, got);
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->hay.length()));
  });
  if (kind != Text::Random && m >= 32) naive->Iterations(1);  // quadratic: seconds per search
  benchmark::RegisterBenchmark((name + "/memmem").c_str(), [c, check](benchmark::State& st) {
    UInteger got = 0;
    for (auto _ : st) {
      const void* r = ::memmem(c->hay.bytes(), c->hay.length(), c->pattern.data(), c->pattern.size());
      got = r ? static_cast<UInteger>(static_cast<const uint8_t*>(r) - c->hay.bytes()) : tq::NotFound;
      benchmark::DoNotOptimize(got);
    }
    check(st, got);
    st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * c->hay.length()));
  });
}

// --- ratios ---------------------------------------------------------------------------------------

// Console output as usual, plus each run's rate kept by name ("group/variant").
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& r : runs) {
      if (r.error_occurred) continue;
      auto it = r.counters.find("bytes_per_second");
      std::string name = r.benchmark_name();
      if (auto cut = name.find("/iterations:"); cut != std::string::npos) name.erase(cut);
      if (it != r.counters.end()) rates[name] = it->second.value;
    }
  }
  std::map<std::string, double> rates;
};

void printRatios(const std::map<std::string, double>& rates) {
  // Group by everything before the last '/', the variant being after it.
  std::map<std::string, std::map<std::string, double>> groups;
  std::vector<std::string> order;
  for (const auto& [name, rate] : rates) {
    auto slash = name.rfind('/');
    std::string group = name.substr(0, slash);
    if (!groups.count(group)) order.push_back(group);
    groups[group][name.substr(slash + 1)] = rate;
  }
  std::printf("\n%-34s %10s   %s\n", "group", "tqkit GB/s", "ratio of tqkit to each baseline");
  for (const auto& group : order) {
    const auto& v = groups[group];
    auto t = v.find("tqkit");
    if (t == v.end()) continue;
    std::printf("%-34s %10.2f  ", group.c_str(), t->second / 1e9);
    for (const auto& [variant, rate] : v) {
      if (variant != "tqkit" && rate > 0) std::printf("  %s %.2fx", variant.c_str(), t->second / rate);
    }
    std::printf("\n");
  }
}

}  // namespace

int main(int argc, char** argv) {
  // First: the fresh processes run while this one still holds little memory.
  registerFirstCallEncode(std::size_t{64} << 20);
  for (std::size_t n : {std::size_t{64}, std::size_t{4} << 10, std::size_t{1} << 20, std::size_t{64} << 20}) {
    registerEncode(n);
  }
  for (bool spaced : {false, true}) {
    registerDecode(std::size_t{4} << 10, spaced);
    registerDecode(std::size_t{1} << 20, spaced);
  }
  for (std::size_t n : {std::size_t{64}, std::size_t{4} << 10, std::size_t{1} << 20}) registerSha1(n);
  for (Text kind : {Text::Random, Text::Adversarial, Text::Periodic}) {
    for (std::size_t m : {2u, 8u, 32u, 256u}) {
      if (kind == Text::Periodic && m < 8) continue;
      registerSearch(m, kind);
    }
  }
  if (tqbench::runFirstCallIfAsked()) return 0;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  printRatios(reporter.rates);
  benchmark::Shutdown();
  return 0;
}
