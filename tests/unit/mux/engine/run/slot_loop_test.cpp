#include "zel/mux/engine/run/slot_loop.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/counted_allocations.h"
#include "zel/mux/engine/psi/psi_stream.h"
#include "zel/mux/engine/run/pcr_only_stream.h"
#include "zel/mux/engine/stream/buffer_model.h"

namespace zel::mux {
namespace {

/// A stream of the tests' own: `packets` packets with a running number, of which it withholds those
/// for which `withhold` says so.
struct source_state : stream_state {
  int packets = 0;
  int sent = 0;
  int withholdUntil = 0;  // attempts
  int attempts = 0;
};

void make_source_packet(tsm_stream& stream, const tsm_time&, tsm_packet& packet, tsm_mux&) {
  auto& state = static_cast<source_state&>(*stream.state);
  stream.clear(kPacketHasPcr);
  if (state.attempts++ < state.withholdUntil) {
    packet.make_null();
    stream.step_times();
    return;
  }
  std::memset(packet.bytes, 0, sizeof packet.bytes);
  stream.set_continuity(stream.continuity() + 1u);
  packet.bytes[0] = 0x47;
  packet.bytes[1] = static_cast<uint8_t>(stream.pid() >> 8);
  packet.bytes[2] = static_cast<uint8_t>(stream.pid());
  packet.bytes[3] = static_cast<uint8_t>(0x10 | stream.continuity());
  if (++state.sent >= state.packets) stream.set(kSourceEnded | kNoMorePackets);
  stream.step_times();
}

struct Sink {
  std::vector<uint8_t> bytes;
  int writes = 0;
  int failAt = 0;
  static int write(void* user, const uint8_t* data, int32_t size, int32_t) {
    Sink& sink = *static_cast<Sink*>(user);
    if (++sink.writes == sink.failAt) return 1;
    sink.bytes.insert(sink.bytes.end(), data, data + size);
    return 0;
  }
};

struct SlotLoop : testing::Test {
  explicit SlotLoop(int buffered = 0)
      : mux(output_writer({.bufferedPackets = buffered}, {}, Sink::write, &sink)) {
    mux.rate = 1.504e6;  // 1,000 packets a second, 27,000 ticks each
    mux.reports.deliver_to([](void* user, int, int32_t,
                              const char* text) { static_cast<std::string*>(user)->append(text); },
                           &said);
  }

  tsm_stream& add_stream(int pid, double rate, int packets) {
    auto stream = std::make_unique<tsm_stream>();
    auto state = std::make_unique<source_state>();
    state->packets = packets;
    stream->state = std::move(state);
    stream->kind = stream_kind::video;
    stream->set_pid(pid);
    stream->set_rate(rate);
    stream->dueTime = add(stream->nextTime, stream->interval);
    stream->makePacket = make_source_packet;
    mux.streams.push_back(std::move(stream));
    return *mux.streams.back();
  }
  source_state& source(tsm_stream& stream) { return static_cast<source_state&>(*stream.state); }

  /// One letter a packet: the PID's low byte as a letter, '.' for a null.
  std::string order() const {
    std::string text;
    for (size_t place = 0; place < sink.bytes.size(); place += 188) {
      const int pid = (sink.bytes[place + 1] & 31) << 8 | sink.bytes[place + 2];
      text += pid == kNullPid ? '.' : static_cast<char>(pid);
    }
    return text;
  }
  static int64_t pcr_of(const uint8_t* packet) {
    const uint8_t* field = packet + 6;
    const int64_t base =
        int64_t{field[0]} << 25 | field[1] << 17 | field[2] << 9 | field[3] << 1 | field[4] >> 7;
    return base * 300 + ((field[4] & 1) << 8 | field[5]);
  }

  Sink sink;
  std::string said;
  tsm_mux mux;
};

TEST_F(SlotLoop, NullsFillTheSlotsThatNoStreamWants) {
  add_stream('a', 1.504e6 / 4, 3);
  EXPECT_EQ(run_slots(mux), slot_outcome::finished);
  EXPECT_EQ(order(), "a...a...a");
  EXPECT_EQ(ticks_of(mux.now), 9 * 27000.0);
}

// Its own times are far shorter than a slot: it would be asked thousands of times in each.
TEST_F(SlotLoop, AWithheldStreamOfAnAbsurdRateIsAskedOnceASlot) {
  tsm_stream& stream = add_stream('a', 1e10, 1);
  source(stream).withholdUntil = 20;
  run_slots(mux);
  EXPECT_EQ(order(), std::string(20, '.') + "a");
}

TEST_F(SlotLoop, OfEqualDeadlinesTheEarlierInTheListGoesFirst) {
  add_stream('a', 1.504e6 / 2, 3);
  add_stream('b', 1.504e6 / 2, 3);
  run_slots(mux);
  EXPECT_EQ(order(), "ababab");
}

TEST_F(SlotLoop, TheTighterDeadlineGoesFirst) {
  add_stream('a', 1.504e6 / 8, 1);
  add_stream('b', 1.504e6 / 2, 1);
  run_slots(mux);
  EXPECT_EQ(order(), "ba");
}

TEST_F(SlotLoop, PriorityBeatsDeadlines) {
  add_stream('a', 1.504e6, 2);
  add_stream('b', 1.504e6 / 8, 1).set(kPriority);
  run_slots(mux);
  EXPECT_EQ(order(), "baa");
}

TEST_F(SlotLoop, PriorityDoesntBeatPsiThatIsntDone) {
  add_stream('b', 1.504e6, 3).set(kPriority);
  tsm_stream& psi = add_stream('p', 1.504e6 * 2, 1);
  psi.kind = stream_kind::psi;
  psi.set(kPsiStream);
  run_slots(mux);
  EXPECT_EQ(order(), "pbbb");
}

TEST_F(SlotLoop, AWithheldStreamPassesTheSlotWithTheClockStandingStill) {
  source(add_stream('a', 1.504e6, 1)).withholdUntil = 1;
  add_stream('b', 1.504e6 / 2, 1);
  run_slots(mux);
  EXPECT_EQ(order(), "ba");
  EXPECT_EQ(ticks_of(mux.now), 2 * 27000.0);
}

TEST_F(SlotLoop, AHeldStreamStepsAndLeavesTheSlotEmpty) {
  tsm_stream& stream = add_stream('a', 1.504e6, 2);
  stream.set2(kHold);
  stream.holdUntil = time_from_ticks(3 * 27000);
  run_slots(mux);
  EXPECT_EQ(order(), "...aa");
}

TEST_F(SlotLoop, BurstsTakeSlotsFromStreams) {
  mux.bursts = burst_nulls(2, 3);
  add_stream('a', 1.504e6, 7);
  run_slots(mux);
  EXPECT_EQ(order(), "aaa..aaa..a");
}

TEST_F(SlotLoop, ASmoothingBufferSlowsItsStream) {
  smoothing_buffer buffer;
  buffer.size = 400;
  buffer.leakRate = 1.504e6 / 4;
  add_stream('a', 1.504e6, 20).streamSB = &buffer;
  run_slots(mux);
  // One packet in four slots once the buffer is full; the few that it holds go ahead.
  EXPECT_GE(order().size(), 19u * 4 - 8);
  EXPECT_LE(order().size(), 20u * 4 + 8);
}

TEST_F(SlotLoop, StopOnAvFirstEndsWithTheFirstStream) {
  mux.stopOnAv = stop_on_av::first;
  add_stream('a', 1.504e6 / 2, 2);
  add_stream('b', 1.504e6 / 2, 100);
  run_slots(mux);
  EXPECT_EQ(order(), "aba");
}

TEST_F(SlotLoop, StopOnAvLastWaitsForAll) {
  mux.stopOnAv = stop_on_av::last;
  add_stream('a', 1.504e6 / 2, 2);
  add_stream('b', 1.504e6 / 2, 3);
  add_stream('d', 1.504e6 / 100, 100).kind = stream_kind::data;
  run_slots(mux);
  EXPECT_EQ(mux.streams[1]->has(kSourceEnded), true);
  EXPECT_EQ(mux.streams[2]->has(kSourceEnded), false);
}

TEST_F(SlotLoop, AForcedDurationRunsOnInNulls) {
  mux.forceDuration = true;
  mux.endTime = time_from_ticks(10 * 27000);
  add_stream('a', 1.504e6, 2);
  run_slots(mux);
  EXPECT_EQ(order(), "aa........");
}

TEST_F(SlotLoop, ADurationEndsAtItsPacket) {
  mux.terminatePacket = 5;
  add_stream('a', 1.504e6, 100);
  run_slots(mux);
  EXPECT_EQ(order(), "aaaaa");
}

TEST_F(SlotLoop, TheEndIsPaddedToTheMultiple) {
  mux.packetCountMultiple = 4;
  add_stream('a', 1.504e6, 5);
  run_slots(mux);
  EXPECT_EQ(order(), "aaaaa...");
}

TEST_F(SlotLoop, ACountThatIsAMultipleIsNotPadded) {
  mux.packetCountMultiple = 4;
  add_stream('a', 1.504e6, 8);
  run_slots(mux);
  EXPECT_EQ(order(), "aaaaaaaa");
}

TEST_F(SlotLoop, ProgressMayEndTheRun) {
  mux.progressPeriod = 10;
  mux.progress = [](void*, const Morvalen::Zel::tsm_stats* stats) {
    return stats->packetsWritten >= 30 ? 1 : 0;
  };
  add_stream('a', 1.504e6, 1000);
  run_slots(mux);
  EXPECT_EQ(mux.stats.packetsWritten, 30);
}

TEST_F(SlotLoop, ARunInPiecesGivesTheSameBytes) {
  mux.packetsPerCall = 7;
  add_stream('a', 1.504e6 / 3, 10);
  int calls = 0;
  while (run_slots(mux) == slot_outcome::paused) ++calls;
  EXPECT_EQ(calls, 4);
  EXPECT_EQ(order(), "a..a..a..a..a..a..a..a..a..a");
}

TEST_F(SlotLoop, TheControlWordEndsOrRestarts) {
  add_stream('a', 1.504e6, 10);
  std::atomic<control_word> control = control_word::end;
  mux.control = &control;
  EXPECT_EQ(run_slots(mux), slot_outcome::ended);
  control = control_word::restart;
  EXPECT_EQ(run_slots(mux), slot_outcome::restart);
  control = control_word::restart_on_errors;
  EXPECT_EQ(run_slots(mux), slot_outcome::finished);
}

TEST_F(SlotLoop, AFailedWriteStopsTheRun) {
  sink.failAt = 4;
  add_stream('a', 1.504e6, 10);
  EXPECT_THROW(run_slots(mux), engine_stop);
  EXPECT_EQ(order(), "aaa");
  EXPECT_EQ(mux.stats.errors, 1);
  EXPECT_NE(said.find("Error writing to output.\n"), std::string::npos);
}

TEST_F(SlotLoop, AnEndedPcrStreamGoesOnWithPcrsAtItsPeriod) {
  mux.forceDuration = true;
  mux.endTime = time_from_ticks(1000 * 27000.0);
  tsm_stream& stream = add_stream('a', 1.504e6, 5);
  stream.set(kCarriesPcr);
  stream.pcrPeriod = 90;
  stream.pcrStep = time_from_ticks(27000.0 * 90);
  stream.pcrNext = stream.pcrStep;  // the first went out at the start
  run_slots(mux);
  const std::string packets = order();
  EXPECT_EQ(packets.substr(0, 5), "aaaaa");
  int64_t last = -1;
  int pcrs = 0;
  for (size_t i = 5; i < packets.size(); ++i) {
    if (packets[i] == '.') continue;
    const uint8_t* packet = sink.bytes.data() + i * 188;
    ASSERT_EQ(packet[3] & 0x30, 0x20);
    const int64_t pcr = pcr_of(packet);
    ASSERT_EQ(pcr, static_cast<int64_t>(i) * 27000);
    if (last >= 0) {
      ASSERT_EQ(pcr - last, 90 * 27000);
    }
    last = pcr;
    ++pcrs;
  }
  EXPECT_EQ(pcrs, 11);
}

TEST_F(SlotLoop, StreamsThatEndEarlyAreTold) {
  mux.warnIfEndEarly = 1;
  add_stream('a', 1.504e6 / 2, 10);
  add_stream('b', 1.504e6 / 2, 1500);
  run_slots(mux);
  EXPECT_NE(said.find("Stream ended 2.9"), std::string::npos) << said;
  EXPECT_NE(said.find("PID = 0x0061"), std::string::npos) << said;
}

TEST(SlotLoopRuns, TwoRunsGiveTheSameBytes) {
  const auto run = [] {
    Sink sink;
    tsm_mux mux(output_writer({.bufferedPackets = 50}, {}, Sink::write, &sink));
    mux.rate = 4321987.5;
    for (int pid = 'a'; pid < 'f'; ++pid) {
      auto stream = std::make_unique<tsm_stream>();
      auto state = std::make_unique<source_state>();
      state->packets = 500 + pid;
      stream->state = std::move(state);
      stream->set_pid(pid);
      stream->set_rate(1e5 * (pid - 'a' + 1) * 1.37);
      stream->makePacket = make_source_packet;
      mux.streams.push_back(std::move(stream));
    }
    run_slots(mux);
    return sink.bytes;
  };
  const std::vector<uint8_t> first = run();
  EXPECT_GT(first.size(), 188u * 2500);
  EXPECT_EQ(run(), first);
}

TEST_F(SlotLoop, PsiKeepsItsRepetitionBesideAPriorityStreamThatTakesEverySlot) {
  add_stream('b', 1.504e6, 990).set(kPriority);
  auto stream = std::make_unique<tsm_stream>();
  stream->kind = stream_kind::psi;
  stream->set(kPsiStream);
  stream->set_pid('p');
  stream->interval = time_from_ticks(2.7e6);
  stream->makePacket = psi_make_packet;
  auto state = std::make_unique<psi_state>();
  state->sections.push_back({std::vector<uint8_t>(40, 0xAA), false, {}, stream->interval});
  stream->state = std::move(state);
  mux.streams.insert(mux.streams.begin(), std::move(stream));
  // Its deadline is a repetition away, so the first round is a matter of deadlines alone.
  mux.streams.front()->dueTime = {};
  EXPECT_EQ(run_slots(mux), slot_outcome::finished);
  int sent = 0;
  for (const char pid : order()) sent += pid == 'p' ? 1 : 0;
  EXPECT_GE(sent, 5);
  EXPECT_LE(sent, 11);
}

TEST_F(SlotLoop, ATraceHearsOfEveryPacketInOrder) {
  std::vector<Morvalen::Zel::tsm_trace_event> events;
  mux.trace = [](void* user, const Morvalen::Zel::tsm_trace_event* event) {
    static_cast<std::vector<Morvalen::Zel::tsm_trace_event>*>(user)->push_back(*event);
  };
  mux.traceUser = &events;
  tsm_stream& stream = add_stream('a', 1.504e6 / 4, 3);
  buffer_model model;
  model.level = 500;
  model.limit = 9000;
  stream.buffer = &model;
  run_slots(mux);
  std::string heard;
  for (const auto& event : events) heard += event.pid == kNullPid ? '.' : char(event.pid);
  EXPECT_EQ(heard, order());
  ASSERT_EQ(heard.substr(0, 5), "a...a");
  EXPECT_EQ(events[0].kind, Morvalen::Zel::tsm_stream_video);
  EXPECT_EQ(events[0].bufferLevel, 500);
  EXPECT_EQ(events[0].bufferLimit, 9000);
  EXPECT_EQ(events[1].kind, Morvalen::Zel::tsm_stream_null);
  EXPECT_EQ(events[1].bufferLevel, -1);
  EXPECT_EQ(events[4].packet, 4);
  EXPECT_DOUBLE_EQ(events[4].time, 4 * 27000.0);
  EXPECT_EQ(stream.packetsSent, 3);
}

struct BufferedSlotLoop : SlotLoop {
  BufferedSlotLoop() : SlotLoop(100) {}
};

TEST_F(BufferedSlotLoop, NothingIsAllocatedInTheLoop) {
  sink.bytes.reserve(188 * 60000);
  add_stream('a', 1.504e6 / 3, 10000);
  add_stream('b', 1.504e6 / 5, 4000);
  mux.packetsPerCall = 1;
  run_slots(mux);
  mux.packetsPerCall = 0;
  const long before = test::allocationCount();
  EXPECT_EQ(run_slots(mux), slot_outcome::finished);
  EXPECT_EQ(test::allocationCount(), before);
  EXPECT_GT(mux.stats.packetsWritten, 20000);
}

TEST_F(SlotLoop, TheClockRunsThroughThe33BitWrap) {
  mux.startTime = timeWrap - 20 * 27000.0;
  tsm_stream& stream = add_stream('a', 1.504e6 / 4, 12);
  stream.nextTime = time_from_ticks(mux.startTime);
  stream.dueTime = add(stream.nextTime, stream.interval);
  run_slots(mux);
  std::string expected = "a";
  for (int i = 0; i < 11; ++i) expected += "...a";
  EXPECT_EQ(order(), expected);
  EXPECT_LT(ticks_of(mux.now), 30 * 27000.0);
}

}  // namespace
}  // namespace zel::mux
