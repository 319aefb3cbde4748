// Every row of the option table against the installed x265: each is known to it, takes effect on
// the parameter that it stands for, and a refused one is listed with the reason.

#include "zel/encoder/command_line_options.h"

#include <gtest/gtest.h>
#include <x265.h>

#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "tests/support/encoder_consumer.h"
#include "tests/support/x265_parameters.h"
#include "zel/encoder/encoder_configuration.h"
#include "zel/runtime/property_keys.h"

namespace zel::encoder {
namespace {

using Morvalen::Zel::CodeBookProperty;
using zel::test::EncoderConsumer;
using zel::test::X265Parameters;

X265Parameters mediumPreset() {
  X265Parameters parameters = zel::test::newX265Parameters();
  EXPECT_EQ(x265_param_default_preset(parameters.get(), "medium", nullptr), 0);
  parameters->logLevel = X265_LOG_NONE;
  return parameters;
}

int applyLine(x265_param& parameters, std::string const& line) {
  EncoderConsumer consumer;
  consumer.setText(CodeBookProperty::X265CommandLine, line);
  return ConfigureFromCommandLine(parameters, consumer);
}

double textIs(char const* text, std::string_view expected) {
  return text != nullptr && text == expected ? 1 : 0;
}

// One row of the option table in use: after `before` (a command line, often empty) the parameter
// must not have the value `expected` yet; after `line` it must.
struct Effect {
  char const* option;
  char const* before;
  char const* line;
  double (*read)(x265_param const& p);
  double expected;
};

#define FIELD(member) [](x265_param const& p) { return double(p.member); }

// clang-format off
constexpr Effect kEffects[] = {
    // Options whose effect isn't one number get a reader of their own.
    {"asm", "", "--asm sse2", [](x265_param const& p) { return p.cpuid != mediumPreset()->cpuid ? 1. : 0.; }, 1},
    {"no-asm", "", "--no-asm", FIELD(cpuid), 0},
    {"frame-threads", "", "--frame-threads 3", FIELD(frameNumThreads), 3},
    {"log-level", "", "--log-level warning", FIELD(logLevel), X265_LOG_WARNING},
    {"level", "", "--level 5.1", FIELD(levelIdc), 51},
    {"csv", "", "--csv frames.csv", [](x265_param const& p) { return textIs(p.csvfn, "frames.csv"); }, 1},
    {"no-cu-stats", "--cu-stats", "--no-cu-stats", FIELD(bLogCuStats), 0},
    {"cu-stats", "", "--cu-stats", FIELD(bLogCuStats), 1},
    {"input-csp", "", "--input-csp i444", FIELD(internalCsp), X265_CSP_I444},
    {"interlace", "", "--interlace bff", FIELD(interlaceMode), 2},
    {"no-interlace", "--interlace tff", "--no-interlace", FIELD(interlaceMode), 0},
    {"fps", "", "--fps 30000/1001", [](x265_param const& p) { return double(p.fpsNum) / p.fpsDenom; }, 30000. / 1001},
    {"no-wpp", "", "--no-wpp", FIELD(bEnableWavefront), 0},
    {"wpp", "--no-wpp", "--wpp", FIELD(bEnableWavefront), 1},
    {"ctu", "", "--ctu 16", FIELD(maxCUSize), 16},
    {"tu-intra-depth", "", "--tu-intra-depth 3", FIELD(tuQTMaxIntraDepth), 3},
    {"tu-inter-depth", "", "--tu-inter-depth 2", FIELD(tuQTMaxInterDepth), 2},
    {"me", "", "--me star", FIELD(searchMethod), X265_STAR_SEARCH},
    {"subme", "", "--subme 4", FIELD(subpelRefine), 4},
    {"merange", "", "--merange 25", FIELD(searchRange), 25},
    {"max-merge", "", "--max-merge 4", FIELD(maxNumMergeCand), 4},
    {"rdpenalty", "", "--rdpenalty 2", FIELD(rdPenalty), 2},
    {"no-rect", "--rect", "--no-rect", FIELD(bEnableRectInter), 0},
    {"rect", "", "--rect", FIELD(bEnableRectInter), 1},
    {"no-amp", "--amp", "--no-amp", FIELD(bEnableAMP), 0},
    {"amp", "", "--amp", FIELD(bEnableAMP), 1},
    {"no-early-skip", "--early-skip", "--no-early-skip", FIELD(bEnableEarlySkip), 0},
    {"early-skip", "--no-early-skip", "--early-skip", FIELD(bEnableEarlySkip), 1},
    {"no-tskip", "--tskip", "--no-tskip", FIELD(bEnableTransformSkip), 0},
    {"tskip", "", "--tskip", FIELD(bEnableTransformSkip), 1},
    {"no-tskip-fast", "--tskip-fast", "--no-tskip-fast", FIELD(bEnableTSkipFast), 0},
    {"tskip-fast", "", "--tskip-fast", FIELD(bEnableTSkipFast), 1},
    {"cu-lossless", "", "--cu-lossless", FIELD(bCULossless), 1},
    {"no-cu-lossless", "--cu-lossless", "--no-cu-lossless", FIELD(bCULossless), 0},
    {"no-constrained-intra", "--constrained-intra", "--no-constrained-intra", FIELD(bEnableConstrainedIntra), 0},
    {"constrained-intra", "", "--constrained-intra", FIELD(bEnableConstrainedIntra), 1},
    {"no-open-gop", "", "--no-open-gop", FIELD(bOpenGOP), 0},
    {"open-gop", "--no-open-gop", "--open-gop", FIELD(bOpenGOP), 1},
    {"keyint", "", "--keyint 77", FIELD(keyframeMax), 77},
    {"min-keyint", "", "--min-keyint 7", FIELD(keyframeMin), 7},
    {"scenecut", "", "--scenecut 55", FIELD(scenecutThreshold), 55},
    {"no-scenecut", "", "--no-scenecut", FIELD(scenecutThreshold), 0},
    {"rc-lookahead", "", "--rc-lookahead 33", FIELD(lookaheadDepth), 33},
    {"bframes", "", "--bframes 6", FIELD(bframes), 6},
    {"bframe-bias", "", "--bframe-bias 12", FIELD(bFrameBias), 12},
    {"b-adapt", "", "--b-adapt 1", FIELD(bFrameAdaptive), 1},
    {"no-b-adapt", "", "--no-b-adapt", FIELD(bFrameAdaptive), 0},
    {"no-b-pyramid", "", "--no-b-pyramid", FIELD(bBPyramid), 0},
    {"b-pyramid", "--no-b-pyramid", "--b-pyramid", FIELD(bBPyramid), 1},
    {"ref", "", "--ref 5", FIELD(maxNumReferences), 5},
    {"no-weightp", "", "--no-weightp", FIELD(bEnableWeightedPred), 0},
    {"weightp", "--no-weightp", "--weightp", FIELD(bEnableWeightedPred), 1},
    {"no-weightb", "--weightb", "--no-weightb", FIELD(bEnableWeightedBiPred), 0},
    {"weightb", "", "--weightb", FIELD(bEnableWeightedBiPred), 1},
    {"crf", "", "--crf 21.5", FIELD(rc.rfConstant), 21.5},
    {"crf-max", "", "--crf-max 40.5", FIELD(rc.rfConstantMax), 40.5},
    {"crf-min", "", "--crf-min 12.5", FIELD(rc.rfConstantMin), 12.5},
    {"vbv-maxrate", "", "--vbv-maxrate 1234", FIELD(rc.vbvMaxBitrate), 1234},
    {"vbv-bufsize", "", "--vbv-bufsize 2345", FIELD(rc.vbvBufferSize), 2345},
    {"vbv-init", "", "--vbv-init 0.75", FIELD(rc.vbvBufferInit), 0.75},
    {"bitrate", "", "--bitrate 3456", FIELD(rc.bitrate), 3456},
    {"qp", "", "--qp 23", FIELD(rc.qp), 23},
    {"aq-mode", "", "--aq-mode 1", FIELD(rc.aqMode), 1},
    {"aq-strength", "", "--aq-strength 1.5", FIELD(rc.aqStrength), 1.5},
    {"ipratio", "", "--ipratio 1.25", FIELD(rc.ipFactor), 1.25},
    {"pbratio", "", "--pbratio 1.75", FIELD(rc.pbFactor), 1.75},
    {"cbqpoffs", "", "--cbqpoffs -3", FIELD(cbQpOffset), -3},
    {"crqpoffs", "", "--crqpoffs 4", FIELD(crQpOffset), 4},
    {"rd", "", "--rd 5", FIELD(rdLevel), 5},
    {"psy-rd", "", "--psy-rd 1.25", FIELD(psyRd), 1.25},
    {"lossless", "", "--lossless", FIELD(bLossless), 1},
    {"no-lossless", "--lossless", "--no-lossless", FIELD(bLossless), 0},
    {"no-signhide", "", "--no-signhide", FIELD(bEnableSignHiding), 0},
    {"signhide", "--no-signhide", "--signhide", FIELD(bEnableSignHiding), 1},
    {"no-lft", "", "--no-lft", FIELD(bEnableLoopFilter), 0},
    {"lft", "--no-lft", "--lft", FIELD(bEnableLoopFilter), 1},
    {"no-sao", "", "--no-sao", FIELD(bEnableSAO), 0},
    {"sao", "--no-sao", "--sao", FIELD(bEnableSAO), 1},
    {"no-ssim", "--ssim", "--no-ssim", FIELD(bEnableSsim), 0},
    {"ssim", "", "--ssim", FIELD(bEnableSsim), 1},
    {"no-psnr", "--psnr", "--no-psnr", FIELD(bEnablePsnr), 0},
    {"psnr", "", "--psnr", FIELD(bEnablePsnr), 1},
    {"hash", "", "--hash 2", FIELD(decodedPictureHashSEI), 2},
    {"no-strong-intra-smoothing", "", "--no-strong-intra-smoothing", FIELD(bEnableStrongIntraSmoothing), 0},
    {"strong-intra-smoothing", "--no-strong-intra-smoothing", "--strong-intra-smoothing", FIELD(bEnableStrongIntraSmoothing), 1},
    {"no-cutree", "", "--no-cutree", FIELD(rc.cuTree), 0},
    {"cutree", "--no-cutree", "--cutree", FIELD(rc.cuTree), 1},
    {"no-hrd", "--hrd", "--no-hrd", FIELD(bEmitHRDSEI), 0},
    {"hrd", "", "--hrd", FIELD(bEmitHRDSEI), 1},
    {"sar", "", "--sar 5:7", [](x265_param const& p) { return p.vui.sarWidth * 100. + p.vui.sarHeight; }, 507},
    {"overscan", "", "--overscan crop", FIELD(vui.bEnableOverscanAppropriateFlag), 1},
    {"videoformat", "", "--videoformat pal", FIELD(vui.videoFormat), 1},
    {"range", "", "--range full", FIELD(vui.bEnableVideoFullRangeFlag), 1},
    {"colorprim", "", "--colorprim bt709", FIELD(vui.colorPrimaries), 1},
    {"transfer", "", "--transfer bt709", FIELD(vui.transferCharacteristics), 1},
    {"colormatrix", "", "--colormatrix bt709", FIELD(vui.matrixCoeffs), 1},
    {"chromaloc", "", "--chromaloc 2", FIELD(vui.chromaSampleLocTypeTopField), 2},
    {"crop-rect", "", "--crop-rect 2,4,6,8", FIELD(vui.defDispWinRightOffset), 6},
    {"no-repeat-headers", "--repeat-headers", "--no-repeat-headers", FIELD(bRepeatHeaders), 0},
    {"repeat-headers", "", "--repeat-headers", FIELD(bRepeatHeaders), 1},
    {"aud", "", "--aud", FIELD(bEnableAccessUnitDelimiters), 1},
    {"no-aud", "--aud", "--no-aud", FIELD(bEnableAccessUnitDelimiters), 0},
    {"lambda-file", "", "--lambda-file tables.txt", [](x265_param const& p) { return textIs(p.rc.lambdaFileName, "tables.txt"); }, 1},
    {"b-intra", "--no-b-intra", "--b-intra", FIELD(bIntraInBFrames), 1},
    {"no-b-intra", "", "--no-b-intra", FIELD(bIntraInBFrames), 0},
};
// clang-format on

#undef FIELD

// Rows that x265 3.5 (build 199) doesn't know by name, so that the encoder ignores them.
struct Refused {
  char const* option;
  char const* reason;
};

constexpr Refused kRefused[] = {
    {"threads", "the size of the thread pool is given with --pools"},
    {"output",
     "belongs to x265's program, which writes the file; here the consumer gets the stream"},
    {"no-fast-cbf", "the shortcut is gone from x265's analysis"},
    {"fast-cbf", "the shortcut is gone from x265's analysis"},
    {"sao-lcu-bounds", "became the switch --sao-non-deblock"},
    {"sao-lcu-opt", "the choice of the SAO optimisation is gone"},
    {"nr", "became --nr-intra and --nr-inter"},
};

TEST(CommandLineOptions, EveryRowIsTriedOrListedAsRefused) {
  std::set<std::string> tried;
  for (Effect const& effect : kEffects) EXPECT_TRUE(tried.insert(effect.option).second);
  for (Refused const& refused : kRefused) EXPECT_TRUE(tried.insert(refused.option).second);
  std::set<std::string> rows;
  for (CommandLineOption const& row : kCommandLineOptions) {
    EXPECT_TRUE(rows.insert(row.longName).second) << row.longName << " stands twice";
  }
  EXPECT_EQ(tried, rows);
}

TEST(CommandLineOptions, EachTakesEffect) {
  for (Effect const& effect : kEffects) {
    SCOPED_TRACE(effect.option);
    ASSERT_EQ(std::string(effect.line).substr(2, std::strlen(effect.option)), effect.option);
    X265Parameters const parameters = mediumPreset();
    EXPECT_EQ(applyLine(*parameters, effect.before), *effect.before == '\0' ? 1 : 0);
    EXPECT_NE(effect.read(*parameters), effect.expected) << "the test would not notice";
    EXPECT_EQ(applyLine(*parameters, effect.line), 0);
    EXPECT_DOUBLE_EQ(effect.read(*parameters), effect.expected);
  }
}

TEST(CommandLineOptions, ListedRowsAreRefusedByName) {
  for (Refused const& refused : kRefused) {
    SCOPED_TRACE(std::string(refused.option) + ": " + refused.reason);
    X265Parameters const parameters = mediumPreset();
    for (char const* value : {static_cast<char const*>(nullptr), "1"}) {
      EXPECT_EQ(x265_param_parse(parameters.get(), refused.option, value), X265_PARAM_BAD_NAME);
    }
    // The next option is still read.
    bool const takesValue = std::string_view(refused.option).find("cbf") == std::string_view::npos;
    std::string const line = std::string("--") + refused.option + (takesValue ? " 1" : "");
    applyLine(*parameters, line + " --keyint 77");
    EXPECT_EQ(parameters->keyframeMax, 77);
  }
}

TEST(CommandLineOptions, KindsAreThoseOfX265) {
  for (CommandLineOption const& row : kCommandLineOptions) {
    if (row.kind != OptionKind::kNoValue) continue;
    X265Parameters const parameters = mediumPreset();
    EXPECT_NE(x265_param_parse(parameters.get(), row.longName, nullptr), X265_PARAM_BAD_VALUE)
        << row.longName;
  }
}

}  // namespace
}  // namespace zel::encoder
