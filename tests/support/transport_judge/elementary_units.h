#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace zel::test {

enum class Coding {
  kUnknown,
  kMpeg1Video,
  kMpeg2Video,
  kMpeg4Video,
  kAvc,
  kHevc,
  kMpegAudio,
  kAdts,
  kLatm,
  kAc3,
  kEac3,
  kDts,
  kSmpte302m,
};
const char* codingName(Coding coding);
bool isVideo(Coding coding);

/// Where an access unit begins in its elementary stream; it ends where the next begins.
struct Unit {
  int64_t begin = 0;
  double duration = 0;  // seconds, of audio; 0: the stream doesn't say
};

/// What the headers say that the buffers' sizes and rates hang on.
struct StreamFacts {
  double maximumRate = 0;     // of profile and level, bits a second
  double maximumBuffer = 0;   // of profile and level, bytes
  double decoderBuffer = 0;   // EB, bytes
  double statedRate = 0;      // in the headers, bits a second; 0: none
  double averageRate = 0;     // of audio, by its frames, bits a second
  bool highLevel = false;     // MPEG-2: High 1440 and High
  int channels = 0;           // AAC
  bool dtsExtension = false;  // DTS: an extension substream
  bool lowDelay = false;      // pictures may come late
  std::string levelText;
};

struct Units {
  std::vector<Unit> list;
  StreamFacts facts;
  std::vector<std::pair<int64_t, std::string>> faults;  // place in the stream, what
};

/// Walks a whole elementary stream. SMPTE 302M has no sync word: its units are the PES packets.
Units findUnits(Coding coding, std::span<const uint8_t> stream);

}  // namespace zel::test
