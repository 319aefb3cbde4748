// Kernels of the formatters and transforms over a line of 1920 pixels or a row of 120 macroblocks:
// what is written as the definition, and what vectors make of it.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/dnxhd/kernel_rate.h"
#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/encoder/quant_tables.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"
#include "zel/dnxhd/formatters/resampler.h"

namespace {

using namespace zel::dnxhd;

constexpr size_t kPixels = 1920;
constexpr size_t kBlockBytes = 64 * sizeof(int16_t);
constexpr size_t kPlaneBytes = kPixels * sizeof(int16_t);

// Sample types, and the bytes of six pixels.
struct Samples {
  const char* name;
  size_t sixPixels;

  size_t lineBytes() const { return kPixels / 6 * sixPixels; }
};
constexpr Samples kYCbCr[] = {{"8", 12},     {"10_6", 24},   {"2_14", 24},
                              {"float", 48}, {"10_2_8", 15}, {"v210", 16}};
constexpr Samples kRgb[] = {{"8", 24}, {"10_6", 48}, {"2_14", 48}, {"signed16", 48}};

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

void addYCbCr(const std::string& group, const YCbCrKernels& kernels) {
  for (size_t type = 0; type < std::size(kYCbCr); ++type) {
    for (const bool ten : {false, true}) {
      const auto& of = ten ? kernels.depth10 : kernels.depth8;
      const std::string name = std::string(kYCbCr[type].name) + (ten ? "/10" : "/8") + group;
      benchmark::RegisterBenchmark(
          ("unpack/" + name).c_str(), [type, unpack = of.unpack[type]](auto& state) {
            const std::vector<uint8_t> in = packed();
            PlanarLine out;
            for (auto unused : state) {
              (void)unused;
              unpack(in.data(), in.data(), out[0], out[1], out[2], kPixels);
              benchmark::ClobberMemory();
            }
            bench::setRate(state, kPixels, kYCbCr[type].lineBytes());
          });
      benchmark::RegisterBenchmark(
          ("pack/" + name).c_str(), [type, pack = of.pack[type]](auto& state) {
            std::vector<uint8_t> out(kPixels * 16), low(kPixels);
            for (auto unused : state) {
              (void)unused;
              pack(line()[0], line()[1], line()[2], out.data(), low.data(), kPixels);
              benchmark::ClobberMemory();
            }
            bench::setRate(state, kPixels, kYCbCr[type].lineBytes());
          });
    }
  }
}

void addRgb(const std::string& group, const RgbKernels& kernels, const ColorKernels& colors) {
  for (size_t type = 0; type < std::size(kRgb); ++type) {
    const std::string name = std::string(kRgb[type].name) + group;
    benchmark::RegisterBenchmark(
        ("unpack_rgb/" + name).c_str(), [type, unpack = kernels.unpack[type]](auto& state) {
          const std::vector<uint8_t> in = packed();
          PlanarLine out;
          for (auto unused : state) {
            (void)unused;
            unpack(in.data(), {2, 1, 0, 3}, out[0], out[1], out[2], kPixels);
            benchmark::ClobberMemory();
          }
          bench::setRate(state, kPixels, kRgb[type].lineBytes());
        });
    benchmark::RegisterBenchmark(
        ("pack_rgb/" + name).c_str(), [type, pack = kernels.pack[type]](auto& state) {
          std::vector<uint8_t> out(kPixels * 8);
          for (auto unused : state) {
            (void)unused;
            pack(line()[0], line()[1], line()[2], {2, 1, 0, 3}, out.data(), kPixels);
            benchmark::ClobberMemory();
          }
          bench::setRate(state, kPixels, kRgb[type].lineBytes());
        });
  }
  benchmark::RegisterBenchmark(("to_rgb" + group).c_str(), [toRgb = colors.toRgb](auto& state) {
    PlanarLine out;
    for (auto unused : state) {
      (void)unused;
      toRgb(line()[0], line()[1], line()[2], out[0], out[1], out[2], kPixels, 10);
      benchmark::ClobberMemory();
    }
    bench::setRate(state, kPixels, 3 * kPlaneBytes);
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
    bench::setRate(state, kPixels, kPlaneBytes);
  };
  benchmark::RegisterBenchmark(("stretch_3_to_4" + group).c_str(), stretch);
}

void addTransforms(const std::string& group, const TransformKernels& kernels) {
  const auto over = [](benchmark::State& state, auto transform) {
    std::vector<int16_t> blocks(64 * bench::kBlocks + 16);
    auto* const aligned = reinterpret_cast<int16_t*>(
        (reinterpret_cast<uintptr_t>(blocks.data()) + 31) & ~uintptr_t{31});
    for (auto unused : state) {
      (void)unused;
      for (size_t i = 0; i < 64 * bench::kBlocks; i += 5)
        aligned[i] = static_cast<int16_t>(i % 301);
      transform(aligned);
      benchmark::ClobberMemory();
    }
    bench::setRate(state, bench::kBlocks, kBlockBytes * bench::kBlocks);
  };
  benchmark::RegisterBenchmark(("inverse" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.inverse(blocks, bench::kBlocks, 5); });
  });
  benchmark::RegisterBenchmark(("inverse_half" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.inverseReduced(blocks, bench::kBlocks, 5, 4); });
  });
  benchmark::RegisterBenchmark(("forward" + group).c_str(), [=](auto& state) {
    over(state, [&](int16_t* blocks) { kernels.forward(blocks, bench::kBlocks); });
  });
}

void addCoefficients(const std::string& group, const CoefficientKernels& kernels) {
  static const VCIDEntry& entry = *FindEntry(1238);
  static const BitCost cost(entry);
  static const std::vector<int16_t>& blocks = bench::rowOfBlocks();
  const auto rate = [](benchmark::State& state) {
    bench::setRate(state, bench::kBlocks, kBlockBytes * bench::kBlocks);
  };
  benchmark::RegisterBenchmark(("weigh" + group).c_str(), [=](auto& state) {
    const Weighing weighing = LumaWeighing(entry);
    std::vector<int16_t> out(64 * bench::kBlocks);
    for (auto unused : state) {
      (void)unused;
      kernels.weigh(blocks.data(), out.data(), bench::kBlocks, weighing);
      benchmark::ClobberMemory();
    }
    rate(state);
  });
  benchmark::RegisterBenchmark(("list" + group).c_str(), [=](auto& state) {
    std::vector<uint16_t> codes(kMostCodes + kCodesBehind);
    for (auto unused : state) {
      (void)unused;
      int32_t predictors[3] = {};
      for (size_t block = 0; block < bench::kBlocks; block += 8) {
        kernels.list(blocks.data() + 64 * block, PlacesOf(kMode422), 0, predictors, codes.data());
        benchmark::ClobberMemory();
      }
    }
    rate(state);
  });
  benchmark::RegisterBenchmark(("count_bits_of_8_levels" + group).c_str(), [=](auto& state) {
    for (auto unused : state) {
      (void)unused;
      for (size_t block = 0; block < bench::kBlocks; block += 8) {
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
