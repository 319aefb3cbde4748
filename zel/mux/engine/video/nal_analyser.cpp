#include "zel/mux/engine/video/nal_analyser.h"

#include <algorithm>
#include <cmath>

#include "zel/base/annex_b.h"
#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/video/video_messages.h"

namespace zel::mux {

namespace {

constexpr int32_t kFieldsOfFrame = 2;
constexpr int64_t kLongestOutputDelay = 600;
constexpr uint32_t kLongestInitialDelay = 10 * 90'000;  // ISO/IEC 13818-1, 2.4.2.6: 10 s
constexpr size_t kMostTimingBytes = 64;
// How far a rate may be from a row of the table with FrameRateTolerant: "23.98" is 23.976.
constexpr double kRateTolerance = 0.0002;

const frame_rate_row* nearest_row(double period) {
  for (const frame_rate_row& row : kFrameRates) {
    if (std::abs(period - row.period) < row.period * kRateTolerance) return &row;
  }
  return nullptr;
}

}  // namespace

nal_analyser::nal_analyser(video_state& state, const nal_messages& messages,
                           int32_t configuredDepth)
    : video_analyser(state), messages_(messages), configuredDepth_(configuredDepth) {
  rbsp_.resize(kMostHeader);
  timing_.reserve(kMostTimingBytes);
}

bool nal_analyser::begin_untimed(int64_t start) {
  if (!begin_with_headers(start)) return false;
  timingSeen_ = false;
  return true;
}

void nal_analyser::on_sei(std::span<const uint8_t> rbsp) {
  syntax::SeiMessages messages(rbsp);
  syntax::SeiMessage message;
  while (messages.next(message)) {
    if (message.type == syntax::kSeiBufferingPeriod) {
      on_buffering_period(message.payload);
    } else if (message.type == syntax::kSeiPicTiming) {
      if (message.payload.size() > kMostTimingBytes) continue;
      timing_.assign(message.payload.begin(), message.payload.end());
      timingSeen_ = true;
    } else {
      on_other_sei(message);
    }
  }
  if (messages.failed()) warn_of_sei();
}

// The delay before the first picture is taken out is what vbv_delay is to MPEG-2.
void nal_analyser::on_buffering_period(std::span<const uint8_t> payload) {
  unit().bufferingPeriod = true;
  if (initialDelaySeen_) return;
  const initial_delay delay = read_initial_delay(payload);
  if (!delay.sound) return warn_of_sei();
  if (!delay.delay90k) return;
  initialDelaySeen_ = true;
  set_initial_delay(*delay.delay90k);
}

void nal_analyser::apply_unit_timing() {
  if (timingSeen_) apply_timing(timing_);
}

void nal_analyser::set_time_code(const syntax::ClockTimestamp& clock) {
  if (!clock.present || !clock.hoursPresent) return;
  unit().timeCode = {clock.hours,
                     clock.minutes,
                     clock.seconds,
                     static_cast<uint8_t>(clock.frames),
                     clock.countsDropFrame(),
                     true};
}

int64_t nal_analyser::start_of(int64_t prefix) const {
  const elementary_input& input = state().input;
  return prefix > input.read_position() && input.at(prefix - 1) == 0 ? prefix - 1 : prefix;
}

std::span<const uint8_t> nal_analyser::rbsp_of(std::span<const uint8_t> bytes, size_t headerSize) {
  if (bytes.size() <= headerSize) return {};
  const size_t end = base::findStartCode(bytes, headerSize);
  const auto unit = bytes.subspan(headerSize, end - headerSize);
  return {rbsp_.data(), base::removeEmulationPrevention(unit, rbsp_.data())};
}

double nal_analyser::period_of(const access_unit& unit) {
  const video_characteristics& video = characteristics();
  if (video.stillPicture) return state().config->stillPicSpacing * video.framePeriod;
  return unit.fieldCount * video.framePeriod / 2;
}

// Pictures that are shown for other times than the frame's, out of order, are taken out of the
// buffer at times that their own periods don't add up to. The stream tells them (ITU-T H.264,
// C.1.2; H.265, C.2.3); what lies off its place by more than two frames isn't believed. Encoders
// that double or treble frames may tell removals that stand still or go back, so that the times of
// display, which count from them, are right: such a unit leaves the buffer when its turn comes.
double nal_analyser::dts_of(const access_unit& unit, double running) {
  double dts = running;
  toldRemoval_ = running;
  if (anchored_ && unit.removalDelay >= 0) {
    // An underflow has moved the time base: the anchor goes with it.
    anchorDts_ += signed_difference(running, expectedDts_);
    const double told = normalise(anchorDts_ + unit.removalDelay);
    const double off = std::abs(signed_difference(told, running));
    if (off <= 2 * std::max(characteristics().framePeriod, period_of(unit))) {
      toldRemoval_ = told;
      // The delays count in halves of a frame: what is less is rounding.
      if (signed_difference(told, lastDts_) > characteristics().framePeriod / 8) dts = told;
    }
  }
  if (unit.bufferingPeriod && unit.removalDelay >= 0) {
    anchored_ = true;
    anchorDts_ = toldRemoval_;
  }
  lastDts_ = dts;
  expectedDts_ = normalise(dts + period_of(unit));
  return dts;
}

void nal_analyser::set_delays(int64_t removal, int64_t delay, double tick) {
  if (ignoresSei_) return;
  if (delay > kLongestOutputDelay) {
    if (discovering()) return;
    warn(kOutputDelayTooLong, delay);
    leave_sei();
    return;
  }
  unit().outputDelay = static_cast<double>(delay) * tick;
  unit().removalDelay = static_cast<double>(removal) * tick;
}

void nal_analyser::set_initial_delay(uint32_t delay90k) {
  auto delay = static_cast<int32_t>(std::min(delay90k, kLongestInitialDelay));
  // 65,535 is a mark.
  if (delay == kVbvDelayNotTold) --delay;
  characteristics().vbvDelay = delay;
}

void nal_analyser::leave_sei() {
  if (mode_ == order_mode::sei) show_as_told(true);
  ignoresSei_ = true;
  unit().outputDelay = unit().removalDelay = -1;
  if (mode_ == order_mode::sei) mode_ = order_mode::undecided;
}

void nal_analyser::give_up_poc() {
  if (pocReported_ || discovering()) return;
  pocReported_ = true;
  warn(kAvcPocIncorrect);
  if (mode_ == order_mode::poc) sort(true);
  mode_ = order_mode::fixed;
}

void nal_analyser::warn_of_sei() {
  if (seiReported_) return;
  seiReported_ = true;
  warn(messages_.seiAlignment);
}

void nal_analyser::decide(const access_unit& unit) {
  if (unit.outputDelay >= 0) {
    mode_ = order_mode::sei;
    return;
  }
  if (state().config->ignorePoc || pocReported_ || characteristics().stillPicture) {
    mode_ = order_mode::fixed;
    return;
  }
  mode_ = order_mode::poc;
  // LowLatency holds no more units back than are reordered.
  const bool low = state().config->lowLatency;
  const int32_t told = low || configuredDepth_ > 0 ? 0 : toldReorder_;
  order_.configure(low ? state().config->numBFrames : maxReorder_, 2 * configuredDepth_, told);
}

// The times that the stream tells, and behind them what keeps every unit from being shown before
// it's decoded. That is learnt of the first units, before any is timed, where frames are shown for
// longer than their own time.
void nal_analyser::show_as_told(bool ended) {
  unit_queue& units = state().units;
  size_t untimed = 0;
  while (untimed < units.size() && !units[units.size() - 1 - untimed].timed) ++untimed;
  if (untimed == 0) return;
  const size_t first = units.size() - untimed;
  if (!anyShown_ && !ended && units[first].fieldCount > kFieldsOfFrame &&
      !state().config->lowLatency && untimed < 2 * static_cast<size_t>(maxReorder_) + 2) {
    return;
  }
  double late = displayDelay_;
  double longest = 0;
  for (size_t i = first; i < units.size(); ++i) {
    late = std::max(late, signed_difference(units[i].dts, units[i].pts));
    longest = std::max(longest, period_of(units[i]));
  }
  // A stream may begin with less reordering than it has later.
  if (!anyShown_ && late > 0) {
    late = std::max(late, toldReorder_ * longest - std::max(units[first].outputDelay, 0.0));
  }
  displayDelay_ = late;
  anyShown_ = true;
  for (size_t i = first; i < units.size(); ++i) {
    units[i].pts = normalise(units[i].pts + displayDelay_);
    units[i].timed = true;
  }
}

void nal_analyser::order_units(bool ended) {
  if (ended) {
    if (mode_ == order_mode::poc) sort(true);
    if (mode_ == order_mode::sei) show_as_told(true);
    return;
  }
  access_unit& newest = state().units.back();
  if (mode_ == order_mode::undecided) decide(newest);
  switch (mode_) {
    case order_mode::sei:
      if (newest.outputDelay >= 0) lastOutputDelay_ = newest.outputDelay;
      newest.pts = normalise(toldRemoval_ + lastOutputDelay_);
      show_as_told(false);
      break;
    case order_mode::fixed: {
      const double depth = configuredDepth_ * characteristics().framePeriod;
      const double learnt = order_.depth() * characteristics().framePeriod / 2;
      newest.pts = normalise(newest.dts + std::max(depth, learnt));
      newest.timed = true;
      break;
    }
    case order_mode::poc:
    case order_mode::undecided:
      sort(false);
      break;
  }
}

void nal_analyser::sort(bool ended) {
  if (order_.sort_by_poc(state().units, characteristics().framePeriod / 2, ended) == 0) return;
  if (order_.take_depth_changed()) {
    warn(messages_.depthChanged, int64_t{(order_.depth() + 1) / 2});
  }
}

void nal_analyser::set_timed_rate(double numerator, double denominator) {
  frame_rate_row row = frame_rate_of(numerator, denominator);
  const bool tolerant = state().config->frameRateTolerant;
  if (row.code == 0 && tolerant) {
    if (const frame_rate_row* nearest = nearest_row(row.period)) row = *nearest;
  }
  if (row.code == 0 && !tolerant && !rate_is_configured() && !rateReported_) {
    rateReported_ = true;
    warn(messages_.oddFrameRate);
  }
  set_frame_rate(row);
}

void nal_analyser::set_level_rates(int64_t mostBits, int64_t bufferBits) {
  const int64_t rate = mostBits - mostBits / 16;
  set_bit_rate(static_cast<double>(rate));
  const int64_t bufferBytes = bufferBits / 8;
  set_vbv_bytes(static_cast<double>(bufferBytes));
  if (!ratesReported_ && state().config->rate <= 0) warn(messages_.noBitRate, rate);
  ratesReported_ = true;
}

void nal_analyser::restart_parsing() {
  timingSeen_ = false;
  mode_ = order_mode::undecided;
  anchored_ = anyShown_ = false;
  displayDelay_ = 0;
}

}  // namespace zel::mux
