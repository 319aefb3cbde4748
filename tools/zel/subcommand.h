#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/zel/console.h"
#include "tools/zel/exit_code.h"

namespace zel::tool {

/// What --help says of a subcommand besides its options.
struct SubcommandText {
  std::string noun;
  std::string verb;                   ///< empty when the noun stands alone
  std::string operands;               ///< "[options] INPUT -o OUT.hevc"
  std::string summary;                ///< one line, for lists: no full stop
  std::string description;            ///< sentences; paragraphs with a blank line between
  std::vector<std::string> examples;  ///< command lines, in an order in which they can be run

  /// "hevc encode"
  std::string name() const { return verb.empty() ? noun : noun + " " + verb; }
};

/// A row of the registry: how a subcommand is called, and how it runs. Made by `makeSubcommand`.
struct Subcommand {
  SubcommandText text;
  /// Adds the options to `app`; what comes back runs the work once `app` has parsed a command line.
  std::function<std::function<ExitCode(Console&)>(CLI::App& app)> declare;
};

/// Ties an options struct, the function that declares the options on a parser, and the one that
/// does the work. A file per subcommand holds the three.
template <class Options>
Subcommand makeSubcommand(SubcommandText text, void (*declareOptions)(CLI::App&, Options&),
                          ExitCode (*run)(const Options&, Console&)) {
  return {std::move(text), [declareOptions, run](CLI::App& app) {
            auto options = std::make_shared<Options>();
            declareOptions(app, *options);
            return [options, run](Console& console) { return run(*options, console); };
          }};
}

/// Finds the subcommand that `arguments` (without the program's name) call for, and runs it. Every
/// outcome is told on the console, and nothing is thrown.
ExitCode runTool(std::span<const Subcommand> subcommands, std::span<const std::string> arguments,
                 Console& console);

}  // namespace zel::tool
