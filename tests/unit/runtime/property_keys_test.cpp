#include "zel/runtime/property_keys.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "tests/unit/runtime/list_digest.h"
#include "zel/runtime/vocabulary.h"

namespace Morvalen::Zel {
namespace {

PropertyKeyClass const& ClassNamed(std::string_view name) {
  for (PropertyKeyClass const& keys : GetPropertyKeyClasses()) {
    if (keys.name == name) return keys;
  }
  static PropertyKeyClass const none{};
  ADD_FAILURE() << "no class " << name;
  return none;
}

TEST(PropertyKeys, ClassesHaveTheirKeys) {
  struct Expectation {
    char const* name;
    size_t count;
    uint64_t digest;
  };
  Expectation const expected[] = {
      {"CodeBookProperty", 117, 0x9D18FEA4515073B9u},
      {"ContainerProperty", 68, 0xE030AB36E2737059u},
      {"ContainerReaderProperty", 15, 0xC5F437E1B672A157u},
      {"ContainerWriterProperty", 56, 0x36E6A044B534A1C8u},
      {"SourceProperty", 10, 0xDA8A9A4A63E77641u},
      {"MediaProperty", 2, 0x6DA596CC5A6B6F3Eu},
  };
  EXPECT_EQ(GetPropertyKeyClasses().size(), std::size(expected));
  for (Expectation const& one : expected) {
    PropertyKeyClass const& keys = ClassNamed(one.name);
    EXPECT_EQ(keys.keys.size(), one.count) << one.name;
    ListDigest digest;
    for (PropertyKey const& key : keys.keys) {
      digest.AddLine(std::string(key.name) + ' ' + std::string(key.text));
    }
    EXPECT_EQ(digest.Value(), one.digest) << one.name;
  }
}

TEST(PropertyKeys, ConstantsHoldTheEnumeratedTexts) {
  // The members and the enumeration come from one list; this holds the exported data to it.
  std::map<std::string_view, std::map<std::string_view, char const*>> members;
#define ZEL_PROPERTY_KEY(name, text) members["CodeBookProperty"][#name] = CodeBookProperty::name;
#include "zel/runtime/vocabulary/code_book_keys.def"
#undef ZEL_PROPERTY_KEY
#define ZEL_PROPERTY_KEY(name, text) members["ContainerProperty"][#name] = ContainerProperty::name;
#include "zel/runtime/vocabulary/container_keys.def"
#undef ZEL_PROPERTY_KEY
#define ZEL_PROPERTY_KEY(name, text) \
  members["ContainerReaderProperty"][#name] = ContainerReaderProperty::name;
#include "zel/runtime/vocabulary/container_reader_keys.def"
#undef ZEL_PROPERTY_KEY
#define ZEL_PROPERTY_KEY(name, text) \
  members["ContainerWriterProperty"][#name] = ContainerWriterProperty::name;
#include "zel/runtime/vocabulary/container_writer_keys.def"
#undef ZEL_PROPERTY_KEY
#define ZEL_PROPERTY_KEY(name, text) members["SourceProperty"][#name] = SourceProperty::name;
#include "zel/runtime/vocabulary/source_keys.def"
#undef ZEL_PROPERTY_KEY
#define ZEL_PROPERTY_KEY(name, text) members["MediaProperty"][#name] = MediaProperty::name;
#include "zel/runtime/vocabulary/media_keys.def"
#undef ZEL_PROPERTY_KEY

  size_t compared = 0;
  for (PropertyKeyClass const& keys : GetPropertyKeyClasses()) {
    for (PropertyKey const& key : keys.keys) {
      char const* const text = members[keys.name][key.name];
      ASSERT_NE(text, nullptr) << keys.name << "::" << key.name;
      EXPECT_EQ(text, key.text) << keys.name << "::" << key.name;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 117u + 68u + 15u + 56u + 10u + 2u);
}

TEST(PropertyKeys, EveryTextIsItsOwn) {
  std::set<std::string_view> texts;
  for (PropertyKeyClass const& keys : GetPropertyKeyClasses()) {
    for (PropertyKey const& key : keys.keys) {
      EXPECT_TRUE(texts.insert(key.text).second) << key.text;
      EXPECT_FALSE(key.text.empty()) << key.name;
    }
  }
}

TEST(PropertyKeys, SpellingsAreFixed) {
  EXPECT_STREQ(CodeBookProperty::X265Preset, "x265_compressor.preset");
  EXPECT_STREQ(CodeBookProperty::PreferredFormats, "prefered_formats");
  EXPECT_STREQ(ContainerProperty::MovLocation, "com.apple.quicktime.location.ISO7609");
  EXPECT_STREQ(ContainerReaderProperty::VideoFormat, "video_format");
  EXPECT_STREQ(ContainerWriterProperty::Mpeg2TransportPmtRepetitionRate,
               "mpeg2.transport_stream.mpt_repetition_rate");
  EXPECT_STREQ(SourceProperty::Resolution, "resolution");
  EXPECT_STREQ(MediaProperty::Mpeg2TransportStreamPid, "mpeg2.ts.pid");
}

}  // namespace
}  // namespace Morvalen::Zel
