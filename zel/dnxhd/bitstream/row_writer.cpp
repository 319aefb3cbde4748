#include "zel/dnxhd/bitstream/row_writer.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {

// Bits gather at the top of a word. Every code stores the word where the row has come to, and what
// is whole in it goes: without a branch, and there is one store more than bytes need, but no
// question that a processor could guess wrong. There has to be room for eight bytes.
struct RowWriter::Output {
  uint8_t* at;
  uint64_t word = 0;
  uint32_t used = 0;  // bits of the word, below 8

  // 0 < count <= 56; the bits above are zero.
  void Put(uint64_t value, uint32_t count) {
    word |= value << (64 - used - count);
    base::storeBig64(at, word);
    used += count;
    at += used / 8;
    word <<= used & 56;
    used %= 8;
  }
};

// Codes that are still to be put: several go at once.
struct RowWriter::Pending {
  uint64_t bits = 0;
  uint32_t length = 0;

  void Add(uint32_t more, uint32_t count) {
    bits = bits << count | more;
    length += count;
  }
  void PutInto(Output& out) {
    out.Put(bits, length);
    *this = {};
  }
};

RowWriter::RowWriter(const VCIDEntry& entry)
    : codes_(entry),
      kernels_(VectorCoefficientKernels()),
      mode_(CodingModeOf(entry)),
      fieldFlag_(HasFieldFlag(entry)),
      mbCols_(GeometryOf(entry).mbCols) {}

// Two codes at a time, behind the escapes; the last of an odd number stays pending.
inline void RowWriter::WritePairs(Output& out, const BlockPairs& pairs, Pending& pending) const {
  static_assert(2 * PairCode::kMostBits <= 56);
  const uint16_t* index = pairs.indices.data() + pairs.withEscapes;
  const uint32_t count = pairs.count - pairs.withEscapes;
  for (const uint16_t* const last = index + count / 2 * 2; index != last; index += 2) {
    const PairCode first = codes_.pairs[index[0]];
    const PairCode second = codes_.pairs[index[1]];
    out.Put(uint64_t{first.Bits()} << second.Length() | second.Bits(),
            first.Length() + second.Length());
  }
  if (count % 2 != 0) {
    const PairCode left = codes_.pairs[*index];
    pending.Add(left.Bits(), left.Length());
  }
}

// One by one, up to the last with a magnitude that takes escape bits.
RowWriter::Output RowWriter::WriteEscapes(Output out, const BlockPairs& pairs, const int16_t* block,
                                          uint32_t shift) const {
  uint32_t k = 0;
  for (size_t i = 0; i < pairs.withEscapes; ++i) {
    const uint32_t index = pairs.indices[i];
    const uint32_t distance = index / (2 * kEscapeMagnitude);
    k += distance;
    const PairCode pair = codes_.pairs[index];
    if (pair.Length() != 0) {
      out.Put(pair.Bits(), pair.Length());
      continue;
    }
    const uint32_t magnitude = static_cast<uint32_t>(std::abs(int{block[k]})) >> shift;
    const WriteCode code =
        (distance == 1 ? codes_.plain : codes_.afterRun)[BitCost::AcIndex(magnitude) - 1];
    const uint64_t bits = code.bits | (index & 1) << codes_.escapeBits | (magnitude - 1) / 64;
    const WriteCode run = codes_.run[distance - 1];
    out.Put(bits << run.length | run.bits, code.length + run.length);
  }
  return out;
}

// What is to be written of a macroblock.
struct RowWriter::Macroblock {
  const int16_t* coefficients;
  uint32_t step;
  uint32_t shift;
  std::array<BlockPairs, kMaxBlocks> pairs;
  std::array<int16_t, kMaxBlocks * kBlockCoefficients> divided;  // if the step is no shift
};

void RowWriter::Prepare(const RowInput& row, size_t column, Macroblock& macroblock) const {
  const size_t size = BlocksOf(mode_) * kBlockCoefficients;
  macroblock.coefficients = row.coefficients + column * size;
  macroblock.shift = row.stepsAreShifts ? row.steps[column] : 0;
  macroblock.step = row.stepsAreShifts ? 1u << macroblock.shift : row.steps[column];
  if (!row.stepsAreShifts && macroblock.step > 1) {
    const auto step = static_cast<int32_t>(macroblock.step);
    for (size_t i = 0; i < size; ++i) {
      const int16_t value = macroblock.coefficients[i];
      const bool dc = i % kBlockCoefficients == 0;
      macroblock.divided[i] = static_cast<int16_t>(value / (dc ? 1 : step));
    }
    macroblock.coefficients = macroblock.divided.data();
  }
  if (column + 1 < mbCols_) {
    for (size_t i = size; i < 2 * size; i += 32) {
      __builtin_prefetch(row.coefficients + column * size + i);
    }
  }
  kernels_.pair(macroblock.coefficients, BlocksOf(mode_), macroblock.shift,
                macroblock.pairs.data());
}

// No macroblock with as many coefficients is longer, the bytes that a store takes included.
size_t RowWriter::MostBytes(const Macroblock& macroblock) const {
  const size_t blocks = BlocksOf(mode_);
  size_t coefficients = 0;
  for (size_t block = 0; block < blocks; ++block) coefficients += macroblock.pairs[block].count;
  return (kMacroblockHeaderBits + blocks * kMostBitsBesides + coefficients * kMostBits) / 8 + 16;
}

void RowWriter::Write(Output& whole, const RowInput& row, size_t column,
                      const Macroblock& macroblock, int32_t* predictors) const {
  const bool color = mode_ == kMode444 && row.colorFlags[column] == 0;
  const bool field = fieldFlag_ && row.fieldFlags[column] != 0;
  // In registers: nothing else sees it.
  Output out = whole;
  Pending pending;
  pending.Add(uint32_t{field} << 11 | macroblock.step << 1 | uint32_t{color},
              kMacroblockHeaderBits);
  for (const BlockPlace& place : PlacesOf(mode_)) {
    const int32_t dc = macroblock.coefficients[place.offset];
    const PairCode difference = codes_.dc[DcIndex(dc - predictors[place.component])];
    pending.Add(difference.Bits(), difference.Length());
    predictors[place.component] = dc;
    pending.PutInto(out);
    const BlockPairs& ofBlock = macroblock.pairs[place.offset / kBlockCoefficients];
    if (ofBlock.withEscapes != 0) [[unlikely]] {
      out = WriteEscapes(out, ofBlock, macroblock.coefficients + place.offset, macroblock.shift);
    }
    WritePairs(out, ofBlock, pending);
    pending.Add(codes_.endOfBlock.bits, codes_.endOfBlock.length);
  }
  pending.PutInto(out);
  whole = out;
}

ResultWord RowWriter::Write(const RowInput& row, std::span<uint8_t> out, size_t& written) const {
  uint8_t* const end = out.data() + out.size();
  Output output{out.data()};
  std::array<int32_t, 3> predictors{};
  Macroblock macroblock;
  for (size_t column = 0; column < mbCols_; ++column) {
    Prepare(row, column, macroblock);
    const size_t most = MostBytes(macroblock);
    if (column + 1 < mbCols_ && static_cast<size_t>(end - output.at) >= most) {
      Write(output, row, column, macroblock, predictors.data());
      continue;
    }
    // What stands behind the row may be another job's: near the end a macroblock is written
    // elsewhere, and as many bytes as it has go to their place. So is the last one, which is longer
    // than what the one before it stores too much.
    std::array<uint8_t, kMostMacroblockBytes> aside;
    Output last = output;
    last.at = aside.data();
    Write(last, row, column, macroblock, predictors.data());
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
