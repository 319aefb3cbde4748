#include "zel/syntax/mpeg_video.h"

#include "zel/base/annex_b.h"
#include "zel/base/bit_reader.h"

namespace zel::syntax {

namespace {

using base::BitReader;

constexpr size_t kPrefixSize = 3;

void readMatrix(BitReader& bits, MpegQuantiserMatrix& matrix) {
  for (uint8_t& weight : matrix) weight = static_cast<uint8_t>(bits.read(8));
}

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

uint16_t read16(BitReader& bits, int count) {
  return static_cast<uint16_t>(bits.read(count));
}

}  // namespace

bool findMpegVideoUnit(std::span<const uint8_t> stream, size_t from, MpegVideoUnit& unit) {
  const size_t prefix = base::findStartCode(stream, from);
  if (prefix + kPrefixSize >= stream.size()) return false;
  const size_t begin = prefix + kPrefixSize + 1;
  unit.code = stream[begin - 1];
  unit.startCode = prefix;
  // A code of zero may be the first zero of the next prefix, hence the search from the code on.
  const size_t end = base::findStartCode(stream, begin);
  unit.payload = stream.subspan(begin, end - begin);
  return true;
}

bool parseMpegSequenceHeader(std::span<const uint8_t> payload, MpegSequenceHeader& header) {
  BitReader bits(payload);
  header = {};
  header.horizontalSize = read16(bits, 12);
  header.verticalSize = read16(bits, 12);
  header.aspectRatioInformation = read8(bits, 4);
  header.frameRateCode = read8(bits, 4);
  header.bitRateValue = bits.read(18);
  bits.skip(1);
  header.vbvBufferSizeValue = read16(bits, 10);
  header.constrainedParameters = bits.readFlag();
  header.loadIntraMatrix = bits.readFlag();
  if (header.loadIntraMatrix) readMatrix(bits, header.intraMatrix);
  header.loadNonIntraMatrix = bits.readFlag();
  if (header.loadNonIntraMatrix) readMatrix(bits, header.nonIntraMatrix);
  return !bits.failed();
}

bool parseMpegGroupHeader(std::span<const uint8_t> payload, MpegGroupHeader& header) {
  BitReader bits(payload);
  header = {};
  header.dropFrame = bits.readFlag();
  header.hours = read8(bits, 5);
  header.minutes = read8(bits, 6);
  bits.skip(1);
  header.seconds = read8(bits, 6);
  header.pictures = read8(bits, 6);
  header.closedGop = bits.readFlag();
  header.brokenLink = bits.readFlag();
  return !bits.failed();
}

bool parseMpegPictureHeader(std::span<const uint8_t> payload, MpegPictureHeader& header) {
  BitReader bits(payload);
  header = {};
  header.temporalReference = read16(bits, 10);
  header.codingType = read8(bits, 3);
  header.vbvDelay = read16(bits, 16);
  if (header.codingType == kMpegPictureP || header.codingType == kMpegPictureB) {
    header.fullPelForward = bits.readFlag();
    header.forwardFCode = read8(bits, 3);
  }
  if (header.codingType == kMpegPictureB) {
    header.fullPelBackward = bits.readFlag();
    header.backwardFCode = read8(bits, 3);
  }
  return !bits.failed();
}

bool parseMpegSequenceExtension(std::span<const uint8_t> payload,
                                MpegSequenceExtension& extension) {
  BitReader bits(payload);
  extension = {};
  if (bits.read(4) != kMpegSequenceExtension) return false;
  extension.escape = bits.readFlag();
  extension.profile = read8(bits, 3);
  extension.level = read8(bits, 4);
  extension.progressiveSequence = bits.readFlag();
  extension.chromaFormat = read8(bits, 2);
  extension.horizontalSizeExtension = read8(bits, 2);
  extension.verticalSizeExtension = read8(bits, 2);
  extension.bitRateExtension = read16(bits, 12);
  bits.skip(1);
  extension.vbvBufferSizeExtension = read8(bits, 8);
  extension.lowDelay = bits.readFlag();
  extension.frameRateExtensionN = read8(bits, 2);
  extension.frameRateExtensionD = read8(bits, 5);
  return !bits.failed();
}

bool parseMpegSequenceDisplayExtension(std::span<const uint8_t> payload,
                                       MpegSequenceDisplayExtension& extension) {
  BitReader bits(payload);
  extension = {};
  if (bits.read(4) != kMpegSequenceDisplayExtension) return false;
  extension.videoFormat = read8(bits, 3);
  extension.colourDescription = bits.readFlag();
  if (extension.colourDescription) {
    extension.colourPrimaries = read8(bits, 8);
    extension.transferCharacteristics = read8(bits, 8);
    extension.matrixCoefficients = read8(bits, 8);
  }
  extension.displayHorizontalSize = read16(bits, 14);
  bits.skip(1);
  extension.displayVerticalSize = read16(bits, 14);
  return !bits.failed();
}

bool parseMpegPictureCodingExtension(std::span<const uint8_t> payload,
                                     MpegPictureCodingExtension& extension) {
  BitReader bits(payload);
  extension = {};
  if (bits.read(4) != kMpegPictureCodingExtension) return false;
  for (auto& direction : extension.fCode) {
    for (uint8_t& code : direction) code = read8(bits, 4);
  }
  extension.intraDcPrecision = read8(bits, 2);
  extension.pictureStructure = read8(bits, 2);
  extension.topFieldFirst = bits.readFlag();
  extension.framePredFrameDct = bits.readFlag();
  extension.concealmentMotionVectors = bits.readFlag();
  extension.qScaleType = bits.readFlag();
  extension.intraVlcFormat = bits.readFlag();
  extension.alternateScan = bits.readFlag();
  extension.repeatFirstField = bits.readFlag();
  extension.chroma420Type = bits.readFlag();
  extension.progressiveFrame = bits.readFlag();
  extension.compositeDisplay = bits.readFlag();
  if (extension.compositeDisplay) {
    extension.vAxis = bits.readFlag();
    extension.fieldSequence = read8(bits, 3);
    extension.subCarrier = bits.readFlag();
    extension.burstAmplitude = read8(bits, 7);
    extension.subCarrierPhase = read8(bits, 8);
  }
  return !bits.failed();
}

int mpegDisplayFields(bool progressiveSequence, const MpegPictureCodingExtension& picture) {
  if (progressiveSequence) {
    if (!picture.repeatFirstField) return 2;
    return picture.topFieldFirst ? 6 : 4;
  }
  if (picture.pictureStructure != kMpegFrame) return 1;
  return picture.repeatFirstField ? 3 : 2;
}

}  // namespace zel::syntax
