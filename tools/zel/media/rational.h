#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zel::media {

/// A ratio of whole numbers, kept as given: 50/2 stays 50/2. 0/0 stands for "unknown" where a
/// format has that.
struct Rational {
  uint32_t numerator = 0;
  uint32_t denominator = 0;

  bool known() const { return numerator != 0 && denominator != 0; }
  friend bool operator==(const Rational&, const Rational&) = default;
};

/// Reads "30000/1001", "30000:1001", "25", or a decimal such as "29.97". The three NTSC family
/// decimals 23.976 (23.98), 29.97 and 59.94 mean the exact n*1000/1001 rates; other decimals are
/// taken as they stand, in lowest terms. Nothing for text that is no positive ratio.
std::optional<Rational> parseRate(std::string_view text);

/// In lowest terms; 0/0 stays.
Rational reduced(Rational value);

/// "30000/1001", or "25" when the denominator is 1.
std::string toText(Rational value);

}  // namespace zel::media
