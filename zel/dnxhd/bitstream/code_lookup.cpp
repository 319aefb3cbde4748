#include "zel/dnxhd/bitstream/code_lookup.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>

#include "zel/dnxhd/tables/ac_codes.h"

namespace zel::dnxhd {

namespace {

// Gives `value` to every index that starts with the code.
template <typename Table, typename Value>
void FillCode(Table& table, int indexBits, uint32_t code, uint32_t length, Value value) {
  const uint32_t free = static_cast<uint32_t>(indexBits) - length;
  std::fill_n(table.begin() + (static_cast<ptrdiff_t>(code) << free), size_t{1} << free, value);
}

}  // namespace

CodeLookUp::CodeLookUp(const VCIDEntry& entry) : escapeBits_(entry.depth - 4) {
  for (size_t run = 1; run < entry.runCodes.size(); ++run) {
    const uint32_t length = entry.runLengths[run];
    FillCode(runs_, kRunIndexBits, entry.runCodes[run], length,
             RunPart{static_cast<uint8_t>(run), static_cast<uint8_t>(length)});
  }
  for (size_t size = 0; size < entry.dcCodes.size(); ++size) {
    const uint32_t length = entry.dcLengths[size];
    if (length == 0) continue;
    FillCode(dc_, kDcIndexBits, entry.dcCodes[size], length,
             DcPart{static_cast<uint8_t>(size), static_cast<uint8_t>(length)});
  }
  FillParts(entry);
  FillWhole();
}

void CodeLookUp::FillParts(const VCIDEntry& entry) {
  longBegin_ = 1u << 16;
  for (size_t kind = 0; kind < entry.acCodes.size(); ++kind) {
    for (size_t k = 0; k < 64; ++k) {
      const uint32_t length = entry.acLengths[kind][k];
      if (length > kPartIndexBits) {
        longBegin_ = std::min(longBegin_, entry.acCodes[kind][k] << (16 - length));
      }
    }
  }
  longParts_.resize((1u << 16) - longBegin_);
  for (size_t kind = 0; kind < entry.acCodes.size(); ++kind) {
    for (size_t k = 0; k < 64; ++k) {
      const uint32_t length = entry.acLengths[kind][k];
      FillPart(
          entry.acCodes[kind][k], length,
          {static_cast<uint8_t>(k + 1), static_cast<uint8_t>(kind), static_cast<uint8_t>(length)});
    }
  }
  FillPart(entry.endOfBlockCode, entry.endOfBlockLength,
           {0, kEndOfBlock, static_cast<uint8_t>(entry.endOfBlockLength)});
}

void CodeLookUp::FillPart(uint32_t code, uint32_t length, AcPart part) {
  if (length <= kPartIndexBits) {
    FillCode(parts_, kPartIndexBits, code, length, part);
    return;
  }
  const uint32_t free = 16 - length;
  std::fill_n(longParts_.begin() + static_cast<ptrdiff_t>((code << free) - longBegin_),
              size_t{1} << free, part);
}

// The coefficient or the end that the index starts with; an advance of kAdvanceLong if it isn't
// whole.
CodeLookUp::Whole CodeLookUp::WholeOf(uint32_t index) const {
  constexpr Whole kLong = {0, kAdvanceLong, 0};
  const AcPart part = parts_[index << (kPartIndexBits - kAcIndexBits)];
  if (part.bits == 0 || part.bits > kAcIndexBits) return kLong;
  if (part.kind == kEndOfBlock) return {0, kAdvanceEnd, part.bits};
  uint32_t bits = part.bits + 1u;  // the sign
  if ((part.kind & kEscape) != 0 || bits > kAcIndexBits) return kLong;
  uint8_t run = 0;
  if ((part.kind & kRun) != 0) {
    // The run code's bits that are in the index, at the top of its own; zeros stand for the rest,
    // and decide nothing if the code turns out to be no longer than what is there.
    const uint32_t left = kAcIndexBits - bits;
    const uint32_t runBits = index & ((1u << left) - 1);
    const uint32_t runIndex = left <= kRunIndexBits ? runBits << (kRunIndexBits - left)
                                                    : runBits >> (left - kRunIndexBits);
    const RunPart found = runs_[runIndex];
    if (found.bits > left) return kLong;
    run = found.run;
    bits += found.bits;
  }
  const bool negative = (index >> (kAcIndexBits - part.bits - 1) & 1) != 0;
  return {static_cast<int16_t>(negative ? -int{part.level} : int{part.level}),
          static_cast<uint8_t>(run + 1), static_cast<uint8_t>(bits)};
}

void CodeLookUp::FillWhole() {
  for (uint32_t index = 0; index < ac_.size(); ++index) {
    const Whole first = WholeOf(index);
    AcLookUp& both = ac_[index];
    both = {{first.level, first.level}, first.advance, first.advance, first.bits};
    if (first.advance >= kAdvanceEnd) continue;
    const uint32_t left = kAcIndexBits - first.bits;
    const Whole second = WholeOf(index << first.bits & ((1u << kAcIndexBits) - 1));
    if (second.advance == kAdvanceLong || second.bits > left) continue;
    both.bits = static_cast<uint8_t>(first.bits + second.bits);
    if (second.advance == kAdvanceEnd) {
      both.toLast = kAdvanceFirstEnd;
    } else {
      both.levels[1] = second.level;
      both.toLast = static_cast<uint8_t>(first.advance + second.advance);
    }
  }
}

const CodeLookUp& LookUpOf(const VCIDEntry& entry) {
  static std::array<std::once_flag, VCIDTable.size()> built;
  static std::array<std::unique_ptr<const CodeLookUp>, VCIDTable.size()> lookUps;
  const auto row = static_cast<size_t>(&entry - VCIDTable.data());
  std::call_once(built[row], [&] { lookUps[row] = std::make_unique<const CodeLookUp>(entry); });
  return *lookUps[row];
}

}  // namespace zel::dnxhd
