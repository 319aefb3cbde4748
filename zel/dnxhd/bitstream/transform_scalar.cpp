#include <algorithm>
#include <cassert>

#include "zel/dnxhd/bitstream/transform.h"
#include "zel/dnxhd/bitstream/transform_constants.h"

namespace zel::dnxhd {

namespace {

constexpr size_t kBlock = 64;

int16_t RoundShift(uint32_t sum, int shift) {
  const int32_t rounded = static_cast<int32_t>(sum + (uint32_t{1} << (shift - 1))) >> shift;
  return static_cast<int16_t>(std::clamp(rounded, -32768, 32767));
}

// One pass over `lines` lines of `size` values each, step `step` in a line and `next` from line to
// line; weight(i, o) is the share of input i in output o.
template <typename Weight>
void Pass(const int16_t* in, int16_t* out, int lines, int size, int step, int next, int shift,
          Weight weight) {
  for (int line = 0; line < lines; ++line) {
    for (int o = 0; o < size; ++o) {
      uint32_t sum = 0;
      for (int i = 0; i < size; ++i) {
        sum += static_cast<uint32_t>(int{in[line * next + i * step]} * int{weight(i, o)});
      }
      out[line * next + o * step] = RoundShift(sum, shift);
    }
  }
}

void InverseBlock(int16_t* block, int fraction) {
  const auto weight = [](int k, int x) {
    return kBasis[static_cast<size_t>(k)][static_cast<size_t>(x)];
  };
  int16_t between[kBlock];
  Pass(block, between, 8, 8, 8, 1, kBasisFraction - fraction, weight);
  Pass(between, block, 8, 8, 1, 8, kBasisFraction + fraction, weight);
}

void ForwardBlock(int16_t* block) {
  const auto weight = [](int x, int k) {
    return kBasis[static_cast<size_t>(k)][static_cast<size_t>(x)];
  };
  int16_t between[kBlock];
  Pass(block, between, 8, 8, 1, 8, kBasisFraction - kForwardFraction, weight);
  Pass(between, block, 8, 8, 8, 1, kBasisFraction + kForwardFraction, weight);
}

void Inverse(int16_t* blocks, size_t count, int fraction) {
  for (size_t i = 0; i < count; ++i) InverseBlock(blocks + kBlock * i, fraction);
}

void Forward(int16_t* blocks, size_t count) {
  for (size_t i = 0; i < count; ++i) ForwardBlock(blocks + kBlock * i);
}

void Forward8(int16_t* blocks, size_t count) {
  for (size_t i = 0; i < kBlock * count; ++i) {
    blocks[i] = static_cast<int16_t>(static_cast<uint32_t>(int{blocks[i]}) << kForward8Scale);
  }
  Forward(blocks, count);
}

// The basis of four and of two samples, times the root of a half and of a quarter: a block's mean
// then stays what it is. The constants are those of the even frequencies of eight samples.
constexpr int16_t kBasis4[4][4] = {
    {kC0, kC0, kC0, kC0}, {kC2, kC6, -kC6, -kC2}, {kC4, -kC4, -kC4, kC4}, {kC6, -kC2, kC2, -kC6}};
constexpr int16_t kBasis2[2][2] = {{kC0, kC0}, {kC0, -kC0}};

template <int kSize>
void InverseOf(const int16_t (&basis)[kSize][kSize], int16_t* blocks, size_t count, int fraction) {
  const auto weight = [&basis](int k, int x) { return basis[k][x]; };
  for (size_t i = 0; i < count; ++i) {
    int16_t* const block = blocks + kBlock * i;
    int16_t between[kBlock];
    Pass(block, between, kSize, kSize, 8, 1, kBasisFraction - fraction, weight);
    Pass(between, block, kSize, kSize, 1, 8, kBasisFraction + fraction, weight);
    for (int y = 1; y < kSize; ++y) std::copy_n(block + 8 * y, kSize, block + kSize * y);
  }
}

void InverseReduced(int16_t* blocks, size_t count, int fraction, int size) {
  assert(size == 4 || size == 2);
  size == 4 ? InverseOf(kBasis4, blocks, count, fraction)
            : InverseOf(kBasis2, blocks, count, fraction);
}

}  // namespace

const TransformKernels& ScalarTransformKernels() {
  static constexpr TransformKernels kKernels = {Inverse, InverseReduced, Forward, Forward8};
  return kKernels;
}

}  // namespace zel::dnxhd
