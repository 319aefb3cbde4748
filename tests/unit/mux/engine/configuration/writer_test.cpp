#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/seed.h"
#include "tests/unit/mux/engine/configuration/configuration_text.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/key_table.h"

namespace {

using namespace Morvalen::Zel;
using zel::mux::config_owner;
using zel::test::ConfigMessage;
using zel::test::readConfig;
using zel::test::writeConfig;
using Random = std::mt19937_64;

int below(Random& random, int limit) {
  return static_cast<int>(random() % static_cast<unsigned>(limit));
}

std::string bytesText(Random& random, int count) {
  std::string text;
  char digits[8];
  for (int i = 0; i < count; ++i) {
    std::snprintf(digits, sizeof digits, " %02x", static_cast<unsigned>(below(random, 256)));
    text += digits;
  }
  return text;
}

std::string randomTime(Random& random, bool offset) {
  char text[64];
  std::snprintf(text, sizeof text, "%s%02d:%02d:%02d%c%02d", below(random, 2) != 0 ? "-" : "",
                below(random, 24), below(random, 60), below(random, 60),
                offset ? ":;."[below(random, 3)] : ":."[below(random, 2)], below(random, 30));
  return text;
}

// A value of the row's kind, which may be the default.
std::string randomValue(const tsm_config_key& key, Random& random) {
  switch (key.kind) {
    case tsm_value_kind::yes_no:
    case tsm_value_kind::tri_state:
    case tsm_value_kind::mask_bit:
      return below(random, 2) != 0 ? "yes" : "No";
    case tsm_value_kind::choice:
      return std::string(
          key.choices[static_cast<size_t>(below(random, static_cast<int>(key.choices.size())))]);
    case tsm_value_kind::real:
      return std::to_string(below(random, 100'000'000)).append(".5");
    case tsm_value_kind::text:
      return std::to_string(below(random, 100)).append(" name #1");
    case tsm_value_kind::time:
      return randomTime(random, false);
    case tsm_value_kind::time_offset:
      return randomTime(random, true);
    case tsm_value_kind::integers:
      return std::to_string(below(random, 1000)).append(", 1\t2");
    case tsm_value_kind::hex:
      return bytesText(random, key.when == tsm_when::user_channel ? 24 : 1 + below(random, 256));
    default:
      return std::to_string(below(random, 8192));
  }
}

std::string linesOf(const tsm_config_key& key, Random& random) {
  std::string text;
  const std::string name(key.name);
  if (key.kind == tsm_value_kind::files) {
    const int count = 1 + below(random, 3);
    if (count == 1) return name + " = in.bin\n";
    for (int i = 1; i <= count; ++i)
      text +=
          std::string(key.numberedName) + std::to_string(i) + " = in" + std::to_string(i) + "\n";
    return text;
  }
  if (key.kind == tsm_value_kind::hex_list) {
    for (int i = 1; i <= 1 + below(random, 3); ++i)
      text += name + std::to_string(i) + " =" + bytesText(random, 1 + below(random, 100)) + "\n";
    return text;
  }
  return name + " = " + randomValue(key, random) + "\n";
}

std::string sectionText(const tsm_config_section& section, const std::string& header,
                        Random& random, int percent) {
  std::string text = header + "\n";
  if (below(random, 4) == 0) text += "# comment = " + std::to_string(below(random, 100)) + "\n";
  for (const tsm_config_key& key : section.keys) {
    const bool leftOut = key.written == tsm_written::without_line_end || key.field == nullptr;
    if (!leftOut && below(random, 100) < percent) text += linesOf(key, random);
  }
  return text;
}

const tsm_config_section& sectionNamed(std::string_view name) {
  for (const tsm_config_section& each : tsm_config_sections())
    if (each.name == name) return each;
  throw std::runtime_error("no such section");
}

std::string randomConfig(Random& random) {
  const auto sections = tsm_config_sections();
  const int percent = below(random, 101);
  std::string text = sectionText(sections[0], "Transport*", random, percent);
  for (const char* name : {"Data", "TableData"})
    if (below(random, 2) != 0)
      text += sectionText(sectionNamed(name), std::string(name) + "1$", random, percent);
  const int programs = below(random, 3);
  for (int number = 1; number <= programs; ++number) {
    text += sectionText(sections[1], "Program" + std::to_string(number) + "*", random, percent);
    for (const tsm_config_section& each : sections.subspan(2))
      for (int slot = 1; slot <= std::min(each.slots, 3); ++slot)
        if (below(random, 2) != 0)
          text += sectionText(each, std::string(each.name) + std::to_string(slot) + "$", random,
                              percent);
  }
  return text;
}

TEST(ConfigWriter, DefaultsAreLeftOut) {
  const config_owner config(tsm_config_new());
  tsm_add_program(config.get());
  EXPECT_EQ(writeConfig(*config),
            "Transport*\nSITserviceID = 0\n\nProgram1*\nProgramNumber = 0x2\nPMTPID = 0x20\n"
            "PMTvsn = 0x0\n");
}

TEST(ConfigWriter, GoldenText) {
  const std::string text =
      "Transport*\n"
      "# whole = all\n"
      "File1 = a.ts\nFile2 = b.ts\nFileSize = 123456789012\nRate = 20000000.000\nVBR = yes\n"
      "Duration = 00:01:02.03\nLeader = 90\nStopOnAV = Last\nStopOnError = no\nPktSize = 204\n"
      "PSIPATrep = 12.500\nPATtsid = 0x20\nPATvsn = 0x3\nDIT = yes\nDITtransition = 1\n"
      "SITtransDescr1 = 05 04 42\nSITrunningstatus = 4\nPCRi = 1.500\nNoEmptyAF = yes\n"
      "PktTS = yes\nPktTSBytes = 8\nAUXVpid = 0x0100\nAutoDescrAC3 = no\n"
      "AutoDescradaptation_field_data = no\n"
      "\nData1$\nFile = d\nRate = 1000.000\nPID = 0x50\nFixCC = no\n"
      "\nTableData1$\nPID = 0x51\nTable1 = 0A FF\n"
      "\nProgram1*\nProgramNumber = 0x2\nPMTPID = 0x20\nPMTvsn = 0x1\nDescriptor1 = 05 00\n"
      "PCRPID = 0x21\nPCRper = 40\n"
      "\nVideo1$\n# moving\nFile = v\nPID = 0x21\nPESid = 0xfd\nStreamIdExtension = 0x55\n"
      "FrameRate = 29.97\nSplice = Before\nTypeDelay = Max\nCCField = even\n"
      "\nAudio1$\nFile = a\nPID = 0x24\nTransitionCleanUp = no\n"
      "\nSmpte302M1$\nStream1 = p\nPID = 0x25\nStreamType = 6\nPESid = 190\nWordSize = 20\n"
      "\nPrivateStream1Data1$\nFile = s\nPID = 0x2d\nDescFromFile = no\nPESpayldHdr = 01 02\n"
      "\nScte35Data1$\nFile = c\nPID = 0x2e\nTimeOffset = -00:00:01.500000\nAdvanceTime = 4 5\n";
  std::vector<ConfigMessage> messages;
  const config_owner config = readConfig(text, &messages);
  ASSERT_NE(config, nullptr);
  for (const ConfigMessage& each : messages) ADD_FAILURE() << each.text;
  EXPECT_EQ(writeConfig(*config), text);
}

TEST(ConfigWriter, GapsOfSlotsAreClosed) {
  const config_owner config = readConfig("Transport*\nProgram1*\nVideo3$\nFile = v\nPID = 77\n");
  EXPECT_THAT(writeConfig(*config), testing::HasSubstr("\nVideo1$\nFile = v\nPID = 0x4d\n"));
}

// The line of PTSi has no end: what follows it is lost to the reader, one key a pass.
TEST(ConfigWriter, PtsiTakesTheKeyBehindIt) {
  const config_owner config =
      readConfig("Transport*\nPTSi = 9.5\nPriority = yes\nNoEmptyAF = yes\nSITserviceID = 2\n");
  const std::string first = writeConfig(*config);
  EXPECT_EQ(first, "Transport*\nPTSi = 9.500NoEmptyAF = yes\nPriority = yes\n");
  std::vector<ConfigMessage> messages;
  const config_owner second = readConfig(first, &messages);
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(second->ptsi, 9.5);
  EXPECT_FALSE(second->noEmptyAf);
  EXPECT_TRUE(second->priority);
  const config_owner third = readConfig(writeConfig(*second));
  EXPECT_FALSE(third->priority);
  EXPECT_EQ(third->ptsi, 9.5);
  EXPECT_EQ(writeConfig(*third), "Transport*\nPTSi = 9.500");
}

TEST(ConfigWriter, PtsiLosesNothingBeforeASection) {
  const config_owner config = readConfig("Transport*\nPTSi = 1\nProgram1*\nPMTPID = 50\n");
  const config_owner again = readConfig(writeConfig(*config));
  ASSERT_NE(again->programs, nullptr);
  EXPECT_EQ(writeConfig(*again), writeConfig(*config));
}

TEST(ConfigWriter, EveryWrittenKeyComesBack) {
  Random random(zel::test::testSeed());
  for (const tsm_config_section& section : tsm_config_sections()) {
    for (const tsm_config_key& key : section.keys) {
      if (key.field == nullptr || key.written == tsm_written::without_line_end) continue;
      std::string header = "Transport*\n";
      if (section.name != "Transport") header += "Program1*\n";
      if (section.slots != 0) header += std::string(section.name) + "1$\n";
      if (key.when == tsm_when::packet_stamps) header += "PktTS = yes\n";
      if (key.when == tsm_when::burst_nulls) header += "BurstNulls = yes\n";
      if (key.when == tsm_when::user_channel)
        header.append("ChannelStatus").append(std::to_string(key.limit)).append(" = User\n");
      if (key.name.starts_with("CCTimeOffset"))
        header.append("SCCFile").append(key.name.substr(12)).append(" = c.scc\n");
      if (key.name == "StreamIDExtension") header += "PESid = 253\n";
      bool seen = false;
      for (int attempt = 0; attempt < 30; ++attempt) {
        const config_owner config = readConfig(header + linesOf(key, random));
        ASSERT_NE(config, nullptr);
        const std::string text = writeConfig(*config);
        seen =
            seen || text.find(std::string(1, '\n').append(key.name_written())) != std::string::npos;
        std::vector<ConfigMessage> messages;
        EXPECT_EQ(writeConfig(*readConfig(text, &messages)), text) << section.name << key.name;
        for (const ConfigMessage& each : messages) EXPECT_NE(each.code, 3) << each.text;
      }
      EXPECT_EQ(seen, key.written != tsm_written::never) << section.name << " " << key.name;
    }
  }
}

TEST(ConfigWriter, RandomConfigurationsComeBackTheSame) {
  Random random(zel::test::testSeed());
  size_t longest = 0;
  for (int i = 0; i < 300; ++i) {
    const std::string source = randomConfig(random);
    std::vector<ConfigMessage> messages;
    const config_owner config = readConfig(source, &messages);
    ASSERT_NE(config, nullptr) << source;
    for (const ConfigMessage& each : messages)
      ASSERT_FALSE(each.code == 3 || each.code == 4) << each.text << source;
    const std::string text = writeConfig(*config);
    longest = std::max(longest, text.size());
    ASSERT_EQ(writeConfig(*readConfig(text)), text) << source;
  }
  EXPECT_GT(longest, 5000u);
}

// Whatever stands behind "=", each key of each section takes it or says what is wrong.
TEST(ConfigReader, AnyValueOfAnyKeyIsTakenOrRefused) {
  for (const tsm_config_section& section : tsm_config_sections()) {
    std::string text = "Transport*\n";
    if (section.name != "Transport") text += "Program1*\n";
    if (section.slots != 0) text += std::string(section.name) + "1$\n";
    int refused = 0;
    for (const tsm_config_key& key : section.keys) {
      std::vector<ConfigMessage> messages;
      const std::string number = key.kind == tsm_value_kind::hex_list ? "1" : "";
      readConfig(text + std::string(key.name) + number + " = \"?!\n", &messages);
      for (const ConfigMessage& each : messages) {
        EXPECT_NE(each.code, 3) << each.text;
        refused += each.code == 4;
      }
      readConfig(text + std::string(key.name) + number + " =", &messages);
    }
    EXPECT_GT(refused, 3) << section.name;
  }
}

}  // namespace
