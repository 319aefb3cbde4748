#include "zel/mux/engine/pcm/sample_format.h"

#include <cassert>

namespace zel::mux {

namespace {

uint32_t reversed(uint32_t value, int width) {
  uint32_t result = 0;
  for (int bit = 0; bit < width; ++bit) result |= (value >> bit & 1) << (width - 1 - bit);
  return result;
}

}  // namespace

int32_t read_sample(const uint8_t* at, const sample_format& format) {
  assert(format.bytes >= 1 && format.bytes <= 4);
  assert(format.bits >= 1 && format.bits <= 8 * format.bytes);
  uint32_t value = 0;
  for (int i = 0; i < format.bytes; ++i) {
    value = value << 8 | at[format.bigEndian ? i : format.bytes - 1 - i];
  }
  const int width = 8 * format.bytes;
  if (format.bitReversed) value = reversed(value, width);
  // To the top of 32 bits, whose lower ones don't count, and down again with the sign.
  const int above = format.leftJustified ? 32 - width : 32 - format.bits;
  return static_cast<int32_t>(value << above) >> (32 - format.bits);
}

}  // namespace zel::mux
