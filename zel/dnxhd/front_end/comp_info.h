#pragma once

#include <array>
#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

inline constexpr uint32_t kColorClassYCbCr422 = 8192;
inline constexpr uint32_t kColorClass444 = 268435456;

/// One compression that the codec codes. All words but the two texts are 32 bits wide, and those of
/// a fixed value are carried along. The rows are constants: any thread may read them at any time.
struct CompInfo {
  uint32_t compressionId;
  char name[256];
  uint32_t fieldsPerFrame;
  uint32_t width;  // of the full raster
  uint32_t lines;  // of one field
  uint32_t one;
  char family[256];
  uint32_t bitRate;  // bits a second
  uint32_t ratio;
  uint32_t frameBytes;
  uint32_t zero1[2];
  uint32_t flag1;
  uint32_t scanFields;
  uint32_t firstActiveLine1;
  uint32_t firstActiveLine2;  // 0 in progressive rows
  uint32_t lineClass;
  uint32_t two;
  uint32_t colorClass;
  uint32_t ones[2];
  uint32_t depthClass;  // 2: 10 bits; 1: 8 bits
  uint32_t one2;
  uint32_t componentWord;  // 8, or 2 for 4:4:4
  uint32_t planeClass;     // 1, or 2 for 4:4:4
  uint32_t lines2;
  uint32_t width2;
  uint32_t zero2[2];
  uint32_t two2;
  uint32_t zero3;
  uint32_t maxValue;
  uint32_t thirtyTwo;
  uint32_t rasterWidth;  // of the coded raster: narrower than `width` where it is thin
  uint32_t rasterLines;
};

/// All of them.
ZEL_API extern const std::array<CompInfo, 17> kCompInfos;

/// The row of the id, or null.
ZEL_API const CompInfo* FindCompInfo(uint32_t compressionId);

}  // namespace Morvalen::Zel
