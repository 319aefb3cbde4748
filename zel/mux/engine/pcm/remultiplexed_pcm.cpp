#include "zel/mux/engine/pcm/remultiplexed_pcm.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zel/base/media_clock.h"
#include "zel/mux/engine/input/file_source.h"
#include "zel/mux/engine/input/open_input.h"
#include "zel/mux/engine/pcm/aes3_combiner.h"
#include "zel/mux/engine/pcm/aes3_sets.h"
#include "zel/mux/engine/pcm/aes3_source.h"
#include "zel/mux/engine/pcm/lpcm_source.h"
#include "zel/mux/engine/pcm/mixed_source.h"
#include "zel/mux/engine/pcm/smpte302m_units.h"

namespace zel::mux {

namespace {

using Morvalen::Zel::tsm_channel_pairs;
using Morvalen::Zel::tsm_load_callback;
using Morvalen::Zel::tsm_smpte302m;

// Fatal messages.
constexpr int kOpenError = 36;
constexpr int kNoInput = 72;
constexpr int kSeveralStreams = 81;
constexpr int kUnknownForm = 94;
constexpr int kTooManyChannels = 130;
constexpr int kWordSizesDiffer = 131;
constexpr int kNotTwoChannels = 132;
constexpr int kDownmixChannelsChanged = 136;
constexpr int kDownmixWordsChanged = 137;
constexpr int kDownmixOfNoStream = 138;
constexpr int kOddChannels = 153;
constexpr int kNot48kHz = 154;
constexpr int kBadDepth = 155;
constexpr int kOnlyTwoChannels = 156;
constexpr int kTruncated = 146;  // a warning

struct opened_source {
  std::unique_ptr<pcm_source> source;
  elementary_input* input = nullptr;  // the source's own
  int channels = 0;
  int sampleRate = 48'000;
};

int first_pair_given(const tsm_smpte302m& record) {
  for (int pair = 0; pair < tsm_channel_pairs; ++pair) {
    if (record.pairUser[pair] != nullptr || record.pairFiles[pair].count > 0) return pair;
  }
  return 0;
}

bool has_input(const tsm_smpte302m& record, int pair) {
  return record.pairUser[pair] != nullptr || record.pairFiles[pair].count > 0;
}

bool is_downmixed(const tsm_smpte302m& record) {
  return record.downmixToStereo > 0;
}

pcm_form source_form(const tsm_smpte302m& record) {
  return record.remuxLpcmType != 0 ? static_cast<pcm_form>(record.lpcmSrcType)
                                   : pcm_form::smpte302m;
}

bool is_known(pcm_form form) {
  return form == pcm_form::smpte302m || form == pcm_form::hdmv || form == pcm_form::ieee1394;
}

bool open_pid(const tsm_smpte302m& record, int pair, int tsPid, tsm_load_callback load,
              tsm_mux& mux, pcm_inputs& inputs) {
  input_request request;
  request.record = &record;
  request.files = &record.pairFiles[pair];
  request.user = record.pairUser[pair];
  request.load = request.user != nullptr || request.files->count == 0 ? load : nullptr;
  request.sourceTsPid = tsPid;
  request.bufferSize = audio_input_size(false, true, Morvalen::Zel::tsm_read_size());
  request.openError = kOpenError;
  request.noFiles = kNoInput;
  auto input = std::make_unique<elementary_input>();
  if (!open_input(*input, request, mux.reports)) return false;
  inputs.push_back(std::move(input));
  return true;
}

aes3_change_messages change_messages(const tsm_smpte302m& record) {
  if (is_downmixed(record)) return {kDownmixChannelsChanged, kDownmixWordsChanged};
  if (record.remuxToCombine > 0) return {kNotTwoChannels, kWordSizesDiffer};
  return {};
}

bool open_aes3(const tsm_smpte302m& record, pcm_inputs& inputs, int pid, reporting& reports,
               std::vector<std::unique_ptr<aes3_source>>& sources) {
  for (auto& input : inputs) {
    auto source =
        std::make_unique<aes3_source>(std::move(input), pid, reports, change_messages(record));
    if (!source->open()) {
      reports.fatal(kNoInput, pid);
      return false;
    }
    sources.push_back(std::move(source));
  }
  return true;
}

// What can be combined: pairs of channels, of one word size.
int fault_of_combination(const std::vector<std::unique_ptr<aes3_source>>& sources) {
  for (const auto& source : sources) {
    if (source->channels() != 2) return kNotTwoChannels;
    if (source->bits() != sources.front()->bits()) return kWordSizesDiffer;
  }
  return 0;
}

// Streams that begin at different times lose what is before the last of them begins. Gives that
// one's number.
size_t align(const std::vector<elementary_input*>& inputs, std::vector<pcm_source*> sources) {
  const auto first_of = [&](size_t i) {
    return inputs[i]->source() == nullptr ? int64_t{-1} : inputs[i]->source()->first_pts90k();
  };
  size_t last = 0;
  for (size_t i = 1; i < inputs.size(); ++i) {
    if (first_of(i) >= 0 && base::difference90k(first_of(i), first_of(last)) > 0) last = i;
  }
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (first_of(i) < 0 || first_of(last) < 0) continue;
    const auto behind = static_cast<double>(base::difference90k(first_of(last), first_of(i)));
    sources[i]->skip(std::llround(behind * 48'000 / 90'000));
  }
  return last;
}

class remultiplexer {
 public:
  remultiplexer(const tsm_smpte302m& record, pcm_inputs& inputs, const pcm_reference& reference,
                const video_cut& cut, int pid, reporting& reports)
      : record_(record),
        inputs_(inputs),
        reference_(reference),
        cut_(cut),
        pid_(pid),
        reports_(reports) {}

  bool make(remultiplexed_pcm& made) {
    if (!is_known(source_form(record_)) || !is_known(sink_form(record_))) return fail(kUnknownForm);
    const bool sameForm =
        source_form(record_) == pcm_form::smpte302m && sink_form(record_) == pcm_form::smpte302m;
    if (sameForm && !is_downmixed(record_)) {
      return record_.remuxToCombine > 0 ? combine(made) : pass_on(made);
    }
    opened_source opened;
    if (!open(opened)) return false;
    made.sourceDelay90k = delay_of(*opened.input);
    if (is_downmixed(record_)) {
      downmix_source::coefficients left;
      downmix_source::coefficients right;
      std::copy(std::begin(record_.dmCoefL), std::end(record_.dmCoefL), left.begin());
      std::copy(std::begin(record_.dmCoefR), std::end(record_.dmCoefR), right.begin());
      opened.source = std::make_unique<downmix_source>(std::move(opened.source), left, right);
      opened.channels = 2;
    }
    return sink_form(record_) == pcm_form::smpte302m ? to_smpte302m(opened, made)
                                                     : to_lpcm(opened, made);
  }

 private:
  bool fail(int code) {
    reports_.fatal(code, pid_);
    return false;
  }

  double delay_of(elementary_input& input) const {
    const auto& files = record_.pairFiles[first_pair_given(record_)];
    return delay_in_source(record_, files, input, reference_, cut_);
  }

  int64_t period() const {
    return reference_.video != nullptr ? reference_.period : kCadenceWithoutVideo;
  }

  // A stream that comes as one is passed on as it stands.
  bool pass_on(remultiplexed_pcm& made) {
    auto units = std::make_unique<aes3_sets>(*inputs_.front(), pid_, reports_);
    if (!units->read_ahead()) return fail(kNoInput);
    made.unitsPerSecond = units->units_per_second();
    made.sourceDelay90k = delay_of(*inputs_.front());
    made.units = std::move(units);
    return true;
  }

  bool combine(remultiplexed_pcm& made) {
    std::vector<std::unique_ptr<aes3_source>> sources;
    if (!open_aes3(record_, inputs_, pid_, reports_, sources)) return false;
    const int fault = fault_of_combination(sources);
    if (fault != 0) return fail(fault);
    made.sourceDelay90k = align_all(sources);
    aes3_layout layout;
    layout.channels = 2 * static_cast<int>(sources.size());
    layout.wordSize = sources.front()->bits();
    const pcm_cadence cadence = cadence_of_pictures(period(), layout, kMostDataSet);
    made.unitsPerSecond = cadence.units_per_second();
    made.units = std::make_unique<aes3_combiner>(std::move(sources), cadence);
    return true;
  }

  double align_all(const std::vector<std::unique_ptr<aes3_source>>& sources) const {
    std::vector<elementary_input*> inputs;
    std::vector<pcm_source*> each;
    for (const auto& source : sources) {
      inputs.push_back(&source->input());
      each.push_back(source.get());
    }
    return delay_of(*inputs[align(inputs, each)]);
  }

  bool open(opened_source& opened) {
    return source_form(record_) == pcm_form::smpte302m ? open_aes3_source(opened)
                                                       : open_lpcm_source(opened);
  }

  bool open_aes3_source(opened_source& opened) {
    std::vector<std::unique_ptr<aes3_source>> sources;
    if (!open_aes3(record_, inputs_, pid_, reports_, sources)) return false;
    opened.input = &sources.front()->input();
    if (sources.size() == 1) {
      opened.channels = sources.front()->channels();
      opened.source = std::move(sources.front());
      return true;
    }
    const int fault = fault_of_combination(sources);
    if (fault != 0) return fail(fault);
    std::vector<elementary_input*> inputs;
    std::vector<std::unique_ptr<pcm_source>> joined;
    std::vector<pcm_source*> each;
    for (auto& source : sources) {
      inputs.push_back(&source->input());
      each.push_back(source.get());
      joined.push_back(std::move(source));
    }
    opened.input = inputs[align(inputs, each)];
    opened.source = std::make_unique<joined_source>(std::move(joined));
    opened.channels = opened.source->channels();
    return true;
  }

  bool open_lpcm_source(opened_source& opened) {
    const lpcm_form form =
        source_form(record_) == pcm_form::hdmv ? lpcm_form::hdmv : lpcm_form::ieee1394;
    const lpcm_change_messages messages = {kOddChannels, kBadDepth, kNot48kHz};
    auto source =
        std::make_unique<lpcm_source>(std::move(inputs_.front()), form, pid_, reports_, messages);
    if (!source->open()) return fail(kNoInput);
    opened.input = &source->input();
    opened.channels = source->channels();
    opened.sampleRate = source->header().sampleRate;
    opened.source = std::move(source);
    return true;
  }

  bool to_smpte302m(opened_source& opened, remultiplexed_pcm& made) {
    if (opened.channels % 2 != 0) return fail(kOddChannels);
    if (opened.sampleRate != 48'000) return fail(kNot48kHz);
    aes3_layout layout;
    layout.channels = opened.channels;
    layout.wordSize = opened.source->bits();
    layout.channelIdentification = static_cast<uint8_t>(record_.channelId);
    layout.invalid = record_.validity;
    const pcm_cadence cadence = cadence_of_pictures(period(), layout, kMostDataSet);
    std::vector<smpte302m_units::source> sources(1);
    sources.front().input = std::move(opened.source);
    auto units = std::make_unique<smpte302m_units>(layout, cadence, std::move(sources));
    set_channel_status(*units, record_, layout.channels);
    made.unitsPerSecond = cadence.units_per_second();
    made.units = std::move(units);
    return true;
  }

  bool to_lpcm(opened_source& opened, remultiplexed_pcm& made) {
    lpcm_layout layout;
    layout.form = sink_form(record_) == pcm_form::hdmv ? lpcm_form::hdmv : lpcm_form::ieee1394;
    layout.channels = opened.channels;
    layout.bits = opened.source->bits();
    layout.sampleRate = opened.sampleRate;
    if (layout.channels % 2 != 0) return fail(kOddChannels);
    if (layout.sampleRate != 48'000) return fail(kNot48kHz);
    if (layout.form == lpcm_form::ieee1394) {
      if (layout.channels != 2) return fail(kOnlyTwoChannels);
      if (layout.bits > 16) reports_.warn(kTruncated, pid_);
      layout.bits = 16;
    }
    layout.assignment = hdmv_assignment(layout.channels);
    layout.order = lpcm_default_order(layout);
    made.unitsPerSecond =
        static_cast<double>(layout.sampleRate) / static_cast<double>(lpcm_frames(layout));
    made.units = std::make_unique<lpcm_units>(layout, std::move(opened.source));
    return true;
  }

  const tsm_smpte302m& record_;
  pcm_inputs& inputs_;
  const pcm_reference& reference_;
  const video_cut& cut_;
  int pid_;
  reporting& reports_;
};

}  // namespace

bool takes_from_multiplex(const tsm_smpte302m& record) {
  return record.sourceTsPid > 0 || record.sourceStreamId > 0 || record.remuxToCombine > 0;
}

pcm_form sink_form(const tsm_smpte302m& record) {
  const bool converts = record.remuxLpcmType != 0 && takes_from_multiplex(record);
  return converts ? static_cast<pcm_form>(record.lpcmSinkType) : pcm_form::smpte302m;
}

bool open_multiplexed_inputs(const tsm_smpte302m& record, tsm_load_callback load, tsm_mux& mux,
                             pcm_inputs& inputs) {
  // The coefficients are those of the channels of a stream.
  if (is_downmixed(record) && record.sourceTsPid <= 0 && record.remuxToCombine <= 0) {
    mux.reports.fatal(kDownmixOfNoStream, record.pid);
    return false;
  }
  const int first = first_pair_given(record);
  if (record.remuxToCombine <= 0) {
    for (int pair = first + 1; pair < tsm_channel_pairs; ++pair) {
      if (!has_input(record, pair)) continue;
      mux.reports.fatal(kSeveralStreams, record.pid);
      return false;
    }
    return open_pid(record, first, record.sourceTsPid, load, mux, inputs);
  }
  if (record.remuxToCombine > tsm_channel_pairs) {
    mux.reports.fatal(kTooManyChannels, record.pid);
    return false;
  }
  for (int i = 0; i < record.remuxToCombine; ++i) {
    if (record.srcTsPidToCombine[i] <= 0) {
      mux.reports.fatal(kNoInput, record.pid);
      return false;
    }
    const int pair = has_input(record, i) ? i : first;
    if (!open_pid(record, pair, record.srcTsPidToCombine[i], load, mux, inputs)) return false;
  }
  return true;
}

bool make_remultiplexed_units(const tsm_smpte302m& record, pcm_inputs& inputs,
                              const pcm_reference& reference, const video_cut& cut, int pid,
                              reporting& reports, remultiplexed_pcm& made) {
  return remultiplexer(record, inputs, reference, cut, pid, reports).make(made);
}

}  // namespace zel::mux
