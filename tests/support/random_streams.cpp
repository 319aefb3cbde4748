#include "tests/support/random_streams.h"

#include <algorithm>

namespace zel::test {
namespace {

constexpr double kPictures = 25;
constexpr int kVbvUnits = 112;  // of 2,048 bytes

void append(std::vector<uint8_t>& out, std::initializer_list<int> bytes) {
  for (const int byte : bytes) out.push_back(static_cast<uint8_t>(byte));
}

void appendHeaders(std::vector<uint8_t>& out, int index, int rate) {
  const bool intra = index % 12 == 0;
  if (intra) {
    // bit_rate counts 400 bit/s in 18 bits, then a marker and ten bits of vbv_buffer_size.
    const int units = rate / 400;
    append(out, {0, 0, 1, 0xB3, 0x2D, 0x02, 0x40, 0x23, units >> 10, units >> 2 & 255,
                 (units & 3) << 6 | 0x20 | kVbvUnits >> 5, (kVbvUnits & 31) << 3});
    append(out, {0, 0, 1, 0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00, 0x00});
    append(out, {0, 0, 1, 0xB8, 0x00, 0x08, 0x00, 0x40});
  }
  // temporal_reference, picture_coding_type, vbv_delay of all ones: not told.
  const int reference = index % 12;
  const int type = intra ? 1 : 2;
  append(out, {0, 0, 1, 0x00, reference >> 2, (reference & 3) << 6 | type << 3 | 7, 0xFF, 0xF8});
  if (!intra) out.back() = 0xFB, out.push_back(0x80);
  append(out, {0, 0, 1, 0xB5, 0x8F, 0xFF, 0xF3, 0x41, 0x80});
  append(out, {0, 0, 1, 0x01});
}

struct FrameForm {
  std::vector<uint8_t> header;
  size_t size;
  double seconds;
};

FrameForm formOf(AudioFrames kind) {
  switch (kind) {
    case AudioFrames::kLayer2:
      return {{0xFF, 0xFD, 0x84, 0x04}, 384, 0.024};
    case AudioFrames::kLayer3:
      return {{0xFF, 0xFB, 0x94, 0x04}, 384, 0.024};
    case AudioFrames::kAdts:
      return {{0xFF, 0xF1, 0x4C, 0x80, 0x2F, 0xFF, 0xFC}, 383, 1024.0 / 48000};
    case AudioFrames::kAc3:
      return {{0x0B, 0x77, 0, 0, 0x14, 0x40, 0x43, 0xE1, 0, 0}, 768, 0.032};
    default:
      // 16 blocks, 1,024 bytes, 48 kHz.
      return {
          {0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x3F, 0xF2, 0x75, 0xE0, 0, 0}, 1024, 512.0 / 48000};
  }
}

}  // namespace

std::vector<uint8_t> randomMpeg2Video(std::mt19937_64& random, int rate, double seconds) {
  std::vector<uint8_t> stream;
  const double perPicture = rate / 8.0 / kPictures;
  const double full = kVbvUnits * 2048.0;
  double level = full * 0.75;
  std::uniform_real_distribution<double> spread(0.3, 1.5);
  for (int i = 0; i < seconds * kPictures; ++i) {
    const double wanted = perPicture * spread(random) * (i % 12 == 0 ? 3 : 0.8);
    // What would overflow the buffer is filled up, what would empty it is cut.
    const double least = level + perPicture - full;
    const double size = std::clamp(wanted, std::max(least, 400.0), level * 0.8);
    const size_t end = stream.size() + static_cast<size_t>(size);
    appendHeaders(stream, i, rate);
    stream.resize(std::max(end, stream.size()), 0x5A);
    level = std::min(full, level - size + perPicture);
  }
  return stream;
}

std::vector<uint8_t> audioFrames(AudioFrames kind, double seconds) {
  const FrameForm form = formOf(kind);
  std::vector<uint8_t> stream;
  for (double time = 0; time + form.seconds <= seconds; time += form.seconds) {
    const size_t begin = stream.size();
    stream.insert(stream.end(), form.header.begin(), form.header.end());
    stream.resize(begin + form.size, 0x33);
  }
  return stream;
}

}  // namespace zel::test
