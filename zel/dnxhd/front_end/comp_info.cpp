#include "zel/dnxhd/front_end/comp_info.h"

#include <cstddef>
#include <string_view>

namespace Morvalen::Zel {

namespace {

struct Facts {
  uint32_t id;
  std::string_view name;
  std::string_view family;
  uint32_t fields;
  uint32_t width;
  uint32_t lines;
  uint32_t bitRate;
  uint32_t ratio;
  uint32_t frameBytes;
  uint32_t firstActiveLine1;
  uint32_t firstActiveLine2;
  uint32_t lineClass;
  uint32_t rasterWidth;
};

// The ids of 10-bit pictures.
constexpr std::array<uint32_t, 5> kTenBitIds = {1235, 1241, 1250, 1256, 1257};

constexpr bool IsTenBit(uint32_t id) {
  for (const uint32_t tenBitId : kTenBitIds) {
    if (tenBitId == id) return true;
  }
  return false;
}

template <size_t Size>
constexpr void CopyText(char (&out)[Size], std::string_view text) {
  for (size_t i = 0; i < text.size(); ++i) out[i] = text[i];
}

constexpr CompInfo MakeRow(const Facts& facts) {
  const bool is444 = facts.family == "DNx444";
  CompInfo row{};
  row.compressionId = facts.id;
  CopyText(row.name, facts.name);
  row.fieldsPerFrame = facts.fields;
  row.width = facts.width;
  row.lines = facts.lines;
  row.one = 1;
  CopyText(row.family, facts.family);
  row.bitRate = facts.bitRate;
  row.ratio = facts.ratio;
  row.frameBytes = facts.frameBytes;
  row.flag1 = 1;
  row.scanFields = facts.fields;
  row.firstActiveLine1 = facts.firstActiveLine1;
  row.firstActiveLine2 = facts.firstActiveLine2;
  row.lineClass = facts.lineClass;
  row.two = 2;
  row.colorClass = is444 ? kColorClass444 : kColorClassYCbCr422;
  row.ones[0] = 1;
  row.ones[1] = 1;
  row.depthClass = IsTenBit(facts.id) ? 2 : 1;
  row.one2 = 1;
  row.componentWord = is444 ? 2 : 8;
  row.planeClass = is444 ? 2 : 1;
  row.lines2 = facts.lines;
  row.width2 = facts.width;
  row.two2 = 2;
  row.maxValue = 2147483647;
  row.thirtyTwo = 32;
  row.rasterWidth = facts.rasterWidth;
  row.rasterLines = facts.lines;
  return row;
}

// clang-format off
constexpr std::array<CompInfo, 17> kRows = {{
    // id, name, family, fields, width, lines, bit rate, ratio, frame bytes, first active lines,
    // line class, raster width
    MakeRow({1235, "DNxHD", "DNxHD", 1, 1920, 1080, 220000000, 6, 917504, 42, 0, 64, 1920}),
    MakeRow({1237, "DNxHD", "DNxHD", 1, 1920, 1080, 145000000, 7, 606208, 42, 0, 64, 1920}),
    MakeRow({1238, "DNxHD", "DNxHD", 1, 1920, 1080, 220000000, 4, 917504, 42, 0, 64, 1920}),
    MakeRow({1250, "DNxHD", "DNxHD", 1, 1280, 720, 220000000, 5, 458752, 26, 0, 128, 1280}),
    MakeRow({1251, "DNxHD", "DNxHD", 1, 1280, 720, 220000000, 4, 458752, 26, 0, 128, 1280}),
    MakeRow({1252, "DNxHD", "DNxHD", 1, 1280, 720, 145000000, 6, 303104, 26, 0, 128, 1280}),
    MakeRow({1241, "DNxHD", "DNxHD", 2, 1920, 540, 220000000, 6, 917504, 21, 584, 32, 1920}),
    MakeRow({1242, "DNxHD", "DNxHD", 2, 1920, 540, 145000000, 7, 606208, 21, 584, 32, 1920}),
    MakeRow({1243, "DNxHD", "DNxHD", 2, 1920, 540, 220000000, 4, 917504, 21, 584, 32, 1920}),
    MakeRow({1244, "DNxHD-TR", "DNxHD", 2, 1920, 540, 145000000, 7, 606208, 21, 584, 32, 1440}),
    MakeRow({1253, "DNxHD", "DNxHD", 1, 1920, 1080, 36000000, 22, 188416, 42, 0, 64, 1920}),
    MakeRow({1254, "DNxHD", "DNxHD", 2, 1920, 540, 50000000, 7, 218592, 21, 584, 32, 1920}),
    MakeRow({1256, "DNxHD 444", "DNx444", 1, 1920, 1080, 440000000, 3, 1835008, 42, 0, 64, 1920}),
    MakeRow({1257, "DNxHD 444", "DNx444", 2, 1920, 540, 440000000, 3, 1835008, 21, 584, 32, 1920}),
    MakeRow({1258, "DNxHD", "DNx100", 1, 1280, 720, 100000000, 6, 212992, 26, 0, 128, 960}),
    MakeRow({1259, "DNxHD", "DNx100", 1, 1920, 1080, 100000000, 7, 417792, 42, 0, 64, 1440}),
    MakeRow({1260, "DNxHD", "DNx100", 2, 1920, 540, 100000000, 7, 417792, 21, 584, 32, 1440}),
}};
// clang-format on

}  // namespace

constinit const std::array<CompInfo, 17> kCompInfos = kRows;

const CompInfo* FindCompInfo(uint32_t compressionId) {
  for (const CompInfo& row : kCompInfos) {
    if (row.compressionId == compressionId) return &row;
  }
  return nullptr;
}

}  // namespace Morvalen::Zel
