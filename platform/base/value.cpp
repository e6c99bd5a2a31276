#include "tq/platform/base/value.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <unordered_map>

#include "tq/platform/base/exception.h"

namespace tq {

namespace {

const Value& nilValue() {
  static const Value nil;
  return nil;
}

const std::vector<Value>& noValues() {
  static const std::vector<Value> none;
  return none;
}

[[noreturn]] void raiseIndex(const char* what, UInteger index, UInteger count) {
  Exception::raise(NSRangeException, String::fromUTF8(std::string(what) + ": index " + std::to_string(index) +
                                                      " beyond bounds [0 .. " + std::to_string(count) + ")"));
}

}  // namespace

Date Date::now() {
  using namespace std::chrono;
  double sinceEpoch = duration<double>(system_clock::now().time_since_epoch()).count();
  return Date{sinceEpoch - 978307200.0};
}

// --- Array ---------------------------------------------------------------------------------------

Array::Array(std::initializer_list<Value> values) : items_(std::make_shared<const std::vector<Value>>(values)) {}
Array::Array(std::vector<Value> values) : items_(std::make_shared<const std::vector<Value>>(std::move(values))) {}
Array Array::empty() { return Array(std::vector<Value>{}); }

Array Array::withStrings(const std::vector<String>& strings) {
  std::vector<Value> v;
  v.reserve(strings.size());
  for (const auto& s : strings) v.emplace_back(s);
  return Array(std::move(v));
}

UInteger Array::count() const noexcept { return items_ ? items_->size() : 0; }

const Value& Array::objectAtIndex(UInteger index) const {
  if (index >= count()) raiseIndex("objectAtIndex:", index, count());
  return (*items_)[index];
}

const Value& Array::firstObject() const noexcept { return count() ? items_->front() : nilValue(); }
const Value& Array::lastObject() const noexcept { return count() ? items_->back() : nilValue(); }

bool Array::containsObject(const Value& value) const noexcept { return indexOfObject(value) != NotFound; }

UInteger Array::indexOfObject(const Value& value) const noexcept {
  for (UInteger i = 0; i < count(); ++i) {
    if ((*items_)[i] == value) return i;
  }
  return NotFound;
}

Array Array::arrayByAddingObject(const Value& value) const {
  std::vector<Value> v = values();
  v.push_back(value);
  return Array(std::move(v));
}

std::vector<String> Array::strings() const {
  std::vector<String> out;
  for (const auto& v : values()) {
    if (v.type() == Value::Type::String) out.push_back(v.stringValue());
  }
  return out;
}

const std::vector<Value>& Array::values() const noexcept { return items_ ? *items_ : noValues(); }
std::vector<Value>::const_iterator Array::begin() const noexcept { return values().begin(); }
std::vector<Value>::const_iterator Array::end() const noexcept { return values().end(); }

bool operator==(const Array& a, const Array& b) noexcept {
  if (a.items_ == b.items_) return true;
  if (!a.items_ || !b.items_) return false;
  return *a.items_ == *b.items_;
}

// --- Dictionary ----------------------------------------------------------------------------------

struct Dictionary::Storage {
  // Most dictionaries hold a handful of entries (binding options, placeholders): those are found
  // by a scan, and the hash index is built only once a dictionary reaches this size.
  static constexpr UInteger kIndexedFrom = 9;
  static constexpr UInteger kAbsent = ~UInteger{0};

  std::vector<Entry> entries;
  std::unordered_map<String, UInteger> index;  // empty below kIndexedFrom entries

  UInteger find(const String& key) const noexcept {
    if (entries.size() < kIndexedFrom) {
      for (UInteger i = 0; i < entries.size(); ++i) {
        if (entries[i].first == key) return i;
      }
      return kAbsent;
    }
    auto it = index.find(key);
    return it == index.end() ? kAbsent : it->second;
  }

  void reindex() {
    index.clear();
    if (entries.size() < kIndexedFrom) return;
    index.reserve(entries.size());
    for (UInteger i = 0; i < entries.size(); ++i) index.emplace(entries[i].first, i);
  }

  void set(String key, Value value) {
    if (const UInteger at = find(key); at != kAbsent) {
      entries[at].second = std::move(value);
      return;
    }
    entries.emplace_back(std::move(key), std::move(value));
    if (entries.size() == kIndexedFrom) {
      reindex();
    } else if (entries.size() > kIndexedFrom) {
      index.emplace(entries.back().first, entries.size() - 1);
    }
  }

  void remove(const String& key) {
    const UInteger at = find(key);
    if (at == kAbsent) return;
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(at));
    if (!index.empty()) reindex();
  }
};

namespace {
const std::vector<Dictionary::Entry>& noEntries() {
  static const std::vector<Dictionary::Entry> none;
  return none;
}
}  // namespace

Dictionary::Dictionary(std::initializer_list<Entry> entries) : Dictionary(std::vector<Entry>(entries)) {}

Dictionary::Dictionary(std::vector<Entry> entries) {
  if (entries.empty()) {
    // Every empty dictionary shares one storage: it is never written, and most bindings and
    // archives hold empty ones.
    static const std::shared_ptr<const Storage> none = std::make_shared<const Storage>();
    storage_ = none;
    return;
  }
  auto s = std::make_shared<Storage>();
  s->entries.reserve(entries.size());
  for (auto& [k, v] : entries) s->set(std::move(k), std::move(v));
  storage_ = std::move(s);
}

Dictionary Dictionary::empty() {
  static const Dictionary none{std::vector<Entry>{}};
  return none;
}

UInteger Dictionary::count() const noexcept { return storage_ ? storage_->entries.size() : 0; }

const Value& Dictionary::objectForKey(const String& key) const noexcept {
  if (!storage_) return nilValue();
  const UInteger at = storage_->find(key);
  return at == Storage::kAbsent ? nilValue() : storage_->entries[at].second;
}

std::vector<String> Dictionary::allKeys() const {
  std::vector<String> keys;
  for (const auto& e : entries()) keys.push_back(e.first);
  return keys;
}

const std::vector<Dictionary::Entry>& Dictionary::entries() const noexcept {
  return storage_ ? storage_->entries : noEntries();
}

Dictionary Dictionary::dictionaryBySettingObject(const String& key, const Value& value) const {
  MutableDictionary m(*this);
  m.setObject(value, key);
  return m.copy();
}

bool operator==(const Dictionary& a, const Dictionary& b) noexcept {
  if (a.storage_ == b.storage_) return true;
  if (!a.storage_ || !b.storage_) return false;
  if (a.count() != b.count()) return false;
  for (const auto& [k, v] : a.storage_->entries) {
    const UInteger at = b.storage_->find(k);
    if (at == Dictionary::Storage::kAbsent || !(b.storage_->entries[at].second == v)) return false;
  }
  return true;
}

// --- Value ---------------------------------------------------------------------------------------

Value::Value(String s) {
  if (!s.isNil()) v_ = std::move(s);
}
Value::Value(Data d) {
  if (!d.isNil()) v_ = std::move(d);
}
Value::Value(Array a) {
  if (!a.isNil()) v_ = std::move(a);
}
Value::Value(Dictionary d) {
  if (!d.isNil()) v_ = std::move(d);
}
Value::Value(std::shared_ptr<Object> o) {
  if (o) v_ = std::move(o);
}

String Value::stringValue() const {
  if (auto* s = std::get_if<String>(&v_)) return *s;
  return {};
}
Data Value::dataValue() const {
  if (auto* d = std::get_if<Data>(&v_)) return *d;
  return {};
}
Array Value::arrayValue() const {
  if (auto* a = std::get_if<Array>(&v_)) return *a;
  return {};
}
Dictionary Value::dictionaryValue() const {
  if (auto* d = std::get_if<Dictionary>(&v_)) return *d;
  return {};
}
std::shared_ptr<Object> Value::objectValue() const {
  if (auto* o = std::get_if<std::shared_ptr<Object>>(&v_)) return *o;
  return {};
}
Date Value::dateValue() const {
  if (auto* d = std::get_if<Date>(&v_)) return *d;
  return {};
}

int64_t Value::integerValue() const noexcept {
  if (auto* i = std::get_if<int64_t>(&v_)) return *i;
  if (auto* d = std::get_if<double>(&v_)) return std::isfinite(*d) ? static_cast<int64_t>(*d) : 0;
  if (auto* b = std::get_if<bool>(&v_)) return *b ? 1 : 0;
  return 0;
}

double Value::doubleValue() const noexcept {
  if (auto* i = std::get_if<int64_t>(&v_)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&v_)) return *d;
  if (auto* b = std::get_if<bool>(&v_)) return *b ? 1.0 : 0.0;
  return 0;
}

bool Value::boolValue() const noexcept {
  if (auto* i = std::get_if<int64_t>(&v_)) return *i != 0;
  if (auto* d = std::get_if<double>(&v_)) return *d != 0;
  if (auto* b = std::get_if<bool>(&v_)) return *b;
  return false;
}

bool operator==(const Value& a, const Value& b) noexcept {
  if (a.isNumber() && b.isNumber()) {
    if (a.type() == Value::Type::Real || b.type() == Value::Type::Real) return a.doubleValue() == b.doubleValue();
    return a.integerValue() == b.integerValue();
  }
  if (a.type() != b.type()) return false;
  if (a.type() == Value::Type::Object) {
    auto x = a.objectValue(), y = b.objectValue();
    return x == y || x->isEqual(*y);
  }
  return a.v_ == b.v_;
}

namespace {

bool needsQuotes(std::u16string_view s) {
  if (s.empty()) return true;
  for (unichar c : s) {
    bool plain = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_' ||
                 c == u'.' || c == u'$' || c == u'/' || c == u':' || c == u'-';
    if (!plain) return true;
  }
  return false;
}

void describe(const Value& v, std::string& out, int indent);

void quoted(const String& s, std::string& out) {
  if (!needsQuotes(s.view())) {
    out += s.UTF8String();
    return;
  }
  out += '"';
  for (char c : s.UTF8String()) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  out += '"';
}

void describe(const Value& v, std::string& out, int indent) {
  std::string pad(static_cast<std::size_t>(indent) * 4, ' ');
  char buf[64];
  switch (v.type()) {
    case Value::Type::Nil:
      out += "(null)";
      break;
    case Value::Type::String:
      quoted(v.stringValue(), out);
      break;
    case Value::Type::Integer:
      out += std::to_string(v.integerValue());
      break;
    case Value::Type::Real:
      std::snprintf(buf, sizeof buf, "%.17g", v.doubleValue());
      out += buf;
      break;
    case Value::Type::Boolean:
      out += v.boolValue() ? "1" : "0";
      break;
    case Value::Type::Data: {
      static const char digits[] = "0123456789abcdef";
      out += '<';
      Data d = v.dataValue();
      for (UInteger i = 0; i < d.length(); ++i) {
        if (i && i % 4 == 0) out += ' ';
        out += digits[d.bytes()[i] >> 4];
        out += digits[d.bytes()[i] & 15];
      }
      out += '>';
      break;
    }
    case Value::Type::Date:
      std::snprintf(buf, sizeof buf, "%.3f", v.dateValue().timeIntervalSinceReferenceDate);
      out += std::string("<date ") + buf + ">";
      break;
    case Value::Type::Array: {
      Array a = v.arrayValue();
      out += "(\n";
      for (UInteger i = 0; i < a.count(); ++i) {
        out += pad + "    ";
        describe(a[i], out, indent + 1);
        out += i + 1 < a.count() ? ",\n" : "\n";
      }
      out += pad + ")";
      break;
    }
    case Value::Type::Dictionary: {
      out += "{\n";
      for (const auto& [k, val] : v.dictionaryValue().entries()) {
        out += pad + "    ";
        quoted(k, out);
        out += " = ";
        describe(val, out, indent + 1);
        out += ";\n";
      }
      out += pad + "}";
      break;
    }
    case Value::Type::Object:
      out += v.objectValue()->description().UTF8String();
      break;
  }
}

}  // namespace

String Value::description() const {
  std::string out;
  describe(*this, out, 0);
  return String::fromUTF8(out);
}

// --- MutableArray / MutableDictionary --------------------------------------------------------------

MutableArray::MutableArray(const Array& initial) : items_(initial.values()) {}

const Value& MutableArray::objectAtIndex(UInteger index) const {
  if (index >= items_.size()) raiseIndex("objectAtIndex:", index, items_.size());
  return items_[index];
}

void MutableArray::addObjectsFromArray(const Array& array) {
  items_.insert(items_.end(), array.begin(), array.end());
}

void MutableArray::insertObject(const Value& value, UInteger index) {
  if (index > items_.size()) raiseIndex("insertObject:atIndex:", index, items_.size() + 1);
  items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(index), value);
}

void MutableArray::removeObjectAtIndex(UInteger index) {
  if (index >= items_.size()) raiseIndex("removeObjectAtIndex:", index, items_.size());
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
}

bool MutableArray::containsObject(const Value& value) const noexcept {
  for (const auto& v : items_) {
    if (v == value) return true;
  }
  return false;
}

MutableDictionary::MutableDictionary(const Dictionary& initial) {
  if (initial.storage_) storage_ = std::make_shared<Dictionary::Storage>(*initial.storage_);
}

Dictionary::Storage& MutableDictionary::mutableStorage() {
  if (!storage_) storage_ = std::make_shared<Dictionary::Storage>();
  return *storage_;
}

UInteger MutableDictionary::count() const noexcept { return storage_ ? storage_->entries.size() : 0; }

const Value& MutableDictionary::objectForKey(const String& key) const noexcept {
  if (!storage_) return nilValue();
  const UInteger at = storage_->find(key);
  return at == Dictionary::Storage::kAbsent ? nilValue() : storage_->entries[at].second;
}

void MutableDictionary::setObject(const Value& value, const String& key) {
  if (value.isNil()) {
    removeObjectForKey(key);
    return;
  }
  mutableStorage().set(key, value);
}

void MutableDictionary::removeObjectForKey(const String& key) {
  if (storage_) storage_->remove(key);
}

void MutableDictionary::addEntriesFromDictionary(const Dictionary& other) {
  for (const auto& [k, v] : other.entries()) setObject(v, k);
}

std::vector<String> MutableDictionary::allKeys() const {
  std::vector<String> keys;
  if (storage_) {
    for (const auto& e : storage_->entries) keys.push_back(e.first);
  }
  return keys;
}

Dictionary MutableDictionary::copy() const {
  Dictionary d;
  d.storage_ = storage_ ? std::make_shared<const Dictionary::Storage>(*storage_)
                        : std::make_shared<const Dictionary::Storage>();
  return d;
}

}  // namespace tq
