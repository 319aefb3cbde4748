#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include <gtest/gtest.h>

#include "tests/support/analysed_video.h"

namespace zel::test {

/// Expects of every beginning of `stream`, of each length up to `headers` bytes and of some beyond,
/// that it is told to be no video or goes out as it is.
inline void expectSoundAtAnyEnd(std::span<const uint8_t> stream, size_t headers) {
  constexpr size_t kStride = 61;
  for (size_t size = 0; size < stream.size(); size += size < headers ? 1 : kStride) {
    const AnalysedVideo video = analyseVideo(stream.first(size));
    if (!video.started) {
      EXPECT_EQ(video.count("F23"), 1) << size;
    } else {
      EXPECT_TRUE(std::equal(video.bytes.begin(), video.bytes.end(), stream.begin())) << size;
    }
  }
}

}  // namespace zel::test
