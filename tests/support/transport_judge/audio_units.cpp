// Frames of audio, by their headers: ISO/IEC 11172-3, 13818-3, 13818-7, 14496-3, ATSC A/52 and ETSI
// TS 102 114.

#include <algorithm>
#include <array>

#include "tests/support/transport_judge/bits.h"
#include "tests/support/transport_judge/unit_walks.h"

namespace zel::test {
namespace {

using Bytes = std::span<const uint8_t>;

struct Frame {
  size_t bytes = 0;  // 0: no frame stands here
  double duration = 0;
  bool joins = false;  // belongs to the access unit before it
};

// kbit/s by bitrate_index: MPEG-1 layers I to III, then low sampling frequencies I, II and III.
constexpr std::array<std::array<int, 15>, 5> kMpegRates = {{
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
}};

Frame mpegFrame(Bytes at, StreamFacts& facts) {
  if (at.size() < 4 || at[0] != 0xFF || (at[1] & 0xF0) != 0xF0) return {};
  const bool mpeg1 = (at[1] & 8) != 0;
  const int layer = 4 - (at[1] >> 1 & 3);
  const unsigned index = at[2] >> 4;
  const unsigned frequency = at[2] >> 2 & 3;
  if (layer == 4 || index == 0 || index == 15 || frequency == 3) return {};
  static constexpr std::array kFrequencies = {44100, 48000, 32000};
  const int rate = kFrequencies[frequency] / (mpeg1 ? 1 : 2);
  const size_t row = mpeg1 ? static_cast<size_t>(layer - 1) : (layer == 1 ? 3 : 4);
  const int bits = kMpegRates[row][index] * 1000;
  const int padding = at[2] >> 1 & 1;
  facts.statedRate = bits;
  if (layer == 1) return {static_cast<size_t>((12 * bits / rate + padding) * 4), 384.0 / rate};
  const bool half = layer == 3 && !mpeg1;
  return {static_cast<size_t>((half ? 72 : 144) * bits / rate + padding),
          (half ? 576.0 : 1152.0) / rate};
}

constexpr std::array kAacRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};

Frame adtsFrame(Bytes at, StreamFacts& facts) {
  if (at.size() < 7 || at[0] != 0xFF || (at[1] & 0xF6) != 0xF0) return {};
  const unsigned frequency = at[2] >> 2 & 15;
  if (frequency >= kAacRates.size()) return {};
  const size_t bytes = (at[3] & 3U) << 11 | at[4] << 3U | at[5] >> 5U;
  const unsigned configuration = (at[2] & 1U) << 2 | at[3] >> 6;
  facts.channels =
      std::max(facts.channels, configuration == 7 ? 8 : static_cast<int>(configuration));
  return {bytes < 7 ? 0 : bytes, 1024.0 * ((at[6] & 3) + 1) / kAacRates[frequency]};
}

// The duration comes from the configuration, and stays that of the last one seen.
Frame latmFrame(Bytes at, StreamFacts& facts, double& duration) {
  if (at.size() < 4 || at[0] != 0x56 || (at[1] & 0xE0) != 0xE0) return {};
  const size_t bytes = ((at[1] & 0x1FU) << 8 | at[2]) + 3U;
  HeaderBits bits(at.subspan(3));
  if (!bits.flag() && !bits.flag()) {  // a StreamMuxConfig of version 0
    bits.pass(1);
    const uint32_t subFrames = bits.take(6) + 1;
    bits.pass(4 + 3);
    const uint32_t type = bits.take(5);
    const uint32_t frequency = bits.take(4);
    const double rate = frequency == 15                ? bits.take(24)
                        : frequency < kAacRates.size() ? kAacRates[frequency]
                                                       : 48000;
    facts.channels = static_cast<int>(bits.take(4));
    if (facts.channels == 7) facts.channels = 8;
    // With SBR the rate is that of the core, and 1,024 samples of it are a frame all the same.
    static_cast<void>(type);
    duration = 1024.0 * subFrames / rate;
  }
  return {bytes, duration};
}

constexpr std::array<int, 19> kAc3Rates = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                           192, 224, 256, 320, 384, 448, 512, 576, 640};
constexpr std::array kAc3Frequencies = {48000, 44100, 32000};

Frame ac3Frame(Bytes at, StreamFacts& facts) {
  if (at.size() < 6 || at[0] != 0x0B || at[1] != 0x77) return {};
  const unsigned version = at[5] >> 3;
  const unsigned frequency = at[4] >> 6;
  if (version <= 10) {
    const unsigned code = at[4] & 63;
    if (frequency == 3 || code > 37) return {};
    // Two bytes a word; 1,536 samples a frame; at 44.1 kHz odd codes have one word more.
    const int rate = kAc3Rates[code / 2];
    const int words =
        rate * 1000 * 96 / kAc3Frequencies[frequency] + (frequency == 1 && code % 2 == 1 ? 1 : 0);
    facts.statedRate = rate * 1000;
    return {static_cast<size_t>(words) * 2, 1536.0 / kAc3Frequencies[frequency]};
  }
  const unsigned type = at[2] >> 6;
  const unsigned subStream = at[2] >> 3 & 7;
  const size_t bytes = (((at[2] & 7U) << 8 | at[3]) + 1U) * 2;
  static constexpr std::array kBlocks = {1, 2, 3, 6};
  const unsigned second = at[4] >> 4 & 3;
  if (frequency == 3 && second == 3) return {};
  const double rate = frequency == 3 ? kAc3Frequencies[second] / 2.0 : kAc3Frequencies[frequency];
  const int blocks = frequency == 3 ? 6 : kBlocks[second];
  return {bytes, blocks * 256 / rate, type == 1 || subStream != 0};
}

Frame dtsFrame(Bytes at, StreamFacts& facts) {
  if (at.size() < 10) return {};
  const uint32_t sync = static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
                        static_cast<uint32_t>(at[2]) << 8 | at[3];
  HeaderBits bits(at.subspan(4));
  if (sync == 0x7FFE8001) {
    static constexpr std::array kRates = {0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                          44100, 0,    0,     12000, 24000, 48000, 96000, 192000};
    bits.pass(1 + 5 + 1);
    const uint32_t blocks = bits.take(7) + 1;
    const uint32_t bytes = bits.take(14) + 1;
    bits.pass(6);
    const int rate = kRates[bits.take(4)];
    if (rate == 0) return {};
    return {bytes, blocks * 32.0 / rate};
  }
  if (sync != 0x64582025) return {};
  facts.dtsExtension = true;
  bits.pass(8 + 2);
  const unsigned wide = bits.flag() ? 4 : 0;
  bits.pass(8 + wide);
  const uint32_t bytes = bits.take(16 + wide) + 1;
  double duration = 512.0 / 48000;
  if (bits.flag()) {
    static constexpr std::array kClocks = {32000.0, 44100.0, 48000.0, 48000.0};
    const double clock = kClocks[bits.take(2)];
    duration = (bits.take(3) + 1) * 512.0 / clock;
  }
  // Behind a core frame it belongs to it; a stream of extensions alone has units of them.
  return {bytes, duration, true};
}

Frame frameAt(Coding coding, Bytes at, StreamFacts& facts, double& duration) {
  switch (coding) {
    case Coding::kMpegAudio:
      return mpegFrame(at, facts);
    case Coding::kAdts:
      return adtsFrame(at, facts);
    case Coding::kLatm:
      return latmFrame(at, facts, duration);
    case Coding::kDts:
      return dtsFrame(at, facts);
    default:
      return ac3Frame(at, facts);
  }
}

}  // namespace

void walkAudio(Coding coding, std::span<const uint8_t> stream, Units& units) {
  double duration = 0;
  bool coreSeen = false;
  bool inStep = true;
  for (size_t i = 0; i < stream.size();) {
    const Frame frame = frameAt(coding, stream.subspan(i), units.facts, duration);
    if (frame.bytes == 0) {
      // The last few bytes can be the beginning of a frame that the end cut off.
      if (inStep && i + 10 < stream.size())
        units.faults.emplace_back(static_cast<int64_t>(i), "no frame where one should begin");
      inStep = false;
      ++i;
      continue;
    }
    inStep = true;
    const bool joins = frame.joins && (coding != Coding::kDts || coreSeen) && !units.list.empty();
    if (!frame.joins) coreSeen = true;
    if (!joins) units.list.push_back({static_cast<int64_t>(i), frame.duration});
    i += frame.bytes;
  }
  double seconds = 0;
  for (const Unit& unit : units.list) seconds += unit.duration;
  if (seconds > 0) units.facts.averageRate = static_cast<double>(stream.size()) * 8 / seconds;
}

}  // namespace zel::test
