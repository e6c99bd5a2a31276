// Font: a font family and point size resolved through the process's one Pango font map, with the
// metrics text layout needs.
//
// Fonts are shared and immutable: asking twice for the same family, size and style gives the same
// object. Sizes are in points; text is laid out at 72 points per inch, so one point is one unit of
// user space in a graphics context.
//
// The system font is DejaVu Sans Condensed (fonts-dejavu-extra), whose widths are close to the
// platform's interface fonts, then DejaVu Sans (fonts-dejavu-core), then fontconfig's "Sans". A
// family that is not installed falls back to the system font; well-known fixed-pitch families
// (Menlo, Monaco, Courier, ...) fall back to DejaVu Sans Mono, then "Monospace".
//
// Threads: fonts may be made and read on any thread (the text system serialises its own work).
#pragma once

#include <memory>

#include "tq/platform/base/object.h"
#include "tq/platform/ui/model/font_descriptor.h"

typedef struct _PangoFontDescription PangoFontDescription;

namespace tq {

class Font;
using FontRef = std::shared_ptr<const Font>;

class Font : public Object {
 public:
  // The platform's standard sizes.
  static constexpr double systemFontSize() { return 13.0; }
  static constexpr double smallSystemFontSize() { return 11.0; }
  static constexpr double labelFontSize() { return 10.0; }
  // The family of the system font: "DejaVu Sans Condensed".
  static String systemFontFamily();

  // A font by family or PostScript-style name ("Helvetica", "Helvetica-Bold", "Menlo-Regular": a
  // suffix after the last '-' naming Bold, Italic or Oblique sets that style). A size of 0 or less
  // means systemFontSize(). Nil or empty name: nil.
  static FontRef fontWithName(const String& name, double size);
  // The system font; sizes of 0 or less mean systemFontSize().
  static FontRef systemFontOfSize(double size);
  static FontRef boldSystemFontOfSize(double size);
  // The label font: the system font, labelFontSize() for sizes of 0 or less.
  static FontRef labelFontOfSize(double size);
  // The fixed-pitch font (DejaVu Sans Mono); sizes of 0 or less mean 10.
  static FontRef userFixedPitchFontOfSize(double size);
  // The font an interface archive describes ("System" and meta fonts are the system font).
  static FontRef fontWithDescriptor(const FontDescriptor& descriptor);

  // The name asked for ("Helvetica-Bold"; "DejaVuSansCondensed" style names for the system fonts).
  const String& fontName() const { return fontName_; }
  // The family searched first ("Helvetica").
  const String& familyName() const { return familyName_; }
  double pointSize() const { return size_; }
  bool isBold() const { return bold_; }
  bool isItalic() const { return italic_; }
  bool isFixedPitch() const { return fixedPitch_; }

  // Metrics of the font as resolved (after fallback), in points. ascender() is above the baseline
  // (positive), descender() below it (negative, as the platform reports it); leading() is the extra
  // line gap the font asks for (0 or more).
  double ascender() const;
  double descender() const;
  double leading() const;
  // The default line height: round(ascender) + round(-descender) + round(leading), the distance from
  // one line's top to the next as laid out by this library. Whole points, never less than 1.
  double defaultLineHeight() const;
  // Where the baseline sits below the top of a line box: round(ascender).
  double baselineOffset() const;

  // The Pango description of this font (owned by the font, valid while it lives).
  const PangoFontDescription* pangoFontDescription() const { return description_; }

  bool isEqual(const Object& other) const override;
  // e.g. "DejaVuSans 13pt".
  String description() const override;

  // Made by the factories above only (the key keeps others out).
  class Key {
    friend class Font;
    Key() = default;
  };
  Font(Key, const String& fontName, const String& familyName, double size, bool bold, bool italic,
       bool fixedPitch);
  ~Font() override;
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

 private:
  static FontRef make(const String& fontName, const String& familyName, double size, bool bold,
                      bool italic, bool fixedPitch);

  String fontName_;
  String familyName_;
  double size_;
  bool bold_, italic_, fixedPitch_;
  PangoFontDescription* description_;
  double ascent_ = 0, descent_ = 0, gap_ = 0;  // resolved metrics, points
};

}  // namespace tq
