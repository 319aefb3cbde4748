#include "zel/runtime/list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <vector>

#include "tests/support/failing_allocation.h"
#include "tests/support/seed.h"
#include "tests/support/test_object.h"
#include "zel/runtime/byte_array.h"
#include "zel/runtime/string.h"

namespace Morvalen::Zel {

namespace {

using zel::test::FailingAllocation;
using zel::test::TestObject;
using zel::test::virtualSlot;

using List = CDependenciesList<TestObject>;
using Enumerator = CDependenciesListEnumerator<TestObject>;

class ListTest : public testing::Test {
 protected:
  ListTest() {
    for (TestObject*& object : objects) object = new TestObject;
  }
  ~ListTest() override {
    list->Release();
    for (TestObject* const object : objects) {
      EXPECT_EQ(object->GetReferenceCount(), 1);
      object->Release();
    }
    EXPECT_EQ(TestObject::live, 0);
  }
  void AddAll() {
    for (TestObject* const object : objects) EXPECT_EQ(list->Add(object), 0);
  }
  TestObject* At(int32_t index) const {
    TestObject* const item = list->GetAt(index);
    if (item != nullptr) item->Release();
    return item;
  }

  List* const list = new List;
  std::array<TestObject*, 3> objects;
};

}  // namespace

TEST_F(ListTest, HasTheTagOfAllLists) {
  EXPECT_EQ(list->GetType(), 0x6C693C3Eu);
  EXPECT_EQ(CDependenciesList<CString>::Type, 0x6C693C3Eu);
}

TEST_F(ListTest, EnumeratorOperationsStandBehindTheRoots) {
  using Base = CEnumerator<TestObject>;
  EXPECT_EQ(virtualSlot(&Base::Reset), 12);
  EXPECT_EQ(virtualSlot(&Base::MoveNext), 13);
  EXPECT_EQ(virtualSlot(static_cast<int (Base::*)(RObject<TestObject>&)>(&Base::GetCurrent)), 14);
  EXPECT_EQ(virtualSlot(static_cast<int (Base::*)(TestObject*&)>(&Base::GetCurrent)), 15);
  EXPECT_EQ(virtualSlot(static_cast<TestObject* (Base::*)()>(&Base::GetCurrent)), 16);
}

TEST_F(ListTest, AddAppendsWithAReference) {
  EXPECT_EQ(list->GetCount(), 0);
  AddAll();
  EXPECT_EQ(list->GetCount(), 3);
  for (size_t i = 0; i < objects.size(); ++i) {
    EXPECT_EQ(At(static_cast<int32_t>(i)), objects[i]);
    EXPECT_EQ(objects[i]->GetReferenceCount(), 2);
  }
}

TEST_F(ListTest, GetAtAddsAReferenceOnAHitAndIsNullOutOfRange) {
  AddAll();
  TestObject* const item = list->GetAt(1);
  EXPECT_EQ(item, objects[1]);
  EXPECT_EQ(item->GetReferenceCount(), 3);
  item->Release();
  EXPECT_EQ(list->GetAt(-1), nullptr);
  EXPECT_EQ(list->GetAt(3), nullptr);
}

TEST_F(ListTest, IndexOfFindsTheFirstThatEqualsOrNothing) {
  list->Add(objects[0]);
  list->Add(objects[1]);
  list->Add(objects[0]);
  EXPECT_EQ(list->IndexOf(objects[0]), 0);
  EXPECT_EQ(list->IndexOf(objects[1]), 1);
  EXPECT_EQ(list->IndexOf(objects[2]), -1);
  EXPECT_EQ(list->IndexOf(nullptr), -1);
}

TEST_F(ListTest, NullItemsAreKeptAndMatchNull) {
  list->Add(objects[0]);
  list->Add(nullptr);
  EXPECT_EQ(list->GetCount(), 2);
  EXPECT_EQ(list->IndexOf(nullptr), 1);
  EXPECT_EQ(list->GetAt(1), nullptr);
  EXPECT_EQ(list->RemoveAt(1), 0);
  EXPECT_EQ(list->GetCount(), 1);
}

TEST_F(ListTest, RemoveAtReleasesAndKeepsTheTailRight) {
  AddAll();
  EXPECT_EQ(list->RemoveAt(2), 0);
  EXPECT_EQ(objects[2]->GetReferenceCount(), 1);
  list->Add(objects[2]);
  EXPECT_EQ(At(2), objects[2]) << "appended behind the new tail";
  EXPECT_EQ(list->RemoveAt(0), 0);
  EXPECT_EQ(At(0), objects[1]);
  EXPECT_EQ(list->RemoveAt(1), 0);
  EXPECT_EQ(list->RemoveAt(0), 0);
  EXPECT_EQ(list->GetCount(), 0);
  list->Add(objects[0]);
  EXPECT_EQ(At(0), objects[0]);
}

TEST_F(ListTest, RemoveAtOutOfRangeIsInvalid) {
  EXPECT_EQ(list->RemoveAt(0), ZelErrorInvalidArgument);
  AddAll();
  EXPECT_EQ(list->RemoveAt(-1), ZelErrorInvalidArgument);
  EXPECT_EQ(list->RemoveAt(3), ZelErrorInvalidArgument);
  EXPECT_EQ(list->GetCount(), 3);
}

TEST_F(ListTest, SetAtReplacesWithAReference) {
  AddAll();
  EXPECT_EQ(list->SetAt(0, objects[2]), 0);
  EXPECT_EQ(objects[0]->GetReferenceCount(), 1);
  EXPECT_EQ(objects[2]->GetReferenceCount(), 3);
  EXPECT_EQ(list->SetAt(0, objects[2]), 0) << "the same again";
  EXPECT_EQ(objects[2]->GetReferenceCount(), 3);
  EXPECT_EQ(list->SetAt(0, nullptr), 0);
  EXPECT_EQ(At(0), nullptr);
  EXPECT_EQ(list->SetAt(3, objects[0]), ZelErrorInvalidArgument);
  EXPECT_EQ(list->SetAt(-1, objects[0]), ZelErrorInvalidArgument);
}

TEST_F(ListTest, ClearReleasesAllAndTheListGoesOn) {
  AddAll();
  list->Clear();
  EXPECT_EQ(list->GetCount(), 0);
  for (TestObject* const object : objects) EXPECT_EQ(object->GetReferenceCount(), 1);
  AddAll();
  EXPECT_EQ(At(2), objects[2]);
}

TEST_F(ListTest, FullMemoryIsReportedByAddAndAddsNoReference) {
  {
    FailingAllocation const failing;
    EXPECT_EQ(list->Add(objects[0]), ZelErrorOutOfMemory);
  }
  EXPECT_EQ(list->GetCount(), 0);
  EXPECT_EQ(objects[0]->GetReferenceCount(), 1);
}

TEST_F(ListTest, WithoutMemoryForItsCursorAListStillHoldsItems) {
  List* blind;
  {
    FailingAllocation const failing(1);  // the list itself is made, its cursor isn't
    blind = new List;
    ASSERT_EQ(FailingAllocation::failures(), 1);
  }
  ASSERT_NE(blind, nullptr);
  EXPECT_EQ(blind->Add(objects[0]), 0);
  EXPECT_EQ(blind->Reset(), ZelErrorNotReady);
  EXPECT_FALSE(blind->MoveNext());
  RObject<TestObject> holder;
  TestObject* item = nullptr;
  EXPECT_EQ(blind->GetCurrent(holder), ZelErrorNotReady);
  EXPECT_EQ(blind->GetCurrent(item), ZelErrorNotReady);
  EXPECT_EQ(blind->GetCurrent(), nullptr);
  EXPECT_EQ(blind->IndexOf(objects[0]), 0);
  EXPECT_EQ(blind->RemoveAt(0), 0);
  blind->Add(objects[0]);
  blind->Release();
}

// The built-in cursor and an enumerator of its own walk alike.
template <class Walk>
void ExpectWalk(Walk& walk, std::vector<TestObject*> const& expected) {
  EXPECT_EQ(walk.Reset(), 0);
  TestObject* item = expected.empty() ? nullptr : expected.front();
  TestObject* const untouched = item;
  EXPECT_EQ(walk.GetCurrent(item), ZelErrorNotReady);
  EXPECT_EQ(item, untouched);
  EXPECT_EQ(walk.GetCurrent(), nullptr);
  for (TestObject* const object : expected) {
    EXPECT_TRUE(walk.MoveNext());
    int32_t const before = object->GetReferenceCount();

    RObject<TestObject> holder;
    EXPECT_EQ(walk.GetCurrent(holder), 0);
    EXPECT_TRUE(holder == object);
    EXPECT_EQ(object->GetReferenceCount(), before + 1);
    EXPECT_EQ(walk.GetCurrent(holder), 0);
    EXPECT_EQ(object->GetReferenceCount(), before + 1) << "the holder holds it already";

    EXPECT_EQ(walk.GetCurrent(item), 0);
    EXPECT_EQ(item, object);
    EXPECT_EQ(object->GetReferenceCount(), before + 2);
    item->Release();

    EXPECT_EQ(walk.GetCurrent(), object);
    EXPECT_EQ(object->GetReferenceCount(), before + 2);
    object->Release();
  }
  RObject<TestObject> holder;
  EXPECT_FALSE(walk.MoveNext());
  EXPECT_EQ(walk.GetCurrent(holder), ZelErrorNotReady);
  EXPECT_FALSE(walk.MoveNext());
}

TEST_F(ListTest, BuiltInCursorWalksFromHeadToTail) {
  ExpectWalk(*list, {});
  AddAll();
  ExpectWalk(*list, {objects.begin(), objects.end()});
  ExpectWalk(*list, {objects.begin(), objects.end()});
}

TEST_F(ListTest, EnumeratorOfItsOwnWalksAlikeAndKeepsTheList) {
  AddAll();
  auto* const first = new Enumerator(list);
  auto* const second = new Enumerator(list);
  EXPECT_EQ(list->GetReferenceCount(), 3);
  EXPECT_TRUE(first->MoveNext());
  ExpectWalk(*second, {objects.begin(), objects.end()});
  EXPECT_TRUE(first->MoveNext());
  EXPECT_EQ(first->GetCurrent(), objects[1]);
  objects[1]->Release();
  first->Release();
  second->Release();
  EXPECT_EQ(list->GetReferenceCount(), 1);
}

TEST_F(ListTest, ListHasNoReferenceToItselfThroughItsCursor) {
  EXPECT_EQ(list->GetReferenceCount(), 1);
  list->MoveNext();
  EXPECT_EQ(list->GetReferenceCount(), 1);
}

TEST_F(ListTest, MoveNextAfterTheEndStaysFalseUntilReset) {
  list->Add(objects[0]);
  EXPECT_TRUE(list->MoveNext());
  EXPECT_FALSE(list->MoveNext());
  list->Add(objects[1]);
  EXPECT_FALSE(list->MoveNext());
  EXPECT_FALSE(list->MoveNext());
  list->Reset();
  EXPECT_TRUE(list->MoveNext());
  EXPECT_TRUE(list->MoveNext());
  EXPECT_FALSE(list->MoveNext());
}

TEST_F(ListTest, MoveNextOfAnEmptyListIsFalseAndFindsWhatComesLater) {
  EXPECT_FALSE(list->MoveNext());
  list->Add(objects[0]);
  EXPECT_TRUE(list->MoveNext()) << "the cursor is still before the first item";
}

TEST_F(ListTest, AddingDuringAWalkAppendsToIt) {
  list->Add(objects[0]);
  EXPECT_TRUE(list->MoveNext());
  list->Add(objects[1]);
  EXPECT_TRUE(list->MoveNext());
  TestObject* const item = list->GetCurrent();
  EXPECT_EQ(item, objects[1]);
  item->Release();
}

TEST_F(ListTest, CurrentNullItemIsNoFailure) {
  list->Add(nullptr);
  EXPECT_TRUE(list->MoveNext());
  objects[0]->Acquire();
  RObject<TestObject> holder(objects[0]);
  EXPECT_EQ(list->GetCurrent(holder), 0);
  EXPECT_TRUE(holder == nullptr);
  TestObject* item = objects[0];
  EXPECT_EQ(list->GetCurrent(item), 0);
  EXPECT_EQ(item, nullptr);
}

TEST_F(ListTest, RemovingTheCurrentItemStepsTheBuiltInCursorBack) {
  AddAll();
  list->MoveNext();
  list->MoveNext();
  list->RemoveAt(1);
  EXPECT_TRUE(list->MoveNext());
  TestObject* const item = list->GetCurrent();
  EXPECT_EQ(item, objects[2]);
  item->Release();

  list->Reset();
  list->MoveNext();
  list->RemoveAt(0);
  EXPECT_TRUE(list->MoveNext());
  list->Clear();
  EXPECT_FALSE(list->MoveNext());
}

TEST_F(ListTest, RangeWalkBorrowsTheItems) {
  AddAll();
  std::vector<TestObject*> seen;
  for (TestObject* const item : *list) seen.push_back(item);
  EXPECT_EQ(seen, std::vector<TestObject*>(objects.begin(), objects.end()));
  EXPECT_EQ(objects[0]->GetReferenceCount(), 2);
}

// An item that looks at its list while it dies finds it whole.
TEST_F(ListTest, ItemsMayLookAtTheListWhileTheyDie) {
  static int32_t seen = -1;
  struct Looking : TestObject {
    explicit Looking(List* watched) : list(watched) {}
    ~Looking() override {
      seen = list->GetCount();
      list->Clear();
    }
    List* list;
  };
  auto* const first = new Looking(list);
  list->Add(first);
  first->Release();
  auto* const second = new Looking(list);
  list->Add(second);
  second->Release();
  EXPECT_EQ(list->RemoveAt(0), 0);
  EXPECT_EQ(seen, 0) << "first the second item, with the first one still there, then that";
  EXPECT_EQ(list->GetCount(), 0);
}

TEST_F(ListTest, BehavesAsAVectorUnderRandomUse) {
  std::mt19937 random(static_cast<unsigned>(zel::test::testSeed()));
  std::vector<TestObject*> model;
  for (int step = 0; step < 4000; ++step) {
    TestObject* const object = random() % 5 == 0 ? nullptr : objects[random() % objects.size()];
    auto const index = static_cast<int32_t>(random() % (model.size() + 2)) - 1;
    bool const inRange = index >= 0 && index < static_cast<int32_t>(model.size());
    switch (random() % 6) {
      case 0:
      case 1:
        list->Add(object);
        model.push_back(object);
        break;
      case 2:
        EXPECT_EQ(list->RemoveAt(index), inRange ? 0 : ZelErrorInvalidArgument);
        if (inRange) model.erase(model.begin() + index);
        break;
      case 3:
        EXPECT_EQ(list->SetAt(index, object), inRange ? 0 : ZelErrorInvalidArgument);
        if (inRange) model[static_cast<size_t>(index)] = object;
        break;
      case 4:
        EXPECT_EQ(At(index), inRange ? model[static_cast<size_t>(index)] : nullptr);
        break;
      default: {
        auto const found = std::find(model.begin(), model.end(), object);
        EXPECT_EQ(list->IndexOf(object),
                  found == model.end() ? -1 : static_cast<int32_t>(found - model.begin()));
        if (random() % 64 == 0) {
          list->Clear();
          model.clear();
        }
      }
    }
    ASSERT_EQ(list->GetCount(), static_cast<int32_t>(model.size()));
  }
}

TEST(StringList, IndexOfComparesTheWholeTextExactly) {
  auto* const list = new CDependenciesList<CString>;
  String const narrow("caf\xC3\xA9"), upper("CAF\xC3\xA9"), wide(L"caf\u00E9"), prefix("caf");
  list->Add(upper);
  list->Add(prefix);
  list->Add(narrow);
  EXPECT_EQ(list->IndexOf(wide), 2) << "the wide forms match";
  EXPECT_EQ(list->IndexOf(upper), 0) << "with regard to case";
  EXPECT_EQ(list->IndexOf(nullptr), -1);
  list->Add(nullptr);
  EXPECT_EQ(list->IndexOf(nullptr), 3);
  list->Release();
}

TEST(ByteArrayList, IndexOfComparesTheBytes) {
  auto* const list = new CDependenciesList<CByteArray>;
  unsigned char const bytes[] = {1, 2, 3};
  ByteArray const first(bytes, 3), same(bytes, 3), shorter(bytes, 2);
  ByteArray const empty(new CByteArray(0));
  list->Add(empty);
  list->Add(first);
  EXPECT_EQ(list->IndexOf(same), 1);
  EXPECT_EQ(list->IndexOf(shorter), -1);
  EXPECT_EQ(list->IndexOf(empty), 0) << "an array without data is itself";
  list->Release();
}

}  // namespace Morvalen::Zel
