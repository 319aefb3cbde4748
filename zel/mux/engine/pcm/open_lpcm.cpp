#include "zel/mux/engine/pcm/open_lpcm.h"

#include <cmath>
#include <string>
#include <utility>

#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/input/remultiplexing.h"
#include "zel/mux/engine/input/source_description.h"
#include "zel/mux/engine/pcm/lpcm_source.h"
#include "zel/mux/engine/pcm/lpcm_units.h"
#include "zel/mux/engine/pcm/pcm_input.h"
#include "zel/mux/engine/pcm/pcm_packets.h"
#include "zel/mux/engine/pcm/pcm_start.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_lpcm;

// Fatal messages.
constexpr int kOpenError = 34;
constexpr int kUnknownForm = 94;
constexpr int kNoChannels = 159;
constexpr int kNoRate = 160;
constexpr int kNoDepth = 161;
constexpr int kHdmvRate = 162;
constexpr int kHdmvDepth = 163;
constexpr int kHdmvOdd = 164;
constexpr int kHdmvTooMany = 165;
constexpr int kIeeeRate = 166;
constexpr int kIeeeDepth = 167;
constexpr int kIeeeTooMany = 168;
constexpr int kDepthChanged = 169;
constexpr int kChannelsChanged = 170;
constexpr int kSourceChannelsChanged = 171;
constexpr int kSourceDepthChanged = 172;
// Warnings.
constexpr int kHdmvPid = 150;
constexpr int kIeeePid = 151;
constexpr int kDiscarded = 152;
constexpr int kCorrupted = 153;
constexpr int kBadOrder = 154;
constexpr int kOtherOrder = 155;

constexpr uint8_t kHdmvStreamType = 0x80;
constexpr uint8_t kIeeeStreamType = 0x83;
constexpr int64_t kDecoderBuffer = 65'024;  // as for SMPTE 302M: no model is published

struct lpcm_state : pcm_state {
  const tsm_lpcm* record = nullptr;
  std::unique_ptr<pcm_input> input;             // until the units have it
  std::unique_ptr<elementary_input> multiplex;  // in its place: what a multiplex holds
  lpcm_form form = lpcm_form::hdmv;
};

// What raw samples are is told by keys alone. The message about what isn't, or 0.
int unspecified(const tsm_lpcm& record) {
  if (record.nChannels <= 0) return kNoChannels;
  if (record.samplingFrequency <= 0) return kNoRate;
  return record.wordSize <= 0 ? kNoDepth : 0;
}

int fault_of_hdmv(const lpcm_layout& layout) {
  const int rate = layout.sampleRate;
  if (rate != 48'000 && rate != 96'000 && rate != 192'000) return kHdmvRate;
  if (layout.bits != 16 && layout.bits != 20 && layout.bits != 24) return kHdmvDepth;
  if (layout.channels % 2 != 0) return kHdmvOdd;
  return layout.channels > 8 ? kHdmvTooMany : 0;
}

int fault_of_ieee1394(const lpcm_layout& layout) {
  if (layout.sampleRate != 44'100 && layout.sampleRate != 48'000) return kIeeeRate;
  if (layout.bits != 16) return kIeeeDepth;
  return layout.channels > 2 ? kIeeeTooMany : 0;
}

// ChannelRemapping has a digit for each channel: the input's channel, from 1, that goes there.
void set_order(lpcm_layout& layout, int32_t remapping, int pid, reporting& reports) {
  layout.order = lpcm_default_order(layout);
  if (remapping == 0) return;
  const std::string digits = std::to_string(remapping);
  if (remapping < 0 || digits.size() > layout.order.size() ||
      digits.find_first_not_of("12345678") != std::string::npos) {
    reports.warn(kBadOrder, pid);
    return;
  }
  if (digits.size() != static_cast<size_t>(layout.channels)) {
    reports.warn(kOtherOrder, pid);
    return;
  }
  auto order = layout.order;
  unsigned seen = 0;
  for (size_t i = 0; i < digits.size(); ++i) {
    order[i] = static_cast<uint8_t>(digits[i] - '1');
    seen |= 1u << order[i];
  }
  if (seen != (1u << layout.channels) - 1) {
    reports.warn(kBadOrder, pid);
    return;
  }
  layout.order = order;
}

// What samples of its own are, as a Wave file or the keys say.
bool find_own_layout(lpcm_state& state, tsm_mux& mux, lpcm_layout& layout) {
  const tsm_lpcm& record = *state.record;
  const int pid = state.stream->pid();
  pcm_input& input = *state.input;
  const bool hdmv = state.form == lpcm_form::hdmv;
  const wave_messages messages = {kDiscarded, kCorrupted, kDepthChanged, kChannelsChanged,
                                  hdmv ? kHdmvRate : kIeeeRate};
  const int told = unspecified(record);
  // Samples of more than three bytes, or of none, are no raw samples of either form.
  const bool possible = told == 0 && record.wordSize <= 24 && record.nChannels <= 8;
  if (possible) {
    input.set_raw({(record.wordSize + 7) / 8, record.wordSize, true, record.bigEndian, false},
                  record.nChannels);
  }
  input.open(messages, pid, mux.reports);
  if (input.is_wave()) {
    const wave_format& wave = input.wave();
    layout.channels = wave.channels;
    layout.bits = wave.linear && wave.bytesPerSample <= 4 ? wave.bits : 0;
    layout.sampleRate = static_cast<int>(wave.sampleRate);
  } else {
    if (told != 0) {
      mux.reports.fatal(told, pid);
      return false;
    }
    layout.channels = record.nChannels;
    layout.bits = record.wordSize;
    layout.sampleRate = record.samplingFrequency;
  }
  return true;
}

// What the stream of a multiplex is says the stream.
std::unique_ptr<lpcm_source> open_source(lpcm_state& state, tsm_mux& mux, lpcm_layout& layout) {
  const int pid = state.stream->pid();
  const bool hdmv = state.form == lpcm_form::hdmv;
  const lpcm_change_messages messages = {kSourceChannelsChanged, kSourceDepthChanged,
                                         hdmv ? kHdmvRate : kIeeeRate};
  auto source = std::make_unique<lpcm_source>(std::move(state.multiplex), state.form, pid,
                                              mux.reports, messages);
  if (!source->open()) {
    mux.reports.fatal(kUnknownForm, pid);
    return nullptr;
  }
  layout.channels = source->channels();
  layout.bits = source->bits();
  layout.sampleRate = source->header().sampleRate;
  layout.assignment = source->header().assignment;
  return source;
}

// The keys' part of the layout.
bool settle_layout(const lpcm_state& state, tsm_mux& mux, lpcm_layout& layout) {
  const tsm_lpcm& record = *state.record;
  const int pid = state.stream->pid();
  const bool hdmv = state.form == lpcm_form::hdmv;
  if (record.truncate24To20 && layout.bits == 24) layout.bits = 20;
  const int fault = hdmv ? fault_of_hdmv(layout) : fault_of_ieee1394(layout);
  if (fault != 0) {
    mux.reports.fatal(fault, pid);
    return false;
  }
  if (record.channelAssignment > 0) {
    layout.assignment = static_cast<uint8_t>(record.channelAssignment & 15);
  } else if (layout.assignment == 0) {
    layout.assignment = hdmv_assignment(layout.channels);
  }
  set_order(layout, record.channelRemapping, pid, mux.reports);
  return true;
}

bool start(lpcm_state& state, tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  lpcm_layout layout;
  layout.form = state.form;
  std::unique_ptr<pcm_source> source;
  const bool isTaken = state.multiplex != nullptr;
  // It goes with the source, which the units keep.
  elementary_input& input = isTaken ? *state.multiplex : state.input->bytes();
  if (isTaken) {
    source = open_source(state, mux, layout);
    if (source == nullptr) return false;
  } else {
    if (!find_own_layout(state, mux, layout)) return false;
    source = std::move(state.input);
  }
  if (!settle_layout(state, mux, layout)) return false;
  pcm_reference reference;
  if (!find_reference(stream, state.record->refVideoPid, kNoReferenceNeeded, mux, reference)) {
    return false;
  }
  const video_cut cut = cut_of_reference(reference, mux);
  pcm_start_inputs inputs;
  if (isTaken) {
    inputs.sourceDelay90k =
        delay_in_source(*state.record, state.record->files, input, reference, cut);
  } else {
    source->skip(std::llround(cut.skipped * layout.sampleRate / 2.7e7));
  }
  state.sampleRate = layout.sampleRate;
  state.units = std::make_unique<lpcm_units>(layout, std::move(source));
  inputs.record = state.record;
  inputs.reference = &reference;
  inputs.unitsPerSecond =
      static_cast<double>(layout.sampleRate) / static_cast<double>(lpcm_frames(layout));
  inputs.decoderBuffer = kDecoderBuffer;
  inputs.cut = cut;
  if (!start_pcm(state, inputs, mux)) return false;
  describe_lpcm(stream, state.form, mux.reports);
  describe_from_source(stream, *state.record, &input, mux.reports);
  return true;
}

}  // namespace

std::unique_ptr<tsm_stream> open_lpcm(const tsm_lpcm& record, const Morvalen::Zel::tsm_program&,
                                      Morvalen::Zel::tsm_load_callback load, tsm_mux& mux) {
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<lpcm_state>();
  lpcm_state& state = *owned;
  state.record = &record;
  state.stream = stream.get();
  stream->buffer = &state.model;
  state.report = &mux.reports;
  state.form = record.pesLpcmType == 1 ? lpcm_form::ieee1394 : lpcm_form::hdmv;
  stream->kind = stream_kind::lpcm;
  stream->makePacket = make_pcm_packet;
  stream->unitsToSend = pcm_units_to_send;
  stream->state = std::move(owned);

  elementary_input* input = nullptr;
  if (is_remultiplexed(record)) {
    state.multiplex = std::make_unique<elementary_input>();
    input = state.multiplex.get();
  } else {
    state.input = std::make_unique<pcm_input>();
    input = &state.input->bytes();
  }
  input_request request;
  request.record = &record;
  request.load = load;
  request.bufferSize =
      audio_input_size(false, is_remultiplexed(record), Morvalen::Zel::tsm_read_size());
  request.openError = kOpenError;
  request.noFiles = kOpenError;
  if (!open_input(*input, request, mux.reports)) return nullptr;
  return stream;
}

void describe_lpcm(tsm_stream& stream, lpcm_form form, reporting& reports) {
  const int pid = stream.pid();
  if (form == lpcm_form::hdmv && (pid < 0x1100 || pid > 0x111F)) reports.warn(kHdmvPid, pid);
  if (form == lpcm_form::ieee1394 && (pid < 0x40 || pid > 0x1FFE)) reports.warn(kIeeePid, pid);
  stream.pmt.listed = true;
  if (stream.pmt.streamType != 0) return;
  stream.pmt.streamType = form == lpcm_form::hdmv ? kHdmvStreamType : kIeeeStreamType;
}

void start_lpcm(tsm_stream& stream, tsm_mux& mux) {
  auto& state = static_cast<lpcm_state&>(*stream.state);
  if (!start(state, mux)) stream.set(kSourceEnded | kNoMorePackets);
}

}  // namespace zel::mux
