#include "tq/platform/base/exception.h"

#include "tq/platform/base/object.h"

namespace tq {

Exception::Exception(String name, String reason, Dictionary userInfo)
    : name_(std::move(name)), reason_(std::move(reason)), userInfo_(std::move(userInfo)) {
  what_ = name_.UTF8String() + ": " + reason_.UTF8String();
}

void Exception::raise(const String& name, const String& reason) { throw Exception(name, reason); }

AssertionHandler& AssertionHandler::currentHandler() {
  thread_local AssertionHandler handler;
  return handler;
}

namespace {

[[noreturn]] void fail(const String& where, const String& method, const String& className, const String& file,
                       Integer line, const String& description) {
  std::string reason = "*** Assertion failure in " + where.UTF8String() + ", " + file.UTF8String() + ":" +
                       std::to_string(line) + ": " + description.UTF8String();
  MutableDictionary info;
  info.setObject(method, u"method");
  if (className) info.setObject(className, u"class");
  info.setObject(file, u"file");
  info.setObject(Value(static_cast<long long>(line)), u"line");
  info.setObject(description, u"description");
  throw Exception(NSInternalInconsistencyException, String::fromUTF8(reason), info.copy());
}

}  // namespace

void AssertionHandler::handleFailureInMethod(const String& method, const Object* object, const String& file,
                                             Integer line, const String& description) {
  handleFailureInMethod(method, object ? object->className() : String(u"(null)"), file, line, description);
}

void AssertionHandler::handleFailureInMethod(const String& method, const String& className, const String& file,
                                             Integer line, const String& description) {
  String where = String::fromUTF8("-[" + className.UTF8String() + " " + method.UTF8String() + "]");
  fail(where, method, className, file, line, description);
}

void AssertionHandler::handleFailureInFunction(const String& function, const String& file, Integer line,
                                               const String& description) {
  fail(String::fromUTF8(function.UTF8String() + "()"), function, String(), file, line, description);
}

}  // namespace tq
