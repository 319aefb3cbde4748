#include "zel/runtime/array.h"

#include <gtest/gtest.h>

#include "tests/support/failing_allocation.h"
#include "tests/support/test_object.h"
#include "zel/runtime/holder.h"

namespace Morvalen::Zel {

namespace {
using zel::test::FailingAllocation;
using zel::test::TestObject;
using Array = CArray<TestObject>;
}  // namespace

TEST(Array, StartsEmptyWithItsCapacity) {
  RObject<Array> const array(new Array(3));
  EXPECT_EQ(array->GetCount(), 0);
  EXPECT_EQ(array->GetCapacity(), 3);
  EXPECT_EQ(array->GetType(), 0u);
  EXPECT_EQ(array->GetAt(0), nullptr);
}

TEST(Array, NegativeCapacityIsNone) {
  RObject<Array> const array(new Array(-5));
  EXPECT_EQ(array->GetCapacity(), 0);
  TestObject item;
  array->Add(&item);
  EXPECT_EQ(array->GetCount(), 0);
  EXPECT_EQ(item.GetReferenceCount(), 1);
}

TEST(Array, AddStoresWithAReferenceAndTheEndGivesItBack) {
  auto* const item = new TestObject;
  {
    RObject<Array> const array(new Array(2));
    array->Add(item);
    array->Add(item);
    EXPECT_EQ(item->GetReferenceCount(), 3);
    EXPECT_EQ(array->GetCount(), 2);
  }
  EXPECT_EQ(item->GetReferenceCount(), 1);
  item->Release();
}

TEST(Array, AddBeyondTheCapacityDropsTheItemSilently) {
  auto* const kept = new TestObject;
  auto* const dropped = new TestObject;
  {
    RObject<Array> const array(new Array(1));
    array->Add(kept);
    array->Add(dropped);
    EXPECT_EQ(array->GetCount(), 1);
    EXPECT_EQ(dropped->GetReferenceCount(), 1) << "the caller's reference is untouched";
  }
  kept->Release();
  dropped->Release();
  EXPECT_EQ(TestObject::live, 0);
}

TEST(Array, GetAtAddsAReferenceAndIsNullOutOfRange) {
  auto* const item = new TestObject;
  RObject<Array> const array(new Array(3));
  array->Add(item);
  array->Add(nullptr);
  EXPECT_EQ(array->GetAt(0), item);
  EXPECT_EQ(item->GetReferenceCount(), 3);
  item->Release();
  EXPECT_EQ(array->GetAt(1), nullptr);
  EXPECT_EQ(array->GetAt(2), nullptr) << "within the capacity, beyond the count";
  EXPECT_EQ(array->GetAt(3), nullptr);
  EXPECT_EQ(array->GetAt(-1), nullptr);
  item->Release();
}

TEST(Array, RootIsAVirtualBase) {
  auto* const array = new Array(1);
  CDependenciesObjectVS2012* const root = array;
  EXPECT_EQ(dynamic_cast<Array*>(root), array);
  root->Acquire();
  EXPECT_EQ(array->GetReferenceCount(), 2);
  array->Release();
  root->Release();
}

TEST(Array, WithoutMemoryForItsItemsItHasNoCapacity) {
  Array* array;
  {
    FailingAllocation const failing(1);  // the array itself is made, its items aren't
    array = new Array(4);
    ASSERT_EQ(FailingAllocation::failures(), 1);
  }
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(array->GetCapacity(), 0);
  TestObject item;
  array->Add(&item);
  EXPECT_EQ(array->GetAt(0), nullptr);
  EXPECT_EQ(item.GetReferenceCount(), 1);
  array->Release();
}

}  // namespace Morvalen::Zel
