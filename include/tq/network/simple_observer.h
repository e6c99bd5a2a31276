// SimpleObserver: a target and one of its member functions, called with a changed store key.
//
// The record takes a strong reference to its target when it is made and never gives it up: as long
// as the record lives, so does the target. SCDynamicStore keeps one record per registration, which is
// what keeps registered observers alive (see sc_dynamic_store.h).
//
// The member function receives the changed key string (not the new value) and may return anything;
// the result is ignored.
#pragma once

#include <functional>
#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

class SimpleObserver : public Object {
 public:
  // A new record for target->method. A nil target gives a record that does nothing when invoked.
  template <class T, class R>
  static std::shared_ptr<SimpleObserver> observer(std::shared_ptr<T> target, R (T::*method)(const String&)) {
    T* raw = target.get();
    return std::make_shared<SimpleObserver>(std::shared_ptr<void>(std::move(target)),
                                            [raw, method](const String& key) { (raw->*method)(key); });
  }

  // The general form: `call` is run with the key; `target` is only kept alive. Prefer observer().
  SimpleObserver(std::shared_ptr<void> target, std::function<void(const String&)> call)
      : observer_(std::move(target)), call_(std::move(call)) {}

  // Calls the target's member function with `key`; its result is dropped.
  void invokeWithObject(const String& key) const {
    if (observer_ && call_) call_(key);
  }

  // The target (type-erased), held strongly.
  const std::shared_ptr<void>& target() const noexcept { return observer_; }

 private:
  std::shared_ptr<void> observer_;
  std::function<void(const String&)> call_;
};

}  // namespace tq
