#include "tools/zel/media/rational.h"

#include <charconv>
#include <numeric>

namespace zel::media {
namespace {

std::optional<uint32_t> parseWhole(std::string_view text) {
  uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (failure != std::errc() || stop != end) return std::nullopt;
  return value;
}

struct NamedRate {
  std::string_view text;
  Rational rate;
};

constexpr NamedRate kNtscRates[] = {
    {"23.976", {24000, 1001}}, {"23.98", {24000, 1001}},   {"29.97", {30000, 1001}},
    {"59.94", {60000, 1001}},  {"119.88", {120000, 1001}},
};

}  // namespace

std::optional<Rational> parseRate(std::string_view text) {
  for (const NamedRate& named : kNtscRates) {
    if (named.text == text) return named.rate;
  }
  Rational rate{0, 1};
  if (const size_t split = text.find_first_of("/:"); split != std::string_view::npos) {
    const auto numerator = parseWhole(text.substr(0, split));
    const auto denominator = parseWhole(text.substr(split + 1));
    if (!numerator || !denominator) return std::nullopt;
    rate = {*numerator, *denominator};
  } else if (const size_t point = text.find('.'); point != std::string_view::npos) {
    const std::string_view decimals = text.substr(point + 1);
    if (decimals.empty() || decimals.size() > 6 || point == 0) return std::nullopt;
    const auto digits = parseWhole(std::string(text.substr(0, point)).append(decimals));
    if (!digits) return std::nullopt;
    rate.numerator = *digits;
    for (size_t i = 0; i < decimals.size(); ++i) rate.denominator *= 10;
    rate = reduced(rate);
  } else {
    const auto whole = parseWhole(text);
    if (!whole) return std::nullopt;
    rate.numerator = *whole;
  }
  if (!rate.known()) return std::nullopt;
  return rate;
}

Rational reduced(Rational value) {
  const uint32_t divisor = std::gcd(value.numerator, value.denominator);
  if (divisor <= 1) return value;
  return {value.numerator / divisor, value.denominator / divisor};
}

std::string toText(Rational value) {
  std::string text = std::to_string(value.numerator);
  if (value.denominator != 1) text.append(1, '/').append(std::to_string(value.denominator));
  return text;
}

}  // namespace zel::media
