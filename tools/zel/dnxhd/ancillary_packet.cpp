#include "tools/zel/dnxhd/ancillary_packet.h"

#include <fmt/format.h>

#include "tools/zel/option_values.h"

namespace zel::tool {
namespace {

// A marker, two bytes of line number, two identifiers, the count; and a checksum behind the data.
constexpr uint8_t kMarker = 255;
constexpr size_t kHeadBytes = 6;
constexpr size_t kMostDataBytes = 255 - kHeadBytes - 1;
constexpr int64_t kMostLine = 2047;

std::optional<std::vector<uint8_t>> parseHexadecimal(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> bytes;
  const auto digit = [](char symbol) {
    if (symbol >= '0' && symbol <= '9') return symbol - '0';
    if (symbol >= 'a' && symbol <= 'f') return symbol - 'a' + 10;
    if (symbol >= 'A' && symbol <= 'F') return symbol - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]);
    const int low = digit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(high * 16 + low));
  }
  return bytes;
}

}  // namespace

std::optional<AncillaryPacket> parsePacket(std::string_view text) {
  int64_t numbers[3];
  constexpr int64_t kMost[3] = {kMostLine, 255, 255};
  for (size_t i = 0; i < 3; ++i) {
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    const std::optional<int64_t> number = parseWholeNumber(text.substr(0, colon));
    if (!number || *number < 0 || *number > kMost[i]) return std::nullopt;
    numbers[i] = *number;
    text.remove_prefix(colon + 1);
  }
  std::optional<std::vector<uint8_t>> data = parseHexadecimal(text);
  if (!data || data->size() > kMostDataBytes || numbers[0] == 0) return std::nullopt;
  return AncillaryPacket{static_cast<uint32_t>(numbers[0]), static_cast<uint8_t>(numbers[1]),
                         static_cast<uint8_t>(numbers[2]), std::move(*data)};
}

std::string packetText(const AncillaryPacket& packet) {
  std::string text = fmt::format("{}:0x{:02x}:0x{:02x}:", packet.line, packet.did, packet.sdid);
  for (const uint8_t byte : packet.data) text += fmt::format("{:02x}", byte);
  return text;
}

void appendPacket(const AncillaryPacket& packet, std::vector<uint8_t>& bytes) {
  bytes.push_back(kMarker);
  bytes.push_back(static_cast<uint8_t>(0x80 | (packet.line & 0x7F)));
  bytes.push_back(static_cast<uint8_t>(0x80 | (packet.line >> 7 & 0x0F)));
  const size_t summed = bytes.size();
  bytes.push_back(packet.did);
  bytes.push_back(packet.sdid);
  bytes.push_back(static_cast<uint8_t>(packet.data.size()));
  bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
  uint8_t sum = 0;
  for (size_t i = summed; i < bytes.size(); ++i) sum = static_cast<uint8_t>(sum + bytes[i]);
  bytes.push_back(sum);
}

std::vector<AncillaryPacket> readPackets(std::span<const uint8_t> bytes) {
  std::vector<AncillaryPacket> packets;
  while (bytes.size() > kHeadBytes && bytes[0] == kMarker) {
    const size_t count = bytes[5];
    if (bytes.size() < kHeadBytes + count + 1) break;
    const auto data = bytes.subspan(kHeadBytes, count);
    packets.push_back({(bytes[2] & 15u) * 128 + (bytes[1] & 127u), bytes[3], bytes[4],
                       std::vector<uint8_t>(data.begin(), data.end())});
    bytes = bytes.subspan(kHeadBytes + count + 1);
  }
  return packets;
}

}  // namespace zel::tool
