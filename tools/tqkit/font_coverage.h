// Telling the user, on standard error, of text that no installed font can show: such characters
// are drawn as boxes and measured as boxes, so pictures and fit checks of that text are wrong.
#pragma once

namespace tq::cli {

// From now on, each font and script whose characters some drawn or measured text lacks a font for
// is named once on standard error, after "tqkit COMMAND: ", with the characters and the first text.
void warnOfUncoveredCharacters(const char* command);

}  // namespace tq::cli
