#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/unit/mux/engine/configuration/configuration_text.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/configuration/values.h"

namespace {

using namespace Morvalen::Zel;
using testing::ElementsAre;
using testing::IsEmpty;
using zel::mux::config_owner;
using zel::test::ConfigMessage;
using zel::test::readConfig;

const std::string kVideo = "Transport*\nProgram1*\nVideo1$\nFile = v\n";

// Severity and code of each message.
std::vector<std::pair<int, int>> codesOf(const std::string& text) {
  std::vector<ConfigMessage> messages;
  readConfig(text, &messages);
  std::vector<std::pair<int, int>> codes;
  for (const ConfigMessage& each : messages) codes.emplace_back(each.severity, each.code);
  return codes;
}
using Code = std::pair<int, int>;

TEST(ConfigReader, NoTransportSectionIsRefused) {
  std::vector<ConfigMessage> messages;
  EXPECT_EQ(readConfig("", &messages), nullptr);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].code, 2);
  EXPECT_EQ(messages[0].text, "Error parsing configuration file:\nNo Transport section seen");
}

TEST(ConfigReader, AnUnknownSectionIsRefusedWithItsLine) {
  std::vector<ConfigMessage> messages;
  EXPECT_EQ(readConfig("Transport*\nVidio1$\n", &messages), nullptr);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].code, 15);
  EXPECT_EQ(messages[0].text,
            "Error parsing configuration file:\nUnrecognized section seen in line:'Vidio1$'\n");
}

TEST(ConfigReader, AKeyOfAnotherSectionIsUnrecognised) {
  std::vector<ConfigMessage> messages;
  const config_owner config = readConfig("Transport*\nPESnau = 3\nRate = 5\n", &messages);
  ASSERT_NE(config, nullptr);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].code, 3);
  EXPECT_EQ(messages[0].text,
            "Error parsing configuration file:\nUnrecognized parameter seen in line:'PESnau = "
            "3'\n");
  EXPECT_EQ(config->rate, 5.0);
  EXPECT_THAT(codesOf("Transport*\nProgram1*\nForceDuration = yes\n"), ElementsAre(Code(1, 3)));
}

TEST(ConfigReader, ABadValueKeepsTheDefaultAndNamesTheLine) {
  std::vector<ConfigMessage> messages;
  const config_owner config =
      readConfig("Transport*\nOverlap = many\nVBR = maybe\nPktSize=204\n", &messages);
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->overlap, 15);
  EXPECT_FALSE(config->vbr);
  EXPECT_EQ(config->pktSize, 204);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].text,
            "Error parsing configuration file:\nError parsing parameter value in line:'VBR = "
            "maybe'\n");
  EXPECT_EQ(messages[1].code, 4);
}

TEST(ConfigReader, ProgramsHaveToBeGapless) {
  std::vector<ConfigMessage> messages;
  const config_owner config = readConfig("Transport*\nProgram2*\n", &messages);
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->programs, nullptr);
  EXPECT_THAT(messages, IsEmpty());
}

TEST(ConfigReader, ASubsectionsNumberIsItsSlot) {
  const config_owner config = readConfig("Transport*\nProgram1*\nVideo3$\nFile = a\nPID=50\n");
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->programs->video[0], nullptr);
  EXPECT_EQ(config->programs->video[1], nullptr);
  ASSERT_NE(config->programs->video[2], nullptr);
  EXPECT_EQ(config->programs->video[2]->pid, 50);
}

TEST(ConfigReader, AMarkerInsideAValueIsPartOfIt) {
  const config_owner config = readConfig("Transport*\nFile = take #1 * $.ts \n");
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(tarn_array_text(&config->files, 0), "take #1 * $.ts");
}

TEST(ConfigReader, IntegersTakeHexadecimalAndLongsDoNot) {
  const config_owner config =
      readConfig("Transport*\nPATtsid = 0x10\nLeader = 0x10\nNITPID = 010\nPATvsn = 0xffffffff\n");
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->patTsid, 16);
  EXPECT_EQ(config->leader, 0);
  EXPECT_EQ(config->nitPid, 8);
  EXPECT_EQ(config->patVsn, -1);
}

TEST(ConfigReader, StopOnAvTakesYes) {
  EXPECT_EQ(readConfig("Transport*\nStopOnAV = Yes\n")->stopOnAv, 1);
  EXPECT_EQ(readConfig("Transport*\nstoponav = LAST\n")->stopOnAv, 2);
  EXPECT_THAT(codesOf("Transport*\nStopOnAV = never\n"), ElementsAre(Code(1, 4)));
}

TEST(ConfigReader, TheFirstOfTwoValuesStands) {
  EXPECT_EQ(readConfig("Transport*\nRate = 7\nRate = 8\n")->rate, 7.0);
}

TEST(ConfigReader, LinesEndAtEitherLineEndAndBlankOnesAreNothing) {
  const config_owner config = readConfig("Transport*\r\n\r\n   \t\rRate = 5\rPktSize = 200");
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(config->rate, 5.0);
  EXPECT_EQ(config->pktSize, 200);
}

TEST(ConfigReader, ALineThatIsTooLongEndsTheScan) {
  const auto rateBehind = [](size_t size) {
    const std::string text = "Transport*\n" + std::string(size, 'x') + "\nRate = 5\n";
    return readConfig(text)->rate;
  };
  EXPECT_EQ(rateBehind(2047), 5.0);
  EXPECT_EQ(rateBehind(2048), 0.0);
}

TEST(ConfigReader, ConditionalKeysNeedTheirSwitch) {
  EXPECT_FALSE(readConfig("Transport*\nPktTSPre = yes\n")->pktTsPre);
  EXPECT_TRUE(readConfig("Transport*\nPktTSPre = yes\nPktTS = yes\n")->pktTsPre);
  EXPECT_EQ(readConfig("Transport*\nPktTS = yes\n")->pktTsBytes, 4);
  EXPECT_EQ(readConfig("Transport*\nBurstNullsCount = 3\n")->burstNullsCount, 0);
  EXPECT_EQ(readConfig("Transport*\nAutoDescrDTS = no\n")->autoDescrMask, 0xFF & ~4);
  EXPECT_EQ(readConfig("Transport*\nAutoDescrDTS = no\nAutoDescrDisabled = yes\n")->autoDescrMask,
            0xFF);
}

TEST(ConfigReader, TransportStreamsStandBeforeTheFirstProgram) {
  const config_owner config = readConfig(
      "Transport*\nData1$\nFile=d\nTableData2$\nTable1 = 1 2,3\n "
      "4\t5\nProgram1*\nData1$\nFile=e\n");
  ASSERT_NE(config, nullptr);
  ASSERT_NE(config->data[0], nullptr);
  EXPECT_EQ(tarn_array_text(&config->data[0]->files, 0), "d");
  EXPECT_TRUE(config->data[0]->repeat && config->data[0]->fixCc);
  ASSERT_NE(config->table[1], nullptr);
  EXPECT_THAT(tarn_array_bytes(&config->table[1]->tables, 0), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(tarn_array_text(&config->programs->data[0]->files, 0), "e");
}

TEST(ConfigReader, FilesComeFromOneKeyNumberedKeysOrTheDefaults) {
  const config_owner several =
      readConfig("Transport*\nFile1 = \" a b \"\nFile2 = c\nFile4 = d\nFileSize = 5000000000\n");
  ASSERT_EQ(several->files.count, 2);
  EXPECT_EQ(tarn_array_text(&several->files, 0), " a b ");
  EXPECT_EQ(several->fileSize, 5000000000);
  EXPECT_THAT(codesOf("Transport*\nFile1=a\nFile2=b\n"), ElementsAre(Code(1, 6)));

  TarnArray none = {};
  TarnArray some = {};
  ASSERT_TRUE(tarn_array_append_text(&some, "default.m2v"));
  std::vector<ConfigMessage> messages;
  readConfig("Transport*\n", &messages, &none);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].code, 5);
  const config_owner taken =
      readConfig("Transport*\nProgram1*\nVideo1$\n", nullptr, nullptr, &some);
  EXPECT_EQ(tarn_array_text(&taken->programs->video[0]->files, 0), "default.m2v");
  tarn_array_free_strings(&some);
}

TEST(ConfigReader, MissingFilesHaveTheirSectionsMessage) {
  std::vector<ConfigMessage> messages;
  readConfig("Transport*\nProgram1*\nProgramNumber = 77\nVideo1$\nAudio1$\n", &messages);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].text,
            "Error parsing configuration file:\nNo Video input file given for program 77");
  EXPECT_EQ(messages[1].code, 19);
  const std::pair<std::string, int> kRows[] = {
      {"Data1$\n", 34}, {"TableData1$\n", 49},          {"SMPTE302M1$\n", 23},
      {"LPCM1$\n", 0},  {"PrivateStream1Data1$\n", 42},
  };
  for (const auto& [section, code] : kRows) {
    const auto codes = codesOf("Transport*\nProgram1*\n" + section);
    if (code == 0) {
      EXPECT_THAT(codes, IsEmpty()) << section;
    } else {
      EXPECT_THAT(codes, ElementsAre(Code(1, code))) << section;
    }
  }
}

TEST(ConfigReader, OneSectionBeyondTheSlotsHasItsMessage) {
  const std::pair<std::string, int> kRows[] = {
      {"Video17$\n", 36},     {"Audio65$\n", 37},
      {"Data65$\n", 38},      {"TableData65$\n", 12},
      {"SMPTE302M17$\n", 39}, {"LPCM9$\n", 39},
      {"Scte35Data5$\n", 46}, {"PrivateStream1Data17$\n", 41}};
  for (const auto& [section, code] : kRows)
    EXPECT_THAT(codesOf("Transport*\nProgram1*\n" + section), ElementsAre(Code(1, code)))
        << section;
}

TEST(ConfigReader, ProgramsAreReadUpToTheirMost) {
  constexpr int kMost = 65'535;
  std::string text = "Transport*\n";
  for (int i = 1; i <= kMost + 1; ++i) text.append("program").append(std::to_string(i)) += "*\n";
  std::vector<ConfigMessage> messages;
  const auto before = std::chrono::steady_clock::now();
  const config_owner config = readConfig(text, &messages);
  // As long as the text is: a search for each section would take minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));
  ASSERT_NE(config, nullptr);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].severity, 1);
  EXPECT_EQ(messages[0].code, 7);
  EXPECT_EQ(messages[0].text, "Error parsing configuration file:\nToo many program sections");
  int count = 0;
  for (const tsm_program* program = config->programs; program != nullptr; program = program->next) {
    ++count;
    EXPECT_EQ(program->identity, count);
    EXPECT_EQ(program->programNumber, count + 1);
  }
  EXPECT_EQ(count, kMost);
}

TEST(ConfigReader, SubsectionsAreThoseOfTheirProgramAndOfExactlyTheirName) {
  const config_owner config = readConfig(
      "Transport*\nProgram1*\nAudio2$\nFile = a\nAudio02$\nFile = b\nAudio1x$\nFile = c\n"
      "audio2$\nFile = d\nProgram2*\nAUDIO1$\nFile = e\n");
  ASSERT_NE(config, nullptr);
  const tsm_program* const first = config->programs;
  EXPECT_EQ(first->audio[0], nullptr);
  ASSERT_NE(first->audio[1], nullptr);
  EXPECT_EQ(tarn_array_text(&first->audio[1]->files, 0), "a");
  ASSERT_NE(first->next->audio[0], nullptr);
  EXPECT_EQ(tarn_array_text(&first->next->audio[0]->files, 0), "e");
  EXPECT_EQ(first->next->audio[1], nullptr);
}

TEST(ConfigReader, DescriptorsEndAtAGapAtAnEmptyOneAndAtThirtyTwo) {
  const config_owner gap = readConfig(kVideo + "Descriptor1 = 5 4\nDescriptor3 = 6\n");
  EXPECT_EQ(gap->programs->video[0]->descriptors.count, 1);
  std::string many = kVideo;
  for (int i = 1; i <= 32; ++i) many += "Descriptor" + std::to_string(i) + " = 05 00\n";
  EXPECT_EQ(readConfig(many)->programs->video[0]->descriptors.count, 32);
  EXPECT_THAT(codesOf(many), IsEmpty());
  EXPECT_THAT(codesOf(many + "Descriptor33 = 05 00\n"), ElementsAre(Code(1, 40)));
  EXPECT_THAT(codesOf(kVideo + "Descriptor = 05\n"), ElementsAre(Code(1, 3)));
  EXPECT_THAT(codesOf(kVideo + "Descriptor1 = 0g\n"), ElementsAre(Code(1, 4)));
  std::string bytes;
  for (int i = 0; i < 260; ++i) bytes += " ff";
  EXPECT_THAT(codesOf(kVideo + "Descriptor1 =" + bytes + "\n"), IsEmpty());
  EXPECT_THAT(codesOf(kVideo + "Descriptor1 =" + bytes + " ff\n"), ElementsAre(Code(1, 13)));
}

TEST(ConfigReader, BytesBeyondAKeysLimitHaveTheSectionsMessage) {
  struct Row {
    std::string section;
    std::string key;
    int limit;
    int code;
  };
  const std::string program = "Transport*\nProgram1*\n";
  const Row rows[] = {
      {"Transport*\n", "SITtransDescr1", 260, 27},
      {"Transport*\n", "SITsvcDescr1", 260, 28},
      {program, "Descriptor1", 260, 10},
      {program + "Audio1$\nFile = a\n", "Descriptor1", 260, 18},
      {program + "SMPTE302M1$\nStream1 = a\n", "Descriptor1", 260, 24},
      {program + "TableData1$\nFile = a\n", "Descriptor1", 260, 33},
      {program + "Data1$\nFile = a\n", "Descriptor1", 260, 35},
      {program + "PrivateStream1Data1$\nFile = a\n", "Descriptor1", 260, 43},
      {program + "PrivateStream1Data1$\nFile = a\n", "PESpayldHdr", 256, 47},
      {program + "Scte35Data1$\nFile = a\n", "Descriptor1", 260, 45},
  };
  for (const Row& row : rows) {
    std::string line = row.section + row.key + " =";
    for (int i = 0; i < row.limit; ++i) line += " a5";
    EXPECT_THAT(codesOf(line + "\n"), IsEmpty()) << row.section << row.key;
    EXPECT_THAT(codesOf(line + " a5\n"), ElementsAre(Code(1, row.code))) << row.section << row.key;
  }
}

TEST(ConfigReader, WithoutMemoryThereIsNoConfiguration) {
  const zel::test::Files file(std::tmpfile(), &std::fclose);
  ASSERT_NE(file, nullptr);
  std::fputs(kVideo.c_str(), file.get());
  std::vector<int> codes;
  const auto keep = [](void* user, int severity, int code, const char* text, int) {
    EXPECT_EQ(severity, 1);
    EXPECT_STREQ(text, "Error parsing configuration file:\nMalloc failure");
    static_cast<std::vector<int>*>(user)->push_back(code);
  };
  codes.reserve(1);
  // Wherever memory ends: the configuration itself, a program, a record, a text.
  int failed = 0;
  for (int skip = 0; skip < 200; ++skip) {
    codes.clear();
    tsm_config* config = nullptr;
    int failures = 0;
    {
      const zel::test::FailingAllocation failing(skip);
      config = tsm_config_read(file.get(), nullptr, nullptr, nullptr, &codes, keep);
      failures = zel::test::FailingAllocation::failures();
    }
    if (failures == 0) {
      EXPECT_NE(config, nullptr);
      tsm_config_free(config);
      break;
    }
    ++failed;
    EXPECT_EQ(config, nullptr) << skip;
    EXPECT_THAT(codes, ElementsAre(1)) << skip;
  }
  EXPECT_GE(failed, 3);
}

TEST(ConfigReader, ContradictionsHaveMessages) {
  EXPECT_THAT(codesOf(kVideo + "SourceStreamID = 1\nSourceTSPID = 2\n"), ElementsAre(Code(1, 26)));
  const std::string audio = "Transport*\nProgram1*\nAudio1$\nFile=a\n";
  EXPECT_THAT(codesOf(audio + "ATSCbuf=yes\nDVBbuf=yes\n"), ElementsAre(Code(1, 31)));
  EXPECT_THAT(codesOf(audio + "AVsync=no\n"), ElementsAre(Code(0, 31)));
  EXPECT_THAT(codesOf(audio + "AVsync=no\nTransitionCleanUp=no\n"), IsEmpty());
  EXPECT_THAT(codesOf("Transport*\nTableData1$\nFile=a\nTable1=1\n"), ElementsAre(Code(0, 48)));
}

TEST(ConfigReader, BadTimesHaveTheirKeysMessage) {
  EXPECT_THAT(codesOf("Transport*\nDuration = 1:2:3:4:5\n"), ElementsAre(Code(1, 8)));
  EXPECT_THAT(codesOf("Transport*\nStart = 1::3\n"), ElementsAre(Code(1, 11)));
  EXPECT_THAT(codesOf("Transport*\nEnd = noon\n"), ElementsAre(Code(1, 11)));
  EXPECT_THAT(
      codesOf("Transport*\nProgram1*\nPrivateStream1Data1$\nFile=a\nTimeOffset=1:2:3:4:5\n"),
      ElementsAre(Code(1, 44)));
}

TEST(ConfigReader, ChannelStatusHasSizeAndCrc) {
  const std::string pair = "Transport*\nProgram1*\nSMPTE302M1$\nStream1 = a\n";
  const config_owner config = readConfig(pair + "Stream3File1 = b\nStream3File2 = c\n");
  EXPECT_EQ(config->programs->smpte302m[0]->nChannels, 4);
  EXPECT_EQ(config->programs->smpte302m[0]->wordSize, 24);
  EXPECT_EQ(config->programs->smpte302m[0]->pesId, 189);
  EXPECT_THAT(codesOf(pair + "BytesPerWord = 5\n"), ElementsAre(Code(1, 22)));
  EXPECT_THAT(codesOf(pair + "ChannelStatus2 = User\nCSData2 = 1 2 3\n"), ElementsAre(Code(1, 21)));
  // The framework's channel status: its last byte is the CRC.
  std::string status = "CSData1 = 81";
  for (int i = 0; i < 22; ++i) status += " 00";
  EXPECT_THAT(codesOf(pair + "ChannelStatus1 = User\n" + status + " D9\n"), IsEmpty());
  std::vector<ConfigMessage> messages;
  readConfig(pair + "ChannelStatus1 = User\n" + status + " 00\n", &messages);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].text,
            "Warning parsing configuration file:\nSMPTE302M Channel Status CRC should have been "
            "0xD9\n");
}

TEST(ConfigReader, ReadSizeIsTheProcesss) {
  readConfig("Transport*\nInReadSize = 777\n");
  EXPECT_EQ(tsm_read_size(), 777);
  readConfig("Transport*\nInReadSize = 5000\n");
  EXPECT_EQ(tsm_read_size(), 5000);
}

TEST(ConfigValues, TimesCountFieldsFromTheRight) {
  const auto time = zel::mux::parse_time(" -1:02:03;04");
  ASSERT_TRUE(time);
  EXPECT_EQ(time->sign, 3);
  EXPECT_EQ(time->dropFrame, 1);
  EXPECT_EQ(time->hours * 1000000 + time->minutes * 10000 + time->seconds * 100 + time->frames,
            1020304);
  EXPECT_EQ(zel::mux::parse_time("7")->frames, 7);
  EXPECT_EQ(zel::mux::parse_time("")->sign, 0);
  EXPECT_FALSE(zel::mux::parse_time("1:2:3:4:"));
  EXPECT_FALSE(zel::mux::parse_time("99999999999:1"));
  EXPECT_EQ(zel::mux::time_text(*time), "-01:02:03.04");
}

TEST(ConfigValues, OffsetsHaveFractionsOfASecond) {
  EXPECT_EQ(zel::mux::parse_time_offset("1.5")->frames, 500000);
  EXPECT_EQ(zel::mux::parse_time_offset("1.0000005")->frames, 1);
  EXPECT_EQ(zel::mux::parse_time_offset("1.00000049")->frames, 0);
  const auto carried = zel::mux::parse_time_offset("0:59:59.9999996");
  EXPECT_EQ(zel::mux::time_offset_text(*carried), "01:00:00.000000");
  EXPECT_EQ(zel::mux::parse_time_offset("1;5")->dropFrame, 1);
}

TEST(ConfigValues, NumbersThatFitNoFieldAreBad) {
  EXPECT_FALSE(zel::mux::parse_integer("99999999999"));
  EXPECT_FALSE(zel::mux::parse_integer(""));
  EXPECT_FALSE(zel::mux::parse_real("inf"));
  EXPECT_FALSE(zel::mux::parse_real("nan"));
  EXPECT_FALSE(zel::mux::parse_real("1e999"));
  EXPECT_EQ(zel::mux::parse_real("+2.5x"), 2.5);
  EXPECT_EQ(zel::mux::parse_integer("0x"), 0);
}

}  // namespace
