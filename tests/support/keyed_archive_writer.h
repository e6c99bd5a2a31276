// A keyed archive written the way the archiver writes one, through libplist (tests that include
// this link it): $objects with class descriptions (each with its $classes chain), and object data
// naming the owner, the top-level objects, the connectors and, when given, the designer's object
// IDs. Plain strings appended before the objects (string()) move them to other places of $objects.
#pragma once

#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace tq::test {

class KeyedArchiveWriter {
 public:
  KeyedArchiveWriter() {
    objects_ = plist_new_array();
    plist_array_append_item(objects_, plist_new_string("$null"));
    owner_ = object("NSCustomObject");
    ref(owner_, "NSClassName", string("NSObject"));
  }
  ~KeyedArchiveWriter() { plist_free(objects_); }
  KeyedArchiveWriter(const KeyedArchiveWriter&) = delete;
  KeyedArchiveWriter& operator=(const KeyedArchiveWriter&) = delete;

  uint64_t owner() const { return owner_; }
  // An object of class cls; `superclasses` (nearest first) go into its class description.
  uint64_t object(const std::string& cls, const std::vector<std::string>& superclasses = {}) {
    if (!classes_.count(cls)) {
      plist_t c = plist_new_dict();
      plist_dict_set_item(c, "$classname", plist_new_string(cls.c_str()));
      plist_t chain = plist_new_array();
      plist_array_append_item(chain, plist_new_string(cls.c_str()));
      for (const auto& s : superclasses) plist_array_append_item(chain, plist_new_string(s.c_str()));
      plist_array_append_item(chain, plist_new_string("NSObject"));
      plist_dict_set_item(c, "$classes", chain);
      plist_array_append_item(objects_, c);
      classes_[cls] = plist_array_get_size(objects_) - 1;
    }
    plist_t d = plist_new_dict();
    plist_dict_set_item(d, "$class", plist_new_uid(classes_[cls]));
    plist_array_append_item(objects_, d);
    return plist_array_get_size(objects_) - 1;
  }
  // An object of class cls whose keys refer to the given objects.
  uint64_t make(const std::string& cls, std::initializer_list<std::pair<const char*, uint64_t>> refs) {
    const uint64_t o = object(cls);
    for (const auto& [key, target] : refs) ref(o, key, target);
    return o;
  }
  uint64_t string(const std::string& s) {
    plist_array_append_item(objects_, plist_new_string(s.c_str()));
    return plist_array_get_size(objects_) - 1;
  }
  void set(uint64_t o, const char* key, plist_t value) {
    plist_dict_set_item(plist_array_get_item(objects_, static_cast<uint32_t>(o)), key, value);
  }
  void ref(uint64_t o, const char* key, uint64_t target) { set(o, key, plist_new_uid(target)); }
  void setObjectId(uint64_t o, uint64_t oid) { oids_.emplace_back(o, oid); }
  uint64_t array(const std::vector<uint64_t>& members, const std::string& cls = "NSMutableArray") {
    const uint64_t a = object(cls);
    plist_t list = plist_new_array();
    for (uint64_t m : members) plist_array_append_item(list, plist_new_uid(m));
    set(a, "NS.objects", list);
    return a;
  }
  // The archive as a property list (owned by the caller).
  plist_t archive(const std::vector<uint64_t>& topLevel, const std::vector<uint64_t>& connectors = {}) {
    const uint64_t data = object("NSIBObjectData");
    ref(data, "NSRoot", owner_);
    ref(data, "NSObjectsKeys", array(topLevel));
    ref(data, "NSObjectsValues", array(std::vector<uint64_t>(topLevel.size(), owner_)));
    ref(data, "NSConnections", array(connectors));
    if (!oids_.empty()) {
      std::vector<uint64_t> keys;
      plist_t numbers = plist_new_array();
      for (const auto& [o, oid] : oids_) keys.push_back(o), plist_array_append_item(numbers, plist_new_uint(oid));
      ref(data, "NSOidsKeys", array(keys));
      const uint64_t values = object("NSMutableArray");
      set(values, "NS.objects", numbers);
      ref(data, "NSOidsValues", values);
    }
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(root, "$version", plist_new_uint(100000));
    plist_t top = plist_new_dict();
    plist_dict_set_item(top, "IB.objectdata", plist_new_uid(data));
    plist_dict_set_item(root, "$top", top);
    plist_dict_set_item(root, "$objects", plist_copy(objects_));
    return root;
  }
  std::string binary(const std::vector<uint64_t>& topLevel, const std::vector<uint64_t>& connectors = {}) {
    return serialized(archive(topLevel, connectors), [](plist_t r, char** b, uint32_t* n) { plist_to_bin(r, b, n); });
  }
  std::string xml(const std::vector<uint64_t>& topLevel, const std::vector<uint64_t>& connectors = {}) {
    return serialized(archive(topLevel, connectors), [](plist_t r, char** b, uint32_t* n) { plist_to_xml(r, b, n); });
  }
  void write(const std::filesystem::path& file, const std::vector<uint64_t>& topLevel,
             const std::vector<uint64_t>& connectors = {}) {
    std::ofstream(file, std::ios::binary) << binary(topLevel, connectors);
  }

 private:
  // The archive's bytes as `to` writes them; the archive is freed.
  template <class Writer>
  static std::string serialized(plist_t root, Writer to) {
    char* bytes = nullptr;
    uint32_t length = 0;
    to(root, &bytes, &length);
    std::string out(bytes, length);
    std::free(bytes);
    plist_free(root);
    return out;
  }

  plist_t objects_;
  uint64_t owner_ = 0;
  std::map<std::string, uint64_t> classes_;
  std::vector<std::pair<uint64_t, uint64_t>> oids_;
};

}  // namespace tq::test
