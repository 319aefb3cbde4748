#include "zel/mux/engine/pcm/wave_parser.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <string_view>

#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatExtensible = 0xFFFE;
constexpr uint32_t kNoSize = 0xFFFFFFFF;
constexpr size_t kFileHeader = 12;
constexpr size_t kChunkHeader = 8;
constexpr size_t kLeastFormat = 16;
constexpr size_t kExtensibleFormat = 40;
constexpr size_t kSizes = 24;  // of ds64, what counts: size of the file, of the data, samples

// KSDATAFORMAT_SUBTYPE_PCM behind its first two bytes, which are the format's tag.
constexpr std::array<uint8_t, 14> kSubFormatRest = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                    0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

bool is_id(std::span<const uint8_t> bytes, std::string_view id) {
  return std::memcmp(bytes.data(), id.data(), id.size()) == 0;
}

bool starts_file(std::span<const uint8_t> bytes) {
  return is_id(bytes, "RIFF") || is_id(bytes, "RF64") || is_id(bytes, "BW64");
}

}  // namespace

size_t wave_parser::stop(phase at) {
  phase_ = at;
  state_ = state::stopped;
  wanted_ = 0;
  return 0;
}

void wave_parser::to_next_chunk(uint64_t skipped) {
  phase_ = phase::headers;
  skipLeft_ = skipped;
  state_ = skipped > 0 ? state::skipping : state::chunk;
  wanted_ = skipped > 0 ? 1 : kChunkHeader;
}

void wave_parser::to_next_file() {
  phase_ = phase::start;
  state_ = state::file;
  wanted_ = kFileHeader;
}

// Where the file ends by its own word, behind its samples, the next one begins.
void wave_parser::move_on(uint64_t count) {
  position_ += count;
  if (state_ == state::chunk && samplesSeen_ && fileEnd_ != 0 && position_ >= fileEnd_) {
    to_next_file();
  }
}

size_t wave_parser::open_file(std::span<const uint8_t> bytes) {
  if (!starts_file(bytes) || !is_id(bytes.subspan(8), "WAVE")) return stop(phase::no_wave);
  longForm_ = !is_id(bytes, "RIFF");
  const uint32_t size = base::loadLittle32(bytes.data() + 4);
  fileEnd_ = size == 0 || size == kNoSize ? 0 : uint64_t{size} + kChunkHeader;
  position_ = 0;
  longFileSize_ = longDataSize_ = 0;
  formatKnown_ = samplesSeen_ = false;
  to_next_chunk(0);
  return kFileHeader;
}

// Chunks have an even place: one of odd size has a byte behind it that isn't counted.
uint64_t padded(uint64_t size) {
  return size + (size & 1);
}

size_t wave_parser::open_samples(uint32_t size) {
  if (!formatKnown_) return stop(phase::corrupted);
  samplesLeft_ = size;
  if (size == kNoSize) {
    samplesLeft_ = longForm_ && longDataSize_ > 0 ? longDataSize_ : kUnknownLength;
  }
  // A writer that couldn't go back to fill in its sizes left them at nothing.
  if (size == 0 && fileEnd_ == 0) samplesLeft_ = kUnknownLength;
  padBehindSamples_ = samplesLeft_ != kUnknownLength && (samplesLeft_ & 1) != 0;
  phase_ = phase::samples;
  state_ = state::stopped;
  wanted_ = 0;
  samplesSeen_ = true;
  ++files_;
  return kChunkHeader;
}

size_t wave_parser::open_chunk(std::span<const uint8_t> bytes) {
  // A file that was cut has its size wrong; where the next one begins can be seen.
  if (starts_file(bytes)) {
    to_next_file();
    return 0;
  }
  chunkSize_ = base::loadLittle32(bytes.data() + 4);
  if (is_id(bytes, "data")) return open_samples(chunkSize_);
  if (is_id(bytes, "fmt ")) {
    if (chunkSize_ < kLeastFormat) return stop(phase::corrupted);
    state_ = state::format;
    wanted_ = std::min<size_t>(chunkSize_, kExtensibleFormat);
  } else if (is_id(bytes, "ds64")) {
    if (chunkSize_ < kSizes) return stop(phase::corrupted);
    state_ = state::sizes;
    wanted_ = kSizes;
  } else {
    to_next_chunk(padded(chunkSize_));
  }
  return kChunkHeader;
}

size_t wave_parser::read_format(std::span<const uint8_t> bytes) {
  const uint8_t* const at = bytes.data();
  uint16_t tag = base::loadLittle16(at);
  const int channels = base::loadLittle16(at + 2);
  const int blockAlign = base::loadLittle16(at + 12);
  const int bits = base::loadLittle16(at + 14);
  format_ = {false, channels, base::loadLittle32(at + 4), 0, bits};
  const size_t size = wanted_;
  if (tag == kFormatExtensible && size >= kExtensibleFormat) {
    // Bits of the container, and how many of them are valid: 0 where nobody filled it in.
    const int valid = base::loadLittle16(at + 18);
    if (valid > 0 && valid <= bits) format_.bits = valid;
    const bool known = std::memcmp(at + 26, kSubFormatRest.data(), kSubFormatRest.size()) == 0;
    tag = known ? base::loadLittle16(at + 24) : uint16_t{0};
  }
  format_.linear = tag == kFormatPcm;
  if (channels > 0 && blockAlign % channels == 0) format_.bytesPerSample = blockAlign / channels;
  // A frame has to hold what it is said to.
  if (format_.bytesPerSample * 8 < format_.bits || format_.bytesPerSample < 1 || bits < 1) {
    return stop(phase::corrupted);
  }
  formatKnown_ = true;
  to_next_chunk(padded(chunkSize_) - size);
  return size;
}

size_t wave_parser::read_sizes(std::span<const uint8_t> bytes) {
  longFileSize_ = base::loadLittle64(bytes.data());
  longDataSize_ = base::loadLittle64(bytes.data() + 8);
  if (longForm_ && longFileSize_ > 0) fileEnd_ = longFileSize_ + kChunkHeader;
  to_next_chunk(padded(chunkSize_) - kSizes);
  return kSizes;
}

size_t wave_parser::skip(std::span<const uint8_t> bytes) {
  const auto count = static_cast<size_t>(std::min<uint64_t>(skipLeft_, bytes.size()));
  to_next_chunk(skipLeft_ - count);
  return count;
}

size_t wave_parser::step(std::span<const uint8_t> bytes) {
  switch (state_) {
    case state::file:
      return open_file(bytes);
    case state::chunk:
      return open_chunk(bytes);
    case state::format:
      return read_format(bytes);
    case state::sizes:
      return read_sizes(bytes);
    case state::skipping:
      return skip(bytes);
    case state::stopped:
      break;
  }
  return 0;
}

size_t wave_parser::advance(std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (state_ != state::stopped && bytes.size() - done >= wanted_) {
    const size_t count = step(bytes.subspan(done));
    done += count;
    move_on(count);
  }
  return done;
}

void wave_parser::take_samples(uint64_t count) {
  assert(phase_ == phase::samples && count <= samplesLeft_);
  if (samplesLeft_ == kUnknownLength) return;
  samplesLeft_ -= count;
  if (samplesLeft_ == 0) to_next_chunk(padBehindSamples_ ? 1 : 0);
  move_on(count);
}

}  // namespace zel::mux
