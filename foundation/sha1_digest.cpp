#include "tq/foundation/sha1_digest.h"

// The direct interface of libcrypto's SHA-1: no algorithm fetch or context allocation per digest,
// which the one-shot call pays for on every small buffer.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

namespace tq {

struct Sha1Digest::State {
  SHA_CTX ctx;
};

static_assert(Sha1Digest::Length == SHA_DIGEST_LENGTH);

Sha1Digest::Sha1Digest() : state_(std::make_unique<State>()) { SHA1_Init(&state_->ctx); }

Sha1Digest::~Sha1Digest() = default;

void Sha1Digest::update(const void* bytes, UInteger length) noexcept {
  if (length) SHA1_Update(&state_->ctx, bytes, length);
}

std::array<uint8_t, Sha1Digest::Length> Sha1Digest::finish() noexcept {
  std::array<uint8_t, Length> digest;
  SHA1_Final(digest.data(), &state_->ctx);
  SHA1_Init(&state_->ctx);
  return digest;
}

}  // namespace tq
