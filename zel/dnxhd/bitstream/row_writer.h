#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/coefficient_kernels.h"
#include "zel/dnxhd/bitstream/write_codes.h"
#include "zel/dnxhd/result_words.h"

// Writes the macroblocks of a row: headers, DC differences, runs and levels. SMPTE ST 2019-1.

namespace zel::dnxhd {

inline constexpr uint32_t kMacroblockHeaderBits = 12;

/// A row of macroblocks, each 8 or 12 blocks as CoefficientKernels::weigh leaves them, in the
/// places of PlacesOf.
struct RowInput {
  const int16_t* coefficients;
  /// By macroblock: the step is 1 << steps[i] with `stepsAreShifts`, else steps[i] itself, 1 at
  /// least.
  const uint16_t* steps;
  bool stepsAreShifts;
  /// By macroblock, as mbColorFlag and mbFieldFlag are: the header's colour bit is set where the
  /// first is 0, its field bit where the second is not. Only the families that have such a bit look
  /// at it.
  const uint32_t* colorFlags;
  const uint32_t* fieldFlags;
};

class RowWriter {
 public:
  explicit RowWriter(const VCIDEntry& entry);

  /// Writes a row into `out`, which is as long as it, to the next 32 bits. `written` is then the
  /// bytes of it. Nothing is written behind `out`.
  /// @return kErrorEncodeBufferOverflow when the row is longer.
  ResultWord Write(const RowInput& row, std::span<uint8_t> out, size_t& written) const;

 private:
  struct Bits;
  struct Output;
  struct Macroblock;
  void Prepare(const RowInput& row, size_t column, int32_t* predictors,
               Macroblock& macroblock) const;
  void Write(Output& whole, Macroblock& macroblock) const;

  const WriteCodes codes_;
  const CoefficientKernels& kernels_;
  const CodingMode mode_;
  const bool fieldFlag_;
  const size_t mbCols_;
};

/// Bits of the DC differences of a macroblock; `predictors`, by component, move on.
uint32_t DcBits(const int16_t* macroblock, CodingMode mode, const BitCost& cost,
                int32_t* predictors);

}  // namespace zel::dnxhd
