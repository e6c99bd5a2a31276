// Generic archived objects: outlets kept by name.
#include "tq/platform/ui/model/generic_object.h"

#include <cstdint>
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

// Unpacking is guarded by one of a few locks shared by all objects, taken only by the first
// question after attributes were archived. A once-flag per object would cost the first question a
// futex call, whether or not any other thread waits.
std::mutex& GenericObject::unpackLock() const {
  static std::mutex locks[16];
  return locks[(reinterpret_cast<std::uintptr_t>(this) >> 6) & 15];
}

const Dictionary& GenericObject::attributes() const {
  if (!unpacked_.load(std::memory_order_acquire)) {
    std::lock_guard<std::mutex> hold(unpackLock());
    if (!unpacked_.load(std::memory_order_relaxed)) {
      attributes_ = unpack(packed_);
      std::string().swap(packed_);
      unpacked_.store(true, std::memory_order_release);
    }
  }
  return attributes_;
}

void GenericObject::setAttributes(Dictionary attributes) {
  std::string().swap(packed_);
  attributes_ = std::move(attributes);
  unpacked_.store(true, std::memory_order_release);
}

void GenericObject::setArchivedAttributes(std::string packed) {
  if (packed.empty()) return setAttributes(Dictionary::empty());
  packed_ = std::move(packed);
  unpacked_.store(false, std::memory_order_release);
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
