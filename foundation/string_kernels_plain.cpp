// The portable code path, one code unit at a time, and the choice of path at run time.
#include <atomic>

#include "string_kernels.h"
#include "tq/platform/base/exception.h"

namespace tq::detail {

SetMatcher::SetMatcher(const CharacterSet& set) : bitmap(set.bitmap().data()), low512{}, asciiByLowNibble{} {
  for (unsigned c = 0; c < 512; ++c) {
    if (isMember(static_cast<char16_t>(c))) low512[c >> 4] |= static_cast<uint16_t>(1u << (c & 15));
  }
  for (unsigned c = 0; c < 128; ++c) {
    if (isMember(static_cast<char16_t>(c))) asciiByLowNibble[c & 15] |= static_cast<uint8_t>(1u << (c >> 4));
  }
  anyFrom128 = anyFrom512 = false;
  for (unsigned w = 2; w < 1024; ++w) {
    if (bitmap[w]) {
      anyFrom128 = true;
      if (w >= 8) anyFrom512 = true;
    }
  }
}

namespace {

std::size_t plainFindLineBreak(const char16_t* in, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (in[i] == u'\n' || in[i] == u'\r') return i;
  }
  return n;
}

void plainReplaceLineBreaks(const char16_t* in, std::size_t n, char16_t* out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = (in[i] == u'\n' || in[i] == u'\r') ? u' ' : in[i];
}

std::size_t plainReduceWhitespace(const char16_t* in, std::size_t n, char16_t* out) {
  std::size_t k = 0;
  bool inRun = false;
  for (std::size_t i = 0; i < n; ++i) {
    if (isWhitespaceUnit(in[i])) {
      if (!inRun) out[k++] = u' ';
      inRun = true;
    } else {
      out[k++] = in[i];
      inRun = false;
    }
  }
  return k;
}

std::size_t plainFirstNonWhitespace(const char16_t* in, std::size_t n) {
  std::size_t i = 0;
  while (i < n && isWhitespaceUnit(in[i])) ++i;
  return i;
}

std::size_t plainEndOfNonWhitespace(const char16_t* in, std::size_t n) {
  while (n > 0 && isWhitespaceUnit(in[n - 1])) --n;
  return n;
}

std::size_t plainFindMember(const char16_t* in, std::size_t n, const SetMatcher& set) {
  for (std::size_t i = 0; i < n; ++i) {
    if (set.isMember(in[i])) return i;
  }
  return n;
}

bool cpuHasAVX2() { return __builtin_cpu_supports("avx2"); }
bool cpuHasAVX512() {
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi2");
}

const StringKernels* best() {
  __builtin_cpu_init();
  if (cpuHasAVX512()) return &kAVX512Kernels;
  if (cpuHasAVX2()) return &kAVX2Kernels;
  return &kPlainKernels;
}

std::atomic<const StringKernels*>& current() {
  static std::atomic<const StringKernels*> table{best()};
  return table;
}

}  // namespace

const StringKernels kPlainKernels = {StringCodePath::Plain,     plainFindLineBreak,      plainReplaceLineBreaks,
                                     plainReduceWhitespace,     plainFirstNonWhitespace, plainEndOfNonWhitespace,
                                     plainFindMember};

const StringKernels& stringKernels() { return *current().load(std::memory_order_relaxed); }

}  // namespace tq::detail

namespace tq {

std::vector<StringCodePath> availableStringCodePaths() {
  __builtin_cpu_init();
  std::vector<StringCodePath> paths{StringCodePath::Plain};
  if (detail::cpuHasAVX2()) paths.push_back(StringCodePath::AVX2);
  if (detail::cpuHasAVX512()) paths.push_back(StringCodePath::AVX512);
  return paths;
}

StringCodePath currentStringCodePath() { return detail::stringKernels().path; }

void setStringCodePath(StringCodePath path) {
  const detail::StringKernels* table = &detail::kPlainKernels;
  bool ok = true;
  if (path == StringCodePath::AVX2) {
    table = &detail::kAVX2Kernels;
    ok = detail::cpuHasAVX2();
  } else if (path == StringCodePath::AVX512) {
    table = &detail::kAVX512Kernels;
    ok = detail::cpuHasAVX512();
  }
  if (!ok) {
    Exception::raise(NSInvalidArgumentException,
                     String::fromUTF8(std::string("setStringCodePath: this CPU cannot run the ") +
                                      stringCodePathName(path) + " path"));
  }
  detail::current().store(table, std::memory_order_relaxed);
}

const char* stringCodePathName(StringCodePath path) {
  switch (path) {
    case StringCodePath::Plain: return "plain";
    case StringCodePath::AVX2: return "AVX2";
    case StringCodePath::AVX512: return "AVX-512";
  }
  return "?";
}

}  // namespace tq
