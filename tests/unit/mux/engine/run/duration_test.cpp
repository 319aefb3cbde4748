#include "zel/mux/engine/run/duration.h"

#include "tests/unit/mux/engine/engine_fixture.h"
#include "zel/mux/engine/run/output_writer.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

using Duration = EngineFixture;

TEST_F(Duration, ADurationEndsTheRunAtItsPacket) {
  run.config->rate = 1.504e6;  // 1,000 packets a second
  addData(1e6, 100'000);
  setDuration(0, 0, 5, 15);  // no frame rate is known: 30 a second
  ASSERT_GT(multiplex(), 0) << run.texts;
  EXPECT_EQ(run.packets(), 5'500);
}

TEST_F(Duration, StreamsThatEndBeforeEndTheRun) {
  run.config->rate = 1.504e6;
  addData(1.504e6, 1'000);
  setDuration(0, 1, 0, 0);
  ASSERT_GT(multiplex(), 0);
  EXPECT_LT(run.packets(), 1'200);
}

TEST_F(Duration, ForcedItGoesOnWithNulls) {
  run.config->rate = 1.504e6;
  run.config->forceDuration = true;
  addData(1.2e6, 1'000);
  setDuration(0, 0, 5, 0);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets(), 5'000);
  const Verdict verdict = judge();
  EXPECT_TRUE(verdict.clean()) << verdict.text();
}

TEST_F(Duration, ForcedWithoutADurationIsNotForced) {
  run.config->forceDuration = true;
  addData(1e6, 100);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packetsOf(kDataPid), 100);
}

TEST_F(Duration, ADayAndASecondIsTooLong) {
  addData(1e6, 10);
  setDuration(24, 0, 0, 0);
  EXPECT_GT(multiplex(), 0) << "86,400 seconds are allowed";
  EXPECT_EQ(run.said, "");
  setDuration(24, 0, 1, 0);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F51 ");
  EXPECT_TRUE(run.saidText("Transport stream duration limited to 24 hours.\n"));
}

TEST_F(Duration, NothingIsNoDurationButAFrameIs) {
  run.config->rate = 1.504e6;
  addData(1e6, 1'000);
  setDuration(0, 0, 0, 0);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F51 ");
  setDuration(0, 0, 0, 3);
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.packets(), 100);
}

TEST_F(Duration, NegativeOrHugeFieldsAreTooLongOrNothing) {
  run.config->stopOnError = false;
  addData(1e6, 10);
  run.config->duration = {3, 0, 0, 0, 5, 0, 0};
  ASSERT_GT(multiplex(), 0);
  run.config->duration = {1, 0, 2147483647, 2147483647, 2147483647, 2147483647, 0};
  ASSERT_GT(multiplex(), 0);
  EXPECT_EQ(run.said, "F51 F51 ");
}

TEST_F(Duration, TerminationNeedsADurationAndSoundOrPictures) {
  run.config->terminate = true;
  addData(1e6, 10);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F40 ");
  run.said.clear();
  setDuration(0, 0, 1, 0);
  EXPECT_EQ(multiplex(), -2);
  EXPECT_EQ(run.said, "F44 ");
}

// What Terminate works out, on streams that only claim to be video.
struct Termination : testing::Test {
  Termination() : mux(output_writer({}, {}, nullptr, nullptr)) {
    mux.config = run.config;
    mux.rate = 4e6;
    mux.reports.deliver_to(
        [](void* user, int, int32_t code, const char*) {
          static_cast<std::vector<int>*>(user)->push_back(code);
        },
        &codes);
    run.config->terminate = true;
    run.config->overlap = 15;
    run.config->duration = {1, 0, 0, 0, 10, 0, 0};
  }
  tsm_stream& add(stream_kind kind, uint32_t program) {
    auto stream = std::make_unique<tsm_stream>();
    stream->kind = kind;
    stream->programIndex = program;
    if (kind == stream_kind::video) {
      stream->state = std::make_unique<video_state>();
      stream->framePeriod = 900'900;
      stream->set(kCarriesPcr);
    }
    mux.streams.push_back(std::move(stream));
    return *mux.streams.back();
  }

  EngineRun run;
  std::vector<int> codes;
  tsm_mux mux;
};

TEST_F(Termination, IsOfTheFirstVideoOfTheFirstProgram) {
  add(stream_kind::audio, 0);
  tsm_stream& video = add(stream_kind::video, 0);
  add(stream_kind::video, 0);
  add(stream_kind::video, 1);
  mark_terminated_stream(mux);
  EXPECT_TRUE(mux.terminate);
  for (const auto& stream : mux.streams) {
    EXPECT_EQ(stream->has2(kTerminated), stream.get() == &video);
  }
}

TEST_F(Termination, WithoutVideoIsOfTheFirstAudio) {
  add(stream_kind::data, 0);
  tsm_stream& audio = add(stream_kind::audio, 0);
  add(stream_kind::audio, 0);
  mark_terminated_stream(mux);
  EXPECT_TRUE(audio.has2(kTerminated));
}

TEST_F(Termination, SpreadsTheRestOfTheFramesOverTheClock) {
  tsm_stream& video = add(stream_kind::video, 0);
  tsm_stream& other = add(stream_kind::video, 1);
  mark_terminated_stream(mux);
  set_duration(mux);
  // 300 frames of 1001/30000 s at 4 Mb/s are 26,622.34 packets.
  EXPECT_EQ(mux.terminatePacket, 26'622);
  const double end = 300 * 900'900.0;
  EXPECT_NEAR(video.driftPerPacket, (end - 26'622 * 1504 / 4e6 * 2.7e7) / 26'622, 1e-9);
  EXPECT_TRUE(video.has2(kDriftOnPcr));
  EXPECT_FALSE(other.has2(kDriftOnPcr));
  EXPECT_NEAR(static_cast<video_state&>(*video.state).stopDts, end + 15 * 900'900.0 - 1, 1e-3);
  EXPECT_TRUE(codes.empty());
}

TEST_F(Termination, ADriftAbove30PartsPerMillionIsToldOf) {
  add(stream_kind::video, 0);
  run.config->duration = {1, 0, 0, 0, 0, 2, 0};
  mux.rate = 1e5;  // 4.43 packets in two frames: 4
  mark_terminated_stream(mux);
  set_duration(mux);
  EXPECT_EQ(mux.terminatePacket, 4);
  EXPECT_EQ(codes, std::vector<int>{12});
}

// Less than a packet's time: the run still ends.
TEST_F(Termination, OfNextToNothingIsAPacketLong) {
  add(stream_kind::video, 0);
  run.config->duration = {1, 0, 0, 0, 0, 1, 0};
  mux.rate = 1000;
  mark_terminated_stream(mux);
  set_duration(mux);
  EXPECT_EQ(mux.terminatePacket, 1);
}

TEST_F(Termination, DropFrameCountsByTheFramePeriod) {
  add(stream_kind::video, 0);
  run.config->terminate = false;
  run.config->duration = {1, 1, 0, 10, 0, 0, 0};
  set_duration(mux);
  // 600 s hold 17,982.02 frames of 29.97 a second: 17,982 of them.
  EXPECT_EQ(mux.terminatePacket, static_cast<int64_t>(17'982 * 900'900.0 / 2.7e7 * 4e6 / 1504));
  run.config->duration.dropFrame = 0;
  set_duration(mux);
  EXPECT_EQ(mux.terminatePacket, static_cast<int64_t>(18'000 * 900'900.0 / 2.7e7 * 4e6 / 1504));
}

}  // namespace
}  // namespace zel::mux
