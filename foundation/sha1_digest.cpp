#include "tq/foundation/sha1_digest.h"

// The direct interface of libcrypto's SHA-1: no algorithm fetch or context allocation per digest,
// which the one-shot call pays for on every small buffer.
#include "libcrypto_sha1.h"

namespace tq {

struct Sha1Digest::State {
  const detail::LibcryptoSha1& sha1 = detail::libcryptoSha1();
  SHA_CTX ctx;
};

static_assert(Sha1Digest::Length == SHA_DIGEST_LENGTH);

Sha1Digest::Sha1Digest() : state_(std::make_unique<State>()) { state_->sha1.init(&state_->ctx); }

Sha1Digest::~Sha1Digest() = default;

void Sha1Digest::update(const void* bytes, UInteger length) noexcept {
  if (length) state_->sha1.update(&state_->ctx, bytes, length);
}

std::array<uint8_t, Sha1Digest::Length> Sha1Digest::finish() noexcept {
  std::array<uint8_t, Length> digest;
  state_->sha1.final(digest.data(), &state_->ctx);
  state_->sha1.init(&state_->ctx);
  return digest;
}

}  // namespace tq
