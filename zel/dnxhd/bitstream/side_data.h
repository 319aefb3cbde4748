#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/result_words.h"

// Side data: packets of the lines outside the picture, which a header carries in its bytes 100 to
// 355, at the end of that area.
//
// A packet is a marker of 255, two bytes of line number, two of data identifier, a count c, c data
// bytes and one more: c + 7 in all.

namespace zel::dnxhd {

inline constexpr size_t kExtractedBytes = 256;

/// Puts `packets` into the frame's header, or each into the header of its field: lines below 564
/// belong to the first, lines from 565 on to the second. The walk ends at the first marker below
/// 255 or with the bytes, and adding ends before a header would hold more than its length byte can
/// tell, 255 bytes. Nothing is changed unless the result is kSuccessful.
/// @return kErrorInMetadataInsertion when there is no packet, when the first doesn't fit, or when
/// in a frame of two fields a packet has no valid line number; kErrorInBitStream and
/// kErrorNonHdFormat for a frame that is too short or has no known id.
ResultWord InsertMetadata(std::span<uint8_t> frame, std::span<const uint8_t> packets);

/// Copies the frame's packets to `out`, those of the first field first, and zeros behind them. No
/// packet at all is a success.
/// @return kErrorNonHdFormat when byte 5 is not 1, 2 or 3, or the id is unknown; kErrorInBitStream
/// for a frame that is too short.
ResultWord ExtractMetadata(std::span<const uint8_t> frame, std::span<uint8_t, kExtractedBytes> out);

}  // namespace zel::dnxhd
