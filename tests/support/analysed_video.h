#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::test {

/// What the multiplexer's analyser makes of a video stream that it's fed with through the load
/// callback, from opening to the last access unit.
struct AnalysedVideo {
  bool started = false;  // the stream gives access units
  mux::video_characteristics characteristics;
  std::vector<mux::access_unit> units;
  std::vector<mux::removal_event> removals;
  size_t leastWaiting = SIZE_MAX;       // units in the queue when one was taken, before the end
  std::vector<uint8_t> bytes;           // of all units, as they leave the input
  std::vector<uint8_t> dependentBytes;  // of the second layer
  mux::pmt_description pmt;
  uint8_t pesId = 0;
  double rate = 0;
  int64_t limit = 0;
  double firstDts = 0, firstPts = 0;
  mux::video_time_code startTimeCode;
  std::string messages;  // "F23 W88 ": each message's kind and code
  std::string texts;     // the last parts of the messages, the table's texts

  int count(const std::string& message) const;
  /// Of a stream of 25 frames a second: the unit's time in frames behind the first DTS.
  double shown(size_t unit) const;
  double decoded(size_t unit) const;
};

inline constexpr double kPeriodAt25 = 1'080'000;

struct VideoFeed {
  size_t chunk = 1 << 16;  // bytes that a call of the loader gives at the most
  std::function<void(Morvalen::Zel::tsm_config&, Morvalen::Zel::tsm_video&)> configure;
};

/// A feed for records that `configure` has changed.
VideoFeed with(
    std::function<void(Morvalen::Zel::tsm_config&, Morvalen::Zel::tsm_video&)> configure);

/// Messages stop nothing here, as with StopOnError off.
AnalysedVideo analyseVideo(std::span<const uint8_t> stream, const VideoFeed& feed = {});

}  // namespace zel::test
