// Pictures and levels of video, by start codes: ISO/IEC 11172-2, 13818-2, 14496-2, ITU-T H.264 and
// H.265. Only what the buffers of the T-STD need is read.

#include <algorithm>
#include <array>

#include "tests/support/transport_judge/bits.h"
#include "tests/support/transport_judge/elementary_units.h"
#include "tests/support/transport_judge/unit_walks.h"

namespace zel::test {
namespace {

using Bytes = std::span<const uint8_t>;

struct StartCode {
  int64_t place;  // of its first byte
  size_t unit;    // of the first byte behind the prefix
};

// In a byte stream of NAL units a zero byte before the prefix of three is the unit's own (ITU-T
// H.264, B.1.2); before MPEG's start codes it's stuffing, or the last byte of a slice (ISO/IEC
// 13818-2, 5.2.3).
std::vector<StartCode> startCodes(Bytes stream, bool ownsZeroByte) {
  std::vector<StartCode> codes;
  for (size_t i = 0; i + 3 < stream.size(); ++i) {
    if (stream[i + 2] > 1) {
      i += 2;
      continue;
    }
    if (stream[i] != 0 || stream[i + 1] != 0 || stream[i + 2] != 1) continue;
    const bool zeroBefore = ownsZeroByte && i > 0 && stream[i - 1] == 0;
    codes.push_back({static_cast<int64_t>(i) - (zeroBefore ? 1 : 0), i + 3});
    i += 2;
  }
  return codes;
}

struct Mpeg2Point {
  unsigned profile, level;  // 0 profile: any
  double rate;
  double vbvBytes;
  bool high;
};
// ISO/IEC 13818-2, Tables 8-12 to 8-14.
constexpr std::array kMpeg2Points = {
    Mpeg2Point{5, 8, 15e6, 229376, false},     Mpeg2Point{4, 10, 4e6, 59392, false},
    Mpeg2Point{4, 8, 15e6, 229376, false},     Mpeg2Point{4, 6, 60e6, 917504, true},
    Mpeg2Point{4, 4, 80e6, 1222656, true},     Mpeg2Point{1, 8, 20e6, 305152, false},
    Mpeg2Point{1, 6, 80e6, 1222656, true},     Mpeg2Point{1, 4, 100e6, 1527808, true},
    Mpeg2Point{0x10, 5, 50e6, 1179648, false}, Mpeg2Point{0x10, 2, 300e6, 5898240, true},
};

void readSequence(Bytes header, StreamFacts& facts) {
  HeaderBits bits(header);
  bits.pass(12 + 12 + 4 + 4);
  facts.statedRate = bits.take(18) * 400.0;
  bits.pass(1);
  facts.decoderBuffer = bits.take(10) * 2048.0;
  // What MPEG-1's constrained parameters allow, until an extension says more: 11172-2, 2.4.3.2.
  facts.maximumRate = 1856000;
  facts.maximumBuffer = 40960;
  facts.levelText = "MPEG-1";
}

void readSequenceExtension(Bytes extension, StreamFacts& facts) {
  HeaderBits bits(extension);
  bits.pass(4);
  const uint32_t indication = bits.take(8);
  bits.pass(1 + 2 + 2 + 2);
  facts.statedRate += bits.take(12) * 400.0 * 262144;
  bits.pass(1);
  facts.decoderBuffer += bits.take(8) * 2048.0 * 1024;
  facts.lowDelay = bits.flag();
  const unsigned profile = (indication & 0x80) != 0 ? 0x10 : indication >> 4 & 7;
  const unsigned level = indication & 15;
  const auto* point = std::find_if(kMpeg2Points.begin(), kMpeg2Points.end(), [&](const auto& row) {
    return row.profile == profile && row.level == level;
  });
  if (point == kMpeg2Points.end()) point = &kMpeg2Points[4];
  facts.maximumRate = point->rate;
  facts.maximumBuffer = point->vbvBytes;
  facts.highLevel = point->high;
  facts.levelText = "MPEG-2 " + std::to_string(indication);
}

struct Mpeg4Level {
  unsigned indication;
  double rate;
  double vbvUnits;
};
// ISO/IEC 14496-2, Table N-1.
constexpr std::array kMpeg4Levels = {
    Mpeg4Level{0x08, 64e3, 10},  Mpeg4Level{0x01, 64e3, 10},  Mpeg4Level{0x02, 128e3, 40},
    Mpeg4Level{0x03, 384e3, 40}, Mpeg4Level{0x04, 4e6, 80},   Mpeg4Level{0x05, 8e6, 112},
    Mpeg4Level{0x06, 12e6, 248}, Mpeg4Level{0x21, 384e3, 16}, Mpeg4Level{0x22, 2e6, 80},
    Mpeg4Level{0x32, 2e6, 80},   Mpeg4Level{0x33, 15e6, 320}, Mpeg4Level{0x34, 38.4e6, 760},
    Mpeg4Level{0xF0, 128e3, 10}, Mpeg4Level{0xF1, 128e3, 10}, Mpeg4Level{0xF2, 384e3, 40},
    Mpeg4Level{0xF3, 768e3, 40}, Mpeg4Level{0xF4, 3e6, 80},   Mpeg4Level{0xF5, 8e6, 112},
    Mpeg4Level{0xF7, 1.5e6, 65},
};

void setMpeg4Level(unsigned indication, StreamFacts& facts) {
  const auto* row = std::find_if(kMpeg4Levels.begin(), kMpeg4Levels.end(),
                                 [&](const auto& each) { return each.indication == indication; });
  // A stream without a known level is held to the highest one.
  const Mpeg4Level level = row == kMpeg4Levels.end() ? Mpeg4Level{0, 38.4e6, 760} : *row;
  facts.maximumRate = level.rate;
  facts.maximumBuffer = facts.decoderBuffer = level.vbvUnits * 2048;
  facts.levelText = "MPEG-4 " + std::to_string(indication);
}

void readVideoObjectLayer(Bytes header, StreamFacts& facts) {
  HeaderBits bits(header);
  bits.pass(1 + 8);
  if (bits.flag()) bits.pass(4 + 3);
  if (bits.take(4) == 15) bits.pass(16);
  if (!bits.flag()) return;
  bits.pass(2);
  facts.lowDelay = bits.flag();
  if (!bits.flag()) return;
  const uint32_t rateHigh = bits.take(15);
  bits.pass(1);
  facts.statedRate = 400.0 * (rateHigh * 32768.0 + bits.take(15));
  bits.pass(1);
  const uint32_t sizeHigh = bits.take(15);
  bits.pass(1);
  facts.decoderBuffer = (sizeHigh * 8.0 + bits.take(3)) * 2048;
  facts.maximumBuffer = std::max(facts.maximumBuffer, facts.decoderBuffer);
}

struct Level {
  unsigned idc;
  double rate, buffer;          // in thousands of bits, before the profile's factor
  double highRate, highBuffer;  // of the High tier
};
// ITU-T H.264, Table A-1.
constexpr std::array kAvcLevels = {
    Level{9, 128, 350, 0, 0},        Level{10, 64, 175, 0, 0},
    Level{11, 192, 500, 0, 0},       Level{12, 384, 1000, 0, 0},
    Level{13, 768, 2000, 0, 0},      Level{20, 2000, 2000, 0, 0},
    Level{21, 4000, 4000, 0, 0},     Level{22, 4000, 4000, 0, 0},
    Level{30, 10000, 10000, 0, 0},   Level{31, 14000, 14000, 0, 0},
    Level{32, 20000, 20000, 0, 0},   Level{40, 20000, 25000, 0, 0},
    Level{41, 50000, 62500, 0, 0},   Level{42, 50000, 62500, 0, 0},
    Level{50, 135000, 135000, 0, 0}, Level{51, 240000, 240000, 0, 0},
    Level{52, 240000, 240000, 0, 0}, Level{60, 240000, 240000, 0, 0},
    Level{61, 480000, 480000, 0, 0}, Level{62, 800000, 800000, 0, 0},
};
// ITU-T H.265, Tables A.8 and A.9.
constexpr std::array kHevcLevels = {
    Level{30, 128, 350, 128, 350},
    Level{60, 1500, 1500, 1500, 1500},
    Level{63, 3000, 3000, 3000, 3000},
    Level{90, 6000, 6000, 6000, 6000},
    Level{93, 10000, 10000, 10000, 10000},
    Level{120, 12000, 12000, 30000, 30000},
    Level{123, 20000, 20000, 50000, 50000},
    Level{150, 25000, 25000, 100000, 100000},
    Level{153, 40000, 40000, 160000, 160000},
    Level{156, 60000, 60000, 240000, 240000},
    Level{180, 60000, 60000, 240000, 240000},
    Level{183, 120000, 120000, 480000, 480000},
    Level{186, 240000, 240000, 800000, 800000},
};

template <size_t N>
const Level& levelOf(const std::array<Level, N>& levels, unsigned idc) {
  for (const Level& level : levels)
    if (level.idc == idc) return level;
  return levels.back();
}

double avcNalFactor(unsigned profile) {
  switch (profile) {
    case 100:
    case 118:
    case 128:
      return 1500;
    case 110:
      return 3600;
    case 122:
    case 244:
    case 44:
      return 4800;
    default:
      return 1200;
  }
}

// The NAL buffer's size in bits, of the last alternative; 0 without one.
double avcHrd(HeaderBits& bits) {
  const uint32_t count = bits.ue() + 1;
  const uint32_t rateScale = bits.take(4);
  const uint32_t sizeScale = bits.take(4);
  static_cast<void>(rateScale);
  double size = 0;
  for (uint32_t i = 0; i < count && i < 32; ++i) {
    bits.ue();
    size = (bits.ue() + 1.0) * static_cast<double>(uint64_t{1} << (4 + sizeScale));
    bits.pass(1);
  }
  bits.pass(20);
  return size;
}

void passVuiPicture(HeaderBits& bits) {
  if (bits.flag() && bits.take(8) == 255) bits.pass(32);
  if (bits.flag()) bits.pass(1);
  if (bits.flag()) {
    bits.pass(4);
    if (bits.flag()) bits.pass(24);
  }
  if (bits.flag()) {
    bits.ue();
    bits.ue();
  }
}

void passAvcScalingLists(HeaderBits& bits, uint32_t chroma) {
  for (int list = 0; list < (chroma != 3 ? 8 : 12); ++list) {
    if (!bits.flag()) continue;
    int last = 8;
    int next = 8;
    for (int i = 0; i < (list < 6 ? 16 : 64); ++i) {
      if (next != 0) next = (last + bits.se() + 256) % 256;
      if (next != 0) last = next;
    }
  }
}

void readAvcParameterSet(Bytes unit, StreamFacts& facts) {
  const std::vector<uint8_t> payload = withoutEmulation(unit.subspan(1));
  HeaderBits bits(payload);
  const uint32_t profile = bits.take(8);
  const uint32_t constraints = bits.take(8);
  uint32_t levelIdc = bits.take(8);
  if (levelIdc == 11 && (constraints & 0x10) != 0 && profile <= 88) levelIdc = 9;
  const Level& level = levelOf(kAvcLevels, levelIdc);
  const double factor = avcNalFactor(profile);
  facts.maximumRate = level.rate * factor;
  facts.maximumBuffer = facts.decoderBuffer = level.buffer * factor / 8;
  facts.levelText = "AVC " + std::to_string(profile) + "@" + std::to_string(levelIdc);

  bits.ue();
  static constexpr std::array kChromaProfiles = {100U, 110U, 122U, 244U, 44U,  83U, 86U,
                                                 118U, 128U, 138U, 139U, 134U, 135U};
  uint32_t chroma = 1;
  if (std::find(kChromaProfiles.begin(), kChromaProfiles.end(), profile) != kChromaProfiles.end()) {
    chroma = bits.ue();
    if (chroma == 3) bits.pass(1);
    bits.ue();
    bits.ue();
    bits.pass(1);
    if (bits.flag()) passAvcScalingLists(bits, chroma);
  }
  bits.ue();
  const uint32_t orderType = bits.ue();
  if (orderType == 0) bits.ue();
  if (orderType == 1) {
    bits.pass(1);
    bits.se();
    bits.se();
    for (uint32_t left = std::min(bits.ue(), 255U); left > 0; --left) bits.se();
  }
  bits.ue();
  bits.pass(1);
  bits.ue();
  bits.ue();
  if (!bits.flag()) bits.pass(1);
  bits.pass(1);
  if (bits.flag())
    for (int i = 0; i < 4; ++i) bits.ue();
  if (!bits.flag()) return;
  passVuiPicture(bits);
  if (bits.flag()) bits.pass(65);
  if (!bits.flag() || bits.ended()) return;
  if (const double size = avcHrd(bits); size > 0) facts.decoderBuffer = size / 8;
}

// ITU-T H.265, Table A.10: Main, Main 10 and Main Still Picture are exact. Of the range extensions
// the largest stands here: what is below it is then held to a limit that is too wide, never to one
// that is too narrow.
double hevcNalFactor(unsigned profile) {
  return profile <= 3 ? 1100 : 5500;
}

void passHevcScalingLists(HeaderBits& bits) {
  for (int size = 0; size < 4; ++size)
    for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      if (!bits.flag()) {
        bits.ue();
        continue;
      }
      if (size > 1) bits.se();
      const int count = std::min(64, 1 << (4 + 2 * size));
      for (int i = 0; i < count; ++i) bits.se();
    }
}

bool passHevcReferenceSets(HeaderBits& bits) {
  const uint32_t sets = bits.ue();
  if (sets > 64) return false;
  uint32_t previous = 0;
  for (uint32_t set = 0; set < sets; ++set) {
    uint32_t count = 0;
    if (set != 0 && bits.flag()) {
      bits.pass(1);
      bits.ue();
      for (uint32_t i = 0; i <= previous; ++i) {
        const bool used = bits.flag();
        if (used || bits.flag()) ++count;
      }
    } else {
      const uint32_t pictures = bits.ue() + bits.ue();
      if (pictures > 32) return false;
      for (uint32_t i = 0; i < pictures; ++i) {
        bits.ue();
        bits.pass(1);
      }
      count = pictures;
    }
    previous = count;
  }
  return true;
}

// The NAL buffer's size in bits at the highest sub-layer, of the last alternative; 0 without one.
double hevcHrd(HeaderBits& bits, uint32_t subLayers) {
  const bool nal = bits.flag();
  const bool vcl = bits.flag();
  bool subPictures = false;
  uint32_t sizeScale = 0;
  if (nal || vcl) {
    subPictures = bits.flag();
    if (subPictures) bits.pass(8 + 5 + 1 + 5);
    bits.pass(4);
    sizeScale = bits.take(4);
    if (subPictures) bits.pass(4);
    bits.pass(15);
  }
  double size = 0;
  for (uint32_t layer = 0; layer <= subLayers; ++layer) {
    const bool fixedGeneral = bits.flag();
    const bool fixedWithin = fixedGeneral || bits.flag();
    bool lowDelay = false;
    if (fixedWithin)
      bits.ue();
    else
      lowDelay = bits.flag();
    const uint32_t count = lowDelay ? 1 : std::min(bits.ue(), 31U) + 1;
    for (int kind = 0; kind < (nal ? 1 : 0) + (vcl ? 1 : 0); ++kind)
      for (uint32_t i = 0; i < count; ++i) {
        bits.ue();
        const double bitsOfThis =
            (bits.ue() + 1.0) * static_cast<double>(uint64_t{1} << (4 + sizeScale));
        if (nal && kind == 0) size = bitsOfThis;
        if (subPictures) {
          bits.ue();
          bits.ue();
        }
        bits.pass(1);
      }
  }
  return size;
}

void readHevcParameterSet(Bytes unit, StreamFacts& facts) {
  const std::vector<uint8_t> payload = withoutEmulation(unit.subspan(2));
  HeaderBits bits(payload);
  bits.pass(4);
  const uint32_t subLayers = bits.take(3);
  bits.pass(1 + 2);
  const bool highTier = bits.flag();
  const uint32_t profile = bits.take(5);
  bits.pass(80);
  const uint32_t levelIdc = bits.take(8);
  const Level& level = levelOf(kHevcLevels, levelIdc);
  const double factor = hevcNalFactor(profile);
  facts.maximumRate = (highTier ? level.highRate : level.rate) * factor;
  facts.maximumBuffer = facts.decoderBuffer =
      (highTier ? level.highBuffer : level.buffer) * factor / 8;
  facts.levelText = "HEVC " + std::to_string(profile) + "@" + std::to_string(levelIdc);

  unsigned subBits = 0;
  for (uint32_t i = 0; i < subLayers; ++i) {
    if (bits.flag()) subBits += 88;
    if (bits.flag()) subBits += 8;
  }
  if (subLayers > 0) bits.pass(2 * (8 - subLayers));
  bits.pass(subBits);
  bits.ue();
  if (bits.ue() == 3) bits.pass(1);
  bits.ue();
  bits.ue();
  if (bits.flag())
    for (int i = 0; i < 4; ++i) bits.ue();
  bits.ue();
  bits.ue();
  const uint32_t orderBits = bits.ue() + 4;
  for (uint32_t i = bits.flag() ? 0 : subLayers; i <= subLayers; ++i) {
    bits.ue();
    bits.ue();
    bits.ue();
  }
  for (int i = 0; i < 6; ++i) bits.ue();
  if (bits.flag() && bits.flag()) passHevcScalingLists(bits);
  bits.pass(2);
  if (bits.flag()) {
    bits.pass(8);
    bits.ue();
    bits.ue();
    bits.pass(1);
  }
  if (!passHevcReferenceSets(bits)) return;
  if (bits.flag())
    for (uint32_t left = std::min(bits.ue(), 32U); left > 0; --left) bits.pass(orderBits + 1);
  bits.pass(2);
  if (!bits.flag()) return;
  passVuiPicture(bits);
  bits.pass(3);
  if (bits.flag())
    for (int i = 0; i < 4; ++i) bits.ue();
  if (!bits.flag()) return;
  bits.pass(64);
  if (bits.flag()) bits.ue();
  if (!bits.flag() || bits.ended()) return;
  if (const double size = hevcHrd(bits, subLayers); size > 0) facts.decoderBuffer = size / 8;
}

// What a start code means for the walk.
enum class Role { kOther, kOpens, kPicture };

Role mpegRole(uint8_t code) {
  if (code == 0x00) return Role::kPicture;
  return code == 0xB3 || code == 0xB8 ? Role::kOpens : Role::kOther;
}
Role mpeg4Role(uint8_t code) {
  if (code == 0xB6) return Role::kPicture;
  return code == 0xB0 || code == 0xB5 || code == 0xB3 || code <= 0x2F ? Role::kOpens : Role::kOther;
}
// H.264, 7.4.1.2.3; slices of one picture in any order but the first are told by their address.
Role avcRole(Bytes unit) {
  const unsigned type = unit[0] & 31U;
  if (type == 1 || type == 2 || type == 5)
    return unit.size() > 1 && (unit[1] & 0x80U) != 0 ? Role::kPicture : Role::kOther;
  return (type >= 6 && type <= 9) || (type >= 14 && type <= 18) ? Role::kOpens : Role::kOther;
}
// H.265, 7.4.2.4.4.
Role hevcRole(Bytes unit) {
  if (unit.size() < 3) return Role::kOther;
  const unsigned type = unit[0] >> 1 & 63U;
  const unsigned layer = (unit[0] & 1U) << 5 | unit[1] >> 3;
  if (layer != 0) return Role::kOther;
  if (type < 32) return (unit[2] & 0x80U) != 0 ? Role::kPicture : Role::kOther;
  const bool opens = (type >= 32 && type <= 35) || type == 39 || (type >= 41 && type <= 44) ||
                     (type >= 48 && type <= 55);
  return opens ? Role::kOpens : Role::kOther;
}

Role roleOf(Coding coding, Bytes unit) {
  switch (coding) {
    case Coding::kAvc:
      return avcRole(unit);
    case Coding::kHevc:
      return hevcRole(unit);
    case Coding::kMpeg4Video:
      return mpeg4Role(unit[0]);
    default:
      return mpegRole(unit[0]);
  }
}

void readFacts(Coding coding, Bytes unit, StreamFacts& facts) {
  const uint8_t code = unit[0];
  const Bytes header = unit.subspan(1);
  switch (coding) {
    case Coding::kMpeg1Video:
    case Coding::kMpeg2Video:
      if (code == 0xB3) readSequence(header, facts);
      if (code == 0xB5 && !header.empty() && header[0] >> 4 == 1)
        readSequenceExtension(header, facts);
      return;
    case Coding::kMpeg4Video:
      if (code == 0xB0 && !header.empty()) setMpeg4Level(header[0], facts);
      if (code >= 0x20 && code <= 0x2F) readVideoObjectLayer(header, facts);
      return;
    case Coding::kAvc:
      if ((code & 31U) == 7) readAvcParameterSet(unit, facts);
      return;
    case Coding::kHevc:
      if ((code >> 1 & 63U) == 33 && unit.size() > 2 && (code & 1U) == 0 && unit[1] >> 3 == 0)
        readHevcParameterSet(unit, facts);
      return;
    default:
      return;
  }
}

}  // namespace

void walkVideo(Coding coding, std::span<const uint8_t> stream, Units& units) {
  const bool nalUnits = coding == Coding::kAvc || coding == Coding::kHevc;
  const std::vector<StartCode> codes = startCodes(stream, nalUnits);
  bool pictureSeen = false;
  int64_t opened = codes.empty() ? -1 : codes.front().place;
  for (size_t i = 0; i < codes.size(); ++i) {
    const size_t end =
        i + 1 < codes.size() ? static_cast<size_t>(codes[i + 1].place) : stream.size();
    if (end <= codes[i].unit) continue;
    const Bytes unit = stream.subspan(codes[i].unit, end - codes[i].unit);
    const Role role = roleOf(coding, unit);
    if (role != Role::kOther && (pictureSeen || opened < 0)) {
      opened = codes[i].place;
      pictureSeen = false;
    }
    if (role == Role::kPicture) {
      units.list.push_back({opened, 0});
      pictureSeen = true;
    }
    readFacts(coding, unit, units.facts);
  }
}

}  // namespace zel::test
