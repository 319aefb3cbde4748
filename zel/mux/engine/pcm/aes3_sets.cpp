#include "zel/mux/engine/pcm/aes3_sets.h"

#include <algorithm>

#include "zel/base/byte_order.h"

namespace zel::mux {

namespace {

constexpr int kChanged = 45;
constexpr int kReadAhead = 10;  // data sets: two rounds of the cadence of 29.97 Hz

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

bool aes3_sets::read_ahead() {
  if (reader_.find(first_) != result::ready) return false;
  reader_.accept(first_);
  int64_t at = input_.read_position();
  double frames = 0;
  int sets = 0;
  aes3_header header = first_;
  do {
    frames += static_cast<double>(header.frames());
    mostBytes_ = std::max(mostBytes_, kAes3HeaderSize + header.payload);
    at = set_reader<aes3_header>::end_of(at, header);
    ++sets;
  } while (sets < kReadAhead && reader_.load_until(at + kSetHeader) &&
           reader_.header_at(at, header) && header.same_layout(first_));
  averageFrames_ = frames / sets;
  return true;
}

pcm_units::result aes3_sets::next(std::span<uint8_t> out, pcm_unit& unit) {
  aes3_header header;
  const result found = reader_.find(header);
  if (found != result::ready) return found;
  if (!header.same_layout(reader_.latest())) report_.warn(kChanged, pid_);
  reader_.accept(header);
  unit.bytes = kAes3HeaderSize + header.payload;
  unit.frames = static_cast<int64_t>(header.frames());
  input_.take(out.data(), static_cast<int32_t>(unit.bytes));
  return result::ready;
}

}  // namespace zel::mux
