#include "zel/mux/etv_track.h"

#include <gtest/gtest.h>

#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

TEST(EtvTrack, NamesItsTableByPathAndPid) {
  RObject<CEtvTrack> track(new CEtvTrack);
  unsigned char const descriptors[] = {5, 2, 7, 9};
  EXPECT_EQ(track->Init("source.ts", "/media/out", 512, descriptors, 4), 0);
  EXPECT_STREQ(track->GetSrcPath()->GetChars(), "source.ts");
  EXPECT_STREQ(track->GetTablePath()->GetChars(), "/media/out.512.table");
  EXPECT_EQ(track->GetPid(), 512);
  ASSERT_EQ(track->GetDescriptorsLength(), 4);
  EXPECT_EQ(track->GetDescriptors()[3], 9);
  EXPECT_NE(track->GetDescriptors(), descriptors);
}

TEST(EtvTrack, HasNoRateUntilItIsMeasured) {
  RObject<CEtvTrack> track(new CEtvTrack);
  EXPECT_EQ(track->GetBitRate(), 0);
  track->SetBitRate(40000);
  EXPECT_EQ(track->GetBitRate(), 40000);
}

TEST(EtvTrack, NeedsNoDescriptors) {
  RObject<CEtvTrack> track(new CEtvTrack);
  EXPECT_EQ(track->Init("a", "b", 1, nullptr, 0), 0);
  EXPECT_EQ(track->GetDescriptors(), nullptr);
  EXPECT_EQ(track->GetDescriptorsLength(), 0);
}

TEST(EtvTrack, RefusesWhatIsMissing) {
  RObject<CEtvTrack> track(new CEtvTrack);
  EXPECT_EQ(track->Init(nullptr, "b", 1, nullptr, 0), ZelErrorNullArgument);
  EXPECT_EQ(track->Init("a", nullptr, 1, nullptr, 0), ZelErrorNullArgument);
  EXPECT_EQ(track->Init("a", "b", 1, nullptr, -1), ZelErrorInvalidArgument);
}

}  // namespace
}  // namespace Morvalen::Zel
