#include <algorithm>
#include <cmath>
#include <cstring>

#include "zel/dnxhd/formatters/color_constants.h"
#include "zel/dnxhd/formatters/pixel_kernels.h"

namespace zel::dnxhd {

namespace {

template <int Depth>
int16_t Limited(int value) {
  return static_cast<int16_t>(std::clamp(value, int{LowestOf(Depth)}, int{HighestOf(Depth)}));
}

// Codes of the depth, not centred.
template <int Depth>
int CodeOf(int16_t sample) {
  return Limited<Depth>(sample) + (1 << (Depth - 1));
}
template <int Depth>
int16_t FromCode10(int code) {
  if (Depth == 10) return static_cast<int16_t>(code - 512);
  return static_cast<int16_t>(std::min((code + 2) >> 2, 255) - 128);
}
template <int Depth>
int ToCode10(int16_t sample) {
  return CodeOf<Depth>(sample) << (10 - Depth);
}

// What samples of each type are; `i` counts the samples of a line: Cb, Y, Cr, Y.
template <int Depth>
struct Bytes {
  static int16_t Load(const uint8_t* in, const uint8_t*, size_t i) {
    return static_cast<int16_t>((in[i] - 128) * (1 << (Depth - 8)));
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t*, size_t i) {
    const int rounded = (CodeOf<Depth>(sample) + (Depth == 10 ? 2 : 0)) >> (Depth - 8);
    out[i] = static_cast<uint8_t>(std::min(rounded, 255));
  }
};

template <typename Word>
Word LoadWord(const uint8_t* in, size_t i) {
  Word word;
  std::memcpy(&word, in + sizeof(Word) * i, sizeof(Word));
  return word;
}
template <typename Word>
void StoreWord(Word word, uint8_t* out, size_t i) {
  std::memcpy(out + sizeof(Word) * i, &word, sizeof(Word));
}

template <int Depth>
struct Words10_6 {
  static int16_t Load(const uint8_t* in, const uint8_t*, size_t i) {
    return FromCode10<Depth>(LoadWord<uint16_t>(in, i) >> 6);
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t*, size_t i) {
    StoreWord(static_cast<uint16_t>(ToCode10<Depth>(sample) << 6), out, i);
  }
};

template <int Depth>
struct Fixed2_14 {
  static int16_t Load(const uint8_t* in, const uint8_t*, size_t i) {
    const bool luma = i % 2 != 0;
    const int32_t span = luma ? LumaSpan(Depth) : ChromaSpan(Depth);
    const int32_t code = (LoadWord<int16_t>(in, i) * span + (1 << 13)) >> 14;
    return Limited<Depth>(code + (luma ? BlackOf(Depth) : 0));
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t*, size_t i) {
    constexpr int kShift = CodeToFixedShift(Depth);
    const bool luma = i % 2 != 0;
    const int32_t above = Limited<Depth>(sample) - (luma ? BlackOf(Depth) : 0);
    const int32_t scale = luma ? kLumaCodeToFixed : kChromaCodeToFixed;
    StoreWord(static_cast<int16_t>((above * scale + (1 << (kShift - 1))) >> kShift), out, i);
  }
};

template <int Depth>
struct Floats {
  static int16_t Load(const uint8_t* in, const uint8_t*, size_t i) {
    const bool luma = i % 2 != 0;
    const float value = LoadWord<float>(in, i);
    // What is no number is black or grey. The bounds are far outside of the codes.
    const float codes = value * static_cast<float>(luma ? LumaSpan(Depth) : ChromaSpan(Depth));
    const float bounded = std::isnan(codes) ? 0.0f : std::clamp(codes, -4096.0f, 4096.0f);
    const int code = static_cast<int>(std::nearbyint(bounded));
    return Limited<Depth>(code + (luma ? BlackOf(Depth) : 0));
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t*, size_t i) {
    const bool luma = i % 2 != 0;
    const int above = Limited<Depth>(sample) - (luma ? BlackOf(Depth) : 0);
    const float one = 1.0f / static_cast<float>(luma ? LumaSpan(Depth) : ChromaSpan(Depth));
    StoreWord(static_cast<float>(above) * one, out, i);
  }
};

// The low bits of four samples stand in a byte, the first sample's at the top.
template <int Depth>
struct Planes2_8 {
  static int16_t Load(const uint8_t* in, const uint8_t* low, size_t i) {
    const int bits = low[i / 4] >> (6 - 2 * (i % 4)) & 3;
    return FromCode10<Depth>(in[i] << 2 | bits);
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t* low, size_t i) {
    const int code = ToCode10<Depth>(sample);
    out[i] = static_cast<uint8_t>(code >> 2);
    const int before = i % 4 == 0 ? 0 : low[i / 4];
    low[i / 4] = static_cast<uint8_t>(before | (code & 3) << (6 - 2 * (i % 4)));
  }
};

// Three samples a word, from the low end.
template <int Depth>
struct Thirds {
  static int16_t Load(const uint8_t* in, const uint8_t*, size_t i) {
    return FromCode10<Depth>(LoadWord<uint32_t>(in, i / 3) >> (10 * (i % 3)) & 1023);
  }
  static void Store(int16_t sample, uint8_t* out, uint8_t*, size_t i) {
    const uint32_t before = i % 3 == 0 ? 0 : LoadWord<uint32_t>(out, i / 3);
    const auto code = static_cast<uint32_t>(ToCode10<Depth>(sample));
    StoreWord(before | code << (10 * (i % 3)), out, i / 3);
    // What is left of the last group stays zero.
    const size_t group = i / 12 * 4;
    for (size_t word = i / 3 + 1; i % 3 == 0 && word < group + 4; ++word) {
      StoreWord(uint32_t{0}, out, word);
    }
  }
};

template <typename Sample, typename Places = InPlanes>
void Unpack(const uint8_t* in, const uint8_t* low, int16_t* y, int16_t* cb, int16_t* cr,
            size_t pixels) {
  for (size_t pair = 0; pair < pixels / 2; ++pair) {
    cb[Places::Chroma(pair)] = Sample::Load(in, low, 4 * pair);
    y[Places::Luma(2 * pair)] = Sample::Load(in, low, 4 * pair + 1);
    cr[Places::Chroma(pair)] = Sample::Load(in, low, 4 * pair + 2);
    y[Places::Luma(2 * pair + 1)] = Sample::Load(in, low, 4 * pair + 3);
  }
}

template <typename Sample, typename Places = InPlanes>
void Pack(const int16_t* y, const int16_t* cb, const int16_t* cr, uint8_t* out, uint8_t* low,
          size_t pixels) {
  for (size_t pair = 0; pair < pixels / 2; ++pair) {
    Sample::Store(cb[Places::Chroma(pair)], out, low, 4 * pair);
    Sample::Store(y[Places::Luma(2 * pair)], out, low, 4 * pair + 1);
    Sample::Store(cr[Places::Chroma(pair)], out, low, 4 * pair + 2);
    Sample::Store(y[Places::Luma(2 * pair + 1)], out, low, 4 * pair + 3);
  }
}

template <int Depth>
constexpr YCbCrKernels::OfDepth KernelsOf() {
  return {{Unpack<Bytes<Depth>>, Unpack<Words10_6<Depth>>, Unpack<Fixed2_14<Depth>>,
           Unpack<Floats<Depth>>, Unpack<Planes2_8<Depth>>, Unpack<Thirds<Depth>>},
          {Pack<Bytes<Depth>>, Pack<Words10_6<Depth>>, Pack<Fixed2_14<Depth>>, Pack<Floats<Depth>>,
           Pack<Planes2_8<Depth>>, Pack<Thirds<Depth>>},
          {Unpack<Bytes<Depth>, InBlocks>, Unpack<Words10_6<Depth>, InBlocks>,
           Unpack<Fixed2_14<Depth>, InBlocks>, Unpack<Floats<Depth>, InBlocks>,
           Unpack<Planes2_8<Depth>, InBlocks>},
          {Pack<Bytes<Depth>, InBlocks>, Pack<Words10_6<Depth>, InBlocks>,
           Pack<Fixed2_14<Depth>, InBlocks>, Pack<Floats<Depth>, InBlocks>,
           Pack<Planes2_8<Depth>, InBlocks>}};
}

}  // namespace

const YCbCrKernels& ScalarYCbCrKernels() {
  static constexpr YCbCrKernels kKernels = {KernelsOf<8>(), KernelsOf<10>()};
  return kKernels;
}

}  // namespace zel::dnxhd
