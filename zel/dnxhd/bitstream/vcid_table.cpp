#include "zel/dnxhd/bitstream/vcid_table.h"

#include <cstddef>
#include <string_view>

#include "zel/dnxhd/tables/ac_codes.h"
#include "zel/dnxhd/tables/dc_codes.h"
#include "zel/dnxhd/tables/run_codes.h"
#include "zel/dnxhd/tables/weights.h"

namespace zel::dnxhd {

namespace {

struct Facts {
  uint32_t id;
  std::string_view name;
  std::string_view family;
  uint32_t nominalMegabits;
  uint16_t width;
  uint16_t lines;
  uint8_t depth;
  std::string_view scan;
  std::string_view ratio;
  uint32_t frameBytes;
  uint32_t bitBudget;
  uint32_t singlePicture;
};

template <size_t DcSizes>
struct Codes {
  const Weights& luma;
  const Weights& chroma;
  const AcCodes& ac;
  const RunCodes& run;
  const std::array<DcCode, DcSizes>& dc;
};

template <size_t Size>
constexpr void CopyText(char (&out)[Size], std::string_view text) {
  static_assert(Size > 0);
  for (size_t i = 0; i < text.size(); ++i)
    out[i] = text[i];  // a text that's too long won't compile
}

template <size_t DcSizes>
constexpr VCIDEntry MakeEntry(const Facts& facts, const Codes<DcSizes>& codes) {
  VCIDEntry entry{};
  entry.compressionId = facts.id;
  CopyText(entry.nameText, facts.name);
  CopyText(entry.familyText, facts.family);
  CopyText(entry.rateText, "Fixed");
  entry.nominalMegabits = facts.nominalMegabits;
  entry.width = facts.width;
  entry.lines = facts.lines;
  entry.depth = facts.depth;
  CopyText(entry.scanText, facts.scan);
  CopyText(entry.ratioText, facts.ratio);
  entry.frameBytes = facts.frameBytes;
  entry.bitBudget = facts.bitBudget;
  entry.singlePicture = facts.singlePicture;
  entry.one = 1;
  for (uint32_t& word : entry.threes) word = 3;
  for (size_t k = 0; k < 64; ++k) {
    entry.lumaWeights[k] = codes.luma[k];
    entry.chromaWeights[k] = codes.chroma[k];
  }
  for (const AcCode& code : codes.ac) {
    if (code.kind == kEndOfBlock) {
      entry.endOfBlockCode = code.code;
      entry.endOfBlockLength = code.length;
      continue;
    }
    const size_t level = size_t{code.level} - 1;
    entry.acCodes[code.kind][level] = code.code;
    entry.acLengths[code.kind][level] = code.length;
  }
  for (const RunCode& code : codes.run) {
    entry.runCodes[code.run] = code.code;
    entry.runLengths[code.run] = code.length;
  }
  for (size_t size = 0; size < DcSizes; ++size) {
    entry.dcCodes[size] = codes.dc[size].code;
    entry.dcLengths[size] = codes.dc[size].length;
  }
  return entry;
}

// Rows that the standard doesn't publish (all with "dbg" or "DBG" in the name, 1254 and 1257) take
// the tables of the published id that is nearest by depth, scan and bits a macroblock.
// clang-format off
constexpr std::array<VCIDEntry, 29> kEntries = {{
    // id, name, family, Mbit/s, width, lines, depth, scan, ratio, frame bytes, bit budget, one picture;
    // luma weights, chroma weights, AC, run and DC codes
    MakeEntry({1233, "9:1x-dbg", "Avid_HD", 145, 1920, 1080, 10, "Interlaced", "8.55:1", 606208, 4720762, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1234, "6:1x-dbg", "Avid_HD", 220, 1920, 1080, 10, "Interlaced", "5.65:1", 917504, 7198678, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1236, "9:1x-dbg", "Avid_HD", 145, 1920, 1080, 10, "Progressive", "8.55:1", 606208, 4720762, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1235, "6:1x", "Avid_HD", 220, 1920, 1080, 10, "Progressive", "5.65:1", 917504, 7198678, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1239, "7:1-dbg", "Avid_HD", 145, 1920, 1080, 8, "Interlaced", "6.84:1", 606208, 4720762, 1},
              Codes<12>{kLumaWeights1237, kChromaWeights1237, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1240, "4:1-dbg", "Avid_HD", 220, 1920, 1080, 8, "Interlaced", "4.52:1", 917504, 7198678, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({1237, "7:1", "Avid_HD", 145, 1920, 1080, 8, "Progressive", "6.84:1", 606208, 4720762, 1},
              Codes<12>{kLumaWeights1237, kChromaWeights1237, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1238, "4:1", "Avid_HD", 220, 1920, 1080, 8, "Progressive", "4.52:1", 917504, 7198678, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({1252, "6:1", "Avid_HD", 145, 1280, 720, 8, "Progressive", "6.10:1", 303104, 2363210, 1},
              Codes<12>{kLumaWeights1252, kChromaWeights1252, kAcCodes1252, kRunCodes1250, kDcCodes1237}),
    MakeEntry({1251, "4:1", "Avid_HD", 220, 1280, 720, 8, "Progressive", "4.02:1", 458752, 3602168, 1},
              Codes<12>{kLumaWeights1251, kChromaWeights1251, kAcCodes1251, kRunCodes1250, kDcCodes1237}),
    MakeEntry({1250, "5:1x", "Avid_HD", 220, 1280, 720, 10, "Progressive", "5.02:1", 458752, 3602168, 1},
              Codes<14>{kLumaWeights1250, kChromaWeights1250, kAcCodes1250, kRunCodes1250, kDcCodes1235}),
    MakeEntry({32768, "AHD-DBG-1", "Avid_HD", 0, 64, 32, 8, "Interlaced", "1:1", 4096, 26387, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({32769, "AHD-DBG-2", "Avid_HD", 3, 128, 128, 8, "Interlaced", "2:1", 16384, 119593, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({32770, "AHD-DBG-3", "Avid_HD", 18, 480, 320, 8, "Interlaced", "4:1", 77824, 586173, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({32771, "AHD-DBG-4", "Avid_HD", 0, 64, 32, 10, "Interlaced", "1:1", 4096, 26387, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({32772, "AHD-DBG-5", "Avid_HD", 3, 128, 128, 10, "Interlaced", "2:1", 16384, 119593, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({32773, "AHD-DBG-6", "Avid_HD", 18, 480, 320, 10, "Interlaced", "4:1", 77824, 586173, 1},
              Codes<14>{kLumaWeights1235, kChromaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({36864, "AHD-DBG-3", "Avid_HD", 18, 720, 512, 8, "Interlaced", "4:1", 208896, 1587609, 1},
              Codes<12>{kLumaWeights1238, kChromaWeights1238, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({1241, "6:1x", "Avid_HD", 220, 1920, 1080, 10, "Interlaced", "5.65:1", 917504, 3596776, 0},
              Codes<14>{kLumaWeights1241, kChromaWeights1241, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1242, "7:1", "Avid_HD", 145, 1920, 1080, 8, "Interlaced", "6.84:1", 606208, 2357818, 0},
              Codes<12>{kLumaWeights1242, kChromaWeights1242, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1243, "4:1", "Avid_HD", 220, 1920, 1080, 8, "Interlaced", "4.52:1", 917504, 3596776, 0},
              Codes<12>{kLumaWeights1243, kChromaWeights1243, kAcCodes1238, kRunCodes1238, kDcCodes1237}),
    MakeEntry({1244, "7:1", "Avid_HD", 145, 1440, 1080, 8, "Interlaced", "6.84:1", 606208, 2357818, 0},
              Codes<12>{kLumaWeights1260, kChromaWeights1260, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1253, "22:1", "Avid_HD", 36, 1920, 1080, 8, "Progressive", "22.01:1", 188416, 1395137, 1},
              Codes<12>{kLumaWeights1237, kChromaWeights1237, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1254, "19:1", "Avid_HD", 50, 1920, 1080, 8, "Interlaced", "18.97:1", 218592, 815106, 0},
              Codes<12>{kLumaWeights1242, kChromaWeights1242, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1256, "3:1x", "DNx444", 440, 1920, 1080, 10, "Progressive", "5.65:1", 1835008, 14397356, 1},
              Codes<14>{kLumaWeights1235, kLumaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1257, "3:1x", "DNx444", 440, 1920, 1080, 10, "Interlaced", "5.65:1", 1835008, 7193552, 0},
              Codes<14>{kLumaWeights1235, kLumaWeights1235, kAcCodes1235, kRunCodes1235, kDcCodes1235}),
    MakeEntry({1258, "6:1", "DNx100", 100, 960, 720, 8, "Progressive", "6.10:1", 212992, 1656314, 1},
              Codes<12>{kLumaWeights1252, kChromaWeights1252, kAcCodes1252, kRunCodes1250, kDcCodes1237}),
    MakeEntry({1259, "7:1", "DNx100", 100, 1440, 1080, 8, "Progressive", "6.84:1", 417792, 3253754, 1},
              Codes<12>{kLumaWeights1237, kChromaWeights1237, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
    MakeEntry({1260, "7:1", "DNx100", 100, 1440, 1080, 8, "Interlaced", "6.84:1", 417792, 3253754, 1},
              Codes<12>{kLumaWeights1260, kChromaWeights1260, kAcCodes1237, kRunCodes1237, kDcCodes1237}),
}};
// clang-format on

}  // namespace

constinit const std::array<VCIDEntry, 29> VCIDTable = kEntries;

const VCIDEntry* FindEntry(uint32_t compressionId) {
  for (const VCIDEntry& entry : VCIDTable) {
    if (entry.compressionId == compressionId) return &entry;
  }
  return nullptr;
}

bool IsInterlaced(const VCIDEntry& entry) {
  return entry.scanText == std::string_view("Interlaced");
}

bool IsRgbFamily(const VCIDEntry& entry) {
  return entry.familyText == std::string_view("DNx444");
}

bool IsThinRaster(const VCIDEntry& entry) {
  return entry.familyText == std::string_view("DNx100");
}

}  // namespace zel::dnxhd
