#include "zel/syntax/mpeg4_part2.h"

#include <gtest/gtest.h>

#include "tests/support/header_bits.h"
#include "zel/syntax/mpeg_video.h"

namespace {

using zel::test::HeaderBits;
using zel::test::RandomFields;
using namespace zel::syntax;

uint8_t random8(RandomFields& random, int count) {
  return static_cast<uint8_t>(random.bits(count));
}

uint16_t random16(RandomFields& random, int count) {
  return static_cast<uint16_t>(random.bits(count));
}

void writeVbv(HeaderBits& out, const Mpeg4VbvParameters& vbv) {
  out.u(15, vbv.bitRate >> 15);
  out.flag(true);
  out.u(15, vbv.bitRate & 0x7FFF);
  out.flag(true);
  out.u(15, vbv.vbvBufferSize >> 3);
  out.flag(true);
  out.u(3, vbv.vbvBufferSize & 7);
  out.u(11, vbv.vbvOccupancy >> 15);
  out.flag(true);
  out.u(15, vbv.vbvOccupancy & 0x7FFF);
  out.flag(true);
}

std::vector<uint8_t> write(const Mpeg4ObjectLayer& layer, bool identifier) {
  HeaderBits out;
  out.flag(layer.randomAccessible);
  out.u(8, layer.objectType);
  out.flag(identifier);
  if (identifier) {
    out.u(4, layer.verid);
    out.u(3, layer.priority);
  }
  out.u(4, layer.aspectRatioInfo);
  if (layer.aspectRatioInfo == 15) {
    out.u(8, layer.parWidth);
    out.u(8, layer.parHeight);
  }
  out.flag(layer.controlParameters);
  if (layer.controlParameters) {
    out.u(2, layer.chromaFormat);
    out.flag(layer.lowDelay);
    out.flag(layer.vbv.has_value());
    if (layer.vbv) writeVbv(out, *layer.vbv);
  }
  out.u(2, layer.shape);
  if (layer.shape == kMpeg4Grayscale && layer.verid != 1) out.u(4, layer.shapeExtension);
  out.flag(true);
  out.u(16, layer.timeIncrementResolution);
  out.flag(true);
  out.flag(layer.fixedVopRate);
  if (layer.fixedVopRate) {
    out.u(mpeg4TimeIncrementBits(layer.timeIncrementResolution), layer.fixedVopTimeIncrement);
  }
  if (layer.shape == kMpeg4Rectangular) {
    out.flag(true);
    out.u(13, layer.width);
    out.flag(true);
    out.u(13, layer.height);
    out.flag(true);
  }
  if (layer.shape != kMpeg4BinaryOnly) out.flag(layer.interlaced);
  return out.bytes();
}

Mpeg4ObjectLayer randomLayer(RandomFields& random, bool identifier, uint8_t objectVerid) {
  Mpeg4ObjectLayer layer;
  layer.randomAccessible = random.flag();
  layer.objectType = static_cast<uint8_t>(random.upTo(14));
  layer.verid = identifier ? random8(random, 4) : objectVerid;
  layer.priority = identifier ? random8(random, 3) : uint8_t{0};
  layer.aspectRatioInfo = random.flag() ? uint8_t{15} : random8(random, 3);
  layer.parWidth = layer.aspectRatioInfo == 15 ? random8(random, 8) : uint8_t{0};
  layer.parHeight = layer.aspectRatioInfo == 15 ? random8(random, 8) : uint8_t{0};
  layer.controlParameters = random.flag();
  if (layer.controlParameters) {
    layer.chromaFormat = random8(random, 2);
    layer.lowDelay = random.flag();
    if (random.flag()) layer.vbv = {random.bits(30), random.bits(18), random.bits(26)};
  }
  layer.shape = random8(random, 2);
  if (layer.shape == kMpeg4Grayscale && layer.verid != 1) layer.shapeExtension = random8(random, 4);
  layer.timeIncrementResolution = static_cast<uint16_t>(1 + random.upTo(0xFFFE));
  layer.fixedVopRate = random.flag();
  if (layer.fixedVopRate) {
    layer.fixedVopTimeIncrement =
        random16(random, mpeg4TimeIncrementBits(layer.timeIncrementResolution));
  }
  if (layer.shape == kMpeg4Rectangular) {
    layer.width = random16(random, 13);
    layer.height = random16(random, 13);
  }
  layer.interlaced = layer.shape != kMpeg4BinaryOnly && random.flag();
  return layer;
}

TEST(Mpeg4ObjectLayer, ReadsWhatWasWritten) {
  RandomFields random(41);
  for (int round = 0; round < 2000; ++round) {
    const bool identifier = random.flag();
    const uint8_t objectVerid = random8(random, 4);
    const Mpeg4ObjectLayer layer = randomLayer(random, identifier, objectVerid);
    const auto bytes = write(layer, identifier);
    Mpeg4ObjectLayer back;
    ASSERT_TRUE(parseMpeg4ObjectLayer(bytes, objectVerid, back));
    ASSERT_EQ(back, layer);
    ASSERT_FALSE(
        parseMpeg4ObjectLayer(std::span(bytes).first(bytes.size() - 1), objectVerid, back));
  }
}

TEST(Mpeg4ObjectLayer, NeedsAClock) {
  RandomFields random(42);
  Mpeg4ObjectLayer layer = randomLayer(random, true, 1);
  layer.timeIncrementResolution = 0;
  layer.fixedVopRate = false;
  Mpeg4ObjectLayer back;
  EXPECT_FALSE(parseMpeg4ObjectLayer(write(layer, true), 1, back));
  layer.timeIncrementResolution = 1;
  EXPECT_TRUE(parseMpeg4ObjectLayer(write(layer, true), 1, back));
}

TEST(Mpeg4ObjectLayer, OtherLayoutsAreRefused) {
  for (const uint8_t type : {uint8_t{0x0F}, uint8_t{0x10}, uint8_t{0x12}}) {
    RandomFields random(43);
    Mpeg4ObjectLayer layer = randomLayer(random, true, 1);
    layer.objectType = type;
    Mpeg4ObjectLayer back;
    EXPECT_FALSE(parseMpeg4ObjectLayer(write(layer, true), 1, back)) << int{type};
    layer.objectType = 0x11;
    EXPECT_TRUE(parseMpeg4ObjectLayer(write(layer, true), 1, back));
  }
}

TEST(Mpeg4VisualObject, ReadsWhatWasWritten) {
  RandomFields random(44);
  for (int round = 0; round < 500; ++round) {
    Mpeg4VisualObject object;
    HeaderBits out;
    const bool identifier = random.flag();
    out.flag(identifier);
    if (identifier) {
      out.u(4, object.verid = random8(random, 4));
      out.u(3, object.priority = random8(random, 3));
    }
    out.u(4, object.type = random8(random, 2));
    if (object.type == 1 || object.type == 2) out.flag(object.videoSignalType = random.flag());
    if (object.videoSignalType) {
      out.u(3, object.videoFormat = random8(random, 3));
      out.flag(object.fullRange = random.flag());
      out.flag(object.colourDescription = random.flag());
    }
    if (object.colourDescription) {
      out.u(8, object.colourPrimaries = random8(random, 8));
      out.u(8, object.transferCharacteristics = random8(random, 8));
      out.u(8, object.matrixCoefficients = random8(random, 8));
    }
    const auto bytes = out.bytes();
    Mpeg4VisualObject back;
    ASSERT_TRUE(parseMpeg4VisualObject(bytes, back));
    ASSERT_EQ(back, object);
    ASSERT_FALSE(parseMpeg4VisualObject(std::span(bytes).first(bytes.size() - 1), back));
  }
}

TEST(Mpeg4GroupOfVop, ReadsWhatWasWritten) {
  RandomFields random(45);
  for (int round = 0; round < 200; ++round) {
    Mpeg4GroupOfVop group;
    HeaderBits out;
    out.u(5, group.hours = random8(random, 5));
    out.u(6, group.minutes = random8(random, 6));
    out.flag(true);
    out.u(6, group.seconds = random8(random, 6));
    out.flag(group.closed = random.flag());
    out.flag(group.brokenLink = random.flag());
    const auto bytes = out.bytes();
    Mpeg4GroupOfVop back;
    ASSERT_TRUE(parseMpeg4GroupOfVop(bytes, back));
    ASSERT_EQ(back, group);
    ASSERT_FALSE(parseMpeg4GroupOfVop(std::span(bytes).first(bytes.size() - 1), back));
  }
}

TEST(Mpeg4Vop, ReadsWhatWasWritten) {
  RandomFields random(46);
  for (int round = 0; round < 1000; ++round) {
    const auto resolution = static_cast<uint16_t>(1 + random.upTo(0xFFFE));
    Mpeg4Vop vop;
    HeaderBits out;
    out.u(2, vop.codingType = random8(random, 2));
    vop.moduloTimeBase = random.upTo(100);
    for (uint32_t second = 0; second < vop.moduloTimeBase; ++second) out.flag(true);
    out.flag(false);
    out.flag(true);
    const int count = mpeg4TimeIncrementBits(resolution);
    out.u(count, vop.timeIncrement = random16(random, count));
    out.flag(true);
    out.flag(vop.coded = random.flag());
    const auto bytes = out.bytes();
    Mpeg4Vop back;
    ASSERT_TRUE(parseMpeg4Vop(bytes, resolution, back));
    ASSERT_EQ(back, vop);
    ASSERT_FALSE(parseMpeg4Vop(std::span(bytes).first(bytes.size() - 1), resolution, back));
  }
}

TEST(Mpeg4Vop, ATimeBaseWithoutEndFails) {
  const std::vector<uint8_t> ones(40, 0xFF);
  Mpeg4Vop vop;
  EXPECT_FALSE(parseMpeg4Vop(ones, 25, vop));
}

TEST(Mpeg4TimeIncrementBits, HoldWhatLiesBelowTheResolution) {
  EXPECT_EQ(mpeg4TimeIncrementBits(0), 1);
  EXPECT_EQ(mpeg4TimeIncrementBits(1), 1);
  EXPECT_EQ(mpeg4TimeIncrementBits(2), 1);
  EXPECT_EQ(mpeg4TimeIncrementBits(3), 2);
  EXPECT_EQ(mpeg4TimeIncrementBits(25), 5);
  EXPECT_EQ(mpeg4TimeIncrementBits(30000), 15);
  EXPECT_EQ(mpeg4TimeIncrementBits(32768), 15);
  EXPECT_EQ(mpeg4TimeIncrementBits(32769), 16);
  EXPECT_EQ(mpeg4TimeIncrementBits(65535), 16);
}

TEST(Mpeg4Codes, LayersAndReservedCodes) {
  for (int code = 0; code < 256; ++code) {
    const auto value = static_cast<uint8_t>(code);
    EXPECT_EQ(isMpeg4ObjectLayer(value), code / 16 == 2) << code;
    const bool reserved = code / 16 == 3 || (code >= 0x60 && code < 0xB0);
    EXPECT_EQ(isMpeg4ReservedCode(value), reserved) << code;
  }
}

TEST(Mpeg4Levels, LimitsInBitsPerSecond) {
  ASSERT_NE(findMpeg4Level(0xF5), nullptr);
  EXPECT_EQ(findMpeg4Level(0xF5)->maxBitRate * 400, 8000000u);
  EXPECT_EQ(findMpeg4Level(0xF5)->maxVbvBufferSize, 112);
  EXPECT_EQ(findMpeg4Level(0x01)->maxBitRate * 400, 64000u);
  EXPECT_EQ(findMpeg4Level(0x33)->maxBitRate * 400, 15000000u);
  EXPECT_EQ(findMpeg4Level(0x00), nullptr);
  EXPECT_EQ(findMpeg4Level(0xFF), nullptr);
}

// The first bytes of an Advanced Simple stream from an independent encoder: 352x288, 30000/1001,
// B-VOPs.
TEST(Mpeg4Headers, OfAnotherEncoder) {
  const std::vector<uint8_t> stream = {
      0x00, 0x00, 0x01, 0xB0, 0xF5, 0x00, 0x00, 0x01, 0xB5, 0xA9, 0x13, 0x00, 0x00, 0x01,
      0x00, 0x00, 0x00, 0x01, 0x20, 0x08, 0xD4, 0x8D, 0x0B, 0xA9, 0x85, 0x0B, 0x04, 0x24,
      0x14, 0x10, 0x3F, 0x00, 0x00, 0x01, 0xB2, 0x4C, 0x61, 0x00, 0x00, 0x01, 0xB3, 0x00,
      0x10, 0x07, 0x00, 0x00, 0x01, 0xB6, 0x10, 0x00, 0x18, 0x2C, 0x60, 0xA6, 0x00, 0x00,
      0x01, 0xB6, 0x51, 0x77, 0x7C, 0x08, 0x00, 0x00, 0x01, 0xB6, 0x90, 0x7D, 0x38, 0x19};
  std::vector<uint8_t> codes;
  std::vector<Mpeg4Vop> vops;
  Mpeg4ObjectSequence sequence;
  Mpeg4VisualObject object;
  Mpeg4ObjectLayer layer;
  Mpeg4GroupOfVop group;
  MpegVideoUnit unit;
  for (size_t from = 0; findMpegVideoUnit(stream, from, unit); from = unit.startCode + 3) {
    codes.push_back(unit.code);
    if (unit.code == kMpeg4ObjectSequence) {
      EXPECT_TRUE(parseMpeg4ObjectSequence(unit.payload, sequence));
    }
    if (unit.code == kMpeg4VisualObject) {
      EXPECT_TRUE(parseMpeg4VisualObject(unit.payload, object));
    }
    if (isMpeg4ObjectLayer(unit.code)) {
      EXPECT_TRUE(parseMpeg4ObjectLayer(unit.payload, object.verid, layer));
    }
    if (unit.code == kMpeg4GroupOfVop) {
      EXPECT_TRUE(parseMpeg4GroupOfVop(unit.payload, group));
    }
    if (unit.code == kMpeg4Vop) {
      vops.emplace_back();
      EXPECT_TRUE(parseMpeg4Vop(unit.payload, layer.timeIncrementResolution, vops.back()));
    }
  }
  EXPECT_EQ(codes, (std::vector<uint8_t>{0xB0, 0xB5, 0x00, 0x20, 0xB2, 0xB3, 0xB6, 0xB6, 0xB6}));
  EXPECT_EQ(sequence.profileAndLevel, 0xF5);
  EXPECT_EQ(object.type, kMpeg4ObjectVideo);
  EXPECT_EQ(layer.objectType, 0x11);
  EXPECT_EQ(layer.verid, 5);
  EXPECT_FALSE(layer.lowDelay);
  EXPECT_EQ(layer.timeIncrementResolution, 30000);
  EXPECT_FALSE(layer.fixedVopRate);
  EXPECT_EQ(layer.width, 352);
  EXPECT_EQ(layer.height, 288);
  EXPECT_FALSE(layer.interlaced);
  EXPECT_EQ(group, (Mpeg4GroupOfVop{}));
  ASSERT_EQ(vops.size(), 3u);
  EXPECT_EQ(vops[0], (Mpeg4Vop{kMpeg4VopI, 0, 0, true}));
  EXPECT_EQ(vops[1], (Mpeg4Vop{kMpeg4VopP, 0, 3003, true}));
  EXPECT_EQ(vops[2], (Mpeg4Vop{kMpeg4VopB, 0, 1001, true}));
}

}  // namespace
