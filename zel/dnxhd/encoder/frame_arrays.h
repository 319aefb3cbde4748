#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/rate_control/rate_search.h"

// What the stages of the encoder hand to each other: arrays by macroblock, made once for the
// largest frame.

namespace zel::dnxhd {

inline constexpr size_t kMaxMacroblocks = 8160;

struct AlignedArrayDelete {
  void operator()(void* memory) const { ::operator delete[](memory, kAlignment); }
  static constexpr std::align_val_t kAlignment{64};
};

/// Aligned to 64 bytes. Memory that no frame uses is never touched, and costs nothing.
template <typename T>
using AlignedArray = std::unique_ptr<T[], AlignedArrayDelete>;

template <typename T>
AlignedArray<T> MakeAlignedArray(size_t count) {
  return AlignedArray<T>(
      static_cast<T*>(::operator new[](count * sizeof(T), AlignedArrayDelete::kAlignment)));
}

struct FrameArrays {
  static constexpr size_t kMaxCoefficients = kMaxMacroblocks * kMaxBlocks * kBlockCoefficients;

  AlignedArray<int16_t> coefficients = MakeAlignedArray<int16_t>(kMaxCoefficients);
  /// Of the same shape: macroblocks as they are when coded by fields.
  AlignedArray<int16_t> coefficients2 = MakeAlignedArray<int16_t>(kMaxCoefficients);
  AlignedArray<uint16_t> rateTable = MakeAlignedArray<uint16_t>(kMaxMacroblocks * kMaxLevels);
  AlignedArray<uint16_t> chosenLevel = MakeAlignedArray<uint16_t>(kMaxMacroblocks);
  AlignedArray<uint16_t> chosenBits = MakeAlignedArray<uint16_t>(kMaxMacroblocks);
  /// The last DC value of each component.
  AlignedArray<uint16_t> dcValues = MakeAlignedArray<uint16_t>(kMaxMacroblocks * 3);
  AlignedArray<uint8_t> levelRange = MakeAlignedArray<uint8_t>(kMaxMacroblocks * 2);
  AlignedArray<uint32_t> mbColorFlag = MakeAlignedArray<uint32_t>(kMaxMacroblocks);
  AlignedArray<uint32_t> mbFieldFlag = MakeAlignedArray<uint32_t>(kMaxMacroblocks);

  // The model's, in double precision.
  AlignedArray<double> modelA = MakeAlignedArray<double>(kMaxMacroblocks);
  AlignedArray<double> modelB = MakeAlignedArray<double>(kMaxMacroblocks);
  AlignedArray<uint8_t> modelSkip = MakeAlignedArray<uint8_t>(kMaxMacroblocks);
  AlignedArray<double> quantOut = MakeAlignedArray<double>(kMaxMacroblocks);
  AlignedArray<double> rateOut = MakeAlignedArray<double>(kMaxMacroblocks);
};

}  // namespace zel::dnxhd
