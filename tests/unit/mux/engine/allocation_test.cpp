#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <deque>
#include <new>

#include "tests/support/engine_run.h"
#include "tests/support/plain_transport_stream.h"
#include "zel/mux/engine/configuration/configuration.h"

namespace {
std::atomic<long> allocations{0};
}

[[gnu::noinline]] void* operator new(size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
  ++allocations;
  return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

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
  run.config->rate = 5e6;
  run.config->outPkts = 0;
  tsm_program* program = run.addProgram();
  inputs.push_back({plain.video});
  tsm_add_video(program)->user = &inputs.back();
  for (int i = 0; i < 2; ++i) {
    inputs.push_back({plain.audio});
    tsm_add_audio(program)->user = &inputs.back();
  }
  inputs.push_back({rawPackets(0x300, 500)});
  tsm_data* data = tsm_add_data(run.config);
  data->pid = 0x300;
  data->rate = 1e5;
  data->user = &inputs.back();

  tsm_set_callbacks(nullptr, Counted::write, nullptr, MemoryInput::load, nullptr);
  tsm_handle* handle = tsm_open(run.config, nullptr);
  ASSERT_NE(handle, nullptr);
  const long before = allocations;
  EXPECT_EQ(tsm_run(handle), 5'000'000);
  EXPECT_EQ(allocations, before);
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
