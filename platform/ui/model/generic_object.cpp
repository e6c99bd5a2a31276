// Generic archived objects: outlets kept by name.
#include "tq/platform/ui/model/generic_object.h"

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace tq {

namespace {

// The typed form: counted names and texts, numbers as doubles.
Dictionary unpackTyped(std::string_view packed) {
  std::vector<Dictionary::Entry> entries;
  const char* p = packed.data();
  const char* end = p + packed.size();
  auto counted = [&] {
    uint32_t length;
    std::memcpy(&length, p, sizeof length);
    const std::string_view text(p + sizeof length, length);
    p += sizeof length + length;
    return String::fromUTF8(text);
  };
  while (p < end) {
    String name = counted();
    if (*p++ == 'n') {
      double number;
      std::memcpy(&number, p, sizeof number);
      p += sizeof number;
      entries.emplace_back(std::move(name), Value(number));
    } else {
      entries.emplace_back(std::move(name), Value(counted()));
    }
  }
  return Dictionary(std::move(entries));
}

Dictionary unpack(std::string_view packed, bool typed) {
  if (typed) return unpackTyped(packed);
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
      attributes_ = unpack(archived_, archivedTyped_);
      ownAttributes_ = true;
      dropArchived();
      unpacked_.store(true, std::memory_order_release);
    }
  }
  if (!ownAttributes_) {
    static const Dictionary none = Dictionary::empty();
    return none;
  }
  return attributes_;
}

GenericObject::~GenericObject() {
  if (archivedArena_) archivedArena_->release();
}

void GenericObject::dropArchived() const {
  std::string().swap(packed_);
  archived_ = {};
  if (archivedArena_) std::exchange(archivedArena_, nullptr)->release();
}

void GenericObject::setAttributes(Dictionary attributes) {
  dropArchived();
  attributes_ = std::move(attributes);
  ownAttributes_ = true;
  unpacked_.store(true, std::memory_order_release);
}

void GenericObject::setArchivedAttributes(std::string packed) {
  if (packed.empty()) return setAttributes(Dictionary::empty());
  dropArchived();
  packed_ = std::move(packed);
  archived_ = packed_;
  archivedTyped_ = false;
  unpacked_.store(false, std::memory_order_release);
}

void GenericObject::setArchivedAttributes(std::string_view packed, Arena& arena) {
  if (packed.empty()) return setAttributes(Dictionary::empty());
  dropArchived();
  archivedTyped_ = false;
  char* copy = static_cast<char*>(arena.allocate(packed.size(), 1));
  std::memcpy(copy, packed.data(), packed.size());
  archived_ = std::string_view(copy, packed.size());
  archivedArena_ = arena.state();
  archivedArena_->retain();
  unpacked_.store(false, std::memory_order_release);
}

void GenericObject::setArchivedTypedAttributes(std::string_view packed, Arena& arena) {
  setArchivedAttributes(packed, arena);
  archivedTyped_ = !packed.empty();
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
