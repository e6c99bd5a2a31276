// The entry points of a command module (see command_modules.h).
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"

extern "C" __attribute__((visibility("default"))) int tqkit_module_run(int argc, char** argv) {
  try {
    return tq::cli::runCommandLine(std::vector<std::string>(argv + 1, argv + argc), "", true);
  } catch (...) {
    std::fputs("tqkit: unexpected error\n", stderr);  // no exception may leave the module
    return 1;
  }
}

extern "C" __attribute__((visibility("default"))) const char* tqkit_module_commands() {
  static const std::string listing = tq::cli::commandListing();
  return listing.c_str();
}
