#include "tq/foundation/instruction_set.h"

namespace tq {

bool cpuSupports(InstructionSet isa) noexcept {
  switch (isa) {
    case InstructionSet::Scalar:
      return true;
#if defined(__x86_64__)
    case InstructionSet::SSSE3:
      return __builtin_cpu_supports("ssse3");
    case InstructionSet::AVX2:
      return __builtin_cpu_supports("avx2");
    case InstructionSet::AVX512:
      // Also false where the OS does not save the 512-bit state (and under valgrind).
      return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
#else
    default:
      return false;
#endif
  }
  return false;
}

InstructionSet bestInstructionSet() noexcept {
  static const InstructionSet best = [] {
    if (cpuSupports(InstructionSet::AVX512)) return InstructionSet::AVX512;
    if (cpuSupports(InstructionSet::AVX2)) return InstructionSet::AVX2;
    if (cpuSupports(InstructionSet::SSSE3)) return InstructionSet::SSSE3;
    return InstructionSet::Scalar;
  }();
  return best;
}

std::vector<InstructionSet> supportedInstructionSets() {
  std::vector<InstructionSet> out;
  for (auto isa : {InstructionSet::Scalar, InstructionSet::SSSE3, InstructionSet::AVX2, InstructionSet::AVX512}) {
    if (cpuSupports(isa)) out.push_back(isa);
  }
  return out;
}

const char* instructionSetName(InstructionSet isa) noexcept {
  switch (isa) {
    case InstructionSet::Scalar: return "scalar";
    case InstructionSet::SSSE3: return "ssse3";
    case InstructionSet::AVX2: return "avx2";
    case InstructionSet::AVX512: return "avx512";
  }
  return "?";
}

}  // namespace tq
