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
    : endOfBlocks(static_cast<uint8_t>(entry.endOfBlockLength * BlocksOf(CodingModeOf(entry)))),
      endOfBlock(static_cast<uint8_t>(entry.endOfBlockLength)),
      longestRun(static_cast<uint8_t>(entry.runLengths.back())) {
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

WriteCodes::WriteCodes(const VCIDEntry& entry)
    : endOfBlock{entry.endOfBlockCode, entry.endOfBlockLength},
      escapeBits(static_cast<uint32_t>(entry.depth - 4)) {
  for (size_t kind = 0; kind < entry.acCodes.size(); ++kind) {
    const bool escape = (kind & kEscape) != 0;
    const uint32_t behind = 1 + (escape ? escapeBits : 0);
    auto& codes = (kind & kRun) != 0 ? afterRun : plain;
    for (size_t k = 0; k < 64; ++k) {
      codes[(escape ? 64 : 0) + k] = {entry.acCodes[kind][k] << behind,
                                      entry.acLengths[kind][k] + behind};
    }
  }
  for (size_t length = 1; length < run.size(); ++length) {
    run[length] = {entry.runCodes[length], entry.runLengths[length]};
  }
  for (uint32_t zeros = 0; zeros < run.size(); ++zeros) {
    for (uint32_t magnitude = 1; magnitude < kEscapeMagnitude; ++magnitude) {
      const WriteCode code = (zeros == 0 ? plain : afterRun)[BitCost::AcIndex(magnitude) - 1];
      const WriteCode before = run[zeros];
      for (const bool negative : {false, true}) {
        pairs[PairIndex(zeros + 1, magnitude, negative)] = {
            (code.bits | uint32_t{negative}) << before.length | before.bits,
            code.length + before.length};
      }
    }
  }
  ForEachDifference(entry, [&](int32_t difference, uint32_t size) {
    // A negative difference is written less one, of which the low bits count.
    const auto bits = static_cast<uint32_t>(difference - (difference < 0 ? 1 : 0));
    dc[DcIndex(difference)] = {entry.dcCodes[size] << size | (bits & ((1u << size) - 1)),
                               entry.dcLengths[size] + size};
  });
}

}  // namespace zel::dnxhd
