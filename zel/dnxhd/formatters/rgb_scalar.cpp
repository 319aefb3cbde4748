#include <algorithm>
#include <cstring>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

namespace zel::dnxhd {

namespace {

// (a * b + half) >> 15.
int MulFixed15(int a, int b) {
  return (a * b + (1 << 14)) >> 15;
}
int Bounded(int16_t fixed) {
  return std::clamp<int>(fixed, 0, kFixedOne);
}

// 16384 / 255 is 64 and a quarter and a little: white is exact, and no code is off by more than a
// hundredth of the step to the next.
struct Bytes {
  using Word = uint8_t;
  static constexpr Word kOpaque = 255;
  static int16_t ToFixed(Word v) { return static_cast<int16_t>(64 * v + ((v + 2) >> 2)); }
  static Word FromFixed(int16_t v) { return static_cast<Word>(MulFixed15(Bounded(v), 2 * 255)); }
};

struct Words10_6 {
  using Word = uint16_t;
  static constexpr Word kOpaque = 0xFFC0;
  static int16_t ToFixed(Word v) {
    const int code = v >> 6;
    return static_cast<int16_t>(16 * code + ((code + 32) >> 6));
  }
  static Word FromFixed(int16_t v) {
    return static_cast<Word>(MulFixed15(Bounded(v), 2 * 1023) << 6);
  }
};

struct Fixed2_14 {
  using Word = int16_t;
  static constexpr Word kOpaque = kFixedOne;
  static int16_t ToFixed(Word v) { return v; }
  static Word FromFixed(int16_t v) { return v; }
};

struct Signed16 {
  using Word = int16_t;
  static constexpr Word kOpaque = 32767;
  static int16_t ToFixed(Word v) { return static_cast<int16_t>((v + 1) >> 1); }
  static Word FromFixed(int16_t v) { return static_cast<Word>(std::clamp(2 * v, -32768, 32767)); }
};

template <typename Sample>
void Unpack(const uint8_t* in, RgbOrder order, int16_t* red, int16_t* green, int16_t* blue,
            size_t pixels) {
  using Word = typename Sample::Word;
  for (size_t i = 0; i < pixels; ++i) {
    Word words[4];
    std::memcpy(words, in + sizeof(words) * i, sizeof(words));
    red[i] = Sample::ToFixed(words[order.red]);
    green[i] = Sample::ToFixed(words[order.green]);
    blue[i] = Sample::ToFixed(words[order.blue]);
  }
}

template <typename Sample>
void Pack(const int16_t* red, const int16_t* green, const int16_t* blue, RgbOrder order,
          uint8_t* out, size_t pixels) {
  using Word = typename Sample::Word;
  for (size_t i = 0; i < pixels; ++i) {
    Word words[4];
    words[order.red] = Sample::FromFixed(red[i]);
    words[order.green] = Sample::FromFixed(green[i]);
    words[order.blue] = Sample::FromFixed(blue[i]);
    words[order.alpha] = Sample::kOpaque;
    std::memcpy(out + sizeof(words) * i, words, sizeof(words));
  }
}

}  // namespace

const RgbKernels& ScalarRgbKernels() {
  static constexpr RgbKernels kKernels = {
      {Unpack<Bytes>, Unpack<Words10_6>, Unpack<Fixed2_14>, Unpack<Signed16>},
      {Pack<Bytes>, Pack<Words10_6>, Pack<Fixed2_14>, Pack<Signed16>}};
  return kKernels;
}

}  // namespace zel::dnxhd
