#include "zel/runtime/encoding.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/runtime/taken_string.h"
#include "zel/platform/narrow_encoding.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/holder.h"

namespace Morvalen::Zel {
namespace {

std::string bytesOf(CByteArray* taken) {
  const ByteArray holder(taken);
  if (taken == nullptr) return "(null)";
  return std::string(reinterpret_cast<const char*>(taken->GetData()),
                     static_cast<size_t>(taken->GetLength()));
}

std::wstring stringOf(const CEncoding& encoding, const std::string& bytes) {
  return Wide(encoding.GetString(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<int32_t>(bytes.size())));
}

TEST(Encoding, TheInstancesOfTheProcessStay) {
  ASSERT_NE(CEncoding::GetUtf8(), nullptr);
  ASSERT_NE(CEncoding::GetDefault(), nullptr);
  EXPECT_EQ(CEncoding::GetUtf8(), CEncoding::GetUtf8());
  EXPECT_NE(static_cast<void*>(CEncoding::GetUtf8()), static_cast<void*>(CEncoding::GetDefault()));
  EXPECT_EQ(CEncoding::GetUtf8()->GetType(), 0u);
  EXPECT_EQ(CEncoding::GetUtf8()->GetReferenceCount(), 1);
}

TEST(Encoding, Utf8ToBytesWithoutATerminator) {
  const CEncoding& utf8 = *CEncoding::GetUtf8();
  EXPECT_EQ(bytesOf(utf8.GetBytes(L"a\xE9\xD83D\xDE00")), "a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(bytesOf(utf8.GetBytes(L"\U0001F600")), "\xF0\x9F\x98\x80");
  EXPECT_EQ(bytesOf(utf8.GetBytes(L"")), "");
  EXPECT_EQ(bytesOf(utf8.GetBytes(L"\xD800")), "\xEF\xBF\xBD");
  EXPECT_EQ(utf8.GetBytes(nullptr), nullptr);
}

TEST(Encoding, Utf8ToString) {
  const CEncoding& utf8 = *CEncoding::GetUtf8();
  EXPECT_EQ(stringOf(utf8, "a\xC3\xA9\xF0\x9F\x98\x80"), L"a\xE9\xD83D\xDE00");
  EXPECT_EQ(stringOf(utf8, ""), L"");
  EXPECT_EQ(stringOf(utf8, "a\xC3"), L"a\xFFFD");
  EXPECT_EQ(stringOf(utf8, std::string("a\0b", 3)), L"a");
  EXPECT_EQ(utf8.GetString(nullptr, 3), nullptr);
  EXPECT_EQ(utf8.GetString(reinterpret_cast<const unsigned char*>("a"), -1), nullptr);
}

TEST(Encoding, ItsStringIsMadeOfTheWideForm) {
  // What was malformed is well-formed from there on.
  const String text(
      CEncoding::GetUtf8()->GetString(reinterpret_cast<const unsigned char*>("\xC3z"), 2));
  EXPECT_EQ(text->GetLength(), 2);
  EXPECT_STREQ(text->GetChars(), "\xEF\xBF\xBDz");
}

TEST(Encoding, TheNameIsComparedWithoutCase) {
  for (const char* name : {"UTF-8", "utf-8", "uTf-8"}) {
    const RObject<CEncoding> encoding(new CEncoding(name));
    EXPECT_EQ(bytesOf(encoding->GetBytes(L"\x4E00")), "\xE4\xB8\x80") << name;
  }
}

// The default encoding is that of the environment, which the process reads once. These run in a
// process of their own, with the environment that they are given.
void runWithLocale(const char* locale, void (*body)()) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("LC_ALL", locale, 1);
  EXPECT_EXIT(
      {
        body();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
  unsetenv("LC_ALL");
}

TEST(EncodingDeathTest, OtherNamesAreTheDefault) {
  runWithLocale("C", [] {
    for (const char* name : {static_cast<const char*>(nullptr), "", "UTF8", "UTF-16", "UTF-8 "}) {
      const RObject<CEncoding> encoding(new CEncoding(name));
      EXPECT_EQ(bytesOf(encoding->GetBytes(L"a\x4E00z")), "a?z");
    }
  });
}

TEST(EncodingDeathTest, TheDefaultIsTheOneOfTheEnvironment) {
  runWithLocale("C.UTF-8", [] {
    const CEncoding& encoding = *CEncoding::GetDefault();
    EXPECT_EQ(bytesOf(encoding.GetBytes(L"a\xE9\xD83D\xDE00")), "a\xC3\xA9\xF0\x9F\x98\x80");
    EXPECT_EQ(stringOf(encoding, "a\xC3\xA9\xF0\x9F\x98\x80"), L"a\xE9\xD83D\xDE00");
    EXPECT_EQ(stringOf(encoding, "a\xFFz\xC3"), L"a\xFFFDz\xFFFD");
    EXPECT_EQ(bytesOf(encoding.GetBytes(L"")), "");
    EXPECT_EQ(encoding.GetBytes(nullptr), nullptr);
    EXPECT_EQ(encoding.GetString(nullptr, 0), nullptr);
  });
}

TEST(EncodingDeathTest, TheDefaultOfTheCLocaleIsAscii) {
  runWithLocale("C", [] {
    const CEncoding& encoding = *CEncoding::GetDefault();
    EXPECT_EQ(bytesOf(encoding.GetBytes(L"a\xE9\xD83D\xDE00z")), "a??z");
    EXPECT_EQ(stringOf(encoding, "abc"), L"abc");
    // The name is not one of the system's: what the C library can't load is "C".
    EXPECT_EQ(stringOf(encoding, std::string("a\0b", 3)), L"a");
  });
}

TEST(EncodingDeathTest, ALocaleThatIsNotThereIsTheCLocale) {
  runWithLocale("no_SUCH.LOCALE",
                [] { EXPECT_EQ(bytesOf(CEncoding::GetDefault()->GetBytes(L"a\xE9")), "a?"); });
}

TEST(EncodingDeathTest, TheProgramsLocaleStaysAsItIs) {
  runWithLocale("C.UTF-8", [] {
    bytesOf(CEncoding::GetDefault()->GetBytes(L"a\xE9"));
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
    EXPECT_EQ(MB_CUR_MAX, 1u);
  });
}

}  // namespace
}  // namespace Morvalen::Zel
