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

#include <string>
#include <string_view>
#include <vector>

namespace tq::cli {

class OutputFiles {
 public:
  // Stages the bytes of one file; nothing is written yet.
  void add(std::string path, std::string bytes);
  // Creates `folder` (and missing parents) if it does not exist, writes every staged file and only
  // then renames them all into place. folder may be empty. Throws Failure; see above.
  void commit(const std::string& folder = {});

 private:
  struct File {
    std::string path;
    std::string bytes;
  };
  std::vector<File> files_;
};

// One file, whole or not at all (OutputFiles with a single file and no folder).
void writeFileAtomically(const std::string& path, std::string_view bytes);

// The PNG encoding of an image surface; Failure when cairo cannot encode it.
std::string pngBytes(cairo_surface_t* surface);

}  // namespace tq::cli
