// Instruction sets of the byte-buffer kernels (hexadecimal text, byte search).
//
// The kernels exist in several versions; the best one the running CPU supports is chosen once, at
// first use, from the CPU's feature flags, so one binary runs on every x86-64 machine (and under
// valgrind). Callers normally never name an instruction set: the explicit overloads that take one
// exist so that tests and benchmarks can run every version the CPU supports side by side.
#pragma once

#include <vector>

namespace tq {

enum class InstructionSet {
  Scalar,  // portable C++; every CPU
  SSSE3,   // x86-64 with SSSE3 (128-bit vectors with byte shuffles)
  AVX2,    // x86-64 with AVX2 (256-bit vectors)
  AVX512,  // x86-64 with AVX-512 F and BW (512-bit vectors); kernels without a version of their
           // own run their AVX2 version
};

// True when the running CPU can execute kernels built for `isa` (Scalar: always).
bool cpuSupports(InstructionSet isa) noexcept;
// The widest instruction set the kernels may use, from the environment variable TQ_ISA, read once
// per process: "plain" (or "scalar"), "ssse3", "avx2" or "avx512", in any case. Unset, empty or
// unrecognised: no limit. The limit lets one machine run each code path of a program as a CPU
// without the wider instructions would; it never enables what the CPU lacks.
InstructionSet instructionSetLimit() noexcept;
// The widest instruction set the running CPU supports within instructionSetLimit(); decided once
// per process. Every vectorized operation of the library (hexadecimal text, byte search and the
// string helpers) starts on the path this allows.
InstructionSet bestInstructionSet() noexcept;
// Every instruction set the running CPU supports, narrowest first (Scalar always included), whatever
// the limit: benchmarks and tests run each of them.
std::vector<InstructionSet> supportedInstructionSets();
// "scalar", "ssse3", "avx2" or "avx512".
const char* instructionSetName(InstructionSet isa) noexcept;

}  // namespace tq
