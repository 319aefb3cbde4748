#pragma once

#include <cstdint>
#include <span>

/// The NAL unit header of HEVC: ITU-T H.265, 7.3.1.2 and Table 7-1.

namespace zel::syntax {

enum HevcNalType : uint8_t {
  kHevcTrailN = 0,
  kHevcTrailR = 1,
  kHevcTsaN = 2,
  kHevcTsaR = 3,
  kHevcStsaN = 4,
  kHevcStsaR = 5,
  kHevcRadlN = 6,
  kHevcRadlR = 7,
  kHevcRaslN = 8,
  kHevcRaslR = 9,
  kHevcLastSubLayerType = 14,  // to here, even types are not referred to in their sub-layer
  kHevcBlaWLp = 16,
  kHevcBlaWRadl = 17,
  kHevcBlaNLp = 18,
  kHevcIdrWRadl = 19,
  kHevcIdrNLp = 20,
  kHevcCra = 21,
  kHevcLastVcl = 31,
  kHevcVps = 32,
  kHevcSps = 33,
  kHevcPps = 34,
  kHevcDelimiter = 35,
  kHevcEndOfSequence = 36,
  kHevcEndOfBitstream = 37,
  kHevcFiller = 38,
  kHevcPrefixSei = 39,
  kHevcSuffixSei = 40,
};

inline constexpr size_t kHevcNalHeaderSize = 2;

struct HevcNalHeader {
  uint8_t type = 0;
  uint8_t layerId = 0;
  uint8_t temporalId = 0;
  bool operator==(const HevcNalHeader&) const = default;
};

/// False if there are less than two bytes, the forbidden bit is set or the temporal id is none.
constexpr bool parseHevcNalHeader(std::span<const uint8_t> unit, HevcNalHeader& header) {
  if (unit.size() < kHevcNalHeaderSize || (unit[0] & 0x80) != 0 || (unit[1] & 7) == 0) return false;
  header.type = static_cast<uint8_t>(unit[0] >> 1 & 0x3F);
  header.layerId = static_cast<uint8_t>((unit[0] & 1) << 5 | unit[1] >> 3);
  header.temporalId = static_cast<uint8_t>((unit[1] & 7) - 1);
  return true;
}

constexpr bool hevcTypeIsVcl(uint8_t type) {
  return type <= kHevcLastVcl;
}
constexpr bool hevcTypeIsIrap(uint8_t type) {
  return type >= kHevcBlaWLp && type <= 23;
}
constexpr bool hevcTypeIsIdr(uint8_t type) {
  return type == kHevcIdrWRadl || type == kHevcIdrNLp;
}
constexpr bool hevcTypeIsBla(uint8_t type) {
  return type >= kHevcBlaWLp && type <= kHevcBlaNLp;
}
constexpr bool hevcTypeIsRasl(uint8_t type) {
  return type == kHevcRaslN || type == kHevcRaslR;
}
constexpr bool hevcTypeIsRadl(uint8_t type) {
  return type == kHevcRadlN || type == kHevcRadlR;
}
/// A sub-layer non-reference picture.
constexpr bool hevcTypeIsUnreferenced(uint8_t type) {
  return type <= kHevcLastSubLayerType && type % 2 == 0;
}

/// Whether a unit of this type with nuh_layer_id 0, behind the last slice of a picture, begins the
/// next access unit: 7.4.2.4.4. A first slice segment does so too.
constexpr bool hevcTypeBeginsAccessUnit(uint8_t type) {
  return (type >= kHevcVps && type <= kHevcDelimiter) || type == kHevcPrefixSei ||
         (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
}

}  // namespace zel::syntax
