// The layout of a compiled interface from its object-data root.
#include "nib_object_data.h"

#include <cmath>
#include <vector>

namespace tq::archive {

namespace {

// The unkeyed members of the collection under `key`, walked in place: empty when the key is absent
// or not a collection.
struct Members {
  const ArchiveEntry* at = nullptr;
  const ArchiveEntry* end = nullptr;
  // The next member, or nullptr after the last.
  const ArchiveValue* next() {
    for (; at != end; ++at) {
      if (at->key == 0) return &(at++)->value;
    }
    return nullptr;
  }
  std::size_t count() const {
    std::size_t n = 0;
    for (const ArchiveEntry* e = at; e != end; ++e) n += e->key == 0;
    return n;
  }
};

Members collection(const KeyedArchive& archive, uint32_t root, const char* key) {
  ArchiveValue v = archive.find(root, key);
  if (!v.isObject()) return {};
  return {archive.begin(v.index), archive.end(v.index)};
}

}  // namespace

bool layoutFromObjectData(KeyedArchive& archive, uint32_t root, std::string& reason) {
  if (archive.className(root) != "NSIBObjectData") {
    reason = "the root object is a " + std::string(archive.className(root)) + ", not interface object data";
    return false;
  }
  ArchiveLayout& layout = archive.layout();
  ArchiveValue owner = archive.find(root, "NSRoot");
  if (owner.isObject()) layout.owner = owner.index;

  // Placeholders: custom objects standing for First Responder and the application, each listed once.
  const Members keys = collection(archive, root, "NSObjectsKeys");
  const Members parents = collection(archive, root, "NSObjectsValues");
  std::vector<bool> placeholder(archive.objectCount());
  for (Members k = keys; const ArchiveValue* v = k.next();) {
    if (!v->isObject() || static_cast<int64_t>(v->index) == layout.owner || placeholder[v->index]) continue;
    if (archive.className(v->index) != std::string_view("NSCustomObject")) continue;
    std::string_view name;
    if (!archive.textOf(archive.find(v->index, "NSClassName"), name)) continue;
    if (name == "FirstResponder" || name == "NSApplication") {
      placeholder[v->index] = true;
      layout.placeholders.push_back(v->index);
    }
  }
  // The objects whose parent is the owner, the two lists walked together (and counted to their ends).
  std::size_t keyCount = 0, parentCount = 0;
  for (Members k = keys, p = parents;;) {
    const ArchiveValue* key = k.next();
    const ArchiveValue* parent = p.next();
    keyCount += key != nullptr;
    parentCount += parent != nullptr;
    if (!key || !parent) {
      keyCount += k.count();
      parentCount += p.count();
      break;
    }
    if (!key->isObject()) continue;
    const bool topLevel = parent->isObject() && static_cast<int64_t>(parent->index) == layout.owner;
    if (topLevel && static_cast<int64_t>(key->index) != layout.owner && !placeholder[key->index]) {
      layout.topLevel.push_back(key->index);
    }
  }
  if (keyCount != parentCount) {
    reason = "object data lists " + std::to_string(keyCount) + " objects but " + std::to_string(parentCount) + " parents";
    return false;
  }
  Members connections = collection(archive, root, "NSConnections");
  layout.connectors.reserve(connections.count());
  for (Members c = connections; const ArchiveValue* v = c.next();) {
    if (v->isObject()) layout.connectors.push_back(v->index);
  }

  if (archive.find(root, "NSVisibleWindows").isObject()) {
    layout.visibleWindowsKnown = true;
    for (Members w = collection(archive, root, "NSVisibleWindows"); const ArchiveValue* v = w.next();) {
      if (v->isObject()) layout.visibleWindows.push_back(v->index);
    }
  }
  for (Members k = collection(archive, root, "NSOidsKeys"), o = collection(archive, root, "NSOidsValues");;) {
    const ArchiveValue* key = k.next();
    const ArchiveValue* oid = o.next();
    if (!key || !oid) break;
    double n = 0;
    if (key->isObject() && archive.numberOf(*oid, n) && std::isfinite(n) && std::fabs(n) < 9e15) {
      layout.setIdentifier(key->index, static_cast<int64_t>(n), archive.objectCount());
    }
  }
  return true;
}

}  // namespace tq::archive
