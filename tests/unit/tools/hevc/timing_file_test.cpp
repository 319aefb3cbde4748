#include "tools/zel/hevc/timing_file.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace zel::tool {
namespace {

TEST(TimingFile, RowsHaveTicksAndSeconds) {
  EXPECT_EQ(timingRow({2, 2002, 3003, 369, "reference", "TRAIL_R"}, 30000),
            "2,2002,3003,0.066733,0.100100,369,reference,TRAIL_R\n");
}

TEST(TimingFile, ReorderedPicturesMayComeBeforeTheirDecodingTime) {
  EXPECT_EQ(timingRow({3, 3, 1, 10, "disposable", "TRAIL_N"}, 25),
            "3,3,1,0.120000,0.040000,10,disposable,TRAIL_N\n");
}

TEST(TimingFile, TitlesNameEveryField) {
  const std::string titles = timingTitles();
  const std::string row = timingRow({}, 1);
  EXPECT_EQ(std::count(titles.begin(), titles.end(), ','), std::count(row.begin(), row.end(), ','));
  EXPECT_EQ(titles.back(), '\n');
}

}  // namespace
}  // namespace zel::tool
