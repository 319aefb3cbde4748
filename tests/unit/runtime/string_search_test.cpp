#include <gtest/gtest.h>

#include "tests/unit/runtime/taken_string.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

const char* const kNoText = nullptr;
const wchar_t* const kNoWide = nullptr;

TEST(StringSearch, IsNullOrEmpty) {
  EXPECT_TRUE(String("")->IsNullOrEmpty());
  EXPECT_FALSE(String(" ")->IsNullOrEmpty());
}

TEST(StringSearch, IsNullOrWhiteSpace) {
  EXPECT_TRUE(String("")->IsNullOrWhiteSpace());
  EXPECT_TRUE(String(" \t\r\n\v\f")->IsNullOrWhiteSpace());
  EXPECT_FALSE(String("  x")->IsNullOrWhiteSpace());
}

TEST(StringSearch, GetWCharIsZeroOutOfRange) {
  const String text("a\xC3\xA9");
  EXPECT_EQ(text->GetWChar(0), L'a');
  EXPECT_EQ(text->GetWChar(1), L'\xE9');
  EXPECT_EQ(text->GetWChar(2), L'\0');
  EXPECT_EQ(text->GetWChar(-1), L'\0');
}

TEST(StringSearch, GetCharIsZeroForWhatIsNotOneByte) {
  const String text("a\xE4\xB8\x80");
  EXPECT_EQ(text->GetChar(0), 'a');
  EXPECT_EQ(text->GetChar(1), '\0');
  EXPECT_EQ(text->GetChar(2), '\0');
  EXPECT_EQ(text->GetChar(-1), '\0');
}

TEST(StringSearch, IsDigitAndIsWhiteSpace) {
  const String text("7 x");
  EXPECT_TRUE(text->IsDigit(0));
  EXPECT_FALSE(text->IsDigit(1));
  EXPECT_FALSE(text->IsDigit(3));
  EXPECT_FALSE(text->IsDigit(-1));
  EXPECT_TRUE(text->IsWhiteSpace(1));
  EXPECT_FALSE(text->IsWhiteSpace(0));
  EXPECT_FALSE(text->IsWhiteSpace(3));
}

TEST(StringSearch, Contains) {
  const String text("Hello \xC3\xA9");
  EXPECT_TRUE(text->Contains("lo"));
  EXPECT_TRUE(text->Contains("\xC3\xA9"));
  EXPECT_FALSE(text->Contains("LO"));
  EXPECT_FALSE(text->Contains(""));
  EXPECT_FALSE(text->Contains(kNoText));
  EXPECT_TRUE(text->Contains(L"lo"));
  EXPECT_TRUE(text->Contains(L"\xE9"));
  EXPECT_FALSE(text->Contains(L"LO"));
  EXPECT_FALSE(text->Contains(L""));
  EXPECT_FALSE(text->Contains(kNoWide));
}

TEST(StringSearch, ContainsIgnoreCase) {
  const String text("Hello");
  EXPECT_TRUE(text->ContainsIgnoreCase("hELL"));
  EXPECT_FALSE(text->ContainsIgnoreCase("hellx"));
  EXPECT_FALSE(text->ContainsIgnoreCase(""));
  EXPECT_FALSE(text->ContainsIgnoreCase(kNoText));
  EXPECT_TRUE(text->ContainsIgnoreCase(L"LLO"));
  EXPECT_FALSE(text->ContainsIgnoreCase(L"LLOO"));
  EXPECT_FALSE(text->ContainsIgnoreCase(L""));
  EXPECT_FALSE(text->ContainsIgnoreCase(kNoWide));
}

TEST(StringSearch, CaseIsThatOfAsciiLettersOnly) {
  // "É" and "é", and the symbols on either side of the letters.
  EXPECT_FALSE(String("\xC3\x89")->ContainsIgnoreCase(L"\xE9"));
  EXPECT_FALSE(String("\xC3\x89")->EqualsIgnoreCase("\xC3\xA9"));
  EXPECT_FALSE(String("@[")->EqualsIgnoreCase("`{"));
  EXPECT_TRUE(String("AZ")->EqualsIgnoreCase("az"));
}

TEST(StringSearch, IndexOfASymbol) {
  const String text("abcabc");
  EXPECT_EQ(text->IndexOf('b'), 1);
  EXPECT_EQ(text->IndexOf('x'), -1);
  EXPECT_EQ(text->IndexOf('\0'), -1);
  EXPECT_EQ(text->IndexOf('b', 1), 1);
  EXPECT_EQ(text->IndexOf('b', 2), 4);
  EXPECT_EQ(text->IndexOf('b', 5), -1);
  EXPECT_EQ(text->IndexOf('b', 6), -1);
  EXPECT_EQ(text->IndexOf('b', 100), -1);
  EXPECT_EQ(text->IndexOf('b', -1), -1);
  EXPECT_EQ(text->IndexOf(L'b'), 1);
  EXPECT_EQ(text->IndexOf(L'x'), -1);
  EXPECT_EQ(text->IndexOf(L'b', 2), 4);
  EXPECT_EQ(text->IndexOf(L'b', 100), -1);
  EXPECT_EQ(text->IndexOf(L'b', -1), -1);
}

TEST(StringSearch, IndexOfASymbolThatTheLocaleCannotWiden) {
  // Neither the replacement character nor anything else is what such a byte looks for.
  const String text(L"\xFFFD\xE9\xFFFF");
  EXPECT_EQ(text->IndexOf('\xE9'), -1);
  EXPECT_EQ(text->LastIndexOf('\xE9'), -1);
}

TEST(StringSearch, IndexOfIsInUnitsForSymbols) {
  const String text("\xC3\xA9\xF0\x9F\x98\x80x");
  EXPECT_EQ(text->IndexOf('x'), 3);
  EXPECT_EQ(text->IndexOf(static_cast<wchar_t>(0x1F600)), 1);
  EXPECT_EQ(text->LastIndexOf(static_cast<wchar_t>(0x1F600)), 1);
  EXPECT_EQ(text->IndexOf(static_cast<wchar_t>(0x1F601)), -1);
}

TEST(StringSearch, IndexOfIsAByteOffsetInTheNarrowForm) {
  const String text("\xC3\xA9x");
  EXPECT_EQ(text->GetLength(), 2);
  EXPECT_EQ(text->IndexOf("x"), 2);
  EXPECT_EQ(text->IndexOf(L"x"), 1);
}

TEST(StringSearch, IndexOfText) {
  const String text("abcabc");
  EXPECT_EQ(text->IndexOf("ca"), 2);
  EXPECT_EQ(text->IndexOf("cb"), -1);
  EXPECT_EQ(text->IndexOf(""), -1);
  EXPECT_EQ(text->IndexOf(kNoText), -1);
  EXPECT_EQ(text->IndexOf(L"ca"), 2);
  EXPECT_EQ(text->IndexOf(L"cb"), -1);
  EXPECT_EQ(text->IndexOf(L""), -1);
  EXPECT_EQ(text->IndexOf(kNoWide), -1);
  const String needle("bc");
  EXPECT_EQ(text->IndexOf(static_cast<CString*>(needle)), 1);
  const String empty("");
  EXPECT_EQ(text->IndexOf(static_cast<CString*>(empty)), -1);
  EXPECT_EQ(text->IndexOf(static_cast<CString*>(nullptr)), -1);
}

TEST(StringSearch, IndexOfAWideNeedleSplitsItsCodePoints) {
  const String text("a\xF0\x9F\x98\x80z");
  EXPECT_EQ(text->IndexOf(L"\U0001F600"), 1);
  EXPECT_EQ(text->IndexOf(L"\U0001F600z"), 1);
  EXPECT_TRUE(text->Contains(L"\U0001F600"));
  EXPECT_FALSE(text->Contains(L"\U0001F601"));
}

TEST(StringSearch, IndexOfIgnoreCase) {
  const String text(
      "\xC3\xA9"
      "abC");
  EXPECT_EQ(text->IndexOfIgnoreCase("BC"), 3);
  EXPECT_EQ(text->IndexOfIgnoreCase(L"BC"), 2);
  EXPECT_EQ(text->IndexOfIgnoreCase("x"), -1);
  EXPECT_EQ(text->IndexOfIgnoreCase(L"x"), -1);
  EXPECT_EQ(text->IndexOfIgnoreCase(kNoText), -1);
  EXPECT_EQ(text->IndexOfIgnoreCase(kNoWide), -1);
}

TEST(StringSearch, IndexOfIgnoreCaseOfAnEmptyNeedle) {
  EXPECT_EQ(String("a")->IndexOfIgnoreCase(""), 0);
  EXPECT_EQ(String("")->IndexOfIgnoreCase(""), -1);
  EXPECT_EQ(String("a")->IndexOfIgnoreCase(L""), -1);
  EXPECT_EQ(String("")->IndexOfIgnoreCase(L""), -1);
}

TEST(StringSearch, IndexOfAny) {
  const String text("a\xC3\xA9,b;c");
  EXPECT_EQ(text->IndexOfAny(";,", 0), 2);
  EXPECT_EQ(text->IndexOfAny(";,", 2), 2);
  EXPECT_EQ(text->IndexOfAny(";,", 3), 4);
  EXPECT_EQ(text->IndexOfAny(";,", 5), -1);
  EXPECT_EQ(text->IndexOfAny(";,", 6), -1);
  EXPECT_EQ(text->IndexOfAny(";,", -1), -1);
  EXPECT_EQ(text->IndexOfAny("", 0), -1);
  EXPECT_EQ(text->IndexOfAny(kNoText, 0), -1);
  EXPECT_EQ(text->IndexOfAny(L";\xE9", 0), 1);
  EXPECT_EQ(text->IndexOfAny(L";\xE9", 2), 4);
  EXPECT_EQ(text->IndexOfAny(L";", 6), -1);
  EXPECT_EQ(text->IndexOfAny(L";", 100), -1);
  EXPECT_EQ(text->IndexOfAny(L";", -1), -1);
  EXPECT_EQ(text->IndexOfAny(L"", 0), -1);
  EXPECT_EQ(text->IndexOfAny(kNoWide, 0), -1);
}

TEST(StringSearch, AUnitThatIsNoByteIsInNoNarrowSet) {
  // A unit without a byte maps to 0, which is no member of a set either.
  EXPECT_EQ(String("\xE4\xB8\x80")->IndexOfAny("\x80\xB8", 0), -1);
}

TEST(StringSearch, LastIndexOf) {
  const String text("abcabc");
  EXPECT_EQ(text->LastIndexOf('b'), 4);
  EXPECT_EQ(text->LastIndexOf('x'), -1);
  EXPECT_EQ(text->LastIndexOf('\0'), -1);
  EXPECT_EQ(text->LastIndexOf(L'a'), 3);
  EXPECT_EQ(text->LastIndexOf(L'x'), -1);
  EXPECT_EQ(String("")->LastIndexOf('a'), -1);
}

TEST(StringSearch, StartsWith) {
  const String text("Hello");
  EXPECT_TRUE(text->StartsWith("He", true));
  EXPECT_FALSE(text->StartsWith("he", true));
  EXPECT_TRUE(text->StartsWith("he", false));
  EXPECT_TRUE(text->StartsWith("Hello", true));
  EXPECT_FALSE(text->StartsWith("Hello!", true));
  EXPECT_FALSE(text->StartsWith("hello!", false));
  EXPECT_TRUE(text->StartsWith("", true));
  EXPECT_FALSE(text->StartsWith(kNoText, true));
  EXPECT_TRUE(text->StartsWith(L"He", true));
  EXPECT_FALSE(text->StartsWith(L"he", true));
  EXPECT_TRUE(text->StartsWith(L"he", false));
  EXPECT_FALSE(text->StartsWith(L"Hello!", false));
  EXPECT_TRUE(text->StartsWith(L"", false));
  EXPECT_FALSE(text->StartsWith(kNoWide, false));
  EXPECT_TRUE(String("")->StartsWith("", true));
}

TEST(StringSearch, EndsWith) {
  const String text("Hello");
  EXPECT_TRUE(text->EndsWith("lo", true));
  EXPECT_FALSE(text->EndsWith("LO", true));
  EXPECT_TRUE(text->EndsWith("LO", false));
  EXPECT_TRUE(text->EndsWith("Hello", true));
  EXPECT_FALSE(text->EndsWith("xHello", true));
  EXPECT_FALSE(text->EndsWith("xHello", false));
  EXPECT_TRUE(text->EndsWith("", true));
  EXPECT_FALSE(text->EndsWith(kNoText, true));
}

TEST(StringSearch, Equals) {
  const String text("Zel\xC3\xA9");
  EXPECT_TRUE(text->Equals("Zel\xC3\xA9"));
  EXPECT_FALSE(text->Equals("Zel"));
  EXPECT_FALSE(text->Equals("zel\xC3\xA9"));
  EXPECT_FALSE(text->Equals(kNoText));
  EXPECT_TRUE(text->Equals(L"Zel\xE9"));
  EXPECT_FALSE(text->Equals(L"Zel\xE9 "));
  EXPECT_FALSE(text->Equals(kNoWide));
  const String same(L"Zel\xE9");
  const String other("Zel");
  EXPECT_TRUE(text->Equals(static_cast<CString*>(same)));
  EXPECT_FALSE(text->Equals(static_cast<CString*>(other)));
  EXPECT_FALSE(text->Equals(static_cast<CString*>(nullptr)));
  EXPECT_TRUE(String("\xF0\x9F\x98\x80")->Equals(L"\U0001F600"));
}

TEST(StringSearch, EqualsIgnoreCase) {
  const String text("Zel");
  EXPECT_TRUE(text->EqualsIgnoreCase("zEL"));
  EXPECT_FALSE(text->EqualsIgnoreCase("zELl"));
  EXPECT_FALSE(text->EqualsIgnoreCase("zE"));
  EXPECT_FALSE(text->EqualsIgnoreCase(kNoText));
  const String same(L"ZEL");
  EXPECT_TRUE(text->EqualsIgnoreCase(static_cast<CString*>(same)));
  EXPECT_FALSE(text->EqualsIgnoreCase(static_cast<CString*>(nullptr)));
}

TEST(StringSearch, Compare) {
  const auto compare = [](const char* a, const char* b) {
    const String left(a);
    const String right(b);
    return CString::Compare(left, right);
  };
  EXPECT_EQ(compare("abc", "ABC"), 0);
  EXPECT_EQ(compare("abc", "abd"), -1);
  EXPECT_EQ(compare("abe", "abc"), 2);
  EXPECT_EQ(compare("ab", "abc"), -'c');
  EXPECT_EQ(compare("abC", "ab"), 'c');
  EXPECT_EQ(compare("", ""), 0);
  // Only ASCII letters fold: "É" and "é" differ by 32.
  EXPECT_EQ(compare("\xC3\x89", "\xC3\xA9"), -32);
  // By units: a surrogate sorts before U+FFFD.
  EXPECT_EQ(compare("\xF0\x9F\x98\x80", "\xEF\xBF\xBD"), 0xD83D - 0xFFFD);
}

TEST(StringSearch, CompareSortsNullFirst) {
  const String text("");
  EXPECT_EQ(CString::Compare(nullptr, text), -1);
  EXPECT_EQ(CString::Compare(text, nullptr), 1);
  EXPECT_EQ(CString::Compare(nullptr, nullptr), 0);
}

ZEL_CALLS_THROUGH_NULL void searchThroughNull() {
  CString* none = NullString();
  EXPECT_FALSE(none->Contains("a"));
  EXPECT_FALSE(none->Contains(L"a"));
  EXPECT_FALSE(none->ContainsIgnoreCase("a"));
  EXPECT_FALSE(none->ContainsIgnoreCase(L"a"));
  EXPECT_EQ(none->IndexOf('a'), -1);
  EXPECT_EQ(none->IndexOf(L'a', 0), -1);
  EXPECT_EQ(none->IndexOf("a"), -1);
  EXPECT_EQ(none->IndexOf(L"a"), -1);
  EXPECT_EQ(none->IndexOf(none), -1);
  EXPECT_EQ(none->IndexOfIgnoreCase("a"), -1);
  EXPECT_EQ(none->IndexOfIgnoreCase(L"a"), -1);
  EXPECT_EQ(none->IndexOfAny("a", 0), -1);
  EXPECT_EQ(none->IndexOfAny(L"a", 0), -1);
  EXPECT_EQ(none->LastIndexOf('a'), -1);
  EXPECT_EQ(none->LastIndexOf(L'a'), -1);
  EXPECT_FALSE(none->StartsWith("", true));
  EXPECT_FALSE(none->StartsWith(L"", true));
  EXPECT_FALSE(none->EndsWith("", true));
}
TEST(StringSearch, NothingIsFoundInANullString) {
  searchThroughNull();
}

ZEL_CALLS_THROUGH_NULL void compareThroughNull() {
  CString* none = NullString();
  const String empty("");
  EXPECT_TRUE(none->Equals(kNoText));
  EXPECT_TRUE(none->Equals(kNoWide));
  EXPECT_TRUE(none->Equals(none));
  EXPECT_TRUE(none->EqualsIgnoreCase(kNoText));
  EXPECT_TRUE(none->EqualsIgnoreCase(none));
  EXPECT_FALSE(none->Equals(""));
  EXPECT_FALSE(none->Equals(L""));
  EXPECT_FALSE(none->Equals(static_cast<CString*>(empty)));
  EXPECT_FALSE(none->EqualsIgnoreCase(""));
  EXPECT_FALSE(none->EqualsIgnoreCase(static_cast<CString*>(empty)));
}
TEST(StringSearch, ANullStringEqualsNullOnly) {
  compareThroughNull();
}

}  // namespace
}  // namespace Morvalen::Zel
