// Bindings as an interface archive records them: for each bound object, binders keyed by binding
// name ("value", "content", "displayPatternValue1", ...), each binder holding one binding info per
// binding it serves, and each binding info its options and one placeholder per marker.
//
// Binders: numbered variants of one binding ("displayPatternValue1", "displayPatternValue2";
// "enabled", "enabled2") share one binder; other names get one binder each. A binder's className()
// is "NSDisplayPatternBinder" for the displayPatternValueN bindings, "NSDisplayPatternTitleBinder"
// for displayPatternTitleN, otherwise "NS" + the capitalised base name + "Binder" ("NSValueBinder",
// "NSContentValuesBinder", "NSHiddenBinder").
//
// Threads: the interface (main) thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "tq/platform/base/arena.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

// The placeholder markers. Null is the nil marker (the null placeholder).
enum class BindingMarker { MultipleValues = 0, Null = 1, NoSelection = 2, NotApplicable = 3 };
inline constexpr BindingMarker NSMultipleValuesMarker = BindingMarker::MultipleValues;
inline constexpr BindingMarker NSNoSelectionMarker = BindingMarker::NoSelection;
inline constexpr BindingMarker NSNotApplicableMarker = BindingMarker::NotApplicable;
inline constexpr BindingMarker NSNullMarker = BindingMarker::Null;

// The option key that carries the placeholder of a marker ("NSMultipleValuesPlaceholder",
// "NSNullPlaceholder", "NSNoSelectionPlaceholder", "NSNotApplicablePlaceholder").
String placeholderOptionKey(BindingMarker marker);

// One binding of one object: what it observes, under which key path, with which options.
class BindingInfo : public Object {
 public:
  BindingInfo(String binding, std::weak_ptr<Object> observedObject, String keyPath);
  String className() const override { return u"NSBindingInfo"; }

  // The binding's name, e.g. "displayPatternValue1".
  const String& binding() const { return binding_; }
  // The observed object (not owned: it belongs to the interface or to the host); may have gone.
  std::shared_ptr<Object> observedObject() const { return observedObject_.lock(); }
  const String& keyPath() const { return keyPath_; }

  // The options other than the placeholders and the display pattern, as archived
  // ("NSValueTransformerName", "NSValidatesImmediately", ...). Never nil.
  const Dictionary& options() const;
  void setOptions(Dictionary options) { options_ = std::move(options); }

  // The placeholder for the marker (a string, a number, or any value); nil when none is set.
  const Value& placeholderForMarker(BindingMarker marker) const {
    return placeholders_[static_cast<int>(marker)];
  }
  // Sets (nil: removes) the placeholder for the marker. isDefault records whether it is the
  // binding's default placeholder rather than one the interface or host chose.
  void setPlaceholder(Value placeholder, BindingMarker marker, bool isDefault);
  bool placeholderIsDefault(BindingMarker marker) const { return isDefault_[static_cast<int>(marker)]; }

 private:
  String binding_;
  std::weak_ptr<Object> observedObject_;
  String keyPath_;
  Dictionary options_;  // nil stands for the shared empty dictionary
  std::array<Value, 4> placeholders_;
  std::array<bool, 4> isDefault_{};
  // Where Bindable::bind recorded this info: the bound object and the binding's place in its order.
  friend class Bindable;
  const class Bindable* boundBy_ = nullptr;
  std::uint32_t order_ = 0;
};

// The object that serves one group of bindings of one bound object.
class Binder : public Object {
 public:
  explicit Binder(String binderClassName) : className_(std::move(binderClassName)) {}
  String className() const override { return className_; }

  // The binding infos in the order their bindings were made.
  const std::vector<std::shared_ptr<BindingInfo>>& bindingInfos() const { return infos_; }
  // The info of the named binding; nullptr when this binder does not serve it.
  std::shared_ptr<BindingInfo> bindingInfoForBinding(const String& binding) const;
  void addBindingInfo(std::shared_ptr<BindingInfo> info) { infos_.push_back(std::move(info)); }

  // Display pattern binders: the pattern ("%{value1}@ of %{value2}@"); nil for others.
  const String& displayPattern() const { return displayPattern_; }
  void setDisplayPattern(String pattern) { displayPattern_ = std::move(pattern); }

  // Key-value access as the bindings machinery offers it: the key "displayPattern" reads and writes
  // the pattern (a string Value; a non-string writes nil). Other keys read nil and write nothing.
  Value valueForKey(const String& key) const;
  void setValue(const Value& value, const String& key);

 private:
  String className_;
  std::vector<std::shared_ptr<BindingInfo>> infos_;
  String displayPattern_;
};

// The binder class name for a binding name, and the group its numbered variants share.
String binderClassNameForBinding(const String& binding);
String bindingGroupName(const String& binding);

// The bindings of one object. Mixed into every interface object (InterfaceObject).
class Bindable {
 public:
  Bindable() = default;
  // A copy starts without bindings: bindings belong to the object they were made on.
  Bindable(const Bindable&) {}
  Bindable& operator=(const Bindable&) { return *this; }
  virtual ~Bindable() = default;

  // The binder serving the named binding, or nullptr when the object has no such binding (the
  // question asked with no binders list and without creating one).
  std::shared_ptr<Binder> binderForBinding(const String& binding) const;
  // Every binder, in the order of their first binding.
  const std::vector<std::shared_ptr<Binder>>& binders() const;
  // The names of the bound bindings, in binding order.
  std::vector<String> boundBindingNames() const;

  // Records a binding: finds or makes the binder of its group, adds a binding info and returns it.
  // Placeholder options ("NSNullPlaceholder", ...) become the info's placeholders (not default);
  // "NSDisplayPattern" becomes the binder's display pattern; the rest stays in options().
  std::shared_ptr<BindingInfo> bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                    const String& keyPath, const Dictionary& options);
  // The same, with a new binder and the binding info (and, at an object's first binding, its list of
  // binders) made in `arena` instead of heap blocks of their own (a reader keeping an interface's
  // objects in one arena): each holds the arena while it lives.
  std::shared_ptr<BindingInfo> bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                    const String& keyPath, const Dictionary& options, Arena& arena);

 private:
  std::shared_ptr<BindingInfo> bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                    const String& keyPath, const Dictionary& options, Arena* arena);
  // The binders, and how many bindings were made (each info knows its place in that order). Made at
  // the first binding, in the arena given to it when there is one (then holding that arena).
  struct Storage {
    std::vector<std::shared_ptr<Binder>> binders;
    std::uint32_t bindings = 0;
    detail::ArenaState* arena = nullptr;
  };
  struct DropStorage {
    void operator()(Storage* storage) const noexcept;
  };
  std::unique_ptr<Storage, DropStorage> storage_;  // most objects have none
};

}  // namespace tq
