#include "zel/mux/engine/packet/private_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/adaptation_parser.h"
#include "tests/support/audio_frames.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "tests/unit/mux/engine/video/mpeg_bytes.h"

namespace zel::mux {
namespace {

using Bytes = std::vector<uint8_t>;
constexpr const char* kSixteen = "00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";

TEST(PrivateDataLine, HasFiveFields) {
  const auto line = parse_private_data_line("offset 00:00:10.50\t25, no " + std::string(kSixteen));
  EXPECT_EQ(line.fatal, 0);
  EXPECT_EQ(line.warning, 0);
  ASSERT_TRUE(line.entry);
  EXPECT_EQ(line.entry->type, private_data_entry::place::offset);
  EXPECT_DOUBLE_EQ(line.entry->ticks, 10.5 * 2.7e7);
  EXPECT_EQ(line.entry->count, 25);
  EXPECT_EQ(line.entry->form, pes_private_form::field);
  EXPECT_EQ(line.entry->data.size(), 16u);
  EXPECT_EQ(line.entry->data[15], 15);
}

TEST(PrivateDataLine, TakesAnyCaseAndACommentBehindIt) {
  const auto line = parse_private_data_line(" Packet 7 0 YES ff,FE # two bytes");
  ASSERT_TRUE(line.entry);
  EXPECT_EQ(line.entry->packet, 7);
  EXPECT_EQ(line.entry->form, pes_private_form::extension);
  EXPECT_EQ(line.entry->data, (Bytes{0xFF, 0xFE}));
}

TEST(PrivateDataLine, MayBeBlankOrAComment) {
  for (const char* text : {"", " \t", "# nothing", "   # nothing"}) {
    const auto line = parse_private_data_line(text);
    EXPECT_FALSE(line.entry) << text;
    EXPECT_EQ(line.fatal, 0) << text;
    EXPECT_EQ(line.warning, 0) << text;
  }
}

TEST(PrivateDataLine, WithoutAllFieldsIsLeftOutWithAWarning) {
  for (const char* text : {"offset", "packet 1", "packet 1 2", "packet 1 2 no", "x y z no #00"}) {
    const auto line = parse_private_data_line(text);
    EXPECT_FALSE(line.entry) << text;
    EXPECT_EQ(line.fatal, 0) << text;
    EXPECT_EQ(line.warning, 107) << text;
  }
}

TEST(PrivateDataLine, TellsWhichFieldIsWrong) {
  struct row {
    const char* text;
    int code;
  };
  const std::string most(2 * 127, '0');
  const std::string tooMany(2 * 128, '0');
  EXPECT_TRUE(parse_private_data_line("packet 0 0 yes " + most).entry);
  const std::string long128 = "packet 0 0 yes " + tooMany;
  const row rows[] = {
      {"pts 0 0 yes 00", 109},
      {"offset 1:2:x 0 yes 00", 110},
      {"offset -00:00:01.00 0 yes 00", 110},
      {"offset 00:00:01:12 0 yes 00", 110},  // frames
      {"timecode - 0 yes 00", 110},
      {"packet -1 0 yes 00", 110},
      {"packet 99999999999999999999 0 yes 00", 110},
      {"packet 0 -1 yes 00", 111},
      {"packet 0 1x yes 00", 111},
      {"packet 0 0 perhaps 00", 112},
      {"packet 0 0 yes 0g", 113},
      {"packet 0 0 no 00", 113},  // 16 bytes
      {long128.c_str(), 113},
  };
  for (const row& each : rows) {
    const auto line = parse_private_data_line(each.text);
    EXPECT_FALSE(line.entry) << each.text;
    EXPECT_EQ(line.fatal, each.code) << each.text;
  }
}

// What a PES header says, by its own syntax.
struct pes_header_read {
  int flags = 0;
  Bytes field;      // PES_private_data
  Bytes extension;  // the PES extension field
};

std::vector<pes_header_read> headers_of(const Bytes& bytes, int pid) {
  std::vector<pes_header_read> all;
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    const auto packet = test::parsePacket(std::span<const uint8_t, 188>(bytes.data() + at, 188));
    if (!packet || packet->pid != pid || !packet->unitStart) continue;
    const uint8_t* pes = bytes.data() + at + packet->payloadAt;
    pes_header_read header;
    const uint8_t* next = pes + 9;
    if ((pes[7] & 0x80) != 0) next += (pes[7] & 0x40) != 0 ? 10 : 5;
    if ((pes[7] & 1) != 0) {
      header.flags = *next++;
      if ((header.flags & 0x80) != 0) {
        header.field.assign(next, next + 16);
        next += 16;
      }
      if ((header.flags & 1) != 0) {
        EXPECT_NE(*next & 0x80, 0);
        const int count = *next++ & 0x7F;
        header.extension.assign(next, next + count);
        next += count;
      }
    }
    EXPECT_EQ(next, pes + 9 + pes[8]);
    all.push_back(header);
  }
  return all;
}

class PrivateDataRun : public ::testing::Test {
 protected:
  static constexpr int kVideoPid = 0x21;
  static constexpr int kAudioPid = 0x24;

  PrivateDataRun() : program_(run_.addProgram()) {
    program_->pcrPid = 0x1F0;
    program_->pcrPer = 40;
  }

  void write(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }

  void add_video(int pictures, bool timeCodes = true) {
    test::MpegBytes media;
    for (int i = 0; i < pictures; ++i) {
      if (i % 25 == 0) media.sequence();
      if (i % 25 == 0 && timeCodes) media.group(10, 0, i / 25, 0);
      media.picture({.type = i % 25 == 0 ? 1 : 2, .temporalReference = i % 25});
    }
    video_.bytes = media.bytes;
    auto* const record = Morvalen::Zel::tsm_add_video(program_);
    record->user = &video_;
    record->pid = kVideoPid;
    Morvalen::Zel::tarn_array_append_text(&record->privateDataFile, path_);
  }
  Morvalen::Zel::tsm_audio* add_audio(int frames, int pesNau) {
    audio_.bytes = test::operator*(test::mpegFrame(0xFD, 10, 1, 576), frames);
    auto* const record = Morvalen::Zel::tsm_add_audio(program_);
    record->user = &audio_;
    record->pid = kAudioPid;
    record->pesNau = pesNau;
    Morvalen::Zel::tarn_array_append_text(&record->privateDataFile, path_);
    return record;
  }
  // A clean run whose streams come back whole.
  std::vector<pes_header_read> headers(int pid) {
    EXPECT_GT(run_.multiplex(), 0) << run_.texts;
    EXPECT_EQ(run_.said, "") << run_.texts;
    const test::Verdict verdict = test::judgeTransportStream(run_.bytes);
    EXPECT_TRUE(verdict.clean()) << verdict.text();
    if (!video_.bytes.empty()) {
      EXPECT_TRUE(test::elementaryStream(run_.bytes, kVideoPid) == video_.bytes);
    }
    if (!audio_.bytes.empty()) {
      EXPECT_TRUE(test::elementaryStream(run_.bytes, kAudioPid) == audio_.bytes);
    }
    return headers_of(run_.bytes, pid);
  }

  test::ScratchFolder folder_;
  std::string path_ = folder_.file("private.txt");
  test::EngineRun run_;
  Morvalen::Zel::tsm_program* program_;
  test::MemoryInput video_;
  test::MemoryInput audio_;
};

TEST_F(PrivateDataRun, VideoCarriesEntriesFromTheirTimesOn) {
  write("# two entries\noffset 00:00:00.00 3 no " + std::string(kSixteen) +
        "\r\ntimecode 10:00:01:05 0 yes 01 02 03\n");
  add_video(50);
  const auto headers = this->headers(kVideoPid);
  ASSERT_EQ(headers.size(), 50u);
  for (size_t i = 0; i < headers.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(headers[i].flags, i < 3 ? 0x8E : i < 30 ? 0 : 0x0F);
    EXPECT_EQ(headers[i].field.size(), i < 3 ? 16u : 0u);
    EXPECT_EQ(headers[i].extension, i < 30 ? Bytes{} : (Bytes{1, 2, 3}));
  }
  EXPECT_EQ(headers[0].field[15], 15);
}

class PrivateDataOfAudio : public PrivateDataRun, public ::testing::WithParamInterface<int> {};

TEST_P(PrivateDataOfAudio, GoesOutWithThePesPacketsOfItsTimes) {
  write("packet 2 1 no " + std::string(kSixteen) + "\noffset 00:00:01.00 2 yes aa\n");
  const int pesNau = GetParam();
  add_audio(100, pesNau);
  const auto headers = this->headers(kAudioPid);
  // A second is 41.7 frames of 24 ms; each PES packet has `pesNau` that commence in it.
  const auto second = static_cast<size_t>((42 + pesNau - 1) / pesNau);
  ASSERT_GT(headers.size(), second + 2);
  for (size_t i = 0; i < headers.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(headers[i].field.size(), i == 2 ? 16u : 0u);
    EXPECT_EQ(headers[i].extension, i == second || i == second + 1 ? Bytes{0xAA} : Bytes{});
  }
}

INSTANTIATE_TEST_SUITE_P(FramesAPacket, PrivateDataOfAudio, ::testing::Values(1, 3));

TEST_F(PrivateDataRun, AFullExtensionInEveryHeaderKeepsTheBuffersInOrder) {
  std::string text = "packet 0 0 yes";
  for (int i = 0; i < 127; ++i) text.append(" ").append(std::to_string(10 + i % 90));
  write(text);
  add_video(60);
  add_audio(100, 1);
  const auto headers = this->headers(kVideoPid);
  const auto audio = headers_of(run_.bytes, kAudioPid);
  EXPECT_EQ(headers.size(), 60u);
  EXPECT_EQ(audio.size(), 100u);
  for (const auto& header : headers) EXPECT_EQ(header.extension.size(), 127u);
  for (const auto& header : audio) EXPECT_EQ(header.extension.size(), 127u);
}

TEST_F(PrivateDataRun, AudioGoesByTheTimeCodesOfItsPictures) {
  write("timecode 10:00:01:00 1 yes 55\n");
  add_video(60);
  add_audio(100, 1);
  headers(kVideoPid);
  const auto audio = headers_of(run_.bytes, kAudioPid);
  const auto found = std::ranges::find_if(
      audio, [](const pes_header_read& each) { return !each.extension.empty(); });
  // 25 pictures behind the first: the first frame that begins a second behind the audio's first.
  EXPECT_EQ(found - audio.begin(), 42);
}

TEST_F(PrivateDataRun, TimeCodesThatTheVideoHasNotAreTold) {
  write("timecode 10:00:01:00 1 yes 55\n");
  add_video(30, false);
  run_.config->stopOnError = false;
  run_.multiplex();
  EXPECT_EQ(run_.said, "F110 ");
  for (const auto& header : headers_of(run_.bytes, kVideoPid)) EXPECT_EQ(header.flags, 0);
}

TEST_F(PrivateDataRun, AMissingFileAndBadLinesAreTold) {
  path_ = folder_.file("missing.txt");
  add_audio(100, 2);
  run_.config->stopOnError = false;
  run_.multiplex();
  EXPECT_EQ(run_.said, "F108 ");
  EXPECT_TRUE(run_.saidText("Pes Private Data file open error.\n"));

  test::EngineRun second;
  write("packet 0\nbyte 0 0 yes 00\npacket 0 0 yes 7f\n");
  second.config->stopOnError = false;
  auto* const program = second.addProgram();
  program->pcrPid = 0x1F0;
  auto* const record = Morvalen::Zel::tsm_add_audio(program);
  audio_.place = 0;
  record->user = &audio_;
  record->pid = kAudioPid;
  Morvalen::Zel::tarn_array_append_text(&record->privateDataFile, path_);
  second.multiplex();
  EXPECT_EQ(second.said, "W107 F109 ");
  const auto headers = headers_of(second.bytes, kAudioPid);
  ASSERT_FALSE(headers.empty());
  EXPECT_EQ(headers.back().extension, Bytes{0x7F});
}

}  // namespace
}  // namespace zel::mux
