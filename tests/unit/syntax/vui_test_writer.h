#pragma once

#include "tests/support/header_bits.h"
#include "zel/syntax/vui_description.h"

/// The beginning that the VUI of AVC and of HEVC share, random and as bits.

namespace zel::test {

inline constexpr uint8_t kExtendedSar = 255;

inline void randomVuiDescription(RandomFields& random, syntax::VuiDescription& vui) {
  vui.aspectRatioInfoPresent = random.flag();
  if (vui.aspectRatioInfoPresent) {
    vui.aspectRatioIdc = random.flag() ? kExtendedSar : static_cast<uint8_t>(random.upTo(16));
    if (vui.aspectRatioIdc == kExtendedSar) {
      vui.sarWidth = static_cast<uint16_t>(random.bits(16));
      vui.sarHeight = static_cast<uint16_t>(random.bits(16));
    }
  }
  vui.overscanInfoPresent = random.flag();
  vui.overscanAppropriate = vui.overscanInfoPresent && random.flag();
  vui.videoSignalTypePresent = random.flag();
  if (vui.videoSignalTypePresent) {
    vui.videoFormat = static_cast<uint8_t>(random.bits(3));
    vui.videoFullRange = random.flag();
    vui.colourDescriptionPresent = random.flag();
    if (vui.colourDescriptionPresent) {
      vui.colourPrimaries = static_cast<uint8_t>(random.bits(8));
      vui.transferCharacteristics = static_cast<uint8_t>(random.bits(8));
      vui.matrixCoefficients = static_cast<uint8_t>(random.bits(8));
    }
  }
  vui.chromaLocInfoPresent = random.flag();
  if (vui.chromaLocInfoPresent) {
    vui.chromaSampleLocTypeTop = static_cast<uint8_t>(random.upTo(5));
    vui.chromaSampleLocTypeBottom = static_cast<uint8_t>(random.upTo(5));
  }
}

inline void writeVuiDescription(HeaderBits& out, const syntax::VuiDescription& vui) {
  out.flag(vui.aspectRatioInfoPresent);
  if (vui.aspectRatioInfoPresent) {
    out.u(8, vui.aspectRatioIdc);
    if (vui.aspectRatioIdc == kExtendedSar) {
      out.u(16, vui.sarWidth);
      out.u(16, vui.sarHeight);
    }
  }
  out.flag(vui.overscanInfoPresent);
  if (vui.overscanInfoPresent) out.flag(vui.overscanAppropriate);
  out.flag(vui.videoSignalTypePresent);
  if (vui.videoSignalTypePresent) {
    out.u(3, vui.videoFormat);
    out.flag(vui.videoFullRange);
    out.flag(vui.colourDescriptionPresent);
    if (vui.colourDescriptionPresent) {
      out.u(8, vui.colourPrimaries);
      out.u(8, vui.transferCharacteristics);
      out.u(8, vui.matrixCoefficients);
    }
  }
  out.flag(vui.chromaLocInfoPresent);
  if (vui.chromaLocInfoPresent) {
    out.ue(vui.chromaSampleLocTypeTop);
    out.ue(vui.chromaSampleLocTypeBottom);
  }
}

}  // namespace zel::test
