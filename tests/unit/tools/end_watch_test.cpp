#include "tools/zel/media/end_watch.h"

#include <array>

#include <gtest/gtest.h>

namespace zel::media {
namespace {

constexpr std::array<uint8_t, 5> kBytes{1, 2, 3, 4, 5};

TEST(EndWatch, TheLastByteIsNotYetTheEnd) {
  MemorySource source(kBytes);
  EndWatch watch(source);
  std::array<uint8_t, 5> out{};
  EXPECT_EQ(watch.read(out), 5u);
  EXPECT_EQ(out, kBytes);
  EXPECT_FALSE(watch.ended());
  EXPECT_EQ(watch.readByte(), -1);
  EXPECT_TRUE(watch.ended());
  EXPECT_EQ(watch.bytesRead(), 5u);
}

TEST(EndWatch, WhatIsPassedOverCountsAsRead) {
  MemorySource source(kBytes);
  EndWatch watch(source);
  EXPECT_EQ(watch.skip(3), 3u);
  EXPECT_EQ(watch.readByte(), 4);
  EXPECT_FALSE(watch.ended());
  EXPECT_EQ(watch.skip(2), 1u);
  EXPECT_TRUE(watch.ended());
  EXPECT_EQ(watch.bytesRead(), 5u);
}

// Gives what it has, and then fails.
class Broken : public ByteSource {
 public:
  size_t read(std::span<uint8_t> out) override {
    if (!given_ && !out.empty()) {
      given_ = true;
      out[0] = 9;
      if (out.size() == 1) return 1;
    }
    error_ = "disk on fire";
    return 0;
  }

 private:
  bool given_ = false;
};

TEST(EndWatch, AFailureIsNoEnd) {
  Broken source;
  EndWatch watch(source);
  EXPECT_EQ(watch.readByte(), 9);
  EXPECT_EQ(watch.readByte(), -1);
  EXPECT_FALSE(watch.ended());
  EXPECT_EQ(watch.error(), "disk on fire");
}

}  // namespace
}  // namespace zel::media
