#include "zel/encoder/command_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/seed.h"

namespace zel::encoder {
namespace {

using Option = std::pair<std::string, std::optional<std::string>>;
using Options = std::vector<Option>;

void record(void* context, char const* name, char const* value) {
  static_cast<Options*>(context)->emplace_back(
      name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
}

Options parse(std::string text, std::span<CommandLineOption const> table = kCommandLineOptions) {
  Options options;
  ParseCommandLine(text.data(), table, {&options, record});
  return options;
}

constexpr std::nullopt_t kNull = std::nullopt;

TEST(CommandLine, TakesBothFormsOfAValue) {
  EXPECT_EQ(parse("--keyint=50 --bframes 3 --no-sao"),
            (Options{{"keyint", "50"}, {"bframes", "3"}, {"no-sao", kNull}}));
}

TEST(CommandLine, GivesNullToAValueOptionThatIsLast) {
  EXPECT_EQ(parse("--aud --crf"), (Options{{"aud", kNull}, {"crf", kNull}}));
}

TEST(CommandLine, GivesNullToAFlagThatIsLast) {
  EXPECT_EQ(parse("--repeat-headers"), (Options{{"repeat-headers", kNull}}));
}

TEST(CommandLine, NeedsNoOptions) {
  EXPECT_EQ(parse(""), Options{});
  EXPECT_EQ(parse(" == =  "), Options{});
}

TEST(CommandLine, CountsRunsOfSeparatorsAsOne) {
  EXPECT_EQ(parse("  --keyint  ==  50 =--ref=\t3= "), (Options{{"keyint", "50"}, {"ref", "3"}}));
}

TEST(CommandLine, ValueOptionTakesTheNextTokenWhateverItIs) {
  EXPECT_EQ(parse("--cbqpoffs -3 --csv --aud --keyint -b --wpp"),
            (Options{{"cbqpoffs", "-3"}, {"csv", "--aud"}, {"keyint", "-b"}, {"wpp", kNull}}));
}

TEST(CommandLine, FlagTakesNoValue) {
  EXPECT_EQ(parse("--aud=1 --hrd 0 --keyint 9"),
            (Options{{"aud", kNull}, {"hrd", kNull}, {"keyint", "9"}}));
}

TEST(CommandLine, PassesOverUnknownOptionsAndTheirValues) {
  EXPECT_EQ(parse("--pools 4 --keyint 9 -Z 3 --preset=slow input.yuv --aud"),
            (Options{{"keyint", "9"}, {"aud", kNull}}));
}

TEST(CommandLine, KnowsShortNames) {
  EXPECT_EQ(parse("-F 2 -s=32 -m 1 -I 40 -i 4 -b 2 -w -q 30 -o out.hevc"),
            (Options{{"frame-threads", "2"},
                     {"ctu", "32"},
                     {"subme", "1"},
                     {"keyint", "40"},
                     {"min-keyint", "4"},
                     {"bframes", "2"},
                     {"weightp", kNull},
                     {"qp", "30"},
                     {"output", "out.hevc"}}));
}

TEST(CommandLine, TellsLongFromShort) {
  // A short name after two dashes, a long one after one, and dashes alone are unknown.
  EXPECT_EQ(parse("--b 3 -bframes 3 - -- --- aud"), Options{});
}

TEST(CommandLine, ComparesNamesExactly) {
  EXPECT_EQ(parse("--keyin 1 --keyints 2 --KEYINT 3 -B 4"), Options{});
}

TEST(CommandLine, OptionalValueIsAnyTokenButALongOne) {
  constexpr auto kTable = std::to_array<CommandLineOption>(
      {{"maybe", OptionKind::kOptionalValue, "y"}, {"flag", OptionKind::kNoValue, nullptr}});
  EXPECT_EQ(parse("--maybe 5 --flag", kTable), (Options{{"maybe", "5"}, {"flag", kNull}}));
  EXPECT_EQ(parse("--maybe -y", kTable), (Options{{"maybe", "-y"}}));
  EXPECT_EQ(parse("--maybe --flag", kTable), (Options{{"maybe", kNull}, {"flag", kNull}}));
  EXPECT_EQ(parse("-y", kTable), (Options{{"maybe", kNull}}));
}

TEST(CommandLine, FirstMatchingRowCounts) {
  constexpr auto kTable = std::to_array<CommandLineOption>(
      {{"same", OptionKind::kNoValue, nullptr}, {"same", OptionKind::kValue, nullptr}});
  EXPECT_EQ(parse("--same 1", kTable), (Options{{"same", kNull}}));
}

// What strtok and a loop over its tokens make of a text.
Options parseWithStrtok(std::string text) {
  std::vector<std::string> tokens;
  for (char* token = std::strtok(text.data(), " \t="); token != nullptr;
       token = std::strtok(nullptr, " \t=")) {
    tokens.emplace_back(token);
  }
  Options options;
  for (size_t i = 0; i < tokens.size(); ++i) {
    for (CommandLineOption const& row : kCommandLineOptions) {
      bool const isLong = tokens[i] == std::string("--") + row.longName;
      bool const isShort =
          row.shortName != nullptr && tokens[i] == std::string("-") + row.shortName;
      if (!isLong && !isShort) continue;
      options.emplace_back(row.longName, kNull);
      if (row.kind == OptionKind::kValue && i + 1 < tokens.size())
        options.back().second = tokens[++i];
      break;
    }
  }
  return options;
}

TEST(CommandLine, SplitsRandomTextsAsStrtokDoes) {
  constexpr auto kPieces =
      std::to_array<char const*>({" ", "  ", "=", "\t", "-", "--", "--keyint", "--aud", "-b", "-w",
                                  "12", "x", "--crf", "no-"});
  std::mt19937_64 random(zel::test::testSeed());
  size_t found = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto count = random() % 24; count > 0; --count) {
      text += kPieces[random() % kPieces.size()];
    }
    Options const options = parse(text);
    ASSERT_EQ(options, parseWithStrtok(text)) << "text: [" << text << "]";
    found += options.size();
  }
  EXPECT_GT(found, 5000u);
}

}  // namespace
}  // namespace zel::encoder
