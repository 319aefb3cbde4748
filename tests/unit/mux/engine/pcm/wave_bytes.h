#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Wave files for tests, chunk by chunk.

namespace zel::test {

class WaveBytes {
 public:
  WaveBytes& text(std::string_view letters) {
    bytes_.insert(bytes_.end(), letters.begin(), letters.end());
    return *this;
  }
  WaveBytes& little(int count, uint64_t value) {
    for (int i = 0; i < count; ++i) bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return *this;
  }
  WaveBytes& raw(const std::vector<uint8_t>& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }

  WaveBytes& file(std::string_view id, uint32_t size) {
    begin_ = bytes_.size();
    return text(id).little(4, size).text("WAVE");
  }
  WaveBytes& format(int channels, uint32_t rate, int bytesPerSample, int bits, int tag = 1) {
    text("fmt ").little(4, 16).little(2, static_cast<uint64_t>(tag));
    return formatBody(channels, rate, bytesPerSample, bits);
  }
  WaveBytes& extensible(int channels, uint32_t rate, int bytesPerSample, int valid, int tag = 1) {
    text("fmt ").little(4, 40).little(2, 0xFFFE);
    formatBody(channels, rate, bytesPerSample, 8 * bytesPerSample);
    little(2, 22).little(2, static_cast<uint64_t>(valid)).little(4, 3);
    little(2, static_cast<uint64_t>(tag));
    return raw({0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71});
  }
  WaveBytes& sizes64(uint64_t file, uint64_t data) {
    return text("ds64").little(4, 28).little(8, file).little(8, data).little(8, 0).little(4, 0);
  }
  WaveBytes& chunk(std::string_view id, const std::vector<uint8_t>& body) {
    text(id).little(4, body.size()).raw(body);
    if (body.size() % 2 != 0) bytes_.push_back(0);
    return *this;
  }
  /// Fills in the size of the file begun last.
  WaveBytes& closed() {
    const auto size = static_cast<uint32_t>(bytes_.size() - begin_ - 8);
    for (int i = 0; i < 4; ++i) bytes_[begin_ + 4 + i] = static_cast<uint8_t>(size >> (8 * i));
    return *this;
  }

  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  WaveBytes& formatBody(int channels, uint32_t rate, int bytesPerSample, int bits) {
    const auto frame = static_cast<uint64_t>(channels * bytesPerSample);
    return little(2, static_cast<uint64_t>(channels))
        .little(4, rate)
        .little(4, rate * frame)
        .little(2, frame)
        .little(2, static_cast<uint64_t>(bits));
  }

  std::vector<uint8_t> bytes_;
  size_t begin_ = 0;
};

/// A plain file of `samples`.
inline std::vector<uint8_t> plainWave(int channels, int bytesPerSample,
                                      const std::vector<uint8_t>& samples, int bits = 0,
                                      uint32_t rate = 48000) {
  return WaveBytes()
      .file("RIFF", 0)
      .format(channels, rate, bytesPerSample, bits > 0 ? bits : 8 * bytesPerSample)
      .chunk("data", samples)
      .closed()
      .bytes();
}

}  // namespace zel::test
