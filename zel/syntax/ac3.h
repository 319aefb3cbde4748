#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The synchronisation and bit stream information of AC-3: ATSC A/52 (ETSI TS 102 366), 5.3.1 and
/// 5.3.2. Names are the standard's.

namespace zel::syntax {

inline constexpr uint16_t kAc3Sync = 0x0B77;
inline constexpr uint32_t kAc3FrameSamples = 1536;

struct Ac3Header {
  uint8_t fscod = 0;
  uint8_t frmsizecod = 0;
  uint8_t bsid = 0;
  uint8_t bsmod = 0;
  uint8_t acmod = 0;
  uint8_t cmixlev = 0;
  uint8_t surmixlev = 0;
  uint8_t dsurmod = 0;
  bool lfeon = false;
  uint8_t dialnorm = 0;
  bool langcode = false;
  uint8_t langcod = 0;
  bool audprodie = false;
  uint8_t mixlevel = 0;
  uint8_t roomtyp = 0;
  bool langcod2e = false;
  uint8_t langcod2 = 0;
  bool copyrightb = false;
  bool origbs = false;
  // Derived.
  uint32_t sampleRate = 0;
  uint32_t bitRate = 0;
  uint32_t frameSize = 0;  // bytes
};

/// The bit stream identification of an AC-3 or E-AC-3 frame, which stands at the same place in
/// both: up to 10 is AC-3, 11 to 16 E-AC-3. 0xFF where the bytes end early or have no sync word.
uint8_t ac3Bsid(std::span<const uint8_t> bytes);

/// The rate of an fscod; 0 for the reserved one.
uint32_t ac3SampleRate(uint32_t fscod);
/// Bytes of a frame; 0 where a code is reserved.
uint32_t ac3FrameSize(uint32_t fscod, uint32_t frmsizecod);
/// Bits per second; 0 where the code is reserved.
uint32_t ac3BitRate(uint32_t frmsizecod);
/// Full-range channels of an acmod.
uint8_t ac3Channels(uint32_t acmod);

/// False where the bytes end within what the header has up to origbs, there is no sync word, a code
/// is reserved, or bsid says that it is E-AC-3.
bool parseAc3Header(std::span<const uint8_t> bytes, Ac3Header& header);

}  // namespace zel::syntax
