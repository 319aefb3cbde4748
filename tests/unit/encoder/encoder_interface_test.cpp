// The order of an interface's virtual operations is part of it: callers of other compilers' making
// go by the slot.

#include <gtest/gtest.h>

#include "tests/support/test_object.h"
#include "zel/encoder/x265_encoder_api.h"

namespace Morvalen::Zel {
namespace {

using zel::test::virtualSlot;

TEST(EncoderInterface, EncodersHaveThreeOperationsInOrder) {
  EXPECT_EQ(virtualSlot(&IMorvalenX265Encoder::Begin), 0);
  EXPECT_EQ(virtualSlot(&IMorvalenX265Encoder::Encode), 1);
  EXPECT_EQ(virtualSlot(&IMorvalenX265Encoder::Release), 2);
  EXPECT_EQ(virtualSlot(&IMorvalenX262Encoder::Begin), 0);
  EXPECT_EQ(virtualSlot(&IMorvalenX262Encoder::Encode), 1);
  EXPECT_EQ(virtualSlot(&IMorvalenX262Encoder::Release), 2);
}

TEST(EncoderInterface, ConsumerHasThreeOperationsInOrder) {
  EXPECT_EQ(virtualSlot(&IMorvalenEncoderConsumer::GetProperty), 0);
  EXPECT_EQ(virtualSlot(&IMorvalenEncoderConsumer::WriteSample), 1);
  EXPECT_EQ(virtualSlot(&IMorvalenEncoderConsumer::WriteHeaders), 2);
}

TEST(EncoderInterface, RootComesBeforeTheInterface) {
  auto* const encoder = CMorvalenX265EncoderApi::Create(nullptr);
  CDependenciesObjectVS2012 const* const root = encoder;
  IMorvalenX265Encoder const* const interface = encoder;
  EXPECT_EQ(static_cast<void const*>(root), static_cast<void const*>(encoder));
  EXPECT_GT(static_cast<void const*>(interface), static_cast<void const*>(root));
  encoder->Release();
}

}  // namespace
}  // namespace Morvalen::Zel
