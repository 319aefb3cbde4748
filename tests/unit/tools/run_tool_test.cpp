#include <gtest/gtest.h>

#include "tests/unit/tools/captured_console.h"
#include "tools/zel/failure.h"
#include "tools/zel/help_text.h"
#include "tools/zel/subcommand.h"

// The frame, with subcommands of its own: finding them, parsing, and what every outcome looks like.

namespace zel::tool {
namespace {

struct PaintOptions {
  std::string operand;
  std::string colour = "red";
  bool loud = false;
};

void declarePaint(CLI::App& app, PaintOptions& options) {
  app.add_option("THING", options.operand, "what to paint")->required();
  app.add_option("-c,--colour", options.colour, "the colour to paint it in, any that a thing has")
      ->type_name("NAME");
  app.add_flag("--loud", options.loud, "in capitals")->group("Manner");
}

ExitCode paint(const PaintOptions& options, Console& console) {
  if (options.colour == "none") throw Failure("there is no paint");
  if (options.colour == "odd") console.warn("an odd colour");
  console.print(options.operand + " " + options.colour + (options.loud ? "!\n" : "\n"));
  return console.done();
}

struct NoOptions {};
void declareNothing(CLI::App&, NoOptions&) {}
ExitCode succeed(const NoOptions&, Console& console) {
  return console.done();
}

std::vector<Subcommand> testSubcommands() {
  return {
      makeSubcommand<PaintOptions>(
          {"paint", "", "[options] THING", "paint a thing", "Paints a thing.", {"zel paint door"}},
          declarePaint, paint),
      makeSubcommand<NoOptions>(
          {"wall", "build", "", "build a wall", "Builds.", {"zel wall build"}}, declareNothing,
          succeed),
      makeSubcommand<NoOptions>(
          {"wall", "break", "", "break a wall", "Breaks.", {"zel wall break"}}, declareNothing,
          succeed),
  };
}

struct Outcome {
  ExitCode code;
  std::string out;
  std::string err;
};

Outcome run(std::vector<std::string> arguments) {
  CapturedConsole captured;
  const std::vector<Subcommand> subcommands = testSubcommands();
  const ExitCode code = runTool(subcommands, arguments, captured.console);
  return {code, captured.out(), captured.err()};
}

void expectWrongUsage(std::vector<std::string> arguments, const std::string& message,
                      const std::string& hint) {
  const Outcome outcome = run(std::move(arguments));
  EXPECT_EQ(outcome.code, ExitCode::kWrongUsage);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "zel: " + message + "\nTry 'zel " + hint + "'.\n");
}

TEST(RunTool, RunsTheSubcommand) {
  const Outcome outcome = run({"paint", "door", "--colour", "blue", "--loud"});
  EXPECT_EQ(outcome.code, ExitCode::kDone);
  EXPECT_EQ(outcome.out, "door blue!\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(RunTool, AnOptionsValueMayLookLikeAnOption) {
  EXPECT_EQ(run({"paint", "door", "--colour", "--keyint 50"}).out, "door --keyint 50\n");
  EXPECT_EQ(run({"paint", "door", "--colour=-"}).out, "door -\n");
}

TEST(RunTool, OperandsMayStartWithADashBehindTwo) {
  EXPECT_EQ(run({"paint", "--", "-door"}).out, "-door red\n");
}

TEST(RunTool, FailureIsExitCodeOneAndOneLine) {
  const Outcome outcome = run({"paint", "door", "-c", "none"});
  EXPECT_EQ(outcome.code, ExitCode::kFailed);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "zel: paint: there is no paint\n");
}

TEST(RunTool, WarningsAreReportedOnRequest) {
  EXPECT_EQ(run({"paint", "door", "-c", "odd"}).code, ExitCode::kDone);
  EXPECT_EQ(run({"paint", "door", "-c", "odd", "--report-warnings"}).code, ExitCode::kWarnings);
}

TEST(RunTool, WrongUsageSaysWhatItShouldBe) {
  expectWrongUsage({}, "a subcommand is missing: one of paint, wall", "--help");
  expectWrongUsage({"pain"}, "there is no subcommand \"pain\"; did you mean \"paint\"?", "--help");
  expectWrongUsage({"mux"}, "there is no subcommand \"mux\"; it is one of paint, wall", "--help");
  expectWrongUsage({"wall"}, "wall: a verb is missing: one of build, break", "wall --help");
  expectWrongUsage({"wall", "biuld"}, "wall: there is no verb \"biuld\"; did you mean \"build\"?",
                   "wall --help");
  expectWrongUsage({"wall", "--json"},
                   "wall: there is no verb \"--json\"; it is one of build, break", "wall --help");
  expectWrongUsage({"paint"}, "paint: THING is missing: what to paint", "paint --help");
  expectWrongUsage({"paint", "a", "b"}, "paint: there is one operand too many: \"b\"",
                   "paint --help");
  expectWrongUsage({"paint", "a", "--color", "red"},
                   "paint: there is no option --color; did you mean \"--colour\"?", "paint --help");
  expectWrongUsage({"paint", "--color=red"},
                   "paint: there is no option --color; did you mean \"--colour\"?", "paint --help");
  expectWrongUsage({"paint", "a", "--colour"}, "paint: --colour needs a value: --colour NAME",
                   "paint --help");
  expectWrongUsage({"wall", "build", "x"}, "wall build: there is one operand too many: \"x\"",
                   "wall build --help");
}

TEST(RunTool, HelpGoesToStandardOutput) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--help"},
                                                    {"-h"},
                                                    {"wall", "--help"},
                                                    {"wall", "-h"},
                                                    {"wall", "break", "--help"},
                                                    {"paint", "--help"},
                                                    {"paint", "-h", "door"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.code, ExitCode::kDone);
    EXPECT_EQ(outcome.out.substr(0, 11), "Usage: zel ") << outcome.out;
    EXPECT_NE(outcome.out.find("\nExamples:\n  zel "), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.err, "");
  }
}

TEST(RunTool, VersionGoesToStandardOutput) {
  const Outcome outcome = run({"--version"});
  EXPECT_EQ(outcome.code, ExitCode::kDone);
  EXPECT_EQ(outcome.out.substr(0, 4), "zel ");
  EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(outcome.out[4])));
}

TEST(HelpText, HasOperandsOptionsByGroupAndExamples) {
  EXPECT_EQ(run({"paint", "--help"}).out,
            "Usage: zel paint [options] THING\n"
            "Paints a thing.\n"
            "\n"
            "  THING                  what to paint\n"
            "  -c, --colour NAME      the colour to paint it in, any that a thing has\n"
            "\n"
            "Manner:\n"
            "      --loud             in capitals\n"
            "\n"
            "Common options:\n"
            "      --json             print the results as one JSON document\n"
            "      --quiet            no progress and no summary; warnings and errors stay\n"
            "      --report-warnings  end with exit code 3 when the work was done but there\n"
            "                         were warnings\n"
            "  -h, --help             print this help\n"
            "\n"
            "Examples:\n"
            "  zel paint door\n");
}

TEST(HelpText, StaysWithinEightyColumns) {
  const std::vector<Subcommand> subcommands = testSubcommands();
  std::string line;
  for (const char c : toolHelpText(subcommands) + run({"paint", "--help"}).out) {
    if (c != '\n') {
      line += c;
      continue;
    }
    EXPECT_LE(line.size(), 80u) << line;
    line.clear();
  }
}

}  // namespace
}  // namespace zel::tool
