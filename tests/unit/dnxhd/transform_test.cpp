#include "zel/dnxhd/bitstream/transform.h"

#include <gtest/gtest.h>

#include <hwy/targets.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "tests/support/seed.h"

namespace zel::dnxhd {
namespace {

using Block = std::array<int16_t, 64>;
using Reals = std::array<double, 64>;

double basis(int k, int x) {
  const double scale = k == 0 ? std::sqrt(0.125) : 0.5;
  return scale * std::cos((2 * x + 1) * k * std::numbers::pi / 16);
}

Reals transformed(const Reals& in, bool inverse) {
  Reals between{};
  Reals out{};
  for (int pass = 0; pass < 2; ++pass) {
    const Reals& from = pass == 0 ? in : between;
    Reals& to = pass == 0 ? between : out;
    for (int line = 0; line < 8; ++line) {
      for (int o = 0; o < 8; ++o) {
        double sum = 0;
        for (int i = 0; i < 8; ++i) {
          const double weight = inverse ? basis(i, o) : basis(o, i);
          sum += weight * from[static_cast<size_t>(pass == 0 ? 8 * line + i : 8 * i + line)];
        }
        to[static_cast<size_t>(pass == 0 ? 8 * line + o : 8 * o + line)] = sum;
      }
    }
  }
  return out;
}

// The random numbers of IEEE 1180-1990, Annex A.
class Ieee1180Random {
 public:
  int next(int low, int high) {
    state_ = state_ * 1103515245 + 12345;
    const double x = static_cast<double>(state_ & 0x7FFFFFFE) / 2147483647.0 * (low + high + 1);
    return static_cast<int>(x) - low;
  }

 private:
  uint32_t state_ = 1;
};

struct Accuracy {
  double peak = 0;
  double worstMeanSquare = 0;  // of one place in the block
  double meanSquare = 0;
  double worstMean = 0;
  double mean = 0;
};

Accuracy measured(const TransformKernels& kernels, int low, int high, int sign, int limit,
                  int fraction) {
  constexpr int kBlocks = 10000;
  Ieee1180Random random;
  std::array<double, 64> sums{};
  std::array<double, 64> squares{};
  Accuracy accuracy;
  for (int i = 0; i < kBlocks; ++i) {
    Reals samples{};
    for (double& sample : samples) sample = sign * random.next(low, high);
    const Reals exact = transformed(samples, false);
    alignas(16) Block block;
    Reals coefficients{};
    for (size_t k = 0; k < 64; ++k) {
      coefficients[k] = std::clamp(std::round(exact[k]), -8.0 * limit, 8.0 * limit - 1);
      block[k] = static_cast<int16_t>(coefficients[k]);
    }
    const Reals reference = transformed(coefficients, true);
    kernels.inverse(block.data(), 1, fraction);
    for (size_t k = 0; k < 64; ++k) {
      const double bound = limit;
      const double error = std::clamp<double>(block[k], -bound, bound - 1) -
                           std::clamp(std::round(reference[k]), -bound, bound - 1);
      accuracy.peak = std::max(accuracy.peak, std::abs(error));
      sums[k] += error;
      squares[k] += error * error;
    }
  }
  for (size_t k = 0; k < 64; ++k) {
    accuracy.worstMean = std::max(accuracy.worstMean, std::abs(sums[k]) / kBlocks);
    accuracy.worstMeanSquare = std::max(accuracy.worstMeanSquare, squares[k] / kBlocks);
    accuracy.mean += sums[k] / kBlocks / 64;
    accuracy.meanSquare += squares[k] / kBlocks / 64;
  }
  return accuracy;
}

void expectIeee1180(const Accuracy& a) {
  EXPECT_LE(a.peak, 1);
  EXPECT_LE(a.worstMeanSquare, 0.06);
  EXPECT_LE(a.meanSquare, 0.02);
  EXPECT_LE(a.worstMean, 0.015);
  EXPECT_LE(std::abs(a.mean), 0.0015);
}

TEST(Transform, InverseMeetsIeee1180) {
  constexpr struct {
    int low;
    int high;
  } kRanges[] = {{256, 255}, {5, 5}, {300, 300}};
  for (const auto& range : kRanges) {
    for (const int sign : {1, -1}) {
      const Accuracy a =
          measured(ScalarTransformKernels(), range.low, range.high, sign, 256, InverseFraction(8));
      expectIeee1180(a);
      std::printf("range %d sign %d: peak %g mse %g (worst %g) mean %g (worst %g)\n", range.low,
                  sign, a.peak, a.meanSquare, a.worstMeanSquare, a.mean, a.worstMean);
    }
  }
}

TEST(Transform, InverseMeetsTheSameAtTenBits) {
  for (const int sign : {1, -1}) {
    const Accuracy a = measured(ScalarTransformKernels(), 512, 511, sign, 512, InverseFraction(10));
    expectIeee1180(a);
    std::printf("10 bits, sign %d: peak %g mse %g (worst %g) mean %g (worst %g)\n", sign, a.peak,
                a.meanSquare, a.worstMeanSquare, a.mean, a.worstMean);
  }
}

TEST(Transform, ZeroStaysZeroAndDcIsTheMean) {
  for (const int fraction : {3, 5}) {
    alignas(16) Block block{};
    ScalarTransformKernels().inverse(block.data(), 1, fraction);
    EXPECT_EQ(block, Block{});
    for (int value = -127; value < 128; ++value) {
      block = {};
      block[0] = static_cast<int16_t>(8 * value);
      ScalarTransformKernels().inverse(block.data(), 1, fraction);
      for (const int16_t sample : block) ASSERT_EQ(sample, value);
    }
  }
}

TEST(Transform, ForwardIsWithinOneOfTheExact) {
  std::mt19937_64 random(test::testSeed());
  for (int round = 0; round < 3000; ++round) {
    alignas(16) Block block;
    Reals samples{};
    for (size_t k = 0; k < 64; ++k) {
      block[k] = static_cast<int16_t>(static_cast<int>(random() % 1024) - 512);
      samples[k] = block[k];
    }
    const Reals exact = transformed(samples, false);
    ScalarTransformKernels().forward(block.data(), 1);
    for (size_t k = 0; k < 64; ++k) ASSERT_NEAR(block[k], exact[k], 1.0);
  }
}

TEST(Transform, ReducedBlocksKeepTheMeanAndTheSlope) {
  for (const int size : {4, 2}) {
    alignas(16) Block flat{};
    flat[0] = 8 * 77;
    ScalarTransformKernels().inverseReduced(flat.data(), 1, 5, size);
    for (int i = 0; i < size * size; ++i) EXPECT_EQ(flat[static_cast<size_t>(i)], 77);
    // A ramp from left to right, at the middle of what each sample covers.
    alignas(16) Block ramp;
    for (size_t k = 0; k < 64; ++k) ramp[k] = static_cast<int16_t>(16 * (k % 8));
    ScalarTransformKernels().forward(ramp.data(), 1);
    ScalarTransformKernels().inverseReduced(ramp.data(), 1, 5, size);
    const int step = 8 / size;
    for (int y = 0; y < size; ++y) {
      for (int x = 0; x < size; ++x) {
        EXPECT_NEAR(ramp[static_cast<size_t>(y * size + x)], 16 * (step * x + (step - 1) / 2.0), 6);
      }
    }
  }
}

class TransformTargets : public testing::Test {
 protected:
  void TearDown() override {
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().DeInit();
  }
};

std::vector<int16_t> inputs(size_t blocks) {
  std::mt19937_64 random(test::testSeed());
  std::vector<int16_t> all(64 * blocks);
  for (size_t i = 0; i < blocks; ++i) {
    // Pictures, wild values, extremes, single coefficients, nothing.
    const uint64_t kind = i % 5;
    for (size_t k = 0; k < 64; ++k) {
      int16_t& value = all[64 * i + k];
      const uint64_t r = random();
      if (kind == 0) value = static_cast<int16_t>(static_cast<int>(r % 1024) - 512);
      if (kind == 1) value = static_cast<int16_t>(r);
      if (kind == 2) value = (r & 1) != 0 ? int16_t{32767} : int16_t{-32768};
      if (kind == 3 && k == i / 5 % 64) value = static_cast<int16_t>(r);
    }
  }
  return all;
}

// The same within a range of samples, `bound` excluded: extremes are its ends.
std::vector<int16_t> samplesBelow(size_t blocks, int bound) {
  std::vector<int16_t> all = inputs(blocks);
  for (int16_t& value : all) {
    const int v = value;
    value =
        static_cast<int16_t>(v == 32767    ? bound - 1
                             : v == -32768 ? -bound
                                           : (v % (2 * bound) + 3 * bound) % (2 * bound) - bound);
  }
  return all;
}

TEST_F(TransformTargets, VectorsGiveWhatTheDefinitionGives) {
  const std::vector<int16_t> in = inputs(2000);
  const std::vector<int16_t> samples = samplesBelow(2000, 512);
  const std::vector<int16_t> samples8 = samplesBelow(2000, 128);
  std::vector<int16_t> inverse3 = in;
  std::vector<int16_t> inverse5 = in;
  std::vector<int16_t> forward = samples;
  std::vector<int16_t> half = in;
  std::vector<int16_t> quarter = in;
  // An odd number of blocks, as two are worked on at once.
  ScalarTransformKernels().inverseReduced(half.data(), 1999, 5, 4);
  ScalarTransformKernels().inverseReduced(quarter.data(), 1999, 3, 2);
  ScalarTransformKernels().inverse(inverse3.data(), 1999, 3);
  ScalarTransformKernels().inverse(inverse5.data(), 2000, 5);
  ScalarTransformKernels().forward(forward.data(), 1999);
  std::vector<int16_t> forward8 = samples8;
  ScalarTransformKernels().forward8(forward8.data(), 1999);
  hwy::SetSupportedTargetsForTest(0);
  for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    const int64_t target = left & -left;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    SCOPED_TRACE(hwy::TargetName(target));
    std::vector<int16_t> block = in;
    VectorTransformKernels().inverse(block.data(), 1999, 3);
    EXPECT_TRUE(block == inverse3);
    block = in;
    VectorTransformKernels().inverse(block.data(), 2000, 5);
    EXPECT_TRUE(block == inverse5);
    block = samples;
    VectorTransformKernels().forward(block.data(), 1999);
    EXPECT_TRUE(block == forward);
    block = samples8;
    VectorTransformKernels().forward8(block.data(), 1999);
    EXPECT_TRUE(block == forward8);
    block = in;
    VectorTransformKernels().inverseReduced(block.data(), 1999, 5, 4);
    for (size_t i = 0; i < in.size(); ++i) {
      // What lies behind the samples is left over.
      const bool told = i % 64 < 16 || i >= 64 * 1999;
      ASSERT_TRUE(!told || block[i] == half[i]) << i;
    }
    block = in;
    VectorTransformKernels().inverseReduced(block.data(), 1999, 3, 2);
    for (size_t i = 0; i < in.size(); ++i) {
      const bool told = i % 64 < 4 || i >= 64 * 1999;
      ASSERT_TRUE(!told || block[i] == quarter[i]) << i;
    }
    hwy::SetSupportedTargetsForTest(0);
  }
}

// Vectors have a short way for blocks of which there is only the first value.
TEST_F(TransformTargets, FlatBlocksAreAsDefined) {
  constexpr size_t kBlocks = 5;  // one of them alone
  for (int64_t left = hwy::SupportedTargets() & HWY_TARGETS; left != 0; left &= left - 1) {
    const int64_t target = left & -left;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    SCOPED_TRACE(hwy::TargetName(target));
    for (int value = -32768; value < 32768; value += 13) {
      for (const int fraction : {3, 5}) {
        alignas(16) std::array<int16_t, 64 * kBlocks> a{};
        for (size_t i = 0; i < kBlocks; ++i)
          a[64 * i] = static_cast<int16_t>(value + 7 * static_cast<int>(i));
        // Now and then a neighbour is not flat, by its last value or its first row's.
        if (value % 3 == 0) a[64 + 63] = 1;
        if (value % 7 == 0) a[64 * 2 + 1] = -1;
        auto b = a;
        ScalarTransformKernels().inverse(a.data(), kBlocks, fraction);
        VectorTransformKernels().inverse(b.data(), kBlocks, fraction);
        ASSERT_EQ(a, b) << value;
      }
    }
    hwy::SetSupportedTargetsForTest(0);
  }
}

}  // namespace
}  // namespace zel::dnxhd
