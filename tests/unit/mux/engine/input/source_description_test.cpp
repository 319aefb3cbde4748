// DescFromData: a stream that comes out of a transport stream keeps what that stream's PMT says of
// it.

#include "zel/mux/engine/input/source_description.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/audio_frames.h"
#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/unit/mux/engine/input/multiplex_bytes.h"
#include "zel/base/crc32.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/input/source_tables.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::Bytes;

constexpr int kPmtPid = 0x20;
constexpr int kPid = 0x24;

Bytes with_crc(Bytes section) {
  const size_t length = section.size() - 3 + 4;
  section[1] = static_cast<uint8_t>(0xB0 | length >> 8);
  section[2] = static_cast<uint8_t>(length);
  const uint32_t crc = base::crc32(section);
  for (int shift = 24; shift >= 0; shift -= 8)
    section.push_back(static_cast<uint8_t>(crc >> shift));
  return section;
}

Bytes pat_section() {
  return with_crc({0, 0, 0, 0, 1, 0xC1, 0, 0, 0, 2, 0xE0, kPmtPid});
}

// A line for `pid`, behind one of another PID and a program descriptor.
Bytes pmt_section(int pid, uint8_t type, const Bytes& descriptors) {
  Bytes section = {2, 0, 0, 0, 2, 0xC1, 0, 0, 0xE1, 0xFF, 0xF0, 4, 9, 2, 1, 2};
  test::append(section, {0x1B, 0xE0, 0x21, 0xF0, 0});
  const auto size = static_cast<uint8_t>(descriptors.size());
  test::append(section, {type, static_cast<uint8_t>(0xE0 | pid >> 8), static_cast<uint8_t>(pid),
                         static_cast<uint8_t>(0xF0 | descriptors.size() >> 8), size});
  test::append(section, descriptors);
  return with_crc(section);
}

Bytes in_packets(int pid, const Bytes& section) {
  test::TsPackets packets(pid);
  Bytes payload = {0};
  test::append(payload, section);
  payload.resize((payload.size() + 183) / 184 * 184, 0xFF);
  return packets.whole(payload);
}

source_tables tables_of(const Bytes& stream) {
  source_tables tables;
  for (size_t at = 0; at + 188 <= stream.size(); at += 188) {
    tables.take_packet(std::span<const uint8_t, 188>(stream.data() + at, 188));
  }
  return tables;
}

TEST(SourceTables, TellALinesTypeAndDescriptors) {
  Bytes stream = in_packets(0, pat_section());
  test::append(stream, in_packets(kPmtPid, pmt_section(kPid, 6, {0x6A, 1, 0, 0x0A, 2, 'd', 'e'})));
  const auto found = tables_of(stream).find(kPid);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->streamType, 6);
  EXPECT_EQ(found->descriptors, (std::vector<Bytes>{{0x6A, 1, 0}, {0x0A, 2, 'd', 'e'}}));
  const auto video = tables_of(stream).find(0x21);
  ASSERT_TRUE(video);
  EXPECT_EQ(video->streamType, 0x1B);
  EXPECT_TRUE(video->descriptors.empty());
  EXPECT_FALSE(tables_of(stream).find(0x22));
}

TEST(SourceTables, SectionsMayGoOverSeveralPackets) {
  Bytes descriptors;
  for (uint8_t i = 0; i < 10; ++i) {
    descriptors.insert(descriptors.end(), {i, 60});
    descriptors.insert(descriptors.end(), 60, i);
  }
  Bytes stream = in_packets(0, pat_section());
  const Bytes table = in_packets(kPmtPid, pmt_section(kPid, 6, descriptors));
  ASSERT_GT(table.size(), 3u * 188);
  test::append(stream, table);
  ASSERT_TRUE(tables_of(stream).find(kPid));
  EXPECT_EQ(tables_of(stream).find(kPid)->descriptors.size(), 10u);
  // With a packet lost, or sent twice.
  Bytes lost(stream.begin(), stream.begin() + 2 * 188);
  lost.insert(lost.end(), stream.begin() + 3 * 188, stream.end());
  EXPECT_FALSE(tables_of(lost).find(kPid));
  Bytes twice(stream.begin(), stream.begin() + 3 * 188);
  twice.insert(twice.end(), stream.begin() + 2 * 188, stream.end());
  EXPECT_TRUE(tables_of(twice).find(kPid));
}

TEST(SourceTables, DamageIsPassedOver) {
  Bytes stream = in_packets(0, pat_section());
  Bytes table = in_packets(kPmtPid, pmt_section(kPid, 6, {0x6A, 1, 0}));
  table[15] ^= 1;  // the CRC is wrong then
  test::append(stream, table);
  EXPECT_FALSE(tables_of(stream).find(kPid));
  // Any bytes at all.
  Bytes noise = test::pattern(188 * 50, 3);
  for (size_t at = 0; at < noise.size(); at += 188) {
    noise[at] = 0x47;
    noise[at + 1] = 0x40;
    noise[at + 2] = 0;
    noise[at + 3] = static_cast<uint8_t>(0x10 | (at / 188 & 15));
  }
  EXPECT_FALSE(tables_of(noise).find(kPid));
}

class FromSource : public ::testing::Test {
 protected:
  // Layer II audio whose PMT stands a while behind its first packets.
  std::string source(const Bytes& descriptors) {
    test::TsPackets audio(kPid);
    Bytes bytes;
    for (int i = 0; i < 100; ++i) {
      if (i == 40) {
        test::append(bytes, in_packets(0, pat_section()));
        test::append(bytes, in_packets(kPmtPid, pmt_section(kPid, 6, descriptors)));
      }
      const Bytes frame = test::layer2Frame(10, 1, 576);
      test::append(bytes, audio.whole(test::pes(0xC0, frame, {90'000 + i * 2'160})));
    }
    const std::string name = folder_.file("source.ts");
    test::writeFile(name, bytes);
    return name;
  }
  tsm_audio* audio(const std::string& name) {
    tsm_program* const program = run_.addProgram();
    program->pcrPid = 0x1F0;
    program->pcrPer = 40;
    tsm_audio* const record = tsm_add_audio(program);
    record->pid = kPid;
    record->sourceTsPid = kPid;
    record->descFromData = true;
    tarn_array_append_text(&record->files, name);
    return record;
  }
  // The PMT's line of the stream, as it went out.
  source_description line() {
    EXPECT_GT(run_.multiplex(), 0) << run_.texts;
    const auto found = tables_of(run_.bytes).find(kPid);
    EXPECT_TRUE(found);
    return found.value_or(source_description{});
  }

  test::ScratchFolder folder_;
  test::EngineRun run_;
};

TEST_F(FromSource, ItsLineIsKept) {
  audio(source({0x0A, 4, 'd', 'e', 'u', 0, 0x52, 1, 7}));
  const source_description found = line();
  EXPECT_EQ(run_.said, "");
  EXPECT_EQ(found.streamType, 6);
  EXPECT_EQ(found.descriptors, (std::vector<Bytes>{{0x0A, 4, 'd', 'e', 'u', 0}, {0x52, 1, 7}}));
}

TEST_F(FromSource, ConfiguredOnesGiveWayAndASetTypeStays) {
  tsm_audio* const record = audio(source({0x52, 1, 7}));
  record->streamType = 4;
  const Bytes own = {0x52, 1, 9};
  tarn_array_append_bytes(&record->descriptors, own);
  const source_description found = line();
  EXPECT_EQ(run_.said, "W83 ");
  EXPECT_EQ(found.streamType, 4);
  EXPECT_EQ(found.descriptors, (std::vector<Bytes>{{0x52, 1, 7}}));
}

TEST_F(FromSource, NoMoreThanASectionMayName) {
  Bytes descriptors;
  for (uint8_t i = 0; i < 40; ++i) test::append(descriptors, {0x80, 1, i});
  audio(source(descriptors));
  const source_description found = line();
  EXPECT_EQ(run_.said, "W56 ");
  ASSERT_EQ(found.descriptors.size(), 32u);
  EXPECT_EQ(found.descriptors[31], (Bytes{0x80, 1, 31}));
}

TEST_F(FromSource, WithoutASourceItIsTold) {
  tsm_audio* const record = audio(source({}));
  tarn_array_free_strings(&record->files);
  record->sourceTsPid = 0;
  const Bytes frames = test::operator*(test::layer2Frame(10, 1, 576), 100);
  const std::string name = folder_.file("audio.mp2");
  test::writeFile(name, frames);
  tarn_array_append_text(&record->files, name);
  EXPECT_EQ(line().streamType, 3);
  EXPECT_EQ(run_.said, "W72 ");
}

TEST_F(FromSource, AStreamThatNoTableNamesKeepsItsOwnLine) {
  audio(source({0x52, 1, 7}))->sourceTsPid = kPid;
  tsm_audio* const record = run_.config->programs->audio[0];
  tarn_array_free_strings(&record->files);
  test::TsPackets packets(kPid);
  Bytes bytes;
  for (int i = 0; i < 100; ++i) {
    const Bytes frame = test::layer2Frame(10, 1, 576);
    test::append(bytes, packets.whole(test::pes(0xC0, frame, {90'000 + i * 2'160})));
  }
  const std::string name = folder_.file("bare.ts");
  test::writeFile(name, bytes);
  tarn_array_append_text(&record->files, name);
  EXPECT_EQ(line().streamType, 3);
  EXPECT_EQ(run_.said, "");
}

}  // namespace
}  // namespace zel::mux
