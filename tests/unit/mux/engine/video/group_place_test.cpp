#include "zel/mux/engine/video/group_place.h"

#include <gtest/gtest.h>

#include <vector>

namespace zel::mux {
namespace {

constexpr int kCoded[] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8, 12, 10, 11};

TEST(GroupPlace, IsTheTemporalReferenceWhereNothingIsRepeated) {
  group_place place;
  for (int group = 0; group < 3; ++group) {
    place.begin_group();
    for (const int reference : kCoded) EXPECT_EQ(place.frames_before(reference, 2), reference);
  }
  place.begin_group();
  EXPECT_EQ(place.frames_before(700, 2), 700) << "pictures before it are lost";
}

TEST(GroupPlace, TwoFieldsAreOnePicture) {
  group_place place;
  place.begin_group();
  for (const int reference : kCoded) {
    EXPECT_EQ(place.frames_before(reference, 1), reference);
    EXPECT_EQ(place.frames_before(reference, 1), reference);
  }
}

TEST(GroupPlace, RepeatedFieldsAreCountedAndForeseen) {
  group_place place;
  for (int group = 0; group < 3; ++group) {
    place.begin_group();
    for (const int reference : kCoded) {
      const int fields = reference % 2 == 0 ? 3 : 2;
      const int before = 5 * (reference / 2) + 3 * (reference % 2);
      EXPECT_EQ(place.frames_before(reference, fields), before / 2) << reference;
    }
  }
}

TEST(GroupPlace, GroupsMayBeOfAnyLength) {
  group_place place;
  place.begin_group();
  for (int reference = 0; reference < 1000; ++reference) {
    EXPECT_EQ(place.frames_before(reference, 4), 2 * reference);
  }
}

}  // namespace
}  // namespace zel::mux
