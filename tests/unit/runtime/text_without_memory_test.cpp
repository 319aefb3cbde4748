// What strings, arrays and encodings do when memory is refused: each operation is run again and
// again, with the first allocation failing, then the second, until none fails any more.
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/failing_allocation.h"
#include "zel/platform/automation.h"
#include "zel/runtime/array.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/encoding.h"
#include "zel/runtime/float_array.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/result_codes.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {
namespace {

// Runs `make` with each allocation failing in turn. It has to give null while one fails, without a
// leak, which the sanitizers watch; `dispose` takes what it gives at last.
template <class T>
void expectNullWithoutMemory(const char* what, const std::function<T*()>& make,
                             const std::function<void(T*)>& dispose) {
  for (int skip = 0; skip < 50; ++skip) {
    T* made = nullptr;
    int failures = 0;
    {
      const zel::test::FailingAllocation failing(skip);
      made = make();
      failures = zel::test::FailingAllocation::failures();
    }
    if (failures == 0) {
      EXPECT_GT(skip, 0) << what << " allocates nothing";
      ASSERT_NE(made, nullptr) << what;
      dispose(made);
      return;
    }
    EXPECT_EQ(made, nullptr) << what << ", with allocation " << skip << " failing";
    if (made != nullptr) dispose(made);
  }
  FAIL() << what << " never succeeds";
}

template <class T>
void expectNullObject(const char* what, const std::function<T*()>& make) {
  expectNullWithoutMemory<T>(what, make, [](T* made) { made->Release(); });
}

class TextWithoutMemory : public testing::Test {
 protected:
  // Both forms made beforehand, so that it is the operation itself that fails.
  void SetUp() override {
    text_->GetWChars();
    text_->GetChars();
  }
  const String text_{"a,\xC3\xA9,c"};
};

TEST_F(TextWithoutMemory, DerivedStringsAreNull) {
  CString* text = text_;
  const std::pair<const char*, std::function<CString*()>> operations[] = {
      {"Append(char)", [&] { return text->Append('x'); }},
      {"Append(wchar_t)", [&] { return text->Append(L'x'); }},
      {"Append(char const*)", [&] { return text->Append("x"); }},
      {"Append(wchar_t const*)", [&] { return text->Append(L"x"); }},
      {"Append of a code point", [&] { return text->Append(L"\U0001F600"); }},
      {"Append(CString)", [&] { return text->Append(text); }},
      {"Concat(char const*)", [&] { return CString::Concat(text, "x"); }},
      {"Concat(wchar_t const*)", [&] { return CString::Concat(text, L"x"); }},
      {"Concat(CString)", [&] { return CString::Concat(text, text); }},
      {"Clone", [&] { return text->Clone(); }},
      {"Replace(wchar_t)", [&] { return text->Replace(L'a', L'b'); }},
      {"Replace(code point)", [&] { return text->Replace(L'a', static_cast<wchar_t>(0x1F600)); }},
      {"Replace(char const*)", [&] { return text->Replace("a", "bb"); }},
      {"Replace(wchar_t const*)", [&] { return text->Replace(L"a", L"\U0001F600"); }},
      {"Substring", [&] { return text->Substring(1); }},
      {"Trim", [&] { return text->Trim(); }},
      {"TrimLeft", [&] { return text->TrimLeft(); }},
      {"TrimRight", [&] { return text->TrimRight(); }},
      {"Trim of a set", [&] { return text->Trim(L"\U0001F600"); }},
      {"WithFormat", [&] { return CString::WithFormat("%d", 7); }},
      {"Join of nothing", [&] { return CString::Join(L",", nullptr); }},
      {"GetString",
       [&] {
         return CEncoding::GetUtf8()->GetString(reinterpret_cast<const unsigned char*>("a"), 1);
       }},
  };
  for (const auto& [what, make] : operations) expectNullObject<CString>(what, make);
}

TEST_F(TextWithoutMemory, ArraysOfThemAreNull) {
  expectNullObject<CArray<CString>>("Split", [&] { return text_->Split(L','); });
  const RObject<CArray<CString>> items(text_->Split(L','));
  expectNullObject<CString>("Join", [&] { return CString::Join(L"\U0001F600", items); });
}

TEST_F(TextWithoutMemory, BytesOfThemAreNull) {
  const String digits("0aff");
  digits->GetChars();
  expectNullObject<CByteArray>("ToBytes", [&] { return digits->ToBytes(3); });
  expectNullObject<CByteArray>("GetBytes", [&] { return CEncoding::GetUtf8()->GetBytes(L"a"); });
  const ByteArray bytes(reinterpret_cast<const unsigned char*>("ab"), 2);
  expectNullObject<CString>("FromBytes", [&] { return CString::FromBytes(bytes); });
}

TEST_F(TextWithoutMemory, FormsAreNullAndMadeLater) {
  const String narrow("abc");
  const String wide(L"abc");
  {
    const zel::test::FailingAllocation failing;
    EXPECT_EQ(narrow->GetWChars(), nullptr);
    EXPECT_EQ(wide->GetChars(), nullptr);
    // What needs the form finds no text.
    EXPECT_EQ(narrow->GetWChar(0), L'\0');
    EXPECT_EQ(narrow->IndexOf(L"a"), -1);
    EXPECT_EQ(narrow->ToInt(), 0);
    EXPECT_EQ(narrow->Substring(0), nullptr);
    EXPECT_EQ(wide->ToFour(), 0u);
    EXPECT_EQ(CString::GetWChars("abc"), nullptr);
    EXPECT_EQ(CString::GetChars(L"abc"), nullptr);
  }
  EXPECT_STREQ(narrow->GetWChars(), L"abc");
  EXPECT_STREQ(wide->GetChars(), "abc");
}

TEST_F(TextWithoutMemory, AConstructorLeavesTheStringEmpty) {
  const std::function<CString*()> constructors[] = {
      [] { return new CString("ab"); },     [] { return new CString("ab", 1); },
      [] { return new CString("a", "b"); }, [] { return new CString(L"ab"); },
      [] { return new CString(L"ab", 1); }, [] { return new CString(L"a", L"b"); },
  };
  for (const auto& make : constructors) {
    CString* made = nullptr;
    {
      // The object itself is the first allocation.
      const zel::test::FailingAllocation failing(1);
      made = make();
    }
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->GetLength(), 0);
    EXPECT_STREQ(made->GetChars(), "");
    made->Release();
    const zel::test::FailingAllocation failing;
    EXPECT_EQ(make(), nullptr);
  }
}

TEST_F(TextWithoutMemory, CountedStringsAreNull) {
  expectNullWithoutMemory<OLECHAR>(
      "ToBSTR", [&] { return text_->ToBSTR(); }, SysFreeString);
  expectNullWithoutMemory<OLECHAR>(
      "ToBSTR(char const*)", [] { return CString::ToBSTR("a"); }, SysFreeString);
  expectNullWithoutMemory<OLECHAR>(
      "SysAllocString", [] { return SysAllocString(u"a"); }, SysFreeString);
}

TEST(BytesWithoutMemory, DataIsNullAndMadeLater) {
  const ByteArray array(new CByteArray(3));
  const ByteArray window(new CByteArray(1));
  CByteArray* result = nullptr;
  {
    const zel::test::FailingAllocation failing;
    EXPECT_EQ(array->GetData(), nullptr);
    EXPECT_EQ(array->Clear(), ZelErrorOutOfMemory);
    EXPECT_EQ(array->GetData(0, 1, &result), ZelErrorOutOfMemory);
    EXPECT_EQ(window->SetData(static_cast<CByteArray*>(array), 0), ZelErrorOutOfMemory);
  }
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_NE(array->GetData(), nullptr);
  {
    const zel::test::FailingAllocation failing;
    EXPECT_EQ(array->GetData(0, 1, &result), ZelErrorOutOfMemory);
  }
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(array->GetReferenceCount(), 1);
}

TEST(BytesWithoutMemory, ACopyIsEmpty) {
  CByteArray* copy = nullptr;
  {
    const zel::test::FailingAllocation failing(1);
    copy = new CByteArray(reinterpret_cast<const unsigned char*>("abc"), 3);
  }
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->GetLength(), 0);
  copy->Release();
}

TEST(BytesWithoutMemory, FromHexStringSaysSo) {
  for (int skip = 0; skip < 2; ++skip) {
    CByteArray* array = nullptr;
    const zel::test::FailingAllocation failing(skip);
    EXPECT_EQ(CByteArray::FromHexString("00ff", array), ZelErrorOutOfMemory);
    EXPECT_EQ(array, nullptr);
  }
}

TEST(BytesWithoutMemory, ToSAFEARRAYIsNull) {
  const ByteArray array(reinterpret_cast<const unsigned char*>("abc"), 3);
  expectNullWithoutMemory<SAFEARRAY>(
      "ToSAFEARRAY", [&] { return array->ToSAFEARRAY(); },
      [](SAFEARRAY* made) { SafeArrayDestroy(made); });
}

TEST(FloatsWithoutMemory, DataIsNullAndMadeLater) {
  const RObject<CFloatArray> array(new CFloatArray(3));
  {
    const zel::test::FailingAllocation failing;
    EXPECT_EQ(array->GetData(), nullptr);
  }
  EXPECT_NE(array->GetData(), nullptr);
}

}  // namespace
}  // namespace Morvalen::Zel
