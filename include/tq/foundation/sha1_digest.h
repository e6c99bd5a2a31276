// Sha1Digest: the SHA-1 digest (FIPS 180-1) of bytes that arrive in pieces, for streams too large to
// hold in one buffer. sha1() of data_extensions.h is the one-call form for a whole Data.
//
// One object per stream; not shared between threads.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "tq/platform/base/range.h"

namespace tq {

class Sha1Digest {
 public:
  static constexpr UInteger Length = 20;

  Sha1Digest();
  ~Sha1Digest();
  Sha1Digest(const Sha1Digest&) = delete;
  Sha1Digest& operator=(const Sha1Digest&) = delete;

  // Adds the next `length` bytes of the stream (any length, any number of calls).
  void update(const void* bytes, UInteger length) noexcept;
  // The digest of everything added so far, as 20 raw bytes. The object then starts a new stream.
  std::array<uint8_t, Length> finish() noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tq
