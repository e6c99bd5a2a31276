// tqkit unique-names: free names for a batch of files bound for one folder.
#include <cstdio>

#include "cli.h"
#include "tq/foundation/file_manager_extensions.h"
#include "tq/platform/fs/file_manager.h"

namespace {

int runUniqueNames(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  if (args.positionals().size() < 2) throw tq::cli::UsageError("expected FOLDER and at least one NAME");
  std::vector<tq::String> names;
  for (std::size_t i = 1; i < args.positionals().size(); ++i) names.push_back(tq::FileManager::stringWithFileSystemRepresentation(args.positionals()[i]));
  auto& manager = tq::FileManager::defaultManager();
  tq::String folder = tq::FileManager::stringWithFileSystemRepresentation(args.positionals()[0]);
  bool isDirectory = false;
  if (!manager.fileExistsAtPath(folder, &isDirectory) || !isDirectory) {
    throw tq::cli::Failure("no folder at " + args.positionals()[0]);
  }
  tq::Array result = tq::uniqueNamesForFileNames(manager, tq::Array::withStrings(names), folder);
  if (args.has("json")) {
    tq::cli::Json json;
    json.beginArray();
    for (const auto& s : result.strings()) json.string(s.UTF8String());
    json.endArray();
    json.newline();
    return 0;
  }
  for (const auto& s : result.strings()) std::printf("%s\n", tq::FileManager::fileSystemRepresentation(s).c_str());
  return 0;
}

tq::cli::Registration uniqueNames({"unique-names", "free file names for a batch copied into a folder",
                                   "usage: tqkit unique-names FOLDER NAME... [--json]\n\n"
                                   "Prints, for each NAME in order, a name that is free in FOLDER and not given\n"
                                   "to an earlier NAME: 'Report.txt' taken becomes 'Report 02.txt', then\n"
                                   "'Report 03.txt'. Nothing is created.\n"
                                   "  --json  a JSON array of the names\n",
                                   runUniqueNames});

}  // namespace
