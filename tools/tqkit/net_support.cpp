#include "net_support.h"

#include <cstring>

namespace tq::cli::net {

std::shared_ptr<LinuxNetworkStore> openStore(StoreConnection::Callout callout) {
  auto store = LinuxNetworkStore::create(u"tqkit", std::move(callout));
  if (!store) throw Failure(std::string("cannot open the kernel's network state (rtnetlink): ") + std::strerror(errno));
  return store;
}

namespace {
std::string hex(const Data& d) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (uint8_t b : d.span()) {
    out += digits[b >> 4];
    out += digits[b & 15];
  }
  return out;
}
}  // namespace

void writeJson(Json& json, const Value& value) {
  switch (value.type()) {
    case Value::Type::Nil: json.null(); break;
    case Value::Type::String: json.string(value.stringValue().UTF8String()); break;
    case Value::Type::Integer: json.number(static_cast<long long>(value.integerValue())); break;
    case Value::Type::Real: json.number(value.doubleValue()); break;
    case Value::Type::Boolean: json.boolean(value.boolValue()); break;
    case Value::Type::Data: json.string(hex(value.dataValue())); break;
    case Value::Type::Array:
      json.beginArray();
      for (const Value& v : value.arrayValue()) writeJson(json, v);
      json.endArray();
      break;
    case Value::Type::Dictionary:
      json.beginObject();
      for (const auto& [k, v] : value.dictionaryValue().entries()) {
        json.key(k.UTF8String());
        writeJson(json, v);
      }
      json.endObject();
      break;
    default: json.string(value.description().UTF8String()); break;
  }
}

std::string text(const Value& value) {
  std::string s = value.description().UTF8String();
  std::string out;
  bool blank = false;
  for (char c : s) {  // one line: runs of white space become one blank
    if (c == '\n' || c == '\t' || c == ' ') {
      blank = true;
      continue;
    }
    if (blank && !out.empty()) out += ' ';
    blank = false;
    out += c;
  }
  return out;
}

}  // namespace tq::cli::net
