#include "zel/mux/engine/pcm/smpte302m_units.h"

#include <algorithm>
#include <span>
#include <utility>

#include "zel/mux/engine/configuration/values.h"
#include "zel/mux/engine/pcm/sample_format.h"

namespace zel::mux {

namespace {

enum status_kind : int32_t { kStatusPcm = 0, kStatusData = 1, kStatusUser = 2 };

// AES3, 4: byte 0 tells professional use (1), other than linear PCM (2), and 48 kHz (80).
aes3_channel_status status_of(const Morvalen::Zel::tsm_smpte302m& record, int channel) {
  aes3_channel_status status{};
  if (record.channelStatus[channel] == kStatusUser) {
    std::ranges::copy(record.channelStatusData[channel], status.begin());
    return status;
  }
  status[0] = record.channelStatus[channel] == kStatusData ? 0x83 : 0x81;
  status.back() = channel_status_crc(std::span<const uint8_t>(status).first(status.size() - 1));
  return status;
}

}  // namespace

pcm_cadence cadence_of_pictures(int64_t framePeriod, const aes3_layout& layout, size_t mostBytes) {
  pcm_cadence cadence{framePeriod, 1};
  const size_t most = std::min(aes3_payload_size(layout, aes3_most_frames(layout)), mostBytes);
  while (aes3_payload_size(layout, static_cast<size_t>(cadence.most_frames())) > most) {
    ++cadence.pieces;
  }
  return cadence;
}

smpte302m_units::smpte302m_units(const aes3_layout& layout, const pcm_cadence& cadence,
                                 std::vector<source> sources)
    : layout_(layout),
      cadence_(cadence),
      packer_(layout),
      sources_(std::move(sources)),
      samples_(static_cast<size_t>(cadence.most_frames() * layout.channels)) {}

size_t smpte302m_units::most_bytes() const {
  return aes3_payload_size(layout_, static_cast<size_t>(cadence_.most_frames()));
}

// The samples just read, from the input's depth to the stream's.
void smpte302m_units::fit_words(const source& from, size_t frames) {
  const int bits = from.input->bits();
  const auto stride = static_cast<size_t>(layout_.channels);
  const int channels = from.input->channels();
  int32_t* at = samples_.data() + from.framesRead * stride + from.firstChannel;
  for (size_t frame = 0; frame < frames; ++frame, at += stride) {
    for (int channel = 0; channel < channels; ++channel) {
      at[channel] = resized_sample(at[channel], bits, layout_.wordSize);
    }
    if (from.doubled) at[1] = at[0];
  }
}

// Reads until `frames` are there or the source has ended; false where it has nothing just now.
bool smpte302m_units::gather(source& from, size_t frames) {
  if (from.ended || from.framesRead == frames) return true;
  const auto stride = static_cast<size_t>(layout_.channels);
  int32_t* const to = samples_.data() + from.framesRead * stride + from.firstChannel;
  size_t count = 0;
  const pcm_source::result got = from.input->read(to, stride, frames - from.framesRead, count);
  fit_words(from, count);
  from.framesRead += count;
  from.ended = got == pcm_source::result::ended;
  return got != pcm_source::result::later;
}

pcm_units::result smpte302m_units::next(std::span<uint8_t> out, pcm_unit& unit) {
  const auto wanted = static_cast<size_t>(cadence_.frames(index_));
  bool complete = true;
  for (source& each : sources_) complete = gather(each, wanted) && complete;
  if (!complete) return result::later;

  size_t frames = 0;
  for (const source& each : sources_) frames = std::max(frames, each.framesRead);
  if (frames == 0) return result::ended;
  const auto stride = static_cast<size_t>(layout_.channels);
  unit.bytes = packer_.pack(std::span(samples_).first(frames * stride), out);
  unit.frames = static_cast<int64_t>(frames);
  // A source that ends before the others is silent from there on.
  std::ranges::fill(samples_, 0);
  for (source& each : sources_) each.framesRead = 0;
  ++index_;
  return result::ready;
}

void set_channel_status(smpte302m_units& units, const Morvalen::Zel::tsm_smpte302m& record,
                        int channels) {
  for (int each = 0; each < channels; ++each) {
    units.set_channel_status(each, status_of(record, each));
  }
}

}  // namespace zel::mux
