#include "zel/dnxhd/front_end/frame_report.h"

#include <algorithm>
#include <span>
#include <vector>

#include "zel/base/byte_order.h"
#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/result_words.h"

namespace Morvalen::Zel {

namespace {

using namespace zel::dnxhd;

constexpr size_t kCompressionIdAt = 40;

ResultWord ReadPicture(std::span<const uint8_t> picture, const VCIDEntry& entry,
                       FrameReport& report) {
  FrameHeader header;
  const ResultWord result = ParseFrameHeader(picture, header);
  if (result != kSuccessful) return result;
  if (header.entry != &entry) return kErrorNonHdFormat;
  if (report.fieldCode == 0) report.fieldCode = header.fieldCode;
  if (header.sideDataPresent) report.metadataBytes += header.sideDataBytes;

  const PictureGeometry geometry = GeometryOf(entry);
  if (header.rowCount < geometry.mbRows) return kErrorInMacroblockIndices;
  RowReader reader(entry);
  std::vector<MacroblockFlags> flags(geometry.mbCols);
  size_t lastEnd = 0;
  for (size_t row = 0; row < geometry.mbRows; ++row) {
    size_t end = 0;
    const ResultWord read =
        reader.Check(picture.subspan(kHeaderBytes), header.rowOffsets[row], end, flags.data());
    if (read != kSuccessful) return read;
    lastEnd = std::max(lastEnd, end);
    for (const MacroblockFlags& macroblock : flags) {
      ++report.quantisers[macroblock.q];
      report.fieldMacroblocks += macroblock.field ? 1 : 0;
    }
    report.macroblocks += static_cast<uint32_t>(flags.size());
  }
  report.usedBytes += static_cast<uint32_t>(kHeaderBytes + lastEnd);
  return kSuccessful;
}

}  // namespace

uint32_t ReadCompressionId(void const* frame, size_t bytes) {
  if (bytes < kCompressionIdAt + sizeof(uint32_t)) return 0;
  const auto* const header = static_cast<uint8_t const*>(frame);
  if (zel::base::loadBig32(header) != kHeaderBytes) return 0;
  return zel::base::loadBig32(header + kCompressionIdAt);
}

uint32_t FrameBytesOf(uint32_t compressionId) {
  const VCIDEntry* entry = FindEntry(compressionId);
  return entry == nullptr ? 0 : entry->frameBytes;
}

int ReadFrameReport(void const* frame, size_t bytes, FrameReport& report) {
  report = {};
  const uint32_t id = ReadCompressionId(frame, bytes);
  if (id == 0) return kErrorInBitStream;
  const VCIDEntry* entry = FindEntry(id);
  if (entry == nullptr) return kErrorNonHdFormat;
  const PictureGeometry geometry = GeometryOf(*entry);
  report.compressionId = id;
  report.ratioText = entry->ratioText;
  report.familyText = entry->familyText;
  report.scanText = entry->scanText;
  report.nominalMegabits = entry->nominalMegabits;
  report.width = entry->width;
  report.lines = entry->lines;
  report.depth = entry->depth;
  report.frameBytes = entry->frameBytes;
  report.pictures = geometry.pictures;
  if (bytes < entry->frameBytes) return kErrorInBitStream;

  const std::span<const uint8_t> all(static_cast<uint8_t const*>(frame), entry->frameBytes);
  for (size_t picture = 0; picture < geometry.pictures; ++picture) {
    const auto share = all.subspan(picture * geometry.pictureBytes, geometry.pictureBytes);
    const ResultWord result = ReadPicture(share, *entry, report);
    if (result != kSuccessful) return result;
  }
  return kSuccessful;
}

}  // namespace Morvalen::Zel
