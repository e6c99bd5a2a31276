// Generic archived objects: outlets kept by name.
#include "tq/platform/ui/generic_object.h"

#include <cstring>
#include <vector>

namespace tq {

namespace {

Dictionary unpack(const std::string& packed) {
  std::vector<Dictionary::Entry> entries;
  const char* p = packed.data();
  const char* end = p + packed.size();
  while (p < end) {
    const std::size_t nameLength = std::strlen(p);
    const char* value = p + nameLength + 1;
    const std::size_t valueLength = std::strlen(value);
    entries.emplace_back(String::fromUTF8({p, nameLength}), Value(String::fromUTF8({value, valueLength})));
    p = value + valueLength + 1;
  }
  return Dictionary(std::move(entries));
}

}  // namespace

const Dictionary& GenericObject::attributes() const {
  asked_.store(true, std::memory_order_release);
  std::call_once(unpacked_, [this] {
    if (packed_.empty()) return;
    attributes_ = unpack(packed_);
    std::string().swap(packed_);
  });
  return attributes_;
}

void GenericObject::setAttributes(Dictionary attributes) {
  this->attributes();  // settles archived attributes not yet unpacked
  attributes_ = std::move(attributes);
}

void GenericObject::setArchivedAttributes(std::string packed) {
  if (!asked_.load(std::memory_order_acquire)) {
    packed_ = std::move(packed);
    return;
  }
  attributes_ = unpack(packed);
}

void GenericObject::setOutlet(const String& property, const std::shared_ptr<Object>& destination) {
  for (auto& [name, target] : outlets_) {
    if (name == property) {
      target = destination;
      return;
    }
  }
  outlets_.emplace_back(property, destination);
}

std::shared_ptr<Object> GenericObject::outlet(const String& property) const {
  for (const auto& [name, target] : outlets_) {
    if (name == property) return target.lock();
  }
  return nullptr;
}

}  // namespace tq
