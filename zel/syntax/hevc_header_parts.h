#pragma once

#include "zel/base/bit_reader.h"
#include "zel/syntax/hevc_parameter_sets.h"

/// Parts that several headers of HEVC share. Each moves the reader on, and fails it for a value
/// that can't be.

namespace zel::syntax {

void readHevcProfileTierLevel(base::BitReader& bits, int maxSubLayersMinus1,
                              HevcProfileTierLevel& record);
void readHevcHrd(base::BitReader& bits, bool commonInfPresent, int maxSubLayersMinus1,
                 HevcHrd& hrd);
void readHevcVui(base::BitReader& bits, int maxSubLayersMinus1, HevcVui& vui);
void readHevcScalingLists(base::BitReader& bits, HevcScalingLists& lists);
/// st_ref_pic_set(index), where the sets before stand in `sets`; index == sets.size() in the
/// SPS is followed by more, in a slice header (`inSlice`) it is the slice's own.
void readHevcShortTermSet(base::BitReader& bits, std::span<const HevcShortTermSet> sets,
                          bool inSlice, HevcShortTermSet& set);

/// ue(v) and se(v) with the range that the standard gives them.
inline uint32_t readUeUpTo(base::BitReader& bits, uint32_t largest) {
  const uint32_t value = bits.readUe();
  if (value > largest) bits.fail();
  return bits.failed() ? 0 : value;
}
inline int32_t readSeBetween(base::BitReader& bits, int32_t low, int32_t high) {
  const int32_t value = bits.readSe();
  if (value < low || value > high) bits.fail();
  return bits.failed() ? 0 : value;
}

}  // namespace zel::syntax
