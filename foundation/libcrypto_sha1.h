// libcrypto's SHA-1 calls (its direct interface: SHA1_Init, SHA1_Update, SHA1_Final). This library
// does not link libcrypto: mapping and relocating it costs a process about as much as the rest of
// its start, so only processes that digest should pay for it. When the process has the calls
// already (a program linked to libcrypto, or with OpenSSL's SHA-1 linked in, as the tqkit tool
// has), those are used; otherwise libcrypto is opened at the first digest.
#pragma once

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/sha.h>

namespace tq::detail {

struct LibcryptoSha1 {
  decltype(&SHA1_Init) init;
  decltype(&SHA1_Update) update;
  decltype(&SHA1_Final) final;
};

// The calls, loaded by the first caller (thread-safe). Without libcrypto no digest can be right:
// the process then stops with a message naming the library, as it would have at its start had the
// library been linked.
const LibcryptoSha1& libcryptoSha1() noexcept;

}  // namespace tq::detail
