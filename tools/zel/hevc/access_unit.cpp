#include "tools/zel/hevc/access_unit.h"

#include <array>
#include <optional>

namespace zel::tool {
namespace {

constexpr int kSliceTypes = 32;  // nal_unit_type below 32 are slices: ITU-T H.265, 7.4.2.2

// ITU-T H.265, Table 7-1.
constexpr std::array<std::string_view, kSliceTypes> kNalTypes = {
    "TRAIL_N",     "TRAIL_R",     "TSA_N",       "TSA_R",       "STSA_N",      "STSA_R",
    "RADL_N",      "RADL_R",      "RASL_N",      "RASL_R",      "RSV_VCL_N10", "RSV_VCL_R11",
    "RSV_VCL_N12", "RSV_VCL_R13", "RSV_VCL_N14", "RSV_VCL_R15", "BLA_W_LP",    "BLA_W_RADL",
    "BLA_N_LP",    "IDR_W_RADL",  "IDR_N_LP",    "CRA_NUT",     "RSV_IRAP_22", "RSV_IRAP_23",
    "RSV_VCL_24",  "RSV_VCL_25",  "RSV_VCL_26",  "RSV_VCL_27",  "RSV_VCL_28",  "RSV_VCL_29",
    "RSV_VCL_30",  "RSV_VCL_31"};

std::string_view randomAccessName(int nalType) {
  if (nalType >= 16 && nalType <= 18) return "BLA";
  if (nalType == 19 || nalType == 20) return "IDR";
  if (nalType == 21) return "CRA";
  return {};
}

// Below 16, even types are of pictures that no other of their sub-layer refers to.
bool isDisposable(int nalType) {
  return nalType < 16 && nalType % 2 == 0;
}

// The type of the first slice. Inside a NAL unit, emulation prevention keeps start codes away
// (7.4.2), so the three bytes are always one.
std::optional<int> firstSliceType(std::span<const uint8_t> bytes) {
  for (size_t i = 0; i + 3 < bytes.size(); ++i) {
    if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
    const int nalType = bytes[i + 3] >> 1 & 0x3F;
    if (nalType < kSliceTypes) return nalType;
  }
  return std::nullopt;
}

}  // namespace

AccessUnitKind accessUnitKind(std::span<const uint8_t> bytes, bool dependent) {
  const std::optional<int> nalType = firstSliceType(bytes);
  if (!nalType) return {"?", "?"};
  const std::string_view name = kNalTypes[static_cast<size_t>(*nalType)];
  if (const std::string_view random = randomAccessName(*nalType); !random.empty())
    return {random, name};
  if (!dependent) return {"I", name};
  return {isDisposable(*nalType) ? "disposable" : "reference", name};
}

}  // namespace zel::tool
