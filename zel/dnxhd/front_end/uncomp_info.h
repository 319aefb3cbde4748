#pragma once

#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// The uncompressed side of a frame: how its samples lie in the application's buffer. Thirteen
/// words, of which the tenth and the twelfth (counted from 0) are flags in their low 8 bits.
struct UnCompInfo {
  /// Arrangement of the samples. 2: four a pixel, RGB; 8 or 4: Cb Y Cr Y, two pixels' worth. Bytes
  /// of a pixel, before the factor of the sample type: 4 for 2, 2 for 4 and 8, 1 for 1.
  uint32_t pixelLayout = 8;
  /// Order of RGB samples. 8: blue, green, red, alpha in bytes, and alpha, red, green, blue in
  /// wider samples; 4: red, green, blue, alpha. 4:4:4 compressions want one of the two.
  uint32_t formatWord = 2;
  uint32_t componentCount = 1;  ///< 4 for RGB; 4:4:4 compressions want it
  /// Of decoded pictures. 1: full size, 2: half, 4: quarter. Encoders want 1.
  uint32_t resolution = 1;
  uint32_t fieldWord = 64;  ///< 32 for two fields, else 64; carried along
  /// Packing of a sample. 1: 8 bits; 4: 16 bits, the value in the top 10; 8: 16-bit fixed point
  /// with 14 fraction bits; 16: signed 16 bits; 32: float; 64: a plane of the low 2 bits and one of
  /// the top 8; 1024: V210, 6 pixels in 16 bytes.
  uint32_t sampleType = 1;
  uint32_t reserved6 = 1;  ///< carried along
  /// How the two fields of a frame lie. 1, 2 or 64: line by line; 4 or 128: stacked, the first on
  /// top; 8 or 256: stacked, the second on top; 16 or 512: the first only; 32: the second only.
  uint32_t fieldLayout = 64;
  uint32_t reserved8 = 1;  ///< carried along
  /// 1: lines have the full width, and those of thin rasters are resampled; 4: lines have the width
  /// of the compression's own raster.
  uint32_t rasterWord = 1;
  uint32_t rgbOutput = 0;   ///< flag: decoding into RGB
  uint32_t alignment = 16;  ///< carried along
  uint32_t maxCoded = 1;    ///< flag; carried along
};
static_assert(sizeof(UnCompInfo) == 13 * sizeof(uint32_t));

/// The picture in the application's buffer.
struct BufferRaster {
  uint32_t width;        ///< pixels of a line
  uint32_t lines;        ///< of the buffer, those of all fields that it has
  uint32_t rowBytes;     ///< of a line without a gap behind it
  uint64_t bufferBytes;  ///< of all lines without gaps, the plane of low bits included
};

/// What follows from an id and a description. Pure, on any thread.
/// @return 0; -9999 for an id that can't be coded; -16 for samples that the codec doesn't know; -36
///   for another word that makes no sense.
ZEL_API int GetBufferRaster(uint32_t compressionId, UnCompInfo const& record, BufferRaster& raster);

}  // namespace Morvalen::Zel
