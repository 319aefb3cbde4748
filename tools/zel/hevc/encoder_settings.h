#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zel/option_values.h"

// The encoder's property keys as the tool offers them: each under an option of its own, and all of
// them under --property. One table says how a value is written, what it may be, and what --help
// tells; the bytes are those of a property set.

namespace zel::tool {

enum class SettingKind : uint8_t {
  kWhole,        // int32, in a range
  kReal,         // double, in a range
  kSwitch,       // one byte, 0 or 1
  kWideSwitch,   // int32, 0 or 1
  kName,         // int32, one of `names`
  kNameOrWhole,  // int32, one of `names` or a number in a range
  kLevel,        // int32, ten times the level: "5.1" and "51" are the same
  kText,         // UTF-8
};

struct EncoderSetting {
  char const* const* key;  // a constant of CodeBookProperty
  SettingKind kind;
  double least;  // of kWhole, kReal, kNameOrWhole
  double most;
  std::span<const NamedValue> names;
  std::string_view option;  // "--keyint"; empty where rate_control.h has the option
  std::string_view group;   // of --help
  std::string_view help;
};

/// All keys that the encoder reads, in the order of --help.
std::span<const EncoderSetting> encoderSettings();

/// The row of a key, by the key itself ("x265_compressor.preset"); null when there is none.
const EncoderSetting* findEncoderSetting(std::string_view key);

/// A key and the bytes that stand under it.
struct EncoderProperty {
  std::string key;
  std::vector<uint8_t> value;
};

/// The bytes of `text`, nothing when it is no value of this setting.
std::optional<std::vector<uint8_t>> settingValue(const EncoderSetting& setting,
                                                 std::string_view text);

/// What the setting takes, for messages: "a whole number from 0 to 16".
std::string whatSettingTakes(const EncoderSetting& setting);

/// Declares the options of all settings that have one. Their properties go to `properties` in the
/// order of the table, whatever the order on the command line.
void addEncoderSettings(CLI::App& app, std::vector<EncoderProperty>& properties);

/// The little-endian bytes of a number as property sets hold it.
template <class Number>
std::vector<uint8_t> propertyBytes(Number value);

}  // namespace zel::tool
