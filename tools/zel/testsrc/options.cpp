#include "tools/zel/testsrc/options.h"

namespace zel::testsrc {
namespace {

constexpr uint32_t kSmallest = 32;  // the frame mark takes that much
constexpr uint32_t kLargest = 8192;
constexpr uint32_t kMaxRateNumerator = 1000000;
constexpr uint32_t kMaxRateDenominator = 100000;

constexpr NamedValue<Pattern> kPatterns[] = {
    {"bars", Pattern::kBars},   {"zone", Pattern::kZone}, {"motion", Pattern::kMotion},
    {"noise", Pattern::kNoise}, {"text", Pattern::kText},
};
constexpr NamedValue<Chroma> kChromas[] = {
    {"420", Chroma::k420}, {"422", Chroma::k422}, {"444", Chroma::k444}};
constexpr NamedValue<Scan> kScans[] = {
    {"progressive", Scan::kProgressive}, {"tff", Scan::kTopFirst}, {"bff", Scan::kBottomFirst}};

}  // namespace

std::span<const NamedValue<Pattern>> patternNames() {
  return kPatterns;
}
std::span<const NamedValue<Chroma>> chromaNames() {
  return kChromas;
}
std::span<const NamedValue<Scan>> scanNames() {
  return kScans;
}

std::string_view nameOf(Pattern pattern) {
  for (const auto& row : kPatterns) {
    if (row.value == pattern) return row.name;
  }
  return "?";
}

std::string rateFault(media::Rational rate) {
  const media::Rational lowest = media::reduced(rate);
  if (!lowest.known() || lowest.numerator < lowest.denominator ||
      lowest.numerator > uint64_t{1000} * lowest.denominator) {
    return "frame rate " + media::toText(rate) + " is not within 1 to 1000";
  }
  if (lowest.numerator > kMaxRateNumerator || lowest.denominator > kMaxRateDenominator) {
    return "frame rate " + media::toText(rate) + " has terms beyond " +
           std::to_string(kMaxRateNumerator) + "/" + std::to_string(kMaxRateDenominator);
  }
  return {};
}

std::string optionsFault(const PictureOptions& options) {
  if (options.width < kSmallest || options.height < kSmallest || options.width > kLargest ||
      options.height > kLargest) {
    return "size " + std::to_string(options.width) + "x" + std::to_string(options.height) +
           " is not within 32x32 to 8192x8192";
  }
  if (options.depth != 8 && options.depth != 10) {
    return "depth " + std::to_string(options.depth) + ": 8 and 10 are possible";
  }
  return rateFault(options.rate);
}

}  // namespace zel::testsrc
