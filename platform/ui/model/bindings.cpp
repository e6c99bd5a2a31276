// Binders and binding infos.
#include "tq/platform/ui/model/bindings.h"

#include <algorithm>
#include <iterator>
#include <string>


namespace tq {

namespace {

constexpr const char16_t* kPlaceholderKeys[] = {u"NSMultipleValuesPlaceholder", u"NSNullPlaceholder",
                                                u"NSNoSelectionPlaceholder", u"NSNotApplicablePlaceholder"};

}  // namespace

String placeholderOptionKey(BindingMarker marker) { return kPlaceholderKeys[static_cast<int>(marker)]; }

BindingInfo::BindingInfo(String binding, std::weak_ptr<Object> observedObject, String keyPath)
    : binding_(std::move(binding)), observedObject_(std::move(observedObject)), keyPath_(std::move(keyPath)) {}

const Dictionary& BindingInfo::options() const {
  if (options_.isNil()) {
    static const Dictionary none = Dictionary::empty();
    return none;
  }
  return options_;
}

void BindingInfo::setPlaceholder(Value placeholder, BindingMarker marker, bool isDefault) {
  const int i = static_cast<int>(marker);
  placeholders_[i] = std::move(placeholder);
  isDefault_[i] = isDefault;
}

std::shared_ptr<BindingInfo> Binder::bindingInfoForBinding(const String& binding) const {
  for (const auto& info : infos_) {
    if (info->binding() == binding) return info;
  }
  return nullptr;
}

Value Binder::valueForKey(const String& key) const {
  if (key.view() == u"displayPattern" && !displayPattern_.isNil()) return Value(displayPattern_);
  return Value();
}

void Binder::setValue(const Value& value, const String& key) {
  if (key.view() == u"displayPattern") displayPattern_ = value.stringValue();
}

String bindingGroupName(const String& binding) {
  std::u16string_view v = binding.view();
  std::size_t end = v.size();
  while (end > 0 && v[end - 1] >= u'0' && v[end - 1] <= u'9') --end;
  if (end == 0 || end == v.size()) return binding;
  return String(v.substr(0, end));
}

String binderClassNameForBinding(const String& binding) {
  const String group = bindingGroupName(binding);
  if (group.view() == u"displayPatternValue") return u"NSDisplayPatternBinder";
  if (group.view() == u"displayPatternTitle") return u"NSDisplayPatternTitleBinder";
  // "NS" + the group with its first letter capitalised + "Binder", made in one piece.
  constexpr std::u16string_view prefix = u"NS", suffix = u"Binder";
  std::u16string_view g = group.view();
  char16_t small[64];
  std::u16string large;
  const std::size_t length = prefix.size() + g.size() + suffix.size();
  char16_t* name = small;
  if (length > std::size(small)) {
    large.resize(length);
    name = large.data();
  }
  char16_t* at = std::copy(prefix.begin(), prefix.end(), name);
  at = std::copy(g.begin(), g.end(), at);
  if (!g.empty() && name[2] >= u'a' && name[2] <= u'z') name[2] = static_cast<char16_t>(name[2] - u'a' + u'A');
  std::copy(suffix.begin(), suffix.end(), at);
  return String(std::u16string_view(name, length));
}

namespace {

// The binder class name for a binding, made in `arena` when it is ASCII (as every binding name the
// platform defines is), else as binderClassNameForBinding makes it.
String binderClassNameIn(const String& binding, Arena& arena) {
  std::u16string_view group = binding.view();
  while (!group.empty() && group.back() >= u'0' && group.back() <= u'9') group.remove_suffix(1);
  if (group.empty()) group = binding.view();  // a name of digits alone is its own group
  constexpr std::string_view prefix = "NS", suffix = "Binder";
  char name[64];
  const std::size_t length = prefix.size() + group.size() + suffix.size();
  if (length > std::size(name) || group == u"displayPatternValue" || group == u"displayPatternTitle" ||
      std::any_of(group.begin(), group.end(), [](char16_t c) { return c >= 0x80; })) {
    return binderClassNameForBinding(binding);
  }
  char* at = std::copy(prefix.begin(), prefix.end(), name);
  for (const char16_t c : group) *at++ = static_cast<char>(c);
  if (name[2] >= 'a' && name[2] <= 'z') name[2] = static_cast<char>(name[2] - 'a' + 'A');
  std::copy(suffix.begin(), suffix.end(), at);
  return String::fromUTF8(std::string_view(name, length), arena);
}


// The group a binding's numbered variants share, as a view of the binding's own text (see
// bindingGroupName).
std::u16string_view groupOf(std::u16string_view binding) {
  std::size_t end = binding.size();
  while (end > 0 && binding[end - 1] >= u'0' && binding[end - 1] <= u'9') --end;
  return end == 0 ? binding : binding.substr(0, end);
}

// Placeholder keys (by marker) and the display pattern key, with their lengths known.
constexpr std::u16string_view kPlaceholderViews[] = {u"NSMultipleValuesPlaceholder", u"NSNullPlaceholder",
                                                     u"NSNoSelectionPlaceholder", u"NSNotApplicablePlaceholder"};
constexpr std::u16string_view kDisplayPatternKey = u"NSDisplayPattern";

// The marker whose placeholder the option key carries; -1 for any other key.
int markerOfKey(std::u16string_view key) {
  for (int m = 0; m < 4; ++m) {
    if (key == kPlaceholderViews[m]) return m;
  }
  return -1;
}

}  // namespace

void Bindable::DropStorage::operator()(Storage* storage) const noexcept {
  if (detail::ArenaState* arena = storage->arena) {
    storage->~Storage();
    arena->release();
  } else {
    delete storage;
  }
}

std::shared_ptr<Binder> Bindable::binderForBinding(const String& binding) const {
  if (!storage_ || binding.isNil()) return nullptr;
  for (const auto& binder : storage_->binders) {
    if (binder->bindingInfoForBinding(binding)) return binder;
  }
  return nullptr;
}

const std::vector<std::shared_ptr<Binder>>& Bindable::binders() const {
  static const std::vector<std::shared_ptr<Binder>> none;
  return storage_ ? storage_->binders : none;
}

std::vector<String> Bindable::boundBindingNames() const {
  if (!storage_) return {};
  // Each info recorded here knows its place; infos a caller added to a binder by hand have none.
  std::vector<String> names(storage_->bindings);
  for (const auto& binder : storage_->binders) {
    for (const auto& info : binder->bindingInfos()) {
      if (info && info->boundBy_ == this && info->order_ < names.size()) names[info->order_] = info->binding();
    }
  }
  return names;
}

std::shared_ptr<BindingInfo> Bindable::bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                            const String& keyPath, const Dictionary& options) {
  return bind(binding, observedObject, keyPath, options, nullptr);
}

std::shared_ptr<BindingInfo> Bindable::bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                            const String& keyPath, const Dictionary& options, Arena& arena) {
  return bind(binding, observedObject, keyPath, options, &arena);
}

std::shared_ptr<BindingInfo> Bindable::bind(const String& binding, const std::shared_ptr<Object>& observedObject,
                                            const String& keyPath, const Dictionary& options, Arena* arena) {
  if (!storage_) {
    if (arena) {
      // In the arena, holding it: this object may live elsewhere, and outlive every other hold.
      detail::ArenaState* state = arena->state();
      storage_.reset(new (state->allocate(sizeof(Storage), alignof(Storage))) Storage{{}, 0, state});
      state->retain();
    } else {
      storage_.reset(new Storage);
    }
  }
  const std::u16string_view group = groupOf(binding.view());
  Binder* binder = nullptr;
  for (const auto& b : storage_->binders) {
    const auto& infos = b->bindingInfos();
    if (!infos.empty() && groupOf(infos.front()->binding().view()) == group) {
      binder = b.get();
      break;
    }
  }
  if (!binder) {
    auto made = arena ? arena->make<Binder>(binderClassNameIn(binding, *arena))
                      : std::make_shared<Binder>(binderClassNameForBinding(binding));
    binder = made.get();
    storage_->binders.push_back(std::move(made));
  }
  auto info = arena ? arena->make<BindingInfo>(binding, observedObject, keyPath)
                    : std::make_shared<BindingInfo>(binding, observedObject, keyPath);
  info->boundBy_ = this;
  info->order_ = storage_->bindings++;
  // Options with no placeholder and no display pattern are kept as given (the dictionary shares
  // its entries) instead of copied entry by entry into a new one.
  const auto special = [](const String& key) {
    const std::u16string_view k = key.view();
    return markerOfKey(k) >= 0 || k == kDisplayPatternKey;
  };
  if (std::none_of(options.entries().begin(), options.entries().end(),
                   [&](const Dictionary::Entry& entry) { return special(entry.first); })) {
    info->setOptions(options);
    binder->addBindingInfo(info);
    return info;
  }
  std::vector<Dictionary::Entry> rest;
  for (const auto& [key, value] : options.entries()) {
    if (const int m = markerOfKey(key.view()); m >= 0) {
      info->setPlaceholder(value, static_cast<BindingMarker>(m), false);
      continue;
    }
    if (key.view() == kDisplayPatternKey) {
      binder->setDisplayPattern(value.stringValue());
      continue;
    }
    rest.emplace_back(key, value);
  }
  info->setOptions(Dictionary(std::move(rest)));
  binder->addBindingInfo(info);
  return info;
}

}  // namespace tq
