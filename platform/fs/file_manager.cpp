// POSIX implementation of FileManager.
#include "tq/platform/fs/file_manager.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <string>

namespace tq {
namespace {

// Seconds between the Unix epoch and the reference date 2001-01-01.
constexpr double kReferenceDateOffset = 978307200.0;

String typeOf(mode_t mode) {
  if (S_ISDIR(mode)) return NSFileTypeDirectory;
  if (S_ISREG(mode)) return NSFileTypeRegular;
  if (S_ISLNK(mode)) return NSFileTypeSymbolicLink;
  if (S_ISSOCK(mode)) return NSFileTypeSocket;
  if (S_ISCHR(mode)) return NSFileTypeCharacterSpecial;
  if (S_ISBLK(mode)) return NSFileTypeBlockSpecial;
  return NSFileTypeUnknown;
}

bool readHiddenFlag(const std::string& path, bool traverseLink) {
  char value[8];
  ssize_t n = traverseLink ? getxattr(path.c_str(), kExtensionHiddenAttribute, value, sizeof value)
                           : lgetxattr(path.c_str(), kExtensionHiddenAttribute, value, sizeof value);
  return n > 0 && value[0] == '1';
}

bool writeHiddenFlag(const std::string& path, bool hidden) {
  if (hidden) return lsetxattr(path.c_str(), kExtensionHiddenAttribute, "1", 1, 0) == 0;
  if (lremovexattr(path.c_str(), kExtensionHiddenAttribute) == 0) return true;
  return errno == ENODATA;  // nothing to remove
}

}  // namespace

FileManager::~FileManager() = default;

FileManager& FileManager::defaultManager() {
  static FileManager manager;
  return manager;
}

std::string FileManager::fileSystemRepresentation(const String& path) {
  std::string bytes;
  String::appendUTF8(path.view(), bytes, true);
  return bytes;
}

String FileManager::stringWithFileSystemRepresentation(std::string_view bytes) {
  return String::decodeUTF8(bytes, String::InvalidUTF8::EscapeBytes);
}

bool FileManager::fileExistsAtPath(const String& path) { return fileExistsAtPath(path, nullptr); }

bool FileManager::fileExistsAtPath(const String& path, bool* isDirectory) {
  if (path.isNil() || path.length() == 0) return false;
  struct stat st;
  if (::stat(fileSystemRepresentation(path).c_str(), &st) != 0) return false;
  if (isDirectory) *isDirectory = S_ISDIR(st.st_mode);
  return true;
}

bool FileManager::createDirectoryAtPath(const String& path, const Dictionary& attributes) {
  if (path.isNil() || path.length() == 0) return false;
  if (::mkdir(fileSystemRepresentation(path).c_str(), 0777) != 0) return false;
  if (attributes && attributes.count() > 0) changeFileAttributes(attributes, path);
  return true;
}

Dictionary FileManager::fileAttributesAtPath(const String& path, bool traverseLink) {
  if (path.isNil() || path.length() == 0) return {};
  std::string p = fileSystemRepresentation(path);
  struct stat st;
  if ((traverseLink ? ::stat(p.c_str(), &st) : ::lstat(p.c_str(), &st)) != 0) return {};
  double mtime = static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9 - kReferenceDateOffset;
  return Dictionary{
      {NSFileType, typeOf(st.st_mode)},
      {NSFileSize, static_cast<long long>(st.st_size)},
      {NSFileModificationDate, Date{mtime}},
      {NSFilePosixPermissions, static_cast<long long>(st.st_mode & 07777)},
      {NSFileOwnerAccountID, static_cast<long long>(st.st_uid)},
      {NSFileGroupOwnerAccountID, static_cast<long long>(st.st_gid)},
      {NSFileReferenceCount, static_cast<long long>(st.st_nlink)},
      {NSFileSystemNumber, static_cast<long long>(st.st_dev)},
      {NSFileSystemFileNumber, static_cast<long long>(st.st_ino)},
      {NSFileExtensionHidden, readHiddenFlag(p, traverseLink)},
  };
}

bool FileManager::changeFileAttributes(const Dictionary& attributes, const String& path) {
  if (path.isNil() || path.length() == 0 || !attributes) return false;
  std::string p = fileSystemRepresentation(path);
  struct stat st;
  if (::lstat(p.c_str(), &st) != 0) return false;
  bool ok = true;

  const Value& hidden = attributes.objectForKey(NSFileExtensionHidden);
  if (hidden.isNumber()) ok = writeHiddenFlag(p, hidden.boolValue()) && ok;

  const Value& owner = attributes.objectForKey(NSFileOwnerAccountID);
  const Value& group = attributes.objectForKey(NSFileGroupOwnerAccountID);
  uid_t uid = owner.isNumber() ? static_cast<uid_t>(owner.integerValue()) : static_cast<uid_t>(-1);
  gid_t gid = group.isNumber() ? static_cast<gid_t>(group.integerValue()) : static_cast<gid_t>(-1);
  if (uid == st.st_uid) uid = static_cast<uid_t>(-1);
  if (gid == st.st_gid) gid = static_cast<gid_t>(-1);
  if (uid != static_cast<uid_t>(-1) || gid != static_cast<gid_t>(-1)) {
    ok = ::lchown(p.c_str(), uid, gid) == 0 && ok;
  }

  // Permissions after ownership: chown may clear the set-id bits.
  const Value& perms = attributes.objectForKey(NSFilePosixPermissions);
  if (perms.isNumber() && !S_ISLNK(st.st_mode)) {
    mode_t mode = static_cast<mode_t>(perms.integerValue()) & 07777;
    if (mode != (st.st_mode & 07777) || uid != static_cast<uid_t>(-1) || gid != static_cast<gid_t>(-1)) {
      ok = ::chmod(p.c_str(), mode) == 0 && ok;
    }
  }

  const Value& date = attributes.objectForKey(NSFileModificationDate);
  if (date.type() == Value::Type::Date) {
    double unix = date.dateValue().timeIntervalSinceReferenceDate + kReferenceDateOffset;
    double current = static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9;
    // A dictionary read back and written whole must not disturb the time by rounding.
    if (std::fabs(unix - current) > 1e-6) {
      struct timespec times[2];
      times[0].tv_sec = 0;
      times[0].tv_nsec = UTIME_OMIT;
      double whole = std::floor(unix);
      times[1].tv_sec = static_cast<time_t>(whole);
      times[1].tv_nsec = static_cast<long>((unix - whole) * 1e9);
      ok = ::utimensat(AT_FDCWD, p.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 && ok;
    }
  }
  return ok;
}

Array FileManager::directoryContentsAtPath(const String& path) {
  if (path.isNil() || path.length() == 0) return {};
  DIR* dir = ::opendir(fileSystemRepresentation(path).c_str());
  if (!dir) return {};
  std::vector<Value> names;
  while (struct dirent* entry = ::readdir(dir)) {
    std::string_view name(entry->d_name);
    if (name == "." || name == "..") continue;
    names.emplace_back(stringWithFileSystemRepresentation(name));
  }
  ::closedir(dir);
  return Array(std::move(names));
}

}  // namespace tq
