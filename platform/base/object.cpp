#include "tq/platform/base/object.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <typeinfo>

namespace tq {

Object::~Object() = default;

String Object::className() const {
  const char* mangled = typeid(*this).name();
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled) ? demangled : mangled;
  std::free(demangled);
  // Strip namespaces (but not template arguments' ones).
  std::size_t lt = name.find('<');
  std::size_t colon = name.rfind("::", lt);
  if (colon != std::string::npos) name = name.substr(colon + 2);
  return String::fromUTF8(name);
}

String Object::description() const {
  char buf[64];
  std::snprintf(buf, sizeof buf, ": %p>", static_cast<const void*>(this));
  // Appended piece by piece: `"<" + std::string&&` trips a false -Wrestrict in GCC 12.
  std::string text(1, '<');
  text += className().UTF8String();
  text += buf;
  return String::fromUTF8(text);
}

}  // namespace tq
