#include "zel/syntax/hevc_levels.h"

namespace zel::syntax {

namespace {

// clang-format off
constexpr HevcLevel kLevels[] = {
//  idc  MaxLumaPs  CPB main    high   MaxLumaSr    BR main    high
    { 30,    36864,      350,      0,     552960,      128,      0},
    { 60,   122880,     1500,      0,    3686400,     1500,      0},
    { 63,   245760,     3000,      0,    7372800,     3000,      0},
    { 90,   552960,     6000,      0,   16588800,     6000,      0},
    { 93,   983040,    10000,      0,   33177600,    10000,      0},
    {120,  2228224,    12000,  30000,   66846720,    12000,  30000},
    {123,  2228224,    20000,  50000,  133693440,    20000,  50000},
    {150,  8912896,    25000, 100000,  267386880,    25000, 100000},
    {153,  8912896,    40000, 160000,  534773760,    40000, 160000},
    {156,  8912896,    60000, 240000, 1069547520,    60000, 240000},
    {180, 35651584,    60000, 240000, 1069547520,    60000, 240000},
    {183, 35651584,   120000, 480000, 2139095040,   120000, 480000},
    {186, 35651584,   240000, 800000, 4278190080,   240000, 800000},
};
// clang-format on

}  // namespace

const HevcLevel* findHevcLevel(uint8_t levelIdc) {
  for (const HevcLevel& level : kLevels) {
    if (level.levelIdc == levelIdc) return &level;
  }
  return nullptr;
}

}  // namespace zel::syntax
