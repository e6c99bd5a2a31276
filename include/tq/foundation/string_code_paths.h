// The code paths behind the bulk string operations (whitespace reduction and trimming, line-break
// removal, substitution). The best path the CPU offers is chosen once, at first use, within the
// limit of the TQ_ISA environment variable (see instructionSetLimit(): "plain" keeps the plain
// path, "avx2" stops at AVX2); every path gives the same results. Tests and benchmarks may pin a
// path to compare them.
#pragma once

#include <vector>

namespace tq {

enum class StringCodePath {
  Plain,   // one code unit at a time; runs everywhere
  AVX2,    // 16 code units at a time
  AVX512,  // 32 code units at a time (AVX-512 BW and VBMI2)
};

// The paths this CPU can run, Plain first and the best last.
std::vector<StringCodePath> availableStringCodePaths();
// The path in use.
StringCodePath currentStringCodePath();
// Pins `path` (raises NSInvalidArgumentException when the CPU cannot run it). Meant for tests and
// benchmarks: switch only while no other thread is inside a string operation.
void setStringCodePath(StringCodePath path);
const char* stringCodePathName(StringCodePath path);

}  // namespace tq
