// Files the commands write: whole or not at all, and put in place only when the command commits
// them, after what it had to say on standard output has been written (flushStandardOutput()).
//
// A file of its own is first written to a private temporary file (mode 0600, a random name
// beginning with "." in the destination's own folder, so the final rename never crosses file
// systems), flushed to disk, given the permissions a new file would get, and renamed over the
// destination. A reader sees the old file or the new one, never a part. A destination that is a
// symbolic link is replaced, not followed.
//
// The files of a folder are written into a private folder beside it (".NAME.XXXXXX", in the same
// file system), under their own names. At commit that folder becomes the destination with one
// rename when the destination does not exist yet (or is empty); into a folder that holds other
// files already, each file is renamed in, whole.
//
// When anything fails, or the files are not committed, every temporary file and folder is removed,
// nothing is renamed, the folders made for the output are removed again, and Failure names the file
// and the system's reason.
#pragma once

#include <cairo.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tq::cli {

class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  // Removes the temporary files written and the folders made, unless committed.
  ~OutputFiles();

  // Stages the bytes of one file; nothing is written yet.
  void add(std::string path, std::string bytes);
  // Writes one file's temporary now, so that its bytes are not held until commit (for outputs of
  // many or large files): into the private folder of `folder` when the file is in it (making the
  // missing parents first), else beside it. The bytes come in pieces: `next` fills `piece` and
  // returns false when there are no more. Throws Failure.
  void write(const std::string& folder, const std::string& path,
             const std::function<bool(std::string& piece)>& next);
  void write(const std::string& folder, const std::string& path, std::string_view bytes);
  // Writes every staged file, then puts them all, and those written before, into place (`folder`,
  // when given, even with no file in it). Throws Failure; see above.
  void commit(const std::string& folder = {});

 private:
  struct File {
    std::string path;
    std::string bytes;
  };
  std::vector<File> files_;
  // The private folder beside `folder` (made on first use, with the missing parents).
  const std::string& stagingFor(const std::string& folder);
  // Files written ahead beside their destinations: final path and temporary.
  std::vector<std::pair<std::string, std::string>> written_;
  // The destination folder, its private folder and the names written there; the parents made for
  // it, outermost first.
  std::string target_, staging_;
  std::vector<std::string> staged_;
  std::vector<std::string> made_;
};

// One file, whole or not at all (OutputFiles with a single file and no folder).
void writeFileAtomically(const std::string& path, std::string_view bytes);

// Flushes standard output; Failure when what was written to it is lost (a full disk, /dev/full).
void flushStandardOutput();

// The PNG encoding of an image surface; Failure when cairo cannot encode it.
std::string pngBytes(cairo_surface_t* surface);

}  // namespace tq::cli
