#include "zel/syntax/vui_description.h"

namespace zel::syntax {

namespace {

using base::BitReader;

constexpr uint8_t kExtendedSar = 255;  // EXTENDED_SAR, Table E-1
constexpr uint32_t kMostChromaLocation = 5;

uint8_t read8(BitReader& bits, int count) {
  return static_cast<uint8_t>(bits.read(count));
}

void readAspectRatio(BitReader& bits, VuiDescription& vui) {
  vui.aspectRatioInfoPresent = bits.readFlag();
  if (!vui.aspectRatioInfoPresent) return;
  vui.aspectRatioIdc = read8(bits, 8);
  if (vui.aspectRatioIdc != kExtendedSar) return;
  vui.sarWidth = static_cast<uint16_t>(bits.read(16));
  vui.sarHeight = static_cast<uint16_t>(bits.read(16));
}

void readSignalType(BitReader& bits, VuiDescription& vui) {
  vui.videoSignalTypePresent = bits.readFlag();
  if (!vui.videoSignalTypePresent) return;
  vui.videoFormat = read8(bits, 3);
  vui.videoFullRange = bits.readFlag();
  vui.colourDescriptionPresent = bits.readFlag();
  if (!vui.colourDescriptionPresent) return;
  vui.colourPrimaries = read8(bits, 8);
  vui.transferCharacteristics = read8(bits, 8);
  vui.matrixCoefficients = read8(bits, 8);
}

void readChromaLocation(BitReader& bits, VuiDescription& vui) {
  vui.chromaLocInfoPresent = bits.readFlag();
  if (!vui.chromaLocInfoPresent) return;
  const uint32_t top = bits.readUe();
  const uint32_t bottom = bits.readUe();
  if (top > kMostChromaLocation || bottom > kMostChromaLocation) bits.fail();
  vui.chromaSampleLocTypeTop = static_cast<uint8_t>(top);
  vui.chromaSampleLocTypeBottom = static_cast<uint8_t>(bottom);
}

}  // namespace

void readVuiDescription(BitReader& bits, VuiDescription& vui) {
  readAspectRatio(bits, vui);
  vui.overscanInfoPresent = bits.readFlag();
  if (vui.overscanInfoPresent) vui.overscanAppropriate = bits.readFlag();
  readSignalType(bits, vui);
  readChromaLocation(bits, vui);
}

}  // namespace zel::syntax
