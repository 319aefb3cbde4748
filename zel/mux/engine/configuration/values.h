#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"

// Values of a configuration text, to and from text. What can't be a value gives nothing. Numbers
// have a decimal point whatever the process's locale.

namespace zel::mux {

std::optional<bool> parse_yes_no(std::string_view text);
/// The position in `words`, letters in either case.
std::optional<int32_t> parse_choice(std::string_view text, std::span<const std::string_view> words);
/// Decimal, hexadecimal with 0x, octal with a leading 0. What fits 32 bits without a sign is taken
/// as those bits, so that 0xffffffff is -1. What follows the digits doesn't count.
std::optional<int32_t> parse_integer(std::string_view text);
/// Decimal only: 0x10 is 0.
std::optional<int32_t> parse_long(std::string_view text);
std::optional<int64_t> parse_wide(std::string_view text);
std::optional<double> parse_real(std::string_view text);
/// What stands between the first two double quotes, or all.
std::string_view parse_text(std::string_view text);
std::optional<Morvalen::Zel::tsm_time_code> parse_time(std::string_view text);
std::optional<Morvalen::Zel::tsm_time_code> parse_time_offset(std::string_view text);
/// Appends the bytes of one line. False when something there is no digit.
bool append_hex(std::string_view text, std::vector<uint8_t>& bytes);
std::optional<std::vector<int32_t>> parse_integers(std::string_view text);

std::string real_text(double value);  ///< "%.3f"
std::string time_text(const Morvalen::Zel::tsm_time_code& time);
std::string time_offset_text(const Morvalen::Zel::tsm_time_code& time);

/// The CRC of AES3 channel status over its first 23 bytes.
uint8_t channel_status_crc(std::span<const uint8_t> bytes);

}  // namespace zel::mux
