#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// DTS coherent acoustics: the core frame header (ETSI TS 102 114, 5.3.1), the header of extension
/// substreams (7.4) as far as the coding of their first asset, and the chunks of DTS-HD files.
/// Names are the standard's.

namespace zel::syntax {

inline constexpr uint32_t kDtsCoreSync = 0x7FFE8001;
inline constexpr uint32_t kDtsExtensionSync = 0x64582025;

struct DtsCoreHeader {
  bool normalFrame = false;
  uint8_t deficitSamples = 0;
  bool hasCrc = false;
  uint8_t nblks = 0;   // as sent: blocks - 1
  uint16_t fsize = 0;  // as sent: bytes - 1
  uint8_t amode = 0;
  uint8_t sfreq = 0;
  uint8_t rate = 0;
  uint8_t extAudioId = 0;
  bool extAudio = false;
  uint8_t lff = 0;
  // Derived.
  uint32_t sampleRate = 0;
  uint32_t samples = 0;
  uint32_t frameSize = 0;
};

struct DtsExtensionHeader {
  uint8_t index = 0;        // nExtSSIndex
  bool wideSizes = false;   // bHeaderSizeType
  uint32_t headerSize = 0;  // bytes
  uint32_t frameSize = 0;   // bytes of the whole substream
  bool hasStaticFields = false;
  uint8_t refClockCode = 0;
  uint8_t durationCode = 0;  // nuExSSFrameDurationCode as sent: value - 1
  // Of the first asset; not known where fields stand before it that this doesn't read (mixing
  // metadata, speaker remapping), or the header ends in it.
  bool assetKnown = false;
  uint32_t channels = 0;    // nuTotalNumChs, 0 without static fields
  uint8_t codingMode = 0;   // nuCodingMode
  uint16_t components = 0;  // nuCoreExtensionMask, of coding mode 0
  // Derived, 0 without static fields.
  uint32_t referenceClock = 0;   // Hz; code 3 counts as 48,000
  uint32_t durationSamples = 0;  // of the reference clock: (durationCode + 1) * 512
};

// Bits of DtsExtensionHeader::components, and values of its codingMode.
inline constexpr uint16_t kDtsComponentXll = 0x200;
inline constexpr uint8_t kDtsCodingXll = 1;

/// Whether the first asset is coded without loss.
inline bool isDtsLossless(const DtsExtensionHeader& header) {
  return header.assetKnown &&
         (header.codingMode == kDtsCodingXll ||
          (header.codingMode == 0 && (header.components & kDtsComponentXll) != 0));
}

/// One chunk of a DTS-HD file: eight characters of identification and a 64-bit size stand before
/// its bytes.
struct DtsHdChunk {
  uint64_t identifier = 0;
  uint64_t size = 0;  // of the bytes behind the header; may be more than there are
};
inline constexpr size_t kDtsHdChunkHeaderSize = 16;
inline constexpr uint64_t kDtsHdFileChunk = 0x4454534844484452;    // "DTSHDHDR"
inline constexpr uint64_t kDtsHdAudioHeader = 0x415550522D484452;  // "AUPR-HDR"
inline constexpr uint64_t kDtsHdStreamData = 0x5354524D44415441;   // "STRMDATA"

/// False where the bytes end early, there is no sync word, the rate is reserved, or the sizes are
/// below the least that the standard allows.
bool parseDtsCoreHeader(std::span<const uint8_t> bytes, DtsCoreHeader& header);

/// False where the bytes end early, there is no sync word, or the header is longer than the whole.
bool parseDtsExtensionHeader(std::span<const uint8_t> bytes, DtsExtensionHeader& header);

/// False where there are fewer than sixteen bytes.
bool parseDtsHdChunk(std::span<const uint8_t> bytes, DtsHdChunk& chunk);

}  // namespace zel::syntax
