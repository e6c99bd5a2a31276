#include "cli.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace tq::cli {

namespace {
std::vector<Command>& commandList() {
  static std::vector<Command> list;
  return list;
}
std::vector<DemoSection>& demoList() {
  static std::vector<DemoSection> list;
  return list;
}
}  // namespace

Registration::Registration(Command command) { commandList().push_back(std::move(command)); }

const std::vector<Command>& commands() {
  auto& list = commandList();
  std::sort(list.begin(), list.end(), [](const Command& a, const Command& b) { return a.name < b.name; });
  return list;
}

DemoRegistration::DemoRegistration(DemoSection section) { demoList().push_back(std::move(section)); }

const std::vector<DemoSection>& demoSections() {
  auto& list = demoList();
  std::sort(list.begin(), list.end(), [](const DemoSection& a, const DemoSection& b) {
    return a.order != b.order ? a.order < b.order : a.title < b.title;
  });
  return list;
}

Args::Args(const std::vector<std::string>& argv, const std::vector<std::string>& valueFlags,
           const std::vector<std::string>& boolFlags) {
  auto known = [](const std::vector<std::string>& list, const std::string& f) {
    return std::find(list.begin(), list.end(), f) != list.end();
  };
  bool flagsDone = false;
  for (std::size_t i = 0; i < argv.size(); ++i) {
    const std::string& a = argv[i];
    if (flagsDone || a.size() < 2 || a[0] != '-' || a[1] != '-') {
      positionals_.push_back(a);
      continue;
    }
    if (a == "--") {
      flagsDone = true;
      continue;
    }
    std::string name = a.substr(2), value;
    bool inlineValue = false;
    if (auto eq = name.find('='); eq != std::string::npos) {
      value = name.substr(eq + 1);
      name = name.substr(0, eq);
      inlineValue = true;
    }
    if (known(valueFlags, name)) {
      if (!inlineValue) {
        if (i + 1 >= argv.size()) throw UsageError("--" + name + " needs a value");
        value = argv[++i];
      }
      flags_[name] = value;
    } else if (known(boolFlags, name)) {
      if (inlineValue) throw UsageError("--" + name + " takes no value");
      flags_[name] = "";
    } else {
      throw UsageError("unknown option --" + name);
    }
  }
}

std::optional<std::string> Args::value(const std::string& flag) const {
  auto it = flags_.find(flag);
  if (it == flags_.end()) return std::nullopt;
  return it->second;
}

const std::string& Args::positional(std::size_t index, const char* what) const {
  if (index >= positionals_.size()) throw UsageError(std::string("missing ") + what);
  return positionals_[index];
}

void Args::expectPositionals(std::size_t min, std::size_t max) const {
  if (positionals_.size() < min) throw UsageError("too few arguments");
  if (positionals_.size() > max) throw UsageError("unexpected argument '" + positionals_[max] + "'");
}

// --- Json ------------------------------------------------------------------------------------------

std::string Json::escape(std::string_view s) {
  std::string out;
  out.reserve(s.size() + 2);
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

void Json::separate() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!first_.empty()) {
    if (!first_.back()) std::fputc(',', out_);
    first_.back() = false;
  }
}

Json& Json::beginObject() {
  separate();
  std::fputc('{', out_);
  first_.push_back(true);
  return *this;
}
Json& Json::endObject() {
  first_.pop_back();
  std::fputc('}', out_);
  return *this;
}
Json& Json::beginArray() {
  separate();
  std::fputc('[', out_);
  first_.push_back(true);
  return *this;
}
Json& Json::endArray() {
  first_.pop_back();
  std::fputc(']', out_);
  return *this;
}
Json& Json::key(std::string_view k) {
  separate();
  std::fprintf(out_, "\"%s\":", escape(k).c_str());
  afterKey_ = true;
  return *this;
}
Json& Json::string(std::string_view s) {
  separate();
  std::fprintf(out_, "\"%s\"", escape(s).c_str());
  return *this;
}
Json& Json::number(long long n) {
  separate();
  std::fprintf(out_, "%lld", n);
  return *this;
}
Json& Json::number(double d) {
  separate();
  if (std::isfinite(d)) {
    std::fprintf(out_, "%.17g", d);
  } else {
    std::fputs("null", out_);
  }
  return *this;
}
Json& Json::boolean(bool b) {
  separate();
  std::fputs(b ? "true" : "false", out_);
  return *this;
}
Json& Json::null() {
  separate();
  std::fputs("null", out_);
  return *this;
}
void Json::newline() {
  std::fputc('\n', out_);
  std::fflush(out_);
}

std::string readFile(const std::string& path) {
  if (path == "-") {
    std::ostringstream ss;
    ss << std::cin.rdbuf();
    return ss.str();
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(path + ": " + std::strerror(errno));
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace tq::cli
