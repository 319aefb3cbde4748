#include "tools/zel/hevc/access_unit.h"

#include <vector>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

// Start codes and NAL unit headers (ITU-T H.265, 7.3.1.2), a payload byte each.
std::vector<uint8_t> stream(std::initializer_list<int> nalTypes, bool longStartCode = false) {
  std::vector<uint8_t> bytes;
  for (const int type : nalTypes) {
    if (longStartCode) bytes.push_back(0);
    for (const int byte : {0, 0, 1, type << 1, 1, 0x80})
      bytes.push_back(static_cast<uint8_t>(byte));
  }
  return bytes;
}

void expectKind(const std::vector<uint8_t>& bytes, bool dependent, std::string_view type,
                std::string_view nalType) {
  const AccessUnitKind kind = accessUnitKind(bytes, dependent);
  EXPECT_EQ(kind.type, type);
  EXPECT_EQ(kind.nalType, nalType);
}

TEST(AccessUnit, RandomAccessPointsGoByTheirNalType) {
  expectKind(stream({19}), false, "IDR", "IDR_W_RADL");
  expectKind(stream({20}), false, "IDR", "IDR_N_LP");
  expectKind(stream({21}), false, "CRA", "CRA_NUT");
  expectKind(stream({16}), false, "BLA", "BLA_W_LP");
}

TEST(AccessUnit, OthersGoByTheFlagAndByWhetherAnybodyRefersToThem) {
  expectKind(stream({1}), false, "I", "TRAIL_R");
  expectKind(stream({1}), true, "reference", "TRAIL_R");
  expectKind(stream({0}), true, "disposable", "TRAIL_N");
  expectKind(stream({9}), true, "reference", "RASL_R");
  expectKind(stream({8}), true, "disposable", "RASL_N");
}

TEST(AccessUnit, ParameterSetsAndMessagesBeforeTheSliceArePassedOver) {
  expectKind(stream({35, 32, 33, 34, 39, 20}), false, "IDR", "IDR_N_LP");
  expectKind(stream({35, 39, 1, 1}, true), true, "reference", "TRAIL_R");
}

TEST(AccessUnit, WithoutASliceNothingIsClaimed) {
  expectKind({}, true, "?", "?");
  expectKind({0, 0, 1}, true, "?", "?");
  expectKind(stream({39}), true, "?", "?");
}

}  // namespace
}  // namespace zel::tool
