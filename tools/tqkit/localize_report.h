// What `tqkit localize` finds for one interface in one localization: every visible string before
// and after, which strings the table lacks, which keys of the table matched nothing, which texts
// no longer fit, which check boxes were resized; and pictures of the interface before and after.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tq/platform/bundle/bundle.h"
#include "tq/platform/ui/drawing/graphics_context.h"
#include "tq/platform/ui/model/view.h"

namespace tq::cli::localizing {

enum class Mode {
  // TQLocalizer with a table keyed by the interface's own texts.
  Localizer,
  // A table keyed by object identifier and property ("ID.title", "ID.ibShadowedLabels[0]"), as
  // generated beside a Base interface.
  ById,
  // A localized copy of the interface compared with the development language's copy.
  Copy,
};
const char* modeName(Mode mode);

struct StringEntry {
  std::string cls, id, property;  // id: the identifier the tables use for the object
  std::string key;                // the key looked up (empty when the object cannot be named)
  std::string before, after;
  bool afterIsNil = false;
  std::string status;  // "translated", "untranslated" or "empty"
};

struct Overflow {
  std::string cls, id, property, text;
  // "text": the text needs more width than its control has; "superview": the control reaches past
  // its superview's bounds.
  std::string kind;
  double width = 0, needed = 0;
  const View* view = nullptr;  // in the localized objects (valid while the report's objects live)
};

struct Resized {
  std::string id, title;
  double widthBefore = 0, widthAfter = 0;
};

struct Picture {
  std::string name;  // "window-ID" or "view-ID"
  GraphicsContextRef before, after;
};

struct Report {
  std::string interfacePath, interfaceName, localization, table;
  Mode mode = Mode::Localizer;
  std::vector<StringEntry> strings;
  std::vector<std::string> missing;  // keys (or texts of objects without identifier)
  // Keys of the table that matched nothing, sorted; for tables of the interface's own (keyed by
  // identifier, or named with Options::table), not for a table the program's code shares.
  std::vector<std::string> unused;
  std::vector<Overflow> overflows;
  std::vector<Resized> resized;
  std::vector<Picture> pictures;  // with Options::pictures; overflowing controls outlined after
  std::string error;              // set when the interface could not be read
  std::shared_ptr<void> objects;  // keeps the localized objects alive for `overflows[].view`

  std::size_t translated() const;
};

struct Options {
  Mode mode = Mode::Localizer;
  // The strings table; nil: "Localizable" (localizer), the interface's name (by identifier).
  String table;
  // The localization whose table is read; empty: the bundle's preferred one.
  std::string localization;
  // For Mode::Copy: the development language's copy of the interface.
  std::string developmentCopy;
  // The table (named above) is the one the program's code shares with every interface, so keys
  // no object of this interface uses are not reported unused.
  bool sharedTable = false;
  bool pictures = false;
};

// Loads the interface file (a .xib, or a compiled .nib file or folder), localizes it from the
// bundle and reports. Never throws for an unreadable interface: the report carries the error.
Report localizeInterface(const std::shared_ptr<Bundle>& bundle, const std::string& file, const Options& options);

}  // namespace tq::cli::localizing
