// tqkit demo: each family shows its services at work on sample data.
#include <cstdio>

#include "cli.h"

namespace {

int runDemo(const std::vector<std::string>& argv) {
  tq::cli::Args args(argv, {}, {});
  args.expectPositionals(0, 0);
  const auto& sections = tq::cli::demoSections();
  for (const auto& s : sections) {
    std::printf("== %s ==\n", s.title.c_str());
    s.run();
    std::printf("\n");
  }
  std::fflush(stdout);
  return 0;
}

tq::cli::Registration demo({"demo", "show the library's services at work on sample data",
                            "usage: tqkit demo\n\n"
                            "Runs every family's demonstration in turn and prints what each call returns.\n",
                            runDemo});

}  // namespace
