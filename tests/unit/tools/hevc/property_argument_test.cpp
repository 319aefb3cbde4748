#include "tools/zel/hevc/property_argument.h"

#include <gtest/gtest.h>

#include "tools/zel/failure.h"

namespace zel::tool {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes valueOf(const std::string& argument) {
  return parsePropertyArgument(argument).value;
}

std::string refusalOf(const std::string& argument) {
  try {
    parsePropertyArgument(argument);
  } catch (const WrongUsage& error) {
    return error.what();
  }
  return "accepted";
}

TEST(PropertyArgument, KnownKeysHaveAType) {
  const EncoderProperty property = parsePropertyArgument("x265_compressor.num_b_frames=3");
  EXPECT_EQ(property.key, "x265_compressor.num_b_frames");
  EXPECT_EQ(property.value, (Bytes{3, 0, 0, 0}));
  EXPECT_EQ(valueOf("x265_rate_factor.rf=1.5").size(), 8u);
}

TEST(PropertyArgument, ConstantsNamesStandForTheirKeys) {
  EXPECT_EQ(parsePropertyArgument("X265Preset=fast").key, "x265_compressor.preset");
  EXPECT_EQ(parsePropertyArgument("AjaFifoSize=i32:4").key, "aja.fifo.size");
}

TEST(PropertyArgument, AnyKeyTakesATypedValue) {
  EXPECT_EQ(valueOf("k=bool:on"), (Bytes{1}));
  EXPECT_EQ(valueOf("k=u8:255"), (Bytes{255}));
  EXPECT_EQ(valueOf("k=i16:-2"), (Bytes{0xFE, 0xFF}));
  EXPECT_EQ(valueOf("k=u16:0x1234"), (Bytes{0x34, 0x12}));
  EXPECT_EQ(valueOf("k=i32:-1"), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(valueOf("k=u32:4294967295"), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(valueOf("k=i64:1"), (Bytes{1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(valueOf("k=u64:1"), (Bytes{1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(valueOf("k=f32:1"), (Bytes{0, 0, 0x80, 0x3F}));
  EXPECT_EQ(valueOf("k=f64:1"), (Bytes{0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
  EXPECT_EQ(valueOf("k=four:mp4v"), (Bytes{'m', 'p', '4', 'v'}));
  EXPECT_EQ(valueOf("k=text:a=b:c"), (Bytes{'a', '=', 'b', ':', 'c'}));
  EXPECT_EQ(valueOf("k=text:"), Bytes{});
  EXPECT_EQ(valueOf("k=hex:00fFa5"), (Bytes{0, 0xFF, 0xA5}));
}

TEST(PropertyArgument, AWrittenTypeBeatsTheKnownOne) {
  EXPECT_EQ(valueOf("X265MaxBFrames=u8:3"), (Bytes{3}));
  EXPECT_EQ(valueOf("X265CommandLine=text:i32:5").size(), 5u);
}

TEST(PropertyArgument, RefusalsSayWhatItShouldBe) {
  EXPECT_EQ(refusalOf("nonsense"),
            "--property is \"nonsense\"; it takes KEY=VALUE or KEY=TYPE:VALUE");
  EXPECT_EQ(refusalOf("=5"), "--property is \"=5\"; it takes KEY=VALUE or KEY=TYPE:VALUE");
  EXPECT_EQ(refusalOf("k=u8:256"),
            "--property is \"k=u8:256\"; u8 is a whole number from 0 to 255");
  EXPECT_EQ(refusalOf("k=hex:0"), "--property is \"k=hex:0\"; hex is pairs of hexadecimal digits");
  EXPECT_EQ(refusalOf("k=four:mp4"), "--property is \"k=four:mp4\"; four is four characters");
  EXPECT_EQ(refusalOf("X265MaxBFrames=17"),
            "--property is \"X265MaxBFrames=17\"; x265_compressor.num_b_frames is a whole number "
            "from 0 to 16");
  EXPECT_EQ(
      refusalOf("k=5"),
      "--property is \"k=5\"; the encoder has no key k, so the value needs a type before it, "
      "k=TYPE:VALUE, one of bool, u8, i16, u16, i32, u32, i64, u64, f32, f64, four, text, hex");
  for (const char* bad : {"k=u8:-1", "k=i16:32768", "k=u64:-1", "k=f64:nan", "k=bool:2",
                          "k=i32:", "k=hex:0g", "k=float:1"})
    EXPECT_NE(refusalOf(bad), "accepted") << bad;
}

}  // namespace
}  // namespace zel::tool
