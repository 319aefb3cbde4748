#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace zel::test {

/// The samples in PES payloads of PCM, by the letter of the codings' standards and a bit at a time.
/// Left-justified in 32 bits, channel by channel. Where a header and its payload don't fit, what
/// follows is left out.

/// SMPTE ST 302, 5.7: what stands behind the four bytes of the header is AES3 words, the least bit
/// of a sample first, each with its V, U, C and F bits.
std::vector<uint32_t> smpte302mSamples(std::span<const uint8_t> pesPayload);

/// The HDMV form, 16 or 24 bits with two channels: a header of four bytes, big-endian samples.
std::vector<uint32_t> hdmvStereoSamples(std::span<const uint8_t> pesPayload);

}  // namespace zel::test
