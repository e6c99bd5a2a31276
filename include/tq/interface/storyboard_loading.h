// Loading a controller from a storyboard of a bundle: its initial controller, or a controller by
// its storyboard identifier, with everything the controller's scene holds.
//
//   auto main = tq::instantiateInitialController(u"Main", nullptr);             // the main bundle
//   auto prefs = std::dynamic_pointer_cast<tq::ViewController>(
//       tq::instantiateControllerWithIdentifier(u"Main", u"PrefsVC", bundle));
//   if (prefs) show(prefs->view());
//
// The storyboard `name` (without extension) is looked for in the bundle (nullptr: the main bundle)
// as NAME.storyboardc, the compiled form a built bundle holds, else NAME.storyboard, each searched
// by Bundle::pathForResource in the resource directory and then the localized folders. It is read
// with readStoryboardFile (see storyboard_reader.h). Each call reads the storyboard afresh: every
// controller returned is new, with a window or view of its own. The loader translates nothing (see
// TQLocalizer, which takes the controller's window or view).
//
// Ownership: the returned controller (a WindowController or ViewController) alone owns what it was
// given: its window or view, the other objects of its scene, and the controllers its
// relationships name (a window's content controller, a tab view's or split view's items, embedded
// controllers) with theirs. Everything else the storyboard made is freed before the call returns.
//
// Nothing is reported: no such storyboard, one that does not read, or no such controller gives
// nullptr.
//
// Threads: the interface (main) thread.
#pragma once

#include <memory>

#include "tq/platform/base/string.h"
#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

// The storyboard's initial controller, or nullptr when it names none.
std::shared_ptr<InterfaceObject> instantiateInitialController(const String& name, const std::shared_ptr<Bundle>& bundle);
// The controller whose scene has the storyboard identifier, or nullptr.
std::shared_ptr<InterfaceObject> instantiateControllerWithIdentifier(const String& name, const String& identifier,
                                                                     const std::shared_ptr<Bundle>& bundle);
// The path of the storyboard `name` in the bundle (nullptr: the main bundle): NAME.storyboardc,
// else NAME.storyboard; nil when there is neither.
String pathForStoryboardResource(const String& name, const std::shared_ptr<Bundle>& bundle);

}  // namespace tq
