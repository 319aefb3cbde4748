#include "tools/zel/hevc/property_argument.h"

#include <limits>

#include <fmt/format.h>

#include "tools/zel/failure.h"
#include "zel/runtime/vocabulary.h"

namespace zel::tool {
namespace {

using Bytes = std::optional<std::vector<uint8_t>>;

template <class Integer>
Bytes readInteger(std::string_view text) {
  const auto value = parseWholeNumber(text);
  // 64-bit unsigned values above those of int64 are out of reach; no key needs them.
  if (!value || *value < static_cast<int64_t>(std::numeric_limits<Integer>::min())) return {};
  if (*value > 0 && static_cast<uint64_t>(*value) > std::numeric_limits<Integer>::max()) return {};
  return propertyBytes(static_cast<Integer>(*value));
}

Bytes readBool(std::string_view text) {
  const auto value = parseSwitch(text);
  if (!value) return {};
  return propertyBytes(static_cast<uint8_t>(*value ? 1 : 0));
}

template <class Real>
Bytes readReal(std::string_view text) {
  const auto value = parseNumber(text);
  if (!value) return {};
  return propertyBytes(static_cast<Real>(*value));
}

Bytes readText(std::string_view text) {
  return std::vector<uint8_t>(text.begin(), text.end());
}

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

Bytes readHexadecimal(std::string_view text) {
  if (text.size() % 2 != 0) return {};
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digitOf(text[i]);
    const int low = digitOf(text[i + 1]);
    if (high < 0 || low < 0) return {};
    bytes.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  return bytes;
}

// Property sets hold codes in reading order.
Bytes readFour(std::string_view text) {
  if (text.size() != 4) return {};
  return readText(text);
}

struct ValueType {
  std::string_view name;
  Bytes (*read)(std::string_view text);
  std::string_view takes;
};

constexpr ValueType kTypes[] = {
    {"bool", readBool, "on or off"},
    {"u8", readInteger<uint8_t>, "a whole number from 0 to 255"},
    {"i16", readInteger<int16_t>, "a whole number of 16 bits"},
    {"u16", readInteger<uint16_t>, "a whole number of 16 bits, from 0"},
    {"i32", readInteger<int32_t>, "a whole number of 32 bits"},
    {"u32", readInteger<uint32_t>, "a whole number of 32 bits, from 0"},
    {"i64", readInteger<int64_t>, "a whole number of 64 bits"},
    {"u64", readInteger<uint64_t>, "a whole number of 63 bits, from 0"},
    {"f32", readReal<float>, "a number"},
    {"f64", readReal<double>, "a number"},
    {"four", readFour, "four characters"},
    {"text", readText, "text"},
    {"hex", readHexadecimal, "pairs of hexadecimal digits"},
};

const ValueType* findType(std::string_view name) {
  for (const ValueType& type : kTypes)
    if (type.name == name) return &type;
  return nullptr;
}

std::string typeNames() {
  std::string names;
  for (const ValueType& type : kTypes) {
    if (!names.empty()) names += ", ";
    names += type.name;
  }
  return names;
}

// The key under a constant's name, or `name` itself.
std::string keyOf(const std::string& name) {
  for (const auto& keyClass : Morvalen::Zel::GetPropertyKeyClasses())
    for (const auto& key : keyClass.keys)
      if (key.name == name) return std::string(key.text);
  return name;
}

[[noreturn]] void throwBadProperty(const std::string& argument, const std::string& should) {
  throw WrongUsage(fmt::format("--property is \"{}\"; {}", argument, should));
}

}  // namespace

EncoderProperty parsePropertyArgument(const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos || equals == 0)
    throwBadProperty(argument, "it takes KEY=VALUE or KEY=TYPE:VALUE");
  const std::string key = keyOf(argument.substr(0, equals));
  const std::string_view value = std::string_view(argument).substr(equals + 1);

  const size_t colon = value.find(':');
  const ValueType* type =
      colon == std::string_view::npos ? nullptr : findType(value.substr(0, colon));
  if (type != nullptr) {
    auto bytes = type->read(value.substr(colon + 1));
    if (!bytes) throwBadProperty(argument, fmt::format("{} is {}", type->name, type->takes));
    return {key, std::move(*bytes)};
  }
  const EncoderSetting* setting = findEncoderSetting(key);
  if (setting == nullptr)
    throwBadProperty(argument, fmt::format("the encoder has no key {}, so the value needs a type "
                                           "before it, {}=TYPE:VALUE, one of {}",
                                           key, key, typeNames()));
  auto bytes = settingValue(*setting, value);
  if (!bytes) throwBadProperty(argument, fmt::format("{} is {}", key, whatSettingTakes(*setting)));
  return {key, std::move(*bytes)};
}

}  // namespace zel::tool
