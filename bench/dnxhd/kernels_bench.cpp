// Kernels of the formatters and transforms over a line of 1920 pixels or a row of 120 macroblocks:
// what is written as the definition, and what vectors make of it.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/encoder/quant_tables.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"
#include "zel/dnxhd/formatters/resampler.h"

namespace {

using namespace zel::dnxhd;

constexpr size_t kPixels = 1920;
constexpr size_t kBlocks = 120 * 8;
constexpr const char* kYCbCrNames[] = {"8", "10_6", "2_14", "float", "10_2_8", "v210"};
constexpr const char* kRgbNames[] = {"8", "10_6", "2_14", "signed16"};

PlanarLine& line() {
  static PlanarLine made = [] {
    PlanarLine filled;
    for (auto& plane : filled.planes) {
      for (size_t i = 0; i < plane.size(); ++i) {
        plane[i] = static_cast<int16_t>(static_cast<int>(i * 7919 % 251) - 125);
      }
    }
    return filled;
  }();
  return made;
}

std::vector<uint8_t> packed() {
  std::vector<uint8_t> bytes(kPixels * 16);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 31);
  return bytes;
}

void pixels(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * int64_t{kPixels});
}

void addYCbCr(const std::string& group, const YCbCrKernels& kernels) {
  for (size_t type = 0; type < std::size(kYCbCrNames); ++type) {
    for (const bool ten : {false, true}) {
      const auto& of = ten ? kernels.depth10 : kernels.depth8;
      const std::string name = std::string(kYCbCrNames[type]) + (ten ? "/10" : "/8") + group;
      benchmark::RegisterBenchmark(
          ("unpack/" + name).c_str(), [unpack = of.unpack[type]](auto& state) {
            const std::vector<uint8_t> in = packed();
            PlanarLine out;
            for (auto unused : state) {
              (void)unused;
              unpack(in.data(), in.data(), out[0], out[1], out[2], kPixels);
              benchmark::ClobberMemory();
            }
            pixels(state);
          });
      benchmark::RegisterBenchmark(("pack/" + name).c_str(), [pack = of.pack[type]](auto& state) {
        std::vector<uint8_t> out(kPixels * 16), low(kPixels);
        for (auto unused : state) {
          (void)unused;
          pack(line()[0], line()[1], line()[2], out.data(), low.data(), kPixels);
          benchmark::ClobberMemory();
        }
        pixels(state);
      });
    }
  }
}

void addRgb(const std::string& group, const RgbKernels& kernels, const ColorKernels& colors) {
  for (size_t type = 0; type < std::size(kRgbNames); ++type) {
    const std::string name = std::string(kRgbNames[type]) + group;
    benchmark::RegisterBenchmark(
        ("unpack_rgb/" + name).c_str(), [unpack = kernels.unpack[type]](auto& state) {
          const std::vector<uint8_t> in = packed();
          PlanarLine out;
          for (auto unused : state) {
            (void)unused;
            unpack(in.data(), {2, 1, 0, 3}, out[0], out[1], out[2], kPixels);
            benchmark::ClobberMemory();
          }
          pixels(state);
        });
    benchmark::RegisterBenchmark(
        ("pack_rgb/" + name).c_str(), [pack = kernels.pack[type]](auto& state) {
          std::vector<uint8_t> out(kPixels * 8);
          for (auto unused : state) {
            (void)unused;
            pack(line()[0], line()[1], line()[2], {2, 1, 0, 3}, out.data(), kPixels);
            benchmark::ClobberMemory();
          }
          pixels(state);
        });
  }
  benchmark::RegisterBenchmark(("to_rgb" + group).c_str(), [toRgb = colors.toRgb](auto& state) {
    PlanarLine out;
    for (auto unused : state) {
      (void)unused;
      toRgb(line()[0], line()[1], line()[2], out[0], out[1], out[2], kPixels, 10);
      benchmark::ClobberMemory();
    }
    pixels(state);
  });
}

void addResampling(const std::string& group, bool reference) {
  const auto stretch = [reference](auto& state) {
    const auto resampler = MakeResampler(ResamplerForm::kQuality, reference, {1440, 1920, false});
    PlanarLine out;
    for (auto unused : state) {
      (void)unused;
      resampler->FilterCentredY(line()[0], out[0]);
      benchmark::ClobberMemory();
    }
    pixels(state);
  };
  benchmark::RegisterBenchmark(("stretch_3_to_4" + group).c_str(), stretch);
}

void addTransforms(const std::string& group, const TransformKernels& kernels) {
  const auto over = [](benchmark::State& state, auto transform) {
    std::vector<int16_t> blocks(64 * kBlocks + 16);
    auto* const aligned = reinterpret_cast<int16_t*>(
        (reinterpret_cast<uintptr_t>(blocks.data()) + 31) & ~uintptr_t{31});
    for (auto unused : state) {
      (void)unused;
      for (size_t i = 0; i < 64 * kBlocks; i += 5) aligned[i] = static_cast<int16_t>(i % 301);
      transform(aligned);
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * int64_t{kBlocks});
  };
  benchmark::RegisterBenchmark(("inverse" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.inverse(blocks, kBlocks, 5); });
  });
  benchmark::RegisterBenchmark(("inverse_half" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.inverseReduced(blocks, kBlocks, 5, 4); });
  });
  benchmark::RegisterBenchmark(("forward" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.forward(blocks, kBlocks); });
  });
}

// A row of macroblocks of about 20 coefficients a block, at the step of 1.
void addCoefficients(const std::string& group, const CoefficientKernels& kernels) {
  static const VCIDEntry& entry = *FindEntry(1238);
  static const BitCost cost(entry);
  static const std::vector<int16_t> blocks = [] {
    std::vector<int16_t> made(64 * kBlocks);
    uint32_t random = 1;
    for (size_t i = 0; i < made.size(); ++i) {
      random = random * 1664525 + 1013904223;
      const auto reach = static_cast<uint32_t>(200 / (i % 64 + 1) + 2);
      const auto value = static_cast<int>((random >> 8) % reach);
      made[i] = static_cast<int16_t>((random >> 30 & 1) != 0 ? -value : value);
    }
    return made;
  }();
  const auto rate = [](benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * int64_t{kBlocks});
  };
  benchmark::RegisterBenchmark(("weigh" + group).c_str(), [=](auto& state) {
    const Weighing weighing = LumaWeighing(entry);
    std::vector<int16_t> out(64 * kBlocks);
    for (auto unused : state) {
      (void)unused;
      kernels.weigh(blocks.data(), out.data(), kBlocks, weighing);
      benchmark::ClobberMemory();
    }
    rate(state);
  });
  benchmark::RegisterBenchmark(("list" + group).c_str(), [=](auto& state) {
    std::vector<uint16_t> codes(kMostCodes + kCodesBehind);
    for (auto unused : state) {
      (void)unused;
      int32_t predictors[3] = {};
      for (size_t block = 0; block < kBlocks; block += 8) {
        kernels.list(blocks.data() + 64 * block, PlacesOf(kMode422), 0, predictors, codes.data());
        benchmark::ClobberMemory();
      }
    }
    rate(state);
  });
  benchmark::RegisterBenchmark(("count_bits_of_8_levels" + group).c_str(), [=](auto& state) {
    for (auto unused : state) {
      (void)unused;
      for (size_t block = 0; block < kBlocks; block += 8) {
        uint32_t bits[8] = {};
        kernels.acBits(blocks.data() + 64 * block, 8, cost, 0, 7, bits);
        benchmark::DoNotOptimize(bits);
      }
    }
    rate(state);
  });
}

const bool added = [] {
  addYCbCr("/scalar", ScalarYCbCrKernels());
  addYCbCr("/vector", VectorYCbCrKernels());
  addRgb("/scalar", ScalarRgbKernels(), ScalarColorKernels());
  addRgb("/vector", VectorRgbKernels(), VectorColorKernels());
  addResampling("/scalar", true);
  addResampling("/vector", false);
  addTransforms("/scalar", ScalarTransformKernels());
  addTransforms("/vector", VectorTransformKernels());
  addCoefficients("/scalar", ScalarCoefficientKernels());
  addCoefficients("/vector", VectorCoefficientKernels());
  return true;
}();

}  // namespace
