#include "tq/platform/fs/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tq {

namespace {

RegularFileRead failed(int error, std::string reason) {
  RegularFileRead r;
  r.error = error;
  r.reason = std::move(reason);
  return r;
}

}  // namespace

RegularFileRead readRegularFile(const std::string& path, std::size_t maxBytes) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    const int error = errno;
    return failed(error, std::strerror(error));
  }
  struct stat st {};
  RegularFileRead r;
  if (::fstat(fd, &st) != 0) {
    const int error = errno;
    r = failed(error, std::strerror(error));
  } else if (S_ISDIR(st.st_mode)) {
    r = failed(EISDIR, std::strerror(EISDIR));
  } else if (!S_ISREG(st.st_mode)) {
    r = failed(EINVAL, "not a regular file");
  } else if (static_cast<unsigned long long>(st.st_size) > maxBytes) {
    r = failed(EFBIG, "larger than the " + std::to_string(maxBytes >> 20) + " MiB read here");
  } else {
    r.bytes.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    int error = 0;
    while (done < r.bytes.size()) {
      const ssize_t got = ::read(fd, r.bytes.data() + done, r.bytes.size() - done);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) error = errno;
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    if (error) {
      r = failed(error, std::strerror(error));
    } else {
      r.bytes.resize(done);  // a file that shrank while read is taken as it was read
      r.ok = true;
    }
  }
  ::close(fd);
  return r;
}

}  // namespace tq
