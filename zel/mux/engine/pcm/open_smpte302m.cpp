#include "zel/mux/engine/pcm/open_smpte302m.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/input/source_description.h"
#include "zel/mux/engine/pcm/open_lpcm.h"
#include "zel/mux/engine/pcm/pcm_input.h"
#include "zel/mux/engine/pcm/pcm_packets.h"
#include "zel/mux/engine/pcm/pcm_start.h"
#include "zel/mux/engine/pcm/remultiplexed_pcm.h"
#include "zel/mux/engine/pcm/smpte302m_units.h"
#include "zel/mux/engine/run/stream_setup.h"
#include "zel/mux/engine/stream/video_state.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_load_callback;
using Morvalen::Zel::tsm_smpte302m;

// Fatal messages.
constexpr int kOpenError = 36;
constexpr int kNoPid = 66;
constexpr int kNoReference = 68;
constexpr int kBadBytesPerWord = 70;
constexpr int kNoInput = 72;
constexpr int kDownmixOfNoStream = 138;
constexpr int kNot48kHz = 141;
constexpr int kOddChannels = 142;
constexpr int kTooManyChannels = 143;
constexpr int kBadDepth = 144;
constexpr int kWideLaterPair = 145;
constexpr int kDepthChanged = 157;
constexpr int kChannelsChanged = 158;
// Warnings.
constexpr int kOthersIgnored = 129;
constexpr int kDiscarded = 147;
constexpr int kCorrupted = 148;

constexpr wave_messages kWaveMessages = {kDiscarded, kCorrupted, kDepthChanged, kChannelsChanged,
                                         kNot48kHz};

constexpr uint8_t kStreamType = 0x06;
constexpr std::array<uint8_t, 6> kRegistration = {0x05, 0x04, 'B', 'S', 'S', 'D'};
constexpr int kRegistrationBit = 3;  // of the mask of automatic descriptors

// ST 302: what a decoder holds.
constexpr int64_t kDecoderBuffer = 65'024;
struct smpte302m_state : pcm_state {
  const tsm_smpte302m* record = nullptr;
  const Morvalen::Zel::tsm_program* program = nullptr;
  std::vector<std::unique_ptr<pcm_input>> inputs;  // until the units have them
  elementary_input own;                            // of no multiplex: never opened
  pcm_inputs sources;                              // of streams out of other multiplexes
};

// Bytes tell what raw samples can hold: 16 bits of a word of two, whatever WordSize is.
int raw_bits(const tsm_smpte302m& record) {
  return std::min(record.wordSize, 8 * record.bytesPerWord);
}

sample_format raw_format(const tsm_smpte302m& record) {
  return {record.bytesPerWord, raw_bits(record), record.msJustified, record.byteReversed,
          record.bitReversed};
}

input_request request_of(const tsm_smpte302m& record, int pair, tsm_load_callback load) {
  input_request request;
  request.record = &record;
  request.files = &record.pairFiles[pair];
  request.user = record.pairUser[pair];
  // A pair that names files but no user value is read from them.
  request.load = request.user != nullptr || request.files->count == 0 ? load : nullptr;
  request.bufferSize = audio_input_size(false, false, Morvalen::Zel::tsm_read_size());
  request.openError = kOpenError;
  request.noFiles = kNoInput;
  return request;
}

bool open_pair(smpte302m_state& state, int pair, tsm_load_callback load, tsm_mux& mux) {
  const tsm_smpte302m& record = *state.record;
  auto input = std::make_unique<pcm_input>();
  const input_request request = request_of(record, pair, load);
  if (!open_input(input->bytes(), request, mux.reports)) return false;
  input->set_raw(raw_format(record), record.monoToStereo ? 1 : 2);
  state.inputs.push_back(std::move(input));
  return true;
}

bool has_pair(const tsm_smpte302m& record, int pair, bool loads) {
  if (record.pairUser[pair] != nullptr || record.pairFiles[pair].count > 0) return true;
  return loads && pair < record.streamCount;
}

bool open_pairs(smpte302m_state& state, tsm_load_callback load, tsm_mux& mux) {
  const tsm_smpte302m& record = *state.record;
  for (int pair = 0; pair < Morvalen::Zel::tsm_channel_pairs; ++pair) {
    if (!has_pair(record, pair, load != nullptr)) continue;
    if (!open_pair(state, pair, load, mux)) return false;
  }
  if (state.inputs.empty()) mux.reports.fatal(kNoInput, record.pid);
  return !state.inputs.empty();
}

// The message that a Wave file can't be used with, or 0. The first pair may bring all channels.
int fault_of(const pcm_input& input, bool first, bool monoToStereo) {
  const wave_format& wave = input.wave();
  if (wave.sampleRate != 48'000) return kNot48kHz;
  if (wave.channels % 2 != 0 && !(wave.channels == 1 && monoToStereo)) return kOddChannels;
  if (wave.channels > 8) return kTooManyChannels;
  const bool depth = wave.bits == 16 || wave.bits == 20 || wave.bits == 24;
  if (!wave.linear || !depth || wave.bytesPerSample > 4) return kBadDepth;
  if (!first && wave.channels > 2) return kWideLaterPair;
  return 0;
}

bool read_heads(smpte302m_state& state, tsm_mux& mux) {
  const int pid = state.stream->pid();
  for (size_t i = 0; i < state.inputs.size(); ++i) {
    pcm_input& input = *state.inputs[i];
    input.open(kWaveMessages, pid, mux.reports);
    if (!input.is_wave()) continue;
    const int fault = fault_of(input, i == 0, state.record->monoToStereo);
    if (fault != 0) {
      mux.reports.fatal(fault, pid);
      return false;
    }
  }
  if (state.inputs.front()->channels() > 2 && state.inputs.size() > 1) {
    mux.reports.warn(kOthersIgnored, pid);
    state.inputs.resize(1);
  }
  return true;
}

aes3_layout layout_of(const smpte302m_state& state) {
  int channels = 0;
  int bits = 0;
  for (const auto& input : state.inputs) {
    channels += std::max(input->channels(), 2);
    bits = std::max(bits, input->format().bits);
  }
  bits = std::min(bits, state.record->wordSize);
  aes3_layout layout;
  layout.channels = channels;
  layout.wordSize = bits <= 16 ? 16 : bits <= 20 ? 20 : 24;
  layout.channelIdentification = static_cast<uint8_t>(state.record->channelId);
  layout.invalid = state.record->validity;
  return layout;
}

std::unique_ptr<smpte302m_units> make_units(smpte302m_state& state, const aes3_layout& layout,
                                            const pcm_cadence& cadence) {
  std::vector<smpte302m_units::source> sources;
  int channel = 0;
  for (auto& input : state.inputs) {
    smpte302m_units::source source;
    source.firstChannel = channel;
    source.doubled = input->channels() == 1;
    channel += std::max(input->channels(), 2);
    source.input = std::move(input);
    sources.push_back(std::move(source));
  }
  state.inputs.clear();
  auto units = std::make_unique<smpte302m_units>(layout, cadence, std::move(sources));
  set_channel_status(*units, *state.record, layout.channels);
  return units;
}

void describe(tsm_stream& stream, const tsm_mux& mux) {
  const auto& config = *mux.config;
  stream.pmt.listed = true;
  if (stream.pmt.streamType == 0) stream.pmt.streamType = kStreamType;
  if (config.autoDescrDisabled || (config.autoDescrMask >> kRegistrationBit & 1) == 0) return;
  add_pmt_descriptor(stream, kRegistration);
}

bool start(smpte302m_state& state, tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  const tsm_smpte302m& record = *state.record;
  if (!read_heads(state, mux)) return false;
  // Sound that is tied to pictures needs pictures: PES packets that begin with them, and frames of
  // Dolby E, which a picture's duration makes.
  const bool phased = record.phaseSync || record.dolbyETiming;
  pcm_reference reference;
  if (!find_reference(stream, record.refVideoPid, phased ? kNoReference : 0, mux, reference)) {
    return false;
  }
  const video_cut cut = cut_of_reference(reference, mux);
  for (auto& input : state.inputs) input->skip(std::llround(cut.skipped * 48'000 / 2.7e7));
  const aes3_layout layout = layout_of(state);
  const int64_t period = reference.video != nullptr ? reference.period : kCadenceWithoutVideo;
  const pcm_cadence cadence = cadence_of_pictures(period, layout, kMostDataSet);
  state.units = make_units(state, layout, cadence);

  pcm_start_inputs inputs;
  inputs.record = &record;
  inputs.reference = &reference;
  inputs.phased = phased;
  inputs.cut = cut;
  inputs.unitsPerSecond = cadence.units_per_second();
  inputs.decoderBuffer = kDecoderBuffer;
  if (!start_pcm(state, inputs, mux)) return false;
  describe(stream, mux);
  describe_from_source(stream, record, &state.own, mux.reports);
  return true;
}

void describe_as(pcm_form form, tsm_stream& stream, tsm_mux& mux) {
  if (form == pcm_form::smpte302m) return describe(stream, mux);
  describe_lpcm(stream, form == pcm_form::hdmv ? lpcm_form::hdmv : lpcm_form::ieee1394,
                mux.reports);
}

// Streams out of other multiplexes.
bool start_sources(smpte302m_state& state, tsm_mux& mux) {
  tsm_stream& stream = *state.stream;
  const tsm_smpte302m& record = *state.record;
  pcm_reference reference;
  if (!find_reference(stream, record.refVideoPid, 0, mux, reference)) return false;
  pcm_start_inputs inputs;
  inputs.record = &record;
  inputs.reference = &reference;
  inputs.cut = cut_of_reference(reference, mux);
  inputs.decoderBuffer = kDecoderBuffer;
  remultiplexed_pcm made;
  if (!make_remultiplexed_units(record, state.sources, reference, inputs.cut, stream.pid(),
                                mux.reports, made)) {
    return false;
  }
  inputs.unitsPerSecond = made.unitsPerSecond;
  inputs.sourceDelay90k = made.sourceDelay90k;
  state.units = std::move(made.units);
  if (!start_pcm(state, inputs, mux)) return false;
  describe_as(sink_form(record), stream, mux);
  elementary_input* const passed = state.sources.front().get();  // null: the units have taken it
  describe_from_source(stream, record, passed, mux.reports);
  return true;
}

}  // namespace

std::unique_ptr<tsm_stream> open_smpte302m(const tsm_smpte302m& record,
                                           const Morvalen::Zel::tsm_program& program,
                                           tsm_load_callback load, tsm_mux& mux) {
  // 0 is what a record has that nobody gave one; -1 would have been allotted.
  if (record.pid == 0) {
    mux.reports.fatal(kNoPid);
    return nullptr;
  }
  if (record.bytesPerWord < 1 || record.bytesPerWord > 4) {
    mux.reports.fatal(kBadBytesPerWord, record.pid);
    return nullptr;
  }
  auto stream = std::make_unique<tsm_stream>();
  auto owned = std::make_unique<smpte302m_state>();
  smpte302m_state& state = *owned;
  state.record = &record;
  state.program = &program;
  state.stream = stream.get();
  stream->buffer = &state.model;
  state.report = &mux.reports;
  stream->kind = stream_kind::smpte302m;
  stream->makePacket = make_pcm_packet;
  stream->unitsToSend = pcm_units_to_send;
  stream->state = std::move(owned);
  // Samples that come as such have their channels as they should be.
  if (record.downmixToStereo > 0 && !takes_from_multiplex(record)) {
    mux.reports.fatal(kDownmixOfNoStream, record.pid);
    return nullptr;
  }
  const bool opened = takes_from_multiplex(record)
                          ? open_multiplexed_inputs(record, load, mux, state.sources)
                          : open_pairs(state, load, mux);
  return opened ? std::move(stream) : nullptr;
}

void start_smpte302m(tsm_stream& stream, tsm_mux& mux) {
  auto& state = static_cast<smpte302m_state&>(*stream.state);
  const bool started =
      takes_from_multiplex(*state.record) ? start_sources(state, mux) : start(state, mux);
  if (!started) stream.set(kSourceEnded | kNoMorePackets);
}

}  // namespace zel::mux
