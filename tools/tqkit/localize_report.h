// What `tqkit localize` finds for one interface in one localization: every visible string before
// and after, which strings the language lacks (with the development language's text), which keys
// of the table matched nothing, which texts no longer fit, which check boxes were resized; and
// pictures of the interface, handed out one at a time as they are drawn.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/drawing/graphics_context.h"

namespace tq::cli::localizing {

enum class Mode {
  // TQLocalizer with a table keyed by the interface's own texts.
  Localizer,
  // A table keyed by object identifier and property ("ID.title", "ID.ibShadowedLabels[0]"), as
  // generated beside a Base interface; compiled interfaces name their strings by the keys they keep
  // ("170.title").
  ById,
  // A localized copy of the interface compared with the development language's copy.
  Copy,
  // The language has no copy of an interface the development language has, and nothing else
  // translates it: it shows in the development language.
  Absent,
};
const char* modeName(Mode mode);

struct StringEntry {
  std::string cls, id, property;  // id: the identifier the tables use for the object
  std::string key;                // the key looked up (empty when the object cannot be named)
  std::string before, after;      // before: the development language's text
  bool afterIsNil = false;
  // "translated", "untranslated", "empty", or "ignored": a string the interface does not show (the
  // title of a separator or of a box placed with no title) or that its designer marked
  // "#bc-ignore!" (in the text or the note to translators), neither translated nor missing.
  std::string status;
};

// A string the language leaves in the development language: its key and the text it shows.
struct MissingString {
  std::string key, text;
};

struct Overflow {
  std::string cls, id, property, text;
  // "text": the text needs more width than its control has; "superview": the control reaches past
  // its superview's bounds.
  std::string kind;
  double width = 0, needed = 0;
};

struct Resized {
  std::string id, title;
  double widthBefore = 0, widthAfter = 0;
};

// One visible string of an interface as the development language shows it, with what finds the
// same string in a language's copy: the file's identifiers, else the place in the object tree.
struct CatalogEntry {
  std::string cls, id, property, key, text;
  bool localizable = true;  // false for the strings a report calls "ignored"
  // The nearest object with an identifier (the string's own, or an ancestor's), the path below it
  // and the property: "25/cell.title"; empty when no object on the way has one.
  std::string anchor;
  // The path from the top-level objects, each step a class and its index among siblings of that
  // class, and the property: "NSWindow[0]/content/NSButton[2]/cell.title".
  std::string position;
};

// The strings of the development interface, read once per interface and compared with every
// language's copy; also what a language lacking the interface leaves untranslated.
struct Catalog {
  std::string path;
  std::string error;  // set when the interface could not be read
  std::vector<CatalogEntry> entries;
  // The non-empty strings.
  std::size_t visible() const;
};
Catalog catalogOf(const std::string& file);

struct Report {
  std::string interfacePath, interfaceName, localization, table;
  Mode mode = Mode::Localizer;
  // False when the language has no table of that name: every string shows untranslated.
  bool tableFound = true;
  std::vector<StringEntry> strings;
  std::vector<MissingString> missing;
  // Keys of the table that matched nothing, sorted; for tables of the interface's own (keyed by
  // identifier, or named with Options::table), not for a table the program's code shares.
  std::vector<std::string> unused;
  std::vector<Overflow> overflows;
  std::vector<Resized> resized;
  // The names of the pictures drawn ("window-ID", "view-ID"; a storyboard's by scene identifier),
  // in the interface's order.
  std::vector<std::string> pictures;
  // With Options::unchangedIsBefore: nothing changed, so no picture was drawn "after"; the
  // pictures "before" show it as it is.
  bool picturesUnchanged = false;
  std::string error;  // set when the interface could not be read

  std::size_t translated() const;
};

// Receives each picture as soon as it is drawn; `when` is "before" or "after". The image is
// released when the call returns.
using PictureSink = std::function<void(const std::string& name, const char* when, const GraphicsContextRef& image)>;

enum class Pictures { None, After, BeforeAndAfter };

struct Options {
  Mode mode = Mode::Localizer;
  // The strings table; nil: "Localizable" (localizer), the interface's name (by identifier).
  String table;
  // The localization whose table is read; empty: the bundle's preferred one.
  std::string localization;
  // For Mode::Copy and Mode::Absent: the development language's interface (not owned).
  const Catalog* development = nullptr;
  // The table (named above) is the one the program's code shares with every interface, so keys
  // no object of this interface uses are not reported unused.
  bool sharedTable = false;
  // Which pictures to draw (overflowing controls outlined after), handed to onPicture.
  Pictures pictures = Pictures::None;
  PictureSink onPicture;
  // The pictures "before" were drawn from this same file: when no string, frame or outline
  // changes, no picture is drawn "after" (Report::picturesUnchanged).
  bool unchangedIsBefore = false;
};

// Loads the interface file (a .xib, a compiled .nib file or folder, a .storyboard or compiled
// .storyboardc folder), localizes it from the bundle and reports. Never throws for an unreadable
// interface: the report carries the error. Nothing of the interface is kept once it returns.
// Mode::Absent reads no file: every string of the development interface is missing (but those
// "ignored").
Report localizeInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file, const Options& options);

// Draws the interface as it stands (a window or top-level view a picture; of a storyboard, each
// scene's window or view, as `tqkit render` offers them), each handed to `sink` as "before";
// returns the pictures' names, or the reason it could not be read in `error`.
std::vector<std::string> drawInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file,
                                       const PictureSink& sink, std::string& error);

}  // namespace tq::cli::localizing
