#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "zel/base/export.h"

namespace Morvalen::Zel {

/// What a compressed frame says of itself, and how it was quantised.
struct FrameReport {
  uint32_t compressionId;
  char const* ratioText;     ///< compression, "6.84:1"; texts live as long as the library
  char const* familyText;    ///< "DNx444", "DNx100", or the family of all others
  char const* scanText;      ///< "Progressive" or "Interlaced"
  uint32_t nominalMegabits;  ///< bits a second, in millions, at the id's usual frame rate
  uint32_t width;            ///< of a coded line, in samples: thin rasters are narrower than shown
  uint32_t lines;            ///< of the frame
  uint32_t depth;            ///< bits of a sample
  uint32_t frameBytes;
  uint32_t pictures;          ///< 1, or 2 fields
  uint32_t fieldCode;         ///< byte 5: 1 progressive, 2 first field, 3 second field
  uint32_t usedBytes;         ///< up to the end of the last row of each picture, headers included
  uint32_t metadataBytes;     ///< of side data in the headers
  uint32_t macroblocks;       ///< of the frame
  uint32_t fieldMacroblocks;  ///< those coded by fields
  /// How many macroblocks have the quantiser step of the index.
  std::array<uint32_t, 2048> quantisers;
};

/// The id that the header at the start of `frame` names; 0 where there is no header.
/// @param frame its first bytes. @param bytes how many are there; 44 are enough.
ZEL_API uint32_t ReadCompressionId(void const* frame, size_t bytes);

/// Bytes of every frame of the id, whether it can be coded or only decoded; 0 for an unknown one.
ZEL_API uint32_t FrameBytesOf(uint32_t compressionId);

/// Reads a whole frame without reconstructing it. Pure, on any thread, for buffers of any
/// alignment.
/// @return 0; -3 for fewer bytes than the frame has or a header of another size than 640; -4 for an
///   unknown id; -5 or -27 where the rows can't be read. What was read until then is in the report.
ZEL_API int ReadFrameReport(void const* frame, size_t bytes, FrameReport& report);

}  // namespace Morvalen::Zel
