#include "tests/support/plain_transport_stream.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zel::test {
namespace {

constexpr double kTicks = 27e6;
constexpr size_t kPacket = 188;

void append(std::vector<uint8_t>& out, std::initializer_list<int> bytes) {
  for (const int byte : bytes) out.push_back(static_cast<uint8_t>(byte));
}

std::vector<uint8_t> withCrc(std::vector<uint8_t> section) {
  uint32_t crc = 0xFFFFFFFF;
  for (const uint8_t byte : section) {
    crc ^= static_cast<uint32_t>(byte) << 24;
    for (int i = 0; i < 8; ++i) crc = crc << 1 ^ ((crc >> 31) != 0 ? 0x04C11DB7U : 0U);
  }
  for (int shift = 24; shift >= 0; shift -= 8)
    section.push_back(static_cast<uint8_t>(crc >> shift));
  return section;
}

std::vector<uint8_t> patSection() {
  return withCrc({0, 0xB0, 13, 0, 1, 0xC1, 0, 0, 0, 1, 0xE0, PlainStream::kPmtPid});
}
std::vector<uint8_t> pmtSection() {
  return withCrc({2,    0xB0, 23, 0,    1,
                  0xC1, 0,    0,  0xE0, PlainStream::kVideoPid,
                  0xF0, 0,    2,  0xE0, PlainStream::kVideoPid,
                  0xF0, 0,    3,  0xE0, PlainStream::kAudioPid,
                  0xF0, 0});
}

// One unit's PES packet, and when its bytes are to go.
struct PesUnit {
  std::vector<uint8_t> bytes;
  double begin;
  double duration;
};

class Sender {
 public:
  Sender(int pid, std::vector<PesUnit> units) : pid_(pid), units_(std::move(units)) {}

  // Whether a packet is late at this time: units leave at an even rate.
  bool due(double time) const {
    if (unit_ >= units_.size()) return false;
    const PesUnit& unit = units_[unit_];
    const double share = (time - unit.begin) / unit.duration;
    return share > 0 && static_cast<double>(sent_) < share * static_cast<double>(unit.bytes.size());
  }

  std::array<uint8_t, kPacket> packet(int64_t pcr) {
    PesUnit& unit = units_[unit_];
    std::array<uint8_t, kPacket> out{};
    size_t place = header(out, sent_ == 0, true);
    const size_t room = kPacket - place - (pcr >= 0 ? 8 : 0);
    const size_t size = std::min(room, unit.bytes.size() - sent_);
    adaptation(out, place, kPacket - place - size, pcr);
    std::copy_n(unit.bytes.begin() + static_cast<std::ptrdiff_t>(sent_), size,
                out.end() - static_cast<std::ptrdiff_t>(size));
    sent_ += size;
    if (sent_ == unit.bytes.size()) {
      ++unit_;
      sent_ = 0;
    }
    return out;
  }

  std::array<uint8_t, kPacket> pcrOnly(int64_t pcr) {
    std::array<uint8_t, kPacket> out{};
    const size_t place = header(out, false, false);
    adaptation(out, place, kPacket - place, pcr);
    return out;
  }

  std::array<uint8_t, kPacket> section(const std::vector<uint8_t>& section) {
    std::array<uint8_t, kPacket> out{};
    out.fill(0xFF);
    const size_t place = header(out, true, true);
    out[place] = 0;
    std::copy(section.begin(), section.end(), out.begin() + static_cast<std::ptrdiff_t>(place) + 1);
    return out;
  }

 private:
  size_t header(std::array<uint8_t, kPacket>& out, bool start, bool payload) {
    out[0] = 0x47;
    out[1] = static_cast<uint8_t>((start ? 0x40 : 0) | pid_ >> 8);
    out[2] = static_cast<uint8_t>(pid_);
    if (payload) counter_ = (counter_ + 1) % 16;
    out[3] = static_cast<uint8_t>((payload ? 0x10 : 0) | counter_);
    return 4;
  }
  static void adaptation(std::array<uint8_t, kPacket>& out, size_t place, size_t size,
                         int64_t pcr) {
    if (size == 0) return;
    out[3] |= 0x20;
    out[place] = static_cast<uint8_t>(size - 1);
    std::fill_n(out.begin() + static_cast<std::ptrdiff_t>(place) + 1, size - 1, uint8_t{0xFF});
    if (size < 2) return;
    out[place + 1] = pcr >= 0 ? 0x10 : 0;
    if (pcr < 0) return;
    const int64_t base = pcr / 300 % (int64_t{1} << 33);
    const int64_t extension = pcr % 300;
    for (int i = 0; i < 4; ++i)
      out[place + 2 + static_cast<size_t>(i)] = static_cast<uint8_t>(base >> (25 - 8 * i));
    out[place + 6] = static_cast<uint8_t>((base & 1) << 7 | 0x7E | extension >> 8);
    out[place + 7] = static_cast<uint8_t>(extension);
  }

  int pid_;
  std::vector<PesUnit> units_;
  size_t unit_ = 0;
  size_t sent_ = 0;
  int counter_ = 15;
};

std::vector<uint8_t> pesPacket(int id, int64_t pts, const std::vector<uint8_t>& unit, bool sized) {
  const size_t length = sized ? unit.size() + 8 : 0;
  std::vector<uint8_t> out;
  append(out, {0, 0, 1, id, static_cast<int>(length >> 8), static_cast<int>(length & 255), 0x84,
               0x80, 5});
  append(out, {static_cast<int>(0x21 | (pts >> 29 & 14)), static_cast<int>(pts >> 22 & 255),
               static_cast<int>(1 | (pts >> 14 & 254)), static_cast<int>(pts >> 7 & 255),
               static_cast<int>(1 | (pts << 1 & 254))});
  out.insert(out.end(), unit.begin(), unit.end());
  return out;
}

std::vector<uint8_t> pictureUnit(int index, int size) {
  std::vector<uint8_t> unit;
  if (index % 12 == 0) {
    // 720x576, 25 pictures a second, 4 Mbit/s, a buffer of 112 units; Main at Main.
    append(unit, {0, 0, 1, 0xB3, 0x2D, 0x02, 0x40, 0x23, 0x09, 0xC4, 0x23, 0x80});
    append(unit, {0, 0, 1, 0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00, 0x00});
  }
  append(unit, {0, 0, 1, 0x00, index & 127, 0x0F, 0xFF, 0xF8, 0, 0, 1, 0x01});
  while (static_cast<int>(unit.size()) < size) unit.push_back(0x5A);
  return unit;
}

// Layer II, 128 kbit/s, 48 kHz.
std::vector<uint8_t> audioUnit() {
  constexpr std::array<uint8_t, 4> kHeader = {0xFF, 0xFD, 0x84, 0x04};
  std::vector<uint8_t> unit(384, 0x33);
  std::copy(kHeader.begin(), kHeader.end(), unit.begin());
  return unit;
}

}  // namespace

PlainStream makePlainTransportStream(const PlainStreamSettings& settings) {
  PlainStream stream;
  const auto stamp = [&](double time) {
    return (settings.startTicks / 300 + std::llround(time * 90000)) % (int64_t{1} << 33);
  };
  std::vector<PesUnit> pictures;
  std::vector<PesUnit> frames;
  for (int i = 0; i * 0.04 + 0.04 < settings.seconds; ++i) {
    const std::vector<uint8_t> unit = pictureUnit(i, settings.pictureBytes);
    stream.video.insert(stream.video.end(), unit.begin(), unit.end());
    pictures.push_back(
        {pesPacket(0xE0, stamp(i * 0.04 + settings.delay), unit, false), i * 0.04, 0.038});
  }
  for (int i = 0; i * 0.024 + 0.024 < settings.seconds; ++i) {
    const std::vector<uint8_t> unit = audioUnit();
    stream.audio.insert(stream.audio.end(), unit.begin(), unit.end());
    frames.push_back(
        {pesPacket(0xC0, stamp(i * 0.024 + settings.delay * 0.75), unit, true), i * 0.024, 0.022});
  }

  Sender pat(0, {});
  Sender pmt(PlainStream::kPmtPid, {});
  Sender video(PlainStream::kVideoPid, std::move(pictures));
  Sender audio(PlainStream::kAudioPid, std::move(frames));
  const auto put = [&](const std::array<uint8_t, kPacket>& packet) {
    stream.bytes.insert(stream.bytes.end(), packet.begin(), packet.end());
  };
  std::array<uint8_t, kPacket> null{0x47, 0x1F, 0xFF, 0x10};
  double nextPcr = 0;
  double nextPat = 0;
  double nextPmt = 0;
  for (int64_t slot = 0;; ++slot) {
    const double time = static_cast<double>(slot) * 1504 / static_cast<double>(settings.rate);
    if (time > settings.seconds) break;
    // What the clock shows at the eleventh byte: ISO/IEC 13818-1, 2.4.2.2.
    const int64_t clock =
        (settings.startTicks +
         std::llround((time + 80.0 / static_cast<double>(settings.rate)) * kTicks)) %
        (300 * (int64_t{1} << 33));
    const bool pcrDue = time >= nextPcr;
    if (pcrDue) nextPcr += settings.pcrPeriod;
    if (pcrDue) {
      put(video.due(time) ? video.packet(clock) : video.pcrOnly(clock));
    } else if (time >= nextPat) {
      nextPat += settings.tablePeriod;
      put(pat.section(patSection()));
    } else if (time >= nextPmt) {
      nextPmt += settings.tablePeriod;
      put(pmt.section(pmtSection()));
    } else if (audio.due(time)) {
      put(audio.packet(-1));
    } else if (video.due(time)) {
      put(video.packet(-1));
    } else {
      put(null);
    }
  }
  return stream;
}

}  // namespace zel::test
