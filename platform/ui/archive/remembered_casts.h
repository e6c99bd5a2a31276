// dynamic_cast remembered for one read of an interface archive, and across reads for this library's
// own classes.
#pragma once

#include <link.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>

namespace tq {

// dynamic_cast, remembered. Where a base lies within an object depends only on the object's most
// derived class, so each (class, base) pair is worked out once with dynamic_cast and a later cast
// of an object of that class is a table look-up and an addition. dynamic_cast itself walks the
// class tree on every call, comparing type names as strings across shared libraries.
//
// Pairs whose class is defined in this library (the model's classes: most objects a read makes)
// are kept by the thread for later reads too; the library cannot go while its code runs, so their
// type descriptions stay where they are. Other classes (a host's, perhaps from a plugin that may be
// unloaded) are remembered for this read only.
class RememberedCasts {
 public:
  RememberedCasts() : lasting_(lastingEntries()) {}

  template <class To, class From>
  To* as(From* p) {
    if (!p) return nullptr;
    const std::type_info* type = &typeid(*p);
    const std::type_info* target = &typeid(To);
    const auto whole = reinterpret_cast<std::uintptr_t>(dynamic_cast<const volatile void*>(p));
    const std::size_t first = (reinterpret_cast<std::uintptr_t>(type) * 31 + reinterpret_cast<std::uintptr_t>(target)) *
                                  0x9E3779B97F4A7C15ull >> (64 - kSlotBits);
    const Entry* e = find(lasting_, first, type, target);
    if (!e) e = find(entries_, first, type, target);
    if (e) return e->offset == kNotOne ? nullptr : reinterpret_cast<To*>(whole + static_cast<std::uintptr_t>(e->offset));
    To* cast = dynamic_cast<To*>(p);
    remember({type, target, cast ? static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(cast) - whole) : kNotOne},
             first);
    return cast;
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

  // The pair's entry in `table`, or nullptr.
  [[gnu::always_inline]] static const Entry* find(const Entry* table, std::size_t slot, const std::type_info* type,
                                                   const std::type_info* target) {
    for (unsigned probe = 0; probe < kProbes; ++probe, slot = (slot + 1) & (kSlots - 1)) {
      const Entry& e = table[slot];
      if (e.type == type && e.target == target) return &e;
      if (!e.type) return nullptr;
    }
    return nullptr;
  }
  // This thread's pairs of this library's classes, kept for the thread's later reads.
  static Entry* lastingEntries() {
    thread_local Entry entries[kSlots];
    return entries;
  }
  // Whether the class's type description lies in the image (library or program) holding this code:
  // within the span of its loaded segments, found once.
  static bool definedHere(const std::type_info* type) {
    struct Span {
      std::uintptr_t first = 0, end = 0;
    };
    static const Span here = [] {
      Span span;
      dl_iterate_phdr(
          [](dl_phdr_info* info, std::size_t, void* data) {
            auto* found = static_cast<Span*>(data);
            const auto code = reinterpret_cast<std::uintptr_t>(&lastingEntries);
            Span image{UINTPTR_MAX, 0};
            for (int i = 0; i < info->dlpi_phnum; ++i) {
              const ElfW(Phdr)& segment = info->dlpi_phdr[i];
              if (segment.p_type != PT_LOAD) continue;
              const std::uintptr_t start = info->dlpi_addr + segment.p_vaddr;
              if (start < image.first) image.first = start;
              if (start + segment.p_memsz > image.end) image.end = start + segment.p_memsz;
            }
            if (code < image.first || code >= image.end) return 0;
            *found = image;
            return 1;
          },
          &span);
      return span;
    }();
    const auto at = reinterpret_cast<std::uintptr_t>(type);
    return at >= here.first && at < here.end;
  }
  // Places a pair worked out just now in the first free slot of its probe run (lasting for this
  // library's classes); a full run leaves it to dynamic_cast next time.
  void remember(const Entry& entry, std::size_t first) {
    Entry* table = definedHere(entry.type) ? lasting_ : entries_;
    std::size_t slot = first;
    for (unsigned probe = 0; probe < kProbes; ++probe, slot = (slot + 1) & (kSlots - 1)) {
      if (!table[slot].type) {
        table[slot] = entry;
        return;
      }
    }
  }

  Entry* lasting_;
  Entry entries_[kSlots];
};

}  // namespace tq
