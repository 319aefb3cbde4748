#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zel::tool {

/// A packet of side data as frames carry it: an ancillary data packet of SMPTE ST 291-1 in 8-bit
/// words, with the line that it comes from in front.
struct AncillaryPacket {
  uint32_t line = 0;          // 1 to 2047
  uint8_t did = 0;            // data identifier
  uint8_t sdid = 0;           // secondary, or the block number
  std::vector<uint8_t> data;  // at most 248 bytes, so that a header has room for it

  friend bool operator==(const AncillaryPacket&, const AncillaryPacket&) = default;
};

/// Reads "LINE:DID:SDID:DATA": numbers decimal or hexadecimal after 0x, the data hexadecimal.
std::optional<AncillaryPacket> parsePacket(std::string_view text);
/// The same back: "9:0x61:0x01:0a0b".
std::string packetText(const AncillaryPacket& packet);

/// Appends the packet's bytes. The last is the low 8 bits of the sum of all words from the DID on.
void appendPacket(const AncillaryPacket& packet, std::vector<uint8_t>& bytes);

/// The packets that `bytes` start with, up to the first that is none.
std::vector<AncillaryPacket> readPackets(std::span<const uint8_t> bytes);

}  // namespace zel::tool
