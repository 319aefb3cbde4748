#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/file_bytes.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/run/slot_loop.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/video_state.h"

/// Runs PCM streams through the slot loop, and takes the packets apart.

namespace zel::test {

struct SentPes {
  double pts = -1;  // 90 kHz ticks
  uint8_t streamId = 0;
  bool aligned = false;
  size_t firstPacket = 0;  // in the run
  size_t lastPacket = 0;
  std::vector<uint8_t> payload;
};

class PcmRun : public testing::Test {
 protected:
  PcmRun()
      : mux(mux::output_writer({.bufferedPackets = 0}, {}, write, &packets)),
        config(Morvalen::Zel::tsm_config_new()),
        program(Morvalen::Zel::tsm_add_program(config)) {
    mux.config = config;
    mux.rate = 20e6;
    mux.reports.deliver_to(
        [](void* user, int fatal, int32_t code, const char*) {
          static_cast<std::vector<int>*>(user)->push_back(fatal != 0 ? -code : code);
        },
        &told);
    mux.reports.stop_on(false, false);
    program->pcrPid = 0x1F0;
    folder = std::filesystem::temp_directory_path() /
             ("zel_pcm_" + std::to_string(getpid()) + "_" +
              testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder);
  }
  ~PcmRun() override {
    Morvalen::Zel::tsm_config_free(config);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  std::string file(const std::string& name, const std::vector<uint8_t>& bytes) {
    const std::string path = (folder / name).string();
    writeFile(path, bytes);
    return path;
  }

  /// A video stream as others see it: pictures of `period` ticks, the first at `firstPts`.
  void addVideo(int pid, double period, double firstPts) {
    auto stream = std::make_unique<mux::tsm_stream>();
    stream->kind = mux::stream_kind::video;
    stream->state = std::make_unique<mux::video_state>();
    stream->program = static_cast<uint32_t>(program->programNumber);
    stream->set_pid(pid);
    stream->framePeriod = period;
    stream->firstPts = firstPts;
    stream->set_rate(1e6);
    stream->makePacket = [](mux::tsm_stream& self, const mux::tsm_time&, mux::tsm_packet& packet,
                            mux::tsm_mux&) {
      packet.make_null();
      self.set(mux::kSourceEnded | mux::kNoMorePackets);
      self.step_times();
    };
    mux.streams.push_back(std::move(stream));
  }

  /// Opens and starts a record's stream, as building does. Null where it can't be.
  template <typename Record, typename Open, typename Start>
  mux::tsm_stream* add(Record& record, Open open, Start start,
                       Morvalen::Zel::tsm_load_callback load = nullptr) {
    std::unique_ptr<mux::tsm_stream> stream = open(record, *program, load, mux);
    if (stream == nullptr) return nullptr;
    mux::set_up_stream(*stream, record, program, mux);
    mux.streams.push_back(std::move(stream));
    mux::tsm_stream& added = *mux.streams.back();
    start(added, mux);
    if (added.has(mux::kNoMorePackets)) return nullptr;
    added.nextTime = mux::time_from_ticks(config->leader * 300.0 + 1 + mux.startTime);
    added.dueTime = mux::add(added.nextTime, added.interval);
    return &added;
  }

  /// As if nothing had been run.
  void startAnew() {
    mux.streams.clear();
    mux.clockIsSet = false;
    mux.stats = {};
    packets.clear();
    told.clear();
  }
  void run() { ASSERT_EQ(mux::run_slots(mux), mux::slot_outcome::finished); }

  /// The PES packets of a PID, and checks of what every stream has to keep.
  std::vector<SentPes> pesOf(int pid) const {
    std::vector<SentPes> all;
    int counter = -1;
    for (size_t at = 0; at < packets.size(); at += 188) {
      const uint8_t* const packet = packets.data() + at;
      if (((packet[1] & 0x1F) << 8 | packet[2]) != pid) continue;
      const bool hasPayload = (packet[3] & 0x10) != 0;
      size_t place = 4;
      if ((packet[3] & 0x20) != 0) place += 1 + packet[4];
      if (!hasPayload) continue;
      if (counter >= 0) {
        EXPECT_EQ(packet[3] & 15, (counter + 1) & 15);
      }
      counter = packet[3] & 15;
      if ((packet[1] & 0x40) != 0) {
        startPes(packet, place, at / 188, all);
      }
      if (all.empty()) continue;
      all.back().payload.insert(all.back().payload.end(), packet + place, packet + 188);
      all.back().lastPacket = at / 188;
    }
    return all;
  }

  size_t packetsOf(int pid) const {
    size_t count = 0;
    for (size_t at = 0; at < packets.size(); at += 188) {
      if (((packets[at + 1] & 0x1F) << 8 | packets[at + 2]) == pid) ++count;
    }
    return count;
  }
  /// The time of a packet, 27 MHz ticks from the start.
  double timeOf(size_t packet) const { return static_cast<double>(packet) * 4.0608e10 / mux.rate; }

  std::vector<uint8_t> packets;
  std::vector<int> told;  // codes, fatal ones negative
  mux::tsm_mux mux;
  Morvalen::Zel::tsm_config* config;
  Morvalen::Zel::tsm_program* program;
  std::filesystem::path folder;

 private:
  static int write(void* user, const uint8_t* data, int32_t size, int32_t) {
    auto& all = *static_cast<std::vector<uint8_t>*>(user);
    all.insert(all.end(), data, data + size);
    return 0;
  }

  static void startPes(const uint8_t* packet, size_t& place, size_t index,
                       std::vector<SentPes>& all) {
    SentPes pes;
    const uint8_t* const header = packet + place;
    EXPECT_EQ(header[0] << 16 | header[1] << 8 | header[2], 1);
    pes.streamId = header[3];
    pes.aligned = (header[6] & 4) != 0;
    EXPECT_EQ(header[7] & 0xC0, 0x80);
    uint64_t stamp = (header[9] >> 1 & 7u);
    stamp = stamp << 15 | (header[10] << 7 | header[11] >> 1);
    stamp = stamp << 15 | (header[12] << 7 | header[13] >> 1);
    pes.pts = static_cast<double>(stamp);
    pes.firstPacket = index;
    place += 9u + header[8];
    all.push_back(pes);
  }
};

}  // namespace zel::test
