#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/zel/mux/multiplex_plan.h"

namespace zel::tool {

/// The command line of `zel mux`. What makes the plan counts in the order in which it was typed:
/// streams belong to the program named before them.
struct MuxOptions {
  struct Piece {
    std::string option;  ///< "--video"; "INPUT" for an operand
    std::string value;
  };

  std::optional<std::string> output;
  std::optional<std::string> config;
  std::optional<std::string> saveConfig;
  std::optional<std::string> trace;
  std::optional<int64_t> rate;
  std::vector<std::string> settings;  // --set, as typed
  bool twoPass = false;

  /// Streams and programs in the order of the command line; valid once `app` has parsed it.
  std::vector<Piece> pieces() const;

  const CLI::App* app = nullptr;
  // Where the parser puts the values of the pieces, kind by kind; their order it tells elsewhere.
  std::vector<std::string> inputs, streams;
};

void declareMuxOptions(CLI::App& app, MuxOptions& options);

/// What the options other than --config ask for. INPUT files are opened, to see what they are.
MultiplexPlan planOf(const MuxOptions& options);

/// The keys of the Transport section that options give: --set, then --rate and --output.
std::vector<KeyValue> transportKeysOf(const MuxOptions& options);

}  // namespace zel::tool
