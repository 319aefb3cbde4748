#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <cstdlib>

#include "zel/dnxhd/bitstream/vcid_table.h"

// The codes of an id as writing needs them, and what they cost. A coefficient is its code, a sign,
// escape bits from a magnitude of 64 on, and the code of the run before it if there is one.

namespace zel::dnxhd {

/// Magnitudes below this have codes without escape bits. The format has one for 64, too, which this
/// codec leaves out: it reads both.
inline constexpr uint32_t kEscapeMagnitude = 64;
/// No code has room for more: six escape bits are the most.
inline constexpr uint32_t kLargestMagnitude = 4096;

/// Differences of DC have 13 bits of magnitude at most. Tables by all of them take the place of
/// counting the bits of each; those in use lie together around 0.
inline constexpr uint32_t kDcDifferences = 1 << 14;
constexpr uint32_t DcIndex(int32_t difference) {
  return static_cast<uint32_t>(difference) % kDcDifferences;
}

/// Lengths, signs and escape bits included.
struct BitCost {
  uint8_t endOfBlocks = 0;  // of all blocks of a macroblock
  /// By AcIndex, less 1: below 64, escaped, and the same two after a run.
  std::array<uint8_t, 256> ac{};
  std::array<uint8_t, 63> run{};  // by length; entry 0 is 0
  /// The same for vectors: of coefficients by magnitude, 0 for 0, without and after a run; of runs
  /// by the distance between coefficients; and what each zero more adds to a run, up to 15.
  alignas(64) std::array<uint8_t, 64> plainByMagnitude{};
  alignas(64) std::array<uint8_t, 64> afterRunByMagnitude{};
  alignas(64) std::array<uint8_t, 64> runByDistance{};  // the run of d - 1 zeros; 0 for none
  std::array<int8_t, 16> runSteps{};
  /// By DcIndex, the bits behind the code included.
  std::array<uint8_t, kDcDifferences> dc{};

  explicit BitCost(const VCIDEntry& entry);

  /// Of a coefficient of this magnitude, at least 1, behind `zeros` zeros.
  uint32_t Coefficient(uint32_t magnitude, uint32_t zeros) const {
    const uint32_t index = AcIndex(magnitude);
    return zeros == 0 ? ac[index - 1] : ac[128 + index - 1] + run[zeros];
  }
  uint32_t Dc(int32_t difference) const { return dc[DcIndex(difference)]; }

  /// 1 to 63 without escape, 65 to 128 with it.
  static uint32_t AcIndex(uint32_t magnitude) {
    return magnitude < kEscapeMagnitude ? magnitude : (magnitude - 1) % 64 + 65;
  }
};

/// Some bits to be written: the length is in the low five, the code above them.
class WriteCode {
 public:
  static constexpr uint32_t kMostBits = 27;

  constexpr WriteCode() = default;
  constexpr WriteCode(uint32_t bits, uint32_t length) : value_(bits << 5 | length) {
    assert(length <= kMostBits && bits >> length == 0);
  }
  constexpr uint32_t Bits() const { return value_ >> 5; }
  constexpr uint32_t Length() const { return value_ & 31; }

 private:
  uint32_t value_ = 0;
};

/// The codes that macroblocks are made of behind their headers, all in one table, so that a
/// macroblock is a list of indices of it. Few of them are ever in use: it doesn't matter how many
/// there are.
struct WriteCodes {
  /// A coefficient without escape bits, whole: with its sign and the run before it. `distance`, 1
  /// to 63, is that in the scan from the coefficient before. Indices of the magnitude 0 or the
  /// distance 0, the index 0 among them, have no bits.
  static constexpr uint32_t PairIndex(uint32_t distance, uint32_t magnitude, bool negative) {
    return (2 * magnitude + uint32_t{negative}) * 64 + distance;
  }
  /// A coefficient with escape bits, as it is behind a run or behind another coefficient.
  static constexpr uint32_t EscapeIndex(uint32_t magnitude, bool afterRun, bool negative) {
    return kEscapes + 4 * (magnitude - kEscapeMagnitude) + 2 * uint32_t{afterRun} +
           uint32_t{negative};
  }
  /// The run of 1 to 62 zeros behind such a coefficient's code.
  static constexpr uint32_t RunIndex(uint32_t zeros) { return kRuns + zeros; }
  /// A difference of DC, with the bits behind the code; of sizes that there are no codes for,
  /// nothing.
  static constexpr uint32_t DcCodeIndex(int32_t difference) { return kDc + DcIndex(difference); }
  static constexpr uint32_t kEndOfBlock = 2 * kEscapeMagnitude * 64;

  std::array<WriteCode, 1 << 16> codes{};

  explicit WriteCodes(const VCIDEntry& entry);

 private:
  static constexpr uint32_t kRuns = kEndOfBlock + 1;
  static constexpr uint32_t kDc = kRuns + 63;
  static constexpr uint32_t kEscapes = kDc + kDcDifferences;
  static_assert(kEscapes + 4 * (kLargestMagnitude + 1 - kEscapeMagnitude) <= 1 << 16);
};

}  // namespace zel::dnxhd
