#include "zel/mux/engine/run/null_packets.h"

namespace zel::mux {

namespace {

constexpr tsm_packet make_stuffing() {
  tsm_packet packet{};
  packet.make_null();
  return packet;
}
// Copied whole: compilers fill so many zeros more slowly.
constexpr tsm_packet kStuffing = make_stuffing();

}  // namespace

const char* const kSignature[] = {"ZelDependencies_2012", "transport stream multiplexer", nullptr};

int null_packets::next_bit() {
  const auto byte = static_cast<uint8_t>(kSignature[text_][place_]);
  const int bit = byte >> bit_ & 1;
  if (--bit_ >= 0) return bit;
  bit_ = 7;
  if (kSignature[text_][++place_] != 0) return bit;
  place_ = 0;
  if (kSignature[++text_] == nullptr) text_ = 0;
  return bit;
}

void null_packets::make(tsm_packet& packet) {
  packet = kStuffing;
  if (!plain_) packet.bytes[kPacketBytes - 1] = static_cast<uint8_t>(next_bit());
}

}  // namespace zel::mux
