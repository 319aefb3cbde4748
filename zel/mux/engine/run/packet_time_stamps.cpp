#include "zel/mux/engine/run/packet_time_stamps.h"

#include <algorithm>

#include "zel/mux/engine/clock/tsm_time.h"

namespace zel::mux {

void packet_time_stamps::set_rate(double rate) {
  const int64_t whole = std::max<int64_t>(1, static_cast<int64_t>(rate));
  increment_ = static_cast<uint64_t>(40608000000 / whole);
  // The rate's own fraction can bring the exact step below the whole one: no fraction then.
  const double rest = kPacketBitTicks / rate - static_cast<double>(increment_);
  incrementFraction_ = static_cast<uint32_t>(std::clamp(rest * 16777216.0, 0.0, 16777215.0));
}

void packet_time_stamps::write(uint8_t* out) const {
  uint64_t value = stamp_;
  if (bits_ > 0 && bits_ < 64) value &= (uint64_t{1} << bits_) - 1;
  for (int i = 0; i < bytes_; ++i) {
    const int place = lowFirst_ ? i : bytes_ - 1 - i;
    out[place] = static_cast<uint8_t>(value >> 8 * i);
  }
}

void packet_time_stamps::advance() {
  fraction_ += incrementFraction_;
  stamp_ += increment_ + (fraction_ >> 24);
  fraction_ &= 0xFFFFFF;
}

}  // namespace zel::mux
