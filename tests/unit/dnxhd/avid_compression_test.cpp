#include "zel/dnxhd/front_end/avid_compression.h"

#include <gtest/gtest.h>

#include "zel/runtime/video_format.h"

namespace Morvalen::Zel {
namespace {

TEST(AvidCompression, TableHas61RowsAndAnEnd) {
  unsigned int rows = 0;
  while (AvidCompression::identifiers[rows].id != 0) ++rows;
  EXPECT_EQ(rows, 61u);
  EXPECT_EQ(AvidCompression::identifiers[61].detail, nullptr);
  EXPECT_EQ(AvidCompression::identifiers[0].id, 75u);
  EXPECT_EQ(AvidCompression::identifiers[60].id, 3427u);
}

TEST(AvidCompression, LookUpsGiveTheRow) {
  EXPECT_EQ(AvidCompression::GetFormat(1235), VideoFormat::DNxHD);
  EXPECT_EQ(AvidCompression::GetEquivalentFormat(1235), VideoFormat::DNxHD_10HQ);
  EXPECT_STREQ(AvidCompression::GetDetail(1235), "HQ 10-bit 1080p");
  EXPECT_EQ(AvidCompression::GetFormat(160), VideoFormat::AvidIMX);
  EXPECT_EQ(AvidCompression::GetEquivalentFormat(3427), VideoFormat::AVCIntraVBR);
}

TEST(AvidCompression, UnknownIdsGiveNothing) {
  EXPECT_EQ(AvidCompression::GetFormat(0), 0u);
  EXPECT_EQ(AvidCompression::GetEquivalentFormat(0), 0u);
  EXPECT_EQ(AvidCompression::GetDetail(0), nullptr);
  EXPECT_EQ(AvidCompression::GetDetail(1239), nullptr);
}

TEST(AvidCompression, OddPairsStay) {
  EXPECT_STREQ(AvidCompression::GetDetail(144), "DVC 25 Progressive");
  EXPECT_EQ(AvidCompression::GetEquivalentFormat(144), VideoFormat::DVCPRO50);
  EXPECT_STREQ(AvidCompression::GetDetail(3409), "Class 50 1080p24");
  EXPECT_EQ(AvidCompression::GetEquivalentFormat(3409), VideoFormat::AVCIntra50_1080p30);
}

}  // namespace
}  // namespace Morvalen::Zel
