#pragma once

#include <x265.h>

#include <array>
#include <cstdint>

#include "zel/runtime/property_keys.h"

// The property keys that set one parameter each, as data: what the key is called, how many bytes
// its value has, and how it lands in x265's parameters. The configuration walks these tables, and
// the tests walk them against x265's own reading of the option of the same meaning.
//
// Numbers go into the fields as they stand. So a level is x265's level number, ten times the level
// of the standard: 51 for level 5.1.

namespace zel::encoder {

/// How a key's value is stored in a property set; the number is its size in bytes.
enum class KeyType : int32_t { kSwitch = 1, kNumber = 4, kReal = 8 };

/// A value that was read: `number` for switches (0 or 1) and numbers, `real` for reals.
struct KeyValue {
  int32_t number = 0;
  double real = 0.0;
};

struct EncoderKey {
  char const* const* name;  // a constant of CodeBookProperty
  KeyType type;
  char const* option;  // the x265 option of the same meaning
  void (*store)(x265_param& parameters, KeyValue value);
};

using KeyNames = Morvalen::Zel::CodeBookProperty;

/// Read in this order for every stream, each one optional.
inline constexpr auto kStreamKeys = std::to_array<EncoderKey>({
    {&KeyNames::X265KeyFrameInt, KeyType::kNumber, "keyint",
     [](x265_param& p, KeyValue v) { p.keyframeMax = v.number; }},
    {&KeyNames::X265OpenGop, KeyType::kSwitch, "open-gop",
     [](x265_param& p, KeyValue v) { p.bOpenGOP = v.number; }},
    {&KeyNames::X265SceneCutThreshold, KeyType::kNumber, "scenecut",
     [](x265_param& p, KeyValue v) { p.scenecutThreshold = v.number; }},
    {&KeyNames::X265MaxBFrames, KeyType::kNumber, "bframes",
     [](x265_param& p, KeyValue v) { p.bframes = v.number; }},
    {&KeyNames::X265AdaptiveBFrameScheduling, KeyType::kNumber, "b-adapt",
     [](x265_param& p, KeyValue v) { p.bFrameAdaptive = v.number; }},
    // A switch to x265, although the key has the size of a number.
    {&KeyNames::X265BPyramid, KeyType::kNumber, "b-pyramid",
     [](x265_param& p, KeyValue v) { p.bBPyramid = v.number != 0; }},
    {&KeyNames::X265MaxRefFrames, KeyType::kNumber, "ref",
     [](x265_param& p, KeyValue v) { p.maxNumReferences = v.number; }},
    // The description of the video signal reaches the stream only with its presence flags (ITU-T
    // H.265, E.2.1: video_signal_type_present_flag, colour_description_present_flag).
    {&KeyNames::X265VideoFormat, KeyType::kNumber, "videoformat",
     [](x265_param& p, KeyValue v) {
       p.vui.bEnableVideoSignalTypePresentFlag = 1;
       p.vui.videoFormat = v.number;
     }},
    {&KeyNames::X265ColorPrimaries, KeyType::kNumber, "colorprim",
     [](x265_param& p, KeyValue v) {
       p.vui.bEnableVideoSignalTypePresentFlag = 1;
       p.vui.bEnableColorDescriptionPresentFlag = 1;
       p.vui.colorPrimaries = v.number;
     }},
    {&KeyNames::X265TransferCharacteristics, KeyType::kNumber, "transfer",
     [](x265_param& p, KeyValue v) {
       p.vui.bEnableVideoSignalTypePresentFlag = 1;
       p.vui.bEnableColorDescriptionPresentFlag = 1;
       p.vui.transferCharacteristics = v.number;
     }},
    {&KeyNames::X265ColorMatrix, KeyType::kNumber, "colormatrix",
     [](x265_param& p, KeyValue v) {
       p.vui.bEnableVideoSignalTypePresentFlag = 1;
       p.vui.bEnableColorDescriptionPresentFlag = 1;
       p.vui.matrixCoeffs = v.number;
     }},
    // x265 wants to see at least one run of B pictures ahead. The number of B pictures is in place:
    // its key comes before this one.
    {&KeyNames::X265Lookahead, KeyType::kNumber, "rc-lookahead",
     [](x265_param& p, KeyValue v) {
       p.lookaheadDepth = v.number < p.bframes ? p.bframes : v.number;
     }},
    {&KeyNames::X265IPRatio, KeyType::kReal, "ipratio",
     [](x265_param& p, KeyValue v) { p.rc.ipFactor = v.real; }},
    {&KeyNames::X265AdaptiveQuantizationStrength, KeyType::kReal, "aq-strength",
     [](x265_param& p, KeyValue v) { p.rc.aqStrength = v.real; }},
    {&KeyNames::X265Level, KeyType::kNumber, "level",
     [](x265_param& p, KeyValue v) { p.levelIdc = v.number; }},
    {&KeyNames::X265VBVMaxRate, KeyType::kNumber, "vbv-maxrate",
     [](x265_param& p, KeyValue v) { p.rc.vbvMaxBitrate = v.number; }},
    // Deliberate: the number itself here, a percentage in kAverageBitRateKeys. So with a constant
    // quantiser or rate factor a number above 1 is a fullness in kilobits, as x265 reads it. Pinned
    // by encoder_configuration_test.cpp, InitialFillIsAPercentageOnlyWithAverageBitRate.
    {&KeyNames::X265VBVInitialFill, KeyType::kNumber, "vbv-init",
     [](x265_param& p, KeyValue v) { p.rc.vbvBufferInit = v.number; }},
    {&KeyNames::X265VBVBufferSize, KeyType::kNumber, "vbv-bufsize",
     [](x265_param& p, KeyValue v) { p.rc.vbvBufferSize = v.number; }},
});

/// Read again, in this order, when an average bit rate is asked for.
inline constexpr auto kAverageBitRateKeys = std::to_array<EncoderKey>({
    {&KeyNames::X265VBVBufferSize, KeyType::kNumber, "vbv-bufsize",
     [](x265_param& p, KeyValue v) { p.rc.vbvBufferSize = v.number; }},
    {&KeyNames::X265VBVInitialFill, KeyType::kNumber, "vbv-init",
     [](x265_param& p, KeyValue v) { p.rc.vbvBufferInit = v.number / 100.0; }},
    {&KeyNames::X265VBVMaxRate, KeyType::kNumber, "vbv-maxrate",
     [](x265_param& p, KeyValue v) { p.rc.vbvMaxBitrate = v.number; }},
});

/// Read with a constant quantiser.
inline constexpr EncoderKey kQuantizerKey{&KeyNames::X265Quantizer, KeyType::kNumber, "qp",
                                          [](x265_param& p, KeyValue v) { p.rc.qp = v.number; }};

/// Read with a constant rate factor.
inline constexpr EncoderKey kRateFactorKey{
    &KeyNames::X265RateFactor, KeyType::kReal, "crf",
    [](x265_param& p, KeyValue v) { p.rc.rfConstant = v.real; }};

/// Read with the two methods that hold a bit rate.
inline constexpr EncoderKey kHrdKey{&KeyNames::X265HRDCompliance, KeyType::kSwitch, "hrd",
                                    [](x265_param& p, KeyValue v) { p.bEmitHRDSEI = v.number; }};

/// The names that the preset, tuning and profile keys (numbers) are indices into.
inline constexpr auto kPresetNames =
    std::to_array<char const*>({"ultrafast", "superfast", "veryfast", "faster", "fast", "medium",
                                "slow", "slower", "veryslow", "placebo"});
inline constexpr auto kTuningNames =
    std::to_array<char const*>({"psnr", "ssim", "zerolatency", "fastdecode"});
inline constexpr auto kProfileNames =
    std::to_array<char const*>({"main", "main10", "mainstillpicture"});

}  // namespace zel::encoder
