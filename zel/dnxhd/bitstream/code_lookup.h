#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "zel/dnxhd/bitstream/vcid_table.h"

// The codes of an id turned round for reading: from the next bits of the stream to what they mean.
//
// Most coefficients, sign and run included, take fewer than twelve bits: one look-up gives them
// whole, and often the one behind them too, or the end of the block. What takes the time is waiting
// for one look-up to tell where the next one starts, so that two coefficients cost what one does.
// The rest is longer codes, of which a second table by sixteen bits holds the few
// that there are (codes ascend, so that long ones lie together at the end), escapes, and runs that
// lie partly outside the twelve bits.

namespace zel::dnxhd {

inline constexpr int kAcIndexBits = 12;
inline constexpr int kPartIndexBits = 12;
inline constexpr int kRunIndexBits = 10;
inline constexpr int kDcIndexBits = 7;

/// What twelve bits start with: two coefficients, or one, which then stands for both.
struct AcLookUp {
  int16_t levels[2];  // with their signs
  // Places in the scan from the coefficient before to the first, 1 to 63, and to the second, up to
  // 126, or one of those below.
  uint8_t toFirst;
  uint8_t toLast;
  uint8_t bits;  // of both
};

// Advances that lead past any block, so that one comparison finds all that is not plain.
inline constexpr uint8_t kAdvanceEnd = 128;       // the end of the block
inline constexpr uint8_t kAdvanceFirstEnd = 160;  // a coefficient and the end of the block
inline constexpr uint8_t kAdvanceLong = 192;      // not a whole coefficient: read it by its parts

/// A code of up to sixteen bits, by kPartIndexBits or by all sixteen.
struct AcPart {
  uint8_t level;  // 1 to 64
  uint8_t kind;   // AcKind
  uint8_t bits;   // of the code; 0: longer than the index
};

struct RunPart {
  uint8_t run;
  uint8_t bits;
};

struct DcPart {
  uint8_t size;
  uint8_t bits;
};

class CodeLookUp {
 public:
  explicit CodeLookUp(const VCIDEntry& entry);

  const AcLookUp* Ac() const { return ac_.data(); }
  /// By the next sixteen bits.
  AcPart Part(uint32_t bits16) const {
    const AcPart part = parts_[bits16 >> (16 - kPartIndexBits)];
    return part.bits != 0 ? part : longParts_[bits16 - longBegin_];
  }
  RunPart Run(uint32_t bits) const { return runs_[bits]; }
  DcPart Dc(uint32_t bits) const { return dc_[bits]; }
  int EscapeBits() const { return escapeBits_; }

 private:
  void FillParts(const VCIDEntry& entry);
  void FillPart(uint32_t code, uint32_t length, AcPart part);
  struct Whole {
    int16_t level;
    uint8_t advance;
    uint8_t bits;
  };
  Whole WholeOf(uint32_t index) const;
  void FillWhole();

  std::array<AcLookUp, 1 << kAcIndexBits> ac_{};
  std::array<RunPart, 1 << kRunIndexBits> runs_{};
  std::array<DcPart, 1 << kDcIndexBits> dc_{};
  std::array<AcPart, 1 << kPartIndexBits> parts_{};
  std::vector<AcPart> longParts_;
  uint32_t longBegin_ = 0;
  int escapeBits_;
};

/// The look-up of a row of VCIDTable (no other entry), which is built when it is first asked for
/// and then stays. Any thread.
const CodeLookUp& LookUpOf(const VCIDEntry& entry);

}  // namespace zel::dnxhd
