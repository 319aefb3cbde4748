#include "zel/base/byte_order.h"

#include <gtest/gtest.h>

#include <array>

namespace zel::base {

namespace {

constexpr std::array<uint8_t, 9> kBytes = {0x00, 0xF1, 0xE2, 0xD3, 0xC4, 0xB5, 0xA6, 0x97, 0x88};

template <typename Store>
constexpr std::array<uint8_t, 10> stored(Store store) {
  std::array<uint8_t, 10> bytes{};
  bytes[0] = bytes[9] = 0xEE;
  store(bytes.data() + 1);
  return bytes;
}

using Stored = std::array<uint8_t, 10>;

}  // namespace

// The same at compile time, where another branch does the work, and at run time.
static_assert(loadBig16(kBytes.data() + 1) == 0xF1E2);
static_assert(loadBig24(kBytes.data() + 1) == 0xF1E2D3);
static_assert(loadBig32(kBytes.data() + 1) == 0xF1E2D3C4);
static_assert(loadBig64(kBytes.data() + 1) == 0xF1E2D3C4B5A69788);
static_assert(loadLittle16(kBytes.data() + 1) == 0xE2F1);
static_assert(loadLittle24(kBytes.data() + 1) == 0xD3E2F1);
static_assert(loadLittle32(kBytes.data() + 1) == 0xC4D3E2F1);
static_assert(loadLittle64(kBytes.data() + 1) == 0x8897A6B5C4D3E2F1);
static_assert(stored([](uint8_t* p) { storeBig32(p, 0x81020304); }) ==
              Stored{0xEE, 0x81, 2, 3, 4, 0, 0, 0, 0, 0xEE});
static_assert(stored([](uint8_t* p) { storeLittle32(p, 0x81020304); }) ==
              Stored{0xEE, 4, 3, 2, 0x81, 0, 0, 0, 0, 0xEE});

TEST(ByteOrder, LoadsBigEndian) {
  EXPECT_EQ(loadBig16(&kBytes[1]), 0xF1E2);
  EXPECT_EQ(loadBig24(&kBytes[1]), 0xF1E2D3u);
  EXPECT_EQ(loadBig32(&kBytes[1]), 0xF1E2D3C4u);
  EXPECT_EQ(loadBig64(&kBytes[1]), 0xF1E2D3C4B5A69788u);
}

TEST(ByteOrder, LoadsLittleEndian) {
  EXPECT_EQ(loadLittle16(&kBytes[1]), 0xE2F1);
  EXPECT_EQ(loadLittle24(&kBytes[1]), 0xD3E2F1u);
  EXPECT_EQ(loadLittle32(&kBytes[1]), 0xC4D3E2F1u);
  EXPECT_EQ(loadLittle64(&kBytes[1]), 0x8897A6B5C4D3E2F1u);
}

TEST(ByteOrder, StoresBigEndianAndNothingBeside) {
  EXPECT_EQ(stored([](uint8_t* p) { storeBig16(p, 0x8102); }),
            (Stored{0xEE, 0x81, 2, 0, 0, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeBig24(p, 0xFF810203); }),
            (Stored{0xEE, 0x81, 2, 3, 0, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeBig32(p, 0x81020304); }),
            (Stored{0xEE, 0x81, 2, 3, 4, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeBig64(p, 0x8102030405060708); }),
            (Stored{0xEE, 0x81, 2, 3, 4, 5, 6, 7, 8, 0xEE}));
}

TEST(ByteOrder, StoresLittleEndianAndNothingBeside) {
  EXPECT_EQ(stored([](uint8_t* p) { storeLittle16(p, 0x8102); }),
            (Stored{0xEE, 2, 0x81, 0, 0, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeLittle24(p, 0xFF810203); }),
            (Stored{0xEE, 3, 2, 0x81, 0, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeLittle32(p, 0x81020304); }),
            (Stored{0xEE, 4, 3, 2, 0x81, 0, 0, 0, 0, 0xEE}));
  EXPECT_EQ(stored([](uint8_t* p) { storeLittle64(p, 0x8102030405060708); }),
            (Stored{0xEE, 8, 7, 6, 5, 4, 3, 2, 0x81, 0xEE}));
}

}  // namespace zel::base
