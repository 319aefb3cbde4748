#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "zel/syntax/avc_nal.h"
#include "zel/syntax/avc_parameter_sets.h"

/// The slice header of AVC as far as pictures, their order and their marking need it: ITU-T H.264,
/// 7.3.3 to dec_ref_pic_marking().

namespace zel::syntax {

enum AvcSliceType : uint8_t {
  kAvcSliceP = 0,
  kAvcSliceB = 1,
  kAvcSliceI = 2,
  kAvcSliceSp = 3,
  kAvcSliceSi = 4,
};

struct AvcMarkingOperation {
  uint8_t operation = 0;  // memory_management_control_operation, 1 to 6
  uint32_t first = 0;     // its first operand, where it has one
  uint32_t second = 0;    // long_term_frame_idx of operation 3
  bool operator==(const AvcMarkingOperation&) const = default;
};

struct AvcSliceHeader {
  // Of the NAL unit.
  uint8_t nalRefIdc = 0;
  bool idr = false;
  uint16_t viewId = 0;
  uint8_t dependencyId = 0;
  uint8_t qualityId = 0;
  // Of the slice.
  uint32_t firstMb = 0;
  uint8_t type = 0;            // AvcSliceType
  bool allOfThisType = false;  // slice_type was 5 to 9: every slice of the picture has this type
  uint8_t ppsId = 0;
  uint8_t spsId = 0;  // that the PPS names
  uint8_t pocType = 0;
  uint8_t colourPlaneId = 0;
  uint32_t frameNum = 0;
  bool fieldPic = false;
  bool bottomField = false;
  uint16_t idrPicId = 0;
  uint32_t pocLsb = 0;
  int32_t deltaPocBottom = 0;
  std::array<int32_t, 2> deltaPoc{};
  uint8_t redundantPicCnt = 0;
  /// What follows was read too: not where weights or lists can't be told, as in slices of Annex F.
  bool markingRead = false;
  bool noOutputOfPriorPics = false;
  bool longTermReference = false;
  bool adaptiveMarking = false;
  uint8_t numMarkingOperations = 0;
  std::array<AvcMarkingOperation, 66> marking{};
  bool operator==(const AvcSliceHeader&) const = default;

  /// memory_management_control_operation 5 empties the picture store: POC starts anew after it.
  bool resetsPictures() const;
};

/// `rbsp` may be cut behind the header. `sps` and `pps` are those that the slice's PPS id leads to,
/// which peekAvcSlicePpsId() tells.
bool parseAvcSliceHeader(std::span<const uint8_t> rbsp, const AvcNalHeader& nal, const AvcSps& sps,
                         const AvcPps& pps, AvcSliceHeader& slice);
bool peekAvcSlicePpsId(std::span<const uint8_t> rbsp, uint8_t& ppsId);

/// Whether `slice` begins another primary coded picture than `previous` is of: 7.4.1.2.4. Both have
/// to be slices of primary pictures (redundantPicCnt 0).
bool avcSliceBeginsPicture(const AvcSliceHeader& previous, const AvcSliceHeader& slice);

}  // namespace zel::syntax
