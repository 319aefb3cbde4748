#include "zel/runtime/holder.h"

#include <gtest/gtest.h>

#include "tests/support/test_object.h"

namespace Morvalen::Zel {

namespace {

using zel::test::TestObject;

// A value holder as String and ByteArray are: it fills the virtual base, and the typed part
// follows.
class Holder : public Object<TestObject, void, void> {
 public:
  Holder() : BaseObject() {}
  Holder(TestObject* adopted) : BaseObject(adopted) {}
  Holder(Holder const& other) : BaseObject(other), Object() {}
  ~Holder() override = default;
  using Object<TestObject, void, void>::operator=;
  Holder& operator=(Holder const& other) {
    Object::operator=(other);
    return *this;
  }
  static Holder FromObject(TestObject* object) {
    return Holder(static_cast<TestObject*>(Object::FromObject(object)));
  }
  // What the base holds, whatever the typed pointer says.
  CDependenciesObjectVS2012* Base() const { return held; }
};

// An object that is kept alive by the test, so that its count can be read.
class HolderTest : public testing::Test {
 protected:
  ~HolderTest() override {
    EXPECT_EQ(a->GetReferenceCount(), 1);
    EXPECT_EQ(b->GetReferenceCount(), 1);
    a->Release();
    b->Release();
    EXPECT_EQ(TestObject::live, 0);
  }
  // The object with a reference to be adopted.
  static TestObject* Handed(TestObject* object) {
    object->Acquire();
    return object;
  }

  TestObject* const a = new TestObject(FourCharacterCode("aaaa"));
  TestObject* const b = new TestObject(FourCharacterCode("bbbb"));
};

using BaseObjectTest = HolderTest;
using ObjectTest = HolderTest;
using RObjectTest = HolderTest;

}  // namespace

TEST_F(BaseObjectTest, StartsEmpty) {
  BaseObject holder;
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(holder.ToObject(), nullptr);
}

TEST_F(BaseObjectTest, AdoptsARawPointerAndReleasesItAtItsEnd) {
  {
    BaseObject const holder(Handed(a));
    EXPECT_EQ(a->GetReferenceCount(), 2);
  }
  EXPECT_EQ(a->GetReferenceCount(), 1);
}

TEST_F(BaseObjectTest, CopyAddsAReference) {
  BaseObject const holder(Handed(a));
  BaseObject const copy(holder);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  EXPECT_EQ(copy, holder);
}

TEST_F(BaseObjectTest, AssigningAnotherRawPointerReleasesTheOldAndAdopts) {
  BaseObject holder(Handed(a));
  holder = Handed(b);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(b->GetReferenceCount(), 2);
  EXPECT_EQ(holder, b);
}

TEST_F(BaseObjectTest, AssigningTheSameRawPointerChangesNoReference) {
  BaseObject holder(Handed(a));
  holder = a;
  EXPECT_EQ(a->GetReferenceCount(), 2);
}

TEST_F(BaseObjectTest, AssigningAHolderAddsAReferenceUnlessItHoldsTheSame) {
  BaseObject first(Handed(a)), second(Handed(b)), same(Handed(a));
  first = second;
  EXPECT_EQ(a->GetReferenceCount(), 2);
  EXPECT_EQ(b->GetReferenceCount(), 3);
  second = first;
  EXPECT_EQ(b->GetReferenceCount(), 3);
  BaseObject& self = same;
  same = self;
  EXPECT_EQ(a->GetReferenceCount(), 2);
}

TEST_F(BaseObjectTest, FromObjectAndToObjectAddAReference) {
  BaseObject const holder = BaseObject::FromObject(a);
  EXPECT_EQ(a->GetReferenceCount(), 2);
  CDependenciesObjectVS2012* const raw = holder.ToObject();
  EXPECT_EQ(raw, a);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  raw->Release();
  EXPECT_EQ(BaseObject::FromObject(nullptr), nullptr);
}

TEST_F(BaseObjectTest, ConversionAndArrowAddNoReference) {
  BaseObject const holder(Handed(a));
  CDependenciesObjectVS2012* const raw = holder;
  EXPECT_EQ(raw, a);
  EXPECT_EQ(holder->GetType(), a->GetType());
  EXPECT_EQ(a->GetReferenceCount(), 2);
}

TEST_F(BaseObjectTest, IncrementAddsAReferenceAndReturnsTheHolderItself) {
  BaseObject holder(Handed(a));
  BaseObject& result = holder++;
  EXPECT_EQ(&result, &holder);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  EXPECT_EQ(holder, a);
  a->Release();
  BaseObject empty;
  EXPECT_EQ(&empty++, &empty);
}

TEST_F(BaseObjectTest, ComparesPointersWithHoldersAndRawOnes) {
  BaseObject const holder(Handed(a)), same(Handed(a)), other(Handed(b));
  EXPECT_TRUE(holder == same);
  EXPECT_FALSE(holder != same);
  EXPECT_TRUE(holder != other);
  EXPECT_TRUE(holder == a);
  EXPECT_TRUE(a == holder);
  EXPECT_TRUE(holder != b);
  EXPECT_FALSE(holder == nullptr);
  EXPECT_TRUE(BaseObject() == nullptr);
  EXPECT_TRUE(holder == static_cast<TestObject const*>(a));
}

TEST_F(BaseObjectTest, AnswersForTheTypeOfWhatItHolds) {
  BaseObject const holder(Handed(a));
  EXPECT_EQ(holder.GetType(), FourCharacterCode("aaaa"));
  EXPECT_TRUE(holder.IsType(FourCharacterCode("aaaa")));
  EXPECT_FALSE(holder.IsType(FourCharacterCode("bbbb")));
  EXPECT_EQ(BaseObject().GetType(), 0u);
  EXPECT_FALSE(BaseObject().IsType(0));
}

// What a release runs may come back to the holder that is releasing.
TEST_F(BaseObjectTest, HolderIsSettledBeforeTheOldObjectDies) {
  static BaseObject* watched = nullptr;
  static bool settled = false;
  struct Watching : TestObject {
    ~Watching() override { settled = *watched == nullptr; }
  };
  BaseObject holder(new Watching);
  watched = &holder;
  holder = static_cast<CDependenciesObjectVS2012*>(nullptr);
  EXPECT_TRUE(settled);
}

TEST_F(ObjectTest, DerivedHolderStartsEmpty) {
  Holder const holder;
  EXPECT_EQ(holder, nullptr);
  EXPECT_EQ(static_cast<TestObject*>(holder), nullptr);
}

TEST_F(ObjectTest, DerivedHolderAdoptsIntoTheBaseAndTheTypedPointerFollows) {
  {
    Holder const holder(Handed(a));
    EXPECT_EQ(holder.Base(), a);
    EXPECT_EQ(static_cast<TestObject*>(holder), a);
    EXPECT_EQ(a->GetReferenceCount(), 2);
  }
  EXPECT_EQ(a->GetReferenceCount(), 1);
}

TEST_F(ObjectTest, CopyOfADerivedHolderAddsAReference) {
  Holder const holder(Handed(a));
  Holder const copy(holder);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  EXPECT_EQ(static_cast<TestObject*>(copy), a);
}

TEST_F(ObjectTest, AssigningARawPointerWorksOnTheBaseAndStoresTheTypedPointer) {
  Holder holder(Handed(a));
  holder = Handed(b);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(holder.Base(), b);
  EXPECT_EQ(static_cast<TestObject*>(holder), b);
  holder = b;
  EXPECT_EQ(b->GetReferenceCount(), 2) << "the same pointer changes no reference";
  holder = nullptr;
  EXPECT_EQ(b->GetReferenceCount(), 1);
  EXPECT_EQ(static_cast<TestObject*>(holder), nullptr);
}

TEST_F(ObjectTest, AssigningAHolderAddsAReferenceAndCopiesTheTypedPointer) {
  Holder first(Handed(a));
  Holder const second(Handed(b));
  first = second;
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(b->GetReferenceCount(), 3);
  EXPECT_EQ(static_cast<TestObject*>(first), b);
  first = second;
  EXPECT_EQ(b->GetReferenceCount(), 3);
}

TEST_F(ObjectTest, ToObjectAddsAReferenceConversionAndArrowDoNot) {
  Holder const holder(Handed(a));
  TestObject* const raw = holder.ToObject();
  EXPECT_EQ(a->GetReferenceCount(), 3);
  raw->Release();
  EXPECT_EQ(holder->GetType(), a->GetType());
  EXPECT_EQ(Holder().ToObject(), nullptr);
}

TEST_F(ObjectTest, InheritsWhatTheBaseAnswers) {
  Holder holder(Handed(a));
  Holder const other(Handed(b));
  EXPECT_TRUE(holder == a);
  EXPECT_TRUE(holder != other);
  EXPECT_EQ(holder.GetType(), FourCharacterCode("aaaa"));
  EXPECT_TRUE(holder.IsType(FourCharacterCode("aaaa")));
  EXPECT_EQ(&holder++, &holder);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  a->Release();
}

TEST_F(ObjectTest, StandAloneObjectHoldsNothing) {
  {
    Object<TestObject, void, void> const alone(a);
    EXPECT_EQ(static_cast<TestObject*>(alone), a);
    EXPECT_TRUE(static_cast<BaseObject const&>(alone) == nullptr);
    Object<TestObject, void, void> const copy(alone);
    EXPECT_EQ(static_cast<TestObject*>(copy), a);
    EXPECT_EQ(a->GetReferenceCount(), 1);
    Holder const holder(Handed(b));
    Object<TestObject, void, void> const sliced(holder);
    EXPECT_EQ(static_cast<TestObject*>(sliced), b);
    EXPECT_EQ(b->GetReferenceCount(), 2) << "the slice adds no reference";
  }
  EXPECT_EQ(a->GetReferenceCount(), 1) << "and it releases nothing";
}

TEST_F(ObjectTest, StandAloneFromObjectAddsAReferenceThatNobodyOwnsYet) {
  {
    Object<TestObject, void, void> const alone = Object<TestObject, void, void>::FromObject(a);
    EXPECT_EQ(static_cast<TestObject*>(alone), a);
  }
  EXPECT_EQ(a->GetReferenceCount(), 2);
  a->Release();
}

TEST_F(ObjectTest, DerivedFromObjectComesToOwnThatReference) {
  {
    Holder const holder = Holder::FromObject(a);
    EXPECT_EQ(holder.Base(), a);
    EXPECT_EQ(a->GetReferenceCount(), 2);
  }
  EXPECT_EQ(a->GetReferenceCount(), 1);
}

TEST_F(ObjectTest, AssignmentMakesAStandAloneObjectHold) {
  {
    Object<TestObject, void, void> alone;
    alone = Handed(a);
    EXPECT_TRUE(static_cast<BaseObject const&>(alone) == a);
    Holder const holder(Handed(b));
    alone = holder;
    EXPECT_EQ(a->GetReferenceCount(), 1);
    EXPECT_EQ(b->GetReferenceCount(), 3);
  }
  EXPECT_EQ(b->GetReferenceCount(), 1);
}

TEST_F(ObjectTest, AssignmentFromAStandAloneObjectTakesNothingOver) {
  Holder holder(Handed(a));
  Object<TestObject, void, void>& part = holder;
  part = Object<TestObject, void, void>(b);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(holder.Base(), nullptr);
  EXPECT_EQ(static_cast<TestObject*>(holder), nullptr) << "equal to the base's pointer";
}

TEST_F(RObjectTest, StartsEmptyOrAdopts) {
  {
    RObject<TestObject> const empty;
    EXPECT_EQ(static_cast<TestObject*>(empty), nullptr);
    RObject<TestObject> const holder(Handed(a));
    EXPECT_EQ(a->GetReferenceCount(), 2);
  }
  EXPECT_EQ(a->GetReferenceCount(), 1);
}

TEST_F(RObjectTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<RObject<TestObject>>);
}

TEST_F(RObjectTest, AssigningARawPointerReleasesTheOldOneUnconditionally) {
  RObject<TestObject> holder(Handed(a));
  holder = Handed(b);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(b->GetReferenceCount(), 2);
  holder = Handed(b);
  EXPECT_EQ(b->GetReferenceCount(), 2) << "one given back, one adopted";
  holder = nullptr;
  EXPECT_EQ(b->GetReferenceCount(), 1);
}

TEST_F(RObjectTest, AssigningAHolderAddsAReferenceUnlessItHoldsTheSame) {
  RObject<TestObject> first(Handed(a));
  RObject<TestObject> const second(Handed(b));
  first = second;
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(b->GetReferenceCount(), 3);
  first = second;
  EXPECT_EQ(b->GetReferenceCount(), 3);
}

TEST_F(RObjectTest, SafeAcquireOfARawPointerAddsAReferenceUnlessItIsTheSame) {
  RObject<TestObject> holder;
  holder.SafeAcquire(a);
  EXPECT_EQ(a->GetReferenceCount(), 2);
  holder.SafeAcquire(a);
  EXPECT_EQ(a->GetReferenceCount(), 2);
  holder.SafeAcquire(b);
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(b->GetReferenceCount(), 2);
  holder.SafeAcquire(nullptr);
  EXPECT_EQ(b->GetReferenceCount(), 1);
}

TEST_F(RObjectTest, SafeAcquireReturnsThePointerWithAReferenceForTheCaller) {
  RObject<TestObject> const holder(Handed(a));
  TestObject* const raw = holder.SafeAcquire();
  EXPECT_EQ(raw, a);
  EXPECT_EQ(a->GetReferenceCount(), 3);
  raw->Release();
  EXPECT_EQ(RObject<TestObject>().SafeAcquire(), nullptr);
}

TEST_F(RObjectTest, AddressReleasesFirstEvenIfNothingIsWritten) {
  RObject<TestObject> holder(Handed(a));
  TestObject*& slot = &holder;
  EXPECT_EQ(a->GetReferenceCount(), 1);
  EXPECT_EQ(slot, nullptr);
  EXPECT_TRUE(holder == nullptr);
  slot = Handed(b);
  EXPECT_TRUE(holder == b);
}

TEST_F(RObjectTest, ComparesWithRawPointers) {
  RObject<TestObject> const holder(Handed(a));
  EXPECT_TRUE(holder == a);
  EXPECT_TRUE(a == holder);
  EXPECT_TRUE(holder != b);
  EXPECT_FALSE(holder != a);
  EXPECT_FALSE(holder == nullptr);
}

TEST_F(RObjectTest, ConversionAndArrowAddNoReference) {
  RObject<TestObject> const holder(Handed(a));
  TestObject* const raw = holder;
  EXPECT_EQ(raw, a);
  EXPECT_EQ(holder->GetType(), a->GetType());
  EXPECT_EQ(a->GetReferenceCount(), 2);
}

TEST_F(RObjectTest, IsPolymorphicAndLight) {
  EXPECT_TRUE(std::is_polymorphic_v<RObject<TestObject>>);
  EXPECT_EQ(sizeof(RObject<TestObject>), 2 * sizeof(void*));
}

}  // namespace Morvalen::Zel
