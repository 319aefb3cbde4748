#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include <CLI/CLI.hpp>

namespace zel::tool {

/// Frames from `begin` to the one before `end`, counted from 0.
struct FrameRange {
  uint64_t begin = 0;
  uint64_t end = std::numeric_limits<uint64_t>::max();

  uint64_t count() const { return end - begin; }
  /// How many of an input's frames that is.
  uint64_t countOf(uint64_t available) const;
};

/// "100:200", "100:" and ":200"; nothing for other text, and for a range without frames.
std::optional<FrameRange> parseFrameRange(std::string_view text);

/// Declares --frames A:B. `what` is done to them: "encode".
void addFrameRange(CLI::App& app, FrameRange& range, const std::string& what);

}  // namespace zel::tool
