#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/seed.h"
#include "tests/unit/runtime/taken_string.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

// ---- Numbers

TEST(StringNumbers, ToIntHonoursPrefixes) {
  EXPECT_EQ(String("42")->ToInt(), 42);
  EXPECT_EQ(String("-42")->ToInt(), -42);
  EXPECT_EQ(String("0x2A")->ToInt(), 42);
  EXPECT_EQ(String("052")->ToInt(), 42);
  EXPECT_EQ(String("  +42 apples")->ToInt(), 42);
}

TEST(StringNumbers, TextWithoutDigitsIsZero) {
  EXPECT_EQ(String("")->ToInt(), 0);
  EXPECT_EQ(String("apples")->ToInt(), 0);
  EXPECT_EQ(String("-")->ToInt64(), 0);
  EXPECT_EQ(String("apples")->ToDouble(), 0.0);
  EXPECT_EQ(String(new CString)->ToInt64(), 0);
}

TEST(StringNumbers, ToIntStopsAtItsLimits) {
  EXPECT_EQ(String("2147483647")->ToInt(), 2147483647);
  EXPECT_EQ(String("2147483648")->ToInt(), 2147483647);
  EXPECT_EQ(String("99999999999999999999")->ToInt(), 2147483647);
  EXPECT_EQ(String("0xFFFFFFFF")->ToInt(), 2147483647);
  EXPECT_EQ(String("-2147483648")->ToInt(), INT32_MIN);
  EXPECT_EQ(String("-2147483649")->ToInt(), INT32_MIN);
}

TEST(StringNumbers, ToInt64StopsAtItsLimits) {
  EXPECT_EQ(String("9223372036854775807")->ToInt64(), INT64_MAX);
  EXPECT_EQ(String("9223372036854775808")->ToInt64(), INT64_MAX);
  EXPECT_EQ(String("-9223372036854775808")->ToInt64(), INT64_MIN);
  EXPECT_EQ(String("-9223372036854775809")->ToInt64(), INT64_MIN);
  EXPECT_EQ(String("0x100000000")->ToInt64(), INT64_C(0x100000000));
}

TEST(StringNumbers, ABaseMayBeGiven) {
  EXPECT_EQ(String("101")->ToInt(2), 5);
  EXPECT_EQ(String("052")->ToInt(10), 52);
  EXPECT_EQ(String("ff")->ToInt(16), 255);
  EXPECT_EQ(String("0xff")->ToInt(16), 255);
  EXPECT_EQ(String("ff")->ToInt(10), 0);
  EXPECT_EQ(String("zz")->ToInt64(36), 35 * 36 + 35);
}

TEST(StringNumbers, ToDouble) {
  EXPECT_EQ(String("1.5")->ToDouble(), 1.5);
  EXPECT_EQ(String(" -2e3x")->ToDouble(), -2000.0);
  EXPECT_TRUE(std::isinf(String("1e999")->ToDouble()));
}

// ---- Four-character codes

TEST(StringNumbers, ToFourReadsTheFirstByteOnTop) {
  EXPECT_EQ(String("mp4v")->ToFour(), 0x6D703476u);
  EXPECT_EQ(String("mp4v and more")->ToFour(), 0x6D703476u);
}

TEST(StringNumbers, ToFourOfAShortTextHasZerosBelow) {
  EXPECT_EQ(String("")->ToFour(), 0u);
  EXPECT_EQ(String("a")->ToFour(), 0x61000000u);
  EXPECT_EQ(String("abc")->ToFour(), 0x61626300u);
}

TEST(StringNumbers, ToFourReadsAnEscapeAsOneByte) {
  EXPECT_EQ(String("dv%20")->ToFour(), 0x64762000u);
  EXPECT_EQ(String("dv%20%20")->ToFour(), 0x64762020u);
  EXPECT_EQ(String("%ff%FF%0a%A0")->ToFour(), 0xFFFF0AA0u);
  EXPECT_EQ(String("%25%25%25%25")->ToFour(), 0x25252525u);
}

TEST(StringNumbers, ToFourTakesWhatIsNoDigitForZero) {
  EXPECT_EQ(String("%G1ab")->ToFour(), 0x01616200u);
  EXPECT_EQ(String("%1Gab")->ToFour(), 0x10616200u);
  EXPECT_EQ(String("%zzabc")->ToFour(), 0x00616263u);
}

TEST(StringNumbers, ToFourEndsInsideOfAnEscape) {
  EXPECT_EQ(String("%")->ToFour(), 0u);
  EXPECT_EQ(String("%4")->ToFour(), 0x40000000u);
  EXPECT_EQ(String("abc%4")->ToFour(), 0x61626340u);
  EXPECT_EQ(String("abc%")->ToFour(), 0x61626300u);
}

TEST(StringNumbers, ToFourAddsHighBytesAsNegativeNumbers) {
  // U+00E9 is the bytes C3 A9, which count as -3D and -57.
  EXPECT_EQ(String("a\xC3\xA9z")->ToFour(), 0x61000000u - 0x3D0000u - 0x5700u + 0x7Au);
  EXPECT_EQ(String("abc\xFF")->ToFour(), 0x616262FFu);
  // Escaped they are what they are.
  EXPECT_EQ(String("abc%FF")->ToFour(), 0x616263FFu);
}

// ---- Bytes

std::string bytesOf(CByteArray* taken) {
  const ByteArray holder(taken);
  if (taken == nullptr) return "(null)";
  return std::string(reinterpret_cast<const char*>(taken->GetData()),
                     static_cast<size_t>(taken->GetLength()));
}

TEST(StringNumbers, ToBytes) {
  EXPECT_EQ(bytesOf(String("0aFf")->ToBytes(2)), "\x0A\xFF");
  EXPECT_EQ(bytesOf(String("1")->ToBytes(1)), "\x01");
}

TEST(StringNumbers, ToBytesFillsUpOnTheLeft) {
  EXPECT_EQ(bytesOf(String("abc")->ToBytes(3)), std::string("\0\x0A\xBC", 3));
  EXPECT_EQ(bytesOf(String("")->ToBytes(2)), std::string(2, '\0'));
}

TEST(StringNumbers, ToBytesOfNoBytes) {
  EXPECT_EQ(bytesOf(String("")->ToBytes(0)), "");
  EXPECT_EQ(bytesOf(String("")->ToBytes(-3)), "");
  EXPECT_EQ(String("0")->ToBytes(0), nullptr);
}

TEST(StringNumbers, ToBytesRefusesWhatIsNoDigit) {
  EXPECT_EQ(String("0g")->ToBytes(1), nullptr);
  EXPECT_EQ(String("g")->ToBytes(4), nullptr);
  EXPECT_EQ(String("0x12")->ToBytes(2), nullptr);
  EXPECT_EQ(String("\xC3\xA9")->ToBytes(1), nullptr);
}

TEST(StringNumbers, ToBytesRefusesTextThatIsTooLong) {
  EXPECT_EQ(String("123")->ToBytes(1), nullptr);
  EXPECT_EQ(String("000000000000")->ToBytes(1), nullptr);
}

TEST(StringNumbers, FromBytes) {
  const unsigned char bytes[] = {0x00, 0x0A, 0xFF};
  const ByteArray array(bytes, 3);
  const String text(CString::FromBytes(array));
  EXPECT_STREQ(text->GetChars(), "000aff");
  EXPECT_STREQ(text->GetWChars(), L"000aff");
  EXPECT_EQ(text->GetLength(), 6);
}

TEST(StringNumbers, FromBytesOfAnArrayWithoutDataIsZeros) {
  const ByteArray array(new CByteArray(2));
  EXPECT_EQ(Narrow(CString::FromBytes(array)), "0000");
  EXPECT_EQ(CString::FromBytes(nullptr), nullptr);
  const ByteArray empty(new CByteArray(0));
  EXPECT_EQ(Narrow(CString::FromBytes(empty)), "");
}

TEST(StringNumbers, ToBytesUndoesFromBytes) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 100; ++i) {
    std::string bytes(random() % 50, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    const ByteArray array(reinterpret_cast<const unsigned char*>(bytes.data()),
                          static_cast<int>(bytes.size()));
    const String text(CString::FromBytes(array));
    EXPECT_EQ(bytesOf(text->ToBytes(array.GetLength())), bytes);
    CByteArray* read = nullptr;
    ASSERT_EQ(CByteArray::FromHexString(text, read), 0);
    EXPECT_EQ(bytesOf(read), bytes);
  }
}

// ---- Formats

TEST(StringNumbers, WithFormat) {
  EXPECT_EQ(Narrow(CString::WithFormat("%d %s %05.1f", 7, "ab", 2.25)), "7 ab 002.2");
  EXPECT_EQ(Narrow(CString::WithFormat("plain")), "plain");
  const String text(CString::WithFormat("%s", "\xC3\xA9"));
  EXPECT_EQ(text->GetLength(), 1);
}

TEST(StringNumbers, WithFormatOfNothing) {
  const char* volatile none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  EXPECT_EQ(CString::WithFormat(none), nullptr);
#pragma GCC diagnostic pop
  EXPECT_EQ(Narrow(CString::WithFormat("%s", "")), "");
}

TEST(StringNumbers, WithFormatTakesLongText) {
  const std::string text(100000, 'z');
  EXPECT_EQ(Narrow(CString::WithFormat("<%s>", text.c_str())), "<" + text + ">");
}

ZEL_CALLS_THROUGH_NULL void readNumbersThroughNull() {
  CString* none = NullString();
  EXPECT_EQ(none->ToInt(), 0);
  EXPECT_EQ(none->ToInt(10), 0);
  EXPECT_EQ(none->ToInt64(), 0);
  EXPECT_EQ(none->ToInt64(10), 0);
  EXPECT_EQ(none->ToDouble(), 0.0);
  EXPECT_EQ(none->ToFour(), 0u);
  EXPECT_EQ(none->ToBytes(1), nullptr);
}
TEST(StringNumbers, ANullStringHasNoNumber) {
  readNumbersThroughNull();
}

}  // namespace
}  // namespace Morvalen::Zel
