// Files the commands write: whole or not at all.
//
// Each file is first written to a private temporary file (mode 0600, a random name beginning with
// "." in the destination's own folder, so the final rename never crosses file systems), flushed to
// disk, given the permissions a new file would get, and renamed over the destination. A reader sees
// the old file or the new one, never a part. A destination that is a symbolic link is replaced, not
// followed. When anything fails, every temporary file is removed, nothing is renamed, a folder made
// for the output is removed again, and Failure names the file and the system's reason.
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
  // many or large files), creating `folder` (and missing parents) first. The bytes come in pieces:
  // `next` fills `piece` and returns false when there are no more. Throws Failure.
  void write(const std::string& folder, const std::string& path,
             const std::function<bool(std::string& piece)>& next);
  void write(const std::string& folder, const std::string& path, std::string_view bytes);
  // Creates `folder` (and missing parents) if it does not exist, writes every staged file and only
  // then renames them all, and those written before, into place. folder may be empty. Throws
  // Failure; see above.
  void commit(const std::string& folder = {});

 private:
  struct File {
    std::string path;
    std::string bytes;
  };
  std::vector<File> files_;
  // Files written ahead: final path and temporary; folders made for them, outermost first.
  std::vector<std::pair<std::string, std::string>> written_;
  std::vector<std::string> made_;
  bool foldersReady_ = false;
};

// One file, whole or not at all (OutputFiles with a single file and no folder).
void writeFileAtomically(const std::string& path, std::string_view bytes);

// The PNG encoding of an image surface; Failure when cairo cannot encode it.
std::string pngBytes(cairo_surface_t* surface);

}  // namespace tq::cli
