// Measuring and drawing text with the shared text system (Pango): sizes within bounds, with word
// wrapping or on one truncated line, and drawing into a rectangle of the current graphics context.
//
// Lines. Every line of text is defaultLineHeight() of its font high (see Font), so a text of n
// lines is n x that height, and one line measures exactly the font's default line height. Explicit
// line breaks start new lines when the mode wraps.
//
// Modes (LineBreakMode):
//   ByWordWrapping   lines break between words; a word longer than the width breaks between
//                    characters.
//   ByCharWrapping   lines break between any two characters.
//   ByClipping       one line, cut off at the rectangle's edge.
//   ByTruncatingHead, ByTruncatingTail, ByTruncatingMiddle
//                    one line; when it is wider than the rectangle, the start, the end or the middle
//                    is replaced by an ellipsis "…" so that it fits.
// The one-line modes show the text's first line only (up to the first line break).
//
// Alignment (TextAlignment): Left and Natural align to the leading edge (left for left-to-right
// text), Right to the trailing edge, Center centres each line, Justified stretches full lines.
//
// Long texts: only the part of a text that can show is shaped, so a text of millions of characters
// costs what its visible part costs. Drawing, and measuring in the one-line modes with a width,
// keep of each line the code units that could fill it (twice the width over an eighth of the font's
// size, and 64 more; for a head truncation the line's end, for a middle one its start and end) and
// of a wrapping text the lines that fit the height and one more. A text of more than 8,192 code
// units (after that cut) is measured on its first 8,192 and the rest taken in proportion: a
// wrapping text's number of lines to its length, widths to the length of its longest line (the
// text system breaks a long word in time growing with the square of its length, and cannot hold
// lengths past a million points).
//
// Performance: no text system is made per call. The font map and context are shared by the process,
// each thread reuses one layout, and measuring then drawing the same text reuses its layout. The
// widths of one-line texts already measured are remembered per font (up to 4,096 texts of at most 256
// code units per font; then the memory starts again empty), so measuring a text again costs a lookup,
// not a shaping.
//
// Threads: any thread; the work is serialised inside the text system.
#pragma once

#include <functional>
#include <vector>

#include "tq/platform/base/string.h"
#include "tq/platform/ui/drawing/font.h"
#include "tq/platform/ui/model/cell.h"
#include "tq/platform/ui/model/color.h"
#include "tq/platform/ui/model/geometry.h"

namespace tq {

struct TextAttributes {
  FontRef font;  // nil: the system font
  ColorRef color;  // nil: black
  TextAlignment alignment = TextAlignment::Natural;
  LineBreakMode lineBreakMode = LineBreakMode::ByWordWrapping;
};

// The size a text needs when laid out within `bounds` by the attributes' mode. Wrapping modes wrap
// to bounds.width (a width of 0 or less, or not finite, does not wrap) and report every line, even
// past bounds.height; one-line modes report one line, at most bounds.width wide (when that is above
// 0). The width is that of the widest line, rounded up to whole points; the height is a whole number
// of lines. A nil or empty text has width 0 and the height of one line.
Size sizeOfText(const String& text, const TextAttributes& attributes, Size bounds);
// The natural size: no wrapping, each explicit line break starting a new line.
Size sizeOfText(const String& text, const FontRef& font);
// How many lines the text takes within bounds (1 for the one-line modes and the empty text).
UInteger numberOfLinesOfText(const String& text, const TextAttributes& attributes, Size bounds);

// Draws a text into `rect` of the current graphics context, with the attributes' font, colour,
// mode and alignment, in the SourceOver operation. The first line's top is at the rectangle's top
// (its maximum y in an unflipped user space, its minimum y in a flipped one) and the text reads
// upright either way. Lines are clipped to the rectangle. Does nothing without a current context.
void drawText(const String& text, Rect rect, const TextAttributes& attributes);

// Characters no installed font covers. Text is drawn and measured with the font asked for and,
// character by character, whatever installed font covers what it lacks; a character no font
// covers is drawn as a box showing its code, and measured as that box, so that the text looks and
// measures unlike what its readers see. Such characters are found per text and script:
struct UncoveredCharacters {
  String fontName;    // the font asked for ("Helvetica")
  double fontSize = 0;
  String script;      // the characters' script: its four-letter ISO 15924 code ("Hani", "Hira", "Hang")
  String characters;  // each uncovered character of that script, once, in the text's order
  String text;        // the whole text
};
// The uncovered characters of a text laid out in a font (nil: the system font), one entry per script
// in order of first appearance; empty when every character has a font.
std::vector<UncoveredCharacters> uncoveredCharacters(const String& text, const FontRef& font);
// Sets the process's handler (nil: none) of uncovered characters met while drawing or measuring
// text (drawText, sizeOfText, numberOfLinesOfText): it is called with each entry every time such a
// text is laid out, on the thread laying it out, after the text system's work is done (it may
// measure and draw). The library writes nothing itself; a tool reports what its handler hears.
// Texts of printable Latin characters that the font asked for covers are never reported.
void setUncoveredCharactersHandler(std::function<void(const UncoveredCharacters&)> handler);

}  // namespace tq
