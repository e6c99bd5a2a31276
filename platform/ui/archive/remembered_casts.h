// dynamic_cast remembered for one read of an interface archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>

namespace tq {

// dynamic_cast, remembered for the read. Where a base lies within an object depends only on the
// object's most derived class, so each (class, base) pair is worked out once with dynamic_cast and
// a later cast of an object of that class is a table look-up and an addition. dynamic_cast itself
// walks the class tree on every call, comparing type names as strings across shared libraries.
class RememberedCasts {
 public:
  template <class To, class From>
  To* as(From* p) {
    if (!p) return nullptr;
    const std::type_info* type = &typeid(*p);
    const std::type_info* target = &typeid(To);
    const auto whole = reinterpret_cast<std::uintptr_t>(dynamic_cast<const volatile void*>(p));
    std::size_t slot = (reinterpret_cast<std::uintptr_t>(type) * 31 + reinterpret_cast<std::uintptr_t>(target)) *
                           0x9E3779B97F4A7C15ull >> (64 - kSlotBits);
    for (unsigned probe = 0; probe < kProbes; ++probe, slot = (slot + 1) & (kSlots - 1)) {
      Entry& e = entries_[slot];
      if (e.type == type && e.target == target) {
        return e.offset == kNotOne ? nullptr : reinterpret_cast<To*>(whole + static_cast<std::uintptr_t>(e.offset));
      }
      if (!e.type) {
        To* cast = dynamic_cast<To*>(p);
        e = {type, target, cast ? static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(cast) - whole) : kNotOne};
        return cast;
      }
    }
    return dynamic_cast<To*>(p);
  }
  template <class To, class From>
  std::shared_ptr<To> as(std::shared_ptr<From>&& p) {
    To* cast = as<To>(p.get());
    return cast ? std::shared_ptr<To>(std::move(p), cast) : nullptr;
  }
  template <class To, class From>
  std::shared_ptr<To> as(const std::shared_ptr<From>& p) {
    To* cast = as<To>(p.get());
    return cast ? std::shared_ptr<To>(p, cast) : nullptr;
  }

 private:
  static constexpr unsigned kSlotBits = 8;
  static constexpr std::size_t kSlots = std::size_t{1} << kSlotBits;
  static constexpr unsigned kProbes = 8;
  static constexpr std::ptrdiff_t kNotOne = PTRDIFF_MIN;
  struct Entry {
    const std::type_info* type = nullptr;
    const std::type_info* target = nullptr;
    std::ptrdiff_t offset = 0;
  };
  Entry entries_[kSlots];
};

}  // namespace tq
