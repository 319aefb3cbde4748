#pragma once

#include <cstdint>

/// The limits of HEVC's levels by tier: ITU-T H.265, Tables A.8 and A.9.

namespace zel::syntax {

struct HevcLevel {
  uint8_t levelIdc;     // 30 times the level's number
  uint32_t maxLumaPs;   // samples
  uint32_t maxCpbMain;  // units of 1,000 bits (VCL) or 1,100 (NAL) in Main and Main 10
  uint32_t maxCpbHigh;  // 0: the level has no High tier
  uint64_t maxLumaSr;   // samples per second
  uint32_t maxBrMain;   // the same units per second
  uint32_t maxBrHigh;
  uint32_t maxCpb(bool highTier) const {
    return highTier && maxCpbHigh != 0 ? maxCpbHigh : maxCpbMain;
  }
  uint32_t maxBr(bool highTier) const { return highTier && maxBrHigh != 0 ? maxBrHigh : maxBrMain; }
};

/// Null for a general_level_idc that the table hasn't.
const HevcLevel* findHevcLevel(uint8_t levelIdc);

}  // namespace zel::syntax
