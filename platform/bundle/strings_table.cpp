// Strings-table reader: a hand-written scanner for the text form, the bounded property-list
// readers for the plist forms.
#include "tq/platform/bundle/strings_table.h"

#include "plist_reader.h"

#include <cstdio>
#include <cstring>
#include <string_view>

namespace tq {
namespace {

constexpr std::size_t kMaxTableBytes = kStringsTableMaxBytes;
constexpr std::size_t kMaxEntries = kStringsTableMaxEntries;

bool isWordCharacter(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_' ||
         c == u'.' || c == u'-' || c == u':' || c == u'/' || c == u'$';
}

int hexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// A character for an error message: 'x' for printable ASCII, U+XXXX otherwise.
std::string describe(char16_t c) {
  if (c > 0x20 && c < 0x7F) return std::string("'") + static_cast<char>(c) + "'";
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "U+%04X", static_cast<unsigned>(c));
  return buffer;
}

class TextParser {
 public:
  explicit TextParser(std::u16string_view text) : text_(text) {}

  StringsTableResult run() {
    StringsTableResult result;
    while (true) {
      if (!skipSpace()) return fail(result);
      if (pos_ >= text_.size()) break;
      String key;
      if (!readString(key, "a key")) return fail(result);
      if (!skipSpace()) return fail(result);
      String value;
      if (pos_ < text_.size() && text_[pos_] == u'=') {
        ++pos_;
        if (!skipSpace()) return fail(result);
        if (!readString(value, "a value after '='")) return fail(result);
        if (!skipSpace()) return fail(result);
      } else {
        value = key;
      }
      if (pos_ >= text_.size() || text_[pos_] != u';') {
        error(pos_ < text_.size() ? "expected ';' or '=', found " + describe(text_[pos_])
                                  : std::string("expected ';' before the end of the table"));
        return fail(result);
      }
      if (result.entries.size() >= kMaxEntries) {
        error("more than " + std::to_string(kMaxEntries) + " entries");
        return fail(result);
      }
      ++pos_;
      result.entries.push_back({std::move(key), std::move(value)});
    }
    result.ok = true;
    return result;
  }

 private:
  StringsTableResult& fail(StringsTableResult& result) {
    result.ok = false;
    result.entries.clear();
    // Line and column of the error offset, counted in the decoded text.
    std::size_t line = 1, column = 1;
    for (std::size_t i = 0; i < errorAt_ && i < text_.size(); ++i) {
      char16_t c = text_[i];
      if (c == u'\n') {
        ++line;
        column = 1;
      } else if (c == u'\r') {
        if (i + 1 < text_.size() && text_[i + 1] == u'\n') ++i;
        ++line;
        column = 1;
      } else if (c < 0xDC00 || c > 0xDFFF) {  // a trail surrogate belongs to the previous character
        ++column;
      }
    }
    result.error.message = message_;
    result.error.line = line;
    result.error.column = column;
    return result;
  }

  void error(std::string message) { error(std::move(message), pos_); }
  void error(std::string message, std::size_t at) {
    message_ = std::move(message);
    errorAt_ = at;
  }

  // Skips white space and comments; false on an unterminated comment.
  bool skipSpace() {
    while (pos_ < text_.size()) {
      char16_t c = text_[pos_];
      if (c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f' || c == u'\v' || c == 0xFEFF ||
          c == 0x2028 || c == 0x2029 || c == 0xA0) {
        ++pos_;
      } else if (c == u'/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == u'*') {
        std::size_t start = pos_;
        std::size_t end = text_.find(u"*/", pos_ + 2);
        if (end == std::u16string_view::npos) {
          error("unterminated comment", start);
          return false;
        }
        pos_ = end + 2;
      } else if (c == u'/' && pos_ + 1 < text_.size() && text_[pos_ + 1] == u'/') {
        while (pos_ < text_.size() && text_[pos_] != u'\n' && text_[pos_] != u'\r') ++pos_;
      } else {
        break;
      }
    }
    return true;
  }

  bool readString(String& out, const char* what) {
    if (pos_ >= text_.size()) {
      error(std::string("expected ") + what + " before the end of the table");
      return false;
    }
    char16_t c = text_[pos_];
    if (c == u'"') return readQuoted(out);
    if (isWordCharacter(c)) {
      std::size_t start = pos_;
      while (pos_ < text_.size() && isWordCharacter(text_[pos_])) ++pos_;
      out = String(text_.substr(start, pos_ - start));
      return true;
    }
    error(std::string("expected ") + what + ", found " + describe(c));
    return false;
  }

  bool readQuoted(String& out) {
    std::size_t open = pos_;
    ++pos_;
    std::u16string buffer;
    std::size_t chunk = pos_;
    while (true) {
      if (pos_ >= text_.size()) {
        error("unterminated quoted string", open);
        return false;
      }
      char16_t c = text_[pos_];
      if (c == u'"') {
        if (buffer.empty()) {
          out = String(text_.substr(chunk, pos_ - chunk));
        } else {
          buffer.append(text_.substr(chunk, pos_ - chunk));
          out = String(buffer);
        }
        ++pos_;
        return true;
      }
      if (c != u'\\') {
        ++pos_;
        continue;
      }
      buffer.append(text_.substr(chunk, pos_ - chunk));
      std::size_t escape = pos_;
      ++pos_;
      if (pos_ >= text_.size()) {
        error("unterminated quoted string", open);
        return false;
      }
      char16_t e = text_[pos_++];
      switch (e) {
        case u'n': buffer += u'\n'; break;
        case u't': buffer += u'\t'; break;
        case u'r': buffer += u'\r'; break;
        case u'a': buffer += u'\a'; break;
        case u'b': buffer += u'\b'; break;
        case u'f': buffer += u'\f'; break;
        case u'v': buffer += u'\v'; break;
        case u'U':
        case u'u': {
          unsigned value = 0;
          int digits = 0;
          while (digits < 4 && pos_ < text_.size() && hexValue(text_[pos_]) >= 0) {
            value = value * 16 + static_cast<unsigned>(hexValue(text_[pos_++]));
            ++digits;
          }
          if (digits == 0) {
            error("\\U escape without hexadecimal digits", escape);
            return false;
          }
          buffer += static_cast<char16_t>(value);
          break;
        }
        default:
          if (e >= u'0' && e <= u'7') {
            unsigned value = e - u'0';
            for (int digits = 1; digits < 3 && pos_ < text_.size() && text_[pos_] >= u'0' && text_[pos_] <= u'7';
                 ++digits) {
              value = value * 8 + (text_[pos_++] - u'0');
            }
            buffer += static_cast<char16_t>(value);
          } else {
            buffer += e;  // \" \\ \' and anything else: the character itself
          }
      }
      chunk = pos_;
    }
  }

  std::u16string_view text_;
  std::size_t pos_ = 0;
  std::string message_;
  std::size_t errorAt_ = 0;
};

std::u16string decodeUTF16(std::span<const uint8_t> bytes, bool bigEndian) {
  std::u16string out;
  out.resize(bytes.size() / 2);
  for (std::size_t i = 0; i < out.size(); ++i) {
    uint8_t a = bytes[2 * i], b = bytes[2 * i + 1];
    out[i] = bigEndian ? static_cast<char16_t>(a << 8 | b) : static_cast<char16_t>(b << 8 | a);
  }
  return out;
}

bool looksLikeXMLPlist(std::span<const uint8_t> bytes) {
  std::size_t i = 0;
  if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) i = 3;
  while (i < bytes.size() && (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\n' || bytes[i] == '\r')) ++i;
  std::string_view rest(reinterpret_cast<const char*>(bytes.data()) + i, bytes.size() - i);
  return rest.starts_with("<?xml") || rest.starts_with("<!DOCTYPE") || rest.starts_with("<plist");
}

StringsTableResult parsePlist(std::span<const uint8_t> bytes) {
  StringsTableResult result;
  result.error.line = 1;
  result.error.column = 1;
  detail::PropertyListResult list = detail::readPropertyList(bytes);
  if (!list.ok()) {
    result.error.message = "not a readable property list: " + list.error;
    if (bytes.size() < 8 || std::memcmp(bytes.data(), "bplist00", 8) != 0) {
      detail::lineAndColumn(bytes, list.offset, result.error.line, result.error.column);
    }
    return result;
  }
  if (list.value.type() != Value::Type::Dictionary) {
    result.error.message = "the property list is not a dictionary";
    return result;
  }
  for (const auto& [key, value] : list.value.dictionaryValue().entries()) {
    if (value.type() == Value::Type::String) result.entries.push_back({key, value.stringValue()});
  }
  result.ok = true;
  return result;
}

}  // namespace

std::string StringsTableError::description() const {
  return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + message;
}

StringsTableResult parseStringsTable(std::span<const uint8_t> bytes) {
  if (bytes.size() > kMaxTableBytes) {
    StringsTableResult result;
    result.error = {"larger than " + std::to_string(kMaxTableBytes >> 20) + " MiB", 1, 1};
    return result;
  }
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0) return parsePlist(bytes);
  if (looksLikeXMLPlist(bytes)) return parsePlist(bytes);
  if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
    std::u16string text = decodeUTF16(bytes.subspan(2), false);
    return TextParser(text).run();
  }
  if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) {
    std::u16string text = decodeUTF16(bytes.subspan(2), true);
    return TextParser(text).run();
  }
  // UTF-16 written without a mark: text never holds NUL, so a zero byte beside the first character
  // tells the byte order.
  if (bytes.size() >= 2 && bytes[0] != 0 && bytes[1] == 0) return TextParser(decodeUTF16(bytes, false)).run();
  if (bytes.size() >= 2 && bytes[0] == 0 && bytes[1] != 0) return TextParser(decodeUTF16(bytes, true)).run();
  std::string_view utf8(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (utf8.starts_with("\xEF\xBB\xBF")) utf8.remove_prefix(3);
  String text = String::fromUTF8(utf8);
  return TextParser(text.view()).run();
}

Dictionary dictionaryFromStringsTable(std::span<const uint8_t> bytes) {
  StringsTableResult result = parseStringsTable(bytes);
  if (!result.ok) return {};
  std::vector<Dictionary::Entry> entries;
  entries.reserve(result.entries.size());
  for (auto& e : result.entries) entries.emplace_back(std::move(e.key), Value(std::move(e.value)));
  return Dictionary(std::move(entries));
}

}  // namespace tq
