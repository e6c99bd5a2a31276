// Byte search: the engine under indexOfBytes() and rangeOfData(), usable on raw memory.
//
// findBytes() answers the first (lowest) offset at which the pattern occurs, exactly as a plain
// forward scan would, in time linear in haystack plus pattern whatever the bytes are. It filters
// candidate offsets with vectors (first and last pattern byte at once) and verifies the few
// candidates; when candidates keep failing late (periodic text such as a^n against a^k b a^k), it
// switches to the Two-Way algorithm, which needs constant memory and compares each haystack byte a
// bounded number of times.
//
// Thread-safe (no shared state). Without an InstructionSet the best kernel for the running CPU is
// used; the explicit overload runs a chosen one (the CPU must support it, see cpuSupports()).
#pragma once

#include <cstdint>

#include "tq/foundation/instruction_set.h"
#include "tq/platform/base/range.h"

namespace tq {

// The first offset of `pattern` (patternLength bytes) in `haystack` (length bytes), or NotFound.
// An empty pattern is found at 0 (also in an empty haystack); a pattern longer than the haystack
// is never found. Pointers may be null when their length is 0.
UInteger findBytes(const void* haystack, UInteger length, const void* pattern, UInteger patternLength) noexcept;
UInteger findBytes(const void* haystack, UInteger length, const void* pattern, UInteger patternLength,
                   InstructionSet isa) noexcept;

// The Two-Way search alone (the linear fallback), with the same contract as findBytes().
UInteger findBytesTwoWay(const void* haystack, UInteger length, const void* pattern,
                         UInteger patternLength) noexcept;

}  // namespace tq
