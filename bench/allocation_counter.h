// Counts every allocation of the benchmark program that includes this header: C++ allocations
// through operator new, and every heap block any library takes (GLib, Cairo, Pango, pugixml,
// libplist, tqkit) through the C allocator, which is replaced here by counting forwarders to the
// C library's own. Include it in exactly one file of a program.
#pragma once

#include <cerrno>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <vector>

namespace tqbench {

// Blocks taken from the C allocator (malloc, calloc, realloc, the aligned forms), by anyone.
inline std::atomic<long long> heapBlocks{0};
// Calls of operator new (each also takes a heap block).
inline std::atomic<long long> newCalls{0};
// While not null, the size of every block asked for is appended, up to the vector's capacity:
// reserve it before pointing here, so that recording never allocates.
inline std::vector<std::size_t>* recordedSizes = nullptr;

// Counts without a locked instruction: an atomic add on every allocation would charge the programs
// that allocate most (tqkit's readers, beside parsers that take a few large blocks) for the counting
// itself. Two threads allocating at the same instant may lose a count; the figures are per call on
// the benchmark's own thread, where that does not happen.
inline void bump(std::atomic<long long>& counter) noexcept {
  counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

inline void countBlock(std::size_t size) noexcept {
  bump(heapBlocks);
  if (recordedSizes && recordedSizes->size() < recordedSizes->capacity()) recordedSizes->push_back(size);
}

}  // namespace tqbench

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
  tqbench::countBlock(size);
  return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) {
  tqbench::countBlock(n * size);
  return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t size) {
  tqbench::countBlock(size);
  return __libc_realloc(p, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  tqbench::countBlock(size);
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  void* p = memalign(alignment, size);
  if (!p) return ENOMEM;
  *out = p;
  return 0;
}
void free(void* p) { __libc_free(p); }
}

// Kept out of line, so the compiler does not pair an inlined allocation and release away.
[[gnu::noinline]] void* operator new(std::size_t size) {
  tqbench::bump(tqbench::newCalls);
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
