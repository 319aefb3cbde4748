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

/// Differences of DC have 13 bits of magnitude at most. Tables by all of them take the place of
/// counting the bits of each; those in use lie together around 0.
inline constexpr uint32_t kDcDifferences = 1 << 14;
constexpr uint32_t DcIndex(int32_t difference) {
  return static_cast<uint32_t>(difference) % kDcDifferences;
}

/// Lengths, signs and escape bits included.
struct BitCost {
  uint8_t endOfBlocks = 0;  // of all blocks of a macroblock
  uint8_t endOfBlock = 0;
  /// By AcIndex, less 1: below 64, escaped, and the same two after a run.
  std::array<uint8_t, 256> ac{};
  std::array<uint8_t, 63> run{};  // by length; entry 0 is 0
  uint8_t longestRun = 0;
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

struct WriteCode {
  uint32_t bits;
  uint32_t length;
};

/// A coefficient with its sign and the run before it, or a DC difference, whole: its length is in
/// the low five bits, the code above them.
class PairCode {
 public:
  static constexpr uint32_t kMostBits = 27;

  constexpr PairCode() = default;
  constexpr PairCode(uint32_t bits, uint32_t length) : value_(bits << 5 | length) {
    assert(length <= kMostBits && bits >> length == 0);
  }
  constexpr uint32_t Bits() const { return value_ >> 5; }
  constexpr uint32_t Length() const { return value_ & 31; }

 private:
  uint32_t value_ = 0;
};

/// The codes themselves.
struct WriteCodes {
  /// Runs and magnitudes that have no escape bits are whole codes: 64 of either sign for each
  /// distance in the scan from the coefficient before, 1 to 63. Those of the magnitude 0 have no
  /// bits. Few of them all are ever in use: it doesn't matter how many there are.
  std::array<PairCode, 64 * 2 * kEscapeMagnitude> pairs{};
  static constexpr uint32_t PairIndex(uint32_t distance, uint32_t magnitude, bool negative) {
    return (distance * kEscapeMagnitude + magnitude) * 2 + uint32_t{negative};
  }

  /// By AcIndex, less 1; a 0 stands where the sign comes, and zeros for the escape bits.
  std::array<WriteCode, 128> plain{};
  std::array<WriteCode, 128> afterRun{};
  std::array<WriteCode, 63> run{};
  /// By DcIndex, with the bits behind the code; of sizes that there are no codes for, without bits.
  std::array<PairCode, kDcDifferences> dc{};
  WriteCode endOfBlock{};
  uint32_t escapeBits = 0;

  explicit WriteCodes(const VCIDEntry& entry);
};

}  // namespace zel::dnxhd
