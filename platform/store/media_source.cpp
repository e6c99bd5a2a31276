#include "tq/platform/store/media_source.h"

namespace tq {

std::vector<MediaSource::Result> MediaSource::queryMediaOfEach(std::span<const String> interfaceNames) {
  std::vector<Result> results;
  results.reserve(interfaceNames.size());
  for (const String& name : interfaceNames) results.push_back(queryMedia(name));
  return results;
}

}  // namespace tq
