// Frames a second of each pattern on one core, and what its kernel gains.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "tools/zel/testsrc/picture_source.h"
#include "tools/zel/testsrc/sound_source.h"
#include "tools/zel/testsrc/tile_kernels.h"

namespace zel::testsrc {
namespace {

void renderPattern(benchmark::State& state, PictureOptions options) {
  PictureSource source(options);
  std::vector<uint8_t> frame(source.frameBytes());
  // A run of 20 seconds has all kinds of scenes; what is made once is made before.
  constexpr uint64_t kFrames = 600;
  for (uint64_t i = 0; i < kFrames; i += 20) source.render(i, frame);
  uint64_t next = 0;
  for (auto _ : state) {
    source.render(next, frame);
    benchmark::DoNotOptimize(frame.data());
    next = (next + 7) % kFrames;
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["fps"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void renderSound(benchmark::State& state) {
  const SoundSource source(SoundOptions{});
  std::vector<int32_t> samples(2 * 48000);
  for (auto _ : state) {
    source.render(0, samples);
    benchmark::DoNotOptimize(samples.data());
  }
  state.SetLabel("one second of stereo");
}

void sampleTile(benchmark::State& state, void (*sample)(const TileLine&, int, int16_t*)) {
  constexpr int kBits = 10;
  std::vector<uint32_t> quads(size_t{1} << (2 * kBits), 0x12345678);
  std::vector<int16_t> out(1280);
  uint32_t row = 0;
  for (auto _ : state) {
    // Turned by a sixth of a right angle, as a camera may be.
    sample({quads.data(), kBits, row * 9000, row * 36000, 38000, 10000}, 1280, out.data());
    benchmark::DoNotOptimize(out.data());
    ++row;
  }
  state.SetItemsProcessed(state.iterations() * 1280);
}

void registerAll() {
  const auto add = [](const std::string& name, const PictureOptions& options) {
    benchmark::RegisterBenchmark(("testsrc/" + name).c_str(), renderPattern, options)
        ->Unit(benchmark::kMillisecond);
  };
  for (const auto& [name, pattern] : patternNames()) {
    PictureOptions options;
    options.pattern = pattern;
    add(std::string(name) + "/1280x720", options);
    options.width = 1920;
    options.height = 1080;
    add(std::string(name) + "/1920x1080", options);
  }
  PictureOptions studio;
  studio.width = 1920;
  studio.height = 1080;
  studio.chroma = Chroma::k422;
  studio.depth = 10;
  studio.scan = Scan::kTopFirst;
  add("motion/1920x1080/422/10/tff", studio);
  benchmark::RegisterBenchmark("testsrc/sound", renderSound);
  benchmark::RegisterBenchmark("testsrc/tile/scalar", sampleTile, sampleTileScalar);
  benchmark::RegisterBenchmark("testsrc/tile/vector", sampleTile, sampleTileVector);
}

}  // namespace
}  // namespace zel::testsrc

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  zel::testsrc::registerAll();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
