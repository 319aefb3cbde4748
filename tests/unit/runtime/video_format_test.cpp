#include "zel/runtime/video_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/seed.h"
#include "tests/unit/runtime/list_digest.h"
#include "zel/runtime/vocabulary.h"

namespace Morvalen::Zel {
namespace {

static_assert(VideoFormat::MPEG4 == 0x6D703476, "constants are constant expressions for callers");
static_assert(VideoFormat::Unknown == 0);

constexpr unsigned int Four(char const (&text)[5]) {
  return FourCharacterCode(text);
}

// The lookups as their definitions tell them: a linear search at every step, nothing remembered.
// This is the judge of the indexed ones.
namespace walk {

VideoFormat::Format const* Find(unsigned int code) {
  for (VideoFormat::Format const* row = VideoFormat::formats; row->format != 0; ++row) {
    if (row->format == code) return row;
  }
  return nullptr;
}

char const* Name(unsigned int code) {
  for (;;) {
    VideoFormat::Format const* const row = Find(code);
    if (!row) return nullptr;
    if (row->name) return row->name;
    code = row->parent;
  }
}

unsigned int Equivalent(unsigned int code) {
  for (;;) {
    VideoFormat::Format const* const row = Find(code);
    if (!row) return 0;
    if (row->name) return row->format;
    code = row->parent;
  }
}

unsigned int Categorical(unsigned int code) {
  for (;;) {
    VideoFormat::Format const* const row = Find(code);
    if (!row || row->parent == 0) return 0;
    code = row->parent;
    if (row->name) return code;
  }
}

unsigned int Canonical(unsigned int code) {
  for (;;) {
    VideoFormat::Format const* const row = Find(code);
    if (!row) return 0;
    if (row->parent == 0) return row->format;
    code = row->parent;
  }
}

bool Is(unsigned int code, unsigned int kind) {
  while (code != kind) {
    VideoFormat::Format const* const row = Find(code);
    if (!row || row->parent == 0) return false;
    code = row->parent;
  }
  return true;
}

}  // namespace walk

void ExpectLookupsMatchWalk(unsigned int code) {
  SCOPED_TRACE(code);
  EXPECT_EQ(VideoFormat::GetName(code), walk::Name(code));  // the same text, not an equal one
  EXPECT_EQ(VideoFormat::GetEquivalentFormat(code), walk::Equivalent(code));
  EXPECT_EQ(VideoFormat::GetCategoricalFormat(code), walk::Categorical(code));
  EXPECT_EQ(VideoFormat::GetCanonicalFormat(code), walk::Canonical(code));
}

TEST(VideoFormat, HasItsConstantsInOrder) {
  EXPECT_EQ(GetVideoFormatConstants().size(), 293u);
  ListDigest digest;
  for (FormatConstant const& constant : GetVideoFormatConstants()) {
    char code[10];
    std::snprintf(code, sizeof code, " %08X", constant.code);
    digest.AddLine(std::string(constant.name) + code);
  }
  EXPECT_EQ(digest.Value(), 0xBF3F61C0C6531211u);
}

TEST(VideoFormat, MembersAreDataWithTheEnumeratedValues) {
  std::vector<unsigned int const*> members;
#define ZEL_VIDEO_FORMAT(name, code) members.push_back(&VideoFormat::name);
#include "zel/runtime/vocabulary/video_formats.def"
#undef ZEL_VIDEO_FORMAT
  ASSERT_EQ(members.size(), GetVideoFormatConstants().size());
  for (size_t index = 0; index < members.size(); ++index) {
    EXPECT_EQ(*members[index], GetVideoFormatConstants()[index].code)
        << GetVideoFormatConstants()[index].name;
  }
}

TEST(VideoFormat, TableHasItsRowsInOrder) {
  ListDigest digest;
  size_t roots = 0;
  size_t named = 0;
  for (VideoFormat::Format const& row : GetVideoFormatRows()) {
    char codes[20];
    std::snprintf(codes, sizeof codes, "%08X %08X ", row.format, row.parent);
    digest.AddLine(codes + std::string(row.name ? row.name : "-"));
    roots += row.parent == 0;
    named += row.name != nullptr;
  }
  EXPECT_EQ(GetVideoFormatRows().size(), 584u);
  EXPECT_EQ(roots, 108u);
  EXPECT_EQ(named, 333u);
  EXPECT_EQ(digest.Value(), 0x1345C90358A4D934u);
}

TEST(VideoFormat, TableEndsWithARowOfFormatZero) {
  VideoFormat::Format const& last = VideoFormat::formats[GetVideoFormatRows().size()];
  EXPECT_EQ(last.format, 0u);
  EXPECT_EQ(last.parent, 0u);
  EXPECT_EQ(last.name, nullptr);
}

TEST(VideoFormat, EveryParentHasARow) {
  for (VideoFormat::Format const& row : GetVideoFormatRows()) {
    if (row.parent) {
      EXPECT_NE(walk::Find(row.parent), nullptr) << row.format;
    }
  }
}

TEST(VideoFormat, SixCodesOccurTwice) {
  std::map<unsigned int, int> occurrences;
  for (VideoFormat::Format const& row : GetVideoFormatRows()) ++occurrences[row.format];
  std::set<unsigned int> twice;
  for (auto const& [code, count] : occurrences) {
    EXPECT_LE(count, 2) << code;
    if (count == 2) twice.insert(code);
  }
  EXPECT_EQ(twice, (std::set<unsigned int>{Four("jpeg"), Four("3VID"), Four("3vid"), Four("DVX1"),
                                           Four("DVX3"), Four("NV21")}));
}

TEST(VideoFormat, ConstantsWithoutARowAreUnknownToTheLookups) {
  std::set<unsigned int> without;
  for (FormatConstant const& constant : GetVideoFormatConstants()) {
    if (!VideoFormat::GetName(constant.code)) without.insert(constant.code);
  }
  std::set<unsigned int> const expected{VideoFormat::OneChannel16bit,
                                        VideoFormat::PackedTwoCHs8bit,
                                        VideoFormat::PlanarTwoCHs8bit,
                                        VideoFormat::PlanarTwoCHs16bit,
                                        VideoFormat::PackedTwoCHs16bit,
                                        VideoFormat::MorvalenNormalized,
                                        VideoFormat::Biplanar422YVU,
                                        VideoFormat::PackedBGRA_R,
                                        VideoFormat::PackedRGB_R,
                                        VideoFormat::PackedBGR_R,
                                        VideoFormat::PackedRGBA_R,
                                        VideoFormat::AccuPak,
                                        VideoFormat::Unknown};
  EXPECT_EQ(without, expected);
  for (unsigned int const code : expected) {
    EXPECT_EQ(VideoFormat::GetEquivalentFormat(code), 0u);
    EXPECT_EQ(VideoFormat::GetCategoricalFormat(code), 0u);
    EXPECT_EQ(VideoFormat::GetCanonicalFormat(code), 0u);
    EXPECT_FALSE(VideoFormat::IsFormat(code, VideoFormat::RGB));
  }
}

TEST(VideoFormat, LookupsMatchTheWalkForEveryRow) {
  for (VideoFormat::Format const& row : GetVideoFormatRows()) {
    ExpectLookupsMatchWalk(row.format);
    ExpectLookupsMatchWalk(row.format + 1);
    ExpectLookupsMatchWalk(row.format ^ 0x20000000);
  }
}

TEST(VideoFormat, LookupsMatchTheWalkForEveryConstant) {
  for (FormatConstant const& constant : GetVideoFormatConstants()) {
    ExpectLookupsMatchWalk(constant.code);
  }
}

TEST(VideoFormat, IsFormatMatchesTheWalkForEveryPairOfRows) {
  size_t kinds = 0;
  for (VideoFormat::Format const& row : GetVideoFormatRows()) {
    for (VideoFormat::Format const& kind : GetVideoFormatRows()) {
      bool const expected = walk::Is(row.format, kind.format);
      kinds += expected;
      ASSERT_EQ(VideoFormat::IsFormat(row.format, kind.format), expected)
          << row.format << " " << kind.format;
    }
  }
  EXPECT_GT(kinds, GetVideoFormatRows().size());  // not only each code with itself
}

TEST(VideoFormat, LookupsMatchTheWalkForRandomCodes) {
  std::mt19937 random(static_cast<unsigned int>(zel::test::testSeed()));
  for (int round = 0; round < 20000; ++round) {
    auto const code = static_cast<unsigned int>(random());
    ExpectLookupsMatchWalk(code);
    EXPECT_EQ(VideoFormat::IsFormat(code, code ^ 1), walk::Is(code, code ^ 1));
  }
}

TEST(VideoFormat, UnknownCodesHaveNoName) {
  EXPECT_EQ(VideoFormat::GetName(0), nullptr);
  EXPECT_EQ(VideoFormat::GetName(Four("none")), nullptr);
  EXPECT_EQ(VideoFormat::GetEquivalentFormat(0), 0u);
  EXPECT_EQ(VideoFormat::GetCategoricalFormat(0), 0u);
  EXPECT_EQ(VideoFormat::GetCanonicalFormat(0), 0u);
}

TEST(VideoFormat, ACodeIsItselfEvenWithoutARow) {
  EXPECT_TRUE(VideoFormat::IsFormat(Four("none"), Four("none")));
  EXPECT_TRUE(VideoFormat::IsFormat(0, 0));
  EXPECT_FALSE(VideoFormat::IsFormat(Four("none"), VideoFormat::H264));
  EXPECT_FALSE(VideoFormat::IsFormat(VideoFormat::H264, Four("none")));
}

TEST(VideoFormat, NothingWithAParentIsOfKindZero) {
  for (VideoFormat::Format const& row : GetVideoFormatRows()) {
    EXPECT_FALSE(VideoFormat::IsFormat(row.format, 0)) << row.format;
  }
}

TEST(VideoFormat, ANamedRootAndItsAliasHaveNoCategory) {
  EXPECT_EQ(VideoFormat::GetCategoricalFormat(VideoFormat::AVC), 0u);
  EXPECT_EQ(VideoFormat::GetCategoricalFormat(Four("AVC1")), 0u);
}

TEST(VideoFormat, AnAliasResolvesToItsRoot) {
  EXPECT_STREQ(VideoFormat::GetName(Four("AVC1")), "AVC");
  EXPECT_EQ(VideoFormat::GetEquivalentFormat(Four("AVC1")), Four("avc1"));
  EXPECT_EQ(VideoFormat::GetCanonicalFormat(Four("AVC1")), Four("avc1"));
}

TEST(VideoFormat, AKindLiesUnderItsCategoryAndItsRoot) {
  EXPECT_STREQ(VideoFormat::GetName(Four("ai52")), "AVC-Intra Class 50, 1080p25/50");
  EXPECT_EQ(VideoFormat::GetEquivalentFormat(Four("ai52")), Four("ai52"));
  EXPECT_EQ(VideoFormat::GetCategoricalFormat(Four("ai52")), Four("ai5 "));
  EXPECT_EQ(VideoFormat::GetCanonicalFormat(Four("ai52")), Four("h264"));
  EXPECT_TRUE(VideoFormat::IsFormat(Four("ai52"), Four("h264")));
  EXPECT_FALSE(VideoFormat::IsFormat(Four("h264"), Four("ai52")));
}

TEST(VideoFormat, AnAliasOfAKindResolvesOneStepAndTheRootResolvesAll) {
  EXPECT_EQ(VideoFormat::GetEquivalentFormat(Four("YUY2")), Four("YUYV"));
  EXPECT_EQ(VideoFormat::GetCanonicalFormat(Four("YUY2")), Four("YUV "));
}

TEST(VideoFormat, TheFirstRowOfACodeCounts) {
  EXPECT_STREQ(VideoFormat::GetName(Four("jpeg")), "Photo JPEG");
  EXPECT_FALSE(VideoFormat::IsFormat(Four("jpeg"), VideoFormat::MJPEG));
  EXPECT_STREQ(VideoFormat::GetName(Four("NV21")), "Biplanar YUV 4:2:0 Y:V:U");
}

TEST(VideoFormat, DisplayNamesStandAsTheyAre) {
  EXPECT_STREQ(VideoFormat::GetName(VideoFormat::AppleRLE), "Apple Lossless");
  EXPECT_STREQ(VideoFormat::GetName(VideoFormat::Packed444AYUV_32f),
               "Packed YUV 4:4:4:4  A:Y:U:V, 32-Bit Floating Point");
}

}  // namespace
}  // namespace Morvalen::Zel
