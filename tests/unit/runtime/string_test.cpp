#include "zel/runtime/string.h"

#include <string>

#include <gtest/gtest.h>

namespace Morvalen::Zel {
namespace {

TEST(String, ADefaultStringIsEmptyAndHasBothForms) {
  String text(new CString);
  EXPECT_EQ(text->GetLength(), 0);
  EXPECT_STREQ(text->GetChars(), "");
  EXPECT_STREQ(text->GetWChars(), L"");
  EXPECT_TRUE(text->IsNullOrEmpty());
}

TEST(String, IndexOfIsAByteOffsetInTheNarrowForm) {
  String text("\xC3\xA9x");
  EXPECT_EQ(text->GetLength(), 2);
  EXPECT_EQ(text->IndexOf("x"), 2);
  EXPECT_EQ(text->IndexOf(L"x"), 1);
}

}  // namespace
}  // namespace Morvalen::Zel
