#include "command_modules.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"

namespace tq::cli {

namespace {

struct ModuleFile {
  const char* name;   // file name without ".so"
  const char* words;  // the first words of its commands, space-separated (a hint: order of search)
};

// Written by the build: one {name, words} per module; empty when the libraries are static and
// every command is in the program.
constexpr ModuleFile kModules[] = {
#include "command_modules.inc"
    {nullptr, nullptr}};
constexpr std::size_t kModuleCount = sizeof kModules / sizeof kModules[0] - 1;

using RunFunction = int (*)(int, char**);
using CommandsFunction = const char* (*)();

struct Module {
  bool tried = false;
  RunFunction run = nullptr;
  CommandsFunction commands = nullptr;
  std::string error;
};

std::string programFolder() {
  char path[4096];
  ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return ".";
  std::string p(path, static_cast<std::size_t>(n));
  std::size_t slash = p.rfind('/');
  return slash == std::string::npos ? "." : p.substr(0, slash);
}

Module& open(std::size_t index) {
  static Module modules[kModuleCount ? kModuleCount : 1];
  Module& m = modules[index];
  if (m.tried) return m;
  m.tried = true;
  std::string file = std::string(kModules[index].name) + ".so";
  std::string folder = programFolder();
  std::string places[] = {folder + "/" + file, folder + "/" TQKIT_MODULE_FOLDER_FROM_PROGRAM "/" + file};
  for (const std::string& place : places) {
    if (::access(place.c_str(), F_OK) != 0) continue;
    void* handle = ::dlopen(place.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (!handle) {
      m.error = ::dlerror();
      return m;
    }
    m.run = reinterpret_cast<RunFunction>(::dlsym(handle, "tqkit_module_run"));
    m.commands = reinterpret_cast<CommandsFunction>(::dlsym(handle, "tqkit_module_commands"));
    if (!m.run || !m.commands) {
      m.error = place + ": not a tqkit command module";
      m.run = nullptr;
    }
    return m;
  }
  m.error = file + ": not found beside the program nor in " + folder + "/" TQKIT_MODULE_FOLDER_FROM_PROGRAM;
  return m;
}

bool serves(const ModuleFile& module, const char* word) {
  std::string words = std::string(" ") + module.words + " ";
  return words.find(std::string(" ") + word + " ") != std::string::npos;
}

}  // namespace

std::optional<int> runInModule(int argc, char** argv) {
  if (argc < 2) return std::nullopt;
  for (bool hinted : {true, false}) {
    for (std::size_t i = 0; i < kModuleCount; ++i) {
      if (serves(kModules[i], argv[1]) != hinted) continue;
      Module& m = open(i);
      if (!m.run) continue;
      int status = m.run(argc, argv);
      if (status != kNotRegisteredHere) return status;
    }
  }
  return std::nullopt;
}

std::string moduleListing() {
  std::string listing;
  for (std::size_t i = 0; i < kModuleCount; ++i) {
    Module& m = open(i);
    if (m.run) {
      listing += m.commands();
    } else {
      std::fprintf(stderr, "tqkit: %s\n", m.error.c_str());
    }
  }
  return listing;
}

}  // namespace tq::cli
