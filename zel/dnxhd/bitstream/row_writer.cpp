#include "zel/dnxhd/bitstream/row_writer.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {

struct RowWriter::Bits {
  uint64_t bits;
  uint32_t length;
};

// Bits gather at the top of a word. Every code stores the word where the row has come to, and what
// is whole in it goes: without a branch, and there is one store more than bytes need, but no
// question that a processor could guess wrong. There has to be room for eight bytes.
struct RowWriter::Output {
  uint8_t* at;
  uint64_t word = 0;
  uint32_t used = 0;  // bits of the word, below 8

  static constexpr uint32_t kMostBits = 56;

  // At most so many; the bits above are zero.
  void Put(uint64_t value, uint32_t count) {
    word |= value << ((64 - used - count) % 64);
    base::storeBig64(at, word);
    used += count;
    at += used / 8;
    word <<= used & 56;
    used %= 8;
  }
};

RowWriter::RowWriter(const VCIDEntry& entry)
    : codes_(entry),
      kernels_(VectorCoefficientKernels()),
      mode_(CodingModeOf(entry)),
      fieldFlag_(HasFieldFlag(entry)),
      mbCols_(GeometryOf(entry).mbCols) {}

// What is to be written of a macroblock.
struct RowWriter::Macroblock {
  uint32_t header;
  size_t count;
  std::array<uint16_t, kMostCodes + kCodesBehind> codes;

  // No macroblock with as many codes is longer, the bytes that a store takes included.
  size_t MostBytes() const {
    return (kMacroblockHeaderBits + count * WriteCode::kMostBits) / 8 + 16;
  }
};

void RowWriter::Prepare(const RowInput& row, size_t column, int32_t* predictors,
                        Macroblock& macroblock) const {
  const size_t size = BlocksOf(mode_) * kBlockCoefficients;
  const int16_t* coefficients = row.coefficients + column * size;
  const uint32_t shift = row.stepsAreShifts ? row.steps[column] : 0;
  const uint32_t step = row.stepsAreShifts ? 1u << shift : row.steps[column];
  const bool color = mode_ == kMode444 && row.colorFlags[column] == 0;
  const bool field = fieldFlag_ && row.fieldFlags[column] != 0;
  macroblock.header = uint32_t{field} << 11 | step << 1 | uint32_t{color};
  std::array<int16_t, kMaxBlocks * kBlockCoefficients> divided;
  if (!row.stepsAreShifts && step > 1) {
    for (size_t i = 0; i < size; ++i) {
      const bool dc = i % kBlockCoefficients == 0;
      const int32_t divisor = dc ? 1 : static_cast<int32_t>(step);
      divided[i] = static_cast<int16_t>(coefficients[i] / divisor);
    }
    coefficients = divided.data();
  }
  if (column + 1 < mbCols_) {
    for (size_t i = size; i < 2 * size; i += 32) {
      __builtin_prefetch(row.coefficients + column * size + i);
    }
  }
  macroblock.count =
      kernels_.list(coefficients, PlacesOf(mode_), shift, predictors, macroblock.codes.data());
}

// Four codes at a time, but for those that are too long; behind the last there are some without
// bits.
void RowWriter::Write(Output& whole, Macroblock& macroblock) const {
  static_assert(2 * WriteCode::kMostBits <= Output::kMostBits);
  // In registers: nothing else sees it.
  Output out = whole;
  out.Put(macroblock.header, kMacroblockHeaderBits);
  std::fill_n(macroblock.codes.begin() + macroblock.count, 3, uint16_t{0});
  const uint16_t* index = macroblock.codes.data();
  const auto two = [&](size_t i) {
    const WriteCode first = codes_.codes[index[i]];
    const WriteCode second = codes_.codes[index[i + 1]];
    return Bits{uint64_t{first.Bits()} << second.Length() | second.Bits(),
                first.Length() + second.Length()};
  };
  for (const uint16_t* const end = index + macroblock.count; index < end; index += 4) {
    const Bits first = two(0);
    const Bits second = two(2);
    const uint32_t length = first.length + second.length;
    if (length <= Output::kMostBits) [[likely]] {
      out.Put(first.bits << second.length | second.bits, length);
    } else {
      out.Put(first.bits, first.length);
      out.Put(second.bits, second.length);
    }
  }
  whole = out;
}

ResultWord RowWriter::Write(const RowInput& row, std::span<uint8_t> out, size_t& written) const {
  uint8_t* const end = out.data() + out.size();
  Output output{out.data()};
  std::array<int32_t, 3> predictors{};
  Macroblock macroblock;
  for (size_t column = 0; column < mbCols_; ++column) {
    Prepare(row, column, predictors.data(), macroblock);
    if (column + 1 < mbCols_ && static_cast<size_t>(end - output.at) >= macroblock.MostBytes()) {
      Write(output, macroblock);
      continue;
    }
    // What stands behind the row may be another job's: near the end a macroblock is written
    // elsewhere, and as many bytes as it has go to their place. So is the last one, which is longer
    // than what the one before it stores too much.
    std::array<uint8_t, kMostMacroblockBytes> aside;
    Output last = output;
    last.at = aside.data();
    Write(last, macroblock);
    const auto bytes = static_cast<size_t>(last.at - aside.data());
    if (bytes > static_cast<size_t>(end - output.at)) return kErrorEncodeBufferOverflow;
    std::memcpy(output.at, aside.data(), bytes);
    last.at = output.at + bytes;
    output = last;
  }
  // The bits that are left, and zeros up to the next 32.
  const auto whole = static_cast<size_t>(output.at - out.data());
  const size_t length = (8 * whole + output.used + 31) / 32 * 4;
  if (length > out.size()) return kErrorEncodeBufferOverflow;
  if (output.used != 0) out[whole] = static_cast<uint8_t>(output.word >> 56);
  const size_t bytes = whole + (output.used != 0 ? 1 : 0);
  std::fill(out.data() + bytes, out.data() + length, uint8_t{0});
  written = length;
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
