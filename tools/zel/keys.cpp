#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/zel/failure.h"
#include "tools/zel/pattern.h"
#include "tools/zel/subcommands.h"
#include "zel/runtime/vocabulary.h"

namespace zel::tool {
namespace {

using Morvalen::Zel::GetPropertyKeyClasses;
using Morvalen::Zel::PropertyKey;

struct KeysOptions {
  std::string pattern;
};

void declareOptions(CLI::App& app, KeysOptions& options) {
  app.add_option("PATTERN", options.pattern,
                 "only keys that contain this text, in their name or in the key itself; with *, ? "
                 "or [ in it, a shell pattern for the whole of either; letters match in either "
                 "case");
}

struct MatchedClass {
  std::string_view name;
  std::vector<PropertyKey> keys;
};

// Every class is there, even when nothing in it matched: a reader of the document finds it.
std::vector<MatchedClass> matchedClasses(const Pattern& pattern) {
  std::vector<MatchedClass> result;
  for (const auto& each : GetPropertyKeyClasses()) {
    MatchedClass matched{each.name, {}};
    std::copy_if(each.keys.begin(), each.keys.end(), std::back_inserter(matched.keys),
                 [&](const PropertyKey& key) {
                   return pattern.matches(key.name) || pattern.matches(key.text);
                 });
    result.push_back(std::move(matched));
  }
  return result;
}

nlohmann::ordered_json documentOf(const std::vector<MatchedClass>& classes) {
  nlohmann::ordered_json document;
  for (const MatchedClass& each : classes) {
    auto& object = document[std::string(each.name)] = nlohmann::ordered_json::object();
    for (const PropertyKey& key : each.keys) object[std::string(key.name)] = key.text;
  }
  return document;
}

std::string textOf(const std::vector<MatchedClass>& classes) {
  size_t width = 0;
  for (const MatchedClass& each : classes)
    for (const PropertyKey& key : each.keys) width = std::max(width, key.name.size());
  std::string text;
  for (const MatchedClass& each : classes) {
    if (each.keys.empty()) continue;
    text += fmt::format("{}{}:\n", text.empty() ? "" : "\n", each.name);
    for (const PropertyKey& key : each.keys)
      text += fmt::format("  {:<{}}  {}\n", key.name, width, key.text);
  }
  return text;
}

ExitCode run(const KeysOptions& options, Console& console) {
  const std::vector<MatchedClass> classes = matchedClasses(Pattern(options.pattern));
  const bool found = std::any_of(classes.begin(), classes.end(),
                                 [](const MatchedClass& each) { return !each.keys.empty(); });
  if (!found) throw Failure(fmt::format("no key matches \"{}\"", options.pattern));
  if (console.json)
    console.printJson(documentOf(classes));
  else
    console.print(textOf(classes));
  return console.done();
}

}  // namespace

Subcommand keysSubcommand() {
  return makeSubcommand<KeysOptions>(
      {"keys",
       "",
       "[options] [PATTERN]",
       "list the property keys",
       "Lists the property keys that the library and the framework around it know: the name of the "
       "constant and the key itself, by class, in the order of the exported data.",
       {"zel keys", "zel keys x265", "zel keys 'aja.*'", "zel keys --json timecode"}},
      declareOptions, run);
}

}  // namespace zel::tool
