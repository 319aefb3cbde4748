#include "zel/dnxhd/bitstream/row_writer.h"

#include <array>
#include <bit>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {

// Bits gather at the top of a word, which goes out when it is full. Room for it is asked for then
// only, so that a row of another length than was foreseen stops at its end.
struct RowWriter::Output {
  uint8_t* at;
  uint8_t* const end;
  uint64_t word = 0;
  uint32_t free = 64;
  bool overflow = false;

  // 0 < count < 64; the bits above are zero.
  void Put(uint64_t value, uint32_t count) {
    if (count < free) {
      free -= count;
      word |= value << free;
      return;
    }
    const uint32_t rest = count - free;
    Store(word | value >> rest);
    free = 64 - rest;
    word = rest == 0 ? 0 : value << free;
  }

  void Store(uint64_t full) {
    if (end - at < 8) [[unlikely]] {
      overflow = true;
      return;
    }
    base::storeBig64(at, full);
    at += 8;
  }

  // Brings out what is left, to the next 32 bits.
  void Finish() {
    const uint32_t used = 64 - free;
    if (used > 32) {
      Store(word);
    } else if (used > 0) {
      if (end - at < 4) {
        overflow = true;
        return;
      }
      base::storeBig32(at, static_cast<uint32_t>(word >> 32));
      at += 4;
    }
  }
};

RowWriter::RowWriter(const VCIDEntry& entry)
    : codes_(entry),
      kernels_(VectorCoefficientKernels()),
      mode_(CodingModeOf(entry)),
      fieldFlag_(HasFieldFlag(entry)),
      mbCols_(GeometryOf(entry).mbCols) {}

void RowWriter::WriteDc(Output& out, int32_t difference) const {
  const uint32_t size = BitCost::SizeOf(difference);
  const WriteCode code = codes_.dc[size];
  // A negative difference is written less one, of which the low bits count.
  const auto bits = static_cast<uint32_t>(difference - (difference < 0 ? 1 : 0));
  out.Put(code.bits << size | (bits & ((1u << size) - 1)), code.length + size);
}

void RowWriter::WriteAc(Output& out, const uint16_t* magnitudes, const BlockMasks& masks) const {
  uint64_t left = masks.nonzero;
  int before = 0;
  while (left != 0) {
    const int k = std::countr_zero(left);
    left &= left - 1;
    const int zeros = k - before - 1;
    before = k;
    const uint32_t magnitude = magnitudes[k];
    const uint64_t negative = masks.negative >> k & 1;
    if (magnitude < kEscapeMagnitude && zeros < static_cast<int>(WriteCodes::kPairRuns))
        [[likely]] {
      const PairCode& pair =
          codes_.pairs[static_cast<uint32_t>(zeros) * kEscapeMagnitude + magnitude];
      out.Put(pair.bits | negative << pair.signAt, pair.length);
    } else {
      WriteRarePair(out, magnitude, negative, static_cast<uint32_t>(zeros));
    }
  }
}

void RowWriter::WriteRarePair(Output& out, uint32_t magnitude, uint64_t negative,
                              uint32_t zeros) const {
  const auto& codes = zeros == 0 ? codes_.plain : codes_.afterRun;
  const WriteCode code = codes[BitCost::AcIndex(magnitude) - 1];
  uint64_t bits = code.bits;
  if (magnitude < kEscapeMagnitude) {
    bits |= negative;
  } else {
    bits |= negative << codes_.escapeBits | (magnitude - 1) / 64;
  }
  const WriteCode run = codes_.run[zeros];
  out.Put(bits << run.length | run.bits, code.length + run.length);
}

void RowWriter::WriteMacroblock(Output& out, const RowInput& row, size_t column,
                                int32_t* predictors) const {
  const size_t blocks = BlocksOf(mode_);
  const int16_t* const macroblock = row.coefficients + column * blocks * kBlockCoefficients;
  const uint32_t step = row.stepsAreShifts ? 1u << row.steps[column] : row.steps[column];
  alignas(64) std::array<uint16_t, kMaxBlocks * kBlockCoefficients> magnitudes;
  std::array<BlockMasks, kMaxBlocks> masks;
  kernels_.split(macroblock, blocks, row.stepsAreShifts ? row.steps[column] : 0, magnitudes.data(),
                 masks.data());
  if (!row.stepsAreShifts && step > 1) {
    for (size_t block = 0; block < blocks; ++block) {
      masks[block].nonzero = 0;
      for (size_t k = 1; k < kBlockCoefficients; ++k) {
        uint16_t& magnitude = magnitudes[64 * block + k];
        magnitude = static_cast<uint16_t>(magnitude / step);
        masks[block].nonzero |= uint64_t{magnitude != 0} << k;
      }
    }
  }

  const bool color = mode_ == kMode444 && row.colorFlags[column] == 0;
  const bool field = fieldFlag_ && row.fieldFlags[column] != 0;
  out.Put(uint32_t{field} << 11 | step << 1 | uint32_t{color}, kMacroblockHeaderBits);
  for (const BlockPlace& place : PlacesOf(mode_)) {
    const int32_t dc = macroblock[place.offset];
    WriteDc(out, dc - predictors[place.component]);
    predictors[place.component] = dc;
    WriteAc(out, magnitudes.data() + place.offset, masks[place.offset / kBlockCoefficients]);
    out.Put(codes_.endOfBlock.bits, codes_.endOfBlock.length);
  }
}

ResultWord RowWriter::Write(const RowInput& row, std::span<uint8_t> out, size_t& written) const {
  Output output{out.data(), out.data() + out.size()};
  std::array<int32_t, 3> predictors{};
  for (size_t column = 0; column < mbCols_ && !output.overflow; ++column) {
    WriteMacroblock(output, row, column, predictors.data());
  }
  output.Finish();
  if (output.overflow) return kErrorEncodeBufferOverflow;
  written = static_cast<size_t>(output.at - out.data());
  return kSuccessful;
}

uint32_t DcBits(const int16_t* macroblock, CodingMode mode, const BitCost& cost,
                int32_t* predictors) {
  uint32_t bits = 0;
  for (const BlockPlace& place : PlacesOf(mode)) {
    const int32_t dc = macroblock[place.offset];
    bits += cost.Dc(dc - predictors[place.component]);
    predictors[place.component] = dc;
  }
  return bits;
}

}  // namespace zel::dnxhd
