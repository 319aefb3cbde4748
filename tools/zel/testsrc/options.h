#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tools/zel/media/rational.h"

namespace zel::testsrc {

enum class Pattern : uint8_t {
  kBars,    // colour bars with a time code
  kZone,    // moving zone plate
  kMotion,  // scenes with cuts, camera moves, objects, fades and grain
  kNoise,   // random samples
  kText     // rolling credits and a ticker
};

enum class Chroma : uint8_t { k420, k422, k444 };

/// How a frame is sampled in time. In an interlaced one, the rows of the second field are half a
/// frame later.
enum class Scan : uint8_t { kProgressive, kTopFirst, kBottomFirst };

struct PictureOptions {
  uint32_t width = 1280;
  uint32_t height = 720;
  media::Rational rate = {30000, 1001};
  Pattern pattern = Pattern::kMotion;
  Chroma chroma = Chroma::k420;
  int depth = 8;  // 8 or 10
  Scan scan = Scan::kProgressive;
  uint64_t seed = 1;
  bool mark = true;  // draw the frame mark
};

/// What is wrong with the options, for people; empty when they are sound.
std::string optionsFault(const PictureOptions& options);

/// What is wrong with a frame rate: it must lie between 1 and 1000, and its terms must not be so
/// large that an instant cannot be told exactly.
std::string rateFault(media::Rational rate);

/// A name that stands for a value on the command line.
template <typename Value>
struct NamedValue {
  std::string_view name;
  Value value;
};

std::span<const NamedValue<Pattern>> patternNames();
std::span<const NamedValue<Chroma>> chromaNames();
std::span<const NamedValue<Scan>> scanNames();

std::string_view nameOf(Pattern pattern);

template <typename Value>
std::optional<Value> findByName(std::span<const NamedValue<Value>> names, std::string_view name) {
  for (const NamedValue<Value>& row : names) {
    if (row.name == name) return row.value;
  }
  return std::nullopt;
}

}  // namespace zel::testsrc
