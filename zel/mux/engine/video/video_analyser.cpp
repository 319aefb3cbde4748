#include "zel/mux/engine/video/video_analyser.h"

#include <algorithm>

#include "zel/mux/engine/clock/tsm_time.h"
#include "zel/mux/engine/configuration/configuration.h"
#include "zel/mux/engine/packet/decoder_limit.h"
#include "zel/mux/engine/run/reporting.h"
#include "zel/mux/engine/video/layer_boundaries.h"
#include "zel/mux/engine/video/time_code.h"
#include "zel/mux/engine/video/unit_search.h"
#include "zel/mux/engine/video/video_messages.h"

namespace zel::mux {

namespace {

constexpr int64_t kPrefixSize = 3;

frame_rate_row configured_rate(const Morvalen::Zel::tsm_video& config) {
  if (const frame_rate_row* row = find_frame_rate(config.frameRate)) return *row;
  if (config.frameRate == 0 && config.frameRateNumerator > 0 && config.frameRateDenominator > 0) {
    return frame_rate_of(config.frameRateNumerator, config.frameRateDenominator);
  }
  return {};
}

}  // namespace

video_analyser::video_analyser(video_state& state)
    : state_(state), configuredRate_(configured_rate(*state.config)) {
  header_.reserve(kMostHeader);
  if (rate_is_configured()) set_frame_rate(configuredRate_);
}

void video_analyser::warn(int code, const message_argument& argument) {
  state_.report->warn(code, state_.stream->pid(), argument);
}

void video_analyser::fatal(int code, const message_argument& argument) {
  state_.report->fatal(code, state_.stream->pid(), argument);
}

void video_analyser::set_frame_rate(const frame_rate_row& row) {
  const frame_rate_row& used = rate_is_configured() ? configuredRate_ : row;
  video_characteristics& video = state_.characteristics;
  video.frameRateCode = used.code;
  video.framePeriod = used.period;
  video.frameRate = used.rate;
  video.frameRateRounded = used.rounded;
}

void video_analyser::set_bit_rate(double bitRate) {
  if (bitRate == toldBitRate_) return;
  if (toldBitRate_ > 0) warn(kBitRateChanged, static_cast<int64_t>(bitRate));
  toldBitRate_ = bitRate;
  if (state_.config->rate <= 0) state_.characteristics.bitRate = bitRate;
}

void video_analyser::set_vbv_size(int32_t size) {
  if (size == toldVbvSize_) return;
  if (toldVbvSize_ > 0) warn(kVbvSizeChanged, int64_t{size});
  toldVbvSize_ = size;
  state_.characteristics.vbvSize = size;
  if (discovering_) return;
  state_.model.limit = video_decoder_limit(state_.config->dbSize, size, state_.stream->rate);
}

void video_analyser::set_vbv_bytes(double bytes) {
  constexpr double kMost = 512.0 * 1024 * 1024;
  set_vbv_size(std::max(static_cast<int32_t>(std::min(bytes, kMost) / 2048), 1));
}

// How many bytes from `body` on on_code() gets; 0: not yet.
int64_t video_analyser::wanted_size(int32_t wanted, int64_t body, int64_t available) {
  const bool all = state_.input.ended();
  if (wanted != kWholeUnit)
    return all || available >= wanted ? std::min<int64_t>(wanted, available) : 0;
  int64_t resume = 0;
  int64_t end = find_start_code(state_.input, searched_, resume);
  if (end < 0) {
    searched_ = resume;
    if (!all && available < kMostHeader) return 0;
    end = state_.input.end_position();
  }
  // A prefix with nothing behind it still has its code's byte: the next prefix's first zero.
  return std::clamp<int64_t>(end - body, 1, kMostHeader);
}

video_analyser::progress video_analyser::step() {
  elementary_input& input = state_.input;
  if (prefix_ < 0) {
    int64_t resume = 0;
    prefix_ = find_start_code(input, state_.scanPosition, resume);
    state_.scanPosition = prefix_ < 0 ? resume : prefix_;
    if (prefix_ < 0) return progress::starved;
    searched_ = prefix_ + kPrefixSize;
  }
  const int64_t body = prefix_ + kPrefixSize;
  const int64_t available = input.end_position() - body;
  if (available < 1) return progress::starved;
  const uint8_t code = input.at(body);
  const int64_t size = wanted_size(bytes_wanted(code), body, available);
  if (size == 0) return progress::starved;
  if (size == 1) {
    on_code(prefix_, {&code, 1});
  } else {
    header_.resize(static_cast<size_t>(size));
    input.copy(body, header_.data(), static_cast<int32_t>(size));
    on_code(prefix_, header_);
  }
  // A unit that ended the run, by a time code, has moved the input to its end.
  state_.scanPosition = std::max(body + code_size(), input.read_position());
  prefix_ = -1;
  return progress::advanced;
}

bool video_analyser::begin_with_headers(int64_t start) {
  if (open_ && !hasPicture_) return false;
  if (open_) end_unit(start);
  unit_ = {};
  unit_.start = start;
  open_ = true;
  hasPicture_ = false;
  return true;
}

void video_analyser::set_has_picture(int64_t pictureAt) {
  hasPicture_ = true;
  unit_.pictureStart = static_cast<int32_t>(pictureAt - unit_.start);
}

void video_analyser::end_unit(int64_t end) {
  open_ = false;
  if (!hasPicture_) return;
  hasPicture_ = false;
  ++pictures_;
  if (discovering_ || ended_) return;
  unit_.size = static_cast<int32_t>(end - unit_.start);
  if (state_.layers != nullptr) {
    unit_.dependentStart = dependentEnd_;
    dependentEnd_ = state_.layers->dependent_end(end);
    unit_.dependentSize = static_cast<int32_t>(dependentEnd_ - unit_.dependentStart);
  }
  time_code_of(unit_);
  if (!state_.firstTimeCode.known) state_.firstTimeCode = unit_.timeCode;
  if (is_cut(unit_)) {
    if (!startSeen_) state_.fieldsLeftOut += unit_.fieldCount;
    // What is dropped has to make room, since what comes behind it may be any length away.
    if (state_.units.empty() && state_.input.read_position() < end) {
      state_.input.skip(static_cast<int32_t>(end - state_.input.read_position()));
      if (state_.layers != nullptr) {
        elementary_input& dependent = state_.dependentInput;
        dependent.skip(static_cast<int32_t>(dependentEnd_ - dependent.read_position()));
      }
    }
    return;
  }
  enqueue(unit_);
}

void video_analyser::time_code_of(access_unit& unit) {
  if (unit.timeCode.known) {
    toldTimeCode_ = unit.timeCode;
    fieldsSince_ = 0;
  }
  unit.timeCode =
      advanced(toldTimeCode_, fieldsSince_ / 2, state_.characteristics.frameRateRounded);
  // Time codes number the frames that are shown, of which a picture may take more than one.
  fieldsSince_ += unit.fieldStructure == kWholeFrame ? unit.fieldCount : 1;
}

// Whether Start or End leaves the unit out. The units of a stream without time codes all stand
// before Start. Behind it the stream begins with a unit that can be decoded.
bool video_analyser::is_cut(const access_unit& unit) {
  if (state_.cutEnd != nullptr && unit.timeCode.known && startSeen_ &&
      !is_before(unit.timeCode, *state_.cutEnd)) {
    state_.cutEnd = nullptr;
    end_source();
    return true;
  }
  const bool before = state_.cutStart != nullptr &&
                      (!unit.timeCode.known || is_before(unit.timeCode, *state_.cutStart));
  if (startSeen_) return before && unit.pictureType == kPictureB && state_.cutStart != nullptr;
  const bool decodable = unit.pictureType == kPictureI || unit.keyPoint;
  startSeen_ = !before && (state_.cutStart == nullptr || decodable) &&
               (!state_.config->startSeqHdr || unit.sequenceHeader);
  return !startSeen_;
}

void video_analyser::end_source() {
  ended_ = true;
  state_.input.finish();
}

void video_analyser::enqueue(const access_unit& found) {
  if (state_.stopDts >= 0 && signed_difference(state_.runningDts, state_.stopDts) >= 0) {
    end_source();
    return;
  }
  access_unit unit = found;
  unit.dts = unit.pts = dts_of(unit, state_.runningDts);
  if (unit.timeCode.known && !state_.startTimeCode.known) state_.startTimeCode = unit.timeCode;
  note_transitions(unit);
  plan_insertions(state_, unit);
  if (state_.model.limit > 0 && unit.sent_size() > state_.model.limit) fatal(kUnitExceedsVbv);
  state_.units.push(unit);
  ++queued_;
  state_.model.removals.push({unit.dts, unit.sent_size()});
  state_.runningDts = normalise(unit.dts + period_of(unit));
  ++untimed_;
  order_units(false);
}

void video_analyser::note_transitions(const access_unit& unit) {
  stream_source* const source = state_.input.source();
  if (source == nullptr) return;
  while (true) {
    if (nextFile_ < 0) nextFile_ = source->take_transition();
    if (nextFile_ < 0 || unit.start < nextFile_) return;
    nextFile_ = -1;
    // A zero byte in front of a start code may have been the end of the PES packet before.
    const auto stamp = source->stamp_at(unit.start + 1);
    state_.transitions.push_back({unit.start, -1, stamp ? stamp->pts90k : int64_t{-1}});
  }
}

// Before its units can leave the queue.
void video_analyser::time_transitions() {
  for (size_t i = state_.transitions.size(); i > 0 && state_.transitions[i - 1].pts < 0; --i) {
    video_transition& transition = state_.transitions[i - 1];
    for (size_t at = state_.units.size(); at > 0; --at) {
      const access_unit& unit = state_.units[at - 1];
      if (unit.start < transition.unitStart) break;
      if (unit.start == transition.unitStart && unit.timed) transition.pts = unit.pts;
    }
  }
}

bool video_analyser::take_timed() {
  time_transitions();
  const unit_queue& units = state_.units;
  size_t waiting = 0;
  while (waiting < std::min(untimed_, units.size()) && !units[units.size() - 1 - waiting].timed) {
    ++waiting;
  }
  const bool any = waiting < untimed_;
  untimed_ = waiting;
  return any;
}

void video_analyser::settle() {
  settle_coding();
  video_characteristics& video = state_.characteristics;
  if (video.framePeriod <= 0) set_frame_rate(*find_frame_rate(kDefaultFrameRateCode));
  if (video.vbvSize <= 0) video.vbvSize = kDefaultVbvSize;
  if (video.bitRate <= 0) video.bitRate = kDefaultBitRate;
  if (video.vbvDelay < 1) video.vbvDelay = kDefaultVbvDelay;
  video.stillPicture = state_.config->stillPicSpacing > 0;
}

void video_analyser::begin_run() {
  discovering_ = false;
  prefix_ = -1;
  open_ = hasPicture_ = false;
  pictures_ = 0;
  restart_parsing();
}

void video_analyser::finish() {
  if (open_) end_unit(state_.input.end_position());
  if (discovering_) return;
  order_units(true);
  for (size_t i = state_.units.size(); i > 0 && !state_.units[i - 1].timed; --i) {
    state_.units[i - 1].timed = true;
  }
  state_.sourceEnded = true;
  if (queued_ < state_.leastUnits) warn(kFewUnits);
  if (state_.cutStart != nullptr && !startSeen_) {
    warn(kStartNotSeen);
  }
  if (state_.cutEnd != nullptr) warn(kEndNotSeen);
}

}  // namespace zel::mux
