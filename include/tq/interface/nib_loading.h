// Loading an interface (nib) that belongs to the code of an owner object, with its top-level objects
// handed to the caller.
//
//   std::vector<std::shared_ptr<tq::Object>> objects = tq::loadNibWithName(u"Preferences", controller);
//   tq::TQLocalizer::localizeObjects(objects, u"Preferences", tq::Bundle::bundleForClass(typeid(*controller)));
//
// The nib is looked for in the bundle that holds the code of the owner's class
// (Bundle::bundleForClass of its dynamic type), not in the main bundle: a library's interface is
// found in the library's bundle when the owner is one of its objects. The resource type is "nib":
// NAME.nib, else NAME.xib, searched by Bundle::pathForResource in the unlocalized then the localized
// folders. Every form a bundle holds is read (see readNibFile): a current XML document or the older
// XML archive, a compiled nib file (a keyed archive or NIBArchive), or a nib folder holding a
// compiled "keyedobjects.nib" or an XML "designable.nib". The owner becomes the File's Owner: its outlets and actions
// are connected when it implements NibConnectable. The loader translates nothing (see TQLocalizer).
//
// Ownership: the returned array holds the only ownership of the top-level objects (which own
// everything else the nib made): keep the array to keep the interface, let it go to free it all.
//
// Nothing is reported: an unknown name, a nib that does not read, and a null owner (no class, hence
// no bundle to search: nothing is read) give an empty array.
//
// This lives in the interface family because reading interfaces needs the interface platform, which
// the foundation family does not link.
//
// Threads: the interface (main) thread.
#pragma once

#include <memory>
#include <vector>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

// The top-level objects of the nib `name` (without extension) of the owner's bundle, in document
// order; empty when there is none.
std::vector<std::shared_ptr<Object>> loadNibWithName(const String& name, const std::shared_ptr<Object>& owner);
// The same, appended to `array` (which thereby owns them as well).
void loadNibWithName(const String& name, const std::shared_ptr<Object>& owner,
                     std::vector<std::shared_ptr<Object>>& array);

}  // namespace tq
