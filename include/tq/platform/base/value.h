// Property-list values: Value (one of string, integer, real, boolean, data, date, array,
// dictionary, or any Object), Array and Dictionary.
//
// All three are immutable handles with shared storage; a default one is nil. Asking nil (or a
// value of another kind) for a kind answers nil, 0 or false, as messages to nil did:
//   dict.objectForKey(u"Active").boolValue()   // false when absent
// MutableArray and MutableDictionary build them.
//
// Equality is deep. Integers, reals and booleans compare by number (1 == 1.0 == true), as the
// platform's numbers did; Objects compare with Object::isEqual.
// Threads: immutable values may be read from any number of threads at once.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "tq/platform/base/data.h"
#include "tq/platform/base/object.h"
#include "tq/platform/base/string.h"

namespace tq {

class Array;
class Dictionary;
class Value;

// A moment, as seconds since 2001-01-01 00:00:00 UTC (the platform's reference date).
struct Date {
  double timeIntervalSinceReferenceDate = 0;
  static Date now();
  friend bool operator==(const Date&, const Date&) = default;
};

class Array {
 public:
  Array() noexcept = default;  // nil
  Array(std::initializer_list<Value> values);
  explicit Array(std::vector<Value> values);
  static Array empty();
  // An array of strings.
  static Array withStrings(const std::vector<String>& strings);

  bool isNil() const noexcept { return !items_; }
  explicit operator bool() const noexcept { return static_cast<bool>(items_); }
  UInteger count() const noexcept;
  // NSRangeException when index >= count.
  const Value& objectAtIndex(UInteger index) const;
  const Value& operator[](UInteger index) const { return objectAtIndex(index); }
  const Value& firstObject() const noexcept;  // nil when empty
  const Value& lastObject() const noexcept;
  bool containsObject(const Value& value) const noexcept;
  UInteger indexOfObject(const Value& value) const noexcept;  // NotFound when absent
  Array arrayByAddingObject(const Value& value) const;
  // The strings among the elements, in order.
  std::vector<String> strings() const;
  const std::vector<Value>& values() const noexcept;

  std::vector<Value>::const_iterator begin() const noexcept;
  std::vector<Value>::const_iterator end() const noexcept;

  friend bool operator==(const Array& a, const Array& b) noexcept;
  bool isIdenticalTo(const Array& other) const noexcept { return items_ && items_ == other.items_; }

 private:
  std::shared_ptr<const std::vector<Value>> items_;
};

class Dictionary {
 public:
  using Entry = std::pair<String, Value>;

  Dictionary() noexcept = default;  // nil
  Dictionary(std::initializer_list<Entry> entries);
  explicit Dictionary(std::vector<Entry> entries);  // a later duplicate key replaces the earlier
  static Dictionary empty();

  bool isNil() const noexcept { return !storage_; }
  explicit operator bool() const noexcept { return static_cast<bool>(storage_); }
  UInteger count() const noexcept;
  // The value for the key; a nil Value when absent.
  const Value& objectForKey(const String& key) const noexcept;
  // Keys in insertion order.
  std::vector<String> allKeys() const;
  // Entries in insertion order.
  const std::vector<Entry>& entries() const noexcept;
  Dictionary dictionaryBySettingObject(const String& key, const Value& value) const;

  friend bool operator==(const Dictionary& a, const Dictionary& b) noexcept;
  bool isIdenticalTo(const Dictionary& other) const noexcept { return storage_ && storage_ == other.storage_; }

 private:
  friend class MutableDictionary;
  struct Storage;
  std::shared_ptr<const Storage> storage_;
};

class Value {
 public:
  enum class Type { Nil, String, Integer, Real, Boolean, Data, Date, Array, Dictionary, Object };

  Value() noexcept = default;  // nil
  Value(std::nullptr_t) noexcept {}
  Value(String s);
  Value(const char16_t* s) : Value(String(s)) {}
  Value(const char*) = delete;  // say String::fromUTF8 explicitly
  Value(bool b) : v_(b) {}
  Value(int i) : v_(static_cast<int64_t>(i)) {}
  Value(unsigned i) : v_(static_cast<int64_t>(i)) {}
  Value(long i) : v_(static_cast<int64_t>(i)) {}
  Value(long long i) : v_(static_cast<int64_t>(i)) {}
  Value(unsigned long i) : v_(static_cast<int64_t>(i)) {}
  Value(unsigned long long i) : v_(static_cast<int64_t>(i)) {}
  Value(double d) : v_(d) {}
  Value(Data d);
  Value(Date d) : v_(d) {}
  Value(Array a);
  Value(Dictionary d);
  Value(std::shared_ptr<Object> o);
  template <class T, class = std::enable_if_t<std::is_base_of_v<Object, T>>>
  Value(std::shared_ptr<T> o) : Value(std::static_pointer_cast<Object>(std::move(o))) {}

  Type type() const noexcept { return static_cast<Type>(v_.index()); }
  bool isNil() const noexcept { return type() == Type::Nil; }
  explicit operator bool() const noexcept { return !isNil(); }
  bool isNumber() const noexcept {
    return type() == Type::Integer || type() == Type::Real || type() == Type::Boolean;
  }

  // Kind accessors: nil (or 0, false) when the value is of another kind.
  String stringValue() const;      // strings only
  Data dataValue() const;          // data only
  Array arrayValue() const;        // arrays only
  Dictionary dictionaryValue() const;
  std::shared_ptr<Object> objectValue() const;
  template <class T>
  std::shared_ptr<T> objectValue() const {
    return std::dynamic_pointer_cast<T>(objectValue());
  }
  Date dateValue() const;
  // Numbers: integer, real (truncated) or boolean (0/1); anything else 0.
  int64_t integerValue() const noexcept;
  int intValue() const noexcept { return static_cast<int>(integerValue()); }
  double doubleValue() const noexcept;
  // Numbers: non-zero; anything else false.
  bool boolValue() const noexcept;

  // A readable text in the old property-list style: strings quoted when needed, data as <0a1b>,
  // arrays as ( ... ), dictionaries as { key = value; }. nil gives "(null)".
  String description() const;

  friend bool operator==(const Value& a, const Value& b) noexcept;
  friend bool operator!=(const Value& a, const Value& b) noexcept { return !(a == b); }

 private:
  std::variant<std::monostate, String, int64_t, double, bool, Data, Date, Array, Dictionary,
               std::shared_ptr<Object>>
      v_;
};

class MutableArray {
 public:
  MutableArray() = default;
  explicit MutableArray(const Array& initial);
  UInteger count() const noexcept { return items_.size(); }
  const Value& objectAtIndex(UInteger index) const;
  void addObject(const Value& value) { items_.push_back(value); }
  void addObjectsFromArray(const Array& array);
  void insertObject(const Value& value, UInteger index);
  void removeObjectAtIndex(UInteger index);
  void removeAllObjects() { items_.clear(); }
  bool containsObject(const Value& value) const noexcept;
  std::vector<Value>& values() noexcept { return items_; }
  Array copy() const { return Array(items_); }

 private:
  std::vector<Value> items_;
};

class MutableDictionary {
 public:
  MutableDictionary() = default;
  explicit MutableDictionary(const Dictionary& initial);
  UInteger count() const noexcept;
  const Value& objectForKey(const String& key) const noexcept;
  // A nil value removes the key.
  void setObject(const Value& value, const String& key);
  void removeObjectForKey(const String& key);
  void addEntriesFromDictionary(const Dictionary& other);
  std::vector<String> allKeys() const;
  Dictionary copy() const;

 private:
  std::shared_ptr<Dictionary::Storage> storage_;
  Dictionary::Storage& mutableStorage();
};

}  // namespace tq
