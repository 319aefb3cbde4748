#include "zel/syntax/adts.h"

#include <iterator>

#include "zel/base/bit_reader.h"

namespace zel::syntax {
namespace {

constexpr uint32_t kSampleRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                       22050, 16000, 12000, 11025, 8000,  7350};
constexpr uint8_t kChannels[15] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8};

}  // namespace

uint32_t aacSampleRate(uint32_t index) {
  return index < std::size(kSampleRates) ? kSampleRates[index] : 0;
}

uint8_t aacChannels(uint32_t configuration) {
  return configuration < std::size(kChannels) ? kChannels[configuration] : uint8_t{0};
}

bool parseAdtsHeader(std::span<const uint8_t> bytes, AdtsHeader& header) {
  header = {};
  base::BitReader reader(bytes);
  if (reader.read(12) != 0xFFF) return false;
  header.mpeg2 = reader.readFlag();
  if (reader.read(2) != 0) return false;
  header.hasCrc = !reader.readFlag();
  header.objectType = static_cast<uint8_t>(reader.read(2) + 1);
  header.sampleRateIndex = static_cast<uint8_t>(reader.read(4));
  reader.skip(1);
  header.channelConfiguration = static_cast<uint8_t>(reader.read(3));
  reader.skip(4);
  header.frameSize = static_cast<uint16_t>(reader.read(13));
  header.bufferFullness = static_cast<uint16_t>(reader.read(11));
  header.rawBlocks = static_cast<uint8_t>(reader.read(2) + 1);
  header.sampleRate = aacSampleRate(header.sampleRateIndex);
  header.samples = 1024u * header.rawBlocks;
  const size_t headerSize = kAdtsHeaderSize + (header.hasCrc ? 2 : 0);
  return !reader.failed() && header.sampleRate != 0 && header.frameSize >= headerSize;
}

}  // namespace zel::syntax
