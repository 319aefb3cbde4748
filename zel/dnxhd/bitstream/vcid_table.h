#pragma once

#include <array>
#include <cstdint>

// What the format fixes for each compression id: raster, sizes, weights and codes. The readers and
// the writers of the bit stream take all they know of an id from here.

namespace zel::dnxhd {

/// One row. Texts end with a zero.
struct VCIDEntry {
  uint32_t compressionId;
  char nameText[50];
  char familyText[50];
  char rateText[50];  // "Fixed" in all rows
  uint32_t nominalMegabits;
  uint16_t width;  // as coded: thin rasters store 1440 or 960 samples a line
  uint16_t lines;  // of the frame
  uint8_t depth;   // 8 or 10
  char scanText[50];
  char ratioText[25];
  uint32_t frameBytes;
  uint32_t bitBudget;      // of macroblocks, for one frame, or one field where `singlePicture` is 0
  uint32_t singlePicture;  // 1: the frame is one picture; 0: two field pictures
  uint32_t one;
  std::array<uint32_t, 17> threes;
  std::array<uint32_t, 64> lumaWeights;  // in the order of the scan; the first, DC's, is 0
  std::array<uint32_t, 64> chromaWeights;

  // The codes. AC tables are by AcKind (without or with escape bits, then the same before a run),
  // and their entry k is the code of level k + 1. Runs and DC sizes are indices as they stand; a
  // length of 0 marks what has no code.
  uint32_t endOfBlockCode;
  uint32_t endOfBlockLength;
  std::array<std::array<uint32_t, 64>, 4> acCodes;
  std::array<std::array<uint32_t, 64>, 4> acLengths;
  std::array<uint32_t, 63> runCodes;
  std::array<uint32_t, 63> runLengths;
  std::array<uint32_t, 16> dcCodes;
  std::array<uint32_t, 16> dcLengths;
  std::array<uint32_t, 681> reserved;
};
static_assert(sizeof(VCIDEntry) == 6248);

/// The rows, in the order in which a search walks them.
extern const std::array<VCIDEntry, 29> VCIDTable;

/// The first row of the id, or null.
const VCIDEntry* FindEntry(uint32_t compressionId);

// What follows from a row's texts.
bool IsInterlaced(const VCIDEntry& entry);  // by `scanText`
bool IsRgbFamily(const VCIDEntry& entry);   // "DNx444": 4:4:4, twelve blocks a macroblock
bool IsThinRaster(const VCIDEntry& entry);  // "DNx100"

}  // namespace zel::dnxhd
