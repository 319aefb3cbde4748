#include "zel/mux/message_values.h"

#include <gtest/gtest.h>

#include <limits>

namespace Morvalen::Zel {
namespace {

constexpr std::string_view kWarning =
    "Warning: packet = 4711, PID = 0x0021, time = 3.20s\nVideo decoder underflow by 815 bytes.\n";

TEST(MessageValues, StandBehindTheirLabels) {
  EXPECT_EQ(IntegerBehind(kWarning, "Warning: packet = "), 4711);
  EXPECT_EQ(HexadecimalBehind(kWarning, "PID = "), 0x21);
  EXPECT_EQ(DecimalBehind(kWarning, "time = "), 3.2);
  EXPECT_EQ(IntegerBehind(kWarning, "underflow by "), 815);
}

TEST(MessageValues, NeedTheLabelAndADigit) {
  EXPECT_EQ(IntegerBehind(kWarning, "overflow by "), std::nullopt);
  EXPECT_EQ(IntegerBehind("", "x"), std::nullopt);
  EXPECT_EQ(IntegerBehind("by bytes", "by "), std::nullopt);
  EXPECT_EQ(IntegerBehind("by -3 bytes", "by "), std::nullopt);
  EXPECT_EQ(HexadecimalBehind("PID = 33", "PID = "), std::nullopt);
  EXPECT_EQ(HexadecimalBehind("PID = 0x", "PID = "), std::nullopt);
  EXPECT_EQ(DecimalBehind("time = .s", "time = "), std::nullopt);
  EXPECT_EQ(DecimalBehind("time = ", "time = "), std::nullopt);
}

TEST(MessageValues, EndAtTheFirstOtherCharacter) {
  EXPECT_EQ(IntegerBehind("n=12.5", "n="), 12);
  EXPECT_EQ(DecimalBehind("t=1.5e3", "t="), 1.5);
  EXPECT_EQ(HexadecimalBehind("p=0x1FFFg", "p="), 0x1FFF);
}

TEST(MessageValues, ThatDontFitAreTheLargest) {
  EXPECT_EQ(IntegerBehind("n=99999999999999999999", "n="), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(IntegerBehind("n=2147483648", "n="), std::numeric_limits<int32_t>::max());
}

}  // namespace
}  // namespace Morvalen::Zel
