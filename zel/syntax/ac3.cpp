#include "zel/syntax/ac3.h"

#include <iterator>

#include "zel/base/bit_reader.h"
#include "zel/base/byte_order.h"

namespace zel::syntax {
namespace {

using base::BitReader;

constexpr uint32_t kSampleRates[3] = {48000, 44100, 32000};
constexpr uint16_t kKilobits[19] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                    192, 224, 256, 320, 384, 448, 512, 576, 640};
// A/52 table 5.18, words by frmsizecod / 2 at 44.1 kHz; an odd code has one more. The other rates
// divide evenly.
constexpr uint16_t kWords44k[19] = {69,  87,  104, 121, 139, 174, 208,  243,  278, 348,
                                    417, 487, 557, 696, 835, 975, 1114, 1253, 1393};
constexpr uint8_t kChannels[8] = {2, 1, 2, 3, 3, 4, 4, 5};

uint8_t bits(BitReader& reader, int count) {
  return static_cast<uint8_t>(reader.read(count));
}

void readProduction(BitReader& reader, Ac3Header& header) {
  header.langcode = reader.readFlag();
  if (header.langcode) header.langcod = bits(reader, 8);
  header.audprodie = reader.readFlag();
  if (header.audprodie) {
    header.mixlevel = bits(reader, 5);
    header.roomtyp = bits(reader, 2);
  }
}

// The second channel of 1+1.
void readSecondProgram(BitReader& reader, Ac3Header& header) {
  reader.skip(5);
  if (reader.readFlag()) reader.skip(8);
  header.langcod2e = reader.readFlag();
  if (header.langcod2e) header.langcod2 = bits(reader, 8);
  if (reader.readFlag()) reader.skip(7);
}

}  // namespace

uint8_t ac3Bsid(std::span<const uint8_t> bytes) {
  if (bytes.size() < 6 || base::loadBig16(bytes.data()) != kAc3Sync) return 0xFF;
  return bytes[5] >> 3;
}

uint32_t ac3SampleRate(uint32_t fscod) {
  return fscod < std::size(kSampleRates) ? kSampleRates[fscod] : 0;
}

uint32_t ac3FrameSize(uint32_t fscod, uint32_t frmsizecod) {
  if (frmsizecod >= 2 * std::size(kKilobits)) return 0;
  const uint32_t row = frmsizecod / 2;
  switch (fscod) {
    case 0:
      return kKilobits[row] * 4u;
    case 1:
      return (kWords44k[row] + frmsizecod % 2) * 2;
    case 2:
      return kKilobits[row] * 6u;
    default:
      return 0;
  }
}

uint32_t ac3BitRate(uint32_t frmsizecod) {
  return frmsizecod < 2 * std::size(kKilobits) ? kKilobits[frmsizecod / 2] * 1000u : 0;
}

uint8_t ac3Channels(uint32_t acmod) {
  return kChannels[acmod & 7];
}

bool parseAc3Header(std::span<const uint8_t> bytes, Ac3Header& header) {
  header = {};
  BitReader reader(bytes);
  if (reader.read(16) != kAc3Sync) return false;
  reader.skip(16);  // crc1
  header.fscod = bits(reader, 2);
  header.frmsizecod = bits(reader, 6);
  header.bsid = bits(reader, 5);
  header.bsmod = bits(reader, 3);
  header.acmod = bits(reader, 3);
  if ((header.acmod & 1) != 0 && header.acmod != 1) header.cmixlev = bits(reader, 2);
  if ((header.acmod & 4) != 0) header.surmixlev = bits(reader, 2);
  if (header.acmod == 2) header.dsurmod = bits(reader, 2);
  header.lfeon = reader.readFlag();
  header.dialnorm = bits(reader, 5);
  if (reader.readFlag()) reader.skip(8);  // compr
  readProduction(reader, header);
  if (header.acmod == 0) readSecondProgram(reader, header);
  header.copyrightb = reader.readFlag();
  header.origbs = reader.readFlag();
  header.frameSize = ac3FrameSize(header.fscod, header.frmsizecod);
  // bsid 9 and 10 are the streams of half and a quarter of the rate, with the same sizes.
  const int shift = header.bsid > 8 ? header.bsid - 8 : 0;
  if (reader.failed() || header.bsid > 10 || header.frameSize == 0) return false;
  header.sampleRate = ac3SampleRate(header.fscod) >> shift;
  header.bitRate = ac3BitRate(header.frmsizecod) >> shift;
  return true;
}

}  // namespace zel::syntax
