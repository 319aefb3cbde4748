#pragma once

#include <cstdint>

/// The limits of AVC's levels and profiles: ITU-T H.264, Tables.

namespace zel::syntax {

struct AvcLevel {
  uint8_t levelIdc;
  bool constraintSet3;  // tells level 1b from 1.1 where both have level_idc 11
  uint32_t maxMbps;     // macroblocks per second
  uint32_t maxFs;       // macroblocks per frame
  uint32_t maxDpbMbs;   // macroblocks
  uint32_t maxBr;       // in units of the profile's factor, bits per second
  uint32_t maxCpb;      // likewise, bits
};

/// Null for a level_idc that the table hasn't. `constraintSet3` only tells 1b from 1.1.
const AvcLevel* findAvcLevel(uint8_t levelIdc, bool constraintSet3);

struct AvcProfileFactors {
  uint8_t profileIdc;
  uint16_t vcl;
  uint16_t nal;
};

/// cpbBrVclFactor and cpbBrNalFactor; those of Baseline for a profile that the table hasn't.
AvcProfileFactors avcProfileFactors(uint8_t profileIdc);

}  // namespace zel::syntax
