#include "zel/syntax/pes.h"

#include <algorithm>
#include <iterator>

#include "zel/base/byte_order.h"

namespace zel::syntax {

namespace {

constexpr size_t kFixed = 6;  // prefix, stream_id, length
constexpr size_t kMpeg2Fixed = 9;
constexpr size_t kStamp = 5;
constexpr size_t kMostStuffing = 16;  // of an MPEG-1 header

// 33 bits in five bytes, with a marker bit behind each part.
int64_t readStamp(const uint8_t* at) {
  return int64_t{at[0] >> 1 & 7} << 30 | int64_t{base::loadBig16(at + 1) >> 1} << 15 |
         base::loadBig16(at + 3) >> 1;
}

PesResult checkSize(const PesHeader& header) {
  const bool fits = header.packetLength == 0 || header.size <= kFixed + header.packetLength;
  return fits ? PesResult::whole : PesResult::badSize;
}

PesResult parseMpeg2(std::span<const uint8_t> bytes, PesHeader& header) {
  if (bytes.size() < kMpeg2Fixed) return PesResult::more;
  const size_t length = bytes[8];
  header.size = kMpeg2Fixed + length;
  header.dataAlignment = (bytes[6] & 4) != 0;
  if (checkSize(header) != PesResult::whole) return PesResult::badSize;
  if (bytes.size() < header.size) return PesResult::more;
  const uint8_t* const stamps = bytes.data() + kMpeg2Fixed;
  if ((bytes[7] & 0x80) != 0 && length >= kStamp) header.pts = readStamp(stamps);
  if ((bytes[7] & 0xC0) == 0xC0 && length >= 2 * kStamp) header.dts = readStamp(stamps + kStamp);
  return PesResult::whole;
}

// Stuffing, the size of the decoder's buffer, time stamps or the byte 0F.
PesResult parseMpeg1(std::span<const uint8_t> bytes, PesHeader& header) {
  size_t at = kFixed;
  while (at < bytes.size() && bytes[at] == 0xFF && at - kFixed < kMostStuffing) ++at;
  if (at < bytes.size() && (bytes[at] & 0xC0) == 0x40) at += 2;
  if (at >= bytes.size()) return PesResult::more;
  const int kind = bytes[at] >> 4;
  const size_t stamps = kind == 2 ? kStamp : kind == 3 ? 2 * kStamp : 0;
  if (stamps == 0 && bytes[at] != 0x0F) return PesResult::badMpeg1;
  header.size = at + std::max<size_t>(stamps, 1);
  if (checkSize(header) != PesResult::whole) return PesResult::badSize;
  if (bytes.size() < header.size) return PesResult::more;
  if (stamps > 0) header.pts = readStamp(bytes.data() + at);
  if (stamps > kStamp) header.dts = readStamp(bytes.data() + at + kStamp);
  return PesResult::whole;
}

}  // namespace

bool pesIsBare(uint8_t streamId) {
  // ISO/IEC 13818-1, table 2-21: map, padding, private_stream_2, ECM, EMM, DSM-CC, H.222.1 type E
  // and the directory.
  constexpr uint8_t kBare[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
  return std::find(std::begin(kBare), std::end(kBare), streamId) != std::end(kBare);
}

PesResult parsePesHeader(std::span<const uint8_t> bytes, PesHeader& header) {
  header = {};
  constexpr uint8_t kPrefix[] = {0, 0, 1};
  const size_t seen = std::min(bytes.size(), std::size(kPrefix));
  if (!std::equal(kPrefix, kPrefix + seen, bytes.begin())) return PesResult::noPrefix;
  if (bytes.size() < kFixed) return PesResult::more;
  header.streamId = bytes[3];
  header.packetLength = base::loadBig16(bytes.data() + 4);
  if (pesIsBare(header.streamId)) {
    header.size = kFixed;
    return PesResult::whole;
  }
  if (bytes.size() == kFixed) return PesResult::more;
  return (bytes[kFixed] & 0xC0) == 0x80 ? parseMpeg2(bytes, header) : parseMpeg1(bytes, header);
}

}  // namespace zel::syntax
