#include "zel/mux/engine/pcm/pcm_input.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace zel::mux {

namespace {

constexpr size_t kMostFrame = 64;  // bytes
constexpr int32_t kFileMark = 12;  // bytes that tell a Wave file
static_assert(wave_parser::kMostWanted <= kMostFrame);

}  // namespace

// What stands in front, at least the bytes that the parser wants, if they are there.
std::span<const uint8_t> pcm_input::head(uint8_t* copy) const {
  if (input_.filled() == 0) return {};
  const auto straight = input_.straight(input_.read_position());
  if (straight.size() >= parser_.wanted()) return straight;
  const int32_t count = std::min(input_.filled(), static_cast<int32_t>(kMostFrame));
  input_.copy(input_.read_position(), copy, count);
  return {copy, static_cast<size_t>(count)};
}

pcm_input::search pcm_input::find_samples() {
  std::array<uint8_t, kMostFrame> copy;
  while (true) {
    switch (parser_.at()) {
      case wave_parser::phase::samples:
        if (parser_.samples_left() > 0) return search::samples;
        parser_.take_samples(0);
        break;
      case wave_parser::phase::no_wave:
      case wave_parser::phase::corrupted:
        return search::other;
      default:
        break;
    }
    input_.skip(static_cast<int32_t>(parser_.advance(head(copy.data()))));
    const bool moving =
        parser_.wanted() == 0 || static_cast<size_t>(input_.filled()) >= parser_.wanted();
    if (moving) continue;
    if (!input_.load()) return input_.ended() ? search::over : search::later;
  }
}

void pcm_input::adopt_wave() {
  wave_ = true;
  told_ = parser_.format();
  channels_ = told_.channels;
  format_ = {told_.bytesPerSample, told_.bits, true, false, false};
}

void pcm_input::open(const wave_messages& messages, int pid, reporting& reports) {
  messages_ = messages;
  pid_ = pid;
  report_ = &reports;
  // Nothing more to come, or a source that has nothing just now: what is there has to do.
  while (input_.filled() < kFileMark && input_.load()) continue;
  const search found = find_samples();
  if (found == search::samples) {
    adopt_wave();
    return;
  }
  // Without its mark it is raw from the first byte on; otherwise from where its parser gave up.
  const bool marked =
      parser_.at() != wave_parser::phase::start && parser_.at() != wave_parser::phase::no_wave;
  if (!marked) return;
  if (parser_.files() > 0) {
    adopt_wave();  // a file without samples
    return;
  }
  report_->warn(messages_.corrupted, pid_);
}

bool pcm_input::fits_first_file() {
  const wave_format& format = parser_.format();
  int fault = 0;
  if (format.bits != told_.bits || format.bytesPerSample != told_.bytesPerSample ||
      format.linear != told_.linear) {
    fault = messages_.depthChanged;
  } else if (format.channels != told_.channels) {
    fault = messages_.channelsChanged;
  } else if (format.sampleRate != told_.sampleRate) {
    fault = messages_.rateChanged;
  }
  if (fault != 0) report_->fatal(fault, pid_);
  return fault == 0;
}

// Between the samples of one file and those of the next.
pcm_input::result pcm_input::next_file() {
  const int files = parser_.files();
  switch (find_samples()) {
    case search::samples:
      if (parser_.files() == files || fits_first_file()) return result::ready;
      break;
    case search::later:
      return result::later;
    case search::other:
      report_->warn(messages_.discarded, pid_);
      break;
    case search::over:
      // A single byte is what pads a file to an even size.
      if (input_.filled() > 1) report_->warn(messages_.discarded, pid_);
      break;
  }
  ended_ = true;
  return result::ended;
}

size_t pcm_input::frames_there() const {
  auto bytes = static_cast<uint64_t>(input_.filled());
  if (wave_) bytes = std::min(bytes, parser_.samples_left());
  return static_cast<size_t>(bytes) / frame_bytes();
}

// A file's last bytes that make no frame. False where there are none, or they aren't here yet.
bool pcm_input::drop_partial_frame() {
  if (!wave_) return false;
  const uint64_t rest = parser_.samples_left();
  if (rest > static_cast<uint64_t>(input_.filled())) return false;
  input_.skip(static_cast<int32_t>(rest));
  parser_.take_samples(rest);
  return true;
}

void pcm_input::read_frames(int32_t* out, size_t stride, size_t frames) {
  const size_t frameBytes = frame_bytes();
  assert(frameBytes <= kMostFrame);
  std::array<uint8_t, kMostFrame> copy;
  while (frames > 0) {
    std::span<const uint8_t> bytes = input_.straight(input_.read_position());
    if (bytes.size() < frameBytes) {
      input_.copy(input_.read_position(), copy.data(), static_cast<int32_t>(frameBytes));
      bytes = std::span(copy).first(frameBytes);
    }
    const size_t count = std::min(frames, bytes.size() / frameBytes);
    const uint8_t* at = bytes.data();
    for (size_t frame = 0; frame < count; ++frame, out += stride) {
      for (int channel = 0; channel < channels_; ++channel, at += format_.bytes) {
        out[channel] = read_sample(at, format_);
      }
    }
    input_.skip(static_cast<int32_t>(count * frameBytes));
    if (wave_) parser_.take_samples(count * frameBytes);
    frames -= count;
  }
}

pcm_input::result pcm_input::read(int32_t* out, size_t stride, size_t frames, size_t& count) {
  count = 0;
  while (count < frames) {
    if (ended_) return result::ended;
    if (wave_ && (parser_.at() != wave_parser::phase::samples || parser_.samples_left() == 0)) {
      const result next = next_file();
      if (next != result::ready) return next;
    }
    const size_t there = std::min(frames_there(), frames - count);
    if (there > 0) {
      read_frames(out + count * stride, stride, there);
      count += there;
      continue;
    }
    if (drop_partial_frame()) continue;
    if (input_.load()) continue;
    if (!input_.ended()) return result::later;
    ended_ = true;
  }
  return result::ready;
}

}  // namespace zel::mux
