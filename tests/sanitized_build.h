// Whether this test program is built with AddressSanitizer, which slows every run and pads every
// allocation: timings and memory peaks then say nothing about the code under test.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define TQ_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TQ_UNDER_ASAN 1
#endif
#endif

namespace tq::test {
#ifdef TQ_UNDER_ASAN
inline constexpr bool kSanitizedBuild = true;
#else
inline constexpr bool kSanitizedBuild = false;
#endif
}  // namespace tq::test
