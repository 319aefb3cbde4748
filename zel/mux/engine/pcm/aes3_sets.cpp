#include "zel/mux/engine/pcm/aes3_sets.h"

#include <algorithm>
#include <array>

#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr int kChanged = 45;
constexpr int kDataLost = 61;
constexpr int kReadAhead = 10;  // data sets: two rounds of the cadence of 29.97 Hz
constexpr auto kHeader = static_cast<int64_t>(kAes3HeaderSize);

// Among samples much looks like a header: less does that tells the same, and nearly the same size.
bool resembles(const aes3_header& header, const aes3_header& other) {
  const size_t larger = std::max(header.payload, other.payload);
  const size_t smaller = std::min(header.payload, other.payload);
  return header.same_layout(other) && (larger - smaller) * 10 <= larger &&
         header.channelIdentification == other.channelIdentification;
}

}  // namespace

bool read_aes3_header(std::span<const uint8_t, kAes3HeaderSize> bytes, aes3_header& header) {
  const uint32_t word = base::loadBig32(bytes.data());
  header.payload = word >> 16;
  header.channels = static_cast<int>(word >> 14 & 3) * 2 + 2;
  header.channelIdentification = static_cast<uint8_t>(word >> 6);
  header.wordSize = static_cast<int>(word >> 4 & 3) * 4 + 16;
  // Reserved: a fourth word size, and the four alignment bits.
  if (header.wordSize > 24 || (word & 15) != 0 || header.payload == 0) return false;
  const size_t frame = static_cast<size_t>(header.channels / 2) * aes3_pair_size(header.wordSize);
  return header.payload % frame == 0;
}

bool aes3_sets::load_until(int64_t end) {
  while (input_.end_position() < end && input_.load()) continue;
  return input_.end_position() >= end;
}

bool aes3_sets::header_at(int64_t position, aes3_header& header) const {
  std::array<uint8_t, kAes3HeaderSize> bytes;
  input_.copy(position, bytes.data(), static_cast<int32_t>(bytes.size()));
  return read_aes3_header(bytes, header);
}

// Behind a data set stands another of the same layout, or nothing.
bool aes3_sets::is_set(int64_t position, const aes3_header& header) const {
  const int64_t next = position + kHeader + static_cast<int64_t>(header.payload);
  if (next + kHeader > input_.end_position()) return true;
  aes3_header following;
  return header_at(next, following) && following.same_layout(header);
}

// Moves the input to the next data set, and loads it whole. One that stands where it has to, of the
// layout known, is believed; any other has to be followed by one like it, and behind damage to
// resemble the one before.
pcm_units::result aes3_sets::find_set(aes3_header& header) {
  bool inPlace = known_;
  while (true) {
    const int64_t at = input_.read_position();
    if (!load_until(at + kHeader)) return input_.ended() ? result::ended : result::later;
    if (header_at(at, header)) {
      const int64_t end = at + kHeader + static_cast<int64_t>(header.payload);
      const bool whole = load_until(end);
      if (!whole && !input_.ended() && input_.room() > 0) return result::later;
      load_until(end + kHeader);
      const bool expected = inPlace && header.same_layout(latest_);
      const bool likely = inPlace || !known_ || resembles(header, latest_);
      if (whole && (expected || (likely && is_set(at, header)))) return result::ready;
      // The rest of a stream that was cut.
      if (!whole && expected) return result::ended;
    }
    if (inPlace) report_.warn(kDataLost, pid_);
    inPlace = false;
    input_.skip(1);
  }
}

bool aes3_sets::read_ahead() {
  if (find_set(first_) != result::ready) return false;
  known_ = true;
  latest_ = first_;
  int64_t at = input_.read_position();
  double frames = 0;
  int sets = 0;
  aes3_header header = first_;
  do {
    frames += static_cast<double>(header.frames());
    mostBytes_ = std::max(mostBytes_, kAes3HeaderSize + header.payload);
    at += kHeader + static_cast<int64_t>(header.payload);
    ++sets;
  } while (sets < kReadAhead && load_until(at + kHeader) && header_at(at, header) &&
           header.same_layout(first_));
  averageFrames_ = frames / sets;
  return true;
}

pcm_units::result aes3_sets::next(std::span<uint8_t> out, pcm_unit& unit) {
  aes3_header header;
  const result found = find_set(header);
  if (found != result::ready) return found;
  if (!header.same_layout(latest_)) report_.warn(kChanged, pid_);
  latest_ = header;
  unit.bytes = kAes3HeaderSize + header.payload;
  unit.frames = static_cast<int64_t>(header.frames());
  input_.take(out.data(), static_cast<int32_t>(unit.bytes));
  return result::ready;
}

}  // namespace zel::mux
