// GenericObject: an archived object of a class the model does not describe in detail (controllers,
// formatters, host classes without a registered factory). It keeps its class name and its archived
// attributes.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include "tq/platform/base/arena.h"
#include "tq/platform/base/value.h"
#include "tq/platform/ui/model/capabilities.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class GenericObject : public InterfaceObject, public NibConnectable {
 public:
  explicit GenericObject(String className = u"NSObject") { setClassName(std::move(className)); }
  ~GenericObject() override;

  // The element's XML attributes as archived (e.g. "objectClassName" of an array controller), names
  // to string values. Archived attributes are made into the dictionary on the first call; it may come
  // from any thread, as may concurrent calls.
  const Dictionary& attributes() const;
  void setAttributes(Dictionary attributes);
  // Attributes as a reader keeps them until someone asks: UTF-8 names and values, each ended by a
  // NUL ("name\0value\0name\0value\0"); invalid UTF-8 reads as U+FFFD. Replaces the attributes
  // set before. Like the other setters, not to be called while another thread reads the object.
  void setArchivedAttributes(std::string packed);
  // The same, with the packed text copied into `arena` instead of a heap block of its own: the
  // object holds the arena until the attributes are made or replaced (a reader keeping an
  // interface's objects in one arena).
  void setArchivedAttributes(std::string_view packed, Arena& arena);
  // The same with numbers kept as numbers, as a compiled archive holds them, every text counted
  // rather than NUL-ended: for each attribute, the name's length (4 bytes) and its UTF-8 bytes, then
  // 's', the value's length and its UTF-8 bytes, or 'n' and the 8 bytes of a double (lengths and
  // doubles in this machine's byte order).
  void setArchivedTypedAttributes(std::string_view packed, Arena& arena);
  // Outlets connected from this object, by property name, in connection order (destinations not
  // owned).
  const std::vector<std::pair<String, std::weak_ptr<Object>>>& outlets() const { return outlets_; }
  void setOutlet(const String& property, const std::shared_ptr<Object>& destination) override;
  // The outlet's destination, or nullptr.
  std::shared_ptr<Object> outlet(const String& property) const;

 private:
  // Nil until attributes are set or unpacked (ownAttributes_): an object never given any answers
  // the shared empty dictionary, with no count taken and dropped for it.
  mutable Dictionary attributes_;
  mutable std::string packed_;
  // The packed attributes: in packed_, or in the arena held.
  mutable std::string_view archived_;
  mutable detail::ArenaState* archivedArena_ = nullptr;
  mutable bool archivedTyped_ = false;
  mutable std::atomic<bool> unpacked_{true};  // false while archived_ holds attributes not yet made
  mutable bool ownAttributes_ = false;
  std::mutex& unpackLock() const;
  void dropArchived() const;
  std::vector<std::pair<String, std::weak_ptr<Object>>> outlets_;
};

}  // namespace tq
