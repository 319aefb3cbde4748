#include "zel/mux/engine/pcm/lpcm_source.h"

#include <array>
#include <utility>

#include "zel/base/byte_order.h"
#include "zel/mux/engine/pcm/sample_format.h"

namespace zel::mux {

namespace {

constexpr uint8_t kSubstream = 0xA0;
constexpr size_t kUnitFrames = 80;

size_t sample_bytes(int bits) {
  return bits == 16 ? 2 : 3;
}

int hdmv_rate(unsigned code) {
  return code == 1 ? 48'000 : code == 4 ? 96'000 : code == 5 ? 192'000 : 0;
}

}  // namespace

bool read_hdmv_header(lpcm_header_bytes bytes, lpcm_header& header) {
  // Mono, stereo, 3/0, 2/1, 3/1, 2/2, 3/2, 3/2 and low frequencies, 3/4, and those with them.
  constexpr std::array<uint8_t, 16> kChannels = {0, 1, 0, 2, 3, 3, 4, 4, 5, 6, 7, 8};
  header.payload = base::loadBig16(bytes.data());
  header.assignment = bytes[2] >> 4;
  header.channels = kChannels[header.assignment];
  header.carried = (header.channels + 1) & ~1;
  header.sampleRate = hdmv_rate(bytes[2] & 15u);
  const int code = bytes[3] >> 6;
  header.bits = code == 0 ? 0 : 12 + 4 * code;
  constexpr unsigned kReserved = 0x1F;
  if (header.channels == 0 || header.sampleRate == 0 || header.bits == 0) return false;
  if ((bytes[3] & kReserved) != 0 || header.payload == 0) return false;
  return header.payload % (static_cast<size_t>(header.carried) * sample_bytes(header.bits)) == 0;
}

bool read_ieee1394_header(lpcm_header_bytes bytes, lpcm_header& header) {
  const int rate = bytes[3] >> 3;
  header.channels = header.carried = (bytes[3] & 7) + 1;
  header.bits = 16;
  header.sampleRate = rate == 1 ? 44'100 : rate == 2 ? 48'000 : 0;
  header.payload = bytes[1] * kUnitFrames * static_cast<size_t>(header.channels) * 2;
  return bytes[0] == kSubstream && bytes[1] > 0 && header.sampleRate != 0 && header.channels <= 2;
}

lpcm_source::lpcm_source(std::unique_ptr<elementary_input> input, lpcm_form form, int pid,
                         reporting& reports, const lpcm_change_messages& messages)
    : input_(std::move(input)),
      form_(form),
      reader_(*input_, form == lpcm_form::hdmv ? read_hdmv_header : read_ieee1394_header, pid,
              reports),
      pid_(pid),
      report_(reports),
      messages_(messages) {}

bool lpcm_source::open() {
  if (reader_.find(first_) != result::ready) return false;
  reader_.accept(first_);
  lpcm_layout layout;
  layout.form = form_;
  layout.channels = first_.channels;
  order_ = lpcm_default_order(layout);
  return true;
}

// Enters the next piece, whose header is dropped.
pcm_source::result lpcm_source::next_piece() {
  lpcm_header header;
  const result found = reader_.enter(first_, header, [this](const lpcm_header& changed) {
    int code = messages_.sampleRate;
    if (changed.bits != first_.bits) code = messages_.bits;
    if (changed.channels != first_.channels || changed.assignment != first_.assignment) {
      code = messages_.channels;
    }
    report_.fatal(code, pid_);
  });
  if (found != result::ready) return found;
  framesLeft_ = header.payload / (static_cast<size_t>(header.carried) * sample_bytes(header.bits));
  return found;
}

pcm_source::result lpcm_source::read(int32_t* out, size_t stride, size_t frames, size_t& count) {
  const size_t bytes = sample_bytes(first_.bits);
  const auto frameBytes = static_cast<size_t>(first_.carried) * bytes;
  const auto channels = static_cast<size_t>(first_.channels);
  const sample_format format = {static_cast<int>(bytes), first_.bits, true, true, false};
  std::array<uint8_t, kMostPcmChannels * 3> frame;
  for (count = 0; count < frames; ++count, out += stride) {
    while (framesLeft_ == 0) {
      const result found = next_piece();
      if (found != result::ready) return found;
    }
    input_->take(frame.data(), static_cast<int32_t>(frameBytes));
    --framesLeft_;
    for (size_t place = 0; place < channels; ++place) {
      out[order_[place]] = read_sample(frame.data() + place * bytes, format);
    }
  }
  return result::ready;
}

}  // namespace zel::mux
