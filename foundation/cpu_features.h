// What the running CPU offers, with the kernel saving its registers, as the C library found it when
// the process started. Asking costs no CPUID instruction (which a virtual machine traps) and needs no
// start-up code: the compiler's own detection (__builtin_cpu_supports) brings a constructor that
// runs a dozen CPUIDs in every program linking this code, whether it asks or not.
#pragma once

#if defined(__x86_64__)
#if defined(__clang__)
// The C library's header spells its result type _Bool, which clang's C++ does not take.
#define _Bool bool
#include <sys/platform/x86.h>
#undef _Bool
#else
#include <sys/platform/x86.h>
#endif
#endif

namespace tq::detail {

#if defined(__x86_64__)
inline bool cpuHasSSSE3() noexcept { return CPU_FEATURE_ACTIVE(SSSE3); }
inline bool cpuHasAVX2() noexcept { return CPU_FEATURE_ACTIVE(AVX2); }
// What the byte kernels' 512-bit paths use.
inline bool cpuHasAVX512BW() noexcept { return CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512BW); }
// What the string kernels' 512-bit paths use.
inline bool cpuHasAVX512VBMI2() noexcept {
  return cpuHasAVX512BW() && CPU_FEATURE_ACTIVE(AVX512VL) && CPU_FEATURE_ACTIVE(AVX512_VBMI) &&
         CPU_FEATURE_ACTIVE(AVX512_VBMI2);
}
#else
inline bool cpuHasSSSE3() noexcept { return false; }
inline bool cpuHasAVX2() noexcept { return false; }
inline bool cpuHasAVX512BW() noexcept { return false; }
inline bool cpuHasAVX512VBMI2() noexcept { return false; }
#endif

}  // namespace tq::detail
