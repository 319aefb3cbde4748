#include "tools/zel/mux/multiplex_plan.h"

#include <gtest/gtest.h>

#include "tools/zel/failure.h"
#include "tools/zel/mux/read_configuration.h"

namespace zel::tool {
namespace {

using Morvalen::Zel::tarn_array_text;
using Keys = std::vector<KeyValue>;

const auto& video() {
  return sectionNamed("Video");
}

template <class Call>
std::string wrongUsageOf(Call call) {
  try {
    call();
  } catch (const WrongUsage& error) {
    return error.what();
  }
  return "nothing thrown";
}

Configuration read(const std::string& text) {
  std::vector<std::string> warnings;
  Configuration config = rightConfiguration<WrongUsage>(text, "the options", warnings);
  EXPECT_TRUE(warnings.empty());
  return config;
}

TEST(StreamArgument, IsAFileAndKeys) {
  const StreamArgument argument =
      parseStreamArgument(video(), "a.m2v,PID=0x21,rate=4e6", "--video");
  EXPECT_EQ(argument.file, "a.m2v");
  EXPECT_EQ(argument.keys, (Keys{{"PID", "0x21"}, {"rate", "4e6"}}));
}

TEST(StreamArgument, MayHaveCommasInNamesAndBytes) {
  const StreamArgument argument =
      parseStreamArgument(video(), "a,b.m2v,Descriptor1=05,04,42,PID=9", "--video");
  EXPECT_EQ(argument.file, "a,b.m2v");
  EXPECT_EQ(argument.keys, (Keys{{"Descriptor1", "05,04,42"}, {"PID", "9"}}));
}

TEST(StreamArgument, MayHaveNoFile) {
  const StreamArgument argument =
      parseStreamArgument(sectionNamed("TableData"), "Table1=4E F0 00,PID=18", "--table");
  EXPECT_EQ(argument.file, "");
  EXPECT_EQ(argument.keys, (Keys{{"Table1", "4E F0 00"}, {"PID", "18"}}));
}

TEST(StreamArgument, AFileNameMayLookLikeAnUnknownKey) {
  EXPECT_EQ(parseStreamArgument(video(), "take=2.m2v", "--video").file, "take=2.m2v");
}

TEST(StreamArgument, UnknownKeysAreWrongUsage) {
  EXPECT_EQ(wrongUsageOf([] { parseStreamArgument(video(), "a,PIDD=3", "--video"); }),
            "--video: section Video has no key PIDD; did you mean \"PID\"?");
  EXPECT_EQ(wrongUsageOf([] { parseKeyValue(sectionNamed("Transport"), "Bogus", "--set"); }),
            "--set is \"Bogus\"; it takes KEY=VALUE");
  // Keys of another section, and numbered ones without their number.
  EXPECT_NE(wrongUsageOf([] { parseKeyValue(video(), "ATSCbuf=yes", "--video"); }),
            "nothing thrown");
  EXPECT_NE(wrongUsageOf([] { parseKeyValue(video(), "Descriptor=05", "--video"); }),
            "nothing thrown");
}

TEST(StreamArgument, SeveralFilesAreNumbered) {
  const StreamArgument argument = parseStreamArgument(video(), "a,File2=b", "--video");
  EXPECT_EQ(keysOf(video(), argument), (Keys{{"File1", "a"}, {"File2", "b"}}));
  EXPECT_EQ(keysOf(video(), parseStreamArgument(video(), "a", "--video")), (Keys{{"File", "a"}}));
  const auto& pcm = sectionNamed("SMPTE302M");
  EXPECT_EQ(keysOf(pcm, parseStreamArgument(pcm, "a,Stream2=b", "--smpte302m")),
            (Keys{{"Stream1", "a"}, {"Stream2", "b"}}));
}

MultiplexPlan plan() {
  MultiplexPlan plan;
  plan.transport = {{"File", "out put.ts"}, {"Rate", "8000000"}};
  plan.streams = {{"TableData", {{"Table1", "4E F0 00"}, {"PID", "18"}}}};
  plan.programs.push_back({"7", {{"PMTPID", "0x100"}}, {}});
  plan.programs.back().streams = {{"Audio", {{"File", "one.mp2"}}},
                                  {"Video", {{"File", "a=b#c*d$.m2v"}, {"PID", "0x101"}}},
                                  {"Audio", {{"File", " two.mp2 "}}}};
  plan.programs.push_back({"", {}, {{"Video", {{"File1", "x"}, {"File2", "y"}}}}});
  return plan;
}

TEST(ConfigurationText, IsWhatTheReaderUnderstands) {
  const Configuration config = read(configurationText(plan()));
  EXPECT_EQ(config->rate, 8e6);
  EXPECT_EQ(tarn_array_text(&config->files, 0), "out put.ts");
  ASSERT_NE(config->table[0], nullptr);
  EXPECT_EQ(config->table[0]->pid, 18);
  const auto* first = config->programs;
  EXPECT_EQ(first->programNumber, 7);
  EXPECT_EQ(first->pmtPid, 0x100);
  EXPECT_EQ(tarn_array_text(&first->video[0]->files, 0), "a=b#c*d$.m2v");
  EXPECT_EQ(tarn_array_text(&first->audio[0]->files, 0), "one.mp2");
  EXPECT_EQ(tarn_array_text(&first->audio[1]->files, 0), " two.mp2 ");
  EXPECT_EQ(first->audio[2], nullptr);
  ASSERT_NE(first->next, nullptr);
  EXPECT_EQ(first->next->programNumber, 3);
  EXPECT_EQ(first->next->video[0]->files.count, 2);
}

TEST(ConfigurationText, WhatItCannotHoldIsWrongUsage) {
  const auto withFile = [](const std::string& file) {
    MultiplexPlan one;
    one.programs.push_back({"", {}, {{"Video", {{"File", file}}}}});
    return wrongUsageOf([&] { configurationText(one); });
  };
  EXPECT_EQ(withFile("a\nb"), "File: a value can't have a line end in it");
  EXPECT_EQ(withFile("\"a\".m2v"),
            "\"a\".m2v: a configuration can't hold a name with two double quotes; use another");
  EXPECT_EQ(withFile(std::string(2100, 'x')),
            "File: the value is 61 bytes too long for a configuration");
  EXPECT_EQ(withFile("one\".m2v"), "nothing thrown");
}

TEST(ConfigurationText, TheLongestNameIsReadWhole) {
  MultiplexPlan one;
  const std::string name(2047 - std::string("File = \n").size(), 'x');
  one.programs.push_back({"", {}, {{"Video", {{"File", name}}}}});
  EXPECT_EQ(tarn_array_text(&read(configurationText(one))->programs->video[0]->files, 0), name);
}

TEST(ConfigurationText, BadValuesAreToldByTheReader) {
  MultiplexPlan one;
  one.transport = {{"Rate", "fast"}};
  EXPECT_EQ(wrongUsageOf([&] { read(configurationText(one)); }),
            "the options: Error parsing parameter value in line:'Rate = fast'");
}

TEST(TransportKeys, GoBeforeThoseOfTheText) {
  const std::string text = "# mine\r\n Trans port* here\nRate = 5\nFile = a.ts\nPktSize = 192\n";
  const Configuration config = read(withTransportKeys(text, {{"Rate", "7"}, {"File", "b.ts"}}));
  EXPECT_EQ(config->rate, 7);
  EXPECT_EQ(tarn_array_text(&config->files, 0), "b.ts");
  EXPECT_EQ(config->pktSize, 192);
}

TEST(TransportKeys, StayAwayWithoutATransportSection) {
  EXPECT_EQ(withTransportKeys("Program1*\n", {{"Rate", "7"}}), "Program1*\n");
  EXPECT_EQ(withTransportKeys("", {{"Rate", "7"}}), "");
}

}  // namespace
}  // namespace zel::tool
