#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/seed.h"
#include "tests/unit/runtime/taken_string.h"
#include "zel/runtime/array.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

const char* const kNoText = nullptr;
const wchar_t* const kNoWide = nullptr;
CString* const kNoString = nullptr;

// ---- Append and Concat

TEST(StringEdit, AppendLeavesTheStringAsItWas) {
  const String text("ab");
  EXPECT_EQ(Narrow(text->Append('c')), "abc");
  EXPECT_EQ(Narrow(text->Append("cd")), "abcd");
  EXPECT_EQ(Wide(text->Append(L'\xE9')), L"ab\xE9");
  EXPECT_EQ(Wide(text->Append(L"\xE9z")), L"ab\xE9z");
  EXPECT_EQ(Narrow(text->Append(static_cast<CString*>(text))), "abab");
  EXPECT_STREQ(text->GetChars(), "ab");
  EXPECT_EQ(text->GetLength(), 2);
}

TEST(StringEdit, OperatorPlusIsAppend) {
  const String text("ab");
  EXPECT_EQ(Narrow(*static_cast<CString*>(text) + 'c'), "abc");
  EXPECT_EQ(Narrow(*static_cast<CString*>(text) + "cd"), "abcd");
  EXPECT_EQ(Wide(*static_cast<CString*>(text) + L'\xE9'), L"ab\xE9");
  EXPECT_EQ(Wide(*static_cast<CString*>(text) + L"cd"), L"abcd");
  EXPECT_EQ(Narrow(*static_cast<CString*>(text) + static_cast<CString*>(text)), "abab");
}

TEST(StringEdit, AppendOfNullOrNothingIsACopy) {
  const String text("ab");
  EXPECT_EQ(Narrow(text->Append(kNoText)), "ab");
  EXPECT_EQ(Narrow(text->Append(kNoWide)), "ab");
  EXPECT_EQ(Narrow(text->Append(kNoString)), "ab");
  EXPECT_EQ(Narrow(text->Append("")), "ab");
  EXPECT_EQ(Narrow(text->Append('\0')), "ab");
  EXPECT_EQ(Narrow(text->Append(L'\0')), "ab");
}

TEST(StringEdit, AppendedBytesMayCompleteACharacter) {
  const String text("a\xC3");
  const String whole(text->Append('\xA9'));
  EXPECT_EQ(whole->GetLength(), 2);
  EXPECT_STREQ(whole->GetWChars(), L"a\xE9");
}

TEST(StringEdit, AnAppendedCodePointIsSplit) {
  const String text(String("a")->Append(static_cast<wchar_t>(0x1F600)));
  EXPECT_EQ(text->GetLength(), 3);
  EXPECT_STREQ(text->GetWChars(), L"a\xD83D\xDE00");
}

ZEL_CALLS_THROUGH_NULL void appendThroughNull() {
  CString* none = NullString();
  const String text("ab");
  EXPECT_EQ(Narrow(none->Append('c')), "c");
  EXPECT_EQ(Narrow(none->Append("cd")), "cd");
  EXPECT_EQ(Narrow(*none + 'c'), "c");
  EXPECT_EQ(Narrow(*none + "cd"), "cd");
  EXPECT_EQ(Narrow(none->Append(kNoText)), "");
  EXPECT_EQ(Wide(none->Append(L'c')), L"c");
  EXPECT_EQ(Wide(none->Append(L"cd")), L"cd");
  EXPECT_EQ(Narrow(none->Append(static_cast<CString*>(text))), "ab");
}
TEST(StringEdit, AppendWorksOnANullString) {
  appendThroughNull();
}

TEST(StringEdit, Concat) {
  const String text("a\xC3\xA9");
  EXPECT_EQ(Narrow(CString::Concat(text, "z")), "a\xC3\xA9z");
  EXPECT_EQ(Narrow(CString::Concat(text, L"z")), "a\xC3\xA9z");
  EXPECT_EQ(Narrow(CString::Concat(text, static_cast<CString*>(text))),
            "a\xC3\xA9"
            "a\xC3\xA9");
}

TEST(StringEdit, ConcatOfOneNullIsACopyOfTheOther) {
  const String text("ab");
  EXPECT_EQ(Narrow(CString::Concat(text, kNoText)), "ab");
  EXPECT_EQ(Narrow(CString::Concat(text, kNoWide)), "ab");
  EXPECT_EQ(Narrow(CString::Concat(text, kNoString)), "ab");
  EXPECT_EQ(Narrow(CString::Concat(kNoString, "cd")), "cd");
  EXPECT_EQ(Narrow(CString::Concat(kNoString, L"cd")), "cd");
  EXPECT_EQ(Narrow(CString::Concat(kNoString, static_cast<CString*>(text))), "ab");
  const String copy(CString::Concat(text, kNoText));
  EXPECT_NE(static_cast<CString*>(copy), static_cast<CString*>(text));
}

TEST(StringEdit, ConcatOfTwoNullsIsNull) {
  EXPECT_EQ(CString::Concat(kNoString, kNoText), nullptr);
  EXPECT_EQ(CString::Concat(kNoString, kNoWide), nullptr);
  EXPECT_EQ(CString::Concat(kNoString, kNoString), nullptr);
}

TEST(StringEdit, Clone) {
  const String text("a\xC3\xA9");
  const String copy(text->Clone());
  EXPECT_NE(static_cast<CString*>(copy), static_cast<CString*>(text));
  EXPECT_STREQ(copy->GetWChars(), L"a\xE9");
  EXPECT_EQ(copy->GetLength(), 2);
}

// ---- Replace

TEST(StringEdit, ReplaceOfASymbol) {
  EXPECT_EQ(Narrow(String("abcabc")->Replace('b', 'x')), "axcaxc");
  EXPECT_EQ(Narrow(String("abc")->Replace('x', 'y')), "abc");
  EXPECT_EQ(Wide(String(L"a\xE9z")->Replace(L'\xE9', L'e')), L"aez");
  EXPECT_EQ(Wide(String("abc")->Replace(L'b', L'\xE9')),
            L"a\xE9"
            L"c");
}

TEST(StringEdit, ReplaceByNulEndsTheTextButKeepsTheLength) {
  const String text(String("abc")->Replace(L'b', L'\0'));
  EXPECT_EQ(text->GetLength(), 3);
  EXPECT_STREQ(text->GetChars(), "a");
  EXPECT_EQ(text->GetWChar(1), L'\0');
  EXPECT_EQ(text->GetWChar(2), L'c');
}

TEST(StringEdit, ReplaceOfSymbolsThatTheLocaleCannotWiden) {
  EXPECT_EQ(Wide(String(L"a\xFFFD")->Replace('\xE9', 'x')), L"a\xFFFD");
  EXPECT_EQ(Wide(String("abc")->Replace('b', '\xE9')),
            L"a\xFFFD"
            L"c");
}

TEST(StringEdit, ReplaceOfACodePointCountsItsLength) {
  const String emoji(String("a-b")->Replace(L'-', static_cast<wchar_t>(0x1F600)));
  EXPECT_EQ(emoji->GetLength(), 4);
  EXPECT_STREQ(emoji->GetWChars(),
               L"a\xD83D\xDE00"
               L"b");
  const String back(emoji->Replace(static_cast<wchar_t>(0x1F600), L'-'));
  EXPECT_EQ(back->GetLength(), 3);
  EXPECT_STREQ(back->GetWChars(), L"a-b");
}

TEST(StringEdit, ReplaceOfText) {
  EXPECT_EQ(Narrow(String("a--b--c")->Replace("--", "+")), "a+b+c");
  EXPECT_EQ(Narrow(String("aaaa")->Replace("aa", "b")), "bb");
  EXPECT_EQ(Narrow(String("aaa")->Replace("aa", "b")), "ba");
  EXPECT_EQ(Narrow(String("abc")->Replace("x", "yyy")), "abc");
  EXPECT_EQ(Narrow(String("abc")->Replace("abc", "")), "");
  EXPECT_EQ(Wide(String(L"a\xE9\xE9z")->Replace(L"\xE9", L"ee")), L"aeeeez");
  EXPECT_EQ(Wide(String("aaa")->Replace(L"aa", L"b")), L"ba");
  EXPECT_EQ(Wide(String("a-b")->Replace(L"-", L"\U0001F600")),
            L"a\xD83D\xDE00"
            L"b");
}

TEST(StringEdit, ReplaceOfTextKeepsTheLengthOfTheSource) {
  const String narrow(String("abc")->Replace("b", "xyz"));
  EXPECT_STREQ(narrow->GetChars(), "axyzc");
  EXPECT_EQ(narrow->GetLength(), 3);
  const String wide(String("abc")->Replace(L"b", L"xyz"));
  EXPECT_STREQ(wide->GetWChars(), L"axyzc");
  EXPECT_STREQ(wide->GetChars(), "axyzc");
  EXPECT_EQ(wide->GetLength(), 3);
  const String shorter(String("abcabc")->Replace("abc", "x"));
  EXPECT_STREQ(shorter->GetChars(), "xx");
  EXPECT_STREQ(shorter->GetWChars(), L"xx");
  EXPECT_EQ(shorter->GetLength(), 6);
}

TEST(StringEdit, AStaleLengthLeadsNoReadAstray) {
  for (const bool isWide : {false, true}) {
    const String source("abcabc");
    const String shorter(isWide ? source->Replace(L"abc", L"x") : source->Replace("abc", "x"));
    EXPECT_EQ(shorter->GetWChar(1), L'x');
    for (int32_t i = 2; i < 6; ++i) EXPECT_EQ(shorter->GetWChar(i), L'\0');
    EXPECT_EQ(Wide(shorter->Substring(1)), L"x");
    EXPECT_EQ(Wide(shorter->Substring(4, 2)), L"");
    EXPECT_EQ(shorter->IndexOf(L'c', 5), -1);
    EXPECT_EQ(Wide(shorter->Replace(L'x', L'y')), L"yy");
    EXPECT_EQ(String(shorter->Replace(L'x', L'y'))->GetLength(), 6);
  }
}

TEST(StringEdit, CloneCountsTheLengthAnew) {
  const String stale(String("abc")->Replace("b", "xyz"));
  EXPECT_EQ(String(stale->Clone())->GetLength(), 5);
  EXPECT_TRUE(stale->Equals("axyzc"));
  EXPECT_TRUE(stale->Equals(L"axyzc"));
  EXPECT_EQ(stale->IndexOf(L'c'), 4);
  EXPECT_EQ(stale->GetWChar(3), L'\0');
  EXPECT_EQ(stale->Substring(4), nullptr);
}

TEST(StringEdit, ReplaceOfNothingIsACopy) {
  const String text("abc");
  EXPECT_EQ(Narrow(text->Replace("", "xyz")), "abc");
  EXPECT_EQ(Narrow(text->Replace(L"", L"xyz")), "abc");
  EXPECT_EQ(Narrow(text->Replace(kNoText, "xyz")), "abc");
  EXPECT_EQ(Narrow(text->Replace(kNoWide, L"xyz")), "abc");
  EXPECT_EQ(Narrow(text->Replace("b", kNoText)), "ac");
  EXPECT_EQ(Narrow(text->Replace(L"b", kNoWide)), "ac");
}

// ---- Split and Join

std::vector<std::wstring> fields(const char* text, wchar_t separator) {
  const String source(text);
  const RObject<CArray<CString>> array(source->Split(separator));
  EXPECT_EQ(array->GetCount(), array->GetCapacity());
  std::vector<std::wstring> found;
  for (int32_t i = 0; i < array->GetCount(); ++i) found.push_back(Wide(array->GetAt(i)));
  return found;
}

using Fields = std::vector<std::wstring>;

TEST(StringEdit, Split) {
  EXPECT_EQ(fields("a,b", L','), (Fields{L"a", L"b"}));
  EXPECT_EQ(fields("abc", L','), (Fields{L"abc"}));
  EXPECT_EQ(fields("", L','), (Fields{L""}));
  EXPECT_EQ(fields(",", L','), (Fields{L"", L""}));
  EXPECT_EQ(fields(",,a", L','), (Fields{L"", L"", L"a"}));
  EXPECT_EQ(fields("a\xC3\xA9z", L'\xE9'), (Fields{L"a", L"z"}));
  EXPECT_EQ(fields("a\xF0\x9F\x98\x80z", static_cast<wchar_t>(0x1F600)), (Fields{L"a", L"z"}));
  EXPECT_EQ(fields("abc", L'\0'), (Fields{L"abc"}));
}

TEST(StringEdit, SplitBehindTheLastSeparatorIsAnEmptyItem) {
  EXPECT_EQ(fields("one;two;", L';'), (Fields{L"one", L"two", L""}));
}

TEST(StringEdit, EachFieldHasTheArraysReferenceOnly) {
  const RObject<CArray<CString>> array(String("a,b")->Split(L','));
  const String field(array->GetAt(0));
  EXPECT_EQ(field->GetReferenceCount(), 2);
  EXPECT_EQ(field->GetLength(), 1);
}

TEST(StringEdit, Join) {
  const RObject<CArray<CString>> items(new CArray<CString>(3));
  const String first("a\xC3\xA9");
  const String last(L"z");
  items->Add(first);
  items->Add(nullptr);
  items->Add(last);
  const String joined(CString::Join(L", ", items));
  EXPECT_STREQ(joined->GetWChars(), L"a\xE9, , z");
  EXPECT_EQ(joined->GetLength(), 7);
  EXPECT_EQ(Wide(CString::Join(L"", items)), L"a\xE9z");
  EXPECT_EQ(Wide(CString::Join(L"\U0001F600", items)), L"a\xE9\xD83D\xDE00\xD83D\xDE00z");
  EXPECT_EQ(first->GetReferenceCount(), 2);
}

TEST(StringEdit, JoinOfNothingIsEmptyAndNotNull) {
  const RObject<CArray<CString>> none(new CArray<CString>(4));
  const RObject<CArray<CString>> one(String("abc")->Split(L','));
  EXPECT_EQ(Wide(CString::Join(L",", none)), L"");
  EXPECT_EQ(Wide(CString::Join(L",", nullptr)), L"");
  EXPECT_EQ(Wide(CString::Join(nullptr, one)), L"");
  EXPECT_EQ(Wide(CString::Join(L",", one)), L"abc");
}

TEST(StringEdit, JoinTakesStaleItemsWithAllTheirText) {
  const RObject<CArray<CString>> items(new CArray<CString>(2));
  const String longer(String("abc")->Replace("b", "xyz"));
  const String shorter(String("abc")->Replace("abc", "x"));
  items->Add(longer);
  items->Add(shorter);
  EXPECT_EQ(Wide(CString::Join(L"-", items)), L"axyzc-x");
}

TEST(StringEdit, JoinUndoesSplit) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 200; ++i) {
    std::wstring text(random() % 40, L'\0');
    for (wchar_t& unit : text) unit = L"ab,\xE9"[random() % 4];
    const String source(text.c_str());
    const RObject<CArray<CString>> array(source->Split(L','));
    EXPECT_EQ(Wide(CString::Join(L",", array)), text);
  }
}

// ---- Substring and Trim

TEST(StringEdit, SubstringFromAStart) {
  const String text("ab\xC3\xA9z");
  EXPECT_EQ(Wide(text->Substring(0)), L"ab\xE9z");
  EXPECT_EQ(Wide(text->Substring(2)), L"\xE9z");
  EXPECT_EQ(Wide(text->Substring(4)), L"");
  EXPECT_EQ(text->Substring(5), nullptr);
  EXPECT_EQ(text->Substring(-1), nullptr);
  EXPECT_EQ(text->Substring(INT32_MIN), nullptr);
}

TEST(StringEdit, SubstringOfACount) {
  const String text("ab\xC3\xA9z");
  EXPECT_EQ(Wide(text->Substring(1, 2)), L"b\xE9");
  EXPECT_EQ(Wide(text->Substring(0, 4)), L"ab\xE9z");
  EXPECT_EQ(Wide(text->Substring(4, 0)), L"");
  EXPECT_EQ(Wide(text->Substring(2, 0)), L"");
  EXPECT_EQ(text->Substring(1, 4), nullptr);
  EXPECT_EQ(text->Substring(5, 0), nullptr);
  EXPECT_EQ(text->Substring(-1, 1), nullptr);
  EXPECT_EQ(text->Substring(1, -1), nullptr);
  EXPECT_EQ(text->Substring(INT32_MAX, INT32_MAX), nullptr);
}

TEST(StringEdit, SubstringMayCutAPair) {
  const String half(String("\xF0\x9F\x98\x80")->Substring(1));
  EXPECT_STREQ(half->GetWChars(), L"\xDE00");
  EXPECT_STREQ(half->GetChars(), "\xEF\xBF\xBD");
}

TEST(StringEdit, Trim) {
  const String text(" \t a b\r\n ");
  EXPECT_EQ(Wide(text->TrimLeft()), L"a b\r\n ");
  EXPECT_EQ(Wide(text->TrimRight()), L" \t a b");
  EXPECT_EQ(Wide(text->Trim()), L"a b");
  EXPECT_EQ(Wide(String("abc")->Trim()), L"abc");
  EXPECT_EQ(Wide(String(" \n ")->Trim()), L"");
  EXPECT_EQ(Wide(String(" \n ")->TrimLeft()), L"");
  EXPECT_EQ(Wide(String(" \n ")->TrimRight()), L"");
  EXPECT_EQ(Wide(String("")->Trim()), L"");
}

TEST(StringEdit, TrimOfASet) {
  const String text("xyaxbyx");
  EXPECT_EQ(Wide(text->Trim(L"xy")), L"axb");
  EXPECT_EQ(Wide(text->Trim(L"b")), L"xyaxbyx");
  EXPECT_EQ(Wide(text->Trim(L"")), L"xyaxbyx");
  EXPECT_EQ(Wide(text->Trim(kNoWide)), L"xyaxbyx");
  EXPECT_EQ(Wide(text->Trim(L"abxy")), L"");
}

ZEL_CALLS_THROUGH_NULL void deriveThroughNull() {
  CString* none = NullString();
  EXPECT_EQ(none->Clone(), nullptr);
  EXPECT_EQ(none->Replace('a', 'b'), nullptr);
  EXPECT_EQ(none->Replace(L'a', L'b'), nullptr);
  EXPECT_EQ(none->Replace("a", "b"), nullptr);
  EXPECT_EQ(none->Replace(L"a", L"b"), nullptr);
  EXPECT_EQ(none->Split(L','), nullptr);
  EXPECT_EQ(none->Substring(0), nullptr);
  EXPECT_EQ(none->Substring(0, 0), nullptr);
  EXPECT_EQ(none->TrimLeft(), nullptr);
  EXPECT_EQ(none->TrimRight(), nullptr);
  EXPECT_EQ(none->Trim(), nullptr);
  EXPECT_EQ(none->Trim(L"x"), nullptr);
}
TEST(StringEdit, NothingIsDerivedFromANullString) {
  deriveThroughNull();
}

// ---- Against std::wstring, over random text

std::wstring replaced(std::wstring text, const std::wstring& find, const std::wstring& with) {
  for (size_t at = text.find(find); at != text.npos; at = text.find(find, at + with.size())) {
    text.replace(at, find.size(), with);
  }
  return text;
}

TEST(StringEdit, RandomEditsAreThoseOfTheStandardString) {
  std::mt19937_64 random(zel::test::testSeed());
  const auto randomText = [&](size_t most) {
    std::wstring text(random() % (most + 1), L'\0');
    for (wchar_t& unit : text) unit = L"ab \xE9\x4E00"[random() % 5];
    return text;
  };
  for (int i = 0; i < 1000; ++i) {
    const std::wstring text = randomText(30);
    const std::wstring other = randomText(3);
    const std::wstring with = randomText(4);
    const String source(text.c_str());
    EXPECT_EQ(Wide(source->Append(other.c_str())), text + other);
    if (!other.empty()) {
      const std::wstring expected = replaced(text, other, with);
      EXPECT_EQ(Wide(source->Replace(other.c_str(), with.c_str())), expected);
      const String narrowOther(other.c_str());
      const String narrowWith(with.c_str());
      EXPECT_EQ(Wide(source->Replace(narrowOther->GetChars(), narrowWith->GetChars())), expected);
      const size_t found = text.find(other);
      EXPECT_EQ(source->IndexOf(other.c_str()), found == text.npos ? -1 : static_cast<int>(found));
    }
    const size_t start = random() % (text.size() + 1);
    const size_t count = random() % (text.size() - start + 1);
    EXPECT_EQ(Wide(source->Substring(static_cast<int32_t>(start), static_cast<int32_t>(count))),
              text.substr(start, count));
  }
}

}  // namespace
}  // namespace Morvalen::Zel
