// ClassRegistry: factories by class name, through which interface archives make objects of the
// host's own classes (a "TQTextFieldCell" cell, an "InfoTextField" field, a controller class).
//
// When an archive names a custom class, the reader asks the registry for it. The object made must
// be of the class the archived element stands for (a cell for a cell element, a view for a view
// element...); otherwise, and when no factory is registered, the reader falls back to that base
// class and records the custom name in customClassName().
//
// Threads: register at start-up; lookups from the thread that reads archives.
#pragma once

#include <functional>
#include <memory>
#include <unordered_map>

#include "tq/platform/base/string.h"
#include "tq/platform/ui/model/interface_object.h"

namespace tq {

class ClassRegistry {
 public:
  using Factory = std::function<std::shared_ptr<InterfaceObject>()>;

  // The process-wide registry archives use unless a load names another.
  static ClassRegistry& shared();

  // Registers (or replaces) the factory for the class name.
  void registerClass(const String& className, Factory factory);
  template <class T>
  void registerClass(const String& className) {
    registerClass(className, [] { return std::make_shared<T>(); });
  }
  void unregisterClass(const String& className);
  bool hasClass(const String& className) const { return factories_.count(className) != 0; }
  // A new object of the class, or nullptr when none is registered (or the factory gave none).
  std::shared_ptr<InterfaceObject> makeObject(const String& className) const;

 private:
  std::unordered_map<String, Factory> factories_;
};

}  // namespace tq
