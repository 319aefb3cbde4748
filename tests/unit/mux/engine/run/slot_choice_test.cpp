#include "zel/mux/engine/run/slot_choice.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/support/seed.h"
#include "zel/mux/engine/run/mux.h"

namespace zel::mux {
namespace {

// Streams that answer at random, and what becomes of them meanwhile.
class SlotChoice : public testing::Test {
 protected:
  int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  bool chance(int percent) { return pick(1, 100) <= percent; }

  tsm_stream& add_stream() {
    constexpr stream_kind kKinds[] = {stream_kind::video, stream_kind::audio, stream_kind::psi,
                                      stream_kind::data};
    auto stream = std::make_unique<tsm_stream>();
    stream->kind = kKinds[pick(0, 3)];
    if (stream->kind == stream_kind::psi) stream->set(kPsiStream | kSourceEnded);
    if (chance(20)) stream->set(kPriority);
    stream->interval = time_from_ticks(pick(20, 900));
    stream->nextTime = add_ticks(mux_.now, pick(0, 3'000));
    stream->dueTime = add(stream->nextTime, stream->interval);
    mux_.streams.push_back(std::move(stream));
    return *mux_.streams.back();
  }

  // What a stream may do when it's asked.
  void ask(tsm_stream& stream) {
    stream.step_times();
    if (stream.has(kPsiStream) && chance(30)) {
      stream.set(kSourceEnded);
      stream.nextTime = add_ticks(mux_.now, pick(0, 5'000));
      stream.dueTime = add(stream.nextTime, stream.interval);
    }
    if (chance(1)) stream.set(chance(80) ? kSourceEnded | kNoMorePackets : kSourceEnded);
    if (!chance(1)) return;
    stream.clear(kNoMorePackets);
    stream.set(kPriority);
    stream.nextTime = subtract(mux_.now, time_from_ticks(pick(0, 500)));
  }

  std::mt19937 random_{static_cast<unsigned>(test::testSeed())};
  tsm_mux mux_{output_writer({}, {}, nullptr, nullptr)};
};

TEST_F(SlotChoice, WhatAWatchRemembersIsWhatAnotherLookTells) {
  int choices = 0;
  for (int round = 0; round < 40; ++round) {
    mux_.streams.clear();
    mux_.stopOnAv = static_cast<stop_on_av>(round % 3);
    mux_.now = time_from_ticks(timeWrap - pick(0, 500'000));
    for (int count = pick(1, 12); count > 0; --count) add_stream();
    slot_watch watch;
    for (int slot = 0; slot < 1'500; ++slot) {
      slot_watch fresh;
      const slot_survey survey = watch.survey(mux_.now, mux_);
      ASSERT_EQ(survey, fresh.survey(mux_.now, mux_)) << round << ", " << slot;
      tsm_stream* const stream = survey.choice();
      choices += stream != nullptr ? 1 : 0;
      if (stream != nullptr) ask(*stream);
      if (stream != nullptr && chance(20)) continue;  // it passed the slot
      mux_.now = add_ticks(mux_.now, 100);
      if (!chance(1)) continue;
      // As the clock is set anew, or somebody asks a stream that isn't due.
      mux_.now = subtract(mux_.now, time_from_ticks(pick(0, 300)));
      ask(*mux_.streams[static_cast<size_t>(pick(0, static_cast<int>(mux_.streams.size()) - 1))]);
      watch.forget();
    }
  }
  EXPECT_GT(choices, 1'000);
}

}  // namespace
}  // namespace zel::mux
