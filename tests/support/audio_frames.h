#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "zel/base/bit_writer.h"

/// Frames of audio that are nothing but their headers: what analysers and multiplexers look at. The
/// rest is zero, or what `fillFrames` puts there.

namespace zel::test {

using AudioBytes = std::vector<uint8_t>;
using HeaderFields = std::vector<std::array<uint32_t, 2>>;  // value and bits

inline AudioBytes operator+(AudioBytes left, const AudioBytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}
inline AudioBytes operator*(const AudioBytes& bytes, int count) {
  AudioBytes all;
  for (int i = 0; i < count; ++i) all.insert(all.end(), bytes.begin(), bytes.end());
  return all;
}

/// A frame of `size` bytes that begins with these fields.
inline AudioBytes audioFrame(size_t size, const HeaderFields& fields) {
  AudioBytes bytes(std::max<size_t>(size, 64));
  base::BitWriter writer(bytes);
  for (const auto& [value, width] : fields) writer.write(value, static_cast<int>(width));
  writer.finish();
  bytes.resize(size);
  return bytes;
}

/// ATSC A/52, 5.3.1 and 5.3.2: stereo. `size` is what the two codes stand for.
inline AudioBytes ac3Frame(uint32_t fscod, uint32_t frmsizecod, size_t size) {
  return audioFrame(size,
                    {{0x0B77, 16}, {0, 16}, {fscod, 2}, {frmsizecod, 6}, {8, 5}, {0, 3}, {2, 3}});
}

/// ATSC A/52, E.1.2.1 and E.1.2.2: a substream of six blocks at 48 kHz.
inline AudioBytes eac3Frame(uint32_t strmtyp, uint32_t substreamid, uint32_t size,
                            uint32_t acmod = 2, uint32_t lfeon = 0, uint32_t chanmap = 0) {
  HeaderFields fields = {{0x0B77, 16},       {strmtyp, 2}, {substreamid, 3},
                         {size / 2 - 1, 11}, {0, 2},       {3, 2},
                         {acmod, 3},         {lfeon, 1},   {16, 5}};
  if (chanmap != 0) {
    for (const auto& field : HeaderFields{{0, 5}, {0, 1}, {1, 1}, {chanmap, 16}})
      fields.push_back(field);
  }
  return audioFrame(size, fields);
}

/// ISO/IEC 11172-3, 2.4.2.3. `versionAndLayer` is the second byte: 0xFD layer II, 0xFB layer III,
/// 0xFF layer I, each without protection; bit 3 clear for the low sampling frequencies.
inline AudioBytes mpegFrame(uint32_t versionAndLayer, uint32_t bitRateIndex, uint32_t rateIndex,
                            size_t size, uint32_t padding = 0) {
  return audioFrame(
      size,
      {{0xFF, 8}, {versionAndLayer, 8}, {bitRateIndex, 4}, {rateIndex, 2}, {padding, 1}, {0, 9}});
}
inline AudioBytes layer2Frame(uint32_t bitRateIndex, uint32_t rateIndex, size_t size) {
  return mpegFrame(0xFD, bitRateIndex, rateIndex, size);
}

/// ISO/IEC 13818-7, 6.2: AAC LC.
inline AudioBytes adtsFrame(uint32_t size, uint32_t rateIndex = 3, uint32_t channels = 2) {
  return audioFrame(size, {{0xFFF, 12},
                           {1, 4},
                           {1, 2},
                           {rateIndex, 4},
                           {0, 1},
                           {channels, 3},
                           {0, 4},
                           {size, 13},
                           {0x7FF, 11},
                           {0, 2}});
}

/// ISO/IEC 14496-3, 1.7: a LOAS frame with its configuration.
inline AudioBytes latmFrame(uint32_t size, uint32_t rateIndex, uint32_t channels,
                            uint32_t shortFrame = 0) {
  return audioFrame(size, {{0x2B7, 11},
                           {size - 3, 13},
                           {0, 1},
                           {0, 1},
                           {1, 1},
                           {0, 6},
                           {0, 4},
                           {0, 3},
                           {2, 5},
                           {rateIndex, 4},
                           {channels, 4},
                           {shortFrame, 1}});
}
/// One that keeps the configuration.
inline AudioBytes sameLatmFrame(uint32_t size) {
  return audioFrame(size, {{0x2B7, 11}, {size - 3, 13}, {1, 1}});
}

/// ETSI TS 102 114, 5.3.1: a core frame at 48 kHz, five channels.
inline AudioBytes dtsFrame(uint32_t blocks, uint32_t size) {
  return audioFrame(size, {{0x7FFE8001, 32},
                           {1, 1},
                           {31, 5},
                           {0, 1},
                           {blocks - 1, 7},
                           {size - 1, 14},
                           {9, 6},
                           {13, 4},
                           {15, 5}});
}
/// ETSI TS 102 114, 7.4.1: an extension substream of 512 samples at 48 kHz.
inline AudioBytes dtsExtension(uint32_t index, uint32_t size, bool staticFields = true) {
  return audioFrame(size, {{0x64582025, 32},
                           {0, 8},
                           {index, 2},
                           {0, 1},
                           {31, 8},
                           {size - 1, 16},
                           {staticFields ? 1u : 0u, 1},
                           {2, 2},
                           {0, 3}});
}

}  // namespace zel::test
