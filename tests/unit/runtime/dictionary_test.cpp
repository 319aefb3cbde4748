#include "zel/runtime/dictionary.h"

#include <gtest/gtest.h>

#include "tests/support/failing_allocation.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/holder.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

namespace {

using zel::test::FailingAllocation;
using Dictionary = CDictionary<CString, CByteArray>;

class DictionaryTest : public testing::Test {
 protected:
  static CByteArray* Bytes(unsigned char value) { return new CByteArray(&value, 1); }
  CByteArray* ValueAt(int32_t index) const {
    CByteArray* const value = dictionary->GetValueAt(index);
    if (value != nullptr) value->Release();
    return value;
  }
  CString* KeyAt(int32_t index) const {
    CString* const key = dictionary->GetKeyAt(index);
    if (key != nullptr) key->Release();
    return key;
  }

  RObject<Dictionary> const dictionary{new Dictionary};
  String const a{"a"}, b{"b"}, alsoA{L"a"};
  ByteArray const one{Bytes(1)}, two{Bytes(2)};
};

}  // namespace

TEST_F(DictionaryTest, StartsEmptyWithoutATag) {
  EXPECT_EQ(dictionary->GetCount(), 0);
  EXPECT_EQ(dictionary->GetType(), 0u);
  EXPECT_EQ(dictionary->IndexOf(a), -1);
}

TEST_F(DictionaryTest, SetAppendsPairsInOrderWithReferences) {
  EXPECT_EQ(dictionary->Set(a, one), 0);
  EXPECT_EQ(dictionary->Set(b, two), 0);
  EXPECT_EQ(dictionary->GetCount(), 2);
  EXPECT_EQ(dictionary->IndexOf(b), 1);
  EXPECT_EQ(ValueAt(1), static_cast<CByteArray*>(two));
  EXPECT_EQ(KeyAt(0), static_cast<CString*>(a));
  EXPECT_EQ(a->GetReferenceCount(), 2);
  EXPECT_EQ(one->GetReferenceCount(), 2);
}

TEST_F(DictionaryTest, SetOfAnEqualKeyReplacesTheValueInItsPlace) {
  dictionary->Set(a, one);
  dictionary->Set(b, two);
  EXPECT_EQ(dictionary->Set(alsoA, two), 0);
  EXPECT_EQ(dictionary->GetCount(), 2);
  EXPECT_EQ(ValueAt(0), static_cast<CByteArray*>(two));
  EXPECT_EQ(KeyAt(0), static_cast<CString*>(a)) << "the first key object stays";
  EXPECT_EQ(one->GetReferenceCount(), 1);
  EXPECT_EQ(alsoA->GetReferenceCount(), 1);
}

TEST_F(DictionaryTest, NullValuesAreKept) {
  EXPECT_EQ(dictionary->Set(a, nullptr), 0);
  EXPECT_EQ(dictionary->GetCount(), 1);
  EXPECT_EQ(ValueAt(0), nullptr);
}

TEST_F(DictionaryTest, RemoveAtTakesBothOut) {
  dictionary->Set(a, one);
  dictionary->Set(b, two);
  EXPECT_EQ(dictionary->RemoveAt(0), 0);
  EXPECT_EQ(dictionary->GetCount(), 1);
  EXPECT_EQ(KeyAt(0), static_cast<CString*>(b));
  EXPECT_EQ(ValueAt(0), static_cast<CByteArray*>(two));
  EXPECT_EQ(dictionary->RemoveAt(1), ZelErrorInvalidArgument);
  EXPECT_EQ(dictionary->RemoveAt(-1), ZelErrorInvalidArgument);
}

TEST_F(DictionaryTest, ClearReleasesEverything) {
  dictionary->Set(a, one);
  dictionary->Clear();
  EXPECT_EQ(dictionary->GetCount(), 0);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(one->GetReferenceCount(), 1);
}

TEST_F(DictionaryTest, ListsAreHandedOutWithAReference) {
  dictionary->Set(a, one);
  RObject<CDependenciesList<CString>> const keys(dictionary->GetKeys());
  RObject<CDependenciesList<CByteArray>> const values(dictionary->GetValues());
  EXPECT_EQ(keys->GetReferenceCount(), 2);
  EXPECT_EQ(keys->GetCount(), 1);
  EXPECT_EQ(values->GetCount(), 1);
}

TEST_F(DictionaryTest, ValueListThatWasShortenedIsReported) {
  dictionary->Set(a, one);
  RObject<CDependenciesList<CByteArray>> const values(dictionary->GetValues());
  values->Clear();
  EXPECT_EQ(dictionary->Set(a, two), ZelErrorInvalidArgument);
}

// A node for the key, none for the value.
TEST_F(DictionaryTest, KeyThatFoundNoMemoryForItsValueStaysWithoutOne) {
  a->GetWChars();  // made beforehand, so that the comparison needs no memory
  {
    FailingAllocation const failing(1);
    EXPECT_EQ(dictionary->Set(a, one), ZelErrorOutOfMemory);
  }
  EXPECT_EQ(dictionary->GetCount(), 1);
  EXPECT_EQ(dictionary->GetValueAt(0), nullptr);
  EXPECT_EQ(dictionary->Set(b, two), 0) << "the next pair keeps together";
  EXPECT_EQ(dictionary->IndexOf(b), 1);
  EXPECT_EQ(ValueAt(1), static_cast<CByteArray*>(two));
  EXPECT_EQ(dictionary->Set(a, one), 0);
  EXPECT_EQ(ValueAt(0), static_cast<CByteArray*>(one));
}

TEST_F(DictionaryTest, WithoutMemoryForItsListsItHoldsNothing) {
  for (int made = 1; made <= 3; ++made) {
    Dictionary* poor;
    {
      FailingAllocation const failing(made);
      poor = new Dictionary;
    }
    ASSERT_NE(poor, nullptr);
    int const result = poor->Set(a, one);
    EXPECT_TRUE(result == 0 || result == ZelErrorOutOfMemory);
    EXPECT_EQ(poor->GetCount(), result == 0 ? 1 : 0);
    EXPECT_EQ(poor->IndexOf(b), -1);
    EXPECT_EQ(poor->RemoveAt(5), ZelErrorInvalidArgument);
    poor->Clear();
    poor->Release();
  }
}

}  // namespace Morvalen::Zel
