#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "zel/dnxhd/bitstream/vcid_table.h"
#include "zel/dnxhd/result_words.h"

// The header of 640 bytes in front of each picture, SMPTE ST 2019-1. A frame is one picture, or two
// field pictures of half the frame's bytes each.

namespace zel::dnxhd {

inline constexpr size_t kHeaderBytes = 640;
inline constexpr size_t kMaxMbRows = 68;  // what the row table of the header has room for
inline constexpr size_t kSideDataBegin = 100;
inline constexpr size_t kSideDataEnd = 356;
inline constexpr std::array<uint8_t, 4> kEndMark = {0x60, 0x0D, 0xC0, 0xDE};

/// Byte 5: which picture it is.
enum FieldCode : uint8_t { kProgressivePicture = 1, kFirstField = 2, kSecondField = 3 };

/// How macroblocks are headed, and how many blocks they have.
enum CodingMode : uint32_t { kMode422 = 0, kMode444 = 1, kModeThinRaster = 2 };
CodingMode CodingModeOf(const VCIDEntry& entry);

/// Whether macroblocks carry the flag of field coding: interlaced thin rasters.
bool HasFieldFlag(const VCIDEntry& entry);

/// What follows from the id for one picture of it.
struct PictureGeometry {
  uint32_t pictures;  // of a frame: 1 or 2
  uint32_t lines;     // of the picture
  uint32_t width;     // in samples, as coded
  uint32_t mbRows;
  uint32_t mbCols;
  uint32_t bottomPad;     // lines of the last macroblock row that lie below the picture
  uint32_t pictureBytes;  // the picture's share of the frame
};
PictureGeometry GeometryOf(const VCIDEntry& entry);

/// What a reader keeps of a header.
struct FrameHeader {
  const VCIDEntry* entry;
  uint8_t version;
  uint8_t fieldCode;  // byte 5 as it stands
  uint8_t marker;     // bytes 6 and 7: bits 15 to 14,
  bool fieldFlags;    //   13: macroblocks carry the field flag,
  uint8_t crcBits;    //   11 to 8 below bit 12 (a CRC stands at the end),
  bool crcPresent;
  uint16_t lines;  // of the picture, by the header
  uint16_t width;
  uint8_t depthCode;  // 1: 8 bits, 2: 10 bits
  bool interlaced;
  bool singlePicture;        // the id's own: where the header differs, the id wins
  bool headerSinglePicture;  // as the header has it
  bool mode444;
  uint8_t colorBits;  // byte 44, bits 2 to 0
  bool sideDataPresent;
  uint8_t sideDataBytes;
  uint32_t rowCount;                            // entries of the row table; 0 if there is none
  std::array<uint32_t, kMaxMbRows> rowOffsets;  // from byte 640; as they stand, not checked
};

/// Reads the header at the start of `picture`. The result is kErrorInBitStream where the header's
/// size is not 640 or the bytes are fewer, kErrorNonHdFormat for an id without a row.
ResultWord ParseFrameHeader(std::span<const uint8_t> picture, FrameHeader& header);

/// Writes the header of one picture, with a row table of zeros, which SetRowOffset fills.
void WriteFrameHeader(const VCIDEntry& entry, FieldCode fieldCode,
                      std::span<uint8_t, kHeaderBytes> out);

/// `row` is below kMaxMbRows; `offset` counts from byte 640.
void SetRowOffset(std::span<uint8_t, kHeaderBytes> header, size_t row, uint32_t offset);

/// Ends a picture of which the first `used` bytes are written: zeros, and the end mark in the last
/// four bytes. kErrorEncodeBufferOverflow if there is no room for the mark.
ResultWord FinishPicture(std::span<uint8_t> picture, size_t used);

}  // namespace zel::dnxhd
