#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "zel/syntax/hevc_nal.h"
#include "zel/syntax/hevc_parameter_sets.h"

/// The slice segment header of HEVC, complete: ITU-T H.265, 7.3.6.

namespace zel::syntax {

enum HevcSliceType : uint8_t { kHevcSliceB = 0, kHevcSliceP = 1, kHevcSliceI = 2 };

inline constexpr int kHevcMaxRefs = 16;
inline constexpr int kHevcMaxLongTermRefs = 16;

struct HevcLongTermRef {
  uint32_t pocLsb = 0;
  bool used = false;
  bool msbPresent = false;
  uint32_t deltaPocMsbCycle = 0;  // DeltaPocMsbCycleLt, summed as 7-52 has it
  bool operator==(const HevcLongTermRef&) const = default;
};

struct HevcRefWeight {
  int16_t lumaWeight = 0;  // whole weights: 1 << denominator where none is sent
  int32_t lumaOffset = 0;  // in units of the bit depth that high_precision_offsets tells
  std::array<int16_t, 2> chromaWeight{};
  std::array<int32_t, 2> chromaOffset{};
  bool operator==(const HevcRefWeight&) const = default;
};

struct HevcSliceHeader {
  uint8_t nalType = 0;
  uint8_t temporalId = 0;
  bool firstSegmentInPic = false;
  bool noOutputOfPriorPics = false;
  uint8_t ppsId = 0;
  bool dependent = false;
  uint32_t segmentAddress = 0;  // in CTBs
  // From here to the entry points a dependent segment has the values of the slice before it.
  uint8_t type = kHevcSliceI;
  bool picOutput = true;
  uint8_t colourPlaneId = 0;
  uint32_t pocLsb = 0;
  bool shortTermSetFromSps = false;
  uint8_t shortTermSetIndex = 0;
  HevcShortTermSet shortTermSet;  // the one that holds, wherever it came from
  uint32_t shortTermSetBits = 0;  // of the slice's own
  uint8_t numLongTerm = 0;
  std::array<HevcLongTermRef, kHevcMaxLongTermRefs> longTerm{};
  bool temporalMvp = false;
  bool saoLuma = false;
  bool saoChroma = false;
  uint8_t numRefIdxL0 = 0;
  uint8_t numRefIdxL1 = 0;
  std::array<bool, 2> listModified{};
  std::array<std::array<uint8_t, kHevcMaxRefs>, 2> listEntry{};
  bool mvdL1Zero = false;
  bool cabacInit = false;
  bool collocatedFromL0 = true;
  uint8_t collocatedRefIdx = 0;
  uint8_t lumaLog2WeightDenom = 0;
  uint8_t chromaLog2WeightDenom = 0;
  std::array<std::array<HevcRefWeight, kHevcMaxRefs>, 2> weights{};
  uint8_t maxNumMergeCand = 5;
  int8_t qpDelta = 0;
  int8_t cbQpOffset = 0;
  int8_t crQpOffset = 0;
  bool cuChromaQpOffsetEnabled = false;
  bool deblockingDisabled = false;
  int8_t betaOffsetDiv2 = 0;
  int8_t tcOffsetDiv2 = 0;
  bool loopFilterAcrossSlices = false;
  // Of every segment.
  std::vector<uint32_t> entryPointOffsets;  // bytes, emulation prevention bytes counted
  uint32_t dataOffset = 0;                  // of the slice data in the RBSP
  bool operator==(const HevcSliceHeader&) const = default;

  /// NumPicTotalCurr of 7-55.
  int numPicTotalCurr() const;
};

/// What is needed to look the parameter sets up.
struct HevcSlicePeek {
  bool firstSegmentInPic = false;
  uint8_t ppsId = 0;
};
bool peekHevcSlice(std::span<const uint8_t> rbsp, uint8_t nalType, HevcSlicePeek& peek);

/// `slice` has to hold the slice before in the same picture if this one may be a dependent
/// segment. `sps` and `pps` have to fit each other (hevcPpsFits).
bool parseHevcSliceHeader(std::span<const uint8_t> rbsp, const HevcNalHeader& nal,
                          const HevcSps& sps, const HevcPps& pps, HevcSliceHeader& slice);

/// What a header says of the picture's type and its place in the order.
struct HevcSliceOrder {
  uint8_t nalType = 0;
  uint8_t temporalId = 0;
  bool firstSegmentInPic = false;
  bool dependent = false;  // then type and pocLsb are those of the slice before, not told here
  uint8_t type = kHevcSliceI;
  uint32_t pocLsb = 0;
  bool operator==(const HevcSliceOrder&) const = default;
};
/// Reads as far as that, and so does with a header that is cut behind it.
bool parseHevcSliceOrder(std::span<const uint8_t> rbsp, const HevcNalHeader& nal,
                         const HevcSps& sps, const HevcPps& pps, HevcSliceOrder& order);

/// PicOrderCntVal, 8.3.1, of pictures in decoding order.
class HevcPictureOrderCounter {
 public:
  int32_t next(const HevcSps& sps, const HevcSliceHeader& slice);
  int32_t next(const HevcSps& sps, const HevcSliceOrder& slice);
  /// The next picture begins a sequence: after an end of sequence NAL unit.
  void restart() { restart_ = true; }

 private:
  int64_t previousMsb_ = 0;
  int64_t previousLsb_ = 0;
  bool restart_ = true;
};

}  // namespace zel::syntax
