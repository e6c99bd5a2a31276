// Block-wise file input and output for the byte commands (hex, unhex, sha1, find): constant memory
// whatever the file size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <cstdio>
#include <string>

namespace tq::cli {

// The block size the byte commands read and write in: what a pipe holds, and small enough that the
// buffers stay in the cache and a short input touches few new pages.
inline constexpr std::size_t kStreamBlock = std::size_t{64} << 10;

// A file opened for reading ("-" is standard input). Errors throw Failure naming the file.
class InputStream {
 public:
  explicit InputStream(const std::string& path);
  ~InputStream();
  InputStream(const InputStream&) = delete;
  InputStream& operator=(const InputStream&) = delete;

  // Fills buf with up to `size` bytes (fewer only at the end of the input); 0 at the end.
  std::size_t read(void* buf, std::size_t size);
  // Back to the first byte; false when the input cannot seek (a pipe, a terminal).
  bool rewind();
  // The size of the input when it is a regular file, as it is now.
  std::optional<uint64_t> regularFileSize() const;
  const std::string& name() const { return name_; }

 private:
  int fd_ = -1;
  bool owned_ = false;
  std::string name_;
};

// Writes all of buf to the stream; throws Failure on a write error.
void writeAll(std::FILE* out, const void* buf, std::size_t size);

}  // namespace tq::cli
