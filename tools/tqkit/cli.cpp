#include "cli.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <cstdint>

#include "byte_stream.h"

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
  appendEscaped(out, s);
  return out;
}

void Json::appendEscaped(std::string& out, std::string_view s) {
  std::size_t plain = 0;  // the start of the run of characters that stand as they are
  for (std::size_t i = 0; i < s.size(); ++i) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(s.substr(plain, i - plain));
    plain = i + 1;
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      default: {
        char buf[8];
        std::snprintf(buf, sizeof buf, "\\u%04x", c);
        out += buf;
      }
    }
  }
  out.append(s.substr(plain));
}

void Json::separate() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!first_.empty()) {
    if (!first_.back()) buffer_ += ',';
    first_.back() = false;
  }
}

Json& Json::beginObject() {
  separate();
  buffer_ += '{';
  first_.push_back(true);
  return *this;
}
Json& Json::endObject() {
  first_.pop_back();
  buffer_ += '}';
  return *this;
}
Json& Json::beginArray() {
  separate();
  buffer_ += '[';
  first_.push_back(true);
  return *this;
}
Json& Json::endArray() {
  first_.pop_back();
  buffer_ += ']';
  return *this;
}
Json& Json::key(std::string_view k) {
  separate();
  buffer_ += '"';
  appendEscaped(buffer_, k);
  buffer_ += "\":";
  afterKey_ = true;
  return *this;
}
Json& Json::string(std::string_view s) {
  separate();
  buffer_ += '"';
  appendEscaped(buffer_, s);
  buffer_ += '"';
  return *this;
}
Json& Json::number(long long n) {
  separate();
  buffer_ += std::to_string(n);
  return *this;
}
Json& Json::number(double d) {
  separate();
  if (std::isfinite(d)) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", d);
    buffer_ += text;
  } else {
    buffer_ += "null";
  }
  return *this;
}
Json& Json::boolean(bool b) {
  separate();
  buffer_ += b ? "true" : "false";
  return *this;
}
Json& Json::null() {
  separate();
  buffer_ += "null";
  return *this;
}
void Json::newline() {
  buffer_ += '\n';
  writeAll(out_, buffer_.data(), buffer_.size());
  buffer_.clear();
  if (std::fflush(out_) != 0) throw Failure(std::string("cannot write the output: ") + std::strerror(errno));
}

std::string readFile(const std::string& path, std::size_t maxBytes) {
  InputStream in(path);
  std::string out;
  // The size of what was opened, where it has one (standard input too, when it is a file).
  std::size_t block = maxBytes < kStreamBlock ? maxBytes + 1 : kStreamBlock;
  if (std::optional<uint64_t> size = in.regularFileSize()) {
    if (*size > maxBytes) {
      throw Failure(path + ": larger than the " + std::to_string(maxBytes >> 20) + " MiB this command reads");
    }
    out.reserve(static_cast<std::size_t>(*size));
  } else {
    // Input of no known size gets room for all it may hold at once: pages are only taken as they
    // are written, and nothing is copied while it grows.
    out.reserve(maxBytes + block);
  }
  while (true) {
    std::size_t at = out.size();
    out.resize(at + block);
    std::size_t n = in.read(out.data() + at, block);
    out.resize(at + n);
    if (n == 0) break;
    if (out.size() > maxBytes) {
      throw Failure(path + ": larger than the " + std::to_string(maxBytes >> 20) + " MiB this command reads");
    }
  }
  return out;
}

void finishStandardOutput() {
  int error = 0;
  bool lost = std::ferror(stdout) != 0;  // an earlier write failed; its reason is gone
  if (std::fflush(stdout) != 0) error = errno;
  if (std::fclose(stdout) != 0 && !error) error = errno;
  if (error) throw Failure(std::string("cannot write the output: ") + std::strerror(error));
  if (lost) throw Failure("cannot write the output: part of it was lost");
}

}  // namespace tq::cli
