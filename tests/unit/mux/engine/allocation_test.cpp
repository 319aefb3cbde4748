#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "tests/support/counted_allocations.h"
#include "tests/support/engine_run.h"
#include "tests/support/plain_transport_stream.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace zel::mux {
namespace {

using namespace Morvalen::Zel;
using namespace zel::test;

// The callbacks here allocate nothing, and count what the engine does between two packets.
struct Counted {
  int64_t bytes = 0;
  static int write(void* user, const uint8_t*, int32_t size, int32_t) {
    static_cast<Counted*>(user)->bytes += size;
    return 0;
  }
};

void run_counted(bool vbr) {
  const PlainStream plain = makePlainTransportStream({.seconds = 6});
  std::deque<MemoryInput> inputs;
  EngineRun run;
  Counted counted;
  run.config->writeUser = &counted;
  run.config->vbr = vbr;
  run.config->rate = 9e6;
  run.config->outPkts = 0;
  tsm_program* program = run.addProgram();
  inputs.push_back({plain.video});
  tsm_video* video = tsm_add_video(program);
  video->user = &inputs.back();
  video->pid = 0x21;
  for (int i = 0; i < 2; ++i) {
    inputs.push_back({plain.audio});
    tsm_add_audio(program)->user = &inputs.back();
  }
  // Two channels of 24 bits.
  inputs.push_back({std::vector<uint8_t>(48'000 * 6 * 5, 0x5A)});
  tsm_smpte302m* pcm = tsm_add_smpte302m(program);
  pcm->nChannels = 2;
  pcm->streamCount = 1;
  pcm->pairUser[0] = &inputs.back();
  pcm->refVideoPid = 0x21;
  pcm->pid = 0x28;
  tsm_table* table = tsm_add_table(program);
  const uint8_t section[] = {0xC0, 0x30, 4, 1, 2, 3, 4};
  ASSERT_TRUE(tarn_array_append_bytes(&table->tables, section));
  inputs.push_back({rawPackets(0x300, 500)});
  tsm_data* data = tsm_add_data(run.config);
  data->pid = 0x300;
  data->rate = 1e5;
  data->user = &inputs.back();

  tsm_set_callbacks(nullptr, Counted::write, nullptr, MemoryInput::load, nullptr);
  tsm_handle* handle = tsm_open(run.config, nullptr);
  ASSERT_NE(handle, nullptr);
  const long before = allocationCount();
  EXPECT_EQ(tsm_run(handle), 9'000'000);
  EXPECT_EQ(allocationCount(), before);
  EXPECT_GT(counted.bytes, 1'500'000);
  tsm_close(handle);
}

TEST(EngineAllocation, ARunAllocatesNothingBetweenItsPackets) {
  run_counted(false);
}

TEST(EngineAllocation, NeitherAtAVariableRate) {
  run_counted(true);
}

}  // namespace
}  // namespace zel::mux
