#include "zel/syntax/latm.h"

#include "zel/base/bit_reader.h"
#include "zel/syntax/adts.h"

namespace zel::syntax {
namespace {

using base::BitReader;

enum AudioObjectType : uint8_t { kSbr = 5, kErBsac = 22, kErAacLd = 23, kPs = 29, kErAacEld = 39 };

uint8_t readObjectType(BitReader& reader) {
  const uint32_t type = reader.read(5);
  return static_cast<uint8_t>(type == 31 ? 32 + reader.read(6) : type);
}

uint32_t readSampleRate(BitReader& reader) {
  const uint32_t index = reader.read(4);
  return index == 15 ? reader.read(24) : aacSampleRate(index);
}

uint32_t readLatmValue(BitReader& reader) {
  const auto bytes = static_cast<int>(reader.read(2)) + 1;
  return reader.read(bytes * 8);
}

// 1.6.2.1: what has a GASpecificConfig.
bool isGeneralAudio(uint8_t type) {
  return (type >= 1 && type <= 7 && type != kSbr) || type == 17 || (type >= 19 && type <= kErAacLd);
}

// 4.4.1.1, as far as the channels go. Counts them.
uint8_t readProgramConfigChannels(BitReader& reader) {
  reader.skip(4 + 2 + 4);  // element_instance_tag, object_type, sampling_frequency_index
  unsigned elements = 0;
  for (int place = 0; place < 3; ++place) elements += reader.read(4);  // front, side, back
  unsigned channels = reader.read(2);                                  // LFE
  reader.skip(3 + 4);                     // associated data, valid coupling channels
  if (reader.readFlag()) reader.skip(4);  // mono mixdown
  if (reader.readFlag()) reader.skip(4);  // stereo mixdown
  if (reader.readFlag()) reader.skip(3);  // matrix mixdown
  for (; elements > 0; --elements) {
    channels += reader.readFlag() ? 2 : 1;
    reader.skip(4);
  }
  return static_cast<uint8_t>(channels);
}

// 1.6.2.1, up to the program config element of GASpecificConfig, whose first bit is
// frameLengthFlag.
bool readAudioSpecificConfig(BitReader& reader, LatmConfig& config) {
  config.audioObjectType = readObjectType(reader);
  config.sampleRate = readSampleRate(reader);
  config.channelConfiguration = static_cast<uint8_t>(reader.read(4));
  config.channels = aacChannels(config.channelConfiguration);
  if (config.audioObjectType == kSbr || config.audioObjectType == kPs) {
    config.sbr = true;
    config.ps = config.audioObjectType == kPs;
    config.extensionSampleRate = readSampleRate(reader);
    config.audioObjectType = readObjectType(reader);
    if (config.audioObjectType == kErBsac) reader.skip(4);
  }
  const bool shortFrame = reader.readFlag();
  const bool lowDelay = config.audioObjectType == kErAacLd || config.audioObjectType == kErAacEld;
  config.samplesPerFrame = (shortFrame ? 960u : 1024u) / (lowDelay ? 2 : 1);
  if (config.channelConfiguration == 0 && isGeneralAudio(config.audioObjectType)) {
    if (reader.readFlag()) reader.skip(14);  // coreCoderDelay
    reader.skip(1);                          // extensionFlag
    config.channels = readProgramConfigChannels(reader);
  }
  return !reader.failed() && config.audioObjectType != 0 && config.sampleRate != 0;
}

bool readStreamMuxConfig(BitReader& reader, LatmConfig& config) {
  const bool versionOne = reader.readFlag();
  if (versionOne && reader.readFlag()) return false;  // audioMuxVersionA: reserved
  if (versionOne) readLatmValue(reader);              // taraBufferFullness
  reader.skip(1);                                     // allStreamsSameTimeFraming
  config.subFrames = static_cast<uint8_t>(reader.read(6) + 1);
  reader.skip(4 + 3);                     // numProgram, numLayer of the first
  if (versionOne) readLatmValue(reader);  // ascLen
  return readAudioSpecificConfig(reader, config);
}

}  // namespace

uint32_t loasFrameSize(std::span<const uint8_t> bytes) {
  BitReader reader(bytes);
  if (reader.read(11) != 0x2B7) return 0;
  const uint32_t length = reader.read(13);
  return reader.failed() ? 0 : length + static_cast<uint32_t>(kLoasHeaderSize);
}

LatmResult parseLatmFrame(std::span<const uint8_t> frame, LatmConfig& config) {
  const uint32_t size = loasFrameSize(frame);
  if (size <= kLoasHeaderSize || size > frame.size()) return LatmResult::kError;
  BitReader reader(frame.first(size).subspan(kLoasHeaderSize));
  if (reader.readFlag()) return LatmResult::kSameConfig;
  LatmConfig found;
  if (!readStreamMuxConfig(reader, found)) return LatmResult::kError;
  config = found;
  return LatmResult::kConfig;
}

}  // namespace zel::syntax
