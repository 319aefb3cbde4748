#include "zel/dnxhd/result_words.h"

#include <gtest/gtest.h>

#include <cstring>

namespace zel::dnxhd {
namespace {

TEST(ResultWords, RowNTellsAboutMinusN) {
  for (size_t row = 0; row < kResultTexts.size(); ++row) {
    EXPECT_EQ(kResultTexts[row].code, -static_cast<int32_t>(row));
    EXPECT_LT(strnlen(kResultTexts[row].text, sizeof kResultTexts[row].text), 56u);
    EXPECT_EQ(std::strncmp(kResultTexts[row].text, "HDCODEC ", 8), 0);
  }
}

TEST(ResultWords, TextsOfSomeCodes) {
  EXPECT_STREQ(ResultTextOf(kSuccessful), "HDCODEC SUCCESSFUL");
  EXPECT_STREQ(ResultTextOf(kErrorInHuffmanDecode), "HDCODEC ERROR in Huffman Decode");
  EXPECT_STREQ(ResultTextOf(kErrorFieldGapForEncodeUnaligned),
               "HDCODEC ERROR Interfiled gap bytes for Encode unaligned");
  EXPECT_STREQ(ResultTextOf(kErrorLockAndGetBuffer), "HDCODEC ERROR LOCK and GET Buffer Failed");
}

TEST(ResultWords, CodesWithoutARowHaveNoText) {
  EXPECT_STREQ(ResultTextOf(1), "");
  EXPECT_STREQ(ResultTextOf(-44), "");
  EXPECT_STREQ(ResultTextOf(kErrorIdNotInCompInfo), "");
  EXPECT_STREQ(ResultTextOf(INT32_MIN), "");
}

}  // namespace
}  // namespace zel::dnxhd
