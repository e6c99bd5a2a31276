// tqkit demo, files and bundles: nested folders, free names, prefix listing, and a small bundle
// with two localizations, all in a temporary folder that is removed afterwards.
#include <cstdio>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli.h"
#include "tq/foundation/bundle_extensions.h"
#include "tq/foundation/file_manager_extensions.h"
#include "tq/platform/bundle/bundle.h"

namespace {

namespace fs = std::filesystem;
using tq::String;

void write(const fs::path& p, const std::string& text) {
  fs::create_directories(p.parent_path());
  std::ofstream(p, std::ios::binary) << text;
}

void runFilesDemo() {
  std::string pattern = (fs::temp_directory_path() / "tqkit-demo-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) {
    std::printf("no temporary folder: %s\n", std::strerror(errno));
    return;
  }
  fs::path root = pattern;
  auto& fm = tq::FileManager::defaultManager();
  String base = String::fromUTF8(root.string());

  String nested = base.stringByAppendingPathComponent(u"Projects/2026/Reports");
  bool made = tq::createDirectoriesAtPath(fm, nested, tq::Dictionary{{tq::NSFilePosixPermissions, 0750}});
  std::printf("createDirectoriesAtPath(.../Projects/2026/Reports, 0750) -> %s\n", made ? "true" : "false");

  String reports = nested;
  write(fs::path(reports.UTF8String()) / "Report.txt", "first");
  String report = reports.stringByAppendingPathComponent(u"Report.txt");
  String free = tq::uniqueNameForFile(fm, report);
  std::printf("uniqueNameForFile(Report.txt) with Report.txt taken -> %s\n", free.lastPathComponent().UTF8String().c_str());
  write(free.UTF8String(), "second");

  tq::Array batch = tq::uniqueNamesForFileNames(fm, tq::Array{u"Report.txt", u"Report.txt", u"backup.tar.gz", u"Notes"}, reports);
  std::printf("uniqueNamesForFileNames(Report.txt, Report.txt, backup.tar.gz, Notes) ->");
  for (const String& s : batch.strings()) std::printf(" '%s'", s.UTF8String().c_str());
  std::printf("\n");

  tq::hideFileExtension(fm, true, report);
  bool hidden = fm.attributesOfItemAtPath(report).objectForKey(tq::NSFileExtensionHidden).boolValue();
  std::printf("hideFileExtension(YES, Report.txt) -> NSFileExtensionHidden reads %s\n",
              hidden ? "true" : "false (no extended attributes here)");

  std::printf("filesStartingWithPath(.../Reports/Report) ->");
  for (const String& s : tq::filesStartingWithPath(fm, reports.stringByAppendingPathComponent(u"Report")).strings()) {
    std::printf(" %s", s.lastPathComponent().UTF8String().c_str());
  }
  std::printf("\n");

  // A small Mac-style bundle with an English development region and a German translation.
  fs::path app = root / "Demo.app";
  write(app / "Contents/Info.plist",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
        "<key>CFBundleIdentifier</key><string>org.tqkit.demo</string>"
        "<key>CFBundleDevelopmentRegion</key><string>English</string></dict></plist>");
  fs::path res = app / "Contents/Resources";
  write(res / "logo.png", "");
  write(res / "English.lproj/Localizable.strings", "\"Open\" = \"Open\";\n\"Quit\" = \"Quit\";\n");
  write(res / "de.lproj/Localizable.strings", "/* German */\n\"Open\" = \"\xC3\x96" "ffnen\";\n");
  write(res / "de.lproj/Help.html", "");
  auto bundle = tq::Bundle::bundleWithPath(String::fromUTF8(app.string()));
  if (bundle) {
    std::printf("bundle %s: localizations", bundle->bundleIdentifier().UTF8String().c_str());
    for (const auto& l : bundle->localizations()) std::printf(" %s", l.UTF8String().c_str());
    std::printf("; preferred here");
    for (const auto& l : bundle->preferredLocalizations()) std::printf(" %s", l.UTF8String().c_str());
    std::printf("\n");
    auto table = bundle->stringsTable(u"Localizable", u"de");
    std::printf("de table: \"Open\" -> \"%s\"\n", table.objectForKey(u"Open").stringValue().UTF8String().c_str());
    std::printf("localizedStringForKey(\"Quit\") -> \"%s\"; unknown key with value \"Later\" -> \"%s\"\n",
                bundle->localizedStringForKey(u"Quit", String(), String()).UTF8String().c_str(),
                bundle->localizedStringForKey(u"Unknown", u"Later", String()).UTF8String().c_str());
    std::printf("pathForImageResource(\"logo\") -> %s\n",
                bundle->pathForImageResource(u"logo").lastPathComponent().UTF8String().c_str());
    std::printf("allResourcesForLocalization(de) ->");
    for (const auto& r : tq::allResourcesForLocalization(*bundle, u"de")) std::printf(" %s", r.UTF8String().c_str());
    std::printf("\n");
  }
  std::error_code ignored;
  fs::remove_all(root, ignored);
}

tq::cli::DemoRegistration demo({30, "Files and bundles", runFilesDemo});

}  // namespace
