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
  return !reader.failed() && header.headerSize <= header.frameSize &&
         uint64_t{header.headerSize} * 8 >= reader.position();
}

bool parseDtsHdChunk(std::span<const uint8_t> bytes, DtsHdChunk& chunk) {
  chunk = {};
  if (bytes.size() < kDtsHdChunkHeaderSize) return false;
  chunk.identifier = base::loadBig64(bytes.data());
  chunk.size = base::loadBig64(bytes.data() + 8);
  return true;
}

}  // namespace zel::syntax
