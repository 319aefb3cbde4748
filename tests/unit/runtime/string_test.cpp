#include "zel/runtime/string.h"

#include <array>
#include <clocale>
#include <cstring>
#include <latch>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/seed.h"
#include "tests/unit/runtime/taken_string.h"
#include "zel/platform/text_conversion.h"

namespace Morvalen::Zel {
namespace {

constexpr char kEmoji[] = "\xF0\x9F\x98\x80";
constexpr char kReplacement[] = "\xEF\xBF\xBD";

// ---- Making

TEST(String, ADefaultStringIsEmptyAndHasBothForms) {
  const String text(new CString);
  EXPECT_EQ(text->GetLength(), 0);
  EXPECT_STREQ(text->GetChars(), "");
  EXPECT_STREQ(text->GetWChars(), L"");
  EXPECT_TRUE(text->IsNullOrEmpty());
}

TEST(String, HasItsTypeAndOneReference) {
  CString* text = new CString("a");
  EXPECT_EQ(CString::Type, 0x74657874u);
  EXPECT_EQ(text->GetType(), CString::Type);
  EXPECT_TRUE(text->IsType(CString::Type));
  EXPECT_EQ(text->GetReferenceCount(), 1);
  text->Release();
}

TEST(String, IsMadeFromNarrowText) {
  const String text("Zel\xC3\xA9");
  EXPECT_EQ(text->GetLength(), 4);
  EXPECT_STREQ(text->GetChars(), "Zel\xC3\xA9");
  EXPECT_STREQ(text->GetWChars(), L"Zel\xE9");
}

TEST(String, IsMadeFromWideText) {
  const String text(L"Zel\xE9");
  EXPECT_EQ(text->GetLength(), 4);
  EXPECT_STREQ(text->GetWChars(), L"Zel\xE9");
  EXPECT_STREQ(text->GetChars(), "Zel\xC3\xA9");
}

TEST(String, IsMadeFromAtMostCountBytes) {
  EXPECT_EQ(Narrow(new CString("abcdef", 3)), "abc");
  EXPECT_EQ(Narrow(new CString("abc", 100)), "abc");
  EXPECT_EQ(Narrow(new CString("abc", 0)), "");
  EXPECT_EQ(Narrow(new CString("abc", -1)), "");
  EXPECT_EQ(Narrow(new CString("a\0bc", 4)), "a");
  // Not terminated: exactly the count is read.
  const std::array<char, 3> bare = {'x', 'y', 'z'};
  EXPECT_EQ(Narrow(new CString(bare.data(), 3)), "xyz");
}

TEST(String, IsMadeFromAtMostCountElements) {
  EXPECT_EQ(Wide(new CString(L"abcdef", 3)), L"abc");
  EXPECT_EQ(Wide(new CString(L"abc", 100)), L"abc");
  EXPECT_EQ(Wide(new CString(L"abc", 0)), L"");
  EXPECT_EQ(Wide(new CString(L"abc", -1)), L"");
  EXPECT_EQ(Wide(new CString(L"a\0bc", 4)), L"a");
}

TEST(String, IsMadeFromTwoTexts) {
  EXPECT_EQ(Narrow(new CString("ab", "cd")), "abcd");
  EXPECT_EQ(Wide(new CString(L"ab", L"cd")), L"abcd");
}

TEST(String, CountsACharacterAcrossTheSeamOfTwoTextsOnce) {
  const String text(new CString("a\xC3", "\xA9z"));
  EXPECT_EQ(text->GetLength(), 3);
  EXPECT_STREQ(text->GetWChars(), L"a\xE9z");
  // Either text ends with half of a pair.
  EXPECT_EQ(Narrow(new CString(L"\xD83D", L"\xDE00")), kEmoji);
}

TEST(String, NullTextCountsAsEmpty) {
  const char* noNarrow = nullptr;
  const wchar_t* noWide = nullptr;
  for (CString* made :
       {new CString(noNarrow), new CString(noNarrow, 3), new CString(noNarrow, noNarrow),
        new CString(noWide), new CString(noWide, 3), new CString(noWide, noWide)}) {
    const String text(made);
    EXPECT_EQ(text->GetLength(), 0);
    EXPECT_STREQ(text->GetChars(), "");
    EXPECT_STREQ(text->GetWChars(), L"");
  }
  EXPECT_EQ(Narrow(new CString("ab", noNarrow)), "ab");
  EXPECT_EQ(Narrow(new CString(noNarrow, "cd")), "cd");
  EXPECT_EQ(Wide(new CString(L"ab", noWide)), L"ab");
  EXPECT_EQ(Wide(new CString(noWide, L"cd")), L"cd");
}

TEST(String, CopiesItsText) {
  char narrow[] = "abc";
  wchar_t wide[] = L"abc";
  const String fromNarrow(narrow);
  const String fromWide(wide);
  narrow[0] = 'X';
  wide[0] = L'X';
  EXPECT_STREQ(fromNarrow->GetChars(), "abc");
  EXPECT_STREQ(fromWide->GetWChars(), L"abc");
}

// ---- Forms

TEST(String, ACharacterBeyondTheBasicPlaneIsTwoUnits) {
  const String text(kEmoji);
  EXPECT_EQ(text->GetLength(), 2);
  EXPECT_STREQ(text->GetWChars(), L"\xD83D\xDE00");
}

TEST(String, AWideLiteralIsSplitIntoUnits) {
  const String text(L"a\U0001F600z");
  EXPECT_EQ(text->GetLength(), 4);
  EXPECT_STREQ(text->GetWChars(), L"a\xD83D\xDE00z");
  EXPECT_STREQ(text->GetChars(), "a\xF0\x9F\x98\x80z");
  EXPECT_EQ(Wide(new CString(L"\U0001F600\U0001F601", 1)), L"\xD83D\xDE00");
}

TEST(String, MalformedNarrowTextStaysAndWidensToReplacements) {
  const String text("a\xE2\x82z\xC0\x80");
  EXPECT_EQ(text->GetLength(), 5);
  EXPECT_STREQ(text->GetChars(), "a\xE2\x82z\xC0\x80");
  EXPECT_STREQ(text->GetWChars(), L"a\xFFFDz\xFFFD\xFFFD");
}

TEST(String, ASingleSurrogateStaysAndNarrowsToAReplacement) {
  const String text(L"a\xD83Dz");
  EXPECT_EQ(text->GetLength(), 3);
  EXPECT_STREQ(text->GetWChars(), L"a\xD83Dz");
  EXPECT_EQ(std::string(text->GetChars()), std::string("a") + kReplacement + "z");
}

TEST(String, AFormIsMadeOnce) {
  const String text("abc");
  EXPECT_EQ(text->GetChars(), text->GetChars());
  EXPECT_EQ(text->GetWChars(), text->GetWChars());
}

TEST(String, SixteenMebibytesConvert) {
  const std::string narrow(size_t{16} << 20, 'z');
  const String text(narrow.c_str());
  EXPECT_EQ(text->GetLength(), 1 << 24);
  EXPECT_EQ(std::wstring(text->GetWChars()), std::wstring(narrow.size(), L'z'));
}

TEST(String, FormsOfRandomTextAgree) {
  std::mt19937_64 random(zel::test::testSeed());
  for (int i = 0; i < 300; ++i) {
    std::wstring units(random() % 100, L'\0');
    for (wchar_t& unit : units) {
      // Some surrogates, alone and in pairs; no NUL.
      unit = static_cast<wchar_t>(random() % 4 == 0 ? 0xD800 + random() % 0x800
                                                    : 1 + random() % 0xFFFF);
    }
    const String wide(units.c_str());
    EXPECT_EQ(static_cast<size_t>(wide->GetLength()), units.size());
    const String narrow(wide->GetChars());
    // Text that has been in UTF-8 once is well-formed, and comes through unchanged from then on.
    const String again(narrow->GetWChars());
    EXPECT_EQ(again->GetLength(), narrow->GetLength());
    EXPECT_STREQ(again->GetChars(), wide->GetChars());
    EXPECT_EQ(CString::GetLength(wide->GetChars()), narrow->GetLength());
  }
}

// The form that is missing is asked for by many threads at once: all get one buffer, and what the
// others made is freed (which the sanitizers watch).
template <class Symbol, class Get>
void askAtOnce(const Symbol* source, Get get) {
  constexpr int kThreads = 8;
  for (int round = 0; round < 100; ++round) {
    const String text(source);
    std::array<const void*, kThreads> forms{};
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (const void*& form : forms) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        form = get(text);
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const void* form : forms) ASSERT_EQ(form, get(text));
  }
}

TEST(StringThreads, AllGetTheSameWideForm) {
  askAtOnce("some text \xC3\xA9", [](CString* text) { return text->GetWChars(); });
}

TEST(StringThreads, AllGetTheSameNarrowForm) {
  askAtOnce(L"some text \xE9", [](CString* text) { return text->GetChars(); });
}

TEST(StringThreads, TheFormThatAThreadGetsIsWhole) {
  for (int round = 0; round < 100; ++round) {
    const String text("abcdefghijklmnopqrstuvwxyz");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] { EXPECT_STREQ(text->GetWChars(), L"abcdefghijklmnopqrstuvwxyz"); });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

// ---- Static helpers

TEST(String, GetLengthOfText) {
  const char* noNarrow = nullptr;
  const wchar_t* noWide = nullptr;
  EXPECT_EQ(CString::GetLength(noNarrow), 0);
  EXPECT_EQ(CString::GetLength(noWide), 0);
  EXPECT_EQ(CString::GetLength(""), 0);
  EXPECT_EQ(CString::GetLength("a\xC3\xA9"), 2);
  EXPECT_EQ(CString::GetLength(kEmoji), 2);
  EXPECT_EQ(CString::GetLength(L"abc"), 3);
  EXPECT_EQ(CString::GetLength(L"\U0001F600"), 2);
}

TEST(String, ConvertedTextIsTheCallersToDelete) {
  wchar_t* wide = CString::GetWChars("\xC3\xA9z");
  EXPECT_STREQ(wide, L"\xE9z");
  ::operator delete(wide);
  char* narrow = CString::GetChars(L"\xE9z");
  EXPECT_STREQ(narrow, "\xC3\xA9z");
  ::operator delete(narrow);
}

TEST(String, NullConvertsToEmptyText) {
  wchar_t* wide = CString::GetWChars(nullptr);
  EXPECT_STREQ(wide, L"");
  ::operator delete(wide);
  char* narrow = CString::GetChars(nullptr);
  EXPECT_STREQ(narrow, "");
  ::operator delete(narrow);
}

// ---- Counted strings

TEST(String, ToBSTRGivesTheUnits) {
  const String text("\xF0\x9F\x98\x80z");
  BSTR counted = text->ToBSTR();
  ASSERT_NE(counted, nullptr);
  EXPECT_EQ(SysStringLen(counted), 3u);
  EXPECT_EQ(std::u16string(counted), u"\U0001F600z");
  SysFreeString(counted);
}

TEST(String, ToBSTROfAnEmptyStringIsNotNull) {
  const String text("");
  BSTR counted = text->ToBSTR();
  ASSERT_NE(counted, nullptr);
  EXPECT_EQ(SysStringLen(counted), 0u);
  SysFreeString(counted);
}

// Sets the C library's locale for a scope. Whether it is there is for the test to ask.
class ProgramLocale {
 public:
  explicit ProgramLocale(const char* name)
      : before_(std::setlocale(LC_CTYPE, nullptr)), set_(std::setlocale(LC_CTYPE, name)) {}
  ~ProgramLocale() { std::setlocale(LC_CTYPE, before_.c_str()); }
  ProgramLocale(const ProgramLocale&) = delete;
  ProgramLocale& operator=(const ProgramLocale&) = delete;
  bool isSet() const { return set_ != nullptr; }

 private:
  std::string before_;
  const char* set_;
};

TEST(String, ToBSTROfTextIsByTheLocaleOfTheProgram) {
  BSTR ascii = CString::ToBSTR("abc");
  EXPECT_EQ(std::u16string(ascii), u"abc");
  SysFreeString(ascii);
  EXPECT_EQ(CString::ToBSTR(nullptr), nullptr);
  {
    const ProgramLocale locale("C.UTF-8");
    ASSERT_TRUE(locale.isSet());
    BSTR counted = CString::ToBSTR("\xC3\xA9\xF0\x9F\x98\x80");
    ASSERT_NE(counted, nullptr);
    EXPECT_EQ(std::u16string(counted), u"\xE9\U0001F600");
    SysFreeString(counted);
    // Malformed: the locale's conversion fails.
    EXPECT_EQ(CString::ToBSTR("a\xC3"), nullptr);
  }
}

// ---- A null string

ZEL_CALLS_THROUGH_NULL void readThroughNull() {
  CString* none = NullString();
  EXPECT_TRUE(none->IsNullOrEmpty());
  EXPECT_TRUE(none->IsNullOrWhiteSpace());
  EXPECT_EQ(none->GetLength(), 0);
  EXPECT_EQ(none->GetChars(), nullptr);
  EXPECT_EQ(none->GetWChars(), nullptr);
  EXPECT_EQ(none->GetChar(0), '\0');
  EXPECT_EQ(none->GetWChar(0), L'\0');
  EXPECT_FALSE(none->IsDigit(0));
  EXPECT_FALSE(none->IsWhiteSpace(0));
  EXPECT_EQ(none->ToBSTR(), nullptr);
}
TEST(String, ANullStringReadsAsNothing) {
  readThroughNull();
}

// ---- The holder

TEST(StringHolder, IsEmptyByDefault) {
  const String empty;
  EXPECT_EQ(static_cast<const char*>(empty), nullptr);
  EXPECT_EQ(static_cast<const wchar_t*>(empty), nullptr);
  EXPECT_EQ(static_cast<CString*>(empty), nullptr);
}

TEST(StringHolder, AdoptsARawPointer) {
  auto* text = new CString("a");
  {
    const String holder(text);
    EXPECT_EQ(text->GetReferenceCount(), 1);
    text->Acquire();
  }
  EXPECT_EQ(text->GetReferenceCount(), 1);
  text->Release();
}

TEST(StringHolder, ACopyAddsAReference) {
  const String first("a");
  {
    const String second(first);
    EXPECT_EQ(first->GetReferenceCount(), 2);
    EXPECT_EQ(static_cast<CString*>(second), static_cast<CString*>(first));
  }
  EXPECT_EQ(first->GetReferenceCount(), 1);
}

TEST(StringHolder, AssignmentAddsAReferenceAndReleasesTheOldOne) {
  const String first("a");
  String second("b");
  CString* old = second.ToObject();
  second = first;
  EXPECT_EQ(first->GetReferenceCount(), 2);
  EXPECT_EQ(old->GetReferenceCount(), 1);
  EXPECT_STREQ(static_cast<const char*>(second), "a");
  old->Release();
}

TEST(StringHolder, AssignmentOfARawPointerAdopts) {
  String holder("b");
  auto* text = new CString("a");
  holder = text;
  EXPECT_EQ(text->GetReferenceCount(), 1);
  EXPECT_STREQ(static_cast<const char*>(holder), "a");
}

TEST(StringHolder, GivesBothForms) {
  const String fromNarrow("\xC3\xA9");
  EXPECT_STREQ(static_cast<const wchar_t*>(fromNarrow), L"\xE9");
  const String fromWide(L"\xE9");
  EXPECT_STREQ(static_cast<const char*>(fromWide), "\xC3\xA9");
}

TEST(StringHolder, FromObjectAddsAReference) {
  auto* text = new CString("a");
  {
    const String holder = String::FromObject(text);
    EXPECT_EQ(text->GetReferenceCount(), 2);
    EXPECT_STREQ(static_cast<const char*>(holder), "a");
  }
  EXPECT_EQ(text->GetReferenceCount(), 1);
  text->Release();
  const String empty = String::FromObject(nullptr);
  EXPECT_EQ(static_cast<CString*>(empty), nullptr);
}

}  // namespace
}  // namespace Morvalen::Zel
