// Fonts: name resolution with fallbacks, the shared font cache, and metrics from Pango.
#include "tq/platform/ui/drawing/font.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <tuple>

#include "text_system.h"

namespace tq {

namespace {

// The condensed cut is close in width to the platform's own interface fonts, so archived layouts
// keep their texts within their frames; plain DejaVu Sans stands in where it is not installed.
constexpr const char16_t* kSystemFamily = u"DejaVu Sans Condensed";
constexpr const char* kSansFallback = "DejaVu Sans Condensed,DejaVu Sans,Sans";
constexpr const char* kMonoFallback = "DejaVu Sans Mono,Monospace";

bool isFixedPitchFamily(const std::string& family) {
  static const char* const names[] = {"Menlo", "Monaco", "Courier", "Courier New", "Andale Mono",
                                      "SF Mono", "DejaVu Sans Mono", "Monospace", "Consolas"};
  for (const char* n : names) {
    if (family == n) return true;
  }
  return false;
}

bool contains(const std::string& s, const char* part) { return s.find(part) != std::string::npos; }

// Fonts by name, size and style. Looked up by a view of the name, so that finding a font that
// exists allocates nothing: cells ask for their font on every draw.
using CacheKey = std::tuple<std::u16string, double, bool, bool>;
using CacheProbe = std::tuple<std::u16string_view, double, bool, bool>;

struct CacheOrder {
  using is_transparent = void;
  template <class Key>
  static CacheProbe probe(const Key& k) {
    return {std::u16string_view(std::get<0>(k)), std::get<1>(k), std::get<2>(k), std::get<3>(k)};
  }
  template <class A, class B>
  bool operator()(const A& a, const B& b) const {
    return probe(a) < probe(b);
  }
};

std::map<CacheKey, FontRef, CacheOrder>& fontCache() {
  static auto* cache = new std::map<CacheKey, FontRef, CacheOrder>();
  return *cache;
}

// The names the system fonts are made with, made once.
const String& systemFontName() {
  static const String name = u"DejaVuSansCondensed";
  return name;
}
const String& boldSystemFontName() {
  static const String name = u"DejaVuSansCondensed-Bold";
  return name;
}
const String& systemFamilyName() {
  static const String name = kSystemFamily;
  return name;
}

double positiveOr(double size, double fallback) { return size > 0 && std::isfinite(size) ? size : fallback; }

}  // namespace

Font::Font(Key, const String& fontName, const String& familyName, double size, bool bold, bool italic,
           bool fixedPitch)
    : fontName_(fontName), familyName_(familyName), size_(size), bold_(bold), italic_(italic),
      fixedPitch_(fixedPitch), description_(pango_font_description_new()) {
  std::string families = familyName.UTF8String();
  const char* fallback = fixedPitch ? kMonoFallback : kSansFallback;
  if (families + ',' != std::string(fallback).substr(0, families.size() + 1)) {
    families += ',';
    families += fallback;
  } else {
    families = fallback;
  }
  pango_font_description_set_family(description_, families.c_str());
  pango_font_description_set_absolute_size(description_, size * PANGO_SCALE);
  pango_font_description_set_weight(description_, bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_style(description_, italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
}

Font::~Font() { pango_font_description_free(description_); }

FontRef Font::make(const String& fontName, const String& familyName, double size, bool bold, bool italic,
                   bool fixedPitch) {
  auto& system = detail::TextSystem::shared();
  auto guard = system.lock();
  auto& cache = fontCache();
  if (auto found = cache.find(CacheProbe{fontName.view(), size, bold, italic}); found != cache.end()) {
    return found->second;
  }
  CacheKey key{fontName.u16string(), size, bold, italic};

  auto font = std::make_shared<Font>(Key(), fontName, familyName, size, bold, italic, fixedPitch);
  PangoFontMetrics* metrics = pango_context_get_metrics(system.context(), font->description_, nullptr);
  font->ascent_ = pango_font_metrics_get_ascent(metrics) / double(PANGO_SCALE);
  font->descent_ = pango_font_metrics_get_descent(metrics) / double(PANGO_SCALE);
  const double height = pango_font_metrics_get_height(metrics) / double(PANGO_SCALE);
  font->gap_ = std::max(0.0, height - font->ascent_ - font->descent_);
  pango_font_metrics_unref(metrics);
  cache.emplace(std::move(key), font);
  return font;
}

String Font::systemFontFamily() { return kSystemFamily; }

FontRef Font::fontWithName(const String& name, double size) {
  if (name.length() == 0) return nullptr;
  size = positiveOr(size, systemFontSize());
  std::string utf8 = name.UTF8String();
  std::string family = utf8;
  bool bold = false, italic = false;
  if (auto dash = utf8.rfind('-'); dash != std::string::npos && dash > 0) {
    const std::string style = utf8.substr(dash + 1);
    family = utf8.substr(0, dash);
    bold = contains(style, "Bold") || contains(style, "Heavy") || contains(style, "Black");
    italic = contains(style, "Italic") || contains(style, "Oblique");
  }
  if (family == "System" || family == ".AppleSystemUIFont" || family == "LucidaGrande" ||
      family == "Lucida Grande") {
    family = "DejaVu Sans Condensed";
  }
  return make(name, String::fromUTF8(family), size, bold, italic, isFixedPitchFamily(family));
}

FontRef Font::systemFontOfSize(double size) {
  return make(systemFontName(), systemFamilyName(), positiveOr(size, systemFontSize()), false, false, false);
}

FontRef Font::boldSystemFontOfSize(double size) {
  return make(boldSystemFontName(), systemFamilyName(), positiveOr(size, systemFontSize()), true, false, false);
}

FontRef Font::labelFontOfSize(double size) { return systemFontOfSize(positiveOr(size, labelFontSize())); }

FontRef Font::userFixedPitchFontOfSize(double size) {
  return make(u"DejaVuSansMono", u"DejaVu Sans Mono", positiveOr(size, 10.0), false, false, true);
}

FontRef Font::fontWithDescriptor(const FontDescriptor& descriptor) {
  const bool system = descriptor.name.isNil() || descriptor.name.view() == u"System" ||
                      !descriptor.metaFont.isNil();
  if (system) {
    return descriptor.bold ? boldSystemFontOfSize(descriptor.size) : systemFontOfSize(descriptor.size);
  }
  FontRef font = fontWithName(descriptor.name, descriptor.size);
  if (font && descriptor.bold && !font->isBold()) {
    font = make(font->fontName_, font->familyName_, font->size_, true, font->italic_, font->fixedPitch_);
  }
  return font ? font : systemFontOfSize(descriptor.size);
}

double Font::ascender() const { return ascent_; }
double Font::descender() const { return -descent_; }
double Font::leading() const { return gap_; }

double Font::defaultLineHeight() const {
  return std::max(1.0, std::round(ascent_) + std::round(descent_) + std::round(gap_));
}

double Font::baselineOffset() const { return std::round(ascent_); }

bool Font::isEqual(const Object& other) const {
  const auto* f = dynamic_cast<const Font*>(&other);
  return f && f->fontName_ == fontName_ && f->size_ == size_ && f->bold_ == bold_ && f->italic_ == italic_;
}

String Font::description() const {
  char size[32];
  std::snprintf(size, sizeof size, " %gpt", size_);
  return String::fromUTF8(fontName_.UTF8String() + size);
}

}  // namespace tq
