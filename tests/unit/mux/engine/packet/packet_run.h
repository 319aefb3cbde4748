#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/adaptation_parser.h"
#include "zel/mux/engine/run/mux.h"
#include "zel/mux/engine/stream/pcr_schedule.h"

/// A packet maker driven as the slot loop does, and what it made read back.

namespace zel::mux {

inline int write_nothing(void*, const uint8_t*, int32_t, int32_t) {
  return 0;
}

struct pes_packet {
  size_t at = 0;     // of its payload in the elementary stream
  size_t told = 0;   // bytes of payload by its length field
  size_t bytes = 0;  // and in fact
  int64_t pts = -1;
  bool aligned = false;
  int stuffing = 0;  // in its packets
};

/// What came out of a stream.
struct outcome {
  std::vector<uint8_t> payload;
  std::vector<pes_packet> pes;
  std::vector<std::pair<bool, int>> messages;  // fatal, code
  int withheld = 0;
  int withheldWithPcr = 0;
  int pcrs = 0;
  int packets = 0;
  int64_t highest = 0;  // of the decoder's buffer

  std::vector<int64_t> pts() const {
    std::vector<int64_t> stamps;
    for (const pes_packet& packet : pes) {
      if (packet.pts >= 0) stamps.push_back(packet.pts);
    }
    return stamps;
  }
  int stuffing() const {
    int all = 0;
    for (const pes_packet& packet : pes) all += packet.stuffing;
    return all;
  }
};

class packet_run {
 public:
  packet_run(tsm_stream& stream, const buffer_model& model, outcome& result)
      : stream_(stream), model_(model), result_(result), continuity_(stream.continuity()) {}

  bool noEmptyFields = false;  // an adaptation field without content is wrong

  /// Until the stream has no more packets; `now` moves along.
  void to_the_end(tsm_time& now) {
    tsm_mux mux(output_writer({.bufferedPackets = 1}, {}, write_nothing, nullptr));
    for (int slot = 0; slot < 400'000 && !stream_.has(kNoMorePackets); ++slot) {
      now = stream_.nextTime;
      tsm_packet packet{};
      stream_.makePacket(stream_, now, packet, mux);
      EXPECT_TRUE(is_before(now, stream_.nextTime));
      result_.highest = std::max(result_.highest, model_.level);
      if (packet.pid() == kNullPid) {
        ++result_.withheld;
        continue;
      }
      // The slot loop's part.
      if (stream_.has(kPacketHasPcr)) write_pcr(packet.bytes + kPcrPlace, now);
      read(packet);
    }
    EXPECT_TRUE(stream_.has(kNoMorePackets));
  }

 private:
  void read(const tsm_packet& packet) {
    const auto parsed = test::parsePacket(std::span<const uint8_t, 188>(packet.bytes, 188));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->pid, stream_.pid());
    EXPECT_EQ(parsed->pcrBase.has_value(), stream_.has(kPacketHasPcr));
    EXPECT_FALSE(noEmptyFields && parsed->hasField && parsed->fieldLength == 0);
    result_.pcrs += parsed->pcrBase.has_value() ? 1 : 0;
    if (!parsed->hasPayload) {
      EXPECT_FALSE(parsed->unitStart);
      EXPECT_EQ(parsed->continuity, continuity_);  // payload alone is counted
      ++result_.withheldWithPcr;
      return;
    }
    ++result_.packets;
    continuity_ = (continuity_ + 1) & 15;
    EXPECT_EQ(parsed->continuity, continuity_);
    size_t at = parsed->payloadAt;
    if (parsed->unitStart) at += begin_pes(packet.bytes + at);
    ASSERT_FALSE(result_.pes.empty());
    result_.pes.back().bytes += 188 - at;
    result_.pes.back().stuffing += parsed->stuffing;
    result_.payload.insert(result_.payload.end(), packet.bytes + at, packet.bytes + 188);
  }

  // Returns the size of the header.
  size_t begin_pes(const uint8_t* pes) {
    EXPECT_EQ((std::vector<int>{pes[0], pes[1], pes[2], pes[3]}),
              (std::vector<int>{0, 0, 1, stream_.pesId}));
    pes_packet next;
    next.at = result_.payload.size();
    const int length = pes[4] << 8 | pes[5];
    if (length != 0) next.told = static_cast<size_t>(length) - 3u - pes[8];
    next.aligned = (pes[6] & 4) != 0;
    if (pes[7] & 0x80) {
      next.pts = (int64_t{pes[9]} >> 1 & 7) << 30 | int64_t{pes[10]} << 22 |
                 int64_t{pes[11]} >> 1 << 15 | int64_t{pes[12]} << 7 | pes[13] >> 1;
    }
    result_.pes.push_back(next);
    return 9u + pes[8];
  }

  tsm_stream& stream_;
  const buffer_model& model_;
  outcome& result_;
  int continuity_;
};

}  // namespace zel::mux
