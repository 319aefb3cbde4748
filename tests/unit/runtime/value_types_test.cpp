#include "zel/runtime/value_types.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace Morvalen::Zel {

template <class Rational>
class RationalTest : public testing::Test {};
using Rationals = testing::Types<Rational16, Rational32, Rational64>;
TYPED_TEST_SUITE(RationalTest, Rationals);

TYPED_TEST(RationalTest, StartsAllZero) {
  TypeParam const rational;
  EXPECT_EQ(rational.numerator, 0);
  EXPECT_EQ(rational.denominator, 0);
  EXPECT_TRUE(std::isnan(rational.ToDouble()));
}

TYPED_TEST(RationalTest, DividesAsDoubles) {
  EXPECT_EQ(TypeParam(30000, 1001).ToDouble(), 30000.0 / 1001.0);
  EXPECT_EQ(TypeParam(-1, 4).ToDouble(), -0.25);
}

TYPED_TEST(RationalTest, ZeroDenominatorGivesAnInfinityOrNotANumber) {
  EXPECT_EQ(TypeParam(1, 0).ToDouble(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(TypeParam(-1, 0).ToDouble(), -std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(TypeParam(0, 0).ToDouble()));
}

TYPED_TEST(RationalTest, HoldsItsWidth) {
  using Value = decltype(TypeParam::numerator);
  TypeParam const rational(std::numeric_limits<Value>::min(), std::numeric_limits<Value>::max());
  EXPECT_EQ(rational.numerator, std::numeric_limits<Value>::min());
  EXPECT_EQ(rational.denominator, std::numeric_limits<Value>::max());
  EXPECT_EQ(sizeof(TypeParam), 2 * sizeof(Value));
  EXPECT_TRUE(std::is_trivially_copyable_v<TypeParam>);
}

TEST(Rational64Test, ConvertsToDouble) {
  double const value = Rational64(1, 8);
  EXPECT_EQ(value, 0.125);
}

TEST(RectangleTest, StoresFourValuesInOrder) {
  std::array<int16_t, 4> narrow;
  Rectangle16 const small(-1, 2, 3, 4);
  static_assert(sizeof(small) == sizeof(narrow));
  std::memcpy(narrow.data(), &small, sizeof(small));
  EXPECT_EQ(narrow, (std::array<int16_t, 4>{-1, 2, 3, 4}));

  std::array<int32_t, 4> wide;
  Rectangle32 const large(-1, 2, 3, 70000);
  static_assert(sizeof(large) == sizeof(wide));
  std::memcpy(wide.data(), &large, sizeof(large));
  EXPECT_EQ(wide, (std::array<int32_t, 4>{-1, 2, 3, 70000}));
}

TEST(RectangleTest, StartsAllZero) {
  Rectangle16 const small;
  EXPECT_TRUE(small.first == 0 && small.second == 0 && small.third == 0 && small.fourth == 0);
  Rectangle32 const large;
  EXPECT_TRUE(large.first == 0 && large.second == 0 && large.third == 0 && large.fourth == 0);
  Rectangle const plain;
  EXPECT_TRUE(plain.first == 0 && plain.second == 0 && plain.third == 0 && plain.fourth == 0);
}

TEST(RectangleTest, PlainOneIsAssigned) {
  Rectangle source;
  source.first = 1;
  source.second = -2;
  source.third = 3;
  source.fourth = -4;
  Rectangle target;
  target = source;
  EXPECT_EQ(std::memcmp(&target, &source, sizeof(source)), 0);
  EXPECT_EQ(sizeof(Rectangle), sizeof(Rectangle16));
}

namespace {
_Guid sampleGuid() {
  _Guid guid;
  guid.data1 = 0x01020304;
  guid.data2 = 0x0506;
  guid.data3 = 0x0708;
  for (uint8_t i = 0; i < 8; ++i) guid.data4[i] = static_cast<uint8_t>(9 + i);
  return guid;
}
}  // namespace

TEST(GuidTest, ComparesAllSixteenBytes) {
  EXPECT_EQ(sizeof(_Guid), 16u);
  for (size_t i = 0; i < sizeof(_Guid); ++i) {
    _Guid const one = sampleGuid();
    _Guid other = one;
    EXPECT_TRUE(one == other);
    EXPECT_FALSE(one != other);
    reinterpret_cast<uint8_t*>(&other)[i] ^= 0x80;
    EXPECT_FALSE(one == other) << i;
    EXPECT_TRUE(one != other) << i;
  }
}

TEST(GuidTest, SwapReversesTheFirstThreePartsOnly) {
  _Guid guid = sampleGuid();
  guid.Swap();
  EXPECT_EQ(guid.data1, 0x04030201u);
  EXPECT_EQ(guid.data2, 0x0605);
  EXPECT_EQ(guid.data3, 0x0807);
  EXPECT_EQ(std::memcmp(guid.data4, sampleGuid().data4, 8), 0);
}

TEST(GuidTest, SwapTwiceGivesTheSameBack) {
  _Guid guid = sampleGuid();
  guid.Swap();
  guid.Swap();
  EXPECT_TRUE(guid == sampleGuid());
}

}  // namespace Morvalen::Zel
