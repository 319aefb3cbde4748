#include "tools/zel/hevc/encoder_settings.h"

#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "zel/runtime/property_keys.h"

namespace zel::tool {
namespace {

using Keys = Morvalen::Zel::CodeBookProperty;

constexpr double kMostWhole = std::numeric_limits<int32_t>::max();

constexpr NamedValue kPresets[] = {
    {"ultrafast", 0}, {"superfast", 1}, {"veryfast", 2}, {"faster", 3},   {"fast", 4},
    {"medium", 5},    {"slow", 6},      {"slower", 7},   {"veryslow", 8}, {"placebo", 9}};
constexpr NamedValue kTunings[] = {{"psnr", 0}, {"ssim", 1}, {"zerolatency", 2}, {"fastdecode", 3}};
constexpr NamedValue kProfiles[] = {{"main", 0}, {"main10", 1}, {"mainstillpicture", 2}};
constexpr NamedValue kMethods[] = {{"abr", 0}, {"cqp", 1}, {"crf", 2}, {"cbr", 3}};
constexpr NamedValue kPlacements[] = {{"none", 0}, {"fast", 1}, {"trellis", 2}};

// ITU-T H.265, Tables E.2 to E.5. A number without a name here can be given as a number.
constexpr NamedValue kVideoFormats[] = {{"component", 0}, {"pal", 1}, {"ntsc", 2},
                                        {"secam", 3},     {"mac", 4}, {"unspecified", 5}};
constexpr NamedValue kPrimaries[] = {{"bt709", 1},     {"unspecified", 2}, {"bt470m", 4},
                                     {"bt470bg", 5},   {"smpte170m", 6},   {"smpte240m", 7},
                                     {"film", 8},      {"bt2020", 9},      {"smpte428", 10},
                                     {"smpte431", 11}, {"smpte432", 12},   {"ebu3213", 22}};
constexpr NamedValue kTransfers[] = {{"bt709", 1},         {"unspecified", 2}, {"bt470m", 4},
                                     {"bt470bg", 5},       {"smpte170m", 6},   {"smpte240m", 7},
                                     {"linear", 8},        {"log100", 9},      {"log316", 10},
                                     {"iec61966-2-4", 11}, {"bt1361e", 12},    {"srgb", 13},
                                     {"bt2020-10", 14},    {"bt2020-12", 15},  {"pq", 16},
                                     {"smpte428", 17},     {"hlg", 18}};
constexpr NamedValue kMatrices[] = {{"gbr", 0},       {"bt709", 1},   {"unspecified", 2},
                                    {"fcc", 4},       {"bt470bg", 5}, {"smpte170m", 6},
                                    {"smpte240m", 7}, {"ycgco", 8},   {"bt2020nc", 9},
                                    {"bt2020c", 10},  {"ictcp", 14}};

constexpr std::string_view kSpeed = "Speed and quality";
constexpr std::string_view kStructure = "Picture structure";
constexpr std::string_view kSignal = "Description of the video signal";

constexpr EncoderSetting kSettings[] = {
    // key, kind, least, most, names, option, group, help
    {&Keys::X265Preset, SettingKind::kName, 0, 0, kPresets, "--preset", kSpeed,
     "speed against quality and size (default medium)"},
    {&Keys::X265Tuning, SettingKind::kName, 0, 0, kTunings, "--tune", kSpeed,
     "what the preset is tuned for"},
    {&Keys::X265Profile, SettingKind::kName, 0, 0, kProfiles, "--profile", kSpeed,
     "the profile that the stream keeps to"},
    {&Keys::X265Level,
     SettingKind::kLevel,
     0,
     0,
     {},
     "--level",
     kSpeed,
     "the level that the stream keeps to, such as 5.1"},
    {&Keys::X265AdaptiveQuantizationStrength,
     SettingKind::kReal,
     0,
     3,
     {},
     "--aq-strength",
     kSpeed,
     "strength of the adaptive quantisation, 0 to 3"},
    {&Keys::X265IPRatio,
     SettingKind::kReal,
     0.01,
     10,
     {},
     "--ipratio",
     kSpeed,
     "quantiser of P pictures over that of I pictures"},

    {&Keys::X265KeyFrameInt,
     SettingKind::kWhole,
     -1,
     kMostWhole,
     {},
     "--keyint",
     kStructure,
     "most pictures from one key picture to the next; 1 for intra pictures only, -1 for one key "
     "picture at the start"},
    {&Keys::X265OpenGop,
     SettingKind::kSwitch,
     0,
     1,
     {},
     "--open-gop",
     kStructure,
     "whether pictures may refer across a key picture"},
    {&Keys::X265SceneCutThreshold,
     SettingKind::kWhole,
     0,
     kMostWhole,
     {},
     "--scenecut",
     kStructure,
     "how readily a scene cut gets a key picture; 0 never"},
    {&Keys::X265MaxBFrames,
     SettingKind::kWhole,
     0,
     16,
     {},
     "--bframes",
     kStructure,
     "most B pictures in a row, 0 to 16"},
    {&Keys::X265AdaptiveBFrameScheduling, SettingKind::kNameOrWhole, 0, 2, kPlacements, "--b-adapt",
     kStructure, "how B pictures are placed"},
    {&Keys::X265BPyramid,
     SettingKind::kWideSwitch,
     0,
     1,
     {},
     "--b-pyramid",
     kStructure,
     "whether B pictures may refer to B pictures"},
    {&Keys::X265MaxRefFrames,
     SettingKind::kWhole,
     1,
     16,
     {},
     "--ref",
     kStructure,
     "most pictures that one refers to, 1 to 16"},
    {&Keys::X265Lookahead,
     SettingKind::kWhole,
     0,
     250,
     {},
     "--lookahead",
     kStructure,
     "pictures that decisions look ahead, at least --bframes, at most 250"},

    {&Keys::X265VideoFormat, SettingKind::kNameOrWhole, 0, 7, kVideoFormats, "--videoformat",
     kSignal, "the system before digitising"},
    {&Keys::X265ColorPrimaries, SettingKind::kNameOrWhole, 0, 255, kPrimaries, "--colorprim",
     kSignal, "colour primaries"},
    {&Keys::X265TransferCharacteristics, SettingKind::kNameOrWhole, 0, 255, kTransfers,
     "--transfer", kSignal, "transfer characteristics"},
    {&Keys::X265ColorMatrix, SettingKind::kNameOrWhole, 0, 255, kMatrices, "--colormatrix", kSignal,
     "matrix from RGB (numbers: ITU-T H.265, Annex E)"},

    // Those of rate_control.h, and the command line: --property reaches them too.
    {&Keys::X265RateControlMethod, SettingKind::kNameOrWhole, 0, 3, kMethods, "", "", ""},
    {&Keys::X265Quantizer, SettingKind::kWhole, 0, 51, {}, "", "", ""},
    {&Keys::X265RateFactor, SettingKind::kReal, 0, 51, {}, "", "", ""},
    {&Keys::X265BufferDelay, SettingKind::kReal, 0, 3600, {}, "", "", ""},
    {&Keys::X265VBVMaxRate, SettingKind::kWhole, 0, kMostWhole, {}, "", "", ""},
    {&Keys::X265VBVBufferSize, SettingKind::kWhole, 0, kMostWhole, {}, "", "", ""},
    {&Keys::X265VBVInitialFill, SettingKind::kWhole, 0, kMostWhole, {}, "", "", ""},
    {&Keys::X265HRDCompliance, SettingKind::kSwitch, 0, 1, {}, "", "", ""},
    {&Keys::X265CommandLine, SettingKind::kText, 0, 0, {}, "", "", ""},
};

bool inRange(const EncoderSetting& setting, double value) {
  return value >= setting.least && value <= setting.most;
}

std::optional<int32_t> wholeInRange(const EncoderSetting& setting, std::string_view text) {
  const auto value = parseWholeNumber(text);
  if (!value || !inRange(setting, static_cast<double>(*value))) return std::nullopt;
  return static_cast<int32_t>(*value);
}

// Tables A.8 and A.9 of the standard: levels 1 to 6.2, and 8.5 without limits.
std::optional<int32_t> parseLevel(std::string_view text) {
  const auto number = parseNumber(text);
  if (!number || *number < 1 || *number > 85) return std::nullopt;
  const double tenfold = *number < 10 ? *number * 10 : *number;
  if (std::abs(tenfold - std::round(tenfold)) > 1e-6) return std::nullopt;
  return static_cast<int32_t>(std::lround(tenfold));
}

std::optional<int32_t> numberOf(const EncoderSetting& setting, std::string_view text) {
  switch (setting.kind) {
    case SettingKind::kWhole:
      return wholeInRange(setting, text);
    case SettingKind::kName:
      return parseName(text, setting.names);
    case SettingKind::kNameOrWhole: {
      const auto named = parseName(text, setting.names);
      return named ? named : wholeInRange(setting, text);
    }
    case SettingKind::kLevel:
      return parseLevel(text);
    default: {
      const auto on = parseSwitch(text);
      if (!on) return std::nullopt;
      return *on ? 1 : 0;
    }
  }
}

std::string_view typeNameOf(SettingKind kind) {
  switch (kind) {
    case SettingKind::kName:
    case SettingKind::kNameOrWhole:
      return "NAME";
    case SettingKind::kReal:
    case SettingKind::kLevel:
      return "X";
    case SettingKind::kSwitch:
    case SettingKind::kWideSwitch:
      return "on|off";
    case SettingKind::kText:
      return "TEXT";
    case SettingKind::kWhole:
      break;
  }
  return "N";
}

std::string helpOf(const EncoderSetting& setting) {
  std::string help(setting.help);
  if (!setting.names.empty()) help += ": " + listNames(setting.names);
  if (setting.kind == SettingKind::kNameOrWhole) help += ", or a number";
  return help;
}

}  // namespace

template <class Number>
std::vector<uint8_t> propertyBytes(Number value) {
  static_assert(std::endian::native == std::endian::little);
  const auto bytes = std::bit_cast<std::array<uint8_t, sizeof value>>(value);
  return {bytes.begin(), bytes.end()};
}

template std::vector<uint8_t> propertyBytes(int8_t);
template std::vector<uint8_t> propertyBytes(uint8_t);
template std::vector<uint8_t> propertyBytes(int16_t);
template std::vector<uint8_t> propertyBytes(uint16_t);
template std::vector<uint8_t> propertyBytes(int32_t);
template std::vector<uint8_t> propertyBytes(uint32_t);
template std::vector<uint8_t> propertyBytes(int64_t);
template std::vector<uint8_t> propertyBytes(uint64_t);
template std::vector<uint8_t> propertyBytes(float);
template std::vector<uint8_t> propertyBytes(double);

std::span<const EncoderSetting> encoderSettings() {
  return kSettings;
}

const EncoderSetting* findEncoderSetting(std::string_view key) {
  for (const EncoderSetting& setting : kSettings)
    if (key == *setting.key) return &setting;
  return nullptr;
}

std::optional<std::vector<uint8_t>> settingValue(const EncoderSetting& setting,
                                                 std::string_view text) {
  if (setting.kind == SettingKind::kText) return std::vector<uint8_t>(text.begin(), text.end());
  if (setting.kind == SettingKind::kReal) {
    const auto real = parseNumber(text);
    if (!real || !inRange(setting, *real)) return std::nullopt;
    return propertyBytes(*real);
  }
  const auto number = numberOf(setting, text);
  if (!number) return std::nullopt;
  if (setting.kind == SettingKind::kSwitch) return propertyBytes(static_cast<uint8_t>(*number));
  return propertyBytes(*number);
}

std::string whatSettingTakes(const EncoderSetting& setting) {
  const std::string range = setting.most == kMostWhole
                                ? fmt::format("from {}", setting.least)
                                : fmt::format("from {} to {}", setting.least, setting.most);
  switch (setting.kind) {
    case SettingKind::kWhole:
      return "a whole number " + range;
    case SettingKind::kReal:
      return "a number " + range;
    case SettingKind::kSwitch:
    case SettingKind::kWideSwitch:
      return "on or off";
    case SettingKind::kName:
      return "one of " + listNames(setting.names);
    case SettingKind::kNameOrWhole:
      return fmt::format("one of {}, or a number {}", listNames(setting.names), range);
    case SettingKind::kLevel:
      return "a level such as 4.1";
    case SettingKind::kText:
      break;
  }
  return "text";
}

void addEncoderSettings(CLI::App& app, std::vector<EncoderProperty>& properties) {
  for (const EncoderSetting& setting : kSettings) {
    if (setting.option.empty()) continue;
    const std::string option(setting.option);
    const auto take = [&setting, &properties, option](const std::string& text) {
      auto value = settingValue(setting, text);
      if (!value) throwBadValue(option, text, whatSettingTakes(setting));
      properties.push_back({*setting.key, std::move(*value)});
    };
    app.add_option_function<std::string>(option, take, helpOf(setting))
        ->type_name(std::string(typeNameOf(setting.kind)))
        ->group(std::string(setting.group))
        ->take_last();
  }
}

}  // namespace zel::tool
