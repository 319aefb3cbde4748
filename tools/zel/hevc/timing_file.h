#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zel::tool {

/// Times count frame durations in ticks of 1 / `timeScale` seconds.
struct AccessUnitTiming {
  uint64_t index = 0;  ///< in decoding order, from 0
  int64_t decodeTime = 0;
  int64_t presentationTime = 0;
  int64_t bytes = 0;
  std::string_view type;
  std::string_view nalType;
};

/// The line of names that opens the file (RFC 4180), with its end.
std::string timingTitles();

/// One access unit's line, with its end. Seconds have six decimals.
std::string timingRow(const AccessUnitTiming& timing, int64_t timeScale);

}  // namespace zel::tool
