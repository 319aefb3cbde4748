// x265 in the hands of the test: its functions are replaced in this program by ones that note the
// call, fail when told to, and otherwise pass it on.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <x265.h>

#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/encoder_consumer.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/test_pictures.h"
#include "zel/encoder/x265_encoder_api.h"
#include "zel/runtime/property_keys.h"
#include "zel/runtime/result_codes.h"

namespace {

using ParsedOption = std::pair<std::string, std::optional<std::string>>;

struct X265Script {
  std::optional<int> presetResult;
  std::optional<int> profileResult;
  std::optional<int> headersResult;
  std::optional<int> encodeResult;
  bool failParamAlloc = false;
  bool refuseOpen = false;
  bool throwInOpen = false;
  bool throwInEncode = false;

  std::vector<std::string> calls;
  std::vector<ParsedOption> parsed;
  std::vector<int> lookaheads;  // at each open
  std::optional<x265_picture> input;
  int parametersAlive = 0;
  int encodersAlive = 0;
};

X265Script script;

// The function of that name in libx265.
template <typename Function>
Function* original(char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

x265_param* x265_param_alloc() {
  if (script.failParamAlloc) return nullptr;
  ++script.parametersAlive;
  return original<decltype(x265_param_alloc)>("x265_param_alloc")();
}

void x265_param_free(x265_param* parameters) {
  --script.parametersAlive;
  original<decltype(x265_param_free)>("x265_param_free")(parameters);
}

int x265_param_default_preset(x265_param* parameters, char const* preset, char const* tune) {
  script.calls.emplace_back("preset");
  if (script.presetResult) return *script.presetResult;
  return original<decltype(x265_param_default_preset)>("x265_param_default_preset")(parameters,
                                                                                    preset, tune);
}

int x265_param_apply_profile(x265_param* parameters, char const* profile) {
  script.calls.emplace_back("profile");
  if (script.profileResult) return *script.profileResult;
  return original<decltype(x265_param_apply_profile)>("x265_param_apply_profile")(parameters,
                                                                                  profile);
}

int x265_param_parse(x265_param* parameters, char const* name, char const* value) {
  script.calls.emplace_back("parse");
  script.parsed.emplace_back(name,
                             value != nullptr ? std::optional<std::string>(value) : std::nullopt);
  return original<decltype(x265_param_parse)>("x265_param_parse")(parameters, name, value);
}

// The name has x265's build number in it: the header makes x265_encoder_open a macro.
x265_encoder* x265_encoder_open(x265_param* parameters) {
  script.calls.emplace_back("open");
  script.lookaheads.push_back(parameters->lookaheadDepth);
  if (script.throwInOpen) throw std::bad_alloc();
  if (script.refuseOpen) return nullptr;
#define ZEL_TEXT_OF(macro) ZEL_TEXT(macro)
#define ZEL_TEXT(name) #name
  x265_encoder* const encoder =
      original<decltype(x265_encoder_open)>(ZEL_TEXT_OF(x265_encoder_open))(parameters);
  script.encodersAlive += encoder != nullptr ? 1 : 0;
  return encoder;
}

int x265_encoder_headers(x265_encoder* encoder, x265_nal** nals, uint32_t* count) {
  script.calls.emplace_back("headers");
  if (script.headersResult) return *script.headersResult;
  return original<decltype(x265_encoder_headers)>("x265_encoder_headers")(encoder, nals, count);
}

int x265_encoder_encode(x265_encoder* encoder, x265_nal** nals, uint32_t* count,
                        x265_picture* input, x265_picture* output) {
  script.calls.emplace_back("encode");
  script.input = input != nullptr ? std::optional<x265_picture>(*input) : std::nullopt;
  if (script.throwInEncode) throw std::bad_alloc();
  if (script.encodeResult) return *script.encodeResult;
  return original<decltype(x265_encoder_encode)>("x265_encoder_encode")(encoder, nals, count, input,
                                                                        output);
}

void x265_encoder_close(x265_encoder* encoder) {
  script.calls.emplace_back("close");
  --script.encodersAlive;
  original<decltype(x265_encoder_close)>("x265_encoder_close")(encoder);
}

}  // extern "C"

namespace Morvalen::Zel {
namespace {

using zel::test::EncoderConsumer;
using zel::test::FailingAllocation;
using zel::test::TestPictures;

class EncoderFailures : public testing::Test {
 protected:
  EncoderFailures() {
    script = X265Script{};
    consumer.setNumber(CodeBookProperty::X265Preset, 0);
    encoder = CMorvalenX265EncoderApi::Create(&consumer);
  }
  // Whatever went wrong, all that was made is gone with the encoder.
  ~EncoderFailures() override {
    encoder->Release();
    EXPECT_EQ(script.encodersAlive, 0);
    EXPECT_EQ(script.parametersAlive, 0);
  }

  int begin() { return encoder->Begin(192, 112, 1, 25, 1, 500000); }
  int encode(int number, CDependenciesObjectVS2012* userObject = nullptr) {
    return encoder->Encode(pictures.make(number).data(), userObject);
  }

  TestPictures const pictures{192, 112};
  EncoderConsumer consumer;
  CMorvalenX265EncoderApi* encoder;
};

TEST_F(EncoderFailures, BeginCallsX265InOrder) {
  consumer.setNumber(CodeBookProperty::X265Profile, 0);
  consumer.setText(CodeBookProperty::X265CommandLine, "--aud");
  ASSERT_GT(begin(), 0);
  EXPECT_EQ(script.calls,
            (std::vector<std::string>{"preset", "profile", "parse", "open", "headers"}));
}

TEST_F(EncoderFailures, ValueOptionThatIsLastIsParsedWithNull) {
  consumer.setText(CodeBookProperty::X265CommandLine, "--bframes=2 --keyint");
  ASSERT_GT(begin(), 0);
  EXPECT_EQ(script.parsed, (std::vector<ParsedOption>{{"bframes", "2"}, {"keyint", std::nullopt}}));
}

TEST_F(EncoderFailures, WithoutProfileNoneIsApplied) {
  ASSERT_GT(begin(), 0);
  EXPECT_EQ(script.calls, (std::vector<std::string>{"preset", "open", "headers"}));
}

TEST_F(EncoderFailures, PresetsFailureGoesOutAsItStands) {
  script.presetResult = -7;
  EXPECT_EQ(begin(), -7);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
}

TEST_F(EncoderFailures, ProfilesFailureGoesOutAsItStands) {
  consumer.setNumber(CodeBookProperty::X265Profile, 1);
  script.profileResult = -8;
  EXPECT_EQ(begin(), -8);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
}

TEST_F(EncoderFailures, OpenThatRefusesIsNotSupported) {
  script.refuseOpen = true;
  EXPECT_EQ(begin(), ZelErrorNotSupported);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
}

TEST_F(EncoderFailures, LookaheadIsTriedAsConfiguredFirst) {
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 4);
  consumer.setNumber(CodeBookProperty::X265Lookahead, 2);
  ASSERT_GT(begin(), 0);
  EXPECT_EQ(script.lookaheads, (std::vector<int>{4, 5}));
}

TEST_F(EncoderFailures, LookaheadIsNotTouchedWhereItIsNotToBlame) {
  script.refuseOpen = true;
  consumer.setNumber(CodeBookProperty::X265MaxBFrames, 4);
  consumer.setNumber(CodeBookProperty::X265Lookahead, 5);
  EXPECT_EQ(begin(), ZelErrorNotSupported);
  EXPECT_EQ(script.lookaheads, (std::vector<int>{5}));
}

TEST_F(EncoderFailures, OpenWithoutMemoryIsOutOfMemory) {
  script.throwInOpen = true;
  EXPECT_EQ(begin(), ZelErrorOutOfMemory);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
}

TEST_F(EncoderFailures, HeadersFailureGoesOutAsItStandsAndNothingIsWritten) {
  script.headersResult = -9;
  EXPECT_EQ(begin(), -9);
  EXPECT_TRUE(consumer.headers.empty());
  EXPECT_EQ(script.encodersAlive, 0);
  EXPECT_EQ(encode(0), ZelErrorNotReady);
  script.headersResult.reset();
  EXPECT_GT(begin(), 0);
}

TEST_F(EncoderFailures, BeginWithoutParametersIsOutOfMemory) {
  script.failParamAlloc = true;
  auto* const other = CMorvalenX265EncoderApi::Create(&consumer);
  script.failParamAlloc = false;
  EXPECT_EQ(other->Begin(192, 112, 1, 25, 1, 0), ZelErrorOutOfMemory);
  EXPECT_EQ(other->Encode(nullptr, nullptr), ZelErrorNotReady);
  other->Release();
}

TEST_F(EncoderFailures, CreateWithoutMemoryGivesNull) {
  FailingAllocation const failing;
  EXPECT_EQ(CMorvalenX265EncoderApi::Create(&consumer), nullptr);
}

TEST_F(EncoderFailures, EncodeWithoutMemoryLeavesTheTimesAlone) {
  ASSERT_GT(begin(), 0);
  auto* const object = new CDependenciesObjectVS2012;
  std::vector<uint8_t> const picture = pictures.make(0);
  {
    FailingAllocation const failing;
    EXPECT_EQ(encoder->Encode(picture.data(), object), ZelErrorOutOfMemory);
  }
  EXPECT_EQ(object->GetReferenceCount(), 1);
  EXPECT_EQ(encode(1, object), 0);
  EXPECT_EQ(encoder->Encode(nullptr, nullptr), 0);
  ASSERT_EQ(consumer.samples.size(), 1u);
  EXPECT_EQ(consumer.samples[0].pts, 0);
  object->Release();
}

TEST_F(EncoderFailures, EncodeThatFailsIsFailedAndWritesNothing) {
  for (bool throws : {false, true}) {
    script = X265Script{};
    EncoderConsumer own;
    own.setNumber(CodeBookProperty::X265Preset, 0);
    auto* const other = CMorvalenX265EncoderApi::Create(&own);
    ASSERT_GT(other->Begin(192, 112, 1, 25, 1, 0), 0);
    auto* const object = new CDependenciesObjectVS2012;
    ASSERT_EQ(other->Encode(pictures.make(0).data(), object), 0);
    script.throwInEncode = throws;
    if (!throws) script.encodeResult = -1;
    EXPECT_EQ(other->Encode(pictures.make(1).data(), object), ZelErrorFailed);
    EXPECT_EQ(other->Encode(nullptr, nullptr), ZelErrorFailed);
    EXPECT_TRUE(own.samples.empty());
    other->Release();
    EXPECT_EQ(object->GetReferenceCount(), 1);
    object->Release();
    ++script.parametersAlive;  // of the fixture's own encoder, whose count was reset
  }
}

TEST_F(EncoderFailures, PictureIsHandedOverInPlace) {
  ASSERT_GT(begin(), 0);
  std::vector<uint8_t> const picture = pictures.make(0);
  ASSERT_EQ(encoder->Encode(picture.data(), nullptr), 0);
  ASSERT_TRUE(script.input);
  EXPECT_EQ(script.input->bitDepth, 8);
  EXPECT_EQ(script.input->planes[0], picture.data());
  EXPECT_EQ(script.input->planes[1], picture.data() + 192 * 112);
  EXPECT_EQ(script.input->planes[2], picture.data() + 192 * 112 * 5 / 4);
  EXPECT_EQ(script.input->stride[0], 192);
  EXPECT_EQ(script.input->stride[1], 96);
  EXPECT_EQ(script.input->stride[2], 96);
  EXPECT_EQ(script.input->colorSpace, X265_CSP_I420);
  EXPECT_EQ(script.input->sliceType, X265_TYPE_AUTO);
  auto* const userData =
      static_cast<CMorvalenX265EncoderApi::CHevcUserData*>(script.input->userData);
  EXPECT_EQ(userData->pts, 0);
  EXPECT_EQ(userData->duration, 1);
}

TEST_F(EncoderFailures, DrainingHandsOverNoPicture) {
  ASSERT_GT(begin(), 0);
  ASSERT_EQ(encode(0), 0);
  ASSERT_EQ(encoder->Encode(nullptr, nullptr), 0);
  EXPECT_FALSE(script.input);
}

TEST_F(EncoderFailures, EncoderIsClosedOnce) {
  ASSERT_GT(begin(), 0);
  encoder->Acquire();
  encoder->Release();
  EXPECT_EQ(script.encodersAlive, 1);
  // The last reference goes in the fixture's destructor, which looks at the counts.
}

}  // namespace
}  // namespace Morvalen::Zel
