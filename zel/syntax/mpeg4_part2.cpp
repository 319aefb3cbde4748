#include "zel/syntax/mpeg4_part2.h"

#include <algorithm>
#include <bit>

#include "zel/base/bit_reader.h"

namespace zel::syntax {

namespace {

using base::BitReader;

constexpr uint8_t kExtendedPar = 15;

// video_object_type_indication of the kinds whose layers are laid out in another
// way: 6.2.3, 6.2.13.
constexpr uint8_t kSimpleStudio = 0x0F;
constexpr uint8_t kCoreStudio = 0x10;
constexpr uint8_t kFineGranularityScalable = 0x12;

// clang-format off
constexpr Mpeg4Level kLevels[] = {
//  indication    400 bit/s   16,384 bits
    {0x08,          160,       10},  // Simple L0
    {0x01,          160,       10},  // Simple L1
    {0x02,          320,       40},  // Simple L2
    {0x03,          960,       40},  // Simple L3
    {0x04,        10000,       80},  // Simple L4a
    {0x05,        20000,      112},  // Simple L5
    {0x06,        30000,      248},  // Simple L6
    {0x21,          960,       16},  // Core L1
    {0x22,         5000,       80},  // Core L2
    {0x32,         5000,       80},  // Main L2
    {0x33,        37500,      320},  // Main L3
    {0x34,        96000,      760},  // Main L4
    {0x42,         5000,       80},  // N-bit L2
    {0xF0,          320,       10},  // Advanced Simple L0
    {0xF1,          320,       10},  // Advanced Simple L1
    {0xF2,          960,       40},  // Advanced Simple L2
    {0xF3,         1920,       40},  // Advanced Simple L3
    {0xF7,         3750,       65},  // Advanced Simple L3b
    {0xF4,         7500,       80},  // Advanced Simple L4
    {0xF5,        20000,      112},  // Advanced Simple L5
};
// clang-format on

bool hasOtherLayout(uint8_t objectType) {
  return objectType == kSimpleStudio || objectType == kCoreStudio ||
         objectType == kFineGranularityScalable;
}

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

uint16_t read16(BitReader& bits, int count) {
  return static_cast<uint16_t>(bits.read(count));
}

// A number in two parts, each with a marker bit behind it.
uint32_t readHalves(BitReader& bits, int first, int latter, bool lastMarker) {
  const uint32_t high = bits.read(first);
  bits.skip(1);
  const uint32_t low = bits.read(latter);
  if (lastMarker) bits.skip(1);
  return high << latter | low;
}

Mpeg4VbvParameters readVbv(BitReader& bits) {
  Mpeg4VbvParameters vbv;
  vbv.bitRate = readHalves(bits, 15, 15, true);
  vbv.vbvBufferSize = readHalves(bits, 15, 3, false);
  vbv.vbvOccupancy = readHalves(bits, 11, 15, true);
  return vbv;
}

void readControlParameters(BitReader& bits, Mpeg4ObjectLayer& layer) {
  layer.chromaFormat = read8(bits, 2);
  layer.lowDelay = bits.readFlag();
  if (bits.readFlag()) layer.vbv = readVbv(bits);
}

void readSize(BitReader& bits, Mpeg4ObjectLayer& layer) {
  bits.skip(1);
  layer.width = read16(bits, 13);
  bits.skip(1);
  layer.height = read16(bits, 13);
  bits.skip(1);
}

}  // namespace

int mpeg4TimeIncrementBits(uint16_t timeIncrementResolution) {
  const uint32_t largest = std::max<uint32_t>(timeIncrementResolution, 1) - 1;
  return std::max(static_cast<int>(std::bit_width(largest)), 1);
}

bool parseMpeg4ObjectSequence(std::span<const uint8_t> payload, Mpeg4ObjectSequence& sequence) {
  BitReader bits(payload);
  sequence.profileAndLevel = read8(bits, 8);
  return !bits.failed();
}

bool parseMpeg4VisualObject(std::span<const uint8_t> payload, Mpeg4VisualObject& object) {
  BitReader bits(payload);
  object = {};
  if (bits.readFlag()) {
    object.verid = read8(bits, 4);
    object.priority = read8(bits, 3);
  }
  object.type = read8(bits, 4);
  if (object.type == kMpeg4ObjectVideo || object.type == kMpeg4ObjectStillTexture) {
    object.videoSignalType = bits.readFlag();
  }
  if (object.videoSignalType) {
    object.videoFormat = read8(bits, 3);
    object.fullRange = bits.readFlag();
    object.colourDescription = bits.readFlag();
  }
  if (object.colourDescription) {
    object.colourPrimaries = read8(bits, 8);
    object.transferCharacteristics = read8(bits, 8);
    object.matrixCoefficients = read8(bits, 8);
  }
  return !bits.failed();
}

bool parseMpeg4ObjectLayer(std::span<const uint8_t> payload, uint8_t objectVerid,
                           Mpeg4ObjectLayer& layer) {
  BitReader bits(payload);
  layer = {};
  layer.randomAccessible = bits.readFlag();
  layer.objectType = read8(bits, 8);
  if (hasOtherLayout(layer.objectType)) return false;
  layer.verid = objectVerid;
  if (bits.readFlag()) {
    layer.verid = read8(bits, 4);
    layer.priority = read8(bits, 3);
  }
  layer.aspectRatioInfo = read8(bits, 4);
  if (layer.aspectRatioInfo == kExtendedPar) {
    layer.parWidth = read8(bits, 8);
    layer.parHeight = read8(bits, 8);
  }
  layer.controlParameters = bits.readFlag();
  if (layer.controlParameters) readControlParameters(bits, layer);
  layer.shape = read8(bits, 2);
  if (layer.shape == kMpeg4Grayscale && layer.verid != 1) layer.shapeExtension = read8(bits, 4);
  bits.skip(1);
  layer.timeIncrementResolution = read16(bits, 16);
  if (layer.timeIncrementResolution == 0) return false;
  bits.skip(1);
  layer.fixedVopRate = bits.readFlag();
  if (layer.fixedVopRate) {
    const int count = mpeg4TimeIncrementBits(layer.timeIncrementResolution);
    layer.fixedVopTimeIncrement = read16(bits, count);
  }
  if (layer.shape == kMpeg4Rectangular) readSize(bits, layer);
  if (layer.shape != kMpeg4BinaryOnly) layer.interlaced = bits.readFlag();
  return !bits.failed();
}

bool parseMpeg4GroupOfVop(std::span<const uint8_t> payload, Mpeg4GroupOfVop& group) {
  BitReader bits(payload);
  group = {};
  group.hours = read8(bits, 5);
  group.minutes = read8(bits, 6);
  bits.skip(1);
  group.seconds = read8(bits, 6);
  group.closed = bits.readFlag();
  group.brokenLink = bits.readFlag();
  return !bits.failed();
}

bool parseMpeg4Vop(std::span<const uint8_t> payload, uint16_t timeIncrementResolution,
                   Mpeg4Vop& vop) {
  BitReader bits(payload);
  vop = {};
  vop.codingType = read8(bits, 2);
  // Past the end there are zeros only, which close it.
  while (bits.readFlag()) ++vop.moduloTimeBase;
  bits.skip(1);
  vop.timeIncrement = read16(bits, mpeg4TimeIncrementBits(timeIncrementResolution));
  bits.skip(1);
  vop.coded = bits.readFlag();
  return !bits.failed();
}

const Mpeg4Level* findMpeg4Level(uint8_t profileAndLevel) {
  for (const Mpeg4Level& level : kLevels) {
    if (level.profileAndLevel == profileAndLevel) return &level;
  }
  return nullptr;
}

}  // namespace zel::syntax
