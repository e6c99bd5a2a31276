// The languages and interfaces of a bundle, and which way each language gets each interface.
#include "localize_bundle.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>

namespace tq::cli::localizing {

namespace fs = std::filesystem;

namespace {

std::string u8(const String& s) { return s.isNil() ? std::string() : s.UTF8String(); }

// The names of the strings tables the given localizations hold ("Localizable", "Sparkle"...).
std::set<std::string> tablesOf(const fs::path& resources, const std::vector<std::string>& languages) {
  std::set<std::string> names;
  for (const auto& l : languages) {
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(resources / (l + ".lproj"), ec)) {
      if (e.path().extension() == ".strings") names.insert(e.path().stem().string());
    }
  }
  return names;
}

// The interfaces of one folder, by name.
std::map<std::string, std::string> interfacesIn(const fs::path& folder) {
  std::map<std::string, std::string> found;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(folder, ec)) {
    const std::string name = interfaceNameOf(e.path());
    // A compiled form before its document (NAME.nib before NAME.xib, NAME.storyboardc before
    // NAME.storyboard), as the bundle's own search takes them.
    const auto extension = e.path().extension();
    if (!name.empty() && (!found.count(name) || extension == ".nib" || extension == ".storyboardc")) {
      found[name] = e.path().string();
    }
  }
  return found;
}

}  // namespace

std::string interfaceNameOf(const fs::path& entry) {
  const auto extension = entry.extension();
  if (extension == ".nib" || extension == ".xib" || extension == ".storyboard" || extension == ".storyboardc") {
    return entry.stem().string();
  }
  return {};
}

BundlePlan planBundle(const Bundle& bundle) {
  BundlePlan plan;
  const fs::path resources = u8(bundle.resourcePath());

  // Language folders that are the same folder (one a link to the other) count once: the one that
  // is no link, else the first by name, stands for the others.
  std::vector<std::string> primaries;
  std::map<std::pair<dev_t, ino_t>, std::string> byIdentity;
  std::vector<std::string> names;
  for (const auto& l : bundle.localizations()) names.push_back(u8(l));
  std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
    struct stat sa {}, sb {};
    const bool linkA = ::lstat((resources / (a + ".lproj")).c_str(), &sa) == 0 && S_ISLNK(sa.st_mode);
    const bool linkB = ::lstat((resources / (b + ".lproj")).c_str(), &sb) == 0 && S_ISLNK(sb.st_mode);
    return linkA != linkB ? !linkA : a < b;
  });
  for (const auto& name : names) {
    struct stat st {};
    if (::stat((resources / (name + ".lproj")).c_str(), &st) != 0) continue;
    auto [it, fresh] = byIdentity.emplace(std::make_pair(st.st_dev, st.st_ino), name);
    if (fresh) {
      primaries.push_back(name);
    } else {
      plan.aliases.push_back({name, it->second});
    }
  }
  std::sort(primaries.begin(), primaries.end());
  std::sort(plan.aliases.begin(), plan.aliases.end(),
            [](const Alias& a, const Alias& b) { return a.localization < b.localization; });
  const auto aliasTarget = [&](const std::string& name) {
    for (const auto& a : plan.aliases) {
      if (a.localization == name) return a.sameAs;
    }
    return name;
  };

  std::vector<std::string> languages;
  for (const auto& l : primaries) {
    if (l != "Base") languages.push_back(l);
  }
  const auto has = [&](const std::string& l) { return std::find(languages.begin(), languages.end(), l) != languages.end(); };
  // The development language: the bundle's region, else English by either name.
  plan.development = aliasTarget(u8(bundle.developmentLocalization()));
  if (plan.development.empty() || !has(plan.development)) {
    plan.development.clear();
    for (const char* english : {"en", "English"}) {
      if (has(english)) plan.development = english;
    }
  }
  for (const auto& l : languages) {
    if (l != plan.development) plan.languages.push_back(l);
  }

  // Interfaces outside the language folders are in the development language and translated by the
  // localizer from the default table; a bundle without one (a framework that names its table after
  // itself) is translated from the one table its languages hold, or the one named for the bundle.
  std::string sharedTable;
  const std::set<std::string> tables = tablesOf(resources, languages);
  if (!tables.count("Localizable")) {
    const std::string own = fs::path(u8(bundle.bundlePath())).stem().string();
    if (tables.size() == 1) {
      sharedTable = *tables.begin();
    } else if (tables.count(own)) {
      sharedTable = own;
    }
  }

  const auto unlocalized = interfacesIn(resources);
  const auto base = interfacesIn(resources / "Base.lproj");
  std::map<std::string, std::map<std::string, std::string>> copies;  // name -> language -> file
  for (const auto& l : languages) {
    for (const auto& [name, file] : interfacesIn(resources / (l + ".lproj"))) copies[name][l] = file;
  }
  std::set<std::string> all;
  for (const auto* folder : {&unlocalized, &base}) {
    for (const auto& [name, file] : *folder) all.insert(name), ++plan.interfaceFiles;
  }
  for (const auto& [name, holders] : copies) all.insert(name), plan.interfaceFiles += holders.size();

  for (const auto& name : all) {
    InterfacePlan interface;
    interface.name = name;
    const auto find = [&](const std::map<std::string, std::string>& in) {
      auto it = in.find(name);
      return it == in.end() ? std::string() : it->second;
    };
    const auto held = copies.find(name);
    const std::map<std::string, std::string> none;
    const auto& own = held == copies.end() ? none : held->second;
    const std::string inBase = find(base), outside = find(unlocalized);
    if (auto it = own.find(plan.development); it != own.end()) {
      interface.developmentFile = it->second;
    } else {
      interface.developmentFile = !inBase.empty() ? inBase : !outside.empty() ? outside : own.begin()->second;
    }
    for (const auto& l : plan.languages) {
      Row row;
      row.localization = l;
      if (auto it = own.find(l); it != own.end()) {
        if (it->second == interface.developmentFile) continue;  // the original itself
        row.mode = Mode::Copy, row.file = it->second;
      } else if (!inBase.empty()) {
        row.mode = Mode::ById, row.file = inBase;
      } else if (!outside.empty()) {
        row.mode = Mode::Localizer, row.file = outside, row.sharedTable = sharedTable;
      }
      interface.rows.push_back(std::move(row));
    }
    plan.interfaces.push_back(std::move(interface));
  }
  return plan;
}

RowSummary summaryOf(const Report& report) {
  RowSummary r;
  r.interface = report.interfaceName, r.localization = report.localization, r.table = report.table;
  r.error = report.error, r.mode = report.mode, r.tableFound = report.tableFound;
  r.translated = report.translated(), r.missing = report.missing.size(), r.unused = report.unused.size();
  r.overflowing = report.overflows.size();
  return r;
}

double LanguageTotals::completeness() const {
  return translated + missing == 0 ? 1.0 : static_cast<double>(translated) / static_cast<double>(translated + missing);
}

std::vector<LanguageTotals> languageTotals(const BundlePlan& plan, const std::vector<RowSummary>& rows) {
  std::vector<LanguageTotals> totals;
  std::map<std::string, std::size_t> at;
  for (const auto& l : plan.languages) {
    at[l] = totals.size();
    totals.push_back({});
    totals.back().localization = l;
  }
  for (const auto& a : plan.aliases) {
    if (auto it = at.find(a.sameAs); it != at.end()) totals[it->second].aliases.push_back(a.localization);
  }
  for (const auto& r : rows) {
    auto it = at.find(r.localization);
    if (it == at.end()) continue;
    LanguageTotals& t = totals[it->second];
    ++t.interfaces;
    t.absent += r.mode == Mode::Absent;
    t.unreadable += !r.error.empty();
    t.noTable += r.error.empty() && !r.tableFound;
    t.translated += r.translated, t.missing += r.missing, t.unused += r.unused, t.overflowing += r.overflowing;
  }
  return totals;
}

}  // namespace tq::cli::localizing
