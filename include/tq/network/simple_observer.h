// SimpleObserver: a target and one of its member functions, called with a changed store key.
//
// The record takes a strong reference to its target when it is made and never gives it up: as long
// as the record lives, so does the target. SCDynamicStore keeps one record per registration, which is
// what keeps registered observers alive (see sc_dynamic_store.h).
//
// The member function receives the changed key string (not the new value) and may return anything.
// invokeWithObject() hands back what it returned, as a Value: nil for a function returning void or a
// type that no Value holds. The store ignores it.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class SimpleObserver : public Object {
 public:
  // A new record for target->method. A nil target gives a record that does nothing when invoked.
  template <class T, class R>
  static std::shared_ptr<SimpleObserver> observer(std::shared_ptr<T> target, R (T::*method)(const String&)) {
    T* raw = target.get();
    return std::make_shared<SimpleObserver>(std::shared_ptr<void>(std::move(target)),
                                            [raw, method](const String& key) -> Value {
                                              if constexpr (std::is_constructible_v<Value, R>) {
                                                return Value((raw->*method)(key));
                                              } else {
                                                (raw->*method)(key);
                                                return Value();
                                              }
                                            });
  }

  // The general form: `call` is run with the key and its result handed back; `target` is only kept
  // alive. Prefer observer().
  SimpleObserver(std::shared_ptr<void> target, std::function<Value(const String&)> call)
      : observer_(std::move(target)), call_(std::move(call)) {}

  // Calls the target's member function with `key` and returns what it returned (nil for a nil
  // target).
  Value invokeWithObject(const String& key) const {
    if (observer_ && call_) return call_(key);
    return Value();
  }

  // The target (type-erased), held strongly.
  const std::shared_ptr<void>& target() const noexcept { return observer_; }

 private:
  std::shared_ptr<void> observer_;
  std::function<Value(const String&)> call_;
};

}  // namespace tq
