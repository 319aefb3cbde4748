#include "zel/mux/engine/run/table_stream.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <vector>

#include "tests/support/engine_run.h"
#include "tests/support/external_program.h"
#include "tests/support/file_bytes.h"
#include "tests/support/transport_judge/transport_judge.h"
#include "zel/base/crc32.h"
#include "zel/mux/engine/run/table_sections.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using test::EngineRun;

constexpr int kPid = 0x300;

/// A section of the long form of `size` bytes with its CRC; `id` tells which it is.
table_section section(uint8_t id, size_t size) {
  table_section bytes = {id,
                         static_cast<uint8_t>(0xB0 | (size - 3) >> 8),
                         static_cast<uint8_t>(size - 3),
                         0,
                         id,
                         0xC1,
                         0,
                         0};
  while (bytes.size() < size - 4) bytes.push_back(static_cast<uint8_t>(bytes.size() * 7 + id));
  const uint32_t crc = base::crc32(bytes);
  for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<uint8_t>(crc >> shift));
  return bytes;
}

struct Gathered {
  table_section bytes;
  size_t firstPacket = 0;  // of the run
};

/// Puts the sections of a PID together again, by pointers and lengths alone.
std::vector<Gathered> gather(const std::vector<uint8_t>& packets, int pid) {
  std::vector<Gathered> all;
  Gathered current;
  bool open = false;
  int counter = -1;
  const auto feed = [&](const uint8_t* at, const uint8_t* end, size_t packet) {
    while (at < end) {
      if (!open) {
        if (*at == 0xFF) return;
        current = {{}, packet};
        open = true;
      }
      current.bytes.push_back(*at++);
      if (current.bytes.size() < 3) continue;
      const size_t size = 3u + ((current.bytes[1] & 15u) << 8 | current.bytes[2]);
      if (current.bytes.size() < size) continue;
      all.push_back(current);
      open = false;
    }
  };
  for (size_t packet = 0; packet < packets.size() / 188; ++packet) {
    const uint8_t* const bytes = packets.data() + packet * 188;
    if (((bytes[1] & 31) << 8 | bytes[2]) != pid || (bytes[3] & 0x10) == 0) continue;
    if (counter >= 0) {
      EXPECT_EQ(bytes[3] & 15, (counter + 1) & 15);
    }
    counter = bytes[3] & 15;
    const uint8_t* at = bytes + 4;
    if ((bytes[3] & 0x20) != 0) at += 1 + bytes[4];
    const uint8_t* const end = bytes + 188;
    if ((bytes[1] & 0x40) != 0) {
      const uint8_t* const begin = at + 1 + *at;
      EXPECT_LE(begin, end);
      if (open) feed(at + 1, begin, packet);
      EXPECT_FALSE(open) << "a section goes on behind the pointer";
      open = false;
      feed(begin, end, packet);
    } else {
      EXPECT_TRUE(open) << "a section begins without a pointer to it";
      feed(at, end, packet);
    }
  }
  // What a run's end cut isn't counted.
  return all;
}

struct TableStream : testing::Test {
  TableStream() : program(run.addProgram()), record(tsm_add_table(program)) {
    run.config->rate = 1.504e6;  // 1,000 packets a second
    program->pcrPid = 0x1F0;
    program->pcrPer = 40;
    record->pid = kPid;
  }

  void give(const table_section& bytes) { tarn_array_append_bytes(&record->tables, bytes); }
  void giveFile(const std::string& name, const std::vector<uint8_t>& bytes) {
    test::writeFile(folder.file(name), bytes);
    tarn_array_append_text(&record->files, folder.file(name));
  }
  /// Runs for so many seconds.
  std::vector<Gathered> sent(int seconds) {
    run.config->forceDuration = true;
    run.config->duration = {1, 0, 0, 0, seconds, 0, 0};
    EXPECT_GT(run.multiplex(), 0) << run.texts;
    return gather(run.bytes, kPid);
  }

  test::ScratchFolder folder;
  EngineRun run;
  tsm_program* program;
  tsm_table* record;
};

TEST_F(TableStream, GoesRoundAtTablesPerSecond) {
  const table_section tables[] = {section(0x80, 40), section(0x81, 500), section(0x82, 183)};
  for (const table_section& each : tables) give(each);
  record->tablesPerSecond = 20;
  const auto all = sent(3);
  EXPECT_EQ(run.said, "W9 ");  // no line in the PMT
  ASSERT_NEAR(static_cast<double>(all.size()), 60, 1);
  for (size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].bytes, tables[i % 3]) << i;
    // At its time, give or take what goes before it.
    EXPECT_NEAR(static_cast<double>(all[i].firstPacket), static_cast<double>(i) * 50, 6) << i;
  }
  EXPECT_EQ(run.packetsOf(kPid), 20 + 60 + 20);  // 183 bytes and a pointer fill a packet
}

TEST_F(TableStream, OnceOnlyWithoutRepeat) {
  give(section(0x80, 400));
  give(section(0x81, 60));
  record->repeat = false;
  const auto all = sent(2);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].bytes, section(0x80, 400));
  EXPECT_EQ(all[1].bytes, section(0x81, 60));
}

TEST_F(TableStream, ARepeatingStreamKeepsNoRunFromEnding) {
  give(section(0x80, 40));
  give(section(0x81, 40));
  EXPECT_GT(run.multiplex(), 0);
  EXPECT_EQ(gather(run.bytes, kPid).size(), 2u);
}

TEST_F(TableStream, PackedSectionsFollowEachOtherWithoutStuffing) {
  std::vector<table_section> tables;
  for (size_t i = 0; i < 40; ++i) {
    tables.push_back(section(static_cast<uint8_t>(0x80 + i), 20 + 13 * i));
    give(tables.back());
  }
  record->pack = true;
  record->repeat = false;
  record->tablesPerSecond = 100;
  const auto all = sent(3);
  ASSERT_EQ(all.size(), tables.size());
  size_t bytes = 0;
  for (size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i].bytes, tables[i]) << i;
    bytes += tables[i].size();
  }
  EXPECT_LE(run.packetsOf(kPid), static_cast<int>(bytes / 183 + 4));
}

TEST_F(TableStream, PackedSectionsOfEveryLengthKeepTheirPointers) {
  // Lengths around a packet's payload: rests of 0, 1 and 2 bytes, pointers at the last byte.
  for (size_t size = 175; size < 192; ++size) {
    give(section(static_cast<uint8_t>(0x40 + size - 175), size));
  }
  record->pack = true;
  record->tablesPerSecond = 150;
  const auto all = sent(5);
  ASSERT_GT(all.size(), 500u);
  for (size_t i = 0; i < all.size(); ++i) {
    const size_t which = i % 17;
    ASSERT_EQ(all[i].bytes, section(static_cast<uint8_t>(0x40 + which), 175 + which)) << i;
  }
}

TEST_F(TableStream, DelayAndStopBoundIt) {
  give(section(0x80, 100));
  record->streamDelay = 45'000;  // half a second
  record->streamStop = 135'000;
  const auto all = sent(3);
  ASSERT_NEAR(static_cast<double>(all.size()), 10, 1);
  EXPECT_NEAR(static_cast<double>(all.front().firstPacket), 500, 3);
  EXPECT_LE(all.back().firstPacket, 1'500u);
}

TEST_F(TableStream, TimeOffsetMovesItsBeginning) {
  give(section(0x80, 100));
  give(section(0x81, 100));
  record->timeOffset = {1, 0, 0, 0, 1, 250'000, 1};
  const auto all = sent(3);
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.front().bytes[0], 0x80);
  EXPECT_NEAR(static_cast<double>(all.front().firstPacket), 1'250, 3);
}

TEST_F(TableStream, WhatAnOffsetPutsBeforeTheBeginningIsLeftOut) {
  for (uint8_t id = 0x80; id < 0x85; ++id) give(section(id, 100));
  record->timeOffset = {3, 0, 0, 0, 0, 220'000, 1};  // 0.22 s earlier: the third would go at -0.02
  record->repeat = false;
  const auto all = sent(3);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].bytes[0], 0x83);
  EXPECT_NEAR(static_cast<double>(all[0].firstPacket), 80, 3);
  EXPECT_EQ(all[1].bytes[0], 0x84);
}

TEST_F(TableStream, ARoundGoesOnWhereTheOffsetPutsIt) {
  for (uint8_t id = 0x80; id < 0x83; ++id) give(section(id, 100));
  record->timeOffset = {3, 0, 0, 0, 1, 0, 1};  // ten tables of three
  const auto all = sent(1);
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.front().bytes[0], 0x81);
}

TEST_F(TableStream, ThereIsNoStartToAdjust) {
  give(section(0x80, 100));
  record->adjustStart = true;
  record->createPmtEntry = true;
  sent(1);
  EXPECT_EQ(run.said, "W123 ");
}

TEST_F(TableStream, KeepsToTheDecodersBuffer) {
  give(section(0x80, 4'000));
  record->tablesPerSecond = 30;  // nearly a megabit
  run.config->rate = 15.04e6;
  const auto all = sent(3);
  EXPECT_GT(all.size(), 80u);
  double level = 0;
  size_t last = 0;
  for (size_t packet = 0; packet < run.bytes.size() / 188; ++packet) {
    const uint8_t* const bytes = run.bytes.data() + packet * 188;
    if (((bytes[1] & 31) << 8 | bytes[2]) != kPid) continue;
    level = std::max(0.0, level - static_cast<double>(packet - last) * 1504 / 15.04e6 * 1e6 / 8);
    last = packet;
    level += 188;
    ASSERT_LE(level, 513) << packet;
  }
}

TEST_F(TableStream, PassesTheJudgeWithItsLineInThePmt) {
  give(section(0x80, 500));
  record->createPmtEntry = true;
  record->streamType = 192;
  sent(3);
  EXPECT_EQ(run.said, "");
  const test::Verdict verdict = test::judgeTransportStream(run.bytes);
  EXPECT_TRUE(verdict.clean()) << verdict.text();
  // The PMT's line: stream type, reserved bits and PID.
  bool listed = false;
  for (const Gathered& pmt : gather(run.bytes, 32)) {
    listed = listed || (pmt.bytes[12] == 192 && pmt.bytes[13] == 0xE3 && pmt.bytes[14] == 0);
  }
  EXPECT_TRUE(listed);
}

TEST_F(TableStream, FilesOfBareSectionsWinOverDefinitions) {
  give(section(0x99, 60));
  std::vector<uint8_t> bytes = section(0x80, 70);
  const auto more = section(0x81, 80);
  bytes.insert(bytes.end(), {0xFF, 0xFF});
  bytes.insert(bytes.end(), more.begin(), more.end());
  giveFile("sections", bytes);
  giveFile("more", section(0x82, 90));
  record->repeat = false;
  const auto all = sent(2);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].bytes, section(0x80, 70));
  EXPECT_EQ(all[1].bytes, section(0x81, 80));
  EXPECT_EQ(all[2].bytes, section(0x82, 90));
}

TEST_F(TableStream, TableDataThatCantBe) {
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F84 ");

  run.said.clear();
  give({0x80, 0xB0});
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "W110 F85 ");

  run.said.clear();
  record->tablesPerSecond = 0;
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F83 ");
}

TEST_F(TableStream, FilesThatCantBe) {
  tarn_array_append_text(&record->files, folder.file("absent"));
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F34 ");

  run.said.clear();
  tarn_array_free_strings(&record->files);
  const std::string document = "<sitable version=\"1\">\n</sitable>\n";
  giveFile("document", {document.begin(), document.end()});
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F148 ");
  EXPECT_TRUE(run.saidText("document")) << run.texts;

  run.said.clear();
  tarn_array_free_strings(&record->files);
  giveFile("empty", {});
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F85 ");
}

TEST_F(TableStream, CantCarryThePcr) {
  give(section(0x80, 100));
  program->pcrPid = kPid;
  EXPECT_EQ(run.multiplex(), -2);
  EXPECT_EQ(run.said, "F124 ");
}

struct TableSections : testing::Test {
  TableSections() {
    reports.deliver_to(
        [](void* user, int fatal, int32_t code, const char*) {
          static_cast<std::vector<int>*>(user)->push_back(fatal != 0 ? -code : code);
        },
        &told);
    reports.stop_on(false, false);
  }
  tsm_time now;
  tsm_stats stats;
  reporting reports{stats, now};
  std::vector<int> told;
};

TEST_F(TableSections, ALongSectionGetsTheCrcThatItsLengthCounts) {
  const table_section whole = section(0x80, 50);
  table_section without(whole.begin(), whole.end() - 4);
  EXPECT_EQ(complete_section(whole, 1, kPid, reports), whole);
  EXPECT_EQ(complete_section(without, 1, kPid, reports), whole);
  EXPECT_TRUE(told.empty());
  // A short section has none.
  without[1] = static_cast<uint8_t>(without[1] & 0x7F);
  EXPECT_EQ(complete_section(without, 1, kPid, reports), without);
  EXPECT_EQ(told, (std::vector<int>{111}));
}

TEST_F(TableSections, AWrongLengthIsToldAndSentAsItStands) {
  table_section wrong = section(0x80, 50);
  wrong.pop_back();
  EXPECT_EQ(complete_section(wrong, 1, kPid, reports), wrong);
  EXPECT_EQ(told, (std::vector<int>{111}));
}

TEST_F(TableSections, BytesAreSplitByTheirLengthsOrNotAtAll) {
  std::vector<uint8_t> bytes = section(0x80, 50);
  const auto second = section(0x81, 4'096);
  bytes.insert(bytes.end(), second.begin(), second.end());
  std::vector<table_section> split;
  EXPECT_TRUE(split_sections(bytes, split));
  ASSERT_EQ(split.size(), 2u);
  EXPECT_EQ(split[1], second);
  split.clear();
  bytes.pop_back();
  EXPECT_FALSE(split_sections(bytes, split));
}

}  // namespace
}  // namespace zel::mux
