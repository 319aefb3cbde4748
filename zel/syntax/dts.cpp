#include "zel/syntax/dts.h"

#include "zel/base/bit_reader.h"
#include "zel/base/byte_order.h"

namespace zel::syntax {
namespace {

using base::BitReader;

// By SFREQ, ETSI TS 102 114 table 5-5; 0 is reserved. The two last are the extensions' only.
constexpr uint32_t kSampleRates[16] = {0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                       44100, 0,    0,     12000, 24000, 48000, 96000, 192000};
constexpr uint32_t kReferenceClocks[4] = {32000, 44100, 48000, 48000};

// 5.3.1: a frame has at least six blocks and 96 bytes.
constexpr uint8_t kLeastNblks = 5;
constexpr uint16_t kLeastFsize = 95;

uint8_t bits(BitReader& reader, int count) {
  return static_cast<uint8_t>(reader.read(count));
}

unsigned count(BitReader& reader, int bitCount) {
  return reader.read(bitCount) + 1;
}

// 7.4.1, the static fields behind the duration. Gives the number of assets, and whether mixing
// metadata may come in their descriptors.
unsigned readStaticFields(BitReader& reader, const DtsExtensionHeader& header, bool& mixes) {
  if (reader.readFlag()) reader.skip(36);  // nuTimeStamp, nLSB
  const unsigned presentations = count(reader, 3);
  const unsigned assets = count(reader, 3);
  uint32_t masks[8] = {};
  for (unsigned i = 0; i < presentations; ++i) masks[i] = reader.read(header.index + 1);
  for (unsigned i = 0; i < presentations; ++i) {
    for (int substream = 0; substream <= header.index; ++substream) {
      if ((masks[i] >> substream & 1) != 0) reader.skip(8);  // nuActiveAssetMask
    }
  }
  mixes = reader.readFlag();
  if (mixes) {
    reader.skip(2);  // nuMixMetadataAdjLevel
    const unsigned maskBits = count(reader, 2) * 4;
    reader.skip(count(reader, 2) * maskBits);
  }
  return assets;
}

// 7.4.2, the static fields of the descriptor. False where a set of remapped speakers follows.
bool readAssetStaticFields(BitReader& reader, DtsExtensionHeader& header, bool& stereoDownmix) {
  if (reader.readFlag()) reader.skip(4);                      // type
  if (reader.readFlag()) reader.skip(24);                     // language
  if (reader.readFlag()) reader.skip(8 * count(reader, 10));  // text
  reader.skip(5 + 4);                                         // nuBitResolution, nuMaxSampleRate
  header.channels = count(reader, 8);
  if (!reader.readFlag()) {  // bOne2OneMapChannels2Speakers
    reader.skip(3);
    return true;
  }
  stereoDownmix = header.channels > 2 && reader.readFlag();
  if (header.channels > 6) reader.skip(1);
  if (reader.readFlag()) reader.skip(count(reader, 2) * 4);  // nuSpkrActivityMask
  return reader.read(3) == 0;                                // nuNumSpkrRemapSets
}

void readFirstAsset(BitReader& reader, DtsExtensionHeader& header, bool mixes) {
  reader.skip(9 + 3);  // nuAssetDescriptFsize, nuAssetIndex
  bool stereoDownmix = false;
  if (header.hasStaticFields && !readAssetStaticFields(reader, header, stereoDownmix)) return;
  const bool rangeControl = reader.readFlag();
  if (rangeControl) reader.skip(8);
  if (reader.readFlag()) reader.skip(5);  // nuDialNormCode
  if (rangeControl && stereoDownmix) reader.skip(8);
  if (mixes && reader.readFlag()) return;
  header.codingMode = bits(reader, 2);
  if (header.codingMode == 0) header.components = static_cast<uint16_t>(reader.read(12));
  header.assetKnown = !reader.failed() && reader.position() <= uint64_t{header.headerSize} * 8;
}

}  // namespace

bool parseDtsCoreHeader(std::span<const uint8_t> bytes, DtsCoreHeader& header) {
  header = {};
  BitReader reader(bytes);
  if (reader.read(32) != kDtsCoreSync) return false;
  header.normalFrame = reader.readFlag();
  header.deficitSamples = bits(reader, 5);
  header.hasCrc = reader.readFlag();
  header.nblks = bits(reader, 7);
  header.fsize = static_cast<uint16_t>(reader.read(14));
  header.amode = bits(reader, 6);
  header.sfreq = bits(reader, 4);
  header.rate = bits(reader, 5);
  reader.skip(5);  // FixedBit, DYNF, TIMEF, AUXF, HDCD
  header.extAudioId = bits(reader, 3);
  header.extAudio = reader.readFlag();
  reader.skip(1);  // ASPF
  header.lff = bits(reader, 2);
  header.sampleRate = kSampleRates[header.sfreq];
  header.samples = (header.nblks + 1u) * 32;
  header.frameSize = header.fsize + 1u;
  return !reader.failed() && header.sampleRate != 0 && header.nblks >= kLeastNblks &&
         header.fsize >= kLeastFsize;
}

bool parseDtsExtensionHeader(std::span<const uint8_t> bytes, DtsExtensionHeader& header) {
  header = {};
  BitReader reader(bytes);
  if (reader.read(32) != kDtsExtensionSync) return false;
  reader.skip(8);  // UserDefinedBits
  header.index = bits(reader, 2);
  header.wideSizes = reader.readFlag();
  const int wider = header.wideSizes ? 4 : 0;
  header.headerSize = reader.read(8 + wider) + 1;
  header.frameSize = reader.read(16 + wider) + 1;
  header.hasStaticFields = reader.readFlag();
  if (header.hasStaticFields) {
    header.refClockCode = bits(reader, 2);
    header.durationCode = bits(reader, 3);
    header.referenceClock = kReferenceClocks[header.refClockCode];
    header.durationSamples = (header.durationCode + 1u) * 512;
  }
  if (reader.failed() || header.headerSize > header.frameSize ||
      uint64_t{header.headerSize} * 8 < reader.position()) {
    return false;
  }
  bool mixes = false;
  const unsigned assets = header.hasStaticFields ? readStaticFields(reader, header, mixes) : 1;
  reader.skip(assets * (16u + static_cast<unsigned>(wider)));  // nuAssetFsize
  readFirstAsset(reader, header, mixes);
  return true;
}

bool parseDtsHdChunk(std::span<const uint8_t> bytes, DtsHdChunk& chunk) {
  chunk = {};
  if (bytes.size() < kDtsHdChunkHeaderSize) return false;
  chunk.identifier = base::loadBig64(bytes.data());
  chunk.size = base::loadBig64(bytes.data() + 8);
  return true;
}

}  // namespace zel::syntax
