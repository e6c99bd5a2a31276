// Object: the root of tqkit's object classes (observers, the store wrapper, interface objects).
//
// Objects live in std::shared_ptr; make them with std::make_shared. Class tests are dynamic_cast
// (isKindOfClass<T>()); an object can hand out a shared_ptr to itself with self<T>().
#pragma once

#include <memory>

#include "tq/platform/base/string.h"

namespace tq {

class Object : public std::enable_shared_from_this<Object> {
 public:
  Object() = default;
  Object(const Object&) : std::enable_shared_from_this<Object>() {}
  Object& operator=(const Object&) { return *this; }
  virtual ~Object();

  // The class's name without namespace, e.g. "IPv4Observer". The default derives it from the C++
  // type; classes whose platform name differs override it.
  virtual String className() const;
  // "<CLASS: 0xADDRESS>" unless a class says better.
  virtual String description() const;
  // Identity unless a class compares contents.
  virtual bool isEqual(const Object& other) const { return this == &other; }

  template <class T>
  bool isKindOfClass() const {
    return dynamic_cast<const T*>(this) != nullptr;
  }

  // A shared_ptr to this object; the object must be owned by a shared_ptr already.
  template <class T = Object>
  std::shared_ptr<T> self() {
    return std::dynamic_pointer_cast<T>(shared_from_this());
  }
  template <class T = Object>
  std::shared_ptr<const T> self() const {
    return std::dynamic_pointer_cast<const T>(shared_from_this());
  }
};

using ObjectRef = std::shared_ptr<Object>;

}  // namespace tq
