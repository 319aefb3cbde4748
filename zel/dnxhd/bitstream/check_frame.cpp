#include "zel/dnxhd/bitstream/check_frame.h"

#include <cstddef>

#include "zel/dnxhd/bitstream/frame_header.h"
#include "zel/dnxhd/bitstream/row_reader.h"
#include "zel/dnxhd/bitstream/vcid_table.h"

namespace zel::dnxhd {

namespace {

constexpr size_t kAlignment = 16;
constexpr size_t kFieldCodeAt = 5;

ResultWord CheckPicture(std::span<const uint8_t> rest) {
  FrameHeader header;
  if (const ResultWord result = ParseFrameHeader(rest, header); result != kSuccessful) {
    return result;
  }
  const PictureGeometry geometry = GeometryOf(*header.entry);
  if (rest.size() < geometry.pictureBytes) return kErrorInBitStream;
  if (header.rowCount < geometry.mbRows) return kErrorInMacroblockIndices;
  const auto data = rest.first(geometry.pictureBytes).subspan(kHeaderBytes);
  RowReader reader(*header.entry);
  for (size_t row = 0; row < geometry.mbRows; ++row) {
    size_t end = 0;
    const ResultWord result = reader.Check(data, header.rowOffsets[row], end);
    if (result != kSuccessful) return result;
    const bool last = row + 1 == geometry.mbRows;
    if (!last && end != header.rowOffsets[row + 1]) return kErrorInMacroblockIndices;
  }
  return kSuccessful;
}

}  // namespace

ResultWord CheckFrame(uint32_t compressionId, std::span<const uint8_t> frame) {
  const VCIDEntry* entry = FindEntry(compressionId);
  if (entry == nullptr) return kErrorIdNotInList;
  if (reinterpret_cast<uintptr_t>(frame.data()) % kAlignment != 0) return kErrorInputUnaligned;
  if (frame.size() < kHeaderBytes) return kErrorInBitStream;
  const uint8_t fieldCode = frame[kFieldCodeAt];
  if (fieldCode < kProgressivePicture || fieldCode > kSecondField) return kSuccessful;
  const ResultWord first = CheckPicture(frame);
  if (first != kSuccessful || fieldCode == kProgressivePicture) return first;
  const size_t half = entry->frameBytes / 2;
  if (frame.size() < half) return kErrorInBitStream;
  return CheckPicture(frame.subspan(half));
}

}  // namespace zel::dnxhd
