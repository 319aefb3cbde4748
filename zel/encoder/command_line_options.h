#pragma once

#include <array>

namespace zel::encoder {

/// Whether an option of the command line takes a value.
enum class OptionKind { kNoValue, kValue, kOptionalValue };

struct CommandLineOption {
  char const* longName;  // after "--"; also the name that x265 is given
  OptionKind kind;
  char const* shortName;  // after "-", or null
};

/// The options that the command line may hold; the first row that matches counts. The set is that
/// of the callers' saved settings, so it has names that later releases of x265 dropped: x265
/// refuses those, and a refused option is ignored. tests/unit/encoder/command_line_options_test.cpp
/// lists them.
inline constexpr auto kCommandLineOptions = [] {
  constexpr OptionKind kFlag = OptionKind::kNoValue;
  constexpr OptionKind kValue = OptionKind::kValue;
  // clang-format off
  return std::to_array<CommandLineOption>({
      // long name                  kind    short name
      {"asm",                       kValue, nullptr},
      {"no-asm",                    kFlag,  nullptr},
      {"threads",                   kValue, nullptr},
      {"frame-threads",             kValue, "F"},
      {"log-level",                 kValue, nullptr},
      {"level",                     kValue, nullptr},
      {"csv",                       kValue, nullptr},
      {"no-cu-stats",               kFlag,  nullptr},
      {"cu-stats",                  kFlag,  nullptr},
      {"output",                    kValue, "o"},
      {"input-csp",                 kValue, nullptr},
      {"interlace",                 kValue, nullptr},
      {"no-interlace",              kFlag,  nullptr},
      {"fps",                       kValue, nullptr},
      {"no-wpp",                    kFlag,  nullptr},
      {"wpp",                       kFlag,  nullptr},
      {"ctu",                       kValue, "s"},
      {"tu-intra-depth",            kValue, nullptr},
      {"tu-inter-depth",            kValue, nullptr},
      {"me",                        kValue, nullptr},
      {"subme",                     kValue, "m"},
      {"merange",                   kValue, nullptr},
      {"max-merge",                 kValue, nullptr},
      {"rdpenalty",                 kValue, nullptr},
      {"no-rect",                   kFlag,  nullptr},
      {"rect",                      kFlag,  nullptr},
      {"no-amp",                    kFlag,  nullptr},
      {"amp",                       kFlag,  nullptr},
      {"no-early-skip",             kFlag,  nullptr},
      {"early-skip",                kFlag,  nullptr},
      {"no-fast-cbf",               kFlag,  nullptr},
      {"fast-cbf",                  kFlag,  nullptr},
      {"no-tskip",                  kFlag,  nullptr},
      {"tskip",                     kFlag,  nullptr},
      {"no-tskip-fast",             kFlag,  nullptr},
      {"tskip-fast",                kFlag,  nullptr},
      {"cu-lossless",               kFlag,  nullptr},
      {"no-cu-lossless",            kFlag,  nullptr},
      {"no-constrained-intra",      kFlag,  nullptr},
      {"constrained-intra",         kFlag,  nullptr},
      {"no-open-gop",               kFlag,  nullptr},
      {"open-gop",                  kFlag,  nullptr},
      {"keyint",                    kValue, "I"},
      {"min-keyint",                kValue, "i"},
      {"scenecut",                  kValue, nullptr},
      {"no-scenecut",               kFlag,  nullptr},
      {"rc-lookahead",              kValue, nullptr},
      {"bframes",                   kValue, "b"},
      {"bframe-bias",               kValue, nullptr},
      {"b-adapt",                   kValue, nullptr},
      {"no-b-adapt",                kFlag,  nullptr},
      {"no-b-pyramid",              kFlag,  nullptr},
      {"b-pyramid",                 kFlag,  nullptr},
      {"ref",                       kValue, nullptr},
      {"no-weightp",                kFlag,  nullptr},
      {"weightp",                   kFlag,  "w"},
      {"no-weightb",                kFlag,  nullptr},
      {"weightb",                   kFlag,  nullptr},
      {"crf",                       kValue, nullptr},
      {"crf-max",                   kValue, nullptr},
      {"crf-min",                   kValue, nullptr},
      {"vbv-maxrate",               kValue, nullptr},
      {"vbv-bufsize",               kValue, nullptr},
      {"vbv-init",                  kValue, nullptr},
      {"bitrate",                   kValue, nullptr},
      {"qp",                        kValue, "q"},
      {"aq-mode",                   kValue, nullptr},
      {"aq-strength",               kValue, nullptr},
      {"ipratio",                   kValue, nullptr},
      {"pbratio",                   kValue, nullptr},
      {"cbqpoffs",                  kValue, nullptr},
      {"crqpoffs",                  kValue, nullptr},
      {"rd",                        kValue, nullptr},
      {"psy-rd",                    kValue, nullptr},
      {"lossless",                  kFlag,  nullptr},
      {"no-lossless",               kFlag,  nullptr},
      {"no-signhide",               kFlag,  nullptr},
      {"signhide",                  kFlag,  nullptr},
      {"no-lft",                    kFlag,  nullptr},
      {"lft",                       kFlag,  nullptr},
      {"no-sao",                    kFlag,  nullptr},
      {"sao",                       kFlag,  nullptr},
      {"sao-lcu-bounds",            kValue, nullptr},
      {"sao-lcu-opt",               kValue, nullptr},
      {"no-ssim",                   kFlag,  nullptr},
      {"ssim",                      kFlag,  nullptr},
      {"no-psnr",                   kFlag,  nullptr},
      {"psnr",                      kFlag,  nullptr},
      {"hash",                      kValue, nullptr},
      {"no-strong-intra-smoothing", kFlag,  nullptr},
      {"strong-intra-smoothing",    kFlag,  nullptr},
      {"no-cutree",                 kFlag,  nullptr},
      {"cutree",                    kFlag,  nullptr},
      {"no-hrd",                    kFlag,  nullptr},
      {"hrd",                       kFlag,  nullptr},
      {"sar",                       kValue, nullptr},
      {"overscan",                  kValue, nullptr},
      {"videoformat",               kValue, nullptr},
      {"range",                     kValue, nullptr},
      {"colorprim",                 kValue, nullptr},
      {"transfer",                  kValue, nullptr},
      {"colormatrix",               kValue, nullptr},
      {"chromaloc",                 kValue, nullptr},
      {"crop-rect",                 kValue, nullptr},
      {"no-repeat-headers",         kFlag,  nullptr},
      {"repeat-headers",            kFlag,  nullptr},
      {"aud",                       kFlag,  nullptr},
      {"no-aud",                    kFlag,  nullptr},
      {"lambda-file",               kValue, nullptr},
      {"b-intra",                   kFlag,  nullptr},
      {"no-b-intra",                kFlag,  nullptr},
      {"nr",                        kValue, nullptr},
  });
  // clang-format on
}();
static_assert(kCommandLineOptions.size() == 112);

}  // namespace zel::encoder
