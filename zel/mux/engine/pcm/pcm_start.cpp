#include "zel/mux/engine/pcm/pcm_start.h"

#include <algorithm>
#include <cmath>

#include "zel/mux/engine/input/remultiplexing.h"
#include "zel/mux/engine/packet/decoder_limit.h"
#include "zel/mux/engine/packet/first_time_stamp.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

constexpr int kOverlapTooLong = 45;
constexpr int kReferenceNotFound = 73;
constexpr int kReferenceInvalid = 74;
constexpr int kBufferTooSmall = 146;
constexpr int kNoReference = 85;  // warning

constexpr uint8_t kPrivateStream1 = 0xBD;

// Header and payload of the largest PES packet.
int64_t most_pes(const pcm_state& state) {
  return static_cast<int64_t>(state.units->most_bytes()) + 14 + 3;
}

void set_rate(pcm_state& state, const pcm_start_inputs& inputs) {
  const size_t bytes = state.units->most_bytes();
  double rate = pcm_stream_rate(*state.stream, bytes, inputs.unitsPerSecond, state.noEmptyAf);
  // The samples' rate is what it is: a smaller one asked for would only underflow.
  const double plain = static_cast<double>(bytes) * 8 * inputs.unitsPerSecond;
  if (inputs.record->rate > plain) rate *= inputs.record->rate / plain;
  state.stream->set_rate(rate);
}

audio_start_inputs time_inputs(const pcm_state& state, const pcm_start_inputs& inputs,
                               const tsm_mux& mux) {
  const auto& record = *inputs.record;
  audio_start_inputs in;
  in.startTime = mux.startTime;
  in.ptsi = configured_first_pts(*mux.config);
  in.leader90k = mux.config->leader;
  in.delay90k = record.delay;
  in.streamDelay90k = record.streamDelay;
  in.independent = record.indDelay;
  in.foundDelay90k = inputs.sourceDelay90k;
  in.terminated = state.stream->has2(kTerminated);
  in.overlap = mux.config->overlap;
  const tsm_stream* const video = inputs.reference->video;
  if (video != nullptr) {
    const auto& pictures = static_cast<const video_state&>(*video->state);
    in.hasVideo = true;
    in.videoFirstPts = signed_difference(video->firstPts, normalise(mux.startTime));
    in.videoStreamDelay90k = pictures.config != nullptr ? pictures.config->streamDelay : 0;
    in.videoFramePeriod = video->framePeriod;
  }
  // A unit leaves whole, so it takes its own duration to come; as long again is there for others.
  in.preloadBytes = 2.0 * static_cast<double>(most_pes(state));
  return in;
}

// On to the time of the next picture.
double at_picture(double pts, const tsm_stream& video) {
  const double since = signed_difference(normalise(pts), video.firstPts);
  const double pictures = std::ceil(since / video.framePeriod - 1e-9);
  return video.firstPts + pictures * video.framePeriod;
}

// Sound that would begin before `begin` loses its first units, and keeps its place.
void drop_before(pcm_state& state, double begin, double& pts) {
  while (pts < begin) {
    pcm_unit unit;
    if (state.units->next(state.payload, unit) != pcm_units::result::ready) return;
    pts += static_cast<double>(unit.frames) * 2.7e7 / state.sampleRate;
  }
}

// Units aren't cut: the first one that is sent begins nearest to the first picture, and the last
// one ends nearest to End.
void keep_to_cut(pcm_state& state, const pcm_start_inputs& inputs, double withVideo, double& pts) {
  const double half = 2.7e7 / inputs.unitsPerSecond / 2;
  if (!inputs.cut.is_none()) drop_before(state, withVideo - half, pts);
  if (inputs.cut.kept < 0) return;
  const double length = std::max(inputs.cut.kept - (pts - withVideo) - half, 0.0);
  state.mostFrames = static_cast<int64_t>(std::ceil(length * state.sampleRate / 2.7e7));
}

bool set_first_pts(pcm_state& state, const pcm_start_inputs& inputs, const tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  audio_characteristics sound;
  sound.bitRate = static_cast<double>(state.units->most_bytes()) * 8 * inputs.unitsPerSecond;
  audio_start start = first_audio_pts(time_inputs(state, inputs, mux), sound, state.model.limit);
  if (start.overlapTooLong) {
    state.report->fatal(kOverlapTooLong, stream.pid(), int64_t{mux.config->overlap});
  }
  if (inputs.phased && inputs.reference->video != nullptr) {
    start.pts = at_picture(start.pts, *inputs.reference->video);
  }
  keep_to_cut(state, inputs, start.pts - start.behindVideo, start.pts);
  drop_before(state, mux.startTime, start.pts);
  state.basePts = normalise(std::max(start.pts, mux.startTime));
  stream.firstPts = stream.firstDts = state.basePts;
  if (start.holds) {
    stream.holdUntil = time_from_ticks(start.holdUntil);
    stream.set2(kHold);
  }
  return true;
}

bool set_limit(pcm_state& state, const pcm_start_inputs& inputs) {
  const int32_t asked = inputs.record->dbSize;
  if (asked > 0 && asked < most_pes(state)) {
    state.report->fatal(kBufferTooSmall, state.stream->pid(), most_pes(state));
    return false;
  }
  state.model.limit = std::max(asked > 0 ? int64_t{asked} : inputs.decoderBuffer, kLeastLimit);
  return true;
}

}  // namespace

bool find_reference(const tsm_stream& stream, int pid, int required, tsm_mux& mux,
                    pcm_reference& reference) {
  for (const auto& each : mux.streams) {
    if (each->kind != stream_kind::video || each->programIndex != stream.programIndex) continue;
    if (each->program == 0 || (pid > 0 && each->pid() != pid)) continue;
    if (!(each->framePeriod > 0)) {
      mux.reports.fatal(kReferenceInvalid, stream.pid());
      return false;
    }
    reference = {each.get(), std::llround(each->framePeriod)};
    return true;
  }
  if (pid <= 0 && required <= 0) {
    if (required != kNoReferenceNeeded) mux.reports.warn(kNoReference, stream.pid());
    return true;
  }
  mux.reports.fatal(pid > 0 ? kReferenceNotFound : required, stream.pid());
  return false;
}

video_cut cut_of_reference(const pcm_reference& reference, const tsm_mux& mux) {
  if (reference.video == nullptr) return {};
  return cut_of_video(static_cast<const video_state*>(reference.video->state.get()), *mux.config);
}

double delay_in_source(const Morvalen::Zel::tsm_stream_record& record,
                       const Morvalen::Zel::TarnArray& files, elementary_input& input,
                       const pcm_reference& reference, const video_cut& cut) {
  const double cutDelay = -cut.skipped / 300;
  if (!record.avSync || reference.video == nullptr) return cutDelay;
  auto& pictures = static_cast<video_state&>(*reference.video->state);
  if (pictures.config == nullptr) return cutDelay;
  const int64_t picture = pictures.units.empty() ? 0 : pictures.units.front().start;
  return source_delay90k(files, input, *pictures.config, pictures.input, picture)
      .value_or(cutDelay);
}

bool start_pcm(pcm_state& state, const pcm_start_inputs& inputs, tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  if (stream.pesId == 0) stream.pesId = kPrivateStream1;
  state.noEmptyAf = mux.config->noEmptyAf;
  state.payload.assign(kMostUnit, 0);
  if (!set_limit(state, inputs)) return false;
  set_rate(state, inputs);
  return set_first_pts(state, inputs, mux);
}

void add_pmt_descriptor(tsm_stream& stream, std::span<const uint8_t> descriptor) {
  auto& all = stream.pmt.descriptors;
  const auto same = [&](const std::vector<uint8_t>& each) {
    return std::ranges::equal(each, descriptor);
  };
  if (std::ranges::none_of(all, same)) all.emplace_back(descriptor.begin(), descriptor.end());
}

}  // namespace zel::mux
