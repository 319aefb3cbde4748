#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The NAL unit header of AVC: ITU-T H.264, 7.3.1 with the extensions of Annexes F and G (scalable
/// and multiview coding; G and H in older editions).

namespace zel::syntax {

enum AvcNalType : uint8_t {
  kAvcSlice = 1,
  kAvcSlicePartitionA = 2,
  kAvcSlicePartitionB = 3,
  kAvcSlicePartitionC = 4,
  kAvcIdrSlice = 5,
  kAvcSei = 6,
  kAvcSps = 7,
  kAvcPps = 8,
  kAvcDelimiter = 9,
  kAvcEndOfSequence = 10,
  kAvcEndOfStream = 11,
  kAvcFiller = 12,
  kAvcSpsExtension = 13,
  kAvcPrefix = 14,
  kAvcSubsetSps = 15,
  kAvcDepthParameters = 16,
  kAvcAuxiliarySlice = 19,
  kAvcSliceExtension = 20,
  kAvcSliceExtensionDepth = 21,
};

struct AvcNalHeader {
  uint8_t refIdc = 0;
  uint8_t type = 0;
  size_t size = 1;  // bytes of the header: 1, or with an extension 3 (depth) or 4
  bool hasExtension = false;
  bool svc = false;  // with an extension: scalable, else multiview
  // Scalable.
  bool idr = false;
  bool noInterLayerPrediction = false;
  uint8_t dependencyId = 0;
  uint8_t qualityId = 0;
  bool useRefBasePicture = false;
  bool discardable = false;
  bool output = false;
  // Multiview; `idr` holds there too, as the inverse of non_idr_flag.
  uint16_t viewId = 0;
  bool anchorPicture = false;
  bool interView = false;
  // Both.
  uint8_t priorityId = 0;
  uint8_t temporalId = 0;
  bool operator==(const AvcNalHeader&) const = default;
};

/// Reads the header at the start of a NAL unit (with its emulation prevention or without: none can
/// stand in here). False if the bytes end early or the forbidden bit is set.
bool parseAvcNalHeader(std::span<const uint8_t> unit, AvcNalHeader& header);

constexpr bool avcTypeIsVcl(uint8_t type) {
  return type >= kAvcSlice && type <= kAvcIdrSlice;
}

/// Whether a unit of this type, behind the last slice of a primary picture, begins the next access
/// unit: 7.4.1.2.3.
constexpr bool avcTypeBeginsAccessUnit(uint8_t type) {
  return type == kAvcDelimiter || type == kAvcSps || type == kAvcPps || type == kAvcSei ||
         (type >= 14 && type <= 18);
}

}  // namespace zel::syntax
