#include <csignal>
#include <cstdio>

#include "tools/zel/console.h"
#include "tools/zel/registry.h"
#include "tools/zel/subcommand.h"
#include "tools/zel/unfinished_files.h"

int main(int argc, char** argv) {
  using namespace zel::tool;
  removeUnfinishedFilesOnSignals();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const std::vector<Subcommand> subcommands = allSubcommands();
  Console console(stdout, stderr);
  return static_cast<int>(runTool(subcommands, arguments, console));
}
