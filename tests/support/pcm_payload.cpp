#include "tests/support/pcm_payload.h"

#include "tests/support/slow_bits.h"

namespace zel::test {

std::vector<uint32_t> smpte302mSamples(std::span<const uint8_t> pesPayload) {
  SlowBits bits(pesPayload);
  const uint64_t size = bits.read(16);
  const uint64_t pairs = bits.read(2) + 1;
  bits.skip(8);
  const int depth = 16 + 4 * static_cast<int>(bits.read(2));
  bits.skip(4);
  if (bits.failed() || size + 4 != pesPayload.size()) return {};
  std::vector<uint32_t> samples;
  const uint64_t words = size * 8 / static_cast<uint64_t>(depth + 4);
  if (words % (2 * pairs) != 0) return {};
  for (uint64_t i = 0; i < words; ++i) {
    uint32_t sample = 0;
    for (int bit = 0; bit < depth; ++bit) sample |= static_cast<uint32_t>(bits.read(1)) << bit;
    bits.skip(4);
    samples.push_back(sample << (32 - depth));
  }
  return samples;
}

std::vector<uint32_t> hdmvStereoSamples(std::span<const uint8_t> pesPayload) {
  SlowBits bits(pesPayload);
  const uint64_t size = bits.read(16);
  const uint64_t channels = bits.read(4);  // 3: left and right
  bits.skip(4);
  const uint64_t depth = bits.read(2);  // 1: 16 bits, 2: 20, 3: 24
  bits.skip(6);
  if (bits.failed() || size + 4 != pesPayload.size() || channels != 3) return {};
  const int stored = depth == 1 ? 16 : 24;
  std::vector<uint32_t> samples;
  for (uint64_t i = 0; i < size * 8 / static_cast<uint64_t>(stored); ++i)
    samples.push_back(static_cast<uint32_t>(bits.read(stored)) << (32 - stored));
  return samples;
}

}  // namespace zel::test
