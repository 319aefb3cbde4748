#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Headers of PES packets: ISO/IEC 13818-1, 2.4.3.6, and those of ISO/IEC 11172-1, 2.4.3.3, which
/// an MPEG-1 system stream has in their place.

namespace zel::syntax {

enum PesStreamId : uint8_t {
  kPesProgramEnd = 0xB9,
  kPesPackHeader = 0xBA,
  kPesSystemHeader = 0xBB,
  kPesProgramStreamMap = 0xBC,
  kPesPrivateStream1 = 0xBD,
  kPesPaddingStream = 0xBE,
  kPesPrivateStream2 = 0xBF,
};

struct PesHeader {
  uint8_t streamId = 0;
  uint16_t packetLength = 0;  // bytes behind it; 0: not told
  size_t size = 0;            // of the header: where the payload begins
  bool dataAlignment = false;
  int64_t pts = -1;  // 90 kHz ticks, 33 bits; -1: none
  int64_t dts = -1;
  bool operator==(const PesHeader&) const = default;
};

enum class PesResult {
  whole,
  more,      // the bytes end before the header does
  noPrefix,  // they don't begin with 00 00 01
  badMpeg1,  // neither form of header
  badSize,   // it is longer than its packet
};

/// Whether the packets of a stream_id have nothing but payload behind their length.
bool pesIsBare(uint8_t streamId);

/// Reads the header that `bytes` begin with. With `more`, `header.streamId` and `packetLength` are
/// there if six bytes were.
PesResult parsePesHeader(std::span<const uint8_t> bytes, PesHeader& header);

/// The longest header of either form.
inline constexpr size_t kMostPesHeader = 9 + 255;

}  // namespace zel::syntax
