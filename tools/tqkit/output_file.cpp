#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cli.h"

namespace tq::cli {
namespace {

std::string folderOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

[[noreturn]] void fail(const std::string& path, int error) { throw Failure(path + ": " + std::strerror(error)); }

mode_t currentUmask() {
  mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

// The mode a file created now with 0666 would get.
mode_t newFileMode() { return 0666 & ~currentUmask(); }

// Writes all of bytes to fd; 0 or the system's error.
int writeAll(int fd, std::string_view bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n < 0 ? errno : EIO;
    done += static_cast<std::size_t>(n);
  }
  return 0;
}

// Writes bytes to a new private temporary file beside path; returns its name.
std::string writeTemporary(const std::string& path, std::string_view bytes) {
  std::string temporary = folderOf(path) + "/." + nameOf(path) + ".XXXXXX";
  int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) fail(path, errno);
  int error = writeAll(fd, bytes);
  if (!error && ::fchmod(fd, newFileMode()) != 0) error = errno;
  if (!error && ::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) error = errno;
  if (::close(fd) != 0 && !error) error = errno;
  if (error) {
    ::unlink(temporary.c_str());
    fail(path, error);
  }
  return temporary;
}

// Creates the missing levels of folder; returns the levels made, outermost first.
std::vector<std::string> makeFolders(const std::string& folder) {
  std::vector<std::string> missing;
  std::string level = folder;
  while (!level.empty() && level != "/" && level != ".") {
    struct stat st;
    if (::lstat(level.c_str(), &st) == 0) break;
    missing.push_back(level);
    level = folderOf(level);
  }
  std::vector<std::string> made;
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (::mkdir(it->c_str(), 0777) != 0 && errno != EEXIST) {
      int error = errno;
      for (auto m = made.rbegin(); m != made.rend(); ++m) ::rmdir(m->c_str());
      fail(*it, error);
    }
    made.push_back(*it);
  }
  return made;
}

}  // namespace

StagedFile::StagedFile(std::string path, std::string_view bytes)
    : path_(std::move(path)), temporary_(writeTemporary(path_, bytes)) {}

StagedFile::~StagedFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void StagedFile::commit() {
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) fail(path_, errno);
  temporary_.clear();
}

StagedFolder::StagedFolder(std::string folder) : folder_(std::move(folder)) {
  while (folder_.size() > 1 && folder_.back() == '/') folder_.pop_back();
  struct stat st;
  if (::stat(folder_.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) fail(folder_, ENOTDIR);
  madeParents_ = makeFolders(folderOf(folder_));
  temporary_ = folderOf(folder_) + "/." + nameOf(folder_) + ".XXXXXX";
  if (!::mkdtemp(temporary_.data())) {
    const int error = errno;
    temporary_.clear();
    discard();
    fail(folder_, error);
  }
}

StagedFolder::~StagedFolder() {
  if (!committed_) discard();
}

void StagedFolder::discard() noexcept {
  if (!temporary_.empty()) {
    for (const auto& name : names_) ::unlink((temporary_ + "/" + name).c_str());
    ::rmdir(temporary_.c_str());
    temporary_.clear();
  }
  for (auto m = madeParents_.rbegin(); m != madeParents_.rend(); ++m) ::rmdir(m->c_str());
  madeParents_.clear();
}

std::string StagedFolder::finalPath(const std::string& name) const { return folder_ + "/" + name; }

void StagedFolder::add(const std::string& name, std::string_view bytes) {
  const std::string path = temporary_ + "/" + name;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) fail(finalPath(name), errno);
  if (std::find(names_.begin(), names_.end(), name) == names_.end()) names_.push_back(name);
  int error = writeAll(fd, bytes);
  if (!error && ::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) error = errno;
  if (::close(fd) != 0 && !error) error = errno;
  if (error) fail(finalPath(name), error);
}

void StagedFolder::commit() {
  // The folder a new one would be (the temporary one is private until now).
  if (::chmod(temporary_.c_str(), 0777 & ~currentUmask()) != 0) fail(folder_, errno);
  // A folder that is not there, or is empty, is replaced by the whole new one at once.
  if (::rename(temporary_.c_str(), folder_.c_str()) == 0) {
    committed_ = true;
    return;
  }
  const int error = errno;
  struct stat st;
  if (::stat(folder_.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) fail(folder_, error);
  // Into a folder that holds other files: file by file, each whole.
  for (const auto& name : names_) {
    if (::rename((temporary_ + "/" + name).c_str(), finalPath(name).c_str()) != 0) fail(finalPath(name), errno);
  }
  ::rmdir(temporary_.c_str());
  temporary_.clear();
  names_.clear();
  committed_ = true;
}

void writeFileAtomically(const std::string& path, std::string_view bytes) { StagedFile(path, bytes).commit(); }

void flushStandardOutput() {
  if (std::fflush(stdout) != 0) throw Failure(std::string("cannot write the output: ") + std::strerror(errno));
  if (std::ferror(stdout)) throw Failure("cannot write the output: part of it was lost");
}

std::string pngBytes(cairo_surface_t* surface) {
  std::string out;
  if (!surface || cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE) throw Failure("not an image surface");
  cairo_surface_flush(surface);
  auto append = [](void* closure, const unsigned char* data, unsigned int length) -> cairo_status_t {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  };
  cairo_status_t status = cairo_surface_write_to_png_stream(surface, append, &out);
  if (status != CAIRO_STATUS_SUCCESS) throw Failure(std::string("cannot encode the PNG: ") + cairo_status_to_string(status));
  return out;
}

}  // namespace tq::cli
