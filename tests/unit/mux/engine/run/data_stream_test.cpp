#include "zel/mux/engine/run/data_stream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "zel/mux/engine/run/slot_loop.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;

int collect(void* user, const uint8_t* data, int32_t size, int32_t) {
  auto& bytes = *static_cast<std::vector<uint8_t>*>(user);
  bytes.insert(bytes.end(), data, data + size);
  return 0;
}

void note(void* user, int fatal, int32_t code, const char*) {
  auto& said = *static_cast<std::string*>(user);
  said += fatal != 0 ? 'F' : 'W';
  said += std::to_string(code);
  said += ' ';
}

struct DataStream : testing::Test {
  DataStream() : mux(output_writer({}, {}, collect, &bytes)) {
    mux.rate = 1.504e6;
    mux.reports.deliver_to(note, &said);
    path = testing::TempDir() + "data_stream_" +
           testing::UnitTest::GetInstance()->current_test_info()->name() + ".ts";
    record = tsm_add_data(config);
    record->pid = 0x300;
    record->rate = 1.504e6;
    record->repeat = false;
    tarn_array_append_text(&record->files, path);
  }
  ~DataStream() override {
    tsm_config_free(config);
    std::remove(path.c_str());
  }

  /// Packets of PID 0x111 whose counters are all 5, told apart by byte 4.
  void write_file(int packets, uint8_t sync = 0x47) {
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    for (int i = 0; i < packets; ++i) {
      uint8_t packet[188] = {sync, 0x01, 0x11, 0x15, static_cast<uint8_t>(i)};
      std::fwrite(packet, 1, sizeof packet, file);
    }
    std::fclose(file);
  }
  void run() {
    auto stream = make_data_stream(*record, nullptr, mux);
    ASSERT_NE(stream, nullptr);
    mux.streams.push_back(std::move(stream));
    run_slots(mux);
  }
  size_t packets() const { return bytes.size() / 188; }
  const uint8_t* packet(size_t index) const { return bytes.data() + index * 188; }

  std::vector<uint8_t> bytes;
  std::string said, path;
  tsm_config* config = tsm_config_new();
  tsm_data* record = nullptr;
  tsm_mux mux;
};

TEST_F(DataStream, FixesCountersAndKeepsThePid) {
  write_file(20);
  run();
  ASSERT_EQ(packets(), 20u);
  for (size_t i = 0; i < 20; ++i) {
    EXPECT_EQ(packet(i)[2], 0x11);
    EXPECT_EQ(packet(i)[3], 0x10 | ((5 + i) & 15));
    EXPECT_EQ(packet(i)[4], i);
  }
  EXPECT_EQ(said, "");
}

TEST_F(DataStream, LeavesCountersAloneAndChangesThePid) {
  record->fixCc = false;
  record->changePid = true;
  write_file(3);
  run();
  ASSERT_EQ(packets(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(packet(i)[1], 0x03);
    EXPECT_EQ(packet(i)[2], 0x00);
    EXPECT_EQ(packet(i)[3], 0x15);
  }
}

TEST_F(DataStream, RepeatGoesRoundUntilTheRunIsOver) {
  record->repeat = true;
  mux.forceDuration = true;
  mux.endTime = time_from_ticks(27000 * 10);
  write_file(4);
  run();
  ASSERT_EQ(packets(), 10u);
  for (size_t i = 0; i < 10; ++i) EXPECT_EQ(packet(i)[4], i % 4);
}

TEST_F(DataStream, AnEmptyFileIsToldAndEndsAtOnceEvenWhenRepeated) {
  record->repeat = true;
  write_file(0);
  run();
  EXPECT_EQ(packets(), 0u);
  EXPECT_EQ(said, "W89 ");
}

TEST_F(DataStream, WithoutSyncByteItIsFatal) {
  write_file(2, 0x48);
  EXPECT_THROW(run(), engine_stop);
  EXPECT_EQ(said, "F10 ");
}

TEST_F(DataStream, NeedsARate) {
  record->rate = 0;
  EXPECT_THROW(make_data_stream(*record, nullptr, mux), engine_stop);
  EXPECT_EQ(said, "F4 ");
}

TEST_F(DataStream, AFileThatIsNotThereIsFatal) {
  EXPECT_THROW(make_data_stream(*record, nullptr, mux), engine_stop);
  EXPECT_EQ(said, "F31 ");
}

TEST_F(DataStream, AFileThatIsGoneTheNextTimeRoundIsTold) {
  write_file(20);
  record->repeat = true;
  mux.reports.stop_on(false, false);
  auto stream = make_data_stream(*record, nullptr, mux);
  ASSERT_NE(stream, nullptr);
  mux.streams.push_back(std::move(stream));
  std::remove(path.c_str());
  mux.terminatePacket = 100'000;
  run_slots(mux);
  EXPECT_EQ(said, "F50 ");
  EXPECT_GE(packets(), 20u);
}

}  // namespace
}  // namespace zel::mux
