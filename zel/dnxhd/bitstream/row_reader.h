#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/bitstream/code_lookup.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/result_words.h"

// Reads the macroblocks of a row: headers, DC differences, runs and levels, and dequantises on the
// way. SMPTE ST 2019-1.

namespace zel::dnxhd {

struct MacroblockFlags {
  /// The bit as it stands; only 4:4:4 uses it. Set: the components are Y, Cb and Cr; clear: G, B
  /// and R.
  bool color;
  bool field;      // the blocks hold the lines of one field each; interlaced thin rasters only
  uint16_t q = 0;  // the quantiser step
};

/// What a row is read into. Coefficients are in raster order of the block, in the scale of the
/// orthonormal transform, limited to 16 bits; blocks are stored where their place in the picture
/// says, luma first (an 8-block macroblock: four of luma, two of each chroma component).
struct RowOutput {
  int16_t* coefficients;   // mbCols * blocks * 64, zeroed by the reader
  MacroblockFlags* flags;  // mbCols
};

/// Where in its interval a level is reconstructed. The codec does it halfway, without the rounding
/// term where the step is the divisor. Some decoders in the field take three quarters, and leave
/// the term out wherever the weight is 32 and the divisor too; that rule is here so that streams
/// can be compared with theirs, sample for sample.
enum class Reconstruction { kHalfway, kThreeQuarters };

class RowReader {
 public:
  explicit RowReader(const VCIDEntry& entry,
                     Reconstruction reconstruction = Reconstruction::kHalfway);

  /// Reads the row that starts `offset` bytes into `data`, which are the bytes of the picture
  /// behind its header. `end` is then where the row ended, counted from the start of `data` and
  /// rounded up to 32 bits.
  /// @return kErrorInHuffmanDecode when codes lead past a block's last coefficient or past the
  /// data, kErrorInMacroblockIndices when the row starts outside of it.
  ResultWord Read(std::span<const uint8_t> data, size_t offset, const RowOutput& out, size_t& end);

  /// The same without coefficients: whether the codes are whole, and where they end. Macroblocks
  /// are headed as in `flags`, which may be null.
  ResultWord Check(std::span<const uint8_t> data, size_t offset, size_t& end,
                   MacroblockFlags* flags = nullptr);

 private:
  struct Window;
  template <bool Store>
  ResultWord ReadRow(std::span<const uint8_t> data, size_t offset, const RowOutput& out,
                     size_t& end);
  template <bool Store>
  bool ReadMacroblock(Window& shared, int16_t* coefficients, MacroblockFlags& flags);
  template <bool Store>
  bool ReadBlock(Window& window, int& predictor, const int32_t* scales, const int32_t* biases,
                 int16_t* block);
  template <typename Take>
  bool ReadLong(Window& window, uint32_t& k, Take store);
  void SetQuantiser(uint32_t q);

  const VCIDEntry& entry_;
  const CodeLookUp& lookUp_;
  CodingMode mode_;
  Reconstruction reconstruction_;
  bool fieldFlag_;
  size_t mbCols_;
  int shift_;                                             // of the division by d
  uint32_t q_ = ~0u;                                      // that the two tables are made for
  std::array<int32_t, 2 * kBlockCoefficients> scales_{};  // luma, chroma; by place in the scan
  std::array<int32_t, 2 * kBlockCoefficients> biases_{};
  std::array<int, 3> predictors_{};
};

}  // namespace zel::dnxhd
