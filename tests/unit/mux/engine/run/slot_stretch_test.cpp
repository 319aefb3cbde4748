#include "zel/mux/engine/run/slot_stretch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "tests/support/seed.h"
#include "zel/mux/engine/run/slot_loop.h"

namespace zel::mux {
namespace {

// A source whose units, of packets without meaning, may not go before their times. The packets of a
// unit but for its last are the stretch.
struct unit_state : stream_state {
  struct unit {
    int packets;
    tsm_time time;
  };
  std::vector<unit> units;
  size_t front = 0;
  int sent = 0;
};

unit_state& units_of(tsm_stream& stream) {
  return static_cast<unit_state&>(*stream.state);
}

void make_inner(tsm_stream& stream, tsm_packet& packet) {
  std::memset(packet.bytes, 0xAA, sizeof packet.bytes);
  stream.set_continuity(stream.continuity() + 1u);
  packet.bytes[0] = 0x47;
  packet.bytes[1] = static_cast<uint8_t>(stream.pid() >> 8);
  packet.bytes[2] = static_cast<uint8_t>(stream.pid());
  packet.bytes[3] = static_cast<uint8_t>(0x10 | stream.continuity());
  packet.bytes[4] = static_cast<uint8_t>(units_of(stream).front);
  packet.bytes[5] = static_cast<uint8_t>(++units_of(stream).sent);
  stream.step_times();
}

void make_unit_packet(tsm_stream& stream, const tsm_time& now, tsm_packet& packet, tsm_mux&) {
  unit_state& state = units_of(stream);
  if (is_before(now, state.units[state.front].time)) {
    packet.make_null();
    stream.step_times();
    return;
  }
  make_inner(stream, packet);
  if (state.sent < state.units[state.front].packets) return;
  state.sent = 0;
  if (++state.front == state.units.size()) stream.set(kSourceEnded | kNoMorePackets);
}

int plannedStretches = 0;

bool plan_unit(tsm_stream& stream, const tsm_time& now, packet_stretch& stretch) {
  const unit_state& state = units_of(stream);
  if (state.front == state.units.size()) return false;
  const unit_state::unit& unit = state.units[state.front];
  if (is_before(now, unit.time)) return false;
  stretch.packets = std::min<int64_t>(stretch.packets, unit.packets - 1 - state.sent);
  ++plannedStretches;
  return stretch.packets > 0;
}

struct Output {
  // How many bytes came at which packet, and their hash; -1 and 0 is progress.
  std::vector<std::tuple<int, int64_t, size_t>> calls;
  const tsm_mux* mux = nullptr;
  int failAt = 0;
  int stopAt = 0;
  int endAt = 0;
  std::atomic<control_word> control{control_word::none};

  static int write(void* user, const uint8_t* data, int32_t size, int32_t) {
    Output& self = *static_cast<Output*>(user);
    const std::string_view bytes(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
    self.calls.emplace_back(size, self.mux->stats.packetsWritten,
                            std::hash<std::string_view>()(bytes));
    if (static_cast<int>(self.calls.size()) == self.endAt) self.control = control_word::end;
    return static_cast<int>(self.calls.size()) == self.failAt ? 1 : 0;
  }
  static int progress(void* user, const Morvalen::Zel::tsm_stats* stats) {
    Output& self = *static_cast<Output*>(user);
    self.calls.emplace_back(-1, stats->packetsWritten, 0);
    return static_cast<int>(self.calls.size()) == self.stopAt ? 1 : 0;
  }
};

// Everything that can be seen of a run.
struct Seen {
  std::vector<std::tuple<int, int64_t, size_t>> calls;
  int64_t packets = 0;
  std::vector<slot_outcome> outcomes;
  std::vector<int64_t> sent;
  std::string said;
  tsm_time end;
};

Seen runAtRandom(unsigned seed, bool slotBySlot) {
  std::mt19937 random(seed);
  const auto pick = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  const auto chance = [&](int percent) { return pick(1, 100) <= percent; };
  Output output;
  Seen seen;
  tsm_mux mux(output_writer({.bufferedPackets = pick(1, 300)}, {}, Output::write, &output));
  output.mux = &mux;
  mux.control = &output.control;
  if (chance(15)) output.failAt = pick(1, 20);
  if (chance(15)) output.endAt = pick(1, 20);
  mux.rate = pick(1'400'000, 1'600'000);
  mux.startTime = chance(50) ? 0 : timeWrap - pick(0, 3'000) * 27'000.0;
  mux.progress = Output::progress;
  mux.progressUser = &output;
  mux.progressPeriod = pick(1, 700);
  if (chance(15)) output.stopAt = pick(1, 20);
  if (chance(30)) mux.terminatePacket = pick(1, 2'500);
  mux.terminate = chance(10);
  mux.forceDuration = chance(30) || mux.terminate;
  mux.endTime = add_ticks(time_from_ticks(mux.startTime), pick(500, 4'000) * 27'000.0);
  if (mux.terminate) mux.terminatePacket = pick(1, 2'500);
  if (chance(2)) {  // so long that the clock's rounding is mended
    output.failAt = output.stopAt = output.endAt = 0;
    mux.startTime = 0;
    mux.terminatePacket = 0;
    mux.terminate = false;
    mux.forceDuration = true;
    mux.endTime = time_from_ticks(120'000 * 27'000.0);
  }
  if (chance(30)) mux.packetsPerCall = pick(1, 400);
  if (chance(10)) mux.bursts = burst_nulls(pick(1, 5), pick(20, 90));
  mux.reports.deliver_to([](void* user, int, int32_t,
                            const char* text) { static_cast<std::string*>(user)->append(text); },
                         &seen.said);
  smoothing_buffer smoothing{pick(500, 3'000) * 1.0, 4e5, 0, time_from_ticks(mux.startTime)};

  for (int count = pick(1, 4); count > 0; --count) {
    auto stream = std::make_unique<tsm_stream>();
    auto state = std::make_unique<unit_state>();
    double at = mux.startTime;
    for (int unit = pick(1, chance(10) ? 600 : 12); unit > 0; --unit) {
      at += pick(0, 300) * 27'000.0;
      state->units.push_back({chance(70) ? pick(40, 200) : pick(1, 5), time_from_ticks(at)});
    }
    stream->state = std::move(state);
    stream->kind = stream_kind::video;
    stream->set_pid(0x100 + count);
    stream->set_rate(chance(60) ? pick(2, 9) * 1e5 : pick(1, 9) * 5e3);
    stream->nextTime = add_ticks(time_from_ticks(mux.startTime), pick(0, 400'000));
    stream->dueTime = add(stream->nextTime, stream->interval);
    if (chance(20)) stream->set(kPriority);
    if (chance(10)) stream->streamSB = &smoothing;
    if (chance(10)) {
      stream->set2(kHold);
      stream->holdUntil = add_ticks(time_from_ticks(mux.startTime), pick(0, 9'000'000));
    }
    stream->makePacket = make_unit_packet;
    stream->planStretch = slotBySlot ? nullptr : plan_unit;
    stream->makeInner = make_inner;
    mux.streams.push_back(std::move(stream));
  }
  try {
    do {
      seen.outcomes.push_back(run_slots(mux));
    } while (seen.outcomes.back() == slot_outcome::paused);
  } catch (const engine_stop&) {
    seen.said += "stopped";
  }
  seen.packets = mux.stats.packetsWritten;
  seen.calls = output.calls;
  seen.end = mux.now;
  for (const auto& stream : mux.streams) seen.sent.push_back(stream->packetsSent);
  return seen;
}

TEST(SlotStretch, ComesToWhatAskingSlotBySlotDoes) {
  plannedStretches = 0;
  int64_t packets = 0;
  for (unsigned round = 0; round < 300; ++round) {
    const unsigned seed = static_cast<unsigned>(test::testSeed()) * 1000 + round;
    const Seen one = runAtRandom(seed, true);
    const Seen rows = runAtRandom(seed, false);
    ASSERT_EQ(rows.packets, one.packets) << seed;
    ASSERT_EQ(rows.calls, one.calls) << seed;
    ASSERT_EQ(rows.outcomes, one.outcomes) << seed;
    ASSERT_EQ(rows.sent, one.sent) << seed;
    ASSERT_EQ(rows.said, one.said) << seed;
    ASSERT_EQ(rows.end, one.end) << seed;
    packets += one.packets;
  }
  EXPECT_GT(packets, 100'000);
  EXPECT_GT(plannedStretches, 1'000);
}

}  // namespace
}  // namespace zel::mux
