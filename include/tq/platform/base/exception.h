// Exceptions and the assertion handler: how broken programming contracts are reported.
//
// Missing data is never an exception in tqkit (it is nil, 0, false or NotFound). A broken contract
// (an argument outside a method's domain, an index out of range) raises a tq::Exception carrying a
// name such as NSInvalidArgumentException and a reason. Contract checks inside tqkit's classes go
// through AssertionHandler, whose exceptions name the method, the object's class, the source file
// and the line together with the description.
#pragma once

#include <exception>
#include <string>

#include "tq/platform/base/string.h"
#include "tq/platform/base/value.h"

namespace tq {

class Object;

// Exception names, with the platform's values.
inline constexpr const char16_t* NSInvalidArgumentException = u"NSInvalidArgumentException";
inline constexpr const char16_t* NSInternalInconsistencyException = u"NSInternalInconsistencyException";
inline constexpr const char16_t* NSRangeException = u"NSRangeException";
inline constexpr const char16_t* NSGenericException = u"NSGenericException";

class Exception : public std::exception {
 public:
  Exception(String name, String reason, Dictionary userInfo = {});

  const String& name() const noexcept { return name_; }
  const String& reason() const noexcept { return reason_; }
  // For assertion failures: "method", "class", "file", "line" and "description".
  const Dictionary& userInfo() const noexcept { return userInfo_; }
  // "NAME: REASON" in UTF-8.
  const char* what() const noexcept override { return what_.c_str(); }

  // Throws Exception(name, reason).
  [[noreturn]] static void raise(const String& name, const String& reason);

 private:
  String name_;
  String reason_;
  Dictionary userInfo_;
  std::string what_;
};

// The per-thread assertion handler. Every failure raises NSInternalInconsistencyException whose
// reason reads
//   "*** Assertion failure in -[CLASS METHOD], FILE:LINE: DESCRIPTION"
// (for functions: "*** Assertion failure in FUNCTION(), FILE:LINE: DESCRIPTION"), and whose user
// info holds the parts one by one.
class AssertionHandler {
 public:
  // The calling thread's handler.
  static AssertionHandler& currentHandler();

  // method: the selector-style name ("typeOfIP:"); object: the receiver (its className() is used;
  // nil gives "(null)"); file: the source file's name.
  [[noreturn]] void handleFailureInMethod(const String& method, const Object* object, const String& file,
                                          Integer line, const String& description);
  // The same for a receiver known only by its class name (class methods, non-Object types).
  [[noreturn]] void handleFailureInMethod(const String& method, const String& className, const String& file,
                                          Integer line, const String& description);
  [[noreturn]] void handleFailureInFunction(const String& function, const String& file, Integer line,
                                            const String& description);
};

namespace detail {
// The last path component of a __FILE__ value, at compile time.
constexpr const char* sourceFileName(const char* path) {
  const char* name = path;
  for (const char* p = path; *p; ++p) {
    if (*p == '/') name = p + 1;
  }
  return name;
}
}  // namespace detail

}  // namespace tq

// Checks a contract inside a member function of a tq::Object subclass; on failure raises through the
// current assertion handler naming METHOD (a selector-style string literal), this object, the source
// file and the line.
#define TQ_ASSERT_METHOD(condition, method, description)                                          \
  do {                                                                                            \
    if (!(condition)) {                                                                           \
      ::tq::AssertionHandler::currentHandler().handleFailureInMethod(                             \
          u##method, this, ::tq::String::fromUTF8(::tq::detail::sourceFileName(__FILE__)), __LINE__, \
          description);                                                                           \
    }                                                                                             \
  } while (0)
