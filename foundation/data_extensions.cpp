#include "tq/foundation/data_extensions.h"

#include <sched.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <optional>
#include <system_error>
#include <thread>

#include "tq/foundation/byte_search.h"
#include "tq/foundation/hex_codec.h"
#include "tq/platform/base/exception.h"
#include "libcrypto_sha1.h"

namespace tq {

namespace {

constexpr UInteger kParallelEncodeBytes = UInteger{16} << 20;
constexpr UInteger kByteCountLimit = UInteger{1} << 32;

// Byte counts are 32-bit in this interface; larger inputs are refused rather than truncated.
void checkByteCount(const char* function, UInteger count) {
  if (count >= kByteCountLimit) {
    Exception::raise(NSInvalidArgumentException,
                     String::fromUTF8(std::string(function) + ": " + std::to_string(count) +
                                      " bytes exceeds the 4 GiB limit"));
  }
}

// Faults in the whole pages inside [area, area + bytes) for writing, in one system call.
void populateForWriting(void* area, UInteger bytes) noexcept {
#ifndef MADV_POPULATE_WRITE
  constexpr int MADV_POPULATE_WRITE = 23;  // Linux 5.14; older kernels refuse it, which is harmless
#endif
  constexpr uintptr_t kPage = 4096;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(area) + kPage - 1) & ~(kPage - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(area) + bytes) & ~(kPage - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
}

// True when the page holding `p` is already in memory: a reused buffer, whose pages need no
// faulting in. Ask about the last page of a buffer: the allocator writes its own header on the
// first page of even a brand-new mapping.
bool pageResident(const void* p) noexcept {
  constexpr uintptr_t kPage = 4096;
  unsigned char resident = 0;
  void* page = reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(p) & ~(kPage - 1));
  return ::mincore(page, 1, &resident) == 0 && (resident & 1);
}

// How many CPUs this process may run on.
int usableCPUs() noexcept {
  cpu_set_t set;
  CPU_ZERO(&set);
  return ::sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : 1;
}

[[noreturn]] void raiseParseFailure() {
  Exception::raise(NSInvalidArgumentException, HexadecimalParseFailureReason);
}

}  // namespace

String hexadecimalRepresentation(const Data& data) {
  if (data.isNil()) return {};
  const UInteger n = data.length();
  checkByteCount("hexadecimalRepresentation", n);
  if (n == 0) return String::empty();
  MutableString out;
  out.reserve(2 * n);
  // A new result of many megabytes costs more in page faults than the encoding itself. Each step
  // asks the kernel to fault in the next megabyte at once (cheaper than a trap per 4 KiB page;
  // advice only, ignored where unsupported), then fills it while it is still in cache. Smaller
  // results, and reused buffers, are mostly in memory already: no system calls for them.
  char16_t* o = out.mutableData();
  constexpr UInteger kStep = UInteger{256} << 10;  // input bytes: 1 MiB of result
  const bool populate = n >= 8 * kStep && !pageResident(o + 2 * n - 1);
  auto encodeRange = [&](UInteger from, UInteger to) {
    for (UInteger at = from; at < to; at += kStep) {
      const UInteger len = std::min(kStep, to - at);
      if (populate) populateForWriting(o + 2 * at, 2 * len * sizeof(char16_t));
      hexEncodeUTF16(data.bytes() + at, len, o + 2 * at);
    }
  };
  // A new result of tens of megabytes: the second half is faulted in and filled by a second
  // thread while this one does the first, when the process may run on more than one CPU. The
  // kernel hands out pages to both at once; the encoding itself is a small part of the time.
  if (populate && n >= kParallelEncodeBytes && usableCPUs() > 1) {
    const UInteger half = (n / 2) / kStep * kStep;
    std::optional<std::thread> second;
    try {
      second.emplace([&] { encodeRange(half, n); });
    } catch (const std::system_error&) {
      // No thread to be had: this one does both halves.
    }
    encodeRange(0, half);
    if (second) {
      second->join();
    } else {
      encodeRange(half, n);
    }
  } else {
    encodeRange(0, n);
  }
  out.setLength(2 * n);
  return std::move(out).take();
}

Data initWithHexadecimalRepresentation(const String& text) {
  const std::u16string_view units = text.view();
  checkByteCount("initWithHexadecimalRepresentation", units.size());
  // Starting with no half byte pending, n characters make at most n / 2 bytes. Dense text (no white
  // space) fills exactly that, so its buffer is decoded in place and kept; otherwise the bytes
  // produced are copied into a buffer of their own size.
  const UInteger capacity = units.size() / 2;
  UInteger produced = 0;
  bool ok = false;
  HexDecodeState state;
  Data full = Data::withUninitializedLength(capacity, [&](uint8_t* out) {
    ok = hexDecodeUTF16(units.data(), units.size(), out, &produced, state);
  });
  if (!ok || produced == 0 || state.pending) raiseParseFailure();
  if (produced == capacity) return full;
  return Data::withBytes(full.bytes(), produced);
}

Data dataWithHexadecimalRepresentation(const String& text) { return initWithHexadecimalRepresentation(text); }

Data sha1(const Data& data) {
  if (data.isNil()) return {};
  checkByteCount("sha1", data.length());
  // libcrypto's direct interface with the context on the stack: no algorithm fetch and no
  // allocation besides the result, which the one-shot SHA1() pays for on every call.
  return Data::withUninitializedLength(SHA_DIGEST_LENGTH, [&](uint8_t* digest) {
    const detail::LibcryptoSha1& calls = detail::libcryptoSha1();
    SHA_CTX ctx;
    calls.init(&ctx);
    calls.update(&ctx, data.bytes(), data.length());
    calls.final(digest, &ctx);
  });
}

UInteger indexOfBytes(const Data& data, const void* bytes, UInteger length) {
  if (data.isNil()) return 0;
  checkByteCount("indexOfBytes:length:", data.length());
  checkByteCount("indexOfBytes:length:", length);
  return findBytes(data.bytes(), data.length(), bytes, length);
}

Range rangeOfData(const Data& data, const Data& other) {
  if (data.isNil()) return {0, 0};
  UInteger at = indexOfBytes(data, other.bytes(), other.length());
  if (at == NotFound) return Range::notFound();
  return {at, other.length()};
}

}  // namespace tq
