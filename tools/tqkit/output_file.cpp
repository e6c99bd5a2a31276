#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
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

// Writes pieces of bytes to a new private temporary file beside path; returns its name. With
// `sync` false the bytes are flushed to disk later, all at once (see OutputFiles::commit).
std::string writeTemporary(const std::string& path, const std::function<bool(std::string&)>& next, bool sync = true) {
  std::string temporary = folderOf(path) + "/." + nameOf(path) + ".XXXXXX";
  int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) fail(path, errno);
  int error = 0;
  std::string piece;
  try {
    while (!error && next(piece)) {
      std::size_t done = 0;
      while (done < piece.size()) {
        ssize_t n = ::write(fd, piece.data() + done, piece.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
          error = n < 0 ? errno : EIO;
          break;
        }
        done += static_cast<std::size_t>(n);
      }
    }
  } catch (...) {
    ::close(fd);
    ::unlink(temporary.c_str());
    throw;
  }
  if (!error && ::fchmod(fd, newFileMode()) != 0) error = errno;
  if (!error && sync && ::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) error = errno;
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

OutputFiles::~OutputFiles() {
  for (const auto& w : written_) ::unlink(w.second.c_str());
  if (!staging_.empty()) {
    for (const auto& name : staged_) ::unlink((staging_ + "/" + name).c_str());
    ::rmdir(staging_.c_str());
  }
  for (auto m = made_.rbegin(); m != made_.rend(); ++m) ::rmdir(m->c_str());
}

void OutputFiles::add(std::string path, std::string bytes) { files_.push_back({std::move(path), std::move(bytes)}); }

const std::string& OutputFiles::stagingFor(const std::string& folder) {
  if (staging_.empty()) {
    target_ = folder;
    while (target_.size() > 1 && target_.back() == '/') target_.pop_back();
    struct stat st;
    if (::stat(target_.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) fail(target_, ENOTDIR);
    made_ = makeFolders(folderOf(target_));
    std::string staging = folderOf(target_) + "/." + nameOf(target_) + ".XXXXXX";
    if (!::mkdtemp(staging.data())) fail(target_, errno);
    staging_ = std::move(staging);
  }
  return staging_;
}

void OutputFiles::write(const std::string& folder, const std::string& path,
                        const std::function<bool(std::string& piece)>& next) {
  std::string trimmed = folder;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  if (!folder.empty() && folderOf(path) == trimmed) {
    // Into the private folder beside the destination, under the file's own name.
    const std::string staged = stagingFor(folder) + "/" + nameOf(path);
    const std::string temporary = writeTemporary(staged, next, false);
    if (::rename(temporary.c_str(), staged.c_str()) != 0) {
      const int error = errno;
      ::unlink(temporary.c_str());
      fail(path, error);
    }
    if (std::find(staged_.begin(), staged_.end(), nameOf(path)) == staged_.end()) staged_.push_back(nameOf(path));
    return;
  }
  written_.emplace_back(path, writeTemporary(path, next, false));
}

void OutputFiles::write(const std::string& folder, const std::string& path, std::string_view bytes) {
  bool given = false;
  write(folder, path, [&](std::string& piece) {
    if (given) return false;
    piece.assign(bytes);
    return given = true;
  });
}

void OutputFiles::commit(const std::string& folder) {
  for (const auto& f : files_) write(folder, f.path, f.bytes);
  files_.clear();
  if (!folder.empty()) stagingFor(folder);  // an output of no files is an empty folder
  if (!staging_.empty() || !written_.empty()) {
    // Everything written reaches the disk together, before any of it is put in place.
    const std::string where = !staging_.empty() ? staging_ : folderOf(written_.front().first);
    const int fd = ::open(where.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int error = fd < 0 ? errno : ::syncfs(fd) != 0 ? errno : 0;
    if (fd >= 0) ::close(fd);
    if (error) fail(!staging_.empty() ? target_ : written_.front().first, error);
  }
  if (!staging_.empty()) {
    // The folder a new one would be; a destination that is not there yet, or empty, is replaced
    // by the whole folder at once.
    if (::chmod(staging_.c_str(), 0777 & ~currentUmask()) != 0) fail(target_, errno);
    if (::rename(staging_.c_str(), target_.c_str()) != 0) {
      const int error = errno;
      struct stat st;
      if (::stat(target_.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) fail(target_, error);
      // A folder holding other files already: the new ones are renamed in, each whole.
      for (auto name = staged_.begin(); name != staged_.end(); name = staged_.erase(name)) {
        const std::string destination = target_ + "/" + *name;
        if (::rename((staging_ + "/" + *name).c_str(), destination.c_str()) != 0) fail(destination, errno);
      }
      ::rmdir(staging_.c_str());
    }
    staging_.clear();
    staged_.clear();
    made_.clear();
  }
  while (!written_.empty()) {
    const auto& [destination, temporary] = written_.front();
    if (::rename(temporary.c_str(), destination.c_str()) != 0) fail(destination, errno);
    written_.erase(written_.begin());
  }
  made_.clear();
}

void flushStandardOutput() {
  if (std::fflush(stdout) != 0) throw Failure(std::string("cannot write the output: ") + std::strerror(errno));
  if (std::ferror(stdout)) throw Failure("cannot write the output: part of it was lost");
}

void writeFileAtomically(const std::string& path, std::string_view bytes) {
  OutputFiles files;
  files.add(path, std::string(bytes));
  files.commit();
}

namespace {

std::string cairoPNG(cairo_surface_t* surface) {
  std::string out;
  auto append = [](void* closure, const unsigned char* data, unsigned int length) -> cairo_status_t {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  };
  cairo_status_t status = cairo_surface_write_to_png_stream(surface, append, &out);
  if (status != CAIRO_STATUS_SUCCESS) throw Failure(std::string("cannot encode the PNG: ") + cairo_status_to_string(status));
  return out;
}

[[noreturn]] void pngFailed(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void pngWarned(png_structp, png_const_charp) {}
void pngAppend(png_structp png, png_bytep data, png_size_t length) {
  try {
    static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), length);
  } catch (...) {
    png_error(png, "out of memory");
  }
}

}  // namespace

std::string pngBytes(cairo_surface_t* surface) {
  if (!surface || cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE) throw Failure("not an image surface");
  cairo_surface_flush(surface);
  const cairo_format_t format = cairo_image_surface_get_format(surface);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return cairoPNG(surface);
  // Pictures of interfaces are large and many: zlib's fastest level without row filters encodes
  // them about three times faster than the usual settings, for files about a twentieth larger.
  const int width = cairo_image_surface_get_width(surface), height = cairo_image_surface_get_height(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  const unsigned char* pixels = cairo_image_surface_get_data(surface);
  if (!pixels || width <= 0 || height <= 0) return cairoPNG(surface);
  const auto pixel = [&](int x, int y) { return reinterpret_cast<const uint32_t*>(pixels + std::size_t(y) * stride)[x]; };
  bool opaque = true;
  for (int y = 0; opaque && format == CAIRO_FORMAT_ARGB32 && y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      if ((pixel(x, y) >> 24) != 0xFF) {
        opaque = false;
        break;
      }
    }
  }
  const int channels = opaque ? 3 : 4;
  std::string out;
  std::vector<unsigned char> row(std::size_t(width) * 4);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, pngFailed, pngWarned);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw Failure("cannot encode the PNG");
  }
  png_set_write_fn(png, &out, pngAppend, nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
               opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_compression_level(png, 1);
  png_set_filter(png, 0, PNG_FILTER_NONE);
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) {
    unsigned char* o = row.data();
    for (int x = 0; x < width; ++x) {
      // Cairo keeps colours multiplied by alpha; PNG keeps them apart.
      const uint32_t p = pixel(x, y);
      const unsigned a = format == CAIRO_FORMAT_RGB24 ? 0xFF : p >> 24;
      unsigned r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
      if (a != 0xFF && a != 0) {
        r = (r * 255 + a / 2) / a, g = (g * 255 + a / 2) / a, b = (b * 255 + a / 2) / a;
      }
      *o++ = static_cast<unsigned char>(r), *o++ = static_cast<unsigned char>(g), *o++ = static_cast<unsigned char>(b);
      if (channels == 4) *o++ = static_cast<unsigned char>(a);
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return out;
}

}  // namespace tq::cli
