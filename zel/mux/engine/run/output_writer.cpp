#include "zel/mux/engine/run/output_writer.h"

#include <algorithm>
#include <cstring>

namespace zel::mux {

output_writer::output_writer(const layout& form, const packet_time_stamps& stamps,
                             Morvalen::Zel::tsm_write_callback write, void* user)
    : form_(form),
      stamps_(stamps),
      write_(write),
      user_(user),
      plain_(form.packetSize == static_cast<int>(kPacketBytes) && !form.events && !form.dropNulls &&
             !stamps.enabled()),
      room_(static_cast<size_t>(form.packetSize) *
            static_cast<size_t>(std::max(form.bufferedPackets, 1))),
      buffer_(room_ + sizeof(tsm_packet::events)) {}

// The bytes behind packet, events and stamp stay the zeros that they began as.
void output_writer::lay_out(const tsm_packet& packet, uint8_t* out) {
  const int stampBytes = stamps_.bytes();
  uint8_t* bytes = stamps_.precedes() ? out + stampBytes : out;
  std::memcpy(bytes, packet.bytes, kPacketBytes);
  if (form_.events) {
    const auto room = static_cast<size_t>(out + form_.packetSize - (bytes + kPacketBytes));
    std::memcpy(bytes + kPacketBytes, packet.events, std::min<size_t>(room, 2));
  }
  if (stampBytes > 0) stamps_.write(stamps_.precedes() ? out : out + kPacketBytes);
}

bool output_writer::put_laid_out(const tsm_packet& packet, bool isNull) {
  if (isNull && form_.dropNulls) {
    stamps_.advance();
    return true;
  }
  lay_out(packet, buffer_.data() + used_);
  if (stamps_.enabled()) stamps_.advance();
  return pass_on(isNull);
}

bool output_writer::write_one(bool isNull) {
  return write_(user_, buffer_.data(), form_.packetSize, isNull ? kNullPacketKind : kPacketKind) ==
         0;
}

bool output_writer::flush() {
  if (used_ == 0) return true;
  const auto size = static_cast<int32_t>(used_);
  used_ = 0;
  return write_(user_, buffer_.data(), size, kPacketKind) == 0;
}

}  // namespace zel::mux
