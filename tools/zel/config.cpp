#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/input_path.h"
#include "tools/zel/mux/read_configuration.h"
#include "tools/zel/pattern.h"
#include "tools/zel/subcommands.h"
#include "tools/zel/temporary_file.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/key_table.h"

// The three verbs of `zel config`: what a configuration text says, what it may say, and what the
// library makes of it.

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

struct FileOptions {
  std::string path;
};

void declareFile(CLI::App& app, FileOptions& options) {
  app.add_option("FILE", options.path, "configuration file, - for standard input")->required();
}

ExitCode check(const FileOptions& options, Console& console) {
  const ReadConfiguration read = readConfiguration(contentsOf(options.path));
  nlohmann::ordered_json document;
  document["messages"] = nlohmann::ordered_json::array();
  size_t errors = 0;
  std::string text;
  for (const ConfigurationMessage& each : read.messages) {
    errors += each.isError;
    const char* word = each.isError ? "error" : "warning";
    text += fmt::format("{}: {} {}: {}\n", options.path, word, each.code, each.text);
    document["messages"].push_back({{"severity", word}, {"code", each.code}, {"text", each.text}});
    if (!each.isError) console.warn(each.text);
  }
  document["errors"] = errors;
  if (console.json)
    console.printJson(document);
  else
    console.print(errors == 0 && text.empty() ? fmt::format("{}: no faults\n", options.path)
                                              : text);
  if (errors != 0) {
    console.fail(fmt::format("{}: {} error{}", options.path, errors, errors == 1 ? "" : "s"));
    return ExitCode::kFailed;
  }
  return console.done();
}

ExitCode print(const FileOptions& options, Console& console) {
  const ReadConfiguration read = readConfiguration(contentsOf(options.path));
  for (const ConfigurationMessage& each : read.messages) console.warn(each.text);
  if (read.config == nullptr)
    throw Failure(fmt::format("{}: it can't be read as a configuration", options.path));
  TemporaryFile file;
  tsm_config_write(read.config.get(), file.get());
  const std::string text = file.text();
  if (console.json)
    console.printJson({{"configuration", text}});
  else
    console.print(text);
  return console.done();
}

struct ConfigKeysOptions {
  std::string pattern;
};

void declareKeys(CLI::App& app, ConfigKeysOptions& options) {
  app.add_option("PATTERN", options.pattern,
                 "only keys that contain this text; with *, ? or [ in it, a shell pattern for the "
                 "whole key; letters match in either case");
}

std::string keyName(const tsm_config_key& key) {
  std::string name(key.name);
  if (key.kind == tsm_value_kind::hex_list) name += "1...";
  if (key.kind == tsm_value_kind::files) name += fmt::format(", {}1...", key.numberedName);
  return name;
}

std::string defaultText(const tsm_config_key& key) {
  switch (key.kind) {
    case tsm_value_kind::yes_no:
    case tsm_value_kind::mask_bit:
      return key.fallback != 0 ? "yes" : "no";
    case tsm_value_kind::choice:
      return std::string(key.choices[static_cast<size_t>(key.fallback)]);
    case tsm_value_kind::integer:
    case tsm_value_kind::long_integer:
    case tsm_value_kind::wide_integer:
      return fmt::format("{}", static_cast<int64_t>(key.fallback));
    case tsm_value_kind::real:
      return fmt::format("{:.1f}", key.fallback);
    default:
      return "";
  }
}

ExitCode keys(const ConfigKeysOptions& options, Console& console) {
  const Pattern pattern(options.pattern);
  nlohmann::ordered_json document = nlohmann::ordered_json::object();
  std::string text;
  for (const tsm_config_section& section : tsm_config_sections()) {
    std::string rows;
    for (const tsm_config_key& key : section.keys) {
      if (!pattern.matches(key.name)) continue;
      rows += fmt::format("  {:<32}  {:<12}  {}", keyName(key), tsm_value_kind_name(key.kind),
                          defaultText(key));
      rows.erase(rows.find_last_not_of(' ') + 1);
      if (!key.choices.empty()) rows += fmt::format(" ({})", fmt::join(key.choices, ", "));
      rows += '\n';
      auto& object = document[std::string(section.name)][std::string(key.name)];
      object["type"] = tsm_value_kind_name(key.kind);
      object["default"] = defaultText(key);
      if (!key.choices.empty()) object["choices"] = key.choices;
    }
    if (!rows.empty())
      text += fmt::format("{}{}:\n{}", text.empty() ? "" : "\n", section.name, rows);
  }
  if (text.empty()) throw Failure(fmt::format("no key matches \"{}\"", options.pattern));
  if (console.json)
    console.printJson(document);
  else
    console.print(text);
  return console.done();
}

}  // namespace

Subcommand configCheckSubcommand() {
  return makeSubcommand<FileOptions>(
      {"config",
       "check",
       "[options] FILE",
       "check a multiplexer configuration",
       "Reads a multiplexer configuration and tells every fault in it. Files that it names aren't "
       "opened.",
       {"zel config check mux.cfg", "cat mux.cfg | zel config check --json -"}},
      declareFile, check);
}

Subcommand configKeysSubcommand() {
  return makeSubcommand<ConfigKeysOptions>(
      {"config",
       "keys",
       "[options] [PATTERN]",
       "list the keys of multiplexer configurations",
       "Lists the keys that a multiplexer configuration may hold: by section, with the kind of "
       "value and the default.",
       {"zel config keys", "zel config keys 'Pkt*'", "zel config keys --json Descriptor"}},
      declareKeys, keys);
}

Subcommand configPrintSubcommand() {
  return makeSubcommand<FileOptions>(
      {"config",
       "print",
       "[options] FILE",
       "print a multiplexer configuration as it was understood",
       "Reads a multiplexer configuration and writes it to standard output in its fixed order: "
       "without what is at its default, with every PID allotted.",
       {"zel config print mux.cfg"}},
      declareFile, print);
}

}  // namespace zel::tool
