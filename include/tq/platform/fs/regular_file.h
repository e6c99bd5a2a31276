// Reading a whole file that must be a regular file of bounded size, without waiting and without a
// gap between the check and the read.
//
// The file is opened first, without blocking (a FIFO with no writer, a terminal or a device opens
// at once), and only what was opened is checked (fstat): it must be a regular file of at most
// maxBytes. A name switched between a file and a FIFO by someone else therefore never makes a
// reader wait, and a link planted to /dev/zero reads nothing. A file that grows while it is read
// is taken at the size it had when checked.
//
// Threads: any; nothing is shared.
#pragma once

#include <cstddef>
#include <string>

namespace tq {

struct RegularFileRead {
  bool ok = false;
  std::string bytes;
  // When not ok: the system's reason ("No such file or directory", "Permission denied"), "not a
  // regular file", or "larger than the N MiB read here" (N = maxBytes in MiB, rounded down).
  std::string reason;
  // When not ok: the errno value behind the reason (EISDIR for a folder, EFBIG for a file over the
  // limit, EINVAL for any other file that is not regular).
  int error = 0;
  explicit operator bool() const { return ok; }
};

// Reads the regular file at `path` (the system's bytes) whole, if it holds at most maxBytes.
// Never throws for a file's sake; allocation of up to maxBytes is the caller's budget.
RegularFileRead readRegularFile(const std::string& path, std::size_t maxBytes);

}  // namespace tq
