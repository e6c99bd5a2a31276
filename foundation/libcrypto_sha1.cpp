#include "libcrypto_sha1.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include <openssl/opensslv.h>

// Weak: resolved when the process has these calls already, null otherwise (see the header).
#pragma weak SHA1_Init
#pragma weak SHA1_Update
#pragma weak SHA1_Final

namespace tq::detail {

namespace {

#define TQ_STRINGIFY2(x) #x
#define TQ_STRINGIFY(x) TQ_STRINGIFY2(x)
// The library these headers belong to, by its run-time name.
#ifdef OPENSSL_SHLIB_VERSION
constexpr const char* kLibcrypto = "libcrypto.so." TQ_STRINGIFY(OPENSSL_SHLIB_VERSION);
#else
constexpr const char* kLibcrypto = "libcrypto.so." SHLIB_VERSION_NUMBER;
#endif

[[noreturn]] void cannotLoad(const char* what) {
  std::fprintf(stderr, "tqkit: cannot load %s for SHA-1 digests: %s\n", kLibcrypto, what ? what : "unknown error");
  std::abort();
}

LibcryptoSha1 load() {
  if (&SHA1_Init && &SHA1_Update && &SHA1_Final) return {&SHA1_Init, &SHA1_Update, &SHA1_Final};
  // RTLD_NODELETE: the calls stay valid for the life of the process whoever else opens and closes it.
  void* crypto = ::dlopen(kLibcrypto, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (!crypto) cannotLoad(::dlerror());
  LibcryptoSha1 calls{};
  calls.init = reinterpret_cast<decltype(calls.init)>(::dlsym(crypto, "SHA1_Init"));
  calls.update = reinterpret_cast<decltype(calls.update)>(::dlsym(crypto, "SHA1_Update"));
  calls.final = reinterpret_cast<decltype(calls.final)>(::dlsym(crypto, "SHA1_Final"));
  if (!calls.init || !calls.update || !calls.final) cannotLoad(::dlerror());
  return calls;
}

}  // namespace

const LibcryptoSha1& libcryptoSha1() noexcept {
  static const LibcryptoSha1 calls = load();
  return calls;
}

}  // namespace tq::detail
