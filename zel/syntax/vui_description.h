#pragma once

#include <cstdint>

#include "zel/base/bit_reader.h"

/// What the VUI of AVC and of HEVC begin with: how the samples are to be shown. The two standards
/// have it bit for bit alike, ITU-T H.264 and H.265, E.2.1.

namespace zel::syntax {

struct VuiDescription {
  bool aspectRatioInfoPresent = false;
  uint8_t aspectRatioIdc = 0;
  uint16_t sarWidth = 0;
  uint16_t sarHeight = 0;
  bool overscanInfoPresent = false;
  bool overscanAppropriate = false;
  bool videoSignalTypePresent = false;
  uint8_t videoFormat = 5;
  bool videoFullRange = false;
  bool colourDescriptionPresent = false;
  uint8_t colourPrimaries = 2;
  uint8_t transferCharacteristics = 2;
  uint8_t matrixCoefficients = 2;
  bool chromaLocInfoPresent = false;
  uint8_t chromaSampleLocTypeTop = 0;
  uint8_t chromaSampleLocTypeBottom = 0;
  bool operator==(const VuiDescription&) const = default;
};

/// Moves the reader on, and fails it for a value that can't be.
void readVuiDescription(base::BitReader& bits, VuiDescription& description);

}  // namespace zel::syntax
