// Fuzz target: the storyboard reader on the XML document (seeded with storyboards). Every scene's
// controller, window and view are walked, and the segues' ends touched. The reader must report or
// build, never crash, leak, hang or allocate beyond its bound.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "nib_fuzz_walk.h"
#include "tq/platform/ui/archive/storyboard_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  tq::StoryboardReadResult result = tq::readStoryboardData(bytes);
  if (!result) return 0;
  std::size_t n = 0;
  for (const auto& scene : result.storyboard().scenes()) {
    n += tq::fuzz::walk(scene.window().get()) + tq::fuzz::walk(scene.view().get()) + scene.objects.size();
  }
  for (const auto& segue : result.storyboard().segues()) n += !segue.destination.expired();
  for (const auto& object : result.storyboard().nib().topLevelObjects()) n += tq::fuzz::walk(object.get());
  (void)n;
  return 0;
}
