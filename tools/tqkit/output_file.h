// Files the commands write: whole or not at all, and only once everything else the command had to
// say (its JSON or text on standard output) has been written.
//
// A single file is first written to a private temporary file (mode 0600, a random name beginning
// with "." in the destination's own folder, so the final rename never crosses file systems), flushed
// to disk, given the permissions a new file would get, and renamed over the destination by commit().
// A reader sees the old file or the new one, never a part. A destination that is a symbolic link is
// replaced, not followed.
//
// Several files bound for one folder are written, as they come, into a private temporary folder
// beside it (".NAME.XXXXXX"), so that what waits for commit() is on disk, not in memory. commit()
// moves the whole folder into place with one rename when the folder does not exist yet (or is
// empty); into a folder that holds other files already each file is renamed in, whole.
//
// When anything fails, or the object is destroyed before commit(), every temporary file and folder
// is removed, and so are the missing parent folders that were made for the output; Failure names the
// file and the system's reason.
#pragma once

#include <cairo.h>

#include <string>
#include <string_view>
#include <vector>

namespace tq::cli {

class StagedFile {
 public:
  // Writes `bytes` to a temporary file beside `path` now.
  StagedFile(std::string path, std::string_view bytes);
  ~StagedFile();
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  // Renames the file into place.
  void commit();

 private:
  std::string path_;
  std::string temporary_;
};

class StagedFolder {
 public:
  // Makes the missing parents of `folder` and the temporary folder beside it.
  explicit StagedFolder(std::string folder);
  ~StagedFolder();
  StagedFolder(const StagedFolder&) = delete;
  StagedFolder& operator=(const StagedFolder&) = delete;
  // Writes one file (a plain name) into the temporary folder now.
  void add(const std::string& name, std::string_view bytes);
  // The file's name in the finished folder.
  std::string finalPath(const std::string& name) const;
  // Moves everything into place.
  void commit();

 private:
  void discard() noexcept;
  std::string folder_;
  std::string temporary_;
  std::vector<std::string> names_;
  std::vector<std::string> madeParents_;  // outermost first
  bool committed_ = false;
};

// One file, whole or not at all, written now.
void writeFileAtomically(const std::string& path, std::string_view bytes);

// Flushes standard output; Failure when what was written to it is lost (a full disk, /dev/full).
// Commands call it before they commit the files they write, so that a failed report leaves none.
void flushStandardOutput();

// The PNG encoding of an image surface; Failure when cairo cannot encode it.
std::string pngBytes(cairo_surface_t* surface);

}  // namespace tq::cli
