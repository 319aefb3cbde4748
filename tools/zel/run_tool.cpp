#include <algorithm>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "tools/zel/help_text.h"
#include "tools/zel/subcommand.h"
#include "tools/zel/suggestion.h"

// The noun and the verb pick a row of the registry; only that row's options are then declared and
// parsed, so that a command line costs what its own subcommand costs, and an error can name it.

namespace zel::tool {
namespace {

using Arguments = std::span<const std::string>;

bool isHelp(const std::string& argument) {
  return argument == "--help" || argument == "-h";
}

std::vector<std::string> nouns(std::span<const Subcommand> subcommands) {
  std::vector<std::string> result;
  for (const Subcommand& each : subcommands)
    if (std::find(result.begin(), result.end(), each.text.noun) == result.end())
      result.push_back(each.text.noun);
  return result;
}

std::vector<std::string> verbs(std::span<const Subcommand> subcommands, const std::string& noun) {
  std::vector<std::string> result;
  for (const Subcommand& each : subcommands)
    if (each.text.noun == noun && !each.text.verb.empty()) result.push_back(each.text.verb);
  return result;
}

const Subcommand* find(std::span<const Subcommand> subcommands, const std::string& noun,
                       const std::string& verb) {
  for (const Subcommand& each : subcommands)
    if (each.text.noun == noun && each.text.verb == verb) return &each;
  return nullptr;
}

std::string listed(const std::vector<std::string>& names) {
  return fmt::format("{}", fmt::join(names, ", "));
}

void declareCommonOptions(CLI::App& app, Console& console) {
  const char* const group = "Common options";
  app.add_flag("--json", console.json, "print the results as one JSON document")->group(group);
  app.add_flag("--quiet", console.quiet, "no progress and no summary; warnings and errors stay")
      ->group(group);
  app.add_flag("--report-warnings", console.reportWarnings,
               "end with exit code 3 when the work was done but there were warnings")
      ->group(group);
  app.set_help_flag("-h,--help", "print this help")->group(group);
}

// The parser's own texts name types and counts; ours name the option and what it takes.
std::string textOf(const CLI::ParseError& error, const CLI::App& app) {
  std::string what = error.what();
  const std::string name = what.substr(0, what.find(':'));
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    const CLI::Option* option = app.get_option_no_throw(name);
    if (option != nullptr && option->get_items_expected_max() > 0)
      return fmt::format("{} needs a value: {} {}", name, name, option->get_type_name());
    return fmt::format("{} takes no value", what.substr(0, what.find(' ')));
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    const std::string missing = what.substr(0, what.find(" is required"));
    const CLI::Option* option = app.get_option_no_throw(missing);
    if (option == nullptr) return missing + " is missing";
    return fmt::format("{} is missing: {}",
                       option->get_positional() ? missing : "option " + missing,
                       option->get_description());
  }
  return what;
}

std::string textOfExtra(const std::string& extra, const CLI::App& app) {
  if (extra.size() < 2 || extra[0] != '-')
    return fmt::format("there is one operand too many: \"{}\"", extra);
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options())
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  const std::string name = extra.substr(0, extra.find('='));
  return fmt::format("there is no option {}{}", name, didYouMean(name, names));
}

// What the parser could not place. It leaves the mark that ends the options ("--") among it.
std::vector<std::string> extrasOf(const CLI::App& app) {
  std::vector<std::string> extras = app.remaining();
  const auto mark = std::find(extras.begin(), extras.end(), "--");
  if (mark != extras.end()) extras.erase(mark);
  return extras;
}

ExitCode runSubcommand(const Subcommand& subcommand, Arguments arguments, Console& console) {
  CLI::App app;
  app.allow_extras();  // to name them ourselves
  const auto run = subcommand.declare(app);
  declareCommonOptions(app, console);
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    console.print(helpText(subcommand.text, app));
    return ExitCode::kDone;
  } catch (const CLI::ParseError& error) {
    // An unknown option explains most of what the parser stumbles over next.
    for (const std::string& extra : extrasOf(app))
      if (extra.size() > 1 && extra[0] == '-') throw WrongUsage(textOfExtra(extra, app));
    throw WrongUsage(textOf(error, app));
  }
  const std::vector<std::string> extras = extrasOf(app);
  if (!extras.empty()) throw WrongUsage(textOfExtra(extras.front(), app));
  return run(console);
}

ExitCode dispatch(std::span<const Subcommand> subcommands, Arguments arguments, Console& console) {
  const std::vector<std::string> allNouns = nouns(subcommands);
  if (arguments.empty()) throw WrongUsage("a subcommand is missing: one of " + listed(allNouns));
  const std::string& noun = arguments[0];
  if (isHelp(noun)) {
    console.print(toolHelpText(subcommands));
    return ExitCode::kDone;
  }
  if (noun == "--version") {
    console.print("zel " ZEL_VERSION "\n");
    return ExitCode::kDone;
  }
  if (std::find(allNouns.begin(), allNouns.end(), noun) == allNouns.end()) {
    const std::string hint = didYouMean(noun, allNouns);
    throw WrongUsage(fmt::format("there is no subcommand \"{}\"{}", noun,
                                 hint.empty() ? "; it is one of " + listed(allNouns) : hint));
  }

  console.setCommand(noun);
  const std::vector<std::string> allVerbs = verbs(subcommands, noun);
  if (allVerbs.empty())
    return runSubcommand(*find(subcommands, noun, ""), arguments.subspan(1), console);
  if (arguments.size() < 2) throw WrongUsage("a verb is missing: one of " + listed(allVerbs));
  const std::string& verb = arguments[1];
  if (isHelp(verb)) {
    console.print(nounHelpText(noun, subcommands));
    return ExitCode::kDone;
  }
  const Subcommand* subcommand = find(subcommands, noun, verb);
  if (subcommand == nullptr) {
    const std::string hint = didYouMean(verb, allVerbs);
    throw WrongUsage(fmt::format("there is no verb \"{}\"{}", verb,
                                 hint.empty() ? "; it is one of " + listed(allVerbs) : hint));
  }
  console.setCommand(subcommand->text.name());
  return runSubcommand(*subcommand, arguments.subspan(2), console);
}

}  // namespace

ExitCode runTool(std::span<const Subcommand> subcommands, std::span<const std::string> arguments,
                 Console& console) {
  try {
    const ExitCode code = dispatch(subcommands, arguments, console);
    console.flush();
    console.clearStatus();
    return code;
  } catch (const ReaderGone&) {
    return ExitCode::kDone;
  } catch (const WrongUsage& error) {
    console.wrongUsage(error.what());
    return ExitCode::kWrongUsage;
  } catch (const std::bad_alloc&) {
    console.fail("out of memory");
  } catch (const std::exception& error) {
    console.fail(error.what());
  }
  return ExitCode::kFailed;
}

}  // namespace zel::tool
