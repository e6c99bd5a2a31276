// tqkit bundle info / bundle resources: what a bundle folder offers.
#include <cstdio>

#include "cli.h"
#include "tq/foundation/bundle_extensions.h"
#include "tq/platform/fs/file_manager.h"
#include "tq/platform/bundle/bundle.h"

namespace {

using tq::Bundle;
using tq::String;

std::shared_ptr<Bundle> openBundle(const std::string& path) {
  auto bundle = Bundle::bundleWithPath(tq::FileManager::stringWithFileSystemRepresentation(path));
  if (!bundle) throw tq::cli::Failure("no bundle folder at " + path);
  return bundle;
}

std::string join(const std::vector<String>& items) {
  std::string out;
  for (const auto& s : items) out += (out.empty() ? "" : ", ") + s.UTF8String();
  return out.empty() ? "(none)" : out;
}

void jsonStringOrNull(tq::cli::Json& json, const String& s) {
  if (s.isNil()) json.null();
  else json.string(s.UTF8String());
}

void jsonArray(tq::cli::Json& json, const std::vector<String>& items) {
  json.beginArray();
  for (const auto& s : items) json.string(s.UTF8String());
  json.endArray();
}

int runInfo(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  args.expectPositionals(1, 1);
  auto bundle = openBundle(args.positional(0, "PATH"));
  if (args.has("json")) {
    tq::cli::Json json;
    json.beginObject();
    json.key("path").string(bundle->bundlePath().UTF8String());
    json.key("identifier");
    jsonStringOrNull(json, bundle->bundleIdentifier());
    json.key("resourcePath").string(bundle->resourcePath().UTF8String());
    json.key("developmentLocalization");
    jsonStringOrNull(json, bundle->developmentLocalization());
    json.key("localizations");
    jsonArray(json, bundle->localizations());
    json.key("preferredLocalizations");
    jsonArray(json, bundle->preferredLocalizations());
    json.endObject();
    json.newline();
    return 0;
  }
  String identifier = bundle->bundleIdentifier();
  String development = bundle->developmentLocalization();
  std::printf("path:                     %s\n", bundle->bundlePath().UTF8String().c_str());
  std::printf("identifier:               %s\n", identifier.isNil() ? "(none)" : identifier.UTF8String().c_str());
  std::printf("resource directory:       %s\n", bundle->resourcePath().UTF8String().c_str());
  std::printf("development localization: %s\n", development.isNil() ? "(none)" : development.UTF8String().c_str());
  std::printf("localizations:            %s\n", join(bundle->localizations()).c_str());
  std::printf("preferred localizations:  %s\n", join(bundle->preferredLocalizations()).c_str());
  return 0;
}

int runResources(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {"json"});
  args.expectPositionals(2, 2);
  auto bundle = openBundle(args.positional(0, "PATH"));
  auto resources = tq::allResourcesForLocalization(*bundle, String::fromUTF8(args.positional(1, "LOCALIZATION")));
  if (args.has("json")) {
    tq::cli::Json json;
    json.beginArray();
    for (const auto& r : resources) json.string(r.UTF8String());
    json.endArray();
    json.newline();
    return 0;
  }
  // Names as the file system spells them, bytes that are not UTF-8 included, as ls prints them.
  for (const auto& r : resources) std::printf("%s\n", tq::FileManager::fileSystemRepresentation(r).c_str());
  return 0;
}

int runBundle(const std::vector<std::string>& argv) {
  if (argv.empty()) throw tq::cli::UsageError("expected 'info' or 'resources'");
  throw tq::cli::UsageError("unknown bundle command '" + argv[0] + "'");
}

tq::cli::Registration info({"bundle info", "identifier, resource folder and localizations of a bundle",
                            "usage: tqkit bundle info PATH [--json]\n\n"
                            "Opens the bundle folder at PATH (Mac layout X.app/Contents/Resources, framework,\n"
                            "Resources/ or flat) and prints its identifier, resource directory, development\n"
                            "localization, localizations, and the localizations preferred for the current\n"
                            "environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG).\n"
                            "  --json  one JSON object: path, identifier, resourcePath,\n"
                            "          developmentLocalization, localizations, preferredLocalizations\n",
                            runInfo});

tq::cli::Registration resources({"bundle resources", "the resource names one localization of a bundle sees",
                                 "usage: tqkit bundle resources PATH LOCALIZATION [--json]\n\n"
                                 "Lists the entries at the top of the bundle's resource directory (all but\n"
                                 "*.lproj folders) and the entries of LOCALIZATION.lproj as\n"
                                 "LOCALIZATION.lproj/NAME, one level deep, sorted, one per line.\n"
                                 "  --json  a JSON array of the names\n",
                                 runResources});

tq::cli::Registration bundle({"bundle", "bundle commands: info, resources",
                              "usage: tqkit bundle info PATH [--json]\n"
                              "       tqkit bundle resources PATH LOCALIZATION [--json]\n",
                              runBundle});

}  // namespace
