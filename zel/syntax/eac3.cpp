#include "zel/syntax/eac3.h"

#include <bit>

#include "zel/base/bit_reader.h"
#include "zel/syntax/ac3.h"

namespace zel::syntax {
namespace {

using base::BitReader;

constexpr uint8_t kBlocks[4] = {1, 2, 3, 6};

uint8_t bits(BitReader& reader, int count) {
  return static_cast<uint8_t>(reader.read(count));
}

void skipIf(BitReader& reader, int count) {
  if (reader.readFlag()) reader.skip(static_cast<unsigned>(count));
}

void readMixDefinition(BitReader& reader, Eac3Header& header) {
  header.mixdef = bits(reader, 2);
  if (header.mixdef == 1) reader.skip(5);
  if (header.mixdef == 2) reader.skip(12);
  if (header.mixdef == 3) {
    const uint32_t length = reader.read(5);
    reader.skip(8 * (length + 2));
  }
}

void readBlockMixing(BitReader& reader, const Eac3Header& header) {
  if (!reader.readFlag()) return;
  if (header.numblkscod == 0) {
    reader.skip(5);
    return;
  }
  for (int block = 0; block < kBlocks[header.numblkscod]; ++block) skipIf(reader, 5);
}

void readProgramMixing(BitReader& reader, Eac3Header& header) {
  header.pgmscle = reader.readFlag();
  if (header.pgmscle) reader.skip(6);
  if (header.acmod == 0) skipIf(reader, 6);
  header.extpgmscle = reader.readFlag();
  if (header.extpgmscle) reader.skip(6);
  readMixDefinition(reader, header);
  if (header.acmod < 2) {
    header.paninfoe = reader.readFlag();
    if (header.paninfoe) reader.skip(14);
    if (header.acmod == 0) skipIf(reader, 14);
  }
  readBlockMixing(reader, header);
}

void readMixingMetadata(BitReader& reader, Eac3Header& header) {
  header.mixmdate = reader.readFlag();
  if (!header.mixmdate) return;
  if (header.acmod > 2) {
    reader.skip(2);                               // dmixmod
    if ((header.acmod & 1) != 0) reader.skip(6);  // centre levels
    if ((header.acmod & 4) != 0) reader.skip(6);  // surround levels
  }
  if (header.lfeon) skipIf(reader, 5);
  if (header.strmtyp == kEac3Independent) readProgramMixing(reader, header);
}

void readInformation(BitReader& reader, Eac3Header& header) {
  header.infomdate = reader.readFlag();
  if (!header.infomdate) return;
  header.bsmod = bits(reader, 3);
  header.copyrightb = reader.readFlag();
  header.origbs = reader.readFlag();
  if (header.acmod == 2) {
    header.dsurmod = bits(reader, 2);
    header.dheadphonmod = bits(reader, 2);
  }
  if (header.acmod >= 6) header.dsurexmod = bits(reader, 2);
}

void readLevels(BitReader& reader, Eac3Header& header) {
  header.dialnorm = bits(reader, 5);
  skipIf(reader, 8);  // compr
  if (header.acmod == 0) {
    reader.skip(5);
    skipIf(reader, 8);
  }
  if (header.strmtyp != kEac3Dependent) return;
  header.chanmape = reader.readFlag();
  if (header.chanmape) header.chanmap = static_cast<uint16_t>(reader.read(16));
}

// Which of fscod2 and numblkscod stands here depends on fscod.
bool readRate(BitReader& reader, Eac3Header& header) {
  header.fscod = bits(reader, 2);
  const uint8_t second = bits(reader, 2);
  if (header.fscod == 3) {
    header.fscod2 = second;
    header.sampleRate = ac3SampleRate(second) / 2;
  } else {
    header.numblkscod = second;
    header.sampleRate = ac3SampleRate(header.fscod);
  }
  header.samples = 256u * kBlocks[header.numblkscod];
  return header.sampleRate != 0;
}

// Places of chanmap: ATSC A/52 table E.2.5.
enum ChannelPlace : uint16_t {
  kLeft = 0x8000,
  kCentre = 0x4000,
  kRight = 0x2000,
  kLeftSurround = 0x1000,
  kRightSurround = 0x0800,
  kSurround = 0x0100,
  kLfe = 0x0001,
};
// Lc/Rc, Lrs/Rrs, Lsd/Rsd, Lw/Rw, Lvh/Rvh, Lts/Rts.
constexpr uint16_t kPairs = 0x0400 | 0x0200 | 0x0040 | 0x0020 | 0x0010 | 0x0004;

constexpr uint16_t kFront = kLeft | kRight;
constexpr uint16_t kBack = kLeftSurround | kRightSurround;
// By acmod. Dual mono stands in two places, whichever they are.
constexpr uint16_t kModePlaces[8] = {
    kFront,                        // 1+1
    kCentre,                       // 1/0
    kFront,                        // 2/0
    kFront | kCentre,              // 3/0
    kFront | kSurround,            // 2/1
    kFront | kCentre | kSurround,  // 3/1
    kFront | kBack,                // 2/2
    kFront | kCentre | kBack,      // 3/2
};

}  // namespace

uint16_t eac3ChannelMap(const Eac3Header& header) {
  if (header.chanmape) return header.chanmap;
  return static_cast<uint16_t>(kModePlaces[header.acmod & 7] | (header.lfeon ? kLfe : 0));
}

int eac3Channels(uint16_t channelMap) {
  return std::popcount(channelMap) + std::popcount(static_cast<uint16_t>(channelMap & kPairs));
}

bool parseEac3Header(std::span<const uint8_t> bytes, Eac3Header& header) {
  header = {};
  BitReader reader(bytes);
  if (reader.read(16) != kAc3Sync) return false;
  header.strmtyp = bits(reader, 2);
  header.substreamid = bits(reader, 3);
  header.frmsiz = static_cast<uint16_t>(reader.read(11));
  header.frameSize = (header.frmsiz + 1u) * 2;
  if (header.strmtyp == 3 || !readRate(reader, header)) return false;
  header.acmod = bits(reader, 3);
  header.lfeon = reader.readFlag();
  header.bsid = bits(reader, 5);
  if (header.bsid < 11 || header.bsid > 16) return false;
  readLevels(reader, header);
  readMixingMetadata(reader, header);
  readInformation(reader, header);
  return !reader.failed();
}

}  // namespace zel::syntax
