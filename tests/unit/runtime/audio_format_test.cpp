#include "zel/runtime/audio_format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/unit/runtime/list_digest.h"
#include "zel/runtime/vocabulary.h"

namespace Morvalen::Zel {
namespace {

static_assert(AudioFormat::AAC == 0x6D703461, "constants are constant expressions for callers");
static_assert(AudioFormat::Unknown == 0);

TEST(AudioFormat, HasItsConstantsInOrder) {
  EXPECT_EQ(GetAudioFormatConstants().size(), 93u);
  ListDigest digest;
  for (FormatConstant const& constant : GetAudioFormatConstants()) {
    char code[10];
    std::snprintf(code, sizeof code, " %08X", constant.code);
    digest.AddLine(std::string(constant.name) + code);
  }
  EXPECT_EQ(digest.Value(), 0xB8561CDFA7F49CF7u);
}

TEST(AudioFormat, MembersAreDataWithTheEnumeratedValues) {
  std::vector<unsigned int const*> members;
#define ZEL_AUDIO_FORMAT(name, code) members.push_back(&AudioFormat::name);
#include "zel/runtime/vocabulary/audio_formats.def"
#undef ZEL_AUDIO_FORMAT
  ASSERT_EQ(members.size(), GetAudioFormatConstants().size());
  for (size_t index = 0; index < members.size(); ++index) {
    EXPECT_EQ(*members[index], GetAudioFormatConstants()[index].code)
        << GetAudioFormatConstants()[index].name;
  }
}

TEST(AudioFormat, LittleEndianCodesAreReversedBigEndianOnes) {
  auto const reversed = [](unsigned int code) { return __builtin_bswap32(code); };
  EXPECT_EQ(AudioFormat::Int20L, reversed(AudioFormat::Int20B));
  EXPECT_EQ(AudioFormat::Int24L, reversed(AudioFormat::Int24B));
  EXPECT_EQ(AudioFormat::Int32L, reversed(AudioFormat::Int32B));
  EXPECT_EQ(AudioFormat::Float32L, reversed(AudioFormat::Float32B));
  EXPECT_EQ(AudioFormat::Float64L, reversed(AudioFormat::Float64B));
}

TEST(AudioFormat, CodesThatAreNoTextAreNumbers) {
  EXPECT_EQ(AudioFormat::TrueSpeech, 0x22000000u);
  EXPECT_EQ(AudioFormat::IntelMusicCoder, 0x01040000u);
  EXPECT_EQ(AudioFormat::MicrosoftADPCM, 0x6D730002u);
  EXPECT_EQ(AudioFormat::MicrosoftG726, 0x6D730045u);
}

TEST(AudioFormat, MuLawHasTwoNames) {
  EXPECT_EQ(AudioFormat::muLaw, AudioFormat::uLaw);
  EXPECT_EQ(AudioFormat::Int16B, FourCharacterCode("twos"));
  EXPECT_EQ(AudioFormat::Int16L, FourCharacterCode("sowt"));
}

}  // namespace
}  // namespace Morvalen::Zel
