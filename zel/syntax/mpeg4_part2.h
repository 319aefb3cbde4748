#pragma once

#include <cstdint>
#include <optional>
#include <span>

/// The headers of MPEG-4 part 2 video: ISO/IEC 14496-2, 6.2.2 to 6.2.5, down to the part of a VOP
/// that tells its type and its time. Units are found as those of MPEG-2 are (findMpegVideoUnit).
/// Each parser takes the bytes behind the start code and gives false where they end early, or hold
/// a value that the standard forbids.

namespace zel::syntax {

enum Mpeg4Code : uint8_t {
  kMpeg4FirstObject = 0x00,
  kMpeg4LastObject = 0x1F,
  kMpeg4FirstObjectLayer = 0x20,
  kMpeg4LastObjectLayer = 0x2F,
  kMpeg4ObjectSequence = 0xB0,
  kMpeg4ObjectSequenceEnd = 0xB1,
  kMpeg4UserData = 0xB2,
  kMpeg4GroupOfVop = 0xB3,
  kMpeg4SessionError = 0xB4,
  kMpeg4VisualObject = 0xB5,
  kMpeg4Vop = 0xB6,
};

constexpr bool isMpeg4ObjectLayer(uint8_t code) {
  return code >= kMpeg4FirstObjectLayer && code <= kMpeg4LastObjectLayer;
}

/// The codes that Table 6-3 reserves and that mark a slice of MPEG-2 where they turn up: 30 to 3F
/// and 60 to AF.
constexpr bool isMpeg4ReservedCode(uint8_t code) {
  return (code >= 0x30 && code <= 0x3F) || (code >= 0x60 && code <= 0xAF);
}

struct Mpeg4ObjectSequence {
  uint8_t profileAndLevel = 0;
  bool operator==(const Mpeg4ObjectSequence&) const = default;
};

enum Mpeg4ObjectType : uint8_t { kMpeg4ObjectVideo = 1, kMpeg4ObjectStillTexture = 2 };

struct Mpeg4VisualObject {
  uint8_t verid = 1;  // stands for layers that don't give their own
  uint8_t priority = 0;
  uint8_t type = 0;
  bool videoSignalType = false;
  uint8_t videoFormat = 5;  // unspecified
  bool fullRange = false;
  bool colourDescription = false;
  uint8_t colourPrimaries = 1;
  uint8_t transferCharacteristics = 1;
  uint8_t matrixCoefficients = 1;
  bool operator==(const Mpeg4VisualObject&) const = default;
};

enum Mpeg4Shape : uint8_t {
  kMpeg4Rectangular = 0,
  kMpeg4Binary = 1,
  kMpeg4BinaryOnly = 2,
  kMpeg4Grayscale = 3,
};

/// vbv_parameters of the layer, with the halves of each number joined.
struct Mpeg4VbvParameters {
  uint32_t bitRate = 0;        // in units of 400 bit/s
  uint32_t vbvBufferSize = 0;  // in units of 16,384 bits
  uint32_t vbvOccupancy = 0;   // in units of 64 bits
  bool operator==(const Mpeg4VbvParameters&) const = default;
};

struct Mpeg4ObjectLayer {
  bool randomAccessible = false;
  uint8_t objectType = 0;
  uint8_t verid = 1;
  uint8_t priority = 0;
  uint8_t aspectRatioInfo = 0;  // 15: the two numbers below
  uint8_t parWidth = 0;
  uint8_t parHeight = 0;
  bool controlParameters = false;  // the two fields below and perhaps vbv
  uint8_t chromaFormat = 1;        // 4:2:0
  bool lowDelay = false;
  std::optional<Mpeg4VbvParameters> vbv;
  uint8_t shape = kMpeg4Rectangular;
  uint8_t shapeExtension = 0;
  uint16_t timeIncrementResolution = 0;  // ticks per second, never 0
  bool fixedVopRate = false;
  uint16_t fixedVopTimeIncrement = 0;  // ticks between VOPs
  uint16_t width = 0;                  // of a rectangular layer
  uint16_t height = 0;
  bool interlaced = false;  // not read where the shape is binary only
  bool operator==(const Mpeg4ObjectLayer&) const = default;
};

struct Mpeg4GroupOfVop {
  uint8_t hours = 0;
  uint8_t minutes = 0;
  uint8_t seconds = 0;
  bool closed = false;
  bool brokenLink = false;
  bool operator==(const Mpeg4GroupOfVop&) const = default;
};

enum Mpeg4VopType : uint8_t { kMpeg4VopI = 0, kMpeg4VopP = 1, kMpeg4VopB = 2, kMpeg4VopS = 3 };

struct Mpeg4Vop {
  uint8_t codingType = 0;
  uint32_t moduloTimeBase = 0;  // whole seconds since the last one's
  uint16_t timeIncrement = 0;   // in ticks of the layer
  bool coded = false;
  bool operator==(const Mpeg4Vop&) const = default;
};

/// Bits of vop_time_increment and fixed_vop_time_increment: what holds the numbers below the
/// resolution, at least one.
int mpeg4TimeIncrementBits(uint16_t timeIncrementResolution);

bool parseMpeg4ObjectSequence(std::span<const uint8_t> payload, Mpeg4ObjectSequence& sequence);
bool parseMpeg4VisualObject(std::span<const uint8_t> payload, Mpeg4VisualObject& object);
/// `objectVerid` is that of the visual object before, 1 where there was none. Layers of the studio
/// profiles and of fine granularity scalability have layouts of their own and are refused.
bool parseMpeg4ObjectLayer(std::span<const uint8_t> payload, uint8_t objectVerid,
                           Mpeg4ObjectLayer& layer);
bool parseMpeg4GroupOfVop(std::span<const uint8_t> payload, Mpeg4GroupOfVop& group);
/// `timeIncrementResolution` is that of the layer that the VOP belongs to.
bool parseMpeg4Vop(std::span<const uint8_t> payload, uint16_t timeIncrementResolution,
                   Mpeg4Vop& vop);

/// What a profile and level allows: 14496-2, Annex N.
struct Mpeg4Level {
  uint8_t profileAndLevel;
  uint32_t maxBitRate;        // in units of 400 bit/s
  uint16_t maxVbvBufferSize;  // in units of 16,384 bits
};

/// Null for an indication that the table hasn't.
const Mpeg4Level* findMpeg4Level(uint8_t profileAndLevel);

}  // namespace zel::syntax
