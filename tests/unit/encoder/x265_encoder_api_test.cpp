#include "zel/encoder/x265_encoder_api.h"

#include <gtest/gtest.h>

#include "tests/support/encoder_consumer.h"
#include "tests/support/test_pictures.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace Morvalen::Zel {
namespace {

using zel::test::EncoderConsumer;
using zel::test::TestPictures;

TEST(X265EncoderApi, EncodesPictures) {
  EncoderConsumer consumer;
  consumer.setNumber(CodeBookProperty::X265Preset, 0);
  TestPictures const pictures(192, 112);
  auto* const encoder = CMorvalenX265EncoderApi::Create(&consumer);
  EXPECT_GT(encoder->Begin(192, 112, 1, 25, 1, 0), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(encoder->Encode(pictures.make(i).data(), nullptr), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
  EXPECT_EQ(consumer.samples.size(), 20u);
  encoder->Release();
}

}  // namespace
}  // namespace Morvalen::Zel
