#pragma once

#include <cstdint>
#include <span>

/// The bit stream information of E-AC-3: ATSC A/52 Annex E (ETSI TS 102 366 Annex E), E.1.2.2.
/// Names are the standard's.

namespace zel::syntax {

enum Eac3StreamType : uint8_t {
  kEac3Independent = 0,
  kEac3Dependent = 1,
  kEac3Converted = 2,  // independent, made from AC-3
};

struct Eac3Header {
  uint8_t strmtyp = 0;
  uint8_t substreamid = 0;
  uint16_t frmsiz = 0;
  uint8_t fscod = 0;
  uint8_t fscod2 = 0;
  uint8_t numblkscod = 3;
  uint8_t acmod = 0;
  bool lfeon = false;
  uint8_t bsid = 0;
  uint8_t dialnorm = 0;
  bool chanmape = false;
  uint16_t chanmap = 0;
  bool mixmdate = false;
  bool pgmscle = false;
  bool extpgmscle = false;
  uint8_t mixdef = 0;
  bool paninfoe = false;
  bool infomdate = false;
  uint8_t bsmod = 0;
  bool copyrightb = false;
  bool origbs = false;
  uint8_t dsurmod = 0;
  uint8_t dheadphonmod = 0;
  uint8_t dsurexmod = 0;
  // Derived.
  uint32_t sampleRate = 0;
  uint32_t samples = 0;    // per channel: 256, 512, 768 or 1,536
  uint32_t frameSize = 0;  // bytes of this substream's frame
};

/// Where the substream's channels stand, by the bits of chanmap (table E.2.5, the first bit
/// highest): what it says itself, or the places of its acmod and lfeon.
uint16_t eac3ChannelMap(const Eac3Header& header);
/// How many channels a map of one or several substreams has: some places are pairs.
int eac3Channels(uint16_t channelMap);

/// False where the bytes end before the end of the informational metadata, there is no sync word,
/// a code is reserved, or bsid isn't 11 to 16.
bool parseEac3Header(std::span<const uint8_t> bytes, Eac3Header& header);

}  // namespace zel::syntax
