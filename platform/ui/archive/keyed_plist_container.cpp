// The compiled keyed archive: a binary property list written by a keyed archiver, whose "$objects"
// array holds every object (dictionaries naming their class through "$class") and every shared
// scalar, and whose "$top" names the root under "IB.objectdata".
//
// The graph is built in two passes over "$objects": the first gives every element its value
// (an object of the graph, or the scalar itself), the second fills each object's entries, so
// references may point forward or back and cycles cost nothing. Nothing is followed recursively
// except arrays written inline in an object, whose depth is bounded.
#include <string>

#include "keyed_archive.h"
#include "nib_object_data.h"
#include "tq/platform/bundle/binary_plist.h"

namespace tq::archive {

namespace {

using Kind = BinaryPlist::Kind;
constexpr int kMaxInlineDepth = 16;
constexpr uint64_t kMaxClassChain = 64;
constexpr std::size_t kMaxDescribedClasses = ArchiveLayout::kMaxDescribedClasses;

class PlistArchiveReader {
 public:
  PlistArchiveReader(const BinaryPlist& plist, std::size_t budget, KeyedArchive& out, ArchiveError& error)
      : plist_(plist), budget_(budget), out_(out), error_(error) {}

  bool read() {
    BinaryPlist::Item top;
    if (!item(plist_.topObject(), top)) return false;
    if (top.kind != Kind::Dictionary) return fail("the top object is not a dictionary");
    BinaryPlist::Item objects, roots;
    bool haveObjects = false, haveTop = false;
    for (uint64_t i = 0; i < top.count; ++i) {
      std::string key;
      BinaryPlist::Item value;
      if (!keyAndValue(top, i, key, value)) return false;
      if (key == "$objects") haveObjects = value.kind == Kind::Array, objects = value;
      if (key == "$top") haveTop = value.kind == Kind::Dictionary, roots = value;
    }
    if (!haveObjects || !haveTop) return fail("not a keyed archive (no $objects array and $top dictionary)");
    count_ = objects.count;
    objects_ = objects;
    if (count_ > plist_.objectCount()) return fail("$objects lists more objects than the list holds");
    values_.assign(count_, ArchiveValue{});
    out_.reserve(count_, count_ * 4);

    // Pass 1: the value of every element.
    for (uint64_t i = 0; i < count_; ++i) {
      BinaryPlist::Item element;
      if (!elementItem(i, element)) return false;
      if (element.kind == Kind::Dictionary) {
        std::string className;
        if (!classOf(element, className)) return false;
        if (!className.empty()) values_[i] = KeyedArchive::object(out_.addObject(className));
      } else if (element.kind != Kind::Array && element.kind != Kind::Set) {
        if (i == 0 && (element.kind == Kind::AsciiString || element.kind == Kind::Utf16String) &&
            plist_.text(element) == "$null") {
          continue;  // the archiver's nil
        }
        if (!scalar(element, values_[i])) return false;
      }
    }
    // Pass 2: the entries of every object.
    for (uint64_t i = 0; i < count_; ++i) {
      if (!values_[i].isObject()) continue;
      BinaryPlist::Item element;
      if (!elementItem(i, element) || !fillObject(values_[i].index, element)) return false;
      if (out_.memoryUsed() > budget_) return fail("the archive needs more memory than its size allows");
    }

    out_.prepareLookups();
    // The root: $top -> IB.objectdata.
    for (uint64_t i = 0; i < roots.count; ++i) {
      std::string key;
      BinaryPlist::Item value;
      if (!keyAndValue(roots, i, key, value)) return false;
      if (key != "IB.objectdata") continue;
      if (value.kind != Kind::Uid) return fail("IB.objectdata is not an object reference");
      ArchiveValue root;
      if (!resolveUid(value, root)) return false;
      if (!root.isObject()) return fail("IB.objectdata does not name an object");
      std::string reason;
      if (!layoutFromObjectData(out_, root.index, reason)) return fail(reason);
      return true;
    }
    return fail("not an interface archive ($top has no IB.objectdata)");
  }

 private:
  bool fail(std::string reason) {
    error_.reason = std::move(reason);
    return false;
  }

  bool item(uint64_t ref, BinaryPlist::Item& out) {
    std::string reason;
    if (!plist_.item(ref, out, &reason)) return fail(reason);
    return true;
  }

  bool elementItem(uint64_t i, BinaryPlist::Item& out) {
    uint64_t ref = 0;
    std::string reason;
    if (!plist_.reference(objects_, i, ref, &reason)) return fail(reason);
    return item(ref, out);
  }

  bool keyAndValue(const BinaryPlist::Item& dict, uint64_t i, std::string& key, BinaryPlist::Item& value) {
    uint64_t valueRef = 0;
    return keyAndValue(dict, i, key, value, valueRef);
  }
  bool keyAndValue(const BinaryPlist::Item& dict, uint64_t i, std::string& key, BinaryPlist::Item& value,
                   uint64_t& valueRef) {
    uint64_t keyRef = 0;
    std::string reason;
    if (!plist_.reference(dict, i, keyRef, &reason) || !plist_.reference(dict, dict.count + i, valueRef, &reason)) {
      return fail(reason);
    }
    BinaryPlist::Item k;
    if (!item(keyRef, k)) return false;
    if (k.kind != Kind::AsciiString && k.kind != Kind::Utf16String) return fail("a dictionary key is not a string");
    key = plist_.text(k);
    return item(valueRef, value);
  }

  bool resolveUid(const BinaryPlist::Item& uid, ArchiveValue& out) {
    const auto index = static_cast<uint64_t>(uid.integer);
    if (index >= count_) {
      return fail("reference to object " + std::to_string(index) + " of " + std::to_string(count_));
    }
    out = values_[index];
    return true;
  }

  // The class name of an archived object: "$class" names a dictionary with "$classname". Empty
  // for dictionaries that are class descriptions themselves.
  bool classOf(const BinaryPlist::Item& dict, std::string& className) {
    for (uint64_t i = 0; i < dict.count; ++i) {
      std::string key;
      BinaryPlist::Item value;
      if (!keyAndValue(dict, i, key, value)) return false;
      if (key != "$class") continue;
      if (value.kind != Kind::Uid || static_cast<uint64_t>(value.integer) >= count_) {
        return fail("an object's $class is not a reference to a class description");
      }
      auto cached = classNames_.find(value.integer);
      if (cached != classNames_.end()) {
        className = cached->second;
        return true;
      }
      BinaryPlist::Item description;
      if (!elementItem(static_cast<uint64_t>(value.integer), description)) return false;
      if (description.kind == Kind::Dictionary) {
        for (uint64_t j = 0; j < description.count; ++j) {
          std::string k;
          BinaryPlist::Item v;
          if (!keyAndValue(description, j, k, v)) return false;
          if (k == "$classname" && (v.kind == Kind::AsciiString || v.kind == Kind::Utf16String)) className = plist_.text(v);
          if (k == "$classes" && v.kind == Kind::Array && !classChain(v)) return false;
        }
      }
      if (className.empty()) return fail("object class description " + std::to_string(value.integer) + " has no $classname");
      classNames_.emplace(value.integer, className);
      return true;
    }
    className.clear();
    return true;
  }

  // "$classes": the class and its superclasses, nearest first; each names the next as its
  // superclass (a name described twice keeps its first superclass).
  bool classChain(const BinaryPlist::Item& classes) {
    std::string previous;
    for (uint64_t i = 0; i < classes.count && i < kMaxClassChain; ++i) {
      uint64_t ref = 0;
      std::string reason;
      BinaryPlist::Item name;
      if (!plist_.reference(classes, i, ref, &reason)) return fail(reason);
      if (!item(ref, name)) return false;
      if (name.kind != Kind::AsciiString && name.kind != Kind::Utf16String) return true;
      std::string current = plist_.text(name);
      auto& superclasses = out_.layout().superclasses;
      if (!previous.empty() && previous != current && superclasses.size() < kMaxDescribedClasses) {
        superclasses.emplace(previous, current);
      }
      previous = std::move(current);
    }
    return true;
  }

  bool scalar(const BinaryPlist::Item& item, ArchiveValue& out) {
    switch (item.kind) {
      case Kind::Null: out = {}; return true;
      case Kind::Bool: out = KeyedArchive::boolean(item.boolean); return true;
      case Kind::Integer: out = KeyedArchive::integer(item.integer); return true;
      case Kind::Real:
      case Kind::Date: out = KeyedArchive::real(item.real); return true;
      case Kind::Data: out = out_.addText(plist_.bytes(item), ArchiveValue::Kind::Data); return true;
      case Kind::AsciiString:
      case Kind::Utf16String: out = out_.addText(plist_.text(item)); return true;
      case Kind::Uid: return resolveUid(item, out);
      default: return fail("unexpected container where a scalar belongs");
    }
  }

  // A value inside an object: a reference, a scalar, or an inline array (made an object of its own,
  // once: an array written in several places, or inside itself, is converted a single time).
  bool entryValue(uint64_t ref, const BinaryPlist::Item& item, ArchiveValue& out, int depth) {
    if (item.kind == Kind::Array || item.kind == Kind::Set) {
      auto done = inlineArrays_.find(ref);
      if (done != inlineArrays_.end()) {
        if (done->second.kind == ArchiveValue::Kind::Nil) return fail("an array contains itself");
        out = done->second;
        return true;
      }
      if (depth > kMaxInlineDepth) return fail("arrays nested too deeply");
      inlineArrays_.emplace(ref, ArchiveValue{});  // in progress
      std::vector<ArchiveValue> members;
      if (!memberValues(item, members, depth + 1)) return false;
      const uint32_t list = out_.addObject(item.kind == Kind::Set ? "NSSet" : "NSArray");
      out_.beginEntries(list);
      for (const auto& m : members) out_.addEntry(0, m);
      out_.endEntries(list);
      out = KeyedArchive::object(list);
      inlineArrays_[ref] = out;
      return true;
    }
    if (item.kind == Kind::Dictionary) return fail("a dictionary written inside an object");
    return scalar(item, out);
  }

  bool memberValues(const BinaryPlist::Item& array, std::vector<ArchiveValue>& out, int depth) {
    out.reserve(out.size() + array.count);
    for (uint64_t i = 0; i < array.count; ++i) {
      uint64_t ref = 0;
      std::string reason;
      if (!plist_.reference(array, i, ref, &reason)) return fail(reason);
      BinaryPlist::Item m;
      if (!item(ref, m)) return false;
      ArchiveValue v;
      if (!entryValue(ref, m, v, depth)) return false;
      out.push_back(v);
    }
    return true;
  }

  bool fillObject(uint32_t object, const BinaryPlist::Item& dict) {
    std::vector<std::pair<uint32_t, ArchiveValue>> entries;
    std::vector<ArchiveValue> keys, objects;
    bool haveKeys = false;
    entries.reserve(dict.count);
    for (uint64_t i = 0; i < dict.count; ++i) {
      std::string key;
      BinaryPlist::Item value;
      uint64_t valueRef = 0;
      if (!keyAndValue(dict, i, key, value, valueRef)) return false;
      if (key == "$class") continue;
      // Collections keep their members unkeyed; dictionaries alternate key and value.
      if ((key == "NS.objects" || key == "NS.keys") && (value.kind == Kind::Array || value.kind == Kind::Set)) {
        auto& target = key == "NS.keys" ? keys : objects;
        if (key == "NS.keys") haveKeys = true;
        if (!memberValues(value, target, 1)) return false;
        continue;
      }
      ArchiveValue v;
      if (!entryValue(valueRef, value, v, 1)) return false;
      entries.emplace_back(out_.intern(key), v);
    }
    const std::string fault = out_.addPropertyListEntries(object, entries, haveKeys ? &keys : nullptr, objects);
    return fault.empty() || fail(fault);
  }

  const BinaryPlist& plist_;
  std::size_t budget_;
  KeyedArchive& out_;
  ArchiveError& error_;
  BinaryPlist::Item objects_;
  uint64_t count_ = 0;
  std::vector<ArchiveValue> values_;
  std::unordered_map<int64_t, std::string> classNames_;
  std::unordered_map<uint64_t, ArchiveValue> inlineArrays_;  // by list reference; Nil while converting
};

}  // namespace

bool readKeyedPlistArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error) {
  std::string reason;
  auto plist = BinaryPlist::open(bytes, &reason);
  if (!plist) {
    error.reason = reason;
    return false;
  }
  PlistArchiveReader reader(*plist, byteBudget, out, error);
  return reader.read();
}

}  // namespace tq::archive
