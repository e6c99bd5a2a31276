// Command modules: shared objects holding the commands that need more of the library than the tqkit
// program links in (the network store; drawing, text and images), opened with dlopen only when one
// of their commands is asked for. They are looked for beside the program (the build tree), then in
// the installed folder for them (LIBDIR/tqkit).
//
// The program and a module meet through two C functions, so that no C++ object or exception crosses
// between the program's own C++ run-time and the module's:
//   int tqkit_module_run(int argc, char** argv)   runs the command line as the program would, or
//                                                 returns kNotRegisteredHere having printed nothing
//   const char* tqkit_module_commands(void)       its commandListing()
#pragma once

#include <optional>
#include <string>

namespace tq::cli {

// Runs the command line (argv[0] is the program) in the module that holds its command: first the
// modules that serve its first word, then the others. Nothing when no module holds it.
std::optional<int> runInModule(int argc, char** argv);

// Every module's commandListing(). A module that cannot be opened is named on standard error, with
// the reason.
std::string moduleListing();

}  // namespace tq::cli
