#include "byte_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cli.h"

namespace tq::cli {

InputStream::InputStream(const std::string& path) : name_(path) {
  if (path == "-") {
    fd_ = STDIN_FILENO;
    return;
  }
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) throw Failure(path + ": " + std::strerror(errno));
  owned_ = true;
  struct stat st;
  if (::fstat(fd_, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd_);
    fd_ = -1;
    throw Failure(path + ": " + std::strerror(EISDIR));
  }
  ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
}

InputStream::~InputStream() {
  if (owned_ && fd_ >= 0) ::close(fd_);
}

std::size_t InputStream::read(void* buf, std::size_t size) {
  auto* p = static_cast<char*>(buf);
  std::size_t got = 0;
  while (got < size) {
    ssize_t n = ::read(fd_, p + got, size - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw Failure(name_ + ": " + std::strerror(errno));
    }
    if (n == 0) break;
    got += static_cast<std::size_t>(n);
  }
  return got;
}

bool InputStream::rewind() {
  struct stat st;
  if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return false;
  return ::lseek(fd_, 0, SEEK_SET) == 0;
}

std::optional<uint64_t> InputStream::regularFileSize() const {
  struct stat st;
  if (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  return static_cast<uint64_t>(st.st_size);
}

void writeAll(std::FILE* out, const void* buf, std::size_t size) {
  if (size && std::fwrite(buf, 1, size, out) != size) {
    throw Failure(std::string("cannot write the output: ") + std::strerror(errno));
  }
}

}  // namespace tq::cli
