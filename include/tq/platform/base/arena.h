// Arena: memory for many small blocks that are made together and given up together, such as the
// objects and strings of one interface read from a file.
//
// Blocks are taken in order from large chunks and never given back one by one. Everything made in
// an arena holds it: a shared_ptr from make() (through the allocator kept in its control block), a
// String from String::fromUTF8(text, arena), a hold taken by copying an Arena handle. The chunks are
// freed when the last of these goes, whichever it is and on whichever thread; until then, every
// block of the arena stays allocated, also those whose objects have already been destroyed. An
// arena suits objects that live and die as a group; an object kept alone keeps the whole arena's
// memory (not the other objects: their destructors run as usual when their last owner lets go).
//
//   tq::Arena arena;                                         // a new arena, held by this handle
//   std::shared_ptr<tq::View> view = arena.make<tq::View>();
//   tq::String title = tq::String::fromUTF8("OK", arena);
//   // dropping `arena`, `view` and `title`, in any order, frees the arena's memory
//
// Threads: blocks are taken (make, allocate, strings) by one thread at a time; holds may be copied
// and dropped on any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define TQ_ARENA_KNOWS_SINGLE_THREADED 1
#endif

namespace tq {

namespace detail {

// The arena itself: its count of holds and its chunks. Handles, allocators and string blocks point
// here.
class ArenaState {
 public:
  static ArenaState* create(std::size_t firstChunk);

  // Inlined at every hold taken or dropped (each object and text made in an arena takes a few): a
  // call, through the library's symbol table, would cost more than the count itself.
  [[gnu::always_inline]] void retain() noexcept {
    if (singleThreaded()) {
      refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      refs_.fetch_add(1, std::memory_order_relaxed);
    }
  }
  [[gnu::always_inline]] void release() noexcept {
    // A count of one is the caller's own hold: nobody else can add to it.
    const std::size_t n = refs_.load(std::memory_order_acquire);
    if (n == 1) {
      destroy();
    } else if (singleThreaded()) {
      refs_.store(n - 1, std::memory_order_relaxed);
    } else if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      destroy();
    }
  }

  void* allocate(std::size_t bytes, std::size_t alignment) {
    const auto at = (reinterpret_cast<std::uintptr_t>(cursor_) + alignment - 1) & ~(std::uintptr_t{alignment} - 1);
    if (at + bytes <= reinterpret_cast<std::uintptr_t>(limit_) && at >= reinterpret_cast<std::uintptr_t>(cursor_)) {
      cursor_ = reinterpret_cast<char*>(at + bytes);
      return reinterpret_cast<void*>(at);
    }
    return allocateInNewChunk(bytes, alignment);
  }
  // Gives back the end of the block allocated last: it was `from` bytes and needs only `to`.
  void shrinkLast(void* block, std::size_t from, std::size_t to) noexcept {
    if (static_cast<char*>(block) + from == cursor_ && to <= from) cursor_ = static_cast<char*>(block) + to;
  }
  std::size_t bytesReserved() const noexcept { return reserved_; }
  std::size_t holds() const noexcept { return refs_.load(std::memory_order_relaxed); }

 private:
  struct Chunk {
    Chunk* next;
    std::size_t size;
  };
  ArenaState() = default;
  static bool singleThreaded() noexcept {
#ifdef TQ_ARENA_KNOWS_SINGLE_THREADED
    return __libc_single_threaded;
#else
    return false;
#endif
  }
  void* allocateInNewChunk(std::size_t bytes, std::size_t alignment);
  void destroy() noexcept;

  std::atomic<std::size_t> refs_{1};
  char* cursor_ = nullptr;
  char* limit_ = nullptr;
  Chunk* chunks_ = nullptr;
  std::size_t nextChunk_ = 0;
  std::size_t reserved_ = 0;
};

// An allocator taking its blocks from an arena (deallocation gives nothing back); each copy holds
// the arena. std::allocate_shared keeps one copy in the control block, so an object made with it
// holds its arena until its last shared or weak owner is gone.
template <class T>
class ArenaAllocator {
 public:
  using value_type = T;
  explicit ArenaAllocator(ArenaState* state) noexcept : state_(state) { state_->retain(); }
  ArenaAllocator(const ArenaAllocator& other) noexcept : state_(other.state_) { state_->retain(); }
  template <class U>
  ArenaAllocator(const ArenaAllocator<U>& other) noexcept : state_(other.state()) {  // NOLINT: rebinding
    state_->retain();
  }
  ArenaAllocator& operator=(const ArenaAllocator& other) noexcept {
    other.state_->retain();
    state_->release();
    state_ = other.state_;
    return *this;
  }
  ~ArenaAllocator() { state_->release(); }

  T* allocate(std::size_t n) {
    if (n > SIZE_MAX / sizeof(T)) throw std::bad_alloc();
    return static_cast<T*>(state_->allocate(n * sizeof(T), alignof(T)));
  }
  void deallocate(T*, std::size_t) noexcept {}
  ArenaState* state() const noexcept { return state_; }

  template <class U>
  friend bool operator==(const ArenaAllocator& a, const ArenaAllocator<U>& b) noexcept {
    return a.state_ == b.state();
  }

 private:
  ArenaState* state_;
};

}  // namespace detail

class Arena {
 public:
  // A new, empty arena. Its first chunk takes `firstChunk` bytes (later chunks grow, up to 64 KiB
  // each, or the size of a larger block): a caller who knows roughly how much it will make (an
  // interface reader, from the document's size) avoids a run of small chunks.
  Arena() : Arena(std::size_t{4} << 10) {}
  explicit Arena(std::size_t firstChunk) : state_(detail::ArenaState::create(firstChunk)) {}
  // Another hold on the same arena.
  Arena(const Arena& other) noexcept : state_(other.state_) { state_->retain(); }
  Arena& operator=(const Arena& other) noexcept {
    other.state_->retain();
    state_->release();
    state_ = other.state_;
    return *this;
  }
  ~Arena() { state_->release(); }

  // An object of type T made in the arena, owned by the shared_ptr returned (which holds the arena).
  template <class T, class... Args>
  std::shared_ptr<T> make(Args&&... args) {
    return std::allocate_shared<T>(detail::ArenaAllocator<T>(state_), std::forward<Args>(args)...);
  }
  // `bytes` of raw memory aligned to `alignment` (a power of two), valid while the arena is held;
  // std::bad_alloc when the system has no memory left.
  void* allocate(std::size_t bytes, std::size_t alignment = alignof(std::max_align_t)) {
    return state_->allocate(bytes ? bytes : 1, alignment);
  }
  // The bytes of the chunks taken so far (what the arena costs, blocks and room left).
  std::size_t bytesReserved() const noexcept { return state_->bytesReserved(); }
  // The holds on the arena: handles, objects made in it, strings kept in it.
  std::size_t holds() const noexcept { return state_->holds(); }
  // Two handles of the same arena.
  friend bool operator==(const Arena& a, const Arena& b) noexcept { return a.state_ == b.state_; }

  detail::ArenaState* state() const noexcept { return state_; }

 private:
  detail::ArenaState* state_;
};

}  // namespace tq
