#pragma once

#include <cstdint>

namespace zel::tool {

/// What an input had when the next frame was asked for.
enum class ReadResult : uint8_t {
  kFrame,
  kEnd,
  kCutShort,  // the input ends in the midst of a frame
};

}  // namespace zel::tool
