#include "zel/mux/engine/audio/open_audio.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "zel/mux/engine/audio/describe.h"
#include "zel/mux/engine/audio/sustaining_rate.h"
#include "zel/mux/engine/audio/video_cut.h"
#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/input/remultiplexing.h"
#include "zel/mux/engine/input/source_description.h"
#include "zel/mux/engine/packet/audio_packets.h"
#include "zel/mux/engine/packet/decoder_limit.h"
#include "zel/mux/engine/packet/first_time_stamp.h"
#include "zel/mux/engine/packet/stream_rate.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/audio_state.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_audio;
using Morvalen::Zel::tsm_config;

// Fatal messages.
constexpr int kNoRate = 17;
constexpr int kNoInputFile = 28;
constexpr int kOpenError = 32;
constexpr int kOverlapTooLong = 45;
constexpr int kFrameTooLarge = 60;
// Warnings.
constexpr int kPesLengthUnset = 13;
constexpr int kAdjustmentFailed = 54;
constexpr int kAdjustedBySeconds = 55;

// What may be missing from a full buffer: a packet that doesn't fit, and one that is under way.
constexpr int64_t kPacketGrain = 2 * 188;

void set_limit(audio_state& state) {
  const tsm_audio& record = *state.config;
  const audio_buffer_choice choice{.dbSize = record.dbSize,
                                   .blurayDisc = record.bdBuf,
                                   .cable = record.clBuf,
                                   .atsc = record.atscBuf,
                                   .dvb = record.dvbBuf,
                                   .a52Year2012 = record.a52Y2012Buf};
  const int pesNau = static_cast<int>(state.stream->PESnau);
  const audio_limit limit = audio_decoder_limit(choice, state.characteristics, pesNau);
  if (limit.frameTooLarge) state.report->fatal(kFrameTooLarge, state.stream->pid());
  state.model.limit = limit.bytes;
}

void set_rate(audio_state& state) {
  const tsm_audio& record = *state.config;
  const tsm_stream& stream = *state.stream;
  const audio_characteristics& audio = state.characteristics;
  audio_rate_inputs inputs;
  inputs.bitRate = audio.bitRate;
  if (record.rate <= 0) {
    // The average alone starves the decoder in loud passages of a variable rate. Packets come
    // whole, so that the buffer is never quite full.
    const double needed =
        sustaining_rate(state.firstSizes, audio.period,
                        std::max<int64_t>(state.model.limit - kPacketGrain, kPacketGrain));
    inputs.bitRate = std::max(inputs.bitRate, rounded_audio_rate(needed));
  }
  inputs.frameBytes = record.rate > 0 ? audio.frameSize : audio.averageFrameSize;
  inputs.ptsNpes = static_cast<int>(stream.PTSnPES);
  inputs.pesNau = static_cast<int>(stream.PESnau);
  inputs.aligned = stream.has(kAligned);
  inputs.lowLatency = record.lowLatency;
  inputs.carriesPcr = stream.has(kCarriesPcr);
  inputs.pcrPeriod = static_cast<int>(stream.pcrPeriod);
  inputs.privateData = !state.privateData.empty();
  inputs.privateExtension = state.privateData.has_extension();
  state.stream->set_rate(audio_stream_rate(inputs));
}

audio_start_inputs start_inputs(const audio_state& state, const video_cut& cut,
                                const tsm_mux& mux) {
  const tsm_audio& record = *state.config;
  const tsm_config& config = *mux.config;
  audio_start_inputs inputs;
  inputs.startTime = mux.startTime;
  inputs.ptsi = configured_first_pts(config);
  inputs.leader90k = config.leader;
  inputs.delay90k = record.delay;
  inputs.foundDelay90k = state.foundDelay90k;
  inputs.streamDelay90k = record.streamDelay;
  inputs.independent = record.indDelay;
  inputs.dvbBuf = record.dvbBuf;
  inputs.followsSource = record.avSync && is_remultiplexed(record);
  inputs.beginsWithVideo = !cut.is_none();
  // What Start leaves out is no skew.
  inputs.sourceSkew = state.foundDelay90k * 300 + cut.skipped;
  inputs.terminated = state.stream->has2(kTerminated);
  inputs.overlap = config.overlap;
  // A video stream that couldn't be started gives no start.
  const video_state* const video = state.firstVideo;
  if (video != nullptr && !video->stream->has(kNoMorePackets)) {
    inputs.hasVideo = true;
    inputs.videoFirstPts = signed_difference(video->firstPts, normalise(mux.startTime));
    inputs.videoStreamDelay90k = video->config->streamDelay;
    inputs.videoFramePeriod = video->characteristics.framePeriod;
  }
  return inputs;
}

// How far behind the first picture the first frame belongs.
void find_delay(audio_state& state, const video_cut& cut) {
  const tsm_audio& record = *state.config;
  video_state* const video = state.firstVideo;
  state.foundDelay90k = -cut.skipped / 300;
  if (!record.avSync || video == nullptr) return;
  // In a multiplex that both came from, the sound had its place beside the pictures.
  const int64_t picture = video->units.empty() ? 0 : video->units.front().start;
  const auto found =
      source_delay90k(record.files, state.input, *video->config, video->input, picture);
  if (found) state.foundDelay90k = *found;
}

// Where each file of pictures has one of sound, the two of them go together.
void follow_video_files(audio_state& state, const audio_start& start) {
  const tsm_audio& record = *state.config;
  const video_state* const video = state.firstVideo;
  if (!record.avSync || record.indDelay || video == nullptr) return;
  const auto isSeries = [](const Morvalen::Zel::TarnArray& files) {
    return tarn_array_text(&files, 0).find("%i") != std::string_view::npos;
  };
  const auto& pictures = video->config->files;
  const bool several = record.files.count > 1 || isSeries(record.files);
  state.followsVideo = several && record.files.count == pictures.count &&
                       isSeries(record.files) == isSeries(pictures);
  state.delayToVideo = signed_difference(normalise(start.pts), video->firstPts) - start.moved -
                       state.foundDelay90k * 300;
}

void set_first_pts(audio_state& state, const video_cut& cut, const tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  const int pid = stream.pid();
  const audio_start start =
      first_audio_pts(start_inputs(state, cut, mux), state.characteristics, state.model.limit);
  if (start.rateMissing) state.report->fatal(kNoRate, pid);
  if (start.adjustmentFailed) state.report->warn(kAdjustmentFailed, pid);
  if (start.skewSeconds != 0) state.report->warn(kAdjustedBySeconds, pid, start.skewSeconds);
  if (start.overlapTooLong) state.report->fatal(kOverlapTooLong, pid, int64_t{mux.config->overlap});
  if (start.moved > 0 && state.characteristics.period > 0) {
    leave_out_frames(state, std::llround(start.moved / state.characteristics.period));
  }
  if (cut.kept >= 0) state.stopTicks = std::max(cut.kept - start.behindVideo, 0.0);
  follow_video_files(state, start);
  state.firstPts = state.runningPts = normalise(start.pts);
  stream.firstPts = stream.firstDts = state.firstPts;
  if (start.holds) {
    stream.holdUntil = time_from_ticks(start.holdUntil);
    stream.set2(kHold);
  }
}

}  // namespace

std::unique_ptr<tsm_stream> open_audio(const tsm_audio& record,
                                       const Morvalen::Zel::tsm_program& program,
                                       Morvalen::Zel::tsm_load_callback load, tsm_mux& mux) {
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<audio_state>();
  audio_state& state = *owned;
  state.stream = stream.get();
  state.config = &record;
  stream->buffer = &state.model;
  state.report = &mux.reports;
  state.noEmptyAf = mux.config->noEmptyAf;
  stream->state = std::move(owned);
  stream->kind = stream_kind::audio;
  stream->makePacket = make_audio_packet;
  stream->unitsToSend = audio_units_to_send;

  if (record.privateDataFile.count > 0) {
    state.privateData.read(record.privateDataFile, record.pid, mux.reports);
  }
  input_request request;
  request.record = &record;
  request.load = load;
  request.bufferSize =
      audio_input_size(record.avSync, is_remultiplexed(record), Morvalen::Zel::tsm_read_size());
  request.openError = kOpenError;
  request.noFiles = kNoInputFile;
  request.noFilesArgument = int64_t{program.programNumber};
  if (!open_input(state.input, request, mux.reports)) return nullptr;
  return stream;
}

void start_audio(tsm_stream& stream, tsm_mux& mux) {
  auto& state = static_cast<audio_state&>(*stream.state);
  audio_characteristics& audio = state.characteristics;
  const tsm_audio& record = *state.config;
  discover_audio(state);
  if (audio.kind == audio_kind::unknown) {
    stream.set(kSourceEnded | kNoMorePackets);
    return;
  }
  if (record.rate > 0) audio.bitRate = record.rate;
  const tsm_config& config = *mux.config;
  const video_cut cut = cut_of_video(state.firstVideo, config);
  find_delay(state, cut);
  describe_audio(state, config.autoDescrDisabled ? 0 : config.autoDescrMask,
                 config.autoDescrLegacyDts);
  describe_from_source(stream, record, &state.input, mux.reports);
  stream.pmt.listed = true;
  state.privateData.set_video(state.firstVideo, stream.pid(), mux.reports);
  set_limit(state);
  set_rate(state);
  state.firstSizes = {};
  set_first_pts(state, cut, mux);
  if (int64_t{stream.PESnau} * audio.frameSize > state.input.capacity()) {
    state.report->warn(kPesLengthUnset, stream.pid(), int64_t{stream.pid()});
  }
}

}  // namespace zel::mux
