#include "zel/syntax/avc_levels.h"

namespace zel::syntax {

namespace {

// clang-format off
constexpr AvcLevel kLevels[] = {
//  idc  set3   MaxMBPS   MaxFS   DpbMbs  MaxBR   MaxCPB
    {10, false,     1485,     99,    396,     64,    175},
    {11, true,      1485,     99,    396,    128,    350},
    { 9, false,     1485,     99,    396,    128,    350},
    {11, false,     3000,    396,    900,    192,    500},
    {12, false,     6000,    396,   2376,    384,   1000},
    {13, false,    11880,    396,   2376,    768,   2000},
    {20, false,    11880,    396,   2376,   2000,   2000},
    {21, false,    19800,    792,   4752,   4000,   4000},
    {22, false,    20250,   1620,   8100,   4000,   4000},
    {30, false,    40500,   1620,   8100,  10000,  10000},
    {31, false,   108000,   3600,  18000,  14000,  14000},
    {32, false,   216000,   5120,  20480,  20000,  20000},
    {40, false,   245760,   8192,  32768,  20000,  25000},
    {41, false,   245760,   8192,  32768,  50000,  62500},
    {42, false,   522240,   8704,  34816,  50000,  62500},
    {50, false,   589824,  22080, 110400, 135000, 135000},
    {51, false,   983040,  36864, 184320, 240000, 240000},
    {52, false,  2073600,  36864, 184320, 240000, 240000},
    {60, false,  4177920, 139264, 696320, 240000, 240000},
    {61, false,  8355840, 139264, 696320, 480000, 480000},
    {62, false, 16711680, 139264, 696320, 800000, 800000},
};

constexpr AvcProfileFactors kFactors[] = {
    { 66, 1000, 1200}, { 77, 1000, 1200}, { 88, 1000, 1200}, {100, 1250, 1500},
    {110, 3000, 3600}, {122, 4000, 4800}, {244, 4000, 4800}, { 44, 4000, 4800},
    { 83, 1000, 1200}, { 86, 1250, 1500}, {118, 1250, 1500}, {128, 1250, 1500},
    {134, 1250, 1500}, {138, 1250, 1500},
};
// clang-format on

}  // namespace

const AvcLevel* findAvcLevel(uint8_t levelIdc, bool constraintSet3) {
  for (const AvcLevel& level : kLevels) {
    if (level.levelIdc != levelIdc) continue;
    if (levelIdc != 11 || level.constraintSet3 == constraintSet3) return &level;
  }
  return nullptr;
}

AvcProfileFactors avcProfileFactors(uint8_t profileIdc) {
  for (const AvcProfileFactors& factors : kFactors) {
    if (factors.profileIdc == profileIdc) return factors;
  }
  return kFactors[0];
}

}  // namespace zel::syntax
