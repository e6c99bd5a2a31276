#include "tq/foundation/instruction_set.h"

#include <cstdlib>
#include <string>

#include "cpu_features.h"

namespace tq {

bool cpuSupports(InstructionSet isa) noexcept {
  switch (isa) {
    case InstructionSet::Scalar:
      return true;
    case InstructionSet::SSSE3:
      return detail::cpuHasSSSE3();
    case InstructionSet::AVX2:
      return detail::cpuHasAVX2();
    case InstructionSet::AVX512:
      // Also false where the OS does not save the 512-bit state (and under valgrind).
      return detail::cpuHasAVX512BW();
  }
  return false;
}

InstructionSet instructionSetLimit() noexcept {
  static const InstructionSet limit = [] {
    const char* env = std::getenv("TQ_ISA");
    std::string name = env ? env : "";
    for (char& c : name) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    if (name == "plain" || name == "scalar") return InstructionSet::Scalar;
    if (name == "ssse3") return InstructionSet::SSSE3;
    if (name == "avx2") return InstructionSet::AVX2;
    return InstructionSet::AVX512;
  }();
  return limit;
}

InstructionSet bestInstructionSet() noexcept {
  static const InstructionSet best = [] {
    const InstructionSet limit = instructionSetLimit();
    for (auto isa : {InstructionSet::AVX512, InstructionSet::AVX2, InstructionSet::SSSE3}) {
      if (isa <= limit && cpuSupports(isa)) return isa;
    }
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
