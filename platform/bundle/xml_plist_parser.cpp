#include "xml_plist_parser.h"

#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>
#include <vector>

namespace tq::detail {
namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isNameChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '.' || c == ':' || static_cast<unsigned char>(c) >= 0x80;
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
  while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
  return s;
}

// A character reference's code point (never a surrogate), through the strings' UTF-8 writer.
void appendUTF8(std::string& out, uint32_t c) {
  char16_t units[2] = {static_cast<char16_t>(c), 0};
  std::size_t count = 1;
  if (c >= 0x10000) {
    units[0] = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    units[1] = static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    count = 2;
  }
  String::appendUTF8(std::u16string_view(units, count), out);
}

int base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// Seconds between 1970-01-01 and the platform's reference date 2001-01-01 (UTC).
constexpr double kReferenceDateOffset = 978307200.0;

struct Failed {};  // unwinds the parser to readValue, which reports error_

class Parser {
 public:
  Parser(std::span<const uint8_t> bytes, const PropertyListLimits& limits)
      : s_(reinterpret_cast<const char*>(bytes.data()), bytes.size()), limits_(limits) {}

  PropertyListResult run() {
    PropertyListResult result;
    try {
      parse();
      result.value = std::move(root_);
    } catch (const Failed&) {
      result.error = std::move(error_);
      result.offset = errorAt_;
    }
    return result;
  }

 private:
  struct Frame {
    bool dictionary;
    std::size_t openedAt;
    std::vector<Value> items;
    std::vector<Dictionary::Entry> entries;
    String key;
    bool haveKey = false;
  };

  [[noreturn]] void fail(std::string message, std::size_t at) {
    error_ = std::move(message);
    errorAt_ = at;
    throw Failed{};
  }

  bool startsWith(std::string_view prefix) const { return s_.substr(pos_, prefix.size()) == prefix; }

  // Moves past the next occurrence of terminator; fails naming what was left open.
  void skipPast(std::string_view terminator, const char* what) {
    std::size_t start = pos_;
    std::size_t end = s_.find(terminator, pos_);
    if (end == std::string_view::npos) fail(std::string("unterminated ") + what, start);
    pos_ = end + terminator.size();
  }

  void skipDoctype() {
    std::size_t start = pos_;
    int brackets = 0;
    for (pos_ += 9; pos_ < s_.size(); ++pos_) {
      char c = s_[pos_];
      if (c == '"' || c == '\'') {
        std::size_t close = s_.find(c, pos_ + 1);
        if (close == std::string_view::npos) break;
        pos_ = close;
      } else if (c == '[') {
        ++brackets;
      } else if (c == ']') {
        --brackets;
      } else if (c == '>' && brackets <= 0) {
        ++pos_;
        return;
      }
    }
    fail("unterminated DOCTYPE", start);
  }

  std::string_view readName() {
    std::size_t start = pos_;
    while (pos_ < s_.size() && isNameChar(s_[pos_])) ++pos_;
    return s_.substr(start, pos_ - start);
  }

  // After "<name": skips attributes up to ">" or "/>"; true for an empty element.
  bool finishStartTag(std::size_t tagStart) {
    while (pos_ < s_.size()) {
      char c = s_[pos_];
      if (c == '>') {
        ++pos_;
        return false;
      }
      if (c == '/' && pos_ + 1 < s_.size() && s_[pos_ + 1] == '>') {
        pos_ += 2;
        return true;
      }
      if (c == '"' || c == '\'') {
        std::size_t close = s_.find(c, pos_ + 1);
        if (close == std::string_view::npos) break;
        pos_ = close + 1;
      } else if (c == '<') {
        fail("'<' inside a tag", pos_);
      } else {
        ++pos_;
      }
    }
    fail("unterminated tag", tagStart);
  }

  void decodeEntity(std::string& out) {
    std::size_t start = pos_;  // at '&'
    std::size_t semi = s_.find(';', pos_);
    if (semi == std::string_view::npos || semi - pos_ > 12) fail("malformed entity reference", start);
    std::string_view name = s_.substr(pos_ + 1, semi - pos_ - 1);
    pos_ = semi + 1;
    if (name == "lt") return out.push_back('<');
    if (name == "gt") return out.push_back('>');
    if (name == "amp") return out.push_back('&');
    if (name == "quot") return out.push_back('"');
    if (name == "apos") return out.push_back('\'');
    if (name.size() >= 2 && name[0] == '#') {
      bool hex = name[1] == 'x' || name[1] == 'X';
      std::string_view digits = name.substr(hex ? 2 : 1);
      uint32_t code = 0;
      auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
      if (ec == std::errc() && end == digits.data() + digits.size() && !digits.empty() && code != 0 &&
          code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF)) {
        return appendUTF8(out, code);
      }
      fail("invalid character reference &" + std::string(name) + ";", start);
    }
    fail("unknown entity &" + std::string(name) + ";", start);
  }

  // The character content of an element up to its end tag, which is consumed.
  std::string_view readText(std::string_view name, std::size_t tagStart, std::string& scratch) {
    std::size_t start = pos_;
    bool plain = true;  // no entity, CDATA or comment: the content is a slice of the input
    scratch.clear();
    while (true) {
      std::size_t special = s_.find_first_of("<&", pos_);
      if (special == std::string_view::npos) fail("unterminated <" + std::string(name) + ">", tagStart);
      if (!plain) scratch.append(s_.substr(pos_, special - pos_));
      pos_ = special;
      if (s_[pos_] == '&') {
        if (plain) {
          scratch.assign(s_.substr(start, pos_ - start));
          plain = false;
        }
        decodeEntity(scratch);
        continue;
      }
      if (startsWith("</")) {
        std::size_t textEnd = pos_;
        pos_ += 2;
        std::string_view closing = readName();
        while (pos_ < s_.size() && isSpace(s_[pos_])) ++pos_;
        if (closing != name || pos_ >= s_.size() || s_[pos_] != '>') {
          fail("expected </" + std::string(name) + ">", textEnd);
        }
        ++pos_;
        return plain ? s_.substr(start, textEnd - start) : std::string_view(scratch);
      }
      if (plain) {
        scratch.assign(s_.substr(start, pos_ - start));
        plain = false;
      }
      if (startsWith("<![CDATA[")) {
        std::size_t open = pos_;
        std::size_t end = s_.find("]]>", pos_ + 9);
        if (end == std::string_view::npos) fail("unterminated CDATA section", open);
        scratch.append(s_.substr(pos_ + 9, end - pos_ - 9));
        pos_ = end + 3;
      } else if (startsWith("<!--")) {
        skipPast("-->", "comment");
      } else {
        fail("element inside <" + std::string(name) + ">", pos_);
      }
    }
  }

  void count(std::size_t at) {
    if (++values_ > limits_.maxValues) {
      fail("more than " + std::to_string(limits_.maxValues) + " values", at);
    }
  }

  void emit(Value value, std::size_t at) {
    if (stack_.empty()) {
      if (haveRoot_) fail("a second value at the top level", at);
      root_ = std::move(value);
      haveRoot_ = true;
      return;
    }
    Frame& top = stack_.back();
    if (!top.dictionary) {
      top.items.push_back(std::move(value));
      return;
    }
    if (!top.haveKey) fail("a value without a <key> in <dict>", at);
    top.entries.emplace_back(std::move(top.key), std::move(value));
    top.key = String();
    top.haveKey = false;
  }

  Value scalar(std::string_view name, std::string_view text, std::size_t at) {
    if (name == "string") return Value(String::fromUTF8(text));
    std::string_view t = trim(text);
    if (name == "integer") {
      bool negative = !t.empty() && t[0] == '-';
      std::string_view digits = (!t.empty() && (t[0] == '-' || t[0] == '+')) ? t.substr(1) : t;
      int base = 10;
      if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        digits.remove_prefix(2);
        base = 16;
      }
      uint64_t magnitude = 0;
      auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
      if (digits.empty() || ec != std::errc() || end != digits.data() + digits.size() ||
          (negative && magnitude > uint64_t{1} << 63)) {
        fail("invalid <integer> '" + std::string(t.substr(0, 40)) + "'", at);
      }
      return negative ? Value(static_cast<long long>(0 - magnitude)) : Value(static_cast<unsigned long long>(magnitude));
    }
    if (name == "real") {
      std::string_view number = (!t.empty() && t[0] == '+') ? t.substr(1) : t;
      double d = 0;
      auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), d);
      if (number.empty() || (ec != std::errc() && ec != std::errc::result_out_of_range) ||
          end != number.data() + number.size()) {
        fail("invalid <real> '" + std::string(t.substr(0, 40)) + "'", at);
      }
      return Value(d);
    }
    if (name == "date") {
      int y, mo, d, h, mi, sec;
      char z = 0;
      int used = 0;
      std::string copy(t.substr(0, 40));
      if (std::sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c%n", &y, &mo, &d, &h, &mi, &sec, &z, &used) != 7 ||
          z != 'Z' || static_cast<std::size_t>(used) != t.size() || mo < 1 || mo > 12 || d < 1 || d > 31 ||
          h > 23 || mi > 59 || sec > 60) {
        fail("invalid <date> '" + copy + "'", at);
      }
      std::tm tm{};
      tm.tm_year = y - 1900;
      tm.tm_mon = mo - 1;
      tm.tm_mday = d;
      tm.tm_hour = h;
      tm.tm_min = mi;
      tm.tm_sec = sec;
      return Value(Date{static_cast<double>(::timegm(&tm)) - kReferenceDateOffset});
    }
    if (name == "data") {
      std::vector<uint8_t> bytes;
      bytes.reserve(text.size() / 4 * 3);
      uint32_t accumulator = 0;
      int bits = 0;
      bool padded = false;
      for (char c : text) {
        if (isSpace(c)) continue;
        if (c == '=') {
          padded = true;
          continue;
        }
        int v = base64Value(c);
        if (v < 0 || padded) fail("invalid base64 in <data>", at);
        accumulator = accumulator << 6 | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
          bits -= 8;
          bytes.push_back(static_cast<uint8_t>(accumulator >> bits));
        }
      }
      return Value(Data::withBytes(bytes.data(), bytes.size()));
    }
    fail("unknown element <" + std::string(name) + ">", at);
  }

  void parse() {
    if (s_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
    std::string scratch;
    while (pos_ < s_.size()) {
      char c = s_[pos_];
      if (c != '<') {
        if (!isSpace(c)) fail("text outside a value", pos_);
        ++pos_;
        continue;
      }
      std::size_t tagStart = pos_;
      if (startsWith("<?")) {
        skipPast("?>", "processing instruction");
        continue;
      }
      if (startsWith("<!--")) {
        skipPast("-->", "comment");
        continue;
      }
      if (startsWith("<!DOCTYPE")) {
        skipDoctype();
        continue;
      }
      if (startsWith("</")) {
        pos_ += 2;
        std::string_view name = readName();
        while (pos_ < s_.size() && isSpace(s_[pos_])) ++pos_;
        if (pos_ >= s_.size() || s_[pos_] != '>') fail("malformed end tag", tagStart);
        ++pos_;
        closeElement(name, tagStart);
        continue;
      }
      ++pos_;
      std::string_view name = readName();
      if (name.empty()) fail("malformed tag", tagStart);
      bool empty = finishStartTag(tagStart);
      openElement(name, empty, tagStart, scratch);
    }
    if (!stack_.empty()) {
      fail(std::string("unterminated <") + (stack_.back().dictionary ? "dict" : "array") + ">", stack_.back().openedAt);
    }
    if (inPlist_) fail("unterminated <plist>", plistAt_);
    if (!haveRoot_) fail("no value in the property list", 0);
  }

  void openElement(std::string_view name, bool empty, std::size_t at, std::string& scratch) {
    if (plistClosed_) fail("content after </plist>", at);
    if (name == "plist") {
      if (inPlist_ || haveRoot_ || !stack_.empty()) fail("<plist> inside a value", at);
      if (!empty) {
        inPlist_ = true;
        plistAt_ = at;
      }
      return;
    }
    count(at);
    if (name == "dict" || name == "array") {
      bool dictionary = name == "dict";
      if (empty) {
        emit(dictionary ? Value(Dictionary::empty()) : Value(Array::empty()), at);
        return;
      }
      if (stack_.size() >= limits_.maxDepth) {
        fail("nested deeper than " + std::to_string(limits_.maxDepth) + " levels", at);
      }
      if (!stack_.empty() && stack_.back().dictionary && !stack_.back().haveKey) {
        fail("a value without a <key> in <dict>", at);
      }
      stack_.push_back(Frame{dictionary, at, {}, {}, String(), false});
      return;
    }
    if (name == "key") {
      if (stack_.empty() || !stack_.back().dictionary) fail("<key> outside <dict>", at);
      if (stack_.back().haveKey) fail("<key> without a value", at);
      String key = empty ? String::empty() : String::fromUTF8(readText(name, at, scratch));
      stack_.back().key = std::move(key);
      stack_.back().haveKey = true;
      return;
    }
    if (name == "true" || name == "false") {
      if (!empty) {
        std::string_view inside = readText(name, at, scratch);
        if (!trim(inside).empty()) fail("text inside <" + std::string(name) + ">", at);
      }
      emit(Value(name == "true"), at);
      return;
    }
    if (name != "string" && name != "integer" && name != "real" && name != "date" && name != "data") {
      fail("unknown element <" + std::string(name) + ">", at);
    }
    std::string_view text = empty ? std::string_view() : readText(name, at, scratch);
    emit(scalar(name, text, at), at);
  }

  void closeElement(std::string_view name, std::size_t at) {
    if (name == "plist") {
      if (!stack_.empty()) {
        fail(std::string("unterminated <") + (stack_.back().dictionary ? "dict" : "array") + ">", stack_.back().openedAt);
      }
      if (!inPlist_) fail("unexpected </plist>", at);
      inPlist_ = false;
      plistClosed_ = true;
      return;
    }
    if ((name != "dict" && name != "array") || stack_.empty() || stack_.back().dictionary != (name == "dict")) {
      fail("unexpected </" + std::string(name) + ">", at);
    }
    Frame frame = std::move(stack_.back());
    stack_.pop_back();
    if (frame.dictionary) {
      if (frame.haveKey) fail("<key> without a value", at);
      emit(Value(Dictionary(std::move(frame.entries))), frame.openedAt);
    } else {
      emit(Value(Array(std::move(frame.items))), frame.openedAt);
    }
  }

  std::string_view s_;
  const PropertyListLimits& limits_;
  std::size_t pos_ = 0;
  std::size_t values_ = 0;
  std::vector<Frame> stack_;
  Value root_;
  bool haveRoot_ = false;
  bool inPlist_ = false;
  bool plistClosed_ = false;
  std::size_t plistAt_ = 0;
  std::string error_;
  std::size_t errorAt_ = 0;
};

}  // namespace

PropertyListResult parseXMLPropertyList(std::span<const uint8_t> bytes, const PropertyListLimits& limits) {
  return Parser(bytes, limits).run();
}

}  // namespace tq::detail
