#include "zel/syntax/mpeg_audio.h"

#include "zel/base/bit_reader.h"

namespace zel::syntax {
namespace {

// kbit/s by [low sampling frequencies][layer - 1][bitrate_index]. ISO/IEC 11172-3, 2.4.2.3 and
// ISO/IEC 13818-3, 2.4.2.3.
constexpr uint16_t kBitRates[2][3][15] = {
    {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
     {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
    {{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
     {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}}};

// Not in the order of AC-3's codes.
constexpr uint32_t kSampleRates[3] = {44100, 48000, 32000};

uint32_t frameSamples(const MpegAudioHeader& header) {
  if (header.layer == 1) return 384;
  const bool low = header.version != MpegAudioVersion::kMpeg1;
  return header.layer == 3 && low ? 576 : 1152;
}

// A slot is four bytes in layer I and one in the others; only whole slots make a frame.
uint32_t frameBytes(const MpegAudioHeader& header) {
  if (header.bitRate == 0) return 0;
  const uint32_t padding = header.padding ? 1 : 0;
  if (header.layer == 1) return (12 * header.bitRate / header.sampleRate + padding) * 4;
  return header.samples / 8 * header.bitRate / header.sampleRate + padding;
}

}  // namespace

bool parseMpegAudioHeader(std::span<const uint8_t> bytes, MpegAudioHeader& header) {
  header = {};
  base::BitReader reader(bytes);
  if (reader.read(11) != 0x7FF) return false;
  const uint32_t version = reader.read(2);
  const uint32_t layer = reader.read(2);
  header.hasCrc = !reader.readFlag();
  header.bitRateIndex = static_cast<uint8_t>(reader.read(4));
  header.sampleRateIndex = static_cast<uint8_t>(reader.read(2));
  header.padding = reader.readFlag();
  reader.skip(1);
  header.mode = static_cast<uint8_t>(reader.read(2));
  header.modeExtension = static_cast<uint8_t>(reader.read(2));
  reader.skip(2);
  header.emphasis = static_cast<uint8_t>(reader.read(2));
  if (reader.failed() || version == 1 || layer == 0) return false;
  if (header.bitRateIndex == 15 || header.sampleRateIndex == 3) return false;

  header.version = version == 3   ? MpegAudioVersion::kMpeg1
                   : version == 2 ? MpegAudioVersion::kMpeg2
                                  : MpegAudioVersion::kMpeg25;
  header.layer = static_cast<uint8_t>(4 - layer);
  header.channels = header.mode == 3 ? 1 : 2;
  const bool low = header.version != MpegAudioVersion::kMpeg1;
  header.bitRate = kBitRates[low ? 1 : 0][header.layer - 1][header.bitRateIndex] * 1000u;
  header.sampleRate = kSampleRates[header.sampleRateIndex] >> static_cast<int>(header.version);
  header.samples = frameSamples(header);
  header.frameSize = frameBytes(header);
  return true;
}

}  // namespace zel::syntax
