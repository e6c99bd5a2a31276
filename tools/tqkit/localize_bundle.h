// What `tqkit localize --all` reports of a bundle: its languages (a language folder that is a link
// to another counted once, as an alias), its interfaces by name, and for each interface and
// language the one way that language gets the interface:
//   - its own copy (NAME.nib, .xib, .storyboard or .storyboardc in LANG.lproj), compared with the
//     development language's;
//   - else the Base interface with the language's table named after it, keyed by identifier;
//   - else the unlocalized interface with the localizer and the table the languages share;
//   - else nothing: the interface is absent and shows in the development language.
// The development language itself gets no rows: its interfaces are the originals.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "localize_report.h"
#include "tq/platform/bundle/bundle.h"

namespace tq::cli::localizing {

// The name of the interface a resource folder's entry holds ("Alert" for Alert.nib, a compiled
// file or nib folder, Alert.xib, Alert.storyboard or Alert.storyboardc/), or empty when it holds none.
// Every interface form the report reads is recognised here; each is read through readNibFile.
std::string interfaceNameOf(const std::filesystem::path& entry);

struct Row {
  std::string localization;
  Mode mode = Mode::Absent;
  std::string file;  // the interface the language gets (empty when absent)
  // For the localizer: a table the languages share with the program's code, when not Localizable.
  std::string sharedTable;
};

struct InterfacePlan {
  std::string name;
  // What the development language shows: its own copy, else the Base interface, else the
  // unlocalized one (else the first language's copy, when no development language is known).
  std::string developmentFile;
  std::vector<Row> rows;  // in language order
};

struct Alias {
  std::string localization, sameAs;  // e.g. "pt_PT" is a link to the folder of "pt"
};

struct BundlePlan {
  std::string development;             // the development language; empty when unknown
  std::vector<std::string> languages;  // reported, sorted (no development language, no Base, no alias)
  std::vector<Alias> aliases;
  std::vector<InterfacePlan> interfaces;  // sorted by name
  std::size_t interfaceFiles = 0;         // interfaces found in every folder, copies included
};

BundlePlan planBundle(const Bundle& bundle);

// What the summaries keep of one reported row (the strings themselves are not kept).
struct RowSummary {
  std::string interface, localization, table, error;
  Mode mode = Mode::Localizer;
  bool tableFound = true;
  std::size_t translated = 0, missing = 0, unused = 0, overflowing = 0;
};
RowSummary summaryOf(const Report& report);

// One language's totals over every interface of the bundle.
struct LanguageTotals {
  std::string localization;
  std::vector<std::string> aliases;  // folders that are links to this language's
  std::size_t interfaces = 0;        // reported interfaces, absent ones included
  std::size_t absent = 0, unreadable = 0, noTable = 0;
  std::size_t translated = 0, missing = 0, unused = 0, overflowing = 0;
  // translated / (translated + missing), 1 when there is nothing to translate.
  double completeness() const;
};
// The totals of every reported language, in the plan's order.
std::vector<LanguageTotals> languageTotals(const BundlePlan& plan, const std::vector<RowSummary>& rows);

}  // namespace tq::cli::localizing
