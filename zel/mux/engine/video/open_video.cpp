#include "zel/mux/engine/video/open_video.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/input/remultiplexing.h"
#include "zel/mux/engine/input/source_description.h"
#include "zel/mux/engine/packet/decoder_limit.h"
#include "zel/mux/engine/packet/first_time_stamp.h"
#include "zel/mux/engine/packet/stream_rate.h"
#include "zel/mux/engine/packet/video_packets.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/video_state.h"
#include "zel/mux/engine/video/describe_video.h"
#include "zel/mux/engine/video/layer_splitter.h"
#include "zel/mux/engine/video/paired_layers.h"
#include "zel/mux/engine/video/second_layer.h"
#include "zel/mux/engine/video/time_code.h"
#include "zel/mux/engine/video/vbv_limits.h"
#include "zel/mux/engine/video/video_messages.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_config;
using Morvalen::Zel::tsm_program;
using Morvalen::Zel::tsm_video;

constexpr int kOverlapTooLong = 45;
constexpr int32_t kLeastPesLength = 184;
constexpr int32_t kMostWaiting = kAccessUnits - 1;  // the scan goes on as long as there is room

bool is_nal_coded(const video_state& state) {
  return state.characteristics.coding == video_coding::avc ||
         state.characteristics.coding == video_coding::hevc;
}

void check_keys(const tsm_video& record, tsm_mux& mux) {
  reporting& reports = mux.reports;
  if (record.sourceTsPid > 0 && record.sourceStreamId > 0) reports.fatal(kTwoSources, record.pid);
  if (record.maxPesLen > 0 && record.pesAlign) {
    reports.fatal(record.maxPesLen < kLeastPesLength ? kLengthTooSmall : kLengthAndAlign,
                  record.pid);
  }
  const bool numerator = record.frameRateNumerator != 0;
  const bool denominator = record.frameRateDenominator != 0;
  if (numerator != denominator) {
    reports.warn(kRatePairIncomplete, record.pid);
  } else if (numerator && record.frameRate != 0) {
    reports.warn(kRatePairAndCode, record.pid);
  }
}

bool is_layered(const tsm_video& record) {
  return record.subStreamType == 1 || record.subStreamType == 2;
}

void open_layers(video_state& state, int32_t size) {
  state.dependentInput.open(size, 1, nullptr);
  auto splitter = std::make_unique<layer_splitter>(state.layeredInput, state.dependentInput);
  state.layers = splitter.get();
  state.input.open(size, Morvalen::Zel::tsm_read_size(), std::move(splitter));
  // Each layer's part of an access unit is sent before the next begins.
  state.stream->set(kAligned);
}

// Files are read by each layer in its own time.
bool comes_in_pairs(const tsm_video& record, Morvalen::Zel::tsm_load_callback load) {
  return is_layered(record) && record.sourceTsPid > 0 && record.sourceTsPidAvcss > 0 &&
         load == nullptr;
}

bool open_pair(video_state& state, input_request request, reporting& reports) {
  if (!open_input(state.input, request, reports)) return false;
  request.sourceTsPid = state.config->sourceTsPidAvcss;
  if (!open_input(state.dependentInput, request, reports)) return false;
  state.pairedLayers = std::make_unique<paired_layers>(state.input, state.dependentInput);
  state.layers = state.pairedLayers.get();
  state.stream->set(kAligned);
  return true;
}

// What asks for access units that begin packets, beyond PESalign and RAI.
void set_video_flags(tsm_stream& stream, const tsm_video& record) {
  if (record.splice == 1) stream.set2(kSpliceBefore);
  if (record.splice == 2) stream.set2(kSpliceAfter);
  if (record.pcrGop) stream.set2(kPcrGop);
  if (record.auInfo || record.splice != 0 || record.pcrGop) stream.set(kAligned);
}

void set_cuts(video_state& state, const tsm_config& config) {
  if (is_set(config.start)) state.cutStart = &config.start;
  if (is_set(config.end)) state.cutEnd = &config.end;
}

void size_input(video_state& state, tsm_mux& mux) {
  const video_characteristics& video = state.characteristics;
  int64_t bytes = int64_t{video.vbvSize} * 2048;
  if (video.coding == video_coding::mpeg2) {
    const int64_t most = max_vbv_bytes(video.escape, video.profile, video.level);
    bytes = std::max(bytes, most + most / 8);
  }
  const int32_t need =
      video_input_need(bytes, is_nal_coded(state) ? video.bitRate : 0,
                       is_remultiplexed(*state.config), Morvalen::Zel::tsm_read_size());
  if (need <= state.input.capacity()) return;
  if (mux.config->blockProcess && mux.config->inBufSiz > 0) {
    mux.reports.fatal(kBufferBelowVbv, state.stream->pid());
  }
  state.input.grow(need);
}

void set_rate(video_state& state) {
  const tsm_video& record = *state.config;
  const video_characteristics& video = state.characteristics;
  tsm_stream& stream = *state.stream;
  video_rate_inputs inputs;
  // An adjustment that leaves no rate isn't taken: the stream would go on for years.
  const double adjusted = video.bitRate + record.rateAdjustment;
  inputs.bitRate = (adjusted > 0 ? adjusted : video.bitRate) + video.dependentBitRate;
  inputs.framesPerSecond = video.frameRate;
  inputs.ptsNpes = static_cast<int>(stream.PTSnPES);
  inputs.pesNau = static_cast<int>(stream.PESnau);
  inputs.secondLayer = video.dependentBitRate > 0;
  inputs.insertsDelimiters = record.insertAvcAud && video.coding == video_coding::avc;
  inputs.maxPesLength = record.maxPesLen >= kLeastPesLength ? record.maxPesLen : 0;
  inputs.aligned = stream.has(kAligned);
  inputs.padsSmallUnits = record.padSmallAu;
  inputs.quadByte = record.quadByte;
  inputs.privateData = !state.privateData.empty();
  inputs.privateExtension = state.privateData.has_extension();
  stream.set_rate(std::max(video_stream_rate(inputs), 1.0));
}

void set_first_dts(video_state& state, const tsm_mux& mux) {
  const tsm_video& record = *state.config;
  const tsm_config& config = *mux.config;
  tsm_stream& stream = *state.stream;
  video_start_inputs inputs;
  inputs.startTime = mux.startTime;
  inputs.ptsi = configured_first_pts(config);
  inputs.leader90k = config.leader;
  inputs.delay90k = record.delay;
  inputs.streamDelay90k = record.streamDelay;
  inputs.maxDecodeDelay90k = record.maxDecodeDelay;
  inputs.maxDelay = record.typeDelay == 1;
  inputs.independent = record.indDelay;
  inputs.index = state.index;
  if (state.firstVideo != nullptr) inputs.firstStreamBase = state.firstVideo->startBase;
  inputs.terminated = stream.has2(kTerminated);
  inputs.overlap = config.overlap;
  inputs.notLowDelay = record.notLowDelay;
  const video_start start = first_video_dts(inputs, state.characteristics, state.model.limit);
  if (start.overlapTooLong) state.report->fatal(kOverlapTooLong, stream.pid());
  state.startBase = start.base;
  // Stills are offered ahead of their time by this many frames.
  const double offset = record.stillPicOffset * state.characteristics.framePeriod;
  state.firstDts = state.runningDts = normalise(start.dts + offset);
  if (!start.holds) return;
  stream.holdUntil = time_from_ticks(start.holdUntil);
  stream.set2(kHold);
}

void read_first_units(video_state& state) {
  tsm_stream& stream = *state.stream;
  if (!video_unit_ready(state, 0)) {
    if (state.sourceEnded) stream.set(kSourceEnded | kNoMorePackets);
    state.firstPts = state.firstDts;
    return;
  }
  state.firstPts = state.units.front().pts;
}

}  // namespace

std::unique_ptr<tsm_stream> open_video(const tsm_video& record, const tsm_program& program,
                                       Morvalen::Zel::tsm_load_callback load, tsm_mux& mux) {
  check_keys(record, mux);
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<video_state>();
  video_state& state = *owned;
  state.stream = stream.get();
  stream->buffer = &state.model;
  state.config = &record;
  state.report = &mux.reports;
  state.noEmptyAf = mux.config->noEmptyAf;
  state.scan = scan_video;
  state.leastUnits = static_cast<size_t>(std::clamp<int32_t>(record.auDepth, 0, kMostWaiting));
  stream->state = std::move(owned);
  stream->kind = stream_kind::video;
  stream->makePacket = make_video_packet;
  stream->planStretch = plan_video_stretch;
  stream->makeInner = make_inner_video_packet;
  stream->unitsToSend = video_units_to_send;
  set_video_flags(*stream, record);
  set_cuts(state, *mux.config);

  const bool cut = state.cutStart != nullptr || state.cutEnd != nullptr;
  const int32_t size = video_input_size(mux.config->inBufSiz, is_remultiplexed(record), cut,
                                        Morvalen::Zel::tsm_read_size());
  input_request request;
  request.record = &record;
  request.load = load;
  request.bufferSize = size;
  request.openError = kVideoOpenFailed;
  request.noFiles = kVideoNoInputFile;
  request.noFilesArgument = int64_t{program.programNumber};
  if (record.privateDataFile.count > 0) {
    state.privateData.read(record.privateDataFile, record.pid, mux.reports);
  }
  if (comes_in_pairs(record, load)) {
    return open_pair(state, request, mux.reports) ? std::move(stream) : nullptr;
  }
  const bool layered = is_layered(record);
  if (!open_input(layered ? state.layeredInput : state.input, request, mux.reports)) return nullptr;
  if (layered) open_layers(state, size);
  return stream;
}

void start_video(tsm_stream& stream, tsm_mux& mux) {
  auto& state = static_cast<video_state&>(*stream.state);
  const tsm_config& config = *mux.config;
  const video_characteristics& video = state.characteristics;
  discover_video(state);
  if (state.sourceEnded) {
    stream.set(kSourceEnded | kNoMorePackets);
    return;
  }
  if (config.terminate && is_nal_coded(state)) mux.reports.warn(kTerminatesNoAvc, stream.pid());
  if (state.config->rate > 0) state.characteristics.bitRate = state.config->rate;
  if (state.pairedLayers != nullptr) {
    while (state.dependentInput.room() > 0 && state.dependentInput.load()) continue;
  }
  if (state.layers != nullptr) start_layers(state, stream.has(kCarriesPcr));
  size_input(state, mux);
  describe_video(state, config.autoDescrDisabled ? 0 : config.autoDescrMask);
  elementary_input& input = state.layeredInput.opened() ? state.layeredInput : state.input;
  describe_from_source(stream, *state.config, &input, mux.reports);
  set_rate(state);
  state.model.limit = video_decoder_limit(state.config->dbSize, video.vbvSize, stream.rate);
  set_first_dts(state, mux);
  stream.framePeriod = video.framePeriod;
  stream.frameRate = video.frameRate;
  read_first_units(state);
  state.privateData.set_video(&state, stream.pid(), mux.reports);
  stream.firstDts = state.firstDts;
  stream.firstPts = state.firstPts;
}

}  // namespace zel::mux
