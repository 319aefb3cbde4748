#pragma once

#include <cstddef>
#include <cstdint>

/// How PCM samples stand in their bytes.

namespace zel::mux {

struct sample_format {
  int bytes = 3;              // of a sample, 1 to 4
  int bits = 24;              // of them that count
  bool leftJustified = true;  // the bits that count are the upper ones
  bool bigEndian = false;     // most significant byte first
  bool bitReversed = false;   // least significant bit of each sample first
};

/// The sample at `at` as a signed number of `format.bits` bits.
int32_t read_sample(const uint8_t* at, const sample_format& format);

/// A sample of `from` bits as one of `to` bits: what is lost is the low bits.
constexpr int32_t resized_sample(int32_t sample, int from, int to) {
  return to >= from ? static_cast<int32_t>(static_cast<uint32_t>(sample) << (to - from))
                    : sample >> (from - to);
}

}  // namespace zel::mux
