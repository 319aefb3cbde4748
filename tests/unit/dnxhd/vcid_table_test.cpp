#include "zel/dnxhd/bitstream/vcid_table.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::dnxhd {
namespace {

TEST(VcidTable, EveryIdIsFoundOnceAndInItsRow) {
  std::set<uint32_t> ids;
  for (const VCIDEntry& entry : VCIDTable) {
    ids.insert(entry.compressionId);
    EXPECT_EQ(FindEntry(entry.compressionId), &entry);
  }
  EXPECT_EQ(ids.size(), 29u);
  EXPECT_EQ(FindEntry(1255), nullptr);
  EXPECT_EQ(FindEntry(1270), nullptr);
  EXPECT_EQ(FindEntry(0), nullptr);
}

TEST(VcidTable, RowsStandInTheOrderOfTheSearch) {
  EXPECT_EQ(VCIDTable[0].compressionId, 1233u);
  EXPECT_EQ(VCIDTable[2].compressionId, 1236u);
  EXPECT_EQ(VCIDTable[3].compressionId, 1235u);
  EXPECT_EQ(VCIDTable[17].compressionId, 36864u);
  EXPECT_EQ(VCIDTable[28].compressionId, 1260u);
}

TEST(VcidTable, RowOf1241) {
  const VCIDEntry& entry = *FindEntry(1241);
  EXPECT_STREQ(entry.nameText, "6:1x");
  EXPECT_STREQ(entry.familyText, "Avid_HD");
  EXPECT_STREQ(entry.rateText, "Fixed");
  EXPECT_EQ(entry.nominalMegabits, 220u);
  EXPECT_EQ(entry.width, 1920);
  EXPECT_EQ(entry.lines, 1080);
  EXPECT_EQ(entry.depth, 10);
  EXPECT_STREQ(entry.scanText, "Interlaced");
  EXPECT_STREQ(entry.ratioText, "5.65:1");
  EXPECT_EQ(entry.frameBytes, 917504u);
  EXPECT_EQ(entry.bitBudget, 3596776u);
  EXPECT_EQ(entry.singlePicture, 0u);
  EXPECT_EQ(entry.one, 1u);
  for (const uint32_t word : entry.threes) EXPECT_EQ(word, 3u);
  EXPECT_EQ(entry.endOfBlockLength, 4u);
}

TEST(VcidTable, TextsAndModesAgree) {
  for (const VCIDEntry& entry : VCIDTable) {
    EXPECT_EQ(IsInterlaced(entry), std::string(entry.scanText) == "Interlaced");
    EXPECT_TRUE(IsInterlaced(entry) || std::string(entry.scanText) == "Progressive");
    const bool rgb = entry.compressionId == 1256 || entry.compressionId == 1257;
    const bool thin = entry.compressionId >= 1258 && entry.compressionId <= 1260;
    EXPECT_EQ(IsRgbFamily(entry), rgb) << entry.compressionId;
    EXPECT_EQ(IsThinRaster(entry), thin) << entry.compressionId;
    EXPECT_EQ(HasFieldFlag(entry), entry.compressionId == 1260) << entry.compressionId;
  }
}

TEST(VcidTable, EveryRowHasWholeCodes) {
  for (const VCIDEntry& entry : VCIDTable) {
    uint64_t covered = uint64_t{1} << (16 - entry.endOfBlockLength);
    for (const auto& lengths : entry.acLengths) {
      for (const uint32_t length : lengths) covered += uint64_t{1} << (16 - length);
    }
    EXPECT_EQ(covered, 65536u) << entry.compressionId;
    covered = 0;
    EXPECT_EQ(entry.runLengths[0], 0u);
    for (size_t run = 1; run < 63; ++run) covered += uint64_t{1} << (16 - entry.runLengths[run]);
    EXPECT_EQ(covered, 65536u) << entry.compressionId;
    covered = 0;
    for (const uint32_t length : entry.dcLengths) {
      if (length != 0) covered += uint64_t{1} << (16 - length);
    }
    EXPECT_EQ(covered, 65536u) << entry.compressionId;
    // Sizes reach the widest difference of the depth.
    EXPECT_EQ(entry.dcLengths[entry.depth == 10 ? 13 : 11] != 0, true);
    EXPECT_EQ(entry.dcLengths[entry.depth == 10 ? 14 : 12], 0u);
  }
}

TEST(VcidTable, BudgetsLeaveRoomForHeaderPaddingAndMark) {
  for (const VCIDEntry& entry : VCIDTable) {
    const PictureGeometry geometry = GeometryOf(entry);
    EXPECT_LE(kHeaderBytes + entry.bitBudget / 8 + kEndMark.size(), geometry.pictureBytes)
        << entry.compressionId;
  }
}

TEST(VcidTable, GeometryFollowsFromTheRow) {
  const PictureGeometry frame = GeometryOf(*FindEntry(1237));
  EXPECT_EQ(frame.pictures, 1u);
  EXPECT_EQ(frame.mbRows, 68u);
  EXPECT_EQ(frame.mbCols, 120u);
  EXPECT_EQ(frame.bottomPad, 8u);
  EXPECT_EQ(frame.pictureBytes, 606208u);
  const PictureGeometry field = GeometryOf(*FindEntry(1244));
  EXPECT_EQ(field.pictures, 2u);
  EXPECT_EQ(field.lines, 540u);
  EXPECT_EQ(field.mbRows, 34u);
  EXPECT_EQ(field.mbCols, 90u);
  EXPECT_EQ(field.bottomPad, 4u);
  EXPECT_EQ(field.pictureBytes, 303104u);
  EXPECT_EQ(GeometryOf(*FindEntry(1252)).mbRows, 45u);
  EXPECT_EQ(GeometryOf(*FindEntry(1252)).bottomPad, 0u);
}

}  // namespace
}  // namespace zel::dnxhd
