// Arena chunks: taken with malloc, at most 64 KiB each (below the C library's threshold for mapping
// pages of their own, so that a freed arena's chunks serve the next one), larger only for a block
// that needs more.
#include "tq/platform/base/arena.h"

#include <algorithm>
#include <cstdlib>

namespace tq::detail {

namespace {

constexpr std::size_t kLargestChunk = std::size_t{64} << 10;
constexpr std::size_t kSmallestChunk = std::size_t{1} << 10;

}  // namespace

ArenaState* ArenaState::create(std::size_t firstChunk) {
  auto* state = new ArenaState;
  state->nextChunk_ = std::clamp(firstChunk, kSmallestChunk, kLargestChunk);
  return state;
}

void* ArenaState::allocateInNewChunk(std::size_t bytes, std::size_t alignment) {
  if (bytes > SIZE_MAX / 2 - sizeof(Chunk) - alignment) throw std::bad_alloc();
  const std::size_t needed = sizeof(Chunk) + alignment + bytes;
  const std::size_t size = std::max(nextChunk_, needed);
  auto* chunk = static_cast<Chunk*>(std::malloc(size));
  if (!chunk) throw std::bad_alloc();
  chunk->next = chunks_;
  chunk->size = size;
  chunks_ = chunk;
  reserved_ += size;
  nextChunk_ = std::min(kLargestChunk, nextChunk_ * 2);
  char* start = reinterpret_cast<char*>(chunk + 1);
  char* end = reinterpret_cast<char*>(chunk) + size;
  // A block larger than the usual chunk gets a chunk of its own; the current chunk stays open.
  if (size > kLargestChunk && cursor_ && limit_ - cursor_ > 256) {
    const auto at = (reinterpret_cast<std::uintptr_t>(start) + alignment - 1) & ~(std::uintptr_t{alignment} - 1);
    return reinterpret_cast<void*>(at);
  }
  cursor_ = start;
  limit_ = end;
  void* block = allocate(bytes, alignment);
  return block;
}

void ArenaState::destroy() noexcept {
  for (Chunk* c = chunks_; c;) {
    Chunk* next = c->next;
    std::free(c);
    c = next;
  }
  delete this;
}

}  // namespace tq::detail
