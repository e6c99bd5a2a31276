#include "tq/platform/store/key_pattern.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tq {

namespace {
constexpr std::size_t kOver = kKeyPatternMaxSize + 1;

// The index of the ']' that closes the bracket expression opening at p[open] (or p.size() when it
// is not closed): a ']' first in the list is a member, and [:class:], [=equivalence=] and
// [.collating.] elements are skipped whole.
std::size_t closingBracket(std::string_view p, std::size_t open) {
  std::size_t j = open + 1;
  if (j < p.size() && p[j] == '^') ++j;
  if (j < p.size() && p[j] == ']') ++j;
  while (j < p.size() && p[j] != ']') {
    if (p[j] == '[' && j + 1 < p.size() && (p[j + 1] == ':' || p[j + 1] == '=' || p[j + 1] == '.')) {
      std::size_t close = p.find(std::string{p[j + 1], ']'}, j + 2);
      j = close == std::string_view::npos ? p.size() : close + 2;
    } else {
      ++j;
    }
  }
  return j;
}

// Whether an alternation stands at the top level of the pattern (then no text is common to all
// matches), skipping escapes, bracket expressions and groups.
bool alternationAtTop(std::string_view p) {
  int depth = 0;
  for (std::size_t i = 0; i < p.size(); ++i) {
    char c = p[i];
    if (c == '\\') {
      ++i;
    } else if (c == '[') {
      i = closingBracket(p, i);
    } else if (c == '(') {
      ++depth;
    } else if (c == ')' && depth > 0) {
      --depth;
    } else if (c == '|' && depth == 0) {
      return true;
    }
  }
  return false;
}

// The ASCII text at the start of the pattern that every whole-key match begins with: the ordinary
// characters before the first special one, less the last when a repetition applies to it. `literal`
// tells whether the whole pattern is such text.
std::string literalPrefix(std::string_view p, bool& literal) {
  literal = false;
  if (alternationAtTop(p)) return {};
  std::size_t n = 0;
  while (n < p.size() && static_cast<unsigned char>(p[n]) < 0x80 &&
         std::string_view(".[]()|*+?{}^$\\").find(p[n]) == std::string_view::npos)
    ++n;
  if (n == p.size()) {
    literal = true;
    return std::string(p);
  }
  char next = p[n];
  if (n > 0 && (next == '*' || next == '+' || next == '?' || next == '{')) --n;
  return std::string(p.substr(0, n));
}

// Where the first back-reference (\1 to \9 outside a bracket expression) stands, or npos.
std::size_t backReference(std::string_view p) {
  for (std::size_t i = 0; i < p.size(); ++i) {
    if (p[i] == '\\') {
      if (i + 1 < p.size() && p[i + 1] >= '1' && p[i + 1] <= '9') return i;
      ++i;
    } else if (p[i] == '[') {
      i = closingBracket(p, i);
    }
  }
  return std::string_view::npos;
}

}  // namespace

std::size_t keyPatternExpandedSize(std::string_view p) {
  auto clamp = [](std::size_t v) { return std::min(v, kOver); };
  auto times = [&](std::size_t a, std::size_t b) { return b != 0 && a > kOver / b ? kOver : clamp(a * b); };
  struct Frame {
    std::size_t alternatives = 0;  // sizes of the finished alternatives
    std::size_t sequence = 0;      // size of the current alternative
    std::size_t last = 0;          // size of its last atom, which a repetition applies to
  };
  std::vector<Frame> stack(1);
  auto atom = [&](std::size_t size) {
    Frame& f = stack.back();
    f.sequence = clamp(f.sequence + size);
    f.last = size;
  };
  auto repeat = [&](std::size_t factor) {
    Frame& f = stack.back();
    std::size_t grown = times(f.last, factor);
    f.sequence = clamp(f.sequence - f.last + grown);
    f.last = grown;
  };
  for (std::size_t i = 0; i < p.size(); ++i) {
    char c = p[i];
    if (c == '\\') {
      ++i;
      atom(1);
    } else if (c == '[') {
      i = closingBracket(p, i);
      atom(1);
    } else if (c == '(') {
      stack.emplace_back();
    } else if (c == ')' && stack.size() > 1) {
      Frame done = stack.back();
      stack.pop_back();
      atom(clamp(done.alternatives + done.sequence));
    } else if (c == '|') {
      Frame& f = stack.back();
      f.alternatives = clamp(f.alternatives + f.sequence);
      f.sequence = f.last = 0;
    } else if (c == '{') {
      std::size_t j = i + 1, low = 0, high = 0;
      bool digits = false, comma = false, open = false;
      for (; j < p.size() && p[j] >= '0' && p[j] <= '9'; ++j, digits = true) low = clamp(low * 10 + (p[j] - '0'));
      if (j < p.size() && p[j] == ',') {
        comma = true;
        std::size_t k = ++j;
        for (; j < p.size() && p[j] >= '0' && p[j] <= '9'; ++j) high = clamp(high * 10 + (p[j] - '0'));
        open = j == k;
      }
      if (digits && j < p.size() && p[j] == '}') {
        repeat(std::max<std::size_t>(1, comma ? (open ? low + 1 : std::max(low, high)) : low));
        i = j;
      } else {
        atom(1);
      }
    } else if (c == '+') {
      repeat(2);  // written out as the atom and a starred copy
    } else if (c != '*' && c != '?' && c != '^' && c != '$') {
      atom(1);
    }
  }
  std::size_t total = 0;
  for (const Frame& f : stack) total = clamp(total + f.alternatives + f.sequence);
  return total;
}

std::unique_ptr<KeyPattern> KeyPattern::compile(const String& pattern, std::string* whyRefused) {
  auto refuse = [&](std::string why) -> std::unique_ptr<KeyPattern> {
    if (whyRefused) *whyRefused = std::move(why);
    return nullptr;
  };
  if (pattern.isNil()) return refuse("nil");
  std::string text = pattern.UTF8String();
  if (keyPatternExpandedSize(text) > kKeyPatternMaxSize) {
    return refuse("too large: its counted repetitions written out exceed " + std::to_string(kKeyPatternMaxSize) +
                  " characters");
  }
  // Checked as written, so that the C library's own words tell what is wrong with it.
  regex_t asWritten;
  if (int error = regcomp(&asWritten, text.c_str(), REG_EXTENDED | REG_NOSUB); error != 0) {
    char message[256];
    regerror(error, &asWritten, message, sizeof message);
    return refuse(std::string("not a valid extended regular expression (") + message + ")");
  }
  regfree(&asWritten);
  if (std::size_t at = backReference(text); at != std::string::npos) {
    return refuse("not supported: back-references such as " + text.substr(at, 2) +
                  " cannot be matched in time linear in the key");
  }
  // Anchored at both ends and asked for no positions, the C library answers in one pass over the
  // key; a pattern that was whole on its own means the same inside the group.
  std::unique_ptr<KeyPattern> p(new KeyPattern);
  if (int error = regcomp(&p->re_, ("^(" + text + ")$").c_str(), REG_EXTENDED | REG_NOSUB); error != 0) {
    char message[256];
    regerror(error, &p->re_, message, sizeof message);
    return refuse(std::string("not a valid extended regular expression (") + message + ")");
  }
  p->compiled_ = true;
  p->everything_ = text == ".*";
  p->prefix_ = literalPrefix(text, p->literal_);
  return p;
}

KeyPattern::~KeyPattern() {
  if (compiled_) regfree(&re_);
}

bool KeyPattern::matches(const String& key) const { return matches(key.view()); }

bool KeyPattern::matches(std::u16string_view key) const {
  if (everything_) return key.find(u'\0') == std::u16string_view::npos;
  if (key.size() < prefix_.size() || (literal_ && key.size() != prefix_.size())) return false;
  for (std::size_t i = 0; i < prefix_.size(); ++i)
    if (key[i] != static_cast<char16_t>(prefix_[i])) return false;
  if (literal_) return true;
  std::string utf8;
  String::appendUTF8(key, utf8);
  return regexMatches(utf8);
}

bool KeyPattern::matches(const std::string& key) const {
  if (everything_) return key.find('\0') == std::string::npos;
  if (literal_) return key == prefix_;
  if (key.compare(0, prefix_.size(), prefix_) != 0) return false;
  return regexMatches(key);
}

// The C library reads the key up to a U+0000, so a key holding one never matches whole.
bool KeyPattern::regexMatches(const std::string& key) const {
  return key.find('\0') == std::string::npos && regexec(&re_, key.c_str(), 0, nullptr, 0) == 0;
}

}  // namespace tq
