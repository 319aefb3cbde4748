#include "zel/dnxhd/bitstream/frame_header.h"

#include <algorithm>
#include <cassert>

#include "zel/base/byte_order.h"

namespace zel::dnxhd {

namespace {

using base::loadBig16;
using base::loadBig32;
using base::storeBig16;
using base::storeBig32;

// Where the fields lie.
constexpr size_t kVersionAt = 4;
constexpr size_t kFieldCodeAt = 5;
constexpr size_t kFlagsAt = 6;
constexpr size_t kLinesAt = 24;
constexpr size_t kWidthAt = 26;
constexpr size_t kLinesAgainAt = 29;
constexpr size_t kDepthAt = 33;
constexpr size_t kScanAt = 34;
constexpr size_t kIdAt = 40;
constexpr size_t kColorAt = 44;
constexpr size_t kSideDataFlagAt = 95;
constexpr size_t kSideDataBytesAt = 96;
constexpr size_t kRowTableKindAt = 356;
constexpr size_t kRowTableBytesAt = 360;
constexpr size_t kRowCountAt = 364;
constexpr size_t kRowTableMarkerAt = 366;
constexpr size_t kRowTableAt = 368;
static_assert(kRowTableAt + 4 * kMaxMbRows == kHeaderBytes);

constexpr uint16_t kFlags = 0x80A0;
constexpr uint16_t kFieldFlagsBit = 0x2000;
constexpr uint16_t kCrcBit = 0x1000;
constexpr uint32_t kRowTableFollows = 2;

void ParseRowTable(const uint8_t* bytes, FrameHeader& header) {
  if (loadBig32(bytes + kRowTableKindAt) != kRowTableFollows) return;
  header.rowCount = std::min<uint32_t>(loadBig16(bytes + kRowCountAt), kMaxMbRows);
  for (size_t row = 0; row < header.rowCount; ++row) {
    header.rowOffsets[row] = loadBig32(bytes + kRowTableAt + 4 * row);
  }
}

}  // namespace

CodingMode CodingModeOf(const VCIDEntry& entry) {
  if (IsRgbFamily(entry)) return kMode444;
  return IsThinRaster(entry) ? kModeThinRaster : kMode422;
}

bool HasFieldFlag(const VCIDEntry& entry) {
  return IsThinRaster(entry) && IsInterlaced(entry);
}

PictureGeometry GeometryOf(const VCIDEntry& entry) {
  PictureGeometry geometry{};
  geometry.pictures = entry.singlePicture == 1 ? 1 : 2;
  geometry.lines = entry.lines / geometry.pictures;
  geometry.width = entry.width;
  geometry.mbRows = (geometry.lines + 15) / 16;
  geometry.mbCols = (geometry.width + 15) / 16;
  geometry.bottomPad = geometry.mbRows * 16 - geometry.lines;
  geometry.pictureBytes = entry.frameBytes / geometry.pictures;
  return geometry;
}

ResultWord ParseFrameHeader(std::span<const uint8_t> picture, FrameHeader& header) {
  header = {};
  if (picture.size() < kHeaderBytes) return kErrorInBitStream;
  const uint8_t* bytes = picture.data();
  if (loadBig32(bytes) != kHeaderBytes) return kErrorInBitStream;
  header.entry = FindEntry(loadBig32(bytes + kIdAt));
  if (header.entry == nullptr) return kErrorNonHdFormat;

  header.version = bytes[kVersionAt];
  header.fieldCode = bytes[kFieldCodeAt];
  const uint16_t flags = loadBig16(bytes + kFlagsAt);
  header.marker = static_cast<uint8_t>(flags >> 14);
  header.fieldFlags = (flags & kFieldFlagsBit) != 0;
  header.crcPresent = (flags & kCrcBit) != 0;
  header.crcBits = static_cast<uint8_t>(flags >> 8 & 15);
  header.lines = loadBig16(bytes + kLinesAt);
  header.width = loadBig16(bytes + kWidthAt);
  header.depthCode = static_cast<uint8_t>(bytes[kDepthAt] >> 5);
  header.interlaced = (bytes[kScanAt] & 4) != 0;
  header.headerSinglePicture = (bytes[kColorAt] & 0x80) != 0;
  header.singlePicture = header.entry->singlePicture == 1;
  header.mode444 = (bytes[kColorAt] & 0x40) != 0;
  header.colorBits = bytes[kColorAt] & 7;
  header.sideDataPresent = (bytes[kSideDataFlagAt] & 0x80) != 0;
  header.sideDataBytes = bytes[kSideDataBytesAt];
  ParseRowTable(bytes, header);
  return kSuccessful;
}

void WriteFrameHeader(const VCIDEntry& entry, FieldCode fieldCode,
                      std::span<uint8_t, kHeaderBytes> out) {
  const PictureGeometry geometry = GeometryOf(entry);
  const CodingMode mode = CodingModeOf(entry);
  const auto lines = static_cast<uint16_t>(geometry.lines);
  std::fill(out.begin(), out.end(), uint8_t{0});
  uint8_t* bytes = out.data();
  storeBig32(bytes, kHeaderBytes);
  bytes[kVersionAt] = mode == kMode422 ? 1 : 2;
  bytes[kFieldCodeAt] = fieldCode;
  storeBig16(bytes + kFlagsAt, HasFieldFlag(entry) ? kFlags | kFieldFlagsBit : kFlags);
  storeBig16(bytes + kLinesAt, lines);
  storeBig16(bytes + kWidthAt, entry.width);
  storeBig16(bytes + kLinesAgainAt, lines);
  bytes[kDepthAt] = static_cast<uint8_t>((entry.depth == 10 ? 2 : 1) << 5 | 3 << 3);
  // Two fields of four bits, each 1, across the bytes 33 and 34.
  bytes[kScanAt] = static_cast<uint8_t>(0x88 | (IsInterlaced(entry) ? 4 : 0));
  storeBig32(bytes + kIdAt, entry.compressionId);
  bytes[kColorAt] = static_cast<uint8_t>((entry.singlePicture == 1 ? 0x80 : 0) |
                                         (mode == kMode444 ? 0x40 | 1 : 0));
  storeBig32(bytes + kSideDataBytesAt, 1);
  storeBig32(bytes + kRowTableKindAt, kRowTableFollows);
  storeBig32(bytes + kRowTableBytesAt, geometry.mbRows * 4 + 4);
  storeBig16(bytes + kRowCountAt, static_cast<uint16_t>(geometry.mbRows));
  storeBig16(bytes + kRowTableMarkerAt, 16);
}

void SetRowOffset(std::span<uint8_t, kHeaderBytes> header, size_t row, uint32_t offset) {
  assert(row < kMaxMbRows);
  storeBig32(header.data() + kRowTableAt + 4 * row, offset);
}

ResultWord FinishPicture(std::span<uint8_t> picture, size_t used) {
  if (used > picture.size() || picture.size() - used < kEndMark.size()) {
    return kErrorEncodeBufferOverflow;
  }
  const auto mark = picture.end() - static_cast<ptrdiff_t>(kEndMark.size());
  std::fill(picture.begin() + static_cast<ptrdiff_t>(used), mark, uint8_t{0});
  std::copy(kEndMark.begin(), kEndMark.end(), mark);
  return kSuccessful;
}

}  // namespace zel::dnxhd
