#include "zel/runtime/float_array.h"

#include <array>
#include <latch>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zel/runtime/holder.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using Floats = std::vector<float>;

Floats contents(CFloatArray* array) {
  return Floats(array->GetData(), array->GetData() + array->GetLength());
}

TEST(FloatArray, HasNoTypeAndNoMemoryAtFirst) {
  const RObject<CFloatArray> array(new CFloatArray(3));
  EXPECT_EQ(array->GetType(), 0u);
  EXPECT_EQ(array->GetLength(), 3);
  float* data = array->GetData();
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(array->GetData(), data);
}

TEST(FloatArray, ANegativeLengthIsZero) {
  const RObject<CFloatArray> array(new CFloatArray(-5));
  EXPECT_EQ(array->GetLength(), 0);
  EXPECT_NE(array->GetData(), nullptr);
}

TEST(FloatArray, SetDataPointsElsewhere) {
  const RObject<CFloatArray> array(new CFloatArray(2));
  float* owned = array->GetData();
  float foreign[] = {1.5f, 2.5f};
  array->SetData(foreign);
  EXPECT_EQ(array->GetData(), foreign);
  array->SetData(nullptr);
  EXPECT_EQ(array->GetData(), owned);
}

TEST(FloatArray, ClearZeroesAll) {
  float foreign[] = {1.5f, 2.5f};
  const RObject<CFloatArray> array(new CFloatArray(2));
  array->SetData(foreign);
  EXPECT_EQ(array->Clear(), 0);
  EXPECT_EQ(contents(array), (Floats{0, 0}));
}

TEST(FloatArray, ClearOfARange) {
  float foreign[] = {1, 2, 3, 4};
  const RObject<CFloatArray> array(new CFloatArray(4));
  array->SetData(foreign);
  EXPECT_EQ(array->Clear(1, 2), 0);
  EXPECT_EQ(contents(array), (Floats{1, 0, 0, 4}));
  EXPECT_EQ(array->Clear(4, 0), 0);
  EXPECT_EQ(array->Clear(0, 5), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(-1, 1), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(1, -1), ZelErrorInvalidArgument);
  EXPECT_EQ(array->Clear(INT32_MAX, INT32_MAX), ZelErrorInvalidArgument);
  EXPECT_EQ(contents(array), (Floats{1, 0, 0, 4}));
}

TEST(FloatArray, ClearWithoutDataSucceeds) {
  const RObject<CFloatArray> array(new CFloatArray(4));
  EXPECT_EQ(array->Clear(), 0);
  EXPECT_EQ(array->Clear(0, 4), 0);
  EXPECT_EQ(array->Clear(-1, 100), 0);
}

TEST(FloatArrayThreads, AllGetTheSameMemory) {
  constexpr int kThreads = 8;
  for (int round = 0; round < 100; ++round) {
    const RObject<CFloatArray> array(new CFloatArray(64));
    std::array<float*, kThreads> found{};
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (float*& data : found) {
      threads.emplace_back([&] {
        start.arrive_and_wait();
        data = array->GetData();
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (float* data : found) ASSERT_EQ(data, array->GetData());
  }
}

}  // namespace
}  // namespace Morvalen::Zel
