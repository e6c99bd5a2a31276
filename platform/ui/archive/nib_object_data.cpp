// The layout of a compiled interface from its object-data root.
#include "nib_object_data.h"

#include <cmath>
#include <unordered_set>

namespace tq::archive {

namespace {

// The members of the collection under `key`, or nothing when the key is absent or not a collection.
std::vector<ArchiveValue> collection(const KeyedArchive& archive, uint32_t root, const char* key) {
  ArchiveValue v = archive.find(root, key);
  if (!v.isObject()) return {};
  return archive.members(v.index);
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

  // Placeholders: custom objects standing for First Responder and the application.
  std::unordered_set<uint32_t> placeholders;
  const std::vector<ArchiveValue> keys = collection(archive, root, "NSObjectsKeys");
  const std::vector<ArchiveValue> parents = collection(archive, root, "NSObjectsValues");
  if (keys.size() != parents.size()) {
    reason = "object data lists " + std::to_string(keys.size()) + " objects but " + std::to_string(parents.size()) +
             " parents";
    return false;
  }
  for (const ArchiveValue& k : keys) {
    if (!k.isObject() || static_cast<int64_t>(k.index) == layout.owner) continue;
    if (archive.className(k.index) != std::string_view("NSCustomObject")) continue;
    std::string name;
    archive.stringOf(archive.find(k.index, "NSClassName"), name);
    if (name == "FirstResponder" || name == "NSApplication") placeholders.insert(k.index);
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!keys[i].isObject()) continue;
    const bool topLevel = parents[i].isObject() && static_cast<int64_t>(parents[i].index) == layout.owner;
    if (topLevel && static_cast<int64_t>(keys[i].index) != layout.owner && !placeholders.count(keys[i].index)) {
      layout.topLevel.push_back(keys[i].index);
    }
  }
  layout.placeholders.assign(placeholders.begin(), placeholders.end());
  for (const ArchiveValue& c : collection(archive, root, "NSConnections")) {
    if (c.isObject()) layout.connectors.push_back(c.index);
  }

  if (archive.find(root, "NSVisibleWindows").isObject()) {
    layout.visibleWindowsKnown = true;
    for (const ArchiveValue& w : collection(archive, root, "NSVisibleWindows")) {
      if (w.isObject()) layout.visibleWindows.push_back(w.index);
    }
  }
  const std::vector<ArchiveValue> oidKeys = collection(archive, root, "NSOidsKeys");
  const std::vector<ArchiveValue> oids = collection(archive, root, "NSOidsValues");
  for (std::size_t i = 0; i < oidKeys.size() && i < oids.size(); ++i) {
    double oid = 0;
    if (oidKeys[i].isObject() && archive.numberOf(oids[i], oid) && std::isfinite(oid) && std::fabs(oid) < 9e15) {
      layout.setIdentifier(oidKeys[i].index, static_cast<int64_t>(oid), archive.objectCount());
    }
  }
  return true;
}

}  // namespace tq::archive
