// Standard-error notes of characters no installed font covers, once per font and script.
#include "font_coverage.h"

#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "tq/platform/ui/drawing/string_drawing.h"

namespace tq::cli {

namespace {

// Names of the scripts most often met in localized interfaces, by their ISO 15924 code.
std::string scriptName(const std::string& code) {
  static const std::pair<const char*, const char*> kNames[] = {
      {"Hani", "Han (Chinese characters, kanji, hanja)"}, {"Hira", "Hiragana"}, {"Kana", "Katakana"},
      {"Hang", "Hangul"}, {"Arab", "Arabic"}, {"Hebr", "Hebrew"}, {"Thai", "Thai"}, {"Deva", "Devanagari"},
      {"Beng", "Bengali"}, {"Taml", "Tamil"}, {"Geor", "Georgian"}, {"Armn", "Armenian"}, {"Ethi", "Ethiopic"},
      {"Khmr", "Khmer"}, {"Mymr", "Myanmar"}, {"Sinh", "Sinhala"}, {"Zsye", "emoji"}, {"Zyyy", "common (punctuation, symbols)"}};
  for (const auto& [c, name] : kNames) {
    if (code == c) return std::string(name) + " [" + code + "]";
  }
  return "[" + code + "]";
}

}  // namespace

void warnOfUncoveredCharacters(const char* command) {
  const std::string prefix = std::string("tqkit ") + command + ": ";
  tq::setUncoveredCharactersHandler([prefix](const tq::UncoveredCharacters& u) {
    static std::mutex mutex;
    static std::set<std::pair<std::string, std::string>> told;
    const std::string font = u.fontName.UTF8String(), script = u.script.UTF8String();
    {
      std::lock_guard<std::mutex> guard(mutex);
      if (!told.emplace(font, script).second) return;
    }
    // A long text (a text view's) is named by its start.
    const tq::String text = u.text.length() > 40 ? u.text.substringToIndex(40) : u.text;
    std::fprintf(stderr,
                 "%sno installed font has %s characters, such as %s in \"%s\" (font %s): they are drawn as boxes "
                 "and measured as boxes; install a font that covers them\n",
                 prefix.c_str(), scriptName(script).c_str(), u.characters.UTF8String().c_str(),
                 (text.UTF8String() + (text.length() < u.text.length() ? "…" : "")).c_str(),
                 font.c_str());
  });
}

}  // namespace tq::cli
