#pragma once

#include <cstdint>
#include <span>

#include "zel/dnxhd/result_words.h"

namespace zel::dnxhd {

/// Reads every macroblock row of a frame without reconstructing it.
/// @return kErrorIdNotInList when `compressionId` has no row in VCIDTable; kErrorInputUnaligned
/// when the frame doesn't begin on a 16-byte boundary; kErrorInBitStream for a header of another
/// size than 640 or fewer bytes than the picture has; kErrorNonHdFormat for an unknown id in the
/// header; kErrorInHuffmanDecode when codes lead past a block or the picture;
/// kErrorInMacroblockIndices when a row doesn't end where the next begins, or has no entry in the
/// table. A frame whose byte 5 is not 1, 2 or 3 has no pictures to check: success.
ResultWord CheckFrame(uint32_t compressionId, std::span<const uint8_t> frame);

}  // namespace zel::dnxhd
