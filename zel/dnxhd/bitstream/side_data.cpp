#include "zel/dnxhd/bitstream/side_data.h"

#include <algorithm>

#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/frame_header.h"

namespace zel::dnxhd {

namespace {

constexpr uint8_t kMarker = 255;
constexpr size_t kPacketOverhead = 7;
constexpr size_t kCountAt = 5;
constexpr size_t kMaxSideData = 255;  // its length stands in one byte

constexpr size_t kFieldCodeAt = 5;
constexpr size_t kCrcFlagAt = 6;
constexpr size_t kIdAt = 40;
constexpr size_t kPresentAt = 95;
constexpr size_t kLengthAt = 96;

// The packet that `rest` starts with; empty at the end of the packets.
std::span<const uint8_t> NextPacket(std::span<const uint8_t> rest) {
  if (rest.size() < kPacketOverhead || rest[0] < kMarker) return {};
  const size_t bytes = rest[kCountAt] + kPacketOverhead;
  return bytes <= rest.size() ? rest.first(bytes) : std::span<const uint8_t>();
}

uint32_t LineOf(std::span<const uint8_t> packet) {
  return (packet[2] & 15u) * 128 + (packet[1] & 127u);
}

// Which packets a pass takes.
enum class Lines { kAll, kFirstField, kSecondField };

// Deliberate: a packet on line 564 belongs to neither field when it is put in, and to the second
// when it is read. Pinned by side_data_test.cpp, Line564IsDroppedOnInsertion.
bool BelongsOnInsertion(std::span<const uint8_t> packet, Lines lines) {
  const uint32_t line = LineOf(packet);
  if (lines == Lines::kFirstField) return line < 564;
  return lines == Lines::kAll || line >= 565;
}

bool BelongsOnExtraction(std::span<const uint8_t> packet, Lines lines) {
  const uint32_t line = LineOf(packet);
  if (lines == Lines::kFirstField) return line < 564;
  return lines == Lines::kAll || line > 563;
}

struct SideData {
  std::array<uint8_t, kMaxSideData> bytes;
  size_t size = 0;
};

SideData Collect(std::span<const uint8_t> packets, Lines lines) {
  SideData data;
  for (auto packet = NextPacket(packets); !packet.empty(); packet = NextPacket(packets)) {
    packets = packets.subspan(packet.size());
    if (!BelongsOnInsertion(packet, lines)) continue;
    if (data.size + packet.size() > kMaxSideData) break;
    std::copy(packet.begin(), packet.end(), data.bytes.begin() + static_cast<ptrdiff_t>(data.size));
    data.size += packet.size();
  }
  return data;
}

void Store(const SideData& data, uint8_t* header) {
  if (data.size == 0) return;
  header[kCrcFlagAt] &= static_cast<uint8_t>(~0x10);  // a CRC would be wrong from here on
  header[kPresentAt] |= 0x80;
  header[kLengthAt] = static_cast<uint8_t>(data.size);
  std::fill(header + kSideDataBegin, header + kSideDataEnd, uint8_t{0});
  std::copy_n(data.bytes.begin(), data.size, header + kSideDataEnd - data.size);
}

bool EveryLineIsValid(std::span<const uint8_t> packets) {
  for (auto packet = NextPacket(packets); !packet.empty(); packet = NextPacket(packets)) {
    if (packet[1] < 128) return false;
    packets = packets.subspan(packet.size());
  }
  return true;
}

// Appends the packets of one header to `out`, of which `used` bytes are filled.
ResultWord ReadArea(std::span<const uint8_t> header, Lines lines,
                    std::span<uint8_t, kExtractedBytes> out, size_t& used) {
  const size_t length = header[kLengthAt];
  if ((header[kPresentAt] & 0x80) == 0 || length == 0) return kNoMetadata;
  auto area = header.subspan(kSideDataEnd - length, length);
  for (auto packet = NextPacket(area); !packet.empty(); packet = NextPacket(area)) {
    area = area.subspan(packet.size());
    if (!BelongsOnExtraction(packet, lines)) continue;
    if (used + packet.size() > out.size()) break;
    std::copy(packet.begin(), packet.end(), out.begin() + static_cast<ptrdiff_t>(used));
    used += packet.size();
  }
  return kSuccessful;
}

// The id's row of a frame that is long enough to work on.
ResultWord Examine(std::span<const uint8_t> frame, const VCIDEntry*& entry) {
  if (frame.size() < kHeaderBytes) return kErrorInBitStream;
  entry = FindEntry(base::loadBig32(frame.data() + kIdAt));
  if (entry == nullptr) return kErrorNonHdFormat;
  return kSuccessful;
}

}  // namespace

ResultWord InsertMetadata(std::span<uint8_t> frame, std::span<const uint8_t> packets) {
  const VCIDEntry* entry = nullptr;
  if (const ResultWord result = Examine(frame, entry); result != kSuccessful) return result;
  if (NextPacket(packets).empty()) return kErrorInMetadataInsertion;
  if (entry->singlePicture == 1) {
    const SideData data = Collect(packets, Lines::kAll);
    if (data.size == 0) return kErrorInMetadataInsertion;  // the first packet is too long already
    Store(data, frame.data());
    return kSuccessful;
  }
  if (!EveryLineIsValid(packets)) return kErrorInMetadataInsertion;
  const size_t half = entry->frameBytes / 2;
  if (frame.size() < half + kHeaderBytes) return kErrorInBitStream;
  Store(Collect(packets, Lines::kFirstField), frame.data());
  Store(Collect(packets, Lines::kSecondField), frame.data() + half);
  return kSuccessful;
}

ResultWord ExtractMetadata(std::span<const uint8_t> frame,
                           std::span<uint8_t, kExtractedBytes> out) {
  std::fill(out.begin(), out.end(), uint8_t{0});
  const VCIDEntry* entry = nullptr;
  if (const ResultWord result = Examine(frame, entry); result != kSuccessful) return result;
  const uint8_t fieldCode = frame[kFieldCodeAt];
  if (fieldCode < kProgressivePicture || fieldCode > kSecondField) return kErrorNonHdFormat;

  // That a header has no side data is no fault of the frame.
  size_t used = 0;
  if (fieldCode == kProgressivePicture) {
    ReadArea(frame.first(kHeaderBytes), Lines::kAll, out, used);
    return kSuccessful;
  }
  const size_t half = entry->frameBytes / 2;
  if (frame.size() < half + kHeaderBytes) return kErrorInBitStream;
  const auto second = frame.subspan(half, kHeaderBytes);
  const Lines secondLines =
      second[kFieldCodeAt] == kSecondField ? Lines::kSecondField : Lines::kFirstField;
  ReadArea(frame.first(kHeaderBytes), Lines::kFirstField, out, used);
  ReadArea(second, secondLines, out, used);
  return kSuccessful;
}

}  // namespace zel::dnxhd
