// The compiled keyed archive saved as an XML property list: the same "$archiver", "$objects" and
// "$top" as the binary form, with each reference written as a dictionary holding only "CF$UID".
//
// The list is read by the bounded XML property-list reader of the bundle platform, whose value
// count is capped by the memory the archive may take; the graph is then built in the same two
// passes as for the binary form (every element's value, then every object's entries), so
// references may point forward or back. Strings are taken as the list holds them: control
// characters written raw stay in the text, as the system's reader keeps them.
#include <string>

#include "../../bundle/xml_plist_parser.h"
#include "keyed_archive.h"
#include "nib_object_data.h"

namespace tq::archive {

namespace {

constexpr int kMaxInlineDepth = 16;
constexpr std::size_t kMaxClassChain = 64;
// What one parsed value may cost before it is turned into the graph (the value, its string or
// dictionary storage), for the bound on the values a list may hold.
constexpr std::size_t kValueCost = 160;

std::string utf8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

class XMLPlistArchiveReader {
 public:
  XMLPlistArchiveReader(std::size_t budget, KeyedArchive& out, ArchiveError& error)
      : budget_(budget), out_(out), error_(error) {}

  bool read(std::string_view bytes) {
    detail::PropertyListLimits limits;
    limits.maxBytes = bytes.size();
    limits.maxValues = budget_ / kValueCost + 64;
    const auto parsed = detail::parseXMLPropertyList(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), limits);
    if (!parsed.ok()) {
      return fail("not a readable property list at offset " + std::to_string(parsed.offset) + ": " + parsed.error);
    }
    if (parsed.value.type() != Value::Type::Dictionary) return fail("the top object is not a dictionary");
    const Dictionary top = parsed.value.dictionaryValue();
    const Value& objects = top.objectForKey(u"$objects");
    const Value& roots = top.objectForKey(u"$top");
    if (objects.type() != Value::Type::Array || roots.type() != Value::Type::Dictionary) {
      return fail("not a keyed archive (no $objects array and $top dictionary)");
    }
    objects_ = objects.arrayValue();
    const std::size_t count = objects_.count();
    values_.assign(count, ArchiveValue{});
    out_.reserve(count, count * 4);

    // Pass 1: the value of every element.
    for (std::size_t i = 0; i < count; ++i) {
      const Value& element = objects_[i];
      if (element.type() == Value::Type::Dictionary) {
        std::string className;
        if (!classOf(element.dictionaryValue(), className)) return false;
        if (!className.empty()) values_[i] = KeyedArchive::object(out_.addObject(className));
      } else if (element.type() != Value::Type::Array) {
        if (i == 0 && element.type() == Value::Type::String && element.stringValue() == String(u"$null")) continue;
        if (!scalar(element, values_[i])) return false;
      }
    }
    // Pass 2: the entries of every object.
    for (std::size_t i = 0; i < count; ++i) {
      if (!values_[i].isObject()) continue;
      if (!fillObject(values_[i].index, objects_[i].dictionaryValue())) return false;
      if (out_.memoryUsed() > budget_) return fail("the archive needs more memory than its size allows");
    }
    out_.prepareLookups();

    const Value& root = roots.dictionaryValue().objectForKey(u"IB.objectdata");
    if (root.isNil()) return fail("not an interface archive ($top has no IB.objectdata)");
    uint64_t index = 0;
    if (!uid(root, index)) return fail("IB.objectdata is not an object reference");
    ArchiveValue rootValue;
    if (!resolve(index, rootValue)) return false;
    if (!rootValue.isObject()) return fail("IB.objectdata does not name an object");
    std::string reason;
    if (!layoutFromObjectData(out_, rootValue.index, reason)) return fail(reason);
    return true;
  }

 private:
  bool fail(std::string reason) {
    error_.reason = std::move(reason);
    return false;
  }

  // A reference: a dictionary whose one key is "CF$UID", with a non-negative integer.
  static bool uid(const Value& v, uint64_t& index) {
    if (v.type() != Value::Type::Dictionary) return false;
    const Dictionary d = v.dictionaryValue();
    if (d.count() != 1) return false;
    const Value& n = d.objectForKey(u"CF$UID");
    if (n.type() != Value::Type::Integer || n.integerValue() < 0) return false;
    index = static_cast<uint64_t>(n.integerValue());
    return true;
  }

  bool resolve(uint64_t index, ArchiveValue& out) {
    if (index >= values_.size()) {
      return fail("reference to object " + std::to_string(index) + " of " + std::to_string(values_.size()));
    }
    out = values_[index];
    return true;
  }

  bool classOf(const Dictionary& dict, std::string& className) {
    className.clear();
    const Value& cls = dict.objectForKey(u"$class");
    if (cls.isNil()) return true;  // a class description itself, or a plain dictionary
    uint64_t index = 0;
    if (!uid(cls, index) || index >= objects_.count()) {
      return fail("an object's $class is not a reference to a class description");
    }
    auto cached = classNames_.find(index);
    if (cached != classNames_.end()) {
      className = cached->second;
      return true;
    }
    const Value& description = objects_[index];
    if (description.type() == Value::Type::Dictionary) {
      const Dictionary d = description.dictionaryValue();
      if (d.objectForKey(u"$classname").type() == Value::Type::String) className = utf8(d.objectForKey(u"$classname").stringValue());
      const Value& chain = d.objectForKey(u"$classes");
      if (chain.type() == Value::Type::Array) {
        std::string previous;
        auto& superclasses = out_.layout().superclasses;
        for (std::size_t i = 0; i < chain.arrayValue().count() && i < kMaxClassChain; ++i) {
          const Value& name = chain.arrayValue()[i];
          if (name.type() != Value::Type::String) break;
          std::string current = utf8(name.stringValue());
          if (!previous.empty() && previous != current && superclasses.size() < ArchiveLayout::kMaxDescribedClasses) {
            superclasses.emplace(previous, current);
          }
          previous = std::move(current);
        }
      }
    }
    if (className.empty()) return fail("object class description " + std::to_string(index) + " has no $classname");
    classNames_.emplace(index, className);
    return true;
  }

  bool scalar(const Value& v, ArchiveValue& out) {
    switch (v.type()) {
      case Value::Type::Nil: out = {}; return true;
      case Value::Type::Boolean: out = KeyedArchive::boolean(v.boolValue()); return true;
      case Value::Type::Integer: out = KeyedArchive::integer(v.integerValue()); return true;
      case Value::Type::Real: out = KeyedArchive::real(v.doubleValue()); return true;
      case Value::Type::Date: out = KeyedArchive::real(v.dateValue().timeIntervalSinceReferenceDate); return true;
      case Value::Type::Data: {
        const Data d = v.dataValue();
        out = out_.addText(std::string_view(reinterpret_cast<const char*>(d.bytes()), d.length()), ArchiveValue::Kind::Data);
        return true;
      }
      case Value::Type::String: out = out_.addText(utf8(v.stringValue())); return true;
      case Value::Type::Dictionary: {
        uint64_t index = 0;
        if (uid(v, index)) return resolve(index, out);
        return fail("a dictionary written inside an object");
      }
      default: return fail("unexpected container where a scalar belongs");
    }
  }

  // A value inside an object: a reference, a scalar, or an inline array (made an object of its own).
  bool entryValue(const Value& v, ArchiveValue& out, int depth) {
    if (v.type() != Value::Type::Array) return scalar(v, out);
    if (depth > kMaxInlineDepth) return fail("arrays nested too deeply");
    std::vector<ArchiveValue> members;
    if (!memberValues(v.arrayValue(), members, depth + 1)) return false;
    const uint32_t list = out_.addObject("NSArray");
    out_.beginEntries(list);
    for (const auto& m : members) out_.addEntry(0, m);
    out_.endEntries(list);
    out = KeyedArchive::object(list);
    return true;
  }

  bool memberValues(const Array& array, std::vector<ArchiveValue>& out, int depth) {
    out.reserve(out.size() + array.count());
    for (const Value& m : array) {
      ArchiveValue v;
      if (!entryValue(m, v, depth)) return false;
      out.push_back(v);
    }
    return true;
  }

  bool fillObject(uint32_t object, const Dictionary& dict) {
    std::vector<std::pair<uint32_t, ArchiveValue>> entries;
    std::vector<ArchiveValue> keys, objects;
    bool haveKeys = false;
    entries.reserve(dict.count());
    for (const auto& [name, value] : dict.entries()) {
      const std::string key = utf8(name);
      if (key == "$class") continue;
      // Collections keep their members unkeyed; dictionaries alternate key and value.
      if ((key == "NS.objects" || key == "NS.keys") && value.type() == Value::Type::Array) {
        if (key == "NS.keys") haveKeys = true;
        if (!memberValues(value.arrayValue(), key == "NS.keys" ? keys : objects, 1)) return false;
        continue;
      }
      ArchiveValue v;
      if (!entryValue(value, v, 1)) return false;
      entries.emplace_back(out_.intern(key), v);
    }
    const std::string fault = out_.addPropertyListEntries(object, entries, haveKeys ? &keys : nullptr, objects);
    return fault.empty() || fail(fault);
  }

  std::size_t budget_;
  KeyedArchive& out_;
  ArchiveError& error_;
  Array objects_;
  std::vector<ArchiveValue> values_;
  std::unordered_map<uint64_t, std::string> classNames_;
};

}  // namespace

bool readKeyedXMLPlistArchive(std::string_view bytes, std::size_t byteBudget, KeyedArchive& out, ArchiveError& error) {
  XMLPlistArchiveReader reader(byteBudget, out, error);
  return reader.read(bytes);
}

}  // namespace tq::archive
