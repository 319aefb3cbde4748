#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// The headers of MPEG-1 and MPEG-2 video: ISO/IEC 11172-2 and 13818-2 (ITU-T H.262), 6.2.2 and
/// 6.2.3. Each parser takes the bytes behind the start code and gives false where they end early.

namespace zel::syntax {

enum MpegVideoCode : uint8_t {
  kMpegPicture = 0x00,
  kMpegFirstSlice = 0x01,
  kMpegLastSlice = 0xAF,
  kMpegUserData = 0xB2,
  kMpegSequenceHeader = 0xB3,
  kMpegSequenceError = 0xB4,
  kMpegExtension = 0xB5,
  kMpegSequenceEnd = 0xB7,
  kMpegGroup = 0xB8,
};

enum MpegExtensionId : uint8_t {
  kMpegSequenceExtension = 1,
  kMpegSequenceDisplayExtension = 2,
  kMpegQuantMatrixExtension = 3,
  kMpegPictureCodingExtension = 8,
};

/// One start code and what stands behind it, up to the next prefix. Zero bytes at the end are part
/// of it: unlike NAL units these headers may end in a zero byte.
struct MpegVideoUnit {
  uint8_t code = 0;
  std::span<const uint8_t> payload;
  size_t startCode = 0;  // place of the prefix in the stream
};

/// Finds the unit whose prefix is the first at or after `from`; false if there is none. The next
/// one is searched from `unit.startCode + 3`.
bool findMpegVideoUnit(std::span<const uint8_t> stream, size_t from, MpegVideoUnit& unit);

using MpegQuantiserMatrix = std::array<uint8_t, 64>;  // in zigzag order

struct MpegSequenceHeader {
  uint16_t horizontalSize = 0;
  uint16_t verticalSize = 0;
  uint8_t aspectRatioInformation = 0;
  uint8_t frameRateCode = 0;
  uint32_t bitRateValue = 0;        // 400 bit/s; 3FFFF in MPEG-1 is variable
  uint16_t vbvBufferSizeValue = 0;  // 16,384 bits
  bool constrainedParameters = false;
  bool loadIntraMatrix = false;
  bool loadNonIntraMatrix = false;
  MpegQuantiserMatrix intraMatrix{};
  MpegQuantiserMatrix nonIntraMatrix{};
  bool operator==(const MpegSequenceHeader&) const = default;
};

struct MpegSequenceExtension {
  bool escape = false;  // of profile_and_level_indication, its top bit
  uint8_t profile = 0;  // 3 bits
  uint8_t level = 0;    // 4 bits
  bool progressiveSequence = false;
  uint8_t chromaFormat = 0;             // 1 4:2:0, 2 4:2:2, 3 4:4:4
  uint8_t horizontalSizeExtension = 0;  // bits 13 and 12
  uint8_t verticalSizeExtension = 0;
  uint16_t bitRateExtension = 0;       // bits 29 to 18
  uint8_t vbvBufferSizeExtension = 0;  // bits 17 to 10
  bool lowDelay = false;
  uint8_t frameRateExtensionN = 0;
  uint8_t frameRateExtensionD = 0;
  bool operator==(const MpegSequenceExtension&) const = default;
};

struct MpegSequenceDisplayExtension {
  uint8_t videoFormat = 0;
  bool colourDescription = false;
  uint8_t colourPrimaries = 0;
  uint8_t transferCharacteristics = 0;
  uint8_t matrixCoefficients = 0;
  uint16_t displayHorizontalSize = 0;
  uint16_t displayVerticalSize = 0;
  bool operator==(const MpegSequenceDisplayExtension&) const = default;
};

struct MpegGroupHeader {
  bool dropFrame = false;
  uint8_t hours = 0;
  uint8_t minutes = 0;
  uint8_t seconds = 0;
  uint8_t pictures = 0;
  bool closedGop = false;
  bool brokenLink = false;
  bool operator==(const MpegGroupHeader&) const = default;
};

enum MpegPictureType : uint8_t {
  kMpegPictureI = 1,
  kMpegPictureP = 2,
  kMpegPictureB = 3,
  kMpegPictureD = 4,
};

struct MpegPictureHeader {
  uint16_t temporalReference = 0;
  uint8_t codingType = 0;
  uint16_t vbvDelay = 0;  // 90 kHz; FFFF is variable
  bool fullPelForward = false;
  uint8_t forwardFCode = 0;
  bool fullPelBackward = false;
  uint8_t backwardFCode = 0;
  bool operator==(const MpegPictureHeader&) const = default;
};

enum MpegPictureStructure : uint8_t { kMpegTopField = 1, kMpegBottomField = 2, kMpegFrame = 3 };

struct MpegPictureCodingExtension {
  std::array<std::array<uint8_t, 2>, 2> fCode{};  // [forward, backward][horizontal, vertical]
  uint8_t intraDcPrecision = 0;
  uint8_t pictureStructure = 0;
  bool topFieldFirst = false;
  bool framePredFrameDct = false;
  bool concealmentMotionVectors = false;
  bool qScaleType = false;
  bool intraVlcFormat = false;
  bool alternateScan = false;
  bool repeatFirstField = false;
  bool chroma420Type = false;
  bool progressiveFrame = false;
  bool compositeDisplay = false;
  bool vAxis = false;
  uint8_t fieldSequence = 0;
  bool subCarrier = false;
  uint8_t burstAmplitude = 0;
  uint8_t subCarrierPhase = 0;
  bool operator==(const MpegPictureCodingExtension&) const = default;
};

bool parseMpegSequenceHeader(std::span<const uint8_t> payload, MpegSequenceHeader& header);
bool parseMpegGroupHeader(std::span<const uint8_t> payload, MpegGroupHeader& header);
bool parseMpegPictureHeader(std::span<const uint8_t> payload, MpegPictureHeader& header);

/// The identifier of an extension, 0 where there is none.
inline uint8_t mpegExtensionId(std::span<const uint8_t> payload) {
  return payload.empty() ? uint8_t{0} : static_cast<uint8_t>(payload[0] >> 4);
}

/// These three give false for an extension of another identifier as well.
bool parseMpegSequenceExtension(std::span<const uint8_t> payload, MpegSequenceExtension& extension);
bool parseMpegSequenceDisplayExtension(std::span<const uint8_t> payload,
                                       MpegSequenceDisplayExtension& extension);
bool parseMpegPictureCodingExtension(std::span<const uint8_t> payload,
                                     MpegPictureCodingExtension& extension);

/// How many field periods a picture of a sequence is shown: 13818-2, 6.3.10. In a progressive
/// sequence whole frames, each of two field periods.
int mpegDisplayFields(bool progressiveSequence, const MpegPictureCodingExtension& picture);

}  // namespace zel::syntax
