#include "tools/zel/option_values.h"

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(OptionValues, WholeNumbers) {
  EXPECT_EQ(parseWholeNumber("0"), 0);
  EXPECT_EQ(parseWholeNumber("-5"), -5);
  EXPECT_EQ(parseWholeNumber("0x1F"), 31);
  EXPECT_EQ(parseWholeNumber("9223372036854775807"), std::numeric_limits<int64_t>::max());
  for (const char* bad :
       {"", "-", "+5", "5 ", " 5", "5x", "0x", "0x-1", "1.0", "9223372036854775808"})
    EXPECT_EQ(parseWholeNumber(bad), std::nullopt) << bad;
}

TEST(OptionValues, NumbersAreFinite) {
  EXPECT_EQ(parseNumber("28"), 28.0);
  EXPECT_EQ(parseNumber("-0.5e1"), -5.0);
  for (const char* bad : {"", "nan", "inf", "-inf", "1e999", "1,5", "1.5x", "0x10"})
    EXPECT_EQ(parseNumber(bad), std::nullopt) << bad;
}

TEST(OptionValues, BitsTakeAUnit) {
  EXPECT_EQ(parseBits("4500000"), 4500000);
  EXPECT_EQ(parseBits("4500k"), 4500000);
  EXPECT_EQ(parseBits("4.5M"), 4500000);
  EXPECT_EQ(parseBits("4.5m"), 4500000);
  EXPECT_EQ(parseBits("0.1"), 0);
  for (const char* bad : {"", "k", "M", "4.5G", "-1", "1e30", "4 M", "4kM"})
    EXPECT_EQ(parseBits(bad), std::nullopt) << bad;
}

TEST(OptionValues, PictureSizes) {
  EXPECT_EQ(parsePictureSize("1920x1080"), (PictureSize{1920, 1080}));
  EXPECT_EQ(parsePictureSize("2X4"), (PictureSize{2, 4}));
  for (const char* bad :
       {"", "x", "1920", "1920x", "x1080", "0x16", "-2x4", "4x4x4", "99999999999x2"})
    EXPECT_EQ(parsePictureSize(bad), std::nullopt) << bad;
}

TEST(OptionValues, Switches) {
  for (const char* on : {"1", "yes", "on", "true"}) EXPECT_EQ(parseSwitch(on), true);
  for (const char* off : {"0", "no", "off", "false"}) EXPECT_EQ(parseSwitch(off), false);
  for (const char* bad : {"", "2", "ON", "y"}) EXPECT_EQ(parseSwitch(bad), std::nullopt);
}

constexpr NamedValue kColours[] = {{"red", 1}, {"blue", 5}};

TEST(OptionValues, Names) {
  EXPECT_EQ(parseName("blue", kColours), 5);
  EXPECT_EQ(parseName("Blue", kColours), std::nullopt);
  EXPECT_EQ(parseName("5", kColours), std::nullopt);
  EXPECT_EQ(listNames(kColours), "red, blue");
}

// What the options make of a command line, or the message that they refuse it with.
struct Parsed {
  std::optional<int64_t> whole;
  std::optional<double> number;
  std::optional<int64_t> bits;
  std::optional<int64_t> name;
  std::optional<std::string> text;
  std::string error;
};

Parsed parse(std::vector<std::string> arguments) {
  CLI::App app;
  Parsed parsed;
  addWholeNumber(app, "-n,--whole", parsed.whole, {1, 9}, "");
  addNumber(app, "--number", parsed.number, {0, 100}, "");
  addBits(app, "--bits", parsed.bits, 1000, "");
  addName(app, "--name", parsed.name, kColours, "");
  addText(app, "--text", parsed.text, "TEXT", "");
  try {
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    parsed.error = error.what();
  }
  return parsed;
}

TEST(OptionValues, OptionsKeepWhatIsGiven) {
  const Parsed parsed =
      parse({"-n", "3", "--number=-0", "--bits", "2k", "--name", "red", "--text", ""});
  EXPECT_EQ(parsed.error, "");
  EXPECT_EQ(parsed.whole, 3);
  EXPECT_EQ(parsed.number, 0.0);
  EXPECT_EQ(parsed.bits, 2000);
  EXPECT_EQ(parsed.name, 1);
  EXPECT_EQ(parsed.text, "");
  EXPECT_EQ(parse({}).whole, std::nullopt);
}

TEST(OptionValues, TheLastOfSeveralCounts) {
  EXPECT_EQ(parse({"--whole", "3", "--whole", "4"}).whole, 4);
}

TEST(OptionValues, MessagesSayWhatTheOptionTakes) {
  EXPECT_EQ(parse({"--whole", "0"}).error, "--whole is \"0\"; it takes a whole number from 1 to 9");
  EXPECT_EQ(parse({"--whole", "abc"}).error,
            "--whole is \"abc\"; it takes a whole number from 1 to 9");
  EXPECT_EQ(parse({"--number", "101"}).error,
            "--number is \"101\"; it takes a number from 0 to 100");
  EXPECT_EQ(parse({"--bits", "999"}).error,
            "--bits is \"999\"; it takes a number of bits from 1000, such as 800k or 4.5M");
  EXPECT_EQ(parse({"--name", "green"}).error, "--name is \"green\"; it takes one of red, blue");
}

}  // namespace
}  // namespace zel::tool
