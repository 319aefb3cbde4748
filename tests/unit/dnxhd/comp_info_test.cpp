#include "zel/dnxhd/front_end/comp_info.h"

#include <gtest/gtest.h>

#include "zel/dnxhd/bitstream/vcid_table.h"

namespace Morvalen::Zel {
namespace {

using zel::dnxhd::FindEntry;
using zel::dnxhd::VCIDEntry;

TEST(CompInfo, RowsAgreeWithTheBitStreamsTable) {
  for (const CompInfo& row : kCompInfos) {
    const VCIDEntry* entry = FindEntry(row.compressionId);
    ASSERT_NE(entry, nullptr) << row.compressionId;
    EXPECT_EQ(row.frameBytes, entry->frameBytes) << row.compressionId;
    EXPECT_EQ(row.rasterWidth, entry->width) << row.compressionId;
    EXPECT_EQ(row.lines * row.fieldsPerFrame, entry->lines) << row.compressionId;
    EXPECT_EQ(row.depthClass == 2, entry->depth == 10) << row.compressionId;
    EXPECT_EQ(row.colorClass == kColorClass444, zel::dnxhd::IsRgbFamily(*entry))
        << row.compressionId;
    EXPECT_EQ(row.fieldsPerFrame == 2, zel::dnxhd::IsInterlaced(*entry)) << row.compressionId;
    EXPECT_EQ(row.maxValue, 2147483647u);
    EXPECT_EQ(row.thirtyTwo, 32u);
  }
}

TEST(CompInfo, RowOf1244) {
  const CompInfo* row = FindCompInfo(1244);
  ASSERT_NE(row, nullptr);
  EXPECT_STREQ(row->name, "DNxHD-TR");
  EXPECT_STREQ(row->family, "DNxHD");
  EXPECT_EQ(row->bitRate, 145000000u);
  EXPECT_EQ(row->firstActiveLine1, 21u);
  EXPECT_EQ(row->firstActiveLine2, 584u);
  EXPECT_EQ(row->lineClass, 32u);
  EXPECT_EQ(row->width, 1920u);
  EXPECT_EQ(row->rasterWidth, 1440u);
}

TEST(CompInfo, Rows444HaveTheirOwnClasses) {
  EXPECT_EQ(FindCompInfo(1256)->componentWord, 2u);
  EXPECT_EQ(FindCompInfo(1257)->planeClass, 2u);
  EXPECT_EQ(FindCompInfo(1235)->componentWord, 8u);
  EXPECT_EQ(FindCompInfo(1235)->planeClass, 1u);
}

TEST(CompInfo, TestRowsOfTheBitStreamAreNotCoded) {
  EXPECT_EQ(FindCompInfo(1233), nullptr);
  EXPECT_EQ(FindCompInfo(0), nullptr);
}

}  // namespace
}  // namespace Morvalen::Zel
