// The tqkit tool's command registry, argument parsing and output helpers.
//
// Each command lives in its own cmd_NAME.cpp and registers itself with a static Registration. Each
// demo section lives in demo_NAME.cpp and registers a DemoSection. Conventions for every command:
// --help prints usage to stdout and exits 0; a usage error prints to stderr and exits 2; a failure
// prints "tqkit NAME: message" to stderr and exits 1; commands whose output scripts read take --json.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tq::cli {

// A usage error: the message is printed with the command's usage, exit status 2.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// A failure: the message is printed, exit status 1.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Parsed arguments: flags (--name or --name VALUE / --name=VALUE) and positionals, in order.
class Args {
 public:
  // valueFlags: the flags that take a value; boolFlags: those that do not. Anything else starting
  // with "--" is a usage error. "--" ends the flags. "-" is a positional (standard input).
  Args(const std::vector<std::string>& argv, const std::vector<std::string>& valueFlags,
       const std::vector<std::string>& boolFlags);

  bool has(const std::string& flag) const { return flags_.count(flag) != 0; }
  std::optional<std::string> value(const std::string& flag) const;
  const std::vector<std::string>& positionals() const { return positionals_; }
  // The positional at index, or a usage error naming `what`.
  const std::string& positional(std::size_t index, const char* what) const;
  // Usage error when there are fewer than min or more than max positionals.
  void expectPositionals(std::size_t min, std::size_t max) const;

 private:
  std::map<std::string, std::string> flags_;
  std::vector<std::string> positionals_;
};

struct Command {
  std::string name;     // e.g. "hex", or "net status" for a two-word command
  std::string summary;  // one line for `tqkit --help`
  std::string usage;    // the full --help text
  // Runs the command with the arguments after its name; returns the exit status.
  std::function<int(const std::vector<std::string>& args)> run;
};

struct Registration {
  explicit Registration(Command command);
};

const std::vector<Command>& commands();

// What runCommandLine() returns, having printed nothing, when `onlyMine` is set and no command
// registered here matches: the caller looks for the command elsewhere (in a command module).
inline constexpr int kNotRegisteredHere = -1;
// The commands registered here, one "NAME\tSUMMARY\n" line each (a module's list for --help).
std::string commandListing();
// Runs the command that args (the words after "tqkit") name among those registered here: --help,
// usage errors and failures are reported as described above, and standard output is finished.
// `elsewhere` lists commands kept in modules (lines as commandListing() makes them), for the help.
// Returns the exit status.
int runCommandLine(const std::vector<std::string>& args, const std::string& elsewhere, bool onlyMine);

// A part of `tqkit demo`; sections run in order of `order`, then name.
struct DemoSection {
  int order;
  std::string title;
  std::function<void()> run;
};
struct DemoRegistration {
  explicit DemoRegistration(DemoSection section);
};
const std::vector<DemoSection>& demoSections();

// --- JSON output ------------------------------------------------------------------------------

// A minimal JSON writer (UTF-8 in, escaped JSON out). The document is built in memory and written
// whole by newline(), so a command that fails half-way leaves no partial JSON behind.
class Json {
 public:
  explicit Json(std::FILE* out = stdout) : out_(out) {}
  Json& beginObject();
  Json& endObject();
  Json& beginArray();
  Json& endArray();
  Json& key(std::string_view k);
  Json& string(std::string_view s);
  Json& number(long long n);
  Json& number(double d);
  Json& boolean(bool b);
  Json& null();
  // Ends the document with a newline and writes it; Failure when it cannot be written.
  void newline();

  static std::string escape(std::string_view s);
  // Appends `s` escaped to `out`.
  static void appendEscaped(std::string& out, std::string_view s);

 private:
  void separate();
  std::FILE* out_;
  std::string buffer_;
  std::vector<bool> first_;
  bool afterKey_ = false;
};

// Reads a whole file ("-" is standard input). Throws Failure with the system's message, or when the
// input holds more than maxBytes: checked before reading where what was opened has a size, else as
// soon as more has come (a pipe or /dev/zero is read no further than the cap and a block).
std::string readFile(const std::string& path, std::size_t maxBytes);

// Flushes and closes standard output; Failure when anything written to it was lost (a full disk,
// a closed pipe reader, /dev/full). main() calls it after every command that succeeded.
void finishStandardOutput();

}  // namespace tq::cli
