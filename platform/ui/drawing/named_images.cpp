// Finding the images an interface names: embedded, beside the document, in the bundle.
#include "tq/platform/ui/drawing/named_images.h"

#include <sys/stat.h>

#include <filesystem>

#include "tq/platform/fs/file_manager.h"

namespace tq {

namespace fs = std::filesystem;

NamedImageSource::~NamedImageSource() = default;

namespace {

bool isFile(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool isFolder(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A name must stay inside the folder it is looked up in.
bool isPlainName(const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
}

}  // namespace

InterfaceImageSource::InterfaceImageSource(const String& documentPath, std::shared_ptr<Bundle> bundle)
    : bundle_(std::move(bundle)) {
  if (documentPath.isNil()) return;
  const fs::path document = fs::absolute(fs::path(FileManager::fileSystemRepresentation(documentPath))).lexically_normal();
  if (isFolder(document.string())) folders_.push_back(document.string());
  const fs::path holder = document.parent_path();
  folders_.push_back(holder.string());
  if (holder.extension() == ".lproj") folders_.push_back(holder.parent_path().string());
}

void InterfaceImageSource::addImage(const String& name, ImageRef image) {
  if (!name.isNil() && image) embedded_[name] = std::move(image);
}

String InterfaceImageSource::pathForImageNamed(const String& name) const {
  if (name.length() == 0) return String();
  const std::string plain = name.UTF8String();
  if (isPlainName(plain)) {
    static const char* const kExtensions[] = {"", ".tiff", ".tif", ".png", ".icns", ".jpg", ".jpeg", ".gif"};
    for (const std::string& folder : folders_) {
      for (const char* extension : kExtensions) {
        const std::string path = (fs::path(folder) / (plain + extension)).string();
        if (isFile(path)) return String::fromUTF8(path);
      }
    }
  }
  if (bundle_) return bundle_->pathForImageResource(name);
  return String();
}

ImageRef InterfaceImageSource::imageNamed(const String& name) const {
  if (name.length() == 0) return nullptr;
  if (auto it = embedded_.find(name); it != embedded_.end()) return it->second;
  if (auto it = read_.find(name); it != read_.end()) return it->second;
  const String path = pathForImageNamed(name);
  ImageRef image = path.isNil() ? nullptr : Image::imageWithContentsOfFile(path);
  read_[name] = image;
  return image;
}

}  // namespace tq
