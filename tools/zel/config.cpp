#include <algorithm>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/pattern.h"
#include "tools/zel/subcommands.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/key_table.h"

// The three verbs of `zel config`: what a configuration text says, what it may say, and what the
// library makes of it.

namespace zel::tool {
namespace {

using namespace Morvalen::Zel;

struct ConfigDeleter {
  void operator()(tsm_config* config) const { tsm_config_free(config); }
};
using ConfigOwner = std::unique_ptr<tsm_config, ConfigDeleter>;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

struct ConfigMessage {
  bool isError;
  int code;
  std::string text;
};

struct ConfigFile {
  ConfigOwner config;  // null when reading ended early
  std::vector<ConfigMessage> messages;
};

// One line of a message of several.
std::string lineOf(std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  std::string line(text.substr(std::min(text.find('\n') + 1, text.size())));
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

// The reader goes back to the start of its file, which a pipe can't: all is copied first.
File copyOf(const std::string& path) {
  File source(path == "-" ? stdin : std::fopen(path.c_str(), "rb"),
              path == "-" ? [](std::FILE*) { return 0; } : &std::fclose);
  if (source == nullptr) throw Failure(fmt::format("{}: {}", path, errorText(errno)));
  File copy(std::tmpfile(), &std::fclose);
  if (copy == nullptr) throw Failure("no temporary file: " + errorText(errno));
  char bytes[4096];
  for (size_t size = 0; (size = std::fread(bytes, 1, sizeof bytes, source.get())) > 0;)
    if (std::fwrite(bytes, 1, size, copy.get()) != size)
      throw Failure("temporary file: " + errorText(errno));
  if (std::ferror(source.get()) != 0) throw Failure(fmt::format("{}: {}", path, errorText(errno)));
  return copy;
}

ConfigFile readConfig(const std::string& path) {
  const File file = copyOf(path);
  ConfigFile result;
  const auto keep = [](void* user, int severity, int code, const char* text, int) {
    static_cast<std::vector<ConfigMessage>*>(user)->push_back({severity != 0, code, lineOf(text)});
  };
  result.config.reset(
      tsm_config_read(file.get(), nullptr, nullptr, nullptr, &result.messages, keep));
  return result;
}

struct FileOptions {
  std::string path;
};

void declareFile(CLI::App& app, FileOptions& options) {
  app.add_option("FILE", options.path, "configuration file, - for standard input")->required();
}

ExitCode check(const FileOptions& options, Console& console) {
  const ConfigFile read = readConfig(options.path);
  nlohmann::ordered_json document;
  document["messages"] = nlohmann::ordered_json::array();
  size_t errors = 0;
  std::string text;
  for (const ConfigMessage& each : read.messages) {
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
  const ConfigFile read = readConfig(options.path);
  for (const ConfigMessage& each : read.messages) console.warn(each.text);
  if (read.config == nullptr)
    throw Failure(fmt::format("{}: it can't be read as a configuration", options.path));
  const File file(std::tmpfile(), &std::fclose);
  if (file == nullptr) throw Failure("no temporary file: " + errorText(errno));
  tsm_config_write(read.config.get(), file.get());
  std::string text(static_cast<size_t>(std::max(0L, std::ftell(file.get()))), '\0');
  std::rewind(file.get());
  text.resize(std::fread(text.data(), 1, text.size(), file.get()));
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
