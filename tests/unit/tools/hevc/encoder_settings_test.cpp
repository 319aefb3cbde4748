#include "tools/zel/hevc/encoder_settings.h"

#include <set>

#include <gtest/gtest.h>

#include "zel/encoder/encoder_keys.h"
#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Bytes = std::vector<uint8_t>;
using Keys = Morvalen::Zel::CodeBookProperty;

std::optional<Bytes> value(const char* key, std::string_view text) {
  const EncoderSetting* setting = findEncoderSetting(key);
  return setting == nullptr ? std::nullopt : settingValue(*setting, text);
}

// The encoder's own tables are hidden from the tool; a test may compare.
TEST(EncoderSettings, EveryKeyHasTheSizeThatTheEncoderReads) {
  const auto check = [](const encoder::EncoderKey& key) {
    const EncoderSetting* setting = findEncoderSetting(*key.name);
    ASSERT_NE(setting, nullptr) << *key.name;
    const auto bytes = settingValue(*setting, "1");
    ASSERT_TRUE(bytes) << *key.name;
    EXPECT_EQ(bytes->size(), static_cast<size_t>(key.type)) << *key.name;
  };
  for (const encoder::EncoderKey& key : encoder::kStreamKeys) check(key);
  for (const encoder::EncoderKey& key : encoder::kAverageBitRateKeys) check(key);
  check(encoder::kQuantizerKey);
  check(encoder::kRateFactorKey);
  check(encoder::kHrdKey);
}

template <class EncoderNames>
void expectNames(const char* key, const EncoderNames& names) {
  const EncoderSetting* setting = findEncoderSetting(key);
  ASSERT_NE(setting, nullptr);
  ASSERT_EQ(setting->names.size(), names.size()) << key;
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(setting->names[i].name, names[i]);
    EXPECT_EQ(setting->names[i].value, static_cast<int32_t>(i));
  }
}

TEST(EncoderSettings, NamesAreTheEncodersInItsOrder) {
  expectNames(Keys::X265Preset, encoder::kPresetNames);
  expectNames(Keys::X265Tuning, encoder::kTuningNames);
  expectNames(Keys::X265Profile, encoder::kProfileNames);
}

TEST(EncoderSettings, AllX265KeysAreThereOnce) {
  std::set<std::string_view> keys;
  for (const EncoderSetting& setting : encoderSettings())
    EXPECT_TRUE(keys.insert(*setting.key).second) << *setting.key;
  EXPECT_EQ(keys.size(), 27u);
  for (const std::string_view key : keys) EXPECT_EQ(key.substr(0, 4), "x265");
}

TEST(EncoderSettings, ValuesAreLittleEndianBytes) {
  EXPECT_EQ(value(Keys::X265KeyFrameInt, "250"), (Bytes{250, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265KeyFrameInt, "-1"), (Bytes{255, 255, 255, 255}));
  EXPECT_EQ(value(Keys::X265OpenGop, "on"), (Bytes{1}));
  EXPECT_EQ(value(Keys::X265BPyramid, "off"), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265Preset, "slow"), (Bytes{6, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265IPRatio, "1.5"), (Bytes{0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
  EXPECT_EQ(value(Keys::X265CommandLine, "-b 2"), (Bytes{'-', 'b', ' ', '2'}));
}

TEST(EncoderSettings, SignalDescriptionsTakeNamesAndNumbers) {
  EXPECT_EQ(value(Keys::X265ColorPrimaries, "bt2020"), (Bytes{9, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265TransferCharacteristics, "hlg"), (Bytes{18, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265ColorMatrix, "9"), (Bytes{9, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265ColorMatrix, "256"), std::nullopt);
}

TEST(EncoderSettings, LevelsAreTenfold) {
  for (const char* level : {"5.1", "51"})
    EXPECT_EQ(value(Keys::X265Level, level), (Bytes{51, 0, 0, 0}));
  EXPECT_EQ(value(Keys::X265Level, "4"), (Bytes{40, 0, 0, 0}));
  for (const char* bad : {"0", "5.15", "86", "high"})
    EXPECT_EQ(value(Keys::X265Level, bad), std::nullopt);
}

TEST(EncoderSettings, RangesAreKept) {
  EXPECT_TRUE(value(Keys::X265MaxBFrames, "16"));
  EXPECT_FALSE(value(Keys::X265MaxBFrames, "17"));
  EXPECT_FALSE(value(Keys::X265MaxBFrames, "-1"));
  EXPECT_FALSE(value(Keys::X265KeyFrameInt, "2147483648"));
  EXPECT_FALSE(value(Keys::X265AdaptiveQuantizationStrength, "3.5"));
}

TEST(EncoderSettings, EveryRefusalSaysWhatIsTaken) {
  for (const EncoderSetting& setting : encoderSettings()) {
    EXPECT_NE(whatSettingTakes(setting), "") << *setting.key;
    if (setting.kind == SettingKind::kText) continue;
    EXPECT_FALSE(settingValue(setting, "")) << *setting.key;
    EXPECT_FALSE(settingValue(setting, "nonsense")) << *setting.key;
  }
}

TEST(EncoderSettings, OptionsBecomeProperties) {
  CLI::App app;
  std::vector<EncoderProperty> properties;
  addEncoderSettings(app, properties);
  app.parse(std::vector<std::string>{"3", "--bframes", "60", "--keyint"});  // in reverse
  ASSERT_EQ(properties.size(), 2u);
  EXPECT_EQ(properties[0].key, Keys::X265KeyFrameInt);
  EXPECT_EQ(properties[0].value, (Bytes{60, 0, 0, 0}));
  EXPECT_EQ(properties[1].key, Keys::X265MaxBFrames);
}

}  // namespace
}  // namespace zel::tool
