#include "zel/dnxhd/bitstream/write_codes.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "zel/dnxhd/bitstream/block_order.h"
#include "zel/dnxhd/tables/ac_codes.h"

namespace zel::dnxhd {

namespace {

// Calls visit(difference, bits of its magnitude) for all DC differences that have a code.
template <typename Visit>
void ForEachDifference(const VCIDEntry& entry, Visit visit) {
  constexpr int32_t kBound = kDcDifferences / 2;
  for (int32_t difference = 1 - kBound; difference < kBound; ++difference) {
    const auto size =
        static_cast<uint32_t>(std::bit_width(static_cast<uint32_t>(std::abs(difference))));
    if (size < entry.dcLengths.size() && entry.dcLengths[size] != 0) visit(difference, size);
  }
}

}  // namespace

BitCost::BitCost(const VCIDEntry& entry)
    : endOfBlocks(static_cast<uint8_t>(entry.endOfBlockLength * BlocksOf(CodingModeOf(entry)))) {
  const auto escapeBits = static_cast<uint32_t>(entry.depth - 4);
  for (size_t kind = 0; kind < entry.acLengths.size(); ++kind) {
    const uint32_t extra = 1 + ((kind & kEscape) != 0 ? escapeBits : 0);
    for (size_t k = 0; k < 64; ++k) {
      ac[64 * kind + k] = static_cast<uint8_t>(entry.acLengths[kind][k] + extra);
    }
  }
  for (size_t length = 0; length < run.size(); ++length) {
    run[length] = static_cast<uint8_t>(entry.runLengths[length] & 15);
  }
  for (uint32_t magnitude = 1; magnitude < kEscapeMagnitude; ++magnitude) {
    plainByMagnitude[magnitude] = ac[AcIndex(magnitude) - 1];
    afterRunByMagnitude[magnitude] = ac[128 + AcIndex(magnitude) - 1];
  }
  std::copy(run.begin(), run.end(), runByDistance.begin() + 1);
  for (size_t length = 1; length < runSteps.size(); ++length) {
    runSteps[length] = static_cast<int8_t>(run[length] - run[length - 1]);
  }
  ForEachDifference(entry, [&](int32_t difference, uint32_t size) {
    dc[DcIndex(difference)] = static_cast<uint8_t>(entry.dcLengths[size] + size);
  });
}

WriteCodes::WriteCodes(const VCIDEntry& entry) {
  // A code and its sign. Codes are by AcIndex, less 1: `index` is up to 127, `kind` adds a run.
  const auto withSign = [&](uint32_t index, size_t kind, bool negative) {
    const size_t row = kind | (index >= 64 ? size_t{kEscape} : 0);
    return WriteCode(entry.acCodes[row][index % 64] << 1 | uint32_t{negative},
                     entry.acLengths[row][index % 64] + 1u);
  };
  codes[kEndOfBlock] = {entry.endOfBlockCode, entry.endOfBlockLength};
  for (uint32_t zeros = 1; zeros < 63; ++zeros) {
    codes[RunIndex(zeros)] = {entry.runCodes[zeros], entry.runLengths[zeros]};
  }
  for (const bool negative : {false, true}) {
    for (uint32_t magnitude = 1; magnitude < kEscapeMagnitude; ++magnitude) {
      const uint32_t index = BitCost::AcIndex(magnitude) - 1;
      codes[PairIndex(1, magnitude, negative)] = withSign(index, 0, negative);
      const WriteCode code = withSign(index, kRun, negative);
      for (uint32_t zeros = 1; zeros < 63; ++zeros) {
        const WriteCode run = codes[RunIndex(zeros)];
        codes[PairIndex(zeros + 1, magnitude, negative)] = {
            code.Bits() << run.Length() | run.Bits(), code.Length() + run.Length()};
      }
    }
    const auto escapeBits = static_cast<uint32_t>(entry.depth - 4);
    const uint32_t largest = kEscapeMagnitude << escapeBits;
    for (uint32_t magnitude = kEscapeMagnitude; magnitude <= largest; ++magnitude) {
      for (const bool afterRun : {false, true}) {
        const WriteCode code =
            withSign(BitCost::AcIndex(magnitude) - 1, afterRun ? size_t{kRun} : 0, negative);
        codes[EscapeIndex(magnitude, afterRun, negative)] = {
            code.Bits() << escapeBits | (magnitude - 1) / 64, code.Length() + escapeBits};
      }
    }
  }
  ForEachDifference(entry, [&](int32_t difference, uint32_t size) {
    // A negative difference is written less one, of which the low bits count.
    const auto bits = static_cast<uint32_t>(difference - (difference < 0 ? 1 : 0));
    codes[DcCodeIndex(difference)] = {entry.dcCodes[size] << size | (bits & ((1u << size) - 1)),
                                      entry.dcLengths[size] + size};
  });
}

}  // namespace zel::dnxhd
