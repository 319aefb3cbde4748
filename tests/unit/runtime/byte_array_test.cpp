#include "zel/runtime/byte_array.h"

#include <array>
#include <cstring>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes contents(CByteArray* array) {
  const unsigned char* data = array->GetData();
  return Bytes(data, data + array->GetLength());
}

constexpr unsigned char kFive[] = {1, 2, 3, 4, 5};

// ---- Making

TEST(ByteArray, HasItsTypeAndOneReference) {
  const ByteArray array(new CByteArray(3));
  EXPECT_EQ(CByteArray::Type, 0x64617461u);
  EXPECT_EQ(array->GetType(), CByteArray::Type);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(array->GetLength(), 3);
}

TEST(ByteArray, MakesItsMemoryAtTheFirstGetData) {
  const ByteArray array(new CByteArray(3));
  EXPECT_EQ(array->GetHashCode(), 0u) << "no data yet";
  unsigned char* data = array->GetData();
  ASSERT_NE(data, nullptr);
  std::memset(data, 7, 3);
  EXPECT_EQ(array->GetData(), data);
  EXPECT_EQ(contents(array), (Bytes{7, 7, 7}));
}

TEST(ByteArray, ANegativeLengthIsZeroWithData) {
  const ByteArray array(new CByteArray(-5));
  EXPECT_EQ(array->GetLength(), 0);
  EXPECT_NE(array->GetData(), nullptr);
  const ByteArray copied(new CByteArray(kFive, -5));
  EXPECT_EQ(copied->GetLength(), 0);
  const ByteArray wrapped(new CByteArray(-5, nullptr, nullptr));
  EXPECT_EQ(wrapped->GetLength(), 0);
}

TEST(ByteArray, CopiesASource) {
  unsigned char source[] = {1, 2, 3};
  const ByteArray array(new CByteArray(source, 3));
  source[0] = 9;
  EXPECT_EQ(contents(array), (Bytes{1, 2, 3}));
}

TEST(ByteArray, HasMemoryAtOnceWithoutASource) {
  const ByteArray array(new CByteArray(static_cast<const unsigned char*>(nullptr), 3));
  EXPECT_EQ(array->Clear(0, 3), 0) << "ZelErrorFailed would mean that there is no data";
  EXPECT_EQ(contents(array), (Bytes{0, 0, 0}));
}

TEST(ByteArray, WrapsMemoryOfTheCaller) {
  unsigned char foreign[] = {1, 2, 3};
  {
    const ByteArray array(new CByteArray(3, foreign, nullptr));
    EXPECT_EQ(array->GetData(), foreign);
    array->GetData()[0] = 9;
  }
  EXPECT_EQ(foreign[0], 9);
}

TEST(ByteArray, AWrapperHoldsItsParent) {
  auto* parent = new CByteArray(kFive, 5);
  {
    const ByteArray array(new CByteArray(3, parent->GetData(), parent));
    EXPECT_EQ(parent->GetReferenceCount(), 2);
  }
  EXPECT_EQ(parent->GetReferenceCount(), 1);
  parent->Release();
}

// ---- Windows

TEST(ByteArray, AWindowSharesTheMemory) {
  const ByteArray array(kFive, 5);
  CByteArray* window = nullptr;
  ASSERT_EQ(array->GetData(1, 3, &window), 0);
  const ByteArray holder(window);
  EXPECT_EQ(window->GetReferenceCount(), 1);
  EXPECT_EQ(array->GetReferenceCount(), 2);
  EXPECT_EQ(window->GetData(), array->GetData() + 1);
  EXPECT_EQ(contents(window), (Bytes{2, 3, 4}));
}

TEST(ByteArray, AWindowKeepsItsParentAlive) {
  auto* array = new CByteArray(kFive, 5);
  CByteArray* window = nullptr;
  ASSERT_EQ(array->GetData(2, 3, &window), 0);
  array->Release();
  EXPECT_EQ(contents(window), (Bytes{3, 4, 5}));
  window->Release();
}

TEST(ByteArray, AWindowOnAWindowKeepsAllAlive) {
  auto* array = new CByteArray(kFive, 5);
  CByteArray* window = nullptr;
  ASSERT_EQ(array->GetData(1, 4, &window), 0);
  array->Release();
  CByteArray* inner = nullptr;
  ASSERT_EQ(window->GetData(1, 2, &inner), 0);
  window->Release();
  EXPECT_EQ(contents(inner), (Bytes{3, 4}));
  inner->Release();
}

TEST(ByteArray, AWindowMakesTheMemoryOfItsParent) {
  const ByteArray array(new CByteArray(5));
  CByteArray* window = nullptr;
  ASSERT_EQ(array->GetData(1, 3, &window), 0);
  const ByteArray holder(window);
  EXPECT_EQ(window->GetData(), array->GetData() + 1);
}

TEST(ByteArray, WindowsAtTheEdges) {
  const ByteArray array(kFive, 5);
  CByteArray* window = nullptr;
  ASSERT_EQ(array->GetData(0, 5, &window), 0);
  EXPECT_EQ(contents(window).size(), 5u);
  window->Release();
  ASSERT_EQ(array->GetData(5, 0, &window), 0);
  EXPECT_EQ(window->GetLength(), 0);
  EXPECT_NE(window->GetData(), nullptr);
  window->Release();
}

TEST(ByteArray, AWindowOutOfBoundsIsRefused) {
  const ByteArray array(kFive, 5);
  CByteArray* window = nullptr;
  EXPECT_EQ(array->GetData(0, 6, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(6, 0, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(-1, 1, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(1, -1, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(INT32_MAX, INT32_MAX, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(1, INT32_MAX, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(array->GetData(INT32_MIN, INT32_MIN, &window), ZelErrorOutOfBounds);
  EXPECT_EQ(window, nullptr);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(array->GetData(0, 1, static_cast<CByteArray**>(nullptr)), ZelErrorNullArgument);
}

TEST(ByteArray, AByteByItsIndex) {
  const ByteArray array(kFive, 5);
  const CByteArray* bytes = array;
  EXPECT_EQ(bytes->GetData(0), 1);
  EXPECT_EQ(bytes->GetData(4), 5);
  EXPECT_EQ(bytes->GetData(5), 0);
  EXPECT_EQ(bytes->GetData(-1), 0);
  const ByteArray without(new CByteArray(5));
  EXPECT_EQ(static_cast<const CByteArray*>(static_cast<CByteArray*>(without))->GetData(0), 0);
}

// ---- SetData

TEST(ByteArray, SetDataPointsElsewhereAndReleasesTheParent) {
  auto* parent = new CByteArray(kFive, 5);
  CByteArray* window = nullptr;
  ASSERT_EQ(parent->GetData(1, 3, &window), 0);
  const ByteArray holder(window);
  unsigned char foreign[] = {7, 8, 9};
  window->SetData(foreign);
  EXPECT_EQ(parent->GetReferenceCount(), 1);
  EXPECT_EQ(contents(window), (Bytes{7, 8, 9}));
  parent->Release();
}

TEST(ByteArray, SetDataToNullBringsBackWhatTheArrayOwns) {
  const ByteArray array(kFive, 5);
  unsigned char* owned = array->GetData();
  unsigned char foreign[5] = {};
  array->SetData(foreign);
  EXPECT_EQ(array->GetData(), foreign);
  array->SetData(static_cast<unsigned char*>(nullptr));
  EXPECT_EQ(array->GetHashCode(), 0u);
  EXPECT_EQ(array->GetData(), owned);
  EXPECT_EQ(contents(array), Bytes(kFive, kFive + 5));
}

TEST(ByteArray, SetDataMakesAWindow) {
  auto* parent = new CByteArray(kFive, 5);
  const ByteArray array(new CByteArray(2));
  ASSERT_EQ(array->SetData(parent, 3), 0);
  EXPECT_EQ(parent->GetReferenceCount(), 2);
  parent->Release();
  EXPECT_EQ(contents(array), (Bytes{4, 5}));
}

TEST(ByteArray, SetDataReplacesTheParent) {
  const ByteArray first(kFive, 5);
  const ByteArray second(kFive, 5);
  const ByteArray array(new CByteArray(2));
  ASSERT_EQ(array->SetData(static_cast<CByteArray*>(first), 0), 0);
  ASSERT_EQ(array->SetData(static_cast<CByteArray*>(second), 1), 0);
  EXPECT_EQ(first->GetReferenceCount(), 1);
  EXPECT_EQ(second->GetReferenceCount(), 2);
  // Once more the same: the reference must not be lost on the way.
  ASSERT_EQ(array->SetData(static_cast<CByteArray*>(second), 2), 0);
  EXPECT_EQ(second->GetReferenceCount(), 2);
  EXPECT_EQ(contents(array), (Bytes{3, 4}));
}

TEST(ByteArray, SetDataThatDoesNotFitIsRefused) {
  const ByteArray parent(kFive, 5);
  const ByteArray array(new CByteArray(2));
  EXPECT_EQ(array->SetData(static_cast<CByteArray*>(parent), -1), ZelErrorOutOfBounds);
  EXPECT_EQ(array->SetData(static_cast<CByteArray*>(parent), 4), ZelErrorOutOfBounds);
  EXPECT_EQ(array->SetData(static_cast<CByteArray*>(parent), INT32_MAX), ZelErrorOutOfBounds);
  EXPECT_EQ(array->SetData(static_cast<CByteArray*>(nullptr), 0), ZelErrorNullArgument);
  EXPECT_EQ(parent->GetReferenceCount(), 1);
  EXPECT_EQ(array->GetHashCode(), 0u) << "still without data";
}

TEST(ByteArray, AWindowOnItselfChangesNothing) {
  const ByteArray array(kFive, 5);
  EXPECT_EQ(array->SetData(static_cast<CByteArray*>(array), 0), 0);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(contents(array), Bytes(kFive, kFive + 5));
}

// ---- Clear

TEST(ByteArray, ClearMakesTheMemoryAndZeroesIt) {
  const ByteArray array(new CByteArray(4));
  EXPECT_EQ(array->Clear(), 0);
  EXPECT_EQ(contents(array), Bytes(4, 0));
}

TEST(ByteArray, ClearOfARange) {
  const ByteArray array(kFive, 5);
  EXPECT_EQ(array->Clear(1, 2), 0);
  EXPECT_EQ(contents(array), (Bytes{1, 0, 0, 4, 5}));
  EXPECT_EQ(array->Clear(5, 0), 0);
  EXPECT_EQ(array->Clear(0, 6), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(-1, 1), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(1, -1), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(INT32_MAX, INT32_MAX), ZelErrorInvalidArgument);
  EXPECT_EQ(contents(array), (Bytes{1, 0, 0, 4, 5}));
}

TEST(ByteArray, ClearOfARangeWithoutDataFails) {
  const ByteArray array(new CByteArray(4));
  EXPECT_EQ(array->Clear(0, 4), ZelErrorFailed);
  EXPECT_EQ(array->Clear(-1, 4), ZelErrorFailed);
}

// ---- Comparison and hash

TEST(ByteArray, StartsWith) {
  const ByteArray array(kFive, 5);
  const unsigned char other[] = {1, 3};
  EXPECT_TRUE(array->StartsWith(kFive, 2));
  EXPECT_TRUE(array->StartsWith(kFive, 5));
  EXPECT_TRUE(array->StartsWith(kFive, 0));
  EXPECT_FALSE(array->StartsWith(kFive, 6));
  EXPECT_FALSE(array->StartsWith(kFive, -1));
  EXPECT_FALSE(array->StartsWith(other, 2));
  EXPECT_FALSE(array->StartsWith(nullptr, 0));
  EXPECT_FALSE(ByteArray(new CByteArray(5))->StartsWith(kFive, 0));
}

TEST(ByteArray, Equals) {
  const ByteArray array(kFive, 5);
  const ByteArray same(kFive, 5);
  const ByteArray shorter(kFive, 4);
  const ByteArray without(new CByteArray(5));
  EXPECT_TRUE(array->Equals(static_cast<CByteArray*>(same)));
  EXPECT_TRUE(array->Equals(static_cast<CByteArray*>(array)));
  EXPECT_FALSE(array->Equals(static_cast<CByteArray*>(shorter)));
  EXPECT_FALSE(array->Equals(static_cast<CByteArray*>(without)));
  EXPECT_FALSE(without->Equals(static_cast<CByteArray*>(array)));
  EXPECT_FALSE(without->Equals(static_cast<CByteArray*>(without)));
  EXPECT_FALSE(array->Equals(nullptr));
  EXPECT_TRUE(array->Equals(kFive, 5));
  EXPECT_FALSE(array->Equals(kFive, 4));
  EXPECT_FALSE(array->Equals(nullptr, 5));
  EXPECT_FALSE(without->Equals(kFive, 5));
}

TEST(ByteArray, EmptyArraysAreEqualIfThisOneHasData) {
  const ByteArray withData(new CByteArray(0));
  withData->GetData();
  const ByteArray alsoWithData(new CByteArray(0));
  alsoWithData->GetData();
  const ByteArray without(new CByteArray(0));
  EXPECT_TRUE(withData->Equals(static_cast<CByteArray*>(alsoWithData)));
  EXPECT_TRUE(withData->Equals(static_cast<CByteArray*>(without)));
  EXPECT_FALSE(without->Equals(static_cast<CByteArray*>(withData)));
}

TEST(ByteArray, HashIsFnv1a) {
  const auto hash = [](const char* text) {
    const ByteArray array(reinterpret_cast<const unsigned char*>(text),
                          static_cast<int>(std::strlen(text)));
    return array->GetHashCode();
  };
  // Published test vectors of the 32-bit FNV-1a.
  EXPECT_EQ(hash(""), 0x811C9DC5u);
  EXPECT_EQ(hash("a"), 0xE40C292Cu);
  EXPECT_EQ(hash("foobar"), 0xBF9CF968u);
}

TEST(ByteArray, HashOfAnEmptyArrayWithDataDiffersFromOneWithout) {
  const ByteArray array(new CByteArray(0));
  EXPECT_EQ(array->GetHashCode(), 0u);
  array->GetData();
  EXPECT_EQ(array->GetHashCode(), 0x811C9DC5u);
}

TEST(ByteArray, HashIsVirtual) {
  const ByteArray array(kFive, 5);
  CDependenciesObjectVS2012* object = static_cast<CByteArray*>(array);
  EXPECT_EQ(object->GetHashCode(), array->GetHashCode());
}

// ---- Automation arrays

TEST(ByteArray, ToSAFEARRAYCopies) {
  const ByteArray array(kFive, 5);
  SAFEARRAY* copy = array->ToSAFEARRAY();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->cDims, 1);
  EXPECT_EQ(copy->cLocks, 0u);
  EXPECT_EQ(copy->rgsabound[0].cElements, 5u);
  EXPECT_EQ(copy->rgsabound[0].lLbound, 0);
  VARTYPE type = 0;
  EXPECT_EQ(SafeArrayGetVartype(copy, &type), S_OK);
  EXPECT_EQ(type, VT_UI1);
  EXPECT_NE(copy->pvData, array->GetData());
  EXPECT_EQ(std::memcmp(copy->pvData, kFive, 5), 0);
  EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
}

TEST(ByteArray, ToSAFEARRAYNeedsData) {
  const ByteArray array(new CByteArray(0));
  EXPECT_EQ(array->ToSAFEARRAY(), nullptr);
  array->GetData();
  SAFEARRAY* copy = array->ToSAFEARRAY();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->rgsabound[0].cElements, 0u);
  SafeArrayDestroy(copy);
}

// ---- Hexadecimal text

TEST(ByteArray, FromHexString) {
  CByteArray* array = nullptr;
  ASSERT_EQ(CByteArray::FromHexString("00aAfF09", array), 0);
  const ByteArray holder(array);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(contents(array), (Bytes{0x00, 0xAA, 0xFF, 0x09}));
}

TEST(ByteArray, FromHexStringOfEmptyTextIsAnEmptyArray) {
  CByteArray* array = nullptr;
  ASSERT_EQ(CByteArray::FromHexString("", array), 0);
  const ByteArray holder(array);
  EXPECT_EQ(array->GetLength(), 0);
}

TEST(ByteArray, FromHexStringRefusesOtherText) {
  CByteArray* array = nullptr;
  EXPECT_EQ(CByteArray::FromHexString("0G", array), ZelErrorInvalidArgument);
  EXPECT_EQ(CByteArray::FromHexString("0", array), ZelErrorInvalidArgument);
  EXPECT_EQ(CByteArray::FromHexString("0x", array), ZelErrorInvalidArgument);
  EXPECT_EQ(CByteArray::FromHexString(" 0", array), ZelErrorInvalidArgument);
  EXPECT_EQ(CByteArray::FromHexString("\xC3\xA9", array), ZelErrorInvalidArgument);
  EXPECT_EQ(CByteArray::FromHexString(nullptr, array), ZelErrorNullArgument);
  EXPECT_EQ(array, nullptr);
}

// ---- Threads

TEST(ByteArrayThreads, AllGetTheSameMemory) {
  constexpr int kThreads = 8;
  for (int round = 0; round < 100; ++round) {
    const ByteArray array(new CByteArray(64));
    std::array<unsigned char*, kThreads> found{};
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (unsigned char*& data : found) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        data = array->GetData();
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (unsigned char* data : found) ASSERT_EQ(data, array->GetData());
  }
}

// ---- The holder

TEST(ByteArrayHolder, IsEmptyByDefault) {
  const ByteArray empty;
  EXPECT_EQ(static_cast<const unsigned char*>(empty), nullptr);
  EXPECT_EQ(empty.GetLength(), 0);
  EXPECT_EQ(empty.GetData(0), 0);
}

TEST(ByteArrayHolder, MakesACopyingArray) {
  const ByteArray array(kFive, 5);
  EXPECT_EQ(array->GetReferenceCount(), 1);
  EXPECT_EQ(array.GetLength(), 5);
  EXPECT_EQ(array.GetData(1), 2);
  EXPECT_EQ(array.GetData(5), 0);
  EXPECT_EQ(std::memcmp(static_cast<const unsigned char*>(array), kFive, 5), 0);
}

TEST(ByteArrayHolder, ConversionMakesTheMemory) {
  const ByteArray array(new CByteArray(4));
  EXPECT_NE(static_cast<const unsigned char*>(array), nullptr);
}

TEST(ByteArrayHolder, WrapsWithAParent) {
  const ByteArray parent(kFive, 5);
  {
    const ByteArray array(3, parent->GetData() + 1, parent);
    EXPECT_EQ(parent->GetReferenceCount(), 2);
    EXPECT_EQ(array.GetData(0), 2);
  }
  EXPECT_EQ(parent->GetReferenceCount(), 1);
  unsigned char foreign[] = {7};
  const ByteArray orphan(1, foreign, ByteArray());
  EXPECT_EQ(orphan.GetData(0), 7);
}

TEST(ByteArrayHolder, CopyAssignmentAndFromObject) {
  const ByteArray first(kFive, 5);
  const ByteArray second(first);
  ByteArray third;
  third = first;
  EXPECT_EQ(first->GetReferenceCount(), 3);
  const ByteArray fourth = ByteArray::FromObject(first);
  EXPECT_EQ(first->GetReferenceCount(), 4);
  EXPECT_EQ(static_cast<CByteArray*>(fourth), static_cast<CByteArray*>(first));
  third = new CByteArray(1);
  EXPECT_EQ(first->GetReferenceCount(), 3);
  EXPECT_EQ(third.GetLength(), 1);
}

}  // namespace
}  // namespace Morvalen::Zel
