#pragma once

#include <cstdint>
#include <span>

namespace zel::base {

inline constexpr uint32_t kCrc32Start = 0xFFFFFFFF;

/// CRC-32 of the sections of ISO/IEC 13818-1, Annex A: polynomial 0x04C11DB7, most significant bit
/// first, nothing inverted at the end. It goes out big-endian, and a section with its CRC gives 0.
/// To go on over several pieces give the former result as `crc`.
uint32_t crc32(std::span<const uint8_t> bytes, uint32_t crc = kCrc32Start);

}  // namespace zel::base
